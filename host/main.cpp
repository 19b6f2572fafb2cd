// tessara: the host program. It loads game.so (linked in), the modules it is told
// to, and drives the game's loops. See `tessara --help`.
#include "ClientRun.hpp"
#include "HeadlessRun.hpp"
#include "HostOptions.hpp"
#include "NewModuleCommand.hpp"
#include "NodesCommand.hpp"

#include <filesystem>
#include <iostream>
#include <string_view>

namespace {

// Module paths are relative to the working folder. When started from elsewhere
// (say the build folder), work in the program's own folder, the run directory.
void EnterRunDirectory() {
    std::error_code error;
    if (std::filesystem::exists("modules", error) || std::filesystem::exists("tessara.ini", error)) return;
    std::filesystem::path const self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error || !std::filesystem::exists(self.parent_path() / "modules", error)) return;
    std::filesystem::current_path(self.parent_path(), error);
    if (!error) std::cerr << "tessara: working in " << self.parent_path().string() << std::endl;
}

} // namespace

int main(int argc, char** argv) try {
    // Tools work on the files they are given, relative to where they were started.
    if (argc >= 2 && std::string_view(argv[1]) == "nodes") return host::RunNodesCommand(argc - 1, argv + 1);
    if (argc >= 2 && std::string_view(argv[1]) == "new-module") return host::RunNewModuleCommand(argc - 1, argv + 1);
    // File names on the command line count from where the user typed it.
    std::error_code folderError;
    std::filesystem::path const callerFolder = std::filesystem::current_path(folderError);
    EnterRunDirectory();
    host::UsageError error;
    auto options = host::ParseCommandLine(argc, argv, error);
    if (!options) {
        std::cerr << "tessara: " << error.message << std::endl;
        return 2;
    }
    if (!folderError) host::ResolveGivenPaths(*options, callerFolder);
    if (options->help) {
        std::cout << host::UsageText();
        return 0;
    }
    if (!host::ApplyConfigFile(*options, error)) {
        std::cerr << "tessara: " << error.message << std::endl;
        return 2;
    }
    if (options->client) return host::RunClient(*options);
    return host::RunHeadless(*options);
} catch (std::exception const& failure) {
    std::cerr << "tessara: " << failure.what() << std::endl;
    return 1;
}
