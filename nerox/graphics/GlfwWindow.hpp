#pragma once
#include "nerox/graphics/Window.hpp"

#include <string>

namespace nerox::graphics {

/// A real desktop window through GLFW, created without a client API so that a
/// Vulkan surface can be made for it. GLFW calls must come from the thread that
/// created the window (the main thread).
class GlfwWindow final : public Window {
public:
    /// Initialises GLFW if needed and opens a window. Throws std::runtime_error
    /// with GLFW's description when no display or window can be had.
    GlfwWindow(std::string const& title, int width, int height, bool visible = true);
    ~GlfwWindow() override;
    GlfwWindow(GlfwWindow const&) = delete;
    GlfwWindow& operator=(GlfwWindow const&) = delete;

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
    void SetFullscreen(bool on) override;

    /// The GLFW handle, for the renderer's surface and the interface backend.
    GLFWwindow* GetHandle() const { return _window; }

private:
    GLFWwindow* _window = nullptr;
    int _windowed[4] = {0, 0, 0, 0}; // position and size to go back to from full screen
};

} // namespace nerox::graphics
