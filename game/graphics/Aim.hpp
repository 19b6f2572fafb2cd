#pragma once
// What the player looks at. Each frame the drawing path writes one AimBuffer
// for the pixel under the crosshair; the CPU reads it a frame or two later
// (never waiting for it) into GameRenderer::aim. The record names the object
// by the aim id of its renderable instance, an index into the renderer's table
// of AimReference, which a module fills with AddAimReference.
//
// Threads: the aim is written on the render thread and read anywhere under
// its mutex; the reference table has a mutex of its own, taken after the
// aim's.
#include <any>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "nerox/modular/ModuleID.hpp"

namespace game::graphics {

/// The record of the pixel under the crosshair, as the shaders write it. The
/// game reads aimID, distance and the monitor fields; the other words belong
/// to the shaders.
struct AimBuffer {
    float hitPosition[3] = {};        ///< Where the aim met the object, camera-relative metres.
    uint32_t aimID = 0;               ///< Aim id of the object; 0 for none (the sky).
    float hitNormal[3] = {};          ///< Surface normal there, world axes.
    uint32_t shaderWords[4] = {};     ///< Free for the shaders.
    float distance = 0.0f;            ///< Metres from the camera to the hit; 0 for none.
    uint32_t moreShaderWords[8] = {}; ///< Free for the shaders.
    float monitorX = 0.0f;            ///< Horizontal place on a monitor's surface, 0 to 1.
    float monitorY = 0.0f;            ///< Vertical place on a monitor's surface, 0 to 1.
    uint32_t monitorID = 0;           ///< The monitor aimed at; 0 when the aim is not on one.
    uint32_t reserved = 0;            ///< Zero.
};
static_assert(sizeof(AimBuffer) == 96);
static_assert(offsetof(AimBuffer, aimID) == 12 && offsetof(AimBuffer, distance) == 44);
static_assert(offsetof(AimBuffer, monitorX) == 80 && offsetof(AimBuffer, monitorY) == 84 &&
              offsetof(AimBuffer, monitorID) == 88);

/// What an aim id stands for: the module that registered it and its data.
/// The empty reference has the unset module and an int 0.
struct AimReference {
    AimReference() = default;
    AimReference(nerox::modular::ModuleID module, std::any data);

    nerox::modular::ModuleID module;
    std::any data = 0;
};

/// The table of aim references. Entry 0 is the empty reference, so that no
/// registered object has id 0.
class AimReferences {
public:
    AimReferences();

    /// Appends a reference of the module named moduleName (VENDOR_name) and returns its aim id.
    uint32_t Add(std::string const& moduleName, std::any data);
    /// Entry id, or the empty reference when id is outside the table.
    AimReference Get(uint32_t id) const;
    /// Back to only the empty entry.
    void Clear();
    /// Entries, the empty one included.
    size_t Size() const;

private:
    mutable std::mutex _mutex; ///< Guards _entries.
    std::vector<AimReference> _entries;
};

/// What the player looks at: the last record read back and what its id stands for.
class Aim {
public:
    /// An empty aim that looks its ids up in references (none: every id stays empty).
    explicit Aim(AimReferences const* references = nullptr) : _references(references) { }
    ~Aim();
    Aim(Aim const& other);
    /// Takes the record, reference and target of other; keeps its own table.
    Aim& operator=(Aim const& other);
    /// Takes a record read back from the frame: looks its id up and sets the
    /// game's monitor globals (the id always, the place and distance only when
    /// it is on a monitor).
    Aim& operator=(AimBuffer const& buffer);

    /// Copies of the fields, taken under the mutex.
    AimReference Reference() const;
    AimBuffer Buffer() const;
    /// Drops the target (and what it keeps alive).
    void ClearTarget();
    /// Back to the empty aim.
    void Reset();

    mutable std::mutex mutex;     ///< Guards the fields below.
    AimReference reference;       ///< What the aim id stands for.
    AimBuffer buffer;             ///< The record as read back.
    std::shared_ptr<void> target; ///< What the module that owns the reference made of it; free for modules.

private:
    AimReferences const* _references;
};

} // namespace game::graphics
