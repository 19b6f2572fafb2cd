// The scene tables: renderable instances with their geometries and material
// records, and lights with their reach and bounds, on the software device.
#include "GameRendererFixture.hpp"

#include "game/graphics/LightSourceInstance.hpp"
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

} // namespace
} // namespace rendertest
