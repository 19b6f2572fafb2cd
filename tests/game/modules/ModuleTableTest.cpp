// Loading, looking up and unloading modules of one class, with real libraries.
#include "ModuleTestSupport.hpp"

#include <dlfcn.h>

#include <fstream>
#include <stdexcept>

namespace game::modules::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr char kAlphaPath[] = "modules/MODTEST_alpha/MODTEST_alpha.GAME_Mod.so";

// Whether the library at this path is mapped into the process right now.
bool IsMapped(char const* path) {
    void* const handle = dlopen(path, RTLD_LAZY | RTLD_NOLOAD);
    if (handle != nullptr) dlclose(handle);
    return handle != nullptr;
}

using ModuleLoadTest = ModuleTest;

TEST_F(ModuleLoadTest, LoadingTwiceGivesOneModuleWhoseFieldsDescribeTheLibraryAndItsHooks) {
    GAME_Mod::ModulesSetLoadCallback([](GAME_Mod::Ptr mod) { Record("callback:load " + mod->name); });
    EXPECT_EQ(GAME_Mod::GetModule("MODTEST_alpha"), nullptr);
    GAME_Mod::Ptr const mod = GAME_Mod::LoadModule("MODTEST_alpha", true);
    ASSERT_NE(mod, nullptr);
    EXPECT_EQ(GAME_Mod::LoadModule("MODTEST_alpha", true), mod);
    EXPECT_EQ(GAME_Mod::GetModule("MODTEST_alpha"), mod);
    EXPECT_EQ(GAME_Mod::Count(), 1u);
    EXPECT_THAT(recorder::Events(), ElementsAre("MODTEST_alpha:ModuleLoad", "callback:load MODTEST_alpha"));

    EXPECT_EQ(mod->name, "MODTEST_alpha");
    EXPECT_EQ(mod->path, kAlphaPath);
    EXPECT_EQ(mod->id.String(), "MODTEST_alpha");
    EXPECT_EQ(mod->error, nullptr);
    EXPECT_EQ(mod->lastWriteTime,
              static_cast<double>(std::filesystem::last_write_time(kAlphaPath).time_since_epoch().count()) / 1e6);
    // Exported hooks are bound, the others left null.
    ASSERT_TRUE(mod->ModuleSort && mod->Input_Key_Play && mod->Renderer_FramePushCommands);
    EXPECT_EQ(mod->ModuleSort(), 3);
    EXPECT_EQ(mod->Input_Key_Station, nullptr);
    EXPECT_EQ(mod->ModuleGetCustomPtr, nullptr);
    recorder::Clear();
    mod->Input_Key_Play(65, 38, 1, 4);
    mod->Renderer_FramePushCommands(nullptr);
    EXPECT_THAT(recorder::Events(), ElementsAre("MODTEST_alpha:Input_Key_Play(65 38 1 4)",
                                                "MODTEST_alpha:Renderer_FramePushCommands(null)"));
}

TEST_F(ModuleLoadTest, LibraryWithoutAnySymbolLoadsAndHookCallsSkipIt) {
    GAME_Mod::Ptr const empty = GAME_Mod::LoadModule("MODTEST_empty", true);
    ASSERT_NE(empty, nullptr);
    EXPECT_FALSE(empty->ModuleLoad || empty->ModuleUnload || empty->Game_Start || empty->Renderer_FrameOverlayCommands);
    ASSERT_NE(GAME_Mod::LoadModule("MODTEST_alpha", true), nullptr);
    recorder::Clear();
    int visited = 0;
    GAME_Mod::ForEachModule([&](GAME_Mod::Ptr& mod) {
        ++visited;
        if (mod->Game_Start) mod->Game_Start();
    });
    EXPECT_EQ(visited, 2);
    EXPECT_THAT(recorder::Events(), ElementsAre("MODTEST_alpha:Game_Start"));
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
        for (std::string const& folder : madeFolders) std::filesystem::remove_all(folder);
    }
    // A module folder that this test alone removes: tests run in parallel
    // processes, so a shared clean-up would pull folders from under another test.
    void MakeModuleFolder(std::string const& folder) {
        std::filesystem::create_directories(folder);
        madeFolders.push_back(folder);
    }
    std::vector<std::string> madeFolders;
};

TEST_F(ModuleFailureTest, MissingFileIsReportedOnlyWhenAskedAndTriedAgainByTheNextLoad) {
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(GAME_Mod::LoadModule("MODTEST_late", false), nullptr);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(GAME_Mod::LoadModule("MODTEST_late", true), nullptr);
    std::string const printed = ::testing::internal::GetCapturedStderr();
    EXPECT_THAT(printed, StartsWith("Module 'modules/MODTEST_late/MODTEST_late.GAME_Mod' failed to load with error: "));
    // dlerror's text names the file it tried, with the ending.
    EXPECT_THAT(printed, HasSubstr("modules/MODTEST_late/MODTEST_late.GAME_Mod.so"));
    EXPECT_EQ(printed.back(), '\n');
    EXPECT_EQ(GAME_Mod::Count(), 0u);

    MakeModuleFolder("modules/MODTEST_late");
    std::filesystem::copy_file(kAlphaPath, "modules/MODTEST_late/MODTEST_late.GAME_Mod.so");
    GAME_Mod::Ptr const mod = GAME_Mod::LoadModule("MODTEST_late", true);
    ASSERT_NE(mod, nullptr);
    EXPECT_EQ(mod->name, "MODTEST_late");
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
}

TEST_F(ModuleFailureTest, EmptyCallbackThrowsAndReleasesTheLock) {
    GAME_Mod::ModulesSetLoadCallback(GAME_Mod::ModuleCallback{});
    EXPECT_THROW(GAME_Mod::LoadModule("MODTEST_alpha", true), std::bad_function_call);
    EXPECT_TRUE(IsUnlocked<GAME_Mod>());
}

using ModuleUnloadTest = ModuleTest;

TEST_F(ModuleUnloadTest, UnloadModuleCallsTheCallbackUnderTheLockThenUnloadsAndIgnoresUnknownNames) {
    bool lockedInCallback = false;
    GAME_Mod::ModulesSetUnloadCallback([&](GAME_Mod::Ptr mod) {
        Record("callback:unload " + mod->name);
        lockedInCallback = !GAME_Mod::_mutexForLoadedModules.try_lock_shared();
        if (!lockedInCallback) GAME_Mod::_mutexForLoadedModules.unlock_shared();
    });
    GAME_Mod::LoadModule("MODTEST_alpha", true);
    recorder::Clear();
    GAME_Mod::UnloadModule("MODTEST_unknown");
    EXPECT_EQ(GAME_Mod::Count(), 1u);
    GAME_Mod::UnloadModule("MODTEST_alpha");
    EXPECT_THAT(recorder::Events(), ElementsAre("callback:unload MODTEST_alpha", "MODTEST_alpha:ModuleUnload"));
    EXPECT_TRUE(lockedInCallback);
    EXPECT_EQ(GAME_Mod::GetModule("MODTEST_alpha"), nullptr);
}

TEST_F(ModuleUnloadTest, UnloadModulesSkipsTheCallbackAndAKeptPtrKeepsItsLibraryMapped) {
    GAME_Mod::ModulesSetUnloadCallback([](GAME_Mod::Ptr mod) { Record("callback:unload " + mod->name); });
    GAME_Mod::Ptr kept = GAME_Mod::LoadModule("MODTEST_alpha", true);
    GAME_Mod::LoadModule("MODTEST_beta", true);
    GAME_Mod::SortModules("update", [](GAME_Mod::Ptr, GAME_Mod::Ptr) { return false; });
    recorder::Clear();

    GAME_Mod::UnloadModules();
    EXPECT_THAT(recorder::Events(), ElementsAre("MODTEST_beta:ModuleUnload"));
    EXPECT_EQ(GAME_Mod::Count(), 0u);
    EXPECT_TRUE(GAME_Mod::_loadedSortedModules.empty());
    EXPECT_TRUE(IsMapped(kAlphaPath));
    kept->Game_Start();
    kept.reset();
    EXPECT_THAT(recorder::Events(), ElementsAre("MODTEST_beta:ModuleUnload", "MODTEST_alpha:Game_Start",
                                                "MODTEST_alpha:ModuleUnload"));
    EXPECT_FALSE(IsMapped(kAlphaPath));
}

TEST_F(ModuleUnloadTest, GetLockHoldsTheTableExclusivelyAndTheOtherClassesStayFree) {
    {
        auto lock = GAME_Mod::GetLock();
        EXPECT_FALSE(GAME_Mod::_mutexForLoadedModules.try_lock_shared());
        EXPECT_TRUE(IsUnlocked<SERVER_Mod>());
    }
    EXPECT_TRUE(IsUnlocked<GAME_Mod>());
}

} // namespace
} // namespace game::modules::testing
