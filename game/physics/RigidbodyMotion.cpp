// Rigid body records: construction from an entity, bounds, inertia, the
// half-step integration, impulses and the write-back to the entity.
#include "game/physics/Rigidbody.hpp"

#include <cmath>

#include <glm/gtc/matrix_transform.hpp>

#include "game/entity/ServerSideEntity.hpp"
#include "nerox/Assert.hpp"

namespace game::physics {

namespace {

/// Speed above which a body leaves its parent, m/s.
constexpr double DetachSpeed = 10.0;
/// Speed below which a body joins the static body it rests on, m/s.
constexpr double AttachSpeed = 5.0;

} // namespace

// ---------------------------------------------------------------------------
// Rigidbody

template <class T> Rigidbody<T>::Rigidbody(std::shared_ptr<T>& source, bool withColliders) {
    Load(source, withColliders);
}

template <class T> void Rigidbody<T>::Load(std::shared_ptr<T>& source, bool withColliders) {
    entity = source;
    orientation = source->orientation;
    id = source->GetID();
    centerOfMass = source->centerOfMass;
    gravity = glm::dvec3(0.0);
    volume = 0.0;
    position = source->position + glm::mat3_cast(orientation) * centerOfMass;
    boundsMin = source->boundsMin - centerOfMass;
    boundsMax = source->boundsMax - centerOfMass;
    colliders.clear();
    _hullsCurrent = false;
    for (auto const& entry : source->colliders) {
        entity::ConvexMeshCollider const& described = entry.second;
        if (!described.enabled) continue;
        // Body space has its origin at the centre of mass.
        glm::dmat4 transform = described.transform;
        transform[3] -= glm::dvec4(centerOfMass, 0.0);
        glm::dvec3 const size = glm::dvec3(described.box_max) - glm::dvec3(described.box_min);
        volume += std::abs(size.x) * std::abs(size.y) * std::abs(size.z) * described.fill;
        glm::dvec3 const a(transform * glm::dvec4(glm::dvec3(described.box_min), 1.0));
        glm::dvec3 const b(transform * glm::dvec4(glm::dvec3(described.box_max), 1.0));
        boundsMin = glm::min(boundsMin, glm::min(a, b));
        boundsMax = glm::max(boundsMax, glm::max(a, b));
    }
    ComputeBounds();
    collidersLoaded = withColliders;
    if (withColliders) CopyColliders(*source);
}

template <class T> void Rigidbody<T>::LoadColliders() {
    if (collidersLoaded) return;
    collidersLoaded = true;
    _hullsCurrent = false;
    if (std::shared_ptr<T> const source = entity.lock()) CopyColliders(*source);
}

template <class T> void Rigidbody<T>::CopyColliders(T const& source) {
    colliders.reserve(source.colliders.size());
    for (auto const& entry : source.colliders) {
        if (!entry.second.enabled) continue;
        entity::ConvexMeshCollider& collider = colliders.emplace_back(entry.second);
        collider.transform[3] -= glm::dvec4(centerOfMass, 0.0); // into body space, as Load placed it
    }
}

template <class T> void Rigidbody<T>::Release() {
    entity.reset();
    colliders.clear();
    _hullsCurrent = false;
}

template <class T> glm::dvec3 Rigidbody<T>::GetPositionAtCenterOfBounds() const {
    return position + glm::mat3_cast(orientation) * boundsCenter;
}

template <class T> void Rigidbody<T>::ComputeBounds() {
    boundsCenter = (boundsMin + boundsMax) / 2.0;
    radius = 0.5 * glm::length(boundsMax - boundsMin);
    boundsWorldCenter = GetPositionAtCenterOfBounds();
}

template <class T> glm::dmat4 Rigidbody<T>::GetTransform() const {
    // translate(position) * mat4_cast(orientation), without the product.
    glm::dmat4 transform = glm::mat4_cast(orientation);
    transform[3] = glm::dvec4(position, 1.0);
    return transform;
}

template <class T> glm::dmat4 const& Rigidbody<T>::PlaceHulls() {
    if (_hullsCurrent && position == _hullPosition && orientation == _hullOrientation) return _hullTransform;
    _hullsCurrent = true;
    _hullPosition = position;
    _hullOrientation = orientation;
    _hullTransform = GetTransform();
    ++_placement;
    if (_hulls.size() != colliders.size()) {
        _hulls.resize(colliders.size());
        _hullPlacements.assign(colliders.size(), _placement - 1);
    }
    return _hullTransform;
}

template <class T> PlacedHull const& Rigidbody<T>::Hull(size_t i) {
    NEROX_ASSERT(i < _hulls.size());
    if (_hullPlacements[i] != _placement) {
        _hullPlacements[i] = _placement;
        _hulls[i].Place(colliders[i], _hullTransform * colliders[i].transform);
    }
    return _hulls[i];
}

template class Rigidbody<entity::ServerSideEntity>;

// ---------------------------------------------------------------------------
// DynamicRigidbody

template <class T>
DynamicRigidbody<T>::DynamicRigidbody(std::shared_ptr<T>& source, double deltaTime) : Rigidbody<T>(source) {
    LoadMotion(source, deltaTime);
}

template <class T> void DynamicRigidbody<T>::Load(std::shared_ptr<T>& source, double deltaTime) {
    Rigidbody<T>::Load(source);
    LoadMotion(source, deltaTime);
}

template <class T> void DynamicRigidbody<T>::LoadMotion(std::shared_ptr<T>& source, double deltaTime) {
    NEROX_ASSERT(deltaTime > 0);
    double const mass = source->mass;
    NEROX_ASSERT(mass > 0);

    invMass = 1.0 / mass;
    ComputeInertiaTensor();

    linearVelocity = source->linearVelocity;
    angularVelocity = source->angularVelocity;
    pendingAcceleration = source->pendingAcceleration;
    aerodynamic = source->aerodynamic;
    collisionExclusions = source->collisionExclusions;

    // A gathered impulse acts as a constant acceleration over the whole step.
    impulseAcceleration = source->linearImpulse / deltaTime * invMass;
    angularImpulseAcceleration = invInertiaWorld * (source->angularImpulse / deltaTime);

    largestContactRadius = this->radius;
    sweptRadius = glm::length(linearVelocity) * deltaTime * 0.5 + this->radius;

    // The state of the step, as the class declares it at start.
    contactRest = 0.0;
    touchesParent = false;
    keepOnParent = false;
    potentialNewParent.reset();
    parentBody = nullptr;
    restingLimit = 1.0;
    nearDynamics.clear();
    nearStatics.clear();
    aerodynamicSamples.clear();
    staticContactNormals.clear();
    staticRelativeContactPoints.clear();
    debugLines.clear();
    debugColliders.clear();
    aerodynamicSurfaces.clear();
}

template <class T> void DynamicRigidbody<T>::Release() {
    Rigidbody<T>::Release();
    potentialNewParent.reset();
    parentBody = nullptr;
    nearDynamics.clear();
    nearStatics.clear();
    debugColliders.clear();
    aerodynamicSurfaces.clear();
}

template <class T> void DynamicRigidbody<T>::ComputeInertiaTensor() {
    glm::dvec3 const box_size = this->boundsMax - this->boundsMin;
    NEROX_ASSERT(box_size.x > 0.0);
    NEROX_ASSERT(box_size.y > 0.0);
    NEROX_ASSERT(box_size.z > 0.0);
    glm::dvec3 const s = box_size * box_size;
    // Solid box; dividing by invMass multiplies by the mass.
    glm::dmat3 const inertia((s.y + s.z) / invMass / 12.0, 0.0, 0.0, //
                             0.0, (s.x + s.z) / invMass / 12.0, 0.0, //
                             0.0, 0.0, (s.x + s.y) / invMass / 12.0);
    glm::dmat3 const rotation = glm::mat3_cast(this->orientation);
    invInertiaWorld = glm::inverse(rotation * inertia * glm::transpose(rotation));
}

template <class T> void DynamicRigidbody<T>::IntegrateMotion(double dt) {
    glm::dvec3 const acceleration = impulseAcceleration + this->gravity + pendingAcceleration;
    this->position += dt * (linearVelocity + acceleration * dt / 2.0);

    // Mid-step angular velocity; it is a world-frame vector, so the pure
    // quaternion multiplies from the left.
    glm::dvec3 const omega = angularVelocity + angularImpulseAcceleration * dt / 2.0;
    glm::dquat const spin(0.0, omega.x, omega.y, omega.z);
    glm::dquat turned = this->orientation + (spin * this->orientation) * (dt / 2.0);
    double const length = glm::length(turned);
    this->orientation = length > 0.0 ? turned / length : glm::dquat(1.0, 0.0, 0.0, 0.0);

    linearVelocity += acceleration * dt;
    angularVelocity += angularImpulseAcceleration * dt;
}

template <class T> void DynamicRigidbody<T>::ApplyImpulse(glm::dvec3 const& impulse, glm::dvec3 const& relativePoint) {
    contactRest = 0.0;
    linearVelocity += invMass * impulse;
    angularVelocity += invInertiaWorld * glm::cross(relativePoint, impulse);
}

template <class T> void DynamicRigidbody<T>::ApplyToEntity(double dt) {
    std::shared_ptr<T> entity = this->entity.lock();
    if (!entity) return;

    glm::dvec3 const dv = linearVelocity - entity->linearVelocity;

    entity->orientation = this->orientation;
    entity->position = this->position - glm::mat3_cast(this->orientation) * this->centerOfMass;
    entity->linearVelocity = linearVelocity;
    entity->angularVelocity = angularVelocity;
    entity->linearImpulse = glm::dvec3(0.0);
    entity->angularImpulse = glm::dvec3(0.0);
    entity->pendingAcceleration = glm::dvec3(0.0);
    entity->restTime += contactRest;

    // Leaving the parent: the entity moves one level up the tree and the
    // record follows it into the new frame.
    auto leaveParent = [&]() {
        std::shared_ptr<T> parent = T::Get(entity->parentEntity);
        if (!parent) return;
        this->gravity = glm::dvec3(0.0);
        parent->RemoveChild(entity);
        this->orientation = entity->orientation;
        this->position = entity->position + glm::mat3_cast(this->orientation) * this->centerOfMass;
    };

    double const speed = glm::length(linearVelocity);
    std::shared_ptr<T> potentialNewParent = this->potentialNewParent.lock();
    if (!keepOnParent && entity->parentEntity.IsSet() && (parentBody != nullptr || potentialNewParent) &&
        speed > DetachSpeed)
        leaveParent();
    if (!keepOnParent && potentialNewParent) {
        NEROX_ASSERT(potentialNewParent->GetID() != entity->parentEntity);
        if (!entity->parentEntity.IsSet() && !potentialNewParent->parentEntity.IsSet() && speed < AttachSpeed)
            potentialNewParent->AddChild(entity);
    }
    if (touchesParent && speed <= DetachSpeed) {
        // Resting on or rolling over its parent: stays.
    } else if (entity->parentEntity.IsSet() && parentBody == nullptr && !potentialNewParent && !touchesParent &&
               entity->isDynamic) {
        leaveParent();
    }

    // What an accelerometer on the entity would read, smoothed.
    glm::dvec3 acceleration = pendingAcceleration + this->gravity;
    if (dt > 0.0) acceleration -= dv / dt;
    glm::dvec3 const local = glm::inverse(glm::mat3_cast(entity->orientation)) * acceleration;
    entity->feltAcceleration = 0.9 * entity->feltAcceleration + 0.1 * local;

    entity->settled = false;
}

template DynamicRigidbody<entity::ServerSideEntity>::DynamicRigidbody(std::shared_ptr<entity::ServerSideEntity>&,
                                                                      double);
template void DynamicRigidbody<entity::ServerSideEntity>::Load(std::shared_ptr<entity::ServerSideEntity>&, double);
template void DynamicRigidbody<entity::ServerSideEntity>::LoadMotion(std::shared_ptr<entity::ServerSideEntity>&,
                                                                     double);
template void DynamicRigidbody<entity::ServerSideEntity>::Release();
template void DynamicRigidbody<entity::ServerSideEntity>::ComputeInertiaTensor();
template void DynamicRigidbody<entity::ServerSideEntity>::IntegrateMotion(double);
template void DynamicRigidbody<entity::ServerSideEntity>::ApplyImpulse(glm::dvec3 const&, glm::dvec3 const&);
template void DynamicRigidbody<entity::ServerSideEntity>::ApplyToEntity(double);

} // namespace game::physics
