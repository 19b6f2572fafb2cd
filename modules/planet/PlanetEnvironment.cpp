#include "PlanetEnvironment.hpp"

#include <algorithm>
#include <cmath>

namespace planet {

bool InBasin(double x, double z) {
    return x >= basinMinX && x <= basinMaxX && z >= basinMinZ && z <= basinMaxZ;
}

double GroundHeight(double x, double z) {
    return InBasin(x, z) ? basinFloor : seaLevel;
}

game::physics::EnvironmentInfo Environment(glm::dvec3 const& position, game::EnvironmentInfoFlags flags,
                                           double /*radius*/) {
    game::physics::EnvironmentInfo info;
    info.gravity = glm::dvec3(0.0, -gravity, 0.0);

    bool const inBasin = InBasin(position.x, position.z);
    double const ground = inBasin ? basinFloor : seaLevel;

    if (flags & game::EnvironmentTerrain) {
        info.altitude = position.y - ground;
        info.surfaceNormal = glm::dvec3(0.0, 1.0, 0.0);
        info.terrain.depth = std::max(0.0, ground - position.y);
    }
    if (flags & game::EnvironmentSurfaceDepth) {
        info.terrain.surfacePoint = glm::dvec3(position.x, ground, position.z);
    }
    if (flags & game::EnvironmentMedium) {
        // Below the ground the column's medium keeps its values at the ground.
        double const y = std::max(position.y, ground);
        if (inBasin && y < seaLevel) {
            info.density = waterDensity;
            info.viscosity = waterViscosity;
            info.pressure = airPressure + waterDensity * gravity * (seaLevel - y);
            info.composition.emplace(water, 1.0);
        } else {
            double const falloff = std::exp(-(y - seaLevel) / scaleHeight);
            info.density = airDensity * falloff;
            info.viscosity = airViscosity;
            info.pressure = airPressure * falloff;
            info.composition.emplace(nitrogen, 0.78);
            info.composition.emplace(oxygen, 0.21);
            info.composition.emplace(argon, 0.01);
        }
    }
    return info;
}

} // namespace planet
