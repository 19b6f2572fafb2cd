#include "nerox/SharedMutex.hpp"

namespace nerox {

void SharedMutex::lock_shared() {
    std::unique_lock guard(_mutex);
    _condition.wait(guard, [this] { return !_writer; });
    ++_readers;
}

bool SharedMutex::try_lock_shared() {
    std::lock_guard guard(_mutex);
    if (_writer) return false;
    ++_readers;
    return true;
}

void SharedMutex::unlock_shared() {
    std::lock_guard guard(_mutex);
    if (--_readers == 0) _condition.notify_one();
}

void SharedMutex::lock() {
    std::unique_lock guard(_mutex);
    _condition.wait(guard, [this] { return _readers == 0 && !_writer; });
    _writer = true;
}

bool SharedMutex::try_lock() {
    std::lock_guard guard(_mutex);
    if (_readers != 0 || _writer) return false;
    _writer = true;
    return true;
}

void SharedMutex::unlock() {
    std::lock_guard guard(_mutex);
    _writer = false;
    _condition.notify_all();
}

} // namespace nerox
