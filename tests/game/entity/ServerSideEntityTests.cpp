// Server entities: construction, broken relations, lookups along the tree, the parent cache,
// the hook runner, loading a world, and the state and checkpoint files.
#include <gtest/gtest.h>

#include "support/Bytes.hpp"
#include "support/GlmChecks.hpp"
#include "support/Golden.hpp"

#include <dlfcn.h>
#include <signal.h>
#include <sys/wait.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cmath>
#include <filesystem>
#include <functional>
#include <random>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <glm/glm.hpp>
#include <glm/gtc/quaternion.hpp>

#include "game/Game.hpp"
#include "game/entity/EntityConfig.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "nerox/filesystem/Stream.hpp"
#include "nerox/modular/ModuleID.hpp"

using namespace testsupport;
using game::entity::EntityConfig;
using game::entity::Id;
using game::entity::ServerSideEntity;
using nerox::filesystem::ReadOnlyStream;
using nerox::filesystem::WriteOnlyStream;
using nerox::modular::ModuleID;
using Ptr = ServerSideEntity::Ptr;

namespace fs = std::filesystem;

/// Every fsync of the process goes through here: counted, and failing while syncFailures is above 0.
std::atomic<int> syncCalls{0}, syncFailures{0};
extern "C" int fsync(int fd) {
    static auto const next = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "fsync"));
    ++syncCalls;
    if (syncFailures > 0) return --syncFailures, errno = EIO, -1;
    return next(fd);
}

namespace {

ModuleID const TestModule("TEST_sseentities");
ModuleID const Absent("NOBODY_absent");
Bytes const SavedBlob = {'s', 't', 'a', 't', 'e', 0, 1, 2, 0xFF};
Bytes const CheckpointBlob = {'c', 'k', 0, 0x80, 7};
/// Offset of the field after itemType "probe" in a state file.
size_t const Base = 36 + 8 + 5;

Bytes BytesOf(nerox::filesystem::Stream const& stream) {
    return Bytes(stream.ReadableBytes().begin(), stream.ReadableBytes().end());
}

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
    void Update(double) override {
        hookLog.calls.emplace_back('U', id);
        auto const owner = entity.lock();
        if (bendElbow) owner->jointStates.at("elbow").rotation.x = 30.0f, owner->nodesDirty = true;
    }
    void AfterUpdate(double) override { hookLog.calls.emplace_back('A', id); }
    void SaveState(WriteOnlyStream& stream) override { stream.Write(payload.data(), payload.size()); }
    void LoadState(ReadOnlyStream& stream) override { payload = BytesOf(stream); }
    void SerializeState(WriteOnlyStream& stream) override {
        stream.Write(CheckpointBlob.data(), CheckpointBlob.size());
    }
    void DeserializeState(ReadOnlyStream& stream) override {
        ++hookLog.deserializeCalls, hookLog.deserialized = BytesOf(stream);
    }

    Bytes payload = SavedBlob;
    bool bendElbow = false;
};
class DerivedProbeInterface : public ProbeInterface { }; // inherits the overrides without naming them again
class UpdateOnlyInterface : public ServerSideEntity::Interface {
public:
    void Update(double) override { ++update; }
    int update = 0;
};
class PlainInterface : public ServerSideEntity::Interface { }; // no hooks, the default state operations
/// Refuses any saved state, as a module does with a blob it cannot read.
class RefusingInterface : public ServerSideEntity::Interface {
public:
    void SaveState(WriteOnlyStream& stream) override { stream.Write(uint8_t{1}); }
    void LoadState(ReadOnlyStream& stream) override {
        if (stream.Remaining() != 0) throw std::runtime_error("refused");
    }
};
/// Walks the world while it is saved; the first time places one more entity and destroys the victim.
class LookingInterface : public ServerSideEntity::Interface {
public:
    void SaveState(WriteOnlyStream&) override {
        ServerSideEntity::ForEach([](Ptr) { ++seen; });
        if (!ServerSideEntity::Get(id) || spawned++ != 0) return;
        ServerSideEntity::Spawn(ModuleID("TEST_sseentities"), "plain"), ServerSideEntity::Destroy(victim);
    }
    inline static int seen = 0, spawned = 0;
    inline static Id victim;
};

template <class T> T& InterfaceOf(Ptr const& entity) {
    return dynamic_cast<T&>(*entity->GetInterface());
}

/// A fresh entity id; generated ids may repeat within one microsecond.
Id NextId() {
    static uint64_t serial = 0;
    return Id(0x0000000054544E45ull, 0x0100000000000000ull + ++serial); // tag "ENTT"
}

/// Registry rows of the test module, a unique world folder and a clean registry afterwards.
class SseTest : public ::testing::Test {
protected:
    void SetUp() override {
        static std::atomic<int> counter{0};
        ::Game::_current_world = "sseTests_" + std::to_string(::getpid()) + "_" + std::to_string(counter++);
        world = "../Tessara-data/server/worlds/" + ::Game::_current_world;
        fs::remove_all(world);
        hookLog = Log();
        auto const arm =
            std::make_shared<EntityConfig>(std::string(TESSARA_TEST_SOURCE_DIR) + "/game/entity/data/arm.txt");
        Register<ProbeInterface>("probe");
        Register<ProbeInterface>("probearm", arm);
        Register<DerivedProbeInterface>("derived");
        Register<UpdateOnlyInterface>("updateonly");
        Register<PlainInterface>("plain");
        Register<PlainInterface>("arm", arm);
        Register<RefusingInterface>("refusing");
        Register<LookingInterface>("looking");
    }
    void TearDown() override {
        ServerSideEntity::DestroyAll();
        ServerSideEntity::_registered_interfaces.erase(TestModule.String());
        ServerSideEntity::_module_entities.erase(TestModule.String());
        std::error_code ignored;
        fs::remove_all(world, ignored);
        ::Game::_current_world.clear();
    }

    template <class T> void Register(std::string const& type, std::shared_ptr<EntityConfig> config = {}) {
        auto& row = ServerSideEntity::_registered_interfaces[TestModule.String()][type];
        row.moduleId = TestModule, row.itemType = type, row.config = std::move(config);
        row.factory = [] { return std::make_shared<T>(); };
    }

    /// A registered entity, created but not attached.
    static Ptr Make(std::string const& type = "plain", Id id = NextId()) {
        return ServerSideEntity::Create(TestModule, type, id);
    }

    /// A registered entity with its interface attached and ready.
    static Ptr MakeReady(std::string const& type) {
        Ptr entity = Make(type);
        ReadOnlyStream noState;
        entity->Attach(noState);
        return entity;
    }

    /// Forgets entity without touching its files.
    static void Unload(Ptr& entity) {
        Id const id = entity->GetID();
        entity->deleteFilesOnDestroy = false;
        entity.reset();
        ServerSideEntity::Destroy(id);
    }

    static void RunHooks(Ptr const& entity) {
        entity->BeforeUpdate(0.1), entity->Update(0.1), entity->AfterUpdate(0.1);
    }

    std::string world;
};

// Construction, parent and child

using ServerSideEntityConstruction = SseTest;

TEST_F(ServerSideEntityConstruction, IdIsKeptWhenSetAndTypeGivesInterfaceConfigAndNodes) {
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
        EXPECT_TRUE(row.config->loaded);
        EXPECT_EQ(entity->config, row.config) << "entities of a type share the description";
        EXPECT_EQ(entity->colliders.size(), 3u) << "the nodes come from the description";
        for (auto const& [name, collider] : entity->colliders)
            EXPECT_TRUE(collider.entity == entity->GetID() && collider.name == name) << name;
    }
}

using ServerSideEntityDeathTest = SseTest;

TEST_F(ServerSideEntityDeathTest, BrokenRelationsFactoriesAndBoxesAbortWithTheirCondition) {
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
    ServerSideEntity::_registered_interfaces[TestModule.String()]["broken"].factory = [] {
        return std::shared_ptr<ServerSideEntity::Interface>();
    };
    EXPECT_DEATH(Make("broken"), "ASSERTION FAILED: \\(_interface\\) in game/entity/[A-Za-z]+\\.cpp:[0-9]+\n");
    Ptr const box = Make();
    box->box_size = {1.0, 1.0, 1.0};
    EXPECT_DEATH(box->GetInertiaTensorWorld(), "ASSERTION FAILED: \\(mass > 0.0\\)");
    box->mass = 2.0, box->box_size = {1.0, 0.0, 1.0};
    EXPECT_DEATH(box->GetInertiaTensorWorld(), "ASSERTION FAILED: \\(box_size.y > 0.0\\)");
}

using ServerSideEntityLookup = SseTest;

TEST_F(ServerSideEntityLookup, ComponentChainGivesParentTransformAndVehicle) {
    // body <- arm (component) <- hand (component); loose is a component of a missing entity, onLoose sits on it.
    Ptr body = Make();
    Ptr const arm = Make(), hand = Make(), loose = Make(), onLoose = Make();
    arm->position = {1.0, 0.0, 0.5}, hand->position = {0.0, 2.0, 0.0};
    arm->orientation = glm::angleAxis(glm::radians(90.0), glm::dvec3(0.0, 0.0, 1.0));
    arm->isComponent = hand->isComponent = loose->isComponent = true;
    arm->parentEntity = body->GetID(), hand->parentEntity = arm->GetID(), loose->parentEntity = NextId();
    onLoose->parentEntity = loose->GetID();
    EXPECT_EQ(hand->GetFirstNonComponentParent(), body);
    EXPECT_FALSE(body->GetFirstNonComponentParent() || loose->GetFirstNonComponentParent() ||
                 onLoose->GetFirstNonComponentParent());
    // Two along the arm's turned y axis, i.e. -2 in x, from the arm's place (rotation before translation).
    ExpectVecNear(glm::dvec3(hand->GetTransformInPhysicsParent()[3]), {-1.0, 0.0, 0.5});
    ExpectMatNear(loose->GetTransformInPhysicsParent(), glm::dmat4(1.0));
    EXPECT_TRUE(hand->GetVehicleID() == body->GetID() && loose->GetVehicleID() == loose->GetID());
    Id const bodyId = body->GetID();
    body.reset();
    ASSERT_TRUE(ServerSideEntity::Destroy(bodyId));
    EXPECT_EQ(hand->GetVehicleID(), arm->GetID()) << "the hand asks its parent, now the top of what is left";
}

TEST_F(ServerSideEntityLookup, ParentCacheTakesTheRootsEnvironmentAndMotion) {
    Ptr const root = Make(), middle = Make(), leaf = Make();
    middle->parentEntity = root->GetID(), leaf->parentEntity = middle->GetID();
    root->environmentId = 7, root->orbitEnvironmentId = 8, middle->environmentId = 5, middle->orbitEnvironmentId = 6,
    leaf->environmentId = 1;
    struct Case {
        char const* name;
        bool rootDynamic;
        double rootRest;
        bool middleMoving, leafMoving;
    };
    // At rest since before loading (2) nobody moves; an ancestor passes on its own cached flag.
    for (Case const& c :
         {Case{"moving root", true, 1.5, false, true}, Case{"root at rest since the load", true, 2.0, false, false},
          Case{"static root", false, 0.0, false, false}, Case{"middle has a moving parent", false, 0.0, true, true}}) {
        SCOPED_TRACE(c.name);
        root->isDynamic = c.rootDynamic, root->restTime = c.rootRest, middle->parentMoving = c.middleMoving,
        leaf->settled = true;
        leaf->RefreshCache();
        EXPECT_TRUE(leaf->environmentId == 7u && leaf->orbitEnvironmentId == 8u) << "the last ancestor walked wins";
        EXPECT_TRUE(leaf->parentMoving == c.leafMoving && leaf->settled == !c.leafMoving);
    }
    // The walk stops at a missing parent: the environment then comes from the middle.
    root->environmentId = 99;
    middle->parentEntity = NextId();
    leaf->RefreshCache();
    EXPECT_TRUE(leaf->environmentId == 5u && leaf->orbitEnvironmentId == 6u);
    root->RefreshCache();
    EXPECT_EQ(root->environmentId, 99u) << "an entity without a parent keeps its own environment";
    EXPECT_FALSE(root->parentMoving);
}

// Hook runner and the entity stages of a server tick

using ServerSideEntityHooks = SseTest;

TEST_F(ServerSideEntityHooks, AttachLinksTheInterfaceOnceAndHooksRunOnlyWhenReadyAndOverridden) {
    Ptr const entity = Make("probe");
    RunHooks(entity);
    EXPECT_TRUE(hookLog.calls.empty()) << "not attached yet";
    for (int i = 0; i < 2; ++i) {
        ReadOnlyStream noState;
        entity->Attach(noState);
    }
    auto const& object = InterfaceOf<ProbeInterface>(entity);
    EXPECT_TRUE(object.isReady && object.entity.lock() == entity && object.self.lock() == entity->GetInterface() &&
                object.id == entity->GetID());
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

TEST_F(ServerSideEntityHooks, EntitiesSpawnedOnSeveralThreadsWhileTheWorldTicksGetUniqueIds) {
    std::atomic<bool> spawning{true};
    std::thread updater([&spawning] {
        for (; spawning; std::this_thread::sleep_for(std::chrono::microseconds(50)))
            ServerSideEntity::ForEach([](Ptr entity) { entity->BeforeUpdate(0.1); });
    });
    std::vector<std::thread> spawners;
    for (int t = 0; t < 3; ++t)
        spawners.emplace_back([] {
            for (int i = 0; i < 100; ++i) ServerSideEntity::Spawn(TestModule, "plain");
        });
    for (std::thread& spawner : spawners) spawner.join();
    spawning = false;
    updater.join();
    EXPECT_EQ(ServerSideEntity::Count(), 300u);
}

TEST_F(ServerSideEntityHooks, UpdateRunsTheJointSolverAfterTheHookWhenItMarksTheNodes) {
    Ptr const bending = MakeReady("probearm");
    glm::dmat4 const rest = bending->colliders.at("fore").transform;
    bending->jointStates.at("elbow").rotation.x = 30.0f;
    bending->Update(0.016); // not dirty: a changed joint value moves nothing yet
    ExpectMatNear(bending->colliders.at("fore").transform, rest, 0.0);
    InterfaceOf<ProbeInterface>(bending).bendElbow = true;
    bending->Update(0.016);
    ExpectMatNear(bending->colliders.at("fore").transform, bending->nodeTransforms.at("fore"), 0.0);
    EXPECT_GT(std::abs(bending->colliders.at("fore").transform[3][1] - rest[3][1]), 0.05);
}

// Loading and unloading a world

using ServerSideEntityWorld = SseTest;

TEST_F(ServerSideEntityWorld, SaveHooksRunWithoutTheLockSoTheyMayLookEntitiesUpAndPlaceMore) {
    ServerSideEntity::Spawn(TestModule, "looking");
    LookingInterface::victim = ServerSideEntity::Spawn(TestModule, "probe")->GetID();
    LookingInterface::seen = LookingInterface::spawned = 0;
    EXPECT_EQ(ServerSideEntity::UnloadAllEntities(), 2u);
    EXPECT_EQ(std::tuple(LookingInterface::seen, ServerSideEntity::Count()), std::tuple(2, 0u));
    EXPECT_EQ(std::distance(fs::directory_iterator(world + "/entities"), fs::directory_iterator()), 2)
        << "the entity placed by the hook is saved too, the one it destroyed is not";
}

// A child process saves a world of 10,000 entities again and again, each save
// moving every entity to the next generation, and is killed at random moments.
// Each time, every entity's file is whole and holds the generation of the last
// save the child finished or of the one it was in.
TEST_F(ServerSideEntityWorld, AWorldSaveKilledAtAnyMomentLeavesEveryFileOldOrNew) {
    constexpr int Count = 10000;
    std::vector<Id> ids;
    for (int i = 0; i < Count; ++i) ids.push_back(NextId());
    auto const place = [&ids](double generation) {
        for (Id const& id : ids) {
            Ptr entity = Make("plain", id);
            entity->worldReferences = 1;
            entity->position.x = generation;
        }
    };
    place(0.0);
    ASSERT_EQ(ServerSideEntity::UnloadAllEntities(), static_cast<size_t>(Count));
    std::mt19937 random(20261125);
    int done = 0; // the last generation a child reported saved
    for (int round = 0; round < 20; ++round) {
        int channel[2];
        ASSERT_EQ(::pipe(channel), 0);
        pid_t const child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::close(channel[0]);
            place(done + 1);
            for (int generation = done + 1;; ++generation) {
                ServerSideEntity::ForEach([generation](Ptr entity) { entity->position.x = generation; });
                ServerSideEntity::SaveAllEntities();
                if (::write(channel[1], &generation, sizeof generation) != sizeof generation) ::_exit(1);
            }
        }
        ::close(channel[1]);
        std::this_thread::sleep_for(std::chrono::milliseconds(std::uniform_int_distribution<int>(5, 1500)(random)));
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        for (int generation = 0; ::read(channel[0], &generation, sizeof generation) == sizeof generation;)
            done = generation;
        ::close(channel[0]);
        int wrong = 0;
        for (Id const& id : ids) {
            try {
                ReadOnlyStream blob;
                ServerSideEntity saved(id, blob);
                saved.deleteFilesOnDestroy = false;
                wrong += saved.position.x == done || saved.position.x == done + 1 ? 0 : 1;
            } catch (std::exception const& error) {
                ADD_FAILURE() << "round " << round << ": " << error.what();
                ++wrong;
            }
        }
        ASSERT_EQ(wrong, 0) << "round " << round << ", generation " << done << " saved";
    }
    std::printf("the children finished %d saves between the kills\n", done);
}

TEST_F(ServerSideEntityWorld, FilesThatFailToLoadAreNamedNeverDeletedAndCanBeSetAsideOthersAreKeptOrSkipped) {
    EXPECT_EQ(ServerSideEntity::LoadAllEntities().loaded, 0u) << "no folder";
    Ptr refusing = ServerSideEntity::Spawn(TestModule, "refusing"), odd = ServerSideEntity::Spawn(TestModule, "probe"),
        kept = ServerSideEntity::Spawn(TestModule, "probe");
    Id const keptId = kept->GetID();
    InterfaceOf<ProbeInterface>(kept).payload = {'s', 0, '!'};
    std::string const folder = world + "/entities/", refused = refusing->GetStateSaveFile(),
                      oddFile = odd->GetStateSaveFile(), keptFile = kept->GetStateSaveFile();
    refusing->SerializeCheckpoint(), refusing.reset(), odd.reset(), kept.reset();
    ServerSideEntity::UnloadAllEntities();
    Bytes const refusedBytes = ReadBytes(refused);
    // The module refuses its state: the error names the file, and the entity
    // left half loaded must not take the file with it when the world goes.
    EXPECT_THAT([] { ServerSideEntity::LoadAllEntities(); },
                testing::ThrowsMessage<std::runtime_error>(refused + ": refused"));
    ServerSideEntity::UnloadAllEntities();
    EXPECT_EQ(ReadBytes(refused), refusedBytes);

    Bytes odds = ReadBytes(oddFile);
    Put(odds, Base + 40, std::nan("")); // position y
    WriteBytes(oddFile, odds);
    for (char const* name : {"notes.entitystate", "X.entitystate.tmp", ".entitystate", "abc.txt"})
        WriteText(folder + name, "not an entity");
    fs::create_directories(folder + "ABCD0123456789ABCDEF01234567.entitystate"); // a folder, not a file
    std::vector<std::string> absentFiles;
    for (int i = 0; i < 2; ++i) {
        Ptr absent = ServerSideEntity::Create(Absent, "ghost", NextId());
        absent->Serialize(), absentFiles.push_back(absent->GetStateSaveFile()), Unload(absent);
    }
    testing::internal::CaptureStderr();
    auto const report = ServerSideEntity::LoadAllEntities(ServerSideEntity::DamagedFiles::SetAside);
    std::string const output = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::tuple(report.loaded, report.notLoaded, ServerSideEntity::Count()), std::tuple(1u, 2u, 1u));
    EXPECT_EQ(InterfaceOf<ProbeInterface>(ServerSideEntity::Get(keptId)).payload, (Bytes{'s', 0, '!'}));
    EXPECT_THAT(report.setAside,
                testing::UnorderedElementsAre(refused + ": refused",
                                              oddFile + ": Save state file holds a non-finite position for entity " +
                                                  fs::path(oddFile).stem().string(),
                                              folder + "notes.entitystate: UniqueId string length should be 28"));
    EXPECT_EQ(ReadBytes(world + "/damaged/" + fs::path(refused).filename().string()), refusedBytes);
    EXPECT_EQ(std::distance(fs::directory_iterator(world + "/damaged"), fs::directory_iterator()), 4)
        << "with the refused entity's checkpoint";
    for (char const* line :
         {"WARNING: module NOBODY_absent is not loaded: 2 saved entities were left",
          "X.entitystate.tmp, left by an interrupted save", "WARNING: skipped a state file without an entity id"})
        EXPECT_THAT(output, testing::HasSubstr(line));
    EXPECT_FALSE(fs::exists(folder + "X.entitystate.tmp"));
    for (std::string const& name : {folder + ".entitystate", folder + "abc.txt", absentFiles[0], absentFiles[1]})
        EXPECT_TRUE(fs::exists(name)) << name;
    // Destroying a loaded entity (a dismantled one) takes its file away.
    ASSERT_TRUE(ServerSideEntity::Destroy(keptId));
    EXPECT_FALSE(fs::exists(keptFile));
}

// State and checkpoint files

using EntityFileTest = SseTest;

/// A registered entity of type with every saved field set to a distinct value.
Ptr MakeSaved(std::string const& type = "probe") {
    Ptr entity = ServerSideEntity::Create(TestModule, type, NextId());
    entity->environmentId = 0x1122334455667788ull, entity->orbitEnvironmentId = 42;
    entity->parentEntity = Id(0x0102030405060708ull, 0x1112131415161718ull);
    entity->position = {1.5, -2.25, 3.125}, entity->orientation = glm::dquat(0.1, 0.2, 0.3, 0.4);
    entity->linearVelocity = {4.0, 5.0, 6.0}, entity->angularVelocity = {-7.0, -8.0, -9.0};
    entity->isDynamic = true, entity->boundingRadius = 12.5;
    return entity;
}

/// An unregistered entity that only reads files.
std::unique_ptr<ServerSideEntity> Reader(Id const& id) {
    auto reader = std::make_unique<ServerSideEntity>(Absent, "ghost", id);
    reader->deleteFilesOnDestroy = false;
    return reader;
}

ByteBuilder& Vec(ByteBuilder& b, glm::dvec3 const& v) {
    return b.Raws(v.x, v.y, v.z);
}
ByteBuilder& Quat(ByteBuilder& b, glm::dquat const& q) {
    return b.Raws(q.w, q.x, q.y, q.z);
}
ByteBuilder& IdBytes(ByteBuilder& b, Id const& id) {
    return b.Raws(id.first, id.second);
}

/// The state file bytes of an entity, built by hand.
Bytes ExpectedState(ServerSideEntity const& e, uint8_t atRest, Bytes const& blob) {
    ByteBuilder b;
    b.Chars("TESSARA!ENTITY !", 16).Raws(uint32_t{1}, e.moduleId.vendor, e.moduleId.name);
    b.Block(Bytes(e.itemType.begin(), e.itemType.end())).Raws(e.environmentId, e.orbitEnvironmentId);
    Quat(Vec(IdBytes(b, e.parentEntity), e.position), e.orientation).Raw(uint8_t(e.isDynamic ? 1 : 0));
    Vec(Vec(b, e.linearVelocity), e.angularVelocity).Raw(e.boundingRadius);
    return b.Raw(atRest).Chars("\n\n\n\n", 4).Block(blob).Chars("\nEOF", 4).bytes;
}

Bytes ExpectedCheckpoint(ServerSideEntity const& e) {
    ByteBuilder b;
    Quat(Vec(IdBytes(b.Chars("CHECKPNT", 8).Raw(uint32_t{0}), e.GetID()), e.position), e.orientation);
    IdBytes(Vec(Vec(b, e.linearVelocity), e.angularVelocity), e.parentEntity);
    return b.Raws(e.environmentId, e.orbitEnvironmentId, uint8_t(e.isDynamic ? 1 : 0)).Block(CheckpointBlob).bytes;
}

struct Variant {
    std::string name;
    long index;
    Bytes bytes;
}; // index -1: a variant of its own

/// What reading gives for some variants of a good file, every cut of it and every byte of it
/// changed: one line per run of neighbours with the same outcome. Each variant must stay on disk as it was.
std::string DamageReport(Bytes const& good, std::string const& path, std::vector<Variant> variants,
                         std::function<std::string()> const& read) {
    for (size_t n = 0; n < good.size(); ++n)
        variants.push_back({"cut at", long(n), Bytes(good.begin(), good.begin() + long(n))});
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
        while (variants[i].index >= 0 && j + 1 < variants.size() && variants[j + 1].name == variants[i].name &&
               outcomes[j + 1] == outcomes[i])
            ++j;
        report += variants[i].name;
        if (variants[i].index >= 0)
            report += " " + std::to_string(variants[i].index) + (j > i ? "-" + std::to_string(variants[j].index) : "");
        report += ": " + outcomes[i] + "\n";
    }
    return report;
}

TEST_F(EntityFileTest, StateFileMatchesTheLayoutByteForByteAndReplacesTheOldFileOnlyOnceComplete) {
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
    EXPECT_EQ(std::distance(fs::directory_iterator(fs::path(path).parent_path()), fs::directory_iterator()), 1)
        << "no temporary file is left";
    Bytes const file = ReadBytes(path);
    EXPECT_EQ(file, ExpectedState(*entity, 0, SavedBlob));
    // Spot checks at fixed offsets, so that a mistake in the expectation cannot hide one in the writer.
    ASSERT_EQ(file.size(), Base + 158 + SavedBlob.size() + 4);
    EXPECT_EQ(At<double>(file, Base + 56), 0.1) << "orientation starts with w";
    EXPECT_EQ(At<uint64_t>(file, Base + 150), SavedBlob.size());
    auto const ghost = Reader(NextId());
    WriteOnlyStream out;
    ghost->WriteState(out);
    EXPECT_EQ(BytesOf(out), ExpectedState(*ghost, 1, {})) << "without an interface the blob is empty";
}

TEST_F(EntityFileTest, SavesSyncTheFileAndItsFolderAndAFailedSyncKeepsTheOldFile) {
    Ptr entity = MakeSaved();
    syncCalls = 0;
    entity->Serialize();
    EXPECT_EQ(syncCalls, 2) << "the new file, then the folder that holds its new name";
    Bytes const old = ReadBytes(entity->GetStateSaveFile());
    entity->position.x = 9.0, syncFailures = 1;
    EXPECT_THROW(entity->Serialize(), std::runtime_error);
    EXPECT_EQ(ReadBytes(entity->GetStateSaveFile()), old);
    entity->angularVelocity.z = INFINITY; // never written over a good file
    EXPECT_THROW(entity->Serialize(), std::runtime_error);
    EXPECT_EQ(ReadBytes(entity->GetStateSaveFile()), old);
    EXPECT_FALSE(fs::exists(entity->GetStateSaveFile() + ".tmp"));
}

TEST_F(EntityFileTest, DamagedAndCutStateFilesFailWithTheirTextAndChangeNothing) {
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
}

/// Changes every field a checkpoint holds.
void Scramble(ServerSideEntity& entity) {
    entity.position = glm::dvec3(-1.0), entity.orientation = glm::dquat(1.0, 0.0, 0.0, 0.0);
    entity.linearVelocity = entity.angularVelocity = glm::dvec3(0.0);
    entity.parentEntity = Id(), entity.environmentId = entity.orbitEnvironmentId = 0, entity.isDynamic = false;
}

std::string DeserializeCheckpointOutput(ServerSideEntity& entity) {
    testing::internal::CaptureStderr();
    entity.DeserializeCheckpoint();
    return testing::internal::GetCapturedStderr();
}

TEST_F(EntityFileTest, CheckpointMatchesTheLayoutAndReadsBack) {
    // DeserializeState overridden in a base class of the module's class is still called.
    Ptr const entity = MakeSaved("derived"), copy = MakeSaved("derived");
    for (Ptr const& e : {entity, copy})
        e->parentEntity = Id(), e->isDynamic = false; // no parent, so the parent walk keeps the environments
    entity->restTime = 1.5;
    entity->SerializeCheckpoint();
    Bytes const file = ReadBytes(entity->GetCheckpointSaveFile());
    EXPECT_EQ(file, ExpectedCheckpoint(*entity));
    ASSERT_EQ(file.size(), 173u + CheckpointBlob.size()) << "no end marker";
    EXPECT_EQ(At<double>(file, 52), 0.1) << "orientation starts with w";
    EXPECT_EQ(At<uint64_t>(file, 148), 0x1122334455667788ull);

    Scramble(*entity);
    entity->isDynamic = true;
    EXPECT_EQ(DeserializeCheckpointOutput(*entity), "");
    EXPECT_EQ(ExpectedState(*entity, 0, {}), ExpectedState(*copy, 0, {})) << "every saved field reads back";
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
}

TEST_F(EntityFileTest, RejectedCheckpointChangesNothingAndPrintsOneLine) {
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
        EXPECT_TRUE(entity->position == glm::dvec3(-1.0) && !entity->parentEntity.IsSet() &&
                    entity->environmentId == 5u && entity->isDynamic && entity->restTime == 2.0 &&
                    hookLog.deserializeCalls == 0)
            << "a rejected checkpoint changes nothing";
        return output.substr(0, output.size() - 1);
    };
    std::vector<Variant> const foreign = {
        {"another entity's checkpoint", -1, ReadBytes(other->GetCheckpointSaveFile())}};
    ExpectGolden(DamageReport(ReadBytes(path), path, foreign, read), "entity/damaged_checkpoint.txt");
}

} // namespace
