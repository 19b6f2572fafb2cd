#include "game/modules/TESSARA_Mod.hpp"

#include "game/modules/ModuleImpl.hpp"

namespace game::modules {

void TessaraModHooks::BindHooks(void* handle) {
    BindSymbol(handle, "_TESSARA_Mod_VERSION", _TESSARA_Mod_VERSION);
    BindSymbol(handle, "Load", Load);
    BindSymbol(handle, "Unload", Unload);
}

template class Module<TESSARA_Mod, TessaraModHooks>;
template TESSARA_Mod::Ptr LoadModuleLib<TESSARA_Mod>(std::string const&, std::string const&, bool, std::string const&);

} // namespace game::modules
