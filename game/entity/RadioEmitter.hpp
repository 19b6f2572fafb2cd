#pragma once
#include <glm/glm.hpp>

namespace game::entity {

/// A radio transmitter that a content module announces in
/// ServerSideEntity::_radioEmitters. The game only keeps the table; modules
/// decide who listens and how far a signal carries.
struct RadioEmitter {
    glm::dvec3 position{0.0}; ///< World position of the antenna, metres.
    double frequency = 0.0;   ///< Carrier frequency, Hz.
    double power = 0.0;       ///< Transmitted power, W.
};

} // namespace game::entity
