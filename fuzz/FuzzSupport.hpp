#pragma once
// Helpers shared by the fuzz targets.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <streambuf>
#include <string>

namespace fuzzsupport {

/// A stream buffer that drops everything written to it.
class NullBuffer : public std::streambuf {
protected:
    int overflow(int c) override { return traits_type::not_eof(c); }
    std::streamsize xsputn(char const*, std::streamsize count) override { return count; }
};

/// Sends the error stream nowhere, once for the whole run: the readers report bad
/// input there, and the fuzzer's own output should stay readable.
inline void SilenceErrors() {
    static NullBuffer sink;
    static std::streambuf* const previous = std::cerr.rdbuf(&sink);
    (void)previous;
}

/// Stops the run with a crash the fuzzer records when a result is inconsistent.
inline void Check(bool condition) {
    if (!condition) __builtin_trap();
}

/// A per-process scratch file under the temp folder, named after the target.
inline std::string ScratchFile(std::string const& target) {
    return (std::filesystem::temp_directory_path() /
            ("tessara_" + target + "_fuzz_" + std::to_string(::getpid()) + ".tmp"))
        .string();
}

/// Replaces the file's content with the fuzzer's bytes.
inline void WriteBytes(std::string const& path, unsigned char const* data, size_t size) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<char const*>(data), static_cast<std::streamsize>(size));
}

} // namespace fuzzsupport
