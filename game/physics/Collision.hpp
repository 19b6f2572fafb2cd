#pragma once
#include <array>
#include <cstddef>
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
