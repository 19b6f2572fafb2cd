// The client side of the sample module, loaded as a GAME_Mod.
//
// A module exports plain C functions whose names are the hooks it wants; the
// game looks them up when it loads the library and skips every hook that is
// missing. Everything here is optional.
//
// It is the player: a first-person body (Player.hpp) that walks with the
// controller's avatar actions (W/A/S/D, Space, Left Shift and the mouse by
// default), whose eye is the renderer's camera. Escape frees the cursor and a
// click in the world takes it again. The world itself comes as client entities
// (their look is registered by the content module).
//
// P asks the server for a probe dropped from 20 km above a point ahead of the
// player, and the camera rides beside it on its way down, where the air makes
// it glow; P again, or the probe at rest for a few seconds, gives the camera
// back to the player.
//
// Aiming at the web screen in play mode points at its page, and the left
// button clicks there (the page's button counts the clicks).
//
// Tab shows the player's pack and a storage box (InventoryWindows.hpp): items
// drag between them, and the server module applies each move by its rules.
#include "InventoryWindows.hpp"
#include "Player.hpp"
#include "Sample.hpp"

#include "game/Game.hpp"
#include "game/entity/ClientSideEntity.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "game/input/Controller.hpp"
#include "game/input/FunctionKeys.hpp"
#include "game/modules/Hooks.hpp"
#include "nerox/graphics/Window.hpp"

#include <glm/gtc/matrix_transform.hpp>
#include <imgui.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <string>
#include <type_traits>

namespace {

using game::input::Controller;

double clientSeconds = 0.0;           // Game time seen by this module's Game_Update.
std::atomic<unsigned long> passes{0}; // Client passes seen (read by the frames, which may run on another thread).
unsigned long frames = 0;             // Frames whose interface this module built.

sample::Player player;         // The one who plays.
sample::Player::Intent intent; // Gathered by the input passes since the last step.
bool mouseWasDown = false;     // The left button, at the last input pass.
bool probeKeyWasDown = false;  // P, at the last input pass.
bool chasing = false;          // The camera rides with the falling probe.
double probeAtRest = 0.0;      // Seconds the chased probe has been still.
double probesAsked = 0.0;      // Probes asked of the server so far.
game::entity::Id chasedProbe;  // The probe the camera rides with, once it has shown up.

/// Where the chase camera rides, from the probe: beside it and a little below,
/// so that the glow trailing above it stands against the sky.
constexpr glm::dvec3 chaseOffset{30.0, -6.0, 12.0};
/// The probe comes down this far ahead of the player (metres).
constexpr double probeAhead = 60.0;

/// Radians of turn per unit of the controller's look actions (a mouse move
/// of the window's height is half a unit).
constexpr double lookSensitivity = 3.0;

/// Puts the player at the start, looking at the sample set.
void PlacePlayer() {
    glm::dvec3 const look = sample::startLookAt - (sample::startFeet + glm::dvec3(0.0, sample::Player::eyeHeight, 0.0));
    player.Place(sample::startFeet, std::atan2(look.z, look.x), std::atan2(look.y, std::hypot(look.x, look.z)));
}

/// The renderer's camera at the player's eye.
void FollowWithCamera() {
    game::graphics::GameRenderer* renderer = Game::renderer;
    if (renderer == nullptr) return;
    glm::dvec3 const eye = player.Eye();
    renderer->cameraPosition = eye;
    renderer->viewMatrix = glm::lookAt(eye, eye + player.Forward(), glm::dvec3(0.0, 1.0, 0.0));
}

/// Asks the server for a probe over the point probeAhead metres before the player.
void AskForProbe() {
    glm::dvec3 const ahead =
        player.feet + probeAhead * glm::normalize(glm::dvec3(std::cos(player.yaw), 0.0, std::sin(player.yaw)));
    Game::SetIMC(sample::probeXKey, ahead.x);
    Game::SetIMC(sample::probeZKey, ahead.z);
    Game::SetIMC(sample::probeRequestsKey, probesAsked += 1.0);
    chasedProbe = {};
}

/// The camera beside the highest probe, looking at the glow above it. Ends the
/// chase once that probe has been still, or none has shown up, for three
/// seconds; keeps the player's camera until the probe shows up.
void ChaseProbe(double dt) {
    using game::entity::ClientSideEntity;
    ClientSideEntity::Ptr probe = chasedProbe.IsSet() ? ClientSideEntity::Get(chasedProbe) : nullptr;
    if (!probe) { // look for it among all entities only until it shows up
        ClientSideEntity::ForEach([&probe](ClientSideEntity::Ptr entity) {
            if (entity->itemType == sample::probeType && (!probe || entity->position.y > probe->position.y))
                probe = std::move(entity);
        });
        if (probe) chasedProbe = probe->GetID();
    }
    game::graphics::GameRenderer* renderer = Game::renderer;
    // Still, or never there (the server could not drop one): back to the player.
    probeAtRest = !probe || glm::length(probe->linearVelocity) < 1.0 ? probeAtRest + dt : 0.0;
    if (probeAtRest > 3.0) chasing = false;
    if (!chasing || !probe || renderer == nullptr) return FollowWithCamera();
    glm::dvec3 eye = probe->position + chaseOffset;
    eye.y = std::max(eye.y, 1.5); // above the ground where it lands
    renderer->cameraPosition = eye;
    renderer->viewMatrix = glm::lookAt(eye, probe->position + glm::dvec3(0.0, 10.0, 0.0), glm::dvec3(0.0, 1.0, 0.0));
}

/// The player's environment: the lowest registered one, as the server's entities have it.
void ChooseEnvironment() {
    game::entity::EnvironmentId chosen = 0;
    for (auto const& [id, function] : Game::_environmentFunctions)
        if (function && (chosen == 0 || id < chosen)) chosen = id;
    Game::parentEnvironmentId = chosen;
}

/// In play mode, a web screen under the aim, near enough, gets the pointer at
/// the aim and the left button's presses and releases; looking away takes the
/// pointer off the page (and lets go of the button there).
void PointAtWebScreen(bool mouseDown) {
    static std::string pointed; // the page the pointer is on; empty for none
    static bool pressed = false;
    std::string const view =
        Game::_inputMode != 0 && Game::currentMonitorID != 0 && Game::currentMonitorDistance <= sample::webScreenReach
        ? Game::GetMonitor()
        : std::string();
    if (view.empty()) {
        if (!pointed.empty()) Game::electronWebview.MouseMove("", 0.0, 0.0);
        pointed.clear();
        pressed = false;
        return;
    }
    double const x = Game::currentMonitorX * sample::webScreenWidth,
                 y = Game::currentMonitorY * sample::webScreenHeight;
    Game::electronWebview.MouseMove(view, x, y);
    pointed = view;
    if (mouseDown != pressed) Game::electronWebview.MouseButton(view, 0, mouseDown ? 1 : 0, x, y);
    pressed = mouseDown;
}

} // namespace

extern "C" {

// Runs once when the library is loaded, before any hook.
void ModuleLoad() {
    std::printf("[sample] client module loaded\n");
}

// Runs once when the library is released.
void ModuleUnload() {
    std::printf("[sample] client module unloaded\n");
}

// Game::Start.
void Game_Start() {
    std::printf("[sample] Game_Start\n");
}

// Game::Ready: the player stands at the start, the camera at its eye.
void Game_Ready() {
    std::printf("[sample] Game_Ready\n");
    ChooseEnvironment(); // fast entities glow in its air
    chasing = false;
    sample::inventory::StartWindows();
    PlacePlayer();
    FollowWithCamera();
}

// Every input pass: Escape frees the cursor, a click in the world takes it
// again, P drops a probe and rides with it (or comes back), Shift+F10 puts the
// player back at the start and F2 lets it fly (the game's function keys); the
// avatar's actions are gathered for the next step.
void Input_Update(double) {
    nerox::graphics::Window* window = Game::window;
    if (game::input::FunctionKeys::respawnRequested.exchange(false)) Game::Synchronize(PlacePlayer);
    player.flying = game::input::FunctionKeys::droneMode.load();
    bool const probeKeyDown = window != nullptr && window->GetKey(GLFW_KEY_P) == GLFW_PRESS;
    if (probeKeyDown && !probeKeyWasDown) {
        if (!chasing) AskForProbe();
        chasing = !chasing;
        probeAtRest = 0.0;
    }
    probeKeyWasDown = probeKeyDown;
    bool const mouseDown = window != nullptr && window->GetMouseButton(GLFW_MOUSE_BUTTON_LEFT) == GLFW_PRESS;
    bool const clicked = mouseDown && !mouseWasDown;
    mouseWasDown = mouseDown;
    // Before a world is loaded the start menu has the pointer.
    bool const inWorld = game::entity::ClientSideEntity::Count() != 0;
    PointAtWebScreen(inWorld && mouseDown);
    if (inWorld && Controller::GetAvatarInventory_Pressed()) sample::inventory::ToggleWindows();
    if (Controller::GetEscape_Pressed() && Game::_inputMode != 0) {
        Game::SetInputMode_Ui();
    } else if (inWorld && clicked && Game::_inputMode == 0 && !sample::inventory::WindowsShown() &&
               !(ImGui::GetCurrentContext() != nullptr && ImGui::GetIO().WantCaptureMouse)) {
        Game::SetInputMode_Play();
    }
    intent.forward = Controller::GetAvatarTranslateForward() - Controller::GetAvatarTranslateBackward();
    intent.right = Controller::GetAvatarTranslateRight() - Controller::GetAvatarTranslateLeft();
    intent.run = Controller::GetAvatarSprint();
    intent.jump = intent.jump || Controller::GetAvatarJump_Pressed();
    intent.yaw += lookSensitivity * Controller::GetAvatarYaw();
    intent.pitch -= lookSensitivity * Controller::GetAvatarPitch(); // the mouse moving up is negative
}

// One client pass, for modules sorted into the "update" list: the player
// moves (after the client entities took their places) and the camera follows.
void Game_Update(double deltaTime) {
    clientSeconds += deltaTime;
    sample::inventory::UpdateWindows();
    ++passes;
    if (!chasing) player.Step(intent, deltaTime); // the player waits while the camera is away
    intent.jump = false;
    intent.yaw = 0.0;
    intent.pitch = 0.0;
    if (chasing)
        ChaseProbe(deltaTime);
    else
        FollowWithCamera();
}

// Each rendered frame, for modules sorted into the "ui" list: a small status
// panel in Dear ImGui, drawn over the frame.
void Renderer_FrameUpdateUi() {
    game::graphics::GameRenderer* renderer = Game::renderer;
    if (renderer == nullptr) return;
    ++frames;
    ImGui::SetNextWindowPos(ImVec2(20.0f, 20.0f), ImGuiCond_FirstUseEver);
    // A status panel only: it never takes the keyboard from the player.
    ImGui::Begin("Tessara", nullptr,
                 ImGuiWindowFlags_AlwaysAutoResize | ImGuiWindowFlags_NoFocusOnAppearing | ImGuiWindowFlags_NoInputs);
    ImGui::Text("Client on %s", renderer->GetDevice().Properties().deviceName);
    ImGui::Text("Ray tracing: %s", renderer->GetDevice().HasRayTracing() ? "available" : "not on this device");
    ImGui::Text("Frame %lu, %lu client passes", frames, passes.load());
    ImGui::Text("World origin %.0f, %.0f, %.0f", renderer->worldOrigin.x, renderer->worldOrigin.y,
                renderer->worldOrigin.z);
    ImGui::Text("Textures %u, hit shaders %zu", renderer->TextureCount(), renderer->renderableHitShaders.size());
    ImGui::End();
    if (!renderer->devTools) return;
    ImGui::SetNextWindowPos(ImVec2(20.0f, 200.0f), ImGuiCond_FirstUseEver);
    ImGui::SetNextWindowSize(ImVec2(520.0f, 220.0f), ImGuiCond_FirstUseEver);
    renderer->UiShowAdvancedPerformanceMetrics();
}

// Game::Stop.
void Game_Stop() {
    sample::inventory::StopWindows();
    std::printf("[sample] Game_Stop after %lu client passes (%.2f s of client time)\n", passes.load(), clientSeconds);
}

// The server's answers: what the inventories hold after the player's moves.
void Client_Receive(void const* data, size_t size) {
    sample::inventory::Receive(data, size);
}

} // extern "C"

static_assert(std::is_same_v<decltype(&Client_Receive), game::modules::ClientReceiveHook>);
