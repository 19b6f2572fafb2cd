#include "nerox/FPSCounter.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

using namespace std::chrono_literals;

/// Runs 2 ms passes until the counter shows what is waited for (at most 5000
/// passes), calling WorkDone the given number of times before and after the pause.
int RunUntil(nerox::FPSCounter& counter, int before, int after, bool (*shows)(nerox::FPSCounter const&)) {
    int ticks = 0;
    for (; !shows(counter) && ticks < 5000; ++ticks) {
        counter.Tick();
        for (int i = 0; i < before; ++i) counter.WorkDone();
        std::this_thread::sleep_for(2ms);
        for (int i = 0; i < after; ++i) counter.WorkDone();
    }
    return ticks;
}

bool HasRate(nerox::FPSCounter const& counter) { return counter.GetRate() > 0.0; }

TEST(FPSCounterTest, FirstPassHasNoDeltaThenDeltaIsSecondsSincePreviousTick) {
    nerox::FPSCounter counter(10.0);
    counter.WorkDone(); // before any pass: ignored
    counter.Tick();
    EXPECT_EQ(counter.GetDeltaTime(), 0.0);
    std::this_thread::sleep_for(50ms);
    counter.Tick();
    double const delta = counter.GetDeltaTime();
    EXPECT_GE(delta, 0.045) << "50 ms must read as about 0.05 seconds";
    counter.Tick();
    EXPECT_LT(counter.GetDeltaTime(), delta) << "the delta covers only the latest pass";
    EXPECT_EQ(counter.GetRate(), 0.0) << "the window of 10 s is far from over";
    EXPECT_EQ(counter.GetLoad(), 1.0);
}

TEST(FPSCounterTest, RateIsPassesPerSecondOfTheWindowAndLoadIsFullWithoutWorkDone) {
    constexpr double window = 0.05;
    nerox::FPSCounter counter(window);
    int const ticks = RunUntil(counter, 0, 0, HasRate);
    ASSERT_GT(counter.GetRate(), 0.0) << "the window never closed";
    // Every pass lasted at least 2 ms, so at most 500 passes fit in a second; the
    // window lasted at least its length, so it holds no more passes than were run.
    EXPECT_LE(counter.GetRate(), 500.0 * 1.01);
    EXPECT_LE(counter.GetRate(), (ticks - 1) / window + 1e-9);
    EXPECT_EQ(counter.GetLoad(), 1.0);
}

// The getters are read from another thread all the while.
TEST(FPSCounterTest, LoadFollowsWorkDoneAndIsClampedToOne) {
    nerox::FPSCounter counter(0.03);
    std::atomic<bool> done{false};
    std::thread reader([&] {
        while (!done.load()) {
            EXPECT_GE(counter.GetLoad(), 0.0);
            EXPECT_LE(counter.GetLoad(), 1.0);
            EXPECT_GE(counter.GetRate(), 0.0);
            EXPECT_GE(counter.GetDeltaTime(), 0.0);
        }
    });
    RunUntil(counter, 1, 0, [](nerox::FPSCounter const& c) { return c.GetLoad() < 1.0; });
    EXPECT_LT(counter.GetLoad(), 1.0) << "an idle loop never showed a load below 1";
    EXPECT_GT(counter.GetRate(), 0.0);
    // Reported several times, the busy time exceeds the passes themselves.
    RunUntil(counter, 0, 5, [](nerox::FPSCounter const& c) { return c.GetLoad() == 1.0; });
    EXPECT_EQ(counter.GetLoad(), 1.0);
    RunUntil(counter, 1, 0, [](nerox::FPSCounter const& c) { return c.GetLoad() < 1.0; });
    // A window without any WorkDone falls back to 1.
    RunUntil(counter, 0, 0, [](nerox::FPSCounter const& c) { return c.GetLoad() == 1.0; });
    EXPECT_EQ(counter.GetLoad(), 1.0);
    done = true;
    reader.join();
}

} // namespace
