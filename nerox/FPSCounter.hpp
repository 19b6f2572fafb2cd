#pragma once
#include "nerox/Timer.hpp"

#include <atomic>

namespace nerox {

/// Measures how often a loop runs and how busy it is, averaged over a window.
///
/// The owning loop calls Tick() at the start of every pass and WorkDone() when
/// the pass's work is finished, before it sleeps or waits for the next pass:
///
///     while (running) {
///         counter.Tick();
///         Update(counter.GetDeltaTime());
///         counter.WorkDone();
///         WaitForNextPass();
///     }
///
/// Tick sets the delta time to the seconds since the previous Tick (0 on the very
/// first) and counts the pass. WorkDone adds the seconds from this pass's Tick to
/// now to the busy time of the window. Once the window length has elapsed since
/// the window began, the next Tick publishes
///   rate = passes / elapsed seconds
///   load = busy seconds / elapsed seconds, clamped to [0, 1]
///          (1 if WorkDone was not called in that window)
/// and starts a new window with that pass. Until the first window closes the rate
/// reads 0 and the load 1.
///
/// Only the owning loop may call Tick and WorkDone. The getters may be called
/// from any thread without a lock; the published values are relaxed atomics, so
/// a reader sees either the old or the new value.
class FPSCounter {
public:
    /// Counter that averages over windowSeconds.
    explicit FPSCounter(double windowSeconds);
    FPSCounter(FPSCounter const&) = delete;
    FPSCounter& operator=(FPSCounter const&) = delete;

    /// Starts a pass: updates the delta time, counts the pass, closes the window.
    void Tick();
    /// Ends the busy part of the current pass.
    void WorkDone();

    /// Passes per second over the last closed window (0 before the first).
    double GetRate() const;
    /// Busy fraction of the last closed window, from 0 to 1 (1 before the first).
    double GetLoad() const;
    /// Seconds between the last two Ticks (0 after the first).
    double GetDeltaTime() const;

private:
    Timer _passTimer;   // runs from the latest Tick
    Timer _windowTimer; // runs from the start of the current window
    double _windowSeconds;
    std::atomic<double> _rate{0.0};
    std::atomic<double> _load{1.0};
    double _passes = 0.0;      // passes counted in the current window
    double _busySeconds = 0.0; // busy time reported in the current window
    std::atomic<double> _deltaTime{0.0};
    bool _workReported = false; // WorkDone was called in the current window
};

} // namespace nerox
