#pragma once
// What a network module does between a server and a client process, done
// inside one process: every server entity gets a client entity of the same
// id, module and item type, which follows the server's place and joints and
// goes when the server's entity goes.
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include <glm/glm.hpp>
#include <glm/gtc/quaternion.hpp>

#include "game/entity/BaseEntity.hpp"
#include "game/entity/Id.hpp"
#include "nerox/modular/ModuleID.hpp"

// Named locallink, not link: the C library has a function of that name.
namespace locallink {

/// The local link between the server and the client side of one process.
///
/// Threads, and what each one touches:
///   ServerTick  the server update thread, after each tick. Reads the server
///               entities and writes only _building, then swaps it into
///               _published under _mutex and queues one Apply.
///   Apply       the main thread, inside Game::Update (queued through
///               Game::Synchronize). Swaps the newest _published into
///               _applying under _mutex, then alone touches client entities.
/// So each side writes its own buffer, the hand-over is one swap under the
/// mutex, and no entity is touched by both threads: a client entity only ever
/// sees a complete tick. A slow client skips ticks instead of queueing them.
class LocalLink {
public:
    /// One server entity as a tick left it.
    struct EntityState {
        game::entity::Id id;                                    ///< Also the client entity's id.
        nerox::modular::ModuleID module;                        ///< Defining module.
        std::string itemType;                                   ///< Item type inside it.
        game::entity::Id parent;                                ///< Parent entity; unset for none.
        glm::dvec3 position{0.0};                               ///< In the parent's or environment's frame.
        glm::dquat orientation{1.0, 0.0, 0.0, 0.0};             ///< Same frame.
        glm::dvec3 velocity{0.0};                               ///< m/s, same frame.
        std::map<std::string, game::entity::JointState> joints; ///< Joint values by name.
        bool dynamic = false;                                   ///< The entity may move.
        uint64_t tick = 0;                                      ///< The server tick it comes from.
    };

    LocalLink() = default;
    LocalLink(LocalLink const&) = delete;
    LocalLink& operator=(LocalLink const&) = delete;

    /// Server thread: takes the state of every server entity and hands it over.
    void ServerTick();
    /// Main thread: brings the client entities to the newest state handed over.
    void Apply();
    /// Main thread, with the server stopped: destroys the client entities this
    /// link made and forgets everything, for a next world.
    void Reset();

    /// Share of the way to the server's place a client entity covers per 1/60 s.
    float interpolationRate = 0.5f;

    /// Ticks handed over so far (read on any thread).
    uint64_t TicksHandedOver() const;
    /// Client entities made so far, and destroyed so far (main thread).
    uint64_t created = 0;
    uint64_t destroyed = 0;

private:
    std::vector<EntityState> _building; // server thread only
    uint64_t _ticks = 0;                // server thread only

    mutable std::mutex _mutex;           // guards the three members below
    std::vector<EntityState> _published; // the newest complete tick
    bool _fresh = false;                 // _published has not been applied
    bool _queued = false;                // an Apply waits in Game::Synchronize's queue
    uint64_t _handedOver = 0;

    std::vector<EntityState> _applying;                      // main thread only
    std::unordered_map<game::entity::Id, uint64_t> _clients; // main thread only: made here, by last tick seen
};

} // namespace locallink
