#pragma once
// A node editor drawn into a fixed window of the headless Dear ImGui, with the
// pointer and keys driven frame by frame.
#include "game/ui/ImGuiFixture.hpp"

#include "game/graphics/ui/Node.hpp"
#include "game/graphics/ui/NodeEditor.hpp"

#define IMGUI_DEFINE_MATH_OPERATORS
#include <imgui_internal.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

namespace nodetest {

using game::UniqueId;
using game::graphics::ui::Node;
using game::graphics::ui::NodeEditor;

/// Where the canvas window sits on the 1280x720 display.
inline ImVec2 const kOrigin(40.0f, 30.0f);
inline ImVec2 const kSize(1000.0f, 600.0f);

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

/// A point on node A, B or C (0 to 2): its input pin 0 or 1, or one of these parts,
/// moved by `by` pixels. Node -1 is the screen point `by` itself.
enum Part { kOutput = -1, kTitle = -2, kCorner = -3 };
struct Spot { int node, part; ImVec2 by{}; };

/// Set up by EditorTest::Reset: read-only, zoom 2, A not movable, B refusing links, C's inputs closed.
enum Flag { kReadOnly = 1, kZoomed = 2, kFixed = 4, kBRefuses = 8, kCClosed = 16 };

inline void ExpectNear(ImVec2 actual, ImVec2 expected, char const* what) {
    EXPECT_NEAR(actual.x, expected.x, 1e-3f) << what;
    EXPECT_NEAR(actual.y, expected.y, 1e-3f) << what;
}

class EditorTest : public uitest::ImGuiTest {
protected:
    void SetUp() override {
        ImGuiTest::SetUp();
        Reset();
    }

    /// Nodes A at (100, 100), B at (300, 150) and C at (500, 300) with two inputs each,
    /// an empty clipboard and the flags applied; `links` names the source of each
    /// input in turn ('a' to 'c', '-' for none), `selected` is bits of A, B and C.
    void Reset(std::string const& links = "------", int flags = 0, int selected = 0) {
        editor.readOnly = false;
        editor.ClearAllNodes();
        editor.readOnly = flags & kReadOnly;
        editor.zoom = flags & kZoomed ? 2.0f : 1.0f;
        editor.pan = ImVec2(0.0f, 0.0f);
        NodeEditor::clipboard = nlohmann::json::array();
        nodes = {Add("A", ImVec2(100.0f, 100.0f)), Add("B", ImVec2(300.0f, 150.0f)), Add("C", ImVec2(500.0f, 300.0f))};
        a = nodes[0], b = nodes[1], c = nodes[2];
        a->movable = !(flags & kFixed);
        b->acceptsLinks = !(flags & kBRefuses);
        c->inputsLinkable = !(flags & kCClosed);
        for (size_t i = 0; i < 6; ++i)
            if (links[i] != '-') nodes[i / 2]->inputs[i % 2] = nodes[static_cast<size_t>(links[i] - 'a')]->id;
        for (size_t i = 0; i < 3; ++i) nodes[i]->selected = (selected >> i) & 1;
        Idle(); // long enough that a click now is no double click with one before
        editor.changed = false;
    }

    /// One frame with `target` drawn into the canvas window, and a window beside it on top when `beside`.
    void Draw(NodeEditor& target, bool beside = false) {
        Frame([&] {
            ImGui::SetNextWindowPos(kOrigin);
            ImGui::SetNextWindowSize(kSize);
            ImGui::Begin("Canvas", nullptr, ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoMove | ImGuiWindowFlags_NoScrollWithMouse);
            focused = target.Render();
            ImGui::End();
            if (!beside) return;
            ImGui::Begin("Other");
            ImGui::End();
        });
    }
    void Draw() { Draw(editor); }
    void Idle(int frames = 20) {
        for (int i = 0; i < frames; ++i) Draw();
    }

    TestNode* Add(std::string const& title, ImVec2 pos, size_t inputs = 2) {
        editor.nodes.push_back(editor.CreateNode(title, pos, std::vector<UniqueId>(inputs)));
        return static_cast<TestNode*>(editor.nodes.back());
    }

    /// Screen position of a canvas point.
    ImVec2 Screen(ImVec2 canvas) const { return kOrigin + (canvas + editor.pan) * editor.Scale(); }
    ImVec2 At(Spot spot) const {
        if (spot.node < 0) return spot.by;
        Node const* node = nodes[static_cast<size_t>(spot.node)];
        if (spot.part == kTitle) return Screen(node->pos) + ImVec2(12.0f, 4.0f) + spot.by;
        if (spot.part == kCorner) return Screen(node->pos + node->size) - ImVec2(3.0f, 3.0f) + spot.by;
        if (spot.part == kOutput) return editor.outputPins.at(node->id) + spot.by;
        return editor.inputPins.at(node->id).at(static_cast<size_t>(spot.part)) + spot.by;
    }
    void MoveTo(ImVec2 at) { MouseTo(at.x, at.y); }

    /// Hovers, then presses and releases a button at `at`, `times` times in a row.
    void Click(ImVec2 at, int button = 0, int times = 1) {
        MoveTo(at);
        Draw();
        for (int i = 0; i < times; ++i) {
            Mouse(button, true);
            Draw();
            Mouse(button, false);
            Draw();
        }
    }
    /// A drag from `from` past the threshold in one step, then to `to`, where `held`
    /// runs before the button is let go.
    void Drag(ImVec2 from, ImVec2 to, int button = 0, std::function<void()> const& held = {}) {
        MoveTo(from);
        Draw();
        Mouse(button, true);
        for (ImVec2 const at : {from, from + ImVec2(7.0f, 7.0f), to}) {
            MoveTo(at);
            Draw();
        }
        if (held) held();
        Mouse(button, false);
        Draw();
    }
    /// A key, with left Ctrl when `ctrl`, held for one frame and let go for one.
    void Press(int key, bool ctrl = true) {
        Key(GLFW_KEY_LEFT_CONTROL, ctrl);
        Key(key, true);
        Draw();
        Key(key, false);
        Key(GLFW_KEY_LEFT_CONTROL, false);
        Draw();
    }
    /// Right-clicks at `at` and clicks the first item of the menu that opens.
    void Menu(ImVec2 at) {
        Click(at, 1);
        Draw();
        ASSERT_EQ(OpenPopups(), 1);
        ImGuiWindow const* popup = ImGui::GetCurrentContext()->OpenPopupStack.back().Window;
        Click(popup->Pos + popup->WindowPadding + ImVec2(6.0f, 3.0f));
    }
    static int OpenPopups() { return ImGui::GetCurrentContext()->OpenPopupStack.Size; }

    /// Each node in drawing order: its title, '+' when selected, '*' when modified, then
    /// the source of each input by its place in the list ('-' none, '?' no such node).
    std::string State() const {
        std::string out;
        for (Node const* node : editor.nodes) {
            out += (out.empty() ? "" : " ") + node->title + (node->selected ? "+" : "") + (node->modified ? "*" : "") + ":";
            for (UniqueId const& input : node->inputs) {
                Node* const source = editor.GetNode(input);
                auto const at = std::find(editor.nodes.begin(), editor.nodes.end(), source) - editor.nodes.begin();
                out += !input.IsSet() ? '-' : source == nullptr ? '?' : static_cast<char>('0' + at);
            }
        }
        return out;
    }

    TestEditor editor;
    std::vector<TestNode*> nodes;
    TestNode *a = nullptr, *b = nullptr, *c = nullptr;
    bool focused = false;
};

} // namespace nodetest
