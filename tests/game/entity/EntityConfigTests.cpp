// Entity descriptions: what a file reads into (pinned whole in a golden file),
// the warnings, the axes conversion, the node tree, reading again, and the
// registry of item types that reads them on first use.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/GlmChecks.hpp"
#include "support/Golden.hpp"
#include "support/TempDir.hpp"

#include <chrono>
#include <cmath>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <glm/glm.hpp>
#include <glm/gtc/matrix_transform.hpp>

#include "game/entity/EntityConfig.hpp"
#include "game/entity/EntityType.hpp"
#include "nerox/modular/ModuleID.hpp"

using game::entity::EntityConfig;
using nerox::modular::ModuleID;
using testsupport::ExpectMatNear;
using testsupport::TempDir;
using testsupport::WriteText;

namespace {

std::string DataPath(std::string const& name) { return std::string(TESSARA_TEST_SOURCE_DIR) + "/game/entity/data/" + name; }

glm::dmat4 Translation(double x, double y, double z) { return glm::translate(glm::dmat4(1.0), glm::dvec3(x, y, z)); }

glm::dmat4 Rotation(double degrees, glm::dvec3 const& axis) { return glm::rotate(glm::dmat4(1.0), glm::radians(degrees), axis); }

/// Three components, rounded so that float noise and the sign of zero do not show.
template <class V>
std::string Text(V const& v)
{
    std::ostringstream out;
    for (int i = 0; i < 3; ++i)
        out << (i ? " " : "(") << std::round(double(v[i]) * 1e5) / 1e5 + 0.0;
    return out.str() + ")";
}

/// The fields of a section that every kind has; its transform must be the one
/// of its node and the one its position and rotation give.
template <class Section>
std::string NodeText(EntityConfig const& config, std::string const& name, Section const& section)
{
    EXPECT_EQ(section.transform, config.nodes.at(name).transform) << name;
    EXPECT_EQ(section.transform, EntityConfig::TransformFromBlender(section.position, section.rotation)) << name;
    return name + " parent '" + section.parent + "' position " + Text(section.position) + " rotation " + Text(section.rotation);
}

/// Everything a description read into, one section a line or a few.
std::string Dump(EntityConfig const& c)
{
    std::ostringstream out;
    out << "mass " << c.mass << ", airtight " << c.airtight << ", base planes";
    for (std::string const& plane : c.base_planes)
        out << " " << plane;
    out << "\n";
    for (auto const& [name, node] : c.nodes)
        out << "node " << node.type << " " << name << " parent '" << node.parent << "'\n";
    for (auto const& [name, s] : c.renderables)
        out << "renderable " << NodeText(c, name, s) << "\n";
    for (auto const& [name, s] : c.targets)
        out << "target " << NodeText(c, name, s) << "\n";
    for (auto const& [name, s] : c.cameras)
        out << "camera " << NodeText(c, name, s) << " znear " << s.znear << "\n";
    for (auto const& [name, s] : c.adapters)
        out << "adapter " << NodeText(c, name, s) << " type '" << s.type << "'\n";
    for (auto const& [name, s] : c.lightBoxes)
        out << "light box " << NodeText(c, name, s) << " box " << Text(s.box_min) << " " << Text(s.box_max) << "\n";
    for (auto const& [name, s] : c.joints) {
        out << "joint " << NodeText(c, name, s) << " given";
        for (bool const given : {s.has_linear_x, s.has_linear_y, s.has_linear_z, s.has_angular_x, s.has_angular_y, s.has_angular_z})
            out << " " << given;
        out << "\n  linear " << Text(s.linear_min) << " " << Text(s.linear_default) << " " << Text(s.linear_max)
            << "\n  angular " << Text(s.angular_min) << " " << Text(s.angular_default) << " " << Text(s.angular_max) << "\n";
    }
    for (auto const& [name, s] : c.colliders) {
        out << "collider " << NodeText(c, name, s) << " build block " << s.is_build_block << " volume "
            << s.displacement_volume << "\n  box " << Text(s.box_min) << " " << Text(s.box_max) << "\n  vertices";
        for (size_t i = 0; i < s.nb_vertices; ++i)
            out << " " << Text(s.vertices[i]);
        out << "\n  normals";
        for (size_t i = 0; i < s.nb_faces; ++i)
            out << " " << Text(s.faces_normal[i]);
        out << "\n  triangles";
        for (size_t i = 0; i < s.nb_triangles; ++i)
            out << " " << Text(s.triangles[i]);
        out << "\n";
    }
    return out.str();
}

/// n entries of three numbers each: "1 1 1  2 2 2 ...".
std::string Entries(int n)
{
    std::string text;
    for (int i = 1; i <= n; ++i)
        text += " " + std::to_string(i) + " " + std::to_string(i) + " " + std::to_string(i) + " ";
    return text;
}

TEST(EntityConfigParse, EachDescriptionReadsIntoItsFieldsAndWarnings)
{
    struct Case {
        char const* name;
        std::string text;
    };
    Case const cases[] = {
        {"no base planes", "[ENTITY]\nmass 3\n"},
        {"base planes replace the list", "[ENTITY]\nbase_planes +X\n"},
        {"airtight Yes", "[ENTITY]\nairtight Yes\n"},
        {"airtight TRUE", "[ENTITY]\nairtight TRUE\n"},
        {"airtight 1", "[ENTITY]\nairtight 1\n"},
        {"airtight on", "[ENTITY]\nairtight on\n"},
        {"airtight no", "[ENTITY]\nairtight no\n"},
        {"airtight empty", "[ENTITY]\nairtight \n"},
        // The file's y axis turns into the game's -z: the corners swap so that min stays below max.
        {"swapped axis", "[COLLIDER hull]\nbox_min 1 1 1\nbox_max 2 2 2\n[LIGHT_BOX lamp]\nbox_min 1 1 1\nbox_max 2 2 2\n"},
        {"joint with angular z only", "[JOINT hinge]\nposition 1 2 3\nrotation 10 20 30\nangular_z -45 5 45\n"},
        {"joint with linear y", "[JOINT slide]\nposition 1 2 3\nlinear_y -0.5 0.25 0.5\n"},
        {"lists of three to the end of the line", "[COLLIDER c]\nvertices 1 2 3  4 5 6\nfaces_normal 0 0 2\ntriangles 0 1 1  1 0 0\n"},
        // A trailing blank adds one empty entry; its normal stays zero rather than turning into NaN.
        {"trailing blanks", "[COLLIDER c]\nvertices 1 2 3 \nfaces_normal 0 0 1 \ntriangles 0 1 2 \n"},
        {"keys without values", "[COLLIDER c]\nvertices\ntriangles\n"},
        {"too many vertices", "[COLLIDER hull]\nparent base\nvertices" + Entries(11) + "\nbox_max 1 2 3\n"},
        {"too many normals and triangles", "[COLLIDER a]\nfaces_normal" + Entries(13) + "\n[COLLIDER b]\ntriangles" + Entries(20) + "\n"},
        {"full lists with trailing blanks", "[COLLIDER c]\nvertices" + Entries(8) + "  \t\ntriangles" + Entries(12) + "\n"},
        // A bad number keeps the default, ends a vector's line and ends a list.
        {"bad numbers", "[ENTITY]\nmass heavy\n[CAMERA eye]\nposition 1 x 3\nznear near\n"
                        "[COLLIDER c]\ndisplacement_volume ?\nvertices 1 2 3  4 x 6  7 8 9\n"},
        {"unknown keywords and keys", "stray 1 2 3\n[WIDGET spinner]\nparent x\n[   ]\nmass 9\n"
                                      "[ENTITY]\nMass 7\ncolour red\nmass 5\n[JOINT  arm one \t]\nwobble 1 2 3\nposition 1 2 3\n"},
    };
    TempDir dir;
    std::string report;
    auto read = [&report](std::string const& name, std::string const& path) {
        EntityConfig config(path);
        testing::internal::CaptureStderr();
        config.Load();
        std::string warnings = testing::internal::GetCapturedStderr();
        for (size_t at; (at = warnings.find(path)) != std::string::npos;)
            warnings.replace(at, path.size(), "<file>");
        report += "== " + name + "\n" + Dump(config) + warnings;
    };
    read("rover.txt", DataPath("rover.txt"));
    read("missing file", dir.File("absent.txt"));
    for (Case const& c : cases) {
        WriteText(dir.File("item.txt"), c.text);
        read(c.name, dir.File("item.txt"));
    }
    testsupport::ExpectGolden(report, "entity/descriptions.txt");
}

TEST(EntityConfigParse, MeshFileSitsBesideTheDescription)
{
    EntityConfig config(DataPath("rover.txt"));
    EXPECT_EQ(config.GetMeshFilePath(), DataPath("rover.gltf"));
    EXPECT_EQ(EntityConfig("items/crate.cfg").GetMeshFilePath(), "items/crate.gltf");
    EXPECT_EQ(EntityConfig("crate.txt").GetMeshFilePath(), "crate.gltf");
    EXPECT_FALSE(config.mesh);
}

TEST(EntityConfigParse, ParentLoopDoesNotHang)
{
    TempDir dir;
    WriteText(dir.File("loop.txt"), "[TARGET a]\nparent b\nposition 1 0 0\n[TARGET b]\nparent a\nposition 0 0 1\n"
                                    "[TARGET self]\nparent self\n");
    EntityConfig config(dir.File("loop.txt"));
    config.Load();
    glm::dmat4 const loop = config.GetAbsoluteTransform("a");
    for (int i = 0; i < 16; ++i)
        EXPECT_TRUE(std::isfinite(loop[i / 4][i % 4]));
    std::string joint;
    config.GetTransformRelativeToFirstParentJointOrRoot("self", joint);
    EXPECT_EQ(joint, "");
}

TEST(EntityConfigReload, ReadingAgainReplacesTheSections)
{
    TempDir dir;
    std::string const path = dir.File("item.txt");
    WriteText(path, "[JOINT old]\n[CAMERA eye]\nznear 1\n");
    EntityConfig config(path);
    config.Load();
    ASSERT_EQ(config.joints.count("old"), 1u);
    WriteText(path, "[JOINT new]\n[CAMERA eye]\nznear 2\n");
    config.Load();
    EXPECT_EQ(config.joints.count("old"), 0u);
    EXPECT_EQ(config.joints.count("new"), 1u);
    EXPECT_FLOAT_EQ(config.cameras.at("eye").znear, 2.0f);
}

TEST(EntityConfigReload, ReloadThreadParsesUnderTheMutex)
{
    TempDir dir;
    std::string const path = dir.File("item.txt");
    WriteText(path, "[ENTITY]\nmass 1\n");
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
}

// ---------------------------------------------------------------- axes and the node tree

TEST(EntityConfigTransform, FileAxesBecomeGameAxesAndRotationComesFirst)
{
    // The file's z (up) is the game's y, the file's y is the game's -z, x stays x.
    struct Case {
        glm::vec3 position, rotation;
        glm::dmat4 expected;
    };
    for (Case const& c : {Case{{1, 2, 3}, {0, 0, 0}, Translation(1.0, 3.0, -2.0)},
                          Case{{0, 0, 0}, {0, 0, 90}, Rotation(90.0, {0.0, 1.0, 0.0})},
                          Case{{0, 0, 0}, {0, 90, 0}, Rotation(90.0, {0.0, 0.0, -1.0})},
                          Case{{0, 0, 0}, {30, 0, 0}, Rotation(30.0, {1.0, 0.0, 0.0})},
                          Case{{1, 2, 3}, {0, 0, 90}, Translation(1.0, 3.0, -2.0) * Rotation(90.0, {0.0, 1.0, 0.0})}}) {
        SCOPED_TRACE(Text(c.position) + " " + Text(c.rotation));
        ExpectMatNear(glm::dmat4(EntityConfig::TransformFromBlender(c.position, c.rotation)), c.expected, 1e-6);
    }
}

TEST(EntityConfigTransform, NodeTreeGivesAbsoluteAndJointRelativeTransforms)
{
    // root (RENDERABLE) -> arm (JOINT) -> hand (TARGET) -> tip (TARGET); loose has a missing parent.
    TempDir dir;
    WriteText(dir.File("arm.txt"), "[RENDERABLE root]\nposition 0 0 1\n[JOINT arm]\nparent root\nposition 2 0 0\n"
                                   "rotation 0 0 90\n[TARGET hand]\nparent arm\nposition 1 0 0\n"
                                   "[TARGET tip]\nparent hand\nposition 0 0 0.5\n[TARGET loose]\nparent nowhere\nposition 0 4 0\n");
    EntityConfig config(dir.File("arm.txt"));
    config.Load();
    glm::dmat4 const root = Translation(0.0, 1.0, 0.0), arm = Translation(2.0, 0.0, 0.0) * Rotation(90.0, {0.0, 1.0, 0.0});
    glm::dmat4 const hand = Translation(1.0, 0.0, 0.0), tip = Translation(0.0, 0.5, 0.0), loose = Translation(0.0, 0.0, -4.0);
    struct Case {
        char const* node;
        glm::dmat4 absolute, relative;
        char const* joint; // "unchanged": no joint on the way
    };
    for (Case const& c : {Case{"root", root, root, "unchanged"}, Case{"arm", root * arm, glm::dmat4(1.0), "arm"},
                          Case{"hand", root * arm * hand, hand, "arm"}, Case{"tip", root * arm * hand * tip, hand * tip, "arm"},
                          Case{"loose", loose, loose, "unchanged"}, // a parent that names no node counts as the identity
                          Case{"nothing", glm::dmat4(1.0), glm::dmat4(1.0), "unchanged"},
                          Case{"", glm::dmat4(1.0), glm::dmat4(1.0), "unchanged"}}) {
        SCOPED_TRACE(c.node);
        ExpectMatNear(config.GetAbsoluteTransform(c.node), c.absolute, 1e-6);
        std::string joint = "unchanged";
        ExpectMatNear(config.GetTransformRelativeToFirstParentJointOrRoot(c.node, joint), c.relative, 1e-6);
        EXPECT_EQ(joint, c.joint);
    }
    // The hand sits one metre along the arm's turned x axis: game -z from the joint.
    testsupport::ExpectVecNear(glm::dvec3(config.GetAbsoluteTransform("hand")[3]), glm::dvec3(2.0, 1.0, -1.0), 1e-6);
}

// ---------------------------------------------------------------- type registry

/// Behaviour object of the side under test.
struct ProbeInterface {};

using Registry = game::entity::EntityTypeRegistry<ProbeInterface>;

class EntityTypeRegistryTest : public ::testing::Test {
protected:
    void SetUp() override { Clear(); }
    void TearDown() override { Clear(); }
    static void Clear()
    {
        Registry::_registered_interfaces.clear();
        Registry::_registered_items_module.clear();
    }

    /// Registers itemType of module with a description file holding text.
    std::shared_ptr<EntityConfig> Register(ModuleID const& module, std::string const& itemType, std::string const& text)
    {
        WriteText(dir.File(itemType + ".txt"), text);
        auto config = std::make_shared<EntityConfig>(dir.File(itemType + ".txt"));
        Registry::TypeDef& row = Registry::_registered_interfaces[module.String()][itemType];
        row.moduleId = module;
        row.itemType = itemType;
        row.config = config;
        row.factory = [] { return std::make_shared<ProbeInterface>(); };
        Registry::_registered_items_module[itemType] = module;
        return config;
    }

    testsupport::TempDir dir;
};

TEST_F(EntityTypeRegistryTest, ItemTypeFindsItsModuleOrNone)
{
    EXPECT_EQ(Registry::FindModuleIDFromItemType(""), ModuleID()) << "no throw for an unknown type";
    Register(ModuleID("ACME_tools"), "drill", "[ENTITY]\nmass 3\n");
    Register(ModuleID("ACME_more"), "crate", "[ENTITY]\nmass 1\n");
    EXPECT_EQ(Registry::FindModuleIDFromItemType("drill"), ModuleID("ACME_tools"));
    EXPECT_EQ(Registry::FindModuleIDFromItemType("crate"), ModuleID("ACME_more"));
    EXPECT_EQ(Registry::FindModuleIDFromItemType("dril"), ModuleID());
}

TEST_F(EntityTypeRegistryTest, ConfigIsReadOnFirstUseOnly)
{
    std::shared_ptr<EntityConfig> const config = Register(ModuleID("ACME_tools"), "drill", "[ENTITY]\nmass 3\n");
    EXPECT_EQ(config->mass, 0.0) << "registering reads nothing";
    ASSERT_EQ(Registry::GetEntityConfig("ACME_tools", "drill"), config);
    EXPECT_EQ(config->mass, 3.0);
    WriteText(config->ToPath().string(), "[ENTITY]\nmass 8\n");
    EXPECT_EQ(Registry::GetEntityConfig("ACME_tools", "drill"), config);
    EXPECT_EQ(config->mass, 3.0) << "not read a second time";

    // Unknown module or a row without a description: empty. Unknown type of a known module: throws.
    EXPECT_FALSE(Registry::GetEntityConfig("ACME_other", "drill"));
    EXPECT_FALSE(Registry::GetEntityConfig(nullptr, "drill"));
    Registry::_registered_interfaces["ACME_tools"]["ghost"].itemType = "ghost";
    EXPECT_FALSE(Registry::GetEntityConfig("ACME_tools", "ghost"));
    EXPECT_THROW(Registry::GetEntityConfig("ACME_tools", "saw"), std::out_of_range);
}

TEST_F(EntityTypeRegistryTest, FirstUseFromManyThreadsGivesTheReadConfig)
{
    Register(ModuleID("ACME_tools"), "drill", "[ENTITY]\nmass 3\n");
    std::vector<std::thread> threads;
    std::vector<double> masses(4, 0.0);
    for (size_t t = 0; t < masses.size(); ++t) {
        threads.emplace_back([t, &masses] {
            std::shared_ptr<EntityConfig> const got = Registry::GetEntityConfig("ACME_tools", "drill");
            std::lock_guard<std::mutex> lock(got->GetMutex());
            masses[t] = got->mass;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(masses, std::vector<double>(4, 3.0));
}

} // namespace
