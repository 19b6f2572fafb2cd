#include "nerox/String.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <locale>
#include <string>

namespace {

using nerox::String;

TEST(StringTest, FromDoubleDropsTrailingZerosButNotExponentsOrIntegerZeros) {
    double const infinity = std::numeric_limits<double>::infinity();
    struct Case {
        double value;
        int precision; // -1: the stream's default of 6
        char const* text;
    } const cases[] = {
        {1.5, -1, "1.5"}, {2.0, -1, "2"}, {0.0, -1, "0"}, {-3.25, -1, "-3.25"}, {1.0 / 3.0, -1, "0.333333"},
        {1200.0, -1, "1200"}, {3.14159265, 3, "3.14"}, {0.1, 17, "0.10000000000000001"}, {2.5, 10, "2.5"},
        {1.04, 2, "1"}, {1e20, -1, "1e+20"}, {1e-7, -1, "1e-07"}, {1.5e30, 10, "1.5e+30"},
        {infinity, -1, "inf"}, {-infinity, -1, "-inf"}, {std::numeric_limits<double>::quiet_NaN(), -1, "nan"},
    };
    for (Case const& c : cases) EXPECT_EQ(String::FromDouble(c.value, c.precision), c.text) << c.value;
    EXPECT_EQ(String::FromDouble(0.1, 1000), String::FromDouble(0.1, 64)) << "huge precision is cut";
}

TEST(StringTest, FromDoubleUsesAPointWhateverTheGlobalLocale) {
    struct Comma : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
    };
    std::locale const previous = std::locale::global(std::locale(std::locale::classic(), new Comma));
    std::string const text = String::FromDouble(0.5, -1);
    std::locale::global(previous);
    EXPECT_EQ(text, "0.5");
}

TEST(StringTest, TrimRemovesOnlyCharactersOfTheSetAtItsEnd) {
    struct Case {
        char const* text;
        char const* set;
        char const* left;
        char const* right;
    } const cases[] = {
        {" \t-x- \t", " \t-", "x- \t", " \t-x"}, {"abc", " ", "abc", "abc"}, {"   \t ", " \t", "", ""},
        {"", " ", "", ""}, {"  a  ", "", "  a  ", "  a  "},
    };
    for (Case const& c : cases) {
        std::string left = c.text;
        std::string right = c.text;
        String::TrimLeft(left, c.set);
        String::TrimRight(right, c.set);
        EXPECT_EQ(left, c.left) << '"' << c.text << '"';
        EXPECT_EQ(right, c.right) << '"' << c.text << '"';
    }
    std::string line = " \t value\r\n";
    String::TrimLeft(line);
    String::TrimRight(line);
    EXPECT_EQ(line, "value") << "the default set holds blanks and line ends";
}

} // namespace
