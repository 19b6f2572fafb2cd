#pragma once
#include <cstdint>
#include <map>
#include <mutex>

namespace game {

/// Named counters that modules publish for the settings panel's "Debug Info"
/// tree. Keyed by the name's address: a name must be a string literal (or
/// otherwise outlive the program's use of it).
class DebugInfo {
public:
    DebugInfo() = delete;

    /// Sets a counter, creating it if needed.
    static void Set(char const* name, uint64_t value);
    /// Adds to a counter, creating it at 0 if needed.
    static void Add(char const* name, uint64_t amount = 1);
    /// The counter's value, or 0 if it was never set.
    static uint64_t Get(char const* name);
    /// Removes every counter.
    static void Clear();

    static std::map<char const*, uint64_t> infos; ///< Counters by name.
    static std::mutex infosMutex;                 ///< Guards `infos`.
};

} // namespace game
