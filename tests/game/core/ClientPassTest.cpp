#include "GameTestFixture.hpp"

#include "game/GameSettings.hpp"
#include "nerox/audio/Studio.hpp"
#include "support/TempDir.hpp"

#include <chrono>
#include <functional>
#include <thread>

namespace gametest {
namespace {

using ClientPassTest = GameTest;

void SortUpdateList() {
    GAME_Mod::SortModules("update", [](GAME_Mod::Ptr a, GAME_Mod::Ptr b) { return a->name < b->name; });
}

TEST_F(ClientPassTest, GameUpdateRunsTheSynchronizedWorkOnceThenTheModulesOfTheSortedUpdateList) {
    ASSERT_TRUE(LoadClientRecorder());
    Game::Synchronize([] { recorder::Record("sync:first"); });
    Game::Synchronize([] { recorder::Record("sync:second"); });
    Game::Update(0.0);
    EXPECT_EQ(recorder::Events(), (std::vector<std::string>{"sync:first", "sync:second"})) << "never sorted";
    SortUpdateList();
    Game::Update(0.0);
    auto events = recorder::Events();
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[2].rfind("GAME_Mod:Game_Update(", 0), 0u);

    // After an unload and a fresh load the module is in no list until the next sort.
    GAME_Mod::UnloadModule(recorderName);
    ASSERT_TRUE(LoadClientRecorder());
    Game::Update(0.0);
    EXPECT_TRUE(recorder::Events().empty());
}

TEST_F(ClientPassTest, ClientAndInputPassesReachEveryModuleWithoutSorting) {
    ASSERT_TRUE(LoadClientRecorder());
    Game::ClientUpdate();
    Game::InputUpdate(0.5);
    Game::InputUpdate_Play(0.25);
    Game::InputUpdate_Station(0.125);
    EXPECT_EQ(recorder::Events(),
              (std::vector<std::string>{"GAME_Mod:Game_ClientUpdate", "GAME_Mod:Input_Update(0.5)",
                                        "GAME_Mod:Input_Update_Play(0.25)", "GAME_Mod:Input_Update_Station(0.125)"}));
}

TEST_F(ClientPassTest, DeltaTimeMovesHalfWayTowardsTheRenderLoopsDeltaWhateverTheArgument) {
    ASSERT_TRUE(LoadClientRecorder());
    SortUpdateList();
    Game::mainRenderingFramerate.Tick();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    Game::mainRenderingFramerate.Tick();
    double const frame = Game::mainRenderingFramerate.GetDeltaTime();
    ASSERT_GT(frame, 0.0);

    // Each pass closes half of the remaining distance; the argument changes nothing.
    std::vector<double> seen;
    for (double argument : {0.0, 1.0, -7.0}) {
        Game::Update(argument);
        std::string const event = EventsWith("GAME_Mod:Game_Update(").back();
        seen.push_back(std::stod(event.substr(event.find('(') + 1)));
    }
    EXPECT_NEAR(seen[1] - frame, 0.5 * (seen[0] - frame), 1e-6 * frame);
    EXPECT_NEAR(seen[2] - frame, 0.5 * (seen[1] - frame), 1e-6 * frame);
}

TEST_F(ClientPassTest, AnEmptySynchronizedFunctionThrowsAndLeavesTheQueueUsable) {
    bool ran = false;
    Game::Synchronize(std::function<void()>());
    EXPECT_THROW(Game::Update(0.0), std::bad_function_call);
    {
        // The mutex was released by the unwinding and the queue still holds the entry.
        std::unique_lock lock(Game::_syncMutex, std::try_to_lock);
        ASSERT_TRUE(lock.owns_lock());
        EXPECT_EQ(Game::_syncQueue.size(), 1u);
        Game::_syncQueue.clear();
    }
    Game::Synchronize([&] { ran = true; });
    Game::Update(0.0);
    EXPECT_TRUE(ran);
}

TEST_F(ClientPassTest, SynchronizeIsSafeFromManyThreads) {
    std::atomic<int> runs{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 250; ++i) Game::Synchronize([&] { ++runs; });
        });
    for (auto& thread : threads) thread.join();
    Game::Update(0.0);
    EXPECT_EQ(runs.load(), 1000);
}

TEST_F(ClientPassTest, AudioGetsHalfTheMasterVolumeOnTheMainBusAndOneUpdatePerPass) {
    nerox::audio::Studio studio;
    Game::audio = &studio;
    testsupport::TempDir scratch;
    Game::settings = std::make_unique<game::GameSettings>(scratch.File("settings.ini"), std::nullopt);
    Game::settings->master_volume = 0.8f;
    Game::Update(0.0);
    Game::Update(0.0);
    EXPECT_FLOAT_EQ(studio.GetVolume("bus:/"), 0.4f);
    EXPECT_EQ(studio.GetUpdateCount(), 2u);
}

} // namespace
} // namespace gametest
