// Fuzzes the YAML configuration tree: arbitrary bytes parsed as a document, then
// every node visited with every accessor, checking that the answers agree.
#include "FuzzSupport.hpp"
#include "game/Config.hpp"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <streambuf>
#include <string>
#include <vector>

namespace {

using fuzzsupport::Check;
using fuzzsupport::SilenceErrors;
using game::Config;

/// Deepest level of the tree that is visited.
constexpr int maxDepth = 64;
/// Most nodes visited for one input, so that alias-heavy trees stay quick.
constexpr size_t maxVisits = 200000;

/// Keeps the results of the accessors alive so that none is optimised away.
volatile uint64_t consumed = 0;

void Consume(double value) {
    uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    consumed = consumed + bits;
}

/// Calls every accessor of node, checks how they relate, and visits the children.
void Visit(Config::Node node, size_t treeSize, int depth, size_t& visits) {
    if (++visits > maxVisits) return;
    bool const valid = bool(node);
    Check(node.Size() == (valid ? treeSize : 0));
    Check((node.Index() == -1) == !valid);

    bool const isMap = node.IsMap();
    bool const isArray = node.IsArray();
    bool const isValue = node.IsValue();
    Check(!valid || int(isMap) + int(isArray) + int(isValue) == 1);
    Check(valid || (!isMap && !isArray && !isValue && !node.HasKey()));

    bool const isInt = node.IsInt();
    bool const isFloat = node.IsFloat();
    bool const isNumeric = node.IsNumeric();
    bool const isString = node.IsString();
    Check(!isInt || isNumeric);
    Check(!isFloat || isNumeric);
    Check(!(isNumeric && isString));
    Check(isValue == (isNumeric || isString));

    Consume(node.AsFloat());
    Consume(node.AsDouble());
    Consume(double(node.AsInt()));
    Consume(double(node.AsInt64()));
    Consume(double(node.AsUInt64()));
    if (!isValue) {
        Check(node.AsInt() == 0 && node.AsInt64() == 0 && node.AsUInt64() == 0);
        Check(node.AsDouble() == 0 && node.AsFloat() == 0);
    }

    std::string const text = node.AsString();
    std::string const converted = node;
    Check(text == converted);
    Check(node == text);
    bool const hasNul = text.find('\0') != std::string::npos;
    Check((node == text.c_str()) == !hasNul);
    Check(node != text + "x" && node != (text + "x").c_str());
    Check(isValue || text.empty());

    std::string const key = node.Key();
    Check(node.HasKey() || key.empty());

    // Lookups: a found child carries the key, a missing one gives the node itself.
    Config::Node byKey = node["name"];
    Check(bool(byKey) == isMap);
    Check(!isMap || byKey.Key() == "name" || (byKey.Index() == node.Index() && byKey.IsMap()));
    Config::Node byOwnKey = node[key.c_str()];
    Check(bool(byOwnKey) == isMap);

    // Children forwards, then backwards from the last one.
    long count = 0;
    Config::Iterator last = node.end();
    for (Config::Iterator it = node.begin(); it != node.end(); ++it) {
        Config::Node child = *it;
        Check(child.Index() == count);
        Check(child.HasKey() == isMap);
        last = it;
        ++count;
    }
    Check(count == 0 || isMap || isArray);
    long backwards = 0;
    for (Config::Iterator it = last; it != node.end(); --it) ++backwards;
    Check(backwards == count);
    Config::Iterator stuck = node.end();
    ++stuck;
    --stuck;
    Check(stuck == node.end());

    Config::Node first = node[0ul];
    Check(bool(first) == isArray);
    Config::Node pastEnd = node[static_cast<unsigned long>(count)];
    Check(bool(pastEnd) == isArray);
    Check(!isArray || pastEnd.IsArray());
    if (isArray && count > 0) Check(first.Index() == 0);

    if (depth >= maxDepth) return;
    for (Config::Node child : node) Visit(child, treeSize, depth + 1, visits);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    SilenceErrors();
    std::vector<char> text(data, data + size);
    text.push_back('\0');

    Config config;
    config.Parse(text.data());

    // The raw bytes as a string: a NUL anywhere refuses the whole text.
    Config raw;
    raw.Parse(std::string(reinterpret_cast<char const*>(data), size));
    if (std::memchr(data, 0, size) != nullptr) Check(raw.Empty());
    if (std::memchr(data, 0, size) == nullptr) Check(raw.Empty() == config.Empty());

    // No key is longer than the input, so this one is missing, and a missing key or
    // index gives back the root when it is of the asked kind.
    std::string const absent(size + 1, 'k');
    Config::Node byKey = config[absent.c_str()];
    Config::Node byIndex = config[~0ul];
    Consume(double(config["name"].AsInt64()));
    Consume(double(config[0ul].AsInt64()));
    if (config.Empty()) {
        Check(!byKey && !byIndex);
        Check(byKey == "" && byKey.AsInt() == 0 && byKey.Size() == 0);
        return 0;
    }
    Check(!(byKey && byIndex));
    Config::Node root = byKey ? byKey : byIndex;
    if (!root) return 0; // a scalar document: no key or index reaches it
    Check(root.Index() == 0 && !root.HasKey());
    size_t visits = 0;
    Visit(root, root.Size(), 0, visits);

    config.Clear();
    Check(config.Empty() && !config["name"]);
    return 0;
}
