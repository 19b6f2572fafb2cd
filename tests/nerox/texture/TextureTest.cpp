// Image files: what SaveFile writes, LoadFile reads back; refusals are clean.
#include "nerox/graphics/Texture.hpp"
#include "support/Golden.hpp"
#include "support/TempDir.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using nerox::graphics::ImageData;
using nerox::graphics::Texture;
using testing::StartsWith;
using testing::ThrowsMessage;

TEST(ImageFiles, PngKeepsEveryChannelCountExactlyAndJpegItsSize) {
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
        EXPECT_EQ(Texture::LoadFile(path, 4).pixels.size(), 3u * 2u * 4u);
    }
    std::vector<unsigned char> grey(16 * 8 * 3, 200);
    ASSERT_TRUE(Texture::SaveFile(dir.File("photo.JPG"), 16, 8, 3, false, grey.data(), 500)) << "quality is clamped";
    ImageData const photo = Texture::LoadFile(dir.File("photo.JPG"), 3);
    EXPECT_EQ(std::vector<int>({photo.width, photo.height}), std::vector<int>({16, 8}));
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
    EXPECT_FALSE(Texture::SaveFile(path, 1, 1, 4, true, pixels.data(), 0));
    EXPECT_FALSE(Texture::SaveFile(dir.File("bytes.hdr"), 1, 1, 4, false, pixels.data(), 0));
    EXPECT_FALSE(Texture::SaveFile("/no/such/folder/x.png", 2, 2, 4, false, pixels.data(), 0));
    std::string said = testing::internal::GetCapturedStderr();
    for (size_t at; (at = said.find(dir.File(""))) != std::string::npos;) said.replace(at, dir.File("").size(), "DIR/");
    testsupport::ExpectGolden(said, "nerox/texture/save_refusals.txt");
    EXPECT_TRUE(fs::is_empty(dir.File("")));
    testsupport::WriteText(dir.File("garbage.png"), "this is not an image");
    std::string const prefix = "Cannot load image file " + dir.File("");
    auto const load = [&](char const* name, int channels) { Texture::LoadFile(dir.File(name), channels); };
    EXPECT_THAT([&] { load("missing.png", 0); },
                ThrowsMessage<std::runtime_error>(prefix + "missing.png: no such file"));
    EXPECT_THAT([&] { load("garbage.png", 0); },
                ThrowsMessage<std::runtime_error>(StartsWith(prefix + "garbage.png: ")))
        << "stb's reason follows";
    EXPECT_THAT([&] { load("garbage.png", 7); },
                ThrowsMessage<std::runtime_error>(prefix + "garbage.png: 7 channels asked for"));
}

} // namespace
