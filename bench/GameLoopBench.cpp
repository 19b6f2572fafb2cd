// Costs of the game's per-tick and per-pass plumbing, without modules or entities:
// what every server tick and client pass pays before any content runs.
#include "game/Game.hpp"
#include "game/modules/GAME_Mod.hpp"
#include "nerox/cpu/Profiler.hpp"

#include <benchmark/benchmark.h>

namespace {

void BM_ServerTick(benchmark::State& state) {
    nerox::cpu::Profiler::enabled = state.range(0) != 0;
    for (auto _ : state) Game::ServerUpdate(1.0 / 60.0, 4);
    nerox::cpu::Profiler::enabled = false;
    nerox::cpu::Profiler::Reset();
    state.SetLabel(state.range(0) ? "profiler on" : "profiler off");
}
BENCHMARK(BM_ServerTick)->Arg(0)->Arg(1);

void BM_ClientPassDrainingSynchronizedWork(benchmark::State& state) {
    int const queued = static_cast<int>(state.range(0));
    int counter = 0;
    for (auto _ : state) {
        for (int i = 0; i < queued; ++i) Game::Synchronize([&counter] { ++counter; });
        Game::Update(0.0);
    }
    benchmark::DoNotOptimize(counter);
    state.SetItemsProcessed(state.iterations() * queued);
}
BENCHMARK(BM_ClientPassDrainingSynchronizedWork)->Arg(0)->Arg(16)->Arg(256);

void BM_ForEachSortedModuleOnAnEmptyList(benchmark::State& state) {
    using game::modules::GAME_Mod;
    GAME_Mod::SortModules("update", [](GAME_Mod::Ptr, GAME_Mod::Ptr) { return false; });
    int calls = 0;
    for (auto _ : state) GAME_Mod::ForEachSortedModule("update", [&calls](GAME_Mod::Ptr&) { ++calls; });
    benchmark::DoNotOptimize(calls);
}
BENCHMARK(BM_ForEachSortedModuleOnAnEmptyList);

} // namespace
