#pragma once
#include <string>

namespace nerox {

/// Small text helpers.
class String {
public:
    String() = delete;

    /// Writes value through a string stream (classic locale, default float
    /// format) with the given precision in significant digits; a negative
    /// precision keeps the stream's default, one above 64 is cut to 64. Zeros
    /// trailing a decimal point are removed, and the point too if nothing follows
    /// it; an exponent form such as "1e+20" or "1.5e-07" is left as it is.
    static std::string FromDouble(double value, int precision);

    /// Removes from text every leading character that occurs in characters.
    static void TrimLeft(std::string& text, std::string const& characters = " \t\r\n");
    /// Removes from text every trailing character that occurs in characters.
    static void TrimRight(std::string& text, std::string const& characters = " \t\r\n");
};

} // namespace nerox
