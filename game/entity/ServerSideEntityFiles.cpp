// The state and checkpoint files of server entities. All values are stored
// little-endian as they lie in memory, without padding; strings and the
// module's blob use the streams' length-prefixed form.
#include "game/entity/ServerSideEntity.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <initializer_list>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <stdexcept>

#include "nerox/Assert.hpp"
#include "nerox/cpu/Profiler.hpp"
#include "nerox/filesystem/BinaryFileStream.hpp"

namespace game::entity {

namespace {

using nerox::filesystem::ReadOnlyStream;
using nerox::filesystem::WriteOnlyStream;

static_assert(std::endian::native == std::endian::little, "entity files are little-endian memory images");

void WriteBytes(WriteOnlyStream& out, char const* bytes, size_t size) {
    out.Write(reinterpret_cast<unsigned char const*>(bytes), size);
}

void WriteId(WriteOnlyStream& out, Id const& value) {
    out.Write(value.first);
    out.Write(value.second);
}

void WriteVector(WriteOnlyStream& out, glm::dvec3 const& value) {
    out.Write(value.x);
    out.Write(value.y);
    out.Write(value.z);
}

void WriteQuaternion(WriteOnlyStream& out, glm::dquat const& value) {
    out.Write(value.w);
    out.Write(value.x);
    out.Write(value.y);
    out.Write(value.z);
}

/// Reads fields from a file held in memory; a field that runs past the end
/// throws Cut, which the callers turn into their own message.
class FieldReader {
public:
    struct Cut { };

    explicit FieldReader(ReadOnlyStream& in) : _in(in) { }

    template <class T> T Get() {
        Need(sizeof(T));
        T value;
        _in.Read(value);
        return value;
    }

    /// Whether the next size bytes equal bytes; a cut file does not match.
    bool Matches(char const* bytes, size_t size) {
        if (_in.Remaining() < size) return false;
        unsigned char found[8];
        _in.Read(found, size);
        return std::memcmp(found, bytes, size) == 0;
    }

    Id GetId() {
        uint64_t const first = Get<uint64_t>();
        uint64_t const second = Get<uint64_t>();
        return Id(UniqueId(first, second));
    }

    glm::dvec3 GetVector() {
        glm::dvec3 value;
        value.x = Get<double>();
        value.y = Get<double>();
        value.z = Get<double>();
        return value;
    }

    glm::dquat GetQuaternion() {
        glm::dquat value;
        value.w = Get<double>();
        value.x = Get<double>();
        value.y = Get<double>();
        value.z = Get<double>();
        return value;
    }

    bool GetBool() { return Get<uint8_t>() != 0; }

    std::string GetString() {
        std::string text;
        try {
            _in.Read(text); // checks its length against the rest before allocating
        } catch (std::runtime_error const&) {
            throw Cut{};
        }
        return text;
    }

    ReadOnlyStream GetBlob() {
        try {
            return _in.ReadStream();
        } catch (std::runtime_error const&) {
            throw Cut{};
        }
    }

private:
    void Need(size_t size) {
        if (_in.Remaining() < size) throw Cut{};
    }

    ReadOnlyStream& _in;
};

/// Writes bytes to path through a temporary file beside it, so that the old
/// file is replaced only by a complete new one, and waits until both the new
/// content and the rename are on the disk: after a power loss the path holds
/// the old file or the new one, never an empty or partial one.
void ReplaceFile(std::string const& path, WriteOnlyStream const& bytes) {
    namespace fs = std::filesystem;
    std::error_code error;
    std::string const folder = fs::path(path).parent_path().string();
    fs::create_directories(folder, error);
    std::string const temporary = path + ServerSideEntity::TemporaryExtension;
    try {
        nerox::filesystem::BinaryFileStream file(temporary, 1024, nerox::filesystem::BinaryFileStream::WriteTruncate);
        file.Write(bytes.Data(), bytes.Size());
        file.Sync();
        file.Close();
    } catch (...) {
        fs::remove(temporary, error);
        throw;
    }
    fs::rename(temporary, path, error);
    if (error) {
        std::error_code ignored;
        fs::remove(temporary, ignored);
        throw std::runtime_error("Could not replace " + path + ": " + error.message());
    }
    nerox::filesystem::BinaryFileStream::SyncFolder(folder);
}

/// The fields that state and checkpoint files both hold, read whole before
/// any of them is applied, so that a damaged file leaves the entity as it was.
/// The two formats keep them in different orders.
struct SavedPlacement {
    Id parent;
    glm::dvec3 position{0.0};
    glm::dquat orientation{1.0, 0.0, 0.0, 0.0};
    glm::dvec3 linearVelocity{0.0};
    glm::dvec3 angularVelocity{0.0};
    EnvironmentId environment = 0;
    EnvironmentId orbitEnvironment = 0;
    bool dynamic = false;

    /// The first field that holds a NaN or an infinity, or null when all are
    /// finite: such a value would be simulated and saved back forever.
    char const* NonFinite() const {
        auto const finite = [](std::initializer_list<double> values) {
            return std::all_of(values.begin(), values.end(), [](double value) { return std::isfinite(value); });
        };
        if (!finite({position.x, position.y, position.z})) return "position";
        if (!finite({orientation.w, orientation.x, orientation.y, orientation.z})) return "orientation";
        if (!finite({linearVelocity.x, linearVelocity.y, linearVelocity.z})) return "linear velocity";
        if (!finite({angularVelocity.x, angularVelocity.y, angularVelocity.z})) return "angular velocity";
        return nullptr;
    }

    void ApplyTo(ServerSideEntity& entity) const {
        entity.parentEntity = parent;
        entity.position = position;
        entity.orientation = orientation;
        entity.linearVelocity = linearVelocity;
        entity.angularVelocity = angularVelocity;
        entity.environmentId = environment;
        entity.orbitEnvironmentId = orbitEnvironment;
        entity.isDynamic = dynamic;
    }
};

} // namespace

// ---------------------------------------------------------------------------
// State file

void ServerSideEntity::WriteState(WriteOnlyStream& out) {
    WriteOnlyStream blob;
    if (_interface) _interface->SaveState(blob);

    WriteBytes(out, MAGICSTR1, sizeof(MAGICSTR1));
    WriteBytes(out, MAGICSTR2, sizeof(MAGICSTR2));
    out.Write(STATE_FILE_VERSION);
    out.Write(moduleId.vendor);
    out.Write(moduleId.name);
    out.Write(itemType);
    out.Write(environmentId);
    out.Write(orbitEnvironmentId);
    WriteId(out, parentEntity);
    WriteVector(out, position);
    WriteQuaternion(out, orientation);
    out.Write(static_cast<uint8_t>(isDynamic ? 1 : 0));
    WriteVector(out, linearVelocity);
    WriteVector(out, angularVelocity);
    out.Write(boundingRadius);
    out.Write(static_cast<uint8_t>(!isDynamic || restTime >= 1.0 ? 1 : 0));
    WriteBytes(out, MAGICSTR_INTERFACE, sizeof(MAGICSTR_INTERFACE));
    out.Write(static_cast<nerox::filesystem::Stream const&>(blob));
    WriteBytes(out, MAGICSTR_EOF, sizeof(MAGICSTR_EOF));
}

ReadOnlyStream ServerSideEntity::ReadState(ReadOnlyStream& in) {
    std::string const name = static_cast<std::string>(id);
    auto fail = [&name](char const* text) { return DamagedFileError(text + name); };

    FieldReader file(in);
    if (!file.Matches(MAGICSTR1, sizeof(MAGICSTR1)) || !file.Matches(MAGICSTR2, sizeof(MAGICSTR2)))
        throw fail("Invalid save state magic string for entity ");
    try {
        if (file.Get<uint32_t>() != STATE_FILE_VERSION) throw fail("Invalid save state version for entity ");
    } catch (FieldReader::Cut const&) {
        throw fail("Invalid save state version for entity ");
    }

    // Read everything before changing the entity, so that a damaged file leaves it as it was.
    try {
        nerox::modular::ModuleID module;
        module.vendor = file.Get<uint64_t>();
        module.name = file.Get<uint64_t>();
        std::string type = file.GetString();
        SavedPlacement saved;
        saved.environment = file.Get<uint64_t>();
        saved.orbitEnvironment = file.Get<uint64_t>();
        saved.parent = file.GetId();
        saved.position = file.GetVector();
        saved.orientation = file.GetQuaternion();
        saved.dynamic = file.GetBool();
        saved.linearVelocity = file.GetVector();
        saved.angularVelocity = file.GetVector();
        double const savedBoundingRadius = file.Get<double>();
        bool const atRest = file.GetBool();
        if (!file.Matches(MAGICSTR_INTERFACE, sizeof(MAGICSTR_INTERFACE)))
            throw fail("Invalid save state interface magic string for entity ");
        ReadOnlyStream blob = file.GetBlob();
        // The end marker is not read: a file cut inside it still loads.
        if (char const* field = saved.NonFinite())
            throw DamagedFileError(std::string("Save state file holds a non-finite ") + field + " for entity " + name);

        moduleId = module;
        itemType = std::move(type);
        saved.ApplyTo(*this);
        boundingRadius = savedBoundingRadius;
        if (atRest) restTime = 2.0; // at rest since before the load
        return blob;
    } catch (FieldReader::Cut const&) {
        throw fail("Save state file is cut short for entity ");
    }
}

uint64_t ServerSideEntity::StateHash(std::span<unsigned char const> bytes) {
    uint64_t const hash =
        std::hash<std::string_view>{}(std::string_view(reinterpret_cast<char const*>(bytes.data()), bytes.size()));
    return hash == 0 ? 1 : hash;
}

WriteOnlyStream ServerSideEntity::SaveBytes() {
    // A value that is not finite would never load again: keep the old file.
    SavedPlacement placement;
    placement.position = position, placement.orientation = orientation;
    placement.linearVelocity = linearVelocity, placement.angularVelocity = angularVelocity;
    if (char const* field = placement.NonFinite())
        throw std::runtime_error("Refused to save entity " + static_cast<std::string>(id) + ": its " + field +
                                 " is not finite (the old file is kept)");
    WriteOnlyStream bytes(256);
    WriteState(bytes);
    return bytes;
}

void ServerSideEntity::Serialize() {
    WriteOnlyStream const bytes = SaveBytes();
    ReplaceFile(GetStateSaveFile(), bytes);
    savedStateHash = StateHash(bytes.Bytes());
}

ReadOnlyStream ServerSideEntity::Deserialize() {
    std::string const path = GetStateSaveFile();
    std::error_code error;
    if (!std::filesystem::exists(std::filesystem::status(path, error)))
        throw DamagedFileError("Save state file does not exist for entity " + static_cast<std::string>(id));

    ReadOnlyStream contents;
    {
        nerox::filesystem::BinaryFileStream file(path, 0, nerox::filesystem::BinaryFileStream::ReadOnly);
        std::span<unsigned char const> const bytes = file.ReadableBytes();
        contents = ReadOnlyStream(bytes.data(), bytes.size());
    }
    uint64_t const hash = StateHash(contents.ReadableBytes());
    ReadOnlyStream blob = ReadState(contents);
    savedStateHash = hash;
    return blob;
}

// ---------------------------------------------------------------------------
// Checkpoint file

void ServerSideEntity::SerializeCheckpoint() {
    NEROX_ASSERT(_interface);
    WriteOnlyStream blob;
    _interface->SerializeState(blob);

    WriteOnlyStream out(256);
    WriteBytes(out, CHECKPOINT_MAGICSTR, sizeof(CHECKPOINT_MAGICSTR));
    out.Write(CHECKPOINT_FILE_VERSION);
    WriteId(out, id);
    WriteVector(out, position);
    WriteQuaternion(out, orientation);
    WriteVector(out, linearVelocity);
    WriteVector(out, angularVelocity);
    WriteId(out, parentEntity);
    out.Write(environmentId);
    out.Write(orbitEnvironmentId);
    out.Write(static_cast<uint8_t>(isDynamic ? 1 : 0));
    out.Write(static_cast<nerox::filesystem::Stream const&>(blob));
    ReplaceFile(GetCheckpointSaveFile(), out);
}

void ServerSideEntity::DeserializeCheckpoint() {
    std::string const path = GetCheckpointSaveFile();
    ReadOnlyStream contents;
    try {
        nerox::filesystem::BinaryFileStream file(path, 0, nerox::filesystem::BinaryFileStream::ReadOnly);
        std::span<unsigned char const> const bytes = file.ReadableBytes();
        contents = ReadOnlyStream(bytes.data(), bytes.size());
    } catch (std::runtime_error const& failure) {
        std::cerr << "Checkpoint file could not be read: " << failure.what() << std::endl;
        return;
    }

    FieldReader file(contents);
    if (!file.Matches(CHECKPOINT_MAGICSTR, sizeof(CHECKPOINT_MAGICSTR))) {
        std::cerr << "Invalid checkpoint file" << std::endl;
        return;
    }
    try {
        if (file.Get<uint32_t>() != CHECKPOINT_FILE_VERSION) {
            std::cerr << "Unsupported checkpoint version" << std::endl;
            return;
        }
        if (file.GetId() != id) {
            std::cerr << "Invalid checkpoint parent entity ID" << std::endl;
            return;
        }
        SavedPlacement saved;
        saved.position = file.GetVector();
        saved.orientation = file.GetQuaternion();
        saved.linearVelocity = file.GetVector();
        saved.angularVelocity = file.GetVector();
        saved.parent = file.GetId();
        saved.environment = file.Get<uint64_t>();
        saved.orbitEnvironment = file.Get<uint64_t>();
        saved.dynamic = file.GetBool();
        ReadOnlyStream blob = file.GetBlob();
        if (char const* field = saved.NonFinite()) {
            std::cerr << "Invalid checkpoint file: non-finite " << field << std::endl;
            return;
        }

        saved.ApplyTo(*this);
        if (isDynamic) restTime = 0.0;
        if (_interface && (_overriddenHooks & HookDeserializeState)) _interface->DeserializeState(blob);
    } catch (FieldReader::Cut const&) {
        std::cerr << "Invalid checkpoint file" << std::endl;
        return;
    }

    nerox::cpu::Profiler scope("ServerSideEntity::RefreshCache", true);
    RefreshFromParents();
}

} // namespace game::entity
