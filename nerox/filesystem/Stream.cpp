#include "nerox/filesystem/Stream.hpp"

#include <cstring>
#include <functional>
#include <stdexcept>

namespace nerox::filesystem {

// ---------------------------------------------------------------- Stream

void Stream::WriteLength(uint64_t length) {
    unsigned char bytes[8];
    for (int i = 0; i < 8; ++i) bytes[i] = static_cast<unsigned char>(length >> (8 * i));
    Write(bytes, sizeof(bytes));
}

uint64_t Stream::ReadLength(char const* what) {
    unsigned char bytes[8];
    Read(bytes, sizeof(bytes));
    uint64_t length = 0;
    for (int i = 0; i < 8; ++i) length |= static_cast<uint64_t>(bytes[i]) << (8 * i);
    if (length > Remaining())
        throw std::runtime_error(std::string("Stream: ") + what + " length " + std::to_string(length) +
                                 " exceeds the " + std::to_string(Remaining()) + " bytes that remain");
    return length;
}

void Stream::Write(std::string const& text) {
    Write(std::string_view(text));
}

void Stream::Write(std::string_view text) {
    WriteLength(text.size());
    Write(reinterpret_cast<unsigned char const*>(text.data()), text.size());
}

void Stream::Write(char const* text) {
    Write(std::string_view(text == nullptr ? "" : text));
}

void Stream::Write(Stream const& other) {
    std::span<unsigned char const> bytes = other.ReadableBytes();
    if (&other == this) {
        // Writing a stream into itself: the span would move under our feet.
        std::vector<unsigned char> copy(bytes.begin(), bytes.end());
        WriteLength(copy.size());
        Write(copy.data(), copy.size());
        return;
    }
    WriteLength(bytes.size());
    Write(bytes.data(), bytes.size());
}

void Stream::Read(std::string& text) {
    uint64_t const length = ReadLength("string");
    std::string result(static_cast<size_t>(length), '\0');
    Read(reinterpret_cast<unsigned char*>(result.data()), result.size());
    text = std::move(result);
}

ReadOnlyStream Stream::ReadStream() {
    uint64_t const length = ReadLength("nested stream");
    std::vector<unsigned char> bytes(static_cast<size_t>(length));
    Read(bytes.data(), bytes.size());
    return ReadOnlyStream(std::move(bytes));
}

// ---------------------------------------------------------------- ReadOnlyStream

ReadOnlyStream::ReadOnlyStream(std::vector<unsigned char> const& data) : _data(data) { }

ReadOnlyStream::ReadOnlyStream(std::vector<unsigned char>&& data) : _data(std::move(data)) { }

ReadOnlyStream::ReadOnlyStream(unsigned char const* data, size_t size) {
    if (size > 0) _data.assign(data, data + size);
}

void ReadOnlyStream::Write(unsigned char const*, size_t) {
    throw std::runtime_error("ReadOnlyStream: cannot write to a read-only stream");
}

void ReadOnlyStream::Read(unsigned char* data, size_t size) {
    if (size > _data.size() - _position)
        throw std::runtime_error("Stream: read past the end (wanted " + std::to_string(size) + " bytes, " +
                                 std::to_string(_data.size() - _position) + " remain)");
    if (size > 0) std::memcpy(data, _data.data() + _position, size);
    _position += size;
}

uint64_t ReadOnlyStream::Remaining() const {
    return _data.size() - _position;
}

std::span<unsigned char const> ReadOnlyStream::ReadableBytes() const {
    return std::span<unsigned char const>(_data.data() + _position, _data.size() - _position);
}

void ReadOnlyStream::Skip(size_t size) {
    if (size > _data.size() - _position)
        throw std::runtime_error("Stream: skip past the end (wanted " + std::to_string(size) + " bytes, " +
                                 std::to_string(_data.size() - _position) + " remain)");
    _position += size;
}

// ---------------------------------------------------------------- WriteOnlyStream

WriteOnlyStream::WriteOnlyStream(size_t reserve) {
    if (reserve > 0) _data.reserve(reserve);
}

void WriteOnlyStream::Write(unsigned char const* data, size_t size) {
    if (size == 0) return;
    std::less_equal<unsigned char const*> const notAfter;
    bool const aliasesOwnBytes =
        !_data.empty() && notAfter(_data.data(), data) && notAfter(data, _data.data() + _data.size() - 1);
    if (aliasesOwnBytes) {
        // The source lies in our own buffer, which may move when it grows.
        size_t const offset = static_cast<size_t>(data - _data.data());
        if (size > _data.size() - offset)
            throw std::out_of_range("WriteOnlyStream: source range runs past the written bytes");
        size_t const oldSize = _data.size();
        _data.resize(oldSize + size);
        std::memmove(_data.data() + oldSize, _data.data() + offset, size);
        return;
    }
    _data.insert(_data.end(), data, data + size);
}

void WriteOnlyStream::Read(unsigned char*, size_t) {
    throw std::runtime_error("WriteOnlyStream: cannot read from a write-only stream");
}

uint64_t WriteOnlyStream::Remaining() const {
    return 0;
}

std::span<unsigned char const> WriteOnlyStream::ReadableBytes() const {
    return std::span<unsigned char const>(_data.data(), _data.size());
}

} // namespace nerox::filesystem
