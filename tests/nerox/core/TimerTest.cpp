#include "nerox/Timer.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace {

using namespace std::chrono_literals;

TEST(TimerTest, ElapsedIsInMillisecondsAndStartAgainRestartsTheCount) {
    nerox::Timer timer;
    EXPECT_FALSE(timer.IsRunning());
    timer.Start();
    EXPECT_TRUE(timer.IsRunning());
    std::this_thread::sleep_for(20ms);
    double const before = timer.GetElapsedMilliseconds();
    EXPECT_GE(before, 18.0) << "20 ms read as about 20, not 0.02 nor 20000000";
    timer.Start();
    double const after = timer.GetElapsedMilliseconds();
    EXPECT_LT(after, before);
    // The start is kept as milliseconds since the epoch in a double, a reading
    // right after Start may be below 0 by that rounding (well under a microsecond).
    EXPECT_GT(after, -0.001);
    timer.Stop();
    EXPECT_FALSE(timer.IsRunning());
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
