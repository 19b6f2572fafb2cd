#include "LocalLink.hpp"

#include "game/Game.hpp"
#include "game/entity/ClientSideEntity.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "nerox/cpu/Profiler.hpp"

#include <iterator>

namespace locallink {

using game::entity::ClientSideEntity;
using game::entity::ServerSideEntity;

void LocalLink::ServerTick() {
    nerox::cpu::Profiler scope("LocalLink::ServerTick");
    ++_ticks;
    size_t count = 0;
    ServerSideEntity::ForEach([&](ServerSideEntity::Ptr entity) {
        if (count == _building.size()) _building.emplace_back();
        EntityState& state = _building[count++];
        state.id = entity->id;
        state.module = entity->moduleId;
        state.itemType = entity->itemType; // reuses the string's room
        state.parent = entity->parentEntity;
        state.position = entity->position;
        state.orientation = entity->orientation;
        state.velocity = entity->linearVelocity;
        state.joints = entity->jointStates; // reuses the map's nodes
        state.dynamic = entity->isDynamic;
        state.tick = _ticks;
    });
    _building.resize(count);

    bool queue = false;
    {
        std::lock_guard lock(_mutex);
        _published.swap(_building);
        _fresh = true;
        ++_handedOver;
        queue = !_queued;
        _queued = true;
    }
    if (queue) Game::Synchronize([this] { Apply(); });
}

uint64_t LocalLink::TicksHandedOver() const {
    std::lock_guard lock(_mutex);
    return _handedOver;
}

void LocalLink::Apply() {
    {
        std::lock_guard lock(_mutex);
        _queued = false;
        if (!_fresh) return;
        _applying.swap(_published);
        _fresh = false;
    }
    if (_applying.empty() && _clients.empty()) return;
    uint64_t const tick = _applying.empty() ? 0 : _applying.front().tick;
    for (EntityState const& state : _applying) {
        ClientSideEntity::Ptr entity = ClientSideEntity::Get(state.id);
        if (!entity) {
            entity = ClientSideEntity::Spawn(state.id, state.module, state.itemType);
            entity->position = state.position; // appears where it is, then follows
            entity->orientation = state.orientation;
            entity->interpolationRate = interpolationRate;
            ++created;
        }
        _clients[state.id] = tick;
        entity->parentEntity = state.parent;
        entity->isDynamic = state.dynamic;
        entity->SetTarget(state.position, state.orientation);
        entity->linearVelocity = state.velocity;
        for (auto const& [name, joint] : state.joints) {
            game::entity::JointState& mine = entity->jointStates[name];
            if (mine.position == joint.position && mine.rotation == joint.rotation) continue;
            mine = joint;
            entity->nodesDirty = true;
        }
    }
    // What the tick no longer lists is gone on the server.
    for (auto it = _clients.begin(); it != _clients.end();) {
        if (it->second == tick && !_applying.empty()) {
            ++it;
            continue;
        }
        ClientSideEntity::Destroy(it->first);
        ++destroyed;
        it = _clients.erase(it);
    }
}

void LocalLink::Reset() {
    for (auto const& [id, tick] : _clients) ClientSideEntity::Destroy(id);
    _clients.clear();
    _applying.clear();
    std::lock_guard lock(_mutex);
    _published.clear();
    _fresh = false;
}

} // namespace locallink
