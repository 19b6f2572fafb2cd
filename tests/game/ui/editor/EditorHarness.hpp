#pragma once
// A node editor drawn into a fixed window of the headless Dear ImGui, with the
// pointer and keys driven frame by frame.
#include "game/ui/ImGuiFixture.hpp"

#include "game/graphics/ui/Node.hpp"
#include "game/graphics/ui/NodeEditor.hpp"

#define IMGUI_DEFINE_MATH_OPERATORS
#include <imgui_internal.h>

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace nodetest {

using game::UniqueId;
using game::graphics::ui::Node;
using game::graphics::ui::NodeEditor;

/// Where the canvas window sits on the 1280x720 display.
inline ImVec2 const kOrigin(40.0f, 30.0f);
inline ImVec2 const kSize(1000.0f, 600.0f);

/// A node that counts what the editor asks of it and can refuse links or cloning.
class TestNode : public Node {
public:
    TestNode(std::string title, ImVec2 pos, std::vector<UniqueId> inputs) : Node(std::move(title), pos, std::move(inputs)) {
        ++live;
    }
    explicit TestNode(nlohmann::json const& json) : Node(json), clonable(!json.value("solo", false)) { ++live; }
    ~TestNode() override { --live; }

    nlohmann::json Serialize() override {
        nlohmann::json json = Node::Serialize();
        json["solo"] = !clonable;
        return json;
    }
    bool CanClone() const override { return clonable; }
    bool CanConnectInputToOutput(int input, Node const* source) const override { return acceptsLinks; }
    bool CanConnectInput(int input) const override { return inputsLinkable; }
    void OnDoubleClick() override { ++doubleClicks; }

    bool clonable = true;
    bool acceptsLinks = true;
    bool inputsLinkable = true;
    int doubleClicks = 0;

    static inline int live = 0; ///< TestNodes in existence.
};

/// An editor of TestNodes.
class TestEditor : public NodeEditor {
public:
    Node* CreateNode(std::string const& title, ImVec2 pos, std::vector<UniqueId> inputs) override {
        return new TestNode(title, pos, std::move(inputs));
    }
    Node* DeserializeNode(nlohmann::json const& json) override { return new TestNode(json); }
};

class EditorTest : public uitest::ImGuiTest {
protected:
    void SetUp() override {
        ImGuiTest::SetUp();
        NodeEditor::clipboard = nlohmann::json::array();
        NodeEditor::clipboardFrom = nullptr;
    }

    void TearDown() override {
        NodeEditor::clipboard = nlohmann::json::array();
        NodeEditor::clipboardFrom = nullptr;
        ImGuiTest::TearDown();
    }

    /// One frame with `target` drawn into the canvas window.
    void Draw(NodeEditor& target) {
        Frame([&] {
            ImGui::SetNextWindowPos(kOrigin);
            ImGui::SetNextWindowSize(kSize);
            ImGui::Begin("Canvas", nullptr,
                         ImGuiWindowFlags_NoTitleBar | ImGuiWindowFlags_NoResize | ImGuiWindowFlags_NoMove |
                             ImGuiWindowFlags_NoScrollbar | ImGuiWindowFlags_NoScrollWithMouse |
                             ImGuiWindowFlags_NoCollapse | ImGuiWindowFlags_NoSavedSettings);
            focused = target.Render();
            ImGui::End();
        });
    }
    void Draw() { Draw(editor); }
    /// Frames with nothing changing, long enough that two clicks do not make a double click.
    void Idle(int frames = 20) {
        for (int i = 0; i < frames; ++i) Draw();
    }

    TestNode* Add(std::string const& title, ImVec2 pos, size_t inputs = 2) {
        auto* node = static_cast<TestNode*>(editor.CreateNode(title, pos, std::vector<UniqueId>(inputs)));
        editor.nodes.push_back(node);
        return node;
    }

    void MoveTo(ImVec2 at) { MouseTo(at.x, at.y); }
    /// Screen position of a canvas point.
    ImVec2 Screen(ImVec2 canvas) const { return kOrigin + (canvas + editor.pan) * editor.Scale(); }
    /// A point on the node's title bar.
    ImVec2 Title(Node const* node) const { return Screen(node->pos) + ImVec2(12.0f, 4.0f); }
    /// A point on the node's resize corner.
    ImVec2 Corner(Node const* node) const { return Screen(node->pos + node->size) - ImVec2(3.0f, 3.0f); }
    ImVec2 InputPin(Node const* node, int input) const { return editor.inputPins.at(node->id).at(static_cast<size_t>(input)); }
    ImVec2 OutputPin(Node const* node) const { return editor.outputPins.at(node->id); }

    /// Hovers, presses and releases a button at `at`.
    void Click(ImVec2 at, int button = 0) {
        MoveTo(at);
        Draw();
        Mouse(button, true);
        Draw();
        Mouse(button, false);
        Draw();
    }
    /// A left drag from `from` to `to` in two steps, released at `to`.
    void Drag(ImVec2 from, ImVec2 to, int button = 0) {
        MoveTo(from);
        Draw();
        Mouse(button, true);
        Draw();
        MoveTo((from + to) * 0.5f);
        Draw();
        MoveTo(to);
        Draw();
        Mouse(button, false);
        Draw();
    }
    /// Left Ctrl with `key`, for one frame, then both released for one frame.
    void Chord(int key) {
        Key(GLFW_KEY_LEFT_CONTROL, true);
        Key(key, true);
        Draw();
        Key(key, false);
        Key(GLFW_KEY_LEFT_CONTROL, false);
        Draw();
    }

    /// The innermost open popup, or null.
    static ImGuiWindow* OpenPopup() {
        ImGuiContext& g = *ImGui::GetCurrentContext();
        return g.OpenPopupStack.Size > 0 ? g.OpenPopupStack.back().Window : nullptr;
    }
    static int OpenPopups() { return ImGui::GetCurrentContext()->OpenPopupStack.Size; }
    /// Clicks the first item of the open popup.
    void ClickFirstMenuItem() {
        ImGuiWindow* popup = OpenPopup();
        ASSERT_NE(popup, nullptr);
        ImVec2 const at = popup->Pos + popup->WindowPadding + ImVec2(6.0f, 3.0f);
        Click(at);
    }

    TestEditor editor;
    bool focused = false;
};

} // namespace nodetest
