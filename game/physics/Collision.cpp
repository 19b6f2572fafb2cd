#include "game/physics/Collision.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cfloat>
#include <cmath>
#include <cstring>
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

glm::dvec3 BoxCenter(ConvexMeshCollider const& collider, glm::dmat4 const& transform) {
    glm::dvec3 const local = (glm::dvec3(collider.box_min) + glm::dvec3(collider.box_max)) * 0.5;
    return glm::dvec3(transform * glm::dvec4(local, 1.0));
}

/// Whether the collider's vertices are the 8 corners of a box in Box's order
/// (bit 2 x, bit 1 y, bit 0 z), bit for bit.
bool HasBoxCorners(ConvexMeshCollider const& collider) {
    if (collider.verticesCount != 8) return false;
    auto same = [](float a, float b) { return std::bit_cast<uint32_t>(a) == std::bit_cast<uint32_t>(b); };
    glm::vec3 const& low = collider.vertices[0];
    glm::vec3 const high(collider.vertices[4].x, collider.vertices[2].y, collider.vertices[1].z);
    for (uint32_t i = 1; i < 8; ++i) {
        glm::vec3 const& v = collider.vertices[i];
        if (!same(v.x, (i & 4u) ? high.x : low.x) || !same(v.y, (i & 2u) ? high.y : low.y) ||
            !same(v.z, (i & 1u) ? high.z : low.z))
            return false;
    }
    return true;
}

/// The running state of a separating-axis walk.
struct AxisSearch {
    PlacedHull const& a;
    PlacedHull const& b;
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

/// Of the smaller hull (a's on a tie), the vertices' reach along the
/// contact's depth: a's lowest along the normal, or b's highest.
struct Giver {
    PlacedHull const& hull;
    double sign; ///< depth grows along sign * normal
    double deepest = -DBL_MAX;

    Giver(PlacedHull const& a, PlacedHull const& b, glm::dvec3 const& normal)
        : hull(a.radius <= b.radius ? a : b), sign(a.radius <= b.radius ? -1.0 : 1.0) {
        for (uint32_t i = 0; i < hull.count; ++i) deepest = std::max(deepest, Reach(i, normal));
    }
    double Reach(uint32_t i, glm::dvec3 const& normal) const { return sign * glm::dot(hull.Point(i), normal); }
};

} // namespace

void PlacedHull::PlaceAxes(ConvexMeshCollider const& collider, glm::dmat4 const& world) {
    center = BoxCenter(collider, world);
    radius = collider.radius;
    exactEdges = collider.exactEdges;
    glm::dmat3 const rotation(world);
    uint32_t const normals = NormalCount(collider);
    axisCount = 0;
    for (uint32_t i = 0; i < normals; ++i) {
        glm::dvec3 const normal = rotation * glm::dvec3(collider.normals[i]);
        double const length = glm::length(normal);
        if (!(length > 0.0)) continue; // a zero normal names no direction
        axes[axisCount++] = normal / length;
    }
}

void PlacedHull::PlaceEachVertex(ConvexMeshCollider const& collider, glm::dmat4 const& world) {
    PlaceAxes(collider, world);
    count = VertexCount(collider);
    for (uint32_t i = 0; i < MaxVertices; ++i) {
        glm::dvec3 const point =
            i < count ? glm::dvec3(world * glm::dvec4(glm::dvec3(collider.vertices[i]), 1.0)) : Point(0);
        x[i] = point.x;
        y[i] = point.y;
        z[i] = point.z;
    }
}

void PlacedHull::Place(ConvexMeshCollider const& collider, glm::dmat4 const& world) {
    if (!HasBoxCorners(collider)) {
        PlaceEachVertex(collider, world);
        return;
    }
    PlaceAxes(collider, world);
    count = 8;
    // A vertex v goes to (m0 * v.x + m1 * v.y) + (m2 * v.z + m3), as the
    // matrix product works it out; a box has two values per coordinate, so
    // the partial sums are shared between corners.
    glm::dvec3 const m0(world[0]), m1(world[1]), m2(world[2]), m3(world[3]);
    glm::dvec3 const low(collider.vertices[0]);
    glm::dvec3 const high(collider.vertices[7]);
    glm::dvec3 const xs[2] = {m0 * low.x, m0 * high.x};
    glm::dvec3 const ys[2] = {m1 * low.y, m1 * high.y};
    glm::dvec3 const zs[2] = {m2 * low.z + m3, m2 * high.z + m3};
    for (uint32_t i = 0; i < 8; ++i) {
        glm::dvec3 const point = (xs[(i >> 2) & 1u] + ys[(i >> 1) & 1u]) + zs[i & 1u];
        x[i] = point.x;
        y[i] = point.y;
        z[i] = point.z;
    }
}

std::pair<double, double> PlacedHull::Project(glm::dvec3 const& axis) const {
    if (count == 0) return {DBL_MAX, -DBL_MAX};
    // All entries, two at a time: those past count repeat vertex 0 and change
    // nothing. Each product and sum is glm::dot's, in its order.
    using Pair = double __attribute__((vector_size(16)));
    Pair const ax = {axis.x, axis.x}, ay = {axis.y, axis.y}, az = {axis.z, axis.z};
    Pair low = {DBL_MAX, DBL_MAX};
    Pair high = {-DBL_MAX, -DBL_MAX};
    for (uint32_t i = 0; i < MaxVertices; i += 2) {
        Pair px, py, pz;
        std::memcpy(&px, &x[i], sizeof px);
        std::memcpy(&py, &y[i], sizeof py);
        std::memcpy(&pz, &z[i], sizeof pz);
        Pair const d = (px * ax + py * ay) + pz * az;
        low = d < low ? d : low;
        high = d > high ? d : high;
    }
    return {std::min(low[0], low[1]), std::max(high[0], high[1])};
}

std::pair<double, double> ProjectOntoAxis(ConvexMeshCollider const& collider, glm::dvec3 const& axis) {
    PlacedHull hull;
    hull.PlaceEachVertex(collider, collider.transform);
    return hull.Project(axis);
}

Collision ConvexCollision(ConvexMeshCollider const& a, ConvexMeshCollider const& b) {
    return ConvexCollision(a, a.transform, b, b.transform);
}

Collision ConvexCollision(ConvexMeshCollider const& a, glm::dmat4 const& worldA, ConvexMeshCollider const& b,
                          glm::dmat4 const& worldB) {
    // Far apart: no need to place them.
    if (glm::distance(BoxCenter(a, worldA), BoxCenter(b, worldB)) > a.radius + b.radius) return {};
    PlacedHull hullA;
    PlacedHull hullB;
    hullA.PlaceEachVertex(a, worldA);
    hullB.PlaceEachVertex(b, worldB);
    return ConvexCollision(hullA, hullB);
}

Collision ConvexCollision(PlacedHull const& a, PlacedHull const& b) {
    // 1. Bounding spheres around the box centres.
    if (glm::distance(a.center, b.center) > a.radius + b.radius) return {};

    // 2. and 3. Face normals of a, of b, then the edge crosses; the first
    // separating axis ends the test.
    AxisSearch search{a, b};
    for (uint32_t i = 0; i < a.axisCount; ++i) {
        if (!search.Test(a.axes[i])) return {};
    }
    for (uint32_t i = 0; i < b.axisCount; ++i) {
        if (!search.Test(b.axes[i])) return {};
    }
    if (a.exactEdges) {
        // Edges join consecutive entries of the vertex lists: i to i + 1.
        for (uint32_t i = 0; i + 1 < a.count; ++i) {
            glm::dvec3 edgeA = a.Point(i + 1) - a.Point(i);
            double const lengthA = glm::length(edgeA);
            if (!(lengthA > 0.0)) continue;
            edgeA /= lengthA;
            for (uint32_t j = 0; j + 1 < b.count; ++j) {
                glm::dvec3 edgeB = b.Point(j + 1) - b.Point(j);
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
    collision.normal = glm::dot(search.axis, a.center - b.center) < 0.0 ? -search.axis : search.axis;
    collision.depth = search.smallest;

    // 5. The smaller collider's vertices that reach deepest into the other.
    // Vertices within a small tolerance of the deepest count as one face or
    // edge, and the contact is their average.
    Giver const giver(a, b, collision.normal);
    double const tolerance = 1e-6 * std::max(1.0, giver.hull.radius);
    glm::dvec3 sum(0.0);
    int used = 0;
    for (uint32_t i = 0; i < giver.hull.count; ++i) {
        if (giver.Reach(i, collision.normal) >= giver.deepest - tolerance) {
            sum += giver.hull.Point(i);
            ++used;
        }
    }
    collision.point = used > 0 ? sum / static_cast<double>(used) : giver.hull.center;
    return collision;
}

size_t ContactSupportPoints(ConvexMeshCollider const& a, ConvexMeshCollider const& b, Collision const& collision,
                            std::array<glm::dvec3, ConvexMeshCollider::MaxVertices>& out) {
    return ContactSupportPoints(a, a.transform, b, b.transform, collision, out);
}

size_t ContactSupportPoints(ConvexMeshCollider const& a, glm::dmat4 const& worldA, ConvexMeshCollider const& b,
                            glm::dmat4 const& worldB, Collision const& collision,
                            std::array<glm::dvec3, ConvexMeshCollider::MaxVertices>& out) {
    PlacedHull hullA;
    PlacedHull hullB;
    hullA.PlaceEachVertex(a, worldA);
    hullB.PlaceEachVertex(b, worldB);
    return ContactSupportPoints(hullA, hullB, collision, out);
}

size_t ContactSupportPoints(PlacedHull const& a, PlacedHull const& b, Collision const& collision,
                            std::array<glm::dvec3, ConvexMeshCollider::MaxVertices>& out) {
    // The same hull as ConvexCollision takes the contact point from.
    Giver const giver(a, b, collision.normal);
    double const reach = std::max(collision.depth, 0.0) + SupportSlop;
    size_t count = 0;
    for (uint32_t i = 0; i < giver.hull.count && count < out.size(); ++i) {
        if (giver.Reach(i, collision.normal) >= giver.deepest - reach) out[count++] = giver.hull.Point(i);
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
