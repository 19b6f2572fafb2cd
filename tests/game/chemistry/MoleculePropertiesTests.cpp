// What a molecule answers: formula text, masses, indices of refraction and the maximum
// liquid density, with its remembered values and its assertion.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <tuple>

#include "game/Chemistry.hpp"

using game::Molecule;
using Entry = std::tuple<uint8_t, uint8_t>;

namespace {

constexpr double amu = 1.6605402e-27;
constexpr double radius = 9.2e-11;
constexpr double sphere = 4.1887902047863905;

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

TEST(MoleculeFormula, DropsCountsOfOneAndKeepsOrder) {
    EXPECT_EQ(Molecule("H1O").Formula(), "HO");
    EXPECT_EQ(Molecule("OH2").Formula(), "OH2");
    EXPECT_EQ(Molecule("C2H5OH").Formula(), "C2H5OH");
    EXPECT_EQ(Molecule("H300").Formula(), "H44");
    EXPECT_EQ(Molecule("H0").Formula(), "H");
    EXPECT_EQ(Molecule("H255Uuo9").Formula(), "H255Uuo9");
    EXPECT_EQ(Molecule("_").Formula(), "_");
    EXPECT_EQ(Molecule("").Formula(), "");
    EXPECT_EQ(Molecule("H2Zz").Formula(), "");
}

TEST(MoleculeFormula, StopsAtAnElementOutOfRange) {
    EXPECT_EQ(WithEntries({{1, 2}, {119, 1}, {8, 1}}).Formula(), "H2");
    EXPECT_EQ(WithEntries({{255, 3}}).Formula(), "");
    EXPECT_EQ(WithEntries({{118, 2}}).Formula(), "Uuo2");
}

TEST(MoleculeMass, SumsCountTimesAtomicMass) {
    Molecule const water("H2O");
    EXPECT_NEAR(water.GetMolarMass(), (2 * 1.008 + 15.999) / 1000.0, 1e-15);
    EXPECT_NEAR(water.Mass(), (2 * 1.008 + 15.999) * amu, 1e-40);
    EXPECT_NEAR(Molecule("C5H12").GetMolarMass(), (5 * 12.011 + 12 * 1.008) / 1000.0, 1e-15);
    // The deliberate table masses.
    EXPECT_DOUBLE_EQ(Molecule("Kr").GetMolarMass(), 0.084798);
    EXPECT_DOUBLE_EQ(Molecule("Rb").GetMolarMass(), 0.084468);
    // Mass of one molecule times Avogadro's number is about the molar mass.
    EXPECT_NEAR(water.Mass() * 6.02214076e23, water.GetMolarMass(), 1e-6);
}

TEST(MoleculeMass, ZeroForNothingKnown) {
    for (std::string name : {"", "H2Zz", "H0", "_", "Uuo", "Uut3Uup2"}) {
        EXPECT_EQ(Molecule(name).Mass(), 0.0) << name;
        EXPECT_EQ(Molecule(name).GetMolarMass(), 0.0) << name;
    }
}

TEST(MoleculeMass, SkipsElementsOutOfRange) {
    Molecule const mixed = WithEntries({{1, 2}, {200, 50}, {8, 1}});
    Molecule const water("H2O");
    EXPECT_DOUBLE_EQ(mixed.GetMolarMass(), water.GetMolarMass());
    EXPECT_DOUBLE_EQ(mixed.Mass(), water.Mass());
}

TEST(MoleculeRefraction, ConstantsForLiquidSolidAndHeat) {
    Molecule const water("H2O");
    EXPECT_EQ(water.HeatCapacity(), 1.0);
    EXPECT_EQ(water.LiquidIndexOfRefraction(), 1.33);
    EXPECT_EQ(water.SolidIndexOfRefraction(), 1.45);
}

TEST(MoleculeRefraction, GasIndexFromTheTable) {
    EXPECT_EQ(Molecule("H2O").GaseousIndexOfRefraction(), 1.000261);
    EXPECT_EQ(Molecule("Kr").GaseousIndexOfRefraction(), 1.000427);
    EXPECT_EQ(Molecule("C5H12").GaseousIndexOfRefraction(), 1.000686);
    // Looked up by formula text, so an H1Cl1 spelling finds HCl.
    EXPECT_EQ(Molecule("H1Cl1").GaseousIndexOfRefraction(), 1.000447);
}

TEST(MoleculeRefraction, DiatomicAndTriatomicFallBackToTheAtom) {
    EXPECT_EQ(Molecule("H2").GaseousIndexOfRefraction(), 1.000132);
    EXPECT_EQ(Molecule("O2").GaseousIndexOfRefraction(), 1.000271);
    EXPECT_EQ(Molecule("O3").GaseousIndexOfRefraction(), 1.000271);
    EXPECT_EQ(Molecule("Cl2").GaseousIndexOfRefraction(), 1.000773);
    EXPECT_EQ(Molecule("O4").GaseousIndexOfRefraction(), 1.001);
    EXPECT_EQ(Molecule("C2").GaseousIndexOfRefraction(), 1.001);
    // Two entries of one element are not a diatomic molecule.
    EXPECT_EQ(Molecule("OO").GaseousIndexOfRefraction(), 1.001);
    EXPECT_EQ(Molecule("CH3OH").GaseousIndexOfRefraction(), 1.001);
    EXPECT_EQ(Molecule("").GaseousIndexOfRefraction(), 1.001);
    EXPECT_EQ(WithEntries({{200, 2}}).GaseousIndexOfRefraction(), 1.001);
}

TEST(MoleculeDensity, TableRows) {
    EXPECT_EQ(Molecule("H2O").GetMaximumLiquidDensity(), 1000.0);
    EXPECT_EQ(Molecule("H2").GetMaximumLiquidDensity(), 100.0);
    EXPECT_EQ(Molecule("C1O2").GetMaximumLiquidDensity(), 1600.0);
}

TEST(MoleculeDensity, ComputedFromOneSpherePerEntryAndRemembered) {
    ASSERT_EQ(StoredDensity("C2H5OH"), -1.0);
    Molecule const ethanol("C2H5OH");
    // Radii 2, 5, 1 and 1 atom radii: the count scales the radius, not the volume.
    double const volume = sphere * std::pow(radius, 3.0) * (8.0 + 125.0 + 1.0 + 1.0);
    double const expected = (2 * 12.011 + 6 * 1.008 + 15.999) * amu / volume;
    double const density = ethanol.GetMaximumLiquidDensity();
    EXPECT_NEAR(density, expected, expected * 1e-12);
    EXPECT_NEAR(density, 173.73, 0.01);
    EXPECT_EQ(StoredDensity("C2H5OH"), density);

    // Later calls read the remembered value.
    Molecule::liquidMoleculesMaxDensity["C2H5OH"] = 12.5;
    EXPECT_EQ(ethanol.GetMaximumLiquidDensity(), 12.5);
    EXPECT_EQ(Molecule("C2H5OH").GetMaximumLiquidDensity(), 12.5);
}

TEST(MoleculeDensity, TwoAtomsInOneEntryCountEightTimesOne) {
    double const helium = Molecule("He").GetMaximumLiquidDensity();
    double const pair = Molecule("He2").GetMaximumLiquidDensity();
    // Twice the mass in eight times the volume.
    EXPECT_NEAR(pair, helium / 4.0, helium * 1e-12);
    double const expected = 4.003 * amu / (sphere * std::pow(radius, 3.0));
    EXPECT_NEAR(helium, expected, expected * 1e-12);
}

TEST(MoleculeDensity, MasslessElementsGiveZero) {
    EXPECT_EQ(Molecule("Uuo").GetMaximumLiquidDensity(), 0.0);
    EXPECT_EQ(StoredDensity("Uuo"), 0.0);
}

TEST(MoleculeDensity, KeyedByFormulaText) {
    // H0 writes "H": once H has a density, H0 reads it instead of computing.
    double const hydrogen = Molecule("H").GetMaximumLiquidDensity();
    EXPECT_EQ(Molecule("H0").GetMaximumLiquidDensity(), hydrogen);
    EXPECT_EQ(Molecule("H1").GetMaximumLiquidDensity(), hydrogen);
}

TEST(MoleculeDensity, UsableCompositionTellsWhetherADensityCanBeComputed) {
    EXPECT_TRUE(Molecule("H2O").HasUsableComposition());
    EXPECT_TRUE(Molecule("Uuo").HasUsableComposition());
    EXPECT_TRUE(Molecule("H0O").HasUsableComposition());
    EXPECT_TRUE(Molecule("_").HasUsableComposition());
    EXPECT_FALSE(Molecule("").HasUsableComposition());
    EXPECT_FALSE(Molecule("H2Zz").HasUsableComposition());
    EXPECT_FALSE(Molecule("H0").HasUsableComposition());
    EXPECT_FALSE(Molecule("H0O0").HasUsableComposition());
    EXPECT_FALSE(WithEntries({{200, 1}}).HasUsableComposition());
}

TEST(MoleculeDensityDeathTest, NoVolumeFailsTheAssertion) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    char const* const message = "ASSERTION FAILED: \\(atomicVolume > 0\\) in .*game/Chemistry\\.cpp:[0-9]+";
    EXPECT_DEATH(Molecule("H0").GetMaximumLiquidDensity(), message);
    EXPECT_DEATH(Molecule("H0O0").GetMaximumLiquidDensity(), message);
    EXPECT_DEATH(Molecule("").GetMaximumLiquidDensity(), message);
    EXPECT_DEATH(Molecule("H2Zz").GetMaximumLiquidDensity(), message);
    EXPECT_DEATH(WithEntries({{200, 1}}).GetMaximumLiquidDensity(), message);
}
