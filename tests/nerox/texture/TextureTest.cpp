// Image files (what SaveFile writes, LoadFile reads back; refusals are clean) and the
// compiled shaders: every source in nerox/shaders has its SPIR-V module in the run directory.
#include "nerox/graphics/Texture.hpp"
#include "support/Golden.hpp"
#include "support/TempDir.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using nerox::graphics::ImageData;
using nerox::graphics::Texture;

TEST(ImageFiles, PngKeepsEveryChannelCountExactlyHdrItsFloatsAndJpegItsSize) {
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
    // Powers of two, which RGBE keeps exactly.
    std::vector<float> light = {0.5f, 1.0f, 2.0f, 8.0f, 0.25f, 0.125f, 4.0f, 8.0f, 0.0f, 1.0f, 16.0f, 0.5f};
    ASSERT_TRUE(Texture::SaveFile(dir.File("light.hdr"), 2, 2, 3, true, light.data(), 0));
    ImageData const back = Texture::LoadFile(dir.File("light.hdr"), 3);
    ASSERT_TRUE(back.isFloat && back.pixels.size() == light.size() * sizeof(float));
    EXPECT_EQ(std::memcmp(back.pixels.data(), light.data(), back.pixels.size()), 0);
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
    auto const load = [&](char const* name, int channels) -> std::string {
        try {
            Texture::LoadFile(dir.File(name), channels);
        } catch (std::runtime_error const& e) {
            return e.what();
        }
        return "loaded";
    };
    std::string const prefix = "Cannot load image file " + dir.File("");
    EXPECT_EQ(load("missing.png", 0), prefix + "missing.png: no such file");
    EXPECT_EQ(load("garbage.png", 0).rfind(prefix + "garbage.png: ", 0), 0u) << "stb's reason follows";
    EXPECT_EQ(load("garbage.png", 7), prefix + "garbage.png: 7 channels asked for");
}

TEST(CompiledShaders, EverySourceHasItsSpirvModule) {
    // The game's run directory sits two levels above the tests' one: build/run.
    fs::path const output = fs::path(TESSARA_TEST_RUN_DIR) / ".." / ".." / "run" / "nerox" / "shaders";
    fs::path const sources = fs::path(TESSARA_TEST_SOURCE_DIR) / ".." / "nerox" / "shaders";
    std::vector<std::string> compiled;
    for (fs::directory_entry const& entry : fs::recursive_directory_iterator(sources)) {
        std::string const extension = entry.path().extension().string();
        if (!entry.is_regular_file() || extension == ".glsl" || extension == ".h") continue; // included ones
        std::string const name = fs::relative(entry.path(), sources).string() + ".spv";
        std::string const bytes = testsupport::ReadText((output / name).string());
        ASSERT_TRUE(bytes.size() >= 20 && bytes.size() % 4 == 0) << "no whole module " << output / name;
        std::vector<uint32_t> words(bytes.size() / 4);
        std::memcpy(words.data(), bytes.data(), bytes.size());
        EXPECT_EQ(words[0], 0x07230203u) << name;
        EXPECT_GE(words[1], 0x00010600u) << name << ": Vulkan 1.3 modules are SPIR-V 1.6";
        compiled.push_back(name);
    }
    for (char const* needed : {"fullscreen.vert.spv", "blit.frag.spv"})
        EXPECT_NE(std::find(compiled.begin(), compiled.end(), needed), compiled.end()) << needed;
}

} // namespace
