#include "nerox/Timer.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace {

using namespace std::chrono_literals;

TEST(TimerTest, RunningStateFollowsStartAndStop) {
    nerox::Timer timer;
    EXPECT_FALSE(timer.IsRunning());
    timer.Start();
    EXPECT_TRUE(timer.IsRunning());
    timer.Stop();
    EXPECT_FALSE(timer.IsRunning());
}

TEST(TimerTest, ElapsedIsInMillisecondsAndGrows) {
    nerox::Timer timer;
    timer.Start();
    std::this_thread::sleep_for(5ms);
    double const first = timer.GetElapsedMilliseconds();
    // A 5 ms sleep reads as at least about 5, not 0.005 nor 5000000.
    EXPECT_GE(first, 4.5);
    std::this_thread::sleep_for(1ms);
    EXPECT_GE(timer.GetElapsedMilliseconds(), first);
}

TEST(TimerTest, StartAgainRestartsTheCount) {
    nerox::Timer timer;
    timer.Start();
    std::this_thread::sleep_for(20ms);
    double const before = timer.GetElapsedMilliseconds();
    timer.Start();
    double const after = timer.GetElapsedMilliseconds();
    EXPECT_GE(before, 18.0);
    EXPECT_LT(after, before);
    // The start is kept as milliseconds since the epoch in a double, a reading
    // right after Start may be below 0 by that rounding (well under a microsecond).
    EXPECT_GT(after, -0.001);
}

TEST(TimerTest, ReadableFromSeveralThreads) {
    nerox::Timer timer;
    timer.Start();
    std::thread reader([&] {
        for (int i = 0; i < 1000; ++i) EXPECT_GE(timer.GetElapsedMilliseconds(), -1.0);
    });
    for (int i = 0; i < 1000; ++i) timer.Start();
    reader.join();
}

} // namespace
