#include "nerox/Base16.hpp"

#include "nerox/Assert.hpp"

#include <stdexcept>

namespace nerox {

namespace {

constexpr char digits[] = "0123456789ABCDEF";

/// Value of one upper-case hex digit; throws for anything else.
unsigned char NibbleOf(char digit) {
    if (digit >= '0' && digit <= '9') return static_cast<unsigned char>(digit - '0');
    if (digit >= 'A' && digit <= 'F') return static_cast<unsigned char>(digit - 'A' + 10);
    throw std::invalid_argument("not a hex digit");
}

} // namespace

std::vector<unsigned char> Base16::Decode(std::string const& text) {
    if (text.size() % 2 != 0) throw std::invalid_argument("odd number of hex digits");
    std::vector<unsigned char> bytes;
    bytes.reserve(text.size() / 2);
    for (size_t i = 0; i + 1 < text.size(); i += 2) {
        unsigned char const high = NibbleOf(text[i]);
        unsigned char const low = NibbleOf(text[i + 1]);
        bytes.push_back(static_cast<unsigned char>((high << 4) | low));
    }
    return bytes;
}

std::string Base16::Encode(unsigned char const* data, size_t size) {
    NEROX_ASSERT(data != nullptr || size == 0);
    std::string text;
    text.reserve(size * 2);
    for (size_t i = 0; i < size; ++i) {
        text.push_back(digits[data[i] >> 4]);
        text.push_back(digits[data[i] & 0x0F]);
    }
    return text;
}

std::string Base16::Encode(std::vector<unsigned char> const& data) {
    return Encode(data.data(), data.size());
}

} // namespace nerox
