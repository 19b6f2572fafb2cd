#include "nerox/graphics/ComputeTexture.hpp"

#include "nerox/Assert.hpp"
#include "nerox/vk/CommandBuffer.hpp"

#include <stdexcept>

namespace nerox::graphics {

namespace {

/// The device of engine, after the checks that come before any Vulkan object.
vk::Device& CheckedDevice(nerox::VulkanEngine* engine, unsigned int width, unsigned int height, VkFormat format,
                          std::string const& name) {
    if (engine == nullptr) throw std::runtime_error(name + ": no engine");
    if (width == 0 || height == 0) throw std::runtime_error(name + ": empty size");
    VkFormatProperties properties{};
    vkGetPhysicalDeviceFormatProperties(engine->GetDevice().Physical(), format, &properties);
    VkFormatFeatureFlags const needed = VK_FORMAT_FEATURE_STORAGE_IMAGE_BIT | VK_FORMAT_FEATURE_SAMPLED_IMAGE_BIT;
    if ((properties.optimalTilingFeatures & needed) != needed)
        throw std::runtime_error(name + ": the device cannot store to and sample format " + std::to_string(format));
    return engine->GetDevice();
}

} // namespace

ComputeTexture::ComputeTexture(nerox::VulkanEngine* engine, unsigned int width, unsigned int height, VkFormat format,
                               unsigned int extraUsage)
    : _name("ComputeTexture [" + std::to_string(width) + "x" + std::to_string(height) + "]"),
      _image(CheckedDevice(engine, width, height, format, _name), width, height, format,
             VK_IMAGE_USAGE_STORAGE_BIT | VK_IMAGE_USAGE_SAMPLED_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT |
                 VK_IMAGE_USAGE_TRANSFER_DST_BIT | extraUsage,
             _name) {
    vk::Device& device = engine->GetDevice();
    vk::CommandBuffer::Run(
        device, device.GraphicsQueue(),
        [this](VkCommandBuffer commands) { _image.Clear(commands, VK_IMAGE_LAYOUT_GENERAL, VK_IMAGE_LAYOUT_GENERAL); },
        "clear " + _name);
}

ComputeTexture::~ComputeTexture() = default;

bool ComputeTexture::Reload() {
    NEROX_ASSERT(!"Cannot reload a compute texture");
    return false;
}

void ComputeTexture::Push(VkCommandBuffer commandBuffer) {
    VkMemoryBarrier barrier{VK_STRUCTURE_TYPE_MEMORY_BARRIER};
    barrier.srcAccessMask = VK_ACCESS_SHADER_WRITE_BIT;
    barrier.dstAccessMask = VK_ACCESS_SHADER_READ_BIT;
    vkCmdPipelineBarrier(commandBuffer, VK_PIPELINE_STAGE_ALL_COMMANDS_BIT, VK_PIPELINE_STAGE_ALL_COMMANDS_BIT, 0, 1,
                         &barrier, 0, nullptr, 0, nullptr);
}

} // namespace nerox::graphics
