#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <glm/glm.hpp>
#include <glm/gtc/type_precision.hpp>

#include "game/entity/JointSolver.hpp"
#include "nerox/filesystem/ConfigFile.hpp"

namespace game::graphics {
class Mesh;
} // namespace game::graphics

namespace game::entity {

/// The description of one item type, read from its description file: mass,
/// cameras, joints, targets, renderables, colliders, adapters and light boxes,
/// all of them named nodes of one tree. The file is written in the modelling
/// tool's Z-up axes; everything but the raw positions and rotations (and the
/// joint ranges) is brought into the game's Y-up axes while reading.
///
/// Locking: ReadConfig() does not lock. Whoever calls it holds GetMutex(): the
/// auto-reload thread takes it itself, any other caller takes it first (or uses
/// Load(), which does). Readers of the fields take it as well while a reload
/// thread may run. The constructor reads nothing and starts no thread.
class EntityConfig : public nerox::filesystem::ConfigFile {
public:
    /// A camera mount.
    struct Camera {
        std::string parent;        ///< Name of the parent node; empty for the root.
        glm::vec3 position{0.0f};  ///< As the file gives it, in the file's axes.
        glm::vec3 rotation{0.0f};  ///< Degrees, as the file gives them, in the file's axes.
        float znear = 0.0f;        ///< Near clipping distance.
        glm::mat4 transform{1.0f}; ///< TransformFromBlender(position, rotation).
    };

    /// A movable joint. The ranges stay in the file's axes: component x of each
    /// vector belongs to the file's x axis, and so on.
    struct Joint {
        std::string parent;              ///< Name of the parent node; empty for the root.
        glm::vec3 position{0.0f};        ///< As the file gives it, in the file's axes.
        glm::vec3 rotation{0.0f};        ///< Degrees, as the file gives them, in the file's axes.
        glm::mat4 transform{1.0f};       ///< TransformFromBlender(position, rotation).
        glm::vec3 linear_min{0.0f};      ///< Smallest offset per axis, metres.
        glm::vec3 linear_default{0.0f};  ///< Resting offset per axis, metres.
        glm::vec3 linear_max{0.0f};      ///< Largest offset per axis, metres.
        glm::vec3 angular_min{0.0f};     ///< Smallest angle per axis, degrees.
        glm::vec3 angular_default{0.0f}; ///< Resting angle per axis, degrees.
        glm::vec3 angular_max{0.0f};     ///< Largest angle per axis, degrees.
        bool has_linear_x = false;       ///< The file gave linear_x.
        bool has_linear_y = false;       ///< The file gave linear_y.
        bool has_linear_z = false;       ///< The file gave linear_z.
        bool has_angular_x = false;      ///< The file gave angular_x.
        bool has_angular_y = false;      ///< The file gave angular_y.
        bool has_angular_z = false;      ///< The file gave angular_z.
    };

    /// A named point, e.g. where a tool aims.
    struct Target {
        std::string parent;        ///< Name of the parent node; empty for the root.
        glm::vec3 position{0.0f};  ///< As the file gives it, in the file's axes.
        glm::vec3 rotation{0.0f};  ///< Degrees, as the file gives them, in the file's axes.
        glm::mat4 transform{1.0f}; ///< TransformFromBlender(position, rotation).
    };

    /// A part of the mesh that is drawn with its node's transform.
    struct Renderable {
        std::string parent;        ///< Name of the parent node; empty for the root.
        glm::vec3 position{0.0f};  ///< As the file gives it, in the file's axes.
        glm::vec3 rotation{0.0f};  ///< Degrees, as the file gives them, in the file's axes.
        glm::mat4 transform{1.0f}; ///< TransformFromBlender(position, rotation).
    };

    /// Most hull vertices a collider holds.
    static constexpr size_t MaxColliderVertices = 8;
    /// Most face normals a collider holds.
    static constexpr size_t MaxColliderFaces = 12;
    /// Most triangles a collider holds.
    static constexpr size_t MaxColliderTriangles = 12;

    /// A convex collision hull, or a box when it lists no vertices.
    struct Collider {
        std::string parent;                                    ///< Name of the parent node; empty for the root.
        glm::vec3 position{0.0f};                              ///< As the file gives it, in the file's axes.
        glm::vec3 rotation{0.0f};                              ///< Degrees, as the file gives them, in the file's axes.
        bool is_build_block = false;                           ///< Counts as a building block.
        float displacement_volume = 0.0f;                      ///< Volume that displaces fluids.
        glm::vec3 box_min{0.0f};                               ///< Box corner, game axes, the smaller per axis.
        glm::vec3 box_max{0.0f};                               ///< Box corner, game axes, the larger per axis.
        uint16_t nb_vertices = 0;                              ///< Entries used in vertices.
        uint16_t nb_faces = 0;                                 ///< Entries used in faces_normal.
        uint16_t nb_triangles = 0;                             ///< Entries used in triangles.
        std::array<glm::vec3, MaxColliderVertices> vertices{}; ///< Hull vertices, game axes.
        std::array<glm::vec3, MaxColliderFaces> faces_normal{};     ///< Unit face normals, game axes.
        std::array<glm::u16vec3, MaxColliderTriangles> triangles{}; ///< Vertex indices, three per triangle.
        glm::mat4 transform{1.0f};                                  ///< TransformFromBlender(position, rotation).
    };

    /// A place where another item can be attached.
    struct Adapter {
        std::string type;          ///< Kind of attachment; interpreted by the content modules.
        std::string parent;        ///< Name of the parent node; empty for the root.
        glm::vec3 position{0.0f};  ///< As the file gives it, in the file's axes.
        glm::vec3 rotation{0.0f};  ///< Degrees, as the file gives them, in the file's axes.
        glm::mat4 transform{1.0f}; ///< TransformFromBlender(position, rotation).
    };

    /// A box that bounds a light's effect.
    struct LightBox {
        std::string parent;        ///< Name of the parent node; empty for the root.
        glm::vec3 position{0.0f};  ///< As the file gives it, in the file's axes.
        glm::vec3 rotation{0.0f};  ///< Degrees, as the file gives them, in the file's axes.
        glm::vec3 box_min{0.0f};   ///< Box corner, game axes, the smaller per axis.
        glm::vec3 box_max{0.0f};   ///< Box corner, game axes, the larger per axis.
        glm::mat4 transform{1.0f}; ///< TransformFromBlender(position, rotation).
    };

    /// One node of the tree that every section but ENTITY adds.
    struct Node {
        glm::mat4 transform{1.0f}; ///< Transform relative to the parent.
        std::string parent;        ///< Name of the parent node; empty for the root.
        std::string type;          ///< The section keyword, e.g. "JOINT".
    };

    double mass = 0.0;                                ///< Kilograms.
    bool airtight = false;                            ///< The hull holds air.
    std::vector<std::string> base_planes{"-Z", "-Y"}; ///< Planes the item may stand on.
    std::map<std::string, Camera> cameras;            ///< CAMERA sections by name.
    std::map<std::string, Joint> joints;              ///< JOINT sections by name.
    std::map<std::string, Target> targets;            ///< TARGET sections by name.
    std::map<std::string, Renderable> renderables;    ///< RENDERABLE sections by name.
    std::map<std::string, Collider> colliders;        ///< COLLIDER sections by name.
    std::map<std::string, Adapter> adapters;          ///< ADAPTER sections by name.
    std::map<std::string, LightBox> lightBoxes;       ///< LIGHT_BOX sections by name.
    std::map<std::string, Node> nodes;                ///< Every section but ENTITY, by name.
    std::shared_ptr<game::graphics::Mesh> mesh;       ///< The loaded mesh; empty until loaded.
    std::filesystem::file_time_type meshWriteTime{};  ///< Last write time of the mesh file when loaded.
    uint64_t meshCheckFrame = 0;                      ///< Renderer frame of the last reload.
    double meshCheckTime = 0.0;                       ///< Time of the last check for a newer mesh, seconds.
    uint64_t meshLoads = 0;                           ///< Loads of mesh so far; a reload makes it grow.
    JointSolver jointSolver{this};                    ///< The joint tree, rebuilt at the end of each read.

    /// The description file at path. Reads nothing and starts no reload thread;
    /// reloadInterval is passed to ConfigFile for a later StartAutoReloadThread().
    explicit EntityConfig(std::string const& path, std::optional<int> reloadInterval = std::nullopt);
    /// Stops the reload thread before the members go away.
    ~EntityConfig() override;

    /// Parses the file and sets loaded. The caller holds GetMutex() (the reload
    /// thread does). Empties cameras, joints, targets and renderables first; the
    /// other fields keep what the file does not replace.
    ///
    /// A section starts with its keyword in brackets ("[JOINT wheel]") or bare
    /// at the start of a line ("JOINT wheel"): a line whose first word is one
    /// of the section keywords (all upper case, unlike the keys) starts one.
    void ReadConfig() override;
    /// Takes GetMutex() and parses the file, for callers that do not hold it.
    void Load();

    /// The mesh of the item type, loaded on first use from GetMeshFilePath()
    /// (noting its write time in meshWriteTime). Empty when the file does not
    /// exist or there is no renderer to hold it. Main thread only.
    std::shared_ptr<game::graphics::Mesh> GetMesh();
    /// The folder of the description file, its stem and ".gltf".
    std::string GetMeshFilePath() const;
    /// The transform of node relative to the root; the identity for an unknown name.
    glm::dmat4 GetAbsoluteTransform(std::string const& node) const;
    /// The transform of node relative to its first ancestor of type "JOINT", or to
    /// the root when there is none. A JOINT node itself gives the identity and
    /// stores its own name in outJoint; outJoint is left alone otherwise.
    glm::dmat4 GetTransformRelativeToFirstParentJointOrRoot(std::string const& node, std::string& outJoint) const;

    /// The game-space transform of a file position and rotation (degrees, Euler
    /// x then y then z), both in the modelling tool's Z-up axes.
    static glm::mat4 TransformFromBlender(glm::vec3 const& position, glm::vec3 const& rotationDegrees);

    /// The file has been read at least once; guarded by GetMutex().
    bool loaded = false;

private:
    /// Does the work of ReadConfig(); the caller holds GetMutex().
    void Parse();
    /// Applies one section of the file.
    void ParseSection(std::istringstream& header, std::vector<std::istringstream>& lines);
};

} // namespace game::entity
