// Image files: what SaveFile writes, LoadFile reads back; refusals are clean.
#include "nerox/graphics/Texture.hpp"
#include "nerox/renderer/Upscaler.hpp"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

namespace {

using nerox::graphics::ImageData;
using nerox::graphics::Texture;

std::string Temp(std::string const& name) {
    return ::testing::TempDir() + "nerox_texture_" + std::to_string(getpid()) + "_" + name;
}

TEST(ImageFiles, PngKeepsEveryChannelCountExactly) {
    for (int channels = 1; channels <= 4; ++channels) {
        std::vector<unsigned char> pixels(3 * 2 * channels);
        for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<unsigned char>(i * 37 + channels);
        std::string const path = Temp("c" + std::to_string(channels) + ".png");
        ASSERT_TRUE(Texture::SaveFile(path, 3, 2, channels, false, pixels.data(), 0));
        ImageData const back = Texture::LoadFile(path, 0);
        EXPECT_EQ(back.width, 3);
        EXPECT_EQ(back.height, 2);
        EXPECT_EQ(back.channels, channels);
        EXPECT_FALSE(back.isFloat);
        EXPECT_EQ(back.pixels, pixels) << channels << " channels";
        ImageData const rgba = Texture::LoadFile(path, 4);
        EXPECT_EQ(rgba.channels, 4);
        EXPECT_EQ(rgba.pixels.size(), 3u * 2u * 4u);
        std::remove(path.c_str());
    }
}

TEST(ImageFiles, HdrKeepsFloatsWithinItsPrecision) {
    std::vector<float> pixels = {0.5f, 1.0f, 2.0f, 100.0f, 0.25f, 0.125f, 3.0f, 7.5f, 0.0f, 1.5f, 6.0f, 0.75f};
    std::string const path = Temp("light.hdr");
    ASSERT_TRUE(Texture::SaveFile(path, 2, 2, 3, true, pixels.data(), 0));
    ImageData const back = Texture::LoadFile(path, 3);
    ASSERT_TRUE(back.isFloat);
    ASSERT_EQ(back.pixels.size(), pixels.size() * sizeof(float));
    float const* read = reinterpret_cast<float const*>(back.pixels.data());
    for (size_t i = 0; i < pixels.size(); ++i) {
        // RGBE keeps 8 bits of mantissa against the pixel's largest channel.
        float const largest = std::max({pixels[i / 3 * 3], pixels[i / 3 * 3 + 1], pixels[i / 3 * 3 + 2]});
        EXPECT_NEAR(read[i], pixels[i], largest / 128.0f) << i;
    }
    std::remove(path.c_str());
}

TEST(ImageFiles, JpegIsWrittenAtTheGivenSize) {
    std::vector<unsigned char> pixels(16 * 8 * 3, 200);
    std::string const path = Temp("photo.JPG");
    ASSERT_TRUE(Texture::SaveFile(path, 16, 8, 3, false, pixels.data(), 500)) << "quality is clamped";
    ImageData const back = Texture::LoadFile(path, 3);
    EXPECT_EQ(back.width, 16);
    EXPECT_EQ(back.height, 8);
    EXPECT_NEAR(back.pixels[0], 200, 3);
    std::remove(path.c_str());
}

TEST(ImageFiles, BadRequestsAreRefusedWithoutWriting) {
    std::vector<unsigned char> pixels(64, 1);
    std::string const path = Temp("refused.png");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(Texture::SaveFile(path, 2, 2, 4, false, nullptr, 0));
    EXPECT_FALSE(Texture::SaveFile(path, 0, 2, 4, false, pixels.data(), 0));
    EXPECT_FALSE(Texture::SaveFile(path, 2, -1, 4, false, pixels.data(), 0));
    EXPECT_FALSE(Texture::SaveFile(path, 2, 2, 5, false, pixels.data(), 0));
    EXPECT_FALSE(Texture::SaveFile(path, 2, 2, 0, false, pixels.data(), 0));
    EXPECT_FALSE(Texture::SaveFile(path, 1, 1, 4, true, pixels.data(), 0)) << "floats need .hdr";
    EXPECT_FALSE(Texture::SaveFile(Temp("bytes.hdr"), 1, 1, 4, false, pixels.data(), 0));
    EXPECT_FALSE(Texture::SaveFile("/no/such/folder/x.png", 2, 2, 4, false, pixels.data(), 0));
    std::string const said = testing::internal::GetCapturedStderr();
    EXPECT_NE(said.find("5 channels"), std::string::npos) << said;
    EXPECT_NE(said.find(".hdr"), std::string::npos) << said;
    EXPECT_NE(said.find("/no/such/folder/x.png"), std::string::npos) << said;
    EXPECT_FALSE(std::ifstream(path).good());
}

TEST(ImageFiles, UnreadableFilesThrowWithTheirPath) {
    try {
        Texture::LoadFile(Temp("missing.png"));
        ADD_FAILURE() << "loaded";
    } catch (std::runtime_error const& error) {
        EXPECT_NE(std::string(error.what()).find("Cannot load image file"), std::string::npos);
        EXPECT_NE(std::string(error.what()).find("no such file"), std::string::npos) << error.what();
    }
    std::string const garbage = Temp("garbage.png");
    std::ofstream(garbage) << "this is not an image";
    try {
        Texture::LoadFile(garbage);
        ADD_FAILURE() << "loaded";
    } catch (std::runtime_error const& error) {
        EXPECT_NE(std::string(error.what()).find(garbage), std::string::npos) << error.what();
    }
    std::remove(garbage.c_str());
    EXPECT_THROW(Texture::LoadFile(garbage, 7), std::runtime_error);
}

TEST(Upscalers, OnlyWhatRunsIsListed) {
    using nerox::renderer::UPSCALE_ALGO;
    using nerox::renderer::Upscaler;
    EXPECT_EQ(Upscaler::GetAlgoEnumFromStr("NONE"), UPSCALE_ALGO::NONE);
    EXPECT_EQ(Upscaler::GetAlgoEnumFromStr("FSR2"), UPSCALE_ALGO::NONE) << "unknown names fall back";
    EXPECT_STREQ(Upscaler::GetAlgoStrFromEnum(UPSCALE_ALGO::NONE), "NONE");
    EXPECT_STREQ(Upscaler::GetAlgoStrFromEnum(static_cast<UPSCALE_ALGO>(42)), "NONE");
    EXPECT_FALSE(Upscaler::IsTemporal(UPSCALE_ALGO::NONE));
    EXPECT_TRUE(Upscaler::IsSupported(UPSCALE_ALGO::NONE));
    EXPECT_FALSE(Upscaler::IsSupported(static_cast<UPSCALE_ALGO>(42)));
    ASSERT_EQ(Upscaler::SupportedAlgorithms().size(), 1u);
    for (UPSCALE_ALGO algo : Upscaler::SupportedAlgorithms())
        EXPECT_EQ(Upscaler::GetAlgoEnumFromStr(Upscaler::GetAlgoStrFromEnum(algo)), algo);
}

} // namespace
