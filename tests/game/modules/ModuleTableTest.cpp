// Loading, looking up and unloading modules of one class, with real libraries.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "ModuleTestSupport.hpp"

namespace game::modules::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr char kAlphaPath[] = "modules/MODTEST_alpha/MODTEST_alpha.GAME_Mod.so";

// Whether the library at this path is mapped into the process right now.
bool IsMapped(char const* path) {
    void* const handle = dlopen(path, RTLD_LAZY | RTLD_NOLOAD);
    if (handle == nullptr) return false;
    dlclose(handle);
    return true;
}

class ModuleLoadTest : public ModuleTest {};

TEST_F(ModuleLoadTest, LoadingTwiceReturnsTheSameModuleAndRunsLoadOnce) {
    GAME_Mod::ModulesSetLoadCallback([](GAME_Mod::Ptr mod) { Record("callback:load " + mod->name); });

    GAME_Mod::Ptr const first = GAME_Mod::LoadModule("MODTEST_alpha", true);
    GAME_Mod::Ptr const second = GAME_Mod::LoadModule("MODTEST_alpha", true);

    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first, second);
    EXPECT_EQ(GAME_Mod::Count(), 1u);
    EXPECT_THAT(RecordedEvents(), ElementsAre("MODTEST_alpha:ModuleLoad", "callback:load MODTEST_alpha"));
}

TEST_F(ModuleLoadTest, FieldsDescribeTheLibraryAndItsHooks) {
    GAME_Mod::Ptr const mod = GAME_Mod::LoadModule("MODTEST_alpha", true);
    ASSERT_NE(mod, nullptr);

    EXPECT_EQ(mod->name, "MODTEST_alpha");
    EXPECT_EQ(mod->path, kAlphaPath);
    EXPECT_EQ(mod->id.String(), "MODTEST_alpha");
    EXPECT_NE(mod->handle, nullptr);
    EXPECT_EQ(mod->error, nullptr);
    double const expectedTime =
        static_cast<double>(std::filesystem::last_write_time(kAlphaPath).time_since_epoch().count()) / 1e6;
    EXPECT_EQ(mod->lastWriteTime, expectedTime);

    // Exported by the fixture.
    ASSERT_NE(mod->ModuleSort, nullptr);
    EXPECT_EQ(mod->ModuleSort(), 3);
    ASSERT_NE(mod->Input_Key_Play, nullptr);
    ASSERT_NE(mod->Renderer_FramePushCommands, nullptr);
    // Not exported: left null.
    EXPECT_EQ(mod->Game_Stop, nullptr);
    EXPECT_EQ(mod->Input_Key_Station, nullptr);
    EXPECT_EQ(mod->ModuleGetCustomPtr, nullptr);

    ClearRecordedEvents();
    mod->Input_Key_Play(65, 38, 1, 4);
    mod->Renderer_FramePushCommands(nullptr);
    EXPECT_THAT(RecordedEvents(), ElementsAre("MODTEST_alpha:Input_Key_Play 65 38 1 4",
                                              "MODTEST_alpha:Renderer_FramePushCommands (nil)"));
}

TEST_F(ModuleLoadTest, LibraryWithoutAnySymbolLoadsAndHookCallsSkipIt) {
    GAME_Mod::Ptr const empty = GAME_Mod::LoadModule("MODTEST_empty", true);
    ASSERT_NE(empty, nullptr);
    EXPECT_NE(empty->handle, nullptr);
    EXPECT_EQ(empty->ModuleLoad, nullptr);
    EXPECT_EQ(empty->ModuleUnload, nullptr);
    EXPECT_EQ(empty->Game_Start, nullptr);
    EXPECT_EQ(empty->Renderer_FrameOverlayCommands, nullptr);
    ASSERT_NE(GAME_Mod::LoadModule("MODTEST_alpha", true), nullptr);
    ClearRecordedEvents();

    int visited = 0;
    GAME_Mod::ForEachModule([&](GAME_Mod::Ptr& mod) {
        ++visited;
        if (mod->Game_Start) mod->Game_Start();
    });

    EXPECT_EQ(visited, 2);
    EXPECT_THAT(RecordedEvents(), ElementsAre("MODTEST_alpha:Game_Start"));
}

TEST_F(ModuleLoadTest, GetModuleFindsLoadedModulesOnly) {
    EXPECT_EQ(GAME_Mod::GetModule("MODTEST_alpha"), nullptr);
    GAME_Mod::Ptr const mod = GAME_Mod::LoadModule("MODTEST_alpha", true);
    EXPECT_EQ(GAME_Mod::GetModule("MODTEST_alpha"), mod);
    EXPECT_EQ(GAME_Mod::GetModule("MODTEST_unknown"), nullptr);
}

TEST_F(ModuleLoadTest, LoadModuleLibUsesTheGivenKeyAndPath) {
    GAME_Mod::Ptr const mod =
        LoadModuleLib<GAME_Mod>("renamed", "GAME_Mod", true, "modules/MODTEST_alpha/MODTEST_alpha.GAME_Mod");
    ASSERT_NE(mod, nullptr);
    EXPECT_EQ(mod->path, kAlphaPath);
    EXPECT_EQ(GAME_Mod::GetModule("renamed"), mod);
    EXPECT_EQ(GAME_Mod::GetModule("MODTEST_alpha"), nullptr);
}

class ModuleFailureTest : public ModuleTest {
protected:
    void TearDown() override {
        ModuleTest::TearDown();
        for (std::string const& folder : _madeFolders) std::filesystem::remove_all(folder);
    }

    // Makes a module folder that this test alone removes: tests run in parallel
    // processes, so a shared clean-up would pull folders from under another test.
    void MakeModuleFolder(std::string const& folder) {
        std::filesystem::create_directories(folder);
        _madeFolders.push_back(folder);
    }

private:
    std::vector<std::string> _madeFolders;
};

TEST_F(ModuleFailureTest, MissingFileIsReportedByTheDefaultCallback) {
    ::testing::internal::CaptureStderr();
    GAME_Mod::Ptr const mod = GAME_Mod::LoadModule("MODTEST_missing", true);
    std::string const printed = ::testing::internal::GetCapturedStderr();

    EXPECT_EQ(mod, nullptr);
    EXPECT_THAT(printed, StartsWith("Module 'modules/MODTEST_missing/MODTEST_missing.GAME_Mod' "
                                    "failed to load with error: "));
    // dlerror's text names the file it tried, with the ending.
    EXPECT_THAT(printed, HasSubstr("modules/MODTEST_missing/MODTEST_missing.GAME_Mod.so"));
    EXPECT_THAT(printed, EndsWith("\n"));
    EXPECT_EQ(GAME_Mod::Count(), 0u);
    EXPECT_EQ(GAME_Mod::GetModule("MODTEST_missing"), nullptr);
}

TEST_F(ModuleFailureTest, FailedLoadIsTriedAgainByTheNextLoad) {
    int failures = 0;
    GAME_Mod::ModulesSetLoadErrorCallback([&](char const*) { ++failures; });

    EXPECT_EQ(GAME_Mod::LoadModule("MODTEST_late", true), nullptr);
    EXPECT_EQ(GAME_Mod::LoadModule("MODTEST_late", true), nullptr);
    EXPECT_EQ(failures, 2);

    MakeModuleFolder("modules/MODTEST_late");
    std::filesystem::copy_file(kAlphaPath, "modules/MODTEST_late/MODTEST_late.GAME_Mod.so");
    GAME_Mod::Ptr const mod = GAME_Mod::LoadModule("MODTEST_late", true);
    ASSERT_NE(mod, nullptr);
    EXPECT_EQ(mod->name, "MODTEST_late");
    EXPECT_EQ(failures, 2);
}

TEST_F(ModuleFailureTest, WithoutReportFailureNothingIsReported) {
    int failures = 0;
    GAME_Mod::ModulesSetLoadErrorCallback([&](char const*) { ++failures; });
    EXPECT_EQ(GAME_Mod::LoadModule("MODTEST_missing", false), nullptr);
    EXPECT_EQ(failures, 0);

    GAME_Mod::ModulesSetLoadErrorCallback(&ReportModuleLoadError);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(GAME_Mod::LoadModule("MODTEST_missing", false), nullptr);
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), IsEmpty());
}

TEST_F(ModuleFailureTest, FileThatIsNoLibraryGivesDlerrorText) {
    MakeModuleFolder("modules/MODTEST_broken");
    std::ofstream("modules/MODTEST_broken/MODTEST_broken.GAME_Mod.so") << "not a shared library\n";

    std::vector<std::string> reports;
    GAME_Mod::ModulesSetLoadErrorCallback([&](char const* text) { reports.emplace_back(text); });
    EXPECT_EQ(GAME_Mod::LoadModule("MODTEST_broken", true), nullptr);

    ASSERT_EQ(reports.size(), 1u);
    std::string const prefix = "Module 'modules/MODTEST_broken/MODTEST_broken.GAME_Mod' failed to load with error: ";
    EXPECT_THAT(reports[0], StartsWith(prefix));
    EXPECT_GT(reports[0].size(), prefix.size());
    EXPECT_EQ(GAME_Mod::Count(), 0u);
}

TEST_F(ModuleFailureTest, EmptyCallbackThrowsAndReleasesTheLock) {
    GAME_Mod::ModulesSetLoadCallback(GAME_Mod::ModuleCallback{});
    EXPECT_THROW(GAME_Mod::LoadModule("MODTEST_alpha", true), std::bad_function_call);

    ASSERT_TRUE(GAME_Mod::_mutexForLoadedModules.try_lock());
    GAME_Mod::_mutexForLoadedModules.unlock();
}

class ModuleUnloadTest : public ModuleTest {};

TEST_F(ModuleUnloadTest, UnloadModuleCallsTheCallbackUnderTheLockThenUnloads) {
    bool lockedInCallback = false;
    GAME_Mod::ModulesSetUnloadCallback([&](GAME_Mod::Ptr mod) {
        Record("callback:unload " + mod->name);
        lockedInCallback = !GAME_Mod::_mutexForLoadedModules.try_lock_shared();
        if (!lockedInCallback) GAME_Mod::_mutexForLoadedModules.unlock_shared();
    });
    GAME_Mod::LoadModule("MODTEST_alpha", true);
    ClearRecordedEvents();

    GAME_Mod::UnloadModule("MODTEST_alpha");

    EXPECT_THAT(RecordedEvents(), ElementsAre("callback:unload MODTEST_alpha", "MODTEST_alpha:ModuleUnload"));
    EXPECT_TRUE(lockedInCallback);
    EXPECT_EQ(GAME_Mod::GetModule("MODTEST_alpha"), nullptr);
    EXPECT_EQ(GAME_Mod::Count(), 0u);
}

TEST_F(ModuleUnloadTest, UnloadingAnUnknownNameDoesNothing) {
    GAME_Mod::ModulesSetUnloadCallback([](GAME_Mod::Ptr mod) { Record("callback:unload " + mod->name); });
    GAME_Mod::LoadModule("MODTEST_alpha", true);
    ClearRecordedEvents();

    GAME_Mod::UnloadModule("MODTEST_unknown");

    EXPECT_THAT(RecordedEvents(), IsEmpty());
    EXPECT_EQ(GAME_Mod::Count(), 1u);
}

TEST_F(ModuleUnloadTest, UnloadModulesSkipsTheCallbackButUnloadsTheLibraries) {
    GAME_Mod::ModulesSetUnloadCallback([](GAME_Mod::Ptr mod) { Record("callback:unload " + mod->name); });
    GAME_Mod::LoadModule("MODTEST_alpha", true);
    GAME_Mod::LoadModule("MODTEST_beta", true);
    GAME_Mod::SortModules("update", [](GAME_Mod::Ptr, GAME_Mod::Ptr) { return false; });
    ClearRecordedEvents();

    GAME_Mod::UnloadModules();

    // Destroyed in the table's order, which is not defined.
    EXPECT_THAT(RecordedEvents(), ::testing::UnorderedElementsAre("MODTEST_alpha:ModuleUnload",
                                                                  "MODTEST_beta:ModuleUnload"));
    EXPECT_EQ(GAME_Mod::Count(), 0u);
    auto lock = GAME_Mod::GetLock();
    EXPECT_TRUE(GAME_Mod::_loadedSortedModules.empty());
}

TEST_F(ModuleUnloadTest, KeptPtrKeepsTheLibraryMappedUntilReleased) {
    GAME_Mod::Ptr kept = GAME_Mod::LoadModule("MODTEST_alpha", true);
    ASSERT_NE(kept, nullptr);
    ClearRecordedEvents();

    GAME_Mod::UnloadModules();
    EXPECT_THAT(RecordedEvents(), IsEmpty());
    EXPECT_EQ(GAME_Mod::GetModule("MODTEST_alpha"), nullptr);
    EXPECT_TRUE(IsMapped(kAlphaPath));
    kept->Game_Start();

    kept.reset();
    EXPECT_THAT(RecordedEvents(), ElementsAre("MODTEST_alpha:Game_Start", "MODTEST_alpha:ModuleUnload"));
    EXPECT_FALSE(IsMapped(kAlphaPath));
}

TEST_F(ModuleUnloadTest, GetLockHoldsTheTableExclusively) {
    {
        auto lock = GAME_Mod::GetLock();
        EXPECT_TRUE(lock.owns_lock());
        EXPECT_FALSE(GAME_Mod::_mutexForLoadedModules.try_lock_shared());
        // The other classes are free.
        EXPECT_TRUE(SERVER_Mod::_mutexForLoadedModules.try_lock_shared());
        SERVER_Mod::_mutexForLoadedModules.unlock_shared();
    }
    ASSERT_TRUE(GAME_Mod::_mutexForLoadedModules.try_lock_shared());
    GAME_Mod::_mutexForLoadedModules.unlock_shared();
}

} // namespace
} // namespace game::modules::testing
