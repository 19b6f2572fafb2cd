#pragma once
#include <map>
#include <memory>
#include <string>
#include <unordered_set>

#include <glm/glm.hpp>
#include <glm/gtc/quaternion.hpp>

#include "game/entity/ConvexMeshCollider.hpp"
#include "game/entity/Id.hpp"
#include "nerox/modular/ModuleID.hpp"

namespace game::entity {

class EntityConfig;

/// Current values of one joint: an offset on the three linear axes and angles
/// on the three angular axes, both in the description file's axes.
struct JointState {
    glm::vec3 position{0.0f}; ///< Metres per linear axis.
    glm::vec3 rotation{0.0f}; ///< Degrees per angular axis.
};

/// What server and client entities share: type, description, placement, nodes,
/// joint values and colliders. Behaviour lives in the interface objects of the
/// derived classes.
class BaseEntity {
public:
    BaseEntity() = default;
    /// Virtual, so that derived entities are destroyed through a base pointer.
    virtual ~BaseEntity();

    /// Fills mass, node transforms, joint states and colliders from config, then
    /// the bounds. Does nothing without a config.
    virtual void InitNodes();
    /// Moves the colliders to their nodes and refreshes the bounds when joints
    /// changed or are animated.
    virtual void Update(double dt);

    /// Recomputes the bounds from the colliders' two stored corners; with
    /// updateCenterOfMass the centre of mass becomes the bounds' centre.
    void UpdateBoundingBox(bool updateCenterOfMass);
    /// translate(position) * mat4(orientation): entity space to the parent's
    /// (or the environment's) frame.
    glm::dmat4 GetTransform() const;

    nerox::modular::ModuleID moduleId;                   ///< Module that defines the item type.
    std::string itemType;                                ///< Item type name inside that module.
    std::shared_ptr<EntityConfig> config;                ///< Description of the type; may be empty.
    glm::dvec3 box_size{0.0};                            ///< abs(boundsMax - boundsMin).
    glm::dvec3 boundsCenter{0.0};                        ///< (boundsMin + boundsMax) / 2.
    double boundingRadius = 0.0;                         ///< Half the box diagonal.
    glm::dvec3 linearVelocity{0.0};                      ///< m/s, written back by the physics step.
    glm::dvec3 angularVelocity{0.0};                     ///< rad/s, world frame.
    glm::dvec3 feltAcceleration{0.0};                    ///< m/s^2 felt in the entity's local frame.
    std::map<std::string, glm::dmat4> nodeTransforms;    ///< Current transform of each node in entity space.
    std::map<std::string, JointState> jointStates;       ///< Current joint values by joint name.
    std::map<std::string, ConvexMeshCollider> colliders; ///< Own copies of the described colliders.
    std::unordered_set<Id> collisionExclusions;          ///< Entities this one never collides with.
    std::weak_ptr<BaseEntity> selfReference;             ///< The entity itself; filled by Create.
    // What the physics step reads of a resting body each step lies together,
    // from mass to centerOfMass, and goes on in the first fields of
    // ServerSideEntity: three cache lines from the one where mass begins.
    alignas(64) double mass = 0.0;              ///< Kilograms; 0 means no rigid body.
    Id parentEntity;                            ///< The parent, unset when there is none.
    bool nodesDirty = false;                    ///< A joint value changed since the last physics step.
    bool nodesAnimated = false;                 ///< Re-solve the joints on every update.
    bool isDynamic = false;                     ///< May move by itself; false keeps it a static body.
    bool isComponent = false;                   ///< Moves rigidly with its parent and is saved with it.
    glm::dvec3 position{0.0};                   ///< Metres, in the parent's or environment's frame.
    glm::dquat orientation{1.0, 0.0, 0.0, 0.0}; ///< Same frame as position.
    glm::dvec3 boundsMin{0.0};                  ///< Box of all colliders in entity space, smaller corner.
    glm::dvec3 boundsMax{0.0};                  ///< Box of all colliders in entity space, larger corner.
    glm::dvec3 centerOfMass{0.0};               ///< Entity space.
};

} // namespace game::entity
