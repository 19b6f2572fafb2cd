#pragma once
// What the physics step hands to the debug drawing: small records with no
// dependencies beyond glm and the collider, so that physics headers need not
// pull in the root class.
#include <glm/glm.hpp>

#include "game/entity/ConvexMeshCollider.hpp"
#include "game/entity/Id.hpp"

namespace game::physics {

/// One debug line of the physics step, in world coordinates.
struct DebugLine {
    glm::dvec3 start{0.0}; ///< First end point.
    glm::dvec3 end{0.0};   ///< Second end point.
    glm::vec4 color{1.0f}; ///< Red, green, blue, alpha.
};

/// One collider of the physics step, with its world transform, for debug drawing.
struct DebugCollider {
    game::entity::Id entity;                   ///< The entity whose body holds it.
    game::entity::ConvexMeshCollider collider; ///< Copy with the world transform.
    bool dynamic = false;                      ///< From a moving body.
};

} // namespace game::physics
