#pragma once
#include <cstddef>
#include <string>
#include <vector>

namespace nerox {

/// Hexadecimal text of bytes, upper case digits "0123456789ABCDEF", high nibble first.
class Base16 {
public:
    Base16() = delete;

    /// Bytes of an even-length text of upper-case hex digits. Throws
    /// std::invalid_argument with "not a hex digit" for any other character and
    /// with "odd number of hex digits" for a text of odd length.
    static std::vector<unsigned char> Decode(std::string const& text);

    /// Upper-case hex text of size bytes at data, two digits per byte.
    static std::string Encode(unsigned char const* data, size_t size);
    /// Upper-case hex text of all bytes of data.
    static std::string Encode(std::vector<unsigned char> const& data);
};

} // namespace nerox
