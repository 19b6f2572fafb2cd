#include "nerox/graphics/GlfwWindow.hpp"

#include <atomic>
#include <stdexcept>

namespace nerox::graphics {

namespace {

std::atomic<int> openWindows{0};

std::string LastGlfwError() {
    char const* description = nullptr;
    int code = glfwGetError(&description);
    if (code == GLFW_NO_ERROR) return "unknown error";
    return description ? description : "error " + std::to_string(code);
}

GlfwWindow* Owner(GLFWwindow* window) {
    return static_cast<GlfwWindow*>(glfwGetWindowUserPointer(window));
}

} // namespace

GlfwWindow::GlfwWindow(std::string const& title, int width, int height, bool visible) {
    if (openWindows.fetch_add(1) == 0 && !glfwInit()) {
        openWindows.fetch_sub(1);
        throw std::runtime_error("Could not initialise GLFW: " + LastGlfwError());
    }
    glfwWindowHint(GLFW_CLIENT_API, GLFW_NO_API);
    glfwWindowHint(GLFW_VISIBLE, visible ? GLFW_TRUE : GLFW_FALSE);
    _window = glfwCreateWindow(width, height, title.c_str(), nullptr, nullptr);
    if (!_window) {
        std::string error = LastGlfwError();
        if (openWindows.fetch_sub(1) == 1) glfwTerminate();
        throw std::runtime_error("Could not create a window: " + error);
    }
    glfwSetWindowUserPointer(_window, this);
    glfwSetKeyCallback(_window, [](GLFWwindow* w, int key, int scancode, int action, int mods) {
        if (auto* self = Owner(w); self && self->onKey) self->onKey(key, scancode, action, mods);
    });
    glfwSetCharCallback(_window, [](GLFWwindow* w, unsigned int codepoint) {
        if (auto* self = Owner(w); self && self->onChar) self->onChar(codepoint);
    });
    glfwSetMouseButtonCallback(_window, [](GLFWwindow* w, int button, int action, int mods) {
        if (auto* self = Owner(w); self && self->onMouseButton) self->onMouseButton(button, action, mods);
    });
    glfwSetScrollCallback(_window, [](GLFWwindow* w, double x, double y) {
        if (auto* self = Owner(w); self && self->onScroll) self->onScroll(x, y);
    });
}

GlfwWindow::~GlfwWindow() {
    glfwDestroyWindow(_window);
    if (openWindows.fetch_sub(1) == 1) glfwTerminate();
}

bool GlfwWindow::IsFocused() const {
    return glfwGetWindowAttrib(_window, GLFW_FOCUSED) == GLFW_TRUE;
}
void GlfwWindow::SetInputMode(int mode, int value) {
    glfwSetInputMode(_window, mode, value);
}
int GlfwWindow::GetInputMode(int mode) const {
    return glfwGetInputMode(_window, mode);
}
void GlfwWindow::SetCursorPos(double x, double y) {
    glfwSetCursorPos(_window, x, y);
}
void GlfwWindow::GetCursorPos(double* x, double* y) const {
    glfwGetCursorPos(_window, x, y);
}

int GlfwWindow::GetKey(int key) const {
    if (key < GLFW_KEY_SPACE || key > GLFW_KEY_LAST) return GLFW_RELEASE;
    return glfwGetKey(_window, key);
}

int GlfwWindow::GetMouseButton(int button) const {
    if (button < 0 || button > GLFW_MOUSE_BUTTON_LAST) return GLFW_RELEASE;
    return glfwGetMouseButton(_window, button);
}

int GlfwWindow::GetWidth() const {
    int width = 0;
    glfwGetWindowSize(_window, &width, nullptr);
    return width;
}

int GlfwWindow::GetHeight() const {
    int height = 0;
    glfwGetWindowSize(_window, nullptr, &height);
    return height;
}

std::string GlfwWindow::GetClipboardText() const {
    char const* text = glfwGetClipboardString(_window);
    return text ? text : "";
}

void GlfwWindow::SetClipboardText(std::string const& text) {
    glfwSetClipboardString(_window, text.c_str());
}

bool GlfwWindow::JoystickPresent(int id) const {
    return glfwJoystickPresent(id) == GLFW_TRUE;
}

float const* GlfwWindow::GetJoystickAxes(int id, int* count) const {
    int n = 0;
    float const* axes = glfwGetJoystickAxes(id, &n);
    if (count) *count = axes ? n : 0;
    return axes;
}

unsigned char const* GlfwWindow::GetJoystickButtons(int id, int* count) const {
    int n = 0;
    unsigned char const* buttons = glfwGetJoystickButtons(id, &n);
    if (count) *count = buttons ? n : 0;
    return buttons;
}

unsigned char const* GlfwWindow::GetJoystickHats(int id, int* count) const {
    int n = 0;
    unsigned char const* hats = glfwGetJoystickHats(id, &n);
    if (count) *count = hats ? n : 0;
    return hats;
}

bool GlfwWindow::GetGamepadState(int id, GLFWgamepadstate* state) const {
    return glfwGetGamepadState(id, state) == GLFW_TRUE;
}

char const* GlfwWindow::GetJoystickGUID(int id) const {
    return glfwGetJoystickGUID(id);
}
char const* GlfwWindow::GetJoystickName(int id) const {
    return glfwGetJoystickName(id);
}
bool GlfwWindow::JoystickIsGamepad(int id) const {
    return glfwJoystickIsGamepad(id) == GLFW_TRUE;
}
void GlfwWindow::PollEvents() {
    glfwPollEvents();
}
void GlfwWindow::SetFullscreen(bool on) {
    if (on == _fullscreen) return;
    if (on) {
        GLFWmonitor* const monitor = glfwGetPrimaryMonitor();
        GLFWvidmode const* const mode = monitor != nullptr ? glfwGetVideoMode(monitor) : nullptr;
        if (mode == nullptr) return; // no monitor to fill
        glfwGetWindowPos(_window, &_windowed[0], &_windowed[1]);
        glfwGetWindowSize(_window, &_windowed[2], &_windowed[3]);
        glfwSetWindowMonitor(_window, monitor, 0, 0, mode->width, mode->height, mode->refreshRate);
    } else {
        glfwSetWindowMonitor(_window, nullptr, _windowed[0], _windowed[1], _windowed[2], _windowed[3], GLFW_DONT_CARE);
    }
    _fullscreen = on;
}

bool GlfwWindow::ShouldClose() const {
    return glfwWindowShouldClose(_window) == GLFW_TRUE;
}
void GlfwWindow::SetShouldClose(bool close) {
    glfwSetWindowShouldClose(_window, close ? GLFW_TRUE : GLFW_FALSE);
}

} // namespace nerox::graphics
