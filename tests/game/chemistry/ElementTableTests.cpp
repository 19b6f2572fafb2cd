// The fixed tables: element records, the symbol index, the molecule table and the
// two property tables as they stand at load.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "game/Chemistry.hpp"

using game::Element;
using game::Molecule;
using testing::ElementsAre;
using Entry = std::tuple<uint8_t, uint8_t>;

namespace {

Element const& BySymbol(std::string const& symbol) {
    auto found = Element::elementsBySymbol.find(symbol);
    EXPECT_NE(found, Element::elementsBySymbol.end()) << symbol;
    return *found->second;
}

std::vector<int> States(Element const& element) {
    return std::vector<int>(element.oxidationStates.begin(), element.oxidationStates.end());
}

} // namespace

TEST(ElementTable, HasOneRecordPerAtomicNumberAndAPlaceholderAtZero) {
    ASSERT_EQ(Element::elements.size(), 119u);
    for (size_t i = 0; i < Element::elements.size(); ++i) EXPECT_EQ(Element::elements[i].number, i);

    Element const& placeholder = Element::elements[0];
    EXPECT_EQ(placeholder.symbol, "_");
    EXPECT_EQ(placeholder.name, "");
    EXPECT_EQ(placeholder.mass, 0.0);
    EXPECT_TRUE(placeholder.oxidationStates.empty());

    for (size_t i = 1; i < Element::elements.size(); ++i) {
        Element const& element = Element::elements[i];
        EXPECT_FALSE(element.name.empty()) << i;
        ASSERT_GE(element.symbol.size(), 1u) << i;
        ASSERT_LE(element.symbol.size(), 3u) << i;
        EXPECT_TRUE(element.symbol[0] >= 'A' && element.symbol[0] <= 'Z') << i;
        for (size_t c = 1; c < element.symbol.size(); ++c)
            EXPECT_TRUE(element.symbol[c] >= 'a' && element.symbol[c] <= 'z') << i;
    }
}

TEST(ElementTable, MassesAndStatesAddUpToTheTableOfRecord) {
    // Sums over all 118 rows catch a mistyped value anywhere in the table.
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

TEST(ElementTable, SpotValues) {
    EXPECT_EQ(BySymbol("H").mass, 1.008);
    EXPECT_EQ(BySymbol("C").mass, 12.011);
    EXPECT_EQ(BySymbol("O").mass, 15.999);
    EXPECT_EQ(BySymbol("Ne").mass, 20.18);
    EXPECT_EQ(BySymbol("Es").mass, 254.0);
    EXPECT_EQ(BySymbol("Lr").mass, 262.0);
    // Deliberately a unit off a current chart; saved worlds rest on these.
    EXPECT_EQ(BySymbol("Kr").mass, 84.798);
    EXPECT_EQ(BySymbol("Rb").mass, 84.468);
    EXPECT_EQ(Element::elements[36].symbol, "Kr");
    EXPECT_EQ(Element::elements[37].symbol, "Rb");

    EXPECT_EQ(Element::elements[1].name, "Hydrogen");
    EXPECT_EQ(Element::elements[4].name, "Berylium");
    EXPECT_EQ(Element::elements[13].name, "Aluminium");
    EXPECT_EQ(Element::elements[16].name, "Sulfur");
    EXPECT_EQ(Element::elements[55].name, "Cesium");
    EXPECT_EQ(Element::elements[55].symbol, "Cs");
    EXPECT_EQ(Element::elements[74].name, "Tungsten");
    EXPECT_EQ(Element::elements[74].symbol, "W");
    EXPECT_EQ(Element::elements[104].name, "Rutherfordium");
}

TEST(ElementTable, SuperheavyElementsKeepSystematicNamesAndMassZero) {
    struct Row {
        int number;
        char const* symbol;
        char const* name;
        double mass;
    };
    for (Row row : {Row{113, "Uut", "Ununtrium", 0.0}, Row{114, "Fl", "Flerovium", 289.0},
                    Row{115, "Uup", "Ununpentium", 0.0}, Row{116, "Lv", "Livermorium", 298.0},
                    Row{117, "Uus", "Ununseptium", 0.0}, Row{118, "Uuo", "Ununoctium", 0.0}}) {
        Element const& element = Element::elements[row.number];
        EXPECT_EQ(element.symbol, row.symbol);
        EXPECT_EQ(element.name, row.name);
        EXPECT_EQ(element.mass, row.mass) << row.symbol;
    }
}

TEST(ElementTable, OxidationStates) {
    std::set<int> const nobleGases = {2, 10, 18, 36, 54, 86};
    for (size_t i = 1; i < Element::elements.size(); ++i) {
        Element const& element = Element::elements[i];
        if (nobleGases.count(static_cast<int>(i))) {
            EXPECT_TRUE(element.oxidationStates.empty()) << element.symbol;
        } else if (i >= 105) {
            EXPECT_THAT(States(element), ElementsAre(0)) << element.symbol;
        } else {
            EXPECT_FALSE(element.oxidationStates.empty()) << element.symbol;
        }
        // Most positive first.
        for (size_t s = 1; s < element.oxidationStates.size(); ++s)
            EXPECT_GT(element.oxidationStates[s - 1], element.oxidationStates[s]) << element.symbol;
    }
    EXPECT_THAT(States(BySymbol("H")), ElementsAre(1));
    EXPECT_THAT(States(BySymbol("C")), ElementsAre(4, -4));
    EXPECT_THAT(States(BySymbol("P")), ElementsAre(5, 3, -3));
    EXPECT_THAT(States(BySymbol("Mn")), ElementsAre(7, 4, 2));
    EXPECT_THAT(States(BySymbol("Sn")), ElementsAre(2, -4));
    EXPECT_THAT(States(BySymbol("At")), ElementsAre(-1));
    EXPECT_THAT(States(BySymbol("Rf")), ElementsAre(4));
}

TEST(ElementTable, SymbolIndexPointsIntoTheRecords) {
    ASSERT_EQ(Element::elementsBySymbol.size(), 119u);
    for (Element const& element : Element::elements) {
        auto found = Element::elementsBySymbol.find(element.symbol);
        ASSERT_NE(found, Element::elementsBySymbol.end()) << element.symbol;
        EXPECT_EQ(found->second, &element);
    }
    EXPECT_EQ(Element::elementsBySymbol.at("_"), &Element::elements[0]);
    EXPECT_EQ(Element::elementsBySymbol.count("h"), 0u);
    EXPECT_EQ(Element::elementsBySymbol.count("Xx"), 0u);
}

TEST(MoleculeTable, RowsAreParsedFromTheirKeys) {
    char const* const keys[] = {"H2",  "N",   "He",  "Ne",   "F",   "Ar",  "Xe", "Cl", "Se", "O2",    "CO2",
                                "H2O", "Si",  "Al",  "Fe",   "Ca",  "Na",  "NaCl", "K", "Mg", "Ti", "CO",
                                "CH4", "NH3", "C6H6", "CS2", "HCl", "NO",  "N2O", "C5H12", "SO2"};
    for (char const* key : keys) {
        auto found = Molecule::molecules.find(key);
        ASSERT_NE(found, Molecule::molecules.end()) << key;
        EXPECT_FALSE(found->second.composition.empty()) << key;
        // No key writes a count of 1, so the formula text gives the key back.
        EXPECT_EQ(found->second.Formula(), key);
    }
    EXPECT_THAT(Molecule::molecules.at("N").composition, ElementsAre(Entry{7, 1}));
    EXPECT_THAT(Molecule::molecules.at("H2").composition, ElementsAre(Entry{1, 2}));
    EXPECT_THAT(Molecule::molecules.at("NaCl").composition, ElementsAre(Entry{11, 1}, Entry{17, 1}));
    EXPECT_THAT(Molecule::molecules.at("C5H12").composition, ElementsAre(Entry{6, 5}, Entry{1, 12}));
    EXPECT_EQ(Molecule::molecules.count("N2"), 0u);
    EXPECT_EQ(Molecule::molecules.count("Cl2"), 0u);
}

TEST(MoleculeTable, PropertyTablesHoldTheirRows) {
    EXPECT_EQ(Molecule::gasMoleculesIndexOfRefraction.size(), 30u);
    EXPECT_EQ(Molecule::gasMoleculesIndexOfRefraction.at("H"), 1.000132);
    EXPECT_EQ(Molecule::gasMoleculesIndexOfRefraction.at("Zn"), 1.002);
    EXPECT_EQ(Molecule::gasMoleculesIndexOfRefraction.at("C5H12"), 1.000686);
    EXPECT_EQ(Molecule::gasMoleculesIndexOfRefraction.at("H2O"), 1.000261);

    EXPECT_EQ(Molecule::liquidMoleculesMaxDensity.at("H2"), 100.0);
    EXPECT_EQ(Molecule::liquidMoleculesMaxDensity.at("CH4"), 400.0);
    EXPECT_EQ(Molecule::liquidMoleculesMaxDensity.at("H2O"), 1000.0);
    EXPECT_EQ(Molecule::liquidMoleculesMaxDensity.at("O2"), 1600.0);
    EXPECT_EQ(Molecule::liquidMoleculesMaxDensity.at("CO2"), 1600.0);
}

// Other tests in this program grow the two maps; a fresh process shows them as loaded.
TEST(MoleculeTableDeathTest, GrowingMapsStartWithTheirFixedRows) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            std::cerr << "molecules " << Molecule::molecules.size() << ", densities "
                      << Molecule::liquidMoleculesMaxDensity.size() << '\n';
            std::exit(Molecule::molecules.size() == 31 && Molecule::liquidMoleculesMaxDensity.size() == 5 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "molecules 31, densities 5");
}
