#pragma once
// One renderer on an offscreen output for the whole program (a device is slow to
// make), validating: a test fails when the layers report an error while it runs.
#include "nerox/graphics/HeadlessWindow.hpp"
#include "nerox/renderer/NeroxRenderer.hpp"

#include <gtest/gtest.h>

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
    std::string throwIn;                         ///< Name of a stage that throws std::runtime_error.
    std::function<void()> ui;                    ///< Run inside FrameUpdateUi.
    std::function<void(VkCommandBuffer)> render; ///< Run inside FrameRenderCommands.

    void Note(char const* stage) {
        stages.emplace_back(stage);
        if (throwIn == stage) throw std::runtime_error(std::string("thrown in ") + stage);
    }
    void NoteCommands(char const* stage, VkCommandBuffer commands) {
        EXPECT_NE(commands, VK_NULL_HANDLE) << stage;
        EXPECT_EQ(commands, CurrentCommandBuffer()) << stage;
        Note(stage);
    }
    bool BeginFrame() override { Note("BeginFrame"); return NeroxRenderer::BeginFrame(); }
    void EndFrame() override { Note("EndFrame"); NeroxRenderer::EndFrame(); }
    void FrameUpdateUi() override { Note("FrameUpdateUi"); if (ui) ui(); }
    void FrameRenderCommands(VkCommandBuffer c) override { if (render) render(c); NoteCommands("FrameRenderCommands", c); }
#define RECORD(stage) void stage() override { Note(#stage); }
#define RECORD_COMMANDS(stage) void stage(VkCommandBuffer c) override { NoteCommands(#stage, c); }
    RECORD(FrameCollectGarbage) RECORD(FrameUpdateDescriptorSets) RECORD(FrameBeforePost) RECORD(FrameInit)
    RECORD(FrameBeforeUpdate) RECORD(FrameUpdate) RECORD(FrameBeforeRender) RECORD(FrameAfterRender)
    RECORD(FrameAfterUpdate) RECORD_COMMANDS(FramePushCommands) RECORD_COMMANDS(FrameBuildCommands)
    RECORD_COMMANDS(FrameResolveCommands) RECORD_COMMANDS(FrameBlitCommands) RECORD_COMMANDS(FramePostCommands)
    RECORD_COMMANDS(FrameOverlayCommands)
#undef RECORD
#undef RECORD_COMMANDS
};

class RendererTest : public ::testing::Test {
protected:
    void SetUp() override {
        errorsBefore = nerox::vk::Device::ValidationErrorCount();
        window->SetSize(64, 48);
        if (!renderer) {
            setenv("NEROX_VK_VALIDATION", "1", 1);
            renderer = std::make_unique<RecordingRenderer>(window.get(), "nerox_renderer_tests", 1,
                                                           nerox::vk::PhysicalDevice::Features{}, false);
        }
    }
    void TearDown() override {
        renderer->StopRendering();
        renderer->ClearTextures();
        renderer->stages.clear();
        renderer->throwIn.clear();
        renderer->ui = nullptr;
        renderer->render = nullptr;
        EXPECT_EQ(nerox::vk::Device::ValidationErrorCount(), errorsBefore)
            << "validation errors while the test ran (printed above)";
    }
    std::string TempPath(std::string const& name) const {
        return ::testing::TempDir() + "nerox_renderer_" + std::to_string(getpid()) + "_" + name;
    }

    uint64_t errorsBefore = 0;

public:
    inline static auto window = std::make_unique<nerox::graphics::HeadlessWindow>(64, 48);
    inline static std::unique_ptr<RecordingRenderer> renderer;
};

/// Lets the renderer go before the program's statics do.
struct RendererRelease : ::testing::Environment {
    void TearDown() override { RendererTest::renderer.reset(); }
};
inline ::testing::Environment* const rendererRelease = ::testing::AddGlobalTestEnvironment(new RendererRelease);

} // namespace rendertest
