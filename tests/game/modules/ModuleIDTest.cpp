// VENDOR_name ids packed as two base-37 words.
#include <gtest/gtest.h>

#include <string>
#include <unordered_set>

#include "nerox/modular/ModuleID.hpp"

namespace nerox::modular {
namespace {

bool IsUnset(ModuleID const& id) { return id.vendor == 0 && id.name == 0; }

TEST(ModuleIDTest, DefaultIdIsUnsetAndPrintsEmpty) {
    ModuleID const id;
    EXPECT_TRUE(IsUnset(id));
    EXPECT_EQ(id.String(), "");
}

TEST(ModuleIDTest, CaseIsNormalisedPerPart) {
    EXPECT_EQ(ModuleID("ab_CD").String(), "AB_cd");
    EXPECT_EQ(ModuleID("vEnDoR_NaMe").String(), "VENDOR_name");
    EXPECT_EQ(ModuleID("ab_CD"), ModuleID("AB_cd"));
}

TEST(ModuleIDTest, FirstCharacterIsTheLeastSignificantDigit) {
    // Digit values: blank 0, '0'..'9' 1..10, letters from 11.
    EXPECT_EQ(ModuleID("B_a").vendor, 12u);
    EXPECT_EQ(ModuleID("AB_a").vendor, 11u + 12u * 37u);
    EXPECT_EQ(ModuleID("A_b1").name, 12u + 2u * 37u);
}

TEST(ModuleIDTest, TextsWithoutTwoPartsStayUnset) {
    EXPECT_TRUE(IsUnset(ModuleID("")));
    EXPECT_TRUE(IsUnset(ModuleID("VENDORNAME")));
    EXPECT_TRUE(IsUnset(ModuleID("_name")));
    EXPECT_TRUE(IsUnset(ModuleID("VENDOR_")));
    EXPECT_TRUE(IsUnset(ModuleID("_")));
}

TEST(ModuleIDTest, PartsOfTwelveCharactersFitAndThirteenDoNot) {
    EXPECT_EQ(ModuleID("ABCDEFGHIJKL_abcdefghijkl").String(), "ABCDEFGHIJKL_abcdefghijkl");
    EXPECT_TRUE(IsUnset(ModuleID("ABCDEFGHIJKLM_abc")));
    EXPECT_TRUE(IsUnset(ModuleID("ABC_abcdefghijklm")));
}

TEST(ModuleIDTest, LongestIdRoundTrips) {
    ModuleID const id("ZZZZZZZZZZZZ_zzzzzzzzzzzz");
    // 36 in every one of the 12 places: 37^12 - 1.
    EXPECT_EQ(id.vendor, 6582952005840035280ull);
    EXPECT_EQ(id.name, 6582952005840035280ull);
    EXPECT_EQ(id.String(), "ZZZZZZZZZZZZ_zzzzzzzzzzzz");
    EXPECT_EQ(ModuleID("TESSARA9_core42 x").String(), "TESSARA9_core42 x");
}

TEST(ModuleIDTest, DigitMayNotOpenEitherPart) {
    EXPECT_TRUE(IsUnset(ModuleID("1ACME_tools")));
    EXPECT_TRUE(IsUnset(ModuleID("ACME_9tools")));
    EXPECT_EQ(ModuleID("A1_b2").String(), "A1_b2");
}

TEST(ModuleIDTest, BlankMayOpenAPartButTrailingBlanksAreLost) {
    EXPECT_EQ(ModuleID(" A_b").String(), " A_b");
    EXPECT_EQ(ModuleID("AB  _cd ").String(), "AB_cd");
}

TEST(ModuleIDTest, FirstCharacterOutsideTheAlphabetLeavesBothUnset) {
    EXPECT_TRUE(IsUnset(ModuleID("-ACME_tools")));
    EXPECT_TRUE(IsUnset(ModuleID("ACME_.tools")));
}

TEST(ModuleIDTest, LaterCharacterOutsideTheAlphabetClearsOnlyItsWord) {
    ModuleID const badVendor("AC-ME_tools");
    EXPECT_EQ(badVendor.vendor, 0u);
    EXPECT_EQ(badVendor.name, ModuleID("ACME_tools").name);
    EXPECT_EQ(badVendor.String(), "");

    // The split is at the first "_"; a second one belongs to the name and is not in its alphabet.
    ModuleID const badName("ACME_power_tools");
    EXPECT_EQ(badName.vendor, ModuleID("ACME_x").vendor);
    EXPECT_EQ(badName.name, 0u);
    EXPECT_EQ(badName.String(), "");

    EXPECT_EQ(ModuleID("ACME_t\xC3\xA4st").name, 0u);
}

TEST(ModuleIDTest, OrderingComparesVendorThenName) {
    EXPECT_LT(ModuleID("A_z"), ModuleID("B_a"));
    EXPECT_LT(ModuleID("A_a"), ModuleID("A_b"));
    EXPECT_NE(ModuleID("A_a"), ModuleID("A_b"));
    EXPECT_EQ(ModuleID("A_a") <=> ModuleID("a_A"), std::strong_ordering::equal);
}

TEST(ModuleIDTest, HashKeysUnorderedSets) {
    std::unordered_set<ModuleID> const ids{ModuleID("ACME_tools"), ModuleID("acme_TOOLS"), ModuleID("ACME_parts"),
                                           ModuleID("OTHER_tools")};
    EXPECT_EQ(ids.size(), 3u);
    EXPECT_EQ(ids.count(ModuleID("Acme_Tools")), 1u);
}

} // namespace
} // namespace nerox::modular
