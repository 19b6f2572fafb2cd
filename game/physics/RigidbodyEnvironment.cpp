// Environment interaction of dynamic bodies: once a frame the aerodynamic
// surface samples, then on every substep gravity, drag and lift on those
// samples, terrain contacts, buoyancy and the damping of liquids.
//
// Frames: a body's position, velocities and colliders are in its own frame,
// which is the environment's for a body without parent and the parent's
// otherwise. The environment is asked in its own frame; the pass below turns
// points into it and gravity and normals back.
//
// Samples keep their point and normal in body axes (origin at the centre of
// mass); each substep turns them by the body's current rotation.
#include "game/physics/Rigidbody.hpp"

#include "game/Game.hpp"

#include <algorithm>
#include <cfloat>
#include <bit>
#include <cmath>

#include <glm/gtc/constants.hpp>

#include "game/entity/ServerSideEntity.hpp"
#include "game/physics/PhysicsRandom.hpp"
#include "nerox/Assert.hpp"

namespace game::physics {

using std::isnan;

namespace {

using entity::ConvexMeshCollider;

/// Machine epsilon of double: speeds and squared forces at or below it count as none.
constexpr double Epsilon = 2.220446049250313e-16;

/// Terrain query without the surface depth.
constexpr EnvironmentInfoFlags TerrainQuery = EnvironmentTerrain;
/// Air (or water) and surface query.
constexpr EnvironmentInfoFlags AirAndSurfaceQuery =
    static_cast<EnvironmentInfoFlags>(EnvironmentTerrain | EnvironmentMedium);
/// Full query, with terrain, for a collider.
constexpr EnvironmentInfoFlags ColliderQuery =
    static_cast<EnvironmentInfoFlags>(EnvironmentTerrain | EnvironmentSurfaceDepth | EnvironmentMedium);

// Which colliders feel the air. s0 <= s1 <= s2 are a collider's sorted extents.
constexpr double PlateMaxThickness = 0.3;    ///< A plate has s0 below this.
constexpr double PlateMinAspect = 0.25;      ///< ... and s1 at least this share of s2 ...
constexpr double PlateMinLength = 4.0;       ///< ... and s2 at least this.
constexpr double PlateMinFace = 0.75;        ///< A plate is sampled when s1 * s2 exceeds this.
constexpr double BodyMinFace = 6.0;          ///< Any other collider when s1 * s2 exceeds this.
constexpr double BulkyVolumeDivisor = 200.0; ///< Bulky: box volume above the body's volume / this.

/// Below this fill a collider with children is sampled through them.
constexpr double AerodynamicFillLimit = 0.9;
/// Below this fill a collider with children touches the ground through them.
constexpr double ContactFillLimit = 0.95;
/// Children of at most this radius are ignored.
constexpr double MinChildRadius = 0.0001;
/// Deeper nesting of children is treated as a whole collider.
constexpr int MaxChildDepth = 16;

/// Below this |c| the cover ray of a lift sample goes straight along the travel.
constexpr double GrazingCosine = 0.0001;
/// A lift sample needs a face larger than this times the thickness squared.
constexpr double LiftFaceRatio = 4.0;
constexpr double LiftDragFactor = 0.01; ///< D of a lift sample.
constexpr double DragFactor = 0.4;      ///< D of a drag sample.
/// An application point nearer than this to the centre of mass stays at the box centre (metres).
constexpr double CentreTolerance = 1e-9;

/// Terrain contacts take this share of the collider's friction.
constexpr double TerrainFrictionShare = 0.1;
/// Resting limit after a terrain contact, at most.
constexpr double TerrainRestingLimit = 0.1;
/// Hull vertices this close to the lowest one along the ground normal share the contact (metres).
constexpr double LowestPointTolerance = 1e-6;
/// The body asks whether it is near the ground at this many radii.
constexpr double NearSurfaceRadii = 3.0;
/// Vertices this close above a ground contact's depth still carry it, metres.
constexpr double GroundSupportSlop = 0.01;

// Liquids: a mean kinematic viscosity strictly between these damps the body.
constexpr double AirViscosity = 1.5e-5;
constexpr double LiquidMinViscosity = 1.51e-5;
constexpr double LiquidMaxViscosity = 0.000999;
constexpr double LiquidViscositySpan = 0.000985;
constexpr double LiquidVerticalLoss = 0.99; ///< Share of the vertical velocity lost per second.
constexpr double LiquidSpinLoss = 0.9;      ///< Share of the spin about the vertical lost per second.

constexpr glm::vec4 BlockedRayColor(0.0f, 0.0f, 0.0f, 1.0f);
constexpr glm::vec4 FreeRayColor(1.0f, 0.0f, 1.0f, 1.0f);
constexpr glm::vec4 DragLineColor(1.0f, 0.0f, 0.0f, 1.0f);
constexpr glm::vec4 TerrainLineColor(1.0f, 1.0f, 0.0f, 1.0f);

glm::dvec3 TransformPoint(glm::dmat4 const& matrix, glm::dvec3 const& point) {
    return glm::dvec3(matrix * glm::dvec4(point, 1.0));
}

glm::dvec3 BoxCenter(ConvexMeshCollider const& collider) {
    return (glm::dvec3(collider.box_min) + glm::dvec3(collider.box_max)) * 0.5;
}

glm::dvec3 Extents(ConvexMeshCollider const& collider) {
    return glm::abs(glm::dvec3(collider.box_max) - glm::dvec3(collider.box_min));
}

double Sign(double value) {
    return value > 0.0 ? 1.0 : (value < 0.0 ? -1.0 : 0.0);
}

/// Whether collider stands for its children below fillLimit.
bool IsSubdivided(ConvexMeshCollider const& collider, double fillLimit) {
    return collider.fill < fillLimit && collider.subColliders && !collider.subColliders->empty();
}

/// Whether a child is worth visiting: a real radius and box, and a hull or children.
bool IsUsableChild(ConvexMeshCollider const& child) {
    return child.radius > MinChildRadius && child.box_max.x > child.box_min.x &&
        (child.verticesCount > 0 || (child.subColliders && !child.subColliders->empty()));
}

/// The point of collider, placed by toFrame, that lies lowest along up: a hull
/// vertex, or a box corner for a collider without vertices. Vertices within
/// LowestPointTolerance of the lowest give their mean, so that a face lying on
/// the ground touches at its middle.
glm::dvec3 LowestPoint(ConvexMeshCollider const& collider, glm::dmat4 const& toFrame, glm::dvec3 const& up) {
    glm::dvec3 points[std::max<size_t>(ConvexMeshCollider::MaxVertices, 8)];
    uint32_t count = std::min<uint32_t>(collider.verticesCount, ConvexMeshCollider::MaxVertices);
    for (uint32_t i = 0; i < count; ++i) points[i] = TransformPoint(toFrame, glm::dvec3(collider.vertices[i]));
    if (count == 0) {
        for (uint32_t corner = 0; corner < 8; ++corner)
            points[corner] = TransformPoint(toFrame,
                                            glm::dvec3((corner & 4u) ? collider.box_max.x : collider.box_min.x,
                                                       (corner & 2u) ? collider.box_max.y : collider.box_min.y,
                                                       (corner & 1u) ? collider.box_max.z : collider.box_min.z));
        count = 8;
    }
    double lowest = glm::dot(points[0], up);
    for (uint32_t i = 1; i < count; ++i) lowest = std::min(lowest, glm::dot(points[i], up));
    glm::dvec3 sum(0.0);
    double n = 0.0;
    for (uint32_t i = 0; i < count; ++i) {
        if (glm::dot(points[i], up) <= lowest + LowestPointTolerance) {
            sum += points[i];
            n += 1.0;
        }
    }
    return n > 0.0 ? sum / n : points[0];
}

/// Remembers as static contacts the vertices of collider (placed by toFrame)
/// that carry a ground contact: those within depth (plus 1 cm) of its lowest
/// point along up. A box lying flat gives its four lower corners, which is
/// what the resting test needs.
template <class Body>
void AddGroundSupport(Body& body, ConvexMeshCollider const& collider, glm::dmat4 const& toFrame, glm::dvec3 const& up,
                      double depth) {
    uint32_t const count = std::min<uint32_t>(collider.verticesCount, ConvexMeshCollider::MaxVertices);
    double lowest = DBL_MAX;
    for (uint32_t i = 0; i < count; ++i)
        lowest = std::min(lowest, glm::dot(TransformPoint(toFrame, glm::dvec3(collider.vertices[i])), up));
    double const reach = std::max(depth, 0.0) + GroundSupportSlop;
    for (uint32_t i = 0; i < count; ++i) {
        glm::dvec3 const point = TransformPoint(toFrame, glm::dvec3(collider.vertices[i]));
        if (glm::dot(point, up) <= lowest + reach) body.AddStaticContactPoint(up, point);
    }
}

/// Whether the ray (origin, unit direction, both in the frame of toFrame's
/// result) meets collider or, for a subdivided one, one of its children.
/// excluded is never hit: it is the collider whose face the ray starts on.
bool RayHitsCollider(ConvexMeshCollider const& collider, glm::dmat4 const& toFrame, glm::dvec3 const& origin,
                     glm::dvec3 const& direction, ConvexMeshCollider const* excluded, int depth) {
    if (&collider == excluded) return false;
    // Sphere test first: the ray must pass within the radius of the box centre.
    glm::dvec3 const toCentre = TransformPoint(toFrame, BoxCenter(collider)) - origin;
    double const along = glm::dot(toCentre, direction);
    double const distance2 = along < 0.0 ? glm::dot(toCentre, toCentre) : glm::dot(toCentre, toCentre) - along * along;
    if (distance2 > collider.radius * collider.radius) return false;
    if (IsSubdivided(collider, AerodynamicFillLimit) && depth < MaxChildDepth) {
        for (ConvexMeshCollider const& child : *collider.subColliders) {
            if (IsUsableChild(child) &&
                RayHitsCollider(child, toFrame * child.transform, origin, direction, excluded, depth + 1))
                return true;
        }
        return false;
    }
    glm::dmat4 const toCollider = glm::inverse(toFrame);
    return RayBoxIntersection(TransformPoint(toCollider, origin), glm::dmat3(toCollider) * direction,
                              glm::dvec3(collider.box_min), glm::dvec3(collider.box_max));
}

/// Builds the surface samples of one body for one frame.
template <class T> class SurfaceSampler {
public:
    SurfaceSampler(DynamicRigidbody<T>& body, glm::dvec3 const& travel)
        : _body(body), _bodyTransform(body.GetTransform()), _travel(travel), _limit(body.volume / BulkyVolumeDivisor),
          _debug(Game::debugServerSidePhysics) { }

    /// Visits collider, placed in body space by local.
    void Visit(ConvexMeshCollider const& collider, glm::dmat4 const& local, int depth) {
        glm::dvec3 const extent = Extents(collider);
        double s[3] = {extent.x, extent.y, extent.z};
        std::sort(s, s + 3);
        // The reserved word after fill, read as a double; zero leaves nothing bulky.
        double const w = std::bit_cast<double>(collider.reserved0);
        bool const bulky = extent.x * extent.y * extent.z * w > _limit * w;
        bool const plate = s[0] < PlateMaxThickness && s[1] >= PlateMinAspect * s[2] && s[2] >= PlateMinLength;
        bool const visited = plate ? (s[1] * s[2] > PlateMinFace || bulky) : (bulky || s[1] * s[2] > BodyMinFace);
        if (!visited) return;

        if (IsSubdivided(collider, AerodynamicFillLimit) && depth < MaxChildDepth) {
            for (ConvexMeshCollider const& child : *collider.subColliders) {
                if (IsUsableChild(child)) Visit(child, local * child.transform, depth + 1);
            }
            return;
        }
        Sample(collider, local, extent);
    }

private:
    /// At most one sample from collider: lift on a wide thin face, drag otherwise.
    void Sample(ConvexMeshCollider const& collider, glm::dmat4 const& local, glm::dvec3 const& extent) {
        glm::dvec3 const d = glm::normalize(glm::inverse(glm::dmat3(local)) * _travel);
        glm::dvec3 const centre = BoxCenter(collider);
        glm::dvec3 const point = ApplicationPoint(collider, local, centre);
        glm::dmat4 const world = _bodyTransform * local;

        int thin;
        if (extent.y > extent.x)
            thin = extent.x > extent.z ? 2 : 0;
        else
            thin = extent.y > extent.z ? 2 : 1;
        int const a1 = (thin + 1) % 3;
        int const a2 = (thin + 2) % 3;
        double const liftArea = extent[a1] * extent[a2];
        NEROX_ASSERT(liftArea > 0);
        double const t = extent[thin];

        glm::dvec3 normal(0.0);
        glm::dvec3 factors(0.0);
        if (liftArea > LiftFaceRatio * t * t) {
            glm::dvec3 e(0.0);
            e[thin] = 1.0;
            double const c = glm::dot(d, e);
            glm::dvec3 faceCentre = centre;
            faceCentre[thin] += 0.5 * t * Sign(c);
            glm::dvec3 const ray = std::abs(c) < GrazingCosine ? d : glm::normalize(2.0 * d + Sign(c) * e);
            if (Covered(collider, world, FacePoint(faceCentre, extent, a1, a2), ray)) return;
            normal = glm::normalize(glm::dmat3(local) * e);
            factors = glm::dvec3(liftArea, std::sin(0.5 * glm::pi<double>() * std::abs(c)), LiftDragFactor);
        } else {
            glm::dvec3 const m = glm::abs(d);
            int axis;
            if (m.y > m.x)
                axis = m.z > m.y ? 2 : 1;
            else
                axis = m.z > m.x ? 2 : 0;
            int const b1 = (axis + 1) % 3;
            int const b2 = (axis + 2) % 3;
            double const dragArea = extent[b1] * extent[b2] * collider.fill;
            NEROX_ASSERT(dragArea > 0);
            glm::dvec3 faceCentre = centre;
            faceCentre[axis] += 0.5 * extent[axis] * Sign(d[axis]);
            if (Covered(collider, world, FacePoint(faceCentre, extent, b1, b2), d)) return;
            normal = glm::normalize(glm::dmat3(local) * d);
            factors = glm::dvec3(dragArea, 0.0, DragFactor);
        }

        _body.aerodynamicSamples.push_back(AerodynamicSample{point, normal, factors});
        entity::ConvexMeshCollider& surface = _body.aerodynamicSurfaces.emplace_back(collider);
        surface.transform = local;
        if (_debug) {
            entity::ConvexMeshCollider& shown = _body.debugColliders.emplace_back(collider);
            shown.transform = world;
        }
    }

    /// From the box centre outward from the centre of mass by radius * fill,
    /// kept inside the box; body space, so relative to the body's position.
    glm::dvec3 ApplicationPoint(ConvexMeshCollider const& collider, glm::dmat4 const& local,
                                glm::dvec3 const& centre) const {
        glm::dvec3 const boxCentre = TransformPoint(local, centre);
        double const distance = glm::length(boxCentre);
        if (!(distance > CentreTolerance)) return boxCentre;
        glm::dvec3 const outward = boxCentre + boxCentre / distance * (collider.radius * collider.fill);
        glm::dvec3 const inCollider = TransformPoint(glm::inverse(local), outward);
        glm::dvec3 const clamped = glm::clamp(inCollider, glm::dvec3(collider.box_min), glm::dvec3(collider.box_max));
        return TransformPoint(local, clamped);
    }

    /// A random point of the face at faceCentre spanned by axes a1 and a2.
    glm::dvec3 FacePoint(glm::dvec3 faceCentre, glm::dvec3 const& extent, int a1, int a2) {
        std::uniform_real_distribution<double> spread(-0.5, 0.5);
        std::mt19937_64& random = AerodynamicRandom();
        faceCentre[a1] += spread(random) * extent[a1];
        faceCentre[a2] += spread(random) * extent[a2];
        return faceCentre;
    }

    /// Whether another collider of the body lies on the ray from the face point
    /// (collider space) along ray (collider axes).
    bool Covered(ConvexMeshCollider const& sampled, glm::dmat4 const& world, glm::dvec3 const& facePoint,
                 glm::dvec3 const& ray) {
        glm::dvec3 const origin = TransformPoint(world, facePoint);
        glm::dvec3 const direction = glm::normalize(glm::dmat3(world) * ray);
        bool hit = false;
        for (ConvexMeshCollider const& other : _body.colliders) {
            if (RayHitsCollider(other, _bodyTransform * other.transform, origin, direction, &sampled, 0)) {
                hit = true;
                break;
            }
        }
        if (_debug)
            _body.debugLines.push_back(Game::PhysicsLineDebug{origin, origin + direction * _body.radius,
                                                              hit ? BlockedRayColor : FreeRayColor});
        return hit;
    }

    DynamicRigidbody<T>& _body;
    glm::dmat4 const _bodyTransform;
    glm::dvec3 const _travel; ///< Unit direction of travel, body axes.
    double const _limit;
    bool const _debug;
};

/// The steps of one environment interaction, shared by bodies with and without
/// parent. Begin answers gravity; Finish runs drag, the collider pass and the
/// damping of liquids.
template <class T> class EnvironmentPass {
public:
    /// frame maps the body's frame into the environment's; null when they are the same.
    EnvironmentPass(DynamicRigidbody<T>& body, glm::dmat4 const* frame, EnvironmentFunction& environment, double dt)
        : _body(body), _frame(frame), _environment(environment), _dt(dt) {
        if (frame) _fromEnvironment = glm::inverse(glm::dmat3(*frame));
    }

    /// Step 1: gravity replaces the pending acceleration. False when gravity is
    /// exactly zero: the interaction ends there.
    bool Begin() {
        _centre = _body.GetPositionAtCenterOfBounds();
        _answer = Ask(_centre, AirAndSurfaceQuery, _body.radius * 0.5);
        _body.pendingAcceleration = FromEnvironment(_answer.gravity);
        return _answer.gravity != glm::dvec3(0.0);
    }

    /// Steps 2 to 5.
    void Finish() {
        _up = glm::normalize(-_body.pendingAcceleration);
        if (_body.invMass > 0) Drag();
        ColliderPass();
        Damping();
    }

private:
    EnvironmentInfo Ask(glm::dvec3 const& point, EnvironmentInfoFlags flags, double radius) const {
        return _environment(_frame ? TransformPoint(*_frame, point) : point, flags, radius);
    }

    glm::dvec3 FromEnvironment(glm::dvec3 const& direction) const {
        return _frame ? _fromEnvironment * direction : direction;
    }

    glm::dvec3 ToWorld(glm::dvec3 const& point) const { return _frame ? TransformPoint(*_frame, point) : point; }

    /// ApplyImpulse for the steady push of the medium (drag, lift, buoyancy).
    /// It is no contact: the count of resting substeps stays, or a body in air
    /// or water could never come to rest.
    void ApplyMediumImpulse(glm::dvec3 const& impulse, glm::dvec3 const& relativePoint) {
        double const rest = _body.contactRest;
        _body.ApplyImpulse(impulse, relativePoint);
        _body.contactRest = rest;
    }

    void Line(glm::dvec3 const& start, glm::dvec3 const& end, glm::vec4 const& color) {
        _body.debugLines.push_back(Game::PhysicsLineDebug{ToWorld(start), ToWorld(end), color});
    }

    /// Step 3: drag and lift on the surface samples.
    void Drag() {
        glm::dmat3 const rotation = glm::mat3_cast(_body.orientation);
        for (AerodynamicSample const& sample : _body.aerodynamicSamples) {
            glm::dvec3 const r = rotation * sample.point;
            glm::dvec3 const v = _body.linearVelocity + glm::cross(_body.angularVelocity, r);
            double const speed = glm::length(v);
            if (!(speed > Epsilon)) continue;
            glm::dvec3 const d = v / speed;
            glm::dvec3 n = glm::normalize(rotation * sample.normal);
            double const c = glm::dot(d, n);
            n *= Sign(c);
            // The radius argument carries the sign of c: the sample is a point.
            EnvironmentInfo const air = Ask(_body.position + r, AirAndSurfaceQuery, Sign(c));
            double const area = sample.factors.x;
            double const lift = sample.factors.y;
            double const dragFactor = sample.factors.z;
            glm::dvec3 drag = air.density * speed * speed * area * (-lift * n - 0.5 * dragFactor * d);
            double const magnitude2 = glm::dot(drag, drag);
            if (magnitude2 > Epsilon) {
                // At most speed * mass: no substep of up to 1 s reverses the motion.
                double const most = speed / _body.invMass;
                double const magnitude = std::sqrt(magnitude2);
                if (magnitude > most) drag *= most / magnitude;
            }
            NEROX_ASSERT(!isnan(drag.x) && !isnan(drag.y) && !isnan(drag.z));
            if (!(magnitude2 > Epsilon)) continue;
            ApplyMediumImpulse(_dt * drag, r);
            if (Game::debugServerSidePhysics) {
                glm::dvec3 const start = _body.position + r;
                Line(start, start + drag * _body.invMass, DragLineColor);
            }
        }
    }

    /// Step 4: terrain contacts near the ground, buoyancy elsewhere.
    void ColliderPass() {
        bool const nearSurface = _answer.altitude - NearSurfaceRadii * _body.radius < 0.0;
        for (ConvexMeshCollider const& collider : _body.colliders) {
            glm::dmat4 const world = _body.GetTransform() * collider.transform;
            glm::dvec3 const centre = TransformPoint(world, BoxCenter(collider));
            if (nearSurface) {
                EnvironmentInfo const ground = Ask(centre, ColliderQuery, 0.5 * collider.radius);
                glm::dvec3 const up = FromEnvironment(ground.surfaceNormal);
                if (!(glm::dot(up, up) > 0.0)) continue;
                TerrainContact(collider, collider.transform, glm::normalize(up), 0);
            } else {
                Buoyancy(collider, world, centre);
            }
        }
        // The ground's answer came after the contact search of this substep:
        // a body that the ground holds still is resting, as on a static body.
        if (_touchedGround) _body.TestResting();
    }

    /// The contact of collider (placed in body space by local) with the ground:
    /// at its lowest point along up, as deep as the ground answers there. An
    /// exactEdges collider that stands for its children touches through them.
    void TerrainContact(ConvexMeshCollider const& collider, glm::dmat4 const& local, glm::dvec3 const& up, int depth) {
        glm::dvec3 const lowest = LowestPoint(collider, _body.GetTransform() * local, up);
        EnvironmentInfo const at =
            Ask(lowest, collider.reducedQuery ? TerrainQuery : AirAndSurfaceQuery, 0.5 * collider.radius);
        if (!(at.terrain.depth > 0.0)) return;
        if (collider.exactEdges && IsSubdivided(collider, ContactFillLimit) && depth < MaxChildDepth) {
            for (ConvexMeshCollider const& child : *collider.subColliders) {
                if (IsUsableChild(child)) TerrainContact(child, local * child.transform, up, depth + 1);
            }
            return;
        }
        Collision const contact{lowest, up, at.terrain.depth};
        if (Game::debugServerSidePhysics) Line(lowest, lowest + up * contact.depth, TerrainLineColor);
        _body.RespondToCollision(contact, TerrainFrictionShare * collider.friction);
        _body.restingLimit = std::min({TerrainRestingLimit, _body.restingLimit, collider.friction});
        _body.keepOnParent = true;
        AddGroundSupport(_body, collider, _body.GetTransform() * local, up, contact.depth);
        _touchedGround = true;
    }

    /// One random point of the collider's box samples the medium; the buoyant
    /// impulse of the whole box acts at its centre.
    void Buoyancy(ConvexMeshCollider const& collider, glm::dmat4 const& world, glm::dvec3 const& centre) {
        glm::dvec3 const extent = Extents(collider);
        double const boxVolume = extent.x * extent.y * extent.z;
        if (!(boxVolume > 0.0) || !(_answer.density > 0.0)) return;
        std::mt19937_64& random = BuoyancyRandom();
        glm::dvec3 u(0.0);
        for (int axis = 0; axis < 3; ++axis)
            u[axis] = static_cast<double>(static_cast<float>(random() >> 40) * 0x1.0p-24f); // [0, 0.99999994]
        glm::dvec3 const low(collider.box_min);
        glm::dvec3 const high(collider.box_max);
        glm::dvec3 const point = TransformPoint(world, low + u * (high - low));
        EnvironmentInfo const medium = Ask(point, AirAndSurfaceQuery, 0.5 * collider.radius);
        _samples += 1.0;
        _viscositySum += medium.viscosity;
        _densitySum += medium.density;
        glm::dvec3 const impulse = -_body.pendingAcceleration * boxVolume * collider.fill * medium.density * _dt;
        ApplyMediumImpulse(impulse, centre - _body.position);
    }

    /// Step 5: a liquid damps the motion.
    void Damping() {
        if (_samples == 0.0) {
            EnvironmentInfo const here = Ask(_centre, AirAndSurfaceQuery, _body.radius * 0.5);
            _samples = 1.0;
            _viscositySum = here.viscosity;
            _densitySum = here.density;
        }
        double const viscosity = _viscositySum / _samples;
        if (!(viscosity > LiquidMinViscosity && viscosity < LiquidMaxViscosity)) return;
        double const t = (viscosity - AirViscosity) / LiquidViscositySpan;
        double const k = std::clamp(_dt * t * t * (3.0 - 2.0 * t), 0.0, 1.0);
        Damp(_body.linearVelocity, LiquidVerticalLoss, k);
        Damp(_body.angularVelocity, LiquidSpinLoss, k);
        _body.keepOnParent = true;
    }

    /// The part of velocity along up loses loss * dt of itself; then velocity
    /// moves by k towards half of what is left across up: the mean of that
    /// motion and the liquid, which is at rest.
    void Damp(glm::dvec3& velocity, double loss, double k) const {
        velocity -= std::min(loss * _dt, 1.0) * glm::dot(velocity, _up) * _up;
        glm::dvec3 const across = velocity - glm::dot(velocity, _up) * _up;
        velocity += k * (0.5 * across - velocity);
    }

    DynamicRigidbody<T>& _body;
    glm::dmat4 const* _frame;
    glm::dmat3 _fromEnvironment{1.0};
    EnvironmentFunction& _environment;
    double const _dt;
    EnvironmentInfo _answer;
    glm::dvec3 _centre{0.0};
    glm::dvec3 _up{0.0};
    double _samples = 0.0;
    bool _touchedGround = false; // a collider met the ground this call
    double _viscositySum = 0.0;
    double _densitySum = 0.0;
};

} // namespace

template <class T> void DynamicRigidbody<T>::ComputeAerodynamicSurfaces(EnvironmentFunction& environment) {
    aerodynamicSamples.clear();
    aerodynamicSurfaces.clear();
    glm::dvec3 const centre = this->GetPositionAtCenterOfBounds();
    // The medium does not move: the speed through the air is the body's own.
    environment(centre, AirAndSurfaceQuery, this->radius * 0.5);
    double const speed2 = glm::dot(linearVelocity, linearVelocity);
    if (speed2 < Epsilon) return;
    glm::dvec3 const travel = glm::inverse(glm::mat3_cast(this->orientation)) * (linearVelocity / std::sqrt(speed2));
    aerodynamicSamples.reserve(this->colliders.size());
    SurfaceSampler<T> sampler(*this, travel);
    for (entity::ConvexMeshCollider const& collider : this->colliders) sampler.Visit(collider, collider.transform, 0);
}

template <class T> void DynamicRigidbody<T>::InteractWithEnvironment(EnvironmentFunction& environment, double dt) {
    EnvironmentPass<T> pass(*this, nullptr, environment, dt);
    if (!pass.Begin()) return;
    if (!aerodynamicSamples.empty()) NEROX_ASSERT(this->invMass > 0);
    pass.Finish();
}

template <class T>
void DynamicRigidbody<T>::InteractWithEnvironmentFromParent(glm::dmat4 const& parentTransform,
                                                            EnvironmentFunction& environment, double dt) {
    EnvironmentPass<T> pass(*this, &parentTransform, environment, dt);
    if (!pass.Begin()) return;
    if (!aerodynamicSamples.empty()) NEROX_ASSERT(this->invMass > 0);
    pass.Finish();
}

template void DynamicRigidbody<entity::ServerSideEntity>::ComputeAerodynamicSurfaces(EnvironmentFunction&);
template void DynamicRigidbody<entity::ServerSideEntity>::InteractWithEnvironment(EnvironmentFunction&, double);
template void DynamicRigidbody<entity::ServerSideEntity>::InteractWithEnvironmentFromParent(glm::dmat4 const&,
                                                                                            EnvironmentFunction&,
                                                                                            double);

} // namespace game::physics
