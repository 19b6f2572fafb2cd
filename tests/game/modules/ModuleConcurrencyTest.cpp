// Hook walks from several threads at once, as the client, input, render and server
// loops do, with loads, unloads and sorts in between.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "ModuleTestSupport.hpp"

namespace game::modules::testing {
namespace {

using UpdateCountFunction = long (*)();

// Sum of the update counters of the loaded fixture libraries.
long TotalUpdateCount() {
    long total = 0;
    GAME_Mod::ForEachModule([&](GAME_Mod::Ptr& mod) {
        auto const count = reinterpret_cast<UpdateCountFunction>(dlsym(mod->handle, "Fixture_UpdateCount"));
        if (count != nullptr) total += count();
    });
    return total;
}

bool ByPriority(GAME_Mod::Ptr a, GAME_Mod::Ptr b) { return a->ModuleSort() < b->ModuleSort(); }

class ModuleConcurrencyTest : public ModuleTest {};

TEST_F(ModuleConcurrencyTest, HooksRunFromSeveralThreadsAtOnce) {
    ASSERT_NE(GAME_Mod::LoadModule("MODTEST_alpha", true), nullptr);
    ASSERT_NE(GAME_Mod::LoadModule("MODTEST_beta", true), nullptr);
    GAME_Mod::SortModules("update", ByPriority);
    long const before = TotalUpdateCount();

    constexpr int kThreads = 4;
    constexpr int kPasses = 300;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            // Each thread also asks for a list nobody sorted, which records it as empty.
            std::string const unsortedKey = "unsorted " + std::to_string(t % 2);
            for (int pass = 0; pass < kPasses; ++pass) {
                GAME_Mod::ForEachModule([](GAME_Mod::Ptr& mod) {
                    if (mod->Game_Update) mod->Game_Update(1.0 / 60.0);
                });
                GAME_Mod::ForEachSortedModule("update", [](GAME_Mod::Ptr& mod) {
                    if (mod->Renderer_FrameUpdate) mod->Renderer_FrameUpdate();
                });
                GAME_Mod::ForEachSortedModule(unsortedKey.c_str(), [](GAME_Mod::Ptr&) { ADD_FAILURE(); });
            }
        });
    }
    // A further thread keeps rebuilding another list meanwhile.
    threads.emplace_back([] {
        for (int pass = 0; pass < kPasses; ++pass) GAME_Mod::SortModules("render", ByPriority);
    });
    for (std::thread& thread : threads) thread.join();

    // Two modules, two hooks each per pass.
    EXPECT_EQ(TotalUpdateCount() - before, long{kThreads} * kPasses * 2 * 2);
    EXPECT_EQ(GAME_Mod::Count(), 2u);
}

TEST_F(ModuleConcurrencyTest, LoadAndUnloadWhileOtherThreadsCallHooks) {
    ASSERT_NE(GAME_Mod::LoadModule("MODTEST_alpha", true), nullptr);
    std::atomic<bool> done{false};

    std::vector<std::thread> readers;
    for (int t = 0; t < 2; ++t) {
        readers.emplace_back([&] {
            while (!done.load()) {
                GAME_Mod::ForEachModule([](GAME_Mod::Ptr& mod) {
                    if (mod->Game_Update) mod->Game_Update(0.01);
                });
                // A Ptr taken out of the table keeps its library open after an unload.
                if (GAME_Mod::Ptr const mod = GAME_Mod::GetModule("MODTEST_gamma")) {
                    std::this_thread::yield();
                    mod->Game_Update(0.01);
                }
                std::this_thread::yield();
            }
        });
    }
    for (int cycle = 0; cycle < 40; ++cycle) {
        ASSERT_NE(GAME_Mod::LoadModule("MODTEST_gamma", true), nullptr);
        GAME_Mod::SortModules("update", ByPriority);
        std::this_thread::yield();
        GAME_Mod::UnloadModule("MODTEST_gamma");
    }
    done.store(true);
    for (std::thread& reader : readers) reader.join();

    EXPECT_EQ(GAME_Mod::GetModule("MODTEST_gamma"), nullptr);
    EXPECT_EQ(GAME_Mod::Count(), 1u);
    // Every load of gamma was matched by its unload, after the last Ptr went away.
    int loads = 0;
    int unloads = 0;
    for (std::string const& event : RecordedEvents()) {
        if (event == "MODTEST_gamma:ModuleLoad") ++loads;
        if (event == "MODTEST_gamma:ModuleUnload") ++unloads;
    }
    EXPECT_EQ(loads, 40);
    EXPECT_EQ(unloads, 40);
}

} // namespace
} // namespace game::modules::testing
