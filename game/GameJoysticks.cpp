// The joysticks and gamepads of Game: connection as the window reports it, and
// the lookups by position, kind and identity.
#include "game/Game.hpp"

#include "game/input/Joystick.hpp"
#include "nerox/graphics/Window.hpp"

using game::input::Joystick;

namespace {

/// Whether a device counts as a joystick: connected, no gamepad, and more than
/// one axis (some input devices report a single stray axis).
bool QualifiesAsJoystick(Joystick const& device) {
    return device.connected && !device.isGamepad && device.axesCount > 1;
}

/// The index-th device of Game::_joysticks, in device order, that matches.
template <class Match> std::shared_ptr<Joystick> Nth(int index, Match&& match) {
    if (index < 0) return nullptr;
    for (auto const& [id, device] : Game::_joysticks) {
        if (device && match(*device) && index-- == 0) return device;
    }
    return nullptr;
}

} // namespace

void Game::UpdateJoysticks() {
    if (window == nullptr) return;
    for (int id = GLFW_JOYSTICK_1; id <= GLFW_JOYSTICK_LAST; ++id) {
        auto const found = _joysticks.find(id);
        if (!window->JoystickPresent(id)) {
            if (found != _joysticks.end()) {
                found->second->Disconnect(); // holders of the device see it gone
                _joysticks.erase(found);
            }
            continue;
        }
        if (found != _joysticks.end()) {
            // Another device in the same place (unplugged and plugged between two
            // passes) is opened anew, with fresh calibration.
            char const* guid = window->GetJoystickGUID(id);
            char const* name = window->GetJoystickName(id);
            Joystick& device = *found->second;
            if (device.connected && device.guid == (guid ? guid : "") && device.name == (name ? name : "") &&
                device.isGamepad == window->JoystickIsGamepad(id)) {
                device.InputUpdate();
                continue;
            }
            device.Disconnect();
        }
        _joysticks[id] = std::make_shared<Joystick>(id);
    }
}

std::shared_ptr<Joystick> Game::GetFirstJoystick() {
    return Nth(0, QualifiesAsJoystick);
}

std::shared_ptr<Joystick> Game::GetFirstGamepad() {
    return Nth(0, [](Joystick const& device) { return device.connected && device.isGamepad; });
}

std::shared_ptr<Joystick> Game::GetJoystick(int index) {
    return Nth(index, QualifiesAsJoystick);
}

std::shared_ptr<Joystick> Game::GetJoystick(std::string const& guid, int index) {
    if (guid.empty()) return Nth(index, QualifiesAsJoystick);
    return Nth(index, [&guid](Joystick const& device) { return device.connected && device.IsSameGUID(guid); });
}

std::shared_ptr<Joystick> Game::GetGamepad(std::string const& guid, int index) {
    return Nth(index, [&guid](Joystick const& device) {
        return device.connected && device.isGamepad && (guid.empty() || device.IsSameGUID(guid));
    });
}
