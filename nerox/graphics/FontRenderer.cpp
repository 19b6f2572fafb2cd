#include "nerox/graphics/FontRenderer.hpp"

#include "nerox/graphics/Texture.hpp"

#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace nerox::graphics {

namespace {

/// A glyph's box in the atlas, as the metrics file gives it.
struct Box {
    int x = 0, y = 0, width = 0, height = 0;
};

/// The next character of text from index on (moved past it), as a code point;
/// '?' for a byte that does not start a valid UTF-8 sequence.
uint32_t NextCodePoint(std::string_view text, size_t& index) {
    auto const byte = [&text](size_t i) { return static_cast<unsigned char>(text[i]); };
    unsigned char const lead = byte(index);
    size_t length = 0;
    uint32_t codePoint = 0, least = 0;
    if (lead < 0x80) {
        ++index;
        return lead;
    } else if ((lead & 0xE0) == 0xC0) {
        length = 2, codePoint = lead & 0x1F, least = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3, codePoint = lead & 0x0F, least = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4, codePoint = lead & 0x07, least = 0x10000;
    }
    bool valid = length != 0 && index + length <= text.size();
    for (size_t i = 1; valid && i < length; ++i) {
        valid = (byte(index + i) & 0xC0) == 0x80;
        codePoint = (codePoint << 6) | (byte(index + i) & 0x3F);
    }
    if (!valid || codePoint < least || codePoint > 0x10FFFF) {
        ++index;
        return '?';
    }
    index += length;
    return codePoint;
}

} // namespace

FontRenderer::FontRenderer(std::string const& atlasPath, std::string const& metricsPath) {
    std::ifstream in(metricsPath);
    if (!in) throw std::runtime_error("Cannot read font metrics " + metricsPath);
    int atlasWidth = -1, atlasHeight = -1;
    std::array<Box, 256> boxes{};
    std::array<bool, 256> listed{};
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        auto const fail = [&](std::string const& why) {
            throw std::runtime_error("Font metrics " + metricsPath + " line " + std::to_string(number) + ": " + why);
        };
        std::istringstream words(line);
        std::string key;
        if (!(words >> key) || key[0] == '#') continue;
        auto read = [&](int& value) {
            if (!(words >> value)) fail("a number is missing or malformed after \"" + key + "\"");
        };
        if (key == "atlas") {
            if (atlasWidth >= 0) fail("a second atlas line");
            read(atlasWidth), read(atlasHeight);
            if (atlasWidth < 0 || atlasHeight < 0) fail("a negative atlas size");
        } else if (key == "char_width") {
            read(_charWidth);
        } else if (key == "char_height") {
            read(_charHeight);
        } else if (key == "ascent") {
            read(_ascent);
        } else if (key == "glyph") {
            int codePoint = 0;
            Glyph glyph;
            Box box;
            read(codePoint), read(box.x), read(box.y), read(box.width), read(box.height);
            read(glyph.bearingX), read(glyph.bearingY), read(glyph.advance);
            if (codePoint < 0 || codePoint > 255) fail("code point " + std::to_string(codePoint) + " is not 0 to 255");
            if (box.width < 0 || box.height < 0 || box.x < 0 || box.y < 0 || int64_t{box.x} + box.width > atlasWidth ||
                int64_t{box.y} + box.height > atlasHeight)
                fail("the glyph's box lies outside the " + std::to_string(atlasWidth) + "x" +
                     std::to_string(atlasHeight) + " atlas (or comes before the atlas line)");
            glyph.width = box.width, glyph.height = box.height;
            _glyphs[codePoint] = glyph;
            boxes[codePoint] = box;
            listed[codePoint] = true;
        } // cell, descent, baseline: not needed here
    }
    if (_charWidth <= 0 || _charHeight <= 0)
        throw std::runtime_error("Font metrics " + metricsPath + ": char_width or char_height is missing");

    ImageData const atlas = Texture::LoadFile(atlasPath, 4);
    if (atlas.isFloat || atlas.width != atlasWidth || atlas.height != atlasHeight)
        throw std::runtime_error("Font atlas " + atlasPath + " is " + std::to_string(atlas.width) + "x" +
                                 std::to_string(atlas.height) + ", its metrics say " + std::to_string(atlasWidth) +
                                 "x" + std::to_string(atlasHeight));
    size_t total = 0;
    for (Box const& box : boxes) total += static_cast<size_t>(box.width) * box.height;
    _bitmaps.resize(total);
    size_t offset = 0;
    for (int codePoint = 0; codePoint < 256; ++codePoint) {
        Box const& box = boxes[codePoint];
        Glyph& glyph = _glyphs[codePoint];
        if (!listed[codePoint] || box.width == 0 || box.height == 0) {
            glyph.width = glyph.height = 0;
            continue;
        }
        glyph.bitmap = _bitmaps.data() + offset;
        for (int row = 0; row < box.height; ++row)
            for (int column = 0; column < box.width; ++column) {
                size_t const pixel = (static_cast<size_t>(box.y + row) * atlas.width + box.x + column) * 4;
                _bitmaps[offset++] = atlas.pixels[pixel + 3] >= InkThreshold ? 255 : 0;
            }
    }
    _empty = std::make_shared<std::vector<Glyph> const>();
}

FontRenderer& FontRenderer::Monospace() {
    static FontRenderer* const font = [] {
        try {
            return new FontRenderer(MonospaceAtlasPath, MonospaceMetricsPath);
        } catch (std::exception const& failure) {
            std::fprintf(stderr, "FontRenderer: no monospace font, text is not drawn: %s\n", failure.what());
            auto* none = new FontRenderer();
            none->_empty = std::make_shared<std::vector<Glyph> const>();
            return none;
        }
    }(); // kept for the whole process: screens may draw text while statics are destroyed
    return *font;
}

FontRenderer::Glyphs FontRenderer::operator[](std::string_view text) {
    if (text.empty() || _charWidth <= 0) return _empty;
    {
        std::lock_guard lock(_cacheMutex);
        auto const found = _cache.find(text);
        if (found != _cache.end()) return found->second;
    }
    auto glyphs = std::make_shared<std::vector<Glyph>>();
    glyphs->reserve(text.size());
    for (size_t index = 0; index < text.size();) {
        uint32_t const codePoint = NextCodePoint(text, index);
        glyphs->push_back(_glyphs[codePoint <= 255 ? codePoint : '?']);
    }
    Glyphs result = std::move(glyphs);
    std::lock_guard lock(_cacheMutex);
    if (_cache.size() >= MaxCachedTexts) _cache.clear();
    _cache.try_emplace(std::string(text), result);
    return result;
}

size_t FontRenderer::CachedTexts() const {
    std::lock_guard lock(_cacheMutex);
    return _cache.size();
}

} // namespace nerox::graphics
