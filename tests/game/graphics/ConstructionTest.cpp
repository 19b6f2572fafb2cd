// What the renderer sets up when it is made, the graphics presets, the shader
// tables, Cleanup, and the game starting and stopping it.
#include "GameRendererFixture.hpp"

#include "nerox/graphics/Texture.hpp"
#include "nerox/graphics/TextureRef.hpp"

#include <gmock/gmock.h>

namespace rendertest {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST_F(GameRendererTest, ConstructionFillsTheTablesInOrder)
{
    GameRenderer& r = Make();
    // The font atlas is entry 0 of the texture table.
    ASSERT_EQ(r.TextureCount(), 1u);
    ASSERT_NE(r.GetTexture(GameRenderer::FontAtlasTextureIndex), nullptr);
    EXPECT_NE(r.GetTexture(0)->GetImageView(), VK_NULL_HANDLE);
    // The shaders find their hit groups by these indices.
    EXPECT_THAT(r.renderableHitShaders, ElementsAre("game/graphics/rt/entity_tri", "game/graphics/rt/entity_box",
                                                    "game/graphics/rt/entity_sphere", "game/graphics/rt/plasma"));
    EXPECT_THAT((std::vector<uint32_t>{r.entityTriangleHitShader, r.entityBoxHitShader, r.entitySphereHitShader,
                                       r.plasmaHitShader, r.entityCallableShader}),
                ElementsAre(0u, 1u, 2u, 3u, 0u));
    EXPECT_THAT(r.renderableCallableShaders, ElementsAre("#rcall\nvoid main(){}"));
    ASSERT_TRUE(r.overlayRenderpass && r.crosshairPipeline && r.colliderTrianglesPipeline && r.colliderLinesPipeline);
    EXPECT_NE(r.linearClampSampler->Handle(), r.linearClampSampler2->Handle());
    // The device was asked for the stores the game's shaders make.
    EXPECT_TRUE(r.GetDevice().EnabledFeatures().core.vertexPipelineStoresAndAtomics);
    EXPECT_TRUE(r.GetDevice().EnabledFeatures().core.fragmentStoresAndAtomics);

    // Modules register shaders after the built-in ones until the first frame.
    EXPECT_EQ(r.AddRenderableHitShader("modules/a/hit"), 4u);
    EXPECT_EQ(r.AddRenderableCallableShader("modules/a/call"), 1u);
    r.StartRendering();
    EXPECT_FALSE(r.renderableShadersLocked);
    r.Frame();
    EXPECT_TRUE(r.renderableShadersLocked);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(r.AddRenderableHitShader("late"), "ASSERTION FAILED: \\(!renderableShadersLocked\\) in .*GameRenderer.cpp");
    EXPECT_DEATH(r.AddRenderableCallableShader("late"), "ASSERTION FAILED: \\(!renderableShadersLocked\\)");
}

TEST_F(GameRendererTest, WithoutSettingsThereIsNoRenderer)
{
    Game::settings.reset();
    try {
        Make();
        FAIL() << "no exception";
    } catch (std::runtime_error const& error) {
        EXPECT_THAT(error.what(), HasSubstr("Game::settings"));
    }
}

TEST_F(GameRendererTest, AnUnsetPresetBecomesMediumAndIsSavedAtOnceASetOneIsAppliedButNotSaved)
{
    struct Case {
        int preset, quality;
        float finalUpscale;
        bool saved;
    };
    for (Case c : {Case{-1, 1, 0.0f, true}, Case{0, 7, 0.25f, false}, Case{5, 2, 1.0f, false}}) {
        SCOPED_TRACE(c.preset);
        Game::settings->graphics_preset = c.preset;
        Game::settings->upscaling_quality_setting = 7;
        Game::settings->final_upscale = 0.25f;
        std::string const before = testsupport::ReadText(settingsPath);
        Make();
        renderer.reset();
        EXPECT_EQ(Game::settings->graphics_preset, c.preset == -1 ? 3 : c.preset);
        EXPECT_EQ(Game::settings->upscaling_quality_setting, c.quality);
        EXPECT_EQ(Game::settings->final_upscale, c.finalUpscale);
        std::string const after = testsupport::ReadText(settingsPath);
        if (c.saved)
            EXPECT_THAT(after, AllOf(HasSubstr("graphics_preset = 3\n"), HasSubstr("upscaling_quality_setting = 1\n")));
        else
            EXPECT_EQ(after, before);
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
    r.Cleanup();
    EXPECT_EQ(r.TextureCount(), 0u); // the font atlas went too
    EXPECT_TRUE(r.pushTextures.empty() && r.trash.empty() && r.trashPrevious.empty());
    EXPECT_TRUE(tableTextureGone && pushedGone && trashedGone);
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
    std::vector<std::string> order;
    for (std::string const& event : gametest::EventsWith("GAME_Mod:"))
        if (event.find("Frame") == std::string::npos) order.push_back(event);
    EXPECT_THAT(order, ElementsAre("GAME_Mod:Game_Start", "GAME_Mod:Renderer_StartRendering",
                                   "GAME_Mod:Renderer_StopRendering", "GAME_Mod:Game_Stop"));
}

} // namespace
} // namespace rendertest
