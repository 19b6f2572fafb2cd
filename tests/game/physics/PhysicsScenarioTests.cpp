// Whole physics steps on small worlds, judged by their physical outcome.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "game/Game.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "game/physics/EnvironmentInfo.hpp"
#include "game/physics/PhysicsRandom.hpp"
#include "modules/planet/PlanetEnvironment.hpp"

namespace {

using game::entity::ServerSideEntity;

constexpr game::entity::EnvironmentId Ground = 901;
constexpr game::entity::EnvironmentId Space = 902;
constexpr double Step = 1.0 / 60.0;
constexpr int Substeps = 4;

class PhysicsScenario : public ::testing::Test {
protected:
    void SetUp() override
    {
        game::physics::SeedPhysicsRandom(1234);
        // The sample planet: flat ground at y = 0 around the origin, air above it.
        Game::_environmentFunctions[Ground] = planet::Environment;
        Game::_environmentFunctions[Space] = [](glm::dvec3 const&, game::EnvironmentInfoFlags, double) {
            return game::physics::EnvironmentInfo();
        };
    }

    void TearDown() override
    {
        ServerSideEntity::DestroyAll();
        Game::_environmentFunctions.erase(Ground);
        Game::_environmentFunctions.erase(Space);
    }

    static ServerSideEntity::Ptr Body(game::entity::EnvironmentId environment, glm::dvec3 const& position,
                                      glm::vec3 const& half, double mass, bool dynamic)
    {
        ServerSideEntity::Ptr entity =
            game::entity::Create<ServerSideEntity>(nerox::modular::ModuleID(), "body", game::entity::Id());
        entity->colliders["box"] = game::entity::ConvexMeshCollider::Box(-half, half);
        entity->UpdateBoundingBox(true);
        entity->mass = mass;
        entity->position = position;
        entity->isDynamic = dynamic;
        entity->physicsEnabled = true;
        entity->environmentId = environment;
        entity->deleteFilesOnDestroy = false;
        return entity;
    }

    /// A static slab on the ground, its top at y = 1.
    static ServerSideEntity::Ptr Platform()
    {
        return Body(Ground, glm::dvec3(0.0, 0.5, 0.0), glm::vec3(5.0f, 0.5f, 5.0f), 1000.0, false);
    }

    /// Where the entity is in its environment, through its parents.
    static glm::dvec3 World(ServerSideEntity::Ptr const& entity)
    {
        glm::dvec4 point(entity->position, 1.0);
        for (ServerSideEntity::Ptr parent = ServerSideEntity::Get(entity->parentEntity); parent;
             parent = ServerSideEntity::Get(parent->parentEntity))
            point = parent->GetTransform() * point;
        return glm::dvec3(point);
    }

    static void Run(double seconds) {
        for (int i = 0; i < static_cast<int>(std::lround(seconds / Step)); ++i)
            ServerSideEntity::PhysicsUpdate(Step, Substeps);
    }
};

TEST_F(PhysicsScenario, CrateDroppedTwoMetresLandsWithoutBounceAndFallsAsleep)
{
    ServerSideEntity::Ptr crate = Body(Ground, glm::dvec3(0.0, 2.5, 0.0), glm::vec3(0.5f), 50.0, true);

    bool landed = false;
    double deepest = 0.0;
    double highestAfterLanding = 0.0;
    double asleepAt = -1.0;
    for (int i = 0; i < 180; ++i) {
        ServerSideEntity::PhysicsUpdate(Step, Substeps);
        double const bottom = World(crate).y - 0.5;
        deepest = std::min(deepest, bottom);
        if (!landed && bottom < 0.02)
            landed = true;
        else if (landed)
            highestAfterLanding = std::max(highestAfterLanding, bottom);
        if (asleepAt < 0.0 && crate->restTime >= 1.0)
            asleepAt = (i + 1) * Step;
    }
    EXPECT_TRUE(landed);
    EXPECT_GT(deepest, -0.01) << "penetrated the ground";
    EXPECT_LT(highestAfterLanding, 0.02) << "bounced";
    EXPECT_GE(asleepAt, 0.0) << "never came to rest within 3 s";
    EXPECT_NEAR(World(crate).x, 0.0, 0.01);
    EXPECT_NEAR(World(crate).z, 0.0, 0.01);
}

TEST_F(PhysicsScenario, StackOfThreeCratesStandsForTenSeconds)
{
    ServerSideEntity::Ptr crates[3];
    for (int level = 0; level < 3; ++level)
        crates[level] = Body(Ground, glm::dvec3(0.0, 0.5 + level * 1.0, 0.0), glm::vec3(0.5f), 20.0, true);
    Run(10.0);
    for (int level = 0; level < 3; ++level) {
        glm::dvec3 const place = World(crates[level]);
        EXPECT_NEAR(place.y, 0.5 + level * 1.0, 0.05) << "crate " << level;
        EXPECT_NEAR(place.x, 0.0, 0.1) << "crate " << level;
        EXPECT_NEAR(place.z, 0.0, 0.1) << "crate " << level;
    }
}

TEST_F(PhysicsScenario, CrateLandingOnAStaticBodyRidesOnIt)
{
    ServerSideEntity::Ptr platform = Platform();
    ServerSideEntity::Ptr crate = Body(Ground, glm::dvec3(1.0, 3.5, 0.0), glm::vec3(0.5f), 50.0, true);
    Run(3.0);
    // The larger static body took it in: it now lies in the platform's frame, on top.
    EXPECT_EQ(crate->parentEntity, platform->id);
    glm::dvec3 const place = World(crate);
    EXPECT_NEAR(place.y, 1.5, 0.01);
    EXPECT_NEAR(place.x, 1.0, 0.01);
    EXPECT_GE(crate->restTime, 1.0);
}

TEST_F(PhysicsScenario, BodiesMeetingHeadOnLoseTheirNormalRelativeSpeed)
{
    ServerSideEntity::Ptr left = Body(Space, glm::dvec3(-1.5, 0.0, 0.0), glm::vec3(0.5f), 10.0, true);
    ServerSideEntity::Ptr right = Body(Space, glm::dvec3(1.5, 0.0, 0.0), glm::vec3(0.5f), 10.0, true);
    left->linearVelocity = glm::dvec3(2.0, 0.0, 0.0);
    right->linearVelocity = glm::dvec3(-2.0, 0.0, 0.0);
    Run(1.5);
    EXPECT_NEAR(left->linearVelocity.x - right->linearVelocity.x, 0.0, 1e-3);
    EXPECT_NEAR(left->linearVelocity.x + right->linearVelocity.x, 0.0, 1e-6) << "momentum";
    EXPECT_LE(right->position.x - left->position.x, 1.0 + 1e-3);
}

TEST_F(PhysicsScenario, FreeFallFeelsFullGravityWhateverTheSubsteps)
{
    // Gravity without ground or air: every substep, the first included, must
    // accelerate the body, so that a second of fall ends at g and g/2 metres.
    constexpr game::entity::EnvironmentId Vacuum = 903;
    Game::_environmentFunctions[Vacuum] = [](glm::dvec3 const& position, game::EnvironmentInfoFlags, double) {
        game::physics::EnvironmentInfo info;
        info.gravity = glm::dvec3(0.0, -9.81, 0.0);
        info.altitude = position.y + 1.0e6;
        info.surfaceNormal = glm::dvec3(0.0, 1.0, 0.0);
        return info;
    };
    for (int substeps : {1, 4}) {
        ServerSideEntity::Ptr crate = Body(Vacuum, glm::dvec3(0.0, 100.0, 0.0), glm::vec3(0.5f), 10.0, true);
        for (int i = 0; i < 60; ++i)
            ServerSideEntity::PhysicsUpdate(Step, substeps);
        EXPECT_NEAR(crate->linearVelocity.y, -9.81, 1e-9) << substeps << " substeps";
        EXPECT_NEAR(crate->position.y, 100.0 - 0.5 * 9.81, 1e-9) << substeps << " substeps";
        ServerSideEntity::DestroyAll();
    }
    Game::_environmentFunctions.erase(Vacuum);
}

TEST_F(PhysicsScenario, StepFollowsEntitiesCreatedAndDestroyedBetweenSteps)
{
    // The step keeps its list of the registry between steps: a swap of one
    // entity for another (same count) must still be seen.
    ServerSideEntity::Ptr first = Body(Ground, glm::dvec3(0.0, 10.0, 0.0), glm::vec3(0.5f), 10.0, true);
    ServerSideEntity::Ptr other = Body(Ground, glm::dvec3(5.0, 10.0, 0.0), glm::vec3(0.5f), 10.0, true);
    Run(0.1);
    EXPECT_LT(first->position.y, 10.0);
    ASSERT_TRUE(ServerSideEntity::Destroy(first->id));
    glm::dvec3 const left = first->position;
    ServerSideEntity::Ptr second = Body(Ground, glm::dvec3(-5.0, 10.0, 0.0), glm::vec3(0.5f), 10.0, true);
    Run(0.1);
    EXPECT_EQ(first->position, left) << "a destroyed entity moved";
    EXPECT_LT(second->position.y, 10.0) << "a new entity stood still";
    ServerSideEntity::DestroyAll();
    glm::dvec3 const dropped = second->position;
    ServerSideEntity::Ptr third = Body(Ground, glm::dvec3(0.0, 10.0, 0.0), glm::vec3(0.5f), 10.0, true);
    Run(0.1);
    EXPECT_LT(third->position.y, 10.0);
    EXPECT_EQ(second->position, dropped) << "an entity moved after DestroyAll";
}

TEST_F(PhysicsScenario, StepWithoutSubstepsMovesNothingInAnEnvironment)
{
    ServerSideEntity::Ptr crate = Body(Ground, glm::dvec3(0.0, 5.0, 0.0), glm::vec3(0.5f), 1.0, true);
    ServerSideEntity::PhysicsUpdate(Step, 0);
    EXPECT_EQ(crate->position, glm::dvec3(0.0, 5.0, 0.0));
}

TEST_F(PhysicsScenario, BodyWithoutEnvironmentOrOrbitGetsNoRecord)
{
    ServerSideEntity::Ptr drifting = Body(0, glm::dvec3(0.0), glm::vec3(0.5f), 1.0, true);
    drifting->linearVelocity = glm::dvec3(1.0, 0.0, 0.0);
    Run(0.5);
    EXPECT_EQ(drifting->position, glm::dvec3(0.0));
}

TEST_F(PhysicsScenario, DebugShapesReachTheStagingBuffersOnlyWhenAskedFor)
{
    Platform();
    Body(Ground, glm::dvec3(0.0, 3.0, 0.0), glm::vec3(0.5f), 1.0, true);
    Game::physicsDebugColliders_staging.clear();
    Game::physicsDebugCollidersUpdated.exchange(false);

    Game::debugServerSidePhysics = false;
    ServerSideEntity::PhysicsUpdate(Step, 1);
    EXPECT_TRUE(Game::physicsDebugColliders_staging.empty());
    EXPECT_FALSE(Game::physicsDebugCollidersUpdated.load());

    Game::debugServerSidePhysics = true;
    ServerSideEntity::PhysicsUpdate(Step, 1);
    Game::debugServerSidePhysics = false;
    EXPECT_TRUE(Game::physicsDebugCollidersUpdated.exchange(false));
    ASSERT_EQ(Game::physicsDebugColliders_staging.size(), 2u); // the platform's box, then the falling one
    EXPECT_FALSE(Game::physicsDebugColliders_staging[0].dynamic);
    EXPECT_TRUE(Game::physicsDebugColliders_staging[1].dynamic);
    // World placement: the platform's box is centred 0.5 m up.
    EXPECT_NEAR(Game::physicsDebugColliders_staging[0].collider.transform[3].y, 0.5, 1e-9);
    Game::physicsDebugColliders_staging.clear();
    Game::physicsDebugLines_staging.clear();
}

TEST_F(PhysicsScenario, UnknownEnvironmentIdThrows)
{
    Body(12345, glm::dvec3(0.0), glm::vec3(0.5f), 1.0, true);
    EXPECT_THROW(ServerSideEntity::PhysicsUpdate(Step, 1), std::out_of_range);
}

} // namespace
