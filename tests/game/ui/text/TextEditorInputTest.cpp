// The code view in rendered frames: keys and typing, the mouse, the clipboard,
// read-only use, scrolling and drawing.
#include "TextEditorFixture.hpp"

#include <algorithm>

namespace uitest {
namespace {

constexpr int Ctrl = GLFW_KEY_LEFT_CONTROL, Shift = GLFW_KEY_LEFT_SHIFT, Left = GLFW_KEY_LEFT, Right = GLFW_KEY_RIGHT,
              Up = GLFW_KEY_UP, Down = GLFW_KEY_DOWN, Home = GLFW_KEY_HOME, End = GLFW_KEY_END, Ins = GLFW_KEY_INSERT,
              Del = GLFW_KEY_DELETE, Back = GLFW_KEY_BACKSPACE, Enter = GLFW_KEY_ENTER, Tab = GLFW_KEY_TAB,
              PgUp = GLFW_KEY_PAGE_UP, PgDn = GLFW_KEY_PAGE_DOWN, A = GLFW_KEY_A, C = GLFW_KEY_C, V = GLFW_KEY_V,
              X = GLFW_KEY_X;
enum Mode { Focused, ReadOnly, Unfocused };

/// From `text` with the selection running from `anchor` to `cursor`, the chords are
/// pressed one after another (`typed` typed during the last one) and give `after`
/// (null: unchanged) with the selection from `anchor2` to `cursor2`. The clipboard
/// holds "XY\r\nZ" before and `clipboard` after (null: unchanged).
struct KeyCase {
    char const* name; std::string text; Coords anchor, cursor; std::vector<std::vector<int>> chords;
    char const* after; Coords anchor2, cursor2; std::u32string typed = U""; char const* clipboard = nullptr; Mode mode = Focused;
};

std::string Lines(int count) {
    std::string text;
    for (int i = 0; i < count; ++i) text += "line " + std::to_string(i) + "\n";
    return text;
}

using TextEditorKeys = TextEditorTest;

TEST_F(TextEditorKeys, PressesInStatesGiveTextSelectionAndClipboard) {
    std::string const abc = "abc\ndef\nghi", nav = "abc\nde\nfghij", page = Lines(300);
    std::string const code = "update\n\tprint(text(\"{}\", $x))\n";
    KeyCase const cases[] = {
        // Selection and movement.
        {"Shift+Right extends", abc, {0, 0}, {0, 0}, {{Shift, Right}, {Shift, Right}}, nullptr, {0, 0}, {0, 2}},
        {"Shift+Down extends by a line", abc, {0, 0}, {0, 2}, {{Shift, Down}}, nullptr, {0, 0}, {1, 2}},
        {"Left collapses to the selection's start", abc, {0, 0}, {1, 2}, {{Left}}, nullptr, {0, 0}, {0, 0}},
        {"Right collapses to the selection's end", abc, {1, 2}, {0, 0}, {{Right}}, nullptr, {1, 2}, {1, 2}},
        {"Shift+End", abc, {0, 1}, {0, 1}, {{Shift, End}}, nullptr, {0, 1}, {0, 3}},
        {"Shift+Ctrl+Home", abc, {0, 1}, {2, 3}, {{Shift, Ctrl, Home}}, nullptr, {0, 1}, {0, 0}},
        {"Down clamps to a shorter line", nav, {0, 3}, {0, 3}, {{Down}}, nullptr, {1, 2}, {1, 2}},
        {"Down keeps the column it came from", nav, {0, 3}, {0, 3}, {{Down}, {Down}}, nullptr, {2, 3}, {2, 3}},
        {"Down on the last line goes to its end", nav, {2, 1}, {2, 1}, {{Down}}, nullptr, {2, 5}, {2, 5}},
        {"Up on the first line goes to its start", nav, {0, 2}, {0, 2}, {{Up}}, nullptr, {0, 0}, {0, 0}},
        {"Home", nav, {2, 3}, {2, 3}, {{Home}}, nullptr, {2, 0}, {2, 0}},
        {"End", nav, {2, 1}, {2, 1}, {{End}}, nullptr, {2, 5}, {2, 5}},
        {"Left wraps to the line above", nav, {2, 0}, {2, 0}, {{Left}}, nullptr, {1, 2}, {1, 2}},
        {"Right wraps to the line below", nav, {1, 2}, {1, 2}, {{Right}}, nullptr, {2, 0}, {2, 0}},
        {"Right at the end stays", nav, {2, 5}, {2, 5}, {{Right}}, nullptr, {2, 5}, {2, 5}},
        {"Ctrl+End", nav, {0, 0}, {0, 0}, {{Ctrl, End}}, nullptr, {2, 5}, {2, 5}},
        {"Ctrl+Right skips a word and blanks", "const $x = 2", {0, 0}, {0, 0}, {{Ctrl, Right}}, nullptr, {0, 6}, {0, 6}},
        {"Ctrl+Left skips blanks and a word", "const $x = 2", {0, 9}, {0, 9}, {{Ctrl, Left}}, nullptr, {0, 6}, {0, 6}},
        {"Up and Down count a tab as four columns", "\tx\nabcdef", {0, 1}, {0, 1}, {{Down}}, nullptr, {1, 4}, {1, 4}},
        // The view's 344 pixels show 32 whole lines: a page is one less.
        {"PageDown", page, {0, 0}, {0, 0}, {{PgDn}, {PgDn}}, nullptr, {62, 0}, {62, 0}},
        {"Shift+PageUp", page, {62, 0}, {62, 0}, {{Shift, PgUp}}, nullptr, {62, 0}, {31, 0}},
        {"Escape drops the selection", abc, {0, 0}, {0, 2}, {{GLFW_KEY_ESCAPE}}, nullptr, {0, 2}, {0, 2}},
        // The clipboard.
        {"Ctrl+A, Ctrl+C copies everything", code, {1, 1}, {1, 1}, {{Ctrl, A}, {Ctrl, C}}, nullptr, {0, 0}, {2, 0}, U"", code.c_str()},
        {"Ctrl+C without a selection copies nothing", abc, {0, 1}, {0, 1}, {{Ctrl, C}}, nullptr, {0, 1}, {0, 1}},
        {"right Ctrl+Insert copies", "abc def", {0, 4}, {0, 7}, {{GLFW_KEY_RIGHT_CONTROL, Ins}}, nullptr, {0, 4}, {0, 7}, U"", "def"},
        {"Ctrl+X cuts", "one\ntwo\nthree", {0, 2}, {2, 1}, {{Ctrl, X}}, "onhree", {0, 2}, {0, 2}, U"", "e\ntwo\nt"},
        {"Shift+Delete cuts", "onhree", {0, 0}, {0, 2}, {{Shift, Del}}, "hree", {0, 0}, {0, 0}, U"", "on"},
        {"Ctrl+V replaces the selection", "abcd", {0, 1}, {0, 3}, {{Ctrl, V}}, "aXY\nZd", {1, 1}, {1, 1}},
        {"Shift+Insert pastes", "ad", {0, 1}, {0, 1}, {{Shift, Ins}}, "aXY\nZd", {1, 1}, {1, 1}},
        // Typing and editing keys.
        {"typing inserts UTF-8", "ac", {0, 1}, {0, 1}, {}, "ab\xC3\xBC\xE2\x82\xAC" "c", {0, 4}, {0, 4}, U"b\u00FC\u20AC"},
        {"typing replaces the selection", "var $old = 1", {0, 5}, {0, 8}, {}, "var $new = 1", {0, 8}, {0, 8}, U"new"},
        {"control characters do not type", "", {0, 0}, {0, 0}, {}, nullptr, {0, 0}, {0, 0}, U"\x01\x7F"},
        {"nor characters with Ctrl", "", {0, 0}, {0, 0}, {{Ctrl}}, nullptr, {0, 0}, {0, 0}, U"q"},
        {"Enter keeps the leading tabs", "update\n\t\tif", {1, 4}, {1, 4}, {{Enter}}, "update\n\t\tif\n\t\t", {2, 2}, {2, 2}},
        {"keypad Enter, taking the tabs before the cursor", "\t\tif", {0, 1}, {0, 1}, {{GLFW_KEY_KP_ENTER}}, "\t\n\t\tif", {1, 1}, {1, 1}},
        {"Tab", "\tx", {0, 2}, {0, 2}, {{Tab}}, "\tx\t", {0, 3}, {0, 3}},
        {"Backspace joins lines", "ab\ncd", {1, 0}, {1, 0}, {{Back}}, "abcd", {0, 2}, {0, 2}},
        {"Backspace takes a whole character", "a\xE2\x82\xAC" "c", {0, 2}, {0, 2}, {{Back}}, "ac", {0, 1}, {0, 1}},
        {"Backspace at the start", "acd", {0, 0}, {0, 0}, {{Back}}, nullptr, {0, 0}, {0, 0}},
        {"Backspace deletes the selection", "acd", {0, 1}, {0, 3}, {{Back}}, "a", {0, 1}, {0, 1}},
        {"Delete", "ab\ncd\n", {0, 1}, {0, 1}, {{Del}}, "a\ncd\n", {0, 1}, {0, 1}},
        {"Delete joins lines", "a\ncd\n", {0, 1}, {0, 1}, {{Del}}, "acd\n", {0, 1}, {0, 1}},
        {"Delete at the end", "acd\n", {1, 0}, {1, 0}, {{Del}}, nullptr, {1, 0}, {1, 0}},
        {"Delete takes a backwards selection", "acd\n", {0, 3}, {0, 0}, {{Del}}, "\n", {0, 0}, {0, 0}},
        // Read-only: selecting and copying only. Without the focus: nothing.
        {"read-only refuses every edit", "var $a = 1", {0, 4}, {0, 6},
         {{Back}, {Del}, {Enter}, {Tab}, {Ctrl, V}, {Shift, Ins}, {Ctrl, X}, {}}, nullptr, {0, 4}, {0, 6}, U"xyz", nullptr, ReadOnly},
        {"read-only selects and copies", abc, {0, 1}, {0, 1}, {{Shift, Down}, {Ctrl, C}}, nullptr, {0, 1}, {1, 1}, U"", "bc\nd", ReadOnly},
        {"keys need the focus", abc, {0, 0}, {0, 0}, {{Right}, {Ctrl, A}, {}}, nullptr, {0, 0}, {0, 0}, U"x", nullptr, Unfocused},
    };
    for (KeyCase const& c : cases) {
        SCOPED_TRACE(c.name);
        editor.SetText(c.text);
        editor.SetReadOnly(c.mode == ReadOnly);
        editor.SetSelection(c.anchor, c.cursor);
        ImGui::SetClipboardText("XY\r\nZ");
        if (c.mode == Unfocused) Frame([] { ImGui::SetWindowFocus(nullptr); });
        else editor.Focus();
        Draw();
        ASSERT_EQ(editor.IsFocused(), c.mode != Unfocused);
        bool changed = false;
        for (size_t i = 0; i < std::max<size_t>(c.chords.size(), 1); ++i)
            changed |= Press(c.chords.empty() ? std::vector<int>{} : c.chords[i], i + 1 >= c.chords.size() ? c.typed : U"");
        std::string const after = c.after != nullptr ? c.after : c.text;
        EXPECT_EQ(editor.GetText(), after);
        EXPECT_EQ(changed, after != c.text) << "reported for the frame that edited";
        EXPECT_FALSE(editor.IsTextChanged()) << "a frame without edits";
        EXPECT_EQ(editor.GetCursorPosition(), c.cursor2);
        EXPECT_EQ(editor.GetSelectionStart(), std::min(c.anchor2, c.cursor2));
        EXPECT_EQ(editor.GetSelectionEnd(), std::max(c.anchor2, c.cursor2));
        EXPECT_STREQ(ImGui::GetClipboardText(), c.clipboard != nullptr ? c.clipboard : "XY\r\nZ");
    }
    // The public calls refuse too when read-only.
    editor.SetText("abc");
    editor.SetReadOnly(true);
    editor.SelectAll();
    editor.Paste();
    editor.Cut();
    editor.InsertText("direct");
    editor.DeleteSelection();
    EXPECT_EQ(editor.GetText(), "abc");
    EXPECT_FALSE(editor.IsTextChanged());
}

// --- the mouse ----------------------------------------------------------------------------

/// Clicking `clicks` times at `to` (moved by `by` pixels), with Shift after a click at
/// `from` or pressed at `from` and dragged, selects from `anchor` to `cursor`.
enum Gesture { Clicks, ShiftClick, Drag };
struct MouseCase { char const* name; Gesture gesture; Coords from, to; ImVec2 by; int clicks; Coords anchor, cursor; };

using TextEditorMouse = TextEditorTest;

TEST_F(TextEditorMouse, GesturesSelect) {
    editor.SetText("const $speed = 2.5\nvar $x = 1\nprint($x)");
    Draw();
    // Characters are a fixed width apart, lines a line height, after the gutter.
    ImVec2 const first = editor.GetCharacterScreenPos(Coords{0, 0});
    ImVec2 const later = editor.GetCharacterScreenPos(Coords{1, 3});
    EXPECT_FLOAT_EQ(later.x - first.x, 3.0f * ImGui::CalcTextSize("#").x);
    EXPECT_FLOAT_EQ(later.y - first.y, editor.GetLineHeight());
    EXPECT_GT(first.x, 0.0f);
    MouseCase const cases[] = {
        {"a click places the cursor", Clicks, {}, {0, 3}, {}, 1, {0, 3}, {0, 3}},
        {"past a line's end it lands at the end", Clicks, {}, {1, 10}, {100, 0}, 1, {1, 10}, {1, 10}},
        {"Shift+click extends", ShiftClick, {0, 3}, {1, 2}, {}, 1, {0, 3}, {1, 2}},
        {"a drag selects", Drag, {0, 1}, {2, 3}, {}, 1, {0, 1}, {2, 3}},
        {"a drag past the window's corner", Drag, {1, 2}, {0, 0}, {-100, -100}, 1, {1, 2}, {0, 0}},
        {"a double click selects a word", Clicks, {}, {0, 8}, {}, 2, {0, 6}, {0, 12}},
        {"or one sign", Clicks, {}, {0, 13}, {}, 2, {0, 13}, {0, 14}},
        {"or the line's last word past its end", Clicks, {}, {1, 10}, {50, 0}, 2, {1, 9}, {1, 10}},
    };
    for (MouseCase const& c : cases) {
        SCOPED_TRACE(c.name);
        editor.SetCursorPosition(Coords{2, 0});
        Idle();
        ImVec2 const from = At(c.from);
        if (c.gesture == ShiftClick) { Click(from); Idle(); Key(Shift, true); }
        if (c.gesture == Drag) { MouseTo(from.x, from.y); Mouse(0, true); Draw(); }
        for (int i = 0; i < c.clicks; ++i) Click(ImVec2(At(c.to).x + c.by.x, At(c.to).y + c.by.y));
        Key(Shift, false);
        EXPECT_EQ(editor.GetCursorPosition(), c.cursor);
        EXPECT_EQ(editor.GetSelectionStart(), std::min(c.anchor, c.cursor));
        EXPECT_EQ(editor.GetSelectionEnd(), std::max(c.anchor, c.cursor));
        EXPECT_TRUE(editor.IsFocused()) << "the click focused it";
        MouseTo(first.x, first.y);
        Draw();
        EXPECT_EQ(editor.GetCursorPosition(), c.cursor) << "moving after the release changes nothing";
    }
}

// --- scrolling and drawing ----------------------------------------------------------------

using TextEditorView = TextEditorTest;

TEST_F(TextEditorView, ScrollsToKeepTheCursorVisibleAndWithTheWheel) {
    editor.SetText(Lines(400) + std::string(600, 'x'));
    editor.Focus();
    Draw();
    EXPECT_EQ(editor.GetScroll().y, 0.0f);
    Press({Ctrl, End});
    Draw();
    EXPECT_GT(editor.GetScroll().y, 300.0f * editor.GetLineHeight());
    EXPECT_GT(editor.GetScroll().x, 400.0f * editor.GetCharacterWidth());
    ImVec2 const cursor = editor.GetCharacterScreenPos(editor.GetCursorPosition());
    EXPECT_GE(cursor.y, 0.0f);
    EXPECT_LE(cursor.y + editor.GetLineHeight(), 360.0f);
    EXPECT_GE(cursor.x, 0.0f);
    EXPECT_LE(cursor.x, 640.0f);
    Press({Ctrl, Home});
    Draw();
    EXPECT_EQ(editor.GetScroll().y, 0.0f);
    EXPECT_EQ(editor.GetScroll().x, 0.0f);
    MouseTo(100.0f, 100.0f);
    Wheel(-3.0f);
    Draw();
    Draw();
    EXPECT_GT(editor.GetScroll().y, 0.0f);
}

TEST_F(TextEditorView, DrawsWithThePaletteColours) {
    Editor::Palette palette = Editor::GetDarkPalette();
    Pal const used[] = {Pal::Keyword, Pal::LineNumber, Pal::Background, Pal::Selection, Pal::Cursor};
    auto colour = [](size_t i) { return 0x102030FFu + (static_cast<uint32_t>(i) << 8); };
    auto drew = [](ImU32 colour) {
        ImDrawData const* data = ImGui::GetDrawData();
        for (int l = 0; l < data->CmdListsCount; ++l)
            for (ImDrawVert const& v : data->CmdLists[l]->VtxBuffer) if (v.col == colour) return true;
        return false;
    };
    for (size_t i = 0; i < std::size(used); ++i) palette[static_cast<size_t>(used[i])] = colour(i);
    editor.SetPalette(palette);
    editor.SetText("var $x = 1\n\tprint($x)");
    for (bool const selected : {false, true}) {
        if (selected) { editor.SetSelection(Coords{0, 0}, Coords{1, 2}); editor.Focus(); }
        Draw();
        // Without a selection and the focus there is neither selection nor cursor.
        for (size_t i = 0; i < std::size(used); ++i) EXPECT_EQ(drew(Editor::ToImGuiColor(colour(i))), selected || i < 3) << i;
    }
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
