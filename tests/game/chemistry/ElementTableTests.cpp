// The fixed tables: element records, the symbol index, the molecule table and the
// property tables as they stand at load, each row guarded by a checksum.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
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
    EXPECT_TRUE(Element::elements[0].name.empty() && Element::elements[0].oxidationStates.empty());
    // Symbols, names as saved worlds know them ("Berylium", "Cesium", the systematic
    // names of 113, 115, 117 and 118) and oxidation states, most positive first, none
    // for the noble gases and 0 alone from 105 on.
    std::string records;
    for (size_t i = 0; i < Element::elements.size(); ++i) {
        Element const& element = Element::elements[i];
        EXPECT_EQ(element.number, i);
        records += element.symbol + " " + element.name;
        for (int8_t state : element.oxidationStates) records += " " + std::to_string(state);
        records += ";";
    }
    EXPECT_EQ(Fnv(records), 8192138392307511706ull) << records;
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
