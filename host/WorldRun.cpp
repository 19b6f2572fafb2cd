#include "WorldRun.hpp"
#include "ModuleWatcher.hpp"
#include "Trace.hpp"

#include "game/Game.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "game/modules/SERVER_Mod.hpp"
#include "game/modules/TESSARA_Mod.hpp"
#include "game/physics/PhysicsRandom.hpp"
#include "nerox/cpu/Profiler.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <exception>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace host {

using Clock = std::chrono::steady_clock;
using game::entity::ServerSideEntity;
using game::modules::SERVER_Mod;

std::atomic<bool> stopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void OnStopSignal(int signal) {
    int const savedErrno = errno;
    if (stopRequested.exchange(true)) {
        // A second request: the run did not stop in time, so end it the hard way.
        std::signal(signal, SIG_DFL);
        std::raise(signal);
    }
    errno = savedErrno;
}

std::atomic<bool> clientQuitRequested{false};

// Ends the run once, from whichever loop notices first.
void QuitIfRequested() {
    static std::atomic<bool> quitting{false};
    if (stopRequested.load() && Game::isActive.load() && !quitting.exchange(true)) {
        std::cout << "Stopping... (Ctrl+C again to end at once)" << std::endl;
        ServerSideEntity::physicsStop.store(true); // a long physics step ends at its next substep
        Game::Quit();
    }
}

void RequestClientQuit() {
    clientQuitRequested.store(true);
}

std::string Describe(std::exception_ptr const& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (std::exception const& error) {
        return error.what();
    } catch (...) {
        return "an exception that is no std::exception";
    }
}

// A folder as the user can find it: absolute, without "..".
std::string Shown(std::filesystem::path const& folder) {
    std::error_code error;
    std::filesystem::path const absolute = std::filesystem::absolute(folder, error);
    return (error ? folder : absolute).lexically_normal().string();
}

// The game skips a content module that fails to load without a word: name
// each one that is not loaded with the loader's reason (a missing library is
// reported before the start already).
void ReportContentModulesNotLoaded() {
    for (std::string const& name : Game::_mods) {
        std::string const path = "modules/" + name + "/" + name + ".TESSARA_Mod";
        std::error_code error;
        if (game::modules::TESSARA_Mod::GetModule(name) || !std::filesystem::exists(path + ".so", error)) continue;
        game::modules::TESSARA_Mod const probe(name, path);
        if (probe.handle == nullptr)
            std::cerr << "tessara: content module '" << name << "' failed to load with error: " << probe.error
                      << "; its saved entities stay on disk" << std::endl;
    }
}

// Opens the world Game::_current_world: creates its folder when it is new, loads
// its saved entities (the content modules have registered their item types in
// Game::Start), then lets every server module see it through Server_Load.
// Fills report (the files moved away with --set-aside-damaged, the entities
// kept on disk) before the modules see the world.
void LoadWorld(bool setAsideDamaged, ServerSideEntity::LoadReport& report) {
    std::string const& world = Game::_current_world;
    std::filesystem::path const folder = std::filesystem::path(ServerSideEntity::GetCheckpointDir()).parent_path();
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error)
        throw std::runtime_error("could not create the folder of world '" + world + "', " + Shown(folder) + ": " +
                                 error.message());
    using DamagedFiles = ServerSideEntity::DamagedFiles;
    try {
        report = ServerSideEntity::LoadAllEntities(setAsideDamaged ? DamagedFiles::SetAside : DamagedFiles::Refuse);
    } catch (std::exception const& failure) {
        throw std::runtime_error("world '" + world + "' could not be loaded from " +
                                 Shown(ServerSideEntity::GetCheckpointDir()) + ": " + failure.what() +
                                 " (its files were left as they are; --set-aside-damaged loads the rest)");
    }
    std::printf("World '%s': loaded %zu entities from %s\n", world.c_str(), ServerSideEntity::Count(),
                Shown(ServerSideEntity::GetCheckpointDir()).c_str());
    std::fflush(stdout);
    SERVER_Mod::ForEachModule([&world](SERVER_Mod::Ptr& mod) {
        if (mod->Server_Load) mod->Server_Load(world.c_str());
    });
}

// The files a load set aside, once more at the very end where the player sees them.
void ListSetAside(std::vector<std::string> const& files) {
    if (files.empty()) return;
    std::printf("\n%zu damaged %s set aside in %s:\n", files.size(), files.size() == 1 ? "file was" : "files were",
                Shown(ServerSideEntity::GetDamagedDir()).c_str());
    for (std::string const& file : files) std::printf("  %s\n", file.c_str());
}

namespace {

// Lets every server module write its part of the world (Server_Serialize);
// returns the failure of one, after which the others are skipped.
std::exception_ptr SerializeModules() {
    try {
        SERVER_Mod::ForEachModule([](SERVER_Mod::Ptr& mod) {
            if (mod->Server_Serialize) mod->Server_Serialize();
        });
    } catch (...) {
        return std::current_exception();
    }
    return nullptr;
}

} // namespace

// The modules' part of the world, then the entities placed in it, which are
// released. A failing module does not keep the entities from being saved.
void SaveWorld() {
    std::exception_ptr const moduleFailure = SerializeModules();
    size_t placed = 0;
    try {
        placed = ServerSideEntity::UnloadAllEntities();
    } catch (std::exception const& failure) {
        throw std::runtime_error("world '" + Game::_current_world + "' was not saved completely: " + failure.what());
    }
    std::printf("World '%s': saved %zu entities to %s\n", Game::_current_world.c_str(), placed,
                Shown(ServerSideEntity::GetCheckpointDir()).c_str());
    if (moduleFailure) std::rethrow_exception(moduleFailure);
}

// Saves the world as SaveWorld does but keeps it running. A failure is
// reported and the run goes on; the next save tries again.
void SaveWorldNow() {
    std::string const& world = Game::_current_world;
    if (std::exception_ptr const moduleFailure = SerializeModules())
        std::cerr << "tessara: a module's part of the periodic save of world '" << world
                  << "' failed: " << Describe(moduleFailure) << std::endl;
    try {
        size_t const saved = ServerSideEntity::SaveAllEntities();
        std::printf("World '%s': saved %zu entities (periodic save)\n", world.c_str(), saved);
        std::fflush(stdout);
    } catch (std::exception const& failure) {
        std::cerr << "tessara: the periodic save of world '" << world << "' failed: " << failure.what() << std::endl;
    }
}

// Releases whatever entities are left (after a failed load) without saving them
// and without removing their files: the world on disk stays as it was. Runs
// while the content modules are loaded, since the entities hold their code.
void ReleaseEntitiesKeepingFiles() {
    ServerSideEntity::ForEach([](ServerSideEntity::Ptr entity) { entity->deleteFilesOnDestroy = false; });
    ServerSideEntity::DestroyAll();
    std::lock_guard lock(ServerSideEntity::_module_entities_mutex);
    for (auto& [module, interfaces] : ServerSideEntity::_module_entities)
        std::erase_if(interfaces, [](auto const& object) { return object.expired(); });
}

// With quitThroughClient (a window is open), the loop leaves Ctrl+C to the
// client loop and ends the run after --ticks through RequestClientQuit.
void ServerLoop(HostOptions const& options, RunStats& stats, Trace* trace, bool quitThroughClient,
                ModuleWatcher* watcher) {
    nerox::cpu::Profiler::SetThreadName("server");
    double const deltaTime = 1.0 / options.tickRate;
    auto const period = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(deltaTime));
    auto next = Clock::now();
    auto const saveInterval =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.saveEvery));
    auto nextSave = next + saveInterval;
    while (Game::isActive.load()) {
        if (!quitThroughClient) QuitIfRequested();
        if (!Game::isActive.load()) break;
        if (options.ticks && stats.serverTicks >= *options.ticks) {
            if (quitThroughClient)
                RequestClientQuit();
            else
                Game::Quit();
            break;
        }
        if (watcher != nullptr) watcher->Poll();
        Game::serverFramerate.Tick();
        auto const tickStart = Clock::now();
        Game::ServerUpdate(deltaTime, options.substeps);
        double const tickSeconds = std::chrono::duration<double>(Clock::now() - tickStart).count();
        Game::serverFramerate.WorkDone();
        if (tickSeconds > deltaTime) ++stats.overruns;
        stats.worstTick = std::max(stats.worstTick, tickSeconds);
        ++stats.serverTicks;
        stats.simulatedSeconds += deltaTime;
        if (trace != nullptr) trace->Write(stats.serverTicks, stats.simulatedSeconds);
        if (options.saveEvery > 0.0 && Clock::now() >= nextSave && Game::isActive.load()) {
            SaveWorldNow();
            nextSave = Clock::now() + saveInterval;
        }
        if (!options.ticks) {
            next += period;
            auto now = Clock::now();
            if (next < now - 10 * period) next = now; // fell far behind: do not try to catch up
            std::this_thread::sleep_until(next);
        }
    }
    stats.serverLoad = Game::serverFramerate.GetLoad();
}

void PrintOverruns(HostOptions const& options, RunStats const& stats) {
    double const budget = 1000.0 / options.tickRate;
    std::printf("  over budget:    %lld of %lld ticks took longer than %.2f ms (the longest %.2f ms)\n", stats.overruns,
                stats.serverTicks, budget, 1000.0 * stats.worstTick);
    std::printf("  asleep:         %zu resting bodies, left out of the physics step until woken\n",
                ServerSideEntity::SleepingBodyCount());
}

bool StartGame(HostOptions const& options, std::exception_ptr& failure) {
    Game::isActive.exchange(true);
    ServerSideEntity::physicsStop.store(false);
    if (options.seed) game::physics::SeedPhysicsRandom(*options.seed);
    if (options.stress) Game::SetIMC(StressKey, static_cast<double>(*options.stress));
    bool started = false;
    RunGuarded(
        [&] {
            Game::Start();
            ReportContentModulesNotLoaded();
            Game::Ready();
            started = true;
        },
        failure);
    return started;
}

bool OpenStartedWorld(HostOptions const& options, ServerSideEntity::LoadReport& report, std::exception_ptr& failure) {
    bool open = false;
    RunGuarded(
        [&] {
            LoadWorld(options.setAsideDamaged, report);
            open = true;
        },
        failure);
    return open;
}

bool OpenWorld(HostOptions const& options, ServerSideEntity::LoadReport& report, std::exception_ptr& failure) {
    return StartGame(options, failure) && OpenStartedWorld(options, report, failure);
}

void CloseWorld(bool worldOpen, std::exception_ptr& failure) {
    std::exception_ptr saveFailure;
    if (worldOpen) RunGuarded([] { SaveWorld(); }, saveFailure);
    ReleaseEntitiesKeepingFiles();
    if (!failure) failure = saveFailure;
    std::exception_ptr stopFailure;
    RunGuarded([] { Game::Stop(); }, stopFailure);
    if (!failure) failure = stopFailure;
}

} // namespace host
