#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

#include <glm/glm.hpp>

#include "game/entity/ConvexMeshCollider.hpp"

namespace game::physics {

/// One contact between two colliders. All zero means no contact; a contact has
/// depth above 0.
struct Collision {
    glm::dvec3 point{0.0};  ///< World contact point.
    glm::dvec3 normal{0.0}; ///< Unit vector from the second collider towards the first.
    double depth = 0.0;     ///< Penetration, metres.
};

/// A collider placed in the world for many pair tests: its vertices, the
/// centre of its box and its unit face axes, worked out once. The physics step
/// places each collider once per substep (a static body's once per step)
/// instead of once per pair; ConvexCollision on two placed hulls gives exactly
/// the answer, bit for bit, of ConvexCollision on the colliders and matrices.
struct PlacedHull {
    static constexpr size_t MaxVertices = entity::ConvexMeshCollider::MaxVertices;
    static constexpr size_t MaxNormals = entity::ConvexMeshCollider::MaxNormals;

    /// Places collider by world. A box collider (the corners in Box's order)
    /// takes a shortcut through its shared corner coordinates.
    void Place(entity::ConvexMeshCollider const& collider, glm::dmat4 const& world);
    /// Places collider by world vertex by vertex, whatever its shape.
    void PlaceEachVertex(entity::ConvexMeshCollider const& collider, glm::dmat4 const& world);
    /// Vertex i.
    glm::dvec3 Point(uint32_t i) const { return {x[i], y[i], z[i]}; }
    /// (minimum, maximum) of the vertices along axis; (DBL_MAX, -DBL_MAX) without vertices.
    std::pair<double, double> Project(glm::dvec3 const& axis) const;

    /// Vertex coordinates; the entries past count repeat vertex 0, so that
    /// projections can run over all of them.
    std::array<double, MaxVertices> x{}, y{}, z{};
    std::array<glm::dvec3, MaxNormals> axes{}; ///< Unit face normals in world axes, zero ones left out.
    glm::dvec3 center{0.0};                    ///< Centre of the collider's box.
    double radius = 0.0;                       ///< The collider's.
    uint32_t count = 0;                        ///< Vertices.
    uint32_t axisCount = 0;                    ///< Entries of axes.
    bool exactEdges = false;                   ///< The collider's.

private:
    /// Centre, radius and face axes.
    void PlaceAxes(entity::ConvexMeshCollider const& collider, glm::dmat4 const& world);
};

/// ConvexCollision of two placed colliders.
Collision ConvexCollision(PlacedHull const& a, PlacedHull const& b);
/// ContactSupportPoints of two placed colliders.
size_t ContactSupportPoints(PlacedHull const& a, PlacedHull const& b, Collision const& collision,
                            std::array<glm::dvec3, entity::ConvexMeshCollider::MaxVertices>& out);

/// (minimum, maximum) of the collider's vertices, under its transform, along
/// axis; (DBL_MAX, -DBL_MAX) without vertices.
std::pair<double, double> ProjectOntoAxis(entity::ConvexMeshCollider const& collider, glm::dvec3 const& axis);

/// Separating-axis test of two convex colliders placed by their transforms.
/// The normal points from b towards a; no contact gives the empty Collision.
Collision ConvexCollision(entity::ConvexMeshCollider const& a, entity::ConvexMeshCollider const& b);
/// The same test with a placed by worldA and b by worldB instead of their own
/// transforms; the answer equals that of copies carrying those transforms.
Collision ConvexCollision(entity::ConvexMeshCollider const& a, glm::dmat4 const& worldA,
                          entity::ConvexMeshCollider const& b, glm::dmat4 const& worldB);

/// The vertices that carry a contact found by ConvexCollision(a, b): those of
/// the smaller collider that reach within the contact's depth (plus 1 cm) of
/// its deepest vertex. A box lying flat gives its four lower corners. Returns
/// how many were written to out.
size_t ContactSupportPoints(entity::ConvexMeshCollider const& a, entity::ConvexMeshCollider const& b,
                            Collision const& collision,
                            std::array<glm::dvec3, entity::ConvexMeshCollider::MaxVertices>& out);
/// The same with a placed by worldA and b by worldB instead of their own transforms.
size_t ContactSupportPoints(entity::ConvexMeshCollider const& a, glm::dmat4 const& worldA,
                            entity::ConvexMeshCollider const& b, glm::dmat4 const& worldB, Collision const& collision,
                            std::array<glm::dvec3, entity::ConvexMeshCollider::MaxVertices>& out);

/// Cheap test whether two boxes (minA..maxA under ta, minB..maxB under tb) may
/// intersect; false only when they certainly do not. exactA and exactB ask for
/// the edge axes of a or b as well.
bool PotentialBoxBoxIntersection(glm::dmat4 const& ta, glm::dmat4 const& tb, glm::dvec3 const& minA,
                                 glm::dvec3 const& maxA, glm::dvec3 const& minB, glm::dvec3 const& maxB, bool exactA,
                                 bool exactB);
/// The same for the boxes of two colliders under their transforms.
bool PotentialBoxBoxIntersection(entity::ConvexMeshCollider const& a, entity::ConvexMeshCollider const& b);

/// Slab test: whether the ray from origin along direction meets the box.
bool RayBoxIntersection(glm::dvec3 const& origin, glm::dvec3 const& direction, glm::dvec3 const& boxMin,
                        glm::dvec3 const& boxMax);

} // namespace game::physics
