// The quiet results of the configuration tree: empty configs, missing keys, indices
// past the end, nodes of the wrong kind and invalid nodes never fail, they answer.
#include <gtest/gtest.h>

#include <string>

#include "game/Config.hpp"

using game::Config;

namespace {

/// Expects every accessor of node to give the answer of an invalid node.
void ExpectInvalid(Config::Node node) {
    EXPECT_FALSE(node);
    EXPECT_EQ(node.Index(), -1);
    EXPECT_EQ(node.Size(), 0u);
    EXPECT_FALSE(node.HasKey());
    EXPECT_FALSE(node.IsMap());
    EXPECT_FALSE(node.IsArray());
    EXPECT_FALSE(node.IsValue());
    EXPECT_FALSE(node.IsInt());
    EXPECT_FALSE(node.IsFloat());
    EXPECT_FALSE(node.IsNumeric());
    EXPECT_FALSE(node.IsString());
    EXPECT_EQ(node.AsInt(), 0);
    EXPECT_EQ(node.AsInt64(), 0);
    EXPECT_EQ(node.AsUInt64(), 0u);
    EXPECT_EQ(node.AsFloat(), 0.0f);
    EXPECT_EQ(node.AsDouble(), 0.0);
    EXPECT_EQ(node.AsString(), "");
    EXPECT_EQ(static_cast<std::string>(node), "");
    EXPECT_EQ(node.Key(), "");
    EXPECT_TRUE(node == "");
    EXPECT_TRUE(node == std::string());
    EXPECT_TRUE(node != "x");
    EXPECT_FALSE(node["x"]);
    EXPECT_FALSE(node[0ul]);
    EXPECT_TRUE(node.begin() == node.end());
}

constexpr char nested[] = "window:\n"
                          "  title: main\n"
                          "  size: [1280, 720]\n"
                          "  extra: {depth: 2}\n"
                          "count: 7\n";

} // namespace

TEST(ConfigQuietResults, EmptyConfigGivesInvalidNodes) {
    Config config;
    EXPECT_TRUE(config.Empty());
    ExpectInvalid(config["x"]);
    ExpectInvalid(config[0ul]);
}

TEST(ConfigQuietResults, TextsWithoutContentLeaveTheConfigEmpty) {
    for (char const* text : {"", "# only a comment\n", "---\n", "---\n...\n", "\n\n   \n"}) {
        SCOPED_TRACE(text);
        Config config;
        config.Parse(std::string(text));
        EXPECT_TRUE(config.Empty());
        ExpectInvalid(config["x"]);
    }
    Config config;
    char empty[] = "";
    config.Parse(empty);
    EXPECT_TRUE(config.Empty());
    config.Parse(static_cast<char*>(nullptr));
    EXPECT_TRUE(config.Empty());
}

TEST(ConfigQuietResults, DefaultNodeAndIteratorAreInvalid) {
    ExpectInvalid(Config::Node());
    Config::Iterator it;
    ++it;
    --it;
    EXPECT_TRUE(it == Config::Iterator());
    ExpectInvalid(*it);
}

TEST(ConfigQuietResults, MissingKeyGivesTheNodeItself) {
    Config config;
    config.Parse(std::string(nested));
    Config::Node window = config["window"];
    Config::Node missing = window["missing"];
    EXPECT_TRUE(missing);
    EXPECT_TRUE(missing.IsMap());
    EXPECT_EQ(missing.Key(), "window");
    EXPECT_EQ(missing.Index(), window.Index());
    // A chain of lookups stays on the path: the missing step is skipped.
    EXPECT_EQ(config["window"]["missing"]["title"], "main");
    EXPECT_EQ(config["window"]["missing"]["extra"]["depth"].AsInt(), 2);
}

TEST(ConfigQuietResults, MissingRootKeyGivesTheRoot) {
    Config config;
    config.Parse(std::string(nested));
    Config::Node root = config["missing"];
    EXPECT_TRUE(root.IsMap());
    EXPECT_FALSE(root.HasKey());
    EXPECT_EQ(root.Index(), 0);
    EXPECT_EQ(root["count"].AsInt(), 7);
}

TEST(ConfigQuietResults, IndexPastTheEndGivesTheArrayItself) {
    Config config;
    config.Parse(std::string(nested));
    Config::Node size = config["window"]["size"];
    EXPECT_EQ(size[1ul].AsInt(), 720);
    Config::Node past = size[5ul];
    EXPECT_TRUE(past.IsArray());
    EXPECT_EQ(past.Key(), "size");
    EXPECT_EQ(past[0ul].AsInt(), 1280);
    EXPECT_TRUE(size[2ul].IsArray());
    EXPECT_TRUE(size[~0ul].IsArray());
}

TEST(ConfigQuietResults, RootOfTheWrongKindGivesInvalidNodes) {
    Config sequence;
    sequence.Parse(std::string("[1, 2, 3]\n"));
    EXPECT_FALSE(sequence.Empty());
    ExpectInvalid(sequence["x"]);
    EXPECT_EQ(sequence[2ul].AsInt(), 3);
    EXPECT_TRUE(sequence[3ul].IsArray());

    Config mapping;
    mapping.Parse(std::string(nested));
    ExpectInvalid(mapping[0ul]);

    Config scalar;
    scalar.Parse(std::string("just some text\n"));
    EXPECT_FALSE(scalar.Empty());
    ExpectInvalid(scalar["x"]);
    ExpectInvalid(scalar[0ul]);
}

TEST(ConfigQuietResults, ChildAccessOfTheWrongKindGivesInvalidNodes) {
    Config config;
    config.Parse(std::string(nested));
    ExpectInvalid(config["window"][0ul]);
    ExpectInvalid(config["window"]["size"]["x"]);
    ExpectInvalid(config["count"]["x"]);
    ExpectInvalid(config["count"][0ul]);
    // Once invalid, a chain stays invalid.
    ExpectInvalid(config["count"]["x"]["y"][3ul]);
}

TEST(ConfigQuietResults, CollectionsReadAsEmptyScalars) {
    Config config;
    config.Parse(std::string(nested));
    for (Config::Node node : {config["window"], config["window"]["size"]}) {
        EXPECT_TRUE(node);
        EXPECT_FALSE(node.IsValue());
        EXPECT_FALSE(node.IsString());
        EXPECT_FALSE(node.IsNumeric());
        EXPECT_EQ(node.AsInt(), 0);
        EXPECT_EQ(node.AsUInt64(), 0u);
        EXPECT_EQ(node.AsDouble(), 0.0);
        EXPECT_EQ(node.AsString(), "");
        EXPECT_TRUE(node == "");
    }
}

TEST(ConfigQuietResults, ScalarsCompareByText) {
    Config config;
    config.Parse(std::string("a: hello\nb: ''\nc: \"x\\0y\"\n"));
    EXPECT_TRUE(config["a"] == "hello");
    EXPECT_TRUE(config["a"] == std::string("hello"));
    EXPECT_TRUE(config["a"] != "hell");
    EXPECT_TRUE(config["a"] != std::string("hello "));
    EXPECT_TRUE(config["b"] == "");
    EXPECT_TRUE(config["b"].IsString());
    EXPECT_TRUE(config["a"] != static_cast<char const*>(nullptr));
    EXPECT_TRUE(config["b"] == static_cast<char const*>(nullptr));
    // An escaped NUL is part of the text.
    EXPECT_EQ(config["c"].AsString(), std::string("x\0y", 3));
    EXPECT_TRUE(config["c"] == std::string("x\0y", 3));
    EXPECT_TRUE(config["c"] != "x");
}

TEST(ConfigQuietResults, ParseReplacesAndClearEmpties) {
    Config config;
    config.Parse(std::string("first: 1\n"));
    EXPECT_EQ(config["first"].AsInt(), 1);
    config.Parse(std::string("second: 2\n"));
    EXPECT_EQ(config["second"].AsInt(), 2);
    EXPECT_NE(config["first"].Key(), "first");
    config.Clear();
    EXPECT_TRUE(config.Empty());
    ExpectInvalid(config["second"]);
    config.Clear();
    EXPECT_TRUE(config.Empty());
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
