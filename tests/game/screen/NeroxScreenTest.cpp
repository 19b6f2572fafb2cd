// The pixel screen: every primitive clipped at each edge and far outside,
// blending, text placed by the atlas's metrics, the rate limit of Update, and
// the compressed form read back, by the asserting and the checked reader.
#include "game/NeroxScreen.hpp"
#include "nerox/graphics/FontRenderer.hpp"

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <random>
#include <thread>

namespace {

using game::NeroxScreen;

constexpr uint32_t White = 0xFFFFFFFF;
constexpr uint32_t HalfRed = 0x800000FF; // red 255 at alpha 128

int Lit(NeroxScreen const& screen) {
    int count = 0;
    for (uint32_t pixel : screen.pixels) count += pixel != 0 ? 1 : 0;
    return count;
}

struct Clipping {
    char const* name;
    std::function<void(NeroxScreen&)> draw;
    int lit; // pixels drawn on a blank 16 x 8 screen
};

void PrintTo(Clipping const& row, std::ostream* out) {
    *out << row.name;
}

class NeroxScreenClipping : public ::testing::TestWithParam<Clipping> { };

TEST_P(NeroxScreenClipping, DrawsOnlyOnTheSurface) {
    ASSERT_GT(nerox::graphics::FontRenderer::Monospace().CharWidth(), 0)
        << "the font atlas is not in the run directory";
    NeroxScreen screen(16, 8);
    GetParam().draw(screen);
    EXPECT_EQ(Lit(screen), GetParam().lit);
}

INSTANTIATE_TEST_SUITE_P(
    Primitives, NeroxScreenClipping,
    ::testing::Values(
        Clipping{"DrawCornerPixel", [](NeroxScreen& s) { s.Draw(15, 7, White, 1, 1); }, 1},
        Clipping{"DrawPastBothFarEdges", [](NeroxScreen& s) { s.Draw(14, 6, White, 100, 100); }, 4},
        Clipping{"DrawStartingPastTheEdge", [](NeroxScreen& s) { s.Draw(16, 0, White, 5, 5); }, 0},
        Clipping{"DrawLeftOfTheEdgePilesOnColumn0", [](NeroxScreen& s) { s.Draw(-3, 0, White, 5, 1); }, 2},
        Clipping{"DrawFromIntMinPilesOnTheCorner",
                 [](NeroxScreen& s) { s.Draw(INT_MIN, INT_MIN, White, INT_MAX, INT_MAX); }, 1},
        Clipping{"DrawFromIntMaxOverflowsNothing",
                 [](NeroxScreen& s) { s.Draw(INT_MAX, INT_MAX, White, INT_MAX, INT_MAX); }, 0},
        Clipping{"DrawWithoutSize", [](NeroxScreen& s) { s.Draw(2, 2, White, 0, -4); }, 0},
        Clipping{"PointsJustOff",
                 [](NeroxScreen& s) {
                     for (auto [x, y] : {std::pair{-1, 0}, {16, 0}, {0, 8}, {0, -1}, {INT_MIN, INT_MAX}})
                         s.DrawPoint(x, y, White);
                 },
                 0},
        Clipping{"LineAcrossTheSurface", [](NeroxScreen& s) { s.DrawLine(-5, 2, 20, 2, White); }, 16},
        Clipping{"LineFromAPointToItself", [](NeroxScreen& s) { s.DrawLine(3, 3, 3, 3, White); }, 0},
        Clipping{"LineTooLongIsDropped", [](NeroxScreen& s) { s.DrawLine(INT_MIN, 0, INT_MAX, 0, White); }, 0},
        Clipping{"RectOverEverything", [](NeroxScreen& s) { s.DrawRect(INT_MIN, INT_MIN, INT_MAX, INT_MAX, 0, White); },
                 128},
        Clipping{"RectExcludesItsFarCorner", [](NeroxScreen& s) { s.DrawRect(6, 5, 2, 2, 0, White); }, 12},
        Clipping{"RectStrokeOnly", [](NeroxScreen& s) { s.DrawRect(2, 2, 6, 5, White, 0); }, 10},
        Clipping{"TriangleOverEverything",
                 [](NeroxScreen& s) { s.DrawTriangle(INT_MIN, INT_MIN, INT_MAX, INT_MIN, 0, INT_MAX, 0, White); }, 128},
        Clipping{"TriangleFillLeavesItsEdges", [](NeroxScreen& s) { s.DrawTriangle(0, 0, 6, 0, 0, 6, 0, White); }, 10},
        Clipping{"CollinearTriangleFillsItsLine", [](NeroxScreen& s) { s.DrawTriangle(1, 1, 3, 3, 5, 5, 0, White); },
                 5},
        Clipping{"CircleOfRadius0", [](NeroxScreen& s) { s.DrawCircle(8, 4, 0, White, White); }, 0},
        Clipping{"CircleOverEverything", [](NeroxScreen& s) { s.DrawCircle(8, 4, INT_MAX, 0, White); }, 128},
        Clipping{"CircleFarAway", [](NeroxScreen& s) { s.DrawCircle(INT_MAX, INT_MAX, INT_MAX, White, White); }, 0},
        Clipping{"CircleRingOnly", [](NeroxScreen& s) { s.DrawCircle(8, 4, 2, White, 0); }, 8},
        Clipping{"TextFarOff", [](NeroxScreen& s) { s.Write(INT_MAX, INT_MIN, White, "Far\\naway"); }, 0},
        Clipping{"TextTooLargeToDraw",
                 [](NeroxScreen& s) {
                     s.textSize = NeroxScreen::MaxTextScale + 1;
                     s.WriteLine(0, 0, White, "M");
                 },
                 0},
        Clipping{"TextLargerThanTheSurface",
                 [](NeroxScreen& s) {
                     // One ink pixel of the glyph, 50000 pixels wide, placed over the surface.
                     auto const& m = nerox::graphics::FontRenderer::Monospace().GlyphOf('M');
                     int ink = 0;
                     while (ink < m.width * m.height && m.bitmap[ink] == 0) ++ink;
                     s.textSize = 50000;
                     s.WriteLine(-50000 * (m.bearingX + ink % m.width), -50000 * (ink / m.width + 19 - m.bearingY),
                                 White, "M");
                 },
                 128},
        Clipping{"TextAlignedOnAnEmptyLine",
                 [](NeroxScreen& s) {
                     s.textAlign = NeroxScreen::AlignRight | NeroxScreen::AlignBottom;
                     s.Write(INT_MIN, INT_MAX, White, "\\n\\n");
                 },
                 0}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(NeroxScreen, SurfacesOfNoPixelsTakeEveryPrimitive) {
    NeroxScreen screen(0, 5);
    screen.Blank(White);
    screen.Draw(0, 0, White, 3, 3);
    screen.DrawCircle(0, 0, 4, White, White);
    screen.DrawTriangle(0, 0, 4, 0, 0, 4, White, White);
    screen.Write(0, 0, White, "text");
    EXPECT_TRUE(screen.pixels.empty());
    EXPECT_EQ(screen.GetPixel(0, 0), 0u);
    EXPECT_THROW(NeroxScreen(-1, 4), std::runtime_error);
    EXPECT_THROW(NeroxScreen(4, NeroxScreen::MaxSide + 1), std::runtime_error);
}

TEST(NeroxScreen, GetPixelReadsByIndexSoXWrapsToTheNextRow) {
    NeroxScreen screen(4, 2);
    for (uint32_t i = 0; i < 8; ++i) screen.pixels[i] = i + 1;
    EXPECT_EQ(screen.GetPixel(3, 0), 4u);
    EXPECT_EQ(screen.GetPixel(4, 0), 5u);  // row 1, column 0
    EXPECT_EQ(screen.GetPixel(-1, 1), 4u); // row 0, column 3
    EXPECT_EQ(screen.GetPixel(0, 2), 0u);
    EXPECT_EQ(screen.GetPixel(INT_MIN, 0), 0u);
}

TEST(NeroxScreen, BlendingFollowsAlpha) {
    NeroxScreen screen(4, 1);
    screen.pixels[0] = 0xFF000000; // opaque black
    screen.DrawPoint(0, 0, 0x80FFFFFF);
    EXPECT_EQ(screen.pixels[0], 0xFF808080u); // halfway, alpha capped at 255

    screen.pixels[1] = 0x10203040;
    screen._dirty = false;
    screen.DrawPoint(1, 0, 0x00FFFFFF); // alpha 0: colour kept, but a change
    EXPECT_EQ(screen.pixels[1], 0x10203040u);
    EXPECT_TRUE(screen._dirty);

    screen._dirty = false;
    screen.DrawPoint(2, 0, 0); // exactly 0 is no colour at all
    EXPECT_FALSE(screen._dirty);
    screen.DrawPoint(2, 0, 0x7F123456);
    screen.DrawPoint(2, 0, 0xFF654321); // opaque replaces, alpha included
    EXPECT_EQ(screen.pixels[2], 0xFF654321u);
    screen._dirty = false;
    screen.Blank(0);
    EXPECT_TRUE(screen._dirty);
}

TEST(NeroxScreen, ColumnsLeftOfTheEdgeBlendOnColumn0AgainAndAgain) {
    NeroxScreen screen(4, 2);
    screen.Draw(-3, 0, HalfRed, 5, 1);
    EXPECT_EQ(screen.pixels[0], 0xFF0000EFu); // four blends: red 128, 191, 223, 239
    EXPECT_EQ(screen.pixels[1], 0x80000080u); // one
    EXPECT_EQ(screen.pixels[2], 0u);
    // Two billion blends end where a few hundred do: red stops at 254.
    screen.Draw(INT_MIN, 1, HalfRed, INT_MAX, 1);
    EXPECT_EQ(screen.pixels[4], 0xFF0000FEu);
}

TEST(NeroxScreen, RectWithEqualStrokeAndFillIsOneFill) {
    NeroxScreen stroked(8, 8), filled(8, 8);
    stroked.DrawRect(1, 1, 6, 5, HalfRed, HalfRed);
    filled.Draw(1, 1, HalfRed, 5, 4);
    EXPECT_EQ(stroked.pixels, filled.pixels);
}

// Where a text's first glyph cell starts when Write places it on a 100 x 60
// screen (cells 11 x 20), found by drawing the same lines with WriteLine.
struct Placement {
    char const* name;
    unsigned align;
    char const* text;
    std::vector<std::pair<int, int>> origins; // one per line drawn
    std::vector<char const*> lines;
};

void PrintTo(Placement const& row, std::ostream* out) {
    *out << row.name;
}

class NeroxScreenText : public ::testing::TestWithParam<Placement> { };

TEST_P(NeroxScreenText, WritePlacesLinesByTheAtlasMetrics) {
    ASSERT_GT(nerox::graphics::FontRenderer::Monospace().CharWidth(), 0)
        << "the font atlas is not in the run directory";
    NeroxScreen written(100, 60), expected(100, 60);
    ASSERT_EQ(written.charWidth, 11u);
    ASSERT_EQ(written.charHeight, 20u);
    written.textAlign = GetParam().align;
    written.Write(0, 0, White, GetParam().text);
    for (size_t i = 0; i < GetParam().lines.size(); ++i)
        expected.WriteLine(GetParam().origins[i].first, GetParam().origins[i].second, White, GetParam().lines[i]);
    EXPECT_GT(Lit(written), 0);
    EXPECT_EQ(written.pixels, expected.pixels);
}

INSTANTIATE_TEST_SUITE_P(
    Alignment, NeroxScreenText,
    ::testing::Values(Placement{"None", 0, "ab", {{0, 0}}, {"ab"}}, Placement{"Left", 1, "ab", {{1, 0}}, {"ab"}},
                      Placement{"Right", 2, "ab", {{78, 0}}, {"ab"}},
                      Placement{
                          "RightCountsCharactersNotBytes", 2, "\xC3\xA9\xC3\xA9", {{78, 0}}, {"\xC3\xA9\xC3\xA9"}},
                      Placement{"Top", 4, "ab", {{0, 1}}, {"ab"}}, Placement{"Bottom", 8, "ab", {{0, 40}}, {"ab"}},
                      Placement{"Centre", 16, "ab", {{39, 20}}, {"ab"}},
                      Placement{"TopAndCentredAcross", 4 | 16, "ab", {{39, 1}}, {"ab"}},
                      Placement{"TwoLinesAtTheBottom", 8, "ab\\ncd", {{0, 20}, {0, 40}}, {"ab", "cd"}},
                      Placement{"EmptyLineStillTakesItsRow", 0, "\\nab", {{0, 20}}, {"ab"}},
                      Placement{"LineFeedByteIsNoBreak", 0, "a\nb", {{0, 0}}, {"a\nb"}},
                      Placement{"EscapedBackslashIsNoBreak", 0, "a\\\\nb", {{0, 0}}, {"a\\\\nb"}}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(NeroxScreen, GlyphsStandOnTheBaselineOfTheirCell) {
    nerox::graphics::FontRenderer& font = nerox::graphics::FontRenderer::Monospace();
    ASSERT_GT(font.CharWidth(), 0);
    NeroxScreen screen(40, 50);
    screen.textSize = 2;
    screen.WriteLine(3, 4, White, "g");
    nerox::graphics::FontRenderer::Glyph const& g = font.GlyphOf('g');
    ASSERT_GT(g.height, 0);
    // Ink rows of the scaled glyph: from the cell's last row up by the bearing, twice as tall.
    int top = 50, bottom = -1, left = 40;
    for (int y = 0; y < 50; ++y)
        for (int x = 0; x < 40; ++x)
            if (screen.GetPixel(x, y) != 0)
                top = std::min(top, y), bottom = std::max(bottom, y), left = std::min(left, x);
    EXPECT_EQ(top, 4 + 2 * (19 - g.bearingY));
    EXPECT_EQ(bottom, top + 2 * g.height - 1);
    EXPECT_EQ(left, 3 + 2 * g.bearingX);
}

TEST(NeroxScreen, UpdateTakesAChangeAtMostOncePerInterval) {
    NeroxScreen screen(8, 8);
    screen.minUpdateInterval = 60000.0;
    EXPECT_FALSE(screen.Update(false)); // nothing drawn
    screen.DrawPoint(1, 1, White);
    screen.textSize = 3;
    EXPECT_TRUE(screen.Update(false));
    EXPECT_EQ(screen.textSize, 1u); // drawing state lives for one update
    EXPECT_EQ(screen.previousPixels, screen.pixels);
    screen.DrawPoint(2, 2, White);
    EXPECT_FALSE(screen.Update(false)); // too soon: the change waits
    EXPECT_TRUE(screen._dirty);
    screen.minUpdateInterval = 0.0;
    EXPECT_TRUE(screen.Update(false));
    EXPECT_FALSE(screen._dirty);
}

TEST(NeroxScreen, OnlyAChangedImageMakesACompressedFrame) {
    NeroxScreen screen(64, 32);
    screen.Write(0, 0, White, "12.5 km/h");
    ASSERT_TRUE(screen.Update(true));
    std::vector<unsigned char> const* frame = screen.NewCompressedFrame();
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(screen.NewCompressedFrame(), nullptr); // handed out once
    std::vector<uint32_t> image(screen.pixels.size());
    NeroxScreen::Inflate(*frame, image);
    EXPECT_EQ(image, screen.pixels);

    screen.Blank(0);
    screen.Write(0, 0, White, "12.5 km/h"); // drawn again, the same
    EXPECT_TRUE(screen.Update(true));
    EXPECT_EQ(screen.NewCompressedFrame(), nullptr);
}

TEST(NeroxScreen, CompressionRunsOnThePoolWhileDrawingGoesOn) {
    NeroxScreen::compressThreadPool.RunThreads(1);
    NeroxScreen screen(256, 256);
    std::vector<uint32_t> image(screen.pixels.size());
    for (int frame = 0; frame < 20; ++frame) {
        screen.Blank(0xFF000000u + static_cast<uint32_t>(frame));
        screen.DrawCircle(128, 128, frame * 5, White, 0);
        ASSERT_TRUE(screen.Update(true));
        std::vector<uint32_t> const drawn = screen.pixels;
        screen.Blank(0); // the next frame starts while this one compresses
        std::vector<unsigned char> const* compressed = nullptr;
        while ((compressed = screen.NewCompressedFrame()) == nullptr) std::this_thread::yield();
        NeroxScreen::Inflate(*compressed, image);
        ASSERT_EQ(image, drawn) << "frame " << frame;
    }
    NeroxScreen::compressThreadPool.Shutdown();
}

TEST(NeroxScreen, NoiseCompressesAndDecompressesInPlace) {
    NeroxScreen screen(512, 512);
    std::mt19937 random(7);
    for (uint32_t& pixel : screen.pixels) pixel = random();
    std::vector<uint32_t> const noise = screen.pixels;
    screen.Compress(); // larger than the image: deflate's bound, not 256 bytes of slack
    EXPECT_GT(screen._compressedBuffer.size(), noise.size() * 4);
    screen.Blank(0);
    screen.Decompress();
    EXPECT_EQ(screen.pixels, noise);

    std::vector<unsigned char> const none;
    std::vector<uint32_t> out(4, 7);
    NeroxScreen::Decompress(none, reinterpret_cast<unsigned char*>(out.data()), 16);
    EXPECT_EQ(out, std::vector<uint32_t>(4, 0));
    screen._compressedBuffer.clear();
    screen.defaultColor = 0xFF112233;
    screen.Decompress();
    EXPECT_EQ(screen.pixels.front(), 0xFF112233u);
}

TEST(NeroxScreen, CompressedFrameOfTheWrongSizeAbortsDecompress) {
    NeroxScreen small(4, 4), large(8, 4);
    small.Blank(White);
    small.Compress();
    large._compressedBuffer = small._compressedBuffer;
    EXPECT_DEATH(large.Decompress(), "ASSERTION FAILED: \\(strm.avail_out == 0\\)");
    small._compressedBuffer.push_back(0);
    EXPECT_DEATH(small.Decompress(), "ASSERTION FAILED: \\(strm.avail_in == 0\\)");
}

struct Refusal {
    char const* name;
    std::function<void(std::vector<unsigned char>&)> edit; // of a good 16 x 16 frame
    char const* reason;
};

void PrintTo(Refusal const& row, std::ostream* out) {
    *out << row.name;
}

class NeroxScreenReader : public ::testing::TestWithParam<Refusal> { };

std::vector<unsigned char> CompressedImage(int width, int height) {
    NeroxScreen screen(width, height);
    screen.DrawCircle(width / 2, height / 2, 6, White, HalfRed);
    screen.Compress();
    return screen._compressedBuffer;
}

TEST_P(NeroxScreenReader, RefusesWhatDoesNotFillTheImage) {
    std::vector<unsigned char> stream = CompressedImage(16, 16);
    GetParam().edit(stream);
    std::vector<uint32_t> image(16 * 16);
    try {
        NeroxScreen::Inflate(stream, image);
        FAIL() << "read";
    } catch (std::runtime_error const& error) {
        EXPECT_NE(std::string(error.what()).find(GetParam().reason), std::string::npos) << error.what();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Streams, NeroxScreenReader,
    ::testing::Values(Refusal{"Empty", [](auto& s) { s.clear(); }, "no data"},
                      Refusal{"LongerThanAnyImageMakes", [](auto& s) { s.resize(1024 * 4 + 1024); }, "longer than any"},
                      Refusal{"Damaged", [](auto& s) { s[0] ^= 0xFF; }, "damaged"},
                      Refusal{"CutOff", [](auto& s) { s.resize(s.size() / 2); }, "cut off"},
                      Refusal{"OfASmallerImage", [](auto& s) { s = CompressedImage(16, 8); }, "ends after 512 bytes"},
                      Refusal{"OfALargerImage", [](auto& s) { s = CompressedImage(16, 17); }, "more than the image"},
                      Refusal{"WithBytesAfterItsEnd", [](auto& s) { s.resize(s.size() + 3, 1); }, "3 bytes follow"}),
    [](auto const& info) { return std::string(info.param.name); });

} // namespace
