// Collision primitives: projection, placed hulls, the separating-axis test, the cheap oriented box test and the ray-box slab test.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <random>
#include <tuple>

#include <glm/gtc/matrix_transform.hpp>

#include "game/physics/Collision.hpp"
#include "tests/support/GlmChecks.hpp"

namespace {

using game::entity::ConvexMeshCollider;
using game::physics::PotentialBoxBoxIntersection;
using testsupport::ExpectVecNear;

glm::dmat4 Place(glm::dvec3 const& position, double degrees = 0.0, glm::dvec3 const& axis = {0, 0, 1}) {
    return glm::translate(glm::dmat4(1.0), position) *
        glm::mat4_cast(glm::angleAxis(glm::radians(degrees), glm::normalize(axis)));
}

/// A box collider as the description reader builds it (corners in binary order, three normals).
ConvexMeshCollider Box(glm::dmat4 const& transform, double size = 1.0, double radius = -1.0, bool exactEdges = false) {
    ConvexMeshCollider collider = ConvexMeshCollider::Box(glm::vec3(-size * 0.5), glm::vec3(size * 0.5));
    collider.transform = transform;
    collider.radius = radius >= 0.0 ? radius : collider.radius;
    collider.exactEdges = exactEdges;
    return collider;
}

/// A unit box turned 45 degrees about z, and one apart along y turned so that its z edges run along world x:
/// only world y, the cross of their z edges, separates them.
ConvexMeshCollider EdgeA(bool exact) {
    return Box(Place({0, 0, 0}, 45.0), 1.0, -1.0, exact);
}
ConvexMeshCollider EdgeB(double distance, bool exact) {
    return Box(Place({0.0, distance, 0.0}, 45.0, {1, 0, 0}) *
                   glm::mat4_cast(glm::angleAxis(glm::radians(90.0), glm::dvec3(0, 1, 0))),
               1.0, -1.0, exact);
}

TEST(ConvexCollision, ProjectionsAndContactsAndMissesAtTheBoundaries) {
    EXPECT_EQ(game::physics::ProjectOntoAxis(ConvexMeshCollider(), {1, 0, 0}), std::make_pair(DBL_MAX, -DBL_MAX));
    ConvexMeshCollider box = ConvexMeshCollider::Box({-1.0f, -0.5f, -0.5f}, {1.0f, 0.5f, 0.5f});
    box.transform = Place({3.0, 0.0, 0.0}, 90.0); // the long side turned onto y
    auto const [lowX, highX] = game::physics::ProjectOntoAxis(box, {1, 0, 0});
    auto const [lowY, highY] = game::physics::ProjectOntoAxis(box, {0, 1, 0});
    ExpectVecNear(glm::dvec4(lowX, highX, lowY, highY), glm::dvec4(2.5, 3.5, -1.0, 1.0), 1e-12);

    double const h = 1.2, sunk = h - std::sqrt(0.5); // a box standing on an edge
    glm::dvec3 const none(0.0), up(0, 0, 1);
    ConvexMeshCollider const unit = Box(Place({0, 0, 0}));
    struct Case {
        char const* name;
        ConvexMeshCollider a, b;
        double depth;
        glm::dvec3 normal, point;
        bool checkPoint;
    } const cases[] = {
        {"touching along x", unit, Box(Place({1, 0, 0})), 0.0, none, none, true},
        // The boxes overlap, but the radii claim the spheres are apart; a distance equal to the sum does not.
        {"radii apart", Box(Place({0, 0, 0}), 1.0, 0.2), Box(Place({0.5, 0, 0}), 1.0, 0.2), 0.0, none, none, true},
        {"radii meet", Box(Place({0, 0, 0}), 1, 0.25), Box(Place({0.5, 0, 0}), 1, 0.25), 0.5, {-1, 0, 0}, none, 0},
        // The normal points from the second towards the first, along the smallest overlap.
        {"a beside b", Box(Place({0.9, 0.05, 0})), unit, 0.1, {1, 0, 0}, none, false},
        // The point averages the deepest vertices of the smaller collider, whichever comes first.
        {"small on top", Box(Place({0.3, 0.2, 0.7}), 0.5), unit, 0.05, up, {0.3, 0.2, 0.45}, true},
        {"large under", unit, Box(Place({0.3, 0.2, 0.7}), 0.5), 0.05, -up, {0.3, 0.2, 0.45}, true},
        {"turned flat face", Box(Place({0, 0, 0.95}, 45.0)), unit, 0.05, up, none, false},
        {"on an edge", Box(Place({0, 0, h}, 45.0, {1, 0, 0})), unit, 0.5 - sunk, up, {0, 0, sunk}, true},
        {"edge lifted clear", Box(Place({0, 0, 1.3}, 45.0, {1, 0, 0})), unit, 0.0, none, none, true},
        // Only the first collider's flag asks for the edge axes.
        {"edges apart, exact", EdgeA(true), EdgeB(1.45, false), 0.0, none, none, true},
        {"edges crossing, exact", EdgeA(true), EdgeB(1.4, false), 2.0 * std::sqrt(0.5) - 1.4, {0, -1, 0}, none, false},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        game::physics::Collision const contact = game::physics::ConvexCollision(c.a, c.b);
        EXPECT_NEAR(contact.depth, c.depth, 1e-6);
        ExpectVecNear(contact.normal, c.normal, 1e-6);
        if (c.checkPoint) ExpectVecNear(contact.point, c.point, 1e-6);
    }
    for (bool exactB : {false, true}) // apart, but face axes alone see an overlap
        EXPECT_GT(game::physics::ConvexCollision(EdgeA(false), EdgeB(1.45, exactB)).depth, 0.2);
}

/// A wedge, not a box: a right triangle in x and y, 1 m deep in z.
ConvexMeshCollider Wedge(glm::dmat4 const& transform) {
    ConvexMeshCollider wedge = ConvexMeshCollider::Box({0, 0, -0.5f}, {1, 1, 0.5f});
    wedge.vertices = {glm::vec3(0, 0, -0.5f), glm::vec3(0, 0, 0.5f),  glm::vec3(0, 1, -0.5f),
                      glm::vec3(0, 1, 0.5f),  glm::vec3(1, 0, -0.5f), glm::vec3(1, 0, 0.5f)};
    wedge.verticesCount = 6;
    wedge.normals[3] = glm::normalize(glm::vec3(1, 1, 0)); // x, y and z from the box, and the slope
    wedge.normalsCount = 4;
    wedge.transform = transform;
    return wedge;
}

// The physics step places each collider once and tests placed hulls, a box
// through its shared corner coordinates: every answer must be the one of the
// colliders placed vertex by vertex, bit for bit, hit or miss.
TEST(PlacedHull, AnswersAsTheCollidersBitForBit) {
    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    auto turn = [&] {
        return glm::mat4_cast(glm::normalize(glm::dquat(unit(random), unit(random), unit(random), unit(random))));
    };
    auto near = [&](double reach) { return glm::dvec3(unit(random), unit(random), unit(random)) * reach; };
    ConvexMeshCollider shuffled = Box(glm::dmat4(1.0)); // a box whose corners are not in Box's order
    std::swap(shuffled.vertices[0], shuffled.vertices[7]);
    int hits = 0, misses = 0;
    for (int i = 0; i < 4000; ++i) {
        int const kind = i % 5;
        glm::dmat4 const placeB = glm::translate(glm::dmat4(1.0), near(0.5)) * turn();
        ConvexMeshCollider a = kind == 0
            ? Box(placeB * glm::translate(glm::dmat4(1.0), glm::dvec3(0, 1 + 0.1 * unit(random), 0)))
            : kind == 1 ? EdgeA(true)
            : kind == 2
            ? Wedge(glm::translate(glm::dmat4(1.0), near(1.2)) * turn())
            : Box(glm::translate(glm::dmat4(1.0), near(kind == 3 ? 1.2 : 2.5)) * turn(), 0.5 + unit(random) * 0.4);
        ConvexMeshCollider b = kind == 1 ? EdgeB(1.4 + 0.05 * unit(random), false) : kind == 4 ? shuffled : Box(placeB);
        if (kind == 4) b.transform = placeB;
        a.exactEdges = a.exactEdges || i % 3 == 0;
        game::physics::PlacedHull hullA, hullB;
        hullA.Place(a, a.transform);
        hullB.Place(b, b.transform);
        game::physics::Collision const general = game::physics::ConvexCollision(a, b);
        game::physics::Collision const placed = game::physics::ConvexCollision(hullA, hullB);
        ASSERT_EQ(placed.depth, general.depth) << "pair " << i;
        ASSERT_EQ(placed.normal, general.normal) << "pair " << i;
        ASSERT_EQ(placed.point, general.point) << "pair " << i;
        (general.depth > 0.0 ? hits : misses)++;
        std::array<glm::dvec3, ConvexMeshCollider::MaxVertices> supportsGeneral, supportsPlaced;
        size_t const count = game::physics::ContactSupportPoints(a, b, general, supportsGeneral);
        ASSERT_EQ(game::physics::ContactSupportPoints(hullA, hullB, general, supportsPlaced), count);
        for (size_t k = 0; k < count; ++k) ASSERT_EQ(supportsPlaced[k], supportsGeneral[k]);
    }
    EXPECT_GT(hits, 1000);
    EXPECT_GT(misses, 1000);
}

TEST(PotentialBoxBoxIntersection, SeparatedBoxesAreRejectedAndTouchingOnesKept) {
    glm::dvec3 const low(-0.5), high(0.5);
    for (auto [a, lowA, highA, overlap] :
         {std::tuple(Place({1.01, 0, 0}), low, high, false), std::tuple(Place({1.0, 0, 0}), low, high, true),
          std::tuple(Place({0.7, 0.7, 0.7}), low, high, true),
          // off centre in its own space: 1..3 on x
          std::tuple(Place({0, 0, 0}), glm::dvec3(1, -1, -1), glm::dvec3(3, 1, 1), false),
          std::tuple(Place({1.2, 0, 0}, 45.0), low, high, true),
          std::tuple(Place({1.25, 0, 0}, 45.0), low, high, false)}) // 0.5 * sqrt(2)
        EXPECT_EQ(PotentialBoxBoxIntersection(a, glm::dmat4(1.0), lowA, highA, low, high, false, false), overlap)
            << glm::dvec3(a[3]).x;
    // Edge axes only when either collider asks for them.
    EXPECT_TRUE(PotentialBoxBoxIntersection(EdgeA(false), EdgeB(1.45, false)));
    EXPECT_FALSE(PotentialBoxBoxIntersection(EdgeA(false), EdgeB(1.45, true)));
    EXPECT_TRUE(PotentialBoxBoxIntersection(EdgeA(true), EdgeB(1.4, false)));
}

TEST(RayBoxIntersection, HitsMissesAndParallelRays) {
    std::tuple<glm::dvec3, glm::dvec3, bool> const cases[] = {
        // origin, direction, hit
        {{-5.0, 0.2, 0.3}, {1, 0, 0}, true},    {{-5.0, 0.0, 0.0}, {-1, 0, 0}, false},
        {{-5.0, 0.0, 0.0}, {1, 1, 0}, false}, // behind the origin, beside the box
        {{-5.0, 0.99, -0.99}, {2, 0, 0}, true}, {{-5.0, 1.01, 0.0}, {2, 0, 0}, false}, // parallel to the y and z slabs
        {{0.5, 0.5, 0.5}, {0, 0, 0}, true},     {{2.0, 0.0, 0.0}, {0, 0, 0}, false},   // inside hits
    };
    for (auto const& [origin, direction, hit] : cases)
        EXPECT_EQ(game::physics::RayBoxIntersection(origin, direction, glm::dvec3(-1.0), glm::dvec3(1.0)), hit)
            << origin.x << " " << origin.y << " " << origin.z << " towards " << direction.x << " " << direction.y;
}

} // namespace
