// Documents that can't be read: the config is left empty, one line on the error
// stream says where, and nothing is thrown.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "game/Config.hpp"

using game::Config;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

/// Parses text into config and returns what went to the error stream.
std::string ParseCapturingErrors(Config& config, std::string const& text) {
    testing::internal::CaptureStderr();
    EXPECT_NO_THROW(config.Parse(text));
    return testing::internal::GetCapturedStderr();
}

/// Number of lines in text.
long Lines(std::string const& text) { return std::count(text.begin(), text.end(), '\n'); }

/// An alias bomb: each level lists the one before ten times, nine levels deep.
std::string AliasBomb() {
    std::string text = "l0: &l0 [lol, lol, lol, lol, lol, lol, lol, lol, lol, lol]\n";
    for (int level = 1; level <= 9; ++level) {
        std::string previous = "*l" + std::to_string(level - 1);
        text += "l" + std::to_string(level) + ": &l" + std::to_string(level) + " [";
        for (int i = 0; i < 10; ++i) text += (i > 0 ? ", " : "") + previous;
        text += "]\n";
    }
    return text;
}

} // namespace

TEST(ConfigErrors, SyntaxErrorEmptiesTheConfigAndReportsOneLine) {
    Config config;
    config.Parse(std::string("old: 1\n"));
    ASSERT_FALSE(config.Empty());

    std::string errors = ParseCapturingErrors(config, "a: 1\nb: c: d\n");
    EXPECT_TRUE(config.Empty());
    EXPECT_FALSE(config["old"]);
    EXPECT_EQ(Lines(errors), 1);
    EXPECT_THAT(errors, StartsWith("Config: YAML error at line 2, column 5: "));
}

TEST(ConfigErrors, ErrorLineNamesWhereTheDocumentBreaks) {
    struct Case {
        char const* text;
        char const* where;
    };
    for (Case const& broken : {
             Case{"a: 'not closed\n", "Config: YAML error at line 1, column "},
             Case{"list:\n  - 1\n  - \"bad \\q escape\"\n", "Config: YAML error at line 3, column "},
             Case{"a:\n\t- tab indented\n", "Config: YAML error at line 2, column "},
             Case{"key: [1, 2\nnext: 3\n", "Config: YAML error at line "},
         }) {
        SCOPED_TRACE(broken.text);
        Config config;
        std::string errors = ParseCapturingErrors(config, broken.text);
        EXPECT_TRUE(config.Empty());
        EXPECT_EQ(Lines(errors), 1);
        EXPECT_THAT(errors, StartsWith(broken.where));
        EXPECT_NE(errors.find(": ", std::string(broken.where).size()), std::string::npos);
    }
}

TEST(ConfigErrors, GoodDocumentsWriteNothing) {
    Config config;
    std::string errors = ParseCapturingErrors(config, "a: 1\nb: [x, y]\nc: &c {d: e}\nf: *c\n");
    EXPECT_FALSE(config.Empty());
    EXPECT_EQ(errors, "");
    errors = ParseCapturingErrors(config, "");
    EXPECT_EQ(errors, "");
}

TEST(ConfigErrors, AliasToNoEarlierAnchor) {
    Config config;
    std::string errors = ParseCapturingErrors(config, "a: 1\nb: *nope\n");
    EXPECT_TRUE(config.Empty());
    EXPECT_EQ(errors, "Config: YAML error at line 2, column 4: alias *nope names no earlier anchor\n");

    errors = ParseCapturingErrors(config, "a: *later\nb: &later 1\n");
    EXPECT_TRUE(config.Empty());
    EXPECT_EQ(errors, "Config: YAML error at line 1, column 4: alias *later names no earlier anchor\n");
}

TEST(ConfigErrors, AliasInsideTheNodeItNames) {
    Config config;
    std::string errors = ParseCapturingErrors(config, "a: &x [1, *x]\n");
    EXPECT_TRUE(config.Empty());
    EXPECT_EQ(errors, "Config: YAML error at line 1, column 11: alias *x is inside the node it names\n");
}

TEST(ConfigErrors, AliasBombIsRefused) {
    Config config;
    std::string errors = ParseCapturingErrors(config, AliasBomb());
    EXPECT_TRUE(config.Empty());
    EXPECT_EQ(Lines(errors), 1);
    EXPECT_THAT(errors, StartsWith("Config: YAML error at line "));
    EXPECT_THAT(errors, HasSubstr("more than " + std::to_string(Config::maxNodes) + " nodes"));
}

TEST(ConfigErrors, LaterDocumentsAreNotChecked) {
    Config config;
    std::string errors = ParseCapturingErrors(config, "a: 1\n---\nb: [\n");
    EXPECT_EQ(errors, "");
    EXPECT_EQ(config["a"].AsInt(), 1);
}

TEST(ConfigErrors, MalformedUtf8IsRefusedWhereItStands) {
    Config config;
    std::string errors = ParseCapturingErrors(config, "a: b\nc: d\x81\n");
    EXPECT_TRUE(config.Empty());
    EXPECT_EQ(errors, "Config: YAML error at line 2, column 5: invalid UTF-8\n");
    // Inside a directive, where the scanner would otherwise never come back.
    errors = ParseCapturingErrors(config, "%at the\x81# ea:");
    EXPECT_EQ(errors, "Config: YAML error at line 1, column 8: invalid UTF-8\n");
    // Surrogates, overlong forms and a cut-off sequence.
    for (char const* text : {"a: \xED\xA0\x80\n", "a: \xC0\xAF\n", "a: \xE0\x80\x80\n", "a: \xF0\x9F\x98"}) {
        errors = ParseCapturingErrors(config, text);
        EXPECT_EQ(errors, "Config: YAML error at line 1, column 4: invalid UTF-8\n");
    }
    // Well-formed multibyte characters and a byte order mark are fine.
    errors = ParseCapturingErrors(config, "\xEF\xBB\xBFname: \xC3\xA9t\xC3\xA9 \xF0\x9F\x98\x80\n");
    EXPECT_EQ(errors, "");
    EXPECT_EQ(config["name"], "\xC3\xA9t\xC3\xA9 \xF0\x9F\x98\x80");
}

TEST(ConfigErrors, NulCharacterIsRefused) {
    // Only a string can hold one; the scanner would take it for the end of the text.
    Config config;
    std::string errors = ParseCapturingErrors(config, std::string("a: b\n\0c: d\n", 11));
    EXPECT_TRUE(config.Empty());
    EXPECT_EQ(errors, "Config: YAML error at line 2, column 1: NUL character\n");
}
