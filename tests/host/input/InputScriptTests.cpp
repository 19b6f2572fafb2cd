// Input scripts of the host: reading the text (every event, comments, line
// ends, errors with their line, times, the bounds of devices), playing it into
// a headless window in time order, and the printed action stream.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "game/Game.hpp"
#include "game/input/Controller.hpp"
#include "host/InputScript.hpp"
#include "nerox/graphics/HeadlessWindow.hpp"
#include "support/TempDir.hpp"

namespace {

using host::ActionPrinter;
using host::InputEvent;
using host::InputPlayer;
using host::InputScript;
using nerox::graphics::HeadlessWindow;

InputScript Parse(std::string const& text) { return InputScript::Parse(text, "test.input"); }

/// The message of the error that reading text gives; fails the test when there is none.
std::string ErrorOf(std::string const& text) {
    try {
        Parse(text);
    } catch (std::runtime_error const& error) {
        return error.what();
    }
    ADD_FAILURE() << "no error for:\n" << text;
    return "";
}

// ---------------------------------------------------------------- the text

TEST(InputScriptText, CommentsAndBlankLinesAreSkippedAndLinesCountFromOne) {
    InputScript const script = Parse("# a walk\n"
                                     "\n"
                                     "   \t \n"
                                     "0 mode play   # play mode\n"
                                     "#0 quit\n"
                                     "0.5 key KEY_W down#no blank needed\n");
    ASSERT_EQ(script.Events().size(), 2u);
    EXPECT_EQ(script.Events()[0].kind, InputEvent::Kind::Mode);
    EXPECT_EQ(script.Events()[0].line, 4);
    EXPECT_EQ(script.Events()[1].kind, InputEvent::Kind::Key);
    EXPECT_EQ(script.Events()[1].line, 6);
    EXPECT_DOUBLE_EQ(script.Events()[1].time, 0.5);
    EXPECT_EQ(script.FileName(), "test.input");
}

TEST(InputScriptText, CrlfLineEndsTabsAndAMissingLastNewlineReadAsPlainLines) {
    InputScript const script = Parse("0\tkey\tKEY_A\tdown\r\n\r\n1 key KEY_A up\r\n2 quit");
    ASSERT_EQ(script.Events().size(), 3u);
    EXPECT_EQ(script.Events()[0].index, GLFW_KEY_A);
    EXPECT_TRUE(script.Events()[0].down);
    EXPECT_FALSE(script.Events()[1].down);
    EXPECT_EQ(script.Events()[1].line, 3);
    EXPECT_EQ(script.Events()[2].kind, InputEvent::Kind::Quit);
}

TEST(InputScriptText, AnEmptyOrCommentOnlyFileHasNoEvents) {
    EXPECT_TRUE(Parse("").Events().empty());
    EXPECT_TRUE(Parse("# nothing\n\n").Events().empty());
    EXPECT_TRUE(Parse("\xEF\xBB\xBF# saved with a byte order mark\n").Events().empty());
}

TEST(InputScriptText, EventsAndWordsIgnoreCaseAndNamesMayDropTheirPrefix) {
    InputScript const script = Parse("0 KEY w DOWN\n"
                                     "0 Mouse left Up\n"
                                     "0 MODE Station\n"
                                     "0 gamepad 1 connect\n"
                                     "0 gamepad 1 button a down\n"
                                     "0 gamepad 1 axis left_y -0.5\n"
                                     "0 focus OFF\n");
    auto const& events = script.Events();
    ASSERT_EQ(events.size(), 7u);
    EXPECT_EQ(events[0].index, GLFW_KEY_W);
    EXPECT_TRUE(events[0].down);
    EXPECT_EQ(events[1].index, GLFW_MOUSE_BUTTON_LEFT);
    EXPECT_FALSE(events[1].down);
    EXPECT_EQ(events[2].value, 2);
    EXPECT_EQ(events[4].index, GLFW_GAMEPAD_BUTTON_A);
    EXPECT_EQ(events[5].index, GLFW_GAMEPAD_AXIS_LEFT_Y);
    EXPECT_DOUBLE_EQ(events[5].x, -0.5);
    EXPECT_FALSE(events[6].down);
}

TEST(InputScriptText, CodesMayBeGivenAsNumbersAndRawOnesAsAxisNOrButtonN) {
    InputScript const script = Parse("0 key 87 down\n0 mouse 1 down\n0 gamepad 0 connect\n0 gamepad 0 button 9 down\n"
                                     "0 joystick 1 connect 3 4 0\n0 joystick 1 axis AXIS_2 1\n0 joystick 1 button button_3 down\n"
                                     "0 key 5 down\n");
    EXPECT_EQ(script.Events()[0].index, GLFW_KEY_W);
    EXPECT_EQ(script.Events()[1].index, GLFW_MOUSE_BUTTON_RIGHT);
    EXPECT_EQ(script.Events()[3].index, GLFW_GAMEPAD_BUTTON_LEFT_THUMB);
    EXPECT_EQ(script.Events()[5].index, 2);
    EXPECT_EQ(script.Events()[6].index, 3);
    EXPECT_EQ(script.Events()[7].index, GLFW_KEY_5); // a single digit is the key of that digit
}

TEST(InputScriptText, ConnectLinesTakeAnOptionalGuidAndANameOfSeveralWords) {
    InputScript const script = Parse("0 gamepad 0 connect\n"
                                     "0 gamepad 1 connect 030000005e0400008e02000014010000\n"
                                     "0 gamepad 2 connect 030000005e0400008e02000014010000 My   Pad  Two\n"
                                     "0 joystick 3 connect 4 12 1 0300000044044a0400010000ff010000 Flight Stick # comment\n"
                                     "0 joystick 4 connect 0 0 0\n");
    auto const& events = script.Events();
    ASSERT_EQ(events.size(), 5u);
    EXPECT_EQ(events[0].guid.size(), 32u);
    EXPECT_FALSE(events[0].name.empty());
    EXPECT_EQ(events[1].guid, "030000005e0400008e02000014010000");
    EXPECT_EQ(events[2].name, "My Pad Two");
    EXPECT_EQ(events[3].device, 3);
    EXPECT_EQ(events[3].axes, 4);
    EXPECT_EQ(events[3].buttons, 12);
    EXPECT_EQ(events[3].hats, 1);
    EXPECT_EQ(events[3].name, "Flight Stick");
    EXPECT_EQ(events[4].axes, 0);
}

TEST(InputScriptText, HatDirectionsAreWordsJoinedByPlus) {
    InputScript const script = Parse("0 joystick 0 connect 2 2 1\n"
                                     "0 joystick 0 hat 0 up\n"
                                     "0 joystick 0 hat 0 left+up\n"
                                     "0 joystick 0 hat 0 DOWN+RIGHT\n"
                                     "0 joystick 0 hat 0 centered\n");
    auto const& events = script.Events();
    EXPECT_EQ(events[1].value, GLFW_HAT_UP);
    EXPECT_EQ(events[2].value, GLFW_HAT_LEFT_UP);
    EXPECT_EQ(events[3].value, GLFW_HAT_RIGHT_DOWN);
    EXPECT_EQ(events[4].value, GLFW_HAT_CENTERED);
    EXPECT_NE(ErrorOf("0 joystick 0 connect 2 2 1\n0 joystick 0 hat 0 up+down\n").find("test.input:2:"),
              std::string::npos);
    EXPECT_NE(ErrorOf("0 joystick 0 connect 2 2 1\n0 joystick 0 hat 0 up+up\n").find("twice"), std::string::npos);
    EXPECT_NE(ErrorOf("0 joystick 0 connect 2 2 1\n0 joystick 0 hat 0 up+\n").find("hat direction"),
              std::string::npos);
    EXPECT_NE(ErrorOf("0 joystick 0 connect 2 2 1\n0 joystick 0 hat 0 north\n").find("'north'"), std::string::npos);
}

// ---------------------------------------------------------------- errors

TEST(InputScriptErrors, NameTheFileTheLineAndWhatWasWrong) {
    struct Case {
        char const* text;
        char const* expected; // part of the message, after "test.input:LINE: "
    };
    Case const cases[] = {
        {"0 jump\n", "test.input:1: unknown event 'jump'"},
        {"\n\n0 key KEY_NOPE down\n", "test.input:3: unknown key 'KEY_NOPE'"},
        {"0 key NONE down\n", "test.input:1: key 'NONE' names no key"},
        {"0 key KEY_W pressed\n", "test.input:1: state must be down or up, not 'pressed'"},
        {"0 key KEY_W\n", "test.input:1: missing state after '0 key KEY_W'"},
        {"0 key KEY_W down now\n", "test.input:1: unexpected 'now' after '0 key KEY_W down'"},
        {"0 key 400 down\n", "test.input:1: unknown key '400'"},
        {"0 mouse MOUSE_BUTTON_9 down\n", "test.input:1:"},
        {"0 mode fly\n", "test.input:1: mode must be ui, play or station, not 'fly'"},
        {"0 focus maybe\n", "test.input:1: focus must be on or off"},
        {"0 cursor 10\n", "test.input:1: missing cursor y"},
        {"0 cursor 10 abc\n", "test.input:1: cursor y must be a number, not 'abc'"},
        {"0 cursor nan 0\n", "test.input:1: cursor x must be a number, not 'nan'"},
        {"0 cursor 1e7 0\n", "test.input:1: cursor x must be from"},
        {"soon quit\n", "test.input:1: a line must start with the time in seconds, not 'soon'"},
        {"-1 quit\n", "test.input:1: time must be from 0"},
        {"inf quit\n", "test.input:1: a line must start with the time"},
        {"1e9 quit\n", "test.input:1: time must be from 0"},
        {"0 quit now\n", "test.input:1: unexpected 'now'"},
        {"0 gamepad 0 connect\n0 gamepad 0 axis GAMEPAD_AXIS_LEFT_X 1.5\n",
         "test.input:2: axis value must be from -1 to 1, not 1.5"},
        {"0 gamepad 0 connect\n0 gamepad 0 axis GAMEPAD_AXIS_LEFT_X\n", "test.input:2: missing axis value"},
        {"0 gamepad 0 connect\n0 gamepad 0 button GAMEPAD_BUTTON_Z down\n",
         "test.input:2: unknown gamepad button 'GAMEPAD_BUTTON_Z'"},
        {"0 gamepad 0 shake\n", "test.input:1: gamepad event must be connect, button or axis, not 'shake'"},
        {"0 joystick 0 connect 2 2\n", "test.input:1: missing number of hats"},
        {"0 joystick 0 connect two 2 0\n", "test.input:1: number of axes must be a whole number, not 'two'"},
        {"0 joystick 0 connect 2 2 1\n0 joystick 0 axis 1 -2\n", "test.input:2: axis value must be from -1 to 1"},
        {"0 joystick 0 connect 2 2 1\n0 joystick 0 button x down\n",
         "test.input:2: button must be a whole number from 0, not 'x'"},
    };
    for (Case const& c : cases) {
        std::string const message = ErrorOf(c.text);
        EXPECT_EQ(message.find(c.expected), 0u) << "for: " << c.text << "got: " << message;
    }
}

TEST(InputScriptErrors, TimesMustNotGoBack) {
    EXPECT_NO_THROW(Parse("0 key KEY_W down\n0 key KEY_W up\n0.5 quit\n0.5 quit\n"));
    std::string const message = ErrorOf("0 mode play\n\n1.5 key KEY_W down\n# later\n1.25 key KEY_W up\n");
    EXPECT_EQ(message.find("test.input:5: time 1.25 goes back before 1.5 (line 3)"), 0u) << message;
}

TEST(InputScriptErrors, TheFirstBadLineIsReportedEvenWithMoreBelow) {
    std::string const message = ErrorOf("0 mode play\n1 key KEY_W sideways\n2 jump\n");
    EXPECT_EQ(message.find("test.input:2:"), 0u) << message;
}

TEST(InputScriptErrors, AFileThatCannotBeOpenedIsNamed) {
    testsupport::TempDir scratch;
    std::string const path = scratch.File("missing.input");
    try {
        InputScript::Load(path);
        FAIL() << "no error";
    } catch (std::runtime_error const& error) {
        EXPECT_NE(std::string(error.what()).find(path), std::string::npos) << error.what();
    }
}

TEST(InputScriptErrors, ErrorsOfALoadedFileNameItsPath) {
    testsupport::TempDir scratch;
    std::string const path = scratch.File("walk.input");
    testsupport::WriteText(path, "0 mode play\r\n0.5 key KEY_W down\r\n0.25 quit\r\n");
    try {
        InputScript::Load(path);
        FAIL() << "no error";
    } catch (std::runtime_error const& error) {
        EXPECT_EQ(std::string(error.what()).find(path + ":3: time 0.25 goes back"), 0u) << error.what();
    }
    testsupport::WriteText(path, "0 mode play\n1 quit\n");
    EXPECT_EQ(InputScript::Load(path).Events().size(), 2u);
}

// Every prefix of a script, and every line with bytes changed, reads as a
// script or fails with an error: nothing reads past its text (the sanitizer
// builds check the reads).
TEST(InputScriptErrors, CutOrDamagedTextGivesAnErrorOrAScript) {
    std::string const text = "0 mode play\n0.1 key KEY_W down\n0.2 mouse MOUSE_BUTTON_LEFT down\n0.3 cursor 10 -5\n"
                             "0.4 gamepad 2 connect 0300 Pad\n0.5 gamepad 2 axis GAMEPAD_AXIS_LEFT_Y -1\n"
                             "0.6 joystick 3 connect 2 3 1\n0.7 joystick 3 hat 0 up+left\n0.8 disconnect 3\n1 quit\n";
    for (size_t length = 0; length <= text.size(); ++length) {
        try {
            Parse(text.substr(0, length));
        } catch (std::runtime_error const&) {
        }
    }
    char const replacements[] = {'\0', '#', ' ', '\r', '+', '-', '9', '\xff'};
    for (size_t at = 0; at < text.size(); ++at) {
        for (char const replacement : replacements) {
            std::string damaged = text;
            damaged[at] = replacement;
            try {
                Parse(damaged);
            } catch (std::runtime_error const&) {
            }
        }
    }
}

// ---------------------------------------------------------------- devices

TEST(InputScriptDevices, DeviceNumbersRunFrom0To15) {
    EXPECT_NO_THROW(Parse("0 gamepad 0 connect\n0 joystick 15 connect 1 1 1\n"));
    for (char const* text : {"0 gamepad 16 connect\n", "0 gamepad -1 connect\n", "0 joystick 99999999999 connect 1 1 1\n",
                             "0 disconnect 16\n", "0 gamepad x connect\n"}) {
        EXPECT_EQ(ErrorOf(text).find("test.input:1: device number must be a whole number from 0 to 15"), 0u) << text;
    }
}

TEST(InputScriptDevices, IndicesPastTheConnectedCountsAreRefused) {
    std::string const stick = "0 joystick 2 connect 3 5 1\n";
    EXPECT_NO_THROW(Parse(stick + "0 joystick 2 axis 2 1\n0 joystick 2 button 4 down\n0 joystick 2 hat 0 up\n"));
    EXPECT_EQ(ErrorOf(stick + "0 joystick 2 axis 3 1\n").find("test.input:2: axis 3 is past the 3 that device 2"), 0u);
    EXPECT_EQ(ErrorOf(stick + "0 joystick 2 button 5 down\n").find("test.input:2: button 5 is past the 5"), 0u);
    EXPECT_EQ(ErrorOf(stick + "0 joystick 2 hat 1 up\n").find("test.input:2: hat 1 is past the 1"), 0u);
    EXPECT_EQ(ErrorOf(stick + "0 joystick 2 axis -1 1\n").find("test.input:2: axis must be a whole number from 0"), 0u);
    EXPECT_EQ(ErrorOf("0 joystick 1 connect 0 0 0\n0 joystick 1 button 0 down\n").find("test.input:2: button 0 is past"),
              0u);
    // A gamepad has 15 buttons and 6 axes.
    std::string const pad = "0 gamepad 0 connect\n";
    EXPECT_NO_THROW(Parse(pad + "0 gamepad 0 button 14 down\n0 gamepad 0 axis 5 1\n"));
    EXPECT_EQ(ErrorOf(pad + "0 gamepad 0 button 15 down\n").find("test.input:2: unknown gamepad button '15'"), 0u);
    EXPECT_EQ(ErrorOf(pad + "0 gamepad 0 axis 6 0\n").find("test.input:2: unknown gamepad axis '6'"), 0u);
}

TEST(InputScriptDevices, ConnectCountsHaveLimits) {
    EXPECT_NO_THROW(Parse("0 joystick 0 connect 64 256 16\n"));
    EXPECT_EQ(ErrorOf("0 joystick 0 connect 65 1 1\n").find("test.input:1: number of axes must be from 0 to 64"), 0u);
    EXPECT_EQ(ErrorOf("0 joystick 0 connect 1 257 1\n").find("test.input:1: number of buttons must be from 0 to 256"), 0u);
    EXPECT_EQ(ErrorOf("0 joystick 0 connect 1 1 17\n").find("test.input:1: number of hats must be from 0 to 16"), 0u);
    EXPECT_EQ(ErrorOf("0 joystick 0 connect -1 1 1\n").find("test.input:1: number of axes must be from 0"), 0u);
}

TEST(InputScriptDevices, EventsNeedAConnectedDeviceOfTheirKind) {
    EXPECT_EQ(ErrorOf("0 gamepad 0 button A down\n").find("test.input:1: no device is connected at 0 (connect one first)"),
              0u);
    EXPECT_EQ(ErrorOf("0 joystick 4 axis 0 1\n").find("test.input:1: no device is connected at 4"), 0u);
    EXPECT_EQ(ErrorOf("0 disconnect 3\n").find("test.input:1: no device is connected at 3 to disconnect"), 0u);
    EXPECT_EQ(ErrorOf("0 gamepad 1 connect\n1 disconnect 1\n2 gamepad 1 axis 0 1\n").find("test.input:3: no device"), 0u);
    EXPECT_EQ(ErrorOf("0 gamepad 1 connect\n0 joystick 1 axis 0 1\n")
                  .find("test.input:2: device 1 is a gamepad: use 'gamepad 1 ...'"),
              0u);
    EXPECT_EQ(ErrorOf("0 joystick 1 connect 6 15 0\n0 gamepad 1 button A down\n")
                  .find("test.input:2: device 1 is a joystick: use 'joystick 1 ...'"),
              0u);
    // Connecting again replaces the device, with the new one's counts.
    EXPECT_NO_THROW(Parse("0 joystick 1 connect 1 1 0\n1 gamepad 1 connect\n2 gamepad 1 axis 5 0.5\n"));
    EXPECT_EQ(ErrorOf("0 joystick 1 connect 8 8 0\n1 joystick 1 connect 2 2 0\n2 joystick 1 axis 2 0\n")
                  .find("test.input:3: axis 2 is past the 2"),
              0u);
}

// ---------------------------------------------------------------- playing

class InputPlayerTest : public ::testing::Test {
protected:
    void SetUp() override {
        Game::window = &window;
        Game::isActive.store(true);
    }
    void TearDown() override {
        Game::_inputMode = 0;
        Game::_mouseLook = false;
        Game::isActive.store(false);
        Game::window = nullptr;
        game::input::Controller::Reset();
    }

    InputPlayer Player(std::string const& text) { return InputPlayer(Parse(text), window); }

    HeadlessWindow window{1280, 720};
};

TEST_F(InputPlayerTest, KeysAndMouseButtonsGoDownAndUp) {
    int keyEvents = 0;
    window.onKey = [&keyEvents](int, int, int, int) { ++keyEvents; };
    InputPlayer player = Player("0 key KEY_W down\n0 mouse MOUSE_BUTTON_RIGHT down\n1 key KEY_W up\n1 mouse 1 up\n");
    EXPECT_EQ(player.Apply(0.0), 2u);
    EXPECT_EQ(window.GetKey(GLFW_KEY_W), GLFW_PRESS);
    EXPECT_EQ(window.GetMouseButton(GLFW_MOUSE_BUTTON_RIGHT), GLFW_PRESS);
    EXPECT_EQ(window.GetKey(GLFW_KEY_S), GLFW_RELEASE);
    EXPECT_EQ(player.Apply(1.0), 2u);
    EXPECT_EQ(window.GetKey(GLFW_KEY_W), GLFW_RELEASE);
    EXPECT_EQ(window.GetMouseButton(GLFW_MOUSE_BUTTON_RIGHT), GLFW_RELEASE);
    EXPECT_EQ(keyEvents, 2); // the window's key callback saw both
}

TEST_F(InputPlayerTest, TheCursorMovesAndTheFocusComesAndGoes) {
    InputPlayer player = Player("0 cursor 120 -30.5\n0 focus off\n1 focus on\n");
    player.Apply(0.0);
    double x = 0.0, y = 0.0;
    window.GetCursorPos(&x, &y);
    EXPECT_EQ(x, 120.0);
    EXPECT_EQ(y, -30.5);
    EXPECT_FALSE(window.IsFocused());
    player.Apply(1.0);
    EXPECT_TRUE(window.IsFocused());
}

TEST_F(InputPlayerTest, ModesGoThroughTheGameAndPlayCapturesTheCursorOfAFocusedWindow) {
    InputPlayer player = Player("0 mode play\n1 mode station\n2 mode ui\n3 focus off\n3 mode play\n");
    player.Apply(0.0);
    EXPECT_EQ(Game::_inputMode, 1);
    EXPECT_TRUE(Game::_mouseLook);
    EXPECT_EQ(window.GetInputMode(GLFW_CURSOR), GLFW_CURSOR_DISABLED);
    player.Apply(1.0);
    EXPECT_EQ(Game::_inputMode, 2);
    EXPECT_TRUE(Game::_mouseLook);
    player.Apply(2.0);
    EXPECT_EQ(Game::_inputMode, 0);
    EXPECT_FALSE(Game::_mouseLook);
    EXPECT_EQ(window.GetInputMode(GLFW_CURSOR), GLFW_CURSOR_NORMAL);
    player.Apply(3.0);
    EXPECT_EQ(Game::_inputMode, 1);
    EXPECT_FALSE(Game::_mouseLook); // without the focus the cursor stays free
}

TEST_F(InputPlayerTest, AGamepadConnectsAtRestAndFollowsTheScriptRawAndMapped) {
    InputPlayer player = Player("0 gamepad 3 connect 030000005e0400008e02000014010000 Scripted Pad\n"
                                "1 gamepad 3 axis GAMEPAD_AXIS_LEFT_Y -0.75\n"
                                "1 gamepad 3 button GAMEPAD_BUTTON_LEFT_THUMB down\n"
                                "2 gamepad 3 button GAMEPAD_BUTTON_LEFT_THUMB up\n");
    player.Apply(0.0);
    ASSERT_TRUE(window.JoystickPresent(3));
    EXPECT_TRUE(window.JoystickIsGamepad(3));
    EXPECT_STREQ(window.GetJoystickGUID(3), "030000005e0400008e02000014010000");
    EXPECT_STREQ(window.GetJoystickName(3), "Scripted Pad");
    int axes = 0, buttons = 0, hats = 0;
    float const* axis = window.GetJoystickAxes(3, &axes);
    window.GetJoystickButtons(3, &buttons);
    window.GetJoystickHats(3, &hats);
    EXPECT_EQ(axes, 6);
    EXPECT_EQ(buttons, 15);
    EXPECT_EQ(hats, 0);
    ASSERT_NE(axis, nullptr);
    EXPECT_EQ(axis[GLFW_GAMEPAD_AXIS_LEFT_Y], 0.0f);
    EXPECT_EQ(axis[GLFW_GAMEPAD_AXIS_LEFT_TRIGGER], -1.0f); // triggers rest released
    GLFWgamepadstate state{};
    ASSERT_TRUE(window.GetGamepadState(3, &state));
    EXPECT_EQ(state.axes[GLFW_GAMEPAD_AXIS_RIGHT_TRIGGER], -1.0f);
    EXPECT_EQ(state.buttons[GLFW_GAMEPAD_BUTTON_LEFT_THUMB], GLFW_RELEASE);

    player.Apply(1.0);
    window.GetGamepadState(3, &state);
    EXPECT_EQ(state.axes[GLFW_GAMEPAD_AXIS_LEFT_Y], -0.75f);
    EXPECT_EQ(state.buttons[GLFW_GAMEPAD_BUTTON_LEFT_THUMB], GLFW_PRESS);
    axis = window.GetJoystickAxes(3, &axes);
    unsigned char const* button = window.GetJoystickButtons(3, &buttons);
    EXPECT_EQ(axis[GLFW_GAMEPAD_AXIS_LEFT_Y], -0.75f);
    EXPECT_EQ(button[GLFW_GAMEPAD_BUTTON_LEFT_THUMB], GLFW_PRESS);

    player.Apply(2.0);
    window.GetGamepadState(3, &state);
    EXPECT_EQ(state.buttons[GLFW_GAMEPAD_BUTTON_LEFT_THUMB], GLFW_RELEASE);
    EXPECT_EQ(window.GetJoystickButtons(3, &buttons)[GLFW_GAMEPAD_BUTTON_LEFT_THUMB], GLFW_RELEASE);
}

TEST_F(InputPlayerTest, AJoystickHasItsCountsAndTakesAxesButtonsAndHats) {
    InputPlayer player = Player("0 joystick 5 connect 3 4 2 0300000044044a0400010000ff010000 Flight Stick\n"
                                "1 joystick 5 axis 2 -0.25\n"
                                "1 joystick 5 button 3 down\n"
                                "1 joystick 5 hat 1 down+left\n"
                                "2 disconnect 5\n");
    player.Apply(0.5);
    ASSERT_TRUE(window.JoystickPresent(5));
    EXPECT_FALSE(window.JoystickIsGamepad(5));
    EXPECT_FALSE(window.GetGamepadState(5, nullptr));
    EXPECT_STREQ(window.GetJoystickName(5), "Flight Stick");
    int axes = 0, buttons = 0, hats = 0;
    window.GetJoystickAxes(5, &axes);
    window.GetJoystickButtons(5, &buttons);
    window.GetJoystickHats(5, &hats);
    EXPECT_EQ(axes, 3);
    EXPECT_EQ(buttons, 4);
    EXPECT_EQ(hats, 2);

    player.Apply(1.5);
    EXPECT_EQ(window.GetJoystickAxes(5, &axes)[2], -0.25f);
    EXPECT_EQ(window.GetJoystickButtons(5, &buttons)[3], GLFW_PRESS);
    EXPECT_EQ(window.GetJoystickHats(5, &hats)[1], GLFW_HAT_LEFT_DOWN);
    EXPECT_EQ(window.GetJoystickHats(5, &hats)[0], GLFW_HAT_CENTERED);

    player.Apply(2.0);
    EXPECT_FALSE(window.JoystickPresent(5));
    EXPECT_TRUE(player.Finished());
}

TEST_F(InputPlayerTest, QuitEndsTheGame) {
    InputPlayer player = Player("0 mode play\n1 quit\n");
    player.Apply(0.0);
    EXPECT_TRUE(Game::isActive.load());
    EXPECT_FALSE(player.QuitApplied());
    player.Apply(1.0);
    EXPECT_FALSE(Game::isActive.load());
    EXPECT_TRUE(player.QuitApplied());
    EXPECT_FALSE(Game::_mouseLook); // Quit frees the cursor
}

TEST_F(InputPlayerTest, EventsComeInFileOrderWhenTheirTimeHasCome) {
    InputPlayer player = Player("0 key KEY_A down\n0.2 key KEY_A up\n0.2 key KEY_B down\n0.5 key KEY_B up\n");
    // Pass N runs at N/60 s: the events at 0.2 s come at pass 12, not before.
    size_t applied[31] = {};
    for (int pass = 0; pass <= 30; ++pass) applied[pass] = player.Apply(static_cast<double>(pass) / 60.0);
    EXPECT_EQ(applied[0], 1u);
    for (int pass = 1; pass < 12; ++pass) EXPECT_EQ(applied[pass], 0u) << pass;
    EXPECT_EQ(applied[12], 2u);
    for (int pass = 13; pass < 30; ++pass) EXPECT_EQ(applied[pass], 0u) << pass;
    EXPECT_EQ(applied[30], 1u);
    EXPECT_TRUE(player.Finished());
    EXPECT_EQ(player.Apply(100.0), 0u);
    EXPECT_EQ(window.GetKey(GLFW_KEY_A), GLFW_RELEASE);
    EXPECT_EQ(window.GetKey(GLFW_KEY_B), GLFW_RELEASE);
}

TEST_F(InputPlayerTest, AnEarlyApplyGivesNothingAndALateOneCatchesUpInOrder) {
    InputPlayer player = Player("1 key KEY_A down\n2 key KEY_A up\n3 key KEY_A down\n");
    EXPECT_EQ(player.Apply(0.999), 0u);
    EXPECT_FALSE(player.Finished());
    EXPECT_EQ(player.Apply(2.5), 2u);
    EXPECT_EQ(window.GetKey(GLFW_KEY_A), GLFW_RELEASE); // down, then up
    EXPECT_EQ(player.Apply(3.0), 1u);
    EXPECT_EQ(window.GetKey(GLFW_KEY_A), GLFW_PRESS);
}

// ---------------------------------------------------------------- printed actions

std::string Printed(ActionPrinter& printer, long long pass, double seconds, bool* wrote = nullptr) {
    std::FILE* file = std::tmpfile();
    EXPECT_NE(file, nullptr);
    bool const result = printer.Print(pass, seconds, file);
    if (wrote != nullptr) *wrote = result;
    std::rewind(file);
    std::string text;
    char buffer[512];
    size_t read = 0;
    while ((read = std::fread(buffer, 1, sizeof buffer, file)) > 0) text.append(buffer, read);
    std::fclose(file);
    return text;
}

TEST(ActionPrinterFormat, ShowsWholeNumbersBareAndOthersWithUpToFourDecimals) {
    std::array<char, 24> text{};
    auto shown = [&text](double value) {
        ActionPrinter::Format(value, text);
        return std::string(text.data());
    };
    EXPECT_EQ(shown(0.0), "0");
    EXPECT_EQ(shown(-0.0), "0");
    EXPECT_EQ(shown(1.0), "1");
    EXPECT_EQ(shown(0.5), "0.5");
    EXPECT_EQ(shown(120.0 * 0.5 / 720.0), "0.0833");
    EXPECT_EQ(shown(-0.00001), "0");
    EXPECT_EQ(shown(-1.25), "-1.25");
    EXPECT_EQ(shown(1e30), "1e+30");
    EXPECT_EQ(shown(std::nan("")), "nan");
}

class ActionPrinterTest : public ::testing::Test {
protected:
    void SetUp() override { game::input::Controller::Reset(); }
    void TearDown() override { game::input::Controller::Reset(); }
};

TEST_F(ActionPrinterTest, PrintsOnlyTheActionsThatChangedSinceTheLastLine) {
    using game::input::Controller;
    ActionPrinter printer;
    bool wrote = true;
    EXPECT_EQ(Printed(printer, 0, 0.0, &wrote), "");
    EXPECT_FALSE(wrote);

    Controller::state.AvatarTranslateForward = 1.0;
    Controller::state.AvatarSprint = true;
    EXPECT_EQ(Printed(printer, 12, 0.2, &wrote), "actions pass 12 t=0.200 AvatarSprint 0->1 AvatarTranslateForward 0->1\n");
    EXPECT_TRUE(wrote);
    EXPECT_EQ(Printed(printer, 13, 13 / 60.0), ""); // unchanged

    Controller::state.AvatarSprint = false;
    Controller::state.AvatarYaw = 0.5 * 120.0 / 720.0;
    Controller::state.VehicleGamepadLookToggle = true;
    EXPECT_EQ(Printed(printer, 14, 14 / 60.0),
              "actions pass 14 t=0.233 AvatarSprint 1->0 AvatarYaw 0->0.0833 VehicleGamepadLookToggle 0->1\n");

    // A change too small to show is not printed, and the next line compares with what was shown.
    Controller::state.AvatarYaw += 0.00001;
    EXPECT_EQ(Printed(printer, 15, 0.25), "");
    Controller::state.AvatarYaw = 0.0;
    EXPECT_EQ(Printed(printer, 16, 16 / 60.0), "actions pass 16 t=0.267 AvatarYaw 0.0833->0\n");
}

} // namespace
