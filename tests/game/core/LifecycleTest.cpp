#include "GameTestFixture.hpp"

#include "game/Options.hpp"
#include "game/audio/EnvironmentAudio.hpp"
#include "nerox/graphics/HeadlessWindow.hpp"

namespace gametest {
namespace {

using LifecycleTest = GameTest;

TEST_F(LifecycleTest, ARunLoadsTheContentModulesAfterGameStartAndCanBeRepeated) {
    ASSERT_TRUE(LoadClientRecorder());
    Game::_mods = {"TEST_missing", recorderName};
    for (int run = 0; run < 2; ++run) {
        SCOPED_TRACE(run);
        recorder::Clear();
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        Game::Start();
        EXPECT_NE(Game::environmentAudio, nullptr);
        EXPECT_EQ(TESSARA_Mod::Count(), 1u);
        Game::Ready();
        Game::Stop();
        std::string out = testing::internal::GetCapturedStdout();
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "a missing content module is skipped silently";
        EXPECT_EQ(out, "Shader compilation may take several minutes before starting the game the first time or "
                       "after an update...\nStarting game...\n");
        // Content modules are unloaded before Game_Stop.
        EXPECT_EQ(recorder::Events(),
                  (std::vector<std::string>{"GAME_Mod:Game_Start", "TESSARA_Mod:ModuleLoad",
                                            "TESSARA_Mod:Load(scratch)", "GAME_Mod:Game_Ready",
                                            "TESSARA_Mod:Unload(scratch)", "TESSARA_Mod:ModuleUnload",
                                            "GAME_Mod:Game_Stop"}));
    }
}

TEST_F(LifecycleTest, StopResetsTheRunStateButKeepsClientAndServerModules) {
    ASSERT_TRUE(LoadClientRecorder());
    ASSERT_TRUE(LoadServerRecorder());
    Game::_mods = {recorderName};
    testing::internal::CaptureStdout();
    Game::Start();
    testing::internal::GetCapturedStdout();

    nerox::graphics::HeadlessWindow window;
    Game::window = &window;
    Game::SetInputMode_Station();
    Game::environmentIsLoaded = true;
    Game::parentEnvironmentId = 7;
    Game::relativeEnvironmentId = 9;
    Game::settingsWindowOpen = Game::adminWindowOpen = true;
    Game::uiVisible = false;
    Game::_joysticks[0] = nullptr;
    Game::config.Parse(std::string("world: demo\n"));
    ASSERT_EQ(Game::config["world"].AsString(), "demo");

    Game::Stop();
    EXPECT_EQ(TESSARA_Mod::Count(), 0u);
    EXPECT_EQ(GAME_Mod::Count(), 1u);
    EXPECT_EQ(SERVER_Mod::Count(), 1u);
    EXPECT_EQ(Game::environmentAudio, nullptr);
    EXPECT_FALSE(Game::environmentIsLoaded);
    EXPECT_EQ(Game::parentEnvironmentId, 0u);
    EXPECT_EQ(Game::relativeEnvironmentId, 0u);
    EXPECT_EQ(Game::_inputMode, 0);
    EXPECT_FALSE(Game::_mouseLook);
    EXPECT_EQ(window.GetInputMode(GLFW_CURSOR), GLFW_CURSOR_DISABLED) << "Stop leaves the cursor as it was";
    EXPECT_TRUE(Game::_joysticks.empty());
    EXPECT_FALSE(Game::config["world"]);
    EXPECT_FALSE(Game::settingsWindowOpen || Game::adminWindowOpen);
    EXPECT_TRUE(Game::uiVisible);
    EXPECT_EQ(Game::_mods, std::vector<std::string>{recorderName}) << "the module list is the host's";
}

TEST_F(LifecycleTest, QuitClearsTheActiveFlagFreesTheCursorAndEmptiesTheOptions) {
    nerox::graphics::HeadlessWindow window;
    Game::window = &window;
    Game::SetMouseLook(true);
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
