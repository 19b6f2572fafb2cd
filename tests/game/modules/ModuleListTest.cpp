// The ordered lists of a module class and the lock rules of its walks.
#include "ModuleTestSupport.hpp"

#include <stdexcept>

namespace game::modules::testing {
namespace {

bool ByPriority(GAME_Mod::Ptr a, GAME_Mod::Ptr b) { return a->ModuleSort() < b->ModuleSort(); }
bool ByPriorityDescending(GAME_Mod::Ptr a, GAME_Mod::Ptr b) { return a->ModuleSort() > b->ModuleSort(); }

Events NamesInList(char const* key) {
    Events names;
    GAME_Mod::ForEachSortedModule(key, [&](GAME_Mod::Ptr& mod) { names.push_back(mod->name); });
    return names;
}

class ModuleListTest : public ModuleTest {
protected:
    void SetUp() override {
        ModuleTest::SetUp();
        for (char const* name : {"MODTEST_alpha", "MODTEST_beta", "MODTEST_gamma"}) // priorities 3, 1, 2
            ASSERT_NE(GAME_Mod::LoadModule(name, true), nullptr);
    }
};

TEST_F(ModuleListTest, EachListHasTheOrderOfItsLatestSortAndAnUnsortedOneStaysEmpty) {
    EXPECT_THAT(NamesInList("update"), IsEmpty());
    {
        auto lock = GAME_Mod::GetLock();
        ASSERT_EQ(GAME_Mod::_loadedSortedModules.count("update"), 1u) << "asking made an empty list";
        EXPECT_THAT(GAME_Mod::_loadedSortedModules["update"], IsEmpty());
    }
    GAME_Mod::SortModules("update", ByPriorityDescending);
    GAME_Mod::SortModules("update", ByPriority);
    GAME_Mod::SortModules("render", ByPriorityDescending);
    EXPECT_THAT(NamesInList("update"), ElementsAre("MODTEST_beta", "MODTEST_gamma", "MODTEST_alpha"));
    EXPECT_THAT(NamesInList("render"), ElementsAre("MODTEST_alpha", "MODTEST_gamma", "MODTEST_beta"));

    // An unload leaves every list in order; a reloaded module joins a list only when it is sorted again.
    GAME_Mod::UnloadModule("MODTEST_gamma");
    EXPECT_THAT(NamesInList("render"), ElementsAre("MODTEST_alpha", "MODTEST_beta"));
    ASSERT_NE(GAME_Mod::LoadModule("MODTEST_gamma", true), nullptr);
    EXPECT_THAT(NamesInList("update"), ElementsAre("MODTEST_beta", "MODTEST_alpha"));
    GAME_Mod::SortModules("update", ByPriority);
    EXPECT_THAT(NamesInList("update"), ElementsAre("MODTEST_beta", "MODTEST_gamma", "MODTEST_alpha"));
    EXPECT_THAT(NamesInList("render"), ElementsAre("MODTEST_alpha", "MODTEST_beta"));
}

TEST_F(ModuleListTest, NullKeysAndThrowingHooksLeaveTheTableUnlocked) {
    EXPECT_THROW(GAME_Mod::ForEachSortedModule(nullptr, [](GAME_Mod::Ptr&) {}), std::logic_error);
    EXPECT_THROW(GAME_Mod::SortModules(nullptr, ByPriority), std::logic_error);
    EXPECT_TRUE(IsUnlocked<GAME_Mod>());
    GAME_Mod::SortModules("update", ByPriority);
    auto const failingHook = [](GAME_Mod::Ptr&) { throw std::runtime_error("hook failed"); };
    EXPECT_THROW(GAME_Mod::ForEachModule(failingHook), std::runtime_error);
    EXPECT_THROW(GAME_Mod::ForEachSortedModule("update", failingHook), std::runtime_error);
    EXPECT_TRUE(IsUnlocked<GAME_Mod>());
}

TEST_F(ModuleListTest, HookMayReadItsOwnClassIncludingAnUnsortedList) {
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

} // namespace
} // namespace game::modules::testing
