// The code view in rendered frames: selection by keys and mouse, the clipboard,
// read-only and editable input, scrolling and drawing.
#include "TextEditorFixture.hpp"

namespace uitest {
namespace {

// --- selection ----------------------------------------------------------------------------

using TextEditorSelection = TextEditorTest;

TEST_F(TextEditorSelection, ShiftArrowsExtendAndPlainArrowsCollapse) {
    editor.SetText("abc\ndef\nghi");
    FocusEditor();
    Press({GLFW_KEY_LEFT_SHIFT, GLFW_KEY_RIGHT});
    Press({GLFW_KEY_LEFT_SHIFT, GLFW_KEY_RIGHT});
    EXPECT_EQ(editor.GetSelectedText(), "ab");
    Press({GLFW_KEY_LEFT_SHIFT, GLFW_KEY_DOWN});
    EXPECT_EQ(editor.GetSelectedText(), "abc\nde");
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{1, 2}));
    Press({GLFW_KEY_LEFT});
    EXPECT_FALSE(editor.HasSelection());
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 0})); // collapsed to the selection's start
    Press({GLFW_KEY_RIGHT});
    Press({GLFW_KEY_LEFT_SHIFT, GLFW_KEY_END});
    EXPECT_EQ(editor.GetSelectedText(), "bc");
    Press({GLFW_KEY_LEFT_SHIFT, GLFW_KEY_LEFT_CONTROL, GLFW_KEY_END});
    EXPECT_EQ(editor.GetSelectedText(), "bc\ndef\nghi");
    Press({GLFW_KEY_LEFT_SHIFT, GLFW_KEY_LEFT_CONTROL, GLFW_KEY_HOME});
    EXPECT_EQ(editor.GetSelectedText(), "a");
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 0}));
}

TEST_F(TextEditorSelection, NavigationKeys) {
    editor.SetText("abc\nde\nfghij");
    FocusEditor();
    editor.SetCursorPosition(Coords{0, 3});
    Press({GLFW_KEY_DOWN});
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{1, 2})); // clamped to the shorter line
    Press({GLFW_KEY_DOWN});
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{2, 3})); // keeps the column it came from
    Press({GLFW_KEY_HOME});
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{2, 0}));
    Press({GLFW_KEY_LEFT});
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{1, 2})); // wraps to the line above
    Press({GLFW_KEY_RIGHT});
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{2, 0}));
    Press({GLFW_KEY_END});
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{2, 5}));
    Press({GLFW_KEY_RIGHT});
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{2, 5})); // the end stays the end
    Press({GLFW_KEY_LEFT_CONTROL, GLFW_KEY_HOME});
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 0}));
    Press({GLFW_KEY_UP});
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 0}));
    Press({GLFW_KEY_LEFT_CONTROL, GLFW_KEY_END});
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{2, 5}));
    EXPECT_FALSE(editor.HasSelection());
}

TEST_F(TextEditorSelection, UpAndDownMeasureTabsAsFourColumns) {
    editor.SetText("\tx\nabcdef");
    FocusEditor();
    editor.SetCursorPosition(Coords{0, 1}); // visual column 4
    Press({GLFW_KEY_DOWN});
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{1, 4}));
    Press({GLFW_KEY_UP});
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 1}));
}

TEST_F(TextEditorSelection, PageKeysMoveByAWindowOfLines) {
    std::string text;
    for (int i = 0; i < 300; ++i) text += "line " + std::to_string(i) + "\n";
    editor.SetText(text);
    FocusEditor();
    Press({GLFW_KEY_PAGE_DOWN});
    int const page = editor.GetCursorPosition().line;
    float const visible = 360.0f / editor.GetLineHeight();
    EXPECT_GT(page, static_cast<int>(visible) - 4);
    EXPECT_LE(page, static_cast<int>(visible));
    Press({GLFW_KEY_PAGE_DOWN});
    EXPECT_EQ(editor.GetCursorPosition().line, 2 * page);
    Press({GLFW_KEY_LEFT_SHIFT, GLFW_KEY_PAGE_UP});
    EXPECT_EQ(editor.GetCursorPosition().line, page);
    EXPECT_TRUE(editor.HasSelection());
    Press({GLFW_KEY_PAGE_UP});
    Press({GLFW_KEY_PAGE_UP});
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 0}));
}

TEST_F(TextEditorSelection, MouseDragSelects) {
    editor.SetText("abcdef\nghijkl\nmnopqr");
    Draw();
    // Layout sanity: characters are a fixed width apart, lines a line height.
    ImVec2 const a = editor.GetCharacterScreenPos(Coords{0, 0});
    ImVec2 const b = editor.GetCharacterScreenPos(Coords{1, 3});
    EXPECT_FLOAT_EQ(b.x - a.x, 3.0f * ImGui::CalcTextSize("#").x);
    EXPECT_FLOAT_EQ(b.y - a.y, editor.GetLineHeight());
    EXPECT_GT(a.x, 0.0f); // the gutter comes first

    ImVec2 const from = At(Coords{0, 1});
    ImVec2 const to = At(Coords{2, 3});
    MouseTo(from.x, from.y);
    Mouse(0, true);
    Draw();
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 1}));
    MouseTo(0.5f * (from.x + to.x), 0.5f * (from.y + to.y));
    Draw();
    MouseTo(to.x, to.y);
    Draw();
    Mouse(0, false);
    Draw();
    EXPECT_EQ(editor.GetSelectionStart(), (Coords{0, 1}));
    EXPECT_EQ(editor.GetSelectionEnd(), (Coords{2, 3}));
    EXPECT_EQ(editor.GetSelectedText(), "bcdef\nghijkl\nmno");
    EXPECT_TRUE(editor.IsFocused()); // the click focused it
    // Moving after the release changes nothing.
    MouseTo(from.x, from.y);
    Draw();
    EXPECT_EQ(editor.GetSelectedText(), "bcdef\nghijkl\nmno");
}

TEST_F(TextEditorSelection, DragBackwardsAndPastTheEnds) {
    editor.SetText("abcdef\nghijkl");
    Draw();
    ImVec2 const from = At(Coords{1, 2});
    MouseTo(from.x, from.y);
    Mouse(0, true);
    Draw();
    MouseTo(-50.0f, -50.0f); // above and left of the window
    Draw();
    Mouse(0, false);
    Draw();
    EXPECT_EQ(editor.GetSelectedText(), "abcdef\ngh");
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 0}));
}

TEST_F(TextEditorSelection, ClickPlacesTheCursorAndShiftClickExtends) {
    editor.SetText("const $speed = 2.5\nvar $x");
    Draw();
    Click(At(Coords{0, 3}));
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 3}));
    EXPECT_FALSE(editor.HasSelection());
    Click(At(Coords{1, 2}), true);
    EXPECT_EQ(editor.GetSelectedText(), "st $speed = 2.5\nva");
    // A click past a line's end lands at its end.
    ImVec2 const beyond = At(Coords{1, 6});
    Click(ImVec2(beyond.x + 100.0f, beyond.y));
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{1, 6}));
}

TEST_F(TextEditorSelection, DoubleClickSelectsAWord) {
    editor.SetText("const $speed = 2.5");
    Draw();
    ImVec2 const p = At(Coords{0, 8});
    MouseTo(p.x, p.y);
    Mouse(0, true);
    Draw();
    Mouse(0, false);
    Draw();
    Mouse(0, true);
    Draw();
    Mouse(0, false);
    Draw();
    EXPECT_EQ(editor.GetSelectedText(), "$speed");
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 12}));
}

TEST_F(TextEditorSelection, CtrlACtrlCPutsTheWholeTextOnTheClipboard) {
    std::string const text = "update\n\tprint(text(\"{}\", $x))\n";
    editor.SetText(text);
    FocusEditor();
    ImGui::SetClipboardText("before");
    Press({GLFW_KEY_LEFT_CONTROL, GLFW_KEY_A});
    EXPECT_EQ(editor.GetSelectedText(), text);
    Press({GLFW_KEY_LEFT_CONTROL, GLFW_KEY_C});
    EXPECT_EQ(Clipboard(), text);
    EXPECT_EQ(editor.GetText(), text);
}

TEST_F(TextEditorSelection, CtrlInsertCopiesAndNothingSelectedCopiesNothing) {
    editor.SetText("abc def");
    FocusEditor();
    ImGui::SetClipboardText("kept");
    Press({GLFW_KEY_LEFT_CONTROL, GLFW_KEY_C});
    EXPECT_EQ(Clipboard(), "kept");
    editor.SetSelection(Coords{0, 4}, Coords{0, 7});
    Press({GLFW_KEY_RIGHT_CONTROL, GLFW_KEY_INSERT});
    EXPECT_EQ(Clipboard(), "def");
}

TEST_F(TextEditorSelection, KeysNeedTheFocus) {
    editor.SetText("abc");
    Draw();
    ASSERT_FALSE(editor.IsFocused());
    Press({GLFW_KEY_RIGHT});
    Press({GLFW_KEY_LEFT_CONTROL, GLFW_KEY_A});
    TypeText(U"x");
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 0}));
    EXPECT_FALSE(editor.HasSelection());
    EXPECT_EQ(editor.GetText(), "abc");
}

// --- read-only ----------------------------------------------------------------------------

using TextEditorReadOnly = TextEditorTest;

TEST_F(TextEditorReadOnly, RefusesEveryEdit) {
    std::string const text = "var $a = 1\nvar $b = 2";
    editor.SetText(text);
    editor.SetReadOnly(true);
    FocusEditor();
    ImGui::SetClipboardText("pasted");
    editor.SetSelection(Coords{0, 4}, Coords{0, 6});
    TypeText(U"xyz");
    Press({GLFW_KEY_BACKSPACE});
    Press({GLFW_KEY_DELETE});
    Press({GLFW_KEY_ENTER});
    Press({GLFW_KEY_TAB});
    Press({GLFW_KEY_LEFT_CONTROL, GLFW_KEY_V});
    Press({GLFW_KEY_LEFT_SHIFT, GLFW_KEY_INSERT});
    Press({GLFW_KEY_LEFT_CONTROL, GLFW_KEY_X});
    EXPECT_FALSE(editor.IsTextChanged());
    editor.Paste();
    editor.Cut();
    editor.InsertText("direct");
    editor.DeleteSelection();
    EXPECT_EQ(editor.GetText(), text);
    EXPECT_FALSE(editor.IsTextChanged());
    EXPECT_EQ(Clipboard(), "pasted"); // cutting copied nothing either
    EXPECT_EQ(editor.GetSelectedText(), "$a");
}

TEST_F(TextEditorReadOnly, AllowsSelectionAndCopy) {
    editor.SetText("abc\ndef");
    editor.SetReadOnly(true);
    Draw();
    Click(At(Coords{0, 1}));
    Press({GLFW_KEY_LEFT_SHIFT, GLFW_KEY_DOWN});
    EXPECT_EQ(editor.GetSelectedText(), "bc\nd");
    Press({GLFW_KEY_LEFT_CONTROL, GLFW_KEY_C});
    EXPECT_EQ(Clipboard(), "bc\nd");
    Press({GLFW_KEY_LEFT_CONTROL, GLFW_KEY_A});
    editor.Copy();
    EXPECT_EQ(Clipboard(), "abc\ndef");
    EXPECT_TRUE(editor.IsReadOnly());
}

// --- editing ------------------------------------------------------------------------------

using TextEditorEditing = TextEditorTest;

TEST_F(TextEditorEditing, TypingInsertsAtTheCursor) {
    editor.SetText("ac");
    FocusEditor();
    editor.SetCursorPosition(Coords{0, 1});
    TypeText(U"b");
    EXPECT_EQ(editor.GetText(), "abc");
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 2}));
    EXPECT_TRUE(editor.IsTextChanged());
    Draw();
    EXPECT_FALSE(editor.IsTextChanged()); // a frame without edits
    TypeText(U"\u00FC\u20AC");
    EXPECT_EQ(editor.GetText(), "ab\xC3\xBC\xE2\x82\xAC" "c");
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 4}));
    Press({GLFW_KEY_BACKSPACE});
    EXPECT_EQ(editor.GetText(), "ab\xC3\xBC" "c");
}

TEST_F(TextEditorEditing, TypingReplacesTheSelection) {
    editor.SetText("var $old = 1");
    FocusEditor();
    editor.SetSelection(Coords{0, 5}, Coords{0, 8});
    TypeText(U"new");
    EXPECT_EQ(editor.GetText(), "var $new = 1");
    EXPECT_FALSE(editor.HasSelection());
}

TEST_F(TextEditorEditing, ControlCharactersAndCtrlChordsDoNotType) {
    editor.SetText("");
    FocusEditor();
    TypeText(U"\x01\x7F");
    Key(GLFW_KEY_LEFT_CONTROL, true);
    TypeText(U"q");
    Key(GLFW_KEY_LEFT_CONTROL, false);
    Draw();
    EXPECT_EQ(editor.GetText(), "");
}

TEST_F(TextEditorEditing, EnterKeepsTheLeadingTabs) {
    editor.SetText("update\n\t\tif $a");
    FocusEditor();
    editor.SetCursorPosition(Coords{1, 99});
    Press({GLFW_KEY_ENTER});
    TypeText(U"x");
    EXPECT_EQ(editor.GetText(), "update\n\t\tif $a\n\t\tx");
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{2, 3}));
    Press({GLFW_KEY_TAB});
    EXPECT_EQ(editor.GetLineText(2), "\t\tx\t");
    editor.SetCursorPosition(Coords{0, 3});
    Press({GLFW_KEY_KP_ENTER});
    EXPECT_EQ(editor.GetText(), "upd\nate\n\t\tif $a\n\t\tx\t");
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{1, 0}));
}

TEST_F(TextEditorEditing, BackspaceJoinsLinesAndDeletes) {
    editor.SetText("ab\ncd");
    FocusEditor();
    editor.SetCursorPosition(Coords{1, 0});
    Press({GLFW_KEY_BACKSPACE});
    EXPECT_EQ(editor.GetText(), "abcd");
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 2}));
    Press({GLFW_KEY_BACKSPACE});
    EXPECT_EQ(editor.GetText(), "acd");
    editor.SetCursorPosition(Coords{0, 0});
    Press({GLFW_KEY_BACKSPACE});
    EXPECT_EQ(editor.GetText(), "acd");
    editor.SetSelection(Coords{0, 1}, Coords{0, 3});
    Press({GLFW_KEY_BACKSPACE});
    EXPECT_EQ(editor.GetText(), "a");
}

TEST_F(TextEditorEditing, DeleteRemovesForwardAndJoinsLines) {
    editor.SetText("ab\ncd\n");
    FocusEditor();
    editor.SetCursorPosition(Coords{0, 1});
    Press({GLFW_KEY_DELETE});
    EXPECT_EQ(editor.GetText(), "a\ncd\n");
    Press({GLFW_KEY_DELETE});
    EXPECT_EQ(editor.GetText(), "acd\n");
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 1}));
    editor.SetCursorPosition(Coords{1, 0});
    Press({GLFW_KEY_DELETE}); // at the very end: nothing follows
    EXPECT_EQ(editor.GetText(), "acd\n");
    editor.SetSelection(Coords{0, 3}, Coords{0, 0});
    Press({GLFW_KEY_DELETE});
    EXPECT_EQ(editor.GetText(), "\n");
}

TEST_F(TextEditorEditing, PasteReplacesTheSelection) {
    editor.SetText("abcd");
    FocusEditor();
    ImGui::SetClipboardText("XY\r\nZ");
    editor.SetSelection(Coords{0, 1}, Coords{0, 3});
    Key(GLFW_KEY_LEFT_CONTROL, true);
    Key(GLFW_KEY_V, true);
    Draw();
    EXPECT_EQ(editor.GetText(), "aXY\nZd");
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{1, 1}));
    EXPECT_TRUE(editor.IsTextChanged()); // reported for the frame that pasted
    Key(GLFW_KEY_V, false);
    Key(GLFW_KEY_LEFT_CONTROL, false);
    Draw();
    EXPECT_FALSE(editor.IsTextChanged());
    EXPECT_EQ(editor.GetText(), "aXY\nZd"); // once per press
    Press({GLFW_KEY_LEFT_SHIFT, GLFW_KEY_INSERT});
    EXPECT_EQ(editor.GetText(), "aXY\nZXY\nZd");
}

TEST_F(TextEditorEditing, CutCopiesThenDeletes) {
    editor.SetText("one\ntwo\nthree");
    FocusEditor();
    editor.SetSelection(Coords{0, 2}, Coords{2, 1});
    Press({GLFW_KEY_LEFT_CONTROL, GLFW_KEY_X});
    EXPECT_EQ(Clipboard(), "e\ntwo\nt");
    EXPECT_EQ(editor.GetText(), "onhree");
    EXPECT_EQ(editor.GetTotalLines(), 1);
    editor.SetSelection(Coords{0, 0}, Coords{0, 2});
    Press({GLFW_KEY_LEFT_SHIFT, GLFW_KEY_DELETE});
    EXPECT_EQ(Clipboard(), "on");
    EXPECT_EQ(editor.GetText(), "hree");
    // Paste through the public call puts it back.
    editor.SetCursorPosition(Coords{0, 0});
    editor.Paste();
    EXPECT_EQ(editor.GetText(), "onhree");
}

TEST_F(TextEditorEditing, ManyLinesInsertedAndRemoved) {
    editor.SetText("start end");
    std::string block;
    for (int i = 0; i < 50; ++i) block += "\tline " + std::to_string(i) + "\n";
    editor.SetCursorPosition(Coords{0, 6});
    editor.InsertText(block);
    EXPECT_EQ(editor.GetTotalLines(), 51);
    EXPECT_EQ(editor.GetLineText(0), "start \tline 0");
    EXPECT_EQ(editor.GetLineText(50), "end");
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{50, 0}));
    editor.SetSelection(Coords{0, 6}, Coords{50, 0});
    EXPECT_EQ(editor.GetSelectedText(), block);
    editor.DeleteSelection();
    EXPECT_EQ(editor.GetText(), "start end");
}

// --- scrolling and drawing ----------------------------------------------------------------

using TextEditorView = TextEditorTest;

TEST_F(TextEditorView, ScrollsToKeepTheCursorVisible) {
    std::string text;
    for (int i = 0; i < 400; ++i) text += "line " + std::to_string(i) + "\n";
    text += std::string(600, 'x');
    editor.SetText(text);
    FocusEditor();
    EXPECT_EQ(editor.GetScroll().y, 0.0f);
    Press({GLFW_KEY_LEFT_CONTROL, GLFW_KEY_END});
    Draw();
    EXPECT_GT(editor.GetScroll().y, 300.0f * editor.GetLineHeight());
    EXPECT_GT(editor.GetScroll().x, 400.0f * editor.GetCharacterWidth());
    // The cursor's line is inside the window.
    ImVec2 const cursor = editor.GetCharacterScreenPos(editor.GetCursorPosition());
    EXPECT_GE(cursor.y, 0.0f);
    EXPECT_LE(cursor.y + editor.GetLineHeight(), 360.0f);
    EXPECT_GE(cursor.x, 0.0f);
    EXPECT_LE(cursor.x, 640.0f);
    Press({GLFW_KEY_LEFT_CONTROL, GLFW_KEY_HOME});
    Draw();
    EXPECT_EQ(editor.GetScroll().y, 0.0f);
    EXPECT_EQ(editor.GetScroll().x, 0.0f);
}

TEST_F(TextEditorView, WheelScrolls) {
    std::string text;
    for (int i = 0; i < 400; ++i) text += "line\n";
    editor.SetText(text);
    Draw();
    ImVec2 const p = At(Coords{2, 1});
    MouseTo(p.x, p.y);
    Draw();
    Wheel(-3.0f);
    Draw();
    Draw();
    EXPECT_GT(editor.GetScroll().y, 0.0f);
}

TEST_F(TextEditorView, DrawsWithThePaletteColours) {
    Editor::Palette palette = Editor::GetDarkPalette();
    palette[static_cast<size_t>(Pal::Keyword)] = 0x12345678u;
    palette[static_cast<size_t>(Pal::LineNumber)] = 0x23456789u;
    palette[static_cast<size_t>(Pal::Selection)] = 0x3456789Au;
    palette[static_cast<size_t>(Pal::Background)] = 0x456789ABu;
    palette[static_cast<size_t>(Pal::Cursor)] = 0x56789ABCu;
    editor.SetPalette(palette);
    editor.SetText("var $x = 1\n\tprint($x)");
    Draw();
    EXPECT_TRUE(Drew(IM_COL32(0x12, 0x34, 0x56, 0x78)));
    EXPECT_TRUE(Drew(IM_COL32(0x23, 0x45, 0x67, 0x89)));
    EXPECT_TRUE(Drew(IM_COL32(0x45, 0x67, 0x89, 0xAB)));
    EXPECT_FALSE(Drew(IM_COL32(0x34, 0x56, 0x78, 0x9A))); // nothing selected
    EXPECT_FALSE(Drew(IM_COL32(0x56, 0x78, 0x9A, 0xBC))); // no focus, no cursor
    editor.SetSelection(Coords{0, 0}, Coords{1, 2});
    editor.Focus();
    Draw();
    EXPECT_TRUE(Drew(IM_COL32(0x34, 0x56, 0x78, 0x9A)));
    EXPECT_TRUE(Drew(IM_COL32(0x56, 0x78, 0x9A, 0xBC)));
}

TEST_F(TextEditorView, RenderingHandlesEmptyAndOddText) {
    for (char const* text : {"", "\n", "\t\t\t", "\xC3", "\xBC\xBC x", "a\x01" "b", "\"", "#", "1e", "$"}) {
        editor.SetText(text);
        editor.SelectAll();
        editor.Focus();
        Draw();
        EXPECT_EQ(editor.GetText(), text);
    }
}

} // namespace
} // namespace uitest
