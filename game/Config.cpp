#include "game/Config.hpp"

#include <libfyaml.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <iostream>
#include <limits>
#include <new>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <unordered_map>
#include <vector>

namespace game {

namespace {

// Type bits of a node record.
constexpr uint32_t mapBit = 1;
constexpr uint32_t arrayBit = 2;
constexpr uint32_t valueBit = 4;
constexpr uint32_t keyBit = 8;

// Link value of no node inside the table.
constexpr uint32_t noLink = UINT32_MAX;

// Longest alias name quoted in an error message.
constexpr size_t maxQuotedName = 64;

/// Why a document was refused, and where.
struct BuildError {
    int line;
    int column;
    std::string message;
};

// ---- Text tests and conversions

/// The text without blanks, tabs, carriage returns and line feeds at both ends.
std::string_view Trim(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n";
    size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    size_t last = text.find_last_not_of(blanks);
    return text.substr(first, last - first + 1);
}

/// Removes a base prefix ("0x", "0b", "0o", either case) from text and returns the base it names; 10 without one.
unsigned TakeBasePrefix(std::string_view& text) {
    if (text.size() < 2 || text[0] != '0') return 10;
    switch (text[1]) {
    case 'x':
    case 'X': text.remove_prefix(2); return 16;
    case 'b':
    case 'B': text.remove_prefix(2); return 2;
    case 'o':
    case 'O': text.remove_prefix(2); return 8;
    default: return 10;
    }
}

/// Value of a digit in bases up to 16; 16 for any other character.
unsigned DigitValue(char c) {
    if (c >= '0' && c <= '9') return unsigned(c - '0');
    if (c >= 'a' && c <= 'f') return unsigned(c - 'a' + 10);
    if (c >= 'A' && c <= 'F') return unsigned(c - 'A' + 10);
    return 16;
}

/// True if text is non-empty and every character is a digit of base.
bool AllDigits(std::string_view text, unsigned base) {
    if (text.empty()) return false;
    for (char c : text) {
        if (DigitValue(c) >= base) return false;
    }
    return true;
}

/// True if text is one whole integer: optional sign, optional base prefix, digits of that base.
bool IsIntegerText(std::string_view text) {
    if (!text.empty() && (text[0] == '+' || text[0] == '-')) text.remove_prefix(1);
    unsigned base = TakeBasePrefix(text);
    return AllDigits(text, base);
}

/// The integer of text in U's width, wrapping: optional "-", optional base prefix, digits. 0 if malformed.
template <typename U> U WrappingInteger(std::string_view text) {
    bool negative = !text.empty() && text[0] == '-';
    if (negative) text.remove_prefix(1);
    unsigned base = TakeBasePrefix(text);
    if (!AllDigits(text, base)) return 0;
    U value = 0;
    for (char c : text) value = U(value * base + DigitValue(c));
    return negative ? U(U(0) - value) : value;
}

/// The unsigned integer of text: optional base prefix, digits. 0 if malformed or too large.
uint64_t UnsignedInteger(std::string_view text) {
    unsigned base = TakeBasePrefix(text);
    if (!AllDigits(text, base)) return 0;
    uint64_t value = 0;
    for (char c : text) {
        uint64_t digit = DigitValue(c);
        if (value > (UINT64_MAX - digit) / base) return 0;
        value = value * base + digit;
    }
    return value;
}

/// Kind of an infinity or NaN spelling.
enum class Special { none, infinity, nan };

/// Reads an optional sign and an infinity or NaN spelling making up the whole text.
Special SpecialReal(std::string_view text, bool& negative) {
    static constexpr std::string_view infinities[] = {
        "inf", "Inf", "INF", "infinity", "Infinity", "INFINITY", ".inf", ".Inf", ".INF",
    };
    static constexpr std::string_view nans[] = {"nan", "Nan", "NaN", "NAN", ".nan", ".NaN", ".NAN"};
    negative = !text.empty() && text[0] == '-';
    if (!text.empty() && (text[0] == '+' || text[0] == '-')) text.remove_prefix(1);
    for (std::string_view spelling : infinities) {
        if (text == spelling) return Special::infinity;
    }
    for (std::string_view spelling : nans) {
        if (text == spelling) return Special::nan;
    }
    return Special::none;
}

/// Counts the digits of base at the start of text and removes them.
size_t TakeDigits(std::string_view& text, unsigned base) {
    size_t count = 0;
    while (count < text.size() && DigitValue(text[count]) < base) ++count;
    text.remove_prefix(count);
    return count;
}

/// True if text is a whole real: digits with an optional fraction, or a fraction alone,
/// then an optional exponent (marker, optional sign, decimal digits). Hexadecimal uses
/// hex digits and a "p" exponent.
bool IsRealBody(std::string_view text, bool hexadecimal) {
    unsigned base = hexadecimal ? 16 : 10;
    size_t digits = TakeDigits(text, base);
    if (!text.empty() && text[0] == '.') {
        text.remove_prefix(1);
        digits += TakeDigits(text, base);
    }
    if (digits == 0) return false;
    if (text.empty()) return true;
    bool marker = hexadecimal ? (text[0] == 'p' || text[0] == 'P') : (text[0] == 'e' || text[0] == 'E');
    if (!marker) return false;
    text.remove_prefix(1);
    if (!text.empty() && (text[0] == '+' || text[0] == '-')) text.remove_prefix(1);
    return TakeDigits(text, 10) > 0 && text.empty();
}

/// True if text is one whole real number: an integer of any base, a decimal or
/// hexadecimal real, or an infinity or NaN, each with an optional sign.
bool IsRealText(std::string_view text) {
    bool negative = false;
    if (SpecialReal(text, negative) != Special::none) return true;
    if (!text.empty() && (text[0] == '+' || text[0] == '-')) text.remove_prefix(1);
    unsigned base = TakeBasePrefix(text);
    if (base == 2 || base == 8) return AllDigits(text, base);
    return IsRealBody(text, base == 16);
}

/// Direction of a real that from_chars can't represent: true if it is too large,
/// false if it is too small. Judged by the position of the first significant digit
/// and the exponent; body is a well-formed real without sign or prefix.
bool IsTooLarge(std::string_view body, bool hexadecimal) {
    unsigned base = hexadecimal ? 16 : 10;
    long long magnitude = 0; // digits before the point, less leading zeros after it
    bool significant = false;
    bool fraction = false;
    size_t i = 0;
    for (; i < body.size(); ++i) {
        char c = body[i];
        if (c == '.') {
            fraction = true;
            continue;
        }
        if (DigitValue(c) >= base) break;
        if (!significant && c != '0') significant = true;
        if (!fraction && significant) ++magnitude;
        if (fraction && !significant) --magnitude;
    }
    long long exponent = 0;
    bool negativeExponent = false;
    if (i < body.size()) {
        ++i; // the exponent marker
        if (i < body.size() && (body[i] == '+' || body[i] == '-')) negativeExponent = body[i++] == '-';
        for (; i < body.size() && exponent < 1000000000; ++i) exponent = exponent * 10 + (body[i] - '0');
    }
    if (!significant) return false;
    if (negativeExponent) exponent = -exponent;
    // A hex digit is four binary places; the exponent counts binary places.
    if (hexadecimal) magnitude *= 4;
    return magnitude + exponent > 0;
}

/// The real number of text in T; 0 if the text isn't a whole real number.
template <typename T> T RealValue(std::string_view text) {
    bool negative = false;
    switch (SpecialReal(text, negative)) {
    case Special::infinity: return negative ? -std::numeric_limits<T>::infinity() : std::numeric_limits<T>::infinity();
    case Special::nan: return std::copysign(std::numeric_limits<T>::quiet_NaN(), negative ? T(-1) : T(1));
    case Special::none: break;
    }
    if (!IsRealText(text)) return 0;
    negative = text[0] == '-';
    if (text[0] == '+' || text[0] == '-') text.remove_prefix(1);
    unsigned base = TakeBasePrefix(text);
    T value = 0;
    if (base == 2 || base == 8) {
        for (char c : text) value = value * T(base) + T(DigitValue(c));
    } else {
        std::chars_format format = base == 16 ? std::chars_format::hex : std::chars_format::general;
        std::from_chars_result result = std::from_chars(text.data(), text.data() + text.size(), value, format);
        if (result.ec == std::errc::result_out_of_range) {
            value = IsTooLarge(text, base == 16) ? std::numeric_limits<T>::infinity() : T(0);
        } else if (result.ec != std::errc() || result.ptr != text.data() + text.size()) {
            value = 0;
        }
    }
    return negative ? -value : value;
}

/// Finds the first byte of text that is a NUL or isn't part of well-formed UTF-8 (no
/// overlong forms, no surrogates, nothing past U+10FFFF). Returns what is wrong with it,
/// and its line and column (both from 1, the column counted in characters); null if
/// the whole text is fine.
char const* FindBadByte(std::string_view text, int& line, int& column) {
    line = 1;
    column = 1;
    size_t i = 0;
    while (i < text.size()) {
        unsigned char lead = static_cast<unsigned char>(text[i]);
        size_t length = 0;
        unsigned char low = 0x80; // range of the second byte
        unsigned char high = 0xBF;
        if (lead == 0) {
            return "NUL character";
        } else if (lead < 0x80) {
            length = 1;
        } else if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            if (lead == 0xE0) low = 0xA0;  // overlong
            if (lead == 0xED) high = 0x9F; // surrogates
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            if (lead == 0xF0) low = 0x90;  // overlong
            if (lead == 0xF4) high = 0x8F; // past U+10FFFF
        } else {
            return "invalid UTF-8";
        }
        if (length > text.size() - i) return "invalid UTF-8";
        for (size_t k = 1; k < length; ++k) {
            unsigned char next = static_cast<unsigned char>(text[i + k]);
            if (next < (k == 1 ? low : 0x80) || next > (k == 1 ? high : 0xBF)) return "invalid UTF-8";
        }
        if (lead == '\n') {
            ++line;
            column = 1;
        } else {
            ++column;
        }
        i += length;
    }
    return nullptr;
}

/// The text with line breaks turned into blanks, so that it fits on one line.
std::string OneLine(std::string_view text) {
    std::string line(text);
    for (char& c : line) {
        if (c == '\n' || c == '\r') c = ' ';
    }
    return line;
}

/// Writes the one line of a refused document.
void ReportError(int line, int column, std::string_view message) {
    std::cerr << "Config: YAML error at line " << line << ", column " << column << ": " << OneLine(message) << '\n';
}

/// Diagnostic output that goes nowhere: errors are collected and reported by Parse.
void DiscardDiagnostic(fy_diag*, void*, char const*, size_t) { }

/// Lets go of a diagnostic object. Collected errors are only freed when collecting is
/// switched off, not when the last reference goes, so switch it off first.
void ReleaseDiag(fy_diag* diag) {
    fy_diag_set_collect_errors(diag, false);
    fy_diag_unref(diag);
}

} // namespace

// ---- Node table

/// The flattened document: node records linked by index, and their texts in one arena.
class Config::Tree {
public:
    /// A piece of the text arena.
    struct Text {
        uint32_t offset = 0;
        uint32_t size = 0;
    };

    /// One node: its type bits, its links and its texts.
    struct Record {
        uint32_t flags;    ///< mapBit, arrayBit, valueBit, keyBit.
        uint32_t position; ///< Index among its siblings.
        uint32_t parent;
        uint32_t first;
        uint32_t last;
        uint32_t next;
        uint32_t previous;
        Text key;
        Text value;
    };

    std::vector<Record> nodes; ///< Node 0 is the root.
    std::string text;          ///< Keys and scalars, back to back.

    /// The record of id, or null if tree is null or id names no node.
    static Record const* At(Tree const* tree, size_t id) {
        if (tree == nullptr || id >= tree->nodes.size()) return nullptr;
        return &tree->nodes[id];
    }

    /// A link as a public index.
    static size_t Index(uint32_t link) { return link == noLink ? none : size_t(link); }

    /// The characters of a piece of the arena.
    std::string_view View(Text piece) const { return {text.data() + piece.offset, piece.size}; }

    /// Flattens the document; throws BuildError if it is refused.
    void Build(fy_document* document);

private:
    /// A collection whose children are being added.
    struct Frame {
        fy_node* source;
        uint32_t index;
        void* iterator;
    };

    /// Where an anchored collection went in the table.
    struct Anchored {
        uint32_t index;
        bool complete;
    };

    /// Refuses the document at the last position taken by Locate.
    [[noreturn]] void Fail(std::string message) const { throw BuildError{_line, _column, std::move(message)}; }
    /// Takes the position of a scalar or alias for later error messages.
    void Locate(fy_node* node);
    /// Appends characters to the arena.
    Text AddText(char const* data, size_t size);
    /// Appends a node as the last child of parent (noLink for the root).
    uint32_t AddNode(uint32_t parent, uint32_t flags, Text key, Text value);
    /// Copies a scalar's text into the arena, remembering it if the scalar is anchored.
    Text ScalarText(fy_node* scalar);
    /// The text of a mapping key; false if the key is a collection and its pair is left out.
    bool KeyText(fy_node* key, Text& out);
    /// Adds source below parent; a collection's children follow from the frame it pushes.
    void AddItem(fy_node* source, uint32_t parent, uint32_t keyFlag, Text key);
    /// Adds a copy of what alias names below parent.
    void AddAlias(fy_node* alias, uint32_t parent, uint32_t keyFlag, Text key);
    /// Adds a copy of the table's finished subtree at source below parent.
    void CopySubtree(uint32_t source, uint32_t parent, uint32_t keyFlag, Text key);
    /// "*name" of an alias, cut short for messages.
    std::string AliasName(fy_node* alias) const;

    // Used while building only.
    std::vector<Frame> _frames;
    std::unordered_map<fy_node*, Anchored> _collections;
    std::unordered_map<fy_node*, Text> _scalars;
    std::vector<std::pair<uint32_t, uint32_t>> _pending; // (source, copy) pairs of CopySubtree
    int _line = 0;
    int _column = 0;
};

void Config::Tree::Build(fy_document* document) {
    fy_node* root = fy_document_root(document);
    if (root == nullptr) return;
    AddItem(root, noLink, 0, {});
    while (!_frames.empty()) {
        Frame& frame = _frames.back();
        uint32_t parent = frame.index;
        if (nodes[parent].flags & arrayBit) {
            fy_node* item = fy_node_sequence_iterate(frame.source, &frame.iterator);
            if (item != nullptr) {
                AddItem(item, parent, 0, {});
                continue;
            }
        } else {
            fy_node_pair* pair = fy_node_mapping_iterate(frame.source, &frame.iterator);
            if (pair != nullptr) {
                Text key;
                if (KeyText(fy_node_pair_key(pair), key)) AddItem(fy_node_pair_value(pair), parent, keyBit, key);
                continue;
            }
        }
        auto anchored = _collections.find(frame.source);
        if (anchored != _collections.end()) anchored->second.complete = true;
        _frames.pop_back();
    }
    _collections = {};
    _scalars = {};
    _frames = {};
    _pending = {};
}

void Config::Tree::Locate(fy_node* node) {
    fy_token* token = fy_node_get_scalar_token(node);
    fy_mark const* mark = token != nullptr ? fy_token_start_mark(token) : nullptr;
    if (mark == nullptr) return;
    // Marks count from 0. An alias token starts at the name, after the '*': step back onto it.
    _line = mark->line + 1;
    _column = fy_node_is_alias(node) && mark->column > 0 ? mark->column : mark->column + 1;
}

Config::Tree::Text Config::Tree::AddText(char const* data, size_t size) {
    if (data == nullptr || size == 0) return {};
    if (size > UINT32_MAX - text.size()) Fail("document too large");
    Text piece{uint32_t(text.size()), uint32_t(size)};
    text.append(data, size);
    return piece;
}

uint32_t Config::Tree::AddNode(uint32_t parent, uint32_t flags, Text key, Text value) {
    if (nodes.size() >= maxNodes) Fail("more than " + std::to_string(maxNodes) + " nodes");
    uint32_t index = uint32_t(nodes.size());
    Record record{flags, 0, parent, noLink, noLink, noLink, noLink, key, value};
    if (parent != noLink) {
        Record& up = nodes[parent];
        record.previous = up.last;
        if (up.last != noLink) {
            record.position = nodes[up.last].position + 1;
            nodes[up.last].next = index;
        } else {
            up.first = index;
        }
        up.last = index;
    }
    nodes.push_back(record);
    return index;
}

Config::Tree::Text Config::Tree::ScalarText(fy_node* scalar) {
    Locate(scalar);
    size_t size = 0;
    char const* data = fy_node_get_scalar(scalar, &size);
    Text piece = AddText(data, data != nullptr ? size : 0);
    if (fy_node_get_anchor(scalar) != nullptr) _scalars[scalar] = piece;
    return piece;
}

std::string Config::Tree::AliasName(fy_node* alias) const {
    size_t size = 0;
    char const* data = fy_node_get_scalar(alias, &size);
    if (data == nullptr) return "*";
    return "*" + std::string(data, std::min(size, maxQuotedName));
}

bool Config::Tree::KeyText(fy_node* key, Text& out) {
    out = {};
    if (key == nullptr) return true;
    if (fy_node_is_alias(key)) {
        Locate(key);
        fy_node* target = fy_node_resolve_alias(key);
        if (target != nullptr && !fy_node_is_scalar(target)) return false; // a collection as key
        auto found = _scalars.find(target);
        if (target == nullptr || found == _scalars.end()) Fail("alias " + AliasName(key) + " names no earlier anchor");
        out = found->second;
        return true;
    }
    if (!fy_node_is_scalar(key)) return false;
    out = ScalarText(key);
    return true;
}

void Config::Tree::AddItem(fy_node* source, uint32_t parent, uint32_t keyFlag, Text key) {
    if (source == nullptr) {
        AddNode(parent, valueBit | keyFlag, key, {});
        return;
    }
    if (fy_node_is_alias(source)) {
        AddAlias(source, parent, keyFlag, key);
        return;
    }
    switch (fy_node_get_type(source)) {
    case FYNT_SCALAR: {
        Text value = ScalarText(source);
        AddNode(parent, valueBit | keyFlag, key, value);
        return;
    }
    case FYNT_SEQUENCE:
    case FYNT_MAPPING: {
        uint32_t flags = (fy_node_get_type(source) == FYNT_MAPPING ? mapBit : arrayBit) | keyFlag;
        uint32_t index = AddNode(parent, flags, key, {});
        if (fy_node_get_anchor(source) != nullptr) _collections[source] = Anchored{index, false};
        _frames.push_back(Frame{source, index, nullptr});
        return;
    }
    }
}

void Config::Tree::AddAlias(fy_node* alias, uint32_t parent, uint32_t keyFlag, Text key) {
    Locate(alias);
    fy_node* target = fy_node_resolve_alias(alias);
    if (target != nullptr && fy_node_is_scalar(target)) {
        auto found = _scalars.find(target);
        if (found != _scalars.end()) {
            AddNode(parent, valueBit | keyFlag, key, found->second);
            return;
        }
    } else if (target != nullptr) {
        auto found = _collections.find(target);
        if (found != _collections.end()) {
            if (!found->second.complete) Fail("alias " + AliasName(alias) + " is inside the node it names");
            CopySubtree(found->second.index, parent, keyFlag, key);
            return;
        }
    }
    Fail("alias " + AliasName(alias) + " names no earlier anchor");
}

void Config::Tree::CopySubtree(uint32_t source, uint32_t parent, uint32_t keyFlag, Text key) {
    // The copy of the top takes the alias's place and key; the nodes below keep theirs.
    // Texts are shared with the original, so a copy costs node records only.
    Record const top = nodes[source];
    uint32_t copy = AddNode(parent, (top.flags & ~keyBit) | keyFlag, key, top.value);
    _pending.clear();
    _pending.emplace_back(source, copy);
    for (size_t i = 0; i < _pending.size(); ++i) {
        auto [from, to] = _pending[i];
        for (uint32_t child = nodes[from].first; child != noLink; child = nodes[child].next) {
            Record const original = nodes[child];
            uint32_t made = AddNode(to, original.flags, original.key, original.value);
            if (original.first != noLink) _pending.emplace_back(child, made);
        }
    }
}

// ---- Config

Config::Config() = default;

Config::~Config() = default;

void Config::Parse(char* text) {
    if (text == nullptr) {
        Clear();
        return;
    }
    ParseText(text, std::strlen(text));
}

void Config::Parse(std::string const& text) {
    ParseText(text.data(), text.size());
}

void Config::Clear() {
    _tree.reset();
}

void Config::ParseText(char const* data, size_t size) {
    Clear();
    if (size == 0) return;
    // The scanner may not come back from some malformed UTF-8, and it takes a NUL for
    // the end of the text: it sees neither.
    int line = 0;
    int column = 0;
    if (char const* problem = FindBadByte(std::string_view(data, size), line, column)) {
        ReportError(line, column, problem);
        return;
    }

    fy_diag_cfg diagConfig;
    fy_diag_cfg_default(&diagConfig);
    diagConfig.fp = nullptr;
    diagConfig.output_fn = DiscardDiagnostic;
    diagConfig.colorize = false;
    std::unique_ptr<fy_diag, void (*)(fy_diag*)> diag(fy_diag_create(&diagConfig), ReleaseDiag);
    if (!diag) {
        ReportError(0, 0, "cannot start the parser");
        return;
    }
    fy_diag_set_collect_errors(diag.get(), true);

    fy_parse_cfg parseConfig{};
    parseConfig.flags = fy_parse_cfg_flags(FYPCF_QUIET | FYPCF_ALLOW_DUPLICATE_KEYS);
    parseConfig.diag = diag.get();
    std::unique_ptr<fy_parser, void (*)(fy_parser*)> parser(fy_parser_create(&parseConfig), fy_parser_destroy);
    if (!parser || fy_parser_set_string(parser.get(), data, size) != 0) {
        ReportError(0, 0, "cannot start the parser");
        return;
    }
    auto destroyDocument = [&parser](fy_document* document) { fy_parse_document_destroy(parser.get(), document); };
    std::unique_ptr<fy_document, decltype(destroyDocument)> document(fy_parse_load_document(parser.get()),
                                                                     destroyDocument);

    if (fy_diag_got_error(diag.get())) {
        void* iterator = nullptr;
        fy_diag_error* error = fy_diag_errors_iterate(diag.get(), &iterator);
        if (error != nullptr) {
            ReportError(error->line, error->column, error->msg != nullptr ? error->msg : "invalid document");
        } else {
            ReportError(0, 0, "invalid document");
        }
        return;
    }
    if (!document) return; // a stream without documents

    try {
        auto tree = std::make_unique<Tree>();
        tree->Build(document.get());
        bool emptyRoot = tree->nodes.empty() ||
            (tree->nodes.size() == 1 && (tree->nodes[0].flags & valueBit) && tree->nodes[0].value.size == 0);
        if (!emptyRoot) _tree = std::move(tree);
    } catch (BuildError const& error) {
        ReportError(error.line, error.column, error.message);
    } catch (std::bad_alloc const&) {
        ReportError(0, 0, "out of memory");
    } catch (std::length_error const&) {
        ReportError(0, 0, "out of memory");
    }
}

Config::Node Config::operator[](char const* key) const {
    if (!_tree) return {};
    return Node(_tree.get(), 0)[key];
}

Config::Node Config::operator[](unsigned long index) const {
    if (!_tree) return {};
    return Node(_tree.get(), 0)[index];
}

bool Config::Empty() const {
    return !_tree;
}

// ---- Node

Config::Node::operator bool() const {
    return Tree::At(_tree, _id) != nullptr;
}

long Config::Node::Index() const {
    Tree::Record const* record = Tree::At(_tree, _id);
    return record != nullptr ? long(record->position) : -1;
}

size_t Config::Node::Size() const {
    return Tree::At(_tree, _id) != nullptr ? _tree->nodes.size() : 0;
}

bool Config::Node::HasKey() const {
    Tree::Record const* record = Tree::At(_tree, _id);
    return record != nullptr && (record->flags & keyBit);
}

bool Config::Node::IsMap() const {
    Tree::Record const* record = Tree::At(_tree, _id);
    return record != nullptr && (record->flags & mapBit);
}

bool Config::Node::IsArray() const {
    Tree::Record const* record = Tree::At(_tree, _id);
    return record != nullptr && (record->flags & arrayBit);
}

bool Config::Node::IsValue() const {
    Tree::Record const* record = Tree::At(_tree, _id);
    return record != nullptr && (record->flags & valueBit);
}

bool Config::Node::IsFloat() const {
    Tree::Record const* record = Tree::At(_tree, _id);
    if (record == nullptr || !(record->flags & valueBit)) return false;
    std::string_view text = Trim(_tree->View(record->value));
    return !text.empty() && IsRealText(text);
}

bool Config::Node::IsInt() const {
    Tree::Record const* record = Tree::At(_tree, _id);
    if (record == nullptr || !(record->flags & valueBit)) return false;
    std::string_view text = Trim(_tree->View(record->value));
    return !text.empty() && IsIntegerText(text);
}

bool Config::Node::IsNumeric() const {
    return IsInt() || IsFloat();
}

bool Config::Node::IsString() const {
    return IsValue() && !IsNumeric();
}

float Config::Node::AsFloat() const {
    Tree::Record const* record = Tree::At(_tree, _id);
    if (record == nullptr || !(record->flags & valueBit)) return 0;
    return RealValue<float>(_tree->View(record->value));
}

double Config::Node::AsDouble() const {
    Tree::Record const* record = Tree::At(_tree, _id);
    if (record == nullptr || !(record->flags & valueBit)) return 0;
    return RealValue<double>(_tree->View(record->value));
}

int32_t Config::Node::AsInt() const {
    Tree::Record const* record = Tree::At(_tree, _id);
    if (record == nullptr || !(record->flags & valueBit)) return 0;
    return int32_t(WrappingInteger<uint32_t>(_tree->View(record->value)));
}

int64_t Config::Node::AsInt64() const {
    Tree::Record const* record = Tree::At(_tree, _id);
    if (record == nullptr || !(record->flags & valueBit)) return 0;
    return int64_t(WrappingInteger<uint64_t>(_tree->View(record->value)));
}

uint64_t Config::Node::AsUInt64() const {
    Tree::Record const* record = Tree::At(_tree, _id);
    if (record == nullptr || !(record->flags & valueBit)) return 0;
    return UnsignedInteger(_tree->View(record->value));
}

std::string Config::Node::AsString() const {
    Tree::Record const* record = Tree::At(_tree, _id);
    if (record == nullptr || !(record->flags & valueBit)) return {};
    return std::string(_tree->View(record->value));
}

Config::Node::operator std::string() const {
    return AsString();
}

std::string Config::Node::Key() const {
    Tree::Record const* record = Tree::At(_tree, _id);
    if (record == nullptr || !(record->flags & keyBit)) return {};
    return std::string(_tree->View(record->key));
}

bool Config::Node::operator==(char const* text) const {
    Tree::Record const* record = Tree::At(_tree, _id);
    std::string_view mine =
        record != nullptr && (record->flags & valueBit) ? _tree->View(record->value) : std::string_view();
    return mine == (text != nullptr ? std::string_view(text) : std::string_view());
}

bool Config::Node::operator==(std::string const& text) const {
    Tree::Record const* record = Tree::At(_tree, _id);
    std::string_view mine =
        record != nullptr && (record->flags & valueBit) ? _tree->View(record->value) : std::string_view();
    return mine == std::string_view(text);
}

bool Config::Node::operator!=(char const* text) const {
    return !(*this == text);
}

bool Config::Node::operator!=(std::string const& text) const {
    return !(*this == text);
}

Config::Node Config::Node::operator[](char const* key) const {
    Tree::Record const* record = Tree::At(_tree, _id);
    if (record == nullptr || !(record->flags & mapBit)) return {};
    std::string_view wanted = key != nullptr ? std::string_view(key) : std::string_view();
    for (uint32_t child = record->first; child != noLink; child = _tree->nodes[child].next) {
        if (_tree->View(_tree->nodes[child].key) == wanted) return Node(_tree, child);
    }
    return *this;
}

Config::Node Config::Node::operator[](unsigned long index) const {
    Tree::Record const* record = Tree::At(_tree, _id);
    if (record == nullptr || !(record->flags & arrayBit)) return {};
    uint32_t child = record->first;
    for (unsigned long i = 0; i < index && child != noLink; ++i) child = _tree->nodes[child].next;
    return child != noLink ? Node(_tree, child) : *this;
}

Config::Iterator Config::Node::begin() const {
    Tree::Record const* record = Tree::At(_tree, _id);
    if (record == nullptr) return Iterator();
    return Iterator(_tree, Tree::Index(record->first));
}

Config::Iterator Config::Node::end() const {
    if (Tree::At(_tree, _id) == nullptr) return Iterator();
    return Iterator(_tree, none);
}

// ---- Iterator

Config::Iterator& Config::Iterator::operator++() {
    Tree::Record const* record = Tree::At(_tree, _id);
    if (record != nullptr) _id = Tree::Index(record->next);
    return *this;
}

Config::Iterator& Config::Iterator::operator--() {
    Tree::Record const* record = Tree::At(_tree, _id);
    if (record != nullptr) _id = Tree::Index(record->previous);
    return *this;
}

} // namespace game
