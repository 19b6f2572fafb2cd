// The frame's stages: which module hooks each one calls and in what order, the
// settings copied into the base class, and the floating world origin.
#include "GameRendererFixture.hpp"

#include "nerox/graphics/Texture.hpp"
#include "support/GlmChecks.hpp"
#include "support/Golden.hpp"

#include <glm/gtc/matrix_transform.hpp>
#include <gmock/gmock.h>

namespace rendertest {
namespace {

using ::testing::ElementsAre;

std::vector<std::string> RendererHooks()
{
    std::vector<std::string> hooks;
    for (std::string const& event : gametest::EventsWith("GAME_Mod:Renderer_"))
        hooks.push_back(event.substr(std::string("GAME_Mod:").size()));
    return hooks;
}

// The camera at position, looking down -Z.
void PlaceCamera(GameRenderer& r, glm::dvec3 position)
{
    r.cameraPosition = glm::dvec4(position, 1.0);
    r.viewMatrix = glm::inverse(glm::translate(glm::dmat4(1.0), position));
}

glm::dvec3 CameraInFloatingFrame(GameRenderer const& r) { return glm::dvec3(r.cameraTransform[3]); }

TEST_F(GameRendererTest, EachStageCallsTheHooksOfItsListInFrameOrder)
{
    GameRenderer& r = Make();
    r.StartRendering();
    // The module in one list at a time, then in all of them: the frame's hook calls
    // in order, those of the stages that go through every module included.
    std::string calls;
    for (std::string key : {"", "ui", "update", "render", "post", "overlay", "all"}) {
        GAME_Mod::UnloadModules();
        if (key == "all")
            LoadRecorderSortedInto();
        else
            LoadRecorderSortedInto(key.empty() ? std::initializer_list<char const*>{} : std::initializer_list{key.c_str()});
        r.Frame();
        calls += "# sorted into: " + (key.empty() ? "no list" : key) + "\n";
        for (std::string const& hook : RendererHooks())
            calls += hook + "\n";
    }
    testsupport::ExpectGolden(calls, "graphics/frame_hooks_by_list.txt");
    recorder::Clear();
    window->SetSize(40, 30);
    r.RefreshViewport();
    r.StopRendering();
    EXPECT_THAT(RendererHooks(), ElementsAre("Renderer_RefreshViewport", "Renderer_StopRendering"));
}

TEST_F(GameRendererTest, FrameInitHooksSeeTheOriginDecidedAndTheCameraNotYetDerived)
{
    LoadRecorderSortedInto();
    GameRenderer& r = Make();
    game::Options::Set(GameRenderer::WorldOriginThresholdOption, 10.0);
    PlaceCamera(r, {4.0, 0.0, 0.0});
    r.FrameInit();
    PlaceCamera(r, {30.0, 0.0, 0.0});
    recorder::Clear();
    r.FrameInit();
    // The hook saw the move, and the camera of the frame before (x 4).
    EXPECT_THAT(RendererHooks(), ElementsAre("Renderer_FrameInit(moved x=4)"));
    EXPECT_NEAR(CameraInFloatingFrame(r).x, 0.0, 1e-9);
}

TEST_F(GameRendererTest, AHookThatThrowsEndsTheFrameAndPassesOn)
{
    LoadRecorderSortedInto();
    GameRenderer& r = Make();
    r.StartRendering();
    recorder::ThrowIn("Renderer_FrameRenderCommands");
    EXPECT_THROW(r.Frame(), std::runtime_error);
    recorder::Clear();
    r.Frame(); // the next frame runs normally
    EXPECT_EQ(gametest::IndexOf(RendererHooks(), "Renderer_FrameOverlayCommands(cb)"), 16);
}

// The pixel dx to the right of the centre of the last frame, RGBA.
std::vector<unsigned char> CentrePixel(GameRenderer& r, std::string const& path, int dx = 0)
{
    EXPECT_TRUE(r.SaveImage(r.GetOutputVkImage(), {0, 0}, r.GetOutputImageExtent(), r.GetOutputImageFormat(),
                            VK_IMAGE_LAYOUT_GENERAL, path, 90, true));
    nerox::graphics::ImageData image = nerox::graphics::Texture::LoadFile(path, 4);
    size_t const at = (static_cast<size_t>(image.height / 2) * image.width + image.width / 2 + dx) * 4;
    return {image.pixels.begin() + at, image.pixels.begin() + at + 4};
}

TEST_F(GameRendererTest, TheCrosshairIsDrawnOnlyInMouseLookInAPassThatFollowsTheViewport)
{
    GameRenderer& r = Make();
    r.clearColor = VkClearColorValue{{0.0f, 0.0f, 0.0f, 1.0f}};
    r.StartRendering();
    r.Frame();
    EXPECT_THAT(CentrePixel(r, scratch.File("free.png")), ElementsAre(0, 0, 0, 255));
    window->SetSize(40, 30);
    Game::_mouseLook = true;
    r.Frame(); // notices the new size and draws in the rebuilt pass
    EXPECT_EQ(r.overlayRenderpass->Extent().width, 40u);
    EXPECT_EQ(r.overlayRenderpass->Extent().height, 30u);
    std::vector<unsigned char> const centre = CentrePixel(r, scratch.File("aiming.png"));
    EXPECT_GT(centre[0], 200);
    EXPECT_TRUE(centre[0] == centre[1] && centre[1] == centre[2]);
    // The ring, 10 pixels out: the point is drawn at its full size, not as one pixel.
    EXPECT_GT(CentrePixel(r, scratch.File("ring.png"), 10)[0], 30);
    r.Frame(); // the output is still usable after a save
}

TEST_F(GameRendererTest, FrameInitCopiesTheSettingsAndSetsOneOptionBitPerOption)
{
    GameRenderer& r = Make();
    game::GameSettings& s = *Game::settings;
    s.render_scale = 0.5f;
    s.final_upscale = 1.5f;
    s.upscaling_quality_setting = 2;
    s.upscaling_sharpness = 0.25f;
    s.brightness = 1.1f;
    s.contrast = 0.9f;
    s.gamma = 2.2f;
    s.fov = 95.0f;
    s.dev_tools = true;
    s.upscaling_algo = "none";
    r.nearClip = 0.05f;
    r.FrameInit();
    EXPECT_EQ(std::tuple(r.renderScale, r.finalUpscale, r.upscalingSharpness, r.brightness, r.contrast, r.gamma, r.fov,
                         static_cast<nerox::renderer::NeroxRenderer&>(r).nearClip),
              std::tuple(0.5f, 1.5f, 0.25f, 1.1f, 0.9f, 2.2f, 95.0f, 0.05f));
    EXPECT_EQ(r.upscalingQualitySetting, 2);
    EXPECT_TRUE(r.devTools);
    EXPECT_EQ(s.upscaling_algo, "NONE"); // upper-cased in place
    EXPECT_EQ(r.upscalingAlgo, nerox::renderer::UPSCALE_ALGO::NONE);

    struct Row {
        bool toneMapping, taa, debug, dithering;
        uint32_t word;
    };
    // Bit 2 (a temporal upscaler) stays clear: no algorithm of this renderer keeps history.
    for (Row row : {Row{false, false, false, false, 0u}, Row{true, false, false, false, 1u},
                    Row{false, true, false, false, 2u}, Row{false, false, true, false, 8u},
                    Row{false, false, false, true, 16u}, Row{true, true, true, true, 27u}}) {
        s.tone_mapping = row.toneMapping;
        s.taa = row.taa;
        r.debugFlag = row.debug;
        s.dithering = row.dithering;
        r.FrameInit();
        EXPECT_EQ(r.renderOptions, row.word);
    }
}

TEST_F(GameRendererTest, TheOriginFollowsOnlyPastTheThresholdAndAZeroThresholdPinsItToTheCamera)
{
    struct Step {
        double threshold; // below 0: not set, 1000 m
        glm::dvec3 camera;
        bool moved;
        glm::dvec3 origin, cameraInFrame;
    };
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
    GameRenderer& r = Make();
    for (Step const& step : steps) {
        SCOPED_TRACE(step.camera.x);
        if (step.threshold >= 0)
            game::Options::Set(GameRenderer::WorldOriginThresholdOption, step.threshold);
        PlaceCamera(r, step.camera);
        r.FrameInit();
        EXPECT_EQ(r.worldOriginChanged, step.moved);
        EXPECT_EQ(r.worldOrigin, glm::dvec4(step.origin, 1.0));
        testsupport::ExpectVecNear(CameraInFloatingFrame(r), step.cameraInFrame, 1e-4);
        if (step.threshold < 0) {
            EXPECT_EQ(static_cast<nerox::renderer::NeroxRenderer&>(r).worldOrigin,
                      (std::array<int64_t, 3>{int64_t(step.origin.x), int64_t(step.origin.y), int64_t(step.origin.z)}));
        }
    }
}

} // namespace
} // namespace rendertest
