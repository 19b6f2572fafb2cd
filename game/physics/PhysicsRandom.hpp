#pragma once
#include <cstdint>
#include <random>

namespace game::physics {

/// The random generators of the physics step. Aerodynamic sampling picks the
/// point of a surface that it tests for cover from one, and buoyancy picks the
/// point of a collider whose medium it samples from the other. Both live for
/// the whole process and start seeded once from std::random_device("default").
///
/// Threads: they belong to the server update thread, which runs the physics
/// step. Reseed them before or between steps, never during one.

/// The generator of aerodynamic surface sampling.
std::mt19937_64& AerodynamicRandom();
/// The generator of buoyancy sampling.
std::mt19937_64& BuoyancyRandom();

/// Reseeds both generators from seed, so that the following physics steps of a
/// world are the same on every run for the same seed and the same entities.
/// The aerodynamic generator takes seed itself, the buoyancy generator
/// seed ^ 0x9E3779B97F4A7C15.
void SeedPhysicsRandom(uint64_t seed);

/// Reseeds both generators from std::random_device("default"), as at start.
void SeedPhysicsRandomFromDevice();

} // namespace game::physics
