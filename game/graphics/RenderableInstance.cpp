#include "game/graphics/RenderableInstance.hpp"

#include <cstring>

#include "game/Game.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "nerox/Assert.hpp"

namespace game::graphics {

namespace {

nerox::vk::Device& RendererDevice() {
    NEROX_ASSERT(Game::renderer);
    return Game::renderer->GetDevice();
}

} // namespace

// ---------------------------------------------------------------- instances

RenderableInstance::RenderableInstance(std::shared_ptr<RenderableInstance> source, glm::dmat4 const& transform)
    : hitShader(source->hitShader), rayMask(source->rayMask), transform(transform),
      transformChanged(source->transformChanged), visible(source->visible), geometries(source->geometries),
      enabled(true), firstUpdate(true) {
    primaryGeometry = source->primaryGeometry != nullptr ? source->primaryGeometry
        : geometries.empty()                             ? nullptr
                                                         : geometries.front().get();
}

void RenderableInstance::SetGeometries(std::vector<std::shared_ptr<GeometryInterface>> replacement,
                                       std::vector<std::string> const& materialNames) {
    // A frame in flight may still read the old geometries and records.
    if (Game::renderer != nullptr) {
        for (std::shared_ptr<GeometryInterface>& old : geometries) Game::renderer->Trash(std::move(old));
        if (renderableData) Game::renderer->Trash(std::move(renderableData));
    }
    geometries = std::move(replacement);
    renderableData.reset();
    renderableDataAddress = 0;
    materials.clear();
    primaryGeometry = geometries.empty() ? nullptr : geometries.front().get();
    geometryChanged = true;
    if (geometries.empty()) return;
    renderableData = std::make_shared<nerox::vk::MappedBuffer<RenderableData>>(
        RendererDevice(), geometries.size(), VK_BUFFER_USAGE_STORAGE_BUFFER_BIT, "RenderableData", 16);
    renderableDataAddress = static_cast<uint64_t>(*renderableData);
    for (size_t i = 0; i < geometries.size(); ++i) {
        GeometryInterface const& geometry = *geometries[i];
        RenderableData& record = (*renderableData)[i];
        record = RenderableData{};
        record.color = geometry.baseColor;
        record.emission = geometry.emission;
        record.metallic = geometry.metallic;
        record.roughness = geometry.roughness;
        if (i < materialNames.size() && !materialNames[i].empty())
            materials[materialNames[i]].push_back(static_cast<uint32_t>(i));
    }
}

template <class Write> bool RenderableInstance::ForMaterial(std::string const& material, Write const& write) {
    if (!renderableData) return false;
    auto const found = materials.find(material);
    if (found == materials.end()) return false;
    for (uint32_t index : found->second) write((*renderableData)[index]);
    return true;
}

bool RenderableInstance::SetEmission(std::string const& material, glm::vec3 const& emission) {
    return ForMaterial(material, [&](RenderableData& record) { record.emission = emission; });
}

bool RenderableInstance::SetColor(std::string const& material, glm::vec4 const& color, float mix) {
    return ForMaterial(material, [&](RenderableData& record) { record.color = color, record.colorMix = mix; });
}

bool RenderableInstance::SetPbrMetallicRoughness(std::string const& material, float metallic, float roughness,
                                                 float third) {
    return ForMaterial(material, [&](RenderableData& record) {
        record.metallic = metallic, record.roughness = roughness, record.pbrThird = third;
    });
}

bool RenderableInstance::SetMonitorTexture(std::string const& material, unsigned int texture,
                                           glm::vec3 const& emission) {
    return ForMaterial(material,
                       [&](RenderableData& record) { record.emission = emission, record.monitorIndex = texture; });
}

// ---------------------------------------------------------------- geometries

AabbGeometry::AabbGeometry(unsigned int count) {
    buffer = std::make_shared<nerox::vk::MappedBuffer<AabbData>>(
        RendererDevice(), count, GeometryBufferUsage(RendererDevice()), "AabbGeometry AabbData", 8);
    std::memset(static_cast<void*>(buffer->Data()), 0, count * sizeof(AabbData));
}

AabbGeometry::AabbGeometry(AabbData* data, unsigned long count) {
    unsigned long const voxelCount = count;
    NEROX_ASSERT(voxelCount > 0);
    buffer = std::make_shared<nerox::vk::MappedBuffer<AabbData>>(
        RendererDevice(), count, GeometryBufferUsage(RendererDevice()), "AabbGeometry AabbData", 8);
    std::memcpy(static_cast<void*>(buffer->Data()), data, count * sizeof(AabbData));
}

TriangleGeometry::TriangleGeometry(unsigned int vertices, unsigned int indices) {
    indexMode = indices == 0 ? 1 : vertices >= 1 && vertices <= 65536 ? 2 : 3;
    nerox::vk::Device& device = RendererDevice();
    if (vertices > 0)
        vertexBuffer = std::make_shared<nerox::vk::MappedBuffer<Vertex>>(device, vertices, GeometryBufferUsage(device),
                                                                         "TriangleGeometry vertices", 4);
    if (indexMode == 2)
        indexBuffer16 = std::make_shared<nerox::vk::MappedBuffer<uint16_t>>(
            device, indices, GeometryBufferUsage(device), "TriangleGeometry indices16", 4);
    if (indexMode == 3)
        indexBuffer32 = std::make_shared<nerox::vk::MappedBuffer<uint32_t>>(
            device, indices, GeometryBufferUsage(device), "TriangleGeometry indices32", 4);
}

uint64_t TriangleGeometry::GetIndexCount() const {
    if (indexMode == 2) return indexBuffer16 ? indexBuffer16->Count() : 0;
    if (indexMode == 3) return indexBuffer32 ? indexBuffer32->Count() : 0;
    return 0;
}

uint64_t TriangleGeometry::GetIndicesAddr() const {
    if (indexMode == 2 && indexBuffer16) return static_cast<uint64_t>(*indexBuffer16);
    if (indexMode == 3 && indexBuffer32) return static_cast<uint64_t>(*indexBuffer32);
    return 0;
}

} // namespace game::graphics
