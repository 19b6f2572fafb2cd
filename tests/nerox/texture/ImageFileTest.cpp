// Image files: what SaveFile writes, LoadFile reads back; refusals are clean.
#include "nerox/graphics/Texture.hpp"
#include "nerox/renderer/Upscaler.hpp"
#include "support/TempDir.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using nerox::graphics::ImageData;
using nerox::graphics::Texture;

TEST(ImageFiles, PngKeepsEveryChannelCountExactly) {
    testsupport::TempDir dir;
    for (int channels = 1; channels <= 4; ++channels) {
        std::vector<unsigned char> pixels(3 * 2 * channels);
        for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<unsigned char>(i * 37 + channels);
        std::string const path = dir.File("c" + std::to_string(channels) + ".png");
        ASSERT_TRUE(Texture::SaveFile(path, 3, 2, channels, false, pixels.data(), 0));
        ImageData const back = Texture::LoadFile(path, 0);
        EXPECT_EQ(std::vector<int>({back.width, back.height, back.channels, back.isFloat}),
                  std::vector<int>({3, 2, channels, 0}));
        EXPECT_EQ(back.pixels, pixels) << channels << " channels";
        ImageData const rgba = Texture::LoadFile(path, 4);
        EXPECT_EQ(rgba.channels, 4);
        EXPECT_EQ(rgba.pixels.size(), 3u * 2u * 4u);
    }
}

TEST(ImageFiles, HdrKeepsFloatsWithinItsPrecisionAndJpegItsSize) {
    testsupport::TempDir dir;
    std::vector<float> pixels = {0.5f, 1.0f, 2.0f, 100.0f, 0.25f, 0.125f, 3.0f, 7.5f, 0.0f, 1.5f, 6.0f, 0.75f};
    ASSERT_TRUE(Texture::SaveFile(dir.File("light.hdr"), 2, 2, 3, true, pixels.data(), 0));
    ImageData const back = Texture::LoadFile(dir.File("light.hdr"), 3);
    ASSERT_TRUE(back.isFloat);
    ASSERT_EQ(back.pixels.size(), pixels.size() * sizeof(float));
    float const* read = reinterpret_cast<float const*>(back.pixels.data());
    for (size_t i = 0; i < pixels.size(); ++i) {
        // RGBE keeps 8 bits of mantissa against the pixel's largest channel.
        float const largest = std::max({pixels[i / 3 * 3], pixels[i / 3 * 3 + 1], pixels[i / 3 * 3 + 2]});
        EXPECT_NEAR(read[i], pixels[i], largest / 128.0f) << i;
    }
    std::vector<unsigned char> grey(16 * 8 * 3, 200);
    ASSERT_TRUE(Texture::SaveFile(dir.File("photo.JPG"), 16, 8, 3, false, grey.data(), 500)) << "quality is clamped";
    ImageData const photo = Texture::LoadFile(dir.File("photo.JPG"), 3);
    EXPECT_EQ(photo.width, 16);
    EXPECT_EQ(photo.height, 8);
    EXPECT_NEAR(photo.pixels[0], 200, 3);
}

TEST(ImageFiles, BadRequestsAreRefusedWithoutWritingAndUnreadableFilesThrowWithTheirPath) {
    testsupport::TempDir dir;
    std::vector<unsigned char> pixels(64, 1);
    std::string const path = dir.File("refused.png");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(Texture::SaveFile(path, 2, 2, 4, false, nullptr, 0));
    EXPECT_FALSE(Texture::SaveFile(path, 0, 2, 4, false, pixels.data(), 0));
    EXPECT_FALSE(Texture::SaveFile(path, 2, -1, 4, false, pixels.data(), 0));
    EXPECT_FALSE(Texture::SaveFile(path, 2, 2, 5, false, pixels.data(), 0));
    EXPECT_FALSE(Texture::SaveFile(path, 2, 2, 0, false, pixels.data(), 0));
    EXPECT_FALSE(Texture::SaveFile(path, 1, 1, 4, true, pixels.data(), 0)) << "floats need .hdr";
    EXPECT_FALSE(Texture::SaveFile(dir.File("bytes.hdr"), 1, 1, 4, false, pixels.data(), 0));
    EXPECT_FALSE(Texture::SaveFile("/no/such/folder/x.png", 2, 2, 4, false, pixels.data(), 0));
    std::string const said = testing::internal::GetCapturedStderr();
    for (char const* part : {"5 channels", ".hdr", "/no/such/folder/x.png"})
        EXPECT_NE(said.find(part), std::string::npos) << said;
    EXPECT_TRUE(std::filesystem::is_empty(dir.File("")));

    testsupport::WriteText(dir.File("garbage.png"), "this is not an image");
    struct Case {
        std::string path;
        int channels;
        std::string message;
    } const cases[] = {{dir.File("missing.png"), 0, "Cannot load image file " + dir.File("missing.png") + ": no such file"},
                       {dir.File("garbage.png"), 0, "Cannot load image file " + dir.File("garbage.png") + ": "},
                       {dir.File("garbage.png"), 7, "Cannot load image file " + dir.File("garbage.png") + ": 7 channels asked for"}};
    for (Case const& c : cases) {
        try {
            Texture::LoadFile(c.path, c.channels);
            ADD_FAILURE() << c.path << " loaded";
        } catch (std::runtime_error const& error) {
            EXPECT_NE(std::string(error.what()).find(c.message), std::string::npos) << error.what();
        }
    }
}

TEST(Upscalers, OnlyWhatRunsIsListed) {
    using nerox::renderer::UPSCALE_ALGO;
    using nerox::renderer::Upscaler;
    EXPECT_EQ(Upscaler::GetAlgoEnumFromStr("FSR2"), UPSCALE_ALGO::NONE) << "unknown names fall back";
    EXPECT_STREQ(Upscaler::GetAlgoStrFromEnum(static_cast<UPSCALE_ALGO>(42)), "NONE");
    EXPECT_FALSE(Upscaler::IsTemporal(UPSCALE_ALGO::NONE));
    EXPECT_FALSE(Upscaler::IsSupported(static_cast<UPSCALE_ALGO>(42)));
    ASSERT_EQ(Upscaler::SupportedAlgorithms(), std::vector<UPSCALE_ALGO>{UPSCALE_ALGO::NONE});
    for (UPSCALE_ALGO algo : Upscaler::SupportedAlgorithms()) {
        EXPECT_TRUE(Upscaler::IsSupported(algo));
        EXPECT_EQ(Upscaler::GetAlgoEnumFromStr(Upscaler::GetAlgoStrFromEnum(algo)), algo);
    }
}

} // namespace
