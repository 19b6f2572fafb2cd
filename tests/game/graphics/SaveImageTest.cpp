// Screenshots of GPU images in each supported format, read back from the file.
#include "GameRendererFixture.hpp"

#include "nerox/graphics/Texture.hpp"
#include "nerox/vk/Buffer.hpp"
#include "nerox/vk/CommandBuffer.hpp"
#include "nerox/vk/Image.hpp"

#include <gmock/gmock.h>

#include <cstring>
#include <filesystem>
#include <vector>

namespace rendertest {
namespace {

class SaveImageTest : public GameRendererTest {
protected:
    // An image of format with pixels copied in, left in TRANSFER_DST_OPTIMAL.
    std::unique_ptr<nerox::vk::Image> Upload(VkFormat format, uint32_t width, uint32_t height, void const* pixels,
                                             size_t bytes)
    {
        nerox::vk::Device& device = renderer->GetDevice();
        auto image = std::make_unique<nerox::vk::Image>(device, width, height, format,
                                                        VK_IMAGE_USAGE_TRANSFER_SRC_BIT | VK_IMAGE_USAGE_TRANSFER_DST_BIT,
                                                        "SaveImage test image");
        nerox::vk::Buffer staging(device, bytes, VK_BUFFER_USAGE_TRANSFER_SRC_BIT, nerox::vk::MemoryUsage::CpuToGpu,
                                  nerox::vk::AllocationMapped | nerox::vk::AllocationHostAccessSequentialWrite,
                                  "SaveImage test staging");
        std::memcpy(staging.Map(), pixels, bytes);
        nerox::vk::CommandBuffer::Run(
            device, device.GraphicsQueue(),
            [&](VkCommandBuffer commands) {
                image->Transition(commands, VK_IMAGE_LAYOUT_UNDEFINED, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL);
                VkBufferImageCopy region{};
                region.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
                region.imageExtent = {width, height, 1};
                vkCmdCopyBufferToImage(commands, staging, *image, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, 1, &region);
            },
            "SaveImage test upload");
        return image;
    }

    // Two rows of three pixels, RGBA, with alpha below full.
    static constexpr unsigned char rgba[6 * 4] = {
        255, 0,   0,   10,  0,  255, 0,   20,  0,  0,   255, 30, //
        10,  20,  30,  40,  50, 60,  70,  80,  90, 100, 110, 120,
    };
};

TEST_F(SaveImageTest, Rgba8KeepsAlphaUnlessOpaque)
{
    Make();
    auto image = Upload(VK_FORMAT_R8G8B8A8_UNORM, 3, 2, rgba, sizeof rgba);
    std::string const path = scratch.File("rgba.png");
    ASSERT_TRUE(renderer->SaveImage(*image, {0, 0}, {3, 2}, VK_FORMAT_R8G8B8A8_UNORM,
                                    VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, path, 90, false));
    nerox::graphics::ImageData saved = nerox::graphics::Texture::LoadFile(path, 4);
    ASSERT_EQ(saved.width, 3);
    ASSERT_EQ(saved.height, 2);
    EXPECT_EQ(saved.pixels, std::vector<unsigned char>(rgba, rgba + sizeof rgba));

    // Opaque, and only the lower right 2x1 pixels.
    ASSERT_TRUE(renderer->SaveImage(*image, {1, 1}, {2, 1}, VK_FORMAT_R8G8B8A8_UNORM,
                                    VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, path, 90, true));
    saved = nerox::graphics::Texture::LoadFile(path, 4);
    ASSERT_EQ(saved.width, 2);
    ASSERT_EQ(saved.height, 1);
    EXPECT_EQ(saved.pixels, (std::vector<unsigned char>{50, 60, 70, 255, 90, 100, 110, 255}));
}

TEST_F(SaveImageTest, Bgra8IsSwappedIntoRgb)
{
    Make();
    // The same colours stored blue first, as swapchains have them.
    unsigned char bgra[sizeof rgba];
    for (size_t i = 0; i < 6; ++i) {
        bgra[i * 4 + 0] = rgba[i * 4 + 2];
        bgra[i * 4 + 1] = rgba[i * 4 + 1];
        bgra[i * 4 + 2] = rgba[i * 4 + 0];
        bgra[i * 4 + 3] = rgba[i * 4 + 3];
    }
    auto image = Upload(VK_FORMAT_B8G8R8A8_UNORM, 3, 2, bgra, sizeof bgra);
    std::string const path = scratch.File("bgra.png");
    ASSERT_TRUE(renderer->SaveImage(*image, {0, 0}, {3, 2}, VK_FORMAT_B8G8R8A8_UNORM,
                                    VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, path, 90, true));
    nerox::graphics::ImageData saved = nerox::graphics::Texture::LoadFile(path, 4);
    ASSERT_EQ(saved.pixels.size(), sizeof rgba);
    for (size_t i = 0; i < 6; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(saved.pixels[i * 4 + 0], rgba[i * 4 + 0]);
        EXPECT_EQ(saved.pixels[i * 4 + 1], rgba[i * 4 + 1]);
        EXPECT_EQ(saved.pixels[i * 4 + 2], rgba[i * 4 + 2]);
        EXPECT_EQ(saved.pixels[i * 4 + 3], 255);
    }
}

TEST_F(SaveImageTest, Rgba32FloatGoesToRadianceHdr)
{
    Make();
    float const pixels[2 * 4] = {0.5f, 1.0f, 2.0f, 0.25f, 8.0f, 0.125f, 0.0f, 0.5f};
    auto image = Upload(VK_FORMAT_R32G32B32A32_SFLOAT, 2, 1, pixels, sizeof pixels);
    std::string const path = scratch.File("float.hdr");
    ASSERT_TRUE(renderer->SaveImage(*image, {0, 0}, {2, 1}, VK_FORMAT_R32G32B32A32_SFLOAT,
                                    VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, path, 0, true));
    nerox::graphics::ImageData saved = nerox::graphics::Texture::LoadFile(path, 3);
    ASSERT_TRUE(saved.isFloat);
    ASSERT_EQ(saved.pixels.size(), 2 * 3 * sizeof(float));
    float read[6];
    std::memcpy(read, saved.pixels.data(), sizeof read);
    // Radiance files share one exponent per pixel: exact for these powers of two.
    EXPECT_THAT(read, ::testing::ElementsAre(0.5f, 1.0f, 2.0f, 8.0f, 0.125f, 0.0f));
}

TEST_F(SaveImageTest, NarrowFormatsKeepTheirChannels)
{
    Make();
    // R8 and R8G8 go to grey and grey-alpha PNG files.
    unsigned char const r8[3] = {0, 128, 255};
    auto grey = Upload(VK_FORMAT_R8_UNORM, 3, 1, r8, sizeof r8);
    std::string const greyPath = scratch.File("r8.png");
    ASSERT_TRUE(renderer->SaveImage(*grey, {0, 0}, {3, 1}, VK_FORMAT_R8_UNORM, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL,
                                    greyPath, 90, true));
    nerox::graphics::ImageData saved = nerox::graphics::Texture::LoadFile(greyPath, 0);
    EXPECT_EQ(saved.channels, 1);
    EXPECT_EQ(saved.pixels, (std::vector<unsigned char>{0, 128, 255}));

    unsigned char const rg8[4] = {10, 20, 30, 40};
    auto twoChannels = Upload(VK_FORMAT_R8G8_UNORM, 2, 1, rg8, sizeof rg8);
    std::string const rgPath = scratch.File("rg8.png");
    ASSERT_TRUE(renderer->SaveImage(*twoChannels, {0, 0}, {2, 1}, VK_FORMAT_R8G8_UNORM,
                                    VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, rgPath, 90, true)); // opaque: no alpha to set
    saved = nerox::graphics::Texture::LoadFile(rgPath, 0);
    EXPECT_EQ(saved.channels, 2);
    EXPECT_EQ(saved.pixels, (std::vector<unsigned char>{10, 20, 30, 40}));

    // R32 and R32G32 go to Radiance files, which hold the first channel as grey.
    float const r32[3] = {0.25f, 4.0f, 1.0f};
    auto single = Upload(VK_FORMAT_R32_SFLOAT, 3, 1, r32, sizeof r32);
    std::string const r32Path = scratch.File("r32.hdr");
    ASSERT_TRUE(renderer->SaveImage(*single, {0, 0}, {3, 1}, VK_FORMAT_R32_SFLOAT,
                                    VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, r32Path, 0, false));
    saved = nerox::graphics::Texture::LoadFile(r32Path, 1);
    ASSERT_EQ(saved.pixels.size(), sizeof r32);
    float read[3];
    std::memcpy(read, saved.pixels.data(), sizeof read);
    EXPECT_THAT(read, ::testing::ElementsAre(0.25f, 4.0f, 1.0f));

    float const rg32[4] = {2.0f, 9.0f, 0.5f, 9.0f};
    auto pairs = Upload(VK_FORMAT_R32G32_SFLOAT, 2, 1, rg32, sizeof rg32);
    std::string const rg32Path = scratch.File("rg32.hdr");
    ASSERT_TRUE(renderer->SaveImage(*pairs, {0, 0}, {2, 1}, VK_FORMAT_R32G32_SFLOAT,
                                    VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, rg32Path, 0, false));
    saved = nerox::graphics::Texture::LoadFile(rg32Path, 1);
    ASSERT_EQ(saved.pixels.size(), 2 * sizeof(float));
    float readPairs[2];
    std::memcpy(readPairs, saved.pixels.data(), sizeof readPairs);
    EXPECT_THAT(readPairs, ::testing::ElementsAre(2.0f, 0.5f)); // 8 bytes a pixel: the second pixel's red
}

TEST_F(SaveImageTest, TheFramesOutputCanBeSaved)
{
    GameRenderer& r = Make();
    r.clearColor = VkClearColorValue{{1.0f, 0.0f, 0.0f, 1.0f}};
    r.StartRendering();
    r.Frame();
    std::string const path = scratch.File("frame.png");
    ASSERT_TRUE(r.SaveImage(r.GetOutputVkImage(), {0, 0}, r.GetOutputImageExtent(), r.GetOutputImageFormat(),
                            VK_IMAGE_LAYOUT_GENERAL, path, 90, true));
    nerox::graphics::ImageData saved = nerox::graphics::Texture::LoadFile(path, 4);
    ASSERT_EQ(saved.width, 64);
    ASSERT_EQ(saved.height, 48);
    EXPECT_EQ(saved.pixels[0], 255);
    EXPECT_EQ(saved.pixels[1], 0);
    r.Frame(); // the output is still usable
}

TEST_F(SaveImageTest, OtherFormatsAndEmptyAreasWriteNothing)
{
    Make();
    auto image = Upload(VK_FORMAT_R8G8B8A8_UNORM, 3, 2, rgba, sizeof rgba);
    std::string const path = scratch.File("never.png");
    EXPECT_FALSE(renderer->SaveImage(*image, {0, 0}, {3, 2}, VK_FORMAT_R16G16B16A16_SFLOAT,
                                     VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, path, 90, false));
    EXPECT_FALSE(renderer->SaveImage(*image, {0, 0}, {0, 2}, VK_FORMAT_R8G8B8A8_UNORM,
                                     VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, path, 90, false));
    EXPECT_FALSE(renderer->SaveImage(*image, {-1, 0}, {1, 1}, VK_FORMAT_R8G8B8A8_UNORM,
                                     VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, path, 90, false));
    EXPECT_FALSE(renderer->SaveImage(*image, {0, 0}, {3, 2}, VK_FORMAT_R8G8B8A8_UNORM, VK_IMAGE_LAYOUT_UNDEFINED, path,
                                     90, false));
    renderer->StartRendering();
    renderer->Frame();
    EXPECT_FALSE(renderer->SaveImage(renderer->GetOutputVkImage(), {1, 0}, renderer->GetOutputImageExtent(),
                                     renderer->GetOutputImageFormat(), VK_IMAGE_LAYOUT_GENERAL, path, 90, false));
    EXPECT_FALSE(std::filesystem::exists(path));
    // A file the encoder cannot write is its failure.
    EXPECT_FALSE(renderer->SaveImage(*image, {0, 0}, {3, 2}, VK_FORMAT_R8G8B8A8_UNORM,
                                     VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, scratch.File("no/such/folder.png"), 90,
                                     false));
}

} // namespace
} // namespace rendertest
