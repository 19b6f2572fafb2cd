// Rigid body records: construction from entities, integration, impulses,
// collision response, contact bookkeeping, the contact search over the
// broadphase lists and the write-back with its parent decisions.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <glm/glm.hpp>
#include <glm/gtc/matrix_transform.hpp>
#include <glm/gtc/quaternion.hpp>

#include "game/Game.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "game/physics/Collision.hpp"
#include "game/physics/Rigidbody.hpp"
#include "nerox/modular/ModuleID.hpp"

using game::entity::ConvexMeshCollider;
using game::entity::Id;
using game::entity::ServerSideEntity;
using game::physics::Collision;
using Body = game::physics::Rigidbody<ServerSideEntity>;
using Dynamic = game::physics::DynamicRigidbody<ServerSideEntity>;

namespace {

constexpr double Step = 1.0 / 60.0;

ConvexMeshCollider Box(glm::dvec3 const& size, glm::dvec3 const& center = glm::dvec3(0.0))
{
    ConvexMeshCollider collider = ConvexMeshCollider::Box(glm::vec3(-size * 0.5), glm::vec3(size * 0.5));
    collider.transform = glm::translate(glm::dmat4(1.0), center);
    return collider;
}

glm::dquat Turn(double degrees, glm::dvec3 const& axis)
{
    return glm::angleAxis(glm::radians(degrees), glm::normalize(axis));
}

void ExpectVec3(glm::dvec3 const& actual, glm::dvec3 const& expected, double tolerance = 1e-9)
{
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(actual[i], expected[i], tolerance) << "component " << i;
}

void ExpectMat3(glm::dmat3 const& actual, glm::dmat3 const& expected, double tolerance = 1e-9)
{
    for (int column = 0; column < 3; ++column)
        for (int row = 0; row < 3; ++row)
            EXPECT_NEAR(actual[column][row], expected[column][row], tolerance) << "[" << column << "][" << row << "]";
}

/// Bare entities built by hand, removed after each test.
class RigidbodyTest : public ::testing::Test {
protected:
    void TearDown() override
    {
        ServerSideEntity::DestroyAll();
        ::Game::debugServerSidePhysics = false;
    }

    /// An entity of no registered type with the given colliders, its bounds
    /// and centre of mass taken from them.
    static ServerSideEntity::Ptr Make(double mass, std::vector<std::pair<std::string, ConvexMeshCollider>> colliders,
                                      glm::dvec3 const& position = glm::dvec3(0.0))
    {
        ServerSideEntity::Ptr entity =
            game::entity::Create<ServerSideEntity>(nerox::modular::ModuleID(), std::string("x"), Id());
        entity->deleteFilesOnDestroy = false;
        entity->mass = mass;
        entity->position = position;
        entity->isDynamic = true;
        entity->physicsEnabled = true;
        for (auto& [name, collider] : colliders)
            entity->colliders[name] = std::move(collider);
        entity->UpdateBoundingBox(true);
        return entity;
    }

    /// A unit cube of 1 kg.
    static ServerSideEntity::Ptr Cube(glm::dvec3 const& position = glm::dvec3(0.0))
    {
        return Make(1.0, {{"box", Box(glm::dvec3(1.0))}}, position);
    }

    /// A 10 m by 10 m slab whose top is at z = 0.
    static ServerSideEntity::Ptr Ground() { return Make(0.0, {{"slab", Box({10.0, 10.0, 1.0}, {0.0, 0.0, -0.5})}}); }

    /// Velocity of the body's material at a point relative to its position.
    static glm::dvec3 PointVelocity(Dynamic const& body, glm::dvec3 const& relative)
    {
        return body.linearVelocity + glm::cross(body.angularVelocity, relative);
    }
};

// ---------------------------------------------------------------------------
// Construction

using RigidbodyConstruction = RigidbodyTest;

TEST_F(RigidbodyConstruction, BodySpaceIsCentredOnTheCentreOfMass)
{
    ConvexMeshCollider hollow = Box({1.0, 1.0, 1.0}, {3.0, 0.0, 0.0});
    hollow.fill = 0.5;
    ConvexMeshCollider off = Box({1.0, 1.0, 1.0}, {-3.0, 0.0, 0.0});
    off.enabled = false;
    ServerSideEntity::Ptr entity =
        Make(2.0, {{"main", Box({2.0, 1.0, 1.0}, {1.0, 0.0, 0.0})}, {"hollow", hollow}, {"off", off}}, {1.0, 2.0, 3.0});
    entity->orientation = Turn(90.0, {0, 0, 1});
    glm::dvec3 const com = entity->centerOfMass; // (0, 0, 0) from the bounds -3.5 .. 3.5
    entity->centerOfMass = glm::dvec3(0.5, 0.0, 0.0);
    // Moved after the bounds were taken: the record grows its bounds to it.
    entity->colliders["hollow"].transform = glm::translate(glm::dmat4(1.0), glm::dvec3(3.0, 0.0, 2.0));

    Body const body(entity);
    ASSERT_EQ(com, glm::dvec3(0.0));
    ExpectVec3(body.position, glm::dvec3(1.0, 2.5, 3.0));
    EXPECT_EQ(body.id, entity->GetID());
    EXPECT_EQ(body.entity.lock(), entity);
    ASSERT_EQ(body.colliders.size(), 2u); // the disabled one stays out
    for (ConvexMeshCollider const& collider : body.colliders) {
        glm::dvec3 const expected = collider.fill == 1.0 ? glm::dvec3(0.5, 0.0, 0.0) : glm::dvec3(2.5, 0.0, 2.0);
        ExpectVec3(glm::dvec3(collider.transform[3]), expected);
    }
    EXPECT_DOUBLE_EQ(body.volume, 2.0 + 0.5);
    ExpectVec3(body.boundsMin, glm::dvec3(-4.0, -0.5, -0.5));
    ExpectVec3(body.boundsMax, glm::dvec3(3.0, 0.5, 2.5));
    ExpectVec3(body.boundsCenter, glm::dvec3(-0.5, 0.0, 1.0));
    EXPECT_NEAR(body.radius, 0.5 * std::sqrt(49.0 + 1.0 + 9.0), 1e-12);
    ExpectVec3(body.boundsWorldCenter, body.position + glm::dvec3(0.0, -0.5, 1.0));
    glm::dmat4 const transform = body.GetTransform();
    ExpectVec3(glm::dvec3(transform * glm::dvec4(1.0, 0.0, 0.0, 1.0)), body.position + glm::dvec3(0.0, 1.0, 0.0));
}

TEST_F(RigidbodyConstruction, DynamicBodyCopiesMotionAndTurnsImpulsesIntoAccelerations)
{
    ServerSideEntity::Ptr entity = Make(2.0, {{"box", Box({1.0, 2.0, 3.0})}});
    entity->orientation = Turn(30.0, {1, 2, 3});
    entity->linearVelocity = glm::dvec3(3.0, 4.0, 0.0);
    entity->angularVelocity = glm::dvec3(0.1, 0.2, 0.3);
    entity->linearImpulse = glm::dvec3(1.0, 0.0, 0.0);
    entity->angularImpulse = glm::dvec3(0.0, 0.0, 0.5);
    entity->pendingAcceleration = glm::dvec3(0.0, 0.0, 2.0);
    entity->aerodynamic = false;
    Id const excluded = Id::Generate();
    entity->collisionExclusions.insert(excluded);

    Dynamic const body(entity, 0.1);
    EXPECT_DOUBLE_EQ(body.invMass, 0.5);
    ExpectMat3(body.invInertiaWorld, glm::inverse(entity->GetInertiaTensorWorld()));
    ExpectVec3(body.linearVelocity, entity->linearVelocity, 0.0);
    ExpectVec3(body.angularVelocity, entity->angularVelocity, 0.0);
    ExpectVec3(body.pendingAcceleration, entity->pendingAcceleration, 0.0);
    EXPECT_FALSE(body.aerodynamic);
    EXPECT_EQ(body.collisionExclusions.count(excluded), 1u);
    ExpectVec3(body.impulseAcceleration, glm::dvec3(5.0, 0.0, 0.0));
    ExpectVec3(body.angularImpulseAcceleration, body.invInertiaWorld * glm::dvec3(0.0, 0.0, 5.0));
    EXPECT_DOUBLE_EQ(body.largestContactRadius, body.radius);
    EXPECT_NEAR(body.sweptRadius, 5.0 * 0.1 * 0.5 + body.radius, 1e-12);
    EXPECT_EQ(body.contactRest, 0.0);
    EXPECT_EQ(body.parentBody, nullptr);
}

using RigidbodyConstructionDeathTest = RigidbodyTest;

TEST_F(RigidbodyConstructionDeathTest, ZeroExtentZeroStepAndZeroMassAbort)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ServerSideEntity::Ptr flat = Make(1.0, {{"plate", Box({1.0, 0.0, 1.0})}});
    EXPECT_DEATH({ Dynamic body(flat, Step); }, "ASSERTION FAILED: \\(box_size\\.y > 0\\.0\\)");
    ServerSideEntity::Ptr cube = Cube();
    EXPECT_DEATH({ Dynamic body(cube, 0.0); }, "ASSERTION FAILED: \\(deltaTime > 0\\)");
    cube->mass = 0.0;
    EXPECT_DEATH({ Dynamic body(cube, Step); }, "ASSERTION FAILED: \\(mass > 0\\)");
    // A static record needs neither.
    Body const still(flat);
    EXPECT_EQ(still.colliders.size(), 1u);
}

// ---------------------------------------------------------------------------
// Motion

using RigidbodyMotion = RigidbodyTest;

TEST_F(RigidbodyMotion, VelocitiesStayExactWithoutAcceleration)
{
    ServerSideEntity::Ptr entity = Cube({1.0, 2.0, 3.0});
    entity->linearVelocity = glm::dvec3(1.5, -2.0, 0.25);
    entity->angularVelocity = glm::dvec3(0.3, 0.2, -0.1);
    Dynamic body(entity, Step);
    for (int i = 0; i < 10; ++i)
        body.IntegrateMotion(Step);
    EXPECT_EQ(body.linearVelocity, glm::dvec3(1.5, -2.0, 0.25));
    EXPECT_EQ(body.angularVelocity, glm::dvec3(0.3, 0.2, -0.1));
    ExpectVec3(body.position, glm::dvec3(1.0, 2.0, 3.0) + 10.0 * Step * glm::dvec3(1.5, -2.0, 0.25));
    EXPECT_NEAR(glm::length(body.orientation), 1.0, 1e-12);
}

TEST_F(RigidbodyMotion, ImpulseOfOneNewtonSecondOnOneKilogramAddsOneMetrePerSecond)
{
    ServerSideEntity::Ptr entity = Cube();
    entity->linearImpulse = glm::dvec3(1.0, 0.0, 0.0);
    Dynamic whole(entity, Step);
    whole.IntegrateMotion(Step);
    ExpectVec3(whole.linearVelocity, glm::dvec3(1.0, 0.0, 0.0), 1e-12);

    // Spread over substeps of the same frame it adds up the same.
    Dynamic halves(entity, Step);
    halves.IntegrateMotion(Step / 2.0);
    halves.IntegrateMotion(Step / 2.0);
    ExpectVec3(halves.linearVelocity, glm::dvec3(1.0, 0.0, 0.0), 1e-12);
    ExpectVec3(halves.position, whole.position, 1e-12);
}

TEST_F(RigidbodyMotion, PositionTakesTheHalfStepUnderGravity)
{
    ServerSideEntity::Ptr entity = Cube({0.0, 0.0, 10.0});
    entity->linearVelocity = glm::dvec3(1.0, 0.0, 0.0);
    Dynamic body(entity, 0.1);
    body.gravity = glm::dvec3(0.0, 0.0, -9.81);
    body.pendingAcceleration = glm::dvec3(0.0, 2.0, 0.0);
    body.IntegrateMotion(0.1);
    ExpectVec3(body.position, glm::dvec3(0.1, 0.5 * 2.0 * 0.01, 10.0 - 0.5 * 9.81 * 0.01), 1e-12);
    ExpectVec3(body.linearVelocity, glm::dvec3(1.0, 0.2, -0.981), 1e-12);
}

TEST_F(RigidbodyMotion, SpinIsAboutTheWorldAxis)
{
    ServerSideEntity::Ptr entity = Cube();
    entity->orientation = Turn(90.0, {1, 0, 0});
    entity->angularVelocity = glm::dvec3(0.0, 0.0, 1.0);
    Dynamic body(entity, 0.001);
    for (int i = 0; i < 1000; ++i)
        body.IntegrateMotion(0.001);
    // One radian about world z after the quarter turn about x.
    glm::dquat const expected = glm::angleAxis(1.0, glm::dvec3(0.0, 0.0, 1.0)) * Turn(90.0, {1, 0, 0});
    for (glm::dvec3 const& axis : {glm::dvec3(1, 0, 0), glm::dvec3(0, 1, 0), glm::dvec3(0, 0, 1)})
        ExpectVec3(body.orientation * axis, expected * axis, 1e-5);
}

TEST_F(RigidbodyMotion, ImpulseOffTheCentreSpinsAndWakes)
{
    ServerSideEntity::Ptr entity = Cube();
    Dynamic body(entity, Step);
    body.contactRest = 1.0;
    body.ApplyImpulse(glm::dvec3(0.0, 1.0, 0.0), glm::dvec3(1.0, 0.0, 0.0));
    EXPECT_EQ(body.contactRest, 0.0);
    ExpectVec3(body.linearVelocity, glm::dvec3(0.0, 1.0, 0.0));
    // A unit cube of 1 kg has I = 1/6 about each axis.
    ExpectVec3(body.angularVelocity, glm::dvec3(0.0, 0.0, 6.0), 1e-9);
}

// ---------------------------------------------------------------------------
// Collision response

using RigidbodyResponse = RigidbodyTest;

TEST_F(RigidbodyResponse, StaticContactRemovesTheNormalSpeedWithoutBounce)
{
    ServerSideEntity::Ptr entity = Cube({0.0, 0.0, 0.49});
    entity->linearVelocity = glm::dvec3(0.0, 0.0, -3.0);
    Dynamic body(entity, Step);
    Collision hit;
    hit.normal = glm::dvec3(0.0, 0.0, 1.0);
    hit.depth = 0.01;
    hit.point = glm::dvec3(0.0, 0.0, -0.01);
    body.RespondToCollision(hit, 0.0);
    ExpectVec3(body.position, glm::dvec3(0.0, 0.0, 0.5));
    ExpectVec3(body.linearVelocity, glm::dvec3(0.0), 1e-12);
    ExpectVec3(body.angularVelocity, glm::dvec3(0.0), 1e-12);

    // Off the centre the contact point stops along the normal and the body turns.
    Dynamic corner(entity, Step);
    hit.point = glm::dvec3(0.3, 0.2, -0.01);
    glm::dvec3 const r = hit.point - corner.position;
    corner.RespondToCollision(hit, 0.0);
    EXPECT_NEAR(glm::dot(PointVelocity(corner, r), hit.normal), 0.0, 1e-12);
    EXPECT_GT(glm::length(corner.angularVelocity), 0.1);
}

TEST_F(RigidbodyResponse, FrictionTakesItsShareOfTheSlidingSpeed)
{
    ServerSideEntity::Ptr entity = Cube({0.0, 0.0, 0.5});
    entity->linearVelocity = glm::dvec3(2.0, 0.0, 0.0);
    Collision hit;
    hit.normal = glm::dvec3(0.0, 0.0, 1.0);
    hit.depth = 0.0;
    hit.point = glm::dvec3(0.0, 0.0, 0.0);
    glm::dvec3 const r(0.0, 0.0, -0.5);

    Dynamic rough(entity, Step);
    rough.RespondToCollision(hit, 0.5);
    ExpectVec3(PointVelocity(rough, r), glm::dvec3(1.0, 0.0, 0.0), 1e-12);

    Dynamic smooth(entity, Step);
    smooth.RespondToCollision(hit, 0.0);
    ExpectVec3(smooth.linearVelocity, glm::dvec3(2.0, 0.0, 0.0), 1e-12);
    ExpectVec3(smooth.angularVelocity, glm::dvec3(0.0), 1e-12);
}

TEST_F(RigidbodyResponse, TwoBodiesShareThePushAndKeepTheirMomentum)
{
    ServerSideEntity::Ptr left = Cube({0.0, 0.0, 0.0});
    left->linearVelocity = glm::dvec3(1.0, 0.5, 0.0);
    ServerSideEntity::Ptr right = Make(3.0, {{"box", Box(glm::dvec3(1.0))}}, {0.95, 0.0, 0.0});
    right->linearVelocity = glm::dvec3(-1.0, 0.0, 0.0);
    Dynamic a(left, Step);
    Dynamic b(right, Step);
    Collision hit;
    hit.normal = glm::dvec3(-1.0, 0.0, 0.0); // from b towards a
    hit.depth = 0.04;
    hit.point = glm::dvec3(0.475, 0.0, 0.0);
    glm::dvec3 const momentum = a.linearVelocity / a.invMass + b.linearVelocity / b.invMass;

    Dynamic::RespondToCollision(&a, &b, hit, 0.2);
    // The lighter body moves three quarters of the way.
    ExpectVec3(a.position, glm::dvec3(-0.03, 0.0, 0.0));
    ExpectVec3(b.position, glm::dvec3(0.96, 0.0, 0.0));
    ExpectVec3(a.linearVelocity / a.invMass + b.linearVelocity / b.invMass, momentum, 1e-12);
    glm::dvec3 const relative =
        PointVelocity(a, hit.point - a.position) - PointVelocity(b, hit.point - b.position);
    EXPECT_NEAR(relative.x, 0.0, 1e-12);
    // Friction slowed the sliding along y without reversing it.
    EXPECT_GT(relative.y, 0.0);
    EXPECT_LT(relative.y, 0.5);
}

// ---------------------------------------------------------------------------
// Static contacts

using RigidbodyStaticContacts = RigidbodyTest;

TEST_F(RigidbodyStaticContacts, PointsCloserThanATenthOfAMetreMerge)
{
    ServerSideEntity::Ptr entity = Cube({1.0, 1.0, 1.0});
    Dynamic body(entity, Step);
    glm::dvec3 const up(0.0, 0.0, 1.0);
    body.AddStaticContactPoint(up, {1.0, 1.0, 0.5});
    body.AddStaticContactPoint({0.0, 1.0, 0.0}, {1.05, 1.0, 0.5});
    body.AddStaticContactPoint(up, {1.0, 1.05, 0.5});
    body.AddStaticContactPoint(up, {1.0 + 0.0999, 1.0, 0.5});
    ASSERT_EQ(body.staticRelativeContactPoints.size(), 1u);
    ASSERT_EQ(body.staticContactNormals.size(), 1u);
    ExpectVec3(body.staticRelativeContactPoints[0], glm::dvec3(0.0, 0.0, -0.5));
    EXPECT_EQ(body.staticContactNormals[0], up);

    body.AddStaticContactPoint(up, {1.0 + 0.1001, 1.0, 0.5});
    EXPECT_EQ(body.staticRelativeContactPoints.size(), 2u);
    EXPECT_EQ(body.staticContactNormals.size(), 2u);
}

TEST_F(RigidbodyStaticContacts, SupportNeedsThreeContactsAroundTheCentreOfMass)
{
    ServerSideEntity::Ptr entity = Cube();
    Dynamic body(entity, Step);
    glm::dvec3 const up(0.0, 0.0, 1.0);
    glm::dvec3 normal(0.0);
    EXPECT_FALSE(body.GetStaticContact(normal));
    body.AddStaticContactPoint(up, {0.4, 0.0, -0.5});
    body.AddStaticContactPoint(up, {-0.3, -0.3, -0.5});
    EXPECT_FALSE(body.GetStaticContact(normal)); // two never rest

    // Clockwise seen from above: the normal still faces the contacts' way.
    body.AddStaticContactPoint(up, {-0.3, 0.3, -0.5});
    ASSERT_TRUE(body.GetStaticContact(normal));
    ExpectVec3(normal, up, 1e-12);

    // All three on one side of the centre of mass.
    Dynamic aside(entity, Step);
    aside.AddStaticContactPoint(up, {0.4, 0.1, -0.5});
    aside.AddStaticContactPoint(up, {0.45, -0.2, -0.5});
    aside.AddStaticContactPoint(up, {0.2, 0.3, -0.5});
    EXPECT_FALSE(aside.GetStaticContact(normal));

    // Steeper than 45 degrees.
    Dynamic steep(entity, Step);
    glm::dvec3 const tilted = glm::normalize(glm::dvec3(1.0, 0.0, 0.9));
    steep.AddStaticContactPoint(up, {0.4, 0.0, -0.5});
    steep.AddStaticContactPoint(tilted, {-0.3, 0.3, -0.5});
    steep.AddStaticContactPoint(up, {-0.3, -0.3, -0.5});
    EXPECT_FALSE(steep.GetStaticContact(normal));
}

TEST_F(RigidbodyStaticContacts, EarlierContactsCanStillHoldTheBody)
{
    ServerSideEntity::Ptr entity = Cube();
    glm::dvec3 const up(0.0, 0.0, 1.0);
    auto fill = [&](Dynamic& body, glm::dvec3 const& firstNormal) {
        body.AddStaticContactPoint(firstNormal, {-0.4, -0.4, -0.5});
        body.AddStaticContactPoint(up, {0.4, -0.4, -0.5});
        body.AddStaticContactPoint(up, {0.0, 0.4, -0.5});
        // The last three lie on one side.
        body.AddStaticContactPoint(up, {0.3, 0.3, -0.5});
        body.AddStaticContactPoint(up, {0.45, 0.1, -0.5});
        body.AddStaticContactPoint(up, {0.2, 0.45, -0.5});
    };
    glm::dvec3 normal(0.0);
    Dynamic held(entity, Step);
    fill(held, up);
    EXPECT_TRUE(held.GetStaticContact(normal));
    ExpectVec3(normal, up, 1e-12);

    // Every stored normal must face the plane for the earlier ones to count.
    Dynamic slanted(entity, Step);
    fill(slanted, glm::normalize(glm::dvec3(1.0, 0.0, 0.5)));
    EXPECT_FALSE(slanted.GetStaticContact(normal));
}

// ---------------------------------------------------------------------------
// Contact search

using RigidbodyCollisionDetection = RigidbodyTest;

TEST_F(RigidbodyCollisionDetection, FallingBoxLandsAndNominatesTheGround)
{
    ServerSideEntity::Ptr ground = Ground();
    ServerSideEntity::Ptr entity = Cube({0.0, 0.0, 0.49});
    entity->linearVelocity = glm::dvec3(0.0, 0.0, -2.0);
    Body floor(ground);
    Dynamic body(entity, Step);
    body.nearStatics.push_back(&floor);
    ::Game::debugServerSidePhysics = true;

    body.CollisionDetection(Step);
    ExpectVec3(body.position, glm::dvec3(0.0, 0.0, 0.5), 1e-6);
    ExpectVec3(body.linearVelocity, glm::dvec3(0.0), 1e-9);
    // The four lower corners carry the contact.
    ASSERT_EQ(body.staticContactNormals.size(), 4u);
    glm::dvec3 mean(0.0);
    for (size_t i = 0; i < 4; ++i) {
        ExpectVec3(body.staticContactNormals[i], glm::dvec3(0.0, 0.0, 1.0));
        EXPECT_NEAR(body.staticRelativeContactPoints[i].z, -0.5, 1e-6);
        EXPECT_NEAR(std::abs(body.staticRelativeContactPoints[i].x), 0.5, 1e-6);
        EXPECT_NEAR(std::abs(body.staticRelativeContactPoints[i].y), 0.5, 1e-6);
        mean += body.staticRelativeContactPoints[i] * 0.25;
    }
    ExpectVec3(mean, glm::dvec3(0.0, 0.0, -0.5), 1e-6);
    EXPECT_EQ(body.debugLines.size(), 1u);
    // The ground is larger than the box: it may take it in.
    EXPECT_EQ(body.potentialNewParent.lock(), ground);
    EXPECT_DOUBLE_EQ(body.largestContactRadius, floor.radius);
    EXPECT_FALSE(body.touchesParent);
    EXPECT_EQ(body.contactRest, 1.0); // stopped and held by four corners around its centre
    EXPECT_DOUBLE_EQ(body.restingLimit, 0.2);
}

TEST_F(RigidbodyCollisionDetection, TwoDefaultCollidersRubWithFourPercent)
{
    ServerSideEntity::Ptr ground = Ground();
    ServerSideEntity::Ptr entity = Cube({0.0, 0.0, 0.49});
    entity->linearVelocity = glm::dvec3(1.0, 0.0, 0.0);
    Body floor(ground);
    Dynamic body(entity, Step);
    body.nearStatics.push_back(&floor);
    body.CollisionDetection(Step);
    glm::dvec3 r(0.0); // the contact point is the middle of the four corners
    for (glm::dvec3 const& corner : body.staticRelativeContactPoints)
        r += corner / static_cast<double>(body.staticRelativeContactPoints.size());
    // The contact lies below the centre: its sliding speed keeps 96 percent.
    ExpectVec3(PointVelocity(body, r), glm::dvec3(0.96, 0.0, 0.0), 1e-6);
}

TEST_F(RigidbodyCollisionDetection, SparseCollidersStandForTheirSubColliders)
{
    auto run = [&](double fill, glm::dvec3 const& childCenter) {
        ServerSideEntity::Ptr ground = Ground();
        // Centre of mass at the entity's origin: the slab sits 0.5 below it in body space too.
        ground->centerOfMass = glm::dvec3(0.0);
        ConvexMeshCollider& slab = ground->colliders["slab"];
        slab.fill = fill;
        // The child is placed relative to the slab, which sits 0.5 below the entity.
        slab.subColliders->push_back(Box({1.0, 1.0, 1.0}, childCenter));
        ConvexMeshCollider empty = Box({1.0, 1.0, 1.0});
        empty.verticesCount = 0; // nothing to test: skipped
        slab.subColliders->push_back(empty);
        ServerSideEntity::Ptr entity = Cube({0.0, 0.0, 0.49});
        Body floor(ground);
        Dynamic body(entity, Step);
        body.nearStatics.push_back(&floor);
        body.CollisionDetection(Step);
        return std::make_pair(body.staticContactNormals.size(), body.position.z);
    };
    // The only child lies in a far corner: the box above the slab's middle touches nothing.
    EXPECT_EQ(run(0.5, {4.0, 4.0, 0.0}).first, 0u);
    // At 0.95 the slab is solid and its children do not matter.
    auto const solid = run(0.95, {4.0, 4.0, 0.0});
    EXPECT_EQ(solid.first, 4u);
    EXPECT_NEAR(solid.second, 0.5, 1e-6);
    // A child under the box: its top is at z = 0 only with the slab's placement added.
    auto const child = run(0.5, {0.0, 0.0, 0.0});
    EXPECT_EQ(child.first, 4u);
    EXPECT_NEAR(child.second, 0.5, 1e-6);
}

TEST_F(RigidbodyCollisionDetection, BoxOnThreePadsComesToRestAndThenSkipsTheStaticWorld)
{
    ServerSideEntity::Ptr pads = Make(0.0, {{"a", Box(glm::dvec3(0.2), {0.35, 0.0, -0.1})},
                                            {"b", Box(glm::dvec3(0.2), {-0.3, 0.3, -0.1})},
                                            {"c", Box(glm::dvec3(0.2), {-0.3, -0.3, -0.1})}});
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
    EXPECT_EQ(body.staticContactNormals.size(), 12u);

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
    ServerSideEntity::Ptr parent = Make(0.0, {{"deck", Box({4.0, 4.0, 1.0}, {5.0, 0.0, -0.5})}});
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
    std::vector<std::pair<char, glm::dvec3>> calls;
    std::vector<void*> bodies;
    auto logger = [&](char tag) {
        return [&calls, &bodies, tag](void* body, ConvexMeshCollider&, ConvexMeshCollider&, Collision& collision,
                                      double) {
            calls.emplace_back(tag, collision.normal);
            bodies.push_back(body);
            return true;
        };
    };
    ConvexMeshCollider left = Box(glm::dvec3(1.0));
    left.onContact = logger('C');
    ConvexMeshCollider right = Box(glm::dvec3(1.0));
    right.onContact = logger('D');
    ServerSideEntity::Ptr first = Make(1.0, {{"box", left}}, {0.0, 0.0, 0.0});
    first->linearVelocity = glm::dvec3(1.0, 0.0, 0.0);
    ServerSideEntity::Ptr second = Make(1.0, {{"box", right}}, {0.95, 0.0, 0.0});
    second->linearVelocity = glm::dvec3(-1.0, 0.0, 0.0);
    Dynamic a(first, Step);
    Dynamic b(second, Step);
    a.nearDynamics.push_back(&b);

    a.CollisionDetection(Step);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].first, 'D');
    ExpectVec3(calls[0].second, glm::dvec3(1.0, 0.0, 0.0));
    EXPECT_EQ(bodies[0], &b);
    EXPECT_EQ(calls[1].first, 'C');
    ExpectVec3(calls[1].second, glm::dvec3(-1.0, 0.0, 0.0));
    EXPECT_EQ(bodies[1], &a);
    EXPECT_NEAR(a.linearVelocity.x, 0.0, 1e-9);
    EXPECT_NEAR(b.linearVelocity.x, 0.0, 1e-9);
    EXPECT_NEAR(b.position.x - a.position.x, 1.0, 1e-6);
}

// ---------------------------------------------------------------------------
// Write-back

using RigidbodyApplyToEntity = RigidbodyTest;

TEST_F(RigidbodyApplyToEntity, WritesTheMotionBackAndClearsTheGatheredImpulses)
{
    ServerSideEntity::Ptr entity = Make(1.0, {{"box", Box(glm::dvec3(1.0), {1.0, 0.0, 0.0})}});
    entity->orientation = Turn(90.0, {0, 0, 1});
    entity->linearImpulse = glm::dvec3(0.6, 0.0, 0.0);
    entity->angularImpulse = glm::dvec3(0.0, 0.0, 0.1);
    entity->pendingAcceleration = glm::dvec3(0.0, 0.0, 1.0);
    entity->restTime = 0.25;
    entity->settled = true;
    Dynamic body(entity, Step);
    body.position = glm::dvec3(2.0, 3.0, 4.0);
    body.linearVelocity = glm::dvec3(0.6, 0.0, 0.0);
    body.angularVelocity = glm::dvec3(0.0, 0.0, 0.5);
    body.contactRest = 1.0;

    body.ApplyToEntity(Step);
    // The centre of mass sits 1 m along the entity's x, which is turned onto y.
    ExpectVec3(entity->position, glm::dvec3(2.0, 2.0, 4.0));
    ExpectVec3(entity->linearVelocity, body.linearVelocity, 0.0);
    ExpectVec3(entity->angularVelocity, body.angularVelocity, 0.0);
    EXPECT_EQ(entity->linearImpulse, glm::dvec3(0.0));
    EXPECT_EQ(entity->angularImpulse, glm::dvec3(0.0));
    EXPECT_EQ(entity->pendingAcceleration, glm::dvec3(0.0));
    EXPECT_DOUBLE_EQ(entity->restTime, 1.25);
    EXPECT_FALSE(entity->settled);
    // Felt: pending (0, 0, 1) minus the gained 0.6 m/s over the step along
    // world x, seen in the entity's frame, a tenth of it.
    glm::dvec3 const world(-0.6 / Step, 0.0, 1.0);
    ExpectVec3(entity->feltAcceleration, 0.1 * (glm::inverse(entity->orientation) * world), 1e-9);

    // Gone entities are left alone.
    entity.reset();
    ServerSideEntity::DestroyAll();
    body.ApplyToEntity(Step);
}

TEST_F(RigidbodyApplyToEntity, ParentDecisionsFollowTheSpeed)
{
    auto fresh = [](ServerSideEntity::Ptr& entity, double speed) {
        entity->linearVelocity = glm::dvec3(speed, 0.0, 0.0);
        return Dynamic(entity, Step);
    };
    ServerSideEntity::Ptr ground = Ground();
    ServerSideEntity::Ptr rover = Cube({0.0, 0.0, 0.5});

    // A candidate parent: joins below 5 m/s only.
    Dynamic fast = fresh(rover, 7.0);
    fast.potentialNewParent = ground;
    fast.ApplyToEntity(Step);
    EXPECT_FALSE(rover->parentEntity.IsSet());
    Dynamic slow = fresh(rover, 3.0);
    slow.potentialNewParent = ground;
    slow.ApplyToEntity(Step);
    EXPECT_EQ(rover->parentEntity, ground->GetID());

    // On a parent it is near: stays up to 10 m/s, leaves above.
    Body groundBody(ground);
    Dynamic cruising = fresh(rover, 7.0);
    cruising.parentBody = &groundBody;
    cruising.ApplyToEntity(Step);
    EXPECT_EQ(rover->parentEntity, ground->GetID());
    Dynamic racing = fresh(rover, 12.0);
    racing.parentBody = &groundBody;
    racing.gravity = glm::dvec3(0.0, 0.0, -9.81);
    racing.ApplyToEntity(Step);
    EXPECT_FALSE(rover->parentEntity.IsSet());
    EXPECT_EQ(racing.gravity, glm::dvec3(0.0));

    // Far from its parent and touching nothing: leaves at any speed, unless touching it.
    ground->AddChild(rover);
    Dynamic touching = fresh(rover, 7.0);
    touching.touchesParent = true;
    touching.ApplyToEntity(Step);
    EXPECT_EQ(rover->parentEntity, ground->GetID());
    Dynamic adrift = fresh(rover, 0.0);
    adrift.ApplyToEntity(Step);
    EXPECT_FALSE(rover->parentEntity.IsSet());
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
