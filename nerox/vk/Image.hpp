#pragma once
// 2D images with their view and memory, and samplers.
#include "nerox/vk/MemoryAllocator.hpp"
#include "nerox/vk/Device.hpp"

#include <vulkan/vulkan.h>

#include <cstdint>
#include <string>

namespace nerox::vk {

/// How to create an Image beyond its size, format and usage.
struct ImageOptions {
    VkImageAspectFlags aspect = VK_IMAGE_ASPECT_COLOR_BIT;              ///< Aspect of the view.
    uint32_t mipLevels = 1;                                             ///< Mip levels, at least 1.
    VkImageTiling tiling = VK_IMAGE_TILING_OPTIMAL;                     ///< Tiling.
    VkMemoryPropertyFlags memory = VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT; ///< Preferred memory.
};

/// A 2D image with its own memory and, when its usage allows one, a view of all its levels.
class Image {
public:
    /// Throws std::runtime_error when the format or usage is refused.
    Image(Device& device, uint32_t width, uint32_t height, VkFormat format, VkImageUsageFlags usage,
          std::string const& name, ImageOptions const& options = {});
    ~Image();
    Image(Image const&) = delete;
    Image& operator=(Image const&) = delete;

    VkImage Handle() const { return _image; }               ///< The Vulkan image.
    operator VkImage() const { return _image; }             ///< The Vulkan image.
    VkImageView View() const { return _view; }              ///< View of every level; null for transfer-only images.
    VkFormat Format() const { return _format; }             ///< Its format.
    VkExtent2D Extent() const { return {_width, _height}; } ///< Its size in pixels.
    uint32_t Width() const { return _width; }               ///< Width in pixels.
    uint32_t Height() const { return _height; }             ///< Height in pixels.
    uint32_t MipLevels() const { return _mipLevels; }       ///< Number of levels.

    /// Records a layout change of every level of image, waiting on all earlier
    /// commands: simple and correct rather than tight.
    static void Transition(VkCommandBuffer commandBuffer, VkImage image, VkImageLayout from, VkImageLayout to,
                           VkImageAspectFlags aspect = VK_IMAGE_ASPECT_COLOR_BIT,
                           uint32_t mipLevels = VK_REMAINING_MIP_LEVELS);
    /// Transition of this image.
    void Transition(VkCommandBuffer commandBuffer, VkImageLayout from, VkImageLayout to) const;
    /// Records a clear of a new image to zero: from undefined contents into
    /// clearLayout (general or transfer destination), cleared there, then into
    /// finalLayout, with the clear done before any later command.
    void Clear(VkCommandBuffer commandBuffer, VkImageLayout clearLayout, VkImageLayout finalLayout) const;

private:
    Device* _device;
    VkImage _image = VK_NULL_HANDLE;
    MemoryPiece _memory; // a piece of a block of the device's allocator
    VkImageView _view = VK_NULL_HANDLE;
    VkFormat _format;
    uint32_t _width, _height, _mipLevels;
    VkImageAspectFlags _aspect;
};

/// Sampler parameters; the defaults are a nearest filter that repeats.
struct SamplerOptions {
    VkFilter magFilter = VK_FILTER_NEAREST;                             ///< Magnification filter.
    VkFilter minFilter = VK_FILTER_NEAREST;                             ///< Minification filter.
    VkSamplerMipmapMode mipmapMode = VK_SAMPLER_MIPMAP_MODE_NEAREST;    ///< Between levels.
    VkSamplerAddressMode addressModeU = VK_SAMPLER_ADDRESS_MODE_REPEAT; ///< Horizontal wrap.
    VkSamplerAddressMode addressModeV = VK_SAMPLER_ADDRESS_MODE_REPEAT; ///< Vertical wrap.
    VkSamplerAddressMode addressModeW = VK_SAMPLER_ADDRESS_MODE_REPEAT; ///< Depth wrap.
    float maxLod = VK_LOD_CLAMP_NONE;                                   ///< Highest level used.
    float maxAnisotropy = 0.0f;                                         ///< Anisotropy; 0 or 1 turns it off.
};

/// A sampler.
class Sampler {
public:
    /// A sampler with options.
    explicit Sampler(Device& device, SamplerOptions const& options = {}, std::string const& name = {});
    ~Sampler();
    Sampler(Sampler const&) = delete;
    Sampler& operator=(Sampler const&) = delete;

    VkSampler Handle() const { return _sampler; }   ///< The Vulkan sampler.
    operator VkSampler() const { return _sampler; } ///< The Vulkan sampler.

private:
    Device* _device;
    VkSampler _sampler = VK_NULL_HANDLE;
};

} // namespace nerox::vk
