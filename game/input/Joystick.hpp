#pragma once
#ifndef GLFW_INCLUDE_NONE
#define GLFW_INCLUDE_NONE
#endif
#include <GLFW/glfw3.h>

#include <string>
#include <utility>
#include <vector>

namespace game::input {

/// One joystick or gamepad as the window reports it: identity, raw axes,
/// buttons and hats, the mapped gamepad state when the device has a standard
/// mapping, per-axis calibration ranges and the button edges of the bindings
/// editor. `Game::_joysticks` holds the connected ones; the raw state is read
/// through `Game::window` and is refreshed by InputUpdate, once per input pass.
class Joystick {
public:
    int id = 0;                             ///< Device number (GLFW_JOYSTICK_1 ...).
    bool connected = false;                 ///< False once the device went away; every reading is then at rest.
    std::string guid;                       ///< Device identity, as the window reports it.
    std::string name;                       ///< Device name.
    bool isGamepad = false;                 ///< Whether the device has a standard gamepad mapping.
    int axesCount = 0;                      ///< Raw axes.
    int buttonsCount = 0;                   ///< Raw buttons.
    int hatsCount = 0;                      ///< Raw hats.
    GLFWgamepadstate gamepadState{};        ///< Mapped gamepad state (15 buttons, 6 axes).
    float const* axes = nullptr;            ///< Raw axes, owned by the window layer.
    unsigned char const* buttons = nullptr; ///< Raw buttons, owned by the window layer.
    unsigned char const* hats = nullptr;    ///< Raw hats, owned by the window layer.
    // Written by the const readers: calibration and edge detection remember
    // what they saw. One input pass reads a device at a time.
    mutable std::vector<float> axisMin;        ///< Calibration: least value seen per raw axis (0, 0: none yet).
    mutable std::vector<float> axisMax;        ///< Calibration: greatest value seen per raw axis.
    mutable std::vector<float> gamepadAxisMin; ///< Calibration: least value seen per gamepad axis.
    mutable std::vector<float> gamepadAxisMax; ///< Calibration: greatest value seen per gamepad axis.
    mutable std::vector<std::pair<unsigned char, unsigned char>>
        buttonEdges; ///< Per raw button: last state, seen flag.
    mutable std::vector<std::pair<unsigned char, unsigned char>> gamepadButtonEdges; ///< The same per gamepad button.

    /// Reads the identity of device id from Game::window and sizes the tables.
    explicit Joystick(int id);

    /// Fetches the raw axes, buttons and hats again, and the gamepad state of a gamepad.
    void InputUpdate();

    /// Raw axis: -1 to 1, or 0 to 1 with unsignedRange; see the calibration rules in the source.
    float GetAxis(int axis, float deadzone, bool calibrate, bool unsignedRange) const;
    /// Whether a raw button is down; false for an unknown button.
    bool GetButton(int button) const;
    /// True once when a raw button goes down; a button held at the first call does not count.
    bool GetButtonBinding(int button) const;
    /// Raw hat bits (GLFW_HAT_*); 0 for an unknown hat.
    unsigned char GetHat(int hat) const;
    /// Mapped gamepad axis, as GetAxis; 0 on a device that is no gamepad.
    float GetGamepadAxis(int axis, float deadzone, bool calibrate, bool unsignedRange) const;
    /// Whether a mapped gamepad button is down; false on a device that is no gamepad.
    bool GetGamepadButton(int button) const;
    /// True once when a mapped gamepad button goes down, as GetButtonBinding.
    bool GetGamepadButtonBinding(int button) const;
    /// Whether guid names this device, without regard to case.
    bool IsSameGUID(std::string const& guid) const;

    /// Marks the device gone: it reads as at rest from now on and its raw pointers are dropped.
    void Disconnect();
};

} // namespace game::input
