// Frames per second of the world view on the device at hand (the software
// device where there is no GPU): 1,000 crates and 16 lights over the sample
// ground at 1280x720, drawn with the sample's interface panels, then the scene
// alone and the interface alone, so that the frame time splits into the two.
//
// Run from anywhere: tessara_view_bench [FRAMES] (default 60 per measurement).
#include "game/Game.hpp"
#include "game/GameSettings.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "game/graphics/LightSourceInstance.hpp"
#include "game/graphics/Mesh.hpp"
#include "game/graphics/RenderableInstance.hpp"
#include "game/modules/GAME_Mod.hpp"
#include "nerox/graphics/HeadlessWindow.hpp"

#include <glm/gtc/matrix_transform.hpp>
#include <imgui.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace {

using game::graphics::GameRenderer;
using game::graphics::LightSourceInstance;
using game::graphics::RenderableInstance;
using game::modules::GAME_Mod;

constexpr int Width = 1280;
constexpr int Height = 720;
// BENCH_CRATES, BENCH_LIGHTS and BENCH_LIGHT_POWER in the environment change the scene.
int const Crates = getenv("BENCH_CRATES") ? std::max(0, atoi(getenv("BENCH_CRATES"))) : 1000;
int const Lights = getenv("BENCH_LIGHTS") ? std::max(0, atoi(getenv("BENCH_LIGHTS"))) : 16;
float const LightPower =
    getenv("BENCH_LIGHT_POWER") ? static_cast<float>(atof(getenv("BENCH_LIGHT_POWER"))) : 5.0f; // 6.3 m

// Milliseconds per frame over frames frames, after a few to settle.
double MeasureFrames(GameRenderer& renderer, int frames) {
    for (int i = 0; i < 5; ++i) renderer.Frame();
    renderer.GetDevice().WaitIdle();
    auto const start = std::chrono::steady_clock::now();
    for (int i = 0; i < frames; ++i) renderer.Frame();
    renderer.GetDevice().WaitIdle();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count() / frames;
}

// Loads the modules named (and only those) with rendering stopped, then starts it again.
bool UseModules(GameRenderer& renderer, std::vector<char const*> const& names) {
    if (renderer.IsRendering()) renderer.StopRendering();
    GAME_Mod::UnloadModules();
    for (char const* name : names) {
        if (!GAME_Mod::LoadModule(name, true)) return false;
    }
    for (char const* key : {"update", "render", "post", "overlay", "ui"})
        GAME_Mod::SortModules(key, [](GAME_Mod::Ptr a, GAME_Mod::Ptr b) { return a->name < b->name; });
    renderer.StartRendering();
    return true;
}

} // namespace

int main(int argc, char** argv) {
    int const frames = argc > 1 ? std::max(1, std::atoi(argv[1])) : 60;
    std::filesystem::current_path(TESSARA_RUN_DIR); // modules, shaders and meshes are found from there
    std::string const settingsPath = (std::filesystem::temp_directory_path() / "tessara_view_bench.ini").string();
    Game::settings = std::make_unique<game::GameSettings>(settingsPath, std::nullopt);
    Game::settings->dev_tools = true; // the sample shows its performance panel too
    ImGui::CreateContext();
    ImGui::GetIO().IniFilename = nullptr;
    Game::LoadFonts();
    Game::SetupUiStyle();
    nerox::graphics::HeadlessWindow window(Width, Height);
    int status = 0;
    {
        GameRenderer renderer(&window, "tessara_view_bench", 1, nerox::vk::PhysicalDevice::Features{});
        Game::renderer = &renderer;
        std::vector<std::shared_ptr<RenderableInstance>> instances;
        std::vector<std::shared_ptr<LightSourceInstance>> lights;
        {
            game::graphics::Mesh const crate("modules/TESSARA_sample/crate.gltf");
            game::graphics::Mesh const ground("modules/TESSARA_planet/meshes/ground.gltf");
            instances.push_back(ground.MakeInstance("ground"));
            // Crates in rows of 40 on the ground ahead, 2 m apart, each turned a little.
            for (int i = 0; i < Crates; ++i) {
                glm::dvec3 const position(-39.0 + 2.0 * (i % 40), 0.0, -4.0 - 2.0 * (i / 40));
                auto instance = crate.MakeInstance("crate");
                instance->transform =
                    glm::rotate(glm::translate(glm::dmat4(1.0), position), 0.1 * i, glm::dvec3(0.0, 1.0, 0.0));
                instances.push_back(instance);
            }
            for (int i = 0; i < Lights; ++i) {
                glm::vec3 const position(-30.0f + 4.0f * i, 1.5f, -6.0f - 3.0f * (i % 4));
                lights.push_back(LightSourceInstance::Make(position, 0.1f, glm::vec3(0.0f, -1.0f, 0.0f), 0.0f,
                                                           glm::vec3(1.0f, 0.8f, 0.6f), LightPower));
            }
        }
        renderer.cameraPosition = glm::dvec3(0.0, 6.0, 6.0);
        renderer.viewMatrix =
            glm::lookAt(renderer.cameraPosition, glm::dvec3(0.0, 0.0, -20.0), glm::dvec3(0.0, 1.0, 0.0));

        std::printf("World view on %s, %dx%d: %d crates, %d lights, the ground; %d frames a measurement\n",
                    renderer.GetDevice().Properties().deviceName, Width, Height, Crates, Lights, frames);
        struct Run {
            char const* name;
            std::vector<char const*> modules;
        } const runs[] = {
            {"scene and interface", {"TESSARA_view", "TESSARA_sample"}},
            {"scene alone", {"TESSARA_view"}},
            {"interface alone", {"TESSARA_sample"}},
        };
        double ms[3] = {};
        for (int i = 0; i < 3; ++i) {
            if (!UseModules(renderer, runs[i].modules)) {
                std::fprintf(stderr, "tessara_view_bench: cannot load the modules (build the project first)\n");
                status = 1;
                break;
            }
            ms[i] = MeasureFrames(renderer, frames);
            std::printf("  %-20s %8.2f ms a frame  %7.1f frames/s\n", runs[i].name, ms[i], 1000.0 / ms[i]);
        }
        if (status == 0)
            std::printf("Split of a full frame: scene %.0f%%, interface %.0f%% (goal: 60 frames/s in full)\n",
                        100.0 * ms[1] / (ms[1] + ms[2]), 100.0 * ms[2] / (ms[1] + ms[2]));
        if (renderer.IsRendering()) renderer.StopRendering();
        instances.clear();
        lights.clear();
        renderer.Cleanup();
        GAME_Mod::UnloadModules();
        Game::renderer = nullptr;
    }
    ImGui::DestroyContext();
    Game::settings.reset();
    return status;
}
