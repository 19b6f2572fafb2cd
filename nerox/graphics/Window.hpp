#pragma once
#ifndef GLFW_INCLUDE_NONE
#define GLFW_INCLUDE_NONE
#endif
#include <GLFW/glfw3.h>

#include <functional>
#include <string>

namespace nerox::graphics {

/// The application window as the game sees it: focus, cursor, keyboard and mouse
/// state, clipboard and the joysticks, in the manner and numbering of GLFW.
/// `GlfwWindow` is the real one; `HeadlessWindow` holds the same state in memory
/// so that a test or a headless host can drive it.
class Window {
public:
    /// Receives key events: GLFW key, scancode, action (GLFW_PRESS, ...), modifier bits.
    using KeyCallback = std::function<void(int key, int scancode, int action, int mods)>;
    /// Receives typed characters as Unicode code points.
    using CharCallback = std::function<void(unsigned int codepoint)>;
    /// Receives mouse button events: button, action, modifier bits.
    using MouseButtonCallback = std::function<void(int button, int action, int mods)>;
    /// Receives scroll wheel offsets.
    using ScrollCallback = std::function<void(double xOffset, double yOffset)>;

    virtual ~Window() = default;

    /// Whether the window has the input focus.
    virtual bool IsFocused() const = 0;
    /// Sets an input mode, e.g. SetInputMode(GLFW_CURSOR, GLFW_CURSOR_DISABLED).
    virtual void SetInputMode(int mode, int value) = 0;
    /// The current value of an input mode.
    virtual int GetInputMode(int mode) const = 0;
    /// Moves the cursor, in screen coordinates relative to the content area.
    virtual void SetCursorPos(double x, double y) = 0;
    /// The cursor position, in screen coordinates relative to the content area.
    virtual void GetCursorPos(double* x, double* y) const = 0;
    /// GLFW_PRESS or GLFW_RELEASE for a GLFW key code; GLFW_RELEASE for codes out of range.
    virtual int GetKey(int key) const = 0;
    /// GLFW_PRESS or GLFW_RELEASE for a mouse button; GLFW_RELEASE for buttons out of range.
    virtual int GetMouseButton(int button) const = 0;
    /// Content area width in screen coordinates.
    virtual int GetWidth() const = 0;
    /// Content area height in screen coordinates.
    virtual int GetHeight() const = 0;

    /// The system clipboard's text; empty when there is none.
    virtual std::string GetClipboardText() const = 0;
    /// Replaces the system clipboard's text.
    virtual void SetClipboardText(std::string const& text) = 0;

    /// Whether a joystick is connected at this device number (GLFW_JOYSTICK_1 ...).
    virtual bool JoystickPresent(int id) const = 0;
    /// Raw axes of a joystick, -1 to 1; null with count 0 if absent. Valid until the next poll.
    virtual float const* GetJoystickAxes(int id, int* count) const = 0;
    /// Raw buttons of a joystick, GLFW_PRESS or GLFW_RELEASE; null with count 0 if absent.
    virtual unsigned char const* GetJoystickButtons(int id, int* count) const = 0;
    /// Raw hats of a joystick as GLFW_HAT_* bits; null with count 0 if absent.
    virtual unsigned char const* GetJoystickHats(int id, int* count) const = 0;
    /// The mapped gamepad state; false (state untouched) if the device is no gamepad.
    virtual bool GetGamepadState(int id, GLFWgamepadstate* state) const = 0;
    /// The device's GUID text; null if absent.
    virtual char const* GetJoystickGUID(int id) const = 0;
    /// The device's name; null if absent.
    virtual char const* GetJoystickName(int id) const = 0;
    /// Whether the device has a gamepad mapping.
    virtual bool JoystickIsGamepad(int id) const = 0;

    /// Processes pending events and calls the callbacks.
    virtual void PollEvents() = 0;
    /// Whether the user asked to close the window.
    virtual bool ShouldClose() const = 0;
    /// Sets or clears the close request.
    virtual void SetShouldClose(bool close) = 0;
    /// Switches to full screen on the primary monitor, or back to the window as
    /// it was. This base only remembers the state, as a window without a screen should.
    virtual void SetFullscreen(bool on) { _fullscreen = on; }
    /// Whether the window is in full screen.
    bool IsFullscreen() const { return _fullscreen; }

    /// Called for each key event; the host routes them to the modules.
    KeyCallback onKey;
    /// Called for each typed character.
    CharCallback onChar;
    /// Called for each mouse button event.
    MouseButtonCallback onMouseButton;
    /// Called for each scroll event.
    ScrollCallback onScroll;

protected:
    bool _fullscreen = false; ///< Set by SetFullscreen.
};

} // namespace nerox::graphics
