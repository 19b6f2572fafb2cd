#include "ClientRun.hpp"
#include "InputScript.hpp"
#include "ModuleSetup.hpp"
#include "ModuleWatcher.hpp"
#include "WorldRun.hpp"

#include "game/Game.hpp"
#include "game/GameSettings.hpp"
#include "game/MainMenu.hpp"
#include "game/entity/ClientSideEntity.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "game/graphics/ui/Button.hpp"
#include "game/modules/GAME_Mod.hpp"
#include "game/modules/SERVER_Mod.hpp"
#include "game/modules/TESSARA_Mod.hpp"
#include "nerox/graphics/GlfwWindow.hpp"
#include "nerox/graphics/HeadlessWindow.hpp"
#include "nerox/audio/Studio.hpp"
#include "nerox/cpu/Profiler.hpp"

#include <imgui.h>
#include <imgui_internal.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace host {

namespace {

using Clock = std::chrono::steady_clock;
using game::entity::ServerSideEntity;
using game::modules::GAME_Mod;
using game::modules::SERVER_Mod;

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

// What the game holds of this run, given back in every way out of it. Queued
// work may hold code of the modules, so it goes before they do.
struct GameGlobals {
    ~GameGlobals() {
        {
            std::lock_guard lock(Game::_syncMutex);
            Game::_syncQueue.clear();
        }
        SERVER_Mod::UnloadModules();
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

// The names of the interface windows the last frame showed, without their "##" parts.
std::string ShownWindows() {
    std::string names;
    ImGuiContext const* context = ImGui::GetCurrentContext();
    if (context == nullptr) return names;
    int const inner = ImGuiWindowFlags_ChildWindow | ImGuiWindowFlags_Tooltip | ImGuiWindowFlags_Popup;
    for (ImGuiWindow const* window : context->Windows) {
        if (!window->Active || window->Hidden || (window->Flags & inner) != 0 || window->IsFallbackWindow) continue;
        std::string_view name(window->Name);
        name = name.substr(0, name.find("##"));
        if (!names.empty()) names += "; ";
        names += name;
    }
    return names;
}

// Waits out the rest of a frame's share of a second under the frame rate limit of the settings (0: none).
void KeepFrameRateLimit(Clock::time_point frameStart) {
    int const limit = Game::settings ? Game::settings->Get(&game::GameSettings::framerate_limit_main_rendering) : 0;
    if (limit <= 0) return;
    std::this_thread::sleep_until(
        frameStart + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(1.0 / limit)));
}

// The saved worlds, by name.
std::vector<std::string> SavedWorlds() {
    std::vector<std::string> worlds;
    std::error_code error;
    for (auto const& entry : std::filesystem::directory_iterator("../Tessara-data/server/worlds", error))
        if (entry.is_directory(error)) worlds.push_back(entry.path().filename().string());
    std::sort(worlds.begin(), worlds.end());
    return worlds;
}

// The start menu, while it is shown: the pointer goes to its elements once
// per frame, and PLAY ends the menu's frames.
struct StartMenu {
    game::MainMenu menu;
    bool play = false;
};

// Frames until the window closes, Ctrl+C, the script's quit, --frames (counted
// in frames, which carries the count over from the menu), or, with a start
// menu, PLAY; one client and input pass before each frame. An input script
// runs on the wall clock from start. Returns whether the run goes on.
/// The sound of a run with --audio-out: rendered through the studio's loopback
/// device as wall-clock time passes, kept as 16-bit samples, written at the end.
struct AudioOut {
    nerox::audio::Studio* studio = nullptr;
    std::optional<Clock::time_point> start; // the first client pass
    size_t frames = 0;                      // rendered so far
    std::vector<int16_t> samples;           // stereo, interleaved

    /// Renders up to now.
    void Catch() {
        if (studio == nullptr) return;
        if (!start) start = Clock::now();
        double const seconds = std::chrono::duration<double>(Clock::now() - *start).count();
        size_t const due = static_cast<size_t>(seconds * nerox::audio::Studio::SampleRate);
        if (due <= frames) return;
        std::vector<float> const mix = studio->Render(due - frames);
        for (float v : mix)
            samples.push_back(
                std::isfinite(v) ? static_cast<int16_t>(std::lround(std::clamp(v, -1.0f, 1.0f) * 32767.0f)) : 0);
        frames += mix.size() / 2;
    }

    /// A WAV file of the samples; false if it cannot be written.
    bool Write(std::string const& path) const {
        std::ofstream out(path, std::ios::binary);
        auto word = [&](uint32_t v, int bytes) {
            for (int i = 0; i < bytes; ++i) out.put(static_cast<char>((v >> (8 * i)) & 0xFF));
        };
        uint32_t const data = static_cast<uint32_t>(samples.size() * 2);
        out.write("RIFF", 4), word(36 + data, 4), out.write("WAVEfmt ", 8), word(16, 4), word(1, 2), word(2, 2);
        word(nerox::audio::Studio::SampleRate, 4), word(nerox::audio::Studio::SampleRate * 4, 4), word(4, 2);
        word(16, 2), out.write("data", 4), word(data, 4);
        for (int16_t v : samples) word(static_cast<uint16_t>(v), 2);
        return static_cast<bool>(out);
    }
};
AudioOut audioOut;

bool RunFrames(HostOptions const& options, nerox::graphics::Window& window, game::graphics::GameRenderer& renderer,
               InputPlayer* player, Clock::time_point start, long long& frames, StartMenu* menu,
               ModuleWatcher* watcher = nullptr) {
    while (Game::isActive.load()) {
        if (watcher != nullptr) watcher->ClientPass();
        if (clientQuitRequested.load()) Game::Quit();
        QuitIfRequested();
        if (!Game::isActive.load()) break;
        window.PollEvents();
        if (window.ShouldClose()) break;
        auto const frameStart = Clock::now();
        Game::mainRenderingFramerate.Tick();
        {
            nerox::cpu::Profiler scope("Client");
            Game::Update(0.0);
            Game::ClientUpdate();
            audioOut.Catch();
        }
        Game::inputFramerate.Tick();
        if (player != nullptr) player->Apply(std::chrono::duration<double>(Clock::now() - start).count());
        {
            nerox::cpu::Profiler scope("Input");
            Game::UpdateJoysticks();
            RunInputPass(Game::inputFramerate.GetDeltaTime());
        }
        if (!Game::isActive.load()) break; // the script's quit
        if (menu != nullptr) {
            double x = 0.0, y = 0.0;
            window.GetCursorPos(&x, &y);
            game::graphics::ui::Element::ForwardPointer(glm::ivec2(static_cast<int>(x), static_cast<int>(y)),
                                                        glm::ivec2(window.GetWidth(), window.GetHeight()),
                                                        window.GetMouseButton(GLFW_MOUSE_BUTTON_LEFT) == GLFW_PRESS);
            if (menu->play) return true;
        }
        // A window's frame is presented and gone: keep a copy of each while a
        // screenshot is wanted, since the last one is known only afterwards.
        if (!options.screenshotPath.empty() && renderer.HasSwapchain()) renderer.CaptureNextFrame();
        uint64_t const before = renderer.FrameIndex();
        {
            nerox::cpu::Profiler scope("Render");
            renderer.Frame();
        }
        Game::mainRenderingFramerate.WorkDone();
        if (renderer.FrameIndex() == before) {
            // Skipped (a minimised window): wait a little rather than spin.
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            continue;
        }
        ++frames;
        if (options.frames && frames >= *options.frames) return false;
        KeepFrameRateLimit(frameStart);
    }
    return false;
}

void PrintSummary(HostOptions const& options, RunStats const& stats, long long frames, double seconds) {
    std::printf("\nSummary\n");
    std::printf("  world:          %s\n", Game::_current_world.c_str());
    std::printf("  frames:         %lld in %.2f s (%.1f frames/s)\n", frames, seconds,
                seconds > 0.0 ? frames / seconds : 0.0);
    double const held = seconds > 0.0 ? stats.serverTicks / seconds : 0.0; // while the frames ran
    std::printf("  server ticks:   %lld (%.1f of %.1f ticks/s held, load %.1f %%)\n", stats.serverTicks, held,
                options.tickRate, 100.0 * stats.serverLoad);
    PrintOverruns(options, stats);
}

} // namespace

int RunClient(HostOptions const& options) {
    // A script is read before anything starts: a mistake in it costs no load.
    std::unique_ptr<nerox::graphics::Window> window;
    nerox::graphics::HeadlessWindow* headless = nullptr;
    std::unique_ptr<InputPlayer> player;
    if (options.offscreen) {
        auto offscreen = std::make_unique<nerox::graphics::HeadlessWindow>(options.width, options.height);
        headless = offscreen.get();
        window = std::move(offscreen);
    }
    if (!options.inputPath.empty()) {
        try {
            InputScript script = InputScript::Load(options.inputPath);
            std::printf("Replaying %zu input events from %s\n", script.Events().size(), options.inputPath.c_str());
            player = std::make_unique<InputPlayer>(std::move(script), *headless);
        } catch (std::exception const& error) {
            std::cerr << "tessara: " << error.what() << std::endl;
            return 2;
        }
    }
    if (!window) {
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
    // The sound: played on the audio device, or with --audio-out rendered into a file.
    using nerox::audio::Studio;
    auto const studio =
        std::make_unique<Studio>(options.audioOutPath.empty() ? Studio::Output::Device : Studio::Output::Loopback);
    Game::audio = studio.get();
    audioOut = AudioOut();
    if (!options.audioOutPath.empty()) audioOut.studio = studio.get();
    struct AudioScope { // however the run ends, nothing points at the studio after it
        ~AudioScope() {
            Game::audio = nullptr;
            audioOut.studio = nullptr;
        }
    } const audioScope;
    Game::_mods = options.contentModules;
    Game::_current_world = options.world;
    Game::_mode = options.gameMode;
    nerox::cpu::Profiler::SetThreadName("client"); // the client, input and render passes
    Game::_is_server = true;                       // single player: this process runs the server too
    bool loaded = LoadModules<GAME_Mod>(options.gameModules);
    loaded = LoadModules<SERVER_Mod>(options.serverModules) && loaded;
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
    stopRequested.store(false);
    clientQuitRequested.store(false);
    std::signal(SIGINT, OnStopSignal);
    std::signal(SIGTERM, OnStopSignal);

    int status = 0;
    long long frames = 0;
    double seconds = 0.0;
    RunStats stats;
    std::exception_ptr failure;
    ServerSideEntity::LoadReport worldLoad;
    auto const started = Clock::now();
    bool worldOpen = false;
    bool const gameStarted = StartGame(options, failure);
    auto const start = Clock::now();
    bool play = options.play;
    if (gameStarted && !play) {
        // The start menu until PLAY: the world is chosen there and loaded after.
        StartMenu menu;
        menu.menu.Init();
        menu.menu.SetWorlds(SavedWorlds(), options.world);
        menu.menu.playButton->_action = [&menu] { menu.play = true; };
        Game::SetInputMode_Ui();
        std::printf("Start menu: PLAY loads the world '%s'\n", options.world.c_str());
        std::fflush(stdout);
        RunGuarded([&] { play = RunFrames(options, *window, renderer, player.get(), start, frames, &menu); }, failure);
        menu.menu.Hide();
        if (play) Game::_current_world = menu.menu.SelectedWorld();
    }
    if (gameStarted && play && !failure) worldOpen = OpenStartedWorld(options, worldLoad, failure);
    if (worldOpen) {
        std::printf("Playing the world '%s'\n", Game::_current_world.c_str());
        // Offscreen there is no pointer to free: aim as in play, crosshair and all.
        if (options.offscreen || !options.play) Game::Play();
        std::unique_ptr<ModuleWatcher> watcher;
        if (options.watchModules) {
            watcher = std::make_unique<ModuleWatcher>(Game::_current_world);
            watcher->Start();
        }
        std::exception_ptr serverFailure;
        std::thread server([&] {
            RunGuarded([&] { ServerLoop(options, stats, nullptr, true, watcher.get()); }, serverFailure,
                       &RequestClientQuit);
        });
        RunGuarded([&] { RunFrames(options, *window, renderer, player.get(), start, frames, nullptr, watcher.get()); },
                   failure);
        Game::Quit(); // the server loop ends with the frames
        server.join();
        if (!failure) failure = serverFailure;
    }
    seconds = std::chrono::duration<double>(Clock::now() - start).count();
    if (gameStarted && !failure && !options.screenshotPath.empty()) {
        if (SaveScreenshot(renderer, options.screenshotPath)) {
            std::printf("Saved the last frame to %s\n", options.screenshotPath.c_str());
            std::printf("Windows in it: %s\n", ShownWindows().c_str());
        } else {
            std::cerr << "tessara: could not save the screenshot " << options.screenshotPath << '\n';
            status = 1;
        }
    }
    stats.wallSeconds = std::chrono::duration<double>(Clock::now() - started).count();
    Game::Quit();

    CloseWorld(worldOpen, failure);
    ListSetAside(worldLoad.setAside);
    Game::audio = nullptr;
    if (!options.audioOutPath.empty()) {
        if (audioOut.Write(options.audioOutPath)) {
            std::printf("Wrote %.1f s of sound to %s\n",
                        static_cast<double>(audioOut.frames) / nerox::audio::Studio::SampleRate,
                        options.audioOutPath.c_str());
        } else {
            std::cerr << "tessara: could not write the sound file " << options.audioOutPath << '\n';
            status = 1;
        }
        audioOut = AudioOut();
    }
    if (failure) {
        std::cerr << "tessara: the run ended with an error: " << Describe(failure) << '\n';
        return 1;
    }
    PrintSummary(options, stats, frames, seconds);
    return status;
}

} // namespace host
