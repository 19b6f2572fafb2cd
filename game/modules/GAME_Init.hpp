#pragma once
#include "game/modules/Hooks.hpp"
#include "game/modules/Module.hpp"

namespace game::modules {

/// Hooks of GAME_Init modules, which the host calls while it chooses a graphics device
/// and shows its splash screen. Nothing in game.so calls them.
struct GameInitHooks {
    /// Class name: key suffix and file name part of these modules.
    static constexpr char const className[] = "GAME_Init";
    /// Looks up this table's symbols in the library.
    void BindHooks(void* handle);

    /// Symbol "Vulkan_Init": gets the created VkInstance.
    VulkanInitHook Vulkan_Init = nullptr;
    /// Symbol "Vulkan_ScoreGPU": scores one physical device.
    VulkanScoreGPUHook Vulkan_ScoreGPU = nullptr;
    /// Symbol "SplashBegin": the splash screen appears.
    VoidHook SplashBegin = nullptr;
    /// Symbol "SplashEnd": the splash screen goes away.
    VoidHook SplashEnd = nullptr;
};

/// Early start-up modules: modules/NAME/NAME.GAME_Init.so.
class GAME_Init final : public Module<GAME_Init, GameInitHooks> {
public:
    using Module::Module;
};

extern template class Module<GAME_Init, GameInitHooks>;
extern template GAME_Init::Ptr LoadModuleLib<GAME_Init>(std::string const&, std::string const&, bool,
                                                        std::string const&);

} // namespace game::modules
