// The scene tables: renderable instances with their geometries and material
// records, and lights with their reach and bounds, on the software device.
#include "GameRendererFixture.hpp"

#include "game/entity/ClientSideEntity.hpp"
#include "game/graphics/LightSourceInstance.hpp"
#include "game/graphics/PlasmaTrail.hpp"
#include "game/physics/EnvironmentInfo.hpp"
#include "nerox/graphics/ComputeTexture.hpp"
#include "game/graphics/RenderableInstance.hpp"

namespace rendertest {
namespace {

using namespace game::graphics;

class SceneTablesTest : public GameRendererTest {
protected:
    void SetUp() override {
        GameRendererTest::SetUp();
        Make();
    }
};

TEST_F(SceneTablesTest, TrianglesTakeSixteenBitIndicesWheneverTheyReachEveryVertex) {
    struct Case {
        unsigned vertices, indices;
        uint32_t mode;
    } const cases[] = {{65536, 3, 2}, {65537, 3, 3}, {0, 3, 3}, {8, 0, 1}, {1, 6, 2}};
    for (Case const& c : cases) {
        TriangleGeometry const g(c.vertices, c.indices);
        EXPECT_EQ(std::tuple(g.indexMode, g.GetPrimitiveCount(), g.GetIndexCount(), g.GetIndexStride(),
                             g.GetPrimitiveStride()),
                  std::tuple(c.mode, uint64_t{c.vertices}, uint64_t{c.mode == 1 ? 0 : c.indices},
                             uint64_t{c.mode == 2       ? 2u
                                          : c.mode == 3 ? 4u
                                                        : 0u},
                             uint64_t{12}))
            << c.vertices << " " << c.indices;
        EXPECT_EQ(g.GetIndicesAddr() != 0, c.mode != 1);
        EXPECT_EQ(g.GetPrimitivesAddr() != 0, c.vertices != 0);
    }
    AabbData boxes[2] = {{{0, 0, 0}, {1, 1, 1}, 7}, {{-1, -1, -1}, {0, 0, 0}, 0}};
    AabbGeometry const copied(boxes, 2);
    EXPECT_EQ(std::tuple(copied.GetPrimitiveCount(), copied.GetPrimitiveStride(), (*copied.buffer)[0].data),
              std::tuple(2u, 32u, 7u));
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(AabbGeometry(boxes, 0), "voxelCount > 0");
}

TEST_F(SceneTablesTest, InstancesTakeTheFirstFreeSlotShareGeometriesInCopiesAndWriteTheirMaterials) {
    auto a = RenderableInstance::Make<RenderableInstance>(), b = RenderableInstance::Make<RenderableInstance>();
    EXPECT_FALSE(a->SetEmission("paint", glm::vec3(1))) << "no records yet";
    auto const triangle = std::make_shared<TriangleGeometry>(3, 0);
    triangle->baseColor = glm::vec4(0.5f), triangle->roughness = 0.25f;
    a->SetGeometries({triangle, std::make_shared<AabbGeometry>(1u)}, {"paint"});
    EXPECT_TRUE(a->geometryChanged && a->primaryGeometry == triangle.get() && a->renderableDataAddress != 0);
    RenderableData const& record = (*a->renderableData)[0];
    EXPECT_EQ(std::tuple(record.color, record.roughness), std::tuple(glm::vec4(0.5f), 0.25f)) << "from the geometry";
    EXPECT_TRUE(a->SetColor("paint", glm::vec4(1, 0, 0, 1), 0.5f) && a->SetEmission("paint", glm::vec3(2)) &&
                a->SetPbrMetallicRoughness("paint", 0.1f, 0.2f, 0.3f) &&
                a->SetMonitorTexture("paint", 5, glm::vec3(3)));
    EXPECT_EQ(std::tuple(record.color, record.colorMix, record.emission, record.metallic, record.pbrThird,
                         record.monitorIndex),
              std::tuple(glm::vec4(1, 0, 0, 1), 0.5f, glm::vec3(3), 0.1f, 0.3f, 5u));
    EXPECT_FALSE(a->SetColor("glass", glm::vec4(1), 0.0f)) << "an unknown material";
    auto const copy = RenderableInstance::Make<RenderableInstance>(a, glm::dmat4(2.0));
    EXPECT_TRUE(copy->geometries == a->geometries && !copy->renderableData && copy->materials.empty() &&
                copy->firstUpdate && copy->primaryGeometry == triangle.get());
    EXPECT_EQ(std::tuple(a->sharedObjectsIndex, b->sharedObjectsIndex, copy->sharedObjectsIndex),
              std::tuple(0u, 1u, 2u));
    b.reset();
    EXPECT_EQ(RenderableInstance::Make<RenderableInstance>()->sharedObjectsIndex, 1u) << "a dead one's slot is reused";
    renderer->Cleanup();
    EXPECT_TRUE(RenderableInstance::_sharedObjects.empty());
}

TEST_F(SceneTablesTest, LightsReachWherePowerFallsToAHundredthAndTheirBoundsLeanWithASpot) {
    LightSourceInstance point(glm::vec3(1, 2, 3), -0.5f, glm::vec3(0), 0.0f, glm::vec3(1), 0.01f);
    LightSourceInstanceData const& p = (*point.data)[0];
    EXPECT_EQ(std::tuple(point.active, point.radius, p.radius, p.range, p.aabb[0], p.aabb[5]),
              std::tuple(true, 0.5f, -0.5f, 0.5f, 0.5f, 3.5f))
        << "power 0.01 reaches nothing past the radius";
    point.aabbChanged = false;
    point.SetPower(0.01f, glm::vec3(0, 1, 0), 0.0f);
    EXPECT_EQ(std::tuple(point.aabbChanged, p.color), std::tuple(false, glm::vec3(0, 1, 0)))
        << "the same power: colour only";
    point.SetPower(0.0f, glm::vec3(1), 0.0f);
    EXPECT_EQ(std::tuple(point.active, p.range), std::tuple(false, 0.5f)) << "off keeps the record";
    point.SetPower(1.0f, glm::vec3(1), 0.0f);
    EXPECT_FLOAT_EQ(p.range, std::sqrt(99.0f / 12.566371f) + 0.5f);
    auto const spot = LightSourceInstance::Make(glm::vec3(0), 0.0f, glm::vec3(0, 0, -1), 0.5f, glm::vec3(1), 1.0f);
    LightSourceInstanceData const& s = (*spot->data)[0];
    EXPECT_EQ(std::tuple(s.range, s.spread), std::tuple(std::sqrt(99.0f), 0.5f));
    EXPECT_EQ(std::tuple(s.aabb[2], s.aabb[5]), std::tuple(-2.0f * s.range, 0.0f)) << "the box leans towards -z";
    LightSourceInstance const dark(glm::vec3(4), 1.0f, glm::vec3(0), 0.0f, glm::vec3(1), 0.0f);
    EXPECT_FALSE(dark.active);
    EXPECT_EQ(std::vector<float>((*dark.data)[0].aabb, (*dark.data)[0].aabb + 6), std::vector<float>(6, 0.0f));
}

TEST_F(SceneTablesTest, APlasmaTrailGlowsOnlyInAGasAtSpeedWithClampedIntensitiesAndOneNoiseFieldForLife) {
    auto trail = RenderableInstance::Make<PlasmaTrail>();
    EXPECT_EQ(std::tuple(trail->rayMask, trail->hitShader, trail->geometries.size()),
              std::tuple(uint8_t(4), renderer->plasmaHitShader, size_t(1)));
    AabbData const& box = (*static_cast<AabbGeometry&>(*trail->geometries[0]).buffer)[0];
    EXPECT_EQ(box.data, static_cast<uint64_t>(*trail->plasmaData)) << "the box carries its record's address";
    PlasmaData const& record = (*trail->plasmaData)[0];

    constexpr double air = 1.225, thinAir = 1e-6, gas = 1.5e-5, liquid = 0.001;
    struct Case {
        glm::vec3 velocity;
        double density, viscosity;
        bool visible;
        float heatIntensity, speedIntensity, t; // t: the colour's share of the fast end
    };
    Case const cases[] = {
        {{0, 0, 0}, air, gas, false},
        {{0, 0, 0}, 1000.0, gas, false},                                 // still, in anything
        {{0, -2000, 0}, 1000.0, liquid, false},                          // water: no plasma however fast
        {{9, 0, 0}, air, gas, false},                                    // speed 0.0094
        {{0, 0, -10}, air, gas, true, 0.000245f, 6.2486f, 0.010414f},    // speed 0.0104
        {{3000, 0, 4000}, air, gas, true, 61.25f, 2500.0f, 1.0f},        // 5 km/s: speed past 1
        {{0, -20000, 0}, air, gas, true, 500.0f, 2500.0f, 1.0f},         // heat 4.9 stops at 500
        {{0, -1e4f, 0}, thinAir, gas, true, 0.0002f, 378.57f, 0.63096f}, // high up: speed 0.631
    };
    unsigned int textureIndex = 0;
    for (Case const& c : cases) {
        game::physics::EnvironmentInfo environment;
        environment.density = c.density;
        environment.viscosity = c.viscosity;
        trail->Update(c.velocity, 0.5f, environment);
        SCOPED_TRACE(testing::Message() << c.velocity.x << ", " << c.velocity.y << ", " << c.velocity.z);
        EXPECT_EQ(trail->visible, c.visible);
        EXPECT_EQ(std::tuple(trail->lastSpeed, trail->lastSize), std::tuple(c.velocity, 0.5f));
        if (!c.visible) continue;
        EXPECT_NEAR(record.heatIntensity, c.heatIntensity, c.heatIntensity * 1e-3 + 1e-4);
        EXPECT_NEAR(record.speedIntensity, c.speedIntensity, c.speedIntensity * 2e-3);
        glm::vec3 const color = glm::mix(glm::vec3(0.5f), glm::vec3(1.0f, 0.25f, 0.05f), c.t);
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(record.color[i], color[i], 1e-3);
        EXPECT_EQ(std::tuple(box.minimum, box.maximum, record.length, record.width),
                  std::tuple(glm::vec3(-0.5f, 0, -0.5f), glm::vec3(0.5f, 8.0f, 0.5f), 8.0f, 0.5f));
        // The noise field comes with the first glow and stays.
        ASSERT_TRUE(trail->computeTexture);
        if (textureIndex == 0) textureIndex = record.textureIndex;
        EXPECT_EQ(record.textureIndex, textureIndex);
        EXPECT_EQ(renderer->GetTexture(textureIndex), trail->computeTexture);
    }
    EXPECT_NE(textureIndex, 0u) << "entry 0 is the font atlas";
    EXPECT_EQ(trail->computeTexture->Name(), "ComputeTexture [256x256]");

    // What frames may read goes to the trash, not away.
    std::weak_ptr<nerox::graphics::ComputeTexture> const texture = trail->computeTexture;
    std::weak_ptr<GeometryInterface> const geometry = trail->geometries[0];
    renderer->ClearTextures();
    trail.reset();
    EXPECT_FALSE(texture.expired() || geometry.expired());
    renderer->CollectAllTrash();
    EXPECT_TRUE(texture.expired() && geometry.expired());
}

TEST_F(SceneTablesTest, AClientEntityKeepsATrailBehindItWhileItMovesFastThroughAGasNearTheCamera) {
    using game::entity::ClientSideEntity;
    bool water = false;
    Game::_environmentFunctions[7] = [&water](glm::dvec3 const&, game::EnvironmentInfoFlags, double) {
        game::physics::EnvironmentInfo medium;
        medium.density = water ? 1000.0 : 1.225;
        medium.viscosity = water ? 0.001 : 1.5e-5;
        return medium;
    };
    auto entity = ClientSideEntity::Spawn(game::entity::Id::Generate(), nerox::modular::ModuleID("TEST"), "probe");
    entity->isDynamic = true;
    entity->interpolationEnabled = false;
    entity->boundingRadius = 0.5;
    auto trail = [&] {
        return std::dynamic_pointer_cast<PlasmaTrail>(entity->FindRenderable(ClientSideEntity::PlasmaTrailNode));
    };
    struct Step {
        game::entity::EnvironmentId environment;
        glm::dvec3 position, velocity;
        bool inWater, shown;
    } const steps[] = {
        {0, {0, 50, 0}, {0, -500, 0}, false, false},  // the player's environment unknown: none made
        {7, {0, 50, 0}, {0, -500, 0}, false, true},   // made, behind the motion
        {7, {0, 150, 0}, {0, -500, 0}, false, false}, // too far from the camera
        {7, {30, 0, 0}, {0.5, 0, 0}, false, false},   // slow
        {7, {30, 0, 0}, {-300, 0, 0}, true, false},   // in water
        {7, {30, 0, 0}, {-300, 0, 0}, false, true},
    };
    for (Step const& step : steps) {
        SCOPED_TRACE(testing::Message() << step.position.y << ", " << step.velocity.x << ", " << step.velocity.y);
        Game::parentEnvironmentId = step.environment;
        water = step.inWater;
        entity->position = step.position;
        entity->linearVelocity = step.velocity;
        ClientSideEntity::PhysicsUpdate(1.0 / 60.0);
        ASSERT_EQ(trail() != nullptr, step.environment != 0);
        if (!trail()) continue;
        EXPECT_EQ(trail()->visible, step.shown);
        if (!step.shown) continue;
        glm::dmat4 const& placed = trail()->transform;
        glm::dvec3 const back = -glm::normalize(step.velocity);
        EXPECT_LT(glm::distance(glm::dvec3(placed[1]), back), 1e-12) << "+y points away from the motion";
        EXPECT_LT(std::abs(glm::determinant(glm::dmat3(placed)) - 1.0), 1e-12) << "a rotation";
        EXPECT_EQ(glm::dvec3(placed[3]), step.position);
        EXPECT_EQ((*trail()->plasmaData)[0].width, 0.5f) << "as wide as the entity";
    }
    std::weak_ptr<PlasmaTrail> const kept = trail();
    entity->InitMeshRenderables(nullptr);
    EXPECT_EQ(trail(), kept.lock()) << "a new mesh keeps the trail";
    ClientSideEntity::DestroyAll();
    entity.reset();
    EXPECT_TRUE(kept.expired());
    Game::_environmentFunctions.clear();
    Game::parentEnvironmentId = 0;
}

} // namespace
} // namespace rendertest
