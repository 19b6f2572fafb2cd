#pragma once
// Drives a TextEditor through whole ImGui frames: a fixed host window holding the
// editor, key chords, clicks and drags at character positions.
#include "game/ui/ImGuiFixture.hpp"

#include "game/graphics/ui/TextEditor.hpp"

#include <string>
#include <vector>

namespace uitest {

using Editor = game::graphics::ui::TextEditor;
using Coords = Editor::Coordinates;
using Pal = Editor::PaletteIndex;

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
    }
    /// A frame that lasts a second, so the next click is no double click.
    void Idle() {
        ImGui::GetIO().DeltaTime = 1.0f;
        Draw();
        ImGui::GetIO().DeltaTime = 1.0f / 60.0f;
    }
    /// Holds the keys down for one frame with `typed` typed in it, then lets go for one.
    /// Returns whether the editor reported an edit in the first frame.
    bool Press(std::vector<int> const& keys, std::u32string const& typed = U"") {
        for (int key : keys) Key(key, true);
        for (char32_t c : typed) Type(static_cast<unsigned int>(c));
        Draw();
        bool const changed = editor.IsTextChanged();
        for (int key : keys) Key(key, false);
        Draw();
        return changed;
    }
    /// A point inside the character at `at`, from the last frame's layout.
    ImVec2 At(Coords at) const {
        ImVec2 const p = editor.GetCharacterScreenPos(at);
        return ImVec2(p.x + 0.25f * editor.GetCharacterWidth(), p.y + 0.5f * editor.GetLineHeight());
    }
    /// Moves to `p` and presses the left button there for a frame, then lets go for one.
    void Click(ImVec2 p) {
        MouseTo(p.x, p.y);
        Mouse(0, true);
        Draw();
        Mouse(0, false);
        Draw();
    }

    Editor editor;
};

} // namespace uitest
