#include "nerox/graphics/HeadlessWindow.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using nerox::graphics::HeadlessWindow;

HeadlessWindow::Joystick MakeGamepad() {
    HeadlessWindow::Joystick pad;
    pad.guid = "030000005e040000";
    pad.name = "Test Pad";
    pad.isGamepad = true;
    pad.axes = {0.0f, 0.0f, 0.0f, 0.0f};
    pad.buttons = {GLFW_RELEASE, GLFW_RELEASE};
    pad.hats = {GLFW_HAT_CENTERED};
    return pad;
}

TEST(HeadlessWindow, KeysAndButtonsAreHeldUntilReleasedAndFireTheirCallbacks) {
    HeadlessWindow window;
    std::vector<std::string> events;
    window.onKey = [&](int key, int, int action, int) { events.push_back("key " + std::to_string(key) + " " + std::to_string(action)); };
    window.onMouseButton = [&](int button, int action, int) { events.push_back("mouse " + std::to_string(button) + " " + std::to_string(action)); };
    window.onChar = [&](unsigned c) { events.push_back("char " + std::to_string(c)); };
    window.onScroll = [&](double, double y) { events.push_back("scroll " + std::to_string(static_cast<int>(y))); };

    window.SetKey(GLFW_KEY_W, GLFW_PRESS);
    EXPECT_EQ(window.GetKey(GLFW_KEY_W), GLFW_PRESS);
    window.SetKey(GLFW_KEY_W, GLFW_REPEAT);
    EXPECT_EQ(window.GetKey(GLFW_KEY_W), GLFW_PRESS);
    window.SetKey(GLFW_KEY_W, GLFW_RELEASE);
    EXPECT_EQ(window.GetKey(GLFW_KEY_W), GLFW_RELEASE);
    window.SetMouseButton(GLFW_MOUSE_BUTTON_RIGHT, GLFW_PRESS);
    EXPECT_EQ(window.GetMouseButton(GLFW_MOUSE_BUTTON_RIGHT), GLFW_PRESS);
    window.TypeChar(0x263A);
    window.Scroll(0.0, -2.0);

    EXPECT_EQ(events, (std::vector<std::string>{"key 87 1", "key 87 2", "key 87 0", "mouse 1 1", "char 9786", "scroll -2"}));
}

TEST(HeadlessWindow, CodesOutOfRangeReadAsReleasedAndAreIgnoredWhenSet) {
    HeadlessWindow window;
    int calls = 0;
    window.onKey = [&](int, int, int, int) { ++calls; };
    window.SetKey(-1, GLFW_PRESS);
    window.SetKey(GLFW_KEY_LAST + 1, GLFW_PRESS);
    window.SetMouseButton(GLFW_MOUSE_BUTTON_LAST + 1, GLFW_PRESS);
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(window.GetKey(-1), GLFW_RELEASE);
    EXPECT_EQ(window.GetKey(GLFW_KEY_LAST + 1), GLFW_RELEASE);
    EXPECT_EQ(window.GetMouseButton(-3), GLFW_RELEASE);
    EXPECT_EQ(window.GetMouseButton(GLFW_MOUSE_BUTTON_LAST + 1), GLFW_RELEASE);
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
    EXPECT_FALSE(window.IsFocused());
    EXPECT_EQ(window.GetInputMode(GLFW_CURSOR), GLFW_CURSOR_DISABLED);
    EXPECT_EQ(x, 12.5);
    EXPECT_EQ(y, -3.0);
    EXPECT_EQ(window.GetWidth(), 100);
    EXPECT_EQ(window.GetHeight(), 50);
    EXPECT_EQ(window.GetClipboardText(), "copied text");
    window.GetCursorPos(nullptr, nullptr); // null outputs are allowed
}

TEST(HeadlessWindow, JoysticksReportTheirIdentityAndState) {
    HeadlessWindow window;
    window.ConnectJoystick(2, MakeGamepad());
    window.SetJoystickAxis(2, 1, -0.5f);
    window.SetJoystickButton(2, 1, true);
    window.SetJoystickHat(2, 0, GLFW_HAT_UP);
    window.SetGamepadAxis(2, GLFW_GAMEPAD_AXIS_RIGHT_TRIGGER, 1.0f);
    window.SetGamepadButton(2, GLFW_GAMEPAD_BUTTON_A, true);

    EXPECT_TRUE(window.JoystickPresent(2));
    EXPECT_STREQ(window.GetJoystickName(2), "Test Pad");
    EXPECT_STREQ(window.GetJoystickGUID(2), "030000005e040000");
    EXPECT_TRUE(window.JoystickIsGamepad(2));
    int count = 0;
    float const* axes = window.GetJoystickAxes(2, &count);
    ASSERT_EQ(count, 4);
    EXPECT_EQ(axes[1], -0.5f);
    unsigned char const* buttons = window.GetJoystickButtons(2, &count);
    ASSERT_EQ(count, 2);
    EXPECT_EQ(buttons[1], GLFW_PRESS);
    unsigned char const* hats = window.GetJoystickHats(2, &count);
    ASSERT_EQ(count, 1);
    EXPECT_EQ(hats[0], GLFW_HAT_UP);
    GLFWgamepadstate state{};
    ASSERT_TRUE(window.GetGamepadState(2, &state));
    EXPECT_EQ(state.axes[GLFW_GAMEPAD_AXIS_RIGHT_TRIGGER], 1.0f);
    EXPECT_EQ(state.buttons[GLFW_GAMEPAD_BUTTON_A], GLFW_PRESS);
}

TEST(HeadlessWindow, AbsentDevicesAndIndicesAreHarmless) {
    HeadlessWindow window;
    int count = 99;
    EXPECT_FALSE(window.JoystickPresent(0));
    EXPECT_EQ(window.GetJoystickAxes(0, &count), nullptr);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(window.GetJoystickName(0), nullptr);
    EXPECT_EQ(window.GetJoystickGUID(0), nullptr);
    GLFWgamepadstate state{};
    state.axes[0] = 0.25f;
    EXPECT_FALSE(window.GetGamepadState(0, &state));
    EXPECT_EQ(state.axes[0], 0.25f) << "state untouched";

    HeadlessWindow::Joystick stick = MakeGamepad();
    stick.isGamepad = false;
    window.ConnectJoystick(0, stick);
    EXPECT_FALSE(window.GetGamepadState(0, &state)) << "no mapping, no gamepad state";
    window.SetJoystickAxis(0, 4, 1.0f);  // beyond the four axes
    window.SetJoystickButton(0, -1, true);
    window.SetGamepadAxis(0, 6, 1.0f);
    window.SetGamepadButton(0, 15, true);
    window.ConnectJoystick(GLFW_JOYSTICK_LAST + 1, stick);
    EXPECT_FALSE(window.JoystickPresent(GLFW_JOYSTICK_LAST + 1));

    window.DisconnectJoystick(0);
    window.DisconnectJoystick(0);
    EXPECT_FALSE(window.JoystickPresent(0));
}

} // namespace
