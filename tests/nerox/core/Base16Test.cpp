#include "nerox/Base16.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

using nerox::Base16;
using Bytes = std::vector<unsigned char>;

TEST(Base16Test, DecodesUpperCasePairsHighNibbleFirst) {
    EXPECT_TRUE(Base16::Decode("").empty());
    EXPECT_EQ(Base16::Decode("0123456789ABCDEF"), (Bytes{0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}));
    // Lower case, the characters next to the digit ranges, NUL and bytes above 127.
    for (std::string const text : {"0a", "a0", "0G", "0 ", "/0", ":0", "@0", "\xC3\x84", "A", "ABC"}) {
        try {
            Base16::Decode(text);
            ADD_FAILURE() << text << " decoded";
        } catch (std::invalid_argument const& error) {
            EXPECT_STREQ(error.what(), text.size() % 2 ? "odd number of hex digits" : "not a hex digit") << text;
        }
    }
    EXPECT_THROW(Base16::Decode(std::string("0\0", 2)), std::invalid_argument);
}

TEST(Base16Test, EncodesUpperCaseAndEveryByteRoundTrips) {
    EXPECT_EQ(Base16::Encode(nullptr, 0), "");
    Bytes all;
    for (int value = 0; value < 256; ++value) all.push_back(static_cast<unsigned char>(value));
    std::string const text = Base16::Encode(all);
    EXPECT_EQ(text.substr(0x7F * 2, 6), "7F8081");
    EXPECT_EQ(text.substr(0xAB * 2, 2), "AB");
    EXPECT_EQ(Base16::Encode(all.data() + 0xFE, 2), "FEFF");
    EXPECT_EQ(Base16::Decode(text), all);
}

} // namespace
