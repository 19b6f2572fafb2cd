#include "nerox/Timer.hpp"

#include <chrono>
#include <cmath>

namespace nerox {

namespace {

/// The system clock as a nanosecond count since its epoch.
double NowNanoseconds() {
    auto const now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<double>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

} // namespace

void Timer::Start() {
    double const start = NowNanoseconds() / 1e6;
    std::lock_guard guard(_mutex);
    _startMilliseconds = start;
    _running = true;
}

void Timer::Stop() {
    std::lock_guard guard(_mutex);
    _running = false;
}

bool Timer::IsRunning() const {
    std::lock_guard guard(_mutex);
    return _running;
}

double Timer::GetElapsedMilliseconds() const {
    double const now = NowNanoseconds();
    std::lock_guard guard(_mutex);
    // now - 1e6 * start in one rounding step, then back to milliseconds.
    return std::fma(-1e6, _startMilliseconds, now) / 1e6;
}

} // namespace nerox
