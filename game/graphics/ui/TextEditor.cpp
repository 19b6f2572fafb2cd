#include "game/graphics/ui/TextEditor.hpp"

#include "nerox/Assert.hpp"

#include <imgui_internal.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>

namespace game::graphics::ui {

namespace {

using PaletteIndex = TextEditor::PaletteIndex;

bool IsContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

/// Whether a byte index starts a character: the ends, and every byte that does not continue one.
bool IsBoundary(std::string const& s, int index) {
    return index <= 0 || index >= static_cast<int>(s.size()) || !IsContinuation(s[index]);
}

int NextIndex(std::string const& s, int index) {
    int const size = static_cast<int>(s.size());
    if (index >= size) return size;
    ++index;
    while (index < size && IsContinuation(s[index])) ++index;
    return index;
}

int PrevIndex(std::string const& s, int index) {
    if (index <= 0) return 0;
    --index;
    while (index > 0 && IsContinuation(s[index])) --index;
    return index;
}

/// Byte index of character `column`, clamped to the line.
int CharToIndex(std::string const& s, int column) {
    int index = 0;
    for (int c = 0; c < column && index < static_cast<int>(s.size()); ++c) index = NextIndex(s, index);
    return index;
}

/// Number of characters before byte index `index`.
int IndexToChar(std::string const& s, int index) {
    int column = 0;
    for (int i = 0; i < index && i < static_cast<int>(s.size()); i = NextIndex(s, i)) ++column;
    return column;
}

/// Column where the character after `column` starts, when `c` is at `column`.
int AdvanceColumn(char c, int column) {
    return c == '\t' ? (column / TextEditor::TabSize + 1) * TextEditor::TabSize : column + 1;
}

/// Visual column of byte index `index` (tabs advance to the next tab stop).
int VisualColumnOf(std::string const& s, int index) {
    int column = 0;
    for (int i = 0; i < index && i < static_cast<int>(s.size()); i = NextIndex(s, i))
        column = AdvanceColumn(s[i], column);
    return column;
}

/// The character start nearest to visual column `column`.
int IndexAtVisual(std::string const& s, float column) {
    int visual = 0;
    int const size = static_cast<int>(s.size());
    for (int i = 0; i < size; i = NextIndex(s, i)) {
        int const next = AdvanceColumn(s[i], visual);
        if (column < 0.5f * static_cast<float>(visual + next)) return i;
        visual = next;
    }
    return size;
}

/// What a double-click or Ctrl+arrow treats as one word: 1 word, 2 blank, 3 any other.
int CharClass(char c) {
    unsigned char const u = static_cast<unsigned char>(c);
    if (std::isalnum(u) || c == '_' || c == '$' || c == '@' || u >= 0x80) return 1;
    if (c == ' ' || c == '\t') return 2;
    return 3;
}

bool IsWordStart(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) || c == '_';
}
bool IsWordChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}
bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

constexpr std::string_view Keywords[] = {"include", "const", "var",    "function", "update", "if",
                                         "elseif",  "else",  "return", "and",      "or",     "xor"};
constexpr std::string_view BuiltIns[] = {
    "time", "delta_time", "abs",  "clamp", "sin",   "cos",          "tan",        "asin",          "acos",
    "atan", "pow",        "log",  "floor", "ceil",  "round",        "fract",      "sqrt",          "sign",
    "step", "smoothstep", "lerp", "text",  "print", "input_number", "input_text", "output_number", "output_text"};

template <size_t N> bool Contains(std::string_view const (&words)[N], std::string_view word) {
    return std::find(std::begin(words), std::end(words), word) != std::end(words);
}

/// Colours one line of NeroxCode. Lines are independent: the language has no multi-line tokens.
void Colorize(std::string const& text, std::vector<PaletteIndex>& colors) {
    size_t const n = text.size();
    colors.assign(n, PaletteIndex::Default);
    size_t first = 0;
    while (first < n && (text[first] == ' ' || text[first] == '\t')) ++first;
    if (first < n && text[first] == '#') {
        std::fill(colors.begin() + static_cast<std::ptrdiff_t>(first), colors.end(), PaletteIndex::Comment);
        return;
    }
    auto fill = [&](size_t from, size_t to, PaletteIndex color) {
        std::fill(colors.begin() + static_cast<std::ptrdiff_t>(from), colors.begin() + static_cast<std::ptrdiff_t>(to),
                  color);
    };
    size_t i = 0;
    while (i < n) {
        char const c = text[i];
        size_t j = i + 1;
        if (c == '"') {
            while (j < n && text[j] != '"') ++j;
            if (j < n) ++j; // the closing quote
            fill(i, j, PaletteIndex::String);
        } else if (IsDigit(c) || (c == '.' && j < n && IsDigit(text[j]))) {
            j = i;
            while (j < n && IsDigit(text[j])) ++j;
            if (j < n && text[j] == '.') {
                ++j;
                while (j < n && IsDigit(text[j])) ++j;
            }
            if (j < n && (text[j] == 'e' || text[j] == 'E')) {
                size_t k = j + 1;
                if (k < n && (text[k] == '+' || text[k] == '-')) ++k;
                if (k < n && IsDigit(text[k])) {
                    while (k < n && IsDigit(text[k])) ++k;
                    j = k;
                }
            }
            fill(i, j, PaletteIndex::Number);
        } else if ((c == '$' || c == '@') && j < n && IsWordChar(text[j])) {
            while (j < n && IsWordChar(text[j])) ++j;
            fill(i, j, PaletteIndex::Identifier);
        } else if (IsWordStart(c)) {
            while (j < n && IsWordChar(text[j])) ++j;
            std::string_view const word(text.data() + i, j - i);
            PaletteIndex color = PaletteIndex::Default;
            if (word == "number" || word == "text") {
                // A type after ':' (parameters, results, declarations); otherwise `text` is the built-in.
                size_t before = i;
                while (before > 0 && (text[before - 1] == ' ' || text[before - 1] == '\t')) --before;
                if (before > 0 && text[before - 1] == ':')
                    color = PaletteIndex::Keyword;
                else if (word == "text")
                    color = PaletteIndex::KnownIdentifier;
            } else if (Contains(Keywords, word)) {
                color = PaletteIndex::Keyword;
            } else if (Contains(BuiltIns, word)) {
                color = PaletteIndex::KnownIdentifier;
            }
            fill(i, j, color);
        } else {
            switch (c) {
            case '(':
            case ')':
            case ',':
            case '+':
            case '-':
            case '*':
            case '/':
            case '%':
            case '=':
            case '<':
            case '>':
            case '!':
            case ':': colors[i] = PaletteIndex::Punctuation; break;
            default:
                if (c != '\t' && static_cast<unsigned char>(c) < 32) colors[i] = PaletteIndex::ControlCharacter;
                break;
            }
        }
        i = j;
    }
}

int LineWidth(std::string const& s) {
    return VisualColumnOf(s, static_cast<int>(s.size()));
}

} // namespace

TextEditor::TextEditor() : _lines(1) {
    SetPalette(GetDarkPalette());
}

// --- text ---------------------------------------------------------------------------------

void TextEditor::SetText(std::string const& text) {
    _lines.assign(1, Line());
    size_t start = 0;
    while (true) {
        size_t const end = text.find('\n', start);
        std::string& line = _lines.back().text;
        if (end == std::string::npos) {
            line.assign(text, start, std::string::npos);
            break;
        }
        size_t length = end - start;
        if (length > 0 && text[end - 1] == '\r') --length;
        line.assign(text, start, length);
        _lines.emplace_back();
        start = end + 1;
    }
    for (int i = 0; i < GetTotalLines(); ++i) UpdateLine(i);
    UpdateWidth();
    _cursor = ClampPos(_cursor);
    _anchor = ClampPos(_anchor);
    _preferredColumn = -1;
    _dragging = false;
}

std::string TextEditor::GetText() const {
    return TextBetween(Pos{0, 0}, Pos{GetTotalLines() - 1, static_cast<int>(_lines.back().text.size())});
}

std::string const& TextEditor::GetLineText(int line) const {
    return _lines[static_cast<size_t>(std::clamp(line, 0, GetTotalLines() - 1))].text;
}

std::string TextEditor::TextBetween(Pos from, Pos to) const {
    std::string result;
    if (!(from < to)) return result;
    for (int line = from.line; line <= to.line; ++line) {
        std::string const& text = _lines[static_cast<size_t>(line)].text;
        int const begin = line == from.line ? from.index : 0;
        int const end = line == to.line ? to.index : static_cast<int>(text.size());
        result.append(text, static_cast<size_t>(begin), static_cast<size_t>(end - begin));
        if (line != to.line) result += '\n';
    }
    return result;
}

void TextEditor::UpdateLine(int line) {
    Line& l = _lines[static_cast<size_t>(line)];
    Colorize(l.text, l.colors);
    l.width = LineWidth(l.text);
}

void TextEditor::UpdateWidth() {
    _maxWidth = 0;
    for (Line const& line : _lines) _maxWidth = std::max(_maxWidth, line.width);
}

// --- palette ------------------------------------------------------------------------------

void TextEditor::SetPalette(Palette const& palette) {
    _palette = palette;
    for (size_t i = 0; i < _palette.size(); ++i) _colors[i] = ToImGuiColor(_palette[i]);
}

ImU32 TextEditor::ToImGuiColor(uint32_t rrggbbaa) {
    return IM_COL32((rrggbbaa >> 24) & 0xFF, (rrggbbaa >> 16) & 0xFF, (rrggbbaa >> 8) & 0xFF, rrggbbaa & 0xFF);
}

TextEditor::Palette const& TextEditor::GetDarkPalette() {
    static Palette const palette = {
        0xD4D4D4FF, // Default
        0x569CD6FF, // Keyword
        0xB5CEA8FF, // Number
        0xCE9178FF, // String
        0xD69D85FF, // CharLiteral
        0xC8C8C8FF, // Punctuation
        0xC586C0FF, // Preprocessor
        0x9CDCFEFF, // Identifier
        0xDCDCAAFF, // KnownIdentifier
        0xC586C0FF, // PreprocIdentifier
        0x6A9955FF, // Comment
        0x6A9955FF, // MultiLineComment
        0x1E1E1EFF, // Background
        0xE0E0E0FF, // Cursor
        0x264F78C0, // Selection
        0xFF200080, // ErrorMarker
        0xF44747FF, // ControlCharacter
        0xFF800040, // Breakpoint
        0x858585FF, // LineNumber
        0xFFFFFF10, // CurrentLineFill
        0x80808010, // CurrentLineFillInactive
        0x46464680, // CurrentLineEdge
    };
    return palette;
}

TextEditor::PaletteIndex TextEditor::GetColorIndex(int line, int column) const {
    Pos const pos = Clamp(Coordinates{line, column});
    Line const& l = _lines[static_cast<size_t>(pos.line)];
    if (pos.index >= static_cast<int>(l.colors.size())) return PaletteIndex::Default;
    return l.colors[static_cast<size_t>(pos.index)];
}

// --- positions and selection --------------------------------------------------------------

TextEditor::Pos TextEditor::Clamp(Coordinates position) const {
    int const line = std::clamp(position.line, 0, GetTotalLines() - 1);
    return Pos{line, CharToIndex(_lines[static_cast<size_t>(line)].text, std::max(position.column, 0))};
}

TextEditor::Pos TextEditor::ClampPos(Pos pos) const {
    pos.line = std::clamp(pos.line, 0, GetTotalLines() - 1);
    std::string const& text = _lines[static_cast<size_t>(pos.line)].text;
    pos.index = std::clamp(pos.index, 0, static_cast<int>(text.size()));
    while (!IsBoundary(text, pos.index)) --pos.index;
    return pos;
}

TextEditor::Coordinates TextEditor::ToCoordinates(Pos pos) const {
    return Coordinates{pos.line, IndexToChar(_lines[static_cast<size_t>(pos.line)].text, pos.index)};
}

int TextEditor::VisualColumn(Pos pos) const {
    return VisualColumnOf(_lines[static_cast<size_t>(pos.line)].text, pos.index);
}

void TextEditor::SetCursorPosition(Coordinates position) {
    _cursor = _anchor = Clamp(position);
    _preferredColumn = -1;
    _scrollToCursor = true;
}

TextEditor::Coordinates TextEditor::GetCursorPosition() const {
    return ToCoordinates(_cursor);
}

void TextEditor::SetSelection(Coordinates start, Coordinates end) {
    _anchor = Clamp(start);
    _cursor = Clamp(end);
    _preferredColumn = -1;
    _scrollToCursor = true;
}

TextEditor::Coordinates TextEditor::GetSelectionStart() const {
    return ToCoordinates(SelectionMin());
}
TextEditor::Coordinates TextEditor::GetSelectionEnd() const {
    return ToCoordinates(SelectionMax());
}

std::string TextEditor::GetSelectedText() const {
    return TextBetween(SelectionMin(), SelectionMax());
}

void TextEditor::SelectAll() {
    _anchor = Pos{0, 0};
    _cursor = Pos{GetTotalLines() - 1, static_cast<int>(_lines.back().text.size())};
    _preferredColumn = -1;
}

void TextEditor::ClearSelection() {
    _anchor = _cursor;
}

TextEditor::Pos TextEditor::Left(Pos pos, bool word) const {
    std::string const& text = _lines[static_cast<size_t>(pos.line)].text;
    if (pos.index == 0)
        return pos.line > 0 ? Pos{pos.line - 1, static_cast<int>(_lines[static_cast<size_t>(pos.line - 1)].text.size())}
                            : pos;
    if (!word) return Pos{pos.line, PrevIndex(text, pos.index)};
    int index = pos.index;
    while (index > 0 && CharClass(text[static_cast<size_t>(PrevIndex(text, index))]) == 2)
        index = PrevIndex(text, index);
    if (index == 0) return Pos{pos.line, 0};
    int const cls = CharClass(text[static_cast<size_t>(PrevIndex(text, index))]);
    do index = PrevIndex(text, index);
    while (cls != 3 && index > 0 && CharClass(text[static_cast<size_t>(PrevIndex(text, index))]) == cls);
    return Pos{pos.line, index};
}

TextEditor::Pos TextEditor::Right(Pos pos, bool word) const {
    std::string const& text = _lines[static_cast<size_t>(pos.line)].text;
    int const size = static_cast<int>(text.size());
    if (pos.index >= size) return pos.line + 1 < GetTotalLines() ? Pos{pos.line + 1, 0} : pos;
    if (!word) return Pos{pos.line, NextIndex(text, pos.index)};
    int index = pos.index;
    int const cls = CharClass(text[static_cast<size_t>(index)]);
    do index = NextIndex(text, index);
    while (cls != 3 && index < size && CharClass(text[static_cast<size_t>(index)]) == cls);
    while (index < size && CharClass(text[static_cast<size_t>(index)]) == 2) index = NextIndex(text, index);
    return Pos{pos.line, index};
}

void TextEditor::SelectWordAt(Pos pos) {
    std::string const& text = _lines[static_cast<size_t>(pos.line)].text;
    int const size = static_cast<int>(text.size());
    int start = pos.index;
    if (start >= size) start = PrevIndex(text, start); // past the end: the last word of the line
    if (start >= size) {                               // empty line
        _anchor = _cursor = pos;
        return;
    }
    int const cls = CharClass(text[static_cast<size_t>(start)]);
    int end = NextIndex(text, start);
    if (cls != 3) {
        while (start > 0 && CharClass(text[static_cast<size_t>(PrevIndex(text, start))]) == cls)
            start = PrevIndex(text, start);
        while (end < size && CharClass(text[static_cast<size_t>(end)]) == cls) end = NextIndex(text, end);
    }
    _anchor = Pos{pos.line, start};
    _cursor = Pos{pos.line, end};
}

// --- edits --------------------------------------------------------------------------------

void TextEditor::MarkEdited() {
    UpdateWidth();
    _textChanged = true;
    _preferredColumn = -1;
    _scrollToCursor = true;
}

void TextEditor::EraseRange(Pos from, Pos to) {
    if (!(from < to)) return;
    Line& first = _lines[static_cast<size_t>(from.line)];
    if (from.line == to.line) {
        first.text.erase(static_cast<size_t>(from.index), static_cast<size_t>(to.index - from.index));
    } else {
        std::string const& last = _lines[static_cast<size_t>(to.line)].text;
        first.text.replace(static_cast<size_t>(from.index), std::string::npos, last, static_cast<size_t>(to.index));
        _lines.erase(_lines.begin() + from.line + 1, _lines.begin() + to.line + 1);
    }
    UpdateLine(from.line);
}

TextEditor::Pos TextEditor::InsertAt(Pos pos, std::string_view text) {
    size_t const newline = text.find('\n');
    Line& line = _lines[static_cast<size_t>(pos.line)];
    if (newline == std::string_view::npos) {
        line.text.insert(static_cast<size_t>(pos.index), text);
        UpdateLine(pos.line);
        return Pos{pos.line, pos.index + static_cast<int>(text.size())};
    }
    // Split the line at `pos`: its tail follows the inserted text's last line.
    std::string const tail = line.text.substr(static_cast<size_t>(pos.index));
    line.text.erase(static_cast<size_t>(pos.index));
    std::vector<Line> added;
    size_t start = 0;
    while (true) {
        size_t const end = text.find('\n', start);
        std::string_view piece =
            text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
        if (end != std::string_view::npos && !piece.empty() && piece.back() == '\r') piece.remove_suffix(1);
        if (start == 0)
            line.text.append(piece);
        else
            added.emplace_back().text.assign(piece);
        if (end == std::string_view::npos) break;
        start = end + 1;
    }
    Pos const end{pos.line + static_cast<int>(added.size()), static_cast<int>(added.back().text.size())};
    added.back().text += tail;
    _lines.insert(_lines.begin() + pos.line + 1, std::make_move_iterator(added.begin()),
                  std::make_move_iterator(added.end()));
    for (int i = pos.line; i <= end.line; ++i) UpdateLine(i);
    return end;
}

void TextEditor::DeleteSelection() {
    if (_readOnly || !HasSelection()) return;
    Pos const from = SelectionMin();
    EraseRange(from, SelectionMax());
    _cursor = _anchor = from;
    MarkEdited();
}

void TextEditor::InsertText(std::string_view text) {
    if (_readOnly) return;
    std::string const copy(text); // `text` may point into a line changed below
    Pos const from = SelectionMin();
    bool const hadSelection = HasSelection();
    EraseRange(from, SelectionMax());
    _cursor = _anchor = InsertAt(from, copy);
    if (hadSelection || !text.empty()) MarkEdited();
}

void TextEditor::InsertNewline() {
    // The new line starts with the blanks that begin the line above, up to the cursor.
    std::string const& text = _lines[static_cast<size_t>(SelectionMin().line)].text;
    int const limit = SelectionMin().index;
    int blanks = 0;
    while (blanks < limit && (text[static_cast<size_t>(blanks)] == '\t' || text[static_cast<size_t>(blanks)] == ' '))
        ++blanks;
    std::string insert(1, '\n');
    insert.append(text, 0, static_cast<size_t>(blanks));
    InsertText(insert);
}

void TextEditor::Backspace() {
    if (_readOnly) return;
    if (HasSelection()) return DeleteSelection();
    Pos const from = Left(_cursor, false);
    if (from == _cursor) return;
    EraseRange(from, _cursor);
    _cursor = _anchor = from;
    MarkEdited();
}

void TextEditor::DeleteForward() {
    if (_readOnly) return;
    if (HasSelection()) return DeleteSelection();
    Pos const to = Right(_cursor, false);
    if (to == _cursor) return;
    EraseRange(_cursor, to);
    MarkEdited();
}

// --- clipboard ----------------------------------------------------------------------------

void TextEditor::Copy() {
    NEROX_ASSERT(ImGui::GetCurrentContext() != nullptr);
    if (!HasSelection()) return;
    ImGui::SetClipboardText(GetSelectedText().c_str());
}

void TextEditor::Cut() {
    if (_readOnly || !HasSelection()) return;
    Copy();
    DeleteSelection();
}

void TextEditor::Paste() {
    NEROX_ASSERT(ImGui::GetCurrentContext() != nullptr);
    if (_readOnly) return;
    char const* text = ImGui::GetClipboardText();
    if (text == nullptr || *text == '\0') return;
    InsertText(text);
}

// --- input --------------------------------------------------------------------------------

void TextEditor::MoveCursor(Pos pos, bool extend) {
    _cursor = ClampPos(pos);
    if (!extend) _anchor = _cursor;
    _scrollToCursor = true;
}

void TextEditor::HandleKeyboard() {
    ImGuiIO const& io = ImGui::GetIO();
    bool const shift = io.KeyShift;
    bool const ctrl = io.KeyCtrl;
    bool const alt = io.KeyAlt;
    auto pressed = [](ImGuiKey key) { return ImGui::IsKeyPressed(ImGui::GetKeyIndex(key)); };
    auto const last = Pos{GetTotalLines() - 1, static_cast<int>(_lines.back().text.size())};
    Pos const before = _cursor;
    bool vertical = false;

    auto moveVertical = [&](int lines) {
        if (_preferredColumn < 0) _preferredColumn = VisualColumn(_cursor);
        int const line = std::clamp(_cursor.line + lines, 0, GetTotalLines() - 1);
        int index = IndexAtVisual(_lines[static_cast<size_t>(line)].text, static_cast<float>(_preferredColumn));
        if (lines < 0 && line == _cursor.line) index = 0; // Up on the first line goes to its start
        if (lines > 0 && line == _cursor.line) index = static_cast<int>(_lines[static_cast<size_t>(line)].text.size());
        MoveCursor(Pos{line, index}, shift);
        vertical = true;
    };
    // Left and Right without Shift first collapse a selection to its side.
    if (!alt && pressed(ImGuiKey_LeftArrow)) {
        if (HasSelection() && !shift)
            MoveCursor(SelectionMin(), false);
        else
            MoveCursor(Left(_cursor, ctrl), shift);
    } else if (!alt && pressed(ImGuiKey_RightArrow)) {
        if (HasSelection() && !shift)
            MoveCursor(SelectionMax(), false);
        else
            MoveCursor(Right(_cursor, ctrl), shift);
    } else if (!alt && pressed(ImGuiKey_UpArrow)) {
        moveVertical(-1);
    } else if (!alt && pressed(ImGuiKey_DownArrow)) {
        moveVertical(1);
    } else if (!alt && pressed(ImGuiKey_PageUp)) {
        moveVertical(-std::max(1, _pageLines - 1));
    } else if (!alt && pressed(ImGuiKey_PageDown)) {
        moveVertical(std::max(1, _pageLines - 1));
    } else if (!alt && pressed(ImGuiKey_Home)) {
        MoveCursor(ctrl ? Pos{0, 0} : Pos{_cursor.line, 0}, shift);
    } else if (!alt && pressed(ImGuiKey_End)) {
        MoveCursor(ctrl ? last
                        : Pos{_cursor.line, static_cast<int>(_lines[static_cast<size_t>(_cursor.line)].text.size())},
                   shift);
    } else if (ctrl && !alt && pressed(ImGuiKey_A)) {
        SelectAll();
    } else if (ctrl && !alt && (pressed(ImGuiKey_C) || pressed(ImGuiKey_Insert))) {
        Copy();
    } else if (!ctrl && shift && !alt && pressed(ImGuiKey_Insert)) {
        Paste();
    } else if ((ctrl && !alt && pressed(ImGuiKey_X)) || (!ctrl && shift && !alt && pressed(ImGuiKey_Delete))) {
        Cut();
    } else if (ctrl && !alt && pressed(ImGuiKey_V)) {
        Paste();
    } else if (!ctrl && !alt && pressed(ImGuiKey_Delete)) {
        DeleteForward();
    } else if (!ctrl && !alt && pressed(ImGuiKey_Backspace)) {
        Backspace();
    } else if (!ctrl && !alt && (pressed(ImGuiKey_Enter) || pressed(ImGuiKey_KeyPadEnter))) {
        if (!_readOnly) InsertNewline();
    } else if (!ctrl && !alt && pressed(ImGuiKey_Tab)) {
        InsertText("\t");
    } else if (pressed(ImGuiKey_Escape)) {
        ClearSelection();
    }
    if (!vertical && !(_cursor == before)) _preferredColumn = -1;

    // Typed characters; with Ctrl alone they are shortcuts, Ctrl+Alt is AltGr.
    if (_readOnly || (ctrl && !alt)) return;
    for (ImWchar const ch : io.InputQueueCharacters) {
        unsigned int const c = ch;
        if (c < 32 || c == 127) continue; // control characters come as keys
        char utf8[4];
        size_t length = 0;
        if (c < 0x80) {
            utf8[length++] = static_cast<char>(c);
        } else if (c < 0x800) {
            utf8[length++] = static_cast<char>(0xC0 | (c >> 6));
            utf8[length++] = static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            if (c >= 0xD800 && c < 0xE000) continue; // a lone surrogate is no character
            utf8[length++] = static_cast<char>(0xE0 | (c >> 12));
            utf8[length++] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            utf8[length++] = static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x110000) {
            utf8[length++] = static_cast<char>(0xF0 | (c >> 18));
            utf8[length++] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            utf8[length++] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            utf8[length++] = static_cast<char>(0x80 | (c & 0x3F));
        } else {
            continue;
        }
        InsertText(std::string_view(utf8, length));
    }
}

ImVec2 TextEditor::GetCharacterScreenPos(Coordinates position) const {
    Pos const pos = Clamp(position);
    return ImVec2(_textOrigin.x + static_cast<float>(VisualColumn(pos)) * _charWidth,
                  _textOrigin.y + static_cast<float>(pos.line) * _lineHeight);
}

TextEditor::Pos TextEditor::ScreenToPos(ImVec2 screen) const {
    float const row = std::floor((screen.y - _textOrigin.y) / _lineHeight);
    int const line = static_cast<int>(std::clamp(row, 0.0f, static_cast<float>(GetTotalLines() - 1)));
    float const column = (screen.x - _textOrigin.x) / _charWidth;
    return Pos{line, IndexAtVisual(_lines[static_cast<size_t>(line)].text, column)};
}

void TextEditor::HandleMouse(ImVec2 areaMin, ImVec2 areaMax) {
    ImGuiIO const& io = ImGui::GetIO();
    ImVec2 const mouse = io.MousePos;
    bool const inside = mouse.x >= areaMin.x && mouse.y >= areaMin.y && mouse.x < areaMax.x && mouse.y < areaMax.y;
    if (inside && ImGui::IsWindowHovered() && ImGui::IsMouseClicked(0)) {
        Pos const pos = ScreenToPos(mouse);
        if (ImGui::IsMouseDoubleClicked(0)) {
            SelectWordAt(pos);
            _dragging = false;
        } else {
            MoveCursor(pos, io.KeyShift);
            _dragging = true;
        }
        _preferredColumn = -1;
        _scrollToCursor = true;
        _blinkStart = ImGui::GetTime();
    } else if (_dragging) {
        if (!ImGui::IsMouseDown(0)) {
            _dragging = false;
        } else {
            MoveCursor(ScreenToPos(mouse), true);
            _preferredColumn = -1;
        }
    }
}

// --- drawing ------------------------------------------------------------------------------

void TextEditor::ScrollToCursor(ImVec2 areaMin, ImVec2 areaMax) {
    float const top = static_cast<float>(_cursor.line) * _lineHeight;
    float const height = areaMax.y - areaMin.y;
    if (top < _scroll.y)
        ImGui::SetScrollY(top);
    else if (top + _lineHeight > _scroll.y + height)
        ImGui::SetScrollY(std::max(0.0f, top + _lineHeight - height));

    float const x = static_cast<float>(VisualColumn(_cursor)) * _charWidth;
    float const width = areaMax.x - areaMin.x - _gutterWidth;
    float const margin = 4.0f * _charWidth;
    if (x < _scroll.x)
        ImGui::SetScrollX(std::max(0.0f, x - margin));
    else if (x + _charWidth > _scroll.x + width)
        ImGui::SetScrollX(std::max(0.0f, x + _charWidth + margin - width));
}

void TextEditor::Draw(ImVec2 areaMin, ImVec2 areaMax) {
    ImDrawList* drawList = ImGui::GetWindowDrawList();
    ImFont* font = ImGui::GetFont();
    float const fontSize = ImGui::GetFontSize();
    auto color = [this](PaletteIndex index) { return _colors[static_cast<size_t>(index)]; };
    float const textLeft = areaMin.x + _gutterWidth;
    float const textDy = 0.5f * (_lineHeight - fontSize);

    int const firstLine = std::max(0, static_cast<int>(std::floor((areaMin.y - _textOrigin.y) / _lineHeight)));
    int const lastLine =
        std::min(GetTotalLines() - 1, static_cast<int>(std::floor((areaMax.y - _textOrigin.y) / _lineHeight)));
    Pos const selMin = SelectionMin();
    Pos const selMax = SelectionMax();
    bool const selection = HasSelection();

    ImGui::PushClipRect(ImVec2(textLeft, areaMin.y), areaMax, true);
    for (int i = firstLine; i <= lastLine; ++i) {
        Line const& line = _lines[static_cast<size_t>(i)];
        float const y = _textOrigin.y + static_cast<float>(i) * _lineHeight;

        if (selection && i >= selMin.line && i <= selMax.line) {
            int const from = i == selMin.line ? VisualColumnOf(line.text, selMin.index) : 0;
            int const to = i == selMax.line ? VisualColumnOf(line.text, selMax.index) : line.width + 1; // + line end
            if (to > from)
                drawList->AddRectFilled(ImVec2(_textOrigin.x + static_cast<float>(from) * _charWidth, y),
                                        ImVec2(_textOrigin.x + static_cast<float>(to) * _charWidth, y + _lineHeight),
                                        color(PaletteIndex::Selection));
        } else if (!selection && i == _cursor.line) {
            ImVec2 const a(textLeft, y);
            ImVec2 const b(areaMax.x, y + _lineHeight);
            drawList->AddRectFilled(
                a, b, color(_focused ? PaletteIndex::CurrentLineFill : PaletteIndex::CurrentLineFillInactive));
            drawList->AddRect(a, b, color(PaletteIndex::CurrentLineEdge));
        }

        // Runs of one colour; a tab ends a run and moves to the next tab stop.
        int const size = static_cast<int>(line.text.size());
        char const* text = line.text.data();
        int column = 0;    // visual column of byte b
        int runStart = 0;  // first byte of the current run
        int runColumn = 0; // its visual column
        for (int b = 0;;) {
            bool const end = b == size;
            bool const split = end || text[b] == '\t' ||
                line.colors[static_cast<size_t>(b)] != line.colors[static_cast<size_t>(runStart)];
            if (split && b > runStart) {
                float const x = _textOrigin.x + static_cast<float>(runColumn) * _charWidth;
                if (x < areaMax.x)
                    drawList->AddText(font, fontSize, ImVec2(x, y + textDy),
                                      color(line.colors[static_cast<size_t>(runStart)]), text + runStart, text + b);
            }
            if (end) break;
            int const next = NextIndex(line.text, b);
            int const nextColumn = AdvanceColumn(text[b], column);
            if (text[b] == '\t') {
                runStart = next;
                runColumn = nextColumn;
            } else if (split) {
                runStart = b;
                runColumn = column;
            }
            b = next;
            column = nextColumn;
        }
    }
    if (_focused) {
        double const phase = std::fmod(ImGui::GetTime() - _blinkStart, 1.0);
        if (phase < 0.6) {
            float const x = _textOrigin.x + static_cast<float>(VisualColumn(_cursor)) * _charWidth;
            float const y = _textOrigin.y + static_cast<float>(_cursor.line) * _lineHeight;
            float const w = std::max(1.0f, std::floor(_charWidth * 0.25f));
            drawList->AddRectFilled(ImVec2(x, y), ImVec2(x + w, y + _lineHeight), color(PaletteIndex::Cursor));
        }
    }
    ImGui::PopClipRect();

    // The gutter stays put while the text scrolls sideways.
    for (int i = firstLine; i <= lastLine; ++i) {
        char number[16];
        int const length = std::snprintf(number, sizeof(number), "%d", i + 1);
        if (length <= 0) continue;
        float const y = _textOrigin.y + static_cast<float>(i) * _lineHeight + textDy;
        float const x = textLeft - (static_cast<float>(length) + 1.5f) * _charWidth;
        drawList->AddText(font, fontSize, ImVec2(x, y), color(PaletteIndex::LineNumber), number, number + length);
    }
}

void TextEditor::Render(char const* title, ImVec2 size, bool border) {
    _textChanged = false;
    _charWidth = std::max(1.0f, ImGui::CalcTextSize("#").x);
    _lineHeight = std::max(1.0f, ImGui::GetTextLineHeightWithSpacing());

    ImGui::PushStyleColor(ImGuiCol_ChildBg, _colors[static_cast<size_t>(PaletteIndex::Background)]);
    ImGui::PushStyleVar(ImGuiStyleVar_WindowPadding, ImVec2(0.0f, 0.0f));
    ImGui::BeginChild(title, size, border,
                      ImGuiWindowFlags_HorizontalScrollbar | ImGuiWindowFlags_NoMove | ImGuiWindowFlags_NoNavInputs);
    ImGui::PopStyleVar();
    ImGui::PopStyleColor();

    if (_focusRequest) {
        ImGui::SetWindowFocus();
        _focusRequest = false;
    }
    _focused = ImGui::IsWindowFocused();

    ImGuiWindow const* window = ImGui::GetCurrentWindowRead();
    ImVec2 const areaMin = window->InnerRect.Min;
    ImVec2 const areaMax = window->InnerRect.Max;
    ImVec2 const origin = ImGui::GetCursorScreenPos(); // content corner, scrolled
    _scroll = ImVec2(ImGui::GetScrollX(), ImGui::GetScrollY());

    int digits = 1;
    for (int n = GetTotalLines(); n >= 10; n /= 10) ++digits;
    _gutterWidth = (static_cast<float>(std::max(digits, 3)) + 3.0f) * _charWidth;
    _textOrigin = ImVec2(origin.x + _gutterWidth, origin.y);
    _pageLines = std::max(1, static_cast<int>((areaMax.y - areaMin.y) / _lineHeight));

    Pos const cursorBefore = _cursor;
    if (_focused) {
        ImGui::CaptureKeyboardFromApp(true);
        HandleKeyboard();
    }
    HandleMouse(areaMin, areaMax);
    if (!(_cursor == cursorBefore) || _textChanged) _blinkStart = ImGui::GetTime();
    if (_scrollToCursor) {
        ScrollToCursor(areaMin, areaMax);
        _scrollToCursor = false;
    }

    Draw(areaMin, areaMax);

    // The content's size gives the scroll range.
    ImGui::Dummy(ImVec2(_gutterWidth + static_cast<float>(_maxWidth + 2) * _charWidth,
                        static_cast<float>(GetTotalLines()) * _lineHeight));
    ImGui::EndChild();
}

} // namespace game::graphics::ui
