// Fuzzes the webview client's frame reader: the bytes stand for what the
// webview program sends, read in pieces whose sizes the first byte chooses.
// Whatever the lengths claim, every frame handed to a view must lie inside
// the bytes read, and the reader must end when the bytes do.
#include "FuzzSupport.hpp"
#include "game/ElectronWebview.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

using fuzzsupport::Check;

volatile uint64_t consumed = 0;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    if (size == 0) return 0;
    size_t const piece = 1 + data[0] % 64 * 97; // 1 to 6112 bytes per read
    ++data;
    --size;

    static game::ElectronWebview webview; // one frame buffer for the run, as in the game
    static bool opened = false;
    static size_t total = 0; // bytes the current input has given so far
    static size_t delivered = 0;
    if (!opened) {
        auto check = [](char const* frame, unsigned long bytes) {
            Check(bytes <= game::ElectronWebview::FrameBufferBytes && bytes <= total);
            uint64_t sum = 0;
            for (unsigned long i = 0; i < bytes; i += 61) sum += static_cast<unsigned char>(frame[i]);
            if (bytes > 0) sum += static_cast<unsigned char>(frame[bytes - 1]);
            consumed = consumed + sum;
            ++delivered;
        };
        webview.Open("a", "u", 1, 1, 1.0, check);
        webview.Open("view", "u", 1, 1, 1.0, check);
        opened = true;
    }
    total = 0;
    size_t offset = 0;
    auto read = [&](char* into, unsigned long wanted) -> unsigned long {
        size_t const count = std::min({static_cast<size_t>(wanted), piece, size - offset});
        std::memcpy(into, data + offset, count);
        offset += count;
        total += count;
        return count;
    };
    size_t frames = 0;
    while (webview.ReadFrame(read)) {
        ++frames;
        Check(frames * 8 <= size); // each frame took its 8 bytes of lengths at least
    }
    Check(offset == size); // read to the end, never past it
    return 0;
}
