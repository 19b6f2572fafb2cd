// The local link, loaded as a SERVER_Mod: after every server tick it hands the
// server entities over to the client side of the same process (LocalLink.hpp).
// Load it in a single-player client, and in a headless run to keep client
// entities alongside the server's.
#include "LocalLink.hpp"

#include "game/modules/Hooks.hpp"

#include <cstdio>
#include <type_traits>

namespace {

locallink::LocalLink theLink;

} // namespace

extern "C" {

// Server thread, after the entity stages and the physics step of a tick.
void Server_GameUpdate(double) {
    theLink.ServerTick();
}

// Runs when the library is released: the game has stopped, its client
// entities are gone and no Apply waits in the queue any more.
void ModuleUnload() {
    std::printf("[link] %llu ticks handed over, %llu client entities made, %llu destroyed\n",
                static_cast<unsigned long long>(theLink.TicksHandedOver()),
                static_cast<unsigned long long>(theLink.created), static_cast<unsigned long long>(theLink.destroyed));
}

} // extern "C"

static_assert(std::is_same_v<decltype(&Server_GameUpdate), game::modules::DeltaTimeHook>);
