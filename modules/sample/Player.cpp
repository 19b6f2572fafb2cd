#include "Player.hpp"

#include "game/Game.hpp"
#include "game/entity/ClientSideEntity.hpp"

#include <algorithm>
#include <cmath>

namespace sample {

namespace {

using game::entity::ClientSideEntity;

/// The environment the player stands in; null when none is registered.
game::physics::EnvironmentFunction const* FindEnvironment() {
    auto const own = Game::_environmentFunctions.find(Game::parentEnvironmentId);
    if (own != Game::_environmentFunctions.end() && own->second) return &own->second;
    game::physics::EnvironmentFunction const* lowest = nullptr;
    game::entity::EnvironmentId lowestId = 0;
    for (auto const& [id, function] : Game::_environmentFunctions) {
        if (function && (lowest == nullptr || id < lowestId)) {
            lowest = &function;
            lowestId = id;
        }
    }
    return lowest;
}

/// Pushes a sphere at centre out of the box [low, high] placed by box (rigid).
/// Returns the push in world axes (zero when they do not touch).
glm::dvec3 PushOutOfBox(glm::dvec3 const& centre, double r, glm::dmat4 const& box, glm::dvec3 const& low,
                        glm::dvec3 const& high) {
    glm::dmat3 const rotation(box);
    glm::dvec3 const local = glm::transpose(rotation) * (centre - glm::dvec3(box[3]));
    glm::dvec3 const closest = glm::clamp(local, low, high);
    glm::dvec3 const away = local - closest;
    double const distance = glm::length(away);
    if (distance >= r) return glm::dvec3(0.0);
    if (distance > 1e-9) return rotation * (away / distance * (r - distance));
    // The centre is inside: leave through the nearest face.
    int axis = 0;
    double best = 1e300, sign = 1.0;
    for (int i = 0; i < 3; ++i) {
        double const toLow = local[i] - low[i], toHigh = high[i] - local[i];
        if (toLow < best) best = toLow, axis = i, sign = -1.0;
        if (toHigh < best) best = toHigh, axis = i, sign = 1.0;
    }
    glm::dvec3 push(0.0);
    push[axis] = sign * (best + r);
    return rotation * push;
}

} // namespace

void Player::Place(glm::dvec3 const& where, double newYaw, double newPitch) {
    feet = where;
    yaw = newYaw;
    pitch = newPitch;
    velocity = glm::dvec3(0.0);
    onGround = false;
}

glm::dvec3 Player::Forward() const {
    return glm::dvec3(std::cos(yaw) * std::cos(pitch), std::sin(pitch), std::sin(yaw) * std::cos(pitch));
}

void Player::Step(Intent const& intent, double dt) {
    if (!(dt > 0.0)) return;
    yaw = std::remainder(yaw + intent.yaw, 2.0 * M_PI);
    pitch = std::clamp(pitch + intent.pitch, -1.553, 1.553); // +-89 degrees
    if (flying) {
        glm::dvec3 const right = glm::normalize(glm::dvec3(-std::sin(yaw), 0.0, std::cos(yaw)));
        glm::dvec3 const up(0.0, intent.jump ? 1.0 : 0.0, 0.0);
        feet += (Forward() * intent.forward + right * intent.right + up) * flySpeed * dt;
        velocity = glm::dvec3(0.0);
        onGround = false;
        return;
    }
    Intent move = intent;
    int const steps = std::min(60, static_cast<int>(std::ceil(dt / maxStep)));
    for (int i = 0; i < steps; ++i) {
        Move(move, dt / steps);
        move.jump = false; // one jump per call
    }
}

void Player::Move(Intent const& intent, double dt) {
    // The wish: along the ground, forward and right of where the player looks.
    glm::dvec3 const ahead(std::cos(yaw), 0.0, std::sin(yaw));
    glm::dvec3 const right(-std::sin(yaw), 0.0, std::cos(yaw));
    glm::dvec3 wish = ahead * std::clamp(intent.forward, -1.0, 1.0) + right * std::clamp(intent.right, -1.0, 1.0);
    if (glm::length(wish) > 1.0) wish = glm::normalize(wish);
    wish *= intent.run ? runSpeed : walkSpeed;

    // Quick to answer on the ground, a little steering in the air.
    double const acceleration = onGround ? 40.0 : 4.0;
    glm::dvec3 horizontal(velocity.x, 0.0, velocity.z);
    glm::dvec3 const change = wish - horizontal;
    double const reach = acceleration * dt;
    horizontal += glm::length(change) <= reach ? change : glm::normalize(change) * reach;
    velocity.x = horizontal.x;
    velocity.z = horizontal.z;
    if (intent.jump && onGround) velocity.y = jumpSpeed;

    game::physics::EnvironmentFunction const* environment = FindEnvironment();
    if (environment != nullptr) velocity += (*environment)(feet, game::EnvironmentGravityOnly, radius).gravity * dt;
    feet += velocity * dt;
    onGround = false;

    if (environment != nullptr) {
        game::physics::EnvironmentInfo const ground = (*environment)(feet, game::EnvironmentTerrain, radius);
        if (ground.altitude < 0.0) {
            feet.y -= ground.altitude;
            velocity.y = std::max(velocity.y, 0.0);
            onGround = true;
        }
    }
    Collide();
}

void Player::Collide() {
    // Feet, waist and head: three spheres along the capsule's axis.
    double const heights[3] = {radius, 0.5 * height, height - radius};
    ClientSideEntity::ForEach([&](ClientSideEntity::Ptr entity) {
        if (entity->colliders.empty()) return;
        glm::dmat4 const placed = entity->environmentTransformCached ? entity->environmentTransform
                                                                     : entity->GetAbsoluteTransformInEnvironment();
        glm::dvec3 const centre(placed * glm::dvec4(entity->boundsCenter, 1.0));
        glm::dvec3 const middle = feet + glm::dvec3(0.0, 0.5 * height, 0.0);
        if (glm::length(centre - middle) > entity->boundingRadius + 0.5 * height + radius) return;
        for (auto const& [name, collider] : entity->colliders) {
            glm::dmat4 const box = placed * collider.transform;
            for (double const up : heights) {
                glm::dvec3 const push = PushOutOfBox(feet + glm::dvec3(0.0, up, 0.0), radius, box,
                                                     glm::dvec3(collider.box_min), glm::dvec3(collider.box_max));
                double const depth = glm::length(push);
                if (depth == 0.0) continue;
                glm::dvec3 const normal = push / depth;
                feet += push;
                double const into = glm::dot(velocity, normal);
                if (into < 0.0) velocity -= into * normal;
                if (normal.y > 0.7) onGround = true; // standing on it
            }
        }
    });
}

} // namespace sample
