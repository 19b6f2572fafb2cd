#pragma once
// Drives a TextEditor through whole ImGui frames: a fixed host window holding the
// editor, key chords, clicks and drags at character positions.
#include "game/ui/ImGuiFixture.hpp"

#include "game/graphics/ui/TextEditor.hpp"

#include <initializer_list>
#include <string>

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
    /// A frame that lasts `seconds`, so the next click is no double-click.
    void Idle(float seconds = 1.0f) {
        ImGuiIO& io = ImGui::GetIO();
        float const dt = io.DeltaTime;
        io.DeltaTime = seconds;
        Draw();
        io.DeltaTime = dt;
    }
    /// Holds the keys down for one frame, then releases them for one.
    void Press(std::initializer_list<int> keys) {
        for (int key : keys) Key(key, true);
        Draw();
        for (int key : keys) Key(key, false);
        Draw();
    }
    /// Types the characters in one frame.
    void TypeText(std::u32string const& text) {
        for (char32_t c : text) Type(static_cast<unsigned int>(c));
        Draw();
    }
    /// A point inside the character at `at`, from the last frame's layout.
    ImVec2 At(Coords at) const {
        ImVec2 const p = editor.GetCharacterScreenPos(at);
        return ImVec2(p.x + 0.25f * editor.GetCharacterWidth(), p.y + 0.5f * editor.GetLineHeight());
    }
    /// Left click at a point (pressed for a frame, released for one), then a long idle frame.
    void Click(ImVec2 p, bool shift = false) {
        if (shift) Key(GLFW_KEY_LEFT_SHIFT, true);
        MouseTo(p.x, p.y);
        Mouse(0, true);
        Draw();
        Mouse(0, false);
        Draw();
        if (shift) Key(GLFW_KEY_LEFT_SHIFT, false);
        Idle();
    }
    /// Gives the editor the keyboard focus through its own request.
    void FocusEditor() {
        editor.Focus();
        Draw();
        ASSERT_TRUE(editor.IsFocused());
    }
    /// Whether the last frame drew any vertex of this colour.
    static bool Drew(ImU32 color) {
        ImDrawData const* data = ImGui::GetDrawData();
        if (data == nullptr) return false;
        for (int l = 0; l < data->CmdListsCount; ++l)
            for (ImDrawVert const& v : data->CmdLists[l]->VtxBuffer)
                if (v.col == color) return true;
        return false;
    }
    /// The clipboard's text, empty when unset.
    static std::string Clipboard() {
        char const* text = ImGui::GetClipboardText();
        return text != nullptr ? std::string(text) : std::string();
    }

    Editor editor;
};

} // namespace uitest
