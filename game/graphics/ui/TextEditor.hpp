#pragma once
#include <imgui.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace game::graphics::ui {

/// A multi-line code view over Dear ImGui: read-only or editable, with NeroxCode
/// syntax colouring, line numbers, selection, scrolling and the clipboard.
/// Positions are (line, column), both from zero; a column counts characters
/// (UTF-8 code points, a tab is one). Every position passed in is clamped to the text.
class TextEditor {
public:
    /// What each palette entry colours.
    enum class PaletteIndex : uint8_t {
        Default,
        Keyword,
        Number,
        String,
        CharLiteral,
        Punctuation,
        Preprocessor,
        Identifier,
        KnownIdentifier,
        PreprocIdentifier,
        Comment,
        MultiLineComment,
        Background,
        Cursor,
        Selection,
        ErrorMarker,
        ControlCharacter,
        Breakpoint,
        LineNumber,
        CurrentLineFill,
        CurrentLineFillInactive,
        CurrentLineEdge,
        Max
    };
    /// One colour per PaletteIndex, each as 0xRRGGBBAA.
    using Palette = std::array<uint32_t, static_cast<size_t>(PaletteIndex::Max)>;

    /// A place in the text.
    struct Coordinates {
        int line = 0;   ///< Line, from zero.
        int column = 0; ///< Character within the line, from zero; the line's length is its end.
        /// Orders by line, then column.
        auto operator<=>(Coordinates const&) const = default;
    };

    /// Columns a tab advances to (the next multiple of this).
    static constexpr int TabSize = 4;

    /// An empty, editable text with the dark palette.
    TextEditor();

    /// Replaces the whole text ("\r\n" read as "\n"), keeping cursor and selection clamped; no edit, no ImGui needed.
    void SetText(std::string const& text);
    /// The whole text, lines joined by "\n".
    std::string GetText() const;
    /// Number of lines; an empty text has one, a text ending in "\n" ends with an empty one.
    int GetTotalLines() const { return static_cast<int>(_lines.size()); }
    /// The text of one line (clamped), without its line end.
    std::string const& GetLineText(int line) const;

    /// Sets the colours used from the next frame on.
    void SetPalette(Palette const& palette);
    /// The colours in use, each 0xRRGGBBAA.
    Palette const& GetPalette() const { return _palette; }
    /// The default palette: light text on a dark background.
    static Palette const& GetDarkPalette();
    /// Converts 0xRRGGBBAA to Dear ImGui's packed colour, IM_COL32(r, g, b, a).
    static ImU32 ToImGuiColor(uint32_t rrggbbaa);

    /// A read-only editor takes selection, navigation and copying, and no edit at all.
    void SetReadOnly(bool readOnly) { _readOnly = readOnly; }
    /// Whether edits are refused.
    bool IsReadOnly() const { return _readOnly; }

    /// The colour class of one character; Default past the end of a line.
    PaletteIndex GetColorIndex(int line, int column) const;

    /// Moves the cursor there and drops the selection.
    void SetCursorPosition(Coordinates position);
    /// Where the cursor is (the moving end of the selection).
    Coordinates GetCursorPosition() const;
    /// Selects from `start` to `end`; the cursor goes to `end`.
    void SetSelection(Coordinates start, Coordinates end);
    /// The first position of the selection (the cursor when nothing is selected).
    Coordinates GetSelectionStart() const;
    /// The position after the selection (the cursor when nothing is selected).
    Coordinates GetSelectionEnd() const;
    /// Whether some text is selected.
    bool HasSelection() const { return _anchor.line != _cursor.line || _anchor.index != _cursor.index; }
    /// The selected text, lines joined by "\n"; empty without a selection.
    std::string GetSelectedText() const;
    /// Selects the whole text, cursor at its end.
    void SelectAll();
    /// Drops the selection, keeping the cursor.
    void ClearSelection();

    /// Puts the selected text on ImGui's clipboard; nothing happens without a selection.
    void Copy();
    /// Copy, then deletes the selection; refused when read-only.
    void Cut();
    /// Replaces the selection by ImGui's clipboard text; refused when read-only.
    void Paste();
    /// Replaces the selection by `text` ("\r\n" read as "\n"), cursor after it; refused when read-only.
    void InsertText(std::string_view text);
    /// Deletes the selection; refused when read-only.
    void DeleteSelection();

    /// Whether the text was edited (keys, Cut, Paste, InsertText, ...) since the last Render began.
    bool IsTextChanged() const { return _textChanged; }
    /// Gives the editor the keyboard focus in its next Render.
    void Focus() { _focusRequest = true; }
    /// Whether the editor had the keyboard focus in its last Render.
    bool IsFocused() const { return _focused; }
    /// Scroll offset in pixels (x, y) seen by the last Render.
    ImVec2 GetScroll() const { return _scroll; }
    /// Screen position of the top-left corner of a character as laid out by the last Render.
    ImVec2 GetCharacterScreenPos(Coordinates position) const;
    /// Line height in pixels used by the last Render.
    float GetLineHeight() const { return _lineHeight; }
    /// Character width in pixels used by the last Render.
    float GetCharacterWidth() const { return _charWidth; }

    /// Draws the editor as a child window named `title` and handles its input.
    void Render(char const* title, ImVec2 size = ImVec2(0.0f, 0.0f), bool border = false);

private:
    /// One line: its bytes, a colour class per byte, and its width in columns.
    struct Line {
        std::string text;
        std::vector<PaletteIndex> colors;
        int width = 0;
    };
    /// A position with the column as a byte index, always at a character start.
    struct Pos {
        int line = 0;
        int index = 0;
        auto operator<=>(Pos const&) const = default;
    };

    Pos Clamp(Coordinates position) const;
    Pos ClampPos(Pos pos) const;
    Coordinates ToCoordinates(Pos pos) const;
    Pos SelectionMin() const { return _anchor < _cursor ? _anchor : _cursor; }
    Pos SelectionMax() const { return _anchor < _cursor ? _cursor : _anchor; }
    std::string TextBetween(Pos from, Pos to) const;
    int VisualColumn(Pos pos) const;
    Pos Left(Pos pos, bool word) const;
    Pos Right(Pos pos, bool word) const;
    void SelectWordAt(Pos pos);

    void UpdateLine(int line);
    void UpdateWidth();
    void EraseRange(Pos from, Pos to);
    Pos InsertAt(Pos pos, std::string_view text);
    void MarkEdited();
    void InsertNewline();
    void Backspace();
    void DeleteForward();

    void MoveCursor(Pos pos, bool extend);
    void HandleKeyboard();
    void HandleMouse(ImVec2 areaMin, ImVec2 areaMax);
    Pos ScreenToPos(ImVec2 screen) const;
    void ScrollToCursor(ImVec2 areaMin, ImVec2 areaMax);
    void Draw(ImVec2 areaMin, ImVec2 areaMax);

    std::vector<Line> _lines;
    Pos _cursor;               // moving end of the selection
    Pos _anchor;               // fixed end of the selection; equals _cursor without one
    int _preferredColumn = -1; // visual column kept by Up/Down, -1 when unset
    int _maxWidth = 0;         // widest line in columns
    Palette _palette{};
    std::array<ImU32, static_cast<size_t>(PaletteIndex::Max)> _colors{};
    bool _readOnly = false;
    bool _textChanged = false;
    bool _scrollToCursor = false;
    bool _focusRequest = false;
    bool _focused = false;
    bool _dragging = false;
    double _blinkStart = 0.0;
    // Layout of the last frame.
    ImVec2 _textOrigin{0.0f, 0.0f}; // screen position of line 0, column 0
    ImVec2 _scroll{0.0f, 0.0f};
    float _charWidth = 7.0f;
    float _lineHeight = 17.0f;
    float _gutterWidth = 0.0f;
    int _pageLines = 20;
};

} // namespace game::graphics::ui
