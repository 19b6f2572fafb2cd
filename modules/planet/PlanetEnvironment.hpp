#pragma once
// The sample planet: a flat sandbox ground with an atmosphere and one basin of
// water. Its answer function has no state and needs no module, so tests and
// tools may call it directly; the TESSARA_planet content module registers it
// under planet::environmentId (see ContentMod.cpp).
//
// Frame: metres, y up. Sea level is y = 0.
//
//   Ground   a height field: y = 0 everywhere except the basin, whose floor
//            lies at y = -20. The basin covers x in [40, 80] and z in [-20, 20]
//            (bounds included); its walls are vertical steps of the height field.
//            The surface normal is (0, 1, 0) everywhere, walls included, and
//            depths are measured straight down: a point pressed sideways into
//            a wall counts as lying below the ground beside the basin.
//   Water    fills the basin up to sea level: a point inside the basin's x/z
//            bounds with y < 0 is in water; at y = 0 and above it is in air.
//   Air      everywhere else.
//   Gravity  (0, -9.81, 0) everywhere.
//
// Below the ground the medium of the column goes on with the values it has at
// the ground: air below the flat ground reads as air at sea level, water below
// the basin floor as water at the floor.
#include "game/physics/EnvironmentInfo.hpp"

#include <glm/glm.hpp>

#include <cstdint>

namespace planet {

/// The module's name, also the text form of its ModuleID.
inline constexpr char moduleName[] = "TESSARA_planet";

/// The id under which the module registers the planet in Game::_environmentFunctions.
inline constexpr uint64_t environmentId = 1;

/// Gravity, m/s^2, the same at every point.
inline constexpr double gravity = 9.81;

/// Height of the sea surface and of the flat ground, metres.
inline constexpr double seaLevel = 0.0;

/// The basin: floor height and the x/z bounds, metres, bounds included.
inline constexpr double basinFloor = -20.0;
inline constexpr double basinMinX = 40.0;
inline constexpr double basinMaxX = 80.0;
inline constexpr double basinMinZ = -20.0;
inline constexpr double basinMaxZ = 20.0;

/// Air at sea level, and the height over which its density and pressure fall by 1/e.
inline constexpr double airDensity = 1.225;     ///< kg/m^3.
inline constexpr double airPressure = 101325.0; ///< Pa.
inline constexpr double airViscosity = 1.5e-5;  ///< Kinematic, m^2/s.
inline constexpr double scaleHeight = 8500.0;   ///< Metres.

/// Water: constant density; pressure grows by waterDensity * gravity per metre of depth.
inline constexpr double waterDensity = 1000.0;  ///< kg/m^3.
inline constexpr double waterViscosity = 0.001; ///< The value physics treats as a liquid.

/// Molecule names of the composition, as formulas that game::Molecule reads. Nitrogen
/// is the molecule N2 (the fixed table lists only the atom "N"; "N2" is parsed once and
/// then remembered), so that molar masses and the names used by gas volumes agree.
inline constexpr char nitrogen[] = "N2";
inline constexpr char oxygen[] = "O2";
inline constexpr char argon[] = "Ar";
inline constexpr char water[] = "H2O";

/// Height of the ground at (x, z): basinFloor inside the basin, else seaLevel.
double GroundHeight(double x, double z);

/// Whether (x, z) lies inside the basin's bounds.
bool InBasin(double x, double z);

/// The planet's answer for a point, in the form of game::physics::EnvironmentFunction.
/// Gravity is always set. EnvironmentTerrain adds altitude (y minus the ground
/// height), the surface normal and terrain.depth (how far the point lies below
/// the ground, else 0); EnvironmentSurfaceDepth adds terrain.surfacePoint (the
/// ground straight below or above the point). EnvironmentMedium adds density,
/// viscosity, pressure and composition of the air or water at the point. The
/// radius does not matter: the ground is answered exactly. Safe to call from any
/// number of threads at once; reentrant.
game::physics::EnvironmentInfo Environment(glm::dvec3 const& position, game::EnvironmentInfoFlags flags, double radius);

} // namespace planet
