#include <gtest/gtest.h>

#include <atomic>
#include <iostream>
#include <memory>
#include <set>
#include <sstream>
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

/// Captures what is written to a standard stream while it lives.
class StreamCapture {
public:
    explicit StreamCapture(std::ostream& stream) : _stream(stream), _previous(stream.rdbuf(_text.rdbuf())) {}
    ~StreamCapture() { _stream.rdbuf(_previous); }
    std::string Text() const { return _text.str(); }

private:
    std::ostream& _stream;
    std::ostringstream _text;
    std::streambuf* _previous;
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

TEST_F(UniqueObjectRegistry, CreateRegistersAndFillsSelfReference)
{
    Id const id(0x1111, 0x2222);
    std::shared_ptr<Probe> probe = Probe::Create(id, 7);
    ASSERT_TRUE(probe);
    EXPECT_EQ(probe->tag, 7);
    EXPECT_EQ(Probe::Get(id), probe);
    EXPECT_EQ(game::entity::Get<Probe>(id), probe);
    EXPECT_EQ(probe->selfReference.lock().get(), static_cast<BaseEntity*>(probe.get()));
    EXPECT_EQ(Probe::Count(), 1u);

    std::shared_ptr<Probe> other = game::entity::Create<Probe>(Id(0x1111, 0x3333));
    EXPECT_EQ(Probe::Get(Id(0x1111, 0x3333)), other);
    EXPECT_EQ(Probe::Count(), 2u);
}

TEST_F(UniqueObjectRegistry, MissingAndUnsetIdsFindNothing)
{
    Probe::Create(Id(1, 2));
    EXPECT_FALSE(Probe::Get(Id(1, 3)));
    EXPECT_FALSE(Probe::Get(Id(0, 2)));
    EXPECT_FALSE(Probe::Get(Id(1, 0)));
    EXPECT_FALSE(Probe::Get(Id()));
}

TEST_F(UniqueObjectRegistry, DuplicateIdThrowsAndKeepsTheFirstObject)
{
    Id const id = Id::Generate();
    std::shared_ptr<Probe> first = Probe::Create(id, 1);
    try {
        Probe::Create(id, 2);
        FAIL() << "a second object with the same id was accepted";
    } catch (std::runtime_error const& error) {
        EXPECT_EQ(std::string(error.what()),
                  "UNIQUE_OBJECT Probe with id " + static_cast<std::string>(id) + " already exists");
    }
    EXPECT_EQ(Probe::Get(id), first);
    EXPECT_EQ(Probe::Get(id)->tag, 1);
    EXPECT_EQ(Probe::Count(), 1u);
    EXPECT_EQ(Probe::_alive.load(), 1); // the rejected object is gone
}

TEST_F(UniqueObjectRegistry, CreateRefusesAnUnsetId)
{
    EXPECT_THROW(Probe::Create(Id(5, 0)), std::runtime_error);
    EXPECT_THROW(Probe::Create(Id()), std::runtime_error);
    EXPECT_EQ(Probe::Count(), 0u);
    EXPECT_EQ(Probe::_alive.load(), 0);
}

TEST_F(UniqueObjectRegistry, DestroyWithoutOtherHoldersIsSilentAndReleases)
{
    Id const id(10, 20);
    std::weak_ptr<Probe> watch = Probe::Create(id);
    StreamCapture err(std::cerr);
    StreamCapture out(std::cout);
    EXPECT_TRUE(Probe::Destroy(id));
    EXPECT_EQ(err.Text(), "");
    EXPECT_EQ(out.Text(), "");
    EXPECT_TRUE(watch.expired());
    EXPECT_FALSE(Probe::Get(id));
    EXPECT_EQ(Probe::Count(), 0u);
}

TEST_F(UniqueObjectRegistry, DestroyWhileHeldWarnsAndStillErases)
{
    Id const id = Id::Generate();
    std::shared_ptr<Probe> held = Probe::Create(id);
    StreamCapture err(std::cerr);
    StreamCapture out(std::cout);
    EXPECT_TRUE(Probe::Destroy(id));
    EXPECT_EQ(err.Text(), "WARNING: UNIQUE_OBJECT Probe with id " + static_cast<std::string>(id) +
                              " being Destroyed while still in use\n");
    EXPECT_EQ(out.Text(), "");
    EXPECT_FALSE(Probe::Get(id));
    EXPECT_EQ(held.use_count(), 1); // the holder keeps a live object
    EXPECT_EQ(Probe::_alive.load(), 1);
}

TEST_F(UniqueObjectRegistry, DestroyOfAMissingIdReportsNothing)
{
    Probe::Create(Id(1, 2));
    StreamCapture err(std::cerr);
    StreamCapture out(std::cout);
    EXPECT_FALSE(Probe::Destroy(Id(1, 3)));
    EXPECT_FALSE(Probe::Destroy(Id()));
    EXPECT_EQ(err.Text(), "");
    EXPECT_EQ(out.Text(), "");
    EXPECT_EQ(Probe::Count(), 1u);
}

TEST_F(UniqueObjectRegistry, ForEachVisitsEveryObjectAndSkipsEmptySlots)
{
    std::set<int> expected;
    for (int i = 1; i <= 5; ++i) {
        Probe::Create(Id(100, static_cast<uint64_t>(i)), i);
        expected.insert(i);
    }
    Probe::InsertEmptySlot(Id(100, 99));
    std::set<int> seen;
    Probe::ForEach([&seen](std::shared_ptr<Probe> probe) {
        ASSERT_TRUE(probe);
        EXPECT_GE(probe.use_count(), 2); // the registry's and the call's own
        // Shared holds nest: a lookup of the same class from inside the walk works.
        EXPECT_EQ(Probe::Get(probe->id), probe);
        seen.insert(probe->tag);
    });
    EXPECT_EQ(seen, expected);
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
                Id const id(static_cast<uint64_t>(t + 1), static_cast<uint64_t>(i + 1));
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
