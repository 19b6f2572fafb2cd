#pragma once
// Raw bytes for file-format tests, built and read by hand, independent of the
// stream classes under test.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "support/TempDir.hpp"

namespace testsupport {

using Bytes = std::vector<unsigned char>;

/// Appends values as their in-memory bytes: ByteBuilder().Raw(1u).Chars("abc", 3).bytes
struct ByteBuilder {
    Bytes bytes;

    template <class T> ByteBuilder& Raw(T const& value) {
        auto const* begin = reinterpret_cast<unsigned char const*>(&value);
        bytes.insert(bytes.end(), begin, begin + sizeof(T));
        return *this;
    }
    /// Several values of one kind in a row, e.g. the components of a vector.
    template <class... T> ByteBuilder& Raws(T const&... values) {
        (Raw(values), ...);
        return *this;
    }
    ByteBuilder& Chars(char const* text, size_t size) {
        bytes.insert(bytes.end(), text, text + size);
        return *this;
    }
    /// A length-prefixed block: uint64 byte count, then the bytes.
    ByteBuilder& Block(Bytes const& block) {
        Raw(static_cast<uint64_t>(block.size()));
        bytes.insert(bytes.end(), block.begin(), block.end());
        return *this;
    }
};

inline Bytes ReadBytes(std::string const& path) {
    std::string const text = ReadText(path);
    return Bytes(text.begin(), text.end());
}

inline void WriteBytes(std::string const& path, Bytes const& bytes) {
    WriteText(path, std::string(bytes.begin(), bytes.end()));
}

/// The value stored at an offset; a failed expectation (and T{}) past the end.
template <class T> T At(Bytes const& bytes, size_t offset) {
    T value{};
    EXPECT_LE(offset + sizeof(T), bytes.size()) << "read past the end at offset " << offset;
    if (offset + sizeof(T) <= bytes.size()) std::memcpy(&value, bytes.data() + offset, sizeof(T));
    return value;
}

/// Overwrites the bytes at an offset; a failed expectation past the end.
template <class T> void Put(Bytes& bytes, size_t offset, T const& value) {
    EXPECT_LE(offset + sizeof(T), bytes.size()) << "write past the end at offset " << offset;
    if (offset + sizeof(T) <= bytes.size()) std::memcpy(bytes.data() + offset, &value, sizeof(T));
}

} // namespace testsupport
