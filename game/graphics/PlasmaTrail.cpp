#include "game/graphics/PlasmaTrail.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>
#include <iostream>

#include "game/Game.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "game/physics/EnvironmentInfo.hpp"
#include "nerox/Assert.hpp"
#include "nerox/graphics/ComputeTexture.hpp"

namespace game::graphics {

namespace {

/// Below this viscosity the medium is a gas, where fast objects glow.
constexpr double GasViscosity = 0.0005;
/// Heat or speed above this shows the trail.
constexpr float Threshold = 0.01f;
constexpr glm::vec3 SlowColor{0.5f, 0.5f, 0.5f};
constexpr glm::vec3 FastColor{1.0f, 0.25f, 0.05f};

} // namespace

PlasmaTrail::PlasmaTrail() {
    NEROX_ASSERT(Game::renderer);
    GameRenderer& renderer = *Game::renderer;
    hitShader = renderer.plasmaHitShader;
    rayMask = 4;
    nerox::vk::Device& device = renderer.GetDevice();
    plasmaData = std::make_shared<nerox::vk::MappedBuffer<PlasmaData>>(device, 1, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT,
                                                                       "PlasmaData", 16);
    auto box = std::make_shared<AabbGeometry>(1u); // all zero
    (*box->buffer)[0].data = static_cast<uint64_t>(*plasmaData);
    primaryGeometry = box.get();
    geometries.push_back(std::move(box));
    std::memset(static_cast<void*>(plasmaData->Data()), 0, sizeof(PlasmaData));
}

PlasmaTrail::~PlasmaTrail() {
    // A frame in flight may still read all three.
    GameRenderer* renderer = Game::renderer;
    if (renderer == nullptr) return;
    for (std::shared_ptr<GeometryInterface>& geometry : geometries) renderer->Trash(std::move(geometry));
    if (plasmaData) renderer->Trash(std::move(plasmaData));
    if (computeTexture) renderer->Trash(std::move(computeTexture));
}

PlasmaTrail::Glow PlasmaTrail::Measure(glm::vec3 const& velocity, game::physics::EnvironmentInfo const& environment) {
    double const p = std::pow(environment.density, 0.2);
    float const v2 = std::fma(velocity.z, velocity.z, std::fma(velocity.y, velocity.y, velocity.x * velocity.x));
    Glow glow;
    glow.heat = static_cast<float>(v2 * environment.density / 1e8);
    glow.speed = static_cast<float>(std::sqrt(v2) * p / 1000.0);
    glow.active = environment.viscosity < GasViscosity && (glow.heat > Threshold || glow.speed > Threshold);
    return glow;
}

void PlasmaTrail::Update(glm::vec3 const& velocity, float size, game::physics::EnvironmentInfo const& environment) {
    lastSpeed = velocity;
    lastSize = size;
    Glow const glow = Measure(velocity, environment);
    if (!glow.active) {
        visible = false;
        return;
    }
    float const heat = glow.heat, speed = glow.speed;

    // The box made in the constructor; nothing else may take its place.
    auto* const geometry = geometries.empty() ? nullptr : dynamic_cast<AabbGeometry*>(geometries.front().get());
    NEROX_ASSERT(geometry != nullptr && geometry->buffer);
    AabbData& box = (*geometry->buffer)[0];
    box.minimum = glm::vec3(-size, 0.0f, -size);
    box.maximum = glm::vec3(size, 16.0f * size, size);

    PlasmaData& record = (*plasmaData)[0];
    record.length = 16.0f * size;
    record.width = size;
    float const t = std::clamp(speed, 0.0f, 1.0f);
    record.color = SlowColor + (FastColor - SlowColor) * t;
    record.heatIntensity = std::clamp(heat * 200.0f, 0.0f, 500.0f);
    record.speedIntensity = std::clamp(speed * 600.0f, 0.0f, 2500.0f);

    if (!computeTexture) {
        GameRenderer& renderer = *Game::renderer;
        computeTexture = std::make_shared<nerox::graphics::ComputeTexture>(&renderer, NoiseSize, NoiseSize,
                                                                           VK_FORMAT_R32G32_SFLOAT, 0);
        try {
            record.textureIndex = renderer.AddTexture(computeTexture, VK_NULL_HANDLE);
        } catch (std::exception const& error) {
            // A full table: the trail glows without its noise.
            std::cerr << "PlasmaTrail: no noise field: " << error.what() << std::endl;
            record.textureIndex = 0;
        }
    }
    visible = true;
}

} // namespace game::graphics
