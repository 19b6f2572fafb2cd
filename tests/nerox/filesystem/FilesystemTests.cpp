#include "nerox/filesystem/BinaryFileStream.hpp"
#include "nerox/filesystem/ConfigFile.hpp"
#include "nerox/filesystem/FilePath.hpp"
#include "nerox/filesystem/Stream.hpp"
#include "support/Bytes.hpp"
#include "support/Golden.hpp"
#include "support/TempDir.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <iomanip>
#include <limits>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

using nerox::filesystem::BinaryFileStream;
using nerox::filesystem::ConfigFile;
using nerox::filesystem::FilePath;
using nerox::filesystem::ReadOnlyStream;
using nerox::filesystem::Stream;
using nerox::filesystem::WriteOnlyStream;
using testing::HasSubstr;
using testing::ThrowsMessage;
using testsupport::ByteBuilder;
using testsupport::Bytes;
using testsupport::ReadBytes;
using testsupport::ReadText;
using testsupport::ReplaceText;
using testsupport::TempDir;
using testsupport::WriteBytes;
using testsupport::WriteText;
using Conf = ConfigFile::Conf;
using InputBinding = ConfigFile::InputBinding;

namespace {

/// The text the file holds for a value, and what a variable that held start reads back from it.
template <class T> std::pair<std::string, T> WriteAndRead(T value, T start) {
    TempDir dir;
    ConfigFile config(dir.File("f.ini"), std::nullopt);
    std::vector<Conf> entries = {Conf(&config, "v", value)};
    config.WriteToINI("", entries);
    entries = {Conf(&config, "v", start)};
    config.ReadFromINI("", entries, false);
    std::string const text = ReadText(dir.File("f.ini")); // "v = VALUE\n"
    return {text.substr(4, text.size() - 5), start};
}

/// Reads key of section twice, into variables holding a and b: a text that
/// leaves both as they were did not parse. Gives the value as the file writes
/// it, after checking that it reads back exactly from that.
template <class T>
std::string Read(std::string const& path, std::string const& section, std::string const& key, T a, T b) {
    T first = a;
    T second = b;
    ConfigFile config(path, std::nullopt);
    try {
        for (T* variable : {&first, &second}) {
            std::vector<Conf> entries = {Conf(&config, key, *variable)};
            config.ReadFromINI(section, entries, false);
        }
    } catch (std::invalid_argument const& error) {
        return std::string("error: ") + error.what();
    }
    if (first == a && second == b) return "(unchanged)";
    EXPECT_TRUE(first == second) << key << ": the value read depends on the variable's previous value";
    auto const [text, back] = WriteAndRead(first, a);
    EXPECT_EQ(WriteAndRead(back, a).first, text) << key << " does not read back as written";
    return text;
}

/// Reads a key of values.ini with the type its section is named after.
std::string ReadAsSectionType(std::string const& path, std::string const& section, std::string const& key) {
    if (section == "bool") return Read(path, section, key, true, false);
    if (section == "int32") return Read<int32_t>(path, section, key, 12345, -12345);
    if (section == "float") return Read(path, section, key, -1.25f, 3.5f);
    if (section == "string") return Read<std::string>(path, section, key, "#a", "#b");
    return Read(path, section, key, InputBinding{.key = 12345}, InputBinding{});
}

/// A file under tests/data/nerox/config/ (none: no file), one call on it, and the golden result.
struct RewriteCase {
    char const* input;
    char const* section;
    char mode; // r read, a read and add missing keys, w write
    std::vector<std::pair<std::string, std::string>> values;
    char const* expected; // null: no file
};

std::vector<RewriteCase> const RewriteCases = {
    {"sections.ini", "first", 'a', {{"a", "0"}, {"b", "42"}, {"c", "43"}, {"b", "44"}}, "sections_added.ini"},
    {"sections.ini", "first", 'r', {{"b", "42"}}, "sections.ini"},
    {"sections.ini", "first", 'a', {{"a", "0"}}, "sections.ini"},
    {"sections.ini", "third", 'a', {{"z", "9"}}, "sections_new_section.ini"},
    {"settings.ini", "game", 'w', {{"shown", "true"}, {"spaced", "new"}, {"added", "3"}}, "settings_written.ini"},
    {"settings.ini", "audio", 'w', {{"volume", "0.25"}}, "settings_audio.ini"},
    {"settings.ini", "audio", 'w', {{"volume", "0.5"}}, "settings.ini"},
    {nullptr, "game", 'r', {{"hidden", "false"}}, nullptr},
    {nullptr, "game", 'a', {{"visible", "true"}, {"scale", "1.5"}}, "created.ini"},
};

/// A config file that reads one value when it reloads.
struct WatchedConfig : ConfigFile {
    using ConfigFile::ConfigFile;
    ~WatchedConfig() override { StopAutoReloadThread(); }
    void ReadConfig() override {
        std::vector<Conf> entries = {Conf(this, "value", value)};
        ReadFromINI("main", entries, false);
    }
    int32_t value = 0;
};

/// Waits up to a generous deadline for the value, read under the file's mutex.
bool WaitFor(WatchedConfig& config, int32_t value) {
    for (int i = 0; i < 4000; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(5)))
        if (std::lock_guard<std::mutex> lock(config.GetMutex()); config.value == value) return true;
    return false;
}

struct Packed { // no padding: its bytes are all set
    int32_t a;
    float c;
    double b;
};

template <class T> T Get(Stream& stream) {
    T value{};
    stream.Read(value);
    return value;
}

Bytes Pattern(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<unsigned char>((i * 131 + 7) & 0xFF);
    return bytes;
}

// Its length of 300 takes two bytes of the prefix.
std::string const BinaryText = std::string("a\0b\0\0c\xff\x01", 8) + std::string(292, 'q');

/// One of everything, nested two deep, with a raw block larger than the file
/// buffers; read back by ReadEverything.
void WriteEverything(Stream& outer) {
    WriteOnlyStream inner;
    inner.Write(int32_t{7});
    inner.Write("deep"); // a C string goes through the string form
    WriteOnlyStream middle;
    middle.Write(-0.0f);
    middle.Write(inner);
    middle.Write(true);
    outer.Write(std::numeric_limits<uint64_t>::max());
    outer.Write(BinaryText);
    outer.Write(std::string_view());
    outer.Write(middle);
    outer.Write(Packed{42, 9.5f, std::numeric_limits<double>::denorm_min()});
    outer.Write(Pattern(200).data(), 200);
    outer.Write(int8_t{-5});
}

void ReadEverything(Stream& stream) {
    EXPECT_EQ(Get<uint64_t>(stream), std::numeric_limits<uint64_t>::max());
    EXPECT_EQ(Get<std::string>(stream), BinaryText);
    EXPECT_EQ(Get<std::string>(stream), "");
    ReadOnlyStream middle = stream.ReadStream();
    EXPECT_TRUE(std::signbit(Get<float>(middle)));
    ReadOnlyStream inner = middle.ReadStream();
    EXPECT_EQ(Get<int32_t>(inner), 7);
    EXPECT_EQ(Get<std::string>(inner), "deep");
    EXPECT_TRUE(inner.AtEnd());
    EXPECT_TRUE(Get<bool>(middle));
    EXPECT_TRUE(middle.AtEnd());
    Packed const packed = Get<Packed>(stream);
    EXPECT_TRUE(packed.a == 42 && packed.b == std::numeric_limits<double>::denorm_min() && packed.c == 9.5f);
    Bytes large(200);
    stream.Read(large.data(), large.size());
    EXPECT_EQ(large, Pattern(200));
    EXPECT_EQ(Get<int8_t>(stream), -5);
}

} // namespace

TEST(ConfigFileConf, RefusesUnknownTypesAndKeysTheFileCannotHold) {
    int32_t variable = 0;
    for (int type : {0, 2, 4, 6, 9, -1})
        EXPECT_THROW(Conf(nullptr, "key", &variable, type), std::invalid_argument) << type;
    EXPECT_THROW(Conf(nullptr, "key", nullptr, ConfigFile::TypeInt32), std::invalid_argument);
    for (char const* key : {"", "a=b", " padded", "padded ", "line\nbreak", "[section", ";comment", "#comment"})
        EXPECT_THROW(Conf(nullptr, key, variable), std::invalid_argument) << key;
}

// Every key of values.ini read as the type of its section: the golden file has
// the value read, or "(unchanged)" where the text does not parse.
TEST(ConfigFileValues, SpellingsOfEveryTypeRoundTripAndTextsThatDoNotParse) {
    std::string const path = testsupport::DataFile("nerox/config/values.ini");
    std::string read;
    ConfigFile(path, std::nullopt).ReadFromINI([&](std::istringstream& header, std::vector<std::istringstream>& lines) {
        for (std::istringstream& line : lines) {
            std::string key = line.str().substr(0, line.str().find('='));
            key.erase(key.find_last_not_of(' ') + 1);
            read += "[" + header.str() + "] " + key + " = " + ReadAsSectionType(path, header.str(), key) + "\n";
        }
    });
    testsupport::ExpectGolden(read, "nerox/config/values_read.txt");
}

TEST(ConfigFileParse, KeysBelongToTheirSection) {
    TempDir dir;
    std::string const path = dir.File("sections.ini");
    WriteText(path,
              "v = 1\n[one]\nv = 2\n  [ two ]  \n  v=3\n[one]\nv = 4\n; v = 5\n[three\nv = 6\n"
              "[crlf]\r\nv = 7\r\n");
    std::vector<std::vector<std::string>> const cases = {
        {"", "v", "1"},
        {"one", "v", "4"},
        {"two", "v", "3"},
        {"three", "v", "6"},
        {"crlf", "v", "7"},
        {"four", "v", "(unchanged)"},
        {"", "V", "(unchanged)"},
        {"a]b", "v", "error: ConfigFile: invalid section name 'a]b'"},
        {" one", "v", "error: ConfigFile: invalid section name ' one'"},
    };
    for (auto const& c : cases)
        EXPECT_EQ(Read<int32_t>(path, c[0], c[1], 12345, -12345), c[2]) << "[" << c[0] << "] " << c[1];
}

// Reads that add missing keys and writes keep every other line, leave no
// temporary files, and do not touch a file they would not change.
TEST(ConfigFileRewrite, KeepsTheRestOfTheFile) {
    for (RewriteCase const& c : RewriteCases) {
        SCOPED_TRACE(std::string(c.input ? c.input : "no file") + " [" + c.section + "] " + c.mode);
        TempDir dir;
        std::string const path = dir.File("sub/config.ini");
        if (c.input) {
            std::filesystem::create_directories(dir.File("sub"));
            WriteText(path, ReadText(testsupport::DataFile(std::string("nerox/config/") + c.input)));
        }
        struct stat before {
        }, after{};
        ::stat(path.c_str(), &before);
        auto values = c.values;
        ConfigFile config(path, std::nullopt);
        std::vector<Conf> entries;
        for (auto& [key, value] : values) entries.emplace_back(&config, key, value);
        if (c.mode == 'w')
            config.WriteToINI(c.section, entries);
        else
            config.ReadFromINI(c.section, entries, c.mode == 'a');
        if (!c.expected) {
            EXPECT_FALSE(std::filesystem::exists(dir.File("sub")));
            continue;
        }
        testsupport::ExpectGolden(ReadText(path), std::string("nerox/config/") + c.expected);
        if (c.input && std::string(c.input) == c.expected && ::stat(path.c_str(), &after) == 0) {
            EXPECT_EQ(after.st_ino, before.st_ino) << "a file without changes was rewritten";
        }
        for (auto const& entry : std::filesystem::directory_iterator(dir.File("sub")))
            EXPECT_EQ(entry.path().filename(), "config.ini");
    }
}

// lines.cfg has loose lines, blanks, comments, CRLF lines and an unclosed
// header; sections.ini a preamble of comments only, which makes no call.
TEST(ConfigFileLineHandler, SectionsArriveInFileOrderWithTheirLines) {
    std::string seen;
    for (std::string const name : {"lines.cfg", "sections.ini", "missing.ini"}) {
        seen += "== " + name + "\n";
        ConfigFile(testsupport::DataFile("nerox/config/" + name), std::nullopt)
            .ReadFromINI([&](std::istringstream& header, std::vector<std::istringstream>& lines) {
                seen += "[" + header.str() + "]\n";
                for (std::istringstream& line : lines) seen += "|" + line.str() + "|\n";
            });
    }
    testsupport::ExpectGolden(seen, "nerox/config/lines_seen.txt");
}

TEST(FilePathTest, PartsAndDelete) {
    TempDir dir;
    FilePath const file(dir.File("settings.ini"));
    EXPECT_EQ(file.GetFileName() + "|" + file.GetStem() + "|" + file.GetExtension(), "settings.ini|settings|.ini");
    EXPECT_EQ(file.GetDirectory(), std::filesystem::path(file.GetPath()).parent_path().string());
    EXPECT_FALSE(FilePath(file).Delete());
    EXPECT_FALSE(FilePath("").Delete());
    ConfigFile config(file.GetPath(), std::nullopt);
    WriteText(file.GetPath(), "[s]\n");
    EXPECT_TRUE(file.Exists());
    EXPECT_TRUE(static_cast<FilePath&>(config).Delete()); // virtual through the base
    EXPECT_FALSE(file.Exists());
}

TEST(ConfigFileReload, ReloadsOnOutsideChangesOnlyAndStopsWithoutWaitingForTheInterval) {
    EXPECT_EQ(ConfigFile("a.ini", 0).GetReloadInterval(), 1);
    TempDir dir;
    std::string const path = dir.File("watched.ini");
    WriteText(path, "[main]\nvalue = 1\n");
    WatchedConfig config(path, 5);
    config.StopAutoReloadThread(); // harmless before a start, as is a second start
    config.StartAutoReloadThread();
    config.StartAutoReloadThread();
    EXPECT_TRUE(config.IsAutoReloadRunning());
    {
        std::lock_guard<std::mutex> lock(config.GetMutex());
        int32_t written = 8;
        std::vector<Conf> entries = {Conf(&config, "value", written)};
        config.WriteToINI("main", entries);
        std::vector<Conf> missing = {Conf(&config, "extra", written)};
        config.ReadFromINI("other", missing, true);
    }
    // Give the thread many polling rounds; a reload would read the 8.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_TRUE(WaitFor(config, 0)) << "our own writes caused a reload";

    ReplaceText(path, "[main]\nvalue = 2\n");
    EXPECT_TRUE(WaitFor(config, 2));
    // Same size, same file, written in place: only the modification time tells. It is
    // set explicitly so that a coarse file system clock cannot hide the change.
    auto const modified = std::filesystem::last_write_time(path);
    WriteText(path, "[main]\nvalue = 3\n");
    std::filesystem::last_write_time(path, modified + std::chrono::seconds(2));
    EXPECT_TRUE(WaitFor(config, 3));
    // A deleted file is not read; its return is.
    std::filesystem::remove(path);
    ReplaceText(path, "[main]\nvalue = 4\n");
    EXPECT_TRUE(WaitFor(config, 4));
    config.StopAutoReloadThread();
    EXPECT_FALSE(config.IsAutoReloadRunning());
    WatchedConfig slow(dir.File("slow.ini"), 3600 * 1000); // an hour, so a stop that waited would hang
    slow.StartAutoReloadThread();
    slow.StopAutoReloadThread();
    slow.StartAutoReloadThread(); // can start again
    EXPECT_TRUE(slow.IsAutoReloadRunning());
}

// The layout is fixed for good, saved worlds hold it: little-endian 64-bit
// length prefixes, raw writes without any.
TEST(StreamRoundTrip, EveryKindNestedTwoDeepInTheGoldenLayoutAndEveryShorterPrefixFailsCleanly) {
    WriteOnlyStream out(64);
    WriteEverything(out);
    Bytes const& full = out.Bytes();
    std::ostringstream hex;
    for (size_t i = 0; i < full.size(); ++i)
        hex << std::hex << std::setw(2) << std::setfill('0') << int{full[i]} << (i % 32 == 31 ? "\n" : "");
    testsupport::ExpectGolden(hex.str() + "\n", "nerox/stream/everything.hex");
    ReadOnlyStream complete(full);
    ReadEverything(complete);
    EXPECT_TRUE(complete.AtEnd());
    for (size_t length = 0; length < full.size(); ++length) {
        ReadOnlyStream truncated(full.data(), length);
        EXPECT_THROW(ReadEverything(truncated), std::runtime_error) << "prefix of " << length << " bytes";
    }
}

TEST(StreamRoundTrip, StreamsWriteWhatRemainsToBeRead) {
    ReadOnlyStream partlyRead(Bytes{1, 0, 0, 0, 2, 0, 0, 0});
    EXPECT_EQ(Get<int32_t>(partlyRead), 1);
    WriteOnlyStream out;
    out.Write(partlyRead);
    EXPECT_EQ(partlyRead.Remaining(), 4u); // the source is not consumed
    out.Write(out);                        // into itself: the bytes written so far, once
    ReadOnlyStream in(out.Bytes());
    EXPECT_EQ(in.ReadStream().Bytes(), (Bytes{2, 0, 0, 0}));
    EXPECT_EQ(in.ReadStream().Bytes(), Bytes(out.Bytes().begin(), out.Bytes().begin() + 12));
    EXPECT_TRUE(in.AtEnd());
}

TEST(StreamErrors, ReadsPastTheEndCorruptLengthsAndWrongDirectionsAreRefused) {
    ReadOnlyStream in(Bytes{1, 2});
    EXPECT_THAT([&] { Get<uint32_t>(in); }, ThrowsMessage<std::runtime_error>(HasSubstr("read past the end")));
    EXPECT_THROW(in.Skip(3), std::runtime_error);
    in.Skip(2);
    EXPECT_TRUE(in.AtEnd());
    // A huge length must fail before allocating; one byte more than remains fails too.
    Bytes const huge = ByteBuilder().Raw(std::numeric_limits<uint64_t>::max()).Chars("abc", 3).bytes;
    std::string text = "unchanged";
    EXPECT_THROW(ReadOnlyStream(huge).Read(text), std::runtime_error);
    EXPECT_EQ(text, "unchanged");
    EXPECT_THROW(ReadOnlyStream(huge).ReadStream(), std::runtime_error);
    EXPECT_THROW(ReadOnlyStream(ByteBuilder().Raw(uint64_t{4}).Chars("abc", 3).bytes).ReadStream(), std::runtime_error);
    WriteOnlyStream writeOnly;
    writeOnly.Write(int32_t{1});
    EXPECT_THROW(Get<int32_t>(writeOnly), std::runtime_error);
    Bytes data = writeOnly.Bytes();
    ReadOnlyStream readOnly(data);
    data[0] = 99; // the stream holds its own copy
    EXPECT_THROW(readOnly.Write(int32_t{2}), std::runtime_error);
    EXPECT_EQ(Get<int32_t>(readOnly), 1);
}

// Values cross the buffer edges at many places; a buffer of 0 reads and writes unbuffered.
TEST(BinaryFileStreamTest, DiskRoundTripMatchesMemoryLayoutWithAnyBufferAndCutFilesFailCleanly) {
    TempDir dir;
    std::string const path = dir.File("mixed.bin");
    WriteOnlyStream memory;
    WriteEverything(memory);
    for (unsigned int buffer : {0u, 1u, 7u, 64u, 100000u}) {
        {
            BinaryFileStream out(path, buffer,
                                 buffer == 7 ? BinaryFileStream::ReadWrite : BinaryFileStream::WriteTruncate);
            WriteEverything(out);
        } // the destructor flushes
        EXPECT_EQ(ReadBytes(path), memory.Bytes()) << "buffer " << buffer;
        for (int mode : {BinaryFileStream::ReadOnly, BinaryFileStream::ReadWrite}) {
            BinaryFileStream in(path, buffer, mode);
            ReadEverything(in);
            EXPECT_EQ(in.Remaining(), 0u);
            EXPECT_THROW(Get<uint8_t>(in), std::runtime_error);
        }
    }
    // A selection of cut points, including every one inside the first 64 bytes.
    Bytes const& bytes = memory.Bytes();
    for (size_t length = 0; length < bytes.size(); length += (length < 64 ? 1 : 37)) {
        WriteBytes(path, Bytes(bytes.begin(), bytes.begin() + length));
        BinaryFileStream in(path, 64, BinaryFileStream::ReadOnly);
        EXPECT_THROW(ReadEverything(in), std::runtime_error) << "cut at " << length;
    }
}

// Nested into a memory stream, a file stream gives what remains to be read,
// from the file or from bytes not yet written out, and is not consumed.
TEST(BinaryFileStreamTest, ReadWriteModeReplacesTheContentOnFirstWriteAndNestsWhatRemains) {
    TempDir dir;
    std::string const path = dir.File("replace.bin");
    Bytes const pattern = Pattern(2500);
    WriteBytes(path, pattern);
    auto const nested = [](Stream const& stream) {
        WriteOnlyStream out;
        out.Write(stream);
        return ReadOnlyStream(out.Bytes()).ReadStream().Bytes();
    };
    {
        BinaryFileStream stream(path, 1024, BinaryFileStream::ReadWrite);
        EXPECT_EQ(Get<uint16_t>(stream), pattern[0] | pattern[1] << 8);
        EXPECT_EQ(nested(stream), Bytes(pattern.begin() + 2, pattern.end()));
        EXPECT_EQ(stream.Remaining(), 2498u);
        stream.Write(uint32_t{0xCAFEF00D});
        EXPECT_EQ(stream.Size(), 4u);
        EXPECT_EQ(nested(stream), (Bytes{0x0D, 0xF0, 0xFE, 0xCA}));
        EXPECT_EQ(Get<uint32_t>(stream), 0xCAFEF00Du)
            << "reading starts over on the new content, pending bytes included";
    }
    EXPECT_EQ(ReadBytes(path), (Bytes{0x0D, 0xF0, 0xFE, 0xCA}));
    std::string const created = dir.File("created.bin");
    EXPECT_EQ(BinaryFileStream(created, 1024, BinaryFileStream::ReadWrite).Remaining(), 0u);
    EXPECT_EQ(std::filesystem::file_size(created), 0u);
}

TEST(BinaryFileStreamTest, OpeningFailuresAndWrongDirections) {
    TempDir dir;
    std::string const missing = dir.File("no_such_file.bin");
    EXPECT_THAT([&] { BinaryFileStream(missing, 1024, BinaryFileStream::ReadOnly); },
                ThrowsMessage<std::runtime_error>(HasSubstr(missing)));
    std::filesystem::create_directories(dir.File("folder"));
    EXPECT_THROW(BinaryFileStream(dir.File("no_folder/file.bin"), 1024, BinaryFileStream::ReadWrite),
                 std::runtime_error);
    EXPECT_THROW(BinaryFileStream(dir.File("folder"), 1024, BinaryFileStream::ReadOnly), std::runtime_error);
    EXPECT_THROW(BinaryFileStream(dir.File("x.bin"), 1024, 42), std::invalid_argument);
    std::string const path = dir.File("direction.bin");
    WriteBytes(path, Pattern(10));
    EXPECT_THROW(BinaryFileStream(path, 1024, BinaryFileStream::ReadOnly).Write(uint8_t{1}), std::runtime_error);
    EXPECT_EQ(ReadBytes(path), Pattern(10));
    BinaryFileStream writeOnly(path, 1024, BinaryFileStream::WriteTruncate);
    EXPECT_EQ(std::filesystem::file_size(path), 0u) << "opening for writing empties the file";
    EXPECT_THROW(Get<uint8_t>(writeOnly), std::runtime_error);
    EXPECT_THROW(WriteOnlyStream().Write(writeOnly), std::runtime_error);
}
