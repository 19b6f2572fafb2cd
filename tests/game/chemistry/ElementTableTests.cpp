// The fixed tables: element records, the symbol index, the molecule table and the
// property tables as they stand at load, each row guarded by a checksum.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <set>
#include <string>

#include "game/Chemistry.hpp"

using game::Element;
using game::Molecule;

namespace {

/// FNV-1a of text: a checksum that any changed, added or moved character alters.
uint64_t Fnv(std::string const& text) {
    uint64_t hash = 14695981039346656037ull;
    for (unsigned char c : text) hash = (hash ^ c) * 1099511628211ull;
    return hash;
}

/// The rows of a map in key order, values to six decimals.
template <typename Map>
std::string Rows(Map const& map) {
    std::map<std::string, double> sorted(map.begin(), map.end());
    std::string text;
    char value[32];
    for (auto const& [key, number] : sorted) {
        std::snprintf(value, sizeof value, "%.6f", number);
        text += key + "=" + value + ";";
    }
    return text;
}

} // namespace

TEST(ElementTable, HasOneRecordPerAtomicNumberAndAPlaceholderAtZero) {
    ASSERT_EQ(Element::elements.size(), 119u);
    EXPECT_EQ(Element::elements[0].symbol, "_");
    EXPECT_EQ(Element::elements[0].name, "");
    std::string names;
    for (size_t i = 0; i < Element::elements.size(); ++i) {
        Element const& element = Element::elements[i];
        EXPECT_EQ(element.number, i);
        names += element.symbol + " " + element.name + ";";
        if (i == 0) continue;
        EXPECT_FALSE(element.name.empty()) << i;
        ASSERT_GE(element.symbol.size(), 1u) << i;
        ASSERT_LE(element.symbol.size(), 3u) << i;
        EXPECT_TRUE(element.symbol[0] >= 'A' && element.symbol[0] <= 'Z') << i;
        for (size_t c = 1; c < element.symbol.size(); ++c)
            EXPECT_TRUE(element.symbol[c] >= 'a' && element.symbol[c] <= 'z') << i;
    }
    // Names as saved worlds know them ("Berylium", "Cesium"), and the systematic
    // names and symbols of 113, 115, 117 and 118.
    EXPECT_EQ(Fnv(names), 6593822779567318501ull) << names;
}

TEST(ElementTable, MassesAndStatesAddUpToTheTableOfRecord) {
    // Sums over all 118 rows catch a mistyped value anywhere in the table. They include
    // the masses of Kr (84.798) and Rb (84.468), deliberately a unit off a current chart,
    // and mass 0 for the superheavy elements without a name.
    double massSum = 0.0;
    int stateCount = 0;
    int stateSum = 0;
    for (Element const& element : Element::elements) {
        massSum += element.mass;
        stateCount += static_cast<int>(element.oxidationStates.size());
        for (int8_t state : element.oxidationStates) stateSum += state;
    }
    EXPECT_NEAR(massSum, 16066.194, 1e-9);
    EXPECT_EQ(stateCount, 143);
    EXPECT_EQ(stateSum, 359);
}

TEST(ElementTable, OxidationStatesMostPositiveFirst) {
    std::set<int> const nobleGases = {2, 10, 18, 36, 54, 86};
    for (size_t i = 1; i < Element::elements.size(); ++i) {
        Element const& element = Element::elements[i];
        std::vector<int8_t> const& states = element.oxidationStates;
        if (nobleGases.count(static_cast<int>(i)))
            EXPECT_TRUE(states.empty()) << element.symbol;
        else if (i >= 105)
            EXPECT_EQ(states, std::vector<int8_t>{0}) << element.symbol;
        else
            EXPECT_FALSE(states.empty()) << element.symbol;
        for (size_t s = 1; s < states.size(); ++s) EXPECT_GT(states[s - 1], states[s]) << element.symbol;
    }
}

TEST(ElementTable, SymbolIndexPointsIntoTheRecords) {
    ASSERT_EQ(Element::elementsBySymbol.size(), 119u);
    for (Element const& element : Element::elements) EXPECT_EQ(Element::elementsBySymbol.at(element.symbol), &element);
    EXPECT_EQ(Element::elementsBySymbol.count("h"), 0u);
    EXPECT_EQ(Element::elementsBySymbol.count("Xx"), 0u);
}

TEST(MoleculeTable, RowsAreParsedFromTheirKeys) {
    for (char const* key : {"H2", "N", "He", "Ne", "F", "Ar", "Xe", "Cl", "Se", "O2", "CO2", "H2O", "Si", "Al", "Fe",
                            "Ca", "Na", "NaCl", "K", "Mg", "Ti", "CO", "CH4", "NH3", "C6H6", "CS2", "HCl", "NO", "N2O",
                            "C5H12", "SO2"}) {
        // No key writes a count of 1, so the formula text gives the key back.
        EXPECT_EQ(Molecule::molecules.at(key).Formula(), key);
    }
    EXPECT_EQ(Molecule::molecules.count("N2"), 0u);
    EXPECT_EQ(Molecule::molecules.count("Cl2"), 0u);
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
        testing::ExitedWithCode(0), "molecules 31, densities CH4=400.000000;CO2=1600.000000;H2=100.000000;"
                                    "H2O=1000.000000;O2=1600.000000;");
}
