// Glyphs cut from a font atlas: text decoded as UTF-8 into one record per
// character, cached per text, and atlases that do not fit their metrics refused.
#include "nerox/graphics/FontRenderer.hpp"
#include "nerox/graphics/Texture.hpp"
#include "support/TempDir.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

namespace {

using nerox::graphics::FontRenderer;

// A 4 x 2 atlas: 'A' is the left 2 x 2 block (one faint pixel below the ink
// threshold), '?' the right one.
struct TinyFont {
    testsupport::TempDir dir;
    std::string atlas = dir.File("atlas.png"), metrics = dir.File("atlas.txt");

    explicit TinyFont(std::string const& glyphLines) {
        unsigned char rgba[4 * 2 * 4] = {};
        for (int pixel : {0, 1, 4, 2, 3, 6, 7}) rgba[pixel * 4 + 3] = 255;
        rgba[5 * 4 + 3] = FontRenderer::InkThreshold - 1;
        nerox::graphics::Texture::SaveFile(atlas, 4, 2, 4, false, rgba, 0);
        std::ofstream(metrics) << "# tiny\natlas 4 2\ncell 2 2\nchar_width 3\nchar_height 2\nascent 2\n" << glyphLines;
    }
};

TEST(FontRenderer, TextGivesOneGlyphPerCharacter) {
    TinyFont tiny("glyph 65 0 0 2 2 0 2 3\nglyph 63 2 0 2 2 1 2 3\n");
    FontRenderer font(tiny.atlas, tiny.metrics);
    FontRenderer::Glyph const& a = font.GlyphOf('A');
    ASSERT_EQ(a.width * a.height, 4);
    EXPECT_EQ(std::vector<unsigned char>(a.bitmap, a.bitmap + 4), (std::vector<unsigned char>{255, 255, 255, 0}));
    struct Case {
        char const* text;
        std::vector<int> bearings; // 0 for 'A', 1 for '?', -1 for a glyph without ink
    };
    for (Case const& c : std::vector<Case>{{"", {}},
                                           {"A?", {0, 1}},
                                           {"A\xE2\x82\xAC", {0, 1}},    // the euro sign is past code point 255
                                           {"\xC3\x41", {1, 0}},         // a lead byte without its continuation
                                           {"\xC1\x81", {1, 1}},         // an overlong 'A'
                                           {"\xC3\xA9 ", {-1, -1}},      // é and space: in range, without ink here
                                           {"\xF0\x9F\x98", {1, 1, 1}}}) // cut off
    {
        FontRenderer::Glyphs const glyphs = font[c.text];
        std::vector<int> bearings;
        for (FontRenderer::Glyph const& g : *glyphs) bearings.push_back(g.bitmap == nullptr ? -1 : g.bearingX);
        EXPECT_EQ(bearings, c.bearings) << c.text;
    }
    EXPECT_EQ(font["A?"].get(), font["A?"].get()); // cached
    EXPECT_EQ(font.CharWidth(), 3);
}

TEST(FontRenderer, MetricsThatDoNotFitTheAtlasAreRefused) {
    for (char const* glyphs : {"glyph 65 3 0 2 2 0 2 3\n", "glyph 65 2147483647 0 2 2 0 2 3\n",
                               "glyph 256 0 0 1 1 0 1 3\n", "glyph 65 0 0 2\n"}) {
        TinyFont tiny(glyphs);
        EXPECT_THROW(FontRenderer(tiny.atlas, tiny.metrics), std::runtime_error) << glyphs;
    }
    TinyFont tiny("");
    std::ofstream(tiny.metrics, std::ios::app) << "atlas 8 8\n";
    EXPECT_THROW(FontRenderer(tiny.atlas, tiny.metrics), std::runtime_error);
    EXPECT_THROW(FontRenderer(tiny.atlas, tiny.dir.File("none.txt")), std::runtime_error);
}

} // namespace
