#include <gtest/gtest.h>

#include "support/TempDir.hpp"

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "game/entity/EntityConfig.hpp"
#include "game/entity/EntityType.hpp"
#include "nerox/modular/ModuleID.hpp"

using game::entity::EntityConfig;
using game::entity::EntityTypeRegistry;
using nerox::modular::ModuleID;
using testsupport::TempDir;
using testsupport::WriteText;

namespace {

/// Behaviour object of the side under test.
struct ProbeInterface {
    int kind = 0;
};

using Registry = EntityTypeRegistry<ProbeInterface>;

class EntityTypeRegistryTest : public ::testing::Test {
protected:
    void SetUp() override { Clear(); }
    void TearDown() override { Clear(); }

    static void Clear()
    {
        Registry::_registered_interfaces.clear();
        Registry::_registered_items_module.clear();
    }

    /// Registers itemType of module with a description file holding text.
    std::shared_ptr<EntityConfig> Register(ModuleID const& module, std::string const& itemType, std::string const& text)
    {
        std::string const path = dir.File(itemType + ".txt");
        WriteText(path, text);
        auto config = std::make_shared<EntityConfig>(path);
        Registry::TypeDef& row = Registry::_registered_interfaces[module.String()][itemType];
        row.moduleId = module;
        row.itemType = itemType;
        row.config = config;
        row.factory = [] { return std::make_shared<ProbeInterface>(); };
        Registry::_registered_items_module[itemType] = module;
        return config;
    }

    TempDir dir;
};

TEST_F(EntityTypeRegistryTest, UnknownItemTypeGivesEmptyModuleIdWithoutThrowing)
{
    ModuleID found{ModuleID("X_y")};
    EXPECT_NO_THROW(found = Registry::FindModuleIDFromItemType(""));
    EXPECT_EQ(found, ModuleID());
    EXPECT_EQ(Registry::FindModuleIDFromItemType("crate"), ModuleID());
}

TEST_F(EntityTypeRegistryTest, KnownItemTypeGivesItsModule)
{
    ModuleID const module("ACME_tools");
    ASSERT_NE(module, ModuleID());
    Register(module, "drill", "[ENTITY]\nmass 3\n");
    Register(ModuleID("ACME_more"), "crate", "[ENTITY]\nmass 1\n");
    EXPECT_EQ(Registry::FindModuleIDFromItemType("drill"), module);
    EXPECT_EQ(Registry::FindModuleIDFromItemType("crate"), ModuleID("ACME_more"));
    EXPECT_EQ(Registry::FindModuleIDFromItemType("dril"), ModuleID());
}

TEST_F(EntityTypeRegistryTest, ConfigOfAnUnknownModuleIsEmpty)
{
    Register(ModuleID("ACME_tools"), "drill", "[ENTITY]\nmass 3\n");
    EXPECT_FALSE(Registry::GetEntityConfig("ACME_other", "drill"));
    EXPECT_FALSE(Registry::GetEntityConfig(nullptr, "drill"));
}

TEST_F(EntityTypeRegistryTest, UnknownTypeOfAKnownModuleThrows)
{
    Register(ModuleID("ACME_tools"), "drill", "[ENTITY]\nmass 3\n");
    EXPECT_THROW(Registry::GetEntityConfig("ACME_tools", "saw"), std::out_of_range);
}

TEST_F(EntityTypeRegistryTest, ConfigIsReadOnFirstUseOnly)
{
    std::shared_ptr<EntityConfig> const config = Register(ModuleID("ACME_tools"), "drill", "[ENTITY]\nmass 3\n");
    EXPECT_EQ(config->mass, 0.0); // registering reads nothing
    std::shared_ptr<EntityConfig> const first = Registry::GetEntityConfig("ACME_tools", "drill");
    ASSERT_EQ(first, config);
    EXPECT_EQ(first->mass, 3.0);
    EXPECT_TRUE(Registry::_registered_interfaces.at("ACME_tools").at("drill").configLoaded);

    WriteText(config->ToPath().string(), "[ENTITY]\nmass 8\n");
    EXPECT_EQ(Registry::GetEntityConfig("ACME_tools", "drill"), config);
    EXPECT_EQ(config->mass, 3.0); // not parsed a second time
}

TEST_F(EntityTypeRegistryTest, RowWithoutConfigGivesEmpty)
{
    Registry::_registered_interfaces["ACME_tools"]["ghost"].itemType = "ghost";
    EXPECT_FALSE(Registry::GetEntityConfig("ACME_tools", "ghost"));
}

TEST_F(EntityTypeRegistryTest, FirstUseFromManyThreadsGivesTheReadConfig)
{
    std::shared_ptr<EntityConfig> const config = Register(ModuleID("ACME_tools"), "drill", "[ENTITY]\nmass 3\n");
    std::vector<std::thread> threads;
    std::vector<double> masses(4, 0.0);
    for (size_t t = 0; t < masses.size(); ++t) {
        threads.emplace_back([t, &masses] {
            std::shared_ptr<EntityConfig> const got = Registry::GetEntityConfig("ACME_tools", "drill");
            std::lock_guard<std::mutex> lock(got->GetMutex());
            masses[t] = got->mass;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (double mass : masses)
        EXPECT_EQ(mass, 3.0);
}

} // namespace
