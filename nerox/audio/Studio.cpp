#include "nerox/audio/Studio.hpp"

namespace nerox::audio {

void Studio::Event::Start() {
    if (!_state) return;
    std::lock_guard lock(*_mutex);
    _state->playing = true;
}

void Studio::Event::Stop() {
    if (!_state) return;
    std::lock_guard lock(*_mutex);
    _state->playing = false;
}

void Studio::Event::SetParameter(char const* name, float value, bool) {
    if (!_state || !name) return;
    std::lock_guard lock(*_mutex);
    _state->parameters[name] = value;
}

void Studio::Event::SetVolume(float volume) {
    if (!_state) return;
    std::lock_guard lock(*_mutex);
    _state->volume = volume;
}

Studio::EventState Studio::Event::GetState() const {
    if (!_state) return {};
    std::lock_guard lock(*_mutex);
    return *_state;
}

Studio::Studio() : _mutex(std::make_shared<std::mutex>()) { }

Studio& Studio::LoadBank(char const* path) {
    std::lock_guard lock(*_mutex);
    _banks.emplace_back(path ? path : "");
    return *this;
}

Studio::Event Studio::EventInstance(char const* path) {
    auto state = std::make_shared<EventState>();
    state->path = path ? path : "";
    std::lock_guard lock(*_mutex);
    _events.push_back(state);
    return Event(state, _mutex);
}

void Studio::SetParameter(char const* name, float value, bool) {
    if (!name) return;
    std::lock_guard lock(*_mutex);
    _parameters[name] = value;
}

void Studio::SetVolume(float volume, char const* bus) {
    if (!bus) return;
    std::lock_guard lock(*_mutex);
    _volumes[bus] = volume;
}

void Studio::SetListenerAttributes(float px, float py, float pz, float vx, float vy, float vz, float fx, float fy,
                                   float fz, float ux, float uy, float uz) {
    std::lock_guard lock(*_mutex);
    _listener = {px, py, pz, vx, vy, vz, fx, fy, fz, ux, uy, uz};
}

void Studio::Update() {
    std::lock_guard lock(*_mutex);
    ++_updates;
}

std::vector<std::string> Studio::GetBanks() const {
    std::lock_guard lock(*_mutex);
    return _banks;
}

float Studio::GetParameter(std::string const& name, float fallback) const {
    std::lock_guard lock(*_mutex);
    auto it = _parameters.find(name);
    return it == _parameters.end() ? fallback : it->second;
}

float Studio::GetVolume(std::string const& bus, float fallback) const {
    std::lock_guard lock(*_mutex);
    auto it = _volumes.find(bus);
    return it == _volumes.end() ? fallback : it->second;
}

Studio::ListenerAttributes Studio::GetListenerAttributes() const {
    std::lock_guard lock(*_mutex);
    return _listener;
}

unsigned long long Studio::GetUpdateCount() const {
    std::lock_guard lock(*_mutex);
    return _updates;
}

std::vector<Studio::EventState> Studio::GetEvents() const {
    std::lock_guard lock(*_mutex);
    std::vector<EventState> events;
    events.reserve(_events.size());
    for (auto const& event : _events) events.push_back(*event);
    return events;
}

} // namespace nerox::audio
