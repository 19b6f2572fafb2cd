// Reading a real YAML file (tree dumped whole against tests/data/config/sample.txt),
// aliases, keys, walking children both ways, and reading from several threads.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
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
                       std::to_string(node.Index()) + (node.IsMap() ? " map" : node.IsArray() ? " list" : " ");
    if (node.IsValue())
        text += std::string(node.IsInt() ? "i" : node.IsFloat() ? "f" : "s") + " \"" + node.AsString() + "\"";
    text += "\n";
    for (Config::Node child : node) text += Dump(child, depth + 1);
    return text;
}

class ConfigSample : public testing::Test {
protected:
    void SetUp() override {
        config.Parse(testsupport::ReadText(samplePath));
        ASSERT_FALSE(config.Empty());
    }
    Config config;
};

} // namespace

// Plain, quoted and block scalars, nested maps and lists, aliases read as copies of
// their anchor, and only the first document; the root counts every node of the tree.
TEST_F(ConfigSample, TreeAsRead) {
    Config::Node root = config["missing"];
    testsupport::ExpectGolden("nodes " + std::to_string(root.Size()) + "\n" + Dump(root), "config/sample.txt");
    EXPECT_EQ(config["enemy"]["stats"]["speed"].Size(), root.Size());
    EXPECT_EQ(config["scale"].AsFloat(), 1.25f);
}

TEST_F(ConfigSample, IteratesBackwardsAndStopsAtTheEnds) {
    Config::Node window = config["window"];
    Config::Iterator last = window.begin();
    for (Config::Iterator it = window.begin(); it != window.end(); ++it) last = it;
    std::string keys;
    for (Config::Iterator it = last; it != window.end(); --it) keys += (*it).Key() + " ";
    EXPECT_EQ(keys, "theme position size title ");

    // Stepping back from the first child ends the walk; the end iterator stays put.
    Config::Iterator it = window.begin();
    --it;
    EXPECT_TRUE(it == window.end());
    ++it;
    EXPECT_TRUE(it == window.end());
    Config::Node name = config["name"];
    EXPECT_TRUE(name.begin() == name.end());
    EXPECT_TRUE(name.end() == Config::Iterator(config["version"].end()));
}

// Aliases of scalars, collections and keys; a later anchor of the same name wins;
// complex keys are left out, an empty key and duplicates kept, "<<" is a plain key.
TEST(ConfigAliases, SmallDocumentsAsRead) {
    std::string transcript;
    for (char const* text : {"- a\n- &s [1, 2]\n- *s\n- {k: *s, &key name: v, other: *key, *key : again}\n",
                             "a: &x 1\nb: *x\nc: &x 2\nd: *x\n",
                             "? [1, 2]\n: complex\n? \n: empty key\nplain: value\nplain: duplicate\n<<: {x: 1}\n"}) {
        Config config;
        config.Parse(std::string(text));
        Config::Node root = config["missing"] ? config["missing"] : config[~0ul];
        transcript += std::string("---\n") + text + "=> nodes " + std::to_string(root.Size()) + "\n" + Dump(root);
        // Lookups find the first of duplicate keys.
        if (config["plain"].Key() == "plain") EXPECT_EQ(config["plain"], "value");
    }
    testsupport::ExpectGolden(transcript, "config/aliases.txt");
}

TEST(ConfigAliases, NestedAliasesExpandBelowTheNodeLimit) {
    Config config;
    config.Parse(std::string("a: &a [x, x, x, x, x, x, x, x, x, x]\n"
                             "b: &b [*a, *a, *a, *a, *a, *a, *a, *a, *a, *a]\n"
                             "c: &c [*b, *b, *b, *b, *b, *b, *b, *b, *b, *b]\n"
                             "d: &d [*c, *c, *c, *c, *c, *c, *c, *c, *c, *c]\n"
                             "e: [*d, *d, *d, *d, *d, *d, *d, *d, *d, *d]\n"));
    EXPECT_EQ(config["e"][9ul][9ul][9ul][9ul][9ul], "x");
    EXPECT_EQ(config["e"][9ul][9ul][9ul][9ul][9ul].Index(), 9);
    // The root, five lists, and below them 10, 10 * 11, 10 * 111, 10 * 1111, 10 * 11111 nodes.
    EXPECT_EQ(config["e"].Size(), 1u + 5u + 10u + 110u + 1110u + 11110u + 111110u);
}

TEST(ConfigThreads, OneParsedConfigReadFromFourThreads) {
    Config config;
    config.Parse(testsupport::ReadText(samplePath));
    ASSERT_FALSE(config.Empty());
    std::string const expected = Dump(config["missing"]);
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&config, &expected, &mismatches] {
            for (int round = 0; round < 200; ++round) {
                if (Dump(config["missing"]) != expected) ++mismatches;
                if (config["enemy"]["stats"]["lives"].AsInt() != 3) ++mismatches;
                if (!std::isinf(config["numbers"][5ul].AsDouble())) ++mismatches;
                if (config["window"]["size"][9ul].Size() != 52u) ++mismatches;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(mismatches.load(), 0);
}
