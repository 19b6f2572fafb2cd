#pragma once
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <glm/glm.hpp>

#include "game/entity/Id.hpp"
#include "game/physics/EnvironmentInfo.hpp"
#include "nerox/SharedMutex.hpp"

namespace game::entity {

/// A closed space holding a gas mixture: a cabin, a tank, a room of a station.
///
/// The contents are masses (kg) by molecule name (a formula that game::Molecule
/// understands, such as "N2" or "O2"). Update derives the total mass, density,
/// liquid share and pressure from them with the ideal gas law, and heals a leak
/// with time. Transfer moves gas between two volumes, or between a volume and
/// the environment outside, at the speed that the pressure difference drives
/// through a hole (Bernoulli).
///
/// A volume of 0 m^3 is inactive: Update, Push and both Transfer leave it as it
/// is. Airtight and Leak are plain setters and work on any volume.
///
/// Ownership: content modules own the objects. Register one (or make it with
/// Create) to have Find report it; the registry keeps weak pointers only, so a
/// volume that its module drops disappears from Find by itself.
///
/// Threads: Update, Push and Transfer run on the server update thread and take
/// no lock; the object must not be used from two threads at once.
/// _sharedObjectsMutex guards only the list of registered volumes.
///
/// Steady-state Update and Transfer allocate nothing: the molar mass and liquid
/// density of each gas are looked up once per volume and kept. Only a gas that
/// is new to a volume costs an allocation.
class PressurizedVolume {
public:
    /// Gas constant in J/(mol*K).
    static constexpr double GasConstant = 8.31446261815324;
    /// Pressure difference in Pa below which no gas flows.
    static constexpr double MinimumFlowPressure = 100.0;
    /// A gas mass in kg below which a source loses the gas entirely.
    static constexpr double MinimumGasMass = 0.001;
    /// Flow in kg per call below which a leak to the outside mixes by replacement.
    static constexpr double ReplacementFlowMass = 10.0;

    PressurizedVolume() = default;
    /// An empty volume of the entity with the given size (m^3) and temperature (K).
    PressurizedVolume(Id entity, double volume, double temperature);

    double sealed = 1.0;                    ///< 0 to 1; 1.0 is airtight. Rises by dt in Update, so a leak heals.
    std::map<std::string, double> contents; ///< kg of each gas by molecule name.
    double volume = 0.0;                    ///< m^3; 0 means the object is inactive.
    double totalMass = 0.0;                 ///< kg; sum of contents, set by Update.
    double density = 0.0;                   ///< kg/m^3; totalMass / volume, set by Update.
    double liquidRatio = 0.0;               ///< Share of volume the contents would take as liquid, 0 to 1.
    double pressure = 0.0;                  ///< Pa; set by Update.
    double temperature = 293.15;            ///< K; read by Update, set by modules.
    /// The entity the volume belongs to. Find reports the volume for this entity
    /// when the entity's interface says that the point is inside its volume.
    Id entity;

    /// Closes every leak: sealed becomes 1.
    void Airtight() { sealed = 1.0; }
    /// Opens a leak: sealed becomes 0; Update heals it at 1 per second.
    void Leak() { sealed = 0.0; }
    /// Whether sealed has reached 1.
    bool IsAirtight() const { return sealed >= 1.0; }

    /// Recomputes totalMass, liquidRatio, density and pressure from the contents
    /// and temperature, and lets sealed heal by dt. Contents that would take more
    /// than the volume as liquid are scaled down by 1 - (L - volume) / volume,
    /// L being their liquid volume; at twice the volume or more that empties the
    /// volume. Every gas in contents must be a molecule name with a liquid density
    /// (Push checks that; direct writes to contents do not). Aborts with an
    /// assertion when density or totalMass come out NaN or infinite. Nothing
    /// happens while volume is 0.
    void Update(double dt);

    /// Adds up to mass kg of molecule, as much as the room left by the liquid
    /// volume of the contents takes at the molecule's maximum liquid density.
    /// Returns the mass added; 0 for an inactive volume or a mass of 0 or less.
    /// Throws std::invalid_argument when molecule names no usable molecule.
    /// totalMass and pressure follow at the next Update.
    double Push(std::string const& molecule, double mass);

    /// Lets gas flow through a hole of area m^2 between a and b for dt seconds,
    /// from the higher pressure to the lower, and returns the mass moved (kg).
    /// Both volumes first take the smaller of their two sealed values, so a leak
    /// spreads. Nothing flows below a difference of 100 Pa. The caller applies the
    /// reaction at point along normal. 0 when a or b is null or inactive, or area
    /// is 0 or less. The source loses each of its gases in proportion; a gas that
    /// falls below 0.001 kg is removed. Pressures follow at the next Update.
    static double Transfer(PressurizedVolume* a, PressurizedVolume* b, glm::dvec3 const& point,
                           glm::dvec3 const& normal, double area, double dt);

    /// Exchanges gas between a and the environment outside through a hole of area
    /// m^2 for dt seconds; a starts leaking. A flow below 10 kg mixes by
    /// replacement: each of the outside's gases in a becomes what the outside
    /// would hold in a's volume, and the result is 0. A larger flow either lets
    /// gas out of a (its pressure and density above the outside's; 0.001 kg rule
    /// as in the other Transfer) or lets the outside's gases in, each up to the
    /// outside's share; then the mass that flowed is returned. Gases of a that the
    /// outside lacks are kept by the replacement. 0 when a is null or inactive.
    static double Transfer(PressurizedVolume* a, game::physics::EnvironmentInfo const& outside, glm::dvec3 const& point,
                           glm::dvec3 const& normal, double area, double dt);

    /// Makes a volume of entity, registers it and returns it. The caller owns it.
    static std::shared_ptr<PressurizedVolume> Create(Id entity, double volume, double temperature);
    /// Lists a volume made elsewhere, so that Find can report it; expired entries
    /// are dropped on the way. Takes the list's lock exclusively. Ignores null and
    /// a volume that is listed already.
    static void Register(std::shared_ptr<PressurizedVolume> const& volume);

    /// Calls callback with every registered, live volume of entity, when that
    /// entity exists with an attached interface (isReady) whose
    /// IsInsideVolume(position) says true; the default interface says false.
    /// The entity answers for all of its volumes at once. The walk holds the list's lock
    /// shared: the callback must not register volumes.
    static void Find(Id entity, glm::dvec3 const& position,
                     std::function<void(std::shared_ptr<PressurizedVolume>)> const& callback);

    /// The registered volumes; entries expire when their module drops them.
    inline static std::vector<std::weak_ptr<PressurizedVolume>> _sharedObjects;
    /// Readers-writer lock of _sharedObjects only.
    inline static nerox::SharedMutex _sharedObjectsMutex;

private:
    /// What a gas needs from the chemistry tables, fetched once per volume.
    struct GasData {
        double molarMass = 0.0;      ///< kg/mol.
        double liquidDensity = -1.0; ///< kg/m^3; negative until first needed.
    };

    /// The cached data of gas name; fills the molar mass on first use.
    GasData& Gas(std::string const& name);
    /// The maximum liquid density of gas name, fetched on first use.
    double LiquidDensity(std::string const& name);
    /// Takes mass kg out of the contents in proportion, into target when not null;
    /// gases below 0.001 kg are removed. totalMass must be above 0.
    void Remove(double mass, PressurizedVolume* target);

    std::map<std::string, GasData, std::less<>> _gases;
};

} // namespace game::entity
