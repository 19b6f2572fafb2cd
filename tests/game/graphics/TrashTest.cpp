// Deferred destruction and the push list.
#include "GameRendererFixture.hpp"

#include "nerox/graphics/Texture.hpp"

#include <atomic>
#include <thread>

namespace rendertest {
namespace {

// Counts its live instances; optionally does something when it goes.
struct Tracked {
    static inline std::atomic<int> alive{0};
    Tracked() { ++alive; }
    ~Tracked()
    {
        --alive;
        if (onDestroy)
            onDestroy();
    }
    std::function<void()> onDestroy;
};

// A texture that counts its pushes and the command buffers they got.
struct PushCounter : nerox::graphics::Texture {
    void Push(VkCommandBuffer commandBuffer) override
    {
        ++pushes;
        lastCommandBuffer = commandBuffer;
    }
    int pushes = 0;
    VkCommandBuffer lastCommandBuffer = VK_NULL_HANDLE;
};

using TrashTest = GameRendererTest;

TEST_F(TrashTest, AnObjectDiesAtTheSecondCollectionAfterItsTrashAndFramesCollectOnceEach)
{
    GameRenderer& r = Make();
    Tracked::alive = 0;
    r.Trash(std::make_shared<Tracked>());
    r.CollectTrash();
    EXPECT_EQ(Tracked::alive, 1); // in trashPrevious
    EXPECT_EQ(r.trashPrevious.size(), 1u);
    r.CollectTrash();
    EXPECT_EQ(Tracked::alive, 0);
    EXPECT_TRUE(r.trash.empty() && r.trashPrevious.empty());

    r.StartRendering();
    r.Frame();
    r.Trash(std::make_shared<Tracked>()); // in frame N, after its collection
    r.Frame();                            // N + 1
    EXPECT_EQ(Tracked::alive, 1);
    r.Frame(); // N + 2
    EXPECT_EQ(Tracked::alive, 0);
}

TEST_F(TrashTest, AReleaseThatTrashesAgainIsFollowed)
{
    GameRenderer& r = Make();
    Tracked::alive = 0;
    // The outer object, when released, trashes the inner one.
    auto makeChain = [&r] {
        auto inner = std::make_shared<Tracked>();
        auto outer = std::make_shared<Tracked>();
        outer->onDestroy = [&r, inner]() mutable { r.Trash(std::move(inner)); };
        r.Trash(std::move(outer));
    };
    makeChain();
    r.CollectTrash();
    r.CollectTrash(); // the outer one goes and the inner one lands in the new trash
    EXPECT_EQ(Tracked::alive, 1);
    r.CollectTrash();
    EXPECT_EQ(Tracked::alive, 1);
    r.CollectTrash();
    EXPECT_EQ(Tracked::alive, 0);

    makeChain();
    r.CollectAllTrash(); // takes both at once
    EXPECT_EQ(Tracked::alive, 0);
    EXPECT_TRUE(r.trash.empty() && r.trashPrevious.empty());
}

TEST_F(TrashTest, OtherThreadsTrashWhileFramesCollect)
{
    GameRenderer& r = Make();
    Tracked::alive = 0;
    std::atomic<bool> done{false};
    std::thread producer([&] {
        for (int i = 0; i < 2000; ++i)
            r.Trash(std::make_shared<Tracked>());
        done = true;
    });
    while (!done.load())
        r.CollectTrash();
    producer.join();
    r.CollectAllTrash();
    EXPECT_EQ(Tracked::alive, 0);
}

TEST_F(TrashTest, PushedTexturesArePushedOnceAndATextureOnlyTheListHoldsIsTrashedNotPushed)
{
    GameRenderer& r = Make();
    r.StartRendering();
    auto kept = std::make_shared<PushCounter>();
    std::weak_ptr<PushCounter> orphan;
    {
        auto texture = std::make_shared<PushCounter>();
        orphan = texture;
        r.PushTexture(std::move(texture));
    }
    r.PushTexture(kept);
    r.PushTexture(nullptr); // ignored
    r.Frame(); // the orphan is trashed in its push stage, after this frame's collection
    EXPECT_EQ(kept->pushes, 1);
    EXPECT_NE(kept->lastCommandBuffer, VK_NULL_HANDLE);
    EXPECT_TRUE(r.pushTextures.empty());
    ASSERT_FALSE(orphan.expired());
    EXPECT_EQ(orphan.lock()->pushes, 0);
    r.Frame();
    EXPECT_EQ(kept->pushes, 1); // not pushed again unless asked
    EXPECT_FALSE(orphan.expired());
    r.Frame();
    EXPECT_TRUE(orphan.expired());
    EXPECT_EQ(kept.use_count(), 1); // the list's reference went through the trash
}

} // namespace
} // namespace rendertest
