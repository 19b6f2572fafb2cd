// The frame's stages: which module hooks each one calls and in what order, the
// settings copied into the base class, the floating world origin and no allocations
// in a steady frame.
#include "GameRendererFixture.hpp"

#include "support/CountedAllocations.hpp"
#include "support/GlmChecks.hpp"
#include "support/Golden.hpp"

#include <glm/gtc/matrix_transform.hpp>

namespace rendertest {
namespace {


// The renderer hooks called since the log was emptied, one a line.
std::string RendererHooks()
{
    std::string hooks;
    for (std::string const& event : gametest::EventsWith("GAME_Mod:Renderer_"))
        hooks += event.substr(std::string("GAME_Mod:").size()) + "\n";
    return hooks;
}

TEST_F(GameRendererTest, EachStageCallsTheHooksOfItsListInFrameOrderAndAHookThatThrowsEndsTheFrame)
{
    GameRenderer& r = Make();
    r.StartRendering();
    // The module in one list at a time, then in all of them: the frame's hook calls
    // in order, those of the stages that go through every module included.
    std::string calls, all;
    for (std::string key : {"", "ui", "update", "render", "post", "overlay", "all"}) {
        GAME_Mod::UnloadModules();
        LoadSortedInto(key == "all" ? std::vector<std::string>{"update", "render", "post", "overlay", "ui"}
                                    : key.empty() ? std::vector<std::string>{} : std::vector{key});
        r.Frame();
        calls += "# sorted into: " + (key.empty() ? "no list" : key) + "\n" + (all = RendererHooks());
    }
    testsupport::ExpectGolden(calls, "graphics/frame_hooks_by_list.txt");
    recorder::ThrowIn("Renderer_FrameRenderCommands");
    EXPECT_THROW(r.Frame(), std::runtime_error);
    recorder::Clear();
    r.Frame();
    EXPECT_EQ(RendererHooks(), all) << "the next frame runs normally";
    recorder::Clear();
    window->SetSize(40, 30);
    r.RefreshViewport();
    r.StopRendering();
    EXPECT_EQ(RendererHooks(), "Renderer_RefreshViewport\nRenderer_StopRendering\n");
}

TEST_F(GameRendererTest, FrameInitCopiesTheSettingsAndSetsOneOptionBitPerOption)
{
    GameRenderer& r = Make();
    game::GameSettings& s = *Game::settings;
    std::tie(s.render_scale, s.final_upscale, s.upscaling_sharpness, s.brightness, s.contrast, s.gamma, s.fov) =
        std::tuple(0.5f, 1.5f, 0.25f, 1.1f, 0.9f, 2.2f, 95.0f);
    std::tie(s.upscaling_quality_setting, s.dev_tools, s.upscaling_algo, r.nearClip) = std::tuple(2, true, "none", 0.05f);
    r.FrameInit();
    EXPECT_EQ(std::tie(r.renderScale, r.finalUpscale, r.upscalingSharpness, r.brightness, r.contrast, r.gamma, r.fov),
              std::tuple(0.5f, 1.5f, 0.25f, 1.1f, 0.9f, 2.2f, 95.0f));
    EXPECT_EQ(std::tuple(r.upscalingQualitySetting, r.devTools, static_cast<nerox::renderer::NeroxRenderer&>(r).nearClip),
              std::tuple(2, true, 0.05f));
    EXPECT_EQ(s.upscaling_algo, "NONE"); // upper-cased in place
    EXPECT_EQ(r.upscalingAlgo, nerox::renderer::UPSCALE_ALGO::NONE);

    struct Row { bool toneMapping, taa, debug, dithering; uint32_t word; };
    // Bit 2 (a temporal upscaler) stays clear: no algorithm of this renderer keeps history.
    for (Row row : {Row{1, 0, 0, 0, 1u}, Row{0, 1, 0, 0, 2u}, Row{0, 0, 1, 0, 8u}, Row{0, 0, 0, 1, 16u}, Row{0, 0, 0, 0, 0u}}) {
        std::tie(s.tone_mapping, s.taa, r.debugFlag, s.dithering) = std::tie(row.toneMapping, row.taa, row.debug, row.dithering);
        r.FrameInit();
        EXPECT_EQ(r.renderOptions, row.word);
    }
}

TEST_F(GameRendererTest, TheOriginFollowsOnlyPastTheThresholdAndAZeroThresholdPinsItToTheCamera)
{
    struct Step { double threshold; glm::dvec3 camera; bool moved; glm::dvec3 origin, cameraInFrame; }; // threshold < 0: 1000 m
    Step const steps[] = {
        {-1.0, {1000.0, 0.0, 0.0}, false, {0, 0, 0}, {1000.0, 0.0, 0.0}}, // exactly at the threshold: it stays
        // The distance is taken over whole metres: 600.4, 800.4 rounds to 600, 800, which is 1000.
        {-1.0, {600.4, 800.4, 0.0}, false, {0, 0, 0}, {600.4, 800.4, 0.0}},
        // Past it: the origin jumps to the camera's whole-metre position.
        {-1.0, {1000.6, -20.2, 3.5}, true, {1001.0, -20.0, 4.0}, {-0.4, -0.2, -0.5}},
        {-1.0, {1010.0, 0.0, 0.0}, false, {1001.0, -20.0, 4.0}, {9.0, 20.0, -4.0}}, // nearby: kept
        // A zero threshold moves it every frame, even without a move.
        {0.0, {0.25, 0.0, 0.0}, true, {0.25, 0.0, 0.0}, {0, 0, 0}},
        {0.0, {0.25, 0.0, 0.0}, true, {0.25, 0.0, 0.0}, {0, 0, 0}},
        {0.0, {-5e6, 7.125, 1.5}, true, {-5e6, 7.125, 1.5}, {0, 0, 0}},
    };
    LoadSortedInto();
    GameRenderer& r = Make();
    for (Step const& step : steps) {
        SCOPED_TRACE(step.camera.x);
        if (step.threshold >= 0)
            game::Options::Set(GameRenderer::WorldOriginThresholdOption, step.threshold);
        r.cameraPosition = glm::dvec4(step.camera, 1.0); // looking down -Z
        r.viewMatrix = glm::inverse(glm::translate(glm::dmat4(1.0), step.camera));
        r.FrameInit();
        EXPECT_EQ(r.worldOriginChanged, step.moved);
        EXPECT_EQ(r.worldOrigin, glm::dvec4(step.origin, 1.0));
        testsupport::ExpectVecNear(glm::dvec3(r.cameraTransform[3]), step.cameraInFrame, 1e-4);
        if (step.threshold < 0) {
            EXPECT_EQ(static_cast<nerox::renderer::NeroxRenderer&>(r).worldOrigin,
                      (std::array<int64_t, 3>{int64_t(step.origin.x), int64_t(step.origin.y), int64_t(step.origin.z)}));
        }
    }
    // The hooks saw the origin decided and the camera of the frame before, not yet derived.
    testsupport::ExpectGolden(RendererHooks(), "graphics/frame_init_by_step.txt");
}

TEST_F(GameRendererTest, SteadyStagesAllocateNothing)
{
    LoadSortedInto({"update", "render", "post", "overlay", "ui"}, "MODTEST_empty"); // walks the lists, calls nothing
    GameRenderer& r = Make();
    r.StartRendering();
    for (int i = 0; i < 3; ++i) {
        r.Trash(std::make_shared<int>(i));
        r.Frame();
    }
    r.cameraPosition = glm::dvec4(5000.0, 0.0, 0.0, 1.0); // the origin moves too
    long const before = testsupport::allocations.load();
    for (auto stage : {&GameRenderer::FrameInit, &GameRenderer::FrameCollectGarbage, &GameRenderer::FrameUpdateUi,
                       &GameRenderer::FrameBeforeUpdate, &GameRenderer::FrameUpdate, &GameRenderer::FrameAfterUpdate,
                       &GameRenderer::FrameUpdateDescriptorSets, &GameRenderer::FrameBeforeRender,
                       &GameRenderer::FrameAfterRender, &GameRenderer::FrameBeforePost, &GameRenderer::CollectTrash})
        (r.*stage)();
    for (auto stage : {&GameRenderer::FramePushCommands, &GameRenderer::FrameBuildCommands,
                       &GameRenderer::FrameRenderCommands, &GameRenderer::FrameResolveCommands,
                       &GameRenderer::FrameBlitCommands, &GameRenderer::FramePostCommands})
        (r.*stage)(VK_NULL_HANDLE);
    EXPECT_EQ(testsupport::allocations.load() - before, 0);
    EXPECT_TRUE(r.worldOriginChanged);
}

} // namespace
} // namespace rendertest
