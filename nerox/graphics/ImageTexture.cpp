#include "nerox/graphics/ImageTexture.hpp"

#include "nerox/vk/Buffer.hpp"
#include "nerox/vk/CommandBuffer.hpp"

#include <cstring>
#include <stdexcept>

namespace nerox::graphics {

namespace {

size_t BytesPerPixel(VkFormat format) {
    switch (format) {
    case VK_FORMAT_R8_UNORM: return 1;
    case VK_FORMAT_R8G8_UNORM: return 2;
    case VK_FORMAT_R8G8B8A8_UNORM:
    case VK_FORMAT_R8G8B8A8_SRGB:
    case VK_FORMAT_B8G8R8A8_UNORM:
    case VK_FORMAT_R32_SFLOAT: return 4;
    case VK_FORMAT_R32G32_SFLOAT: return 8;
    case VK_FORMAT_R32G32B32A32_SFLOAT: return 16;
    default: return 0;
    }
}

} // namespace

namespace {

/// Checks what the pixels must be before any Vulkan object is made.
uint32_t CheckedWidth(uint32_t width, uint32_t height, VkFormat format, void const* pixels, size_t bytes,
                      std::string const& name) {
    size_t const perPixel = BytesPerPixel(format);
    if (perPixel == 0)
        throw std::runtime_error("ImageTexture \"" + name + "\": unsupported format " + std::to_string(format));
    if (width == 0 || height == 0)
        throw std::runtime_error("ImageTexture \"" + name + "\": empty size " + std::to_string(width) + "x" +
                                 std::to_string(height));
    size_t const expected = static_cast<size_t>(width) * height * perPixel;
    if (pixels == nullptr || bytes != expected)
        throw std::runtime_error("ImageTexture \"" + name + "\": " + std::to_string(bytes) + " bytes given, " +
                                 std::to_string(expected) + " needed");
    return width;
}

} // namespace

ImageTexture::ImageTexture(vk::Device& device, uint32_t width, uint32_t height, VkFormat format, void const* pixels,
                           size_t bytes, std::string const& name)
    : _image(device, CheckedWidth(width, height, format, pixels, bytes, name), height, format,
             VK_IMAGE_USAGE_SAMPLED_BIT | VK_IMAGE_USAGE_TRANSFER_DST_BIT, name) {
    size_t const expected = bytes;
    vk::MappedBuffer<unsigned char, 2, vk::AllocationHostAccessSequentialWrite> staging(
        device, expected, VK_BUFFER_USAGE_TRANSFER_SRC_BIT, name + " upload", 16);
    std::memcpy(staging.Data(), pixels, expected);
    vk::CommandBuffer::Run(
        device, device.GraphicsQueue(),
        [&](VkCommandBuffer commands) {
            _image.Transition(commands, VK_IMAGE_LAYOUT_UNDEFINED, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL);
            VkBufferImageCopy copy{};
            copy.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
            copy.imageExtent = {width, height, 1};
            vkCmdCopyBufferToImage(commands, staging, _image, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, 1, &copy);
            _image.Transition(commands, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL);
        },
        "upload " + name);
}

std::shared_ptr<ImageTexture> ImageTexture::FromFile(vk::Device& device, std::string const& path) {
    ImageData const data = Texture::LoadFile(path, 4);
    VkFormat const format = data.isFloat ? VK_FORMAT_R32G32B32A32_SFLOAT : VK_FORMAT_R8G8B8A8_UNORM;
    return std::make_shared<ImageTexture>(device, static_cast<uint32_t>(data.width), static_cast<uint32_t>(data.height),
                                          format, data.pixels.data(), data.pixels.size(), path);
}

} // namespace nerox::graphics
