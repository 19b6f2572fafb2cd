#pragma once
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <glm/glm.hpp>
#include <glm/gtc/type_precision.hpp>

#include "game/entity/Id.hpp"

namespace game::physics {
struct Collision;
} // namespace game::physics

namespace game::entity {

/// A convex hull of at most 8 vertices, 12 face normals and 12 triangles, placed
/// in entity space. Entities hold their own copies, so joints can move them.
struct ConvexMeshCollider {
    /// Most vertices a collider holds.
    static constexpr size_t MaxVertices = 8;
    /// Most distinct face normals a collider holds.
    static constexpr size_t MaxNormals = 12;
    /// Most triangles a collider holds.
    static constexpr size_t MaxTriangles = 12;

    /// A box collider from boxMin to boxMax in collider space: 8 corners in
    /// binary order (bit 2 x, bit 1 y, bit 0 z), 3 normals, 12 triangles.
    static ConvexMeshCollider Box(glm::vec3 const& boxMin, glm::vec3 const& boxMax);

    /// Called on a contact with the body that carries the collider (as the physics
    /// step passes it), this collider, the other one, the contact (which the
    /// callback may change) and the step length. In the static path the result
    /// tells whether the contact is recorded.
    using ContactCallback = std::function<bool(void* body, ConvexMeshCollider& self, ConvexMeshCollider& other,
                                               game::physics::Collision& collision, double dt)>;

    bool enabled = true;                                ///< False keeps the collider out of rigid bodies.
    glm::dmat4 transform{1.0};                          ///< Collider space to entity space; moved by joints.
    glm::vec3 box_min{0.0f};                            ///< Box of the vertices in collider space, smaller corner.
    glm::vec3 box_max{0.0f};                            ///< Box of the vertices in collider space, larger corner.
    double radius = 0.0;                                ///< Half the box diagonal.
    double fill = 1.0;                                  ///< Solid share of the box.
    uint64_t reserved0 = 0;                             ///< Reserved; zero.
    uint32_t verticesCount = 0;                         ///< Used entries of vertices.
    uint32_t normalsCount = 0;                          ///< Used entries of normals.
    uint32_t trianglesCount = 0;                        ///< Used entries of triangles.
    std::array<glm::vec3, MaxVertices> vertices{};      ///< Hull vertices in collider space.
    std::array<glm::vec3, MaxNormals> normals{};        ///< Distinct unit face normals in collider space.
    std::array<glm::u16vec3, MaxTriangles> triangles{}; ///< Vertex indices, three per triangle.
    /// Finer colliders, each placed relative to this one; an empty list by default.
    std::shared_ptr<std::vector<ConvexMeshCollider>> subColliders = std::make_shared<std::vector<ConvexMeshCollider>>();
    Id entity;                 ///< The owning entity.
    std::string name;          ///< Name of the node.
    double reserved1 = 0.0;    ///< Reserved; zero.
    bool reducedQuery = false; ///< Take part in reduced queries only.
    bool exactEdges = false;   ///< Also test the edge-cross axes.
    double friction = 0.2;     ///< Surface friction coefficient.
    ContactCallback onContact; ///< Contact callback; empty by default.
};

} // namespace game::entity
