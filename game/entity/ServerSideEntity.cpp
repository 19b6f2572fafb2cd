#include "game/entity/ServerSideEntity.hpp"
#include "nerox/filesystem/FileBatch.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <unordered_set>

#include <glm/gtc/matrix_transform.hpp>
#include <glm/gtc/quaternion.hpp>

#include "game/Game.hpp"
#include "game/entity/EntityConfig.hpp"
#include "game/entity/PressurizedVolume.hpp"
#include "nerox/Assert.hpp"
#include "nerox/cpu/Profiler.hpp"

namespace game::entity {

// The type tables live in game.so, one for the whole process: every module
// library binds to these, whatever it was compiled with.
template class EntityTypeRegistry<ServerSideEntityInterface>;

// ---------------------------------------------------------------------------
// Interface defaults. Every body is empty; the entity compares the slots of a
// module's class with these to skip hooks nobody wrote.

ServerSideEntityInterface::~ServerSideEntityInterface() = default;
bool ServerSideEntityInterface::IsInsideVolume(glm::dvec3 const&) const {
    return false;
}
void ServerSideEntityInterface::SaveState(nerox::filesystem::WriteOnlyStream&) { }
void ServerSideEntityInterface::LoadState(nerox::filesystem::ReadOnlyStream&) { }
void ServerSideEntityInterface::SerializeState(nerox::filesystem::WriteOnlyStream&) { }
void ServerSideEntityInterface::DeserializeState(nerox::filesystem::ReadOnlyStream&) { }
void ServerSideEntityInterface::ModuleSlot7() { }
void ServerSideEntityInterface::ModuleSlot8() { }
void ServerSideEntityInterface::ModuleSlot9() { }
void ServerSideEntityInterface::ModuleSlot10() { }
void ServerSideEntityInterface::ModuleSlot11() { }
void ServerSideEntityInterface::ModuleSlot12() { }
void ServerSideEntityInterface::ModuleSlot13() { }
void ServerSideEntityInterface::ModuleSlot14() { }
void ServerSideEntityInterface::ModuleSlot15() { }
void ServerSideEntityInterface::ModuleSlot16() { }
void ServerSideEntityInterface::ModuleSlot17() { }
void ServerSideEntityInterface::InitInterface() { }
void ServerSideEntityInterface::BeforeUpdate(double) { }
void ServerSideEntityInterface::Update(double) { }
void ServerSideEntityInterface::AfterUpdate(double) { }

namespace {

using Interface = ServerSideEntityInterface;

// Virtual slot lookup for the Itanium C++ ABI (g++ and clang on Linux): a
// pointer to a virtual member function holds 1 + the slot's byte offset in
// the table, and an object starts with its table pointer.
#if defined(__GXX_ABI_VERSION) && (defined(__x86_64__) || defined(__i386__))
template <class MemberFunction> size_t SlotIndex(MemberFunction function) {
    struct Representation {
        uintptr_t pointer;
        ptrdiff_t adjustment;
    } representation;
    static_assert(sizeof(MemberFunction) == sizeof(Representation));
    std::memcpy(&representation, &function, sizeof(representation));
    return (representation.pointer - 1) / sizeof(void*);
}

void const* SlotEntry(Interface const& object, size_t slot) {
    void const* const* table = nullptr;
    std::memcpy(&table, &object, sizeof(table));
    return table[slot];
}

/// Whether object's class replaced the default of the virtual function.
template <class MemberFunction> bool Overrides(Interface const& object, MemberFunction function) {
    static Interface const defaults;
    size_t const slot = SlotIndex(function);
    return SlotEntry(object, slot) != SlotEntry(defaults, slot);
}
#else
// Elsewhere every hook counts as overridden: correct, only slower.
template <class MemberFunction> bool Overrides(Interface const&, MemberFunction) {
    return true;
}
#endif

/// Longest parent chain walked; guards against a cycle read from damaged files.
constexpr int MaxParentDepth = 4096;

/// Walks up from start while the entity in hand is a component whose parent is
/// in the registry, at most MaxParentDepth links, calling leave(component) for
/// each component it climbs out of. Returns where it stopped; holder keeps that
/// entity alive when it is not start.
template <class Leave>
ServerSideEntity const* ClimbComponents(ServerSideEntity const* start, ServerSideEntity::Ptr& holder,
                                        Leave const& leave) {
    ServerSideEntity const* current = start;
    for (int depth = 0; current->isComponent && depth < MaxParentDepth; ++depth) {
        ServerSideEntity::Ptr parent = ServerSideEntity::Get(current->parentEntity);
        if (!parent) break;
        leave(*current);
        holder = std::move(parent);
        current = holder.get();
    }
    return current;
}

std::string WorldFolder() {
    return "../Tessara-data/server/worlds/" + Game::_current_world;
}

} // namespace

// ---------------------------------------------------------------------------
// Construction

ServerSideEntity::ServerSideEntity(nerox::modular::ModuleID const& module, std::string const& type, Id givenId) {
    moduleId = module;
    itemType = type;
    id = givenId.IsSet() ? givenId : Id::Generate();
    Construct();
}

ServerSideEntity::ServerSideEntity(Id givenId, nerox::filesystem::ReadOnlyStream& stream) : id(givenId) {
    stream = Deserialize();
    Construct();
}

ServerSideEntity::ServerSideEntity(Id givenId, nerox::filesystem::ReadOnlyStream& stream,
                                   nerox::filesystem::ReadOnlyStream contents)
    : id(givenId) {
    uint64_t const hash = StateHash(contents.ReadableBytes());
    stream = ReadState(contents);
    savedStateHash = hash;
    Construct();
}

void ServerSideEntity::Construct() {
    _beforeUpdateScope = "Entity<" + itemType + ">::BeforeUpdate";
    _updateScope = "Entity<" + itemType + ">::Update";
    _afterUpdateScope = "Entity<" + itemType + ">::AfterUpdate";

    auto const module = _registered_interfaces.find(moduleId.String());
    if (module == _registered_interfaces.end()) return;
    auto const row = module->second.find(itemType);
    if (row == module->second.end()) return;
    if (row->second.factory) _interface = row->second.factory();
    NEROX_ASSERT(_interface);

    _overriddenHooks = 0;
    if (Overrides(*_interface, &Interface::BeforeUpdate)) _overriddenHooks |= HookBeforeUpdate;
    if (Overrides(*_interface, &Interface::Update)) _overriddenHooks |= HookUpdate;
    if (Overrides(*_interface, &Interface::AfterUpdate)) _overriddenHooks |= HookAfterUpdate;
    if (Overrides(*_interface, &Interface::DeserializeState)) _overriddenHooks |= HookDeserializeState;

    config = TakeConfig(row->second);
    InitNodes();
}

ServerSideEntity::~ServerSideEntity() {
    // The interface's code belongs to its module: let it go before anything else.
    _interface.reset();
    if (deleteFilesOnDestroy && id.IsSet()) {
        std::error_code ignored;
        std::filesystem::remove(GetStateSaveFile(), ignored);
        std::filesystem::remove(GetCheckpointSaveFile(), ignored);
    }
}

ServerSideEntity::Ptr ServerSideEntity::Spawn(nerox::modular::ModuleID const& module, std::string const& type,
                                              Id givenId) {
    Ptr entity = Create(module, type, givenId);
    nerox::filesystem::ReadOnlyStream noState;
    entity->Attach(noState);
    entity->worldReferences.fetch_add(1);
    return entity;
}

void ServerSideEntity::Attach(nerox::filesystem::ReadOnlyStream& state) {
    if (!_interface || _interface->isReady) return;
    _interface->entity = std::static_pointer_cast<ServerSideEntity>(selfReference.lock());
    _interface->self = _interface;
    _interface->id = id;
    _interface->config = config;
    _interface->LoadState(state);
    _interface->InitInterface();
    // The entity is visible already: the update thread reads the flag before
    // any hook, and must then see everything written above.
    _interface->isReady.store(true, std::memory_order_release);

    std::lock_guard<std::mutex> lock(_module_entities_mutex);
    _module_entities[moduleId.String()].push_back(_interface);
}

std::shared_ptr<ServerSideEntityInterface> ServerSideEntityInterface::Create(Id id) {
    std::string missing;
    return ServerSideEntity::LoadFromFile(id, missing);
}

std::shared_ptr<ServerSideEntityInterface> ServerSideEntity::LoadFromFile(Id id, std::string& missing,
                                                                          nerox::filesystem::ReadOnlyStream* contents) {
    if (!id.IsSet()) {
        std::cerr << "WARNING: skipped a state file without an entity id in " << GetCheckpointDir() << std::endl;
        return {};
    }
    nerox::filesystem::ReadOnlyStream state;
    Ptr entity = contents ? entity::Create<ServerSideEntity>(id, state, std::move(*contents))
                          : entity::Create<ServerSideEntity>(id, state);
    // Whatever goes wrong from here on, the entity leaves the registry again
    // and its files stay: a file that was not read whole is never removed.
    auto const drop = [&entity, id] {
        entity->deleteFilesOnDestroy = false;
        entity.reset();
        Destroy(id);
    };
    if (!entity->_interface) {
        auto const module = _registered_interfaces.find(entity->moduleId.String());
        missing = module == _registered_interfaces.end()
            ? "module " + entity->moduleId.String()
            : "item type '" + entity->itemType + "' of module " + entity->moduleId.String();
        drop();
        return {};
    }
    try {
        entity->Attach(state);
    } catch (std::exception const& failure) {
        drop();
        throw DamagedFileError(failure.what()); // the module refused its saved state
    } catch (...) {
        drop();
        throw;
    }
    return entity->_interface;
}

// ---------------------------------------------------------------------------
// Hierarchy

void ServerSideEntity::AddChild(Ptr& entity) {
    NEROX_ASSERT(!entity->parentEntity);
    NEROX_ASSERT(!entity->isComponent);
    NEROX_ASSERT(entity->GetID() != GetID());

    glm::dmat4 const local = glm::inverse(GetTransform()) * entity->GetTransform();
    entity->parentEntity = id;
    entity->position = glm::dvec3(local[3]);
    entity->orientation = glm::quat_cast(glm::dmat3(local));

    glm::dquat const inverse = glm::inverse(orientation);
    entity->linearVelocity = inverse * entity->linearVelocity - inverse * linearVelocity;
    entity->angularVelocity = inverse * entity->angularVelocity;
}

void ServerSideEntity::RemoveChild(Ptr& entity) {
    NEROX_ASSERT(entity->parentEntity == GetID());
    NEROX_ASSERT(!entity->isComponent);
    NEROX_ASSERT(entity->GetID() != parentEntity);

    glm::dmat4 const world = GetTransform() * entity->GetTransform();
    entity->position = glm::dvec3(world[3]);
    entity->orientation = orientation * entity->orientation;
    entity->parentEntity = parentEntity;
    entity->linearVelocity = orientation * entity->linearVelocity + linearVelocity;
    entity->angularVelocity = orientation * entity->angularVelocity;
}

ServerSideEntity::Ptr ServerSideEntity::GetFirstNonComponentParent() const {
    Ptr parent = Get(parentEntity);
    if (!parent) return Ptr();
    Ptr holder;
    ServerSideEntity const* const top = ClimbComponents(parent.get(), holder, [](ServerSideEntity const&) {});
    if (top->isComponent) return Ptr();
    return holder ? holder : parent;
}

glm::dmat4 ServerSideEntity::GetTransformInPhysicsParent() const {
    // The product of the components' transforms places this one in the body
    // that carries them all.
    glm::dmat4 transform(1.0);
    Ptr holder;
    ClimbComponents(this, holder, [&transform](ServerSideEntity const& component) {
        transform = component.GetTransform() * transform;
    });
    return transform;
}

Id ServerSideEntity::GetVehicleID() const {
    Ptr holder;
    return ClimbComponents(this, holder, [](ServerSideEntity const&) {})->id;
}

glm::dmat3 ServerSideEntity::GetInertiaTensorWorld() const {
    NEROX_ASSERT(mass > 0.0);
    NEROX_ASSERT(box_size.x > 0.0);
    NEROX_ASSERT(box_size.y > 0.0);
    NEROX_ASSERT(box_size.z > 0.0);
    glm::dvec3 const s = box_size * box_size;
    glm::dmat3 const box(mass * (s.y + s.z) / 12.0, 0.0, 0.0, //
                         0.0, mass * (s.x + s.z) / 12.0, 0.0, //
                         0.0, 0.0, mass * (s.x + s.y) / 12.0);
    glm::dmat3 const rotation = glm::mat3_cast(orientation);
    return rotation * box * glm::transpose(rotation);
}

// ---------------------------------------------------------------------------
// Per-tick operations

void ServerSideEntity::BeforeUpdate(double dt) {
    if (_interface && _interface->isReady && (_overriddenHooks & HookBeforeUpdate)) {
        nerox::cpu::Profiler scope(_beforeUpdateScope, true);
        _interface->BeforeUpdate(dt);
    }
}

void ServerSideEntity::Update(double dt) {
    nerox::cpu::Profiler scope("ServerSideEntity::Update", true);
    if (_interface && _interface->isReady && (_overriddenHooks & HookUpdate)) {
        nerox::cpu::Profiler hookScope(_updateScope, true);
        _interface->Update(dt);
    }
    if (config && (nodesAnimated || nodesDirty)) config->jointSolver(this);
    BaseEntity::Update(dt);
}

void ServerSideEntity::AfterUpdate(double dt) {
    if (_interface && _interface->isReady && (_overriddenHooks & HookAfterUpdate)) {
        nerox::cpu::Profiler scope(_afterUpdateScope, true);
        _interface->AfterUpdate(dt);
    }
}

void ServerSideEntity::RefreshCache() {
    nerox::cpu::Profiler scope("ServerSideEntity::RefreshCache", true);
    RefreshFromParents();
}

void ServerSideEntity::RefreshFromParents() {
    parentMoving = false;
    Id next = parentEntity;
    for (int depth = 0; depth < MaxParentDepth; ++depth) {
        Ptr const ancestor = Get(next);
        if (!ancestor) break;
        environmentId = ancestor->environmentId;
        orbitEnvironmentId = ancestor->orbitEnvironmentId;
        if (ancestor->isDynamic && ancestor->restTime < 2.0)
            parentMoving = true;
        else
            parentMoving = parentMoving || ancestor->parentMoving;
        next = ancestor->parentEntity;
    }
    if (parentMoving) settled = false;
}

void ServerSideEntity::InitNodes() {
    BaseEntity::InitNodes();
    for (auto& [name, collider] : colliders) {
        collider.entity = id;
        collider.name = name;
    }
}

// ---------------------------------------------------------------------------
// World loading and unloading

std::string ServerSideEntity::GetCheckpointDir() {
    return WorldFolder() + "/entities";
}

std::string ServerSideEntity::GetStateSaveFile() const {
    return GetCheckpointDir() + "/" + static_cast<std::string>(id) + ".entitystate";
}

std::string ServerSideEntity::GetCheckpointSaveFile() const {
    return GetCheckpointDir() + "/" + static_cast<std::string>(id) + ".checkpoint";
}

std::string ServerSideEntity::GetDamagedDir() {
    return WorldFolder() + "/damaged";
}

ServerSideEntity::LoadReport ServerSideEntity::LoadAllEntities(DamagedFiles damaged) {
    namespace fs = std::filesystem;
    LoadReport report;
    fs::path const folder = GetCheckpointDir();
    std::error_code error;
    if (!fs::is_directory(folder, error)) return report;

    static constexpr std::string_view extension = ".entitystate";
    std::vector<std::string> stems;
    std::vector<fs::path> leftovers;
    for (fs::directory_iterator entries(folder, error), end; !error && entries != end; entries.increment(error)) {
        std::error_code typeError;
        if (!entries->is_regular_file(typeError)) continue;
        std::string const name = entries->path().filename().string();
        if (name.ends_with(std::string(extension) + TemporaryExtension) ||
            name.ends_with(std::string(".checkpoint") + TemporaryExtension))
            leftovers.push_back(entries->path());
        else if (name.ends_with(extension))
            stems.push_back(name.substr(0, name.size() - extension.size()));
    }
    if (error) throw std::runtime_error("Could not list the entities in " + folder.string() + ": " + error.message());

    // Always the same order, so that a world loads the same way every time.
    std::sort(stems.begin(), stems.end());
    // The files are read on two threads ahead of the entities, which are made
    // one by one (modules' LoadState hooks need not be thread-safe).
    std::vector<std::string> files;
    files.reserve(stems.size());
    for (std::string const& stem : stems) files.push_back((folder / (stem + std::string(extension))).string());
    std::vector<std::vector<unsigned char>> contents;
    std::vector<std::string> readErrors;
    nerox::filesystem::ReadWholeFiles(files, contents, readErrors);
    std::map<std::string, size_t> missingTypes;
    for (size_t index = 0; index < stems.size(); ++index) {
        std::string const& stem = stems[index];
        std::string const& file = files[index];
        try {
            Id id;
            try {
                id = Id{UniqueId(stem)};
            } catch (std::exception const& failure) {
                throw DamagedFileError(failure.what()); // a file name that is no entity id
            }
            if (Get(id)) {
                std::cerr << "WARNING: skipped " << file << ": the entity is loaded already" << std::endl;
                continue;
            }
            std::string missing;
            // A file that could not be read ahead is read again, to report why.
            nerox::filesystem::ReadOnlyStream read(std::move(contents[index]));
            std::shared_ptr<Interface> const loaded =
                LoadFromFile(id, missing, readErrors[index].empty() ? &read : nullptr);
            if (!missing.empty()) ++missingTypes[missing];
            if (!loaded) continue;
            if (Ptr const entity = loaded->entity.lock()) entity->worldReferences.fetch_add(1);
            ++report.loaded;
        } catch (DamagedFileError const& failure) {
            if (damaged == DamagedFiles::Refuse) throw std::runtime_error(file + ": " + failure.what());
            std::string const line = file + ": " + failure.what();
            if (!SetAside(stem)) continue;
            std::cerr << "Set aside " << line << std::endl;
            report.setAside.push_back(line);
        } catch (std::exception const& failure) {
            throw std::runtime_error(file + ": " + failure.what());
        }
    }
    // A save renames its temporary file over the real one only once it is
    // complete, so a temporary file is what an interrupted save left: the real
    // file beside it is whole.
    for (fs::path const& leftover : leftovers) {
        std::error_code ignored;
        if (fs::remove(leftover, ignored))
            std::cerr << "Removed " << leftover.string() << ", left by an interrupted save" << std::endl;
    }
    for (auto const& [missing, count] : missingTypes) {
        std::cerr << "WARNING: " << missing << " is not loaded: " << count
                  << (count == 1 ? " saved entity was" : " saved entities were") << " left on disk in "
                  << folder.string() << std::endl;
        report.notLoaded += count;
    }
    return report;
}

bool ServerSideEntity::SetAside(std::string const& stem) {
    namespace fs = std::filesystem;
    fs::path const into = GetDamagedDir();
    std::error_code error;
    fs::create_directories(into, error);
    bool moved = true;
    for (char const* extension : {".entitystate", ".checkpoint"}) {
        fs::path const from = fs::path(GetCheckpointDir()) / (stem + extension);
        if (!fs::exists(from, error)) continue;
        // A file of the same name set aside before is kept as well.
        fs::path to = into / from.filename();
        for (int copy = 1; fs::exists(to, error); ++copy)
            to = into / (from.filename().string() + "." + std::to_string(copy));
        fs::rename(from, to, error);
        if (error) {
            std::cerr << "ERROR: could not move " << from.string() << " into " << into.string() << ": "
                      << error.message() << std::endl;
            moved = moved && std::string_view(extension) != ".entitystate";
        }
    }
    return moved;
}

namespace {

/// Saves the placed entities of the registry in rounds, with no lock of it
/// held: a module's SaveState may look other entities up, place more (saved in
/// the next round) or destroy some (not saved). The bytes of every entity are
/// made first; those that differ from the entity's file are then written as
/// one batch. Returns the entities saved; failure tells how many could not
/// be, with the first error, or stays empty.
std::vector<ServerSideEntity::Ptr> SaveInRounds(std::string& failure) {
    using Ptr = ServerSideEntity::Ptr;
    size_t failures = 0;
    std::string firstFailure;
    auto const report = [&](Id const& id, std::string const& what) {
        // The old file stays as it was; go on with the others.
        std::cerr << "ERROR: could not save entity " << static_cast<std::string>(id) << ": " << what << std::endl;
        if (failures++ == 0) firstFailure = what;
    };
    std::vector<Ptr> saved;
    std::unordered_set<ServerSideEntity const*> seen;
    nerox::filesystem::FileBatch batch(ServerSideEntity::TemporaryExtension);
    std::vector<std::pair<Ptr, uint64_t>> written; // in the batch's order, with the new hash
    for (bool more = true; more;) {
        std::vector<Ptr> round;
        ServerSideEntity::ForEach([&round, &seen](Ptr entity) {
            if (entity->IsPlaced() && !seen.contains(entity.get())) round.push_back(std::move(entity));
        });
        more = !round.empty();
        for (Ptr& entity : round) {
            seen.insert(entity.get());
            if (ServerSideEntity::Get(entity->id) != entity) continue; // destroyed by an earlier hook
            try {
                nerox::filesystem::WriteOnlyStream const bytes = entity->SaveBytes();
                uint64_t const hash = ServerSideEntity::StateHash(bytes.Bytes());
                std::string path = entity->GetStateSaveFile();
                std::error_code missing;
                if (hash != entity->savedStateHash || !std::filesystem::exists(path, missing)) {
                    batch.Add(std::move(path), bytes.Bytes());
                    written.emplace_back(entity, hash);
                }
            } catch (std::exception const& error) {
                report(entity->id, error.what());
            }
            saved.push_back(std::move(entity));
        }
    }
    std::vector<bool> failed(written.size(), false);
    for (nerox::filesystem::FileBatch::Failure const& commitFailure : batch.Commit()) {
        if (failed[commitFailure.index]) continue;
        failed[commitFailure.index] = true;
        report(written[commitFailure.index].first->id, commitFailure.message);
    }
    for (size_t i = 0; i < written.size(); ++i)
        if (!failed[i]) written[i].first->savedStateHash = written[i].second;
    if (failures != 0)
        failure = "Could not save " + std::to_string(failures) + " entities; the first error: " + firstFailure;
    return saved;
}

} // namespace

size_t ServerSideEntity::SaveAllEntities() {
    std::string failure;
    size_t const count = SaveInRounds(failure).size();
    if (!failure.empty()) throw std::runtime_error(failure);
    return count;
}

size_t ServerSideEntity::UnloadAllEntities() {
    std::string failure;
    std::vector<Ptr> saved = SaveInRounds(failure);
    std::unordered_map<Id, Ptr> released;
    {
        std::unique_lock<nerox::SharedMutex> lock(_sharedObjectsMutex);
        released.swap(_sharedObjects);
        ++_sharedObjectsVersion;
    }
    // The saved entities leave with their files; one that a hook destroyed
    // after it was saved goes from the disk, as any destroyed entity does.
    size_t count = 0;
    for (Ptr const& entity : saved) {
        auto const found = released.find(entity->id);
        bool const kept = found != released.end() && found->second == entity;
        entity->deleteFilesOnDestroy = !kept;
        count += kept ? 1 : 0;
    }
    // The entities go outside the lock: their interfaces' destructors may look others up.
    saved.clear();
    released.clear();
    {
        std::lock_guard<std::mutex> lock(_module_entities_mutex);
        for (auto& [module, interfaces] : _module_entities)
            std::erase_if(interfaces, [](std::weak_ptr<Interface> const& object) { return object.expired(); });
    }
    {
        std::unique_lock<nerox::SharedMutex> lock(PressurizedVolume::_sharedObjectsMutex);
        PressurizedVolume::_sharedObjects.clear();
    }
    if (!failure.empty()) throw std::runtime_error(failure);
    return count;
}

} // namespace game::entity
