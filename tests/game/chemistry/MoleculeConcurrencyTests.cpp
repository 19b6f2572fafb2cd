// Molecules built and densities asked for from several threads at once, for formulas
// already known and for new ones that every thread parses and remembers at the same time.
#include <gtest/gtest.h>

#include <latch>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "game/Chemistry.hpp"

using game::Molecule;
using Entry = std::tuple<uint8_t, uint8_t>;

namespace {

struct Case {
    std::string formula;
    std::vector<Entry> composition;
};

/// Known rows, bare symbols, and alkanes, silanes and boranes no other test names.
std::vector<Case> Cases() {
    std::vector<Case> cases = {
        {"H2O", {{1, 2}, {8, 1}}}, {"CH4", {{6, 1}, {1, 4}}}, {"C5H12", {{6, 5}, {1, 12}}},
        {"Kr", {{36, 1}}},         {"Fe", {{26, 1}}},         {"NaCl", {{11, 1}, {17, 1}}},
    };
    for (int k = 7; k <= 40; ++k) {
        auto const n = static_cast<uint8_t>(k);
        auto const h = static_cast<uint8_t>(2 * k + 2);
        cases.push_back({"C" + std::to_string(k) + "H" + std::to_string(h), {{6, n}, {1, h}}});
        cases.push_back({"Si" + std::to_string(k) + "H" + std::to_string(h), {{14, n}, {1, h}}});
        cases.push_back({"B" + std::to_string(k) + "H" + std::to_string(k + 4) + "Uus", {{5, n}, {1, uint8_t(k + 4)}, {117, 1}}});
    }
    return cases;
}

} // namespace

TEST(MoleculeConcurrency, ConstructionAndDensityFromSeveralThreads) {
    std::vector<Case> const cases = Cases();
    constexpr int threadCount = 4;
    std::vector<std::vector<double>> densities(threadCount, std::vector<double>(cases.size()));
    std::vector<int> mismatches(threadCount, 0);
    std::latch start(threadCount);

    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            for (int round = 0; round < 3; ++round) {
                // Each thread walks the cases from a different place, so that first
                // parses and lookups of the same formula overlap.
                for (size_t i = 0; i < cases.size(); ++i) {
                    size_t const index = (i + static_cast<size_t>(t) * cases.size() / threadCount) % cases.size();
                    Molecule const molecule(cases[index].formula);
                    if (molecule.composition != cases[index].composition) ++mismatches[t];
                    double const density = molecule.GetMaximumLiquidDensity();
                    if (round > 0 && density != densities[t][index]) ++mismatches[t];
                    densities[t][index] = density;
                    if (molecule.GetMolarMass() <= 0.0) ++mismatches[t];
                }
            }
        });
    }
    for (std::thread& thread : threads) thread.join();

    for (int t = 0; t < threadCount; ++t) {
        EXPECT_EQ(mismatches[t], 0) << "thread " << t;
        EXPECT_EQ(densities[t], densities[0]) << "thread " << t;
    }
    for (size_t i = 0; i < cases.size(); ++i) {
        Case const& c = cases[i];
        if (c.formula.size() > 2) {
            ASSERT_EQ(Molecule::molecules.count(c.formula), 1u) << c.formula;
            EXPECT_EQ(Molecule::molecules.at(c.formula).composition, c.composition) << c.formula;
        }
        ASSERT_EQ(Molecule::liquidMoleculesMaxDensity.count(c.formula), 1u) << c.formula;
        EXPECT_EQ(Molecule::liquidMoleculesMaxDensity.at(c.formula), densities[0][i]) << c.formula;
    }
}
