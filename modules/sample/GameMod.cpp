// The client side of the sample module, loaded as a GAME_Mod.
//
// A module exports plain C functions whose names are the hooks it wants; the
// game looks them up when it loads the library and skips every hook that is
// missing. Everything here is optional.
#include "game/Game.hpp"

#include <cstdio>

namespace {
double clientSeconds = 0.0; // Game time seen by this module's Game_Update.
unsigned long passes = 0;   // Client passes seen.
} // namespace

extern "C" {

// Runs once when the library is loaded, before any hook.
void ModuleLoad() { std::printf("[sample] client module loaded\n"); }

// Runs once when the library is released.
void ModuleUnload() { std::printf("[sample] client module unloaded\n"); }

// Game::Start.
void Game_Start() { std::printf("[sample] Game_Start\n"); }

// Game::Ready.
void Game_Ready() { std::printf("[sample] Game_Ready\n"); }

// One client pass, for modules sorted into the "update" list.
void Game_Update(double deltaTime) {
    clientSeconds += deltaTime;
    ++passes;
}

// Game::Stop.
void Game_Stop() {
    std::printf("[sample] Game_Stop after %lu client passes (%.2f s of client time)\n", passes, clientSeconds);
}

} // extern "C"
