#pragma once
#include <any>
#include <mutex>
#include <string>
#include <unordered_map>

namespace game {

/// A process-wide table of named options of any type, filled by modules or the
/// host and read anywhere. A missing key reads as the default the reader gives.
/// `Game::Quit` empties the table.
class Options {
public:
    /// The stored value, or `defaultValue` if the key is absent. A value stored
    /// with another type raises std::bad_any_cast.
    template <typename T> static T Get(std::string const& key, T const& defaultValue) {
        std::lock_guard lock(_mu);
        auto it = _options.find(key);
        if (it == _options.end()) return defaultValue;
        return std::any_cast<T>(it->second);
    }

    /// Stores a value under a key, replacing any earlier value of any type.
    template <typename T> static void Set(std::string const& key, T value) {
        std::lock_guard lock(_mu);
        _options[key] = std::any(std::move(value));
    }

    /// Removes one key; nothing happens if it is absent.
    static void Remove(std::string const& key);
    /// Empties the table.
    static void Clear();

    static std::unordered_map<std::string, std::any> _options; ///< The table.
    static std::mutex _mu;                                     ///< Guards `_options`.
};

extern template double Options::Get<double>(std::string const&, double const&);

} // namespace game
