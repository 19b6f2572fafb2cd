// Collision primitives: projection, the separating-axis test between convex
// colliders, the cheap oriented box test and the ray-box slab test.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>

#include <glm/glm.hpp>
#include <glm/gtc/matrix_transform.hpp>
#include <glm/gtc/quaternion.hpp>

#include "game/entity/ConvexMeshCollider.hpp"
#include "game/physics/Collision.hpp"

using game::entity::ConvexMeshCollider;
using game::physics::Collision;
using game::physics::ConvexCollision;
using game::physics::PotentialBoxBoxIntersection;
using game::physics::ProjectOntoAxis;
using game::physics::RayBoxIntersection;

namespace {

/// A box collider as the description reader builds it: corners in binary
/// order (bit 2 x, bit 1 y, bit 0 z), three normals.
ConvexMeshCollider Box(glm::dvec3 const& size, glm::dmat4 const& transform = glm::dmat4(1.0))
{
    ConvexMeshCollider collider = ConvexMeshCollider::Box(glm::vec3(-size * 0.5), glm::vec3(size * 0.5));
    collider.transform = transform;
    return collider;
}

ConvexMeshCollider UnitBoxAt(glm::dvec3 const& position)
{
    return Box(glm::dvec3(1.0), glm::translate(glm::dmat4(1.0), position));
}

glm::dmat4 Place(glm::dvec3 const& position, double degrees, glm::dvec3 const& axis)
{
    return glm::translate(glm::dmat4(1.0), position) *
           glm::mat4_cast(glm::angleAxis(glm::radians(degrees), glm::normalize(axis)));
}

void ExpectVec3(glm::dvec3 const& actual, glm::dvec3 const& expected, double tolerance = 1e-9)
{
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(actual[i], expected[i], tolerance) << "component " << i;
}

void ExpectNoContact(Collision const& collision)
{
    EXPECT_EQ(collision.depth, 0.0);
    EXPECT_EQ(collision.normal, glm::dvec3(0.0));
    EXPECT_EQ(collision.point, glm::dvec3(0.0));
}

/// Two unit boxes whose edges cross: a is turned 45 degrees about z, b turned
/// so that its local z edges run along world x and its section is a diamond.
/// The only separating direction is world y, the cross of a z edge of a with
/// a z edge of b; no face normal separates them.
struct CrossingEdges {
    ConvexMeshCollider a;
    ConvexMeshCollider b;
    explicit CrossingEdges(double distance)
        : a(Box(glm::dvec3(1.0), Place(glm::dvec3(0.0), 45.0, {0, 0, 1}))),
          b(Box(glm::dvec3(1.0), glm::translate(glm::dmat4(1.0), glm::dvec3(0.0, distance, 0.0)) *
                                     glm::mat4_cast(glm::angleAxis(glm::radians(45.0), glm::dvec3(1, 0, 0)) *
                                                    glm::angleAxis(glm::radians(90.0), glm::dvec3(0, 1, 0)))))
    {
    }
};

} // namespace

// ---------------------------------------------------------------------------
// ProjectOntoAxis

TEST(ProjectOntoAxis, EmptyColliderGivesTheInvertedLimits)
{
    ConvexMeshCollider empty;
    auto const [low, high] = ProjectOntoAxis(empty, glm::dvec3(1.0, 0.0, 0.0));
    EXPECT_EQ(low, DBL_MAX);
    EXPECT_EQ(high, -DBL_MAX);
}

TEST(ProjectOntoAxis, VerticesArePlacedByTheTransformFirst)
{
    ConvexMeshCollider box = Box(glm::dvec3(2.0, 1.0, 1.0), Place({3.0, 0.0, 0.0}, 90.0, {0, 0, 1}));
    // Turned a quarter about z: the long side lies along y.
    auto const [lowX, highX] = ProjectOntoAxis(box, glm::dvec3(1.0, 0.0, 0.0));
    EXPECT_NEAR(lowX, 2.5, 1e-12);
    EXPECT_NEAR(highX, 3.5, 1e-12);
    auto const [lowY, highY] = ProjectOntoAxis(box, glm::dvec3(0.0, 1.0, 0.0));
    EXPECT_NEAR(lowY, -1.0, 1e-12);
    EXPECT_NEAR(highY, 1.0, 1e-12);
}

// ---------------------------------------------------------------------------
// ConvexCollision

TEST(ConvexCollision, BoxesTouchingWithZeroOverlapDoNotCollide)
{
    ExpectNoContact(ConvexCollision(UnitBoxAt({0.0, 0.0, 0.0}), UnitBoxAt({1.0, 0.0, 0.0})));
    ExpectNoContact(ConvexCollision(UnitBoxAt({0.0, 0.0, 0.0}), UnitBoxAt({0.0, 0.0, -1.0})));
}

TEST(ConvexCollision, CentreDistanceBeyondTheRadiiEndsTheTestFirst)
{
    // The boxes overlap, but the radii claim the spheres are apart.
    ConvexMeshCollider a = UnitBoxAt({0.0, 0.0, 0.0});
    ConvexMeshCollider b = UnitBoxAt({0.5, 0.0, 0.0});
    a.radius = 0.2;
    b.radius = 0.2;
    ExpectNoContact(ConvexCollision(a, b));
    // A distance equal to the sum does not exceed it: the axes decide.
    a.radius = 0.25;
    b.radius = 0.25;
    EXPECT_NEAR(ConvexCollision(a, b).depth, 0.5, 1e-12);
}

TEST(ConvexCollision, NormalPointsFromTheSecondTowardsTheFirstWithTheSmallestOverlap)
{
    Collision const ab = ConvexCollision(UnitBoxAt({0.9, 0.05, 0.0}), UnitBoxAt({0.0, 0.0, 0.0}));
    ExpectVec3(ab.normal, {1.0, 0.0, 0.0});
    EXPECT_NEAR(ab.depth, 0.1, 1e-9);

    Collision const ba = ConvexCollision(UnitBoxAt({0.0, 0.0, 0.0}), UnitBoxAt({0.9, 0.05, 0.0}));
    ExpectVec3(ba.normal, {-1.0, 0.0, 0.0});
    EXPECT_NEAR(ba.depth, 0.1, 1e-9);
}

TEST(ConvexCollision, PointAveragesTheDeepestVerticesOfTheSmallerCollider)
{
    ConvexMeshCollider const small = Box(glm::dvec3(0.5), glm::translate(glm::dmat4(1.0), glm::dvec3(0.3, 0.2, 0.7)));
    ConvexMeshCollider const large = UnitBoxAt({0.0, 0.0, 0.0});

    // The small box sinks 0.05 into the top face: its bottom face is the contact.
    Collision const onTop = ConvexCollision(small, large);
    ExpectVec3(onTop.normal, {0.0, 0.0, 1.0});
    EXPECT_NEAR(onTop.depth, 0.05, 1e-6);
    ExpectVec3(onTop.point, {0.3, 0.2, 0.45}, 1e-6);

    // The same when the small one is second.
    Collision const below = ConvexCollision(large, small);
    ExpectVec3(below.normal, {0.0, 0.0, -1.0});
    ExpectVec3(below.point, {0.3, 0.2, 0.45}, 1e-6);
}

TEST(ConvexCollision, RotatedBoxesUseTheirTurnedNormals)
{
    ConvexMeshCollider const ground = UnitBoxAt({0.0, 0.0, 0.0});

    // Turned about z and sunk 0.05: still a flat face on a flat face.
    Collision const flat = ConvexCollision(Box(glm::dvec3(1.0), Place({0.0, 0.0, 0.95}, 45.0, {0, 0, 1})), ground);
    ExpectVec3(flat.normal, {0.0, 0.0, 1.0});
    EXPECT_NEAR(flat.depth, 0.05, 1e-6);

    // Turned about x: it stands on an edge, whose two end points average to
    // the middle of the edge.
    double const height = 1.2;
    Collision const edge = ConvexCollision(Box(glm::dvec3(1.0), Place({0.0, 0.0, height}, 45.0, {1, 0, 0})), ground);
    ExpectVec3(edge.normal, {0.0, 0.0, 1.0});
    EXPECT_NEAR(edge.depth, 0.5 - (height - std::sqrt(0.5)), 1e-6);
    ExpectVec3(edge.point, {0.0, 0.0, height - std::sqrt(0.5)}, 1e-6);

    // Turned about x and lifted clear of the ground: a face normal of the
    // turned box or of the ground separates them.
    ExpectNoContact(ConvexCollision(Box(glm::dvec3(1.0), Place({0.0, 0.0, 1.3}, 45.0, {1, 0, 0})), ground));
}

TEST(ConvexCollision, ExactEdgesFindTheEdgeAxisThatFaceAxesMiss)
{
    // Apart along y by a little: face axes alone see an overlap.
    CrossingEdges apart(1.45);
    EXPECT_GT(ConvexCollision(apart.a, apart.b).depth, 0.2);
    apart.a.exactEdges = true;
    ExpectNoContact(ConvexCollision(apart.a, apart.b));
    // Only the first collider's flag asks for the edge axes.
    apart.a.exactEdges = false;
    apart.b.exactEdges = true;
    EXPECT_GT(ConvexCollision(apart.a, apart.b).depth, 0.2);

    // Crossing: the edge axis gives the shallow contact, along -y from b to a.
    CrossingEdges crossing(1.4);
    crossing.a.exactEdges = true;
    Collision const contact = ConvexCollision(crossing.a, crossing.b);
    EXPECT_NEAR(contact.depth, 2.0 * std::sqrt(0.5) - 1.4, 1e-6);
    ExpectVec3(contact.normal, {0.0, -1.0, 0.0}, 1e-6);
}

// ---------------------------------------------------------------------------
// PotentialBoxBoxIntersection

TEST(PotentialBoxBoxIntersection, SeparatedBoxesAreRejectedAndTouchingOnesKept)
{
    glm::dvec3 const low(-0.5);
    glm::dvec3 const high(0.5);
    glm::dmat4 const origin(1.0);
    EXPECT_FALSE(PotentialBoxBoxIntersection(origin, glm::translate(origin, glm::dvec3(1.01, 0, 0)), low, high, low,
                                             high, false, false));
    EXPECT_TRUE(PotentialBoxBoxIntersection(origin, glm::translate(origin, glm::dvec3(1.0, 0, 0)), low, high, low,
                                            high, false, false));
    EXPECT_TRUE(PotentialBoxBoxIntersection(origin, glm::translate(origin, glm::dvec3(0.7, 0.7, 0.7)), low, high,
                                            low, high, false, false));
    // Boxes off centre in their own space: a spans 1..3 on x.
    EXPECT_FALSE(PotentialBoxBoxIntersection(origin, origin, glm::dvec3(1, -1, -1), glm::dvec3(3, 1, 1), low, high,
                                             false, false));
    // A turned box reaches further along the diagonal: its corner reaches 0.5 * sqrt(2) along x.
    EXPECT_TRUE(PotentialBoxBoxIntersection(Place({1.2, 0, 0}, 45.0, {0, 0, 1}), origin, low, high, low, high, false,
                                            false));
    EXPECT_FALSE(PotentialBoxBoxIntersection(Place({1.25, 0, 0}, 45.0, {0, 0, 1}), origin, low, high, low, high,
                                             false, false));
}

TEST(PotentialBoxBoxIntersection, EdgeAxesOnlyWhenAskedFor)
{
    CrossingEdges apart(1.45);
    EXPECT_TRUE(PotentialBoxBoxIntersection(apart.a, apart.b));
    apart.b.exactEdges = true;
    EXPECT_FALSE(PotentialBoxBoxIntersection(apart.a, apart.b));
    CrossingEdges crossing(1.4);
    crossing.a.exactEdges = true;
    EXPECT_TRUE(PotentialBoxBoxIntersection(crossing.a, crossing.b));
}

// ---------------------------------------------------------------------------
// RayBoxIntersection

TEST(RayBoxIntersection, HitsMissesAndParallelRays)
{
    glm::dvec3 const low(-1.0);
    glm::dvec3 const high(1.0);
    EXPECT_TRUE(RayBoxIntersection({-5.0, 0.2, 0.3}, {1.0, 0.0, 0.0}, low, high));
    EXPECT_TRUE(RayBoxIntersection({-5.0, -5.0, 0.0}, {1.0, 1.0, 0.0}, low, high));
    // Pointing away: the box lies behind the origin.
    EXPECT_FALSE(RayBoxIntersection({-5.0, 0.0, 0.0}, {-1.0, 0.0, 0.0}, low, high));
    // Passing beside it.
    EXPECT_FALSE(RayBoxIntersection({-5.0, 0.0, 0.0}, {1.0, 1.0, 0.0}, low, high));
    // Parallel to the y and z slabs: inside them it hits, outside it misses.
    EXPECT_TRUE(RayBoxIntersection({-5.0, 0.99, -0.99}, {2.0, 0.0, 0.0}, low, high));
    EXPECT_FALSE(RayBoxIntersection({-5.0, 1.01, 0.0}, {2.0, 0.0, 0.0}, low, high));
    // Starting inside hits whatever the direction.
    EXPECT_TRUE(RayBoxIntersection({0.5, 0.5, 0.5}, {0.0, 0.0, -1.0}, low, high));
    EXPECT_TRUE(RayBoxIntersection({0.5, 0.5, 0.5}, {0.0, 0.0, 0.0}, low, high));
    EXPECT_FALSE(RayBoxIntersection({2.0, 0.0, 0.0}, {0.0, 0.0, 0.0}, low, high));
}
