#include "WorldView.hpp"

#include "game/graphics/GameRenderer.hpp"
#include "game/graphics/LightSourceInstance.hpp"
#include "game/graphics/PlasmaTrail.hpp"
#include "game/graphics/RenderableInstance.hpp"
#include "nerox/ScopeGuard.hpp"
#include "nerox/graphics/ComputeTexture.hpp"
#include "nerox/graphics/ImageTexture.hpp"
#include "nerox/vk/Buffer.hpp"
#include "nerox/vk/Check.hpp"
#include "nerox/vk/Image.hpp"
#include "nerox/vk/Pipeline.hpp"

#include <glm/gtc/matrix_inverse.hpp>

#include <cmath>
#include <cstring>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>

namespace view {

using game::graphics::GameRenderer;
using game::graphics::GeometryInterface;
using game::graphics::LightSourceInstance;
using game::graphics::RenderableData;
using game::graphics::RenderableInstance;

namespace {

constexpr VkFormat DepthFormat = VK_FORMAT_D32_SFLOAT;
/// The aim target: the aim id, the monitor's texture index (0 on anything
/// else) and its texture coordinates as two 16-bit fractions; the fourth word is 0.
constexpr VkFormat AimFormat = VK_FORMAT_R32G32B32A32_UINT;
/// Bytes of one frame slot's aim copy: the four words, then the depth, then room.
constexpr VkDeviceSize AimWords = 32;
static_assert(nerox::graphics::VulkanRenderer::FramesInFlight <= 4);
constexpr VkShaderStageFlags DrawStages = VK_SHADER_STAGE_VERTEX_BIT | VK_SHADER_STAGE_FRAGMENT_BIT;
constexpr float Pi = 3.14159265f;
/// Ray mask bit of plasma trails.
constexpr uint8_t PlasmaMask = 4;

/// count descriptor sets of layout from pool into sets.
void AllocateSets(VkDevice device, VkDescriptorPool pool, VkDescriptorSetLayout layout, uint32_t count,
                  VkDescriptorSet* sets) {
    std::vector<VkDescriptorSetLayout> const layouts(count, layout);
    VkDescriptorSetAllocateInfo allocate{VK_STRUCTURE_TYPE_DESCRIPTOR_SET_ALLOCATE_INFO};
    allocate.descriptorPool = pool;
    allocate.descriptorSetCount = count;
    allocate.pSetLayouts = layouts.data();
    NEROX_VK_CHECK(vkAllocateDescriptorSets(device, &allocate, sets));
}
/// Side of a noise field's work groups (plasma_noise.comp).
constexpr uint32_t NoiseGroup = 8;
/// The noise streams with a period of this many seconds.
constexpr double NoisePeriod = 10.0;

/// The push constants of the noise pass.
struct NoiseConstants {
    float time = 0.0f;
    uint32_t seed = 0;
};

// Vertices drawn for a geometry: indices, vertices, or 36 for each box.
uint32_t VertexCountOf(GeometryInterface const& geometry) {
    uint64_t count = 0;
    switch (geometry.indexMode) {
    case 0: count = geometry.GetPrimitiveCount() * 36; break;
    case 1: count = geometry.GetPrimitiveCount(); break;
    case 2:
    case 3: count = geometry.GetIndicesAddr() != 0 ? geometry.GetIndexCount() : 0; break;
    default: count = 0; // not a mode this path knows
    }
    if (geometry.GetPrimitivesAddr() == 0) count = 0;
    count -= count % 3; // whole triangles only
    return count > UINT32_MAX ? 0 : static_cast<uint32_t>(count);
}

uint32_t FlagsOf(GeometryInterface const& geometry) {
    uint32_t flags = geometry.indexMode & 3u;
    if (geometry.indexMode == 0) return flags; // boxes carry no attributes
    if (geometry.normalAddr != 0) flags |= HasNormals;
    if (geometry.colorU8Addr != 0)
        flags |= ColorsU8;
    else if (geometry.colorF32Addr != 0)
        flags |= ColorsF32;
    if (geometry.texCoord0Addr != 0) flags |= HasTexCoords;
    if (geometry.texCoord0Addr != 0 && geometry.textureIndex != 0) flags |= geometry.textureIndex << TextureShift;
    return flags;
}

void Barrier(VkCommandBuffer commandBuffer, VkPipelineStageFlags from, VkAccessFlags fromAccess,
             VkPipelineStageFlags to, VkAccessFlags toAccess) {
    VkMemoryBarrier barrier{VK_STRUCTURE_TYPE_MEMORY_BARRIER};
    barrier.srcAccessMask = fromAccess;
    barrier.dstAccessMask = toAccess;
    vkCmdPipelineBarrier(commandBuffer, from, to, 0, 1, &barrier, 0, nullptr, 0, nullptr);
}

} // namespace

std::string WorldView::MissingFeatures(GameRenderer const& renderer) {
    auto const& enabled = renderer.GetDevice().EnabledFeatures();
    std::string missing;
    auto need = [&missing](VkBool32 have, char const* name) {
        if (have) return;
        missing += missing.empty() ? "" : ", ";
        missing += name;
    };
    need(enabled.core.shaderInt64, "shaderInt64");
    need(enabled.vulkan12.bufferDeviceAddress, "bufferDeviceAddress");
    need(enabled.vulkan12.scalarBlockLayout, "scalarBlockLayout");
    need(enabled.vulkan13.dynamicRendering, "dynamicRendering");
    need(enabled.storage16Bit.storageBuffer16BitAccess, "storageBuffer16BitAccess");
    return missing;
}

bool WorldView::CanSampleTextures(GameRenderer const& renderer) {
    auto const& enabled = renderer.GetDevice().EnabledFeatures();
    return enabled.vulkan12.runtimeDescriptorArray && enabled.vulkan12.shaderSampledImageArrayNonUniformIndexing &&
        enabled.vulkan12.descriptorBindingPartiallyBound;
}

WorldView::WorldView(GameRenderer& renderer) : _renderer(renderer), _textured(CanSampleTextures(renderer)) {
    std::string const missing = MissingFeatures(renderer);
    if (!missing.empty()) throw std::runtime_error("the device lacks " + missing);
    nerox::vk::Device& device = renderer.GetDevice();
    nerox::OnFailure undo([this] {
        DestroyScreenSets();
        DestroyNoisePass();
        DestroyFrameBlocks();
    });
    CreateFrameBlocks();
    CreateNoisePass();
    CreateScreenSets();
    // Set 0 is the texture table (only the textured shaders read it), set 1 the frame block.
    _layout = std::make_unique<nerox::vk::PipelineLayout>(
        device,
        std::vector<VkDescriptorSetLayout>{_textured ? renderer.MainDescriptorSetLayout() : _screenSetLayout,
                                           _frameSetLayout},
        std::vector<VkPushConstantRange>{{DrawStages, 0, sizeof(DrawConstants)}}, "World view");
    _fallbackMaterial = std::make_unique<nerox::vk::MappedBuffer<RenderableData, 8, 1024>>(
        device, 1, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT, "World view default material", 16);
    (*_fallbackMaterial)[0] = RenderableData{};
    _aimReadback = std::make_unique<nerox::vk::Buffer>(
        device, AimWords * nerox::graphics::VulkanRenderer::FramesInFlight, VK_BUFFER_USAGE_TRANSFER_DST_BIT,
        nerox::vk::MemoryUsage::GpuToCpu, nerox::vk::AllocationMapped | nerox::vk::AllocationHostAccessRandom,
        "World view aim", 4);
    FollowOutput();
}

WorldView::~WorldView() {
    // Frames in flight may still read the buffers and draw with the pipelines.
    _renderer.GetDevice().WaitIdle();
    DestroyScreenSets();
    DestroyNoisePass();
    DestroyFrameBlocks();
}

void WorldView::CreateNoisePass() {
    nerox::vk::Device& device = _renderer.GetDevice();
    VkDescriptorSetLayoutBinding const binding{0, VK_DESCRIPTOR_TYPE_STORAGE_IMAGE, 1, VK_SHADER_STAGE_COMPUTE_BIT,
                                               nullptr};
    VkDescriptorSetLayoutCreateInfo layout{VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_CREATE_INFO};
    layout.bindingCount = 1;
    layout.pBindings = &binding;
    NEROX_VK_CHECK(vkCreateDescriptorSetLayout(device, &layout, nullptr, &_noiseSetLayout));
    VkDescriptorPoolSize const size{VK_DESCRIPTOR_TYPE_STORAGE_IMAGE, MaxNoiseFields};
    VkDescriptorPoolCreateInfo pool{VK_STRUCTURE_TYPE_DESCRIPTOR_POOL_CREATE_INFO};
    pool.flags = VK_DESCRIPTOR_POOL_CREATE_FREE_DESCRIPTOR_SET_BIT; // a field's set goes with the field
    pool.maxSets = MaxNoiseFields;
    pool.poolSizeCount = 1;
    pool.pPoolSizes = &size;
    NEROX_VK_CHECK(vkCreateDescriptorPool(device, &pool, nullptr, &_noisePool));
    _noiseLayout = std::make_unique<nerox::vk::PipelineLayout>(
        device, std::vector<VkDescriptorSetLayout>{_noiseSetLayout},
        std::vector<VkPushConstantRange>{{VK_SHADER_STAGE_COMPUTE_BIT, 0, sizeof(NoiseConstants)}}, "Plasma noise");
    _noise =
        std::make_unique<nerox::vk::ComputePipeline>(device, *_noiseLayout, std::string(ShaderFolder) + "plasma_noise");
}

void WorldView::DestroyNoisePass() {
    VkDevice const device = _renderer.GetDevice();
    _noise.reset();
    _noiseLayout.reset();
    vkDestroyDescriptorPool(device, _noisePool, nullptr); // with its sets
    vkDestroyDescriptorSetLayout(device, _noiseSetLayout, nullptr);
    _noisePool = VK_NULL_HANDLE;
    _noiseSetLayout = VK_NULL_HANDLE;
    _noiseFields.clear();
}

void WorldView::CreateFrameBlocks() {
    nerox::vk::Device& device = _renderer.GetDevice();
    VkDeviceSize const alignment =
        std::max<VkDeviceSize>(device.Properties().limits.minUniformBufferOffsetAlignment, 16);
    VkDeviceSize const block = sizeof(FrameRecord) + sizeof(LightRecord) * MaxLights;
    _frameSlice = (block + alignment - 1) / alignment * alignment;
    _frameBlocks = std::make_unique<nerox::vk::Buffer>(
        device, _frameSlice * nerox::graphics::VulkanRenderer::FramesInFlight, VK_BUFFER_USAGE_UNIFORM_BUFFER_BIT,
        nerox::vk::MemoryUsage::CpuToGpu, nerox::vk::AllocationMapped | nerox::vk::AllocationHostAccessSequentialWrite,
        "World view frames", alignment);

    VkDescriptorSetLayoutBinding binding{0, VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER_DYNAMIC, 1, DrawStages, nullptr};
    VkDescriptorSetLayoutCreateInfo layout{VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_CREATE_INFO};
    layout.bindingCount = 1;
    layout.pBindings = &binding;
    NEROX_VK_CHECK(vkCreateDescriptorSetLayout(device, &layout, nullptr, &_frameSetLayout));
    VkDescriptorPoolSize size{VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER_DYNAMIC, 1};
    VkDescriptorPoolCreateInfo pool{VK_STRUCTURE_TYPE_DESCRIPTOR_POOL_CREATE_INFO};
    pool.maxSets = 1;
    pool.poolSizeCount = 1;
    pool.pPoolSizes = &size;
    NEROX_VK_CHECK(vkCreateDescriptorPool(device, &pool, nullptr, &_framePool));
    AllocateSets(device, _framePool, _frameSetLayout, 1, &_frameSet);
    VkDescriptorBufferInfo info{*_frameBlocks, 0, block};
    VkWriteDescriptorSet write{VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET};
    write.dstSet = _frameSet;
    write.descriptorCount = 1;
    write.descriptorType = VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER_DYNAMIC;
    write.pBufferInfo = &info;
    vkUpdateDescriptorSets(device, 1, &write, 0, nullptr);
}

void WorldView::DestroyFrameBlocks() {
    VkDevice const device = _renderer.GetDevice();
    vkDestroyDescriptorPool(device, _framePool, nullptr); // with its set
    vkDestroyDescriptorSetLayout(device, _frameSetLayout, nullptr);
    _framePool = VK_NULL_HANDLE;
    _frameSetLayout = VK_NULL_HANDLE;
    _frameSet = VK_NULL_HANDLE;
    _frameBlocks.reset();
}

void WorldView::FollowOutput() {
    VkFormat const format = _renderer.GetOutputImageFormat();
    VkExtent2D const extent = _renderer.GetOutputImageExtent();
    if (format == VK_FORMAT_UNDEFINED || extent.width == 0 || extent.height == 0) return;
    nerox::vk::Device& device = _renderer.GetDevice();
    if (format != _colorFormat) {
        nerox::vk::RenderingFormats const formats{format, DepthFormat, AimFormat};
        if (_scene) {
            device.WaitIdle(); // the old pipelines go at once
            _scene->RefreshViewport(formats);
            _sky->RefreshViewport(formats);
            if (_plasma) _plasma->RefreshViewport(formats);
        } else {
            nerox::vk::GraphicsPipelineOptions options;
            options.alphaBlending = false;
            options.depthTest = true;
            options.depthWrite = true;
            options.depthCompareOp = VK_COMPARE_OP_GREATER; // depth 1 at the near clip, 0 at infinity
            options.cullMode = VK_CULL_MODE_NONE;           // faces are lit from both sides
            std::string const scene = _textured ? "scene" : "scene_untextured";
            _scene = std::make_unique<nerox::vk::GraphicsPipeline>(device, *_layout, formats,
                                                                   std::string(ShaderFolder) + scene, options);
            options.depthWrite = false; // the sky, drawn last where the depth is still clear
            options.depthCompareOp = VK_COMPARE_OP_GREATER_OR_EQUAL;
            _sky = std::make_unique<nerox::vk::GraphicsPipeline>(device, *_layout, formats,
                                                                 std::string(ShaderFolder) + "sky", options);
            // Plasma adds its light over everything, hidden only by nearer
            // objects, and leaves the aim to what lies behind it: blending one
            // target and not the other needs independent blending.
            if (device.EnabledFeatures().core.independentBlend) {
                options.alphaBlending = true;
                options.dstColorBlendFactor = VK_BLEND_FACTOR_ONE;
                options.dstAlphaBlendFactor = VK_BLEND_FACTOR_ONE;
                options.depthCompareOp = VK_COMPARE_OP_GREATER;
                options.writeSecond = false;
                _plasma = std::make_unique<nerox::vk::GraphicsPipeline>(
                    device, *_layout, formats, std::string(ShaderFolder) + (_textured ? "plasma" : "plasma_untextured"),
                    options);
            }
        }
        _colorFormat = format;
    }
    if (extent.width != _extent.width || extent.height != _extent.height || !_depth) {
        // The old images may be in use by a frame in flight.
        if (_depth) _renderer.Trash(std::move(_depth));
        if (_aimIds) _renderer.Trash(std::move(_aimIds));
        nerox::vk::ImageOptions options;
        options.aspect = VK_IMAGE_ASPECT_DEPTH_BIT;
        _depth = std::make_shared<nerox::vk::Image>(
            device, extent.width, extent.height, DepthFormat,
            VK_IMAGE_USAGE_DEPTH_STENCIL_ATTACHMENT_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT, "World view depth", options);
        _aimIds = std::make_shared<nerox::vk::Image>(
            device, extent.width, extent.height, AimFormat,
            VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT, "World view aim ids");
        _extent = extent;
    }
}

void WorldView::FrameInit() {
    VkExtent2D const extent = _renderer.GetOutputImageExtent();
    float const aspect =
        extent.height > 0 ? static_cast<float>(extent.width) / static_cast<float>(extent.height) : 1.0f;
    float const fov = std::clamp(_renderer.fov, 1.0f, 179.0f);
    double const f = 1.0 / std::tan(glm::radians(static_cast<double>(fov)) * 0.5);
    double const nearClip = _renderer.nearClip > 0.0f ? _renderer.nearClip : 0.001;
    // Camera space looks along -z with y up; clip space has y down. Depth is
    // nearClip / distance: 1 at the near clip, falling towards 0 far away.
    glm::dmat4 projection(0.0);
    projection[0][0] = f / aspect;
    projection[1][1] = -f;
    projection[2][3] = -1.0;
    projection[3][2] = nearClip;
    _renderer.projectionMatrix = projection;
}

void WorldView::WriteFrame(uint32_t slot, glm::dmat4 const& view) {
    char* const block = static_cast<char*>(_frameBlocks->Map()) + _frameSlice * slot;
    FrameRecord& record = *reinterpret_cast<FrameRecord*>(block);
    record.projection = glm::mat4(_renderer.projectionMatrix);
    glm::dmat3 const rotation(view);
    record.cameraToWorld = glm::mat4(glm::mat3(glm::transpose(rotation)));
    glm::dvec3 const sun = _renderer.sunDirection;
    double const sunLength = glm::length(sun);
    record.sunDirection = sunLength > 0.0 ? glm::vec4(glm::vec3(rotation * (sun / sunLength)), 1.0f) : glm::vec4(0.0f);
    record.sunColor = glm::vec4(_renderer.sunColor, 0.0f);
    record.skyColor = glm::vec4(_renderer.skyColor, 0.0f);
    record.horizonColor = glm::vec4(_renderer.horizonColor, 0.0f);
    record.groundColor = glm::vec4(_renderer.groundColor, 0.0f);
    record.options = _renderer.renderOptions;

    LightRecord* lights = reinterpret_cast<LightRecord*>(block + sizeof(FrameRecord));
    uint32_t count = 0;
    uint32_t dropped = 0;
    {
        std::shared_lock lock(LightSourceInstance::_sharedObjectsMutex);
        for (auto const& slot : LightSourceInstance::_sharedObjects) {
            std::shared_ptr<LightSourceInstance> const light = slot.lock();
            if (!light || !light->active || !light->data || light->data->Count() == 0) continue;
            if (count == MaxLights) {
                ++dropped;
                continue;
            }
            auto const& data = (*light->data)[0];
            glm::dmat4 const toCamera = view * light->transform;
            LightRecord& out = lights[count++];
            out.position = glm::vec3(toCamera * glm::dvec4(glm::dvec3(light->position), 1.0));
            out.range = data.range;
            out.color = data.color;
            out.power = data.power;
            glm::dvec3 const axis = glm::dmat3(toCamera) * glm::dvec3(light->direction);
            double const axisLength = glm::length(axis);
            out.direction = axisLength > 0.0 ? glm::vec3(axis / axisLength) : glm::vec3(0.0f, 0.0f, -1.0f);
            out.spread = light->spread;
            out.radius = light->radius;
            out.cosCone = light->spread > 0.0f ? std::clamp(1.0f - light->spread / Pi, -1.0f, 1.0f) : -1.0f;
        }
    }
    record.lightCount = count;
    _stats.lights = count;
    _stats.droppedLights = dropped;
}

void WorldView::DrawInstances(VkCommandBuffer commandBuffer, glm::dmat4 const& view) {
    DrawConstants constants;
    uint64_t const fallbackMaterial = static_cast<uint64_t>(*_fallbackMaterial);
    _plasmaTrails.clear(); // also after a frame whose recording broke off
    std::shared_lock lock(RenderableInstance::_sharedObjectsMutex);
    for (auto const& slot : RenderableInstance::_sharedObjects) {
        std::shared_ptr<RenderableInstance> const instance = slot.lock();
        if (!instance || !instance->enabled || !instance->visible || instance->geometries.empty()) continue;
        if (instance->rayMask & PlasmaMask) {
            // Drawn after the scene and the sky; only trails know how.
            if (auto trail = std::dynamic_pointer_cast<game::graphics::PlasmaTrail>(instance))
                _plasmaTrails.push_back(std::move(trail));
            continue;
        }
        constants.modelView = glm::mat4(view * instance->transform);
        size_t const records = instance->renderableData ? instance->renderableData->Count() : 0;
        bool drawn = false;
        for (size_t i = 0; i < instance->geometries.size(); ++i) {
            GeometryInterface const* geometry = instance->geometries[i].get();
            if (geometry == nullptr) continue;
            uint32_t const vertices = VertexCountOf(*geometry);
            if (vertices == 0) continue;
            constants.positions = geometry->GetPrimitivesAddr();
            constants.indices = geometry->indexMode >= 2 ? geometry->GetIndicesAddr() : 0;
            constants.normals = geometry->normalAddr;
            constants.colors = geometry->colorU8Addr != 0 ? geometry->colorU8Addr : geometry->colorF32Addr;
            constants.texCoords = geometry->texCoord0Addr;
            constants.material = i < records && instance->renderableDataAddress != 0
                ? instance->renderableDataAddress + i * sizeof(RenderableData)
                : fallbackMaterial;
            constants.flags = FlagsOf(*geometry);
            constants.screen = !_textured && i < records ? ScreenSlot((*instance->renderableData)[i].monitorIndex) : 0;
            constants.aimID = instance->aimID;
            constants.vertexCount = geometry->indexMode == 0 ? 0 : static_cast<uint32_t>(geometry->GetPrimitiveCount());
            vkCmdPushConstants(commandBuffer, *_layout, DrawStages, 0, sizeof constants, &constants);
            vkCmdDraw(commandBuffer, vertices, 1, 0, 0);
            ++_stats.draws;
            drawn = true;
        }
        if (drawn) ++_stats.instances;
    }
}

void WorldView::TakeAim(uint32_t slot) {
    if (!_aimPending[slot]) return;
    _aimPending[slot] = false;
    uint32_t words[5];
    std::memcpy(words, static_cast<char const*>(_aimReadback->Map()) + AimWords * slot, sizeof words);
    float depth = 0.0f;
    std::memcpy(&depth, &words[4], sizeof depth);
    game::graphics::AimBuffer aim;
    // Depth is nearClip / distance; 0 (cleared) is the sky, where the id is 0 as well.
    if ((words[0] != 0 || words[1] != 0) && depth > 0.0f) {
        aim.aimID = words[0];
        if (words[1] != 0) { // a screen: which, and where on it
            aim.monitorID = words[1];
            aim.monitorX = static_cast<float>(words[2] & 0xFFFFu) / 65535.0f;
            aim.monitorY = static_cast<float>(words[2] >> 16) / 65535.0f;
        }
        double const distance = _aimNearClip[slot] / depth;
        aim.distance = static_cast<float>(distance);
        glm::dvec3 const hit = _aimCameraToWorld[slot] * glm::dvec3(0.0, 0.0, -distance); // along the view axis
        for (int i = 0; i < 3; ++i) aim.hitPosition[i] = static_cast<float>(hit[i]);
    }
    _renderer.TakeAim(aim);
}

void WorldView::CopyAim(VkCommandBuffer commandBuffer, uint32_t slot) {
    // The pixel under the crosshair, at the centre of the output.
    VkOffset3D const centre{static_cast<int32_t>(_extent.width / 2), static_cast<int32_t>(_extent.height / 2), 0};
    nerox::vk::Image::Transition(commandBuffer, *_aimIds, VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL,
                                 VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL);
    nerox::vk::Image::Transition(commandBuffer, *_depth, VK_IMAGE_LAYOUT_DEPTH_ATTACHMENT_OPTIMAL,
                                 VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL, VK_IMAGE_ASPECT_DEPTH_BIT);
    VkBufferImageCopy copy{};
    copy.bufferOffset = AimWords * slot;
    copy.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
    copy.imageOffset = centre;
    copy.imageExtent = {1, 1, 1};
    vkCmdCopyImageToBuffer(commandBuffer, *_aimIds, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL, *_aimReadback, 1, &copy);
    copy.bufferOffset += 16;
    copy.imageSubresource.aspectMask = VK_IMAGE_ASPECT_DEPTH_BIT;
    vkCmdCopyImageToBuffer(commandBuffer, *_depth, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL, *_aimReadback, 1, &copy);
    Barrier(commandBuffer, VK_PIPELINE_STAGE_TRANSFER_BIT, VK_ACCESS_TRANSFER_WRITE_BIT, VK_PIPELINE_STAGE_HOST_BIT,
            VK_ACCESS_HOST_READ_BIT);
    _aimPending[slot] = true;
}

void WorldView::Record(VkCommandBuffer commandBuffer) {
    FollowOutput();
    VkImageView const target = _renderer.GetOutputVkImageView();
    if (!_scene || !_depth || target == VK_NULL_HANDLE) return;
    VkExtent2D const extent = _renderer.GetOutputImageExtent();
    if (extent.width != _extent.width || extent.height != _extent.height) return;

    _stats = {};
    glm::dmat4 const view = _renderer.viewMatrix;
    uint32_t const slot = _renderer.CurrentFrameSlot() % nerox::graphics::VulkanRenderer::FramesInFlight;
    TakeAim(slot); // this slot's last frame is done: its copy is there
    WriteFrame(slot, view);

    // The output was cleared (a transfer) and maybe drawn by earlier stages;
    // the depth image's last frame is done with.
    Barrier(commandBuffer, VK_PIPELINE_STAGE_ALL_COMMANDS_BIT, VK_ACCESS_MEMORY_WRITE_BIT,
            VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT,
            VK_ACCESS_COLOR_ATTACHMENT_READ_BIT | VK_ACCESS_COLOR_ATTACHMENT_WRITE_BIT);
    nerox::vk::Image::Transition(commandBuffer, *_depth, VK_IMAGE_LAYOUT_UNDEFINED,
                                 VK_IMAGE_LAYOUT_DEPTH_ATTACHMENT_OPTIMAL, VK_IMAGE_ASPECT_DEPTH_BIT);
    nerox::vk::Image::Transition(commandBuffer, *_aimIds, VK_IMAGE_LAYOUT_UNDEFINED,
                                 VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL);

    VkRenderingAttachmentInfo colors[2]{{VK_STRUCTURE_TYPE_RENDERING_ATTACHMENT_INFO},
                                        {VK_STRUCTURE_TYPE_RENDERING_ATTACHMENT_INFO}};
    colors[0].imageView = target;
    colors[0].imageLayout = VK_IMAGE_LAYOUT_GENERAL;
    colors[0].loadOp = VK_ATTACHMENT_LOAD_OP_LOAD;
    colors[0].storeOp = VK_ATTACHMENT_STORE_OP_STORE;
    colors[1].imageView = _aimIds->View();
    colors[1].imageLayout = VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL;
    colors[1].loadOp = VK_ATTACHMENT_LOAD_OP_CLEAR; // 0: nothing to aim at
    colors[1].storeOp = VK_ATTACHMENT_STORE_OP_STORE;
    VkRenderingAttachmentInfo depth{VK_STRUCTURE_TYPE_RENDERING_ATTACHMENT_INFO};
    depth.imageView = _depth->View();
    depth.imageLayout = VK_IMAGE_LAYOUT_DEPTH_ATTACHMENT_OPTIMAL;
    depth.loadOp = VK_ATTACHMENT_LOAD_OP_CLEAR;
    depth.storeOp = VK_ATTACHMENT_STORE_OP_STORE; // the centre pixel's is copied
    depth.clearValue.depthStencil = {0.0f, 0};
    VkRenderingInfo rendering{VK_STRUCTURE_TYPE_RENDERING_INFO};
    rendering.renderArea = {{0, 0}, extent};
    rendering.layerCount = 1;
    rendering.colorAttachmentCount = 2;
    rendering.pColorAttachments = colors;
    rendering.pDepthAttachment = &depth;
    vkCmdBeginRendering(commandBuffer, &rendering);

    VkViewport const viewport{0.0f, 0.0f, static_cast<float>(extent.width), static_cast<float>(extent.height),
                              0.0f, 1.0f};
    VkRect2D const scissor{{0, 0}, extent};
    vkCmdSetViewport(commandBuffer, 0, 1, &viewport);
    vkCmdSetScissor(commandBuffer, 0, 1, &scissor);
    // Only the textured shaders use the texture table; on a device without
    // descriptor indexing its unwritten entries must not be bound at all, and
    // the screens drawn get samplers of their own.
    if (!_textured) PrepareScreens(slot);
    VkDescriptorSet const set = _textured ? _renderer.MainDescriptorSet() : _screenSets[slot];
    vkCmdBindDescriptorSets(commandBuffer, VK_PIPELINE_BIND_POINT_GRAPHICS, *_layout, 0, 1, &set, 0, nullptr);
    uint32_t const offset = static_cast<uint32_t>(_frameSlice * slot);
    vkCmdBindDescriptorSets(commandBuffer, VK_PIPELINE_BIND_POINT_GRAPHICS, *_layout, 1, 1, &_frameSet, 1, &offset);

    _scene->Bind(commandBuffer);
    DrawInstances(commandBuffer, view);

    DrawConstants const sky;
    _sky->Bind(commandBuffer);
    vkCmdPushConstants(commandBuffer, *_layout, DrawStages, 0, sizeof sky, &sky);
    vkCmdDraw(commandBuffer, 3, 1, 0, 0);
    DrawPlasma(commandBuffer, view);
    vkCmdEndRendering(commandBuffer);
    CopyAim(commandBuffer, slot);
    FillNoise(commandBuffer);
    _plasmaTrails.clear();
    _aimNearClip[slot] = _renderer.projectionMatrix[3][2];
    _aimCameraToWorld[slot] = glm::transpose(glm::dmat3(view));

    // What comes after (overlay, interface, copies of the output) sees the scene.
    Barrier(commandBuffer, VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT, VK_ACCESS_COLOR_ATTACHMENT_WRITE_BIT,
            VK_PIPELINE_STAGE_ALL_COMMANDS_BIT, VK_ACCESS_MEMORY_READ_BIT | VK_ACCESS_MEMORY_WRITE_BIT);
}

void WorldView::DrawPlasma(VkCommandBuffer commandBuffer, glm::dmat4 const& view) {
    if (_plasmaTrails.empty() || !_plasma) return;
    _plasma->Bind(commandBuffer);
    DrawConstants constants;
    for (std::shared_ptr<game::graphics::PlasmaTrail> const& trail : _plasmaTrails) {
        GeometryInterface const& box = *trail->geometries.front();
        if (box.indexMode != 0 || box.GetPrimitivesAddr() == 0 || box.GetPrimitiveCount() != 1) continue;
        constants.modelView = glm::mat4(view * trail->transform);
        constants.positions = box.GetPrimitivesAddr();
        vkCmdPushConstants(commandBuffer, *_layout, DrawStages, 0, sizeof constants, &constants);
        vkCmdDraw(commandBuffer, 36, 1, 0, 0);
        ++_stats.plasmaTrails;
    }
}

VkDescriptorSet WorldView::NoiseSet(std::shared_ptr<nerox::graphics::ComputeTexture> const& field) {
    uint64_t const frame = _renderer.FrameIndex();
    auto const found = _noiseFields.find(field.get());
    if (found != _noiseFields.end() && found->second.texture.lock() == field) {
        found->second.lastFrame = frame;
        return found->second.set;
    }
    nerox::vk::Device& device = _renderer.GetDevice();
    if (found != _noiseFields.end()) { // a new field at a freed one's address
        vkFreeDescriptorSets(device, _noisePool, 1, &found->second.set);
        _noiseFields.erase(found);
    }
    // Sets of fields that are gone, or were not filled by any frame still in
    // flight, make room.
    for (auto it = _noiseFields.begin(); it != _noiseFields.end();) {
        if (!it->second.texture.expired() &&
            it->second.lastFrame + nerox::graphics::VulkanRenderer::FramesInFlight >= frame) {
            ++it;
            continue;
        }
        vkFreeDescriptorSets(device, _noisePool, 1, &it->second.set);
        it = _noiseFields.erase(it);
    }
    if (_noiseFields.size() >= MaxNoiseFields) return VK_NULL_HANDLE;
    VkDescriptorSet set = VK_NULL_HANDLE;
    AllocateSets(device, _noisePool, _noiseSetLayout, 1, &set);
    VkDescriptorImageInfo const image{VK_NULL_HANDLE, field->GetImageView(), field->GetImageLayout()};
    VkWriteDescriptorSet write{VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET};
    write.dstSet = set;
    write.descriptorCount = 1;
    write.descriptorType = VK_DESCRIPTOR_TYPE_STORAGE_IMAGE;
    write.pImageInfo = &image;
    vkUpdateDescriptorSets(device, 1, &write, 0, nullptr);
    _noiseFields[field.get()] = {field, set, frame};
    return set;
}

void WorldView::FillNoise(VkCommandBuffer commandBuffer) {
    if (!_textured || !_plasma) return; // nothing samples the fields
    bool any = false;
    double const seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - _start).count();
    NoiseConstants constants;
    constants.time = static_cast<float>(std::fmod(seconds, NoisePeriod));
    for (std::shared_ptr<game::graphics::PlasmaTrail> const& trail : _plasmaTrails) {
        std::shared_ptr<nerox::graphics::ComputeTexture> const& field = trail->computeTexture;
        if (!field) continue;
        VkDescriptorSet const set = NoiseSet(field);
        if (set == VK_NULL_HANDLE) continue;
        if (!any) {
            // This frame's drawing has read the fields.
            Barrier(commandBuffer, VK_PIPELINE_STAGE_FRAGMENT_SHADER_BIT, 0, VK_PIPELINE_STAGE_COMPUTE_SHADER_BIT, 0);
            _noise->Bind(commandBuffer);
            any = true;
        }
        constants.seed = static_cast<uint32_t>(trail->sharedObjectsIndex);
        vkCmdBindDescriptorSets(commandBuffer, VK_PIPELINE_BIND_POINT_COMPUTE, *_noiseLayout, 0, 1, &set, 0, nullptr);
        vkCmdPushConstants(commandBuffer, *_noiseLayout, VK_SHADER_STAGE_COMPUTE_BIT, 0, sizeof constants, &constants);
        VkExtent2D const size = field->GetImage().Extent();
        _noise->Dispatch(commandBuffer, nerox::vk::ComputePipeline::GroupsFor(size.width, NoiseGroup),
                         nerox::vk::ComputePipeline::GroupsFor(size.height, NoiseGroup));
    }
    // The next frame's drawing reads what was written.
    if (any)
        Barrier(commandBuffer, VK_PIPELINE_STAGE_COMPUTE_SHADER_BIT, VK_ACCESS_SHADER_WRITE_BIT,
                VK_PIPELINE_STAGE_FRAGMENT_SHADER_BIT, VK_ACCESS_SHADER_READ_BIT);
}

} // namespace view

namespace view {

void WorldView::CreateScreenSets() {
    nerox::vk::Device& device = _renderer.GetDevice();
    VkDescriptorSetLayoutBinding const binding{0, VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER, MaxScreens,
                                               VK_SHADER_STAGE_FRAGMENT_BIT, nullptr};
    VkDescriptorSetLayoutCreateInfo layout{VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_CREATE_INFO};
    layout.bindingCount = 1;
    layout.pBindings = &binding;
    NEROX_VK_CHECK(vkCreateDescriptorSetLayout(device, &layout, nullptr, &_screenSetLayout));
    uint32_t const sets = nerox::graphics::VulkanRenderer::FramesInFlight;
    VkDescriptorPoolSize const size{VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER, MaxScreens * sets};
    VkDescriptorPoolCreateInfo pool{VK_STRUCTURE_TYPE_DESCRIPTOR_POOL_CREATE_INFO};
    pool.maxSets = sets;
    pool.poolSizeCount = 1;
    pool.pPoolSizes = &size;
    NEROX_VK_CHECK(vkCreateDescriptorPool(device, &pool, nullptr, &_screenPool));
    AllocateSets(device, _screenPool, _screenSetLayout, sets, _screenSets.data());
    // Every slot needs a valid image (the device may lack partially bound sets): a black pixel.
    uint32_t const black = 0xFF000000u;
    _blankScreen = std::make_shared<nerox::graphics::ImageTexture>(device, 1, 1, VK_FORMAT_R8G8B8A8_UNORM, &black,
                                                                   sizeof black, "World view blank screen");
    for (uint32_t set = 0; set < sets; ++set) {
        _screenTextures[set].fill(nullptr); // written on first use
        PrepareScreens(set);
    }
}

void WorldView::DestroyScreenSets() {
    vkDestroyDescriptorPool(_renderer.GetDevice(), _screenPool, nullptr); // with its sets
    vkDestroyDescriptorSetLayout(_renderer.GetDevice(), _screenSetLayout, nullptr);
    _screenPool = VK_NULL_HANDLE;
    _screenSetLayout = VK_NULL_HANDLE;
    _screenSets.fill(VK_NULL_HANDLE);
    for (auto& textures : _screenTextures) textures.fill(nullptr);
    _blankScreen.reset();
}

void WorldView::PrepareScreens(uint32_t slot) {
    _screenIndices.fill(0);
    uint32_t found = 0;
    {
        std::shared_lock lock(RenderableInstance::_sharedObjectsMutex);
        for (auto const& entry : RenderableInstance::_sharedObjects) {
            std::shared_ptr<RenderableInstance> const instance = entry.lock();
            if (!instance || !instance->enabled || !instance->visible || !instance->renderableData ||
                (instance->rayMask & PlasmaMask))
                continue;
            size_t const records = std::min(instance->renderableData->Count(), instance->geometries.size());
            for (size_t i = 0; i < records && found < MaxScreens; ++i) {
                uint32_t const index = (*instance->renderableData)[i].monitorIndex;
                if (index != 0 && ScreenSlot(index) == 0) _screenIndices[found++] = index;
            }
        }
    }
    // The set of this slot was last used by the frame FramesInFlight ago, which is done.
    std::array<VkDescriptorImageInfo, MaxScreens> images{};
    bool changed = false;
    for (uint32_t i = 0; i < MaxScreens; ++i) {
        std::shared_ptr<nerox::graphics::Texture> texture =
            _screenIndices[i] != 0 ? _renderer.GetTexture(_screenIndices[i]) : nullptr;
        if (!texture || texture->GetImageView() == VK_NULL_HANDLE) texture = _blankScreen;
        changed = changed || texture != _screenTextures[slot][i];
        images[i] = {_renderer.DefaultSampler(), texture->GetImageView(), texture->GetImageLayout()};
        _screenTextures[slot][i] = std::move(texture);
    }
    if (!changed) return;
    VkWriteDescriptorSet write{VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET};
    write.dstSet = _screenSets[slot];
    write.descriptorCount = MaxScreens;
    write.descriptorType = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
    write.pImageInfo = images.data();
    vkUpdateDescriptorSets(_renderer.GetDevice(), 1, &write, 0, nullptr);
}

uint32_t WorldView::ScreenSlot(uint32_t monitorIndex) const {
    if (monitorIndex == 0) return 0;
    for (uint32_t i = 0; i < MaxScreens; ++i)
        if (_screenIndices[i] == monitorIndex) return i + 1;
    return 0;
}

} // namespace view
