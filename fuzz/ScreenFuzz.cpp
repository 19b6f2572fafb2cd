// Fuzzes the reader of compressed screen images: arbitrary bytes read as an
// image of 1 to 64 by 1 to 64 pixels (the first two bytes pick the size, the
// rest is the stream). It must refuse or fill the image exactly, never write
// past it; an image it reads must compress and read back to itself.
#include "FuzzSupport.hpp"
#include "game/NeroxScreen.hpp"

#include <cstdint>
#include <span>
#include <stdexcept>
#include <vector>

using fuzzsupport::Check;
using fuzzsupport::SilenceErrors;

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    SilenceErrors(); // a screen says once that the font is not here
    if (size < 2) return 0;
    int const width = data[0] % 64 + 1, height = data[1] % 64 + 1;
    std::span<unsigned char const> const stream(data + 2, size - 2);
    game::NeroxScreen screen(width, height);
    try {
        game::NeroxScreen::Inflate(stream, screen.pixels); // exactly the image: ASan sees any write past it
    } catch (std::runtime_error const&) {
        return 0;
    }
    std::vector<uint32_t> const image = screen.pixels;
    screen.Compress();
    std::vector<uint32_t> again(image.size());
    game::NeroxScreen::Inflate(screen._compressedBuffer, again);
    Check(again == image);
    return 0;
}
