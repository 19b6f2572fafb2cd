#include "ClientRun.hpp"
#include "ModuleSetup.hpp"

#include "game/Game.hpp"
#include "game/GameSettings.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "game/modules/GAME_Mod.hpp"
#include "game/modules/TESSARA_Mod.hpp"
#include "nerox/graphics/GlfwWindow.hpp"
#include "nerox/graphics/HeadlessWindow.hpp"

#include <imgui.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <thread>

namespace host {

namespace {

using game::modules::GAME_Mod;

std::atomic<bool> interrupted{false};

void OnInterrupt(int) {
    interrupted.store(true);
}

// The Dear ImGui context of the run: made before rendering starts, so that the
// game's fonts and style are in place for the renderer's first frame.
struct UiContext {
    UiContext() {
        ImGui::CreateContext();
        ImGui::GetIO().IniFilename = nullptr;
        Game::LoadFonts();
        Game::SetupUiStyle();
    }
    ~UiContext() { ImGui::DestroyContext(); }
    UiContext(UiContext const&) = delete;
    UiContext& operator=(UiContext const&) = delete;
};

// What the game holds of this run, given back in every way out of it.
struct GameGlobals {
    ~GameGlobals() {
        GAME_Mod::UnloadModules();
        Game::renderer = nullptr;
        Game::window = nullptr;
        Game::settings.reset();
    }
};

// Saves the last frame: offscreen straight from the output image, from a
// window through the copy the frame kept.
bool SaveScreenshot(game::graphics::GameRenderer& renderer, std::string const& path) {
    if (renderer.HasSwapchain()) return renderer.SaveOutputImage(path);
    return renderer.SaveImage(renderer.GetOutputVkImage(), {0, 0}, renderer.GetOutputImageExtent(),
                              renderer.GetOutputImageFormat(), VK_IMAGE_LAYOUT_GENERAL, path, 95, true);
}

// Frames until the window closes, Ctrl+C or --frames; one client and input pass
// before each frame. Returns the frames drawn.
long long RunFrames(HostOptions const& options, nerox::graphics::Window& window,
                    game::graphics::GameRenderer& renderer) {
    long long frames = 0;
    while (!interrupted.load() && Game::isActive.load()) {
        window.PollEvents();
        if (window.ShouldClose()) break;
        Game::mainRenderingFramerate.Tick();
        Game::Update(0.0);
        Game::ClientUpdate();
        Game::inputFramerate.Tick();
        double const inputDelta = Game::inputFramerate.GetDeltaTime();
        Game::UpdateJoysticks();
        RunInputPass(inputDelta);
        // A window's frame is presented and gone: keep a copy of each while a
        // screenshot is wanted, since the last one is known only afterwards.
        if (!options.screenshotPath.empty() && renderer.HasSwapchain()) renderer.CaptureNextFrame();
        uint64_t const before = renderer.FrameIndex();
        renderer.Frame();
        Game::mainRenderingFramerate.WorkDone();
        if (renderer.FrameIndex() == before) {
            // Skipped (a minimised window): wait a little rather than spin.
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            continue;
        }
        ++frames;
        if (options.frames && frames >= *options.frames) break;
    }
    return frames;
}

} // namespace

int RunClient(HostOptions const& options) {
    std::unique_ptr<nerox::graphics::Window> window;
    if (options.offscreen) {
        window = std::make_unique<nerox::graphics::HeadlessWindow>(options.width, options.height);
    } else {
        try {
            window = std::make_unique<nerox::graphics::GlfwWindow>("Tessara", options.width, options.height);
        } catch (std::exception const& error) {
            std::cerr << "tessara: cannot open a window (" << error.what()
                      << "); without a display use --client --offscreen\n";
            return 1;
        }
    }

    std::error_code error;
    std::filesystem::path const settingsPath(options.settingsPath);
    if (settingsPath.has_parent_path()) std::filesystem::create_directories(settingsPath.parent_path(), error);
    GameGlobals globals;
    Game::settings = std::make_unique<game::GameSettings>(options.settingsPath, std::nullopt);
    Game::window = window.get();
    Game::audio = nullptr;
    Game::_mods = options.contentModules;
    bool const loaded = LoadModules<GAME_Mod>(options.gameModules);
    SortClientModuleLists();
    if (!loaded) {
        std::cerr << "tessara: a module failed to load (see above); run from the run directory, "
                     "or check the names with tessara --help\n";
        return 1;
    }

    UiContext ui;
    nerox::vk::PhysicalDevice::Features features;
    features.core.largePoints = VK_TRUE; // the crosshair is one point sprite
    game::graphics::GameRenderer renderer(window.get(), "Tessara", 1, features);
    Game::renderer = &renderer;
    std::printf("Client mode: %s, %s output %dx%d\n", renderer.GetDevice().Properties().deviceName,
                options.offscreen ? "offscreen" : "window", options.width, options.height);
    std::signal(SIGINT, OnInterrupt);
    std::signal(SIGTERM, OnInterrupt);

    int status = 0;
    long long frames = 0;
    double seconds = 0.0;
    std::exception_ptr failure;
    Game::isActive.exchange(true);
    try {
        Game::Start();
        Game::Ready();
        // Offscreen there is no pointer to free: aim as in play, crosshair and all.
        if (options.offscreen) Game::SetInputMode_Play();
        auto const start = std::chrono::steady_clock::now();
        frames = RunFrames(options, *window, renderer);
        seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (!options.screenshotPath.empty()) {
            if (SaveScreenshot(renderer, options.screenshotPath)) {
                std::printf("Saved the last frame to %s\n", options.screenshotPath.c_str());
            } else {
                std::cerr << "tessara: could not save the screenshot " << options.screenshotPath << '\n';
                status = 1;
            }
        }
    } catch (...) {
        failure = std::current_exception();
    }
    Game::Quit();
    try {
        Game::Stop();
    } catch (...) {
        if (!failure) failure = std::current_exception();
    }
    if (failure) {
        try {
            std::rethrow_exception(failure);
        } catch (std::exception const& error) {
            std::cerr << "tessara: the run ended with an error: " << error.what() << '\n';
        } catch (...) {
            std::cerr << "tessara: the run ended with an error\n";
        }
        return 1;
    }
    std::printf("Rendered %lld frames in %.2f s (%.1f frames/s)\n", frames, seconds,
                seconds > 0.0 ? frames / seconds : 0.0);
    return status;
}

} // namespace host
