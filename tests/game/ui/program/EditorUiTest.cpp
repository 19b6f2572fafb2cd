// The program editor under a headless Dear ImGui: node bodies drawn with balanced
// stacks, the +/- input buttons, the add menu with its search, regeneration after a
// change and the undo keys.
#include "ProgramGraph.hpp"

#include "game/ui/ImGuiFixture.hpp"

#include <imgui_internal.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <tuple>

using namespace programtest;

namespace {

class ProgramEditorUi : public uitest::ImGuiTest {
protected:
    /// One frame with `body` in a host window at the top left.
    void InHost(std::function<void()> const& body, ImVec2 size = ImVec2(1280.0f, 720.0f)) {
        Frame([&] {
            ImGui::SetNextWindowPos(ImVec2(0.0f, 0.0f));
            ImGui::SetNextWindowSize(size);
            ImGui::Begin("host", nullptr, ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoMove);
            body();
            ImGui::End();
        });
    }
    /// One frame of the whole editor; with `otherWindow`, a window that appears after it takes the focus.
    void RenderEditor() {
        InHost([&] {
            graph.editor.Render();
            if (!otherWindow) return;
            ImGui::SetNextWindowPos(ImVec2(700.0f, 0.0f));
            ImGui::Begin("other");
            ImGui::End();
        });
    }

    /// Draws a node's body the way the canvas does at scale 1: in a child of the
    /// node's size, cursor just below the title, after the pins.
    void DrawBody(Node* node) {
        node->size.x = std::max(node->size.x, node->GetMinimumWidth());
        node->size.y = std::max(node->size.y, node->GetMinimumHeight());
        std::string const id = node->id;
        ImGui::SetCursorPos(ImVec2(node->pos.x, node->pos.y));
        ImGui::PushID(id.c_str());
        ImGui::BeginChild("##", node->size, false, ImGuiWindowFlags_NoScrollbar | ImGuiWindowFlags_NoScrollWithMouse);
        ImGuiWindow const* window = ImGui::GetCurrentWindowRead();
        ImGuiContext const& g = *ImGui::GetCurrentContext();
        int const ids = window->IDStack.Size, styles = g.StyleVarStack.Size, colors = g.ColorStack.Size;
        ImGui::SetWindowFontScale(16.0f / ImGui::GetFontSize()); // the game's font is 16 pixels at scale 1
        float const pin = 16.0f;
        ImGui::SetCursorPos(ImVec2(pin, 1.5f * ImGui::GetFontSize()));
        node->DrawContent(ImGui::GetWindowDrawList(),
                          ImVec2(node->size.x - 2 * pin, node->size.y - 1.5f * ImGui::GetFontSize()), 1.0f);
        EXPECT_EQ(std::tuple(window->IDStack.Size, g.StyleVarStack.Size, g.ColorStack.Size),
                  std::tuple(ids, styles, colors))
            << node->title;
        EXPECT_EQ(ImGui::GetCursorPos().x, pin) << node->title; // layout left as given
        // Everything drawn fits the node at its least size (the resize corner keeps 10 free).
        EXPECT_LE(window->DC.CursorMaxPos.y - window->Pos.y, node->size.y - 8.0f) << node->title;
        EXPECT_LE(window->DC.CursorMaxPos.x - window->Pos.x, node->size.x) << node->title;
        lastItemMin = ImGui::GetItemRectMin();
        lastItemMax = ImGui::GetItemRectMax();
        ImGui::SetWindowFontScale(1.0f);
        ImGui::EndChild();
        ImGui::PopID();
    }
    void DrawBodies(std::vector<Node*> const& list) {
        InHost([&] {
            for (Node* node : list) DrawBody(node);
        });
    }

    /// Clicks at a point: hover, press, release, one frame each.
    void ClickAt(ImVec2 point, std::function<void()> const& frame) {
        MouseTo(point.x, point.y);
        frame();
        Mouse(0, true);
        frame();
        Mouse(0, false);
        frame();
    }

    Graph graph;
    bool otherWindow = false;
    ImVec2 lastItemMin{0, 0}, lastItemMax{0, 0};
};

TEST_F(ProgramEditorUi, EveryClassDrawsItsBodyWithBalancedStacks) {
    LoadRich(graph.editor);
    for (auto& entry : Editor::Catalog()) graph.editor.nodes.push_back(graph.editor.CreateNode(entry.title, {}, {}));
    graph.editor.nodes.push_back(new Editor::BasicNumberNode());
    float x = 0.0f, y = 0.0f;
    for (Node* node : graph.editor.nodes) {
        node->pos = ImVec2(x, y);
        x += 210.0f;
        if (x > 1000.0f) x = 0.0f, y += 60.0f;
        node->selected = (static_cast<int>(x) / 210) % 2 == 0;
        dynamic_cast<Editor::NeroxNode*>(node)->comment = "note";
        node->modified = false;
    }
    for (int frame = 0; frame < 3; ++frame) DrawBodies(graph.editor.nodes);
    for (Node* node : graph.editor.nodes) {
        EXPECT_GE(node->size.y, node->GetMinimumHeight());
        EXPECT_FALSE(node->modified) << node->title; // drawing alone edits nothing
    }
}

TEST_F(ProgramEditorUi, WholeEditorDrawsARichGraphWithoutRecordingChanges) {
    LoadRich(graph.editor);
    graph.editor.changed = false;
    float y = 0.0f;
    for (Node* node : graph.editor.nodes) {
        node->pos = ImVec2(10.0f + std::fmod(y, 3.0f) * 200.0f, y * 40.0f);
        y += 1.0f;
    }
    for (int frame = 0; frame < 3; ++frame) {
        RenderEditor();
        EXPECT_EQ(ImGui::GetCurrentContext()->StyleVarStack.Size, 0);
        EXPECT_EQ(ImGui::GetCurrentContext()->ColorStack.Size, 0);
    }
    EXPECT_TRUE(graph.editor.undoHistory.empty());
    EXPECT_FALSE(graph.editor.changed);
    for (Node* node : graph.editor.nodes) EXPECT_GE(node->size.y, node->GetMinimumHeight()) << node->title;
}

TEST_F(ProgramEditorUi, PlusAndMinusButtonsChangeInputsInStepDownToTheMinimum) {
    auto* print = graph.Add<Editor::PrintNode>();
    print->pos = ImVec2(40, 40);
    auto frame = [&] { DrawBodies({print}); };
    frame();
    ClickAt(ImVec2(0.5f * (lastItemMin.x + lastItemMax.x), 0.5f * (lastItemMin.y + lastItemMax.y)), frame);
    ASSERT_EQ(print->inputs.size(), 2u);
    EXPECT_EQ(print->inputDefaults.size(), 2u);
    EXPECT_EQ(print->InputType(1), 1);
    EXPECT_TRUE(print->modified);
    for (int click = 0; click < 2; ++click) {
        frame(); // the +/- row moves with the input count; "-" sits left of "+"
        ClickAt(ImVec2(2 * lastItemMin.x - lastItemMax.x, 0.5f * (lastItemMin.y + lastItemMax.y)), frame);
        ASSERT_EQ(print->inputs.size(), 1u);
        EXPECT_EQ(print->inputTypes.size(), 1u);
    }
}

TEST_F(ProgramEditorUi, AddMenuSearchAndClickAddsTheNodeCentredOnTheClick) {
    ImVec2 const at(300.0f, 200.0f);
    bool opening = true;
    ImVec2 itemMin, itemMax;
    auto frame = [&] {
        InHost([&] {
            if (opening) ImGui::OpenPopup("add");
            opening = false;
            if (ImGui::BeginPopup("add")) {
                graph.editor.ContextMenu(at);
                itemMin = ImGui::GetItemRectMin();
                itemMax = ImGui::GetItemRectMax();
                ImGui::EndPopup();
            }
        });
    };
    graph.editor.menuFilter = "stale";
    MouseTo(100.0f, 100.0f);
    frame();
    EXPECT_TRUE(graph.editor.menuFilter.empty()); // a new menu starts without search
    frame();                                      // the search box takes the keyboard
    for (char c : std::string("DeLa")) Type(static_cast<unsigned>(c));
    frame();
    EXPECT_EQ(graph.editor.menuFilter, "DeLa"); // only "Delay" matches
    ClickAt(ImVec2(0.5f * (itemMin.x + itemMax.x), 0.5f * (itemMin.y + itemMax.y)), frame);
    ASSERT_EQ(graph.editor.nodes.size(), 1u);
    auto* delay = dynamic_cast<Editor::DelayNode*>(graph.editor.nodes[0]);
    ASSERT_NE(delay, nullptr);
    EXPECT_TRUE(graph.editor.changed);
    EXPECT_FLOAT_EQ(delay->pos.x + delay->size.x * 0.5f, at.x);
    EXPECT_FLOAT_EQ(delay->pos.y + delay->size.y * 0.5f, at.y);
    EXPECT_GE(delay->size.y, delay->GetMinimumHeight());
}

TEST_F(ProgramEditorUi, RenderRegeneratesWithAnUndoStepAfterAChange) {
    graph.Add<Editor::TimeNode>();
    RenderEditor();
    EXPECT_TRUE(graph.editor.undoHistory.empty()); // nothing changed yet
    graph.editor.changed = true;
    RenderEditor();
    EXPECT_FALSE(graph.editor.changed);
    ASSERT_EQ(graph.editor.undoHistory.size(), 1u);
    graph.editor.nodes[0]->modified = true;
    RenderEditor();
    EXPECT_FALSE(graph.editor.nodes[0]->modified);
    EXPECT_EQ(graph.editor.undoHistory.size(), 2u);
}

TEST_F(ProgramEditorUi, CtrlZUndoesCtrlYAndCtrlShiftZRedo) {
    auto* time = graph.Add<Editor::TimeNode>();
    graph.editor.Serialize(true);
    std::string const first = graph.editor.GetCode();
    Graph::Link(time, graph.Output(0), 0);
    graph.editor.Serialize(true);
    std::string const second = graph.editor.GetCode();
    RenderEditor();
    ASSERT_TRUE(ImGui::IsWindowFocused(ImGuiFocusedFlags_AnyWindow));

    auto chord = [&](std::initializer_list<int> keys) {
        for (int key : keys) Key(key, true);
        RenderEditor();
        for (int key : keys) Key(key, false);
        RenderEditor();
    };
    chord({GLFW_KEY_LEFT_CONTROL, GLFW_KEY_Z});
    EXPECT_EQ(graph.editor.undoPosition, 1u);
    EXPECT_EQ(graph.editor.GetCode(), first);
    EXPECT_EQ(graph.editor.nodes.size(), 1u);
    EXPECT_EQ(graph.editor.undoHistory.size(), 2u); // undoing records nothing
    chord({GLFW_KEY_LEFT_CONTROL, GLFW_KEY_Y});
    EXPECT_EQ(graph.editor.undoPosition, 0u);
    EXPECT_EQ(graph.editor.GetCode(), second);
    chord({GLFW_KEY_LEFT_CONTROL, GLFW_KEY_Z});
    EXPECT_EQ(graph.editor.undoPosition, 1u);
    chord({GLFW_KEY_LEFT_CONTROL, GLFW_KEY_LEFT_SHIFT, GLFW_KEY_Z});
    EXPECT_EQ(graph.editor.undoPosition, 0u);
    EXPECT_EQ(graph.editor.GetCode(), second);
    chord({GLFW_KEY_Z}); // without Ctrl: nothing
    EXPECT_EQ(graph.editor.undoPosition, 0u);
    otherWindow = true;
    RenderEditor();
    chord({GLFW_KEY_LEFT_CONTROL, GLFW_KEY_Z}); // the editor's window must have the focus
    EXPECT_EQ(graph.editor.undoPosition, 0u);
}

} // namespace
