#include "game/physics/Collision.hpp"

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <limits>

namespace game::physics {

namespace {

using entity::ConvexMeshCollider;

/// Shortest cross product of two edges that still counts as an axis.
constexpr double MinimumEdgeCross = 1e-06;

/// Used vertices and normals of a collider, never more than its arrays hold.
uint32_t VertexCount(ConvexMeshCollider const& collider) {
    return std::min<uint32_t>(collider.verticesCount, static_cast<uint32_t>(ConvexMeshCollider::MaxVertices));
}

uint32_t NormalCount(ConvexMeshCollider const& collider) {
    return std::min<uint32_t>(collider.normalsCount, static_cast<uint32_t>(ConvexMeshCollider::MaxNormals));
}

/// Vertices this close above the contact depth still carry the contact, metres.
constexpr double SupportSlop = 0.01;

/// The collider's vertices placed by a matrix (its own transform, or the
/// world matrix the caller gives in its place).
struct WorldHull {
    std::array<glm::dvec3, ConvexMeshCollider::MaxVertices> points;
    uint32_t count = 0;

    WorldHull(ConvexMeshCollider const& collider, glm::dmat4 const& transform) : count(VertexCount(collider)) {
        for (uint32_t i = 0; i < count; ++i)
            points[i] = glm::dvec3(transform * glm::dvec4(glm::dvec3(collider.vertices[i]), 1.0));
    }

    std::pair<double, double> Project(glm::dvec3 const& axis) const {
        double low = DBL_MAX;
        double high = -DBL_MAX;
        for (uint32_t i = 0; i < count; ++i) {
            double const d = glm::dot(points[i], axis);
            low = std::min(low, d);
            high = std::max(high, d);
        }
        return {low, high};
    }
};

glm::dvec3 BoxCenter(ConvexMeshCollider const& collider, glm::dmat4 const& transform) {
    glm::dvec3 const local = (glm::dvec3(collider.box_min) + glm::dvec3(collider.box_max)) * 0.5;
    return glm::dvec3(transform * glm::dvec4(local, 1.0));
}

/// The running state of a separating-axis walk.
struct AxisSearch {
    WorldHull const& a;
    WorldHull const& b;
    double smallest = std::numeric_limits<double>::infinity();
    glm::dvec3 axis{0.0};
    bool tested = false;

    /// Tests one unit axis; false when it separates the hulls.
    bool Test(glm::dvec3 const& unit) {
        auto const [minA, maxA] = a.Project(unit);
        auto const [minB, maxB] = b.Project(unit);
        double const overlap = std::min(maxA, maxB) - std::max(minA, minB);
        if (overlap <= 0.0) return false;
        tested = true;
        if (overlap < smallest) { // the first of equal overlaps stays
            smallest = overlap;
            axis = unit;
        }
        return true;
    }
};

/// Tests each face normal of collider under the rotation of transform; false
/// on a separating one.
bool TestFaceAxes(ConvexMeshCollider const& collider, glm::dmat4 const& transform, AxisSearch& search) {
    glm::dmat3 const rotation(transform);
    uint32_t const count = NormalCount(collider);
    for (uint32_t i = 0; i < count; ++i) {
        glm::dvec3 const normal = rotation * glm::dvec3(collider.normals[i]);
        double const length = glm::length(normal);
        if (!(length > 0.0)) continue; // a zero normal names no direction
        if (!search.Test(normal / length)) return false;
    }
    return true;
}

} // namespace

std::pair<double, double> ProjectOntoAxis(ConvexMeshCollider const& collider, glm::dvec3 const& axis) {
    return WorldHull(collider, collider.transform).Project(axis);
}

Collision ConvexCollision(ConvexMeshCollider const& a, ConvexMeshCollider const& b) {
    return ConvexCollision(a, a.transform, b, b.transform);
}

Collision ConvexCollision(ConvexMeshCollider const& a, glm::dmat4 const& worldA, ConvexMeshCollider const& b,
                          glm::dmat4 const& worldB) {
    // 1. Bounding spheres around the box centres.
    glm::dvec3 const centerA = BoxCenter(a, worldA);
    glm::dvec3 const centerB = BoxCenter(b, worldB);
    if (glm::distance(centerA, centerB) > a.radius + b.radius) return {};

    // 2. and 3. Face normals of a, of b, then the edge crosses; the first
    // separating axis ends the test.
    WorldHull const hullA(a, worldA);
    WorldHull const hullB(b, worldB);
    AxisSearch search{hullA, hullB};
    if (!TestFaceAxes(a, worldA, search) || !TestFaceAxes(b, worldB, search)) return {};
    if (a.exactEdges) {
        // Edges join consecutive entries of the vertex lists: i to i + 1.
        for (uint32_t i = 0; i + 1 < hullA.count; ++i) {
            glm::dvec3 edgeA = hullA.points[i + 1] - hullA.points[i];
            double const lengthA = glm::length(edgeA);
            if (!(lengthA > 0.0)) continue;
            edgeA /= lengthA;
            for (uint32_t j = 0; j + 1 < hullB.count; ++j) {
                glm::dvec3 edgeB = hullB.points[j + 1] - hullB.points[j];
                double const lengthB = glm::length(edgeB);
                if (!(lengthB > 0.0)) continue;
                glm::dvec3 const cross = glm::cross(edgeA, edgeB / lengthB);
                double const length = glm::length(cross);
                if (!(length >= MinimumEdgeCross)) continue;
                if (!search.Test(cross / length)) return {};
            }
        }
    }
    if (!search.tested) return {}; // no axis at all: nothing to tell

    Collision collision;
    // 4. From b towards a. Coinciding centres keep the axis as it is.
    collision.normal = glm::dot(search.axis, centerA - centerB) < 0.0 ? -search.axis : search.axis;
    collision.depth = search.smallest;

    // 5. The smaller collider's vertices that reach deepest into the other:
    // a's lowest along the normal, or b's highest. Vertices within a small
    // tolerance of the deepest count as one face or edge, and the contact is
    // their average.
    bool const fromA = a.radius <= b.radius;
    WorldHull const& giver = fromA ? hullA : hullB;
    double const sign = fromA ? -1.0 : 1.0; // depth grows along sign * normal
    double deepest = -DBL_MAX;
    for (uint32_t i = 0; i < giver.count; ++i)
        deepest = std::max(deepest, sign * glm::dot(giver.points[i], collision.normal));
    double const tolerance = 1e-6 * std::max(1.0, fromA ? a.radius : b.radius);
    glm::dvec3 sum(0.0);
    int used = 0;
    for (uint32_t i = 0; i < giver.count; ++i) {
        if (sign * glm::dot(giver.points[i], collision.normal) >= deepest - tolerance) {
            sum += giver.points[i];
            ++used;
        }
    }
    collision.point = used > 0 ? sum / static_cast<double>(used) : (fromA ? centerA : centerB);
    return collision;
}

size_t ContactSupportPoints(ConvexMeshCollider const& a, ConvexMeshCollider const& b, Collision const& collision,
                            std::array<glm::dvec3, ConvexMeshCollider::MaxVertices>& out) {
    return ContactSupportPoints(a, a.transform, b, b.transform, collision, out);
}

size_t ContactSupportPoints(ConvexMeshCollider const& a, glm::dmat4 const& worldA, ConvexMeshCollider const& b,
                            glm::dmat4 const& worldB, Collision const& collision,
                            std::array<glm::dvec3, ConvexMeshCollider::MaxVertices>& out) {
    // The same collider as ConvexCollision takes the contact point from.
    bool const fromA = a.radius <= b.radius;
    WorldHull const giver(fromA ? a : b, fromA ? worldA : worldB);
    double const sign = fromA ? -1.0 : 1.0;
    double deepest = -DBL_MAX;
    for (uint32_t i = 0; i < giver.count; ++i)
        deepest = std::max(deepest, sign * glm::dot(giver.points[i], collision.normal));
    double const reach = std::max(collision.depth, 0.0) + SupportSlop;
    size_t count = 0;
    for (uint32_t i = 0; i < giver.count && count < out.size(); ++i) {
        if (sign * glm::dot(giver.points[i], collision.normal) >= deepest - reach) out[count++] = giver.points[i];
    }
    return count;
}

bool PotentialBoxBoxIntersection(glm::dmat4 const& ta, glm::dmat4 const& tb, glm::dvec3 const& minA,
                                 glm::dvec3 const& maxA, glm::dvec3 const& minB, glm::dvec3 const& maxB, bool exactA,
                                 bool exactB) {
    // Oriented boxes: centre and three half-axes (extent times the transform's
    // column, so that scaled transforms work as well).
    glm::dvec3 const centerA(ta * glm::dvec4((minA + maxA) * 0.5, 1.0));
    glm::dvec3 const centerB(tb * glm::dvec4((minB + maxB) * 0.5, 1.0));
    glm::dvec3 const halfA = glm::abs(maxA - minA) * 0.5;
    glm::dvec3 const halfB = glm::abs(maxB - minB) * 0.5;
    std::array<glm::dvec3, 3> axesA;
    std::array<glm::dvec3, 3> axesB;
    for (int i = 0; i < 3; ++i) {
        axesA[i] = glm::dvec3(ta[i]);
        axesB[i] = glm::dvec3(tb[i]);
    }
    glm::dvec3 const between = centerB - centerA;

    // The boxes are apart along axis when their projections do not meet; a
    // small margin keeps touching boxes as candidates.
    auto separates = [&](glm::dvec3 const& axis) {
        double const scale = glm::length(axis);
        if (!(scale > 1e-12)) return false;
        double reachA = 0.0;
        double reachB = 0.0;
        for (int i = 0; i < 3; ++i) {
            reachA += halfA[i] * std::abs(glm::dot(axesA[i], axis));
            reachB += halfB[i] * std::abs(glm::dot(axesB[i], axis));
        }
        return std::abs(glm::dot(between, axis)) > reachA + reachB + 1e-9 * scale;
    };

    for (int i = 0; i < 3; ++i) {
        if (separates(axesA[i]) || separates(axesB[i])) return false;
    }
    if (exactA || exactB) {
        for (int i = 0; i < 3; ++i) {
            for (int j = 0; j < 3; ++j) {
                glm::dvec3 const axis = glm::cross(axesA[i], axesB[j]);
                if (glm::length(axis) < MinimumEdgeCross * glm::length(axesA[i]) * glm::length(axesB[j]))
                    continue; // parallel edges: the face axes covered them
                if (separates(axis)) return false;
            }
        }
    }
    return true;
}

bool PotentialBoxBoxIntersection(ConvexMeshCollider const& a, ConvexMeshCollider const& b) {
    return PotentialBoxBoxIntersection(a.transform, b.transform, glm::dvec3(a.box_min), glm::dvec3(a.box_max),
                                       glm::dvec3(b.box_min), glm::dvec3(b.box_max), a.exactEdges, b.exactEdges);
}

bool RayBoxIntersection(glm::dvec3 const& origin, glm::dvec3 const& direction, glm::dvec3 const& boxMin,
                        glm::dvec3 const& boxMax) {
    // The ray is origin + t * direction for t >= 0.
    double enter = 0.0;
    double leave = std::numeric_limits<double>::infinity();
    for (int axis = 0; axis < 3; ++axis) {
        double const o = origin[axis];
        double const d = direction[axis];
        if (d == 0.0) {
            // Parallel to this slab: inside it all along or never.
            if (o < boxMin[axis] || o > boxMax[axis]) return false;
            continue;
        }
        double t1 = (boxMin[axis] - o) / d;
        double t2 = (boxMax[axis] - o) / d;
        if (t1 > t2) std::swap(t1, t2);
        enter = std::max(enter, t1);
        leave = std::min(leave, t2);
        if (!(enter <= leave)) return false;
    }
    return true;
}

} // namespace game::physics
