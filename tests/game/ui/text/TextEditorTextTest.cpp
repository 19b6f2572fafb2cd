// The text model of the code view: round trips, clamped positions, NeroxCode
// colouring and the palette. None of this needs an ImGui context.
#include "game/graphics/ui/TextEditor.hpp"

#include <gtest/gtest.h>

#include <imgui.h>

#include <string>

namespace {

using game::graphics::ui::TextEditor;
using Coords = TextEditor::Coordinates;
using Pal = TextEditor::PaletteIndex;

std::string RoundTrip(std::string const& text) {
    TextEditor editor;
    editor.SetText(text);
    return editor.GetText();
}

// --- round trip ---------------------------------------------------------------------------

TEST(TextEditorRoundTrip, EmptyTextIsOneEmptyLine) {
    TextEditor editor;
    EXPECT_EQ(editor.GetTotalLines(), 1);
    EXPECT_EQ(editor.GetText(), "");
    editor.SetText("x");
    editor.SetText("");
    EXPECT_EQ(editor.GetTotalLines(), 1);
    EXPECT_EQ(editor.GetText(), "");
    EXPECT_EQ(editor.GetLineText(0), "");
}

TEST(TextEditorRoundTrip, TrailingNewlineKeepsAFinalEmptyLine) {
    TextEditor editor;
    editor.SetText("a\nb\n");
    ASSERT_EQ(editor.GetTotalLines(), 3);
    EXPECT_EQ(editor.GetLineText(0), "a");
    EXPECT_EQ(editor.GetLineText(1), "b");
    EXPECT_EQ(editor.GetLineText(2), "");
    EXPECT_EQ(editor.GetText(), "a\nb\n");
    EXPECT_EQ(RoundTrip("\n"), "\n");
    EXPECT_EQ(RoundTrip("\n\n\n"), "\n\n\n");
    EXPECT_EQ(RoundTrip("no end"), "no end");
}

TEST(TextEditorRoundTrip, CarriageReturnBeforeNewlineIsDropped) {
    EXPECT_EQ(RoundTrip("a\r\nb\r\n"), "a\nb\n");
    EXPECT_EQ(RoundTrip("\r\n"), "\n");
    // Only directly before a line end: elsewhere it is text.
    EXPECT_EQ(RoundTrip("a\rb\r"), "a\rb\r");
    EXPECT_EQ(RoundTrip("a\r\r\n"), "a\r\n");
}

TEST(TextEditorRoundTrip, TabsAndUtf8AreKept) {
    std::string const text = "function @f($a:number)\n\tif $a < 1\n\t\treturn \"T\xC3\xBCr\"\n";
    EXPECT_EQ(RoundTrip(text), text);
    TextEditor editor;
    editor.SetText(text);
    EXPECT_EQ(editor.GetLineText(2), "\t\treturn \"T\xC3\xBCr\"");
}

TEST(TextEditorRoundTrip, SetTextNeedsNoImGuiContext) {
    ASSERT_EQ(ImGui::GetCurrentContext(), nullptr);
    TextEditor editor;
    editor.SetText("var $x = 1\n");
    EXPECT_EQ(editor.GetText(), "var $x = 1\n");
    EXPECT_EQ(editor.GetColorIndex(0, 0), Pal::Keyword);
    EXPECT_FALSE(editor.IsTextChanged()); // replacing the text is no edit
}

TEST(TextEditorRoundTrip, SetTextClampsCursorAndSelection) {
    TextEditor editor;
    editor.SetText("first line\nsecond line\nthird");
    editor.SetSelection(Coords{1, 2}, Coords{2, 5});
    editor.SetText("ab\ncd");
    EXPECT_EQ(editor.GetSelectionStart(), (Coords{1, 2}));
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{1, 2}));
    EXPECT_FALSE(editor.HasSelection());
    editor.SetText("");
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 0}));
}

// --- clamping -----------------------------------------------------------------------------

TEST(TextEditorClamp, CursorPositionsAreClampedToTheText) {
    TextEditor editor;
    editor.SetText("abc\nde\n\nlast");
    editor.SetCursorPosition(Coords{-3, -7});
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 0}));
    editor.SetCursorPosition(Coords{1, 99});
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{1, 2}));
    editor.SetCursorPosition(Coords{99, 2});
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{3, 2}));
    editor.SetCursorPosition(Coords{2, 5});
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{2, 0}));
}

TEST(TextEditorClamp, SelectionIsClampedAndOrdered) {
    TextEditor editor;
    editor.SetText("abc\nde");
    editor.SetSelection(Coords{50, 50}, Coords{-1, 1}); // line and column clamp on their own
    EXPECT_EQ(editor.GetSelectionStart(), (Coords{0, 1}));
    EXPECT_EQ(editor.GetSelectionEnd(), (Coords{1, 2}));
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 1}));
    EXPECT_EQ(editor.GetSelectedText(), "bc\nde");
    editor.SetSelection(Coords{-9, -9}, Coords{9, 9});
    EXPECT_EQ(editor.GetSelectedText(), "abc\nde");
    editor.SetSelection(Coords{0, 2}, Coords{0, 2});
    EXPECT_FALSE(editor.HasSelection());
    EXPECT_EQ(editor.GetSelectedText(), "");
}

TEST(TextEditorClamp, ColumnsCountCharactersNotBytes) {
    TextEditor editor;
    editor.SetText("T\xC3\xBCr\t\xE2\x82\xAC");
    editor.SetSelection(Coords{0, 1}, Coords{0, 2});
    EXPECT_EQ(editor.GetSelectedText(), "\xC3\xBC");
    editor.SetSelection(Coords{0, 4}, Coords{0, 100});
    EXPECT_EQ(editor.GetSelectedText(), "\xE2\x82\xAC");
    EXPECT_EQ(editor.GetCursorPosition(), (Coords{0, 5}));
}

TEST(TextEditorClamp, ColourQueriesOutsideTheTextAreDefault) {
    TextEditor editor;
    editor.SetText("var");
    EXPECT_EQ(editor.GetColorIndex(0, 3), Pal::Default);
    EXPECT_EQ(editor.GetColorIndex(0, 1000), Pal::Default);
    EXPECT_EQ(editor.GetColorIndex(-4, 0), Pal::Keyword);
    EXPECT_EQ(editor.GetColorIndex(7, -2), Pal::Keyword);
    EXPECT_EQ(editor.GetLineText(42), "var");
    EXPECT_EQ(editor.GetLineText(-1), "var");
}

// --- colouring ----------------------------------------------------------------------------

char const* const Sample =
    "#NODES {\"nodes\":[]}\n"                                                        // 0
    "\n"                                                                             // 1
    "include \"lib/util.nc\"\n"                                                      // 2
    "\n"                                                                             // 3
    "const $speed = 2.500000\n"                                                      // 4
    "const $label = \"door\"\n"                                                      // 5
    "\n"                                                                             // 6
    "var $_door_delay1 = 0\n"                                                        // 7
    "var $_door_counter1 : number\n"                                                 // 8
    "\n"                                                                             // 9
    "function @_door_pid1($_setpoint:number, $_kp:number, $_min:number) : number\n"  // 10
    "\tvar $_error = $_setpoint - $_processvalue\n"                                  // 11
    "\tif $_integral < $_min\n"                                                      // 12
    "\t\t$_integral = $_min\n"                                                       // 13
    "\treturn $_output\n"                                                            // 14
    "\n"                                                                             // 15
    "update\n"                                                                       // 16
    "\tvar $_input_number_0_0 = input_number(0, 0)\n"                                // 17
    "\tif $_input_number_0_0 and !$_door_delay1_last_up\n"                           // 18
    "\t\t$_door_pulse1!!\n"                                                          // 19
    "\toutput_number(\"lamp\", 0, ($_input_number_0_0 + 0.5))\n"                     // 20
    "\tprint(text(\"value {}\", $_x))\n"                                             // 21
    "  # a note\n"                                                                   // 22
    "elseif else xor or sqrt lerp foo $\n";                                          // 23

class TextEditorColour : public ::testing::Test {
protected:
    void SetUp() override { editor.SetText(Sample); }
    /// Every character from `column` for `length` characters has this class.
    void ExpectRun(int line, int column, int length, Pal expected) {
        for (int c = column; c < column + length; ++c)
            EXPECT_EQ(editor.GetColorIndex(line, c), expected) << "line " << line << " column " << c;
    }
    TextEditor editor;
};

TEST_F(TextEditorColour, CommentLines) {
    ExpectRun(0, 0, 19, Pal::Comment); // the node header is a comment line, string and all
    ExpectRun(22, 2, 8, Pal::Comment);
    EXPECT_EQ(editor.GetColorIndex(22, 0), Pal::Default);
}

TEST_F(TextEditorColour, KeywordsAndStrings) {
    ExpectRun(2, 0, 7, Pal::Keyword); // include
    EXPECT_EQ(editor.GetColorIndex(2, 7), Pal::Default);
    ExpectRun(2, 8, 13, Pal::String); // "lib/util.nc" with its quotes
    ExpectRun(4, 0, 5, Pal::Keyword); // const
    ExpectRun(5, 15, 6, Pal::String); // "door"
    ExpectRun(7, 0, 3, Pal::Keyword); // var
    ExpectRun(10, 0, 8, Pal::Keyword); // function
    ExpectRun(12, 1, 2, Pal::Keyword); // if
    ExpectRun(14, 1, 6, Pal::Keyword); // return
    ExpectRun(16, 0, 6, Pal::Keyword); // update
    ExpectRun(18, 23, 3, Pal::Keyword); // and
    ExpectRun(23, 0, 6, Pal::Keyword); // elseif
    ExpectRun(23, 7, 4, Pal::Keyword); // else
    ExpectRun(23, 12, 3, Pal::Keyword); // xor
    ExpectRun(23, 16, 2, Pal::Keyword); // or
}

TEST_F(TextEditorColour, TypeWordsAfterAColon) {
    ExpectRun(8, 22, 6, Pal::Keyword); // var $_door_counter1 : number
    EXPECT_EQ(editor.GetColorIndex(8, 20), Pal::Punctuation);
    ExpectRun(10, 32, 6, Pal::Keyword); // $_setpoint:number
    ExpectRun(10, 69, 6, Pal::Keyword); // ) : number
    EXPECT_EQ(editor.GetColorIndex(10, 31), Pal::Punctuation);
    // `text` called as a function is the built-in.
    ExpectRun(21, 7, 4, Pal::KnownIdentifier);
}

TEST_F(TextEditorColour, IdentifiersAndBuiltIns) {
    ExpectRun(4, 6, 6, Pal::Identifier);   // $speed
    ExpectRun(10, 9, 11, Pal::Identifier); // @_door_pid1
    ExpectRun(11, 5, 7, Pal::Identifier);  // $_error
    EXPECT_EQ(editor.GetColorIndex(11, 12), Pal::Default);
    ExpectRun(17, 26, 12, Pal::KnownIdentifier); // input_number
    ExpectRun(20, 1, 13, Pal::KnownIdentifier);  // output_number
    ExpectRun(21, 1, 5, Pal::KnownIdentifier);   // print
    ExpectRun(23, 19, 4, Pal::KnownIdentifier);  // sqrt
    ExpectRun(23, 24, 4, Pal::KnownIdentifier);  // lerp
    ExpectRun(23, 29, 3, Pal::Default);          // foo
    EXPECT_EQ(editor.GetColorIndex(23, 33), Pal::Default); // a lone $
}

TEST_F(TextEditorColour, NumbersAndPunctuation) {
    ExpectRun(4, 15, 8, Pal::Number); // 2.500000
    EXPECT_EQ(editor.GetColorIndex(4, 13), Pal::Punctuation); // =
    EXPECT_EQ(editor.GetColorIndex(7, 20), Pal::Number);
    EXPECT_EQ(editor.GetColorIndex(17, 38), Pal::Punctuation); // (
    EXPECT_EQ(editor.GetColorIndex(17, 39), Pal::Number);
    EXPECT_EQ(editor.GetColorIndex(17, 40), Pal::Punctuation); // ,
    EXPECT_EQ(editor.GetColorIndex(17, 43), Pal::Punctuation); // )
    EXPECT_EQ(editor.GetColorIndex(18, 27), Pal::Punctuation); // !
    ExpectRun(19, 15, 2, Pal::Punctuation); // !!
    ExpectRun(20, 48, 3, Pal::Number);      // 0.5
    EXPECT_EQ(editor.GetColorIndex(20, 46), Pal::Punctuation); // +
    EXPECT_EQ(editor.GetColorIndex(12, 15), Pal::Punctuation); // <
    EXPECT_EQ(editor.GetColorIndex(11, 26), Pal::Punctuation); // -
    ExpectRun(21, 12, 10, Pal::String); // "value {}"
}

TEST_F(TextEditorColour, AQuoteEndsAStringAndAnOpenOneRunsToTheLineEnd) {
    editor.SetText("print(\"a\\\" + $x\n\"open $y");
    ExpectRun(0, 6, 4, Pal::String); // "a\" : no escapes
    EXPECT_EQ(editor.GetColorIndex(0, 11), Pal::Punctuation);
    ExpectRun(0, 13, 2, Pal::Identifier);
    ExpectRun(1, 0, 8, Pal::String); // unterminated: the rest of its own line only
}

TEST_F(TextEditorColour, ColoursFollowEdits) {
    editor.SetText("var $a\nlerp");
    editor.SetSelection(Coords{0, 0}, Coords{0, 0});
    editor.InsertText("# ");
    ExpectRun(0, 0, 8, Pal::Comment);
    EXPECT_EQ(editor.GetColorIndex(1, 0), Pal::KnownIdentifier);
    editor.SetSelection(Coords{0, 0}, Coords{0, 2});
    editor.InsertText("if 1\n");
    ExpectRun(0, 0, 2, Pal::Keyword);
    EXPECT_EQ(editor.GetColorIndex(0, 3), Pal::Number);
    ExpectRun(1, 0, 3, Pal::Keyword);
}

// --- palette ------------------------------------------------------------------------------

TEST(TextEditorPalette, ConvertsRrggbbaaToImGuiPacking) {
    ImU32 const packed = TextEditor::ToImGuiColor(0x11223344u);
    EXPECT_EQ(packed, IM_COL32(0x11, 0x22, 0x33, 0x44));
    EXPECT_EQ((packed >> IM_COL32_R_SHIFT) & 0xFF, 0x11u);
    EXPECT_EQ((packed >> IM_COL32_G_SHIFT) & 0xFF, 0x22u);
    EXPECT_EQ((packed >> IM_COL32_B_SHIFT) & 0xFF, 0x33u);
    EXPECT_EQ((packed >> IM_COL32_A_SHIFT) & 0xFF, 0x44u);
    EXPECT_EQ(TextEditor::ToImGuiColor(0xFF000000u), IM_COL32(255, 0, 0, 0));
    EXPECT_EQ(TextEditor::ToImGuiColor(0x000000FFu), IM_COL32(0, 0, 0, 255));
}

TEST(TextEditorPalette, DefaultIsTheDarkPaletteAndSetPaletteReplacesIt) {
    TextEditor editor;
    EXPECT_EQ(editor.GetPalette(), TextEditor::GetDarkPalette());
    auto const luminance = [](uint32_t c) { return ((c >> 24) & 0xFF) + ((c >> 16) & 0xFF) + ((c >> 8) & 0xFF); };
    TextEditor::Palette const& dark = TextEditor::GetDarkPalette();
    EXPECT_LT(luminance(dark[static_cast<size_t>(Pal::Background)]),
              luminance(dark[static_cast<size_t>(Pal::Default)]));
    EXPECT_EQ(dark[static_cast<size_t>(Pal::Background)] & 0xFF, 0xFFu); // opaque
    TextEditor::Palette custom{};
    for (size_t i = 0; i < custom.size(); ++i) custom[i] = 0x01020300u + static_cast<uint32_t>(i);
    editor.SetPalette(custom);
    EXPECT_EQ(editor.GetPalette(), custom);
}

} // namespace
