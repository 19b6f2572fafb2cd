// The four module classes: separate tables, their own hook lists and file names.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "ModuleTestSupport.hpp"

namespace game::modules::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ModuleClassesTest : public ModuleTest {};

TEST_F(ModuleClassesTest, SameNameLoadsOneLibraryPerClass) {
    GAME_Mod::Ptr const client = GAME_Mod::LoadModule("MODTEST_alpha", true);
    SERVER_Mod::Ptr const server = SERVER_Mod::LoadModule("MODTEST_alpha", true);
    ASSERT_NE(client, nullptr);
    ASSERT_NE(server, nullptr);

    EXPECT_EQ(client->path, "modules/MODTEST_alpha/MODTEST_alpha.GAME_Mod.so");
    EXPECT_EQ(server->path, "modules/MODTEST_alpha/MODTEST_alpha.SERVER_Mod.so");
    EXPECT_NE(client->handle, server->handle);
    EXPECT_EQ(GAME_Mod::Count(), 1u);
    EXPECT_EQ(SERVER_Mod::Count(), 1u);
    EXPECT_EQ(GAME_Init::Count(), 0u);
    EXPECT_EQ(TESSARA_Mod::Count(), 0u);

    SERVER_Mod::UnloadModule("MODTEST_alpha");
    EXPECT_EQ(SERVER_Mod::GetModule("MODTEST_alpha"), nullptr);
    EXPECT_EQ(GAME_Mod::GetModule("MODTEST_alpha"), client);
}

TEST_F(ModuleClassesTest, CallbacksAndListsBelongToOneClass) {
    GAME_Mod::ModulesSetLoadCallback([](GAME_Mod::Ptr mod) { Record("GAME_Mod loaded " + mod->name); });
    SERVER_Mod::ModulesSetLoadCallback([](SERVER_Mod::Ptr mod) { Record("SERVER_Mod loaded " + mod->name); });
    GAME_Mod::LoadModule("MODTEST_alpha", true);
    SERVER_Mod::LoadModule("MODTEST_alpha", true);
    EXPECT_THAT(RecordedEvents(), ElementsAre("MODTEST_alpha:ModuleLoad", "GAME_Mod loaded MODTEST_alpha",
                                              "server:ModuleLoad", "SERVER_Mod loaded MODTEST_alpha"));

    GAME_Mod::SortModules("update", [](GAME_Mod::Ptr, GAME_Mod::Ptr) { return false; });
    int serverCalls = 0;
    SERVER_Mod::ForEachSortedModule("update", [&](SERVER_Mod::Ptr&) { ++serverCalls; });
    EXPECT_EQ(serverCalls, 0);
}

TEST_F(ModuleClassesTest, ServerModuleBindsItsHooks) {
    SERVER_Mod::Ptr const mod = SERVER_Mod::LoadModule("MODTEST_alpha", true);
    ASSERT_NE(mod, nullptr);
    EXPECT_EQ(mod->Server_Load, nullptr);
    EXPECT_EQ(mod->Server_Send, nullptr);
    ClearRecordedEvents();

    SERVER_Mod::ForEachModule([](SERVER_Mod::Ptr& server) {
        if (server->Server_BeforeUpdate) server->Server_BeforeUpdate(0.5);
        if (server->Server_GameUpdate) server->Server_GameUpdate(0.25);
    });
    char const message[] = {'p', 'i', 'n', 'g'};
    mod->Server_Receive(17, message, sizeof message);

    EXPECT_THAT(RecordedEvents(), ElementsAre("server:Server_BeforeUpdate 0.50", "server:Server_GameUpdate 0.25",
                                              "server:Server_Receive 17 ping"));
}

TEST_F(ModuleClassesTest, ServerUpdateHookFieldsStandLast) {
    SERVER_Mod::Ptr const mod = SERVER_Mod::LoadModule("MODTEST_alpha", true);
    ASSERT_NE(mod, nullptr);
    std::less<void const*> const before;
    EXPECT_TRUE(before(&mod->id, &mod->error));
    EXPECT_TRUE(before(&mod->ModuleGetCustomPtr, &mod->Server_Load));
    EXPECT_TRUE(before(&mod->Server_Receive, &mod->Server_BeforeUpdate));
    EXPECT_TRUE(before(&mod->Server_BeforeUpdate, &mod->Server_GameUpdate));
}

TEST_F(ModuleClassesTest, ContentModuleExposesVersionAndLoadHooks) {
    TESSARA_Mod::Ptr const mod = TESSARA_Mod::LoadModule("MODTEST_content", true);
    ASSERT_NE(mod, nullptr);
    EXPECT_EQ(mod->path, "modules/MODTEST_content/MODTEST_content.TESSARA_Mod.so");
    ASSERT_NE(mod->_TESSARA_Mod_VERSION, nullptr);
    EXPECT_EQ(*static_cast<int const*>(mod->_TESSARA_Mod_VERSION), 7);

    unsigned char scratch = 0;
    TESSARA_Mod::ForEachModule([&](TESSARA_Mod::Ptr& content) {
        if (content->Load) content->Load(&scratch);
    });
    TESSARA_Mod::ForEachModule([&](TESSARA_Mod::Ptr& content) {
        if (content->Unload) content->Unload(&scratch);
    });
    EXPECT_THAT(RecordedEvents(), ElementsAre("content:Load", "content:Unload"));
}

TEST_F(ModuleClassesTest, InitModuleScoresDevicesAndShowsTheSplash) {
    GAME_Init::Ptr const mod = GAME_Init::LoadModule("MODTEST_init", true);
    ASSERT_NE(mod, nullptr);
    EXPECT_EQ(mod->path, "modules/MODTEST_init/MODTEST_init.GAME_Init.so");
    EXPECT_EQ(mod->Vulkan_Init, nullptr);
    ASSERT_NE(mod->Vulkan_ScoreGPU, nullptr);

    int device = 0;
    EXPECT_EQ(mod->Vulkan_ScoreGPU(&device), 42);
    mod->SplashBegin();
    mod->SplashEnd();
    EXPECT_THAT(RecordedEvents(), ElementsAre("init:SplashBegin", "init:SplashEnd"));
}

TEST_F(ModuleClassesTest, ModuleOfAnotherClassIsNotFound) {
    // MODTEST_beta exists only as a GAME_Mod library.
    EXPECT_EQ(SERVER_Mod::LoadModule("MODTEST_beta", false), nullptr);
    EXPECT_EQ(TESSARA_Mod::LoadModule("MODTEST_beta", false), nullptr);
    EXPECT_NE(GAME_Mod::LoadModule("MODTEST_beta", false), nullptr);
    EXPECT_THAT(RecordedEvents(), ElementsAre("MODTEST_beta:ModuleLoad"));
    EXPECT_EQ(SERVER_Mod::Count(), 0u);
}

} // namespace
} // namespace game::modules::testing
