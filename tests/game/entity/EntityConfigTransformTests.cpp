#include <gtest/gtest.h>

#include "support/TempDir.hpp"

#include <string>

#include <glm/glm.hpp>
#include <glm/gtc/matrix_transform.hpp>

#include "game/entity/EntityConfig.hpp"

using game::entity::EntityConfig;
using testsupport::TempDir;
using testsupport::WriteText;

namespace {

void ExpectMat4(glm::dmat4 const& actual, glm::dmat4 const& expected, double tolerance = 1e-6)
{
    for (int column = 0; column < 4; ++column)
        for (int row = 0; row < 4; ++row)
            EXPECT_NEAR(actual[column][row], expected[column][row], tolerance)
                << "element [" << column << "][" << row << "]";
}

glm::dmat4 Translation(double x, double y, double z)
{
    return glm::translate(glm::dmat4(1.0), glm::dvec3(x, y, z));
}

glm::dmat4 Rotation(double degrees, glm::dvec3 const& axis)
{
    return glm::rotate(glm::dmat4(1.0), glm::radians(degrees), axis);
}

// ---------------------------------------------------------------- TransformFromBlender

TEST(EntityConfigTransformFromBlender, PositionIsBroughtIntoGameAxes)
{
    glm::mat4 const transform = EntityConfig::TransformFromBlender({1.0f, 2.0f, 3.0f}, {0.0f, 0.0f, 0.0f});
    ExpectMat4(transform, Translation(1.0, 3.0, -2.0));
}

TEST(EntityConfigTransformFromBlender, FileUpAxisBecomesGameUpAxis)
{
    // A quarter turn about the file's Z (up) is a quarter turn about the game's Y (up).
    ExpectMat4(EntityConfig::TransformFromBlender({0.0f, 0.0f, 0.0f}, {0.0f, 0.0f, 90.0f}),
               Rotation(90.0, {0.0, 1.0, 0.0}));
    // The file's Y is the game's -Z, its X stays X.
    ExpectMat4(EntityConfig::TransformFromBlender({0.0f, 0.0f, 0.0f}, {0.0f, 90.0f, 0.0f}),
               Rotation(90.0, {0.0, 0.0, -1.0}));
    ExpectMat4(EntityConfig::TransformFromBlender({0.0f, 0.0f, 0.0f}, {30.0f, 0.0f, 0.0f}),
               Rotation(30.0, {1.0, 0.0, 0.0}));
}

TEST(EntityConfigTransformFromBlender, RotationIsAppliedBeforeTranslation)
{
    glm::mat4 const transform = EntityConfig::TransformFromBlender({1.0f, 2.0f, 3.0f}, {0.0f, 0.0f, 90.0f});
    ExpectMat4(transform, Translation(1.0, 3.0, -2.0) * Rotation(90.0, {0.0, 1.0, 0.0}));
    // A point one metre along the file's X ends up along the game's -Z from the origin.
    glm::vec4 const moved = transform * glm::vec4(1.0f, 0.0f, 0.0f, 1.0f);
    EXPECT_NEAR(moved.x, 1.0f, 1e-6f);
    EXPECT_NEAR(moved.y, 3.0f, 1e-6f);
    EXPECT_NEAR(moved.z, -3.0f, 1e-6f);
}

// ---------------------------------------------------------------- node tree

/// root (RENDERABLE) -> arm (JOINT) -> hand (TARGET) -> tip (TARGET); loose has a missing parent.
class EntityConfigTree : public ::testing::Test {
protected:
    EntityConfigTree() : path(dir.File("arm.txt")), config((WriteText(path, Text), path)) { config.Load(); }

    static constexpr char const* Text = "[RENDERABLE root]\nposition 0 0 1\n"
                                        "[JOINT arm]\nparent root\nposition 2 0 0\nrotation 0 0 90\n"
                                        "[TARGET hand]\nparent arm\nposition 1 0 0\n"
                                        "[TARGET tip]\nparent hand\nposition 0 0 0.5\n"
                                        "[TARGET loose]\nparent nowhere\nposition 0 4 0\n";

    TempDir dir;
    std::string path;
    EntityConfig config;
};

TEST_F(EntityConfigTree, AbsoluteTransformMultipliesTheChain)
{
    glm::dmat4 const root = Translation(0.0, 1.0, 0.0);
    glm::dmat4 const arm = Translation(2.0, 0.0, 0.0) * Rotation(90.0, {0.0, 1.0, 0.0});
    glm::dmat4 const hand = Translation(1.0, 0.0, 0.0);
    glm::dmat4 const tip = Translation(0.0, 0.5, 0.0);
    ExpectMat4(config.GetAbsoluteTransform("root"), root);
    ExpectMat4(config.GetAbsoluteTransform("arm"), root * arm);
    ExpectMat4(config.GetAbsoluteTransform("tip"), root * arm * hand * tip);
    // The hand sits one metre along the arm's turned X axis: game -Z from the joint.
    glm::dvec4 const handOrigin = config.GetAbsoluteTransform("hand") * glm::dvec4(0.0, 0.0, 0.0, 1.0);
    EXPECT_NEAR(handOrigin.x, 2.0, 1e-6);
    EXPECT_NEAR(handOrigin.y, 1.0, 1e-6);
    EXPECT_NEAR(handOrigin.z, -1.0, 1e-6);
}

TEST_F(EntityConfigTree, UnknownNamesGiveTheIdentity)
{
    ExpectMat4(config.GetAbsoluteTransform("nothing"), glm::dmat4(1.0), 0.0);
    ExpectMat4(config.GetAbsoluteTransform(""), glm::dmat4(1.0), 0.0);
    // A parent that names no node counts as the identity.
    ExpectMat4(config.GetAbsoluteTransform("loose"), Translation(0.0, 0.0, -4.0));
}

TEST_F(EntityConfigTree, RelativeTransformStopsAtTheFirstJoint)
{
    std::string joint = "unchanged";
    ExpectMat4(config.GetTransformRelativeToFirstParentJointOrRoot("tip", joint),
               Translation(1.0, 0.0, 0.0) * Translation(0.0, 0.5, 0.0));
    EXPECT_EQ(joint, "arm");

    joint = "unchanged";
    ExpectMat4(config.GetTransformRelativeToFirstParentJointOrRoot("arm", joint), glm::dmat4(1.0), 0.0);
    EXPECT_EQ(joint, "arm");
}

TEST_F(EntityConfigTree, RelativeTransformWithoutJointGoesToTheRoot)
{
    std::string joint = "unchanged";
    ExpectMat4(config.GetTransformRelativeToFirstParentJointOrRoot("root", joint), Translation(0.0, 1.0, 0.0));
    EXPECT_EQ(joint, "unchanged");
    ExpectMat4(config.GetTransformRelativeToFirstParentJointOrRoot("nothing", joint), glm::dmat4(1.0), 0.0);
    ExpectMat4(config.GetTransformRelativeToFirstParentJointOrRoot("loose", joint), Translation(0.0, 0.0, -4.0));
    EXPECT_EQ(joint, "unchanged");
}

} // namespace
