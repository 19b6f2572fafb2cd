#pragma once
#include "game/modules/Hooks.hpp"
#include "game/modules/Module.hpp"

namespace game::modules {

/// Hooks of TESSARA_Mod modules, the content modules that Game::Start loads by the names
/// in Game::_mods and Game::Stop unloads.
struct TessaraModHooks {
    /// Class name: key suffix and file name part of these modules.
    static constexpr char const className[] = "TESSARA_Mod";
    /// Looks up this table's symbols in the library.
    void BindHooks(void* handle);

    /// Symbol "_TESSARA_Mod_VERSION": address of the module's version data. Stored only.
    void const* _TESSARA_Mod_VERSION = nullptr;
    /// Symbol "Load": called by Game::Start after all content modules are loaded.
    ContentHook Load = nullptr;
    /// Symbol "Unload": called by Game::Stop before the content modules are unloaded.
    ContentHook Unload = nullptr;
};

/// Content modules: modules/NAME/NAME.TESSARA_Mod.so.
class TESSARA_Mod final : public Module<TESSARA_Mod, TessaraModHooks> {
public:
    using Module::Module;
};

extern template class Module<TESSARA_Mod, TessaraModHooks>;
extern template TESSARA_Mod::Ptr LoadModuleLib<TESSARA_Mod>(std::string const&, std::string const&, bool,
                                                            std::string const&);

} // namespace game::modules
