// The text model of the code view: round trips, clamped positions, NeroxCode
// colouring and the palette. None of this needs an ImGui context.
#include "game/graphics/ui/TextEditor.hpp"

#include "support/Golden.hpp"

#include <gtest/gtest.h>

#include <imgui.h>

#include <string>

namespace {

using game::graphics::ui::TextEditor;
using Coords = TextEditor::Coordinates;
using Pal = TextEditor::PaletteIndex;

TEST(TextEditorText, SetTextRoundTrips) {
    struct { char const* in; char const* out; int lines; } const cases[] = {
        {"", "", 1}, {"a\nb\n", "a\nb\n", 3}, {"\n\n\n", "\n\n\n", 4}, {"no end", "no end", 1},
        {"a\r\nb\r\n", "a\nb\n", 3}, {"\r\n", "\n", 2},
        // A carriage return elsewhere than before a line end is text.
        {"a\rb\r", "a\rb\r", 1}, {"a\r\r\n", "a\r\n", 2},
        {"function @f($a:number)\n\tif $a < 1\n\t\treturn \"T\xC3\xBCr\"\n", nullptr, 4},
    };
    for (auto const& c : cases) {
        TextEditor editor;
        editor.SetText("replaced\nwhole");
        editor.SetText(c.in);
        EXPECT_EQ(editor.GetText(), c.out != nullptr ? c.out : c.in) << c.in;
        EXPECT_EQ(editor.GetTotalLines(), c.lines) << c.in;
    }
}

TEST(TextEditorText, NeedsNoImGuiContext) {
    ASSERT_EQ(ImGui::GetCurrentContext(), nullptr);
    TextEditor editor;
    EXPECT_EQ(editor.GetText(), "");
    editor.SetText("var $x = 1\n");
    EXPECT_EQ(editor.GetColorIndex(0, 0), Pal::Keyword);
    EXPECT_FALSE(editor.IsTextChanged()) << "replacing the text is no edit";
}

TEST(TextEditorText, PositionsAreClampedToTheText) {
    TextEditor editor;
    editor.SetText("abc\nde\n\nlast");
    struct { Coords in, out; } const cursors[] = {{{-3, -7}, {0, 0}}, {{1, 99}, {1, 2}}, {{99, 2}, {3, 2}}, {{2, 5}, {2, 0}}};
    for (auto const& c : cursors) {
        editor.SetCursorPosition(c.in);
        EXPECT_EQ(editor.GetCursorPosition(), c.out);
    }
    // Line and column clamp on their own, and the selection comes out ordered.
    editor.SetSelection(Coords{50, 50}, Coords{-1, 1});
    EXPECT_EQ(editor.GetSelectionStart(), (Coords{0, 1}));
    EXPECT_EQ(editor.GetSelectionEnd(), (Coords{3, 4}));
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 1}));
    EXPECT_EQ(editor.GetSelectedText(), "bc\nde\n\nlast");
    EXPECT_EQ(editor.GetLineText(42), "last");
    EXPECT_EQ(editor.GetLineText(-1), "abc");
    // Replacing the text keeps them inside it.
    editor.SetSelection(Coords{1, 2}, Coords{3, 3});
    editor.SetText("ab\ncd");
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{1, 2}));
    EXPECT_FALSE(editor.HasSelection());
    editor.SetText("");
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 0}));
}

TEST(TextEditorText, ColumnsCountCharactersNotBytes) {
    TextEditor editor;
    editor.SetText("T\xC3\xBCr\t\xE2\x82\xAC");
    editor.SetSelection(Coords{0, 1}, Coords{0, 2});
    EXPECT_EQ(editor.GetSelectedText(), "\xC3\xBC");
    editor.SetSelection(Coords{0, 4}, Coords{0, 100});
    EXPECT_EQ(editor.GetSelectedText(), "\xE2\x82\xAC");
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 5}));
    // A cursor left inside a character by new text goes back to its start.
    editor.SetCursorPosition(Coords{0, 2});
    editor.SetText("a\xE2\x82\xAC");
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 1}));
}

/// Each line of the text over the class of each of its characters (a tab shows as '>').
std::string Classes(TextEditor const& editor) {
    std::string out;
    for (int line = 0; line < editor.GetTotalLines(); ++line) {
        std::string text = editor.GetLineText(line);
        std::string classes;
        for (int column = 0; column < static_cast<int>(text.size()); ++column) {
            if (text[static_cast<size_t>(column)] == '\t') text[static_cast<size_t>(column)] = '>';
            classes += ".KNS?P?IB?C?????X"[static_cast<size_t>(editor.GetColorIndex(line, column))];
        }
        out += text + "\n" + classes + "\n";
    }
    return out;
}

TEST(TextEditorText, ColoursNeroxCode) {
    TextEditor editor;
    editor.SetText(testsupport::ReadText(testsupport::DataFile("ui/text/colours.nc")));
    std::string dump = Classes(editor);
    // Colours follow edits.
    editor.SetText("var $a\nlerp");
    editor.SetSelection(Coords{0, 0}, Coords{0, 0});
    editor.InsertText("# ");
    editor.SetSelection(Coords{1, 0}, Coords{1, 0});
    editor.InsertText("if 1\n");
    dump += "--- after edits\n" + Classes(editor);
    testsupport::ExpectGolden(dump, "ui/text/colours.txt");
    EXPECT_EQ(editor.GetColorIndex(0, 1000), Pal::Default) << "past the line's end";
}

TEST(TextEditorText, PaletteIsDarkAndConvertsToImGuiPacking) {
    EXPECT_EQ(TextEditor::ToImGuiColor(0x11223344u), IM_COL32(0x11, 0x22, 0x33, 0x44));
    TextEditor::Palette const& dark = TextEditor::GetDarkPalette();
    EXPECT_EQ(TextEditor().GetPalette(), dark);
    auto const luminance = [](uint32_t c) { return ((c >> 24) & 0xFF) + ((c >> 16) & 0xFF) + ((c >> 8) & 0xFF); };
    EXPECT_LT(luminance(dark[static_cast<size_t>(Pal::Background)]), luminance(dark[static_cast<size_t>(Pal::Default)]));
    EXPECT_EQ(dark[static_cast<size_t>(Pal::Background)] & 0xFF, 0xFFu) << "opaque";
}

} // namespace
