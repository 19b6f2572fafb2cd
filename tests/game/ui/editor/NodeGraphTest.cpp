// The node's save format and the editor's graph operations, without drawing.
#include "EditorHarness.hpp"

#include <stdexcept>

namespace nodetest {
namespace {

// ---------------------------------------------------------------- Node

TEST(NodeSaveFormat, RoundTripKeepsSavedFieldsAndResetsTheRest) {
    UniqueId const source = UniqueId::Generate("NODE");
    Node node("Mixer", ImVec2(12.5f, -3.0f), {source, UniqueId()});
    node.size = ImVec2(80.0f, 90.0f);
    node.selected = true;
    node.modified = true;
    node.resizable = false;
    node.draggingInput = 1;

    nlohmann::json const json = node.Serialize();
    ASSERT_TRUE(json.is_object());
    EXPECT_EQ(json.at("id"), static_cast<std::string>(node.id));
    EXPECT_EQ(json.at("id").get<std::string>().size(), 28u);
    EXPECT_EQ(json.at("title"), "Mixer");
    EXPECT_FLOAT_EQ(json.at("pos").at("x").get<float>(), 12.5f);
    EXPECT_FLOAT_EQ(json.at("pos").at("y").get<float>(), -3.0f);
    EXPECT_FLOAT_EQ(json.at("size").at("x").get<float>(), 80.0f);
    EXPECT_FLOAT_EQ(json.at("size").at("y").get<float>(), 90.0f);
    ASSERT_TRUE(json.at("inputs").is_array());
    ASSERT_EQ(json.at("inputs").size(), 2u);
    EXPECT_EQ(json.at("inputs")[0], static_cast<std::string>(source));
    EXPECT_EQ(json.at("inputs")[1], ""); // the null id's text
    EXPECT_EQ(json.size(), 5u) << "flags and pins are not saved";

    Node const read(nlohmann::json::parse(json.dump()));
    EXPECT_EQ(read.id, node.id);
    EXPECT_TRUE(read == node);
    EXPECT_EQ(read.title, "Mixer");
    EXPECT_FLOAT_EQ(read.pos.x, 12.5f);
    EXPECT_FLOAT_EQ(read.pos.y, -3.0f);
    EXPECT_FLOAT_EQ(read.size.x, 80.0f);
    EXPECT_FLOAT_EQ(read.size.y, 90.0f);
    ASSERT_EQ(read.inputs.size(), 2u);
    EXPECT_EQ(read.inputs[0], source);
    EXPECT_FALSE(read.inputs[1].IsSet());
    EXPECT_TRUE(read.resizable);
    EXPECT_TRUE(read.movable);
    EXPECT_TRUE(read.hasOutput);
    EXPECT_FALSE(read.reserved);
    EXPECT_TRUE(read.visible);
    EXPECT_FALSE(read.modified);
    EXPECT_FALSE(read.selected);
    EXPECT_FALSE(read.hovered);
    EXPECT_EQ(read.draggingInput, -1);
    EXPECT_FALSE(read.draggingOutput);
    EXPECT_FALSE(read.disconnectOutput);
}

TEST(NodeSaveFormat, EveryKeyIsRequired) {
    Node node("Gain", ImVec2(1.0f, 2.0f), {UniqueId()});
    nlohmann::json const json = node.Serialize();
    for (char const* key : {"id", "title", "pos", "size", "inputs"}) {
        nlohmann::json broken = json;
        broken.erase(key);
        EXPECT_THROW(Node{broken}, nlohmann::json::out_of_range) << key;
    }
    for (char const* key : {"pos", "size"}) {
        nlohmann::json broken = json;
        broken[key].erase("y");
        EXPECT_THROW(Node{broken}, nlohmann::json::out_of_range) << key;
    }
}

TEST(NodeSaveFormat, WrongTypesRaiseTheJsonLibrarysError) {
    Node node("Gain", ImVec2(1.0f, 2.0f), {UniqueId()});
    nlohmann::json const json = node.Serialize();
    nlohmann::json broken = json;
    broken["title"] = 5;
    EXPECT_THROW(Node{broken}, nlohmann::json::type_error);
    broken = json;
    broken["pos"]["x"] = "left";
    EXPECT_THROW(Node{broken}, nlohmann::json::type_error);
    broken = json;
    broken["size"]["y"] = true; // the library alone would read it as 1
    EXPECT_THROW(Node{broken}, nlohmann::json::type_error);
    broken = json;
    broken["inputs"] = nlohmann::json::object({{"a", ""}});
    EXPECT_THROW(Node{broken}, nlohmann::json::type_error);
    broken = json;
    broken["inputs"] = {1};
    EXPECT_THROW(Node{broken}, nlohmann::json::type_error);
    EXPECT_THROW(Node{nlohmann::json::array()}, nlohmann::json::exception);
}

TEST(NodeDefaults, NewNodeStartsEmptyWithAFreshId) {
    Node a("A", ImVec2(5.0f, 6.0f), {});
    Node b("A", ImVec2(5.0f, 6.0f), {});
    EXPECT_TRUE(a.id.IsSet());
    EXPECT_EQ(a.id.Tag(), "NODE");
    EXPECT_NE(a.id, b.id);
    EXPECT_FALSE(a == b);
    EXPECT_FLOAT_EQ(a.size.x, 0.0f);
    EXPECT_FLOAT_EQ(a.size.y, 0.0f);
    EXPECT_EQ(a.draggingInput, -1);
    EXPECT_TRUE(a.visible);
    EXPECT_FALSE(a.selected);
}

TEST(NodeDefaults, MinimumSizeFollowsInputsAndTheResizeCorner) {
    Node none("N", ImVec2(), {});
    Node three("N", ImVec2(), {UniqueId(), UniqueId(), UniqueId()});
    EXPECT_FLOAT_EQ(none.GetMinimumWidth(), 35.0f);
    EXPECT_FLOAT_EQ(none.GetMinimumHeight(), 55.0f);
    EXPECT_FLOAT_EQ(three.GetMinimumHeight(), 95.0f);
    three.resizable = false;
    EXPECT_FLOAT_EQ(three.GetMinimumHeight(), 85.0f);
    none.resizable = false;
    EXPECT_FLOAT_EQ(none.GetMinimumHeight(), 45.0f);
}

// ---------------------------------------------------------------- graph operations

using NodeGraph = EditorTest;

TEST_F(NodeGraph, GetNodeFindsByIdAndCasts) {
    TestNode* a = Add("A", ImVec2());
    Node* plain = new Node("Plain", ImVec2(), {});
    editor.nodes.push_back(plain);
    EXPECT_EQ(editor.GetNode(a->id), a);
    EXPECT_EQ(editor.GetNode<TestNode>(a->id), a);
    EXPECT_EQ(editor.GetNode(plain->id), plain);
    EXPECT_EQ(editor.GetNode<TestNode>(plain->id), nullptr) << "no TestNode";
    EXPECT_EQ(editor.GetNode(UniqueId()), nullptr);
    EXPECT_EQ(editor.GetNode(UniqueId(a->id.first, 0)), nullptr) << "half zero is the null id";
    EXPECT_EQ(editor.GetNode(UniqueId::Generate("NODE")), nullptr);
}

TEST_F(NodeGraph, NodeDependsOnFollowsInputsAtAnyDepth) {
    TestNode* a = Add("A", ImVec2());
    TestNode* b = Add("B", ImVec2());
    TestNode* c = Add("C", ImVec2());
    TestNode* d = Add("D", ImVec2());
    b->inputs[1] = a->id;
    c->inputs[0] = b->id;
    c->inputs[1] = UniqueId::Generate("NODE"); // unknown: not connected
    EXPECT_TRUE(editor.NodeDependsOn(a, a));
    EXPECT_TRUE(editor.NodeDependsOn(b, a));
    EXPECT_TRUE(editor.NodeDependsOn(c, a));
    EXPECT_FALSE(editor.NodeDependsOn(a, c));
    EXPECT_FALSE(editor.NodeDependsOn(c, d));
    EXPECT_FALSE(editor.NodeDependsOn(nullptr, a));
    EXPECT_FALSE(editor.NodeDependsOn(a, nullptr));
    EXPECT_FALSE(editor.NodeDependsOn(nullptr, nullptr));
    // A cycle read from a file does not make the walk loop.
    a->inputs[0] = c->id;
    EXPECT_TRUE(editor.NodeDependsOn(a, c));
    EXPECT_FALSE(editor.NodeDependsOn(a, d));
}

TEST_F(NodeGraph, CanConnectInputToOutputRefusesCyclesAndAsksTheNode) {
    TestNode* a = Add("A", ImVec2());
    TestNode* b = Add("B", ImVec2());
    TestNode* c = Add("C", ImVec2());
    EXPECT_TRUE(editor.CanConnectInputToOutput(b, 0, a));
    EXPECT_FALSE(editor.CanConnectInputToOutput(nullptr, 0, a));
    EXPECT_FALSE(editor.CanConnectInputToOutput(b, 0, nullptr));
    EXPECT_FALSE(editor.CanConnectInputToOutput(a, 0, a)) << "own output";

    b->inputs[0] = a->id;
    c->inputs[0] = b->id;
    EXPECT_FALSE(editor.CanConnectInputToOutput(a, 1, b)) << "two-node cycle";
    EXPECT_FALSE(editor.CanConnectInputToOutput(a, 1, c)) << "three-node cycle";
    EXPECT_TRUE(editor.CanConnectInputToOutput(c, 1, a)) << "a second path is no cycle";

    // A source input whose node is missing is skipped.
    TestNode* d = Add("D", ImVec2());
    d->inputs[0] = UniqueId::Generate("NODE");
    EXPECT_TRUE(editor.CanConnectInputToOutput(a, 0, d));

    a->acceptsLinks = false;
    EXPECT_FALSE(editor.CanConnectInputToOutput(a, 0, d)) << "the input node refuses";
}

TEST_F(NodeGraph, DestroyNodeCutsItsLinksAndMarksFedNodes) {
    TestNode* a = Add("A", ImVec2());
    TestNode* b = Add("B", ImVec2());
    TestNode* c = Add("C", ImVec2());
    b->inputs[0] = a->id;
    c->inputs[1] = a->id;
    c->inputs[0] = b->id;
    editor.DestroyNode(a);
    editor.nodes.erase(editor.nodes.begin());
    EXPECT_TRUE(editor.changed);
    EXPECT_FALSE(b->inputs[0].IsSet());
    EXPECT_FALSE(c->inputs[1].IsSet());
    EXPECT_EQ(c->inputs[0], b->id);
    EXPECT_TRUE(b->modified);
    EXPECT_TRUE(c->modified);
}

TEST_F(NodeGraph, ReadOnlyDestroyDoesNothingAndClearAllStillEmptiesTheList) {
    TestNode* a = Add("A", ImVec2());
    TestNode* b = Add("B", ImVec2());
    b->inputs[0] = a->id;
    editor.readOnly = true;
    editor.DestroyNode(a);
    EXPECT_FALSE(editor.changed);
    EXPECT_EQ(b->inputs[0], a->id);
    EXPECT_FALSE(b->modified);

    editor.ClearAllNodes();
    EXPECT_TRUE(editor.nodes.empty());
    EXPECT_EQ(a->title, "A") << "the nodes survive";
    delete a;
    delete b;
}

TEST_F(NodeGraph, ClearAllNodesDestroysEveryNode) {
    int const before = TestNode::live;
    TestNode* a = Add("A", ImVec2());
    TestNode* b = Add("B", ImVec2());
    b->inputs[0] = a->id;
    Add("C", ImVec2())->inputs[1] = b->id;
    Add("D", ImVec2())->inputs[0] = a->id;
    EXPECT_EQ(TestNode::live, before + 4);
    editor.ClearAllNodes();
    EXPECT_TRUE(editor.nodes.empty());
    EXPECT_TRUE(editor.changed);
    EXPECT_EQ(TestNode::live, before);
}

TEST_F(NodeGraph, TheEditorDeletesTheNodesItStillHolds) {
    int const before = TestNode::live;
    {
        TestEditor scoped;
        scoped.nodes.push_back(scoped.CreateNode("A", ImVec2(), {}));
        scoped.nodes.push_back(scoped.CreateNode("B", ImVec2(), {}));
        EXPECT_EQ(TestNode::live, before + 2);
    }
    EXPECT_EQ(TestNode::live, before);
}

TEST_F(NodeGraph, CreateNodeMakesAPlainNode) {
    NodeEditor plain;
    Node* node = plain.CreateNode("T", ImVec2(3.0f, 4.0f), {UniqueId(), UniqueId()});
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->id.Tag(), "NODE");
    EXPECT_EQ(node->title, "T");
    EXPECT_EQ(node->inputs.size(), 2u);
    Node* copy = plain.DeserializeNode(node->Serialize());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->id, node->id);
    delete node;
    delete copy;
}

// ---------------------------------------------------------------- zoom and pan

using NodeZoom = EditorTest;

TEST_F(NodeZoom, StepsByAnEighthAndKeepsThePointFixed) {
    editor.pan = ImVec2(30.0f, -20.0f);
    ImVec2 const at(200.0f, 100.0f);
    ImVec2 const before = at / editor.Scale() - editor.pan;
    editor.Zoom(at, 1.0f);
    EXPECT_FLOAT_EQ(editor.zoom, 1.125f);
    ImVec2 const after = at / editor.Scale() - editor.pan;
    EXPECT_NEAR(after.x, before.x, 1e-3f);
    EXPECT_NEAR(after.y, before.y, 1e-3f);

    editor.Zoom(at, -1.0f);
    EXPECT_EQ(editor.zoom, 1.0f) << "0.984 snaps to 1";
    editor.Zoom(at, -1.0f);
    EXPECT_FLOAT_EQ(editor.zoom, 0.875f);
    editor.Zoom(at, -1.0f);
    EXPECT_FLOAT_EQ(editor.zoom, 0.875f * 0.875f);
    ImVec2 const later = at / editor.Scale() - editor.pan;
    EXPECT_NEAR(later.x, before.x, 1e-3f);
    EXPECT_NEAR(later.y, before.y, 1e-3f);
}

TEST_F(NodeZoom, SnapsNearOneAndClampsAtBothEnds) {
    editor.zoom = 0.85f; // one step up is 0.956
    editor.Zoom(ImVec2(), 1.0f);
    EXPECT_EQ(editor.zoom, 1.0f);
    editor.zoom = 1.2f; // one step down is 1.05
    editor.Zoom(ImVec2(), -1.0f);
    EXPECT_EQ(editor.zoom, 1.0f);

    editor.zoom = 1.9f;
    editor.Zoom(ImVec2(), 1.0f);
    EXPECT_FLOAT_EQ(editor.zoom, 2.0f) << "2 / UI scaling";
    editor.Zoom(ImVec2(), 1.0f);
    EXPECT_FLOAT_EQ(editor.zoom, 2.0f);

    editor.zoom = 0.055f;
    editor.Zoom(ImVec2(), -1.0f);
    EXPECT_FLOAT_EQ(editor.zoom, 0.05f);

    ImGui::GetIO().FontGlobalScale = 1.0f; // UI scaling 2
    editor.zoom = 0.95f;
    editor.Zoom(ImVec2(), 1.0f);
    EXPECT_FLOAT_EQ(editor.zoom, 1.0f) << "the most is 2 / 2";
    EXPECT_FLOAT_EQ(editor.Scale(), 2.0f);
}

TEST_F(NodeZoom, DragPansByPixelsOverScale) {
    editor.zoom = 2.0f;
    editor.Drag(ImVec2(50.0f, -30.0f), 1);
    EXPECT_FLOAT_EQ(editor.pan.x, 25.0f);
    EXPECT_FLOAT_EQ(editor.pan.y, -15.0f);
}

} // namespace
} // namespace nodetest
