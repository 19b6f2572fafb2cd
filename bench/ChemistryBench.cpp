#include "game/Chemistry.hpp"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

namespace {

using game::Molecule;

/// A molecule from the molecule table: a shared lock and a copy of the row.
void BM_MoleculeKnown(benchmark::State& state) {
    std::string const formula = "C5H12";
    for (auto _ : state) {
        Molecule molecule(formula);
        benchmark::DoNotOptimize(molecule.composition.data());
    }
}
BENCHMARK(BM_MoleculeKnown);

/// A formula never seen before: parsed, then remembered under the exclusive lock.
/// The text is made in the loop (a few short appends), and the table grows by one row
/// per iteration, so the iterations are fixed.
void BM_MoleculeNew(benchmark::State& state) {
    static uint64_t serial = 0;
    for (auto _ : state) {
        std::string formula = "C6H12O6Na" + std::to_string(++serial);
        Molecule molecule(formula);
        benchmark::DoNotOptimize(molecule.composition.data());
    }
}
BENCHMARK(BM_MoleculeNew)->Iterations(200000);

/// Molar mass of a molecule with four entries.
void BM_MolarMass(benchmark::State& state) {
    Molecule const molecule("C2H5OH");
    for (auto _ : state) benchmark::DoNotOptimize(molecule.GetMolarMass());
}
BENCHMARK(BM_MolarMass);

/// Maximum liquid density of a formula whose value is remembered: formula text and a shared lookup.
void BM_MaximumLiquidDensityRemembered(benchmark::State& state) {
    Molecule const molecule("C2H5OH");
    molecule.GetMaximumLiquidDensity();
    for (auto _ : state) benchmark::DoNotOptimize(molecule.GetMaximumLiquidDensity());
}
BENCHMARK(BM_MaximumLiquidDensityRemembered);

} // namespace
