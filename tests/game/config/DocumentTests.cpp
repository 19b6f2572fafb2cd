// Reading a real YAML file: nested mappings and sequences, block and quoted scalars,
// anchors and aliases, walking children both ways, and reading from several threads.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "game/Config.hpp"

using game::Config;
using testing::ElementsAre;

namespace {

/// The sample file as a NUL-terminated buffer.
std::vector<char> ReadSample() {
    std::ifstream file(std::string(TESSARA_TEST_SOURCE_DIR) + "/game/config/data/sample.yaml", std::ios::binary);
    std::vector<char> text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    text.push_back('\0');
    return text;
}

/// The keys of node's children, in order.
std::vector<std::string> Keys(Config::Node node) {
    std::vector<std::string> keys;
    for (Config::Node child : node) keys.push_back(child.Key());
    return keys;
}

/// Fixture with the sample file parsed.
class ConfigSample : public testing::Test {
protected:
    void SetUp() override {
        std::vector<char> text = ReadSample();
        ASSERT_GT(text.size(), 1u) << "sample.yaml not found";
        config.Parse(text.data());
        ASSERT_FALSE(config.Empty());
    }

    Config config;
};

/// A summary of every node below node, in document order: key, kind and text.
std::string Describe(Config::Node node) {
    std::string text = node.Key() + (node.IsMap() ? "{" : node.IsArray() ? "[" : "=" + node.AsString());
    for (Config::Node child : node) text += Describe(child) + ",";
    if (node.IsMap()) text += "}";
    if (node.IsArray()) text += "]";
    return text;
}

} // namespace

TEST_F(ConfigSample, TopLevelScalars) {
    EXPECT_EQ(config["name"], "Tessara test world");
    EXPECT_EQ(config["version"].AsInt(), 3);
    EXPECT_EQ(config["scale"].AsFloat(), 1.25f);
    EXPECT_EQ(config["seed"].AsInt(), 42);
    EXPECT_EQ(config["enabled"], "true");
    EXPECT_TRUE(config["enabled"].IsString());
    EXPECT_EQ(config["nothing"], "~");
    EXPECT_TRUE(config["empty"].IsValue());
    EXPECT_EQ(config["empty"], "");
}

TEST_F(ConfigSample, NestedMappingsAndSequences) {
    Config::Node window = config["window"];
    EXPECT_TRUE(window.IsMap());
    EXPECT_EQ(window["size"][0ul].AsInt(), 1280);
    EXPECT_EQ(window["size"][1ul].AsInt(), 720);
    EXPECT_EQ(window["position"]["x"].AsInt(), -16);
    EXPECT_EQ(window["position"]["y"].AsInt(), 5);

    Config::Node layers = config["layers"];
    EXPECT_TRUE(layers.IsArray());
    EXPECT_EQ(layers[0ul]["name"], "ground");
    EXPECT_EQ(layers[1ul]["depth"].AsInt(), 12);
    EXPECT_EQ(layers[2ul], "plain item");
    EXPECT_FALSE(layers[1ul].HasKey());
    EXPECT_EQ(layers[1ul].Key(), "");
}

TEST_F(ConfigSample, QuotedScalars) {
    EXPECT_EQ(config["window"]["title"], "Main \"window\"\tone");
    EXPECT_EQ(config["window"]["theme"], "it's dark");
    EXPECT_EQ(config["player"]["color"], "#ff0000");
}

TEST_F(ConfigSample, BlockScalars) {
    EXPECT_EQ(config["story"], "Once upon a time\n  an indented line\nthe end\n");
    EXPECT_EQ(config["summary"], "folded lines join into one\nsecond paragraph\n");
    EXPECT_EQ(config["kept"], "trailing\n\n");
    EXPECT_EQ(config["stripped"], "no newline at the end");
}

TEST_F(ConfigSample, AliasesReadAsTheAnchoredContent) {
    for (char const* owner : {"player", "enemy"}) {
        SCOPED_TRACE(owner);
        Config::Node stats = config[owner]["stats"];
        EXPECT_TRUE(stats.IsMap());
        EXPECT_EQ(stats.Key(), "stats");
        EXPECT_DOUBLE_EQ(stats["speed"].AsDouble(), 4.5);
        EXPECT_EQ(stats["lives"].AsInt(), 3);
        EXPECT_THAT(Keys(stats), ElementsAre("speed", "lives"));
    }
    EXPECT_EQ(config["enemy"]["color"], "#ff0000");
    EXPECT_EQ(config["enemy"]["stats"].Index(), 1);
    EXPECT_EQ(config["enemy"]["stats"]["lives"].Index(), 1);
}

TEST_F(ConfigSample, OnlyTheFirstDocumentIsRead) {
    EXPECT_NE(config["second"].Key(), "second");
    EXPECT_TRUE(config["second"].IsMap());
}

TEST_F(ConfigSample, SizeCountsTheWholeTree) {
    // 17 top-level values and the root, 9 under window, 7 under layers,
    // 2 under each of the three stats maps, 2 more in player and enemy, 9 numbers.
    constexpr size_t nodes = 52;
    EXPECT_EQ(config["missing"].Size(), nodes);
    EXPECT_EQ(config["name"].Size(), nodes);
    EXPECT_EQ(config["window"]["size"][1ul].Size(), nodes);
    EXPECT_EQ(config["enemy"]["stats"]["speed"].Size(), nodes);
}

TEST_F(ConfigSample, IteratesForwardsInDocumentOrder) {
    EXPECT_THAT(Keys(config["missing"]),
                ElementsAre("name", "version", "scale", "seed", "enabled", "nothing", "empty", "window", "layers",
                            "defaults", "player", "enemy", "story", "summary", "kept", "stripped", "numbers"));
    std::vector<std::string> numbers;
    long index = 0;
    for (Config::Node item : config["numbers"]) {
        EXPECT_EQ(item.Index(), index++);
        EXPECT_FALSE(item.HasKey());
        numbers.push_back(item.AsString());
    }
    EXPECT_THAT(numbers, ElementsAre("12", "-0x10", "0o17", "012", "1e3", ".inf", "-.INF", ".nan", "12a"));
}

TEST_F(ConfigSample, IteratesBackwardsToTheEnd) {
    Config::Node window = config["window"];
    Config::Iterator last = window.begin();
    for (Config::Iterator it = window.begin(); it != window.end(); ++it) last = it;
    EXPECT_EQ((*last).Key(), "theme");

    std::vector<std::string> keys;
    for (Config::Iterator it = last; it != window.end(); --it) keys.push_back((*it).Key());
    EXPECT_THAT(keys, ElementsAre("theme", "position", "size", "title"));

    // Stepping back from the first child ends the walk; the end iterator stays put.
    Config::Iterator it = window.begin();
    --it;
    EXPECT_TRUE(it == window.end());
    ++it;
    EXPECT_TRUE(it == window.end());
}

TEST_F(ConfigSample, ScalarsHaveNoChildren) {
    Config::Node name = config["name"];
    EXPECT_TRUE(name.begin() == name.end());
    Config::Iterator it = name.begin();
    ++it;
    EXPECT_TRUE(it == name.end());
    EXPECT_TRUE(name.end() == Config::Iterator(config["version"].end()));
}

TEST(ConfigAliases, AliasesOfScalarsCollectionsAndKeys) {
    Config config;
    config.Parse(std::string("- a\n"
                             "- &s [1, 2]\n"
                             "- *s\n"
                             "- {k: *s, &key name: v, other: *key, *key : again}\n"));
    EXPECT_EQ(Describe(config[~0ul]), "[=a,[=1,=2,],[=1,=2,],{k[=1,=2,],name=v,other=name,name=again,},]");
    EXPECT_EQ(config[3ul]["k"][1ul].AsInt(), 2);
    EXPECT_EQ(config[0ul].Size(), 15u);
}

TEST(ConfigAliases, ALaterAnchorOfTheSameNameWins) {
    Config config;
    config.Parse(std::string("a: &x 1\nb: *x\nc: &x 2\nd: *x\n"));
    EXPECT_EQ(config["b"].AsInt(), 1);
    EXPECT_EQ(config["d"].AsInt(), 2);
}

TEST(ConfigAliases, NestedAliasesExpandBelowTheNodeLimit) {
    Config config;
    config.Parse(std::string("a: &a [x, x, x, x, x, x, x, x, x, x]\n"
                             "b: &b [*a, *a, *a, *a, *a, *a, *a, *a, *a, *a]\n"
                             "c: &c [*b, *b, *b, *b, *b, *b, *b, *b, *b, *b]\n"
                             "d: &d [*c, *c, *c, *c, *c, *c, *c, *c, *c, *c]\n"
                             "e: [*d, *d, *d, *d, *d, *d, *d, *d, *d, *d]\n"));
    ASSERT_FALSE(config.Empty());
    EXPECT_EQ(config["e"][9ul][9ul][9ul][9ul][9ul], "x");
    EXPECT_EQ(config["e"][9ul][9ul][9ul][9ul][9ul].Index(), 9);
    // The root, five lists, and below them 10, 10 * 11, 10 * 111, 10 * 1111, 10 * 11111 nodes.
    EXPECT_EQ(config["e"].Size(), 1u + 5u + 10u + 110u + 1110u + 11110u + 111110u);
}

TEST(ConfigKeys, ComplexKeysAreLeftOutOthersKept) {
    Config config;
    config.Parse(std::string("? [1, 2]\n: complex\n"
                             "? \n: empty key\n"
                             "plain: value\n"
                             "plain: duplicate\n"
                             "<<: {x: 1}\n"));
    Config::Node root = config["missing"];
    EXPECT_THAT(Keys(root), ElementsAre("", "plain", "plain", "<<"));
    EXPECT_EQ(config[""], "empty key");
    EXPECT_TRUE(config[""].HasKey());
    // The first of duplicate keys is found; merge keys are ordinary keys.
    EXPECT_EQ(config["plain"], "value");
    EXPECT_EQ(config["<<"]["x"].AsInt(), 1);
    EXPECT_FALSE(config["x"].HasKey());
    EXPECT_EQ(root.Size(), 6u);
}

TEST(ConfigThreads, OneParsedConfigReadFromFourThreads) {
    Config config;
    std::vector<char> text = ReadSample();
    config.Parse(text.data());
    ASSERT_FALSE(config.Empty());
    std::string const expected = Describe(config["missing"]);

    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&config, &expected, &mismatches] {
            for (int round = 0; round < 200; ++round) {
                if (Describe(config["missing"]) != expected) ++mismatches;
                if (config["enemy"]["stats"]["lives"].AsInt() != 3) ++mismatches;
                if (!config["numbers"][5ul].IsFloat() || !std::isinf(config["numbers"][5ul].AsDouble())) ++mismatches;
                if (config["window"]["size"][9ul].Size() != 52u) ++mismatches;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(mismatches.load(), 0);
}
