#pragma once
// Member definitions of the Module class template. Included only by the .cpp file of each
// module class, which instantiates the template explicitly; everyone else includes the
// class's own header and links against that single instantiation in game.so, so there is
// one table per class in the whole process.
#include <dlfcn.h>

#include <algorithm>
#include <filesystem>
#include <shared_mutex>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "game/modules/Module.hpp"

namespace game::modules {

/// Looks the symbol up in the library and stores its address in the field, or null when the
/// library does not export it.
template <class Field> void BindSymbol(void* handle, char const* symbol, Field& field) {
    field = reinterpret_cast<Field>(dlsym(handle, symbol));
}

template <class Self, class Hooks>
std::unordered_map<std::string, typename Module<Self, Hooks>::Ptr> Module<Self, Hooks>::_loadedModules;

template <class Self, class Hooks>
std::unordered_map<std::string, std::vector<typename Module<Self, Hooks>::Ptr>>
    Module<Self, Hooks>::_loadedSortedModules;

template <class Self, class Hooks> nerox::SharedMutex Module<Self, Hooks>::_mutexForLoadedModules;

template <class Self, class Hooks>
typename Module<Self, Hooks>::ModuleCallback Module<Self, Hooks>::_modulesLoadCallback = [](Ptr) {};

template <class Self, class Hooks>
typename Module<Self, Hooks>::ModuleCallback Module<Self, Hooks>::_modulesUnloadCallback = [](Ptr) {};

template <class Self, class Hooks>
typename Module<Self, Hooks>::ErrorCallback Module<Self, Hooks>::_modulesLoadErrorCallback = &ReportModuleLoadError;

template <class Self, class Hooks>
Module<Self, Hooks>::Module(std::string const& moduleName, std::string const& pathText) {
    id = nerox::modular::ModuleID(moduleName);
    name = moduleName;
    path = pathText + ".so";

    std::error_code failure;
    if (std::filesystem::exists(std::filesystem::status(path, failure))) {
        auto const writeTime = std::filesystem::last_write_time(path, failure);
        if (!failure) lastWriteTime = static_cast<double>(writeTime.time_since_epoch().count()) / 1e6;
    }

    // Local binding: the symbols of one module never stand in for those of another, so
    // every module can export the same hook names.
    handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL);
    if (handle == nullptr) {
        char const* const text = dlerror();
        _errorText = text != nullptr ? text : "unknown error";
        error = _errorText.c_str();
        return;
    }

    this->BindHooks(handle);
    BindSymbol(handle, "ModuleLoad", ModuleLoad);
    BindSymbol(handle, "ModuleUnload", ModuleUnload);
    BindSymbol(handle, "ModuleSort", ModuleSort);
    BindSymbol(handle, "ModuleSetCustomPtr", ModuleSetCustomPtr);
    BindSymbol(handle, "ModuleGetCustomPtr", ModuleGetCustomPtr);

    if (ModuleLoad != nullptr) {
        try {
            ModuleLoad();
        } catch (...) {
            // No destructor runs for a constructor that throws: close the library here.
            dlclose(handle);
            throw;
        }
    }
}

template <class Self, class Hooks> Module<Self, Hooks>::~Module() {
    if (ModuleUnload != nullptr) ModuleUnload();
    if (handle != nullptr) dlclose(handle);
}

template <class T>
typename T::Ptr LoadModuleLib(std::string const& name, std::string const& type, bool reportFailure,
                              std::string const& path) {
    std::unique_lock lock(T::_mutexForLoadedModules);

    std::string const key = name + "." + type;
    auto const found = T::_loadedModules.find(key);
    if (found != T::_loadedModules.end()) return found->second;

    typename T::Ptr module = std::make_shared<T>(name, path);
    if (module->handle == nullptr) {
        if (reportFailure) {
            std::string const text = "Module '" + path + "' failed to load with error: " + module->error;
            T::_modulesLoadErrorCallback(text.c_str());
        }
        return nullptr;
    }

    T::_loadedModules.emplace(key, module);
    T::_modulesLoadCallback(module);
    return module;
}

template <class Self, class Hooks>
typename Module<Self, Hooks>::Ptr Module<Self, Hooks>::LoadModule(std::string const& name, bool reportFailure) {
    std::string const type = Hooks::className;
    return LoadModuleLib<Self>(name, type, reportFailure, "modules/" + name + "/" + name + "." + type);
}

template <class Self, class Hooks> void Module<Self, Hooks>::UnloadModule(std::string const& name) {
    std::unique_lock lock(_mutexForLoadedModules);

    std::string const key = name + "." + Hooks::className;
    auto const found = _loadedModules.find(key);
    if (found == _loadedModules.end()) return;

    Ptr const module = found->second;
    _modulesUnloadCallback(module);
    _loadedModules.erase(key);
    for (auto& entry : _loadedSortedModules) std::erase(entry.second, module);
}

template <class Self, class Hooks> void Module<Self, Hooks>::UnloadModules() {
    std::unique_lock lock(_mutexForLoadedModules);
    _loadedModules.clear();
    _loadedSortedModules.clear();
}

template <class Self, class Hooks>
typename Module<Self, Hooks>::Ptr Module<Self, Hooks>::GetModule(std::string const& name) {
    std::shared_lock lock(_mutexForLoadedModules);
    auto const found = _loadedModules.find(name + "." + Hooks::className);
    return found != _loadedModules.end() ? found->second : nullptr;
}

template <class Self, class Hooks> size_t Module<Self, Hooks>::Count() {
    std::shared_lock lock(_mutexForLoadedModules);
    return _loadedModules.size();
}

template <class Self, class Hooks> std::unique_lock<nerox::SharedMutex> Module<Self, Hooks>::GetLock() {
    return std::unique_lock<nerox::SharedMutex>(_mutexForLoadedModules);
}

template <class Self, class Hooks> void Module<Self, Hooks>::ForEachModule(std::function<void(Ptr&)> const&& function) {
    std::shared_lock lock(_mutexForLoadedModules);
    for (auto const& entry : _loadedModules) {
        // The copy keeps the module alive for the call even if the hook drops its own Ptr.
        Ptr module = entry.second;
        if (module) function(module);
    }
}

template <class Self, class Hooks>
void Module<Self, Hooks>::ForEachSortedModule(char const* key, std::function<void(Ptr&)> const&& function) {
    if (key == nullptr) throw std::logic_error("ForEachSortedModule: the list key is null");
    std::string const listKey(key);

    {
        std::shared_lock lock(_mutexForLoadedModules);
        auto const found = _loadedSortedModules.find(listKey);
        if (found != _loadedSortedModules.end()) {
            std::vector<Ptr> const& list = found->second;
            for (size_t i = 0; i < list.size(); ++i) {
                Ptr module = list[i];
                if (module) function(module);
            }
            return;
        }
    }

    // A list that was never sorted is recorded as empty. Inserting needs the exclusive lock,
    // which is only tried: this may run inside a hook of this class, whose shared lock would
    // make a waiting lock deadlock, and a hot loop should not wait on the other threads'
    // readers. When the lock is busy the entry is left for a later call; the list is empty
    // either way, so no module misses a call.
    std::unique_lock lock(_mutexForLoadedModules, std::try_to_lock);
    if (lock.owns_lock()) _loadedSortedModules.try_emplace(listKey);
}

template <class Self, class Hooks>
void Module<Self, Hooks>::SortModules(char const* key, std::function<bool(Ptr, Ptr)> const& compare) {
    if (key == nullptr) throw std::logic_error("SortModules: the list key is null");
    std::string const listKey(key);

    std::unique_lock lock(_mutexForLoadedModules);
    std::vector<Ptr>& list = _loadedSortedModules[listKey];
    list.clear();
    list.reserve(_loadedModules.size());
    for (auto const& entry : _loadedModules) list.push_back(entry.second);
    std::sort(list.begin(), list.end(), compare);
}

// The callbacks are set without the lock: set them before the first load. A const source
// cannot be moved from, so the new callback is copied in.

template <class Self, class Hooks> void Module<Self, Hooks>::ModulesSetLoadCallback(ModuleCallback const&& callback) {
    _modulesLoadCallback = callback;
}

template <class Self, class Hooks> void Module<Self, Hooks>::ModulesSetUnloadCallback(ModuleCallback const&& callback) {
    _modulesUnloadCallback = callback;
}

template <class Self, class Hooks>
void Module<Self, Hooks>::ModulesSetLoadErrorCallback(ErrorCallback const&& callback) {
    _modulesLoadErrorCallback = callback;
}

} // namespace game::modules
