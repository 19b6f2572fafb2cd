#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/TempDir.hpp"

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "nerox/filesystem/ConfigFile.hpp"
#include "nerox/filesystem/FilePath.hpp"

using nerox::filesystem::ConfigFile;
using nerox::filesystem::FilePath;
using Conf = ConfigFile::Conf;
using InputBinding = ConfigFile::InputBinding;

using testsupport::ReadText;
using testsupport::ReplaceText;
using testsupport::TempDir;
using testsupport::WriteText;

namespace {

/// Every value type with a value set in every field.
struct AllTypes {
    std::string text = "plain text";
    bool flag = true;
    int32_t number = -123456;
    float real = 0.1f;
    InputBinding binding;

    std::vector<Conf> Entries(ConfigFile* owner)
    {
        return {Conf(owner, "text", &text, ConfigFile::TypeString), Conf(owner, "flag", &flag, ConfigFile::TypeBool),
                Conf(owner, "number", &number, ConfigFile::TypeInt32), Conf(owner, "real", &real, ConfigFile::TypeFloat),
                Conf(owner, "binding", &binding, ConfigFile::TypeInputBinding)};
    }
};

InputBinding FullBinding()
{
    InputBinding binding;
    binding.key = 87;
    binding.mouseButton = 2;
    binding.joysticks[0] = {"first pad, \"quoted\" name:x", 3, 7, 4, -1};
    binding.joysticks[1] = {"Some Stick Name", 2, 11, -32768, 32767};
    return binding;
}

/// A config file that counts its reloads and reads one value.
class CountingConfig : public ConfigFile {
public:
    CountingConfig(std::string const& path, std::optional<int> interval) : ConfigFile(path, interval) {}
    ~CountingConfig() override { StopAutoReloadThread(); }

    void ReadConfig() override
    {
        std::vector<Conf> entries = {Conf(this, "value", value)};
        ReadFromINI("main", entries, false);
        ++reloads;
    }

    int32_t value = 0;
    int reloads = 0;
};

/// Waits up to a generous deadline for a condition checked under the file's mutex.
template <class Condition>
bool WaitFor(ConfigFile& config, Condition condition)
{
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < deadline) {
        {
            std::lock_guard<std::mutex> lock(config.GetMutex());
            if (condition())
                return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}

} // namespace

// ---------------------------------------------------------------- Conf

TEST(ConfigFileConf, RefusesUnknownTypes)
{
    int32_t variable = 0;
    for (int type : {0, 2, 4, 6, 9, -1, 100})
        EXPECT_THROW(Conf(nullptr, "key", &variable, type), std::invalid_argument) << type;
    for (int type : {ConfigFile::TypeString, ConfigFile::TypeBool, ConfigFile::TypeInt32, ConfigFile::TypeFloat,
                     ConfigFile::TypeInputBinding})
        EXPECT_NO_THROW(Conf(nullptr, "key", &variable, type)) << type;
    EXPECT_EQ(ConfigFile::TypeString, 1);
    EXPECT_EQ(ConfigFile::TypeBool, 3);
    EXPECT_EQ(ConfigFile::TypeInt32, 5);
    EXPECT_EQ(ConfigFile::TypeFloat, 7);
    EXPECT_EQ(ConfigFile::TypeInputBinding, 8);
}

TEST(ConfigFileConf, RefusesKeysTheFileCannotHold)
{
    bool variable = false;
    EXPECT_THROW(Conf(nullptr, "key", nullptr, ConfigFile::TypeBool), std::invalid_argument);
    for (char const* key : {"", "a=b", " padded", "line\nbreak", "[section", ";comment", "#comment"})
        EXPECT_THROW(Conf(nullptr, key, variable), std::invalid_argument) << key;
}

TEST(ConfigFileConf, TypedConstructorsPickTheirType)
{
    std::string text;
    bool flag = false;
    int32_t number = 0;
    float real = 0;
    InputBinding binding;
    EXPECT_EQ(Conf(nullptr, "k", text).type, ConfigFile::TypeString);
    EXPECT_EQ(Conf(nullptr, "k", flag).type, ConfigFile::TypeBool);
    EXPECT_EQ(Conf(nullptr, "k", number).type, ConfigFile::TypeInt32);
    EXPECT_EQ(Conf(nullptr, "k", real).type, ConfigFile::TypeFloat);
    EXPECT_EQ(Conf(nullptr, "k", binding).type, ConfigFile::TypeInputBinding);
    EXPECT_EQ(Conf(nullptr, "k", binding).variable, &binding);
}

// ---------------------------------------------------------------- values

TEST(ConfigFileValues, EveryTypeRoundTrips)
{
    TempDir dir;
    std::string const path = dir.File("all.ini");
    AllTypes written;
    written.binding = FullBinding();
    {
        ConfigFile config(path, std::nullopt);
        std::vector<Conf> entries = written.Entries(&config);
        config.WriteToINI("values", entries);
    }
    AllTypes read;
    read.text = "";
    read.flag = false;
    read.number = 0;
    read.real = 0;
    ConfigFile config(path, std::nullopt);
    std::vector<Conf> entries = read.Entries(&config);
    config.ReadFromINI("values", entries, false);
    EXPECT_EQ(read.text, written.text);
    EXPECT_EQ(read.flag, written.flag);
    EXPECT_EQ(read.number, written.number);
    EXPECT_EQ(read.real, written.real);
    EXPECT_EQ(read.binding, written.binding);
    EXPECT_EQ(read.binding.joysticks[1].name, "Some Stick Name");
}

TEST(ConfigFileValues, StringsRoundTripExactly)
{
    TempDir dir;
    std::string const path = dir.File("strings.ini");
    std::vector<std::string> const samples = {
        "",           "AUTO",          "  leading and trailing  ", "\"quoted\"",      "\"",
        "a = b ; c # d", "line\nbreak\ttab\rreturn", "back\\slash \\n",         "[not a section]",
        std::string("nul\0inside", 10), "trailing tab\t", "\xc3\xa9t\xc3\xa9 UTF-8",
    };
    for (std::string const& sample : samples) {
        std::string written = sample;
        std::string read = "something else";
        ConfigFile config(path, std::nullopt);
        std::vector<Conf> out = {Conf(&config, "text", written)};
        config.WriteToINI("s", out);
        std::vector<Conf> in = {Conf(&config, "text", read)};
        config.ReadFromINI("s", in, false);
        EXPECT_EQ(read, sample) << "file:\n" << ReadText(path);
    }
}

TEST(ConfigFileValues, FloatsRoundTripBitForBit)
{
    TempDir dir;
    std::string const path = dir.File("floats.ini");
    std::vector<float> const samples = {0.1f,
                                        0.675f,
                                        2.4f,
                                        -0.0f,
                                        1.0f / 3.0f,
                                        16777217.0f,
                                        std::numeric_limits<float>::max(),
                                        std::numeric_limits<float>::lowest(),
                                        std::numeric_limits<float>::min(),
                                        std::numeric_limits<float>::denorm_min(),
                                        std::nextafter(1.0f, 2.0f),
                                        std::numeric_limits<float>::infinity(),
                                        -std::numeric_limits<float>::infinity()};
    for (float sample : samples) {
        float written = sample;
        float read = 12345.0f;
        ConfigFile config(path, std::nullopt);
        std::vector<Conf> out = {Conf(&config, "real", written)};
        config.WriteToINI("f", out);
        std::vector<Conf> in = {Conf(&config, "real", read)};
        config.ReadFromINI("f", in, false);
        EXPECT_EQ(std::memcmp(&read, &sample, sizeof(float)), 0) << sample << " read back as " << read;
    }
}

TEST(ConfigFileValues, IntegerExtremesRoundTrip)
{
    TempDir dir;
    std::string const path = dir.File("ints.ini");
    for (int32_t sample : {0, -1, 1, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()}) {
        int32_t written = sample;
        int32_t read = 77;
        ConfigFile config(path, std::nullopt);
        std::vector<Conf> out = {Conf(&config, "n", written)};
        config.WriteToINI("i", out);
        std::vector<Conf> in = {Conf(&config, "n", read)};
        config.ReadFromINI("i", in, false);
        EXPECT_EQ(read, sample);
    }
}

TEST(ConfigFileValues, BindingsRoundTripEveryField)
{
    TempDir dir;
    std::string const path = dir.File("bindings.ini");
    std::vector<InputBinding> samples(4);
    samples[1] = FullBinding();
    samples[2].key = 32;
    samples[2].joysticks[0].axis = 1;
    samples[2].joysticks[0].axisDirection = -1;
    samples[3].joysticks[1].name = "  spaces, commas, \\ and \"quotes\"  ";
    samples[3].joysticks[1].id = -5;
    for (InputBinding const& sample : samples) {
        InputBinding written = sample;
        InputBinding read = FullBinding();
        read.key = 1000;
        ConfigFile config(path, std::nullopt);
        std::vector<Conf> out = {Conf(&config, "b", written)};
        config.WriteToINI("input", out);
        std::vector<Conf> in = {Conf(&config, "b", read)};
        config.ReadFromINI("input", in, false);
        EXPECT_EQ(read, sample) << ReadText(path);
    }
}

TEST(ConfigFileValues, BindingTextIsReadableAndPartialTextsUseDefaults)
{
    TempDir dir;
    std::string const path = dir.File("binding_text.ini");
    InputBinding forward;
    forward.key = 87;
    forward.joysticks[0].axis = 1;
    forward.joysticks[0].axisDirection = -1;
    {
        ConfigFile config(path, std::nullopt);
        std::vector<Conf> out = {Conf(&config, "forward", forward)};
        config.WriteToINI("input", out);
    }
    EXPECT_EQ(ReadText(path),
              "[input]\nforward = key=87 mouse=-1 pad=button:-1,axis:1,dir:-1 joy=button:-1,axis:-1,dir:1\n");

    WriteText(path, "[input]\n"
                    "only_key = key=65\n"
                    "stick =  joy=name:\"My Stick\",axis:3,dir:-1  mouse=1\n");
    InputBinding onlyKey = FullBinding();
    InputBinding stick;
    ConfigFile config(path, std::nullopt);
    std::vector<Conf> in = {Conf(&config, "only_key", onlyKey), Conf(&config, "stick", stick)};
    config.ReadFromINI("input", in, false);
    InputBinding expectedKey;
    expectedKey.key = 65;
    EXPECT_EQ(onlyKey, expectedKey);
    InputBinding expectedStick;
    expectedStick.mouseButton = 1;
    expectedStick.joysticks[1].name = "My Stick";
    expectedStick.joysticks[1].axis = 3;
    expectedStick.joysticks[1].axisDirection = -1;
    EXPECT_EQ(stick, expectedStick);
}

TEST(ConfigFileValues, BoolSpellings)
{
    TempDir dir;
    std::string const path = dir.File("bools.ini");
    WriteText(path, "[b]\na = YES\nb = no\nc = 1\nd = False\ne = TRUE\nf = 0\ng = maybe\nh =\n");
    bool a = false, b = true, c = false, d = true, e = false, f = true, g = true, h = false;
    ConfigFile config(path, std::nullopt);
    std::vector<Conf> entries = {Conf(&config, "a", a), Conf(&config, "b", b), Conf(&config, "c", c),
                                 Conf(&config, "d", d), Conf(&config, "e", e), Conf(&config, "f", f),
                                 Conf(&config, "g", g), Conf(&config, "h", h)};
    config.ReadFromINI("b", entries, false);
    EXPECT_TRUE(a);
    EXPECT_FALSE(b);
    EXPECT_TRUE(c);
    EXPECT_FALSE(d);
    EXPECT_TRUE(e);
    EXPECT_FALSE(f);
    EXPECT_TRUE(g);  // unparsable: unchanged
    EXPECT_FALSE(h); // empty: unchanged
}

TEST(ConfigFileValues, UnparsableValuesLeaveVariablesUnchanged)
{
    TempDir dir;
    std::string const path = dir.File("bad.ini");
    WriteText(path, "[bad]\n"
                    "int_suffix = 12abc\n"
                    "int_range = 99999999999\n"
                    "int_real = 1.5\n"
                    "real_word = fast\n"
                    "real_suffix = 1.5x\n"
                    "binding_word = garbage\n"
                    "binding_number = key=abc\n"
                    "binding_axis = pad=axis:40000\n"
                    "binding_quote = joy=name:\"open\n");
    int32_t intSuffix = 1, intRange = 2, intReal = 3;
    float realWord = 4, realSuffix = 5;
    InputBinding bindingWord = FullBinding(), bindingNumber = FullBinding(), bindingAxis = FullBinding(),
                 bindingQuote = FullBinding();
    ConfigFile config(path, std::nullopt);
    std::vector<Conf> entries = {
        Conf(&config, "int_suffix", intSuffix),        Conf(&config, "int_range", intRange),
        Conf(&config, "int_real", intReal),            Conf(&config, "real_word", realWord),
        Conf(&config, "real_suffix", realSuffix),      Conf(&config, "binding_word", bindingWord),
        Conf(&config, "binding_number", bindingNumber), Conf(&config, "binding_axis", bindingAxis),
        Conf(&config, "binding_quote", bindingQuote)};
    std::string const before = ReadText(path);
    config.ReadFromINI("bad", entries, true);
    EXPECT_EQ(intSuffix, 1);
    EXPECT_EQ(intRange, 2);
    EXPECT_EQ(intReal, 3);
    EXPECT_EQ(realWord, 4);
    EXPECT_EQ(realSuffix, 5);
    EXPECT_EQ(bindingWord, FullBinding());
    EXPECT_EQ(bindingNumber, FullBinding());
    EXPECT_EQ(bindingAxis, FullBinding());
    EXPECT_EQ(bindingQuote, FullBinding());
    EXPECT_EQ(ReadText(path), before); // present keys are not rewritten
}

// ---------------------------------------------------------------- reading and writing sections

TEST(ConfigFileSections, MissingFileWithWriteMissingCreatesIt)
{
    TempDir dir;
    std::string const path = dir.File("sub/folder/new.ini");
    bool visible = true;
    float scale = 1.5f;
    bool hidden = false;
    ConfigFile config(path, std::nullopt);
    std::vector<Conf> hiddenEntries = {Conf(&config, "hidden", hidden)};
    config.ReadFromINI("game", hiddenEntries, false);
    EXPECT_FALSE(std::filesystem::exists(path));
    std::vector<Conf> entries = {Conf(&config, "visible", visible), Conf(&config, "scale", scale)};
    config.ReadFromINI("game", entries, true);
    EXPECT_EQ(ReadText(path), "[game]\nvisible = true\nscale = 1.5\n");
    EXPECT_TRUE(visible);
    EXPECT_EQ(scale, 1.5f);
}

TEST(ConfigFileSections, AbsentKeysKeepDefaultsAndAreAddedInPlace)
{
    TempDir dir;
    std::string const path = dir.File("add.ini");
    std::string const original = "; settings\n"
                                 "[first]\n"
                                 "a = 5\n"
                                 "# note about b\n"
                                 "\n"
                                 "; comment before second\n"
                                 "[second]\n"
                                 "x = 1\n";
    WriteText(path, original);
    int32_t a = 0, b = 42, c = 43;
    ConfigFile config(path, std::nullopt);
    std::vector<Conf> noWrite = {Conf(&config, "a", a), Conf(&config, "b", b)};
    config.ReadFromINI("first", noWrite, false);
    EXPECT_EQ(a, 5);
    EXPECT_EQ(b, 42);
    EXPECT_EQ(ReadText(path), original);

    std::vector<Conf> write = {Conf(&config, "a", a), Conf(&config, "b", b), Conf(&config, "c", c)};
    config.ReadFromINI("first", write, true);
    EXPECT_EQ(ReadText(path), "; settings\n"
                              "[first]\n"
                              "a = 5\n"
                              "b = 42\n"
                              "c = 43\n"
                              "# note about b\n"
                              "\n"
                              "; comment before second\n"
                              "[second]\n"
                              "x = 1\n");

    // A section that does not exist yet goes at the end.
    int32_t z = 9;
    std::vector<Conf> third = {Conf(&config, "z", z)};
    config.ReadFromINI("third", third, true);
    EXPECT_THAT(ReadText(path), testing::EndsWith("[second]\nx = 1\n\n[third]\nz = 9\n"));
}

TEST(ConfigFileSections, KeysBelongToTheirSection)
{
    TempDir dir;
    std::string const path = dir.File("sections.ini");
    WriteText(path, "value = 1\n[one]\nvalue = 2\n  [ two ]  \n  value=3\n[one]\nvalue = 4\n");
    int32_t global = 0, one = 0, two = 0, missing = -7;
    ConfigFile config(path, std::nullopt);
    std::vector<Conf> globalEntries = {Conf(&config, "value", global)};
    config.ReadFromINI("", globalEntries, false);
    std::vector<Conf> oneEntries = {Conf(&config, "value", one)};
    config.ReadFromINI("one", oneEntries, false);
    std::vector<Conf> twoEntries = {Conf(&config, "value", two)};
    config.ReadFromINI("two", twoEntries, false);
    std::vector<Conf> missingEntries = {Conf(&config, "value", missing)};
    config.ReadFromINI("three", missingEntries, false);
    EXPECT_EQ(global, 1);
    EXPECT_EQ(one, 4); // the last occurrence counts
    EXPECT_EQ(two, 3);
    EXPECT_EQ(missing, -7);
}

TEST(ConfigFileSections, WindowsLineEndsAreRead)
{
    TempDir dir;
    std::string const path = dir.File("crlf.ini");
    WriteText(path, "[s]\r\nname = value\r\nflag = yes\r\n");
    std::string name;
    bool flag = false;
    ConfigFile config(path, std::nullopt);
    std::vector<Conf> entries = {Conf(&config, "name", name), Conf(&config, "flag", flag)};
    config.ReadFromINI("s", entries, false);
    EXPECT_EQ(name, "value");
    EXPECT_TRUE(flag);
}

TEST(ConfigFileSections, WriteToINIKeepsEverythingElse)
{
    TempDir dir;
    std::string const path = dir.File("keep.ini");
    WriteText(path, "# top comment\n"
                    "[game]\n"
                    "shown = false\n"
                    "; hidden switch below\n"
                    "dev_tools = true\n"
                    "odd line without equals\n"
                    "  spaced   =   old\n"
                    "\n"
                    "[audio]\n"
                    "volume = 0.5\n");
    bool shown = true;
    std::string spaced = "new";
    int32_t added = 3;
    ConfigFile config(path, std::nullopt);
    std::vector<Conf> entries = {Conf(&config, "shown", shown), Conf(&config, "spaced", spaced),
                                 Conf(&config, "added", added)};
    config.WriteToINI("game", entries);
    EXPECT_EQ(ReadText(path), "# top comment\n"
                              "[game]\n"
                              "shown = true\n"
                              "; hidden switch below\n"
                              "dev_tools = true\n"
                              "odd line without equals\n"
                              "  spaced   =   new\n"
                              "added = 3\n"
                              "\n"
                              "[audio]\n"
                              "volume = 0.5\n");

    float volume = 0.25f;
    std::vector<Conf> audio = {Conf(&config, "volume", volume)};
    config.WriteToINI("audio", audio);
    EXPECT_THAT(ReadText(path), testing::EndsWith("[audio]\nvolume = 0.25\n"));
    EXPECT_THAT(ReadText(path), testing::HasSubstr("dev_tools = true\n"));

    // Nothing to change: the file is not rewritten.
    auto const before = std::filesystem::last_write_time(path);
    auto const inode = std::filesystem::hash_value(std::filesystem::canonical(path));
    config.WriteToINI("audio", audio);
    EXPECT_EQ(std::filesystem::last_write_time(path), before);
    EXPECT_EQ(std::filesystem::hash_value(std::filesystem::canonical(path)), inode);
}

TEST(ConfigFileSections, WritesLeaveNoTemporaryFiles)
{
    TempDir dir;
    std::string const path = dir.File("clean.ini");
    int32_t value = 1;
    ConfigFile config(path, std::nullopt);
    for (int i = 0; i < 5; ++i) {
        value = i;
        std::vector<Conf> entries = {Conf(&config, "value", value)};
        config.WriteToINI("s", entries);
    }
    int files = 0;
    for (auto const& entry : std::filesystem::directory_iterator(std::filesystem::path(path).parent_path())) {
        ++files;
        EXPECT_EQ(entry.path().filename(), "clean.ini");
    }
    EXPECT_EQ(files, 1);
}

// ---------------------------------------------------------------- line handler

TEST(ConfigFileLineHandler, SectionsArriveInFileOrder)
{
    TempDir dir;
    std::string const path = dir.File("entity.cfg");
    WriteText(path, "loose line\n"
                    "; comment\n"
                    "[ENTITY]\n"
                    "mass 1200\n"
                    "\n"
                    "   \t\n"
                    "# another comment\n"
                    "[JOINT wheel]\r\n"
                    "parent chassis\r\n"
                    "  position 0 1 2  \r\n"
                    "angular_x -90 0 90\n"
                    "[EMPTY]\n"
                    "[NO CLOSING BRACKET\n"
                    "key value\n");
    std::vector<std::string> headers;
    std::vector<std::vector<std::string>> bodies;
    ConfigFile config(path, std::nullopt);
    config.ReadFromINI([&](std::istringstream& header, std::vector<std::istringstream>& lines) {
        headers.push_back(header.str());
        bodies.emplace_back();
        for (std::istringstream& line : lines)
            bodies.back().push_back(line.str());
    });
    ASSERT_EQ(headers, (std::vector<std::string>{"", "ENTITY", "JOINT wheel", "EMPTY", "NO CLOSING BRACKET"}));
    EXPECT_EQ(bodies[0], std::vector<std::string>{"loose line"});
    EXPECT_EQ(bodies[1], std::vector<std::string>{"mass 1200"});
    EXPECT_EQ(bodies[2], (std::vector<std::string>{"parent chassis", "  position 0 1 2  ", "angular_x -90 0 90"}));
    EXPECT_TRUE(bodies[3].empty());
    EXPECT_EQ(bodies[4], std::vector<std::string>{"key value"});
}

TEST(ConfigFileLineHandler, StreamsReadWithExtractors)
{
    TempDir dir;
    std::string const path = dir.File("joint.cfg");
    WriteText(path, "[JOINT wheel]\nposition 0 1.5 -2\n");
    std::string keyword, name, key;
    float x = 0, y = 0, z = 0;
    ConfigFile config(path, std::nullopt);
    config.ReadFromINI([&](std::istringstream& header, std::vector<std::istringstream>& lines) {
        header >> keyword >> name;
        ASSERT_EQ(lines.size(), 1u);
        lines[0] >> key >> x >> y >> z;
    });
    EXPECT_EQ(keyword, "JOINT");
    EXPECT_EQ(name, "wheel");
    EXPECT_EQ(key, "position");
    EXPECT_EQ(x, 0.0f);
    EXPECT_EQ(y, 1.5f);
    EXPECT_EQ(z, -2.0f);
}

TEST(ConfigFileLineHandler, NoPreambleCallAndMissingFileCallsNothing)
{
    TempDir dir;
    int calls = 0;
    auto const count = [&](std::istringstream&, std::vector<std::istringstream>&) { ++calls; };
    ConfigFile missing(dir.File("missing.cfg"), std::nullopt);
    missing.ReadFromINI(count);
    EXPECT_EQ(calls, 0);

    std::string const path = dir.File("sections_only.cfg");
    WriteText(path, "; only a comment first\n\n[A]\nx 1\n");
    ConfigFile config(path, std::nullopt);
    std::vector<std::string> headers;
    config.ReadFromINI([&](std::istringstream& header, std::vector<std::istringstream>&) {
        headers.push_back(header.str());
    });
    EXPECT_EQ(headers, std::vector<std::string>{"A"});
}

// ---------------------------------------------------------------- file path

TEST(FilePathTest, PartsAndDelete)
{
    TempDir dir;
    std::string const path = dir.File("settings.ini");
    FilePath file(path);
    EXPECT_EQ(file.GetPath(), path);
    EXPECT_EQ(file.GetFileName(), "settings.ini");
    EXPECT_EQ(file.GetStem(), "settings");
    EXPECT_EQ(file.GetExtension(), ".ini");
    EXPECT_EQ(file.GetDirectory(), std::filesystem::path(path).parent_path().string());
    EXPECT_FALSE(file.Exists());
    EXPECT_FALSE(file.Delete());
    WriteText(path, "x");
    EXPECT_TRUE(file.Exists());
    EXPECT_TRUE(file.Delete());
    EXPECT_FALSE(std::filesystem::exists(path));

    ConfigFile config(path, std::nullopt);
    WriteText(path, "[s]\n");
    FilePath& asPath = config;
    EXPECT_TRUE(asPath.Delete()); // virtual through the base
    EXPECT_FALSE(std::filesystem::exists(path));
}

// ---------------------------------------------------------------- auto reload

TEST(ConfigFileReload, IntervalDefaultsAndClamps)
{
    EXPECT_EQ(ConfigFile("a.ini", std::nullopt).GetReloadInterval(), ConfigFile::DefaultReloadIntervalMs);
    EXPECT_EQ(ConfigFile("a.ini", 250).GetReloadInterval(), 250);
    EXPECT_EQ(ConfigFile("a.ini", 0).GetReloadInterval(), 1);
}

TEST(ConfigFileReload, NoticesAnOutsideChange)
{
    TempDir dir;
    std::string const path = dir.File("watched.ini");
    WriteText(path, "[main]\nvalue = 1\n");
    CountingConfig config(path, 10);
    config.ReadConfig();
    EXPECT_EQ(config.value, 1);
    config.StartAutoReloadThread();
    config.StartAutoReloadThread(); // harmless
    EXPECT_TRUE(config.IsAutoReloadRunning());

    ReplaceText(path, "[main]\nvalue = 2\n");
    EXPECT_TRUE(WaitFor(config, [&] { return config.value == 2; }));

    // Same size, same file, written in place: only the modification time tells. It is
    // set explicitly so that a coarse file system clock cannot hide the change.
    auto const modified = std::filesystem::last_write_time(path);
    WriteText(path, "[main]\nvalue = 3\n");
    std::filesystem::last_write_time(path, modified + std::chrono::seconds(2));
    EXPECT_TRUE(WaitFor(config, [&] { return config.value == 3; }));

    // A deleted file is not read; its return is.
    std::filesystem::remove(path);
    ReplaceText(path, "[main]\nvalue = 4\n");
    EXPECT_TRUE(WaitFor(config, [&] { return config.value == 4; }));

    config.StopAutoReloadThread();
    EXPECT_FALSE(config.IsAutoReloadRunning());
    config.StopAutoReloadThread(); // harmless
}

TEST(ConfigFileReload, OwnWritesDoNotTriggerReloads)
{
    TempDir dir;
    std::string const path = dir.File("own.ini");
    WriteText(path, "[main]\nvalue = 1\n");
    CountingConfig config(path, 5);
    config.StartAutoReloadThread();
    int32_t written = 8;
    int32_t extra = 9;
    {
        std::lock_guard<std::mutex> lock(config.GetMutex());
        std::vector<Conf> entries = {Conf(&config, "value", written)};
        config.WriteToINI("main", entries);
        std::vector<Conf> missing = {Conf(&config, "extra", extra)};
        config.ReadFromINI("other", missing, true);
    }
    // Give the thread many polling rounds; any reload would show in the count.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    {
        std::lock_guard<std::mutex> lock(config.GetMutex());
        EXPECT_EQ(config.reloads, 0);
        EXPECT_EQ(config.value, 0);
    }
    // An outside change after our own still counts.
    ReplaceText(path, "[main]\nvalue = 5\n");
    EXPECT_TRUE(WaitFor(config, [&] { return config.value == 5; }));
}

TEST(ConfigFileReload, StopDoesNotWaitForTheInterval)
{
    TempDir dir;
    CountingConfig config(dir.File("slow.ini"), 3600 * 1000); // an hour
    config.StartAutoReloadThread();
    config.StopAutoReloadThread(); // would hang the test for an hour if it waited
    config.StartAutoReloadThread(); // can start again
    EXPECT_TRUE(config.IsAutoReloadRunning());
}

TEST(ConfigFileReload, StopWithoutStartIsHarmless)
{
    ConfigFile config("never_started.ini", std::nullopt);
    config.StopAutoReloadThread();
    EXPECT_FALSE(config.IsAutoReloadRunning());
}
