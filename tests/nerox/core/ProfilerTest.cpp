#include "nerox/cpu/Profiler.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <latch>
#include <map>
#include <pthread.h>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using nerox::cpu::Profiler;
using namespace std::chrono_literals;

/// One ForEach entry, copied out.
struct Entry {
    std::string threadName;
    std::string path;
    Profiler::Profile profile;
};

std::vector<Entry> Collect() {
    std::vector<Entry> entries;
    Profiler::ForEach([&](std::string const& threadName, std::string const& path, Profiler::Profile const& profile) {
        entries.push_back({threadName, path, profile});
    });
    return entries;
}

/// Records of one thread by path.
std::map<std::string, Profiler::Profile> ByPath(std::vector<Entry> const& entries) {
    std::map<std::string, Profiler::Profile> result;
    for (Entry const& entry : entries) result[entry.path] = entry.profile;
    return result;
}

class ProfilerTest : public ::testing::Test {
protected:
    void SetUp() override {
        Profiler::Reset();
        Profiler::enabled = true;
    }
    void TearDown() override {
        Profiler::enabled = false;
        Profiler::Reset();
    }
};

TEST_F(ProfilerTest, NestedScopesNameTheirPath) {
    {
        Profiler update("ServerUpdate", true);
        {
            Profiler entities("ForEachEntity::Update", true);
            { Profiler physics("Physics", true); }
        }
        { Profiler network("Network", true); }
    }
    { Profiler render("Render", true); }

    auto const records = ByPath(Collect());
    std::vector<std::string> paths;
    for (auto const& [path, profile] : records) paths.push_back(path);
    EXPECT_EQ(paths, (std::vector<std::string>{"Render", "ServerUpdate", "ServerUpdate/ForEachEntity::Update",
                                                "ServerUpdate/ForEachEntity::Update/Physics",
                                                "ServerUpdate/Network"}));
    for (auto const& [path, profile] : records) EXPECT_EQ(profile.count, 1u) << path;
}

TEST_F(ProfilerTest, RepeatedScopeAccumulatesInOneRecord) {
    for (int i = 0; i < 5; ++i) {
        Profiler outer("Tick", true);
        Profiler inner("Step", true);
    }
    auto const records = ByPath(Collect());
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records.at("Tick").count, 5u);
    EXPECT_EQ(records.at("Tick/Step").count, 5u);
    Profiler::Profile const& tick = records.at("Tick");
    EXPECT_GE(tick.min, 0.0);
    EXPECT_LE(tick.min, tick.max);
    EXPECT_GE(tick.total, tick.max);
    EXPECT_LE(tick.total, 5 * tick.max + 1e-9);
}

TEST_F(ProfilerTest, FirstTimeSetsMinimumAndSmallerOnesReplaceIt) {
    double previousTotal = 0.0;
    std::vector<double> runs;
    auto measure = [&](auto pause) {
        { Profiler scope("Work", true); std::this_thread::sleep_for(pause); }
        Profiler::Profile const profile = ByPath(Collect()).at("Work");
        runs.push_back(profile.total - previousTotal);
        previousTotal = profile.total;
        return profile;
    };

    // The first run is long: it becomes the minimum even so.
    Profiler::Profile const first = measure(50ms);
    EXPECT_EQ(first.count, 1u);
    EXPECT_GE(first.total, 50.0 * 0.9);
    EXPECT_DOUBLE_EQ(first.min, first.total);
    EXPECT_DOUBLE_EQ(first.max, first.total);

    Profiler::Profile last = first;
    for (int i = 0; i < 5; ++i) last = measure(0ms);
    EXPECT_EQ(last.count, 6u);
    double smallest = runs[0];
    double largest = runs[0];
    for (double run : runs) {
        smallest = std::min(smallest, run);
        largest = std::max(largest, run);
    }
    EXPECT_LT(smallest, runs[0]) << "no short run was shorter than the 50 ms one";
    EXPECT_NEAR(last.min, smallest, 1e-6);
    EXPECT_NEAR(last.max, largest, 1e-6);
    EXPECT_DOUBLE_EQ(last.max, first.max) << "the long first run stays the maximum";
}

TEST_F(ProfilerTest, UnstartedScopeCountsNothingButPopsItsName) {
    {
        Profiler outer("Outer", true);
        {
            Profiler idle("Idle", false);
            idle.Stop();
        }
        Profiler after("After", true);
    }
    auto const records = ByPath(Collect());
    ASSERT_EQ(records.count("Outer/Idle"), 1u);
    Profiler::Profile const& idle = records.at("Outer/Idle");
    EXPECT_EQ(idle.count, 0u);
    EXPECT_EQ(idle.total, 0.0);
    EXPECT_EQ(idle.min, -1.0);
    EXPECT_EQ(idle.max, 0.0);
    EXPECT_EQ(records.count("Outer/After"), 1u) << "the unstarted scope left its name on the stack";
    EXPECT_EQ(records.count("Outer/Idle/After"), 0u);
    EXPECT_EQ(records.at("Outer/After").count, 1u);
}

TEST_F(ProfilerTest, ExplicitStopThenDestructionPopsOnce) {
    {
        Profiler outer("Outer", true);
        {
            Profiler inner("Inner", true);
            inner.Stop();
            inner.Stop();
        }
        Profiler next("Next", true);
    }
    auto const records = ByPath(Collect());
    EXPECT_EQ(records.at("Outer/Inner").count, 1u);
    EXPECT_EQ(records.count("Outer/Next"), 1u) << "a second Stop popped the outer name";
    EXPECT_EQ(records.count("Next"), 0u);
}

TEST_F(ProfilerTest, DisabledProfilerRecordsNothing) {
    Profiler::enabled = false;
    {
        Profiler outer("Outer", true);
        Profiler inner("Inner", true);
        inner.Stop();
    }
    EXPECT_TRUE(Collect().empty());

    // Scopes opened while disabled leave no trace on the stack either.
    Profiler disabledOuter("Ignored", true);
    Profiler::enabled = true;
    { Profiler scope("Top", true); }
    disabledOuter.Stop();
    auto const records = ByPath(Collect());
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records.count("Top"), 1u);
}

TEST_F(ProfilerTest, ScopeOpenedWhileEnabledStillCountsAfterDisabling) {
    {
        Profiler scope("Frame", true);
        Profiler::enabled = false;
    }
    Profiler::enabled = true;
    { Profiler next("Next", true); }
    auto const records = ByPath(Collect());
    EXPECT_EQ(records.at("Frame").count, 1u);
    EXPECT_EQ(records.count("Next"), 1u);
}

TEST_F(ProfilerTest, ThreadsKeepTheirOwnPathsAndNames) {
    // Both threads stay alive until both are recorded, so their ids differ.
    std::latch opened(2);
    std::latch recorded(3);
    auto body = [&](std::string const& name, std::string const& outerName) {
        if (!name.empty()) Profiler::SetThreadName(name);
        {
            Profiler outer(outerName, true);
            opened.arrive_and_wait(); // both outer scopes are open at once
            Profiler inner("Inner", true);
        }
        recorded.arrive_and_wait();
    };
    std::thread named(body, "worker-a", "Named");
    std::thread unnamed(body, "", "Unnamed");
    recorded.arrive_and_wait();
    std::vector<Entry> const entries = Collect();
    named.join();
    unnamed.join();

    std::map<std::string, std::string> threadOfPath;
    for (Entry const& entry : entries) threadOfPath[entry.path] = entry.threadName;
    ASSERT_EQ(threadOfPath.size(), 4u);
    EXPECT_EQ(threadOfPath.at("Named"), "worker-a");
    EXPECT_EQ(threadOfPath.at("Named/Inner"), "worker-a");
    std::string const anonymous = threadOfPath.at("Unnamed");
    EXPECT_EQ(threadOfPath.at("Unnamed/Inner"), anonymous);
    ASSERT_GT(anonymous.size(), 4u);
    EXPECT_EQ(anonymous.substr(0, 4), "----");
    EXPECT_EQ(anonymous.find_first_not_of("0123456789", 4), std::string::npos) << anonymous;
    // The number is stable: the thread's records show the same way each time.
    for (Entry const& entry : Collect()) {
        if (entry.path == "Unnamed") {
            EXPECT_EQ(entry.threadName, anonymous);
        }
    }
}

TEST_F(ProfilerTest, ThreadNameAppliesToItsThreadOnly) {
    std::thread([] {
        Profiler::SetThreadName("a-rather-long-thread-name");
        char systemName[32] = {};
        pthread_getname_np(pthread_self(), systemName, sizeof systemName);
        EXPECT_STREQ(systemName, "a-rather-long-t");
        Profiler scope("Job", true);
    }).join();
    { Profiler scope("Main", true); }
    std::map<std::string, std::string> threadOfPath;
    for (Entry const& entry : Collect()) threadOfPath[entry.path] = entry.threadName;
    EXPECT_EQ(threadOfPath.at("Job"), "a-rather-long-thread-name");
    EXPECT_NE(threadOfPath.at("Main"), "a-rather-long-thread-name");
}

TEST_F(ProfilerTest, ResetWhileScopeIsOpenForgetsIt) {
    Profiler outer("Outer", true);
    { Profiler inner("Inner", true); }
    Profiler::Reset();
    EXPECT_TRUE(Collect().empty());
    outer.Stop(); // must not touch the forgotten record
    { Profiler fresh("Fresh", true); }
    auto const records = ByPath(Collect());
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records.at("Fresh").count, 1u);
}

TEST_F(ProfilerTest, VisitorMayOpenScopes) {
    { Profiler scope("Before", true); }
    int visited = 0;
    Profiler::ForEach([&](std::string const&, std::string const&, Profiler::Profile const&) {
        Profiler nested("InsideVisitor", true);
        ++visited;
    });
    EXPECT_EQ(visited, 1);
    EXPECT_EQ(ByPath(Collect()).at("InsideVisitor").count, 1u);
}

TEST_F(ProfilerTest, ConcurrentScopesAndReaders) {
    constexpr int threadCount = 3;
    constexpr int rounds = 300;
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < rounds; ++i) {
                Profiler outer("Loop" + std::to_string(t), true);
                Profiler inner("Step" + std::to_string(i % 7), true);
            }
        });
    }
    std::thread reader([&] {
        while (!done.load()) {
            for (Entry const& entry : Collect()) {
                EXPECT_LE(entry.profile.min, entry.profile.max + 1e-9);
            }
        }
    });
    for (std::thread& thread : threads) thread.join();
    done = true;
    reader.join();

    std::map<std::string, uint64_t> counts;
    for (Entry const& entry : Collect()) counts[entry.path] += entry.profile.count;
    for (int t = 0; t < threadCount; ++t) {
        std::string const loop = "Loop" + std::to_string(t);
        EXPECT_EQ(counts[loop], static_cast<uint64_t>(rounds));
        uint64_t steps = 0;
        for (int s = 0; s < 7; ++s) steps += counts[loop + "/Step" + std::to_string(s)];
        EXPECT_EQ(steps, static_cast<uint64_t>(rounds));
    }
}

} // namespace
