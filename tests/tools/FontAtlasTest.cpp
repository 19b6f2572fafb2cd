// The font atlas the build generates places every glyph where a renderer cuts it out; the tool leaves no files on refusal.
#include "support/TempDir.hpp"

#include <gtest/gtest.h>

// libnerox reads images through Debian's prebuilt stb library rather than compiling
// stb_image itself, so this program has its own private copy.
#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_ONLY_PNG
#include <stb/stb_image.h>

#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using testsupport::ReadText;
using testsupport::TempDir;
using testsupport::WriteText;

constexpr int kGrid = 16;

struct GlyphBox {
    int x, y, width, height, bearingX, bearingY, advance;
};

/// Runs the tool with args; its standard error goes to *errors. Returns the exit status.
int RunTool(std::vector<std::string> const& args, std::string* errors) {
    TempDir scratch;
    std::string command = TESSARA_FONTATLAS_TOOL;
    for (std::string const& arg : args) command += " '" + arg + "'";
    int const status = std::system((command + " >/dev/null 2>" + scratch.File("stderr.txt")).c_str());
    *errors = ReadText(scratch.File("stderr.txt"));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::set<std::string> FilesIn(std::string const& folder) {
    std::set<std::string> names;
    for (auto const& entry : std::filesystem::directory_iterator(folder))
        names.insert(entry.path().filename().string());
    return names;
}

// The atlas the build generated: the metrics file's header keys with their numbers,
// its glyph lines by code point, and the image's pixels.
class FontAtlas : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        std::istringstream lines(ReadText(TESSARA_FONT_ATLAS_METRICS));
        for (std::string line; std::getline(lines, line);) {
            std::istringstream fields(line);
            std::string key;
            std::vector<int> v;
            fields >> key;
            for (int value = 0; fields >> value;) v.push_back(value);
            if (key == "glyph" && v.size() == 8)
                glyphs[v[0]] = {v[1], v[2], v[3], v[4], v[5], v[6], v[7]};
            else if (!key.empty() && key[0] != '#')
                header[key] = v; // a malformed glyph line lands here, and its cell's ink has no line
        }
        unsigned char* pixels = stbi_load(TESSARA_FONT_ATLAS_PNG, &width, &height, &fileChannels, 4);
        ASSERT_NE(pixels, nullptr) << stbi_failure_reason();
        rgba.assign(pixels, pixels + size_t(width) * height * 4);
        stbi_image_free(pixels);
        cellW = H("cell"), cellH = H("cell", 1);
    }

    static int H(char const* key, size_t index = 0) { return header.count(key) ? header.at(key).at(index) : -1; }
    static int CellX(int cp) { return (cp % kGrid) * cellW; }
    static int CellY(int cp) { return (cp / kGrid) * cellH; }

    static inline std::map<std::string, std::vector<int>> header;
    static inline std::map<int, GlyphBox> glyphs;
    static inline std::vector<unsigned char> rgba;
    static inline int width = 0, height = 0, fileChannels = 0, cellW = 0, cellH = 0;
};

TEST_F(FontAtlas, HeaderAndImageDescribeOneConsistentGrid) {
    EXPECT_EQ((std::vector<int>{H("atlas"), H("atlas", 1), width, height, H("char_width"), H("char_height"),
                                H("ascent"), H("ascent") - H("descent"), fileChannels}),
              (std::vector<int>{kGrid * cellW, kGrid * cellH, kGrid * cellW, kGrid * cellH, cellW, cellH, H("baseline"),
                                TESSARA_FONT_ATLAS_PIXEL_HEIGHT, 4}));
    // White everywhere, the coverage in alpha, antialiased.
    size_t notWhite = 0, inked = 0, partial = 0;
    for (size_t i = 0; i < rgba.size(); i += 4) {
        notWhite += rgba[i] != 255 || rgba[i + 1] != 255 || rgba[i + 2] != 255;
        inked += rgba[i + 3] != 0;
        partial += rgba[i + 3] != 0 && rgba[i + 3] != 255;
    }
    EXPECT_EQ(std::vector<bool>({notWhite == 0, inked > 0, partial > 0}), std::vector<bool>(3, true));
}

TEST_F(FontAtlas, EachInkBoxIsTheTightBoundOfItsCellsInkMeasuredFromThePenOnTheBaseline) {
    ASSERT_LT(glyphs.rbegin()->first, kGrid * kGrid);
    for (int cp = 0; cp < kGrid * kGrid; ++cp) {
        int x0 = width, y0 = height, x1 = -1, y1 = -1; // the bounds of the ink in the cell
        for (int y = CellY(cp); y < CellY(cp) + cellH; ++y)
            for (int x = CellX(cp); x < CellX(cp) + cellW; ++x)
                if (rgba[(size_t(y) * width + x) * 4 + 3] != 0)
                    x0 = std::min(x0, x), y0 = std::min(y0, y), x1 = std::max(x1, x), y1 = std::max(y1, y);
        bool const blank = cp <= 32 || (cp > 126 && cp <= 160); // space, controls and unmapped cells
        bool const visible =
            (cp > 32 && cp < 127) || cp == 0xC0 || cp == 0xC5 || cp == 0xDF || cp == 0xE9 || cp == 0xFF;
        if (blank || visible) {
            EXPECT_EQ(x1 >= 0, visible) << "ink in cell " << cp;
        }
        auto const glyph = glyphs.find(cp);
        if (glyph == glyphs.end()) {
            EXPECT_LT(x1, 0) << "ink in cell " << cp << " without a glyph line";
            continue;
        }
        GlyphBox const& box = glyph->second;
        EXPECT_EQ(box.advance, cellW) << cp << ": all characters share one advance";
        if (x1 < 0) {
            EXPECT_EQ(box.width | box.height, 0) << cp;
            continue;
        }
        // Tight, so a renderer copies no blank margin and cuts off no ink.
        EXPECT_EQ((std::vector<int>{box.x, box.y, box.width, box.height, box.bearingX, box.bearingY}),
                  (std::vector<int>{x0, y0, x1 - x0 + 1, y1 - y0 + 1, x0 - CellX(cp), CellY(cp) + H("baseline") - y0}))
            << cp;
    }
}

size_t U16(std::string const& font, size_t at) {
    return (size_t{uint8_t(font[at])} << 8) | uint8_t(font[at + 1]);
}
size_t U32(std::string const& font, size_t at) {
    return (U16(font, at) << 16) | U16(font, at + 2);
}

TEST(FontAtlasTool, BadArgumentsFontsAndOutputsFailAndLeaveTheFolderAsItWasAndAGoodRunWritesTheBuildsBytes) {
    TempDir dir;
    std::string const font = ReadText(TESSARA_MONOSPACE_FONT), png = dir.File("atlas.png"), txt = dir.File("atlas.txt");
    ASSERT_GT(font.size(), 100000u);
    // Damaged copies: cut in the table directory, cut before the tables' ends, and a
    // field of hhea that would send the reader outside the file.
    size_t tablesEnd = 0, hhea = 0;
    for (size_t i = 0; i < U16(font, 4); ++i) {
        tablesEnd = std::max(tablesEnd, U32(font, 12 + i * 16 + 8) + U32(font, 12 + i * 16 + 12));
        if (font.compare(12 + i * 16, 4, "hhea") == 0) hhea = U32(font, 12 + i * 16 + 8);
    }
    ASSERT_NE(hhea, 0u);
    std::string metricsOut = font;
    metricsOut[hhea + 34] = metricsOut[hhea + 35] = char(0xFF);
    std::set<std::string> files = {"folder.ttf"};
    std::filesystem::create_directory(dir.File("folder.ttf"));
    for (auto const& [name, bytes] :
         std::map<std::string, std::string>{{"atlas.png", "old"},
                                            {"empty.ttf", ""},
                                            {"text.ttf", "This is not a font, just some text that is long enough.\n"},
                                            {"cut.ttf", font.substr(0, 40)},
                                            {"short.ttf", font.substr(0, tablesEnd - 1)},
                                            {"metrics.ttf", metricsOut}}) {
        files.insert(name);
        WriteText(dir.File(name), bytes);
    }
    std::string const good = TESSARA_MONOSPACE_FONT;
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string message;
    };
    std::vector<Case> cases = {
        {{}, 2, "usage: tessara_fontatlas FONT.ttf OUT.png OUT_METRICS.txt PIXEL_HEIGHT"},
        {{good, png, txt}, 2, "usage:"},
        {{good, png, txt, "20", "extra"}, 2, "usage:"},
        {{good, png, png, "20"}, 2, "same path"},
        {{good, "", txt, "20"}, 2, "empty path"},
        {{dir.File("missing.ttf"), png, txt, "20"}, 1, "missing.ttf: no such file"},
        {{dir.File("folder.ttf"), png, txt, "20"}, 1, "not a regular file"},
        // The PNG's folder exists and the metrics' does not: no PNG may stay behind.
        {{good, png, dir.File("absent/atlas.txt"), "20"}, 1, "cannot write"},
        {{good, dir.File("absent/atlas.png"), txt, "20"}, 1, "cannot write"},
    };
    for (char const* height : {"0", "257", "20px", "99999999999"})
        cases.push_back({{good, png, txt, height}, 2, "PIXEL_HEIGHT"});
    for (char const* bad : {"empty.ttf", "text.ttf", "cut.ttf", "short.ttf", "metrics.ttf"})
        cases.push_back({{dir.File(bad), png, txt, "20"}, 1, "invalid font"});
    for (Case const& c : cases) {
        std::string errors;
        std::string const shown = c.args.empty() ? "no arguments" : c.args[0] + " ... " + c.args.back();
        EXPECT_EQ(RunTool(c.args, &errors), c.status) << shown << "\n" << errors;
        EXPECT_NE(errors.find(c.message), std::string::npos) << shown << "\n" << errors;
        EXPECT_EQ(FilesIn(dir.File("")), files) << shown;
    }
    EXPECT_EQ(ReadText(png), "old");
    std::string errors;
    ASSERT_EQ(RunTool({good, png, txt, std::to_string(TESSARA_FONT_ATLAS_PIXEL_HEIGHT)}, &errors), 0) << errors;
    EXPECT_EQ(errors, "");
    files.insert("atlas.txt");
    EXPECT_EQ(FilesIn(dir.File("")), files);
    EXPECT_EQ(ReadText(png) + ReadText(txt), ReadText(TESSARA_FONT_ATLAS_PNG) + ReadText(TESSARA_FONT_ATLAS_METRICS));
}

} // namespace
