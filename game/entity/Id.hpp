#pragma once
#include "game/UniqueId.hpp"

#include <cstdint>

namespace game::entity {

/// An entity's identity: a UniqueId with the tag "ENTT". Set only when both
/// words are non-zero; hashed by the second word.
struct Id : UniqueId {
    using UniqueId::UniqueId;
    Id() = default;
    /// Wraps an existing id.
    Id(UniqueId const& id) : UniqueId(id) { }
    /// A new entity id.
    static Id Generate() { return Id(UniqueId::Generate("ENTT")); }
    /// True when the id is unset, as in "!entity->parentEntity".
    bool operator!() const { return !IsSet(); }
};

/// Key of an environment function; 0 means none.
using EnvironmentId = uint64_t;

} // namespace game::entity

/// Hashes an entity id by its second word.
template <> struct std::hash<game::entity::Id> {
    size_t operator()(game::entity::Id const& id) const noexcept { return static_cast<size_t>(id.second); }
};
