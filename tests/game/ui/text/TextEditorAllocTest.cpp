// Drawing a frame of the code view allocates nothing once it has settled: every
// operator new in this program is counted.
#include "TextEditorFixture.hpp"
#include "support/CountedAllocations.hpp"

namespace uitest {
namespace {

TEST_F(TextEditorTest, SteadyFramesAllocateNothing) {
    std::string text;
    for (int i = 0; i < 200; ++i)
        text += "\tvar $_x" + std::to_string(i) + " = input_number(0, " + std::to_string(i) + ") # \"s\"\n";
    editor.SetText(text);
    editor.SetSelection(Coords{3, 2}, Coords{9, 5});
    editor.Focus();
    MouseTo(100.0f, 50.0f);
    for (int i = 0; i < 5; ++i) Draw();
    long const before = testsupport::allocations.load();
    // Holding an arrow key moves the cursor every frame once it repeats.
    Key(GLFW_KEY_DOWN, true);
    for (int i = 0; i < 60; ++i) Draw();
    Key(GLFW_KEY_DOWN, false);
    Draw();
    EXPECT_EQ(testsupport::allocations.load() - before, 0);
    EXPECT_GT(editor.GetCursorPosition().line, 9);
}

} // namespace
} // namespace uitest
