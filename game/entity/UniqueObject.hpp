#pragma once
#include <cstdint>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>

#include "game/entity/Id.hpp"
#include "nerox/SharedMutex.hpp"

namespace game::entity {

/// The process-wide registry of the live objects of a class T, keyed by their Id.
/// T derives from UniqueObject<T>, names itself in a static constexpr
/// `char const* _uniqueObjectName` (the class name used in messages) and has a
/// const `GetID()` that returns its Id. A T with a `selfReference` weak pointer
/// gets it filled by Create.
///
/// Locking: _sharedObjectsMutex is taken shared by Get and ForEach and
/// exclusively by Create, Destroy and DestroyAll. Objects are constructed and
/// released outside the lock, so constructors and destructors may call Get.
/// A ForEach callback may call Get, but must not create or destroy objects of T.
template <class T> class UniqueObject {
public:
    /// Constructs a T from args, stores its self reference and registers it under
    /// its Id. Throws std::runtime_error when an object with that Id exists
    /// already (the new object is released, the old one stays) or when the Id is
    /// not set.
    template <class... Args> static std::shared_ptr<T> Create(Args&&... args) {
        std::shared_ptr<T> object = std::make_shared<T>(std::forward<Args>(args)...);
        if constexpr (requires { object->selfReference = object; }) object->selfReference = object;
        Id const id = object->GetID();
        if (!id.IsSet()) {
            KeepFiles(*object);
            throw std::runtime_error(std::string("UNIQUE_OBJECT ") + T::_uniqueObjectName + " without an id");
        }
        bool inserted = false;
        {
            std::unique_lock<nerox::SharedMutex> lock(_sharedObjectsMutex);
            inserted = _sharedObjects.try_emplace(id, object).second;
            if (inserted) ++_sharedObjectsVersion;
        }
        if (!inserted) {
            KeepFiles(*object);
            throw std::runtime_error(std::string("UNIQUE_OBJECT ") + T::_uniqueObjectName + " with id " +
                                     static_cast<std::string>(id) + " already exists");
        }
        return object;
    }

    /// The registered object with id, or an empty pointer (always for an unset id).
    static std::shared_ptr<T> Get(Id const& id) {
        if (!id.IsSet()) return {};
        std::shared_lock<nerox::SharedMutex> lock(_sharedObjectsMutex);
        auto const found = _sharedObjects.find(id);
        return found == _sharedObjects.end() ? std::shared_ptr<T>() : found->second;
    }

    /// Calls callback with each registered object, holding the shared lock for
    /// the whole walk. Empty slots are skipped.
    static void ForEach(std::function<void(std::shared_ptr<T>)>&& callback) {
        std::shared_lock<nerox::SharedMutex> lock(_sharedObjectsMutex);
        for (auto const& entry : _sharedObjects) {
            if (entry.second) callback(entry.second);
        }
    }

    /// Removes the object with id from the registry; false when there is none.
    /// An object that someone else still holds is removed all the same, after a
    /// warning on the standard error stream.
    static bool Destroy(Id const& id) {
        std::shared_ptr<T> released;
        {
            std::unique_lock<nerox::SharedMutex> lock(_sharedObjectsMutex);
            auto const found = _sharedObjects.find(id);
            if (found == _sharedObjects.end()) return false;
            if (found->second.use_count() != 1) {
                std::cerr << "WARNING: UNIQUE_OBJECT " << T::_uniqueObjectName << " with id "
                          << static_cast<std::string>(id) << " being Destroyed while still in use" << std::endl;
            }
            released = std::move(found->second);
            _sharedObjects.erase(found);
            ++_sharedObjectsVersion;
        }
        // released goes here, outside the lock, so its destructor may use the registry.
        return true;
    }

    /// Removes every object from the registry without warnings.
    static void DestroyAll() {
        std::unordered_map<Id, std::shared_ptr<T>> released;
        {
            std::unique_lock<nerox::SharedMutex> lock(_sharedObjectsMutex);
            released.swap(_sharedObjects);
            ++_sharedObjectsVersion;
        }
    }

    /// Number of registered objects.
    static size_t Count() {
        std::shared_lock<nerox::SharedMutex> lock(_sharedObjectsMutex);
        return _sharedObjects.size();
    }

private:
    /// A rejected object must not take the files of the one that stays (or of
    /// anyone) with it: objects that remove their files on destruction keep them.
    static void KeepFiles(T& object) {
        if constexpr (requires { object.deleteFilesOnDestroy = false; }) object.deleteFilesOnDestroy = false;
    }

public:
    // Open for code that walks the objects itself under the lock (the physics
    // step); take _sharedObjectsMutex shared to read, exclusively to change,
    // and count every change of the set in _sharedObjectsVersion.

    /// The live objects by Id.
    inline static std::unordered_map<Id, std::shared_ptr<T>> _sharedObjects;
    /// Readers-writer lock of _sharedObjects.
    inline static nerox::SharedMutex _sharedObjectsMutex;
    /// Grows with every insertion into and removal from _sharedObjects, under
    /// the exclusive lock: a walker that saw the same version (and size) may
    /// keep what it listed, in the same order.
    inline static uint64_t _sharedObjectsVersion = 0;
};

/// Creates and registers a T; see UniqueObject::Create.
template <class T, class... Args> std::shared_ptr<T> Create(Args&&... args) {
    return T::Create(std::forward<Args>(args)...);
}

/// The registered T with id, or an empty pointer; see UniqueObject::Get.
template <class T> std::shared_ptr<T> Get(Id const& id) {
    return T::Get(id);
}

} // namespace game::entity
