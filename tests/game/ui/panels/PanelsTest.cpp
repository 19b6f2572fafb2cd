// The game's windows driven as a player drives them: a probe finds each control
// by its label, the pointer clicks it through ImGuiIO, and the settings (and,
// after "Save Settings", the file) must show the change. The function keys are
// pressed on the headless window.
#include "../ImGuiFixture.hpp"

#include "game/Game.hpp"
#include "game/GameSettings.hpp"
#include "game/Options.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "game/graphics/ui/Panels.hpp"
#include "game/input/FunctionKeys.hpp"
#include "nerox/cpu/Profiler.hpp"
#include "nerox/graphics/UiProbe.hpp"
#include "support/TempDir.hpp"

#include <imgui_internal.h>

#include <functional>
#include <memory>
#include <string>

namespace {

using game::GameSettings;
using game::graphics::ui::Panels;
using Column = Panels::Column;
using Binding = GameSettings::InputBinding;

class PanelsTest : public uitest::ImGuiTest {
protected:
    void SetUp() override {
        ImGuiTest::SetUp();
        probe = std::make_unique<nerox::graphics::UiProbe>();
        Game::settings = std::make_unique<GameSettings>(SettingsPath(), std::nullopt);
        panels = std::make_unique<Panels>(nullptr);
        panels->openLink = [this](char const* link) { opened = link; };
        Game::settingsWindowOpen = true;
    }
    void TearDown() override {
        panels.reset();
        probe.reset();
        Game::settings.reset();
        Game::settingsWindowOpen = Game::adminWindowOpen = false;
        Game::_mode = 0;
        Game::_joysticks.clear();
        game::Options::Clear();
        ImGuiTest::TearDown();
    }
    std::string SettingsPath() const { return dir.File("settings.ini"); }
    void AllowAdmin() {
        std::lock_guard lock(Game::settings->GetMutex());
        Game::settings->admin_privileges = true;
    }

    void Draw() {
        Frame([this] {
            Game::UpdateJoysticks();
            panels->Draw();
        });
    }
    /// The control after two frames: a tab bar places its tabs from what the frame before laid out.
    nerox::graphics::UiProbe::Item Find(std::string const& label, std::string const& window = "") {
        Draw();
        Draw();
        auto const* item = probe->Find(label, window);
        EXPECT_NE(item, nullptr) << "no control '" << label << "'";
        return item != nullptr ? *item : nerox::graphics::UiProbe::Item{};
    }
    /// Clicks a control at a fraction of its width (the middle by default).
    void Click(std::string const& label, float across = 0.5f, std::string const& window = "") {
        auto const item = Find(label, window);
        MouseTo(item.min.x + (item.max.x - item.min.x) * across, (item.min.y + item.max.y) * 0.5f);
        Draw();
        Mouse(0, true);
        Draw();
        Mouse(0, false);
        Draw();
    }
    void Tab(char const* name) { Click(name); }
    /// A copy of the settings' members, taken under their lock.
    template <class T> T Setting(T GameSettings::*member) { return Game::settings->Get(member); }
    std::unique_ptr<GameSettings> Reloaded() { return std::make_unique<GameSettings>(SettingsPath(), std::nullopt); }

    testsupport::TempDir dir;
    std::unique_ptr<nerox::graphics::UiProbe> probe;
    std::unique_ptr<Panels> panels;
    std::string opened;
};

// One control of each tab: clicking it changes its setting at once, and "Save
// Settings" puts the change into the file, which a new settings object reads.
TEST_F(PanelsTest, EachTabChangesItsSettingAndSaveWritesIt) {
    struct Case {
        char const* tab;
        char const* control;
        float across; // where on the control the click lands
        std::function<bool(GameSettings const&)> changed;
    };
    Case const cases[] = {
        {"Help##Settings", "Show Help Tooltips", 0.1f, [](auto const& s) { return !s.show_help_tooltips; }},
        {"Graphics##Settings", "V-Sync", 0.1f, [](auto const& s) { return s.vsync; }},
        {"Graphics##Settings", "Gamma", 0.99f, [](auto const& s) { return s.gamma > 2.9f; }},
        {"Audio##Settings", "Master Volume", 0.99f, [](auto const& s) { return s.master_volume > 0.95f; }},
        {"Audio##Settings", "Environment Volume", 0.01f, [](auto const& s) { return s.environment_volume < 0.05f; }},
        {"Input##Settings", "MouseLook Invert Y", 0.1f, [](auto const& s) { return s.avatar_mouselook_invert_y; }},
        {"Input##Settings", "Gamepad Axis Deadzone", 0.99f,
         [](auto const& s) { return s.input_gamepad_axis_deadzone > 0.9f; }},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.control);
        Tab(c.tab);
        Click(c.control, c.across);
        {
            std::lock_guard lock(Game::settings->GetMutex());
            EXPECT_TRUE(c.changed(*Game::settings)) << "in the settings";
        }
        EXPECT_FALSE(c.changed(*Reloaded())) << "in the file before saving";
        Click("Save Settings");
        EXPECT_TRUE(c.changed(*Reloaded())) << "in the file after saving";
    }
}

TEST_F(PanelsTest, ThePresetListAppliesItsTableAtOnce) {
    struct Case {
        int preset;
        int quality;
        float finalUpscale;
    };
    // Preset 0 (custom) keeps what the one before set.
    Case const cases[] = {{1, 1, 2.0f}, {5, 2, 1.0f}, {2, 1, 1.5f}, {6, 3, 1.0f}, {0, 3, 1.0f}};
    Tab("Graphics##Settings");
    for (Case const& c : cases) {
        SCOPED_TRACE(c.preset);
        Click("##graphics_preset");
        Click(game::graphics::GameRenderer::GraphicsPresetLabels[c.preset]);
        EXPECT_EQ(Setting(&GameSettings::graphics_preset), c.preset);
        EXPECT_EQ(Setting(&GameSettings::upscaling_quality_setting), c.quality);
        EXPECT_EQ(Setting(&GameSettings::final_upscale), c.finalUpscale);
    }
    // The custom preset shows the quality slider, labelled with the resolution's text.
    EXPECT_NE(Find("##Performance/Quality").id, 0u);
    EXPECT_FALSE(panels->styleChanged);
    Click("UI Scaling", 0.9f);
    EXPECT_TRUE(panels->styleChanged);
    EXPECT_GT(Setting(&GameSettings::ui_scaling), 2.0f);
}

TEST_F(PanelsTest, TheHelpTabFillsInTheBindingsAndOpensItsLinks) {
    {
        std::lock_guard lock(Game::settings->GetMutex());
        Game::settings->input_binding_avatar_jetpack.key = GLFW_KEY_H;
        Game::settings->input_binding_avatar_light.key = -1; // the mouse button, or nothing
    }
    Click("Tutorial Videos");
    EXPECT_EQ(opened, Panels::VideosLink);
    Click("Documentation");
    EXPECT_EQ(opened, Panels::DocumentationLink);
    // The help lines follow the bindings.
    std::string text;
    {
        std::lock_guard lock(Game::settings->GetMutex());
        for (std::string const& line : panels->HelpLines(*Game::settings)) text += line + "\n";
    }
    for (char const* line :
         {"Press H to toggle Jetpack", "Press (unbound) to toggle Headlamp", "Press 1 through 9 to select",
          "Click MOUSE_BUTTON_RIGHT to use tool's secondary", "Hold R for one second to exit a seat"})
        EXPECT_NE(text.find(line), std::string::npos) << line << " in\n" << text;
}

TEST_F(PanelsTest, CellsNameTheInputOrTheirPlaceholder) {
    Binding pad;
    pad.joysticks[0].axis = 1;
    pad.joysticks[0].axisDirection = -1;
    pad.joysticks[1].button = 7;
    pad.joysticks[1].id = 1;
    Binding both = pad;
    both.joysticks[0].button = 3;
    struct Case {
        Binding binding;
        Column column;
        char const* text;
    };
    Case const cases[] = {
        {Setting(&GameSettings::input_binding_sit), Column::Keyboard, "R"},
        {Setting(&GameSettings::input_binding_sit), Column::Mouse, "[mouse button]"},
        {Setting(&GameSettings::input_binding_sit), Column::Gamepad, "Gamepad (0) button 1"},
        {Setting(&GameSettings::input_binding_sit), Column::Joystick, "[joystick]"},
        {Setting(&GameSettings::input_binding_avatar_look_toggle), Column::Keyboard, "LEFT_ALT"},
        {Binding{}, Column::Keyboard, "[key]"},
        {Binding{}, Column::Gamepad, "[gamepad]"},
        {pad, Column::Gamepad, "Gamepad (0) axis 1 inversed"},
        {pad, Column::Joystick, "Joystick (1) button 7"},
        {both, Column::Gamepad, "Gamepad (0) axis 1 inversed, button 3"},
    };
    for (Case const& c : cases) EXPECT_EQ(Panels::CellText(c.binding, c.column), c.text);
}

TEST_F(PanelsTest, SharedInputsAreConflictsColumnByColumn) {
    Binding a, b;
    a.key = b.key = GLFW_KEY_R;
    a.joysticks[0].axis = b.joysticks[0].axis = 2;
    b.joysticks[0].axisDirection = -1; // the other half of the axis
    a.joysticks[1].button = b.joysticks[1].button = 4;
    b.joysticks[1].id = 1; // a second device of that name
    EXPECT_TRUE(Panels::SameInput(a, b, Column::Keyboard));
    EXPECT_FALSE(Panels::SameInput(a, b, Column::Mouse)) << "both unbound is no conflict";
    EXPECT_FALSE(Panels::SameInput(a, b, Column::Gamepad));
    EXPECT_FALSE(Panels::SameInput(a, b, Column::Joystick));
    b.joysticks[0].axisDirection = 1;
    b.joysticks[1].id = 0;
    EXPECT_TRUE(Panels::SameInput(a, b, Column::Gamepad));
    EXPECT_TRUE(Panels::SameInput(a, b, Column::Joystick));
    // Walking and driving never happen at once; sitting down goes with both.
    EXPECT_FALSE(Panels::SameContext("avatar_jump", "vehicle_translate_up"));
    EXPECT_TRUE(Panels::SameContext("sit", "vehicle_translate_up"));
    EXPECT_TRUE(Panels::SameContext("avatar_jump", "avatar_crouch"));
    // The default keys and mouse buttons have no conflicts (on the gamepad,
    // get_info and vehicle_aux_1 share a button by default).
    auto const& rows = Panels::BindingRows();
    for (size_t i = 0; i < rows.size(); ++i)
        for (size_t j = i + 1; j < rows.size(); ++j)
            for (Column column : {Column::Keyboard, Column::Mouse})
                EXPECT_FALSE(Panels::SameContext(rows[i].name, rows[j].name) &&
                             Panels::SameInput(Setting(rows[i].member), Setting(rows[j].member), column))
                    << rows[i].name << " and " << rows[j].name;
}

// Rebinding takes the next fresh input into exactly that part of that binding;
// saved, it is there after a restart.
TEST_F(PanelsTest, RebindingReplacesExactlyThatBindingAndSurvivesARestart) {
    Tab("Input##Settings");
    Click("R", 0.5f, "Settings"); // sit's key
    Draw();
    EXPECT_TRUE(game::Options::Get<bool>("capture_keyboard_binding", false));
    EXPECT_NE(probe->Find("Cancel", "Edit Keyboard Binding"), nullptr);
    window.SetKey(GLFW_KEY_G, GLFW_PRESS);
    Draw();
    window.SetKey(GLFW_KEY_G, GLFW_RELEASE);
    Draw();
    EXPECT_FALSE(game::Options::Get<bool>("capture_keyboard_binding", false));
    EXPECT_EQ(probe->Find("Cancel", "Edit Keyboard Binding"), nullptr) << "the editor closed";

    // The secondary tool's mouse button, then sit's gamepad button.
    Click("MOUSE_BUTTON_RIGHT");
    Draw();
    EXPECT_TRUE(game::Options::Get<bool>("capture_mousebutton_binding", false));
    window.SetMouseButton(GLFW_MOUSE_BUTTON_MIDDLE, GLFW_PRESS);
    Draw();
    window.SetMouseButton(GLFW_MOUSE_BUTTON_MIDDLE, GLFW_RELEASE);
    nerox::graphics::HeadlessWindow::Joystick pad;
    pad.guid = "030000005e0400008e02000010010000";
    pad.name = "Test Pad";
    pad.isGamepad = true;
    pad.buttons.assign(15, GLFW_RELEASE);
    pad.axes.assign(6, 0.0f);
    window.ConnectJoystick(GLFW_JOYSTICK_1, pad);
    Click("Gamepad (0) button 1");
    Draw();
    window.SetGamepadButton(GLFW_JOYSTICK_1, GLFW_GAMEPAD_BUTTON_Y, true);
    Draw();
    Draw();

    Binding sit = GameSettings::DefaultBinding(&GameSettings::input_binding_sit);
    sit.key = GLFW_KEY_G;
    sit.joysticks[0].button = GLFW_GAMEPAD_BUTTON_Y;
    Binding secondary = GameSettings::DefaultBinding(&GameSettings::input_binding_avatar_tool_secondary);
    secondary.mouseButton = GLFW_MOUSE_BUTTON_MIDDLE;
    Click("Save Settings");
    std::unique_ptr<GameSettings> const restarted = Reloaded();
    for (Panels::BindingRow const& row : Panels::BindingRows()) {
        Binding const expected = row.member == &GameSettings::input_binding_sit ? sit
            : row.member == &GameSettings::input_binding_avatar_tool_secondary
            ? secondary
            : GameSettings::DefaultBinding(row.member);
        EXPECT_EQ(Setting(row.member), expected) << row.name;
        EXPECT_EQ((*restarted).*row.member, expected) << row.name << " after the restart";
    }
}

TEST_F(PanelsTest, EscapeCancelsClearEmptiesAndDefaultsComeBack) {
    Tab("Input##Settings");
    Click("R", 0.5f, "Settings");
    Draw();
    window.SetKey(GLFW_KEY_ESCAPE, GLFW_PRESS);
    Draw();
    window.SetKey(GLFW_KEY_ESCAPE, GLFW_RELEASE);
    EXPECT_EQ(Setting(&GameSettings::input_binding_sit).key, GLFW_KEY_R) << "Escape leaves the binding";
    EXPECT_FALSE(game::Options::Get<bool>("capture_keyboard_binding", false));

    Click("R", 0.5f, "Settings");
    Click("Clear", 0.5f, "Edit Keyboard Binding");
    EXPECT_EQ(Setting(&GameSettings::input_binding_sit).key, -1);
    EXPECT_EQ(Setting(&GameSettings::input_binding_sit).joysticks[0].button, 1) << "the other columns stay";

    Click("Restore Default Bindings");
    EXPECT_EQ(Setting(&GameSettings::input_binding_sit).key, GLFW_KEY_R);

    // The settings closed from outside while the mouse editor is open: the editor
    // goes too, and no hidden modal keeps the pointer from the other windows.
    Click("MOUSE_BUTTON_RIGHT");
    EXPECT_TRUE(game::Options::Get<bool>("capture_keyboard_binding", false)) << "every editor holds both flags";
    Game::settingsWindowOpen = false;
    Draw();
    EXPECT_FALSE(game::Options::Get<bool>("capture_mousebutton_binding", false));
    EXPECT_EQ(ImGui::GetTopMostPopupModal(), nullptr);
    // A function key is not taken as a binding.
    Game::settingsWindowOpen = true;
    Click("R", 0.5f, "Settings");
    window.SetKey(GLFW_KEY_F3, GLFW_PRESS);
    Draw();
    window.SetKey(GLFW_KEY_F3, GLFW_RELEASE);
    EXPECT_EQ(Setting(&GameSettings::input_binding_sit).key, GLFW_KEY_R);
    EXPECT_TRUE(game::Options::Get<bool>("capture_keyboard_binding", false)) << "still waiting";
}

TEST_F(PanelsTest, ClosingAWindowClearsItsOpenFlag) {
    AllowAdmin();
    Game::adminWindowOpen = true;
    Game::_mode = 1; // adventure: the goals show
    panels->debugWindowOpen = panels->profilingWindowOpen = true;
    struct Case {
        char const* window;
        std::function<bool()> open;
    };
    // Topmost first: each close button must be the window's own, not covered.
    Case const cases[] = {
        {"Profiling (milliseconds)", [this] { return panels->profilingWindowOpen; }},
        {"Admin Panel", [] { return Game::adminWindowOpen; }},
        {"Goals##Adventure", [this] { return panels->goalsWindowOpen; }},
        {"Debug Window", [this] { return panels->debugWindowOpen; }},
        {"Settings", [] { return Game::settingsWindowOpen; }},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.window);
        EXPECT_TRUE(c.open());
        Click("#CLOSE", 0.5f, c.window);
        EXPECT_FALSE(c.open());
    }
}

TEST_F(PanelsTest, TheProfilingWindowMeasuresWhileItIsOpen) {
    ASSERT_FALSE(nerox::cpu::Profiler::enabled.load());
    panels->profilingWindowOpen = true;
    Draw();
    EXPECT_TRUE(nerox::cpu::Profiler::enabled.load());
    panels->profilingWindowOpen = false;
    Draw();
    EXPECT_FALSE(nerox::cpu::Profiler::enabled.load());
    // Without admin rights the admin panel does not open.
    Game::adminWindowOpen = true;
    Draw();
    EXPECT_FALSE(Game::adminWindowOpen);
}

TEST_F(PanelsTest, FunctionKeysToggleTheirState) {
    using game::input::FunctionKeys;
    struct Case {
        int key;
        bool shift;
        std::function<bool()> state;
        bool after; // the state after one press
    };
    Case const cases[] = {
        {GLFW_KEY_F1, false, [] { return Game::settingsWindowOpen; }, false},
        {GLFW_KEY_F2, false, [] { return FunctionKeys::droneMode.load(); }, true},
        {GLFW_KEY_F3, false, [] { return Game::uiVisible; }, false},
        {GLFW_KEY_F4, false, [] { return Game::adminWindowOpen; }, false}, // no admin rights yet
        {GLFW_KEY_F10, false, [] { return FunctionKeys::respawnRequested.load(); }, false},
        {GLFW_KEY_F10, true, [] { return FunctionKeys::respawnRequested.load(); }, true},
        {GLFW_KEY_F11, false, [this] { return window.IsFullscreen(); }, true},
    };
    auto const press = [this](int key, bool shift) {
        if (shift) window.SetKey(GLFW_KEY_LEFT_SHIFT, GLFW_PRESS);
        window.SetKey(key, GLFW_PRESS);
        FunctionKeys::Update();
        FunctionKeys::Update(); // held: no second toggle
        window.SetKey(key, GLFW_RELEASE);
        window.SetKey(GLFW_KEY_LEFT_SHIFT, GLFW_RELEASE);
        FunctionKeys::Update();
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.key);
        press(c.key, c.shift);
        EXPECT_EQ(c.state(), c.after);
    }
    AllowAdmin();
    press(GLFW_KEY_F4, false);
    EXPECT_TRUE(Game::adminWindowOpen);
    // While the bindings editor takes the keyboard, F1 is a key like any other.
    game::Options::Set("capture_keyboard_binding", true);
    window.SetKey(GLFW_KEY_F1, GLFW_PRESS);
    FunctionKeys::Update();
    EXPECT_FALSE(Game::settingsWindowOpen);
    window.SetKey(GLFW_KEY_F1, GLFW_RELEASE);
    Game::uiVisible = true;
    FunctionKeys::droneMode = FunctionKeys::respawnRequested = false;
    FunctionKeys::Reset();
}

} // namespace
