#include "game/entity/JointSolver.hpp"

#include <algorithm>

#include <glm/gtc/matrix_transform.hpp>
#include <glm/gtc/quaternion.hpp>

#include "game/entity/BaseEntity.hpp"
#include "game/entity/EntityConfig.hpp"

namespace game::entity {

namespace {

/// The rotation of file Euler angles (degrees, x then y then z, Z-up axes) in
/// game axes, as EntityConfig::TransformFromBlender turns them, in double.
glm::dquat GameRotation(glm::vec3 const& degrees) {
    glm::dvec3 const radians = glm::dvec3(degrees) * (glm::pi<double>() / 180.0);
    // -90 degrees about x: the turn that maps (x, y, z) to (x, z, -y).
    double const half = glm::sqrt(0.5);
    glm::dquat const toGameAxes(half, -half, 0.0, 0.0);
    return glm::dquat(toGameAxes * radians);
}

/// A file offset (x, y, z) in game axes: (x, z, -y).
glm::dvec3 GameOffset(glm::vec3 const& v) {
    return glm::dvec3(v.x, v.z, -v.y);
}

/// value kept between the smaller and the larger of a and b.
float ClampBetween(float value, float a, float b) {
    return std::clamp(value, std::min(a, b), std::max(a, b));
}

} // namespace

void JointSolver::Init() {
    _joints.clear();
    if (_config == nullptr) return;
    EntityConfig const& config = *_config;

    // Whether name is a joint of this description (a node of type "JOINT" with a row).
    auto const isJoint = [&config](std::string const& name) {
        auto const node = config.nodes.find(name);
        return node != config.nodes.end() && node->second.type == "JOINT" && config.joints.count(name) > 0;
    };

    for (auto const& [name, described] : config.joints) {
        Joint& joint = _joints[name];
        glm::dmat4 const own(described.transform);
        if (described.parent.empty()) {
            joint.offset = own;
        } else if (isJoint(described.parent)) {
            joint.parent = described.parent;
            joint.offset = glm::dmat4(1.0) * own;
        } else {
            std::string outJoint;
            joint.offset = config.GetTransformRelativeToFirstParentJointOrRoot(described.parent, outJoint) * own;
            // A stale joint node without a row (left by an earlier read) counts as the root.
            joint.parent = isJoint(outJoint) ? outJoint : std::string();
        }
    }
    for (auto& [name, joint] : _joints) {
        if (!joint.parent.empty()) _joints.at(joint.parent).children.push_back(name);
    }
    for (auto const& [name, node] : config.nodes) {
        if (node.type == "JOINT" || node.parent.empty()) continue;
        std::string outJoint;
        glm::dmat4 const relative = config.GetTransformRelativeToFirstParentJointOrRoot(name, outJoint);
        if (!outJoint.empty() && isJoint(outJoint)) _joints.at(outJoint).nodes[name] = relative;
    }
}

bool JointSolver::operator()(BaseEntity* entity) const {
    if (_joints.empty() || entity == nullptr || entity->jointStates.empty()) return false;
    std::map<std::string, glm::dmat4> world;
    for (auto const& [name, joint] : _joints) {
        if (joint.parent.empty()) Solve(name, glm::dmat4(1.0), *entity, world);
    }
    for (auto const& [jointName, joint] : _joints) {
        auto const solved = world.find(jointName);
        if (solved == world.end()) continue; // not reachable from a root: a parent loop in the file
        for (auto const& [nodeName, relative] : joint.nodes) {
            auto const known = entity->nodeTransforms.find(nodeName);
            if (known != entity->nodeTransforms.end()) known->second = solved->second * relative;
        }
    }
    return true;
}

void JointSolver::Solve(std::string const& name, glm::dmat4 const& parentWorld, BaseEntity& entity,
                        std::map<std::string, glm::dmat4>& world) const {
    Joint const& joint = _joints.at(name);
    EntityConfig::Joint const& described = _config->joints.at(name);
    glm::vec3 const defaultPosition = described.linear_default;
    glm::vec3 const defaultRotation = described.angular_default;

    JointState state{defaultPosition, defaultRotation};
    auto const stored = entity.jointStates.find(name);
    if (stored != entity.jointStates.end()) state = stored->second;
    for (int axis = 0; axis < 3; ++axis) {
        state.position[axis] =
            ClampBetween(state.position[axis], described.linear_min[axis], described.linear_max[axis]);
        state.rotation[axis] =
            ClampBetween(state.rotation[axis], described.angular_min[axis], described.angular_max[axis]);
    }
    if (stored != entity.jointStates.end()) stored->second = state;

    // The joint's motion: undo the resting rotation, move by the offset from the
    // resting position and turn by the current rotation. At rest this is the
    // identity, so the joint sits where the description puts it; when the
    // resting values are the joint's own, the joint sits as if the file gave the
    // current values as its position and rotation.
    glm::dmat4 const local = glm::mat4_cast(glm::inverse(GameRotation(defaultRotation))) *
        glm::translate(glm::dmat4(1.0), GameOffset(state.position - defaultPosition)) *
        glm::mat4_cast(GameRotation(state.rotation));
    glm::dmat4 const placed = parentWorld * joint.offset * local;
    world[name] = placed;
    entity.nodeTransforms[name] = placed;
    for (std::string const& child : joint.children) Solve(child, placed, entity, world);
}

} // namespace game::entity
