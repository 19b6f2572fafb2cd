#pragma once
#include <array>
#include <memory>
#include <unordered_set>
#include <vector>

#include <glm/glm.hpp>
#include <glm/gtc/quaternion.hpp>

#include "game/entity/ConvexMeshCollider.hpp"
#include "game/entity/Id.hpp"
#include "game/physics/Collision.hpp"
#include "game/physics/DebugRecords.hpp"
#include "game/physics/EnvironmentInfo.hpp"

namespace game::physics {

/// A body that does not move during this physics step, built from an entity
/// at the start of the step and released at its end. Positions are those of
/// the centre of mass in the environment's (or the parent's) frame; the
/// colliders live in body space, with the origin at the centre of mass.
///
/// The step keeps its records from one step to the next and refills them
/// with Load, so that their lists keep their capacity; Load leaves a record
/// as the constructor would.
template <class T> class Rigidbody {
public:
    /// Copies what the step needs from entity. Without withColliders the
    /// colliders stay out of the record (its bounds and volume count them all
    /// the same) until LoadColliders copies them: most static bodies never
    /// meet a moving one.
    explicit Rigidbody(std::shared_ptr<T>& entity, bool withColliders = true);

    /// Refills the record from entity as the constructor does.
    void Load(std::shared_ptr<T>& entity, bool withColliders = true);
    /// Copies the entity's enabled colliders into colliders, in body space,
    /// when they were left out; nothing when they are there already.
    void LoadColliders();
    /// Drops the entity pointer and the colliders (with any module callbacks
    /// they hold), keeping the capacity for the next Load.
    void Release();

    /// position + R * boundsCenter.
    glm::dvec3 GetPositionAtCenterOfBounds() const;
    /// Recomputes boundsCenter, radius and boundsWorldCenter from the bounds.
    void ComputeBounds();
    /// translate(position) * mat4(orientation).
    glm::dmat4 GetTransform() const;

    /// Readies the colliders' placed hulls for the body's place now and
    /// returns GetTransform() of it. Hulls placed earlier are kept while the
    /// body has not moved since.
    glm::dmat4 const& PlaceHulls();
    /// Collider i placed by the transform of the last PlaceHulls (placed on
    /// first use): a body that moved since keeps the hulls of where it was.
    PlacedHull const& Hull(size_t i);
    /// Places the hulls again at the next PlaceHulls, as after a change of
    /// the colliders (a contact callback may make one).
    void ForgetHulls() { _hullsCurrent = false; }

    std::weak_ptr<T> entity;                           ///< Source entity.
    glm::dvec3 position{0.0};                          ///< World position of the centre of mass.
    glm::dquat orientation{1.0, 0.0, 0.0, 0.0};        ///< Copy of the entity's.
    entity::Id id;                                     ///< Copy of the entity's.
    glm::dvec3 boundsWorldCenter{0.0};                 ///< GetPositionAtCenterOfBounds().
    double radius = 0.0;                               ///< Half the diagonal of the bounds.
    std::vector<entity::ConvexMeshCollider> colliders; ///< The entity's enabled colliders in body space.
    glm::dvec3 boundsMin{0.0};                         ///< Bounds in body space, smaller corner.
    glm::dvec3 boundsMax{0.0};                         ///< Bounds in body space, larger corner.
    glm::dvec3 centerOfMass{0.0};                      ///< Entity-space copy.
    glm::dvec3 boundsCenter{0.0};                      ///< (boundsMin + boundsMax) / 2.
    glm::dvec3 gravity{0.0};                           ///< m/s^2 of the frame or the environment.
    double volume = 0.0;                               ///< m^3: box volume times fill, summed over colliders.
    bool collidersLoaded = true;                       ///< False while the colliders are left out.

private:
    /// Appends source's enabled colliders, moved into body space.
    void CopyColliders(T const& source);

    std::vector<PlacedHull> _hulls;                  ///< Entry i for colliders[i].
    std::vector<uint64_t> _hullPlacements;           ///< Entry i: the placement _hulls[i] was placed in.
    uint64_t _placement = 0;                         ///< Counts the PlaceHulls that found the body moved.
    bool _hullsCurrent = false;                      ///< Whether the hulls follow the colliders.
    glm::dmat4 _hullTransform{1.0};                  ///< GetTransform() of the last placement.
    glm::dvec3 _hullPosition{0.0};                   ///< position of the last placement.
    glm::dquat _hullOrientation{1.0, 0.0, 0.0, 0.0}; ///< orientation of the last placement.
};

/// One aerodynamic surface sample of a body.
struct AerodynamicSample {
    glm::dvec3 point{0.0};   ///< Application point relative to the body's position.
    glm::dvec3 normal{0.0};  ///< Surface normal in body axes.
    glm::dvec3 factors{0.0}; ///< Area (m^2), lift factor, drag factor.
};

/// A body that moves during this physics step.
template <class T> class DynamicRigidbody : public Rigidbody<T> {
public:
    /// Copies the entity's motion and turns its gathered impulses into
    /// accelerations over deltaTime. Asserts deltaTime > 0 and mass > 0.
    DynamicRigidbody(std::shared_ptr<T>& entity, double deltaTime);

    /// Refills the record from entity as the constructor does; every member
    /// is set again, the lists are emptied but keep their capacity.
    void Load(std::shared_ptr<T>& entity, double deltaTime);
    /// Drops the pointers to entities, to other records and the colliders
    /// (with any module callbacks they hold), keeping the lists' capacity.
    void Release();

    /// The solid-box inertia of the bounds, in world axes, inverted.
    void ComputeInertiaTensor();
    /// Advances position, orientation and velocities by dt (half-step scheme).
    void IntegrateMotion(double dt);
    /// Applies an impulse (N*s) at a point relative to the position.
    void ApplyImpulse(glm::dvec3 const& impulse, glm::dvec3 const& relativePoint);
    /// Writes the results back to the entity and settles its parent.
    void ApplyToEntity(double dt);

    /// Finds and answers the contacts with nearDynamics, nearStatics and the parent.
    void CollisionDetection(double dt);
    /// Answers a contact with the static world.
    void RespondToCollision(Collision const& collision, double friction);
    /// Answers a contact between two moving bodies.
    static void RespondToCollision(DynamicRigidbody* a, DynamicRigidbody* b, Collision const& collision,
                                   double friction);
    /// Remembers a static contact unless one lies within 0.1 m of it.
    void AddStaticContactPoint(glm::dvec3 const& normal, glm::dvec3 point);
    /// Whether the static contacts support the body; normalOut is their plane's normal.
    bool GetStaticContact(glm::dvec3& normalOut);
    /// Counts one more resting substep when the static contacts support the
    /// body and it neither slides nor turns faster than the frictions met allow.
    void TestResting();

    /// Builds the surface samples for drag and lift.
    void ComputeAerodynamicSurfaces(EnvironmentFunction& environment);
    /// Gravity, drag, terrain, buoyancy and damping for a body without parent.
    void InteractWithEnvironment(EnvironmentFunction& environment, double dt);
    /// The same for a body in its parent's frame.
    void InteractWithEnvironmentFromParent(glm::dmat4 const& parentTransform, EnvironmentFunction& environment,
                                           double dt);

    glm::dvec3 linearVelocity{0.0};                              ///< m/s.
    glm::dvec3 angularVelocity{0.0};                             ///< rad/s, world frame.
    double invMass = 0.0;                                        ///< 1 / mass.
    glm::dmat3 invInertiaWorld{1.0};                             ///< From ComputeInertiaTensor().
    glm::dvec3 impulseAcceleration{0.0};                         ///< Gathered impulse as an acceleration over the step.
    glm::dvec3 angularImpulseAcceleration{0.0};                  ///< Gathered angular impulse as an acceleration.
    double contactRest = 0.0;                                    ///< Resting substeps; any impulse resets it.
    glm::dvec3 pendingAcceleration{0.0};                         ///< The entity's, held through the step.
    bool aerodynamic = true;                                     ///< Feels air and water.
    bool touchesParent = false;                                  ///< Touched its parent body this step.
    bool keepOnParent = false;                                   ///< Set after a terrain or liquid contact.
    double largestContactRadius = 0.0;                           ///< Radius of the largest static body touched.
    std::weak_ptr<T> potentialNewParent;                         ///< That body's entity.
    Rigidbody<T>* parentBody = nullptr;                          ///< Record of the parent, when near enough.
    double sweptRadius = 0.0;                                    ///< radius + half the distance travelled in the step.
    std::vector<DynamicRigidbody*> nearDynamics;                 ///< Broadphase: later bodies that may touch.
    std::vector<Rigidbody<T>*> nearStatics;                      ///< Broadphase: static bodies that may touch.
    std::vector<AerodynamicSample> aerodynamicSamples;           ///< Surface samples of this step.
    std::vector<glm::dvec3> staticContactNormals;                ///< Normals of the remembered static contacts.
    std::vector<glm::dvec3> staticRelativeContactPoints;         ///< Those contacts minus position.
    std::vector<DebugLine> debugLines;                           ///< Filled while debugging physics.
    std::vector<entity::ConvexMeshCollider> debugColliders;      ///< Sampled surfaces while debugging physics.
    std::vector<entity::ConvexMeshCollider> aerodynamicSurfaces; ///< Colliders that gave samples.
    std::unordered_set<entity::Id> collisionExclusions;          ///< The entity's.

    /// Lowest friction met by static contacts this step; the resting limit.
    double restingLimit = 1.0;

private:
    /// The constructor's part after Rigidbody's: the motion, the inertia and
    /// every member of this class back at its start value.
    void LoadMotion(std::shared_ptr<T>& entity, double deltaTime);
    /// Visits the pair (c, d) of a static contact:
    /// walks into subColliders of colliders that are mostly empty, answers the
    /// contacts of the leaves and tells whether any leaf touched.
    /// c is placed by worldC, d by frameD * d.transform; hullC and hullD, when
    /// both are given, are c and d placed so.
    bool VisitStaticPair(entity::ConvexMeshCollider const& c, glm::dmat4 const& worldC, PlacedHull const* hullC,
                         entity::ConvexMeshCollider const& d, glm::dmat4 const& frameD, PlacedHull const* hullD,
                         double dt, int depth);
};

} // namespace game::physics
