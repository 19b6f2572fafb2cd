// Gas volumes: the ideal gas law, the liquid limit, leaks, the flow between volumes
// and to the outside, and the lookup of the volumes around a point.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <memory>
#include <string>
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

glm::dvec3 const O(0.0), Up(0.0, 0.0, 1.0);

double M(char const* name) {
    return game::Molecule(name).GetMolarMass();
}

/// An active volume of size m^3 at 300 K holding the given kg of gases, updated once.
PressurizedVolume Tank(double size, double n2, std::map<std::string, double> more = {}) {
    PressurizedVolume tank(Id(), size, 300.0);
    tank.contents = std::move(more);
    if (n2 > 0.0) tank.contents["N2"] = n2;
    tank.Update(0.0);
    return tank;
}

EnvironmentInfo Air() {
    return {.density = 1.2, .pressure = 101325.0, .composition = {{"N2", 0.8}, {"O2", 0.2}}};
}

/// kg of gas the outside air holds in size m^3.
double Share(double size, double fraction, char const* gas) {
    return 1.2 * size * fraction * M(gas) / (0.8 * M("N2") + 0.2 * M("O2"));
}

TEST(PressurizedVolume, IdealGasLawLiquidLimitAndPush) {
    PressurizedVolume tank = Tank(2.0, 3.0, {{"O2", 1.0}});
    tank.temperature = 250.0;
    tank.Update(0.0);
    EXPECT_NEAR(tank.pressure, (3.0 / M("N2") + 1.0 / M("O2")) * 8.31446261815324 * 250.0 / 2.0, 1e-6);
    EXPECT_EQ(std::tuple(tank.totalMass, tank.density), std::tuple(4.0, 2.0));
    tank.contents = {{"N2", 0.0}}; // all gas gone clears the state
    tank.Update(0.0);
    EXPECT_TRUE(tank.contents.empty());
    EXPECT_EQ(tank.totalMass + tank.density + tank.pressure + tank.liquidRatio, 0.0);
    // As liquid 1200 kg of water are 1.2 m^3 and 480 kg of O2 0.3 m^3: scaled into 1 m^3 in one update.
    PressurizedVolume full = Tank(1.0, 0.0, {{"H2O", 1200.0}, {"O2", 480.0}});
    EXPECT_EQ(std::tuple(full.liquidRatio, full.contents["H2O"], full.contents["O2"], full.density),
              std::tuple(1.0, 600.0, 240.0, 840.0));
    full.Update(0.0);
    EXPECT_EQ(std::tuple(full.totalMass, full.liquidRatio), std::tuple(840.0, 0.75));
    PressurizedVolume filling(Id(), 1.0, 300.0);
    EXPECT_EQ(filling.Push("H2O", 400.0), 400.0);
    EXPECT_EQ(filling.Push("O2", 5000.0), 960.0); // 0.6 m^3 are left: 960 kg of O2 as liquid
    EXPECT_EQ(filling.Push("O2", 1.0) + filling.Push("H2O", -1.0), 0.0);
    EXPECT_THROW(filling.Push("Zz9", 1.0), std::invalid_argument);
    filling.Update(0.0);
    EXPECT_EQ(std::tuple(filling.contents.size(), filling.liquidRatio, filling.totalMass), std::tuple(2u, 1.0, 1360.0));
}

TEST(PressurizedVolume, ALeakHealsWithinOneSecondAndTransfersSpreadIt) {
    PressurizedVolume tank = Tank(1.0, 1.0), a = Tank(1.0, 1.0), b = Tank(1.0, 1.0);
    tank.Leak();
    for (int step = 1; step <= 4; ++step, tank.Update(0.25))
        EXPECT_FALSE(tank.IsAirtight()) << "after " << (step - 1) * 0.25 << " s";
    tank.Update(5.0);
    EXPECT_EQ(std::tuple(tank.IsAirtight(), tank.sealed), std::tuple(true, 1.0));
    tank.Leak();
    tank.Update(-3.0);
    EXPECT_EQ(tank.sealed, 0.0) << "time running back";
    EXPECT_EQ(PressurizedVolume::Transfer(&a, &tank, O, Up, 0.01, 0.1), 0.0); // same pressure: nothing flows
    PressurizedVolume::Transfer(&b, EnvironmentInfo(), O, Up, 0.0, 0.1);
    EXPECT_FALSE(a.IsAirtight() || b.IsAirtight()) << "a way to a leaking volume or the outside";
}

TEST(PressurizedVolume, BelowOneHundredPascalsOrWithoutTwoVolumesAndAHoleNothingFlows) {
    PressurizedVolume a = Tank(1.0, 1.0), b = Tank(1.0, 1.0);
    using Case = std::tuple<PressurizedVolume*, PressurizedVolume*, double, double>; // from, to, area, difference
    for (auto [from, to, area, difference] :
         {Case{&a, &b, 0.01, 99.0}, Case{&b, &a, 0.01, 99.0}, Case{&a, &b, 0.0, 1e4}, Case{&a, &b, -1.0, 1e4},
          Case{nullptr, &b, 0.01, 1e4}, Case{&a, nullptr, 0.01, 1e4}}) {
        b.pressure = a.pressure - difference;
        EXPECT_EQ(PressurizedVolume::Transfer(from, to, O, Up, area, 1.0), 0.0) << area << " " << difference;
    }
    b.pressure = a.pressure - 100.0; // Bernoulli: v = sqrt(2 dp / rho) with the mean density 1 kg/m^3
    double const expected = 0.01 * std::sqrt(200.0);
    EXPECT_DOUBLE_EQ(PressurizedVolume::Transfer(&b, &a, O, Up, 0.01, 1.0), expected);
    EXPECT_EQ(std::tuple(a.contents["N2"], b.contents["N2"]), std::tuple(1.0 - expected, 1.0 + expected));
    // A source gas taken below one gram is removed.
    PressurizedVolume c = Tank(1.0, 1.0, {{"O2", 0.0015}}), d = Tank(1.0, 0.1);
    double const before = c.totalMass, moved = PressurizedVolume::Transfer(&c, &d, O, Up, 0.0015, 0.5);
    ASSERT_GT(0.0015 * moved / before, 0.0005);
    EXPECT_NEAR(c.contents["N2"], 1.0 - moved / before, 1e-12);
    EXPECT_TRUE(c.contents.count("O2") == 0 && d.contents["O2"] > 0.0);
}

TEST(PressurizedVolumeDeathTest, AnEmptySourceFailsTheAssertion) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    PressurizedVolume a = Tank(1.0, 1.0), b(Id(), 1.0, 300.0);
    b.pressure = a.pressure + 1000.0; // stale state: pressure without mass
    EXPECT_DEATH(PressurizedVolume::Transfer(&a, &b, O, Up, 0.01, 1.0), "ASSERTION FAILED: \\(b->totalMass > 0\\)");
}

TEST(PressurizedVolume, SmallFlowsReplaceTheGasesLargeHolesVentOrFillUpToTheOutsideShare) {
    PressurizedVolume cabin = Tank(10.0, 1.0, {{"CO2", 0.5}}), tank = Tank(10.0, 100.0), hall = Tank(1000.0, 1.0),
                      bottle = Tank(10.0, 0.001);
    EXPECT_EQ(PressurizedVolume::Transfer(&cabin, Air(), O, Up, 0.001, 0.1), 0.0);
    EXPECT_EQ(
        std::tuple(cabin.contents["N2"], cabin.contents["O2"], cabin.contents["CO2"]), // the outside has no CO2: kept
        std::tuple(Share(10.0, 0.8, "N2"), Share(10.0, 0.2, "O2"), 0.5));
    double const vented = PressurizedVolume::Transfer(&tank, Air(), O, Up, 0.1, 1.0);
    EXPECT_DOUBLE_EQ(vented, 0.1 * std::sqrt(2.0 * (tank.pressure - 101325.0) / ((10.0 + 1.2) * 0.5)));
    EXPECT_NEAR(tank.contents["N2"], 100.0 - vented, 1e-9);
    EXPECT_EQ(tank.contents.count("O2"), 0u);
    // A large tank takes less than the outside's share, a small one exactly that.
    double const moved = PressurizedVolume::Transfer(&hall, Air(), O, Up, 1.0, 1.0);
    ASSERT_LT(moved * 0.2, Share(1000.0, 0.2, "O2"));
    EXPECT_EQ(std::tuple(hall.contents["N2"], hall.contents["O2"]), std::tuple(1.0 + moved * 0.8, moved * 0.2));
    ASSERT_GE(PressurizedVolume::Transfer(&bottle, Air(), O, Up, 1.0, 1.0), 10.0);
    EXPECT_EQ(std::tuple(bottle.contents["N2"], bottle.contents["O2"]),
              std::tuple(Share(10.0, 0.8, "N2"), Share(10.0, 0.2, "O2")));
}

TEST(PressurizedVolume, AVolumeOfZeroIsLeftAloneByEveryOperation) {
    PressurizedVolume idle(Id(), 0.0, 300.0), other = Tank(1.0, 1.0);
    idle.contents["N2"] = 5.0;
    idle.pressure = 1e6;
    idle.sealed = 0.25;
    other.Leak();
    idle.Update(1.0);
    EXPECT_EQ(idle.Push("N2", 1.0) + PressurizedVolume::Transfer(&idle, &other, O, Up, 1.0, 1.0) +
                  PressurizedVolume::Transfer(&other, &idle, O, Up, 1.0, 1.0) +
                  PressurizedVolume::Transfer(&idle, Air(), O, Up, 1.0, 1.0),
              0.0);
    EXPECT_EQ(idle.contents, (decltype(idle.contents){{"N2", 5.0}}));
    EXPECT_EQ(std::tuple(idle.pressure, idle.totalMass, idle.sealed, other.contents["N2"]),
              std::tuple(1e6, 0.0, 0.25, 1.0));
}

/// Volumes of entities with a hull whose inside is the half space x < 1.
class PressurizedVolumeRegistry : public ::testing::Test {
protected:
    struct Hull : ServerSideEntity::Interface {
        bool IsInsideVolume(glm::dvec3 const& point) const override { return point.x < 1.0; }
    };
    nerox::modular::ModuleID const module{"TEST_volumes"};
    void SetUp() override {
        PressurizedVolume::_sharedObjects.clear();
        auto& row = ServerSideEntity::_registered_interfaces[module.String()]["hull"];
        row.moduleId = module;
        row.itemType = "hull";
        row.factory = [] { return std::make_shared<Hull>(); };
    }
    void TearDown() override {
        PressurizedVolume::_sharedObjects.clear();
        ServerSideEntity::DestroyAll();
        ServerSideEntity::_registered_interfaces.erase(module.String());
        ServerSideEntity::_module_entities.erase(module.String());
    }
    Id Ship() {
        ServerSideEntity::Ptr entity = ServerSideEntity::Create(module, "hull", Id::Generate());
        entity->deleteFilesOnDestroy = false;
        nerox::filesystem::ReadOnlyStream noState;
        entity->Attach(noState);
        return entity->GetID();
    }
    static std::vector<PressurizedVolume*> Found(Id entity, glm::dvec3 const& position) {
        std::vector<PressurizedVolume*> found;
        PressurizedVolume::Find(entity, position,
                                [&](std::shared_ptr<PressurizedVolume> v) { found.push_back(v.get()); });
        return found;
    }
};

TEST_F(PressurizedVolumeRegistry, FindReportsLiveVolumesAroundAPointInsideAndUnloadEmptiesTheList) {
    Id const ship = Ship(), station = Ship();
    auto const cabin = PressurizedVolume::Create(ship, 10.0, 293.0), tank = PressurizedVolume::Create(ship, 1.0, 293.0);
    auto const room = PressurizedVolume::Create(station, 50.0, 293.0);
    PressurizedVolume::Create(ship, 2.0, 293.0); // its module let it go at once
    glm::dvec3 const inside(0.0, 5.0, 0.0);
    EXPECT_EQ(Found(ship, inside), (std::vector<PressurizedVolume*>{cabin.get(), tank.get()}));
    EXPECT_EQ(Found(station, inside), (std::vector<PressurizedVolume*>{room.get()}));
    EXPECT_TRUE(Found(ship, glm::dvec3(2.0, 0.0, 0.0)).empty());
    EXPECT_TRUE(Found(Id::Generate(), inside).empty() && Found(Id(), inside).empty()) << "no such entity";

    auto kept = std::make_shared<PressurizedVolume>(Id::Generate(), 1.0, 293.0);
    PressurizedVolume::Register(kept);
    PressurizedVolume::Register(nullptr);
    PressurizedVolume::Register(kept);
    EXPECT_EQ(PressurizedVolume::_sharedObjects.size(), 4u); // once each, the expired one gone
    ServerSideEntity::UnloadAllEntities();
    EXPECT_TRUE(PressurizedVolume::_sharedObjects.empty());
    EXPECT_EQ(kept->volume, 1.0); // the module's object lives on
}

} // namespace
