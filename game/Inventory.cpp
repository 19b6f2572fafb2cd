#include "game/Inventory.hpp"

#include "nerox/filesystem/Stream.hpp"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <vector>

namespace game {

namespace {

// Reads with read, turning a stream failure into one error of the record's kind.
template <class Read> auto Guarded(char const* record, Read&& read) {
    try {
        return read();
    } catch (std::runtime_error const& failure) {
        throw std::runtime_error(std::string("Damaged ") + record + " record: " + failure.what());
    }
}

uint64_t SlotNumber(std::string const& key) {
    uint64_t slot = 0;
    auto const [end, error] = std::from_chars(key.data(), key.data() + key.size(), slot);
    if (error != std::errc() || end != key.data() + key.size() || key.empty())
        throw std::runtime_error("slot key '" + key + "' is not a number");
    return slot;
}

} // namespace

void Item::Write(nerox::filesystem::Stream& stream) const {
    stream.Write(id.first);
    stream.Write(id.second);
    stream.Write(module.vendor);
    stream.Write(module.name);
    stream.Write(name);
    stream.Write(stack);
    std::vector<std::pair<std::string const, std::string> const*> sorted;
    sorted.reserve(attributes.size());
    for (auto const& entry : attributes) sorted.push_back(&entry);
    std::sort(sorted.begin(), sorted.end(), [](auto a, auto b) { return a->first < b->first; });
    stream.Write(static_cast<uint64_t>(sorted.size()));
    for (auto const* entry : sorted) {
        stream.Write(entry->first);
        stream.Write(entry->second);
    }
}

Item Item::Read(nerox::filesystem::Stream& stream) {
    return Guarded("item", [&] {
        Item item;
        stream.Read(item.id.first);
        stream.Read(item.id.second);
        stream.Read(item.module.vendor);
        stream.Read(item.module.name);
        stream.Read(item.name);
        stream.Read(item.stack);
        uint64_t count = 0; // a count past the data fails at the first read beyond it
        stream.Read(count);
        for (uint64_t i = 0; i < count; ++i) {
            std::string key, value;
            stream.Read(key);
            stream.Read(value);
            item.attributes[std::move(key)] = std::move(value);
        }
        return item;
    });
}

Inventory::Inventory(Inventory const& other) {
    std::lock_guard lock(other.mutex);
    id = other.id;
    size = other.size;
    items = other.items;
}

Inventory& Inventory::operator=(Inventory const& other) {
    if (this == &other) return *this;
    std::scoped_lock locks(mutex, other.mutex);
    id = other.id;
    size = other.size;
    items = other.items;
    return *this;
}

void Inventory::Write(nerox::filesystem::Stream& stream) const {
    std::lock_guard lock(mutex);
    stream.Write(id.first);
    stream.Write(id.second);
    stream.Write(size);
    std::vector<std::pair<uint64_t, Item const*>> sorted;
    sorted.reserve(items.size());
    for (auto const& [key, item] : items) sorted.emplace_back(SlotNumber(key), &item);
    std::sort(sorted.begin(), sorted.end());
    stream.Write(static_cast<uint64_t>(sorted.size()));
    for (auto const& [slot, item] : sorted) {
        stream.Write(slot);
        item->Write(stream);
    }
}

Inventory Inventory::Read(nerox::filesystem::Stream& stream) {
    return Guarded("inventory", [&] {
        Inventory inventory;
        stream.Read(inventory.id.first);
        stream.Read(inventory.id.second);
        stream.Read(inventory.size);
        uint64_t count = 0;
        stream.Read(count);
        for (uint64_t i = 0; i < count; ++i) {
            uint64_t slot = 0;
            stream.Read(slot);
            if (slot >= inventory.size)
                throw std::runtime_error("slot " + std::to_string(slot) + " is past the last slot (" +
                                         std::to_string(inventory.size) + " slots)");
            auto const [entry, added] = inventory.items.try_emplace(std::to_string(slot), Item::Read(stream));
            if (!added) throw std::runtime_error("slot " + std::to_string(slot) + " holds two items");
        }
        return inventory;
    });
}

} // namespace game
