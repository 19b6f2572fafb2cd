#include "game/Game.hpp"

#include "game/GameSettings.hpp"
#include "game/NeroxScreen.hpp"
#include "game/Options.hpp"
#include "game/audio/EnvironmentAudio.hpp"
#include "game/entity/ClientSideEntity.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "game/Inventory.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "game/graphics/ui/InventoryUi.hpp"
#include "game/input/Controller.hpp"
#include "game/input/FunctionKeys.hpp"
#include "game/input/Joystick.hpp"
#include "game/modules/GAME_Mod.hpp"
#include "game/modules/SERVER_Mod.hpp"
#include "game/modules/TESSARA_Mod.hpp"
#include "nerox/audio/Studio.hpp"
#include "nerox/cpu/Profiler.hpp"
#include "nerox/String.hpp"
#include "nerox/graphics/Window.hpp"

#include <imgui.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <shared_mutex>

// Lifecycle and environment.
std::atomic<bool> Game::isActive{false};
std::unique_ptr<game::GameSettings> Game::settings;
game::graphics::GameRenderer* Game::renderer = nullptr;
nerox::graphics::Window* Game::window = nullptr;
nerox::audio::Studio* Game::audio = nullptr;
std::unique_ptr<game::audio::EnvironmentAudio> Game::environmentAudio;
game::Config Game::config;
std::vector<std::string> Game::_mods;
std::string Game::_current_world;
int32_t Game::_mode = 0;
bool Game::_is_server = false;
std::shared_ptr<game::graphics::ui::InventoryUi> Game::userInventory;
std::shared_ptr<game::Item> Game::activeItem;
uint64_t Game::offlineSteamId = 0;
std::string Game::offlineSteamUsername;

// World time.
double Game::timestamp = 0.0;
double Game::timeOffset = 0.0;
bool Game::timeActive = true;

// User state.
uint8_t Game::_inputMode = 0;
bool Game::_mouseLook = false;
bool Game::uiVisible = true;
bool Game::settingsWindowOpen = false;
bool Game::adminWindowOpen = false;
std::map<int, std::shared_ptr<game::input::Joystick>> Game::_joysticks;

// Environment references.
std::unordered_map<game::entity::EnvironmentId, game::physics::EnvironmentFunction> Game::_environmentFunctions;
game::entity::EnvironmentId Game::parentEnvironmentId = 0;
game::entity::EnvironmentId Game::relativeEnvironmentId = 0;
bool Game::environmentIsLoaded = false;
glm::dmat4 Game::backgroundTransform{1.0};

// Measurement and debugging.
nerox::FPSCounter Game::mainRenderingFramerate{0.3};
nerox::FPSCounter Game::serverFramerate{0.5};
nerox::FPSCounter Game::inputFramerate{0.5};
nerox::FPSCounter Game::gameFramerate{0.5};
bool Game::serverSideEntityPerformanceMetrics = false;
std::unordered_map<game::entity::Id, double> Game::_serverSideEntityPerformance_timers;
std::unordered_map<game::entity::Id, double> Game::serverSideEntityPerformance_avg_time;
double Game::serverSideSyncAvgTime = 0.0;
double Game::serverSidePhysicsAvgTime = 0.0;
bool Game::debugServerSidePhysics = false;
bool Game::debugClientSidePhysics = false;
std::vector<Game::PhysicsLineDebug> Game::physicsDebugLines_back;
std::vector<Game::PhysicsLineDebug> Game::physicsDebugLines_staging;
std::vector<Game::PhysicsLineDebug> Game::physicsDebugLines_front;
std::vector<Game::PhysicsColliderDebug> Game::physicsDebugColliders_back;
std::vector<Game::PhysicsColliderDebug> Game::physicsDebugColliders_staging;
std::vector<Game::PhysicsColliderDebug> Game::physicsDebugColliders_front;
std::atomic<bool> Game::physicsDebugCollidersUpdated{false};
std::mutex Game::physicsDebugMutex;
int32_t Game::debugGizmoOp = 0;
game::entity::Id Game::debugGizmoEntityId;
glm::dmat4 Game::debugGizmoTransform{1.0};
float Game::testSlider[5] = {0.0f, 0.0f, 0.0f, 0.0f, 0.0f};

// Inter-module channel and monitors.
std::unordered_map<std::string, std::array<char, Game::imcValueSize>> Game::_imcData;
nerox::SharedMutex Game::_imcMutex;
std::unordered_map<uint32_t, std::string> Game::_monitors{{0u, std::string()}};
std::mutex Game::_monitorsMutex;
game::ElectronWebview Game::electronWebview;
uint32_t Game::currentMonitorID = 0;
double Game::currentMonitorX = 0.0;
double Game::currentMonitorY = 0.0;
double Game::currentMonitorDistance = 0.0;

// Work handed to the client side.
std::vector<std::function<void()>> Game::_syncQueue;
std::mutex Game::_syncMutex;

using game::modules::GAME_Mod;
using game::modules::SERVER_Mod;
using game::modules::TESSARA_Mod;

namespace {

/// One setting, read under the settings' lock; fallback without settings.
template <class T> T ReadSetting(T game::GameSettings::*member, T fallback) {
    return Game::settings ? Game::settings->Get(member) : fallback;
}

char const* const fontPath = "game/graphics/ui/fonts/SourceCodePro-Semibold.otf";
char const* const fallbackFontPath = "/usr/share/fonts/truetype/dejavu/DejaVuSansMono-Bold.ttf";

// Seconds since the epoch as a double, from the system clock's nanosecond count.
double SystemClockSeconds() {
    auto nanoseconds =
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
            .count();
    return static_cast<double>(nanoseconds) / 1e6 * 0.001;
}

} // namespace

void Game::Start() {
    environmentAudio = std::make_unique<game::audio::EnvironmentAudio>();
    game::NeroxScreen::compressThreadPool.RunThreads(1); // screens compress their images off their threads
    GAME_Mod::ForEachModule([](GAME_Mod::Ptr& mod) {
        if (mod->Game_Start) mod->Game_Start();
    });
    if (renderer) renderer->StartRendering();
    for (std::string const& name : _mods) {
        TESSARA_Mod::LoadModule(name, false);
    }
    TESSARA_Mod::ForEachModule([](TESSARA_Mod::Ptr& mod) {
        unsigned char scratch = 0;
        if (mod->Load) mod->Load(&scratch);
    });
    std::cout
        << "Shader compilation may take several minutes before starting the game the first time or after an update..."
        << std::endl;
}

void Game::Ready() {
    std::cout << "Starting game..." << std::endl;
    GAME_Mod::ForEachModule([](GAME_Mod::Ptr& mod) {
        if (mod->Game_Ready) mod->Game_Ready();
    });
}

void Game::Update(double) {
    // Function-local so that it survives across passes, as the smoothing needs.
    static double avgDeltaTime = 1.0 / 60.0;
    avgDeltaTime = 0.5 * avgDeltaTime + 0.5 * mainRenderingFramerate.GetDeltaTime();

    {
        std::lock_guard lock(_syncMutex);
        for (auto& function : _syncQueue) function();
        _syncQueue.clear();
    }

    if (audio) {
        float const masterVolume = ReadSetting(&game::GameSettings::master_volume, 1.0f);
        audio->SetVolume(0.5f * masterVolume, "bus:/");
        if (renderer) {
            // The listener is the camera of the frame last begun.
            game::graphics::GameRenderer::CameraSnapshot const camera = renderer->Camera();
            glm::vec3 const position(camera.position);
            auto unit = [](glm::dvec3 const& v) {
                glm::vec3 const single(v);
                float const squared = glm::dot(single, single);
                return squared > 0.0f ? single * (1.0f / std::sqrt(squared)) : single;
            };
            glm::vec3 const forward = unit(camera.forward), up = unit(camera.up);
            audio->SetListenerAttributes(position.x, position.y, position.z, 0.0f, 0.0f, 0.0f, forward.x, forward.y,
                                         forward.z, up.x, up.y, up.z);
        }
        audio->Update();
    }

    double const deltaTime = avgDeltaTime;
    using game::entity::ClientSideEntity;
    {
        nerox::cpu::Profiler scope("ForEachClientEntity::Update");
        ClientSideEntity::ForEach([deltaTime](ClientSideEntity::Ptr entity) { entity->Update(deltaTime); });
    }
    ClientSideEntity::PhysicsUpdate(deltaTime);
    GAME_Mod::ForEachSortedModule("update", [deltaTime](GAME_Mod::Ptr& mod) {
        if (mod->Game_Update) mod->Game_Update(deltaTime);
    });
    {
        nerox::cpu::Profiler scope("ForEachClientEntity::AfterUpdate");
        ClientSideEntity::ForEach([deltaTime](ClientSideEntity::Ptr entity) { entity->AfterUpdate(deltaTime); });
    }
}

void Game::ClientUpdate() {
    GAME_Mod::ForEachModule([](GAME_Mod::Ptr& mod) {
        if (mod->Game_ClientUpdate) mod->Game_ClientUpdate();
    });
}

namespace {

using game::entity::ServerSideEntity;

// The entity stages of a server tick: each stage runs over all entities before the next.
void RunEntityStages(double deltaTime, int physicsArgument) {
    {
        nerox::cpu::Profiler scope("ForEachEntity::BeforeUpdate", true);
        ServerSideEntity::ForEach([deltaTime](ServerSideEntity::Ptr entity) { entity->BeforeUpdate(deltaTime); });
    }
    {
        nerox::cpu::Profiler scope("ForEachEntity::Update", true);
        ServerSideEntity::ForEach([deltaTime](ServerSideEntity::Ptr entity) {
            entity->Update(deltaTime);
            entity->RefreshCache();
        });
    }
    ServerSideEntity::PhysicsUpdate(deltaTime, physicsArgument);
    {
        nerox::cpu::Profiler scope("ForEachEntity::AfterUpdate", true);
        ServerSideEntity::ForEach([deltaTime](ServerSideEntity::Ptr entity) {
            entity->RefreshCache();
            entity->AfterUpdate(deltaTime);
        });
    }
}

double ClockSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// The vehicle an entity's time is booked on: its own id without a parent,
// otherwise its parent's vehicle (or its own when the parent is gone).
game::entity::Id VehicleOf(ServerSideEntity const& entity) {
    if (!entity.parentEntity.IsSet()) return entity.id;
    ServerSideEntity::Ptr const parent = ServerSideEntity::Get(entity.parentEntity);
    return parent ? parent->GetVehicleID() : entity.id;
}

// The same stages, with the time of each vehicle summed up and smoothed.
void RunMeasuredEntityStages(double deltaTime, int physicsArgument) {
    auto& timers = Game::_serverSideEntityPerformance_timers;
    auto& averages = Game::serverSideEntityPerformance_avg_time;
    ServerSideEntity::ForEach([&timers](ServerSideEntity::Ptr entity) {
        if (!entity->parentEntity.IsSet()) timers[entity->id] = 0.0;
    });
    {
        nerox::cpu::Profiler scope("ForEachEntity::BeforeUpdate", true);
        ServerSideEntity::ForEach([&timers, deltaTime](ServerSideEntity::Ptr entity) {
            double& timer = timers[VehicleOf(*entity)];
            timer -= ClockSeconds();
            entity->BeforeUpdate(deltaTime);
            timer += ClockSeconds();
        });
    }
    {
        nerox::cpu::Profiler scope("ForEachEntity::Update", true);
        ServerSideEntity::ForEach([&timers, deltaTime](ServerSideEntity::Ptr entity) {
            double& timer = timers[VehicleOf(*entity)];
            timer -= ClockSeconds();
            entity->Update(deltaTime);
            entity->RefreshCache();
            timer += ClockSeconds();
        });
    }
    ServerSideEntity::PhysicsUpdate(deltaTime, physicsArgument); // unmeasured
    {
        nerox::cpu::Profiler scope("ForEachEntity::AfterUpdate", true);
        ServerSideEntity::ForEach([&timers, deltaTime](ServerSideEntity::Ptr entity) {
            double& timer = timers[VehicleOf(*entity)];
            timer -= ClockSeconds();
            entity->RefreshCache();
            entity->AfterUpdate(deltaTime);
            timer += ClockSeconds();
        });
    }
    ServerSideEntity::ForEach([&timers, &averages, deltaTime](ServerSideEntity::Ptr entity) {
        if (entity->parentEntity.IsSet()) return;
        double& average = averages[entity->id];
        average = (1.0 - deltaTime) * average + deltaTime * timers[entity->id];
    });
}

} // namespace

void Game::ServerUpdate(double deltaTime, int physicsArgument) {
    nerox::cpu::Profiler tickScope("ServerUpdate", true);

    if (timeActive) timestamp = SystemClockSeconds() + timeOffset;

    SERVER_Mod::ForEachModule([deltaTime](SERVER_Mod::Ptr& mod) {
        nerox::cpu::Profiler scope("ForEachModule::Server_BeforeUpdate", true);
        if (mod->Server_BeforeUpdate) mod->Server_BeforeUpdate(deltaTime);
    });

    if (!serverSideEntityPerformanceMetrics)
        RunEntityStages(deltaTime, physicsArgument);
    else
        RunMeasuredEntityStages(deltaTime, physicsArgument);

    SERVER_Mod::ForEachModule([deltaTime](SERVER_Mod::Ptr& mod) {
        nerox::cpu::Profiler scope("ForEachModule::Server_AfterUpdate", true);
        if (mod->Server_GameUpdate) mod->Server_GameUpdate(deltaTime);
    });
}

void Game::InputUpdate(double deltaTime) {
    game::input::Controller::InputUpdate(deltaTime);
    game::input::FunctionKeys::Update();
    GAME_Mod::ForEachModule([deltaTime](GAME_Mod::Ptr& mod) {
        if (mod->Input_Update) mod->Input_Update(deltaTime);
    });
}

void Game::InputUpdate_Play(double deltaTime) {
    GAME_Mod::ForEachModule([deltaTime](GAME_Mod::Ptr& mod) {
        if (mod->Input_Update_Play) mod->Input_Update_Play(deltaTime);
    });
}

void Game::InputUpdate_Station(double deltaTime) {
    GAME_Mod::ForEachModule([deltaTime](GAME_Mod::Ptr& mod) {
        if (mod->Input_Update_Station) mod->Input_Update_Station(deltaTime);
    });
}

void Game::Synchronize(std::function<void()> function) {
    std::lock_guard lock(_syncMutex);
    _syncQueue.push_back(std::move(function));
}

void Game::Stop() {
    if (renderer) renderer->StopRendering();
    // Client entities hold objects made by the content modules' code: they go
    // before those modules do, and their types with them.
    game::entity::ClientSideEntity::DestroyAll();
    game::entity::ClientSideEntity::_registered_interfaces.clear();
    game::entity::ClientSideEntity::_registered_items_module.clear();
    TESSARA_Mod::ForEachModule([](TESSARA_Mod::Ptr& mod) {
        unsigned char scratch = 0;
        if (mod->Unload) mod->Unload(&scratch);
    });
    TESSARA_Mod::UnloadModules();
    GAME_Mod::ForEachModule([](GAME_Mod::Ptr& mod) {
        if (mod->Game_Stop) mod->Game_Stop();
    });

    if (renderer) renderer->Cleanup();

    environmentAudio.reset();
    environmentIsLoaded = false;
    parentEnvironmentId = 0;
    relativeEnvironmentId = 0;

    _inputMode = 0;
    _mouseLook = false;
    for (auto& [id, device] : _joysticks) {
        if (device) device->Disconnect(); // whoever still holds one sees it gone
    }
    _joysticks.clear();
    game::input::Controller::Reset();

    config.Clear();
    game::NeroxScreen::compressThreadPool.Shutdown(); // the screens are gone with their entities

    settingsWindowOpen = false;
    adminWindowOpen = false;
    game::input::FunctionKeys::Reset();
    game::input::FunctionKeys::droneMode = false;
    game::input::FunctionKeys::respawnRequested = false;
    uiVisible = true;
    userInventory.reset();
    activeItem.reset();
}

void Game::Quit() {
    SetMouseLook(false);
    isActive.exchange(false);
    std::lock_guard lock(game::Options::_mu);
    game::Options::_options.clear();
}

void Game::Pause() { }

void Game::Play() {
    SetInputMode_Play();
}

void Game::SetInputMode_Ui() {
    SetMouseLook(false);
    _inputMode = 0;
}

void Game::SetInputMode_Play() {
    SetMouseLook(true);
    _inputMode = 1;
}

void Game::SetInputMode_Station() {
    SetMouseLook(true);
    _inputMode = 2;
}

void Game::SetMouseLook(bool on) {
    if (!window || on == _mouseLook) return;
    if (on && window->IsFocused()) {
        window->SetInputMode(GLFW_CURSOR, GLFW_CURSOR_DISABLED);
        window->SetCursorPos(0.0, 0.0);
        if (ImGui::GetCurrentContext()) ImGui::SetWindowFocus(nullptr);
        _mouseLook = true;
        return;
    }
    window->SetInputMode(GLFW_CURSOR, GLFW_CURSOR_NORMAL);
    _mouseLook = false;
}

void Game::LoadFonts() {
    if (!ImGui::GetCurrentContext()) return;
    ImGuiIO& io = ImGui::GetIO();
    std::error_code error;
    if (std::filesystem::exists(fontPath, error)) {
        io.Fonts->AddFontFromFileTTF(fontPath, 32.0f);
    } else if (std::filesystem::exists(fallbackFontPath, error)) {
        std::cerr << "Font " << fontPath << " not found, using " << fallbackFontPath << std::endl;
        io.Fonts->AddFontFromFileTTF(fallbackFontPath, 32.0f);
    } else {
        std::cerr << "Font " << fontPath << " not found, using the built-in font" << std::endl;
        ImFontConfig fontConfig;
        fontConfig.SizePixels = 32.0f;
        io.Fonts->AddFontDefault(&fontConfig);
    }
    game::graphics::ui::InventoryUi::LoadFonts();
}

void Game::SetupUiStyle() {
    if (!ImGui::GetCurrentContext()) return;
    ImGuiStyle& style = ImGui::GetStyle();
    style.Alpha = 0.8f;
    style.WindowPadding = ImVec2(10.0f, 10.0f);
    style.WindowRounding = 0.0f;
    style.WindowBorderSize = 2.0f;
    style.WindowMinSize = ImVec2(300.0f, 100.0f);
    style.WindowTitleAlign = ImVec2(0.5f, 0.5f);
    style.FramePadding = ImVec2(10.0f, 5.0f);
    style.FrameRounding = 4.0f;
    style.TabRounding = 4.0f;
    style.TabBorderSize = 2.0f;

    ImVec4* colors = style.Colors;
    colors[ImGuiCol_Text] = ImVec4(1.0f, 1.0f, 1.0f, 1.0f);
    colors[ImGuiCol_WindowBg] = ImVec4(0.0f, 0.0f, 0.0f, 1.0f);
    colors[ImGuiCol_Border] = ImVec4(0.0f, 0.0f, 0.0f, 0.0f);
    colors[ImGuiCol_BorderShadow] = ImVec4(0.0f, 0.0f, 0.0f, 0.5f);
    colors[ImGuiCol_TitleBg] = ImVec4(0.0f, 0.0f, 0.0f, 0.7f);
    colors[ImGuiCol_TitleBgActive] = ImVec4(0.0f, 0.0f, 0.0f, 0.8f);
    colors[ImGuiCol_TitleBgCollapsed] = ImVec4(0.0f, 0.0f, 0.0f, 0.3f);
    colors[ImGuiCol_TabHovered] = ImVec4(0.5f, 0.6f, 0.7f, 1.0f);
    colors[ImGuiCol_Tab] = ImVec4(0.1f, 0.1f, 0.1f, 1.0f);
    // Dear ImGui 1.86 names: TabActive is the selected tab, TabUnfocused* the dimmed ones.
    colors[ImGuiCol_TabActive] = ImVec4(0.1f, 0.3f, 0.5f, 1.0f);
    colors[ImGuiCol_TabUnfocused] = ImVec4(0.0f, 0.0f, 0.0f, 1.0f);
    colors[ImGuiCol_TabUnfocusedActive] = ImVec4(0.1f, 0.3f, 0.5f, 1.0f);

    float const scaling = ReadSetting(&game::GameSettings::ui_scaling, 1.0f);
    ImGui::GetIO().FontGlobalScale = 0.5f * scaling;
    style.ScaleAllSizes(scaling);
}

float Game::GetUiScaling() {
    if (!ImGui::GetCurrentContext()) return ReadSetting(&game::GameSettings::ui_scaling, 1.0f);
    return 2.0f * ImGui::GetIO().FontGlobalScale;
}

bool Game::ShowHelpTooltip() {
    if (!ImGui::GetCurrentContext()) return false;
    if (!ReadSetting(&game::GameSettings::show_help_tooltips, false)) return false;
    if (ImGui::IsWindowFocused(ImGuiFocusedFlags_AnyWindow)) return false;
    if (!_mouseLook) return false;

    ImGuiViewport const* viewport = ImGui::GetMainViewport();
    ImVec2 position(viewport->WorkPos.x + viewport->WorkSize.x, viewport->WorkPos.y);
    ImGui::SetNextWindowPos(position, ImGuiCond_Always, ImVec2(1.0f, 0.0f));
    ImGui::SetNextWindowBgAlpha(0.5f);
    ImGuiWindowFlags flags = ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_AlwaysAutoResize |
        ImGuiWindowFlags_NoSavedSettings | ImGuiWindowFlags_NoFocusOnAppearing | ImGuiWindowFlags_NoNav;
    ImGui::Begin("Help Tooltips", nullptr, flags);
    ImGui::TextUnformatted("Help Tooltips (Press F1 and uncheck \"Show Help Tooltips\" to disable)");
    ImGui::Separator();
    ImGui::End();
    return true;
}

std::string Game::GetIMC(std::string const& key, std::string const& defaultValue) {
    std::shared_lock lock(_imcMutex);
    auto it = _imcData.find(key);
    if (it == _imcData.end()) return defaultValue;
    return std::string(it->second.data());
}

double Game::GetNumericIMC(std::string const& key, double defaultValue) {
    std::shared_lock lock(_imcMutex);
    auto it = _imcData.find(key);
    if (it == _imcData.end()) return defaultValue;
    return std::strtod(it->second.data(), nullptr);
}

void Game::SetIMC(std::string const& key, std::string const& value) {
    // Writers take the table exclusively, also to update an existing key, so that a
    // reader never sees a value half written. The last byte stays the terminator;
    // strncpy pads the rest with zeros, so a shorter value leaves no tail behind.
    std::unique_lock lock(_imcMutex);
    auto [it, inserted] = _imcData.try_emplace(key);
    if (inserted) it->second.fill('\0');
    std::strncpy(it->second.data(), value.c_str(), imcValueSize - 1);
}

void Game::SetIMC(std::string const& key, double value) {
    SetIMC(key, nerox::String::FromDouble(value, -1));
}

void Game::AssignMonitor(unsigned int id, std::string const& text) {
    std::lock_guard lock(_monitorsMutex);
    _monitors[id] = text;
}

std::string Game::GetMonitor() {
    std::lock_guard lock(_monitorsMutex);
    auto it = _monitors.find(currentMonitorID);
    return it == _monitors.end() ? std::string() : it->second;
}
