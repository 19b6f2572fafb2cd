// Names of keys, mouse buttons and gamepad and joystick inputs, both ways.
#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <string>

#include "nerox/input/InputCodes.hpp"
#include "support/Golden.hpp"

namespace {

using nerox::input::code_from_string;
using nerox::input::code_to_string;

// Each line of the golden file is a call and its result, recomputed here.
TEST(InputCodes, CodesToNamesAndTextsToCodes)
{
    std::istringstream lines(testsupport::ReadText(testsupport::DataFile("nerox/input/codes.txt")));
    std::ostringstream actual;
    for (std::string line, call, kind, text; std::getline(lines, line);) {
        std::istringstream in(line);
        int code = 0;
        if (in >> call >> kind && call == "name" && in >> code)
            actual << call << " " << kind << " " << code << " " << code_to_string(kind, code) << "\n";
        else if (call == "code" && in >> std::quoted(text))
            actual << call << " " << kind << " " << std::quoted(text) << " " << code_from_string(kind, text) << "\n";
        else
            actual << line << "\n";
    }
    testsupport::ExpectGolden(actual.str(), "nerox/input/codes.txt");
}

} // namespace
