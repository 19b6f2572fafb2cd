// The monospace font atlas: the PNG and metrics the build generates agree with each
// other and place every glyph where a pixel renderer will cut it out, and the tool
// refuses bad arguments and bad fonts without leaving files behind.
#include "support/TempDir.hpp"

#include <gtest/gtest.h>

// libnerox reads images through Debian's prebuilt stb library rather than compiling
// stb_image itself, so this program has its own private copy.
#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_ONLY_PNG
#include <stb/stb_image.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace {

using testsupport::ReadText;
using testsupport::TempDir;
using testsupport::WriteText;

constexpr int kGrid = 16;

struct GlyphBox {
    int x = 0, y = 0, width = 0, height = 0;
    int bearingX = 0, bearingY = 0, advance = 0;
};

struct Metrics {
    int atlasWidth = 0, atlasHeight = 0;
    int cellWidth = 0, cellHeight = 0;
    int charWidth = 0, charHeight = 0;
    int ascent = 0, descent = 0, baseline = 0;
    std::map<int, GlyphBox> glyphs;
};

/// Parses a metrics file: header keys with their numbers, then glyph lines.
Metrics ParseMetrics(std::string const& text)
{
    Metrics m;
    std::map<std::string, std::vector<int*>> const header = {
        {"atlas", {&m.atlasWidth, &m.atlasHeight}}, {"cell", {&m.cellWidth, &m.cellHeight}},
        {"char_width", {&m.charWidth}},             {"char_height", {&m.charHeight}},
        {"ascent", {&m.ascent}},                    {"descent", {&m.descent}},
        {"baseline", {&m.baseline}},
    };
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.empty() || line[0] == '#')
            continue;
        std::istringstream fields(line);
        std::string key;
        fields >> key;
        std::vector<int> values;
        for (int value = 0; fields >> value;)
            values.push_back(value);
        if (key == "glyph" && values.size() == 8) {
            m.glyphs[values[0]] = {values[1], values[2], values[3], values[4], values[5], values[6], values[7]};
        } else if (auto const field = header.find(key); field != header.end() && values.size() == field->second.size()) {
            for (size_t k = 0; k < values.size(); ++k)
                *field->second[k] = values[k];
        } else {
            ADD_FAILURE() << "malformed line: " << line;
        }
    }
    return m;
}

struct Image {
    int width = 0, height = 0, fileChannels = 0;
    std::vector<unsigned char> rgba;

    unsigned char Alpha(int x, int y) const { return rgba[(static_cast<size_t>(y) * width + x) * 4 + 3]; }
};

Image LoadPng(std::string const& path)
{
    Image image;
    unsigned char* pixels = stbi_load(path.c_str(), &image.width, &image.height, &image.fileChannels, 4);
    if (pixels == nullptr) {
        ADD_FAILURE() << "cannot load " << path << ": " << stbi_failure_reason();
        return image;
    }
    image.rgba.assign(pixels, pixels + static_cast<size_t>(image.width) * image.height * 4);
    stbi_image_free(pixels);
    return image;
}

bool HasGlyphCell(int cp)
{
    return (cp >= 32 && cp <= 126) || (cp >= 160 && cp <= 255);
}

/// Runs the tool with args; its standard error goes to *errors. Returns the exit
/// status, or -signal when it was killed.
int RunTool(std::vector<std::string> const& args, std::string* errors = nullptr)
{
    TempDir scratch;
    std::string const errorFile = scratch.File("stderr.txt");
    std::vector<std::string> all = {TESSARA_FONTATLAS_TOOL};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& arg : all)
        argv.push_back(arg.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, errorFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid = 0;
    int const spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        ADD_FAILURE() << "cannot start " << argv[0];
        return -1000;
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
    }
    if (errors != nullptr)
        *errors = ReadText(errorFile);
    if (WIFSIGNALED(status))
        return -WTERMSIG(status);
    return WEXITSTATUS(status);
}

/// The names of the files in a folder.
std::set<std::string> FilesIn(std::string const& folder)
{
    std::set<std::string> names;
    for (auto const& entry : std::filesystem::directory_iterator(folder))
        names.insert(entry.path().filename().string());
    return names;
}

// ---------------------------------------------------------------------------
// The atlas the build generated

class FontAtlas : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        metrics = new Metrics(ParseMetrics(ReadText(TESSARA_FONT_ATLAS_METRICS)));
        image = new Image(LoadPng(TESSARA_FONT_ATLAS_PNG));
    }
    static void TearDownTestSuite()
    {
        delete metrics;
        delete image;
    }

    static int CellX(int cp) { return (cp % kGrid) * metrics->cellWidth; }
    static int CellY(int cp) { return (cp / kGrid) * metrics->cellHeight; }
    static GlyphBox const& Glyph(int cp)
    {
        static GlyphBox const none;
        auto const found = metrics->glyphs.find(cp);
        if (found == metrics->glyphs.end()) {
            ADD_FAILURE() << "no glyph line for " << cp;
            return none;
        }
        return found->second;
    }
    /// Whether any pixel of code point cp's cell has ink.
    static bool CellHasInk(int cp)
    {
        for (int y = 0; y < metrics->cellHeight; ++y)
            for (int x = 0; x < metrics->cellWidth; ++x)
                if (image->Alpha(CellX(cp) + x, CellY(cp) + y) != 0)
                    return true;
        return false;
    }

    static inline Metrics* metrics = nullptr;
    static inline Image* image = nullptr;
};

TEST_F(FontAtlas, HeaderDescribesOneConsistentGrid)
{
    Metrics const& m = *metrics;
    EXPECT_GT(m.cellWidth, 0);
    EXPECT_GT(m.cellHeight, 0);
    EXPECT_EQ(m.atlasWidth, kGrid * m.cellWidth);
    EXPECT_EQ(m.atlasHeight, kGrid * m.cellHeight);
    EXPECT_EQ(m.charWidth, m.cellWidth);
    EXPECT_EQ(m.charHeight, m.cellHeight);
    EXPECT_EQ(m.ascent, m.baseline);
    EXPECT_LE(m.descent, 0);
    EXPECT_EQ(m.ascent - m.descent, TESSARA_FONT_ATLAS_PIXEL_HEIGHT);
    EXPECT_GE(m.charHeight, m.ascent - m.descent);
    EXPECT_GT(m.baseline, m.cellHeight / 2);
    EXPECT_LT(m.baseline, m.cellHeight);
    // A monospace glyph is a good deal taller than wide.
    EXPECT_LT(m.charWidth, m.charHeight);
    EXPECT_GT(m.charWidth, m.charHeight / 3);
}

TEST_F(FontAtlas, ImageIsWhiteRgbaCarryingCoverageInAlpha)
{
    ASSERT_FALSE(image->rgba.empty());
    EXPECT_EQ(image->width, metrics->atlasWidth);
    EXPECT_EQ(image->height, metrics->atlasHeight);
    EXPECT_EQ(image->fileChannels, 4);
    size_t notWhite = 0, inked = 0, partial = 0;
    for (size_t i = 0; i < image->rgba.size(); i += 4) {
        notWhite += image->rgba[i] != 255 || image->rgba[i + 1] != 255 || image->rgba[i + 2] != 255;
        inked += image->rgba[i + 3] != 0;
        partial += image->rgba[i + 3] != 0 && image->rgba[i + 3] != 255;
    }
    EXPECT_EQ(notWhite, 0u);
    EXPECT_GT(inked, 0u);
    EXPECT_GT(partial, 0u) << "coverage is antialiased";
}

TEST_F(FontAtlas, EveryInkBoxLiesInItsOwnCell)
{
    for (auto const& [cp, box] : metrics->glyphs) {
        EXPECT_GE(box.width, 0) << cp;
        EXPECT_GE(box.height, 0) << cp;
        EXPECT_GE(box.x, CellX(cp)) << cp;
        EXPECT_GE(box.y, CellY(cp)) << cp;
        EXPECT_LE(box.x + box.width, CellX(cp) + metrics->cellWidth) << cp;
        EXPECT_LE(box.y + box.height, CellY(cp) + metrics->cellHeight) << cp;
    }
}

TEST_F(FontAtlas, InkLiesOnlyInsideInkBoxesAndTouchesEveryEdge)
{
    ASSERT_EQ(image->width, metrics->atlasWidth);
    ASSERT_EQ(image->height, metrics->atlasHeight);
    std::vector<bool> covered(static_cast<size_t>(image->width) * image->height, false);
    for (auto const& [cp, box] : metrics->glyphs)
        for (int y = box.y; y < box.y + box.height; ++y)
            for (int x = box.x; x < box.x + box.width; ++x)
                if (x >= 0 && y >= 0 && x < image->width && y < image->height)
                    covered[static_cast<size_t>(y) * image->width + x] = true;
    int stray = 0;
    for (int y = 0; y < image->height; ++y)
        for (int x = 0; x < image->width; ++x)
            if (image->Alpha(x, y) != 0 && !covered[static_cast<size_t>(y) * image->width + x] && stray++ < 5)
                ADD_FAILURE() << "ink outside every box at " << x << "," << y << " (cell "
                              << (y / metrics->cellHeight) * kGrid + x / metrics->cellWidth << ")";
    EXPECT_EQ(stray, 0);

    // Tight boxes: each edge row and column holds ink, so a renderer copies no blank margin.
    for (auto const& [cp, box] : metrics->glyphs) {
        if (box.width == 0 || box.height == 0)
            continue;
        bool top = false, bottom = false, left = false, right = false;
        for (int x = box.x; x < box.x + box.width; ++x) {
            top |= image->Alpha(x, box.y) != 0;
            bottom |= image->Alpha(x, box.y + box.height - 1) != 0;
        }
        for (int y = box.y; y < box.y + box.height; ++y) {
            left |= image->Alpha(box.x, y) != 0;
            right |= image->Alpha(box.x + box.width - 1, y) != 0;
        }
        EXPECT_TRUE(top && bottom && left && right) << "box of " << cp << " is not tight";
    }
}

TEST_F(FontAtlas, SpaceControlAndUnmappedCellsAreEmpty)
{
    for (int cp = 0; cp < 256; ++cp) {
        if (!HasGlyphCell(cp)) {
            EXPECT_FALSE(CellHasInk(cp)) << "cell " << cp;
        }
    }
    for (int cp : {32, 160}) {
        EXPECT_FALSE(CellHasInk(cp)) << "cell " << cp;
        EXPECT_EQ(Glyph(cp).width, 0) << cp;
        EXPECT_EQ(Glyph(cp).height, 0) << cp;
        EXPECT_EQ(Glyph(cp).advance, metrics->charWidth) << cp;
    }
}

TEST_F(FontAtlas, EveryVisibleCharacterHasInk)
{
    for (int cp = 33; cp <= 126; ++cp) {
        EXPECT_GT(Glyph(cp).width, 0) << cp;
        EXPECT_GT(Glyph(cp).height, 0) << cp;
        EXPECT_TRUE(CellHasInk(cp)) << cp;
    }
    for (int cp : {0xC0, 0xC5, 0xDF, 0xE9, 0xFF})
        EXPECT_TRUE(CellHasInk(cp)) << cp;
}

TEST_F(FontAtlas, BearingsMeasureTheBoxFromThePenOnTheBaseline)
{
    for (auto const& [cp, box] : metrics->glyphs) {
        if (box.width == 0)
            continue;
        EXPECT_EQ(box.bearingX, box.x - CellX(cp)) << cp;
        EXPECT_EQ(box.bearingY, CellY(cp) + metrics->baseline - box.y) << cp;
    }
}

TEST_F(FontAtlas, AllCharactersShareOneAdvance)
{
    EXPECT_EQ(Glyph('M').advance, Glyph('i').advance);
    EXPECT_EQ(Glyph('W').advance, Glyph('i').advance);
    for (auto const& [cp, box] : metrics->glyphs)
        EXPECT_EQ(box.advance, metrics->charWidth) << cp;
    // The narrow 'i' is narrower than the wide 'W', and both fit the advance.
    EXPECT_LT(Glyph('i').width, Glyph('W').width);
    EXPECT_LE(Glyph('W').width, metrics->charWidth);
}

TEST_F(FontAtlas, DescendersGoBelowTheBaselineAndCapitalsSitOnIt)
{
    for (int cp : {'g', 'j', 'p', 'q', 'y'}) {
        GlyphBox const& box = Glyph(cp);
        EXPECT_GT(box.y + box.height, CellY(cp) + metrics->baseline) << char(cp);
        EXPECT_LT(box.bearingY - box.height, 0) << char(cp);
        EXPECT_GT(box.bearingY, 0) << char(cp);
    }
    for (int cp : {'A', 'M', 'W', 'x', 'i'}) {
        GlyphBox const& box = Glyph(cp);
        EXPECT_EQ(box.y + box.height, CellY(cp) + metrics->baseline) << char(cp);
        EXPECT_EQ(box.bearingY, box.height) << char(cp);
    }
    // Capitals stand taller than the x-height, and an accent rises above them.
    EXPECT_GT(Glyph('A').bearingY, Glyph('x').bearingY);
    EXPECT_GT(Glyph(0xC1).bearingY, Glyph('A').bearingY);
    // The underscore lies wholly below the baseline, the hyphen wholly above it.
    EXPECT_LE(Glyph('_').bearingY, 0);
    EXPECT_GT(Glyph('-').bearingY - Glyph('-').height, 0);
}

// ---------------------------------------------------------------------------
// The tool run by hand

class FontAtlasTool : public ::testing::Test {
protected:
    std::string Png() const { return dir.File("atlas.png"); }
    std::string Txt() const { return dir.File("atlas.txt"); }
    /// Copies the font into the folder, cut to size bytes or changed by edit.
    std::string DamagedFont(std::string const& name, size_t size, std::vector<std::pair<size_t, unsigned char>> edit = {})
    {
        std::string font = ReadText(TESSARA_MONOSPACE_FONT);
        font.resize(std::min(size, font.size()));
        for (auto const& [at, byte] : edit)
            if (at < font.size())
                font[at] = static_cast<char>(byte);
        WriteText(dir.File(name), font);
        return dir.File(name);
    }
    static size_t U16(std::string const& font, size_t at)
    {
        return (size_t{uint8_t(font[at])} << 8) | uint8_t(font[at + 1]);
    }
    static size_t U32(std::string const& font, size_t at) { return (U16(font, at) << 16) | U16(font, at + 2); }
    /// Where the named table starts in the font file.
    static size_t TableOffset(std::string const& font, char const* tag)
    {
        for (size_t i = 0; i < U16(font, 4); ++i)
            if (font.compare(12 + i * 16, 4, tag) == 0)
                return U32(font, 12 + i * 16 + 8);
        ADD_FAILURE() << "no table " << tag;
        return 0;
    }
    /// Where the last byte of any table lies, plus one (the file may hold padding after it).
    static size_t TablesEnd(std::string const& font)
    {
        size_t end = 0;
        for (size_t i = 0; i < U16(font, 4); ++i)
            end = std::max(end, U32(font, 12 + i * 16 + 8) + U32(font, 12 + i * 16 + 12));
        return end;
    }
    /// Runs the tool expecting it to fail with status, leaving only the given files.
    void ExpectRefused(std::vector<std::string> const& args, int status, std::set<std::string> const& kept,
                       std::string const& message)
    {
        std::string errors;
        EXPECT_EQ(RunTool(args, &errors), status) << errors;
        EXPECT_NE(errors.find(message), std::string::npos) << errors;
        EXPECT_EQ(FilesIn(dir.File("")), kept);
    }

    TempDir dir;
};

TEST_F(FontAtlasTool, RunAgainWritesTheSameBytesAndNothingElse)
{
    WriteText(Png(), "old");
    std::string errors;
    ASSERT_EQ(RunTool({TESSARA_MONOSPACE_FONT, Png(), Txt(), std::to_string(TESSARA_FONT_ATLAS_PIXEL_HEIGHT)}, &errors),
              0)
        << errors;
    EXPECT_EQ(errors, "");
    EXPECT_EQ(FilesIn(dir.File("")), (std::set<std::string>{"atlas.png", "atlas.txt"}));
    EXPECT_EQ(ReadText(Png()), ReadText(TESSARA_FONT_ATLAS_PNG));
    EXPECT_EQ(ReadText(Txt()), ReadText(TESSARA_FONT_ATLAS_METRICS));
}

TEST_F(FontAtlasTool, WrongArgumentCountIsAUsageError)
{
    ExpectRefused({}, 2, {}, "usage: tessara_fontatlas FONT.ttf OUT.png OUT_METRICS.txt PIXEL_HEIGHT");
    ExpectRefused({TESSARA_MONOSPACE_FONT, Png(), Txt()}, 2, {}, "usage:");
    ExpectRefused({TESSARA_MONOSPACE_FONT, Png(), Txt(), "20", "extra"}, 2, {}, "usage:");
    ExpectRefused({TESSARA_MONOSPACE_FONT, Png(), Png(), "20"}, 2, {}, "same path");
    for (std::string height : {"0", "257", "20px", "99999999999"})
        ExpectRefused({TESSARA_MONOSPACE_FONT, Png(), Txt(), height}, 2, {}, "PIXEL_HEIGHT");
}

TEST_F(FontAtlasTool, MissingOrUnreadableFontFailsAndWritesNothing)
{
    ExpectRefused({dir.File("missing.ttf"), Png(), Txt(), "20"}, 1, {}, "missing.ttf: no such file");
    std::filesystem::create_directory(dir.File("folder.ttf"));
    ExpectRefused({dir.File("folder.ttf"), Png(), Txt(), "20"}, 1, {"folder.ttf"}, "not a regular file");
}

TEST_F(FontAtlasTool, MalformedFontFailsAndWritesNothing)
{
    WriteText(dir.File("empty.ttf"), "");
    WriteText(dir.File("text.ttf"), "This is not a font, just some text that is long enough.\n");
    std::string const font = ReadText(TESSARA_MONOSPACE_FONT);
    ASSERT_GT(font.size(), 100000u);
    std::set<std::string> files = {"empty.ttf", "text.ttf"};
    ExpectRefused({dir.File("empty.ttf"), Png(), Txt(), "20"}, 1, files, "invalid font");
    ExpectRefused({dir.File("text.ttf"), Png(), Txt(), "20"}, 1, files, "invalid font");

    // Cut short: in the table directory, and after it with tables missing their ends.
    for (size_t size : {size_t{40}, TablesEnd(font) - 1}) {
        std::string const name = "cut" + std::to_string(size) + ".ttf";
        files.insert(name);
        ExpectRefused({DamagedFont(name, size), Png(), Txt(), "20"}, 1, files, "invalid font");
    }

    // A field that would send the reader outside the file.
    size_t const hhea = TableOffset(font, "hhea");
    files.insert("metrics.ttf");
    ExpectRefused({DamagedFont("metrics.ttf", font.size(), {{hhea + 34, 0xFF}, {hhea + 35, 0xFF}}), Png(), Txt(), "20"},
                  1, files, "invalid font");
}

TEST_F(FontAtlasTool, UnwritableOutputFailsAndLeavesNoPart)
{
    // The PNG's folder exists and the metrics' does not: no PNG may stay behind.
    ExpectRefused({TESSARA_MONOSPACE_FONT, Png(), dir.File("absent/atlas.txt"), "20"}, 1, {}, "cannot write");
    ExpectRefused({TESSARA_MONOSPACE_FONT, dir.File("absent/atlas.png"), Txt(), "20"}, 1, {}, "cannot write");
}

} // namespace
