// Documents that can't be read: the config is left empty, one line on the error
// stream says where, and nothing is thrown.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "game/Config.hpp"

using game::Config;

namespace {

/// An alias bomb: each level lists the one before ten times, nine levels deep.
std::string AliasBomb() {
    std::string text = "l0: &l0 [lol, lol, lol, lol, lol, lol, lol, lol, lol, lol]\n";
    for (int level = 1; level <= 9; ++level) {
        std::string const previous = "*l" + std::to_string(level - 1);
        text += "l" + std::to_string(level) + ": &l" + std::to_string(level) + " [" + previous;
        for (int i = 1; i < 10; ++i) text += ", " + previous;
        text += "]\n";
    }
    return text;
}

} // namespace

TEST(ConfigErrors, BrokenDocumentsEmptyTheConfigAndReportOneLine) {
    struct Case {
        std::string text;
        std::string start; // the whole line when it ends in '\n'
    };
    std::string const at = "Config: YAML error at line ";
    Case const cases[] = {
        {"a: 1\nb: c: d\n", at + "2, column 5: "},
        {"a: 'not closed\n", at + "1, column "},
        {"list:\n  - 1\n  - \"bad \\q escape\"\n", at + "3, column "},
        {"a:\n\t- tab indented\n", at + "2, column "},
        {"key: [1, 2\nnext: 3\n", at},
        {"a: 1\nb: *nope\n", at + "2, column 4: alias *nope names no earlier anchor\n"},
        {"a: *later\nb: &later 1\n", at + "1, column 4: alias *later names no earlier anchor\n"},
        {"a: &x [1, *x]\n", at + "1, column 11: alias *x is inside the node it names\n"},
        {AliasBomb(), at},
        // Malformed UTF-8 is refused where it stands, also inside a directive, where
        // the scanner would otherwise never come back; surrogates, overlong forms, a cut-off sequence.
        {"a: b\nc: d\x81\n", at + "2, column 5: invalid UTF-8\n"},
        {"%at the\x81# ea:", at + "1, column 8: invalid UTF-8\n"},
        {"a: \xED\xA0\x80\n", at + "1, column 4: invalid UTF-8\n"},
        {"a: \xC0\xAF\n", at + "1, column 4: invalid UTF-8\n"},
        {"a: \xE0\x80\x80\n", at + "1, column 4: invalid UTF-8\n"},
        {"a: \xF0\x9F\x98", at + "1, column 4: invalid UTF-8\n"},
        // Only a string can hold a NUL; the scanner would take it for the end of the text.
        {std::string("a: b\n\0c: d\n", 11), at + "2, column 1: NUL character\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text.substr(0, 40));
        Config config;
        config.Parse(std::string("old: 1\n"));
        testing::internal::CaptureStderr();
        EXPECT_NO_THROW(config.Parse(c.text));
        std::string const errors = testing::internal::GetCapturedStderr();
        EXPECT_TRUE(config.Empty());
        EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1);
        if (c.start.back() == '\n')
            EXPECT_EQ(errors, c.start);
        else
            EXPECT_EQ(errors.substr(0, c.start.size()), c.start) << errors;
        EXPECT_NE(errors.find(": ", at.size()), std::string::npos);
    }
    testing::internal::CaptureStderr();
    Config config;
    config.Parse(AliasBomb());
    EXPECT_NE(testing::internal::GetCapturedStderr().find("more than " + std::to_string(Config::maxNodes) + " nodes"),
              std::string::npos);
}

TEST(ConfigErrors, GoodDocumentsAndLaterDocumentsWriteNothing) {
    Config config;
    for (char const* text : {"a: 1\nb: [x, y]\nc: &c {d: e}\nf: *c\n", "", "a: 1\n---\nb: [\n",
                             "\xEF\xBB\xBFname: \xC3\xA9t\xC3\xA9 \xF0\x9F\x98\x80\n"}) {
        testing::internal::CaptureStderr();
        config.Parse(std::string(text));
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << text;
    }
    // Well-formed multibyte characters and a byte order mark are fine.
    EXPECT_EQ(config["name"], "\xC3\xA9t\xC3\xA9 \xF0\x9F\x98\x80");
}
