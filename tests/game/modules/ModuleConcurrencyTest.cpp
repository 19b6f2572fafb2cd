// Hook walks from several threads at once, as the client, input, render and server
// loops do, with loads, unloads and sorts in between.
#include "ModuleTestSupport.hpp"

#include <algorithm>
#include <atomic>
#include <thread>

namespace game::modules::testing {
namespace {

bool ByPriority(GAME_Mod::Ptr a, GAME_Mod::Ptr b) { return a->ModuleSort() < b->ModuleSort(); }

using ModuleConcurrencyTest = ModuleTest;

TEST_F(ModuleConcurrencyTest, HooksRunFromSeveralThreadsAtOnce) {
    ASSERT_NE(GAME_Mod::LoadModule("MODTEST_alpha", true), nullptr);
    ASSERT_NE(GAME_Mod::LoadModule("MODTEST_beta", true), nullptr);
    GAME_Mod::SortModules("update", ByPriority);
    recorder::Clear();
    constexpr int kThreads = 4, kPasses = 300;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t] {
            // Each thread also asks for a list nobody sorted, which records it as empty.
            std::string const unsortedKey = "unsorted " + std::to_string(t % 2);
            for (int pass = 0; pass < kPasses; ++pass) {
                GAME_Mod::ForEachModule([](GAME_Mod::Ptr& mod) { mod->Game_Update(0.5); });
                GAME_Mod::ForEachSortedModule("update", [](GAME_Mod::Ptr& mod) { mod->Renderer_FrameUpdate(); });
                GAME_Mod::ForEachSortedModule(unsortedKey.c_str(), [](GAME_Mod::Ptr&) { ADD_FAILURE(); });
            }
        });
    // A further thread keeps rebuilding another list meanwhile.
    threads.emplace_back([] {
        for (int pass = 0; pass < kPasses; ++pass) GAME_Mod::SortModules("render", ByPriority);
    });
    for (std::thread& thread : threads) thread.join();
    // Two modules, two hooks each per pass.
    EXPECT_EQ(recorder::Events().size(), size_t{kThreads} * kPasses * 2 * 2);
}

TEST_F(ModuleConcurrencyTest, LoadAndUnloadWhileOtherThreadsCallHooks) {
    ASSERT_NE(GAME_Mod::LoadModule("MODTEST_alpha", true), nullptr);
    std::atomic<bool> done{false};
    std::atomic<long> calls{0};
    std::vector<std::thread> readers;
    for (int t = 0; t < 2; ++t)
        readers.emplace_back([&] {
            while (!done.load()) {
                GAME_Mod::ForEachModule([&](GAME_Mod::Ptr& mod) { calls += mod->ModuleSort(); });
                // A Ptr taken out of the table keeps its library open after an unload.
                if (GAME_Mod::Ptr const mod = GAME_Mod::GetModule("MODTEST_gamma")) {
                    std::this_thread::yield();
                    calls += mod->ModuleSort();
                }
                std::this_thread::yield();
            }
        });
    for (int cycle = 0; cycle < 40; ++cycle) {
        ASSERT_NE(GAME_Mod::LoadModule("MODTEST_gamma", true), nullptr);
        GAME_Mod::SortModules("update", ByPriority);
        std::this_thread::yield();
        GAME_Mod::UnloadModule("MODTEST_gamma");
    }
    done.store(true);
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(GAME_Mod::Count(), 1u);
    // Every load of gamma was matched by its unload, after the last Ptr went away.
    Events const events = recorder::Events();
    EXPECT_EQ(std::count(events.begin(), events.end(), "MODTEST_gamma:ModuleLoad"), 40);
    EXPECT_EQ(std::count(events.begin(), events.end(), "MODTEST_gamma:ModuleUnload"), 40);
    EXPECT_GT(calls.load(), 0);
}

} // namespace
} // namespace game::modules::testing
