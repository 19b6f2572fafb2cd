#pragma once
#include <cstdint>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "nerox/SharedMutex.hpp"

namespace game {

/// One chemical element: a record of the fixed element table, read-only after start-up.
struct Element {
    uint8_t number;                      ///< Atomic number; equals the record's index in `elements`.
    std::string symbol;                  ///< Chemical symbol, one to three letters ("_" for record 0).
    std::string name;                    ///< English element name (empty for record 0).
    double mass;                         ///< Atomic mass in atomic mass units (g/mol).
    std::vector<int8_t> oxidationStates; ///< Common oxidation states, most positive first; empty for noble gases.

    /// The 119 records, index 0 to 118; record 0 is a placeholder so that an atomic
    /// number indexes the vector directly. Never resized: `elementsBySymbol` points into it.
    static std::vector<Element> const elements;
    /// Symbol to record of `elements`, one entry per record, "_" included.
    static std::unordered_map<std::string, Element const*> const elementsBySymbol;
};

/// A molecule as a chemical formula's composition: (element number, atom count)
/// entries in the order in which the formula names them, never merged (CH3OH has
/// four entries). Freely copied; holds no pointer into the tables.
///
/// A formula is a sequence of element symbols, each followed by an optional decimal
/// count (1 when absent; the count wraps modulo 256). No parentheses, charges or
/// hydrates; one unknown symbol or stray character voids the whole formula, which
/// then gives the empty composition (mass 0) without a message.
///
/// Thread safety: the constructor and GetMaximumLiquidDensity may be called from
/// any number of threads at once; the two growing maps are guarded by the locks below.
class Molecule {
public:
    /// The composition of a formula or element symbol. A formula in `molecules` is
    /// copied from there; an element symbol of at most two characters becomes that
    /// element with count 1 and is not remembered; anything else is parsed and the
    /// result (empty for a bad formula) is remembered in `molecules`.
    Molecule(std::string const& name);

    /// Mass of one molecule in kg.
    double Mass() const;
    /// Mass of one mole in kg/mol.
    double GetMolarMass() const;
    /// Heat capacity: 1.0 for every molecule.
    double HeatCapacity() const;
    /// Index of refraction of the liquid: 1.33 for every molecule.
    double LiquidIndexOfRefraction() const;
    /// Index of refraction of the solid: 1.45 for every molecule.
    double SolidIndexOfRefraction() const;
    /// Index of refraction of the gas: the table value of the formula, else of the bare
    /// element for a single element with count 2 or 3 ("O3" reads "O"), else 1.001.
    double GaseousIndexOfRefraction() const;
    /// Maximum density of the liquid in kg/m³: the table value of the formula, else
    /// computed from the mass and atomic radii and remembered. Aborts (assertion)
    /// unless HasUsableComposition() or the formula text already has a value.
    double GetMaximumLiquidDensity() const;
    /// Formula text: per entry the symbol, then the count when it is above 1; stops at
    /// an entry whose element number is out of range. Empty for an empty composition.
    std::string Formula() const;
    /// Whether a density can be computed: some entry names a known element with a non-zero count.
    bool HasUsableComposition() const;

    /// (element number, atom count) entries in formula order.
    std::vector<std::tuple<uint8_t, uint8_t>> composition;

    /// Formula text to molecule: the fixed molecule table, then every formula parsed
    /// since start-up (bad ones as empty). Only grows. Guarded by `_moleculesMutex`:
    /// hold it shared to read or exclusive to change the map while other threads may construct molecules.
    static std::unordered_map<std::string, Molecule> molecules;
    /// Formula text to maximum liquid density in kg/m³: five fixed rows, then every
    /// density computed since start-up. Only grows. Guarded by `_liquidMoleculesMaxDensityMutex`:
    /// hold it shared to read or exclusive to change the map while other threads may ask for densities.
    static std::unordered_map<std::string, double> liquidMoleculesMaxDensity;
    /// Formula or element symbol to index of refraction of the gas. Never changes.
    static std::unordered_map<std::string, double> const gasMoleculesIndexOfRefraction;

    /// Lock of `molecules`: shared for lookups, exclusive for inserts.
    static nerox::SharedMutex _moleculesMutex;
    /// Lock of `liquidMoleculesMaxDensity`: shared for lookups, exclusive for inserts.
    static nerox::SharedMutex _liquidMoleculesMaxDensityMutex;

private:
    /// A molecule with the given composition, for the rows of the molecule table.
    explicit Molecule(std::vector<std::tuple<uint8_t, uint8_t>> composition);
};

} // namespace game
