#include "nerox/RandomGenerator.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <set>

namespace {

using Full64 = nerox::RandomGenerator<uint64_t, 0, std::numeric_limits<uint64_t>::max()>;

TEST(RandomGeneratorTest, ValuesStayWithinBoundsAndReachBoth) {
    nerox::RandomGenerator<int, -2, 3> generator;
    std::set<int> seen;
    for (int i = 0; i < 2000; ++i) seen.insert(generator());
    // 2000 draws over 6 values miss one with a chance far below 1e-100.
    EXPECT_EQ(seen, (std::set<int>{-2, -1, 0, 1, 2, 3}));
    nerox::RandomGenerator<unsigned, 7u, 7u> single;
    for (int i = 0; i < 10; ++i) EXPECT_EQ(single(), 7u);
}

TEST(RandomGeneratorTest, FullRangeOfUnsigned64AndSeededApart) {
    Full64 first;
    Full64 second;
    std::set<uint64_t> seen;
    bool highBit = false;
    bool differ = false;
    for (int i = 0; i < 64; ++i) {
        uint64_t const value = first();
        seen.insert(value);
        highBit = highBit || (value >> 63) != 0;
        differ = differ || value != second();
    }
    EXPECT_EQ(seen.size(), 64u) << "64-bit draws repeated";
    EXPECT_TRUE(highBit) << "64 draws never set the top bit";
    EXPECT_TRUE(differ) << "two generators gave the same sequence";
}

} // namespace
