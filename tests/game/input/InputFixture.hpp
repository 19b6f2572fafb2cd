#pragma once
// Input tests run against a headless window: keys, buttons, the cursor and
// plugged-in devices are set on it, then the input pass reads them.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "game/Game.hpp"
#include "game/GameSettings.hpp"
#include "game/input/Controller.hpp"
#include "game/input/Joystick.hpp"
#include "nerox/graphics/HeadlessWindow.hpp"
#include "support/TempDir.hpp"

namespace inputtest {

using nerox::graphics::HeadlessWindow;

/// A standard gamepad at rest: sticks centred, triggers at -1.
inline HeadlessWindow::Joystick Gamepad(std::string const& guid = "03000000de280000ff11000001000000",
                                        std::string const& name = "Test Pad")
{
    HeadlessWindow::Joystick pad;
    pad.guid = guid;
    pad.name = name;
    pad.isGamepad = true;
    pad.axes = {0, 0, 0, 0, -1, -1};
    pad.buttons.assign(15, GLFW_RELEASE);
    pad.hats = {GLFW_HAT_CENTERED};
    pad.gamepad.axes[GLFW_GAMEPAD_AXIS_LEFT_TRIGGER] = -1.0f;
    pad.gamepad.axes[GLFW_GAMEPAD_AXIS_RIGHT_TRIGGER] = -1.0f;
    return pad;
}

/// A flight stick without gamepad mapping.
inline HeadlessWindow::Joystick Stick(std::string const& guid = "0300000044044a0400010000ff010000",
                                      int axes = 4, int buttons = 12, int hats = 1)
{
    HeadlessWindow::Joystick stick;
    stick.guid = guid;
    stick.name = "Test Stick";
    stick.axes.assign(axes, 0.0f);
    stick.buttons.assign(buttons, GLFW_RELEASE);
    stick.hats.assign(hats, GLFW_HAT_CENTERED);
    return stick;
}

class InputTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        Game::window = &window;
        Game::settings = std::make_unique<game::GameSettings>(scratch.File("settings.ini"), std::nullopt);
        game::input::Controller::Reset();
    }

    void TearDown() override
    {
        Game::_joysticks.clear();
        Game::_inputMode = 0;
        Game::_mouseLook = false;
        game::input::Controller::Reset();
        Game::settings.reset();
        Game::window = nullptr;
    }

    /// Plugs a device in and lets the game see it.
    void Connect(int id, HeadlessWindow::Joystick const& device)
    {
        window.ConnectJoystick(id, device);
        Game::UpdateJoysticks();
    }

    /// One input pass: devices refreshed, then the controller.
    void Pass(double deltaTime = 1.0 / 60.0)
    {
        Game::UpdateJoysticks();
        game::input::Controller::InputUpdate(deltaTime);
    }

    void Key(int key, bool down) { window.SetKey(key, down ? GLFW_PRESS : GLFW_RELEASE); }

    HeadlessWindow window{1280, 720};
    testsupport::TempDir scratch;
};

} // namespace inputtest
