#pragma once
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// What the tessara program was asked to do, from its command line and its
/// host configuration file.
struct HostOptions {
    bool headless = true;                   ///< Run without window, renderer or audio.
    std::optional<long long> ticks;         ///< Run this many server ticks as fast as possible, then stop.
    double tickRate = 60.0;                 ///< Server ticks per second when running in real time.
    int substeps = 4;                       ///< Physics substeps handed to each server tick.
    std::string world = "demo";             ///< Name of the world to run.
    int gameMode = 0;                       ///< Game::_mode: 0 creative, 1 adventure, 2 survival.
    std::string configPath = "tessara.ini"; ///< Host configuration file.
    bool configGiven = false;               ///< Whether --config named the file (then it must exist).
    std::string settingsPath = "../Tessara-data/settings.ini"; ///< The user's settings file.
    std::vector<std::string> gameModules;                      ///< Modules to load as GAME_Mod.
    std::vector<std::string> serverModules;                    ///< Modules to load as SERVER_Mod.
    std::vector<std::string> contentModules;                   ///< Modules that Game::Start loads as TESSARA_Mod.
    bool modulesGiven = false;           ///< Whether the command line named modules (the file's are then ignored).
    bool tickRateGiven = false;          ///< --tick-rate was given (the file's value is then ignored).
    bool substepsGiven = false;          ///< --substeps was given.
    bool worldGiven = false;             ///< --world was given.
    bool settingsGiven = false;          ///< --settings was given.
    bool setAsideDamaged = false;        ///< Load the world with its unreadable files moved into damaged/.
    double saveEvery = 300.0;            ///< Seconds of wall time between saves of the world while it runs; 0: none.
    bool profile = true;                 ///< Collect and print profiler scopes.
    std::string tracePath;               ///< Write a CSV trace of the entities here; empty: none.
    std::vector<std::string> traceTypes; ///< Item types to trace; empty: every entity.
    std::optional<uint64_t> seed;        ///< Seed of the physics step's random sampling.
    std::optional<long long> stress;     ///< Bodies the content modules are asked to add for a load test.
    std::string inputPath;               ///< Replay this input script in a headless window; empty: none.
    bool watchModules = false;           ///< Load new builds of the loaded modules' libraries while the world runs.
    bool printActions = false;           ///< Print the controller's actions that changed, pass by pass.
    bool client = false;                 ///< Open a renderer and run frames (client mode).
    bool offscreen = false;              ///< In client mode, render into an image instead of a window.
    bool play = false;                   ///< In client mode, skip the start menu and play the world at once.
    std::optional<long long> frames;     ///< In client mode, stop after this many frames.
    std::string screenshotPath;          ///< In client mode, save the last frame here; empty: none.
    std::string audioOutPath;            ///< In client mode, render the sound into this WAV file; empty: play it.
    int width = 1280;                    ///< Client output width in pixels.
    int height = 720;                    ///< Client output height in pixels.
    bool help = false;                   ///< Print the usage and exit.
};

/// Why the command line could not be read.
struct UsageError {
    std::string message; ///< What was wrong, for the user.
};

/// The usage text of --help.
std::string UsageText();

/// Reads the command line. Returns the options, or sets `error` and returns nothing.
std::optional<HostOptions> ParseCommandLine(int argc, char** argv, UsageError& error);

/// Makes the file names given on the command line (--config, --settings,
/// --trace, --input, --screenshot) absolute against callerFolder, the folder
/// the user typed the command in, before the program moves into its run
/// directory. The defaults stay relative to the run directory.
void ResolveGivenPaths(HostOptions& options, std::filesystem::path const& callerFolder);

/// Fills the module lists and server settings from the host configuration file,
/// where the command line left them open. Returns false with `error` set when
/// the file was asked for by --config and cannot be read.
bool ApplyConfigFile(HostOptions& options, UsageError& error);

} // namespace host
