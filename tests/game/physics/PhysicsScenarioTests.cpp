// Whole physics steps on small worlds, judged by their physical outcome.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

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

// Resting bodies drop out of the step; whatever happens to them, every body
// must end exactly where it ends when the step walks them all. The sleeping
// run gives its step two threads, which must change nothing either.
TEST_F(PhysicsScenario, SleepingBodiesAndThreadsChangeNoOutcome) {
    struct Outcome {
        std::vector<double> values; ///< Place, motion and rest of every entity, in id order.
        size_t mostAsleep = 0;
    };
    auto run = [this](bool sleep) {
        ServerSideEntity::restingBodiesSleep = sleep;
        ServerSideEntity::physicsThreads = sleep ? 2 : 1;
        game::physics::SeedPhysicsRandom(1234);
        uint64_t serial = 0;
        auto id = [&serial] { return game::entity::Id(0x54544E45ull, 0x0200000000000000ull + ++serial); };
        std::vector<ServerSideEntity::Ptr> crates;
        for (int x = 0; x < 5; ++x) {
            for (int z = 0; z < 5; ++z) {
                crates.push_back(world.AddBox({.mass = 20.0, .position = {x * 1.5, 0.5, z * 1.5}, .id = id()}));
                crates.back()->restTime = 2.0; // at rest since before a load
            }
        }
        // Crates of 20 kg: a crate of 1 kg would float in the air.
        // Dropped onto the edges of resting crates: they tumble off them.
        for (int i = 0; i < 4; ++i)
            world.AddBox({.mass = 20.0, .position = {0.6 + i * 1.5, 2.5 + i, 0.7 + 0.2 * i}, .id = id()});
        // This one does not meet the crate under it and falls through to the ground.
        ServerSideEntity::Ptr ghost = world.AddBox({.mass = 20.0, .position = {3.0, 2.5, 3.0}, .id = id()});
        ghost->collisionExclusions.insert(crates[12]->id);
        // A plank across a resting crate and a block that rests only after a
        // second (until then walked): it lands on both in one substep.
        world.AddBox({.mass = 20.0, .position = {7.5, 0.5, 0.0}, .dynamic = false, .id = id()});
        world.AddBox({.size = {2.5, 0.5, 1.0}, .mass = 20.0, .position = {6.75, 2.0, 0.0}, .id = id()});
        auto platform = world.AddBox(
            {.size = {6.0, 1.0, 6.0}, .mass = 1000.0, .position = {20.0, 0.5, 0.0}, .dynamic = false, .id = id()});
        Outcome outcome;
        ServerSideEntity::Ptr rider;
        for (int step = 0; step < 240; ++step) {
            if (step == 80)
                rider = world.AddBox({.mass = 20.0, .position = {20.5, 3.0, 0.0}, .id = id()}); // for the platform
            if (step == 150) { // the rider is pushed along its sleeping platform
                rider->restTime = 0.0;
                rider->linearVelocity = V(1.0, 0.0, 0.5);
            }
            if (step == 100) { // a module wakes a crate and throws it
                crates[6]->restTime = 0.0;
                crates[6]->linearVelocity = V(0.0, 3.0, 2.0);
            }
            if (step == 110) crates[18]->position.y += 2.0; // taken up: it falls again
            if (step == 120) {                              // one goes, another comes
                game::entity::Id const gone = crates[24]->id;
                crates[24].reset();
                ServerSideEntity::Destroy(gone);
                world.AddBox({.mass = 20.0, .position = {6.0, 4.0, 6.0}, .id = id()});
            }
            world.Simulate(1);
            outcome.mostAsleep = std::max(outcome.mostAsleep, ServerSideEntity::SleepingBodyCount());
        }
        EXPECT_EQ(rider->parentEntity, platform->id);
        EXPECT_GT(glm::distance(crates[6]->position, V(1.5, 0.5, 1.5)), 0.2) << "the woken crate stayed";
        // Moved, a resting body stays static where it was put, as when walked.
        EXPECT_EQ(crates[18]->position, V(4.5, 2.5, 4.5));
        EXPECT_LT(ghost->position.y, 0.6) << "the ghost stood on the crate it does not meet";
        std::vector<ServerSideEntity::Ptr> all;
        ServerSideEntity::ForEach([&all](ServerSideEntity::Ptr entity) { all.push_back(entity); });
        std::sort(all.begin(), all.end(), [](auto const& a, auto const& b) { return a->id.second < b->id.second; });
        for (ServerSideEntity::Ptr const& entity : all) {
            glm::dvec3 const parent(entity->parentEntity == platform->id ? 1.0 : 0.0);
            for (glm::dvec3 const& v : {entity->position, entity->linearVelocity, entity->angularVelocity, parent})
                outcome.values.insert(outcome.values.end(), {v.x, v.y, v.z});
            outcome.values.insert(outcome.values.end(),
                                  {entity->orientation.w, entity->orientation.x, entity->orientation.y,
                                   entity->orientation.z, entity->restTime});
        }
        ServerSideEntity::DestroyAll();
        ServerSideEntity::restingBodiesSleep = true;
        ServerSideEntity::physicsThreads = 1;
        return outcome;
    };
    Outcome const walked = run(false), sleeping = run(true);
    EXPECT_EQ(walked.mostAsleep, 0u);
    EXPECT_GE(sleeping.mostAsleep, 20u);
    ASSERT_EQ(walked.values.size(), sleeping.values.size());
    for (size_t i = 0; i < walked.values.size(); ++i)
        ASSERT_EQ(walked.values[i], sleeping.values[i]) << "value " << i << " of the outcome";
}

/// FNV-1a over the bit patterns of every crate's place and motion.
uint64_t HashOfState(std::vector<ServerSideEntity::Ptr> const& crates) {
    uint64_t hash = 0xcbf29ce484222325ull;
    auto add = [&hash](double value) {
        uint64_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        for (int i = 0; i < 8; ++i) hash = (hash ^ ((bits >> (8 * i)) & 0xffu)) * 0x100000001b3ull;
    };
    for (ServerSideEntity::Ptr const& crate : crates) {
        for (glm::dvec3 const& v : {crate->position, crate->linearVelocity, crate->angularVelocity})
            for (int i = 0; i < 3; ++i) add(v[i]);
        for (int i = 0; i < 4; ++i) add(crate->orientation[i]);
    }
    return hash;
}

// A pile of 200 crates turned every way, dropped onto flat ground without air:
// the step's outcome is pinned bit for bit, so that a faster contact search or
// a change of how the work is split shows at once if it changes the physics.
class PhysicsPile : public ::testing::TestWithParam<size_t> { };

TEST_P(PhysicsPile, EndStateIsPinnedAndSound) {
    testsupport::PhysicsWorld world;
    ServerSideEntity::physicsThreads = GetParam();
    game::physics::SeedPhysicsRandom(1234);
    std::mt19937_64 random(1000);
    std::vector<ServerSideEntity::Ptr> crates;
    for (int i = 0; i < 200; ++i) {
        // Ids fixed: the registry's order, and so the contact order, follows them.
        testsupport::BoxSpec box{.id = game::entity::Id(0x54544E45ull, 0x0300000000000000ull + i)};
        testsupport::PileCrate(i, random, box.position, box.orientation);
        crates.push_back(world.AddBox(box));
    }
    world.Simulate(300);
    for (ServerSideEntity::Ptr const& crate : crates) {
        EXPECT_TRUE(std::isfinite(crate->position.y) && crate->position.y > 0.45) << crate->position.y;
    }
    ServerSideEntity::physicsThreads = 1;
    EXPECT_EQ(HashOfState(crates), 0x6653c61ea62ad187ull);
}

INSTANTIATE_TEST_SUITE_P(Threads, PhysicsPile, ::testing::Values(size_t{1}, size_t{2}));

// The same pile dropped through the planet's air from higher up: buoyancy
// draws its random numbers while the crates fall, on the thread that follows
// the contacts when there are two.
TEST(PhysicsPileInAir, EndsTheSameOnOneThreadAndOnTwo) {
    testsupport::PhysicsWorld world{901, planet::Environment};
    auto run = [&world](size_t threads) {
        ServerSideEntity::physicsThreads = threads;
        game::physics::SeedPhysicsRandom(1234);
        std::mt19937_64 random(1000);
        std::vector<ServerSideEntity::Ptr> crates;
        for (int i = 0; i < 200; ++i) {
            testsupport::BoxSpec box{.mass = 20.0, .id = game::entity::Id(0x54544E45ull, 0x0400000000000000ull + i)};
            testsupport::PileCrate(i, random, box.position, box.orientation);
            box.position.y += 4.0;
            crates.push_back(world.AddBox(box));
        }
        world.Simulate(120);
        uint64_t const hash = HashOfState(crates);
        ServerSideEntity::DestroyAll();
        ServerSideEntity::physicsThreads = 1;
        return hash;
    };
    EXPECT_EQ(run(1), run(2));
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
