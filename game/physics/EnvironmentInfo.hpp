#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include <glm/glm.hpp>

namespace game {

/// What an environment query asks for; bits may be combined.
enum EnvironmentInfoFlags : uint32_t {
    EnvironmentGravityOnly = 0,   ///< Gravity alone (always answered).
    EnvironmentTerrain = 1u << 0, ///< Terrain: altitude, surface normal and terrain.depth at the point.
    EnvironmentSurfaceDepth =
        1u << 1, ///< Also the nearest ground point and its material (terrain.surfacePoint, terrain.material).
    EnvironmentMedium = 1u << 2, ///< Air or water at the point: density, viscosity, pressure, composition.
};

} // namespace game

namespace game::physics {

/// Terrain details of an answer, at the queried point.
struct TerrainInfo {
    /// Metres the point lies below the ground, measured along the surface
    /// normal; 0 above it. Answered for every query with EnvironmentTerrain:
    /// terrain contacts read it at a collider's lowest point.
    double depth = 0.0;
    glm::dvec3 surfacePoint{
        0.0};               ///< Nearest point of the ground, in the environment's frame. Needs EnvironmentSurfaceDepth.
    uint32_t material = 0;  ///< Module-defined ground material; 0 unknown. Needs EnvironmentSurfaceDepth.
    uint32_t reserved0 = 0; ///< Zero.
    double reserved[11] = {}; ///< Free for the environment's modules.
};
static_assert(sizeof(TerrainInfo) == 128, "the terrain block is 128 bytes");

/// What an environment says about a point: gravity, ground and the medium there.
/// An unknown environment answers with everything zero.
struct EnvironmentInfo {
    TerrainInfo terrain;                       ///< Ground details.
    glm::dvec3 gravity{0.0};                   ///< m/s^2.
    double altitude = 0.0;                     ///< Metres above the ground; negative below it.
    glm::dvec3 surfaceNormal{0.0};             ///< Up at the ground.
    double density = 0.0;                      ///< kg/m^3 of the medium.
    double viscosity = 0.0;                    ///< Kinematic, m^2/s: 1.5e-5 thin air, about 0.001 a liquid.
    double pressure = 0.0;                     ///< Pa.
    std::map<std::string, double> composition; ///< Molecule name to fraction.
};

/// An environment's answer function: position in its frame, what to ask, and
/// the radius of the asking object (metres). It is called from the client's
/// thread and the physics step's threads, possibly at once: it must be safe to
/// call from several threads, and its answer must depend only on its arguments.
using EnvironmentFunction =
    std::function<EnvironmentInfo(glm::dvec3 const& position, EnvironmentInfoFlags flags, double radius)>;

/// Drag on a box moving at velocity through a medium, per axis: the quadratic
/// term -0.5 rho c A v^2 sign(v) plus the Stokes term -6 pi mu A v.
inline glm::dvec3 GetDragForce(double density, glm::dvec3 const& velocity, glm::dvec3 const& area, double coefficient,
                               double viscosity) {
    glm::dvec3 force(0.0);
    for (int axis = 0; axis < 3; ++axis) {
        double const v = velocity[axis];
        double const sign = v > 0.0 ? 1.0 : (v < 0.0 ? -1.0 : 0.0);
        force[axis] =
            -0.5 * density * coefficient * area[axis] * v * v * sign - 18.84955592153876 * viscosity * area[axis] * v;
    }
    return force;
}

} // namespace game::physics
