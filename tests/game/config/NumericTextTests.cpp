// Text tests and conversions of scalars: which texts are integers, reals or strings,
// and the number each conversion reads from them.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "game/Config.hpp"

using game::Config;

namespace {

constexpr double inf = std::numeric_limits<double>::infinity();
constexpr char nan[] = "NaN";

/// One scalar text and everything the tree should say about it.
struct Row {
    char const* text;
    bool isInt;
    bool isFloat;
    bool isNumeric;
    bool isString;
    int32_t asInt;
    int64_t asInt64;
    uint64_t asUInt64;
    double asDouble; // a NaN here means "expect NaN"
};

double const notANumber = std::numeric_limits<double>::quiet_NaN();

// clang-format off
std::vector<Row> const rows = {
    // text                   int    float  numeric string  AsInt  AsInt64  AsUInt64  AsDouble
    {"12",                    true,  true,  true,  false,   12,    12,      12,       12.0},
    {" 12 ",                  true,  true,  true,  false,   0,     0,       0,        0.0},
    {"\t-3\r\n",              true,  true,  true,  false,   0,     0,       0,        0.0},
    {"0",                     true,  true,  true,  false,   0,     0,       0,        0.0},
    {"-0x10",                 true,  true,  true,  false,   -16,   -16,     0,        -16.0},
    {"0x1F",                  true,  true,  true,  false,   31,    31,      31,       31.0},
    {"0X1f",                  true,  true,  true,  false,   31,    31,      31,       31.0},
    {"0b101",                 true,  true,  true,  false,   5,     5,       5,        5.0},
    {"-0B11",                 true,  true,  true,  false,   -3,    -3,      0,        -3.0},
    {"0o17",                  true,  true,  true,  false,   15,    15,      15,       15.0},
    {"0O17",                  true,  true,  true,  false,   15,    15,      15,       15.0},
    {"012",                   true,  true,  true,  false,   12,    12,      12,       12.0},
    {"+7",                    true,  true,  true,  false,   0,     0,       0,        7.0},
    {"-1",                    true,  true,  true,  false,   -1,    -1,      0,        -1.0},
    {"12a",                   false, false, false, true,    0,     0,       0,        0.0},
    {"-",                     false, false, false, true,    0,     0,       0,        0.0},
    {"+",                     false, false, false, true,    0,     0,       0,        0.0},
    {"",                      false, false, false, true,    0,     0,       0,        0.0},
    {"   ",                   false, false, false, true,    0,     0,       0,        0.0},
    {"0x",                    false, false, false, true,    0,     0,       0,        0.0},
    {"0b",                    false, false, false, true,    0,     0,       0,        0.0},
    {"0b102",                 false, false, false, true,    0,     0,       0,        0.0},
    {"0o8",                   false, false, false, true,    0,     0,       0,        0.0},
    {"0xg",                   false, false, false, true,    0,     0,       0,        0.0},
    {"0x-1",                  false, false, false, true,    0,     0,       0,        0.0},
    {"--5",                   false, false, false, true,    0,     0,       0,        0.0},
    {"+-5",                   false, false, false, true,    0,     0,       0,        0.0},
    {"abc",                   false, false, false, true,    0,     0,       0,        0.0},
    {"1_000",                 false, false, false, true,    0,     0,       0,        0.0},
    {"1 2",                   false, false, false, true,    0,     0,       0,        0.0},
    {"1.5",                   false, true,  true,  false,   0,     0,       0,        1.5},
    {"1.",                    false, true,  true,  false,   0,     0,       0,        1.0},
    {"-.5",                   false, true,  true,  false,   0,     0,       0,        -0.5},
    {"+2.5e-1",               false, true,  true,  false,   0,     0,       0,        0.25},
    {"1e3",                   false, true,  true,  false,   0,     0,       0,        1000.0},
    {"1E+3",                  false, true,  true,  false,   0,     0,       0,        1000.0},
    {".",                     false, false, false, true,    0,     0,       0,        0.0},
    {"1e",                    false, false, false, true,    0,     0,       0,        0.0},
    {"e3",                    false, false, false, true,    0,     0,       0,        0.0},
    {"1.5.2",                 false, false, false, true,    0,     0,       0,        0.0},
    {"0x1p3",                 false, true,  true,  false,   0,     0,       0,        8.0},
    {"-0x1.8",                false, true,  true,  false,   0,     0,       0,        -1.5},
    {"0x.8P1",                false, true,  true,  false,   0,     0,       0,        1.0},
    {"0x1p",                  false, false, false, true,    0,     0,       0,        0.0},
    {"0xp3",                  false, false, false, true,    0,     0,       0,        0.0},
    {"0b1.1",                 false, false, false, true,    0,     0,       0,        0.0},
    {".inf",                  false, true,  true,  false,   0,     0,       0,        inf},
    {"-.INF",                 false, true,  true,  false,   0,     0,       0,        -inf},
    {"+.Inf",                 false, true,  true,  false,   0,     0,       0,        inf},
    {"inf",                   false, true,  true,  false,   0,     0,       0,        inf},
    {"-Infinity",             false, true,  true,  false,   0,     0,       0,        -inf},
    {"INFINITY",              false, true,  true,  false,   0,     0,       0,        inf},
    {"NaN",                   false, true,  true,  false,   0,     0,       0,        notANumber},
    {".nan",                  false, true,  true,  false,   0,     0,       0,        notANumber},
    {"-NAN",                  false, true,  true,  false,   0,     0,       0,        notANumber},
    {"iNf",                   false, false, false, true,    0,     0,       0,        0.0},
    {".infinity",             false, false, false, true,    0,     0,       0,        0.0},
    {"infinite",              false, false, false, true,    0,     0,       0,        0.0},
    {"nan(1)",                false, false, false, true,    0,     0,       0,        0.0},
    {"1e400",                 false, true,  true,  false,   0,     0,       0,        inf},
    {"-1e400",                false, true,  true,  false,   0,     0,       0,        -inf},
    {"1e-400",                false, true,  true,  false,   0,     0,       0,        0.0},
    {"4294967297",            true,  true,  true,  false,   1,     4294967297, 4294967297u, 4294967297.0},
    {"2147483648",            true,  true,  true,  false,   INT32_MIN, 2147483648, 2147483648u, 2147483648.0},
    {"-2147483648",           true,  true,  true,  false,   INT32_MIN, -2147483648, 0,   -2147483648.0},
    {"9223372036854775808",   true,  true,  true,  false,   0,     INT64_MIN, 9223372036854775808u, 9223372036854775808.0},
    {"18446744073709551615",  true,  true,  true,  false,   -1,    -1,      UINT64_MAX, 18446744073709551615.0},
    {"18446744073709551616",  true,  true,  true,  false,   0,     0,       0,        18446744073709551616.0},
    {"0xFFFFFFFFFFFFFFFF",    true,  true,  true,  false,   -1,    -1,      UINT64_MAX, 18446744073709551615.0},
    {"0x10000000000000000",   true,  true,  true,  false,   0,     0,       0,        18446744073709551616.0},
};
// clang-format on

/// The text as a YAML double-quoted scalar.
std::string Quoted(std::string const& text) {
    std::string quoted = "\"";
    for (char c : text) {
        switch (c) {
        case '"': quoted += "\\\""; break;
        case '\\': quoted += "\\\\"; break;
        case '\t': quoted += "\\t"; break;
        case '\r': quoted += "\\r"; break;
        case '\n': quoted += "\\n"; break;
        default: quoted += c;
        }
    }
    return quoted + "\"";
}

/// A sequence of every text of the table, each quoted so that it keeps its blanks.
std::string TableDocument() {
    std::string document;
    for (Row const& row : rows) document += "- " + Quoted(row.text) + "\n";
    return document;
}

} // namespace

TEST(ConfigNumericText, TableOfTexts) {
    Config config;
    config.Parse(TableDocument());
    ASSERT_FALSE(config.Empty());
    for (unsigned long i = 0; i < rows.size(); ++i) {
        Row const& row = rows[i];
        Config::Node node = config[i];
        SCOPED_TRACE(std::string("text \"") + row.text + "\"");
        ASSERT_EQ(node.Index(), long(i));
        ASSERT_EQ(node.AsString(), row.text);
        EXPECT_EQ(node.IsInt(), row.isInt);
        EXPECT_EQ(node.IsFloat(), row.isFloat);
        EXPECT_EQ(node.IsNumeric(), row.isNumeric);
        EXPECT_EQ(node.IsString(), row.isString);
        EXPECT_EQ(node.AsInt(), row.asInt);
        EXPECT_EQ(node.AsInt64(), row.asInt64);
        EXPECT_EQ(node.AsUInt64(), row.asUInt64);
        if (std::isnan(row.asDouble)) {
            EXPECT_TRUE(std::isnan(node.AsDouble()));
            EXPECT_TRUE(std::isnan(node.AsFloat()));
        } else {
            EXPECT_EQ(node.AsDouble(), row.asDouble);
            EXPECT_EQ(node.AsFloat(), static_cast<float>(row.asDouble));
        }
    }
}

TEST(ConfigNumericText, NegativeZeroAndSignedNaNKeepTheirSign) {
    Config config;
    config.Parse(std::string("[-0.0, -.nan, -0x0p0]"));
    EXPECT_TRUE(std::signbit(config[0ul].AsDouble()));
    EXPECT_TRUE(std::signbit(config[1ul].AsDouble()));
    EXPECT_TRUE(std::signbit(config[2ul].AsFloat()));
}

TEST(ConfigNumericText, FloatReadsItsOwnPrecision) {
    Config config;
    config.Parse(std::string("[0.1, 1e39, 1e-50, 3.4028235e38]"));
    EXPECT_EQ(config[0ul].AsFloat(), 0.1f);
    EXPECT_EQ(config[0ul].AsDouble(), 0.1);
    // Too large or too small for a float, still fine as a double.
    EXPECT_EQ(config[1ul].AsFloat(), std::numeric_limits<float>::infinity());
    EXPECT_EQ(config[1ul].AsDouble(), 1e39);
    EXPECT_EQ(config[2ul].AsFloat(), 0.0f);
    EXPECT_EQ(config[2ul].AsDouble(), 1e-50);
    EXPECT_EQ(config[3ul].AsFloat(), std::numeric_limits<float>::max());
}

TEST(ConfigNumericText, PlainScalarsAndTagsAreTestedByTheirText) {
    Config config;
    config.Parse(std::string("plain: 42\nquoted: '42'\ntagged: !!str 42\nword: true\nnull: ~\nmissing:\n"));
    for (char const* key : {"plain", "quoted", "tagged"}) {
        SCOPED_TRACE(key);
        EXPECT_TRUE(config[key].IsInt());
        EXPECT_EQ(config[key].AsInt(), 42);
    }
    EXPECT_TRUE(config["word"].IsString());
    EXPECT_TRUE(config["null"].IsString());
    EXPECT_EQ(config["null"].AsString(), "~");
    EXPECT_TRUE(config["missing"].IsString());
    EXPECT_EQ(config["missing"].AsString(), "");
    EXPECT_EQ(config["missing"].AsInt(), 0);
}
