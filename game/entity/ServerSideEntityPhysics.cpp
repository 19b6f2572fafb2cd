// The physics step of a world: rigid body records are built from the entities,
// grouped by environment and by parent, moved, and written back.
#include "game/entity/ServerSideEntity.hpp"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <thread>
#include <tuple>
#include <unordered_map>
#include <vector>

#include <glm/gtc/matrix_transform.hpp>

#include "game/Game.hpp"
#include "game/physics/Broadphase.hpp"
#include "game/physics/Rigidbody.hpp"
#include "nerox/Timer.hpp"
#include "nerox/cpu/ParallelRange.hpp"
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
    bool found = false; ///< False for an entity asked for that got no record.
};

/// Environment and parent of a group of records.
struct GroupKey {
    EnvironmentId environment = 0;
    Id parent;
    bool operator<(GroupKey const& other) const {
        return std::tie(environment, parent.first, parent.second) <
            std::tie(other.environment, other.parent.first, other.parent.second);
    }
    bool operator==(GroupKey const& other) const = default;
};

/// The records of one environment and parent, as indices into the record
/// lists, in the order the entities were met.
struct Group {
    std::vector<uint32_t> statics;
    std::vector<uint32_t> dynamics;
    std::vector<uint32_t> orbiting;

    bool Empty() const { return statics.empty() && dynamics.empty() && orbiting.empty(); }
};

/// An entity of the registry: its shared pointer there and the entity itself.
struct ListedEntity {
    ServerSideEntity::Ptr* pointer = nullptr;
    ServerSideEntity* entity = nullptr;
};

/// Records of one kind, kept from step to step: the first size() are this
/// step's, the others wait to be loaded again, so that neither the records
/// nor their lists are freed and allocated anew in every step.
template <class Record> class RecordPool {
public:
    /// The next record, loaded from args as Record(args...) would be.
    template <class... Args> Record& Add(Args&&... args) {
        if (_used == _records.size())
            _records.emplace_back(std::forward<Args>(args)...);
        else
            _records[_used].Load(std::forward<Args>(args)...);
        return _records[_used++];
    }

    /// Releases this step's records (see Record::Release); they stay for reuse.
    void Release() {
        for (Record& record : *this) record.Release();
        _used = 0;
    }

    void Reserve(size_t count) { _records.reserve(count); }
    size_t size() const { return _used; }
    Record& operator[](size_t index) { return _records[index]; }
    Record* begin() { return _records.data(); }
    Record* end() { return _records.data() + _used; }

private:
    std::vector<Record> _records;
    size_t _used = 0;
};

/// What a resting body was put to sleep with: while its entity holds the
/// same, its static record would be the same too.
struct RestState {
    ServerSideEntity const* entity = nullptr; ///< Null in a check of a sleeper woken already.
    EnvironmentId environment = 0;
    glm::dvec3 position{0.0};
    glm::dquat orientation{1.0, 0.0, 0.0, 0.0};
    glm::dvec3 centerOfMass{0.0};
    glm::dvec3 boundsMin{0.0};
    glm::dvec3 boundsMax{0.0};
    double restTime = 0.0;
    bool isDynamic = false;
};

/// A resting body left out of the step (see
/// ServerSideEntity::restingBodiesSleep).
struct Sleeper {
    ServerSideEntity::Ptr* slot = nullptr; ///< Its slot in the registry.
    ServerSideEntity* entity = nullptr;
    Id id;
    uint32_t order = 0;               ///< Its index in StepScratch::entities, the registry's order.
    RestState state;                  ///< What it was put to sleep with.
    physics::Broadphase::Body sphere; ///< Its static record's bounding sphere.
    bool awake = false;               ///< Woken: leaves the list when it is next rebuilt.
    uint64_t recordStep = 0;          ///< The step that last gave it a static record,
    uint32_t record = 0;              ///< and that record's index.
};

/// The sleepers of one environment, filed for the moving bodies' queries.
struct SleepingArea {
    std::vector<uint32_t> members;                  ///< Indices into StepScratch::sleepers, ascending.
    std::vector<physics::Broadphase::Body> spheres; ///< Their bounding spheres, in the same order.
    physics::Broadphase grid;                       ///< Files spheres once they are complete.
    bool filed = false;
};

/// Everything one step builds. Kept between steps for its capacity: Clear
/// empties it at the start of each step and Release at its end drops what
/// ties it to entities and modules.
struct StepScratch {
    RecordPool<Static> statics;
    RecordPool<Dynamic> dynamics;
    RecordPool<Dynamic> orbiting;
    /// Groups stay with their lists while they are in use; a group that
    /// stayed empty for a whole step goes at the next Clear.
    std::map<GroupKey, Group> groups;
    /// The records of the entities that others look up (the parents of
    /// groups and the holders of components), and only those.
    std::unordered_map<Id, BodyIndexEntry> bodyIndex;
    std::map<GroupKey, std::vector<ServerSideEntity::Ptr>> components;
    std::vector<ListedEntity> entities;            ///< The registry's slots, in its order.
    bool listed = false;                           ///< Whether entities lists the registry of listedVersion.
    uint64_t listedVersion = 0;                    ///< The registry's version when entities was listed.
    size_t listedSize = 0;                         ///< And its size then.
    std::vector<ServerSideEntity*> staticEntities; ///< The entity of each static record, for prefetching.
    physics::Broadphase broadphase;
    std::vector<physics::Broadphase::Body> broadphaseDynamics;
    std::vector<physics::Broadphase::Body> broadphaseStatics;
    std::vector<physics::Broadphase::Pair> pairs;

    // Resting bodies out of the step. Each list is in the registry's order.
    std::vector<Sleeper> sleepers;
    /// Entry k: sleepers[k].state, with a null entity when that sleeper was
    /// woken; listed again whenever sleepersChanged is set, so that each
    /// step's check walks a short dense list.
    std::vector<RestState> checks;
    std::unordered_map<Id, uint32_t> sleepingOrder; ///< Order of each sleeper.
    std::vector<uint8_t> asleep;                    ///< Per entity of entities: whether it sleeps.
    std::vector<uint32_t> awake;                    ///< The indices into entities of those that do not.
    std::map<EnvironmentId, SleepingArea> areas;    ///< The sleepers by environment.
    bool sleepersChanged = true;                    ///< checks, awake and areas must be made again.
    /// Statics of this step that may sleep from the next one, as the walk
    /// found them.
    std::vector<Sleeper> restingCandidates;
    std::vector<uint32_t> staticOrder; ///< The order of each static record's entity.
    std::vector<physics::Broadphase::Pair> sleeperPairs;
    std::vector<Id> lookedUp; ///< Parents and holders of this step, for WakeLookedUpSleepers.
    uint64_t stepNumber = 0;

    void Clear() {
        // Normally released at the end of the last step already; not when
        // that step ended in an exception.
        statics.Release();
        dynamics.Release();
        orbiting.Release();
        for (auto group = groups.begin(); group != groups.end();) {
            if (group->second.Empty()) {
                group = groups.erase(group);
                continue;
            }
            group->second.statics.clear();
            group->second.dynamics.clear();
            group->second.orbiting.clear();
            ++group;
        }
        bodyIndex.clear();
        components.clear();
        staticEntities.clear();
        staticOrder.clear();
        restingCandidates.clear();
        ++stepNumber;
    }

    void Release() {
        statics.Release();
        dynamics.Release();
        orbiting.Release();
        components.clear();
    }
};

/// The record of an index entry, whatever its type; null for an unknown entry.
Static* RecordOf(StepScratch& step, BodyIndexEntry const& entry) {
    switch (entry.type) {
    case RigidbodyEnvType::Static: return entry.index < step.statics.size() ? &step.statics[entry.index] : nullptr;
    case RigidbodyEnvType::Dynamic: return entry.index < step.dynamics.size() ? &step.dynamics[entry.index] : nullptr;
    case RigidbodyEnvType::Orbiting: return entry.index < step.orbiting.size() ? &step.orbiting[entry.index] : nullptr;
    }
    return nullptr;
}

/// The index entry of entity id in environment, or null.
BodyIndexEntry const* FindEntry(StepScratch const& step, EnvironmentId environment, Id const& id) {
    auto const found = step.bodyIndex.find(id);
    if (found == step.bodyIndex.end() || !found->second.found || found->second.environment != environment)
        return nullptr;
    return &found->second;
}

/// Entities fetched ahead of the one being read.
constexpr size_t PrefetchAhead = 8;

/// Asks for what PrepareRigidbodies reads and writes of a listed entity to be
/// fetched into the cache: its registry slot, its control block and the
/// fields of the record, not the whole entity.
void Prefetch(ListedEntity const& listed) {
    __builtin_prefetch(listed.pointer);
    ServerSideEntity const* const e = listed.entity;
    if (e == nullptr) return;
    __builtin_prefetch(reinterpret_cast<char const*>(e) - 16);
    for (void const* field : {static_cast<void const*>(&e->mass), static_cast<void const*>(&e->orientation),
                              static_cast<void const*>(&e->boundsMin), static_cast<void const*>(&e->centerOfMass),
                              static_cast<void const*>(&e->feltAcceleration),
                              static_cast<void const*>(&e->parentEntity), static_cast<void const*>(&e->colliders),
                              static_cast<void const*>(&e->nodesDirty), static_cast<void const*>(&e->physicsEnabled),
                              static_cast<void const*>(&e->restTime), static_cast<void const*>(&e->orbitEnvironmentId)})
        __builtin_prefetch(field, 1);
}

/// Asks for the parts of entity that ApplyGravity reads and writes to be
/// fetched into the cache: the control block, the position and orientation,
/// and the felt acceleration.
void PrefetchGravityFields(ServerSideEntity const* entity) {
    char const* const bytes = reinterpret_cast<char const*>(entity);
    __builtin_prefetch(bytes - 16);
    __builtin_prefetch(&entity->position);
    __builtin_prefetch(&entity->orientation);
    __builtin_prefetch(&entity->feltAcceleration, 1);
}

/// The environment functions of a step's environments; consecutive bodies
/// mostly share one, so the last is remembered.
class EnvironmentLookup {
public:
    /// The function of environment, or null when it has none.
    physics::EnvironmentFunction const* Find(EnvironmentId environment) {
        if (!_looked || environment != _environment) {
            _looked = true;
            _environment = environment;
            auto const found = Game::_environmentFunctions.find(environment);
            _function = found != Game::_environmentFunctions.end() && found->second ? &found->second : nullptr;
        }
        return _function;
    }

    /// Gravity at position in environment; zero without a function.
    glm::dvec3 Gravity(EnvironmentId environment, glm::dvec3 const& position) {
        physics::EnvironmentFunction const* function = Find(environment);
        return function != nullptr ? (*function)(position, EnvironmentGravityOnly, 0.0).gravity : glm::dvec3(0.0);
    }

private:
    EnvironmentId _environment = 0;
    physics::EnvironmentFunction const* _function = nullptr;
    bool _looked = false;
};

/// Felt acceleration of a static body without parent: its environment's
/// gravity in the body's axes, or none outside an environment.
void FeelEnvironmentGravity(ServerSideEntity& entity, EnvironmentLookup& environments) {
    if (entity.environmentId == 0) {
        entity.feltAcceleration = glm::dvec3(0.0);
        return;
    }
    glm::dmat3 const toLocal = glm::inverse(glm::mat3_cast(entity.orientation));
    entity.feltAcceleration = toLocal * environments.Gravity(entity.environmentId, entity.position);
}

/// The group of key; consecutive entities mostly share one, so the last is remembered.
Group& GroupOf(StepScratch& step, GroupKey const& key, GroupKey& lastKey, Group*& last) {
    if (last == nullptr || !(key == lastKey)) {
        last = &step.groups[key];
        lastKey = key;
    }
    return *last;
}

// Sleeping bodies. A resting body without parent in an environment, which no
// other body looks up (as parent or as the holder of components), leaves the
// walk once it has had a static record with restTime at 1. Each step compares
// what it was put to sleep with against its entity, reading a few fields and
// building nothing; when anything differs it is woken and walked again, in
// its place in the registry's order. A moving body that comes near gets a
// static record for it, made then, and lists it among its near statics in
// the registry's order, so the outcome is that of walking every body.

/// What the entity holds now of what a sleeper is put to sleep with.
RestState RestStateOf(ServerSideEntity const& e) {
    return {&e,          e.environmentId, e.position, e.orientation, e.centerOfMass,
            e.boundsMin, e.boundsMax,     e.restTime, e.isDynamic};
}

/// Whether the entity of s still holds what it was put to sleep with. The
/// registry keeps its slots while its version stays (ListEntities).
bool StillAsleep(RestState const& s) {
    ServerSideEntity const& e = *s.entity;
    return e.physicsEnabled && e.mass > 0.0 && e.environmentId == s.environment && !e.isComponent &&
        !e.parentEntity.IsSet() && !e.nodesDirty && e.isDynamic == s.isDynamic && e.restTime == s.restTime &&
        e.position == s.position && e.orientation == s.orientation && e.centerOfMass == s.centerOfMass &&
        e.boundsMin == s.boundsMin && e.boundsMax == s.boundsMax;
}

/// Asks for what StillAsleep reads to be fetched into the cache: the three
/// lines from the one where mass begins (see BaseEntity).
void PrefetchSleeper(ServerSideEntity const* e) {
    char const* const first = reinterpret_cast<char const*>(&e->mass);
    for (int line = 0; line < 3; ++line) __builtin_prefetch(first + 64 * line);
}

/// Lists the sleepers' states anew for the checks, after the sleepers changed.
void ListChecks(StepScratch& step) {
    step.checks.clear();
    for (Sleeper const& s : step.sleepers) {
        step.checks.push_back(s.state);
        if (s.awake) step.checks.back().entity = nullptr;
    }
}

/// Wakes s: it leaves the sleepers at the next RebuildSleepingLists and is
/// walked from then on.
void Wake(StepScratch& step, Sleeper& s) {
    s.awake = true;
    step.asleep[s.order] = 0;
    step.sleepingOrder.erase(s.id);
    step.sleepersChanged = true;
}

/// After the registry changed: finds the sleepers' entities in the new list,
/// and wakes those that are gone.
void RemapSleepers(StepScratch& step) {
    step.asleep.assign(step.entities.size(), 0);
    step.sleepersChanged = true;
    step.sleepingOrder.clear();
    if (step.sleepers.empty()) return;
    std::unordered_map<ServerSideEntity const*, uint32_t> orderOf;
    orderOf.reserve(step.entities.size());
    for (uint32_t i = 0; i < step.entities.size(); ++i) orderOf.emplace(step.entities[i].entity, i);
    for (Sleeper& s : step.sleepers) {
        auto const found = orderOf.find(s.entity);
        // The address may be a new entity's: the id tells.
        if (s.awake || found == orderOf.end() || step.entities[found->second].entity->id != s.id) {
            s.awake = true;
            continue;
        }
        s.order = found->second;
        s.slot = step.entities[s.order].pointer;
        step.asleep[s.order] = 1;
        step.sleepingOrder[s.id] = s.order;
    }
    std::erase_if(step.sleepers, [](Sleeper const& s) { return s.awake; });
    std::sort(step.sleepers.begin(), step.sleepers.end(),
              [](Sleeper const& a, Sleeper const& b) { return a.order < b.order; });
}

/// Lists the registry's slots when its set of entities changed since the
/// last step. Walking the registry follows one pointer after another, while
/// the listed entities can be fetched from memory a few ahead of their turn.
/// The list stays from one step to the next while the registry keeps its set
/// of entities, and with it its order, so most steps do not walk it at all.
void ListEntities(StepScratch& step) {
    if (step.listed && step.listedVersion == ServerSideEntity::_sharedObjectsVersion &&
        step.listedSize == ServerSideEntity::_sharedObjects.size())
        return;
    step.entities.clear();
    for (auto& [key, entity] : ServerSideEntity::_sharedObjects) step.entities.push_back({&entity, entity.get()});
    step.listed = true;
    step.listedVersion = ServerSideEntity::_sharedObjectsVersion;
    step.listedSize = ServerSideEntity::_sharedObjects.size();
    RemapSleepers(step);
}

/// Wakes the sleepers whose entities changed; every sleeper when sleeping is off.
void WakeChangedSleepers(StepScratch& step, bool sleeping) {
    if (!sleeping) {
        for (Sleeper& s : step.sleepers) {
            if (!s.awake) Wake(step, s);
        }
        return;
    }
    if (step.sleepersChanged) ListChecks(step);
    size_t const count = step.checks.size();
    for (size_t k = 0; k < count; ++k) {
        if (k + PrefetchAhead < count && step.checks[k + PrefetchAhead].entity != nullptr)
            PrefetchSleeper(step.checks[k + PrefetchAhead].entity);
        RestState const& check = step.checks[k];
        if (check.entity != nullptr && !StillAsleep(check)) Wake(step, step.sleepers[k]);
    }
}

/// After sleepers were woken or put to sleep: drops the woken, and makes the
/// list of the walked entities and the areas again.
void RebuildSleepingLists(StepScratch& step) {
    if (!step.sleepersChanged) return;
    std::erase_if(step.sleepers, [](Sleeper const& s) { return s.awake; });
    ListChecks(step);
    step.awake.clear();
    for (uint32_t i = 0; i < step.entities.size(); ++i) {
        if (step.asleep[i] == 0) step.awake.push_back(i);
    }
    for (auto& [environment, area] : step.areas) {
        area.members.clear();
        area.spheres.clear();
        area.filed = false;
    }
    SleepingArea* area = nullptr;
    for (uint32_t k = 0; k < step.sleepers.size(); ++k) {
        Sleeper const& s = step.sleepers[k];
        EnvironmentId const environment = s.state.environment;
        if (area == nullptr || step.sleepers[k - 1].state.environment != environment) area = &step.areas[environment];
        area->members.push_back(k);
        area->spheres.push_back(s.sphere);
    }
    std::erase_if(step.areas, [](auto const& entry) { return entry.second.members.empty(); });
    step.sleepersChanged = false; // last: a list left half made by an exception is made again
}

/// The static record of sleeper s in this step, made when it is first asked for.
Static& RecordOfSleeper(StepScratch& step, Sleeper& s) {
    if (s.recordStep != step.stepNumber) {
        s.recordStep = step.stepNumber;
        s.record = static_cast<uint32_t>(step.statics.size());
        step.statics.Add(*s.slot, false);
        step.staticEntities.push_back(s.entity);
        step.staticOrder.push_back(s.order);
    }
    return step.statics[s.record];
}

/// Wakes the sleepers that this step looks up (a parent of a group, a holder
/// of components) and gives each its static record, placed among its group's
/// statics where the walk would have put it.
void WakeLookedUpSleepers(StepScratch& step) {
    if (step.sleepingOrder.empty()) return;
    auto wake = [&step](Id const& id) {
        auto const found = step.sleepingOrder.find(id);
        if (found == step.sleepingOrder.end()) return;
        auto const s = std::lower_bound(step.sleepers.begin(), step.sleepers.end(), found->second,
                                        [](Sleeper const& a, uint32_t order) { return a.order < order; });
        NEROX_ASSERT(s != step.sleepers.end() && s->id == id);
        Wake(step, *s);
        RecordOfSleeper(step, *s);
        uint32_t const record = s->record;
        std::vector<uint32_t>& statics = step.groups[GroupKey{s->state.environment, Id{}}].statics;
        auto const place =
            std::lower_bound(statics.begin(), statics.end(), s->order,
                             [&step](uint32_t index, uint32_t order) { return step.staticOrder[index] < order; });
        statics.insert(place, record);
    };
    // Listed first: waking adds a group to step.groups.
    step.lookedUp.clear();
    for (auto const& [key, group] : step.groups) {
        if (key.parent.IsSet() && !group.Empty()) step.lookedUp.push_back(key.parent);
    }
    for (auto const& [key, members] : step.components) step.lookedUp.push_back(key.parent);
    for (Id const& parent : step.lookedUp) wake(parent);
}

/// Keeps what the walk found of a static body that may sleep: the entity as
/// its record was made from it, and the record's sphere.
void AddRestingCandidate(StepScratch& step, uint32_t order, ServerSideEntity& entity, Static const& record) {
    Sleeper& s = step.restingCandidates.emplace_back();
    s.slot = step.entities[order].pointer;
    s.entity = &entity;
    s.id = record.id;
    s.order = order;
    s.state = RestStateOf(entity);
    s.sphere = {record.boundsWorldCenter, record.radius};
}

/// Puts this step's resting candidates to sleep from the next step on, unless
/// they were looked up or changed during the step (a contact callback may
/// have moved one or cleared its restTime).
void PutRestingBodiesToSleep(StepScratch& step) {
    size_t const before = step.sleepers.size();
    for (Sleeper const& s : step.restingCandidates) {
        if (step.bodyIndex.contains(s.id) || !StillAsleep(s.state)) continue;
        step.sleepers.push_back(s);
        step.sleepingOrder[s.id] = s.order;
        step.asleep[s.order] = 1;
    }
    if (step.sleepers.size() == before) return;
    std::inplace_merge(step.sleepers.begin(), step.sleepers.begin() + static_cast<std::ptrdiff_t>(before),
                       step.sleepers.end(), [](Sleeper const& a, Sleeper const& b) { return a.order < b.order; });
    step.sleepersChanged = true;
}

void PrepareRigidbodies(StepScratch& step, double dt, bool sleeping) {
    nerox::cpu::Profiler scope("Prepare rigidbodies", true);
    // Static records get their colliders only when a moving body comes near
    // (see FindNearBodies), or at once when the debug view shows them all.
    bool const staticColliders = Game::debugServerSidePhysics;
    GroupKey lastKey;
    Group* last = nullptr;
    EnvironmentLookup environments;

    // The entities that do not sleep, in the registry's order.
    size_t const count = step.awake.size();
    for (size_t k = 0; k < count; ++k) {
        if (k + PrefetchAhead < count) Prefetch(step.entities[step.awake[k + PrefetchAhead]]);
        uint32_t const i = step.awake[k];
        ServerSideEntity::Ptr& entity = *step.entities[i].pointer;
        if (!entity || entity.get() != step.entities[i].entity) {
            // Emptied or replaced in its slot since it was listed: read it anew.
            step.entities[i].entity = entity.get();
            if (!entity) continue;
        }
        if (!entity->physicsEnabled || !(entity->mass > 0.0)) continue;
        if (entity->environmentId == 0) {
            if (entity->orbitEnvironmentId != 0 && entity->isDynamic && entity->restTime < 1.0 &&
                !entity->isComponent) {
                GroupKey const group{entity->orbitEnvironmentId, entity->parentEntity};
                GroupOf(step, group, lastKey, last).orbiting.push_back(static_cast<uint32_t>(step.orbiting.size()));
                step.orbiting.Add(entity, dt);
            }
        } else if (entity->isComponent) {
            if (ServerSideEntity::Ptr const holder = entity->GetFirstNonComponentParent())
                step.components[{entity->environmentId, holder->id}].push_back(entity);
        } else {
            GroupKey const group{entity->environmentId, entity->parentEntity};
            if (entity->isDynamic && entity->restTime < 1.0) {
                GroupOf(step, group, lastKey, last).dynamics.push_back(static_cast<uint32_t>(step.dynamics.size()));
                step.dynamics.Add(entity, dt);
            } else {
                uint32_t const record = static_cast<uint32_t>(step.statics.size());
                GroupOf(step, group, lastKey, last).statics.push_back(record);
                step.statics.Add(entity, staticColliders);
                step.staticEntities.push_back(entity.get());
                step.staticOrder.push_back(i);
                entity->restTime = std::clamp(entity->restTime + dt, 0.0, 1.0);
                // Gravity of a static body without parent depends on nothing
                // the later phases change: it is felt here, while the entity
                // is in the cache, rather than in a second walk over them all.
                if (!group.parent.IsSet()) {
                    FeelEnvironmentGravity(*entity, environments);
                    // A body whose nodes move every update would wake every step.
                    if (sleeping && entity->restTime == 1.0 && !entity->nodesAnimated)
                        AddRestingCandidate(step, i, *entity, step.statics[record]);
                }
            }
        }
        entity->nodesDirty = false;
    }
}

/// Fills the body index with the entities that are looked up: the parents of
/// the groups and the holders of components.
void IndexLookedUpBodies(StepScratch& step) {
    for (auto const& [key, group] : step.groups) {
        if (key.parent.IsSet() && !group.Empty()) step.bodyIndex.try_emplace(key.parent);
    }
    for (auto const& [key, members] : step.components) step.bodyIndex.try_emplace(key.parent);
    if (step.bodyIndex.empty()) return;
    auto note = [&step](GroupKey const& key, RigidbodyEnvType type, uint32_t index, Id const& id) {
        auto const found = step.bodyIndex.find(id);
        if (found != step.bodyIndex.end()) found->second = {key.environment, type, index, key.parent, true};
    };
    for (auto const& [key, group] : step.groups) {
        for (uint32_t index : group.statics) note(key, RigidbodyEnvType::Static, index, step.statics[index].id);
        for (uint32_t index : group.dynamics) note(key, RigidbodyEnvType::Dynamic, index, step.dynamics[index].id);
        for (uint32_t index : group.orbiting) note(key, RigidbodyEnvType::Orbiting, index, step.orbiting[index].id);
    }
}

void PrepareCompositeEntities(StepScratch& step) {
    nerox::cpu::Profiler scope("Prepare composite entities", true);
    for (auto& [key, members] : step.components) {
        BodyIndexEntry const* entry = FindEntry(step, key.environment, key.parent);
        if (entry == nullptr) continue;
        Static* record = RecordOf(step, *entry);
        if (record == nullptr) continue;
        record->LoadColliders(); // the holder's own come first
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
        if (entry->type != RigidbodyEnvType::Static) static_cast<Dynamic*>(record)->ComputeInertiaTensor();
    }
}

/// Gravity of a record in a parent group: the acceleration of the parent's
/// moving frame at the body, in that frame. A static body feels it too.
void ApplyParentGravity(Static& record, Id const& parentId, bool isStatic) {
    ServerSideEntity::Ptr const entity = record.entity.lock();
    if (!entity) return;
    ServerSideEntity::Ptr const parent = ServerSideEntity::Get(parentId);
    if (!parent) return;
    glm::dvec3 const r = entity->position - parent->centerOfMass;
    record.gravity = glm::cross(parent->angularVelocity, r) + parent->feltAcceleration;
    if (isStatic) entity->feltAcceleration = glm::inverse(glm::mat3_cast(entity->orientation)) * record.gravity;
}

void ApplyGravityToRigidbodies(StepScratch& step) {
    nerox::cpu::Profiler scope("Apply gravity to rigidbodies", true);
    EnvironmentLookup environments;
    for (auto& [key, group] : step.groups) {
        if (!key.parent.IsSet()) {
            // Static bodies felt their gravity while they were prepared. A
            // moving body gets its environment's gravity from each substep's
            // environment pass, which comes after the substep's motion: the
            // first substep gets it here, or it would move without gravity.
            for (uint32_t index : group.dynamics) {
                Dynamic& body = step.dynamics[index];
                if (body.aerodynamic)
                    body.pendingAcceleration +=
                        environments.Gravity(key.environment, body.GetPositionAtCenterOfBounds());
            }
            continue;
        }
        size_t const count = group.statics.size();
        for (size_t i = 0; i < count; ++i) {
            if (i + PrefetchAhead < count) PrefetchGravityFields(step.staticEntities[group.statics[i + PrefetchAhead]]);
            ApplyParentGravity(step.statics[group.statics[i]], key.parent, true);
        }
        for (uint32_t index : group.dynamics) ApplyParentGravity(step.dynamics[index], key.parent, false);
        for (uint32_t index : group.orbiting) ApplyParentGravity(step.orbiting[index], key.parent, false);
    }
}

/// Fills nearDynamics and nearStatics of the group's bodies, and their parent
/// records. The candidates and their order are those of testing every later
/// body and every static body in turn; the broadphase only finds them faster.
void FindNearBodies(StepScratch& step, GroupKey const& key, RecordPool<Dynamic>& bodies,
                    std::vector<uint32_t> const& members, std::vector<uint32_t> const* statics) {
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
        if (a.collisionExclusions.contains(b.id) || b.collisionExclusions.contains(a.id)) continue;
        a.nearDynamics.push_back(&b);
    }
    if (statics != nullptr) {
        step.broadphase.FindOverlaps(step.broadphaseDynamics, step.broadphaseStatics, step.pairs);
        // The sleepers of the environment, for bodies without parent.
        step.sleeperPairs.clear();
        SleepingArea* area = nullptr;
        if (!key.parent.IsSet()) {
            auto const found = step.areas.find(key.environment);
            if (found != step.areas.end()) {
                area = &found->second;
                if (!area->filed) {
                    area->grid.File(area->spheres);
                    area->filed = true;
                }
                area->grid.FindFiledOverlaps(step.broadphaseDynamics, area->spheres, step.sleeperPairs);
            }
        }
        // Both lists run by moving body, then by the registry's order: merged,
        // each body meets its statics in the order of walking them all.
        std::vector<physics::Broadphase::Pair> const& walked = step.pairs;
        std::vector<physics::Broadphase::Pair> const& sleeping = step.sleeperPairs;
        size_t p = 0, q = 0;
        while (p < walked.size() || q < sleeping.size()) {
            bool takeWalked = q == sleeping.size();
            if (p < walked.size() && q < sleeping.size()) {
                takeWalked = walked[p].first != sleeping[q].first ? walked[p].first < sleeping[q].first
                                                                  : step.staticOrder[(*statics)[walked[p].second]] <
                        step.sleepers[area->members[sleeping[q].second]].order;
            }
            if (takeWalked) {
                Dynamic& a = bodies[members[walked[p].first]];
                Static& s = step.statics[(*statics)[walked[p].second]];
                ++p;
                if (a.collisionExclusions.contains(s.id)) continue;
                s.LoadColliders();
                a.nearStatics.push_back(&s);
            } else {
                Dynamic& a = bodies[members[sleeping[q].first]];
                Sleeper& sleeper = step.sleepers[area->members[sleeping[q].second]];
                ++q;
                if (a.collisionExclusions.contains(sleeper.id)) continue;
                Static& s = RecordOfSleeper(step, sleeper);
                s.LoadColliders();
                a.nearStatics.push_back(&s);
            }
        }
    }

    if (!key.parent.IsSet()) return;
    BodyIndexEntry const* entry = FindEntry(step, key.environment, key.parent);
    if (entry == nullptr) return;
    Static* parentRecord = RecordOf(step, *entry);
    if (parentRecord != nullptr) parentRecord->LoadColliders();
    for (uint32_t index : members) {
        Dynamic& body = bodies[index];
        body.parentBody = parentRecord;
        if (parentRecord == nullptr) continue;
        glm::dvec3 const parentCenter = parentRecord->boundsCenter + parentRecord->centerOfMass;
        if (body.collisionExclusions.contains(parentRecord->id) ||
            glm::distance(body.boundsWorldCenter, parentCenter) > body.sweptRadius + parentRecord->radius)
            body.parentBody = nullptr;
    }
}

void BroadphaseCollisionDetection(StepScratch& step) {
    nerox::cpu::Profiler scope("Broadphase collision detection", true);
    for (auto& [key, group] : step.groups) {
        if (!group.dynamics.empty()) FindNearBodies(step, key, step.dynamics, group.dynamics, &group.statics);
    }
}

void OrbitingRigidbodies(StepScratch& step, double dt) {
    nerox::cpu::Profiler scope("Orbiting Rigidbodies", true);
    for (auto& [key, group] : step.groups) {
        if (!group.orbiting.empty()) FindNearBodies(step, key, step.orbiting, group.orbiting, nullptr);
    }
    for (auto& [key, group] : step.groups) {
        if (group.orbiting.empty()) continue;
        {
            nerox::cpu::Profiler detection("CollisionDetection", true);
            for (uint32_t index : group.orbiting) step.orbiting[index].CollisionDetection(dt);
        }
        nerox::cpu::Profiler integration("IntegrateMotion", true);
        for (uint32_t index : group.orbiting) step.orbiting[index].IntegrateMotion(dt);
    }
}

/// The threads of the step's parallel parts.
nerox::cpu::ParallelRange& Workers() {
    static nerox::cpu::ParallelRange workers("physics");
    return workers;
}

/// The contact pass of a group and, for a group without parent in an
/// environment, its environment pass. With a second thread the environment
/// pass follows the contact pass there, body by body: once a body's contacts
/// are answered nothing else in the pass moves it, since each body meets only
/// later ones, so its environment interaction can run while the contacts of
/// the next bodies are found. The follower takes the bodies in order, and so
/// buoyancy draws its random numbers in the order of one thread; on one
/// thread the environment pass simply comes after the contact pass.
/// How many bodies the contact pass answers between two notices to the
/// environment pass: each notice makes the other thread read a cache line that
/// this one writes.
constexpr size_t AnsweredPerNotice = 32;

void ContactsAndEnvironment(StepScratch& step, std::vector<uint32_t> const& members,
                            physics::EnvironmentFunction* function, double h) {
    size_t const count = members.size();
    std::atomic<size_t> answered{0}; // bodies whose contacts are answered
    std::atomic<bool> failed{false}; // the contact pass threw: the follower stops
    auto contacts = [&] {
        nerox::cpu::Profiler detection("CollisionDetection", true);
        try {
            for (size_t i = 0; i < count; ++i) {
                step.dynamics[members[i]].CollisionDetection(h);
                if ((i + 1) % AnsweredPerNotice == 0 || i + 1 == count)
                    answered.store(i + 1, std::memory_order_release);
            }
        } catch (...) {
            failed.store(true, std::memory_order_release);
            throw;
        }
    };
    if (function == nullptr) {
        contacts();
        return;
    }
    auto environment = [&] {
        for (size_t i = 0; i < count; ++i) {
            while (answered.load(std::memory_order_acquire) <= i) {
                if (failed.load(std::memory_order_acquire)) return;
                std::this_thread::yield();
            }
            if (failed.load(std::memory_order_acquire)) return;
            Dynamic& body = step.dynamics[members[i]];
            if (body.aerodynamic) body.InteractWithEnvironment(*function, h);
        }
    };
    // Alone, the caller runs the first chunk and then the second.
    Workers().Run(2, 1, [&](size_t chunk, size_t) { chunk == 0 ? contacts() : environment(); });
}

void DynamicRigidbodies(StepScratch& step, double dt, int substeps) {
    nerox::cpu::Profiler scope("Dynamic Rigidbodies", true);
    // The substeps' passes come in quick succession: the step's threads stay
    // awake between them until the substeps end.
    Workers().KeepAwake(true);
    struct SleepAfter {
        ~SleepAfter() { Workers().KeepAwake(false); }
    } const sleepAfter;
    double const h = dt / static_cast<double>(substeps);
    physics::EnvironmentFunction* function = nullptr;
    EnvironmentId current = 0;
    bool looked = false;
    for (auto& [key, group] : step.groups) {
        if (group.dynamics.empty()) continue;
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
                if (step.dynamics[index].aerodynamic) step.dynamics[index].ComputeAerodynamicSurfaces(*function);
            }
        }
        for (int substep = 0; substep < substeps; ++substep) {
            // Asked to stop: the bodies keep what the substeps so far gave them.
            if (ServerSideEntity::physicsStop.load(std::memory_order_relaxed)) break;
            {
                nerox::cpu::Profiler integration("IntegrateMotion", true);
                for (uint32_t index : group.dynamics) step.dynamics[index].IntegrateMotion(h);
            }
            ContactsAndEnvironment(step, group.dynamics, key.parent.IsSet() ? nullptr : function, h);
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

void ApplyToEntities(StepScratch& step, double dt) {
    nerox::cpu::Profiler scope("Apply to entities", true);
    for (Dynamic& body : step.dynamics) body.ApplyToEntity(dt);
    for (Dynamic& body : step.orbiting) body.ApplyToEntity(dt);
}

void AddDebugColliders(Static const& record, bool dynamic) {
    glm::dmat4 const world = record.GetTransform();
    for (ConvexMeshCollider const& collider : record.colliders) {
        Game::physicsDebugColliders_back.push_back({record.id, collider, dynamic});
        Game::physicsDebugColliders_back.back().collider.transform = world * collider.transform;
    }
}

void PublishDebugShapes(StepScratch& step) {
    Game::physicsDebugColliders_back.clear();
    Game::physicsDebugLines_back.clear();
    for (Static const& record : step.statics) AddDebugColliders(record, false);
    for (RecordPool<Dynamic>* list : {&step.dynamics, &step.orbiting}) {
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

/// The step's lists keep their capacity from one step to the next; only the
/// server update thread runs the step.
StepScratch& Scratch() {
    static StepScratch step;
    return step;
}

} // namespace

size_t ServerSideEntity::SleepingBodyCount() {
    std::shared_lock<nerox::SharedMutex> lock(_sharedObjectsMutex);
    return Scratch().sleepingOrder.size();
}

void ServerSideEntity::PhysicsUpdate(double dt, int substeps) {
    StepScratch& step = Scratch();

    std::shared_lock<nerox::SharedMutex> lock(_sharedObjectsMutex);
    nerox::cpu::Profiler scope("PhysicsUpdate", true);
    nerox::Timer timer;
    static size_t const cores = std::max(1u, std::thread::hardware_concurrency());
    Workers().SetThreads(physicsThreads > 0 ? physicsThreads : cores);

    step.Clear();
    step.statics.Reserve(_sharedObjects.size());
    step.dynamics.Reserve(_sharedObjects.size());
    bool const sleeping = restingBodiesSleep && !Game::debugServerSidePhysics;
    ListEntities(step);
    WakeChangedSleepers(step, sleeping);
    RebuildSleepingLists(step);
    PrepareRigidbodies(step, dt, sleeping);
    WakeLookedUpSleepers(step);
    RebuildSleepingLists(step);
    IndexLookedUpBodies(step);
    PrepareCompositeEntities(step);
    ApplyGravityToRigidbodies(step);
    BroadphaseCollisionDetection(step);
    OrbitingRigidbodies(step, dt);
    DynamicRigidbodies(step, dt, substeps);
    ApplyToEntities(step, dt);
    if (sleeping) PutRestingBodiesToSleep(step);
    if (Game::debugServerSidePhysics) PublishDebugShapes(step);

    step.Release(); // records may hold module callbacks: drop them before the modules could go
    Game::serverSidePhysicsAvgTime =
        0.9 * Game::serverSidePhysicsAvgTime + 0.1 * timer.GetElapsedMilliseconds() * 0.001;
    scope.Stop();
}

} // namespace game::entity
