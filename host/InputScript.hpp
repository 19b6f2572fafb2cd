#pragma once
#include <array>
#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace nerox::graphics {
class HeadlessWindow;
}

namespace host {

/// One line of an input script, read and checked.
struct InputEvent {
    enum class Kind {
        Mode,            ///< Game::SetInputMode_*: `value` 0 interface, 1 play, 2 station.
        Key,             ///< A key down or up: `index` is the GLFW key.
        Mouse,           ///< A mouse button down or up: `index` is the GLFW button.
        Cursor,          ///< The cursor moves to `x`, `y` (window pixels).
        Focus,           ///< The window gains (`down`) or loses the focus.
        GamepadConnect,  ///< A standard gamepad plugged in at `device`.
        GamepadButton,   ///< A gamepad button (`index`) down or up, raw and mapped.
        GamepadAxis,     ///< A gamepad axis (`index`) to `x`, raw and mapped.
        JoystickConnect, ///< A joystick plugged in at `device` with `axes`, `buttons`, `hats`.
        JoystickAxis,    ///< A raw joystick axis (`index`) to `x`.
        JoystickButton,  ///< A raw joystick button (`index`) down or up.
        JoystickHat,     ///< A raw joystick hat (`index`) to the GLFW_HAT_* bits in `value`.
        Disconnect,      ///< The device at `device` unplugged.
        Quit,            ///< The run ends through Game::Quit.
    };

    double time = 0.0; ///< Seconds from the start of the run.
    int line = 0;      ///< Line of the file, from 1.
    Kind kind = Kind::Quit;
    int device = -1;   ///< Device number, 0 to 15, of the joystick events.
    int index = 0;     ///< Key, button, axis or hat.
    int value = 0;     ///< Mode or hat bits.
    bool down = false; ///< Key and button state; focus on.
    double x = 0.0;    ///< Cursor x or axis value.
    double y = 0.0;    ///< Cursor y.
    int axes = 0;      ///< Connect: raw axes.
    int buttons = 0;   ///< Connect: raw buttons.
    int hats = 0;      ///< Connect: raw hats.
    std::string guid;  ///< Connect: device identity.
    std::string name;  ///< Connect: device name.
};

/// A scripted run of input: a text file with one event per line,
///   TIME EVENT ARGS...
/// TIME in seconds from the start (never smaller than the line before's), `#`
/// starts a comment, blank lines are skipped. The events and their arguments
/// are described in the README ("Replaying input"). Reading checks every line,
/// the devices included: a button, axis or hat past what the device was
/// connected with, or an event for a device that is not connected, is an error.
/// Every error is a std::runtime_error "FILE:LINE: what was wrong".
class InputScript {
public:
    /// Device numbers run from 0 to this.
    static constexpr int LastDevice = 15;
    /// Most raw axes, buttons and hats a scripted joystick may have.
    static constexpr int MaxAxes = 64;
    static constexpr int MaxButtons = 256;
    static constexpr int MaxHats = 16;
    /// Latest time an event may have, in seconds (a day).
    static constexpr double MaxTime = 86400.0;
    /// Greatest cursor coordinate, in pixels.
    static constexpr double MaxCursor = 1.0e6;

    /// Reads the file at path. Throws std::runtime_error when it cannot be read or is wrong.
    static InputScript Load(std::string const& path);
    /// Reads a script from text; fileName names it in errors.
    static InputScript Parse(std::string_view text, std::string const& fileName);

    std::vector<InputEvent> const& Events() const { return _events; }
    std::string const& FileName() const { return _fileName; }

private:
    std::string _fileName;
    std::vector<InputEvent> _events;
};

/// Plays a script into a headless window (and into Game for `mode` and `quit`),
/// in time order: each Apply gives the window every event whose time has come.
class InputPlayer {
public:
    InputPlayer(InputScript script, nerox::graphics::HeadlessWindow& window);

    /// Applies, in file order, every event not yet applied whose time is at
    /// most now (seconds, with a nanosecond of slack for rounding). Returns how
    /// many it applied.
    size_t Apply(double now);

    /// Whether every event has been applied.
    bool Finished() const { return _next >= _script.Events().size(); }
    /// Whether a `quit` event has been applied.
    bool QuitApplied() const { return _quitApplied; }
    InputScript const& Script() const { return _script; }

private:
    void ApplyOne(InputEvent const& event);

    InputScript _script;
    nerox::graphics::HeadlessWindow& _window;
    size_t _next = 0;
    bool _quitApplied = false;
};

/// Prints the controller's actions pass by pass: one line for each pass in
/// which some action's shown value differs from the one printed last,
/// listing only those,
///   actions pass 12 t=0.200 AvatarTranslateForward 0->1 AvatarSprint 0->1
/// On/off actions show 0 or 1, the others up to 4 decimals. Every action starts
/// at 0. Allocates nothing once its line has grown to the longest one.
class ActionPrinter {
public:
    ActionPrinter();

    /// Compares the controller's actions (game::input::Controller) with what
    /// was printed last and writes a line to out when some changed. Returns
    /// whether it wrote.
    bool Print(long long pass, double seconds, std::FILE* out);

    /// The value of an action as Print shows it, into text.
    static void Format(double value, std::array<char, 24>& text);

private:
    std::vector<std::array<char, 24>> _shown; ///< Per action, in record order: the value printed last.
    std::string _line;
    size_t _at = 0; ///< Action being visited.
};

} // namespace host
