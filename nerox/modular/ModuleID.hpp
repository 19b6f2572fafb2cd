#pragma once
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace nerox::modular {

/// Identity of a module or of its content, written as VENDOR_name: the vendor part in
/// upper case and the name part in lower case, each 1 to 12 characters of blank, digits
/// and letters, beginning with a blank or a letter. Both parts are packed as base-37
/// numbers, first character least significant. A word of 0 means "unset".
struct ModuleID {
    /// Packed vendor part (alphabet " 0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ").
    uint64_t vendor = 0;
    /// Packed name part (alphabet " 0123456789abcdefghijklmnopqrstuvwxyz").
    uint64_t name = 0;

    /// The unset id: both words 0.
    ModuleID() = default;
    /// Parses VENDOR_name. A text without "_", with a part that is empty or longer than
    /// 12 characters, or with a part whose first character is not a blank or a letter
    /// leaves both words 0; a later character outside the alphabet sets only its word to 0.
    explicit ModuleID(std::string const& text);

    /// VENDOR_name again, or "" when either word is 0. Trailing blanks are not restored.
    std::string String() const;

    /// Equal when both words are equal.
    bool operator==(ModuleID const&) const = default;
    /// Orders by vendor, then by name.
    std::strong_ordering operator<=>(ModuleID const&) const = default;
};

} // namespace nerox::modular

/// Hash of both words, so that ids can key unordered containers.
template <> struct std::hash<nerox::modular::ModuleID> {
    size_t operator()(nerox::modular::ModuleID const& id) const noexcept {
        uint64_t const mixed = id.vendor * 0x9E3779B97F4A7C15ull ^ (id.name + 0x632BE59BD9B4E019ull);
        return static_cast<size_t>(mixed ^ (mixed >> 29));
    }
};
