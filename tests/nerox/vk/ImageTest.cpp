// Images and samplers: an image cleared on the device reads back as the colour.
#include "VkFixture.hpp"

#include "nerox/vk/Buffer.hpp"
#include "nerox/vk/CommandBuffer.hpp"
#include "nerox/vk/Image.hpp"

namespace vktest {
namespace {

using nerox::vk::CommandBuffer;
using nerox::vk::Image;
using nerox::vk::MappedBuffer;
using nerox::vk::Sampler;
using nerox::vk::SamplerOptions;

using VkImages = VkTest;

TEST_F(VkImages, AClearedImageCopiesBackAsItsColour) {
    Image image(Dev(), 8, 4, VK_FORMAT_R8G8B8A8_UNORM, VK_IMAGE_USAGE_TRANSFER_DST_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT,
                "cleared");
    EXPECT_EQ(image.Extent().width, 8u);
    EXPECT_EQ(image.Extent().height, 4u);
    EXPECT_EQ(image.View(), VK_NULL_HANDLE) << "transfer-only: no view";
    MappedBuffer<uint32_t, 4, 0x800> pixels(Dev(), 32, VK_BUFFER_USAGE_TRANSFER_DST_BIT, "pixels");
    ASSERT_TRUE(CommandBuffer::Run(Dev(), Dev().GraphicsQueue(), [&](VkCommandBuffer commands) {
        image.Transition(commands, VK_IMAGE_LAYOUT_UNDEFINED, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL);
        VkClearColorValue colour{};
        colour.float32[0] = 1.0f;
        colour.float32[1] = 0.0f;
        colour.float32[2] = 1.0f;
        colour.float32[3] = 1.0f;
        VkImageSubresourceRange range{VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
        vkCmdClearColorImage(commands, image, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, &colour, 1, &range);
        image.Transition(commands, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL);
        VkBufferImageCopy copy{};
        copy.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
        copy.imageExtent = {8, 4, 1};
        vkCmdCopyImageToBuffer(commands, image, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL, pixels, 1, &copy);
    }, "clear and copy"));
    for (size_t i = 0; i < 32; ++i) EXPECT_EQ(pixels[i], 0xFFFF00FFu) << i; // R, G, B, A bytes: FF 00 FF FF
}

TEST_F(VkImages, SamplersTakeTheirOptions) {
    Sampler nearest(Dev());
    SamplerOptions linear;
    linear.magFilter = linear.minFilter = VK_FILTER_LINEAR;
    linear.addressModeU = linear.addressModeV = VK_SAMPLER_ADDRESS_MODE_CLAMP_TO_EDGE;
    linear.maxAnisotropy = 16.0f; // not enabled on the test device: quietly off
    Sampler clamped(Dev(), linear, "linear clamp");
    EXPECT_NE(static_cast<VkSampler>(nearest), VK_NULL_HANDLE);
    EXPECT_NE(static_cast<VkSampler>(clamped), static_cast<VkSampler>(nearest));
}

} // namespace
} // namespace vktest
