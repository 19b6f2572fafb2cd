// The four module classes: separate tables, callbacks, lists, hooks and file names.
#include "ModuleTestSupport.hpp"

#include <functional>

namespace game::modules::testing {
namespace {

using ModuleClassesTest = ModuleTest;

TEST_F(ModuleClassesTest, SameNameLoadsOneLibraryPerClassWithItsOwnCallbacksAndLists) {
    GAME_Mod::ModulesSetLoadCallback([](GAME_Mod::Ptr mod) { Record("GAME_Mod loaded " + mod->name); });
    SERVER_Mod::ModulesSetLoadCallback([](SERVER_Mod::Ptr mod) { Record("SERVER_Mod loaded " + mod->name); });
    GAME_Mod::Ptr const client = GAME_Mod::LoadModule("MODTEST_alpha", true);
    SERVER_Mod::Ptr const server = SERVER_Mod::LoadModule("MODTEST_alpha", true);
    ASSERT_TRUE(client && server);
    EXPECT_THAT(recorder::Events(), ElementsAre("MODTEST_alpha:ModuleLoad", "GAME_Mod loaded MODTEST_alpha",
                                                "server:ModuleLoad", "SERVER_Mod loaded MODTEST_alpha"));
    EXPECT_EQ(server->path, "modules/MODTEST_alpha/MODTEST_alpha.SERVER_Mod.so");
    EXPECT_NE(client->handle, server->handle);
    EXPECT_EQ(GAME_Init::Count() + TESSARA_Mod::Count(), 0u);

    GAME_Mod::SortModules("update", [](GAME_Mod::Ptr, GAME_Mod::Ptr) { return false; });
    SERVER_Mod::ForEachSortedModule("update", [&](SERVER_Mod::Ptr&) { ADD_FAILURE() << "GAME_Mod's list"; });
    SERVER_Mod::UnloadModule("MODTEST_alpha");
    EXPECT_EQ(SERVER_Mod::GetModule("MODTEST_alpha"), nullptr);
    EXPECT_EQ(GAME_Mod::GetModule("MODTEST_alpha"), client);
    // MODTEST_beta exists only as a GAME_Mod library.
    EXPECT_EQ(SERVER_Mod::LoadModule("MODTEST_beta", false), nullptr);
    EXPECT_EQ(TESSARA_Mod::LoadModule("MODTEST_beta", false), nullptr);
}

TEST_F(ModuleClassesTest, ServerModuleBindsItsHooksWithTheUpdateHooksLast) {
    SERVER_Mod::Ptr const mod = SERVER_Mod::LoadModule("MODTEST_alpha", true);
    ASSERT_TRUE(mod && mod->Server_BeforeUpdate && mod->Server_GameUpdate && mod->Server_Receive);
    EXPECT_FALSE(mod->Server_Load || mod->Server_Send);
    recorder::Clear();
    mod->Server_BeforeUpdate(0.5);
    mod->Server_GameUpdate(0.25);
    mod->Server_Receive(17, "ping", 4);
    EXPECT_THAT(recorder::Events(), ElementsAre("server:Server_BeforeUpdate(0.5)", "server:Server_GameUpdate(0.25)",
                                                "server:Server_Receive(17 ping)"));
    std::less<void const*> const before;
    EXPECT_TRUE(before(&mod->id, &mod->error));
    EXPECT_TRUE(before(&mod->ModuleGetCustomPtr, &mod->Server_Load));
    EXPECT_TRUE(before(&mod->Server_Receive, &mod->Server_BeforeUpdate));
    EXPECT_TRUE(before(&mod->Server_BeforeUpdate, &mod->Server_GameUpdate));
}

TEST_F(ModuleClassesTest, ContentAndInitModulesBindTheirHooks) {
    TESSARA_Mod::Ptr const content = TESSARA_Mod::LoadModule("MODTEST_content", true);
    GAME_Init::Ptr const init = GAME_Init::LoadModule("MODTEST_init", true);
    ASSERT_TRUE(content && content->_TESSARA_Mod_VERSION && content->Load && content->Unload);
    ASSERT_TRUE(init && init->Vulkan_ScoreGPU && init->SplashBegin && init->SplashEnd);
    EXPECT_EQ(init->path, "modules/MODTEST_init/MODTEST_init.GAME_Init.so");
    EXPECT_EQ(*static_cast<int const*>(content->_TESSARA_Mod_VERSION), 7);
    EXPECT_EQ(init->Vulkan_Init, nullptr);
    recorder::Clear();
    unsigned char scratch = 0;
    content->Load(&scratch);
    content->Unload(&scratch);
    EXPECT_EQ(init->Vulkan_ScoreGPU(&scratch), 42);
    init->SplashBegin();
    init->SplashEnd();
    EXPECT_THAT(recorder::Events(), ElementsAre("content:Load(scratch)", "content:Unload(scratch)",
                                                "init:SplashBegin", "init:SplashEnd"));
}

} // namespace
} // namespace game::modules::testing
