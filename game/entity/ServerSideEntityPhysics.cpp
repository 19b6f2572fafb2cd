// The physics step of a world: rigid body records are built from the entities,
// grouped by environment and by parent, moved, and written back.
#include "game/entity/ServerSideEntity.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <tuple>
#include <unordered_map>
#include <vector>

#include <glm/gtc/matrix_transform.hpp>

#include "game/Game.hpp"
#include "game/physics/Broadphase.hpp"
#include "game/physics/Rigidbody.hpp"
#include "nerox/Timer.hpp"
#include "nerox/cpu/Profiler.hpp"

namespace game::entity {

namespace {

using Static = physics::Rigidbody<ServerSideEntity>;
using Dynamic = physics::DynamicRigidbody<ServerSideEntity>;

/// Kind of record an entity got this step.
enum class RigidbodyEnvType : uint8_t { Static = 0, Dynamic = 1, Orbiting = 2 };

/// Where an entity's record is.
struct BodyIndexEntry {
    EnvironmentId environment = 0;
    RigidbodyEnvType type = RigidbodyEnvType::Static;
    uint32_t index = 0;
    Id parent;
};

/// Environment and parent of a group of records.
struct GroupKey {
    EnvironmentId environment = 0;
    Id parent;
    bool operator<(GroupKey const& other) const
    {
        return std::tie(environment, parent.first, parent.second) <
               std::tie(other.environment, other.parent.first, other.parent.second);
    }
};

/// The records of one environment and parent, as indices into the flat lists,
/// in the order the entities were met.
struct Group {
    std::vector<uint32_t> statics;
    std::vector<uint32_t> dynamics;
    std::vector<uint32_t> orbiting;
};

/// Everything one step builds. Kept between steps only for its capacity: it
/// is cleared at the start of each step.
struct StepScratch {
    std::vector<Static> statics;
    std::vector<Dynamic> dynamics;
    std::vector<Dynamic> orbiting;
    std::map<GroupKey, Group> groups;
    std::unordered_map<Id, BodyIndexEntry> bodyIndex;
    std::map<GroupKey, std::vector<ServerSideEntity::Ptr>> components;
    physics::Broadphase broadphase;
    std::vector<physics::Broadphase::Body> broadphaseDynamics;
    std::vector<physics::Broadphase::Body> broadphaseStatics;
    std::vector<physics::Broadphase::Pair> pairs;

    void Clear()
    {
        statics.clear();
        dynamics.clear();
        orbiting.clear();
        groups.clear();
        bodyIndex.clear();
        components.clear();
    }
};

/// The record of an index entry, whatever its type; null for an unknown entry.
Static* RecordOf(StepScratch& step, BodyIndexEntry const& entry)
{
    switch (entry.type) {
    case RigidbodyEnvType::Static:
        return entry.index < step.statics.size() ? &step.statics[entry.index] : nullptr;
    case RigidbodyEnvType::Dynamic:
        return entry.index < step.dynamics.size() ? &step.dynamics[entry.index] : nullptr;
    case RigidbodyEnvType::Orbiting:
        return entry.index < step.orbiting.size() ? &step.orbiting[entry.index] : nullptr;
    }
    return nullptr;
}

/// The index entry of entity id in environment, or null.
BodyIndexEntry const* FindEntry(StepScratch const& step, EnvironmentId environment, Id const& id)
{
    auto const found = step.bodyIndex.find(id);
    if (found == step.bodyIndex.end() || found->second.environment != environment)
        return nullptr;
    return &found->second;
}

void PrepareRigidbodies(StepScratch& step, double dt)
{
    nerox::cpu::Profiler scope("Prepare rigidbodies", true);
    for (auto& [key, entry] : ServerSideEntity::_sharedObjects) {
        ServerSideEntity::Ptr entity = entry;
        if (!entity || !entity->physicsEnabled || !(entity->mass > 0.0))
            continue;
        if (entity->environmentId == 0) {
            if (entity->orbitEnvironmentId != 0 && entity->isDynamic && entity->restTime < 1.0 && !entity->isComponent) {
                GroupKey const group{entity->orbitEnvironmentId, entity->parentEntity};
                step.bodyIndex[entity->id] = {group.environment, RigidbodyEnvType::Orbiting,
                                              static_cast<uint32_t>(step.orbiting.size()), group.parent};
                step.groups[group].orbiting.push_back(static_cast<uint32_t>(step.orbiting.size()));
                step.orbiting.emplace_back(entity, dt);
            }
        } else if (entity->isComponent) {
            if (ServerSideEntity::Ptr const holder = entity->GetFirstNonComponentParent())
                step.components[{entity->environmentId, holder->id}].push_back(entity);
        } else {
            GroupKey const group{entity->environmentId, entity->parentEntity};
            if (entity->isDynamic && entity->restTime < 1.0) {
                step.bodyIndex[entity->id] = {group.environment, RigidbodyEnvType::Dynamic,
                                              static_cast<uint32_t>(step.dynamics.size()), group.parent};
                step.groups[group].dynamics.push_back(static_cast<uint32_t>(step.dynamics.size()));
                step.dynamics.emplace_back(entity, dt);
            } else {
                step.bodyIndex[entity->id] = {group.environment, RigidbodyEnvType::Static,
                                              static_cast<uint32_t>(step.statics.size()), group.parent};
                step.groups[group].statics.push_back(static_cast<uint32_t>(step.statics.size()));
                step.statics.emplace_back(entity);
                entity->restTime = std::clamp(entity->restTime + dt, 0.0, 1.0);
            }
        }
        entity->nodesDirty = false;
    }
}

void PrepareCompositeEntities(StepScratch& step)
{
    nerox::cpu::Profiler scope("Prepare composite entities", true);
    for (auto& [key, members] : step.components) {
        BodyIndexEntry const* entry = FindEntry(step, key.environment, key.parent);
        if (entry == nullptr)
            continue;
        Static* record = RecordOf(step, *entry);
        if (record == nullptr)
            continue;
        glm::dmat4 const toBody = glm::translate(glm::dmat4(1.0), -record->centerOfMass);
        for (ServerSideEntity::Ptr const& component : members) {
            glm::dmat4 const placement = toBody * component->GetTransformInPhysicsParent();
            for (auto const& [name, collider] : component->colliders) {
                record->colliders.push_back(collider);
                record->colliders.back().transform = placement * collider.transform;
            }
            glm::dvec3 const cornerA(placement * glm::dvec4(component->boundsMin, 1.0));
            glm::dvec3 const cornerB(placement * glm::dvec4(component->boundsMax, 1.0));
            record->boundsMin = glm::min(record->boundsMin, glm::min(cornerA, cornerB));
            record->boundsMax = glm::max(record->boundsMax, glm::max(cornerA, cornerB));
        }
        record->ComputeBounds();
        if (entry->type != RigidbodyEnvType::Static)
            static_cast<Dynamic*>(record)->ComputeInertiaTensor();
    }
}

/// Gravity of one record: from the moving frame of its parent, or for a
/// static body without parent from its environment.
void ApplyGravity(Static& record, Id const& parentId, EnvironmentId environment, bool isStatic)
{
    ServerSideEntity::Ptr const entity = record.entity.lock();
    if (!entity)
        return;
    glm::dmat3 const toLocal = glm::inverse(glm::mat3_cast(entity->orientation));
    if (parentId.IsSet()) {
        ServerSideEntity::Ptr const parent = ServerSideEntity::Get(parentId);
        if (!parent)
            return;
        glm::dvec3 const r = entity->position - parent->centerOfMass;
        record.gravity = glm::cross(parent->angularVelocity, r) + parent->feltAcceleration;
        if (isStatic)
            entity->feltAcceleration = toLocal * record.gravity;
        return;
    }
    if (!isStatic)
        return;
    if (environment == 0) {
        entity->feltAcceleration = glm::dvec3(0.0);
        return;
    }
    physics::EnvironmentInfo info;
    auto const function = Game::_environmentFunctions.find(environment);
    if (function != Game::_environmentFunctions.end() && function->second)
        info = function->second(entity->position, EnvironmentGravityOnly, 0.0);
    entity->feltAcceleration = toLocal * info.gravity;
}

void ApplyGravityToRigidbodies(StepScratch& step)
{
    nerox::cpu::Profiler scope("Apply gravity to rigidbodies", true);
    for (auto& [key, group] : step.groups) {
        for (uint32_t index : group.statics)
            ApplyGravity(step.statics[index], key.parent, key.environment, true);
        for (uint32_t index : group.dynamics)
            ApplyGravity(step.dynamics[index], key.parent, key.environment, false);
        for (uint32_t index : group.orbiting)
            ApplyGravity(step.orbiting[index], key.parent, key.environment, false);
    }
}

/// Fills nearDynamics and nearStatics of the group's bodies, and their parent
/// records. The candidates and their order are those of testing every later
/// body and every static body in turn; the broadphase only finds them faster.
void FindNearBodies(StepScratch& step, GroupKey const& key, std::vector<Dynamic>& bodies,
                    std::vector<uint32_t> const& members, std::vector<uint32_t> const* statics)
{
    step.broadphaseDynamics.clear();
    for (uint32_t index : members)
        step.broadphaseDynamics.push_back({bodies[index].boundsWorldCenter, bodies[index].sweptRadius});
    step.broadphaseStatics.clear();
    if (statics != nullptr) {
        for (uint32_t index : *statics)
            step.broadphaseStatics.push_back({step.statics[index].boundsWorldCenter, step.statics[index].radius});
    }

    // Pairs among the moving bodies, each once, as (earlier, later).
    step.broadphase.FindPairs(step.broadphaseDynamics, step.pairs);
    for (physics::Broadphase::Pair const& pair : step.pairs) {
        Dynamic& a = bodies[members[pair.first]];
        Dynamic& b = bodies[members[pair.second]];
        if (a.collisionExclusions.contains(b.id) || b.collisionExclusions.contains(a.id))
            continue;
        a.nearDynamics.push_back(&b);
    }
    if (statics != nullptr && !statics->empty()) {
        step.broadphase.FindOverlaps(step.broadphaseDynamics, step.broadphaseStatics, step.pairs);
        for (physics::Broadphase::Pair const& pair : step.pairs) {
            Dynamic& a = bodies[members[pair.first]];
            Static& s = step.statics[(*statics)[pair.second]];
            if (a.collisionExclusions.contains(s.id))
                continue;
            a.nearStatics.push_back(&s);
        }
    }

    if (!key.parent.IsSet())
        return;
    BodyIndexEntry const* entry = FindEntry(step, key.environment, key.parent);
    if (entry == nullptr)
        return;
    Static* parentRecord = RecordOf(step, *entry);
    for (uint32_t index : members) {
        Dynamic& body = bodies[index];
        body.parentBody = parentRecord;
        if (parentRecord == nullptr)
            continue;
        glm::dvec3 const parentCenter = parentRecord->boundsCenter + parentRecord->centerOfMass;
        if (body.collisionExclusions.contains(parentRecord->id) ||
            glm::distance(body.boundsWorldCenter, parentCenter) > body.sweptRadius + parentRecord->radius)
            body.parentBody = nullptr;
    }
}

void BroadphaseCollisionDetection(StepScratch& step)
{
    nerox::cpu::Profiler scope("Broadphase collision detection", true);
    for (auto& [key, group] : step.groups) {
        if (!group.dynamics.empty())
            FindNearBodies(step, key, step.dynamics, group.dynamics, &group.statics);
    }
}

void OrbitingRigidbodies(StepScratch& step, double dt)
{
    nerox::cpu::Profiler scope("Orbiting Rigidbodies", true);
    for (auto& [key, group] : step.groups) {
        if (!group.orbiting.empty())
            FindNearBodies(step, key, step.orbiting, group.orbiting, nullptr);
    }
    for (auto& [key, group] : step.groups) {
        if (group.orbiting.empty())
            continue;
        {
            nerox::cpu::Profiler detection("CollisionDetection", true);
            for (uint32_t index : group.orbiting)
                step.orbiting[index].CollisionDetection(dt);
        }
        nerox::cpu::Profiler integration("IntegrateMotion", true);
        for (uint32_t index : group.orbiting)
            step.orbiting[index].IntegrateMotion(dt);
    }
}

void DynamicRigidbodies(StepScratch& step, double dt, int substeps)
{
    nerox::cpu::Profiler scope("Dynamic Rigidbodies", true);
    double const h = dt / static_cast<double>(substeps);
    physics::EnvironmentFunction* function = nullptr;
    EnvironmentId current = 0;
    bool looked = false;
    for (auto& [key, group] : step.groups) {
        if (group.dynamics.empty())
            continue;
        if (!looked || key.environment != current) {
            current = key.environment;
            looked = true;
            function = nullptr;
            if (current != 0) {
                auto const found = Game::_environmentFunctions.find(current);
                if (found == Game::_environmentFunctions.end()) {
                    throw std::out_of_range("unordered_map::at: no environment function for environment " +
                                            std::to_string(current));
                }
                function = &found->second;
            }
        }
        if (function != nullptr) {
            nerox::cpu::Profiler surfaces("Compute aerodynamic surfaces", true);
            for (uint32_t index : group.dynamics) {
                if (step.dynamics[index].aerodynamic)
                    step.dynamics[index].ComputeAerodynamicSurfaces(*function);
            }
        }
        for (int substep = 0; substep < substeps; ++substep) {
            {
                nerox::cpu::Profiler integration("IntegrateMotion", true);
                for (uint32_t index : group.dynamics)
                    step.dynamics[index].IntegrateMotion(h);
            }
            {
                nerox::cpu::Profiler detection("CollisionDetection", true);
                for (uint32_t index : group.dynamics)
                    step.dynamics[index].CollisionDetection(h);
            }
            if (!key.parent.IsSet() && function != nullptr) {
                nerox::cpu::Profiler environment("InteractWithEnvironment", true);
                for (uint32_t index : group.dynamics) {
                    if (step.dynamics[index].aerodynamic)
                        step.dynamics[index].InteractWithEnvironment(*function, h);
                }
            }
        }
        if (key.parent.IsSet() && function != nullptr) {
            nerox::cpu::Profiler environment("InteractWithEnvironmentFromParent", true);
            ServerSideEntity::Ptr const parent = ServerSideEntity::Get(key.parent);
            if (parent && !parent->parentEntity.IsSet()) {
                glm::dmat4 const transform = parent->GetTransform();
                for (uint32_t index : group.dynamics) {
                    if (step.dynamics[index].aerodynamic)
                        step.dynamics[index].InteractWithEnvironmentFromParent(transform, *function, dt);
                }
            }
        }
    }
}

void ApplyToEntities(StepScratch& step, double dt)
{
    nerox::cpu::Profiler scope("Apply to entities", true);
    for (Dynamic& body : step.dynamics)
        body.ApplyToEntity(dt);
    for (Dynamic& body : step.orbiting)
        body.ApplyToEntity(dt);
}

void AddDebugColliders(Static const& record, bool dynamic)
{
    glm::dmat4 const world = record.GetTransform();
    for (ConvexMeshCollider const& collider : record.colliders) {
        Game::physicsDebugColliders_back.push_back({record.id, collider, dynamic});
        Game::physicsDebugColliders_back.back().collider.transform = world * collider.transform;
    }
}

void PublishDebugShapes(StepScratch& step)
{
    Game::physicsDebugColliders_back.clear();
    Game::physicsDebugLines_back.clear();
    for (Static const& record : step.statics)
        AddDebugColliders(record, false);
    for (std::vector<Dynamic>* list : {&step.dynamics, &step.orbiting}) {
        for (Dynamic const& body : *list) {
            AddDebugColliders(body, true);
            Game::physicsDebugLines_back.insert(Game::physicsDebugLines_back.end(), body.debugLines.begin(),
                                                body.debugLines.end());
        }
    }
    std::lock_guard<std::mutex> lock(Game::physicsDebugMutex);
    std::swap(Game::physicsDebugColliders_back, Game::physicsDebugColliders_staging);
    std::swap(Game::physicsDebugLines_back, Game::physicsDebugLines_staging);
    Game::physicsDebugCollidersUpdated.exchange(true);
}

} // namespace

void ServerSideEntity::PhysicsUpdate(double dt, int substeps)
{
    // The step's lists keep their capacity from one step to the next; only the
    // server update thread runs the step.
    static StepScratch step;

    std::shared_lock<nerox::SharedMutex> lock(_sharedObjectsMutex);
    nerox::cpu::Profiler scope("PhysicsUpdate", true);
    nerox::Timer timer;

    step.Clear();
    step.statics.reserve(_sharedObjects.size());
    step.dynamics.reserve(_sharedObjects.size());
    step.bodyIndex.reserve(_sharedObjects.size());
    PrepareRigidbodies(step, dt);
    PrepareCompositeEntities(step);
    ApplyGravityToRigidbodies(step);
    BroadphaseCollisionDetection(step);
    OrbitingRigidbodies(step, dt);
    DynamicRigidbodies(step, dt, substeps);
    ApplyToEntities(step, dt);
    if (Game::debugServerSidePhysics)
        PublishDebugShapes(step);

    step.Clear(); // records may hold module callbacks: drop them before the modules could go
    Game::serverSidePhysicsAvgTime = 0.9 * Game::serverSidePhysicsAvgTime + 0.1 * timer.GetElapsedMilliseconds() * 0.001;
    scope.Stop();
}

} // namespace game::entity
