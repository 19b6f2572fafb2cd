#include "nerox/Assert.hpp"
#include "nerox/Base16.hpp"
#include "nerox/FPSCounter.hpp"
#include "nerox/RandomGenerator.hpp"
#include "nerox/String.hpp"
#include "nerox/input/InputCodes.hpp"
#include "support/Golden.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstdint>
#include <iomanip>
#include <limits>
#include <locale>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using nerox::Base16;
using nerox::String;
using nerox::input::code_from_string;
using nerox::input::code_to_string;
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

// Each row of the golden file is a call with its arguments and its result,
// recomputed here. Base16 decodes only upper-case pairs; text does not follow
// the global locale's decimal point.
TEST(CallsTest, InputCodeNamesNumberAndHexTextsAndTrims) {
    std::istringstream rows(testsupport::ReadText(testsupport::DataFile("nerox/core/calls.txt")));
    std::ostringstream actual;
    for (std::string row, call, a, b, result; std::getline(rows, row); actual << "\n") {
        std::istringstream in(row);
        if (!(in >> call >> std::quoted(a)) || call[0] == '#') {
            actual << row;
            continue;
        }
        bool const two = call != "decode" && in >> std::quoted(b);
        std::string left = a, right = a;
        if (call == "name") result = code_to_string(a, std::stoi(b));
        if (call == "code") result = std::to_string(code_from_string(a, b));
        if (call == "fromdouble") result = String::FromDouble(std::strtod(a.c_str(), nullptr), std::stoi(b));
        if (call == "trim") result = (String::TrimLeft(left, b), left) + "|" + (String::TrimRight(right, b), right);
        try {
            if (call == "decode") result = Base16::Encode(Base16::Decode(a));
        } catch (std::invalid_argument const& error) {
            result = error.what();
        }
        actual << call << " " << std::quoted(a);
        if (two) actual << " " << std::quoted(b);
        actual << " -> " << std::quoted(result);
    }
    testsupport::ExpectGolden(actual.str(), "nerox/core/calls.txt");
    std::string line = " \t value\r\n";
    String::TrimLeft(line);
    String::TrimRight(line);
    EXPECT_EQ(line, "value") << "the default set holds blanks and line ends";
    EXPECT_EQ(String::FromDouble(0.1, 1000), String::FromDouble(0.1, 64)) << "huge precision is cut";
    struct Comma : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
    };
    std::locale const previous = std::locale::global(std::locale(std::locale::classic(), new Comma));
    std::string const text = String::FromDouble(0.5, -1);
    std::locale::global(previous);
    EXPECT_EQ(text, "0.5");
    EXPECT_EQ(Base16::Encode(nullptr, 0), "");
    Bytes all;
    for (int value = 0; value < 256; ++value) all.push_back(static_cast<unsigned char>(value));
    std::string const hex = Base16::Encode(all);
    EXPECT_EQ(hex.substr(0x7E * 2, 8), "7E7F8081");
    EXPECT_EQ(Base16::Decode(hex), all);
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
    std::this_thread::sleep_for(2ms); // like every pass of RunUntil, for the bound on the rate below
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
