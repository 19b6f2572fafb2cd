// Fuzzes the user's settings reader: arbitrary bytes as a settings file, read
// with every section and key, then written back and read once more.
#include "FuzzSupport.hpp"
#include "game/GameSettings.hpp"

#include <cstdint>
#include <filesystem>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    fuzzsupport::SilenceErrors();
    static std::string const path = fuzzsupport::ScratchFile("settings");
    fuzzsupport::WriteBytes(path, data, size);
    {
        // A long reload interval: the thread starts and stops but never polls.
        game::GameSettings settings(path, 3600 * 1000);
        settings.WriteConfig();
        settings.ReadConfig();
    }
    std::filesystem::remove(path);
    return 0;
}
