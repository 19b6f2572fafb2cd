#include "nerox/FPSCounter.hpp"

#include <algorithm>

namespace nerox {

FPSCounter::FPSCounter(double windowSeconds) : _windowSeconds(windowSeconds) { }

void FPSCounter::Tick() {
    if (!_passTimer.IsRunning()) {
        // The very first pass opens the first window.
        _passTimer.Start();
        _windowTimer.Start();
        _deltaTime.store(0.0, std::memory_order_relaxed);
        _passes = 1.0;
        return;
    }

    // The timers follow the system clock; a clock set back must not give a
    // negative delta or a window that never closes.
    double const delta = _passTimer.GetElapsedMilliseconds() / 1000.0;
    _deltaTime.store(std::max(delta, 0.0), std::memory_order_relaxed);
    _passTimer.Start();

    double const elapsed = _windowTimer.GetElapsedMilliseconds() / 1000.0;
    if (elapsed < 0.0) {
        _windowTimer.Start();
        _passes = 0.0;
        _busySeconds = 0.0;
        _workReported = false;
    } else if (elapsed >= _windowSeconds && elapsed > 0.0) {
        _rate.store(_passes / elapsed, std::memory_order_relaxed);
        double const load = _workReported ? std::clamp(_busySeconds / elapsed, 0.0, 1.0) : 1.0;
        _load.store(load, std::memory_order_relaxed);
        _windowTimer.Start();
        _passes = 0.0;
        _busySeconds = 0.0;
        _workReported = false;
    }
    _passes += 1.0;
}

void FPSCounter::WorkDone() {
    if (!_passTimer.IsRunning()) return; // no pass has started yet
    _busySeconds += std::max(_passTimer.GetElapsedMilliseconds() / 1000.0, 0.0);
    _workReported = true;
}

double FPSCounter::GetRate() const {
    return _rate.load(std::memory_order_relaxed);
}

double FPSCounter::GetLoad() const {
    return _load.load(std::memory_order_relaxed);
}

double FPSCounter::GetDeltaTime() const {
    return _deltaTime.load(std::memory_order_relaxed);
}

} // namespace nerox
