// Deferred destruction and the push list.
#include "GameRendererFixture.hpp"

#include "nerox/graphics/Texture.hpp"

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace rendertest {
namespace {

// Counts its live instances; optionally trashes another object when it goes.
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

class TrashTest : public GameRendererTest {
protected:
    void SetUp() override
    {
        GameRendererTest::SetUp();
        Tracked::alive = 0;
    }
};

TEST_F(TrashTest, AnObjectDiesAtTheSecondCollectionAfterItsTrash)
{
    GameRenderer& r = Make();
    std::weak_ptr<Tracked> watch;
    {
        auto object = std::make_shared<Tracked>();
        watch = object;
        r.Trash(std::move(object));
    }
    EXPECT_FALSE(watch.expired()); // in trash
    r.CollectTrash();
    EXPECT_FALSE(watch.expired()); // in trashPrevious
    EXPECT_EQ(r.trashPrevious.size(), 1u);
    r.CollectTrash();
    EXPECT_TRUE(watch.expired());
    EXPECT_TRUE(r.trash.empty());
    EXPECT_TRUE(r.trashPrevious.empty());
}

TEST_F(TrashTest, FramesCollectOnceEach)
{
    GameRenderer& r = Make();
    r.StartRendering();
    r.Frame();
    std::weak_ptr<Tracked> watch;
    {
        auto object = std::make_shared<Tracked>();
        watch = object;
        r.Trash(object); // in frame N, after its collection
    }
    r.Frame(); // N + 1
    EXPECT_FALSE(watch.expired());
    r.Frame(); // N + 2
    EXPECT_TRUE(watch.expired());
}

TEST_F(TrashTest, AnObjectStillOwnedElsewhereOutlivesItsTrash)
{
    GameRenderer& r = Make();
    auto object = std::make_shared<Tracked>();
    r.Trash(object);
    r.CollectAllTrash();
    EXPECT_EQ(Tracked::alive, 1);
    EXPECT_EQ(object.use_count(), 1);
}

TEST_F(TrashTest, AReleaseThatTrashesAgainIsFollowed)
{
    GameRenderer& r = Make();
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

TEST_F(TrashTest, PushedTexturesArePushedOnceWithTheFramesCommandBuffer)
{
    GameRenderer& r = Make();
    r.StartRendering();
    auto kept = std::make_shared<PushCounter>();
    r.PushTexture(kept);
    r.PushTexture(nullptr); // ignored
    r.Frame();
    EXPECT_EQ(kept->pushes, 1);
    EXPECT_NE(kept->lastCommandBuffer, VK_NULL_HANDLE);
    EXPECT_TRUE(r.pushTextures.empty());
    r.Frame();
    EXPECT_EQ(kept->pushes, 1); // not pushed again unless asked
    r.Frame();
    EXPECT_EQ(kept.use_count(), 1); // the list's reference went through the trash
}

TEST_F(TrashTest, ATextureOnlyTheListHoldsIsTrashedNotPushed)
{
    GameRenderer& r = Make();
    r.StartRendering();
    std::weak_ptr<PushCounter> watch;
    {
        auto orphan = std::make_shared<PushCounter>();
        watch = orphan;
        r.PushTexture(std::move(orphan));
    }
    r.Frame(); // trashed in its push stage, after this frame's collection
    ASSERT_FALSE(watch.expired());
    EXPECT_EQ(watch.lock()->pushes, 0);
    r.Frame();
    EXPECT_FALSE(watch.expired());
    r.Frame();
    EXPECT_TRUE(watch.expired());
}

} // namespace
} // namespace rendertest
