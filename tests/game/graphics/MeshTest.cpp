// glTF meshes read into geometries at device addresses, on the software device.
#include "GameRendererFixture.hpp"

#include "game/entity/ClientSideEntity.hpp"
#include "game/entity/EntityConfig.hpp"
#include "game/graphics/Mesh.hpp"
#include "game/graphics/RenderableInstance.hpp"

#include <nlohmann/json.hpp>

#include <chrono>
#include <filesystem>
#include <stdexcept>

namespace rendertest {
namespace {

using game::graphics::Mesh;
using json = nlohmann::json;

class MeshTest : public GameRendererTest {
protected:
    /// The binary buffer: ones everywhere but the indices 0, 1, 2 (16-bit, at byte 36).
    std::string bin = std::string(36, '\1') + std::string("\0\0\1\0\2\0", 6) + std::string(78, '\1');
    void SetUp() override {
        GameRendererTest::SetUp();
        Make();
    }
    // Writes mesh.gltf, whose node `node` holds the primitives, beside a 120-byte
    // mesh.bin. Views and accessors 0 to 4: 3 positions, 3 16-bit indices, 3
    // normals, 3 byte colours, 3 texture coordinates; view 5 is an empty stand-in.
    std::string Write(json const& primitives, json const& materials, std::string const& node = "body") {
        json root{{"buffers", {{{"byteLength", 120}, {"uri", "mesh.bin"}}}}, {"materials", materials}};
        struct View {
            int offset;
            char const* type;
            int component;
        } const views[] = {
            {0, "VEC3", 5126}, {36, "SCALAR", 5123}, {44, "VEC3", 5126}, {80, "VEC4", 5121}, {92, "VEC2", 5126}};
        for (size_t i = 0; i < std::size(views); ++i) {
            root["bufferViews"].push_back({{"buffer", 0}, {"byteOffset", views[i].offset}});
            root["accessors"].push_back(
                {{"bufferView", i}, {"count", 3}, {"type", views[i].type}, {"componentType", views[i].component}});
        }
        root["meshes"] = {{{"primitives", primitives}}};
        root["nodes"] = {{{"name", node}, {"mesh", 0}}, {{"name", "camera"}}};
        testsupport::WriteText(scratch.File("mesh.bin"), bin);
        testsupport::WriteText(scratch.File("mesh.gltf"), root.dump());
        return scratch.File("mesh.gltf");
    }
};

json const Painted = {{"name", "paint"},
                      {"pbrMetallicRoughness", {{"baseColorFactor", {0.5, 0.25, 1, 1}}, {"roughnessFactor", 0.5}}},
                      {"emissiveFactor", {1, 2, 3}}};
json const Screen = {{"name", "screen"}, {"pbrMetallicRoughness", {{"baseColorTexture", {{"index", 0}}}}}};

TEST_F(MeshTest, PrimitivesBecomeGeometriesAtTheirAddressesWithTheirMaterialsAndAReloadTrashesTheOldOnes) {
    json const full = {{"attributes", {{"POSITION", 0}, {"NORMAL", 2}, {"COLOR_0", 3}, {"TEXCOORD_0", 4}}},
                       {"indices", 1},
                       {"material", 0}};
    Mesh mesh(Write(json::array({full, {{"attributes", {{"POSITION", 0}}}, {"material", 1}}}),
                    json::array({Painted, Screen})));
    ASSERT_EQ(mesh.size(), 1u) << "a node without a mesh is skipped";
    auto const& body = mesh.at("body");
    ASSERT_EQ(body.size(), 2u);
    auto const& [a, b] = std::tie(*body[0], *body[1]);
    uint64_t const base = static_cast<uint64_t>(*a.buffer);
    EXPECT_EQ(a.buffer, b.buffer) << "one GPU buffer per glTF buffer";
    EXPECT_EQ(
        std::tuple(a.indexMode, a.GetIndexCount(), a.GetIndexStride(), a.GetPrimitiveCount(), a.GetPrimitiveStride()),
        std::tuple(2u, 3u, 2u, 3u, 12u));
    EXPECT_EQ(std::vector<uint64_t>({a.GetPrimitivesAddr(), a.GetIndicesAddr(), a.normalAddr, a.colorU8Addr,
                                     a.colorF32Addr, a.texCoord0Addr, a.texCoord1Addr}),
              std::vector<uint64_t>({base, base + 36, base + 44, base + 80, 0, base + 92, 0}));
    EXPECT_EQ(std::tuple(a.material, a.baseColor, a.metallic, a.roughness, a.emission),
              std::tuple("paint", glm::vec4(0.5f, 0.25f, 1, 1), 1.0f, 0.5f, glm::vec3(1, 2, 3)));
    // Without indices; the "screen" material is black and loads no texture.
    EXPECT_EQ(std::tuple(b.indexMode, b.GetIndexCount(), b.GetIndicesAddr(), b.material, b.baseColor, b.textureIndex),
              std::tuple(1u, 0u, 0u, "screen", glm::vec4(0, 0, 0, 1), 0u));

    size_t const trashed = renderer->trash.size();
    mesh.Load(Write(json::array({full}), json::array({Painted}), "lid"));
    EXPECT_EQ(std::tuple(mesh.at("lid").size(), mesh.at("body").size(), renderer->trash.size()),
              std::tuple(1u, 2u, trashed))
        << "a vanished name keeps its geometries";
    mesh.Load(Write(json::array({full}), json::array({Painted}), "body"));
    EXPECT_EQ(std::tuple(mesh.at("body").size(), renderer->trash.size()), std::tuple(1u, trashed + 2));
}

TEST_F(MeshTest, BadFilesThrowNamingTheFileAndSubsetViolationsAbort) {
    testsupport::WriteText(scratch.File("bad.gltf"), "{\"buffers\": [");
    EXPECT_THROW(
        try { Mesh(scratch.File("bad.gltf")); } catch (json::parse_error const& error) {
            EXPECT_NE(std::string(error.what()).find(scratch.File("bad.gltf")), std::string::npos) << error.what();
            throw;
        },
        json::parse_error);
    json attributes = {{"POSITION", 0}};
    std::string const path =
        Write(json::array({{{"attributes", attributes}, {"material", 0}}}), json::array({Painted}));
    std::string text = testsupport::ReadText(path);
    testsupport::WriteText(path, text.replace(text.find("\"count\":3"), 9, "\"count\":9")); // 108 bytes from 0: fits
    EXPECT_NO_THROW(Mesh{path});
    testsupport::WriteText(path, text.replace(text.find("\"count\":9"), 9, "\"count\":11")); // past the 120 bytes
    EXPECT_THROW(Mesh{path}, std::runtime_error);
    // Shaders read an attribute per vertex and a vertex per index: both must exist.
    attributes["NORMAL"] = 2,
    text = testsupport::ReadText(
        Write(json::array({{{"attributes", attributes}, {"material", 0}}}), json::array({Painted})));
    testsupport::WriteText(path, text.replace(text.find("\"count\":3"), 9, "\"count\":2"));
    EXPECT_THROW(Mesh{path}, std::runtime_error) << "more normals than positions";
    attributes.erase("NORMAL"), bin[38] = 3;
    EXPECT_THROW(Mesh{Write(json::array({{{"attributes", attributes}, {"indices", 1}, {"material", 0}}}),
                            json::array({Painted}))},
                 std::runtime_error)
        << "index 3 of 3 positions";
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(Mesh{Write(json::array({{{"attributes", attributes}}}), json::array({Painted}))},
                 "!\"Material not found\"");
    text = testsupport::ReadText(
        Write(json::array({{{"attributes", attributes}, {"indices", 1}, {"material", 0}}}), json::array({Painted})));
    testsupport::WriteText(path, text.replace(text.find("5123"), 4, "5121"));
    EXPECT_DEATH(Mesh{path}, "!\"Index ComponentType not supported\"");
}

// A client entity shows its type's mesh beside the description file; while F5
// is held and the file keeps changing, the mesh is read again at most once a
// second, in place, and the entity shows the new geometries.
TEST_F(MeshTest, F5HeldReloadsTheMeshOfAClientEntityAtMostOnceASecond) {
    using game::entity::ClientSideEntity;
    json const primitive = {{"attributes", {{"POSITION", 0}}}, {"material", 0}};
    std::string const mesh = Write(json::array({primitive}), json::array({Painted}));
    testsupport::WriteText(scratch.File("mesh.txt"), "[ENTITY]\nmass 1\n");
    ClientSideEntity::TypeDef row;
    row.config = std::make_shared<game::entity::EntityConfig>(scratch.File("mesh.txt"));
    row.factory = [] { return std::make_shared<ClientSideEntity::Interface>(); };
    ClientSideEntity::_registered_interfaces["TEST_mesh"]["thing"] = row;
    auto const entity =
        ClientSideEntity::Spawn(game::entity::Id::Generate(), nerox::modular::ModuleID("TEST_mesh"), "thing");
    ASSERT_EQ(entity->renderables.size(), 1u);
    auto const first = entity->renderables[0].instance;
    EXPECT_EQ(entity->renderables[0].node, "body");

    renderer->StartRendering();
    Game::window = window.get();
    window->SetKey(GLFW_KEY_F5, GLFW_PRESS);
    auto const start = std::chrono::steady_clock::now();
    int frames = 0;
    for (auto stamp = std::filesystem::file_time_type::clock::now();
         std::chrono::steady_clock::now() - start < std::chrono::milliseconds(2300); ++frames) {
        std::filesystem::last_write_time(mesh, stamp += std::chrono::seconds(1)); // a new save every frame
        renderer->Frame();
        entity->Update(1.0 / 60.0);
    }
    uint64_t const reloads = row.config->meshLoads - 1;
    EXPECT_GE(reloads, 1u);
    EXPECT_LE(reloads, 2u) << "in " << frames << " frames over 2.3 s";
    EXPECT_NE(entity->renderables[0].instance, first) << "new instances of the new geometries";
    EXPECT_FALSE(first->visible || first->enabled) << "the old instance left the scene";
    ClientSideEntity::DestroyAll();
    ClientSideEntity::_registered_interfaces.clear();
    Game::window = nullptr;
}

} // namespace
} // namespace rendertest
