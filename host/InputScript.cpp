#include "InputScript.hpp"

#include "game/Game.hpp"
#include "game/input/Controller.hpp"
#include "nerox/graphics/HeadlessWindow.hpp"
#include "nerox/input/InputCodes.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace host {

namespace {

constexpr int GamepadAxes = GLFW_GAMEPAD_AXIS_LAST + 1;
constexpr int GamepadButtons = GLFW_GAMEPAD_BUTTON_LAST + 1;

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

std::string Lower(std::string_view text) {
    std::string out(text);
    for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

/// What the script has plugged in at a device number so far.
struct DeviceSlot {
    enum class Type { None, Gamepad, Joystick } type = Type::None;
    int axes = 0;
    int buttons = 0;
    int hats = 0;
};

/// Reads the words of one line, reporting errors with the file and line.
class LineReader {
public:
    LineReader(std::string const& fileName, int line, std::vector<std::string_view> words)
        : _fileName(fileName), _line(line), _words(std::move(words)) { }

    [[noreturn]] void Fail(std::string const& what) const {
        throw std::runtime_error(_fileName + ":" + std::to_string(_line) + ": " + what);
    }

    /// The next word; `what` says what was expected when there is none.
    std::string_view Next(char const* what) {
        if (_at >= _words.size()) Fail("missing " + std::string(what) + " after '" + Joined(0, _at) + "'");
        return _words[_at++];
    }

    bool HasMore() const { return _at < _words.size(); }

    /// The words left, joined with single blanks (a device name).
    std::string Rest() {
        std::string rest = Joined(_at, _words.size());
        _at = _words.size();
        return rest;
    }

    /// Fails when words are left over.
    void End() const {
        if (_at < _words.size()) Fail("unexpected '" + std::string(_words[_at]) + "' after '" + Joined(0, _at) + "'");
    }

    /// A finite number from min to max.
    double Number(char const* what, double min, double max) {
        std::string_view const word = Next(what);
        double value = 0.0;
        if (!ParseDouble(word, value)) Fail(std::string(what) + " must be a number, not '" + std::string(word) + "'");
        if (value < min || value > max) {
            std::ostringstream range;
            range << what << " must be from " << min << " to " << max << ", not " << std::string(word);
            Fail(range.str());
        }
        return value;
    }

    /// A whole number from min to max.
    int Whole(char const* what, int min, int max) {
        std::string_view const word = Next(what);
        int value = 0;
        if (!ParseInt(word, value))
            Fail(std::string(what) + " must be a whole number, not '" + std::string(word) + "'");
        if (value < min || value > max)
            Fail(std::string(what) + " must be from " + std::to_string(min) + " to " + std::to_string(max) + ", not " +
                 std::string(word));
        return value;
    }

    /// One of the words of choices (without regard to case); returns its place.
    size_t Choice(char const* what, std::initializer_list<char const*> choices) {
        std::string_view const word = Next(what);
        std::string const lower = Lower(word);
        size_t place = 0;
        std::string list;
        for (char const* choice : choices) {
            if (lower == choice) return place;
            list += (place == 0 ? "" : place + 1 == choices.size() ? " or " : ", ") + std::string(choice);
            ++place;
        }
        Fail(std::string(what) + " must be " + list + ", not '" + std::string(word) + "'");
    }

    /// down or up.
    bool DownOrUp() { return Choice("state", {"down", "up"}) == 0; }

    /// A name of an input code of kind, or its number, from 0 to last.
    int Code(char const* kind, char const* what, int last) {
        std::string_view const word = Next(what);
        int const code = nerox::input::code_from_string(kind, std::string(word));
        if (code == -1) Fail(std::string(what) + " '" + std::string(word) + "' names no " + what);
        if (code < 0) Fail("unknown " + std::string(what) + " '" + std::string(word) + "'");
        if (code > last)
            Fail(std::string(what) + " " + std::string(word) + " is out of range (0 to " + std::to_string(last) + ")");
        return code;
    }

    static bool ParseDouble(std::string_view word, double& value) {
        if (!word.empty() && word.front() == '+') word.remove_prefix(1);
        if (word.empty()) return false;
        char const* const end = word.data() + word.size();
        auto const result = std::from_chars(word.data(), end, value);
        return result.ec == std::errc() && result.ptr == end && std::isfinite(value);
    }

    static bool ParseInt(std::string_view word, int& value) {
        if (!word.empty() && word.front() == '+') word.remove_prefix(1);
        if (word.empty()) return false;
        char const* const end = word.data() + word.size();
        auto const result = std::from_chars(word.data(), end, value);
        return result.ec == std::errc() && result.ptr == end;
    }

private:
    std::string Joined(size_t from, size_t to) const {
        std::string text;
        for (size_t i = from; i < to && i < _words.size(); ++i) {
            if (i > from) text += ' ';
            text += _words[i];
        }
        return text;
    }

    std::string const& _fileName;
    int _line;
    std::vector<std::string_view> _words;
    size_t _at = 0;
};

/// Hat directions as words joined by '+', e.g. "up+left"; or "centered".
unsigned char ParseHat(LineReader& reader) {
    std::string_view const word = reader.Next("hat direction");
    std::string const lower = Lower(word);
    if (lower == "centered" || lower == "center" || lower == "centre" || lower == "centred") return GLFW_HAT_CENTERED;
    unsigned char bits = 0;
    size_t start = 0;
    while (start <= lower.size()) {
        size_t const plus = std::min(lower.find('+', start), lower.size());
        std::string const part = lower.substr(start, plus - start);
        unsigned char bit = 0;
        if (part == "up")
            bit = GLFW_HAT_UP;
        else if (part == "right")
            bit = GLFW_HAT_RIGHT;
        else if (part == "down")
            bit = GLFW_HAT_DOWN;
        else if (part == "left")
            bit = GLFW_HAT_LEFT;
        else
            reader.Fail("hat direction must be centered, up, down, left, right or two of them joined by '+' "
                        "(up+left), not '" +
                        std::string(word) + "'");
        if (bits & bit) reader.Fail("hat direction '" + std::string(word) + "' names " + part + " twice");
        bits |= bit;
        start = plus + 1;
    }
    if ((bits & GLFW_HAT_UP && bits & GLFW_HAT_DOWN) || (bits & GLFW_HAT_LEFT && bits & GLFW_HAT_RIGHT))
        reader.Fail("hat direction '" + std::string(word) + "' points two opposite ways");
    return bits;
}

std::string const DefaultGuid = "00000000000000000000000000000000";

/// Reads GUID [NAME...] at the end of a connect line.
void ReadIdentity(LineReader& reader, InputEvent& event, char const* defaultName) {
    event.guid = reader.HasMore() ? std::string(reader.Next("GUID")) : DefaultGuid;
    event.name = reader.HasMore() ? reader.Rest() : std::string(defaultName);
}

/// One line being read, with the devices the script has plugged in so far.
struct ScriptLine {
    LineReader& reader;
    std::array<DeviceSlot, InputScript::LastDevice + 1>& slots;

    /// A device number and what the script has plugged in there.
    DeviceSlot& Device() {
        std::string_view const word = reader.Next("device number");
        int id = 0;
        if (!LineReader::ParseInt(word, id) || id < 0 || id > InputScript::LastDevice)
            reader.Fail("device number must be a whole number from 0 to " + std::to_string(InputScript::LastDevice) +
                        ", not '" + std::string(word) + "'");
        return slots[static_cast<size_t>(id)];
    }

    int IdOf(DeviceSlot const& slot) const { return static_cast<int>(&slot - slots.data()); }

    void Connected(DeviceSlot const& slot, DeviceSlot::Type type) const {
        std::string const id = std::to_string(IdOf(slot));
        if (slot.type == DeviceSlot::Type::None)
            reader.Fail("no device is connected at " + id + " (connect one first)");
        if (slot.type != type) {
            bool const isPad = slot.type == DeviceSlot::Type::Gamepad;
            reader.Fail("device " + id + " is a " + (isPad ? "gamepad" : "joystick") + ": use '" +
                        (isPad ? "gamepad " : "joystick ") + id + " ...'");
        }
    }

    /// A raw axis, button or hat of a joystick: its number, or AXIS_N, BUTTON_N.
    int IndexOn(char const* what, int count, int id, char const* kind) {
        std::string_view const word = reader.Next(what);
        int value = 0;
        if (kind != nullptr)
            value = nerox::input::code_from_string(kind, std::string(word));
        else if (!LineReader::ParseInt(word, value))
            value = -1;
        if (value < 0)
            reader.Fail(std::string(what) + " must be a whole number from 0, not '" + std::string(word) + "'");
        if (value >= count)
            reader.Fail(std::string(what) + " " + std::string(word) + " is past the " + std::to_string(count) +
                        " that device " + std::to_string(id) + " was connected with");
        return value;
    }
};

void ReadGamepad(ScriptLine& in, InputEvent& event) {
    DeviceSlot& slot = in.Device();
    event.device = in.IdOf(slot);
    size_t const what = in.reader.Choice("gamepad event", {"connect", "button", "axis"});
    if (what == 0) {
        event.kind = InputEvent::Kind::GamepadConnect;
        event.axes = GamepadAxes;
        event.buttons = GamepadButtons;
        ReadIdentity(in.reader, event, "Scripted gamepad");
        slot = {DeviceSlot::Type::Gamepad, GamepadAxes, GamepadButtons, 0};
        return;
    }
    in.Connected(slot, DeviceSlot::Type::Gamepad);
    if (what == 1) {
        event.kind = InputEvent::Kind::GamepadButton;
        event.index = in.reader.Code(nerox::input::KindGamepadButton, "gamepad button", GamepadButtons - 1);
        event.down = in.reader.DownOrUp();
    } else {
        event.kind = InputEvent::Kind::GamepadAxis;
        event.index = in.reader.Code(nerox::input::KindGamepadAxis, "gamepad axis", GamepadAxes - 1);
        event.x = in.reader.Number("axis value", -1.0, 1.0);
    }
}

void ReadJoystick(ScriptLine& in, InputEvent& event) {
    DeviceSlot& slot = in.Device();
    event.device = in.IdOf(slot);
    size_t const what = in.reader.Choice("joystick event", {"connect", "axis", "button", "hat"});
    if (what == 0) {
        event.kind = InputEvent::Kind::JoystickConnect;
        event.axes = in.reader.Whole("number of axes", 0, InputScript::MaxAxes);
        event.buttons = in.reader.Whole("number of buttons", 0, InputScript::MaxButtons);
        event.hats = in.reader.Whole("number of hats", 0, InputScript::MaxHats);
        ReadIdentity(in.reader, event, "Scripted joystick");
        slot = {DeviceSlot::Type::Joystick, event.axes, event.buttons, event.hats};
        return;
    }
    in.Connected(slot, DeviceSlot::Type::Joystick);
    if (what == 1) {
        event.kind = InputEvent::Kind::JoystickAxis;
        event.index = in.IndexOn("axis", slot.axes, event.device, nerox::input::KindJoystickAxis);
        event.x = in.reader.Number("axis value", -1.0, 1.0);
    } else if (what == 2) {
        event.kind = InputEvent::Kind::JoystickButton;
        event.index = in.IndexOn("button", slot.buttons, event.device, nerox::input::KindJoystickButton);
        event.down = in.reader.DownOrUp();
    } else {
        event.kind = InputEvent::Kind::JoystickHat;
        event.index = in.IndexOn("hat", slot.hats, event.device, nullptr);
        event.value = ParseHat(in.reader);
    }
}

/// The events of a script line, after its time, and how each reads the rest of the line.
struct EventCommand {
    char const* name;
    void (*read)(ScriptLine& in, InputEvent& event);
};

EventCommand const EventCommands[] = {
    {"mode",
     [](ScriptLine& in, InputEvent& event) {
         event.kind = InputEvent::Kind::Mode;
         event.value = static_cast<int>(in.reader.Choice("mode", {"ui", "play", "station"}));
     }},
    {"key",
     [](ScriptLine& in, InputEvent& event) {
         event.kind = InputEvent::Kind::Key;
         event.index = in.reader.Code(nerox::input::KindKey, "key", GLFW_KEY_LAST);
         event.down = in.reader.DownOrUp();
     }},
    {"mouse",
     [](ScriptLine& in, InputEvent& event) {
         event.kind = InputEvent::Kind::Mouse;
         event.index = in.reader.Code(nerox::input::KindMouse, "mouse button", GLFW_MOUSE_BUTTON_LAST);
         event.down = in.reader.DownOrUp();
     }},
    {"cursor",
     [](ScriptLine& in, InputEvent& event) {
         event.kind = InputEvent::Kind::Cursor;
         event.x = in.reader.Number("cursor x", -InputScript::MaxCursor, InputScript::MaxCursor);
         event.y = in.reader.Number("cursor y", -InputScript::MaxCursor, InputScript::MaxCursor);
     }},
    {"focus",
     [](ScriptLine& in, InputEvent& event) {
         event.kind = InputEvent::Kind::Focus;
         event.down = in.reader.Choice("focus", {"on", "off"}) == 0;
     }},
    {"gamepad", ReadGamepad},
    {"joystick", ReadJoystick},
    {"disconnect",
     [](ScriptLine& in, InputEvent& event) {
         DeviceSlot& slot = in.Device();
         if (slot.type == DeviceSlot::Type::None)
             in.reader.Fail("no device is connected at " + std::to_string(in.IdOf(slot)) + " to disconnect");
         event.kind = InputEvent::Kind::Disconnect;
         event.device = in.IdOf(slot);
         slot = DeviceSlot{};
     }},
    {"quit", [](ScriptLine&, InputEvent& event) { event.kind = InputEvent::Kind::Quit; }},
};

/// "mode, key, ... or quit", for the message about an unknown event.
std::string EventList() {
    std::string list;
    size_t const count = std::size(EventCommands);
    for (size_t i = 0; i < count; ++i)
        list += (i == 0 ? "" : i + 1 == count ? " or " : ", ") + std::string(EventCommands[i].name);
    return list;
}

} // namespace

InputScript InputScript::Load(std::string const& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot open input script '" + path + "'");
    std::string const text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (file.bad()) throw std::runtime_error("cannot read input script '" + path + "'");
    return Parse(text, path);
}

InputScript InputScript::Parse(std::string_view text, std::string const& fileName) {
    InputScript script;
    script._fileName = fileName;
    std::array<DeviceSlot, LastDevice + 1> slots{};
    double lastTime = 0.0;
    int lastTimeLine = 0;

    if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3); // a byte order mark some editors write
    int lineNumber = 0;
    size_t lineStart = 0;
    while (lineStart < text.size()) {
        size_t lineEnd = text.find('\n', lineStart);
        if (lineEnd == std::string_view::npos) lineEnd = text.size();
        std::string_view line = text.substr(lineStart, lineEnd - lineStart);
        lineStart = lineEnd + 1;
        ++lineNumber;

        if (size_t const hash = line.find('#'); hash != std::string_view::npos) line = line.substr(0, hash);
        std::vector<std::string_view> words;
        size_t at = 0;
        while (at < line.size()) {
            while (at < line.size() && IsBlank(line[at])) ++at;
            size_t const start = at;
            while (at < line.size() && !IsBlank(line[at])) ++at;
            if (at > start) words.push_back(line.substr(start, at - start));
        }
        if (words.empty()) continue;

        LineReader reader(fileName, lineNumber, std::move(words));
        InputEvent event;
        event.line = lineNumber;
        {
            std::string_view const timeWord = reader.Next("time");
            if (!LineReader::ParseDouble(timeWord, event.time))
                reader.Fail("a line must start with the time in seconds, not '" + std::string(timeWord) + "'");
            if (event.time < 0.0 || event.time > MaxTime)
                reader.Fail("time must be from 0 to " + std::to_string(static_cast<long>(MaxTime)) + " seconds, not " +
                            std::string(timeWord));
            if (event.time < lastTime) {
                std::ostringstream message;
                message << "time " << std::string(timeWord) << " goes back before " << lastTime << " (line "
                        << lastTimeLine << "): the times must not decrease";
                reader.Fail(message.str());
            }
            lastTime = event.time;
            lastTimeLine = lineNumber;
        }

        std::string const name = Lower(reader.Next("event"));
        EventCommand const* command = nullptr;
        for (EventCommand const& candidate : EventCommands)
            if (name == candidate.name) command = &candidate;
        if (command == nullptr) reader.Fail("unknown event '" + name + "' (events: " + EventList() + ")");
        ScriptLine in{reader, slots};
        command->read(in, event);
        reader.End();
        script._events.push_back(std::move(event));
    }
    return script;
}

InputPlayer::InputPlayer(InputScript script, nerox::graphics::HeadlessWindow& window)
    : _script(std::move(script)), _window(window) { }

size_t InputPlayer::Apply(double now) {
    std::vector<InputEvent> const& events = _script.Events();
    size_t applied = 0;
    while (_next < events.size() && events[_next].time <= now + 1e-9) {
        ApplyOne(events[_next]);
        ++_next;
        ++applied;
    }
    return applied;
}

void InputPlayer::ApplyOne(InputEvent const& event) {
    using Kind = InputEvent::Kind;
    using Device = nerox::graphics::HeadlessWindow::Joystick;
    int const action = event.down ? GLFW_PRESS : GLFW_RELEASE;
    switch (event.kind) {
    case Kind::Mode:
        if (event.value == 0)
            Game::SetInputMode_Ui();
        else if (event.value == 1)
            Game::SetInputMode_Play();
        else
            Game::SetInputMode_Station();
        break;
    case Kind::Key: _window.SetKey(event.index, action); break;
    case Kind::Mouse: _window.SetMouseButton(event.index, action); break;
    case Kind::Cursor: _window.SetCursorPos(event.x, event.y); break;
    case Kind::Focus: _window.SetFocused(event.down); break;
    case Kind::GamepadConnect: {
        // At rest: sticks centred, triggers released (-1), no button down.
        Device pad;
        pad.guid = event.guid;
        pad.name = event.name;
        pad.isGamepad = true;
        pad.axes.assign(static_cast<size_t>(event.axes), 0.0f);
        pad.buttons.assign(static_cast<size_t>(event.buttons), GLFW_RELEASE);
        pad.axes[GLFW_GAMEPAD_AXIS_LEFT_TRIGGER] = -1.0f;
        pad.axes[GLFW_GAMEPAD_AXIS_RIGHT_TRIGGER] = -1.0f;
        pad.gamepad.axes[GLFW_GAMEPAD_AXIS_LEFT_TRIGGER] = -1.0f;
        pad.gamepad.axes[GLFW_GAMEPAD_AXIS_RIGHT_TRIGGER] = -1.0f;
        _window.ConnectJoystick(event.device, pad);
        break;
    }
    case Kind::GamepadButton:
        _window.SetJoystickButton(event.device, event.index, event.down);
        _window.SetGamepadButton(event.device, event.index, event.down);
        break;
    case Kind::GamepadAxis:
        _window.SetJoystickAxis(event.device, event.index, static_cast<float>(event.x));
        _window.SetGamepadAxis(event.device, event.index, static_cast<float>(event.x));
        break;
    case Kind::JoystickConnect: {
        Device stick;
        stick.guid = event.guid;
        stick.name = event.name;
        stick.axes.assign(static_cast<size_t>(event.axes), 0.0f);
        stick.buttons.assign(static_cast<size_t>(event.buttons), GLFW_RELEASE);
        stick.hats.assign(static_cast<size_t>(event.hats), GLFW_HAT_CENTERED);
        _window.ConnectJoystick(event.device, stick);
        break;
    }
    case Kind::JoystickAxis: _window.SetJoystickAxis(event.device, event.index, static_cast<float>(event.x)); break;
    case Kind::JoystickButton: _window.SetJoystickButton(event.device, event.index, event.down); break;
    case Kind::JoystickHat:
        _window.SetJoystickHat(event.device, event.index, static_cast<unsigned char>(event.value));
        break;
    case Kind::Disconnect: _window.DisconnectJoystick(event.device); break;
    case Kind::Quit:
        _quitApplied = true;
        Game::Quit();
        break;
    }
}

ActionPrinter::ActionPrinter() {
    std::array<char, 24> zero{};
    Format(0.0, zero);
    size_t count = 0;
    game::input::Controller::ForEachAction([&count](char const*, double, double) { ++count; });
    _shown.assign(count, zero);
    _line.reserve(256);
}

void ActionPrinter::Format(double value, std::array<char, 24>& text) {
    if (!std::isfinite(value)) {
        std::snprintf(text.data(), text.size(), "%s", std::isnan(value) ? "nan" : value > 0 ? "inf" : "-inf");
        return;
    }
    int length = std::snprintf(text.data(), text.size(), "%.4f", value);
    if (length < 0 || static_cast<size_t>(length) >= text.size()) {
        std::snprintf(text.data(), text.size(), "%.6g", value); // too large for 4 decimals
        return;
    }
    // 1.5000 -> 1.5, 1.0000 -> 1, -0.0000 -> 0.
    while (length > 0 && text[static_cast<size_t>(length) - 1] == '0') --length;
    if (length > 0 && text[static_cast<size_t>(length) - 1] == '.') --length;
    text[static_cast<size_t>(length)] = '\0';
    if (std::strcmp(text.data(), "-0") == 0) std::snprintf(text.data(), text.size(), "0");
}

bool ActionPrinter::Print(long long pass, double seconds, std::FILE* out) {
    char head[64];
    std::snprintf(head, sizeof head, "actions pass %lld t=%.3f", pass, seconds);
    _line.assign(head);
    size_t const headLength = _line.size();
    _at = 0;
    // Captures only this, so that the std::function holds it without allocating.
    game::input::Controller::ForEachAction([this](char const* name, double value, double) {
        size_t const at = _at++;
        if (at >= _shown.size()) return;
        std::array<char, 24> text{};
        Format(value, text);
        if (std::strcmp(text.data(), _shown[at].data()) == 0) return;
        _line += ' ';
        _line += name;
        _line += ' ';
        _line += _shown[at].data();
        _line += "->";
        _line += text.data();
        _shown[at] = text;
    });
    if (_line.size() == headLength) return false;
    _line += '\n';
    std::fputs(_line.c_str(), out);
    std::fflush(out);
    return true;
}

} // namespace host
