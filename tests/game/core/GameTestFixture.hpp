#pragma once
// Shared set-up of the game tests: the recording module at hand, the recorder
// emptied, and the game's run state reset after.
#include "support/Recorder.hpp"

#include "game/Game.hpp"
#include "game/modules/GAME_Mod.hpp"
#include "game/modules/SERVER_Mod.hpp"
#include "game/modules/TESSARA_Mod.hpp"
#include "nerox/cpu/Profiler.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace gametest {

using game::modules::GAME_Mod;
using game::modules::SERVER_Mod;
using game::modules::TESSARA_Mod;
using recorder::EventsWith;

inline constexpr char const* recorderName = "TEST_recorder";

/// Index of the first event equal to `event`, or -1.
inline int IndexOf(std::vector<std::string> const& events, std::string const& event) {
    auto it = std::find(events.begin(), events.end(), event);
    return it == events.end() ? -1 : static_cast<int>(it - events.begin());
}

class GameTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::filesystem::current_path(TESSARA_TEST_RUN_DIR); // modules load from modules/NAME/NAME.CLASS.so
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
        Game::timeActive = true;
        Game::timeOffset = 0.0;
        {
            std::lock_guard lock(Game::_syncMutex);
            Game::_syncQueue.clear();
        }
        nerox::cpu::Profiler::enabled = false;
        nerox::cpu::Profiler::Reset();
        recorder::Clear();
    }

    /// Loads the recording module as a client module and empties the log.
    static GAME_Mod::Ptr LoadClientRecorder() { return Cleared(GAME_Mod::LoadModule(recorderName, true)); }
    static SERVER_Mod::Ptr LoadServerRecorder() { return Cleared(SERVER_Mod::LoadModule(recorderName, true)); }
    template <class P>
    static P Cleared(P mod) { return recorder::Clear(), mod; }
};

} // namespace gametest
