// A server module whose tick hook throws on its tenth call.
#include <cstdio>
#include <stdexcept>

namespace {
int ticks = 0;
}

extern "C" {
void ModuleUnload() {
    std::printf("thrower unloaded\n");
    std::fflush(stdout);
}
void Server_GameUpdate(double) {
    if (++ticks == 10) throw std::runtime_error("tick 10 failed");
}
}
