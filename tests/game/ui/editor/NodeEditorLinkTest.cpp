// Linking by dragging between pins, refusing cycles, cutting links, and the menus,
// through the headless Dear ImGui.
#include "EditorHarness.hpp"

namespace nodetest {
namespace {

using NodeLinking = EditorTest;

TEST_F(NodeLinking, PinsSitWhereTheyAreDrawn) {
    // At unit scale a pin is 16 pixels, the first one 1.5 font sizes plus 2 below the top.
    ImVec2 const first = Screen(a->pos) + ImVec2(8.0f, 1.5f * 13.0f * 0.5f + 2.0f + 8.0f);
    ExpectNear(At({0, 0}), first, "first input");
    ExpectNear(At({0, 1}), first + ImVec2(0.0f, 20.0f), "second input");
    ExpectNear(At({0, kOutput}), first + ImVec2(a->size.x - 16.0f, 0.0f), "output");
    ExpectNear(a->size, ImVec2(35.0f, 75.0f), "brought up to the minimum on the first draw");
}

enum Gesture { DragTo, DoubleClick, MenuItem, NoMenu };

/// From the links `links` (see Reset), a gesture at `from` (to `to`) leaves the State() `after`.
struct LinkCase { char const* name; char const* links; Gesture gesture; Spot from, to; char const* after; int flags = 0; };

TEST_F(NodeLinking, GesturesOnPinsLinkAndCut) {
    LinkCase const cases[] = {
        {"output to input", "------", DragTo, {0, kOutput}, {1, 1}, "A:-- B*:-0 C:--"},
        {"input to output", "------", DragTo, {2, 0}, {1, kOutput}, "A:-- B:-- C*:1-"},
        {"at zoom 2", "------", DragTo, {0, kOutput}, {1, 1}, "A:-- B*:-0 C:--", kZoomed},
        {"released off the pins", "------", DragTo, {0, kOutput}, {1, 0, {0, 40}}, "A:-- B:-- C:--"},
        {"from an input, released off the pins", "------", DragTo, {2, 1}, {-1, 0, {700, 500}}, "A:-- B:-- C:--"},
        {"over an existing link", "--c---", DragTo, {0, kOutput}, {1, 0}, "A:-- B*:0- C:--"},
        {"own output", "------", DragTo, {0, kOutput}, {0, 0}, "A:-- B:-- C:--"},
        {"own output from the input", "------", DragTo, {0, 1}, {0, kOutput}, "A:-- B:-- C:--"},
        {"a cycle of two", "--a-b-", DragTo, {1, kOutput}, {0, 0}, "A:-- B:0- C:1-"},
        {"a cycle of three, from the input", "--a-b-", DragTo, {0, 1}, {2, kOutput}, "A:-- B:0- C:1-"},
        {"a second path is no cycle", "--a-b-", DragTo, {0, kOutput}, {2, 1}, "A:-- B:0- C*:10"},
        {"the input node refuses", "------", DragTo, {0, kOutput}, {1, 0}, "A:-- B:-- C:--", kBRefuses},
        {"the input cannot be linked", "------", DragTo, {2, 0}, {0, kOutput}, "A:-- B:-- C:--", kCClosed},
        {"read-only", "------", DragTo, {0, kOutput}, {1, 0}, "A:-- B:-- C:--", kReadOnly},
        {"read-only, from the input", "------", DragTo, {2, 0}, {0, kOutput}, "A:-- B:-- C:--", kReadOnly},
        {"double click on an input", "--ac--", DoubleClick, {1, 0}, {}, "A:-- B*:-2 C:--"},
        {"double click on an output", "--a-ba", DoubleClick, {0, kOutput}, {}, "A:-- B*:-- C*:1-"},
        {"read-only double click", "---c--", DoubleClick, {1, 1}, {}, "A:-- B:-2 C:--", kReadOnly},
        {"input menu", "---a--", MenuItem, {1, 1}, {}, "A:-- B*:-- C:--"},
        {"output menu", "---aa-", MenuItem, {0, kOutput}, {}, "A:-- B*:-- C*:--"},
        {"title menu", "--a--a", MenuItem, {0, kTitle}, {}, "B*:-- C*:--"},
        {"read-only title", "------", NoMenu, {0, kTitle}, {}, "A:-- B:-- C:--", kReadOnly},
        {"read-only canvas", "------", NoMenu, {-1, 0, {800, 500}}, {}, "A:-- B:-- C:--", kReadOnly},
        {"read-only output", "---a--", NoMenu, {0, kOutput}, {}, "A:-- B:-0 C:--", kReadOnly},
    };
    for (LinkCase const& l : cases) {
        SCOPED_TRACE(l.name);
        Reset(l.links, l.flags);
        if (l.gesture == DragTo) Drag(At(l.from), At(l.to));
        if (l.gesture == DoubleClick) Click(At(l.from), 0, 2);
        if (l.gesture == MenuItem) Menu(At(l.from));
        if (l.gesture == NoMenu) Click(At(l.from), 1);
        Draw();
        EXPECT_EQ(State(), l.after);
        EXPECT_EQ(OpenPopups(), 0);
        EXPECT_FALSE(editor.boxSelecting) << "a pin takes the drag";
        for (Node const* node : editor.nodes) {
            EXPECT_FALSE(node->draggingOutput || node->disconnectOutput);
            EXPECT_EQ(node->draggingInput, -1);
        }
        if (editor.nodes.size() != 3) EXPECT_TRUE(editor.changed) << "deleting a node is a change";
    }
}

TEST_F(NodeLinking, CanvasMenuAddsANodeCentredOnTheClick) {
    editor.pan = ImVec2(20.0f, -10.0f);
    Idle(2);
    Menu(ImVec2(740.0f, 130.0f));
    EXPECT_EQ(State(), "A:-- B:-- C:-- New Node:--");
    Node const* added = editor.nodes.back();
    ExpectNear(added->pos + added->size * 0.5f, (ImVec2(740.0f, 130.0f) - kOrigin) / editor.Scale() - editor.pan, "centre");
    EXPECT_TRUE(editor.changed);
}

TEST_F(NodeLinking, RightClickDuringAnOutputDragLinksAndGoesOn) {
    Drag(At({0, kOutput}), At({1, 0}), 0, [&] {
        Click(At({1, 0}), 1);
        EXPECT_EQ(State(), "A:-- B*:0- C:--");
        EXPECT_TRUE(a->draggingOutput);
        MoveTo(At({2, 1}));
        Draw();
    });
    EXPECT_EQ(State(), "A:-- B*:0- C*:-0");
    EXPECT_EQ(OpenPopups(), 0);
}

TEST_F(NodeLinking, HiddenNodesHaveNoPinsAndNoLinks) {
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

} // namespace
} // namespace nodetest
