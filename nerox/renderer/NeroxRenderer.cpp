#include "nerox/renderer/NeroxRenderer.hpp"

#include "nerox/graphics/ImageTexture.hpp"
#include "nerox/vk/Check.hpp"

#include <imgui.h>
#include <imgui_internal.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <stdexcept>

namespace nerox::renderer {

namespace {

double Now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Entries the texture table can have on device: MaxTextures, or fewer where a
// shader stage may not see that many samplers. Room is left for the other
// resources of the pipelines that bind the table.
uint32_t TableCapacity(vk::Device const& device, bool updateAfterBind) {
    constexpr uint32_t otherResources = 16;
    VkPhysicalDeviceLimits const& limits = device.Properties().limits;
    uint32_t capacity = NeroxRenderer::MaxTextures;
    auto limit = [&capacity](uint32_t value) { capacity = std::min(capacity, value); };
    if (updateAfterBind) {
        VkPhysicalDeviceVulkan12Properties v12{VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_VULKAN_1_2_PROPERTIES};
        VkPhysicalDeviceProperties2 properties{VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_PROPERTIES_2, &v12};
        vkGetPhysicalDeviceProperties2(device.Physical(), &properties);
        limit(v12.maxPerStageDescriptorUpdateAfterBindSamplers);
        limit(v12.maxPerStageDescriptorUpdateAfterBindSampledImages);
        limit(v12.maxDescriptorSetUpdateAfterBindSamplers);
        limit(v12.maxDescriptorSetUpdateAfterBindSampledImages);
        limit(v12.maxPerStageUpdateAfterBindResources > otherResources
                  ? v12.maxPerStageUpdateAfterBindResources - otherResources
                  : 1);
    } else {
        limit(limits.maxPerStageDescriptorSamplers);
        limit(limits.maxPerStageDescriptorSampledImages);
        limit(limits.maxDescriptorSetSamplers);
        limit(limits.maxDescriptorSetSampledImages);
        limit(limits.maxPerStageResources > otherResources ? limits.maxPerStageResources - otherResources : 1);
    }
    return std::max(capacity, 1u);
}

} // namespace

NeroxRenderer::NeroxRenderer(graphics::Window* window, char const* applicationName, uint32_t applicationVersion,
                             vk::PhysicalDevice::Features const& features, bool vsync)
    : VulkanRenderer(window, applicationName, applicationVersion, features, vsync) {
    vk::Device& device = GetDevice();
    vk::SamplerOptions linear;
    linear.magFilter = linear.minFilter = VK_FILTER_LINEAR;
    linear.mipmapMode = VK_SAMPLER_MIPMAP_MODE_LINEAR;
    _defaultSampler = std::make_unique<vk::Sampler>(device, linear, "Default sampler");

    // The table may gain entries while earlier frames still use the set: with
    // update-after-bind that is allowed; without it, adding waits for the device.
    vk::PhysicalDevice::Features const& enabled = device.EnabledFeatures();
    _updateAfterBind = enabled.vulkan12.descriptorBindingSampledImageUpdateAfterBind &&
        enabled.vulkan12.descriptorBindingPartiallyBound;
    VkDescriptorBindingFlags bindingFlags = 0;
    if (enabled.vulkan12.descriptorBindingPartiallyBound) bindingFlags |= VK_DESCRIPTOR_BINDING_PARTIALLY_BOUND_BIT;
    if (_updateAfterBind) bindingFlags |= VK_DESCRIPTOR_BINDING_UPDATE_AFTER_BIND_BIT;
    VkDescriptorSetLayoutBindingFlagsCreateInfo flags{
        VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_BINDING_FLAGS_CREATE_INFO};
    flags.bindingCount = 1;
    flags.pBindingFlags = &bindingFlags;
    _capacity = TableCapacity(device, _updateAfterBind);
    VkDescriptorSetLayoutBinding binding{};
    binding.binding = 0;
    binding.descriptorType = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
    binding.descriptorCount = _capacity;
    binding.stageFlags = VK_SHADER_STAGE_ALL;
    VkDescriptorSetLayoutCreateInfo layout{VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_CREATE_INFO, &flags};
    if (_updateAfterBind) layout.flags = VK_DESCRIPTOR_SET_LAYOUT_CREATE_UPDATE_AFTER_BIND_POOL_BIT;
    layout.bindingCount = 1;
    layout.pBindings = &binding;
    NEROX_VK_CHECK(vkCreateDescriptorSetLayout(device, &layout, nullptr, &_mainSetLayout));

    VkDescriptorPoolSize size{VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER, _capacity};
    VkDescriptorPoolCreateInfo pool{VK_STRUCTURE_TYPE_DESCRIPTOR_POOL_CREATE_INFO};
    if (_updateAfterBind) pool.flags = VK_DESCRIPTOR_POOL_CREATE_UPDATE_AFTER_BIND_BIT;
    pool.maxSets = 1;
    pool.poolSizeCount = 1;
    pool.pPoolSizes = &size;
    NEROX_VK_CHECK(vkCreateDescriptorPool(device, &pool, nullptr, &_mainPool));
    VkDescriptorSetAllocateInfo allocate{VK_STRUCTURE_TYPE_DESCRIPTOR_SET_ALLOCATE_INFO};
    allocate.descriptorPool = _mainPool;
    allocate.descriptorSetCount = 1;
    allocate.pSetLayouts = &_mainSetLayout;
    NEROX_VK_CHECK(vkAllocateDescriptorSets(device, &allocate, &_mainSet));
    device.SetName(VK_OBJECT_TYPE_DESCRIPTOR_SET, reinterpret_cast<uint64_t>(_mainSet), "Main descriptor set");
    // Without partially bound descriptors every entry must be valid once the set
    // is bound (some drivers read them all then): the free ones show a blank texel.
    if (!enabled.vulkan12.descriptorBindingPartiallyBound) {
        uint32_t const transparent = 0;
        _blank = std::make_shared<graphics::ImageTexture>(device, 1, 1, VK_FORMAT_R8G8B8A8_UNORM, &transparent,
                                                          sizeof transparent, "Texture table blank");
        WriteBlank(0);
    }
}

void NeroxRenderer::WriteBlank(uint32_t from) {
    if (!_blank || from >= _capacity) return;
    std::vector<VkDescriptorImageInfo> const images(
        _capacity - from, {_defaultSampler->Handle(), _blank->GetImageView(), _blank->GetImageLayout()});
    VkWriteDescriptorSet write{VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET};
    write.dstSet = _mainSet;
    write.dstBinding = 0;
    write.dstArrayElement = from;
    write.descriptorCount = static_cast<uint32_t>(images.size());
    write.descriptorType = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
    write.pImageInfo = images.data();
    vkUpdateDescriptorSets(GetDevice(), 1, &write, 0, nullptr);
}

NeroxRenderer::~NeroxRenderer() {
    vk::Device& device = GetDevice();
    StopRendering();
    device.WaitIdle();
    _textures.clear();
    _blank.reset();
    vkDestroyDescriptorPool(device, _mainPool, nullptr);
    vkDestroyDescriptorSetLayout(device, _mainSetLayout, nullptr);
}

void NeroxRenderer::FrameCollectGarbage() { }
void NeroxRenderer::FrameUpdateDescriptorSets() { }
void NeroxRenderer::FrameBeforePost() { }
void NeroxRenderer::FrameInit() { }
void NeroxRenderer::FrameUpdateUi() { }
void NeroxRenderer::FrameBeforeUpdate() { }
void NeroxRenderer::FrameUpdate() { }
void NeroxRenderer::FrameBeforeRender() { }
void NeroxRenderer::FrameAfterRender() { }
void NeroxRenderer::FrameAfterUpdate() { }
void NeroxRenderer::FramePushCommands(VkCommandBuffer) { }
void NeroxRenderer::FrameBuildCommands(VkCommandBuffer) { }
void NeroxRenderer::FrameRenderCommands(VkCommandBuffer) { }
void NeroxRenderer::FrameResolveCommands(VkCommandBuffer) { }
void NeroxRenderer::FrameBlitCommands(VkCommandBuffer) { }
void NeroxRenderer::FramePostCommands(VkCommandBuffer) { }
void NeroxRenderer::FrameOverlayCommands(VkCommandBuffer) { }

void NeroxRenderer::Frame() {
    double const start = Now();
    if (_lastFrameTime > 0.0) {
        _frameMs[_frameMsNext] = static_cast<float>((start - _lastFrameTime) * 1000.0);
        _frameMsNext = (_frameMsNext + 1) % _frameMs.size();
    }
    _lastFrameTime = start;

    if (!BeginFrame()) return;
    VkCommandBuffer const commands = CurrentCommandBuffer();
    bool uiOpen = false;
    try {
        FrameInit();
        FrameCollectGarbage();
        BeginUiFrame();
        uiOpen = true;
        FrameUpdateUi();
        uiOpen = false;
        EndUiFrame();
        FrameBeforeUpdate();
        FrameUpdate();
        FrameAfterUpdate();
        WriteTextureDescriptors();
        FrameUpdateDescriptorSets();
        FrameBeforeRender();
        FramePushCommands(commands);
        FrameBuildCommands(commands);
        FrameRenderCommands(commands);
        FrameAfterRender();
        FrameResolveCommands(commands);
        FrameBeforePost();
        FrameBlitCommands(commands);
        FramePostCommands(commands);
        FrameOverlayCommands(commands);
    } catch (...) {
        // Close what the stage left open so that the next frame starts clean.
        if (uiOpen && ImGui::GetCurrentContext() != nullptr) {
            ImGui::ErrorCheckEndFrameRecover(nullptr);
            EndUiFrame();
        }
        // What the stage recorded may be cut off inside a pass or in another
        // layout: the frame is submitted as just the cleared output.
        RestartRecording();
        EndFrame();
        throw;
    }
    EndFrame();
}

uint32_t NeroxRenderer::AddTexture(graphics::TextureRef const& texture, VkSampler sampler) {
    std::lock_guard lock(_texturesMutex);
    return AddLocked(texture, sampler);
}

uint32_t NeroxRenderer::AddTextures(std::vector<std::tuple<graphics::TextureRef, VkSampler>> const& textures) {
    std::lock_guard lock(_texturesMutex);
    uint32_t const first = static_cast<uint32_t>(_textures.size());
    if (_textures.size() + textures.size() > _capacity)
        throw std::runtime_error("Texture table is full: " + std::to_string(textures.size()) + " more do not fit in " +
                                 std::to_string(_capacity));
    // Everything is loaded before the table changes, so that a file that cannot
    // be read leaves the table as it was.
    std::vector<std::shared_ptr<graphics::Texture>> loaded;
    loaded.reserve(textures.size());
    for (auto const& [texture, sampler] : textures) loaded.push_back(Resolve(texture));
    for (size_t i = 0; i < loaded.size(); ++i) AddLocked(graphics::TextureRef(loaded[i]), std::get<1>(textures[i]));
    return first;
}

uint32_t NeroxRenderer::AddLocked(graphics::TextureRef const& reference, VkSampler sampler) {
    if (_textures.size() >= _capacity)
        throw std::runtime_error("Texture table is full: " + std::to_string(_capacity) + " entries");
    std::shared_ptr<graphics::Texture> texture = Resolve(reference);
    if (sampler == VK_NULL_HANDLE) sampler = DefaultSampler();
    uint32_t const index = static_cast<uint32_t>(_textures.size());
    if (texture->GetImageView() != VK_NULL_HANDLE) _unwritten.push_back(index);
    _textures.push_back({std::move(texture), sampler});
    return index;
}

void NeroxRenderer::WriteTextureDescriptors() {
    std::lock_guard lock(_texturesMutex);
    if (_unwritten.empty()) return;
    std::vector<VkDescriptorImageInfo> images;
    images.reserve(_unwritten.size());
    std::vector<VkWriteDescriptorSet> writes;
    writes.reserve(_unwritten.size());
    for (uint32_t index : _unwritten) {
        TableEntry const& entry = _textures[index];
        images.push_back({entry.sampler, entry.texture->GetImageView(), entry.texture->GetImageLayout()});
        VkWriteDescriptorSet write{VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET};
        write.dstSet = _mainSet;
        write.dstBinding = 0;
        write.dstArrayElement = index;
        write.descriptorCount = 1;
        write.descriptorType = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
        write.pImageInfo = &images.back();
        writes.push_back(write);
    }
    // Frames in flight may use the set; without update-after-bind they must end first.
    if (!_updateAfterBind) GetDevice().WaitIdle();
    vkUpdateDescriptorSets(GetDevice(), static_cast<uint32_t>(writes.size()), writes.data(), 0, nullptr);
    _unwritten.clear();
}

std::shared_ptr<graphics::Texture> NeroxRenderer::Resolve(graphics::TextureRef const& reference) {
    if (reference.GetTexture()) return reference.GetTexture();
    if (reference.GetPath().empty()) throw std::runtime_error("AddTexture: neither a texture nor a path");
    return graphics::ImageTexture::FromFile(GetDevice(), reference.GetPath());
}

void NeroxRenderer::ClearTextures() {
    std::lock_guard lock(_texturesMutex);
    // Frames in flight may still sample them.
    GetDevice().WaitIdle();
    _textures.clear();
    _unwritten.clear();
    WriteBlank(0); // no entry may keep a view of a texture now gone
}

uint32_t NeroxRenderer::TextureCount() const {
    std::lock_guard lock(_texturesMutex);
    return static_cast<uint32_t>(_textures.size());
}

std::shared_ptr<graphics::Texture> NeroxRenderer::GetTexture(uint32_t index) const {
    std::lock_guard lock(_texturesMutex);
    return index < _textures.size() ? _textures[index].texture : nullptr;
}

void NeroxRenderer::UiShowAdvancedPerformanceMetrics() {
    if (ImGui::GetCurrentContext() == nullptr) return;
    float total = 0.0f, worst = 0.0f;
    size_t counted = 0;
    for (float ms : _frameMs) {
        if (ms <= 0.0f) continue;
        total += ms;
        worst = std::max(worst, ms);
        ++counted;
    }
    float const mean = counted > 0 ? total / static_cast<float>(counted) : 0.0f;
    ImGui::Begin("Performance");
    ImGui::Text("Device: %s", GetDevice().Properties().deviceName);
    ImGui::Text("Frame: %.2f ms mean, %.2f ms worst (%.0f FPS)", mean, worst, mean > 0.0f ? 1000.0f / mean : 0.0f);
    ImGui::PlotLines("##frames", _frameMs.data(), static_cast<int>(_frameMs.size()), static_cast<int>(_frameMsNext),
                     nullptr, 0.0f, std::max(worst, 1.0f), ImVec2(0.0f, 60.0f));
    ImGui::Text("Output: %ux%u, textures: %u", GetOutputImageExtent().width, GetOutputImageExtent().height,
                TextureCount());
    ImGui::End();
}

} // namespace nerox::renderer
