#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "game/entity/BaseEntity.hpp"
#include "game/entity/Id.hpp"
#include "game/entity/UniqueObject.hpp"

using game::entity::BaseEntity;
using game::entity::Id;

namespace {

/// An entity kind registered through the idiom, counting its live objects.
class Probe : public BaseEntity, public game::entity::UniqueObject<Probe> {
public:
    static constexpr char const* _uniqueObjectName = "Probe";
    explicit Probe(Id id, int tag = 0) : id(id), tag(tag) { ++_alive; }
    ~Probe() override { --_alive; }
    Id GetID() const { return id; }
    /// An empty slot, as a half-finished insertion would leave.
    static void InsertEmptySlot(Id const& slot) { _sharedObjects[slot] = nullptr; }
    Id id;
    int tag;
    inline static std::atomic<int> _alive{0};
};

class UniqueObjectRegistry : public ::testing::Test {
protected:
    void SetUp() override { Probe::DestroyAll(); }
    void TearDown() override { Probe::DestroyAll(); EXPECT_EQ(Probe::_alive.load(), 0); }
};

TEST_F(UniqueObjectRegistry, CreateRegistersOnceForEachSkipsEmptySlotsDestroyWarnsWhileHeld)
{
    Id const held = Id::Generate(), free = Id(0x1111, 0x4444);
    std::shared_ptr<Probe> holder = Probe::Create(held, 7);
    EXPECT_EQ(holder->selfReference.lock().get(), static_cast<BaseEntity*>(holder.get()));
    std::weak_ptr<Probe> const watch = game::entity::Create<Probe>(free, 2);
    EXPECT_EQ(game::entity::Get<Probe>(held), holder);
    for (Id const missing : {Id(0x1111, 0x5555), Id(0, 0x3333), Id(0x1111, 0), Id()})
        EXPECT_FALSE(Probe::Get(missing));
    try {
        Probe::Create(held, 2);
        FAIL() << "a second object with the same id was accepted";
    } catch (std::runtime_error const& error) {
        EXPECT_EQ(std::string(error.what()), "UNIQUE_OBJECT Probe with id " + static_cast<std::string>(held) + " already exists");
    }
    EXPECT_EQ(Probe::Get(held)->tag, 7) << "the first object stays";
    EXPECT_THROW(Probe::Create(Id(5, 0)), std::runtime_error) << "an unset id is refused";
    EXPECT_EQ(Probe::_alive.load(), 2) << "the rejected objects are gone";

    Probe::InsertEmptySlot(Id(100, 99));
    std::set<int> seen;
    Probe::ForEach([&seen](std::shared_ptr<Probe> probe) {
        ASSERT_TRUE(probe);
        EXPECT_EQ(Probe::Get(probe->id), probe) << "a lookup from inside the walk";
        seen.insert(probe->tag);
    });
    EXPECT_EQ(seen, (std::set<int>{2, 7}));

    std::string const warning = "WARNING: UNIQUE_OBJECT Probe with id " + static_cast<std::string>(held) + " being Destroyed while still in use\n";
    struct Case { Id id; bool found; std::string warning; };
    for (Case const& c : {Case{free, true, ""}, Case{Id(10, 22), false, ""}, Case{Id(), false, ""}, Case{held, true, warning}}) {
        SCOPED_TRACE(static_cast<std::string>(c.id));
        testing::internal::CaptureStderr();
        EXPECT_EQ(Probe::Destroy(c.id), c.found);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.warning);
        EXPECT_FALSE(Probe::Get(c.id));
    }
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(holder.use_count(), 1) << "the holder keeps a live object";
    EXPECT_EQ(Probe::Count(), 1u) << "only the empty slot is left";
}

TEST_F(UniqueObjectRegistry, ConcurrentCreateGetAndDestroyKeepEveryObject)
{
    constexpr int Threads = 4, PerThread = 50;
    std::vector<std::thread> threads;
    std::atomic<int> misses{0};
    for (int t = 0; t < Threads; ++t) {
        threads.emplace_back([t, &misses] {
            for (uint64_t i = 1; i <= PerThread; ++i) {
                Probe::Create(Id(t + 1, i), t);
                misses += !Probe::Get(Id(t + 1, i));
                Probe::ForEach([](std::shared_ptr<Probe> probe) { (void)probe->tag; });
                if (i % 2 == 0)
                    Probe::Destroy(Id(t + 1, i - 1));
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(misses.load(), 0);
    EXPECT_EQ(Probe::Count(), static_cast<size_t>(Threads * PerThread / 2));
}

} // namespace
