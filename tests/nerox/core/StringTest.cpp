#include "nerox/String.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <locale>
#include <string>

namespace {

using nerox::String;

TEST(StringFromDoubleTest, DefaultPrecisionDropsTrailingZerosAndPoint) {
    EXPECT_EQ(String::FromDouble(1.5, -1), "1.5");
    EXPECT_EQ(String::FromDouble(2.0, -1), "2");
    EXPECT_EQ(String::FromDouble(0.0, -1), "0");
    EXPECT_EQ(String::FromDouble(-3.25, -1), "-3.25");
    EXPECT_EQ(String::FromDouble(1.0 / 3.0, -1), "0.333333") << "default stream precision is 6";
    EXPECT_EQ(String::FromDouble(100.0, -1), "100") << "zeros before the point stay";
    EXPECT_EQ(String::FromDouble(1200.0, -1), "1200");
}

TEST(StringFromDoubleTest, PrecisionCountsSignificantDigits) {
    EXPECT_EQ(String::FromDouble(3.14159265, 3), "3.14");
    EXPECT_EQ(String::FromDouble(0.1, 17), "0.10000000000000001");
    EXPECT_EQ(String::FromDouble(2.5, 10), "2.5");
    EXPECT_EQ(String::FromDouble(1.04, 2), "1") << "no trailing point or zero";
    EXPECT_EQ(String::FromDouble(0.1, 1000), String::FromDouble(0.1, 64)) << "huge precision is cut";
}

TEST(StringFromDoubleTest, ExponentFormIsLeftAlone) {
    EXPECT_EQ(String::FromDouble(1e20, -1), "1e+20");
    EXPECT_EQ(String::FromDouble(1e-7, -1), "1e-07");
    EXPECT_EQ(String::FromDouble(1.5e-7, -1), "1.5e-07");
    EXPECT_EQ(String::FromDouble(1.5e30, 10), "1.5e+30");
}

TEST(StringFromDoubleTest, SpecialValues) {
    EXPECT_EQ(String::FromDouble(std::numeric_limits<double>::infinity(), -1), "inf");
    EXPECT_EQ(String::FromDouble(-std::numeric_limits<double>::infinity(), -1), "-inf");
    EXPECT_EQ(String::FromDouble(std::numeric_limits<double>::quiet_NaN(), -1), "nan");
}

TEST(StringFromDoubleTest, UsesPointWhateverTheGlobalLocale) {
    // A locale with a comma as decimal point, built in place.
    struct Comma : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
    };
    std::locale const previous = std::locale::global(std::locale(std::locale::classic(), new Comma));
    std::string const text = String::FromDouble(0.5, -1);
    std::locale::global(previous);
    EXPECT_EQ(text, "0.5");
}

TEST(StringTrimTest, TrimLeftRemovesOnlyLeadingCharactersOfTheSet) {
    std::string text = " \t-x- \t";
    String::TrimLeft(text, " \t-");
    EXPECT_EQ(text, "x- \t");
    std::string untouched = "abc ";
    String::TrimLeft(untouched, " ");
    EXPECT_EQ(untouched, "abc ");
}

TEST(StringTrimTest, TrimRightRemovesOnlyTrailingCharactersOfTheSet) {
    std::string text = " \t-x- \t";
    String::TrimRight(text, " \t-");
    EXPECT_EQ(text, " \t-x");
    std::string untouched = " abc";
    String::TrimRight(untouched, " ");
    EXPECT_EQ(untouched, " abc");
}

TEST(StringTrimTest, OnlyTrimmableCharactersLeavesEmptyText) {
    std::string left = "   \t ";
    String::TrimLeft(left, " \t");
    EXPECT_EQ(left, "");
    std::string right = "xxxx";
    String::TrimRight(right, "x");
    EXPECT_EQ(right, "");
    std::string empty;
    String::TrimLeft(empty, " ");
    String::TrimRight(empty, " ");
    EXPECT_EQ(empty, "");
}

TEST(StringTrimTest, EmptySetAndDefaultSet) {
    std::string text = "  a  ";
    String::TrimLeft(text, "");
    String::TrimRight(text, "");
    EXPECT_EQ(text, "  a  ");
    std::string line = " \t value\r\n";
    String::TrimLeft(line);
    String::TrimRight(line);
    EXPECT_EQ(line, "value");
}

} // namespace
