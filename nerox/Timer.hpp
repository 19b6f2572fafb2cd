#pragma once
#include <mutex>

namespace nerox {

/// Stopwatch on the system clock with millisecond readings. All operations take
/// the timer's own mutex, so one timer may be read from several threads.
class Timer {
public:
    Timer() = default;
    Timer(Timer const&) = delete;
    Timer& operator=(Timer const&) = delete;

    /// Stores the current time as the start and marks the timer running.
    void Start();
    /// Marks the timer stopped; the start time is kept.
    void Stop();
    /// Tells whether Start was called since construction or the last Stop.
    bool IsRunning() const;
    /// Milliseconds from the last Start to now. A timer never started counts from
    /// the clock's epoch. The start is kept in a double, so a reading right after
    /// Start may fall below 0 by a rounding step (well under a microsecond).
    double GetElapsedMilliseconds() const;

private:
    mutable std::mutex _mutex;
    double _startMilliseconds = 0.0;
    bool _running = false;
};

} // namespace nerox
