#pragma once
#include "nerox/graphics/Window.hpp"

#include <array>
#include <map>
#include <mutex>
#include <vector>

namespace nerox::graphics {

/// A window without a screen: all its state lives in memory and is set through
/// the Set*/Connect* operations, which also fire the event callbacks the way a
/// real window would. Used by headless hosts and by tests. Thread-safe.
class HeadlessWindow final : public Window {
public:
    /// The state of one simulated joystick.
    struct Joystick {
        std::string guid;                   ///< Device GUID text.
        std::string name;                   ///< Device name.
        bool isGamepad = false;             ///< Whether a gamepad mapping exists.
        std::vector<float> axes;            ///< Raw axes, -1 to 1.
        std::vector<unsigned char> buttons; ///< Raw buttons, GLFW_PRESS or GLFW_RELEASE.
        std::vector<unsigned char> hats;    ///< Raw hats, GLFW_HAT_* bits.
        GLFWgamepadstate gamepad{};         ///< Mapped state, used when isGamepad is set.
    };

    /// A window of the given content size, focused, cursor at 0, 0.
    explicit HeadlessWindow(int width = 1280, int height = 720);

    bool IsFocused() const override;
    void SetInputMode(int mode, int value) override;
    int GetInputMode(int mode) const override;
    void SetCursorPos(double x, double y) override;
    void GetCursorPos(double* x, double* y) const override;
    int GetKey(int key) const override;
    int GetMouseButton(int button) const override;
    int GetWidth() const override;
    int GetHeight() const override;
    std::string GetClipboardText() const override;
    void SetClipboardText(std::string const& text) override;
    bool JoystickPresent(int id) const override;
    float const* GetJoystickAxes(int id, int* count) const override;
    unsigned char const* GetJoystickButtons(int id, int* count) const override;
    unsigned char const* GetJoystickHats(int id, int* count) const override;
    bool GetGamepadState(int id, GLFWgamepadstate* state) const override;
    char const* GetJoystickGUID(int id) const override;
    char const* GetJoystickName(int id) const override;
    bool JoystickIsGamepad(int id) const override;
    void PollEvents() override;
    bool ShouldClose() const override;
    void SetShouldClose(bool close) override;

    /// Gives or takes the focus.
    void SetFocused(bool focused);
    /// Changes the content size.
    void SetSize(int width, int height);
    /// Presses (GLFW_PRESS, GLFW_REPEAT) or releases a key and fires onKey. Unknown keys are ignored.
    void SetKey(int key, int action, int mods = 0);
    /// Types one character and fires onChar.
    void TypeChar(unsigned int codepoint);
    /// Presses or releases a mouse button and fires onMouseButton. Unknown buttons are ignored.
    void SetMouseButton(int button, int action, int mods = 0);
    /// Scrolls and fires onScroll.
    void Scroll(double xOffset, double yOffset);
    /// Connects (or replaces) a joystick at a device number from 0 to GLFW_JOYSTICK_LAST.
    void ConnectJoystick(int id, Joystick const& joystick);
    /// Disconnects a joystick; nothing happens if none is there.
    void DisconnectJoystick(int id);
    /// Sets one raw axis; ignored when the device or the axis is absent.
    void SetJoystickAxis(int id, int axis, float value);
    /// Sets one raw button; ignored when the device or the button is absent.
    void SetJoystickButton(int id, int button, bool pressed);
    /// Sets one raw hat; ignored when the device or the hat is absent.
    void SetJoystickHat(int id, int hat, unsigned char value);
    /// Sets one mapped gamepad axis; ignored when absent or out of range.
    void SetGamepadAxis(int id, int axis, float value);
    /// Sets one mapped gamepad button; ignored when absent or out of range.
    void SetGamepadButton(int id, int button, bool pressed);

private:
    Joystick const* FindJoystick(int id) const;
    Joystick* FindJoystick(int id);

    mutable std::mutex _mutex;
    int _width;
    int _height;
    bool _focused = true;
    bool _shouldClose = false;
    double _cursorX = 0.0;
    double _cursorY = 0.0;
    std::map<int, int> _inputModes;
    std::array<unsigned char, GLFW_KEY_LAST + 1> _keys{};
    std::array<unsigned char, GLFW_MOUSE_BUTTON_LAST + 1> _mouseButtons{};
    std::string _clipboard;
    std::map<int, Joystick> _joysticks;
};

} // namespace nerox::graphics
