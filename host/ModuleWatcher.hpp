#pragma once
// tessara --watch-modules: new builds of module libraries are loaded while the
// world runs.
#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace host {

/// What the file system says of a library file; a new build changes it.
struct LibraryFileState {
    bool exists = false;
    uint64_t device = 0;
    uint64_t inode = 0;
    int64_t size = 0;
    int64_t modifiedNs = 0;
    bool operator==(LibraryFileState const&) const = default;

    static LibraryFileState Of(std::string const& path);
};

/// Whether the file at path is a complete ELF shared library for this machine:
/// its header, and every program segment and the section table it names, lie
/// within the file. A linker writes the section table last, so a library that
/// is still being written fails this. Otherwise says why in `why`.
bool IsCompleteLibrary(std::string const& path, std::string& why);

/// Watches the libraries of the loaded client and server modules, and of the
/// content modules, and loads each new build.
///
/// A changed file is taken once it has stayed the same for settleSeconds and
/// is a complete library; until then the loaded build goes on. Then, between
/// two server ticks (Poll, server thread):
/// - a SERVER_Mod module gets Server_Serialize and leaves the tables; once the
///   work it queued with Game::Synchronize has run, it is released (ModuleUnload,
///   the library closed); its new build is loaded (ModuleLoad) and gets
///   Server_Load with the world's name. The new build is opened from a copy
///   beside the library, so that the loader cannot hand back an old build it
///   keeps mapped. If Server_Serialize throws, the loaded build goes on;
/// - a GAME_Mod module waits for the next client pass (ClientPass, the thread
///   of the client passes): the Game::Synchronize queue is run, then
///   Renderer_StopRendering (when rendering) and Game_Stop, unloaded, loaded,
///   Game_Start, Renderer_StartRendering, Game_Ready, and the client lists
///   sorted again;
/// - a TESSARA_Mod module is named: its objects live in the world's entities,
///   so its new build is taken at the next start.
/// A library that fails to load is reported with the loader's reason; the
/// module stays out and the game goes on. Its next build is tried again.
/// These run while the other passes go on: a module being reloaded can be
/// reached through GetModule by another thread between its load and its
/// Server_Load or Game_Start.
class ModuleWatcher {
public:
    using Clock = std::chrono::steady_clock;

    /// worldName is handed to Server_Load of reloaded server modules.
    explicit ModuleWatcher(std::string worldName, double settleSeconds = 0.3, double pollSeconds = 0.1);

    /// Notes the files of every module loaded now. Call once the world is open.
    void Start();
    /// Server thread, between ticks: looks at the files (at most once per
    /// poll interval) and reloads the server modules whose new build is ready.
    void Poll();
    /// Thread of the client passes, between passes: reloads the client modules
    /// whose new build Poll found ready.
    void ClientPass();

private:
    struct Watched {
        std::string moduleClass;    ///< GAME_Mod, SERVER_Mod or TESSARA_Mod.
        std::string name;           ///< The module's name.
        std::string path;           ///< Its library.
        LibraryFileState taken;     ///< The file as last loaded, or last refused.
        LibraryFileState candidate; ///< A changed file, while it settles.
        Clock::time_point since;    ///< When the candidate was first seen so.
        std::string copy;           ///< The checked copy to load (without ".so"), handed from Ready to Poll.
    };
    /// A client module's new build, for the next client pass.
    struct Due {
        std::string name;
        std::string path;
        std::string copy;
    };

    /// Whether the candidate of entry is ready to be loaded; reports a file
    /// that settled incomplete once.
    bool Ready(Watched& entry, Clock::time_point now);
    /// False when the loaded build goes on (it failed to save), so that the file is tried again.
    bool ReloadServerModule(std::string const& name, std::string const& path, std::string const& copy);
    void ReloadClientModule(std::string const& name, std::string const& path, std::string const& copy);
    /// Server thread: waits until work queued with Game::Synchronize before now
    /// has run (a client pass has passed), or the game stops, or 5 s.
    void AwaitQueuedWork() const;

    std::string _world;
    Clock::duration _settle;
    Clock::duration _poll;
    Clock::time_point _nextPoll{};
    std::vector<Watched> _watched; // Poll's own (server thread)

    std::mutex _clientMutex;                // guards _clientDue
    std::vector<Due> _clientDue;            // for ClientPass
    std::atomic<uint64_t> _clientPasses{0}; // ClientPass calls so far
};

} // namespace host
