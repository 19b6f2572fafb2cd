#include "HostOptions.hpp"

#include "nerox/filesystem/ConfigFile.hpp"

#include <charconv>
#include <filesystem>
#include <sstream>

namespace host {

namespace {

// Splits a list of names separated by blanks or commas.
std::vector<std::string> SplitList(std::string const& text) {
    std::vector<std::string> names;
    std::string name;
    std::istringstream stream(text);
    while (stream >> name) {
        std::string part;
        std::istringstream parts(name);
        while (std::getline(parts, part, ','))
            if (!part.empty()) names.push_back(part);
    }
    return names;
}

template <typename T>
bool ParseNumber(std::string const& text, T& value) {
    auto const* end = text.data() + text.size();
    auto result = std::from_chars(text.data(), end, value);
    return result.ec == std::errc() && result.ptr == end;
}

// A world is a folder of ../Tessara-data/server/worlds: its name must stay inside.
bool IsWorldName(std::string const& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

} // namespace

std::string UsageText() {
    return
        "Usage: tessara [options]\n"
        "       tessara nodes compile FILE   (see tessara nodes --help)\n"
        "\n"
        "Runs the Tessara game module. Without a renderer this is the headless server:\n"
        "it loads the modules, starts the game, runs server ticks and stops cleanly on\n"
        "Ctrl+C (or after --ticks), then prints a summary with the profiler's scopes.\n"
        "Run it from the run directory (build/run), which holds game.so and modules/.\n"
        "\n"
        "Options:\n"
        "  --headless            Run without window, renderer or audio (the default).\n"
        "  --ticks N             Run N server ticks as fast as possible, then stop.\n"
        "  --tick-rate HZ        Server ticks per second in real time (default 60).\n"
        "  --substeps N          Physics substeps per server tick (default 4).\n"
        "  --world NAME          World to run (default \"demo\"). Its entities are saved in\n"
        "                        ../Tessara-data/server/worlds/NAME/entities/, beside the\n"
        "                        run directory; a new world is created on first use.\n"
        "  --module NAME         Load module NAME in every class it has a library for:\n"
        "                        modules/NAME/NAME.GAME_Mod.so, NAME.SERVER_Mod.so and\n"
        "                        NAME.TESSARA_Mod.so. May be repeated.\n"
        "  --game-mod NAME       Load modules/NAME/NAME.GAME_Mod.so. May be repeated.\n"
        "  --server-mod NAME     Load modules/NAME/NAME.SERVER_Mod.so. May be repeated.\n"
        "  --content-mod NAME    Have the game load modules/NAME/NAME.TESSARA_Mod.so. May be repeated.\n"
        "  --config FILE         Host configuration file (default: tessara.ini if present).\n"
        "                        Modules named on the command line replace the file's.\n"
        "  --settings FILE       The user's settings file (default ../Tessara-data/settings.ini).\n"
        "  --no-profile          Do not collect profiler scopes.\n"
        "  --trace FILE          After every tick, write each entity's place and velocity\n"
        "                        to the CSV file FILE (plot it with scripts/plot-trace.sh).\n"
        "  --trace-type TYPE     Trace only entities of item type TYPE. May be repeated.\n"
        "  --seed N              Seed the physics step's random sampling, so that runs of\n"
        "                        the same world repeat exactly.\n"
        "  --input FILE          Replay the input script FILE (see README, \"Replaying\n"
        "                        input\") in a headless 1280x720 window: its keys, mouse,\n"
        "                        cursor, gamepads and joysticks. Input passes then advance\n"
        "                        a fixed clock of 1/60 s each, so that a script gives the\n"
        "                        same actions pass by pass on any machine. 'quit' in the\n"
        "                        file ends the run (the world is saved as on Ctrl+C).\n"
        "  --print-actions       After each input pass in which some controller action\n"
        "                        changed, print one line with the changed ones:\n"
        "                          actions pass 12 t=0.200 AvatarTranslateForward 0->1\n"
        "  --client              Client mode: open a window with the Vulkan renderer and run\n"
        "                        frames until the window is closed (or --frames).\n"
        "  --offscreen           In client mode, render into an image instead of a window\n"
        "                        (no display needed).\n"
        "  --frames N            In client mode, stop after N frames.\n"
        "  --screenshot FILE     In client mode, save the last frame to FILE (PNG).\n"
        "  --size WxH            Client output size in pixels (default 1280x720).\n"
        "  --help                Show this text.\n"
        "\n"
        "Host configuration file (INI; comments are lines of their own that start with ';'):\n"
        "  [modules]\n"
        "  ; GAME_Mod, SERVER_Mod and TESSARA_Mod modules, separated by blanks or commas\n"
        "  game = TESSARA_sample\n"
        "  server = TESSARA_sample\n"
        "  content = TESSARA_sample\n"
        "  [server]\n"
        "  tick_rate = 60\n"
        "  substeps = 4\n"
        "  world = demo\n";
}

std::optional<HostOptions> ParseCommandLine(int argc, char** argv, UsageError& error) {
    HostOptions options;
    for (int i = 1; i < argc; ++i) {
        std::string argument = argv[i];
        auto value = [&](std::string& out) {
            if (i + 1 >= argc) {
                error.message = "option " + argument + " needs a value";
                return false;
            }
            out = argv[++i];
            return true;
        };
        std::string text;
        if (argument == "--help" || argument == "-h") {
            options.help = true;
        } else if (argument == "--headless") {
            options.headless = true;
            options.client = false;
        } else if (argument == "--client") {
            options.client = true;
            options.headless = false;
        } else if (argument == "--offscreen") {
            options.offscreen = true;
        } else if (argument == "--frames") {
            long long frames = 0;
            if (!value(text)) return std::nullopt;
            if (!ParseNumber(text, frames) || frames < 1) {
                error.message = "--frames needs a whole number of at least 1, not '" + text + "'";
                return std::nullopt;
            }
            options.frames = frames;
        } else if (argument == "--screenshot") {
            if (!value(options.screenshotPath)) return std::nullopt;
            if (options.screenshotPath.empty()) {
                error.message = "--screenshot needs a file name";
                return std::nullopt;
            }
        } else if (argument == "--size") {
            if (!value(text)) return std::nullopt;
            size_t const x = text.find('x');
            int width = 0, height = 0;
            if (x == std::string::npos || !ParseNumber(text.substr(0, x), width) ||
                !ParseNumber(text.substr(x + 1), height) || width < 16 || height < 16 || width > 16384 || height > 16384) {
                error.message = "--size needs WIDTHxHEIGHT, each 16 to 16384 pixels, not '" + text + "'";
                return std::nullopt;
            }
            options.width = width;
            options.height = height;
        } else if (argument == "--ticks") {
            long long ticks = 0;
            if (!value(text)) return std::nullopt;
            if (!ParseNumber(text, ticks) || ticks < 0) {
                error.message = "--ticks needs a whole number of at least 0, not '" + text + "'";
                return std::nullopt;
            }
            options.ticks = ticks;
        } else if (argument == "--tick-rate") {
            if (!value(text)) return std::nullopt;
            if (!ParseNumber(text, options.tickRate) || !(options.tickRate > 0.0) || options.tickRate > 100000.0) {
                error.message = "--tick-rate needs a number of ticks per second above 0, not '" + text + "'";
                return std::nullopt;
            }
            options.tickRateGiven = true;
        } else if (argument == "--substeps") {
            if (!value(text)) return std::nullopt;
            if (!ParseNumber(text, options.substeps) || options.substeps < 1) {
                error.message = "--substeps needs a whole number of at least 1, not '" + text + "'";
                return std::nullopt;
            }
            options.substepsGiven = true;
        } else if (argument == "--world") {
            if (!value(options.world)) return std::nullopt;
            if (!IsWorldName(options.world)) {
                error.message = "--world needs a folder name without '/', not '" + options.world + "'";
                return std::nullopt;
            }
            options.worldGiven = true;
        } else if (argument == "--module") {
            if (!value(text)) return std::nullopt;
            options.modulesGiven = true;
            for (char const* cls : {"GAME_Mod", "SERVER_Mod", "TESSARA_Mod"}) {
                std::string path = "modules/" + text + "/" + text + "." + cls + ".so";
                if (!std::filesystem::exists(path)) continue;
                if (std::string(cls) == "GAME_Mod") options.gameModules.push_back(text);
                else if (std::string(cls) == "SERVER_Mod") options.serverModules.push_back(text);
                else options.contentModules.push_back(text);
            }
            if (!std::filesystem::exists("modules/" + text)) {
                error.message = "module '" + text + "' not found: there is no folder modules/" + text +
                                " in " + std::filesystem::current_path().string();
                return std::nullopt;
            }
        } else if (argument == "--game-mod") {
            if (!value(text)) return std::nullopt;
            options.modulesGiven = true;
            options.gameModules.push_back(text);
        } else if (argument == "--server-mod") {
            if (!value(text)) return std::nullopt;
            options.modulesGiven = true;
            options.serverModules.push_back(text);
        } else if (argument == "--content-mod") {
            if (!value(text)) return std::nullopt;
            options.modulesGiven = true;
            options.contentModules.push_back(text);
        } else if (argument == "--config") {
            if (!value(options.configPath)) return std::nullopt;
            options.configGiven = true;
        } else if (argument == "--settings") {
            if (!value(options.settingsPath)) return std::nullopt;
        } else if (argument == "--no-profile") {
            options.profile = false;
        } else if (argument == "--trace") {
            if (!value(options.tracePath)) return std::nullopt;
            if (options.tracePath.empty()) {
                error.message = "--trace needs a file name";
                return std::nullopt;
            }
        } else if (argument == "--trace-type") {
            if (!value(text)) return std::nullopt;
            options.traceTypes.push_back(text);
        } else if (argument == "--seed") {
            if (!value(text)) return std::nullopt;
            long long seed = 0;
            if (!ParseNumber(text, seed) || seed < 0) {
                error.message = "--seed needs a whole number of at least 0, not '" + text + "'";
                return std::nullopt;
            }
            options.seed = static_cast<uint64_t>(seed);
        } else if (argument == "--input") {
            if (!value(options.inputPath)) return std::nullopt;
            if (options.inputPath.empty()) {
                error.message = "--input needs a file name";
                return std::nullopt;
            }
        } else if (argument == "--print-actions") {
            options.printActions = true;
        } else {
            error.message = "unknown option '" + argument + "' (see tessara --help)";
            return std::nullopt;
        }
    }
    bool const clientOnly = options.offscreen || options.frames || !options.screenshotPath.empty();
    if (clientOnly && !options.client) {
        error.message = "--offscreen, --frames and --screenshot belong to client mode: add --client";
        return std::nullopt;
    }
    if (options.client && (!options.inputPath.empty() || options.ticks)) {
        error.message = "--input and --ticks belong to the headless server, not to --client";
        return std::nullopt;
    }
    return options;
}

bool ApplyConfigFile(HostOptions& options, UsageError& error) {
    using nerox::filesystem::ConfigFile;
    if (!std::filesystem::exists(options.configPath)) {
        if (!options.configGiven) return true;
        error.message = "host configuration file '" + options.configPath + "' not found";
        return false;
    }
    ConfigFile file(options.configPath, std::nullopt);

    std::string game, server, content;
    std::vector<ConfigFile::Conf> modules = {
        {&file, "game", &game, ConfigFile::TypeString},
        {&file, "server", &server, ConfigFile::TypeString},
        {&file, "content", &content, ConfigFile::TypeString},
    };
    file.ReadFromINI("modules", modules, false);
    if (!options.modulesGiven) {
        options.gameModules = SplitList(game);
        options.serverModules = SplitList(server);
        options.contentModules = SplitList(content);
    }

    // Numbers are read as text so that a mistyped value is reported, not ignored.
    std::string tickRateText, substepsText, world = options.world;
    std::vector<ConfigFile::Conf> serverEntries = {
        {&file, "tick_rate", &tickRateText, ConfigFile::TypeString},
        {&file, "substeps", &substepsText, ConfigFile::TypeString},
        {&file, "world", &world, ConfigFile::TypeString},
    };
    file.ReadFromINI("server", serverEntries, false);
    double tickRate = options.tickRate;
    int substeps = options.substeps;
    if (!tickRateText.empty() && (!ParseNumber(tickRateText, tickRate) || !(tickRate > 0.0) || tickRate > 100000.0)) {
        error.message = options.configPath + ": tick_rate must be a number above 0 and at most 100000, not '" +
                        tickRateText + "'";
        return false;
    }
    if (!substepsText.empty() && (!ParseNumber(substepsText, substeps) || substeps < 1)) {
        error.message = options.configPath + ": substeps must be a whole number of at least 1, not '" +
                        substepsText + "'";
        return false;
    }
    if (!options.tickRateGiven) options.tickRate = tickRate;
    if (!options.substepsGiven) options.substeps = substeps;
    if (!options.worldGiven && !IsWorldName(world)) {
        error.message = options.configPath + ": world must be a folder name without '/', not '" + world + "'";
        return false;
    }
    if (!options.worldGiven) options.world = world;
    return true;
}

} // namespace host
