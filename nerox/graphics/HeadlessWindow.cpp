#include "nerox/graphics/HeadlessWindow.hpp"

namespace nerox::graphics {

namespace {
bool InRange(int index, size_t size) {
    return index >= 0 && static_cast<size_t>(index) < size;
}
} // namespace

HeadlessWindow::HeadlessWindow(int width, int height) : _width(width), _height(height) {
    _inputModes[GLFW_CURSOR] = GLFW_CURSOR_NORMAL;
}

bool HeadlessWindow::IsFocused() const {
    std::lock_guard lock(_mutex);
    return _focused;
}

void HeadlessWindow::SetInputMode(int mode, int value) {
    std::lock_guard lock(_mutex);
    _inputModes[mode] = value;
}

int HeadlessWindow::GetInputMode(int mode) const {
    std::lock_guard lock(_mutex);
    auto it = _inputModes.find(mode);
    return it == _inputModes.end() ? 0 : it->second;
}

void HeadlessWindow::SetCursorPos(double x, double y) {
    std::lock_guard lock(_mutex);
    _cursorX = x;
    _cursorY = y;
}

void HeadlessWindow::GetCursorPos(double* x, double* y) const {
    std::lock_guard lock(_mutex);
    if (x) *x = _cursorX;
    if (y) *y = _cursorY;
}

int HeadlessWindow::GetKey(int key) const {
    std::lock_guard lock(_mutex);
    return InRange(key, _keys.size()) && _keys[key] ? GLFW_PRESS : GLFW_RELEASE;
}

int HeadlessWindow::GetMouseButton(int button) const {
    std::lock_guard lock(_mutex);
    return InRange(button, _mouseButtons.size()) && _mouseButtons[button] ? GLFW_PRESS : GLFW_RELEASE;
}

int HeadlessWindow::GetWidth() const {
    std::lock_guard lock(_mutex);
    return _width;
}

int HeadlessWindow::GetHeight() const {
    std::lock_guard lock(_mutex);
    return _height;
}

std::string HeadlessWindow::GetClipboardText() const {
    std::lock_guard lock(_mutex);
    return _clipboard;
}

void HeadlessWindow::SetClipboardText(std::string const& text) {
    std::lock_guard lock(_mutex);
    _clipboard = text;
}

HeadlessWindow::Joystick const* HeadlessWindow::FindJoystick(int id) const {
    auto it = _joysticks.find(id);
    return it == _joysticks.end() ? nullptr : &it->second;
}

HeadlessWindow::Joystick* HeadlessWindow::FindJoystick(int id) {
    auto it = _joysticks.find(id);
    return it == _joysticks.end() ? nullptr : &it->second;
}

bool HeadlessWindow::JoystickPresent(int id) const {
    std::lock_guard lock(_mutex);
    return FindJoystick(id) != nullptr;
}

float const* HeadlessWindow::GetJoystickAxes(int id, int* count) const {
    std::lock_guard lock(_mutex);
    Joystick const* joystick = FindJoystick(id);
    if (count) *count = joystick ? static_cast<int>(joystick->axes.size()) : 0;
    return joystick && !joystick->axes.empty() ? joystick->axes.data() : nullptr;
}

unsigned char const* HeadlessWindow::GetJoystickButtons(int id, int* count) const {
    std::lock_guard lock(_mutex);
    Joystick const* joystick = FindJoystick(id);
    if (count) *count = joystick ? static_cast<int>(joystick->buttons.size()) : 0;
    return joystick && !joystick->buttons.empty() ? joystick->buttons.data() : nullptr;
}

unsigned char const* HeadlessWindow::GetJoystickHats(int id, int* count) const {
    std::lock_guard lock(_mutex);
    Joystick const* joystick = FindJoystick(id);
    if (count) *count = joystick ? static_cast<int>(joystick->hats.size()) : 0;
    return joystick && !joystick->hats.empty() ? joystick->hats.data() : nullptr;
}

bool HeadlessWindow::GetGamepadState(int id, GLFWgamepadstate* state) const {
    std::lock_guard lock(_mutex);
    Joystick const* joystick = FindJoystick(id);
    if (!joystick || !joystick->isGamepad) return false;
    if (state) *state = joystick->gamepad;
    return true;
}

char const* HeadlessWindow::GetJoystickGUID(int id) const {
    std::lock_guard lock(_mutex);
    Joystick const* joystick = FindJoystick(id);
    return joystick ? joystick->guid.c_str() : nullptr;
}

char const* HeadlessWindow::GetJoystickName(int id) const {
    std::lock_guard lock(_mutex);
    Joystick const* joystick = FindJoystick(id);
    return joystick ? joystick->name.c_str() : nullptr;
}

bool HeadlessWindow::JoystickIsGamepad(int id) const {
    std::lock_guard lock(_mutex);
    Joystick const* joystick = FindJoystick(id);
    return joystick && joystick->isGamepad;
}

void HeadlessWindow::PollEvents() { }

bool HeadlessWindow::ShouldClose() const {
    std::lock_guard lock(_mutex);
    return _shouldClose;
}

void HeadlessWindow::SetShouldClose(bool close) {
    std::lock_guard lock(_mutex);
    _shouldClose = close;
}

void HeadlessWindow::SetFocused(bool focused) {
    std::lock_guard lock(_mutex);
    _focused = focused;
}

void HeadlessWindow::SetSize(int width, int height) {
    std::lock_guard lock(_mutex);
    _width = width;
    _height = height;
}

void HeadlessWindow::SetKey(int key, int action, int mods) {
    {
        std::lock_guard lock(_mutex);
        if (!InRange(key, _keys.size())) return;
        _keys[key] = action != GLFW_RELEASE;
    }
    if (onKey) onKey(key, 0, action, mods);
}

void HeadlessWindow::TypeChar(unsigned int codepoint) {
    if (onChar) onChar(codepoint);
}

void HeadlessWindow::SetMouseButton(int button, int action, int mods) {
    {
        std::lock_guard lock(_mutex);
        if (!InRange(button, _mouseButtons.size())) return;
        _mouseButtons[button] = action != GLFW_RELEASE;
    }
    if (onMouseButton) onMouseButton(button, action, mods);
}

void HeadlessWindow::Scroll(double xOffset, double yOffset) {
    if (onScroll) onScroll(xOffset, yOffset);
}

void HeadlessWindow::ConnectJoystick(int id, Joystick const& joystick) {
    if (id < 0 || id > GLFW_JOYSTICK_LAST) return;
    std::lock_guard lock(_mutex);
    _joysticks[id] = joystick;
}

void HeadlessWindow::DisconnectJoystick(int id) {
    std::lock_guard lock(_mutex);
    _joysticks.erase(id);
}

void HeadlessWindow::SetJoystickAxis(int id, int axis, float value) {
    std::lock_guard lock(_mutex);
    Joystick* joystick = FindJoystick(id);
    if (joystick && InRange(axis, joystick->axes.size())) joystick->axes[axis] = value;
}

void HeadlessWindow::SetJoystickButton(int id, int button, bool pressed) {
    std::lock_guard lock(_mutex);
    Joystick* joystick = FindJoystick(id);
    if (joystick && InRange(button, joystick->buttons.size()))
        joystick->buttons[button] = pressed ? GLFW_PRESS : GLFW_RELEASE;
}

void HeadlessWindow::SetJoystickHat(int id, int hat, unsigned char value) {
    std::lock_guard lock(_mutex);
    Joystick* joystick = FindJoystick(id);
    if (joystick && InRange(hat, joystick->hats.size())) joystick->hats[hat] = value;
}

void HeadlessWindow::SetGamepadAxis(int id, int axis, float value) {
    std::lock_guard lock(_mutex);
    Joystick* joystick = FindJoystick(id);
    if (joystick && InRange(axis, std::size(joystick->gamepad.axes))) joystick->gamepad.axes[axis] = value;
}

void HeadlessWindow::SetGamepadButton(int id, int button, bool pressed) {
    std::lock_guard lock(_mutex);
    Joystick* joystick = FindJoystick(id);
    if (joystick && InRange(button, std::size(joystick->gamepad.buttons)))
        joystick->gamepad.buttons[button] = pressed ? GLFW_PRESS : GLFW_RELEASE;
}

} // namespace nerox::graphics
