#include "GameTestFixture.hpp"

#include "game/Options.hpp"
#include "game/audio/EnvironmentAudio.hpp"
#include "nerox/graphics/HeadlessWindow.hpp"

namespace gametest {
namespace {

using LifecycleTest = GameTest;

TEST_F(LifecycleTest, StartRunsClientModulesThenLoadsTheContentModulesAndSkipsMissingOnesSilently) {
    ASSERT_TRUE(LoadClientRecorder());
    recorder::Clear();
    Game::_mods = {"TEST_missing", recorderName};

    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Game::Start();
    std::string out = testing::internal::GetCapturedStdout();
    std::string err = testing::internal::GetCapturedStderr();

    EXPECT_NE(Game::environmentAudio, nullptr);
    EXPECT_EQ(err, "") << "a content module that fails to load is not reported";
    EXPECT_NE(out.find("Shader compilation may take several minutes before starting the game the first time or "
                       "after an update...\n"),
              std::string::npos);
    EXPECT_EQ(recorder::Events(),
              (std::vector<std::string>{"GAME_Mod:Game_Start", "TESSARA_Mod:ModuleLoad", "TESSARA_Mod:Load(scratch)"}));
    EXPECT_EQ(TESSARA_Mod::Count(), 1u);
    EXPECT_EQ(TESSARA_Mod::GetModule("TEST_missing"), nullptr);
    Game::Stop();
}

TEST_F(LifecycleTest, ReadyAnnouncesTheGameAndCallsGameReady) {
    ASSERT_TRUE(LoadClientRecorder());
    recorder::Clear();
    testing::internal::CaptureStdout();
    Game::Ready();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Starting game...\n");
    EXPECT_EQ(recorder::Events(), std::vector<std::string>{"GAME_Mod:Game_Ready"});
}

TEST_F(LifecycleTest, StopUnloadsContentModulesBeforeGameStopAndResetsTheRunState) {
    ASSERT_TRUE(LoadClientRecorder());
    ASSERT_TRUE(LoadServerRecorder());
    Game::_mods = {recorderName};
    testing::internal::CaptureStdout();
    Game::Start();
    testing::internal::GetCapturedStdout();

    nerox::graphics::HeadlessWindow window;
    Game::window = &window;
    Game::SetInputMode_Station();
    ASSERT_TRUE(Game::_mouseLook);
    Game::environmentIsLoaded = true;
    Game::parentEnvironmentId = 7;
    Game::relativeEnvironmentId = 9;
    Game::settingsWindowOpen = true;
    Game::adminWindowOpen = true;
    Game::uiVisible = false;
    Game::_joysticks[0] = nullptr;
    Game::config.Parse(std::string("world: demo\n"));
    ASSERT_EQ(Game::config["world"].AsString(), "demo");
    recorder::Clear();

    Game::Stop();

    EXPECT_EQ(recorder::Events(), (std::vector<std::string>{"TESSARA_Mod:Unload(scratch)", "TESSARA_Mod:ModuleUnload",
                                                           "GAME_Mod:Game_Stop"}));
    EXPECT_EQ(TESSARA_Mod::Count(), 0u);
    EXPECT_EQ(GAME_Mod::Count(), 1u) << "client and server modules stay loaded across Stop";
    EXPECT_EQ(SERVER_Mod::Count(), 1u);
    EXPECT_EQ(Game::environmentAudio, nullptr);
    EXPECT_FALSE(Game::environmentIsLoaded);
    EXPECT_EQ(Game::parentEnvironmentId, 0u);
    EXPECT_EQ(Game::relativeEnvironmentId, 0u);
    EXPECT_EQ(Game::_inputMode, 0);
    EXPECT_FALSE(Game::_mouseLook);
    EXPECT_EQ(window.GetInputMode(GLFW_CURSOR), GLFW_CURSOR_DISABLED) << "Stop leaves the cursor as it was";
    EXPECT_TRUE(Game::_joysticks.empty());
    EXPECT_FALSE(Game::config["world"]) << "the configuration is cleared";
    EXPECT_FALSE(Game::settingsWindowOpen);
    EXPECT_FALSE(Game::adminWindowOpen);
    EXPECT_TRUE(Game::uiVisible);
    EXPECT_EQ(Game::_mods, std::vector<std::string>{recorderName}) << "the module list is the host's";
}

TEST_F(LifecycleTest, ARunCanBeRepeatedInOneProcess) {
    ASSERT_TRUE(LoadClientRecorder());
    Game::_mods = {recorderName};
    for (int run = 0; run < 2; ++run) {
        recorder::Clear();
        testing::internal::CaptureStdout();
        Game::Start();
        Game::Ready();
        Game::Stop();
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(IndexOf(recorder::Events(), "TESSARA_Mod:Load(scratch)"), 2) << "run " << run;
        EXPECT_NE(IndexOf(recorder::Events(), "GAME_Mod:Game_Stop"), -1) << "run " << run;
    }
}

TEST_F(LifecycleTest, QuitClearsTheActiveFlagFreesTheCursorAndEmptiesTheOptions) {
    nerox::graphics::HeadlessWindow window;
    Game::window = &window;
    Game::SetMouseLook(true);
    ASSERT_TRUE(Game::_mouseLook);
    game::Options::Set("volume", 3.5);
    Game::isActive = true;

    Game::Quit();

    EXPECT_FALSE(Game::isActive.load());
    EXPECT_FALSE(Game::_mouseLook);
    EXPECT_EQ(window.GetInputMode(GLFW_CURSOR), GLFW_CURSOR_NORMAL);
    EXPECT_EQ(game::Options::Get<double>("volume", -1.0), -1.0);
}

TEST_F(LifecycleTest, OptionsOfAnotherTypeRaiseBadAnyCast) {
    game::Options::Set("count", 3);
    EXPECT_THROW(game::Options::Get<double>("count", 0.0), std::bad_any_cast);
    EXPECT_EQ(game::Options::Get<int>("count", 0), 3);
    game::Options::Clear();
}

} // namespace
} // namespace gametest
