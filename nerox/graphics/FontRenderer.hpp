#pragma once
// Text as glyph bitmaps for drawing on the CPU: the monospace font atlas that
// the build makes (an RGBA image and its metrics file) cut into one byte
// bitmap per character.
#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace nerox::graphics {

/// Glyphs of a bitmap font for code points 0 to 255, looked up per text.
///
/// A text is read as UTF-8: each character gives one glyph record, in order.
/// A character above code point 255, or a byte that does not start a valid
/// UTF-8 sequence, gives the glyph of '?'. A character the atlas has no glyph
/// for gives an empty record (no ink), which still takes its advance.
///
/// The results are cached per text, so redrawing the same text costs one hash
/// lookup. The cache holds at most MaxCachedTexts texts and is emptied when it
/// is full; a caller keeps its result alive through the shared pointer.
/// Any thread may call operator[].
class FontRenderer {
public:
    /// One character's ink. Rows run from the top; a byte is 255 where the
    /// glyph has ink and 0 elsewhere.
    struct Glyph {
        unsigned char const* bitmap = nullptr; ///< width x height bytes, owned by the renderer; null without ink
        int width = 0;                         ///< Bitmap columns.
        int height = 0;                        ///< Bitmap rows.
        int bearingX = 0;                      ///< From the pen to the bitmap's left column, pixels.
        int bearingY = 0;                      ///< From the baseline up to the bitmap's top row, pixels.
        int advance = 0;                       ///< The pen's step after the glyph, pixels.
    };
    /// The glyphs of one text.
    using Glyphs = std::shared_ptr<std::vector<Glyph> const>;

    /// Texts kept in the cache at most.
    static constexpr size_t MaxCachedTexts = 4096;
    /// Coverage (0 to 255) from which an atlas pixel counts as ink.
    static constexpr unsigned char InkThreshold = 100;
    /// The build's monospace atlas and metrics, relative to the run directory.
    static constexpr char const* MonospaceAtlasPath = "game/graphics/ui/textures/monospace_font_atlas.png";
    static constexpr char const* MonospaceMetricsPath = "game/graphics/ui/textures/monospace_font_atlas.txt";

    /// Reads an atlas image and its metrics file (the format that
    /// tessara_fontatlas writes). Throws std::runtime_error naming the file
    /// (and line) when either cannot be read or a glyph's box lies outside the atlas.
    FontRenderer(std::string const& atlasPath, std::string const& metricsPath);
    FontRenderer(FontRenderer const&) = delete;
    FontRenderer& operator=(FontRenderer const&) = delete;

    /// The process's monospace font, read from the run directory at the first
    /// call. When it cannot be read, one line says why on the standard error
    /// stream and the font has no glyphs: every text gives an empty result.
    static FontRenderer& Monospace();

    /// The glyph records of text, one per character; empty for an empty text
    /// or a font without glyphs.
    Glyphs operator[](std::string_view text);

    int CharWidth() const { return _charWidth; }   ///< Advance of one character, pixels.
    int CharHeight() const { return _charHeight; } ///< Height of a line, pixels.
    int Ascent() const { return _ascent; }         ///< Rows above the baseline.
    /// The record of one code point (0 to 255).
    Glyph const& GlyphOf(unsigned char codePoint) const { return _glyphs[codePoint]; }
    /// Texts in the cache now.
    size_t CachedTexts() const;

private:
    FontRenderer() = default; // no glyphs: what Monospace() keeps when the files cannot be read

    struct TextHash {
        using is_transparent = void;
        size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
    };

    std::array<Glyph, 256> _glyphs{};
    std::vector<unsigned char> _bitmaps; // every glyph's bytes, one after another
    int _charWidth = 0, _charHeight = 0, _ascent = 0;

    mutable std::mutex _cacheMutex; // guards _cache
    std::unordered_map<std::string, Glyphs, TextHash, std::equal_to<>> _cache;
    Glyphs _empty;
};

} // namespace nerox::graphics
