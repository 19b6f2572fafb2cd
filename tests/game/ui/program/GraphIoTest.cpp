// Loading program graphs: each class read back as its own class, bare graph JSON, bad
// files reported instead of crashing, cycles cut, the node factories, and Compile.
#include "ProgramGraph.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <typeinfo>

using namespace programtest;

namespace {

TEST(ProgramGraphIo, RichExampleHasEveryClassAndEachLoadsAsMadeByItsFactory) {
    Editor e;
    LoadRich(e);
    std::set<std::string> classes;
    for (Node* node : e.nodes) {
        std::string const name = dynamic_cast<Editor::NeroxNode*>(node)->ClassName();
        classes.insert(name);
        std::unique_ptr<Node> const fresh(e.CreateNode(name, ImVec2(0, 0), {}));
        ASSERT_NE(fresh, nullptr) << name;
        EXPECT_EQ(typeid(*fresh), typeid(*node)) << name;
    }
    EXPECT_EQ(classes.size(), 24u);
    EXPECT_TRUE(e.code.IsReadOnly()); // the code pane only shows what the graph generates
    EXPECT_EQ(e.code.GetPalette(), *nce::GetNeroxPalette());
}

TEST(ProgramGraphIo, BareGraphJsonLoadsToo) {
    std::string const text = Example("rich");
    json const graph = json::parse(text.substr(7, text.find('\n') - 7));
    Editor a, b;
    a.programName = b.programName = kRichProgram;
    ASSERT_TRUE(a.Load(graph.dump(2)));
    ASSERT_TRUE(b.LoadGraph(graph));
    for (Editor* e : {&a, &b}) {
        e->Serialize(false);
        EXPECT_EQ(e->GetCode(), text);
    }
}

// A load replaces the graph, clears the undo history and marks the editor changed.
TEST(ProgramGraphIo, ByteOrderMarkLeadingBlanksAndCarriageReturnAreAccepted) {
    std::string const graph = "{\"nodes\":[" + Editor::TimeNode().Serialize().dump() + "]}";
    Graph g;
    for (std::string const& text :
         {"#NODES " + graph + "\r\nupdate\n", "\xEF\xBB\xBF\n  #NODES " + graph + "\n", "\n\t" + graph + "\n"}) {
        g.Add<Editor::DelayNode>();
        g.editor.Serialize(true);
        ASSERT_TRUE(g.editor.Load(text)) << text;
        ASSERT_EQ(g.editor.nodes.size(), 1u) << text;
        EXPECT_NE(dynamic_cast<Editor::TimeNode*>(g.editor.nodes[0]), nullptr);
        EXPECT_TRUE(g.editor.undoHistory.empty());
        EXPECT_EQ(g.editor.undoPosition, 0u);
        EXPECT_TRUE(g.editor.changed);
        g.editor.changed = false;
    }
}

// --- bad input ------------------------------------------------------------------------------

// Each bad node of the file is skipped with a warning of its own, also printed; the good ones load.
TEST(ProgramGraphIoErrors, BadNodesAreSkippedEachWithAWarning) {
    Editor e;
    testing::internal::CaptureStderr();
    ASSERT_TRUE(e.Load(testsupport::ReadText(testsupport::DataFile("program/bad_nodes.json"))));
    std::string const err = testing::internal::GetCapturedStderr();
    std::string listing, printed;
    for (std::string const& warning : e.warnings) {
        listing += warning + "\n";
        printed += "NeroxCodeEditor: " + warning + "\n";
    }
    testsupport::ExpectGolden(listing, "program/bad_nodes_warnings.txt");
    EXPECT_EQ(err, printed);
    ASSERT_EQ(e.nodes.size(), 2u);
    EXPECT_TRUE(e.nodes[0]->id.IsSet());
    e.programName = "p";
    e.Serialize(false); // what is left generates
    EXPECT_EQ(e.GetCode().rfind("#NODES {\"nodes\":[{", 0), 0u);
    EXPECT_EQ(e.DeserializeNode(json::array()), nullptr);
}

TEST(ProgramGraphIoErrors, CycleInAFileIsCutOnLoad) {
    Graph g;
    auto* a = g.Add<Editor::ExpressionNode>();
    auto* b = g.Add<Editor::ExpressionNode>();
    auto* self = g.Add<Editor::MathNode>("ABSOLUTE");
    Graph::Link(a, b, 0);
    Graph::Link(b, a, 0);
    Graph::Link(self, self, 0);
    Graph::Link(b, g.Output(0), 0);
    json graph{{"nodes", json::array()}};
    for (Node* node : g.editor.nodes) graph["nodes"].push_back(node->Serialize());

    Editor e;
    e.programName = "x";
    e.printWarnings = false;
    ASSERT_TRUE(e.Load(graph.dump()));
    ASSERT_EQ(e.warnings.size(), 2u);
    EXPECT_EQ(e.warnings[0], "cut input 0 of node \"Expression\": the link closed a cycle");
    EXPECT_EQ(e.warnings[1], "cut input 0 of node \"ABSOLUTE\": the link closed a cycle");
    EXPECT_FALSE(e.nodes[2]->inputs[0].IsSet());
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
                         Case{"{\"nodes\": 3}", "no \"nodes\" array"},
                         Case{"{\"nodes\": [", "cannot read the graph JSON"}, Case{"#NODES\n{}", "no graph found"}}) {
        std::string error;
        EXPECT_FALSE(g.editor.Load(c.text, &error)) << c.text;
        EXPECT_NE(error.find(c.error), std::string::npos) << c.text << " -> " << error;
        ASSERT_EQ(g.editor.nodes.size(), 1u);
        EXPECT_EQ(g.editor.nodes[0], time);
    }
    EXPECT_FALSE(g.editor.Load("nothing")); // no error pointer is fine
}

// --- factories ------------------------------------------------------------------------------

// One line per menu entry: its group, whether it has an output, and the fresh node as saved.
TEST(ProgramNodeFactory, EveryMenuTitleMakesItsFreshNode) {
    Editor e;
    std::string listing;
    for (Editor::CatalogEntry const& entry : Editor::Catalog()) {
        std::unique_ptr<Node> const node(e.CreateNode(entry.title, ImVec2(5, 6), {}));
        ASSERT_NE(node, nullptr) << entry.title;
        EXPECT_FALSE(node->modified) << entry.title;
        json saved = node->Serialize();
        EXPECT_EQ(saved["class"], entry.className);
        saved.erase("id");
        listing += std::string(entry.group) + (node->hasOutput ? " | output | " : " | sink | ") + saved.dump() + "\n";
    }
    testsupport::ExpectGolden(listing, "program/catalog.txt");
    std::unique_ptr<Node> const math(e.CreateNode("MathNode", ImVec2(0, 0), {}));
    EXPECT_EQ(math->title, "ADD");
    EXPECT_EQ(e.CreateNode("New Node", ImVec2(0, 0), {}), nullptr);
    EXPECT_EQ(e.CreateNode("", ImVec2(0, 0), {}), nullptr);
}

TEST(ProgramNodeFactory, GivenInputsLinkTheFirstInputs) {
    Editor e;
    UniqueId const a = UniqueId::Generate("NODE"), b = UniqueId::Generate("NODE");
    std::unique_ptr<Node> const delay(e.CreateNode("Delay", ImVec2(0, 0), {a}));
    EXPECT_EQ(delay->inputs, (std::vector<UniqueId>{a, UniqueId(), UniqueId()}));
    std::unique_ptr<Node> const sqrt(e.CreateNode("SQRT", ImVec2(0, 0), {a, b}));
    EXPECT_EQ(sqrt->inputs, std::vector<UniqueId>{a});
    std::unique_ptr<Editor::PrintNode> const print(
        dynamic_cast<Editor::PrintNode*>(e.CreateNode("Print", ImVec2(0, 0), {a, b, UniqueId()})));
    EXPECT_EQ(print->inputs, (std::vector<UniqueId>{a, b, UniqueId()}));
    EXPECT_EQ(print->inputDefaults.size(), 3u);
    EXPECT_EQ(print->InputType(2), 1);
    EXPECT_FALSE(print->modified);
}

// --- Compile --------------------------------------------------------------------------------

TEST(ProgramCompile, RefusalsAreErrorsNotCrashes) {
    testing::internal::CaptureStderr();
    nce::CompileResult const result = nce::Compile("{\"nodes\":[]}", "my prog");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.error, "Invalid program name: my prog");
    EXPECT_TRUE(result.code.empty());
    EXPECT_EQ(nce::Compile("{\"nodes\":[]}", ".main.nc").error, "Invalid program name: .main.nc");
    nce::CompileResult const unreadable = nce::Compile("#NODES {\"nodes\": [}", "p");
    EXPECT_FALSE(unreadable.ok);
    EXPECT_NE(unreadable.error.find("#NODES"), std::string::npos) << unreadable.error;
    EXPECT_FALSE(nce::Compile("\x01\x02garbage", "p").ok);
}

TEST(ProgramCompile, WarningsComeBackWithTheCode) {
    testing::internal::CaptureStderr();
    nce::CompileResult const result = nce::Compile("{\"nodes\":[{\"class\":\"Nope\"}]}", "p");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(result.ok);
    EXPECT_EQ(result.code, "#NODES {\"nodes\":[]}\n");
    EXPECT_EQ(result.warnings, std::vector<std::string>{"skipped node without a title: unknown class \"Nope\""});
}

} // namespace
