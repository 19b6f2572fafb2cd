// The code view: its text model, round trips, clamped positions and NeroxCode colouring;
// and in rendered frames, keys, typing, the clipboard and the mouse replayed from scripts
// under tests/data/ui/text/, whose "=" lines hold the state the lines before them leave;
// scrolling, drawing, and steady frames that allocate nothing.
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
    /// Holds the keys down for one frame with `typed` typed in it, then lets go for one.
    void Press(std::vector<int> const& keys, std::u32string const& typed = U"") {
        for (int key : keys) Key(key, true);
        for (char32_t c : typed) Type(static_cast<unsigned int>(c));
        Draw();
        for (int key : keys) Key(key, false);
        Draw();
    }
    /// A point inside the character at "line:column", moved by "+dx,dy" pixels, from the last frame's layout.
    ImVec2 At(std::string const& at) const {
        Coords c;
        ImVec2 by;
        std::sscanf(at.c_str(), "%d:%d+%f,%f", &c.line, &c.column, &by.x, &by.y);
        ImVec2 const p = editor.GetCharacterScreenPos(c);
        return ImVec2(p.x + 0.25f * editor.GetCharacterWidth() + by.x, p.y + 0.5f * editor.GetLineHeight() + by.y);
    }
    static int KeyCode(std::string const& name) {
        static std::pair<char const*, int> const names[] = {
            {"ctrl", GLFW_KEY_LEFT_CONTROL}, {"rctrl", GLFW_KEY_RIGHT_CONTROL},
            {"shift", GLFW_KEY_LEFT_SHIFT},  {"left", GLFW_KEY_LEFT},
            {"right", GLFW_KEY_RIGHT},       {"up", GLFW_KEY_UP},
            {"down", GLFW_KEY_DOWN},         {"home", GLFW_KEY_HOME},
            {"end", GLFW_KEY_END},           {"ins", GLFW_KEY_INSERT},
            {"del", GLFW_KEY_DELETE},        {"back", GLFW_KEY_BACKSPACE},
            {"enter", GLFW_KEY_ENTER},       {"tab", GLFW_KEY_TAB},
            {"kpenter", GLFW_KEY_KP_ENTER},  {"pgup", GLFW_KEY_PAGE_UP},
            {"pgdn", GLFW_KEY_PAGE_DOWN},    {"esc", GLFW_KEY_ESCAPE}};
        for (auto const& [key, code] : names)
            if (name == key) return code;
        return std::toupper(name[0]);
    }
    void Run(std::string const& verb, std::string const& rest) {
        std::istringstream args(rest);
        std::string x, y;
        if (verb == "text" || verb == "lines") {
            editor.SetText(verb == "lines" ? Lines(std::stoi(rest)) : Escape(rest, false));
            editor.SetReadOnly(false);
            ImGui::SetClipboardText("XY\r\nZ");
            edited = false;
        } else if (verb == "sel") { // anchor and cursor, then focused, readonly or unfocused
            Coords a, c;
            char word[16] = "";
            std::sscanf(rest.c_str(), "%d:%d %d:%d %15s", &a.line, &a.column, &c.line, &c.column, word);
            std::string const mode = word;
            editor.SetSelection(a, c);
            editor.SetReadOnly(mode == "readonly");
            if (mode == "unfocused")
                Frame([] { ImGui::SetWindowFocus(nullptr); });
            else
                editor.Focus();
            Draw();
            ASSERT_EQ(editor.IsFocused(), mode != "unfocused") << rest;
        } else if (verb == "press") { // keys joined by '+' or '-' for none, then characters typed, 0x... as code points
            args >> x;
            std::vector<int> keys;
            std::istringstream chord(x);
            for (std::string key; x != "-" && std::getline(chord, key, '+');) keys.push_back(KeyCode(key));
            std::u32string typed;
            while (args >> y)
                if (y.rfind("0x", 0) == 0)
                    typed += static_cast<char32_t>(std::stoul(y, nullptr, 16));
                else
                    typed += std::u32string(y.begin(), y.end());
            Press(keys, typed);
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
    for (char const* script : {"keys", "mouse"})
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
    Press({GLFW_KEY_LEFT_CONTROL, GLFW_KEY_END});
    Draw();
    EXPECT_GT(editor.GetScroll().y, 300.0f * editor.GetLineHeight());
    EXPECT_GT(editor.GetScroll().x, 400.0f * editor.GetCharacterWidth());
    ImVec2 const cursor = editor.GetCharacterScreenPos(editor.GetCursorPosition());
    EXPECT_TRUE(cursor.y >= 0.0f && cursor.y + editor.GetLineHeight() <= 360.0f && cursor.x >= 0.0f &&
                cursor.x <= 640.0f)
        << "in view";
    Press({GLFW_KEY_LEFT_CONTROL, GLFW_KEY_HOME});
    Draw();
    EXPECT_EQ(editor.GetScroll().y, 0.0f);
    EXPECT_EQ(editor.GetScroll().x, 0.0f);
    MouseTo(100.0f, 100.0f);
    Wheel(-3.0f);
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

TEST(TextEditorText, SetTextRoundTrips) {
    struct {
        char const* in;
        char const* out;
        int lines;
    } const cases[] = {
        {"", "", 1},
        {"a\nb\n", "a\nb\n", 3},
        {"\n\n\n", "\n\n\n", 4},
        {"no end", "no end", 1},
        {"a\r\nb\r\n", "a\nb\n", 3},
        {"\r\n", "\n", 2},
        // A carriage return elsewhere than before a line end is text.
        {"a\rb\r", "a\rb\r", 1},
        {"a\r\r\n", "a\r\n", 2},
        {"function @f($a:number)\n\tif $a < 1\n\t\treturn \"T\xC3\xBCr\"\n", nullptr, 4},
    };
    ASSERT_EQ(ImGui::GetCurrentContext(), nullptr) << "the text model needs no ImGui context";
    for (auto const& c : cases) {
        Editor editor;
        editor.SetText("replaced\nwhole");
        editor.SetText(c.in);
        EXPECT_EQ(editor.GetText(), c.out != nullptr ? c.out : c.in) << c.in;
        EXPECT_EQ(editor.GetTotalLines(), c.lines) << c.in;
        EXPECT_FALSE(editor.IsTextChanged()) << "replacing the text is no edit";
    }
}

TEST(TextEditorText, PositionsAreClampedAndCountCharactersNotBytes) {
    Editor editor;
    editor.SetText("abc\nde\n\nlast");
    struct {
        Coords in, out;
    } const cursors[] = {{{-3, -7}, {0, 0}}, {{1, 99}, {1, 2}}, {{99, 2}, {3, 2}}, {{2, 5}, {2, 0}}};
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
    // Columns count characters, not bytes.
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
