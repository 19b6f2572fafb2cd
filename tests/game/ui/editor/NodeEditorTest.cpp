// The node editor: its gestures, links and key chords replayed from scripts under
// tests/data/ui/editor/, whose "=" and "@" lines hold the state the lines before them
// leave; frames that must allocate nothing; the save format and graph operations.
#include "game/ui/ImGuiFixture.hpp"

#include "game/graphics/ui/Node.hpp"
#include "game/graphics/ui/NodeEditor.hpp"
#include "support/CountedAllocations.hpp"

#define IMGUI_DEFINE_MATH_OPERATORS
#include <imgui_internal.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace nodetest {
namespace {

using game::UniqueId;
using game::graphics::ui::Node;
using game::graphics::ui::NodeEditor;

/// Where the canvas window sits on the 1280x720 display.
ImVec2 const kOrigin(40.0f, 30.0f);
ImVec2 const kSize(1000.0f, 600.0f);

/// A node that counts double clicks and its instances, and can refuse links or cloning.
class TestNode : public Node {
public:
    TestNode(std::string title, ImVec2 pos, std::vector<UniqueId> inputs) : Node(title, pos, inputs) { ++live; }
    explicit TestNode(nlohmann::json const& json) : Node(json), clonable(!json.value("solo", false)) { ++live; }
    ~TestNode() override { --live; }
    nlohmann::json Serialize() override {
        nlohmann::json json = Node::Serialize();
        json["solo"] = !clonable;
        return json;
    }
    bool CanClone() const override { return clonable; }
    bool CanConnectInputToOutput(int, Node const*) const override { return acceptsLinks; }
    bool CanConnectInput(int) const override { return inputsLinkable; }
    void OnDoubleClick() override { ++doubleClicks; }

    bool clonable = true, acceptsLinks = true, inputsLinkable = true;
    int doubleClicks = 0;
    static inline int live = 0;
};

class TestEditor : public NodeEditor {
public:
    Node* CreateNode(std::string const& title, ImVec2 pos, std::vector<UniqueId> inputs) override {
        return new TestNode(title, pos, std::move(inputs));
    }
    Node* DeserializeNode(nlohmann::json const& json) override { return new TestNode(json); }
};

void ExpectNear(ImVec2 actual, ImVec2 expected, char const* what) {
    EXPECT_NEAR(actual.x, expected.x, 1e-3f) << what;
    EXPECT_NEAR(actual.y, expected.y, 1e-3f) << what;
}

class EditorTest : public uitest::ImGuiTest {
protected:
    void SetUp() override {
        ImGuiTest::SetUp();
        Reset();
    }

    /// Nodes A at (100, 100), B at (300, 150) and C at (500, 300) with two inputs each and
    /// an empty clipboard; `links` names the source of each input in turn ('a' to 'c', '-'
    /// for none), `selected` the nodes selected, and `flags` sets r read-only, z zoom 2,
    /// f A fixed, b B refusing links, c C's inputs closed.
    void Reset(std::string const& links = "------", std::string const& selected = "", std::string const& flags = "") {
        auto has = [&](char flag) { return flags.find(flag) != std::string::npos; };
        target = &editor;
        editor.readOnly = false;
        editor.ClearAllNodes();
        editor.readOnly = has('r');
        editor.zoom = has('z') ? 2.0f : 1.0f;
        editor.pan = ImVec2(0.0f, 0.0f);
        NodeEditor::clipboard = nlohmann::json::array();
        nodes = {Add("A", ImVec2(100.0f, 100.0f)), Add("B", ImVec2(300.0f, 150.0f)), Add("C", ImVec2(500.0f, 300.0f))};
        a = nodes[0], b = nodes[1], c = nodes[2];
        a->movable = !has('f');
        b->acceptsLinks = !has('b');
        c->inputsLinkable = !has('c');
        for (size_t i = 0; i < 6; ++i)
            if (links[i] != '-') nodes[i / 2]->inputs[i % 2] = nodes[static_cast<size_t>(links[i] - 'a')]->id;
        for (char n : selected) N(n)->selected = true;
        Idle(); // long enough that a click now is no double click with one before
        editor.changed = false;
    }

    /// One frame with the target editor drawn into the canvas window, and a window beside it on top when `beside`.
    void Draw(bool beside = false) {
        Frame([&] {
            ImGui::SetNextWindowPos(kOrigin);
            ImGui::SetNextWindowSize(kSize);
            ImGui::Begin("Canvas", nullptr,
                         ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoMove | ImGuiWindowFlags_NoScrollWithMouse);
            focused = target->Render();
            ImGui::End();
            if (!beside) return;
            ImGui::Begin("Other");
            ImGui::End();
        });
    }
    void Idle(int frames = 20) {
        for (int i = 0; i < frames; ++i) Draw();
    }
    void MoveTo(ImVec2 at) {
        MouseTo(at.x, at.y);
        Draw();
    }
    /// Presses a button at `at` and drags past the threshold in one step.
    void Grab(ImVec2 at, int button = 0) {
        MoveTo(at);
        Mouse(button, true);
        MoveTo(at);
        MoveTo(at + ImVec2(7.0f, 7.0f));
    }

    TestNode* Add(std::string const& title, ImVec2 pos, size_t inputs = 2) {
        editor.nodes.push_back(editor.CreateNode(title, pos, std::vector<UniqueId>(inputs)));
        return static_cast<TestNode*>(editor.nodes.back());
    }

    TestNode* N(char letter) const { return nodes[static_cast<size_t>(letter - 'A')]; }
    /// Screen position of a canvas point.
    ImVec2 Screen(ImVec2 canvas) const { return kOrigin + (canvas + editor.pan) * editor.Scale(); }

    /// Each node in drawing order: its title, '+' when selected, '*' when modified, then
    /// the source of each input by its place in the list ('-' none, '?' no such node).
    std::string State() const {
        std::string out;
        for (Node const* node : target->nodes) {
            out += (out.empty() ? "" : " ") + node->title + (node->selected ? "+" : "") + (node->modified ? "*" : "") +
                ":";
            for (UniqueId const& input : node->inputs) {
                Node* const source = target->GetNode(input);
                auto const at = std::find(target->nodes.begin(), target->nodes.end(), source) - target->nodes.begin();
                out += !input.IsSet() ? '-' : source == nullptr ? '?' : static_cast<char>('0' + at);
            }
        }
        return out;
    }

    /// A node by its letter with a part (A.out, A.in0, A.title, A.corner), or a screen point
    /// x,y; either moved by +dx,dy.
    ImVec2 At(std::string const& word) const {
        ImVec2 at, by;
        size_t const plus = word.find('+');
        if (plus != std::string::npos) std::sscanf(word.c_str() + plus + 1, "%f,%f", &by.x, &by.y);
        std::string const part = word.substr(0, plus).substr(std::min<size_t>(2, word.size()));
        Node const* node = std::isupper(word[0]) ? N(word[0]) : nullptr;
        if (node == nullptr)
            std::sscanf(word.c_str(), "%f,%f", &at.x, &at.y);
        else if (part == "title")
            at = Screen(node->pos) + ImVec2(12.0f, 4.0f);
        else if (part == "corner")
            at = Screen(node->pos + node->size) - ImVec2(3.0f, 3.0f);
        else if (part == "out")
            at = editor.outputPins.at(node->id);
        else
            at = editor.inputPins.at(node->id).at(static_cast<size_t>(part[2] - '0'));
        return at + by;
    }
    /// The State() with what else is going on, or where the nodes are and the view.
    std::string Show(bool geometry) const {
        std::ostringstream out;
        auto point = [](ImVec2 v, char between) {
            std::ostringstream p;
            p << std::round(v.x * 100) / 100 << between << std::round(v.y * 100) / 100;
            return p.str();
        };
        if (geometry) {
            for (Node const* node : target->nodes)
                out << node->title << ' ' << point(node->pos, ',') << ' ' << point(node->size, 'x') << ' ';
            out << "pan " << point(target->pan, ',') << " zoom " << target->zoom;
            return "@ " + out.str();
        }
        out << "= " << State() << (target->changed ? " changed" : "") << (focused ? "" : " unfocused");
        if (int const menus = ImGui::GetCurrentContext()->OpenPopupStack.Size) out << " menus " << menus;
        out << (target->boxSelecting ? " boxing" : "") << (target->panning ? " panning" : "");
        for (auto [doing, node] :
             {std::pair(" moving ", target->movingNode), std::pair(" resizing ", target->resizingNode)})
            if (node != nullptr) out << doing << node->title;
        out << (target->copyArmed ? "" : " copy off") << (target->pasteArmed ? "" : " paste off");
        for (Node const* node : target->nodes) {
            if (node->draggingOutput || node->disconnectOutput || node->draggingInput >= 0)
                out << " " << node->title << " dragging " << node->draggingOutput << node->disconnectOutput
                    << node->draggingInput;
            if (!node->CanClone()) out << " " << node->title << " solo";
            if (int const clicks = static_cast<TestNode const*>(node)->doubleClicks)
                out << " " << node->title << " double clicked " << clicks;
        }
        if (target->outputPins.size() != target->nodes.size()) out << " pins " << target->outputPins.size();
        if (!NodeEditor::clipboard.empty()) out << " copied " << NodeEditor::clipboard.size();
        if (std::string const text = window.GetClipboardText(); !text.empty()) out << " system \"" << text << '"';
        return out.str();
    }
    /// Runs one command of a script; see tests/data/ui/editor/gestures.txt.
    void Run(std::string const& verb, std::string const& rest) {
        std::istringstream args(rest);
        std::string x, y;
        int button = 0, times = 1;
        if (verb == "reset") {
            std::string flags;
            args >> x >> y >> flags;
            Reset(x.empty() ? "------" : x, y == "-" ? "" : y, flags);
        } else if (verb == "click") {
            args >> x >> button >> times;
            MoveTo(At(x));
            for (int i = 0; i < times; ++i) Mouse(button, true), Draw(), Mouse(button, false), Draw();
        } else if (verb == "grab") {
            args >> x >> button;
            Grab(At(x), button);
        } else if (verb == "drag") {
            args >> x >> y >> button;
            ImVec2 const to = At(y);
            Grab(At(x), button);
            MoveTo(to), Mouse(button, false), Draw();
        } else if (verb == "move") {
            MoveTo(At(rest));
        } else if (verb == "release") {
            args >> button;
            Mouse(button, false), Draw();
        } else if (verb == "menu") {
            Run("click", rest + " 1");
            Draw();
            ASSERT_EQ(ImGui::GetCurrentContext()->OpenPopupStack.Size, 1) << rest;
            ImGuiWindow const* popup = ImGui::GetCurrentContext()->OpenPopupStack.back().Window;
            ImVec2 const item = popup->Pos + popup->WindowPadding + ImVec2(6.0f, 3.0f);
            Run("click", std::to_string(item.x) + "," + std::to_string(item.y));
        } else if (verb == "keys" || verb == "down" || verb == "up") {
            std::vector<std::string> keys;
            while (args >> x) keys.push_back(x);
            for (std::string const& key : keys) Key(KeyCode(key), verb != "up");
            if (verb != "keys") return;
            Draw();
            for (std::string const& key : keys) Key(KeyCode(key), false);
            Draw();
        } else if (verb == "frame" || verb == "beside") {
            args >> times;
            for (int i = 0; i < times; ++i) Draw(verb == "beside");
        } else if (verb == "wheel") {
            ImGui::GetIO().MouseWheel = std::stof(rest);
            Draw();
        } else if (verb == "typing") { // as when a field inside a node has the keys
            ImGui::GetCurrentContext()->WantTextInputNextFrame = 1;
        } else if (verb == "sys") {
            window.SetClipboardText(rest);
        } else if (verb == "clipboard") {
            NodeEditor::clipboard = nlohmann::json::parse(rest);
        } else if (verb == "pan") {
            std::sscanf(rest.c_str(), "%f,%f", &editor.pan.x, &editor.pan.y);
        } else if (verb == "size") {
            std::sscanf(rest.c_str() + 2, "%fx%f", &N(rest[0])->size.x, &N(rest[0])->size.y);
        } else if (verb == "select" || verb == "solo") {
            for (char n : rest) (verb == "solo" ? N(n)->clonable : N(n)->selected) ^= true;
        } else if (verb == "zoom") { // from, by steps, at a UI scaling, about a point that stays
            float from = 1.0f, steps = 0.0f, ui = 1.0f;
            std::sscanf(rest.c_str(), "%f %f %f", &from, &steps, &ui);
            ImGui::GetIO().FontGlobalScale = 0.5f * ui;
            editor.zoom = from;
            ImVec2 const at(200.0f, 100.0f), before = at / editor.Scale() - editor.pan;
            editor.Zoom(at, steps);
            ExpectNear(at / editor.Scale() - editor.pan, before, rest.c_str());
            ImGui::GetIO().FontGlobalScale = 0.5f;
        } else if (verb == "other") {
            target = &other;
        } else {
            ADD_FAILURE() << "unknown command: " << verb;
        }
    }
    TestEditor editor, other;
    NodeEditor* target = &editor;
    std::vector<TestNode*> nodes;
    TestNode *a = nullptr, *b = nullptr, *c = nullptr;
    bool focused = false;
};

TEST_F(EditorTest, Replays) {
    for (char const* script : {"gestures", "links", "keys"})
        Replay(
            std::string("ui/editor/") + script + ".txt",
            [&](std::string const& verb, std::string const& rest) { Run(verb, rest); },
            [&](char kind) { return Show(kind == '@'); });
}

TEST_F(EditorTest, PinsSitWhereTheyAreDrawn) {
    // At unit scale a pin is 16 pixels, the first one 1.5 font sizes plus 2 below the top.
    ImVec2 const first = Screen(a->pos) + ImVec2(8.0f, 1.5f * 13.0f * 0.5f + 2.0f + 8.0f);
    ExpectNear(editor.inputPins.at(a->id).at(0), first, "first input");
    ExpectNear(editor.inputPins.at(a->id).at(1), first + ImVec2(0.0f, 20.0f), "second input");
    ExpectNear(editor.outputPins.at(a->id), first + ImVec2(a->size.x - 16.0f, 0.0f), "output");
}

TEST_F(EditorTest, HiddenNodesHaveNoPinsAndNoLinks) {
    // Links are curves on the canvas's own draw list: one shows as more vertices there.
    ImGuiWindow const* canvas = ImGui::FindWindowByName("Canvas");
    auto vertices = [&](bool link) {
        b->inputs[0] = link ? a->id : UniqueId();
        Draw();
        return canvas->DrawList->VtxBuffer.Size;
    };
    for (TestNode* hidden : {static_cast<TestNode*>(nullptr), a, b}) {
        if (hidden != nullptr) hidden->visible = false;
        EXPECT_EQ(vertices(true) > vertices(false), hidden == nullptr);
        if (hidden == nullptr) continue;
        EXPECT_EQ(editor.outputPins.count(hidden->id) + editor.inputPins.count(hidden->id), 0u);
        hidden->visible = true;
    }
}

// Drawing frames of a settled editor allocates nothing: every operator new in this program is counted.
TEST_F(EditorTest, SteadyFramesAllocateNothing) {
    for (int i = 3; i < 40; ++i) {
        TestNode* node =
            Add("Node",
                ImVec2(600.0f + 40.0f * static_cast<float>(i % 10), 20.0f + 100.0f * static_cast<float>(i / 10)), 3);
        node->inputs[0] = editor.nodes[static_cast<size_t>(i - 1)]->id;
        node->inputs[2] = editor.nodes[static_cast<size_t>(i - 2)]->id;
        node->selected = i % 3 == 0;
    }
    editor.nodes[5]->visible = false;
    MoveTo(Screen(a->pos) + ImVec2(12.0f, 4.0f));
    Idle(3);
    long const hovering = testsupport::allocations.load();
    Idle(20);
    EXPECT_EQ(testsupport::allocations.load() - hovering, 0) << "hovering a node";
    Grab(editor.outputPins.at(b->id));
    Idle(3);
    long const dragging = testsupport::allocations.load();
    for (int i = 0; i < 20; ++i) MoveTo(ImVec2(700.0f + static_cast<float>(i), 500.0f));
    EXPECT_EQ(testsupport::allocations.load() - dragging, 0) << "dragging a link";
    EXPECT_TRUE(b->draggingOutput);
    Mouse(0, false);
}

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
    EXPECT_EQ(json,
              (nlohmann::json{{"id", static_cast<std::string>(node.id)},
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
    struct {
        char const* path;
        nlohmann::json value;
    } const cases[] = {
        // `erase` removes the key
        {"/id", erase},           {"/title", erase}, {"/pos", erase},    {"/size", erase},
        {"/inputs", erase},       {"/pos/y", erase}, {"/size/y", erase}, {"/title", 5},
        {"/pos/x", "left"},       {"/size/y", true}, // the library alone would read it as 1
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
    struct {
        size_t inputs;
        bool resizable;
        float height;
    } const cases[] = {{0, true, 55}, {3, true, 95}, {3, false, 85}, {0, false, 45}};
    for (auto const& c : cases) {
        Node node("N", ImVec2(), std::vector<UniqueId>(c.inputs));
        node.resizable = c.resizable;
        EXPECT_FLOAT_EQ(node.GetMinimumWidth(), 35.0f);
        EXPECT_FLOAT_EQ(node.GetMinimumHeight(), c.height) << c.inputs << c.resizable;
    }
}

using NodeGraph = EditorTest;

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
    EXPECT_FALSE(editor.CanConnectInputToOutput(nullptr, 0, a) || editor.CanConnectInputToOutput(b, 0, nullptr));
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
    TestEditor().nodes.push_back(new TestNode("A", ImVec2(), {}));
    EXPECT_EQ(TestNode::live, before - 3) << "the editor deletes the nodes it holds";
}

TEST_F(NodeGraph, PlainEditorMakesPlainNodes) {
    NodeEditor plain;
    plain.nodes.push_back(plain.CreateNode("T", ImVec2(3.0f, 4.0f), {UniqueId(), UniqueId()}));
    plain.nodes.push_back(plain.DeserializeNode(plain.nodes[0]->Serialize()));
    EXPECT_EQ(plain.nodes[1]->Serialize(), plain.nodes[0]->Serialize());
}

} // namespace
} // namespace nodetest
