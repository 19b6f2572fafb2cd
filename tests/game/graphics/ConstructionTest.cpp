// What the renderer sets up when it is made, the first-run preset, Cleanup, the game
// starting and stopping it, deferred destruction and the push list.
#include "GameRendererFixture.hpp"

#include "nerox/graphics/Texture.hpp"
#include "nerox/graphics/TextureRef.hpp"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

namespace rendertest {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Eq;
using ::testing::HasSubstr;

TEST_F(GameRendererTest, ConstructionFillsTheTablesInOrder) {
    GameRenderer& r = Make();
    // The font atlas is entry 0 of the texture table.
    ASSERT_TRUE(r.TextureCount() == 1u && r.GetTexture(GameRenderer::FontAtlasTextureIndex));
    EXPECT_NE(r.GetTexture(0)->GetImageView(), VK_NULL_HANDLE);
    // The shaders find their hit groups by these indices.
    EXPECT_EQ(std::tie(r.entityTriangleHitShader, r.entityBoxHitShader, r.entitySphereHitShader, r.plasmaHitShader,
                       r.entityCallableShader),
              std::tuple(0u, 1u, 2u, 3u, 0u));
    ASSERT_TRUE(r.overlayRenderpass && r.crosshairPipeline && r.colliderTrianglesPipeline && r.colliderLinesPipeline);
    EXPECT_NE(r.linearClampSampler->Handle(), r.linearClampSampler2->Handle());
    // The device was asked for the stores the game's shaders make.
    auto const& enabled = r.GetDevice().EnabledFeatures();
    EXPECT_TRUE(enabled.core.vertexPipelineStoresAndAtomics && enabled.core.fragmentStoresAndAtomics);
    // What drawing the world needs, where the device has it: every device rasterizes
    // (addresses, dynamic rendering); ray tracing and ray query only with it.
    EXPECT_TRUE(enabled.core.shaderInt64 && enabled.vulkan13.dynamicRendering && enabled.vulkan12.scalarBlockLayout);
    EXPECT_EQ(enabled.rayTracingPipeline.rayTracingPipeline == VK_TRUE, r.GetDevice().HasRayTracing());
    EXPECT_TRUE(r.GetDevice().HasRayTracing() || !enabled.rayQuery.rayQuery);

    // Modules register shaders after the built-in ones until the first frame.
    EXPECT_EQ(r.AddRenderableHitShader("modules/a/hit"), 4u);
    EXPECT_EQ(r.AddRenderableCallableShader("modules/a/call"), 1u);
    r.StartRendering();
    r.Frame();
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(r.AddRenderableHitShader("late"),
                 "ASSERTION FAILED: \\(!renderableShadersLocked\\) in .*GameRenderer.cpp");
}

TEST_F(GameRendererTest, AnUnsetPresetBecomesMediumAndIsSavedAtOnceASetOneIsAppliedButNotSaved) {
    Game::settings.reset();
    EXPECT_THAT([&] { Make(); }, ::testing::ThrowsMessage<std::runtime_error>(HasSubstr("Game::settings")));
    Game::settings = std::make_unique<game::GameSettings>(settingsPath, std::nullopt);
    struct Case {
        int preset, quality;
        float finalUpscale;
        bool saved;
    };
    // Presets outside 1 to 6 change nothing.
    for (Case c :
         {Case{-1, 1, 0.0f, true}, Case{0, 7, 0.25f, false}, Case{7, 7, 0.25f, false}, Case{5, 2, 1.0f, false}}) {
        SCOPED_TRACE(c.preset);
        game::GameSettings& s = *Game::settings;
        std::tie(s.graphics_preset, s.upscaling_quality_setting, s.final_upscale) = std::tuple(c.preset, 7, 0.25f);
        std::string const before = testsupport::ReadText(settingsPath);
        Make();
        renderer.reset();
        EXPECT_EQ(std::tie(s.graphics_preset, s.upscaling_quality_setting, s.final_upscale),
                  std::tuple(c.preset == -1 ? 3 : c.preset, c.quality, c.finalUpscale));
        EXPECT_THAT(testsupport::ReadText(settingsPath),
                    c.saved ? ::testing::Matcher<std::string>(AllOf(HasSubstr("graphics_preset = 3\n"),
                                                                    HasSubstr("upscaling_quality_setting = 1\n")))
                            : Eq(before));
    }
}

// Counts its live instances; optionally does something when it goes.
struct Tracked {
    static inline std::atomic<int> alive{0};
    Tracked() { ++alive; }
    ~Tracked() {
        --alive;
        if (onDestroy) onDestroy();
    }
    std::function<void()> onDestroy;
};

// A texture that counts its pushes.
struct PushCounter : nerox::graphics::Texture {
    void Push(VkCommandBuffer) override { ++pushes; }
    int pushes = 0;
};

TEST_F(GameRendererTest, TheGameStartsAndStopsRenderingAndStopCleansUpTablesAndTrash) {
    LoadSortedInto();
    GameRenderer& r = Make();
    Tracked::alive = 0;
    Game::Start();
    EXPECT_TRUE(r.IsRendering());
    r.AddTexture(nerox::graphics::TextureRef(std::make_shared<PushCounter>()));
    r.PushTexture(std::make_shared<PushCounter>());
    r.Trash(std::make_shared<Tracked>());
    Game::Stop();
    EXPECT_EQ(r.TextureCount(), 0u); // the font atlas went too
    EXPECT_TRUE(!r.IsRendering() && r.pushTextures.empty() && r.trash.empty() && r.trashPrevious.empty() &&
                Tracked::alive == 0);
    EXPECT_THAT(recorder::Events(),
                ElementsAre("GAME_Mod:Game_Start", "GAME_Mod:Renderer_StartRendering",
                            "GAME_Mod:Renderer_StopRendering", "GAME_Mod:Game_Stop"));
    // The next world's textures count from 0 again.
    EXPECT_EQ(r.AddTexture(nerox::graphics::TextureRef(GameRenderer::FontAtlasPath)), 0u);
}

TEST_F(GameRendererTest, AnObjectDiesAtTheSecondCollectionAfterItsTrashAndAReleaseThatTrashesAgainIsFollowed) {
    GameRenderer& r = Make();
    Tracked::alive = 0;
    r.StartRendering();
    r.Frame();
    r.Trash(std::make_shared<Tracked>()); // in frame N, after its collection
    for (int expected : {1, 0}) {         // frames N + 1 and N + 2
        r.Frame();
        EXPECT_EQ(Tracked::alive, expected);
    }
    // The outer object, when released, trashes the inner one.
    auto const makeChain = [&r] {
        auto inner = std::make_shared<Tracked>(), outer = std::make_shared<Tracked>();
        outer->onDestroy = [&r, inner]() mutable { r.Trash(std::move(inner)); };
        r.Trash(std::move(outer));
    };
    makeChain();
    for (int expected : {2, 1, 1, 0}) {
        r.CollectTrash();
        EXPECT_EQ(Tracked::alive, expected);
    }
}

TEST_F(GameRendererTest, OtherThreadsTrashWhileFramesCollect) {
    GameRenderer& r = Make();
    Tracked::alive = 0;
    std::atomic<bool> done{false};
    std::thread producer([&] {
        for (int i = 0; i < 2000; ++i) r.Trash(std::make_shared<Tracked>());
        done = true;
    });
    while (!done.load()) r.CollectTrash();
    producer.join();
    r.CollectAllTrash();
    EXPECT_EQ(Tracked::alive, 0);
}

// Textures come from another thread while frames run, without errors of the
// validation layers; every one is in the table, and a full table refuses clearly.
TEST_F(GameRendererTest, OtherThreadsAddTexturesWhileFramesRunAndAFullTableRefuses) {
    GameRenderer& r = Make();
    r.StartRendering();
    std::atomic<bool> done{false};
    std::thread loader([&] {
        for (int i = 0; i < 8; ++i) r.AddTexture(nerox::graphics::TextureRef(GameRenderer::FontAtlasPath));
        done = true;
    });
    while (!done.load()) r.Frame();
    loader.join();
    r.Frame();
    EXPECT_EQ(r.TextureCount(), 9u);
    auto const texture = r.GetTexture(0);
    while (r.TextureCount() < r.TextureCapacity()) r.AddTexture(nerox::graphics::TextureRef(texture));
    EXPECT_THROW(r.AddTexture(nerox::graphics::TextureRef(texture)), std::runtime_error);
    r.Frame();
    r.StopRendering();
}

TEST_F(GameRendererTest, PushedTexturesArePushedOnceAndATextureOnlyTheListHoldsIsTrashedNotPushed) {
    GameRenderer& r = Make();
    r.StartRendering();
    auto kept = std::make_shared<PushCounter>();
    auto orphan = std::make_shared<PushCounter>();
    std::weak_ptr<PushCounter> const watched = orphan;
    r.PushTexture(std::move(orphan));
    r.PushTexture(kept);
    r.PushTexture(nullptr); // ignored
    r.Frame();              // the orphan is trashed in its push stage, after this frame's collection
    ASSERT_TRUE(r.pushTextures.empty() && !watched.expired());
    EXPECT_EQ(watched.lock()->pushes, 0);
    r.Frame();
    EXPECT_TRUE(kept->pushes == 1 && !watched.expired()); // not pushed again unless asked
    r.Frame();
    EXPECT_TRUE(watched.expired() && kept.use_count() == 1); // the list's reference went through the trash
}

} // namespace
} // namespace rendertest
