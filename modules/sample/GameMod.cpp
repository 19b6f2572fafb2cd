// The client side of the sample module, loaded as a GAME_Mod.
//
// A module exports plain C functions whose names are the hooks it wants; the
// game looks them up when it loads the library and skips every hook that is
// missing. Everything here is optional.
//
// With a renderer it shows the sample set of a new world as it comes to rest
// (renderable instances of the crate and rover meshes, the rover's headlight)
// and points the camera at it. Client entities will take this over.
#include "Sample.hpp"

#include "game/Game.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "game/graphics/LightSourceInstance.hpp"
#include "game/graphics/Mesh.hpp"
#include "game/graphics/RenderableInstance.hpp"

#include <glm/gtc/matrix_transform.hpp>
#include <imgui.h>

#include <atomic>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <vector>

namespace {

using game::graphics::LightSourceInstance;
using game::graphics::Mesh;
using game::graphics::RenderableInstance;

double clientSeconds = 0.0;           // Game time seen by this module's Game_Update.
std::atomic<unsigned long> passes{0}; // Client passes seen (read by the frames, which may run on another thread).
unsigned long frames = 0;             // Frames whose interface this module built.

// What the scene holds of the sample set while the game runs.
std::vector<std::shared_ptr<RenderableInstance>> instances;
std::vector<std::shared_ptr<LightSourceInstance>> lights;

// An instance of the geometries of mesh node name, placed by transform.
std::shared_ptr<RenderableInstance> Show(Mesh const& mesh, std::string const& name, glm::dmat4 const& transform) {
    auto instance = mesh.MakeInstance(name);
    instance->rayMask = 2;
    instance->transform = transform;
    instance->transformChanged = true;
    return instance;
}

// The sample set at rest, the crates and the rover (whose four wheels share one
// wheel's geometries), with the rover's headlight.
void ShowSampleSet() {
    Mesh const crate(std::string(sample::meshFolder) + "crate.gltf");
    Mesh const rover(std::string(sample::meshFolder) + "rover.gltf");
    for (sample::Placement const& placement : sample::newWorld) {
        glm::dvec3 const position(placement.position.x, placement.restY, placement.position.z);
        glm::dmat4 const transform = glm::rotate(glm::translate(glm::dmat4(1.0), position),
                                                 glm::radians(placement.yawDegrees), glm::dvec3(0.0, 1.0, 0.0));
        if (std::string(placement.itemType) == sample::crateType) {
            instances.push_back(Show(crate, "crate", transform));
            continue;
        }
        auto const chassis = Show(rover, "chassis", transform);
        instances.push_back(chassis);
        auto const wheel =
            Show(rover, "wheel", transform * glm::translate(glm::dmat4(1.0), sample::roverWheelCentres[0]));
        instances.push_back(wheel);
        for (size_t i = 1; i < sample::roverWheelCentres.size(); ++i) {
            auto copy = RenderableInstance::Make<RenderableInstance>(
                wheel, transform * glm::translate(glm::dmat4(1.0), sample::roverWheelCentres[i]));
            copy->renderableData = wheel->renderableData; // same tyres
            copy->renderableDataAddress = wheel->renderableDataAddress;
            instances.push_back(copy);
        }
        auto headlight = LightSourceInstance::Make(glm::vec3(1.1f, 0.65f, 0.0f), 0.05f, glm::vec3(1.0f, -0.1f, 0.0f),
                                                   0.6f, glm::vec3(1.0f, 0.95f, 0.8f), 8.0f);
        headlight->transform = transform;
        lights.push_back(headlight);
    }
}

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

// Game::Ready: with a renderer, the sample set appears and the camera looks at it.
void Game_Ready() {
    std::printf("[sample] Game_Ready\n");
    game::graphics::GameRenderer* renderer = Game::renderer;
    if (renderer == nullptr) return;
    try {
        ShowSampleSet();
    } catch (std::exception const& error) {
        std::printf("[sample] cannot show the sample set: %s\n", error.what());
    }
    renderer->cameraPosition = sample::cameraPosition;
    renderer->viewMatrix = glm::lookAt(sample::cameraPosition, sample::cameraTarget, glm::dvec3(0.0, 1.0, 0.0));
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
    if (!renderer->devTools) return;
    ImGui::SetNextWindowPos(ImVec2(20.0f, 200.0f), ImGuiCond_FirstUseEver);
    ImGui::SetNextWindowSize(ImVec2(520.0f, 220.0f), ImGuiCond_FirstUseEver);
    renderer->UiShowAdvancedPerformanceMetrics();
}

// Game::Stop: rendering has stopped, so the scene's objects can go at once.
void Game_Stop() {
    instances.clear();
    lights.clear();
    std::printf("[sample] Game_Stop after %lu client passes (%.2f s of client time)\n", passes.load(), clientSeconds);
}

} // extern "C"
