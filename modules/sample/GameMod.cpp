// The client side of the sample module, loaded as a GAME_Mod.
//
// A module exports plain C functions whose names are the hooks it wants; the
// game looks them up when it loads the library and skips every hook that is
// missing. Everything here is optional.
#include "game/Game.hpp"
#include "game/graphics/GameRenderer.hpp"

#include <imgui.h>

#include <atomic>
#include <cstdio>

namespace {
double clientSeconds = 0.0;           // Game time seen by this module's Game_Update.
std::atomic<unsigned long> passes{0}; // Client passes seen (read by the frames, which may run on another thread).
unsigned long frames = 0;             // Frames whose interface this module built.
} // namespace

extern "C" {

// Runs once when the library is loaded, before any hook.
void ModuleLoad() {
    std::printf("[sample] client module loaded\n");
}

// Runs once when the library is released.
void ModuleUnload() {
    std::printf("[sample] client module unloaded\n");
}

// Game::Start.
void Game_Start() {
    std::printf("[sample] Game_Start\n");
}

// Game::Ready.
void Game_Ready() {
    std::printf("[sample] Game_Ready\n");
}

// One client pass, for modules sorted into the "update" list.
void Game_Update(double deltaTime) {
    clientSeconds += deltaTime;
    ++passes;
}

// Each rendered frame, for modules sorted into the "ui" list: a small status
// panel in Dear ImGui, drawn over the frame.
void Renderer_FrameUpdateUi() {
    game::graphics::GameRenderer* renderer = Game::renderer;
    if (renderer == nullptr) return;
    ++frames;
    ImGui::SetNextWindowPos(ImVec2(20.0f, 20.0f), ImGuiCond_FirstUseEver);
    ImGui::Begin("Tessara", nullptr, ImGuiWindowFlags_AlwaysAutoResize);
    ImGui::Text("Client on %s", renderer->GetDevice().Properties().deviceName);
    ImGui::Text("Ray tracing: %s", renderer->GetDevice().HasRayTracing() ? "available" : "not on this device");
    ImGui::Text("Frame %lu, %lu client passes", frames, passes.load());
    ImGui::Text("World origin %.0f, %.0f, %.0f", renderer->worldOrigin.x, renderer->worldOrigin.y,
                renderer->worldOrigin.z);
    ImGui::Text("Textures %u, hit shaders %zu", renderer->TextureCount(), renderer->renderableHitShaders.size());
    ImGui::End();
    ImGui::SetNextWindowPos(ImVec2(20.0f, 200.0f), ImGuiCond_FirstUseEver);
    ImGui::SetNextWindowSize(ImVec2(520.0f, 220.0f), ImGuiCond_FirstUseEver);
    renderer->UiShowAdvancedPerformanceMetrics();
}

// Game::Stop.
void Game_Stop() {
    std::printf("[sample] Game_Stop after %lu client passes (%.2f s of client time)\n", passes.load(), clientSeconds);
}

} // extern "C"
