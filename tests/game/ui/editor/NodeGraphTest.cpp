// The node's save format and the editor's graph operations, without drawing.
#include "EditorHarness.hpp"

namespace nodetest {
namespace {

TEST(NodeSaveFormat, RoundTripKeepsSavedFieldsAndResetsTheRest) {
    UniqueId const source = UniqueId::Generate("NODE");
    Node node("Mixer", ImVec2(12.5f, -3.0f), {source, UniqueId()});
    EXPECT_EQ(node.id.Tag(), "NODE");
    EXPECT_NE(node.id, Node("Mixer", ImVec2(), {}).id);
    node.size = ImVec2(80.0f, 90.0f);
    node.selected = node.modified = true;
    node.resizable = false;
    node.draggingInput = 1;
    nlohmann::json const json = node.Serialize();
    EXPECT_EQ(json, (nlohmann::json{{"id", static_cast<std::string>(node.id)},
                                    {"title", "Mixer"},
                                    {"pos", {{"x", 12.5}, {"y", -3.0}}},
                                    {"size", {{"x", 80.0}, {"y", 90.0}}},
                                    {"inputs", {static_cast<std::string>(source), ""}}}));
    Node read(nlohmann::json::parse(json.dump()));
    EXPECT_TRUE(read == node);
    EXPECT_EQ(read.Serialize(), json);
    EXPECT_FALSE(read.selected || read.modified) << "flags are not saved";
    EXPECT_TRUE(read.resizable);
    EXPECT_EQ(read.draggingInput, -1);
}

TEST(NodeSaveFormat, MissingKeysAndWrongTypesRaiseTheJsonLibrarysErrors) {
    nlohmann::json const json = Node("Gain", ImVec2(1.0f, 2.0f), {UniqueId()}).Serialize();
    nlohmann::json const erase(nlohmann::json::value_t::discarded);
    struct { char const* path; nlohmann::json value; } const cases[] = { // `erase` removes the key
        {"/id", erase}, {"/title", erase}, {"/pos", erase}, {"/size", erase}, {"/inputs", erase},
        {"/pos/y", erase}, {"/size/y", erase}, {"/title", 5}, {"/pos/x", "left"},
        {"/size/y", true}, // the library alone would read it as 1
        {"/inputs", {{"a", ""}}}, {"/inputs", {1}},
    };
    for (auto const& c : cases) {
        nlohmann::json broken = json;
        nlohmann::json::json_pointer const at(c.path);
        if (c.value.is_discarded()) {
            broken[at.parent_pointer()].erase(at.back());
            EXPECT_THROW(Node{broken}, nlohmann::json::out_of_range) << c.path;
        } else {
            broken[at] = c.value;
            EXPECT_THROW(Node{broken}, nlohmann::json::type_error) << c.path << " " << c.value;
        }
    }
    EXPECT_THROW(Node{nlohmann::json::array()}, nlohmann::json::exception);
}

TEST(NodeDefaults, MinimumSizeFollowsInputsAndTheResizeCorner) {
    struct { size_t inputs; bool resizable; float height; } const cases[] = {{0, true, 55}, {3, true, 95}, {3, false, 85}, {0, false, 45}};
    for (auto const& c : cases) {
        Node node("N", ImVec2(), std::vector<UniqueId>(c.inputs));
        node.resizable = c.resizable;
        EXPECT_FLOAT_EQ(node.GetMinimumWidth(), 35.0f);
        EXPECT_FLOAT_EQ(node.GetMinimumHeight(), c.height) << c.inputs << c.resizable;
    }
}

using NodeGraph = EditorTest;

TEST_F(NodeGraph, GetNodeFindsByIdAndCasts) {
    Node* plain = new Node("Plain", ImVec2(), {});
    editor.nodes.push_back(plain);
    EXPECT_EQ(editor.GetNode<TestNode>(a->id), a);
    EXPECT_EQ(editor.GetNode(plain->id), plain);
    EXPECT_EQ(editor.GetNode<TestNode>(plain->id), nullptr) << "no TestNode";
    EXPECT_EQ(editor.GetNode(UniqueId()), nullptr);
    EXPECT_EQ(editor.GetNode(UniqueId(a->id.first, 0)), nullptr) << "half zero is the null id";
    EXPECT_EQ(editor.GetNode(UniqueId::Generate("NODE")), nullptr);
}

TEST_F(NodeGraph, DependenciesAndLinksThatWouldCloseACycle) {
    Reset("--a-b-");
    c->inputs[1] = UniqueId::Generate("NODE"); // unknown: not connected
    TestNode* d = Add("D", ImVec2());
    EXPECT_TRUE(editor.NodeDependsOn(a, a));
    EXPECT_TRUE(editor.NodeDependsOn(c, a));
    EXPECT_FALSE(editor.NodeDependsOn(a, c));
    EXPECT_FALSE(editor.NodeDependsOn(c, d));
    EXPECT_FALSE(editor.NodeDependsOn(nullptr, a) || editor.NodeDependsOn(a, nullptr));
    EXPECT_TRUE(editor.CanConnectInputToOutput(d, 0, c)) << "a source input whose node is missing is skipped";
    EXPECT_TRUE(editor.CanConnectInputToOutput(c, 1, a)) << "a second path is no cycle";
    EXPECT_FALSE(editor.CanConnectInputToOutput(a, 0, a)) << "own output";
    EXPECT_FALSE(editor.CanConnectInputToOutput(a, 1, c)) << "three-node cycle";
    EXPECT_FALSE(editor.CanConnectInputToOutput(nullptr, 0, a) || editor.CanConnectInputToOutput(b, 0, nullptr));
    d->acceptsLinks = false;
    EXPECT_FALSE(editor.CanConnectInputToOutput(d, 0, c)) << "the input node refuses";
    // A cycle read from a file does not make the walk loop.
    a->inputs[0] = c->id;
    EXPECT_TRUE(editor.NodeDependsOn(a, c));
    EXPECT_FALSE(editor.NodeDependsOn(a, d));
}

TEST_F(NodeGraph, DestroyAndClearNodes) {
    Reset("--a-ba");
    int const before = TestNode::live;
    editor.readOnly = true;
    editor.DestroyNode(a);
    EXPECT_EQ(State(), "A:-- B:0- C:10") << "read-only destroys nothing";
    editor.readOnly = false;
    editor.DestroyNode(a);
    editor.nodes.erase(editor.nodes.begin());
    EXPECT_EQ(State(), "B*:-- C*:0-");
    EXPECT_TRUE(editor.changed);
    editor.ClearAllNodes();
    EXPECT_TRUE(editor.nodes.empty());
    EXPECT_EQ(TestNode::live, before - 3);
    TestNode* kept = Add("K", ImVec2());
    editor.readOnly = true;
    editor.ClearAllNodes();
    EXPECT_TRUE(editor.nodes.empty()) << "read-only empties the list but destroys nothing";
    EXPECT_EQ(TestNode::live, before - 2);
    delete kept;
    {
        TestEditor scoped;
        scoped.nodes.push_back(scoped.CreateNode("A", ImVec2(), {}));
        EXPECT_EQ(TestNode::live, before - 2);
    }
    EXPECT_EQ(TestNode::live, before - 3) << "the editor deletes the nodes it holds";
}

TEST_F(NodeGraph, PlainEditorMakesPlainNodes) {
    NodeEditor plain;
    plain.nodes.push_back(plain.CreateNode("T", ImVec2(3.0f, 4.0f), {UniqueId(), UniqueId()}));
    plain.nodes.push_back(plain.DeserializeNode(plain.nodes[0]->Serialize()));
    EXPECT_EQ(plain.nodes[1]->Serialize(), plain.nodes[0]->Serialize());
}

/// Zoom steps by an eighth, snaps near 1 and stays between 0.05 and 2 over the UI scaling.
struct ZoomCase { float from, steps, to, uiScale = 1.0f; };

TEST_F(NodeGraph, ZoomStepsAboutAFixedPoint) {
    ZoomCase const cases[] = {
        {1.0f, 1.0f, 1.125f}, {1.0f, -1.0f, 0.875f}, {0.875f, -1.0f, 0.765625f},
        {1.125f, -1.0f, 1.0f}, {0.85f, 1.0f, 1.0f}, {1.2f, -1.0f, 1.0f}, // 0.984, 0.956 and 1.05 snap to 1
        {1.9f, 1.0f, 2.0f}, {2.0f, 1.0f, 2.0f}, {0.055f, -1.0f, 0.05f}, {0.95f, 1.0f, 1.0f, 2.0f},
    };
    for (ZoomCase const& z : cases) {
        ImGui::GetIO().FontGlobalScale = 0.5f * z.uiScale;
        editor.zoom = z.from;
        editor.pan = ImVec2(30.0f, -20.0f);
        ImVec2 const at(200.0f, 100.0f);
        ImVec2 const before = at / editor.Scale() - editor.pan;
        editor.Zoom(at, z.steps);
        EXPECT_FLOAT_EQ(editor.zoom, z.to) << z.from << " by " << z.steps;
        ExpectNear(at / editor.Scale() - editor.pan, before, "the point stays");
    }
    editor.pan = ImVec2(0.0f, 0.0f);
    editor.Drag(ImVec2(50.0f, -30.0f), 1); // at scale 2
    ExpectNear(editor.pan, ImVec2(25.0f, -15.0f), "a pan is pixels over the scale");
}

} // namespace
} // namespace nodetest
