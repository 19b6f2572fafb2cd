// Whole physics steps on small worlds, judged by their physical outcome.
#include <gtest/gtest.h>

#include <algorithm>

#include "game/physics/PhysicsRandom.hpp"
#include "modules/planet/PlanetEnvironment.hpp"
#include "tests/support/PhysicsWorld.hpp"

namespace {

using game::entity::ServerSideEntity;
using testsupport::BoxSpec;

class PhysicsScenario : public ::testing::Test {
protected:
    void SetUp() override { game::physics::SeedPhysicsRandom(1234); }

    /// The sample planet: flat ground at y = 0 around the origin, air above it.
    testsupport::PhysicsWorld world{901, planet::Environment};

    /// Where the entity is in its environment, through its parents.
    static glm::dvec3 World(ServerSideEntity::Ptr const& entity)
    {
        glm::dvec4 point(entity->position, 1.0);
        for (auto parent = ServerSideEntity::Get(entity->parentEntity); parent;
             parent = ServerSideEntity::Get(parent->parentEntity))
            point = parent->GetTransform() * point;
        return glm::dvec3(point);
    }
};

TEST_F(PhysicsScenario, CrateDroppedTwoMetresLandsWithoutBounceAndFallsAsleep)
{
    ServerSideEntity::Ptr crate = world.AddBox({.mass = 50.0, .position = {0.0, 2.5, 0.0}});
    double deepest = 0.0, highestAfterLanding = 0.0;
    bool landed = false;
    for (int i = 0; i < 180; ++i) {
        world.Simulate(1);
        double const bottom = World(crate).y - 0.5;
        deepest = std::min(deepest, bottom);
        if (landed)
            highestAfterLanding = std::max(highestAfterLanding, bottom);
        landed = landed || bottom < 0.02;
    }
    EXPECT_TRUE(landed);
    EXPECT_GT(deepest, -0.01) << "penetrated the ground";
    EXPECT_LT(highestAfterLanding, 0.02) << "bounced";
    EXPECT_GE(crate->restTime, 1.0) << "never came to rest within 3 s";
    EXPECT_NEAR(World(crate).x, 0.0, 0.01);
    EXPECT_NEAR(World(crate).z, 0.0, 0.01);
}

TEST_F(PhysicsScenario, StackOfThreeCratesStandsForTenSeconds)
{
    ServerSideEntity::Ptr crates[3];
    for (int level = 0; level < 3; ++level)
        crates[level] = world.AddBox({.mass = 20.0, .position = {0.0, 0.5 + level, 0.0}});
    world.Simulate(600);
    for (int level = 0; level < 3; ++level) {
        SCOPED_TRACE(level);
        EXPECT_NEAR(World(crates[level]).y, 0.5 + level, 0.05);
        EXPECT_NEAR(World(crates[level]).x, 0.0, 0.1);
        EXPECT_NEAR(World(crates[level]).z, 0.0, 0.1);
    }
}

TEST_F(PhysicsScenario, CrateLandingOnAStaticBodyRidesOnIt)
{
    auto platform = world.AddBox({.size = {10.0, 1.0, 10.0}, .mass = 1000.0, .position = {0.0, 0.5, 0.0}, .dynamic = false});
    ServerSideEntity::Ptr crate = world.AddBox({.mass = 50.0, .position = {1.0, 3.5, 0.0}});
    world.Simulate(180);
    // The larger static body took it in: it now lies in the platform's frame, on top.
    EXPECT_EQ(crate->parentEntity, platform->id);
    EXPECT_NEAR(World(crate).y, 1.5, 0.01);
    EXPECT_NEAR(World(crate).x, 1.0, 0.01);
    EXPECT_GE(crate->restTime, 1.0);
}

TEST_F(PhysicsScenario, BodiesMeetingHeadOnLoseTheirNormalRelativeSpeed)
{
    testsupport::PhysicsWorld space(902, [](glm::dvec3 const&, game::EnvironmentInfoFlags, double) {
        return game::physics::EnvironmentInfo();
    });
    auto left = space.AddBox({.mass = 10.0, .position = {-1.5, 0.0, 0.0}, .velocity = {2.0, 0.0, 0.0}});
    auto right = space.AddBox({.mass = 10.0, .position = {1.5, 0.0, 0.0}, .velocity = {-2.0, 0.0, 0.0}});
    space.Simulate(90);
    EXPECT_NEAR(left->linearVelocity.x - right->linearVelocity.x, 0.0, 1e-3);
    EXPECT_NEAR(left->linearVelocity.x + right->linearVelocity.x, 0.0, 1e-6) << "momentum";
    EXPECT_LE(right->position.x - left->position.x, 1.0 + 1e-3);
}

TEST_F(PhysicsScenario, FreeFallFeelsFullGravityWhateverTheSubsteps)
{
    // Far above the floor, without air: every substep, the first included, must
    // accelerate the body, so that a second of fall ends at g and g/2 metres.
    testsupport::PhysicsWorld vacuum(903);
    for (int substeps : {1, 4}) {
        ServerSideEntity::Ptr crate = vacuum.AddBox({.mass = 10.0, .position = {0.0, 100.0, 0.0}});
        vacuum.Simulate(60, substeps);
        EXPECT_NEAR(crate->linearVelocity.y, -9.81, 1e-9) << substeps << " substeps";
        EXPECT_NEAR(crate->position.y, 100.0 - 0.5 * 9.81, 1e-9) << substeps << " substeps";
        ServerSideEntity::DestroyAll();
    }
}

TEST_F(PhysicsScenario, StepFollowsEntitiesCreatedAndDestroyedBetweenSteps)
{
    // The step keeps its list of the registry between steps: a swap of one
    // entity for another (same count) must still be seen.
    ServerSideEntity::Ptr first = world.AddBox({.mass = 10.0, .position = {0.0, 10.0, 0.0}});
    world.AddBox({.mass = 10.0, .position = {5.0, 10.0, 0.0}});
    world.Simulate(6);
    EXPECT_LT(first->position.y, 10.0);
    ASSERT_TRUE(ServerSideEntity::Destroy(first->id));
    glm::dvec3 const left = first->position;
    ServerSideEntity::Ptr second = world.AddBox({.mass = 10.0, .position = {-5.0, 10.0, 0.0}});
    world.Simulate(6);
    EXPECT_EQ(first->position, left) << "a destroyed entity moved";
    EXPECT_LT(second->position.y, 10.0) << "a new entity stood still";
    ServerSideEntity::DestroyAll();
    glm::dvec3 const dropped = second->position;
    ServerSideEntity::Ptr third = world.AddBox({.mass = 10.0, .position = {0.0, 10.0, 0.0}});
    world.Simulate(6);
    EXPECT_LT(third->position.y, 10.0);
    EXPECT_EQ(second->position, dropped) << "an entity moved after DestroyAll";
}

TEST_F(PhysicsScenario, NothingMovesWithoutSubstepsOrWithoutEnvironment)
{
    ServerSideEntity::Ptr crate = world.AddBox({.position = {0.0, 5.0, 0.0}});
    world.Simulate(1, 0);
    EXPECT_EQ(crate->position, glm::dvec3(0.0, 5.0, 0.0));
    // Without environment or orbit a body gets no record.
    crate->environmentId = 0;
    crate->linearVelocity = glm::dvec3(1.0, 0.0, 0.0);
    world.Simulate(30);
    EXPECT_EQ(crate->position, glm::dvec3(0.0, 5.0, 0.0));
    crate->environmentId = 12345;
    EXPECT_THROW(world.Simulate(1, 1), std::out_of_range);
}

TEST_F(PhysicsScenario, DebugShapesReachTheStagingBuffersOnlyWhenAskedFor)
{
    world.AddBox({.size = {10.0, 1.0, 10.0}, .mass = 1000.0, .position = {0.0, 0.5, 0.0}, .dynamic = false});
    world.AddBox({.position = {0.0, 3.0, 0.0}});
    Game::physicsDebugColliders_staging.clear();
    Game::physicsDebugCollidersUpdated.exchange(false);
    world.Simulate(1, 1);
    EXPECT_TRUE(Game::physicsDebugColliders_staging.empty());
    EXPECT_FALSE(Game::physicsDebugCollidersUpdated.load());

    Game::debugServerSidePhysics = true;
    world.Simulate(1, 1);
    EXPECT_TRUE(Game::physicsDebugCollidersUpdated.exchange(false));
    ASSERT_EQ(Game::physicsDebugColliders_staging.size(), 2u); // the platform's box, then the falling one
    EXPECT_FALSE(Game::physicsDebugColliders_staging[0].dynamic);
    EXPECT_TRUE(Game::physicsDebugColliders_staging[1].dynamic);
    EXPECT_NEAR(Game::physicsDebugColliders_staging[0].collider.transform[3].y, 0.5, 1e-9); // world placement
    Game::physicsDebugColliders_staging.clear();
    Game::physicsDebugLines_staging.clear();
}

} // namespace
