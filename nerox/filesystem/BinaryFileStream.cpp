#include "nerox/filesystem/BinaryFileStream.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <iostream>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace nerox::filesystem {

BinaryFileStream::BinaryFileStream(std::string const& path, unsigned int bufferSize, int mode)
    : _path(path), _mode(mode), _bufferSize(bufferSize) {
    int flags = O_CLOEXEC;
    switch (mode) {
    case ReadWrite: flags |= O_RDWR | O_CREAT; break;
    case ReadOnly: flags |= O_RDONLY; break;
    case WriteTruncate: flags |= O_WRONLY | O_CREAT | O_TRUNC; break;
    default:
        throw std::invalid_argument("BinaryFileStream: unknown mode " + std::to_string(mode) + " for '" + path + "'");
    }
    _fd = ::open(path.c_str(), flags, 0644);
    if (_fd < 0 && mode == ReadWrite && (errno == EACCES || errno == EROFS)) {
        // A file we may read but not write (installed data, a read-only mount):
        // it can still be loaded; a write then fails with a clear message.
        _fd = ::open(path.c_str(), O_CLOEXEC | O_RDONLY);
        _readOnlyFallback = _fd >= 0;
    }
    if (_fd < 0) throw std::runtime_error("BinaryFileStream: cannot open '" + path + "': " + std::strerror(errno));
    struct stat info { };
    if (::fstat(_fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(_fd);
        _fd = -1;
        throw std::runtime_error("BinaryFileStream: cannot open '" + path + "': not a regular file");
    }
    _fileSize = static_cast<uint64_t>(info.st_size);
    _contentReplaced = (mode == WriteTruncate);
    if (_bufferSize > 0 && mode != WriteTruncate) _readBuffer.resize(_bufferSize);
    if (_bufferSize > 0 && mode != ReadOnly) _pending.reserve(_bufferSize);
}

BinaryFileStream::~BinaryFileStream() {
    try {
        Close();
    } catch (std::exception const& error) {
        std::cerr << error.what() << std::endl;
    }
}

void BinaryFileStream::Sync() {
    Flush();
    if (::fsync(_fd) != 0) {
        int const syncError = errno;
        Fail(std::string("sync failed (") + std::strerror(syncError) + ") for");
    }
}

void BinaryFileStream::Close() {
    if (_fd < 0) return;
    std::exception_ptr failure;
    try {
        Flush();
    } catch (...) {
        failure = std::current_exception();
    }
    // The descriptor is gone after close() whatever it returns: never retry it.
    int const closed = ::close(_fd);
    int const closeError = errno;
    _fd = -1;
    _pending.clear();
    if (failure) std::rethrow_exception(failure);
    if (closed != 0 && closeError != EINTR) Fail(std::string("close failed (") + std::strerror(closeError) + ") for");
}

void BinaryFileStream::SyncFolder(std::string const& folder) {
    int const fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        throw std::runtime_error("BinaryFileStream: cannot open folder '" + folder + "': " + std::strerror(errno));
    int const synced = ::fsync(fd);
    int const syncError = errno;
    ::close(fd);
    // Some file systems (network and user-space mounts) cannot sync a folder:
    // the rename is then as durable as they make it.
    if (synced != 0 && syncError != EINVAL && syncError != ENOTSUP)
        throw std::runtime_error("BinaryFileStream: sync failed (" + std::string(std::strerror(syncError)) +
                                 ") for folder '" + folder + "'");
}

void BinaryFileStream::Fail(std::string const& what) const {
    throw std::runtime_error("BinaryFileStream: " + what + " '" + _path + "'");
}

void BinaryFileStream::PreadExactly(unsigned char* data, size_t size, uint64_t offset) const {
    while (size > 0) {
        ssize_t const got = ::pread(_fd, data, size, static_cast<off_t>(offset));
        if (got < 0) {
            if (errno == EINTR) continue;
            Fail(std::string("read failed (") + std::strerror(errno) + ") in");
        }
        if (got == 0) Fail("file shrank while reading");
        data += got;
        size -= static_cast<size_t>(got);
        offset += static_cast<uint64_t>(got);
    }
}

void BinaryFileStream::PwriteAll(unsigned char const* data, size_t size, uint64_t offset) {
    while (size > 0) {
        ssize_t const put = ::pwrite(_fd, data, size, static_cast<off_t>(offset));
        if (put < 0) {
            if (errno == EINTR) continue;
            Fail(std::string("write failed (") + std::strerror(errno) + ") in");
        }
        data += put;
        size -= static_cast<size_t>(put);
        offset += static_cast<uint64_t>(put);
    }
}

void BinaryFileStream::Write(unsigned char const* data, size_t size) {
    if (_fd < 0) Fail("cannot write to closed");
    if (_mode == ReadOnly) Fail("cannot write to read-only");
    if (_readOnlyFallback) Fail("no permission to write");
    if (!_contentReplaced) {
        // First write in ReadWrite mode: the new content replaces the old.
        if (::ftruncate(_fd, 0) != 0) Fail(std::string("cannot empty (") + std::strerror(errno) + ")");
        _contentReplaced = true;
        _fileSize = 0;
        _readPosition = 0;
        _readBufferStart = 0;
        _readBufferLength = 0;
    }
    if (size == 0) return;
    if (_pending.size() + size > _bufferSize) {
        Flush();
        if (size >= _bufferSize) {
            PwriteAll(data, size, _fileSize);
            _fileSize += size;
            return;
        }
    }
    _pending.insert(_pending.end(), data, data + size);
}

void BinaryFileStream::Flush() {
    if (_pending.empty()) return;
    PwriteAll(_pending.data(), _pending.size(), _fileSize);
    _fileSize += _pending.size();
    _pending.clear();
}

uint64_t BinaryFileStream::Remaining() const {
    if (_mode == WriteTruncate) return 0;
    uint64_t const size = _fileSize + _pending.size();
    return _readPosition < size ? size - _readPosition : 0;
}

void BinaryFileStream::Read(unsigned char* data, size_t size) {
    if (_fd < 0) Fail("cannot read from closed");
    if (_mode == WriteTruncate) Fail("cannot read from write-only");
    if (size > Remaining())
        throw std::runtime_error("Stream: read past the end of '" + _path + "' (wanted " + std::to_string(size) +
                                 " bytes, " + std::to_string(Remaining()) + " remain)");
    if (size == 0) return;
    if (_readPosition + size > _fileSize) Flush(); // the read reaches into bytes that are still pending

    // Serve what the read buffer holds.
    if (_readPosition >= _readBufferStart && _readPosition < _readBufferStart + _readBufferLength) {
        size_t const offset = static_cast<size_t>(_readPosition - _readBufferStart);
        size_t const take = std::min(size, _readBufferLength - offset);
        std::memcpy(data, _readBuffer.data() + offset, take);
        data += take;
        size -= take;
        _readPosition += take;
    }
    if (size == 0) return;
    if (size >= _bufferSize) {
        PreadExactly(data, size, _readPosition);
        _readPosition += size;
        return;
    }
    // Refill the buffer with as much as the file holds, up to its size.
    size_t const fill = static_cast<size_t>(std::min<uint64_t>(_bufferSize, _fileSize - _readPosition));
    PreadExactly(_readBuffer.data(), fill, _readPosition);
    _readBufferStart = _readPosition;
    _readBufferLength = fill;
    std::memcpy(data, _readBuffer.data(), size);
    _readPosition += size;
}

std::span<unsigned char const> BinaryFileStream::ReadableBytes() const {
    if (_mode == WriteTruncate) Fail("cannot read from write-only");
    _snapshot.clear();
    _snapshot.reserve(static_cast<size_t>(Remaining()));
    if (_readPosition < _fileSize) {
        _snapshot.resize(static_cast<size_t>(_fileSize - _readPosition));
        PreadExactly(_snapshot.data(), _snapshot.size(), _readPosition);
    }
    uint64_t const pendingFrom = _readPosition > _fileSize ? _readPosition - _fileSize : 0;
    if (pendingFrom < _pending.size())
        _snapshot.insert(_snapshot.end(), _pending.begin() + static_cast<ptrdiff_t>(pendingFrom), _pending.end());
    return std::span<unsigned char const>(_snapshot.data(), _snapshot.size());
}

} // namespace nerox::filesystem
