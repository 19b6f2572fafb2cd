#include <gtest/gtest.h>

#include "support/TempDir.hpp"

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <glm/glm.hpp>
#include <glm/gtc/matrix_transform.hpp>

#include "game/entity/BaseEntity.hpp"
#include "game/entity/EntityConfig.hpp"
#include "game/entity/JointSolver.hpp"

using game::entity::BaseEntity;
using game::entity::EntityConfig;
using game::entity::JointSolver;
using testsupport::TempDir;
using testsupport::WriteText;

namespace {

std::shared_ptr<EntityConfig> LoadConfig(std::string const& name)
{
    auto config = std::make_shared<EntityConfig>(std::string(TESSARA_TEST_SOURCE_DIR) + "/game/entity/data/" + name);
    config->Load();
    return config;
}

/// An entity of config after InitNodes.
std::unique_ptr<BaseEntity> MakeEntity(std::shared_ptr<EntityConfig> const& config)
{
    auto entity = std::make_unique<BaseEntity>();
    entity->config = config;
    entity->InitNodes();
    return entity;
}

void ExpectMat4(glm::dmat4 const& actual, glm::dmat4 const& expected, double tolerance = 1e-9)
{
    for (int column = 0; column < 4; ++column)
        for (int row = 0; row < 4; ++row)
            EXPECT_NEAR(actual[column][row], expected[column][row], tolerance)
                << "element [" << column << "][" << row << "]";
}

glm::dmat4 Rotation(double degrees, glm::dvec3 const& axis)
{
    return glm::rotate(glm::dmat4(1.0), glm::radians(degrees), axis);
}

// ---------------------------------------------------------------- tree

TEST(JointSolverTree, IsBuiltWhenTheDescriptionIsRead)
{
    std::shared_ptr<EntityConfig> const config = LoadConfig("arm.txt");
    auto const& joints = config->jointSolver.GetJoints();
    ASSERT_EQ(joints.size(), 3u);

    // The shoulder hangs below the base collider, which is no joint: it is a root.
    JointSolver::Joint const& shoulder = joints.at("shoulder");
    EXPECT_EQ(shoulder.parent, "");
    ExpectMat4(shoulder.offset, config->GetAbsoluteTransform("shoulder"));
    EXPECT_EQ(shoulder.children, (std::vector<std::string>{"elbow"}));
    ASSERT_EQ(shoulder.nodes.size(), 1u);
    ExpectMat4(shoulder.nodes.at("upper"), glm::dmat4(config->nodes.at("upper").transform));

    // The elbow hangs on the upper collider, which hangs on the shoulder.
    JointSolver::Joint const& elbow = joints.at("elbow");
    EXPECT_EQ(elbow.parent, "shoulder");
    ExpectMat4(elbow.offset, glm::dmat4(config->nodes.at("upper").transform) *
                                 glm::dmat4(config->nodes.at("elbow").transform));
    EXPECT_TRUE(elbow.children.empty());
    EXPECT_EQ(elbow.nodes.size(), 2u);
    EXPECT_EQ(elbow.nodes.count("fore"), 1u);
    EXPECT_EQ(elbow.nodes.count("tip"), 1u);

    EXPECT_EQ(joints.at("hatch").parent, "");
    EXPECT_TRUE(joints.at("hatch").nodes.empty());
}

TEST(JointSolverTree, ReadingAFileWithoutJointsEmptiesTheTree)
{
    TempDir dir;
    std::string const path = dir.File("item.txt");
    WriteText(path, "[JOINT a]\nangular_x -10 0 10\n");
    EntityConfig config(path);
    config.Load();
    EXPECT_EQ(config.jointSolver.GetJoints().size(), 1u);
    WriteText(path, "[ENTITY]\nmass 1\n");
    config.Load();
    EXPECT_TRUE(config.jointSolver.GetJoints().empty());

    BaseEntity entity;
    entity.jointStates["a"].rotation = {5.0f, 0.0f, 0.0f};
    EXPECT_FALSE(config.jointSolver(&entity));
    EXPECT_TRUE(entity.nodeTransforms.empty());
}

TEST(JointSolverTree, JointOnAJointHangsDirectlyOnIt)
{
    TempDir dir;
    std::string const path = dir.File("item.txt");
    WriteText(path, "[JOINT lower]\nposition 0 0 1\nangular_z -90 0 90\n\n"
                    "[JOINT upper]\nparent lower\nposition 1 0 0\nrotation 0 0 15\n\n"
                    "[COLLIDER pad]\nparent upper\nposition 0 0 0.5\nbox_min -1 -1 -1\nbox_max 1 1 1\n");
    auto config = std::make_shared<EntityConfig>(path);
    config->Load();
    auto const& joints = config->jointSolver.GetJoints();
    ASSERT_EQ(joints.size(), 2u);
    EXPECT_EQ(joints.at("upper").parent, "lower");
    ExpectMat4(joints.at("upper").offset, glm::dmat4(config->joints.at("upper").transform), 0.0);
    EXPECT_EQ(joints.at("lower").children, (std::vector<std::string>{"upper"}));
    ExpectMat4(joints.at("upper").nodes.at("pad"), glm::dmat4(config->nodes.at("pad").transform), 0.0);

    std::unique_ptr<BaseEntity> const entity = MakeEntity(config);
    entity->jointStates.at("lower").rotation.z = -30.0f;
    EXPECT_TRUE(config->jointSolver(entity.get()));
    glm::dmat4 const lowerAtRest = config->GetAbsoluteTransform("lower");
    glm::dmat4 const moved = lowerAtRest * Rotation(-30.0, {0.0, 1.0, 0.0}) * glm::inverse(lowerAtRest);
    for (char const* node : {"lower", "upper", "pad"}) {
        SCOPED_TRACE(node);
        ExpectMat4(entity->nodeTransforms.at(node), moved * config->GetAbsoluteTransform(node), 1e-6);
    }
}

// ---------------------------------------------------------------- solving

TEST(JointSolverSolve, EmptyJointStatesChangeNothing)
{
    std::shared_ptr<EntityConfig> const config = LoadConfig("arm.txt");
    BaseEntity entity;
    entity.nodeTransforms["fore"] = glm::dmat4(2.0);
    EXPECT_FALSE(config->jointSolver(&entity));
    EXPECT_EQ(entity.nodeTransforms.size(), 1u);
    ExpectMat4(entity.nodeTransforms.at("fore"), glm::dmat4(2.0), 0.0);
}

TEST(JointSolverSolve, DefaultStateGivesTheTransformsOfInitNodes)
{
    for (char const* file : {"rover.txt", "arm.txt"}) {
        SCOPED_TRACE(file);
        std::shared_ptr<EntityConfig> const config = LoadConfig(file);
        std::unique_ptr<BaseEntity> const entity = MakeEntity(config);
        auto const initial = entity->nodeTransforms;
        auto const states = entity->jointStates;
        // Scramble every joint and node so that the solver has to write them all back.
        for (auto& [name, transform] : entity->nodeTransforms)
            transform = glm::dmat4(3.0);
        for (auto const& [name, transform] : initial) {
            if (config->joints.count(name) || name == "upper" || name == "fore" || name == "tip") {
                continue;
            }
            entity->nodeTransforms[name] = transform; // nodes on no joint are not the solver's
        }
        EXPECT_TRUE(config->jointSolver(entity.get()));
        ASSERT_EQ(entity->nodeTransforms.size(), initial.size());
        for (auto const& [name, transform] : initial) {
            SCOPED_TRACE(name);
            ExpectMat4(entity->nodeTransforms.at(name), transform);
        }
        for (auto const& [name, state] : states) {
            EXPECT_EQ(entity->jointStates.at(name).position, state.position) << name;
            EXPECT_EQ(entity->jointStates.at(name).rotation, state.rotation) << name;
        }
    }
}

TEST(JointSolverSolve, NodeOnNoJointKeepsItsTransform)
{
    std::shared_ptr<EntityConfig> const config = LoadConfig("arm.txt");
    std::unique_ptr<BaseEntity> const entity = MakeEntity(config);
    glm::dmat4 const marker = glm::translate(glm::dmat4(1.0), glm::dvec3(7.0, 8.0, 9.0));
    entity->nodeTransforms.at("mount") = marker;
    entity->nodeTransforms.at("base") = marker;
    entity->jointStates.at("shoulder").rotation.z = 40.0f;
    entity->jointStates.at("elbow").rotation.x = 20.0f;
    EXPECT_TRUE((*config).jointSolver(entity.get()));
    ExpectMat4(entity->nodeTransforms.at("mount"), marker, 0.0);
    ExpectMat4(entity->nodeTransforms.at("base"), marker, 0.0);
}

TEST(JointSolverSolve, WheelTurnsAboutItsAxle)
{
    std::shared_ptr<EntityConfig> const config = LoadConfig("rover.txt");
    std::unique_ptr<BaseEntity> const entity = MakeEntity(config);
    entity->jointStates.at("wheel_fl").rotation.x = 90.0f;
    EXPECT_TRUE(config->jointSolver(entity.get()));
    ExpectMat4(entity->nodeTransforms.at("wheel_fl"),
               config->GetAbsoluteTransform("wheel_fl") * Rotation(90.0, {1.0, 0.0, 0.0}), 1e-6);
    ExpectMat4(entity->nodeTransforms.at("wheel_fr"), config->GetAbsoluteTransform("wheel_fr"));
}

TEST(JointSolverSolve, ChildJointsAndTheirNodesFollowTheirParent)
{
    std::shared_ptr<EntityConfig> const config = LoadConfig("arm.txt");
    std::unique_ptr<BaseEntity> const entity = MakeEntity(config);
    entity->jointStates.at("shoulder").rotation.z = 20.0f;
    EXPECT_TRUE(config->jointSolver(entity.get()));

    // The file's z turn is a turn about the game's up axis, in the shoulder's own frame.
    glm::dmat4 const shoulderAtRest = config->GetAbsoluteTransform("shoulder");
    glm::dmat4 const moved = shoulderAtRest * Rotation(20.0, {0.0, 1.0, 0.0}) * glm::inverse(shoulderAtRest);
    ExpectMat4(entity->nodeTransforms.at("shoulder"), moved * shoulderAtRest, 1e-6);
    for (char const* node : {"upper", "elbow", "fore", "tip"}) {
        SCOPED_TRACE(node);
        ExpectMat4(entity->nodeTransforms.at(node), moved * config->GetAbsoluteTransform(node), 1e-6);
    }
    ExpectMat4(entity->nodeTransforms.at("base"), config->GetAbsoluteTransform("base"));
}

TEST(JointSolverSolve, LinearStateMovesAlongTheJointsAxis)
{
    std::shared_ptr<EntityConfig> const config = LoadConfig("arm.txt");
    std::unique_ptr<BaseEntity> const entity = MakeEntity(config);
    entity->jointStates.at("hatch").position.y = 0.25f;
    EXPECT_TRUE(config->jointSolver(entity.get()));
    // The hatch sits as if the file placed it at (1, 0.25, 0): game (1, 0, -0.25).
    ExpectMat4(entity->nodeTransforms.at("hatch"),
               glm::translate(glm::dmat4(1.0), glm::dvec3(1.0, 0.0, -0.25)), 1e-6);
}

TEST(JointSolverSolve, OutOfRangeStateIsClampedAndStored)
{
    std::shared_ptr<EntityConfig> const config = LoadConfig("rover.txt");
    std::unique_ptr<BaseEntity> const entity = MakeEntity(config);
    entity->jointStates.at("wheel_fl").rotation.x = 500.0f;
    entity->jointStates.at("wheel_fr").rotation.x = -1000.0f;
    // Axes the file does not give are fixed at the joint's own values.
    entity->jointStates.at("wheel_rl").rotation.y = 30.0f;
    entity->jointStates.at("wheel_rr").position.x = 5.0f;
    EXPECT_TRUE(config->jointSolver(entity.get()));

    EXPECT_EQ(entity->jointStates.at("wheel_fl").rotation.x, 360.0f);
    EXPECT_EQ(entity->jointStates.at("wheel_fr").rotation.x, -360.0f);
    EXPECT_EQ(entity->jointStates.at("wheel_rl").rotation.y, 0.0f);
    EXPECT_EQ(entity->jointStates.at("wheel_rr").position.x, -0.8f);
    // 360 degrees is a full turn: the wheel is where it started.
    ExpectMat4(entity->nodeTransforms.at("wheel_fl"), config->GetAbsoluteTransform("wheel_fl"), 1e-6);
    ExpectMat4(entity->nodeTransforms.at("wheel_rr"), config->GetAbsoluteTransform("wheel_rr"), 1e-6);
}

TEST(JointSolverSolve, LimitsWrittenTheWrongWayRoundStillClamp)
{
    std::shared_ptr<EntityConfig> const config = LoadConfig("arm.txt");
    ASSERT_GT(config->joints.at("elbow").angular_min.x, config->joints.at("elbow").angular_max.x);
    std::unique_ptr<BaseEntity> const entity = MakeEntity(config);

    struct Case {
        float rotation, position, clampedRotation, clampedPosition;
    };
    for (Case const& c : {Case{90.0f, 5.0f, 45.0f, 0.2f}, Case{-90.0f, -5.0f, -45.0f, -0.1f},
                          Case{10.0f, 0.05f, 10.0f, 0.05f}}) {
        entity->jointStates.at("elbow").rotation.x = c.rotation;
        entity->jointStates.at("elbow").position.z = c.position;
        EXPECT_TRUE(config->jointSolver(entity.get()));
        EXPECT_EQ(entity->jointStates.at("elbow").rotation.x, c.clampedRotation) << c.rotation;
        EXPECT_EQ(entity->jointStates.at("elbow").position.z, c.clampedPosition) << c.position;
    }
}

TEST(JointSolverSolve, JointWithoutStateRestsAtItsDefault)
{
    std::shared_ptr<EntityConfig> const config = LoadConfig("arm.txt");
    std::unique_ptr<BaseEntity> const entity = MakeEntity(config);
    entity->jointStates.erase("shoulder");
    entity->jointStates.at("elbow").rotation.x = 30.0f;
    EXPECT_TRUE(config->jointSolver(entity.get()));
    ExpectMat4(entity->nodeTransforms.at("shoulder"), config->GetAbsoluteTransform("shoulder"));
    EXPECT_EQ(entity->jointStates.count("shoulder"), 0u);
    glm::dmat4 const elbowAtRest = config->GetAbsoluteTransform("elbow");
    ExpectMat4(entity->nodeTransforms.at("fore"),
               elbowAtRest * Rotation(30.0, {1.0, 0.0, 0.0}) * glm::inverse(elbowAtRest) *
                   config->GetAbsoluteTransform("fore"),
               1e-6);
}

TEST(JointSolverSolve, UpdateThenMovesTheColliders)
{
    std::shared_ptr<EntityConfig> const config = LoadConfig("arm.txt");
    std::unique_ptr<BaseEntity> const entity = MakeEntity(config);
    entity->jointStates.at("elbow").rotation.x = 45.0f;
    entity->nodesDirty = true;
    EXPECT_TRUE(config->jointSolver(entity.get()));
    entity->Update(0.016);
    ExpectMat4(entity->colliders.at("fore").transform, entity->nodeTransforms.at("fore"), 0.0);
}

TEST(JointSolverSolve, OneSolverServesEntitiesOnManyThreads)
{
    std::shared_ptr<EntityConfig> const config = LoadConfig("arm.txt");
    constexpr int Threads = 4;
    std::vector<std::unique_ptr<BaseEntity>> entities;
    std::vector<std::unique_ptr<BaseEntity>> expected;
    for (int t = 0; t < Threads; ++t) {
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
    for (int t = 0; t < Threads; ++t) {
        threads.emplace_back([&config, entity = entities[static_cast<size_t>(t)].get()] {
            for (int i = 0; i < 200; ++i)
                config->jointSolver(entity);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (int t = 0; t < Threads; ++t) {
        SCOPED_TRACE(t);
        BaseEntity const& entity = *entities[static_cast<size_t>(t)];
        BaseEntity const& reference = *expected[static_cast<size_t>(t)];
        EXPECT_EQ(entity.jointStates.at("elbow").rotation.x, 45.0f);
        for (auto const& [name, transform] : reference.nodeTransforms)
            ExpectMat4(entity.nodeTransforms.at(name), transform, 0.0);
    }
}

} // namespace
