// Program graphs at scale, loaded and compiled as `tessara nodes compile` does:
// a chain of 100,000 ADD nodes (each takes the one before), and "diamonds"
// whose every level's node takes both inputs from the node below, so that the
// program's text doubles with each level; the deep ones are refused for their
// size, and that refusal must come at once.
#include "game/graphics/ui/NeroxCodeEditor.hpp"

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <string>

namespace {

namespace nce = game::graphics::ui::NeroxCodeEditor;
using json = nlohmann::json;

std::string NodeId(int index) {
    char text[29];
    std::snprintf(text, sizeof text, "NODE%024X", index + 1);
    return text;
}

json Math(int index, std::string const& a, std::string const& b) {
    return {{"class", "MathNode"},
            {"id", NodeId(index)},
            {"title", "ADD"},
            {"inputs", {a, b}},
            {"inputDefaults", {"0", "1"}},
            {"inputTypes", json::object()},
            {"comment", ""},
            {"pos", {{"x", 0.0}, {"y", 0.0}}},
            {"size", {{"x", 0.0}, {"y", 0.0}}}};
}

/// levels ADD nodes, each taking the one before once (chain) or twice (diamond), then an output.
std::string Graph(int levels, bool diamond) {
    json nodes = json::array();
    for (int i = 0; i < levels; ++i) {
        std::string const below = i == 0 ? "" : NodeId(i - 1);
        nodes.push_back(Math(i, below, diamond ? below : ""));
    }
    nodes.push_back({{"class", "OutputNode"},
                     {"id", NodeId(levels)},
                     {"title", "Output"},
                     {"index", 0},
                     {"inputs", {NodeId(levels - 1)}},
                     {"inputDefaults", {""}},
                     {"inputTypes", json::object()},
                     {"comment", ""},
                     {"alias", ""},
                     {"pos", {{"x", 0.0}, {"y", 0.0}}},
                     {"size", {{"x", 0.0}, {"y", 0.0}}}});
    return json{{"nodes", nodes}}.dump();
}

void Compile(benchmark::State& state, bool diamond) {
    std::string const source = Graph(static_cast<int>(state.range(0)), diamond);
    nce::CompileResult result;
    for (auto _ : state) result = nce::Compile(source, "bench.main.nc");
    state.counters["code_bytes"] = static_cast<double>(result.code.size());
    state.counters["refused"] = result.ok ? 0.0 : 1.0;
    state.SetLabel(result.ok ? "compiled" : result.error.substr(0, 60));
}

void BM_ProgramChain(benchmark::State& state) {
    Compile(state, false);
}
void BM_ProgramDiamond(benchmark::State& state) {
    Compile(state, true);
}

} // namespace

BENCHMARK(BM_ProgramChain)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_ProgramDiamond)->Arg(20)->Arg(28)->Arg(40)->Unit(benchmark::kMillisecond)->Iterations(1);
