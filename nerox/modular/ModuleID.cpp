#include "nerox/modular/ModuleID.hpp"

#include <string_view>

namespace nerox::modular {

namespace {

constexpr std::string_view kVendorAlphabet = " 0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::string_view kNameAlphabet = " 0123456789abcdefghijklmnopqrstuvwxyz";
// Allowed first characters: the alphabets without the digits.
constexpr std::string_view kVendorFirst = " ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::string_view kNameFirst = " abcdefghijklmnopqrstuvwxyz";
constexpr size_t kMaxPartLength = 12;
constexpr uint64_t kBase = 37;
constexpr double kTwoPow64 = 18446744073709551616.0;

char ToUpper(char c) {
    return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
}
char ToLower(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

// Packs the text as a base-37 number, the first character least significant.
// Returns 0 for a character outside the alphabet or when the number would not fit.
uint64_t Pack(std::string_view text, std::string_view alphabet) {
    uint64_t value = 0;
    for (size_t i = text.size(); i-- > 0;) {
        size_t const digit = alphabet.find(text[i]);
        if (digit == std::string_view::npos) return 0;
        double const shifted = static_cast<double>(value) * static_cast<double>(kBase);
        if (shifted > kTwoPow64 || shifted + static_cast<double>(digit) > kTwoPow64) return 0;
        // The double test above can round just under 2^64; the exact test closes that gap.
        uint64_t next = 0;
        if (__builtin_mul_overflow(value, kBase, &next) || __builtin_add_overflow(next, digit, &next)) return 0;
        value = next;
    }
    return value;
}

void Unpack(uint64_t value, std::string_view alphabet, std::string& out) {
    while (value != 0) {
        out += alphabet[value % kBase];
        value /= kBase;
    }
}

} // namespace

ModuleID::ModuleID(std::string const& text) {
    size_t const split = text.find('_');
    if (text.empty() || split == std::string::npos) return;

    std::string left = text.substr(0, split);
    std::string right = text.substr(split + 1);
    for (char& c : left) c = ToUpper(c);
    for (char& c : right) c = ToLower(c);

    if (left.empty() || left.size() > kMaxPartLength) return;
    if (right.empty() || right.size() > kMaxPartLength) return;
    if (kVendorFirst.find(left.front()) == std::string_view::npos) return;
    if (kNameFirst.find(right.front()) == std::string_view::npos) return;

    vendor = Pack(left, kVendorAlphabet);
    name = Pack(right, kNameAlphabet);
}

std::string ModuleID::String() const {
    if (vendor == 0 || name == 0) return {};
    std::string text;
    text.reserve(2 * kMaxPartLength + 1);
    Unpack(vendor, kVendorAlphabet, text);
    text += '_';
    Unpack(name, kNameAlphabet, text);
    return text;
}

} // namespace nerox::modular
