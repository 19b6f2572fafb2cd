#pragma once
// Scratch files for tests: a fresh folder per object, and whole-file text helpers.
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace testsupport {

/// A fresh folder under the system temp folder, removed with its content at the end.
/// Unique per process and object, so tests may run in parallel.
class TempDir {
public:
    TempDir() {
        static std::atomic<int> counter{0};
        _path = std::filesystem::temp_directory_path() /
            ("tessara_test_" + std::to_string(::getpid()) + "_" + std::to_string(counter++));
        std::filesystem::remove_all(_path);
        std::filesystem::create_directories(_path);
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(_path, ignored);
    }
    TempDir(TempDir const&) = delete;
    TempDir& operator=(TempDir const&) = delete;

    /// The path of a file in the folder.
    std::string File(std::string const& name) const { return (_path / name).string(); }

private:
    std::filesystem::path _path;
};

/// The whole content of a file; empty if it cannot be read.
inline std::string ReadText(std::string const& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

/// Writes a file in place, replacing its content.
inline void WriteText(std::string const& path, std::string const& text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
}

/// Replaces the file in one step, as an editor saving it would.
inline void ReplaceText(std::string const& path, std::string const& text) {
    WriteText(path + ".incoming", text);
    std::filesystem::rename(path + ".incoming", path);
}

} // namespace testsupport
