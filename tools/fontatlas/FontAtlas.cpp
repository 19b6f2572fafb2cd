// tessara_fontatlas: renders the game's monospace font atlas and its glyph metrics
// from a TrueType font, at build time.
//
//   tessara_fontatlas FONT.ttf OUT.png OUT_METRICS.txt PIXEL_HEIGHT
//
// PIXEL_HEIGHT (4 to 256) is handed to stbtt_ScaleForPixelHeight: the font's
// ascent-to-descent span becomes that many pixels, so it is the height of a line
// without the font's line gap.
//
// The atlas is a grid of 16 x 16 equal cells indexed by code point 0..255: code
// point CP sits at column CP % 16, row CP / 16. Printable ASCII (32..126) and
// Latin-1 (160..255) have their glyphs there when the font has them; control codes
// and 127..159 stay empty. Every glyph hangs from a common baseline, its pen
// position at its cell's left edge, and is clipped to its cell. The PNG is 8-bit
// RGBA: RGB is white everywhere and alpha is the antialiased coverage, so a shader
// can tint it.
//
// Metrics file (text, one item per line; lines starting with '#' are comments, and
// the file starts with a few of them describing this format). All numbers are
// integer pixels, y grows downwards:
//   atlas W H          size of the image (16 cells by 16 cells)
//   cell W H           size of one cell
//   char_width N       advance from one character to the next (the widest advance
//                      of the font's glyphs, rounded up; one value for a monospace font)
//   char_height N      line height: ascent - descent + the font's line gap, rounded up
//   ascent N           rows of a cell above the baseline (equal to baseline)
//   descent N          rows of a line below the baseline, negative (ascent - descent
//                      is PIXEL_HEIGHT; the line gap, if any, lies below them)
//   baseline N         the baseline's row in a cell: rows 0..N-1 are above it
//   glyph CP X Y W H BEARING_X BEARING_Y ADVANCE
//                      one line per code point whose glyph is in the atlas, in code
//                      point order. X Y W H is the glyph's ink box in the atlas, tight
//                      around its pixels of non-zero alpha (W and H are 0, and X Y the
//                      cell's baseline at its left edge, for a glyph without ink such
//                      as the space). BEARING_X is the box's left edge minus the pen's
//                      x, BEARING_Y the baseline's y minus the box's top (the rows of
//                      ink above the baseline), ADVANCE the pen's step after the glyph.
// A renderer draws a glyph with its pen at (PX, PY) on the baseline by copying the
// atlas box to (PX + BEARING_X, PY - BEARING_Y).
//
// Both files are written under temporary names beside their destinations and
// renamed into place once both are complete, so a failed run leaves nothing new
// behind (and files already at the output paths as they were). Wrong arguments exit
// with status 2, anything else that fails (an unreadable or malformed font, an
// unwritable output) with status 1; either with one line on the standard error
// stream. The same font and size always give the same bytes.
//
// The font's table directory and the tables stb_truetype reads fixed fields from are
// checked against the file's size first; stb_truetype trusts the glyph outlines
// themselves, so the tool is meant for installed fonts such as Debian's.
#define STB_TRUETYPE_IMPLEMENTATION
#define STBTT_STATIC
#include <stb/stb_truetype.h>

#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#define STBI_WRITE_NO_STDIO
#include <stb/stb_image_write.h>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr int kGridSize = 16; // cells per row and per column
constexpr int kMinPixelHeight = 4;
constexpr int kMaxPixelHeight = 256;
constexpr char const* kUsage = "usage: tessara_fontatlas FONT.ttf OUT.png OUT_METRICS.txt PIXEL_HEIGHT";

/// Wrong command-line arguments (exit status 2).
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

bool HasGlyphCell(int codepoint) {
    return (codepoint >= 32 && codepoint <= 126) || (codepoint >= 160 && codepoint <= 255);
}

int ParsePixelHeight(char const* text) {
    std::string const value = text;
    bool const digits = !value.empty() && value.size() <= 4 &&
        std::all_of(value.begin(), value.end(), [](char c) { return c >= '0' && c <= '9'; });
    int const height = digits ? std::stoi(value) : 0;
    if (height < kMinPixelHeight || height > kMaxPixelHeight)
        throw UsageError("PIXEL_HEIGHT must be a whole number from " + std::to_string(kMinPixelHeight) + " to " +
                         std::to_string(kMaxPixelHeight) + ", not '" + value + "'");
    return height;
}

std::vector<unsigned char> ReadFile(std::string const& path) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error))
        throw std::runtime_error("cannot read font " + path + ": " +
                                 (std::filesystem::exists(path, error) ? "not a regular file" : "no such file"));
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read font " + path + ": " + std::strerror(errno));
    std::vector<unsigned char> data((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (file.bad()) throw std::runtime_error("cannot read font " + path + ": read error");
    return data;
}

// ---------------------------------------------------------------------------
// Font checks

uint32_t ReadU16(std::vector<unsigned char> const& data, size_t at) {
    return (uint32_t{data[at]} << 8) | data[at + 1];
}

uint32_t ReadU32(std::vector<unsigned char> const& data, size_t at) {
    return (ReadU16(data, at) << 16) | ReadU16(data, at + 2);
}

struct TableSpan {
    size_t offset = 0;
    size_t length = 0;
    bool present = false;
};

/// Checks what stb_truetype reads without bounds checks of its own: the table
/// directory (every table within the file), the fixed fields of head, hhea, maxp and hmtx, the cmap's encoding
/// records and the loca offsets into glyf. Throws with the reason.
void CheckFont(std::vector<unsigned char> const& data, std::string const& path) {
    auto fail = [&](std::string const& reason) { throw std::runtime_error("invalid font " + path + ": " + reason); };
    if (data.size() < 16) fail("the file is too short to be a font");
    int const start = stbtt_GetFontOffsetForIndex(data.data(), 0);
    if (start < 0 || static_cast<size_t>(start) + 12 > data.size()) fail("not a TrueType or OpenType font");
    size_t const base = static_cast<size_t>(start);
    size_t const tables = ReadU16(data, base + 4);
    if (base + 12 + tables * 16 > data.size()) fail("the table directory runs past the end of the file");
    for (size_t i = 0; i < tables; ++i) {
        size_t const record = base + 12 + i * 16;
        size_t const offset = ReadU32(data, record + 8);
        size_t const length = ReadU32(data, record + 12);
        if (offset > data.size() || length > data.size() - offset)
            fail("table '" + std::string(reinterpret_cast<char const*>(&data[record]), 4) +
                 "' runs past the end of the file (is the file cut short?)");
    }

    auto find = [&](char const* tag) {
        TableSpan span;
        for (size_t i = 0; i < tables; ++i) {
            size_t const record = base + 12 + i * 16;
            if (std::memcmp(&data[record], tag, 4) != 0) continue;
            span.offset = ReadU32(data, record + 8);
            span.length = ReadU32(data, record + 12);
            span.present = true;
            return span;
        }
        return span;
    };
    auto require = [&](char const* tag, size_t minLength) {
        TableSpan const span = find(tag);
        if (!span.present) fail(std::string("no '") + tag + "' table");
        if (span.length < minLength) fail(std::string("table '") + tag + "' is too short");
        return span;
    };

    TableSpan const head = require("head", 54);
    TableSpan const hhea = require("hhea", 36);
    TableSpan const maxp = require("maxp", 6);
    TableSpan const cmap = require("cmap", 4);
    size_t const glyphs = ReadU16(data, maxp.offset + 4);
    size_t const longMetrics = ReadU16(data, hhea.offset + 34);
    if (longMetrics == 0 || longMetrics > glyphs) fail("hhea's metrics count does not fit the glyph count");
    require("hmtx", longMetrics * 4 + (glyphs - longMetrics) * 2);

    size_t const encodings = ReadU16(data, cmap.offset + 2);
    if (4 + encodings * 8 > cmap.length) fail("cmap's encoding records run past the table");
    for (size_t i = 0; i < encodings; ++i) {
        size_t const subtable = ReadU32(data, cmap.offset + 4 + i * 8 + 4);
        if (subtable + 4 > cmap.length) fail("a cmap subtable lies outside the table");
    }

    TableSpan const glyf = find("glyf");
    if (glyf.present) {
        bool const longOffsets = ReadU16(data, head.offset + 50) != 0;
        TableSpan const loca = require("loca", (glyphs + 1) * (longOffsets ? 4 : 2));
        for (size_t i = 0; i <= glyphs; ++i) {
            size_t const offset =
                longOffsets ? ReadU32(data, loca.offset + i * 4) : ReadU16(data, loca.offset + i * 2) * 2;
            if (offset > glyf.length) fail("a glyph lies outside the 'glyf' table");
        }
    } else if (!find("CFF ").present) {
        fail("no glyph outlines ('glyf' or 'CFF ' table)");
    }
}

// ---------------------------------------------------------------------------
// Layout and rendering

struct Layout {
    int pixelHeight = 0;
    float scale = 0.0f; // font units to pixels
    int cellWidth = 0;  // = char width
    int cellHeight = 0; // = char height
    int baseline = 0;   // = ascent
    int descent = 0;    // negative
};

struct Glyph {
    int codepoint = 0;
    int x = 0, y = 0, width = 0, height = 0;
    int bearingX = 0, bearingY = 0;
    int advance = 0;
};

struct Atlas {
    Layout layout;
    int width = 0;
    int height = 0;
    std::vector<unsigned char> rgba;
    std::vector<Glyph> glyphs;
};

/// ceil(a / b) for a >= 0, b > 0.
int64_t CeilDiv(int64_t a, int64_t b) {
    return (a + b - 1) / b;
}

Atlas BuildAtlas(stbtt_fontinfo const& font, int pixelHeight, std::string const& path) {
    int ascentUnits = 0, descentUnits = 0, gapUnits = 0;
    stbtt_GetFontVMetrics(&font, &ascentUnits, &descentUnits, &gapUnits);
    if (ascentUnits <= 0 || descentUnits > 0 || ascentUnits - descentUnits <= 0)
        throw std::runtime_error("invalid font " + path + ": its ascent and descent (" + std::to_string(ascentUnits) +
                                 ", " + std::to_string(descentUnits) + ") span no height");
    int64_t const span = int64_t{ascentUnits} - descentUnits;
    int64_t const gap = std::max(gapUnits, 0);

    // Every size comes from the font's integer units, so that no rounding of the
    // float scale can tip a value over a whole pixel.
    Atlas atlas;
    Layout& layout = atlas.layout;
    layout.pixelHeight = pixelHeight;
    layout.scale = stbtt_ScaleForPixelHeight(&font, static_cast<float>(pixelHeight));
    layout.cellHeight = static_cast<int>(CeilDiv(pixelHeight * (span + gap), span));
    layout.baseline = static_cast<int>((2 * pixelHeight * int64_t{ascentUnits} + span) / (2 * span));
    layout.baseline = std::clamp(layout.baseline, 0, pixelHeight);
    layout.descent = layout.baseline - pixelHeight;

    std::array<int, 256> advances{};
    for (int cp = 0; cp < 256; ++cp) {
        if (!HasGlyphCell(cp) || stbtt_FindGlyphIndex(&font, cp) == 0) continue;
        int advanceUnits = 0, bearingUnits = 0;
        stbtt_GetCodepointHMetrics(&font, cp, &advanceUnits, &bearingUnits);
        advances[cp] = static_cast<int>(CeilDiv(pixelHeight * int64_t{std::max(advanceUnits, 0)}, span));
        layout.cellWidth = std::max(layout.cellWidth, advances[cp]);
    }
    if (layout.cellWidth == 0)
        throw std::runtime_error("invalid font " + path + ": none of its ASCII or Latin-1 glyphs advances the pen");

    atlas.width = kGridSize * layout.cellWidth;
    atlas.height = kGridSize * layout.cellHeight;
    atlas.rgba.assign(static_cast<size_t>(atlas.width) * atlas.height * 4, 255);
    for (size_t i = 3; i < atlas.rgba.size(); i += 4) atlas.rgba[i] = 0;

    std::vector<unsigned char> coverage;
    for (int cp = 0; cp < 256; ++cp) {
        if (!HasGlyphCell(cp) || stbtt_FindGlyphIndex(&font, cp) == 0) continue;
        int const cellX = (cp % kGridSize) * layout.cellWidth;
        int const cellY = (cp / kGridSize) * layout.cellHeight;

        // The glyph's bitmap box, relative to the pen on the baseline.
        int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
        stbtt_GetCodepointBitmapBoxSubpixel(&font, cp, layout.scale, layout.scale, 0.0f, 0.0f, &x0, &y0, &x1, &y1);
        int const boxWidth = std::max(x1 - x0, 0);
        int const boxHeight = std::max(y1 - y0, 0);
        if (boxWidth > atlas.width || boxHeight > atlas.height)
            throw std::runtime_error("invalid font " + path + ": glyph " + std::to_string(cp) + " is " +
                                     std::to_string(boxWidth) + " x " + std::to_string(boxHeight) +
                                     " pixels, larger than the whole atlas");

        // Ink bounds within the cell, as [left, right) x [top, bottom).
        int left = layout.cellWidth, right = 0, top = layout.cellHeight, bottom = 0;
        if (boxWidth > 0 && boxHeight > 0) {
            coverage.assign(static_cast<size_t>(boxWidth) * boxHeight, 0);
            stbtt_MakeCodepointBitmapSubpixel(&font, coverage.data(), boxWidth, boxHeight, boxWidth, layout.scale,
                                              layout.scale, 0.0f, 0.0f, cp);
            for (int row = 0; row < boxHeight; ++row) {
                int const y = layout.baseline + y0 + row;
                if (y < 0 || y >= layout.cellHeight) continue;
                for (int column = 0; column < boxWidth; ++column) {
                    int const x = x0 + column;
                    if (x < 0 || x >= layout.cellWidth) continue;
                    unsigned char const alpha = coverage[static_cast<size_t>(row) * boxWidth + column];
                    if (alpha == 0) continue;
                    size_t const pixel = (static_cast<size_t>(cellY + y) * atlas.width + (cellX + x)) * 4;
                    atlas.rgba[pixel + 3] = alpha;
                    left = std::min(left, x);
                    right = std::max(right, x + 1);
                    top = std::min(top, y);
                    bottom = std::max(bottom, y + 1);
                }
            }
        }

        Glyph glyph;
        glyph.codepoint = cp;
        glyph.advance = advances[cp];
        if (right > left && bottom > top) {
            glyph.x = cellX + left;
            glyph.y = cellY + top;
            glyph.width = right - left;
            glyph.height = bottom - top;
            glyph.bearingX = left;
            glyph.bearingY = layout.baseline - top;
        } else {
            glyph.x = cellX;
            glyph.y = cellY + layout.baseline;
        }
        atlas.glyphs.push_back(glyph);
    }
    return atlas;
}

std::string FormatMetrics(Atlas const& atlas, std::string const& fontName) {
    Layout const& l = atlas.layout;
    std::string text;
    text += "# Monospace font atlas metrics, from " + fontName + " at pixel height " + std::to_string(l.pixelHeight) +
        " (written by tessara_fontatlas).\n";
    text += "# Integer pixels, y down. Code point CP has the cell at column CP % 16, row CP / 16.\n";
    text += "# atlas W H | cell W H | char_width N (advance) | char_height N (line height)\n";
    text += "# ascent N (rows above the baseline) | descent N (rows below it, negative)\n";
    text += "# baseline N (rows 0..N-1 of a cell lie above the baseline)\n";
    text += "# glyph CP X Y W H BEARING_X BEARING_Y ADVANCE: X Y W H is the ink box in the atlas\n";
    text += "#   (W H 0 without ink); pen at (PX, PY) on the baseline: the box goes to\n";
    text += "#   (PX + BEARING_X, PY - BEARING_Y); then the pen moves ADVANCE to the right.\n";
    text += "atlas " + std::to_string(atlas.width) + " " + std::to_string(atlas.height) + "\n";
    text += "cell " + std::to_string(l.cellWidth) + " " + std::to_string(l.cellHeight) + "\n";
    text += "char_width " + std::to_string(l.cellWidth) + "\n";
    text += "char_height " + std::to_string(l.cellHeight) + "\n";
    text += "ascent " + std::to_string(l.baseline) + "\n";
    text += "descent " + std::to_string(l.descent) + "\n";
    text += "baseline " + std::to_string(l.baseline) + "\n";
    for (Glyph const& g : atlas.glyphs) {
        text += "glyph " + std::to_string(g.codepoint);
        for (int value : {g.x, g.y, g.width, g.height, g.bearingX, g.bearingY, g.advance})
            text += " " + std::to_string(value);
        text += "\n";
    }
    return text;
}

std::vector<unsigned char> EncodePng(Atlas const& atlas) {
    std::vector<unsigned char> png;
    auto append = [](void* context, void* data, int size) {
        auto* bytes = static_cast<unsigned char const*>(data);
        static_cast<std::vector<unsigned char>*>(context)->insert(
            static_cast<std::vector<unsigned char>*>(context)->end(), bytes, bytes + size);
    };
    if (stbi_write_png_to_func(append, &png, atlas.width, atlas.height, 4, atlas.rgba.data(), atlas.width * 4) == 0)
        throw std::runtime_error("cannot encode the atlas as PNG");
    return png;
}

// ---------------------------------------------------------------------------
// Output

/// Removes the listed files when it goes out of scope, unless released.
class Cleanup {
public:
    void Add(std::string path) { _paths.push_back(std::move(path)); }
    void Release() { _paths.clear(); }
    ~Cleanup() {
        for (std::string const& path : _paths) std::remove(path.c_str());
    }

private:
    std::vector<std::string> _paths;
};

void WriteWhole(std::string const& path, void const* data, size_t size, std::string const& shownPath) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file) throw std::runtime_error("cannot write " + shownPath + ": " + std::strerror(errno));
    file.write(static_cast<char const*>(data), static_cast<std::streamsize>(size));
    file.close();
    if (!file) throw std::runtime_error("cannot write " + shownPath + ": write error");
}

void WriteOutputs(std::string const& pngPath, std::vector<unsigned char> const& png, std::string const& metricsPath,
                  std::string const& metrics) {
    std::string const suffix = ".tmp" + std::to_string(::getpid());
    std::string const pngTemp = pngPath + suffix;
    std::string const metricsTemp = metricsPath + suffix;
    Cleanup cleanup;
    cleanup.Add(pngTemp);
    WriteWhole(pngTemp, png.data(), png.size(), pngPath);
    cleanup.Add(metricsTemp);
    WriteWhole(metricsTemp, metrics.data(), metrics.size(), metricsPath);
    if (std::rename(pngTemp.c_str(), pngPath.c_str()) != 0)
        throw std::runtime_error("cannot write " + pngPath + ": " + std::strerror(errno));
    cleanup.Add(pngPath);
    if (std::rename(metricsTemp.c_str(), metricsPath.c_str()) != 0)
        throw std::runtime_error("cannot write " + metricsPath + ": " + std::strerror(errno));
    cleanup.Release();
}

int Run(int argc, char** argv) {
    if (argc != 5) throw UsageError("expected 4 arguments, got " + std::to_string(std::max(argc - 1, 0)));
    std::string const fontPath = argv[1];
    std::string const pngPath = argv[2];
    std::string const metricsPath = argv[3];
    if (fontPath.empty() || pngPath.empty() || metricsPath.empty()) throw UsageError("empty path");
    if (std::filesystem::path(pngPath).lexically_normal() == std::filesystem::path(metricsPath).lexically_normal())
        throw UsageError("OUT.png and OUT_METRICS.txt are the same path");
    int const pixelHeight = ParsePixelHeight(argv[4]);

    std::vector<unsigned char> const data = ReadFile(fontPath);
    CheckFont(data, fontPath);
    stbtt_fontinfo font;
    if (stbtt_InitFont(&font, data.data(), stbtt_GetFontOffsetForIndex(data.data(), 0)) == 0)
        throw std::runtime_error("invalid font " + fontPath + ": stb_truetype cannot read it");

    Atlas const atlas = BuildAtlas(font, pixelHeight, fontPath);
    std::string const metrics = FormatMetrics(atlas, std::filesystem::path(fontPath).filename().string());
    WriteOutputs(pngPath, EncodePng(atlas), metricsPath, metrics);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return Run(argc, argv);
    } catch (UsageError const& error) {
        std::fprintf(stderr, "tessara_fontatlas: %s\n%s\n", error.what(), kUsage);
        return 2;
    } catch (std::exception const& error) {
        std::fprintf(stderr, "tessara_fontatlas: %s\n", error.what());
        return 1;
    }
}
