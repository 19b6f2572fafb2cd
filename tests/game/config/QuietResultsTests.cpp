// The quiet results of the configuration tree: empty configs, missing keys, indices
// past the end, nodes of the wrong kind and invalid nodes never fail, they answer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <string>

#include "game/Config.hpp"

using game::Config;

namespace {

/// Expects every accessor of node to give the answer of an invalid node.
void ExpectInvalid(Config::Node node) {
    EXPECT_FALSE(node);
    EXPECT_EQ(node.Index(), -1);
    EXPECT_EQ(node.Size(), 0u);
    EXPECT_FALSE(node.HasKey() || node.IsMap() || node.IsArray() || node.IsValue());
    EXPECT_FALSE(node.IsInt() || node.IsFloat() || node.IsNumeric() || node.IsString());
    EXPECT_EQ(node.AsInt(), 0);
    EXPECT_EQ(node.AsInt64(), 0);
    EXPECT_EQ(node.AsUInt64(), 0u);
    EXPECT_EQ(node.AsFloat(), 0.0f);
    EXPECT_EQ(node.AsDouble(), 0.0);
    EXPECT_EQ(static_cast<std::string>(node), "");
    EXPECT_EQ(node.Key(), "");
    EXPECT_TRUE(node == "" && node == std::string() && node != "x");
    EXPECT_FALSE(node["x"]);
    EXPECT_FALSE(node[0ul]);
    EXPECT_TRUE(node.begin() == node.end());
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

/// Key, position, kind and scalar text of node, or "invalid".
std::string Brief(Config::Node node) {
    if (!node) return "invalid";
    return node.Key() + "#" + std::to_string(node.Index()) + (node.IsMap() ? "M" : node.IsArray() ? "A" : "V") +
           (node.IsInt() ? "i" : node.IsFloat() ? "f" : node.IsString() ? "s" : "") + "=" + node.AsString();
}

constexpr char nested[] = "window:\n  title: main\n  size: [1280, 720]\n  extra: {depth: 2}\ncount: 7\n";

} // namespace

TEST(ConfigQuietResults, LookupsAnswerWithoutFailing) {
    struct Case {
        char const* text;
        char const* path;
        char const* expected;
    };
    Case const cases[] = {
        // Nothing parsed: every lookup is invalid.
        {"", "x", "invalid"},
        {"", "0", "invalid"},
        {"# only a comment\n", "x", "invalid"},
        {"---\n...\n", "x", "invalid"},
        {"\n\n   \n", "x", "invalid"},
        // A missing key gives the node asked from, so a chain skips the missing step.
        {nested, "window/missing", "window#0M="},
        {nested, "window/missing/title", "title#0Vs=main"},
        {nested, "window/missing/extra/depth", "depth#0Vi=2"},
        {nested, "missing", "#0M="},
        {nested, "missing/count", "count#1Vi=7"},
        // An index past the end gives the list itself.
        {nested, "window/size/1", "#1Vi=720"},
        {nested, "window/size/2", "size#1A="},
        {nested, "window/size/~/0", "#0Vi=1280"},
        {"[1, 2, 3]\n", "3", "#0A="},
        // The wrong kind of node, at the root or below, gives invalid nodes, and a chain stays invalid.
        {"[1, 2, 3]\n", "x", "invalid"},
        {nested, "0", "invalid"},
        {"just some text\n", "x", "invalid"},
        {"just some text\n", "0", "invalid"},
        {nested, "window/0", "invalid"},
        {nested, "window/size/x", "invalid"},
        {nested, "count/x", "invalid"},
        {nested, "count/x/y/3", "invalid"},
        // Plain, quoted and tagged scalars are tested by their text; null and empty read as written.
        {"a: '42'\nb: !!str 42\n", "b", "b#1Vi=42"},
        {"a: true\nb: ~\nc:\n", "b", "b#1Vs=~"},
        {"a: true\nb: ~\nc:\n", "c", "c#2Vs="},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.text) + " at " + c.path);
        Config config;
        config.Parse(std::string(c.text));
        Config::Node const node = At(config, c.path);
        EXPECT_EQ(Brief(node), c.expected);
        if (!node) ExpectInvalid(node);
    }
}

TEST(ConfigQuietResults, DefaultsEmptyTextsAndClearGiveNothing) {
    ExpectInvalid(Config::Node());
    Config::Iterator it;
    ++it;
    --it;
    EXPECT_TRUE(it == Config::Iterator());
    ExpectInvalid(*it);

    Config config;
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

TEST(ConfigQuietResults, CollectionsReadAsEmptyScalars) {
    Config config;
    config.Parse(std::string(nested));
    for (Config::Node node : {config["window"], config["window"]["size"]}) {
        EXPECT_FALSE(node.IsValue() || node.IsString() || node.IsNumeric());
        EXPECT_EQ(node.AsInt(), 0);
        EXPECT_EQ(node.AsUInt64(), 0u);
        EXPECT_EQ(node.AsDouble(), 0.0);
        EXPECT_TRUE(node == "");
    }
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
