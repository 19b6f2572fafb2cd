#include "HostOptions.hpp"

#include "nerox/filesystem/ConfigFile.hpp"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <sstream>
#include <string_view>

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

template <typename T> bool ParseNumber(std::string const& text, T& value) {
    auto const* end = text.data() + text.size();
    auto result = std::from_chars(text.data(), end, value);
    return result.ec == std::errc() && result.ptr == end;
}

// A world is a folder of ../Tessara-data/server/worlds: its name must stay inside.
bool IsWorldName(std::string const& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

// Value checks shared by the options: each reads text into out or says what it needs.
bool WholeAtLeast(std::string const& text, long long least, long long& out) {
    return ParseNumber(text, out) && out >= least;
}

constexpr std::string_view FileNameNeeded = "a file name";

bool FileName(std::string const& text, std::string& out) {
    out = text;
    return !text.empty();
}

// Loads module NAME in every class it has a library for; the folder must exist.
bool AddModuleEverywhere(HostOptions& o, std::string const& name, std::string& error) {
    for (char const* cls : {"GAME_Mod", "SERVER_Mod", "TESSARA_Mod"}) {
        if (!std::filesystem::exists("modules/" + name + "/" + name + "." + cls + ".so")) continue;
        std::string const c = cls;
        (c == "GAME_Mod" ? o.gameModules : c == "SERVER_Mod" ? o.serverModules : o.contentModules).push_back(name);
    }
    if (!std::filesystem::exists("modules/" + name)) {
        error = "module '" + name + "' not found: there is no folder modules/" + name + " in " +
            std::filesystem::current_path().string();
        return false;
    }
    return true;
}

// The server's tick rates: a tick of more than a second, or of less than a
// millisecond, is more than the physics step can take in one go.
bool TickRateInRange(double rate) {
    return rate >= 1.0 && rate <= 1000.0;
}

// One command-line option: its name, the name of its value (none for a switch),
// its lines of help, what a refused value needs, and what it does. apply returns
// false with error set, or with error empty for the message made from `needs`:
// "OPTION needs NEEDS, not 'VALUE'" ("OPTION needs a file name" for file names).
struct Option {
    char const* name;
    char const* value;
    char const* help;
    char const* needs;
    bool (*apply)(HostOptions& o, std::string const& text, std::string& error);
};

Option const Options[] = {
    {"--headless", nullptr, "Run without window, renderer or audio (the default).", nullptr,
     [](HostOptions& o, std::string const&, std::string&) {
         o.headless = true, o.client = false;
         return true;
     }},
    {"--ticks", "N", "Run N server ticks as fast as possible, then stop.", "a whole number of at least 0",
     [](HostOptions& o, std::string const& t, std::string&) {
         long long n = 0;
         return WholeAtLeast(t, 0, n) && (o.ticks = n, true);
     }},
    {"--tick-rate", "HZ", "Server ticks per second in real time, 1 to 1000 (default 60).",
     "a number of ticks per second from 1 to 1000",
     [](HostOptions& o, std::string const& t, std::string&) {
         return ParseNumber(t, o.tickRate) && TickRateInRange(o.tickRate) && (o.tickRateGiven = true);
     }},
    {"--substeps", "N", "Physics substeps per server tick (default 4).", "a whole number of at least 1",
     [](HostOptions& o, std::string const& t, std::string&) {
         return ParseNumber(t, o.substeps) && o.substeps >= 1 && (o.substepsGiven = true);
     }},
    {"--world", "NAME",
     "World to run (default \"demo\"). Its entities are saved in\n"
     "../Tessara-data/server/worlds/NAME/entities/, beside the\n"
     "run directory; a new world is created on first use.",
     "a folder name without '/'",
     [](HostOptions& o, std::string const& t, std::string&) {
         o.world = t;
         return IsWorldName(t) && (o.worldGiven = true);
     }},
    {"--set-aside-damaged", nullptr,
     "Load the world even when some of its files cannot be read:\n"
     "move each such file into ../Tessara-data/server/worlds/\n"
     "NAME/damaged/ and list it. Without it such a file stops\n"
     "the run and every file stays as it is.",
     nullptr, [](HostOptions& o, std::string const&, std::string&) { return o.setAsideDamaged = true; }},
    {"--save-every", "SECONDS",
     "Save the world every SECONDS of wall time while it runs\n"
     "(default 300; 0 saves only at the end), so that a forced\n"
     "end loses at most that much.",
     "a number of seconds of at least 0",
     [](HostOptions& o, std::string const& t, std::string&) {
         return ParseNumber(t, o.saveEvery) && o.saveEvery >= 0.0 && o.saveEvery <= 1e9;
     }},
    {"--module", "NAME",
     "Load module NAME in every class it has a library for:\n"
     "modules/NAME/NAME.GAME_Mod.so, NAME.SERVER_Mod.so and\n"
     "NAME.TESSARA_Mod.so. May be repeated.",
     nullptr,
     [](HostOptions& o, std::string const& t, std::string& error) {
         o.modulesGiven = true;
         return AddModuleEverywhere(o, t, error);
     }},
    {"--game-mod", "NAME", "Load modules/NAME/NAME.GAME_Mod.so. May be repeated.", nullptr,
     [](HostOptions& o, std::string const& t, std::string&) {
         o.gameModules.push_back(t);
         return o.modulesGiven = true;
     }},
    {"--server-mod", "NAME", "Load modules/NAME/NAME.SERVER_Mod.so. May be repeated.", nullptr,
     [](HostOptions& o, std::string const& t, std::string&) {
         o.serverModules.push_back(t);
         return o.modulesGiven = true;
     }},
    {"--content-mod", "NAME", "Have the game load modules/NAME/NAME.TESSARA_Mod.so. May be repeated.", nullptr,
     [](HostOptions& o, std::string const& t, std::string&) {
         o.contentModules.push_back(t);
         return o.modulesGiven = true;
     }},
    {"--config", "FILE",
     "Host configuration file (default: tessara.ini if present).\n"
     "Modules named on the command line replace the file's.",
     nullptr,
     [](HostOptions& o, std::string const& t, std::string&) {
         o.configPath = t;
         return o.configGiven = true;
     }},
    {"--settings", "FILE", "The user's settings file (default ../Tessara-data/settings.ini).", nullptr,
     [](HostOptions& o, std::string const& t, std::string&) {
         o.settingsPath = t;
         return o.settingsGiven = true;
     }},
    {"--no-profile", nullptr, "Do not collect profiler scopes.", nullptr,
     [](HostOptions& o, std::string const&, std::string&) {
         o.profile = false;
         return true;
     }},
    {"--trace", "FILE",
     "After every tick, write each entity's place and velocity\n"
     "to the CSV file FILE (plot it with scripts/plot-trace.sh).",
     "a file name", [](HostOptions& o, std::string const& t, std::string&) { return FileName(t, o.tracePath); }},
    {"--trace-type", "TYPE", "Trace only entities of item type TYPE. May be repeated.", nullptr,
     [](HostOptions& o, std::string const& t, std::string&) {
         o.traceTypes.push_back(t);
         return true;
     }},
    {"--seed", "N",
     "Seed the physics step's random sampling, so that runs of\n"
     "the same world repeat exactly.",
     "a whole number of at least 0",
     [](HostOptions& o, std::string const& t, std::string&) {
         long long n = 0;
         return WholeAtLeast(t, 0, n) && (o.seed = static_cast<uint64_t>(n), true);
     }},
    {"--stress", "N",
     "Load test: ask the content modules for N more bodies (the\n"
     "sample module drops N crates in a pile beside its set; they\n"
     "are not saved). The summary tells how many ticks ran over\n"
     "their time.",
     "a whole number from 1 to 1000000",
     [](HostOptions& o, std::string const& t, std::string&) {
         long long n = 0;
         return WholeAtLeast(t, 1, n) && n <= 1000000 && (o.stress = n, true);
     }},
    {"--watch-modules", nullptr,
     "While the world runs, load each new build of a loaded\n"
     "module's library: a server module between two ticks\n"
     "(Server_Serialize, unload, load, Server_Load), a client\n"
     "module between two client passes (Game_Stop, unload,\n"
     "load, Game_Start, Game_Ready). A build that does not load\n"
     "is reported and the game goes on without it. Content\n"
     "modules are named; their new builds load at the next start.",
     nullptr, [](HostOptions& o, std::string const&, std::string&) { return o.watchModules = true; }},
    {"--input", "FILE",
     "Replay the input script FILE (see README, \"Replaying\n"
     "input\") in a headless 1280x720 window: its keys, mouse,\n"
     "cursor, gamepads and joysticks. Input passes then advance\n"
     "a fixed clock of 1/60 s each, so that a script gives the\n"
     "same actions pass by pass on any machine. 'quit' in the\n"
     "file ends the run (the world is saved as on Ctrl+C).\n"
     "With --client --offscreen the script runs on the wall\n"
     "clock instead, as a person at the keyboard would.",
     "a file name", [](HostOptions& o, std::string const& t, std::string&) { return FileName(t, o.inputPath); }},
    {"--print-actions", nullptr,
     "After each input pass in which some controller action\n"
     "changed, print one line with the changed ones:\n"
     "  actions pass 12 t=0.200 AvatarTranslateForward 0->1",
     nullptr, [](HostOptions& o, std::string const&, std::string&) { return o.printActions = true; }},
    {"--client", nullptr,
     "Single-player client: open a window with the Vulkan\n"
     "renderer and show the start menu (pick the world, PLAY,\n"
     "SETTINGS, QUIT). PLAY loads the world and runs the server\n"
     "ticks on their own thread and frames until the window is\n"
     "closed (or --frames); the world is loaded and saved as in\n"
     "headless mode.",
     nullptr,
     [](HostOptions& o, std::string const&, std::string&) {
         o.headless = false;
         return o.client = true;
     }},
    {"--offscreen", nullptr,
     "In client mode, render into an image instead of a window\n"
     "(no display needed).",
     nullptr, [](HostOptions& o, std::string const&, std::string&) { return o.offscreen = true; }},
    {"--game-mode", "MODE", "creative (the default), adventure or survival.", "creative, adventure or survival",
     [](HostOptions& o, std::string const& t, std::string&) {
         static char const* const modes[] = {"creative", "adventure", "survival"};
         for (int i = 0; i < 3; ++i)
             if (t == modes[i]) return o.gameMode = i, true;
         return false;
     }},
    {"--play", nullptr, "In client mode, skip the start menu: play the world (--world) at once.", nullptr,
     [](HostOptions& o, std::string const&, std::string&) { return o.play = true; }},
    {"--frames", "N", "In client mode, stop after N frames.", "a whole number of at least 1",
     [](HostOptions& o, std::string const& t, std::string&) {
         long long n = 0;
         return WholeAtLeast(t, 1, n) && (o.frames = n, true);
     }},
    {"--screenshot", "FILE", "In client mode, save the last frame to FILE (PNG).", "a file name",
     [](HostOptions& o, std::string const& t, std::string&) { return FileName(t, o.screenshotPath); }},
    {"--audio-out", "FILE",
     "In client mode, render the sound into FILE (WAV, 48 kHz, 16-bit\n"
     "stereo) as the run goes, instead of playing it.",
     "a file name", [](HostOptions& o, std::string const& t, std::string&) { return FileName(t, o.audioOutPath); }},
    {"--size", "WxH", "Client output size in pixels (default 1280x720).", nullptr,
     [](HostOptions& o, std::string const& t, std::string& error) {
         size_t const x = t.find('x');
         int width = 0, height = 0;
         if (x == std::string::npos || !ParseNumber(t.substr(0, x), width) || !ParseNumber(t.substr(x + 1), height) ||
             width < 16 || height < 16 || width > 16384 || height > 16384) {
             error = "--size needs WIDTHxHEIGHT, each 16 to 16384 pixels, not '" + t + "'";
             return false;
         }
         o.width = width;
         o.height = height;
         return true;
     }},
    {"--help", nullptr, "Show this text.", nullptr,
     [](HostOptions& o, std::string const&, std::string&) { return o.help = true; }},
};

Option const* FindOption(std::string const& name) {
    for (Option const& option : Options)
        if (name == option.name || (name == "-h" && std::string(option.name) == "--help")) return &option;
    return nullptr;
}

} // namespace

std::string UsageText() {
    std::string text = "Usage: tessara [options]\n"
                       "       tessara nodes compile FILE   (see tessara nodes --help)\n"
                       "       tessara new-module VENDOR_name [--dir DIR]   (see tessara new-module --help)\n"
                       "\n"
                       "Runs the Tessara game module. Without a renderer this is the headless server:\n"
                       "it loads the modules, starts the game, runs server ticks and stops cleanly on\n"
                       "Ctrl+C (or after --ticks), then prints a summary with the profiler's scopes.\n"
                       "Run it from the run directory (build/run), which holds game.so and modules/.\n"
                       "\n"
                       "Options:\n";
    for (Option const& option : Options) {
        std::string head = "  " + std::string(option.name) + (option.value ? std::string(" ") + option.value : "");
        head.resize(std::max<size_t>(head.size() + 1, 24), ' ');
        std::istringstream lines(option.help);
        bool first = true;
        for (std::string line; std::getline(lines, line); first = false)
            text += (first ? head : std::string(24, ' ')) + line + "\n";
    }
    return text +
        "\n"
        "Host configuration file (INI; comments are lines of their own that start with ';'):\n"
        "  [modules]\n"
        "  ; GAME_Mod, SERVER_Mod and TESSARA_Mod modules, separated by blanks or commas\n"
        "  game = TESSARA_view TESSARA_planet TESSARA_sample\n"
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
        std::string const argument = argv[i];
        Option const* option = FindOption(argument);
        if (option == nullptr) {
            error.message = "unknown option '" + argument + "' (see tessara --help)";
            return std::nullopt;
        }
        std::string text;
        if (option->value != nullptr) {
            if (i + 1 >= argc) {
                error.message = "option " + argument + " needs a value";
                return std::nullopt;
            }
            text = argv[++i];
        }
        std::string message;
        if (!option->apply(options, text, message)) {
            // A file name is refused only when empty: there is no value to show.
            bool const fileName = std::string_view(option->needs ? option->needs : "") == FileNameNeeded;
            error.message = !message.empty() ? message
                : fileName                   ? argument + " needs " + option->needs
                                             : argument + " needs " + option->needs + ", not '" + text + "'";
            return std::nullopt;
        }
    }
    bool const clientOnly = options.offscreen || options.play || options.frames || !options.screenshotPath.empty() ||
        !options.audioOutPath.empty();
    if (clientOnly && !options.client) {
        error.message =
            "--offscreen, --play, --frames, --screenshot and --audio-out belong to client mode: add --client";
        return std::nullopt;
    }
    if (options.client && options.ticks) {
        error.message = "--ticks belongs to the headless server; a client stops after --frames";
        return std::nullopt;
    }
    if (options.client && !options.inputPath.empty() && !options.offscreen) {
        error.message = "--input plays into a window without a screen: with --client, add --offscreen";
        return std::nullopt;
    }
    return options;
}

void ResolveGivenPaths(HostOptions& options, std::filesystem::path const& callerFolder) {
    auto const resolve = [&callerFolder](std::string& path) {
        if (!path.empty() && std::filesystem::path(path).is_relative())
            path = (callerFolder / path).lexically_normal().string();
    };
    if (options.configGiven) resolve(options.configPath);
    if (options.settingsGiven) resolve(options.settingsPath);
    for (std::string* path : {&options.tracePath, &options.inputPath, &options.screenshotPath, &options.audioOutPath})
        resolve(*path);
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
    if (!tickRateText.empty() && (!ParseNumber(tickRateText, tickRate) || !TickRateInRange(tickRate))) {
        error.message = options.configPath + ": tick_rate must be a number from 1 to 1000, not '" + tickRateText + "'";
        return false;
    }
    if (!substepsText.empty() && (!ParseNumber(substepsText, substeps) || substeps < 1)) {
        error.message =
            options.configPath + ": substeps must be a whole number of at least 1, not '" + substepsText + "'";
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
