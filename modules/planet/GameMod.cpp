// The client side of the sample planet, loaded as a GAME_Mod: with a renderer
// it shows the ground, the basin and its water, and sets the sun and the sky;
// each client pass it tells the ambience (Game::environmentAudio) what is
// around the camera: the shares of ground and water that a set of rays from it
// meets, the distance to the water, the wind of its own motion and height,
// and the air's density there.
#include "PlanetEnvironment.hpp"

#include "game/Game.hpp"
#include "game/audio/EnvironmentAudio.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "game/graphics/Mesh.hpp"
#include "game/graphics/RenderableInstance.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <memory>

namespace {

using game::graphics::RenderableInstance;

/// The ground's mesh, relative to the run directory.
constexpr char groundMesh[] = "modules/TESSARA_planet/meshes/ground.gltf";

std::shared_ptr<RenderableInstance> ground; // while the game runs with a renderer

/// Rays from the camera, spread evenly over the sphere.
constexpr int rays = 64;
glm::dvec3 lastCamera{0.0};
bool cameraSeen = false;

/// Counts what the rays from eye meet on the planet: the flat ground, or the
/// basin's water (its surface at sea level); a ray that goes up meets nothing.
game::audio::EnvironmentAudioData Sample(glm::dvec3 const& eye) {
    game::audio::EnvironmentAudioData data;
    for (int i = 0; i < rays; ++i) {
        double const y = 1.0 - 2.0 * (i + 0.5) / rays; // Fibonacci sphere
        double const angle = i * 2.39996322972865332;  // the golden angle
        glm::dvec3 const direction(std::sqrt(1.0 - y * y) * std::cos(angle), y,
                                   std::sqrt(1.0 - y * y) * std::sin(angle));
        double const height = eye.y - planet::seaLevel;
        if (direction.y >= 0.0 || height <= 0.0) {
            if (height <= 0.0 && planet::InBasin(eye.x, eye.z))
                ++data.hydrosphereCount; // in the water
            else
                ++data.missCount;
            continue;
        }
        glm::dvec3 const hit = eye + direction * (height / -direction.y);
        if (planet::InBasin(hit.x, hit.z))
            ++data.hydrosphereCount;
        else
            ++data.terrainCount;
    }
    double const dx = std::max({planet::basinMinX - eye.x, 0.0, eye.x - planet::basinMaxX});
    double const dz = std::max({planet::basinMinZ - eye.z, 0.0, eye.z - planet::basinMaxZ});
    double const toWater = std::sqrt(dx * dx + dz * dz + std::pow(std::max(eye.y - planet::seaLevel, 0.0), 2));
    data.hydrosphereDistance = static_cast<int32_t>(std::min(toWater, 100.0) * 100.0);
    return data;
}

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
    cameraSeen = false;
}

// Each client pass: the ambience hears what is around the camera.
void Game_Update(double deltaTime) {
    game::graphics::GameRenderer* renderer = Game::renderer;
    game::audio::EnvironmentAudio* ambience = Game::environmentAudio.get();
    if (renderer == nullptr || ambience == nullptr) return;
    glm::dvec3 const eye = renderer->cameraPosition;
    double const speed = cameraSeen && deltaTime > 0.0 ? glm::length(eye - lastCamera) / deltaTime : 0.0;
    lastCamera = eye;
    cameraSeen = true;
    game::audio::EnvironmentAudioData data = Sample(eye);
    float const shares = static_cast<float>(rays);
    ambience->event.SetParameter("water", static_cast<float>(data.hydrosphereCount) / shares);
    ambience->event.SetParameter("ground", static_cast<float>(data.terrainCount) / shares);
    double const altitude = std::max(eye.y - planet::seaLevel, 0.0);
    ambience->underwater = eye.y < planet::seaLevel && planet::InBasin(eye.x, eye.z);
    ambience->UpdateData(&data);
    // Wind: what the camera's own motion makes, and a breeze that grows with height.
    float const wind = static_cast<float>(std::min(speed, 200.0) + 2.0 + altitude * 0.01);
    float const density = static_cast<float>(planet::airDensity * std::exp(-altitude / planet::scaleHeight));
    ambience->SetWindSpeed(wind, density);
}

} // extern "C"
