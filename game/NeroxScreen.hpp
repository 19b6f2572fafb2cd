#pragma once
// A pixel screen: a CPU raster surface that machines in the world draw on, with
// monospace text and a compressed form of the image made off the drawing thread.
#include "nerox/cpu/ThreadPool.hpp"

#include <cstddef>
#include <cstdint>
#include <future>
#include <mutex>
#include <span>
#include <string_view>
#include <vector>

namespace game {

/// A width x height array of 32-bit pixels with immediate drawing primitives.
///
/// Pixels are red in the low byte: bits 0-7 red, 8-15 green, 16-23 blue,
/// 24-31 alpha. A colour whose alpha is below 255 is blended over the pixel
/// (each of red, green and blue: (dst * (255 - a) + src * a) / 255; alpha adds
/// up to 255); alpha 255 replaces the pixel.
///
/// Every primitive clips to the surface: whatever its arguments, no call reads
/// or writes outside `pixels`, and the work of one call is bounded by the
/// surface's size (and, for text, by its length).
///
/// The owner draws, then calls Update once per frame. Update takes a change at
/// most every minUpdateInterval milliseconds and, with force, compresses the
/// image on compressThreadPool (on the calling thread when the pool has no
/// threads); NewCompressedFrame hands each finished stream to the owner once.
///
/// Threads: one thread draws and calls Update; only the compression runs
/// elsewhere, on a copy of the image taken by Update, and Update waits for the
/// previous compression before it starts the next.
class NeroxScreen {
public:
    /// textAlign bits for Write. Left, right and centre place each line
    /// across, top, bottom and centre the block of lines down; centre does
    /// both axes unless another bit decides one of them.
    enum Align : uint32_t { AlignLeft = 1, AlignRight = 2, AlignTop = 4, AlignBottom = 8, AlignCenter = 16 };
    /// Largest side of a screen, pixels.
    static constexpr int MaxSide = 8192;
    /// Largest text size, char width and char height that draw text at all.
    static constexpr uint32_t MaxTextScale = 65535;
    /// Bytes of a line that WriteLine draws; the rest is cut.
    static constexpr size_t MaxLineBytes = 1024;

    /// A blank (zero) screen of width x height pixels. The glyph cell comes
    /// from the monospace font (11 x 20 if it cannot be read). Throws
    /// std::runtime_error for a side below 0 or above MaxSide.
    NeroxScreen(int width, int height);
    /// Waits for a compression in flight.
    ~NeroxScreen();
    NeroxScreen(NeroxScreen const&) = delete;
    NeroxScreen& operator=(NeroxScreen const&) = delete;

    /// Every pixel = color, not blended. Marks the screen changed, also when it has no pixels.
    void Blank(unsigned int color);
    /// Rectangle of w x h pixels from (x, y). Rows and columns above or left of
    /// the surface are drawn on row or column 0 (so a blended colour piles up
    /// there); the first row or column past the far edge ends the rectangle.
    /// Marks the screen changed even when nothing is drawn.
    void Draw(int x, int y, unsigned int color, int w, int h);
    /// One pixel. A colour of exactly 0, or a point off the surface, draws
    /// nothing and leaves the changed mark as it was.
    void DrawPoint(int x, int y, unsigned int color);
    /// Points from (x1, y1) towards (x2, y2), one per step along the longer
    /// axis, the end point left out. A line longer than eight times the
    /// surface's half-perimeter is dropped.
    void DrawLine(int x1, int y1, int x2, int y2, unsigned int color);
    /// Rectangle with corners (x1, y1) and (x2, y2), the far corner excluded:
    /// a one-pixel stroke (when not 0 and unlike fill), then the fill inside it (when not 0).
    void DrawRect(int x1, int y1, int x2, int y2, unsigned int stroke, unsigned int fill);
    /// Triangle: fill (when not 0) over the pixels strictly inside its three
    /// edges, then the edges in stroke (when not 0). Three points on one line
    /// fill only the pixels on that line.
    void DrawTriangle(int x1, int y1, int x2, int y2, int x3, int y3, unsigned int stroke, unsigned int fill);
    /// Disc of radius r about (cx, cy): a one-pixel ring in stroke (when not 0)
    /// around the fill (when not 0); with stroke 0 the fill covers the ring.
    void DrawCircle(int cx, int cy, int r, unsigned int stroke, unsigned int fill);
    /// Text in lines split at the two characters backslash and n (a line feed
    /// byte is no break), placed by textAlign (Align bits), drawn by WriteLine.
    void Write(int x, int y, unsigned int color, std::string_view const& text);
    /// One line of monospace text, its glyph cells from (x, y), scaled by
    /// textSize; cut at MaxLineBytes bytes.
    void WriteLine(int x, int y, unsigned int color, std::string_view const& text);
    /// The pixel at index x + y * width (32-bit arithmetic, so x past the edge
    /// reads the next row); 0 when that index is outside the surface.
    unsigned int GetPixel(int x, int y) const;

    /// pixels into _compressedBuffer, a zlib stream of compressionLevel.
    /// Throws std::runtime_error "ZLIB ERROR" when zlib cannot start.
    void Compress();
    /// _compressedBuffer into pixels. Empty: says so on the standard error
    /// stream and blanks the screen to defaultColor. A stream that does not
    /// fill the surface exactly fails an assertion: use Inflate for streams
    /// from elsewhere.
    void Decompress();
    /// The same for any stream into size bytes at out; empty data zero-fills out.
    static void Decompress(std::vector<unsigned char> const& data, unsigned char* out, unsigned long size);
    /// The checked reader, for streams received from elsewhere: inflates data
    /// into out, which must come out exactly filled. Throws std::runtime_error
    /// with the reason (no data, a stream larger than any image of out's size,
    /// a damaged stream, one that inflates to more or fewer bytes than out
    /// holds, bytes after its end) and never writes past out; on failure out
    /// holds an unspecified part of the image.
    static void Inflate(std::span<unsigned char const> data, std::span<uint32_t> out);

    /// Once per frame, by the owner: resets textSize and lineSpacing to 1, and
    /// takes the change made since the last taken update, unless the last one
    /// was taken less than minUpdateInterval ms ago (then the change waits).
    /// An image that came out the same as the last one taken is not taken
    /// again (nor compressed, even if it was taken without force before). A
    /// taken image is compressed when force is set. Returns whether
    /// the screen had been drawn on and the rate limit let it through.
    bool Update(bool force);
    /// The compressed stream of the last image Update compressed, once it is
    /// complete; each stream is handed out once, null otherwise. Valid until
    /// the next Update.
    std::vector<unsigned char> const* NewCompressedFrame();

    unsigned int charWidth;                       ///< Advance of one glyph at text size 1, pixels.
    unsigned int charHeight;                      ///< Height of one line at text size 1, pixels.
    int width;                                    ///< Size of the surface.
    int height;                                   ///< Size of the surface.
    unsigned int defaultColor = 0;                ///< Colour of Decompress without data.
    double minUpdateInterval = 0.0;               ///< Milliseconds between changes that Update takes.
    unsigned int textSize = 1;                    ///< Integer scale of text; back to 1 at each Update.
    unsigned int textAlign = 0;                   ///< Align bits of Write.
    unsigned int lineSpacing = 1;                 ///< Extra rows between lines, plus 1; back to 1 at each Update.
    std::vector<uint32_t> pixels;                 ///< The image, rows from the top.
    std::vector<uint32_t> previousPixels;         ///< The image as last taken by Update.
    std::vector<unsigned char> _compressedBuffer; ///< zlib stream of the image.
    std::shared_future<void> compressFuture;      ///< The compression in flight.
    bool _dirty = false;                          ///< Set by every drawing operation.
    std::mutex timeMutex;                         ///< Guards the two below.
    double lastChangeTime = 0.0;                  ///< Ms since the system clock's epoch, of the last change taken.
    bool hasLastChange = false;                   ///< A change was taken.

    /// zlib level of Compress (read without a lock).
    static int compressionLevel;
    /// Where Update's compressions run ("ScreenCompress"); the game runs one
    /// thread from Game::Start to Game::Stop.
    static nerox::cpu::ThreadPool<> compressThreadPool;

private:
    /// Blends (or writes) color into the pixel at index, repeated times (at
    /// most the 256 that reach the end result).
    void Plot(size_t index, uint32_t color, uint64_t repeated = 1);
    /// Draw on a rectangle whose corners may lie far outside int.
    void Fill(int64_t x, int64_t y, uint32_t color, int64_t w, int64_t h);
    /// WriteLine at coordinates that may lie far outside int.
    void Line(int64_t x, int64_t y, uint32_t color, std::string_view text);
    /// A zlib stream of source into _compressedBuffer.
    void CompressFrom(std::vector<uint32_t> const& source);

    bool _frameTaken = true; // the stream of compressFuture was handed out
};

} // namespace game
