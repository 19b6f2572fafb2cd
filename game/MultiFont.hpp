#pragma once
// A Dear ImGui font for text in many scripts: a sans-serif text font with
// Greek, Cyrillic and Vietnamese, and monochrome emoji merged into it.
#include <imgui.h>

namespace game {

/// One ImGui font made of two files: the text font, then the emoji font merged
/// in. Construct it while ImGui's font atlas is open for fonts (before the
/// atlas is built, as Game::LoadFonts runs). A file that does not exist is
/// reported on the standard error stream and skipped; font stays null when the
/// text font is missing.
class MultiFont {
public:
    /// The text font and its size in pixels.
    static constexpr char const* TextFontPath = "game/graphics/ui/fonts/NotoSans-Regular.ttf";
    /// The emoji font merged into it.
    static constexpr char const* EmojiFontPath = "game/graphics/ui/fonts/NotoEmoji-Regular.ttf";
    static constexpr float SizePixels = 48.0f;
    /// Inclusive code-point bounds of the emoji (and the joiners and selectors
    /// that emoji sequences use), in pairs, ending in 0.
    static ImWchar const emoji_ranges[];

    /// Adds both files to the current ImGui context's atlas.
    MultiFont();
    MultiFont(MultiFont const&) = delete;
    MultiFont& operator=(MultiFont const&) = delete;

    /// Adds path at SizePixels with config and ranges, which must outlive the
    /// atlas's build. Writes "Font file does not exist: PATH" and returns null
    /// when there is no such file.
    ImFont* AddFont(char const* path, ImWchar const* ranges);

    ImFont* font = nullptr;   ///< The merged font; null without the text font.
    ImVector<ImWchar> ranges; ///< The text font's ranges: default, Greek, Cyrillic, Vietnamese.
    ImFontConfig config;      ///< Settings of the next AddFont; MergeMode is on after the first.
};

} // namespace game
