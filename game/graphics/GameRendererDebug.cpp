// The overlay's physics debug shapes: the colliders of the server's last
// step (handed over through Game's staging buffers), its contact lines, and
// the colliders of the client entities, drawn over the scene.
#include "game/graphics/GameRenderer.hpp"

#include "game/Game.hpp"
#include "game/entity/ClientSideEntity.hpp"
#include "nerox/vk/Buffer.hpp"
#include "nerox/vk/Pipeline.hpp"

#include <glm/gtc/packing.hpp>

#include <algorithm>
#include <cstring>
#include <mutex>

namespace game::graphics {

namespace {

/// What the debug pipelines read from their push constants.
struct DebugConstants {
    glm::mat4 viewProjection{1.0f}; ///< Camera-relative world to clip space.
    uint64_t vertices = 0;          ///< The vertices' address.
};
static_assert(sizeof(DebugConstants) <= GameRenderer::OverlayPushConstantBytes);

// Colours of the debug shapes, see-through.
constexpr glm::vec4 StaticColliderColor{0.25f, 0.45f, 1.0f, 0.4f};
constexpr glm::vec4 MovingColliderColor{0.2f, 1.0f, 0.3f, 0.4f};
constexpr glm::vec4 ClientColliderColor{1.0f, 0.8f, 0.1f, 0.4f};
/// Vertices a debug buffer holds at first.
constexpr size_t FirstDebugCapacity = 16;

uint32_t Pack(glm::vec4 const& color) {
    return glm::packUnorm4x8(glm::clamp(color, glm::vec4(0.0f), glm::vec4(1.0f)));
}

} // namespace

void GameRenderer::AppendColliderTriangles(game::entity::ConvexMeshCollider const& collider, glm::dmat4 const& world,
                                           uint32_t color) {
    using game::entity::ConvexMeshCollider;
    uint32_t const vertices = std::min<uint32_t>(collider.verticesCount, ConvexMeshCollider::MaxVertices);
    uint32_t const triangles = std::min<uint32_t>(collider.trianglesCount, ConvexMeshCollider::MaxTriangles);
    for (uint32_t t = 0; t < triangles; ++t) {
        glm::u16vec3 const& triangle = collider.triangles[t];
        if (triangle.x >= vertices || triangle.y >= vertices || triangle.z >= vertices) continue; // not drawable
        for (int k = 0; k < 3; ++k) {
            glm::dvec3 const point(world * glm::dvec4(glm::dvec3(collider.vertices[triangle[k]]), 1.0));
            _debugVertices.push_back({glm::vec3(point - cameraPosition), color});
        }
    }
}

void GameRenderer::DrawDebugPhysics(VkCommandBuffer commandBuffer) {
    if (!Game::debugClientSidePhysics && !Game::debugServerSidePhysics) {
        for (std::shared_ptr<nerox::vk::Buffer>& buffer : debugColliderVertices) Trash(std::move(buffer));
        return;
    }
    // The physics step's latest shapes, when it published new ones.
    if (Game::debugServerSidePhysics && Game::physicsDebugCollidersUpdated.exchange(false)) {
        std::lock_guard lock(Game::physicsDebugMutex);
        std::swap(Game::physicsDebugColliders_staging, Game::physicsDebugColliders_front);
        std::swap(Game::physicsDebugLines_staging, Game::physicsDebugLines_front);
    }

    _debugVertices.clear();
    if (Game::debugClientSidePhysics) {
        uint32_t const color = Pack(ClientColliderColor);
        game::entity::ClientSideEntity::ForEach([&](game::entity::ClientSideEntity::Ptr entity) {
            glm::dmat4 const transform = entity->GetAbsoluteTransformInEnvironment();
            for (auto const& [name, collider] : entity->colliders) {
                if (collider.enabled) AppendColliderTriangles(collider, transform * collider.transform, color);
            }
        });
    }
    if (Game::debugServerSidePhysics) {
        for (Game::PhysicsColliderDebug const& shape : Game::physicsDebugColliders_front) {
            AppendColliderTriangles(shape.collider, shape.collider.transform,
                                    Pack(shape.dynamic ? MovingColliderColor : StaticColliderColor));
        }
    }
    size_t const triangleVertices = _debugVertices.size();
    if (Game::debugServerSidePhysics) {
        for (Game::PhysicsLineDebug const& line : Game::physicsDebugLines_front) {
            uint32_t const color = Pack(line.color);
            _debugVertices.push_back({glm::vec3(line.start - cameraPosition), color});
            _debugVertices.push_back({glm::vec3(line.end - cameraPosition), color});
        }
    }
    if (_debugVertices.empty()) return;

    // This frame slot's buffer; the frame that used it last is done.
    std::shared_ptr<nerox::vk::Buffer>& buffer = debugColliderVertices[CurrentFrameSlot() % FramesInFlight];
    VkDeviceSize const bytes = _debugVertices.size() * sizeof(DebugVertex);
    if (!buffer || buffer->Size() < bytes) {
        size_t capacity = buffer ? buffer->Size() / sizeof(DebugVertex) : FirstDebugCapacity;
        while (capacity < _debugVertices.size()) capacity *= 2;
        Trash(std::move(buffer));
        buffer = std::make_shared<nerox::vk::Buffer>(
            GetDevice(), capacity * sizeof(DebugVertex), VK_BUFFER_USAGE_STORAGE_BUFFER_BIT,
            nerox::vk::MemoryUsage::AutoPreferHost,
            nerox::vk::AllocationMapped | nerox::vk::AllocationHostAccessSequentialWrite,
            "Debug Physics Collider Vertex Buffer", 16);
    }
    std::memcpy(buffer->Map(), _debugVertices.data(), bytes);

    // The world view's projection has depth 1 at the near plane; the overlay's
    // depth test keeps the smaller depth, so depth is turned round: 1 - z / w.
    glm::dmat4 flip(1.0);
    flip[2][2] = -1.0;
    flip[3][2] = 1.0;
    DebugConstants constants;
    constants.viewProjection = glm::mat4(flip * projectionMatrix * glm::dmat4(glm::dmat3(viewMatrix)));
    constants.vertices = buffer->Address();
    if (triangleVertices > 0) {
        colliderTrianglesPipeline->Bind(commandBuffer);
        vkCmdPushConstants(commandBuffer, *overlayPipelineLayout, VK_SHADER_STAGE_ALL, 0, sizeof constants, &constants);
        vkCmdDraw(commandBuffer, static_cast<uint32_t>(triangleVertices), 1, 0, 0);
    }
    if (_debugVertices.size() > triangleVertices) {
        constants.vertices += triangleVertices * sizeof(DebugVertex);
        colliderLinesPipeline->Bind(commandBuffer);
        vkCmdPushConstants(commandBuffer, *overlayPipelineLayout, VK_SHADER_STAGE_ALL, 0, sizeof constants, &constants);
        vkCmdDraw(commandBuffer, static_cast<uint32_t>(_debugVertices.size() - triangleVertices), 1, 0, 0);
    }
}

} // namespace game::graphics
