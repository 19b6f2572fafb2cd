#pragma once
// Shared setup of the module tests: the working folder that holds modules/, the event log
// of the fixture libraries, and a test base that leaves every module class as it found it.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "game/modules/GAME_Init.hpp"
#include "game/modules/GAME_Mod.hpp"
#include "game/modules/SERVER_Mod.hpp"
#include "game/modules/TESSARA_Mod.hpp"

namespace game::modules::testing {

/// The events recorded so far, in order.
std::vector<std::string> RecordedEvents();
/// Forgets all recorded events.
void ClearRecordedEvents();
/// Appends an event from the test side, e.g. from a callback.
void Record(std::string const& event);

/// Puts every module class back to its start state: no modules, no lists, default callbacks.
template <class T>
void ResetModuleClass() {
    T::UnloadModules();
    T::ModulesSetLoadCallback([](typename T::Ptr) {});
    T::ModulesSetUnloadCallback([](typename T::Ptr) {});
    T::ModulesSetLoadErrorCallback(&ReportModuleLoadError);
}

/// Base of the tests that load modules: runs in the folder that holds modules/ and
/// unloads everything afterwards.
class ModuleTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::filesystem::current_path(TESSARA_TEST_RUN_DIR);
        ResetAll();
    }

    void TearDown() override { ResetAll(); }

    static void ResetAll() {
        ResetModuleClass<GAME_Init>();
        ResetModuleClass<GAME_Mod>();
        ResetModuleClass<SERVER_Mod>();
        ResetModuleClass<TESSARA_Mod>();
        ClearRecordedEvents();
    }
};

} // namespace game::modules::testing
