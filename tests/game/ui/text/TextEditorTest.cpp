// The code view: its text model (round trips, clamped positions), keys, typing, the clipboard
// and the mouse replayed from scripts under tests/data/ui/text/, whose "=" lines hold the state
// the lines before them leave; NeroxCode colouring, scrolling, drawing, and steady frames that
// allocate nothing.
#include "game/ui/ImGuiFixture.hpp"

#include "game/graphics/ui/TextEditor.hpp"
#include "support/CountedAllocations.hpp"
#include "support/Golden.hpp"

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

namespace uitest {
namespace {

using Editor = game::graphics::ui::TextEditor;
using Coords = Editor::Coordinates;
using Pal = Editor::PaletteIndex;

std::string Lines(int count) {
    std::string text;
    for (int i = 0; i < count; ++i) text += "line " + std::to_string(i) + "\n";
    return text;
}

/// Reads \n, \t, \r, \\ and \xNN; with `back`, writes them for line ends, tabs and bytes outside printable ASCII.
std::string Escape(std::string const& in, bool back) {
    std::string out;
    for (size_t i = 0; i < in.size(); ++i) {
        unsigned char const c = static_cast<unsigned char>(in[i]);
        if (back) {
            char hex[5];
            std::snprintf(hex, sizeof hex, "\\x%02X", c);
            out += c == '\n'           ? "\\n"
                : c == '\t'            ? "\\t"
                : c == '\r'            ? "\\r"
                : c == '\\'            ? "\\\\"
                : c < 0x20 || c > 0x7E ? hex
                                       : std::string(1, in[i]);
        } else if (c != '\\' || i + 1 == in.size()) {
            out += in[i];
        } else {
            char const e = in[++i];
            out += e == 'n' ? '\n'
                : e == 't'  ? '\t'
                : e == 'r'  ? '\r'
                : e == 'x'  ? static_cast<char>(std::stoi(in.substr(i + 1, 2), nullptr, 16))
                            : e;
            i += e == 'x' ? 2 : 0;
        }
    }
    return out;
}

class TextEditorTest : public ImGuiTest {
protected:
    /// One frame with the editor filling a 640x360 window at the screen's corner.
    void Draw() {
        Frame([&] {
            ImGui::SetNextWindowPos(ImVec2(0.0f, 0.0f));
            ImGui::SetNextWindowSize(ImVec2(640.0f, 360.0f));
            ImGui::Begin("host", nullptr, ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoMove);
            editor.Render("code");
            ImGui::End();
        });
        edited |= editor.IsTextChanged();
    }
    /// A point inside the character at "line:column", moved by "+dx,dy" pixels, from the last frame's layout.
    ImVec2 At(std::string const& at) const {
        Coords c;
        ImVec2 by;
        std::sscanf(at.c_str(), "%d:%d+%f,%f", &c.line, &c.column, &by.x, &by.y);
        ImVec2 const p = editor.GetCharacterScreenPos(c);
        return ImVec2(p.x + 0.25f * editor.GetCharacterWidth() + by.x, p.y + 0.5f * editor.GetLineHeight() + by.y);
    }
    void Run(std::string const& verb, std::string const& rest) {
        std::istringstream args(rest);
        std::string x, y;
        if (verb == "text" || verb == "lines") {
            editor.SetText(verb == "lines" ? Lines(std::stoi(rest)) : Escape(rest, false));
            editor.SetReadOnly(false);
            ImGui::SetClipboardText("XY\r\nZ");
            edited = false;
        } else if (verb == "sel" || verb == "cursor") { // anchor and cursor, then focused, readonly or unfocused
            Coords a, c;
            char word[16] = "";
            std::sscanf(rest.c_str(), "%d:%d %d:%d %15s", &a.line, &a.column, &c.line, &c.column, word);
            std::string const mode = word;
            if (verb == "cursor") return editor.SetCursorPosition(a);
            editor.SetSelection(a, c);
            editor.SetReadOnly(mode == "readonly");
            if (mode == "unfocused")
                Frame([] { ImGui::SetWindowFocus(nullptr); });
            else
                editor.Focus();
            Draw();
        } else if (verb == "press") { // keys joined by '+' or '-' for none, then characters typed, 0x... as code points
            args >> x;
            std::vector<int> keys;
            std::istringstream chord(x);
            for (std::string key; x != "-" && std::getline(chord, key, '+');) keys.push_back(KeyCode(key));
            for (int key : keys) Key(key, true);
            while (args >> y)
                if (y.rfind("0x", 0) == 0)
                    Type(static_cast<unsigned int>(std::stoul(y, nullptr, 16)));
                else
                    for (char ch : y) Type(static_cast<unsigned char>(ch));
            Draw();
            for (int key : keys) Key(key, false);
            Draw();
        } else if (verb == "click" || verb == "drag" ||
                   verb == "move") { // at a character, times; or from one to another
            int times = verb == "click" ? 1 : 0;
            args >> x >> y;
            if (verb == "click") std::sscanf(y.c_str(), "%d", &times);
            ImVec2 at = At(x);
            MouseTo(at.x, at.y);
            for (int i = 0; i < times; ++i) Mouse(0, true), Draw(), Mouse(0, false), Draw();
            if (verb != "drag") return Draw();
            Mouse(0, true), Draw();
            at = At(y);
            MouseTo(at.x, at.y), Draw(), Mouse(0, false), Draw();
        } else if (verb == "idle") { // a frame that lasts a second, so the next click is no double click
            ImGui::GetIO().DeltaTime = 1.0f, Draw(), ImGui::GetIO().DeltaTime = 1.0f / 60.0f;
        } else if (verb == "down" || verb == "up") {
            Key(KeyCode(rest), verb == "down");
        } else {
            ADD_FAILURE() << "unknown command: " << verb;
        }
    }
    /// The text, the selection, the cursor and the clipboard, and whether a frame reported an edit.
    std::string Show(char) const {
        auto coords = [](Coords c) { return std::to_string(c.line) + ":" + std::to_string(c.column); };
        std::string const text = editor.GetTotalLines() > 9 ? std::to_string(editor.GetTotalLines()) + " lines"
                                                            : Escape(editor.GetText(), true);
        return "= " + text + " | " + coords(editor.GetSelectionStart()) + "-" + coords(editor.GetSelectionEnd()) +
            " at " + coords(editor.GetCursorPosition()) + " | " + Escape(ImGui::GetClipboardText(), true) +
            (edited ? " | edited" : "") + (editor.IsFocused() ? "" : " | unfocused") +
            (editor.IsTextChanged() ? " | still changed" : "");
    }
    Editor editor;
    bool edited = false;
};

TEST_F(TextEditorTest, Replays) {
    for (char const* script : {"model", "keys", "mouse"})
        Replay(
            std::string("ui/text/") + script + ".txt",
            [&](std::string const& verb, std::string const& rest) { Run(verb, rest); },
            [&](char kind) { return Show(kind); });
}

TEST_F(TextEditorTest, ReadOnlyRefusesThePublicEditsToo) {
    editor.SetText("abc");
    editor.SetReadOnly(true);
    editor.SelectAll();
    editor.Paste();
    editor.Cut();
    editor.InsertText("direct");
    editor.DeleteSelection();
    EXPECT_EQ(editor.GetText(), "abc");
    EXPECT_FALSE(editor.IsTextChanged());
    EXPECT_EQ(editor.GetLineText(42) + editor.GetLineText(-1), "abcabc") << "line numbers are clamped";
}

TEST_F(TextEditorTest, ScrollsToKeepTheCursorVisibleAndWithTheWheel) {
    editor.SetText(Lines(400) + std::string(600, 'x'));
    editor.Focus();
    Draw();
    // Characters are a fixed width apart, lines a line height, after the gutter.
    ImVec2 const first = editor.GetCharacterScreenPos(Coords{0, 0});
    ImVec2 const later = editor.GetCharacterScreenPos(Coords{1, 3});
    EXPECT_FLOAT_EQ(later.x - first.x, 3.0f * ImGui::CalcTextSize("#").x);
    EXPECT_FLOAT_EQ(later.y - first.y, editor.GetLineHeight());
    EXPECT_GT(first.x, 0.0f);
    EXPECT_EQ(editor.GetScroll().y, 0.0f);
    Run("press", "ctrl+end");
    Draw();
    EXPECT_GT(editor.GetScroll().y, 300.0f * editor.GetLineHeight());
    EXPECT_GT(editor.GetScroll().x, 400.0f * editor.GetCharacterWidth());
    ImVec2 const cursor = editor.GetCharacterScreenPos(editor.GetCursorPosition());
    EXPECT_TRUE(cursor.y >= 0.0f && cursor.y + editor.GetLineHeight() <= 360.0f && cursor.x >= 0.0f &&
                cursor.x <= 640.0f)
        << "in view";
    Run("press", "ctrl+home");
    Draw();
    EXPECT_EQ(editor.GetScroll().y, 0.0f);
    EXPECT_EQ(editor.GetScroll().x, 0.0f);
    MouseTo(100.0f, 100.0f);
    ImGui::GetIO().MouseWheel = -3.0f;
    Draw();
    Draw();
    EXPECT_GT(editor.GetScroll().y, 0.0f);
}

TEST_F(TextEditorTest, DrawsWithThePaletteColours) {
    Editor::Palette palette = Editor::GetDarkPalette();
    Pal const used[] = {Pal::Keyword, Pal::LineNumber, Pal::Background, Pal::Selection, Pal::Cursor};
    auto colour = [](size_t i) { return 0x102030FFu + (static_cast<uint32_t>(i) << 8); };
    auto drew = [](ImU32 colour) {
        ImDrawData const* data = ImGui::GetDrawData();
        for (int l = 0; l < data->CmdListsCount; ++l)
            for (ImDrawVert const& v : data->CmdLists[l]->VtxBuffer)
                if (v.col == colour) return true;
        return false;
    };
    for (size_t i = 0; i < std::size(used); ++i) palette[static_cast<size_t>(used[i])] = colour(i);
    editor.SetPalette(palette);
    editor.SetText("var $x = 1\n\tprint($x)");
    for (bool const selected : {false, true}) {
        if (selected) {
            editor.SetSelection(Coords{0, 0}, Coords{1, 2});
            editor.Focus();
        }
        Draw();
        // Without a selection and the focus there is neither selection nor cursor.
        for (size_t i = 0; i < std::size(used); ++i)
            EXPECT_EQ(drew(Editor::ToImGuiColor(colour(i))), selected || i < 3) << i;
    }
    EXPECT_EQ(Editor::ToImGuiColor(0x11223344u), IM_COL32(0x11, 0x22, 0x33, 0x44));
}

// Drawing a frame once it has settled allocates nothing: every operator new in this program is counted.
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

/// Each line of the text over the class of each of its characters (a tab shows as '>').
std::string Classes(Editor const& editor) {
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
    Editor editor;
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

} // namespace
} // namespace uitest
