// Entity descriptions (pinned whole in a golden file), reloading, the node tree, the item type
// registry, what an entity takes from its description, its bounds, the joint solver, unique objects.
#include <gtest/gtest.h>

#include "support/GlmChecks.hpp"
#include "support/Golden.hpp"
#include "support/TempDir.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <glm/glm.hpp>
#include <glm/gtc/matrix_transform.hpp>

#include "game/entity/BaseEntity.hpp"
#include "game/entity/EntityConfig.hpp"
#include "game/entity/EntityType.hpp"
#include "game/entity/Id.hpp"
#include "game/entity/JointSolver.hpp"
#include "game/entity/UniqueObject.hpp"
#include "nerox/modular/ModuleID.hpp"

using game::entity::BaseEntity;
using game::entity::EntityConfig;
using game::entity::Id;
using nerox::modular::ModuleID;
using testsupport::ExpectMatNear;
using testsupport::TempDir;
using testsupport::WriteText;

namespace {

std::shared_ptr<EntityConfig> LoadConfig(std::string const& path) {
    auto config = std::make_shared<EntityConfig>(path);
    config->Load();
    return config;
}

std::string DataPath(std::string const& name) {
    return std::string(TESSARA_TEST_SOURCE_DIR) + "/game/entity/data/" + name;
}

/// An entity of config after InitNodes.
std::unique_ptr<BaseEntity> MakeEntity(std::shared_ptr<EntityConfig> const& config) {
    auto entity = std::make_unique<BaseEntity>();
    entity->config = config;
    entity->InitNodes();
    return entity;
}

glm::dmat4 Translation(glm::dvec3 const& offset) {
    return glm::translate(glm::dmat4(1.0), offset);
}
glm::dmat4 Rotation(double degrees, glm::dvec3 const& axis) {
    return glm::rotate(glm::dmat4(1.0), glm::radians(degrees), axis);
}
glm::dvec3 Apply(glm::dmat4 const& transform, glm::dvec3 const& point) {
    return glm::dvec3(transform * glm::dvec4(point, 1.0));
}

/// Three components, rounded so that float noise and the sign of zero do not show.
template <class V> std::string Text(V const& v) {
    std::ostringstream out;
    for (int i = 0; i < 3; ++i) out << (i ? " " : "(") << std::round(double(v[i]) * 1e5) / 1e5 + 0.0;
    return out.str() + ")";
}

template <class List> std::string Listed(char const* title, List const& entries, size_t count) {
    std::string text = std::string("\n  ") + title;
    for (size_t i = 0; i < count; ++i) text += " " + Text(entries[i]);
    return text;
}

/// The fields every kind of section has; its transform must be its node's and the one its position and rotation give.
template <class Section>
std::string NodeText(EntityConfig const& config, std::string const& name, Section const& section) {
    EXPECT_EQ(section.transform, config.nodes.at(name).transform) << name;
    EXPECT_EQ(section.transform, EntityConfig::TransformFromBlender(section.position, section.rotation)) << name;
    return name + " parent '" + section.parent + "' position " + Text(section.position) + " rotation " +
        Text(section.rotation);
}

/// Everything a description read into.
std::string Dump(EntityConfig const& c) {
    std::ostringstream out;
    out << "mass " << c.mass << ", airtight " << c.airtight << ", base planes";
    for (std::string const& plane : c.base_planes) out << " " << plane;
    out << "\n";
    for (auto const& [name, node] : c.nodes)
        out << "node " << node.type << " " << name << " parent '" << node.parent << "'\n";
    for (auto const& [name, s] : c.renderables) out << "renderable " << NodeText(c, name, s) << "\n";
    for (auto const& [name, s] : c.targets) out << "target " << NodeText(c, name, s) << "\n";
    for (auto const& [name, s] : c.cameras) out << "camera " << NodeText(c, name, s) << " znear " << s.znear << "\n";
    for (auto const& [name, s] : c.adapters) out << "adapter " << NodeText(c, name, s) << " type '" << s.type << "'\n";
    for (auto const& [name, s] : c.lightBoxes)
        out << "light box " << NodeText(c, name, s) << " box " << Text(s.box_min) << " " << Text(s.box_max) << "\n";
    for (auto const& [name, s] : c.joints) {
        out << "joint " << NodeText(c, name, s) << " given";
        for (bool const given :
             {s.has_linear_x, s.has_linear_y, s.has_linear_z, s.has_angular_x, s.has_angular_y, s.has_angular_z})
            out << " " << given;
        out << "\n  linear " << Text(s.linear_min) << " " << Text(s.linear_default) << " " << Text(s.linear_max)
            << "\n  angular " << Text(s.angular_min) << " " << Text(s.angular_default) << " " << Text(s.angular_max)
            << "\n";
    }
    for (auto const& [name, s] : c.colliders)
        out << "collider " << NodeText(c, name, s) << " build block " << s.is_build_block << " volume "
            << s.displacement_volume << "\n  box " << Text(s.box_min) << " " << Text(s.box_max)
            << Listed("vertices", s.vertices, s.nb_vertices) << Listed("normals", s.faces_normal, s.nb_faces)
            << Listed("triangles", s.triangles, s.nb_triangles) << "\n";
    return out.str();
}

TEST(EntityConfigParse, EachDescriptionReadsIntoItsFieldsAndWarnings) {
    auto Entries = [](int n) { // n entries of three numbers each: "1 1 1  2 2 2 ..."
        std::string text;
        for (int i = 1; i <= n; ++i)
            text += " " + std::to_string(i) + " " + std::to_string(i) + " " + std::to_string(i) + " ";
        return text;
    };
    struct Case {
        std::string name, text;
    };
    std::vector<Case> cases = {
        {"no base planes", "[ENTITY]\nmass 3\n"},
        {"base planes replace the list", "[ENTITY]\nbase_planes +X\n"},
        // The file's y axis turns into the game's -z: the corners swap so that min stays below max.
        {"swapped axis",
         "[COLLIDER hull]\nbox_min 1 1 1\nbox_max 2 2 2\n[LIGHT_BOX lamp]\nbox_min 1 1 1\nbox_max 2 2 2\n"},
        {"joint with angular z only", "[JOINT hinge]\nposition 1 2 3\nrotation 10 20 30\nangular_z -45 5 45\n"},
        {"joint with linear y", "[JOINT slide]\nposition 1 2 3\nlinear_y -0.5 0.25 0.5\n"},
        {"lists of three to the end of the line",
         "[COLLIDER c]\nvertices 1 2 3  4 5 6\nfaces_normal 0 0 2\ntriangles 0 1 1  1 0 0\n"},
        // A trailing blank adds one empty entry; its normal stays zero rather than turning into NaN.
        {"trailing blanks", "[COLLIDER c]\nvertices 1 2 3 \nfaces_normal 0 0 1 \ntriangles 0 1 2 \n"},
        {"keys without values", "[COLLIDER c]\nvertices\ntriangles\n"},
        {"too many vertices", "[COLLIDER hull]\nparent base\nvertices" + Entries(11) + "\nbox_max 1 2 3\n"},
        {"too many normals and triangles",
         "[COLLIDER a]\nfaces_normal" + Entries(13) + "\n[COLLIDER b]\ntriangles" + Entries(20) + "\n"},
        {"full lists with trailing blanks",
         "[COLLIDER c]\nvertices" + Entries(8) + "  \t\ntriangles" + Entries(12) + "\n"},
        // A bad number keeps the default, ends a vector's line and ends a list.
        {"bad numbers",
         "[ENTITY]\nmass heavy\n[CAMERA eye]\nposition 1 x 3\nznear near\n[COLLIDER c]\ndisplacement_volume "
         "?\nvertices 1 2 3  4 x 6  7 8 9\n"},
        {"unknown keywords and keys",
         "stray 1 2 3\n[WIDGET spinner]\nparent x\n[   ]\nmass 9\n[ENTITY]\nMass 7\ncolour red\nmass 5\n[JOINT  arm "
         "one \t]\nwobble 1 2 3\nposition 1 2 3\n"},
    };
    // Sections may start without brackets, as bare keyword lines.
    cases.push_back({"sections without brackets",
                     "ENTITY\nmass 5\nJOINT wheel\nparent chassis\nposition 0 1 "
                     "2\nangular_x -90 0 90\n[TARGET tip]\nposition 1 1 1\nCOLLIDER box\nbox_max 1 1 1\n"});
    for (std::string const word : {"Yes", "TRUE", "1", "on", "no", ""})
        cases.push_back({"airtight '" + word + "'", "[ENTITY]\nairtight " + word + "\n"});
    TempDir dir;
    std::string report;
    auto read = [&report](std::string const& name, std::string const& path) {
        EntityConfig config(path);
        testing::internal::CaptureStderr();
        config.Load();
        std::string warnings = testing::internal::GetCapturedStderr();
        for (size_t at; (at = warnings.find(path)) != std::string::npos;) warnings.replace(at, path.size(), "<file>");
        report += "== " + name + "\n" + Dump(config) + warnings;
    };
    read("rover.txt", DataPath("rover.txt"));
    read("missing file", dir.File("absent.txt"));
    for (Case const& c : cases) {
        WriteText(dir.File("item.txt"), c.text);
        read(c.name, dir.File("item.txt"));
    }
    testsupport::ExpectGolden(report, "entity/descriptions.txt");
    EXPECT_EQ(EntityConfig("items/crate.cfg").GetMeshFilePath(), "items/crate.gltf");
}

TEST(EntityConfigReload, ReloadThreadReplacesTheSectionsUnderTheMutex) {
    TempDir dir;
    std::string const path = dir.File("item.txt");
    WriteText(path, "[ENTITY]\nmass 1\n[JOINT old]\n");
    EntityConfig config(path, 5);
    config.Load();
    EXPECT_FALSE(config.IsAutoReloadRunning()) << "the constructor starts no thread";
    config.StartAutoReloadThread();
    testsupport::ReplaceText(path, "[ENTITY]\nmass 250\n[TARGET tip]\n");
    double mass = 0.0;
    // Waits for the reload; the deadline only stops a hang.
    for (auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
         mass != 250.0 && std::chrono::steady_clock::now() < deadline;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        std::lock_guard<std::mutex> lock(config.GetMutex());
        mass = config.mass;
    }
    EXPECT_DOUBLE_EQ(mass, 250.0);
    config.StopAutoReloadThread();
    EXPECT_EQ(config.targets.count("tip"), 1u);
    EXPECT_EQ(config.joints.count("old"), 0u);
}

// ---------------------------------------------------------------- type registry

struct ProbeInterface { };
using Registry = game::entity::EntityTypeRegistry<ProbeInterface>;

class EntityTypeRegistryTest : public ::testing::Test {
protected:
    void SetUp() override { TearDown(); }
    void TearDown() override { Registry::_registered_interfaces.clear(), Registry::_registered_items_module.clear(); }
};

TEST_F(EntityTypeRegistryTest, ItemTypeFindsItsModuleAndConfigIsReadOnFirstUseOnlyFromAnyThread) {
    TempDir dir;
    WriteText(dir.File("drill.txt"), "[ENTITY]\nmass 3\n");
    Registry::TypeDef& row = Registry::_registered_interfaces["ACME_tools"]["drill"];
    row.moduleId = ModuleID("ACME_tools"), row.itemType = "drill",
    row.config = std::make_shared<EntityConfig>(dir.File("drill.txt"));
    Registry::_registered_items_module["drill"] = row.moduleId;
    std::shared_ptr<EntityConfig> const config = row.config;
    EXPECT_EQ(Registry::FindModuleIDFromItemType("drill"), ModuleID("ACME_tools"));
    EXPECT_EQ(Registry::FindModuleIDFromItemType("dril"), ModuleID()) << "no throw for an unknown type";

    EXPECT_EQ(config->mass, 0.0) << "registering reads nothing";
    std::vector<std::thread> threads;
    std::vector<double> masses(4, 0.0); // the first use comes from many threads at once
    for (size_t t = 0; t < masses.size(); ++t) {
        threads.emplace_back([t, &masses, &config] {
            std::shared_ptr<EntityConfig> const got = Registry::GetEntityConfig("ACME_tools", "drill");
            std::lock_guard<std::mutex> lock(got->GetMutex());
            masses[t] = got == config ? got->mass : -1.0;
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(masses, std::vector<double>(4, 3.0));
    WriteText(config->ToPath().string(), "[ENTITY]\nmass 8\n");
    EXPECT_EQ(Registry::GetEntityConfig("ACME_tools", "drill"), config);
    EXPECT_EQ(config->mass, 3.0) << "not read a second time";
    Registry::_registered_interfaces["ACME_tools"]["bit"].config = config;
    EXPECT_EQ(Registry::GetEntityConfig("ACME_tools", "bit")->mass, 3.0) << "nor for another item type that shares it";
    // Unknown module or a row without a description: empty. Unknown type of a known module: throws.
    EXPECT_FALSE(Registry::GetEntityConfig("ACME_other", "drill"));
    EXPECT_FALSE(Registry::GetEntityConfig(nullptr, "drill"));
    Registry::_registered_interfaces["ACME_tools"]["ghost"].itemType = "ghost";
    EXPECT_FALSE(Registry::GetEntityConfig("ACME_tools", "ghost"));
    EXPECT_THROW(Registry::GetEntityConfig("ACME_tools", "saw"), std::out_of_range);
}

// ---------------------------------------------------------------- InitNodes, bounds and Update

TEST(BaseEntityInitNodes, DescribedEntitiesTakeMassNodesJointsCollidersAndTheSolverTree) {
    std::string report;
    for (char const* file : {"rover.txt", "arm.txt"}) {
        SCOPED_TRACE(file);
        std::unique_ptr<BaseEntity> const entity = MakeEntity(LoadConfig(DataPath(file)));
        EntityConfig const& config = *entity->config;
        std::ostringstream out;
        out << "== " << file << "\nmass " << entity->mass << ", bounds " << Text(entity->boundsMin) << " "
            << Text(entity->boundsMax) << ", size " << Text(entity->box_size) << ", centre "
            << Text(entity->boundsCenter) << ", centre of mass " << Text(entity->centerOfMass) << ", radius "
            << entity->boundingRadius << "\n";
        // Joints, colliders, adapters and targets get nodes; renderables, light boxes and cameras do not.
        for (auto const& [name, transform] : entity->nodeTransforms) {
            ExpectMatNear(transform, config.GetAbsoluteTransform(name));
            out << "node " << name << " at " << Text(Apply(transform, glm::dvec3(0.0))) << "\n";
        }
        for (auto const& [name, state] : entity->jointStates) {
            EXPECT_EQ(state.rotation, config.joints.at(name).angular_default) << name;
            out << "joint " << name << " position " << Text(state.position) << " rotation " << Text(state.rotation)
                << "\n";
        }
        for (auto const& [name, c] : entity->colliders) {
            ExpectMatNear(c.transform, config.GetAbsoluteTransform(name));
            out << "collider " << name << " box " << Text(c.box_min) << " " << Text(c.box_max) << " radius " << c.radius
                << Listed("vertices", c.vertices, c.verticesCount) << Listed("normals", c.normals, c.normalsCount)
                << Listed("triangles", c.triangles, c.trianglesCount) << "\n";
        }
        // The solver's tree: offsets as where they take the origin and the x axis.
        for (auto const& [name, joint] : config.jointSolver.GetJoints()) {
            out << "solver joint " << name << " parent '" << joint.parent << "' offset "
                << Text(Apply(joint.offset, glm::dvec3(0.0))) << " "
                << Text(Apply(joint.offset, glm::dvec3(1.0, 0.0, 0.0))) << " children";
            for (std::string const& child : joint.children) out << " " << child;
            for (auto const& [node, transform] : joint.nodes)
                out << "\n  node " << node << " " << Text(Apply(transform, glm::dvec3(0.0))) << " "
                    << Text(Apply(transform, glm::dvec3(1.0, 0.0, 0.0)));
            out << "\n";
        }
        report += out.str();
    }
    testsupport::ExpectGolden(report, "entity/initial_nodes.txt");
}

TEST(BaseEntityBounds, GrowOverAllCollidersAndFollowDirtyNodesInUpdate) {
    BaseEntity entity;
    entity.boundingRadius = 7.0;
    entity.UpdateBoundingBox(true);
    EXPECT_EQ(entity.boundingRadius, 0.0) << "no colliders, no bounds";
    entity.centerOfMass = {9.0, 9.0, 9.0};
    entity.colliders["a"].box_max = {1.0f, 1.0f, 1.0f}, entity.colliders["a"].transform = glm::dmat4(1.0);
    entity.colliders["b"].box_max = {1.0f, 2.0f, 1.0f}, entity.colliders["b"].transform = glm::dmat4(1.0);
    entity.UpdateBoundingBox(false);
    // A node moves its collider only when dirty; "b" has no node and stays.
    entity.nodeTransforms["a"] = Translation({10.0, 0.0, 0.0});
    for (bool const dirty : {false, true}) {
        entity.nodesDirty = dirty;
        entity.Update(0.016);
        EXPECT_EQ(Text(entity.boundsMax) + Text(entity.centerOfMass), dirty ? "(11 2 1)(5.5 1 0.5)" : "(1 2 1)(9 9 9)");
    }
}

// ---------------------------------------------------------------- joint solver

TEST(JointSolverSolve, JointsTurnAndSlideTheirNodesAndChildren) {
    TempDir dir;
    WriteText(dir.File("item.txt"),
              "[JOINT lower]\nposition 0 0 1\nangular_z -90 0 90\n\n[JOINT upper]\nparent lower\nposition 1 0 0\n"
              "rotation 0 0 15\n\n[COLLIDER pad]\nparent upper\nposition 0 0 0.5\nbox_min -1 -1 -1\nbox_max 1 1 1\n");
    std::shared_ptr<EntityConfig> const arm = LoadConfig(DataPath("arm.txt")),
                                        rover = LoadConfig(DataPath("rover.txt"));
    std::shared_ptr<EntityConfig> const stacked = LoadConfig(dir.File("item.txt"));
    /// How the nodes on a joint move when it turns by degrees about axis in its own frame.
    auto turned = [](EntityConfig const& config, char const* joint, double degrees, glm::dvec3 axis) {
        glm::dmat4 const rest = config.GetAbsoluteTransform(joint);
        return rest * Rotation(degrees, axis) * glm::inverse(rest);
    };
    // moved: the nodes that follow the motion; the others stay at rest.
    struct Case {
        char const* name;
        std::shared_ptr<EntityConfig> config;
        std::function<void(BaseEntity&)> move;
        std::vector<char const*> moved;
        glm::dmat4 motion;
    };
    Case const cases[] = {
        {"nothing moved", arm, [](BaseEntity&) {}, {}, glm::dmat4(1.0)},
        {"wheel",
         rover,
         [](BaseEntity& e) { e.jointStates.at("wheel_fl").rotation.x = 90.0f; },
         {"wheel_fl"},
         turned(*rover, "wheel_fl", 90.0, {1.0, 0.0, 0.0})},
        // The file's z turn is a turn about the game's up axis, in the shoulder's own frame.
        {"shoulder",
         arm,
         [](BaseEntity& e) { e.jointStates.at("shoulder").rotation.z = 20.0f; },
         {"shoulder", "upper", "elbow", "fore", "tip"},
         turned(*arm, "shoulder", 20.0, {0.0, 1.0, 0.0})},
        {"joint on a joint",
         stacked,
         [](BaseEntity& e) { e.jointStates.at("lower").rotation.z = -30.0f; },
         {"lower", "upper", "pad"},
         turned(*stacked, "lower", -30.0, {0.0, 1.0, 0.0})},
        // A joint without a state rests at its default.
        {"elbow without a shoulder state",
         arm,
         [](BaseEntity& e) { e.jointStates.erase("shoulder"), e.jointStates.at("elbow").rotation.x = 30.0f; },
         {"elbow", "fore", "tip"},
         turned(*arm, "elbow", 30.0, {1.0, 0.0, 0.0})},
        // The hatch sits as if the file placed it at (1, 0.25, 0): game (1, 0, -0.25).
        {"hatch slides",
         arm,
         [](BaseEntity& e) { e.jointStates.at("hatch").position.y = 0.25f; },
         {"hatch"},
         Translation({0.0, 0.0, -0.25})},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        std::unique_ptr<BaseEntity> const entity = MakeEntity(c.config);
        size_t const nodes = entity->nodeTransforms.size();
        // Scramble every node so that the solver has to write them all back.
        for (auto& [name, transform] : entity->nodeTransforms) transform = glm::dmat4(3.0);
        c.move(*entity);
        EXPECT_TRUE(c.config->jointSolver(entity.get()));
        ASSERT_EQ(entity->nodeTransforms.size(), nodes);
        auto const& joints = c.config->jointSolver.GetJoints();
        for (auto const& [name, transform] : entity->nodeTransforms) {
            bool const onJoint = joints.count(name) ||
                std::any_of(joints.begin(), joints.end(),
                            [&name](auto const& j) { return j.second.nodes.count(name) > 0; });
            bool const moves = std::find(c.moved.begin(), c.moved.end(), name) != c.moved.end();
            // Nodes on no joint are not the solver's.
            ExpectMatNear(transform,
                          !onJoint ? glm::dmat4(3.0)
                                   : (moves ? c.motion : glm::dmat4(1.0)) * c.config->GetAbsoluteTransform(name),
                          1e-6);
        }
    }
}

TEST(JointSolverSolve, OneSolverServesEntitiesOnManyThreads) {
    std::shared_ptr<EntityConfig> const config = LoadConfig(DataPath("arm.txt"));
    std::vector<std::unique_ptr<BaseEntity>> entities, expected;
    for (int t = 0; t < 4; ++t) {
        entities.push_back(MakeEntity(config));
        expected.push_back(MakeEntity(config));
        for (auto* entity : {entities.back().get(), expected.back().get()}) {
            entity->jointStates.at("shoulder").rotation.z = 10.0f * static_cast<float>(t + 1);
            entity->jointStates.at("elbow").rotation.x = 100.0f; // clamped to 45
            entity->jointStates.at("elbow").position.z = -0.05f * static_cast<float>(t);
        }
        config->jointSolver(expected.back().get());
    }
    std::vector<std::thread> threads;
    for (auto const& entity : entities)
        threads.emplace_back([&config, entity = entity.get()] {
            for (int i = 0; i < 200; ++i) config->jointSolver(entity);
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_FALSE(config->jointSolver(nullptr));
    for (size_t t = 0; t < entities.size(); ++t) {
        SCOPED_TRACE(t);
        EXPECT_EQ(entities[t]->jointStates.at("elbow").rotation.x, 45.0f);
        for (auto const& [name, transform] : expected[t]->nodeTransforms)
            ExpectMatNear(entities[t]->nodeTransforms.at(name), transform, 0.0);
    }
}

// ---------------------------------------------------------------- unique objects

/// An entity kind registered through the idiom, counting its live objects.
class Probe : public BaseEntity, public game::entity::UniqueObject<Probe> {
public:
    static constexpr char const* _uniqueObjectName = "Probe";
    explicit Probe(Id id, int tag = 0) : id(id), tag(tag) { ++_alive; }
    ~Probe() override { --_alive; }
    Id GetID() const { return id; }
    /// An empty slot, as a half-finished insertion would leave.
    static void InsertEmptySlot(Id const& slot) { _sharedObjects[slot] = nullptr; }
    Id id;
    int tag;
    inline static std::atomic<int> _alive{0};
};

class UniqueObjectRegistry : public ::testing::Test {
protected:
    void SetUp() override { Probe::DestroyAll(); }
    void TearDown() override {
        Probe::DestroyAll();
        EXPECT_EQ(Probe::_alive.load(), 0);
    }
};

TEST_F(UniqueObjectRegistry, CreateRegistersOnceForEachSkipsEmptySlotsDestroyWarnsWhileHeld) {
    Id const held = Id::Generate(), free = Id(0x1111, 0x4444);
    std::shared_ptr<Probe> holder = Probe::Create(held, 7);
    EXPECT_EQ(holder->selfReference.lock().get(), static_cast<BaseEntity*>(holder.get()));
    std::weak_ptr<Probe> const watch = game::entity::Create<Probe>(free, 2);
    EXPECT_EQ(game::entity::Get<Probe>(held), holder);
    for (Id const missing : {Id(0x1111, 0x5555), Id(0, 0x3333), Id(0x1111, 0), Id()}) EXPECT_FALSE(Probe::Get(missing));
    try {
        Probe::Create(held, 2);
        FAIL() << "a second object with the same id was accepted";
    } catch (std::runtime_error const& error) {
        EXPECT_EQ(std::string(error.what()),
                  "UNIQUE_OBJECT Probe with id " + static_cast<std::string>(held) + " already exists");
    }
    EXPECT_EQ(Probe::Get(held)->tag, 7) << "the first object stays";
    EXPECT_THROW(Probe::Create(Id(5, 0)), std::runtime_error) << "an unset id is refused";
    EXPECT_EQ(Probe::_alive.load(), 2) << "the rejected objects are gone";

    Probe::InsertEmptySlot(Id(100, 99));
    std::set<int> seen;
    Probe::ForEach([&seen](std::shared_ptr<Probe> probe) {
        ASSERT_TRUE(probe);
        EXPECT_EQ(Probe::Get(probe->id), probe) << "a lookup from inside the walk";
        seen.insert(probe->tag);
    });
    EXPECT_EQ(seen, (std::set<int>{2, 7}));

    std::string const warning = "WARNING: UNIQUE_OBJECT Probe with id " + static_cast<std::string>(held) +
        " being Destroyed while still in use\n";
    struct Case {
        Id id;
        bool found;
        std::string warning;
    };
    for (Case const& c :
         {Case{free, true, ""}, Case{Id(10, 22), false, ""}, Case{Id(), false, ""}, Case{held, true, warning}}) {
        SCOPED_TRACE(static_cast<std::string>(c.id));
        testing::internal::CaptureStderr();
        EXPECT_EQ(Probe::Destroy(c.id), c.found);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.warning);
        EXPECT_FALSE(Probe::Get(c.id));
    }
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(holder.use_count(), 1) << "the holder keeps a live object";
    EXPECT_EQ(Probe::Count(), 1u) << "only the empty slot is left";
}

TEST_F(UniqueObjectRegistry, ConcurrentCreateGetAndDestroyKeepEveryObject) {
    constexpr int Threads = 4, PerThread = 50;
    std::vector<std::thread> threads;
    std::atomic<int> misses{0};
    for (int t = 0; t < Threads; ++t) {
        threads.emplace_back([t, &misses] {
            for (uint64_t i = 1; i <= PerThread; ++i) {
                Probe::Create(Id(t + 1, i), t);
                misses += !Probe::Get(Id(t + 1, i));
                Probe::ForEach([](std::shared_ptr<Probe> probe) { (void)probe->tag; });
                if (i % 2 == 0) Probe::Destroy(Id(t + 1, i - 1));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(misses.load(), 0);
    EXPECT_EQ(Probe::Count(), static_cast<size_t>(Threads * PerThread / 2));
}

} // namespace
