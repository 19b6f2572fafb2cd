// These need a display. Without one they skip; CTest runs them once more under
// a virtual display (xvfb-run), where skipping counts as a failure.
#include "nerox/graphics/GlfwWindow.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

namespace {

using nerox::graphics::GlfwWindow;

TEST(GlfwWindow, OpensWithItsSizeKeepsItsStateAndLivesBesideAnother) {
    if (!std::getenv("DISPLAY") && !std::getenv("WAYLAND_DISPLAY")) GTEST_SKIP() << "no display";
    auto window = std::make_unique<GlfwWindow>("Tessara test", 320, 200, false);
    auto second = std::make_unique<GlfwWindow>("second", 100, 100, false);
    EXPECT_NE(window->GetHandle(), nullptr);
    EXPECT_EQ(window->GetWidth(), 320);
    EXPECT_EQ(window->GetHeight(), 200);
    EXPECT_FALSE(window->ShouldClose());
    window->SetShouldClose(true);
    EXPECT_TRUE(window->ShouldClose());
    window->SetInputMode(GLFW_CURSOR, GLFW_CURSOR_HIDDEN);
    EXPECT_EQ(window->GetInputMode(GLFW_CURSOR), GLFW_CURSOR_HIDDEN);
    // Codes out of range and absent joysticks read as released and absent.
    EXPECT_EQ(window->GetKey(GLFW_KEY_A), GLFW_RELEASE);
    EXPECT_EQ(window->GetKey(-1), GLFW_RELEASE);
    EXPECT_EQ(window->GetMouseButton(GLFW_MOUSE_BUTTON_LAST + 1), GLFW_RELEASE);
    int count = 7;
    EXPECT_FALSE(window->JoystickPresent(GLFW_JOYSTICK_16));
    EXPECT_EQ(window->GetJoystickAxes(GLFW_JOYSTICK_16, &count), nullptr);
    EXPECT_EQ(count, 0);
    window->PollEvents();
    window.reset(); // the first closes before the second
    second->PollEvents();
    EXPECT_FALSE(second->ShouldClose());
}

} // namespace
