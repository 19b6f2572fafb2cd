#pragma once
// A renderer on an offscreen output, with validation on; a test fails when the
// layers report an error while it runs.
#include "nerox/graphics/HeadlessWindow.hpp"
#include "nerox/renderer/NeroxRenderer.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace rendertest {

/// Records the stages it runs, in order.
class RecordingRenderer : public nerox::renderer::NeroxRenderer {
public:
    using NeroxRenderer::NeroxRenderer;
    ~RecordingRenderer() override { StopRendering(); }

    std::vector<std::string> stages;
    std::string throwIn; ///< Name of a stage that throws std::runtime_error.
    std::function<void()> ui; ///< Run inside FrameUpdateUi.
    std::function<void(VkCommandBuffer)> render; ///< Run inside FrameRenderCommands.

    void Note(char const* stage) {
        stages.emplace_back(stage);
        if (throwIn == stage) throw std::runtime_error(std::string("thrown in ") + stage);
    }
    bool BeginFrame() override { Note("BeginFrame"); return NeroxRenderer::BeginFrame(); }
    void EndFrame() override { Note("EndFrame"); NeroxRenderer::EndFrame(); }
    void FrameCollectGarbage() override { Note("FrameCollectGarbage"); }
    void FrameUpdateDescriptorSets() override { Note("FrameUpdateDescriptorSets"); }
    void FrameBeforePost() override { Note("FrameBeforePost"); }
    void FrameInit() override { Note("FrameInit"); }
    void FrameUpdateUi() override {
        Note("FrameUpdateUi");
        if (ui) ui();
    }
    void FrameBeforeUpdate() override { Note("FrameBeforeUpdate"); }
    void FrameUpdate() override { Note("FrameUpdate"); }
    void FrameBeforeRender() override { Note("FrameBeforeRender"); }
    void FrameAfterRender() override { Note("FrameAfterRender"); }
    void FrameAfterUpdate() override { Note("FrameAfterUpdate"); }
    void FramePushCommands(VkCommandBuffer c) override { NoteCommands("FramePushCommands", c); }
    void FrameBuildCommands(VkCommandBuffer c) override { NoteCommands("FrameBuildCommands", c); }
    void FrameRenderCommands(VkCommandBuffer c) override {
        if (render) render(c);
        NoteCommands("FrameRenderCommands", c);
    }
    void FrameResolveCommands(VkCommandBuffer c) override { NoteCommands("FrameResolveCommands", c); }
    void FrameBlitCommands(VkCommandBuffer c) override { NoteCommands("FrameBlitCommands", c); }
    void FramePostCommands(VkCommandBuffer c) override { NoteCommands("FramePostCommands", c); }
    void FrameOverlayCommands(VkCommandBuffer c) override { NoteCommands("FrameOverlayCommands", c); }

private:
    void NoteCommands(char const* stage, VkCommandBuffer commands) {
        EXPECT_NE(commands, VK_NULL_HANDLE) << stage;
        EXPECT_EQ(commands, CurrentCommandBuffer()) << stage;
        Note(stage);
    }
};

class RendererTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("NEROX_VK_VALIDATION", "1", 1);
        errorsBefore = nerox::vk::Device::ValidationErrorCount();
        window = std::make_unique<nerox::graphics::HeadlessWindow>(64, 48);
        renderer = std::make_unique<RecordingRenderer>(window.get(), "nerox_renderer_tests", 1,
                                                       nerox::vk::PhysicalDevice::Features{}, false);
    }
    void TearDown() override {
        renderer.reset();
        EXPECT_EQ(nerox::vk::Device::ValidationErrorCount(), errorsBefore)
            << "validation errors while the test ran (printed above)";
    }

    std::string TempPath(std::string const& name) const {
        return ::testing::TempDir() + "nerox_renderer_" + std::to_string(getpid()) + "_" + name;
    }

    uint64_t errorsBefore = 0;
    std::unique_ptr<nerox::graphics::HeadlessWindow> window;
    std::unique_ptr<RecordingRenderer> renderer;
};

} // namespace rendertest
