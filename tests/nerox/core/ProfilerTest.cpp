#include "nerox/cpu/Profiler.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <latch>
#include <map>
#include <pthread.h>
#include <string>
#include <thread>
#include <vector>

namespace {

using nerox::cpu::Profiler;
using namespace std::chrono_literals;

/// Records by path, and the thread name of each path.
std::map<std::string, Profiler::Profile> Records(std::map<std::string, std::string>* threadOfPath = nullptr) {
    std::map<std::string, Profiler::Profile> records;
    Profiler::ForEach([&](std::string const& threadName, std::string const& path, Profiler::Profile const& profile) {
        records[path] = profile;
        if (threadOfPath) (*threadOfPath)[path] = threadName;
    });
    return records;
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

TEST_F(ProfilerTest, NestedScopesNameTheirPathAndRepeatsAccumulate) {
    for (int i = 0; i < 2; ++i) {
        Profiler update("ServerUpdate", true);
        {
            Profiler entities("ForEachEntity::Update", true);
            { Profiler physics(std::string("Physics"), true); }
        }
        { Profiler network("Network", true); }
    }
    { Profiler render("Render", true); }
    std::map<std::string, uint64_t> counts;
    for (auto const& [path, profile] : Records()) counts[path] = profile.count;
    EXPECT_EQ(counts, (std::map<std::string, uint64_t>{
                          {"Render", 1}, {"ServerUpdate", 2}, {"ServerUpdate/ForEachEntity::Update", 2},
                          {"ServerUpdate/ForEachEntity::Update/Physics", 2}, {"ServerUpdate/Network", 2}}));
}

TEST_F(ProfilerTest, FirstTimeSetsMinimumAndShorterOnesReplaceIt) {
    { Profiler scope("Work", true); std::this_thread::sleep_for(20ms); }
    Profiler::Profile const first = Records().at("Work");
    EXPECT_GE(first.total, 20.0 * 0.9);
    EXPECT_DOUBLE_EQ(first.min, first.total) << "a long first run is the minimum even so";
    EXPECT_DOUBLE_EQ(first.max, first.total);
    for (int i = 0; i < 5; ++i) Profiler scope("Work", true);
    Profiler::Profile const last = Records().at("Work");
    EXPECT_EQ(last.count, 6u);
    EXPECT_LT(last.min, first.min);
    EXPECT_DOUBLE_EQ(last.max, first.max);
    EXPECT_LE(last.total, first.total + 5 * last.max + 1e-9);
}

TEST_F(ProfilerTest, UnstartedAndTwiceStoppedScopesPopTheirNameOnce) {
    {
        Profiler outer("Outer", true);
        { Profiler idle("Idle", false); idle.Stop(); }
        {
            Profiler inner("Inner", true);
            inner.Stop();
            inner.Stop();
        }
        Profiler after("After", true);
    }
    auto const records = Records();
    Profiler::Profile const& idle = records.at("Outer/Idle");
    EXPECT_EQ(idle.count, 0u);
    EXPECT_EQ(idle.total, 0.0);
    EXPECT_EQ(idle.min, -1.0);
    EXPECT_EQ(records.at("Outer/Inner").count, 1u);
    EXPECT_EQ(records.at("Outer/After").count, 1u) << "a scope left its name on the stack, or popped Outer";
    EXPECT_EQ(records.size(), 4u);
}

TEST_F(ProfilerTest, DisabledProfilerRecordsNothing) {
    Profiler::enabled = false;
    {
        Profiler outer("Outer", true);
        Profiler inner("Inner", true);
        inner.Stop();
    }
    EXPECT_TRUE(Records().empty());
    // Scopes opened while disabled leave no trace on the stack either; one opened
    // while enabled still counts when profiling is turned off before it ends.
    Profiler disabledOuter("Ignored", true);
    Profiler::enabled = true;
    {
        Profiler scope("Top", true);
        Profiler::enabled = false;
    }
    disabledOuter.Stop();
    auto const records = Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records.at("Top").count, 1u);
}

TEST_F(ProfilerTest, ThreadsKeepTheirOwnPathsAndNames) {
    std::latch opened(2); // both outer scopes are open at once, so the threads' ids differ
    std::string systemName;
    auto body = [&](std::string const& name, std::string const& outerName) {
        if (!name.empty()) Profiler::SetThreadName(name);
        char buffer[32] = {};
        pthread_getname_np(pthread_self(), buffer, sizeof buffer);
        if (!name.empty()) systemName = buffer;
        Profiler outer(outerName, true);
        opened.arrive_and_wait();
        Profiler inner("Inner", true);
    };
    std::thread named(body, "a-rather-long-thread-name", "Named");
    std::thread unnamed(body, "", "Unnamed");
    named.join();
    unnamed.join();
    { Profiler scope("Main", true); }
    EXPECT_EQ(systemName, "a-rather-long-t") << "the system takes 15 characters";
    std::map<std::string, std::string> threadOf;
    Records(&threadOf);
    ASSERT_EQ(threadOf.size(), 5u);
    EXPECT_EQ(threadOf.at("Named"), "a-rather-long-thread-name");
    EXPECT_EQ(threadOf.at("Named/Inner"), "a-rather-long-thread-name");
    std::string const anonymous = threadOf.at("Unnamed");
    EXPECT_EQ(threadOf.at("Unnamed/Inner"), anonymous);
    EXPECT_NE(threadOf.at("Main"), anonymous);
    EXPECT_EQ(anonymous.substr(0, 4), "----");
    EXPECT_EQ(anonymous.find_first_not_of("0123456789", 4), std::string::npos) << anonymous;
    EXPECT_GT(anonymous.size(), 4u);
}

TEST_F(ProfilerTest, ResetWhileScopeIsOpenForgetsIt) {
    Profiler outer("Outer", true);
    { Profiler inner("Inner", true); }
    Profiler::Reset();
    EXPECT_TRUE(Records().empty());
    outer.Stop(); // must not touch the forgotten record
    { Profiler fresh("Fresh", true); }
    auto const records = Records();
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
    EXPECT_EQ(Records().at("InsideVisitor").count, 1u);
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
            for (auto const& [path, profile] : Records()) EXPECT_LE(profile.min, profile.max + 1e-9) << path;
        }
    });
    for (std::thread& thread : threads) thread.join();
    done = true;
    reader.join();

    auto const records = Records();
    for (int t = 0; t < threadCount; ++t) {
        std::string const loop = "Loop" + std::to_string(t);
        EXPECT_EQ(records.at(loop).count, static_cast<uint64_t>(rounds));
        uint64_t steps = 0;
        for (int s = 0; s < 7; ++s) steps += records.at(loop + "/Step" + std::to_string(s)).count;
        EXPECT_EQ(steps, static_cast<uint64_t>(rounds));
    }
}

} // namespace
