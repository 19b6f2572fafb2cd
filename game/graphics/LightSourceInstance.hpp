#pragma once
#include <cstdint>
#include <memory>
#include <vector>

#include <glm/glm.hpp>

#include "game/graphics/SceneTable.hpp"
#include "nerox/SharedMutex.hpp"
#include "nerox/vk/Buffer.hpp"

namespace game::graphics {

/// The record of one light, as the shaders read it.
struct LightSourceInstanceData {
    float aabb[6] = {};        ///< Bounds, as a VkAabbPositionsKHR.
    float power = 0.0f;        ///< Emitted power.
    float range = 0.0f;        ///< Reach, computed from the power, plus the radius.
    glm::vec3 color{0.0f};     ///< Linear RGB.
    float radius = 0.0f;       ///< The radius as given, sign kept.
    glm::vec3 direction{0.0f}; ///< Local axis of a spot light.
    float spread = 0.0f;       ///< 0 for a light in all directions, otherwise the spot's spread.
};
static_assert(sizeof(LightSourceInstanceData) == 64);
static_assert(offsetof(LightSourceInstanceData, power) == 24 && offsetof(LightSourceInstanceData, color) == 32);
static_assert(offsetof(LightSourceInstanceData, radius) == 44 && offsetof(LightSourceInstanceData, direction) == 48);
static_assert(offsetof(LightSourceInstanceData, spread) == 60);

/// One light of the scene: a point or a spot of some radius, with its record
/// in a mapped GPU buffer. Lives in the table _sharedObjects while someone
/// holds it; the world view walks the table each frame.
///
/// Threads: as RenderableInstance.
class LightSourceInstance : public std::enable_shared_from_this<LightSourceInstance> {
public:
    /// Creates a light and enters it in the first free slot of the table.
    template <class... Args> static std::shared_ptr<LightSourceInstance> Make(Args&&... args);

    /// A light at position (radius kept as its absolute value) pointing along
    /// direction, spread 0 for all directions; with power above 0 it is on.
    LightSourceInstance(glm::vec3 position, float radius, glm::vec3 direction, float spread, glm::vec3 color,
                        float power);
    virtual ~LightSourceInstance() = default;

    /// Turns the light on with power and color (spread 0 keeps the spot's), or
    /// off with power 0, which leaves the record as it is. A new power computes
    /// the reach and the bounds again and sets aabbChanged.
    void SetPower(float power, glm::vec3 color, float spread);

    uint64_t sharedObjectsIndex = 0;                                        ///< Its slot in _sharedObjects.
    glm::vec3 position{0.0f};                                               ///< Where it is, in its transform's frame.
    float radius = 0.0f;                                                    ///< Size of the emitter.
    glm::vec3 direction{0.0f};                                              ///< Axis of a spot.
    float spread = 0.0f;                                                    ///< 0 for all directions.
    std::shared_ptr<nerox::vk::MappedBuffer<LightSourceInstanceData>> data; ///< The record.
    glm::dmat4 transform{1.0};                                              ///< Light frame to world.
    glm::dmat4 reservedTransform{1.0};                                      ///< Identity.
    bool active = false;                                                    ///< Shines.
    bool reservedFlag = false;                                              ///< Zero.
    bool aabbChanged = false; ///< The bounds changed since the world view last read them.

    /// The live lights by slot; expired slots are free and are reused.
    inline static std::vector<std::weak_ptr<LightSourceInstance>> _sharedObjects;
    /// Guards _sharedObjects.
    inline static nerox::SharedMutex _sharedObjectsMutex;
};

template <class... Args> std::shared_ptr<LightSourceInstance> LightSourceInstance::Make(Args&&... args) {
    auto object = std::make_shared<LightSourceInstance>(std::forward<Args>(args)...);
    EnterInTable(_sharedObjects, _sharedObjectsMutex, object);
    return object;
}

} // namespace game::graphics
