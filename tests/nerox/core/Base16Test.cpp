#include "nerox/Base16.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

using nerox::Base16;
using Bytes = std::vector<unsigned char>;

/// Message of the std::invalid_argument that Decode throws for text, or "" if none.
std::string DecodeError(std::string const& text) {
    try {
        Base16::Decode(text);
    } catch (std::invalid_argument const& error) {
        return error.what();
    }
    return "";
}

TEST(Base16Test, EmptyTextGivesNoBytes) {
    EXPECT_TRUE(Base16::Decode("").empty());
    EXPECT_EQ(Base16::Encode(nullptr, 0), "");
}

TEST(Base16Test, DecodesPairsHighNibbleFirst) {
    EXPECT_EQ(Base16::Decode("00"), Bytes{0x00});
    EXPECT_EQ(Base16::Decode("0F"), Bytes{0x0F});
    EXPECT_EQ(Base16::Decode("F0"), Bytes{0xF0});
    EXPECT_EQ(Base16::Decode("0123456789ABCDEF"), (Bytes{0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}));
    EXPECT_EQ(Base16::Decode("FFFE"), (Bytes{0xFF, 0xFE}));
}

TEST(Base16Test, LowerCaseAndOtherCharactersAreRejected) {
    EXPECT_EQ(DecodeError("0a"), "not a hex digit");
    EXPECT_EQ(DecodeError("a0"), "not a hex digit");
    EXPECT_EQ(DecodeError("0G"), "not a hex digit");
    EXPECT_EQ(DecodeError("0 "), "not a hex digit");
    EXPECT_EQ(DecodeError("/0"), "not a hex digit") << "the character before '0'";
    EXPECT_EQ(DecodeError(":0"), "not a hex digit") << "the character after '9'";
    EXPECT_EQ(DecodeError("@0"), "not a hex digit") << "the character before 'A'";
    EXPECT_EQ(DecodeError(std::string("0\0", 2)), "not a hex digit");
    EXPECT_EQ(DecodeError("\xC3\x84"), "not a hex digit") << "bytes above 127";
}

TEST(Base16Test, OddLengthIsRejected) {
    EXPECT_EQ(DecodeError("A"), "odd number of hex digits");
    EXPECT_EQ(DecodeError("ABC"), "odd number of hex digits");
}

TEST(Base16Test, EncodesUpperCase) {
    Bytes const bytes{0x00, 0x7F, 0x80, 0xAB, 0xFF};
    EXPECT_EQ(Base16::Encode(bytes.data(), bytes.size()), "007F80ABFF");
    EXPECT_EQ(Base16::Encode(bytes), "007F80ABFF");
    EXPECT_EQ(Base16::Encode(bytes.data() + 3, 1), "AB");
}

TEST(Base16Test, EveryByteRoundTrips) {
    Bytes all;
    for (int value = 0; value < 256; ++value) all.push_back(static_cast<unsigned char>(value));
    std::string const text = Base16::Encode(all);
    ASSERT_EQ(text.size(), 512u);
    EXPECT_EQ(Base16::Decode(text), all);
}

} // namespace
