#pragma once
#include <cstdint>
#include <random>
#include <type_traits>

namespace nerox {

/// Uniformly distributed integers from Min to Max, both included, drawn from a
/// 64-bit Mersenne Twister seeded once from the system's random device. One
/// generator is not thread-safe; give each thread its own.
template <typename T, T Min, T Max> class RandomGenerator {
    static_assert(std::is_integral_v<T> && !std::is_same_v<T, bool> && sizeof(T) >= sizeof(short),
                  "RandomGenerator needs an integer type of at least short width");
    static_assert(Min <= Max, "RandomGenerator needs Min <= Max");

public:
    /// Seeds the engine with one value from std::random_device("default").
    RandomGenerator() : _engine(std::random_device("default")()), _distribution(Min, Max) { }

    /// The next value, from Min to Max.
    T operator()() { return _distribution(_engine); }

private:
    std::mt19937_64 _engine;
    std::uniform_int_distribution<T> _distribution;
};

} // namespace nerox
