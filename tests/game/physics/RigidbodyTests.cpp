// Rigid body records: construction, integration, impulses, collision response, contact
// bookkeeping, the contact search over the broadphase lists and the write-back with its parent decisions.
#include <gtest/gtest.h>

#include <cmath>
#include <tuple>
#include <utility>
#include <vector>

#include <glm/gtc/matrix_transform.hpp>

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

namespace {

constexpr double Step = 1.0 / 60.0;
glm::dvec3 const Up(0.0, 0.0, 1.0);

ConvexMeshCollider Box(glm::dvec3 const& size, glm::dvec3 const& center = glm::dvec3(0.0))
{
    ConvexMeshCollider collider = ConvexMeshCollider::Box(glm::vec3(-size * 0.5), glm::vec3(size * 0.5));
    collider.transform = glm::translate(glm::dmat4(1.0), center);
    return collider;
}

glm::dquat Turn(double degrees, glm::dvec3 const& axis) { return glm::angleAxis(glm::radians(degrees), glm::normalize(axis)); }

Collision Hit(glm::dvec3 const& normal, double depth, glm::dvec3 const& point)
{
    Collision hit;
    hit.normal = normal;
    hit.depth = depth;
    hit.point = point;
    return hit;
}

/// Velocity of the body's material at a point relative to its position.
glm::dvec3 PointVelocity(Dynamic const& body, glm::dvec3 const& relative)
{
    return body.linearVelocity + glm::cross(body.angularVelocity, relative);
}

/// Records built by hand from the world's entities (the world's own step is not used).
class RigidbodyTest : public ::testing::Test {
protected:
    testsupport::PhysicsWorld world;
    ServerSideEntity::Ptr Make(double mass, std::vector<ConvexMeshCollider> colliders, glm::dvec3 const& position = {})
    {
        return world.Add(mass, position, std::move(colliders));
    }
    /// A unit cube of 1 kg.
    ServerSideEntity::Ptr Cube(glm::dvec3 const& position = {}) { return Make(1.0, {Box(glm::dvec3(1.0))}, position); }
    /// A 10 m by 10 m slab whose top is at z = 0.
    ServerSideEntity::Ptr Ground() { return Make(0.0, {Box({10.0, 10.0, 1.0}, {0.0, 0.0, -0.5})}); }
};

using RigidbodyConstruction = RigidbodyTest;

TEST_F(RigidbodyConstruction, BodySpaceIsCentredOnTheCentreOfMass)
{
    ConvexMeshCollider hollow = Box(glm::dvec3(1.0), {3.0, 0.0, 0.0});
    hollow.fill = 0.5;
    ConvexMeshCollider off = Box(glm::dvec3(1.0), {-3.0, 0.0, 0.0});
    off.enabled = false;
    ServerSideEntity::Ptr entity = Make(2.0, {Box({2.0, 1.0, 1.0}, {1.0, 0.0, 0.0}), hollow, off}, {1.0, 2.0, 3.0});
    entity->orientation = Turn(90.0, {0, 0, 1});
    ASSERT_EQ(entity->centerOfMass, glm::dvec3(0.0)); // from the bounds -3.5 .. 3.5
    entity->centerOfMass = glm::dvec3(0.5, 0.0, 0.0);
    // Moved after the bounds were taken: the record grows its bounds to it.
    entity->colliders["c1"].transform = glm::translate(glm::dmat4(1.0), glm::dvec3(3.0, 0.0, 2.0));

    Body const body(entity);
    ExpectVecNear(body.position, glm::dvec3(1.0, 2.5, 3.0));
    ASSERT_EQ(body.colliders.size(), 2u); // the disabled one stays out
    for (ConvexMeshCollider const& collider : body.colliders)
        ExpectVecNear(glm::dvec3(collider.transform[3]), collider.fill == 1.0 ? glm::dvec3(0.5, 0, 0) : glm::dvec3(2.5, 0, 2));
    EXPECT_DOUBLE_EQ(body.volume, 2.0 + 0.5);
    ExpectVecNear(body.boundsMin, glm::dvec3(-4.0, -0.5, -0.5));
    ExpectVecNear(body.boundsMax, glm::dvec3(3.0, 0.5, 2.5));
    EXPECT_NEAR(body.radius, 0.5 * std::sqrt(49.0 + 1.0 + 9.0), 1e-12);
    ExpectVecNear(body.boundsWorldCenter, body.position + glm::dvec3(0.0, -0.5, 1.0));
    ExpectVecNear(glm::dvec3(body.GetTransform() * glm::dvec4(1, 0, 0, 1)), body.position + glm::dvec3(0, 1, 0));

    // A moving record turns the gathered impulses into accelerations over the step.
    entity = Make(2.0, {Box({1.0, 2.0, 3.0})});
    entity->orientation = Turn(30.0, {1, 2, 3});
    entity->linearVelocity = glm::dvec3(3.0, 4.0, 0.0);
    entity->linearImpulse = glm::dvec3(1.0, 0.0, 0.0);
    entity->angularImpulse = glm::dvec3(0.0, 0.0, 0.5);
    entity->aerodynamic = false;
    entity->collisionExclusions.insert(game::entity::Id::Generate());
    Dynamic const moving(entity, 0.1);
    EXPECT_DOUBLE_EQ(moving.invMass, 0.5);
    testsupport::ExpectMatNear(moving.invInertiaWorld, glm::inverse(entity->GetInertiaTensorWorld()));
    EXPECT_FALSE(moving.aerodynamic);
    EXPECT_EQ(moving.collisionExclusions, entity->collisionExclusions);
    ExpectVecNear(moving.impulseAcceleration, glm::dvec3(5.0, 0.0, 0.0));
    ExpectVecNear(moving.angularImpulseAcceleration, moving.invInertiaWorld * glm::dvec3(0.0, 0.0, 5.0));
    EXPECT_DOUBLE_EQ(moving.largestContactRadius, moving.radius);
    EXPECT_NEAR(moving.sweptRadius, 5.0 * 0.1 * 0.5 + moving.radius, 1e-12);
}

using RigidbodyConstructionDeathTest = RigidbodyTest;

TEST_F(RigidbodyConstructionDeathTest, ZeroExtentZeroStepAndZeroMassAbort)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ServerSideEntity::Ptr flat = Make(1.0, {Box({1.0, 0.0, 1.0})});
    EXPECT_DEATH({ Dynamic body(flat, Step); }, "ASSERTION FAILED: \\(box_size\\.y > 0\\.0\\)");
    ServerSideEntity::Ptr cube = Cube();
    EXPECT_DEATH({ Dynamic body(cube, 0.0); }, "ASSERTION FAILED: \\(deltaTime > 0\\)");
    cube->mass = 0.0;
    EXPECT_DEATH({ Dynamic body(cube, Step); }, "ASSERTION FAILED: \\(mass > 0\\)");
    EXPECT_EQ(Body(flat).colliders.size(), 1u); // a static record needs neither
}

using RigidbodyMotion = RigidbodyTest;

TEST_F(RigidbodyMotion, IntegrationTakesTheHalfStepAndImpulsesAddUpOverSubsteps)
{
    struct Case {
        char const* name;
        glm::dvec3 velocity, impulse, gravity, pending;
        double dt;
        int steps;
        glm::dvec3 position, endVelocity;
    };
    double const h = 10.0 * Step;
    Case const cases[] = {
        {"drift", {1.5, -2.0, 0.25}, {}, {}, {}, Step, 10, h * glm::dvec3(1.5, -2.0, 0.25), {1.5, -2.0, 0.25}},
        {"gravity and pending", {1, 0, 0}, {}, {0, 0, -9.81}, {0, 2, 0}, 0.1, 1, {0.1, 0.01, -0.04905}, {1, 0.2, -0.981}},
        // 1 N s on 1 kg adds 1 m/s over the frame, whole or in halves.
        {"impulse", {}, {1, 0, 0}, {}, {}, Step, 1, {Step / 2.0, 0, 0}, {1, 0, 0}},
        {"impulse in halves", {}, {1, 0, 0}, {}, {}, Step / 2.0, 2, {Step / 2.0, 0, 0}, {1, 0, 0}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ServerSideEntity::Ptr entity = Cube();
        entity->linearVelocity = c.velocity;
        entity->linearImpulse = c.impulse;
        entity->angularVelocity = glm::dvec3(0.3, 0.2, -0.1);
        Dynamic body(entity, Step);
        body.gravity = c.gravity;
        body.pendingAcceleration = c.pending;
        for (int i = 0; i < c.steps; ++i)
            body.IntegrateMotion(c.dt);
        ExpectVecNear(body.position, c.position, 1e-12);
        ExpectVecNear(body.linearVelocity, c.endVelocity, 1e-12);
        EXPECT_EQ(body.angularVelocity, glm::dvec3(0.3, 0.2, -0.1));
        EXPECT_NEAR(glm::length(body.orientation), 1.0, 1e-12);
    }
}

TEST_F(RigidbodyMotion, SpinIsAboutTheWorldAxisAndAnImpulseOffTheCentreSpinsAndWakes)
{
    ServerSideEntity::Ptr entity = Cube();
    entity->orientation = Turn(90.0, {1, 0, 0});
    entity->angularVelocity = Up;
    Dynamic body(entity, 0.001);
    for (int i = 0; i < 1000; ++i)
        body.IntegrateMotion(0.001);
    // One radian about world z after the quarter turn about x.
    glm::dquat const expected = glm::angleAxis(1.0, Up) * Turn(90.0, {1, 0, 0});
    for (glm::dvec3 const& axis : {glm::dvec3(1, 0, 0), glm::dvec3(0, 1, 0), Up})
        ExpectVecNear(body.orientation * axis, expected * axis, 1e-5);

    Dynamic still(entity = Cube(), Step);
    still.contactRest = 1.0;
    still.ApplyImpulse(glm::dvec3(0.0, 1.0, 0.0), glm::dvec3(1.0, 0.0, 0.0));
    EXPECT_EQ(still.contactRest, 0.0);
    ExpectVecNear(still.linearVelocity, glm::dvec3(0.0, 1.0, 0.0));
    ExpectVecNear(still.angularVelocity, glm::dvec3(0.0, 0.0, 6.0)); // a 1 kg unit cube has I = 1/6
}

using RigidbodyResponse = RigidbodyTest;

TEST_F(RigidbodyResponse, StaticContactStopsTheNormalSpeedWithoutBounceAndFrictionTakesItsShare)
{
    ServerSideEntity::Ptr entity = Cube({0.0, 0.0, 0.49});
    entity->linearVelocity = glm::dvec3(0.0, 0.0, -3.0);
    Dynamic body(entity, Step);
    body.RespondToCollision(Hit(Up, 0.01, {0.0, 0.0, -0.01}), 0.0);
    ExpectVecNear(body.position, glm::dvec3(0.0, 0.0, 0.5));
    ExpectVecNear(body.linearVelocity, glm::dvec3(0.0), 1e-12);
    ExpectVecNear(body.angularVelocity, glm::dvec3(0.0), 1e-12);
    // Off the centre the contact point stops along the normal and the body turns.
    Dynamic corner(entity, Step);
    corner.RespondToCollision(Hit(Up, 0.01, {0.3, 0.2, -0.01}), 0.0);
    EXPECT_NEAR(glm::dot(PointVelocity(corner, glm::dvec3(0.3, 0.2, -0.5)), Up), 0.0, 1e-12);
    EXPECT_GT(glm::length(corner.angularVelocity), 0.1);

    // Sliding at 2 m/s: friction 0.5 halves the contact point's speed, none keeps it all.
    entity->linearVelocity = glm::dvec3(2.0, 0.0, 0.0);
    entity->position.z = 0.5;
    for (double friction : {0.5, 0.0}) {
        Dynamic sliding(entity, Step);
        sliding.RespondToCollision(Hit(Up, 0.0, glm::dvec3(0.0)), friction);
        ExpectVecNear(PointVelocity(sliding, {0.0, 0.0, -0.5}), glm::dvec3(2.0 - 2.0 * friction, 0.0, 0.0), 1e-12);
        if (friction == 0.0)
            ExpectVecNear(sliding.angularVelocity, glm::dvec3(0.0), 1e-12);
    }
}

TEST_F(RigidbodyResponse, TwoBodiesShareThePushAndKeepTheirMomentum)
{
    ServerSideEntity::Ptr left = Cube();
    left->linearVelocity = glm::dvec3(1.0, 0.5, 0.0);
    ServerSideEntity::Ptr right = Make(3.0, {Box(glm::dvec3(1.0))}, {0.95, 0.0, 0.0});
    right->linearVelocity = glm::dvec3(-1.0, 0.0, 0.0);
    Dynamic a(left, Step), b(right, Step);
    Collision const hit = Hit({-1.0, 0.0, 0.0}, 0.04, {0.475, 0.0, 0.0}); // normal from b towards a
    glm::dvec3 const momentum = a.linearVelocity / a.invMass + b.linearVelocity / b.invMass;

    Dynamic::RespondToCollision(&a, &b, hit, 0.2);
    // The lighter body moves three quarters of the way.
    ExpectVecNear(a.position, glm::dvec3(-0.03, 0.0, 0.0));
    ExpectVecNear(b.position, glm::dvec3(0.96, 0.0, 0.0));
    ExpectVecNear(a.linearVelocity / a.invMass + b.linearVelocity / b.invMass, momentum, 1e-12);
    glm::dvec3 const relative = PointVelocity(a, hit.point - a.position) - PointVelocity(b, hit.point - b.position);
    EXPECT_NEAR(relative.x, 0.0, 1e-12);
    // Friction slowed the sliding along y without reversing it.
    EXPECT_GT(relative.y, 0.0);
    EXPECT_LT(relative.y, 0.5);
}

using RigidbodyStaticContacts = RigidbodyTest;

TEST_F(RigidbodyStaticContacts, PointsCloserThanATenthOfAMetreMerge)
{
    ServerSideEntity::Ptr entity = Cube({1.0, 1.0, 1.0});
    Dynamic body(entity, Step);
    body.AddStaticContactPoint(Up, {1.0, 1.0, 0.5});
    body.AddStaticContactPoint({0.0, 1.0, 0.0}, {1.05, 1.0, 0.5});
    body.AddStaticContactPoint(Up, {1.0, 1.05, 0.5});
    body.AddStaticContactPoint(Up, {1.0 + 0.0999, 1.0, 0.5});
    ASSERT_EQ(body.staticContactNormals.size(), 1u);
    ExpectVecNear(body.staticRelativeContactPoints.at(0), glm::dvec3(0.0, 0.0, -0.5));
    EXPECT_EQ(body.staticContactNormals[0], Up);
    body.AddStaticContactPoint(Up, {1.0 + 0.1001, 1.0, 0.5});
    EXPECT_EQ(body.staticRelativeContactPoints.size(), 2u);
    EXPECT_EQ(body.staticContactNormals.size(), 2u);
}

TEST_F(RigidbodyStaticContacts, SupportNeedsThreeContactsAroundTheCentreOfMass)
{
    glm::dvec3 const steep = glm::normalize(glm::dvec3(1.0, 0.0, 0.9)), slant = glm::normalize(glm::dvec3(1.0, 0.0, 0.5));
    // The last three lie on one side: the first three must hold the body.
    auto const six = [](glm::dvec3 const& first) {
        return std::vector<std::pair<glm::dvec3, glm::dvec3>>{{first, {-0.4, -0.4, -0.5}}, {Up, {0.4, -0.4, -0.5}},
            {Up, {0.0, 0.4, -0.5}}, {Up, {0.3, 0.3, -0.5}}, {Up, {0.45, 0.1, -0.5}}, {Up, {0.2, 0.45, -0.5}}};
    };
    struct Case {
        char const* name;
        std::vector<std::pair<glm::dvec3, glm::dvec3>> contacts; // normal, point relative to the centre
        bool supported;
    };
    Case const cases[] = {
        {"none", {}, false},
        {"two", {{Up, {0.4, 0.0, -0.5}}, {Up, {-0.3, -0.3, -0.5}}}, false},
        // Clockwise seen from above: the normal still faces the contacts' way.
        {"three around", {{Up, {0.4, 0.0, -0.5}}, {Up, {-0.3, -0.3, -0.5}}, {Up, {-0.3, 0.3, -0.5}}}, true},
        {"three aside", {{Up, {0.4, 0.1, -0.5}}, {Up, {0.45, -0.2, -0.5}}, {Up, {0.2, 0.3, -0.5}}}, false},
        {"steeper than 45 degrees", {{Up, {0.4, 0.0, -0.5}}, {steep, {-0.3, 0.3, -0.5}}, {Up, {-0.3, -0.3, -0.5}}}, false},
        {"earlier three hold", six(Up), true},
        // Every stored normal must face the plane for the earlier ones to count.
        {"earlier three slanted", six(slant), false},
    };
    ServerSideEntity::Ptr entity = Cube();
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        Dynamic body(entity, Step);
        for (auto const& [normal, point] : c.contacts)
            body.AddStaticContactPoint(normal, point);
        glm::dvec3 normal(0.0);
        ASSERT_EQ(body.GetStaticContact(normal), c.supported);
        if (c.supported)
            ExpectVecNear(normal, Up, 1e-12);
    }
}

using RigidbodyCollisionDetection = RigidbodyTest;

TEST_F(RigidbodyCollisionDetection, FallingBoxLandsOnFourCornersAndNominatesTheGround)
{
    ServerSideEntity::Ptr ground = Ground();
    ServerSideEntity::Ptr entity = Cube({0.0, 0.0, 0.49});
    entity->linearVelocity = glm::dvec3(0.0, 0.0, -2.0);
    Body floor(ground);
    Dynamic body(entity, Step);
    body.nearStatics.push_back(&floor);
    ::Game::debugServerSidePhysics = true;
    body.CollisionDetection(Step);
    ExpectVecNear(body.position, glm::dvec3(0.0, 0.0, 0.5), 1e-6);
    ExpectVecNear(body.linearVelocity, glm::dvec3(0.0));
    ASSERT_EQ(body.staticContactNormals.size(), 4u);
    for (size_t i = 0; i < 4; ++i) {
        ExpectVecNear(body.staticContactNormals[i], Up);
        glm::dvec3 const p = body.staticRelativeContactPoints[i]; // a lower corner
        ExpectVecNear(glm::dvec3(std::abs(p.x), std::abs(p.y), -p.z), glm::dvec3(0.5), 1e-6);
    }
    EXPECT_EQ(body.debugLines.size(), 1u);
    // The ground is larger than the box: it may take it in.
    EXPECT_EQ(body.potentialNewParent.lock(), ground);
    EXPECT_DOUBLE_EQ(body.largestContactRadius, floor.radius);
    EXPECT_FALSE(body.touchesParent);
    EXPECT_EQ(body.contactRest, 1.0); // stopped and held by four corners around its centre
    EXPECT_DOUBLE_EQ(body.restingLimit, 0.2);

    // Sliding on it: two default colliders rub with 4 percent at the middle of the corners.
    entity->linearVelocity = glm::dvec3(1.0, 0.0, 0.0);
    Dynamic sliding(entity, Step);
    sliding.nearStatics.push_back(&floor);
    sliding.CollisionDetection(Step);
    ExpectVecNear(PointVelocity(sliding, {0.0, 0.0, -0.5}), glm::dvec3(0.96, 0.0, 0.0), 1e-6);
}

TEST_F(RigidbodyCollisionDetection, SparseCollidersStandForTheirSubColliders)
{
    struct Case {
        char const* name;
        double fill;
        glm::dvec3 child;
        size_t contacts;
    };
    Case const cases[] = {
        {"child in a far corner", 0.5, {4.0, 4.0, 0.0}, 0u},
        {"solid at 0.95", 0.95, {4.0, 4.0, 0.0}, 4u},
        // Its top is at z = 0 only with the slab's placement added.
        {"child under the box", 0.5, {0.0, 0.0, 0.0}, 4u},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ServerSideEntity::Ptr ground = Ground();
        ground->centerOfMass = glm::dvec3(0.0); // the slab sits 0.5 below the centre in body space too
        ConvexMeshCollider& slab = ground->colliders["c0"];
        slab.fill = c.fill;
        slab.subColliders->push_back(Box(glm::dvec3(1.0), c.child));
        ConvexMeshCollider empty = Box(glm::dvec3(1.0));
        empty.verticesCount = 0; // nothing to test: skipped
        slab.subColliders->push_back(empty);
        ServerSideEntity::Ptr entity = Cube({0.0, 0.0, 0.49});
        Body floor(ground);
        Dynamic body(entity, Step);
        body.nearStatics.push_back(&floor);
        body.CollisionDetection(Step);
        EXPECT_EQ(body.staticContactNormals.size(), c.contacts);
        EXPECT_NEAR(body.position.z, c.contacts ? 0.5 : 0.49, 1e-6);
    }
}

TEST_F(RigidbodyCollisionDetection, BoxOnThreePadsComesToRestAndThenSkipsTheStaticWorld)
{
    ServerSideEntity::Ptr pads = Make(0.0, {Box(glm::dvec3(0.2), {0.35, 0.0, -0.1}), Box(glm::dvec3(0.2), {-0.3, 0.3, -0.1}),
                                            Box(glm::dvec3(0.2), {-0.3, -0.3, -0.1})});
    ServerSideEntity::Ptr entity = Cube({0.0, 0.0, 0.495});
    Body support(pads);
    Dynamic body(entity, Step);
    body.nearStatics.push_back(&support);
    body.CollisionDetection(Step);
    EXPECT_EQ(body.staticContactNormals.size(), 12u); // the top corners of the three pads
    EXPECT_EQ(body.contactRest, 1.0);
    // At rest: the static contacts are no longer searched.
    body.position.z -= 0.1;
    double const sunk = body.position.z;
    body.CollisionDetection(Step);
    EXPECT_EQ(body.position.z, sunk);
    EXPECT_EQ(body.contactRest, 1.0);

    // Sliding faster than the friction allows keeps it awake.
    entity->linearVelocity = glm::dvec3(0.5, 0.0, 0.0);
    Dynamic sliding(entity, Step);
    sliding.nearStatics.push_back(&support);
    sliding.CollisionDetection(Step);
    EXPECT_EQ(sliding.staticContactNormals.size(), 12u);
    EXPECT_EQ(sliding.contactRest, 0.0);
}

TEST_F(RigidbodyCollisionDetection, ParentCollidersAreMetInTheParentsFrame)
{
    // The parent's only collider sits 5 m off its origin, so its centre of mass does too.
    ServerSideEntity::Ptr parent = Make(0.0, {Box({4.0, 4.0, 1.0}, {5.0, 0.0, -0.5})});
    ServerSideEntity::Ptr entity = Cube({5.0, 0.0, 0.49});
    entity->parentEntity = parent->GetID();
    Body parentBody(parent);
    Dynamic body(entity, Step);
    body.parentBody = &parentBody;
    body.CollisionDetection(Step);
    EXPECT_TRUE(body.touchesParent);
    EXPECT_NEAR(body.position.z, 0.5, 1e-6);
    EXPECT_TRUE(body.potentialNewParent.expired()); // the parent is no candidate
}

TEST_F(RigidbodyCollisionDetection, MovingPairCallsTheSecondCallbackFirstAndStopsTheApproach)
{
    std::vector<std::tuple<char, void*, glm::dvec3>> calls; // collider, body, normal
    auto const log = [&calls](char tag) {
        return [&calls, tag](void* body, ConvexMeshCollider&, ConvexMeshCollider&, Collision& hit, double) {
            calls.emplace_back(tag, body, hit.normal);
            return true;
        };
    };
    ConvexMeshCollider left = Box(glm::dvec3(1.0)), right = Box(glm::dvec3(1.0));
    left.onContact = log('a');
    right.onContact = log('b');
    ServerSideEntity::Ptr first = Make(1.0, {left}), second = Make(1.0, {right}, {0.95, 0.0, 0.0});
    first->linearVelocity = glm::dvec3(1.0, 0.0, 0.0);
    second->linearVelocity = glm::dvec3(-1.0, 0.0, 0.0);
    Dynamic a(first, Step), b(second, Step);
    a.nearDynamics.push_back(&b);
    a.CollisionDetection(Step);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0], std::make_tuple('b', static_cast<void*>(&b), glm::dvec3(1.0, 0.0, 0.0)));
    EXPECT_EQ(calls[1], std::make_tuple('a', static_cast<void*>(&a), glm::dvec3(-1.0, 0.0, 0.0)));
    EXPECT_NEAR(a.linearVelocity.x, 0.0, 1e-9);
    EXPECT_NEAR(b.linearVelocity.x, 0.0, 1e-9);
    EXPECT_NEAR(b.position.x - a.position.x, 1.0, 1e-6);
}

using RigidbodyApplyToEntity = RigidbodyTest;

TEST_F(RigidbodyApplyToEntity, WritesTheMotionBackAndClearsTheGatheredImpulses)
{
    ServerSideEntity::Ptr entity = Make(1.0, {Box(glm::dvec3(1.0), {1.0, 0.0, 0.0})});
    entity->orientation = Turn(90.0, {0, 0, 1});
    entity->linearImpulse = glm::dvec3(0.6, 0.0, 0.0);
    entity->angularImpulse = glm::dvec3(0.0, 0.0, 0.1);
    entity->pendingAcceleration = Up;
    entity->restTime = 0.25;
    entity->settled = true;
    Dynamic body(entity, Step);
    body.position = glm::dvec3(2.0, 3.0, 4.0);
    body.linearVelocity = glm::dvec3(0.6, 0.0, 0.0);
    body.angularVelocity = glm::dvec3(0.0, 0.0, 0.5);
    body.contactRest = 1.0;

    body.ApplyToEntity(Step);
    // The centre of mass sits 1 m along the entity's x, which is turned onto y.
    ExpectVecNear(entity->position, glm::dvec3(2.0, 2.0, 4.0));
    EXPECT_EQ(entity->linearVelocity, body.linearVelocity);
    EXPECT_EQ(entity->angularVelocity, body.angularVelocity);
    EXPECT_EQ(entity->linearImpulse + entity->angularImpulse + entity->pendingAcceleration, glm::dvec3(0.0));
    EXPECT_DOUBLE_EQ(entity->restTime, 1.25);
    EXPECT_FALSE(entity->settled);
    // Felt: pending (0, 0, 1) minus the 0.6 m/s gained over the step along
    // world x, seen in the entity's frame, a tenth of it.
    ExpectVecNear(entity->feltAcceleration, 0.1 * (glm::inverse(entity->orientation) * glm::dvec3(-0.6 / Step, 0, 1)));

    // Gone entities are left alone.
    entity.reset();
    ServerSideEntity::DestroyAll();
    body.ApplyToEntity(Step);
}

TEST_F(RigidbodyApplyToEntity, ParentDecisionsFollowTheSpeed)
{
    struct Case {
        char const* name;
        double speed;
        bool onParent, candidate, nearParent, touching, staysOrJoins;
    };
    Case const cases[] = {
        // A candidate parent is joined below 5 m/s only.
        {"candidate, fast", 7.0, false, true, false, false, false},
        {"candidate, slow", 3.0, false, true, false, false, true},
        // Near its parent it stays up to 10 m/s and leaves above.
        {"near parent, cruising", 7.0, true, false, true, false, true},
        {"near parent, racing", 12.0, true, false, true, false, false},
        // Far from its parent and touching nothing it leaves at any speed, unless touching it.
        {"far, touching", 7.0, true, false, false, true, true},
        {"far, adrift", 0.0, true, false, false, false, false},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ServerSideEntity::Ptr ground = Ground();
        ServerSideEntity::Ptr rover = Cube({0.0, 0.0, 0.5});
        rover->linearVelocity = glm::dvec3(c.speed, 0.0, 0.0);
        if (c.onParent)
            ground->AddChild(rover);
        Body groundBody(ground);
        Dynamic body(rover, Step);
        body.gravity = glm::dvec3(0.0, 0.0, -9.81);
        if (c.candidate)
            body.potentialNewParent = ground;
        body.parentBody = c.nearParent ? &groundBody : nullptr;
        body.touchesParent = c.touching;
        body.ApplyToEntity(Step);
        EXPECT_EQ(rover->parentEntity, c.staysOrJoins ? ground->GetID() : game::entity::Id());
        // Leaving, the frame's gravity goes with the parent.
        EXPECT_EQ(body.gravity.z, c.onParent && !c.staysOrJoins ? 0.0 : -9.81);
    }
}

using RigidbodyApplyToEntityDeathTest = RigidbodyTest;

TEST_F(RigidbodyApplyToEntityDeathTest, PresentParentAsCandidateAborts)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ServerSideEntity::Ptr ground = Ground();
    ServerSideEntity::Ptr rover = Cube({0.0, 0.0, 0.5});
    ground->AddChild(rover);
    Dynamic body(rover, Step);
    body.potentialNewParent = ground;
    EXPECT_DEATH(body.ApplyToEntity(Step),
                 "ASSERTION FAILED: \\(potentialNewParent->GetID\\(\\) != entity->parentEntity\\)");
}

} // namespace
