#pragma once
#include <memory>
#include <mutex>
#include <vector>

#include "nerox/SharedMutex.hpp"

namespace game::graphics {

/// Enters object in a table of weak pointers at its first free slot, storing
/// the slot in object->sharedObjectsIndex.
template <class T, class Object>
void EnterInTable(std::vector<std::weak_ptr<T>>& table, nerox::SharedMutex& mutex,
                  std::shared_ptr<Object> const& object) {
    std::unique_lock<nerox::SharedMutex> lock(mutex);
    size_t slot = 0;
    while (slot < table.size() && !table[slot].expired()) ++slot;
    object->sharedObjectsIndex = slot;
    if (slot < table.size())
        table[slot] = object;
    else
        table.push_back(object);
}

} // namespace game::graphics
