#pragma once
#include <map>
#include <string>
#include <vector>

#include <glm/glm.hpp>

namespace game::entity {

class BaseEntity;
class EntityConfig;

/// Forward kinematics of the joint tree of one description: turns an entity's
/// joint values into node transforms. Every joint has three linear and three
/// angular axes, each kept within its limits. The tree is built once per read
/// of the description and read-only afterwards, so one solver serves all
/// entities of the type from any number of threads.
class JointSolver {
public:
    /// One joint of the tree.
    struct Joint {
        glm::dmat4 offset{1.0};                  ///< From the parent joint (or the root) to this joint at rest.
        std::string parent;                      ///< Nearest ancestor joint; empty for a root joint.
        std::vector<std::string> children;       ///< Joints whose parent this is.
        std::map<std::string, glm::dmat4> nodes; ///< Non-joint nodes on this joint, relative to it.
    };

    /// A solver of the joints of config (which owns it).
    explicit JointSolver(EntityConfig* config) : _config(config) { }
    JointSolver(JointSolver const&) = delete;
    JointSolver& operator=(JointSolver const&) = delete;

    /// Builds the tree from the config's joints and nodes, replacing the old one.
    /// The caller holds the config's mutex (it runs while the file is read).
    void Init();

    /// Solves the joints of entity: clamps its joint values into their limits
    /// (storing the clamped values) and writes the transforms of the joints and
    /// of the nodes that hang on them into its nodeTransforms. Returns false,
    /// changing nothing, when the tree or the entity's joint values are empty.
    bool operator()(BaseEntity* entity) const;

    /// The tree by joint name.
    std::map<std::string, Joint> const& GetJoints() const { return _joints; }

private:
    /// Solves the joint name and, recursively, its children.
    void Solve(std::string const& name, glm::dmat4 const& parentWorld, BaseEntity& entity,
               std::map<std::string, glm::dmat4>& world) const;

    EntityConfig* _config;
    std::map<std::string, Joint> _joints;
};

} // namespace game::entity
