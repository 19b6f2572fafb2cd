// Client entities without a renderer: following the server's place, and the
// walk up the parents to the place in the environment.
#include <gtest/gtest.h>

#include "support/GlmChecks.hpp"

#include <glm/gtc/matrix_transform.hpp>

#include "game/entity/ClientSideEntity.hpp"

namespace {

using game::entity::ClientSideEntity;
using game::entity::Id;
using nerox::modular::ModuleID;
using testsupport::ExpectMatNear;

class ClientSideEntityTest : public ::testing::Test {
protected:
    void TearDown() override { ClientSideEntity::DestroyAll(); }
    static ClientSideEntity::Ptr Make(glm::dvec3 position, Id parent = {}) {
        ClientSideEntity::Ptr entity = ClientSideEntity::Spawn(Id::Generate(), ModuleID("NOPE"), "thing");
        entity->position = position;
        entity->parentEntity = parent;
        return entity;
    }
};

TEST_F(ClientSideEntityTest, InterpolationLeavesJumpsOrConverges) {
    glm::dquat const turned = glm::angleAxis(1.0, glm::dvec3(0.0, 1.0, 0.0));
    struct Case {
        char const* what;
        float rate;
        bool dynamic;
        bool enabled;
        glm::dvec3 afterOne; // position after one 1/60 s update from 0 towards (10, 0, 0)
    } const cases[] = {
        {"rate 0 leaves position to its writer", 0.0f, true, true, {0.0, 0.0, 0.0}},
        {"switched off leaves it too", 0.5f, true, false, {0.0, 0.0, 0.0}},
        {"a static entity jumps", 0.5f, false, true, {10.0, 0.0, 0.0}},
        {"a dynamic one goes half the way per 1/60 s", 0.5f, true, true, {5.0, 0.0, 0.0}},
        {"rate 1 is at once", 1.0f, true, true, {10.0, 0.0, 0.0}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.what);
        ClientSideEntity::Ptr const entity = Make(glm::dvec3(0.0));
        entity->interpolationRate = c.rate;
        entity->isDynamic = c.dynamic;
        entity->interpolationEnabled = c.enabled;
        entity->SetTarget(glm::dvec3(10.0, 0.0, 0.0), turned);
        entity->Update(1.0 / 60.0);
        EXPECT_NEAR(glm::distance(entity->position, c.afterOne), 0.0, 1e-9) << entity->position.x;
        if (c.rate == 0.0f || !c.enabled) continue;
        for (int i = 0; i < 60; ++i) entity->Update(1.0 / 60.0);
        EXPECT_NEAR(entity->position.x, 10.0, 1e-9);
        EXPECT_NEAR(std::abs(glm::dot(entity->orientation, turned)), 1.0, 1e-9);
    }
    // The share does not depend on how the time is cut: two half steps are one whole.
    ClientSideEntity::Ptr const halves = Make(glm::dvec3(0.0));
    halves->interpolationRate = 0.5f;
    halves->isDynamic = true;
    halves->SetTarget(glm::dvec3(10.0, 0.0, 0.0), glm::dquat(1.0, 0.0, 0.0, 0.0));
    halves->Update(1.0 / 120.0);
    halves->Update(1.0 / 120.0);
    EXPECT_NEAR(halves->position.x, 5.0, 1e-9);
}

TEST_F(ClientSideEntityTest, TheEnvironmentWalkGoesUpTheParentsAndStopsWhereOneIsGone) {
    ClientSideEntity::Ptr const root = Make(glm::dvec3(100.0, 0.0, 0.0));
    root->orientation = glm::angleAxis(glm::radians(90.0), glm::dvec3(0.0, 1.0, 0.0));
    ClientSideEntity::Ptr const middle = Make(glm::dvec3(0.0, 5.0, 0.0), root->id);
    ClientSideEntity::Ptr const leaf = Make(glm::dvec3(1.0, 0.0, 0.0), middle->id);
    glm::dmat4 const expected = root->GetTransform() * middle->GetTransform() * leaf->GetTransform();
    ExpectMatNear(leaf->GetAbsoluteTransformInEnvironment(), expected, 1e-12);

    bool computed = false;
    ExpectMatNear(leaf->GetAbsoluteTransformInEnvironmentCached(computed), expected, 1e-12);
    EXPECT_TRUE(computed);
    leaf->GetAbsoluteTransformInEnvironmentCached(computed);
    EXPECT_FALSE(computed) << "nothing moved: the cache holds";
    root->position.x = 200.0;
    leaf->GetAbsoluteTransformInEnvironmentCached(computed);
    EXPECT_TRUE(computed) << "an ancestor moved";

    ClientSideEntity::Destroy(middle->id);
    ExpectMatNear(leaf->GetAbsoluteTransformInEnvironment(), leaf->GetTransform(), 1e-12);
    ExpectMatNear(leaf->GetAbsoluteTransformInEnvironmentCached(computed), leaf->GetTransform(), 1e-12);

    // Parents that name each other end the walk instead of the program.
    ClientSideEntity::Ptr const a = Make(glm::dvec3(1.0, 0.0, 0.0));
    ClientSideEntity::Ptr const b = Make(glm::dvec3(0.0, 1.0, 0.0), a->id);
    a->parentEntity = b->id;
    EXPECT_TRUE(std::isfinite(a->GetAbsoluteTransformInEnvironment()[3].x));
    EXPECT_TRUE(std::isfinite(a->GetAbsoluteTransformInEnvironmentCached(computed)[3].x));
}

} // namespace
