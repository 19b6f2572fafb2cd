// Selecting, moving, resizing, panning and zooming through the headless Dear ImGui.
#include "EditorHarness.hpp"

#include <optional>

namespace nodetest {
namespace {

using NodeEditing = EditorTest;

/// From the selection `before` (bits of A, B and C), a click at `from`, or a drag from
/// `from` to `to`, with left Ctrl held when `ctrl`, leaves the selection `after`.
struct SelectCase { char const* name; int before; bool ctrl; Spot from; std::optional<Spot> to; int after; int flags = 0; };

TEST_F(NodeEditing, ClicksAndBoxesSelect) {
    // A box takes a node when the middle of its title, a third of the node down, is inside.
    SelectCase const cases[] = {
        {"a box selects", 0, false, {-1, 0, {100, 100}}, Spot{1, kTitle, {8, 26}}, 0b011},
        {"one that misses a third of the way down does not", 0, false, {-1, 0, {100, 100}}, Spot{1, kTitle, {8, 16}}, 0b001},
        {"from the other corner, Ctrl adding", 0b001, true, {2, kTitle, {48, 56}}, Spot{2, kTitle, {-22, -14}}, 0b101},
        {"read-only too", 0, false, {-1, 0, {100, 100}}, Spot{1, kTitle, {8, 26}}, 0b011, kReadOnly},
        {"a click on the canvas clears", 0b011, false, {-1, 0, {800, 500}}, {}, 0b000},
        {"but not with Ctrl", 0b011, true, {-1, 0, {800, 500}}, {}, 0b011},
        {"Ctrl+click on a title selects", 0b000, true, {0, kTitle}, {}, 0b001},
        {"and deselects", 0b001, true, {0, kTitle}, {}, 0b000},
        {"a plain click on a title neither selects nor clears", 0b010, false, {0, kTitle}, {}, 0b010},
    };
    for (SelectCase const& s : cases) {
        SCOPED_TRACE(s.name);
        Reset("------", s.flags, s.before);
        Key(GLFW_KEY_LEFT_CONTROL, s.ctrl);
        if (s.to)
            Drag(At(s.from), At(*s.to), 0, [&] { EXPECT_TRUE(editor.boxSelecting); });
        else
            Click(At(s.from));
        Key(GLFW_KEY_LEFT_CONTROL, false);
        EXPECT_FALSE(editor.boxSelecting);
        EXPECT_EQ(a->selected | b->selected << 1 | c->selected << 2, s.after);
    }
    Reset();
    Click(At({0, kTitle}), 0, 2);
    EXPECT_EQ(a->doubleClicks, 1) << "a double click goes to the node";
}

/// Dragging A's title to `to` leaves A at `pos`; B, selected, moves along.
struct MoveCase { char const* name; Spot to; ImVec2 pos; int flags = 0; bool snap = false; ImVec2 pan{}; };

TEST_F(NodeEditing, DraggingATitleMovesTheSelection) {
    MoveCase const cases[] = {
        {"with the pointer", {0, kTitle, {100, 40}}, {200, 140}},
        {"in logical units when zoomed", {0, kTitle, {100, 40}}, {150, 120}, kZoomed, false, {-50, -50}},
        {"Shift snaps to tens", {0, kTitle, {33, 17}}, {130, 120}, 0, true},
        {"keeping its centre in the window", {-1, 0, {5000, 5000}}, {1000 - 17.5f, 600 - 37.5f}},
        {"panned", {-1, 0, {-5000, -5000}}, {-17.5f - 10, -37.5f - 20}, 0, false, {10, 20}},
        {"not when fixed", {0, kTitle, {100, 40}}, {100, 100}, kFixed},
        {"nor read-only", {0, kTitle, {100, 40}}, {100, 100}, kReadOnly},
    };
    for (MoveCase const& m : cases) {
        SCOPED_TRACE(m.name);
        Reset("------", m.flags, 0b010);
        editor.pan = m.pan;
        Draw();
        ImVec2 const b0 = b->pos;
        Key(GLFW_KEY_LEFT_SHIFT, m.snap);
        Drag(At({0, kTitle}), At(m.to));
        Key(GLFW_KEY_LEFT_SHIFT, false);
        ExpectNear(a->pos, m.pos, "A");
        ExpectNear(b->pos - b0, a->pos - ImVec2(100.0f, 100.0f), "B");
        bool const moved = m.flags == 0 || m.flags == kZoomed;
        EXPECT_EQ(editor.changed, moved);
        if (moved) EXPECT_TRUE(b->selected) << "the release after a move keeps the selection";
        EXPECT_EQ(editor.movingNode, nullptr);
    }
}

TEST_F(NodeEditing, AZoomInTheMiddleOfAMoveKeepsTheGrabOfThePress) {
    ImVec2 const from = At({0, kTitle});
    ImVec2 const to = from + ImVec2(100.0f, 30.0f);
    Drag(from, from + ImVec2(40.0f, 0.0f), 0, [&] {
        ImVec2 const grab = editor.grabOffset;
        EXPECT_FLOAT_EQ(a->pos.x, 140.0f);
        EXPECT_EQ(editor.movingNode, a);
        Wheel(1.0f);
        Draw();
        EXPECT_EQ(editor.movingNode, nullptr) << "the zoom lets go of the node, and it is taken only when a press starts";
        // The title is still held: the node follows the pointer with the offset
        // taken when the press started, now at the new scale.
        MoveTo(to);
        Draw();
        ExpectNear(editor.grabOffset, grab, "grab");
        ExpectNear(a->pos, (to - kOrigin - grab) / editor.Scale(), "A");
    });
}

/// Dragging the resize corner of A, 200 by 200, to `to` gives `held` while the button
/// is down and `size` after.
struct ResizeCase { char const* name; Spot to; ImVec2 held, size; int flags = 0; };

TEST_F(NodeEditing, DraggingTheCornerResizes) {
    ResizeCase const cases[] = {
        {"with the pointer, which starts 3 pixels inside", {0, kCorner, {50, 30}}, {247, 227}, {247, 227}},
        {"up to 2000, springing back to 1000", {-1, 0, {4000, 4000}}, {2000, 2000}, {1000, 1000}},
        {"never below the minimum", {0, kTitle, {-12, -4}}, {35, 75}, {35, 75}},
        {"not read-only", {0, kCorner, {80, 80}}, {200, 200}, {200, 200}, kReadOnly},
    };
    for (ResizeCase const& r : cases) {
        SCOPED_TRACE(r.name);
        Reset("------", r.flags);
        a->size = ImVec2(200.0f, 200.0f);
        Draw();
        Drag(At({0, kCorner}), At(r.to), 0, [&] {
            ExpectNear(a->size, r.held, "held");
            EXPECT_EQ(editor.resizingNode, r.flags ? nullptr : a);
        });
        Draw();
        ExpectNear(a->size, r.size, "released");
        EXPECT_EQ(editor.resizingNode, nullptr);
        EXPECT_EQ(editor.changed, !r.flags);
    }
}

/// A drag with `button` by `by` pixels, at zoom 2 unless read-only, pans by `pan` and opens no menu.
struct PanCase { char const* name; int button; ImVec2 by, pan; int flags = kZoomed; };

TEST_F(NodeEditing, RightAndMiddleDragsPanAndTheWheelZooms) {
    PanCase const cases[] = {
        {"right drag, by pixels over the scale", 1, {60, -40}, {30, -20}},
        {"middle drag", 2, {-20, 10}, {-10, 5}},
        {"read-only too", 1, {50, 20}, {50, 20}, kReadOnly},
    };
    for (PanCase const& p : cases) {
        SCOPED_TRACE(p.name);
        Reset("------", p.flags);
        Drag(ImVec2(800.0f, 500.0f), ImVec2(800.0f, 500.0f) + p.by, p.button);
        ExpectNear(editor.pan, p.pan, "pan");
        EXPECT_FALSE(editor.panning);
        EXPECT_EQ(OpenPopups(), 0);
    }
    editor.pan = ImVec2(50000.0f, -5000.0f);
    Draw();
    ExpectNear(editor.pan, ImVec2(40000.0f, -4000.0f), "clamped");
    // The wheel zooms one step whatever its size, about the pointer.
    Reset();
    ImVec2 const at(700.0f, 450.0f);
    auto under = [&] { return (at - kOrigin) / editor.Scale() - editor.pan; };
    MoveTo(at);
    Draw();
    ImVec2 const before = under();
    for (float const wheel : {1.0f, -3.0f}) {
        Wheel(wheel);
        Draw();
        EXPECT_FLOAT_EQ(editor.zoom, wheel > 0.0f ? 1.125f : 1.0f) << "0.984 snaps to 1";
        ExpectNear(under(), before, "under the pointer");
    }
}

TEST_F(NodeEditing, RenderAndKeysFollowTheWindowsFocus) {
    EXPECT_TRUE(focused);
    a->selected = true;
    Draw(editor, true); // another window appears and takes the focus
    Draw(editor, true);
    EXPECT_FALSE(focused);
    EXPECT_FALSE(editor.copyArmed || editor.pasteArmed);
    Key(GLFW_KEY_DELETE, true);
    Draw(editor, true);
    Key(GLFW_KEY_DELETE, false);
    EXPECT_EQ(editor.nodes.size(), 3u);
}

} // namespace
} // namespace nodetest
