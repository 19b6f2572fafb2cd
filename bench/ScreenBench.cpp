// The pixel screen on its hot paths: Update on a screen redrawn the same
// (which should cost one memcmp of its pixels: the ratio_to_memcmp counter, a
// plain memcmp of the same bytes timed in the same loop), and a full redraw of
// text with the compression of the result, per frame.
#include "game/NeroxScreen.hpp"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

using game::NeroxScreen;
using Clock = std::chrono::steady_clock;

/// A screen full of text, a frame and a graph: what a machine's status page draws.
void DrawPage(NeroxScreen& screen, int frame) {
    char line[64];
    screen.Blank(0xFF3A2210);
    screen.DrawRect(2, 2, screen.width - 2, screen.height - 2, 0xFF707070, 0);
    for (int row = 0; row < 22; ++row) {
        std::snprintf(line, sizeof line, "%02d  pressure %7.2f kPa  valve %3d%%", row, 101.3 + row * 0.7 + frame,
                      (row * 37 + frame) % 100);
        screen.WriteLine(8, 6 + row * 20, 0xFFFFFFFF, line);
    }
    for (int x = 8; x < screen.width - 8; x += 4)
        screen.DrawLine(x, 500 - (x * 7 + frame) % 40, x + 4, 500 - ((x + 4) * 7 + frame) % 40, 0xFF80FF40);
}

void BM_ScreenUpdateRedrawnTheSame(benchmark::State& state) {
    NeroxScreen screen(512, 512);
    DrawPage(screen, 0);
    screen.Update(false); // the page is now the last image taken
    std::vector<uint32_t> const a = screen.pixels, b = screen.pixels;
    size_t const bytes = a.size() * sizeof(uint32_t);
    double update = 0.0, plain = 0.0;
    for (auto _ : state) {
        Clock::time_point const start = Clock::now();
        screen._dirty = true; // drawn again, the same
        benchmark::DoNotOptimize(screen.Update(true));
        Clock::time_point const middle = Clock::now();
        int const same = std::memcmp(a.data(), b.data(), bytes);
        benchmark::DoNotOptimize(same);
        Clock::time_point const end = Clock::now();
        update += std::chrono::duration<double>(middle - start).count();
        plain += std::chrono::duration<double>(end - middle).count();
    }
    if (screen.NewCompressedFrame() != nullptr) state.SkipWithError("an unchanged image was compressed");
    state.counters["update_us"] = update / static_cast<double>(state.iterations()) * 1e6;
    state.counters["memcmp_us"] = plain / static_cast<double>(state.iterations()) * 1e6;
    state.counters["ratio_to_memcmp"] = update / plain;
}
BENCHMARK(BM_ScreenUpdateRedrawnTheSame)->Unit(benchmark::kMicrosecond);

void BM_ScreenRedrawAndCompress(benchmark::State& state) {
    NeroxScreen screen(512, 512);
    int frame = 0;
    double drawing = 0.0, compressing = 0.0;
    for (auto _ : state) {
        Clock::time_point const start = Clock::now();
        DrawPage(screen, ++frame);
        Clock::time_point const middle = Clock::now();
        screen.Compress();
        Clock::time_point const end = Clock::now();
        drawing += std::chrono::duration<double>(middle - start).count();
        compressing += std::chrono::duration<double>(end - middle).count();
    }
    double const frames = static_cast<double>(state.iterations());
    state.counters["draw_us"] = drawing / frames * 1e6;
    state.counters["compress_us"] = compressing / frames * 1e6;
    state.counters["compressed_KiB"] = static_cast<double>(screen._compressedBuffer.size()) / 1024.0;
}
BENCHMARK(BM_ScreenRedrawAndCompress)->Unit(benchmark::kMicrosecond);

} // namespace
