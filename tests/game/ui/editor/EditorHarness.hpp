#pragma once
// A node editor drawn into a fixed window of the headless Dear ImGui, with the
// pointer and keys driven frame by frame.
#include "game/ui/ImGuiFixture.hpp"

#include "game/graphics/ui/Node.hpp"
#include "game/graphics/ui/NodeEditor.hpp"

#define IMGUI_DEFINE_MATH_OPERATORS
#include <imgui_internal.h>

#include <algorithm>
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
        for (char n : selected) nodes[static_cast<size_t>(n - 'A')]->selected = true;
        Idle(); // long enough that a click now is no double click with one before
        editor.changed = false;
    }

    /// One frame with the target editor drawn into the canvas window, and a window beside it on top when `beside`.
    void Draw(bool beside = false) {
        Frame([&] {
            ImGui::SetNextWindowPos(kOrigin);
            ImGui::SetNextWindowSize(kSize);
            ImGui::Begin("Canvas", nullptr, ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoMove | ImGuiWindowFlags_NoScrollWithMouse);
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

    /// Screen position of a canvas point.
    ImVec2 Screen(ImVec2 canvas) const { return kOrigin + (canvas + editor.pan) * editor.Scale(); }

    /// Each node in drawing order: its title, '+' when selected, '*' when modified, then
    /// the source of each input by its place in the list ('-' none, '?' no such node).
    std::string State() const {
        std::string out;
        for (Node const* node : target->nodes) {
            out += (out.empty() ? "" : " ") + node->title + (node->selected ? "+" : "") + (node->modified ? "*" : "") + ":";
            for (UniqueId const& input : node->inputs) {
                Node* const source = target->GetNode(input);
                auto const at = std::find(target->nodes.begin(), target->nodes.end(), source) - target->nodes.begin();
                out += !input.IsSet() ? '-' : source == nullptr ? '?' : static_cast<char>('0' + at);
            }
        }
        return out;
    }

    TestEditor editor, other;
    NodeEditor* target = &editor;
    std::vector<TestNode*> nodes;
    TestNode *a = nullptr, *b = nullptr, *c = nullptr;
    bool focused = false;
};

} // namespace nodetest
