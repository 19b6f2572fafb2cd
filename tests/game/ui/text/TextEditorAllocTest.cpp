// Drawing a frame of the code view allocates nothing once it has settled: every
// operator new in this program is counted.
#include "TextEditorFixture.hpp"
#include "support/CountedAllocations.hpp"

using testsupport::allocations;

namespace uitest {
namespace {

using TextEditorAllocation = TextEditorTest;

TEST_F(TextEditorAllocation, SteadyFramesAllocateNothing) {
    std::string text;
    for (int i = 0; i < 200; ++i)
        text += "\tvar $_x" + std::to_string(i) + " = input_number(0, " + std::to_string(i) + ") # \"s\"\n";
    editor.SetText(text);
    editor.SetSelection(Coords{3, 2}, Coords{9, 5});
    FocusEditor();
    ImVec2 const p = At(Coords{4, 4});
    MouseTo(p.x, p.y);
    for (int i = 0; i < 5; ++i) Draw();
    long const before = allocations.load();
    for (int i = 0; i < 20; ++i) Draw();
    // Holding an arrow key moves the cursor every frame once it repeats.
    Key(GLFW_KEY_DOWN, true);
    for (int i = 0; i < 60; ++i) Draw();
    Key(GLFW_KEY_DOWN, false);
    Draw();
    EXPECT_EQ(allocations.load() - before, 0);
    EXPECT_GT(editor.GetCursorPosition().line, 9);
}

} // namespace
} // namespace uitest
