// A module that records every hook it is called through as "TAG:Hook(argument)".
// Built once per module it stands for: RECORDER_TAG names it in the log and
// RECORDER_PRIORITY is what ModuleSort returns. Every build exports the hooks of
// every class; each class binds only its own.
#include "support/Recorder.hpp"

#include "game/Game.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "game/modules/Hooks.hpp"

#include <cstdint>
#include <cstdio>
#include <string>

namespace {
void Hook(std::string const& name, std::string const& detail = {}) {
    recorder::MaybeThrow(name);
    recorder::Record(RECORDER_TAG ":" + name + (detail.empty() ? "" : "(" + detail + ")"));
}

std::string Number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.9g", value + 0.0); // + 0.0: no "-0"
    return text;
}

std::string InScope(double deltaTime) {
    std::string const scope = recorder::CurrentScope();
    return Number(deltaTime) + (scope.empty() ? "" : " in " + scope);
}
} // namespace

#define VOID_HOOK(name)                                                                                                \
    void name() {                                                                                                      \
        Hook(#name);                                                                                                   \
    }
#define DELTA_HOOK(name)                                                                                               \
    void name(double deltaTime) {                                                                                      \
        Hook(#name, Number(deltaTime));                                                                                \
    }
// The command-buffer hooks note whether they got one.
#define COMMAND_HOOK(name)                                                                                             \
    void name(VkCommandBuffer c) {                                                                                     \
        Hook(#name, c ? "cb" : "null");                                                                                \
    }

extern "C" {

void ModuleUnload() {
    recorder::Record(RECORDER_TAG ":ModuleUnload");
}
int ModuleSort() {
    return RECORDER_PRIORITY;
}
// clang-format off
VOID_HOOK(ModuleLoad) VOID_HOOK(Game_Start) VOID_HOOK(Game_Ready) VOID_HOOK(Game_Stop) VOID_HOOK(Game_ClientUpdate)
DELTA_HOOK(Game_Update) DELTA_HOOK(Input_Update) DELTA_HOOK(Input_Update_Play) DELTA_HOOK(Input_Update_Station)
VOID_HOOK(Renderer_StartRendering) VOID_HOOK(Renderer_StopRendering) VOID_HOOK(Renderer_RefreshViewport)
VOID_HOOK(Renderer_FrameCollectGarbage) VOID_HOOK(Renderer_FrameUpdateDescriptorSets) VOID_HOOK(Renderer_FrameBeforePost)
VOID_HOOK(Renderer_FrameUpdateUi) VOID_HOOK(Renderer_FrameBeforeUpdate) VOID_HOOK(Renderer_FrameUpdate)
VOID_HOOK(Renderer_FrameAfterUpdate) VOID_HOOK(Renderer_FrameBeforeRender) VOID_HOOK(Renderer_FrameAfterRender)
COMMAND_HOOK(Renderer_FramePushCommands) COMMAND_HOOK(Renderer_FrameBuildCommands)
COMMAND_HOOK(Renderer_FrameRenderCommands) COMMAND_HOOK(Renderer_FrameResolveCommands)
COMMAND_HOOK(Renderer_FrameBlitCommands) COMMAND_HOOK(Renderer_FramePostCommands)
COMMAND_HOOK(Renderer_FrameOverlayCommands)

void Input_Key_Play(int key, int scancode, int action, int mods) {
    Hook("Input_Key_Play",
         std::to_string(key) + " " + std::to_string(scancode) + " " + std::to_string(action) + " " +
             std::to_string(mods));
}
// clang-format on

// Notes whether the origin moved and the camera's x in the floating frame as it stands.
void Renderer_FrameInit() {
    game::graphics::GameRenderer* renderer = Game::renderer;
    if (renderer == nullptr) return Hook("Renderer_FrameInit");
    Hook("Renderer_FrameInit",
         std::string(renderer->worldOriginChanged ? "moved" : "kept") +
             " x=" + Number(renderer->cameraTransform[3][0]));
}

// SERVER_Mod
void Server_BeforeUpdate(double deltaTime) {
    Hook("Server_BeforeUpdate", InScope(deltaTime));
}
void Server_GameUpdate(double deltaTime) {
    Hook("Server_GameUpdate", InScope(deltaTime));
}
void Server_Receive(uint64_t playerId, void const* data, size_t size) {
    Hook("Server_Receive", std::to_string(playerId) + " " + std::string(static_cast<char const*>(data), size));
}

// TESSARA_Mod
extern int const _TESSARA_Mod_VERSION;
int const _TESSARA_Mod_VERSION = 7;
void Load(void* scratch) {
    Hook("Load", scratch ? "scratch" : "null");
}
void Unload(void* scratch) {
    Hook("Unload", scratch ? "scratch" : "null");
}

// GAME_Init
int Vulkan_ScoreGPU(void* physicalDevice) {
    return physicalDevice != nullptr ? 42 : -1;
}
VOID_HOOK(SplashBegin) VOID_HOOK(SplashEnd)

} // extern "C"
