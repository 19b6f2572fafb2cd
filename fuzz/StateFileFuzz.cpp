// Fuzzes the entity state file reader: arbitrary bytes read into an entity of
// a module that is not loaded. A file that reads must write back into bytes
// that read again to the same fields.
#include "FuzzSupport.hpp"
#include "game/entity/ServerSideEntity.hpp"

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

using fuzzsupport::Check;
using fuzzsupport::SilenceErrors;
using game::entity::Id;
using game::entity::ServerSideEntity;
using nerox::filesystem::ReadOnlyStream;
using nerox::filesystem::WriteOnlyStream;

namespace {

Id const FuzzId{game::UniqueId(0x0000000054544E45ull, 0x0123456789ABCDEFull)};

/// Bitwise equality, so that NaN fields compare equal to themselves.
template <class T> bool Same(T const& a, T const& b) {
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    SilenceErrors();
    nerox::modular::ModuleID const unknown;
    ServerSideEntity entity(unknown, "fuzz", FuzzId);
    entity.deleteFilesOnDestroy = false;

    ReadOnlyStream in(data, size);
    ReadOnlyStream blob;
    try {
        blob = entity.ReadState(in);
    } catch (std::runtime_error const&) {
        Check(entity.itemType == "fuzz"); // a failed read leaves the entity as it was
        return 0;
    }
    Check(blob.Size() + 158 <= size);

    // What was read writes back and reads again to the same fields.
    WriteOnlyStream out;
    entity.WriteState(out);
    ReadOnlyStream again(out.Bytes());
    ServerSideEntity copy(unknown, "other", FuzzId);
    copy.deleteFilesOnDestroy = false;
    ReadOnlyStream emptyBlob = copy.ReadState(again);
    Check(emptyBlob.Size() == 0);
    Check(copy.moduleId == entity.moduleId && copy.itemType == entity.itemType);
    Check(copy.environmentId == entity.environmentId && copy.orbitEnvironmentId == entity.orbitEnvironmentId);
    Check(copy.parentEntity == entity.parentEntity && copy.isDynamic == entity.isDynamic);
    Check(Same(copy.position, entity.position) && Same(copy.orientation, entity.orientation));
    Check(Same(copy.linearVelocity, entity.linearVelocity) && Same(copy.angularVelocity, entity.angularVelocity));
    Check(Same(copy.boundingRadius, entity.boundingRadius));
    return 0;
}
