// Building a molecule from a name: what is taken from the molecule table, what is
// remembered, and how a formula is read (counts, symbols, entries in order, bad text).
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include "game/Chemistry.hpp"

using game::Element;
using game::Molecule;
using Entry = std::tuple<uint8_t, uint8_t>;
using Composition = std::vector<Entry>;

namespace {

bool Remembered(std::string const& name) { return Molecule::molecules.count(name) != 0; }

/// A composition as "number:count" entries, or "none" when empty.
std::string Text(Composition const& composition) {
    std::string text;
    for (auto const& [number, count] : composition)
        text += (text.empty() ? "" : " ") + std::to_string(number) + ":" + std::to_string(count);
    return text.empty() ? "none" : text;
}

/// A formula read by repeated whole-text matches of the regular expression the parser
/// is defined by, the count read with strtol and cut to 8 bits.
Composition ReadWithRegex(std::string working) {
    static std::regex const pattern("^([A-Z][a-z]{0,2})([0-9]*)([A-Z].*$|$)");
    Composition entries;
    for (std::smatch match; !working.empty() || entries.empty(); working = match[3].str()) {
        if (!std::regex_match(working, match, pattern)) return {};
        auto found = Element::elementsBySymbol.find(match[1].str());
        if (found == Element::elementsBySymbol.end()) return {};
        long const count = match[2].length() == 0 ? 1 : std::strtol(match[2].str().c_str(), nullptr, 10);
        entries.emplace_back(found->second->number, static_cast<uint8_t>(count));
    }
    return entries;
}

} // namespace

TEST(FormulaParsing, TableOfFormulas) {
    struct Case {
        std::string formula;
        char const* composition;
    };
    Case const cases[] = {
        // Entries keep their order and are not merged; three-letter symbols inside formulas.
        {"C2H5OH", "6:2 1:5 8:1 1:1"}, {"HeHe", "2:1 2:1"}, {"OH2", "8:1 1:2"}, {"NaCl2", "11:1 17:2"},
        {"UuoH2", "118:1 1:2"}, {"HUus3", "1:1 117:3"},
        // At most two lower-case letters follow the capital; a known two-letter prefix
        // does not rescue an unknown three-letter symbol.
        {"Uuoo", "none"}, {"Hex2", "none"},
        // Counts wrap modulo 256, however long the digit run (2^64 + 1, 10^20 + 3,
        // 10^5000 - 1 and 10^3000, after which the formula goes on).
        {"H300", "1:44"}, {"H255", "1:255"}, {"H256O", "1:0 8:1"}, {"H0", "1:0"}, {"H007", "1:7"}, {"C1", "6:1"},
        {"H18446744073709551617", "1:1"}, {"O100000000000000000003", "8:3"},
        {"H" + std::string(5000, '9'), "1:255"}, {"C1" + std::string(3000, '0') + "O2", "6:0 8:2"},
        // One bad part voids the whole formula.
        {"H2OXx", "none"}, {"CH3Q", "none"}, {"2H", "none"}, {"H2O ", "none"}, {" H2O", "none"}, {"H2O\n", "none"},
        {"H\rO", "none"}, {"H-O", "none"}, {"H2o", "none"}, {"HO+", "none"}, {"H\xC3\xA9", "none"},
        {"\xC3\xA9", "none"}, {"\xFF", "none"}, {"Na\x80", "none"}, {"\x80H", "none"}, {std::string("H\0O", 3), "none"},
        {std::string("H2\0", 3), "none"}, {std::string(100000, 'H') + "x!", "none"}, {std::string(100000, '7'), "none"},
    };
    for (Case const& c : cases) EXPECT_EQ(Text(Molecule(c.formula).composition), c.composition) << c.formula.substr(0, 30);

    EXPECT_EQ(Molecule(std::string(200000, 'H')).composition, Composition(200000, Entry{1, 1}));
    std::string alternating;
    for (int i = 0; i < 20000; ++i) alternating += "Uuo2C";
    EXPECT_EQ(Molecule(alternating).composition.size(), 40000u);
}

TEST(MoleculeMemory, TableRowsAndShortSymbolsAreNotRememberedOthersAre) {
    size_t const before = Molecule::molecules.size();
    EXPECT_EQ(Text(Molecule("H2").composition), "1:2");
    EXPECT_EQ(Text(Molecule("Kr").composition), "36:1");
    EXPECT_EQ(Text(Molecule("U").composition), "92:1");
    EXPECT_EQ(Text(Molecule("_").composition), "0:1");
    EXPECT_EQ(Molecule::molecules.size(), before);
    EXPECT_FALSE(Remembered("Kr") || Remembered("_"));

    // Three-letter symbols, formulas and bad names (as empty) are parsed once and remembered.
    for (std::string name : {"Uuo", "CH3OH", "H2Zz", "", "h2o", "H(OH)"}) {
        std::string const composition = Text(Molecule(name).composition);
        ASSERT_TRUE(Remembered(name)) << name;
        EXPECT_EQ(Text(Molecule::molecules.at(name).composition), composition) << name;
    }
    size_t const after = Molecule::molecules.size();
    EXPECT_EQ(Text(Molecule("CH3OH").composition), "6:1 1:3 8:1 1:1");
    EXPECT_EQ(Molecule::molecules.size(), after);

    // The table is consulted before the parser: a row under a name the parser would
    // reject is taken as it stands.
    Molecule::molecules.insert_or_assign("Zq7", Molecule::molecules.at("C5H12"));
    EXPECT_EQ(Text(Molecule("Zq7").composition), "6:5 1:12");
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
    int good = 0;
    for (int i = 0; i < 3000; ++i) {
        std::string text;
        for (int n = random() % 8; n > 0; --n)
            text += random() % 12 == 0 ? strays[random() % strays.size()] : parts[random() % parts.size()];
        Composition expected;
        auto symbol = Element::elementsBySymbol.find(text);
        if (text.size() <= 2 && symbol != Element::elementsBySymbol.end())
            expected = {Entry{symbol->second->number, 1}};
        else if (!text.empty())
            expected = ReadWithRegex(text);
        ASSERT_EQ(Molecule(text).composition, expected) << testing::PrintToString(text);
        if (!expected.empty()) ++good;
    }
    // Enough of the texts are good formulas for both outcomes to be compared.
    EXPECT_GT(good, 300);
    EXPECT_LT(good, 2700);
}
