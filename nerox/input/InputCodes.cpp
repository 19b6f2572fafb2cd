#include "nerox/input/InputCodes.hpp"

#include <algorithm>
#include <cctype>
#include <string_view>

namespace nerox::input {

namespace {

/// One named code.
struct Name {
    int code;
    char const* text; ///< Without the kind's prefix.
};

#define KEY(name)                                                                                                      \
    { GLFW_KEY_##name, #name }
constexpr Name Keys[] = {
    KEY(SPACE),
    KEY(APOSTROPHE),
    KEY(COMMA),
    KEY(MINUS),
    KEY(PERIOD),
    KEY(SLASH),
    KEY(0),
    KEY(1),
    KEY(2),
    KEY(3),
    KEY(4),
    KEY(5),
    KEY(6),
    KEY(7),
    KEY(8),
    KEY(9),
    KEY(SEMICOLON),
    KEY(EQUAL),
    KEY(A),
    KEY(B),
    KEY(C),
    KEY(D),
    KEY(E),
    KEY(F),
    KEY(G),
    KEY(H),
    KEY(I),
    KEY(J),
    KEY(K),
    KEY(L),
    KEY(M),
    KEY(N),
    KEY(O),
    KEY(P),
    KEY(Q),
    KEY(R),
    KEY(S),
    KEY(T),
    KEY(U),
    KEY(V),
    KEY(W),
    KEY(X),
    KEY(Y),
    KEY(Z),
    KEY(LEFT_BRACKET),
    KEY(BACKSLASH),
    KEY(RIGHT_BRACKET),
    KEY(GRAVE_ACCENT),
    KEY(WORLD_1),
    KEY(WORLD_2),
    KEY(ESCAPE),
    KEY(ENTER),
    KEY(TAB),
    KEY(BACKSPACE),
    KEY(INSERT),
    KEY(DELETE),
    KEY(RIGHT),
    KEY(LEFT),
    KEY(DOWN),
    KEY(UP),
    KEY(PAGE_UP),
    KEY(PAGE_DOWN),
    KEY(HOME),
    KEY(END),
    KEY(CAPS_LOCK),
    KEY(SCROLL_LOCK),
    KEY(NUM_LOCK),
    KEY(PRINT_SCREEN),
    KEY(PAUSE),
    KEY(F1),
    KEY(F2),
    KEY(F3),
    KEY(F4),
    KEY(F5),
    KEY(F6),
    KEY(F7),
    KEY(F8),
    KEY(F9),
    KEY(F10),
    KEY(F11),
    KEY(F12),
    KEY(F13),
    KEY(F14),
    KEY(F15),
    KEY(F16),
    KEY(F17),
    KEY(F18),
    KEY(F19),
    KEY(F20),
    KEY(F21),
    KEY(F22),
    KEY(F23),
    KEY(F24),
    KEY(F25),
    KEY(KP_0),
    KEY(KP_1),
    KEY(KP_2),
    KEY(KP_3),
    KEY(KP_4),
    KEY(KP_5),
    KEY(KP_6),
    KEY(KP_7),
    KEY(KP_8),
    KEY(KP_9),
    KEY(KP_DECIMAL),
    KEY(KP_DIVIDE),
    KEY(KP_MULTIPLY),
    KEY(KP_SUBTRACT),
    KEY(KP_ADD),
    KEY(KP_ENTER),
    KEY(KP_EQUAL),
    KEY(LEFT_SHIFT),
    KEY(LEFT_CONTROL),
    KEY(LEFT_ALT),
    KEY(LEFT_SUPER),
    KEY(RIGHT_SHIFT),
    KEY(RIGHT_CONTROL),
    KEY(RIGHT_ALT),
    KEY(RIGHT_SUPER),
    KEY(MENU),
};
#undef KEY

constexpr Name MouseButtons[] = {
    {GLFW_MOUSE_BUTTON_LEFT, "LEFT"}, {GLFW_MOUSE_BUTTON_RIGHT, "RIGHT"}, {GLFW_MOUSE_BUTTON_MIDDLE, "MIDDLE"},
    {GLFW_MOUSE_BUTTON_4, "4"},       {GLFW_MOUSE_BUTTON_5, "5"},         {GLFW_MOUSE_BUTTON_6, "6"},
    {GLFW_MOUSE_BUTTON_7, "7"},       {GLFW_MOUSE_BUTTON_8, "8"},
};

#define PAD(name)                                                                                                      \
    { GLFW_GAMEPAD_BUTTON_##name, #name }
constexpr Name GamepadButtons[] = {
    PAD(A),          PAD(B),         PAD(X),         PAD(Y),          PAD(LEFT_BUMPER), PAD(RIGHT_BUMPER),
    PAD(BACK),       PAD(START),     PAD(GUIDE),     PAD(LEFT_THUMB), PAD(RIGHT_THUMB), PAD(DPAD_UP),
    PAD(DPAD_RIGHT), PAD(DPAD_DOWN), PAD(DPAD_LEFT),
};
#undef PAD

#define AXIS(name)                                                                                                     \
    { GLFW_GAMEPAD_AXIS_##name, #name }
constexpr Name GamepadAxes[] = {
    AXIS(LEFT_X), AXIS(LEFT_Y), AXIS(RIGHT_X), AXIS(RIGHT_Y), AXIS(LEFT_TRIGGER), AXIS(RIGHT_TRIGGER),
};
#undef AXIS

/// Highest raw joystick button or axis number a text may name.
constexpr int LastRawNumber = 1000;

/// What a kind names and how.
struct Kind {
    std::string_view kind;
    std::string_view prefix;  ///< Before each name: "KEY_".
    std::string_view unknown; ///< Before the number of a code without name.
    Name const* names;        ///< Null for the numbered raw kinds.
    size_t count;
    int last; ///< Highest code a number may give.
};

constexpr Kind Kinds[] = {
    {"key", "KEY_", "UNKNOWN_KEY_", Keys, std::size(Keys), GLFW_KEY_LAST},
    {"mouse", "MOUSE_BUTTON_", "UNKNOWN_MOUSE_", MouseButtons, std::size(MouseButtons), GLFW_MOUSE_BUTTON_LAST},
    {"gamepad_button", "GAMEPAD_BUTTON_", "UNKNOWN_GAMEPAD_BUTTON_", GamepadButtons, std::size(GamepadButtons),
     GLFW_GAMEPAD_BUTTON_LAST},
    {"gamepad_axis", "GAMEPAD_AXIS_", "UNKNOWN_GAMEPAD_AXIS_", GamepadAxes, std::size(GamepadAxes),
     GLFW_GAMEPAD_AXIS_LAST},
    {"joystick_button", "BUTTON_", "", nullptr, 0, LastRawNumber},
    {"joystick_axis", "AXIS_", "", nullptr, 0, LastRawNumber},
};

Kind const* FindKind(std::string_view kind) {
    for (Kind const& entry : Kinds) {
        if (entry.kind == kind) return &entry;
    }
    return nullptr;
}

char const* FindName(Kind const& kind, int code) {
    for (size_t i = 0; i < kind.count; ++i) {
        if (kind.names[i].code == code) return kind.names[i].text;
    }
    return nullptr;
}

bool EqualNoCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::toupper(static_cast<unsigned char>(x)) == std::toupper(static_cast<unsigned char>(y));
           });
}

/// A plain decimal number of at most 9 digits, or -1.
int Number(std::string_view text) {
    if (text.empty() || text.size() > 9) return -1;
    int value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return -1;
        value = value * 10 + (c - '0');
    }
    return value;
}

} // namespace

std::string code_to_string(std::string const& kind, int code) {
    if (code < 0) return "NONE";
    Kind const* const entry = FindKind(kind);
    if (entry == nullptr) return "UNKNOWN";
    if (entry->names == nullptr) return std::string(entry->prefix) + std::to_string(code);
    if (char const* const name = FindName(*entry, code)) return std::string(entry->prefix) + name;
    return std::string(entry->unknown) + std::to_string(code);
}

int code_from_string(std::string const& kind, std::string const& name) {
    constexpr int NotAName = -2;
    Kind const* const entry = FindKind(kind);
    if (entry == nullptr) return NotAName;
    if (EqualNoCase(name, "NONE")) return -1;
    std::string_view text = name;
    if (text.size() > entry->prefix.size() && EqualNoCase(text.substr(0, entry->prefix.size()), entry->prefix))
        text.remove_prefix(entry->prefix.size());
    if (entry->names != nullptr) {
        for (size_t i = 0; i < entry->count; ++i) {
            if (EqualNoCase(text, entry->names[i].text)) return entry->names[i].code;
        }
    }
    // A number: the code itself, when the kind has one of that number. Names
    // came first, so a single digit is already the key of that digit.
    int const code = Number(text);
    if (code < 0 || code > entry->last) return NotAName;
    if (entry->names != nullptr && entry->kind == "key" && FindName(*entry, code) == nullptr) return NotAName;
    return code;
}

} // namespace nerox::input
