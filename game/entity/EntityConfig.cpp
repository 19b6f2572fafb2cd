#include "game/entity/EntityConfig.hpp"

#include "game/Game.hpp"
#include "game/graphics/Mesh.hpp"

#include <bit>
#include <cctype>
#include <iostream>
#include <mutex>
#include <utility>

#include <glm/gtc/matrix_transform.hpp>
#include <glm/gtc/quaternion.hpp>

namespace game::entity {

namespace {

/// Characters trimmed around a node name.
constexpr char const* NameBlanks = " \f\n\r\t\v";

/// The modelling tool's vector (x, y, z) in game axes: (x, z, -y).
glm::vec3 ToGameAxes(glm::vec3 const& v) {
    return glm::vec3(v.x, v.z, -v.y);
}

/// Reads three floats into v; a failed read leaves what the extractor left.
void ReadVec3(std::istringstream& line, glm::vec3& v) {
    line >> v.x >> v.y >> v.z;
}

/// Reads one word, lower-cased: true for "true", "yes" and "1".
bool ReadFlag(std::istringstream& line) {
    std::string word;
    line >> word;
    for (char& c : word) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return word == "true" || word == "yes" || word == "1";
}

/// Reads the keys that every node section shares. Returns false for any other key.
template <class Record> bool ReadNodeKey(std::string const& key, std::istringstream& line, Record& record) {
    if (key == "parent") {
        line >> record.parent;
        return true;
    }
    if (key == "position") {
        ReadVec3(line, record.position);
        return true;
    }
    if (key == "rotation") {
        ReadVec3(line, record.rotation);
        return true;
    }
    return false;
}

/// Brings a box into game axes and keeps min below max on each axis.
void ConvertBox(glm::vec3& boxMin, glm::vec3& boxMax) {
    boxMin = ToGameAxes(boxMin);
    boxMax = ToGameAxes(boxMax);
    for (int axis = 0; axis < 3; ++axis) {
        if (boxMin[axis] > boxMax[axis]) std::swap(boxMin[axis], boxMax[axis]);
    }
}

/// Reads entries into out until the line ends, at most out.size() of them, and
/// returns how many it read. A trailing blank adds one entry holding what the
/// failed read left; a failed read ends the list after its entry. When the line
/// holds more than fit, the rest is dropped and warn() is called once.
template <class Entry, size_t Capacity, class Read, class Warn>
uint16_t ReadList(std::istringstream& line, std::array<Entry, Capacity>& out, Read const& read, Warn const& warn) {
    size_t count = 0;
    while (line.good()) {
        if (count == Capacity) {
            line >> std::ws;
            if (!line.eof()) warn();
            break;
        }
        read(line, out[count]);
        ++count;
    }
    return static_cast<uint16_t>(count);
}

/// The rotation that turns normals from file axes into game axes.
glm::quat const& NormalRotation() {
    // -pi/2 as the float with the bits 0xBFC90FDB.
    static glm::quat const rotation(glm::vec3(std::bit_cast<float>(0xBFC90FDBu), 0.0f, 0.0f));
    return rotation;
}

using Lines = std::vector<std::istringstream>;

/// Reads every line of a node section: the shared keys into record, any other
/// key through more(key, line).
template <class Record, class More> void ReadNodeLines(Lines& lines, Record& record, More const& more) {
    for (std::istringstream& line : lines) {
        std::string key;
        line >> key;
        if (!ReadNodeKey(key, line, record)) more(key, line);
    }
}

/// Finishes a node section: its transform, its node in the tree, and its record
/// in the table of its kind.
template <class Record>
void AddNode(EntityConfig& config, std::string const& keyword, std::string const& name, Record& record,
             std::map<std::string, Record>& table) {
    record.transform = EntityConfig::TransformFromBlender(record.position, record.rotation);
    EntityConfig::Node& node = config.nodes[name];
    node.transform = record.transform;
    node.parent = record.parent;
    node.type = keyword;
    table[name] = std::move(record);
}

void ParseEntity(EntityConfig& config, std::string const&, std::string const&, Lines& lines) {
    for (std::istringstream& line : lines) {
        std::string key;
        line >> key;
        if (key == "mass") {
            line >> config.mass;
        } else if (key == "base_planes") {
            config.base_planes.clear();
            std::string plane;
            while (line >> plane) config.base_planes.push_back(plane);
        } else if (key == "airtight") {
            config.airtight = ReadFlag(line);
        }
    }
}

void ParseCamera(EntityConfig& config, std::string const& keyword, std::string const& name, Lines& lines) {
    EntityConfig::Camera camera;
    ReadNodeLines(lines, camera, [&](std::string const& key, std::istringstream& line) {
        if (key == "znear") line >> camera.znear;
    });
    AddNode(config, keyword, name, camera, config.cameras);
}

void ParseJoint(EntityConfig& config, std::string const& keyword, std::string const& name, Lines& lines) {
    static char const* const linearKeys[3] = {"linear_x", "linear_y", "linear_z"};
    static char const* const angularKeys[3] = {"angular_x", "angular_y", "angular_z"};
    EntityConfig::Joint joint;
    bool* const hasLinear[3] = {&joint.has_linear_x, &joint.has_linear_y, &joint.has_linear_z};
    bool* const hasAngular[3] = {&joint.has_angular_x, &joint.has_angular_y, &joint.has_angular_z};
    ReadNodeLines(lines, joint, [&](std::string const& key, std::istringstream& line) {
        for (int axis = 0; axis < 3; ++axis) {
            if (key == linearKeys[axis]) {
                line >> joint.linear_min[axis] >> joint.linear_default[axis] >> joint.linear_max[axis];
                *hasLinear[axis] = true;
            } else if (key == angularKeys[axis]) {
                line >> joint.angular_min[axis] >> joint.angular_default[axis] >> joint.angular_max[axis];
                *hasAngular[axis] = true;
            }
        }
    });
    // An axis the file does not give is fixed at the joint's own position or rotation.
    for (int axis = 0; axis < 3; ++axis) {
        if (!*hasLinear[axis]) {
            joint.linear_min[axis] = joint.position[axis];
            joint.linear_default[axis] = joint.position[axis];
            joint.linear_max[axis] = joint.position[axis];
        }
        if (!*hasAngular[axis]) {
            joint.angular_min[axis] = joint.rotation[axis];
            joint.angular_default[axis] = joint.rotation[axis];
            joint.angular_max[axis] = joint.rotation[axis];
        }
    }
    AddNode(config, keyword, name, joint, config.joints);
}

/// A section with the shared keys only: TARGET and RENDERABLE.
template <class Record, std::map<std::string, Record> EntityConfig::*Table>
void ParsePlainNode(EntityConfig& config, std::string const& keyword, std::string const& name, Lines& lines) {
    Record record;
    ReadNodeLines(lines, record, [](std::string const&, std::istringstream&) {});
    AddNode(config, keyword, name, record, config.*Table);
}

void ParseCollider(EntityConfig& config, std::string const& keyword, std::string const& name, Lines& lines) {
    EntityConfig::Collider collider;
    auto const warnAbout = [&](char const* what, size_t capacity) {
        return [&config, &name, what, capacity]() {
            std::cerr << config.GetPath() << ": collider '" << name << "' lists more than " << capacity << ' ' << what
                      << "; the rest are ignored" << std::endl;
        };
    };
    ReadNodeLines(lines, collider, [&](std::string const& key, std::istringstream& line) {
        if (key == "is_build_block") {
            collider.is_build_block = ReadFlag(line);
        } else if (key == "displacement_volume") {
            line >> collider.displacement_volume;
        } else if (key == "box_min") {
            ReadVec3(line, collider.box_min);
        } else if (key == "box_max") {
            ReadVec3(line, collider.box_max);
        } else if (key == "vertices") {
            collider.nb_vertices = ReadList(
                line, collider.vertices,
                [](std::istringstream& in, glm::vec3& vertex) {
                    ReadVec3(in, vertex);
                    vertex = ToGameAxes(vertex);
                },
                warnAbout("vertices", EntityConfig::MaxColliderVertices));
        } else if (key == "faces_normal") {
            collider.nb_faces = ReadList(
                line, collider.faces_normal, [](std::istringstream& in, glm::vec3& normal) { ReadVec3(in, normal); },
                warnAbout("face normals", EntityConfig::MaxColliderFaces));
        } else if (key == "triangles") {
            collider.nb_triangles = ReadList(
                line, collider.triangles,
                [](std::istringstream& in, glm::u16vec3& triangle) { in >> triangle.x >> triangle.y >> triangle.z; },
                warnAbout("triangles", EntityConfig::MaxColliderTriangles));
        }
    });
    for (size_t i = 0; i < collider.nb_faces; ++i) {
        glm::vec3 const rotated = NormalRotation() * collider.faces_normal[i];
        float const length = glm::length(rotated);
        // A zero normal (e.g. from a trailing blank) stays zero instead of turning into NaN.
        collider.faces_normal[i] = length > 0.0f ? rotated / length : rotated;
    }
    ConvertBox(collider.box_min, collider.box_max);
    AddNode(config, keyword, name, collider, config.colliders);
}

void ParseAdapter(EntityConfig& config, std::string const& keyword, std::string const& name, Lines& lines) {
    EntityConfig::Adapter adapter;
    ReadNodeLines(lines, adapter, [&](std::string const& key, std::istringstream& line) {
        if (key == "type") line >> adapter.type;
    });
    AddNode(config, keyword, name, adapter, config.adapters);
}

void ParseLightBox(EntityConfig& config, std::string const& keyword, std::string const& name, Lines& lines) {
    EntityConfig::LightBox lightBox;
    ReadNodeLines(lines, lightBox, [&](std::string const& key, std::istringstream& line) {
        if (key == "box_min")
            ReadVec3(line, lightBox.box_min);
        else if (key == "box_max")
            ReadVec3(line, lightBox.box_max);
    });
    ConvertBox(lightBox.box_min, lightBox.box_max);
    AddNode(config, keyword, name, lightBox, config.lightBoxes);
}

/// The section keywords and what reads each; other keywords are ignored.
struct SectionKind {
    std::string_view keyword;
    void (*parse)(EntityConfig& config, std::string const& keyword, std::string const& name, Lines& lines);
};

constexpr SectionKind SectionKinds[] = {
    {"ENTITY", ParseEntity},
    {"CAMERA", ParseCamera},
    {"JOINT", ParseJoint},
    {"TARGET", ParsePlainNode<EntityConfig::Target, &EntityConfig::targets>},
    {"RENDERABLE", ParsePlainNode<EntityConfig::Renderable, &EntityConfig::renderables>},
    {"COLLIDER", ParseCollider},
    {"ADAPTER", ParseAdapter},
    {"LIGHT_BOX", ParseLightBox},
};

bool IsSectionKeyword(std::string_view word) {
    for (SectionKind const& kind : SectionKinds)
        if (kind.keyword == word) return true;
    return false;
}

} // namespace

EntityConfig::EntityConfig(std::string const& path, std::optional<int> reloadInterval)
    : ConfigFile(path, reloadInterval) { }

EntityConfig::~EntityConfig() {
    StopAutoReloadThread();
}

void EntityConfig::ReadConfig() {
    // The caller holds GetMutex(): the reload thread takes it before calling here.
    Parse();
}

void EntityConfig::Load() {
    std::lock_guard<std::mutex> lock(GetMutex());
    Parse();
}

void EntityConfig::Parse() {
    cameras.clear();
    joints.clear();
    targets.clear();
    renderables.clear();
    ReadFromINI([this](std::istringstream& header, std::vector<std::istringstream>& lines) {
        // A bare keyword line inside the section starts the next one.
        size_t start = 0;
        for (size_t line = 0; line < lines.size(); ++line) {
            std::string word;
            lines[line] >> word;
            lines[line].seekg(0);
            if (!IsSectionKeyword(word)) continue;
            std::vector<std::istringstream> body(std::make_move_iterator(lines.begin() + start),
                                                 std::make_move_iterator(lines.begin() + line));
            ParseSection(header, body);
            header = std::move(lines[line]);
            start = line + 1;
        }
        std::vector<std::istringstream> body(std::make_move_iterator(lines.begin() + start),
                                             std::make_move_iterator(lines.end()));
        ParseSection(header, body);
    });
    jointSolver.Init();
    loaded = true;
}

void EntityConfig::ParseSection(std::istringstream& header, std::vector<std::istringstream>& lines) {
    std::string keyword;
    if (!(header >> keyword)) return; // an empty header: lines before the first section
    std::string name;
    std::getline(header, name);
    size_t const first = name.find_first_not_of(NameBlanks);
    if (first == std::string::npos)
        name.clear();
    else
        name = name.substr(first, name.find_last_not_of(NameBlanks) - first + 1);

    for (SectionKind const& kind : SectionKinds) {
        if (kind.keyword == keyword) {
            kind.parse(*this, keyword, name, lines);
            return;
        }
    }
}

std::shared_ptr<game::graphics::Mesh> EntityConfig::GetMesh() {
    if (mesh || Game::renderer == nullptr) return mesh;
    std::string const file = GetMeshFilePath();
    std::error_code error;
    std::filesystem::file_time_type const written = std::filesystem::last_write_time(file, error);
    if (error) return mesh; // no mesh file: nothing to show
    meshWriteTime = written;
    mesh = std::make_shared<game::graphics::Mesh>(file);
    ++meshLoads;
    return mesh;
}

std::string EntityConfig::GetMeshFilePath() const {
    std::filesystem::path const path = ToPath();
    return (path.parent_path() / (path.stem().string() + ".gltf")).string();
}

glm::dmat4 EntityConfig::GetAbsoluteTransform(std::string const& node) const {
    // Walked upwards without recursion. A chain never has more links than there
    // are nodes, so the bound only cuts parent loops in a broken file.
    glm::dmat4 result(1.0);
    std::string const* current = &node;
    for (size_t steps = 0; steps < nodes.size(); ++steps) {
        auto const found = nodes.find(*current);
        if (found == nodes.end()) break;
        result = glm::dmat4(found->second.transform) * result;
        if (found->second.parent.empty()) break;
        current = &found->second.parent;
    }
    return result;
}

glm::dmat4 EntityConfig::GetTransformRelativeToFirstParentJointOrRoot(std::string const& node,
                                                                      std::string& outJoint) const {
    glm::dmat4 result(1.0);
    std::string const* current = &node;
    for (size_t steps = 0; steps < nodes.size(); ++steps) {
        auto const found = nodes.find(*current);
        if (found == nodes.end()) break;
        if (found->second.type == "JOINT") {
            outJoint = found->first;
            break;
        }
        result = glm::dmat4(found->second.transform) * result;
        if (found->second.parent.empty()) break;
        current = &found->second.parent;
    }
    return result;
}

glm::mat4 EntityConfig::TransformFromBlender(glm::vec3 const& position, glm::vec3 const& rotationDegrees) {
    glm::vec3 const radians = rotationDegrees * 0.017453292f;
    // The same turn that maps (x, y, z) to (x, z, -y): -90 degrees about x.
    glm::quat const toGameAxes(0.70710677f, -0.70710677f, 0.0f, 0.0f);
    glm::vec3 const euler = toGameAxes * radians;
    glm::quat const rotation(euler);
    return glm::translate(glm::mat4(1.0f), glm::vec3(position.x, position.z, -position.y)) * glm::mat4_cast(rotation);
}

} // namespace game::entity
