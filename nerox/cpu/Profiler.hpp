#pragma once
#include "nerox/Assert.hpp"
#include "nerox/SharedMutex.hpp"
#include "nerox/Timer.hpp"

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

namespace nerox::cpu {

/// Scope profiler. A Profiler object measures the time from its construction to
/// Stop (or its destruction) and adds it to the statistics of its path: the names
/// of the scopes open on the same thread, joined by "/", as in
/// "ServerUpdate/ForEachEntity::Update". Statistics are kept per thread.
///
/// With `enabled` false the constructor only clears the object's fields and
/// everything else does nothing. A Profiler must be stopped on the thread that
/// created it, and scopes must end in reverse order of their start.
///
/// Locking: a scope's construction and Stop hold profilesMutex shared; under it
/// a thread only ever changes its own entries (adds records to its own map,
/// updates them, pushes and pops its own stack), so threads do not block each
/// other. Only creating a thread's first entries takes it exclusively. Since
/// records change under the shared lock, ForEach copies them out under the
/// exclusive lock and calls the visitor after releasing it. Reset also holds it
/// exclusively and may be called while scopes are open: those scopes then
/// record nothing and pop nothing when they stop.
class Profiler {
public:
    /// Statistics of one path on one thread; times in milliseconds.
    struct Profile {
        uint64_t count = 0; ///< measured runs
        double total = 0.0; ///< sum of all runs
        double min = -1.0;  ///< shortest run, -1 before the first
        double max = 0.0;   ///< longest run
    };

    /// Receives a thread's name, a path and its statistics.
    using Visitor = std::function<void(std::string const& threadName, std::string const& path, Profile const& profile)>;

    /// Opens the scope name on this thread; starts timing when start is true.
    explicit Profiler(std::string const& name, bool start = true) {
        if (enabled.load(std::memory_order_relaxed)) Open(name, start);
    }
    /// Same for a literal name; with profiling off no text is built at all.
    explicit Profiler(char const* name, bool start = true) {
        if (enabled.load(std::memory_order_relaxed)) {
            NEROX_ASSERT(name != nullptr);
            Open(name, start);
        }
    }
    /// Stops the scope if it is still open.
    ~Profiler() {
        if (_record != nullptr) Stop();
    }
    Profiler(Profiler const&) = delete;
    Profiler& operator=(Profiler const&) = delete;

    /// Adds the measured time to the statistics (if timing was started) and
    /// closes the scope. Later calls do nothing.
    void Stop();

    /// Calls visitor for every recorded path of every thread, in no set order.
    /// A thread without a name shows as "----" followed by its number. The
    /// visitor gets a snapshot, so it may open Profiler scopes itself.
    static void ForEach(Visitor const& visitor);
    /// Names the calling thread in ForEach and for the system (cut to 15 characters there).
    static void SetThreadName(std::string const& name);
    /// Forgets all statistics and scope stacks; thread names stay.
    static void Reset();

    /// Turns profiling on or off for scopes opened from now on.
    static std::atomic<bool> enabled;
    /// Statistics by thread, then by path.
    static std::unordered_map<std::thread::id, std::unordered_map<std::string, Profile>> profiles;
    /// Names of the open scopes by thread, innermost last.
    static std::unordered_map<std::thread::id, std::vector<std::string>> profileStacks;
    /// Guards profiles, profileStacks and threadNames.
    static SharedMutex profilesMutex;
    /// Names given with SetThreadName.
    static std::unordered_map<std::thread::id, std::string> threadNames;

private:
    /// Registers the scope and takes its record; the work of both constructors.
    void Open(std::string_view name, bool start);

    Timer _timer;
    Profile* _record = nullptr;
    uint64_t _generation = 0; // value of _resets when the record was taken

    static uint64_t _resets; // count of Reset calls; changed only under the exclusive lock
};

} // namespace nerox::cpu
