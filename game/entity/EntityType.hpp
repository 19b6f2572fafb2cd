#pragma once
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "game/entity/EntityConfig.hpp"
#include "nerox/modular/ModuleID.hpp"

namespace game::entity {

/// One registered item type of a module: where it comes from, its description
/// and the factory of its behaviour object. Server and client each have their
/// own rows, with their own Interface class.
template <class Interface> struct EntityTypeDef {
    nerox::modular::ModuleID moduleId;                   ///< The defining module.
    std::string itemType;                                ///< Item type name inside that module.
    std::shared_ptr<EntityConfig> config;                ///< Description file of the type; may be empty.
    std::function<std::shared_ptr<Interface>()> factory; ///< Makes the behaviour object of a new entity.
};

/// The item types that modules register on one side, with the queries on them.
/// The tables are filled while modules load and only read afterwards, so
/// lookups take no lock.
template <class Interface> class EntityTypeRegistry {
public:
    /// A row of this side.
    using TypeDef = EntityTypeDef<Interface>;

    /// The module that registered itemType, or an empty ModuleID when the item type
    /// is unknown. Never throws for a missing name.
    static nerox::modular::ModuleID FindModuleIDFromItemType(std::string const& itemType) {
        auto const found = _registered_items_module.find(itemType);
        return found == _registered_items_module.end() ? nerox::modular::ModuleID() : found->second;
    }

    /// The description of itemType of the module moduleName, read on first use.
    /// Empty when the module has no row (or moduleName is null); a module that has
    /// rows but not this item type throws std::out_of_range.
    static std::shared_ptr<EntityConfig> GetEntityConfig(char const* moduleName, std::string const& itemType) {
        if (moduleName == nullptr) return {};
        auto const module = _registered_interfaces.find(moduleName);
        if (module == _registered_interfaces.end()) return {};
        return TakeConfig(module->second.at(itemType));
    }

    /// The row's description, read first if it has not been yet. The read runs
    /// under the file's mutex and the file keeps its own flag, so a file is
    /// parsed once however many threads ask, and however many item types share it.
    static std::shared_ptr<EntityConfig> TakeConfig(TypeDef& row) {
        if (!row.config) return {};
        std::lock_guard<std::mutex> lock(row.config->GetMutex());
        if (!row.config->loaded) row.config->ReadConfig();
        return row.config;
    }

    /// Rows by module name (the text form of the ModuleID), then by item type.
    inline static std::unordered_map<std::string, std::unordered_map<std::string, TypeDef>> _registered_interfaces;
    /// The module of each item type, ordered by item type.
    inline static std::map<std::string, nerox::modular::ModuleID> _registered_items_module;
};

} // namespace game::entity
