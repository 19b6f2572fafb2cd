// The quiet results of the configuration tree: empty configs, missing keys, indices
// past the end, nodes of the wrong kind and invalid nodes never fail, they answer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <sstream>
#include <string>
#include <vector>

#include "game/Config.hpp"
#include "support/Golden.hpp"

using game::Config;

namespace {

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

constexpr char nested[] = "window:\n  title: main\n  size: [1280, 720]\n  extra: {depth: 2}\ncount: 7\n";

} // namespace

// Every accessor's answer after lookups in documents of every kind, in
// tests/data/config/quiet.txt. Nothing parsed: every lookup is invalid. A missing key
// gives the node asked from, so a chain skips the missing step; an index past the end
// gives the list itself. The wrong kind of node, at the root or below, gives invalid
// nodes, and a chain stays invalid. Collections read as empty scalars; scalars are
// tested by their text, plain, quoted or tagged; null and empty read as written.
TEST(ConfigQuietResults, LookupsAnswerWithoutFailing) {
    struct Case {
        char const* name;
        char const* text;
        std::vector<char const*> paths;
    };
    Case const cases[] = {
        {"empty", "", {"x", "0"}},
        {"comment", "# only a comment\n", {"x"}},
        {"no document", "---\n...\n", {"x"}},
        {"blank", "\n\n   \n", {"x"}},
        {"nested", nested, {"window/missing", "window/missing/title", "window/missing/extra/depth", "missing",
                            "missing/count", "window/size/1", "window/size/2", "window/size/~/0", "0", "window/0",
                            "window/size/x", "count/x", "count/x/y/3"}},
        {"list", "[1, 2, 3]\n", {"3", "x"}},
        {"scalar", "just some text\n", {"x", "0"}},
        {"scalars", "a: '42'\nb: !!str 42\nc: true\nd: ~\ne:\n", {"a", "b", "c", "d", "e"}},
    };
    std::string transcript;
    for (Case const& c : cases) {
        Config config;
        config.Parse(std::string(c.text));
        for (char const* path : c.paths) transcript += std::string(c.name) + " " + path + ": " + All(At(config, path)) + "\n";
    }
    testsupport::ExpectGolden(transcript, "config/quiet.txt");
}

TEST(ConfigQuietResults, DefaultsEmptyTextsAndClearGiveNothing) {
    Config config;
    std::string const invalid = All(config["x"]); // as pinned in quiet.txt
    EXPECT_EQ(All(Config::Node()), invalid);
    Config::Iterator it;
    ++it;
    --it;
    EXPECT_TRUE(it == Config::Iterator());
    EXPECT_EQ(All(*it), invalid);

    char empty[] = "";
    config.Parse(empty);
    EXPECT_TRUE(config.Empty());
    config.Parse(static_cast<char*>(nullptr));
    EXPECT_TRUE(config.Empty());
    config.Parse(std::string("first: 1\n"));
    config.Parse(std::string("second: 2\n"));
    EXPECT_EQ(config["second"].AsInt(), 2);
    EXPECT_NE(config["first"].Key(), "first");
    config.Clear();
    EXPECT_TRUE(config.Empty());
    config.Clear();
    EXPECT_TRUE(config.Empty());
}

TEST(ConfigQuietResults, ScalarsCompareByText) {
    Config config;
    config.Parse(std::string("a: hello\nb: ''\nc: \"x\\0y\"\n"));
    EXPECT_TRUE(config["a"] == "hello" && config["a"] == std::string("hello"));
    EXPECT_TRUE(config["a"] != "hell" && config["a"] != std::string("hello "));
    EXPECT_TRUE(config["a"] != static_cast<char const*>(nullptr));
    EXPECT_TRUE(config["b"] == static_cast<char const*>(nullptr));
    // An escaped NUL is part of the text.
    EXPECT_TRUE(config["c"] == std::string("x\0y", 3));
    EXPECT_TRUE(config["c"] != "x");
}

TEST(ConfigQuietResults, TheCallersTextMayGoAfterParse) {
    Config config;
    {
        std::string text = "key: value\nlist: [a, b]\n";
        config.Parse(text.data());
        text.assign(text.size(), '#');
    }
    EXPECT_EQ(config["key"], "value");
    EXPECT_EQ(config["list"][1ul], "b");
}
