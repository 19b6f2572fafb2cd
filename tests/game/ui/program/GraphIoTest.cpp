// Saving and loading program graphs: each class read back as written, a program
// text opened again giving the same text, bad files reported instead of crashing,
// cycles cut, the node factories, and the Compile entry point.
#include "ProgramGraph.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <typeinfo>

using namespace programtest;
using json = nlohmann::json;

namespace {

TEST(ProgramGraphIo, RichGraphUsesEveryClass) {
    Graph g;
    BuildRichGraph(g);
    std::set<std::string> classes;
    for (Node* node : g.editor.nodes) classes.insert(dynamic_cast<Editor::NeroxNode*>(node)->ClassName());
    EXPECT_EQ(classes.size(), 24u);
}

TEST(ProgramGraphIo, DeserializeNodeOfEachClassEqualsWhatWasSerialized) {
    Graph g;
    BuildRichGraph(g);
    for (Node* node : g.editor.nodes) {
        json const saved = node->Serialize();
        Node* back = g.editor.DeserializeNode(saved);
        ASSERT_NE(back, nullptr) << saved.dump();
        EXPECT_EQ(typeid(*back), typeid(*node)) << saved.dump();
        EXPECT_EQ(back->Serialize(), saved);
        EXPECT_EQ(back->hasOutput, node->hasOutput) << saved.dump();
        EXPECT_EQ(back->id, node->id);
        delete back;
    }
    EXPECT_TRUE(g.editor.warnings.empty());
}

TEST(ProgramGraphIo, SerializeAddsClassAndFieldKeys) {
    Editor::InputNode input;
    input.index = 4;
    json const j = input.Serialize();
    for (char const* key : {"id", "title", "pos", "size", "inputs", "class", "comment", "inputDefaults", "inputTypes",
                            "type", "index", "channel", "alias"})
        EXPECT_TRUE(j.contains(key)) << key;
    EXPECT_EQ(j["class"], "InputNode");
    EXPECT_EQ(j["title"], "Input");

    Editor::PrintNode print;
    json const p = print.Serialize();
    EXPECT_EQ(p["inputTypes"], (json{{"0", 1}}));
    EXPECT_EQ(p["inputDefaults"], json::array({""}));
}

TEST(ProgramGraphIo, ProgramTextRoundTripsToTheSameText) {
    Graph g("plant-control.main.nc");
    BuildRichGraph(g);
    std::string const text = g.Text();

    Editor other;
    other.programName = "plant-control.main.nc";
    std::string error;
    ASSERT_TRUE(other.Load(text, &error)) << error;
    EXPECT_TRUE(other.warnings.empty());
    ASSERT_EQ(other.nodes.size(), g.editor.nodes.size());
    for (size_t i = 0; i < other.nodes.size(); ++i) EXPECT_EQ(other.nodes[i]->id, g.editor.nodes[i]->id);
    other.Serialize(false);
    EXPECT_EQ(other.GetCode(), text);
}

TEST(ProgramGraphIo, BareGraphJsonLoadsToo) {
    Graph g;
    BuildRichGraph(g);
    std::string const text = g.Text();
    json graph;
    graph["nodes"] = json::array();
    for (Node* node : g.editor.nodes) graph["nodes"].push_back(node->Serialize());

    Editor other;
    other.programName = g.editor.programName;
    ASSERT_TRUE(other.Load(graph.dump(2)));
    other.Serialize(false);
    EXPECT_EQ(other.GetCode(), text);

    Editor third;
    third.programName = g.editor.programName;
    ASSERT_TRUE(third.LoadGraph(graph));
    third.Serialize(false);
    EXPECT_EQ(third.GetCode(), text);
}

TEST(ProgramGraphIo, NodesLineMayEndWithCarriageReturn) {
    Editor e;
    EXPECT_TRUE(e.Load("#NODES {\"nodes\":[]}\r\nupdate\n"));
    EXPECT_TRUE(e.nodes.empty());
}

TEST(ProgramGraphIo, LeadingBlanksAndByteOrderMarkAreSkipped) {
    Graph g;
    g.Add<Editor::TimeNode>();
    std::string const text = g.Text();
    Editor e;
    ASSERT_TRUE(e.Load("\xEF\xBB\xBF\n  " + text));
    EXPECT_EQ(e.nodes.size(), 1u);
    ASSERT_TRUE(e.Load("\n\t{\"nodes\": []}\n"));
    EXPECT_TRUE(e.nodes.empty());
}

TEST(ProgramGraphIo, LoadReplacesTheGraphClearsHistoryAndMarksChanged) {
    Graph g;
    g.Add<Editor::TimeNode>();
    g.editor.Serialize(true);
    ASSERT_EQ(g.editor.undoHistory.size(), 1u);
    ASSERT_TRUE(g.editor.Load("{\"nodes\":[]}"));
    EXPECT_TRUE(g.editor.nodes.empty());
    EXPECT_TRUE(g.editor.undoHistory.empty());
    EXPECT_EQ(g.editor.undoPosition, 0u);
    EXPECT_TRUE(g.editor.changed);
}

// --- bad input ------------------------------------------------------------------------------

json TimeJson() {
    Editor::TimeNode time;
    return time.Serialize();
}

TEST(ProgramGraphIoErrors, UnknownClassIsSkippedWithAWarning) {
    json bogus = TimeJson();
    bogus["class"] = "BogusNode";
    bogus["title"] = "Bogus";
    json graph{{"nodes", json::array({bogus, TimeJson()})}};
    Editor e;
    testing::internal::CaptureStderr();
    ASSERT_TRUE(e.Load(graph.dump()));
    std::string const err = testing::internal::GetCapturedStderr();
    ASSERT_EQ(e.nodes.size(), 1u);
    EXPECT_NE(dynamic_cast<Editor::TimeNode*>(e.nodes[0]), nullptr);
    ASSERT_EQ(e.warnings.size(), 1u);
    EXPECT_NE(e.warnings[0].find("unknown class \"BogusNode\""), std::string::npos) << e.warnings[0];
    EXPECT_NE(err.find("BogusNode"), std::string::npos) << err;
}

TEST(ProgramGraphIoErrors, MalformedNodesAreSkippedEachWithAWarning) {
    Editor::InputNode input;
    json missing = input.Serialize();
    missing.erase("index");
    json badType = input.Serialize();
    badType["type"] = 5;
    json wrongKind = input.Serialize();
    wrongKind["alias"] = 3;
    json noClass = TimeJson();
    noClass.erase("class");
    json badId = TimeJson();
    badId["id"] = "xyz";
    json badTypeKey = TimeJson();
    badTypeKey["inputTypes"] = {{"first", 1}};
    json stringValue = TimeJson();
    stringValue["class"] = "ConstNumberNode";
    stringValue["name"] = "n";
    stringValue["value"] = "1";
    json const good = TimeJson();
    json duplicate = good;
    json graph{{"nodes", json::array({missing, badType, wrongKind, noClass, badId, badTypeKey, stringValue, 42,
                                      good, duplicate})}};
    Editor e;
    testing::internal::CaptureStderr();
    ASSERT_TRUE(e.Load("#NODES " + graph.dump() + "\n"));
    testing::internal::GetCapturedStderr();
    ASSERT_EQ(e.nodes.size(), 1u);
    EXPECT_EQ(e.warnings.size(), 9u);
    EXPECT_NE(e.warnings[0].find("InputNode"), std::string::npos) << e.warnings[0];
    EXPECT_NE(e.warnings.back().find("repeats"), std::string::npos) << e.warnings.back();
    e.Serialize(false); // what is left generates
}

TEST(ProgramGraphIoErrors, CycleInAFileIsCutOnLoad) {
    Graph g;
    auto* a = g.Add<Editor::ExpressionNode>();
    auto* b = g.Add<Editor::ExpressionNode>();
    auto* self = g.Add<Editor::MathNode>("ABSOLUTE");
    Graph::Link(a, b, 0);
    Graph::Link(b, a, 0);
    Graph::Link(self, self, 0);
    auto* out = g.Output(0);
    Graph::Link(b, out, 0);
    json graph{{"nodes", json::array()}};
    for (Node* node : g.editor.nodes) graph["nodes"].push_back(node->Serialize());

    Editor e;
    e.programName = "x";
    testing::internal::CaptureStderr();
    ASSERT_TRUE(e.Load(graph.dump()));
    testing::internal::GetCapturedStderr();
    ASSERT_EQ(e.warnings.size(), 2u);
    for (auto const& warning : e.warnings) EXPECT_NE(warning.find("cycle"), std::string::npos) << warning;
    for (Node* node : e.nodes)
        for (size_t i = 0; i < node->inputs.size(); ++i) {
            Node const* source = e.GetNode(node->inputs[i]);
            EXPECT_FALSE(source != nullptr && e.NodeDependsOn(source, node));
        }
    EXPECT_FALSE(e.nodes[2]->inputs[0].IsSet());
    e.Serialize(false);
    EXPECT_NE(e.GetCode().find("output_number(0, 0, $_expr"), std::string::npos);
}

TEST(ProgramGraphIoErrors, UnreadableTextsAreRefusedAndTheGraphKept) {
    Graph g;
    auto* time = g.Add<Editor::TimeNode>();
    struct Case {
        char const* text;
        char const* error;
    };
    for (Case const c : {Case{"", "empty"}, Case{" \n\t", "empty"}, Case{"update\n\tprint(1)", "no graph found"},
                         Case{"#NODES {bad", "cannot read the graph on the \"#NODES \" line"},
                         Case{"#NODES [1, 2]", "not a JSON object"}, Case{"#NODES {\"x\": 1}", "no \"nodes\" array"},
                         Case{"{\"nodes\": 3}", "no \"nodes\" array"}, Case{"{\"nodes\": [", "cannot read the graph JSON"},
                         Case{"#NODES\n{}", "no graph found"}}) {
        std::string error;
        EXPECT_FALSE(g.editor.Load(c.text, &error)) << c.text;
        EXPECT_NE(error.find(c.error), std::string::npos) << c.text << " -> " << error;
        ASSERT_EQ(g.editor.nodes.size(), 1u);
        EXPECT_EQ(g.editor.nodes[0], time);
    }
    EXPECT_FALSE(g.editor.Load("nothing")); // no error pointer is fine
}

TEST(ProgramGraphIoErrors, NodeWithoutIdGetsANewOne) {
    json node = TimeJson();
    node["id"] = "";
    Editor e;
    testing::internal::CaptureStderr();
    ASSERT_TRUE(e.Load(json{{"nodes", {node}}}.dump()));
    testing::internal::GetCapturedStderr();
    ASSERT_EQ(e.nodes.size(), 1u);
    EXPECT_TRUE(e.nodes[0]->id.IsSet());
    EXPECT_EQ(e.warnings.size(), 1u);
}

TEST(ProgramGraphIoErrors, DeserializeNodeOfANonObjectIsNull) {
    Editor e;
    testing::internal::CaptureStderr();
    EXPECT_EQ(e.DeserializeNode(json::array()), nullptr);
    EXPECT_EQ(e.DeserializeNode(json("InputNode")), nullptr);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(e.warnings.size(), 2u);
}

// --- factories ------------------------------------------------------------------------------

TEST(ProgramNodeFactory, EveryMenuTitleMakesItsClass) {
    Editor e;
    for (Editor::CatalogEntry const& entry : Editor::Catalog()) {
        Node* node = e.CreateNode(entry.title, ImVec2(5, 6), {});
        ASSERT_NE(node, nullptr) << entry.title;
        auto* nerox = dynamic_cast<Editor::NeroxNode*>(node);
        ASSERT_NE(nerox, nullptr);
        EXPECT_STREQ(nerox->ClassName(), entry.className) << entry.title;
        EXPECT_EQ(node->title, entry.title);
        EXPECT_EQ(node->pos.x, 5.0f);
        EXPECT_EQ(nerox->inputDefaults.size(), node->inputs.size()) << entry.title;
        EXPECT_FALSE(node->modified);
        for (UniqueId const& input : node->inputs) EXPECT_FALSE(input.IsSet());
        delete node;
    }
}

TEST(ProgramNodeFactory, ClassNamesAreTitlesToo) {
    Editor e;
    std::set<std::string> seen;
    for (char const* name : {"InputNode", "OutputNode", "ConstNumberNode", "ConstTextNode", "VarNumberNode",
                             "VarTextNode", "DelayNode", "BlinkerNode", "CounterNode", "SmoothNode", "ExpressionNode",
                             "StatementNode", "ExecuteNode", "ConditionalNode", "SwitchNode", "PulseNode",
                             "PulseToggleNode", "BasicNumberNode", "TimeNode", "PrintNode", "TextNode", "MathNode",
                             "PIDControllerNode", "IncludeNode"}) {
        Node* node = e.CreateNode(name, ImVec2(0, 0), {});
        ASSERT_NE(node, nullptr) << name;
        EXPECT_STREQ(dynamic_cast<Editor::NeroxNode*>(node)->ClassName(), name);
        seen.insert(name);
        delete node;
    }
    Node* math = e.CreateNode("MathNode", ImVec2(0, 0), {});
    EXPECT_EQ(math->title, "ADD");
    delete math;
    EXPECT_EQ(e.CreateNode("New Node", ImVec2(0, 0), {}), nullptr);
    EXPECT_EQ(e.CreateNode("", ImVec2(0, 0), {}), nullptr);
}

TEST(ProgramNodeFactory, InputsAndDefaultsOnCreation) {
    Editor e;
    struct Case {
        char const* title;
        std::vector<std::string> defaults;
        std::map<int32_t, int32_t> types;
        bool output;
    };
    std::vector<Case> const cases{
        {"Input", {}, {}, true},
        {"Output", {""}, {}, false},
        {"Print", {""}, {{0, 1}}, false},
        {"Constant Number", {}, {}, true},
        {"Number Variable", {"0", "", ""}, {}, true},
        {"Text Variable", {"", "", ""}, {{0, 1}}, true},
        {"Time", {}, {}, true},
        {"Switch", {"0", "", ""}, {}, true},
        {"Pulse", {"", ""}, {}, true},
        {"Delay", {"1", "", ""}, {}, true},
        {"Blinker", {"1"}, {}, true},
        {"Counter", {"1", "0", "", "", ""}, {}, true},
        {"Smooth", {"0", "1", ""}, {}, true},
        {"Expression", {"", ""}, {}, true},
        {"PID Controller", {"0", "0", "1", "0", "0", "", "", ""}, {}, true},
        {"Text", {""}, {{0, 1}}, true},
        {"Conditional", {"", "", ""}, {{1, 2}, {2, 2}}, true},
        {"Statement", {""}, {}, true},
        {"Execute", {""}, {{0, 2}}, false},
        {"Include", {}, {}, false},
        {"DIVIDE", {"", "1"}, {}, true},
        {"LERP", {"", "1", "0.5"}, {}, true},
        {"SQRT", {""}, {}, true},
    };
    for (Case const& c : cases) {
        auto* node = dynamic_cast<Editor::NeroxNode*>(e.CreateNode(c.title, ImVec2(0, 0), {}));
        ASSERT_NE(node, nullptr) << c.title;
        EXPECT_EQ(node->inputDefaults, c.defaults) << c.title;
        EXPECT_EQ(node->inputs.size(), c.defaults.size()) << c.title;
        std::map<int32_t, int32_t> const types(node->inputTypes.begin(), node->inputTypes.end());
        EXPECT_EQ(types, c.types) << c.title;
        EXPECT_EQ(node->hasOutput, c.output) << c.title;
        delete node;
    }
}

TEST(ProgramNodeFactory, GivenInputsLinkTheFirstInputs) {
    Editor e;
    UniqueId const a = UniqueId::Generate("NODE");
    UniqueId const b = UniqueId::Generate("NODE");
    Node* delay = e.CreateNode("Delay", ImVec2(0, 0), {a});
    ASSERT_EQ(delay->inputs.size(), 3u);
    EXPECT_EQ(delay->inputs[0], a);
    delete delay;
    Node* sqrt = e.CreateNode("SQRT", ImVec2(0, 0), {a, b});
    ASSERT_EQ(sqrt->inputs.size(), 1u);
    EXPECT_EQ(sqrt->inputs[0], a);
    delete sqrt;
    auto* print = dynamic_cast<Editor::PrintNode*>(e.CreateNode("Print", ImVec2(0, 0), {a, b, UniqueId()}));
    ASSERT_EQ(print->inputs.size(), 3u);
    EXPECT_EQ(print->inputs[1], b);
    EXPECT_EQ(print->inputDefaults.size(), 3u);
    EXPECT_EQ(print->InputType(2), 1);
    EXPECT_FALSE(print->modified);
    delete print;
}

TEST(ProgramNodeFactory, CatalogGroupsAreContiguousAndTitlesUnique) {
    std::set<std::string> titles, groups;
    std::string last;
    int mathCount = 0;
    for (Editor::CatalogEntry const& entry : Editor::Catalog()) {
        EXPECT_TRUE(titles.insert(entry.title).second) << entry.title;
        if (entry.group != last) {
            EXPECT_TRUE(groups.insert(entry.group).second) << entry.group << " is split";
            last = entry.group;
        }
        if (std::string(entry.className) == "MathNode") ++mathCount;
    }
    EXPECT_EQ(groups, (std::set<std::string>{"Inputs/Outputs", "Values", "Logic", "Timing", "Math", "Text", "Control"}));
    EXPECT_EQ(mathCount, 32);
    for (char const* operation : Editor::MathOperations()) EXPECT_TRUE(titles.count(operation)) << operation;
}

TEST(ProgramNodeFactory, SearchMatchesNamesCaseInsensitively) {
    EXPECT_TRUE(Editor::MatchesFilter("Pulse Toggle", "toggle"));
    EXPECT_TRUE(Editor::MatchesFilter("Smooth", "MOO"));
    EXPECT_TRUE(Editor::MatchesFilter("Delay", ""));
    EXPECT_TRUE(Editor::MatchesFilter("ADD", "dd"));
    EXPECT_FALSE(Editor::MatchesFilter("Delay", "delays"));
    EXPECT_FALSE(Editor::MatchesFilter("Input", "xyz"));
}

// --- nodes ----------------------------------------------------------------------------------

TEST(ProgramNodes, InputCountKeepsDefaultsAndTypesInStep) {
    Editor::TextNode text;
    text.inputDefaults[0] = "keep";
    text.SetInputCount(3);
    EXPECT_EQ(text.inputs.size(), 3u);
    EXPECT_EQ(text.inputDefaults, (std::vector<std::string>{"keep", "", ""}));
    EXPECT_EQ(text.InputType(2), 1);
    EXPECT_TRUE(text.modified);
    text.modified = false;
    text.inputTypes[7] = 1; // stray entry past the end
    text.SetInputCount(1);
    EXPECT_EQ(text.inputDefaults, (std::vector<std::string>{"keep"}));
    EXPECT_EQ(text.inputTypes.size(), 1u);
    EXPECT_TRUE(text.modified);
    text.modified = false;
    text.SetInputCount(1);
    EXPECT_FALSE(text.modified);
}

TEST(ProgramNodes, InputCountStaysWithinLimits) {
    Editor::OutputNode out;
    out.SetInputCount(0);
    EXPECT_EQ(out.inputs.size(), 1u);
    Editor::ExpressionNode expr;
    expr.SetInputCount(40);
    EXPECT_EQ(expr.inputs.size(), 26u);
    Editor::SwitchNode sw;
    sw.SetInputCount(0);
    EXPECT_EQ(sw.inputs.size(), 1u);
}

TEST(ProgramNodes, OnlyOutputsOfProgramNodesConnect) {
    Editor::DelayNode delay;
    Editor::TimeNode time;
    Editor::IncludeNode include;
    Node plain("Plain", ImVec2(0, 0), {});
    EXPECT_TRUE(delay.CanConnectInputToOutput(0, &time));
    EXPECT_FALSE(delay.CanConnectInputToOutput(0, &include));
    EXPECT_FALSE(delay.CanConnectInputToOutput(0, &plain));
    EXPECT_FALSE(delay.CanConnectInputToOutput(3, &time));
}

TEST(ProgramNodes, TypeTablesAndPalette) {
    EXPECT_EQ(Editor::TYPES[0], "number");
    EXPECT_EQ(Editor::TYPES[1], "text");
    EXPECT_EQ(Editor::DEFAULT_TYPES_VAL[0], "0");
    EXPECT_EQ(Editor::DEFAULT_TYPES_VAL[1], "\"\"");
    auto const* palette = nce::GetNeroxPalette();
    ASSERT_NE(palette, nullptr);
    EXPECT_EQ(palette, nce::GetNeroxPalette());
    EXPECT_EQ((*palette)[0], 0xe6e1dcffu);
    EXPECT_EQ((*palette)[7], 0x72c56bffu);
    EXPECT_EQ((*palette)[12], 0x00000040u);
    EXPECT_EQ((*palette)[15], 0xff3000f0u);
    EXPECT_EQ((*palette)[21], 0xa0a0a040u);
    Editor e;
    EXPECT_EQ(e.code.GetPalette(), *palette);
    EXPECT_TRUE(e.code.IsReadOnly());
}

// --- Compile --------------------------------------------------------------------------------

TEST(ProgramCompile, GivesTheSameTextAsTheEditor) {
    Graph g("door.main.nc");
    BuildRichGraph(g);
    std::string const text = g.Text();
    nce::CompileResult const result = nce::Compile(text, "door.main.nc");
    EXPECT_TRUE(result.ok) << result.error;
    EXPECT_EQ(result.code, text);
    EXPECT_TRUE(result.warnings.empty());
    EXPECT_TRUE(result.error.empty());
}

TEST(ProgramCompile, InvalidProgramName) {
    testing::internal::CaptureStderr();
    nce::CompileResult const result = nce::Compile("{\"nodes\":[]}", "my prog");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.error, "Invalid program name: my prog");
    EXPECT_TRUE(result.code.empty());
    EXPECT_EQ(nce::Compile("{\"nodes\":[]}", ".main.nc").error, "Invalid program name: .main.nc");
}

TEST(ProgramCompile, UnreadableInputIsAnErrorNotACrash) {
    nce::CompileResult const result = nce::Compile("#NODES {\"nodes\": [}", "p");
    EXPECT_FALSE(result.ok);
    EXPECT_NE(result.error.find("#NODES"), std::string::npos) << result.error;
    EXPECT_FALSE(nce::Compile("\x01\x02garbage", "p").ok);
}

TEST(ProgramCompile, WarningsComeBackWithTheCode) {
    json graph{{"nodes", json::array({json{{"class", "Nope"}}})}};
    testing::internal::CaptureStderr();
    nce::CompileResult const result = nce::Compile(graph.dump(), "p");
    testing::internal::GetCapturedStderr();
    EXPECT_TRUE(result.ok);
    EXPECT_EQ(result.code, "#NODES {\"nodes\":[]}\n");
    EXPECT_EQ(result.warnings.size(), 1u);
}

} // namespace
