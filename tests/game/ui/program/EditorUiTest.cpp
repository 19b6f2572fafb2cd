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
#include <string>
#include <vector>

using namespace programtest;

namespace {

class ProgramEditorUi : public uitest::ImGuiTest {
protected:
    /// One frame with the whole editor in a host window filling the screen.
    void RenderEditor() {
        Frame([&] {
            ImGui::SetNextWindowPos(ImVec2(0.0f, 0.0f));
            ImGui::SetNextWindowSize(ImVec2(1280.0f, 720.0f));
            ImGui::Begin("host", nullptr, ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoMove);
            graph.editor.Render();
            ImGui::End();
        });
    }

    /// Draws a node's body the way the canvas does at scale 1: in a child of the
    /// node's size, cursor just below the title, after the pins.
    void DrawBody(Node* node) {
        float const s = 1.0f;
        node->size.x = std::max(node->size.x, node->GetMinimumWidth());
        node->size.y = std::max(node->size.y, node->GetMinimumHeight());
        std::string const id = node->id;
        ImGui::SetCursorPos(ImVec2(node->pos.x, node->pos.y));
        ImGui::PushID(id.c_str());
        ImGui::BeginChild("##", node->size, false, ImGuiWindowFlags_NoScrollbar | ImGuiWindowFlags_NoScrollWithMouse);
        ImGuiWindow const* window = ImGui::GetCurrentWindowRead();
        int const ids = window->IDStack.Size;
        ImGuiContext const& g = *ImGui::GetCurrentContext();
        int const styles = g.StyleVarStack.Size;
        int const colors = g.ColorStack.Size;
        // The game's font is 16 logical pixels high at scale 1.
        ImGui::SetWindowFontScale(16.0f / ImGui::GetFontSize());
        float const pin = 16.0f * s;
        ImGui::SetCursorPos(ImVec2(pin, 1.5f * ImGui::GetFontSize()));
        node->DrawContent(ImGui::GetWindowDrawList(),
                          ImVec2(node->size.x * s - 2 * pin, node->size.y * s - 1.5f * ImGui::GetFontSize()), s);
        EXPECT_EQ(window->IDStack.Size, ids) << node->title;
        EXPECT_EQ(g.StyleVarStack.Size, styles) << node->title;
        EXPECT_EQ(g.ColorStack.Size, colors) << node->title;
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

    /// One frame drawing the bodies of the given nodes in a host window.
    void DrawBodies(std::vector<Node*> const& list) {
        Frame([&] {
            ImGui::SetNextWindowPos(ImVec2(0.0f, 0.0f));
            ImGui::SetNextWindowSize(ImVec2(1280.0f, 720.0f));
            ImGui::Begin("host", nullptr, ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoMove);
            for (Node* node : list) DrawBody(node);
            ImGui::End();
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
    ImVec2 lastItemMin{0, 0};
    ImVec2 lastItemMax{0, 0};
    bool opening = false;
    ImVec2 menuItemMin{0, 0};
    ImVec2 menuItemMax{0, 0};
};

ImVec2 Centre(ImVec2 a, ImVec2 b) { return ImVec2(0.5f * (a.x + b.x), 0.5f * (a.y + b.y)); }

TEST_F(ProgramEditorUi, EveryClassDrawsItsBodyWithBalancedStacks) {
    BuildRichGraph(graph);
    for (auto& entry : Editor::Catalog()) {
        Node* node = graph.editor.CreateNode(entry.title, ImVec2(0, 0), {});
        graph.editor.nodes.push_back(node);
    }
    graph.editor.nodes.push_back(new Editor::BasicNumberNode());
    float x = 0.0f, y = 0.0f;
    for (Node* node : graph.editor.nodes) {
        node->pos = ImVec2(x, y);
        x += 210.0f;
        if (x > 1000.0f) {
            x = 0.0f;
            y += 60.0f;
        }
        node->selected = (static_cast<int>(x) / 210) % 2 == 0;
        dynamic_cast<Editor::NeroxNode*>(node)->comment = "note";
    }
    for (Node* node : graph.editor.nodes) node->modified = false;
    for (int frame = 0; frame < 3; ++frame) DrawBodies(graph.editor.nodes);
    for (Node* node : graph.editor.nodes) {
        EXPECT_GE(node->size.y, node->GetMinimumHeight());
        EXPECT_FALSE(node->modified) << node->title; // drawing alone edits nothing
    }
}

TEST_F(ProgramEditorUi, WholeEditorDrawsARichGraphWithoutRecordingChanges) {
    BuildRichGraph(graph);
    for (Node* node : graph.editor.nodes) node->modified = false;
    graph.editor.changed = false;
    float y = 0.0f;
    for (Node* node : graph.editor.nodes) {
        node->pos = ImVec2(10.0f + std::fmod(y, 3.0f) * 200.0f, y * 40.0f);
        y += 1.0f;
    }
    for (int frame = 0; frame < 3; ++frame) {
        RenderEditor();
        ImGuiContext const& g = *ImGui::GetCurrentContext();
        EXPECT_EQ(g.StyleVarStack.Size, 0);
        EXPECT_EQ(g.ColorStack.Size, 0);
    }
    EXPECT_TRUE(graph.editor.undoHistory.empty());
    EXPECT_FALSE(graph.editor.changed);
    for (Node* node : graph.editor.nodes) EXPECT_GE(node->size.y, node->GetMinimumHeight()) << node->title;
}

TEST_F(ProgramEditorUi, MinimumSizeMakesRoomForFieldsAndInputs) {
    Editor::InputNode input;
    Editor::TimeNode time;
    Editor::PIDControllerNode pid;
    Editor::PrintNode print;
    EXPECT_GT(input.GetMinimumHeight(), time.GetMinimumHeight());
    EXPECT_GT(pid.GetMinimumHeight(), 55.0f + 7 * 20.0f - 1.0f);
    EXPECT_GT(print.GetMinimumHeight(), 55.0f); // the +/- row
    EXPECT_GT(input.GetMinimumWidth(), time.GetMinimumWidth());
}

TEST_F(ProgramEditorUi, PlusButtonAddsAnInputInStep) {
    auto* print = graph.Add<Editor::PrintNode>();
    print->pos = ImVec2(40, 40);
    auto frame = [&] { DrawBodies({print}); };
    frame();
    ImVec2 const plus = Centre(lastItemMin, lastItemMax);
    ClickAt(plus, frame);
    ASSERT_EQ(print->inputs.size(), 2u);
    EXPECT_EQ(print->inputDefaults.size(), 2u);
    EXPECT_EQ(print->InputType(1), 1);
    EXPECT_TRUE(print->modified);
}

TEST_F(ProgramEditorUi, MinusButtonStopsAtTheMinimum) {
    auto* output = graph.Add<Editor::OutputNode>();
    output->SetInputCount(2);
    output->inputTypes[1] = 1;
    output->pos = ImVec2(40, 40);
    auto frame = [&] { DrawBodies({output}); };
    frame();
    // "-" sits left of "+" on the same row.
    float const plusWidth = lastItemMax.x - lastItemMin.x;
    ImVec2 const minus(lastItemMin.x - plusWidth, 0.5f * (lastItemMin.y + lastItemMax.y));
    ClickAt(minus, frame);
    ASSERT_EQ(output->inputs.size(), 1u);
    EXPECT_TRUE(output->inputTypes.empty());
    ClickAt(minus, frame);
    EXPECT_EQ(output->inputs.size(), 1u);
}

TEST_F(ProgramEditorUi, AddMenuSearchAndClickAddsTheNodeCentredOnTheClick) {
    ImVec2 const at(300.0f, 200.0f);
    auto frame = [&] {
        Frame([&] {
            ImGui::SetNextWindowPos(ImVec2(0.0f, 0.0f));
            ImGui::SetNextWindowSize(ImVec2(1280.0f, 720.0f));
            ImGui::Begin("host", nullptr, ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoMove);
            if (opening) ImGui::OpenPopup("add");
            opening = false;
            if (ImGui::BeginPopup("add")) {
                graph.editor.ContextMenu(at);
                menuItemMin = ImGui::GetItemRectMin();
                menuItemMax = ImGui::GetItemRectMax();
                ImGui::EndPopup();
            }
            ImGui::End();
        });
    };
    graph.editor.menuFilter = "stale";
    MouseTo(100.0f, 100.0f);
    opening = true;
    frame();
    EXPECT_TRUE(graph.editor.menuFilter.empty()); // a new menu starts without search
    frame(); // the search box takes the keyboard
    for (char c : std::string("DeLa")) Type(static_cast<unsigned>(c));
    frame();
    EXPECT_EQ(graph.editor.menuFilter, "DeLa"); // only "Delay" matches
    ClickAt(Centre(menuItemMin, menuItemMax), frame);
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
    EXPECT_EQ(graph.editor.GetCode().rfind("#NODES {", 0), 0u);

    graph.editor.nodes[0]->modified = true;
    RenderEditor();
    EXPECT_FALSE(graph.editor.nodes[0]->modified);
    EXPECT_EQ(graph.editor.undoHistory.size(), 2u);
    RenderEditor();
    EXPECT_EQ(graph.editor.undoHistory.size(), 2u);
}

TEST_F(ProgramEditorUi, CtrlZUndoesCtrlYAndCtrlShiftZRedo) {
    auto* time = graph.Add<Editor::TimeNode>();
    graph.editor.Serialize(true);
    std::string const first = graph.editor.GetCode();
    auto* out = graph.Output(0);
    Graph::Link(time, out, 0);
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
}

TEST_F(ProgramEditorUi, UndoKeysNeedTheEditorsWindowFocused) {
    graph.Add<Editor::TimeNode>();
    graph.editor.Serialize(true);
    graph.Add<Editor::TimeNode>();
    graph.editor.Serialize(true);
    auto frame = [&] {
        Frame([&] {
            ImGui::SetNextWindowPos(ImVec2(0.0f, 0.0f));
            ImGui::SetNextWindowSize(ImVec2(600.0f, 400.0f));
            ImGui::Begin("host", nullptr, ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoMove);
            graph.editor.Render();
            ImGui::End();
            ImGui::SetNextWindowPos(ImVec2(700.0f, 0.0f));
            ImGui::SetNextWindowSize(ImVec2(200.0f, 200.0f));
            ImGui::Begin("other");
            ImGui::End();
        });
    };
    frame(); // "other" appears last and takes the focus
    Key(GLFW_KEY_LEFT_CONTROL, true);
    Key(GLFW_KEY_Z, true);
    frame();
    Key(GLFW_KEY_Z, false);
    Key(GLFW_KEY_LEFT_CONTROL, false);
    frame();
    EXPECT_EQ(graph.editor.undoPosition, 0u);
}

} // namespace
