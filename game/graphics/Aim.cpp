#include "game/graphics/Aim.hpp"

#include "game/Game.hpp"

namespace game::graphics {

AimReference::AimReference(nerox::modular::ModuleID module, std::any data) : module(module), data(std::move(data)) { }

AimReferences::AimReferences() : _entries(1) { }

uint32_t AimReferences::Add(std::string const& moduleName, std::any data) {
    std::lock_guard lock(_mutex);
    _entries.emplace_back(nerox::modular::ModuleID(moduleName), std::move(data));
    return static_cast<uint32_t>(_entries.size() - 1);
}

AimReference AimReferences::Get(uint32_t id) const {
    std::lock_guard lock(_mutex);
    return id < _entries.size() ? _entries[id] : AimReference();
}

void AimReferences::Clear() {
    std::lock_guard lock(_mutex);
    _entries.resize(1);
    _entries[0] = AimReference();
}

size_t AimReferences::Size() const {
    std::lock_guard lock(_mutex);
    return _entries.size();
}

Aim::~Aim() = default;

Aim::Aim(Aim const& other) : _references(other._references) {
    std::lock_guard lock(other.mutex);
    reference = other.reference;
    buffer = other.buffer;
    target = other.target;
}

Aim& Aim::operator=(Aim const& other) {
    if (this == &other) return *this;
    std::scoped_lock lock(mutex, other.mutex);
    reference = other.reference;
    buffer = other.buffer;
    target = other.target;
    return *this;
}

Aim& Aim::operator=(AimBuffer const& read) {
    std::lock_guard lock(mutex);
    reference = AimReference();
    buffer = read;
    if (buffer.aimID != 0 && _references != nullptr) reference = _references->Get(buffer.aimID);
    if (buffer.monitorID != 0) {
        Game::currentMonitorDistance = buffer.distance;
        Game::currentMonitorX = buffer.monitorX;
        Game::currentMonitorY = buffer.monitorY;
    }
    Game::currentMonitorID = buffer.monitorID;
    return *this;
}

AimReference Aim::Reference() const {
    std::lock_guard lock(mutex);
    return reference;
}

AimBuffer Aim::Buffer() const {
    std::lock_guard lock(mutex);
    return buffer;
}

void Aim::ClearTarget() {
    std::shared_ptr<void> dropped;
    std::lock_guard lock(mutex);
    dropped.swap(target); // released after the lock
}

void Aim::Reset() {
    std::shared_ptr<void> dropped;
    std::lock_guard lock(mutex);
    reference = AimReference();
    buffer = AimBuffer();
    dropped.swap(target); // released after the lock
}

} // namespace game::graphics
