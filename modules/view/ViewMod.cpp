// The world view module, loaded as a GAME_Mod: it draws the scene tables each
// frame in the "render" stage, before the overlay and the interface. A device
// it cannot draw on is reported once; the game then runs without a world view.
#include "WorldView.hpp"

#include "game/Game.hpp"
#include "game/graphics/GameRenderer.hpp"

#include <cstdio>
#include <exception>
#include <memory>

namespace {
std::unique_ptr<view::WorldView> worldView; // while rendering runs, on a device it can draw on
} // namespace

extern "C" {

void Renderer_StartRendering() {
    if (Game::renderer == nullptr) return;
    try {
        worldView = std::make_unique<view::WorldView>(*Game::renderer);
        std::printf("[view] drawing the world by rasterization%s\n",
                    worldView->Textured() ? "" : " (this device cannot index textures: base colour textures show plain colours)");
    } catch (std::exception const& error) {
        std::printf("[view] cannot draw the world on this device: %s\n", error.what());
    }
    std::fflush(stdout);
}

void Renderer_StopRendering() {
    worldView.reset();
}

void Renderer_FrameInit() {
    if (worldView) worldView->FrameInit();
}

void Renderer_FrameRenderCommands(VkCommandBuffer commandBuffer) {
    if (worldView) worldView->Record(commandBuffer);
}

// Counts of the last frame, for tests and tools: instances, draws, lights.
void View_LastFrame(unsigned* instances, unsigned* draws, unsigned* lights) {
    view::ViewStats const stats = worldView ? worldView->Stats() : view::ViewStats{};
    if (instances) *instances = stats.instances;
    if (draws) *draws = stats.draws;
    if (lights) *lights = stats.lights;
}

} // extern "C"
