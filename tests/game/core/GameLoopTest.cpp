// The game's passes, its server tick, its start and stop, input modes and interface style.
#include "GameTestFixture.hpp"

#include "game/GameSettings.hpp"
#include "game/audio/EnvironmentAudio.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "nerox/audio/Studio.hpp"
#include "nerox/graphics/HeadlessWindow.hpp"
#include "support/TempDir.hpp"

#include <imgui.h>

#include <functional>
#include <map>
#include <thread>

namespace gametest {
namespace {

using ClientPassTest = GameTest;

TEST_F(ClientPassTest, SynchronizedWorkRunsFirstThenTheSortedUpdateListAndTheClientAndInputPasses) {
    ASSERT_TRUE(LoadRecorder());
    Game::Synchronize([] { recorder::Record("sync"); });
    Game::Update(0.0); // the update list was never sorted: only the synchronized work runs
    SortUpdateList();
    Game::Update(0.0);
    Game::ClientUpdate();
    Game::InputUpdate(0.5);
    Game::InputUpdate_Play(0.25);
    Game::InputUpdate_Station(0.125);
    Events events = recorder::Events();
    ASSERT_EQ(events.size(), 6u);
    events[1].erase(events[1].find('(')); // the delta time of the render loop
    EXPECT_EQ(events,
              (Events{"sync", "GAME_Mod:Game_Update", "GAME_Mod:Game_ClientUpdate", "GAME_Mod:Input_Update(0.5)",
                      "GAME_Mod:Input_Update_Play(0.25)", "GAME_Mod:Input_Update_Station(0.125)"}));
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
    Game::audio = &studio; // no settings: the master volume is 1
    Game::Update(0.0);
    Game::Update(0.0);
    EXPECT_EQ(std::tuple(studio.GetVolume("bus:/"), studio.GetUpdateCount()), std::tuple(0.5f, 2u));
}

using ServerTickTest = GameTest;

TEST_F(ServerTickTest, ServerHooksRunAroundTheEntityStagesInsideTheirScopesAndClientModulesAreLeftOut) {
    ASSERT_TRUE(LoadRecorder());
    ASSERT_TRUE(LoadRecorder<SERVER_Mod>());
    using game::entity::ServerSideEntity;
    ServerSideEntity::Ptr vehicle = ServerSideEntity::Spawn(nerox::modular::ModuleID("TEST_absent"), "hull");
    ServerSideEntity::Ptr part = ServerSideEntity::Spawn(nerox::modular::ModuleID("TEST_absent"), "part");
    vehicle->AddChild(part);
    // The measuring branch runs the same stages and books the part into its vehicle.
    for (bool metrics : {false, true}) {
        SCOPED_TRACE(metrics);
        recorder::Clear();
        nerox::cpu::Profiler::Reset();
        Game::serverSideEntityPerformanceMetrics = metrics;
        Game::ServerUpdate(0.25, 4);
        Game::serverSideEntityPerformanceMetrics = false;
        EXPECT_EQ(recorder::Events(),
                  (Events{"SERVER_Mod:Server_BeforeUpdate(0.25 in ServerUpdate/ForEachModule::Server_BeforeUpdate)",
                          "SERVER_Mod:Server_GameUpdate(0.25 in ServerUpdate/ForEachModule::Server_AfterUpdate)"}));
        std::map<std::string, uint64_t> counts;
        nerox::cpu::Profiler::ForEach(
            [&](std::string const&, std::string const& path, auto const& p) { counts[path] += p.count; });
        for (char const* scope :
             {"", "/ForEachModule::Server_BeforeUpdate", "/ForEachEntity::BeforeUpdate", "/ForEachEntity::Update",
              "/ForEachEntity::AfterUpdate", "/ForEachModule::Server_AfterUpdate"})
            EXPECT_EQ(counts[std::string("ServerUpdate") + scope], 1u) << scope;
    }
    EXPECT_EQ(std::tuple(Game::_serverSideEntityPerformance_timers.size(),
                         Game::serverSideEntityPerformance_avg_time.count(vehicle->id)),
              std::tuple(1u, 1u));
    Game::_serverSideEntityPerformance_timers.clear(), Game::serverSideEntityPerformance_avg_time.clear();
    ServerSideEntity::DestroyAll();
}

using LifecycleTest = GameTest;

TEST_F(LifecycleTest, ARunLoadsTheContentModulesAfterGameStartAndCanBeRepeated) {
    ASSERT_TRUE(LoadRecorder());
    Game::_mods = {"TEST_missing", recorderName};
    for (int run = 0; run < 2; ++run) {
        SCOPED_TRACE(run);
        recorder::Clear();
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        Game::Start();
        EXPECT_TRUE(Game::environmentAudio && TESSARA_Mod::Count() == 1u);
        Game::Ready();
        Game::Stop();
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "a missing content module is skipped silently";
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  "Shader compilation may take several minutes before starting the game "
                  "the first time or after an update...\nStarting game...\n");
        EXPECT_EQ(
            recorder::Events(),
            (Events{"GAME_Mod:Game_Start", "TESSARA_Mod:ModuleLoad", "TESSARA_Mod:Load(scratch)", "GAME_Mod:Game_Ready",
                    "TESSARA_Mod:Unload(scratch)", "TESSARA_Mod:ModuleUnload", "GAME_Mod:Game_Stop"}));
    }
}

TEST_F(LifecycleTest, StopResetsTheRunStateButKeepsClientAndServerModules) {
    ASSERT_TRUE(LoadRecorder());
    ASSERT_TRUE(LoadRecorder<SERVER_Mod>());
    Game::_mods = {recorderName};
    testing::internal::CaptureStdout();
    Game::Start();
    testing::internal::GetCapturedStdout();
    nerox::graphics::HeadlessWindow window;
    Game::window = &window;
    Game::SetInputMode_Station();
    Game::environmentIsLoaded = Game::settingsWindowOpen = Game::adminWindowOpen = true;
    std::tie(Game::parentEnvironmentId, Game::relativeEnvironmentId, Game::uiVisible) = std::tuple(7u, 9u, false);
    Game::_joysticks[0] = nullptr;
    Game::config.Parse(std::string("world: demo\n"));
    Game::Stop();
    EXPECT_EQ(std::tuple(TESSARA_Mod::Count(), GAME_Mod::Count(), SERVER_Mod::Count()), std::tuple(0u, 1u, 1u));
    EXPECT_EQ(std::tuple(Game::parentEnvironmentId, Game::relativeEnvironmentId, int(Game::_inputMode)),
              std::tuple(0u, 0u, 0));
    EXPECT_FALSE(Game::environmentAudio || Game::environmentIsLoaded || Game::_mouseLook || Game::settingsWindowOpen ||
                 Game::adminWindowOpen || Game::config["world"] || !Game::_joysticks.empty() || !Game::uiVisible);
    EXPECT_EQ(window.GetInputMode(GLFW_CURSOR), GLFW_CURSOR_DISABLED) << "Stop leaves the cursor as it was";
    EXPECT_EQ(Game::_mods, Events{recorderName}) << "the module list is the host's";
}

class InputModeTest : public GameTest {
protected:
    void SetUp() override {
        GameTest::SetUp();
        Game::window = &window;
    }
    nerox::graphics::HeadlessWindow window;
};

TEST_F(InputModeTest, ModesInAFocusedWindowCaptureTheCursorAtTheOriginExceptTheInterfaceMode) {
    struct Case {
        char const* name;
        void (*enter)();
        int mode;
        bool mouseLook;
    };
    for (Case const& c :
         {Case{"play", &Game::SetInputMode_Play, 1, true}, Case{"ui", &Game::SetInputMode_Ui, 0, false},
          Case{"station", &Game::SetInputMode_Station, 2, true}, Case{"ui", &Game::SetInputMode_Ui, 0, false},
          Case{"Play", &Game::Play, 1, true}, Case{"Pause does nothing", &Game::Pause, 1, true}}) {
        window.SetCursorPos(300.0, 200.0);
        c.enter();
        double x = -1, y = -1;
        window.GetCursorPos(&x, &y);
        EXPECT_EQ(std::tuple(int(Game::_inputMode), bool(Game::_mouseLook), window.GetInputMode(GLFW_CURSOR),
                             x == 0.0 && y == 0.0),
                  std::tuple(c.mode, c.mouseLook, c.mouseLook ? GLFW_CURSOR_DISABLED : GLFW_CURSOR_NORMAL,
                             c.mouseLook && c.enter != &Game::Pause))
            << c.name;
    }
}

TEST_F(InputModeTest, MouseLookNeedsAFocusedWindow) {
    window.SetFocused(false);
    Game::SetInputMode_Play();
    EXPECT_FALSE(Game::_mouseLook);
}

// A Dear ImGui context with a built font atlas, plus settings in a scratch file.
class UiStyleTest : public InputModeTest {
protected:
    void SetUp() override {
        InputModeTest::SetUp();
        context = ImGui::CreateContext();
        ImGui::GetIO().DisplaySize = ImVec2(1024, 768);
        ImGui::GetIO().IniFilename = nullptr;
        ImGui::GetIO().Fonts->Build();
        Game::settings = std::make_unique<game::GameSettings>(scratch.File("settings.ini"), std::nullopt);
    }
    void TearDown() override {
        ImGui::DestroyContext(context);
        InputModeTest::TearDown();
    }
    ImGuiContext* context = nullptr;
    testsupport::TempDir scratch;
};

TEST_F(UiStyleTest, TheStyleIsScaledToWholePixelsButNotItsBordersAndFontsFallBackWhenTheGameFontIsMissing) {
    Game::settings->ui_scaling = 1.5f;
    Game::SetupUiStyle();
    ImGuiStyle const& style = ImGui::GetStyle();
    EXPECT_EQ(std::tuple(style.WindowPadding.x, style.WindowBorderSize, style.WindowMinSize.x, style.FramePadding.y,
                         style.FrameRounding, ImGui::GetIO().FontGlobalScale, Game::GetUiScaling()),
              std::tuple(15.0f, 2.0f, 450.0f, 7.0f, 6.0f, 0.75f, 1.5f));
    // Without a context nothing is drawn and the scale comes from the settings.
    ImGui::SetCurrentContext(nullptr);
    Game::settings->ui_scaling = 2.0f;
    EXPECT_TRUE(Game::GetUiScaling() == 2.0f && !Game::ShowHelpTooltip());
    Game::SetupUiStyle();
    Game::LoadFonts();
    ImGui::SetCurrentContext(context);
    ImGui::GetIO().Fonts->Clear();
    testing::internal::CaptureStderr(); // the game's font is not in the run folder
    Game::LoadFonts();
    EXPECT_NE(testing::internal::GetCapturedStderr().find("SourceCodePro-Semibold.otf"), std::string::npos);
    EXPECT_EQ(ImGui::GetIO().Fonts->ConfigData.Size, 2); // the fallback, then the inventory windows' font
}

TEST_F(UiStyleTest, TheHelpTooltipShowsOnlyWhileLookingWithTheSettingOn) {
    ImGui::NewFrame();
    EXPECT_FALSE(Game::ShowHelpTooltip()) << "mouse look is off";
    Game::SetMouseLook(true);
    EXPECT_TRUE(Game::ShowHelpTooltip());
    Game::settings->show_help_tooltips = false;
    EXPECT_FALSE(Game::ShowHelpTooltip());
    ImGui::EndFrame();
}

} // namespace
} // namespace gametest
