#pragma once
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <glm/glm.hpp>
#include <glm/gtc/quaternion.hpp>

#include "game/entity/BaseEntity.hpp"
#include "game/entity/ClientSideEntityInterface.hpp"
#include "game/entity/EntityType.hpp"
#include "game/entity/Id.hpp"
#include "game/entity/UniqueObject.hpp"
#include "nerox/modular/ModuleID.hpp"

namespace game::graphics {
class Mesh;
class RenderableInstance;
class LightSourceInstance;
} // namespace game::graphics

namespace game::entity {

/// What the player sees of an entity: a BaseEntity whose place comes from the
/// server (through a network or link module) and is smoothed between updates,
/// with the renderable instances of its mesh and the lights its module adds.
/// It simulates nothing; its joints follow the server's joint values through
/// the same solver.
///
/// Entities live in the registry of UniqueObject: the network module makes
/// them with Spawn (or Create, then Attach) under the server entity's id and
/// destroys them with Destroy.
///
/// Threads: everything but the registry runs on the main thread (Game::Update);
/// the registry's lock guards the map against the network module's thread.
/// A network module on another thread never touches an entity's fields: it
/// queues its changes through Game::Synchronize.
class ClientSideEntity : public BaseEntity,
                         public UniqueObject<ClientSideEntity>,
                         public EntityTypeRegistry<ClientSideEntityInterface> {
public:
    /// Name of the class in registry messages.
    static constexpr char const* _uniqueObjectName = "ClientSideEntity";
    /// The module's look-and-feel object.
    using Interface = ClientSideEntityInterface;
    /// Shared owner of an entity.
    using Ptr = std::shared_ptr<ClientSideEntity>;

    /// One renderable instance of the entity, on the node of the same name.
    struct Renderable {
        std::string node;                                             ///< Node (and mesh node) name.
        std::shared_ptr<game::graphics::RenderableInstance> instance; ///< In the scene table.
    };

    /// The client view of entity id, of itemType from module. With a registered
    /// type the module's interface is made (not yet attached: see Attach), the
    /// description read, the nodes set up and, with a renderer, the mesh shown.
    ClientSideEntity(Id id, nerox::modular::ModuleID const& module, std::string const& itemType);
    /// Takes the renderables and lights out of the scene; the interface goes first.
    ~ClientSideEntity() override;

    ClientSideEntity(ClientSideEntity const&) = delete;
    ClientSideEntity& operator=(ClientSideEntity const&) = delete;

    /// Creates and registers an entity and attaches its interface.
    static Ptr Spawn(Id id, nerox::modular::ModuleID const& module, std::string const& itemType);
    /// Links the interface to the entity made by Create and marks it ready.
    /// Does nothing without an interface or when it is attached already.
    void Attach();

    /// The entity's id.
    Id GetID() const { return id; }
    /// The module's object; empty when the module has no row for the item type.
    std::shared_ptr<Interface> const& GetInterface() const { return _interface; }

    /// BaseEntity::InitNodes, then the transforms of the renderables, cameras
    /// and light boxes. Nothing without a config.
    void InitNodes() override;
    /// One client pass: mesh reload on F5, the interface's Update, the step
    /// towards the server's place, the joints.
    void Update(double dt) override;
    /// The interface's AfterUpdate.
    virtual void AfterUpdate(double dt);
    /// The interface's Ui.
    virtual void Ui();
    /// Shows or hides every renderable of the entity.
    virtual void SetVisibility(bool visible);

    /// Places every entity's renderables and lights in the environment, and
    /// keeps the plasma trail of each that moves fast through a gas; run once
    /// per client pass, after the entities' Update.
    static void PhysicsUpdate(double dt);

    /// Node name of an entity's plasma trail in renderableInstances.
    static constexpr char const* PlasmaTrailNode = "_plasma_trail";
    /// Beyond this distance from the camera (metres) no trail is kept up to date.
    static constexpr double PlasmaDistance = 100.0;

    /// Replaces the renderables with one instance per node of mesh (none for an
    /// empty pointer), each on the node of its name: the identity for a mesh
    /// node that the description does not list. The old instances leave the
    /// scene at once and are freed once no frame reads them.
    void InitMeshRenderables(std::shared_ptr<game::graphics::Mesh> const& mesh);
    /// Adds light under node: it moves with the node (or the entity, for a
    /// node the description does not list) from the next PhysicsUpdate on.
    /// Replaces a light of the same node.
    void AddLight(std::string const& node, std::shared_ptr<game::graphics::LightSourceInstance> light);
    /// The renderable instance on node, or an empty pointer.
    std::shared_ptr<game::graphics::RenderableInstance> FindRenderable(std::string const& node) const;

    /// The entity's place in its environment: the parents' places times its
    /// own transform, walking up while the parents exist.
    glm::dmat4 GetAbsoluteTransformInEnvironment() const;
    /// The same, kept between calls: it is computed again only when the
    /// entity's place or a parent's changed since. computed tells whether this
    /// call computed it.
    glm::dmat4 GetAbsoluteTransformInEnvironmentCached(bool& computed);

    /// Sets the server's latest place, to be followed from the next Update on.
    void SetTarget(glm::dvec3 const& position, glm::dquat const& orientation);

    Id id;                                            ///< Identity; the server entity's.
    glm::dmat4 environmentTransform{1.0};             ///< Cache of GetAbsoluteTransformInEnvironmentCached.
    bool environmentTransformCached = false;          ///< The cache is valid.
    glm::dvec3 targetPosition{0.0};                   ///< Last position from the server.
    glm::dquat targetOrientation{1.0, 0.0, 0.0, 0.0}; ///< Last orientation from the server.
    /// Share of the way to the target covered per 1/60 s: 0 none (position is
    /// left to whoever writes it), 1 at once. Frame-rate independent.
    float interpolationRate = 0.0f;
    bool interpolationBusy = false;      ///< A target was received.
    bool interpolationEnabled = true;    ///< Follow the targets at all.
    bool visible = true;                 ///< SetVisibility's last value.
    std::vector<Renderable> renderables; ///< The instances, in node name order.
    /// The renderable instances by node name.
    std::map<std::string, std::shared_ptr<game::graphics::RenderableInstance>> renderableInstances;
    /// The lights by node name.
    std::map<std::string, std::shared_ptr<game::graphics::LightSourceInstance>> lightInstances;

private:
    /// Step 1 of Update: reloads the mesh while F5 is held, at most once a second.
    void ReloadMeshOnKey();
    /// Hands an instance or light to the renderer's trash (a frame may read it).
    static void Retire(std::shared_ptr<void> object);
    /// The plasma step: with a renderer and the player's environment known, a
    /// shown entity within PlasmaDistance of the camera that moves gets (or keeps) a
    /// trail at placed, pointing away from its motion, fed with the medium there.
    void UpdatePlasma(glm::dmat4 const& placed);

    /// GetAbsoluteTransformInEnvironmentCached at depth links above the caller.
    glm::dmat4 CachedTransform(bool& computed, int depth);

    std::shared_ptr<Interface> _interface;
    uint64_t _meshLoad = 0;                            // the config's meshLoads that the renderables show
    bool _placeStale = true;                           // nodes, renderables or lights changed since the last placing
    glm::dvec3 _cachedPosition{0.0};                   // position that environmentTransform was made from
    glm::dquat _cachedOrientation{1.0, 0.0, 0.0, 0.0}; // orientation that it was made from
    glm::dmat4 _cachedParentTransform{1.0};            // the parent's place that it was made from
};

} // namespace game::entity
