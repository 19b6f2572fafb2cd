// The server side of the sample module, loaded as a SERVER_Mod. It counts the
// ticks and writes a progress line once per simulated second.
#include "game/Game.hpp"

#include <cstdio>

namespace {
unsigned long ticks = 0;      // Server ticks seen.
double simulatedSeconds = 0;  // Sum of the ticks' delta times.
double nextReport = 1.0;      // Simulated time of the next progress line.
} // namespace

extern "C" {

void ModuleLoad() { std::printf("[sample] server module loaded\n"); }

// Before the entity stages of every tick.
void Server_BeforeUpdate(double deltaTime) { simulatedSeconds += deltaTime; }

// After the entity stages of every tick.
void Server_GameUpdate(double) {
    ++ticks;
    if (simulatedSeconds + 1e-9 >= nextReport) {
        std::printf("[sample] %lu ticks, %.1f s simulated\n", ticks, simulatedSeconds);
        std::fflush(stdout);
        nextReport += 1.0;
    }
}

} // extern "C"
