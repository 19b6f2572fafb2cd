#include "game/input/Joystick.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>

#include "game/Game.hpp"
#include "nerox/graphics/Window.hpp"

namespace game::input {

namespace {

constexpr int GamepadAxes = GLFW_GAMEPAD_AXIS_LAST + 1;
constexpr int GamepadButtons = GLFW_GAMEPAD_BUTTON_LAST + 1;

/// One axis value through the calibration and dead zone rules. min and max are
/// the axis's remembered range.
///
/// Calibrating: the range grows with each value; the first value (range 0, 0)
/// starts it, and while it is empty the result is 0. The value is mapped from
/// the range to -1..1 (or 0..1 unsigned). A range across 0 applies the dead
/// zone around 0, any other range above its minimum.
/// Not calibrating: the range is the nominal -1..1; an unsigned reading maps
/// -1..1 to 0..1 and counts above -1 + deadzone, a signed one counts beyond
/// the dead zone. Values are not rescaled from the edge of the dead zone.
float Shape(float v, float deadzone, bool calibrate, bool unsignedRange, float& min, float& max) {
    if (calibrate) {
        if (min == 0.0f && max == 0.0f) {
            min = v;
            max = v;
        } else {
            min = std::min(min, v);
            max = std::max(max, v);
        }
        if (min == max) return 0.0f;
        float t = (v - min) / (max - min);
        if (!unsignedRange) {
            t = 2.0f * t - 1.0f;
            if (min < 0.0f && max > 0.0f) return std::fabs(v) > deadzone ? t : 0.0f;
        }
        return v > min + deadzone ? t : 0.0f;
    }
    min = -1.0f;
    max = 1.0f;
    if (unsignedRange) return v > -1.0f + deadzone ? 0.5f * v + 0.5f : 0.0f;
    return std::fabs(v) > deadzone ? v : 0.0f;
}

/// Rising edge of a button through its (last state, seen) pair. The first look
/// only learns the state, so a button held when the caller starts does not count.
bool Edge(bool down, std::pair<unsigned char, unsigned char>& edge) {
    if (!edge.second) {
        edge.first = down;
        edge.second = 1;
        return false;
    }
    bool const rose = down && !edge.first;
    edge.first = down;
    return rose;
}

} // namespace

Joystick::Joystick(int id) : id(id) {
    nerox::graphics::Window* const window = Game::window;
    if (window == nullptr || !window->JoystickPresent(id)) return; // nothing to read: the device stays disconnected
    connected = true;
    char const* const text = window->GetJoystickGUID(id);
    guid = text != nullptr ? text : "";
    char const* const label = window->GetJoystickName(id);
    name = label != nullptr ? label : "";
    isGamepad = window->JoystickIsGamepad(id);
    InputUpdate();
}

void Joystick::InputUpdate() {
    nerox::graphics::Window* const window = Game::window;
    if (!connected || window == nullptr || !window->JoystickPresent(id)) {
        Disconnect();
        return;
    }
    axes = window->GetJoystickAxes(id, &axesCount);
    buttons = window->GetJoystickButtons(id, &buttonsCount);
    hats = window->GetJoystickHats(id, &hatsCount);
    if (axes == nullptr) axesCount = 0;
    if (buttons == nullptr) buttonsCount = 0;
    if (hats == nullptr) hatsCount = 0;
    // A device may report other counts than when it was opened: the tables follow.
    axisMin.resize(static_cast<size_t>(axesCount), 0.0f);
    axisMax.resize(static_cast<size_t>(axesCount), 0.0f);
    gamepadAxisMin.resize(GamepadAxes, 0.0f);
    gamepadAxisMax.resize(GamepadAxes, 0.0f);
    buttonEdges.resize(static_cast<size_t>(buttonsCount), {0, 0});
    gamepadButtonEdges.resize(GamepadButtons, {0, 0});
    if (isGamepad && !window->GetGamepadState(id, &gamepadState)) gamepadState = GLFWgamepadstate{};
}

void Joystick::Disconnect() {
    connected = false;
    axes = nullptr;
    buttons = nullptr;
    hats = nullptr;
    axesCount = 0;
    buttonsCount = 0;
    hatsCount = 0;
    gamepadState = GLFWgamepadstate{};
}

float Joystick::GetAxis(int axis, float deadzone, bool calibrate, bool unsignedRange) const {
    if (!connected || axis < 0 || axis >= axesCount || static_cast<size_t>(axis) >= axisMin.size()) return 0.0f;
    return Shape(axes[axis], deadzone, calibrate, unsignedRange, axisMin[axis], axisMax[axis]);
}

bool Joystick::GetButton(int button) const {
    return connected && button >= 0 && button < buttonsCount && buttons[button] != 0;
}

bool Joystick::GetButtonBinding(int button) const {
    if (button < 0 || static_cast<size_t>(button) >= buttonEdges.size()) return false;
    return Edge(GetButton(button), buttonEdges[button]);
}

unsigned char Joystick::GetHat(int hat) const {
    return connected && hat >= 0 && hat < hatsCount ? hats[hat] : 0;
}

float Joystick::GetGamepadAxis(int axis, float deadzone, bool calibrate, bool unsignedRange) const {
    if (!connected || !isGamepad || axis < 0 || axis >= GamepadAxes || gamepadAxisMin.size() < GamepadAxes) return 0.0f;
    return Shape(gamepadState.axes[axis], deadzone, calibrate, unsignedRange, gamepadAxisMin[axis],
                 gamepadAxisMax[axis]);
}

bool Joystick::GetGamepadButton(int button) const {
    return connected && isGamepad && button >= 0 && button < GamepadButtons && gamepadState.buttons[button] != 0;
}

bool Joystick::GetGamepadButtonBinding(int button) const {
    if (button < 0 || static_cast<size_t>(button) >= gamepadButtonEdges.size()) return false;
    return Edge(GetGamepadButton(button), gamepadButtonEdges[button]);
}

bool Joystick::IsSameGUID(std::string const& other) const {
    return other.size() == guid.size() && std::equal(other.begin(), other.end(), guid.begin(), [](char a, char b) {
               return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
           });
}

} // namespace game::input
