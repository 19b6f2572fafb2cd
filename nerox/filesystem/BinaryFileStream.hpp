#pragma once
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "nerox/filesystem/Stream.hpp"

namespace nerox::filesystem {

/// A buffered stream over a file on disk.
///
/// Modes:
///  - ReadWrite (0): opens the file, creating an empty one if it is missing.
///    A file that may be read but not written opens for reading only, and a
///    write to it then throws.
///    Reads go from the start of the file. The first write replaces the file's
///    content: the file is cut to zero length, writes follow one another from
///    the start, and a later read starts over at the beginning of the new
///    content. So one mode serves both "load this file" and "save this file".
///  - ReadOnly (1): the file must exist; writes throw.
///  - WriteTruncate (2): creates or empties the file at once; reads throw.
///
/// Writes are collected in a buffer of bufferSize bytes and reach the file on
/// Flush(), when the buffer is full, on Close() and in the destructor; Sync()
/// also waits until they are on the disk. A path that cannot
/// be opened, and any failing read or write, throws std::runtime_error naming
/// the path. Not thread-safe.
class BinaryFileStream : public Stream {
public:
    using Stream::Read;
    using Stream::Write;

    /// Read the file from the start; the first write replaces its content. Creates a missing file.
    static constexpr int ReadWrite = 0;
    /// Read only; the file must exist.
    static constexpr int ReadOnly = 1;
    /// Write only; creates the file or cuts it to zero length on opening.
    static constexpr int WriteTruncate = 2;

    /// Opens path in the given mode with a buffer of bufferSize bytes (0: unbuffered).
    BinaryFileStream(std::string const& path, unsigned int bufferSize, int mode);
    BinaryFileStream(BinaryFileStream const&) = delete;
    BinaryFileStream& operator=(BinaryFileStream const&) = delete;
    /// Flushes pending writes (an error is reported on the standard error stream) and closes the file.
    ~BinaryFileStream() override;

    /// Appends size bytes at the end of the written content.
    void Write(unsigned char const* data, size_t size) override;
    /// Reads exactly size bytes; throws std::runtime_error if fewer remain.
    void Read(unsigned char* data, size_t size) override;
    /// Bytes left between the read position and the end of the content, pending writes included.
    uint64_t Remaining() const override;
    /// The bytes from the read position to the end, loaded from the file (valid until the next call).
    std::span<unsigned char const> ReadableBytes() const override;

    /// Writes pending bytes to the file.
    void Flush();
    /// Writes pending bytes and waits until the file's content is on the disk.
    void Sync();
    /// Writes pending bytes and closes the file, reporting a failing close (a
    /// write the system had delayed may fail only there). Reads and writes
    /// afterwards throw; a second Close does nothing.
    void Close();
    /// Waits until the entries of folder (a renamed or new file) are on the
    /// disk. Throws std::runtime_error naming the folder.
    static void SyncFolder(std::string const& folder);
    /// The path the stream was opened with.
    std::string const& GetPath() const { return _path; }
    /// The mode the stream was opened with.
    int GetMode() const { return _mode; }
    /// Total content size in bytes, pending writes included.
    uint64_t Size() const { return _fileSize + _pending.size(); }

private:
    void PreadExactly(unsigned char* data, size_t size, uint64_t offset) const;
    void PwriteAll(unsigned char const* data, size_t size, uint64_t offset);
    [[noreturn]] void Fail(std::string const& what) const;

    std::string _path;
    int _mode;
    int _fd = -1;
    size_t _bufferSize;
    bool _contentReplaced = false;
    bool _readOnlyFallback = false;         // mode 0 on a file we may only read
    uint64_t _fileSize = 0;                 // bytes on disk
    uint64_t _readPosition = 0;             // next byte to read, in content offsets
    std::vector<unsigned char> _readBuffer; // a copy of the file from _readBufferStart
    uint64_t _readBufferStart = 0;
    size_t _readBufferLength = 0;
    std::vector<unsigned char> _pending; // written bytes not yet on disk, following _fileSize
    mutable std::vector<unsigned char> _snapshot;
};

} // namespace nerox::filesystem
