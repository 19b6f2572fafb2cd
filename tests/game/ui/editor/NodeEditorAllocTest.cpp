// Drawing frames of a settled node editor allocates nothing: every operator new
// in this program is counted.
#include "EditorHarness.hpp"
#include "support/CountedAllocations.hpp"

namespace nodetest {
namespace {

TEST_F(EditorTest, SteadyFramesAllocateNothing) {
    for (int i = 3; i < 40; ++i) {
        TestNode* node = Add("Node", ImVec2(600.0f + 40.0f * static_cast<float>(i % 10), 20.0f + 100.0f * static_cast<float>(i / 10)), 3);
        node->inputs[0] = editor.nodes[static_cast<size_t>(i - 1)]->id;
        node->inputs[2] = editor.nodes[static_cast<size_t>(i - 2)]->id;
        node->selected = i % 3 == 0;
    }
    editor.nodes[5]->visible = false;
    MoveTo(At({0, kTitle}));
    Idle(3);
    long const hovering = testsupport::allocations.load();
    Idle(20);
    EXPECT_EQ(testsupport::allocations.load() - hovering, 0) << "hovering a node";
    Drag(At({1, kOutput}), ImVec2(700.0f, 500.0f), 0, [&] {
        Idle(3);
        long const dragging = testsupport::allocations.load();
        for (int i = 0; i < 20; ++i) {
            MoveTo(ImVec2(700.0f + static_cast<float>(i), 500.0f));
            Draw();
        }
        EXPECT_EQ(testsupport::allocations.load() - dragging, 0) << "dragging a link";
        EXPECT_TRUE(b->draggingOutput);
    });
}

} // namespace
} // namespace nodetest
