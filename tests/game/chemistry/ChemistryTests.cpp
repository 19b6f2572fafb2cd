// The fixed element and molecule tables, each guarded by a checksum, how a molecule
// is read from its name and remembered, what it answers, and its use from several threads.
#include <gtest/gtest.h>

#include <cstdio>
#include <latch>
#include <map>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "game/Chemistry.hpp"
#include "support/Golden.hpp"

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
    ASSERT_TRUE(Element::elements.size() == 119 && Element::elementsBySymbol.size() == 119);
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
    std::string rows; // in key order, values to six decimals
    char value[32];
    for (auto const& [key, index] : std::map<std::string, double>(Molecule::gasMoleculesIndexOfRefraction.begin(),
                                                                  Molecule::gasMoleculesIndexOfRefraction.end()))
        rows += key + "=" + (std::snprintf(value, sizeof value, "%.6f", index), value) + ";";
    EXPECT_EQ(Fnv(rows), 12753273608037242949ull) << rows;
}

// The formulas of chemistry/formulas.txt (bytes written as \\xHH) and what each reads as.
// Entries keep their order and are not merged; at most two lower-case letters follow the
// capital; counts wrap modulo 256 however long the digit run; one bad part voids the whole.
TEST(FormulaParsing, TableOfFormulas) {
    std::string transcript;
    for (std::string const& line :
         testsupport::SplitLines(testsupport::ReadText(testsupport::DataFile("chemistry/formulas.txt")))) {
        std::string const written = line.substr(0, line.find(" => "));
        std::string formula;
        for (size_t i = 0; i < written.size(); ++i)
            formula +=
                written.compare(i, 2, "\\x") ? written[i] : char(std::stoi(written.substr((i += 3) - 1, 2), 0, 16));
        transcript += line[0] == '#' ? line + "\n" : written + " => " + Text(Molecule(formula).composition) + "\n";
    }
    testsupport::ExpectGolden(transcript, "chemistry/formulas.txt");
    // 10^5000 - 1 wraps as well, and a formula goes on after a run of 3000 zeros.
    EXPECT_EQ(Text(Molecule("H" + std::string(5000, '9')).composition), "1:255");
    EXPECT_EQ(Text(Molecule("C1" + std::string(3000, '0') + "O2").composition), "6:0 8:2");
    EXPECT_EQ(Text(Molecule(std::string(100000, 'H') + "x!").composition) +
                  Text(Molecule(std::string(100000, '7')).composition),
              "nonenone");
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

// Per molecule, from chemistry/molecules.txt: the formula (drops counts of one, stops at
// an element out of range), the molar mass (skips elements out of range), the mass of one
// molecule in units, the gas index (by formula text, then the bare atom of a di- or
// triatomic one, else 1.001; OO is not diatomic) and whether some entry names a known
// element with a count.
TEST(MoleculeAnswers, TableOfMolecules) {
    std::string table;
    char line[160];
    for (Molecule const& m :
         {Molecule("H2O"), Molecule("Kr"), Molecule("H1Cl1"), Molecule("O3"), Molecule("Cl2"), Molecule("O4"),
          Molecule("OO"), Molecule("H0O"), Molecule("H0"), Molecule("H2Zz"), WithEntries({{1, 2}, {119, 1}, {8, 1}}),
          WithEntries({{255, 3}}), WithEntries({{118, 2}})}) {
        std::snprintf(line, sizeof line, "'%s' %.9g kg/mol %.9g u index %.7g %s\n", m.Formula().c_str(),
                      m.GetMolarMass(), m.Mass() / amu, m.GaseousIndexOfRefraction(),
                      m.HasUsableComposition() ? "usable" : "unusable");
        table += line;
    }
    testsupport::ExpectGolden(table, "chemistry/molecules.txt");
    Molecule const water("H2O");
    EXPECT_DOUBLE_EQ(water.HeatCapacity() + water.LiquidIndexOfRefraction() + water.SolidIndexOfRefraction(), 3.78);
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
    EXPECT_EQ(mismatches, std::vector<int>(threadCount, 0));
    EXPECT_EQ(densities, std::vector<std::vector<double>>(threadCount, densities[0]));
    for (size_t i = 2; i < cases.size(); ++i) {
        EXPECT_EQ(Molecule::molecules.at(cases[i].first).composition, cases[i].second) << cases[i].first;
        EXPECT_EQ(Molecule::liquidMoleculesMaxDensity.at(cases[i].first), densities[0][i]) << cases[i].first;
    }
}
