// VENDOR_name ids packed as two base-37 words.
#include "nerox/modular/ModuleID.hpp"

#include <gtest/gtest.h>

namespace nerox::modular {
namespace {

TEST(ModuleIDTest, TextsReadBackNormalisedOrLeaveTheIdUnset) {
    // Twelve characters fit in a word; a blank may open a part, trailing ones are lost.
    for (auto [text, printed] : {std::pair("ab_CD", "AB_cd"), std::pair("vEnDoR_NaMe", "VENDOR_name"),
                                 std::pair("A1_b2", "A1_b2"), std::pair("TESSARA9_core42 x", "TESSARA9_core42 x"),
                                 std::pair("ABCDEFGHIJKL_abcdefghijkl", "ABCDEFGHIJKL_abcdefghijkl"),
                                 std::pair(" A_b", " A_b"), std::pair("AB  _cd ", "AB_cd")})
        EXPECT_EQ(ModuleID(text).String(), printed) << '"' << text << '"';
    // Thirteen characters do not fit, nor may a digit or a sign open a part: both words stay 0.
    for (char const* text : {"ABCDEFGHIJKLM_abc", "ABC_abcdefghijklm", "", "VENDORNAME", "_name", "VENDOR_", "_",
                             "-ACME_tools", "ACME_.tools", "1ACME_tools", "ACME_9tools"}) {
        ModuleID const id(text);
        EXPECT_TRUE(id.String().empty() && id.vendor == 0 && id.name == 0) << '"' << text << '"';
    }
}

TEST(ModuleIDTest, FirstCharacterIsTheLeastSignificantDigitABadLaterOneClearsOnlyItsWord) {
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
}

} // namespace
} // namespace nerox::modular
