#include "nerox/RandomGenerator.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <set>

namespace {

TEST(RandomGeneratorTest, ValuesStayWithinBoundsAndReachBoth) {
    nerox::RandomGenerator<int, -2, 3> generator;
    std::set<int> seen;
    for (int i = 0; i < 2000; ++i) {
        int const value = generator();
        ASSERT_GE(value, -2);
        ASSERT_LE(value, 3);
        seen.insert(value);
    }
    // 2000 draws over 6 values miss one with a chance far below 1e-100.
    EXPECT_EQ(seen, (std::set<int>{-2, -1, 0, 1, 2, 3}));
}

TEST(RandomGeneratorTest, SingleValueRange) {
    nerox::RandomGenerator<unsigned, 7u, 7u> generator;
    for (int i = 0; i < 10; ++i) EXPECT_EQ(generator(), 7u);
}

TEST(RandomGeneratorTest, FullRangeOfUnsigned64) {
    nerox::RandomGenerator<uint64_t, 0, std::numeric_limits<uint64_t>::max()> generator;
    std::set<uint64_t> seen;
    bool highBit = false;
    for (int i = 0; i < 64; ++i) {
        uint64_t const value = generator();
        seen.insert(value);
        highBit = highBit || (value >> 63) != 0;
    }
    EXPECT_EQ(seen.size(), 64u) << "64-bit draws repeated";
    EXPECT_TRUE(highBit) << "64 draws never set the top bit";
}

TEST(RandomGeneratorTest, GeneratorsAreSeededApart) {
    nerox::RandomGenerator<uint64_t, 0, std::numeric_limits<uint64_t>::max()> first;
    nerox::RandomGenerator<uint64_t, 0, std::numeric_limits<uint64_t>::max()> second;
    bool differ = false;
    for (int i = 0; i < 4; ++i) differ = differ || first() != second();
    EXPECT_TRUE(differ) << "two generators gave the same sequence";
}

} // namespace
