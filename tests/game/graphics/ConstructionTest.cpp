// What the renderer sets up when it is made, the graphics presets, the shader
// tables and Cleanup.
#include "GameRendererFixture.hpp"

#include "nerox/graphics/Texture.hpp"
#include "nerox/graphics/TextureRef.hpp"

#include <gmock/gmock.h>

#include <cstring>
#include <memory>

namespace rendertest {
namespace {

using ::testing::ElementsAre;

TEST_F(GameRendererTest, ConstructionFillsTheTablesInOrder)
{
    GameRenderer& r = Make();
    // The font atlas is entry 0 of the texture table, with the clamping sampler.
    ASSERT_EQ(r.TextureCount(), 1u);
    ASSERT_NE(r.GetTexture(GameRenderer::FontAtlasTextureIndex), nullptr);
    EXPECT_NE(r.GetTexture(0)->GetImageView(), VK_NULL_HANDLE);

    EXPECT_THAT(r.renderableHitShaders, ElementsAre("game/graphics/rt/entity_tri", "game/graphics/rt/entity_box",
                                                    "game/graphics/rt/entity_sphere", "game/graphics/rt/plasma"));
    EXPECT_EQ(r.entityTriangleHitShader, 0u);
    EXPECT_EQ(r.entityBoxHitShader, 1u);
    EXPECT_EQ(r.entitySphereHitShader, 2u);
    EXPECT_EQ(r.plasmaHitShader, 3u);
    EXPECT_THAT(r.renderableCallableShaders, ElementsAre("#rcall\nvoid main(){}"));
    EXPECT_EQ(r.entityCallableShader, 0u);
    EXPECT_FALSE(r.renderableShadersLocked);

    EXPECT_STREQ(r.graphicsPresetNames[0], "Custom Graphics Settings (I want to tweak everything myself!)");
    EXPECT_STREQ(r.graphicsPresetNames[3], "Medium quality (recommended for most RTX GPUs)");
    EXPECT_STREQ(r.graphicsPresetNames[6], "Ultra quality (that GPU is not out yet)");
    ASSERT_EQ(r.upscalingAlgoNames.size(), 1u);
    EXPECT_STREQ(r.upscalingAlgoNames[0], "NONE");

    EXPECT_FLOAT_EQ(r.nearClip, 0.001f);
    EXPECT_EQ(r.originTransform, glm::dmat4(1.0));
    EXPECT_EQ(r.viewMatrix, glm::dmat4(1.0));
    ASSERT_TRUE(r.overlayRenderpass && r.crosshairPipeline && r.colliderTrianglesPipeline && r.colliderLinesPipeline);
    EXPECT_NE(r.linearClampSampler->Handle(), r.linearClampSampler2->Handle());
    // The device was asked for the stores the game's shaders make.
    EXPECT_TRUE(r.GetDevice().EnabledFeatures().core.vertexPipelineStoresAndAtomics);
    EXPECT_TRUE(r.GetDevice().EnabledFeatures().core.fragmentStoresAndAtomics);
}

TEST_F(GameRendererTest, WithoutSettingsThereIsNoRenderer)
{
    Game::settings.reset();
    try {
        Make();
        FAIL() << "no exception";
    } catch (std::runtime_error const& error) {
        EXPECT_THAT(error.what(), ::testing::HasSubstr("Game::settings"));
    }
}

TEST_F(GameRendererTest, AnUnsetPresetBecomesMediumAndIsSavedAtOnce)
{
    ASSERT_EQ(Game::settings->graphics_preset, -1);
    Game::settings->upscaling_quality_setting = 3;
    Game::settings->final_upscale = 2.0f;
    Make();
    EXPECT_EQ(Game::settings->graphics_preset, 3);
    EXPECT_EQ(Game::settings->upscaling_quality_setting, 1);
    EXPECT_EQ(Game::settings->final_upscale, 0.0f);
    std::string const saved = testsupport::ReadText(settingsPath);
    EXPECT_THAT(saved, ::testing::HasSubstr("graphics_preset = 3\n"));
    EXPECT_THAT(saved, ::testing::HasSubstr("upscaling_quality_setting = 1\n"));
}

TEST_F(GameRendererTest, ASetPresetIsAppliedButNotSaved)
{
    for (int preset : {0, 5}) {
        SCOPED_TRACE(preset);
        Game::settings->graphics_preset = preset;
        Game::settings->upscaling_quality_setting = 7;
        Game::settings->final_upscale = 0.25f;
        std::string const before = testsupport::ReadText(settingsPath);
        Make();
        EXPECT_EQ(testsupport::ReadText(settingsPath), before);
        EXPECT_EQ(Game::settings->graphics_preset, preset);
        EXPECT_EQ(Game::settings->upscaling_quality_setting, preset == 5 ? 2 : 7);
        EXPECT_EQ(Game::settings->final_upscale, preset == 5 ? 1.0f : 0.25f);
        renderer.reset();
    }
}

TEST_F(GameRendererTest, PresetsSetQualityAndFinalUpscale)
{
    GameRenderer& r = Make();
    struct Row {
        int preset, quality;
        float finalUpscale;
    };
    // Presets outside 1 to 6 leave the marker values 9 and 9.5 alone.
    for (Row row : {Row{1, 1, 2.0f}, Row{2, 1, 1.5f}, Row{3, 1, 0.0f}, Row{4, 1, 0.0f}, Row{5, 2, 1.0f},
                    Row{6, 3, 1.0f}, Row{0, 9, 9.5f}, Row{7, 9, 9.5f}, Row{-1, 9, 9.5f}}) {
        SCOPED_TRACE(row.preset);
        Game::settings->graphics_preset = row.preset;
        Game::settings->upscaling_quality_setting = 9;
        Game::settings->final_upscale = 9.5f;
        r.ConfigureSettingsFromPreset();
        EXPECT_EQ(Game::settings->upscaling_quality_setting, row.quality);
        EXPECT_EQ(Game::settings->final_upscale, row.finalUpscale);
    }
}

TEST_F(GameRendererTest, ModulesRegisterShadersAfterTheBuiltInOnesUntilTheFirstFrame)
{
    GameRenderer& r = Make();
    EXPECT_EQ(r.AddRenderableHitShader("modules/a/hit"), 4u);
    EXPECT_EQ(r.AddRenderableHitShader("modules/b/hit"), 5u);
    EXPECT_EQ(r.AddRenderableCallableShader("modules/a/call"), 1u);
    EXPECT_EQ(r.renderableHitShaders[5], "modules/b/hit");
    r.StartRendering();
    EXPECT_FALSE(r.renderableShadersLocked);
    r.Frame();
    EXPECT_TRUE(r.renderableShadersLocked);
}

TEST_F(GameRendererTest, RegisteringAfterTheLockAborts)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    GameRenderer& r = Make();
    r.renderableShadersLocked = true;
    EXPECT_DEATH(r.AddRenderableHitShader("late"), "ASSERTION FAILED: \\(!renderableShadersLocked\\) in .*GameRenderer.cpp");
    EXPECT_DEATH(r.AddRenderableCallableShader("late"), "ASSERTION FAILED: \\(!renderableShadersLocked\\)");
}

// A texture whose destruction the test can see.
struct WatchedTexture : nerox::graphics::Texture {
    explicit WatchedTexture(bool* destroyed) : destroyed(destroyed) {}
    ~WatchedTexture() override { *destroyed = true; }
    bool* destroyed;
};

TEST_F(GameRendererTest, CleanupEmptiesTheTablesAndTheTrash)
{
    GameRenderer& r = Make();
    bool tableTextureGone = false, pushedGone = false, trashedGone = false;
    r.AddTexture(nerox::graphics::TextureRef(std::make_shared<WatchedTexture>(&tableTextureGone)));
    r.PushTexture(std::make_shared<WatchedTexture>(&pushedGone));
    r.Trash(std::make_shared<WatchedTexture>(&trashedGone));
    ASSERT_EQ(r.TextureCount(), 2u);

    r.Cleanup();
    EXPECT_EQ(r.TextureCount(), 0u); // the font atlas went too
    EXPECT_TRUE(r.pushTextures.empty());
    EXPECT_TRUE(r.trash.empty());
    EXPECT_TRUE(r.trashPrevious.empty());
    EXPECT_TRUE(tableTextureGone);
    EXPECT_TRUE(pushedGone);
    EXPECT_TRUE(trashedGone);
    // The next world's textures count from 0 again.
    EXPECT_EQ(r.AddTexture(nerox::graphics::TextureRef(GameRenderer::FontAtlasPath)), 0u);
}

TEST_F(GameRendererTest, TheGameStartsAndStopsRendering)
{
    LoadRecorderSortedInto();
    GameRenderer& r = Make();
    bool trashedGone = false;
    Game::Start();
    EXPECT_TRUE(r.IsRendering());
    r.Frame();
    r.Trash(std::make_shared<WatchedTexture>(&trashedGone));
    Game::Stop();
    EXPECT_FALSE(r.IsRendering());
    EXPECT_EQ(r.TextureCount(), 0u);
    EXPECT_TRUE(trashedGone);
    auto const events = gametest::EventsWith("GAME_Mod:");
    int const start = gametest::IndexOf(events, "GAME_Mod:Game_Start");
    int const startRendering = gametest::IndexOf(events, "GAME_Mod:Renderer_StartRendering");
    int const stopRendering = gametest::IndexOf(events, "GAME_Mod:Renderer_StopRendering");
    int const stop = gametest::IndexOf(events, "GAME_Mod:Game_Stop");
    ASSERT_GE(start, 0);
    EXPECT_LT(start, startRendering);
    EXPECT_LT(startRendering, stopRendering);
    EXPECT_LT(stopRendering, stop);
}

} // namespace
} // namespace rendertest
