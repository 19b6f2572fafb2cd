// Fuzzes the user's settings reader: arbitrary bytes as a settings file, read
// with every section and key, then written back and read once more.
#include "game/GameSettings.hpp"

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

namespace {

// The reader reports unwritable files and bad values on the error stream; keep the
// fuzzer's output readable.
struct QuietErrors {
    QuietErrors() { std::cerr.rdbuf(sink.rdbuf()); }
    std::ostringstream sink;
};

std::string const& ScratchFile() {
    static std::string const path =
        (std::filesystem::temp_directory_path() / ("tessara_settings_fuzz_" + std::to_string(::getpid()) + ".ini"))
            .string();
    return path;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    static QuietErrors quiet;
    quiet.sink.str({});
    std::string const& path = ScratchFile();
    {
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        file.write(reinterpret_cast<char const*>(data), static_cast<std::streamsize>(size));
    }
    {
        // A long reload interval: the thread starts and stops but never polls.
        game::GameSettings settings(path, 3600 * 1000);
        settings.WriteConfig();
        settings.ReadConfig();
    }
    std::filesystem::remove(path);
    return 0;
}
