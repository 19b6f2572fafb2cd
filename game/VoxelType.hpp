#pragma once
// The process-wide table of terrain block types. Content modules register their
// types while they load; the first enumeration freezes the table for good.
#include "nerox/graphics/TextureRef.hpp"
#include "nerox/modular/ModuleID.hpp"

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace game {

/// One block type, and (statically) the registry of all of them.
///
/// Ids are dense: 0 is the empty voxel, real types count from 1 in the order
/// they were first registered, and nothing is ever removed. They are stable for
/// the life of the process, not across runs that register in another order.
class VoxelType {
public:
    nerox::modular::ModuleID module; ///< The module that owns the type.
    std::string name;                ///< Type name within the module.
    uint32_t properties = 0;         ///< Content modules' word; 0 given means "keep the registered one".
    uint16_t id = 0;                 ///< Index in allVoxelTypes; 0 is the empty voxel.
    uint32_t textureIndex = 0; ///< First of the type's textures in the renderer's table (low 16 bits); 0 for none.

    /// Registers the type module.name, or finds it when it exists, and leaves this
    /// object a copy of its row. A non-zero properties replaces the row's value; 0
    /// takes the row's. textures, when there are any and a renderer exists, are
    /// added to the renderer's texture table with its default sampler, and a new
    /// row keeps where they start; a known type keeps its first textureIndex.
    /// Throws std::runtime_error "Trying to add more voxel types after executing
    /// VoxelType::ForEach()" once the registry is frozen (nothing is added then).
    VoxelType(std::string const& module, std::string const& name, unsigned int properties,
              std::vector<nerox::graphics::TextureRef> const& textures);

    /// Freezes the registry, then calls callback with each type's id and row, from
    /// id 1 in order. The callback runs under the registry's lock and must not
    /// register a type. A callback that throws leaves the registry frozen.
    static void ForEach(std::function<void(unsigned short, game::VoxelType const&)>&& callback);

    /// The registry, indexed by id. Read it under mu, or without a lock once frozen.
    static std::vector<VoxelType> allVoxelTypes;
    /// Ids by "module.name".
    static std::unordered_map<std::string, uint16_t> allVoxelTypesByName;
    /// The empty voxel: id 0, key ".", made before any other type.
    static VoxelType const _empty;
    /// Set by the first ForEach; registration then fails.
    static bool locked;
    /// Guards the four members above.
    static std::mutex mu;

private:
    VoxelType() = default; // the empty voxel
    static VoxelType MakeEmpty();
};

} // namespace game
