// The aim record as the CPU takes it: the reference its id names, and the
// monitor globals.
#include <gtest/gtest.h>

#include "game/Game.hpp"
#include "game/graphics/Aim.hpp"

namespace {

using game::graphics::AimBuffer;

TEST(Aim, TakesTheReferenceOfItsIdAndTheMonitorPlaceOnlyOnAMonitor) {
    game::graphics::AimReferences table;
    game::graphics::Aim aim(&table);
    EXPECT_EQ(table.Add("TESTS_door", 7), 1u);
    EXPECT_EQ(table.Add("TESTS_door", 8), 2u);
    aim = AimBuffer{.aimID = 2, .distance = 4.0f, .monitorX = 0.25f, .monitorY = 0.5f, .monitorID = 9};
    EXPECT_EQ(aim.Reference().module, nerox::modular::ModuleID("TESTS_door"));
    EXPECT_EQ(std::any_cast<int>(aim.Reference().data), 8);
    EXPECT_EQ(Game::currentMonitorID, 9u);
    EXPECT_EQ(glm::dvec3(Game::currentMonitorX, Game::currentMonitorY, Game::currentMonitorDistance),
              glm::dvec3(0.25, 0.5, 4.0));
    // An id past the table names nothing; off the monitor, its place stays the last one.
    aim = AimBuffer{.aimID = 3, .distance = 8.0f};
    EXPECT_EQ(aim.Reference().module, nerox::modular::ModuleID());
    EXPECT_EQ(std::any_cast<int>(aim.Reference().data), 0);
    EXPECT_EQ(Game::currentMonitorID, 0u);
    EXPECT_EQ(glm::dvec3(Game::currentMonitorX, Game::currentMonitorY, Game::currentMonitorDistance),
              glm::dvec3(0.25, 0.5, 4.0));
    table.Clear();
    aim = AimBuffer{.aimID = 1};
    EXPECT_EQ(aim.Reference().module, nerox::modular::ModuleID()) << "the table was emptied";
}

} // namespace
