#pragma once
// What both runs of a world share, the headless server and the single-player
// client: the stop signals, opening and saving the world, and the server loop.
#include "HostOptions.hpp"

#include "game/Game.hpp"
#include "game/entity/ServerSideEntity.hpp"

#include <atomic>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

namespace host {

class ModuleWatcher;
class Trace;

/// Set by Ctrl+C (SIGINT) or SIGTERM. A lock-free atomic is safe to write from
/// the handler and to read from both loops.
extern std::atomic<bool> stopRequested;
/// The handler of both signals: the first asks the run to stop, the second
/// ends the process the hard way.
extern "C" void OnStopSignal(int signal);
/// With a window (or an input script), only the main loop calls Game::Quit: it
/// frees the cursor and clears the mouse look, which the input pass reads. The
/// server loop asks for it through this flag instead.
extern std::atomic<bool> clientQuitRequested;

/// What the loops did, for the summary.
struct RunStats {
    long long serverTicks = 0;
    long long clientPasses = 0;
    double simulatedSeconds = 0.0;
    double wallSeconds = 0.0;
    double serverLoad = 0.0;
    long long overruns = 0; ///< Ticks whose work took longer than a tick's time.
    double worstTick = 0.0; ///< Seconds of the longest tick.
};

/// The key of Game's inter-module channel under which --stress tells the
/// content modules how many bodies to add for a load test.
inline constexpr char StressKey[] = "host.stress";

/// Ends the run once, from whichever loop notices the stop signal first.
void QuitIfRequested();
/// Sets clientQuitRequested.
void RequestClientQuit();

/// Runs a loop; an exception ends the whole run (through quit, Game::Quit
/// unless told otherwise) and is kept for the caller.
template <typename Loop> void RunGuarded(Loop&& loop, std::exception_ptr& failure, void (*quit)() = &Game::Quit) {
    try {
        loop();
    } catch (...) {
        failure = std::current_exception();
        quit();
    }
}

/// The message of a failure.
std::string Describe(std::exception_ptr const& failure);
/// A folder as the user can find it: absolute, without "..".
std::string Shown(std::filesystem::path const& folder);
/// Names each content module that is listed, has a library and failed to load.
void ReportContentModulesNotLoaded();

/// Opens the world Game::_current_world: creates its folder when it is new,
/// loads its saved entities, then lets every server module see it
/// (Server_Load). Fills report before the modules see the world. Throws
/// std::runtime_error naming the world and its folder when it cannot be loaded.
void LoadWorld(bool setAsideDamaged, game::entity::ServerSideEntity::LoadReport& report);
/// The summary's lines of the ticks that ran over their time and of the
/// resting bodies the last physics step left out.
void PrintOverruns(HostOptions const& options, RunStats const& stats);
/// Starts the game: isActive, the physics seed, --stress, Game::Start and
/// Ready. A failure ends up in failure; returns whether the game started.
bool StartGame(HostOptions const& options, std::exception_ptr& failure);
/// Opens the world Game::_current_world of a started game with LoadWorld. A
/// failure ends up in failure; returns whether the world loaded completely.
bool OpenStartedWorld(HostOptions const& options, game::entity::ServerSideEntity::LoadReport& report,
                      std::exception_ptr& failure);
/// StartGame, then OpenStartedWorld. A failure ends up in failure;
/// returns whether the world loaded completely, and so must be saved.
bool OpenWorld(HostOptions const& options, game::entity::ServerSideEntity::LoadReport& report,
               std::exception_ptr& failure);
/// Ends a run: saves the world when worldOpen (also after a failed frame or
/// tick, so that no progress is lost; a world that did not load completely
/// stays on disk as it was), releases the entities and stops the game. The
/// first failure of these goes into failure unless it holds one already.
void CloseWorld(bool worldOpen, std::exception_ptr& failure);
/// The files a load set aside, once more at the very end where the player sees them.
void ListSetAside(std::vector<std::string> const& files);
/// The modules' part of the world (Server_Serialize), then the entities placed
/// in it, which are released. A failing module does not keep the entities
/// from being saved; its failure is thrown afterwards.
void SaveWorld();
/// Saves as SaveWorld does but keeps the world running; failures are reported
/// and the run goes on.
void SaveWorldNow();
/// Releases the entities left (after a failed load) without saving them or
/// removing their files. Runs while the content modules are loaded.
void ReleaseEntitiesKeepingFiles();

/// The server ticks until the game stops or --ticks is reached, in real time
/// at --tick-rate unless --ticks asks for speed, with the periodic saves. With
/// quitThroughClient (a main loop owns the cursor), it leaves Ctrl+C to that
/// loop and ends the run after --ticks through RequestClientQuit.
/// With a watcher (--watch-modules), new module builds load between ticks.
void ServerLoop(HostOptions const& options, RunStats& stats, Trace* trace, bool quitThroughClient,
                ModuleWatcher* watcher = nullptr);

} // namespace host
