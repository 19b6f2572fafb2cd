// Names of keys, mouse buttons and gamepad and joystick inputs, both ways.
#include <gtest/gtest.h>

#include <cctype>
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

TEST(InputCodes, NamesReadBackInAnyCaseAndWithoutPrefix)
{
    std::string const kinds[] = {"key", "mouse", "gamepad_button", "gamepad_axis", "joystick_button", "joystick_axis"};
    int const lasts[] = {GLFW_KEY_LAST, GLFW_MOUSE_BUTTON_LAST, GLFW_GAMEPAD_BUTTON_LAST, GLFW_GAMEPAD_AXIS_LAST,
                         40, 40};
    for (size_t k = 0; k < std::size(kinds); ++k) {
        for (int code = 0; code <= lasts[k]; ++code) {
            std::string const name = code_to_string(kinds[k], code);
            if (name.rfind("UNKNOWN", 0) == 0) continue;
            std::string lower = name;
            for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            EXPECT_EQ(code_from_string(kinds[k], name), code) << name;
            EXPECT_EQ(code_from_string(kinds[k], lower), code) << name;
            std::string const bare = lower.substr(kinds[k] == "key" ? 4 : lower.find('_', lower.find('_') + 1) + 1);
            if (kinds[k].rfind("joystick", 0) != 0) {
                EXPECT_EQ(code_from_string(kinds[k], bare), code) << bare;
            }
        }
        EXPECT_EQ(code_from_string(kinds[k], "none"), -1);
    }
}

} // namespace
