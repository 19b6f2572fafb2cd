// Selecting, moving, resizing, menus, panning and zooming through the headless
// Dear ImGui.
#include "EditorHarness.hpp"

#include <cmath>

namespace nodetest {
namespace {

class NodeEditing : public EditorTest {
protected:
    void SetUp() override {
        EditorTest::SetUp();
        a = Add("A", ImVec2(100.0f, 100.0f));
        b = Add("B", ImVec2(300.0f, 150.0f));
        c = Add("C", ImVec2(500.0f, 300.0f));
        Idle(2);
    }

    /// A left drag over empty canvas from `from` to `to`; the rectangle starts
    /// where the drag passes the threshold, one pixel step past 6.
    void BoxSelect(ImVec2 from, ImVec2 to) {
        MoveTo(from);
        Draw();
        Mouse(0, true);
        Draw();
        MoveTo(from + ImVec2(7.0f, 7.0f));
        Draw();
        EXPECT_TRUE(editor.boxSelecting);
        MoveTo(to);
        Draw();
        EXPECT_TRUE(editor.boxSelecting);
        Mouse(0, false);
        Draw();
        EXPECT_FALSE(editor.boxSelecting);
    }

    TestNode* a = nullptr;
    TestNode* b = nullptr;
    TestNode* c = nullptr;
};

TEST_F(NodeEditing, RenderReportsTheWindowsFocus) {
    EXPECT_TRUE(focused);
    // Another window appears and takes the focus; the canvas sees it the next frame.
    for (int i = 0; i < 2; ++i) Frame([&] {
        ImGui::SetNextWindowPos(kOrigin);
        ImGui::SetNextWindowSize(kSize);
        ImGui::Begin("Canvas", nullptr, ImGuiWindowFlags_NoTitleBar | ImGuiWindowFlags_NoMove);
        focused = editor.Render();
        ImGui::End();
        ImGui::SetNextWindowPos(ImVec2(1100.0f, 600.0f));
        ImGui::SetNextWindowSize(ImVec2(100.0f, 100.0f));
        ImGui::Begin("Other");
        ImGui::End();
    });
    EXPECT_FALSE(focused);
    EXPECT_FALSE(editor.copyArmed);
    EXPECT_FALSE(editor.pasteArmed);
}

TEST_F(NodeEditing, BoxSelectionSelectsNodesWhoseUpperMiddleIsInside) {
    BoxSelect(ImVec2(100.0f, 100.0f), Screen(b->pos) + ImVec2(20.0f, 30.0f));
    EXPECT_TRUE(a->selected);
    EXPECT_TRUE(b->selected) << "x middle 17.5 and a third of 75 down are inside";
    EXPECT_FALSE(c->selected);

    // A box that misses a third of the way down leaves it out.
    Idle();
    BoxSelect(ImVec2(100.0f, 100.0f), Screen(b->pos) + ImVec2(20.0f, 20.0f));
    EXPECT_TRUE(a->selected);
    EXPECT_FALSE(b->selected);

    // Drawn from the other corner, with left Ctrl adding to what is selected.
    Idle();
    Key(GLFW_KEY_LEFT_CONTROL, true);
    BoxSelect(Screen(c->pos) + ImVec2(60.0f, 60.0f), Screen(c->pos) - ImVec2(10.0f, 10.0f));
    Key(GLFW_KEY_LEFT_CONTROL, false);
    EXPECT_TRUE(a->selected);
    EXPECT_TRUE(c->selected);
}

TEST_F(NodeEditing, ClickOnEmptyCanvasClearsTheSelection) {
    a->selected = true;
    b->selected = true;
    Key(GLFW_KEY_LEFT_CONTROL, true);
    Click(ImVec2(800.0f, 500.0f));
    Key(GLFW_KEY_LEFT_CONTROL, false);
    EXPECT_TRUE(a->selected) << "left Ctrl keeps it";
    Idle();
    Click(ImVec2(800.0f, 500.0f));
    EXPECT_FALSE(a->selected);
    EXPECT_FALSE(b->selected);
}

TEST_F(NodeEditing, CtrlClickOnTheTitleTogglesSelection) {
    Key(GLFW_KEY_LEFT_CONTROL, true);
    Click(Title(a));
    EXPECT_TRUE(a->selected);
    Idle();
    Click(Title(a));
    EXPECT_FALSE(a->selected);
    Key(GLFW_KEY_LEFT_CONTROL, false);
    Idle();
    b->selected = true;
    Click(Title(a));
    EXPECT_FALSE(a->selected) << "a plain click does not select";
    EXPECT_TRUE(b->selected) << "nor clear the selection";
}

TEST_F(NodeEditing, DoubleClickOnTheTitleIsPassedToTheNode) {
    Click(Title(a));
    Mouse(0, true);
    Draw();
    Mouse(0, false);
    Draw();
    EXPECT_EQ(a->doubleClicks, 1);
}

TEST_F(NodeEditing, DraggingATitleMovesTheNodeAndTheOtherSelectedNodes) {
    b->selected = true;
    c->selected = true;
    ImVec2 const b0 = b->pos;
    ImVec2 const c0 = c->pos;
    Drag(Title(a), Title(a) + ImVec2(100.0f, 40.0f));
    EXPECT_FLOAT_EQ(a->pos.x, 200.0f);
    EXPECT_FLOAT_EQ(a->pos.y, 140.0f);
    EXPECT_FLOAT_EQ(b->pos.x, b0.x + 100.0f);
    EXPECT_FLOAT_EQ(b->pos.y, b0.y + 40.0f);
    EXPECT_FLOAT_EQ(c->pos.x, c0.x + 100.0f);
    EXPECT_FLOAT_EQ(c->pos.y, c0.y + 40.0f);
    EXPECT_TRUE(b->selected) << "the release after a move keeps the selection";
    EXPECT_TRUE(editor.changed);
    EXPECT_EQ(editor.movingNode, nullptr);
    EXPECT_FALSE(editor.boxSelecting);
}

TEST_F(NodeEditing, AZoomInTheMiddleOfAMoveKeepsTheGrabOfThePress) {
    ImVec2 const from = Title(a);
    MoveTo(from);
    Draw();
    Mouse(0, true);
    Draw();
    ImVec2 const grab = editor.grabOffset;
    MoveTo(from + ImVec2(40.0f, 0.0f));
    Draw();
    EXPECT_FLOAT_EQ(a->pos.x, 140.0f);
    EXPECT_EQ(editor.movingNode, a);
    Wheel(1.0f);
    Draw();
    EXPECT_EQ(editor.movingNode, nullptr) << "the zoom lets go of the node";
    // The title is still held: the node follows the pointer with the offset
    // taken when the press started, now at the new scale.
    ImVec2 const to = from + ImVec2(100.0f, 30.0f);
    MoveTo(to);
    Draw();
    EXPECT_EQ(editor.grabOffset.x, grab.x);
    EXPECT_EQ(editor.grabOffset.y, grab.y);
    EXPECT_NEAR(a->pos.x, (to.x - kOrigin.x - grab.x) / editor.Scale(), 1e-3f);
    EXPECT_NEAR(a->pos.y, (to.y - kOrigin.y - grab.y) / editor.Scale(), 1e-3f);
    EXPECT_EQ(editor.movingNode, nullptr) << "taken only when a press starts";
    Mouse(0, false);
    Draw();
}

TEST_F(NodeEditing, DraggingAtZoomMovesInLogicalUnits) {
    editor.zoom = 2.0f;
    editor.pan = ImVec2(-50.0f, -50.0f);
    Idle(2);
    Drag(Title(a), Title(a) + ImVec2(100.0f, 40.0f));
    EXPECT_FLOAT_EQ(a->pos.x, 150.0f);
    EXPECT_FLOAT_EQ(a->pos.y, 120.0f);
}

TEST_F(NodeEditing, ShiftSnapsTheMovedNodeToTens) {
    Key(GLFW_KEY_LEFT_SHIFT, true);
    Drag(Title(a), Title(a) + ImVec2(33.0f, 17.0f));
    Key(GLFW_KEY_LEFT_SHIFT, false);
    EXPECT_FLOAT_EQ(a->pos.x, 130.0f);
    EXPECT_FLOAT_EQ(a->pos.y, 120.0f);
}

TEST_F(NodeEditing, AMovedNodeKeepsItsCentreInTheWindow) {
    Drag(Title(a), ImVec2(5000.0f, 5000.0f));
    EXPECT_FLOAT_EQ(a->pos.x, kSize.x - a->size.x * 0.5f);
    EXPECT_FLOAT_EQ(a->pos.y, kSize.y - a->size.y * 0.5f);
    Idle();
    editor.pan = ImVec2(10.0f, 20.0f);
    Idle(2);
    Drag(Title(b), ImVec2(-5000.0f, -5000.0f));
    EXPECT_FLOAT_EQ(b->pos.x, -b->size.x * 0.5f - 10.0f);
    EXPECT_FLOAT_EQ(b->pos.y, -b->size.y * 0.5f - 20.0f);
}

TEST_F(NodeEditing, FixedNodesDoNotMove) {
    a->movable = false;
    Drag(Title(a), Title(a) + ImVec2(100.0f, 40.0f));
    EXPECT_FLOAT_EQ(a->pos.x, 100.0f);
    EXPECT_FLOAT_EQ(a->pos.y, 100.0f);
}

TEST_F(NodeEditing, ResizingIsLimitedAndSpringsBackTo1000) {
    ImVec2 const corner = Corner(a);
    MoveTo(corner);
    Draw();
    Mouse(0, true);
    Draw();
    MoveTo(corner + ImVec2(50.0f, 30.0f));
    Draw();
    // The corner follows the pointer, which was 3 pixels inside it.
    EXPECT_FLOAT_EQ(a->size.x, 35.0f + 50.0f - 3.0f);
    EXPECT_FLOAT_EQ(a->size.y, 75.0f + 30.0f - 3.0f);
    EXPECT_EQ(editor.resizingNode, a);
    MoveTo(ImVec2(4000.0f, 4000.0f));
    Draw();
    EXPECT_FLOAT_EQ(a->size.x, 2000.0f);
    EXPECT_FLOAT_EQ(a->size.y, 2000.0f);
    Mouse(0, false);
    Draw();
    EXPECT_FLOAT_EQ(a->size.x, 1000.0f);
    EXPECT_FLOAT_EQ(a->size.y, 1000.0f);
    EXPECT_EQ(editor.resizingNode, nullptr);
    EXPECT_TRUE(editor.changed);

    // Never below the minimum.
    a->size = ImVec2(35.0f, 75.0f);
    c->size = ImVec2(200.0f, 200.0f);
    Idle();
    Drag(Corner(c), Screen(c->pos));
    EXPECT_FLOAT_EQ(c->size.x, 35.0f);
    EXPECT_FLOAT_EQ(c->size.y, 75.0f);
}

TEST_F(NodeEditing, TitleMenuDeletesTheNode) {
    b->inputs[0] = a->id;
    c->inputs[1] = a->id;
    Click(Title(a), 1);
    Draw();
    ASSERT_EQ(OpenPopups(), 1);
    ClickFirstMenuItem(); // "Delete Node"
    ASSERT_EQ(editor.nodes.size(), 2u);
    EXPECT_EQ(editor.nodes[0], b);
    EXPECT_EQ(editor.nodes[1], c);
    EXPECT_FALSE(b->inputs[0].IsSet());
    EXPECT_FALSE(c->inputs[1].IsSet());
    EXPECT_TRUE(b->modified);
    EXPECT_TRUE(c->modified);
    EXPECT_TRUE(editor.changed);
}

TEST_F(NodeEditing, CanvasMenuAddsANodeCentredOnTheClick) {
    editor.pan = ImVec2(20.0f, -10.0f);
    Idle(2);
    ImVec2 const at(740.0f, 130.0f);
    Click(at, 1);
    Draw();
    ASSERT_EQ(OpenPopups(), 1);
    ClickFirstMenuItem(); // "Add Node"
    ASSERT_EQ(editor.nodes.size(), 4u);
    Node const* added = editor.nodes.back();
    EXPECT_EQ(added->title, "New Node");
    EXPECT_EQ(added->inputs.size(), 2u);
    EXPECT_FALSE(added->inputs[0].IsSet());
    ImVec2 const hit = (at - kOrigin) / editor.Scale() - editor.pan;
    EXPECT_FLOAT_EQ(added->pos.x + added->size.x * 0.5f, hit.x);
    EXPECT_FLOAT_EQ(added->pos.y + added->size.y * 0.5f, hit.y);
}

TEST_F(NodeEditing, RightDragPansAndOpensNoMenu) {
    editor.zoom = 2.0f;
    Idle(2);
    ImVec2 const from(800.0f, 500.0f);
    Drag(from, from + ImVec2(60.0f, -40.0f), 1);
    EXPECT_FLOAT_EQ(editor.pan.x, 30.0f);
    EXPECT_FLOAT_EQ(editor.pan.y, -20.0f);
    EXPECT_FALSE(editor.panning);
    EXPECT_EQ(OpenPopups(), 0);
    Drag(from, from + ImVec2(-20.0f, 10.0f), 2);
    EXPECT_FLOAT_EQ(editor.pan.x, 20.0f);
    EXPECT_FLOAT_EQ(editor.pan.y, -15.0f);
}

TEST_F(NodeEditing, PanIsClamped) {
    editor.pan = ImVec2(50000.0f, -5000.0f);
    Draw();
    EXPECT_FLOAT_EQ(editor.pan.x, 40000.0f);
    EXPECT_FLOAT_EQ(editor.pan.y, -4000.0f);
}

TEST_F(NodeEditing, WheelZoomsAboutThePointer) {
    ImVec2 const at(700.0f, 450.0f);
    MoveTo(at);
    Draw();
    ImVec2 const before = (at - kOrigin) / editor.Scale() - editor.pan;
    Wheel(1.0f);
    Draw();
    EXPECT_FLOAT_EQ(editor.zoom, 1.125f);
    ImVec2 const after = (at - kOrigin) / editor.Scale() - editor.pan;
    EXPECT_NEAR(after.x, before.x, 1e-3f);
    EXPECT_NEAR(after.y, before.y, 1e-3f);
    Wheel(-3.0f);
    Draw();
    EXPECT_EQ(editor.zoom, 1.0f) << "one step whatever the wheel's size; 0.984 snaps to 1";
    for (int i = 0; i < 12; ++i) {
        Wheel(1.0f);
        Draw();
    }
    EXPECT_FLOAT_EQ(editor.zoom, 2.0f);
}

TEST_F(NodeEditing, ReadOnlyStillSelectsAndPansButEditsNothing) {
    editor.readOnly = true;
    BoxSelect(ImVec2(100.0f, 100.0f), Screen(b->pos) + ImVec2(20.0f, 30.0f));
    EXPECT_TRUE(a->selected);
    EXPECT_TRUE(b->selected);

    Idle();
    Drag(ImVec2(800.0f, 500.0f), ImVec2(850.0f, 520.0f), 1);
    EXPECT_FLOAT_EQ(editor.pan.x, 50.0f);
    EXPECT_FLOAT_EQ(editor.pan.y, 20.0f);

    ImVec2 const a0 = a->pos;
    Idle();
    Drag(Title(a), Title(a) + ImVec2(100.0f, 40.0f));
    EXPECT_FLOAT_EQ(a->pos.x, a0.x);
    EXPECT_FLOAT_EQ(a->pos.y, a0.y);
    Idle();
    ImVec2 const size0 = c->size;
    Drag(Corner(c), Corner(c) + ImVec2(80.0f, 80.0f));
    EXPECT_FLOAT_EQ(c->size.x, size0.x);

    Idle();
    Click(Title(c), 1);
    Draw();
    EXPECT_EQ(OpenPopups(), 0);
    Click(ImVec2(800.0f, 500.0f), 1);
    Draw();
    EXPECT_EQ(OpenPopups(), 0);
    Click(OutputPin(c), 1);
    Draw();
    EXPECT_EQ(OpenPopups(), 0);
    EXPECT_EQ(editor.nodes.size(), 3u);
    EXPECT_FALSE(editor.changed);
}

} // namespace
} // namespace nodetest
