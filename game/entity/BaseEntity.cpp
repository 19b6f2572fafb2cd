#include "game/entity/BaseEntity.hpp"

#include <algorithm>
#include <limits>

#include <glm/gtc/matrix_transform.hpp>

#include "game/entity/EntityConfig.hpp"
#include "nerox/cpu/Profiler.hpp"

namespace game::entity {

namespace {

/// Triangles of a box collider over the corners in binary order (bit 2 x, bit 1 y, bit 0 z).
constexpr uint16_t BoxTriangles[12][3] = {
    {0, 1, 2}, {1, 3, 2}, {4, 5, 6}, {5, 7, 6}, {0, 1, 4}, {1, 5, 4},
    {2, 3, 6}, {3, 7, 6}, {0, 2, 4}, {2, 6, 4}, {1, 3, 5}, {3, 7, 5},
};

/// Makes collider the box of its box_min and box_max.
void MakeBox(ConvexMeshCollider& collider) {
    for (uint32_t corner = 0; corner < 8; ++corner) {
        collider.vertices[corner] = glm::vec3((corner & 4u) ? collider.box_max.x : collider.box_min.x,
                                              (corner & 2u) ? collider.box_max.y : collider.box_min.y,
                                              (corner & 1u) ? collider.box_max.z : collider.box_min.z);
    }
    collider.verticesCount = 8;
    collider.normals[0] = glm::vec3(1.0f, 0.0f, 0.0f);
    collider.normals[1] = glm::vec3(0.0f, 1.0f, 0.0f);
    collider.normals[2] = glm::vec3(0.0f, 0.0f, 1.0f);
    collider.normalsCount = 3;
    for (size_t i = 0; i < 12; ++i)
        collider.triangles[i] = glm::u16vec3(BoxTriangles[i][0], BoxTriangles[i][1], BoxTriangles[i][2]);
    collider.trianglesCount = 12;
}

} // namespace

ConvexMeshCollider ConvexMeshCollider::Box(glm::vec3 const& boxMin, glm::vec3 const& boxMax) {
    ConvexMeshCollider collider;
    collider.box_min = glm::min(boxMin, boxMax);
    collider.box_max = glm::max(boxMin, boxMax);
    MakeBox(collider);
    collider.radius = 0.5 * glm::length(glm::dvec3(collider.box_max) - glm::dvec3(collider.box_min));
    return collider;
}

namespace {

/// Copies the hull of a description into collider, at most what its arrays hold.
void CopyHull(EntityConfig::Collider const& described, ConvexMeshCollider& collider) {
    collider.verticesCount = std::min<uint32_t>(described.nb_vertices, ConvexMeshCollider::MaxVertices);
    collider.normalsCount = std::min<uint32_t>(described.nb_faces, ConvexMeshCollider::MaxNormals);
    collider.trianglesCount = std::min<uint32_t>(described.nb_triangles, ConvexMeshCollider::MaxTriangles);
    collider.vertices = described.vertices;
    collider.normals = described.faces_normal;
    collider.triangles = described.triangles;
}

} // namespace

BaseEntity::~BaseEntity() = default;

void BaseEntity::InitNodes() {
    if (!config) return;
    EntityConfig const& described = *config;
    mass = described.mass;

    for (auto const& [name, joint] : described.joints) {
        nodeTransforms[name] = described.GetAbsoluteTransform(name);
        JointState& state = jointStates[name];
        state.rotation = joint.angular_default;
        state.position = joint.linear_default;
    }

    for (auto const& [name, source] : described.colliders) {
        glm::dmat4 const transform = described.GetAbsoluteTransform(name);
        nodeTransforms[name] = transform;
        ConvexMeshCollider& collider = colliders[name];
        collider.transform = transform;
        collider.box_min = source.box_min;
        collider.box_max = source.box_max;
        collider.name = name;
        collider.reserved0 = 0;
        collider.reserved1 = 0.0;
        if (source.nb_vertices > 0)
            CopyHull(source, collider);
        else
            MakeBox(collider);
        if (collider.verticesCount > 0) {
            glm::vec3 low = collider.vertices[0];
            glm::vec3 high = collider.vertices[0];
            for (uint32_t i = 1; i < collider.verticesCount; ++i) {
                low = glm::min(low, collider.vertices[i]);
                high = glm::max(high, collider.vertices[i]);
            }
            collider.box_min = low;
            collider.box_max = high;
        }
        collider.radius = 0.5 * glm::length(glm::dvec3(collider.box_max) - glm::dvec3(collider.box_min));
    }

    for (auto const& entry : described.adapters)
        nodeTransforms[entry.first] = described.GetAbsoluteTransform(entry.first);
    for (auto const& entry : described.targets)
        nodeTransforms[entry.first] = described.GetAbsoluteTransform(entry.first);

    UpdateBoundingBox(true);
}

void BaseEntity::UpdateBoundingBox(bool updateCenterOfMass) {
    if (colliders.empty()) {
        boundsMin = glm::dvec3(0.0);
        boundsMax = glm::dvec3(0.0);
        box_size = glm::dvec3(0.0);
        boundsCenter = glm::dvec3(0.0);
        boundingRadius = 0.0;
        return;
    }
    double const limit = static_cast<double>(std::numeric_limits<float>::max());
    glm::dvec3 low(limit);
    glm::dvec3 high(-limit);
    for (auto const& entry : colliders) {
        ConvexMeshCollider const& collider = entry.second;
        // Only the two stored corners are placed: a rotated collider's box is
        // the box of these two points, not of all eight corners.
        glm::dvec3 const a(collider.transform * glm::dvec4(glm::dvec3(collider.box_min), 1.0));
        glm::dvec3 const b(collider.transform * glm::dvec4(glm::dvec3(collider.box_max), 1.0));
        low = glm::min(low, glm::min(a, b));
        high = glm::max(high, glm::max(a, b));
    }
    boundsMin = low;
    boundsMax = high;
    box_size = glm::abs(boundsMax - boundsMin);
    boundsCenter = (boundsMin + boundsMax) / 2.0;
    boundingRadius = 0.5 * glm::length(boundsMax - boundsMin);
    if (updateCenterOfMass) centerOfMass = boundsCenter;
}

void BaseEntity::Update(double /*dt*/) {
    nerox::cpu::Profiler profiler("BaseEntity::Update");
    if (!nodesAnimated && !nodesDirty) return;
    for (auto& [name, collider] : colliders) {
        auto const found = nodeTransforms.find(name);
        if (found != nodeTransforms.end()) collider.transform = found->second;
    }
    UpdateBoundingBox(true);
}

glm::dmat4 BaseEntity::GetTransform() const {
    return glm::translate(glm::dmat4(1.0), position) * glm::mat4_cast(orientation);
}

} // namespace game::entity
