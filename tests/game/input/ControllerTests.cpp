// The controller record pass by pass: bindings of the keyboard, mouse, gamepad
// and joystick, the input modes, the look, latched sprint and the time rules of
// holding. Most tests write what changed in each pass into a transcript kept under
// tests/data/input/controller_*.txt.
#include "InputFixture.hpp"

#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <imgui.h>

#include "support/Golden.hpp"

namespace inputtest {
namespace {

using game::input::Controller;

// The keys and gamepad inputs the steps below name.
std::map<std::string, int> const keys = {
    {"W", GLFW_KEY_W}, {"R", GLFW_KEY_R}, {"1", GLFW_KEY_1}, {"ESCAPE", GLFW_KEY_ESCAPE}, {"ENTER", GLFW_KEY_ENTER},
    {"SPACE", GLFW_KEY_SPACE}, {"F", GLFW_KEY_F}, {"C", GLFW_KEY_C}, {"LEFT_SHIFT", GLFW_KEY_LEFT_SHIFT}};
std::map<std::string, int> const padInputs = {
    {"LEFT_Y", GLFW_GAMEPAD_AXIS_LEFT_Y}, {"RIGHT_X", GLFW_GAMEPAD_AXIS_RIGHT_X},
    {"RIGHT_Y", GLFW_GAMEPAD_AXIS_RIGHT_Y}, {"LEFT_TRIGGER", GLFW_GAMEPAD_AXIS_LEFT_TRIGGER},
    {"RIGHT_TRIGGER", GLFW_GAMEPAD_AXIS_RIGHT_TRIGGER}, {"B", GLFW_GAMEPAD_BUTTON_B}, {"X", GLFW_GAMEPAD_BUTTON_X},
    {"START", GLFW_GAMEPAD_BUTTON_START}, {"LEFT_THUMB", GLFW_GAMEPAD_BUTTON_LEFT_THUMB},
    {"RIGHT_THUMB", GLFW_GAMEPAD_BUTTON_RIGHT_THUMB}};

class ControllerTest : public InputTest {
protected:
    /// Carries out the steps of commands (separated by ';'), runs one pass and writes
    /// "commands => changes" into the transcript, the changes as "Action before->after".
    ///   mode ui|play|station   free (cursor not captured)   invert (mouse look)   dt SECONDS
    ///   key NAME down|up   mouse left down|up   cursor X Y   connect ID pad|stick GUID
    ///   pad AXIS VALUE   pad BUTTON down|up   joy ID axis N VALUE   joy ID button N down|up
    void Step(std::string const& commands)
    {
        std::istringstream steps(commands);
        for (std::string step; std::getline(steps, step, ';');) {
            std::istringstream in(step);
            std::string what, name, arg;
            in >> what >> name >> arg;
            if (what == "mode") {
                Game::_inputMode = name == "ui" ? 0 : name == "play" ? 1 : 2;
                Game::_mouseLook = name != "ui";
            } else if (what == "free") {
                Game::_mouseLook = false;
            } else if (what == "invert") {
                Game::settings->avatar_mouselook_invert_y = true;
            } else if (what == "dt") {
                deltaTime = std::stod(name);
            } else if (what == "key") {
                Key(keys.at(name), arg == "down");
            } else if (what == "mouse") {
                window.SetMouseButton(GLFW_MOUSE_BUTTON_LEFT, arg == "down" ? GLFW_PRESS : GLFW_RELEASE);
            } else if (what == "cursor") {
                window.SetCursorPos(std::stod(name), std::stod(arg));
            } else if (what == "connect") {
                in >> what;
                Connect(std::stoi(name), arg == "pad" ? Gamepad() : Stick(what));
            } else if (what == "pad" && (arg == "down" || arg == "up")) {
                window.SetGamepadButton(0, padInputs.at(name), arg == "down");
            } else if (what == "pad") {
                window.SetGamepadAxis(0, padInputs.at(name), std::stof(arg));
            } else if (what == "joy") {
                std::string value;
                in >> what >> value;
                if (arg == "axis")
                    window.SetJoystickAxis(std::stoi(name), std::stoi(what), std::stof(value));
                else
                    window.SetJoystickButton(std::stoi(name), std::stoi(what), value == "down");
            } else {
                ASSERT_TRUE(what.empty()) << "unknown step " << step;
            }
        }
        Pass(deltaTime);
        transcript += commands + " =>";
        Controller::ForEachAction([this](char const* name, double value, double previous) {
            char change[96];
            std::snprintf(change, sizeof change, " %s %.6g->%.6g", name, previous, value);
            if (value != previous) transcript += change;
        });
        if (Controller::vehicleGamepadLookMode != lookMode)
            transcript += (lookMode = Controller::vehicleGamepadLookMode) ? " (look mode on)" : " (look mode off)";
        transcript += "\n";
    }
    /// In play, one pass per word of passes, the key down (D) or up (U), then a sleep
    /// of the milliseconds after the letter: what poll says after each pass, as 0 or 1.
    std::string Polls(int key, std::string const& passes, std::function<bool()> const& poll)
    {
        Game::_inputMode = 1;
        std::string seen;
        std::istringstream words(passes);
        for (std::string word; words >> word;) {
            Key(key, word[0] == 'D');
            Pass();
            seen += poll() ? '1' : '0';
            std::this_thread::sleep_for(std::chrono::milliseconds(word.size() > 1 ? std::stoi(word.substr(1)) : 0));
        }
        return seen;
    }
    void Steps(std::vector<std::string> const& commands)
    {
        for (std::string const& step : commands) Step(step);
    }

    std::string transcript;
    double deltaTime = 1.0 / 60.0;
    bool lookMode = true;
};

// Per pass, of a double action and an on/off one: value, pressed, released and delta.
TEST_F(ControllerTest, HeldKeyRisesOncePassesAndFalls)
{
    Game::_inputMode = 1;
    std::string seen;
    for (bool down : {true, true, false, false}) {
        Key(GLFW_KEY_W, down);
        Key(GLFW_KEY_R, down);
        Pass();
        char pass[64];
        std::snprintf(pass, sizeof pass, "%g %d %d %+g, %d %d %d %+d; ", Controller::GetAvatarTranslateForward(),
                      Controller::GetAvatarTranslateForward_Pressed(), Controller::GetAvatarTranslateForward_Released(),
                      Controller::GetAvatarTranslateForward_Delta(), Controller::GetSit(), Controller::GetSit_Pressed(),
                      Controller::GetSit_Released(), Controller::GetSit_Delta());
        seen += pass;
    }
    EXPECT_EQ(seen, "1 1 0 +1, 1 1 0 +1; 1 0 0 +0, 1 0 0 +0; 0 0 1 -1, 0 0 1 -1; 0 0 0 +0, 0 0 0 +0; ");
}

// The left button counts only while the cursor is captured; two bindings of one
// action add up and clamp at 1, a stick pushed the other way drives the opposite action.
TEST_F(ControllerTest, MouseAndBindingsThatAddUp)
{
    Steps({"mode play; free; mouse left down", "mode play", "connect 0 pad; key W down; pad LEFT_Y -1",
           "key W up; pad LEFT_Y -0.5", "pad LEFT_Y 0.5"});
    testsupport::ExpectGolden(transcript, "input/controller_bindings.txt");
}

// Interface: no keyboard actions, the gamepad's global ones and Escape only. Play: the
// keyboard drives avatar and vehicle alike, the gamepad the avatar. Station: the gamepad
// drives the vehicle (button X is the second aux). Start opens the menu in every mode.
TEST_F(ControllerTest, InputModesDecideWhatIsRead)
{
    Steps({"connect 0 pad; key W down; key 1 down; pad LEFT_Y -1; pad B down; pad X down; mode ui; key ESCAPE down",
           "key ESCAPE up; mode play; key W up", "key W down", "mode station; key W up; key 1 up", "pad START down"});
    testsupport::ExpectGolden(transcript, "input/controller_modes.txt");
}

// The mouse look is a change per pass, by the cursor, which is put back; never clamped.
TEST_F(ControllerTest, MouseLookTurnsByTheCursorAndPutsItBack)
{
    Steps({"mode play; cursor 128 72", "", "invert; cursor 0 72", "cursor -7200 0"});
    double x = -1.0, y = -1.0;
    window.GetCursorPos(&x, &y);
    EXPECT_EQ(x, 0.0);
    EXPECT_EQ(y, 0.0);
    testsupport::ExpectGolden(transcript, "input/controller_mouse_look.txt");
}

// Quadratic stick look with a dead zone; in a station the stick turns the view while
// the look mode is on and, after one click of the toggle however long held, the vehicle.
TEST_F(ControllerTest, StickLookIsQuadraticAndTheStationLookModeSwitches)
{
    Steps({"connect 0 pad; mode play; dt 0.1; pad RIGHT_X 0.5; pad RIGHT_Y -0.5", "pad RIGHT_X 0.05; pad RIGHT_Y 0.1",
           "mode station; pad RIGHT_X 1; pad RIGHT_Y 1", "pad RIGHT_THUMB down", "", "pad RIGHT_THUMB up"});
    testsupport::ExpectGolden(transcript, "input/controller_stick_look.txt");
}

// The stick's click latches sprint until the avatar barely moves (below 0.1 in sum);
// the keyboard's sprint is not latched.
TEST_F(ControllerTest, StickClickLatchesSprintUntilTheAvatarStops)
{
    Steps({"connect 0 pad; mode play; pad LEFT_Y -1", "pad LEFT_THUMB down", "pad LEFT_THUMB up", "", "", "",
           "pad LEFT_Y -0.05", "pad LEFT_Y -1", "key LEFT_SHIFT down", "key LEFT_SHIFT up"});
    testsupport::ExpectGolden(transcript, "input/controller_sprint.txt");
}

// Joystick records find their device (pitch on the second axis, main thrust read as 0
// to 1), and a binding that names a device looks it up by identity and position.
// An on/off action bound to an axis reads it as 0 to 1, direction -1 turned round.
TEST_F(ControllerTest, JoystickAndAxisBindings)
{
    Step("mode station; connect 3 stick FLIGHTSTICK; joy 3 axis 1 0.6; joy 3 axis 2 0");
    Game::settings->input_binding_vehicle_aux_7.joysticks[1] = {"flightstick", 0, 4, -1, 1};
    Step("joy 3 button 4 down");
    Game::settings->input_binding_vehicle_aux_7.joysticks[1].id = 1; // a twin that is not there
    Steps({"", "mode play; connect 0 pad"});
    Game::settings->input_binding_avatar_light.joysticks[0] = {"", 0, -1, GLFW_GAMEPAD_AXIS_LEFT_TRIGGER, 1};
    Step("pad LEFT_TRIGGER 0");
    Game::settings->input_binding_avatar_light.joysticks[0].axisDirection = -1;
    Game::settings->input_binding_avatar_tool_primary.joysticks[0] = {"", 0, -1, GLFW_GAMEPAD_AXIS_RIGHT_TRIGGER, 1};
    Step("pad LEFT_TRIGGER -1; pad RIGHT_TRIGGER 0");
    testsupport::ExpectGolden(transcript, "input/controller_joystick.txt");
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
    Step("mode play; key W down; key 1 down");
    // A text field has the keyboard: Escape and chat still come through.
    io.WantCaptureKeyboard = true;
    Step("key ESCAPE down; key ENTER down");
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
    Step("key ESCAPE up; key ENTER up");
    ImGui::DestroyContext(context);
    testsupport::ExpectGolden(transcript, "input/controller_imgui.txt");
}

// A press of fewer than three passes is a tap, however far apart the passes; a
// longer one, or one longer than the limit, is not.
TEST_F(ControllerTest, TapsCountAsTapsHoweverSlowTheFrames)
{
    auto tap = [](double limit) { return [limit] { return Controller::GetAvatarJump_Hold(0, limit); }; };
    EXPECT_EQ(Polls(GLFW_KEY_SPACE, "D250 U U", tap(200)), "010");
    EXPECT_EQ(Polls(GLFW_KEY_SPACE, "D10 D10 D10 D25 U", tap(20)), "00000");
}

// Holding fires once, after three passes of holding and the time, slow passes first.
TEST_F(ControllerTest, HoldingFiresOnceAfterThreePassesAndTheTime)
{
    EXPECT_EQ(Polls(GLFW_KEY_F, "D20 D20 D5 D5 D5 D5 D5 D5 D5 D5 D5 D5 D U",
                    [] { return Controller::GetAvatarInteract_Hold(30, 0); }),
              "00001000000000");
}

// Hold-or-toggle: true on a press, and again on the release of a press held longer than the limit.
TEST_F(ControllerTest, HoldOrToggleFlipsOnTapsAndBackAfterLongHolds)
{
    EXPECT_EQ(Polls(GLFW_KEY_C, "D U D15 D15 D15 D15 D U",
                    [] { return Controller::GetAvatarToolConfigure_HoldOrToggle(40); }),
              "10100001");
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
    Game::_inputMode = 1;
    Key(GLFW_KEY_W, true);
    Key(GLFW_KEY_ESCAPE, true);
    Game::settings.reset();
    Pass();
    EXPECT_EQ(Controller::GetAvatarTranslateForward(), 0.0);
    Game::window = nullptr;
    Pass();
    EXPECT_FALSE(Controller::GetEscape());
}

TEST_F(ControllerTest, BindingTextsNameEveryInputAndActionsAreListedInRecordOrder)
{
    game::GameSettings const& s = *Game::settings;
    Controller::InputBinding named;
    named.joysticks[1] = {"Throttle", 1, 3, 2, 1};
    EXPECT_EQ(Controller::BindingStr(s.input_binding_avatar_translate_forward), "KEY_W / GAMEPAD_AXIS_LEFT_Y-");
    EXPECT_EQ(Controller::BindingStr(s.input_binding_avatar_tool_primary), "MOUSE_BUTTON_LEFT");
    EXPECT_EQ(Controller::BindingStr(s.input_binding_sit), "KEY_R / GAMEPAD_BUTTON_B");
    EXPECT_EQ(Controller::BindingStr(s.input_binding_vehicle_roll_left), "KEY_Q / GAMEPAD_BUTTON_DPAD_LEFT / AXIS_0-");
    EXPECT_EQ(Controller::BindingStr(Controller::InputBinding()), "NONE");
    EXPECT_EQ(Controller::BindingStr(named), "Throttle #2: AXIS_2+ + BUTTON_3");

    std::vector<std::string> names;
    Controller::ForEachAction([&names](char const* name, double, double) { names.emplace_back(name); });
    ASSERT_EQ(names.size(), 5u + 22u + 2u + 9u + 10u + 13u + 1u);
    EXPECT_EQ(names.front() + " " + names[27] + " " + names[29] + " " + names.back(),
              "Escape AvatarPitch AvatarJump VehicleGamepadLookToggle");
}

} // namespace
} // namespace inputtest
