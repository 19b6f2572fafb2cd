#include "HeadlessRun.hpp"
#include "InputScript.hpp"
#include "ModuleSetup.hpp"
#include "ModuleWatcher.hpp"
#include "Trace.hpp"
#include "WorldRun.hpp"

#include "game/Game.hpp"
#include "game/GameSettings.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "game/modules/GAME_Mod.hpp"
#include "game/modules/SERVER_Mod.hpp"
#include "game/modules/TESSARA_Mod.hpp"
#include "nerox/cpu/Profiler.hpp"
#include "nerox/graphics/HeadlessWindow.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <exception>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace host {

namespace {

using Clock = std::chrono::steady_clock;
using game::entity::ServerSideEntity;
using game::modules::GAME_Mod;
using game::modules::SERVER_Mod;

// What the client loop does with input besides the game's own passes.
struct ClientInput {
    InputPlayer* player = nullptr;    ///< --input: the script, on a fixed clock of 1/60 s per pass.
    ActionPrinter* printer = nullptr; ///< --print-actions.
    ModuleWatcher* watcher = nullptr; ///< --watch-modules: reloads client modules between passes.
};

void ClientLoop(RunStats& stats, ClientInput const& input) {
    nerox::cpu::Profiler::SetThreadName("client");
    double const fixedDelta = 1.0 / 60.0;
    auto const period = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(fixedDelta));
    auto next = Clock::now();
    double inputClock = 0.0; // seconds of input passes before this one
    while (Game::isActive.load()) {
        if (clientQuitRequested.load() && Game::isActive.load()) Game::Quit();
        QuitIfRequested();
        // Without a renderer the client loop stands in for the render loop's clock,
        // which Game::Update smooths into its delta time.
        if (input.watcher != nullptr) input.watcher->ClientPass();
        Game::mainRenderingFramerate.Tick();
        Game::gameFramerate.Tick();
        Game::Update(0.0);
        Game::ClientUpdate();
        Game::inputFramerate.Tick();
        double inputDelta = Game::inputFramerate.GetDeltaTime();
        long long const pass = stats.clientPasses;
        if (input.player != nullptr) {
            // Pass N runs at N/60 s, whatever the machine's pace.
            inputDelta = fixedDelta;
            inputClock = static_cast<double>(pass) / 60.0;
            if (input.player->Apply(inputClock) != 0 && input.player->QuitApplied() && !Game::isActive.load())
                std::printf("Input script: quit at pass %lld (t=%.3f)\n", pass, inputClock);
        }
        Game::UpdateJoysticks();
        RunInputPass(inputDelta);
        if (input.printer != nullptr) input.printer->Print(pass, inputClock, stdout);
        if (input.player == nullptr) inputClock += inputDelta;
        Game::gameFramerate.WorkDone();
        ++stats.clientPasses;
        next += period;
        auto now = Clock::now();
        if (next < now) next = now;
        std::this_thread::sleep_until(next);
    }
}

void PrintSummary(HostOptions const& options, RunStats const& stats, size_t notLoaded) {
    std::printf("\nSummary\n");
    std::printf("  world:          %s\n", options.world.c_str());
    if (notLoaded != 0)
        std::printf("  kept on disk:   %zu entities whose module or item type is not loaded\n", notLoaded);
    std::printf("  server ticks:   %lld (%.3f s simulated at %.1f ticks/s)\n", stats.serverTicks,
                stats.simulatedSeconds, options.tickRate);
    double rate = stats.wallSeconds > 0.0 ? stats.serverTicks / stats.wallSeconds : 0.0;
    std::printf("  wall time:      %.3f s (%.1f ticks/s)\n", stats.wallSeconds, rate);
    if (!options.ticks) std::printf("  server load:    %.1f %%\n", 100.0 * stats.serverLoad);
    PrintOverruns(options, stats);
    std::printf("  client passes:  %lld\n", stats.clientPasses);
    if (!options.profile) return;

    // Sorted by thread, then path, so that nested scopes follow their parents.
    std::map<std::pair<std::string, std::string>, nerox::cpu::Profiler::Profile> rows;
    nerox::cpu::Profiler::ForEach(
        [&](std::string const& thread, std::string const& path, nerox::cpu::Profiler::Profile const& profile) {
            rows[{thread, path}] = profile;
        });
    std::printf("\nProfiler scopes (milliseconds)\n");
    std::printf("  %-8s %-52s %8s %10s %9s %9s %9s\n", "thread", "scope", "calls", "total", "mean", "min", "max");
    for (auto const& [key, profile] : rows) {
        double mean = profile.count ? profile.total / static_cast<double>(profile.count) : 0.0;
        std::printf("  %-8s %-52s %8llu %10.3f %9.4f %9.4f %9.4f\n", key.first.c_str(), key.second.c_str(),
                    static_cast<unsigned long long>(profile.count), profile.total, mean,
                    profile.min < 0.0 ? 0.0 : profile.min, profile.max);
    }
}

} // namespace

int RunHeadless(HostOptions const& options) {
    nerox::cpu::Profiler::enabled = options.profile;
    nerox::cpu::Profiler::SetThreadName("main");
    std::signal(SIGINT, OnStopSignal);
    std::signal(SIGTERM, OnStopSignal);

    std::error_code error;
    std::filesystem::path settingsPath(options.settingsPath);
    if (settingsPath.has_parent_path()) std::filesystem::create_directories(settingsPath.parent_path(), error);

    // A scripted run reads its file before anything starts: a mistake in it costs no load.
    std::unique_ptr<nerox::graphics::HeadlessWindow> window;
    std::unique_ptr<InputPlayer> player;
    if (!options.inputPath.empty()) {
        try {
            InputScript script = InputScript::Load(options.inputPath);
            window = std::make_unique<nerox::graphics::HeadlessWindow>(1280, 720);
            std::printf("Replaying %zu input events from %s\n", script.Events().size(), options.inputPath.c_str());
            player = std::make_unique<InputPlayer>(std::move(script), *window);
        } catch (std::exception const& error) {
            std::cerr << "tessara: " << error.what() << std::endl;
            return 2;
        }
    }
    std::unique_ptr<ActionPrinter> printer;
    if (options.printActions) printer = std::make_unique<ActionPrinter>();

    Game::window = window.get();
    Game::renderer = nullptr;
    Game::audio = nullptr;
    Game::settings = std::make_unique<game::GameSettings>(options.settingsPath, std::nullopt);
    Game::_mods = options.contentModules;
    Game::_current_world = options.world;
    Game::_mode = options.gameMode;
    Game::_is_server = true;

    // The game loads content modules quietly; tell the user about a name that has no library.
    for (std::string const& name : Game::_mods) {
        std::string const path = "modules/" + name + "/" + name + ".TESSARA_Mod.so";
        if (!std::filesystem::exists(path, error))
            std::cerr << "tessara: content module '" << name << "' not found (" << path << "), skipped" << std::endl;
    }

    bool loaded = LoadModules<GAME_Mod>(options.gameModules);
    loaded = LoadModules<SERVER_Mod>(options.serverModules) && loaded;
    if (!loaded) {
        std::cerr << "tessara: a module failed to load (see above); run from the run directory, "
                     "or check the names with tessara --help"
                  << std::endl;
        GAME_Mod::UnloadModules();
        SERVER_Mod::UnloadModules();
        Game::settings.reset();
        Game::window = nullptr;
        return 1;
    }
    SortClientModuleLists();
    std::printf("Loaded %zu client and %zu server modules; %zu content modules to load\n", GAME_Mod::Count(),
                SERVER_Mod::Count(), Game::_mods.size());
    if (GAME_Mod::Count() == 0 && SERVER_Mod::Count() == 0 && Game::_mods.empty())
        std::cerr << "tessara: no module to run; name some with --module or in " << options.configPath << std::endl;

    std::exception_ptr failure;
    RunStats stats;
    auto const started = Clock::now();
    ServerSideEntity::LoadReport worldLoad;
    bool const worldOpen = OpenWorld(options, worldLoad, failure);

    std::unique_ptr<Trace> trace;
    if (!failure && !options.tracePath.empty()) {
        RunGuarded([&] { trace = std::make_unique<Trace>(options.tracePath, options.traceTypes); }, failure);
        if (!failure) std::printf("Tracing to %s\n", options.tracePath.c_str());
    }
    std::unique_ptr<ModuleWatcher> watcher;
    if (!failure && options.watchModules) {
        watcher = std::make_unique<ModuleWatcher>(options.world);
        watcher->Start();
    }
    if (!failure) {
        std::exception_ptr serverFailure;
        bool const quitThroughClient = window != nullptr;
        clientQuitRequested.store(false);
        std::thread server([&] {
            RunGuarded([&] { ServerLoop(options, stats, trace.get(), quitThroughClient, watcher.get()); },
                       serverFailure, quitThroughClient ? &RequestClientQuit : &Game::Quit);
        });
        RunStats clientStats;
        RunGuarded([&] { ClientLoop(clientStats, ClientInput{player.get(), printer.get(), watcher.get()}); }, failure);
        server.join();
        if (!failure) failure = serverFailure;
        stats.clientPasses = clientStats.clientPasses;
    }
    stats.wallSeconds = std::chrono::duration<double>(Clock::now() - started).count();

    CloseWorld(worldOpen, failure);
    Game::window = nullptr; // the headless window of --input goes with this scope
    if (!failure) PrintSummary(options, stats, worldLoad.notLoaded);
    ListSetAside(worldLoad.setAside);

    // Queued work may hold code of the modules: drop it while they are still loaded.
    {
        std::lock_guard lock(Game::_syncMutex);
        Game::_syncQueue.clear();
    }
    SERVER_Mod::UnloadModules();
    GAME_Mod::UnloadModules();
    Game::settings.reset();
    if (failure) {
        std::cerr << "tessara: the run ended with an error: " << Describe(failure) << std::endl;
        return 1;
    }
    return 0;
}

} // namespace host
