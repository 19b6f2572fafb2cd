#pragma once
#include <imgui.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace game::graphics::ui {

/// A multi-line code view over Dear ImGui: read-only or editable, with syntax
/// colouring, line numbers, selection and copy.
class TextEditor {
public:
    /// What each palette entry colours.
    enum class PaletteIndex : uint8_t {
        Default, Keyword, Number, String, CharLiteral, Punctuation, Preprocessor, Identifier,
        KnownIdentifier, PreprocIdentifier, Comment, MultiLineComment, Background, Cursor, Selection,
        ErrorMarker, ControlCharacter, Breakpoint, LineNumber, CurrentLineFill, CurrentLineFillInactive,
        CurrentLineEdge, Max
    };
    /// One colour per PaletteIndex, each as 0xRRGGBBAA.
    using Palette = std::array<uint32_t, static_cast<size_t>(PaletteIndex::Max)>;

    TextEditor();

    /// Replaces the whole text; line ends are "\n" (a "\r" before one is dropped).
    void SetText(std::string const& text);
    /// The whole text, lines joined by "\n".
    std::string GetText() const;

    void SetPalette(Palette const& palette);
    Palette const& GetPalette() const { return _palette; }

    void SetReadOnly(bool readOnly) { _readOnly = readOnly; }
    bool IsReadOnly() const { return _readOnly; }

    /// Draws the editor as a child window and handles its input.
    void Render(char const* title, ImVec2 size = ImVec2(0.0f, 0.0f), bool border = false);

private:
    std::vector<std::string> _lines{std::string()};
    Palette _palette{};
    bool _readOnly = false;
};

} // namespace game::graphics::ui
