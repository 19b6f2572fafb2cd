// Server entities: construction, the parent-child relation, lookups along the tree,
// the hook runner, the parent cache, the entity stages of a server tick, loading and
// unloading a world, and the state and checkpoint files.
#include <gtest/gtest.h>

#include "support/Bytes.hpp"
#include "support/GlmChecks.hpp"
#include "support/Golden.hpp"

#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <cmath>
#include <filesystem>
#include <functional>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include <glm/glm.hpp>
#include <glm/gtc/quaternion.hpp>

#include "game/Game.hpp"
#include "game/entity/EntityConfig.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "nerox/filesystem/Stream.hpp"
#include "nerox/modular/ModuleID.hpp"

using namespace testsupport;
using game::entity::BaseEntity;
using game::entity::EntityConfig;
using game::entity::Id;
using game::entity::ServerSideEntity;
using nerox::filesystem::ReadOnlyStream;
using nerox::filesystem::WriteOnlyStream;
using nerox::modular::ModuleID;
using Ptr = ServerSideEntity::Ptr;

namespace fs = std::filesystem;

namespace {

ModuleID const TestModule("TEST_sseentities");
ModuleID const Absent("NOBODY_absent");
Bytes const SavedBlob = {'s', 't', 'a', 't', 'e', 0, 1, 2, 0xFF};
Bytes const CheckpointBlob = {'c', 'k', 0, 0x80, 7};

glm::dquat Rotation(double degrees, glm::dvec3 const& axis) { return glm::angleAxis(glm::radians(degrees), glm::normalize(axis)); }
Bytes BytesOf(nerox::filesystem::Stream const& stream) { return Bytes(stream.ReadableBytes().begin(), stream.ReadableBytes().end()); }

/// What the interfaces saw, over all of them: hook calls in order ('B', 'U', 'A').
struct Log {
    std::vector<std::pair<char, Id>> calls;
    int initCalls = 0, deserializeCalls = 0;
    Bytes deserialized;
};
Log hookLog;

/// Overrides every hook and the state operations and logs each call; its state blob is its payload.
class ProbeInterface : public ServerSideEntity::Interface {
public:
    void InitInterface() override { ++hookLog.initCalls; }
    void BeforeUpdate(double) override { hookLog.calls.emplace_back('B', id); }
    void Update(double) override
    {
        hookLog.calls.emplace_back('U', id);
        auto const owner = entity.lock();
        if (environmentToSet != 0) owner->environmentId = environmentToSet;
        if (bendElbow) owner->jointStates.at("elbow").rotation.x = 30.0f, owner->nodesDirty = true;
    }
    void AfterUpdate(double) override { hookLog.calls.emplace_back('A', id), environmentInAfterUpdate = entity.lock()->environmentId; }
    void SaveState(WriteOnlyStream& stream) override { stream.Write(payload.data(), payload.size()); }
    void LoadState(ReadOnlyStream& stream) override { ++loadCalls, payload = BytesOf(stream); }
    void SerializeState(WriteOnlyStream& stream) override { stream.Write(CheckpointBlob.data(), CheckpointBlob.size()); }
    void DeserializeState(ReadOnlyStream& stream) override { ++hookLog.deserializeCalls, hookLog.deserialized = BytesOf(stream); }

    Bytes payload = SavedBlob;
    int loadCalls = 0;
    bool bendElbow = false;
    game::entity::EnvironmentId environmentToSet = 0, environmentInAfterUpdate = 0;
};
class DerivedProbeInterface : public ProbeInterface {}; // inherits the overrides without naming them again
class UpdateOnlyInterface : public ServerSideEntity::Interface {
public:
    void Update(double) override { ++update; }
    int update = 0;
};
class PlainInterface : public ServerSideEntity::Interface {}; // no hooks, the default state operations

template <class T>
T& InterfaceOf(Ptr const& entity) { return dynamic_cast<T&>(*entity->GetInterface()); }

/// A fresh entity id; generated ids may repeat within one microsecond.
Id NextId()
{
    static uint64_t serial = 0;
    return Id(0x0000000054544E45ull, 0x0100000000000000ull + ++serial); // tag "ENTT"
}

/// Registry rows of the test module, a unique world folder and a clean registry afterwards.
class SseTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        static std::atomic<int> counter{0};
        ::Game::_current_world = "sseTests_" + std::to_string(::getpid()) + "_" + std::to_string(counter++);
        world = "../Tessara-data/server/worlds/" + ::Game::_current_world;
        fs::remove_all(world);
        hookLog = Log();
        auto const arm = std::make_shared<EntityConfig>(std::string(TESSARA_TEST_SOURCE_DIR) + "/game/entity/data/arm.txt");
        Register<ProbeInterface>("probe");
        Register<ProbeInterface>("probearm", arm);
        Register<DerivedProbeInterface>("derived");
        Register<UpdateOnlyInterface>("updateonly");
        Register<PlainInterface>("plain");
        Register<PlainInterface>("arm", arm);
    }
    void TearDown() override
    {
        ServerSideEntity::DestroyAll();
        ServerSideEntity::_registered_interfaces.erase(TestModule.String());
        ServerSideEntity::_module_entities.erase(TestModule.String());
        ::Game::serverSideEntityPerformanceMetrics = false;
        ::Game::_serverSideEntityPerformance_timers.clear();
        ::Game::serverSideEntityPerformance_avg_time.clear();
        std::error_code ignored;
        fs::remove_all(world, ignored);
        ::Game::_current_world.clear();
    }

    template <class T>
    void Register(std::string const& type, std::shared_ptr<EntityConfig> config = {})
    {
        auto& row = ServerSideEntity::_registered_interfaces[TestModule.String()][type];
        row.moduleId = TestModule, row.itemType = type, row.config = std::move(config), row.configLoaded = false;
        row.factory = [] { return std::make_shared<T>(); };
    }

    /// A registered entity, created but not attached.
    static Ptr Make(std::string const& type = "plain", Id id = NextId()) { return ServerSideEntity::Create(TestModule, type, id); }

    /// A registered entity with its interface attached and ready.
    static Ptr MakeReady(std::string const& type) { Ptr entity = Make(type); ReadOnlyStream noState; entity->Attach(noState); return entity; }

    /// Forgets entity without touching its files.
    static void Unload(Ptr& entity) { Id const id = entity->GetID(); entity->deleteFilesOnDestroy = false; entity.reset(); ServerSideEntity::Destroy(id); }

    static void RunHooks(Ptr const& entity) { entity->BeforeUpdate(0.1), entity->Update(0.1), entity->AfterUpdate(0.1); }

    std::string world;
};

// ---------------------------------------------------------------------------
// Construction, parent and child

using ServerSideEntityConstruction = SseTest;

TEST_F(ServerSideEntityConstruction, IdIsKeptWhenSetAndTypeGivesInterfaceConfigAndNodes)
{
    Id const chosen = NextId();
    EXPECT_EQ(Make("plain", chosen)->GetID(), chosen);
    // One zero word makes the id unset: a new one is generated instead.
    for (Id const unset : {Id(), Id(0x1234, 0)}) {
        Ptr const generated = Make("plain", unset);
        EXPECT_EQ(generated->GetID().Tag(), "ENTT");
        EXPECT_NE(generated->GetID(), unset);
    }
    // An unknown module or type gives a bare entity.
    for (Ptr const& bare : {ServerSideEntity::Create(Absent, "arm", NextId()), Make("notregistered")}) {
        EXPECT_FALSE(bare->GetInterface() || bare->config) << bare->itemType;
        EXPECT_TRUE(bare->colliders.empty() && bare->nodeTransforms.empty() && bare->jointStates.empty());
    }
    auto& row = ServerSideEntity::_registered_interfaces[TestModule.String()]["arm"];
    for (Ptr const& entity : {Make("arm"), Make("arm")}) {
        ASSERT_NO_THROW(InterfaceOf<PlainInterface>(entity));
        EXPECT_FALSE(entity->GetInterface()->isReady) << "attached only later";
        EXPECT_TRUE(row.configLoaded);
        EXPECT_EQ(entity->config, row.config) << "entities of a type share the description";
        EXPECT_EQ(entity->colliders.size(), 3u) << "the nodes come from the description";
        for (auto const& [name, collider] : entity->colliders)
            EXPECT_TRUE(collider.entity == entity->GetID() && collider.name == name) << name;
    }
}

struct Motion { glm::dvec3 position; glm::dquat orientation; glm::dvec3 linear, angular; };

Motion Place(ServerSideEntity& entity, Motion const& motion)
{
    entity.position = motion.position, entity.orientation = motion.orientation;
    entity.linearVelocity = motion.linear, entity.angularVelocity = motion.angular;
    return motion;
}

/// entity is in the world where motion put it, seen through ancestor (or on its own).
void ExpectInWorld(ServerSideEntity const& entity, Motion const& motion, ServerSideEntity const* ancestor = nullptr)
{
    glm::dmat4 const parent = ancestor ? ancestor->GetTransform() : glm::dmat4(1.0);
    glm::dquat const turn = ancestor ? ancestor->orientation : glm::dquat(1.0, 0.0, 0.0, 0.0);
    BaseEntity expected;
    expected.position = motion.position, expected.orientation = motion.orientation;
    ExpectMatNear(parent * entity.GetTransform(), expected.GetTransform());
    ExpectVecNear(turn * entity.linearVelocity + (ancestor ? ancestor->linearVelocity : glm::dvec3(0.0)), motion.linear);
    ExpectVecNear(turn * entity.angularVelocity, motion.angular);
}

TEST_F(ServerSideEntityConstruction, AddChildKeepsTheWorldPlaceAndRemoveChildRestoresItOrLandsOnTheGrandparent)
{
    Ptr grandparent = Make(), parent = Make();
    Place(*grandparent, {{-5.0, 1.0, 0.0}, Rotation(60.0, {0.0, 0.0, 1.0}), {3.0, 0.0, -1.0}, {0.0, 0.5, 0.0}});
    Place(*parent, {{10.0, -4.0, 2.5}, Rotation(37.0, {1.0, 2.0, -0.5}), {1.0, 2.0, 3.0}, {0.3, -0.2, 0.1}});
    // Half turns take the quaternion conversion through its other branches.
    for (glm::dquat const turn : {Rotation(-115.0, {0.2, -1.0, 0.7}), Rotation(180.0, {1, 0, 0}) * Rotation(10.0, {0, 1, 1}),
                                  Rotation(180.0, {0, 1, 0}) * Rotation(10.0, {0, 1, 1}), Rotation(180.0, {0, 0, 1}) * Rotation(10.0, {0, 1, 1})}) {
        Ptr child = Make();
        Motion const world = Place(*child, {{12.0, -1.0, 4.0}, turn, {-4.0, 0.5, 7.0}, {2.0, 1.0, -3.0}});
        parent->AddChild(child);
        EXPECT_EQ(child->parentEntity, parent->GetID());
        ExpectInWorld(*child, world, parent.get());
        EXPECT_NEAR(glm::length(child->orientation), 1.0, 1e-12);
        parent->RemoveChild(child);
        EXPECT_FALSE(child->parentEntity.IsSet());
        ExpectInWorld(*child, world);
    }
    Ptr child = Make();
    Motion const world = Place(*child, {{0.0, 7.0, -2.0}, Rotation(140.0, {0.3, -0.4, 1.0}), {-1.0, -2.0, 5.0}, {0.0, -2.0, 1.5}});
    parent->AddChild(child);
    grandparent->AddChild(parent);
    parent->RemoveChild(child);
    EXPECT_EQ(child->parentEntity, grandparent->GetID());
    ExpectInWorld(*child, world, grandparent.get());
    grandparent->RemoveChild(child);
    ExpectInWorld(*child, world);
}

using ServerSideEntityDeathTest = SseTest;

TEST_F(ServerSideEntityDeathTest, BrokenRelationsFactoriesAndBoxesAbortWithTheirCondition)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Ptr parent = Make(), other = Make(), child = Make(), adopted = Make(), component = Make();
    other->AddChild(adopted);
    EXPECT_DEATH(parent->AddChild(adopted), "ASSERTION FAILED: \\(!entity->parentEntity\\)");
    component->isComponent = true;
    EXPECT_DEATH(parent->AddChild(component), "ASSERTION FAILED: \\(!entity->isComponent\\)");
    EXPECT_DEATH(parent->AddChild(parent), "ASSERTION FAILED: \\(entity->GetID\\(\\) != GetID\\(\\)\\)");
    EXPECT_DEATH(parent->RemoveChild(child), "ASSERTION FAILED: \\(entity->parentEntity == GetID\\(\\)\\)");
    component->parentEntity = parent->GetID();
    EXPECT_DEATH(parent->RemoveChild(component), "ASSERTION FAILED: \\(!entity->isComponent\\)");
    // Each the parent of the other: the child would land on itself.
    child->parentEntity = parent->GetID(), parent->parentEntity = child->GetID();
    EXPECT_DEATH(parent->RemoveChild(child), "ASSERTION FAILED: \\(entity->GetID\\(\\) != parentEntity\\)");
    ServerSideEntity::_registered_interfaces[TestModule.String()]["broken"].factory = [] { return std::shared_ptr<ServerSideEntity::Interface>(); };
    EXPECT_DEATH(Make("broken"), "ASSERTION FAILED: \\(_interface\\)");
    Ptr const box = Make();
    box->box_size = {1.0, 1.0, 1.0};
    EXPECT_DEATH(box->GetInertiaTensorWorld(), "ASSERTION FAILED: \\(mass > 0.0\\)");
    box->mass = 2.0, box->box_size = {1.0, 0.0, 1.0};
    EXPECT_DEATH(box->GetInertiaTensorWorld(), "ASSERTION FAILED: \\(box_size.y > 0.0\\)");
}

// ---------------------------------------------------------------------------
// Lookups along the tree, the parent cache

using ServerSideEntityLookup = SseTest;

TEST_F(ServerSideEntityLookup, ComponentChainGivesParentTransformAndVehicle)
{
    // body <- arm (component) <- hand (component); rider sits on body; loose is a component of a missing entity.
    Ptr body = Make();
    Ptr const arm = Make(), hand = Make(), rider = Make(), loose = Make(), onLoose = Make();
    Place(*body, {{100.0, 50.0, -20.0}, Rotation(33.0, {0.0, 1.0, 0.0}), {}, {}});
    Place(*arm, {{1.0, 0.0, 0.5}, Rotation(90.0, {0.0, 0.0, 1.0}), {}, {}});
    Place(*hand, {{0.0, 2.0, 0.0}, Rotation(45.0, {1.0, 0.0, 0.0}), {}, {}});
    rider->position = loose->position = {5.0, 5.0, 5.0};
    arm->isComponent = hand->isComponent = loose->isComponent = true;
    arm->parentEntity = rider->parentEntity = body->GetID();
    hand->parentEntity = arm->GetID();
    loose->parentEntity = NextId();
    onLoose->parentEntity = loose->GetID();
    struct Case { char const* name; Ptr entity, firstNonComponent; glm::dmat4 inPhysicsParent; Id vehicle; };
    for (Case const& c : {Case{"body", body, nullptr, glm::dmat4(1.0), body->GetID()}, Case{"arm", arm, body, arm->GetTransform(), body->GetID()},
                          Case{"hand", hand, body, arm->GetTransform() * hand->GetTransform(), body->GetID()},
                          Case{"rider", rider, body, glm::dmat4(1.0), rider->GetID()}, Case{"loose", loose, nullptr, glm::dmat4(1.0), loose->GetID()},
                          Case{"on loose", onLoose, nullptr, glm::dmat4(1.0), onLoose->GetID()}}) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.entity->GetFirstNonComponentParent(), c.firstNonComponent);
        ExpectMatNear(c.entity->GetTransformInPhysicsParent(), c.inPhysicsParent);
        EXPECT_EQ(c.entity->GetVehicleID(), c.vehicle);
    }
    // The hand's origin: two along the arm's turned y axis, i.e. -2 in x, from the arm's place (rotation before translation).
    ExpectVecNear(glm::dvec3(hand->GetTransformInPhysicsParent()[3]), {-1.0, 0.0, 0.5});
    Id const bodyId = body->GetID();
    body.reset();
    ASSERT_TRUE(ServerSideEntity::Destroy(bodyId));
    EXPECT_EQ(arm->GetVehicleID(), arm->GetID());
    EXPECT_EQ(hand->GetVehicleID(), arm->GetID()) << "the hand asks its parent, now the top of what is left";

    arm->mass = 12.0, arm->box_size = {2.0, 4.0, 6.0}, arm->orientation = glm::dquat(1.0, 0.0, 0.0, 0.0);
    ExpectMatNear(arm->GetInertiaTensorWorld(), glm::dmat3(52.0, 0, 0, 0, 40.0, 0, 0, 0, 20.0), 1e-12);
    arm->orientation = Rotation(30.0, {0.0, 0.0, 1.0});
    double const off = 12.0 * std::sqrt(3.0) / 4.0;
    ExpectMatNear(arm->GetInertiaTensorWorld(), glm::dmat3(49.0, off, 0, off, 43.0, 0, 0, 0, 20.0));
}

TEST_F(ServerSideEntityLookup, ParentCacheTakesTheRootsEnvironmentAndMotion)
{
    Ptr const root = Make(), middle = Make(), leaf = Make();
    middle->parentEntity = root->GetID();
    leaf->parentEntity = middle->GetID();
    root->environmentId = 7, root->orbitEnvironmentId = 8;
    middle->environmentId = 5, middle->orbitEnvironmentId = 6;
    leaf->environmentId = 1, leaf->orbitEnvironmentId = 2;
    struct Case { char const* name; bool rootDynamic; double rootRest; bool middleMoving, leafMoving; };
    // At rest since before loading (2) nobody moves; an ancestor passes on its own cached flag.
    for (Case const& c : {Case{"moving root", true, 1.5, false, true}, Case{"root at rest since the load", true, 2.0, false, false},
                          Case{"static root", false, 0.0, false, false}, Case{"middle has a moving parent", false, 0.0, true, true}}) {
        SCOPED_TRACE(c.name);
        root->isDynamic = c.rootDynamic, root->restTime = c.rootRest, middle->parentMoving = c.middleMoving, leaf->settled = true;
        leaf->RefreshCache();
        EXPECT_EQ(leaf->environmentId, 7u) << "the last ancestor walked wins";
        EXPECT_EQ(leaf->orbitEnvironmentId, 8u);
        EXPECT_EQ(leaf->parentMoving, c.leafMoving);
        EXPECT_EQ(leaf->settled, !c.leafMoving);
    }
    // The walk stops at a missing parent: the environment then comes from the middle.
    root->environmentId = 99;
    middle->parentEntity = NextId();
    leaf->RefreshCache();
    EXPECT_EQ(leaf->environmentId, 5u);
    EXPECT_EQ(leaf->orbitEnvironmentId, 6u);
    root->RefreshCache();
    EXPECT_EQ(root->environmentId, 99u) << "an entity without a parent keeps its own environment";
    EXPECT_FALSE(root->parentMoving);
}

// ---------------------------------------------------------------------------
// Hook runner and the entity stages of a server tick

using ServerSideEntityHooks = SseTest;

TEST_F(ServerSideEntityHooks, AttachLinksTheInterfaceOnceAndHooksRunOnlyWhenReadyAndOverridden)
{
    Ptr const entity = Make("probe");
    RunHooks(entity);
    EXPECT_TRUE(hookLog.calls.empty()) << "not attached yet";
    for (int i = 0; i < 2; ++i) {
        ReadOnlyStream noState;
        entity->Attach(noState);
    }
    auto const& object = InterfaceOf<ProbeInterface>(entity);
    EXPECT_TRUE(object.isReady && object.entity.lock() == entity && object.self.lock() == entity->GetInterface() && object.id == entity->GetID());
    EXPECT_EQ(hookLog.initCalls, 1) << "attached once";
    ASSERT_EQ(ServerSideEntity::_module_entities[TestModule.String()].size(), 1u);
    EXPECT_EQ(ServerSideEntity::_module_entities[TestModule.String()][0].lock(), entity->GetInterface());
    RunHooks(entity);
    EXPECT_EQ(hookLog.calls.size(), 3u);
    entity->GetInterface()->isReady = false;
    RunHooks(entity);
    EXPECT_EQ(hookLog.calls.size(), 3u);
    // Overrides count also when inherited; an interface with Update only gets only Update.
    hookLog.calls.clear();
    RunHooks(MakeReady("derived"));
    EXPECT_EQ(hookLog.calls.size(), 3u);
    Ptr const updateOnly = MakeReady("updateonly");
    RunHooks(updateOnly);
    RunHooks(MakeReady("plain"));
    EXPECT_EQ(InterfaceOf<UpdateOnlyInterface>(updateOnly).update, 1);
}

TEST_F(ServerSideEntityHooks, UpdateRunsTheJointSolverAfterTheHookWhenItMarksTheNodes)
{
    Ptr const bending = MakeReady("probearm");
    glm::dmat4 const rest = bending->colliders.at("fore").transform;
    BaseEntity reference;
    reference.config = bending->config;
    reference.InitNodes();
    reference.jointStates.at("elbow").rotation.x = 30.0f;
    ASSERT_TRUE(bending->config->jointSolver(&reference));
    bending->jointStates.at("elbow").rotation.x = 30.0f;
    bending->Update(0.016); // not dirty: a changed joint value moves nothing yet
    ExpectMatNear(bending->colliders.at("fore").transform, rest, 0.0);
    InterfaceOf<ProbeInterface>(bending).bendElbow = true;
    bending->Update(0.016);
    ExpectMatNear(bending->nodeTransforms.at("fore"), reference.nodeTransforms.at("fore"), 1e-12);
    ExpectMatNear(bending->colliders.at("fore").transform, reference.nodeTransforms.at("fore"), 1e-12);
    EXPECT_GT(std::abs(bending->colliders.at("fore").transform[3][1] - rest[3][1]), 0.05);
}

/// Every entity appears once per stage, and each stage ends before the next starts.
void ExpectStagesInOrder(size_t entities)
{
    ASSERT_EQ(hookLog.calls.size(), 3 * entities);
    for (size_t stage = 0; stage < 3; ++stage) {
        std::set<std::pair<uint64_t, uint64_t>> seen;
        for (size_t i = stage * entities; i < (stage + 1) * entities; ++i) {
            EXPECT_EQ(hookLog.calls[i].first, "BUA"[stage]) << "call " << i;
            seen.emplace(hookLog.calls[i].second.first, hookLog.calls[i].second.second);
        }
        EXPECT_EQ(seen.size(), entities);
    }
}

TEST_F(ServerSideEntityHooks, TickRunsEachStageOverAllEntitiesAndAfterUpdateSeesTheRefreshedCacheMeasuredOrNot)
{
    ::Game::ServerUpdate(0.02, 1); // an empty world first: the next tick finds the registry changed
    for (int i = 0; i < 5; ++i) MakeReady(i % 2 == 0 ? "probe" : "derived");
    MakeReady("plain");
    // The parent changes its environment in its Update hook. The child comes first
    // in the walk, so only the refresh before AfterUpdate can bring it the change.
    std::vector<Ptr> walk;
    ServerSideEntity::ForEach([&walk](Ptr entity) {
        if (dynamic_cast<ProbeInterface*>(entity->GetInterface().get())) walk.push_back(std::move(entity));
    });
    Ptr const child = walk.front(), parent = walk.back();
    child->parentEntity = parent->GetID();
    parent->environmentId = 30;
    InterfaceOf<ProbeInterface>(parent).environmentToSet = 31;
    ::Game::ServerUpdate(0.02, 1);
    ExpectStagesInOrder(5);
    EXPECT_EQ(InterfaceOf<ProbeInterface>(child).environmentInAfterUpdate, 31u);
    EXPECT_EQ(child->environmentId, 31u);

    // Measured ticks keep the order and book the time of each vehicle; a component books into its vehicle.
    ::Game::serverSideEntityPerformanceMetrics = true;
    child->isComponent = true;
    double const dt = 0.25;
    auto const& timers = ::Game::_serverSideEntityPerformance_timers;
    auto const& averages = ::Game::serverSideEntityPerformance_avg_time;
    std::unordered_map<Id, double> previous; // blended from 0
    ServerSideEntity::ForEach([&previous, &child](Ptr entity) { if (entity != child) previous[entity->GetID()] = 0.0; });
    for (int tick = 0; tick < 2; ++tick) {
        hookLog.calls.clear();
        ::Game::ServerUpdate(dt, 1);
        ExpectStagesInOrder(5);
        EXPECT_EQ(timers.size(), previous.size());
        EXPECT_EQ(averages.size(), previous.size());
        for (auto& [vehicle, average] : previous) {
            ASSERT_EQ(timers.count(vehicle), 1u);
            EXPECT_GE(timers.at(vehicle), 0.0);
            EXPECT_DOUBLE_EQ(averages.at(vehicle), (1.0 - dt) * average + dt * timers.at(vehicle));
            average = averages.at(vehicle);
        }
    }
}

// ---------------------------------------------------------------------------
// Loading and unloading a world

using ServerSideEntityWorld = SseTest;

TEST_F(ServerSideEntityWorld, OnlyPlacedEntitiesOfLoadedModulesComeBackWithTheirStateAndDestroyingRemovesTheFiles)
{
    std::vector<std::pair<Id, Bytes>> saved;
    std::vector<Motion> placed;
    for (int i = 0; i < 3; ++i) {
        Ptr const entity = ServerSideEntity::Spawn(TestModule, "probe");
        EXPECT_EQ(entity->worldReferences.load(), 1u);
        placed.push_back(Place(*entity, {{1.5 * i, -2.0, 1e6 + i}, Rotation(20.0 + 30.0 * i, {1.0, -1.0, 0.5 * i}), {}, {}}));
        Bytes& payload = InterfaceOf<ProbeInterface>(entity).payload;
        payload = {'s', static_cast<unsigned char>('0' + i), 0, '!'};
        saved.emplace_back(entity->GetID(), payload);
    }
    Ptr first = ServerSideEntity::Get(saved[0].first), loose = MakeReady("probe"); // loose: worldReferences 0
    Ptr component = ServerSideEntity::Spawn(TestModule, "probe");
    component->isComponent = true;
    component->parentEntity = first->GetID();
    first->SerializeCheckpoint();
    Ptr absent = ServerSideEntity::Create(Absent, "ghost", NextId());
    absent->Serialize();
    std::string const absentFile = absent->GetStateSaveFile(), looseFile = loose->GetStateSaveFile();
    std::string const componentFile = component->GetStateSaveFile(), state = first->GetStateSaveFile(), checkpoint = first->GetCheckpointSaveFile();
    Id const absentId = absent->GetID();
    Unload(absent); // with the flag cleared its file stays
    first.reset(), loose.reset(), component.reset();
    std::string const before = ReadText(absentFile);
    ASSERT_FALSE(before.empty());
    for (int round = 0; round < 2; ++round) { // a second round keeps them as well
        ServerSideEntity::UnloadAllEntities();
        EXPECT_EQ(ServerSideEntity::Count(), 0u);
        EXPECT_TRUE(ServerSideEntity::_module_entities[TestModule.String()].empty());
        EXPECT_TRUE(fs::exists(state) && fs::exists(checkpoint)) << "unloading keeps the files";
        EXPECT_FALSE(fs::exists(looseFile) || fs::exists(componentFile));
        EXPECT_EQ(ReadText(absentFile), before) << "the absent module's entity stays on disk untouched";
        ServerSideEntity::LoadAllEntities();
        EXPECT_EQ(ServerSideEntity::Count(), saved.size());
        EXPECT_EQ(ServerSideEntity::_module_entities[TestModule.String()].size(), saved.size());
        EXPECT_FALSE(ServerSideEntity::Get(absentId));
        for (size_t i = 0; i < saved.size(); ++i) {
            SCOPED_TRACE(i);
            Ptr const entity = ServerSideEntity::Get(saved[i].first);
            ASSERT_TRUE(entity);
            EXPECT_EQ(entity->position, placed[i].position);
            EXPECT_EQ(entity->orientation, placed[i].orientation);
            EXPECT_EQ(entity->itemType, "probe");
            auto const& object = InterfaceOf<ProbeInterface>(entity);
            EXPECT_TRUE(entity->worldReferences.load() == 1u && object.isReady && object.loadCalls == 1 && object.entity.lock() == entity);
            EXPECT_EQ(object.payload, saved[i].second);
        }
    }
    // Destroying a loaded entity (a dismantled one) takes its files away.
    ASSERT_TRUE(ServerSideEntity::Destroy(saved[0].first));
    EXPECT_FALSE(fs::exists(state) || fs::exists(checkpoint));
}

TEST_F(ServerSideEntityWorld, FolderContentsThatAreNoEntities)
{
    EXPECT_NO_THROW(ServerSideEntity::LoadAllEntities()) << "no folder";
    EXPECT_EQ(ServerSideEntity::Count(), 0u);
    Id const id = ServerSideEntity::Spawn(TestModule, "probe")->GetID();
    ServerSideEntity::UnloadAllEntities();
    std::string const folder = world + "/entities/";
    WriteText(folder + ".entitystate", "not an entity");
    WriteText(folder + "abc.txt", "not an entity either");
    fs::create_directories(folder + "ABCD0123456789ABCDEF01234567.entitystate"); // a folder, not a file
    testing::internal::CaptureStderr();
    EXPECT_NO_THROW(ServerSideEntity::LoadAllEntities());
    EXPECT_NE(testing::internal::GetCapturedStderr().find("WARNING: skipped a state file without an entity id"), std::string::npos);
    EXPECT_EQ(ServerSideEntity::Count(), 1u);
    EXPECT_TRUE(ServerSideEntity::Get(id));
    EXPECT_TRUE(fs::exists(folder + ".entitystate"));
    // A stem of the wrong length stops the load.
    ServerSideEntity::UnloadAllEntities();
    WriteText(folder + "abc.entitystate", "whatever");
    try {
        ServerSideEntity::LoadAllEntities();
        FAIL() << "expected an exception";
    } catch (std::runtime_error const& error) {
        EXPECT_STREQ(error.what(), "UniqueId string length should be 28");
    }
}

// ---------------------------------------------------------------------------
// State and checkpoint files

using EntityFileTest = SseTest;

/// Offset of the field after itemType "probe" in a state file.
size_t const Base = 36 + 8 + 5;

/// A registered entity of type with every saved field set to a distinct value.
Ptr MakeSaved(std::string const& type = "probe")
{
    Ptr entity = ServerSideEntity::Create(TestModule, type, NextId());
    entity->environmentId = 0x1122334455667788ull, entity->orbitEnvironmentId = 42;
    entity->parentEntity = Id(0x0102030405060708ull, 0x1112131415161718ull);
    Place(*entity, {{1.5, -2.25, 3.125}, glm::dquat(0.1, 0.2, 0.3, 0.4), {4.0, 5.0, 6.0}, {-7.0, -8.0, -9.0}});
    entity->isDynamic = true, entity->boundingRadius = 12.5;
    return entity;
}

/// An unregistered entity that only reads files.
std::unique_ptr<ServerSideEntity> Reader(Id const& id)
{
    auto reader = std::make_unique<ServerSideEntity>(Absent, "ghost", id);
    reader->deleteFilesOnDestroy = false;
    return reader;
}

ByteBuilder& Vec(ByteBuilder& b, glm::dvec3 const& v) { return b.Raws(v.x, v.y, v.z); }
ByteBuilder& Quat(ByteBuilder& b, glm::dquat const& q) { return b.Raws(q.w, q.x, q.y, q.z); }
ByteBuilder& IdBytes(ByteBuilder& b, Id const& id) { return b.Raws(id.first, id.second); }

/// The state file bytes of an entity, built by hand.
Bytes ExpectedState(ServerSideEntity const& e, uint8_t atRest, Bytes const& blob)
{
    ByteBuilder b;
    b.Chars("TESSARA!ENTITY !", 16).Raws(uint32_t{1}, e.moduleId.vendor, e.moduleId.name);
    b.Block(Bytes(e.itemType.begin(), e.itemType.end())).Raws(e.environmentId, e.orbitEnvironmentId);
    Quat(Vec(IdBytes(b, e.parentEntity), e.position), e.orientation).Raw(uint8_t(e.isDynamic ? 1 : 0));
    Vec(Vec(b, e.linearVelocity), e.angularVelocity).Raw(e.boundingRadius);
    return b.Raw(atRest).Chars("\n\n\n\n", 4).Block(blob).Chars("\nEOF", 4).bytes;
}

Bytes ExpectedCheckpoint(ServerSideEntity const& e)
{
    ByteBuilder b;
    Quat(Vec(IdBytes(b.Chars("CHECKPNT", 8).Raw(uint32_t{0}), e.GetID()), e.position), e.orientation);
    IdBytes(Vec(Vec(b, e.linearVelocity), e.angularVelocity), e.parentEntity);
    return b.Raws(e.environmentId, e.orbitEnvironmentId, uint8_t(e.isDynamic ? 1 : 0)).Block(CheckpointBlob).bytes;
}

/// Every field a state file holds is the same in both.
void ExpectSameSavedFields(ServerSideEntity const& loaded, ServerSideEntity const& saved) { EXPECT_EQ(ExpectedState(loaded, 0, {}), ExpectedState(saved, 0, {})); }

struct Variant { std::string name; long index; Bytes bytes; }; // index -1: a variant of its own

/// What reading gives for some variants of a good file, every cut of it and every byte of it
/// changed: one line per run of neighbours with the same outcome. Each variant must stay on disk as it was.
std::string DamageReport(Bytes const& good, std::string const& path, std::vector<Variant> variants, std::function<std::string()> const& read)
{
    for (size_t n = 0; n < good.size(); ++n) variants.push_back({"cut at", long(n), Bytes(good.begin(), good.begin() + long(n))});
    for (size_t n = 0; n < good.size(); ++n) {
        variants.push_back({"byte changed", long(n), good});
        variants.back().bytes[n] ^= 0x40;
    }
    std::vector<std::string> outcomes;
    for (Variant const& v : variants) {
        WriteBytes(path, v.bytes);
        outcomes.push_back(read());
        EXPECT_EQ(ReadBytes(path), v.bytes) << v.name << " " << v.index << ": the file stays as it was";
    }
    std::string report;
    for (size_t i = 0, j = 0; i < variants.size(); i = ++j) {
        while (variants[i].index >= 0 && j + 1 < variants.size() && variants[j + 1].name == variants[i].name && outcomes[j + 1] == outcomes[i])
            ++j;
        report += variants[i].name;
        if (variants[i].index >= 0)
            report += " " + std::to_string(variants[i].index) + (j > i ? "-" + std::to_string(variants[j].index) : "");
        report += ": " + outcomes[i] + "\n";
    }
    return report;
}

TEST_F(EntityFileTest, StateFileMatchesTheLayoutByteForByteAndReplacesTheOldFileOnlyOnceComplete)
{
    Ptr entity = MakeSaved();
    std::string const path = entity->GetStateSaveFile();
    entity->Serialize();
    Bytes const old = ReadBytes(path);
    // A folder where the temporary file would go makes the write fail, for root as well.
    fs::create_directory(path + ".tmp");
    WriteText(path + ".tmp/keep", "x");
    entity->position = glm::dvec3(100.0, 200.0, 300.0);
    EXPECT_THROW(entity->Serialize(), std::runtime_error);
    EXPECT_EQ(ReadBytes(path), old);
    fs::remove_all(path + ".tmp");
    entity->Serialize();
    EXPECT_EQ(std::distance(fs::directory_iterator(fs::path(path).parent_path()), fs::directory_iterator()), 1) << "no temporary file is left";
    Bytes const file = ReadBytes(path);
    EXPECT_EQ(file, ExpectedState(*entity, 0, SavedBlob));
    // Spot checks at fixed offsets, so that a mistake in the expectation cannot hide one in the writer.
    ASSERT_EQ(file.size(), Base + 158 + SavedBlob.size() + 4);
    EXPECT_EQ(At<double>(file, Base + 56), 0.1) << "orientation starts with w";
    EXPECT_EQ(At<uint64_t>(file, Base + 150), SavedBlob.size());
    // The at-rest flag: static, or dynamic and resting for a second or more.
    struct Case { bool dynamic; double restTime; uint8_t flag; };
    for (Case const c : {Case{false, 0.0, 1}, Case{false, 3.0, 1}, Case{true, 0.0, 0}, Case{true, 0.999, 0}, Case{true, 1.0, 1}, Case{true, 2.0, 1}}) {
        entity->isDynamic = c.dynamic, entity->restTime = c.restTime;
        WriteOnlyStream out;
        entity->WriteState(out);
        EXPECT_EQ(BytesOf(out), ExpectedState(*entity, c.flag, SavedBlob)) << "dynamic " << c.dynamic << " rest " << c.restTime;
    }
    auto const ghost = Reader(NextId());
    WriteOnlyStream out;
    ghost->WriteState(out);
    EXPECT_EQ(BytesOf(out), ExpectedState(*ghost, 1, {})) << "without an interface the blob is empty";
}

TEST_F(EntityFileTest, StateRoundTripRestoresFieldsBlobAndRestStateButRecomputesTheRadius)
{
    Ptr saved = MakeSaved("probearm");
    Id const id = saved->GetID();
    saved->Serialize();
    std::string const path = saved->GetStateSaveFile();
    Bytes const file = ReadBytes(path);
    auto const reader = Reader(id);
    ReadOnlyStream blob = reader->Deserialize();
    ExpectSameSavedFields(*reader, *saved);
    EXPECT_EQ(reader->restTime, 0.0);
    EXPECT_EQ(BytesOf(blob), SavedBlob);
    // An at-rest flag (any non-zero byte) reads back as at rest since before the load.
    for (uint8_t const flag : {1, 0x7F}) {
        Bytes resting = file;
        Put<uint8_t>(resting, Base + 3 + 145, flag); // "probearm" is three letters longer than "probe"
        WriteBytes(path, resting);
        reader->restTime = 0.25;
        reader->Deserialize();
        EXPECT_EQ(reader->restTime, 2.0) << int(flag);
    }
    WriteBytes(path, file);
    // The load path: a new entity from the file, its interface fed the blob.
    Unload(saved);
    Ptr const check = MakeSaved("probearm");
    ASSERT_TRUE(ServerSideEntity::Interface::Create(id));
    Ptr const entity = ServerSideEntity::Get(id);
    ASSERT_TRUE(entity);
    EXPECT_NEAR(entity->boundingRadius, 1.35, 1e-6) << "the description's box wins over the saved radius";
    check->boundingRadius = entity->boundingRadius;
    ExpectSameSavedFields(*entity, *check);
    EXPECT_EQ(InterfaceOf<ProbeInterface>(entity).loadCalls, 1);
    EXPECT_EQ(InterfaceOf<ProbeInterface>(entity).payload, SavedBlob);
    EXPECT_EQ(ReadBytes(path), file) << "loading leaves the file as it was";
}

TEST_F(EntityFileTest, DamagedAndCutStateFilesFailWithTheirTextAndChangeNothing)
{
    Ptr entity = MakeSaved();
    Id const id = entity->GetID();
    std::string const path = entity->GetStateSaveFile(), name = static_cast<std::string>(id);
    auto const reader = Reader(id);
    auto read = [&reader, &name]() -> std::string {
        reader->itemType = "ghost";
        try {
            return "loads with a blob of " + std::to_string(BytesOf(reader->Deserialize()).size()) + " bytes";
        } catch (std::runtime_error const& error) {
            EXPECT_EQ(reader->itemType, "ghost") << "a failed read changes nothing";
            std::string text = error.what();
            size_t const at = text.find(name);
            return at == std::string::npos ? text : text.replace(at, name.size(), "<id>");
        }
    };
    EXPECT_EQ(read(), "Save state file does not exist for entity <id>");
    entity->Serialize();
    Bytes const good = ReadBytes(path);
    auto length = [&good](size_t offset, uint64_t value) {
        Bytes bytes = good;
        Put(bytes, offset, value);
        return bytes;
    };
    // The end marker is never read: the blob may take its bytes, but not one more.
    size_t const blobRoom = good.size() - Base - 158;
    std::vector<Variant> const lengths = {{"blob length over the end marker", -1, length(Base + 150, blobRoom)},
                                          {"blob length one past the end", -1, length(Base + 150, blobRoom + 1)},
                                          {"blob length 2^64-1", -1, length(Base + 150, ~uint64_t(0))},
                                          {"item type length of the whole file", -1, length(36, good.size())}};
    ExpectGolden(DamageReport(good, path, lengths, read), "entity/damaged_state_file.txt");
    // A damaged file stops loading the world and stays on disk.
    Bytes const damaged = length(16, 9);
    WriteBytes(path, damaged);
    Unload(entity);
    EXPECT_THROW(ServerSideEntity::LoadAllEntities(), std::runtime_error);
    EXPECT_FALSE(ServerSideEntity::Get(id));
    EXPECT_EQ(ReadBytes(path), damaged);
}

/// Changes every field a checkpoint holds.
void Scramble(ServerSideEntity& entity)
{
    Place(entity, {glm::dvec3(-1.0), glm::dquat(1.0, 0.0, 0.0, 0.0), {}, {}});
    entity.parentEntity = Id(), entity.environmentId = entity.orbitEnvironmentId = 0, entity.isDynamic = false;
}

std::string DeserializeCheckpointOutput(ServerSideEntity& entity)
{
    testing::internal::CaptureStderr();
    entity.DeserializeCheckpoint();
    return testing::internal::GetCapturedStderr();
}

TEST_F(EntityFileTest, CheckpointMatchesTheLayoutAndReadsBack)
{
    // DeserializeState overridden in a base class of the module's class is still called.
    Ptr const entity = MakeSaved("derived"), copy = MakeSaved("derived");
    for (Ptr const& e : {entity, copy})
        e->parentEntity = Id(), e->isDynamic = false; // no parent, so the parent walk keeps the environments
    entity->restTime = 1.5;
    entity->SerializeCheckpoint();
    EXPECT_EQ(entity->GetCheckpointSaveFile(), ServerSideEntity::GetCheckpointDir() + "/" + static_cast<std::string>(entity->GetID()) + ".checkpoint");
    Bytes const file = ReadBytes(entity->GetCheckpointSaveFile());
    EXPECT_EQ(file, ExpectedCheckpoint(*entity));
    ASSERT_EQ(file.size(), 173u + CheckpointBlob.size()) << "no end marker";
    EXPECT_EQ(At<double>(file, 52), 0.1) << "orientation starts with w";
    EXPECT_EQ(At<uint64_t>(file, 148), 0x1122334455667788ull);

    Scramble(*entity);
    entity->isDynamic = true;
    EXPECT_EQ(DeserializeCheckpointOutput(*entity), "");
    ExpectSameSavedFields(*entity, *copy);
    EXPECT_EQ(entity->restTime, 1.5) << "a static entity keeps its restTime";
    EXPECT_EQ(hookLog.deserializeCalls, 1);
    EXPECT_EQ(hookLog.deserialized, CheckpointBlob);
    // The default DeserializeState is skipped; the rest of the checkpoint is still read.
    Ptr const plain = MakeSaved("plain");
    plain->SerializeCheckpoint();
    plain->position = glm::dvec3(0.0);
    EXPECT_EQ(DeserializeCheckpointOutput(*plain), "");
    EXPECT_EQ(plain->position, glm::dvec3(1.5, -2.25, 3.125));
    EXPECT_EQ(hookLog.deserializeCalls, 1);
    // A dynamic one wakes.
    entity->isDynamic = true;
    entity->SerializeCheckpoint();
    entity->restTime = 2.0, entity->isDynamic = false;
    entity->DeserializeCheckpoint();
    EXPECT_TRUE(entity->isDynamic && entity->restTime == 0.0);
    // Reading runs the parent walk: the parent's environment wins over the file's.
    Ptr const parent = MakeSaved();
    parent->environmentId = 900, entity->parentEntity = parent->GetID();
    entity->SerializeCheckpoint();
    entity->settled = true;
    entity->DeserializeCheckpoint();
    EXPECT_EQ(entity->parentEntity, parent->GetID());
    EXPECT_EQ(entity->environmentId, 900u);
    EXPECT_TRUE(entity->parentMoving && !entity->settled);
}

TEST_F(EntityFileTest, RejectedCheckpointChangesNothingAndPrintsOneLine)
{
    Ptr const entity = MakeSaved(), other = MakeSaved();
    std::string const path = entity->GetCheckpointSaveFile();
    EXPECT_EQ(DeserializeCheckpointOutput(*entity).rfind("Checkpoint file could not be read: ", 0), 0u);
    other->SerializeCheckpoint();
    entity->SerializeCheckpoint();
    auto read = [&entity]() -> std::string {
        Scramble(*entity);
        entity->isDynamic = true, entity->restTime = 2.0, entity->environmentId = 5;
        hookLog = Log();
        std::string const output = DeserializeCheckpointOutput(*entity);
        if (output.empty()) return "reads";
        EXPECT_EQ(entity->position, glm::dvec3(-1.0));
        EXPECT_EQ(entity->parentEntity, Id());
        EXPECT_EQ(entity->environmentId, 5u);
        EXPECT_TRUE(entity->isDynamic);
        EXPECT_EQ(entity->restTime, 2.0);
        EXPECT_EQ(hookLog.deserializeCalls, 0);
        return output.substr(0, output.size() - 1);
    };
    std::vector<Variant> const foreign = {{"another entity's checkpoint", -1, ReadBytes(other->GetCheckpointSaveFile())}};
    ExpectGolden(DamageReport(ReadBytes(path), path, foreign, read), "entity/damaged_checkpoint.txt");
}

// Module binaries call the interface's operations by their place in the virtual table,
// so the places are part of the module interface.
#if defined(__GXX_ABI_VERSION) && defined(__x86_64__)
/// A pointer to a virtual member function holds 1 + the byte offset of its slot.
template <class MemberFunction>
size_t Slot(MemberFunction function)
{
    struct { uintptr_t pointer; ptrdiff_t adjustment; } representation;
    static_assert(sizeof(function) == sizeof(representation));
    std::memcpy(&representation, &function, sizeof(representation));
    EXPECT_EQ(representation.pointer % 2, 1u) << "not a virtual function";
    return (representation.pointer - 1) / sizeof(void*);
}

TEST(ServerSideEntityInterfaceLayout, OperationsSitInTheirSlots)
{
    using I = game::entity::ServerSideEntityInterface;
    std::vector<size_t> const slots = {Slot(&I::IsInsideVolume), Slot(&I::SaveState), Slot(&I::LoadState), Slot(&I::SerializeState),
                                       Slot(&I::DeserializeState), Slot(&I::ModuleSlot7), Slot(&I::ModuleSlot17), Slot(&I::InitInterface),
                                       Slot(&I::BeforeUpdate), Slot(&I::Update), Slot(&I::AfterUpdate)};
    EXPECT_EQ(slots, (std::vector<size_t>{2, 3, 4, 5, 6, 7, 17, 18, 19, 20, 21}));
}
#endif

} // namespace
