// Building a molecule from a name: what is taken from the molecule table, what is
// remembered, and how a formula is read (counts, symbols, entries in order, bad text).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <random>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include "game/Chemistry.hpp"

using game::Element;
using game::Molecule;
using testing::ElementsAre;
using testing::IsEmpty;
using Entry = std::tuple<uint8_t, uint8_t>;
using Composition = std::vector<Entry>;

namespace {

bool Remembered(std::string const& name) { return Molecule::molecules.count(name) != 0; }

/// A formula read by repeated whole-text matches of the regular expression the parser
/// is defined by, the count read with strtol and cut to 8 bits.
Composition ReadWithRegex(std::string const& formula) {
    static std::regex const pattern("^([A-Z][a-z]{0,2})([0-9]*)([A-Z].*$|$)");
    Composition entries;
    std::string working = formula;
    for (;;) {
        std::smatch match;
        if (!std::regex_match(working, match, pattern)) return {};
        auto found = Element::elementsBySymbol.find(match[1].str());
        if (found == Element::elementsBySymbol.end() || found->second == nullptr) return {};
        std::string digits = match[2].str();
        if (digits.empty()) digits = "1";
        long const count = std::strtol(digits.c_str(), nullptr, 10);
        entries.emplace_back(found->second->number, static_cast<uint8_t>(count));
        std::string rest = match[3].str();
        if (rest.empty()) break;
        working = rest;
    }
    return entries;
}

} // namespace

TEST(MoleculeMemory, TableFormulasAreCopiedFromTheTable) {
    size_t const before = Molecule::molecules.size();
    EXPECT_THAT(Molecule("H2").composition, ElementsAre(Entry{1, 2}));
    EXPECT_THAT(Molecule("N").composition, ElementsAre(Entry{7, 1}));
    EXPECT_EQ(Molecule::molecules.size(), before);

    // The table is consulted before the parser: a row under a name the parser would
    // reject is taken as it stands.
    Molecule::molecules.insert_or_assign("Zq7", Molecule::molecules.at("C5H12"));
    EXPECT_THAT(Molecule("Zq7").composition, ElementsAre(Entry{6, 5}, Entry{1, 12}));
}

TEST(MoleculeMemory, ShortElementSymbolsAreNotRemembered) {
    size_t const before = Molecule::molecules.size();
    EXPECT_THAT(Molecule("Kr").composition, ElementsAre(Entry{36, 1}));
    EXPECT_THAT(Molecule("U").composition, ElementsAre(Entry{92, 1}));
    EXPECT_THAT(Molecule("_").composition, ElementsAre(Entry{0, 1}));
    EXPECT_EQ(Molecule::molecules.size(), before);
    EXPECT_FALSE(Remembered("Kr"));
    EXPECT_FALSE(Remembered("_"));
}

TEST(MoleculeMemory, ThreeLetterSymbolsAndFormulasAreParsedAndRemembered) {
    EXPECT_THAT(Molecule("Uuo").composition, ElementsAre(Entry{118, 1}));
    ASSERT_TRUE(Remembered("Uuo"));
    EXPECT_THAT(Molecule::molecules.at("Uuo").composition, ElementsAre(Entry{118, 1}));

    EXPECT_FALSE(Remembered("CH3OH"));
    EXPECT_THAT(Molecule("CH3OH").composition, ElementsAre(Entry{6, 1}, Entry{1, 3}, Entry{8, 1}, Entry{1, 1}));
    ASSERT_TRUE(Remembered("CH3OH"));
    size_t const after = Molecule::molecules.size();
    EXPECT_EQ(Molecule("CH3OH").composition.size(), 4u);
    EXPECT_EQ(Molecule::molecules.size(), after);
}

TEST(MoleculeMemory, BadFormulasAreRememberedAsEmpty) {
    for (std::string name : {"H2Zz", "", "h2o", "H(OH)"}) {
        EXPECT_THAT(Molecule(name).composition, IsEmpty()) << name;
        ASSERT_TRUE(Remembered(name)) << name;
        EXPECT_THAT(Molecule::molecules.at(name).composition, IsEmpty()) << name;
    }
}

TEST(FormulaParsing, EntriesKeepTheirOrderAndAreNotMerged) {
    EXPECT_THAT(Molecule("C2H5OH").composition, ElementsAre(Entry{6, 2}, Entry{1, 5}, Entry{8, 1}, Entry{1, 1}));
    EXPECT_THAT(Molecule("HeHe").composition, ElementsAre(Entry{2, 1}, Entry{2, 1}));
    EXPECT_THAT(Molecule("OH2").composition, ElementsAre(Entry{8, 1}, Entry{1, 2}));
    EXPECT_THAT(Molecule("NaCl2").composition, ElementsAre(Entry{11, 1}, Entry{17, 2}));
}

TEST(FormulaParsing, ThreeLetterSymbolsInsideFormulas) {
    EXPECT_THAT(Molecule("UuoH2").composition, ElementsAre(Entry{118, 1}, Entry{1, 2}));
    EXPECT_THAT(Molecule("HUus3").composition, ElementsAre(Entry{1, 1}, Entry{117, 3}));
    // At most two lower-case letters follow the capital.
    EXPECT_THAT(Molecule("Uuoo").composition, IsEmpty());
    // A known two-letter prefix does not rescue an unknown three-letter symbol.
    EXPECT_THAT(Molecule("Hex2").composition, IsEmpty());
}

TEST(FormulaParsing, CountsWrapModulo256) {
    EXPECT_THAT(Molecule("H300").composition, ElementsAre(Entry{1, 44}));
    EXPECT_THAT(Molecule("H255").composition, ElementsAre(Entry{1, 255}));
    EXPECT_THAT(Molecule("H256O").composition, ElementsAre(Entry{1, 0}, Entry{8, 1}));
    EXPECT_THAT(Molecule("H0").composition, ElementsAre(Entry{1, 0}));
    EXPECT_THAT(Molecule("H007").composition, ElementsAre(Entry{1, 7}));
    EXPECT_THAT(Molecule("C1").composition, ElementsAre(Entry{6, 1}));
}

TEST(FormulaParsing, LongDigitRunsWrapLikeShortOnes) {
    // 2^64 + 1 and 10^20 + 3: beyond any machine integer, still the low 8 bits.
    EXPECT_THAT(Molecule("H18446744073709551617").composition, ElementsAre(Entry{1, 1}));
    EXPECT_THAT(Molecule("O100000000000000000003").composition, ElementsAre(Entry{8, 3}));
    // 10^5000 - 1 is 255 modulo 256; 10^3000 is 0, and the formula goes on after it.
    EXPECT_THAT(Molecule("H" + std::string(5000, '9')).composition, ElementsAre(Entry{1, 255}));
    EXPECT_THAT(Molecule("C1" + std::string(3000, '0') + "O2").composition, ElementsAre(Entry{6, 0}, Entry{8, 2}));
}

TEST(FormulaParsing, OneBadPartVoidsTheWholeFormula) {
    for (std::string name : {"H2OXx", "CH3Q", "2H", "H2O ", " H2O", "H2O\n", "H\rO", "H-O", "H2o", "HO+",
                             "H\xC3\xA9", "\xC3\xA9", "\xFF", "Na\x80", "\x80H"}) {
        EXPECT_THAT(Molecule(name).composition, IsEmpty()) << testing::PrintToString(name);
    }
    EXPECT_THAT(Molecule(std::string("H\0O", 3)).composition, IsEmpty());
    EXPECT_THAT(Molecule(std::string("H2\0", 3)).composition, IsEmpty());
}

TEST(FormulaParsing, VeryLongFormulas) {
    Molecule hydrogen(std::string(200000, 'H'));
    ASSERT_EQ(hydrogen.composition.size(), 200000u);
    for (Entry const& entry : hydrogen.composition) ASSERT_EQ(entry, (Entry{1, 1}));

    std::string alternating;
    for (int i = 0; i < 20000; ++i) alternating += "Uuo2C";
    EXPECT_EQ(Molecule(alternating).composition.size(), 40000u);

    EXPECT_THAT(Molecule(std::string(100000, 'H') + "x!").composition, IsEmpty());
    EXPECT_THAT(Molecule(std::string(100000, '7')).composition, IsEmpty());
}

// Formulas read by the molecule must agree with the defining regular expression on
// every text, good or bad, as long as counts fit a long.
TEST(FormulaParsing, AgreesWithTheDefiningPatternOnGeneratedText) {
    std::mt19937 random(20240917u);
    // Mostly symbols and counts, with a stray piece now and then.
    std::vector<std::string> const parts = {"H", "He", "C", "O", "Na", "Cl", "Uuo", "Uut", "Fe",
                                            "U", "_",  "2", "0", "9",  "25", "300", "007"};
    std::vector<std::string> const strays = {"Xx", "Q", "a", "e", "l", "u", "o", "(", ")", " ", "\n", "\r",
                                             std::string(1, '\0'), "\xC3", "\xA9", "-", "+", "Zz", "Ab",
                                             "Hel", "Hexx"};
    std::uniform_int_distribution<size_t> pickPart(0, parts.size() - 1);
    std::uniform_int_distribution<size_t> pickStray(0, strays.size() - 1);
    std::uniform_int_distribution<int> stray(0, 11);
    std::uniform_int_distribution<int> length(0, 7);
    int good = 0;
    for (int i = 0; i < 3000; ++i) {
        std::string text;
        for (int n = length(random); n > 0; --n)
            text += stray(random) == 0 ? strays[pickStray(random)] : parts[pickPart(random)];
        Composition expected;
        auto symbol = Element::elementsBySymbol.find(text);
        if (text.size() <= 2 && symbol != Element::elementsBySymbol.end())
            expected = {Entry{symbol->second->number, 1}};
        else
            expected = ReadWithRegex(text);
        ASSERT_EQ(Molecule(text).composition, expected) << testing::PrintToString(text);
        if (!expected.empty()) ++good;
    }
    // Enough of the texts are good formulas for both outcomes to be compared.
    EXPECT_GT(good, 300);
    EXPECT_LT(good, 2700);
}
