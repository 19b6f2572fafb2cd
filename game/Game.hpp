#pragma once
#include "game/Config.hpp"
#include "game/ElectronWebview.hpp"
#include "game/GameSettings.hpp"
#include "game/entity/ConvexMeshCollider.hpp"
#include "game/entity/Id.hpp"
#include "game/physics/DebugRecords.hpp"
#include "game/physics/EnvironmentInfo.hpp"
#include "nerox/FPSCounter.hpp"
#include "nerox/SharedMutex.hpp"

#include <glm/glm.hpp>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace nerox::graphics {
class Window;
}
namespace nerox::audio {
class Studio;
}
namespace game::graphics {
class GameRenderer;
}
namespace game::audio {
class EnvironmentAudio;
}
namespace game::input {
class Joystick;
}
namespace game::graphics::ui {
class InventoryUi;
}
namespace game {
struct Item;
}

/// The root of the game library: static state and the entry points that the host
/// calls from its own loops. Never instantiated. The host fills `window`,
/// `renderer`, `audio`, `settings` and `_mods`, loads its modules, then calls
/// `Start`, `Ready`, its loops (`Update`, `ClientUpdate`, `ServerUpdate`, the
/// input passes) while `isActive`, and `Stop`. Any of `window`, `renderer` and
/// `audio` may be null (a headless server); the steps that need them are skipped.
class Game {
public:
    Game() = delete;

    using PhysicsLineDebug = game::physics::DebugLine;         ///< One debug line of the physics step.
    using PhysicsColliderDebug = game::physics::DebugCollider; ///< One collider of the step, for debug drawing.

    // Lifecycle and environment.
    static std::atomic<bool> isActive;                   ///< True while the game runs; `Quit` clears it.
    static std::unique_ptr<game::GameSettings> settings; ///< The user's settings, set by the host.
    static game::graphics::GameRenderer* renderer;       ///< The renderer, or null when headless.
    static nerox::graphics::Window* window;              ///< The window, or null when headless.
    static nerox::audio::Studio* audio;                  ///< The audio studio, or null when silent.
    static std::unique_ptr<game::audio::EnvironmentAudio> environmentAudio; ///< Created by Start, destroyed by Stop.
    static game::Config config;              ///< Game-wide YAML configuration; Stop clears it.
    static std::vector<std::string> _mods;   ///< Content modules that Start loads.
    static std::string _current_world;       ///< Name of the loaded world.
    static int32_t _mode;                    ///< 0 creative, 1 adventure, else survival.
    static bool _is_server;                  ///< True in the process that runs the server side.
    static uint64_t offlineSteamId;          ///< User id for play without the Steam client.
    static std::string offlineSteamUsername; ///< User name for `offlineSteamId`.

    // World time.
    static double timestamp;  ///< Shared game clock in seconds, written by each server tick.
    static double timeOffset; ///< Added to the system clock to form `timestamp`.
    static bool timeActive;   ///< While false, `timestamp` stands still.

    // User state.
    static uint8_t _inputMode;                                               ///< 0 interface, 1 play, 2 station.
    static bool _mouseLook;                                                  ///< Cursor captured, mouse turns the view.
    static bool uiVisible;                                                   ///< Whether the overlay is drawn.
    static bool settingsWindowOpen;                                          ///< Settings window open.
    static bool adminWindowOpen;                                             ///< Admin window open.
    static std::map<int, std::shared_ptr<game::input::Joystick>> _joysticks; ///< Connected joysticks by device number.
    /// The local player's inventory window, set by the module that shows it; Stop resets it.
    static std::shared_ptr<game::graphics::ui::InventoryUi> userInventory;
    /// The item the player holds in hand, or null; Stop resets it.
    static std::shared_ptr<game::Item> activeItem;

    // Environment references.
    static game::entity::EnvironmentId parentEnvironmentId;   ///< Environment of the local player.
    static game::entity::EnvironmentId relativeEnvironmentId; ///< Environment the view is relative to.
    static bool environmentIsLoaded;                          ///< Set by the module that loads the environment.
    /// The answer functions of the environments, registered by content modules.
    static std::unordered_map<game::entity::EnvironmentId, game::physics::EnvironmentFunction> _environmentFunctions;
    static glm::dmat4 backgroundTransform; ///< Transform of the background.

    // Measurement and debugging.
    static nerox::FPSCounter mainRenderingFramerate; ///< Render loop; `Update` reads its delta time.
    static nerox::FPSCounter serverFramerate;        ///< Server loop.
    static nerox::FPSCounter inputFramerate;         ///< Input loop.
    static nerox::FPSCounter gameFramerate;          ///< Client game loop.
    static bool serverSideEntityPerformanceMetrics;  ///< Switches ServerUpdate to its measuring branch.
    static std::unordered_map<game::entity::Id, double>
        _serverSideEntityPerformance_timers; ///< Seconds this tick, per vehicle.
    static std::unordered_map<game::entity::Id, double>
        serverSideEntityPerformance_avg_time;                    ///< Smoothed seconds per tick, per vehicle.
    static double serverSideSyncAvgTime;                         ///< Smoothed synchronisation time of the server step.
    static double serverSidePhysicsAvgTime;                      ///< Smoothed seconds of the server physics step.
    static bool debugServerSidePhysics;                          ///< Server physics collects debug shapes.
    static bool debugClientSidePhysics;                          ///< Client physics debug drawing.
    static std::vector<PhysicsLineDebug> physicsDebugLines_back; ///< Filled by the physics step.
    static std::vector<PhysicsLineDebug> physicsDebugLines_staging;         ///< Handed over under `physicsDebugMutex`.
    static std::vector<PhysicsLineDebug> physicsDebugLines_front;           ///< Drawn by the renderer.
    static std::vector<PhysicsColliderDebug> physicsDebugColliders_back;    ///< Filled by the physics step.
    static std::vector<PhysicsColliderDebug> physicsDebugColliders_staging; ///< Handed over under `physicsDebugMutex`.
    static std::vector<PhysicsColliderDebug> physicsDebugColliders_front;   ///< Drawn by the renderer.
    static std::atomic<bool> physicsDebugCollidersUpdated;                  ///< New data stands in the staging buffers.
    static std::mutex physicsDebugMutex;        ///< Guards the staging buffers and the flag.
    static int32_t debugGizmoOp;                ///< Operation of the debug entity gizmo; 0 none.
    static game::entity::Id debugGizmoEntityId; ///< Entity under the gizmo.
    static glm::dmat4 debugGizmoTransform;      ///< Transform under the gizmo.
    static float testSlider[5];                 ///< Developer test sliders.

    // Inter-module channel: short texts by key, written and read by hooks on any thread.
    static constexpr size_t imcValueSize = 4096; ///< Bytes per value, terminator included.
    static std::unordered_map<std::string, std::array<char, imcValueSize>> _imcData; ///< Values by key.
    static nerox::SharedMutex _imcMutex;                                             ///< Guards `_imcData`.

    // Monitors: in-world displays and the text each shows.
    static std::unordered_map<uint32_t, std::string> _monitors; ///< Text by monitor id; 0 is the empty text.
    static std::mutex _monitorsMutex;                           ///< Guards `_monitors`.
    static uint32_t currentMonitorID;                           ///< Monitor the player aims at; 0 none.
    static double currentMonitorX;                              ///< Aim point on that monitor, horizontal.
    static double currentMonitorY;                              ///< Aim point on that monitor, vertical.
    static double currentMonitorDistance;                       ///< Distance to that monitor.

    static game::ElectronWebview electronWebview; ///< Web pages on in-game screens; modules run its threads.

    // Work handed to the client side.
    static std::vector<std::function<void()>> _syncQueue; ///< Functions for the next `Update`.
    static std::mutex _syncMutex;                         ///< Guards `_syncQueue`.

    /// Start sequence: environment audio, Game_Start, rendering, content modules.
    static void Start();
    /// Prints "Starting game..." and calls Game_Ready of the modules.
    static void Ready();
    /// Stop sequence: gives all run state its initial value back.
    static void Stop();
    /// One client pass: queued Synchronize work, audio, the client entities'
    /// Update and PhysicsUpdate, Game_Update of the modules, the entities'
    /// AfterUpdate. The argument is not used: the pass smooths the render
    /// loop's delta time.
    static void Update(double ignored);
    /// Calls Game_ClientUpdate of all modules.
    static void ClientUpdate();
    /// One server tick. `physicsArgument` is handed to the physics step unchanged.
    static void ServerUpdate(double deltaTime, int physicsArgument);
    /// One input pass: samples the controller, reads the function keys
    /// (input::FunctionKeys), then Input_Update of the modules.
    static void InputUpdate(double deltaTime);
    /// Input pass in play mode: the tool in hand, then Input_Update_Play.
    static void InputUpdate_Play(double deltaTime);
    /// Input pass in station mode: Input_Update_Station.
    static void InputUpdate_Station(double deltaTime);
    /// Queues a function for the next `Update`, from any thread. It must not call Synchronize.
    static void Synchronize(std::function<void()> function);
    /// Ends the run: frees the cursor, clears `isActive`, empties the options table.
    static void Quit();
    /// Does nothing.
    static void Pause();
    /// Opens devices the window newly reports, marks gone ones disconnected and
    /// drops them, and refreshes the others (InputUpdate). The host calls it once
    /// per input pass, before InputUpdate; without a window it does nothing.
    static void UpdateJoysticks();
    /// The first connected device, by device number, that is no gamepad and has more than one axis; or null.
    static std::shared_ptr<game::input::Joystick> GetFirstJoystick();
    /// The first connected gamepad, by device number; or null.
    static std::shared_ptr<game::input::Joystick> GetFirstGamepad();
    /// The index-th device that qualifies as GetFirstJoystick's; or null.
    static std::shared_ptr<game::input::Joystick> GetJoystick(int index);
    /// The index-th connected device of this identity (gamepads included); with an empty guid, as GetJoystick(index).
    static std::shared_ptr<game::input::Joystick> GetJoystick(std::string const& guid, int index);
    /// The index-th connected gamepad of this identity; an empty guid matches every gamepad.
    static std::shared_ptr<game::input::Joystick> GetGamepad(std::string const& guid, int index);
    /// Same as SetInputMode_Play.
    static void Play();
    /// Interface mode: frees the cursor.
    static void SetInputMode_Ui();
    /// Play mode: captures the cursor if the window has the focus.
    static void SetInputMode_Play();
    /// Station mode: captures the cursor if the window has the focus.
    static void SetInputMode_Station();
    /// Captures or frees the cursor; capturing needs a focused window.
    static void SetMouseLook(bool on);
    /// Adds the interface fonts to Dear ImGui's atlas: the game's, then the
    /// inventory windows' (InventoryUi::LoadFonts).
    static void LoadFonts();
    /// Writes the game's fixed style into Dear ImGui's style.
    static void SetupUiStyle();
    /// The current interface scale.
    static float GetUiScaling();
    /// Draws the head of the help-tooltip window; false (nothing drawn) when it should not show.
    static bool ShowHelpTooltip();

    /// The channel's text, or `defaultValue` if the key was never written.
    static std::string GetIMC(std::string const& key, std::string const& defaultValue);
    /// The channel's text as a number (0 for text that is no number), or `defaultValue` if never written.
    static double GetNumericIMC(std::string const& key, double defaultValue);
    /// Writes a channel; texts longer than 4095 bytes are cut there.
    static void SetIMC(std::string const& key, std::string const& value);
    /// Writes a number as text.
    static void SetIMC(std::string const& key, double value);
    /// Creates or replaces the text of a monitor.
    static void AssignMonitor(unsigned int id, std::string const& text);
    /// The text of the current monitor; empty if it has none.
    static std::string GetMonitor();
};
