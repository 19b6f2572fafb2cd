// Loading, looking up, sorting and unloading modules of the four classes, with real
// libraries built into modules/NAME/NAME.CLASS.so under the run folder.
#include "support/Recorder.hpp"

#include "game/modules/GAME_Init.hpp"
#include "game/modules/GAME_Mod.hpp"
#include "game/modules/SERVER_Mod.hpp"
#include "game/modules/TESSARA_Mod.hpp"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace game::modules::testing {
namespace {

using recorder::Record;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Events = std::vector<std::string>;

constexpr char kAlphaPath[] = "modules/MODTEST_alpha/MODTEST_alpha.GAME_Mod.so";

template <class T> bool IsUnlocked() {
    bool const free = T::_mutexForLoadedModules.try_lock();
    if (free) T::_mutexForLoadedModules.unlock();
    return free;
}

template <class T> void ResetModuleClass() {
    T::UnloadModules();
    T::ModulesSetLoadCallback([](typename T::Ptr) {});
    T::ModulesSetUnloadCallback([](typename T::Ptr) {});
    T::ModulesSetLoadErrorCallback(&ReportModuleLoadError);
}

bool ByPriority(GAME_Mod::Ptr a, GAME_Mod::Ptr b) {
    return a->ModuleSort() < b->ModuleSort();
}

Events NamesInList(char const* key) {
    Events names;
    GAME_Mod::ForEachSortedModule(key, [&](GAME_Mod::Ptr& mod) { names.push_back(mod->name); });
    return names;
}

class ModuleTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::filesystem::current_path(TESSARA_TEST_RUN_DIR);
        TearDown();
    }
    void TearDown() override {
        ResetModuleClass<GAME_Init>();
        ResetModuleClass<GAME_Mod>();
        ResetModuleClass<SERVER_Mod>();
        ResetModuleClass<TESSARA_Mod>();
        recorder::Clear();
        // Only the folders this test made: tests run in parallel processes.
        for (std::string const& folder : madeFolders) std::filesystem::remove_all(folder);
    }
    static void LoadAll() {
        for (char const* name : {"MODTEST_alpha", "MODTEST_beta", "MODTEST_gamma"}) // priorities 3, 1, 2
            ASSERT_NE(GAME_Mod::LoadModule(name, true), nullptr);
    }
    std::vector<std::string> madeFolders;
};

TEST_F(ModuleTest, LoadingTwiceGivesOneModuleWithItsHooksBoundAndALibraryWithoutSymbolsIsSkipped) {
    GAME_Mod::ModulesSetLoadCallback([](GAME_Mod::Ptr mod) { Record("callback:load " + mod->name); });
    GAME_Mod::Ptr const mod = GAME_Mod::LoadModule("MODTEST_alpha", true);
    ASSERT_TRUE(mod && GAME_Mod::LoadModule("MODTEST_alpha", true) == mod &&
                GAME_Mod::GetModule("MODTEST_alpha") == mod);
    EXPECT_THAT(recorder::Events(), ElementsAre("MODTEST_alpha:ModuleLoad", "callback:load MODTEST_alpha"));
    EXPECT_EQ(std::tuple(mod->name, mod->path, mod->id.String(), mod->ModuleSort()),
              std::tuple("MODTEST_alpha", kAlphaPath, "MODTEST_alpha", 3));
    EXPECT_FALSE(mod->error || mod->Input_Key_Station || mod->ModuleGetCustomPtr);
    GAME_Mod::Ptr const empty = GAME_Mod::LoadModule("MODTEST_empty", true);
    EXPECT_TRUE(empty && !empty->ModuleLoad && !empty->ModuleUnload && !empty->Renderer_FrameOverlayCommands);
    recorder::Clear();
    mod->Input_Key_Play(65, 38, 1, 4);
    GAME_Mod::ForEachModule([](GAME_Mod::Ptr& m) {
        if (m->Game_Start) m->Game_Start();
    });
    EXPECT_THAT(recorder::Events(), ElementsAre("MODTEST_alpha:Input_Key_Play(65 38 1 4)", "MODTEST_alpha:Game_Start"));
    // LoadModuleLib takes the key and the path apart.
    GAME_Mod::Ptr const renamed =
        LoadModuleLib<GAME_Mod>("renamed", "GAME_Mod", true, "modules/MODTEST_alpha/MODTEST_alpha.GAME_Mod");
    EXPECT_TRUE(renamed && renamed->path == kAlphaPath && GAME_Mod::GetModule("renamed") == renamed);
}

TEST_F(ModuleTest, SameNameLoadsOneLibraryPerClassWithItsOwnHooksAndLists) {
    GAME_Mod::Ptr const client = GAME_Mod::LoadModule("MODTEST_alpha", true);
    SERVER_Mod::Ptr const server = SERVER_Mod::LoadModule("MODTEST_alpha", true);
    GAME_Init::Ptr const init = GAME_Init::LoadModule("MODTEST_init", true);
    ASSERT_TRUE(client && server && server->Server_BeforeUpdate && server->Server_Receive && !server->Server_Load);
    ASSERT_TRUE(init && init->Vulkan_ScoreGPU && init->SplashBegin && init->SplashEnd && !init->Vulkan_Init);
    int gpu = 0;
    EXPECT_TRUE(client->handle != server->handle && init->Vulkan_ScoreGPU(&gpu) == 42);
    GAME_Mod::SortModules("update", [](GAME_Mod::Ptr, GAME_Mod::Ptr) { return false; });
    SERVER_Mod::ForEachSortedModule("update", [&](SERVER_Mod::Ptr&) { ADD_FAILURE() << "GAME_Mod's list"; });
    SERVER_Mod::UnloadModule("MODTEST_alpha");
    EXPECT_TRUE(!SERVER_Mod::GetModule("MODTEST_alpha") && GAME_Mod::GetModule("MODTEST_alpha") == client);
    EXPECT_EQ(SERVER_Mod::LoadModule("MODTEST_beta", false), nullptr) << "only a GAME_Mod library";
}

TEST_F(ModuleTest, AFailedLoadIsReportedOnlyWhenAskedAndTriedAgainByTheNextLoad) {
    ::testing::internal::CaptureStderr();
    EXPECT_TRUE(!GAME_Mod::LoadModule("MODTEST_late", false) && ::testing::internal::GetCapturedStderr().empty());
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(GAME_Mod::LoadModule("MODTEST_late", true), nullptr);
    std::string const prefix = "Module 'modules/MODTEST_late/MODTEST_late.GAME_Mod' failed to load with error: ";
    // dlerror's text follows, naming the file it tried.
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                ::testing::MatchesRegex(prefix + ".*modules/MODTEST_late/MODTEST_late.GAME_Mod.so.*\n"));

    madeFolders.push_back("modules/MODTEST_late");
    std::filesystem::create_directories(madeFolders.back());
    std::ofstream("modules/MODTEST_late/MODTEST_late.GAME_Mod.so") << "not a shared library\n";
    Events reports;
    GAME_Mod::ModulesSetLoadErrorCallback([&](char const* text) { reports.emplace_back(text); });
    EXPECT_EQ(GAME_Mod::LoadModule("MODTEST_late", true), nullptr);
    EXPECT_THAT(reports, ElementsAre(::testing::StartsWith(prefix + "modules/MODTEST_late/")));
    EXPECT_EQ(GAME_Mod::Count(), 0u);

    std::filesystem::copy_file(kAlphaPath, "modules/MODTEST_late/MODTEST_late.GAME_Mod.so",
                               std::filesystem::copy_options::overwrite_existing);
    EXPECT_NE(GAME_Mod::LoadModule("MODTEST_late", true), nullptr);
}

TEST_F(ModuleTest, UnloadModuleCallsTheCallbackUnderTheLockUnloadModulesNotAndAKeptPtrKeepsItsLibraryMapped) {
    auto const isMapped = [] {
        void* const handle = dlopen(kAlphaPath, RTLD_LAZY | RTLD_NOLOAD);
        if (handle != nullptr) dlclose(handle);
        return handle != nullptr;
    };
    bool lockedInCallback = false;
    GAME_Mod::ModulesSetUnloadCallback([&](GAME_Mod::Ptr mod) {
        Record("callback:unload " + mod->name);
        lockedInCallback = !GAME_Mod::_mutexForLoadedModules.try_lock_shared();
        if (!lockedInCallback) GAME_Mod::_mutexForLoadedModules.unlock_shared();
    });
    LoadAll();
    GAME_Mod::Ptr kept = GAME_Mod::GetModule("MODTEST_alpha");
    GAME_Mod::SortModules("update", ByPriority);
    recorder::Clear();
    GAME_Mod::UnloadModule("MODTEST_unknown");
    GAME_Mod::UnloadModule("MODTEST_gamma");
    bool const unloaded = lockedInCallback && !GAME_Mod::GetModule("MODTEST_gamma");
    GAME_Mod::UnloadModules();
    EXPECT_TRUE(unloaded && GAME_Mod::Count() == 0u && GAME_Mod::_loadedSortedModules.empty() && isMapped());
    kept->Game_Start();
    kept.reset();
    EXPECT_THAT(recorder::Events(),
                ElementsAre("callback:unload MODTEST_gamma", "MODTEST_gamma:ModuleUnload", "MODTEST_beta:ModuleUnload",
                            "MODTEST_alpha:Game_Start", "MODTEST_alpha:ModuleUnload"));
    EXPECT_FALSE(isMapped());
    {
        auto lock = GAME_Mod::GetLock();
        EXPECT_TRUE(!GAME_Mod::_mutexForLoadedModules.try_lock_shared() && IsUnlocked<SERVER_Mod>());
    }
    EXPECT_TRUE(IsUnlocked<GAME_Mod>());
}

TEST_F(ModuleTest, EachListHasTheOrderOfItsLatestSortAndAnUnsortedOneStaysEmpty) {
    LoadAll();
    EXPECT_THAT(NamesInList("update"), IsEmpty());
    auto const descending = [](GAME_Mod::Ptr a, GAME_Mod::Ptr b) { return ByPriority(b, a); };
    GAME_Mod::SortModules("update", descending);
    GAME_Mod::SortModules("update", ByPriority);
    GAME_Mod::SortModules("render", descending);
    EXPECT_THAT(NamesInList("update"), ElementsAre("MODTEST_beta", "MODTEST_gamma", "MODTEST_alpha"));
    EXPECT_THAT(NamesInList("render"), ElementsAre("MODTEST_alpha", "MODTEST_gamma", "MODTEST_beta"));
    // An unload leaves every list in order; a reloaded module joins a list only when it is sorted again.
    GAME_Mod::UnloadModule("MODTEST_gamma");
    EXPECT_THAT(NamesInList("render"), ElementsAre("MODTEST_alpha", "MODTEST_beta"));
    ASSERT_NE(GAME_Mod::LoadModule("MODTEST_gamma", true), nullptr);
    EXPECT_THAT(NamesInList("update"), ElementsAre("MODTEST_beta", "MODTEST_alpha"));
    GAME_Mod::SortModules("update", ByPriority);
    EXPECT_THAT(NamesInList("update"), ElementsAre("MODTEST_beta", "MODTEST_gamma", "MODTEST_alpha"));
    int innerCalls = 0; // a hook may read its own class under the shared lock, an unsorted list included
    GAME_Mod::ForEachModule([&](GAME_Mod::Ptr& mod) {
        EXPECT_TRUE(GAME_Mod::GetModule(mod->name) == mod && GAME_Mod::Count() == 3u);
        GAME_Mod::ForEachSortedModule("update", [&](GAME_Mod::Ptr&) { ++innerCalls; });
        GAME_Mod::ForEachSortedModule("never sorted", [&](GAME_Mod::Ptr&) { ++innerCalls; });
    });
    EXPECT_EQ(innerCalls, 9);
}

TEST_F(ModuleTest, AnEmptyLoadCallbackNullKeysAndThrowingHooksLeaveTheTableUnlocked) {
    GAME_Mod::ModulesSetLoadCallback(GAME_Mod::ModuleCallback{});
    EXPECT_THROW(GAME_Mod::LoadModule("MODTEST_alpha", true), std::bad_function_call);
    EXPECT_TRUE(IsUnlocked<GAME_Mod>());
    GAME_Mod::ModulesSetLoadCallback([](GAME_Mod::Ptr) {});
    LoadAll();
    EXPECT_THROW(GAME_Mod::ForEachSortedModule(nullptr, [](GAME_Mod::Ptr&) {}), std::logic_error);
    EXPECT_THROW(GAME_Mod::SortModules(nullptr, ByPriority), std::logic_error);
    GAME_Mod::SortModules("update", ByPriority);
    auto const failingHook = [](GAME_Mod::Ptr&) { throw std::runtime_error("hook failed"); };
    EXPECT_THROW(GAME_Mod::ForEachModule(failingHook), std::runtime_error);
    EXPECT_THROW(GAME_Mod::ForEachSortedModule("update", failingHook), std::runtime_error);
    EXPECT_TRUE(IsUnlocked<GAME_Mod>());
}

// Hook walks from several threads at once, as the client, input, render and server
// loops do, while the main thread loads, sorts and unloads a module.
TEST_F(ModuleTest, HooksRunFromSeveralThreadsWhileAModuleIsLoadedSortedAndUnloaded) {
    ASSERT_NE(GAME_Mod::LoadModule("MODTEST_alpha", true), nullptr);
    GAME_Mod::SortModules("update", ByPriority);
    std::atomic<bool> done{false};
    std::atomic<long> passes{0}, calls{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t)
        threads.emplace_back([&, t] {
            std::string const unsortedKey = "unsorted " + std::to_string(t % 2); // made empty on first ask
            while (!done.load()) {
                GAME_Mod::ForEachModule([](GAME_Mod::Ptr& mod) { mod->Game_Update(0.5); });
                GAME_Mod::ForEachSortedModule("update", [&](GAME_Mod::Ptr& mod) { calls += mod->ModuleSort(); });
                GAME_Mod::ForEachSortedModule(unsortedKey.c_str(), [](GAME_Mod::Ptr&) { ADD_FAILURE(); });
                // A Ptr taken out of the table keeps its library open after an unload.
                if (GAME_Mod::Ptr const mod = GAME_Mod::GetModule("MODTEST_gamma")) {
                    std::this_thread::yield();
                    calls += mod->ModuleSort();
                }
                ++passes;
            }
        });
    for (int cycle = 0; cycle < 40; ++cycle) {
        ASSERT_NE(GAME_Mod::LoadModule("MODTEST_gamma", true), nullptr);
        GAME_Mod::SortModules("update", ByPriority);
        std::this_thread::yield();
        GAME_Mod::UnloadModule("MODTEST_gamma");
    }
    done.store(true);
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(std::tuple(GAME_Mod::Count(), recorder::EventsWith("MODTEST_alpha:Game_Update").size(),
                         recorder::EventsWith("MODTEST_gamma:ModuleUnload").size()),
              std::tuple(1u, static_cast<size_t>(passes.load()), 40u));
    EXPECT_GT(calls.load(), 0);
}

} // namespace
} // namespace game::modules::testing
