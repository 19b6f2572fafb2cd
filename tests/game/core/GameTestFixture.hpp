#pragma once
// The game tests run in the folder that holds modules/, with an empty event log and
// the profiler on; the game's run state is reset after each.
#include "support/Recorder.hpp"

#include "game/Game.hpp"
#include "game/modules/GAME_Mod.hpp"
#include "game/modules/SERVER_Mod.hpp"
#include "game/modules/TESSARA_Mod.hpp"
#include "nerox/cpu/Profiler.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace gametest {

using game::modules::GAME_Mod;
using game::modules::SERVER_Mod;
using game::modules::TESSARA_Mod;
using recorder::EventsWith;
using Events = std::vector<std::string>;

inline constexpr char const* recorderName = "TEST_recorder";

class GameTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::filesystem::current_path(TESSARA_TEST_RUN_DIR);
        recorder::Clear();
        nerox::cpu::Profiler::enabled = true;
        nerox::cpu::Profiler::Reset();
    }
    void TearDown() override {
        GAME_Mod::UnloadModules();
        SERVER_Mod::UnloadModules();
        TESSARA_Mod::UnloadModules();
        Game::_mods.clear();
        Game::window = nullptr;
        Game::audio = nullptr;
        Game::settings.reset();
        Game::_inputMode = 0;
        Game::_mouseLook = false;
        {
            std::lock_guard lock(Game::_syncMutex);
            Game::_syncQueue.clear();
        }
        nerox::cpu::Profiler::enabled = false;
        nerox::cpu::Profiler::Reset();
        recorder::Clear();
    }
    /// The recording module loaded as a module of class T, its ModuleLoad event dropped.
    template <class T = GAME_Mod> static typename T::Ptr LoadRecorder() {
        typename T::Ptr mod = T::LoadModule(recorderName, true);
        recorder::Clear();
        return mod;
    }
    static void SortUpdateList() {
        GAME_Mod::SortModules("update", [](GAME_Mod::Ptr a, GAME_Mod::Ptr b) { return a->name < b->name; });
    }
};

} // namespace gametest
