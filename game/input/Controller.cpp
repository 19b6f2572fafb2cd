// The controller: one record of game actions per input pass, from the keyboard,
// the mouse, the first gamepad and the joysticks the bindings name.
#include "game/input/Controller.hpp"

#include <algorithm>
#include <iterator>
#include <cmath>
#include <mutex>

#include <imgui.h>

#include "game/Game.hpp"
#include "game/GameSettings.hpp"
#include "game/input/Joystick.hpp"
#include "nerox/Assert.hpp"
#include "nerox/Timer.hpp"
#include "nerox/graphics/Window.hpp"
#include "nerox/input/InputCodes.hpp"

namespace game::input {

ControllerState Controller::state;
ControllerState Controller::previousState;
bool Controller::vehicleGamepadLookMode = true;
bool Controller::_isSprinting = false;

namespace {

using InputBinding = Controller::InputBinding;

/// The gamepad's triggers, which rest at -1 and read as 0 to 1.
constexpr int FirstTriggerAxis = 4;
/// The gamepad button that opens the menu like Escape (start).
constexpr int MenuButton = 7;

bool ImGuiWantsKeyboard() {
    return ImGui::GetCurrentContext() != nullptr && ImGui::GetIO().WantCaptureKeyboard;
}

bool ImGuiWantsMouse() {
    return ImGui::GetCurrentContext() != nullptr && ImGui::GetIO().WantCaptureMouse;
}

bool ImGuiWindowFocused() {
    return ImGui::GetCurrentContext() != nullptr && ImGui::IsWindowFocused(ImGuiFocusedFlags_AnyWindow);
}

bool KeyDown(int key) {
    return Game::window != nullptr && key >= 0 && Game::window->GetKey(key) != GLFW_RELEASE;
}

// The deadzones are read during InputUpdate, which holds the settings' lock.
float GamepadDeadzone() {
    return Game::settings ? Game::settings->input_gamepad_axis_deadzone : 0.1f;
}

float JoystickDeadzone() {
    return Game::settings ? Game::settings->input_joystick_axis_deadzone : 0.1f;
}

/// Keyboard and mouse: keys unless Dear ImGui wants the keyboard, mouse buttons
/// only while the cursor is captured and Dear ImGui does not want the mouse.
double KeyboardAndMouse(InputBinding const& binding) {
    nerox::graphics::Window* const window = Game::window;
    if (window == nullptr) return 0.0;
    double sum = 0.0;
    if (binding.key >= 0 && !ImGuiWantsKeyboard()) sum += window->GetKey(binding.key) != GLFW_RELEASE ? 1.0 : 0.0;
    if (binding.mouseButton >= 0 && !ImGuiWantsMouse() && Game::_mouseLook)
        sum += window->GetMouseButton(binding.mouseButton) != GLFW_RELEASE ? 1.0 : 0.0;
    return sum;
}

/// An axis read as 0 to 1, turned round for direction -1.
double UnsignedAxis(double value, int direction) {
    return direction == -1 ? 1.0 - value : value;
}

/// Gamepad (first record) and joystick (second record). asBool reads every
/// axis as 0 to 1, as the on/off actions do; otherwise unsignedAxis does so for
/// the gamepad's and the joystick's axes, and a signed gamepad reading of a
/// trigger is 0 to 1 all the same.
double Devices(std::shared_ptr<Joystick> const& gamepad, InputBinding const& binding, bool asBool, bool unsignedAxis) {
    double sum = 0.0;
    InputBinding::Joystick const& pad = binding.joysticks[0];
    if (gamepad && (pad.button >= 0 || pad.axis >= 0)) {
        if (pad.axis < 0) {
            sum += gamepad->GetGamepadButton(pad.button) ? 1.0 : 0.0;
        } else {
            float const deadzone = GamepadDeadzone();
            if (asBool || unsignedAxis)
                sum += UnsignedAxis(gamepad->GetGamepadAxis(pad.axis, deadzone, false, true), pad.axisDirection);
            else
                sum += pad.axisDirection *
                    gamepad->GetGamepadAxis(pad.axis, deadzone, false, pad.axis >= FirstTriggerAxis);
            if (pad.button >= 0) sum += gamepad->GetGamepadButton(pad.button) ? 1.0 : 0.0;
        }
    }
    InputBinding::Joystick const& joy = binding.joysticks[1];
    if (joy.button >= 0 || joy.axis >= 0) {
        if (std::shared_ptr<Joystick> const device = Game::GetJoystick(joy.name, joy.id)) {
            if (joy.axis < 0) {
                sum += device->GetButton(joy.button) ? 1.0 : 0.0;
            } else {
                float const deadzone = JoystickDeadzone();
                if (asBool || unsignedAxis)
                    sum += UnsignedAxis(device->GetAxis(joy.axis, deadzone, false, true), joy.axisDirection);
                else
                    sum += joy.axisDirection * device->GetAxis(joy.axis, deadzone, false, false);
                if (joy.button >= 0) sum += device->GetButton(joy.button) ? 1.0 : 0.0;
            }
        }
    }
    return sum;
}

/// The time rules of GetX_Hold over one action's edges; see Controller.
bool Hold(bool pressed, bool released, bool down, double millisecondsMin, double millisecondsMax, nerox::Timer& timer,
          int& counter) {
    NEROX_ASSERT((millisecondsMin == 0) != (millisecondsMax == 0));
    if (pressed) {
        timer.Start();
        counter = 0;
        return false;
    }
    if (released && millisecondsMax != 0) {
        if (timer.IsRunning() && counter >= 3 && timer.GetElapsedMilliseconds() > millisecondsMax) {
            timer.Stop();
            return false;
        }
        timer.Stop();
        counter = 0;
        return true;
    }
    if (down) {
        if (millisecondsMin == 0) {
            ++counter;
            return false;
        }
        if (timer.IsRunning() && counter >= 3 && timer.GetElapsedMilliseconds() >= millisecondsMin) {
            timer.Stop();
            return true;
        }
        ++counter;
        return false;
    }
    timer.Stop();
    return false;
}

/// Clamps a 0-to-1 action; on/off actions are left as they are.
void ClampAction(bool&) { }
void ClampAction(double& value) {
    value = std::clamp(value, 0.0, 1.0);
}

/// Sums of the look bindings of the stick: pitch and yaw by deltaTime, the stick's
/// reading squared above 0, yaw 1.5 times faster.
void StickLook(std::shared_ptr<Joystick> const& gamepad, GameSettings const& settings, double deltaTime,
               ControllerState& next) {
    struct Look {
        InputBinding const* binding;
        double* target;
        double sign;
        double rate;
    };
    Look const looks[] = {
        {&settings.input_binding_avatar_pitch_down, &next.AvatarPitch, -1.0, 1.0},
        {&settings.input_binding_avatar_pitch_up, &next.AvatarPitch, 1.0, 1.0},
        {&settings.input_binding_avatar_yaw_left, &next.AvatarYaw, -1.0, 1.5},
        {&settings.input_binding_avatar_yaw_right, &next.AvatarYaw, 1.0, 1.5},
    };
    float const deadzone = GamepadDeadzone();
    for (Look const& look : looks) {
        InputBinding::Joystick const& pad = look.binding->joysticks[0];
        if (pad.axis < 0) {
            double const pressed = pad.button >= 0 && gamepad->GetGamepadButton(pad.button) ? 1.0 : 0.0;
            *look.target += look.sign * deltaTime * pressed;
            continue;
        }
        double v = pad.axisDirection * gamepad->GetGamepadAxis(pad.axis, deadzone, false, false);
        if (v > 0.0) {
            v *= v;
            *look.target += look.sign * look.rate * deltaTime * v;
        }
    }
}

/// Where an action's keyboard and mouse binding counts; see TESSARA_CONTROLLER_ACTIONS.
enum class Keys { None, Inventory, Play };
/// Where an action's gamepad and joystick binding counts; see TESSARA_CONTROLLER_ACTIONS.
enum class Pad { None, Any, AnyTrigger, Avatar, AvatarTrigger, AvatarJoystick, Vehicle, VehicleTrigger, VehicleSteer };
/// Which gamepad record a pad rule reads: the first gamepad, none (the named
/// joystick only), or the gamepad unless its stick turns the view.
enum class PadDevice { Gamepad, JoystickOnly, Steering };

struct PadRule {
    int mode;          ///< The input mode it counts in; -1 for all; 0 for none.
    bool unsignedAxis; ///< Axes read as 0 to 1 (double actions only).
    PadDevice device;
};

/// The rule of each Pad, in the enum's order.
constexpr PadRule PadRules[] = {
    {0, false, PadDevice::JoystickOnly}, // None: the gamepad and joystick do not count
    {-1, false, PadDevice::Gamepad},     // Any
    {-1, true, PadDevice::Gamepad},      // AnyTrigger
    {1, false, PadDevice::Gamepad},      // Avatar
    {1, true, PadDevice::Gamepad},       // AvatarTrigger
    {1, false, PadDevice::JoystickOnly}, // AvatarJoystick
    {2, false, PadDevice::Gamepad},      // Vehicle
    {2, true, PadDevice::Gamepad},       // VehicleTrigger
    {2, false, PadDevice::Steering},     // VehicleSteer
};
static_assert(std::size(PadRules) == static_cast<size_t>(Pad::VehicleSteer) + 1);

/// One action of the record with its binding and rules; exactly one of flag
/// and amount is set.
struct ActionRow {
    bool ControllerState::*flag;
    double ControllerState::*amount;
    Keys keys;
    Pad pad;
    InputBinding GameSettings::*binding;
};

constexpr ActionRow Row(bool ControllerState::*flag, Keys keys, Pad pad,
                        InputBinding GameSettings::*binding = nullptr) {
    return {flag, nullptr, keys, pad, binding};
}

constexpr ActionRow Row(double ControllerState::*amount, Keys keys, Pad pad,
                        InputBinding GameSettings::*binding = nullptr) {
    return {nullptr, amount, keys, pad, binding};
}

#define TESSARA_CONTROLLER_ROW(type, name, keys, pad, ...)                                                             \
    Row(&ControllerState::name, Keys::keys, Pad::pad __VA_OPT__(, &GameSettings::input_binding_##__VA_ARGS__)),
ActionRow const ActionRows[] = {
    TESSARA_CONTROLLER_ACTIONS(TESSARA_CONTROLLER_ROW)
        Row(&ControllerState::VehicleGamepadLookToggle, Keys::Play, Pad::Vehicle,
            &GameSettings::input_binding_vehicle_gamepad_look_toggle),
};
#undef TESSARA_CONTROLLER_ROW

std::shared_ptr<Joystick> const NoJoystick;

} // namespace

template <> void Controller::InputBindingState<bool>(bool& out, InputBinding const& binding) {
    out = out || KeyboardAndMouse(binding) != 0.0;
}

template <> void Controller::InputBindingState<double>(double& out, InputBinding const& binding) {
    out += KeyboardAndMouse(binding);
}

template <>
void Controller::InputBindingState<bool>(std::shared_ptr<Joystick> const& gamepad, bool& out,
                                         InputBinding const& binding) {
    out = out || Devices(gamepad, binding, true, true) != 0.0;
}

template <>
void Controller::InputBindingState<double>(std::shared_ptr<Joystick> const& gamepad, double& out,
                                           InputBinding const& binding, bool unsignedAxis) {
    out += Devices(gamepad, binding, false, unsignedAxis);
}

void Controller::InputUpdate(double deltaTime) {
    ControllerState next;
    nerox::graphics::Window* const window = Game::window;
    GameSettings* const settings = Game::settings.get();
    // The whole pass reads the bindings (joystick names among them) under the
    // settings' lock, so that a reload cannot change them halfway.
    std::unique_lock<std::mutex> settingsLock;
    if (settings != nullptr) settingsLock = std::unique_lock<std::mutex>(settings->GetMutex());

    // Escape and chat are read straight from the keys: a text field that has
    // the keyboard must still be left with Escape.
    next.Escape = KeyDown(GLFW_KEY_ESCAPE);
    if (settings != nullptr) next.InputChat = KeyDown(settings->input_binding_input_chat.key);

    if (settings != nullptr) {
        GameSettings const& s = *settings;
        if (Game::_inputMode != 0 && Game::_mouseLook && window != nullptr) {
            double x = 0.0;
            double y = 0.0;
            window->GetCursorPos(&x, &y);
            window->SetCursorPos(0.0, 0.0);
            double const height = window->GetHeight() > 0 ? window->GetHeight() : 1.0;
            next.AvatarYaw += 0.5 * x / height;
            if (s.avatar_mouselook_invert_y)
                next.AvatarPitch -= 0.5 * y / height;
            else
                next.AvatarPitch += 0.5 * y / height;
        }

        std::shared_ptr<Joystick> const gamepad = Game::GetFirstGamepad();
        if (gamepad && gamepad->GetGamepadButton(MenuButton)) next.Escape = true;

        bool const inventoryKeys = Game::_inputMode != 0;
        bool const playKeys = inventoryKeys && !ImGuiWindowFocused();
        for (ActionRow const& row : ActionRows) {
            if (row.binding == nullptr) continue;
            InputBinding const& binding = s.*row.binding;
            bool const keys = row.keys == Keys::Inventory ? inventoryKeys : row.keys == Keys::Play && playKeys;
            PadRule const pad = PadRules[static_cast<size_t>(row.pad)];
            bool const padded = pad.mode < 0 || (pad.mode != 0 && pad.mode == Game::_inputMode);
            bool const withGamepad =
                pad.device == PadDevice::Gamepad || (pad.device == PadDevice::Steering && !vehicleGamepadLookMode);
            std::shared_ptr<Joystick> const& device = withGamepad ? gamepad : NoJoystick;
            if (row.flag != nullptr) {
                if (keys) InputBindingState<bool>(next.*row.flag, binding);
                if (padded) InputBindingState<bool>(device, next.*row.flag, binding);
            } else {
                if (keys) InputBindingState<double>(next.*row.amount, binding);
                if (padded) InputBindingState<double>(device, next.*row.amount, binding, pad.unsignedAxis);
            }
        }

        if (gamepad && (Game::_inputMode == 1 || (Game::_inputMode == 2 && vehicleGamepadLookMode)))
            StickLook(gamepad, s, deltaTime, next);

        if (gamepad && Game::_inputMode == 1) {
            InputBinding::Joystick const& sprint = s.input_binding_avatar_sprint.joysticks[0];
            if (sprint.axis >= 0) {
                double const reading =
                    sprint.axisDirection * gamepad->GetGamepadAxis(sprint.axis, GamepadDeadzone(), false, true);
                next.AvatarSprint = reading + (next.AvatarSprint ? 1.0 : 0.0) != 0.0;
            } else if (sprint.button >= 0) {
                double const moving = std::fabs(next.AvatarTranslateForward) + std::fabs(next.AvatarTranslateBackward) +
                    std::fabs(next.AvatarTranslateRight) + std::fabs(next.AvatarTranslateLeft);
                if (moving < 0.1) _isSprinting = false;
                bool const clicked = gamepad->GetGamepadButton(sprint.button);
                if (clicked) _isSprinting = true;
                next.AvatarSprint = next.AvatarSprint || clicked || _isSprinting;
            }
        }
    }

    // Every 0-to-1 action is clamped; the look stays as it is.
    double const pitch = next.AvatarPitch;
    double const yaw = next.AvatarYaw;
#define TESSARA_CONTROLLER_CLAMP(type, name, ...) ClampAction(next.name);
    TESSARA_CONTROLLER_ACTIONS(TESSARA_CONTROLLER_CLAMP)
#undef TESSARA_CONTROLLER_CLAMP
    next.AvatarPitch = pitch;
    next.AvatarYaw = yaw;

    previousState = state;
    state = next;
    if (state.VehicleGamepadLookToggle && !previousState.VehicleGamepadLookToggle)
        vehicleGamepadLookMode = !vehicleGamepadLookMode;
}

std::string Controller::BindingStr(InputBinding const& binding) {
    using nerox::input::code_to_string;
    std::string text;
    auto add = [&text](std::string const& part) {
        if (!text.empty()) text += " / ";
        text += part;
    };
    if (binding.key >= 0) add(code_to_string(nerox::input::KindKey, binding.key));
    if (binding.mouseButton >= 0) add(code_to_string(nerox::input::KindMouse, binding.mouseButton));
    for (int record = 0; record < 2; ++record) {
        InputBinding::Joystick const& device = binding.joysticks[record];
        std::string part;
        if (device.axis >= 0) {
            part = code_to_string(record == 0 ? nerox::input::KindGamepadAxis : nerox::input::KindJoystickAxis,
                                  device.axis);
            part += device.axisDirection < 0 ? "-" : "+";
        }
        if (device.button >= 0) {
            if (!part.empty()) part += " + ";
            part += code_to_string(record == 0 ? nerox::input::KindGamepadButton : nerox::input::KindJoystickButton,
                                   device.button);
        }
        if (part.empty()) continue;
        if (record == 1 && !device.name.empty())
            part = device.name + (device.id != 0 ? " #" + std::to_string(device.id + 1) : "") + ": " + part;
        add(part);
    }
    return text.empty() ? "NONE" : text;
}

void Controller::ForEachAction(std::function<void(char const* name, double value, double previous)> const& visit) {
#define TESSARA_CONTROLLER_VISIT(type, name, ...)                                                                      \
    visit(#name, static_cast<double>(state.name), static_cast<double>(previousState.name));
    TESSARA_CONTROLLER_ACTIONS(TESSARA_CONTROLLER_VISIT)
#undef TESSARA_CONTROLLER_VISIT
    visit("VehicleGamepadLookToggle", state.VehicleGamepadLookToggle ? 1.0 : 0.0,
          previousState.VehicleGamepadLookToggle ? 1.0 : 0.0);
}

void Controller::Reset() {
    state = ControllerState();
    previousState = ControllerState();
    vehicleGamepadLookMode = true;
    _isSprinting = false;
}

// The six accessors of every action. Each _Hold has its own timer and counter.
#define TESSARA_CONTROLLER_DEFINE(type, name, ...)                                                                     \
    type Controller::Get##name() {                                                                                     \
        return state.name;                                                                                             \
    }                                                                                                                  \
    bool Controller::Get##name##_Pressed() {                                                                           \
        return state.name != 0 && previousState.name == 0;                                                             \
    }                                                                                                                  \
    bool Controller::Get##name##_Released() {                                                                          \
        return state.name == 0 && previousState.name != 0;                                                             \
    }                                                                                                                  \
    std::conditional_t<std::is_same_v<type, bool>, int, double> Controller::Get##name##_Delta() {                      \
        using Delta = std::conditional_t<std::is_same_v<type, bool>, int, double>;                                     \
        return static_cast<Delta>(state.name) - static_cast<Delta>(previousState.name);                                \
    }                                                                                                                  \
    bool Controller::Get##name##_Hold(double millisecondsMin, double millisecondsMax) {                                \
        static nerox::Timer holdTimer;                                                                                 \
        static int holdCounter = 0;                                                                                    \
        return Hold(Get##name##_Pressed(), Get##name##_Released(), state.name != 0, millisecondsMin, millisecondsMax,  \
                    holdTimer, holdCounter);                                                                           \
    }                                                                                                                  \
    bool Controller::Get##name##_HoldOrToggle(double milliseconds) {                                                   \
        if (Get##name##_Hold(0, milliseconds)) return Get##name##_Pressed();                                           \
        if (Get##name##_Released()) return true;                                                                       \
        return Get##name##_Pressed();                                                                                  \
    }
TESSARA_CONTROLLER_ACTIONS(TESSARA_CONTROLLER_DEFINE)
#undef TESSARA_CONTROLLER_DEFINE

} // namespace game::input
