// The controller record pass by pass: bindings of the keyboard, mouse, gamepad
// and joystick, the input modes, the look, latched sprint and the time rules of
// holding.
#include "InputFixture.hpp"

#include <chrono>
#include <cmath>
#include <string>
#include <thread>
#include <vector>

#include <imgui.h>

namespace inputtest {
namespace {

using game::input::Controller;
using Clock = std::chrono::steady_clock;

constexpr double Dt = 1.0 / 60.0;

class ControllerTest : public InputTest {
protected:
    void Play()
    {
        Game::_inputMode = 1;
        Game::_mouseLook = true;
    }
    void Station()
    {
        Game::_inputMode = 2;
        Game::_mouseLook = true;
    }
    void PadAxis(int axis, float value) { window.SetGamepadAxis(0, axis, value); }
    void PadButton(int button, bool down) { window.SetGamepadButton(0, button, down); }
};

void Sleep(int milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

TEST_F(ControllerTest, HeldKeyRisesOncePassesAndFalls)
{
    Play();
    Key(GLFW_KEY_W, true);
    Key(GLFW_KEY_R, true);
    Pass();
    EXPECT_EQ(Controller::GetAvatarTranslateForward(), 1.0);
    EXPECT_TRUE(Controller::GetAvatarTranslateForward_Pressed());
    EXPECT_FALSE(Controller::GetAvatarTranslateForward_Released());
    EXPECT_EQ(Controller::GetAvatarTranslateForward_Delta(), 1.0);
    EXPECT_TRUE(Controller::GetSit());
    EXPECT_EQ(Controller::GetSit_Delta(), 1);

    Pass();
    EXPECT_EQ(Controller::GetAvatarTranslateForward(), 1.0);
    EXPECT_FALSE(Controller::GetAvatarTranslateForward_Pressed());
    EXPECT_EQ(Controller::GetAvatarTranslateForward_Delta(), 0.0);
    EXPECT_EQ(Controller::GetSit_Delta(), 0);

    Key(GLFW_KEY_W, false);
    Key(GLFW_KEY_R, false);
    Pass();
    EXPECT_EQ(Controller::GetAvatarTranslateForward(), 0.0);
    EXPECT_TRUE(Controller::GetAvatarTranslateForward_Released());
    EXPECT_EQ(Controller::GetAvatarTranslateForward_Delta(), -1.0);
    EXPECT_TRUE(Controller::GetSit_Released());
    EXPECT_EQ(Controller::GetSit_Delta(), -1);
    Pass();
    EXPECT_FALSE(Controller::GetAvatarTranslateForward_Released());
}

TEST_F(ControllerTest, MouseButtonsCountOnlyWhileTheCursorIsCaptured)
{
    Game::_inputMode = 1;
    Game::_mouseLook = false;
    window.SetMouseButton(GLFW_MOUSE_BUTTON_LEFT, GLFW_PRESS);
    Pass();
    EXPECT_EQ(Controller::GetAvatarToolPrimary(), 0.0);
    Game::_mouseLook = true;
    Pass();
    EXPECT_EQ(Controller::GetAvatarToolPrimary(), 1.0);
    EXPECT_TRUE(Controller::GetAvatarToolPrimary_Pressed());
}

TEST_F(ControllerTest, DearImGuiKeepsTheKeyboardButNotEscapeOrChat)
{
    ImGuiContext* context = ImGui::CreateContext();
    ImGuiIO& io = ImGui::GetIO();
    io.DisplaySize = ImVec2(1280, 720);
    io.IniFilename = nullptr;
    unsigned char* pixels = nullptr;
    int width = 0, height = 0;
    io.Fonts->GetTexDataAsRGBA32(&pixels, &width, &height);
    Play();

    Key(GLFW_KEY_W, true);
    Key(GLFW_KEY_1, true);
    Pass();
    EXPECT_EQ(Controller::GetAvatarTranslateForward(), 1.0) << "no window of the interface has the focus";

    // A text field has the keyboard: Escape and chat still come through.
    io.WantCaptureKeyboard = true;
    Key(GLFW_KEY_ESCAPE, true);
    Key(GLFW_KEY_ENTER, true);
    Pass();
    EXPECT_TRUE(Controller::GetEscape());
    EXPECT_TRUE(Controller::GetInputChat());
    EXPECT_EQ(Controller::GetAvatarTranslateForward(), 0.0);
    EXPECT_FALSE(Controller::GetAvatarInventorySelect1());

    // A focused interface window without a text field: the number keys of the
    // inventory still count, the other actions do not.
    io.WantCaptureKeyboard = false;
    ImGui::NewFrame();
    ImGui::Begin("Panel");
    ImGui::End();
    ImGui::SetWindowFocus("Panel");
    ImGui::Render();
    ASSERT_TRUE(ImGui::IsWindowFocused(ImGuiFocusedFlags_AnyWindow));
    io.WantCaptureKeyboard = false;
    Pass();
    EXPECT_EQ(Controller::GetAvatarTranslateForward(), 0.0);
    EXPECT_TRUE(Controller::GetAvatarInventorySelect1());
    ImGui::DestroyContext(context);
}

TEST_F(ControllerTest, TwoBindingsAddUpAndClampAtOne)
{
    Play();
    Connect(0, Gamepad());
    Key(GLFW_KEY_W, true);
    PadAxis(GLFW_GAMEPAD_AXIS_LEFT_Y, -1.0f);
    Pass();
    EXPECT_EQ(Controller::GetAvatarTranslateForward(), 1.0);
    EXPECT_EQ(Controller::state.AvatarTranslateForward, 1.0);
    // Half a stick alone gives half.
    Key(GLFW_KEY_W, false);
    PadAxis(GLFW_GAMEPAD_AXIS_LEFT_Y, -0.5f);
    Pass();
    EXPECT_DOUBLE_EQ(Controller::GetAvatarTranslateForward(), 0.5);
    // Pushed the other way, the stick is clamped at 0 for forward and drives backward.
    PadAxis(GLFW_GAMEPAD_AXIS_LEFT_Y, 0.5f);
    Pass();
    EXPECT_EQ(Controller::GetAvatarTranslateForward(), 0.0);
    EXPECT_DOUBLE_EQ(Controller::GetAvatarTranslateBackward(), 0.5);
}

TEST_F(ControllerTest, InputModesDecideWhatIsRead)
{
    Connect(0, Gamepad());
    Key(GLFW_KEY_W, true);
    Key(GLFW_KEY_1, true);
    PadAxis(GLFW_GAMEPAD_AXIS_LEFT_Y, -1.0f);
    PadButton(GLFW_GAMEPAD_BUTTON_B, true); // sit
    PadButton(GLFW_GAMEPAD_BUTTON_X, true); // get info

    // Interface: no keyboard actions, the gamepad's global ones and Escape only.
    Game::_inputMode = 0;
    Key(GLFW_KEY_ESCAPE, true);
    Pass();
    EXPECT_TRUE(Controller::GetEscape());
    EXPECT_TRUE(Controller::GetSit());
    EXPECT_TRUE(Controller::GetGetInfo());
    EXPECT_EQ(Controller::GetAvatarTranslateForward(), 0.0);
    EXPECT_EQ(Controller::GetVehicleTranslateForward(), 0.0);
    EXPECT_FALSE(Controller::GetAvatarInventorySelect1());
    Key(GLFW_KEY_ESCAPE, false);

    // Play: the keyboard drives avatar and vehicle actions alike, the gamepad the avatar.
    Game::_inputMode = 1;
    Key(GLFW_KEY_W, false);
    Pass();
    EXPECT_EQ(Controller::GetAvatarTranslateForward(), 1.0);
    EXPECT_EQ(Controller::GetVehicleTranslateForward(), 0.0);
    EXPECT_TRUE(Controller::GetAvatarInventorySelect1());
    Key(GLFW_KEY_W, true);
    Pass();
    EXPECT_EQ(Controller::GetVehicleTranslateForward(), 1.0);

    // Station: the gamepad drives the vehicle, not the avatar.
    Game::_inputMode = 2;
    Key(GLFW_KEY_W, false);
    Pass();
    EXPECT_EQ(Controller::GetAvatarTranslateForward(), 0.0);
    EXPECT_EQ(Controller::GetVehicleTranslateForward(), 1.0);
    EXPECT_TRUE(Controller::GetVehicleAux1()) << "button X is the second aux";
    EXPECT_FALSE(Controller::GetVehicleAux2());
    EXPECT_TRUE(Controller::GetGetInfo());

    // The start button opens the menu in every mode.
    PadButton(GLFW_GAMEPAD_BUTTON_START, true);
    Pass();
    EXPECT_TRUE(Controller::GetEscape());
}

TEST_F(ControllerTest, MouseLookTurnsByTheCursorAndPutsItBack)
{
    Play();
    window.SetCursorPos(128.0, 72.0);
    Pass();
    EXPECT_DOUBLE_EQ(Controller::GetAvatarYaw(), 0.5 * 128.0 / 720.0);
    EXPECT_DOUBLE_EQ(Controller::GetAvatarPitch(), 0.5 * 72.0 / 720.0);
    double x = -1.0, y = -1.0;
    window.GetCursorPos(&x, &y);
    EXPECT_EQ(x, 0.0);
    EXPECT_EQ(y, 0.0);
    Pass();
    EXPECT_EQ(Controller::GetAvatarYaw(), 0.0) << "the look is a change per pass";

    Game::settings->avatar_mouselook_invert_y = true;
    window.SetCursorPos(0.0, 72.0);
    Pass();
    EXPECT_DOUBLE_EQ(Controller::GetAvatarPitch(), -0.5 * 72.0 / 720.0);

    // The look is never clamped.
    window.SetCursorPos(-7200.0, 0.0);
    Pass();
    EXPECT_DOUBLE_EQ(Controller::GetAvatarYaw(), -5.0);
}

TEST_F(ControllerTest, StickLookIsQuadraticAndTheStationLookModeSwitches)
{
    Connect(0, Gamepad());
    Play();
    PadAxis(GLFW_GAMEPAD_AXIS_RIGHT_X, 0.5f);
    PadAxis(GLFW_GAMEPAD_AXIS_RIGHT_Y, -0.5f);
    Pass(0.1);
    EXPECT_NEAR(Controller::GetAvatarYaw(), 1.5 * 0.1 * 0.25, 1e-7);
    EXPECT_NEAR(Controller::GetAvatarPitch(), -0.1 * 0.25, 1e-7);
    // Inside the dead zone the stick does nothing.
    PadAxis(GLFW_GAMEPAD_AXIS_RIGHT_X, 0.05f);
    PadAxis(GLFW_GAMEPAD_AXIS_RIGHT_Y, 0.1f);
    Pass(0.1);
    EXPECT_EQ(Controller::GetAvatarYaw(), 0.0);
    EXPECT_EQ(Controller::GetAvatarPitch(), 0.0);

    // In a station the stick turns the view while the look mode is on...
    Station();
    ASSERT_TRUE(Controller::vehicleGamepadLookMode);
    PadAxis(GLFW_GAMEPAD_AXIS_RIGHT_X, 1.0f);
    PadAxis(GLFW_GAMEPAD_AXIS_RIGHT_Y, 1.0f);
    Pass(0.1);
    EXPECT_NEAR(Controller::GetAvatarYaw(), 0.15, 1e-7);
    EXPECT_NEAR(Controller::GetAvatarPitch(), 0.1, 1e-7);
    EXPECT_EQ(Controller::GetVehicleYawRight(), 0.0);
    EXPECT_EQ(Controller::GetVehiclePitchUp(), 0.0);

    // ...and, after a click of the toggle, steers the vehicle instead.
    PadButton(GLFW_GAMEPAD_BUTTON_RIGHT_THUMB, true);
    Pass(0.1);
    EXPECT_FALSE(Controller::vehicleGamepadLookMode);
    Pass(0.1);
    EXPECT_FALSE(Controller::vehicleGamepadLookMode) << "a held toggle flips once";
    PadButton(GLFW_GAMEPAD_BUTTON_RIGHT_THUMB, false);
    Pass(0.1);
    EXPECT_EQ(Controller::GetAvatarYaw(), 0.0);
    EXPECT_EQ(Controller::GetVehicleYawRight(), 1.0);
    EXPECT_EQ(Controller::GetVehiclePitchUp(), 1.0);
}

TEST_F(ControllerTest, StickClickLatchesSprintUntilTheAvatarStops)
{
    Connect(0, Gamepad());
    Play();
    PadAxis(GLFW_GAMEPAD_AXIS_LEFT_Y, -1.0f);
    Pass();
    EXPECT_FALSE(Controller::GetAvatarSprint());
    PadButton(GLFW_GAMEPAD_BUTTON_LEFT_THUMB, true);
    Pass();
    EXPECT_TRUE(Controller::GetAvatarSprint());
    PadButton(GLFW_GAMEPAD_BUTTON_LEFT_THUMB, false);
    for (int i = 0; i < 5; ++i) {
        Pass();
        EXPECT_TRUE(Controller::GetAvatarSprint()) << "pass " << i;
    }
    // Barely moving: below 0.1 in sum, sprint ends and stays off.
    PadAxis(GLFW_GAMEPAD_AXIS_LEFT_Y, -0.05f);
    Pass();
    EXPECT_FALSE(Controller::GetAvatarSprint());
    PadAxis(GLFW_GAMEPAD_AXIS_LEFT_Y, -1.0f);
    Pass();
    EXPECT_FALSE(Controller::GetAvatarSprint());
    // The keyboard's sprint is not latched.
    Key(GLFW_KEY_LEFT_SHIFT, true);
    Pass();
    EXPECT_TRUE(Controller::GetAvatarSprint());
    Key(GLFW_KEY_LEFT_SHIFT, false);
    Pass();
    EXPECT_FALSE(Controller::GetAvatarSprint());
}

TEST_F(ControllerTest, JoystickRecordsFindTheirDevice)
{
    Station();
    Connect(3, Stick("FLIGHTSTICK"));
    window.SetJoystickAxis(3, 1, 0.6f); // pitch up on the stick's second axis
    window.SetJoystickAxis(3, 2, 0.0f); // main thrust, read as 0 to 1
    Pass();
    EXPECT_FLOAT_EQ(static_cast<float>(Controller::GetVehiclePitchUp()), 0.6f);
    EXPECT_EQ(Controller::GetVehiclePitchDown(), 0.0);
    EXPECT_DOUBLE_EQ(Controller::GetVehicleMainThrust(), 0.5);

    // A binding that names a device looks it up by identity and position.
    Game::settings->input_binding_vehicle_aux_7.joysticks[1] = {"flightstick", 0, 4, -1, 1};
    window.SetJoystickButton(3, 4, true);
    Pass();
    EXPECT_TRUE(Controller::GetVehicleAux7());
    Game::settings->input_binding_vehicle_aux_7.joysticks[1].id = 1; // a twin that is not there
    Pass();
    EXPECT_FALSE(Controller::GetVehicleAux7());
}

TEST_F(ControllerTest, AnOnOffActionBoundToAnAxisReadsItAsZeroToOne)
{
    Play();
    Connect(0, Gamepad());
    Game::settings->input_binding_avatar_light.joysticks[0] = {"", 0, -1, GLFW_GAMEPAD_AXIS_LEFT_TRIGGER, 1};
    Pass();
    EXPECT_FALSE(Controller::GetAvatarLight()) << "a trigger at rest";
    PadAxis(GLFW_GAMEPAD_AXIS_LEFT_TRIGGER, 0.0f);
    Pass();
    EXPECT_TRUE(Controller::GetAvatarLight());
    // Direction -1 turns the reading round: on while the trigger rests.
    Game::settings->input_binding_avatar_light.joysticks[0].axisDirection = -1;
    PadAxis(GLFW_GAMEPAD_AXIS_LEFT_TRIGGER, -1.0f);
    Pass();
    EXPECT_TRUE(Controller::GetAvatarLight());
    // The tool triggers read as 0 to 1 in the double form.
    Game::settings->input_binding_avatar_tool_primary.joysticks[0] = {"", 0, -1, GLFW_GAMEPAD_AXIS_RIGHT_TRIGGER, 1};
    PadAxis(GLFW_GAMEPAD_AXIS_RIGHT_TRIGGER, 0.0f);
    Pass();
    EXPECT_DOUBLE_EQ(Controller::GetAvatarToolPrimary(), 0.5);
}

TEST_F(ControllerTest, TapsCountAsTapsHoweverSlowTheFrames)
{
    Play();
    // A press of one pass is a tap, even when the passes are far apart.
    Key(GLFW_KEY_SPACE, true);
    Pass();
    EXPECT_FALSE(Controller::GetAvatarJump_Hold(0, 200));
    Sleep(250);
    Key(GLFW_KEY_SPACE, false);
    Pass();
    EXPECT_TRUE(Controller::GetAvatarJump_Hold(0, 200));
    Pass();
    EXPECT_FALSE(Controller::GetAvatarJump_Hold(0, 200));

    // Held for several passes and longer than the limit, the release is no tap.
    Key(GLFW_KEY_SPACE, true);
    Pass();
    EXPECT_FALSE(Controller::GetAvatarJump_Hold(0, 20));
    for (int i = 0; i < 3; ++i) {
        Sleep(10);
        Pass();
        EXPECT_FALSE(Controller::GetAvatarJump_Hold(0, 20));
    }
    Sleep(25);
    Key(GLFW_KEY_SPACE, false);
    Pass();
    EXPECT_FALSE(Controller::GetAvatarJump_Hold(0, 20));
}

TEST_F(ControllerTest, HoldingFiresOnceAfterThreePassesAndTheTime)
{
    Play();
    Key(GLFW_KEY_F, true);
    Pass();
    auto const pressed = Clock::now();
    EXPECT_FALSE(Controller::GetAvatarInteract_Hold(30, 0));
    int fired = 0;
    int firedAtPass = -1;
    double firedAtMs = -1.0;
    for (int pass = 1; pass <= 12; ++pass) {
        Sleep(pass < 3 ? 20 : 5); // slow passes first: three passes are needed all the same
        Pass();
        if (Controller::GetAvatarInteract_Hold(30, 0)) {
            ++fired;
            firedAtPass = pass;
            firedAtMs = std::chrono::duration<double, std::milli>(Clock::now() - pressed).count();
        }
    }
    EXPECT_EQ(fired, 1);
    EXPECT_GE(firedAtPass, 4) << "three passes of holding come first";
    EXPECT_GE(firedAtMs, 30.0);
    Key(GLFW_KEY_F, false);
    Pass();
    EXPECT_FALSE(Controller::GetAvatarInteract_Hold(30, 0));
}

TEST_F(ControllerTest, HoldOrToggleFlipsOnTapsAndBackAfterLongHolds)
{
    Play();
    // A tap: true on the press only.
    Key(GLFW_KEY_C, true);
    Pass();
    EXPECT_TRUE(Controller::GetAvatarToolConfigure_HoldOrToggle(40));
    Key(GLFW_KEY_C, false);
    Pass();
    EXPECT_FALSE(Controller::GetAvatarToolConfigure_HoldOrToggle(40));

    // A long hold: true on the press and again on the release.
    Key(GLFW_KEY_C, true);
    Pass();
    EXPECT_TRUE(Controller::GetAvatarToolConfigure_HoldOrToggle(40));
    for (int i = 0; i < 4; ++i) {
        Sleep(15);
        Pass();
        EXPECT_FALSE(Controller::GetAvatarToolConfigure_HoldOrToggle(40));
    }
    Key(GLFW_KEY_C, false);
    Pass();
    EXPECT_TRUE(Controller::GetAvatarToolConfigure_HoldOrToggle(40));
}

TEST_F(ControllerTest, HoldNeedsExactlyOneLimit)
{
    char const* const message =
        "ASSERTION FAILED: \\(\\(millisecondsMin == 0\\) != \\(millisecondsMax == 0\\)\\) in .*game/input/Controller";
    EXPECT_DEATH(Controller::GetZoom_Hold(0, 0), message);
    EXPECT_DEATH(Controller::GetZoom_Hold(100, 100), message);
}

TEST_F(ControllerTest, WithoutSettingsOrWindowTheRecordStaysAtRest)
{
    Play();
    Key(GLFW_KEY_W, true);
    Game::settings.reset();
    Pass();
    EXPECT_EQ(Controller::GetAvatarTranslateForward(), 0.0);
    Game::window = nullptr;
    Pass();
    EXPECT_FALSE(Controller::GetEscape());
}

TEST_F(ControllerTest, BindingTextsNameEveryInput)
{
    game::GameSettings const& s = *Game::settings;
    EXPECT_EQ(Controller::BindingStr(s.input_binding_avatar_translate_forward), "KEY_W / GAMEPAD_AXIS_LEFT_Y-");
    EXPECT_EQ(Controller::BindingStr(s.input_binding_avatar_tool_primary), "MOUSE_BUTTON_LEFT");
    EXPECT_EQ(Controller::BindingStr(s.input_binding_sit), "KEY_R / GAMEPAD_BUTTON_B");
    EXPECT_EQ(Controller::BindingStr(s.input_binding_vehicle_roll_left),
              "KEY_Q / GAMEPAD_BUTTON_DPAD_LEFT / AXIS_0-");
    EXPECT_EQ(Controller::BindingStr(Controller::InputBinding()), "NONE");
    Controller::InputBinding named;
    named.joysticks[1] = {"Throttle", 1, 3, 2, 1};
    EXPECT_EQ(Controller::BindingStr(named), "Throttle #2: AXIS_2+ + BUTTON_3");
}

TEST_F(ControllerTest, ActionsAreListedInRecordOrder)
{
    std::vector<std::string> names;
    Controller::ForEachAction([&names](char const* name, double, double) { names.emplace_back(name); });
    ASSERT_EQ(names.size(), 5u + 22u + 2u + 9u + 10u + 13u + 1u);
    EXPECT_EQ(names.front(), "Escape");
    EXPECT_EQ(names[27], "AvatarPitch");
    EXPECT_EQ(names[29], "AvatarJump");
    EXPECT_EQ(names.back(), "VehicleGamepadLookToggle");
}

} // namespace
} // namespace inputtest
