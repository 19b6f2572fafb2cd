// Whole physics steps on small worlds, judged by their physical outcome.
#include <gtest/gtest.h>

#include <algorithm>

#include "game/Game.hpp"
#include "game/physics/PhysicsRandom.hpp"
#include "modules/planet/PlanetEnvironment.hpp"
#include "tests/support/GlmChecks.hpp"
#include "tests/support/PhysicsWorld.hpp"

namespace {

using game::entity::ServerSideEntity;
using V = glm::dvec3;

class PhysicsScenario : public ::testing::Test {
protected:
    void SetUp() override { game::physics::SeedPhysicsRandom(1234); }
    testsupport::PhysicsWorld world{901, planet::Environment}; // flat ground at y = 0 around the origin, air above

    /// Where the entity is in its environment, through its parents.
    static V World(ServerSideEntity::Ptr const& entity) {
        glm::dvec4 point(entity->position, 1.0);
        for (auto parent = ServerSideEntity::Get(entity->parentEntity); parent;
             parent = ServerSideEntity::Get(parent->parentEntity))
            point = parent->GetTransform() * point;
        return V(point);
    }
};

TEST_F(PhysicsScenario, DroppedCrateLandsWithoutBounceAndSleepsAStackStandsAndAStaticBodyTakesItsRider) {
    ServerSideEntity::Ptr crate = world.AddBox({.mass = 50.0, .position = {-20.0, 2.5, 0.0}}), stack[3];
    for (int level = 0; level < 3; ++level)
        stack[level] = world.AddBox({.mass = 20.0, .position = {0.0, 0.5 + level, 0.0}});
    auto platform =
        world.AddBox({.size = {10.0, 1.0, 10.0}, .mass = 1000.0, .position = {20.0, 0.5, 0.0}, .dynamic = false});
    ServerSideEntity::Ptr rider = world.AddBox({.mass = 50.0, .position = {21.0, 3.5, 0.0}});
    double deepest = 0.0, highestAfterLanding = 0.0;
    bool landed = false;
    for (int i = 0; i < 600; ++i) { // ten seconds
        world.Simulate(1);
        double const bottom = World(crate).y - 0.5;
        deepest = std::min(deepest, bottom);
        highestAfterLanding = landed ? std::max(highestAfterLanding, bottom) : 0.0;
        landed = landed || bottom < 0.02;
    }
    EXPECT_TRUE(landed);
    EXPECT_GT(deepest, -0.01) << "penetrated the ground";
    EXPECT_LT(highestAfterLanding, 0.02) << "bounced";
    EXPECT_GE(crate->restTime, 1.0) << "never came to rest";
    testsupport::ExpectVecNear(World(crate), V(-20.0, 0.5, 0.0), 0.01);
    for (int level = 0; level < 3; ++level)
        testsupport::ExpectVecNear(World(stack[level]), V(0.0, 0.5 + level, 0.0), 0.05);
    EXPECT_EQ(rider->parentEntity, platform->id); // the larger static body took it in, on top
    testsupport::ExpectVecNear(World(rider), V(21.0, 1.5, 0.0), 0.01);
    EXPECT_GE(rider->restTime, 1.0);
}

TEST_F(PhysicsScenario, StepFollowsEntitiesCreatedAndDestroyedBetweenSteps) {
    // The step keeps its list of the registry between steps: a swap of one entity for another (same count) must be seen.
    ServerSideEntity::Ptr first = world.AddBox({.mass = 10.0, .position = {0.0, 10.0, 0.0}});
    world.AddBox({.mass = 10.0, .position = {5.0, 10.0, 0.0}});
    world.Simulate(6);
    ASSERT_TRUE(ServerSideEntity::Destroy(first->id));
    V const left = first->position;
    ServerSideEntity::Ptr second = world.AddBox({.mass = 10.0, .position = {-5.0, 10.0, 0.0}});
    world.Simulate(6);
    EXPECT_EQ(first->position, left) << "a destroyed entity moved";
    EXPECT_LT(second->position.y, 10.0) << "a new entity stood still";
    ServerSideEntity::DestroyAll();
    V const dropped = second->position;
    ServerSideEntity::Ptr third = world.AddBox({.mass = 10.0, .position = {0.0, 10.0, 0.0}});
    world.Simulate(6);
    EXPECT_LT(third->position.y, 10.0);
    EXPECT_EQ(second->position, dropped) << "an entity moved after DestroyAll";
}

TEST_F(PhysicsScenario, NothingMovesWithoutSubstepsOrWithoutEnvironment) {
    ServerSideEntity::Ptr crate = world.AddBox({.position = {0.0, 5.0, 0.0}});
    world.Simulate(1, 0);
    EXPECT_EQ(crate->position, V(0.0, 5.0, 0.0));
    crate->environmentId = 0; // without environment or orbit a body gets no record
    crate->linearVelocity = V(1.0, 0.0, 0.0);
    world.Simulate(30);
    EXPECT_EQ(crate->position, V(0.0, 5.0, 0.0));
    crate->environmentId = 12345;
    EXPECT_THROW(world.Simulate(1, 1), std::out_of_range);
}

TEST_F(PhysicsScenario, DebugShapesReachTheStagingBuffersOnlyWhenAskedFor) {
    world.AddBox({.size = {10.0, 1.0, 10.0}, .mass = 1000.0, .position = {0.0, 0.5, 0.0}, .dynamic = false});
    world.AddBox({.position = {0.0, 3.0, 0.0}});
    Game::physicsDebugColliders_staging.clear();
    Game::physicsDebugCollidersUpdated.exchange(false);
    world.Simulate(1, 1);
    EXPECT_TRUE(Game::physicsDebugColliders_staging.empty() && !Game::physicsDebugCollidersUpdated.load());
    Game::debugServerSidePhysics = true;
    world.Simulate(1, 1);
    EXPECT_TRUE(Game::physicsDebugCollidersUpdated.exchange(false));
    ASSERT_EQ(Game::physicsDebugColliders_staging.size(), 2u); // the platform's box, then the falling one
    EXPECT_TRUE(!Game::physicsDebugColliders_staging[0].dynamic && Game::physicsDebugColliders_staging[1].dynamic);
    EXPECT_NEAR(Game::physicsDebugColliders_staging[0].collider.transform[3].y, 0.5, 1e-9); // world placement
    Game::physicsDebugColliders_staging.clear();
    Game::physicsDebugLines_staging.clear();
}

} // namespace
