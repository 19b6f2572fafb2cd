// Drawing frames of a settled node editor allocates nothing: every operator new
// in this program is counted.
#include "EditorHarness.hpp"
#include "support/CountedAllocations.hpp"

using testsupport::allocations;

namespace nodetest {
namespace {

using NodeEditorAllocation = EditorTest;

TEST_F(NodeEditorAllocation, SteadyFramesAllocateNothing) {
    std::vector<TestNode*> made;
    for (int i = 0; i < 40; ++i) {
        TestNode* node = Add("Node " + std::to_string(i), ImVec2(60.0f * static_cast<float>(i % 10), 120.0f * static_cast<float>(i / 10)), 3);
        if (i > 0) node->inputs[0] = made.back()->id;
        if (i > 1) node->inputs[2] = made[static_cast<size_t>(i - 2)]->id;
        node->selected = i % 3 == 0;
        made.push_back(node);
    }
    made[5]->visible = false;
    Idle(3);
    // Hover a node, then hold a link being dragged from an output.
    MoveTo(Title(made[12]));
    Idle(3);
    long const hovering = allocations.load();
    Idle(20);
    EXPECT_EQ(allocations.load() - hovering, 0);

    MoveTo(OutputPin(made[1]));
    Draw();
    Mouse(0, true);
    Draw();
    MoveTo(ImVec2(700.0f, 500.0f));
    Idle(3);
    long const dragging = allocations.load();
    for (int i = 0; i < 20; ++i) {
        MoveTo(ImVec2(700.0f + static_cast<float>(i), 500.0f));
        Draw();
    }
    EXPECT_EQ(allocations.load() - dragging, 0);
    EXPECT_TRUE(made[1]->draggingOutput);
    Mouse(0, false);
    Draw();
}

} // namespace
} // namespace nodetest
