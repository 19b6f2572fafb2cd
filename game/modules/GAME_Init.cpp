#include "game/modules/GAME_Init.hpp"

#include "game/modules/ModuleImpl.hpp"

namespace game::modules {

void GameInitHooks::BindHooks(void* handle) {
    BindSymbol(handle, "Vulkan_Init", Vulkan_Init);
    BindSymbol(handle, "Vulkan_ScoreGPU", Vulkan_ScoreGPU);
    BindSymbol(handle, "SplashBegin", SplashBegin);
    BindSymbol(handle, "SplashEnd", SplashEnd);
}

template class Module<GAME_Init, GameInitHooks>;
template GAME_Init::Ptr LoadModuleLib<GAME_Init>(std::string const&, std::string const&, bool, std::string const&);

} // namespace game::modules
