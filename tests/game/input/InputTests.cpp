// The input pass against a headless window: devices as the window reports them (readings, calibration,
// dead zones, button edges, lookups), and the controller record pass by pass, replayed from the
// commands of the transcripts under tests/data/input/controller_*.txt, each line "commands => changes".
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <imgui.h>

#include "game/Game.hpp"
#include "game/GameSettings.hpp"
#include "game/input/Controller.hpp"
#include "game/input/Joystick.hpp"
#include "nerox/graphics/HeadlessWindow.hpp"
#include "nerox/input/InputCodes.hpp"
#include "support/Golden.hpp"
#include "support/TempDir.hpp"

namespace {

using game::input::Controller;
using game::input::Joystick;
using nerox::graphics::HeadlessWindow;

/// A standard gamepad at rest: sticks centred, triggers at -1.
HeadlessWindow::Joystick Gamepad(std::string const& guid = "03000000de280000ff11000001000000",
                                 std::string const& name = "Test Pad") {
    HeadlessWindow::Joystick pad{
        guid, name, true, {0, 0, 0, 0, -1, -1}, std::vector<unsigned char>(15, GLFW_RELEASE), {GLFW_HAT_CENTERED}, {}};
    pad.gamepad.axes[GLFW_GAMEPAD_AXIS_LEFT_TRIGGER] = pad.gamepad.axes[GLFW_GAMEPAD_AXIS_RIGHT_TRIGGER] = -1.0f;
    return pad;
}

/// A flight stick without gamepad mapping.
HeadlessWindow::Joystick Stick(std::string const& guid = "0300000044044a0400010000ff010000", int axes = 4,
                               int buttons = 12, int hats = 1) {
    return {guid,
            "Test Stick",
            false,
            std::vector<float>(axes, 0.0f),
            std::vector<unsigned char>(buttons, GLFW_RELEASE),
            std::vector<unsigned char>(hats, GLFW_HAT_CENTERED),
            {}};
}

/// The edges of an action as a hex digit: pressed 1, released 2, a rising delta 4, a falling one 8.
int Edges(bool pressed, bool released, double delta) {
    return pressed + 2 * released + 4 * (delta > 0) + 8 * (delta < 0);
}

/// The device numbers of the lookups' results, "-" for none.
std::string Ids(std::initializer_list<std::shared_ptr<Joystick>> found) {
    std::string ids;
    for (auto const& device : found) ids += (ids.empty() ? "" : " ") + (device ? std::to_string(device->id) : "-");
    return ids;
}

class InputTest : public ::testing::Test {
protected:
    void SetUp() override {
        Game::window = &window;
        Game::settings = std::make_unique<game::GameSettings>(scratch.File("settings.ini"), std::nullopt);
        Controller::Reset();
    }
    void TearDown() override {
        Game::_joysticks.clear();
        Game::_inputMode = 0;
        Game::_mouseLook = false;
        Controller::Reset();
        Game::settings.reset();
        Game::window = nullptr;
    }
    void Connect(int id, HeadlessWindow::Joystick const& device) {
        window.ConnectJoystick(id, device);
        Game::UpdateJoysticks();
    }
    void Pass(double deltaTime = 1.0 / 60.0) {
        Game::UpdateJoysticks();
        Controller::InputUpdate(deltaTime);
    }
    void Key(int key, bool down) { window.SetKey(key, down ? GLFW_PRESS : GLFW_RELEASE); }

    /// Carries out the steps of commands (separated by ';'), runs one pass and writes
    /// "commands => changes" into the transcript, the changes as "Action before->after".
    ///   mode ui|play|station   free (cursor not captured)   invert (mouse look)   dt SECONDS   drop settings|window
    ///   key NAME down|up   mouse left down|up   cursor X Y   connect ID pad|stick GUID
    ///   pad AXIS VALUE   pad BUTTON down|up   joy ID axis N VALUE   joy ID button N down|up
    ///   bind aux7|light|sprint|pitchup|primary SLOT NAME|- ID BUTTON AXIS DIRECTION (a joystick binding)
    void Step(std::string const& commands) {
        std::istringstream steps(commands);
        for (std::string step; std::getline(steps, step, ';');) {
            std::istringstream in(step);
            std::string what, name, arg, value;
            in >> what >> name >> arg;
            if (what == "mode") {
                Game::_inputMode = name == "ui" ? 0 : name == "play" ? 1 : 2;
                Game::_mouseLook = name != "ui";
            } else if (what == "free") {
                Game::_mouseLook = false;
            } else if (what == "drop") {
                name == "settings" ? Game::settings.reset() : void(Game::window = nullptr);
            } else if (what == "invert") {
                Game::settings->avatar_mouselook_invert_y = true;
            } else if (what == "dt") {
                deltaTime = std::stod(name);
            } else if (what == "key") {
                Key(nerox::input::code_from_string("key", name), arg == "down");
            } else if (what == "mouse") {
                window.SetMouseButton(GLFW_MOUSE_BUTTON_LEFT, arg == "down" ? GLFW_PRESS : GLFW_RELEASE);
            } else if (what == "cursor") {
                window.SetCursorPos(std::stod(name), std::stod(arg));
            } else if (what == "connect") {
                in >> what;
                Connect(std::stoi(name), arg == "pad" ? Gamepad() : Stick(what));
            } else if (what == "pad" && (arg == "down" || arg == "up")) {
                window.SetGamepadButton(0, nerox::input::code_from_string("gamepad_button", name), arg == "down");
            } else if (what == "pad") {
                window.SetGamepadAxis(0, nerox::input::code_from_string("gamepad_axis", name), std::stof(arg));
            } else if (what == "joy") {
                in >> what >> value;
                if (arg == "axis")
                    window.SetJoystickAxis(std::stoi(name), std::stoi(what), std::stof(value));
                else
                    window.SetJoystickButton(std::stoi(name), std::stoi(what), value == "down");
            } else if (what == "bind") {
                game::GameSettings& s = *Game::settings;
                int id = 0, button = 0;
                int16_t axis = 0, direction = 0;
                in >> value >> id >> button >> axis >> direction;
                auto& binding = name == "aux7" ? s.input_binding_vehicle_aux_7
                    : name == "light"          ? s.input_binding_avatar_light
                    : name == "sprint"         ? s.input_binding_avatar_sprint
                    : name == "pitchup"        ? s.input_binding_avatar_pitch_up
                                               : s.input_binding_avatar_tool_primary;
                binding.joysticks[std::stoi(arg)] = {value == "-" ? "" : value, id, button, axis, direction};
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

    HeadlessWindow window{1280, 720};
    testsupport::TempDir scratch;
    std::string transcript;
    double deltaTime = 1.0 / 60.0;
    bool lookMode = true;
};

using JoystickTest = InputTest;
using ControllerTest = InputTest;

TEST_F(JoystickTest, ReadsIdentityCountsAndRawStateAndNothingPastThem) {
    HeadlessWindow::Joystick stick = Stick("ABCDEF", 3, 5, 2);
    stick.axes = {0.25f, -0.5f, 1.0f};
    stick.buttons[4] = GLFW_PRESS;
    stick.hats[1] = GLFW_HAT_LEFT_UP;
    Connect(2, stick);
    std::shared_ptr<Joystick> const device = Game::_joysticks.at(2);
    EXPECT_TRUE(device->connected && !device->isGamepad && device->id == 2);
    EXPECT_EQ(device->guid + " " + device->name, "ABCDEF Test Stick");
    EXPECT_EQ(device->axesCount * 100 + device->buttonsCount * 10 + device->hatsCount, 352);
    EXPECT_FLOAT_EQ(device->GetAxis(1, 0.1f, false, false), -0.5f);
    EXPECT_TRUE(device->GetButton(4) && !device->GetButton(3));
    EXPECT_EQ(device->GetHat(1), GLFW_HAT_LEFT_UP);
    // Out of range, on every side; without a mapping the gamepad readings stay at rest.
    for (int outside : {-1, 3, 5, 99}) {
        EXPECT_EQ(device->GetAxis(outside, 0.1f, false, false) + device->GetAxis(outside, 0.1f, true, false), 0.0f);
        EXPECT_FALSE(device->GetButton(outside == 3 ? 5 : outside) ||
                     device->GetButtonBinding(outside == 3 ? 5 : outside));
        EXPECT_EQ(device->GetHat(outside == 3 ? 2 : outside), 0) << outside;
    }
    EXPECT_FALSE(device->GetGamepadAxis(0, 0.0f, false, false) != 0.0f || device->GetGamepadButton(0));
}

// Without calibration the dead zone is around 0, or above -1 for an unsigned range
// (a trigger), and the value is not rescaled past it. Calibration learns the range
// from the samples: one that does not cross 0 maps to -1..1 with the dead zone above
// its minimum, one across 0 has the dead zone around 0 again. Rows: axis, value,
// calibrate, unsigned, expected; the first calibrated sample makes an empty range.
TEST_F(JoystickTest, DeadZonesAndCalibration) {
    HeadlessWindow::Joystick stick = Stick();
    stick.axes[1] = 0.2f;
    Connect(0, stick);
    std::shared_ptr<Joystick> const device = Game::_joysticks.at(0);
    float const rows[][5] = {{1, 0.2f, 1, 0, 0.0f},   {0, 0.1f, 0, 0, 0.0f},     {0, -0.1f, 0, 0, 0.0f},
                             {0, 0.11f, 0, 0, 0.11f}, {0, -0.11f, 0, 0, -0.11f}, {0, -1.0f, 0, 1, 0.0f},
                             {0, -0.9f, 0, 1, 0.0f},  {0, -0.8f, 0, 1, 0.1f},    {0, 1.0f, 0, 1, 1.0f},
                             {1, 0.6f, 1, 0, 1.0f},   {1, 0.22f, 1, 0, 0.0f},    {1, 0.4f, 1, 0, 0.0f},
                             {1, 0.4f, 1, 1, 0.5f},   {1, -0.6f, 1, 0, -1.0f},   {1, 0.04f, 1, 0, 0.0f},
                             {1, 0.3f, 1, 0, 0.5f},   {1, 0.3f, 1, 1, 0.75f},    {1, -0.58f, 1, 1, 0.0f}};
    for (auto const& r : rows) {
        window.SetJoystickAxis(0, int(r[0]), r[1]);
        Game::UpdateJoysticks();
        EXPECT_NEAR(device->GetAxis(int(r[0]), r[2] ? 0.05f : 0.1f, r[2] != 0, r[3] != 0), r[4], 1e-6f)
            << r[0] << " at " << r[1] << (r[3] ? " unsigned" : "");
    }
    // Reading without calibration sets the nominal range.
    EXPECT_TRUE(device->axisMin[0] == -1.0f && device->axisMax[0] == 1.0f);
}

TEST_F(JoystickTest, ButtonEdgesIgnoreAButtonHeldAtTheFirstLookAndCountOnce) {
    HeadlessWindow::Joystick pad = Gamepad();
    pad.buttons[2] = pad.gamepad.buttons[GLFW_GAMEPAD_BUTTON_X] = GLFW_PRESS;
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
    EXPECT_FALSE(device->GetGamepadButton(GLFW_GAMEPAD_BUTTON_LAST + 1) || device->GetGamepadButton(-1));
    EXPECT_EQ(device->GetGamepadAxis(GLFW_GAMEPAD_AXIS_LAST + 1, 0.1f, false, false), 0.0f);
}

TEST_F(JoystickTest, LookupsByPositionKindAndIdentity) {
    Connect(0, Gamepad("PADGUID"));
    Connect(1, Stick("TWIN", 1)); // one stray axis: no joystick, but a device of its identity
    Connect(2, Stick("twin"));
    Connect(3, Gamepad("PADGUID", "Second Pad"));
    Connect(5, Stick("TWIN"));
    Connect(7, Stick("OTHER"));
    EXPECT_EQ(Ids({Game::GetFirstGamepad(), Game::GetFirstJoystick(), Game::GetJoystick(0), Game::GetJoystick(1),
                   Game::GetJoystick(2), Game::GetJoystick(3), Game::GetJoystick(-1)}),
              "0 2 2 5 7 - -");
    // By identity, without case, twins are told apart by their position; gamepads are matched too.
    EXPECT_EQ(Ids({Game::GetJoystick("twin", 0), Game::GetJoystick("twin", 1), Game::GetJoystick("TWIN", 2),
                   Game::GetJoystick("TWIN", 3), Game::GetJoystick("padguid", 1), Game::GetJoystick("", 1),
                   Game::GetGamepad("", 1), Game::GetGamepad("PADGUID", 0), Game::GetGamepad("TWIN", 0)}),
              "1 2 5 - 3 5 3 0 -");
    EXPECT_FALSE(Game::_joysticks.at(7)->IsSameGUID("OTHE") || Game::_joysticks.at(7)->IsSameGUID("OTHEQ"));
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

// A device never opened reads as at rest.
TEST_F(JoystickTest, AnotherDeviceInTheSamePlaceIsOpenedAnew) {
    Connect(4, Stick("FIRST"));
    std::shared_ptr<Joystick> const before = Game::_joysticks.at(4);
    before->GetAxis(0, 0.1f, true, false);
    window.DisconnectJoystick(4);
    window.ConnectJoystick(4, Stick("SECOND", 2, 3, 0));
    Game::UpdateJoysticks();
    std::shared_ptr<Joystick> const after = Game::_joysticks.at(4);
    EXPECT_TRUE(before != after && !before->connected && after->guid == "SECOND" && after->GetHat(0) == 0);
    EXPECT_EQ(after->axesCount * 10 + after->hatsCount, 20);
    Joystick orphan(0);
    EXPECT_FALSE(orphan.connected || orphan.GetButton(0) || orphan.GetButtonBinding(0) ||
                 orphan.GetAxis(0, 0.0f, false, false) != 0.0f);
}

// Lines starting with '#' in a transcript say what it shows and are kept as they are.
class ControllerTranscript : public InputTest, public testing::WithParamInterface<char const*> { };

TEST_P(ControllerTranscript, ReplaysItsCommands) {
    std::string const golden = std::string("input/controller_") + GetParam() + ".txt";
    for (std::string const& line : testsupport::SplitLines(testsupport::ReadText(testsupport::DataFile(golden))))
        line[0] == '#' ? void(transcript += line + "\n") : Step(line.substr(0, line.find(" =>")));
    testsupport::ExpectGolden(transcript, golden);
}
INSTANTIATE_TEST_SUITE_P(Passes, ControllerTranscript,
                         testing::Values("bindings", "modes", "mouse_look", "stick_look", "sprint", "joystick"));

TEST_F(ControllerTest, DearImGuiKeepsTheKeyboardButNotEscapeOrChat) {
    ImGuiContext* context = ImGui::CreateContext();
    ImGuiIO& io = ImGui::GetIO();
    io.DisplaySize = ImVec2(1280, 720);
    io.IniFilename = nullptr;
    io.Fonts->Build();
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
    Step("key ESCAPE up; key ENTER up");
    ImGui::DestroyContext(context);
    testsupport::ExpectGolden(transcript, "input/controller_imgui.txt");
}

// In play, one pass per word, the key down (D) or up (U), then a sleep of the
// milliseconds after the letter: what the poll says after each pass. A press of fewer
// than three passes is a tap, however far apart the passes, unless longer than the
// limit. Holding fires once, after three passes of holding and the time, slow passes
// first. Hold-or-toggle: true on a press, and again on the release of a long press.
// The edges of an on/off and a double action.
TEST_F(ControllerTest, TapsHoldsAndHoldOrToggle) {
    struct Case {
        int key;
        char const* passes;
        std::function<int()> poll;
        char const* seen;
    };
    Case const cases[] = {
        {GLFW_KEY_SPACE, "D250 U U", [] { return Controller::GetAvatarJump_Hold(0, 200); }, "010"},
        {GLFW_KEY_SPACE, "D10 D10 D10 D25 U", [] { return Controller::GetAvatarJump_Hold(0, 20); }, "00000"},
        {GLFW_KEY_F, "D20 D20 D5 D5 D5 D5 D5 D5 D5 D5 D5 D5 D U",
         [] { return Controller::GetAvatarInteract_Hold(30, 0); }, "00001000000000"},
        {GLFW_KEY_C, "D U D15 D15 D15 D15 D U", [] { return Controller::GetAvatarToolConfigure_HoldOrToggle(40); },
         "10100001"},
        {GLFW_KEY_R, "D D U U",
         [] { return Edges(Controller::GetSit_Pressed(), Controller::GetSit_Released(), Controller::GetSit_Delta()); },
         "50a0"},
        {GLFW_KEY_W, "D D U U",
         [] {
             return Edges(Controller::GetAvatarTranslateForward_Pressed(),
                          Controller::GetAvatarTranslateForward_Released(),
                          Controller::GetAvatarTranslateForward_Delta());
         },
         "50a0"},
    };
    Game::_inputMode = 1;
    for (Case const& c : cases) {
        std::string seen;
        std::istringstream words(c.passes);
        for (std::string word; words >> word;) {
            Key(c.key, word[0] == 'D');
            Pass();
            seen += "0123456789abcdef"[c.poll()];
            std::this_thread::sleep_for(std::chrono::milliseconds(word.size() > 1 ? std::stoi(word.substr(1)) : 0));
        }
        EXPECT_EQ(seen, c.seen) << c.passes;
    }
}

TEST_F(ControllerTest, HoldNeedsExactlyOneLimit) {
    EXPECT_DEATH(Controller::GetZoom_Hold(0, 0),
                 "ASSERTION FAILED: \\(\\(millisecondsMin == 0\\) != "
                 "\\(millisecondsMax == 0\\)\\) in .*game/input/Controller");
}

TEST_F(ControllerTest, BindingTextsNameEveryInputAndActionsAreListedInRecordOrder) {
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
