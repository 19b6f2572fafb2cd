// Environment interaction of dynamic bodies: gravity from the environment,
// the aerodynamic samples and their drag and lift, buoyancy, liquid damping,
// terrain contacts and the parent frame.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include <glm/gtc/matrix_transform.hpp>

#include "game/physics/PhysicsRandom.hpp"
#include "game/physics/Rigidbody.hpp"
#include "tests/support/GlmChecks.hpp"
#include "tests/support/PhysicsWorld.hpp"

namespace {

using game::entity::ConvexMeshCollider;
using game::entity::ServerSideEntity;
using game::physics::EnvironmentFunction;
using game::physics::EnvironmentInfo;
using Body = game::physics::DynamicRigidbody<ServerSideEntity>;

constexpr double G = 9.81;
constexpr double Frame = 1.0 / 60.0;
constexpr int Substeps = 10;

/// Gravity along -z, no ground near; below z = surface the liquid, above it the air.
EnvironmentFunction Medium(glm::dvec3 gravity, double liquidDensity, double liquidViscosity, double surface = 1e9,
                           double airDensity = 1.2)
{
    return [=](glm::dvec3 const& position, game::EnvironmentInfoFlags, double) {
        EnvironmentInfo info;
        info.gravity = gravity;
        info.altitude = position.z + 1e4;
        info.surfaceNormal = glm::dvec3(0.0, 0.0, 1.0);
        bool const wet = position.z < surface;
        info.density = wet ? liquidDensity : airDensity;
        info.viscosity = wet ? liquidViscosity : 1.5e-5;
        return info;
    };
}

EnvironmentFunction Air() { return Medium({0.0, 0.0, -G}, 1.2, 1.5e-5); }
/// Water below z = 0, air above.
EnvironmentFunction Sea() { return Medium({0.0, 0.0, -G}, 1000.0, 0.001, 0.0); }

class EnvironmentTest : public ::testing::Test {
protected:
    testsupport::PhysicsWorld world;
    /// A flat plate 4 m x 4 m x 0.1 m, wide faces along z; a 1 m cube, too small to feel the air;
    /// four slabs of 4 m x 4 m x 0.25 m stacked along z, a 1 m thick pontoon.
    ServerSideEntity::Ptr Plate(double mass, glm::dvec3 velocity = {}) { return Boxes(mass, velocity, {4.0, 4.0, 0.1}, 1); }
    ServerSideEntity::Ptr Cube(double mass, glm::dvec3 velocity = {}) { return Boxes(mass, velocity, glm::dvec3(1.0), 1); }
    ServerSideEntity::Ptr Pontoon(double mass, glm::dvec3 velocity = {}) { return Boxes(mass, velocity, {4.0, 4.0, 0.25}, 4); }
    ServerSideEntity::Ptr Boxes(double mass, glm::dvec3 velocity, glm::dvec3 size, int count)
    {
        std::vector<ConvexMeshCollider> stack;
        for (int i = 0; i < count; ++i) {
            glm::vec3 const low(-size.x / 2, -size.y / 2, size.z * (i - count / 2.0));
            stack.push_back(ConvexMeshCollider::Box(low, low + glm::vec3(size)));
        }
        ServerSideEntity::Ptr entity = world.Add(mass, glm::dvec3(0.0), stack);
        entity->linearVelocity = velocity;
        return entity;
    }
};

/// Runs frames as the step driver does for a body without parent: the samples
/// once a frame, then motion and environment on each substep.
void Fly(Body& body, EnvironmentFunction& environment, int frames)
{
    for (int frame = 0; frame < frames; ++frame) {
        body.ComputeAerodynamicSurfaces(environment);
        for (int step = 0; step < Substeps; ++step) {
            body.IntegrateMotion(Frame / Substeps);
            body.InteractWithEnvironment(environment, Frame / Substeps);
        }
    }
}

TEST_F(EnvironmentTest, WithoutGravityOrWithoutMediumBodiesKeepTheirVelocities)
{
    // Exactly zero gravity ends the interaction before drag, even in a damping liquid.
    struct Case {
        char const* name;
        EnvironmentFunction environment;
        glm::dvec3 gravity;
    } cases[] = {
        {"no gravity", Medium(glm::dvec3(0.0), 1000.0, 0.0005), glm::dvec3(0.0)},
        {"no medium", Medium({0.0, -3.0, -G}, 0.0, 0.0), {0.0, -3.0, -G}},
    };
    for (Case& c : cases) {
        for (ServerSideEntity::Ptr entity : {Plate(50.0), Cube(20.0), Pontoon(800.0)}) {
            SCOPED_TRACE(c.name);
            entity->linearVelocity = glm::dvec3(3.0, -2.0, 10.0);
            entity->angularVelocity = glm::dvec3(0.0, 0.2, 0.5);
            entity->pendingAcceleration = glm::dvec3(1.0, 2.0, 3.0);
            Body body(entity, Frame);
            body.ComputeAerodynamicSurfaces(c.environment);
            for (int step = 0; step < Substeps; ++step)
                body.InteractWithEnvironment(c.environment, Frame / Substeps);
            EXPECT_EQ(body.linearVelocity, entity->linearVelocity);
            EXPECT_EQ(body.angularVelocity, entity->angularVelocity);
            EXPECT_EQ(body.pendingAcceleration, c.gravity);
            EXPECT_FALSE(body.keepOnParent);
        }
    }
}

TEST_F(EnvironmentTest, OnlyFacesMeetingTheAirGiveSamples)
{
    EnvironmentFunction air = Air();
    game::physics::SeedPhysicsRandom(7);
    struct Case {
        char const* name;
        ServerSideEntity::Ptr entity;
        size_t samples;
        double lift;  // of every sample
        int surfaces; // -1: not checked
    } cases[] = {
        {"plate falling flat: one full lift sample", Plate(100.0, {0.0, 0.0, -3.0}), 1u, 1.0, 1},
        {"small cube", Cube(10.0, {20.0, 0.0, 0.0}), 0u, 0.0, -1},
        {"resting plate", Plate(10.0), 0u, 0.0, 0},
        {"rising slabs: only the top face", Pontoon(1000.0, {0.0, 0.0, 4.0}), 1u, 1.0, -1},
        {"sliding slabs: four edges without lift", Pontoon(1000.0, {4.0, 0.0, 0.0}), 4u, 0.0, -1},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        Body body(c.entity, Frame);
        body.ComputeAerodynamicSurfaces(air);
        ASSERT_EQ(body.aerodynamicSamples.size(), c.samples);
        EXPECT_EQ(c.surfaces < 0 ? c.surfaces : static_cast<int>(body.aerodynamicSurfaces.size()), c.surfaces);
        for (game::physics::AerodynamicSample const& sample : body.aerodynamicSamples)
            EXPECT_NEAR(sample.factors.y, c.lift, 1e-12);
    }
    Body plate(cases[0].entity, Frame);
    plate.ComputeAerodynamicSurfaces(air);
    EXPECT_EQ(plate.aerodynamicSamples[0].point, glm::dvec3(0.0));
    EXPECT_NEAR(std::abs(plate.aerodynamicSamples[0].normal.z), 1.0, 1e-12);
    testsupport::ExpectVecNear(plate.aerodynamicSamples[0].factors, glm::dvec3(16.0, 1.0, 0.01), 1e-12);
    Body top(cases[3].entity, Frame);
    top.ComputeAerodynamicSurfaces(air);
    EXPECT_DOUBLE_EQ(top.aerodynamicSamples[0].point.z, 0.5);
}

TEST_F(EnvironmentTest, ADragImpulseNeverReversesTheSpeedInOneSubstep)
{
    // A 3 m cube in a medium a thousand times denser than water: the drag would
    // stop it many times over; gravity is tiny but not zero.
    EnvironmentFunction mud = Medium({0.0, 0.0, -1e-6}, 1e6, 0.0);
    for (double dt : {0.1, 1.0}) {
        SCOPED_TRACE(dt);
        ServerSideEntity::Ptr entity = Boxes(10.0, {50.0, 0.0, 0.0}, glm::dvec3(3.0), 1);
        Body body(entity, dt);
        body.ComputeAerodynamicSurfaces(mud);
        ASSERT_EQ(body.aerodynamicSamples.size(), 1u);
        EXPECT_DOUBLE_EQ(body.aerodynamicSamples[0].factors.z, 0.4);
        body.contactRest = 3.0;
        body.InteractWithEnvironment(mud, dt);
        EXPECT_EQ(body.contactRest, 3.0) << "drag is no contact";
        // The force is limited to speed * mass: the impulse takes dt of the speed.
        EXPECT_NEAR(body.linearVelocity.x, 50.0 * (1.0 - dt), 1e-9);
    }
}

TEST_F(EnvironmentTest, APlateFallingFlatInAirReachesTheTerminalSpeedOfTheDragFormula)
{
    EnvironmentFunction air = Air();
    game::physics::SeedPhysicsRandom(11);
    ServerSideEntity::Ptr entity = Plate(1000.0);
    Body body(entity, Frame);
    Fly(body, air, 20 * 60);
    // Falling flat, the lift sample pushes with rho v^2 A (L + D / 2), L = 1, D = 0.01;
    // buoyancy of the plate's 1.6 m^3 of air lightens it.
    double const terminal = std::sqrt((1000.0 - 1.2 * 1.6) * G / (1.2 * 16.0 * (1.0 + 0.5 * 0.01)));
    EXPECT_NEAR(-body.linearVelocity.z, terminal, 0.01 * terminal);
    EXPECT_NEAR(glm::length(glm::dvec2(body.linearVelocity)), 0.0, 1e-9);
    EXPECT_LT(glm::length(body.angularVelocity), 1e-9);
}

TEST_F(EnvironmentTest, ALighterBodyFloatsAtItsDraughtAndTheSeedFixesTheMotion)
{
    // Mean height of a 400 kg/m^3 pontoon's centre over the last averaged of seconds in the sea.
    auto const floating = [this](uint64_t seed, int seconds, int averaged) {
        EnvironmentFunction sea = Sea();
        game::physics::SeedPhysicsRandom(seed);
        ServerSideEntity::Ptr entity = Pontoon(400.0 * 16.0);
        entity->position = glm::dvec3(0.0, 0.0, 0.5); // bottom on the water
        Body body(entity, Frame);
        Fly(body, sea, (seconds - averaged) * 60);
        double sum = 0.0;
        for (int frame = 0; frame < averaged * 60; ++frame, sum += body.position.z)
            Fly(body, sea, 1);
        return sum / (averaged * 60);
    };
    // Archimedes with the air above: 1000 d + 1.2 (1 - d) = 400 for a 1 m thick body.
    double const draught = (400.0 - 1.2) / (1000.0 - 1.2);
    EXPECT_NEAR(0.5 - floating(2024, 30, 10), draught, 0.1 * draught);
    double const first = floating(99, 2, 1);
    EXPECT_EQ(floating(99, 2, 1), first);
    EXPECT_NE(floating(100, 2, 1), first);
}

TEST_F(EnvironmentTest, OnlyAViscosityInsideTheLiquidWindowDampsAndKeepsTheBodyOnItsParent)
{
    // A cube centred on its centre of mass feels buoyancy only along z.
    for (double viscosity : {1.5e-5, 0.000999, 0.0005, 0.001}) {
        SCOPED_TRACE(viscosity);
        EnvironmentFunction medium = Medium({0.0, 0.0, -G}, viscosity == 0.0005 ? 1000.0 : 1.2, viscosity);
        ServerSideEntity::Ptr entity = Cube(100.0, {3.0, 0.0, 0.0});
        entity->angularVelocity = glm::dvec3(0.0, 0.0, 2.0);
        Body body(entity, Frame);
        body.contactRest = 3.0;
        body.InteractWithEnvironment(medium, 0.1);
        bool const damped = viscosity == 0.0005;
        EXPECT_EQ(body.keepOnParent, damped);
        EXPECT_EQ(body.linearVelocity.x == 3.0, !damped);
        EXPECT_EQ(body.angularVelocity.z == 2.0, !damped);
        EXPECT_GT(body.linearVelocity.x, 2.5);
        EXPECT_GT(body.angularVelocity.z, 0.0);
        EXPECT_EQ(body.contactRest, 3.0) << "the push of the medium is no contact";
    }
}

TEST_F(EnvironmentTest, ABodyInTheGroundIsPushedOutAlongTheSurfaceNormal)
{
    // Flat ground at z = 0 answering how deep a point lies under it.
    EnvironmentFunction ground = [](glm::dvec3 const& position, game::EnvironmentInfoFlags flags, double) {
        EnvironmentInfo info;
        info.gravity = glm::dvec3(0.0, 0.0, -G);
        info.altitude = position.z;
        info.surfaceNormal = glm::dvec3(0.0, 0.0, 1.0);
        info.terrain.depth = (flags & game::EnvironmentTerrain) ? std::max(0.0, -position.z) : 0.0;
        info.density = 1.2;
        info.viscosity = 1.5e-5;
        return info;
    };
    ServerSideEntity::Ptr entity = Cube(100.0, {0.0, 0.0, -1.0});
    entity->position = glm::dvec3(0.0, 0.0, 0.4); // 0.1 m into the ground
    Body body(entity, Frame);
    body.InteractWithEnvironment(ground, Frame);
    EXPECT_NEAR(body.position.z, 0.5, 1e-9);
    EXPECT_GE(body.linearVelocity.z, -1e-9);
    EXPECT_TRUE(body.keepOnParent);
    EXPECT_LE(body.restingLimit, 0.1);
}

TEST_F(EnvironmentTest, ParentFrameQueriesGoThroughItsTransformAndGravityComesBack)
{
    // The parent frame lies 100 m down in the sea, turned 90 degrees about x: its +y is the world's +z.
    EnvironmentFunction sea = Sea();
    glm::dmat4 const parent = glm::rotate(glm::translate(glm::dmat4(1.0), glm::dvec3(0.0, 0.0, -100.0)),
                                          glm::radians(90.0), glm::dvec3(1.0, 0.0, 0.0));
    ServerSideEntity::Ptr entity = Cube(100.0); // 1 m^3 of 100 kg at the parent's origin
    Body body(entity, Frame);
    body.InteractWithEnvironmentFromParent(parent, sea, Frame);
    testsupport::ExpectVecNear(body.pendingAcceleration, glm::dvec3(0.0, -G, 0.0), 1e-12);
    // Under water the whole cube lifts along the parent's +y: g * 1000 kg / 100 kg * dt.
    testsupport::ExpectVecNear(body.linearVelocity, glm::dvec3(0.0, G * 10.0 * Frame, 0.0), 1e-9);
}

} // namespace
