#include "game/modules/GAME_Mod.hpp"

#include "game/modules/ModuleImpl.hpp"

namespace game::modules {

void GameModHooks::BindHooks(void* handle) {
    BindSymbol(handle, "Game_Start", Game_Start);
    BindSymbol(handle, "Game_Ready", Game_Ready);
    BindSymbol(handle, "Game_Stop", Game_Stop);
    BindSymbol(handle, "Game_Update", Game_Update);
    BindSymbol(handle, "Game_ClientUpdate", Game_ClientUpdate);
    BindSymbol(handle, "Input_Update", Input_Update);
    BindSymbol(handle, "Input_Update_Play", Input_Update_Play);
    BindSymbol(handle, "Input_Update_Station", Input_Update_Station);
    BindSymbol(handle, "Input_Key_Play", Input_Key_Play);
    BindSymbol(handle, "Input_Key_Station", Input_Key_Station);
    BindSymbol(handle, "Input_Char_Play", Input_Char_Play);
    BindSymbol(handle, "Input_Char_Station", Input_Char_Station);
    BindSymbol(handle, "Input_MouseButton_Play", Input_MouseButton_Play);
    BindSymbol(handle, "Input_MouseButton_Station", Input_MouseButton_Station);
    BindSymbol(handle, "Input_MouseScroll_Play", Input_MouseScroll_Play);
    BindSymbol(handle, "Input_MouseScroll_Station", Input_MouseScroll_Station);
    BindSymbol(handle, "Client_Connected", Client_Connected);
    BindSymbol(handle, "Client_Send", Client_Send);
    BindSymbol(handle, "Client_Receive", Client_Receive);
    BindSymbol(handle, "Physics_PlayerPosition", Physics_PlayerPosition);
    BindSymbol(handle, "Physics_CameraPosition", Physics_CameraPosition);
    BindSymbol(handle, "Renderer_StartRendering", Renderer_StartRendering);
    BindSymbol(handle, "Renderer_StopRendering", Renderer_StopRendering);
    BindSymbol(handle, "Renderer_RefreshViewport", Renderer_RefreshViewport);
    BindSymbol(handle, "Renderer_FrameCollectGarbage", Renderer_FrameCollectGarbage);
    BindSymbol(handle, "Renderer_FrameUpdateDescriptorSets", Renderer_FrameUpdateDescriptorSets);
    BindSymbol(handle, "Renderer_FrameBeforePost", Renderer_FrameBeforePost);
    BindSymbol(handle, "Renderer_FrameInit", Renderer_FrameInit);
    BindSymbol(handle, "Renderer_FrameUpdateUi", Renderer_FrameUpdateUi);
    BindSymbol(handle, "Renderer_FrameBeforeUpdate", Renderer_FrameBeforeUpdate);
    BindSymbol(handle, "Renderer_FrameUpdate", Renderer_FrameUpdate);
    BindSymbol(handle, "Renderer_FrameAfterUpdate", Renderer_FrameAfterUpdate);
    BindSymbol(handle, "Renderer_FrameBeforeRender", Renderer_FrameBeforeRender);
    BindSymbol(handle, "Renderer_FrameAfterRender", Renderer_FrameAfterRender);
    BindSymbol(handle, "Renderer_FramePushCommands", Renderer_FramePushCommands);
    BindSymbol(handle, "Renderer_FrameBuildCommands", Renderer_FrameBuildCommands);
    BindSymbol(handle, "Renderer_FrameRenderCommands", Renderer_FrameRenderCommands);
    BindSymbol(handle, "Renderer_FrameResolveCommands", Renderer_FrameResolveCommands);
    BindSymbol(handle, "Renderer_FrameBlitCommands", Renderer_FrameBlitCommands);
    BindSymbol(handle, "Renderer_FramePostCommands", Renderer_FramePostCommands);
    BindSymbol(handle, "Renderer_FrameOverlayCommands", Renderer_FrameOverlayCommands);
}

template class Module<GAME_Mod, GameModHooks>;
template GAME_Mod::Ptr LoadModuleLib<GAME_Mod>(std::string const&, std::string const&, bool, std::string const&);

} // namespace game::modules
