// Environment interaction of dynamic bodies: gravity, aerodynamic samples with their
// drag and lift, buoyancy, liquid damping, terrain contacts and the parent frame.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <utility>
#include <vector>

#include <glm/gtc/matrix_transform.hpp>

#include "game/physics/PhysicsRandom.hpp"
#include "game/physics/Rigidbody.hpp"
#include "tests/support/GlmChecks.hpp"
#include "tests/support/Golden.hpp"
#include "tests/support/PhysicsWorld.hpp"

namespace {

using game::entity::ServerSideEntity;
using game::physics::EnvironmentFunction;
using game::physics::EnvironmentInfo;
using Body = game::physics::DynamicRigidbody<ServerSideEntity>;
using V = glm::dvec3;

constexpr double G = 9.81, Frame = 1.0 / 60.0;

/// Gravity, no ground near; below z = surface the liquid, above it air; with ground, flat ground at z = 0.
EnvironmentFunction Medium(V gravity, double liquidDensity, double liquidViscosity, double surface = 1e9,
                           bool ground = false) {
    return [=](V const& position, game::EnvironmentInfoFlags flags, double) {
        bool const wet = position.z < surface, deep = ground && (flags & game::EnvironmentTerrain);
        return EnvironmentInfo{.terrain = {.depth = deep ? std::max(0.0, -position.z) : 0.0},
                               .gravity = gravity,
                               .altitude = position.z + (ground ? 0.0 : 1e4),
                               .surfaceNormal = V(0.0, 0.0, 1.0),
                               .density = wet ? liquidDensity : 1.2,
                               .viscosity = wet ? liquidViscosity : 1.5e-5};
    };
}

class EnvironmentTest : public ::testing::Test {
protected:
    testsupport::PhysicsWorld world;
    /// count boxes of size stacked along z around the origin.
    ServerSideEntity::Ptr Boxes(double mass, V velocity, V size, int count = 1) {
        std::vector<game::entity::ConvexMeshCollider> stack;
        for (int i = 0; i < count; ++i) {
            glm::vec3 const low(-size.x / 2, -size.y / 2, size.z * (i - count / 2.0));
            stack.push_back(game::entity::ConvexMeshCollider::Box(low, low + glm::vec3(size)));
        }
        ServerSideEntity::Ptr entity = world.Add(mass, V(0.0), stack);
        entity->linearVelocity = velocity;
        return entity;
    }
    ServerSideEntity::Ptr Plate(double mass, V velocity = {}) { return Boxes(mass, velocity, {4.0, 4.0, 0.1}); }
    ServerSideEntity::Ptr Pontoon(double mass, V velocity = {}) { return Boxes(mass, velocity, {4.0, 4.0, 0.25}, 4); }
};

TEST_F(EnvironmentTest, OnlyFacesMeetingTheAirGiveSamples) {
    // A plate falling flat gets one full lift sample at its middle, a small cube none, rising slabs only
    // their top face, sliding slabs four edges without lift.
    EnvironmentFunction air = Medium({0.0, 0.0, -G}, 1.2, 1.5e-5);
    game::physics::SeedPhysicsRandom(7);
    std::pair<char const*, ServerSideEntity::Ptr> cases[] = {{"plate falling flat", Plate(100.0, {0.0, 0.0, -3.0})},
                                                             {"small cube", Boxes(10.0, {20.0, 0.0, 0.0}, V(1.0))},
                                                             {"resting plate", Plate(10.0)},
                                                             {"rising slabs", Pontoon(1000.0, {0.0, 0.0, 4.0})},
                                                             {"sliding slabs", Pontoon(1000.0, {4.0, 0.0, 0.0})}};
    std::ostringstream out;
    auto const vec = [&out](V const& v) -> auto& {
        return out << " (" << v.x << ", " << v.y << ", " << v.z << ")";
    };
    for (auto& [name, entity] : cases) {
        Body body(entity, Frame);
        body.ComputeAerodynamicSurfaces(air);
        out << name << ": " << body.aerodynamicSurfaces.size() << " surfaces\n";
        for (game::physics::AerodynamicSample const& sample : body.aerodynamicSamples) {
            vec(sample.point) << " normal";
            vec(sample.normal) << " factors";
            vec(sample.factors) << "\n";
        }
    }
    testsupport::ExpectGolden(out.str(), "physics/aerodynamic_samples.txt");
}

TEST_F(EnvironmentTest, ADragImpulseNeverReversesTheSpeedInOneSubstep) {
    // A 3 m cube in a medium a thousand times denser than water; gravity tiny but not zero.
    EnvironmentFunction mud = Medium({0.0, 0.0, -1e-6}, 1e6, 0.0);
    for (double dt : {0.1, 1.0}) {
        ServerSideEntity::Ptr entity = Boxes(10.0, {50.0, 0.0, 0.0}, V(3.0));
        Body body(entity, dt);
        body.ComputeAerodynamicSurfaces(mud);
        ASSERT_EQ(body.aerodynamicSamples.size(), 1u);
        EXPECT_DOUBLE_EQ(body.aerodynamicSamples[0].factors.z, 0.4);
        body.contactRest = 3.0;
        body.InteractWithEnvironment(mud, dt);
        EXPECT_EQ(body.contactRest, 3.0) << "drag is no contact";
        EXPECT_NEAR(body.linearVelocity.x, 50.0 * (1.0 - dt), 1e-9) << "the force is limited to speed * mass";
    }
}

TEST_F(EnvironmentTest, OnlyAViscosityInsideTheLiquidWindowDampsAndKeepsTheBodyOnItsParent) {
    for (double viscosity : {1.5e-5, 0.000999, 0.0005, 0.001}) {
        SCOPED_TRACE(viscosity);
        bool const damped = viscosity == 0.0005;
        EnvironmentFunction medium = Medium({0.0, 0.0, -G}, damped ? 1000.0 : 1.2, viscosity);
        ServerSideEntity::Ptr entity = Boxes(100.0, {3.0, 0.0, 0.0}, V(1.0));
        entity->angularVelocity = V(0.0, 0.0, 2.0);
        Body body(entity, Frame);
        body.contactRest = 3.0;
        body.InteractWithEnvironment(medium, 0.1);
        EXPECT_EQ(std::tuple(body.keepOnParent, body.linearVelocity.x == 3.0, body.angularVelocity.z == 2.0,
                             body.contactRest),
                  std::tuple(damped, !damped, !damped, 3.0)); // the push of the medium is no contact
        EXPECT_TRUE(body.linearVelocity.x > 2.5 && body.angularVelocity.z > 0.0);
    }
}

TEST_F(EnvironmentTest, GroundPushesOutAlongItsNormalAndParentFrameQueriesGoThroughItsTransform) {
    EnvironmentFunction ground = Medium({0.0, 0.0, -G}, 1.2, 1.5e-5, 1e9, true);
    ServerSideEntity::Ptr entity = Boxes(100.0, {0.0, 0.0, -1.0}, V(1.0));
    entity->position = V(0.0, 0.0, 0.4); // 0.1 m into the ground
    Body body(entity, Frame);
    body.InteractWithEnvironment(ground, Frame);
    EXPECT_NEAR(body.position.z, 0.5, 1e-9);
    EXPECT_TRUE(body.linearVelocity.z >= -1e-9 && body.keepOnParent && body.restingLimit <= 0.1);

    // The parent frame lies 100 m down in the sea, turned 90 degrees about x: its +y is the world's +z.
    EnvironmentFunction sea = Medium({0.0, 0.0, -G}, 1000.0, 0.001, 0.0);
    glm::dmat4 const parent =
        glm::rotate(glm::translate(glm::dmat4(1.0), V(0.0, 0.0, -100.0)), glm::radians(90.0), V(1.0, 0.0, 0.0));
    entity = Boxes(100.0, {}, V(1.0));
    Body under(entity, Frame);
    under.InteractWithEnvironmentFromParent(parent, sea, Frame);
    testsupport::ExpectVecNear(under.pendingAcceleration, V(0.0, -G, 0.0), 1e-12);
    // The whole cube lifts along the parent's +y: g * 1000 kg / 100 kg * dt.
    testsupport::ExpectVecNear(under.linearVelocity, V(0.0, G * 10.0 * Frame, 0.0), 1e-9);
}

} // namespace
