#pragma once
// A texture that GPU passes write: a storage image that shaders also sample,
// always in the general layout.
#include "nerox/VulkanEngine.hpp"
#include "nerox/graphics/Texture.hpp"
#include "nerox/vk/Image.hpp"

#include <string>

namespace nerox::graphics {

/// A 2D texture written by compute (or ray-tracing) shaders through a storage
/// image and read by others through the renderer's texture table. It is made
/// cleared to zero and in VK_IMAGE_LAYOUT_GENERAL, where it stays, so writers
/// and readers need no layout changes, only barriers between them.
class ComputeTexture : public Texture {
public:
    /// width x height pixels of format on engine's device, named
    /// "ComputeTexture [<width>x<height>]". extraUsage adds image usage flags to
    /// storage, sampling and transfers (0 for none). Waits once for the clear.
    /// Throws std::runtime_error for an empty size, a null engine, or a format
    /// the device cannot store to.
    ComputeTexture(nerox::VulkanEngine* engine, unsigned int width, unsigned int height, VkFormat format,
                   unsigned int extraUsage);
    ~ComputeTexture() override;

    /// A compute texture has no source to read again: fails the assertion
    /// !"Cannot reload a compute texture".
    bool Reload() override;
    /// For the renderer's push list: records a barrier that makes what shaders
    /// wrote to the texture so far visible to every shader that reads it later.
    void Push(VkCommandBuffer commandBuffer) override;
    VkImageView GetImageView() const override { return _image.View(); }
    /// Always VK_IMAGE_LAYOUT_GENERAL.
    VkImageLayout GetImageLayout() const override { return VK_IMAGE_LAYOUT_GENERAL; }

    /// The image, for storage-image descriptors and copies.
    vk::Image const& GetImage() const { return _image; }
    /// Its debug name.
    std::string const& Name() const { return _name; }

private:
    std::string _name;
    vk::Image _image;
};

} // namespace nerox::graphics
