#pragma once
// Shared set-up of the game tests: the recording module loaded in the classes a
// test asks for, the recorder emptied, and the game's run state reset after.
#include "Recorder.hpp"

#include "game/Game.hpp"
#include "game/modules/GAME_Mod.hpp"
#include "game/modules/SERVER_Mod.hpp"
#include "game/modules/TESSARA_Mod.hpp"
#include "nerox/cpu/Profiler.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace gametest {

using game::modules::GAME_Mod;
using game::modules::SERVER_Mod;
using game::modules::TESSARA_Mod;

inline constexpr char const* recorderName = "TEST_recorder";

/// Events of the recorder that start with a prefix, e.g. "GAME_Mod:".
inline std::vector<std::string> EventsWith(std::string const& prefix) {
    std::vector<std::string> matching;
    for (auto const& event : recorder::Events())
        if (event.rfind(prefix, 0) == 0) matching.push_back(event);
    return matching;
}

/// Index of the first event equal to `event`, or -1.
inline int IndexOf(std::vector<std::string> const& events, std::string const& event) {
    auto it = std::find(events.begin(), events.end(), event);
    return it == events.end() ? -1 : static_cast<int>(it - events.begin());
}

class GameTest : public ::testing::Test {
protected:
    void SetUp() override {
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

    static GAME_Mod::Ptr LoadClientRecorder() { return GAME_Mod::LoadModule(recorderName, true); }
    static SERVER_Mod::Ptr LoadServerRecorder() { return SERVER_Mod::LoadModule(recorderName, true); }
};

} // namespace gametest
