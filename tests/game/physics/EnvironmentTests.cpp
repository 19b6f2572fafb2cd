// Environment interaction of dynamic bodies: gravity from the environment,
// the aerodynamic samples and their drag and lift, buoyancy, liquid damping,
// terrain contacts and the parent frame.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include <glm/gtc/matrix_transform.hpp>

#include "game/entity/ServerSideEntity.hpp"
#include "game/physics/PhysicsRandom.hpp"
#include "game/physics/Rigidbody.hpp"
#include "nerox/modular/ModuleID.hpp"

namespace {

using game::entity::ConvexMeshCollider;
using game::entity::Id;
using game::entity::ServerSideEntity;
using game::physics::DynamicRigidbody;
using game::physics::EnvironmentFunction;
using game::physics::EnvironmentInfo;
using Body = DynamicRigidbody<ServerSideEntity>;
using Box = std::pair<glm::vec3, glm::vec3>;

constexpr double G = 9.81;
constexpr double Frame = 1.0 / 60.0;
constexpr int Substeps = 10;

/// An entity of the given mass made of box colliders, its centre of mass at the bounds' centre.
ServerSideEntity::Ptr MakeEntity(double mass, std::vector<Box> const& boxes)
{
    auto entity = std::make_shared<ServerSideEntity>(nerox::modular::ModuleID("NOBODY_absent"), "body", Id::Generate());
    entity->mass = mass;
    for (size_t i = 0; i < boxes.size(); ++i)
        entity->colliders["c" + std::to_string(i)] = ConvexMeshCollider::Box(boxes[i].first, boxes[i].second);
    entity->UpdateBoundingBox(true);
    return entity;
}

/// A flat plate 4 m x 4 m x 0.1 m, wide faces along z.
ServerSideEntity::Ptr Plate(double mass)
{
    return MakeEntity(mass, {{{-2.0f, -2.0f, -0.05f}, {2.0f, 2.0f, 0.05f}}});
}

/// A 1 m cube: too small to feel the air.
ServerSideEntity::Ptr Cube(double mass)
{
    return MakeEntity(mass, {{{-0.5f, -0.5f, -0.5f}, {0.5f, 0.5f, 0.5f}}});
}

/// Four slabs of 4 m x 4 m x 0.25 m stacked along z: a 1 m thick pontoon.
ServerSideEntity::Ptr Pontoon(double mass)
{
    std::vector<Box> slabs;
    for (int i = 0; i < 4; ++i) {
        float const low = -0.5f + 0.25f * static_cast<float>(i);
        slabs.push_back({{-2.0f, -2.0f, low}, {2.0f, 2.0f, low + 0.25f}});
    }
    return MakeEntity(mass, slabs);
}

/// Gravity g along -z, no ground anywhere near, a uniform medium.
EnvironmentFunction Uniform(glm::dvec3 gravity, double density, double viscosity)
{
    return [=](glm::dvec3 const& position, game::EnvironmentInfoFlags, double) {
        EnvironmentInfo info;
        info.gravity = gravity;
        info.altitude = position.z + 1e6;
        info.surfaceNormal = glm::dvec3(0.0, 0.0, 1.0);
        info.density = density;
        info.viscosity = viscosity;
        return info;
    };
}

EnvironmentFunction Air()
{
    return Uniform(glm::dvec3(0.0, 0.0, -G), 1.2, 1.5e-5);
}

/// Water below z = 0, air above; the sea floor far below.
EnvironmentFunction Sea()
{
    return [](glm::dvec3 const& position, game::EnvironmentInfoFlags, double) {
        EnvironmentInfo info;
        info.gravity = glm::dvec3(0.0, 0.0, -G);
        info.altitude = position.z + 1e4;
        info.surfaceNormal = glm::dvec3(0.0, 0.0, 1.0);
        bool const wet = position.z < 0.0;
        info.density = wet ? 1000.0 : 1.2;
        info.viscosity = wet ? 0.001 : 1.5e-5;
        return info;
    };
}

/// Runs frames as the step driver does for a body without parent: the samples
/// once a frame, then motion and environment on each substep.
void Fly(Body& body, EnvironmentFunction& environment, int frames)
{
    double const h = Frame / Substeps;
    for (int frame = 0; frame < frames; ++frame) {
        body.ComputeAerodynamicSurfaces(environment);
        for (int step = 0; step < Substeps; ++step) {
            body.IntegrateMotion(h);
            body.InteractWithEnvironment(environment, h);
        }
    }
}

// ---------------------------------------------------------------------------
// Gravity: the environment's replaces the pending acceleration; none ends the
// interaction.

TEST(EnvironmentGravity, ExactlyZeroGravityEndsTheInteractionBeforeDrag)
{
    // A dense liquid with a damping viscosity: anything after gravity would show.
    EnvironmentFunction space = Uniform(glm::dvec3(0.0), 1000.0, 0.0005);
    ServerSideEntity::Ptr entity = Plate(100.0);
    entity->linearVelocity = glm::dvec3(1.0, 0.0, -5.0);
    entity->angularVelocity = glm::dvec3(0.1, 0.0, 0.3);
    entity->pendingAcceleration = glm::dvec3(1.0, 2.0, 3.0);
    Body body(entity, Frame);
    body.ComputeAerodynamicSurfaces(space);
    ASSERT_FALSE(body.aerodynamicSamples.empty());

    body.InteractWithEnvironment(space, Frame);
    EXPECT_EQ(body.linearVelocity, glm::dvec3(1.0, 0.0, -5.0));
    EXPECT_EQ(body.angularVelocity, glm::dvec3(0.1, 0.0, 0.3));
    EXPECT_EQ(body.pendingAcceleration, glm::dvec3(0.0));
    EXPECT_FALSE(body.keepOnParent);
}

TEST(EnvironmentGravity, BodiesWithoutGravityOrWithoutMediumKeepTheirVelocities)
{
    struct Case {
        char const* name;
        EnvironmentFunction environment;
        glm::dvec3 gravity;
    };
    std::vector<Case> cases = {
        {"no gravity", Uniform(glm::dvec3(0.0), 1.2, 0.0005), glm::dvec3(0.0)},
        {"no medium", Uniform(glm::dvec3(0.0, -3.0, -G), 0.0, 0.0), glm::dvec3(0.0, -3.0, -G)},
    };
    for (Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<ServerSideEntity::Ptr> group = {Plate(50.0), Cube(20.0), Pontoon(800.0)};
        std::vector<Body> bodies;
        for (size_t i = 0; i < group.size(); ++i) {
            group[i]->linearVelocity = glm::dvec3(3.0 * i, -2.0, 10.0);
            group[i]->angularVelocity = glm::dvec3(0.0, 0.2, 0.5 * i);
            bodies.emplace_back(group[i], Frame);
        }
        for (Body& body : bodies) {
            glm::dvec3 const v = body.linearVelocity;
            glm::dvec3 const w = body.angularVelocity;
            body.ComputeAerodynamicSurfaces(c.environment);
            for (int step = 0; step < Substeps; ++step)
                body.InteractWithEnvironment(c.environment, Frame / Substeps);
            EXPECT_EQ(body.linearVelocity, v);
            EXPECT_EQ(body.angularVelocity, w);
            EXPECT_EQ(body.pendingAcceleration, c.gravity);
            EXPECT_FALSE(body.keepOnParent);
        }
    }
}

// ---------------------------------------------------------------------------
// Aerodynamic surfaces: which colliders give samples, and which are hidden.

TEST(AerodynamicSurfaces, APlateFallingFlatGivesOneFullLiftSampleAtItsCentre)
{
    EnvironmentFunction air = Air();
    ServerSideEntity::Ptr entity = Plate(100.0);
    entity->linearVelocity = glm::dvec3(0.0, 0.0, -3.0);
    Body body(entity, Frame);
    body.ComputeAerodynamicSurfaces(air);
    ASSERT_EQ(body.aerodynamicSamples.size(), 1u);
    EXPECT_EQ(body.aerodynamicSurfaces.size(), 1u);
    game::physics::AerodynamicSample const& sample = body.aerodynamicSamples[0];
    EXPECT_EQ(sample.point, glm::dvec3(0.0));
    EXPECT_NEAR(std::abs(sample.normal.z), 1.0, 1e-12);
    EXPECT_DOUBLE_EQ(sample.factors.x, 16.0);
    EXPECT_NEAR(sample.factors.y, 1.0, 1e-12);
    EXPECT_DOUBLE_EQ(sample.factors.z, 0.01);
}

TEST(AerodynamicSurfaces, SmallOrRestingBodiesGiveNoSamples)
{
    EnvironmentFunction air = Air();
    ServerSideEntity::Ptr cube = Cube(10.0);
    cube->linearVelocity = glm::dvec3(20.0, 0.0, 0.0);
    Body moving(cube, Frame);
    moving.ComputeAerodynamicSurfaces(air);
    EXPECT_TRUE(moving.aerodynamicSamples.empty());

    ServerSideEntity::Ptr plate = Plate(10.0);
    Body resting(plate, Frame);
    resting.ComputeAerodynamicSurfaces(air);
    EXPECT_TRUE(resting.aerodynamicSamples.empty());
    EXPECT_TRUE(resting.aerodynamicSurfaces.empty());
}

TEST(AerodynamicSurfaces, StackedSlabsHideTheFacesThatLookIntoEachOther)
{
    EnvironmentFunction air = Air();
    game::physics::SeedPhysicsRandom(7);

    // Rising: only the top face of the top slab meets the air.
    ServerSideEntity::Ptr rising = Pontoon(1000.0);
    rising->linearVelocity = glm::dvec3(0.0, 0.0, 4.0);
    Body up(rising, Frame);
    up.ComputeAerodynamicSurfaces(air);
    ASSERT_EQ(up.aerodynamicSamples.size(), 1u);
    EXPECT_DOUBLE_EQ(up.aerodynamicSamples[0].point.z, 0.5);
    EXPECT_NEAR(up.aerodynamicSamples[0].factors.y, 1.0, 1e-12);

    // Sideways every slab meets the air edge on: four samples without lift.
    ServerSideEntity::Ptr sliding = Pontoon(1000.0);
    sliding->linearVelocity = glm::dvec3(4.0, 0.0, 0.0);
    Body side(sliding, Frame);
    side.ComputeAerodynamicSurfaces(air);
    ASSERT_EQ(side.aerodynamicSamples.size(), 4u);
    for (game::physics::AerodynamicSample const& sample : side.aerodynamicSamples)
        EXPECT_NEAR(sample.factors.y, 0.0, 1e-12);
}

// ---------------------------------------------------------------------------
// Drag and lift on the samples.

TEST(AerodynamicDrag, ADragImpulseNeverReversesTheSpeedInOneSubstep)
{
    // A 3 m cube in a medium a thousand times denser than water: the drag would
    // stop it many times over; gravity is tiny but not zero.
    EnvironmentFunction mud = Uniform(glm::dvec3(0.0, 0.0, -1e-6), 1e6, 0.0);
    for (double dt : {0.1, 1.0}) {
        SCOPED_TRACE(dt);
        ServerSideEntity::Ptr entity = MakeEntity(10.0, {{{-1.5f, -1.5f, -1.5f}, {1.5f, 1.5f, 1.5f}}});
        entity->linearVelocity = glm::dvec3(50.0, 0.0, 0.0);
        Body body(entity, dt);
        body.ComputeAerodynamicSurfaces(mud);
        ASSERT_EQ(body.aerodynamicSamples.size(), 1u);
        EXPECT_DOUBLE_EQ(body.aerodynamicSamples[0].factors.z, 0.4);

        body.InteractWithEnvironment(mud, dt);
        // The force is limited to speed * mass: the impulse takes dt of the speed.
        EXPECT_NEAR(body.linearVelocity.x, 50.0 * (1.0 - dt), 1e-9);
        EXPECT_GE(body.linearVelocity.x, 0.0);
    }
}

TEST(AerodynamicDrag, APlateFallingFlatInAirReachesTheTerminalSpeedOfTheDragFormula)
{
    EnvironmentFunction air = Air();
    game::physics::SeedPhysicsRandom(11);
    double const mass = 1000.0;
    ServerSideEntity::Ptr entity = Plate(mass);
    Body body(entity, Frame);
    Fly(body, air, 20 * 60);

    // Falling flat, the lift sample pushes with rho v^2 A (L + D / 2), L = 1, D = 0.01;
    // buoyancy of the plate's 1.6 m^3 of air lightens it.
    double const weight = (mass - 1.2 * 1.6) * G;
    double const terminal = std::sqrt(weight / (1.2 * 16.0 * (1.0 + 0.5 * 0.01)));
    EXPECT_NEAR(-body.linearVelocity.z, terminal, 0.1 * terminal);
    EXPECT_NEAR(-body.linearVelocity.z, terminal, 0.01 * terminal); // in fact much closer
    EXPECT_NEAR(body.linearVelocity.x, 0.0, 1e-9);
    EXPECT_NEAR(body.linearVelocity.y, 0.0, 1e-9);
    EXPECT_LT(glm::length(body.angularVelocity), 1e-9);
}

// ---------------------------------------------------------------------------
// Buoyancy: one random point per collider and substep samples the medium.

/// Mean height of a 400 kg/m^3 pontoon's centre over the last 10 of 30 s in the sea.
double FloatingHeight(uint64_t seed, int seconds, int averagedSeconds)
{
    EnvironmentFunction sea = Sea();
    game::physics::SeedPhysicsRandom(seed);
    ServerSideEntity::Ptr entity = Pontoon(400.0 * 16.0);
    entity->position = glm::dvec3(0.0, 0.0, 0.5); // bottom on the water
    Body body(entity, Frame);
    Fly(body, sea, (seconds - averagedSeconds) * 60);
    double sum = 0.0;
    int const frames = averagedSeconds * 60;
    for (int frame = 0; frame < frames; ++frame) {
        Fly(body, sea, 1);
        sum += body.position.z;
    }
    return sum / frames;
}

TEST(Buoyancy, ALighterBodyFloatsAtItsDraughtInWater)
{
    // Archimedes with the air above: 1000 d + 1.2 (1 - d) = 400 for a 1 m thick body.
    double const draught = (400.0 - 1.2) / (1000.0 - 1.2);
    double const height = FloatingHeight(2024, 30, 10);
    double const measured = 0.5 - height; // the bottom lies 0.5 m below the centre
    EXPECT_NEAR(measured, draught, 0.1 * draught);
}

TEST(Buoyancy, TheSameSeedGivesTheSameMotion)
{
    double const first = FloatingHeight(99, 2, 1);
    double const again = FloatingHeight(99, 2, 1);
    double const other = FloatingHeight(100, 2, 1);
    EXPECT_EQ(first, again);
    EXPECT_NE(first, other);
}

TEST(Buoyancy, ThePushOfTheMediumIsNoContactAndKeepsABodyResting)
{
    // Buoyancy and drag change the velocities but leave the count of resting substeps.
    EnvironmentFunction water = Uniform(glm::dvec3(0.0, 0.0, -G), 1000.0, 0.001);
    ServerSideEntity::Ptr entity = Plate(100.0);
    entity->linearVelocity = glm::dvec3(0.0, 0.0, -1.0);
    Body body(entity, Frame);
    body.ComputeAerodynamicSurfaces(water);
    ASSERT_FALSE(body.aerodynamicSamples.empty());
    body.contactRest = 3.0;
    body.InteractWithEnvironment(water, Frame);
    EXPECT_GT(body.linearVelocity.z, -1.0);
    EXPECT_EQ(body.contactRest, 3.0);
}

// ---------------------------------------------------------------------------
// Liquid damping: only a mean viscosity strictly inside the liquid window damps.

TEST(LiquidDamping, AirAndTheEdgesOfTheWindowGiveNoDamping)
{
    // A cube centred on its centre of mass feels buoyancy only along z.
    for (double viscosity : {1.5e-5, 0.000999, 0.001}) {
        SCOPED_TRACE(viscosity);
        EnvironmentFunction medium = Uniform(glm::dvec3(0.0, 0.0, -G), 1.2, viscosity);
        ServerSideEntity::Ptr entity = Cube(100.0);
        entity->linearVelocity = glm::dvec3(3.0, -1.0, 0.0);
        entity->angularVelocity = glm::dvec3(0.0, 0.0, 2.0);
        Body body(entity, Frame);
        body.InteractWithEnvironment(medium, 0.1);
        EXPECT_EQ(body.linearVelocity.x, 3.0);
        EXPECT_EQ(body.linearVelocity.y, -1.0);
        EXPECT_EQ(body.angularVelocity, glm::dvec3(0.0, 0.0, 2.0));
        EXPECT_FALSE(body.keepOnParent);
    }
}

TEST(LiquidDamping, AViscosityInsideTheWindowSlowsTheBodyAndKeepsItOnItsParent)
{
    EnvironmentFunction medium = Uniform(glm::dvec3(0.0, 0.0, -G), 1000.0, 0.0005);
    ServerSideEntity::Ptr entity = Cube(100.0);
    entity->linearVelocity = glm::dvec3(3.0, 0.0, 0.0);
    entity->angularVelocity = glm::dvec3(0.0, 0.0, 2.0);
    Body body(entity, Frame);
    body.InteractWithEnvironment(medium, 0.1);
    EXPECT_LT(body.linearVelocity.x, 3.0);
    EXPECT_GT(body.linearVelocity.x, 2.5);
    EXPECT_LT(body.angularVelocity.z, 2.0);
    EXPECT_GT(body.angularVelocity.z, 0.0);
    EXPECT_TRUE(body.keepOnParent);
}

// ---------------------------------------------------------------------------
// Terrain contacts and the parent frame.

TEST(TerrainContact, ABodyInTheGroundIsPushedOutAlongTheSurfaceNormal)
{
    // Flat ground at z = 0 answering how deep a point lies under it.
    EnvironmentFunction ground = [](glm::dvec3 const& position, game::EnvironmentInfoFlags flags, double) {
        EnvironmentInfo info;
        info.gravity = glm::dvec3(0.0, 0.0, -G);
        info.altitude = position.z;
        info.surfaceNormal = glm::dvec3(0.0, 0.0, 1.0);
        if (flags & game::EnvironmentTerrain)
            info.terrain.depth = std::max(0.0, -position.z);
        info.density = 1.2;
        info.viscosity = 1.5e-5;
        return info;
    };
    ServerSideEntity::Ptr entity = Cube(100.0);
    entity->position = glm::dvec3(0.0, 0.0, 0.4); // 0.1 m into the ground
    entity->linearVelocity = glm::dvec3(0.0, 0.0, -1.0);
    Body body(entity, Frame);
    body.InteractWithEnvironment(ground, Frame);
    EXPECT_NEAR(body.position.z, 0.5, 1e-9);
    EXPECT_GE(body.linearVelocity.z, -1e-9);
    EXPECT_TRUE(body.keepOnParent);
    EXPECT_LE(body.restingLimit, 0.1);
}

TEST(ParentFrame, QueriesGoThroughTheParentTransformAndGravityComesBack)
{
    // The parent frame lies 100 m down in the sea, turned 90 degrees about x:
    // its +y is the world's +z.
    EnvironmentFunction sea = Sea();
    glm::dmat4 const parent = glm::rotate(glm::translate(glm::dmat4(1.0), glm::dvec3(0.0, 0.0, -100.0)),
                                          glm::radians(90.0), glm::dvec3(1.0, 0.0, 0.0));
    ServerSideEntity::Ptr entity = Cube(100.0); // 1 m^3 of 100 kg at the parent's origin
    Body body(entity, Frame);
    body.InteractWithEnvironmentFromParent(parent, sea, Frame);
    EXPECT_NEAR(body.pendingAcceleration.x, 0.0, 1e-12);
    EXPECT_NEAR(body.pendingAcceleration.y, -G, 1e-12);
    EXPECT_NEAR(body.pendingAcceleration.z, 0.0, 1e-12);
    // Under water the whole cube lifts along the parent's +y: g * 1000 kg / 100 kg * dt.
    EXPECT_NEAR(body.linearVelocity.y, G * 10.0 * Frame, 1e-9);
    EXPECT_NEAR(body.linearVelocity.x, 0.0, 1e-12);
    EXPECT_NEAR(body.linearVelocity.z, 0.0, 1e-12);
}

} // namespace
