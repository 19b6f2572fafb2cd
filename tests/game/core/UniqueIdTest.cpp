#include "game/UniqueId.hpp"
#include "game/entity/Id.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <unordered_set>

namespace {

using game::UniqueId;

TEST(UniqueId, TextFormRoundTripsAndHoldsTagOwnerAndLittleEndianWords) {
    UniqueId::SetThisOwner(0x01020304u);
    UniqueId id = UniqueId::Generate("ENTT");
    UniqueId::SetThisOwner(0);
    std::string text = id;
    ASSERT_EQ(text.size(), 28u);
    EXPECT_EQ(text.substr(0, 12), "ENTT04030201") << "owner bytes in memory order";
    EXPECT_EQ(UniqueId(text), id);
    EXPECT_EQ(id.Tag(), "ENTT");
    EXPECT_EQ(id.Owner(), 0x01020304u);
    game::entity::Id const entity = game::entity::Id::Generate();
    EXPECT_TRUE(entity.IsSet());
    EXPECT_EQ(entity.Tag(), "ENTT");
}

TEST(UniqueId, TheRandomPartIsNeverZeroAndIdsDiffer) {
    // Made in a tight loop, many ids share a microsecond of the clock: still no repeats.
    std::unordered_set<UniqueId> seen;
    std::unordered_set<uint64_t> times;
    for (int i = 0; i < 20000; ++i) {
        UniqueId id = UniqueId::Generate("TEST");
        ASSERT_GE(id.second >> 50, 1u);
        seen.insert(id);
        times.insert(id.second & ((uint64_t(1) << 50) - 1));
    }
    EXPECT_EQ(seen.size(), 20000u);
    EXPECT_EQ(times.size(), 20000u);
}

TEST(UniqueId, ParsingRejectsBadLengthsAndDigits) {
    EXPECT_EQ(UniqueId(std::string()), UniqueId());
    for (size_t length : {27, 29}) {
        try {
            UniqueId(std::string(length, 'A'));
            ADD_FAILURE() << length << " characters accepted";
        } catch (std::runtime_error const& error) {
            EXPECT_STREQ(error.what(), "UniqueId string length should be 28");
        }
    }
    try {
        UniqueId("ENTT0000000a0000000000000001");
        ADD_FAILURE() << "lower-case digit accepted";
    } catch (std::invalid_argument const& error) {
        EXPECT_STREQ(error.what(), "not a hex digit");
    }
}

TEST(UniqueId, HashIsTheSecondWordAndIdsWithAZeroWordPrintEmpty) {
    EXPECT_EQ(std::hash<UniqueId>{}(UniqueId(0x1234, 0xABCDEF)), 0xABCDEFu);
    EXPECT_EQ(std::hash<game::entity::Id>{}(game::entity::Id(UniqueId(0x1234, 0xABCDEF))), 0xABCDEFu);
    for (UniqueId id : {UniqueId(), UniqueId(0, 5), UniqueId(5, 0)}) {
        EXPECT_EQ(static_cast<std::string>(id), "");
        EXPECT_FALSE(id.IsSet());
    }
}

} // namespace
