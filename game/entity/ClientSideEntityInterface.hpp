#pragma once
#include <atomic>
#include <memory>

#include "game/entity/Id.hpp"

namespace game::entity {

class EntityConfig;
class ClientSideEntity;

/// The look and feel of a client entity, supplied by a content module: a module
/// derives from this class, overrides what it needs and registers a factory
/// for its item type in ClientSideEntity::_registered_interfaces. Reached as
/// ClientSideEntity::Interface.
///
/// Every default body is empty. The hooks run on the main thread, only once
/// the entity has attached the object (isReady). The order of the virtual
/// operations is part of the module interface: module binaries expect Update
/// in slot 2 (0 and 1 are the destructors), AfterUpdate in 3 and Ui in 4.
class ClientSideEntityInterface {
public:
    ClientSideEntityInterface() = default;
    ClientSideEntityInterface(ClientSideEntityInterface const&) = delete;
    ClientSideEntityInterface& operator=(ClientSideEntityInterface const&) = delete;
    virtual ~ClientSideEntityInterface();

    /// Each client pass, before the entity follows its targets and joints.
    virtual void Update(double dt);
    /// Each client pass, after the modules' Game_Update.
    virtual void AfterUpdate(double dt);
    /// The entity's own interface window, for modules that draw one.
    virtual void Ui();

    std::weak_ptr<ClientSideEntity> entity;        ///< The owning entity.
    std::weak_ptr<ClientSideEntityInterface> self; ///< This object.
    Id id;                                         ///< The owning entity's id.
    std::atomic<bool> isReady{false};              ///< Attached; no hook runs before.
    std::shared_ptr<EntityConfig> config;          ///< Description of the item type; may be empty.
};

} // namespace game::entity
