#include "nerox/Assert.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

int const assertLine = __LINE__ + 3;

int Checked(int value) {
    NEROX_ASSERT(value > 0);
    return value;
}

TEST(AssertDeathTest, AFailedCheckPrintsTheConditionFileAndLineThenAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    std::string const expected =
        "^ASSERTION FAILED: \\(value > 0\\) in [^\n]*AssertTest\\.cpp:" + std::to_string(assertLine) + "\n";
    EXPECT_DEATH(Checked(-1), expected);
}

TEST(AssertDeathTest, APassingCheckDoesNothing) { EXPECT_EQ(Checked(3), 3); }

} // namespace
