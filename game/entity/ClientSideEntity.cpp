#include "game/entity/ClientSideEntity.hpp"

#include "game/Game.hpp"
#include "game/entity/EntityConfig.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "game/graphics/LightSourceInstance.hpp"
#include "game/graphics/Mesh.hpp"
#include "game/graphics/PlasmaTrail.hpp"
#include "game/graphics/RenderableInstance.hpp"
#include "nerox/Assert.hpp"
#include "nerox/cpu/Profiler.hpp"
#include "nerox/graphics/Window.hpp"

#include <chrono>
#include <cmath>
#include <exception>
#include <filesystem>
#include <iostream>
#include <mutex>

namespace game::entity {

// The type tables live in game.so, one for the whole process: every module
// library binds to these, whatever it was compiled with.
template class EntityTypeRegistry<ClientSideEntityInterface>;

namespace {

/// The key code of F5, as Window::GetKey takes it.
constexpr int ReloadKey = 294;
/// Longest parent chain walked; guards against a cycle.
constexpr int MaxParentDepth = 256;

/// Seconds since the epoch, from the system clock.
double SystemSeconds() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

} // namespace

ClientSideEntityInterface::~ClientSideEntityInterface() = default;
void ClientSideEntityInterface::Update(double) { }
void ClientSideEntityInterface::AfterUpdate(double) { }
void ClientSideEntityInterface::Ui() { }

ClientSideEntity::ClientSideEntity(Id givenId, nerox::modular::ModuleID const& module, std::string const& type)
    : id(givenId) {
    moduleId = module;
    itemType = type;
    auto const rows = _registered_interfaces.find(moduleId.String());
    if (rows == _registered_interfaces.end()) return;
    auto const row = rows->second.find(itemType);
    if (row == rows->second.end()) return;
    if (row->second.factory) _interface = row->second.factory();
    NEROX_ASSERT(_interface);
    config = TakeConfig(row->second);
    InitNodes();
    if (!config) return;
    try {
        InitMeshRenderables(config->GetMesh());
    } catch (std::exception const& error) {
        // A broken mesh file leaves the entity unseen; the game goes on.
        std::cerr << "ClientSideEntity " << itemType << ": " << error.what() << std::endl;
    }
}

ClientSideEntity::~ClientSideEntity() {
    // The interface's code belongs to its module: let it go before anything else.
    _interface.reset();
    for (Renderable& renderable : renderables) Retire(std::move(renderable.instance));
    renderableInstances.clear();
    for (auto& [node, light] : lightInstances) Retire(std::move(light));
}

ClientSideEntity::Ptr ClientSideEntity::Spawn(Id id, nerox::modular::ModuleID const& module,
                                              std::string const& itemType) {
    Ptr entity = Create(id, module, itemType);
    entity->Attach();
    return entity;
}

void ClientSideEntity::Attach() {
    if (!_interface || _interface->isReady) return;
    _interface->entity = std::static_pointer_cast<ClientSideEntity>(selfReference.lock());
    _interface->self = _interface;
    _interface->id = id;
    _interface->config = config;
    _interface->isReady.store(true, std::memory_order_release);
}

void ClientSideEntity::Retire(std::shared_ptr<void> object) {
    if (object && Game::renderer != nullptr) Game::renderer->Trash(std::move(object));
}

void ClientSideEntity::InitNodes() {
    if (!config) return;
    BaseEntity::InitNodes();
    EntityConfig const& described = *config;
    for (auto const& entry : described.renderables)
        nodeTransforms[entry.first] = described.GetAbsoluteTransform(entry.first);
    for (auto const& entry : described.cameras)
        nodeTransforms[entry.first] = described.GetAbsoluteTransform(entry.first);
    for (auto const& entry : described.lightBoxes)
        nodeTransforms[entry.first] = described.GetAbsoluteTransform(entry.first);
}

void ClientSideEntity::InitMeshRenderables(std::shared_ptr<game::graphics::Mesh> const& mesh) {
    for (Renderable& renderable : renderables) {
        // Out of the scene now; freed once no frame in flight reads it.
        renderable.instance->visible = false;
        renderable.instance->enabled = false;
        Retire(std::move(renderable.instance));
    }
    renderables.clear();
    auto trail = renderableInstances.extract(PlasmaTrailNode); // not part of the mesh
    renderableInstances.clear();
    if (trail) renderableInstances.insert(std::move(trail));
    if (config) _meshLoad = config->meshLoads;
    if (!mesh) return;
    std::map<std::string, bool> nodes; // the mesh's nodes in name order
    for (auto const& entry : *mesh) nodes[entry.first] = true;
    for (auto const& [node, unused] : nodes) {
        std::shared_ptr<game::graphics::RenderableInstance> instance = mesh->MakeInstance(node);
        instance->rayMask = 2;
        instance->visible = visible;
        renderables.push_back({node, instance});
        renderableInstances[node] = std::move(instance);
    }
    _placeStale = true; // the new instances need their place
}

void ClientSideEntity::AddLight(std::string const& node, std::shared_ptr<game::graphics::LightSourceInstance> light) {
    auto& slot = lightInstances[node];
    if (slot && slot != light) Retire(std::move(slot));
    slot = std::move(light);
    _placeStale = true;
}

std::shared_ptr<game::graphics::RenderableInstance> ClientSideEntity::FindRenderable(std::string const& node) const {
    auto const found = renderableInstances.find(node);
    return found == renderableInstances.end() ? nullptr : found->second;
}

void ClientSideEntity::ReloadMeshOnKey() {
    if (Game::window == nullptr || Game::window->GetKey(ReloadKey) != GLFW_PRESS) return;
    if (!config || !config->mesh) return;
    EntityConfig& described = *config;
    uint64_t const frame = Game::renderer != nullptr ? Game::renderer->FrameIndex() : 0;
    if (described.meshCheckFrame == frame) return; // another entity of the type checked this frame
    described.meshCheckFrame = frame;
    double const now = SystemSeconds();
    if (described.meshCheckTime == 0.0) {
        described.meshCheckTime = now;
        return;
    }
    if (now <= described.meshCheckTime + 1.0) return;
    described.meshCheckTime = now;
    std::string const path = described.GetMeshFilePath();
    std::error_code error;
    std::filesystem::file_time_type const written = std::filesystem::last_write_time(path, error);
    if (error || written == described.meshWriteTime) return;
    described.meshWriteTime = written;
    try {
        described.mesh->Load(path);
        ++described.meshLoads;
        std::cout << "Reloaded mesh: " << path << std::endl;
    } catch (std::exception const& failure) {
        // Keep playing with what was shown; the next save of the file tries again.
        std::cerr << "Mesh reload failed: " << failure.what() << std::endl;
    }
}

void ClientSideEntity::Update(double dt) {
    ReloadMeshOnKey();
    // The type's mesh was (re)loaded since the instances were made, by this
    // entity or another one of its type.
    if (config && config->mesh && config->meshLoads != _meshLoad) InitMeshRenderables(config->mesh);

    if (_interface && _interface->isReady.load(std::memory_order_acquire)) _interface->Update(dt);

    if (interpolationEnabled && interpolationRate != 0.0f) {
        if (!isDynamic || !interpolationBusy) {
            position = targetPosition;
            orientation = targetOrientation;
        } else {
            // rate is the share per 1/60 s; this is the same share over dt.
            double const rate = std::min(1.0, static_cast<double>(interpolationRate));
            double const share = rate >= 1.0 ? 1.0 : 1.0 - std::pow(1.0 - rate, dt * 60.0);
            position += (targetPosition - position) * share;
            orientation = glm::slerp(orientation, targetOrientation, share);
        }
    }

    if (config && (nodesDirty || nodesAnimated)) {
        config->jointSolver(this);
        BaseEntity::Update(dt);
        nodesDirty = false;
        _placeStale = true; // nodes moved
    }
}

void ClientSideEntity::AfterUpdate(double dt) {
    if (_interface && _interface->isReady.load(std::memory_order_acquire)) _interface->AfterUpdate(dt);
}

void ClientSideEntity::Ui() {
    if (_interface && _interface->isReady.load(std::memory_order_acquire)) _interface->Ui();
}

void ClientSideEntity::SetVisibility(bool show) {
    visible = show;
    for (Renderable const& renderable : renderables) renderable.instance->visible = show;
}

void ClientSideEntity::SetTarget(glm::dvec3 const& newPosition, glm::dquat const& newOrientation) {
    targetPosition = newPosition;
    targetOrientation = newOrientation;
    interpolationBusy = true;
}

glm::dmat4 ClientSideEntity::GetAbsoluteTransformInEnvironment() const {
    glm::dmat4 transform = GetTransform();
    Id parentId = parentEntity;
    for (int depth = 0; depth < MaxParentDepth && parentId.IsSet(); ++depth) {
        Ptr const parent = Get(parentId);
        if (!parent) break; // gone: the walk stops here
        transform = parent->GetTransform() * transform;
        parentId = parent->parentEntity;
    }
    return transform;
}

glm::dmat4 ClientSideEntity::GetAbsoluteTransformInEnvironmentCached(bool& computed) {
    return CachedTransform(computed, 0);
}

glm::dmat4 ClientSideEntity::CachedTransform(bool& computed, int depth) {
    // The cache holds as long as what it was made from: the entity's own place
    // and its parent's place, itself cached. So a static entity walks once, and
    // a moving one (or one under a moving parent) once per change.
    glm::dmat4 parentTransform(1.0);
    if (parentEntity.IsSet() && depth < MaxParentDepth) {
        if (Ptr const parent = Get(parentEntity); parent && parent.get() != this) {
            bool parentComputed = false;
            parentTransform = parent->CachedTransform(parentComputed, depth + 1);
        }
    }
    computed = !environmentTransformCached || position != _cachedPosition || orientation != _cachedOrientation ||
        parentTransform != _cachedParentTransform;
    if (!computed) return environmentTransform;
    environmentTransform = parentTransform * GetTransform();
    environmentTransformCached = true;
    _cachedPosition = position;
    _cachedOrientation = orientation;
    _cachedParentTransform = parentTransform;
    return environmentTransform;
}

void ClientSideEntity::UpdatePlasma(glm::dmat4 const& placed) {
    game::graphics::GameRenderer* renderer = Game::renderer;
    if (renderer == nullptr || !isDynamic) return;
    auto const slot = renderableInstances.find(PlasmaTrailNode);
    auto* trail =
        slot == renderableInstances.end() ? nullptr : dynamic_cast<game::graphics::PlasmaTrail*>(slot->second.get());
    auto hide = [trail] {
        if (trail != nullptr) trail->visible = false;
    };
    auto const environment = Game::_environmentFunctions.find(Game::parentEnvironmentId);
    glm::dvec3 const where(placed[3]);
    if (!visible || Game::parentEnvironmentId == 0 || environment == Game::_environmentFunctions.end() ||
        !environment->second || glm::distance(where, renderer->cameraPosition) > PlasmaDistance)
        return hide();
    // Below 1 m/s nothing glows in any gas: skip asking the environment.
    double const speed = glm::length(linearVelocity);
    if (!(speed >= 1.0)) return hide();
    double const size = boundingRadius > 0.0 ? boundingRadius : 0.5;
    game::physics::EnvironmentInfo const medium = environment->second(where, game::EnvironmentMedium, size);
    if (trail == nullptr) {
        // Made at the first glow: most moving entities never need one.
        if (!game::graphics::PlasmaTrail::Measure(glm::vec3(linearVelocity), medium).active) return;
        auto made = game::graphics::RenderableInstance::Make<game::graphics::PlasmaTrail>();
        trail = made.get();
        renderableInstances[PlasmaTrailNode] = std::move(made);
    }
    trail->Update(glm::vec3(linearVelocity), static_cast<float>(size), medium);
    if (!trail->visible) return;
    // The trail's +y axis points away from the motion.
    glm::dvec3 const back = -linearVelocity / speed;
    glm::dvec3 const helper = std::abs(back.y) < 0.9 ? glm::dvec3(0.0, 1.0, 0.0) : glm::dvec3(1.0, 0.0, 0.0);
    glm::dvec3 const side = glm::normalize(glm::cross(helper, back));
    glm::dmat4 transform(glm::dvec4(side, 0.0), glm::dvec4(back, 0.0), glm::dvec4(glm::cross(side, back), 0.0),
                         glm::dvec4(where, 1.0));
    if (transform != trail->transform) {
        trail->transform = transform;
        trail->transformChanged = true;
    }
}

void ClientSideEntity::PhysicsUpdate(double) {
    nerox::cpu::Profiler scope("ClientSideEntity::PhysicsUpdate");
    ForEach([](Ptr entity) {
        bool computed = false;
        glm::dmat4 const placed = entity->GetAbsoluteTransformInEnvironmentCached(computed);
        entity->UpdatePlasma(placed);
        if (!computed && !entity->_placeStale) return;
        entity->_placeStale = false;
        for (Renderable const& renderable : entity->renderables) {
            auto const node = entity->nodeTransforms.find(renderable.node);
            glm::dmat4 const transform = node == entity->nodeTransforms.end() ? placed : placed * node->second;
            if (transform != renderable.instance->transform || renderable.instance->firstUpdate) {
                renderable.instance->transform = transform;
                renderable.instance->transformChanged = true;
                renderable.instance->firstUpdate = false;
            }
        }
        for (auto const& [name, light] : entity->lightInstances) {
            auto const node = entity->nodeTransforms.find(name);
            light->transform = node == entity->nodeTransforms.end() ? placed : placed * node->second;
        }
    });
}

} // namespace game::entity
