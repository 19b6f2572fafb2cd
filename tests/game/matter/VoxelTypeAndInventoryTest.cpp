// The block-type registry (one per process: one test walks it from open to
// frozen) and the item and inventory records' saved form.
#include <gtest/gtest.h>

#include "game/Inventory.hpp"
#include "game/VoxelType.hpp"
#include "nerox/filesystem/Stream.hpp"

#include <stdexcept>
#include <string>
#include <vector>

namespace {

using game::VoxelType;

TEST(VoxelTypeTest, RegistersMergesValuesAndFreezesAtTheFirstEnumeration) {
    ASSERT_EQ(VoxelType::allVoxelTypes.size(), 1u); // the empty voxel, made first
    EXPECT_EQ(VoxelType::_empty.id, 0);
    EXPECT_EQ(VoxelType::allVoxelTypesByName.at("."), 0);

    VoxelType const rock("TESSARA_sample", "rock", 7, {});
    EXPECT_EQ(rock.id, 1);
    VoxelType const rockAgain("TESSARA_sample", "rock", 0, {}); // 0 keeps the registered value
    EXPECT_EQ(rockAgain.id, 1);
    EXPECT_EQ(rockAgain.properties, 7u);
    VoxelType const rockLater("TESSARA_sample", "rock", 9, {}); // non-zero overrides
    EXPECT_EQ(VoxelType::allVoxelTypes[1].properties, 9u);
    VoxelType const sand("TESSARA_sample", "sand", 0, {"no/such/texture.png"}); // no renderer: no textures
    EXPECT_EQ(sand.id, 2);
    EXPECT_EQ(sand.textureIndex, 0u);
    EXPECT_EQ(VoxelType::allVoxelTypes.size(), 3u);

    for (int pass = 0; pass < 2; ++pass) { // a second enumeration works as the first
        std::vector<std::string> seen;
        VoxelType::ForEach([&](unsigned short id, VoxelType const& type) {
            seen.push_back(std::to_string(id) + " " + type.name + " " + std::to_string(type.properties));
        });
        EXPECT_EQ(seen, (std::vector<std::string>{"1 rock 9", "2 sand 0"}));
    }
    EXPECT_TRUE(VoxelType::locked);
    try {
        VoxelType const late("TESSARA_sample", "mud", 1, {});
        FAIL() << "registered after the freeze";
    } catch (std::runtime_error const& error) {
        EXPECT_STREQ(error.what(), "Trying to add more voxel types after executing VoxelType::ForEach()");
    }
    EXPECT_EQ(VoxelType::allVoxelTypes.size(), 3u);
    EXPECT_THROW(VoxelType::ForEach([](unsigned short, VoxelType const&) { throw std::logic_error("x"); }),
                 std::logic_error);
    EXPECT_TRUE(VoxelType::mu.try_lock()); // released by the unwinding
    VoxelType::mu.unlock();
}

game::Inventory SampleInventory() {
    game::Inventory inventory;
    inventory.id = game::UniqueId(1, 2);
    inventory.size = 12;
    game::Item ore;
    ore.id = game::UniqueId(3, 4);
    ore.module = nerox::modular::ModuleID("TESSARA_sample");
    ore.name = "iron ore";
    ore.stack = 14;
    ore.attributes = {{"grade", "b"}, {"origin", "mine 2"}};
    inventory.items["0"] = ore;
    ore.stack = 3;
    inventory.items["11"] = ore;
    return inventory;
}

std::vector<unsigned char> Saved(game::Inventory const& inventory) {
    nerox::filesystem::WriteOnlyStream out;
    inventory.Write(out);
    return out.Bytes();
}

TEST(InventoryTest, ReadsBackWhatItWrote) {
    game::Inventory const inventory = SampleInventory();
    std::vector<unsigned char> const bytes = Saved(inventory);
    nerox::filesystem::ReadOnlyStream in(bytes);
    game::Inventory const read = game::Inventory::Read(in);
    EXPECT_EQ(read.id, inventory.id);
    EXPECT_EQ(read.size, 12u);
    ASSERT_EQ(read.items.size(), 2u);
    game::Item const& ore = read.items.at("11");
    EXPECT_EQ(ore.id, inventory.items.at("11").id);
    EXPECT_EQ(ore.module.String(), "TESSARA_sample");
    EXPECT_EQ(ore.stack, 3u);
    EXPECT_EQ(ore.attributes, inventory.items.at("0").attributes);
    EXPECT_EQ(Saved(read), bytes); // the same bytes again: slots and attributes go out sorted
}

TEST(InventoryTest, RefusesDamagedRecords) {
    std::vector<unsigned char> const good = Saved(SampleInventory());
    struct Case {
        char const* what;
        std::vector<unsigned char> bytes;
        char const* message;
    };
    std::vector<unsigned char> pastSize = good;
    pastSize[16] = 11; // 11 slots: slot 11 lies past them
    Case const cases[] = {
        {"cut short", std::vector<unsigned char>(good.begin(), good.end() - 5), "Damaged inventory record: "},
        {"empty", {}, "Damaged inventory record: "},
        {"slot past the size", pastSize, "slot 11 is past the last slot (11 slots)"},
    };
    for (Case const& c : cases) {
        nerox::filesystem::ReadOnlyStream in(c.bytes);
        try {
            game::Inventory::Read(in);
            ADD_FAILURE() << c.what << ": read";
        } catch (std::runtime_error const& error) {
            EXPECT_NE(std::string(error.what()).find(c.message), std::string::npos) << c.what << ": " << error.what();
        }
    }
}

} // namespace
