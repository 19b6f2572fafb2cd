// VENDOR_name ids packed as two base-37 words.
#include "nerox/modular/ModuleID.hpp"

#include <gtest/gtest.h>

#include <unordered_set>

namespace nerox::modular {
namespace {

TEST(ModuleIDTest, TextsReadBackNormalisedOrLeaveTheIdUnset) {
    struct Case {
        char const* text;
        char const* printed;
    }; // printed nullptr: both words stay 0
    Case const cases[] = {
        {"ab_CD", "AB_cd"},
        {"vEnDoR_NaMe", "VENDOR_name"},
        {"A1_b2", "A1_b2"},
        {"TESSARA9_core42 x", "TESSARA9_core42 x"},
        {"ABCDEFGHIJKL_abcdefghijkl", "ABCDEFGHIJKL_abcdefghijkl"}, // twelve characters fit in a word
        {"ABCDEFGHIJKLM_abc", nullptr},
        {"ABC_abcdefghijklm", nullptr}, // thirteen do not
        {" A_b", " A_b"},
        {"AB  _cd ", "AB_cd"}, // a blank may open a part; trailing ones are lost
        {"", nullptr},
        {"VENDORNAME", nullptr},
        {"_name", nullptr},
        {"VENDOR_", nullptr},
        {"_", nullptr},
        {"-ACME_tools", nullptr},
        {"ACME_.tools", nullptr},
        {"1ACME_tools", nullptr},
        {"ACME_9tools", nullptr}, // nor may a digit or a sign open a part
    };
    for (Case const& c : cases) {
        ModuleID const id(c.text);
        EXPECT_EQ(id.String(), c.printed ? c.printed : "") << '"' << c.text << '"';
        EXPECT_TRUE(c.printed || (id.vendor == 0 && id.name == 0)) << '"' << c.text << '"';
    }
}

TEST(ModuleIDTest, FirstCharacterIsTheLeastSignificantDigitABadLaterOneClearsOnlyItsWordAndCaseIsIgnored) {
    // Digit values: blank 0, '0'..'9' 1..10, letters from 11.
    EXPECT_EQ(ModuleID("AB_a").vendor, 11u + 12u * 37u);
    EXPECT_EQ(ModuleID("A_b1").name, 12u + 2u * 37u);
    EXPECT_EQ(ModuleID("ZZZZZZZZZZZZ_zzzzzzzzzzzz").name, 6582952005840035280ull) << "37^12 - 1";
    ModuleID const badVendor("AC-ME_tools");
    EXPECT_TRUE(badVendor.vendor == 0u && badVendor.name == ModuleID("ACME_tools").name);
    // The split is at the first "_"; a second one belongs to the name and is not in its alphabet.
    ModuleID const badName("ACME_power_tools");
    EXPECT_TRUE(badName.vendor == ModuleID("ACME_x").vendor && badName.name == 0u);
    EXPECT_EQ(ModuleID("ACME_t\xC3\xA4st").name, 0u);
    // Ordering and hash ignore case and compare the vendor, then the name.
    EXPECT_TRUE(ModuleID("A_z") < ModuleID("B_a") && ModuleID("A_a") < ModuleID("A_b") &&
                ModuleID("A_a") != ModuleID("B_a"));
    EXPECT_EQ(ModuleID("A_a") <=> ModuleID("a_A"), std::strong_ordering::equal);
    std::unordered_set<ModuleID> const ids{ModuleID("ACME_tools"), ModuleID("acme_TOOLS"), ModuleID("ACME_parts"),
                                           ModuleID("OTHER_tools")};
    EXPECT_EQ(ids.size(), 3u);
    EXPECT_EQ(ids.count(ModuleID("Acme_Tools")), 1u);
}

} // namespace
} // namespace nerox::modular
