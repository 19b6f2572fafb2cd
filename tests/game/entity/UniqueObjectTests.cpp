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
using game::entity::UniqueObject;

namespace {

/// An entity kind registered through the idiom, counting its live objects.
class Probe : public BaseEntity, public UniqueObject<Probe> {
public:
    static constexpr char const* _uniqueObjectName = "Probe";

    explicit Probe(Id id, int tag = 0) : id(id), tag(tag) { ++_alive; }
    ~Probe() override { --_alive; }

    Id GetID() const { return id; }

    /// Puts an empty slot into the registry, as a half-finished insertion would leave.
    static void InsertEmptySlot(Id const& slot) { _sharedObjects[slot] = nullptr; }

    Id id;
    int tag;
    inline static std::atomic<int> _alive{0};
};

class UniqueObjectRegistry : public ::testing::Test {
protected:
    void SetUp() override { Probe::DestroyAll(); }
    void TearDown() override
    {
        Probe::DestroyAll();
        EXPECT_EQ(Probe::_alive.load(), 0);
    }
};

TEST_F(UniqueObjectRegistry, CreateRegistersOnceAndGetFindsOnlySetIds)
{
    Id const id = Id::Generate();
    std::shared_ptr<Probe> const probe = Probe::Create(id, 7);
    EXPECT_EQ(game::entity::Get<Probe>(id), probe);
    EXPECT_EQ(probe->selfReference.lock().get(), static_cast<BaseEntity*>(probe.get()));
    std::shared_ptr<Probe> const other = game::entity::Create<Probe>(Id(0x1111, 0x3333));
    EXPECT_EQ(Probe::Get(Id(0x1111, 0x3333)), other);
    for (Id const missing : {Id(0x1111, 0x4444), Id(0, 0x3333), Id(0x1111, 0), Id()})
        EXPECT_FALSE(Probe::Get(missing));

    try {
        Probe::Create(id, 2);
        FAIL() << "a second object with the same id was accepted";
    } catch (std::runtime_error const& error) {
        EXPECT_EQ(std::string(error.what()), "UNIQUE_OBJECT Probe with id " + static_cast<std::string>(id) + " already exists");
    }
    EXPECT_EQ(Probe::Get(id)->tag, 7) << "the first object stays";
    EXPECT_THROW(Probe::Create(Id(5, 0)), std::runtime_error) << "an unset id is refused";
    EXPECT_EQ(Probe::Count(), 2u);
    EXPECT_EQ(Probe::_alive.load(), 2) << "the rejected objects are gone";
}

TEST_F(UniqueObjectRegistry, DestroyErasesAndWarnsOnlyWhileTheObjectIsHeld)
{
    Id const held = Id(10, 20), free = Id(10, 21);
    std::shared_ptr<Probe> holder = Probe::Create(held);
    std::weak_ptr<Probe> const watch = Probe::Create(free);
    struct Case {
        Id id;
        bool found;
        std::string warning;
    };
    for (Case const& c : {Case{free, true, ""}, Case{Id(10, 22), false, ""}, Case{Id(), false, ""},
                          Case{held, true, "WARNING: UNIQUE_OBJECT Probe with id " + static_cast<std::string>(held) +
                                               " being Destroyed while still in use\n"}}) {
        SCOPED_TRACE(static_cast<std::string>(c.id));
        testing::internal::CaptureStderr();
        testing::internal::CaptureStdout();
        EXPECT_EQ(Probe::Destroy(c.id), c.found);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.warning);
        EXPECT_FALSE(Probe::Get(c.id));
    }
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(holder.use_count(), 1) << "the holder keeps a live object";
    EXPECT_EQ(Probe::Count(), 0u);
}

TEST_F(UniqueObjectRegistry, ForEachVisitsEveryObjectAndSkipsEmptySlots)
{
    for (int i = 1; i <= 5; ++i)
        Probe::Create(Id(100, static_cast<uint64_t>(i)), i);
    Probe::InsertEmptySlot(Id(100, 99));
    std::set<int> seen;
    Probe::ForEach([&seen](std::shared_ptr<Probe> probe) {
        ASSERT_TRUE(probe);
        // Shared holds nest: a lookup of the same class from inside the walk works.
        EXPECT_EQ(Probe::Get(probe->id), probe);
        seen.insert(probe->tag);
    });
    EXPECT_EQ(seen, (std::set<int>{1, 2, 3, 4, 5}));
}

TEST_F(UniqueObjectRegistry, ConcurrentCreateGetAndDestroyKeepEveryObject)
{
    constexpr int Threads = 4;
    constexpr int PerThread = 50;
    std::vector<std::thread> threads;
    std::atomic<int> misses{0};
    for (int t = 0; t < Threads; ++t) {
        threads.emplace_back([t, &misses] {
            for (int i = 0; i < PerThread; ++i) {
                Id const id = Id(static_cast<uint64_t>(t + 1), static_cast<uint64_t>(i + 1));
                Probe::Create(id, t);
                if (!Probe::Get(id))
                    ++misses;
                Probe::ForEach([](std::shared_ptr<Probe> probe) { (void)probe->tag; });
                if (i % 2 == 1)
                    Probe::Destroy(Id(static_cast<uint64_t>(t + 1), static_cast<uint64_t>(i)));
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(misses.load(), 0);
    EXPECT_EQ(Probe::Count(), static_cast<size_t>(Threads * PerThread / 2));
}

} // namespace
