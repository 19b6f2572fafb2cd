// Gas volumes: the ideal gas law, the liquid limit, leaks and the flow between
// volumes and to the outside, and the lookup of the volumes around a point.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <tuple>
#include <vector>

#include "game/Chemistry.hpp"
#include "game/entity/PressurizedVolume.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "nerox/filesystem/Stream.hpp"

namespace {

using game::entity::Id;
using game::entity::PressurizedVolume;
using game::entity::ServerSideEntity;
using game::physics::EnvironmentInfo;

constexpr double R = 8.31446261815324;
glm::dvec3 const O(0.0), Up(0.0, 0.0, 1.0);

double M(char const* name) { return game::Molecule(name).GetMolarMass(); }

/// An active volume of size m^3 at 300 K holding kg of N2, updated once.
PressurizedVolume Tank(double size, double kg)
{
    PressurizedVolume tank(Id(), size, 300.0);
    tank.contents["N2"] = kg;
    tank.Update(0.0);
    return tank;
}

EnvironmentInfo Air()
{
    EnvironmentInfo air;
    air.pressure = 101325.0;
    air.density = 1.2;
    air.composition = {{"N2", 0.8}, {"O2", 0.2}};
    return air;
}

/// kg of gas the outside air holds in size m^3.
double Share(double size, double fraction, char const* gas) { return 1.2 * size * fraction * M(gas) / (0.8 * M("N2") + 0.2 * M("O2")); }

TEST(PressurizedVolumeState, PressureFollowsTheIdealGasLawOverAllGases)
{
    PressurizedVolume tank(Id(), 2.0, 250.0);
    tank.contents = {{"N2", 3.0}, {"O2", 1.0}};
    tank.Update(0.0);
    EXPECT_NEAR(tank.pressure, (3.0 / M("N2") + 1.0 / M("O2")) * R * 250.0 / 2.0, 1e-6);
    EXPECT_DOUBLE_EQ(tank.totalMass, 4.0);
    EXPECT_DOUBLE_EQ(tank.density, 2.0);
    PressurizedVolume const one = Tank(1.0, 1.0);
    EXPECT_NEAR(one.pressure, 89040.0, 5.0); // N2 at 0.028014 kg/mol
    EXPECT_GT(one.liquidRatio, 0.0);
    EXPECT_LT(one.liquidRatio, 0.001);

    // All gas gone clears the state.
    tank.contents = {{"N2", 0.0}};
    tank.Update(0.0);
    EXPECT_TRUE(tank.contents.empty());
    EXPECT_EQ(tank.totalMass + tank.density + tank.pressure + tank.liquidRatio, 0.0);
}

TEST(PressurizedVolumeState, ContentsAboveTheLiquidLimitAreScaledDownInOneUpdate)
{
    // As liquid: 1200 kg of water are 1.2 m^3, 480 kg of O2 0.3 m^3, in 1 m^3.
    PressurizedVolume tank(Id(), 1.0, 300.0);
    tank.contents = {{"H2O", 1200.0}, {"O2", 480.0}};
    tank.Update(0.0);
    double const factor = 1.0 - (1.5 - 1.0) / 1.0;
    EXPECT_DOUBLE_EQ(tank.liquidRatio, 1.0);
    EXPECT_DOUBLE_EQ(tank.contents["H2O"], 1200.0 * factor);
    EXPECT_DOUBLE_EQ(tank.contents["O2"], 480.0 * factor);
    EXPECT_DOUBLE_EQ(tank.density, 1680.0 * factor);
    tank.Update(0.0); // inside the limit now: nothing changes
    EXPECT_DOUBLE_EQ(tank.totalMass, 1680.0 * factor);
    EXPECT_DOUBLE_EQ(tank.liquidRatio, 0.75);
}

TEST(PressurizedVolumeState, PushStopsWhereTheLiquidFillsTheVolume)
{
    PressurizedVolume tank(Id(), 1.0, 300.0);
    EXPECT_DOUBLE_EQ(tank.Push("H2O", 400.0), 400.0);
    EXPECT_DOUBLE_EQ(tank.Push("O2", 5000.0), 960.0); // 0.6 m^3 are left: 960 kg of O2 as liquid
    EXPECT_DOUBLE_EQ(tank.Push("O2", 1.0), 0.0);
    EXPECT_DOUBLE_EQ(tank.Push("H2O", -1.0), 0.0);
    EXPECT_THROW(tank.Push("Zz9", 1.0), std::invalid_argument);
    EXPECT_EQ(tank.contents.size(), 2u);
    tank.Update(0.0);
    EXPECT_DOUBLE_EQ(tank.liquidRatio, 1.0);
    EXPECT_DOUBLE_EQ(tank.totalMass, 1360.0); // exactly full: nothing scaled away
}

TEST(PressurizedVolumeSealing, ALeakHealsWithinOneSecondAndTransfersSpreadIt)
{
    PressurizedVolume tank = Tank(1.0, 1.0);
    tank.Leak();
    for (int step = 1; step <= 4; ++step) {
        EXPECT_FALSE(tank.IsAirtight()) << "after " << (step - 1) * 0.25 << " s";
        tank.Update(0.25);
    }
    EXPECT_TRUE(tank.IsAirtight());
    tank.Update(5.0);
    EXPECT_EQ(tank.sealed, 1.0);
    tank.Leak();
    tank.Update(-3.0);
    EXPECT_EQ(tank.sealed, 0.0);

    PressurizedVolume a = Tank(1.0, 1.0); // same pressure as tank: nothing flows
    EXPECT_EQ(PressurizedVolume::Transfer(&a, &tank, O, Up, 0.01, 0.1), 0.0);
    EXPECT_FALSE(a.IsAirtight());
    PressurizedVolume b = Tank(1.0, 1.0);
    PressurizedVolume::Transfer(&b, EnvironmentInfo(), O, Up, 0.0, 0.1);
    EXPECT_FALSE(b.IsAirtight()) << "a way to the outside";
}

TEST(PressurizedVolumeFlow, TwoTanksApproachOnePressureAndThenStop)
{
    PressurizedVolume a = Tank(1.0, 2.0), b = Tank(2.0, 0.5);
    a.contents["O2"] = 0.5;
    a.Update(0.0);
    double const massBefore = a.totalMass + b.totalMass;
    double difference = a.pressure - b.pressure, moved = 0.0, mass = 0.0;
    ASSERT_GT(difference, 100000.0);
    int steps = 0;
    for (; steps < 100000 && (mass = PressurizedVolume::Transfer(&a, &b, O, Up, 1e-4, 0.1)) > 0.0; ++steps) {
        a.Update(0.1);
        b.Update(0.1);
        moved += mass;
        ASSERT_GT(a.pressure - b.pressure, 0.0) << "overshot at step " << steps;
        ASSERT_LT(a.pressure - b.pressure, difference) << "moved away at step " << steps;
        difference = a.pressure - b.pressure;
    }
    EXPECT_GT(steps, 10);
    EXPECT_LT(steps, 100000);
    EXPECT_LT(difference, 100.0);
    EXPECT_NEAR(a.totalMass + b.totalMass, massBefore, 1e-9);
    EXPECT_NEAR(b.totalMass, 0.5 + moved, 1e-9);
    // Gases leave in proportion: a keeps its N2 to O2 ratio, b got a fifth as O2.
    EXPECT_NEAR(a.contents["O2"] / a.contents["N2"], 0.25, 1e-9);
    EXPECT_NEAR(b.contents["O2"], 0.2 * moved, 1e-9);
}

TEST(PressurizedVolumeFlow, BelowOneHundredPascalsOrWithoutTwoVolumesAndAHoleNothingFlows)
{
    PressurizedVolume a = Tank(1.0, 1.0), b = Tank(1.0, 1.0);
    struct Case { PressurizedVolume* from; PressurizedVolume* to; double area, difference; };
    for (Case const& c : {Case{&a, &b, 0.01, 99.0}, Case{&b, &a, 0.01, 99.0}, Case{&a, &b, 0.0, 1e4},
                          Case{&a, &b, -1.0, 1e4}, Case{nullptr, &b, 0.01, 1e4}, Case{&a, nullptr, 0.01, 1e4}}) {
        b.pressure = a.pressure - c.difference;
        EXPECT_EQ(PressurizedVolume::Transfer(c.from, c.to, O, Up, c.area, 1.0), 0.0) << c.area << " " << c.difference;
    }
    EXPECT_EQ(a.contents["N2"] + b.contents["N2"], 2.0);

    // At 100 Pa, Bernoulli: v = sqrt(2 dp / rho) with the mean density 1 kg/m^3.
    b.pressure = a.pressure - 100.0;
    double const expected = 0.01 * std::sqrt(200.0);
    EXPECT_DOUBLE_EQ(PressurizedVolume::Transfer(&b, &a, O, Up, 0.01, 1.0), expected);
    EXPECT_DOUBLE_EQ(a.contents["N2"], 1.0 - expected);
    EXPECT_DOUBLE_EQ(b.contents["N2"], 1.0 + expected);
}

TEST(PressurizedVolumeFlow, ASourceGasBelowOneGramIsRemoved)
{
    PressurizedVolume a = Tank(1.0, 1.0), b = Tank(1.0, 0.1);
    a.contents["O2"] = 0.0015;
    a.Update(0.0);
    double const before = a.totalMass;
    double const moved = PressurizedVolume::Transfer(&a, &b, O, Up, 0.0015, 0.5);
    ASSERT_GT(0.0015 * moved / before, 0.0005); // takes O2 from 1.5 g to below 1 g
    EXPECT_NEAR(a.contents["N2"], 1.0 - moved / before, 1e-12);
    EXPECT_EQ(a.contents.count("O2"), 0u);
    EXPECT_GT(b.contents["O2"], 0.0);
}

TEST(PressurizedVolumeFlowDeathTest, AnEmptySourceFailsTheAssertion)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    PressurizedVolume a = Tank(1.0, 1.0), b(Id(), 1.0, 300.0);
    b.pressure = a.pressure + 1000.0; // stale state: pressure without mass
    EXPECT_DEATH(PressurizedVolume::Transfer(&a, &b, O, Up, 0.01, 1.0), "ASSERTION FAILED: \\(b->totalMass > 0\\)");
}

TEST(PressurizedVolumeOutside, SmallFlowsReplaceTheGasesLargeHolesVentOrFillUpToTheOutsideShare)
{
    PressurizedVolume cabin(Id(), 10.0, 300.0);
    cabin.contents = {{"N2", 1.0}, {"CO2", 0.5}};
    cabin.Update(0.0);
    EXPECT_EQ(PressurizedVolume::Transfer(&cabin, Air(), O, Up, 0.001, 0.1), 0.0);
    EXPECT_DOUBLE_EQ(cabin.contents["N2"], Share(10.0, 0.8, "N2"));
    EXPECT_DOUBLE_EQ(cabin.contents["O2"], Share(10.0, 0.2, "O2"));
    EXPECT_DOUBLE_EQ(cabin.contents["CO2"], 0.5); // the outside has none: kept

    PressurizedVolume tank = Tank(10.0, 100.0);
    double const vented = PressurizedVolume::Transfer(&tank, Air(), O, Up, 0.1, 1.0);
    EXPECT_DOUBLE_EQ(vented, 0.1 * std::sqrt(2.0 * (tank.pressure - 101325.0) / ((10.0 + 1.2) * 0.5)));
    ASSERT_GE(vented, 10.0);
    EXPECT_NEAR(tank.contents["N2"], 100.0 - vented, 1e-9);
    EXPECT_EQ(tank.contents.count("O2"), 0u);

    // A large tank takes less than the outside's share, a small one exactly that.
    PressurizedVolume hall = Tank(1000.0, 1.0), bottle = Tank(10.0, 0.001);
    double const moved = PressurizedVolume::Transfer(&hall, Air(), O, Up, 1.0, 1.0);
    ASSERT_LT(moved * 0.2, Share(1000.0, 0.2, "O2"));
    EXPECT_DOUBLE_EQ(hall.contents["N2"], 1.0 + moved * 0.8);
    EXPECT_DOUBLE_EQ(hall.contents["O2"], moved * 0.2);
    ASSERT_GE(PressurizedVolume::Transfer(&bottle, Air(), O, Up, 1.0, 1.0), 10.0);
    EXPECT_DOUBLE_EQ(bottle.contents["N2"], Share(10.0, 0.8, "N2"));
    EXPECT_DOUBLE_EQ(bottle.contents["O2"], Share(10.0, 0.2, "O2"));
}

TEST(PressurizedVolumeInactive, AVolumeOfZeroIsLeftAloneByEveryOperation)
{
    PressurizedVolume idle(Id(), 0.0, 300.0), other = Tank(1.0, 1.0);
    idle.contents["N2"] = 5.0;
    idle.pressure = 1e6;
    idle.sealed = 0.25;
    other.Leak();
    idle.Update(1.0);
    EXPECT_EQ(idle.Push("N2", 1.0), 0.0);
    EXPECT_EQ(PressurizedVolume::Transfer(&idle, &other, O, Up, 1.0, 1.0), 0.0);
    EXPECT_EQ(PressurizedVolume::Transfer(&other, &idle, O, Up, 1.0, 1.0), 0.0);
    EXPECT_EQ(PressurizedVolume::Transfer(&idle, Air(), O, Up, 1.0, 1.0), 0.0);
    EXPECT_EQ(idle.contents, (decltype(idle.contents){{"N2", 5.0}}));
    EXPECT_EQ(std::tuple(idle.pressure, idle.totalMass, idle.sealed), std::tuple(1e6, 0.0, 0.25));
    EXPECT_EQ(other.contents["N2"], 1.0);
}

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
        PressurizedVolume::_sharedObjects.clear();
        Register<Hull>("hull");
        Register<ServerSideEntity::Interface>("plain");
    }
    void TearDown() override
    {
        PressurizedVolume::_sharedObjects.clear();
        ServerSideEntity::DestroyAll();
        ServerSideEntity::_registered_interfaces.erase(TestModule.String());
        ServerSideEntity::_module_entities.erase(TestModule.String());
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
        PressurizedVolume::Find(entity, position, [&](std::shared_ptr<PressurizedVolume> v) { found.push_back(v.get()); });
        return found;
    }
};

TEST_F(PressurizedVolumeRegistry, FindReportsTheEntitysLiveVolumesAroundAPointInside)
{
    Id const ship = MakeEntity("hull"), station = MakeEntity("hull"), crate = MakeEntity("plain");
    auto const cabin = PressurizedVolume::Create(ship, 10.0, 293.0), tank = PressurizedVolume::Create(ship, 1.0, 293.0);
    auto const room = PressurizedVolume::Create(station, 50.0, 293.0), box = PressurizedVolume::Create(crate, 1.0, 293.0);
    PressurizedVolume::Create(ship, 2.0, 293.0); // its module let it go at once
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
    EXPECT_EQ(PressurizedVolume::_sharedObjects.size(), 1u); // once, the dropped one gone
    ServerSideEntity::UnloadAllEntities();
    EXPECT_TRUE(PressurizedVolume::_sharedObjects.empty());
    EXPECT_EQ(kept->volume, 1.0); // the module's object lives on
}

} // namespace
