#include "game/physics/PhysicsRandom.hpp"

namespace game::physics {

namespace {

/// Mixed into the seed of the buoyancy generator, so that the two never run in step.
constexpr uint64_t BuoyancySeedMix = 0x9E3779B97F4A7C15ull;

/// 64 bits from the default random device.
uint64_t DeviceSeed() {
    std::random_device device("default");
    uint64_t const high = device();
    uint64_t const low = device();
    return (high << 32) ^ low;
}

} // namespace

std::mt19937_64& AerodynamicRandom() {
    static std::mt19937_64 generator(DeviceSeed());
    return generator;
}

std::mt19937_64& BuoyancyRandom() {
    static std::mt19937_64 generator(DeviceSeed());
    return generator;
}

void SeedPhysicsRandom(uint64_t seed) {
    AerodynamicRandom().seed(seed);
    BuoyancyRandom().seed(seed ^ BuoyancySeedMix);
}

void SeedPhysicsRandomFromDevice() {
    AerodynamicRandom().seed(DeviceSeed());
    BuoyancyRandom().seed(DeviceSeed());
}

} // namespace game::physics
