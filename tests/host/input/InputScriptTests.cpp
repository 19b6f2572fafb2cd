// Input scripts of the host: reading the text, playing it into a headless window in
// time order, and the printed action stream. What a script reads as, its errors and
// its replay are compared whole with transcripts under tests/data/input/.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <string>

#include "game/Game.hpp"
#include "game/input/Controller.hpp"
#include "host/InputScript.hpp"
#include "nerox/graphics/HeadlessWindow.hpp"
#include "support/Golden.hpp"
#include "support/TempDir.hpp"

namespace {

using host::ActionPrinter;
using host::InputEvent;
using host::InputPlayer;
using host::InputScript;
using nerox::graphics::HeadlessWindow;

InputScript Parse(std::string const& text) {
    return InputScript::Parse(text, "test.input");
}

/// The message of the error that reading text (or loading the file at path) gives, or "no error".
std::string ErrorOf(std::string const& text, std::string const& path = "") {
    try {
        path.empty() ? Parse(text) : InputScript::Load(path);
    } catch (std::runtime_error const& error) {
        return error.what();
    }
    return "no error";
}

} // namespace

// Every event kind and its fields, from input/script_events.input (its comments say what it covers).
TEST(InputScriptText, EveryEventReadsAsItsFields) {
    InputScript const script = Parse(testsupport::ReadText(testsupport::DataFile("input/script_events.input")));
    char const* const kinds[] = {
        "Mode",          "Key",         "Mouse",           "Cursor",       "Focus",          "GamepadConnect",
        "GamepadButton", "GamepadAxis", "JoystickConnect", "JoystickAxis", "JoystickButton", "JoystickHat",
        "Disconnect",    "Quit"};
    std::string text;
    char line[320];
    for (InputEvent const& e : script.Events()) {
        std::snprintf(line, sizeof line,
                      "line %d t=%g %s device %d index %d value %d down %d x %g y %g counts %d %d %d '%s' '%s'\n",
                      e.line, e.time, kinds[static_cast<int>(e.kind)], e.device, e.index, e.value, e.down, e.x, e.y,
                      e.axes, e.buttons, e.hats, e.guid.c_str(), e.name.c_str());
        text += line;
    }
    testsupport::ExpectGolden(text, "input/script_events.txt");
    EXPECT_TRUE(Parse("").Events().empty() && Parse("# nothing\n\n").Events().empty());
}

// Each error names the file, the line and what was wrong; the first bad line is
// reported even with more below. The cases are the scripts of input/script_errors.txt
// (line ends written as \n), each followed by what reading it gives.
TEST(InputScriptErrors, NameTheFileTheLineAndWhatWasWrong) {
    std::string transcript;
    std::string const cases = testsupport::ReadText(testsupport::DataFile("input/script_errors.txt"));
    for (std::string const& line : testsupport::SplitLines(cases)) {
        if (line.rfind("  => ", 0) == 0) continue;
        std::string text = line;
        for (size_t at = 0; (at = text.find("\\n", at)) != std::string::npos;) text.replace(at, 2, "\n");
        transcript += line + "\n  => " + ErrorOf(text) + "\n";
    }
    EXPECT_GT(transcript.size(), 1000u);
    testsupport::ExpectGolden(transcript, "input/script_errors.txt");
}

TEST(InputScriptErrors, LoadedFilesAreNamedByTheirPath) {
    testsupport::TempDir scratch;
    std::string const path = scratch.File("walk.input");
    EXPECT_NE(ErrorOf("", path).find(path), std::string::npos) << "a file that cannot be opened";
    testsupport::WriteText(path, "0 mode play\r\n0.5 key KEY_W down\r\n0.25 quit\r\n");
    EXPECT_EQ(ErrorOf("", path).find(path + ":3: time 0.25 goes back"), 0u);
}

// Every prefix of a script, and every line with bytes changed, reads as a
// script or fails with an error: nothing reads past its text (the sanitizer
// builds check the reads).
TEST(InputScriptErrors, CutOrDamagedTextGivesAnErrorOrAScript) {
    std::string const text = testsupport::ReadText(testsupport::DataFile("input/script_events.input"));
    for (size_t length = 0; length <= text.size(); ++length) ErrorOf(text.substr(0, length));
    for (size_t at = 0; at < text.size(); ++at)
        for (char const replacement : {'\0', '#', ' ', '\r', '+', '-', '9', '\xff'})
            ErrorOf(text.substr(0, at) + replacement + text.substr(at + 1));
}

// Pass N applies, at N/60 s, in file order, the events whose time has come: what each
// applying pass gives the window and the game. An early call gives nothing, a late one
// catches up in order, and quit ends the game and frees the cursor.
TEST(InputPlayer, ReplaysTheScriptIntoTheWindowAndTheGame) {
    HeadlessWindow window{1280, 720};
    Game::window = &window;
    Game::isActive.store(true);
    // What the window and the game show now: keys and buttons down, cursor, focus,
    // modes, and every device with its raw and mapped readings.
    auto State = [&window] {
        std::ostringstream text;
        for (int key = GLFW_KEY_SPACE; key <= GLFW_KEY_LAST; ++key)
            if (window.GetKey(key) == GLFW_PRESS) text << " key" << key;
        for (int button = 0; button <= GLFW_MOUSE_BUTTON_LAST; ++button)
            if (window.GetMouseButton(button) == GLFW_PRESS) text << " mouse" << button;
        double x = 0.0, y = 0.0;
        window.GetCursorPos(&x, &y);
        text << " cursor " << x << "," << y << (window.IsFocused() ? " focused" : " unfocused")
             << (window.GetInputMode(GLFW_CURSOR) == GLFW_CURSOR_DISABLED ? " captured" : " free") << " mode "
             << int(Game::_inputMode) << (Game::_mouseLook ? " look" : "") << (Game::isActive.load() ? "" : " quit");
        for (int id = 0; id <= GLFW_JOYSTICK_LAST; ++id) {
            if (!window.JoystickPresent(id)) continue;
            text << "\n  device " << id << " '" << window.GetJoystickGUID(id) << "' '" << window.GetJoystickName(id)
                 << "' axes";
            int axes = 0, buttons = 0, hats = 0;
            float const* axis = window.GetJoystickAxes(id, &axes);
            unsigned char const* button = window.GetJoystickButtons(id, &buttons);
            unsigned char const* hat = window.GetJoystickHats(id, &hats);
            for (int i = 0; i < axes; ++i) text << " " << axis[i];
            text << " buttons ";
            for (int i = 0; i < buttons; ++i) text << int(button[i]);
            text << " hats";
            for (int i = 0; i < hats; ++i) text << " " << int(hat[i]);
            GLFWgamepadstate state{};
            if (!window.JoystickIsGamepad(id) || !window.GetGamepadState(id, &state)) continue;
            text << " mapped";
            for (float value : state.axes) text << " " << value;
            for (unsigned char pressed : state.buttons) text << " " << int(pressed);
        }
        return text.str();
    };
    int keyEvents = 0;
    window.onKey = [&keyEvents](int, int, int, int) { ++keyEvents; };
    InputPlayer player(InputScript::Load(testsupport::DataFile("input/replay.input")), window);
    std::string transcript;
    for (int pass = 0; pass <= 9 * 60; ++pass) {
        if (size_t const applied = player.Apply(pass / 60.0))
            transcript += "pass " + std::to_string(pass) + ": " + std::to_string(applied) + " events:" + State() + "\n";
    }
    for (double now : {9.999, 11.5, 12.0, 13.0, 100.0}) {
        size_t const applied = player.Apply(now);
        transcript += std::to_string(now).substr(0, 6) + " s: " + std::to_string(applied) + " events:" + State() + "\n";
    }
    transcript +=
        std::string(player.Finished() ? "finished" : "not finished") + (player.QuitApplied() ? ", quit\n" : "\n");
    EXPECT_EQ(keyEvents, 7); // the window's key callback saw every key event
    Game::_inputMode = 0;
    Game::_mouseLook = false;
    Game::isActive.store(false);
    Game::window = nullptr;
    testsupport::ExpectGolden(transcript, "input/replay.txt");
}

TEST(ActionPrinterFormat, ShowsWholeNumbersBareAndOthersWithUpToFourDecimals) {
    std::string shown;
    std::array<char, 24> text{};
    for (double value : {0.0, -0.0, 1.0, 0.5, 120.0 * 0.5 / 720.0, -0.00001, -1.25, 1e30, std::nan("")}) {
        ActionPrinter::Format(value, text);
        shown += std::string(text.data()) + " ";
    }
    EXPECT_EQ(shown, "0 0 1 0.5 0.0833 0 -1.25 1e+30 nan ");
}

// Only the actions that changed since the last line are printed; a change too small
// to show is not, and the next line compares with what was shown.
TEST(ActionPrinterLines, PrintsOnlyTheActionsThatChangedSinceTheLastLine) {
    using game::input::Controller;
    Controller::Reset();
    ActionPrinter printer;
    std::FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    auto print = [&printer, file](long long pass, double seconds) {
        return std::to_string(printer.Print(pass, seconds, file));
    };
    std::string wrote = print(0, 0.0);
    Controller::state.AvatarTranslateForward = Controller::state.AvatarSprint = true;
    wrote += print(12, 0.2);
    wrote += print(13, 13 / 60.0);
    Controller::state.AvatarSprint = false;
    Controller::state.AvatarYaw = 0.5 * 120.0 / 720.0;
    Controller::state.VehicleGamepadLookToggle = true;
    wrote += print(14, 14 / 60.0);
    Controller::state.AvatarYaw += 0.00001;
    wrote += print(15, 0.25);
    Controller::state.AvatarYaw = 0.0;
    wrote += print(16, 16 / 60.0);
    Controller::Reset();
    EXPECT_EQ(wrote, "010101");

    std::rewind(file);
    std::string text(4096, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file));
    std::fclose(file);
    testsupport::ExpectGolden(text, "input/action_lines.txt");
}
