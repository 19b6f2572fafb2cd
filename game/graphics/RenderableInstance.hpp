#pragma once
#include <cstdint>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include <glm/glm.hpp>

#include "game/graphics/GeometryInterface.hpp"
#include "game/graphics/SceneTable.hpp"
#include "nerox/SharedMutex.hpp"
#include "nerox/vk/Buffer.hpp"

namespace game::graphics {

/// The material record of one geometry, as the shaders read it by address.
struct RenderableData {
    glm::vec3 emission{0.0f};  ///< Emitted radiance, linear RGB.
    float colorMix = 0.0f;     ///< The float argument of SetColor.
    glm::vec4 color{1.0f};     ///< Base colour, RGBA.
    float pbrThird = 0.0f;     ///< Third argument of SetPbrMetallicRoughness.
    float metallic = 0.0f;     ///< First argument.
    float roughness = 0.0f;    ///< Second argument.
    uint32_t monitorIndex = 0; ///< Texture index of a screen; 0 for none.
    uint32_t reserved[4] = {}; ///< Zero, kept for the shaders.
};
static_assert(sizeof(RenderableData) == 64);
static_assert(offsetof(RenderableData, colorMix) == 12 && offsetof(RenderableData, color) == 16);
static_assert(offsetof(RenderableData, pbrThird) == 32 && offsetof(RenderableData, roughness) == 40);
static_assert(offsetof(RenderableData, monitorIndex) == 44 && offsetof(RenderableData, reserved) == 48);

/// One box of a procedural geometry; its first 24 bytes are a VkAabbPositionsKHR.
struct AabbData {
    glm::vec3 minimum{0.0f}; ///< Box minimum.
    glm::vec3 maximum{0.0f}; ///< Box maximum.
    uint64_t data = 0;       ///< Device address of the box's own record (e.g. plasma); 0 for none.
};
static_assert(sizeof(AabbData) == 32 && offsetof(AabbData, maximum) == 12 && offsetof(AabbData, data) == 24);

/// Buffer usage of every geometry buffer: read by shaders, and by acceleration
/// structure builds where the device has ray tracing.
inline VkBufferUsageFlags GeometryBufferUsage(nerox::vk::Device const& device) {
    return VK_BUFFER_USAGE_STORAGE_BUFFER_BIT |
        (device.HasRayTracing() ? VK_BUFFER_USAGE_ACCELERATION_STRUCTURE_BUILD_INPUT_READ_ONLY_BIT_KHR : 0);
}

/// One object of the scene: geometries with a transform, a material record per
/// geometry, and what the ray tracer needs to find them. Lives in the table
/// _sharedObjects while someone holds it; the world view walks the table each
/// frame. Plain data: nothing here draws.
///
/// Threads: _sharedObjectsMutex is taken exclusively to enter an object (Make)
/// or to clear the table, shared to walk it. The fields are not guarded: the
/// owner writes them between frames, the renderer reads them.
class RenderableInstance : public std::enable_shared_from_this<RenderableInstance> {
public:
    /// What the geometries of an instance are.
    using GeometryInterface = game::graphics::GeometryInterface;

    /// Creates a T from args and enters it in the first free slot of the table.
    template <class T, class... Args> static std::shared_ptr<T> Make(Args&&... args);

    RenderableInstance() = default;
    /// An instance that shares the geometries of source, placed by transform.
    /// Its own material records and material names are empty.
    RenderableInstance(std::shared_ptr<RenderableInstance> source, glm::dmat4 const& transform);
    virtual ~RenderableInstance() = default;

    /// Makes geometries the instance's, with one material record each (from the
    /// geometry's colour, emission, metalness and roughness) and materials[name]
    /// listing the geometries of each name in materialNames (one per geometry;
    /// shorter lists leave the rest unnamed). The old geometries and records go
    /// to the renderer's trash. Sets geometryChanged.
    void SetGeometries(std::vector<std::shared_ptr<GeometryInterface>> geometries,
                       std::vector<std::string> const& materialNames = {});

    /// The value written to the aim buffer when a ray hits this object.
    void SetAimID(unsigned int id) { aimID = id; }
    /// Emission of every geometry of material; false without records or such a material.
    bool SetEmission(std::string const& material, glm::vec3 const& emission);
    /// Colour and its mix of every geometry of material; false as SetEmission.
    bool SetColor(std::string const& material, glm::vec4 const& color, float mix);
    /// Metalness, roughness and the third value; false as SetEmission.
    bool SetPbrMetallicRoughness(std::string const& material, float metallic, float roughness, float third);
    /// Shows texture (a screen) with emission on material; false as SetEmission.
    bool SetMonitorTexture(std::string const& material, unsigned int texture, glm::vec3 const& emission);

    uint64_t sharedObjectsIndex = 0;              ///< Its slot in _sharedObjects.
    uint32_t hitShader = 0;                       ///< Hit group from GameRenderer::AddRenderableHitShader.
    uint8_t rayMask = 0;                          ///< Ray-tracing instance mask: 2 entity meshes, 4 plasma.
    glm::dmat4 transform{1.0};                    ///< Object to world.
    bool transformChanged = false;                ///< The transform changed since the last frame.
    bool reservedFlag0 = false;                   ///< Zero.
    bool visible = true;                          ///< Drawn at all.
    bool geometryChanged = false;                 ///< The geometries were replaced.
    bool reservedFlag1 = false;                   ///< Zero.
    bool reservedFlag2 = false;                   ///< Zero.
    uint64_t blas = 0;                            ///< Room for the world view's acceleration structure handle.
    GeometryInterface* primaryGeometry = nullptr; ///< The first geometry.
    std::shared_ptr<nerox::vk::MappedBuffer<RenderableData>> renderableData; ///< One record per geometry.
    std::unordered_map<std::string, std::vector<uint32_t>> materials;        ///< Material name to geometry indices.
    std::vector<std::shared_ptr<GeometryInterface>> geometries;              ///< What the instance is made of.
    std::shared_ptr<void> owner;                                             ///< Keeps a helper object alive.
    uint32_t aimID = 0;                                                      ///< Written to the aim buffer on a hit.
    uint64_t renderableDataAddress = 0;                                      ///< Device address of renderableData.
    bool enabled = true;                                                     ///< Takes part in the scene.
    bool firstUpdate = false; ///< Forces one transform update (set in copies).

    /// The live instances by slot; expired slots are free and are reused.
    inline static std::vector<std::weak_ptr<RenderableInstance>> _sharedObjects;
    /// Guards _sharedObjects.
    inline static nerox::SharedMutex _sharedObjectsMutex;

private:
    /// Calls write with each record of material; false as SetEmission.
    template <class Write> bool ForMaterial(std::string const& material, Write const& write);
};

/// Boxes, for procedural objects (plasma, voxels): one AabbData each.
class AabbGeometry : public GeometryInterface {
public:
    /// count boxes, all zero.
    explicit AabbGeometry(unsigned int count);
    /// A copy of count boxes from data; count must be above 0.
    AabbGeometry(AabbData* data, unsigned long count);

    uint64_t GetPrimitiveCount() const override { return buffer ? buffer->Count() : 0; }
    uint64_t GetPrimitiveStride() const override { return sizeof(AabbData); }
    uint64_t GetIndexCount() const override { return 0; }
    uint64_t GetPrimitivesAddr() const override { return buffer ? static_cast<uint64_t>(*buffer) : 0; }
    uint64_t GetIndicesAddr() const override { return 0; }

    std::shared_ptr<nerox::vk::MappedBuffer<AabbData>> buffer; ///< The boxes.
};

/// Triangles made in code: positions (three floats each) and optional indices,
/// 16-bit whenever they can address every vertex.
class TriangleGeometry : public GeometryInterface {
public:
    /// One position.
    struct Vertex {
        float x, y, z;
    };

    /// Room for vertices positions and indices indices (none: indexMode 1).
    TriangleGeometry(unsigned int vertices, unsigned int indices);

    uint64_t GetPrimitiveCount() const override { return vertexBuffer ? vertexBuffer->Count() : 0; }
    uint64_t GetPrimitiveStride() const override { return sizeof(Vertex); }
    uint64_t GetIndexCount() const override;
    uint64_t GetPrimitivesAddr() const override { return vertexBuffer ? static_cast<uint64_t>(*vertexBuffer) : 0; }
    uint64_t GetIndicesAddr() const override;

    std::shared_ptr<nerox::vk::MappedBuffer<Vertex>> vertexBuffer;    ///< "TriangleGeometry vertices".
    std::shared_ptr<nerox::vk::MappedBuffer<uint32_t>> indexBuffer32; ///< "TriangleGeometry indices32".
    std::shared_ptr<nerox::vk::MappedBuffer<uint16_t>> indexBuffer16; ///< "TriangleGeometry indices16".
};

template <class T, class... Args> std::shared_ptr<T> RenderableInstance::Make(Args&&... args) {
    std::shared_ptr<T> object = std::make_shared<T>(std::forward<Args>(args)...);
    EnterInTable(_sharedObjects, _sharedObjectsMutex, object);
    return object;
}

} // namespace game::graphics
