#pragma once
// A sampled texture in device memory, filled once from pixels or an image file.
#include "nerox/graphics/Texture.hpp"
#include "nerox/vk/Image.hpp"

#include <memory>
#include <string>

namespace nerox::graphics {

/// An immutable 2D texture: the pixels are copied to the device when it is made.
class ImageTexture : public Texture {
public:
    /// width x height pixels of format, bytes long (checked against the format's
    /// size: 4 bytes per pixel for 8-bit RGBA, 16 for 32-bit float RGBA).
    /// Throws std::runtime_error for a size that does not match.
    ImageTexture(vk::Device& device, uint32_t width, uint32_t height, VkFormat format, void const* pixels, size_t bytes,
                 std::string const& name);
    /// An image file decoded to RGBA: 8-bit for PNG, JPEG and kin, 32-bit float
    /// for Radiance HDR. Throws std::runtime_error when it cannot be read.
    static std::shared_ptr<ImageTexture> FromFile(vk::Device& device, std::string const& path);

    VkImageView GetImageView() const override { return _image.View(); }
    /// The image, in VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL.
    vk::Image const& GetImage() const { return _image; }

private:
    vk::Image _image;
};

} // namespace nerox::graphics
