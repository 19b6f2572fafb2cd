#include <gtest/gtest.h>

#include "support/TempDir.hpp"

#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "game/entity/EntityConfig.hpp"
#include "game/entity/EntityType.hpp"
#include "nerox/modular/ModuleID.hpp"

using game::entity::EntityConfig;
using nerox::modular::ModuleID;

namespace {

/// Behaviour object of the side under test.
struct ProbeInterface {};

using Registry = game::entity::EntityTypeRegistry<ProbeInterface>;

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
        testsupport::WriteText(dir.File(itemType + ".txt"), text);
        auto config = std::make_shared<EntityConfig>(dir.File(itemType + ".txt"));
        Registry::TypeDef& row = Registry::_registered_interfaces[module.String()][itemType];
        row.moduleId = module;
        row.itemType = itemType;
        row.config = config;
        row.factory = [] { return std::make_shared<ProbeInterface>(); };
        Registry::_registered_items_module[itemType] = module;
        return config;
    }

    testsupport::TempDir dir;
};

TEST_F(EntityTypeRegistryTest, ItemTypeFindsItsModuleOrNone)
{
    EXPECT_EQ(Registry::FindModuleIDFromItemType(""), ModuleID()) << "no throw for an unknown type";
    Register(ModuleID("ACME_tools"), "drill", "[ENTITY]\nmass 3\n");
    Register(ModuleID("ACME_more"), "crate", "[ENTITY]\nmass 1\n");
    EXPECT_EQ(Registry::FindModuleIDFromItemType("drill"), ModuleID("ACME_tools"));
    EXPECT_EQ(Registry::FindModuleIDFromItemType("crate"), ModuleID("ACME_more"));
    EXPECT_EQ(Registry::FindModuleIDFromItemType("dril"), ModuleID());
}

TEST_F(EntityTypeRegistryTest, ConfigIsReadOnFirstUseOnly)
{
    std::shared_ptr<EntityConfig> const config = Register(ModuleID("ACME_tools"), "drill", "[ENTITY]\nmass 3\n");
    EXPECT_EQ(config->mass, 0.0) << "registering reads nothing";
    ASSERT_EQ(Registry::GetEntityConfig("ACME_tools", "drill"), config);
    EXPECT_EQ(config->mass, 3.0);
    testsupport::WriteText(config->ToPath().string(), "[ENTITY]\nmass 8\n");
    EXPECT_EQ(Registry::GetEntityConfig("ACME_tools", "drill"), config);
    EXPECT_EQ(config->mass, 3.0) << "not read a second time";

    // Unknown module or a row without a description: empty. Unknown type of a known module: throws.
    EXPECT_FALSE(Registry::GetEntityConfig("ACME_other", "drill"));
    EXPECT_FALSE(Registry::GetEntityConfig(nullptr, "drill"));
    Registry::_registered_interfaces["ACME_tools"]["ghost"].itemType = "ghost";
    EXPECT_FALSE(Registry::GetEntityConfig("ACME_tools", "ghost"));
    EXPECT_THROW(Registry::GetEntityConfig("ACME_tools", "saw"), std::out_of_range);
}

TEST_F(EntityTypeRegistryTest, FirstUseFromManyThreadsGivesTheReadConfig)
{
    Register(ModuleID("ACME_tools"), "drill", "[ENTITY]\nmass 3\n");
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
    EXPECT_EQ(masses, std::vector<double>(4, 3.0));
}

} // namespace
