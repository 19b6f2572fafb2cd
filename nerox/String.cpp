#include "nerox/String.hpp"

#include <algorithm>
#include <locale>
#include <sstream>

namespace nerox {

namespace {
/// Largest precision passed on to the stream; more digits carry nothing for a double.
constexpr int maxPrecision = 64;
} // namespace

std::string String::FromDouble(double value, int precision) {
    std::ostringstream stream;
    stream.imbue(std::locale::classic());
    if (precision >= 0) stream.precision(std::min(precision, maxPrecision));
    stream << value;
    std::string text = stream.str();

    bool const hasPoint = text.find('.') != std::string::npos;
    bool const hasExponent = text.find_first_of("eE") != std::string::npos;
    if (hasPoint && !hasExponent) {
        size_t const last = text.find_last_not_of('0');
        // The '.' is not a '0', so last is at or after it.
        text.erase(last + 1);
        if (text.back() == '.') text.pop_back();
    }
    return text;
}

void String::TrimLeft(std::string& text, std::string const& characters) {
    size_t const first = text.find_first_not_of(characters);
    if (first == std::string::npos) {
        text.clear();
    } else {
        text.erase(0, first);
    }
}

void String::TrimRight(std::string& text, std::string const& characters) {
    size_t const last = text.find_last_not_of(characters);
    if (last == std::string::npos) {
        text.clear();
    } else {
        text.erase(last + 1);
    }
}

} // namespace nerox
