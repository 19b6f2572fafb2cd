// One frame's stages, the output image, screenshots and resizing.
#include "RendererFixture.hpp"

#include "nerox/graphics/Texture.hpp"
#include "nerox/vk/Renderpass.hpp"

#include <imgui.h>

#include <cstdio>

namespace rendertest {
namespace {

using nerox::graphics::ImageData;
using nerox::graphics::Texture;

class FrameLoop : public RendererTest {
protected:
    /// The last finished frame, saved and decoded again as RGBA.
    ImageData Screenshot() {
        std::string const path = TempPath("frame.png");
        EXPECT_TRUE(renderer->SaveOutputImage(path));
        ImageData image = Texture::LoadFile(path, 4);
        std::remove(path.c_str());
        EXPECT_EQ(image.width, 64);
        EXPECT_EQ(image.pixels.size(), 64u * 48u * 4u);
        return image;
    }
};

TEST_F(FrameLoop, OneFrameRunsEveryStageInItsOrder) {
    renderer->StartRendering();
    renderer->Frame();
    renderer->StopRendering();
    EXPECT_FALSE(renderer->IsRendering());
    renderer->StopRendering(); // twice is harmless
    renderer->stages.clear();
    renderer->StartRendering();
    ASSERT_TRUE(renderer->IsRendering());
    EXPECT_FALSE(renderer->HasSwapchain()) << "a headless window renders offscreen";
    renderer->Frame();
    std::vector<std::string> const expected = {
        "BeginFrame",          "FrameInit",          "FrameCollectGarbage", "FrameUpdateUi",
        "FrameBeforeUpdate",   "FrameUpdate",        "FrameAfterUpdate",    "FrameUpdateDescriptorSets",
        "FrameBeforeRender",   "FramePushCommands",  "FrameBuildCommands",  "FrameRenderCommands",
        "FrameAfterRender",    "FrameResolveCommands", "FrameBeforePost",   "FrameBlitCommands",
        "FramePostCommands",   "FrameOverlayCommands", "EndFrame"};
    EXPECT_EQ(renderer->stages, expected);
    EXPECT_EQ(renderer->FrameIndex(), 1u) << "counted anew after a restart";
    EXPECT_EQ(renderer->CurrentCommandBuffer(), VK_NULL_HANDLE) << "no command buffer between frames";
    for (int i = 0; i < 4; ++i) renderer->Frame();
    EXPECT_EQ(renderer->stages.size(), 5 * expected.size()) << "frames in flight are reused";
    EXPECT_EQ(renderer->FrameIndex(), 5u);
}

TEST_F(FrameLoop, TheOutputFollowsTheWindowsSizeAndItsFormat) {
    renderer->StartRendering();
    EXPECT_EQ(renderer->GetOutputImageExtent().width, 64u);
    EXPECT_EQ(renderer->GetOutputImageFormat(), VK_FORMAT_R8G8B8A8_UNORM);
    ASSERT_NE(renderer->GetOutputImage(), nullptr);
    EXPECT_EQ(renderer->GetOutputVkImage(), renderer->GetOutputImage()->Handle());
    EXPECT_TRUE(renderer->GetOutputImageUsage() & VK_IMAGE_USAGE_TRANSFER_SRC_BIT);
    window->SetSize(40, 30);
    renderer->Frame();
    EXPECT_EQ(renderer->GetOutputImageExtent().width, 40u);
    EXPECT_EQ(renderer->GetOutputImageExtent().height, 30u);
}

TEST_F(FrameLoop, AScreenshotDecodesToTheRenderedPixelsAndNothingBeforeTheFirstFrame) {
    renderer->StartRendering();
    testing::internal::CaptureStderr();
    EXPECT_FALSE(renderer->SaveOutputImage(TempPath("none.png")));
    EXPECT_NE(testing::internal::GetCapturedStderr().find("no finished frame"), std::string::npos);
    renderer->clearColor = VkClearColorValue{{1.0f, 0.5f, 0.0f, 1.0f}};
    renderer->CaptureNextFrame();
    renderer->Frame();
    ImageData const image = Screenshot();
    for (size_t i = 0; i < image.pixels.size(); i += 4) {
        ASSERT_EQ(image.pixels[i], 255) << i;
        ASSERT_NEAR(image.pixels[i + 1], 128, 1) << i;
        ASSERT_EQ(image.pixels[i + 2], 0) << i;
        ASSERT_EQ(image.pixels[i + 3], 255) << i;
    }
    // A later frame of another colour, not captured: offscreen it is read back itself.
    renderer->clearColor = VkClearColorValue{{0.0f, 0.0f, 1.0f, 1.0f}};
    renderer->Frame();
    EXPECT_EQ(Screenshot().pixels[2], 255);
}

TEST_F(FrameLoop, TheInterfaceIsDrawnOverTheFrame) {
    renderer->clearColor = VkClearColorValue{{0.0f, 0.0f, 0.0f, 1.0f}};
    renderer->ui = [] { // a window over the whole output, its body in green
        ImGui::SetNextWindowPos(ImVec2(0.0f, 0.0f));
        ImGui::SetNextWindowSize(ImGui::GetIO().DisplaySize);
        ImGui::PushStyleColor(ImGuiCol_WindowBg, ImVec4(0.0f, 1.0f, 0.0f, 1.0f));
        ImGui::Begin("green", nullptr, ImGuiWindowFlags_NoTitleBar | ImGuiWindowFlags_NoDecoration);
        ImGui::End();
        ImGui::PopStyleColor();
    };
    renderer->StartRendering();
    renderer->Frame();
    ImageData const image = Screenshot();
    size_t const centre = (24u * 64u + 32u) * 4u;
    EXPECT_EQ(std::vector<uint8_t>(&image.pixels[centre], &image.pixels[centre + 3]), (std::vector<uint8_t>{0, 255, 0}));
}

TEST_F(FrameLoop, AStageThatThrowsEndsItsFrameAndTheNextOneRuns) {
    renderer->StartRendering();
    for (char const* stage : {"FrameRenderCommands", "FrameUpdateUi"}) {
        renderer->throwIn = stage;
        EXPECT_THROW(renderer->Frame(), std::runtime_error);
        EXPECT_EQ(renderer->stages.back(), "EndFrame") << stage << ": the frame is still ended and submitted";
    }
    renderer->throwIn.clear();
    renderer->Frame();
    renderer->Frame();
    EXPECT_EQ(renderer->stages.back(), "EndFrame");
    EXPECT_EQ(renderer->FrameIndex(), 4u);
}

TEST_F(FrameLoop, AStageThatThrowsInsideARenderPassStillLeavesAValidFrame) {
    renderer->clearColor = VkClearColorValue{{0.0f, 0.0f, 1.0f, 1.0f}};
    renderer->StartRendering();
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
    renderer->Frame();
    EXPECT_EQ(Screenshot().pixels[2], 255);
    renderer->StopRendering(); // waits for the device before the pass and its framebuffer go
}

} // namespace
} // namespace rendertest
