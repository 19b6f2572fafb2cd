#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/TempDir.hpp"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "game/GameSettings.hpp"
#include "nerox/filesystem/ConfigFile.hpp"

using game::GameSettings;
using InputBinding = nerox::filesystem::ConfigFile::InputBinding;

using testsupport::ReadText;
using testsupport::ReplaceText;
using testsupport::TempDir;

namespace {

/// Long enough that the reload thread never fires during a test that does not want it.
constexpr int NoReload = 3600 * 1000;

/// The keys of each section of an INI file, in file order.
std::map<std::string, std::vector<std::string>> KeysBySection(std::string const& path)
{
    std::map<std::string, std::vector<std::string>> sections;
    nerox::filesystem::ConfigFile file(path, std::nullopt);
    file.ReadFromINI([&](std::istringstream& header, std::vector<std::istringstream>& lines) {
        std::vector<std::string>& keys = sections[header.str()];
        for (std::istringstream& line : lines) {
            std::string const text = line.str();
            size_t const equals = text.find('=');
            std::string key = text.substr(0, equals);
            key.erase(key.find_last_not_of(" \t") + 1);
            keys.push_back(key);
        }
    });
    return sections;
}

InputBinding Binding(int key, int mouse, int padButton, int padAxis, int padDir, int joyAxis, int joyDir)
{
    InputBinding binding;
    binding.key = key;
    binding.mouseButton = mouse;
    binding.joysticks[0].button = padButton;
    binding.joysticks[0].axis = static_cast<int16_t>(padAxis);
    binding.joysticks[0].axisDirection = static_cast<int16_t>(padDir);
    binding.joysticks[1].axis = static_cast<int16_t>(joyAxis);
    binding.joysticks[1].axisDirection = static_cast<int16_t>(joyDir);
    return binding;
}

// GLFW key codes, spelled out so that the test checks the numbers themselves.
constexpr int KeyQ = 81;
constexpr int KeyT = 84;
constexpr int KeyW = 87;
constexpr int KeySpace = 32;
constexpr int KeyEnter = 257;
constexpr int KeyGrave = 96;
constexpr int KeyUp = 265;
constexpr int KeyLeftControl = 341;

} // namespace

TEST(GameSettingsDefaults, MissingFileGivesDefaults)
{
    TempDir dir;
    GameSettings settings(dir.File("settings.ini"), NoReload);
    EXPECT_TRUE(settings.show_help_tooltips);
    EXPECT_FALSE(settings.admin_privileges);
    EXPECT_FALSE(settings.debug_window);
    EXPECT_FALSE(settings.dev_tools);
    EXPECT_EQ(settings.graphics_preset, -1);
    EXPECT_EQ(settings.framerate_limit_main_rendering, 0);
    EXPECT_FALSE(settings.vsync);
    EXPECT_EQ(settings.fov, 70.0f);
    EXPECT_TRUE(settings.taa);
    EXPECT_EQ(settings.upscaling_algo, "AUTO");
    EXPECT_EQ(settings.upscaling_quality_setting, 1);
    EXPECT_EQ(settings.upscaling_sharpness, 0.675f);
    EXPECT_EQ(settings.final_upscale, 0.0f);
    EXPECT_EQ(settings.gamma, 2.4f);
    EXPECT_TRUE(settings.terrain_clutter);
    EXPECT_EQ(settings.main_thread_cpu_affinity, -1);
    EXPECT_EQ(settings.ide_opacity, 0.7f);
    EXPECT_EQ(settings.master_volume, 0.5f);
    EXPECT_EQ(settings.interface_volume, 1.0f);
    EXPECT_EQ(settings.look_sensitivity, 2.0f);
    EXPECT_FALSE(settings.avatar_mouselook_invert_y);
    EXPECT_EQ(settings.input_gamepad_axis_deadzone, 0.1f);
    EXPECT_EQ(settings.input_joystick_axis_deadzone, 0.1f);
}

TEST(GameSettingsDefaults, BindingDefaults)
{
    TempDir dir;
    GameSettings settings(dir.File("settings.ini"), NoReload);
    EXPECT_EQ(settings.input_binding_vehicle_roll_left, Binding(KeyQ, -1, 14, -1, 1, 0, -1));
    EXPECT_EQ(settings.input_binding_vehicle_main_thrust, Binding(KeyT, -1, -1, 5, 1, 2, 1));
    EXPECT_EQ(settings.input_binding_vehicle_pitch_down, Binding(KeyUp, -1, -1, 3, -1, 1, -1));
    EXPECT_EQ(settings.input_binding_avatar_translate_forward, Binding(KeyW, -1, -1, 1, -1, -1, 1));
    EXPECT_EQ(settings.input_binding_avatar_jump, Binding(KeySpace, -1, 0, -1, 1, -1, 1));
    EXPECT_EQ(settings.input_binding_input_chat, Binding(KeyEnter, -1, -1, -1, 1, -1, 1));
    EXPECT_EQ(settings.input_binding_avatar_inventory_deselect, Binding(KeyGrave, -1, 13, -1, 1, -1, 1));
    EXPECT_EQ(settings.input_binding_vehicle_translate_down, Binding(KeyLeftControl, -1, 13, -1, 1, -1, 1));
    EXPECT_EQ(settings.input_binding_avatar_tool_primary, Binding(-1, 0, -1, -1, 1, -1, 1));
    EXPECT_EQ(settings.input_binding_avatar_tool_secondary, Binding(-1, 1, -1, -1, 1, -1, 1));
    EXPECT_EQ(settings.input_binding_avatar_pitch_down, Binding(-1, -1, -1, 3, -1, -1, 1));
    EXPECT_EQ(settings.input_binding_vehicle_aux_9, Binding('9', -1, -1, -1, 1, -1, 1));
    EXPECT_EQ(settings.input_binding_avatar_inventory_select_1, Binding('1', -1, -1, -1, 1, -1, 1));
    EXPECT_TRUE(settings.input_binding_vehicle_main_thrust.joysticks[1].name.empty());
}

TEST(GameSettingsFile, MissingFileGetsVisibleKeysOnly)
{
    TempDir dir;
    std::string const path = dir.File("settings.ini");
    { GameSettings settings(path, NoReload); }
    std::string const text = ReadText(path);
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("dev_tools")));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("debug_window")));

    auto const sections = KeysBySection(path);
    std::vector<std::string> names;
    for (auto const& [name, keys] : sections)
        names.push_back(name);
    EXPECT_THAT(names, testing::UnorderedElementsAre("game", "graphics", "performance", "ide", "audio", "input"));
    EXPECT_EQ(sections.at("game"), (std::vector<std::string>{"show_help_tooltips", "admin_privileges"}));
    EXPECT_EQ(sections.at("graphics").size(), 18u);
    EXPECT_EQ(sections.at("graphics").front(), "graphics_preset");
    EXPECT_EQ(sections.at("graphics").back(), "terrain_detail");
    EXPECT_EQ(sections.at("performance"), std::vector<std::string>{"main_thread_cpu_affinity"});
    EXPECT_EQ(sections.at("ide"), (std::vector<std::string>{"ide_zoom", "ide_opacity"}));
    EXPECT_EQ(sections.at("audio").size(), 4u);

    std::vector<std::string> const& input = sections.at("input");
    ASSERT_EQ(input.size(), 4u + 63u); // 63 bindings
    EXPECT_EQ(input[0], "look_sensitivity");
    EXPECT_EQ(input[1], "avatar_mouselook_invert_y");
    EXPECT_EQ(input[2], "input_binding_input_chat");
    EXPECT_EQ(input[input.size() - 3], "input_binding_vehicle_main_thrust");
    EXPECT_EQ(input[input.size() - 2], "input_gamepad_axis_deadzone");
    EXPECT_EQ(input[input.size() - 1], "input_joystick_axis_deadzone");

    // A second start reads the file it wrote and changes nothing.
    { GameSettings again(path, NoReload); }
    EXPECT_EQ(ReadText(path), text);
}

TEST(GameSettingsFile, ValuesInTheFileWinAndTheRestIsAdded)
{
    TempDir dir;
    std::string const path = dir.File("settings.ini");
    ReplaceText(path, "; my settings\n"
                      "[graphics]\n"
                      "fov = 95.5\n"
                      "upscaling_algo = FSR\n"
                      "vsync = yes\n"
                      "[input]\n"
                      "input_binding_vehicle_main_thrust = key=84 mouse=-1 pad=button:-1,axis:4,dir:-1 "
                      "joy=button:2,axis:-1,dir:1,id:1,name:\"Throttle Quadrant\"\n");
    GameSettings settings(path, NoReload);
    EXPECT_EQ(settings.fov, 95.5f);
    EXPECT_EQ(settings.upscaling_algo, "FSR");
    EXPECT_TRUE(settings.vsync);
    EXPECT_TRUE(settings.taa); // absent: default
    InputBinding thrust = Binding(KeyT, -1, -1, 4, -1, -1, 1);
    thrust.joysticks[1] = {"Throttle Quadrant", 1, 2, -1, 1};
    EXPECT_EQ(settings.input_binding_vehicle_main_thrust, thrust);

    std::string const text = ReadText(path);
    EXPECT_THAT(text, testing::StartsWith("; my settings\n[graphics]\nfov = 95.5\nupscaling_algo = FSR\nvsync = yes\n"));
    EXPECT_THAT(text, testing::HasSubstr("\ntaa = true\n"));
    EXPECT_THAT(text, testing::HasSubstr("name:\"Throttle Quadrant\""));
}

TEST(GameSettingsFile, ABrokenValueKeepsItsDefaultAndWriteBackLeavesUnknownSectionsAlone)
{
    TempDir dir;
    std::string const path = dir.File("settings.ini");
    ReplaceText(path, "[graphics]\n"
                      "fov = wide\n"
                      "render_scale = 0.5\n"
                      "[mods]\n"
                      "; kept by whoever owns it\n"
                      "favourite = rover\n"
                      "[input]\n"
                      "input_binding_zoom = key=banana\n"
                      "look_sensitivity = 3\n");
    GameSettings settings(path, NoReload);
    EXPECT_EQ(settings.fov, 70.0f) << "a broken number keeps the default";
    EXPECT_EQ(settings.render_scale, 0.5f) << "and the rest of the file still counts";
    EXPECT_EQ(settings.look_sensitivity, 3.0f);
    EXPECT_EQ(settings.input_binding_zoom.key, 90) << "a broken binding keeps its default (Z)";

    settings.render_scale = 0.75f;
    settings.WriteConfig();
    std::string const text = ReadText(path);
    EXPECT_THAT(text, testing::HasSubstr("[mods]\n; kept by whoever owns it\nfavourite = rover\n"));
    EXPECT_THAT(text, testing::HasSubstr("render_scale = 0.75\n"));
}

TEST(GameSettingsFile, HiddenKeysStayAsTheFileHasThem)
{
    TempDir dir;
    std::string const withPath = dir.File("with.ini");
    ReplaceText(withPath, "[game]\ndev_tools = true\ndebug_window = yes\n");
    {
        GameSettings settings(withPath, NoReload);
        EXPECT_TRUE(settings.dev_tools);
        EXPECT_TRUE(settings.debug_window);
        settings.dev_tools = false; // never written back
        settings.fov = 80.0f;
        settings.WriteConfig();
    }
    std::string const text = ReadText(withPath);
    EXPECT_THAT(text, testing::HasSubstr("dev_tools = true\n"));
    EXPECT_THAT(text, testing::HasSubstr("debug_window = yes\n"));
    EXPECT_THAT(text, testing::HasSubstr("fov = 80\n"));

    std::string const withoutPath = dir.File("without.ini");
    {
        GameSettings settings(withoutPath, NoReload);
        settings.dev_tools = true;
        settings.debug_window = true;
        settings.WriteConfig();
    }
    EXPECT_THAT(ReadText(withoutPath), testing::Not(testing::HasSubstr("dev_tools")));
    EXPECT_THAT(ReadText(withoutPath), testing::Not(testing::HasSubstr("debug_window")));
}

TEST(GameSettingsFile, WriteConfigRoundTripsEveryKind)
{
    TempDir dir;
    std::string const path = dir.File("settings.ini");
    InputBinding custom = Binding(70, 3, 8, 2, -1, 6, -1);
    custom.joysticks[1].name = "HOTAS, Stick \"X\"";
    custom.joysticks[1].id = 2;
    {
        GameSettings settings(path, NoReload);
        settings.admin_privileges = true;
        settings.graphics_preset = 5;
        settings.upscaling_sharpness = 0.1f;
        settings.upscaling_algo = " spaced out ";
        settings.main_thread_cpu_affinity = 3;
        settings.ide_opacity = 1.0f / 3.0f;
        settings.input_binding_avatar_light = custom;
        settings.input_joystick_axis_deadzone = 0.25f;
        settings.WriteConfig();
    }
    GameSettings settings(path, NoReload);
    EXPECT_TRUE(settings.admin_privileges);
    EXPECT_EQ(settings.graphics_preset, 5);
    EXPECT_EQ(settings.upscaling_sharpness, 0.1f);
    EXPECT_EQ(settings.upscaling_algo, " spaced out ");
    EXPECT_EQ(settings.main_thread_cpu_affinity, 3);
    EXPECT_EQ(settings.ide_opacity, 1.0f / 3.0f);
    EXPECT_EQ(settings.input_binding_avatar_light, custom);
    EXPECT_EQ(settings.input_joystick_axis_deadzone, 0.25f);
}

TEST(GameSettingsInstance, SharedWhileHeldAndReadAgainAfterRelease)
{
    TempDir dir;
    std::string const path = dir.File("settings.ini");
    std::string const otherPath = dir.File("other.ini");
    std::weak_ptr<GameSettings> watch;
    {
        std::shared_ptr<GameSettings> first = GameSettings::Instance(path, NoReload);
        std::shared_ptr<GameSettings> second = GameSettings::Instance(nerox::filesystem::FilePath(path), NoReload);
        std::shared_ptr<GameSettings> other = GameSettings::Instance(otherPath, NoReload);
        ASSERT_TRUE(first);
        EXPECT_EQ(first, second);
        EXPECT_NE(first, other);
        EXPECT_EQ(first->GetPath(), path);
        first->fov = 100.0f;
        EXPECT_EQ(second->fov, 100.0f);
        watch = first;
    }
    EXPECT_TRUE(watch.expired()); // the last user closed it

    std::string text = ReadText(path);
    size_t const at = text.find("fov = 70");
    ASSERT_NE(at, std::string::npos);
    text.replace(at, 8, "fov = 42");
    ReplaceText(path, text);

    std::shared_ptr<GameSettings> fresh = GameSettings::Instance(path, NoReload);
    EXPECT_EQ(fresh->fov, 42.0f);
}

TEST(GameSettingsReload, OutsideChangeIsPickedUp)
{
    TempDir dir;
    std::string const path = dir.File("settings.ini");
    GameSettings settings(path, 10);
    EXPECT_TRUE(settings.IsAutoReloadRunning());
    std::string text = ReadText(path);
    size_t const at = text.find("master_volume = 0.5");
    ASSERT_NE(at, std::string::npos);
    text.replace(at, 19, "master_volume = 0.9");
    ReplaceText(path, text);

    bool seen = false;
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!seen && std::chrono::steady_clock::now() < deadline) {
        {
            std::lock_guard<std::mutex> lock(settings.GetMutex());
            seen = settings.master_volume == 0.9f;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_TRUE(seen);
}
