// The world view on the software device: small scenes built in the test,
// rendered offscreen, checked by the pixels of the frame.
#include "game/graphics/GameRendererFixture.hpp"

#include "game/entity/ConvexMeshCollider.hpp"
#include "game/graphics/LightSourceInstance.hpp"
#include "game/physics/DebugRecords.hpp"
#include "game/graphics/Mesh.hpp"
#include "game/graphics/PlasmaTrail.hpp"
#include "game/physics/EnvironmentInfo.hpp"
#include "nerox/graphics/ComputeTexture.hpp"
#include "nerox/graphics/DynamicAsyncTexture.hpp"
#include "game/graphics/RenderableInstance.hpp"
#include "nerox/graphics/Texture.hpp"

#include <glm/gtc/matrix_transform.hpp>

#include <algorithm>
#include <fstream>
#include <vector>

namespace rendertest {
namespace {

using game::graphics::AabbData;
using game::graphics::AabbGeometry;
using game::graphics::LightSourceInstance;
using game::graphics::RenderableInstance;
using game::graphics::TriangleGeometry;

constexpr int Width = 64;
constexpr int Height = 48;

struct Pixel {
    int r, g, b;
    int Sum() const { return r + g + b; }
};

std::ostream& operator<<(std::ostream& out, Pixel const& p) {
    return out << '(' << p.r << ", " << p.g << ", " << p.b << ')';
}

// Which channel of a pixel dominates: 'r', 'g' or 'b', or '-' for dark or grey.
char Hue(Pixel const& p) {
    if (p.Sum() < 30) return '-';
    if (p.r > 2 * p.g && p.r > 2 * p.b) return 'r';
    if (p.g > 2 * p.r && p.g > 2 * p.b) return 'g';
    if (p.b > 2 * p.r && p.b > 2 * p.g) return 'b';
    return '-';
}

class WorldViewTest : public GameRendererTest {
protected:
    void SetUp() override {
        GameRendererTest::SetUp();
        window = std::make_unique<nerox::graphics::HeadlessWindow>(Width, Height);
        LoadSortedInto({"render"}, "TESSARA_view");
        Make();
        // A black world: no sun, no sky; the camera at the origin looking down -z.
        renderer->sunDirection = glm::dvec3(0.0);
        renderer->skyColor = renderer->horizonColor = renderer->groundColor = glm::vec3(0.0f);
        renderer->viewMatrix = glm::dmat4(1.0);
        Game::settings->fov = 90.0f;
        renderer->StartRendering();
    }

    void SunBehindCamera() { // straight onto faces that look at the camera
        renderer->sunDirection = glm::dvec3(0.0, 0.0, 1.0);
        renderer->sunColor = glm::vec3(1.0f);
    }

    // One box of colour (lit by the sun or glowing by itself) from lo to hi.
    std::shared_ptr<RenderableInstance> Box(glm::vec3 lo, glm::vec3 hi, glm::vec4 color) {
        AabbData data{lo, hi, 0};
        auto instance = RenderableInstance::Make<RenderableInstance>();
        instance->SetGeometries({std::make_shared<AabbGeometry>(&data, 1)}, {"box"});
        EXPECT_TRUE(instance->SetColor("box", color, 1.0f));
        return instance;
    }

    // A square at depth z (camera space), side 2 * half, of quads given as 4 corners.
    std::shared_ptr<RenderableInstance> Wall(float z, float half, glm::vec4 color) {
        auto geometry = std::make_shared<TriangleGeometry>(4, 6);
        auto& v = *geometry->vertexBuffer;
        v[0] = {-half, -half, z}, v[1] = {half, -half, z}, v[2] = {half, half, z}, v[3] = {-half, half, z};
        uint16_t const indices[] = {0, 1, 2, 0, 2, 3};
        for (int i = 0; i < 6; ++i) (*geometry->indexBuffer16)[i] = indices[i];
        auto instance = RenderableInstance::Make<RenderableInstance>();
        instance->SetGeometries({geometry}, {"wall"});
        instance->SetColor("wall", color, 1.0f);
        return instance;
    }

    // Renders a frame and reads it back; the device is idle afterwards, so the
    // test may drop what the frame drew.
    std::vector<Pixel> Shoot() {
        renderer->Frame();
        renderer->GetDevice().WaitIdle();
        std::string const path = scratch.File("frame.png");
        EXPECT_TRUE(renderer->SaveImage(renderer->GetOutputVkImage(), {0, 0}, renderer->GetOutputImageExtent(),
                                        renderer->GetOutputImageFormat(), VK_IMAGE_LAYOUT_GENERAL, path, 95, true));
        nerox::graphics::ImageData const image = nerox::graphics::Texture::LoadFile(path, 4);
        std::vector<Pixel> pixels;
        for (size_t i = 0; i + 3 < image.pixels.size(); i += 4)
            pixels.push_back({image.pixels[i], image.pixels[i + 1], image.pixels[i + 2]});
        EXPECT_EQ(pixels.size(), static_cast<size_t>(Width * Height));
        pixels.resize(Width * Height);
        return pixels;
    }
    static Pixel At(std::vector<Pixel> const& frame, int x, int y) { return frame[y * Width + x]; }
    // The pixel where a world point shows, through the camera of the last frame.
    Pixel At(std::vector<Pixel> const& frame, glm::dvec3 world) const {
        glm::dvec4 const clip = renderer->projectionMatrix * renderer->viewMatrix * glm::dvec4(world, 1.0);
        int const x = static_cast<int>((clip.x / clip.w * 0.5 + 0.5) * Width);
        int const y = static_cast<int>((clip.y / clip.w * 0.5 + 0.5) * Height);
        EXPECT_TRUE(x >= 0 && x < Width && y >= 0 && y < Height) << "off the frame: " << x << ", " << y;
        return At(frame, std::clamp(x, 0, Width - 1), std::clamp(y, 0, Height - 1));
    }
    static Pixel Centre(std::vector<Pixel> const& frame) { return At(frame, Width / 2, Height / 2); }
};

TEST_F(WorldViewTest, ABoxInFrontShowsItsColourAndNothingElseIsDrawn) {
    SunBehindCamera();
    for (auto [color, hue] : {std::pair{glm::vec4(1, 0, 0, 1), 'r'}, {{0, 1, 0, 1}, 'g'}, {{0, 0, 1, 1}, 'b'}}) {
        auto box = Box({-0.5f, -0.5f, -3.5f}, {0.5f, 0.5f, -2.5f}, color);
        std::vector<Pixel> const frame = Shoot();
        EXPECT_EQ(Hue(Centre(frame)), hue) << Centre(frame);
        EXPECT_EQ(At(frame, 1, 1).Sum(), 0) << "the corner shows the black sky";
    }
}

TEST_F(WorldViewTest, ANearerBoxHidesAFartherOneWhicheverIsEnteredFirst) {
    SunBehindCamera();
    for (bool nearFirst : {false, true}) {
        std::shared_ptr<RenderableInstance> near, far;
        auto makeNear = [&] { near = Box({-0.5f, -0.5f, -3.5f}, {0.5f, 0.5f, -2.5f}, {1, 0, 0, 1}); };
        auto makeFar = [&] { far = Box({-3.0f, -3.0f, -9.0f}, {3.0f, 3.0f, -8.0f}, {0, 1, 0, 1}); };
        if (nearFirst)
            makeNear(), makeFar();
        else
            makeFar(), makeNear();
        std::vector<Pixel> const frame = Shoot();
        EXPECT_EQ(Hue(Centre(frame)), 'r') << "near entered first: " << nearFirst;
        EXPECT_EQ(Hue(At(frame, glm::dvec3(2.0, 0.0, -8.0))), 'g') << "the far box around the near one";
    }
}

TEST_F(WorldViewTest, ColourAndEmissionChangesShowInTheNextFrame) {
    SunBehindCamera();
    auto box = Box({-0.5f, -0.5f, -3.5f}, {0.5f, 0.5f, -2.5f}, {1, 0, 0, 1});
    EXPECT_EQ(Hue(Centre(Shoot())), 'r');
    box->SetColor("box", {0, 0, 1, 1}, 1.0f);
    EXPECT_EQ(Hue(Centre(Shoot())), 'b');
    // In the dark a black box shows only what it emits.
    renderer->sunDirection = glm::dvec3(0.0);
    box->SetColor("box", {0, 0, 0, 1}, 1.0f);
    EXPECT_EQ(Centre(Shoot()).Sum(), 0);
    box->SetEmission("box", {0, 1, 0});
    EXPECT_EQ(Hue(Centre(Shoot())), 'g');
}

TEST_F(WorldViewTest, LightsBrightenWhatFacesThemWithinTheirReachAndCone) {
    // A grey wall 5 m ahead in the dark, and one light 1 m in front of it.
    auto wall = Wall(-5.0f, 10.0f, {1, 1, 1, 1});
    EXPECT_EQ(Centre(Shoot()).Sum(), 0) << "unlit";
    struct Case {
        char const* name;
        float spread;      // 0: all around
        glm::vec3 towards; // the spot's axis
        float power;
    } const cases[] = {
        {"omni", 0.0f, {0, 0, -1}, 2.0f}, // reaches 4 m
        {"spot", 0.3f, {0, 0, -1}, 2.0f}, // a cone of 25 degrees about its axis
    };
    for (Case const& c : cases) {
        auto light = LightSourceInstance::Make(glm::vec3(0.0f, 0.0f, -4.0f), 0.0f, c.towards, c.spread, glm::vec3(1.0f),
                                               c.power);
        std::vector<Pixel> const frame = Shoot();
        Pixel const under = Centre(frame);
        Pixel const aside = At(frame, glm::dvec3(1.0, 0.0, -5.0)); // 1 m off the axis on the wall
        Pixel const far = At(frame, glm::dvec3(4.5, 0.0, -5.0));   // past the reach
        EXPECT_GT(under.Sum(), 150) << c.name << " " << under;
        EXPECT_EQ(far.Sum(), 0) << c.name << " " << far;
        if (c.spread == 0.0f)
            EXPECT_GT(aside.Sum(), 30) << c.name << " lights around it " << aside;
        else
            EXPECT_EQ(aside.Sum(), 0) << c.name << " lights only its cone " << aside;
        // Turned off, it is gone from the next frame.
        light->SetPower(0.0f, glm::vec3(1.0f), 0.0f);
        EXPECT_EQ(Centre(Shoot()).Sum(), 0) << c.name;
    }
}

TEST_F(WorldViewTest, AnInstanceWhoseLastPointerIsGoneDisappearsAndItsSlotIsReused) {
    SunBehindCamera();
    auto first = Box({-0.5f, -0.5f, -3.5f}, {0.5f, 0.5f, -2.5f}, {1, 0, 0, 1});
    auto second = Box({1.0f, -0.5f, -3.5f}, {2.0f, 0.5f, -2.5f}, {0, 1, 0, 1});
    EXPECT_EQ(Hue(Centre(Shoot())), 'r');
    uint64_t const slot = first->sharedObjectsIndex;
    first.reset();
    std::vector<Pixel> const frame = Shoot();
    EXPECT_EQ(Centre(frame).Sum(), 0);
    EXPECT_EQ(Hue(At(frame, glm::dvec3(1.5, 0.0, -2.5))), 'g') << "the other stays";
    auto third = Box({-0.5f, -0.5f, -3.5f}, {0.5f, 0.5f, -2.5f}, {0, 0, 1, 1});
    EXPECT_EQ(third->sharedObjectsIndex, slot);
    EXPECT_EQ(Hue(Centre(Shoot())), 'b');
}

TEST_F(WorldViewTest, EachIndexModeDrawsTheSameSquareAndBadIndicesDrawNothing) {
    SunBehindCamera();
    uint32_t const quad[] = {0, 1, 2, 0, 2, 3};
    struct Case {
        char const* name;
        unsigned vertices, indices;
        uint32_t mode;
        uint32_t badIndex; // written over the last index when not 0
    } const cases[] = {
        {"16-bit", 4, 6, 2, 0},
        {"32-bit", 70000, 6, 3, 0},
        {"none", 6, 0, 1, 0},
        {"16-bit past the vertices", 4, 6, 2, 4},
        {"16-bit far past", 4, 6, 2, 65535},
        {"32-bit past the vertices", 70000, 6, 3, 70000},
    };
    for (Case const& c : cases) {
        auto geometry = std::make_shared<TriangleGeometry>(c.vertices, c.indices);
        ASSERT_EQ(geometry->indexMode, c.mode) << c.name;
        glm::vec3 const corners[] = {{-1, -1, -3}, {1, -1, -3}, {1, 1, -3}, {-1, 1, -3}};
        auto& v = *geometry->vertexBuffer;
        for (int i = 0; i < 6; ++i) {
            glm::vec3 const p = corners[c.indices ? i % 4 : quad[i]];
            v[c.indices ? i % 4 : i] = {p.x, p.y, p.z};
        }
        for (unsigned i = 0; i < c.indices; ++i) {
            uint32_t const index = (i == 5 && c.badIndex) ? c.badIndex : quad[i];
            if (c.mode == 2) (*geometry->indexBuffer16)[i] = static_cast<uint16_t>(index);
            if (c.mode == 3) (*geometry->indexBuffer32)[i] = index;
        }
        auto instance = RenderableInstance::Make<RenderableInstance>();
        instance->SetGeometries({geometry}, {"m"});
        instance->SetColor("m", {1, 0, 0, 1}, 1.0f);
        std::vector<Pixel> const frame = Shoot();
        // The quad's two triangles: the lower right one (0, 1, 2) always, the
        // upper left one (0, 2, 3) only when its last index names a vertex.
        EXPECT_EQ(Hue(At(frame, Width / 2 + 6, Height / 2 + 6)), 'r') << c.name;
        EXPECT_EQ(Hue(At(frame, Width / 2 - 6, Height / 2 - 6)), c.badIndex ? '-' : 'r') << c.name;
    }
}

TEST_F(WorldViewTest, AScreenShowsItsTextureTimesItsEmissionAndWithoutOneItsEmission) {
    // Two pixels, red and green, on a wall with texture coordinates, as a
    // monitor's image reaches the texture table.
    auto screen = std::make_shared<nerox::graphics::DynamicAsyncTexture>(
        renderer.get(), 2, 1, [this](std::shared_ptr<nerox::graphics::Texture> t) { renderer->SchedulePush(t); });
    uint32_t const image[] = {0xFF0000FF, 0xFF00FF00};
    ASSERT_TRUE(screen->Load(image, sizeof image));
    uint32_t const index = renderer->AddTexture(nerox::graphics::TextureRef(screen));
    auto wall = Wall(-3.0f, 1.0f, {0, 0, 0, 1});
    nerox::vk::MappedBuffer<glm::vec2> uv(renderer->GetDevice(), 4, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT, "uv");
    uv[0] = {0, 1}, uv[1] = {1, 1}, uv[2] = {1, 0}, uv[3] = {0, 0};
    wall->geometries[0]->texCoord0Addr = static_cast<uint64_t>(uv);
    ASSERT_TRUE(wall->SetMonitorTexture("wall", index, glm::vec3(1.0f)));
    std::vector<Pixel> frame = Shoot();
    EXPECT_EQ(Hue(At(frame, Width / 2 - 4, Height / 2)), 'r') << At(frame, Width / 2 - 4, Height / 2);
    EXPECT_EQ(Hue(At(frame, Width / 2 + 4, Height / 2)), 'g') << At(frame, Width / 2 + 4, Height / 2);
    // The crosshair is on the screen's middle: the aim names the screen and the place on it.
    for (uint32_t i = 0; i < nerox::graphics::VulkanRenderer::FramesInFlight; ++i) Shoot();
    game::graphics::AimBuffer const aim = renderer->aim.Buffer();
    EXPECT_EQ(aim.monitorID, index);
    EXPECT_NEAR(aim.monitorX, 0.5, 0.05);
    EXPECT_NEAR(aim.monitorY, 0.5, 0.05);
    EXPECT_EQ(Game::currentMonitorID, index);
    ASSERT_TRUE(wall->SetMonitorTexture("wall", 0, glm::vec3(1.0f)));
    frame = Shoot();
    EXPECT_GT(std::min({At(frame, Width / 2 - 4, Height / 2).r, At(frame, Width / 2 + 4, Height / 2).g}), 200);
}

TEST_F(WorldViewTest, FarFromTheOriginTheCameraStillSeesWhatIsBeforeIt) {
    SunBehindCamera();
    glm::dvec3 const place(4.0e7, -3.0e6, 1.5e7); // about the size of a planet away
    renderer->cameraPosition = place;
    renderer->viewMatrix = glm::translate(glm::dmat4(1.0), -place);
    auto box = Box({-0.2f, -0.2f, -3.2f}, {0.2f, 0.2f, -2.8f}, {1, 0, 0, 1}); // 40 cm across
    box->transform = glm::translate(glm::dmat4(1.0), place);
    std::vector<Pixel> const frame = Shoot();
    EXPECT_EQ(Hue(Centre(frame)), 'r');
    EXPECT_EQ(At(frame, Width / 2 + 8, Height / 2).Sum(), 0) << "and no larger than it is";
}

TEST_F(WorldViewTest, AMeshReloadedInPlaceShowsItsNewGeometry) {
    SunBehindCamera();
    // A one-triangle glTF file; its triangle on the left, then on the right.
    auto write = [this](float x) {
        float const positions[] = {x - 0.5f, -0.5f, -3.0f, x + 0.5f, -0.5f, -3.0f, x, 0.5f, -3.0f};
        std::ofstream(scratch.File("tri.bin"), std::ios::binary)
            .write(reinterpret_cast<char const*>(positions), sizeof positions);
        std::ofstream(scratch.File("tri.gltf"))
            << R"({"asset":{"version":"2.0"},"nodes":[{"name":"tri","mesh":0}],)"
            << R"("meshes":[{"primitives":[{"attributes":{"POSITION":0},"material":0}]}],)"
            << R"("materials":[{"name":"paint","pbrMetallicRoughness":{"baseColorFactor":[0,1,0,1]}}],)"
            << R"("accessors":[{"bufferView":0,"componentType":5126,"count":3,"type":"VEC3"}],)"
            << R"("bufferViews":[{"buffer":0,"byteOffset":0,"byteLength":36}],)"
            << R"("buffers":[{"uri":"tri.bin","byteLength":36}]})";
    };
    write(-0.8f);
    game::graphics::Mesh mesh(scratch.File("tri.gltf"));
    auto instance = mesh.MakeInstance("tri");
    std::vector<Pixel> frame = Shoot();
    EXPECT_EQ(Hue(At(frame, glm::dvec3(-0.8, -0.2, -3.0))), 'g');
    EXPECT_EQ(At(frame, glm::dvec3(0.8, -0.2, -3.0)).Sum(), 0);
    write(0.8f);
    mesh.Load(scratch.File("tri.gltf"));
    instance->SetGeometries({mesh["tri"].begin(), mesh["tri"].end()}, {"paint"});
    frame = Shoot();
    EXPECT_EQ(At(frame, glm::dvec3(-0.8, -0.2, -3.0)).Sum(), 0);
    EXPECT_EQ(Hue(At(frame, glm::dvec3(0.8, -0.2, -3.0))), 'g');
    EXPECT_THROW(mesh.MakeInstance("nothing"), std::runtime_error);
}

// The object under the crosshair comes back FramesInFlight frames after the
// frame that drew it, without waiting for the device.
TEST_F(WorldViewTest, LookingAtABoxGivesItsAimReferenceFramesLaterAndTheSkyNone) {
    auto box = Box({-0.5f, -0.5f, -3.5f}, {0.5f, 0.5f, -2.5f}, {1, 0, 0, 1});
    uint32_t const id = renderer->AddAimReference("TESTS_crate", std::string("crate"));
    EXPECT_EQ(id, 1u); // 0 stands for nothing
    box->SetAimID(id);
    auto sees = [this](GameRenderer::Aim const& aim) {
        GameRenderer::AimReference const reference = aim.Reference();
        return reference.module == nerox::modular::ModuleID("TESTS_crate") &&
            std::any_cast<std::string>(reference.data) == "crate";
    };
    uint32_t const late = nerox::graphics::VulkanRenderer::FramesInFlight;
    for (uint32_t frame = 0; frame < late; ++frame) {
        Shoot();
        EXPECT_EQ(renderer->aim.Buffer().aimID, 0u) << "frame " << frame << " came back early";
    }
    Shoot();
    EXPECT_TRUE(sees(renderer->aim));
    EXPECT_NEAR(renderer->aim.Buffer().distance, 2.5, 1e-3) << "to the face towards the camera";
    renderer->viewMatrix = glm::rotate(glm::dmat4(1.0), glm::radians(180.0), glm::dvec3(0, 1, 0)); // the sky
    for (uint32_t frame = 0; frame <= late; ++frame) Shoot();
    EXPECT_EQ(renderer->aim.Buffer().aimID, 0u);
    EXPECT_TRUE(!renderer->aim.Reference().module.vendor && std::any_cast<int>(renderer->aim.Reference().data) == 0);
    EXPECT_TRUE(sees(renderer->aimPrevious));
    // A unit sphere 10 m away at 90 degrees spans 1 / 10 / (pi / 2) of 2 radians of the mean of 64 and 48 pixels.
    renderer->cameraPosition = glm::dvec3(0.0, 0.0, 10.0);
    EXPECT_NEAR(renderer->GetFixedBoundingSizeInScreenPixels({}, 1.0, 90.0), 56.0 * 2.0 / 10.0 / (M_PI / 2), 1e-9);
    EXPECT_NEAR(renderer->GetFixedBoundingSizeInScreenPixels({0, 0, 10}, 1.0, 0.0), 56.0 * 2.0 * M_PI, 1e-9);
}

// The physics step's colliders are drawn over the scene where the bodies are,
// only while asked for; without, their buffers go.
TEST_F(WorldViewTest, DebugCollidersShowOnlyWhenAskedForWhereTheBodiesAre) {
    auto collider = [](glm::dvec3 const& at, bool dynamic) {
        game::physics::DebugCollider shape{
            {}, game::entity::ConvexMeshCollider::Box(glm::vec3(-0.5f), glm::vec3(0.5f)), dynamic};
        shape.collider.transform = glm::translate(glm::dmat4(1.0), at);
        return shape;
    };
    glm::dvec3 const still(-1.2, 0.0, -5.0), moving(1.2, 0.0, -5.0);
    Game::physicsDebugColliders_staging = {collider(still, false), collider(moving, true)};
    Game::physicsDebugCollidersUpdated = true;
    for (bool asked : {false, true, false}) {
        Game::debugServerSidePhysics = asked;
        std::vector<Pixel> const frame = Shoot();
        EXPECT_EQ(Hue(At(frame, still)), asked ? 'b' : '-') << At(frame, still);
        EXPECT_EQ(Hue(At(frame, moving)), asked ? 'g' : '-') << At(frame, moving);
        EXPECT_EQ(Centre(frame).Sum(), 0) << "between the boxes";
        bool const kept = std::any_of(renderer->debugColliderVertices.begin(), renderer->debugColliderVertices.end(),
                                      [](auto const& buffer) { return buffer != nullptr; });
        EXPECT_EQ(kept, asked);
    }
    Game::physicsDebugColliders_front.clear();
}

TEST_F(WorldViewTest, APlasmaTrailAddsItsGlowOverWhatIsBehindLeavesItTheAimAndStirsItsNoiseField) {
    SunBehindCamera();
    auto wall = Wall(-8.0f, 10.0f, {0, 0, 1, 1});
    uint32_t const wallId = renderer->AddAimReference("TESTS_wall", 0);
    wall->SetAimID(wallId);
    auto trail = RenderableInstance::Make<game::graphics::PlasmaTrail>();
    trail->transform = glm::translate(glm::dmat4(1.0), glm::dvec3(0.0, -1.5, -4.0)); // up from 1.5 m below the axis
    game::physics::EnvironmentInfo air;
    air.density = 1.225;
    air.viscosity = 1.5e-5;
    glm::dvec3 const onTrail(0.0, 0.0, -4.0), beside(2.0, 0.0, -4.0);
    for (float speed : {600.0f, 1.0f}) { // glowing, then too slow
        trail->Update({0.0f, -speed, 0.0f}, 0.5f, air);
        std::vector<Pixel> frame;
        for (uint32_t i = 0; i <= nerox::graphics::VulkanRenderer::FramesInFlight; ++i) frame = Shoot();
        Pixel const glow = At(frame, onTrail), plain = At(frame, beside);
        SCOPED_TRACE(testing::Message() << speed << " m/s: " << glow << " over " << plain);
        EXPECT_EQ(Hue(plain), 'b');
        if (trail->visible) {
            EXPECT_GT(glow.r, plain.r + 60) << "orange light added";
            EXPECT_TRUE(glow.r > glow.g && glow.b >= plain.b) << "over the wall, not instead of it";
        } else {
            EXPECT_EQ(std::tuple(glow.r, glow.g, glow.b), std::tuple(plain.r, plain.g, plain.b));
        }
        EXPECT_EQ(renderer->aim.Buffer().aimID, wallId) << "one aims through the glow";
    }
    // Where the scene can sample textures the noise field holds values between
    // 0 and 1 that are not all alike; elsewhere nothing reads it and it stays clear.
    ASSERT_TRUE(trail->computeTexture);
    std::string const path = scratch.File("noise.hdr");
    ASSERT_TRUE(renderer->SaveImage(trail->computeTexture->GetImage(), {0, 0}, {256, 256}, VK_FORMAT_R32G32_SFLOAT,
                                    VK_IMAGE_LAYOUT_GENERAL, path, 0, false));
    nerox::graphics::ImageData const noise = nerox::graphics::Texture::LoadFile(path, 4);
    auto const* values = reinterpret_cast<float const*>(noise.pixels.data());
    size_t const count = noise.pixels.size() / sizeof(float);
    float lowest = 1e9f, highest = -1e9f;
    for (size_t i = 0; i < count; i += 4) lowest = std::min(lowest, values[i]), highest = std::max(highest, values[i]);
    EXPECT_GE(lowest, 0.0f);
    EXPECT_LE(highest, 1.0f);
    auto const& features = renderer->GetDevice().EnabledFeatures().vulkan12; // what the view needs to sample
    if (features.runtimeDescriptorArray && features.shaderSampledImageArrayNonUniformIndexing &&
        features.descriptorBindingPartiallyBound)
        EXPECT_GT(highest - lowest, 0.3f) << "a field, not a constant";
    else
        EXPECT_EQ(highest, 0.0f) << "no work for a field nothing reads";
}

} // namespace
} // namespace rendertest
