#pragma once
// The first-person player of the sample module: a body that walks on the
// ground of its environment under the environment's gravity, stands on and
// bumps into the colliders of the client entities, and whose eye is the
// camera. Client side only; it does not exist on the server.
#include <glm/glm.hpp>

namespace sample {

/// A walking body: an upright capsule whose feet are at `feet`.
/// Game axes: metres, y up, x forward at yaw 0, z to the right.
class Player {
public:
    /// What the body is asked to do in one step, from the controller.
    struct Intent {
        double forward = 0.0; ///< -1 back to 1 ahead.
        double right = 0.0;   ///< -1 left to 1 right.
        bool jump = false;    ///< Jump if standing.
        bool run = false;     ///< Run instead of walk.
        double yaw = 0.0;     ///< Turn to the right, radians, this step.
        double pitch = 0.0;   ///< Look up, radians, this step.
    };

    static constexpr double radius = 0.3;          ///< Of the capsule, metres.
    static constexpr double height = 1.8;          ///< Feet to the top of the head.
    static constexpr double eyeHeight = 1.65;      ///< Feet to the eye.
    static constexpr double walkSpeed = 4.0;       ///< m/s.
    static constexpr double runSpeed = 7.5;        ///< m/s.
    static constexpr double jumpSpeed = 4.5;       ///< Upwards, m/s, at the start of a jump.
    static constexpr double maxStep = 1.0 / 120.0; ///< Longest step of the motion, seconds.
    static constexpr double flySpeed = 12.0;       ///< m/s in drone mode.

    /// Puts the body at feet, looking along yaw and pitch (radians), at rest.
    void Place(glm::dvec3 const& feet, double yaw, double pitch);
    /// Moves the body through dt seconds: turns it, accelerates it towards what
    /// intent asks on the ground (little in the air), lets the environment pull
    /// it, and pushes it out of the ground and out of the client entities'
    /// colliders. The environment is Game::parentEnvironmentId's, else the
    /// lowest registered one; without any, nothing pulls and no ground holds.
    void Step(Intent const& intent, double dt);

    /// The eye, and where it looks (unit length).
    glm::dvec3 Eye() const { return feet + glm::dvec3(0.0, eyeHeight, 0.0); }
    glm::dvec3 Forward() const;

    glm::dvec3 feet{0.0};     ///< Bottom of the capsule.
    glm::dvec3 velocity{0.0}; ///< m/s.
    double yaw = 0.0;         ///< Radians, turning right.
    double pitch = 0.0;       ///< Radians, up, within +-89 degrees.
    bool onGround = false;    ///< Something held the feet in the last step.
    bool flying = false;      ///< Drone mode: flies where it looks, through everything, with nothing pulling.

private:
    /// One step of at most maxStep.
    void Move(Intent const& intent, double dt);
    /// Pushes the three spheres of the capsule out of every collider near it.
    void Collide();
};

} // namespace sample
