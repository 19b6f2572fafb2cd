// Text tests and conversions of scalars: which texts are integers, reals or strings,
// and the number each conversion reads from them (tests/data/config/numbers.txt).
#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <string>

#include "game/Config.hpp"
#include "support/Golden.hpp"

using game::Config;

namespace {

// Blanks around a number; base prefixes of either case; malformed integers and reals;
// hexadecimal reals; spellings of infinity and NaN with signs; negative zero; values
// too large or small for a float or a double; integers that wrap or overflow.
char const* const texts[] = {
    "12", " 12 ", "\t-3\r\n", "0", "-0x10", "0x1F", "0X1f", "0b101", "-0B11", "0o17", "0O17", "012", "+7",
    "12a", "-", "", "0x", "0b102", "0o8", "0x-1", "--5", "abc", "1_000", "1 2",
    "1.5", "1.", "-.5", "+2.5e-1", "1e3", "1E+3", ".", "1e", "e3", "1.5.2",
    "0x1p3", "-0x1.8", "0x.8P1", "0x1p", "0xp3", "0b1.1",
    ".inf", "-.INF", "+.Inf", "inf", "-Infinity", "INFINITY", "NaN", ".nan", "-NAN", "-.nan", "iNf", ".infinity",
    "-0.0", "-0x0p0", "0.1", "1e39", "1e-50", "3.4028235e38", "1e400", "-1e400", "1e-400",
    "4294967297", "2147483648", "-2147483648", "9223372036854775808", "18446744073709551615",
    "18446744073709551616", "0xFFFFFFFFFFFFFFFF", "0x10000000000000000",
};

/// The text as a YAML double-quoted scalar.
std::string Quoted(std::string const& text) {
    std::string quoted = "\"";
    for (char c : text) quoted += c == '\t' ? "\\t" : c == '\r' ? "\\r" : c == '\n' ? "\\n" : std::string(1, c);
    return quoted + "\"";
}

} // namespace

// One line per text: its class (int, float or string), then AsInt, AsInt64,
// AsUInt64, AsDouble and AsFloat, the reals with every digit and their sign.
TEST(ConfigNumericText, TableOfTexts) {
    std::string document;
    for (char const* text : texts) document += "- " + Quoted(text) + "\n";
    Config config;
    config.Parse(document);
    std::string table;
    for (unsigned long i = 0; i < std::size(texts); ++i) {
        Config::Node node = config[i];
        SCOPED_TRACE(texts[i]);
        ASSERT_EQ(node.AsString(), texts[i]);
        // Every real is numeric, integers included; every other scalar is a string.
        EXPECT_EQ(node.IsNumeric(), node.IsFloat());
        EXPECT_EQ(node.IsString(), !node.IsFloat());
        EXPECT_TRUE(node.IsFloat() || !node.IsInt());
        char line[200];
        std::snprintf(line, sizeof line, "%-24s %-6s %d %" PRId64 " %" PRIu64 " %.17g %.9g\n",
                      Quoted(texts[i]).c_str(),
                      node.IsInt() ? "int" : node.IsFloat() ? "float" : "string", node.AsInt(), node.AsInt64(),
                      node.AsUInt64(), node.AsDouble(), static_cast<double>(node.AsFloat()));
        table += line;
    }
    testsupport::ExpectGolden(table, "config/numbers.txt");
}
