// State and checkpoint files of server entities: the exact bytes, round trips,
// the error texts, damaged and cut files, and how a save replaces a file.
#include <gtest/gtest.h>

#include "support/TempDir.hpp"

#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "game/Game.hpp"
#include "game/entity/EntityConfig.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "nerox/filesystem/Stream.hpp"
#include "nerox/modular/ModuleID.hpp"

using game::entity::EnvironmentId;
using game::entity::Id;
using game::entity::ServerSideEntity;
using nerox::filesystem::ReadOnlyStream;
using nerox::filesystem::WriteOnlyStream;
using nerox::modular::ModuleID;
using Bytes = std::vector<unsigned char>;

namespace fs = std::filesystem;

namespace {

// ---------------------------------------------------------------------------
// Helpers

/// Raw bytes built by hand, independent of the stream classes.
struct ByteBuilder {
    Bytes bytes;

    template <class T>
    ByteBuilder& Raw(T const& value)
    {
        unsigned char const* begin = reinterpret_cast<unsigned char const*>(&value);
        bytes.insert(bytes.end(), begin, begin + sizeof(T));
        return *this;
    }
    ByteBuilder& Chars(char const* text, size_t size)
    {
        bytes.insert(bytes.end(), text, text + size);
        return *this;
    }
    /// A length-prefixed block: uint64 byte count, then the bytes.
    ByteBuilder& Block(Bytes const& block)
    {
        Raw(static_cast<uint64_t>(block.size()));
        bytes.insert(bytes.end(), block.begin(), block.end());
        return *this;
    }
    ByteBuilder& Vector(glm::dvec3 const& value) { return Raw(value.x).Raw(value.y).Raw(value.z); }
    ByteBuilder& Quaternion(glm::dquat const& value) { return Raw(value.w).Raw(value.x).Raw(value.y).Raw(value.z); }
    ByteBuilder& IdBytes(Id const& value) { return Raw(value.first).Raw(value.second); }
};

Bytes ReadFile(std::string const& path)
{
    std::string const text = testsupport::ReadText(path);
    return Bytes(text.begin(), text.end());
}

void WriteFile(std::string const& path, Bytes const& bytes)
{
    testsupport::WriteText(path, std::string(bytes.begin(), bytes.end()));
}

template <class T>
T At(Bytes const& bytes, size_t offset)
{
    T value{};
    EXPECT_LE(offset + sizeof(T), bytes.size());
    if (offset + sizeof(T) <= bytes.size())
        std::memcpy(&value, bytes.data() + offset, sizeof(T));
    return value;
}

template <class T>
void Put(Bytes& bytes, size_t offset, T const& value)
{
    ASSERT_LE(offset + sizeof(T), bytes.size());
    std::memcpy(bytes.data() + offset, &value, sizeof(T));
}

Bytes BytesOf(nerox::filesystem::Stream const& stream)
{
    auto const span = stream.ReadableBytes();
    return Bytes(span.begin(), span.end());
}

glm::dquat Quat(double w, double x, double y, double z)
{
    glm::dquat q;
    q.w = w;
    q.x = x;
    q.y = y;
    q.z = z;
    return q;
}

/// What the probe interfaces saw.
struct Record {
    int loadCalls = 0;
    Bytes loaded;
    int deserializeCalls = 0;
    Bytes deserialized;
};
Record record;

Bytes const SavedBlob = {'s', 't', 'a', 't', 'e', 0, 1, 2, 0xFF};
Bytes const CheckpointBlob = {'c', 'k', 0, 0x80, 7};

/// A module's behaviour object that writes known blobs and remembers what it reads.
class ProbeInterface : public ServerSideEntity::Interface {
public:
    void SaveState(WriteOnlyStream& stream) override { stream.Write(SavedBlob.data(), SavedBlob.size()); }
    void LoadState(ReadOnlyStream& stream) override
    {
        ++record.loadCalls;
        record.loaded = BytesOf(stream);
    }
    void SerializeState(WriteOnlyStream& stream) override
    {
        stream.Write(CheckpointBlob.data(), CheckpointBlob.size());
    }
    void DeserializeState(ReadOnlyStream& stream) override
    {
        ++record.deserializeCalls;
        record.deserialized = BytesOf(stream);
    }
};

/// Overrides DeserializeState only through its base class.
class DerivedProbeInterface : public ProbeInterface {};

/// Writes a checkpoint blob but keeps the default DeserializeState.
class PlainInterface : public ServerSideEntity::Interface {
public:
    void SerializeState(WriteOnlyStream& stream) override
    {
        stream.Write(CheckpointBlob.data(), CheckpointBlob.size());
    }
};

ModuleID const TestModule("TEST_statefiles");

/// A fresh entity id. Generated ids come from the clock and a random part, and
/// may repeat when many are made within one microsecond.
Id NextId()
{
    static uint64_t serial = 0;
    return Id(game::UniqueId(0x0000000054544E45ull, 0x0100000000000000ull + ++serial)); // tag "ENTT"
}

class EntityStateFileTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        static std::atomic<int> counter{0};
        Game::_current_world =
            "stateFileTests_" + std::to_string(::getpid()) + "_" + std::to_string(counter++);
        world = "../Tessara-data/server/worlds/" + Game::_current_world;
        fs::remove_all(world);
        record = Record();
        Register<ProbeInterface>("probe");
        Register<DerivedProbeInterface>("derived");
        Register<PlainInterface>("plain");
    }

    void TearDown() override
    {
        ServerSideEntity::DestroyAll();
        ServerSideEntity::_registered_interfaces.erase(TestModule.String());
        ServerSideEntity::_module_entities.erase(TestModule.String());
        std::error_code ignored;
        fs::remove_all(world, ignored);
        Game::_current_world.clear();
    }

    template <class T>
    void Register(std::string const& type, std::shared_ptr<game::entity::EntityConfig> config = {})
    {
        auto& row = ServerSideEntity::_registered_interfaces[TestModule.String()][type];
        row.moduleId = TestModule;
        row.itemType = type;
        row.config = std::move(config);
        row.configLoaded = false;
        row.factory = [] { return std::make_shared<T>(); };
    }

    /// A registered entity of type with every saved field set to a distinct value.
    ServerSideEntity::Ptr MakeEntity(std::string const& type = "probe")
    {
        ServerSideEntity::Ptr entity = ServerSideEntity::Create(TestModule, type, NextId());
        entity->environmentId = 0x1122334455667788ull;
        entity->orbitEnvironmentId = 42;
        entity->parentEntity = Id(game::UniqueId(0x0102030405060708ull, 0x1112131415161718ull));
        entity->position = glm::dvec3(1.5, -2.25, 3.125);
        entity->orientation = Quat(0.1, 0.2, 0.3, 0.4);
        entity->isDynamic = true;
        entity->linearVelocity = glm::dvec3(4.0, 5.0, 6.0);
        entity->angularVelocity = glm::dvec3(-7.0, -8.0, -9.0);
        entity->boundingRadius = 12.5;
        entity->restTime = 0.0;
        return entity;
    }

    /// The state file bytes of entity, built from the table by hand.
    static Bytes ExpectedState(ServerSideEntity const& entity, uint8_t atRest, Bytes const& blob)
    {
        ByteBuilder b;
        b.Chars("TESSARA!", 8).Chars("ENTITY !", 8).Raw(uint32_t{1});
        b.Raw(entity.moduleId.vendor).Raw(entity.moduleId.name);
        b.Block(Bytes(entity.itemType.begin(), entity.itemType.end()));
        b.Raw(entity.environmentId).Raw(entity.orbitEnvironmentId).IdBytes(entity.parentEntity);
        b.Vector(entity.position).Quaternion(entity.orientation);
        b.Raw(uint8_t(entity.isDynamic ? 1 : 0));
        b.Vector(entity.linearVelocity).Vector(entity.angularVelocity).Raw(entity.boundingRadius);
        b.Raw(atRest).Chars("\n\n\n\n", 4).Block(blob).Chars("\nEOF", 4);
        return b.bytes;
    }

    /// Offset of the field after itemType in a state file.
    static size_t AfterItemType(std::string const& itemType) { return 36 + 8 + itemType.size(); }

    /// Forgets entity without touching its files.
    static void Unload(ServerSideEntity::Ptr& entity)
    {
        Id const id = entity->GetID();
        entity->deleteFilesOnDestroy = false;
        entity.reset();
        ServerSideEntity::Destroy(id);
    }

    /// The error text Deserialize gives for the file's current content.
    static std::string DeserializeError(ServerSideEntity& entity)
    {
        try {
            entity.Deserialize();
        } catch (std::runtime_error const& error) {
            return error.what();
        }
        return "(no error)";
    }

    std::string world;
};

void ExpectSameSavedFields(ServerSideEntity const& loaded, ServerSideEntity const& saved)
{
    EXPECT_EQ(loaded.moduleId, saved.moduleId);
    EXPECT_EQ(loaded.itemType, saved.itemType);
    EXPECT_EQ(loaded.environmentId, saved.environmentId);
    EXPECT_EQ(loaded.orbitEnvironmentId, saved.orbitEnvironmentId);
    EXPECT_EQ(loaded.parentEntity, saved.parentEntity);
    EXPECT_EQ(loaded.position, saved.position);
    EXPECT_EQ(loaded.orientation.w, saved.orientation.w);
    EXPECT_EQ(loaded.orientation.x, saved.orientation.x);
    EXPECT_EQ(loaded.orientation.y, saved.orientation.y);
    EXPECT_EQ(loaded.orientation.z, saved.orientation.z);
    EXPECT_EQ(loaded.isDynamic, saved.isDynamic);
    EXPECT_EQ(loaded.linearVelocity, saved.linearVelocity);
    EXPECT_EQ(loaded.angularVelocity, saved.angularVelocity);
}

// ---------------------------------------------------------------------------
// State file layout

TEST_F(EntityStateFileTest, StateFileMatchesTheTableByteForByte)
{
    ServerSideEntity::Ptr entity = MakeEntity();
    entity->Serialize();
    Bytes const file = ReadFile(entity->GetStateSaveFile());
    EXPECT_EQ(file, ExpectedState(*entity, 0, SavedBlob));

    // Spot checks at fixed offsets, so a mistake in the expectation above cannot hide one in the writer.
    ASSERT_EQ(file.size(), AfterItemType("probe") + 158 + SavedBlob.size() + 4);
    EXPECT_EQ(std::string(file.begin(), file.begin() + 16), "TESSARA!ENTITY !");
    EXPECT_EQ(At<uint32_t>(file, 16), 1u);
    EXPECT_EQ(At<uint64_t>(file, 20), TestModule.vendor);
    EXPECT_EQ(At<uint64_t>(file, 28), TestModule.name);
    EXPECT_EQ(At<uint64_t>(file, 36), 5u);
    EXPECT_EQ(std::string(file.begin() + 44, file.begin() + 49), "probe");
    size_t const base = AfterItemType("probe");
    EXPECT_EQ(At<uint64_t>(file, base), 0x1122334455667788ull);
    EXPECT_EQ(At<uint64_t>(file, base + 8), 42u);
    EXPECT_EQ(At<uint64_t>(file, base + 16), 0x0102030405060708ull);
    EXPECT_EQ(At<uint64_t>(file, base + 24), 0x1112131415161718ull);
    EXPECT_EQ(At<double>(file, base + 32), 1.5);
    EXPECT_EQ(At<double>(file, base + 48), 3.125);
    EXPECT_EQ(At<double>(file, base + 56), 0.1) << "orientation starts with w";
    EXPECT_EQ(At<double>(file, base + 64), 0.2);
    EXPECT_EQ(At<double>(file, base + 72), 0.3);
    EXPECT_EQ(At<double>(file, base + 80), 0.4);
    EXPECT_EQ(At<uint8_t>(file, base + 88), 1);
    EXPECT_EQ(At<double>(file, base + 89), 4.0);
    EXPECT_EQ(At<double>(file, base + 113), -7.0);
    EXPECT_EQ(At<double>(file, base + 137), 12.5);
    EXPECT_EQ(At<uint8_t>(file, base + 145), 0);
    EXPECT_EQ(std::string(file.begin() + base + 146, file.begin() + base + 150), "\n\n\n\n");
    EXPECT_EQ(At<uint64_t>(file, base + 150), SavedBlob.size());
    EXPECT_EQ(Bytes(file.begin() + base + 158, file.end() - 4), SavedBlob);
    EXPECT_EQ(std::string(file.end() - 4, file.end()), "\nEOF");

    // WriteState gives the same bytes without the file.
    WriteOnlyStream out;
    entity->WriteState(out);
    EXPECT_EQ(BytesOf(out), file);
}

TEST_F(EntityStateFileTest, AtRestFlagFollowsDynamicAndRestTime)
{
    struct Case {
        bool dynamic;
        double restTime;
        uint8_t flag;
    };
    for (Case const c : {Case{false, 0.0, 1}, Case{false, 0.5, 1}, Case{false, 3.0, 1}, Case{true, 0.0, 0},
                         Case{true, 0.5, 0}, Case{true, 0.999, 0}, Case{true, 1.0, 1}, Case{true, 2.0, 1}}) {
        ServerSideEntity::Ptr entity = MakeEntity();
        entity->isDynamic = c.dynamic;
        entity->restTime = c.restTime;
        WriteOnlyStream out;
        entity->WriteState(out);
        Bytes const bytes = BytesOf(out);
        EXPECT_EQ(At<uint8_t>(bytes, AfterItemType("probe") + 145), c.flag)
            << "dynamic " << c.dynamic << " restTime " << c.restTime;
        EXPECT_EQ(bytes, ExpectedState(*entity, c.flag, SavedBlob));
    }
}

TEST_F(EntityStateFileTest, EntityWithoutInterfaceSavesAnEmptyBlob)
{
    ServerSideEntity entity(ModuleID("NOBODY_absent"), "ghost", NextId());
    entity.deleteFilesOnDestroy = false;
    entity.isDynamic = false;
    WriteOnlyStream out;
    entity.WriteState(out);
    EXPECT_EQ(BytesOf(out), ExpectedState(entity, 1, {}));
}

// ---------------------------------------------------------------------------
// State file round trips

TEST_F(EntityStateFileTest, RoundTripThroughTheFileRestoresFieldsAndBlob)
{
    ServerSideEntity::Ptr saved = MakeEntity();
    Id const id = saved->GetID();
    saved->Serialize();
    Bytes const file = ReadFile(saved->GetStateSaveFile());

    // An unregistered entity read through Deserialize gets every field and the blob.
    ServerSideEntity reader(ModuleID("NOBODY_absent"), "ghost", id);
    reader.deleteFilesOnDestroy = false;
    ReadOnlyStream blob = reader.Deserialize();
    ExpectSameSavedFields(reader, *saved);
    EXPECT_EQ(reader.boundingRadius, 12.5);
    EXPECT_EQ(reader.restTime, 0.0);
    EXPECT_EQ(BytesOf(blob), SavedBlob);

    // The load path: a new entity from the file, its interface fed the blob.
    Unload(saved);
    ServerSideEntity::Ptr const check = MakeEntity(); // the same field values for comparison
    std::shared_ptr<ServerSideEntity::Interface> const loaded = ServerSideEntity::Interface::Create(id);
    ASSERT_TRUE(loaded);
    ServerSideEntity::Ptr const entity = ServerSideEntity::Get(id);
    ASSERT_TRUE(entity);
    ExpectSameSavedFields(*entity, *check);
    EXPECT_EQ(record.loadCalls, 1);
    EXPECT_EQ(record.loaded, SavedBlob);
    EXPECT_EQ(ReadFile(entity->GetStateSaveFile()), file) << "loading leaves the file as it was";
}

TEST_F(EntityStateFileTest, AtRestEntityReadsBackWithRestTimeTwo)
{
    ServerSideEntity::Ptr entity = MakeEntity();
    entity->restTime = 1.0;
    entity->Serialize();
    ServerSideEntity reader(ModuleID("NOBODY_absent"), "ghost", entity->GetID());
    reader.deleteFilesOnDestroy = false;
    reader.Deserialize();
    EXPECT_EQ(reader.restTime, 2.0);

    // An awake one leaves restTime as it was.
    entity->restTime = 0.5;
    entity->Serialize();
    reader.restTime = 0.25;
    reader.Deserialize();
    EXPECT_EQ(reader.restTime, 0.25);

    // Any non-zero flag byte counts as at rest.
    Bytes file = ReadFile(entity->GetStateSaveFile());
    Put<uint8_t>(file, AfterItemType("probe") + 145, 0x7F);
    WriteFile(entity->GetStateSaveFile(), file);
    reader.Deserialize();
    EXPECT_EQ(reader.restTime, 2.0);
}

TEST_F(EntityStateFileTest, BoundingRadiusIsSavedButRecomputedOnLoad)
{
    testsupport::TempDir dir;
    std::string const description = dir.File("box.txt");
    testsupport::WriteText(description, "[ENTITY]\nmass 2\n\n[COLLIDER hull]\nbox_min -1 -2 -2\nbox_max 1 2 2\n");
    Register<ProbeInterface>("box", std::make_shared<game::entity::EntityConfig>(description));

    ServerSideEntity::Ptr entity = MakeEntity("box");
    ASSERT_DOUBLE_EQ(entity->boundingRadius, 12.5); // set by MakeEntity over the computed 3
    entity->boundingRadius = 99.0;
    entity->Serialize();
    Id const id = entity->GetID();
    EXPECT_EQ(At<double>(ReadFile(entity->GetStateSaveFile()), AfterItemType("box") + 137), 99.0);
    Unload(entity);

    ServerSideEntity reader(ModuleID("NOBODY_absent"), "ghost", id);
    reader.deleteFilesOnDestroy = false;
    reader.Deserialize();
    EXPECT_EQ(reader.boundingRadius, 99.0) << "the field is read";

    ASSERT_TRUE(ServerSideEntity::Interface::Create(id));
    EXPECT_DOUBLE_EQ(ServerSideEntity::Get(id)->boundingRadius, 3.0) << "the description's box wins";
}

// ---------------------------------------------------------------------------
// State file errors

TEST_F(EntityStateFileTest, EachFailureHasItsTextFollowedByTheEntityId)
{
    ServerSideEntity::Ptr entity = MakeEntity();
    std::string const name = static_cast<std::string>(entity->GetID());
    ASSERT_EQ(name.size(), 28u);
    std::string const path = entity->GetStateSaveFile();

    EXPECT_EQ(DeserializeError(*entity), "Save state file does not exist for entity " + name);

    entity->Serialize();
    Bytes const good = ReadFile(path);
    struct Damage {
        size_t offset;
        uint8_t value;
        std::string text;
    };
    size_t const base = AfterItemType("probe");
    for (Damage const& d : {Damage{0, 'X', "Invalid save state magic string for entity "},
                            Damage{7, '?', "Invalid save state magic string for entity "},
                            Damage{8, 'e', "Invalid save state magic string for entity "},
                            Damage{15, '.', "Invalid save state magic string for entity "},
                            Damage{16, 2, "Invalid save state version for entity "},
                            Damage{16, 0, "Invalid save state version for entity "},
                            Damage{19, 1, "Invalid save state version for entity "},
                            Damage{base + 146, '\r', "Invalid save state interface magic string for entity "},
                            Damage{base + 149, 0, "Invalid save state interface magic string for entity "}}) {
        Bytes damaged = good;
        damaged[d.offset] = d.value;
        WriteFile(path, damaged);
        EXPECT_EQ(DeserializeError(*entity), d.text + name) << "byte " << d.offset;
        EXPECT_EQ(ReadFile(path), damaged) << "the file stays as it was";
    }
}

TEST_F(EntityStateFileTest, DamagedFileStopsTheLoadAndStaysOnDisk)
{
    ServerSideEntity::Ptr entity = MakeEntity();
    Id const id = entity->GetID();
    std::string const path = entity->GetStateSaveFile();
    entity->Serialize();
    Unload(entity);
    Bytes damaged = ReadFile(path);
    damaged[16] = 9;
    WriteFile(path, damaged);

    EXPECT_THROW(ServerSideEntity::LoadAllEntities(), std::runtime_error);
    EXPECT_FALSE(ServerSideEntity::Get(id));
    EXPECT_EQ(ReadFile(path), damaged);
}

TEST_F(EntityStateFileTest, CutFileLoadsOnlyWhenTheCutIsInsideTheEndMarker)
{
    ServerSideEntity::Ptr const entity = MakeEntity();
    std::string const path = entity->GetStateSaveFile();
    entity->Serialize();
    Bytes const good = ReadFile(path);
    ASSERT_GT(good.size(), 4u);

    ServerSideEntity reader(ModuleID("NOBODY_absent"), "ghost", entity->GetID());
    reader.deleteFilesOnDestroy = false;
    for (size_t length = 0; length < good.size(); ++length) {
        Bytes const cut(good.begin(), good.begin() + length);
        WriteFile(path, cut);
        reader.position = glm::dvec3(0.0);
        if (length >= good.size() - 4) {
            ReadOnlyStream blob;
            EXPECT_NO_THROW(blob = reader.Deserialize()) << "length " << length;
            EXPECT_EQ(BytesOf(blob), SavedBlob) << "length " << length;
            EXPECT_EQ(reader.position, entity->position) << "length " << length;
        } else {
            EXPECT_THROW(reader.Deserialize(), std::runtime_error) << "length " << length;
        }
        EXPECT_EQ(ReadFile(path), cut) << "length " << length;
    }
}

TEST_F(EntityStateFileTest, LengthPrefixPastTheEndThrows)
{
    ServerSideEntity::Ptr const entity = MakeEntity();
    WriteOnlyStream out;
    entity->WriteState(out);
    Bytes const good = BytesOf(out);
    size_t const blobLength = AfterItemType("probe") + 150;
    size_t const remainingAfterBlobLength = good.size() - blobLength - 8;

    ServerSideEntity reader(ModuleID("NOBODY_absent"), "ghost", NextId());
    reader.deleteFilesOnDestroy = false;
    // The blob may take the end marker's bytes (it is never read), but not one more.
    for (uint64_t length : {uint64_t(remainingAfterBlobLength + 1), uint64_t(1) << 40, ~uint64_t(0)}) {
        Bytes damaged = good;
        Put(damaged, blobLength, length);
        ReadOnlyStream in(damaged);
        EXPECT_THROW(reader.ReadState(in), std::runtime_error) << "blob length " << length;
    }
    for (uint64_t length : {uint64_t(good.size()), uint64_t(1) << 40, ~uint64_t(0)}) {
        Bytes damaged = good;
        Put(damaged, 36, length);
        ReadOnlyStream in(damaged);
        EXPECT_THROW(reader.ReadState(in), std::runtime_error) << "itemType length " << length;
    }
    EXPECT_EQ(reader.itemType, "ghost") << "a failed read changes nothing";
}

// ---------------------------------------------------------------------------
// Replacing the state file

TEST_F(EntityStateFileTest, SaveReplacesTheOldFileOnlyOnceComplete)
{
    ServerSideEntity::Ptr const entity = MakeEntity();
    std::string const path = entity->GetStateSaveFile();
    entity->Serialize();
    Bytes const old = ReadFile(path);
    fs::path const folder = fs::path(path).parent_path();
    auto leftovers = [&folder] {
        std::vector<std::string> names;
        for (auto const& entry : fs::directory_iterator(folder)) {
            if (entry.path().extension() != ".entitystate")
                names.push_back(entry.path().filename().string());
        }
        return names;
    };
    EXPECT_EQ(leftovers(), std::vector<std::string>{});

    // A folder where the temporary file would go makes the write fail, for root as well.
    std::string const blocker = path + ".tmp";
    fs::create_directory(blocker);
    testsupport::WriteText(blocker + "/keep", "x");
    entity->position = glm::dvec3(100.0, 200.0, 300.0);
    EXPECT_THROW(entity->Serialize(), std::runtime_error);
    EXPECT_EQ(ReadFile(path), old);
    fs::remove_all(blocker);

    entity->Serialize();
    Bytes const replaced = ReadFile(path);
    EXPECT_EQ(replaced, ExpectedState(*entity, 0, SavedBlob));
    EXPECT_EQ(leftovers(), std::vector<std::string>{});
}

// ---------------------------------------------------------------------------
// Checkpoint files

class EntityCheckpointTest : public EntityStateFileTest {
protected:
    /// The checkpoint bytes of entity, built from the table by hand.
    static Bytes ExpectedCheckpoint(ServerSideEntity const& entity, Bytes const& blob)
    {
        ByteBuilder b;
        b.Chars("CHECKPNT", 8).Raw(uint32_t{0}).IdBytes(entity.GetID());
        b.Vector(entity.position).Quaternion(entity.orientation);
        b.Vector(entity.linearVelocity).Vector(entity.angularVelocity);
        b.IdBytes(entity.parentEntity).Raw(entity.environmentId).Raw(entity.orbitEnvironmentId);
        b.Raw(uint8_t(entity.isDynamic ? 1 : 0)).Block(blob);
        return b.bytes;
    }

    /// Changes every field a checkpoint holds.
    static void Scramble(ServerSideEntity& entity)
    {
        entity.position = glm::dvec3(-1.0);
        entity.orientation = Quat(1.0, 0.0, 0.0, 0.0);
        entity.linearVelocity = glm::dvec3(0.0);
        entity.angularVelocity = glm::dvec3(0.0);
        entity.parentEntity = Id();
        entity.environmentId = 0;
        entity.orbitEnvironmentId = 0;
        entity.isDynamic = false;
    }

    /// Runs DeserializeCheckpoint and returns what it printed to the error stream.
    static std::string DeserializeCheckpointOutput(ServerSideEntity& entity)
    {
        testing::internal::CaptureStderr();
        entity.DeserializeCheckpoint();
        return testing::internal::GetCapturedStderr();
    }
};

TEST_F(EntityCheckpointTest, CheckpointMatchesTheTableByteForByte)
{
    ServerSideEntity::Ptr const entity = MakeEntity();
    entity->SerializeCheckpoint();
    EXPECT_EQ(entity->GetCheckpointSaveFile(), ServerSideEntity::GetCheckpointDir() + "/" +
                                                   static_cast<std::string>(entity->GetID()) + ".checkpoint");
    Bytes const file = ReadFile(entity->GetCheckpointSaveFile());
    EXPECT_EQ(file, ExpectedCheckpoint(*entity, CheckpointBlob));

    ASSERT_EQ(file.size(), 165u + 8u + CheckpointBlob.size());
    EXPECT_EQ(std::string(file.begin(), file.begin() + 8), "CHECKPNT");
    EXPECT_EQ(At<uint32_t>(file, 8), 0u);
    EXPECT_EQ(At<uint64_t>(file, 12), entity->GetID().first);
    EXPECT_EQ(At<uint64_t>(file, 20), entity->GetID().second);
    EXPECT_EQ(At<double>(file, 28), 1.5);
    EXPECT_EQ(At<double>(file, 52), 0.1) << "orientation starts with w";
    EXPECT_EQ(At<double>(file, 76), 0.4);
    EXPECT_EQ(At<double>(file, 84), 4.0);
    EXPECT_EQ(At<double>(file, 108), -7.0);
    EXPECT_EQ(At<uint64_t>(file, 132), 0x0102030405060708ull);
    EXPECT_EQ(At<uint64_t>(file, 148), 0x1122334455667788ull);
    EXPECT_EQ(At<uint64_t>(file, 156), 42u);
    EXPECT_EQ(At<uint8_t>(file, 164), 1);
    EXPECT_EQ(At<uint64_t>(file, 165), CheckpointBlob.size());
    EXPECT_EQ(Bytes(file.begin() + 173, file.end()), CheckpointBlob) << "no end marker";
}

TEST_F(EntityCheckpointTest, RoundTripRestoresFieldsAndFeedsTheBlob)
{
    ServerSideEntity::Ptr const entity = MakeEntity();
    entity->parentEntity = Id(); // no parent, so the parent walk keeps the environments
    entity->isDynamic = false;
    entity->restTime = 1.5;
    ServerSideEntity::Ptr const copy = MakeEntity();
    copy->parentEntity = Id();
    copy->isDynamic = false;
    entity->SerializeCheckpoint();

    Scramble(*entity);
    entity->isDynamic = true;
    EXPECT_EQ(DeserializeCheckpointOutput(*entity), "");
    ExpectSameSavedFields(*entity, *copy);
    EXPECT_EQ(entity->restTime, 1.5) << "a static entity keeps its restTime";
    EXPECT_EQ(record.deserializeCalls, 1);
    EXPECT_EQ(record.deserialized, CheckpointBlob);
}

TEST_F(EntityCheckpointTest, CheckpointOfADynamicEntityWakesIt)
{
    ServerSideEntity::Ptr const entity = MakeEntity();
    entity->isDynamic = true;
    entity->SerializeCheckpoint();
    entity->restTime = 2.0;
    entity->isDynamic = false;
    entity->DeserializeCheckpoint();
    EXPECT_TRUE(entity->isDynamic);
    EXPECT_EQ(entity->restTime, 0.0);
}

TEST_F(EntityCheckpointTest, ReadingRunsTheParentWalk)
{
    ServerSideEntity::Ptr const parent = MakeEntity();
    parent->parentEntity = Id();
    parent->environmentId = 900;
    parent->orbitEnvironmentId = 901;
    parent->isDynamic = true;
    parent->restTime = 0.0;
    ServerSideEntity::Ptr const child = MakeEntity();
    child->parentEntity = parent->GetID();
    child->SerializeCheckpoint();
    child->settled = true;
    child->DeserializeCheckpoint();
    EXPECT_EQ(child->parentEntity, parent->GetID());
    EXPECT_EQ(child->environmentId, 900u) << "the parent's environment wins over the file's";
    EXPECT_EQ(child->orbitEnvironmentId, 901u);
    EXPECT_TRUE(child->parentMoving);
    EXPECT_FALSE(child->settled);
}

TEST_F(EntityCheckpointTest, RejectedCheckpointChangesNothingAndPrintsOneLine)
{
    ServerSideEntity::Ptr const entity = MakeEntity();
    ServerSideEntity::Ptr const other = MakeEntity();
    other->position = glm::dvec3(77.0);
    other->SerializeCheckpoint();
    Bytes const foreign = ReadFile(other->GetCheckpointSaveFile());
    entity->SerializeCheckpoint();
    Bytes const own = ReadFile(entity->GetCheckpointSaveFile());

    Bytes badMagic = own;
    badMagic[3] = 'c';
    Bytes badVersion = own;
    Put<uint32_t>(badVersion, 8, 1);
    struct Case {
        Bytes file;
        std::string output;
    };
    for (Case const& c : {Case{foreign, "Invalid checkpoint parent entity ID\n"},
                          Case{badMagic, "Invalid checkpoint file\n"},
                          Case{badVersion, "Unsupported checkpoint version\n"}}) {
        WriteFile(entity->GetCheckpointSaveFile(), c.file);
        Scramble(*entity);
        entity->isDynamic = true;
        entity->restTime = 2.0;
        entity->environmentId = 5;
        record = Record();
        EXPECT_EQ(DeserializeCheckpointOutput(*entity), c.output);
        EXPECT_EQ(entity->position, glm::dvec3(-1.0));
        EXPECT_EQ(entity->parentEntity, Id());
        EXPECT_EQ(entity->environmentId, 5u);
        EXPECT_TRUE(entity->isDynamic);
        EXPECT_EQ(entity->restTime, 2.0);
        EXPECT_EQ(record.deserializeCalls, 0);
        EXPECT_EQ(ReadFile(entity->GetCheckpointSaveFile()), c.file);
    }
}

TEST_F(EntityCheckpointTest, DeserializeStateIsCalledOnlyWhenOverridden)
{
    // Overridden in a base class of the module's class: still called.
    ServerSideEntity::Ptr const derived = MakeEntity("derived");
    derived->SerializeCheckpoint();
    derived->DeserializeCheckpoint();
    EXPECT_EQ(record.deserializeCalls, 1);
    EXPECT_EQ(record.deserialized, CheckpointBlob);

    // The default is skipped; the rest of the checkpoint is still read.
    record = Record();
    ServerSideEntity::Ptr const plain = MakeEntity("plain");
    plain->SerializeCheckpoint();
    EXPECT_EQ(ReadFile(plain->GetCheckpointSaveFile()), ExpectedCheckpoint(*plain, CheckpointBlob));
    plain->position = glm::dvec3(0.0);
    EXPECT_EQ(DeserializeCheckpointOutput(*plain), "");
    EXPECT_EQ(plain->position, glm::dvec3(1.5, -2.25, 3.125));
    EXPECT_EQ(record.deserializeCalls, 0);
}

} // namespace
