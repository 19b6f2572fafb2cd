#pragma once
// A small physics world for tests and benchmarks: gravity along -y, a flat floor
// at y = 0 (no air), boxes added in one call, whole steps as the server runs them,
// everything removed when it goes. No test framework here: benchmarks include it.
#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <glm/glm.hpp>
#include <glm/gtc/quaternion.hpp>

#include "game/Game.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "game/physics/EnvironmentInfo.hpp"
#include "nerox/modular/ModuleID.hpp"

namespace testsupport {

struct BoxSpec {
    glm::dvec3 size{1.0};
    double mass = 1.0;
    glm::dvec3 position{0.0};
    glm::dquat orientation{1.0, 0.0, 0.0, 0.0};
    glm::dvec3 velocity{0.0};
    bool dynamic = true;
    game::entity::Id id{}; ///< A new one when unset.
};

/// Where crate i of a pile starts: 10 x 10 columns 1.8 m apart, layers 1.8 m
/// apart from 1 m up (a turned unit crate reaches 0.87 m from its centre), and a
/// rotation drawn uniformly from all rotations.
inline void PileCrate(int i, std::mt19937_64& random, glm::dvec3& position, glm::dquat& orientation) {
    int const x = i % 10, z = (i / 10) % 10, layer = i / 100;
    position = glm::dvec3((x - 5) * 1.8, 1.0 + layer * 1.8, (z - 5) * 1.8);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    double const u1 = unit(random), u2 = 2.0 * M_PI * unit(random), u3 = 2.0 * M_PI * unit(random);
    double const a = std::sqrt(1.0 - u1), b = std::sqrt(u1);
    orientation = glm::dquat(b * std::cos(u3), a * std::sin(u2), a * std::cos(u2), b * std::sin(u3));
}

class PhysicsWorld {
public:
    using Entity = game::entity::ServerSideEntity;

    explicit PhysicsWorld(game::entity::EnvironmentId id = 77, game::physics::EnvironmentFunction environment = Floor())
        : environmentId(id) {
        Game::_environmentFunctions[id] = std::move(environment);
    }
    ~PhysicsWorld() {
        Entity::DestroyAll();
        Game::_environmentFunctions.erase(environmentId);
        Game::debugServerSidePhysics = false;
    }

    static game::physics::EnvironmentFunction Floor() {
        return [](glm::dvec3 const& position, game::EnvironmentInfoFlags flags, double) {
            if (!(flags & game::EnvironmentTerrain))
                return game::physics::EnvironmentInfo{.gravity = {0.0, -9.81, 0.0}};
            return game::physics::EnvironmentInfo{.terrain = {.depth = std::max(0.0, -position.y)},
                                                  .gravity = {0.0, -9.81, 0.0},
                                                  .altitude = position.y,
                                                  .surfaceNormal = {0.0, 1.0, 0.0}};
        };
    }

    /// An entity of this world made of the given colliders (named c0, c1, ...), bounds taken from them.
    Entity::Ptr Add(double mass, glm::dvec3 const& position, std::vector<game::entity::ConvexMeshCollider> colliders,
                    bool dynamic = true, game::entity::Id id = {}) {
        auto entity = game::entity::Create<Entity>(nerox::modular::ModuleID(), std::string("box"), id);
        entity->deleteFilesOnDestroy = false;
        for (size_t i = 0; i < colliders.size(); ++i)
            entity->colliders["c" + std::to_string(i)] = std::move(colliders[i]);
        entity->UpdateBoundingBox(true);
        entity->mass = mass;
        entity->position = position;
        entity->isDynamic = dynamic;
        entity->physicsEnabled = true;
        entity->environmentId = environmentId;
        return entity;
    }

    Entity::Ptr AddBox(BoxSpec const& box) {
        glm::vec3 const half(box.size * 0.5);
        auto entity =
            Add(box.mass, box.position, {game::entity::ConvexMeshCollider::Box(-half, half)}, box.dynamic, box.id);
        entity->orientation = box.orientation;
        entity->linearVelocity = box.velocity;
        return entity;
    }

    static void Simulate(int steps, int substeps = 4, double stepSeconds = 1.0 / 60.0) {
        for (int i = 0; i < steps; ++i) Entity::PhysicsUpdate(stepSeconds, substeps);
    }

    game::entity::EnvironmentId const environmentId;
};

} // namespace testsupport
