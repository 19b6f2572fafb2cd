#pragma once
// Shared setup of the module tests: the working folder that holds modules/, the
// recorder's event log, and a base that leaves every module class as it found it.
#include "support/Recorder.hpp"

#include "game/modules/GAME_Init.hpp"
#include "game/modules/GAME_Mod.hpp"
#include "game/modules/SERVER_Mod.hpp"
#include "game/modules/TESSARA_Mod.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace game::modules::testing {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using recorder::Record;
using Events = std::vector<std::string>;

/// Whether the table's lock is free (nothing holds it shared or exclusive).
template <class T>
bool IsUnlocked() {
    if (!T::_mutexForLoadedModules.try_lock()) return false;
    T::_mutexForLoadedModules.unlock();
    return true;
}

/// Puts a module class back to its start state: no modules, no lists, default callbacks.
template <class T>
void ResetModuleClass() {
    T::UnloadModules();
    T::ModulesSetLoadCallback([](typename T::Ptr) {});
    T::ModulesSetUnloadCallback([](typename T::Ptr) {});
    T::ModulesSetLoadErrorCallback(&ReportModuleLoadError);
}

class ModuleTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::filesystem::current_path(TESSARA_TEST_RUN_DIR);
        TearDown();
    }
    void TearDown() override {
        ResetModuleClass<GAME_Init>();
        ResetModuleClass<GAME_Mod>();
        ResetModuleClass<SERVER_Mod>();
        ResetModuleClass<TESSARA_Mod>();
        recorder::Clear();
    }
};

} // namespace game::modules::testing
