#pragma once
// Golden files: long expected texts kept under tests/data/ and compared whole.
// On a mismatch the failure shows the first differing line with a little
// context on both sides. Run a test with TESSARA_UPDATE_GOLDEN=1 in the
// environment to write what it produced into the golden file instead.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "support/TempDir.hpp"

namespace testsupport {

/// The path of a file under tests/data/.
inline std::string DataFile(std::string const& name) {
    return std::string(TESSARA_TEST_SOURCE_DIR) + "/data/" + name;
}

inline std::vector<std::string> SplitLines(std::string const& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

/// Where two texts first differ, with two lines of context before and after.
inline std::string DescribeDifference(std::string const& expected, std::string const& actual) {
    auto const want = SplitLines(expected);
    auto const got = SplitLines(actual);
    size_t first = 0;
    while (first < want.size() && first < got.size() && want[first] == got[first]) ++first;
    std::ostringstream out;
    out << "first difference at line " << first + 1 << " (expected " << want.size() << " lines, got " << got.size()
        << ")\n";
    size_t const from = first >= 2 ? first - 2 : 0;
    for (size_t i = from; i < std::min(first, want.size()); ++i) out << "  " << want[i] << "\n";
    for (size_t i = first; i < std::min(first + 3, want.size()); ++i) out << "- " << want[i] << "\n";
    for (size_t i = first; i < std::min(first + 3, got.size()); ++i) out << "+ " << got[i] << "\n";
    if (want.size() == got.size() && first == want.size()) out << "(the texts differ only in their last line break)\n";
    return out.str();
}

/// Compares a text with the golden file tests/data/NAME, whole.
inline void ExpectGolden(std::string const& actual, std::string const& name) {
    std::string const path = DataFile(name);
    if (char const* update = std::getenv("TESSARA_UPDATE_GOLDEN"); update && *update == '1') {
        WriteText(path, actual);
        return;
    }
    std::string const expected = ReadText(path);
    ASSERT_FALSE(expected.empty()) << "golden file missing or empty: " << path;
    if (expected != actual) ADD_FAILURE() << "differs from " << path << "\n" << DescribeDifference(expected, actual);
}

} // namespace testsupport
