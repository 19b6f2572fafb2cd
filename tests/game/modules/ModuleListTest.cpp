// The ordered lists of a module class and the lock rules of its walks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "ModuleTestSupport.hpp"

namespace game::modules::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Orders by the modules' own ModuleSort value.
bool ByPriority(GAME_Mod::Ptr a, GAME_Mod::Ptr b) { return a->ModuleSort() < b->ModuleSort(); }
bool ByPriorityDescending(GAME_Mod::Ptr a, GAME_Mod::Ptr b) { return a->ModuleSort() > b->ModuleSort(); }

std::vector<std::string> NamesInList(char const* key) {
    std::vector<std::string> names;
    GAME_Mod::ForEachSortedModule(key, [&](GAME_Mod::Ptr& mod) { names.push_back(mod->name); });
    return names;
}

class ModuleListTest : public ModuleTest {
protected:
    void LoadThree() {
        ASSERT_NE(GAME_Mod::LoadModule("MODTEST_alpha", true), nullptr); // priority 3
        ASSERT_NE(GAME_Mod::LoadModule("MODTEST_beta", true), nullptr);  // priority 1
        ASSERT_NE(GAME_Mod::LoadModule("MODTEST_gamma", true), nullptr); // priority 2
    }
};

TEST_F(ModuleListTest, UnsortedKeyCallsNothingAndLeavesAnEmptyList) {
    LoadThree();
    EXPECT_THAT(NamesInList("update"), IsEmpty());

    auto lock = GAME_Mod::GetLock();
    ASSERT_EQ(GAME_Mod::_loadedSortedModules.count("update"), 1u);
    EXPECT_THAT(GAME_Mod::_loadedSortedModules["update"], IsEmpty());
}

TEST_F(ModuleListTest, SortModulesOrdersEachListByItsComparison) {
    LoadThree();
    GAME_Mod::SortModules("update", ByPriority);
    GAME_Mod::SortModules("render", ByPriorityDescending);

    EXPECT_THAT(NamesInList("update"), ElementsAre("MODTEST_beta", "MODTEST_gamma", "MODTEST_alpha"));
    EXPECT_THAT(NamesInList("render"), ElementsAre("MODTEST_alpha", "MODTEST_gamma", "MODTEST_beta"));
}

TEST_F(ModuleListTest, SortingAgainReplacesTheList) {
    LoadThree();
    GAME_Mod::SortModules("update", ByPriority);
    GAME_Mod::SortModules("update", ByPriorityDescending);
    EXPECT_THAT(NamesInList("update"), ElementsAre("MODTEST_alpha", "MODTEST_gamma", "MODTEST_beta"));
}

TEST_F(ModuleListTest, UnloadModuleLeavesEveryListInOrder) {
    LoadThree();
    GAME_Mod::SortModules("update", ByPriority);
    GAME_Mod::SortModules("render", ByPriorityDescending);

    GAME_Mod::UnloadModule("MODTEST_gamma");

    EXPECT_THAT(NamesInList("update"), ElementsAre("MODTEST_beta", "MODTEST_alpha"));
    EXPECT_THAT(NamesInList("render"), ElementsAre("MODTEST_alpha", "MODTEST_beta"));
}

TEST_F(ModuleListTest, ReloadedModuleJoinsAListOnlyWhenItIsSortedAgain) {
    LoadThree();
    GAME_Mod::SortModules("update", ByPriority);
    GAME_Mod::SortModules("render", ByPriority);
    GAME_Mod::UnloadModule("MODTEST_gamma");
    ASSERT_NE(GAME_Mod::LoadModule("MODTEST_gamma", true), nullptr);

    EXPECT_THAT(NamesInList("update"), ElementsAre("MODTEST_beta", "MODTEST_alpha"));
    EXPECT_THAT(NamesInList("render"), ElementsAre("MODTEST_beta", "MODTEST_alpha"));

    GAME_Mod::SortModules("update", ByPriority);
    EXPECT_THAT(NamesInList("update"), ElementsAre("MODTEST_beta", "MODTEST_gamma", "MODTEST_alpha"));
    EXPECT_THAT(NamesInList("render"), ElementsAre("MODTEST_beta", "MODTEST_alpha"));
}

TEST_F(ModuleListTest, NullListKeyIsALogicError) {
    EXPECT_THROW(GAME_Mod::ForEachSortedModule(nullptr, [](GAME_Mod::Ptr&) {}), std::logic_error);
    EXPECT_THROW(GAME_Mod::SortModules(nullptr, ByPriority), std::logic_error);
    ASSERT_TRUE(GAME_Mod::_mutexForLoadedModules.try_lock());
    GAME_Mod::_mutexForLoadedModules.unlock();
}

TEST_F(ModuleListTest, ExceptionFromAHookLeavesTheTableUnlocked) {
    LoadThree();
    GAME_Mod::SortModules("update", ByPriority);
    auto const failingHook = [](GAME_Mod::Ptr&) { throw std::runtime_error("hook failed"); };

    EXPECT_THROW(GAME_Mod::ForEachModule(failingHook), std::runtime_error);
    EXPECT_THROW(GAME_Mod::ForEachSortedModule("update", failingHook), std::runtime_error);

    ASSERT_TRUE(GAME_Mod::_mutexForLoadedModules.try_lock());
    GAME_Mod::_mutexForLoadedModules.unlock();
}

TEST_F(ModuleListTest, HookMayReadItsOwnClassIncludingAnUnsortedList) {
    LoadThree();
    GAME_Mod::SortModules("update", ByPriority);
    int innerCalls = 0;

    // Runs under the shared lock of GAME_Mod; none of these may wait for the exclusive lock.
    GAME_Mod::ForEachModule([&](GAME_Mod::Ptr& mod) {
        EXPECT_EQ(GAME_Mod::GetModule(mod->name), mod);
        EXPECT_EQ(GAME_Mod::Count(), 3u);
        GAME_Mod::ForEachSortedModule("update", [&](GAME_Mod::Ptr&) { ++innerCalls; });
        GAME_Mod::ForEachSortedModule("never sorted", [&](GAME_Mod::Ptr&) { ++innerCalls; });
    });

    EXPECT_EQ(innerCalls, 9);
}

TEST_F(ModuleListTest, ModulesWithoutAHookAreSkippedInSortedWalks) {
    LoadThree();
    ASSERT_NE(GAME_Mod::LoadModule("MODTEST_empty", true), nullptr);
    // The empty module has no ModuleSort: order it first by name.
    GAME_Mod::SortModules("overlay", [](GAME_Mod::Ptr a, GAME_Mod::Ptr b) { return a->name < b->name; });
    ClearRecordedEvents();

    GAME_Mod::ForEachSortedModule("overlay", [&](GAME_Mod::Ptr& mod) {
        if (mod->Game_Start) mod->Game_Start();
    });

    EXPECT_THAT(RecordedEvents(), ElementsAre("MODTEST_alpha:Game_Start", "MODTEST_beta:Game_Start",
                                              "MODTEST_gamma:Game_Start"));
}

} // namespace
} // namespace game::modules::testing
