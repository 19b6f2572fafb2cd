#include "game/entity/PressurizedVolume.hpp"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>

#include "game/Chemistry.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "nerox/Assert.hpp"

namespace game::entity {

PressurizedVolume::PressurizedVolume(Id owner, double size, double kelvin)
    : volume(size), temperature(kelvin), entity(owner) { }

PressurizedVolume::GasData& PressurizedVolume::Gas(std::string const& name) {
    auto found = _gases.find(name);
    if (found == _gases.end()) {
        GasData data;
        data.molarMass = Molecule(name).GetMolarMass();
        found = _gases.emplace(name, data).first;
    }
    return found->second;
}

double PressurizedVolume::LiquidDensity(std::string const& name) {
    GasData& gas = Gas(name);
    if (gas.liquidDensity < 0.0) gas.liquidDensity = Molecule(name).GetMaximumLiquidDensity();
    return gas.liquidDensity;
}

void PressurizedVolume::Update(double dt) {
    using std::isinf;
    using std::isnan;
    if (volume == 0.0) return;

    // Totals and the volume the contents would take as liquid.
    totalMass = 0.0;
    double liquid = 0.0;
    for (auto const& [name, mass] : contents) {
        totalMass += mass;
        liquid += mass / LiquidDensity(name);
    }
    liquidRatio = std::clamp(liquid / volume, 0.0, 1.0);

    // More than fits as liquid: the excess goes.
    if (liquid > volume) {
        double const factor = 1.0 - (liquid - volume) / volume;
        for (auto& entry : contents) entry.second *= factor;
        totalMass *= factor;
    }

    if (!(totalMass > 0.0)) {
        totalMass = 0.0;
        density = 0.0;
        liquidRatio = 0.0;
        pressure = 0.0;
        contents.clear();
    } else {
        density = totalMass / volume;
        // Ideal gas law with the mixture's mean molar mass.
        double moles = 0.0;
        for (auto const& [name, mass] : contents) moles += mass / Gas(name).molarMass;
        pressure = GasConstant / (totalMass / moles) * density * temperature;
    }

    NEROX_ASSERT(!isnan(density));
    NEROX_ASSERT(!isinf(density));
    NEROX_ASSERT(!isnan(totalMass));
    NEROX_ASSERT(!isinf(totalMass));

    sealed = std::clamp(sealed + dt, 0.0, 1.0);
}

double PressurizedVolume::Push(std::string const& molecule, double mass) {
    if (volume == 0.0 || !(mass > 0.0)) return 0.0;
    auto const known = _gases.find(molecule);
    bool const checked = known != _gases.end() && known->second.liquidDensity >= 0.0;
    if (!checked && !Molecule(molecule).HasUsableComposition())
        throw std::invalid_argument("PressurizedVolume::Push: \"" + molecule + "\" is not a molecule");

    double liquid = 0.0;
    for (auto const& [name, present] : contents) liquid += present / LiquidDensity(name);
    double const room = volume - liquid;
    if (!(room > 0.0)) return 0.0;
    double const added = std::min(mass, room * LiquidDensity(molecule));
    if (!(added > 0.0)) return 0.0;
    contents[molecule] += added;
    return added;
}

void PressurizedVolume::Remove(double mass, PressurizedVolume* target) {
    double const before = totalMass;
    for (auto entry = contents.begin(); entry != contents.end();) {
        double const part = entry->second * mass / before;
        entry->second -= part;
        if (target != nullptr) target->contents[entry->first] += part;
        if (entry->second < MinimumGasMass)
            entry = contents.erase(entry);
        else
            ++entry;
    }
}

double PressurizedVolume::Transfer(PressurizedVolume* a, PressurizedVolume* b, glm::dvec3 const& /*point*/,
                                   glm::dvec3 const& /*normal*/, double area, double dt) {
    if (a == nullptr || b == nullptr || !(area > 0.0) || a->volume == 0.0 || b->volume == 0.0) return 0.0;

    // A leak in either spreads to both.
    double const sealed = std::min(a->sealed, b->sealed);
    a->sealed = sealed;
    b->sealed = sealed;

    double const difference = a->pressure - b->pressure;
    if (std::abs(difference) < MinimumFlowPressure) return 0.0;

    double const speed = std::sqrt(2.0 * std::abs(difference) / ((a->density + b->density) * 0.5));
    double const mass = area * speed * dt;
    if (difference > 0.0) {
        NEROX_ASSERT(a->totalMass > 0);
        a->Remove(mass, b);
    } else {
        NEROX_ASSERT(b->totalMass > 0);
        b->Remove(mass, a);
    }
    return mass;
}

double PressurizedVolume::Transfer(PressurizedVolume* a, game::physics::EnvironmentInfo const& outside,
                                   glm::dvec3 const& /*point*/, glm::dvec3 const& /*normal*/, double area, double dt) {
    if (a == nullptr || a->volume == 0.0) return 0.0;
    a->Leak();

    double const difference = a->pressure - outside.pressure;
    double mass = 0.0;
    if (area > 0.0 && std::abs(difference) >= MinimumFlowPressure) {
        double const speed = std::sqrt(2.0 * std::abs(difference) / ((a->density + outside.density) * 0.5));
        mass = area * speed * dt;
    }

    // Mean molar mass of the outside's mixture, weighted by fraction.
    double meanMolarMass = 0.0;
    for (auto const& [name, fraction] : outside.composition) meanMolarMass += fraction * a->Gas(name).molarMass;

    // Mass of gas name that the outside holds in a's volume. Without a usable
    // mixture (no gases, or no molar mass) nothing is added from outside.
    auto const outsideShare = [&](std::string const& name, double fraction) {
        return outside.density * a->volume * fraction * a->Gas(name).molarMass / meanMolarMass;
    };

    if (mass < ReplacementFlowMass) {
        if (meanMolarMass > 0.0) {
            for (auto const& [name, fraction] : outside.composition) a->contents[name] = outsideShare(name, fraction);
        }
        return 0.0;
    }

    if (difference > 0.0 && a->density > outside.density) {
        NEROX_ASSERT(a->totalMass > 0);
        a->Remove(mass, nullptr);
        return mass;
    }

    if (outside.density != 0.0 && meanMolarMass > 0.0) {
        for (auto const& [name, fraction] : outside.composition) {
            double& present = a->contents[name];
            present = std::min(present + mass * fraction, outsideShare(name, fraction));
        }
    }
    return mass;
}

std::shared_ptr<PressurizedVolume> PressurizedVolume::Create(Id entity, double volume, double temperature) {
    auto object = std::make_shared<PressurizedVolume>(entity, volume, temperature);
    Register(object);
    return object;
}

void PressurizedVolume::Register(std::shared_ptr<PressurizedVolume> const& volume) {
    if (!volume) return;
    std::unique_lock<nerox::SharedMutex> lock(_sharedObjectsMutex);
    std::erase_if(_sharedObjects, [](std::weak_ptr<PressurizedVolume> const& entry) { return entry.expired(); });
    for (auto const& entry : _sharedObjects) {
        if (entry.lock() == volume) return;
    }
    _sharedObjects.push_back(volume);
}

void PressurizedVolume::Find(Id entity, glm::dvec3 const& position,
                             std::function<void(std::shared_ptr<PressurizedVolume>)> const& callback) {
    if (!callback) return;
    // The entity decides for all of its volumes: look it up once, before the
    // walk, so that the entity registry's lock is never taken inside this one.
    ServerSideEntity::Ptr const owner = ServerSideEntity::Get(entity);
    if (!owner) return;
    std::shared_ptr<ServerSideEntity::Interface> const& behaviour = owner->GetInterface();
    if (!behaviour || !behaviour->isReady || !behaviour->IsInsideVolume(position)) return;

    std::shared_lock<nerox::SharedMutex> lock(_sharedObjectsMutex);
    for (auto const& entry : _sharedObjects) {
        std::shared_ptr<PressurizedVolume> volume = entry.lock();
        if (volume && volume->entity == entity) callback(std::move(volume));
    }
}

} // namespace game::entity
