#include "nerox/vk/Image.hpp"

#include "nerox/Assert.hpp"
#include "nerox/vk/Check.hpp"
#include "nerox/ScopeGuard.hpp"

#include <algorithm>

namespace nerox::vk {

Image::Image(Device& device, uint32_t width, uint32_t height, VkFormat format, VkImageUsageFlags usage,
             std::string const& name, ImageOptions const& options)
    : _device(&device), _format(format), _width(width), _height(height), _mipLevels(std::max(1u, options.mipLevels)),
      _aspect(options.aspect) {
    NEROX_ASSERT(width > 0 && height > 0);
    VkImageCreateInfo info{VK_STRUCTURE_TYPE_IMAGE_CREATE_INFO};
    info.imageType = VK_IMAGE_TYPE_2D;
    info.format = format;
    info.extent = {width, height, 1};
    info.mipLevels = _mipLevels;
    info.arrayLayers = 1;
    info.samples = VK_SAMPLE_COUNT_1_BIT;
    info.tiling = options.tiling;
    info.usage = usage;
    info.sharingMode = VK_SHARING_MODE_EXCLUSIVE;
    info.initialLayout = VK_IMAGE_LAYOUT_UNDEFINED;
    NEROX_VK_CHECK(vkCreateImage(device, &info, nullptr, &_image));
    nerox::OnFailure undo([&] {
        device.Allocator().Free(_memory);
        vkDestroyImage(device, _image, nullptr);
    });
    VkMemoryRequirements requirements;
    vkGetImageMemoryRequirements(device, _image, &requirements);
    uint32_t const type = device.FindMemoryType(requirements.memoryTypeBits, 0, options.memory);
    // Linear images go with the buffers, optimal ones apart.
    _memory = device.Allocator().Allocate(requirements, type, options.tiling == VK_IMAGE_TILING_LINEAR);
    NEROX_VK_CHECK(vkBindImageMemory(device, _image, _memory.memory, _memory.offset));

    // Only a usage that reads or writes through a view may have one.
    VkImageUsageFlags const viewed = VK_IMAGE_USAGE_SAMPLED_BIT | VK_IMAGE_USAGE_STORAGE_BIT |
        VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT | VK_IMAGE_USAGE_DEPTH_STENCIL_ATTACHMENT_BIT |
        VK_IMAGE_USAGE_INPUT_ATTACHMENT_BIT | VK_IMAGE_USAGE_TRANSIENT_ATTACHMENT_BIT;
    device.SetName(VK_OBJECT_TYPE_IMAGE, reinterpret_cast<uint64_t>(_image), name);
    if ((usage & viewed) == 0) return;
    VkImageViewCreateInfo view{VK_STRUCTURE_TYPE_IMAGE_VIEW_CREATE_INFO};
    view.image = _image;
    view.viewType = VK_IMAGE_VIEW_TYPE_2D;
    view.format = format;
    view.subresourceRange = {_aspect, 0, _mipLevels, 0, 1};
    NEROX_VK_CHECK(vkCreateImageView(device, &view, nullptr, &_view));
    device.SetName(VK_OBJECT_TYPE_IMAGE_VIEW, reinterpret_cast<uint64_t>(_view), name);
}

Image::~Image() {
    if (_view != VK_NULL_HANDLE) vkDestroyImageView(*_device, _view, nullptr);
    vkDestroyImage(*_device, _image, nullptr);
    _device->Allocator().Free(_memory);
}

void Image::Transition(VkCommandBuffer commandBuffer, VkImage image, VkImageLayout from, VkImageLayout to,
                       VkImageAspectFlags aspect, uint32_t mipLevels) {
    VkImageMemoryBarrier barrier{VK_STRUCTURE_TYPE_IMAGE_MEMORY_BARRIER};
    barrier.srcAccessMask = VK_ACCESS_MEMORY_WRITE_BIT;
    barrier.dstAccessMask = VK_ACCESS_MEMORY_READ_BIT | VK_ACCESS_MEMORY_WRITE_BIT;
    barrier.oldLayout = from;
    barrier.newLayout = to;
    barrier.srcQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
    barrier.dstQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
    barrier.image = image;
    barrier.subresourceRange = {aspect, 0, mipLevels, 0, 1};
    vkCmdPipelineBarrier(commandBuffer, VK_PIPELINE_STAGE_ALL_COMMANDS_BIT, VK_PIPELINE_STAGE_ALL_COMMANDS_BIT, 0, 0,
                         nullptr, 0, nullptr, 1, &barrier);
}

void Image::Transition(VkCommandBuffer commandBuffer, VkImageLayout from, VkImageLayout to) const {
    Transition(commandBuffer, _image, from, to, _aspect, _mipLevels);
}

void Image::Clear(VkCommandBuffer commandBuffer, VkImageLayout clearLayout, VkImageLayout finalLayout) const {
    Transition(commandBuffer, VK_IMAGE_LAYOUT_UNDEFINED, clearLayout);
    VkClearColorValue const zero{};
    VkImageSubresourceRange const all{_aspect, 0, _mipLevels, 0, 1};
    vkCmdClearColorImage(commandBuffer, _image, clearLayout, &zero, 1, &all);
    Transition(commandBuffer, clearLayout, finalLayout);
}

Sampler::Sampler(Device& device, SamplerOptions const& options, std::string const& name) : _device(&device) {
    VkSamplerCreateInfo info{VK_STRUCTURE_TYPE_SAMPLER_CREATE_INFO};
    info.magFilter = options.magFilter;
    info.minFilter = options.minFilter;
    info.mipmapMode = options.mipmapMode;
    info.addressModeU = options.addressModeU;
    info.addressModeV = options.addressModeV;
    info.addressModeW = options.addressModeW;
    info.maxLod = options.maxLod;
    bool const anisotropy = options.maxAnisotropy > 1.0f && device.EnabledFeatures().core.samplerAnisotropy;
    info.anisotropyEnable = anisotropy ? VK_TRUE : VK_FALSE;
    info.maxAnisotropy =
        anisotropy ? std::min(options.maxAnisotropy, device.Properties().limits.maxSamplerAnisotropy) : 1.0f;
    info.borderColor = VK_BORDER_COLOR_FLOAT_TRANSPARENT_BLACK;
    NEROX_VK_CHECK(vkCreateSampler(device, &info, nullptr, &_sampler));
    device.SetName(VK_OBJECT_TYPE_SAMPLER, reinterpret_cast<uint64_t>(_sampler), name);
}

Sampler::~Sampler() {
    vkDestroySampler(*_device, _sampler, nullptr);
}

} // namespace nerox::vk
