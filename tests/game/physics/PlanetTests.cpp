// The sample planet's answer function: gravity, the ground and its depth, the air's fall with height,
// water in the basin, and the composition names.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <tuple>
#include <utility>

#include "game/Chemistry.hpp"
#include "modules/planet/PlanetEnvironment.hpp"

namespace {

using game::EnvironmentInfoFlags;
using game::physics::EnvironmentInfo;

constexpr auto GravityOnly = game::EnvironmentGravityOnly;
constexpr auto Terrain = game::EnvironmentTerrain;
constexpr auto Medium = static_cast<EnvironmentInfoFlags>(game::EnvironmentTerrain | game::EnvironmentMedium);
constexpr auto Full = static_cast<EnvironmentInfoFlags>(Medium | game::EnvironmentSurfaceDepth);
double const Skip = NAN;

/// Air at height y above sea level: one scale height of 8500 m divides it by e.
double Air(double y, double seaLevel) { return seaLevel * std::exp(-y / 8500.0); }

// The basin covers x 40..80 and z -20..20 with its floor at y = -20; (60, y, 0) is its middle.
TEST(Planet, ProbesAboveAndBelowTheGroundTheWaterAndTheBasinWalls)
{
    struct Probe { glm::dvec3 point; EnvironmentInfoFlags flags; double altitude, depth, density, pressure;
                   std::optional<glm::dvec3> surfacePoint = std::nullopt; } const probes[] = {
        {{60, -5, 0}, GravityOnly, 0.0, 0.0, 0.0, 0.0, glm::dvec3(0.0)},
        {{0, 12.5, 0}, Terrain, 12.5, 0.0, 0.0, 0.0}, {{60, 12.5, 0}, Terrain, 32.5, 0.0, Skip, Skip},
        {{0, -3, 0}, Terrain, -3.0, 3.0, Skip, Skip, glm::dvec3(0.0)}, // the ground point needs its own flag
        {{60, -25, 0}, Terrain, -5.0, 5.0, Skip, Skip},
        {{0, -2, 0}, Medium, Skip, 2.0, 1.225, 101325.0}, {{3, -2, 4}, Full, Skip, 2.0, Skip, Skip, glm::dvec3(3, 0, 4)},
        {{50, -21.5, 5}, Full, Skip, 1.5, Skip, Skip, glm::dvec3(50, -20, 5)},
        {{0, 0.5, 0}, Full, Skip, 0.0, Skip, Skip, glm::dvec3(0, 0, 0)}, {{0, 0, 0}, Full, 0.0, 0.0, 1.225, 101325.0},
        {{60, -10, 0}, Full, 10.0, 0.0, 1000.0, 101325.0 + 1000.0 * 9.81 * 10.0, glm::dvec3(60, -20, 0)},
        {{60, -0.001, 0}, Medium, Skip, Skip, 1000.0, Skip}, {{60, -19.999, 0}, Medium, Skip, Skip, 1000.0, Skip},
        {{40, -1, 20}, Medium, Skip, Skip, 1000.0, Skip}, {{80, -1, -20}, Medium, Skip, Skip, 1000.0, Skip}, // bounds hold water
        // Below the floor the water keeps its values at the floor.
        {{60, -25, 0}, Medium, Skip, Skip, 1000.0, 101325.0 + 1000.0 * 9.81 * 20.0},
        // The water surface and above are air; the air over the basin follows sea level, not the floor.
        {{60, 0, 0}, Medium, Skip, Skip, 1.225, 101325.0}, {{60, 0.001, 0}, Medium, Skip, Skip, Air(0.001, 1.225), Skip},
        {{60, 100, 0}, Medium, Skip, Skip, Air(100.0, 1.225), Air(100.0, 101325.0)},
        {{0, 20000, 0}, Medium, Skip, Skip, Air(20000.0, 1.225), Air(20000.0, 101325.0)},
        // Just beside the basin's walls, in the ground: the column's air at sea level.
        {{39.9, -5, 0}, Medium, Skip, 5.0, 1.225, 101325.0}, {{80.1, -5, 0}, Medium, Skip, Skip, 1.225, Skip},
        {{60, -5, 20.1}, Medium, Skip, Skip, 1.225, Skip}, {{60, -5, -20.1}, Medium, Skip, Skip, 1.225, Skip},
        {{0, -1e6, 0}, Medium, Skip, Skip, 1.225, 101325.0}, {{0, -1e300, 0}, Medium, Skip, Skip, 1.225, 101325.0},
    };
    using Composition = decltype(EnvironmentInfo::composition);
    Composition const air{{"N2", 0.78}, {"O2", 0.21}, {"Ar", 0.01}}, water{{"H2O", 1.0}};
    for (Probe const& p : probes) {
        SCOPED_TRACE(testing::Message() << "(" << p.point.x << ", " << p.point.y << ", " << p.point.z << ") flags " << p.flags);
        EnvironmentInfo const info = planet::Environment(p.point, p.flags, 1.0);
        EXPECT_EQ(info.gravity, glm::dvec3(0.0, -9.81, 0.0));
        EXPECT_EQ(info.surfaceNormal, p.flags == GravityOnly ? glm::dvec3(0.0) : glm::dvec3(0.0, 1.0, 0.0));
        for (auto [actual, expected] : {std::pair(info.altitude, p.altitude), std::pair(info.terrain.depth, p.depth),
                                        std::pair(info.density, p.density), std::pair(info.pressure, p.pressure)})
            EXPECT_NEAR(actual, std::isnan(expected) ? actual : expected, 1e-9 * std::max(1.0, expected));
        EXPECT_EQ(info.terrain.surfacePoint, p.surfacePoint.value_or(info.terrain.surfacePoint));
        bool const wet = info.density == 1000.0, medium = p.flags & game::EnvironmentMedium;
        EXPECT_EQ(info.viscosity, medium ? (wet ? 0.001 : 1.5e-5) : info.viscosity);
        EXPECT_EQ(info.composition, medium ? (wet ? water : air) : Composition());
    }
}

TEST(Planet, BasinBoundsAreIncludedAndEveryNameIsAMoleculeOfTheChemistryTable)
{
    for (auto [x, z, height] : {std::tuple(40.0, 0.0, -20.0), std::tuple(80.0, 20.0, -20.0), std::tuple(80.0, -20.0, -20.0),
                                std::tuple(39.999, 0.0, 0.0), std::tuple(80.001, 0.0, 0.0), std::tuple(60.0, 20.001, 0.0)})
        EXPECT_EQ(planet::GroundHeight(x, z), height) << x << ", " << z;
    // Molar masses, kg/mol, from the element table's masses.
    for (auto [name, molarMass] : {std::pair(planet::nitrogen, 0.028014), std::pair(planet::oxygen, 0.031998),
                                   std::pair(planet::argon, 0.039948), std::pair(planet::water, 0.018015)}) {
        game::Molecule const molecule(name);
        EXPECT_TRUE(molecule.HasUsableComposition()) << name;
        EXPECT_EQ(molecule.Formula(), name);
        EXPECT_NEAR(molecule.GetMolarMass(), molarMass, 2e-5) << name;
    }
}

} // namespace
