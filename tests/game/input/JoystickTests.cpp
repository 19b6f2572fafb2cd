// Devices as the window reports them: readings, calibration, dead zones, button
// edges, and the game's lookups by position, kind and identity.
#include "InputFixture.hpp"

#include <string>

namespace inputtest {
namespace {

using game::input::Joystick;

class JoystickTest : public InputTest {
protected:
    /// The device numbers of the lookups' results, "-" for none.
    static std::string Ids(std::initializer_list<std::shared_ptr<Joystick>> found)
    {
        std::string ids;
        for (auto const& device : found) ids += (ids.empty() ? "" : " ") + (device ? std::to_string(device->id) : "-");
        return ids;
    }
};

TEST_F(JoystickTest, ReadsIdentityCountsAndRawStateAndNothingPastThem)
{
    HeadlessWindow::Joystick stick = Stick("ABCDEF", 3, 5, 2);
    stick.axes = {0.25f, -0.5f, 1.0f};
    stick.buttons[4] = GLFW_PRESS;
    stick.hats[1] = GLFW_HAT_LEFT_UP;
    Connect(2, stick);
    std::shared_ptr<Joystick> const device = Game::_joysticks.at(2);
    EXPECT_TRUE(device->connected && !device->isGamepad);
    EXPECT_EQ(device->id, 2);
    EXPECT_EQ(device->guid + " " + device->name, "ABCDEF Test Stick");
    EXPECT_EQ(device->axesCount * 100 + device->buttonsCount * 10 + device->hatsCount, 352);
    EXPECT_FLOAT_EQ(device->GetAxis(1, 0.1f, false, false), -0.5f);
    EXPECT_TRUE(device->GetButton(4));
    EXPECT_FALSE(device->GetButton(3));
    EXPECT_EQ(device->GetHat(1), GLFW_HAT_LEFT_UP);
    // Out of range, on every side; without a mapping the gamepad readings stay at rest.
    for (int outside : {-1, 3, 5, 99}) {
        EXPECT_EQ(device->GetAxis(outside, 0.1f, false, false), 0.0f) << outside;
        EXPECT_EQ(device->GetAxis(outside, 0.1f, true, false), 0.0f) << outside;
        EXPECT_FALSE(device->GetButton(outside == 3 ? 5 : outside)) << outside;
        EXPECT_FALSE(device->GetButtonBinding(outside == 3 ? 5 : outside)) << outside;
        EXPECT_EQ(device->GetHat(outside == 3 ? 2 : outside), 0) << outside;
    }
    EXPECT_EQ(device->GetGamepadAxis(0, 0.0f, false, false), 0.0f);
    EXPECT_FALSE(device->GetGamepadButton(0));
}

TEST_F(JoystickTest, GamepadReadingsFollowTheWindowEachPass)
{
    Connect(0, Gamepad());
    std::shared_ptr<Joystick> const pad = Game::_joysticks.at(0);
    window.SetGamepadAxis(0, GLFW_GAMEPAD_AXIS_LEFT_Y, -0.75f);
    window.SetGamepadButton(0, GLFW_GAMEPAD_BUTTON_A, true);
    EXPECT_EQ(pad->GetGamepadAxis(GLFW_GAMEPAD_AXIS_LEFT_Y, 0.1f, false, false), 0.0f) << "read before the pass";
    Game::UpdateJoysticks();
    EXPECT_FLOAT_EQ(pad->GetGamepadAxis(GLFW_GAMEPAD_AXIS_LEFT_Y, 0.1f, false, false), -0.75f);
    EXPECT_TRUE(pad->GetGamepadButton(GLFW_GAMEPAD_BUTTON_A));
    EXPECT_FALSE(pad->GetGamepadButton(GLFW_GAMEPAD_BUTTON_LAST + 1) || pad->GetGamepadButton(-1));
    EXPECT_EQ(pad->GetGamepadAxis(GLFW_GAMEPAD_AXIS_LAST + 1, 0.1f, false, false), 0.0f);
}

// Without calibration the dead zone is around 0, or above -1 for an unsigned range
// (a trigger), and the value is not rescaled past it. Calibration learns the range
// from the samples: one that does not cross 0 maps to -1..1 with the dead zone above
// its minimum, one across 0 has the dead zone around 0 again.
TEST_F(JoystickTest, DeadZonesAndCalibration)
{
    HeadlessWindow::Joystick stick = Stick();
    stick.axes[1] = 0.2f;
    Connect(0, stick);
    std::shared_ptr<Joystick> const device = Game::_joysticks.at(0);
    struct Reading {
        int axis;
        float value;
        bool calibrate;
        bool unsignedRange;
        float expected;
    };
    // The first calibrated sample makes an empty range: 0.
    for (Reading const& r : {Reading{1, 0.2f, true, false, 0.0f}, Reading{0, 0.1f, false, false, 0.0f},
                             Reading{0, -0.1f, false, false, 0.0f}, Reading{0, 0.11f, false, false, 0.11f},
                             Reading{0, -0.11f, false, false, -0.11f}, Reading{0, -1.0f, false, true, 0.0f},
                             Reading{0, -0.9f, false, true, 0.0f}, Reading{0, -0.8f, false, true, 0.1f},
                             Reading{0, 1.0f, false, true, 1.0f}, Reading{1, 0.6f, true, false, 1.0f},
                             Reading{1, 0.22f, true, false, 0.0f}, Reading{1, 0.4f, true, false, 0.0f},
                             Reading{1, 0.4f, true, true, 0.5f}, Reading{1, -0.6f, true, false, -1.0f},
                             Reading{1, 0.04f, true, false, 0.0f}, Reading{1, 0.3f, true, false, 0.5f},
                             Reading{1, 0.3f, true, true, 0.75f}, Reading{1, -0.58f, true, true, 0.0f}}) {
        window.SetJoystickAxis(0, r.axis, r.value);
        Game::UpdateJoysticks();
        EXPECT_NEAR(device->GetAxis(r.axis, r.calibrate ? 0.05f : 0.1f, r.calibrate, r.unsignedRange), r.expected, 1e-6f)
            << r.axis << " at " << r.value << (r.unsignedRange ? " unsigned" : "");
    }
    // Reading without calibration sets the nominal range.
    EXPECT_EQ(device->axisMin[0], -1.0f);
    EXPECT_EQ(device->axisMax[0], 1.0f);
}

TEST_F(JoystickTest, ButtonEdgesIgnoreAButtonHeldAtTheFirstLookAndCountOnce)
{
    HeadlessWindow::Joystick pad = Gamepad();
    pad.buttons[2] = GLFW_PRESS;
    pad.gamepad.buttons[GLFW_GAMEPAD_BUTTON_X] = GLFW_PRESS;
    Connect(0, pad);
    std::shared_ptr<Joystick> const device = Game::_joysticks.at(0);
    std::string edges;
    for (bool down : {true, true, false, true, true}) {
        window.SetJoystickButton(0, 2, down);
        window.SetGamepadButton(0, GLFW_GAMEPAD_BUTTON_X, down);
        Game::UpdateJoysticks();
        for (int i = 0; i < 2; ++i)
            edges += std::to_string(device->GetButtonBinding(2)) +
                     std::to_string(device->GetGamepadButtonBinding(GLFW_GAMEPAD_BUTTON_X));
        edges += " ";
    }
    EXPECT_EQ(edges, "0000 0000 0000 1100 0000 ");
}

TEST_F(JoystickTest, GuidsCompareWithoutCase)
{
    Connect(0, Stick("03000000AbCd"));
    std::shared_ptr<Joystick> const device = Game::_joysticks.at(0);
    EXPECT_TRUE(device->IsSameGUID("03000000abcd") && device->IsSameGUID("03000000ABCD"));
    EXPECT_FALSE(device->IsSameGUID("03000000ABC") || device->IsSameGUID("03000000ABCE") || device->IsSameGUID(""));
}

TEST_F(JoystickTest, LookupsByPositionKindAndIdentity)
{
    Connect(0, Gamepad("PADGUID"));
    Connect(1, Stick("TWIN", 1)); // one stray axis: no joystick, but a device of its identity
    Connect(2, Stick("twin"));
    Connect(3, Gamepad("PADGUID", "Second Pad"));
    Connect(5, Stick("TWIN"));
    Connect(7, Stick("OTHER"));
    EXPECT_EQ(Ids({Game::GetFirstGamepad(), Game::GetFirstJoystick(), Game::GetJoystick(0), Game::GetJoystick(1),
                   Game::GetJoystick(2), Game::GetJoystick(3), Game::GetJoystick(-1)}),
              "0 2 2 5 7 - -");
    // By identity, twins are told apart by their position; gamepads are matched too.
    EXPECT_EQ(Ids({Game::GetJoystick("twin", 0), Game::GetJoystick("twin", 1), Game::GetJoystick("TWIN", 2),
                   Game::GetJoystick("TWIN", 3), Game::GetJoystick("padguid", 1), Game::GetJoystick("", 1),
                   Game::GetGamepad("", 1), Game::GetGamepad("PADGUID", 0), Game::GetGamepad("TWIN", 0)}),
              "1 2 5 - 3 5 3 0 -");

    // Disconnected devices are skipped and dropped; a holder sees its device gone.
    std::shared_ptr<Joystick> const first = Game::GetFirstGamepad();
    window.DisconnectJoystick(0);
    window.DisconnectJoystick(2);
    Game::UpdateJoysticks();
    EXPECT_FALSE(first->connected || first->GetGamepadButton(0));
    EXPECT_EQ(Ids({Game::GetFirstGamepad(), Game::GetFirstJoystick(), Game::GetJoystick("twin", 1)}), "3 5 5");
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
    EXPECT_EQ(after->axesCount * 10 + after->hatsCount, 20);
    EXPECT_EQ(after->GetHat(0), 0);
}

TEST_F(JoystickTest, WithoutAWindowThereAreNoDevices)
{
    Game::window = nullptr;
    Game::UpdateJoysticks();
    EXPECT_TRUE(Game::_joysticks.empty());
    Joystick orphan(0);
    EXPECT_FALSE(orphan.connected || orphan.GetButton(0) || orphan.GetButtonBinding(0));
    EXPECT_EQ(orphan.GetAxis(0, 0.0f, false, false), 0.0f);
}

} // namespace
} // namespace inputtest
