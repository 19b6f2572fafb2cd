// The bindless texture table: indices from 0, files loaded by path, clearing.
#include "RendererFixture.hpp"

#include "nerox/graphics/ImageTexture.hpp"
#include "nerox/graphics/Texture.hpp"

#include <cstdio>
#include <tuple>

namespace rendertest {
namespace {

using nerox::graphics::ImageTexture;
using nerox::graphics::TextureRef;

class TextureTable : public RendererTest {
protected:
    std::shared_ptr<ImageTexture> Solid(uint8_t red) {
        std::vector<uint8_t> pixels(4 * 4 * 4, 255);
        for (size_t i = 0; i < pixels.size(); i += 4) pixels[i] = red;
        return std::make_shared<ImageTexture>(renderer->GetDevice(), 4, 4, VK_FORMAT_R8G8B8A8_UNORM, pixels.data(),
                                              pixels.size(), "solid");
    }
};

TEST_F(TextureTable, IndicesCountFromZeroAndStartAgainAfterClearing) {
    EXPECT_EQ(renderer->AddTexture(Solid(1)), 0u);
    EXPECT_EQ(renderer->AddTexture(Solid(2), renderer->DefaultSampler()), 1u);
    std::vector<std::tuple<TextureRef, VkSampler>> three;
    for (uint8_t i = 3; i < 6; ++i) three.emplace_back(Solid(i), VK_NULL_HANDLE);
    EXPECT_EQ(renderer->AddTextures(three), 2u) << "the index of the first added";
    EXPECT_EQ(renderer->TextureCount(), 5u);
    EXPECT_NE(renderer->GetTexture(4), nullptr);
    EXPECT_EQ(renderer->GetTexture(5), nullptr);
    renderer->ClearTextures();
    EXPECT_EQ(renderer->TextureCount(), 0u);
    EXPECT_EQ(renderer->AddTexture(Solid(7)), 0u);
    EXPECT_EQ(renderer->AddTextures({}), 1u) << "nothing added: the next index";
}

TEST_F(TextureTable, TexturesSurviveFramesThatUseTheTable) {
    renderer->StartRendering();
    renderer->AddTexture(Solid(1));
    renderer->Frame();
    renderer->AddTexture(Solid(2)); // while the last frame may still run
    renderer->Frame();
    renderer->ClearTextures();
    renderer->Frame();
    EXPECT_EQ(renderer->TextureCount(), 0u);
}

TEST_F(TextureTable, APathIsLoadedFromItsImageFile) {
    std::string const path = TempPath("texture.png");
    std::vector<uint8_t> pixels = {255, 0, 0, 255, 0, 255, 0, 255, 0, 0, 255, 255, 9, 9, 9, 128};
    ASSERT_TRUE(nerox::graphics::Texture::SaveFile(path, 2, 2, 4, false, pixels.data(), 90));
    EXPECT_EQ(renderer->AddTexture(TextureRef(path)), 0u);
    auto const texture = std::dynamic_pointer_cast<ImageTexture>(renderer->GetTexture(0));
    ASSERT_NE(texture, nullptr);
    EXPECT_EQ(texture->GetImage().Width(), 2u);
    EXPECT_EQ(texture->GetImage().Format(), VK_FORMAT_R8G8B8A8_UNORM);
    std::remove(path.c_str());
}

TEST_F(TextureTable, AMissingFileIsAClearErrorAndTakesNoIndex) {
    try {
        renderer->AddTexture(TextureRef("no/such/texture.png"));
        ADD_FAILURE() << "added";
    } catch (std::runtime_error const& error) {
        EXPECT_NE(std::string(error.what()).find("no/such/texture.png"), std::string::npos) << error.what();
    }
    EXPECT_EQ(renderer->TextureCount(), 0u);
    EXPECT_EQ(renderer->AddTexture(Solid(1)), 0u);
}

TEST_F(TextureTable, ABatchWithAnUnreadableFileAddsNothing) {
    renderer->AddTexture(Solid(1));
    std::vector<std::tuple<TextureRef, VkSampler>> batch;
    batch.emplace_back(Solid(2), VK_NULL_HANDLE);
    batch.emplace_back(TextureRef("no/such/file.png"), VK_NULL_HANDLE);
    EXPECT_THROW(renderer->AddTextures(batch), std::runtime_error);
    EXPECT_EQ(renderer->TextureCount(), 1u);
    EXPECT_EQ(renderer->AddTexture(Solid(3)), 1u);
}

TEST_F(TextureTable, PixelsMustMatchTheSize) {
    std::vector<uint8_t> pixels(10);
    EXPECT_THROW(ImageTexture(renderer->GetDevice(), 4, 4, VK_FORMAT_R8G8B8A8_UNORM, pixels.data(), pixels.size(), "short"),
                 std::runtime_error);
    EXPECT_THROW(ImageTexture(renderer->GetDevice(), 1, 1, VK_FORMAT_R8G8B8A8_UNORM, nullptr, 4, "null"),
                 std::runtime_error);
    EXPECT_THROW(ImageTexture(renderer->GetDevice(), 0, 4, VK_FORMAT_R8G8B8A8_UNORM, pixels.data(), 0, "empty"),
                 std::runtime_error);
    EXPECT_THROW(ImageTexture(renderer->GetDevice(), 1, 1, VK_FORMAT_D32_SFLOAT, pixels.data(), 4, "depth"),
                 std::runtime_error);
}

} // namespace
} // namespace rendertest
