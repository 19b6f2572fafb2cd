#pragma once
// A texture whose pixels change while the game runs: any thread hands it a
// frame, and the frame reaches the device in the commands of the next frame
// rendered, without either side waiting for the other.
#include "nerox/VulkanEngine.hpp"
#include "nerox/graphics/Texture.hpp"
#include "nerox/vk/Buffer.hpp"
#include "nerox/vk/Image.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace nerox::graphics {

/// A sampled 8-bit RGBA texture of a fixed size, filled by Load.
///
/// Pixels are four bytes each in the order red, green, blue, alpha (a 32-bit
/// word with red in its low byte, as a pixel screen stores it, on a
/// little-endian machine), in rows from the top with no padding between rows.
/// Colours are sRGB-encoded, as in image files and web pages; shaders sample
/// them linear (VK_FORMAT_R8G8B8A8_SRGB). Load takes two kinds of frame:
///
///   whole frame   exactly Bytes() bytes: Width() x Height() pixels.
///   region frame  RegionHeaderBytes of header, then the pixels of a rectangle
///                 that replaces that part of the image:
///                   4 bytes  the characters "NXR1"
///                   4 bytes  x of the rectangle's left column    } unsigned,
///                   4 bytes  y of its top row                    } native
///                   4 bytes  its width in pixels                 } byte
///                   4 bytes  its height in rows                  } order
///                   width x height pixels
///                 The rectangle is not empty and lies inside the image, and
///                 the frame's size is exactly the header and those pixels.
///                 A frame of exactly Bytes() bytes is always whole: a sender
///                 whose region frame would come to that size sends the whole
///                 image instead.
///
/// A large image thus goes in parts that each fit a small buffer (the webview
/// program sends the bands of rows that changed), and the parts add up.
///
/// Load copies the frame into the newest image and asks for one Push through
/// the schedule function given at construction (a renderer's push list); Push,
/// on the render thread, copies that image to a staging buffer of its own and
/// records the upload. Frames loaded faster than they are pushed all reach
/// the image, and the device gets it as it stands at the Push. At most one
/// Push per frame uploads, so the staging buffer it writes was last read
/// FramesInFlight frames before, whose commands are done.
///
/// The texture must be owned by a std::shared_ptr (the push list holds it), and
/// nothing but its schedule function should put it on the push list.
class DynamicAsyncTexture : public Texture, public std::enable_shared_from_this<DynamicAsyncTexture> {
public:
    /// Puts the texture on a renderer's push list for the next frame.
    using Schedule = std::function<void(std::shared_ptr<Texture>)>;

    /// width x height pixels on engine's device, cleared to transparent black
    /// (waits once for the clear). Throws std::runtime_error for an empty size
    /// or a null engine.
    DynamicAsyncTexture(nerox::VulkanEngine* engine, unsigned int width, unsigned int height, Schedule schedule,
                        std::string name = "DynamicAsyncTexture");
    ~DynamicAsyncTexture() override;

    /// Bytes of a region frame's header.
    static constexpr size_t RegionHeaderBytes = 20;

    /// Takes a whole or region frame of size bytes (see the formats above)
    /// from any thread. A frame that is neither is refused: false, with one
    /// line on the standard error stream, and the texture keeps what it shows.
    bool Load(void const* data, size_t size);
    /// For the push list: records the upload of the newest frame loaded since
    /// the last Push, if any.
    void Push(VkCommandBuffer commandBuffer) override;
    VkImageView GetImageView() const override { return _image.View(); }
    /// Always VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL between frames' uploads.
    VkImageLayout GetImageLayout() const override { return VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL; }

    unsigned int Width() const { return _image.Width(); }   ///< Pixels per row.
    unsigned int Height() const { return _image.Height(); } ///< Rows.
    /// Bytes of one frame.
    size_t Bytes() const { return static_cast<size_t>(Width()) * Height() * 4; }
    /// The image, for copies.
    vk::Image const& GetImage() const { return _image; }
    /// Frames uploaded so far (render thread).
    uint64_t Uploads() const { return _uploads; }
    /// Its debug name.
    std::string const& Name() const { return _name; }

private:
    using Staging = vk::MappedBuffer<unsigned char, 2, vk::AllocationHostAccessSequentialWrite>;

    std::string _name;
    Schedule _schedule;
    vk::Image _image;
    std::vector<std::unique_ptr<Staging>> _staging; // one per frame in flight; render thread only
    size_t _nextStaging = 0;                        // render thread only
    uint64_t _uploads = 0;                          // render thread only

    std::mutex _mutex;                   // guards the three below
    std::vector<unsigned char> _pending; // the image as the frames loaded left it
    bool _fresh = false;                 // _pending changed since the last Push
    bool _scheduled = false;             // a Push is on its way
};

} // namespace nerox::graphics
