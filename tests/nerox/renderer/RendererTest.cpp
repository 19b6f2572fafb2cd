// The renderer base on one offscreen output for the whole program (a device is slow to make), validating.
#include "nerox/graphics/HeadlessWindow.hpp"
#include "nerox/graphics/ImageTexture.hpp"
#include "nerox/graphics/Texture.hpp"
#include "nerox/renderer/NeroxRenderer.hpp"
#include "nerox/vk/Renderpass.hpp"
#include "support/Golden.hpp"
#include "support/TempDir.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using nerox::graphics::ImageData;
using nerox::graphics::ImageTexture;
using nerox::graphics::Texture;
using nerox::graphics::TextureRef;
using Entries = std::vector<std::tuple<TextureRef, VkSampler>>;

using testing::ThrowsMessage;

class RecordingRenderer : public nerox::renderer::NeroxRenderer {
public:
    using NeroxRenderer::NeroxRenderer;
    ~RecordingRenderer() override { StopRendering(); }

    std::vector<std::string> stages;
    std::string throwIn;                         ///< Name of a stage that throws std::runtime_error.
    std::function<void(VkCommandBuffer)> render; ///< Run inside FrameRenderCommands.

    void Note(char const* stage, VkCommandBuffer commands = nullptr, bool recording = false) {
        EXPECT_TRUE(!recording || (commands != VK_NULL_HANDLE && commands == CurrentCommandBuffer())) << stage;
        stages.emplace_back(stage);
        if (throwIn == stage) throw std::runtime_error(std::string("thrown in ") + stage);
    }
    bool BeginFrame() override {
        Note("BeginFrame");
        return NeroxRenderer::BeginFrame();
    }
    void EndFrame() override {
        Note("EndFrame");
        NeroxRenderer::EndFrame();
    }
    void FrameRenderCommands(VkCommandBuffer c) override {
        if (render) render(c);
        Note("FrameRenderCommands", c, true);
    }
    void FrameCollectGarbage() override { Note("FrameCollectGarbage"); }
    void FrameUpdateDescriptorSets() override { Note("FrameUpdateDescriptorSets"); }
    void FrameBeforePost() override { Note("FrameBeforePost"); }
    void FrameInit() override { Note("FrameInit"); }
    void FrameUpdateUi() override { Note("FrameUpdateUi"); }
    void FrameBeforeUpdate() override { Note("FrameBeforeUpdate"); }
    void FrameUpdate() override { Note("FrameUpdate"); }
    void FrameBeforeRender() override { Note("FrameBeforeRender"); }
    void FrameAfterRender() override { Note("FrameAfterRender"); }
    void FrameAfterUpdate() override { Note("FrameAfterUpdate"); }
    void FramePushCommands(VkCommandBuffer c) override { Note("FramePushCommands", c, true); }
    void FrameBuildCommands(VkCommandBuffer c) override { Note("FrameBuildCommands", c, true); }
    void FrameResolveCommands(VkCommandBuffer c) override { Note("FrameResolveCommands", c, true); }
    void FrameBlitCommands(VkCommandBuffer c) override { Note("FrameBlitCommands", c, true); }
    void FramePostCommands(VkCommandBuffer c) override { Note("FramePostCommands", c, true); }
    void FrameOverlayCommands(VkCommandBuffer c) override { Note("FrameOverlayCommands", c, true); }
};

class Renderer : public ::testing::Test {
protected:
    void SetUp() override {
        errorsBefore = nerox::vk::Device::ValidationErrorCount();
        window->SetSize(64, 48);
        if (!renderer) {
            setenv("NEROX_VK_VALIDATION", "1", 1);
            renderer = std::make_unique<RecordingRenderer>(window.get(), "nerox_renderer_tests", 1,
                                                           nerox::vk::PhysicalDevice::Features{}, false);
        }
        renderer->StartRendering();
    }
    static void TearDownTestSuite() { renderer.reset(); } // before the program's statics go
    void TearDown() override {
        renderer->StopRendering();
        renderer->ClearTextures();
        renderer->stages.clear();
        renderer->throwIn.clear();
        renderer->render = nullptr;
        EXPECT_EQ(nerox::vk::Device::ValidationErrorCount(), errorsBefore)
            << "validation errors while the test ran (printed above)";
    }
    /// The last finished frame, saved and decoded again as RGBA.
    ImageData Screenshot() {
        EXPECT_TRUE(renderer->SaveOutputImage(dir.File("frame.png")));
        ImageData image = Texture::LoadFile(dir.File("frame.png"), 4);
        EXPECT_EQ(image.pixels.size(), 64u * 48u * 4u);
        return image;
    }
    std::shared_ptr<ImageTexture> Solid() {
        std::vector<uint8_t> pixels(4 * 4 * 4, 255);
        return std::make_shared<ImageTexture>(renderer->GetDevice(), 4, 4, VK_FORMAT_R8G8B8A8_UNORM, pixels.data(),
                                              pixels.size(), "solid");
    }

    uint64_t errorsBefore = 0;
    testsupport::TempDir dir;

public:
    inline static auto window = std::make_unique<nerox::graphics::HeadlessWindow>(64, 48);
    inline static std::unique_ptr<RecordingRenderer> renderer;
};

TEST_F(Renderer, OneFrameRunsEveryStageInItsOrder) {
    renderer->Frame();
    renderer->StopRendering();
    renderer->StopRendering(); // twice is harmless
    EXPECT_FALSE(renderer->IsRendering());
    renderer->stages.clear();
    renderer->StartRendering();
    EXPECT_FALSE(renderer->HasSwapchain()) << "a headless window renders offscreen";
    renderer->Frame();
    std::string order;
    for (std::string const& stage : renderer->stages) order += stage + "\n";
    testsupport::ExpectGolden(order, "nerox/renderer/frame_stages.txt");
    EXPECT_EQ(renderer->FrameIndex(), 1u) << "counted anew after a restart";
    EXPECT_EQ(renderer->CurrentCommandBuffer(), VK_NULL_HANDLE) << "no command buffer between frames";
    for (int i = 0; i < 4; ++i) renderer->Frame();
    EXPECT_TRUE(renderer->stages.size() == 5 * 19 && renderer->FrameIndex() == 5u) << "frames in flight are reused";
}

TEST_F(Renderer, TheOutputFollowsTheWindowsSizeAndAScreenshotDecodesToTheRenderedPixels) {
    ASSERT_NE(renderer->GetOutputImage(), nullptr);
    EXPECT_TRUE(renderer->GetOutputVkImage() == renderer->GetOutputImage()->Handle() &&
                renderer->GetOutputImageFormat() == VK_FORMAT_R8G8B8A8_UNORM);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(renderer->SaveOutputImage(dir.File("none.png")));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "SaveOutputImage: no finished frame to save\n");
    renderer->clearColor = VkClearColorValue{{1.0f, 0.5f, 0.0f, 1.0f}};
    renderer->CaptureNextFrame();
    renderer->Frame();
    ImageData const image = Screenshot();
    for (size_t i = 0; i < image.pixels.size(); i += 4) {
        uint8_t const* p = &image.pixels[i];
        ASSERT_TRUE(p[0] == 255 && std::abs(p[1] - 128) <= 1 && p[2] == 0 && p[3] == 255) << i << ": " << int(p[1]);
    }
    // A later frame of another colour, not captured: offscreen it is read back itself.
    renderer->clearColor = VkClearColorValue{{0.0f, 0.0f, 1.0f, 1.0f}};
    renderer->Frame();
    EXPECT_EQ(Screenshot().pixels[2], 255);
    window->SetSize(40, 30);
    renderer->Frame();
    EXPECT_EQ(std::make_pair(renderer->GetOutputImageExtent().width, renderer->GetOutputImageExtent().height),
              std::make_pair(40u, 30u));
}

TEST_F(Renderer, AStageThatThrowsEndsItsFrameAndTheNextOneRuns) {
    for (char const* stage : {"FrameRenderCommands", "FrameUpdateUi"}) {
        renderer->throwIn = stage;
        EXPECT_THROW(renderer->Frame(), std::runtime_error);
        EXPECT_EQ(renderer->stages.back(), "EndFrame") << stage << ": the frame is still ended and submitted";
    }
    renderer->throwIn.clear();
    renderer->Frame();
    EXPECT_TRUE(renderer->stages.back() == "EndFrame" && renderer->FrameIndex() == 3u);
    // Broken off inside a render pass, the frame is still a valid one, of the clear colour.
    nerox::vk::RenderpassOptions options;
    options.initialLayout = options.finalLayout = VK_IMAGE_LAYOUT_GENERAL;
    nerox::vk::Renderpass pass(renderer->GetDevice(), renderer->GetOutputImageFormat(), 64, 48,
                               renderer->GetOutputImageUsage(), options);
    renderer->render = [&](VkCommandBuffer commands) {
        pass.Begin(commands, renderer->GetOutputVkImageView());
        throw std::runtime_error("broke off inside the pass");
    };
    EXPECT_THROW(renderer->Frame(), std::runtime_error);
    renderer->render = nullptr;
    renderer->clearColor = VkClearColorValue{{0.0f, 0.0f, 1.0f, 1.0f}};
    renderer->Frame();
    EXPECT_EQ(Screenshot().pixels[2], 255);
    renderer->StopRendering(); // waits for the device before the pass and its framebuffer go
}

TEST_F(Renderer, TextureIndicesCountFromZeroAndAFullTableOrAnUnreadableFileAddsNothing) {
    std::vector<uint8_t> pixels(2 * 2 * 4, 9);
    ASSERT_TRUE(Texture::SaveFile(dir.File("texture.png"), 2, 2, 4, false, pixels.data(), 90));
    EXPECT_EQ(renderer->AddTexture(TextureRef(dir.File("texture.png"))), 0u);
    auto const texture = std::dynamic_pointer_cast<ImageTexture>(renderer->GetTexture(0));
    ASSERT_TRUE(texture && texture->GetImage().Width() == 2u &&
                texture->GetImage().Format() == VK_FORMAT_R8G8B8A8_UNORM);
    renderer->Frame();
    EXPECT_EQ(renderer->AddTexture(Solid(), renderer->DefaultSampler()), 1u); // while the last frame may still run
    EXPECT_EQ(renderer->AddTextures(Entries(3, {Solid(), VK_NULL_HANDLE})), 2u) << "the index of the first added";
    renderer->Frame();
    EXPECT_TRUE(renderer->TextureCount() == 5u && renderer->GetTexture(4) && !renderer->GetTexture(5));
    renderer->ClearTextures();
    EXPECT_EQ(renderer->AddTexture(Solid()), 0u);
    EXPECT_EQ(renderer->AddTextures({}), 1u) << "nothing added: the next index";

    uint32_t const capacity = renderer->TextureCapacity();
    EXPECT_TRUE(capacity >= 16u && capacity <= nerox::renderer::NeroxRenderer::MaxTextures) << capacity;
    std::string const full = "Texture table is full: " + std::to_string(capacity);
    std::pair<Entries, std::string> const cases[] = {
        {{{TextureRef("no/such/texture.png"), VK_NULL_HANDLE}},
         "Cannot load image file no/such/texture.png: no such file"},
        {{{Solid(), VK_NULL_HANDLE}, {TextureRef("no/such/file.png"), VK_NULL_HANDLE}},
         "Cannot load image file no/such/file.png: no such file"},
        {Entries(capacity, {Solid(), VK_NULL_HANDLE}), full + " more do not fit in " + std::to_string(capacity)},
    };
    for (auto const& [entries, message] : cases)
        EXPECT_THAT([&] { renderer->AddTextures(entries); }, ThrowsMessage<std::runtime_error>(message));
    EXPECT_EQ(renderer->TextureCount(), 1u);
    EXPECT_EQ(renderer->AddTextures(Entries(capacity - 1, {Solid(), VK_NULL_HANDLE})), 1u) << "full to the last entry";
    EXPECT_THAT([&] { renderer->AddTexture(Solid()); }, ThrowsMessage<std::runtime_error>(full + " entries"));
    EXPECT_EQ(renderer->TextureCount(), capacity);
}

TEST_F(Renderer, TexturePixelsMustMatchTheSizeAndFormat) {
    std::vector<uint8_t> pixels(10);
    std::tuple<uint32_t, uint32_t, VkFormat, uint8_t const*, size_t, char const*> const cases[] = {
        {4, 4, VK_FORMAT_R8G8B8A8_UNORM, pixels.data(), 10, "10 bytes given, 64 needed"},
        {1, 1, VK_FORMAT_R8G8B8A8_UNORM, nullptr, 4, "4 bytes given, 4 needed"},
        {0, 4, VK_FORMAT_R8G8B8A8_UNORM, pixels.data(), 0, "empty size 0x4"},
        {1, 1, VK_FORMAT_D32_SFLOAT, pixels.data(), 4, "unsupported format 126"}};
    for (auto const& [width, height, format, data, bytes, why] : cases)
        EXPECT_THAT([&] { ImageTexture(renderer->GetDevice(), width, height, format, data, bytes, "bad"); },
                    ThrowsMessage<std::runtime_error>(std::string("ImageTexture \"bad\": ") + why));
}

} // namespace
