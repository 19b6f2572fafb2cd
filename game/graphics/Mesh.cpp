#include "game/graphics/Mesh.hpp"

#include <filesystem>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "game/Game.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "game/graphics/RenderableInstance.hpp"
#include "nerox/Assert.hpp"
#include "nerox/graphics/TextureRef.hpp"

namespace game::graphics {

namespace {

using json = nlohmann::json;
using Buffer = nerox::vk::MappedBuffer<char>;

// glTF's component types.
constexpr int GL_UNSIGNED_BYTE = 5121;
constexpr int GL_UNSIGNED_SHORT = 5123;
constexpr int GL_UNSIGNED_INT = 5125;
constexpr int GL_FLOAT = 5126;

/// What one Load works with: the file's JSON, its folder and its buffers by glTF index.
struct Reading {
    json const& root;
    std::string const& path;
    std::string folder;
    std::vector<std::shared_ptr<Buffer>> buffers;

    /// Device address of an accessor's first element in buffer bufferIndex,
    /// after checking that its count elements of stride bytes lie inside it:
    /// shaders read them, and must not read past the buffer.
    uint64_t Address(json const& accessor, json const& view, size_t bufferIndex, uint64_t stride) const {
        Buffer const& buffer = *buffers.at(bufferIndex);
        // Interleaved views are not read: each attribute lies tightly packed in its view.
        uint64_t const viewStride = view.value("byteStride", uint64_t{0});
        if (viewStride != 0 && viewStride != stride)
            throw std::runtime_error(path + ": a buffer view with a stride of " + std::to_string(viewStride) +
                                     " bytes, where " + std::to_string(stride) + " are read");
        uint64_t const viewOffset = view.at("byteOffset").get<uint64_t>();
        uint64_t const accessorOffset = accessor.value("byteOffset", uint64_t{0});
        uint64_t const offset = viewOffset + accessorOffset;
        uint64_t const count = accessor.at("count").get<uint64_t>();
        if (offset < viewOffset || offset > buffer.Size() || count > (buffer.Size() - offset) / stride)
            throw std::runtime_error(path + ": an accessor of " + std::to_string(count) + " elements at byte " +
                                     std::to_string(offset) + " reaches past the end of buffer " +
                                     std::to_string(bufferIndex) + " (" + std::to_string(buffer.Size()) + " bytes)");
        return static_cast<uint64_t>(buffer) + offset;
    }
};

void ReadBuffers(Reading& reading) {
    nerox::vk::Device& device = Game::renderer->GetDevice();
    for (json const& entry : reading.root.at("buffers")) {
        uint64_t const byteLength = entry.at("byteLength").get<uint64_t>();
        std::string const uri = entry.at("uri").get<std::string>();
        if (byteLength == 0) throw std::runtime_error(reading.path + ": buffer '" + uri + "' is empty");
        auto buffer = std::make_shared<Buffer>(device, byteLength, GeometryBufferUsage(device), uri, 1);
        // A file that cannot be opened, or is short, leaves the rest of the buffer zero.
        std::memset(buffer->Data(), 0, byteLength);
        std::ifstream file(std::filesystem::path(reading.folder) / uri, std::ios::binary);
        if (file) file.read(buffer->Data(), static_cast<std::streamsize>(byteLength));
        reading.buffers.push_back(std::move(buffer));
    }
}

void ReadMaterial(Reading const& reading, json const& primitive, MeshGeometry& geometry) {
    if (!primitive.contains("material")) NEROX_ASSERT(!"Material not found");
    json const& material = reading.root.at("materials").at(primitive.at("material").get<size_t>());
    geometry.material = material.at("name").get<std::string>();
    geometry.baseColor = glm::vec4(1.0f);
    geometry.metallic = geometry.roughness = 1.0f;
    if (material.contains("pbrMetallicRoughness")) {
        json const& pbr = material.at("pbrMetallicRoughness");
        if (pbr.contains("baseColorFactor")) {
            json const& factor = pbr.at("baseColorFactor");
            geometry.baseColor = glm::vec4(factor.at(0).get<float>(), factor.at(1).get<float>(),
                                           factor.at(2).get<float>(), factor.at(3).get<float>());
        } else if (pbr.contains("baseColorTexture")) {
            if (geometry.material == "screen") {
                // The marker of a surface that shows a pixel screen, bound at run time.
                geometry.baseColor = glm::vec4(0.0f, 0.0f, 0.0f, 1.0f);
            } else {
                json const& texture =
                    reading.root.at("textures").at(pbr.at("baseColorTexture").at("index").get<size_t>());
                json const& image = reading.root.at("images").at(texture.at("source").get<size_t>());
                std::string const file =
                    (std::filesystem::path(reading.folder) / image.at("uri").get<std::string>()).string();
                geometry.textureIndex = Game::renderer->AddTexture(nerox::graphics::TextureRef(file), VK_NULL_HANDLE);
            }
        }
        geometry.metallic = pbr.value("metallicFactor", 1.0f);
        geometry.roughness = pbr.value("roughnessFactor", 1.0f);
    }
    if (material.contains("emissiveFactor")) {
        json const& factor = material.at("emissiveFactor");
        geometry.emission = glm::vec3(factor.at(0).get<float>(), factor.at(1).get<float>(), factor.at(2).get<float>());
    }
}

std::shared_ptr<MeshGeometry> ReadPrimitive(Reading const& reading, json const& primitive) {
    json const& root = reading.root;
    auto geometry = std::make_shared<MeshGeometry>();
    geometry->indexMode = 1;
    json const& attributes = primitive.at("attributes");

    json const& positionAccessor = root.at("accessors").at(attributes.at("POSITION").get<size_t>());
    json const& positionView = root.at("bufferViews").at(positionAccessor.at("bufferView").get<size_t>());
    size_t const bufferIndex = positionView.at("buffer").get<size_t>();
    geometry->buffer = reading.buffers.at(bufferIndex);
    NEROX_ASSERT(positionAccessor.at("type") == "VEC3");
    NEROX_ASSERT(positionAccessor.at("componentType") == GL_FLOAT);
    NEROX_ASSERT(!positionAccessor.contains("byteStride") || positionAccessor.at("byteStride") == 0 ||
                 positionAccessor.at("byteStride") == sizeof(float) * 3);
    geometry->primitivesAddr = reading.Address(positionAccessor, positionView, bufferIndex, 12);
    geometry->primitiveStride = 12;
    geometry->primitiveCount = positionAccessor.at("count").get<uint64_t>();

    if (primitive.contains("indices")) {
        json const& indicesAccessor = root.at("accessors").at(primitive.at("indices").get<size_t>());
        json const& indicesBufferView = root.at("bufferViews").at(indicesAccessor.at("bufferView").get<size_t>());
        NEROX_ASSERT(indicesBufferView.at("buffer") == bufferIndex);
        NEROX_ASSERT(indicesAccessor.at("type") == "SCALAR");
        int const componentType = indicesAccessor.at("componentType").get<int>();
        if (componentType == GL_UNSIGNED_SHORT) {
            geometry->indexMode = 2;
            geometry->indexStride = 2;
            NEROX_ASSERT(!indicesAccessor.contains("byteStride") || indicesAccessor.at("byteStride") == 0 ||
                         indicesAccessor.at("byteStride") == sizeof(uint16_t));
        } else if (componentType == GL_UNSIGNED_INT) {
            geometry->indexMode = 3;
            geometry->indexStride = 4;
            NEROX_ASSERT(!indicesAccessor.contains("byteStride") || indicesAccessor.at("byteStride") == 0 ||
                         indicesAccessor.at("byteStride") == sizeof(uint32_t));
        } else {
            NEROX_ASSERT(!"Index ComponentType not supported");
        }
        geometry->indicesAddr = reading.Address(indicesAccessor, indicesBufferView, bufferIndex, geometry->indexStride);
        geometry->indexCount = indicesAccessor.at("count").get<uint64_t>();
        // Shaders fetch vertices by these indices: each must name a vertex.
        char const* const bytes =
            geometry->buffer->Data() + (geometry->indicesAddr - static_cast<uint64_t>(*geometry->buffer));
        for (uint64_t i = 0; i < geometry->indexCount; ++i) {
            uint32_t index = 0;
            if (geometry->indexStride == 2) {
                uint16_t small = 0;
                std::memcpy(&small, bytes + i * 2, 2);
                index = small;
            } else {
                std::memcpy(&index, bytes + i * 4, 4);
            }
            if (index >= geometry->primitiveCount)
                throw std::runtime_error(reading.path + ": index " + std::to_string(index) + " names no vertex (" +
                                         std::to_string(geometry->primitiveCount) + " positions)");
        }
    }

    // The optional attributes: in the positions' buffer, each of its own type.
    auto attribute = [&](char const* name, auto&& check) -> uint64_t {
        if (!attributes.contains(name)) return 0;
        json const& accessor = root.at("accessors").at(attributes.at(name).get<size_t>());
        json const& bufferView = root.at("bufferViews").at(accessor.at("bufferView").get<size_t>());
        NEROX_ASSERT(bufferView.at("buffer") == bufferIndex);
        uint64_t const stride = check(accessor);
        // Shaders read one element per vertex.
        uint64_t const count = accessor.at("count").get<uint64_t>();
        if (count != geometry->primitiveCount)
            throw std::runtime_error(reading.path + ": " + name + " has " + std::to_string(count) + " elements for " +
                                     std::to_string(geometry->primitiveCount) + " positions");
        return reading.Address(accessor, bufferView, bufferIndex, stride);
    };
    geometry->normalAddr = attribute("NORMAL", [](json const& accessor) -> uint64_t {
        NEROX_ASSERT(accessor.at("type") == "VEC3");
        NEROX_ASSERT(accessor.at("componentType") == GL_FLOAT);
        NEROX_ASSERT(!accessor.contains("byteStride") || accessor.at("byteStride") == 0 ||
                     accessor.at("byteStride") == sizeof(float) * 3);
        return 12;
    });
    bool bytes = false;
    uint64_t const color = attribute("COLOR_0", [&bytes](json const& accessor) -> uint64_t {
        NEROX_ASSERT(accessor.at("type") == "VEC4");
        int const componentType = accessor.at("componentType").get<int>();
        if (componentType == GL_UNSIGNED_BYTE) {
            NEROX_ASSERT(!accessor.contains("byteStride") || accessor.at("byteStride") == 0 ||
                         accessor.at("byteStride") == sizeof(uint8_t) * 4);
            bytes = true;
            return 4;
        }
        if (componentType == GL_FLOAT) {
            NEROX_ASSERT(!accessor.contains("byteStride") || accessor.at("byteStride") == 0 ||
                         accessor.at("byteStride") == sizeof(float) * 4);
            return 16;
        }
        NEROX_ASSERT(!"Color ComponentType not supported");
        return 0;
    });
    (bytes ? geometry->colorU8Addr : geometry->colorF32Addr) = color;
    auto const texCoord = [](json const& accessor) -> uint64_t {
        NEROX_ASSERT(accessor.at("type") == "VEC2");
        NEROX_ASSERT(accessor.at("componentType") == GL_FLOAT);
        NEROX_ASSERT(!accessor.contains("byteStride") || accessor.at("byteStride") == 0 ||
                     accessor.at("byteStride") == sizeof(float) * 2);
        return 8;
    };
    geometry->texCoord0Addr = attribute("TEXCOORD_0", texCoord);
    geometry->texCoord1Addr = attribute("TEXCOORD_1", texCoord);

    ReadMaterial(reading, primitive, *geometry);
    return geometry;
}

/// Throws error again as the same kind of nlohmann json error, with the file named.
[[noreturn]] void RethrowNamingFile(json::exception const& error, std::string const& path) {
    std::string const text = path + ": " + error.what();
    if (auto const* parse = dynamic_cast<json::parse_error const*>(&error))
        throw json::parse_error::create(parse->id, parse->byte, text, nullptr);
    if (dynamic_cast<json::type_error const*>(&error)) throw json::type_error::create(error.id, text, nullptr);
    if (dynamic_cast<json::out_of_range const*>(&error)) throw json::out_of_range::create(error.id, text, nullptr);
    if (dynamic_cast<json::invalid_iterator const*>(&error))
        throw json::invalid_iterator::create(error.id, text, nullptr);
    throw json::other_error::create(error.id, text, nullptr);
}

} // namespace

Mesh::Mesh(std::string const& path) {
    Load(path);
}

void Mesh::Load(std::string const& file) {
    NEROX_ASSERT(Game::renderer);
    path = file;
    try {
        std::ifstream file(path, std::ios::binary);
        if (!file) throw std::runtime_error("Mesh: cannot open '" + path + "'");
        json const root = json::parse(file);
        Reading reading{root, path, std::filesystem::path(path).parent_path().string(), {}};
        ReadBuffers(reading);
        for (json const& node : root.at("nodes")) {
            if (!node.contains("mesh")) continue;
            std::vector<std::shared_ptr<MeshGeometry>>& geometries = (*this)[node.at("name").get<std::string>()];
            // A frame in flight may still read the old geometries.
            for (std::shared_ptr<MeshGeometry>& old : geometries) Game::renderer->Trash(std::move(old));
            geometries.clear();
            json const& mesh = root.at("meshes").at(node.at("mesh").get<size_t>());
            for (json const& primitive : mesh.at("primitives")) geometries.push_back(ReadPrimitive(reading, primitive));
        }
    } catch (json::exception const& error) {
        RethrowNamingFile(error, path);
    }
}

std::shared_ptr<RenderableInstance> Mesh::MakeInstance(std::string const& node) const {
    auto const found = find(node);
    if (found == end()) throw std::runtime_error(path + " has no mesh node '" + node + "'");
    std::vector<std::shared_ptr<GeometryInterface>> geometries(found->second.begin(), found->second.end());
    std::vector<std::string> materials;
    materials.reserve(found->second.size());
    for (auto const& geometry : found->second) materials.push_back(geometry->material);
    auto instance = RenderableInstance::Make<RenderableInstance>();
    instance->SetGeometries(std::move(geometries), materials);
    return instance;
}

} // namespace game::graphics
