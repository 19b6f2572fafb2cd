#pragma once
// The base of GPU textures, and image files: decoding into pixels and encoding
// pixels into PNG, JPEG or Radiance HDR files.
#include <vulkan/vulkan.h>

#include <string>
#include <vector>

namespace nerox::graphics {

/// Pixels decoded from an image file.
struct ImageData {
    int width = 0;                     ///< Pixels per row.
    int height = 0;                    ///< Rows.
    int channels = 0;                  ///< Channels per pixel in pixels.
    bool isFloat = false;              ///< 32-bit float channels (HDR files) rather than bytes.
    std::vector<unsigned char> pixels; ///< Rows top to bottom; floats are stored as their bytes.
};

/// A texture on the device. Subclasses own the image; a texture in a
/// renderer's push list records its uploads in Push.
class Texture {
public:
    virtual ~Texture();
    /// Records uploads into commandBuffer; the base has none.
    virtual void Push(VkCommandBuffer commandBuffer);
    /// Reads the texture's source again; the base has none and returns false.
    virtual bool Reload();
    /// The view that shaders sample; null when the texture has no image yet.
    virtual VkImageView GetImageView() const;
    /// The layout the image is in whenever a shader samples it.
    virtual VkImageLayout GetImageLayout() const;

    /// Encodes width x height pixels of channels (1 to 4) into the file path:
    /// 8-bit data as PNG, or as JPEG of quality (1 to 100) when the path ends
    /// in .jpg or .jpeg; float data as Radiance HDR, which needs a .hdr path.
    /// data holds width * height * channels elements. Returns false, with one
    /// line on the standard error stream, when the arguments or the encoder fail.
    static bool SaveFile(std::string const& path, int width, int height, int channels, bool isFloat, void const* data,
                         int quality);
    /// Decodes an image file: 8-bit channels for PNG, JPEG, BMP, TGA and kin,
    /// float channels for .hdr. desiredChannels (1 to 4) converts to that many,
    /// 0 keeps the file's. Throws std::runtime_error
    /// "Cannot load image file <path>: <reason>".
    static ImageData LoadFile(std::string const& path, int desiredChannels = 4);

protected:
    Texture() = default;
};

} // namespace nerox::graphics
