#include "game/NeroxScreen.hpp"

#include "nerox/Assert.hpp"
#include "nerox/cpu/Profiler.hpp"
#include "nerox/graphics/FontRenderer.hpp"

#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <iostream>
#include <limits>
#include <stdexcept>
#include <string>

namespace game {

int NeroxScreen::compressionLevel = 6;
nerox::cpu::ThreadPool<> NeroxScreen::compressThreadPool("ScreenCompress");

namespace {

// Products of coordinates that may each span the whole int range.
__extension__ typedef __int128 Wide;

// zlib checks only the major version of this text against its own.
constexpr char ZlibVersion[] = "1.2.11";

// Coordinates beyond this distance from the surface stay off it whatever the
// text's scale adds (at most MaxTextScale times a glyph's few hundred pixels per
// glyph, for MaxLineBytes glyphs), so they are cut to it.
constexpr int64_t FarAway = int64_t{1} << 50;

int64_t CutFar(Wide value) {
    return static_cast<int64_t>(std::clamp<Wide>(value, -FarAway, FarAway));
}

int Sign(Wide value) {
    return (value > 0) - (value < 0);
}

double NowMs() {
    using namespace std::chrono;
    return duration<double, std::milli>(system_clock::now().time_since_epoch()).count();
}

uint32_t Blend(uint32_t destination, uint32_t source, uint32_t a) {
    uint32_t result = std::min<uint32_t>(255, (destination >> 24) + a) << 24;
    for (int shift = 0; shift < 24; shift += 8) {
        uint32_t const d = (destination >> shift) & 255, s = (source >> shift) & 255;
        result |= ((d * (255 - a) + s * a) / 255) << shift;
    }
    return result;
}

/// How a rectangle's span [start, end) lands on an axis of size limit (> 0):
/// coordinates below 1 all land on 0 (onZero times), those from 1 up once each
/// in [first, last).
struct Span {
    uint64_t onZero = 0;
    int64_t first = 1, last = 1;
};

Span SpanOn(int64_t start, int64_t end, int64_t limit) {
    Span span;
    span.onZero = static_cast<uint64_t>(std::max<int64_t>(0, std::min<int64_t>(end, 1) - start));
    span.first = std::max<int64_t>(start, 1);
    span.last = std::max(span.first, std::min(end, limit));
    return span;
}

/// A zlib stream that inflates in into out, ended whatever way its user leaves.
struct Inflater {
    z_stream strm{};
    Inflater(unsigned char const* in, size_t inBytes, unsigned char* out, size_t outBytes) {
        if (inflateInit_(&strm, ZlibVersion, static_cast<int>(sizeof(z_stream))) != Z_OK)
            throw std::runtime_error("ZLIB ERROR");
        strm.next_in = const_cast<Bytef*>(in);
        strm.avail_in = static_cast<uInt>(inBytes);
        strm.next_out = out;
        strm.avail_out = static_cast<uInt>(outBytes);
    }
    ~Inflater() { inflateEnd(&strm); }
    Inflater(Inflater const&) = delete;
    Inflater& operator=(Inflater const&) = delete;
};

} // namespace

NeroxScreen::NeroxScreen(int width_, int height_) : width(width_), height(height_) {
    if (width < 0 || height < 0 || width > MaxSide || height > MaxSide)
        throw std::runtime_error("NeroxScreen: a screen of " + std::to_string(width) + "x" + std::to_string(height) +
                                 " pixels cannot be made (each side 0 to " + std::to_string(MaxSide) + ")");
    nerox::graphics::FontRenderer const& font = nerox::graphics::FontRenderer::Monospace();
    charWidth = font.CharWidth() > 0 ? static_cast<unsigned int>(font.CharWidth()) : 11;
    charHeight = font.CharHeight() > 0 ? static_cast<unsigned int>(font.CharHeight()) : 20;
    pixels.assign(static_cast<size_t>(width) * static_cast<size_t>(height), 0);
    previousPixels = pixels;
}

NeroxScreen::~NeroxScreen() {
    if (compressFuture.valid()) compressFuture.wait(); // the task works on this screen's arrays
}

void NeroxScreen::Plot(size_t index, uint32_t color, uint64_t repeated) {
    uint32_t const a = color >> 24;
    if (a == 255) {
        pixels[index] = color;
        return;
    }
    // Blending the same colour again moves each channel monotonically towards
    // a fixed value, which it reaches within 255 steps: no more are needed.
    uint32_t value = pixels[index];
    for (uint64_t step = std::min<uint64_t>(repeated, 256); step > 0; --step) {
        uint32_t const next = Blend(value, color, a);
        if (next == value) break;
        value = next;
    }
    pixels[index] = value;
}

void NeroxScreen::Blank(unsigned int color) {
    std::fill(pixels.begin(), pixels.end(), color);
    _dirty = true;
}

void NeroxScreen::Draw(int x, int y, unsigned int color, int w, int h) {
    Fill(x, y, color, w, h);
}

void NeroxScreen::Fill(int64_t x, int64_t y, uint32_t color, int64_t w, int64_t h) {
    _dirty = true;
    if (w <= 0 || h <= 0 || width <= 0 || height <= 0) return;
    Span const columns = SpanOn(x, x + w, width);
    Span const rows = SpanOn(y, y + h, height);
    auto const drawRow = [&](int64_t row, uint64_t times) {
        size_t const base = static_cast<size_t>(row) * static_cast<size_t>(width);
        if (columns.onZero > 0) Plot(base, color, times * std::min<uint64_t>(columns.onZero, 256));
        for (int64_t column = columns.first; column < columns.last; ++column)
            Plot(base + static_cast<size_t>(column), color, times);
    };
    if (rows.onZero > 0) drawRow(0, std::min<uint64_t>(rows.onZero, 256));
    for (int64_t row = rows.first; row < rows.last; ++row) drawRow(row, 1);
}

void NeroxScreen::DrawPoint(int x, int y, unsigned int color) {
    if (color == 0 || x < 0 || y < 0 || x >= width || y >= height) return;
    Plot(static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x), color);
    _dirty = true;
}

void NeroxScreen::DrawLine(int x1, int y1, int x2, int y2, unsigned int color) {
    float const dx = static_cast<float>(int64_t{x2} - x1), dy = static_cast<float>(int64_t{y2} - y1);
    float major = std::abs(dx);
    if (std::abs(dy) > std::abs(dx)) major = std::abs(dy);
    if (major * 0.125f > static_cast<float>(height + width)) return; // bounds the work of one call
    if (!(major > 0.0f)) return;
    float const stepX = dx / major, stepY = dy / major;
    float px = static_cast<float>(x1) + 0.5f, py = static_cast<float>(y1) + 0.5f;
    for (int64_t step = 0; step < static_cast<int64_t>(major); ++step) {
        // Truncated towards zero, so (-1, 0) still lands on 0; farther out is
        // off the surface (and outside int, where a conversion is undefined).
        if (px > -1.0f && py > -1.0f && px < static_cast<float>(width) && py < static_cast<float>(height))
            DrawPoint(static_cast<int>(px), static_cast<int>(py), color);
        px += stepX;
        py += stepY;
    }
}

void NeroxScreen::DrawRect(int x1, int y1, int x2, int y2, unsigned int stroke, unsigned int fill) {
    if (x1 > x2) std::swap(x1, x2);
    if (y1 > y2) std::swap(y1, y2);
    int64_t left = x1, top = y1, right = x2, bottom = y2;
    if (stroke != 0 && stroke != fill) {
        // An edge one pixel in from int's end lies off any surface: keeping it
        // in int changes nothing that is drawn.
        int const lastRow = static_cast<int>(std::max<int64_t>(bottom - 1, std::numeric_limits<int>::min()));
        int const lastColumn = static_cast<int>(std::max<int64_t>(right - 1, std::numeric_limits<int>::min()));
        DrawLine(x1, y1, x2, y1, stroke);
        DrawLine(x1, lastRow, x2, lastRow, stroke);
        DrawLine(x1, y1, x1, y2, stroke);
        DrawLine(lastColumn, y1, lastColumn, y2, stroke);
        ++left, ++top, --right, --bottom;
    }
    if (fill != 0) Fill(left, top, fill, right - left, bottom - top);
}

void NeroxScreen::DrawTriangle(int x1, int y1, int x2, int y2, int x3, int y3, unsigned int stroke, unsigned int fill) {
    if (fill != 0 && width > 0 && height > 0) {
        // Edge function of the edge from a to b at p: its sign tells the side.
        auto const edge = [](int64_t ax, int64_t ay, int64_t bx, int64_t by, int64_t px, int64_t py) {
            return Wide{py - ay} * Wide{bx - ax} - Wide{px - ax} * Wide{by - ay};
        };
        int const s = Sign(edge(x1, y1, x2, y2, x3, y3));
        int64_t const left = std::max<int64_t>(0, std::min({x1, x2, x3}));
        int64_t const right = std::min<int64_t>(width - 1, std::max({x1, x2, x3}));
        int64_t const top = std::max<int64_t>(0, std::min({y1, y2, y3}));
        int64_t const bottom = std::min<int64_t>(height - 1, std::max({y1, y2, y3}));
        for (int64_t py = top; py <= bottom; ++py)
            for (int64_t px = left; px <= right; ++px) {
                int const e1 = Sign(edge(x1, y1, x2, y2, px, py));
                int const e2 = Sign(edge(x2, y2, x3, y3, px, py));
                int const e3 = Sign(edge(x3, y3, x1, y1, px, py));
                // Strictly inside; three points on a line fill only that line.
                if (e1 == s && e2 == s && e3 == s) DrawPoint(static_cast<int>(px), static_cast<int>(py), fill);
            }
    }
    if (stroke != 0) {
        DrawLine(x1, y1, x2, y2, stroke);
        DrawLine(x2, y2, x3, y3, stroke);
        DrawLine(x3, y3, x1, y1, stroke);
    }
}

void NeroxScreen::DrawCircle(int cx, int cy, int r, unsigned int stroke, unsigned int fill) {
    if (stroke == 0 && fill == 0) return;
    int64_t const left = std::max<int64_t>(0, int64_t{cx} - r), right = std::min<int64_t>(width - 1, int64_t{cx} + r);
    int64_t const top = std::max<int64_t>(0, int64_t{cy} - r), bottom = std::min<int64_t>(height - 1, int64_t{cy} + r);
    Wide const outer = Wide{r} * r, inner = Wide{int64_t{r} - 1} * (int64_t{r} - 1);
    for (int64_t py = top; py <= bottom; ++py)
        for (int64_t px = left; px <= right; ++px) {
            Wide const d2 = Wide{px - cx} * (px - cx) + Wide{py - cy} * (py - cy);
            if (d2 >= outer) continue;
            if (d2 >= inner && stroke != 0)
                DrawPoint(static_cast<int>(px), static_cast<int>(py), stroke);
            else if (fill != 0)
                DrawPoint(static_cast<int>(px), static_cast<int>(py), fill);
        }
}

void NeroxScreen::Write(int x, int y, unsigned int color, std::string_view const& text) {
    // Calls line(start, length) for each line: breaks at backslash-n; a
    // backslash before anything else is kept, and so is what follows it.
    auto const forEachLine = [&text](auto&& line) {
        size_t start = 0, i = 0;
        while (i < text.size()) {
            if (text[i] != '\\' || i + 1 >= text.size()) {
                ++i;
            } else if (text[i + 1] == 'n') {
                line(text.substr(start, i - start));
                start = i += 2;
            } else {
                i += 2;
            }
        }
        line(text.substr(start));
    };
    Wide lines = 0;
    forEachLine([&lines](std::string_view) { ++lines; });

    Wide const size = textSize, spacing = lineSpacing, cellWidth = charWidth;
    Wide const pitch = (Wide{charHeight} + spacing - 1) * size;
    Wide top = y;
    if (textAlign & AlignTop)
        top = Wide{y} + 1;
    else if (textAlign & AlignBottom)
        top = Wide{y} + height + spacing * size - 1 - lines * pitch;
    else if (textAlign & AlignCenter)
        top = Wide{y} + std::max<Wide>(1, spacing * size / 2 + height / 2 - lines * pitch / 2);

    forEachLine([&](std::string_view line) {
        Wide characters = 0;
        for (char const c : line) characters += (static_cast<unsigned char>(c) & 0xC0) != 0x80 ? 1 : 0;
        Wide left = x;
        if (textAlign & AlignLeft)
            left = Wide{x} + 1;
        else if (textAlign & AlignRight)
            left = Wide{x} + width + size - 1 - characters * cellWidth * size;
        else if (textAlign & AlignCenter)
            left = Wide{x} + std::max<Wide>(1, width / 2 - characters * (cellWidth * size) / 2);
        if (!line.empty()) Line(CutFar(left), CutFar(top), color, line);
        top += pitch;
    });
}

void NeroxScreen::WriteLine(int x, int y, unsigned int color, std::string_view const& text) {
    Line(x, y, color, text);
}

void NeroxScreen::Line(int64_t x, int64_t y, uint32_t color, std::string_view text) {
    static nerox::graphics::FontRenderer& font = nerox::graphics::FontRenderer::Monospace();
    text = text.substr(0, MaxLineBytes);
    nerox::graphics::FontRenderer::Glyphs const glyphs = font[text];
    _dirty = true;
    if (glyphs->empty() || width == 0 || height == 0) return;
    if (textSize > MaxTextScale || charWidth > MaxTextScale || charHeight > MaxTextScale) return;
    int64_t const size = textSize;
    int64_t const baseline = (int64_t{charHeight} - 1) * size;
    int64_t penX = x;
    for (nerox::graphics::FontRenderer::Glyph const& glyph : *glyphs) {
        for (int j = 0; j < glyph.height; ++j)
            for (int i = 0; i < glyph.width; ++i) {
                if (glyph.bitmap[static_cast<size_t>(j) * static_cast<size_t>(glyph.width) + i] == 0) continue;
                // The source pixel covers size x size pixels from here; only
                // the part on the surface is visited.
                int64_t const left = (glyph.bearingX + i) * size + penX;
                int64_t const top = size * j + baseline + y - glyph.bearingY * size;
                int64_t const x0 = std::max<int64_t>(left, 0), x1 = std::min<int64_t>(left + size, width);
                int64_t const y0 = std::max<int64_t>(top, 0), y1 = std::min<int64_t>(top + size, height);
                for (int64_t row = y0; row < y1; ++row)
                    for (int64_t column = x0; column < x1; ++column)
                        Plot(static_cast<size_t>(row) * static_cast<size_t>(width) + static_cast<size_t>(column),
                             color);
            }
        penX += int64_t{charWidth} * size;
    }
}

unsigned int NeroxScreen::GetPixel(int x, int y) const {
    uint32_t const index = static_cast<uint32_t>(x) + static_cast<uint32_t>(y) * static_cast<uint32_t>(width);
    return index < pixels.size() ? pixels[index] : 0;
}

void NeroxScreen::Compress() {
    if (compressFuture.valid()) compressFuture.wait(); // the task writes the same buffer
    CompressFrom(pixels);
}

void NeroxScreen::CompressFrom(std::vector<uint32_t> const& source) {
    size_t const bytes = source.size() * sizeof(uint32_t);
    z_stream strm{};
    if (deflateInit_(&strm, compressionLevel, ZlibVersion, static_cast<int>(sizeof(z_stream))) != Z_OK)
        throw std::runtime_error("ZLIB ERROR");
    // Room for any image, however noisy: deflate's own bound where it is above
    // the customary 256 bytes of slack.
    _compressedBuffer.resize(std::max<size_t>(bytes + 256, deflateBound(&strm, bytes)));
    strm.next_in = reinterpret_cast<Bytef*>(const_cast<uint32_t*>(source.data()));
    strm.avail_in = static_cast<uInt>(bytes);
    strm.next_out = _compressedBuffer.data();
    strm.avail_out = static_cast<uInt>(_compressedBuffer.size());
    int const ret = deflate(&strm, Z_FINISH);
    NEROX_ASSERT(ret == Z_STREAM_END);
    _compressedBuffer.resize(_compressedBuffer.size() - strm.avail_out);
    deflateEnd(&strm);
}

void NeroxScreen::Decompress() {
    if (compressFuture.valid()) compressFuture.wait(); // the task writes the buffer read here
    if (_compressedBuffer.empty()) {
        std::cerr << "NeroxScreen::Decompress: _compressedBuffer is empty" << std::endl;
        Blank(defaultColor);
        return;
    }
    Decompress(_compressedBuffer, reinterpret_cast<unsigned char*>(pixels.data()), pixels.size() * sizeof(uint32_t));
}

void NeroxScreen::Decompress(std::vector<unsigned char> const& data, unsigned char* out, unsigned long size) {
    if (data.empty()) {
        std::cerr << "NeroxScreen::Decompress: compressedData is empty" << std::endl;
        if (size > 0) std::memset(out, 0, size);
        return;
    }
    Inflater inflater(data.data(), data.size(), out, size);
    z_stream& strm = inflater.strm;
    int const ret = inflate(&strm, Z_SYNC_FLUSH);
    NEROX_ASSERT(ret != Z_STREAM_ERROR);
    NEROX_ASSERT(strm.avail_in == 0);
    NEROX_ASSERT(strm.avail_out == 0);
}

void NeroxScreen::Inflate(std::span<unsigned char const> data, std::span<uint32_t> out) {
    size_t const bytes = out.size_bytes();
    auto const refuse = [bytes](std::string const& why) {
        throw std::runtime_error("Compressed screen image (" + std::to_string(bytes) + " bytes): " + why);
    };
    if (data.empty()) refuse("no data");
    if (bytes == 0 || bytes > std::numeric_limits<uInt>::max()) refuse("no image of that size can be read");
    // The sizes first. Deflate at its usual settings never makes a stream much
    // larger than its input; longer streams (small memory levels, a flush per
    // row) are refused too, which bounds the work of one image.
    size_t const bound = bytes + (bytes >> 12) + (bytes >> 14) + (bytes >> 25) + 512;
    if (data.size() > bound || data.size() > std::numeric_limits<uInt>::max())
        refuse("a stream of " + std::to_string(data.size()) + " bytes is longer than any image of this size makes");
    Inflater inflater(data.data(), data.size(), reinterpret_cast<unsigned char*>(out.data()), bytes);
    z_stream& strm = inflater.strm;
    int ret = inflate(&strm, Z_FINISH);
    if (ret == Z_BUF_ERROR && strm.avail_out == 0) {
        // The image is full but the stream has not ended: one byte of room
        // tells a longer image from a stream that is cut off or just ends here.
        unsigned char beyond = 0;
        strm.next_out = &beyond;
        strm.avail_out = 1;
        ret = inflate(&strm, Z_FINISH);
        if (strm.avail_out == 0) refuse("the stream inflates to more than the image holds");
        strm.avail_out = 0;
    }
    if (ret == Z_DATA_ERROR || ret == Z_NEED_DICT)
        refuse(std::string("the stream is damaged: ") + (strm.msg != nullptr ? strm.msg : "needs a dictionary"));
    if (ret == Z_MEM_ERROR) throw std::bad_alloc();
    if (ret != Z_STREAM_END)
        refuse("the stream is cut off after " + std::to_string(bytes - strm.avail_out) + " bytes of the image");
    if (strm.avail_out != 0) refuse("the stream ends after " + std::to_string(bytes - strm.avail_out) + " bytes");
    if (strm.avail_in != 0) refuse(std::to_string(strm.avail_in) + " bytes follow the end of the stream");
}

bool NeroxScreen::Update(bool force) {
    textSize = 1;
    lineSpacing = 1;
    if (!_dirty) return false;
    double const now = NowMs();
    {
        std::lock_guard lock(timeMutex);
        // A clock set back counts as time gone by, so that the screen never freezes.
        if (hasLastChange && now >= lastChangeTime && now - lastChangeTime < minUpdateInterval)
            return false; // taken later
    }
    _dirty = false;
    nerox::cpu::Profiler scope("NeroxScreen::Update _dirty");
    if (compressFuture.valid()) compressFuture.wait();
    if (previousPixels.size() == pixels.size() &&
        (pixels.empty() || std::memcmp(previousPixels.data(), pixels.data(), pixels.size() * sizeof(uint32_t)) == 0))
        return true; // drawn the same again: nothing new to compress
    {
        std::lock_guard lock(timeMutex);
        hasLastChange = true;
        lastChangeTime = now;
    }
    // The task compresses this copy, which nothing else touches until the next
    // Update has waited for it, so drawing may go on meanwhile.
    previousPixels = pixels;
    if (!force) return true;
    _frameTaken = false;
    auto compress = [this] { CompressFrom(previousPixels); };
    if (compressThreadPool.GetThreadCount() == 0) {
        std::packaged_task<void()> task(compress);
        compressFuture = task.get_future().share();
        task();
    } else {
        compressFuture = compressThreadPool.Promise(compress).share();
    }
    return true;
}

std::vector<unsigned char> const* NeroxScreen::NewCompressedFrame() {
    if (_frameTaken || !compressFuture.valid()) return nullptr;
    if (compressFuture.wait_for(std::chrono::seconds(0)) != std::future_status::ready) return nullptr;
    _frameTaken = true;
    try {
        compressFuture.get();
    } catch (std::exception const& failure) {
        std::cerr << "NeroxScreen: compressing the image failed: " << failure.what() << std::endl;
        return nullptr;
    }
    return &_compressedBuffer;
}

} // namespace game
