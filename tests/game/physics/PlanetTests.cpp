// The sample planet's answer function: gravity, the ground and its depth, the
// atmosphere's fall with height, water in the basin, and the composition names.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "game/Chemistry.hpp"
#include "modules/planet/PlanetEnvironment.hpp"

namespace {

using game::EnvironmentInfoFlags;
using game::physics::EnvironmentInfo;

constexpr auto GravityOnly = game::EnvironmentGravityOnly;
constexpr auto Terrain = game::EnvironmentTerrain;
constexpr auto Medium = static_cast<EnvironmentInfoFlags>(game::EnvironmentTerrain | game::EnvironmentMedium);
constexpr auto Full = static_cast<EnvironmentInfoFlags>(game::EnvironmentTerrain | game::EnvironmentSurfaceDepth |
                                                        game::EnvironmentMedium);

EnvironmentInfo Ask(double x, double y, double z, EnvironmentInfoFlags flags) {
    return planet::Environment(glm::dvec3(x, y, z), flags, 1.0);
}

/// A point in the middle of the basin, and one on the flat ground beside it.
constexpr double BasinX = 60.0, BasinZ = 0.0;
constexpr double PlainX = 0.0, PlainZ = 0.0;

// ---------------------------------------------------------------------------
// Gravity

TEST(PlanetGravity, SameEverywhereAndForEveryQuery) {
    for (auto flags : {GravityOnly, Terrain, Medium, Full})
        for (double y : {-30.0, -5.0, 0.0, 5.0, 20000.0}) {
            EnvironmentInfo const info = Ask(BasinX, y, BasinZ, flags);
            EXPECT_EQ(info.gravity, glm::dvec3(0.0, -9.81, 0.0)) << "flags " << flags << " y " << y;
            EXPECT_EQ(Ask(PlainX, y, PlainZ, flags).gravity, glm::dvec3(0.0, -9.81, 0.0));
        }
}

TEST(PlanetGravity, GravityOnlyQueryLeavesTheRestEmpty) {
    EnvironmentInfo const info = Ask(BasinX, -5.0, BasinZ, GravityOnly);
    EXPECT_EQ(info.altitude, 0.0);
    EXPECT_EQ(info.surfaceNormal, glm::dvec3(0.0));
    EXPECT_EQ(info.terrain.depth, 0.0);
    EXPECT_EQ(info.density, 0.0);
    EXPECT_EQ(info.pressure, 0.0);
    EXPECT_TRUE(info.composition.empty());
}

// ---------------------------------------------------------------------------
// Terrain

TEST(PlanetTerrain, AltitudeIsHeightAboveTheGroundOfTheColumn) {
    EXPECT_DOUBLE_EQ(Ask(PlainX, 12.5, PlainZ, Terrain).altitude, 12.5);
    EXPECT_DOUBLE_EQ(Ask(PlainX, -3.0, PlainZ, Terrain).altitude, -3.0);
    EXPECT_DOUBLE_EQ(Ask(BasinX, 12.5, BasinZ, Terrain).altitude, 32.5);
    EXPECT_DOUBLE_EQ(Ask(BasinX, -25.0, BasinZ, Terrain).altitude, -5.0);
    EXPECT_EQ(Ask(BasinX, 3.0, BasinZ, Terrain).surfaceNormal, glm::dvec3(0.0, 1.0, 0.0));
    EXPECT_EQ(Ask(PlainX, 3.0, PlainZ, Terrain).surfaceNormal, glm::dvec3(0.0, 1.0, 0.0));
}

TEST(PlanetTerrain, BasinBoundsAreIncludedAndNothingBeyond) {
    EXPECT_EQ(planet::GroundHeight(40.0, 0.0), -20.0);
    EXPECT_EQ(planet::GroundHeight(80.0, 20.0), -20.0);
    EXPECT_EQ(planet::GroundHeight(80.0, -20.0), -20.0);
    EXPECT_EQ(planet::GroundHeight(39.999, 0.0), 0.0);
    EXPECT_EQ(planet::GroundHeight(80.001, 0.0), 0.0);
    EXPECT_EQ(planet::GroundHeight(60.0, 20.001), 0.0);
    EXPECT_EQ(planet::GroundHeight(60.0, -20.001), 0.0);
}

TEST(PlanetTerrain, DepthWithTheTerrainAndTheGroundPointWithItsFlag) {
    // The terrain bit answers the depth; the ground point needs the surface-depth bit.
    EnvironmentInfo const plain = Ask(PlainX, -2.0, PlainZ, Terrain);
    EXPECT_DOUBLE_EQ(plain.terrain.depth, 2.0);
    EXPECT_EQ(plain.terrain.surfacePoint, glm::dvec3(0.0));
    EXPECT_DOUBLE_EQ(Ask(PlainX, -2.0, PlainZ, Medium).terrain.depth, 2.0);
    EXPECT_EQ(Ask(PlainX, -2.0, PlainZ, GravityOnly).terrain.depth, 0.0);

    EnvironmentInfo const under = Ask(3.0, -2.0, 4.0, Full);
    EXPECT_DOUBLE_EQ(under.terrain.depth, 2.0);
    EXPECT_EQ(under.terrain.surfacePoint, glm::dvec3(3.0, 0.0, 4.0));

    EnvironmentInfo const underBasin = Ask(50.0, -21.5, 5.0, Full);
    EXPECT_DOUBLE_EQ(underBasin.terrain.depth, 1.5);
    EXPECT_EQ(underBasin.terrain.surfacePoint, glm::dvec3(50.0, -20.0, 5.0));
}

TEST(PlanetTerrain, NoDepthAboveTheGround) {
    EXPECT_EQ(Ask(PlainX, 0.5, PlainZ, Full).terrain.depth, 0.0);
    EXPECT_EQ(Ask(PlainX, 0.0, PlainZ, Full).terrain.depth, 0.0);
    // In the basin, under water but above its floor.
    EnvironmentInfo const swimming = Ask(BasinX, -10.0, BasinZ, Full);
    EXPECT_EQ(swimming.terrain.depth, 0.0);
    EXPECT_EQ(swimming.terrain.surfacePoint, glm::dvec3(BasinX, -20.0, BasinZ));
}

// ---------------------------------------------------------------------------
// Atmosphere

TEST(PlanetAtmosphere, SeaLevelValues) {
    EnvironmentInfo const info = Ask(PlainX, 0.0, PlainZ, Medium);
    EXPECT_DOUBLE_EQ(info.density, 1.225);
    EXPECT_DOUBLE_EQ(info.pressure, 101325.0);
    EXPECT_DOUBLE_EQ(info.viscosity, 1.5e-5);
}

TEST(PlanetAtmosphere, DensityAndPressureFallWithAltitude) {
    double lastDensity = 2.0, lastPressure = 2e5;
    for (double y : {0.0, 10.0, 100.0, 1000.0, 5000.0, 8500.0, 20000.0, 100000.0}) {
        EnvironmentInfo const info = Ask(PlainX, y, PlainZ, Medium);
        EXPECT_LT(info.density, lastDensity) << "y " << y;
        EXPECT_LT(info.pressure, lastPressure) << "y " << y;
        EXPECT_GT(info.density, 0.0);
        EXPECT_EQ(info.viscosity, 1.5e-5);
        lastDensity = info.density;
        lastPressure = info.pressure;
    }
    // One scale height divides both by e.
    EnvironmentInfo const high = Ask(PlainX, 8500.0, PlainZ, Medium);
    EXPECT_NEAR(high.density, 1.225 / std::exp(1.0), 1e-12);
    EXPECT_NEAR(high.pressure, 101325.0 / std::exp(1.0), 1e-9);
}

TEST(PlanetAtmosphere, AirAboveTheBasinFollowsSeaLevelNotTheFloor) {
    EnvironmentInfo const overWater = Ask(BasinX, 100.0, BasinZ, Medium);
    EnvironmentInfo const overGround = Ask(PlainX, 100.0, PlainZ, Medium);
    EXPECT_DOUBLE_EQ(overWater.density, overGround.density);
    EXPECT_DOUBLE_EQ(overWater.pressure, overGround.pressure);
}

TEST(PlanetAtmosphere, UndergroundAirKeepsSeaLevelValues) {
    for (double y : {-1.0, -1e6, -1e300}) {
        EnvironmentInfo const info = Ask(PlainX, y, PlainZ, Medium);
        EXPECT_DOUBLE_EQ(info.density, 1.225) << "y " << y;
        EXPECT_DOUBLE_EQ(info.pressure, 101325.0) << "y " << y;
    }
}

// ---------------------------------------------------------------------------
// Water

TEST(PlanetWater, BasinBelowSeaLevelIsWater) {
    for (double y : {-0.001, -1.0, -10.0, -19.999}) {
        EnvironmentInfo const info = Ask(BasinX, y, BasinZ, Medium);
        EXPECT_EQ(info.density, 1000.0) << "y " << y;
        EXPECT_EQ(info.viscosity, 0.001) << "y " << y;
        ASSERT_EQ(info.composition.size(), 1u);
        EXPECT_EQ(info.composition.begin()->first, "H2O");
        EXPECT_EQ(info.composition.begin()->second, 1.0);
    }
    // The edges of the basin hold water as well.
    EXPECT_EQ(Ask(40.0, -1.0, 20.0, Medium).density, 1000.0);
    EXPECT_EQ(Ask(80.0, -1.0, -20.0, Medium).density, 1000.0);
}

TEST(PlanetWater, SurfaceAndAboveAreAir) {
    for (double y : {0.0, 0.001, 5.0}) {
        EnvironmentInfo const info = Ask(BasinX, y, BasinZ, Medium);
        EXPECT_LT(info.density, 1.3) << "y " << y;
        EXPECT_EQ(info.viscosity, 1.5e-5) << "y " << y;
        EXPECT_EQ(info.composition.count("H2O"), 0u);
    }
}

TEST(PlanetWater, OutsideTheBasinBelowSeaLevelIsNoWater) {
    // Just beside the basin's walls, in the ground: the column's air.
    EXPECT_LT(Ask(39.9, -5.0, 0.0, Medium).density, 1.3);
    EXPECT_LT(Ask(80.1, -5.0, 0.0, Medium).density, 1.3);
    EXPECT_LT(Ask(60.0, -5.0, 20.1, Medium).density, 1.3);
    EXPECT_LT(Ask(60.0, -5.0, -20.1, Medium).density, 1.3);
}

TEST(PlanetWater, PressureRisesWithDepth) {
    EXPECT_NEAR(Ask(BasinX, -10.0, BasinZ, Medium).pressure, 101325.0 + 1000.0 * 9.81 * 10.0, 1e-6);
    double last = 101325.0;
    for (double y : {-0.5, -2.0, -8.0, -15.0, -20.0}) {
        double const pressure = Ask(BasinX, y, BasinZ, Medium).pressure;
        EXPECT_GT(pressure, last) << "y " << y;
        last = pressure;
    }
    // Below the floor the water keeps its values at the floor.
    EXPECT_DOUBLE_EQ(Ask(BasinX, -25.0, BasinZ, Medium).pressure, Ask(BasinX, -20.0, BasinZ, Medium).pressure);
    EXPECT_EQ(Ask(BasinX, -25.0, BasinZ, Medium).density, 1000.0);
}

// ---------------------------------------------------------------------------
// Composition

TEST(PlanetComposition, AirIsNitrogenOxygenArgon) {
    EnvironmentInfo const info = Ask(PlainX, 10.0, PlainZ, Medium);
    ASSERT_EQ(info.composition.size(), 3u);
    EXPECT_EQ(info.composition.at("N2"), 0.78);
    EXPECT_EQ(info.composition.at("O2"), 0.21);
    EXPECT_EQ(info.composition.at("Ar"), 0.01);
    double sum = 0.0;
    for (auto const& [name, fraction] : info.composition) sum += fraction;
    EXPECT_NEAR(sum, 1.0, 1e-12);
    EXPECT_TRUE(Ask(PlainX, 10.0, PlainZ, Terrain).composition.empty());
}

TEST(PlanetComposition, EveryNameIsAMoleculeOfTheChemistryTable) {
    // Expected molar masses, kg/mol, from the element table's masses.
    struct Row { std::string name; double molarMass; };
    for (Row const& row : {Row{"N2", 0.028014}, Row{"O2", 0.031998}, Row{"Ar", 0.039948}, Row{"H2O", 0.018015}}) {
        game::Molecule const molecule(row.name);
        EXPECT_TRUE(molecule.HasUsableComposition()) << row.name;
        EXPECT_EQ(molecule.Formula(), row.name);
        EXPECT_NEAR(molecule.GetMolarMass(), row.molarMass, 2e-5) << row.name;
    }
    for (char const* name : {planet::nitrogen, planet::oxygen, planet::argon, planet::water})
        EXPECT_TRUE(game::Molecule(name).HasUsableComposition()) << name;
    for (double x : {PlainX, BasinX})
        for (auto const& [name, fraction] : Ask(x, -5.0, 0.0, Medium).composition) {
            EXPECT_TRUE(game::Molecule(name).HasUsableComposition()) << name;
            EXPECT_EQ(game::Molecule(name).Formula(), name);
        }
}

} // namespace
