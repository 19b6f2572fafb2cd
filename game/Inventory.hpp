#pragma once
// What a player carries: items, and inventories of numbered slots. Both are
// plain value records that content modules fill and the inventory windows read.
#include "game/UniqueId.hpp"
#include "nerox/modular/ModuleID.hpp"

#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>

namespace nerox::filesystem {
class Stream;
}

namespace game {

/// One item, or a stack of identical ones.
struct Item {
    UniqueId id;                     ///< Identity of the item; the game copies it and never compares it.
    nerox::modular::ModuleID module; ///< Module of the item type.
    std::string name;                ///< Item type within the module.
    uint32_t stack = 1;              ///< How many units this item is.
    std::unordered_map<std::string, std::string> attributes; ///< Per-item properties.

    /// Writes the item to stream (id, module, name, stack, attributes sorted by key).
    void Write(nerox::filesystem::Stream& stream) const;
    /// Reads an item that Write wrote. Throws std::runtime_error "Damaged item
    /// record: ..." when the stream ends early or holds an impossible count.
    static Item Read(nerox::filesystem::Stream& stream);
};

/// Numbered slots, some holding an item. The key of items is the slot's index
/// as decimal text, from "0"; an index below size with no key is an empty slot.
/// Copies take the source's lock; readers of items hold mutex while they search.
struct Inventory {
    UniqueId id;                                 ///< Identity of the inventory.
    uint64_t size = 0;                           ///< Number of slots.
    std::unordered_map<std::string, Item> items; ///< The occupied slots by index text.
    mutable std::mutex mutex;                    ///< Held while items is searched or changed.

    Inventory() = default;
    Inventory(Inventory const& other);
    Inventory& operator=(Inventory const& other);

    /// Writes the inventory to stream: id, size, then the items by slot number.
    void Write(nerox::filesystem::Stream& stream) const;
    /// Reads an inventory that Write wrote. Throws std::runtime_error "Damaged
    /// inventory record: ..." for a short stream, a slot past size or twice.
    static Inventory Read(nerox::filesystem::Stream& stream);
};

} // namespace game
