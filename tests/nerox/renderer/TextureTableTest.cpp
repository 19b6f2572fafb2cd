// The bindless texture table: indices from 0, files loaded by path, its size and refusals.
#include "RendererFixture.hpp"

#include "nerox/graphics/ImageTexture.hpp"
#include "nerox/graphics/Texture.hpp"

#include <cstdio>
#include <tuple>

namespace rendertest {
namespace {

using nerox::graphics::ImageTexture;
using nerox::graphics::TextureRef;
using Entries = std::vector<std::tuple<TextureRef, VkSampler>>;

class TextureTable : public RendererTest {
protected:
    std::shared_ptr<ImageTexture> Solid(uint8_t red) {
        std::vector<uint8_t> pixels(4 * 4 * 4, 255);
        for (size_t i = 0; i < pixels.size(); i += 4) pixels[i] = red;
        return std::make_shared<ImageTexture>(renderer->GetDevice(), 4, 4, VK_FORMAT_R8G8B8A8_UNORM, pixels.data(),
                                              pixels.size(), "solid");
    }
    /// The message of the std::runtime_error that adding entries throws.
    std::string AddError(Entries const& entries) {
        try {
            renderer->AddTextures(entries);
        } catch (std::runtime_error const& error) {
            return error.what();
        }
        return "added";
    }
};

TEST_F(TextureTable, IndicesCountFromZeroAndStartAgainAfterClearing) {
    EXPECT_EQ(renderer->AddTexture(Solid(1)), 0u);
    EXPECT_EQ(renderer->AddTexture(Solid(2), renderer->DefaultSampler()), 1u);
    EXPECT_EQ(renderer->AddTextures(Entries(3, {Solid(3), VK_NULL_HANDLE})), 2u) << "the index of the first added";
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
    std::remove(path.c_str());
    auto const texture = std::dynamic_pointer_cast<ImageTexture>(renderer->GetTexture(0));
    ASSERT_NE(texture, nullptr);
    EXPECT_EQ(texture->GetImage().Width(), 2u);
    EXPECT_EQ(texture->GetImage().Format(), VK_FORMAT_R8G8B8A8_UNORM);
}

TEST_F(TextureTable, UnreadableFilesAndAFullTableAreRefusedAndAddNothing) {
    uint32_t const capacity = renderer->TextureCapacity();
    EXPECT_LE(capacity, nerox::renderer::NeroxRenderer::MaxTextures);
    EXPECT_GE(capacity, 16u);
    EXPECT_NE(AddError({{TextureRef("no/such/texture.png"), VK_NULL_HANDLE}}).find("no/such/texture.png"),
              std::string::npos);
    renderer->AddTexture(Solid(1));
    EXPECT_NE(AddError({{Solid(2), VK_NULL_HANDLE}, {TextureRef("no/such/file.png"), VK_NULL_HANDLE}}), "added");
    EXPECT_EQ(AddError(Entries(capacity, {Solid(3), VK_NULL_HANDLE})),
              "Texture table is full: " + std::to_string(capacity) + " more do not fit in " + std::to_string(capacity));
    EXPECT_EQ(renderer->TextureCount(), 1u);
    EXPECT_EQ(renderer->AddTextures(Entries(capacity - 1, {Solid(4), VK_NULL_HANDLE})), 1u) << "full to the last entry";
    try {
        renderer->AddTexture(Solid(5));
        ADD_FAILURE() << "added";
    } catch (std::runtime_error const& error) {
        EXPECT_EQ(error.what(), "Texture table is full: " + std::to_string(capacity) + " entries");
    }
    EXPECT_EQ(renderer->TextureCount(), capacity);
}

TEST_F(TextureTable, PixelsMustMatchTheSize) {
    std::vector<uint8_t> pixels(10);
    nerox::vk::Device& device = renderer->GetDevice();
    EXPECT_THROW(ImageTexture(device, 4, 4, VK_FORMAT_R8G8B8A8_UNORM, pixels.data(), pixels.size(), "short"),
                 std::runtime_error);
    EXPECT_THROW(ImageTexture(device, 1, 1, VK_FORMAT_R8G8B8A8_UNORM, nullptr, 4, "null"), std::runtime_error);
    EXPECT_THROW(ImageTexture(device, 0, 4, VK_FORMAT_R8G8B8A8_UNORM, pixels.data(), 0, "empty"), std::runtime_error);
    EXPECT_THROW(ImageTexture(device, 1, 1, VK_FORMAT_D32_SFLOAT, pixels.data(), 4, "depth"), std::runtime_error);
}

} // namespace
} // namespace rendertest
