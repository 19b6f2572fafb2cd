// Server entities: construction from the type registry, the parent-child
// relation, lookups along the tree, the hook runner, the parent cache, the
// entity stages of a server tick and loading and unloading a world.
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include <glm/glm.hpp>
#include <glm/gtc/matrix_transform.hpp>
#include <glm/gtc/quaternion.hpp>

#include "game/Game.hpp"
#include "game/entity/EntityConfig.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "nerox/filesystem/Stream.hpp"
#include "nerox/modular/ModuleID.hpp"

using game::entity::BaseEntity;
using game::entity::EntityConfig;
using game::entity::Id;
using game::entity::ServerSideEntity;
using nerox::filesystem::ReadOnlyStream;
using nerox::filesystem::WriteOnlyStream;
using nerox::modular::ModuleID;

namespace fs = std::filesystem;

namespace {

// ---------------------------------------------------------------------------
// Helpers

ModuleID const SseModule("TEST_sseentities");

std::string DataPath(std::string const& name)
{
    return std::string(TESSARA_TEST_SOURCE_DIR) + "/game/entity/data/" + name;
}

void ExpectVec3(glm::dvec3 const& actual, glm::dvec3 const& expected, double tolerance = 1e-9)
{
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(actual[i], expected[i], tolerance) << "component " << i;
}

void ExpectMat4(glm::dmat4 const& actual, glm::dmat4 const& expected, double tolerance = 1e-9)
{
    for (int column = 0; column < 4; ++column)
        for (int row = 0; row < 4; ++row)
            EXPECT_NEAR(actual[column][row], expected[column][row], tolerance)
                << "element [" << column << "][" << row << "]";
}

glm::dquat Rotation(double degrees, glm::dvec3 const& axis)
{
    return glm::angleAxis(glm::radians(degrees), glm::normalize(axis));
}

std::string FileBytes(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

/// Calls of the hooks, in order, over all counting interfaces.
struct HookLog {
    std::vector<std::pair<char, Id>> calls; // 'B', 'U', 'A' with the entity
    int initCalls = 0;
};
HookLog hookLog;

/// Overrides every hook and logs each call.
class CountingInterface : public ServerSideEntity::Interface {
public:
    void InitInterface() override { ++hookLog.initCalls; }
    void BeforeUpdate(double) override
    {
        ++before;
        hookLog.calls.emplace_back('B', id);
    }
    void Update(double) override
    {
        ++update;
        hookLog.calls.emplace_back('U', id);
    }
    void AfterUpdate(double) override
    {
        ++after;
        hookLog.calls.emplace_back('A', id);
    }
    int before = 0;
    int update = 0;
    int after = 0;
};

/// Inherits the hooks of CountingInterface without naming them again.
class DerivedCountingInterface : public CountingInterface {};

/// Overrides Update only.
class UpdateOnlyInterface : public ServerSideEntity::Interface {
public:
    void Update(double) override { ++update; }
    int update = 0;
};

/// No hooks at all.
class PlainInterface : public ServerSideEntity::Interface {};

/// Bends the arm's elbow from its Update hook.
class BendingInterface : public ServerSideEntity::Interface {
public:
    void Update(double) override
    {
        if (auto const owner = entity.lock()) {
            owner->jointStates.at("elbow").rotation.x = 30.0f;
            owner->nodesDirty = true;
        }
    }
};

/// Keeps a text through the state file and notes what the entity looked like in AfterUpdate.
class PayloadInterface : public ServerSideEntity::Interface {
public:
    void SaveState(WriteOnlyStream& stream) override { stream.Write(payload); }
    void LoadState(ReadOnlyStream& stream) override
    {
        ++loadCalls;
        if (stream.Remaining() != 0)
            stream.Read(payload);
    }
    void Update(double) override
    {
        if (auto const owner = entity.lock(); owner && environmentToSet != 0)
            owner->environmentId = environmentToSet;
    }
    void AfterUpdate(double) override
    {
        if (auto const owner = entity.lock())
            environmentInAfterUpdate = owner->environmentId;
    }
    std::string payload;
    game::entity::EnvironmentId environmentToSet = 0;
    int loadCalls = 0;
    game::entity::EnvironmentId environmentInAfterUpdate = 0;
};

template <class T>
T& InterfaceOf(ServerSideEntity::Ptr const& entity)
{
    auto* object = dynamic_cast<T*>(entity->GetInterface().get());
    if (object == nullptr)
        throw std::logic_error("entity has no interface of the expected class");
    return *object;
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
        hookLog = HookLog();
        Register<CountingInterface>("counting");
        Register<DerivedCountingInterface>("derived");
        Register<UpdateOnlyInterface>("updateonly");
        Register<PlainInterface>("plain");
        Register<PayloadInterface>("payload");
        Register<BendingInterface>("bending", std::make_shared<EntityConfig>(DataPath("arm.txt")));
        Register<PlainInterface>("arm", std::make_shared<EntityConfig>(DataPath("arm.txt")));
    }

    void TearDown() override
    {
        ServerSideEntity::DestroyAll();
        ServerSideEntity::_registered_interfaces.erase(SseModule.String());
        ServerSideEntity::_module_entities.erase(SseModule.String());
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
        auto& row = ServerSideEntity::_registered_interfaces[SseModule.String()][type];
        row.moduleId = SseModule;
        row.itemType = type;
        row.config = std::move(config);
        row.configLoaded = false;
        row.factory = [] { return std::make_shared<T>(); };
    }

    /// A registered entity, created but not attached.
    static ServerSideEntity::Ptr Make(std::string const& type = "plain", Id id = Id::Generate())
    {
        return ServerSideEntity::Create(SseModule, type, id);
    }

    /// A registered entity with its interface attached and ready.
    static ServerSideEntity::Ptr MakeReady(std::string const& type)
    {
        ServerSideEntity::Ptr entity = Make(type);
        ReadOnlyStream noState;
        entity->Attach(noState);
        return entity;
    }

    std::string world;
};

// ---------------------------------------------------------------------------
// Construction

using ServerSideEntityConstruction = SseTest;

TEST_F(ServerSideEntityConstruction, SetIdIsKeptAndUnsetIdIsGeneratedWithTheEntityTag)
{
    Id const chosen = Id::Generate();
    EXPECT_EQ(Make("plain", chosen)->GetID(), chosen);

    ServerSideEntity::Ptr const generated = Make("plain", Id());
    EXPECT_TRUE(generated->GetID().IsSet());
    EXPECT_EQ(generated->GetID().Tag(), "ENTT");

    // One zero word makes the id unset: a new one is generated instead.
    Id const halfSet(game::UniqueId(0x1234, 0));
    ServerSideEntity::Ptr const replaced = Make("plain", halfSet);
    EXPECT_TRUE(replaced->GetID().IsSet());
    EXPECT_NE(replaced->GetID(), halfSet);
    EXPECT_NE(replaced->GetID(), generated->GetID());
    EXPECT_EQ(replaced->moduleId, SseModule);
    EXPECT_EQ(replaced->itemType, "plain");
}

TEST_F(ServerSideEntityConstruction, UnknownModuleOrTypeGivesABareEntity)
{
    ServerSideEntity::Ptr const noModule = ServerSideEntity::Create(ModuleID("NOBODY_absent"), "arm", Id::Generate());
    ServerSideEntity::Ptr const noType = Make("notregistered");
    for (ServerSideEntity::Ptr const& entity : {noModule, noType}) {
        SCOPED_TRACE(entity->itemType);
        EXPECT_FALSE(entity->GetInterface());
        EXPECT_FALSE(entity->config);
        EXPECT_TRUE(entity->colliders.empty());
        EXPECT_TRUE(entity->nodeTransforms.empty());
        EXPECT_TRUE(entity->jointStates.empty());
        EXPECT_EQ(entity->mass, 0.0);
    }
    EXPECT_EQ(noModule->itemType, "arm");
    EXPECT_EQ(noModule->moduleId, ModuleID("NOBODY_absent"));
}

TEST_F(ServerSideEntityConstruction, RegisteredTypeGetsInterfaceConfigAndTaggedColliders)
{
    auto& row = ServerSideEntity::_registered_interfaces[SseModule.String()]["arm"];
    ASSERT_FALSE(row.configLoaded);
    ServerSideEntity::Ptr const entity = Make("arm");

    ASSERT_TRUE(entity->GetInterface());
    EXPECT_NE(dynamic_cast<PlainInterface*>(entity->GetInterface().get()), nullptr);
    EXPECT_FALSE(entity->GetInterface()->isReady); // attached only later
    EXPECT_TRUE(row.configLoaded);
    EXPECT_EQ(entity->config, row.config);
    EXPECT_EQ(entity->mass, 42.0);

    std::set<std::string> names;
    for (auto const& [name, collider] : entity->colliders) {
        names.insert(name);
        EXPECT_EQ(collider.entity, entity->GetID()) << name;
        EXPECT_EQ(collider.name, name);
    }
    EXPECT_EQ(names, (std::set<std::string>{"base", "upper", "fore"}));
    EXPECT_EQ(entity->nodeTransforms.count("tip"), 1u);
    EXPECT_EQ(entity->jointStates.count("elbow"), 1u);

    // A second entity of the type shares the description and tags its own colliders.
    ServerSideEntity::Ptr const second = Make("arm");
    EXPECT_EQ(second->config, entity->config);
    EXPECT_EQ(second->colliders.at("fore").entity, second->GetID());
}

TEST_F(ServerSideEntityConstruction, AttachLinksTheInterfaceOnceAndListsIt)
{
    ServerSideEntity::Ptr const entity = Make("counting");
    ReadOnlyStream noState;
    entity->Attach(noState);
    entity->Attach(noState);

    auto const& object = InterfaceOf<CountingInterface>(entity);
    EXPECT_TRUE(object.isReady);
    EXPECT_EQ(object.entity.lock(), entity);
    EXPECT_EQ(object.self.lock(), entity->GetInterface());
    EXPECT_EQ(object.id, entity->GetID());
    EXPECT_EQ(hookLog.initCalls, 1);
    ASSERT_EQ(ServerSideEntity::_module_entities[SseModule.String()].size(), 1u);
    EXPECT_EQ(ServerSideEntity::_module_entities[SseModule.String()][0].lock(), entity->GetInterface());
}

// ---------------------------------------------------------------------------
// Parent and child

using ServerSideEntityHierarchy = SseTest;

struct Motion {
    glm::dmat4 transform;
    glm::dvec3 linear;
    glm::dvec3 angular;
};

Motion MotionOf(ServerSideEntity const& entity)
{
    return {entity.GetTransform(), entity.linearVelocity, entity.angularVelocity};
}

void Place(ServerSideEntity& entity, glm::dvec3 position, glm::dquat orientation, glm::dvec3 linear,
           glm::dvec3 angular)
{
    entity.position = position;
    entity.orientation = orientation;
    entity.linearVelocity = linear;
    entity.angularVelocity = angular;
}

void ExpectMotion(ServerSideEntity const& entity, Motion const& expected)
{
    ExpectMat4(entity.GetTransform(), expected.transform);
    ExpectVec3(entity.linearVelocity, expected.linear);
    ExpectVec3(entity.angularVelocity, expected.angular);
}

TEST_F(ServerSideEntityHierarchy, AddChildKeepsTheWorldPlaceAndRemoveChildRestoresIt)
{
    ServerSideEntity::Ptr parent = Make();
    ServerSideEntity::Ptr child = Make();
    glm::dquat const parentTurn = Rotation(37.0, {1.0, 2.0, -0.5});
    Place(*parent, {10.0, -4.0, 2.5}, parentTurn, {1.0, 2.0, 3.0}, {0.3, -0.2, 0.1});
    Place(*child, {12.0, -1.0, 4.0}, Rotation(-115.0, {0.2, -1.0, 0.7}), {-4.0, 0.5, 7.0}, {2.0, 1.0, -3.0});
    Motion const world = MotionOf(*child);

    parent->AddChild(child);
    EXPECT_EQ(child->parentEntity, parent->GetID());
    ExpectMat4(parent->GetTransform() * child->GetTransform(), world.transform);
    // Velocities are turned into the parent's axes, the parent's own linear velocity taken off.
    glm::dquat const inverse = glm::inverse(parentTurn);
    ExpectVec3(child->linearVelocity, inverse * (world.linear - parent->linearVelocity));
    ExpectVec3(child->angularVelocity, inverse * world.angular);
    EXPECT_NEAR(glm::length(child->orientation), 1.0, 1e-12);

    parent->RemoveChild(child);
    EXPECT_FALSE(child->parentEntity.IsSet());
    ExpectMotion(*child, world);
}

TEST_F(ServerSideEntityHierarchy, HalfTurnRotationsSurviveTheRoundTrip)
{
    // Rotations by 180 degrees take the quaternion conversion through its other branches.
    ServerSideEntity::Ptr parent = Make();
    for (glm::dvec3 const axis : {glm::dvec3(1, 0, 0), glm::dvec3(0, 1, 0), glm::dvec3(0, 0, 1)}) {
        ServerSideEntity::Ptr child = Make();
        Place(*parent, {1.0, 2.0, 3.0}, Rotation(10.0, {0.0, 1.0, 1.0}), {0.5, 0.0, -1.0}, {0.0, 1.0, 0.0});
        Place(*child, {-3.0, 5.0, 0.5}, Rotation(180.0, axis) * Rotation(10.0, {0.0, 1.0, 1.0}), {1.0, 1.0, 1.0},
              {0.0, 0.0, 2.0});
        Motion const world = MotionOf(*child);
        parent->AddChild(child);
        ExpectMat4(parent->GetTransform() * child->GetTransform(), world.transform);
        parent->RemoveChild(child);
        ExpectMotion(*child, world);
    }
}

TEST_F(ServerSideEntityHierarchy, RemovingAGrandchildLandsItOnTheGrandparent)
{
    ServerSideEntity::Ptr grandparent = Make();
    ServerSideEntity::Ptr parent = Make();
    ServerSideEntity::Ptr child = Make();
    Place(*grandparent, {-5.0, 1.0, 0.0}, Rotation(60.0, {0.0, 0.0, 1.0}), {3.0, 0.0, -1.0}, {0.0, 0.5, 0.0});
    Place(*parent, {-2.0, 3.0, 1.0}, Rotation(-25.0, {1.0, 1.0, 0.0}), {0.0, 4.0, 2.0}, {1.0, 0.0, 0.0});
    Place(*child, {0.0, 7.0, -2.0}, Rotation(140.0, {0.3, -0.4, 1.0}), {-1.0, -2.0, 5.0}, {0.0, -2.0, 1.5});
    Motion const world = MotionOf(*child);

    parent->AddChild(child);
    grandparent->AddChild(parent);
    parent->RemoveChild(child);

    EXPECT_EQ(child->parentEntity, grandparent->GetID());
    ExpectMat4(grandparent->GetTransform() * child->GetTransform(), world.transform);
    ExpectVec3(grandparent->orientation * child->linearVelocity + grandparent->linearVelocity, world.linear);
    ExpectVec3(grandparent->orientation * child->angularVelocity, world.angular);

    grandparent->RemoveChild(child);
    EXPECT_FALSE(child->parentEntity.IsSet());
    ExpectMotion(*child, world);
}

using ServerSideEntityDeathTest = SseTest;

TEST_F(ServerSideEntityDeathTest, RelationAssertsAbortWithTheirCondition)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ServerSideEntity::Ptr parent = Make();
    ServerSideEntity::Ptr other = Make();
    ServerSideEntity::Ptr child = Make();

    ServerSideEntity::Ptr adopted = Make();
    other->AddChild(adopted);
    EXPECT_DEATH(parent->AddChild(adopted), "ASSERTION FAILED: \\(!entity->parentEntity\\)");

    ServerSideEntity::Ptr component = Make();
    component->isComponent = true;
    EXPECT_DEATH(parent->AddChild(component), "ASSERTION FAILED: \\(!entity->isComponent\\)");
    EXPECT_DEATH(parent->AddChild(parent), "ASSERTION FAILED: \\(entity->GetID\\(\\) != GetID\\(\\)\\)");

    EXPECT_DEATH(parent->RemoveChild(child), "ASSERTION FAILED: \\(entity->parentEntity == GetID\\(\\)\\)");
    component->parentEntity = parent->GetID();
    EXPECT_DEATH(parent->RemoveChild(component), "ASSERTION FAILED: \\(!entity->isComponent\\)");
    // Each the parent of the other: the child would land on itself.
    child->parentEntity = parent->GetID();
    parent->parentEntity = child->GetID();
    EXPECT_DEATH(parent->RemoveChild(child), "ASSERTION FAILED: \\(entity->GetID\\(\\) != parentEntity\\)");
}

TEST_F(ServerSideEntityDeathTest, FactoryWithoutAnInterfaceAndEmptyBoxAbort)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ServerSideEntity::_registered_interfaces[SseModule.String()]["broken"].factory = [] {
        return std::shared_ptr<ServerSideEntity::Interface>();
    };
    EXPECT_DEATH(Make("broken"), "ASSERTION FAILED: \\(_interface\\)");

    ServerSideEntity::Ptr const entity = Make();
    entity->box_size = {1.0, 1.0, 1.0};
    EXPECT_DEATH(entity->GetInertiaTensorWorld(), "ASSERTION FAILED: \\(mass > 0.0\\)");
    entity->mass = 2.0;
    entity->box_size = {1.0, 0.0, 1.0};
    EXPECT_DEATH(entity->GetInertiaTensorWorld(), "ASSERTION FAILED: \\(box_size.y > 0.0\\)");
}

// ---------------------------------------------------------------------------
// Lookups along the tree

using ServerSideEntityLookup = SseTest;

TEST_F(ServerSideEntityLookup, FirstNonComponentParentWalksThroughComponents)
{
    ServerSideEntity::Ptr const body = Make();
    ServerSideEntity::Ptr const mount = Make();
    ServerSideEntity::Ptr const part = Make();
    ServerSideEntity::Ptr const rider = Make();
    mount->isComponent = true;
    mount->parentEntity = body->GetID();
    part->isComponent = true;
    part->parentEntity = mount->GetID();
    rider->parentEntity = body->GetID();

    EXPECT_EQ(part->GetFirstNonComponentParent(), body);
    EXPECT_EQ(mount->GetFirstNonComponentParent(), body);
    EXPECT_EQ(rider->GetFirstNonComponentParent(), body);
    EXPECT_FALSE(body->GetFirstNonComponentParent());

    // The chain ends in a missing entity before any non-component.
    ServerSideEntity::Ptr const orphan = Make();
    orphan->isComponent = true;
    orphan->parentEntity = Id::Generate();
    ServerSideEntity::Ptr const onOrphan = Make();
    onOrphan->parentEntity = orphan->GetID();
    EXPECT_FALSE(orphan->GetFirstNonComponentParent());
    EXPECT_FALSE(onOrphan->GetFirstNonComponentParent());
}

TEST_F(ServerSideEntityLookup, TransformInPhysicsParentMultipliesTheComponentChain)
{
    ServerSideEntity::Ptr const body = Make();
    ServerSideEntity::Ptr const arm = Make();
    ServerSideEntity::Ptr const hand = Make();
    body->position = {100.0, 50.0, -20.0};
    body->orientation = Rotation(33.0, {0.0, 1.0, 0.0});
    arm->isComponent = true;
    arm->parentEntity = body->GetID();
    arm->position = {1.0, 0.0, 0.5};
    arm->orientation = Rotation(90.0, {0.0, 0.0, 1.0});
    hand->isComponent = true;
    hand->parentEntity = arm->GetID();
    hand->position = {0.0, 2.0, 0.0};
    hand->orientation = Rotation(45.0, {1.0, 0.0, 0.0});

    ExpectMat4(hand->GetTransformInPhysicsParent(), arm->GetTransform() * hand->GetTransform());
    ExpectMat4(arm->GetTransformInPhysicsParent(), arm->GetTransform());
    ExpectMat4(body->GetTransformInPhysicsParent(), glm::dmat4(1.0));
    // The hand's origin: two along the arm's turned y axis, i.e. -2 in x, from the arm's place.
    ExpectVec3(glm::dvec3(hand->GetTransformInPhysicsParent()[3]), {-1.0, 0.0, 0.5});

    // Not a component, or a component whose parent is gone: identity.
    ServerSideEntity::Ptr const rider = Make();
    rider->parentEntity = body->GetID();
    rider->position = {5.0, 5.0, 5.0};
    ExpectMat4(rider->GetTransformInPhysicsParent(), glm::dmat4(1.0));
    ServerSideEntity::Ptr const loose = Make();
    loose->isComponent = true;
    loose->parentEntity = Id::Generate();
    loose->position = {5.0, 5.0, 5.0};
    ExpectMat4(loose->GetTransformInPhysicsParent(), glm::dmat4(1.0));
}

TEST_F(ServerSideEntityLookup, VehicleIdIsTheTopOfTheComponentChain)
{
    ServerSideEntity::Ptr body = Make();
    ServerSideEntity::Ptr const mount = Make();
    ServerSideEntity::Ptr const part = Make();
    ServerSideEntity::Ptr const rider = Make();
    mount->isComponent = true;
    mount->parentEntity = body->GetID();
    part->isComponent = true;
    part->parentEntity = mount->GetID();
    rider->parentEntity = body->GetID();

    EXPECT_EQ(body->GetVehicleID(), body->GetID());
    EXPECT_EQ(mount->GetVehicleID(), body->GetID());
    EXPECT_EQ(part->GetVehicleID(), body->GetID());
    EXPECT_EQ(rider->GetVehicleID(), rider->GetID()); // not a component: its own

    Id const bodyId = body->GetID();
    body.reset();
    ASSERT_TRUE(ServerSideEntity::Destroy(bodyId));
    EXPECT_EQ(mount->GetVehicleID(), mount->GetID());
    // The part asks its parent, which is now the top of what is left.
    EXPECT_EQ(part->GetVehicleID(), mount->GetID());
}

TEST_F(ServerSideEntityLookup, InertiaTensorOfARotatedBox)
{
    ServerSideEntity::Ptr const entity = Make();
    entity->mass = 12.0;
    entity->box_size = {2.0, 4.0, 6.0};
    // Box tensor diagonal: 52, 40, 20. Turned by 30 degrees about z.
    entity->orientation = Rotation(30.0, {0.0, 0.0, 1.0});
    glm::dmat3 const tensor = entity->GetInertiaTensorWorld();
    double const offDiagonal = 12.0 * std::sqrt(3.0) / 4.0;
    double const expected[3][3] = {{49.0, offDiagonal, 0.0}, {offDiagonal, 43.0, 0.0}, {0.0, 0.0, 20.0}};
    for (int column = 0; column < 3; ++column)
        for (int row = 0; row < 3; ++row)
            EXPECT_NEAR(tensor[column][row], expected[column][row], 1e-9) << column << "," << row;

    entity->orientation = glm::dquat(1.0, 0.0, 0.0, 0.0);
    glm::dmat3 const unturned = entity->GetInertiaTensorWorld();
    EXPECT_NEAR(unturned[0][0], 52.0, 1e-12);
    EXPECT_NEAR(unturned[1][1], 40.0, 1e-12);
    EXPECT_NEAR(unturned[2][2], 20.0, 1e-12);
}

// ---------------------------------------------------------------------------
// Hook runner

using ServerSideEntityHooks = SseTest;

TEST_F(ServerSideEntityHooks, NoHookRunsBeforeTheInterfaceIsReady)
{
    ServerSideEntity::Ptr const entity = Make("counting");
    entity->BeforeUpdate(0.1);
    entity->Update(0.1);
    entity->AfterUpdate(0.1);
    EXPECT_TRUE(hookLog.calls.empty());

    ReadOnlyStream noState;
    entity->Attach(noState);
    entity->BeforeUpdate(0.1);
    entity->Update(0.1);
    entity->AfterUpdate(0.1);
    auto const& object = InterfaceOf<CountingInterface>(entity);
    EXPECT_EQ(object.before, 1);
    EXPECT_EQ(object.update, 1);
    EXPECT_EQ(object.after, 1);

    entity->GetInterface()->isReady = false;
    entity->BeforeUpdate(0.1);
    entity->Update(0.1);
    entity->AfterUpdate(0.1);
    EXPECT_EQ(hookLog.calls.size(), 3u);
}

TEST_F(ServerSideEntityHooks, OverriddenHooksRunAlsoWhenInherited)
{
    for (std::string const type : {"counting", "derived"}) {
        SCOPED_TRACE(type);
        ServerSideEntity::Ptr const entity = MakeReady(type);
        for (int i = 0; i < 2; ++i) {
            entity->BeforeUpdate(0.1);
            entity->Update(0.1);
            entity->AfterUpdate(0.1);
        }
        auto const& object = InterfaceOf<CountingInterface>(entity);
        EXPECT_EQ(object.before, 2);
        EXPECT_EQ(object.update, 2);
        EXPECT_EQ(object.after, 2);
    }
}

TEST_F(ServerSideEntityHooks, InterfaceWithOnlyUpdateGetsOnlyUpdate)
{
    ServerSideEntity::Ptr const updateOnly = MakeReady("updateonly");
    ServerSideEntity::Ptr const plain = MakeReady("plain");
    for (ServerSideEntity::Ptr const& entity : {updateOnly, plain}) {
        entity->BeforeUpdate(0.1);
        entity->Update(0.1);
        entity->Update(0.1);
        entity->AfterUpdate(0.1);
    }
    EXPECT_EQ(InterfaceOf<UpdateOnlyInterface>(updateOnly).update, 2);
}

TEST_F(ServerSideEntityHooks, UpdateRunsTheJointSolverWhenNodesAreDirty)
{
    ServerSideEntity::Ptr const entity = MakeReady("arm");
    glm::dmat4 const rest = entity->colliders.at("fore").transform;

    // Not dirty: a changed joint value moves nothing yet.
    entity->jointStates.at("elbow").rotation.x = 30.0f;
    entity->Update(0.016);
    ExpectMat4(entity->colliders.at("fore").transform, rest, 0.0);
    ExpectMat4(entity->nodeTransforms.at("fore"), rest, 0.0);

    entity->nodesDirty = true;
    entity->Update(0.016);
    BaseEntity reference;
    reference.config = entity->config;
    reference.InitNodes();
    reference.jointStates.at("elbow").rotation.x = 30.0f;
    ASSERT_TRUE(entity->config->jointSolver(&reference));
    ExpectMat4(entity->nodeTransforms.at("fore"), reference.nodeTransforms.at("fore"), 1e-12);
    ExpectMat4(entity->colliders.at("fore").transform, reference.nodeTransforms.at("fore"), 1e-12);
    EXPECT_GT(std::abs(entity->colliders.at("fore").transform[3][1] - rest[3][1]), 0.05);
}

TEST_F(ServerSideEntityHooks, UpdateHookRunsBeforeTheJointSolver)
{
    // The hook bends the elbow and marks the nodes: the same Update moves the colliders.
    ServerSideEntity::Ptr const entity = MakeReady("bending");
    glm::dmat4 const rest = entity->colliders.at("fore").transform;
    entity->Update(0.016);
    EXPECT_GT(std::abs(entity->colliders.at("fore").transform[3][1] - rest[3][1]), 0.05);
    ExpectMat4(entity->colliders.at("fore").transform, entity->nodeTransforms.at("fore"), 0.0);
}

// ---------------------------------------------------------------------------
// Parent cache

using ServerSideEntityCache = SseTest;

TEST_F(ServerSideEntityCache, ChainOfThreeTakesTheRootsEnvironmentAndMotion)
{
    ServerSideEntity::Ptr const root = Make();
    ServerSideEntity::Ptr const middle = Make();
    ServerSideEntity::Ptr const leaf = Make();
    middle->parentEntity = root->GetID();
    leaf->parentEntity = middle->GetID();
    root->environmentId = 7;
    root->orbitEnvironmentId = 8;
    middle->environmentId = 5;
    middle->orbitEnvironmentId = 6;
    leaf->environmentId = 1;
    leaf->orbitEnvironmentId = 2;

    // A moving root.
    root->isDynamic = true;
    root->restTime = 1.5;
    leaf->settled = true;
    leaf->RefreshCache();
    EXPECT_EQ(leaf->environmentId, 7u); // the last ancestor walked wins
    EXPECT_EQ(leaf->orbitEnvironmentId, 8u);
    EXPECT_TRUE(leaf->parentMoving);
    EXPECT_FALSE(leaf->settled);

    // At rest since before loading: nobody moves, the flag is cleared, settled stays.
    root->restTime = 2.0;
    leaf->settled = true;
    leaf->RefreshCache();
    EXPECT_FALSE(leaf->parentMoving);
    EXPECT_TRUE(leaf->settled);

    // A static root never moves, whatever its rest time.
    root->isDynamic = false;
    root->restTime = 0.0;
    leaf->RefreshCache();
    EXPECT_FALSE(leaf->parentMoving);

    // An ancestor that is not moving itself passes on its own cached flag.
    middle->parentMoving = true;
    leaf->RefreshCache();
    EXPECT_TRUE(leaf->parentMoving);
    EXPECT_FALSE(leaf->settled);
    middle->parentMoving = false;

    // The walk stops at a missing parent: the environment then comes from the middle.
    root->environmentId = 99;
    middle->parentEntity = Id::Generate();
    leaf->RefreshCache();
    EXPECT_EQ(leaf->environmentId, 5u);
    EXPECT_EQ(leaf->orbitEnvironmentId, 6u);

    // An entity without a parent keeps its own environment.
    root->RefreshCache();
    EXPECT_EQ(root->environmentId, 99u);
    EXPECT_FALSE(root->parentMoving);
}

// ---------------------------------------------------------------------------
// Entity stages of a server tick

using ServerSideEntityTick = SseTest;

/// Every entity appears once per stage, and each stage ends before the next starts.
void ExpectStagesInOrder(size_t entities)
{
    ASSERT_EQ(hookLog.calls.size(), 3 * entities);
    std::string const stages = "BUA";
    for (size_t stage = 0; stage < 3; ++stage) {
        std::set<Id, bool (*)(Id const&, Id const&)> seen([](Id const& a, Id const& b) {
            return std::tie(a.first, a.second) < std::tie(b.first, b.second);
        });
        for (size_t i = 0; i < entities; ++i) {
            auto const& [kind, id] = hookLog.calls[stage * entities + i];
            EXPECT_EQ(kind, stages[stage]) << "call " << stage * entities + i;
            seen.insert(id);
        }
        EXPECT_EQ(seen.size(), entities);
    }
}

TEST_F(ServerSideEntityTick, EachStageRunsOverAllEntitiesBeforeTheNext)
{
    for (int i = 0; i < 5; ++i)
        MakeReady(i % 2 == 0 ? "counting" : "derived");
    MakeReady("plain");
    ::Game::ServerUpdate(0.02, 1);
    ExpectStagesInOrder(5);
}

TEST_F(ServerSideEntityTick, AfterUpdateSeesTheCacheRefreshedInTheSameTick)
{
    // The parent changes its environment in its Update hook. The child comes first
    // in the walk, so only the refresh before AfterUpdate can bring it the change.
    for (int i = 0; i < 4; ++i)
        MakeReady("payload");
    std::vector<ServerSideEntity::Ptr> walk;
    ServerSideEntity::ForEach([&walk](ServerSideEntity::Ptr entity) { walk.push_back(std::move(entity)); });
    ServerSideEntity::Ptr const child = walk.front();
    ServerSideEntity::Ptr const parent = walk.back();
    child->parentEntity = parent->GetID();
    parent->environmentId = 30;
    InterfaceOf<PayloadInterface>(parent).environmentToSet = 31;

    ::Game::ServerUpdate(0.02, 1);
    EXPECT_EQ(InterfaceOf<PayloadInterface>(child).environmentInAfterUpdate, 31u);
    EXPECT_EQ(child->environmentId, 31u);
}

TEST_F(ServerSideEntityTick, MeasuringKeepsTheOrderAndBooksTimePerVehicle)
{
    ::Game::serverSideEntityPerformanceMetrics = true;
    ServerSideEntity::Ptr const first = MakeReady("counting");
    ServerSideEntity::Ptr const second = MakeReady("derived");
    ServerSideEntity::Ptr const component = MakeReady("counting");
    component->isComponent = true;
    component->parentEntity = first->GetID();

    double const dt = 0.25;
    ::Game::ServerUpdate(dt, 1);
    ExpectStagesInOrder(3);

    auto const& timers = ::Game::_serverSideEntityPerformance_timers;
    auto const& averages = ::Game::serverSideEntityPerformance_avg_time;
    EXPECT_EQ(timers.size(), 2u);
    EXPECT_EQ(averages.size(), 2u);
    EXPECT_EQ(timers.count(component->GetID()), 0u);
    std::unordered_map<Id, double> firstAverages;
    for (Id const& vehicle : {first->GetID(), second->GetID()}) {
        ASSERT_EQ(timers.count(vehicle), 1u);
        ASSERT_EQ(averages.count(vehicle), 1u);
        EXPECT_GE(timers.at(vehicle), 0.0);
        EXPECT_LT(timers.at(vehicle), 10.0);
        EXPECT_DOUBLE_EQ(averages.at(vehicle), dt * timers.at(vehicle)); // blended from 0
        firstAverages[vehicle] = averages.at(vehicle);
    }

    hookLog.calls.clear();
    ::Game::ServerUpdate(dt, 1);
    ExpectStagesInOrder(3);
    for (Id const& vehicle : {first->GetID(), second->GetID()}) {
        EXPECT_GE(timers.at(vehicle), 0.0);
        EXPECT_DOUBLE_EQ(averages.at(vehicle), (1.0 - dt) * firstAverages[vehicle] + dt * timers.at(vehicle));
    }
}

// ---------------------------------------------------------------------------
// Loading and unloading a world

using ServerSideEntityWorld = SseTest;

TEST_F(ServerSideEntityWorld, UnloadThenLoadRestoresTheEntities)
{
    struct Saved {
        Id id;
        glm::dvec3 position;
        glm::dquat orientation;
        std::string payload;
    };
    std::vector<Saved> saved;
    for (int i = 0; i < 3; ++i) {
        ServerSideEntity::Ptr const entity = ServerSideEntity::Spawn(SseModule, "payload");
        EXPECT_EQ(entity->worldReferences.load(), 1u);
        entity->position = {1.5 * i, -2.0, 1e6 + i};
        entity->orientation = Rotation(20.0 + 30.0 * i, {1.0, -1.0, 0.5 * i});
        InterfaceOf<PayloadInterface>(entity).payload = "state of " + std::to_string(i) + std::string(1, '\0') + "!";
        saved.push_back({entity->GetID(), entity->position, entity->orientation,
                         InterfaceOf<PayloadInterface>(entity).payload});
    }

    ServerSideEntity::UnloadAllEntities();
    EXPECT_EQ(ServerSideEntity::Count(), 0u);
    for (Saved const& entry : saved)
        EXPECT_TRUE(fs::exists(world + "/entities/" + static_cast<std::string>(entry.id) + ".entitystate"));
    ServerSideEntity::_module_entities.erase(SseModule.String());

    ServerSideEntity::LoadAllEntities();
    EXPECT_EQ(ServerSideEntity::Count(), saved.size());
    for (Saved const& entry : saved) {
        SCOPED_TRACE(static_cast<std::string>(entry.id));
        ServerSideEntity::Ptr const entity = ServerSideEntity::Get(entry.id);
        ASSERT_TRUE(entity);
        EXPECT_EQ(entity->GetID(), entry.id);
        EXPECT_EQ(entity->position, entry.position);
        EXPECT_EQ(entity->orientation, entry.orientation);
        EXPECT_EQ(entity->itemType, "payload");
        EXPECT_EQ(entity->worldReferences.load(), 1u);
        auto const& object = InterfaceOf<PayloadInterface>(entity);
        EXPECT_TRUE(object.isReady);
        EXPECT_EQ(object.loadCalls, 1);
        EXPECT_EQ(object.payload, entry.payload);
        EXPECT_EQ(object.entity.lock(), entity);
    }
    EXPECT_EQ(ServerSideEntity::_module_entities[SseModule.String()].size(), saved.size());

    // A second round keeps them as well.
    ServerSideEntity::UnloadAllEntities();
    ServerSideEntity::LoadAllEntities();
    EXPECT_EQ(ServerSideEntity::Count(), saved.size());
    for (Saved const& entry : saved) {
        ServerSideEntity::Ptr const entity = ServerSideEntity::Get(entry.id);
        ASSERT_TRUE(entity);
        EXPECT_EQ(InterfaceOf<PayloadInterface>(entity).payload, entry.payload);
    }
}

TEST_F(ServerSideEntityWorld, EntitiesOutsideTheWorldAndComponentsAreNotSaved)
{
    ServerSideEntity::Ptr const placed = ServerSideEntity::Spawn(SseModule, "payload");
    ServerSideEntity::Ptr const loose = MakeReady("payload"); // worldReferences 0
    ServerSideEntity::Ptr const component = ServerSideEntity::Spawn(SseModule, "payload");
    component->isComponent = true;
    component->parentEntity = placed->GetID();
    std::string const placedFile = placed->GetStateSaveFile();
    std::string const looseFile = loose->GetStateSaveFile();
    std::string const componentFile = component->GetStateSaveFile();
    Id const placedId = placed->GetID();

    ServerSideEntity::UnloadAllEntities();
    EXPECT_TRUE(fs::exists(placedFile));
    EXPECT_FALSE(fs::exists(looseFile));
    EXPECT_FALSE(fs::exists(componentFile));

    ServerSideEntity::LoadAllEntities();
    EXPECT_EQ(ServerSideEntity::Count(), 1u);
    EXPECT_TRUE(ServerSideEntity::Get(placedId));
}

TEST_F(ServerSideEntityWorld, EntityOfAnAbsentModuleStaysOnDiskUntouched)
{
    Id absentId;
    {
        ServerSideEntity::Ptr const entity = ServerSideEntity::Create(ModuleID("NOBODY_absent"), "ghost", Id::Generate());
        entity->position = {4.0, 5.0, 6.0};
        entity->Serialize();
        entity->deleteFilesOnDestroy = false;
        absentId = entity->GetID();
    }
    ASSERT_TRUE(ServerSideEntity::Destroy(absentId));
    ServerSideEntity::Ptr const present = ServerSideEntity::Spawn(SseModule, "payload");
    Id const presentId = present->GetID();
    std::string const path = world + "/entities/" + static_cast<std::string>(absentId) + ".entitystate";
    std::string const before = FileBytes(path);
    ASSERT_FALSE(before.empty());
    ServerSideEntity::UnloadAllEntities();

    ServerSideEntity::LoadAllEntities();
    EXPECT_FALSE(ServerSideEntity::Get(absentId));
    EXPECT_TRUE(ServerSideEntity::Get(presentId));
    EXPECT_EQ(ServerSideEntity::Count(), 1u);
    ServerSideEntity::UnloadAllEntities();

    EXPECT_EQ(FileBytes(path), before);
    ServerSideEntity::LoadAllEntities();
    EXPECT_FALSE(ServerSideEntity::Get(absentId));
    ServerSideEntity::UnloadAllEntities();
    EXPECT_EQ(FileBytes(path), before);
}

TEST_F(ServerSideEntityWorld, MissingFolderLoadsNothing)
{
    ASSERT_FALSE(fs::exists(world));
    EXPECT_NO_THROW(ServerSideEntity::LoadAllEntities());
    EXPECT_EQ(ServerSideEntity::Count(), 0u);
}

TEST_F(ServerSideEntityWorld, StemOfTheWrongLengthStopsTheLoad)
{
    fs::create_directories(world + "/entities");
    std::ofstream(world + "/entities/abc.entitystate") << "whatever";
    try {
        ServerSideEntity::LoadAllEntities();
        FAIL() << "expected an exception";
    } catch (std::runtime_error const& error) {
        EXPECT_STREQ(error.what(), "UniqueId string length should be 28");
    }
}

TEST_F(ServerSideEntityWorld, FileWithoutAStemIsSkippedAndOtherFilesAreIgnored)
{
    ServerSideEntity::Ptr const entity = ServerSideEntity::Spawn(SseModule, "payload");
    Id const id = entity->GetID();
    ServerSideEntity::UnloadAllEntities();
    std::string const folder = world + "/entities/";
    std::ofstream(folder + ".entitystate") << "not an entity";
    std::ofstream(folder + "abc.txt") << "not an entity either";
    fs::create_directories(folder + "ABCD0123456789ABCDEF01234567.entitystate"); // a folder, not a file

    EXPECT_NO_THROW(ServerSideEntity::LoadAllEntities());
    EXPECT_EQ(ServerSideEntity::Count(), 1u);
    EXPECT_TRUE(ServerSideEntity::Get(id));
    EXPECT_TRUE(fs::exists(folder + ".entitystate"));
}

TEST_F(ServerSideEntityWorld, DestroyingRemovesTheFilesUnloadingKeepsThem)
{
    ServerSideEntity::Ptr entity = ServerSideEntity::Spawn(SseModule, "payload");
    entity->Serialize();
    entity->SerializeCheckpoint();
    std::string const state = entity->GetStateSaveFile();
    std::string const checkpoint = entity->GetCheckpointSaveFile();
    Id const id = entity->GetID();
    ASSERT_TRUE(fs::exists(state));
    ASSERT_TRUE(fs::exists(checkpoint));

    // Unloading keeps both.
    entity.reset();
    ServerSideEntity::UnloadAllEntities();
    EXPECT_TRUE(fs::exists(state));
    EXPECT_TRUE(fs::exists(checkpoint));

    // Destroying the loaded entity (a dismantled one) takes both away.
    ServerSideEntity::LoadAllEntities();
    ASSERT_TRUE(ServerSideEntity::Get(id));
    EXPECT_TRUE(ServerSideEntity::Get(id)->deleteFilesOnDestroy);
    ASSERT_TRUE(ServerSideEntity::Destroy(id));
    EXPECT_FALSE(fs::exists(state));
    EXPECT_FALSE(fs::exists(checkpoint));

    // With the flag cleared they stay.
    ServerSideEntity::Ptr kept = ServerSideEntity::Spawn(SseModule, "payload");
    kept->Serialize();
    kept->deleteFilesOnDestroy = false;
    std::string const keptState = kept->GetStateSaveFile();
    Id const keptId = kept->GetID();
    kept.reset();
    ASSERT_TRUE(ServerSideEntity::Destroy(keptId));
    EXPECT_TRUE(fs::exists(keptState));
}

} // namespace
