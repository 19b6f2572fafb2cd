// Contacts of a moving body: the search over the broadphase lists, the
// impulse response without restitution and the resting test.
#include "game/physics/Rigidbody.hpp"

#include <algorithm>
#include <cmath>
#include <optional>

#include <glm/gtc/matrix_transform.hpp>

#include "game/Game.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "nerox/Assert.hpp"

namespace game::physics {

namespace {

using entity::ConvexMeshCollider;

/// Below this fill a collider with subColliders stands only for them.
constexpr double SubdivideBelowFill = 0.95;
/// Smallest radius of a subCollider that takes part.
constexpr double MinimumSubColliderRadius = 0.0001;
/// Nesting of subColliders followed at most; deeper levels are ignored.
constexpr int MaxSubColliderDepth = 32;
/// Contacts closer than this (metres) count as one.
constexpr double ContactMergeDistance = 0.1;
/// Cosine of the largest angle between a contact normal and the support plane's normal.
constexpr double SupportCosine = 0.707;
/// Shortest sliding speed that friction acts on.
constexpr double MinimumSlidingSpeed = 1e-06;
/// Length of the debug line drawn along a contact normal, metres.
constexpr double DebugNormalLength = 0.25;

/// Step 1 of ConvexCollision: whether the bounding spheres of c and d, placed
/// by their matrices, meet. Pairs that fail it go no further.
bool SpheresMeet(ConvexMeshCollider const& c, glm::dmat4 const& worldC, ConvexMeshCollider const& d,
                 glm::dmat4 const& worldD) {
    glm::dvec3 const localC = (glm::dvec3(c.box_min) + glm::dvec3(c.box_max)) * 0.5;
    glm::dvec3 const localD = (glm::dvec3(d.box_min) + glm::dvec3(d.box_max)) * 0.5;
    glm::dvec3 const centerC(worldC * glm::dvec4(localC, 1.0));
    glm::dvec3 const centerD(worldD * glm::dvec4(localD, 1.0));
    return !(glm::distance(centerC, centerD) > c.radius + d.radius);
}

/// The same for two placed hulls.
bool HullsMeet(PlacedHull const& c, PlacedHull const& d) {
    return !(glm::distance(c.center, d.center) > c.radius + d.radius);
}

/// Whether collider stands only for its subColliders.
bool IsSubdivided(ConvexMeshCollider const& collider) {
    return collider.fill < SubdivideBelowFill && collider.subColliders && !collider.subColliders->empty();
}

/// Whether a subCollider takes part: a real size and something to test.
bool IsUsableChild(ConvexMeshCollider const& child) {
    return child.radius > MinimumSubColliderRadius && child.box_max.x > child.box_min.x &&
        (child.verticesCount > 0 || (child.subColliders && !child.subColliders->empty()));
}

/// Whether the origin, projected along normal, lies in the triangle p0 p1 p2
/// projected the same way: barycentric u, v >= 0 and u + v <= 1.
bool EnclosesProjectedOrigin(glm::dvec3 const& p0, glm::dvec3 const& p1, glm::dvec3 const& p2,
                             glm::dvec3 const& normal) {
    auto flatten = [&normal](glm::dvec3 const& p) { return p - normal * glm::dot(normal, p); };
    glm::dvec3 const q0 = flatten(p0);
    glm::dvec3 const e1 = flatten(p1) - q0;
    glm::dvec3 const e2 = flatten(p2) - q0;
    glm::dvec3 const toOrigin = -q0;
    double const d11 = glm::dot(e1, e1);
    double const d12 = glm::dot(e1, e2);
    double const d22 = glm::dot(e2, e2);
    double const d1o = glm::dot(toOrigin, e1);
    double const d2o = glm::dot(toOrigin, e2);
    double const denominator = d11 * d22 - d12 * d12;
    if (!(denominator > 1e-18 * std::max(1.0, d11 * d22))) return false; // points in a line enclose nothing
    double const u = (d22 * d1o - d12 * d2o) / denominator;
    double const v = (d11 * d2o - d12 * d1o) / denominator;
    return u >= 0.0 && v >= 0.0 && u + v <= 1.0;
}

/// Makes to a copy of from placed by world, leaving out onContact: the
/// callbacks are called on the originals, so that copying never allocates for
/// a large callable and the copies never hold a module's code.
void CopyPlaced(ConvexMeshCollider& to, ConvexMeshCollider const& from, glm::dmat4 const& world) {
    to.enabled = from.enabled;
    to.transform = world;
    to.box_min = from.box_min;
    to.box_max = from.box_max;
    to.radius = from.radius;
    to.fill = from.fill;
    to.reserved0 = from.reserved0;
    to.verticesCount = from.verticesCount;
    to.normalsCount = from.normalsCount;
    to.trianglesCount = from.trianglesCount;
    to.vertices = from.vertices;
    to.normals = from.normals;
    to.triangles = from.triangles;
    to.subColliders = from.subColliders;
    to.entity = from.entity;
    to.name = from.name; // keeps the copy's storage once it is large enough
    to.reserved1 = from.reserved1;
    to.reducedQuery = from.reducedQuery;
    to.exactEdges = from.exactEdges;
    to.friction = from.friction;
}

/// World-placed copies of the two colliders of a contact that has a callback
/// (without their callbacks): what the callbacks receive as self and other,
/// valid only while they run. Contacts without a callback are tested and
/// answered from the colliders themselves, so one pair per thread, reused
/// from contact to contact, keeps the copies out of the bodies' records.
struct PlacedContact {
    ConvexMeshCollider self;
    ConvexMeshCollider other;
};

/// This thread's PlacedContact, holding c and d placed by worldC and worldD.
PlacedContact& PlaceContactPair(ConvexMeshCollider const& c, glm::dmat4 const& worldC, ConvexMeshCollider const& d,
                                glm::dmat4 const& worldD) {
    thread_local PlacedContact placed;
    CopyPlaced(placed.self, c, worldC);
    CopyPlaced(placed.other, d, worldD);
    return placed;
}

/// Lets go, when it goes out of scope (a callback may throw), of what the
/// copies hold of a module's: the subColliders they share with the colliders
/// and any callback that a callback set on them.
class LetGoOfCopies {
public:
    explicit LetGoOfCopies(PlacedContact& placed) : _placed(placed) { }
    ~LetGoOfCopies() {
        for (ConvexMeshCollider* copy : {&_placed.self, &_placed.other}) {
            copy->subColliders.reset();
            copy->onContact = nullptr;
        }
    }
    LetGoOfCopies(LetGoOfCopies const&) = delete;
    LetGoOfCopies& operator=(LetGoOfCopies const&) = delete;

private:
    PlacedContact& _placed;
};

/// Support points of a static contact.
using SupportPoints = std::array<glm::dvec3, ConvexMeshCollider::MaxVertices>;

} // namespace

template <class T> void DynamicRigidbody<T>::CollisionDetection(double dt) {
    // Each double loop places this body's colliders once, with the body's
    // transform at the loop's start: answers within the loop move the body
    // but not where its colliders are tested, so that every collider meets
    // every surface it rests on, even after an earlier contact pushed the body.

    // Each collider is placed (its hull worked out) once per place of its
    // body, not once per pair: the hulls of a body that did not move since
    // are reused.

    // Moving bodies first: both sides take part in the answer.
    glm::dmat4 bodyTransform = this->PlaceHulls();
    for (size_t ci = 0; ci < this->colliders.size(); ++ci) {
        ConvexMeshCollider const& c = this->colliders[ci];
        glm::dmat4 const worldC = bodyTransform * c.transform;
        PlacedHull const& hullC = this->Hull(ci);
        for (DynamicRigidbody* other : nearDynamics) {
            glm::dmat4 const& otherTransform = other->PlaceHulls();
            if (other->colliders.size() > 3 &&
                !PotentialBoxBoxIntersection(worldC, otherTransform, glm::dvec3(c.box_min), glm::dvec3(c.box_max),
                                             other->boundsMin, other->boundsMax, c.exactEdges, false))
                continue;
            for (size_t di = 0; di < other->colliders.size(); ++di) {
                ConvexMeshCollider const& d = other->colliders[di];
                PlacedHull const& hullD = other->Hull(di);
                if (!HullsMeet(hullC, hullD)) continue;
                // The test reads the placed hulls; placed copies of the
                // colliders are made only for the callbacks.
                Collision collision;
                if (c.exactEdges) {
                    collision = ConvexCollision(hullD, hullC);
                    collision.normal = -collision.normal;
                } else {
                    collision = ConvexCollision(hullC, hullD);
                }
                if (!(collision.depth > 0.0)) continue;
                if (::Game::debugServerSidePhysics) {
                    debugLines.push_back({collision.point, collision.point + collision.normal * DebugNormalLength,
                                          glm::vec4(1.0f, 1.0f, 0.0f, 1.0f)});
                }
                if (c.onContact || d.onContact) {
                    PlacedContact& placed = PlaceContactPair(c, worldC, d, otherTransform * d.transform);
                    LetGoOfCopies const letGo(placed);
                    this->ForgetHulls();
                    other->ForgetHulls();
                    if (d.onContact) {
                        collision.normal = -collision.normal;
                        d.onContact(other, placed.other, placed.self, collision, dt);
                        collision.normal = -collision.normal;
                    }
                    if (c.onContact) c.onContact(this, placed.self, placed.other, collision, dt);
                }
                if (collision.depth > 0.0) RespondToCollision(this, other, collision, c.friction * d.friction);
            }
        }
    }

    // A body that came to rest in an earlier substep leaves the static world alone.
    if (contactRest > 0.99) return;
    staticContactNormals.clear();
    staticRelativeContactPoints.clear();

    bodyTransform = this->PlaceHulls();
    for (size_t ci = 0; ci < this->colliders.size(); ++ci) {
        ConvexMeshCollider const& c = this->colliders[ci];
        glm::dmat4 const worldC = bodyTransform * c.transform;
        PlacedHull const& hullC = this->Hull(ci);
        for (Rigidbody<T>* body : nearStatics) {
            glm::dmat4 const& staticTransform = body->PlaceHulls();
            if (body->colliders.size() > 3 &&
                !PotentialBoxBoxIntersection(worldC, staticTransform, glm::dvec3(c.box_min), glm::dvec3(c.box_max),
                                             body->boundsMin, body->boundsMax, c.exactEdges, false))
                continue;
            bool touched = false;
            for (size_t di = 0; di < body->colliders.size(); ++di) {
                ConvexMeshCollider const& d = body->colliders[di];
                touched = VisitStaticPair(c, worldC, &hullC, d, staticTransform, &body->Hull(di), dt, 0) || touched;
            }
            // The largest static body touched may take this one in.
            if (touched && body->radius > largestContactRadius) {
                potentialNewParent = body->entity;
                largestContactRadius = body->radius;
            }
        }
        // The parent's colliders live in its body space; this body moves in
        // the parent entity's frame, which is body space shifted by the
        // parent's centre of mass.
        if (parentBody != nullptr && !parentBody->colliders.empty()) {
            glm::dmat4 const parentFrame = glm::translate(glm::dmat4(1.0), parentBody->centerOfMass);
            for (ConvexMeshCollider const& d : parentBody->colliders) {
                if (VisitStaticPair(c, worldC, &hullC, d, parentFrame, nullptr, dt, 0)) touchesParent = true;
            }
        }
    }

    TestResting();
}

template <class T> void DynamicRigidbody<T>::TestResting() {
    // Supported, and neither sliding nor turning faster than the frictions met allow.
    glm::dvec3 normal(0.0);
    if (GetStaticContact(normal)) {
        glm::dvec3 const sliding = linearVelocity - normal * glm::dot(normal, linearVelocity);
        double const limit = std::min(1.0, restingLimit);
        if (glm::length(sliding) < limit && glm::length(angularVelocity) < limit) contactRest += 1.0;
    }
}

template <class T>
bool DynamicRigidbody<T>::VisitStaticPair(ConvexMeshCollider const& c, glm::dmat4 const& worldC,
                                          PlacedHull const* hullC, ConvexMeshCollider const& d,
                                          glm::dmat4 const& frameD, PlacedHull const* hullD, double dt, int depth) {
    // d's world matrix is made only where the placed hulls do not stand in for it.
    auto worldOfD = [&frameD, &d] { return frameD * d.transform; };
    // A mostly empty collider stands for its children: this body's side first.
    if (IsSubdivided(c)) {
        bool touched = false;
        if (depth < MaxSubColliderDepth &&
            PotentialBoxBoxIntersection(worldC, worldOfD(), glm::dvec3(c.box_min), glm::dvec3(c.box_max),
                                        glm::dvec3(d.box_min), glm::dvec3(d.box_max), c.exactEdges, d.exactEdges)) {
            for (ConvexMeshCollider const& child : *c.subColliders) {
                if (IsUsableChild(child))
                    touched =
                        VisitStaticPair(child, worldC * child.transform, nullptr, d, frameD, nullptr, dt, depth + 1) ||
                        touched;
            }
        }
        return touched;
    }
    if (IsSubdivided(d)) {
        bool touched = false;
        glm::dmat4 const worldD = worldOfD();
        if (depth < MaxSubColliderDepth &&
            PotentialBoxBoxIntersection(worldC, worldD, glm::dvec3(c.box_min), glm::dvec3(c.box_max),
                                        glm::dvec3(d.box_min), glm::dvec3(d.box_max), c.exactEdges, d.exactEdges)) {
            for (ConvexMeshCollider const& child : *d.subColliders) {
                if (IsUsableChild(child))
                    touched = VisitStaticPair(c, worldC, nullptr, child, worldD, nullptr, dt, depth + 1) || touched;
            }
        }
        return touched;
    }

    bool const placed = hullC != nullptr && hullD != nullptr;
    bool const called = static_cast<bool>(c.onContact);
    glm::dmat4 const worldD = placed && !called ? glm::dmat4(1.0) : worldOfD(); // unused when placed without callback
    if (placed ? !HullsMeet(*hullC, *hullD) : !SpheresMeet(c, worldC, d, worldD)) return false;
    // The test reads the colliders where they are, each under its world
    // matrix; placed copies are made only for a callback.
    Collision collision = placed ? ConvexCollision(*hullC, *hullD) : ConvexCollision(c, worldC, d, worldD);
    if (!(collision.depth > 0.0)) return false;

    if (::Game::debugServerSidePhysics) {
        debugLines.push_back({collision.point, collision.point + collision.normal * DebugNormalLength,
                              glm::vec4(1.0f, 0.0f, 0.0f, 1.0f)});
    }
    bool counts = true;
    PlacedContact* copies = nullptr;
    std::optional<LetGoOfCopies> letGo;
    if (called) {
        copies = &PlaceContactPair(c, worldC, d, worldD);
        letGo.emplace(*copies);
        this->ForgetHulls();
        counts = c.onContact(this, copies->self, copies->other, collision, dt);
    }
    if (counts) {
        // Every vertex that carries the contact is a support point, so that a
        // box lying flat on one other box finds the three it needs to rest.
        // After a callback the copies it saw (and may have changed) give them.
        SupportPoints points;
        size_t const supports = called ? ContactSupportPoints(copies->self, copies->other, collision, points)
            : placed                   ? ContactSupportPoints(*hullC, *hullD, collision, points)
                                       : ContactSupportPoints(c, worldC, d, worldD, collision, points);
        if (supports == 0) AddStaticContactPoint(collision.normal, collision.point);
        for (size_t i = 0; i < supports; ++i) AddStaticContactPoint(collision.normal, points[i]);
    }
    if (collision.depth > 0.0) {
        RespondToCollision(collision, c.friction * d.friction);
        restingLimit = std::min({restingLimit, c.friction, d.friction});
    }
    return true;
}

template <class T> void DynamicRigidbody<T>::RespondToCollision(Collision const& collision, double friction) {
    glm::dvec3 const& normal = collision.normal;
    glm::dvec3 const r = collision.point - this->position;
    glm::dvec3 const v = linearVelocity + glm::cross(angularVelocity, r);

    // The whole penetration goes at once.
    this->position += normal * collision.depth;

    // Perfectly inelastic: the impulse stops the motion along the normal.
    double const j =
        -glm::dot(normal, v) / (invMass + glm::dot(normal, glm::cross(invInertiaWorld * glm::cross(r, normal), r)));
    ApplyImpulse(j * normal, r);

    if (friction > 0.0) {
        glm::dvec3 tangent = v - normal * glm::dot(normal, v);
        double const sliding = glm::length(tangent);
        if (sliding > MinimumSlidingSpeed) {
            tangent /= sliding;
            double const k = invMass + glm::dot(tangent, glm::cross(invInertiaWorld * glm::cross(r, tangent), r));
            if (k > 0.0) ApplyImpulse(-glm::dot(tangent, v) * friction / k * tangent, r);
        }
    }
}

template <class T>
void DynamicRigidbody<T>::RespondToCollision(DynamicRigidbody* a, DynamicRigidbody* b, Collision const& collision,
                                             double friction) {
    glm::dvec3 const& normal = collision.normal;
    double const s = a->invMass + b->invMass;

    // The penetration is shared out by inverse mass.
    a->position += normal * collision.depth * a->invMass / s;
    b->position += -normal * collision.depth * b->invMass / s;

    glm::dvec3 const ra = collision.point - a->position;
    glm::dvec3 const rb = collision.point - b->position;
    glm::dvec3 const v = (a->linearVelocity + glm::cross(a->angularVelocity, ra)) -
        (b->linearVelocity + glm::cross(b->angularVelocity, rb));

    auto angularTerm = [&](glm::dvec3 const& axis) {
        return glm::dot(axis,
                        glm::cross(a->invInertiaWorld * glm::cross(ra, axis), ra) +
                            glm::cross(b->invInertiaWorld * glm::cross(rb, axis), rb));
    };

    double const j = -glm::dot(normal, v) / (s + angularTerm(normal));
    a->ApplyImpulse(j * normal, ra);
    b->ApplyImpulse(-j * normal, rb);

    if (friction > 0.0) {
        glm::dvec3 tangent = v - normal * glm::dot(normal, v);
        double const sliding = glm::length(tangent);
        if (sliding > MinimumSlidingSpeed) {
            tangent /= sliding;
            double const k = s + angularTerm(tangent);
            if (k > 0.0) {
                glm::dvec3 const impulse = -glm::dot(tangent, v) * friction / k * tangent;
                a->ApplyImpulse(impulse, ra);
                b->ApplyImpulse(-impulse, rb);
            }
        }
    }
}

template <class T> void DynamicRigidbody<T>::AddStaticContactPoint(glm::dvec3 const& normal, glm::dvec3 point) {
    glm::dvec3 const relative = point - this->position;
    for (glm::dvec3 const& stored : staticRelativeContactPoints) {
        if (glm::distance(stored, relative) < ContactMergeDistance) return;
    }
    staticContactNormals.push_back(normal);
    staticRelativeContactPoints.push_back(relative);
}

template <class T> bool DynamicRigidbody<T>::GetStaticContact(glm::dvec3& normalOut) {
    NEROX_ASSERT(staticContactNormals.size() == staticRelativeContactPoints.size());
    size_t const count = staticRelativeContactPoints.size();
    if (count < 3) return false;

    // The plane of the last three contacts, facing as the last contact does.
    // Three points in a line name no plane: the last normal stands in.
    glm::dvec3 const& p0 = staticRelativeContactPoints[count - 3];
    glm::dvec3 const& p1 = staticRelativeContactPoints[count - 2];
    glm::dvec3 const& p2 = staticRelativeContactPoints[count - 1];
    glm::dvec3 const cross = glm::cross(p1 - p0, p2 - p0);
    double const length = glm::length(cross);
    glm::dvec3 const& lastNormal = staticContactNormals[count - 1];
    normalOut = length > 1e-12 ? cross / length : lastNormal;
    if (glm::dot(normalOut, lastNormal) < 0.0) normalOut = -normalOut;

    auto supports = [&normalOut](glm::dvec3 const& contactNormal) {
        return glm::dot(contactNormal, normalOut) >= SupportCosine;
    };
    for (size_t i = count - 3; i < count; ++i) {
        if (!supports(staticContactNormals[i])) return false;
    }
    // The centre of mass is the origin of the relative points.
    if (EnclosesProjectedOrigin(p0, p1, p2, normalOut)) return true;

    // Otherwise every contact must push along the plane's normal, and some
    // other triple of contacts must hold the centre of mass between them:
    // the triples are walked in index order and the first enclosing one wins.
    for (glm::dvec3 const& contactNormal : staticContactNormals) {
        if (!supports(contactNormal)) return false;
    }
    for (size_t i = 0; i + 2 < count; ++i) {
        for (size_t j = i + 1; j + 1 < count; ++j) {
            for (size_t k = j + 1; k < count; ++k) {
                if (i == count - 3) continue; // the last triple, tested above
                if (EnclosesProjectedOrigin(staticRelativeContactPoints[i], staticRelativeContactPoints[j],
                                            staticRelativeContactPoints[k], normalOut))
                    return true;
            }
        }
    }
    return false;
}

template void DynamicRigidbody<entity::ServerSideEntity>::CollisionDetection(double);
template void DynamicRigidbody<entity::ServerSideEntity>::RespondToCollision(Collision const&, double);
template void DynamicRigidbody<entity::ServerSideEntity>::RespondToCollision(
    DynamicRigidbody<entity::ServerSideEntity>*, DynamicRigidbody<entity::ServerSideEntity>*, Collision const&, double);
template void DynamicRigidbody<entity::ServerSideEntity>::AddStaticContactPoint(glm::dvec3 const&, glm::dvec3);
template bool DynamicRigidbody<entity::ServerSideEntity>::GetStaticContact(glm::dvec3&);
template void DynamicRigidbody<entity::ServerSideEntity>::TestResting();

} // namespace game::physics
