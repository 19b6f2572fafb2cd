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

/// "path:count" of every record, sorted by path.
std::string Counts() {
    std::string counts;
    for (auto const& [path, profile] : Records())
        counts += (counts.empty() ? "" : " ") + path + ":" + std::to_string(profile.count);
    return counts;
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
    EXPECT_EQ(Counts(), "Render:1 ServerUpdate:2 ServerUpdate/ForEachEntity::Update:2 "
                        "ServerUpdate/ForEachEntity::Update/Physics:2 ServerUpdate/Network:2");
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
    EXPECT_EQ(Counts(), "Outer:1 Outer/After:1 Outer/Idle:0 Outer/Inner:1");
    Profiler::Profile const idle = Records().at("Outer/Idle");
    EXPECT_EQ(idle.total, 0.0);
    EXPECT_EQ(idle.min, -1.0);
}

TEST_F(ProfilerTest, DisabledProfilerRecordsNothing) {
    Profiler::enabled = false;
    {
        Profiler outer("Outer", true);
        Profiler inner("Inner", true);
        inner.Stop();
    }
    EXPECT_EQ(Counts(), "");
    // Scopes opened while disabled leave no trace on the stack either; one opened
    // while enabled still counts when profiling is turned off before it ends.
    Profiler disabledOuter("Ignored", true);
    Profiler::enabled = true;
    {
        Profiler scope("Top", true);
        Profiler::enabled = false;
    }
    disabledOuter.Stop();
    EXPECT_EQ(Counts(), "Top:1");
}

TEST_F(ProfilerTest, ResetWhileScopeIsOpenForgetsIt) {
    Profiler outer("Outer", true);
    { Profiler inner("Inner", true); }
    Profiler::Reset();
    EXPECT_EQ(Counts(), "");
    outer.Stop(); // must not touch the forgotten record
    { Profiler fresh("Fresh", true); }
    EXPECT_EQ(Counts(), "Fresh:1");
}

TEST_F(ProfilerTest, VisitorMayOpenScopes) {
    { Profiler scope("Before", true); }
    Profiler::ForEach([&](std::string const&, std::string const&, Profiler::Profile const&) {
        Profiler nested("InsideVisitor", true);
    });
    EXPECT_EQ(Counts(), "Before:1 InsideVisitor:1");
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

TEST_F(ProfilerTest, ConcurrentScopesAndReaders) {
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 300; ++i) {
                Profiler outer("Loop" + std::to_string(t), true);
                Profiler inner("Step" + std::to_string(i % 3), true);
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
    std::string expected;
    for (int t = 0; t < 3; ++t) {
        std::string const loop = " Loop" + std::to_string(t);
        expected += loop + ":300" + loop + "/Step0:100" + loop + "/Step1:100" + loop + "/Step2:100";
    }
    EXPECT_EQ(" " + Counts(), expected);
}

} // namespace
