#include "game/graphics/LightSourceInstance.hpp"

#include <cmath>
#include <cstring>

#include "game/Game.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "nerox/Assert.hpp"

namespace game::graphics {

LightSourceInstance::LightSourceInstance(glm::vec3 position, float radius, glm::vec3 direction, float spread,
                                         glm::vec3 color, float power)
    : position(position), radius(std::fabs(radius)), direction(direction), spread(spread) {
    NEROX_ASSERT(Game::renderer);
    data = std::make_shared<nerox::vk::MappedBuffer<LightSourceInstanceData>>(
        Game::renderer->GetDevice(), 1, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT, "LightSourceInstanceData", 16);
    LightSourceInstanceData& record = (*data)[0];
    std::memset(static_cast<void*>(&record), 0, 32);
    record.color = color;
    record.radius = radius;
    record.direction = direction;
    record.spread = spread;
    if (power > 0.0f) SetPower(power, color, 0.0f);
}

void LightSourceInstance::SetPower(float power, glm::vec3 color, float newSpread) {
    active = power != 0.0f;
    if (power == 0.0f) return; // off: the record keeps its values, active hides it
    if (newSpread != 0.0f) spread = newSpread;
    LightSourceInstanceData& record = (*data)[0];
    if (power != record.power) {
        // The distance at which the power has fallen to 0.01, over a sphere or over the spot's cone.
        float const t = power / 0.01f - 1.0f;
        float reach = 0.0f;
        if (spread == 0.0f)
            reach = t <= 0.0f ? 0.0f : std::sqrt(t / 12.566371f);
        else
            reach = std::sqrt((t > 0.0f ? t : 0.0f) / (2.0f * spread));
        float const range = reach + radius;
        for (int axis = 0; axis < 3; ++axis) {
            // A spot's box leans towards where it points.
            float const lean = direction[axis] * range - direction[axis] * radius;
            record.aabb[axis] = position[axis] - range + lean;
            record.aabb[axis + 3] = position[axis] + range + direction[axis] * range + direction[axis] * radius;
        }
        record.power = power;
        record.range = range;
        aabbChanged = true;
    }
    record.color = color;
    if (newSpread != 0.0f) record.spread = newSpread;
}

} // namespace game::graphics
