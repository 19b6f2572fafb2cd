#include "game/graphics/ui/TextEditor.hpp"

namespace game::graphics::ui {

TextEditor::TextEditor() = default;

void TextEditor::SetText(std::string const& text) {
    _lines.assign(1, std::string());
    for (char c : text) {
        if (c == '\n') _lines.emplace_back();
        else _lines.back() += c;
    }
    for (std::string& line : _lines)
        if (!line.empty() && line.back() == '\r') line.pop_back();
}

std::string TextEditor::GetText() const {
    std::string text;
    for (size_t i = 0; i < _lines.size(); ++i) {
        if (i > 0) text += '\n';
        text += _lines[i];
    }
    return text;
}

void TextEditor::SetPalette(Palette const& palette) { _palette = palette; }

void TextEditor::Render(char const* title, ImVec2 size, bool border) {
    ImGui::BeginChild(title, size, border);
    for (std::string const& line : _lines) ImGui::TextUnformatted(line.c_str());
    ImGui::EndChild();
}

} // namespace game::graphics::ui
