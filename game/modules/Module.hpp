#pragma once
// The common shape of the four module classes (GAME_Init, GAME_Mod, SERVER_Mod,
// TESSARA_Mod). A module is a shared library at modules/NAME/NAME.CLASS.so, relative to
// the working directory. Loading it opens the library and looks up a fixed list of C
// symbols, the class's hooks; a symbol the library does not export leaves its hook null,
// so callers test a hook before calling it:
//
//     GAME_Mod::ForEachModule([](GAME_Mod::Ptr& mod) {
//         if (mod->Game_Start) mod->Game_Start();
//     });
//
// Each class keeps its own table of loaded modules and its own ordered lists, guarded by
// one reader-writer lock. Hooks called through ForEachModule or ForEachSortedModule run
// under the shared lock, so inside a hook GetModule, Count, ForEachModule and
// ForEachSortedModule of the same class work, while LoadModule, UnloadModule,
// UnloadModules, SortModules and GetLock of the same class deadlock. ModuleLoad and the
// three callbacks run under the exclusive lock: there, every operation of the same class
// deadlocks. Operations of the other classes are free everywhere.
//
// The class template's members are defined in ModuleImpl.hpp and instantiated once, in
// game.so, by each class's .cpp file; module libraries use that one copy.
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "game/modules/Hooks.hpp"
#include "nerox/SharedMutex.hpp"
#include "nerox/modular/ModuleID.hpp"

namespace game::modules {

/// The fields that every module has ahead of its class's hooks.
struct ModuleRecord {
    /// Built from `name`; unset when the name is not of the form VENDOR_name.
    nerox::modular::ModuleID id;
    /// The module's name as given to LoadModule.
    std::string name;
    /// File name of the library, ending in ".so".
    std::string path;
    /// Last write time of the file (file clock count / 1e6), 0 when there was no file.
    double lastWriteTime = 0;
    /// Result of dlopen; null when the library could not be opened.
    void* handle = nullptr;
    /// dlerror's text when dlopen failed, else null. Owned by the module.
    char const* error = nullptr;
    /// Symbol "ModuleLoad", called once the library is open.
    ModuleLifecycleHook ModuleLoad = nullptr;
    /// Symbol "ModuleUnload", called right before the library is closed.
    ModuleLifecycleHook ModuleUnload = nullptr;
    /// Symbol "ModuleSort". Stored only.
    ModuleSortHook ModuleSort = nullptr;
    /// Symbol "ModuleSetCustomPtr". Stored only.
    ModuleSetCustomPtrHook ModuleSetCustomPtr = nullptr;
    /// Symbol "ModuleGetCustomPtr". Stored only.
    ModuleGetCustomPtrHook ModuleGetCustomPtr = nullptr;
};

/// The default load error callback: writes the text and a line end to std::cerr.
void ReportModuleLoadError(char const* text);

/// Loads the library at path + ".so" as a module of class T under the key name + "." + type,
/// or returns the module already loaded under that key. Returns null when the library cannot
/// be opened; with reportFailure the failure text goes to T's load error callback first.
template <class T>
typename T::Ptr LoadModuleLib(std::string const& name, std::string const& type, bool reportFailure,
                              std::string const& path);

/// A loaded module library of class Self. Hooks is the class's hook table: a struct of hook
/// fields named after their symbols, with `static constexpr char const className[]` and a
/// member `void BindHooks(void* handle)` that looks the symbols up.
template <class Self, class Hooks> class Module : public ModuleRecord, public Hooks {
public:
    /// Shared owner of a module; the library stays open while any Ptr lives.
    using Ptr = std::shared_ptr<Self>;
    /// Callback for loads and unloads.
    using ModuleCallback = std::function<void(Ptr)>;
    /// Callback for load failures; gets the failure text.
    using ErrorCallback = std::function<void(char const*)>;

    /// Opens path + ".so", binds the symbols and calls ModuleLoad. Only LoadModuleLib calls it.
    Module(std::string const& name, std::string const& path);
    /// Calls ModuleUnload, then closes the library.
    virtual ~Module();
    Module(Module const&) = delete;
    Module& operator=(Module const&) = delete;

    /// Loads modules/NAME/NAME.CLASS.so, or returns the module already loaded. Null on failure.
    static Ptr LoadModule(std::string const& name, bool reportFailure);
    /// Calls the unload callback, then removes the module from the table and from every ordered list.
    static void UnloadModule(std::string const& name);
    /// Empties the table and all ordered lists, without calling the unload callback.
    static void UnloadModules();
    /// The loaded module of this name, or null.
    static Ptr GetModule(std::string const& name);
    /// Number of loaded modules.
    static size_t Count();
    /// The class's lock, held exclusively by the result.
    static std::unique_lock<nerox::SharedMutex> GetLock();
    /// Calls the function for every loaded module, in the table's own order, under the shared lock.
    static void ForEachModule(std::function<void(Ptr&)> const&& function);
    /// Calls the function for every module of the ordered list `key`, in list order, under the shared lock.
    static void ForEachSortedModule(char const* key, std::function<void(Ptr&)> const&& function);
    /// Rebuilds the ordered list `key` from all loaded modules, sorted by `compare`.
    static void SortModules(char const* key, std::function<bool(Ptr, Ptr)> const& compare);
    /// Replaces the callback that runs after each load.
    static void ModulesSetLoadCallback(ModuleCallback const&& callback);
    /// Replaces the callback that runs before an unload by name.
    static void ModulesSetUnloadCallback(ModuleCallback const&& callback);
    /// Replaces the callback that gets the text of a reported load failure.
    static void ModulesSetLoadErrorCallback(ErrorCallback const&& callback);

    /// All loaded modules, keyed by "NAME.CLASS".
    static std::unordered_map<std::string, Ptr> _loadedModules;
    /// Ordered lists of modules, keyed by list name ("update", "render", ...).
    static std::unordered_map<std::string, std::vector<Ptr>> _loadedSortedModules;
    /// Guards both tables.
    static nerox::SharedMutex _mutexForLoadedModules;
    /// Runs after a load, under the exclusive lock. Default: nothing.
    static ModuleCallback _modulesLoadCallback;
    /// Runs before an unload by name, under the exclusive lock. Default: nothing.
    static ModuleCallback _modulesUnloadCallback;
    /// Gets the text of a reported load failure, under the exclusive lock. Default: ReportModuleLoadError.
    static ErrorCallback _modulesLoadErrorCallback;

private:
    // Copy of dlerror's text; `error` points into it. dlerror's own buffer is reused by later calls.
    std::string _errorText;
};

} // namespace game::modules
