// Screenshots of GPU images in each supported format, read back from the file.
#include "GameRendererFixture.hpp"

#include "nerox/graphics/Texture.hpp"
#include "nerox/vk/Buffer.hpp"
#include "nerox/vk/CommandBuffer.hpp"
#include "nerox/vk/Image.hpp"
#include "support/Bytes.hpp"
#include "support/Golden.hpp"

#include <cstring>
#include <filesystem>
#include <sstream>

namespace rendertest {
namespace {

using testsupport::Bytes;

template <class... T> Bytes Floats(T... values) {
    return testsupport::ByteBuilder().Raws(static_cast<float>(values)...).bytes;
}

class SaveImageTest : public GameRendererTest {
protected:
    // An image of format with pixels copied in, left in TRANSFER_DST_OPTIMAL.
    std::unique_ptr<nerox::vk::Image> Upload(VkFormat format, uint32_t width, uint32_t height, Bytes const& pixels) {
        nerox::vk::Device& device = renderer->GetDevice();
        auto image = std::make_unique<nerox::vk::Image>(
            device, width, height, format, VK_IMAGE_USAGE_TRANSFER_SRC_BIT | VK_IMAGE_USAGE_TRANSFER_DST_BIT,
            "test image");
        nerox::vk::Buffer staging(
            device, pixels.size(), VK_BUFFER_USAGE_TRANSFER_SRC_BIT, nerox::vk::MemoryUsage::CpuToGpu,
            nerox::vk::AllocationMapped | nerox::vk::AllocationHostAccessSequentialWrite, "test staging");
        std::memcpy(staging.Map(), pixels.data(), pixels.size());
        VkBufferImageCopy const region{0, 0, 0, {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1}, {0, 0, 0}, {width, height, 1}};
        nerox::vk::CommandBuffer::Run(
            device, device.GraphicsQueue(),
            [&](VkCommandBuffer commands) {
                image->Transition(commands, VK_IMAGE_LAYOUT_UNDEFINED, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL);
                vkCmdCopyBufferToImage(commands, staging, *image, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, 1, &region);
            },
            "test upload");
        return image;
    }
};

// Two rows of three pixels, RGBA, with alpha below full.
Bytes const rgba = {255, 0, 0, 10, 0, 255, 0, 20, 0, 0, 255, 30, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 110, 120};

// The colours of rgba stored blue first, as swapchains have them.
Bytes const bgra = {0, 0, 255, 10, 0, 255, 0, 20, 255, 0, 0, 30, 30, 20, 10, 40, 70, 60, 50, 80, 110, 100, 90, 120};

// Radiance files share one exponent per pixel: exact for these powers of two.
Bytes const floats = Floats(0.5, 1, 2, 0.25, 8, 0.125, 0, 0.5);

// What each file holds, read back in its own channels, is listed in save_image_formats.txt.
TEST_F(SaveImageTest, EachFormatIsWrittenWithItsChannelsAndOthersNot) {
    struct Case {
        char const* file;
        VkFormat format;
        uint32_t width, height;
        Bytes in;
        VkOffset2D offset;
        VkExtent2D extent;
        bool opaque;
    };
    Case const cases[] = {
        {"rgba.png", VK_FORMAT_R8G8B8A8_UNORM, 3, 2, rgba, {0, 0}, {3, 2}, false},
        {"corner.png", VK_FORMAT_R8G8B8A8_UNORM, 3, 2, rgba, {1, 1}, {2, 1}, true},
        {"bgra.png", VK_FORMAT_B8G8R8A8_UNORM, 3, 2, bgra, {0, 0}, {3, 2}, true},
        {"float.hdr", VK_FORMAT_R32G32B32A32_SFLOAT, 2, 1, floats, {0, 0}, {2, 1}, true},
        {"r8.png", VK_FORMAT_R8_UNORM, 3, 1, {0, 128, 255}, {0, 0}, {3, 1}, true},
        {"rg8.png", VK_FORMAT_R8G8_UNORM, 2, 1, {10, 20, 30, 40}, {0, 0}, {2, 1}, true},
        {"r32.hdr", VK_FORMAT_R32_SFLOAT, 3, 1, Floats(0.25, 4.0, 1.0), {0, 0}, {3, 1}, false},
        {"rg32.hdr", VK_FORMAT_R32G32_SFLOAT, 2, 1, Floats(2.0, 9.0, 0.5, 9.0), {0, 0}, {2, 1}, false},
    };
    Make();
    std::ostringstream listing;
    for (Case const& c : cases) {
        auto image = Upload(c.format, c.width, c.height, c.in);
        std::string const path = scratch.File(c.file);
        ASSERT_TRUE(renderer->SaveImage(*image, c.offset, c.extent, c.format, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL,
                                        path, 90, c.opaque))
            << c.file;
        nerox::graphics::ImageData saved = nerox::graphics::Texture::LoadFile(path, 0);
        listing << c.file << ": " << saved.width << "x" << saved.height << "x" << saved.channels << ":";
        for (size_t at = 0; at < saved.pixels.size(); at += saved.isFloat ? 4 : 1)
            listing << " " << (saved.isFloat ? testsupport::At<float>(saved.pixels, at) : saved.pixels[at]);
        listing << "\n";
    }
    testsupport::ExpectGolden(listing.str(), "graphics/save_image_formats.txt");
    // Other formats and areas outside the image write nothing.
    auto image = Upload(VK_FORMAT_R8G8B8A8_UNORM, 3, 2, rgba);
    std::string const path = scratch.File("never.png"), noFolder = scratch.File("no/such/folder.png");
    struct Refused {
        VkOffset2D offset;
        VkExtent2D extent;
        VkFormat format;
        VkImageLayout layout;
        std::string file;
    };
    constexpr auto dst = VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL;
    constexpr auto rgba8 = VK_FORMAT_R8G8B8A8_UNORM;
    for (Refused const& c :
         {Refused{{0, 0}, {3, 2}, VK_FORMAT_R16G16B16A16_SFLOAT, dst, path}, Refused{{0, 0}, {0, 2}, rgba8, dst, path},
          Refused{{-1, 0}, {1, 1}, rgba8, dst, path}, Refused{{0, 0}, {3, 2}, rgba8, VK_IMAGE_LAYOUT_UNDEFINED, path},
          Refused{{0, 0}, {3, 2}, rgba8, dst, noFolder}}) // the last one: the encoder's failure
        EXPECT_FALSE(renderer->SaveImage(*image, c.offset, c.extent, c.format, c.layout, c.file, 90, false))
            << c.offset.x << " " << c.extent.width << " " << c.format;
    renderer->StartRendering();
    renderer->Frame();
    EXPECT_FALSE(renderer->SaveImage(renderer->GetOutputVkImage(), {1, 0}, renderer->GetOutputImageExtent(),
                                     renderer->GetOutputImageFormat(), VK_IMAGE_LAYOUT_GENERAL, path, 90, false));
    EXPECT_FALSE(std::filesystem::exists(path));
}

} // namespace
} // namespace rendertest
