// A server module built three ways for the module watcher's test: RELOAD_BUILD
// names the build in every line it prints, and RELOAD_UNRESOLVED makes a build
// whose library refers to data nobody defines, so that loading it fails.
#include "game/entity/ServerSideEntity.hpp"

#include <cstdio>

namespace {
double simulated = 0.0;
double nextLine = 0.0;
} // namespace

#ifdef RELOAD_UNRESOLVED
extern int reload_test_data_nobody_defines;
extern "C" {
int* reload_test_reference = &reload_test_data_nobody_defines;
}
#endif

extern "C" void ModuleLoad() {
    std::printf("[reload] %s build loaded\n", RELOAD_BUILD);
    std::fflush(stdout);
}

extern "C" void ModuleUnload() {
    std::printf("[reload] %s build unloaded\n", RELOAD_BUILD);
    std::fflush(stdout);
}

extern "C" void Server_Load(char const* world) {
    std::printf("[reload] %s build sees the world '%s' with %zu entities\n", RELOAD_BUILD, world,
                game::entity::ServerSideEntity::Count());
    std::fflush(stdout);
}

extern "C" void Server_GameUpdate(double deltaTime) {
    simulated += deltaTime;
    if (simulated < nextLine) return;
    nextLine = simulated + 0.25;
    std::printf("[reload] %s build ticks with %zu entities\n", RELOAD_BUILD, game::entity::ServerSideEntity::Count());
    std::fflush(stdout);
}
