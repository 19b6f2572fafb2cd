// The sample planet's answer function: gravity, the ground and its depth, the air's fall with height,
// water in the basin, and the composition names.
#include <gtest/gtest.h>

#include <sstream>
#include <tuple>

#include "game/Chemistry.hpp"
#include "modules/planet/PlanetEnvironment.hpp"
#include "tests/support/Golden.hpp"

namespace {

// The basin covers x 40..80 and z -20..20 with its floor at y = -20; (60, y, 0) is its middle. The probes go
// above and below the ground, through the water and beside the walls; flags 0 ask for gravity only,
// 1 add the terrain, 5 the medium, 7 the ground point under the probe.
TEST(Planet, ProbesAboveAndBelowTheGroundTheWaterAndTheBasinWalls) {
    struct Probe {
        double x, y, z;
        int flags;
    } const probes[] = {
        {60, -5, 0, 0},   {0, 12.5, 0, 1},    {60, 12.5, 0, 1},    {0, -3, 0, 1},     {60, -25, 0, 1},
        {0, -2, 0, 5},    {3, -2, 4, 7},      {50, -21.5, 5, 7},   {0, 0.5, 0, 7},    {0, 0, 0, 7},
        {60, -10, 0, 7},  {60, -0.001, 0, 5}, {60, -19.999, 0, 5}, {40, -1, 20, 5},   {80, -1, -20, 5},
        {60, -25, 0, 5},  {60, 0, 0, 5},      {60, 0.001, 0, 5},   {60, 100, 0, 5},   {0, 8500, 0, 5},
        {0, 20000, 0, 5}, {39.9, -5, 0, 5},   {80.1, -5, 0, 5},    {60, -5, 20.1, 5}, {60, -5, -20.1, 5},
        {0, -1e6, 0, 5},  {0, -1e300, 0, 5},
    };
    std::ostringstream out;
    out.precision(10);
    out << "x y z flags: gravity altitude normal depth ground point | density pressure viscosity composition\n";
    auto const vec = [&out](auto const& v) -> auto& {
        return out << " (" << v.x << ", " << v.y << ", " << v.z << ")";
    };
    for (Probe const& p : probes) {
        auto const info = planet::Environment({p.x, p.y, p.z}, static_cast<game::EnvironmentInfoFlags>(p.flags), 1.0);
        out << p.x << " " << p.y << " " << p.z << " " << p.flags << ":";
        vec(info.gravity) << " " << info.altitude;
        vec(info.surfaceNormal) << " " << info.terrain.depth;
        vec(info.terrain.surfacePoint) << " | " << info.density << " " << info.pressure << " " << info.viscosity;
        for (auto const& [name, fraction] : info.composition) out << " " << name << "=" << fraction;
        out << "\n";
    }
    testsupport::ExpectGolden(out.str(), "physics/planet_probes.txt");
}

TEST(Planet, BasinBoundsAreIncludedAndEveryNameIsAMoleculeOfTheChemistryTable) {
    for (auto [x, z, height] :
         {std::tuple(40.0, 0.0, -20.0), std::tuple(80.0, 20.0, -20.0), std::tuple(80.0, -20.0, -20.0),
          std::tuple(39.999, 0.0, 0.0), std::tuple(80.001, 0.0, 0.0), std::tuple(60.0, 20.001, 0.0)})
        EXPECT_EQ(planet::GroundHeight(x, z), height) << x << ", " << z;
    for (char const* name : {planet::nitrogen, planet::oxygen, planet::argon, planet::water})
        EXPECT_TRUE(game::Molecule(name).HasUsableComposition() && game::Molecule(name).Formula() == name) << name;
}

} // namespace
