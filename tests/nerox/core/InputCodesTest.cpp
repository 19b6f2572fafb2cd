// Names of keys, mouse buttons and gamepad and joystick inputs, both ways.
#include <gtest/gtest.h>

#include <cctype>
#include <string>

#include "nerox/input/InputCodes.hpp"

namespace {

using nerox::input::code_from_string;
using nerox::input::code_to_string;

struct Case {
    char const* kind;
    int code;
    char const* text;
};

TEST(InputCodes, CodesToNames)
{
    Case const cases[] = {
        {"key", GLFW_KEY_SPACE, "KEY_SPACE"}, {"key", GLFW_KEY_0, "KEY_0"}, {"key", GLFW_KEY_KP_ENTER, "KEY_KP_ENTER"},
        {"key", GLFW_KEY_MENU, "KEY_MENU"}, {"mouse", GLFW_MOUSE_BUTTON_MIDDLE, "MOUSE_BUTTON_MIDDLE"},
        {"gamepad_button", GLFW_GAMEPAD_BUTTON_DPAD_LEFT, "GAMEPAD_BUTTON_DPAD_LEFT"},
        {"gamepad_axis", GLFW_GAMEPAD_AXIS_RIGHT_TRIGGER, "GAMEPAD_AXIS_RIGHT_TRIGGER"},
        {"joystick_button", 17, "BUTTON_17"}, {"joystick_axis", 2, "AXIS_2"}, {"joystick_axis", -1000, "NONE"},
        {"key", -1, "NONE"}, {"key", GLFW_KEY_SPACE + 1, "UNKNOWN_KEY_33"}, // a gap in the numbering
        {"key", GLFW_KEY_LAST + 1, "UNKNOWN_KEY_349"}, {"mouse", GLFW_MOUSE_BUTTON_LAST + 1, "UNKNOWN_MOUSE_8"},
        {"gamepad_button", GLFW_GAMEPAD_BUTTON_LAST + 1, "UNKNOWN_GAMEPAD_BUTTON_15"},
        {"gamepad_axis", GLFW_GAMEPAD_AXIS_LAST + 1, "UNKNOWN_GAMEPAD_AXIS_6"}, {"wheel", 1, "UNKNOWN"},
    };
    for (Case const& c : cases) EXPECT_EQ(code_to_string(c.kind, c.code), c.text) << c.kind << " " << c.code;
}

TEST(InputCodes, NamesReadBackInAnyCaseAndWithoutPrefix)
{
    std::string const kinds[] = {"key", "mouse", "gamepad_button", "gamepad_axis", "joystick_button", "joystick_axis"};
    int const lasts[] = {GLFW_KEY_LAST, GLFW_MOUSE_BUTTON_LAST, GLFW_GAMEPAD_BUTTON_LAST, GLFW_GAMEPAD_AXIS_LAST,
                         40, 40};
    for (size_t k = 0; k < std::size(kinds); ++k) {
        for (int code = 0; code <= lasts[k]; ++code) {
            std::string const name = code_to_string(kinds[k], code);
            if (name.rfind("UNKNOWN", 0) == 0) continue;
            std::string lower = name;
            for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            EXPECT_EQ(code_from_string(kinds[k], name), code) << name;
            EXPECT_EQ(code_from_string(kinds[k], lower), code) << name;
            std::string const bare = lower.substr(kinds[k] == "key" ? 4 : lower.find('_', lower.find('_') + 1) + 1);
            if (kinds[k].rfind("joystick", 0) != 0) {
                EXPECT_EQ(code_from_string(kinds[k], bare), code) << bare;
            }
        }
        EXPECT_EQ(code_from_string(kinds[k], "none"), -1);
    }
}

TEST(InputCodes, TextsToCodes)
{
    Case const cases[] = {
        {"key", GLFW_KEY_1, "1"}, // a digit is its key, not code 1
        {"key", GLFW_KEY_W, "87"}, {"key", GLFW_KEY_LEFT_SHIFT, "Left_Shift"}, {"key", -2, "33"}, // no key has 33
        {"key", -2, "349"}, {"mouse", GLFW_MOUSE_BUTTON_7, "7"}, // the seventh button's name, not code 7
        {"gamepad_button", GLFW_GAMEPAD_BUTTON_DPAD_LEFT, "14"}, {"gamepad_button", -2, "15"},
        {"gamepad_axis", -2, "6"}, {"joystick_button", 3, "3"}, {"joystick_axis", 12, "axis_12"},
        {"joystick_axis", 1000, "1000"}, {"joystick_axis", -2, "1001"}, {"mouse", -2, "KEY_W"},
        {"joystick_button", -2, "BUTTON_"}, {"joystick_button", -2, "-1"}, {"wheel", -2, "UP"}, {"wheel", -2, "NONE"},
    };
    for (Case const& c : cases) EXPECT_EQ(code_from_string(c.kind, c.text), c.code) << c.kind << " " << c.text;
    for (char const* text : {"", "KEY_", "KEY_AA", " W", "W ", "-3", "+3", "99999999999999999999", "KEY_KEY_W",
                             "MOUSE_BUTTON_LEFT", "0x20", "3.0"})
        EXPECT_EQ(code_from_string("key", text), -2) << '"' << text << '"';
}

} // namespace
