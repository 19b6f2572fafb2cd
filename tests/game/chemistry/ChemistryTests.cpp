// The fixed element and molecule tables, each guarded by a checksum, how a molecule
// is read from its name and remembered, what it answers, and its use from several threads.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <latch>
#include <map>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "game/Chemistry.hpp"

using game::Element;
using game::Molecule;
using Entry = std::tuple<uint8_t, uint8_t>;
using Composition = std::vector<Entry>;

namespace {

constexpr double amu = 1.6605402e-27;
constexpr double sphere = 4.1887902047863905 * 9.2e-11 * 9.2e-11 * 9.2e-11; // one atom's volume

/// FNV-1a of text: a checksum that any changed, added or moved character alters.
uint64_t Fnv(std::string const& text) {
    uint64_t hash = 14695981039346656037ull;
    for (unsigned char c : text) hash = (hash ^ c) * 1099511628211ull;
    return hash;
}

/// The rows of a map in key order, values to six decimals.
template <typename Map> std::string Rows(Map const& map) {
    std::string text;
    char value[32];
    for (auto const& [key, number] : std::map<std::string, double>(map.begin(), map.end()))
        text += key + "=" + (std::snprintf(value, sizeof value, "%.6f", number), value) + ";";
    return text;
}

/// A composition as "number:count" entries, or "none" when empty.
std::string Text(Composition const& composition) {
    std::string text;
    for (auto const& [number, count] : composition)
        text += (text.empty() ? "" : " ") + std::to_string(number) + ":" + std::to_string(count);
    return text.empty() ? "none" : text;
}

Molecule WithEntries(std::initializer_list<Entry> entries) {
    Molecule molecule("_");
    molecule.composition = entries;
    return molecule;
}

} // namespace

// Symbols, names as saved worlds know them ("Berylium", "Cesium", the systematic names
// of 113, 115, 117 and 118) and oxidation states, most positive first, none for the
// noble gases and 0 alone from 105 on. The mass sum includes Kr (84.798) and Rb
// (84.468), deliberately a unit off a current chart, and 0 for the unnamed superheavies.
TEST(ElementTable, RecordsAndSymbolIndexMatchTheirChecksums) {
    ASSERT_EQ(Element::elements.size(), 119u);
    ASSERT_EQ(Element::elementsBySymbol.size(), 119u);
    EXPECT_TRUE(Element::elements[0].symbol == "_" && Element::elements[0].name.empty());
    std::string records;
    double massSum = 0.0;
    for (size_t i = 0; i < Element::elements.size(); ++i) {
        Element const& element = Element::elements[i];
        EXPECT_EQ(element.number, i);
        EXPECT_EQ(Element::elementsBySymbol.at(element.symbol), &element);
        massSum += element.mass;
        records += element.symbol + " " + element.name;
        for (int8_t state : element.oxidationStates) records += " " + std::to_string(state);
        records += ";";
    }
    EXPECT_EQ(Fnv(records), 8192138392307511706ull) << records;
    EXPECT_NEAR(massSum, 16066.194, 1e-9);
    EXPECT_EQ(Element::elementsBySymbol.count("h") + Element::elementsBySymbol.count("Xx"), 0u);
}

TEST(MoleculeTable, RowsAreParsedFromTheirKeys) {
    // No key writes a count of 1, so the formula text gives the key back.
    for (char const* key :
         {"H2", "N",    "He", "Ne", "F",  "Ar", "Xe",  "Cl",  "Se",   "O2",  "CO2", "H2O", "Si",  "Al",    "Fe", "Ca",
          "Na", "NaCl", "K",  "Mg", "Ti", "CO", "CH4", "NH3", "C6H6", "CS2", "HCl", "NO",  "N2O", "C5H12", "SO2"})
        EXPECT_EQ(Molecule::molecules.at(key).Formula(), key);
    EXPECT_EQ(Molecule::molecules.count("N2") + Molecule::molecules.count("Cl2"), 0u);
    EXPECT_EQ(Molecule::gasMoleculesIndexOfRefraction.size(), 30u);
    EXPECT_EQ(Fnv(Rows(Molecule::gasMoleculesIndexOfRefraction)), 12753273608037242949ull)
        << Rows(Molecule::gasMoleculesIndexOfRefraction);
}

// Other tests in this program grow the two maps; a fresh process shows them as loaded.
TEST(MoleculeTableDeathTest, GrowingMapsStartWithTheirFixedRows) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            std::string const densities = Rows(Molecule::liquidMoleculesMaxDensity);
            std::cerr << "molecules " << Molecule::molecules.size() << ", densities " << densities << '\n';
            std::exit(Molecule::molecules.size() == 31 ? 0 : 1);
        },
        testing::ExitedWithCode(0),
        "molecules 31, densities CH4=400.000000;CO2=1600.000000;H2=100.000000;"
        "H2O=1000.000000;O2=1600.000000;");
}

TEST(FormulaParsing, TableOfFormulas) {
    struct Case {
        std::string formula;
        char const* composition;
    };
    Case const cases[] = {
        // Entries keep their order and are not merged; three-letter symbols inside formulas.
        {"C2H5OH", "6:2 1:5 8:1 1:1"},
        {"HeHe", "2:1 2:1"},
        {"NaCl2", "11:1 17:2"},
        {"UuoH2", "118:1 1:2"},
        {"HUus3", "1:1 117:3"},
        // At most two lower-case letters follow the capital; a known two-letter prefix
        // does not rescue an unknown three-letter symbol.
        {"Uuoo", "none"},
        {"Hex2", "none"},
        // Counts wrap modulo 256, however long the digit run (2^64 + 1, 10^20 + 3,
        // 10^5000 - 1 and 10^3000, after which the formula goes on).
        {"H300", "1:44"},
        {"H255", "1:255"},
        {"H256O", "1:0 8:1"},
        {"H007", "1:7"},
        {"C1", "6:1"},
        {"H18446744073709551617", "1:1"},
        {"O100000000000000000003", "8:3"},
        {"H" + std::string(5000, '9'), "1:255"},
        {"C1" + std::string(3000, '0') + "O2", "6:0 8:2"},
        // One bad part voids the whole formula.
        {"H2OXx", "none"},
        {"CH3Q", "none"},
        {"2H", "none"},
        {"H2O ", "none"},
        {" H2O", "none"},
        {"H2O\n", "none"},
        {"H-O", "none"},
        {"H2o", "none"},
        {"HO+", "none"},
        {"H\xC3\xA9", "none"},
        {"\xFF", "none"},
        {"Na\x80", "none"},
        {std::string("H\0O", 3), "none"},
        {std::string("H2\0", 3), "none"},
        {std::string(100000, 'H') + "x!", "none"},
        {std::string(100000, '7'), "none"},
    };
    for (Case const& c : cases)
        EXPECT_EQ(Text(Molecule(c.formula).composition), c.composition) << c.formula.substr(0, 30);
    EXPECT_EQ(Molecule(std::string(200000, 'H')).composition, Composition(200000, Entry{1, 1}));
}

// Table rows and symbols of one or two letters are not remembered; three-letter
// symbols, formulas and bad names (as empty) are. The table is consulted before the
// parser: a row under a name the parser would reject is taken as it stands.
TEST(MoleculeMemory, TableRowsAndShortSymbolsAreNotRememberedOthersAre) {
    size_t const before = Molecule::molecules.size();
    EXPECT_EQ(Text(Molecule("H2").composition) + " " + Text(Molecule("Kr").composition) + " " +
                  Text(Molecule("_").composition),
              "1:2 36:1 0:1");
    EXPECT_EQ(Molecule::molecules.size(), before);
    for (std::string name : {"Uuo", "CH3OH", "H2Zz", "", "h2o"}) {
        std::string const composition = Text(Molecule(name).composition);
        EXPECT_EQ(Text(Molecule::molecules.at(name).composition), composition) << name;
    }
    Molecule::molecules.insert_or_assign("Zq7", Molecule::molecules.at("C5H12"));
    EXPECT_EQ(Text(Molecule("Zq7").composition), "6:5 1:12");
}

TEST(MoleculeAnswers, TableOfMolecules) {
    struct Case {
        Molecule molecule;
        char const* formula; // drops counts of one, stops at an element out of range
        double molarMass;    // skips elements out of range
        double gasIndex;     // by formula text, then the bare atom of a di- or triatomic one, else 1.001
        bool usable;         // some entry names a known element with a count
    };
    Case const cases[] = {
        {Molecule("H2O"), "H2O", (2 * 1.008 + 15.999) / 1000.0, 1.000261, true},
        {Molecule("Kr"), "Kr", 0.084798, 1.000427, true},
        {Molecule("H1Cl1"), "HCl", (1.008 + 35.453) / 1000.0, 1.000447, true},
        {Molecule("O3"), "O3", 3 * 15.999 / 1000.0, 1.000271, true},
        {Molecule("Cl2"), "Cl2", 2 * 35.453 / 1000.0, 1.000773, true},
        {Molecule("O4"), "O4", 4 * 15.999 / 1000.0, 1.001, true},
        // Two entries of one element are not a diatomic molecule.
        {Molecule("OO"), "OO", 2 * 15.999 / 1000.0, 1.001, true},
        {Molecule("H0O"), "HO", 15.999 / 1000.0, 1.001, true},
        {Molecule("H0"), "H", 0.0, 1.000132, false},
        {Molecule("H2Zz"), "", 0.0, 1.001, false},
        {WithEntries({{1, 2}, {119, 1}, {8, 1}}), "H2", (2 * 1.008 + 15.999) / 1000.0, 1.001, true},
        {WithEntries({{255, 3}}), "", 0.0, 1.001, false},
        {WithEntries({{118, 2}}), "Uuo2", 0.0, 1.001, true},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.formula);
        EXPECT_EQ(c.molecule.Formula(), c.formula);
        EXPECT_NEAR(c.molecule.GetMolarMass(), c.molarMass, 1e-15);
        // Mass of one molecule times Avogadro's number is about the molar mass.
        EXPECT_NEAR(c.molecule.Mass() / amu, c.molarMass * 1000.0, 1e-9);
        EXPECT_EQ(c.molecule.GaseousIndexOfRefraction(), c.gasIndex);
        EXPECT_EQ(c.molecule.HasUsableComposition(), c.usable);
    }
    EXPECT_DOUBLE_EQ(cases[0].molecule.HeatCapacity() + cases[0].molecule.LiquidIndexOfRefraction() +
                         cases[0].molecule.SolidIndexOfRefraction(),
                     3.78);
}

TEST(MoleculeDensity, TableRowsOrOneSpherePerEntryRemembered) {
    EXPECT_EQ(Molecule("C1O2").GetMaximumLiquidDensity(), 1600.0);
    ASSERT_EQ(Molecule::liquidMoleculesMaxDensity.count("C2H5OH"), 0u);
    Molecule const ethanol("C2H5OH");
    // Radii 2, 5, 1 and 1 atom radii: the count scales the radius, not the volume.
    double const expected = (2 * 12.011 + 6 * 1.008 + 15.999) * amu / (sphere * (8.0 + 125.0 + 1.0 + 1.0));
    double const density = ethanol.GetMaximumLiquidDensity();
    EXPECT_NEAR(density, expected, expected * 1e-12);
    EXPECT_EQ(Molecule::liquidMoleculesMaxDensity.at("C2H5OH"), density);
    // Later calls read the remembered value, found by the formula text.
    Molecule::liquidMoleculesMaxDensity["C2H5OH"] = 12.5;
    EXPECT_EQ(ethanol.GetMaximumLiquidDensity(), 12.5);
    EXPECT_EQ(Molecule("H0").GetMaximumLiquidDensity(), Molecule("H1").GetMaximumLiquidDensity());
    EXPECT_EQ(Molecule("Uuo").GetMaximumLiquidDensity(), 0.0);
}

TEST(MoleculeDensityDeathTest, NoVolumeFailsTheAssertion) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(Molecule("H0O0").GetMaximumLiquidDensity(),
                 "ASSERTION FAILED: \\(atomicVolume > 0\\) in .*game/Chemistry\\.cpp:[0-9]+");
}

// Known rows, bare symbols, and new alkanes, silanes and boranes that every thread
// parses and remembers at the same time, each thread starting at another place.
TEST(MoleculeConcurrency, ConstructionAndDensityFromSeveralThreads) {
    std::vector<std::pair<std::string, Composition>> cases = {{"H2O", {{1, 2}, {8, 1}}}, {"Kr", {{36, 1}}}};
    for (uint8_t k = 7; k <= 40; ++k) {
        auto const h = static_cast<uint8_t>(2 * k + 2);
        cases.push_back({"C" + std::to_string(k) + "H" + std::to_string(h), {{6, k}, {1, h}}});
        cases.push_back({"Si" + std::to_string(k) + "H" + std::to_string(h), {{14, k}, {1, h}}});
        cases.push_back(
            {"B" + std::to_string(k) + "H" + std::to_string(k + 4) + "Uus", {{5, k}, {1, uint8_t(k + 4)}, {117, 1}}});
    }
    constexpr int threadCount = 4;
    std::vector<std::vector<double>> densities(threadCount, std::vector<double>(cases.size()));
    std::vector<int> mismatches(threadCount, 0);
    std::latch start(threadCount);
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            for (int round = 0; round < 3; ++round)
                for (size_t i = 0; i < cases.size(); ++i) {
                    size_t const index = (i + static_cast<size_t>(t) * cases.size() / threadCount) % cases.size();
                    Molecule const molecule(cases[index].first);
                    double const density = molecule.GetMaximumLiquidDensity();
                    mismatches[t] += molecule.composition != cases[index].second || molecule.GetMolarMass() <= 0.0 ||
                        (round > 0 && density != densities[t][index]);
                    densities[t][index] = density;
                }
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (int t = 0; t < threadCount; ++t) {
        EXPECT_EQ(mismatches[t], 0) << "thread " << t;
        EXPECT_EQ(densities[t], densities[0]) << "thread " << t;
    }
    for (size_t i = 2; i < cases.size(); ++i) {
        ASSERT_EQ(Molecule::molecules.count(cases[i].first), 1u) << cases[i].first;
        EXPECT_EQ(Molecule::molecules.at(cases[i].first).composition, cases[i].second) << cases[i].first;
        EXPECT_EQ(Molecule::liquidMoleculesMaxDensity.at(cases[i].first), densities[0][i]) << cases[i].first;
    }
}
