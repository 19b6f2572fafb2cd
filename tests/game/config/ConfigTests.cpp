// The configuration tree: a real YAML file and small documents dumped whole against tests/data/config/, the
// classes and numbers of scalar texts, quiet answers of failed lookups, broken documents, reads from threads.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "game/Config.hpp"
#include "support/Golden.hpp"

using game::Config;

namespace {

std::string const samplePath = std::string(TESSARA_TEST_SOURCE_DIR) + "/game/config/data/sample.yaml";

/// One line per node below and with node, indented by depth: key, position, kind and
/// the text class of scalars (i integer, f real, s string), then the quoted text.
std::string Dump(Config::Node node, int depth = 0) {
    std::string text = std::string(2 * depth, ' ') + (node.HasKey() ? node.Key() + ":" : "-") + " #" +
        std::to_string(node.Index()) +
        (node.IsMap()         ? " map"
             : node.IsArray() ? " list"
                              : " ");
    if (node.IsValue())
        text += std::string(node.IsInt() ? "i" : node.IsFloat() ? "f" : "s") + " \"" + node.AsString() + "\"";
    text += "\n";
    for (Config::Node child : node) text += Dump(child, depth + 1);
    return text;
}

/// Every accessor's answer for node, on one line.
std::string All(Config::Node node) {
    std::ostringstream text;
    text << (node ? "valid" : "invalid") << " #" << node.Index() << " size " << node.Size() << " key '" << node.Key()
         << "' kind " << node.HasKey() << node.IsMap() << node.IsArray() << node.IsValue() << " class " << node.IsInt()
         << node.IsFloat() << node.IsNumeric() << node.IsString() << " as " << node.AsInt() << " " << node.AsInt64()
         << " " << node.AsUInt64() << " " << node.AsFloat() << " " << node.AsDouble() << " '"
         << static_cast<std::string>(node) << "' equals " << (node == "") << (node == std::string()) << (node != "x")
         << " lookups " << bool(node["x"]) << bool(node[0ul]) << " children " << (node.begin() != node.end());
    return text.str();
}

/// The node at path: keys and indices ("~" the largest) separated by '/'.
Config::Node At(Config const& config, std::string const& path) {
    Config::Node node;
    for (size_t from = 0, at = 0; from <= path.size(); from = at + 1) {
        at = std::min(path.find('/', from), path.size());
        std::string const step = path.substr(from, at - from);
        bool const index = step == "~" || (!step.empty() && std::isdigit(static_cast<unsigned char>(step[0])));
        unsigned long const number = step == "~" ? ~0ul : index ? std::stoul(step) : 0;
        node = from == 0 ? (index ? config[number] : config[step.c_str()]) : index ? node[number] : node[step.c_str()];
    }
    return node;
}

/// The text as a YAML double-quoted scalar.
std::string Quoted(std::string const& text) {
    std::string quoted = "\"";
    for (char c : text) quoted += c == '\t' ? "\\t" : c == '\r' ? "\\r" : c == '\n' ? "\\n" : std::string(1, c);
    return quoted + "\"";
}

} // namespace

// Plain, quoted and block scalars, nested maps and lists, aliases read as copies of
// their anchor, and only the first document; the root counts every node of the tree.
// Then small documents: aliases of scalars, collections and keys, a later anchor of
// the same name wins, complex keys are left out, an empty key and duplicates kept;
// later documents are left unread, and multibyte characters and a byte order mark
// are fine. Good documents write nothing to the error stream.
TEST(ConfigDocument, TreesAsRead) {
    Config config;
    config.Parse(testsupport::ReadText(samplePath));
    Config::Node root = config["missing"];
    testsupport::ExpectGolden("nodes " + std::to_string(root.Size()) + "\n" + Dump(root), "config/sample.txt");
    EXPECT_EQ(config["enemy"]["stats"]["speed"].Size(), root.Size());
    std::string transcript;
    testing::internal::CaptureStderr();
    for (char const* text : {"- a\n- &s [1, 2]\n- *s\n- {k: *s, &key name: v, other: *key, *key : again}\n",
                             "a: &x 1\nb: *x\nc: &x 2\nd: *x\n", "a: 1\n---\nb: [\n",
                             "\xEF\xBB\xBFname: \xC3\xA9t\xC3\xA9 \xF0\x9F\x98\x80\n",
                             "? [1, 2]\n: complex\n? \n: empty key\nplain: value\nplain: duplicate\n<<: {x: 1}\n"}) {
        config.Parse(std::string(text));
        root = config["missing"] ? config["missing"] : config[~0ul];
        transcript += std::string("---\n") + text + "=> nodes " + std::to_string(root.Size()) + "\n" + Dump(root);
        // Lookups find the first of duplicate keys.
        EXPECT_TRUE(config["plain"].Key() != "plain" || config["plain"] == "value");
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    testsupport::ExpectGolden(transcript, "config/aliases.txt");
}

TEST(ConfigDocument, IteratesBackwardsAndStopsAtTheEnds) {
    Config config;
    config.Parse(testsupport::ReadText(samplePath));
    Config::Node window = config["window"];
    Config::Iterator last = window.begin();
    for (Config::Iterator it = window.begin(); it != window.end(); ++it) last = it;
    std::string keys;
    for (Config::Iterator it = last; it != window.end(); --it) keys += (*it).Key() + " ";
    EXPECT_EQ(keys, "theme position size title ");
    // Stepping back from the first child ends the walk; the end iterator stays put.
    Config::Iterator it = window.begin();
    EXPECT_TRUE(--it == window.end() && ++it == window.end());
    EXPECT_TRUE(config["name"].begin() == config["name"].end());
}

TEST(ConfigThreads, OneParsedConfigReadFromFourThreads) {
    Config config;
    config.Parse(testsupport::ReadText(samplePath));
    std::string const expected = Dump(config["missing"]);
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&config, &expected, &mismatches] {
            for (int round = 0; round < 200; ++round) {
                mismatches += Dump(config["missing"]) != expected || config["enemy"]["stats"]["lives"].AsInt() != 3 ||
                    !std::isinf(config["numbers"][5ul].AsDouble());
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(mismatches.load(), 0);
}

// One line per text of config/numbers.txt, read from its first column: the text, its
// class (int, float or string), then AsInt, AsInt64, AsUInt64, AsDouble and AsFloat,
// the reals with every digit and their sign. Blanks around a number; base prefixes
// of either case; malformed integers and reals; hexadecimal reals; infinity and NaN
// with signs; negative zero; values too large or small for a float or a double;
// integers that wrap or overflow.
TEST(ConfigNumericText, TableOfTexts) {
    std::vector<std::string> const lines =
        testsupport::SplitLines(testsupport::ReadText(testsupport::DataFile("config/numbers.txt")));
    std::string document;
    for (std::string const& line : lines) document += "- " + line.substr(0, line.find('"', 1) + 1) + "\n";
    Config config;
    config.Parse(document);
    std::string table;
    for (unsigned long i = 0; i < lines.size(); ++i) {
        Config::Node node = config[i];
        // Every real is numeric, integers included; every other scalar is a string.
        EXPECT_TRUE(node.IsNumeric() == node.IsFloat() && node.IsString() == !node.IsFloat() &&
                    (node.IsFloat() || !node.IsInt()))
            << lines[i];
        char line[200];
        std::snprintf(
            line, sizeof line, "%-24s %-6s %d %" PRId64 " %" PRIu64 " %.17g %.9g\n", Quoted(node.AsString()).c_str(),
            node.IsInt()         ? "int"
                : node.IsFloat() ? "float"
                                 : "string",
            node.AsInt(), node.AsInt64(), node.AsUInt64(), node.AsDouble(), static_cast<double>(node.AsFloat()));
        table += line;
    }
    EXPECT_EQ(lines.size(), 69u);
    testsupport::ExpectGolden(table, "config/numbers.txt");
}

// Every accessor's answer after lookups in documents of every kind, from
// tests/data/config/quiet.txt: "= name: text" (line ends written as \n), then one
// "path: answers" line per lookup. Nothing parsed: every lookup is invalid. A missing
// key gives the node asked from, so a chain skips the missing step; an index past the
// end gives the list itself. The wrong kind of node, at the root or below, gives
// invalid nodes, and a chain stays invalid. Collections read as empty scalars; scalars
// are tested by their text, plain, quoted or tagged; null and empty read as written.
TEST(ConfigQuietResults, LookupsAnswerWithoutFailing) {
    std::string transcript;
    Config config;
    for (std::string const& line :
         testsupport::SplitLines(testsupport::ReadText(testsupport::DataFile("config/quiet.txt")))) {
        std::string text = line.substr(line.find(": ") + 2);
        if (line[0] == '=') {
            for (size_t at = 0; (at = text.find("\\n", at)) != std::string::npos;) text.replace(at, 2, "\n");
            config.Parse(text);
            transcript += line + "\n";
        } else {
            std::string const path = line.substr(0, line.find(": "));
            transcript += path + ": " + All(At(config, path)) + "\n";
        }
    }
    testsupport::ExpectGolden(transcript, "config/quiet.txt");
}

// Defaults answer as a failed lookup (pinned in quiet.txt); empty texts and Clear leave
// nothing, a second Parse replaces the first. Scalars compare by their text, an escaped
// NUL included; the caller's text may go after Parse.
TEST(ConfigQuietResults, DefaultsEmptyTextsClearAndComparisons) {
    Config config;
    Config::Iterator it;
    std::string const invalid = All(config["x"]);
    EXPECT_TRUE(All(Config::Node()) == invalid && All(*--++it) == invalid && it == Config::Iterator());
    char empty[] = "";
    config.Parse(empty);
    EXPECT_TRUE(config.Empty());
    config.Parse(static_cast<char*>(nullptr));
    EXPECT_TRUE(config.Empty());
    config.Parse(std::string("first: 1\n"));
    std::string text = "a: hello\nb: ''\nc: \"x\\0y\"\n";
    config.Parse(text.data());
    text.assign(text.size(), '#');
    EXPECT_TRUE(config["a"] == "hello" && config["a"] == std::string("hello") && config["first"].Key() != "first");
    EXPECT_TRUE(config["a"] != "hell" && config["a"] != std::string("hello ") &&
                config["a"] != static_cast<char const*>(nullptr));
    EXPECT_TRUE(config["b"] == static_cast<char const*>(nullptr));
    EXPECT_TRUE(config["c"] == std::string("x\0y", 3) && config["c"] != "x");
    config.Clear();
    config.Clear();
    EXPECT_TRUE(config.Empty());
}

// Documents that can't be read (tests/data/config/errors.txt, the text escaped with
// \n, \t, \\ and \xHH, then its error line): the config is left empty, one line on the
// error stream says where, and nothing is thrown. Malformed UTF-8 is refused where
// it stands, also inside a directive, where the scanner would otherwise never come
// back; only a string can hold a NUL, the scanner would take it for the end of text.
TEST(ConfigErrors, BrokenDocumentsEmptyTheConfigAndReportOneLine) {
    std::string transcript;
    for (std::string const& line :
         testsupport::SplitLines(testsupport::ReadText(testsupport::DataFile("config/errors.txt")))) {
        if (line.rfind("  => ", 0) == 0) continue;
        std::string text;
        for (size_t i = 0; i < line.size(); ++i) {
            char const c = line[i] == '\\' ? line[++i] : 0;
            text += c == 'x' ? char(std::stoi(line.substr((i += 2) - 1, 2), nullptr, 16))
                : c == 'n'   ? '\n'
                : c == 't'   ? '\t'
                : c          ? c
                             : line[i];
        }
        Config config;
        config.Parse(std::string("old: 1\n"));
        testing::internal::CaptureStderr();
        EXPECT_NO_THROW(config.Parse(text));
        std::string const errors = testing::internal::GetCapturedStderr();
        EXPECT_TRUE(config.Empty()) << line;
        EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << line;
        transcript += line + "\n  => " + errors;
    }
    testsupport::ExpectGolden(transcript, "config/errors.txt");
}
