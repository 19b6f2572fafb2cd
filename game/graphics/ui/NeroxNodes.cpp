// The program node classes: construction with their inputs and defaults, saving and
// reading back, and the editor's factories (CreateNode, DeserializeNode, the catalog).
#include "game/graphics/ui/NeroxCodeEditor.hpp"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <utility>

namespace game::graphics::ui::NeroxCodeEditor {

using json = nlohmann::json;

namespace {

/// Reads a type number that must be 0 (number) or 1 (text).
int32_t ReadValueType(json const& j, char const* key) {
    int32_t const type = j.at(key).get<int32_t>();
    if (type < 0 || type > 1) throw std::runtime_error(std::string("\"") + key + "\" must be 0 or 1");
    return type;
}

} // namespace

// --- NeroxNode ------------------------------------------------------------------------------

Editor::NeroxNode::NeroxNode(std::string title, ImVec2 pos, size_t inputCount)
    : Node(std::move(title), pos, std::vector<UniqueId>(inputCount)), inputDefaults(inputCount) { }

Editor::NeroxNode::NeroxNode(json const& j) : Node(j) {
    comment = j.at("comment").get<std::string>();
    json const& defaults = j.at("inputDefaults");
    if (!defaults.is_array()) throw std::runtime_error("\"inputDefaults\" must be an array");
    inputDefaults.reserve(defaults.size());
    for (json const& value : defaults) inputDefaults.push_back(value.get<std::string>());
    json const& types = j.at("inputTypes");
    if (!types.is_object()) throw std::runtime_error("\"inputTypes\" must be an object");
    for (auto const& [key, value] : types.items()) {
        int32_t input = 0;
        auto const [end, error] = std::from_chars(key.data(), key.data() + key.size(), input);
        if (error != std::errc() || end != key.data() + key.size() || key.empty())
            throw std::runtime_error("\"inputTypes\" key \"" + key + "\" is not an input number");
        inputTypes[input] = value.get<int32_t>();
    }
}

json Editor::NeroxNode::Serialize() {
    json j = Node::Serialize();
    j["class"] = ClassName();
    j["comment"] = comment;
    json defaults = json::array();
    for (std::string const& value : inputDefaults) defaults.push_back(value);
    j["inputDefaults"] = std::move(defaults);
    json types = json::object();
    for (auto const& [input, type] : inputTypes) types[std::to_string(input)] = type;
    j["inputTypes"] = std::move(types);
    return j;
}

int32_t Editor::NeroxNode::InputType(int input) const {
    auto const found = inputTypes.find(input);
    return found == inputTypes.end() ? 0 : found->second;
}

bool Editor::NeroxNode::CanConnectInputToOutput(int input, Node const* source) const {
    if (input < 0 || static_cast<size_t>(input) >= inputs.size()) return false;
    return dynamic_cast<NeroxNode const*>(source) != nullptr && source->hasOutput;
}

// --- NeroxNodeWithVariableInputCount --------------------------------------------------------

size_t Editor::NeroxNodeWithVariableInputCount::MinimumInputCount() const {
    return 0;
}
size_t Editor::NeroxNodeWithVariableInputCount::MaximumInputCount() const {
    return 32;
}
int32_t Editor::NeroxNodeWithVariableInputCount::NewInputType(size_t) const {
    return 0;
}
std::string Editor::NeroxNodeWithVariableInputCount::NewInputDefault(size_t) const {
    return {};
}

void Editor::NeroxNodeWithVariableInputCount::SetInputCount(size_t count) {
    count = std::clamp(count, MinimumInputCount(), std::max(MinimumInputCount(), MaximumInputCount()));
    size_t const old = inputs.size();
    inputDefaults.resize(old); // repair a length read from a file before growing in step
    if (count == old) return;
    inputs.resize(count);
    inputDefaults.resize(count);
    if (count > old) {
        for (size_t i = old; i < count; ++i) {
            inputDefaults[i] = NewInputDefault(i);
            int32_t const type = NewInputType(i);
            if (type != 0)
                inputTypes[static_cast<int32_t>(i)] = type;
            else
                inputTypes.erase(static_cast<int32_t>(i));
        }
    } else {
        std::erase_if(inputTypes, [count](auto const& entry) {
            return entry.first < 0 || static_cast<size_t>(entry.first) >= count;
        });
    }
    modified = true;
}

// --- the classes ----------------------------------------------------------------------------

Editor::InputNode::InputNode(ImVec2 pos) : NeroxNode("Input", pos, 0) { }
Editor::InputNode::InputNode(json const& j) : NeroxNode(j) {
    type = ReadValueType(j, "type");
    index = j.at("index").get<int32_t>();
    channel = j.at("channel").get<int32_t>();
    alias = j.at("alias").get<std::string>();
}
json Editor::InputNode::Serialize() {
    json j = NeroxNode::Serialize();
    j["type"] = type;
    j["index"] = index;
    j["channel"] = channel;
    j["alias"] = alias;
    return j;
}

Editor::OutputNode::OutputNode(ImVec2 pos) : NeroxNodeWithVariableInputCount("Output", pos, 1) {
    hasOutput = false;
}
Editor::OutputNode::OutputNode(json const& j) : NeroxNodeWithVariableInputCount(j) {
    hasOutput = false;
    index = j.at("index").get<int32_t>();
    alias = j.at("alias").get<std::string>();
}
json Editor::OutputNode::Serialize() {
    json j = NeroxNode::Serialize();
    j["index"] = index;
    j["alias"] = alias;
    return j;
}
size_t Editor::OutputNode::MinimumInputCount() const {
    return 1;
}

Editor::ConstNumberNode::ConstNumberNode(ImVec2 pos) : NeroxNode("Constant Number", pos, 0), name("const_number") { }
Editor::ConstNumberNode::ConstNumberNode(json const& j) : NeroxNode(j) {
    name = j.at("name").get<std::string>();
    json const& v = j.at("value");
    if (!v.is_number()) throw std::runtime_error("\"value\" must be a number");
    value = v.get<double>();
}
json Editor::ConstNumberNode::Serialize() {
    json j = NeroxNode::Serialize();
    j["name"] = name;
    j["value"] = value;
    return j;
}

Editor::ConstTextNode::ConstTextNode(ImVec2 pos) : NeroxNode("Constant Text", pos, 0), name("const_text") { }
Editor::ConstTextNode::ConstTextNode(json const& j) : NeroxNode(j) {
    name = j.at("name").get<std::string>();
    value = j.at("value").get<std::string>();
}
json Editor::ConstTextNode::Serialize() {
    json j = NeroxNode::Serialize();
    j["name"] = name;
    j["value"] = value;
    return j;
}

Editor::VarNumberNode::VarNumberNode(ImVec2 pos) : NeroxNode("Number Variable", pos, 3), name("var_number") {
    inputDefaults = {"0", "", ""};
}
Editor::VarNumberNode::VarNumberNode(json const& j) : NeroxNode(j) {
    name = j.at("name").get<std::string>();
}
json Editor::VarNumberNode::Serialize() {
    json j = NeroxNode::Serialize();
    j["name"] = name;
    return j;
}

Editor::VarTextNode::VarTextNode(ImVec2 pos) : NeroxNode("Text Variable", pos, 3), name("var_text") {
    inputTypes[0] = 1;
}
Editor::VarTextNode::VarTextNode(json const& j) : NeroxNode(j) {
    name = j.at("name").get<std::string>();
}
json Editor::VarTextNode::Serialize() {
    json j = NeroxNode::Serialize();
    j["name"] = name;
    return j;
}

Editor::DelayNode::DelayNode(ImVec2 pos) : NeroxNode("Delay", pos, 3) {
    inputDefaults = {"1", "", ""};
}
Editor::DelayNode::DelayNode(json const& j) : NeroxNode(j) { }

Editor::BlinkerNode::BlinkerNode(ImVec2 pos) : NeroxNode("Blinker", pos, 1) {
    inputDefaults = {"1"};
}
Editor::BlinkerNode::BlinkerNode(json const& j) : NeroxNode(j) { }

Editor::CounterNode::CounterNode(ImVec2 pos) : NeroxNode("Counter", pos, 5) {
    inputDefaults = {"1", "0", "", "", ""};
}
Editor::CounterNode::CounterNode(json const& j) : NeroxNode(j) { }

Editor::SmoothNode::SmoothNode(ImVec2 pos) : NeroxNode("Smooth", pos, 3) {
    inputDefaults = {"0", "1", ""};
}
Editor::SmoothNode::SmoothNode(json const& j) : NeroxNode(j) { }

Editor::ExpressionNode::ExpressionNode(ImVec2 pos)
    : NeroxNodeWithVariableInputCount("Expression", pos, 2), text("a + b") { }
Editor::ExpressionNode::ExpressionNode(json const& j) : NeroxNodeWithVariableInputCount(j) {
    text = j.at("text").get<std::string>();
}
json Editor::ExpressionNode::Serialize() {
    json j = NeroxNode::Serialize();
    j["text"] = text;
    return j;
}
size_t Editor::ExpressionNode::MaximumInputCount() const {
    return 26;
}

Editor::StatementNode::StatementNode(ImVec2 pos) : NeroxNodeWithVariableInputCount("Statement", pos, 1) { }
Editor::StatementNode::StatementNode(json const& j) : NeroxNodeWithVariableInputCount(j) {
    text = j.at("text").get<std::string>();
}
json Editor::StatementNode::Serialize() {
    json j = NeroxNode::Serialize();
    j["text"] = text;
    return j;
}
size_t Editor::StatementNode::MaximumInputCount() const {
    return 26;
}

Editor::ExecuteNode::ExecuteNode(ImVec2 pos) : NeroxNodeWithVariableInputCount("Execute", pos, 1) {
    hasOutput = false;
    inputTypes[0] = CODE_TYPE;
}
Editor::ExecuteNode::ExecuteNode(json const& j) : NeroxNodeWithVariableInputCount(j) {
    hasOutput = false;
}
int32_t Editor::ExecuteNode::NewInputType(size_t) const {
    return CODE_TYPE;
}
size_t Editor::ExecuteNode::MinimumInputCount() const {
    return 1;
}

Editor::ConditionalNode::ConditionalNode(ImVec2 pos) : NeroxNode("Conditional", pos, 3) {
    inputTypes[1] = CODE_TYPE;
    inputTypes[2] = CODE_TYPE;
}
Editor::ConditionalNode::ConditionalNode(json const& j) : NeroxNode(j) { }

Editor::SwitchNode::SwitchNode(ImVec2 pos) : NeroxNodeWithVariableInputCount("Switch", pos, 3) {
    inputDefaults = {"0", "", ""};
}
Editor::SwitchNode::SwitchNode(json const& j) : NeroxNodeWithVariableInputCount(j) {
    type = ReadValueType(j, "type");
}
json Editor::SwitchNode::Serialize() {
    json j = NeroxNode::Serialize();
    j["type"] = type;
    return j;
}
size_t Editor::SwitchNode::MinimumInputCount() const {
    return 1;
}
int32_t Editor::SwitchNode::NewInputType(size_t input) const {
    return input == 0 ? 0 : type;
}
void Editor::SwitchNode::SetType(int32_t newType) {
    type = newType;
    for (size_t i = 1; i < inputs.size(); ++i) {
        if (newType != 0)
            inputTypes[static_cast<int32_t>(i)] = newType;
        else
            inputTypes.erase(static_cast<int32_t>(i));
    }
    modified = true;
}

Editor::PulseNode::PulseNode(ImVec2 pos) : PulseNode("Pulse", pos) { }
Editor::PulseNode::PulseNode(std::string title, ImVec2 pos) : NeroxNode(std::move(title), pos, 2) { }
Editor::PulseNode::PulseNode(json const& j) : NeroxNode(j) { }

Editor::PulseToggleNode::PulseToggleNode(ImVec2 pos) : PulseNode("Pulse Toggle", pos) { }
Editor::PulseToggleNode::PulseToggleNode(json const& j) : PulseNode(j) { }

Editor::BasicNumberNode::BasicNumberNode(ImVec2 pos) : BasicNumberNode("Basic Number", pos) { }
Editor::BasicNumberNode::BasicNumberNode(std::string title, ImVec2 pos) : NeroxNode(std::move(title), pos, 0) { }
Editor::BasicNumberNode::BasicNumberNode(json const& j) : NeroxNode(j) { }

Editor::TimeNode::TimeNode(ImVec2 pos) : BasicNumberNode("Time", pos) { }
Editor::TimeNode::TimeNode(json const& j) : BasicNumberNode(j) { }

Editor::PrintNode::PrintNode(ImVec2 pos) : NeroxNodeWithVariableInputCount("Print", pos, 1) {
    hasOutput = false;
    inputTypes[0] = 1;
}
Editor::PrintNode::PrintNode(json const& j) : NeroxNodeWithVariableInputCount(j) {
    hasOutput = false;
}
int32_t Editor::PrintNode::NewInputType(size_t) const {
    return 1;
}
size_t Editor::PrintNode::MinimumInputCount() const {
    return 1;
}

Editor::TextNode::TextNode(ImVec2 pos) : NeroxNodeWithVariableInputCount("Text", pos, 1) {
    inputTypes[0] = 1;
}
Editor::TextNode::TextNode(json const& j) : NeroxNodeWithVariableInputCount(j) {
    text = j.at("text").get<std::string>();
}
json Editor::TextNode::Serialize() {
    json j = NeroxNode::Serialize();
    j["text"] = text;
    return j;
}
int32_t Editor::TextNode::NewInputType(size_t) const {
    return 1;
}

namespace {

/// Defaults of a new MathNode's inputs a, b, c, where an empty text (read as 0) would not do.
void MathDefaults(std::string const& operation, std::vector<std::string>& defaults) {
    auto set = [&](size_t input, char const* value) {
        if (input < defaults.size()) defaults[input] = value;
    };
    if (operation == "DIVIDE")
        set(1, "1");
    else if (operation == "POW")
        set(1, "2");
    else if (operation == "CLAMP")
        set(2, "1");
    else if (operation == "SMOOTHSTEP")
        set(1, "1");
    else if (operation == "LERP") {
        set(1, "1");
        set(2, "0.5");
    }
}

} // namespace

Editor::MathNode::MathNode(std::string const& operation, ImVec2 pos)
    : NeroxNode(operation, pos, static_cast<size_t>(MathInputCount(operation))) {
    MathDefaults(operation, inputDefaults);
}
Editor::MathNode::MathNode(char const* operation, ImVec2 pos) : MathNode(std::string(operation), pos) { }
Editor::MathNode::MathNode(json const& j) : NeroxNode(j) { }

void Editor::MathNode::SetOperation(std::string const& operation) {
    if (operation == title) return;
    title = operation;
    size_t const count = static_cast<size_t>(MathInputCount(operation));
    inputs.resize(count);
    inputDefaults.assign(count, std::string());
    MathDefaults(operation, inputDefaults);
    inputTypes.clear();
    modified = true;
}

Editor::PIDControllerNode::PIDControllerNode(ImVec2 pos) : NeroxNode("PID Controller", pos, 8) {
    inputDefaults = {"0", "0", "1", "0", "0", "", "", ""};
}
Editor::PIDControllerNode::PIDControllerNode(json const& j) : NeroxNode(j) { }

Editor::IncludeNode::IncludeNode(ImVec2 pos) : NeroxNode("Include", pos, 0) {
    hasOutput = false;
}
Editor::IncludeNode::IncludeNode(json const& j) : NeroxNode(j) {
    hasOutput = false;
    path = j.at("path").get<std::string>();
}
json Editor::IncludeNode::Serialize() {
    json j = NeroxNode::Serialize();
    j["path"] = path;
    return j;
}

// --- catalog and factories ------------------------------------------------------------------

namespace {

using CatalogEntry = Editor::CatalogEntry;

constexpr char const* kInOut = "Inputs/Outputs";
constexpr char const* kValues = "Values";
constexpr char const* kLogic = "Logic";
constexpr char const* kTiming = "Timing";
constexpr char const* kMath = "Math";
constexpr char const* kText = "Text";
constexpr char const* kControl = "Control";

constexpr CatalogEntry kCatalog[] = {
    {"Input", "InputNode", kInOut},
    {"Output", "OutputNode", kInOut},
    {"Print", "PrintNode", kInOut},
    {"Constant Number", "ConstNumberNode", kValues},
    {"Constant Text", "ConstTextNode", kValues},
    {"Number Variable", "VarNumberNode", kValues},
    {"Text Variable", "VarTextNode", kValues},
    {"Time", "TimeNode", kValues},
    {"Switch", "SwitchNode", kLogic},
    {"Pulse", "PulseNode", kLogic},
    {"Pulse Toggle", "PulseToggleNode", kLogic},
    {"EQUAL", "MathNode", kLogic},
    {"NOT", "MathNode", kLogic},
    {"AND", "MathNode", kLogic},
    {"OR", "MathNode", kLogic},
    {"XOR", "MathNode", kLogic},
    {"GREATER", "MathNode", kLogic},
    {"LESSER", "MathNode", kLogic},
    {"Delay", "DelayNode", kTiming},
    {"Blinker", "BlinkerNode", kTiming},
    {"Counter", "CounterNode", kTiming},
    {"Smooth", "SmoothNode", kTiming},
    {"Expression", "ExpressionNode", kMath},
    {"PID Controller", "PIDControllerNode", kMath},
    {"ADD", "MathNode", kMath},
    {"SUBTRACT", "MathNode", kMath},
    {"MULTIPLY", "MathNode", kMath},
    {"DIVIDE", "MathNode", kMath},
    {"MODULO", "MathNode", kMath},
    {"NEGATIVE", "MathNode", kMath},
    {"ABSOLUTE", "MathNode", kMath},
    {"SIGN", "MathNode", kMath},
    {"FLOOR", "MathNode", kMath},
    {"CEIL", "MathNode", kMath},
    {"ROUND", "MathNode", kMath},
    {"FRACT", "MathNode", kMath},
    {"SQRT", "MathNode", kMath},
    {"POW", "MathNode", kMath},
    {"LOG", "MathNode", kMath},
    {"SIN", "MathNode", kMath},
    {"COS", "MathNode", kMath},
    {"TAN", "MathNode", kMath},
    {"ASIN", "MathNode", kMath},
    {"ACOS", "MathNode", kMath},
    {"ATAN", "MathNode", kMath},
    {"CLAMP", "MathNode", kMath},
    {"STEP", "MathNode", kMath},
    {"SMOOTHSTEP", "MathNode", kMath},
    {"LERP", "MathNode", kMath},
    {"Text", "TextNode", kText},
    {"Conditional", "ConditionalNode", kControl},
    {"Statement", "StatementNode", kControl},
    {"Execute", "ExecuteNode", kControl},
    {"Include", "IncludeNode", kControl},
};

using NodeMaker = Editor::NeroxNode* (*)(ImVec2);
using NodeReader = Editor::NeroxNode* (*)(json const&);

template <typename T> Editor::NeroxNode* Make(ImVec2 pos) {
    return new T(pos);
}
template <> Editor::NeroxNode* Make<Editor::MathNode>(ImVec2 pos) {
    return new Editor::MathNode("ADD", pos);
}
template <typename T> Editor::NeroxNode* Read(json const& j) {
    return new T(j);
}

struct ClassEntry {
    char const* className;
    NodeMaker make;
    NodeReader read;
};

template <typename T> constexpr ClassEntry Entry(char const* name) {
    return {name, &Make<T>, &Read<T>};
}

ClassEntry const kClasses[] = {
    Entry<Editor::InputNode>("InputNode"),
    Entry<Editor::OutputNode>("OutputNode"),
    Entry<Editor::ConstNumberNode>("ConstNumberNode"),
    Entry<Editor::ConstTextNode>("ConstTextNode"),
    Entry<Editor::VarNumberNode>("VarNumberNode"),
    Entry<Editor::VarTextNode>("VarTextNode"),
    Entry<Editor::DelayNode>("DelayNode"),
    Entry<Editor::BlinkerNode>("BlinkerNode"),
    Entry<Editor::CounterNode>("CounterNode"),
    Entry<Editor::SmoothNode>("SmoothNode"),
    Entry<Editor::ExpressionNode>("ExpressionNode"),
    Entry<Editor::StatementNode>("StatementNode"),
    Entry<Editor::ExecuteNode>("ExecuteNode"),
    Entry<Editor::ConditionalNode>("ConditionalNode"),
    Entry<Editor::SwitchNode>("SwitchNode"),
    Entry<Editor::PulseNode>("PulseNode"),
    Entry<Editor::PulseToggleNode>("PulseToggleNode"),
    Entry<Editor::BasicNumberNode>("BasicNumberNode"),
    Entry<Editor::TimeNode>("TimeNode"),
    Entry<Editor::PrintNode>("PrintNode"),
    Entry<Editor::TextNode>("TextNode"),
    Entry<Editor::MathNode>("MathNode"),
    Entry<Editor::PIDControllerNode>("PIDControllerNode"),
    Entry<Editor::IncludeNode>("IncludeNode"),
};

ClassEntry const* FindClass(std::string const& name) {
    for (ClassEntry const& entry : kClasses)
        if (name == entry.className) return &entry;
    return nullptr;
}

/// The node that a menu title or a class name stands for, or null.
Editor::NeroxNode* MakeByTitle(std::string const& title, ImVec2 pos) {
    for (CatalogEntry const& entry : kCatalog) {
        if (title != entry.title) continue;
        if (std::strcmp(entry.className, "MathNode") == 0) return new Editor::MathNode(title, pos);
        return FindClass(entry.className)->make(pos);
    }
    if (ClassEntry const* entry = FindClass(title)) return entry->make(pos);
    return nullptr;
}

} // namespace

std::span<Editor::CatalogEntry const> Editor::Catalog() {
    return kCatalog;
}

bool Editor::MatchesFilter(char const* title, std::string const& filter) {
    if (filter.empty()) return true;
    size_t const length = std::strlen(title);
    if (filter.size() > length) return false;
    for (size_t start = 0; start + filter.size() <= length; ++start) {
        size_t i = 0;
        while (i < filter.size() &&
               std::tolower(static_cast<unsigned char>(title[start + i])) ==
                   std::tolower(static_cast<unsigned char>(filter[i])))
            ++i;
        if (i == filter.size()) return true;
    }
    return false;
}

Node* Editor::CreateNode(std::string const& title, ImVec2 pos, std::vector<UniqueId> inputs) {
    NeroxNode* node = MakeByTitle(title, pos);
    if (node == nullptr) return nullptr;
    if (!inputs.empty()) {
        if (auto* variable = dynamic_cast<NeroxNodeWithVariableInputCount*>(node))
            variable->SetInputCount(inputs.size());
        size_t const count = std::min(inputs.size(), node->inputs.size());
        for (size_t i = 0; i < count; ++i) node->inputs[i] = inputs[i];
    }
    node->modified = false;
    return node;
}

void Editor::Warn(std::string message) {
    if (printWarnings) std::cerr << "NeroxCodeEditor: " << message << '\n';
    warnings.push_back(std::move(message));
}

Node* Editor::DeserializeNode(json const& j) {
    if (!j.is_object()) {
        Warn("skipped a node that is not a JSON object");
        return nullptr;
    }
    auto const titleOf = [&j]() -> std::string {
        auto const found = j.find("title");
        return found != j.end() && found->is_string() ? "\"" + found->get<std::string>() + "\"" : "without a title";
    };
    auto const found = j.find("class");
    if (found == j.end() || !found->is_string()) {
        Warn("skipped node " + titleOf() + ": no \"class\" key");
        return nullptr;
    }
    std::string const className = found->get<std::string>();
    ClassEntry const* entry = FindClass(className);
    if (entry == nullptr) {
        Warn("skipped node " + titleOf() + ": unknown class \"" + className + "\"");
        return nullptr;
    }
    try {
        return entry->read(j);
    } catch (std::exception const& error) {
        Warn("skipped malformed " + className + " " + titleOf() + ": " + error.what());
        return nullptr;
    }
}

} // namespace game::graphics::ui::NeroxCodeEditor
