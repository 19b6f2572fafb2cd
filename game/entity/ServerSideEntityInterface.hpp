#pragma once
#include <atomic>
#include <memory>

#include <glm/glm.hpp>

#include "game/entity/Id.hpp"
#include "nerox/filesystem/Stream.hpp"

namespace game::entity {

class EntityConfig;
class ServerSideEntity;

/// The behaviour of a server entity, supplied by a content module: a module
/// derives from this class, overrides what it needs and registers a factory
/// for its item type in ServerSideEntity::_registered_interfaces. Reached as
/// ServerSideEntity::Interface.
///
/// Every default body is empty, and the game skips a hook whose slot still
/// holds the default, so entities without behaviour cost no calls. The order
/// of the virtual operations is part of the module interface: module binaries
/// expect SaveState in slot 3 (0 and 1 are the destructors), LoadState 4,
/// SerializeState 5, DeserializeState 6, InitInterface 18 and the three
/// per-tick hooks 19 to 21. Slots 7 to 17 are the module's own.
class ServerSideEntityInterface {
public:
    ServerSideEntityInterface() = default;
    ServerSideEntityInterface(ServerSideEntityInterface const&) = delete;
    ServerSideEntityInterface& operator=(ServerSideEntityInterface const&) = delete;
    virtual ~ServerSideEntityInterface();

    /// Whether a world point lies inside a closed volume of the entity (gas tanks, cabins).
    virtual bool IsInsideVolume(glm::dvec3 const& point) const;
    /// Writes the module's part of the state file. When the world is unloaded
    /// it runs with no lock of the registry held and the world's entities still
    /// registered: it may look entities up (Get, ForEach) and read them. An
    /// entity it creates is saved as well; one it destroys is not.
    virtual void SaveState(nerox::filesystem::WriteOnlyStream& stream);
    /// Reads back what SaveState wrote; called once when the entity comes from its
    /// file. Throwing refuses the file: the entity is dropped again and its files
    /// stay as they are.
    virtual void LoadState(nerox::filesystem::ReadOnlyStream& stream);
    /// Writes the module's part of a checkpoint.
    virtual void SerializeState(nerox::filesystem::WriteOnlyStream& stream);
    /// Reads back what SerializeState wrote.
    virtual void DeserializeState(nerox::filesystem::ReadOnlyStream& stream);

    // Slots 7 to 17: never called by the game. A module may give them a meaning
    // of its own between its entity types.
    virtual void ModuleSlot7();
    virtual void ModuleSlot8();
    virtual void ModuleSlot9();
    virtual void ModuleSlot10();
    virtual void ModuleSlot11();
    virtual void ModuleSlot12();
    virtual void ModuleSlot13();
    virtual void ModuleSlot14();
    virtual void ModuleSlot15();
    virtual void ModuleSlot16();
    virtual void ModuleSlot17();

    /// Called once, right after LoadState, before any tick hook.
    virtual void InitInterface();
    /// Each server tick, before the entities' Update stage.
    virtual void BeforeUpdate(double dt);
    /// Each server tick, before the entity's joints and colliders are updated.
    virtual void Update(double dt);
    /// Each server tick, after the physics step.
    virtual void AfterUpdate(double dt);

    /// Loads the entity id from its state file and attaches its interface. An
    /// entity whose module is not loaded is dropped again with its files left
    /// on disk, and the result is empty; so is the result for an unset id.
    /// Throws std::runtime_error for a damaged state file.
    static std::shared_ptr<ServerSideEntityInterface> Create(Id id);

    std::weak_ptr<ServerSideEntity> entity;        ///< The owning entity.
    std::weak_ptr<ServerSideEntityInterface> self; ///< This object.
    Id id;                                         ///< The owning entity's id.
    std::atomic<bool> isReady{false};              ///< Fully attached; no hook runs before.
    std::shared_ptr<EntityConfig> config;          ///< Description of the item type; may be empty.
};

} // namespace game::entity
