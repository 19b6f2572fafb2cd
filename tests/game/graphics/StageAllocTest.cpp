// The frame's stages allocate nothing of their own in a steady frame.
#include "GameRendererFixture.hpp"
#include "support/CountedAllocations.hpp"

namespace rendertest {
namespace {

TEST_F(GameRendererTest, SteadyStagesAllocateNothing)
{
    // A module without hooks: the stages walk the module lists and call nothing.
    ASSERT_TRUE(GAME_Mod::LoadModule("MODTEST_empty", true));
    for (char const* key : {"update", "render", "post", "overlay", "ui"})
        GAME_Mod::SortModules(key, [](GAME_Mod::Ptr a, GAME_Mod::Ptr b) { return a->name < b->name; });
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
