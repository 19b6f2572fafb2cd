#pragma once
#include <cstdint>
#include <memory>

#include <glm/glm.hpp>

#include "game/graphics/RenderableInstance.hpp"
#include "nerox/vk/Buffer.hpp"

namespace nerox::graphics {
class ComputeTexture;
} // namespace nerox::graphics
namespace game::physics {
struct EnvironmentInfo;
} // namespace game::physics

namespace game::graphics {

/// The record of a trail, read by the drawing paths at the address its box carries.
struct PlasmaData {
    float length = 0.0f;         ///< 16 x size: the trail's reach behind the entity.
    float width = 0.0f;          ///< size: its half width at the entity.
    float speedIntensity = 0.0f; ///< Glow from speed, 0 to 2500.
    uint32_t textureIndex = 0;   ///< The noise field's entry in the renderer's texture table.
    glm::vec3 color{0.0f};       ///< Linear RGB, grey when slow to orange when fast.
    float heatIntensity = 0.0f;  ///< Glow from heating, 0 to 500.
};
static_assert(sizeof(PlasmaData) == 32);
static_assert(offsetof(PlasmaData, speedIntensity) == 8 && offsetof(PlasmaData, textureIndex) == 12);
static_assert(offsetof(PlasmaData, color) == 16 && offsetof(PlasmaData, heatIntensity) == 28);

/// The glow of something entering an atmosphere fast: one box that reaches
/// 16 times its size along the object's +y axis (the owner points it away
/// from the motion), drawn by the plasma hit shader or, on the raster path,
/// as a glowing volume, with a 256 x 256 noise field that a GPU pass fills.
///
/// Made with RenderableInstance::Make<PlasmaTrail>() while Game::renderer is
/// set; updated by its owner on the main thread between frames.
class PlasmaTrail : public RenderableInstance {
public:
    /// Side of the noise field in pixels.
    static constexpr unsigned int NoiseSize = 256;

    /// A hidden trail: a zero box and a zero record.
    PlasmaTrail();
    /// Hands the box, the record and the noise field to the renderer's trash.
    ~PlasmaTrail() override;

    /// What Update makes of a velocity (m/s) in an environment.
    struct Glow {
        float heat = 0.0f;   ///< v^2 density / 1e8.
        float speed = 0.0f;  ///< |v| density^0.2 / 1000.
        bool active = false; ///< In a gas, with heat or speed above 0.01: the trail shows.
    };
    /// The heat and speed of velocity in environment, and whether a trail shows.
    static Glow Measure(glm::vec3 const& velocity, game::physics::EnvironmentInfo const& environment);

    /// Follows the owner's velocity (m/s) and size (metres) in environment: the
    /// trail shows only in a gas (viscosity below 0.0005) where the heat
    /// v^2 density / 1e8 or the speed |v| density^0.2 / 1000 exceeds 0.01. The
    /// noise field is made at the first update that shows the trail (and left
    /// out, with a message, when the renderer's texture table is full).
    void Update(glm::vec3 const& velocity, float size, game::physics::EnvironmentInfo const& environment);

    /// The trail's record, one, mapped.
    std::shared_ptr<nerox::vk::MappedBuffer<PlasmaData>> plasmaData;
    /// The noise field; empty until the trail first shows.
    std::shared_ptr<nerox::graphics::ComputeTexture> computeTexture;
    glm::vec3 lastSpeed{0.0f}; ///< The last velocity given.
    float lastSize = 0.0f;     ///< The last size given.
};

} // namespace game::graphics
