#pragma once
// What both of the host's runs do with modules and input passes.
#include <string>
#include <vector>

namespace host {

/// Loads each named module of ModuleClass (GAME_Mod, SERVER_Mod); every failure is
/// reported by the class's load error callback. Returns false when any failed.
template <class ModuleClass> bool LoadModules(std::vector<std::string> const& names) {
    bool ok = true;
    for (std::string const& name : names) {
        if (!ModuleClass::LoadModule(name, true)) ok = false;
    }
    return ok;
}

/// Sorts the client modules into the lists "update", "render", "post", "overlay"
/// and "ui", by name: a stable, readable order. Modules that need another order
/// among themselves are sorted again by whoever knows it.
void SortClientModuleLists();

/// One input pass: the controller and every module, then the pass of the input
/// mode (play or station).
void RunInputPass(double deltaTime);

} // namespace host
