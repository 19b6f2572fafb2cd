// Gas volumes: the ideal gas law, the liquid limit, leaks and the flow between
// volumes and to the outside, and the lookup of the volumes around a point.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

#include "game/Chemistry.hpp"
#include "game/entity/PressurizedVolume.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "nerox/filesystem/Stream.hpp"
#include "nerox/modular/ModuleID.hpp"

namespace {

using game::Molecule;
using game::entity::Id;
using game::entity::PressurizedVolume;
using game::entity::ServerSideEntity;
using game::physics::EnvironmentInfo;

constexpr double R = 8.31446261815324;
glm::dvec3 const Origin(0.0);
glm::dvec3 const Up(0.0, 0.0, 1.0);

double MolarMass(char const* name) { return Molecule(name).GetMolarMass(); }

/// An active volume of size m^3 at kelvin holding kg of N2, updated once.
PressurizedVolume Tank(double size, double kg, double kelvin = 300.0)
{
    PressurizedVolume tank(Id(), size, kelvin);
    tank.contents["N2"] = kg;
    tank.Update(0.0);
    return tank;
}

// ---------------------------------------------------------------------------
// Update: state of the gas from its contents.

TEST(PressurizedVolumeState, OneKilogramOfNitrogenFollowsTheIdealGasLaw)
{
    PressurizedVolume tank = Tank(1.0, 1.0, 300.0);
    double const expected = 1.0 / MolarMass("N2") * R * 300.0 / 1.0; // p = nRT / V
    EXPECT_NEAR(tank.pressure, expected, 1e-9 * expected);
    EXPECT_NEAR(tank.pressure, 89040.0, 5.0); // N2 at 0.028014 kg/mol
    EXPECT_DOUBLE_EQ(tank.totalMass, 1.0);
    EXPECT_DOUBLE_EQ(tank.density, 1.0);
    EXPECT_GT(tank.liquidRatio, 0.0);
    EXPECT_LT(tank.liquidRatio, 0.001);
}

TEST(PressurizedVolumeState, AMixtureUsesTheMolesOfEveryGas)
{
    PressurizedVolume tank(Id(), 2.0, 250.0);
    tank.contents["N2"] = 3.0;
    tank.contents["O2"] = 1.0;
    tank.Update(0.0);
    double const moles = 3.0 / MolarMass("N2") + 1.0 / MolarMass("O2");
    EXPECT_NEAR(tank.pressure, moles * R * 250.0 / 2.0, 1e-6);
    EXPECT_DOUBLE_EQ(tank.density, 2.0);
}

TEST(PressurizedVolumeState, ContentsAboveTheLiquidLimitAreScaledDownInOneUpdate)
{
    // Water is at most 1000 kg/m^3 as liquid: 1500 kg in 1 m^3 are 1.5 m^3 of liquid.
    PressurizedVolume tank(Id(), 1.0, 300.0);
    tank.contents["H2O"] = 1200.0;
    tank.contents["O2"] = 480.0; // 0.3 m^3 as liquid at 1600 kg/m^3
    tank.Update(0.0);
    double const factor = 1.0 - (1.5 - 1.0) / 1.0;
    EXPECT_DOUBLE_EQ(tank.liquidRatio, 1.0);
    EXPECT_DOUBLE_EQ(tank.contents["H2O"], 1200.0 * factor);
    EXPECT_DOUBLE_EQ(tank.contents["O2"], 480.0 * factor);
    EXPECT_DOUBLE_EQ(tank.totalMass, 1680.0 * factor);
    EXPECT_DOUBLE_EQ(tank.density, 1680.0 * factor);

    // Inside the limit now: the next Update changes nothing.
    tank.Update(0.0);
    EXPECT_DOUBLE_EQ(tank.totalMass, 1680.0 * factor);
    EXPECT_DOUBLE_EQ(tank.liquidRatio, 0.75);
}

TEST(PressurizedVolumeState, PushStopsWhereTheLiquidFillsTheVolume)
{
    PressurizedVolume tank(Id(), 1.0, 300.0);
    EXPECT_DOUBLE_EQ(tank.Push("H2O", 400.0), 400.0);
    // 0.6 m^3 are left: 960 kg of O2 as liquid.
    EXPECT_DOUBLE_EQ(tank.Push("O2", 5000.0), 960.0);
    EXPECT_DOUBLE_EQ(tank.Push("O2", 1.0), 0.0);
    EXPECT_DOUBLE_EQ(tank.Push("H2O", -1.0), 0.0);
    EXPECT_THROW(tank.Push("Zz9", 1.0), std::invalid_argument);
    EXPECT_EQ(tank.contents.size(), 2u);
    tank.Update(0.0);
    EXPECT_DOUBLE_EQ(tank.liquidRatio, 1.0);
    EXPECT_DOUBLE_EQ(tank.totalMass, 1360.0); // exactly full: nothing scaled away
}

TEST(PressurizedVolumeState, AllGasGoneClearsTheState)
{
    PressurizedVolume tank = Tank(1.0, 1.0);
    tank.contents["N2"] = 0.0;
    tank.Update(0.0);
    EXPECT_TRUE(tank.contents.empty());
    EXPECT_EQ(tank.totalMass, 0.0);
    EXPECT_EQ(tank.density, 0.0);
    EXPECT_EQ(tank.pressure, 0.0);
    EXPECT_EQ(tank.liquidRatio, 0.0);
}

// ---------------------------------------------------------------------------
// Leaks.

TEST(PressurizedVolumeSealing, ALeakHealsWithinOneSecondOfUpdates)
{
    PressurizedVolume tank = Tank(1.0, 1.0);
    EXPECT_TRUE(tank.IsAirtight());
    tank.Leak();
    EXPECT_FALSE(tank.IsAirtight());
    for (int step = 0; step < 3; ++step) {
        tank.Update(0.25);
        EXPECT_FALSE(tank.IsAirtight()) << "after " << (step + 1) * 0.25 << " s";
    }
    tank.Update(0.25);
    EXPECT_TRUE(tank.IsAirtight());
    tank.Update(5.0);
    EXPECT_EQ(tank.sealed, 1.0);

    tank.Leak();
    tank.Update(-3.0);
    EXPECT_EQ(tank.sealed, 0.0);
    tank.Airtight();
    EXPECT_TRUE(tank.IsAirtight());
}

TEST(PressurizedVolumeSealing, TransferSpreadsALeakToBothVolumes)
{
    PressurizedVolume a = Tank(1.0, 1.0);
    PressurizedVolume b = Tank(1.0, 1.0); // same pressure: nothing flows
    b.Leak();
    EXPECT_EQ(PressurizedVolume::Transfer(&a, &b, Origin, Up, 0.01, 0.1), 0.0);
    EXPECT_FALSE(a.IsAirtight());
    EXPECT_FALSE(b.IsAirtight());
}

TEST(PressurizedVolumeSealing, TransferToTheOutsideOpensALeak)
{
    PressurizedVolume tank = Tank(1.0, 1.0);
    EnvironmentInfo vacuum;
    PressurizedVolume::Transfer(&tank, vacuum, Origin, Up, 0.0, 0.1);
    EXPECT_FALSE(tank.IsAirtight());
}

// ---------------------------------------------------------------------------
// Flow between two volumes.

TEST(PressurizedVolumeFlow, TwoTanksApproachOnePressureAndThenStop)
{
    PressurizedVolume a = Tank(1.0, 2.0);
    PressurizedVolume b = Tank(2.0, 0.5);
    a.contents["O2"] = 0.5;
    a.Update(0.0);
    double const massBefore = a.totalMass + b.totalMass;
    double difference = a.pressure - b.pressure;
    ASSERT_GT(difference, 100000.0);

    int steps = 0;
    double moved = 0.0;
    for (; steps < 100000; ++steps) {
        double const mass = PressurizedVolume::Transfer(&a, &b, Origin, Up, 1e-4, 0.1);
        a.Update(0.1);
        b.Update(0.1);
        if (mass == 0.0)
            break;
        moved += mass;
        double const now = a.pressure - b.pressure;
        ASSERT_GT(now, 0.0) << "overshot at step " << steps;
        ASSERT_LT(now, difference) << "moved away at step " << steps;
        difference = now;
    }
    EXPECT_GT(steps, 10);
    EXPECT_LT(steps, 100000);
    EXPECT_LT(std::abs(a.pressure - b.pressure), 100.0);
    EXPECT_NEAR(a.totalMass + b.totalMass, massBefore, 1e-9);
    EXPECT_NEAR(b.totalMass, 0.5 + moved, 1e-9);
    // Gases leave in proportion: a keeps its N2 to O2 ratio, b got a fifth as O2.
    EXPECT_NEAR(a.contents["O2"] / a.contents["N2"], 0.25, 1e-9);
    EXPECT_NEAR(b.contents["O2"], 0.2 * moved, 1e-9);

    // Settled: further calls move nothing.
    auto const contents = a.contents;
    EXPECT_EQ(PressurizedVolume::Transfer(&a, &b, Origin, Up, 1e-4, 0.1), 0.0);
    EXPECT_EQ(a.contents, contents);
}

TEST(PressurizedVolumeFlow, NinetyNinePascalsMoveNothingAndOneHundredDo)
{
    PressurizedVolume a = Tank(1.0, 1.0);
    PressurizedVolume b = Tank(1.0, 1.0);
    b.pressure = a.pressure - 99.0;
    EXPECT_EQ(PressurizedVolume::Transfer(&a, &b, Origin, Up, 0.01, 1.0), 0.0);
    EXPECT_EQ(PressurizedVolume::Transfer(&b, &a, Origin, Up, 0.01, 1.0), 0.0);
    EXPECT_EQ(a.contents["N2"], 1.0);
    EXPECT_EQ(b.contents["N2"], 1.0);

    b.pressure = a.pressure - 100.0;
    // Bernoulli: v = sqrt(2 dp / rho) with the mean density 1 kg/m^3.
    double const expected = 0.01 * std::sqrt(200.0) * 1.0;
    EXPECT_DOUBLE_EQ(PressurizedVolume::Transfer(&b, &a, Origin, Up, 0.01, 1.0), expected);
    EXPECT_DOUBLE_EQ(a.contents["N2"], 1.0 - expected);
    EXPECT_DOUBLE_EQ(b.contents["N2"], 1.0 + expected);
}

TEST(PressurizedVolumeFlow, ASourceGasBelowOneGramIsRemoved)
{
    PressurizedVolume a = Tank(1.0, 1.0);
    a.contents["O2"] = 0.0015;
    a.Update(0.0);
    PressurizedVolume b = Tank(1.0, 0.1);
    double const before = a.totalMass;
    double const moved = PressurizedVolume::Transfer(&a, &b, Origin, Up, 0.0015, 0.5);
    ASSERT_LT(moved, before);
    ASSERT_GT(0.0015 * moved / before, 0.0005); // takes O2 from 1.5 g to below 1 g
    EXPECT_NEAR(a.contents["N2"], 1.0 - moved / before, 1e-12);
    EXPECT_EQ(a.contents.count("O2"), 0u);
    EXPECT_GT(b.contents["O2"], 0.0);
}

TEST(PressurizedVolumeFlow, NothingFlowsWithoutTwoVolumesOrAHole)
{
    PressurizedVolume a = Tank(1.0, 2.0);
    PressurizedVolume b = Tank(1.0, 1.0);
    EXPECT_EQ(PressurizedVolume::Transfer(nullptr, &b, Origin, Up, 0.01, 1.0), 0.0);
    EXPECT_EQ(PressurizedVolume::Transfer(&a, nullptr, Origin, Up, 0.01, 1.0), 0.0);
    EXPECT_EQ(PressurizedVolume::Transfer(&a, &b, Origin, Up, 0.0, 1.0), 0.0);
    EXPECT_EQ(PressurizedVolume::Transfer(&a, &b, Origin, Up, -1.0, 1.0), 0.0);
    EXPECT_EQ(a.contents["N2"], 2.0);
    EXPECT_EQ(b.contents["N2"], 1.0);
}

TEST(PressurizedVolumeFlowDeathTest, AnEmptySourceFailsTheAssertion)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    PressurizedVolume a = Tank(1.0, 1.0);
    PressurizedVolume b(Id(), 1.0, 300.0);
    b.pressure = a.pressure + 1000.0; // stale state: pressure without mass
    EXPECT_DEATH(PressurizedVolume::Transfer(&a, &b, Origin, Up, 0.01, 1.0),
                 "ASSERTION FAILED: \\(b->totalMass > 0\\)");
}

// ---------------------------------------------------------------------------
// Flow to and from the outside.

EnvironmentInfo Air(double pressure, double density)
{
    EnvironmentInfo air;
    air.pressure = pressure;
    air.density = density;
    air.composition = {{"N2", 0.8}, {"O2", 0.2}};
    return air;
}

TEST(PressurizedVolumeOutside, ASmallFlowReplacesTheOutsideGases)
{
    PressurizedVolume cabin(Id(), 10.0, 300.0);
    cabin.contents["N2"] = 1.0;
    cabin.contents["CO2"] = 0.5;
    cabin.Update(0.0);
    EnvironmentInfo const air = Air(101325.0, 1.2);
    EXPECT_EQ(PressurizedVolume::Transfer(&cabin, air, Origin, Up, 0.001, 0.1), 0.0);
    double const mean = 0.8 * MolarMass("N2") + 0.2 * MolarMass("O2");
    EXPECT_DOUBLE_EQ(cabin.contents["N2"], 1.2 * 10.0 * 0.8 * MolarMass("N2") / mean);
    EXPECT_DOUBLE_EQ(cabin.contents["O2"], 1.2 * 10.0 * 0.2 * MolarMass("O2") / mean);
    EXPECT_DOUBLE_EQ(cabin.contents["CO2"], 0.5); // the outside has none: kept
    cabin.contents.erase("CO2");
    cabin.Update(0.0);
    EXPECT_NEAR(cabin.density, 1.2, 1e-12);
}

TEST(PressurizedVolumeOutside, ALargeHoleVentsAHighPressureTank)
{
    PressurizedVolume tank = Tank(10.0, 100.0);
    EnvironmentInfo const air = Air(101325.0, 1.2);
    double const moved = PressurizedVolume::Transfer(&tank, air, Origin, Up, 0.1, 1.0);
    double const speed = std::sqrt(2.0 * (tank.pressure - air.pressure) / ((10.0 + 1.2) * 0.5));
    EXPECT_DOUBLE_EQ(moved, 0.1 * speed * 1.0);
    ASSERT_GE(moved, 10.0);
    EXPECT_NEAR(tank.contents["N2"], 100.0 - moved, 1e-9);
    EXPECT_EQ(tank.contents.count("O2"), 0u);
}

TEST(PressurizedVolumeOutside, ALargeHoleFillsALowPressureTankUpToTheOutsideShare)
{
    EnvironmentInfo const air = Air(101325.0, 1.2);
    double const mean = 0.8 * MolarMass("N2") + 0.2 * MolarMass("O2");
    auto const share = [&](double size, double fraction, char const* gas) {
        return 1.2 * size * fraction * MolarMass(gas) / mean;
    };

    // A large tank: the inflow stays below the outside's share.
    PressurizedVolume hall = Tank(1000.0, 1.0);
    double const moved = PressurizedVolume::Transfer(&hall, air, Origin, Up, 1.0, 1.0);
    ASSERT_GE(moved, 10.0);
    ASSERT_LT(moved * 0.2, share(1000.0, 0.2, "O2"));
    EXPECT_DOUBLE_EQ(hall.contents["N2"], 1.0 + moved * 0.8);
    EXPECT_DOUBLE_EQ(hall.contents["O2"], moved * 0.2);

    // A small one: the same hole would bring more than the outside holds in it.
    PressurizedVolume bottle = Tank(10.0, 0.001);
    ASSERT_GE(PressurizedVolume::Transfer(&bottle, air, Origin, Up, 1.0, 1.0), 10.0);
    EXPECT_DOUBLE_EQ(bottle.contents["N2"], share(10.0, 0.8, "N2"));
    EXPECT_DOUBLE_EQ(bottle.contents["O2"], share(10.0, 0.2, "O2"));
}

// ---------------------------------------------------------------------------
// An inactive volume.

TEST(PressurizedVolumeInactive, AVolumeOfZeroIsLeftAloneByEveryOperation)
{
    PressurizedVolume idle(Id(), 0.0, 300.0);
    idle.contents["N2"] = 5.0;
    idle.pressure = 1e6;
    idle.density = 3.0;
    idle.totalMass = 7.0;
    idle.liquidRatio = 0.5;
    idle.sealed = 0.25;
    PressurizedVolume const before = idle;
    auto const unchanged = [&] {
        EXPECT_EQ(idle.contents, before.contents);
        EXPECT_EQ(idle.pressure, before.pressure);
        EXPECT_EQ(idle.density, before.density);
        EXPECT_EQ(idle.totalMass, before.totalMass);
        EXPECT_EQ(idle.liquidRatio, before.liquidRatio);
        EXPECT_EQ(idle.sealed, before.sealed);
    };

    idle.Update(1.0);
    unchanged();
    EXPECT_EQ(idle.Push("N2", 1.0), 0.0);
    unchanged();

    PressurizedVolume other = Tank(1.0, 1.0);
    other.Leak();
    EXPECT_EQ(PressurizedVolume::Transfer(&idle, &other, Origin, Up, 1.0, 1.0), 0.0);
    EXPECT_EQ(PressurizedVolume::Transfer(&other, &idle, Origin, Up, 1.0, 1.0), 0.0);
    unchanged();
    EXPECT_EQ(other.contents["N2"], 1.0);
    EXPECT_EQ(PressurizedVolume::Transfer(&idle, Air(101325.0, 1.2), Origin, Up, 1.0, 1.0), 0.0);
    unchanged();
}

// ---------------------------------------------------------------------------
// Registry and Find.

nerox::modular::ModuleID const TestModule("TEST_volumes");

/// A hull whose inside is the half space x < 1.
class Hull : public ServerSideEntity::Interface {
public:
    bool IsInsideVolume(glm::dvec3 const& point) const override { return point.x < 1.0; }
};

class PressurizedVolumeRegistry : public ::testing::Test {
protected:
    void SetUp() override
    {
        ClearList();
        Register<Hull>("hull");
        Register<ServerSideEntity::Interface>("plain");
    }

    void TearDown() override
    {
        ClearList();
        ServerSideEntity::DestroyAll();
        ServerSideEntity::_registered_interfaces.erase(TestModule.String());
        ServerSideEntity::_module_entities.erase(TestModule.String());
    }

    static void ClearList()
    {
        std::unique_lock<nerox::SharedMutex> lock(PressurizedVolume::_sharedObjectsMutex);
        PressurizedVolume::_sharedObjects.clear();
    }

    template <class T>
    static void Register(std::string const& type)
    {
        auto& row = ServerSideEntity::_registered_interfaces[TestModule.String()][type];
        row.moduleId = TestModule;
        row.itemType = type;
        row.factory = [] { return std::make_shared<T>(); };
    }

    static Id MakeEntity(std::string const& type)
    {
        ServerSideEntity::Ptr entity = ServerSideEntity::Create(TestModule, type, Id::Generate());
        entity->deleteFilesOnDestroy = false;
        nerox::filesystem::ReadOnlyStream noState;
        entity->Attach(noState);
        return entity->GetID();
    }

    static std::vector<PressurizedVolume*> Found(Id entity, glm::dvec3 const& position)
    {
        std::vector<PressurizedVolume*> found;
        PressurizedVolume::Find(entity, position,
                                [&](std::shared_ptr<PressurizedVolume> volume) { found.push_back(volume.get()); });
        return found;
    }
};

TEST_F(PressurizedVolumeRegistry, FindReportsTheEntitysVolumesAroundAPointInside)
{
    Id const ship = MakeEntity("hull");
    Id const station = MakeEntity("hull");
    Id const crate = MakeEntity("plain");
    auto const cabin = PressurizedVolume::Create(ship, 10.0, 293.0);
    auto const tank = PressurizedVolume::Create(ship, 1.0, 293.0);
    auto const room = PressurizedVolume::Create(station, 50.0, 293.0);
    auto const box = PressurizedVolume::Create(crate, 1.0, 293.0);
    auto dropped = PressurizedVolume::Create(ship, 2.0, 293.0);
    dropped.reset(); // its module let it go

    glm::dvec3 const inside(0.0, 5.0, 0.0);
    EXPECT_EQ(Found(ship, inside), (std::vector<PressurizedVolume*>{cabin.get(), tank.get()}));
    EXPECT_EQ(Found(station, inside), (std::vector<PressurizedVolume*>{room.get()}));
    EXPECT_TRUE(Found(ship, glm::dvec3(2.0, 0.0, 0.0)).empty());
    EXPECT_TRUE(Found(crate, inside).empty()) << "the default interface has no inside";
    EXPECT_TRUE(Found(Id::Generate(), inside).empty()) << "no such entity";
    EXPECT_TRUE(Found(Id(), inside).empty());
}

TEST_F(PressurizedVolumeRegistry, RegisterDropsExpiredEntriesAndUnloadEmptiesTheList)
{
    auto kept = std::make_shared<PressurizedVolume>(Id::Generate(), 1.0, 293.0);
    PressurizedVolume::Register(kept);
    PressurizedVolume::Register(nullptr);
    PressurizedVolume::Create(Id::Generate(), 1.0, 293.0); // dropped at once
    PressurizedVolume::Register(kept);
    {
        std::shared_lock<nerox::SharedMutex> lock(PressurizedVolume::_sharedObjectsMutex);
        EXPECT_EQ(PressurizedVolume::_sharedObjects.size(), 1u); // once, the dropped one gone
    }
    ServerSideEntity::UnloadAllEntities();
    std::shared_lock<nerox::SharedMutex> lock(PressurizedVolume::_sharedObjectsMutex);
    EXPECT_TRUE(PressurizedVolume::_sharedObjects.empty());
    EXPECT_EQ(kept->volume, 1.0); // the module's object lives on
}

} // namespace
