#include "nerox/FPSCounter.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

using namespace std::chrono_literals;

/// Upper bound on passes a test runs while waiting for a window to close;
/// only a counter that never publishes gets there.
constexpr int maxPasses = 5000;

TEST(FPSCounterTest, StartsWithNoRateFullLoadAndNoDelta) {
    nerox::FPSCounter counter(1.0);
    EXPECT_EQ(counter.GetRate(), 0.0);
    EXPECT_EQ(counter.GetLoad(), 1.0);
    EXPECT_EQ(counter.GetDeltaTime(), 0.0);
    counter.WorkDone(); // before any pass: ignored
    counter.Tick();
    EXPECT_EQ(counter.GetDeltaTime(), 0.0) << "the very first pass has no predecessor";
    EXPECT_EQ(counter.GetRate(), 0.0);
    EXPECT_EQ(counter.GetLoad(), 1.0);
}

TEST(FPSCounterTest, DeltaTimeIsSecondsSincePreviousTick) {
    nerox::FPSCounter counter(10.0);
    counter.Tick();
    std::this_thread::sleep_for(50ms);
    counter.Tick();
    double const delta = counter.GetDeltaTime();
    EXPECT_GE(delta, 0.045) << "50 ms must read as about 0.05 seconds";
    counter.Tick();
    EXPECT_LT(counter.GetDeltaTime(), delta) << "the delta covers only the latest pass";
    // The window of 10 s is far from over.
    EXPECT_EQ(counter.GetRate(), 0.0);
}

TEST(FPSCounterTest, RateIsPassesPerSecondOfTheWindow) {
    constexpr double window = 0.05;
    nerox::FPSCounter counter(window);
    int ticks = 0;
    while (counter.GetRate() == 0.0 && ticks < maxPasses) {
        counter.Tick();
        ++ticks;
        std::this_thread::sleep_for(1ms);
    }
    ASSERT_GT(counter.GetRate(), 0.0) << "the window never closed";
    // Every pass lasted at least 1 ms, so at most 1000 passes fit in a second;
    // the window lasted at least its length, so no more passes than ticks counted in it.
    EXPECT_LE(counter.GetRate(), 1000.0 * 1.01);
    EXPECT_LE(counter.GetRate(), (ticks - 1) / window + 1e-9);
    EXPECT_GE(ticks, 2);
    // No WorkDone: the loop counts as fully busy.
    EXPECT_EQ(counter.GetLoad(), 1.0);
}

TEST(FPSCounterTest, IdleLoopShowsLowLoad) {
    nerox::FPSCounter counter(0.05);
    int ticks = 0;
    while (counter.GetRate() == 0.0 && ticks < maxPasses) {
        counter.Tick();
        counter.WorkDone();                   // no work at all
        std::this_thread::sleep_for(2ms);     // then idle
        ++ticks;
    }
    ASSERT_GT(counter.GetRate(), 0.0);
    EXPECT_GE(counter.GetLoad(), 0.0);
    EXPECT_LT(counter.GetLoad(), 1.0);
}

TEST(FPSCounterTest, LoadIsClampedToOne) {
    nerox::FPSCounter counter(0.05);
    int ticks = 0;
    while (counter.GetRate() == 0.0 && ticks < maxPasses) {
        counter.Tick();
        std::this_thread::sleep_for(2ms);
        // Reported several times, the busy time exceeds the pass itself.
        for (int i = 0; i < 5; ++i) counter.WorkDone();
        ++ticks;
    }
    ASSERT_GT(counter.GetRate(), 0.0);
    EXPECT_EQ(counter.GetLoad(), 1.0);
}

TEST(FPSCounterTest, WindowWithoutWorkDoneReportsFullLoadAgain) {
    nerox::FPSCounter counter(0.03);
    int ticks = 0;
    while (counter.GetLoad() == 1.0 && ticks < maxPasses) {
        counter.Tick();
        counter.WorkDone();
        std::this_thread::sleep_for(2ms);
        ++ticks;
    }
    ASSERT_LT(counter.GetLoad(), 1.0) << "an idle loop never showed a load below 1";
    double const idleRate = counter.GetRate();
    EXPECT_GT(idleRate, 0.0);

    // The window that follows without any WorkDone falls back to 1.
    ticks = 0;
    while (counter.GetLoad() != 1.0 && ticks < maxPasses) {
        counter.Tick();
        std::this_thread::sleep_for(2ms);
        ++ticks;
    }
    EXPECT_EQ(counter.GetLoad(), 1.0);
    EXPECT_GT(counter.GetRate(), 0.0);
}

TEST(FPSCounterTest, ReadableWhileTheLoopRuns) {
    nerox::FPSCounter counter(0.01);
    std::atomic<bool> done{false};
    std::thread reader([&] {
        while (!done.load()) {
            double const load = counter.GetLoad();
            EXPECT_GE(load, 0.0);
            EXPECT_LE(load, 1.0);
            EXPECT_GE(counter.GetRate(), 0.0);
            EXPECT_GE(counter.GetDeltaTime(), 0.0);
        }
    });
    for (int i = 0; i < 50; ++i) {
        counter.Tick();
        counter.WorkDone();
        std::this_thread::sleep_for(1ms);
    }
    done = true;
    reader.join();
}

} // namespace
