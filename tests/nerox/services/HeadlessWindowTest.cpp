// The headless window: the input the tests and the offscreen runs feed it, as the game reads it.
#include "nerox/graphics/HeadlessWindow.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using nerox::graphics::HeadlessWindow;

HeadlessWindow::Joystick MakeGamepad(bool isGamepad = true)
{
    HeadlessWindow::Joystick pad;
    pad.guid = "030000005e040000";
    pad.name = "Test Pad";
    pad.isGamepad = isGamepad;
    pad.axes = {0.0f, 0.0f, 0.0f, 0.0f};
    pad.buttons = {GLFW_RELEASE, GLFW_RELEASE};
    pad.hats = {GLFW_HAT_CENTERED};
    return pad;
}

TEST(HeadlessWindow, KeysAndButtonsAreHeldUntilReleasedAndFireTheirCallbacksInOrder) {
    HeadlessWindow window;
    std::vector<std::string> events;
    auto note = [&](std::string const& what, int a, int b) { events.push_back(what + std::to_string(a) + " " + std::to_string(b)); };
    window.onKey = [&](int key, int, int action, int) { note("key ", key, action); };
    window.onMouseButton = [&](int button, int action, int) { note("mouse ", button, action); };
    window.onChar = [&](unsigned c) { note("char ", c, 0); };
    window.onScroll = [&](double x, double y) { note("scroll ", int(x), int(y)); };
    int const held[][2] = {{GLFW_PRESS, GLFW_PRESS}, {GLFW_REPEAT, GLFW_PRESS}, {GLFW_RELEASE, GLFW_RELEASE}};
    for (auto const& [action, state] : held) {
        window.SetKey(GLFW_KEY_W, action);
        EXPECT_EQ(window.GetKey(GLFW_KEY_W), state) << action;
    }
    window.SetMouseButton(GLFW_MOUSE_BUTTON_RIGHT, GLFW_PRESS);
    EXPECT_EQ(window.GetMouseButton(GLFW_MOUSE_BUTTON_RIGHT), GLFW_PRESS);
    window.TypeChar(0x263A);
    window.Scroll(1.0, -2.0);
    // Codes out of range read as released and are ignored when set.
    for (int code : {-1, GLFW_KEY_LAST + 1}) {
        window.SetKey(code, GLFW_PRESS);
        window.SetMouseButton(code < 0 ? code : GLFW_MOUSE_BUTTON_LAST + 1, GLFW_PRESS);
        EXPECT_EQ(window.GetKey(code), GLFW_RELEASE) << code;
        EXPECT_EQ(window.GetMouseButton(code < 0 ? code : GLFW_MOUSE_BUTTON_LAST + 1), GLFW_RELEASE) << code;
    }
    EXPECT_EQ(events, (std::vector<std::string>{"key 87 1", "key 87 2", "key 87 0", "mouse 1 1", "char 9786 0", "scroll 1 -2"}));
}

TEST(HeadlessWindow, FocusCursorModesSizeAndClipboardAreKept) {
    HeadlessWindow window(640, 480);
    EXPECT_TRUE(window.IsFocused());
    EXPECT_EQ(window.GetInputMode(GLFW_CURSOR), GLFW_CURSOR_NORMAL);
    window.SetFocused(false);
    window.SetInputMode(GLFW_CURSOR, GLFW_CURSOR_DISABLED);
    window.SetCursorPos(12.5, -3.0);
    window.SetSize(100, 50);
    window.SetClipboardText("copied text");
    double x = 0, y = 0;
    window.GetCursorPos(&x, &y);
    window.GetCursorPos(nullptr, nullptr); // null outputs are allowed
    EXPECT_FALSE(window.IsFocused());
    EXPECT_EQ(window.GetInputMode(GLFW_CURSOR), GLFW_CURSOR_DISABLED);
    EXPECT_EQ(std::vector<double>({x, y, double(window.GetWidth()), double(window.GetHeight())}),
              std::vector<double>({12.5, -3.0, 100, 50}));
    EXPECT_EQ(window.GetClipboardText(), "copied text");
}

TEST(HeadlessWindow, JoysticksReportTheirIdentityAndState) {
    HeadlessWindow window;
    window.ConnectJoystick(2, MakeGamepad());
    window.SetJoystickAxis(2, 1, -0.5f);
    window.SetJoystickButton(2, 1, true);
    window.SetJoystickHat(2, 0, GLFW_HAT_UP);
    window.SetGamepadAxis(2, GLFW_GAMEPAD_AXIS_RIGHT_TRIGGER, 1.0f);
    window.SetGamepadButton(2, GLFW_GAMEPAD_BUTTON_A, true);
    EXPECT_TRUE(window.JoystickPresent(2) && window.JoystickIsGamepad(2));
    EXPECT_EQ(std::string(window.GetJoystickName(2)) + " " + window.GetJoystickGUID(2), "Test Pad 030000005e040000");
    int axes = 0, buttons = 0, hats = 0;
    float const axis = window.GetJoystickAxes(2, &axes)[1];
    int const button = window.GetJoystickButtons(2, &buttons)[1], hat = window.GetJoystickHats(2, &hats)[0];
    EXPECT_EQ(std::vector<float>({float(axes), axis, float(buttons), float(button), float(hats), float(hat)}),
              std::vector<float>({4, -0.5f, 2, GLFW_PRESS, 1, GLFW_HAT_UP}));
    GLFWgamepadstate state{};
    ASSERT_TRUE(window.GetGamepadState(2, &state));
    EXPECT_EQ(state.axes[GLFW_GAMEPAD_AXIS_RIGHT_TRIGGER], 1.0f);
    EXPECT_EQ(state.buttons[GLFW_GAMEPAD_BUTTON_A], GLFW_PRESS);
}

TEST(HeadlessWindow, AbsentDevicesAndIndicesAreHarmless) {
    HeadlessWindow window;
    int count = 99;
    EXPECT_TRUE(!window.GetJoystickAxes(0, &count) && !window.GetJoystickName(0) && !window.GetJoystickGUID(0));
    EXPECT_EQ(count, 0);
    GLFWgamepadstate state{};
    state.axes[0] = 0.25f;
    EXPECT_FALSE(window.GetGamepadState(0, &state));
    EXPECT_EQ(state.axes[0], 0.25f) << "state untouched";

    window.ConnectJoystick(0, MakeGamepad(false));
    EXPECT_FALSE(window.GetGamepadState(0, &state)) << "no mapping, no gamepad state";
    window.SetJoystickAxis(0, 4, 1.0f); // beyond the four axes
    window.SetJoystickButton(0, -1, true);
    window.SetGamepadAxis(0, 6, 1.0f);
    window.SetGamepadButton(0, 15, true);
    window.ConnectJoystick(GLFW_JOYSTICK_LAST + 1, MakeGamepad());
    EXPECT_FALSE(window.JoystickPresent(GLFW_JOYSTICK_LAST + 1));
    window.DisconnectJoystick(0);
    window.DisconnectJoystick(0);
    EXPECT_FALSE(window.JoystickPresent(0));
}

} // namespace
