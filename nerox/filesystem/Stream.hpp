#pragma once
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

// Binary streams.
//
// A value written with Write(unsigned char const*, size) is stored as its raw
// bytes, with no tag and no length. The typed helpers Write<T>/Read<T> do the
// same with the memory image of a trivially copyable value (little-endian on
// every platform we ship).
//
// Two forms carry their own length, and their layout is fixed for good because
// saved worlds hold it:
//   string:        uint64 little-endian byte count, then the bytes
//   nested stream: uint64 little-endian byte count, then the bytes
//
// Reading past the end, or a length prefix larger than what remains, throws
// std::runtime_error; a corrupt length never makes the reader allocate.

namespace nerox::filesystem {

class ReadOnlyStream;

/// Abstract binary stream: raw reads and writes plus the length-prefixed forms.
class Stream {
public:
    Stream() = default;
    Stream(Stream const&) = default;
    Stream(Stream&&) = default;
    Stream& operator=(Stream const&) = default;
    Stream& operator=(Stream&&) = default;
    virtual ~Stream() = default;

    /// Appends size raw bytes.
    virtual void Write(unsigned char const* data, size_t size) = 0;
    /// Reads exactly size raw bytes; throws std::runtime_error if fewer remain.
    virtual void Read(unsigned char* data, size_t size) = 0;
    /// Number of bytes that can still be read.
    virtual uint64_t Remaining() const = 0;
    /// The bytes a reader would still get, without consuming them. The span stays
    /// valid until the stream is next changed.
    virtual std::span<unsigned char const> ReadableBytes() const = 0;

    /// Writes a string: uint64 little-endian length, then its bytes.
    void Write(std::string const& text);
    /// Writes a string given as a view (same layout as the std::string form).
    void Write(std::string_view text);
    /// Writes a string given as a C string (same layout as the std::string form).
    void Write(char const* text);
    /// Writes another stream's readable bytes as one block: uint64 little-endian length, then the bytes.
    void Write(Stream const& other);
    /// Reads a string written by Write(std::string const&).
    void Read(std::string& text);
    /// Reads a block written by Write(Stream const&) and returns it as a stream of its own.
    ReadOnlyStream ReadStream();

    /// Writes the raw memory image of a trivially copyable value.
    template <class T>
    requires(std::is_trivially_copyable_v<T> && !std::is_pointer_v<T> &&
             !std::is_array_v<T>) void Write(T const& value) {
        Write(reinterpret_cast<unsigned char const*>(&value), sizeof(T));
    }

    /// Reads the raw memory image of a trivially copyable value.
    template <class T>
    requires(std::is_trivially_copyable_v<T> && !std::is_pointer_v<T> && !std::is_array_v<T> &&
             !std::is_const_v<T>) void Read(T& value) {
        Read(reinterpret_cast<unsigned char*>(&value), sizeof(T));
    }

protected:
    /// Reads a uint64 little-endian length prefix and checks it against Remaining().
    uint64_t ReadLength(char const* what);
    /// Writes a uint64 little-endian length prefix.
    void WriteLength(uint64_t length);
};

/// A stream over an in-memory copy of some bytes, read from the front.
class ReadOnlyStream : public Stream {
public:
    using Stream::Read;
    using Stream::Write;

    /// An empty stream.
    ReadOnlyStream() = default;
    /// A stream over a copy of data.
    explicit ReadOnlyStream(std::vector<unsigned char> const& data);
    /// A stream that takes over data.
    explicit ReadOnlyStream(std::vector<unsigned char>&& data);
    /// A stream over a copy of size bytes at data.
    ReadOnlyStream(unsigned char const* data, size_t size);

    /// Always throws: this stream cannot be written.
    void Write(unsigned char const* data, size_t size) override;
    /// Reads exactly size bytes from the current position.
    void Read(unsigned char* data, size_t size) override;
    /// Bytes from the current position to the end.
    uint64_t Remaining() const override;
    /// The bytes from the current position to the end.
    std::span<unsigned char const> ReadableBytes() const override;

    /// Moves the read position forward by size bytes; throws if fewer remain.
    void Skip(size_t size);
    /// Current read position, counted from the start.
    size_t Position() const { return _position; }
    /// Total number of bytes, read or not.
    size_t Size() const { return _data.size(); }
    /// All bytes, read or not.
    unsigned char const* Data() const { return _data.data(); }
    /// All bytes, read or not.
    std::vector<unsigned char> const& Bytes() const { return _data; }
    /// True when nothing is left to read.
    bool AtEnd() const { return _position >= _data.size(); }

private:
    std::vector<unsigned char> _data;
    size_t _position = 0;
};

/// A stream that collects written bytes in a growing buffer. It cannot be read
/// from; its content goes elsewhere through Bytes() or Stream::Write(Stream const&).
class WriteOnlyStream : public Stream {
public:
    using Stream::Read;
    using Stream::Write;

    /// An empty stream with room for reserve bytes (0 for none).
    explicit WriteOnlyStream(size_t reserve = 0);

    /// Appends size raw bytes.
    void Write(unsigned char const* data, size_t size) override;
    /// Always throws: this stream cannot be read.
    void Read(unsigned char* data, size_t size) override;
    /// Always 0: nothing can be read.
    uint64_t Remaining() const override;
    /// Everything written so far.
    std::span<unsigned char const> ReadableBytes() const override;

    /// The bytes written so far.
    unsigned char const* Data() const { return _data.data(); }
    /// Number of bytes written so far.
    size_t Size() const { return _data.size(); }
    /// The bytes written so far.
    std::vector<unsigned char> const& Bytes() const { return _data; }
    /// Forgets everything written, keeping the allocation.
    void Clear() { _data.clear(); }

private:
    std::vector<unsigned char> _data;
};

} // namespace nerox::filesystem
