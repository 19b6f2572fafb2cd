// The client side of the sample planet, loaded as a GAME_Mod: with a renderer
// it shows the ground, the basin and its water, and sets the sun and the sky.
#include "PlanetEnvironment.hpp"

#include "game/Game.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "game/graphics/Mesh.hpp"
#include "game/graphics/RenderableInstance.hpp"

#include <cstdio>
#include <exception>
#include <memory>

namespace {

using game::graphics::RenderableInstance;

/// The ground's mesh, relative to the run directory.
constexpr char groundMesh[] = "modules/TESSARA_planet/meshes/ground.gltf";

std::shared_ptr<RenderableInstance> ground; // while the game runs with a renderer

} // namespace

extern "C" {

void Game_Ready() {
    game::graphics::GameRenderer* renderer = Game::renderer;
    if (renderer == nullptr) return;
    // An afternoon sun in the south-west, a clear sky.
    renderer->sunDirection = glm::dvec3(-0.45, 0.75, 0.5);
    renderer->sunColor = glm::vec3(1.25f, 1.2f, 1.1f);
    renderer->skyColor = glm::vec3(0.25f, 0.45f, 0.85f);
    renderer->horizonColor = glm::vec3(0.72f, 0.80f, 0.90f);
    renderer->groundColor = glm::vec3(0.30f, 0.36f, 0.24f);
    try {
        ground = game::graphics::Mesh(groundMesh).MakeInstance("ground");
        ground->rayMask = 2;
    } catch (std::exception const& error) {
        std::printf("[planet] cannot show the ground: %s\n", error.what());
    }
}

// Rendering has stopped: the ground can go at once.
void Game_Stop() {
    ground.reset();
}

} // extern "C"
