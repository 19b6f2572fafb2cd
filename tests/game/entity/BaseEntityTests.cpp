#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <unordered_set>

#include <glm/glm.hpp>
#include <glm/gtc/matrix_transform.hpp>
#include <glm/gtc/quaternion.hpp>

#include "game/entity/BaseEntity.hpp"
#include "game/entity/EntityConfig.hpp"
#include "game/entity/Id.hpp"

using game::entity::BaseEntity;
using game::entity::ConvexMeshCollider;
using game::entity::EntityConfig;
using game::entity::Id;

namespace {

std::string DataPath(std::string const& name)
{
    return std::string(TESSARA_TEST_SOURCE_DIR) + "/game/entity/data/" + name;
}

std::shared_ptr<EntityConfig> LoadConfig(std::string const& name)
{
    auto config = std::make_shared<EntityConfig>(DataPath(name));
    config->Load();
    return config;
}

void ExpectVec3(glm::dvec3 const& actual, glm::dvec3 const& expected, double tolerance = 1e-6)
{
    EXPECT_NEAR(actual.x, expected.x, tolerance) << "x of (" << actual.x << ", " << actual.y << ", " << actual.z << ")";
    EXPECT_NEAR(actual.y, expected.y, tolerance) << "y of (" << actual.x << ", " << actual.y << ", " << actual.z << ")";
    EXPECT_NEAR(actual.z, expected.z, tolerance) << "z of (" << actual.x << ", " << actual.y << ", " << actual.z << ")";
}

void ExpectMat4(glm::dmat4 const& actual, glm::dmat4 const& expected, double tolerance = 1e-9)
{
    for (int column = 0; column < 4; ++column)
        for (int row = 0; row < 4; ++row)
            EXPECT_NEAR(actual[column][row], expected[column][row], tolerance)
                << "element [" << column << "][" << row << "]";
}

glm::dvec3 Apply(glm::dmat4 const& transform, glm::dvec3 const& point)
{
    return glm::dvec3(transform * glm::dvec4(point, 1.0));
}

/// A box collider from low to high, placed by transform.
ConvexMeshCollider BoxCollider(glm::vec3 const& low, glm::vec3 const& high, glm::dmat4 const& transform)
{
    ConvexMeshCollider collider;
    collider.box_min = low;
    collider.box_max = high;
    collider.transform = transform;
    return collider;
}

// ---------------------------------------------------------------- identity

TEST(EntityId, IsSetOnlyWhenBothWordsAreNonZero)
{
    EXPECT_FALSE(Id().IsSet());
    EXPECT_FALSE(Id(5, 0).IsSet());
    EXPECT_FALSE(Id(0, 5).IsSet());
    EXPECT_TRUE(Id(1, 2).IsSet());
    EXPECT_TRUE(Id::Generate().IsSet());
}

TEST(EntityId, EqualityComparesBothWordsAndHashIsTheSecondWord)
{
    EXPECT_EQ(Id(1, 2), Id(1, 2));
    EXPECT_NE(Id(1, 2), Id(3, 2));
    EXPECT_NE(Id(1, 2), Id(1, 3));
    EXPECT_EQ(std::hash<Id>()(Id(7, 0x1234567890ABCDEFull)), static_cast<size_t>(0x1234567890ABCDEFull));
    EXPECT_EQ(std::hash<Id>()(Id(1, 9)), std::hash<Id>()(Id(2, 9)));

    // Ids with the same second word share a hash but stay distinct keys.
    std::unordered_set<Id> set{Id(1, 9), Id(2, 9)};
    EXPECT_EQ(set.size(), 2u);
}

TEST(EntityId, GeneratedIdsCarryTheEntityTag)
{
    EXPECT_EQ(Id::Generate().Tag(), "ENTT");
}

// ---------------------------------------------------------------- defaults

TEST(BaseEntityDefaults, FreshEntityIsAtRestAtTheOrigin)
{
    BaseEntity entity;
    EXPECT_EQ(entity.orientation.w, 1.0);
    EXPECT_EQ(entity.orientation.x, 0.0);
    EXPECT_EQ(entity.orientation.y, 0.0);
    EXPECT_EQ(entity.orientation.z, 0.0);
    EXPECT_EQ(entity.mass, 0.0);
    EXPECT_FALSE(entity.parentEntity.IsSet());
    EXPECT_FALSE(entity.config);
    ExpectMat4(entity.GetTransform(), glm::dmat4(1.0));
}

TEST(BaseEntityDefaults, ColliderDefaults)
{
    ConvexMeshCollider collider;
    EXPECT_TRUE(collider.enabled);
    ExpectMat4(collider.transform, glm::dmat4(1.0));
    EXPECT_EQ(collider.fill, 1.0);
    EXPECT_EQ(collider.friction, 0.2);
    EXPECT_FALSE(collider.reducedQuery);
    EXPECT_FALSE(collider.exactEdges);
    ASSERT_TRUE(collider.subColliders);
    EXPECT_TRUE(collider.subColliders->empty());
    EXPECT_FALSE(collider.onContact);
    EXPECT_EQ(collider.verticesCount, 0u);
    EXPECT_EQ(collider.reserved0, 0u);
}

// ---------------------------------------------------------------- InitNodes

TEST(BaseEntityInitNodes, WithoutConfigNothingChanges)
{
    BaseEntity entity;
    entity.mass = 3.0;
    entity.centerOfMass = {1.0, 2.0, 3.0};
    entity.InitNodes();
    EXPECT_EQ(entity.mass, 3.0);
    EXPECT_TRUE(entity.nodeTransforms.empty());
    EXPECT_TRUE(entity.jointStates.empty());
    EXPECT_TRUE(entity.colliders.empty());
    ExpectVec3(entity.centerOfMass, {1.0, 2.0, 3.0});
}

TEST(BaseEntityInitNodes, RoverTakesMassNodesAndJointDefaults)
{
    BaseEntity entity;
    entity.config = LoadConfig("rover.txt");
    entity.InitNodes();

    EXPECT_EQ(entity.mass, 120.5);
    // Joints, colliders, adapters and targets get nodes; renderables, light boxes and cameras do not.
    std::set<std::string> names;
    for (auto const& entry : entity.nodeTransforms)
        names.insert(entry.first);
    EXPECT_EQ(names, (std::set<std::string>{"chassis_box", "drill_tip", "hitch", "roof_rack", "wheel_fl", "wheel_fr",
                                             "wheel_rl", "wheel_rr"}));
    for (auto const& [name, transform] : entity.nodeTransforms)
        ExpectMat4(transform, entity.config->GetAbsoluteTransform(name));

    ASSERT_EQ(entity.jointStates.size(), 4u);
    for (auto const& [name, state] : entity.jointStates) {
        ExpectVec3(state.rotation, glm::dvec3(entity.config->joints.at(name).angular_default));
        ExpectVec3(state.position, glm::dvec3(entity.config->joints.at(name).linear_default));
    }
    // The front left wheel sits at file (0.8, 1.1, -0.3) below the chassis at file height 0.5.
    ExpectVec3(entity.jointStates.at("wheel_fl").position, {0.8, 1.1, -0.3});
    ExpectVec3(Apply(entity.nodeTransforms.at("wheel_fl"), glm::dvec3(0.0)), {0.8, 0.2, -1.1});
}

TEST(BaseEntityInitNodes, ListedHullIsCopiedAndBoundsFollowIt)
{
    BaseEntity entity;
    entity.config = LoadConfig("rover.txt");
    entity.InitNodes();

    ASSERT_EQ(entity.colliders.size(), 1u);
    ConvexMeshCollider const& box = entity.colliders.at("chassis_box");
    EntityConfig::Collider const& described = entity.config->colliders.at("chassis_box");
    EXPECT_EQ(box.name, "chassis_box");
    EXPECT_EQ(box.verticesCount, 8u);
    EXPECT_EQ(box.normalsCount, 6u);
    EXPECT_EQ(box.trianglesCount, 12u);
    for (size_t i = 0; i < 8; ++i)
        EXPECT_EQ(box.vertices[i], described.vertices[i]) << "vertex " << i;
    for (size_t i = 0; i < 6; ++i)
        EXPECT_EQ(box.normals[i], described.faces_normal[i]) << "normal " << i;
    for (size_t i = 0; i < 12; ++i)
        EXPECT_EQ(box.triangles[i], described.triangles[i]) << "triangle " << i;
    ExpectMat4(box.transform, entity.config->GetAbsoluteTransform("chassis_box"));

    // The hull spans file x 2, y 1, z 0.6: in game axes x 2, y 0.6, z 1.
    ExpectVec3(box.box_min, {-1.0, -0.3, -0.5});
    ExpectVec3(box.box_max, {1.0, 0.3, 0.5});
    double const radius = 0.5 * glm::length(glm::dvec3(2.0, 0.6, 1.0));
    EXPECT_NEAR(box.radius, radius, 1e-6);

    // The chassis lifts the box to game height 0.5.
    ExpectVec3(entity.boundsMin, {-1.0, 0.2, -0.5});
    ExpectVec3(entity.boundsMax, {1.0, 0.8, 0.5});
    ExpectVec3(entity.box_size, {2.0, 0.6, 1.0});
    ExpectVec3(entity.boundsCenter, {0.0, 0.5, 0.0});
    ExpectVec3(entity.centerOfMass, {0.0, 0.5, 0.0});
    EXPECT_NEAR(entity.boundingRadius, radius, 1e-6);
}

TEST(BaseEntityInitNodes, ColliderWithoutVerticesBecomesItsBox)
{
    BaseEntity entity;
    entity.config = LoadConfig("arm.txt");
    entity.InitNodes();

    EXPECT_EQ(entity.mass, 42.0);
    ConvexMeshCollider const& base = entity.colliders.at("base");
    EXPECT_EQ(base.verticesCount, 8u);
    EXPECT_EQ(base.normalsCount, 3u);
    EXPECT_EQ(base.trianglesCount, 12u);
    // File box (-0.5 -0.5 -0.25)..(0.5 0.5 0.25) is (-0.5 -0.25 -0.5)..(0.5 0.25 0.5) in game axes.
    glm::vec3 const low(-0.5f, -0.25f, -0.5f);
    glm::vec3 const high(0.5f, 0.25f, 0.5f);
    for (int corner = 0; corner < 8; ++corner) {
        glm::vec3 const expected((corner & 4) ? high.x : low.x, (corner & 2) ? high.y : low.y,
                                 (corner & 1) ? high.z : low.z);
        EXPECT_EQ(base.vertices[corner], expected) << "corner " << corner;
    }
    EXPECT_EQ(base.normals[0], glm::vec3(1.0f, 0.0f, 0.0f));
    EXPECT_EQ(base.normals[1], glm::vec3(0.0f, 1.0f, 0.0f));
    EXPECT_EQ(base.normals[2], glm::vec3(0.0f, 0.0f, 1.0f));
    uint16_t const triangles[12][3] = {{0, 1, 2}, {1, 3, 2}, {4, 5, 6}, {5, 7, 6}, {0, 1, 4}, {1, 5, 4},
                                       {2, 3, 6}, {3, 7, 6}, {0, 2, 4}, {2, 6, 4}, {1, 3, 5}, {3, 7, 5}};
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(base.triangles[i], glm::u16vec3(triangles[i][0], triangles[i][1], triangles[i][2])) << i;
    EXPECT_EQ(base.box_min, low);
    EXPECT_EQ(base.box_max, high);
    EXPECT_NEAR(base.radius, 0.5 * glm::length(glm::dvec3(1.0, 0.5, 1.0)), 1e-6);
}

TEST(BaseEntityInitNodes, KeepsColliderSettingsAModuleMade)
{
    BaseEntity entity;
    entity.config = LoadConfig("arm.txt");
    entity.colliders["base"].friction = 0.9;
    entity.colliders["base"].enabled = false;
    entity.InitNodes();
    EXPECT_EQ(entity.colliders.at("base").friction, 0.9);
    EXPECT_FALSE(entity.colliders.at("base").enabled);
    EXPECT_EQ(entity.colliders.at("base").verticesCount, 8u);
}

// ---------------------------------------------------------------- UpdateBoundingBox

TEST(BaseEntityBounds, NoCollidersGivesZeroBoundsAndKeepsCenterOfMass)
{
    BaseEntity entity;
    entity.boundsMin = {-1.0, -1.0, -1.0};
    entity.boundsMax = {1.0, 1.0, 1.0};
    entity.box_size = {2.0, 2.0, 2.0};
    entity.boundsCenter = {5.0, 5.0, 5.0};
    entity.boundingRadius = 7.0;
    entity.centerOfMass = {1.0, 2.0, 3.0};
    entity.UpdateBoundingBox(true);
    ExpectVec3(entity.boundsMin, glm::dvec3(0.0), 0.0);
    ExpectVec3(entity.boundsMax, glm::dvec3(0.0), 0.0);
    ExpectVec3(entity.box_size, glm::dvec3(0.0), 0.0);
    ExpectVec3(entity.boundsCenter, glm::dvec3(0.0), 0.0);
    EXPECT_EQ(entity.boundingRadius, 0.0);
    ExpectVec3(entity.centerOfMass, {1.0, 2.0, 3.0}, 0.0);
}

TEST(BaseEntityBounds, GrowsOverAllCollidersAndMovesCenterOfMassOnRequest)
{
    BaseEntity entity;
    entity.colliders["a"] = BoxCollider({-1.0f, -1.0f, -1.0f}, {1.0f, 1.0f, 1.0f}, glm::dmat4(1.0));
    entity.colliders["b"] = BoxCollider({0.0f, 0.0f, 0.0f}, {1.0f, 2.0f, 1.0f},
                                        glm::translate(glm::dmat4(1.0), glm::dvec3(4.0, 0.0, 0.0)));
    entity.centerOfMass = {9.0, 9.0, 9.0};

    entity.UpdateBoundingBox(false);
    ExpectVec3(entity.boundsMin, {-1.0, -1.0, -1.0});
    ExpectVec3(entity.boundsMax, {5.0, 2.0, 1.0});
    ExpectVec3(entity.box_size, {6.0, 3.0, 2.0});
    ExpectVec3(entity.boundsCenter, {2.0, 0.5, 0.0});
    EXPECT_NEAR(entity.boundingRadius, 0.5 * glm::length(glm::dvec3(6.0, 3.0, 2.0)), 1e-12);
    ExpectVec3(entity.centerOfMass, {9.0, 9.0, 9.0}, 0.0);

    entity.UpdateBoundingBox(true);
    ExpectVec3(entity.centerOfMass, {2.0, 0.5, 0.0});
}

TEST(BaseEntityBounds, RotatedColliderCountsOnlyItsTwoStoredCorners)
{
    BaseEntity entity;
    // A unit cube turned 45 degrees about y: its true box reaches x = +-0.707 at
    // the other corners, but only (0,0,0) and (1,1,1) are placed.
    glm::dmat4 const turn = glm::rotate(glm::dmat4(1.0), glm::radians(45.0), glm::dvec3(0.0, 1.0, 0.0));
    entity.colliders["cube"] = BoxCollider({0.0f, 0.0f, 0.0f}, {1.0f, 1.0f, 1.0f}, turn);
    entity.UpdateBoundingBox(true);

    glm::dvec3 const far = Apply(turn, {1.0, 1.0, 1.0}); // (1.414, 1, 0)
    ExpectVec3(entity.boundsMin, {0.0, 0.0, 0.0});
    ExpectVec3(entity.boundsMax, far);
    EXPECT_NEAR(entity.box_size.z, 0.0, 1e-12);
    // The corner (1, 0, 0) goes to z = -0.707, outside the bounds.
    EXPECT_LT(Apply(turn, {1.0, 0.0, 0.0}).z, entity.boundsMin.z - 0.5);
}

// ---------------------------------------------------------------- Update

TEST(BaseEntityUpdate, DoesNothingWithoutDirtyOrAnimatedNodes)
{
    BaseEntity entity;
    entity.colliders["a"] = BoxCollider({-1.0f, -1.0f, -1.0f}, {1.0f, 1.0f, 1.0f}, glm::dmat4(1.0));
    entity.UpdateBoundingBox(true);
    entity.nodeTransforms["a"] = glm::translate(glm::dmat4(1.0), glm::dvec3(10.0, 0.0, 0.0));
    entity.Update(0.016);
    ExpectMat4(entity.colliders.at("a").transform, glm::dmat4(1.0));
    ExpectVec3(entity.boundsCenter, {0.0, 0.0, 0.0});
}

TEST(BaseEntityUpdate, DirtyOrAnimatedNodesMoveCollidersAndBounds)
{
    for (bool const animated : {false, true}) {
        SCOPED_TRACE(animated ? "animated" : "dirty");
        BaseEntity entity;
        glm::dmat4 const stay = glm::translate(glm::dmat4(1.0), glm::dvec3(0.0, -3.0, 0.0));
        entity.colliders["a"] = BoxCollider({-1.0f, -1.0f, -1.0f}, {1.0f, 1.0f, 1.0f}, glm::dmat4(1.0));
        entity.colliders["b"] = BoxCollider({-1.0f, -1.0f, -1.0f}, {1.0f, 1.0f, 1.0f}, stay);
        glm::dmat4 const moved = glm::translate(glm::dmat4(1.0), glm::dvec3(10.0, 0.0, 0.0));
        entity.nodeTransforms["a"] = moved; // "b" has no node and keeps its transform
        entity.nodesAnimated = animated;
        entity.nodesDirty = !animated;
        entity.Update(0.016);
        ExpectMat4(entity.colliders.at("a").transform, moved);
        ExpectMat4(entity.colliders.at("b").transform, stay);
        ExpectVec3(entity.boundsMin, {-1.0, -4.0, -1.0});
        ExpectVec3(entity.boundsMax, {11.0, 1.0, 1.0});
        ExpectVec3(entity.centerOfMass, {5.0, -1.5, 0.0});
        EXPECT_EQ(entity.nodesDirty, !animated); // clearing is the physics step's job
    }
}

// ---------------------------------------------------------------- GetTransform

TEST(BaseEntityTransform, RotatesThenTranslates)
{
    BaseEntity entity;
    entity.position = {1.0, 2.0, 3.0};
    entity.orientation = glm::angleAxis(glm::radians(90.0), glm::dvec3(0.0, 1.0, 0.0));
    glm::dmat4 const transform = entity.GetTransform();
    ExpectVec3(Apply(transform, {0.0, 0.0, 0.0}), {1.0, 2.0, 3.0});
    // A quarter turn about y takes +x to -z.
    ExpectVec3(Apply(transform, {1.0, 0.0, 0.0}), {1.0, 2.0, 2.0});
    ExpectVec3(Apply(transform, {0.0, 1.0, 0.0}), {1.0, 3.0, 3.0});
}

} // namespace

namespace {

TEST(EntityOrientation, QuaternionsAreStoredWxyzInMemory) {
    game::entity::BaseEntity entity;
    double words[4];
    static_assert(sizeof(entity.orientation) == sizeof(words));
    std::memcpy(words, &entity.orientation, sizeof(words));
    EXPECT_EQ(words[0], 1.0) << "w first";
    EXPECT_EQ(words[1], 0.0);
    glm::dquat q(0.5, 0.1, 0.2, 0.3); // w, x, y, z
    std::memcpy(words, &q, sizeof(words));
    EXPECT_EQ(words[0], 0.5);
    EXPECT_EQ(words[3], 0.3);
}

} // namespace
