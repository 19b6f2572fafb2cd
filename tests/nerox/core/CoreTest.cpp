#include "nerox/Assert.hpp"
#include "nerox/Base16.hpp"
#include "nerox/FPSCounter.hpp"
#include "nerox/RandomGenerator.hpp"
#include "nerox/String.hpp"
#include "nerox/Timer.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <limits>
#include <locale>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using nerox::Base16;
using nerox::String;
using Bytes = std::vector<unsigned char>;

int const assertLine = __LINE__ + 3;

int Checked(int value) {
    NEROX_ASSERT(value > 0);
    return value;
}

TEST(AssertDeathTest, AFailedCheckPrintsTheConditionFileAndLineThenAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EQ(Checked(3), 3);
    std::string const expected =
        "^ASSERTION FAILED: \\(value > 0\\) in [^\n]*CoreTest\\.cpp:" + std::to_string(assertLine) + "\n";
    EXPECT_DEATH(Checked(-1), expected);
}

TEST(Base16Test, EncodesUpperCaseDecodesOnlyUpperCasePairsAndEveryByteRoundTrips) {
    EXPECT_EQ(Base16::Encode(nullptr, 0), "");
    EXPECT_TRUE(Base16::Decode("").empty());
    EXPECT_EQ(Base16::Decode("0123456789ABCDEF"), (Bytes{0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}));
    Bytes all;
    for (int value = 0; value < 256; ++value) all.push_back(static_cast<unsigned char>(value));
    std::string const text = Base16::Encode(all);
    EXPECT_EQ(text.substr(0x7E * 2, 8), "7E7F8081");
    EXPECT_EQ(Base16::Decode(text), all);
    // Lower case, the characters next to the digit ranges, NUL and bytes above 127.
    for (std::string const& text : std::initializer_list<std::string>{"0a", "a0", "0G", "0 ", "/0", ":0", "@0", "\xC3\x84", std::string("0\0", 2), "ABC"}) {
        try {
            Base16::Decode(text);
            ADD_FAILURE() << text << " decoded";
        } catch (std::invalid_argument const& error) {
            EXPECT_STREQ(error.what(), text.size() % 2 ? "odd number of hex digits" : "not a hex digit") << text;
        }
    }
}

// 2000 draws over 6 values miss one with a chance far below 1e-100.
TEST(RandomGeneratorTest, ValuesReachBothBoundsAndTheTopBitAndGeneratorsAreSeededApart) {
    nerox::RandomGenerator<int, -2, 3> small;
    std::set<int> seen;
    for (int i = 0; i < 2000; ++i) seen.insert(small());
    EXPECT_EQ(seen, (std::set<int>{-2, -1, 0, 1, 2, 3}));
    nerox::RandomGenerator<uint64_t, 0, std::numeric_limits<uint64_t>::max()> first, second;
    uint64_t high = 0, differ = 0;
    for (int i = 0; i < 64; ++i) {
        uint64_t const value = first();
        high |= value;
        differ |= value ^ second();
    }
    EXPECT_NE(high >> 63, 0u) << "64 draws never set the top bit";
    EXPECT_NE(differ, 0u) << "two generators gave the same sequence";
}

TEST(StringTest, FromDoubleDropsTrailingZerosButNotExponentsOrIntegerZerosWhateverTheLocale) {
    double const infinity = std::numeric_limits<double>::infinity();
    struct Case {
        double value;
        int precision; // -1: the stream's default of 6
        char const* text;
    } const cases[] = {
        {1.5, -1, "1.5"}, {2.0, -1, "2"}, {0.0, -1, "0"}, {-3.25, -1, "-3.25"}, {1.0 / 3.0, -1, "0.333333"},
        {1200.0, -1, "1200"}, {3.14159265, 3, "3.14"}, {0.1, 17, "0.10000000000000001"}, {2.5, 10, "2.5"},
        {1.04, 2, "1"}, {1e20, -1, "1e+20"}, {1e-7, -1, "1e-07"}, {1.5e30, 10, "1.5e+30"},
        {infinity, -1, "inf"}, {-infinity, -1, "-inf"}, {std::numeric_limits<double>::quiet_NaN(), -1, "nan"},
    };
    for (Case const& c : cases) EXPECT_EQ(String::FromDouble(c.value, c.precision), c.text) << c.value;
    EXPECT_EQ(String::FromDouble(0.1, 1000), String::FromDouble(0.1, 64)) << "huge precision is cut";
    struct Comma : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
    };
    std::locale const previous = std::locale::global(std::locale(std::locale::classic(), new Comma));
    std::string const text = String::FromDouble(0.5, -1);
    std::locale::global(previous);
    EXPECT_EQ(text, "0.5");
}

TEST(StringTest, TrimRemovesOnlyCharactersOfTheSetAtItsEnd) {
    struct Case {
        std::string text;
        char const* set; // null: the default set
        char const* left;
        char const* right;
    } const cases[] = {
        {" \t-x- \t", " \t-", "x- \t", " \t-x"}, {"abc", " ", "abc", "abc"}, {"   \t ", " \t", "", ""},
        {"", " ", "", ""}, {"  a  ", "", "  a  ", "  a  "}, {" \t v\r\n", nullptr, "v\r\n", " \t v"},
    };
    for (Case const& c : cases) {
        std::string left = c.text, right = c.text;
        c.set ? String::TrimLeft(left, c.set) : String::TrimLeft(left);
        c.set ? String::TrimRight(right, c.set) : String::TrimRight(right);
        EXPECT_EQ(left + "|" + right, std::string(c.left) + "|" + c.right) << '"' << c.text << '"';
    }
}

// A reading right after Start may be below 0 by the rounding of the start,
// kept as milliseconds since the epoch in a double (well under a microsecond).
TEST(TimerTest, ElapsedIsInMillisecondsAndStartAgainRestartsTheCount) {
    nerox::Timer timer;
    timer.Start();
    std::this_thread::sleep_for(20ms);
    double const before = timer.GetElapsedMilliseconds();
    EXPECT_GE(before, 18.0) << "20 ms read as about 20, not 0.02 nor 20000000";
    timer.Start();
    double const after = timer.GetElapsedMilliseconds();
    EXPECT_LT(after, before);
    EXPECT_GT(after, -0.001);
    EXPECT_TRUE(timer.IsRunning());
    timer.Stop();
    EXPECT_FALSE(timer.IsRunning());
}

/// Runs 2 ms passes until the counter shows what is waited for (at most 5000
/// passes), calling WorkDone the given number of times before and after the pause.
void RunUntil(nerox::FPSCounter& counter, int before, int after, bool (*shows)(nerox::FPSCounter const&)) {
    for (int ticks = 0; !shows(counter) && ticks < 5000; ++ticks) {
        counter.Tick();
        for (int i = 0; i < before; ++i) counter.WorkDone();
        std::this_thread::sleep_for(2ms);
        for (int i = 0; i < after; ++i) counter.WorkDone();
    }
}

// The getters are read from another thread all the while.
TEST(FPSCounterTest, DeltaRateAndLoadFollowThePassesAndWorkDone) {
    nerox::FPSCounter counter(0.03);
    std::atomic<bool> done{false};
    std::thread reader([&] {
        while (!done.load()) {
            EXPECT_GE(counter.GetLoad(), 0.0);
            EXPECT_LE(counter.GetLoad(), 1.0);
            EXPECT_GE(counter.GetRate(), 0.0);
            EXPECT_GE(counter.GetDeltaTime(), 0.0);
        }
    });
    counter.WorkDone(); // before any pass: ignored
    counter.Tick();
    EXPECT_EQ(counter.GetDeltaTime() + counter.GetRate(), 0.0) << "no previous pass, no window closed yet";
    EXPECT_EQ(counter.GetLoad(), 1.0);
    RunUntil(counter, 1, 0, [](nerox::FPSCounter const& c) { return c.GetLoad() < 1.0; });
    EXPECT_LT(counter.GetLoad(), 1.0) << "an idle loop never showed a load below 1";
    // Every pass lasts at least 2 ms: the delta is in seconds, and at most 500 passes fit in a second.
    EXPECT_GE(counter.GetDeltaTime(), 0.0019);
    EXPECT_GT(counter.GetRate(), 0.0);
    EXPECT_LE(counter.GetRate(), 500.0 * 1.01);
    // Reported several times, the busy time exceeds the passes themselves.
    RunUntil(counter, 0, 5, [](nerox::FPSCounter const& c) { return c.GetLoad() == 1.0; });
    EXPECT_EQ(counter.GetLoad(), 1.0);
    RunUntil(counter, 1, 0, [](nerox::FPSCounter const& c) { return c.GetLoad() < 1.0; });
    // A window without any WorkDone falls back to 1.
    RunUntil(counter, 0, 0, [](nerox::FPSCounter const& c) { return c.GetLoad() == 1.0; });
    EXPECT_EQ(counter.GetLoad(), 1.0);
    done = true;
    reader.join();
}

} // namespace
