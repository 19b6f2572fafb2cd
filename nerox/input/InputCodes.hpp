#pragma once
#ifndef GLFW_INCLUDE_NONE
#define GLFW_INCLUDE_NONE
#endif
#include <GLFW/glfw3.h>

#include <string>

namespace nerox::input {

/// Kind of a keyboard key code (GLFW_KEY_*).
inline constexpr char const* KindKey = "key";
/// Kind of a mouse button code (GLFW_MOUSE_BUTTON_*).
inline constexpr char const* KindMouse = "mouse";
/// Kind of a mapped gamepad button code (GLFW_GAMEPAD_BUTTON_*).
inline constexpr char const* KindGamepadButton = "gamepad_button";
/// Kind of a mapped gamepad axis code (GLFW_GAMEPAD_AXIS_*).
inline constexpr char const* KindGamepadAxis = "gamepad_axis";
/// Kind of a raw joystick button number.
inline constexpr char const* KindJoystickButton = "joystick_button";
/// Kind of a raw joystick axis number.
inline constexpr char const* KindJoystickAxis = "joystick_axis";

/// The name of a code of a kind, after the GLFW names without their prefix:
/// "KEY_SPACE", "MOUSE_BUTTON_LEFT", "GAMEPAD_BUTTON_A", "GAMEPAD_AXIS_LEFT_X",
/// "BUTTON_3", "AXIS_2". "NONE" for any code below 0; "UNKNOWN_KEY_<n>" (and so
/// on) for a code that has no name in its kind; "UNKNOWN" for an unknown kind.
std::string code_to_string(std::string const& kind, int code);

/// The code of a name, for text files and settings: the names of code_to_string
/// in any case, also without their prefix ("w", "left_shift", "left", "a",
/// "left_x", "3"), or a plain decimal code ("87"). A single digit is the key of
/// that digit, not a code. -1 for "NONE"; -2 when the text names no code of the kind.
int code_from_string(std::string const& kind, std::string const& name);

} // namespace nerox::input
