#include "nerox/filesystem/FileBatch.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>
#include <thread>

namespace nerox::filesystem {

namespace {

/// Runs work(i) for i in [0, count) on up to threads threads, each taking every
/// threads-th index, so that no two touch the same slot.
template <class Work> void Spread(size_t count, unsigned threads, Work&& work) {
    size_t const used = std::max<size_t>(1, std::min<size_t>(threads, count / 64 + 1));
    std::vector<std::thread> helpers;
    for (size_t first = 1; first < used; ++first)
        helpers.emplace_back([&, first] {
            for (size_t i = first; i < count; i += used) work(i);
        });
    for (size_t i = 0; i < count; i += used) work(i);
    for (std::thread& helper : helpers) helper.join();
}

/// Writes bytes to path, created or truncated; an empty string, or what failed.
std::string WriteWhole(std::string const& path, std::vector<unsigned char> const& bytes) {
    int const fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return "cannot create " + path + ": " + std::strerror(errno);
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t const written = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) {
            std::string const reason = std::strerror(errno);
            ::close(fd);
            return "cannot write " + path + ": " + reason;
        }
        done += static_cast<size_t>(written);
    }
    if (::close(fd) != 0 && errno != EINTR) return "cannot write " + path + ": " + std::strerror(errno);
    return {};
}

/// Syncs a folder's entries; file systems that cannot sync folders are let be.
std::string SyncFolderEntries(std::string const& folder) {
    int const fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return "cannot open folder " + folder + ": " + std::strerror(errno);
    int const synced = ::fsync(fd);
    int const error = errno;
    ::close(fd);
    if (synced != 0 && error != EINVAL && error != ENOTSUP)
        return "cannot sync folder " + folder + ": " + std::strerror(error);
    return {};
}

} // namespace

FileBatch::FileBatch(std::string temporaryExtension) : _extension(std::move(temporaryExtension)) { }

void FileBatch::Add(std::string path, std::vector<unsigned char> bytes) {
    _files.push_back({std::move(path), std::move(bytes)});
}

std::vector<FileBatch::Failure> FileBatch::Commit(unsigned threads) {
    std::vector<File> files;
    files.swap(_files);
    std::vector<std::string> errors(files.size());

    // 1. Every new content complete under its temporary name.
    std::set<std::string> folders;
    for (File const& file : files) {
        std::string folder = std::filesystem::path(file.path).parent_path().string();
        if (folders.insert(folder.empty() ? "." : folder).second && !folder.empty()) {
            std::error_code ignored;
            std::filesystem::create_directories(folder, ignored);
        }
    }
    Spread(files.size(), threads,
           [&](size_t i) { errors[i] = WriteWhole(files[i].path + _extension, files[i].bytes); });

    // 2. All of them on the disk with one sync of each file system that holds
    //    them (one for a world, whose files share a folder), before any rename.
    std::string syncFailure;
    std::set<dev_t> synced;
    for (std::string const& folder : folders) {
        struct stat info { };
        if (::stat(folder.c_str(), &info) != 0 || !synced.insert(info.st_dev).second) continue;
        int const fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0 || ::syncfs(fd) != 0)
            syncFailure = "cannot sync the files in " + folder + ": " + std::strerror(errno);
        if (fd >= 0) ::close(fd);
    }

    // 3. Each complete file takes its place in one atomic step; then the
    //    folders' new entries go to the disk.
    std::vector<Failure> failures;
    for (size_t i = 0; i < files.size(); ++i) {
        std::string const temporary = files[i].path + _extension;
        if (errors[i].empty() && syncFailure.empty() && ::rename(temporary.c_str(), files[i].path.c_str()) != 0)
            errors[i] = "cannot rename " + temporary + " to " + files[i].path + ": " + std::strerror(errno);
        if (!syncFailure.empty() && errors[i].empty()) errors[i] = syncFailure;
        if (errors[i].empty()) continue;
        ::unlink(temporary.c_str()); // the old file stays as it was
        failures.push_back({i, errors[i]});
    }
    for (std::string const& folder : folders) {
        std::string const failure = SyncFolderEntries(folder);
        if (failure.empty()) continue;
        for (size_t i = 0; i < files.size(); ++i)
            if (errors[i].empty()) failures.push_back({i, failure});
        break;
    }
    return failures;
}

void ReadWholeFiles(std::vector<std::string> const& paths, std::vector<std::vector<unsigned char>>& contents,
                    std::vector<std::string>& errors, unsigned threads) {
    contents.assign(paths.size(), {});
    errors.assign(paths.size(), {});
    Spread(paths.size(), threads, [&](size_t i) {
        int const fd = ::open(paths[i].c_str(), O_RDONLY | O_CLOEXEC);
        struct stat info { };
        if (fd < 0 || ::fstat(fd, &info) != 0) {
            errors[i] = "cannot open " + paths[i] + ": " + std::strerror(errno);
            if (fd >= 0) ::close(fd);
            return;
        }
        std::vector<unsigned char>& bytes = contents[i];
        bytes.resize(static_cast<size_t>(info.st_size));
        size_t done = 0;
        while (done < bytes.size()) {
            ssize_t const got = ::read(fd, bytes.data() + done, bytes.size() - done);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) break;
            done += static_cast<size_t>(got);
        }
        bytes.resize(done); // a file cut while we read reads as cut
        ::close(fd);
    });
}

} // namespace nerox::filesystem
