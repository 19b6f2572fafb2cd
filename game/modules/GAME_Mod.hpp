#pragma once
#include "game/modules/Hooks.hpp"
#include "game/modules/Module.hpp"

namespace game::modules {

/// Hooks of GAME_Mod modules, the client side. Each comment says when the hook runs and
/// how it is routed: through ForEachModule ("all modules"), through the ordered list of
/// ForEachSortedModule that is named, or by the host or a network module directly.
///
/// Threads (see Hooks.hpp): Game_Start, Game_Ready and Game_Stop run on the host's main
/// thread while no pass runs; Game_Update and Game_ClientUpdate on the client pass's
/// thread; the Input_ hooks on the input pass's thread; the Renderer_ hooks on the render
/// thread, inside one frame or around the renderer's start and stop. Client, input and
/// render passes may run at the same time as each other and as the server tick. Each
/// hook holds the shared lock of the GAME_Mod table and no other lock of the game.
struct GameModHooks {
    /// Class name: key suffix and file name part of these modules.
    static constexpr char const className[] = "GAME_Mod";
    /// Looks up this table's symbols in the library.
    void BindHooks(void* handle);

    /// Symbol "Game_Start": Game::Start, all modules.
    VoidHook Game_Start = nullptr;
    /// Symbol "Game_Ready": Game::Ready, all modules.
    VoidHook Game_Ready = nullptr;
    /// Symbol "Game_Stop": Game::Stop, all modules.
    VoidHook Game_Stop = nullptr;
    /// Symbol "Game_Update": each client pass of Game::Update, list "update".
    DeltaTimeHook Game_Update = nullptr;
    /// Symbol "Game_ClientUpdate": Game::ClientUpdate, all modules.
    VoidHook Game_ClientUpdate = nullptr;
    /// Symbol "Input_Update": each input pass, all modules.
    DeltaTimeHook Input_Update = nullptr;
    /// Symbol "Input_Update_Play": each input pass in play mode, all modules.
    DeltaTimeHook Input_Update_Play = nullptr;
    /// Symbol "Input_Update_Station": each input pass in station mode, all modules.
    DeltaTimeHook Input_Update_Station = nullptr;
    /// Symbol "Input_Key_Play": key event in play mode, from the host.
    KeyHook Input_Key_Play = nullptr;
    /// Symbol "Input_Key_Station": key event in station mode, from the host.
    KeyHook Input_Key_Station = nullptr;
    /// Symbol "Input_Char_Play": typed character in play mode, from the host.
    CharHook Input_Char_Play = nullptr;
    /// Symbol "Input_Char_Station": typed character in station mode, from the host.
    CharHook Input_Char_Station = nullptr;
    /// Symbol "Input_MouseButton_Play": mouse button in play mode, from the host.
    MouseButtonHook Input_MouseButton_Play = nullptr;
    /// Symbol "Input_MouseButton_Station": mouse button in station mode, from the host.
    MouseButtonHook Input_MouseButton_Station = nullptr;
    /// Symbol "Input_MouseScroll_Play": scrolling in play mode, from the host.
    MouseScrollHook Input_MouseScroll_Play = nullptr;
    /// Symbol "Input_MouseScroll_Station": scrolling in station mode, from the host.
    MouseScrollHook Input_MouseScroll_Station = nullptr;
    /// Symbol "Client_Connected": the client reached the server; from the host or a network module.
    VoidHook Client_Connected = nullptr;
    /// Symbol "Client_Send": send the client's pending messages; from the host or a network module.
    VoidHook Client_Send = nullptr;
    /// Symbol "Client_Receive": one message from the server; from the host or a network module.
    ClientReceiveHook Client_Receive = nullptr;
    /// Symbol "Physics_PlayerPosition": the player's position; from the host or a network module.
    PositionHook Physics_PlayerPosition = nullptr;
    /// Symbol "Physics_CameraPosition": the camera's position; from the host or a network module.
    PositionHook Physics_CameraPosition = nullptr;
    /// Symbol "Renderer_StartRendering": rendering starts, all modules.
    VoidHook Renderer_StartRendering = nullptr;
    /// Symbol "Renderer_StopRendering": rendering stops, all modules.
    VoidHook Renderer_StopRendering = nullptr;
    /// Symbol "Renderer_RefreshViewport": the viewport changed size, all modules.
    VoidHook Renderer_RefreshViewport = nullptr;
    /// Symbol "Renderer_FrameCollectGarbage": frame stage, all modules.
    VoidHook Renderer_FrameCollectGarbage = nullptr;
    /// Symbol "Renderer_FrameUpdateDescriptorSets": frame stage, all modules.
    VoidHook Renderer_FrameUpdateDescriptorSets = nullptr;
    /// Symbol "Renderer_FrameBeforePost": frame stage, all modules.
    VoidHook Renderer_FrameBeforePost = nullptr;
    /// Symbol "Renderer_FrameInit": frame stage, all modules.
    VoidHook Renderer_FrameInit = nullptr;
    /// Symbol "Renderer_FrameUpdateUi": frame stage, list "ui".
    VoidHook Renderer_FrameUpdateUi = nullptr;
    /// Symbol "Renderer_FrameBeforeUpdate": frame stage, list "update".
    VoidHook Renderer_FrameBeforeUpdate = nullptr;
    /// Symbol "Renderer_FrameUpdate": frame stage, list "update".
    VoidHook Renderer_FrameUpdate = nullptr;
    /// Symbol "Renderer_FrameAfterUpdate": frame stage, list "update".
    VoidHook Renderer_FrameAfterUpdate = nullptr;
    /// Symbol "Renderer_FrameBeforeRender": frame stage, list "render".
    VoidHook Renderer_FrameBeforeRender = nullptr;
    /// Symbol "Renderer_FrameAfterRender": frame stage, list "render".
    VoidHook Renderer_FrameAfterRender = nullptr;
    /// Symbol "Renderer_FramePushCommands": frame commands, all modules.
    CommandBufferHook Renderer_FramePushCommands = nullptr;
    /// Symbol "Renderer_FrameBuildCommands": frame commands, all modules.
    CommandBufferHook Renderer_FrameBuildCommands = nullptr;
    /// Symbol "Renderer_FrameRenderCommands": frame commands, list "render".
    CommandBufferHook Renderer_FrameRenderCommands = nullptr;
    /// Symbol "Renderer_FrameResolveCommands": frame commands, list "post".
    CommandBufferHook Renderer_FrameResolveCommands = nullptr;
    /// Symbol "Renderer_FrameBlitCommands": frame commands, list "post".
    CommandBufferHook Renderer_FrameBlitCommands = nullptr;
    /// Symbol "Renderer_FramePostCommands": frame commands, list "post".
    CommandBufferHook Renderer_FramePostCommands = nullptr;
    /// Symbol "Renderer_FrameOverlayCommands": frame commands, list "overlay".
    CommandBufferHook Renderer_FrameOverlayCommands = nullptr;
};

/// Client-side modules: modules/NAME/NAME.GAME_Mod.so.
class GAME_Mod final : public Module<GAME_Mod, GameModHooks> {
public:
    using Module::Module;
};

extern template class Module<GAME_Mod, GameModHooks>;
extern template GAME_Mod::Ptr LoadModuleLib<GAME_Mod>(std::string const&, std::string const&, bool, std::string const&);

} // namespace game::modules
