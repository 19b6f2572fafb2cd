#pragma once
#include <cstdint>

#include <glm/glm.hpp>

namespace game::graphics {

/// What a renderable is made of, as the ray tracer and the rasterizer read it:
/// primitives (triangles' vertices, or boxes) and perhaps indices at device
/// addresses, with the material and attribute fields of the geometry. Mesh
/// geometries, triangle geometries and box geometries derive from it; a
/// renderable instance holds a list of them. Plain data: no drawing code.
class GeometryInterface {
public:
    virtual ~GeometryInterface() = default;

    virtual uint64_t GetPrimitiveCount() const = 0;  ///< Vertices, or boxes.
    virtual uint64_t GetPrimitiveStride() const = 0; ///< Bytes from one primitive to the next.
    virtual uint64_t GetIndexCount() const = 0;      ///< Indices; 0 without.
    virtual uint64_t GetPrimitivesAddr() const = 0;  ///< Device address of the first primitive.
    virtual uint64_t GetIndicesAddr() const = 0;     ///< Device address of the first index; 0 without.
    /// Bytes of one index: 2 for indexMode 2, 4 for indexMode 3, otherwise 0.
    virtual uint64_t GetIndexStride() const { return indexMode == 2 ? 2 : indexMode == 3 ? 4 : 0; }

    uint32_t indexMode = 0;     ///< 0 boxes, 1 triangles without indices, 2 16-bit, 3 32-bit indices.
    glm::vec4 baseColor{1.0f};  ///< Base colour, RGBA.
    glm::vec3 emission{0.0f};   ///< Emitted radiance, linear RGB.
    uint32_t textureIndex = 0;  ///< Entry of the renderer's texture table; 0 for none.
    float metallic = 0.0f;      ///< Metalness, 0 to 1.
    float roughness = 0.0f;     ///< Roughness, 0 to 1.
    uint64_t texCoord0Addr = 0; ///< Device address of the first texture coordinates (2 floats); 0 without.
    uint64_t texCoord1Addr = 0; ///< Device address of the second texture coordinates; 0 without.
    uint64_t normalAddr = 0;    ///< Device address of the normals (3 floats); 0 without.
    uint64_t colorU8Addr = 0;   ///< Device address of the vertex colours as 4 bytes; 0 otherwise.
    uint64_t colorF32Addr = 0;  ///< Device address of the vertex colours as 4 floats; 0 otherwise.
};

} // namespace game::graphics
