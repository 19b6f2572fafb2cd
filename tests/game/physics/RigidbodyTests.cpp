// Rigid body records: construction, integration, static contacts, the contact search and the write-back.
#include <gtest/gtest.h>

#include <cmath>
#include <tuple>
#include <vector>

#include <glm/gtc/matrix_transform.hpp>

#include "game/Game.hpp"
#include "game/physics/Collision.hpp"
#include "game/physics/Rigidbody.hpp"
#include "tests/support/GlmChecks.hpp"
#include "tests/support/PhysicsWorld.hpp"

using game::entity::ConvexMeshCollider;
using game::entity::ServerSideEntity;
using game::physics::Collision;
using testsupport::ExpectVecNear;
using Body = game::physics::Rigidbody<ServerSideEntity>;
using Dynamic = game::physics::DynamicRigidbody<ServerSideEntity>;
using V = glm::dvec3;

namespace {

constexpr double Step = 1.0 / 60.0;
V const Up(0.0, 0.0, 1.0);

ConvexMeshCollider Box(V const& size, V const& center = V(0.0)) {
    ConvexMeshCollider collider = ConvexMeshCollider::Box(glm::vec3(-size * 0.5), glm::vec3(size * 0.5));
    collider.transform = glm::translate(glm::dmat4(1.0), center);
    return collider;
}
glm::dquat Turn(double degrees, V const& axis) {
    return glm::angleAxis(glm::radians(degrees), glm::normalize(axis));
}
V PointVelocity(Dynamic const& body, V const& relative) {
    return body.linearVelocity + glm::cross(body.angularVelocity, relative);
}

/// Records built by hand from the world's entities (the world's own step is not used).
class RigidbodyTest : public ::testing::Test {
protected:
    testsupport::PhysicsWorld world;
    ServerSideEntity::Ptr Make(double mass, std::vector<ConvexMeshCollider> colliders, V const& position = {},
                               V const& velocity = {}) {
        ServerSideEntity::Ptr entity = world.Add(mass, position, std::move(colliders));
        entity->linearVelocity = velocity;
        return entity;
    }
    ServerSideEntity::Ptr Cube(V const& position = {}, V const& velocity = {}) {
        return Make(1.0, {Box(V(1.0))}, position, velocity);
    }
    /// A 10 m by 10 m slab whose top is at z = 0.
    ServerSideEntity::Ptr Ground() { return Make(0.0, {Box({10.0, 10.0, 1.0}, {0.0, 0.0, -0.5})}); }
};
using RigidbodyDeathTest = RigidbodyTest;

TEST_F(RigidbodyTest, ConstructionCentresOnTheCentreOfMassAndGrowsTheBoundsOverMovedColliders) {
    ConvexMeshCollider hollow = Box(V(1.0), {3.0, 0.0, 0.0}), off = Box(V(1.0), {-3.0, 0.0, 0.0});
    hollow.fill = 0.5;
    off.enabled = false;
    ServerSideEntity::Ptr entity = Make(2.0, {Box({2.0, 1.0, 1.0}, {1.0, 0.0, 0.0}), hollow, off}, {1.0, 2.0, 3.0});
    entity->orientation = Turn(90.0, {0, 0, 1});
    ASSERT_EQ(entity->centerOfMass, V(0.0)); // from the bounds -3.5 .. 3.5
    entity->centerOfMass = V(0.5, 0.0, 0.0);
    // Moved after the bounds were taken: the record grows its bounds to it.
    entity->colliders["c1"].transform = glm::translate(glm::dmat4(1.0), V(3.0, 0.0, 2.0));
    Body const body(entity);
    ExpectVecNear(body.position, V(1.0, 2.5, 3.0));
    ASSERT_EQ(body.colliders.size(), 2u); // the disabled one stays out
    for (ConvexMeshCollider const& collider : body.colliders)
        ExpectVecNear(V(collider.transform[3]), collider.fill == 1.0 ? V(0.5, 0, 0) : V(2.5, 0, 2));
    EXPECT_DOUBLE_EQ(body.volume, 2.5);
    ExpectVecNear(body.boundsMin, V(-4.0, -0.5, -0.5));
    ExpectVecNear(body.boundsMax, V(3.0, 0.5, 2.5));
    EXPECT_NEAR(body.radius, 0.5 * std::sqrt(59.0), 1e-12);
    ExpectVecNear(body.boundsWorldCenter, body.position + V(0.0, -0.5, 1.0));
    ExpectVecNear(V(body.GetTransform() * glm::dvec4(1, 0, 0, 1)), body.position + V(0, 1, 0));
}

TEST_F(RigidbodyDeathTest, ZeroExtentZeroStepZeroMassAndAPresentParentAsCandidateAbort) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ServerSideEntity::Ptr flat = Make(1.0, {Box({1.0, 0.0, 1.0})}), cube = Cube(), ground = Ground();
    EXPECT_DEATH({ Dynamic body(flat, Step); }, "ASSERTION FAILED: \\(box_size\\.y > 0\\.0\\)");
    EXPECT_DEATH({ Dynamic body(cube, 0.0); }, "ASSERTION FAILED: \\(deltaTime > 0\\)");
    EXPECT_EQ(Body(flat).colliders.size(), 1u); // a static record needs neither
    ground->AddChild(cube);
    Dynamic body(cube, Step);
    body.potentialNewParent = ground;
    EXPECT_DEATH(body.ApplyToEntity(Step),
                 "ASSERTION FAILED: \\(potentialNewParent->GetID\\(\\) != entity->parentEntity\\)");
    cube->mass = 0.0;
    EXPECT_DEATH({ Dynamic body(cube, Step); }, "ASSERTION FAILED: \\(mass > 0\\)");
}

TEST_F(RigidbodyTest, IntegrationTakesTheHalfStepSpinsAboutWorldAxesAndImpulsesAddUpOverSubsteps) {
    ServerSideEntity::Ptr entity = Cube();
    entity->linearImpulse = V(1.0, 0.0, 0.0); // 1 N s on 1 kg adds 1 m/s over the frame, in halves too
    entity->orientation = Turn(90.0, {1, 0, 0});
    entity->angularVelocity = Up;
    Dynamic halves(entity, Step), body(entity, 0.001);
    for (int i = 0; i < 2; ++i) halves.IntegrateMotion(Step / 2.0);
    ExpectVecNear(halves.position, V(Step / 2.0, 0.0, 0.0), 1e-12);
    ExpectVecNear(halves.linearVelocity, V(1.0, 0.0, 0.0), 1e-12);
    body.impulseAcceleration = V(0.0);
    for (int i = 0; i < 1000; ++i) body.IntegrateMotion(0.001);
    testsupport::ExpectRotationNear(body.orientation, glm::angleAxis(1.0, Up) * Turn(90.0, {1, 0, 0}), 1e-10);
    body.contactRest = 1.0;
    body.ApplyImpulse(V(0.0, 1.0, 0.0), V(1.0, 0.0, 0.0)); // off the centre: spins and wakes
    EXPECT_EQ(body.contactRest, 0.0);
    ExpectVecNear(body.angularVelocity, Up + V(0.0, 0.0, 6.0)); // a 1 kg unit cube has I = 1/6
}

TEST_F(RigidbodyTest, StaticContactsMergeWithinATenthOfAMetreAndSupportNeedsThreeAroundTheCentre) {
    ServerSideEntity::Ptr entity = Cube({1.0, 1.0, 1.0});
    Dynamic merged(entity, Step);
    for (V const& point :
         {V(1.0, 1.0, 0.5), V(1.05, 1.0, 0.5), V(1.0, 1.05, 0.5), V(1.0999, 1.0, 0.5), V(1.1001, 1.0, 0.5)})
        merged.AddStaticContactPoint(point.x == 1.05 ? V(0, 1, 0) : Up, point);
    ASSERT_EQ(merged.staticContactNormals, (std::vector<V>{Up, Up}));
    ExpectVecNear(merged.staticRelativeContactPoints.at(0), V(0.0, 0.0, -0.5));

    V const steep = glm::normalize(V(1.0, 0.0, 0.9)), slant = glm::normalize(V(1.0, 0.0, 0.5));
    using Contacts = std::vector<std::pair<V, V>>; // normal, point relative to the centre
    // The last three lie on one side: the first three must hold the body.
    auto const six = [](V const& first) {
        return Contacts{{first, {-0.4, -0.4, -0.5}}, {Up, {0.4, -0.4, -0.5}}, {Up, {0.0, 0.4, -0.5}},
                        {Up, {0.3, 0.3, -0.5}},      {Up, {0.45, 0.1, -0.5}}, {Up, {0.2, 0.45, -0.5}}};
    };
    std::tuple<char const*, Contacts, bool> const cases[] = {
        {"none", {}, false},
        {"two", {{Up, {0.4, 0.0, -0.5}}, {Up, {-0.3, -0.3, -0.5}}}, false},
        {"three around, clockwise", {{Up, {0.4, 0.0, -0.5}}, {Up, {-0.3, -0.3, -0.5}}, {Up, {-0.3, 0.3, -0.5}}}, true},
        {"three aside", {{Up, {0.4, 0.1, -0.5}}, {Up, {0.45, -0.2, -0.5}}, {Up, {0.2, 0.3, -0.5}}}, false},
        {"steeper than 45 degrees",
         {{Up, {0.4, 0.0, -0.5}}, {steep, {-0.3, 0.3, -0.5}}, {Up, {-0.3, -0.3, -0.5}}},
         false},
        {"earlier three hold", six(Up), true},
        {"earlier three slanted", six(slant), false}, // every stored normal must face the plane
    };
    entity = Cube();
    for (auto const& [name, contacts, supported] : cases) {
        SCOPED_TRACE(name);
        Dynamic body(entity, Step);
        for (auto const& [normal, point] : contacts) body.AddStaticContactPoint(normal, point);
        V normal(0.0);
        ASSERT_EQ(body.GetStaticContact(normal), supported);
        if (supported) ExpectVecNear(normal, Up, 1e-12);
    }
}

TEST_F(RigidbodyTest, FallingBoxLandsOnFourCornersNominatesTheGroundAndSlidesWithFriction) {
    ServerSideEntity::Ptr ground = Ground(), entity = Cube({0.0, 0.0, 0.49}, {0.0, 0.0, -2.0});
    Body floor(ground);
    Dynamic body(entity, Step);
    body.nearStatics.push_back(&floor);
    ::Game::debugServerSidePhysics = true;
    body.CollisionDetection(Step);
    ExpectVecNear(body.position, V(0.0, 0.0, 0.5), 1e-6);
    ExpectVecNear(body.linearVelocity, V(0.0));
    ASSERT_EQ(body.staticContactNormals, std::vector<V>(4, Up));
    for (V const& p : body.staticRelativeContactPoints) // the lower corners
        ExpectVecNear(V(std::abs(p.x), std::abs(p.y), -p.z), V(0.5), 1e-6);
    EXPECT_EQ(body.debugLines.size(), 1u);
    EXPECT_EQ(body.potentialNewParent.lock(), ground); // larger than the box: it may take it in
    EXPECT_EQ(std::tuple(body.largestContactRadius, body.touchesParent, body.contactRest, body.restingLimit),
              std::tuple(floor.radius, false, 1.0, 0.2));
    // Two default colliders rub with 4 percent at the middle of the corners.
    entity->linearVelocity = V(1.0, 0.0, 0.0);
    Dynamic sliding(entity, Step);
    sliding.nearStatics.push_back(&floor);
    sliding.CollisionDetection(Step);
    ExpectVecNear(PointVelocity(sliding, {0.0, 0.0, -0.5}), V(0.96, 0.0, 0.0), 1e-6);
}

TEST_F(RigidbodyTest, SparseCollidersStandForTheirSubColliders) {
    // The child under the box has its top at z = 0 only with the slab's placement added.
    for (auto [fill, child, contacts] :
         {std::tuple(0.5, V(4.0, 4.0, 0.0), 0u), std::tuple(0.95, V(4.0, 4.0, 0.0), 4u), std::tuple(0.5, V(0.0), 4u)}) {
        SCOPED_TRACE(fill + child.x);
        ServerSideEntity::Ptr ground = Ground();
        ground->centerOfMass = V(0.0);
        ConvexMeshCollider& slab = ground->colliders["c0"];
        slab.fill = fill;
        slab.subColliders->push_back(Box(V(1.0), child));
        slab.subColliders->push_back(Box(V(1.0)));
        slab.subColliders->back().verticesCount = 0; // nothing to test: skipped
        ServerSideEntity::Ptr entity = Cube({0.0, 0.0, 0.49});
        Body floor(ground);
        Dynamic body(entity, Step);
        body.nearStatics.push_back(&floor);
        body.CollisionDetection(Step);
        EXPECT_EQ(body.staticContactNormals.size(), contacts);
        EXPECT_NEAR(body.position.z, contacts ? 0.5 : 0.49, 1e-6);
    }
}

TEST_F(RigidbodyTest, MovingPairCallsTheSecondCallbackFirstSharesThePushAndKeepsTheMomentum) {
    std::vector<std::tuple<char, void*, V>> calls; // collider, body, normal
    auto const log = [&calls](char tag) {
        return [&calls, tag](void* body, ConvexMeshCollider&, ConvexMeshCollider&, Collision& hit, double) {
            calls.emplace_back(tag, body, hit.normal);
            return true;
        };
    };
    ConvexMeshCollider left = Box(V(1.0)), right = Box(V(1.0));
    left.onContact = log('a');
    right.onContact = log('b');
    ServerSideEntity::Ptr first = Make(1.0, {left}, {}, {1.0, 0.5, 0.0}),
                          second = Make(3.0, {right}, {0.95, 0.0, 0.0}, {-1.0, 0.0, 0.0});
    Dynamic a(first, Step), b(second, Step);
    a.nearDynamics.push_back(&b);
    a.CollisionDetection(Step);
    ASSERT_EQ(calls.size(), 2u); // the second callback first
    EXPECT_EQ(calls[0], std::make_tuple('b', static_cast<void*>(&b), V(1.0, 0.0, 0.0)));
    EXPECT_EQ(calls[1], std::make_tuple('a', static_cast<void*>(&a), V(-1.0, 0.0, 0.0)));
    ExpectVecNear(a.position, V(-0.0375, 0.0, 0.0), 1e-6); // the lighter body moves three quarters of the way
    ExpectVecNear(a.linearVelocity + 3.0 * b.linearVelocity, V(-2.0, 0.5, 0.0), 1e-9);
    V const relative = PointVelocity(a, V(0.5, 0, 0)) - PointVelocity(b, a.position + V(0.5, 0, 0) - b.position);
    // Friction slowed the sliding along y without reversing it.
    EXPECT_TRUE(std::abs(relative.x) < 1e-9 && relative.y > 0.0 && relative.y < 0.5)
        << relative.x << ", " << relative.y;
}

TEST_F(RigidbodyTest, ApplyToEntityWritesTheMotionBackAndClearsTheGatheredImpulses) {
    ServerSideEntity::Ptr entity = Make(1.0, {Box(V(1.0), {1.0, 0.0, 0.0})});
    entity->orientation = Turn(90.0, {0, 0, 1});
    entity->linearImpulse = V(0.6, 0.0, 0.0);
    entity->angularImpulse = V(0.0, 0.0, 0.1);
    entity->pendingAcceleration = Up;
    entity->restTime = 0.25;
    entity->settled = true;
    Dynamic body(entity, Step);
    body.position = V(2.0, 3.0, 4.0);
    body.linearVelocity = V(0.6, 0.0, 0.0);
    body.angularVelocity = V(0.0, 0.0, 0.5);
    body.contactRest = 1.0;
    body.ApplyToEntity(Step);
    ExpectVecNear(entity->position, V(2.0, 2.0, 4.0)); // the centre of mass sits 1 m along x, turned onto y
    EXPECT_EQ(std::tuple(entity->linearVelocity, entity->angularVelocity, entity->restTime, entity->settled),
              std::tuple(body.linearVelocity, body.angularVelocity, 1.25, false));
    EXPECT_EQ(entity->linearImpulse + entity->angularImpulse + entity->pendingAcceleration, V(0.0));
    // Felt: pending (0, 0, 1) minus the 0.6 m/s gained along world x, in the entity's frame, a tenth of it.
    ExpectVecNear(entity->feltAcceleration, 0.1 * (glm::inverse(entity->orientation) * V(-0.6 / Step, 0, 1)));
    entity.reset();
    ServerSideEntity::DestroyAll();
    body.ApplyToEntity(Step); // gone entities are left alone
}

TEST_F(RigidbodyTest, ParentDecisionsFollowTheSpeed) {
    // name, speed, on a parent, candidate, near the parent, touching it, stays on or joins it
    using Case = std::tuple<char const*, double, bool, bool, bool, bool, bool>;
    Case const cases[] = {
        {"candidate, fast", 7.0, false, true, false, false, false}, // a candidate is joined below 5 m/s only
        {"candidate, slow", 3.0, false, true, false, false, true},
        {"near parent, cruising", 7.0, true, false, true, false, true}, // near its parent it stays up to 10 m/s
        {"near parent, racing", 12.0, true, false, true, false, false},
        {"far, touching", 7.0, true, false, false, true, true}, // far from it, it leaves unless touching it
        {"far, adrift", 0.0, true, false, false, false, false},
    };
    for (auto const& [name, speed, onParent, candidate, nearParent, touching, staysOrJoins] : cases) {
        SCOPED_TRACE(name);
        ServerSideEntity::Ptr ground = Ground(), rover = Cube({0.0, 0.0, 0.5}, {speed, 0.0, 0.0});
        if (onParent) ground->AddChild(rover);
        Body groundBody(ground);
        Dynamic body(rover, Step);
        body.gravity = V(0.0, 0.0, -9.81);
        if (candidate) body.potentialNewParent = ground;
        body.parentBody = nearParent ? &groundBody : nullptr;
        body.touchesParent = touching;
        body.ApplyToEntity(Step);
        EXPECT_EQ(rover->parentEntity, staysOrJoins ? ground->GetID() : game::entity::Id());
        EXPECT_EQ(body.gravity.z, onParent && !staysOrJoins ? 0.0 : -9.81); // leaving, the frame's gravity goes
    }
}

} // namespace
