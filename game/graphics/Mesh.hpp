#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "game/graphics/GeometryInterface.hpp"
#include "nerox/vk/Buffer.hpp"

namespace game::graphics {

class RenderableInstance;

/// One primitive of a mesh: its attributes at device addresses inside the
/// buffer that holds the glTF binary it came from, and its material.
class MeshGeometry : public GeometryInterface {
public:
    uint64_t GetPrimitiveCount() const override { return primitiveCount; }
    uint64_t GetPrimitiveStride() const override { return primitiveStride; }
    uint64_t GetIndexCount() const override { return indexCount; }
    uint64_t GetPrimitivesAddr() const override { return primitivesAddr; }
    uint64_t GetIndicesAddr() const override { return indicesAddr; }
    uint64_t GetIndexStride() const override { return indexStride; }

    std::shared_ptr<nerox::vk::MappedBuffer<char>> buffer; ///< The glTF buffer that holds this primitive.
    uint64_t primitivesAddr = 0;                           ///< Device address of POSITION.
    uint64_t primitiveStride = 0;                          ///< 12: three floats.
    uint64_t primitiveCount = 0;                           ///< Vertices.
    uint64_t indicesAddr = 0;                              ///< Device address of the indices; 0 without.
    uint64_t indexStride = 0;                              ///< 2 or 4; 0 without indices.
    uint64_t indexCount = 0;                               ///< Indices; 0 without.
    std::string material;                                  ///< Name of the glTF material.
};

/// The geometries of a glTF 2.0 file (its JSON form, with external binary
/// buffers), one per primitive, by the name of the node that holds the mesh.
/// Each binary buffer is read straight into one mapped GPU buffer; vertices
/// never pass through the CPU otherwise.
///
/// Reads the subset the game's exporter writes: positions as floats, 16- or
/// 32-bit indices in the same buffer as the positions, optional normals,
/// colours and two sets of texture coordinates, and a material on every
/// primitive (base colour, emission, metalness, roughness, a base colour
/// texture). Anything else of the subset aborts with the failed condition;
/// JSON errors (parse errors, missing keys, wrong types) are nlohmann json's
/// exceptions. Needs Game::renderer.
class Mesh : public std::unordered_map<std::string, std::vector<std::shared_ptr<MeshGeometry>>> {
public:
    /// A primitive of the mesh.
    using Geometry = MeshGeometry;

    /// Reads the file at path (see Load).
    explicit Mesh(std::string const& path);

    /// Reads the file at path. May be called again to reload: each node of the
    /// file gets new geometries (the old ones go to GameRenderer::Trash, since a
    /// frame in flight may read them); names no longer in the file keep theirs.
    void Load(std::string const& path);

    /// A new renderable instance (entered in the scene table) of the geometries
    /// of node, with their material names and one material record each. Throws
    /// std::runtime_error "FILE has no mesh node 'NODE'" when there is no such node.
    std::shared_ptr<RenderableInstance> MakeInstance(std::string const& node) const;

    std::string path; ///< The file last loaded.
};

} // namespace game::graphics
