// What a molecule answers: formula text, masses, indices of refraction and the maximum
// liquid density, with its remembered values and its assertion.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <tuple>

#include "game/Chemistry.hpp"

using game::Molecule;
using Entry = std::tuple<uint8_t, uint8_t>;

namespace {

constexpr double amu = 1.6605402e-27;
constexpr double sphere = 4.1887902047863905 * 9.2e-11 * 9.2e-11 * 9.2e-11; // one atom's volume

/// A molecule with exactly the given entries.
Molecule WithEntries(std::initializer_list<Entry> entries) {
    Molecule molecule("_");
    molecule.composition = entries;
    return molecule;
}

double StoredDensity(std::string const& key) {
    auto found = Molecule::liquidMoleculesMaxDensity.find(key);
    return found == Molecule::liquidMoleculesMaxDensity.end() ? -1.0 : found->second;
}

} // namespace

TEST(MoleculeAnswers, TableOfMolecules) {
    struct Case {
        Molecule molecule;
        char const* formula; // drops counts of one, stops at an element out of range
        double molarMass;    // skips elements out of range
        double gasIndex;     // by formula text, then the bare atom of a di- or triatomic one, else 1.001
        bool usable;         // some entry names a known element with a count
    };
    Case const cases[] = {
        {Molecule("H2O"), "H2O", (2 * 1.008 + 15.999) / 1000.0, 1.000261, true},
        {Molecule("C5H12"), "C5H12", (5 * 12.011 + 12 * 1.008) / 1000.0, 1.000686, true},
        {Molecule("Kr"), "Kr", 0.084798, 1.000427, true},
        {Molecule("Rb"), "Rb", 0.084468, 1.001, true},
        {Molecule("H1Cl1"), "HCl", (1.008 + 35.453) / 1000.0, 1.000447, true},
        {Molecule("H1O"), "HO", (1.008 + 15.999) / 1000.0, 1.001, true},
        {Molecule("H300"), "H44", 44 * 1.008 / 1000.0, 1.001, true},
        {Molecule("H255Uuo9"), "H255Uuo9", 255 * 1.008 / 1000.0, 1.001, true},
        {Molecule("H2"), "H2", 2 * 1.008 / 1000.0, 1.000132, true},
        {Molecule("O3"), "O3", 3 * 15.999 / 1000.0, 1.000271, true},
        {Molecule("Cl2"), "Cl2", 2 * 35.453 / 1000.0, 1.000773, true},
        {Molecule("O4"), "O4", 4 * 15.999 / 1000.0, 1.001, true},
        {Molecule("C2"), "C2", 2 * 12.011 / 1000.0, 1.001, true},
        // Two entries of one element are not a diatomic molecule.
        {Molecule("OO"), "OO", 2 * 15.999 / 1000.0, 1.001, true},
        {Molecule("Uuo"), "Uuo", 0.0, 1.001, true},
        {Molecule("Uut3Uup2"), "Uut3Uup2", 0.0, 1.001, true},
        {Molecule("_"), "_", 0.0, 1.001, true},
        {Molecule("H0O"), "HO", 15.999 / 1000.0, 1.001, true},
        {Molecule("H0"), "H", 0.0, 1.000132, false},
        {Molecule("H0O0"), "HO", 0.0, 1.001, false},
        {Molecule(""), "", 0.0, 1.001, false},
        {Molecule("H2Zz"), "", 0.0, 1.001, false},
        {WithEntries({{1, 2}, {119, 1}, {8, 1}}), "H2", (2 * 1.008 + 15.999) / 1000.0, 1.001, true},
        {WithEntries({{255, 3}}), "", 0.0, 1.001, false},
        {WithEntries({{200, 2}}), "", 0.0, 1.001, false},
        {WithEntries({{118, 2}}), "Uuo2", 0.0, 1.001, true},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.formula);
        EXPECT_EQ(c.molecule.Formula(), c.formula);
        EXPECT_NEAR(c.molecule.GetMolarMass(), c.molarMass, 1e-15);
        // Mass of one molecule times Avogadro's number is about the molar mass.
        EXPECT_NEAR(c.molecule.Mass() / amu, c.molarMass * 1000.0, 1e-9);
        EXPECT_EQ(c.molecule.GaseousIndexOfRefraction(), c.gasIndex);
        EXPECT_EQ(c.molecule.HasUsableComposition(), c.usable);
        EXPECT_EQ(c.molecule.HeatCapacity(), 1.0);
        EXPECT_EQ(c.molecule.LiquidIndexOfRefraction(), 1.33);
        EXPECT_EQ(c.molecule.SolidIndexOfRefraction(), 1.45);
    }
}

TEST(MoleculeDensity, TableRowsOrOneSpherePerEntryRemembered) {
    EXPECT_EQ(Molecule("H2O").GetMaximumLiquidDensity(), 1000.0);
    EXPECT_EQ(Molecule("H2").GetMaximumLiquidDensity(), 100.0);
    EXPECT_EQ(Molecule("C1O2").GetMaximumLiquidDensity(), 1600.0);

    ASSERT_EQ(StoredDensity("C2H5OH"), -1.0);
    Molecule const ethanol("C2H5OH");
    // Radii 2, 5, 1 and 1 atom radii: the count scales the radius, not the volume.
    double const expected = (2 * 12.011 + 6 * 1.008 + 15.999) * amu / (sphere * (8.0 + 125.0 + 1.0 + 1.0));
    double const density = ethanol.GetMaximumLiquidDensity();
    EXPECT_NEAR(density, expected, expected * 1e-12);
    EXPECT_NEAR(density, 173.73, 0.01);
    EXPECT_EQ(StoredDensity("C2H5OH"), density);
    // Later calls read the remembered value, found by the formula text.
    Molecule::liquidMoleculesMaxDensity["C2H5OH"] = 12.5;
    EXPECT_EQ(ethanol.GetMaximumLiquidDensity(), 12.5);
    EXPECT_EQ(Molecule("C2H5OH").GetMaximumLiquidDensity(), 12.5);
    double const hydrogen = Molecule("H").GetMaximumLiquidDensity();
    EXPECT_EQ(Molecule("H0").GetMaximumLiquidDensity(), hydrogen);
    EXPECT_EQ(Molecule("H1").GetMaximumLiquidDensity(), hydrogen);

    // Two atoms in one entry: twice the mass in eight times the volume.
    double const helium = Molecule("He").GetMaximumLiquidDensity();
    EXPECT_NEAR(helium, 4.003 * amu / sphere, helium * 1e-12);
    EXPECT_NEAR(Molecule("He2").GetMaximumLiquidDensity(), helium / 4.0, helium * 1e-12);
    EXPECT_EQ(Molecule("Uuo").GetMaximumLiquidDensity(), 0.0);
    EXPECT_EQ(StoredDensity("Uuo"), 0.0);
}

TEST(MoleculeDensityDeathTest, NoVolumeFailsTheAssertion) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    char const* const message = "ASSERTION FAILED: \\(atomicVolume > 0\\) in .*game/Chemistry\\.cpp:[0-9]+";
    EXPECT_DEATH(Molecule("H0O0").GetMaximumLiquidDensity(), message);
    EXPECT_DEATH(WithEntries({{200, 1}}).GetMaximumLiquidDensity(), message);
}
