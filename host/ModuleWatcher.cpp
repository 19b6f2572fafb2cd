#include "ModuleWatcher.hpp"
#include "ModuleSetup.hpp"

#include "game/Game.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "game/modules/GAME_Mod.hpp"
#include "game/modules/SERVER_Mod.hpp"
#include "game/modules/TESSARA_Mod.hpp"

#include <elf.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <thread>
#include <utility>

namespace host {

namespace {

using game::modules::GAME_Mod;
using game::modules::SERVER_Mod;
using game::modules::TESSARA_Mod;

#if defined(__x86_64__)
constexpr uint16_t hostMachine = EM_X86_64;
#elif defined(__aarch64__)
constexpr uint16_t hostMachine = EM_AARCH64;
#else
constexpr uint16_t hostMachine = EM_NONE; // not checked
#endif

// Whether [offset, offset + count * size) lies within a file of fileSize bytes.
bool Within(uint64_t offset, uint64_t count, uint64_t size, uint64_t fileSize) {
    if (count != 0 && size > fileSize / count) return false;
    return offset <= fileSize && count * size <= fileSize - offset;
}

// The dynamic loader knows an open library by its path, and may keep an old
// build mapped after it is closed (a library that defines symbols other
// libraries bound to stays). So a new build is opened from a copy of its own
// name beside the library: the same folder, a name never used before. The copy
// is taken at once and checked itself, so a build that starts over meanwhile
// cannot slip in half written. Returns the copy's path without ".so", or ""
// with why.
std::string CopyForLoading(std::string const& path, LibraryFileState const& checked, std::string& why) {
    static std::atomic<unsigned> copies{0};
    std::string const stem = path.substr(0, path.size() - 3); // path ends with ".so"
    std::string const copy = stem + ".build" + std::to_string(getpid()) + "-" + std::to_string(++copies);
    std::error_code error;
    std::filesystem::copy_file(path, copy + ".so", std::filesystem::copy_options::overwrite_existing, error);
    if (error) {
        why = "it cannot be copied beside itself: " + error.message();
        return {};
    }
    if (!(LibraryFileState::Of(path) == checked) || !IsCompleteLibrary(copy + ".so", why)) {
        if (why.empty()) why = "it changed while it was copied";
        std::filesystem::remove(copy + ".so", error);
        return {};
    }
    return copy;
}

// Removes a file when it goes out of scope.
struct RemoveFile {
    std::string file;
    ~RemoveFile() {
        std::error_code error;
        std::filesystem::remove(file, error);
    }
};

void Say(std::string const& text) {
    std::fflush(stdout);
    std::cerr << "tessara: " << text << std::endl;
}

// Loads the new build of module name of class T from its copy (CopyForLoading);
// the old one has been unloaded. Reports a failure; returns the module or null.
template <class T>
typename T::Ptr LoadNewBuild(std::string const& name, char const* moduleClass, std::string const& copy) {
    return game::modules::LoadModuleLib<T>(name, moduleClass, true, copy);
}

} // namespace

LibraryFileState LibraryFileState::Of(std::string const& path) {
    LibraryFileState state;
    struct stat info { };
    if (stat(path.c_str(), &info) != 0) return state;
    state.exists = true;
    state.device = info.st_dev;
    state.inode = info.st_ino;
    state.size = info.st_size;
    state.modifiedNs = static_cast<int64_t>(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec;
    return state;
}

bool IsCompleteLibrary(std::string const& path, std::string& why) {
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    if (!file) {
        why = "it cannot be read";
        return false;
    }
    uint64_t const fileSize = static_cast<uint64_t>(file.tellg());
    Elf64_Ehdr header{};
    file.seekg(0);
    if (fileSize < sizeof header || !file.read(reinterpret_cast<char*>(&header), sizeof header) ||
        std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) {
        why = "it is not an ELF file";
        return false;
    }
    if (header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_type != ET_DYN ||
        (hostMachine != EM_NONE && header.e_machine != hostMachine)) {
        why = "it is not a 64-bit shared library for this machine";
        return false;
    }
    if (header.e_phentsize != sizeof(Elf64_Phdr) ||
        !Within(header.e_phoff, header.e_phnum, header.e_phentsize, fileSize) ||
        (header.e_shnum != 0 && header.e_shentsize != sizeof(Elf64_Shdr)) ||
        !Within(header.e_shoff, header.e_shnum, header.e_shentsize, fileSize)) {
        why = "it ends before its tables (still being written?)";
        return false;
    }
    file.seekg(static_cast<std::streamoff>(header.e_phoff));
    for (unsigned i = 0; i < header.e_phnum; ++i) {
        Elf64_Phdr segment{};
        if (!file.read(reinterpret_cast<char*>(&segment), sizeof segment)) {
            why = "its segment table cannot be read";
            return false;
        }
        if (!Within(segment.p_offset, 1, segment.p_filesz, fileSize)) {
            why = "it ends before its segment " + std::to_string(i) + " (still being written?)";
            return false;
        }
    }
    return true;
}

ModuleWatcher::ModuleWatcher(std::string worldName, double settleSeconds, double pollSeconds)
    : _world(std::move(worldName)),
      _settle(std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(settleSeconds))),
      _poll(std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(pollSeconds))) { }

void ModuleWatcher::Start() {
    _watched.clear();
    auto note = [this](char const* moduleClass, std::string const& name, std::string const& path) {
        _watched.push_back({moduleClass, name, path, LibraryFileState::Of(path), {}, {}});
    };
    GAME_Mod::ForEachModule([&](GAME_Mod::Ptr& mod) { note("GAME_Mod", mod->name, mod->path); });
    SERVER_Mod::ForEachModule([&](SERVER_Mod::Ptr& mod) { note("SERVER_Mod", mod->name, mod->path); });
    TESSARA_Mod::ForEachModule([&](TESSARA_Mod::Ptr& mod) { note("TESSARA_Mod", mod->name, mod->path); });
    std::printf("Watching %zu module libraries for new builds\n", _watched.size());
    std::fflush(stdout);
}

bool ModuleWatcher::Ready(Watched& entry, Clock::time_point now) {
    LibraryFileState const state = LibraryFileState::Of(entry.path);
    if (state == entry.taken) {
        entry.candidate = state;
        return false;
    }
    if (!(state == entry.candidate)) { // changed since the last look: wait until it stays so
        entry.candidate = state;
        entry.since = now;
        return false;
    }
    if (!state.exists || now - entry.since < _settle) return false;
    std::string why;
    entry.taken = state; // this file is dealt with, loaded or refused, once
    if (IsCompleteLibrary(entry.path, why)) entry.copy = CopyForLoading(entry.path, state, why);
    if (entry.copy.empty()) {
        Say("the new " + entry.path + " is refused: " + why + "; the module goes on as it was");
        return false;
    }
    return true;
}

void ModuleWatcher::Poll() {
    Clock::time_point const now = Clock::now();
    if (now < _nextPoll) return;
    _nextPoll = now + _poll;
    for (Watched& entry : _watched) {
        if (!Ready(entry, now)) continue;
        std::string const copy = std::exchange(entry.copy, {});
        if (entry.moduleClass == "SERVER_Mod") {
            if (!ReloadServerModule(entry.name, entry.path, copy)) entry.taken = {}; // the old build goes on: retry
        } else if (entry.moduleClass == "GAME_Mod") {
            std::lock_guard lock(_clientMutex);
            _clientDue.push_back({entry.name, entry.path, copy});
        } else {
            std::error_code error;
            std::filesystem::remove(copy + ".so", error);
            Say("a new build of the content module " + entry.name +
                " is ready; content modules are loaded again at the next start, since their objects live in the "
                "world's entities");
        }
    }
}

void ModuleWatcher::ClientPass() {
    _clientPasses.fetch_add(1);
    std::vector<Due> due;
    {
        std::lock_guard lock(_clientMutex);
        due.swap(_clientDue);
    }
    for (Due const& reload : due) ReloadClientModule(reload.name, reload.path, reload.copy);
}

void ModuleWatcher::AwaitQueuedWork() const {
    // Game::Synchronize work that the module queued runs in the next Game::Update,
    // which comes after the next ClientPass: wait for the one after that.
    uint64_t const seen = _clientPasses.load();
    auto const giveUp = Clock::now() + std::chrono::seconds(5);
    while (_clientPasses.load() < seen + 2 && Game::isActive.load() && Clock::now() < giveUp)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

bool ModuleWatcher::ReloadServerModule(std::string const& name, std::string const& path, std::string const& copy) {
    RemoveFile const removeCopy{copy + ".so"}; // once loaded, or refused, the copy is no longer needed
    if (SERVER_Mod::Ptr old = SERVER_Mod::GetModule(name)) {
        try {
            if (old->Server_Serialize) old->Server_Serialize(); // it keeps what it must before it goes
        } catch (std::exception const& failure) {
            Say("the server module " + name + " failed to save before its reload: " + failure.what() +
                "; its loaded build goes on");
            return false;
        }
        SERVER_Mod::UnloadModule(name); // no hook reaches it any more
        AwaitQueuedWork();
    } // the last holder is gone: ModuleUnload, and the library closes
    try {
        SERVER_Mod::Ptr const fresh = LoadNewBuild<SERVER_Mod>(name, "SERVER_Mod", copy);
        if (!fresh) {
            Say("the server module " + name + " stays out until a build of it loads; the game goes on");
            return true;
        }
        if (fresh->Server_Load) fresh->Server_Load(_world.c_str());
        Say("loaded the new build of " + path);
    } catch (std::exception const& failure) {
        Say("loading the new build of " + path + " failed: " + failure.what() + "; the game goes on");
    }
    return true;
}

void ModuleWatcher::ReloadClientModule(std::string const& name, std::string const& path, std::string const& copy) {
    RemoveFile const removeCopy{copy + ".so"};
    try {
        // Work the module queued with Game::Synchronize runs now, on its own thread,
        // while its code is still there.
        {
            std::lock_guard lock(Game::_syncMutex);
            for (auto& function : Game::_syncQueue) function();
            Game::_syncQueue.clear();
        }
        game::graphics::GameRenderer* const renderer = Game::renderer;
        bool const rendering = renderer != nullptr && renderer->IsRendering();
        if (GAME_Mod::Ptr old = GAME_Mod::GetModule(name)) {
            if (rendering) {
                renderer->GetDevice().WaitIdle(); // no frame in flight uses what the module made
                if (old->Renderer_StopRendering) old->Renderer_StopRendering();
            }
            if (old->Game_Stop) old->Game_Stop();
            GAME_Mod::UnloadModule(name);
        }
        GAME_Mod::Ptr const fresh = LoadNewBuild<GAME_Mod>(name, "GAME_Mod", copy);
        if (!fresh) {
            Say("the client module " + name + " stays out until a build of it loads; the game goes on");
            SortClientModuleLists();
            return;
        }
        if (fresh->Game_Start) fresh->Game_Start();
        if (rendering && fresh->Renderer_StartRendering) fresh->Renderer_StartRendering();
        if (fresh->Game_Ready) fresh->Game_Ready();
        SortClientModuleLists();
        Say("loaded the new build of " + path);
    } catch (std::exception const& failure) {
        SortClientModuleLists();
        Say("loading the new build of " + path + " failed: " + failure.what() + "; the game goes on");
    }
}

} // namespace host
