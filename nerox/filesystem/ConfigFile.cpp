#include "nerox/filesystem/ConfigFile.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iostream>
#include <limits>
#include <map>
#include <set>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <type_traits>
#include <unistd.h>

#include "nerox/Assert.hpp"

namespace nerox::filesystem {

namespace {

/// What some editors write at the start of a UTF-8 file.
constexpr std::string_view ByteOrderMark = "\xEF\xBB\xBF";

constexpr std::string_view Blanks = " \t\f\v\r";

std::string_view Trim(std::string_view text) {
    size_t const first = text.find_first_not_of(Blanks);
    if (first == std::string_view::npos) return {};
    size_t const last = text.find_last_not_of(Blanks);
    return text.substr(first, last - first + 1);
}

bool IsBlank(char c) {
    return Blanks.find(c) != std::string_view::npos;
}

/// True for a line with nothing but blanks, or a comment line.
bool IsBlankOrComment(std::string_view line) {
    std::string_view const trimmed = Trim(line);
    return trimmed.empty() || trimmed.front() == ';' || trimmed.front() == '#';
}

/// If line starts a section, stores the text between the brackets (untrimmed) in name.
bool ParseHeader(std::string_view line, std::string_view& name) {
    size_t const first = line.find_first_not_of(Blanks);
    if (first == std::string_view::npos || line[first] != '[') return false;
    std::string_view rest = line.substr(first + 1);
    size_t const close = rest.find(']');
    if (close != std::string_view::npos)
        rest = rest.substr(0, close);
    else
        rest = Trim(rest);
    name = rest;
    return true;
}

/// Splits "key = value" into its trimmed parts; false when the line has no '=' or no key.
bool SplitKeyValue(std::string_view line, std::string_view& key, std::string_view& value) {
    size_t const equals = line.find('=');
    if (equals == std::string_view::npos) return false;
    key = Trim(line.substr(0, equals));
    value = Trim(line.substr(equals + 1));
    return !key.empty();
}

// ---------------------------------------------------------------- value texts

char const HexDigits[] = "0123456789ABCDEF";

std::string Quote(std::string_view text) {
    std::string out = "\"";
    for (char c : text) {
        unsigned char const byte = static_cast<unsigned char>(c);
        switch (c) {
        case '\\': out += "\\\\"; break;
        case '"': out += "\\\""; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (byte < 0x20 || byte == 0x7F) {
                out += "\\x";
                out += HexDigits[byte >> 4];
                out += HexDigits[byte & 0x0F];
            } else {
                out += c;
            }
        }
    }
    out += '"';
    return out;
}

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

/// Reads a quoted text starting at text[position] == '"'; on success moves position past the closing quote.
std::optional<std::string> Unquote(std::string_view text, size_t& position) {
    if (position >= text.size() || text[position] != '"') return std::nullopt;
    std::string out;
    size_t i = position + 1;
    while (i < text.size()) {
        char const c = text[i];
        if (c == '"') {
            position = i + 1;
            return out;
        }
        if (c != '\\') {
            out += c;
            ++i;
            continue;
        }
        if (i + 1 >= text.size()) return std::nullopt;
        char const escaped = text[i + 1];
        i += 2;
        switch (escaped) {
        case '\\': out += '\\'; break;
        case '"': out += '"'; break;
        case 'n': out += '\n'; break;
        case 'r': out += '\r'; break;
        case 't': out += '\t'; break;
        case 'x': {
            if (i + 1 >= text.size()) return std::nullopt;
            int const high = HexValue(text[i]);
            int const low = HexValue(text[i + 1]);
            if (high < 0 || low < 0) return std::nullopt;
            out += static_cast<char>((high << 4) | low);
            i += 2;
            break;
        }
        default: return std::nullopt;
        }
    }
    return std::nullopt; // no closing quote
}

bool StringNeedsQuotes(std::string const& text) {
    if (text.empty()) return false;
    if (IsBlank(text.front()) || IsBlank(text.back()) || text.front() == '"') return true;
    for (char c : text) {
        unsigned char const byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) return true;
    }
    return false;
}

std::string FormatString(std::string const& text) {
    return StringNeedsQuotes(text) ? Quote(text) : text;
}

std::string ParseString(std::string_view text) {
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
        size_t position = 0;
        std::optional<std::string> unquoted = Unquote(text, position);
        if (unquoted && position == text.size()) return *unquoted;
    }
    return std::string(text);
}

std::string Lower(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return out;
}

std::optional<bool> ParseBool(std::string_view text) {
    std::string const word = Lower(text);
    if (word == "true" || word == "yes" || word == "on" || word == "1") return true;
    if (word == "false" || word == "no" || word == "off" || word == "0") return false;
    return std::nullopt;
}

/// Parses the whole text as an integer within [minimum, maximum].
std::optional<int64_t> ParseInteger(std::string_view text, int64_t minimum, int64_t maximum) {
    if (text.size() > 1 && text.front() == '+' && text[1] != '-') text.remove_prefix(1);
    int64_t value = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
    if (value < minimum || value > maximum) return std::nullopt;
    return value;
}

std::optional<int32_t> ParseInt32(std::string_view text) {
    std::optional<int64_t> const value =
        ParseInteger(text, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max());
    if (!value) return std::nullopt;
    return static_cast<int32_t>(*value);
}

std::optional<float> ParseFloat(std::string_view text) {
    if (text.size() > 1 && text.front() == '+' && text[1] != '-') text.remove_prefix(1);
    float value = 0.0f;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
    return value;
}

std::string FormatFloat(float value) {
    char buffer[64];
    auto const [end, error] = std::to_chars(buffer, buffer + sizeof(buffer), value);
    NEROX_ASSERT(error == std::errc());
    return std::string(buffer, end);
}

using InputBinding = ConfigFile::InputBinding;

std::string FormatInputBinding(InputBinding const& binding) {
    std::string out = "key=" + std::to_string(binding.key) + " mouse=" + std::to_string(binding.mouseButton);
    for (int record = 0; record < 2; ++record) {
        InputBinding::Joystick const& joystick = binding.joysticks[record];
        out += record == 0 ? " pad=" : " joy=";
        out += "button:" + std::to_string(joystick.button);
        out += ",axis:" + std::to_string(joystick.axis);
        out += ",dir:" + std::to_string(joystick.axisDirection);
        if (joystick.id != 0) out += ",id:" + std::to_string(joystick.id);
        if (!joystick.name.empty()) out += ",name:" + Quote(joystick.name);
    }
    return out;
}

/// Reads characters at text[position] up to the first of the stop characters, a blank or the end.
std::string_view TakeToken(std::string_view text, size_t& position, std::string_view stops) {
    size_t const start = position;
    while (position < text.size() && !IsBlank(text[position]) && stops.find(text[position]) == std::string_view::npos)
        ++position;
    return text.substr(start, position - start);
}

bool ParseJoystickRecord(std::string_view text, size_t& position, InputBinding::Joystick& joystick) {
    constexpr int64_t Int16Min = std::numeric_limits<int16_t>::min();
    constexpr int64_t Int16Max = std::numeric_limits<int16_t>::max();
    constexpr int64_t Int32Min = std::numeric_limits<int32_t>::min();
    constexpr int64_t Int32Max = std::numeric_limits<int32_t>::max();
    while (true) {
        std::string_view const field = TakeToken(text, position, ":,=");
        if (position >= text.size() || text[position] != ':') return false;
        ++position;
        if (field == "name") {
            std::optional<std::string> name = Unquote(text, position);
            if (!name) return false;
            joystick.name = std::move(*name);
        } else {
            std::string_view const number = TakeToken(text, position, ",");
            if (field == "button" || field == "id") {
                std::optional<int64_t> const value = ParseInteger(number, Int32Min, Int32Max);
                if (!value) return false;
                (field == "button" ? joystick.button : joystick.id) = static_cast<int>(*value);
            } else if (field == "axis" || field == "dir") {
                std::optional<int64_t> const value = ParseInteger(number, Int16Min, Int16Max);
                if (!value) return false;
                (field == "axis" ? joystick.axis : joystick.axisDirection) = static_cast<int16_t>(*value);
            } else {
                return false;
            }
        }
        if (position < text.size() && text[position] == ',') {
            ++position;
            continue;
        }
        return true;
    }
}

std::optional<InputBinding> ParseInputBinding(std::string_view text) {
    InputBinding binding;
    size_t position = 0;
    while (true) {
        while (position < text.size() && IsBlank(text[position])) ++position;
        if (position >= text.size()) return binding;
        std::string_view const item = TakeToken(text, position, "=");
        if (position >= text.size() || text[position] != '=') return std::nullopt;
        ++position;
        if (item == "key" || item == "mouse") {
            std::optional<int32_t> const value = ParseInt32(TakeToken(text, position, ""));
            if (!value) return std::nullopt;
            (item == "key" ? binding.key : binding.mouseButton) = *value;
        } else if (item == "pad" || item == "joy") {
            if (!ParseJoystickRecord(text, position, binding.joysticks[item == "pad" ? 0 : 1])) return std::nullopt;
        } else {
            return std::nullopt;
        }
        if (position < text.size() && !IsBlank(text[position])) return std::nullopt;
    }
}

std::string FormatValue(ConfigFile::Conf const& entry) {
    switch (entry.type) {
    case ConfigFile::TypeString: return FormatString(*static_cast<std::string const*>(entry.variable));
    case ConfigFile::TypeBool: return *static_cast<bool const*>(entry.variable) ? "true" : "false";
    case ConfigFile::TypeInt32: return std::to_string(*static_cast<int32_t const*>(entry.variable));
    case ConfigFile::TypeFloat: return FormatFloat(*static_cast<float const*>(entry.variable));
    case ConfigFile::TypeInputBinding: return FormatInputBinding(*static_cast<InputBinding const*>(entry.variable));
    }
    throw std::invalid_argument("ConfigFile: key '" + entry.key + "' has unknown type " + std::to_string(entry.type));
}

/// Stores text converted by the entry's type; a text that does not parse changes nothing.
/// Stores the value that text holds into entry's variable; returns why it
/// cannot (the variable is then unchanged), or an empty text.
std::string ParseValue(std::string_view text, ConfigFile::Conf const& entry) {
    auto const store = [&entry]<class T>(std::optional<T>& value, char const* what) -> std::string {
        if (!value) return std::string("is not ") + what;
        if constexpr (std::is_arithmetic_v<T> && !std::is_same_v<T, bool>) {
            // Compared in the variable's own type, so that a bound such as 0.01
            // admits the float that "0.01" reads as. A NaN is outside any range.
            bool const aboveMinimum = std::isinf(entry.minimum) ? !std::isnan(static_cast<double>(*value))
                                                                : *value >= static_cast<T>(entry.minimum);
            bool const belowMaximum = std::isinf(entry.maximum) || *value <= static_cast<T>(entry.maximum);
            if (!(aboveMinimum && belowMaximum)) {
                std::ostringstream range;
                range << "is outside " << entry.minimum << " to " << entry.maximum;
                return range.str();
            }
        }
        *static_cast<T*>(entry.variable) = std::move(*value);
        return {};
    };
    switch (entry.type) {
    case ConfigFile::TypeString: *static_cast<std::string*>(entry.variable) = ParseString(text); return {};
    case ConfigFile::TypeBool: {
        std::optional<bool> value = ParseBool(text);
        return store(value, "true or false");
    }
    case ConfigFile::TypeInt32: {
        std::optional<int32_t> value = ParseInt32(text);
        return store(value, "a whole number");
    }
    case ConfigFile::TypeFloat: {
        std::optional<float> value = ParseFloat(text);
        return store(value, "a number");
    }
    case ConfigFile::TypeInputBinding: {
        std::optional<InputBinding> value = ParseInputBinding(text);
        return store(value, "an input binding");
    }
    }
    throw std::invalid_argument("ConfigFile: key '" + entry.key + "' has unknown type " + std::to_string(entry.type));
}

bool IsKnownType(int type) {
    return type == ConfigFile::TypeString || type == ConfigFile::TypeBool || type == ConfigFile::TypeInt32 ||
        type == ConfigFile::TypeFloat || type == ConfigFile::TypeInputBinding;
}

// ---------------------------------------------------------------- file layout

/// Where a section's keys are in a file's lines.
struct SectionLayout {
    bool found = false;                              // the section exists (always for "")
    size_t insertAt = 0;                             // where keys that are missing go
    std::map<std::string, size_t, std::less<>> keys; // key -> line of its last occurrence
};

SectionLayout ScanSection(std::vector<std::string> const& lines, std::string const& section) {
    SectionLayout layout;
    bool inside = section.empty();
    layout.found = section.empty();
    for (size_t i = 0; i < lines.size(); ++i) {
        std::string_view name;
        if (ParseHeader(lines[i], name)) {
            inside = Trim(name) == section;
            if (inside) {
                layout.found = true;
                layout.insertAt = i + 1;
            }
            continue;
        }
        if (!inside || IsBlankOrComment(lines[i])) continue;
        layout.insertAt = i + 1;
        std::string_view key;
        std::string_view value;
        if (SplitKeyValue(lines[i], key, value)) layout.keys[std::string(key)] = i;
    }
    return layout;
}

std::string_view ValueOfLine(std::string const& line) {
    std::string_view key;
    std::string_view value;
    SplitKeyValue(line, key, value);
    return value;
}

void AddMissingLines(std::vector<std::string>& lines, SectionLayout const& layout, std::string const& section,
                     std::vector<std::string> const& added) {
    if (added.empty()) return;
    if (layout.found) {
        lines.insert(lines.begin() + static_cast<ptrdiff_t>(layout.insertAt), added.begin(), added.end());
        return;
    }
    if (!lines.empty() && !Trim(lines.back()).empty()) lines.emplace_back();
    lines.push_back("[" + section + "]");
    lines.insert(lines.end(), added.begin(), added.end());
}

void CheckSectionName(std::string const& section) {
    if (section.find_first_of("]\n\r") != std::string::npos || Trim(section).size() != section.size())
        throw std::invalid_argument("ConfigFile: invalid section name '" + section + "'");
}

std::atomic<unsigned> temporaryCounter{0};

} // namespace

// ---------------------------------------------------------------- Conf

ConfigFile::Conf::Conf(ConfigFile* owner, std::string const& key, void* variable, int type)
    : owner(owner), key(key), variable(variable), type(type) {
    if (!IsKnownType(type))
        throw std::invalid_argument("ConfigFile::Conf: key '" + key + "' has unsupported type " + std::to_string(type));
    if (variable == nullptr) throw std::invalid_argument("ConfigFile::Conf: key '" + key + "' has no variable");
    bool const keyIsUsable = !key.empty() && Trim(key).size() == key.size() &&
        key.find_first_of("=\n\r") == std::string::npos && key.front() != '[' && key.front() != ';' &&
        key.front() != '#';
    if (!keyIsUsable) throw std::invalid_argument("ConfigFile::Conf: invalid key '" + key + "'");
}

ConfigFile::Conf::Conf(ConfigFile* owner, std::string const& key, std::string& variable)
    : Conf(owner, key, &variable, TypeString) { }

ConfigFile::Conf::Conf(ConfigFile* owner, std::string const& key, bool& variable)
    : Conf(owner, key, &variable, TypeBool) { }

ConfigFile::Conf::Conf(ConfigFile* owner, std::string const& key, int32_t& variable)
    : Conf(owner, key, &variable, TypeInt32) { }

ConfigFile::Conf::Conf(ConfigFile* owner, std::string const& key, float& variable)
    : Conf(owner, key, &variable, TypeFloat) { }

ConfigFile::Conf::Conf(ConfigFile* owner, std::string const& key, InputBinding& variable)
    : Conf(owner, key, &variable, TypeInputBinding) { }

// ---------------------------------------------------------------- ConfigFile

ConfigFile::ConfigFile(std::string const& path, std::optional<int> reloadInterval)
    : FilePath(path), _reloadIntervalMs(std::max(1, reloadInterval.value_or(DefaultReloadIntervalMs))) { }

ConfigFile::~ConfigFile() {
    StopAutoReloadThread();
}

void ConfigFile::ReadConfig() { }

void ConfigFile::WriteConfig() { }

ConfigFile::FileStamp ConfigFile::CurrentStamp() const {
    FileStamp stamp;
    struct stat info { };
    if (::stat(_path.c_str(), &info) != 0) return stamp;
    stamp.exists = true;
    stamp.device = static_cast<uint64_t>(info.st_dev);
    stamp.inode = static_cast<uint64_t>(info.st_ino);
    stamp.size = static_cast<int64_t>(info.st_size);
    stamp.modifiedSeconds = static_cast<int64_t>(info.st_mtim.tv_sec);
    stamp.modifiedNanoseconds = static_cast<int64_t>(info.st_mtim.tv_nsec);
    return stamp;
}

std::vector<std::string> ConfigFile::LoadLines() const {
    std::vector<std::string> lines;
    _byteOrderMark = false;
    std::error_code error;
    if (!std::filesystem::exists(ToPath(), error)) return lines;
    std::ifstream file(_path, std::ios::binary);
    if (!file) throw std::runtime_error("ConfigFile: cannot read '" + _path + "'");
    std::string line;
    while (std::getline(file, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(std::move(line));
    }
    // Several editors start a UTF-8 file with a byte-order mark: not part of the first line.
    _byteOrderMark = !lines.empty() && lines[0].starts_with(ByteOrderMark);
    if (_byteOrderMark) lines[0].erase(0, ByteOrderMark.size());
    if (file.bad()) throw std::runtime_error("ConfigFile: error while reading '" + _path + "'");
    return lines;
}

void ConfigFile::SaveLines(std::vector<std::string> const& lines) {
    // Through a symbolic link, replace the file it points to, not the link.
    std::error_code linkError;
    std::filesystem::path target = ToPath();
    if (std::filesystem::is_symlink(target, linkError)) target = std::filesystem::weakly_canonical(target, linkError);
    if (linkError) target = ToPath();
    std::filesystem::path const folder = target.parent_path();
    std::error_code error;
    if (!folder.empty() && !std::filesystem::exists(folder, error))
        std::filesystem::create_directories(folder, error); // a failure shows when the file is opened

    std::string const temporary =
        target.string() + ".tmp" + std::to_string(::getpid()) + "_" + std::to_string(temporaryCounter.fetch_add(1));
    {
        std::ofstream file(temporary, std::ios::binary | std::ios::trunc);
        if (!file)
            throw std::runtime_error("ConfigFile: cannot write '" + _path + "' (temporary file '" + temporary +
                                     "' cannot be created)");
        if (_byteOrderMark) file << ByteOrderMark;
        for (std::string const& line : lines) file << line << '\n';
        file.flush();
        if (!file) {
            file.close();
            std::filesystem::remove(temporary, error);
            throw std::runtime_error("ConfigFile: error while writing '" + _path + "'");
        }
    }
    // Keep the permissions of the file being replaced (a private settings file stays private).
    std::filesystem::file_status const previous = std::filesystem::status(target, error);
    if (!error && std::filesystem::exists(previous))
        std::filesystem::permissions(temporary, previous.permissions(), error);
    error.clear();
    std::filesystem::rename(temporary, target, error);
    if (error) {
        std::error_code ignored;
        std::filesystem::remove(temporary, ignored);
        throw std::runtime_error("ConfigFile: cannot replace '" + _path + "': " + error.message());
    }
    _knownStamp = CurrentStamp(); // our own change must not look like an outside one
}

void ConfigFile::ReadFromINI(std::string const& section, std::vector<Conf>& entries, bool writeMissing) {
    CheckSectionName(section);
    std::lock_guard<std::mutex> lock(_fileMutex);
    std::vector<std::string> lines = LoadLines();
    SectionLayout const layout = ScanSection(lines, section);
    std::vector<std::string> added;
    std::set<std::string, std::less<>> addedKeys;
    for (Conf const& entry : entries) {
        auto const found = layout.keys.find(entry.key);
        if (found != layout.keys.end()) {
            std::string_view const text = ValueOfLine(lines[found->second]);
            std::string const problem = ParseValue(text, entry);
            if (problem.empty()) {
                _keptLines.erase({section, entry.key});
                continue;
            }
            std::string const kept = FormatValue(entry);
            std::cerr << "WARNING: " << _path << ":" << found->second + 1 << ": " << entry.key << " = " << text << " "
                      << problem << "; keeping " << kept << std::endl;
            _keptLines[{section, entry.key}] = kept;
        } else if (writeMissing && addedKeys.insert(entry.key).second) {
            added.push_back(entry.key + " = " + FormatValue(entry));
        }
    }
    if (added.empty()) return;
    AddMissingLines(lines, layout, section, added);
    try {
        SaveLines(lines);
    } catch (std::exception const& failure) {
        // The values were read; adding the missing keys is only a convenience for
        // the user, so a file we may not write is no reason to fail.
        std::cerr << failure.what() << " (missing keys of [" << section << "] not added)" << std::endl;
    }
}

void ConfigFile::WriteToINI(std::string const& section, std::vector<Conf>& entries) {
    CheckSectionName(section);
    std::lock_guard<std::mutex> lock(_fileMutex);
    std::vector<std::string> lines = LoadLines();
    std::vector<std::string> const original = lines;
    SectionLayout const layout = ScanSection(lines, section);
    std::vector<std::string> added;
    std::set<std::string, std::less<>> addedKeys;
    for (Conf const& entry : entries) {
        std::string const value = FormatValue(entry);
        auto const found = layout.keys.find(entry.key);
        if (found == layout.keys.end()) {
            if (addedKeys.insert(entry.key).second) added.push_back(entry.key + " = " + value);
            continue;
        }
        // A line that could not be read stays as the user typed it, unless the value was changed since.
        auto const kept = _keptLines.find({section, entry.key});
        if (kept != _keptLines.end()) {
            if (kept->second == value) continue;
            _keptLines.erase(kept);
        }
        // Keep the line's own spelling of "key =" and the blanks after it.
        std::string& line = lines[found->second];
        size_t const equals = line.find('=');
        size_t valueStart = equals + 1;
        while (valueStart < line.size() && IsBlank(line[valueStart])) ++valueStart;
        line = line.substr(0, valueStart) + value;
    }
    AddMissingLines(lines, layout, section, added);
    if (lines != original) SaveLines(lines);
}

void ConfigFile::ReadFromINI(LineHandler const& handler) {
    std::vector<std::string> lines;
    {
        std::lock_guard<std::mutex> lock(_fileMutex);
        lines = LoadLines();
    }
    bool inSection = false;
    std::string header;
    std::vector<std::istringstream> body;
    auto const deliver = [&]() {
        if (!inSection && body.empty()) return; // nothing before the first section
        std::istringstream headerStream(header);
        handler(headerStream, body);
        body.clear();
    };
    for (std::string const& line : lines) {
        std::string_view name;
        if (ParseHeader(line, name)) {
            std::string nextHeader(name);
            deliver();
            header = std::move(nextHeader);
            inSection = true;
            continue;
        }
        if (IsBlankOrComment(line)) continue;
        body.emplace_back(line);
    }
    deliver();
}

// ---------------------------------------------------------------- reload thread

void ConfigFile::StartAutoReloadThread() {
    std::lock_guard<std::mutex> control(_controlMutex);
    if (_thread.joinable()) return;
    {
        std::lock_guard<std::mutex> lock(_fileMutex);
        _knownStamp = CurrentStamp();
    }
    {
        std::lock_guard<std::mutex> lock(_threadMutex);
        _stopRequested = false;
    }
    _thread = std::thread(&ConfigFile::ReloadLoop, this);
}

void ConfigFile::StopAutoReloadThread() {
    std::lock_guard<std::mutex> control(_controlMutex);
    if (!_thread.joinable()) return;
    // The reload thread cannot wait for itself (ReadConfig must not stop it).
    NEROX_ASSERT(_thread.get_id() != std::this_thread::get_id());
    {
        std::lock_guard<std::mutex> lock(_threadMutex);
        _stopRequested = true;
    }
    _threadCondition.notify_all();
    _thread.join();
}

bool ConfigFile::IsAutoReloadRunning() const {
    std::lock_guard<std::mutex> control(_controlMutex);
    return _thread.joinable();
}

void ConfigFile::ReloadLoop() {
    std::chrono::milliseconds const interval(_reloadIntervalMs);
    std::unique_lock<std::mutex> lock(_threadMutex);
    while (true) {
        if (_threadCondition.wait_for(lock, interval, [this] { return _stopRequested; })) return;
        lock.unlock();
        bool changed = false;
        {
            std::lock_guard<std::mutex> fileLock(_fileMutex);
            FileStamp const now = CurrentStamp();
            // A vanished file is remembered, not read; its return counts as a change.
            changed = now.exists && now != _knownStamp;
            _knownStamp = now;
        }
        if (changed) {
            try {
                std::lock_guard<std::mutex> userLock(_userMutex);
                ReadConfig();
            } catch (std::exception const& error) {
                std::cerr << "ConfigFile: reloading '" << _path << "' failed: " << error.what() << std::endl;
            }
        }
        lock.lock();
    }
}

} // namespace nerox::filesystem
