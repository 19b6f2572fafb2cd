#pragma once
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include <glm/glm.hpp>

#include "game/entity/BaseEntity.hpp"
#include "game/entity/EntityType.hpp"
#include "game/entity/Id.hpp"
#include "game/entity/RadioEmitter.hpp"
#include "game/entity/ServerSideEntityInterface.hpp"
#include "game/entity/UniqueObject.hpp"
#include "nerox/filesystem/Stream.hpp"
#include "nerox/modular/ModuleID.hpp"

namespace game::entity {

/// First 8 bytes of a state file.
inline constexpr char MAGICSTR1[8] = {'T', 'E', 'S', 'S', 'A', 'R', 'A', '!'};
/// Bytes 8 to 15 of a state file.
inline constexpr char MAGICSTR2[8] = {'E', 'N', 'T', 'I', 'T', 'Y', ' ', '!'};
/// Marks the start of the module's blob in a state file.
inline constexpr char MAGICSTR_INTERFACE[4] = {'\n', '\n', '\n', '\n'};
/// Last 4 bytes of a state file; written, never checked.
inline constexpr char MAGICSTR_EOF[4] = {'\n', 'E', 'O', 'F'};
/// First 8 bytes of a checkpoint file.
inline constexpr char CHECKPOINT_MAGICSTR[8] = {'C', 'H', 'E', 'C', 'K', 'P', 'N', 'T'};
/// Version of the state file layout.
inline constexpr uint32_t STATE_FILE_VERSION = 1;
/// Version of the checkpoint layout.
inline constexpr uint32_t CHECKPOINT_FILE_VERSION = 0;

/// A state file that cannot be read: missing, damaged, cut short, holding
/// values that are not finite numbers, named other than by an entity id, or
/// refused by its module's LoadState or InitInterface. Other failures of a load
/// (a description file that cannot be read, a failing module) are plain
/// std::runtime_error.
class DamagedFileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The authoritative entity of the running world: a BaseEntity with the
/// module's behaviour object, a place in the parent-child tree, the hooks of
/// each server tick and its state on disk.
///
/// Entities live in the registry of UniqueObject: create them with
/// Create<ServerSideEntity>(...) (or Spawn), find them with Get, walk them with
/// ForEach. Hold weak pointers in modules.
///
/// Threads: the tick operations run on the server update thread inside ForEach,
/// under the shared side of _sharedObjectsMutex; lookups nest shared holds.
class ServerSideEntity : public BaseEntity,
                         public UniqueObject<ServerSideEntity>,
                         public EntityTypeRegistry<ServerSideEntityInterface> {
public:
    /// Name of the class in registry messages.
    static constexpr char const* _uniqueObjectName = "ServerSideEntity";
    /// The module's behaviour object.
    using Interface = ServerSideEntityInterface;
    /// Shared owner of an entity.
    using Ptr = std::shared_ptr<ServerSideEntity>;

    /// A new entity of itemType from module. A set id is kept, otherwise a new
    /// one is generated. With a registered type the module's interface is made
    /// (not yet attached: see Attach), the description read and the nodes set up.
    ServerSideEntity(nerox::modular::ModuleID const& module, std::string const& itemType, Id id);
    /// The entity id from its state file; the module's blob from the file
    /// replaces the contents of stream. Throws std::runtime_error for a missing
    /// or damaged file.
    ServerSideEntity(Id id, nerox::filesystem::ReadOnlyStream& stream);
    /// The same from the state file's bytes, read already (contents).
    ServerSideEntity(Id id, nerox::filesystem::ReadOnlyStream& stream, nerox::filesystem::ReadOnlyStream contents);
    /// Drops the interface, then removes the entity's files if deleteFilesOnDestroy is set.
    ~ServerSideEntity() override;

    ServerSideEntity(ServerSideEntity const&) = delete;
    ServerSideEntity& operator=(ServerSideEntity const&) = delete;

    /// Creates an entity, attaches its interface with an empty state and counts
    /// it as placed in the world, so that it is saved at unload. The usual way
    /// for a module to make a brand-new entity.
    static Ptr Spawn(nerox::modular::ModuleID const& module, std::string const& itemType, Id id = {});

    /// Finishes an entity made by Create: links the interface to it, feeds it
    /// state, runs InitInterface, marks it ready and lists it in _module_entities.
    /// Does nothing without an interface or when it is attached already.
    void Attach(nerox::filesystem::ReadOnlyStream& state);

    /// The entity's id.
    Id GetID() const { return id; }
    /// The module's behaviour object; empty when the module is not loaded.
    std::shared_ptr<Interface> const& GetInterface() const { return _interface; }

    /// Makes this entity the parent of child, keeping the child's place and
    /// motion in the world. The child must have no parent and not be a component.
    void AddChild(Ptr& child);
    /// Undoes AddChild: the child keeps its place and motion in the world and
    /// moves one level up the tree (to this entity's parent).
    void RemoveChild(Ptr& child);
    /// The nearest ancestor that is not a component; empty when the chain ends first.
    Ptr GetFirstNonComponentParent() const;
    /// A component's transform in the rigid body that carries it; identity otherwise.
    glm::dmat4 GetTransformInPhysicsParent() const;
    /// The id of the vehicle this entity belongs to: its own, or for a component its parent's.
    Id GetVehicleID() const;
    /// The inertia tensor of the entity's box, turned into world axes.
    glm::dmat3 GetInertiaTensorWorld() const;

    /// Runs the interface's BeforeUpdate hook.
    void BeforeUpdate(double dt);
    /// Runs the interface's Update hook, the joint solver when joints move, then BaseEntity::Update.
    void Update(double dt) override;
    /// Runs the interface's AfterUpdate hook.
    void AfterUpdate(double dt);
    /// Copies the environment from the ancestors and notes whether any of them moves.
    void RefreshCache();
    /// BaseEntity::InitNodes, then tags every collider with this entity and its node name.
    void InitNodes() override;

    /// Folder of the current world's entity files.
    static std::string GetCheckpointDir();
    /// Path of this entity's state file.
    std::string GetStateSaveFile() const;
    /// Path of this entity's checkpoint file.
    std::string GetCheckpointSaveFile() const;

    /// Writes the state file. The old file is replaced only once the new one is
    /// complete. Throws std::runtime_error when the file cannot be written, or
    /// when a position, orientation or velocity is not finite (nothing is written).
    void Serialize();
    /// Reads the state file into the fields; returns the module's blob.
    /// Throws DamagedFileError for a missing, damaged or cut file, and
    /// std::runtime_error when the file cannot be read at all.
    nerox::filesystem::ReadOnlyStream Deserialize();
    /// The bytes of the state file, as Serialize writes them.
    void WriteState(nerox::filesystem::WriteOnlyStream& out);
    /// WriteState into a new stream, refusing (std::runtime_error, as
    /// Serialize) a position, orientation or velocity that is not finite.
    nerox::filesystem::WriteOnlyStream SaveBytes();
    /// The hash that savedStateHash keeps of a state file's bytes; never 0.
    static uint64_t StateHash(std::span<unsigned char const> bytes);
    /// Fills the fields from the bytes of a state file and returns the module's
    /// blob; Deserialize without the file. Throws DamagedFileError.
    nerox::filesystem::ReadOnlyStream ReadState(nerox::filesystem::ReadOnlyStream& in);
    /// Writes the checkpoint file. Needs the interface.
    void SerializeCheckpoint();
    /// Reads the checkpoint file back. A file of another entity, version or
    /// kind changes nothing and prints one line to the standard error stream.
    void DeserializeCheckpoint();

    /// The physics step of the whole world: builds rigid bodies from the
    /// entities, moves them through dt in substeps and writes the results back.
    static void PhysicsUpdate(double dt, int substeps);
    /// While set, PhysicsUpdate runs no more substeps: the world then moves
    /// less than dt, and a long step ends at once. Set when the run stops.
    inline static std::atomic<bool> physicsStop{false};
    /// Resting bodies (static by the resting rules, without parent or
    /// children, in an environment) drop out of the step: it neither walks
    /// them nor builds their records, and only compares what they were put to
    /// sleep with (place, restTime, the physics fields) with what they hold
    /// now. A module that changes any of it, clearing restTime above all,
    /// wakes the body for the next step, as when every body is walked (its
    /// colliders are read again when their nodes or its bounds change); a
    /// moving body that comes near gets a static record for it. Off, every
    /// body is walked every step; the outcome is the same. The debug view
    /// walks them all.
    inline static bool restingBodiesSleep = true;
    /// Threads of the step, the calling thread included; 0 means one per
    /// core. With two or more, the environment pass (ground, air, water) of a
    /// substep runs on a second thread, following the contact pass body by
    /// body. The outcome is the same for every count, bit for bit. Read at the
    /// start of each step; while a step runs, the second thread waits for
    /// work busily.
    ///
    /// One by default: on a machine of two cores the records that the second
    /// thread changes must travel back for the next contact pass, which costs
    /// about what it saves, and the worst steps get longer (see the physics
    /// benchmark's pile). An environment function that does much more per
    /// answer can make the second thread pay.
    inline static size_t physicsThreads = 1;
    /// Bodies asleep after the last step. Call it between steps: from the
    /// server update thread, or once that thread has stopped.
    static size_t SleepingBodyCount();

    /// What LoadAllEntities does with a state file it cannot read.
    enum class DamagedFiles {
        Refuse,  ///< Stop the load with the error, naming the file.
        SetAside ///< Move the file and the entity's checkpoint into GetDamagedDir() and go on.
    };
    /// What a load did besides loading.
    struct LoadReport {
        size_t loaded = 0;                 ///< Entities placed in the world.
        size_t notLoaded = 0;              ///< Entities kept on disk: their module or item type is not loaded.
        std::vector<std::string> setAside; ///< "FILE: REASON" for each file moved into GetDamagedDir().
    };

    /// Loads every saved entity of the current world, in the order of the file
    /// names. A file that cannot be read (DamagedFileError) stops the load with
    /// a std::runtime_error "FILE: REASON" (the entities loaded before it stay
    /// registered; no file is changed), or with DamagedFiles::SetAside is moved
    /// away and named on the standard error stream. Other errors always stop
    /// the load, naming the file as well. Entities of a module or item type that
    /// is not loaded are counted, named on the standard error stream and left on
    /// disk; ids that are registered already are skipped. At the end, removes
    /// the temporary files of an interrupted save.
    static LoadReport LoadAllEntities(DamagedFiles damaged = DamagedFiles::Refuse);
    /// Saves the entities placed in the world and keeps them loaded; returns how
    /// many were saved (unchanged ones count as saved). The saves run as in
    /// UnloadAllEntities. Throws
    /// std::runtime_error after the last entity when some could not be saved.
    static size_t SaveAllEntities();
    /// Saves the entities placed in the world, then empties the registry, and
    /// returns how many were saved. The saves run with no lock of the registry
    /// held (see Interface::SaveState). The files are replaced together (see
    /// nerox::filesystem::FileBatch): one sync of the disk for the world, and
    /// after a crash at any instant each file is its old or its new version.
    /// An entity whose bytes are those of its file is not written again.
    /// Throws std::runtime_error after the last entity when some could not be
    /// saved; their old files stay.
    static size_t UnloadAllEntities();
    /// Whether UnloadAllEntities saves it: placed in the world and not a component.
    bool IsPlaced() const { return worldReferences.load() != 0 && !isComponent; }
    /// Folder beside GetCheckpointDir() that takes the files set aside by a load.
    static std::string GetDamagedDir();
    /// Ending of the temporary file that a save writes beside the real one.
    static constexpr char const* TemporaryExtension = ".tmp";

    // First, beside the fields of BaseEntity that the physics step reads of
    // a resting body each step.
    bool physicsEnabled = false;              ///< Takes part in physics.
    double restTime = 0.0;                    ///< 0 awake, 1 or more at rest, 2 at rest since before loading.
    EnvironmentId environmentId = 0;          ///< Environment that acts on the entity.
    Id id;                                    ///< Identity; also the registry key.
    EnvironmentId orbitEnvironmentId = 0;     ///< Environment orbited when environmentId is 0.
    bool aerodynamic = true;                  ///< Its rigid body feels air and water.
    bool deleteFilesOnDestroy = true;         ///< The destructor removes its state and checkpoint files.
    std::atomic<uint64_t> worldReferences{0}; ///< Holders in the world; 0 means not saved at unload.
    uint64_t savedStateHash = 0;              ///< StateHash of the state file as last written or read; 0 unknown.
    glm::dvec3 linearImpulse{0.0};            ///< N*s gathered since the last physics step.
    glm::dvec3 angularImpulse{0.0};           ///< N*m*s gathered since the last physics step.
    glm::dvec3 pendingAcceleration{0.0};      ///< m/s^2 to apply during the next step.
    unsigned char reserved[128] = {};         ///< Free for modules.
    bool settled = false;                     ///< Cleared whenever the entity or a parent moves.
    bool parentMoving = false;                ///< Some ancestor moves; set by RefreshCache.

    /// Item types of each module by module name; filled and read by modules.
    inline static std::map<std::string, std::vector<std::string>> _registered_items;
    /// Interfaces of the live entities by module name, so a module can reach its objects.
    inline static std::map<std::string, std::vector<std::weak_ptr<Interface>>> _module_entities;
    /// Guards _module_entities.
    inline static std::mutex _module_entities_mutex;
    /// Radio emitters by channel, then by entity; used by modules.
    inline static std::map<std::string, std::unordered_map<Id, RadioEmitter>> _radioEmitters;
    /// Guards _radioEmitters.
    inline static std::mutex _radioEmitters_mutex;

private:
    friend class ServerSideEntityInterface; // Interface::Create loads through LoadFromFile

    /// Shared tail of both constructors.
    void Construct();
    /// Interface::Create's work; when the module or item type is not loaded,
    /// names it in missing and returns an empty pointer. With contents, the
    /// state file's bytes were read already.
    static std::shared_ptr<Interface> LoadFromFile(Id id, std::string& missing,
                                                   nerox::filesystem::ReadOnlyStream* contents = nullptr);
    /// Moves the state and checkpoint files of stem into GetDamagedDir(); false
    /// when the state file could not be moved.
    static bool SetAside(std::string const& stem);
    /// The parent walk of RefreshCache, without its profiler scope.
    void RefreshFromParents();

    /// Which interface hooks the module overrides (bits of Hook).
    enum Hook : uint8_t { HookBeforeUpdate = 1, HookUpdate = 2, HookAfterUpdate = 4, HookDeserializeState = 8 };

    std::shared_ptr<Interface> _interface;
    uint8_t _overriddenHooks = 0;
    std::string _beforeUpdateScope; // "Entity<type>::BeforeUpdate", built once
    std::string _updateScope;
    std::string _afterUpdateScope;
};

} // namespace game::entity
