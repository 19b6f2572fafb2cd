// Devices as the window reports them: readings, calibration, dead zones, button
// edges, and the game's lookups by position, kind and identity.
#include "InputFixture.hpp"

namespace inputtest {
namespace {

using game::input::Joystick;

class JoystickTest : public InputTest {};

TEST_F(JoystickTest, ReadsIdentityCountsAndRawState)
{
    HeadlessWindow::Joystick stick = Stick("ABCDEF", 3, 5, 2);
    stick.axes = {0.25f, -0.5f, 1.0f};
    stick.buttons[4] = GLFW_PRESS;
    stick.hats[1] = GLFW_HAT_LEFT_UP;
    Connect(2, stick);
    std::shared_ptr<Joystick> const device = Game::_joysticks.at(2);
    EXPECT_TRUE(device->connected);
    EXPECT_EQ(device->id, 2);
    EXPECT_EQ(device->guid, "ABCDEF");
    EXPECT_EQ(device->name, "Test Stick");
    EXPECT_FALSE(device->isGamepad);
    EXPECT_EQ(device->axesCount, 3);
    EXPECT_EQ(device->buttonsCount, 5);
    EXPECT_EQ(device->hatsCount, 2);
    EXPECT_FLOAT_EQ(device->GetAxis(1, 0.1f, false, false), -0.5f);
    EXPECT_TRUE(device->GetButton(4));
    EXPECT_FALSE(device->GetButton(3));
    EXPECT_EQ(device->GetHat(1), GLFW_HAT_LEFT_UP);

    // Out of range, on every side: nothing is read past the device's tables.
    EXPECT_EQ(device->GetAxis(-1, 0.1f, false, false), 0.0f);
    EXPECT_EQ(device->GetAxis(3, 0.1f, false, false), 0.0f);
    EXPECT_EQ(device->GetAxis(3, 0.1f, true, false), 0.0f);
    EXPECT_FALSE(device->GetButton(-1));
    EXPECT_FALSE(device->GetButton(5));
    EXPECT_EQ(device->GetHat(2), 0);
    EXPECT_EQ(device->GetHat(-1), 0);
    EXPECT_FALSE(device->GetButtonBinding(99));
    // No mapping: the gamepad readings stay at rest.
    EXPECT_EQ(device->GetGamepadAxis(0, 0.0f, false, false), 0.0f);
    EXPECT_FALSE(device->GetGamepadButton(0));
}

TEST_F(JoystickTest, ReadingsFollowTheWindowEachPass)
{
    Connect(0, Gamepad());
    std::shared_ptr<Joystick> const pad = Game::_joysticks.at(0);
    window.SetGamepadAxis(0, GLFW_GAMEPAD_AXIS_LEFT_Y, -0.75f);
    window.SetGamepadButton(0, GLFW_GAMEPAD_BUTTON_A, true);
    EXPECT_EQ(pad->GetGamepadAxis(GLFW_GAMEPAD_AXIS_LEFT_Y, 0.1f, false, false), 0.0f) << "read before the pass";
    Game::UpdateJoysticks();
    EXPECT_FLOAT_EQ(pad->GetGamepadAxis(GLFW_GAMEPAD_AXIS_LEFT_Y, 0.1f, false, false), -0.75f);
    EXPECT_TRUE(pad->GetGamepadButton(GLFW_GAMEPAD_BUTTON_A));
    EXPECT_FALSE(pad->GetGamepadButton(GLFW_GAMEPAD_BUTTON_LAST + 1));
    EXPECT_FALSE(pad->GetGamepadButton(-1));
    EXPECT_EQ(pad->GetGamepadAxis(GLFW_GAMEPAD_AXIS_LAST + 1, 0.1f, false, false), 0.0f);
}

TEST_F(JoystickTest, DeadZonesWithoutCalibration)
{
    Connect(0, Stick());
    std::shared_ptr<Joystick> const stick = Game::_joysticks.at(0);
    auto at = [&](float value, bool unsignedRange) {
        window.SetJoystickAxis(0, 0, value);
        Game::UpdateJoysticks();
        return stick->GetAxis(0, 0.1f, false, unsignedRange);
    };
    // Signed: the dead zone is around 0, and the value is not rescaled past it.
    EXPECT_EQ(at(0.1f, false), 0.0f);
    EXPECT_EQ(at(-0.1f, false), 0.0f);
    EXPECT_FLOAT_EQ(at(0.11f, false), 0.11f);
    EXPECT_FLOAT_EQ(at(-0.11f, false), -0.11f);
    // Unsigned, as a trigger: rest at -1 gives 0, full travel 1, the dead zone above -1.
    EXPECT_EQ(at(-1.0f, true), 0.0f);
    EXPECT_EQ(at(-0.9f, true), 0.0f);
    EXPECT_FLOAT_EQ(at(-0.8f, true), 0.1f);
    EXPECT_FLOAT_EQ(at(1.0f, true), 1.0f);
    // Reading without calibration sets the nominal range.
    EXPECT_EQ(stick->axisMin[0], -1.0f);
    EXPECT_EQ(stick->axisMax[0], 1.0f);
}

TEST_F(JoystickTest, CalibrationLearnsTheRange)
{
    HeadlessWindow::Joystick stick = Stick();
    stick.axes[1] = 0.2f;
    Connect(0, stick);
    std::shared_ptr<Joystick> const device = Game::_joysticks.at(0);
    auto at = [&](float value, bool unsignedRange, float deadzone = 0.05f) {
        window.SetJoystickAxis(0, 1, value);
        Game::UpdateJoysticks();
        return device->GetAxis(1, deadzone, true, unsignedRange);
    };
    // The first sample makes an empty range: 0.
    EXPECT_EQ(device->GetAxis(1, 0.05f, true, false), 0.0f);
    EXPECT_EQ(device->axisMin[1], 0.2f);
    EXPECT_EQ(device->axisMax[1], 0.2f);
    // A range that does not cross 0: mapped to -1..1, dead zone above its minimum.
    EXPECT_FLOAT_EQ(at(0.6f, false), 1.0f);
    EXPECT_EQ(at(0.22f, false), 0.0f) << "within the dead zone above the minimum";
    EXPECT_NEAR(at(0.4f, false), 0.0f, 1e-6f);
    EXPECT_FLOAT_EQ(at(0.4f, true), 0.5f);
    // Across 0: the dead zone is around 0 again.
    EXPECT_FLOAT_EQ(at(-0.6f, false), -1.0f);
    EXPECT_EQ(at(0.04f, false), 0.0f);
    EXPECT_FLOAT_EQ(at(0.3f, false), 0.5f);
    EXPECT_FLOAT_EQ(at(0.3f, true), 0.75f);
    EXPECT_EQ(at(-0.58f, true), 0.0f) << "unsigned: dead zone above the minimum";
}

TEST_F(JoystickTest, ButtonEdgesIgnoreAButtonHeldAtTheFirstLook)
{
    HeadlessWindow::Joystick pad = Gamepad();
    pad.buttons[2] = GLFW_PRESS;
    pad.gamepad.buttons[GLFW_GAMEPAD_BUTTON_X] = GLFW_PRESS;
    Connect(0, pad);
    std::shared_ptr<Joystick> const device = Game::_joysticks.at(0);
    EXPECT_FALSE(device->GetButtonBinding(2)) << "held when the editor opened";
    EXPECT_FALSE(device->GetGamepadButtonBinding(GLFW_GAMEPAD_BUTTON_X));
    EXPECT_FALSE(device->GetButtonBinding(2));
    window.SetJoystickButton(0, 2, false);
    window.SetGamepadButton(0, GLFW_GAMEPAD_BUTTON_X, false);
    Game::UpdateJoysticks();
    EXPECT_FALSE(device->GetButtonBinding(2));
    EXPECT_FALSE(device->GetGamepadButtonBinding(GLFW_GAMEPAD_BUTTON_X));
    window.SetJoystickButton(0, 2, true);
    window.SetGamepadButton(0, GLFW_GAMEPAD_BUTTON_X, true);
    Game::UpdateJoysticks();
    EXPECT_TRUE(device->GetButtonBinding(2));
    EXPECT_TRUE(device->GetGamepadButtonBinding(GLFW_GAMEPAD_BUTTON_X));
    EXPECT_FALSE(device->GetButtonBinding(2)) << "an edge counts once";
    EXPECT_FALSE(device->GetGamepadButtonBinding(GLFW_GAMEPAD_BUTTON_X));
}

TEST_F(JoystickTest, GuidsCompareWithoutCase)
{
    Connect(0, Stick("03000000AbCd"));
    std::shared_ptr<Joystick> const device = Game::_joysticks.at(0);
    EXPECT_TRUE(device->IsSameGUID("03000000abcd"));
    EXPECT_TRUE(device->IsSameGUID("03000000ABCD"));
    EXPECT_FALSE(device->IsSameGUID("03000000ABC"));
    EXPECT_FALSE(device->IsSameGUID("03000000ABCE"));
    EXPECT_FALSE(device->IsSameGUID(""));
}

TEST_F(JoystickTest, LookupsByPositionKindAndIdentity)
{
    Connect(0, Gamepad("PADGUID"));
    Connect(1, Stick("TWIN", 1)); // one stray axis: no joystick
    Connect(2, Stick("twin"));
    Connect(3, Gamepad("PADGUID", "Second Pad"));
    Connect(5, Stick("TWIN"));
    Connect(7, Stick("OTHER"));

    EXPECT_EQ(Game::GetFirstGamepad()->id, 0);
    EXPECT_EQ(Game::GetFirstJoystick()->id, 2);
    EXPECT_EQ(Game::GetJoystick(0)->id, 2);
    EXPECT_EQ(Game::GetJoystick(1)->id, 5);
    EXPECT_EQ(Game::GetJoystick(2)->id, 7);
    EXPECT_EQ(Game::GetJoystick(3), nullptr);
    EXPECT_EQ(Game::GetJoystick(-1), nullptr);
    // By identity, twins are told apart by their position; the one-axis twin counts here.
    EXPECT_EQ(Game::GetJoystick("twin", 0)->id, 1);
    EXPECT_EQ(Game::GetJoystick("twin", 1)->id, 2);
    EXPECT_EQ(Game::GetJoystick("TWIN", 2)->id, 5);
    EXPECT_EQ(Game::GetJoystick("TWIN", 3), nullptr);
    EXPECT_EQ(Game::GetJoystick("padguid", 1)->id, 3) << "gamepads are matched by identity too";
    EXPECT_EQ(Game::GetJoystick("", 1)->id, 5);
    EXPECT_EQ(Game::GetGamepad("", 1)->id, 3);
    EXPECT_EQ(Game::GetGamepad("PADGUID", 0)->id, 0);
    EXPECT_EQ(Game::GetGamepad("TWIN", 0), nullptr);

    // Disconnected devices are skipped and dropped; a holder sees its device gone.
    std::shared_ptr<Joystick> const first = Game::GetFirstGamepad();
    window.DisconnectJoystick(0);
    window.DisconnectJoystick(2);
    Game::UpdateJoysticks();
    EXPECT_FALSE(first->connected);
    EXPECT_FALSE(first->GetGamepadButton(0));
    EXPECT_EQ(Game::GetFirstGamepad()->id, 3);
    EXPECT_EQ(Game::GetFirstJoystick()->id, 5);
    EXPECT_EQ(Game::GetJoystick("twin", 1)->id, 5);
    EXPECT_EQ(Game::_joysticks.count(0), 0u);

    // A device marked gone but still listed is skipped as well.
    Game::_joysticks.at(3)->Disconnect();
    EXPECT_EQ(Game::GetFirstGamepad(), nullptr);
}

TEST_F(JoystickTest, AnotherDeviceInTheSamePlaceIsOpenedAnew)
{
    Connect(4, Stick("FIRST"));
    std::shared_ptr<Joystick> const before = Game::_joysticks.at(4);
    before->GetAxis(0, 0.1f, true, false);
    window.DisconnectJoystick(4);
    window.ConnectJoystick(4, Stick("SECOND", 2, 3, 0));
    Game::UpdateJoysticks();
    std::shared_ptr<Joystick> const after = Game::_joysticks.at(4);
    EXPECT_NE(before, after);
    EXPECT_FALSE(before->connected);
    EXPECT_EQ(after->guid, "SECOND");
    EXPECT_EQ(after->axesCount, 2);
    EXPECT_EQ(after->hatsCount, 0);
    EXPECT_EQ(after->GetHat(0), 0);
}

TEST_F(JoystickTest, WithoutAWindowThereAreNoDevices)
{
    Game::window = nullptr;
    Game::UpdateJoysticks();
    EXPECT_TRUE(Game::_joysticks.empty());
    Joystick orphan(0);
    EXPECT_FALSE(orphan.connected);
    EXPECT_EQ(orphan.GetAxis(0, 0.0f, false, false), 0.0f);
    EXPECT_FALSE(orphan.GetButton(0));
    EXPECT_FALSE(orphan.GetButtonBinding(0));
}

} // namespace
} // namespace inputtest
