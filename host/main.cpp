// tessara: the host program. It loads game.so (linked in), the modules it is told
// to, and drives the game's loops. See `tessara --help`.
#include "HeadlessRun.hpp"
#include "HostOptions.hpp"

#include <iostream>

int main(int argc, char** argv) {
    host::UsageError error;
    auto options = host::ParseCommandLine(argc, argv, error);
    if (!options) {
        std::cerr << "tessara: " << error.message << std::endl;
        return 2;
    }
    if (options->help) {
        std::cout << host::UsageText();
        return 0;
    }
    if (!host::ApplyConfigFile(*options, error)) {
        std::cerr << "tessara: " << error.message << std::endl;
        return 2;
    }
    return host::RunHeadless(*options);
}
