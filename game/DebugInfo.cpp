#include "game/DebugInfo.hpp"

namespace game {

std::map<char const*, uint64_t> DebugInfo::infos;
std::mutex DebugInfo::infosMutex;

void DebugInfo::Set(char const* name, uint64_t value) {
    std::lock_guard lock(infosMutex);
    infos[name] = value;
}

void DebugInfo::Add(char const* name, uint64_t amount) {
    std::lock_guard lock(infosMutex);
    infos[name] += amount;
}

uint64_t DebugInfo::Get(char const* name) {
    std::lock_guard lock(infosMutex);
    auto it = infos.find(name);
    return it == infos.end() ? 0 : it->second;
}

void DebugInfo::Clear() {
    std::lock_guard lock(infosMutex);
    infos.clear();
}

} // namespace game
