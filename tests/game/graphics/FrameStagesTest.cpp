// The frame's stages: which module hooks each one calls and in what order, the
// settings copied into the base class, the floating world origin and no allocations
// in a steady frame.
#include "GameRendererFixture.hpp"

#include "support/CountedAllocations.hpp"
#include "support/Golden.hpp"
#include "game/input/Controller.hpp"
#include "nerox/audio/Studio.hpp"

#include <glm/gtc/matrix_transform.hpp>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

namespace rendertest {
namespace {

// The renderer hooks called since the log was emptied, one a line.
std::string RendererHooks() {
    std::string hooks;
    for (std::string const& event : gametest::EventsWith("GAME_Mod:Renderer_"))
        hooks += event.substr(std::string("GAME_Mod:").size()) + "\n";
    return hooks;
}

TEST_F(GameRendererTest, EachStageCallsTheHooksOfItsListInFrameOrderAndAHookThatThrowsEndsTheFrame) {
    GameRenderer& r = Make();
    r.StartRendering();
    // The module in one list at a time, then in all of them: the frame's hook calls
    // in order, those of the stages that go through every module included.
    std::string calls, all;
    for (std::string key : {"", "ui", "update", "render", "post", "overlay", "all"}) {
        GAME_Mod::UnloadModules();
        LoadSortedInto(key == "all"      ? std::vector<std::string>{"update", "render", "post", "overlay", "ui"}
                           : key.empty() ? std::vector<std::string>{}
                                         : std::vector{key});
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

TEST_F(GameRendererTest, FrameInitUpperCasesTheUpscalerAndSetsOneOptionBitPerOption) {
    GameRenderer& r = Make();
    game::GameSettings& s = *Game::settings;
    s.upscaling_algo = "none";
    r.FrameInit();
    EXPECT_EQ(std::tuple(s.upscaling_algo, r.upscalingAlgo),
              std::tuple("none", nerox::renderer::UPSCALE_ALGO::NONE)); // the setting itself stays as it was
    // One bit per option; bit 2 (a temporal upscaler) stays clear: no algorithm of this renderer keeps history.
    std::vector<uint32_t> words;
    for (int on = 0; on < 5; ++on) {
        std::tie(s.tone_mapping, s.taa, r.debugFlag, s.dithering) = std::tuple(on == 0, on == 1, on == 2, on == 3);
        r.FrameInit();
        words.push_back(r.renderOptions);
    }
    EXPECT_EQ(words, (std::vector<uint32_t>{1, 2, 8, 16, 0}));
}

TEST_F(GameRendererTest, TheAudioListenerIsTheCameraOfTheFrameLastBegun) {
    GameRenderer& r = Make();
    nerox::audio::Studio studio;
    Game::audio = &studio;
    glm::dvec3 const eye(1.0, 2.0, 3.0);
    r.cameraPosition = eye;
    r.viewMatrix = glm::lookAt(eye, eye + glm::dvec3(0.0, 0.0, 4.0), glm::dvec3(0.0, 1.0, 0.0)); // towards +Z
    r.FrameInit();
    r.cameraPosition = glm::dvec3(9.0); // the next frame's camera, being written: not heard yet
    r.viewMatrix = glm::dmat4(1.0);
    Game::Update(0.0);
    Game::audio = nullptr;
    nerox::audio::Studio::ListenerAttributes const expected{1, 2, 3, 0, 0, 0, 0, 0, 1, 0, 1, 0};
    nerox::audio::Studio::ListenerAttributes const heard = studio.GetListenerAttributes();
    for (size_t i = 0; i < expected.size(); ++i) EXPECT_NEAR(heard[i], expected[i], 1e-6f) << i;
    EXPECT_EQ(studio.GetUpdateCount(), 1u);
}

// The settings file rewritten and reloaded every millisecond while the render
// thread sets up frames and the input thread reads the bindings.
TEST_F(GameRendererTest, SettingsReloadedEveryMillisecondAreReadSafelyByTheRenderAndInputThreads) {
    Game::settings = std::make_unique<game::GameSettings>(settingsPath, 1);
    GameRenderer& r = Make();
    std::atomic<bool> running{true};
    std::thread writer([this, &running] {
        for (int i = 0; running; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(1)))
            testsupport::ReplaceText(settingsPath,
                                     "[graphics]\nupscaling_algo = " + std::string(i % 60, 'a') +
                                         "\n[input]\ninput_binding_zoom = key=90 joy=button:1,name:\"" +
                                         std::string(i % 40, 'x') + "\"\n");
    });
    std::thread input([&running] {
        while (running) game::input::Controller::InputUpdate(1.0 / 60.0);
    });
    for (auto const end = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
         std::chrono::steady_clock::now() < end;)
        r.FrameInit();
    running = false;
    writer.join(), input.join();
}

TEST_F(GameRendererTest, TheOriginFollowsOnlyPastTheThresholdAndAZeroThresholdPinsItToTheCamera) {
    // At the default 1000 m it stays, the distance taken over whole metres (600.4, 800.4 is 1000); past it the
    // origin jumps to the camera's whole-metre position; a zero threshold moves it every frame.
    struct Step {
        double threshold;
        glm::dvec3 camera;
    }; // threshold < 0: the default
    Step const steps[] = {{-1, {1000.0, 0, 0}},   {-1, {600.4, 800.4, 0}}, {-1, {1000.6, -20.2, 3.5}},
                          {-1, {1010.0, 0, 0}},   {0, {0.25, 0, 0}},       {0, {0.25, 0, 0}},
                          {0, {-5e6, 7.125, 1.5}}};
    LoadSortedInto();
    GameRenderer& r = Make();
    std::string listing;
    for (Step const& step : steps) {
        if (step.threshold >= 0) game::Options::Set(GameRenderer::WorldOriginThresholdOption, step.threshold);
        r.cameraPosition = step.camera; // looking down -Z
        r.viewMatrix = glm::inverse(glm::translate(glm::dmat4(1.0), step.camera));
        r.FrameInit();
        glm::dvec3 const o(r.worldOrigin), c(r.cameraTransform[3]);
        std::array<int64_t, 3> const base = static_cast<nerox::renderer::NeroxRenderer&>(r).worldOrigin;
        char line[200];
        std::snprintf(line, sizeof line,
                      "camera %g %g %g: %s, origin %g %g %g (%lld %lld %lld), camera in frame %.3f %.3f %.3f\n",
                      step.camera.x, step.camera.y, step.camera.z, r.worldOriginChanged ? "moved" : "kept", o.x, o.y,
                      o.z, (long long)base[0], (long long)base[1], (long long)base[2], c.x, c.y, c.z);
        listing += line;
    }
    // The hooks saw the origin decided and the camera of the frame before, not yet derived.
    testsupport::ExpectGolden(listing + RendererHooks(), "graphics/frame_init_by_step.txt");
}

TEST_F(GameRendererTest, SteadyStagesAllocateNothing) {
    LoadSortedInto({"update", "render", "post", "overlay", "ui"}, "MODTEST_empty"); // walks the lists, calls nothing
    GameRenderer& r = Make();
    r.StartRendering();
    for (int i = 0; i < 3; ++i) {
        r.Trash(std::make_shared<int>(i));
        r.Frame();
    }
    r.cameraPosition = glm::dvec3(5000.0, 0.0, 0.0); // the origin moves too
    long const before = testsupport::allocations.load();
    for (auto stage : {&GameRenderer::FrameInit, &GameRenderer::FrameCollectGarbage, &GameRenderer::FrameUpdateUi,
                       &GameRenderer::FrameBeforeUpdate, &GameRenderer::FrameUpdate, &GameRenderer::FrameAfterUpdate,
                       &GameRenderer::FrameUpdateDescriptorSets, &GameRenderer::FrameBeforeRender,
                       &GameRenderer::FrameAfterRender, &GameRenderer::FrameBeforePost, &GameRenderer::CollectTrash})
        (r.*stage)();
    for (auto stage :
         {&GameRenderer::FramePushCommands, &GameRenderer::FrameBuildCommands, &GameRenderer::FrameRenderCommands,
          &GameRenderer::FrameResolveCommands, &GameRenderer::FrameBlitCommands, &GameRenderer::FramePostCommands})
        (r.*stage)(VK_NULL_HANDLE);
    EXPECT_EQ(testsupport::allocations.load() - before, 0);
    EXPECT_TRUE(r.worldOriginChanged);
}

} // namespace
} // namespace rendertest
