#include "game/VoxelType.hpp"

#include "game/Game.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "nerox/graphics/TextureRef.hpp"

#include <stdexcept>
#include <tuple>

namespace game {

// Defined in this order so that the table exists when _empty registers itself.
std::vector<VoxelType> VoxelType::allVoxelTypes;
std::unordered_map<std::string, uint16_t> VoxelType::allVoxelTypesByName;
bool VoxelType::locked = false;
std::mutex VoxelType::mu;
VoxelType const VoxelType::_empty = VoxelType::MakeEmpty();

VoxelType VoxelType::MakeEmpty() {
    return VoxelType("", "", 0, {});
}

VoxelType::VoxelType(std::string const& module, std::string const& name, unsigned int properties,
                     std::vector<nerox::graphics::TextureRef> const& textures)
    : module(module), name(name), properties(properties) {
    std::lock_guard lock(mu);
    if (locked) throw std::runtime_error("Trying to add more voxel types after executing VoxelType::ForEach()");
    if (!textures.empty() && Game::renderer != nullptr) {
        std::vector<std::tuple<nerox::graphics::TextureRef, VkSampler>> entries;
        entries.reserve(textures.size());
        for (auto const& texture : textures) entries.emplace_back(texture, Game::renderer->DefaultSampler());
        textureIndex = Game::renderer->AddTextures(entries) & 0xFFFFu;
    }
    std::string const key = module + "." + name;
    auto const found = allVoxelTypesByName.find(key);
    if (found != allVoxelTypesByName.end()) {
        id = found->second;
    } else {
        if (allVoxelTypes.size() > 0xFFFF) throw std::runtime_error("Too many voxel types (65536)");
        id = static_cast<uint16_t>(allVoxelTypes.size());
        allVoxelTypes.push_back(*this);
        allVoxelTypesByName.emplace(key, id);
    }
    VoxelType& row = allVoxelTypes[id];
    if (this->properties == 0)
        this->properties = row.properties;
    else
        row.properties = this->properties;
}

void VoxelType::ForEach(std::function<void(unsigned short, game::VoxelType const&)>&& callback) {
    std::lock_guard lock(mu);
    locked = true;
    for (size_t i = 1; i < allVoxelTypes.size(); ++i) callback(static_cast<unsigned short>(i), allVoxelTypes[i]);
}

} // namespace game
