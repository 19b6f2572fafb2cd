#include "GameTestFixture.hpp"

#include <chrono>
#include <map>
#include <stdexcept>
#include <thread>

namespace gametest {
namespace {

using ServerTickTest = GameTest;

std::map<std::string, uint64_t> ScopeCounts() {
    std::map<std::string, uint64_t> counts;
    nerox::cpu::Profiler::ForEach([&](std::string const&, std::string const& path,
                                      nerox::cpu::Profiler::Profile const& profile) { counts[path] += profile.count; });
    return counts;
}

double NowSeconds() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

TEST_F(ServerTickTest, ServerHooksRunAroundTheEntityStagesInsideTheirScopesAndClientModulesAreLeftOut) {
    ASSERT_TRUE(LoadClientRecorder());
    ASSERT_TRUE(LoadServerRecorder());
    // The measuring branch runs the same stages.
    for (bool metrics : {false, true}) {
        SCOPED_TRACE(metrics);
        recorder::Clear();
        nerox::cpu::Profiler::Reset();
        Game::serverSideEntityPerformanceMetrics = metrics;
        Game::ServerUpdate(0.25, 4);
        Game::serverSideEntityPerformanceMetrics = false;
        EXPECT_EQ(recorder::Events(),
                  (std::vector<std::string>{
                      "SERVER_Mod:Server_BeforeUpdate(0.25 in ServerUpdate/ForEachModule::Server_BeforeUpdate)",
                      "SERVER_Mod:Server_GameUpdate(0.25 in ServerUpdate/ForEachModule::Server_AfterUpdate)"}));
        auto counts = ScopeCounts();
        for (char const* scope : {"", "/ForEachModule::Server_BeforeUpdate", "/ForEachEntity::BeforeUpdate",
                                  "/ForEachEntity::Update", "/ForEachEntity::AfterUpdate",
                                  "/ForEachModule::Server_AfterUpdate"})
            EXPECT_EQ(counts[std::string("ServerUpdate") + scope], 1u) << scope;
    }
}

TEST_F(ServerTickTest, TimestampFollowsTheClockPlusOffsetOnlyWhileTimeIsActive) {
    Game::timeOffset = 1000.0;
    double before = NowSeconds();
    Game::ServerUpdate(0.1, 1);
    double after = NowSeconds();
    EXPECT_GE(Game::timestamp, before + 1000.0 - 1e-3);
    EXPECT_LE(Game::timestamp, after + 1000.0 + 1e-3);

    Game::timeActive = false;
    double frozen = Game::timestamp;
    Game::timeOffset = -5000.0;
    Game::ServerUpdate(0.1, 1);
    EXPECT_EQ(Game::timestamp, frozen);
}

TEST_F(ServerTickTest, AHookExceptionLeavesTheTickAndReleasesTheModuleLock) {
    ASSERT_TRUE(LoadServerRecorder());
    recorder::ThrowIn("Server_BeforeUpdate");
    EXPECT_THROW(Game::ServerUpdate(0.1, 1), std::runtime_error);

    // The shared lock was released by the unwinding: an exclusive operation works.
    SERVER_Mod::UnloadModule(recorderName);
    EXPECT_EQ(SERVER_Mod::Count(), 0u);

    // The profiler scopes were closed too: the next tick nests from the top again.
    ASSERT_TRUE(LoadServerRecorder());
    Game::ServerUpdate(0.1, 1);
    EXPECT_EQ(EventsWith("SERVER_Mod:").front(),
              "SERVER_Mod:Server_BeforeUpdate(0.1 in ServerUpdate/ForEachModule::Server_BeforeUpdate)");
}

TEST_F(ServerTickTest, ServerTicksRunAlongsideClientPasses) {
    ASSERT_TRUE(LoadServerRecorder());
    ASSERT_TRUE(LoadClientRecorder());
    GAME_Mod::SortModules("update", [](GAME_Mod::Ptr a, GAME_Mod::Ptr b) { return a->name < b->name; });

    std::atomic<bool> serverDone{false};
    std::thread server([&] {
        for (int i = 0; i < 200; ++i) Game::ServerUpdate(0.01, 1);
        serverDone = true;
    });
    int passes = 0;
    while (!serverDone || passes < 10) {
        Game::Synchronize([] {});
        Game::Update(0.0);
        Game::ClientUpdate();
        ++passes;
    }
    server.join();
    EXPECT_EQ(EventsWith("SERVER_Mod:Server_GameUpdate").size(), 200u);
    EXPECT_EQ(EventsWith("GAME_Mod:Game_ClientUpdate").size(), static_cast<size_t>(passes));
}

} // namespace
} // namespace gametest
