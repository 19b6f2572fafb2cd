// The settings file: what a first start writes and a user's file becomes (both whole,
// against tests/data/settings/), values of every kind read back, the shared
// instance and the reload of outside changes.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "game/GameSettings.hpp"
#include "support/Golden.hpp"
#include "support/TempDir.hpp"

using game::GameSettings;
using testsupport::ReadText;
using testsupport::ReplaceText;
using testsupport::TempDir;

// Long enough that the reload thread never fires during a test that does not want it.
constexpr int NoReload = 3600 * 1000;

// Every visible key with its default, the bindings set by the constructor included;
// the hidden keys are neither added nor written, and a second start changes nothing.
// The shared instance lives while held and reads the file again after release.
TEST(GameSettingsFile, AMissingFileIsWrittenWithTheDefaultsAndSharedWhileHeld) {
    TempDir dir;
    std::string const path = dir.File("settings.ini");
    std::weak_ptr<GameSettings> watch;
    {
        std::shared_ptr<GameSettings> first = GameSettings::Instance(path, NoReload);
        ASSERT_TRUE(first);
        EXPECT_EQ(first, GameSettings::Instance(nerox::filesystem::FilePath(path), NoReload));
        EXPECT_NE(first, GameSettings::Instance(dir.File("other.ini"), NoReload));
        watch = first;
    }
    EXPECT_TRUE(watch.expired());
    std::string text = ReadText(path);
    testsupport::ExpectGolden(text, "settings/defaults.ini");
    {
        GameSettings again(path, NoReload);
        again.dev_tools = again.debug_window = true;
        again.WriteConfig();
    }
    EXPECT_EQ(ReadText(path), text);
    ReplaceText(path, text.replace(text.find("fov = 70"), 8, "fov = 42"));
    EXPECT_EQ(GameSettings::Instance(path, NoReload)->fov, 42.0f);
}

// Values in the file win, a broken or out-of-range value keeps its default while the rest counts,
// unknown sections and the hidden keys stay as the file has them, the rest is added.
TEST(GameSettingsFile, AUsersFileIsReadAndWrittenBack) {
    TempDir dir;
    std::string const path = dir.File("settings.ini");
    ReplaceText(path, ReadText(testsupport::DataFile("settings/users_in.ini"))); // with a byte-order mark
    testing::internal::CaptureStderr();
    GameSettings settings(path, NoReload);
    std::string warnings = testing::internal::GetCapturedStderr();
    for (size_t at; (at = warnings.find(path)) != std::string::npos;) warnings.replace(at, path.size(), "<file>");
    testsupport::ExpectGolden(warnings, "settings/users_warnings.txt"); // refused values, each kept in the file
    // What was read and is not changed below shows in the file written back.
    EXPECT_TRUE(settings.dev_tools && settings.debug_window && settings.fov == 70.0f && settings.render_scale == 0.5f);
    EXPECT_EQ(settings.upscaling_algo, "FSR");

    // Values of every kind are written so that they read back as they were.
    GameSettings::InputBinding custom;
    custom.key = 70;
    custom.mouseButton = 3;
    custom.joysticks[0] = {"", 0, 8, 2, -1};
    custom.joysticks[1] = {"HOTAS, Stick \"X\"", 2, -1, 6, -1};
    settings.input_binding_avatar_light = custom;
    settings.render_scale = 0.75f;
    settings.fov = 80.0f;
    settings.ide_opacity = 1.0f / 3.0f;
    settings.graphics_preset = 5;
    settings.upscaling_algo = " spaced out ";
    settings.dev_tools = false; // never written back
    settings.WriteConfig();
    testsupport::ExpectGolden(ReadText(path), "settings/users.ini");
    GameSettings again(path, NoReload);
    EXPECT_TRUE(again.input_binding_avatar_light == custom && again.ide_opacity == 1.0f / 3.0f &&
                again.graphics_preset == 5 && again.dev_tools && again.upscaling_algo == " spaced out ");
}

TEST(GameSettingsReload, OutsideChangeIsPickedUp) {
    TempDir dir;
    std::string const path = dir.File("settings.ini");
    GameSettings settings(path, 10);
    EXPECT_TRUE(settings.IsAutoReloadRunning());
    std::string text = ReadText(path);
    ReplaceText(path, text.replace(text.find("master_volume = 0.5"), 19, "master_volume = 0.9"));

    // Polls until the reload thread has read the change, for at most 20 s.
    bool seen = false;
    for (auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
         !seen && std::chrono::steady_clock::now() < deadline;
         std::this_thread::sleep_for(std::chrono::milliseconds(5))) {
        std::lock_guard<std::mutex> lock(settings.GetMutex());
        seen = settings.master_volume == 0.9f;
    }
    EXPECT_TRUE(seen);
}
