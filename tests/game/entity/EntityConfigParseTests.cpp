#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/TempDir.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iostream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>

#include <glm/glm.hpp>

#include "game/entity/EntityConfig.hpp"

using game::entity::EntityConfig;
using testsupport::ReplaceText;
using testsupport::TempDir;
using testsupport::WriteText;

namespace {

constexpr float Tolerance = 1e-6f;

std::string RoverPath()
{
    return std::string(TESSARA_TEST_SOURCE_DIR) + "/game/entity/data/rover.txt";
}

void ExpectVec3(glm::vec3 const& actual, glm::vec3 const& expected)
{
    EXPECT_NEAR(actual.x, expected.x, Tolerance) << "x of (" << actual.x << ", " << actual.y << ", " << actual.z << ")";
    EXPECT_NEAR(actual.y, expected.y, Tolerance) << "y of (" << actual.x << ", " << actual.y << ", " << actual.z << ")";
    EXPECT_NEAR(actual.z, expected.z, Tolerance) << "z of (" << actual.x << ", " << actual.y << ", " << actual.z << ")";
}

/// Captures what is written to std::cerr while it lives.
class CerrCapture {
public:
    CerrCapture() : _previous(std::cerr.rdbuf(_text.rdbuf())) {}
    ~CerrCapture() { std::cerr.rdbuf(_previous); }
    std::string Text() const { return _text.str(); }
    /// Number of complete lines written.
    size_t LineCount() const
    {
        std::string const text = _text.str();
        return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
    }

private:
    std::ostringstream _text;
    std::streambuf* _previous;
};

/// A description file with the given text in a scratch folder, parsed.
class ParsedText {
public:
    explicit ParsedText(std::string const& text, std::string const& name = "item.txt")
        : path(dir.File(name)), config((WriteText(path, text), path))
    {
        config.Load();
    }

    TempDir dir;
    std::string path;
    EntityConfig config;
};

// ---------------------------------------------------------------- the rover

TEST(EntityConfigRover, EntityKeysAndSectionCounts)
{
    EntityConfig config(RoverPath());
    config.Load();
    EXPECT_DOUBLE_EQ(config.mass, 120.5);
    EXPECT_TRUE(config.airtight);
    EXPECT_THAT(config.base_planes, ::testing::ElementsAre("-Y", "-Z"));
    EXPECT_EQ(config.renderables.size(), 2u);
    EXPECT_EQ(config.colliders.size(), 1u);
    EXPECT_EQ(config.joints.size(), 4u);
    EXPECT_EQ(config.lightBoxes.size(), 1u);
    EXPECT_EQ(config.adapters.size(), 2u);
    EXPECT_EQ(config.cameras.size(), 1u);
    EXPECT_EQ(config.targets.size(), 1u);
    EXPECT_EQ(config.nodes.size(), 12u);
    EXPECT_EQ(config.nodes.count(""), 0u) << "ENTITY adds no node";
    EXPECT_EQ(config.nodes.at("wheel_fl").type, "JOINT");
    EXPECT_EQ(config.nodes.at("wheel_fl").parent, "chassis");
    EXPECT_EQ(config.nodes.at("headlight").type, "LIGHT_BOX");
    EXPECT_EQ(config.nodes.at("chassis").parent, "");
}

TEST(EntityConfigRover, ColliderIsConvertedToGameAxes)
{
    EntityConfig config(RoverPath());
    config.Load();
    EntityConfig::Collider const& box = config.colliders.at("chassis_box");
    EXPECT_EQ(box.parent, "chassis");
    EXPECT_TRUE(box.is_build_block);
    EXPECT_FLOAT_EQ(box.displacement_volume, 0.6f);
    // (-1, -0.5, -0.3) and (1, 0.5, 0.3) become (-1, -0.3, 0.5) and (1, 0.3, -0.5); z swaps.
    ExpectVec3(box.box_min, {-1.0f, -0.3f, -0.5f});
    ExpectVec3(box.box_max, {1.0f, 0.3f, 0.5f});

    ASSERT_EQ(box.nb_vertices, 8u);
    ExpectVec3(box.vertices[0], {-1.0f, -0.3f, 0.5f});
    ExpectVec3(box.vertices[6], {1.0f, 0.3f, -0.5f});

    ASSERT_EQ(box.nb_faces, 6u);
    ExpectVec3(box.faces_normal[0], {1.0f, 0.0f, 0.0f});
    ExpectVec3(box.faces_normal[2], {0.0f, 0.0f, -1.0f}); // file +Y
    ExpectVec3(box.faces_normal[3], {0.0f, 0.0f, 1.0f});  // file -Y
    ExpectVec3(box.faces_normal[4], {0.0f, 1.0f, 0.0f});  // file +Z
    for (size_t i = 0; i < box.nb_faces; ++i)
        EXPECT_NEAR(glm::length(box.faces_normal[i]), 1.0f, Tolerance);

    ASSERT_EQ(box.nb_triangles, 12u);
    EXPECT_EQ(box.triangles[0], glm::u16vec3(0, 2, 1));
    EXPECT_EQ(box.triangles[11], glm::u16vec3(3, 4, 7));
    // Every triangle indexes a listed vertex.
    for (size_t i = 0; i < box.nb_triangles; ++i)
        for (int corner = 0; corner < 3; ++corner)
            EXPECT_LT(box.triangles[i][corner], box.nb_vertices);
}

TEST(EntityConfigRover, WheelJointsTurnAboutXOnly)
{
    EntityConfig config(RoverPath());
    config.Load();
    EntityConfig::Joint const& wheel = config.joints.at("wheel_fr");
    EXPECT_EQ(wheel.parent, "chassis");
    ExpectVec3(wheel.position, {0.8f, -1.1f, -0.3f}); // kept in file axes
    EXPECT_TRUE(wheel.has_angular_x);
    EXPECT_FALSE(wheel.has_angular_y || wheel.has_angular_z);
    EXPECT_FALSE(wheel.has_linear_x || wheel.has_linear_y || wheel.has_linear_z);
    ExpectVec3(wheel.angular_min, {-360.0f, 0.0f, 0.0f});
    ExpectVec3(wheel.angular_default, {0.0f, 0.0f, 0.0f});
    ExpectVec3(wheel.angular_max, {360.0f, 0.0f, 0.0f});
    // Linear axes are fixed at the position, in file axes.
    ExpectVec3(wheel.linear_min, wheel.position);
    ExpectVec3(wheel.linear_default, wheel.position);
    ExpectVec3(wheel.linear_max, wheel.position);
}

TEST(EntityConfigRover, OtherSections)
{
    EntityConfig config(RoverPath());
    config.Load();
    EntityConfig::LightBox const& light = config.lightBoxes.at("headlight");
    ExpectVec3(light.box_min, {1.0f, 0.0f, -0.5f});
    ExpectVec3(light.box_max, {3.0f, 0.5f, 0.5f});

    EXPECT_EQ(config.adapters.at("hitch").type, "tow");
    EXPECT_EQ(config.adapters.at("roof_rack").type, "cargo");
    ExpectVec3(config.adapters.at("hitch").rotation, {0.0f, 0.0f, 180.0f});

    EntityConfig::Camera const& camera = config.cameras.at("driver");
    EXPECT_FLOAT_EQ(camera.znear, 0.05f);
    EXPECT_EQ(camera.parent, "chassis");
    ExpectVec3(camera.rotation, {90.0f, 0.0f, -90.0f});

    EntityConfig::Target const& tip = config.targets.at("drill_tip");
    ExpectVec3(tip.position, {1.3f, 0.0f, -0.2f});
    // Each section's transform is the one of its node.
    EXPECT_EQ(tip.transform, config.nodes.at("drill_tip").transform);
    EXPECT_EQ(camera.transform, EntityConfig::TransformFromBlender(camera.position, camera.rotation));
}

TEST(EntityConfigRover, MeshFileSitsBesideTheDescription)
{
    EntityConfig config(RoverPath());
    EXPECT_EQ(config.GetMeshFilePath(), std::string(TESSARA_TEST_SOURCE_DIR) + "/game/entity/data/rover.gltf");
    EXPECT_EQ(EntityConfig("items/crate.cfg").GetMeshFilePath(), "items/crate.gltf");
    EXPECT_EQ(EntityConfig("crate.txt").GetMeshFilePath(), "crate.gltf");
    EXPECT_FALSE(config.mesh);
}

// ---------------------------------------------------------------- ENTITY keys

TEST(EntityConfigEntity, BasePlanesDefaultWhenAbsent)
{
    ParsedText parsed("[ENTITY]\nmass 3\n");
    EXPECT_THAT(parsed.config.base_planes, ::testing::ElementsAre("-Z", "-Y"));
    EXPECT_DOUBLE_EQ(parsed.config.mass, 3.0);
    EXPECT_FALSE(parsed.config.airtight);
}

TEST(EntityConfigEntity, BasePlanesLineReplacesTheList)
{
    ParsedText parsed("[ENTITY]\nbase_planes +X\n");
    EXPECT_THAT(parsed.config.base_planes, ::testing::ElementsAre("+X"));
}

TEST(EntityConfigEntity, AirtightWords)
{
    struct Case {
        char const* word;
        bool expected;
    };
    for (Case const& c : {Case{"Yes", true}, Case{"TRUE", true}, Case{"1", true}, Case{"on", false},
                          Case{"no", false}, Case{"0", false}, Case{"", false}}) {
        ParsedText parsed(std::string("[ENTITY]\nairtight ") + c.word + "\n");
        EXPECT_EQ(parsed.config.airtight, c.expected) << "airtight '" << c.word << "'";
    }
}

TEST(EntityConfigEntity, MissingFileReadsNothing)
{
    TempDir dir;
    EntityConfig config(dir.File("absent.txt"));
    config.Load();
    EXPECT_TRUE(config.nodes.empty());
    EXPECT_THAT(config.base_planes, ::testing::ElementsAre("-Z", "-Y"));
}

// ---------------------------------------------------------------- boxes and joints

TEST(EntityConfigBoxes, SwappedAxisKeepsMinimumBelowMaximum)
{
    ParsedText parsed("[COLLIDER hull]\nbox_min 1 1 1\nbox_max 2 2 2\n"
                      "[LIGHT_BOX lamp]\nbox_min 1 1 1\nbox_max 2 2 2\n");
    EntityConfig::Collider const& hull = parsed.config.colliders.at("hull");
    ExpectVec3(hull.box_min, {1.0f, 1.0f, -2.0f});
    ExpectVec3(hull.box_max, {2.0f, 2.0f, -1.0f});
    EXPECT_EQ(hull.nb_vertices, 0u) << "no vertices listed: a plain box";
    EntityConfig::LightBox const& lamp = parsed.config.lightBoxes.at("lamp");
    ExpectVec3(lamp.box_min, {1.0f, 1.0f, -2.0f});
    ExpectVec3(lamp.box_max, {2.0f, 2.0f, -1.0f});
}

TEST(EntityConfigJoints, OnlyAngularZGiven)
{
    ParsedText parsed("[JOINT hinge]\nposition 1 2 3\nrotation 10 20 30\nangular_z -45 5 45\n");
    EntityConfig::Joint const& hinge = parsed.config.joints.at("hinge");
    EXPECT_TRUE(hinge.has_angular_z);
    EXPECT_FALSE(hinge.has_angular_x || hinge.has_angular_y);
    EXPECT_FALSE(hinge.has_linear_x || hinge.has_linear_y || hinge.has_linear_z);
    ExpectVec3(hinge.linear_min, {1.0f, 2.0f, 3.0f});
    ExpectVec3(hinge.linear_default, {1.0f, 2.0f, 3.0f});
    ExpectVec3(hinge.linear_max, {1.0f, 2.0f, 3.0f});
    ExpectVec3(hinge.angular_min, {10.0f, 20.0f, -45.0f});
    ExpectVec3(hinge.angular_default, {10.0f, 20.0f, 5.0f});
    ExpectVec3(hinge.angular_max, {10.0f, 20.0f, 45.0f});
}

TEST(EntityConfigJoints, LinearRangeStaysInFileAxes)
{
    ParsedText parsed("[JOINT slide]\nposition 1 2 3\nlinear_y -0.5 0.25 0.5\n");
    EntityConfig::Joint const& slide = parsed.config.joints.at("slide");
    EXPECT_TRUE(slide.has_linear_y);
    ExpectVec3(slide.linear_min, {1.0f, -0.5f, 3.0f});
    ExpectVec3(slide.linear_default, {1.0f, 0.25f, 3.0f});
    ExpectVec3(slide.linear_max, {1.0f, 0.5f, 3.0f});
    ExpectVec3(slide.angular_min, {0.0f, 0.0f, 0.0f});
}

// ---------------------------------------------------------------- collider lists

TEST(EntityConfigLists, EntriesOfThreeToTheEndOfTheLine)
{
    ParsedText parsed("[COLLIDER c]\nvertices 1 2 3  4 5 6\nfaces_normal 0 0 2\ntriangles 0 1 1  1 0 0\n");
    EntityConfig::Collider const& c = parsed.config.colliders.at("c");
    ASSERT_EQ(c.nb_vertices, 2u);
    ExpectVec3(c.vertices[0], {1.0f, 3.0f, -2.0f});
    ExpectVec3(c.vertices[1], {4.0f, 6.0f, -5.0f});
    ASSERT_EQ(c.nb_faces, 1u);
    ExpectVec3(c.faces_normal[0], {0.0f, 1.0f, 0.0f}); // rotated and normalised
    ASSERT_EQ(c.nb_triangles, 2u);
    EXPECT_EQ(c.triangles[1], glm::u16vec3(1, 0, 0));
}

TEST(EntityConfigLists, TrailingBlankAddsOneEntry)
{
    ParsedText parsed("[COLLIDER c]\nvertices 1 2 3 \nfaces_normal 0 0 1 \ntriangles 0 1 2 \n");
    EntityConfig::Collider const& c = parsed.config.colliders.at("c");
    ASSERT_EQ(c.nb_vertices, 2u);
    ExpectVec3(c.vertices[1], {0.0f, 0.0f, 0.0f});
    ASSERT_EQ(c.nb_faces, 2u);
    ExpectVec3(c.faces_normal[0], {0.0f, 1.0f, 0.0f});
    // The empty entry stays a zero vector rather than turning into NaN.
    ExpectVec3(c.faces_normal[1], {0.0f, 0.0f, 0.0f});
    ASSERT_EQ(c.nb_triangles, 2u);
    EXPECT_EQ(c.triangles[1], glm::u16vec3(0, 0, 0));
}

TEST(EntityConfigLists, KeyWithoutValuesGivesNoEntries)
{
    ParsedText parsed("[COLLIDER c]\nvertices\ntriangles\n");
    EXPECT_EQ(parsed.config.colliders.at("c").nb_vertices, 0u);
    EXPECT_EQ(parsed.config.colliders.at("c").nb_triangles, 0u);
}

/// n entries of three numbers each: "1 1 1  2 2 2 ...".
std::string Entries(int n)
{
    std::string text;
    for (int i = 1; i <= n; ++i)
        text += " " + std::to_string(i) + " " + std::to_string(i) + " " + std::to_string(i) + " ";
    return text;
}

TEST(EntityConfigLists, TooManyVerticesKeepTheFirstAndWarnOnce)
{
    TempDir dir;
    std::string const path = dir.File("long.txt");
    WriteText(path, "[COLLIDER hull]\nparent base\nvertices" + Entries(11) + "\nbox_max 1 2 3\n");
    EntityConfig config(path);
    CerrCapture capture;
    config.Load();
    EntityConfig::Collider const& hull = config.colliders.at("hull");
    ASSERT_EQ(hull.nb_vertices, 8u);
    for (int i = 0; i < 8; ++i)
        ExpectVec3(hull.vertices[i], {float(i + 1), float(i + 1), -float(i + 1)});
    // The fields after the array are intact.
    EXPECT_EQ(hull.nb_faces, 0u);
    EXPECT_EQ(hull.nb_triangles, 0u);
    EXPECT_EQ(hull.parent, "base");
    ExpectVec3(hull.box_max, {1.0f, 3.0f, 0.0f});
    EXPECT_EQ(capture.LineCount(), 1u) << capture.Text();
    EXPECT_EQ(capture.Text(), path + ": collider 'hull' lists more than 8 vertices; the rest are ignored\n");
}

TEST(EntityConfigLists, TooManyNormalsAndTrianglesWarnOnceEach)
{
    TempDir dir;
    std::string const path = dir.File("long.txt");
    WriteText(path, "[COLLIDER a]\nfaces_normal" + Entries(13) + "\n[COLLIDER b]\ntriangles" + Entries(20) + "\n");
    EntityConfig config(path);
    CerrCapture capture;
    config.Load();
    EntityConfig::Collider const& a = config.colliders.at("a");
    ASSERT_EQ(a.nb_faces, 12u);
    ExpectVec3(a.faces_normal[11], glm::normalize(glm::vec3(1.0f, 1.0f, -1.0f)));
    EntityConfig::Collider const& b = config.colliders.at("b");
    ASSERT_EQ(b.nb_triangles, 12u);
    EXPECT_EQ(b.triangles[11], glm::u16vec3(12, 12, 12));
    EXPECT_EQ(capture.LineCount(), 2u) << capture.Text();
    EXPECT_THAT(capture.Text(), ::testing::HasSubstr("collider 'a' lists more than 12 face normals"));
    EXPECT_THAT(capture.Text(), ::testing::HasSubstr("collider 'b' lists more than 12 triangles"));
}

TEST(EntityConfigLists, FullListWithTrailingBlankIsNoOverflow)
{
    TempDir dir;
    std::string const path = dir.File("full.txt");
    WriteText(path, "[COLLIDER c]\nvertices" + Entries(8) + "  \t\ntriangles" + Entries(12) + "\n");
    EntityConfig config(path);
    CerrCapture capture;
    config.Load();
    EXPECT_EQ(config.colliders.at("c").nb_vertices, 8u);
    EXPECT_EQ(config.colliders.at("c").nb_triangles, 12u);
    EXPECT_EQ(capture.Text(), "");
}

// ---------------------------------------------------------------- tolerance

TEST(EntityConfigTolerance, BadNumbersKeepDefaults)
{
    ParsedText parsed("[ENTITY]\nmass heavy\n"
                      "[CAMERA eye]\nposition 1 x 3\nznear near\n"
                      "[COLLIDER c]\ndisplacement_volume ?\nvertices 1 2 3  4 x 6  7 8 9\n");
    EXPECT_DOUBLE_EQ(parsed.config.mass, 0.0);
    EntityConfig::Camera const& eye = parsed.config.cameras.at("eye");
    ExpectVec3(eye.position, {1.0f, 0.0f, 0.0f}); // the rest of the line is ignored
    EXPECT_FLOAT_EQ(eye.znear, 0.0f);
    EntityConfig::Collider const& c = parsed.config.colliders.at("c");
    EXPECT_FLOAT_EQ(c.displacement_volume, 0.0f);
    // The bad entry ends the list.
    ASSERT_EQ(c.nb_vertices, 2u);
    ExpectVec3(c.vertices[1], {4.0f, 0.0f, 0.0f});
}

TEST(EntityConfigTolerance, UnknownKeywordsAndKeysAreIgnored)
{
    ParsedText parsed("stray 1 2 3\n"
                      "[WIDGET spinner]\nparent x\n"
                      "[   ]\nmass 9\n"
                      "[ENTITY]\nMass 7\ncolour red\nmass 5\n"
                      "[JOINT  arm one \t]\nwobble 1 2 3\nposition 1 2 3\n");
    EXPECT_DOUBLE_EQ(parsed.config.mass, 5.0);
    EXPECT_EQ(parsed.config.nodes.count("spinner"), 0u);
    ASSERT_EQ(parsed.config.nodes.size(), 1u);
    ASSERT_EQ(parsed.config.joints.count("arm one"), 1u) << "the name keeps its inner blanks";
    ExpectVec3(parsed.config.joints.at("arm one").position, {1.0f, 2.0f, 3.0f});
}

TEST(EntityConfigTolerance, ParentLoopDoesNotHang)
{
    ParsedText parsed("[TARGET a]\nparent b\nposition 1 0 0\n[TARGET b]\nparent a\nposition 0 0 1\n"
                      "[TARGET self]\nparent self\n");
    glm::dmat4 const loop = parsed.config.GetAbsoluteTransform("a");
    for (int column = 0; column < 4; ++column)
        for (int row = 0; row < 4; ++row)
            EXPECT_TRUE(std::isfinite(loop[column][row]));
    std::string joint;
    parsed.config.GetTransformRelativeToFirstParentJointOrRoot("self", joint);
    EXPECT_EQ(joint, "");
}

// ---------------------------------------------------------------- reading again

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
    ReplaceText(path, "[ENTITY]\nmass 250\n[TARGET tip]\n");
    double mass = 0.0;
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < deadline) {
        {
            std::lock_guard<std::mutex> lock(config.GetMutex());
            mass = config.mass;
        }
        if (mass == 250.0)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_DOUBLE_EQ(mass, 250.0);
    config.StopAutoReloadThread();
    EXPECT_EQ(config.targets.count("tip"), 1u);
}

} // namespace
