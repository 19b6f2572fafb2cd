#include <gtest/gtest.h>

#include <cstdint>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "nerox/filesystem/Stream.hpp"

using nerox::filesystem::ReadOnlyStream;
using nerox::filesystem::WriteOnlyStream;

namespace {

struct Packed {
    int32_t a;
    double b;
    uint8_t c;
};

std::vector<unsigned char> LengthPrefix(uint64_t length)
{
    std::vector<unsigned char> bytes;
    for (int i = 0; i < 8; ++i)
        bytes.push_back(static_cast<unsigned char>(length >> (8 * i)));
    return bytes;
}

std::string const BinaryText("a\0b\0\0c\xff\x01", 8);

/// A stream holding one of everything, read back by ReadEverything.
WriteOnlyStream WriteEverything()
{
    WriteOnlyStream inner;
    inner.Write(int32_t{7});
    inner.Write(std::string("deep"));

    WriteOnlyStream middle;
    middle.Write(2.5);
    middle.Write(inner);
    middle.Write(true);

    WriteOnlyStream outer(64);
    outer.Write(int64_t{-1234567890123});
    outer.Write(BinaryText);
    outer.Write(std::string());
    outer.Write(middle);
    outer.Write(uint16_t{0xBEEF});
    return outer;
}

void ReadEverything(ReadOnlyStream& stream)
{
    int64_t big = 0;
    stream.Read(big);
    EXPECT_EQ(big, -1234567890123);
    std::string text;
    stream.Read(text);
    EXPECT_EQ(text, BinaryText);
    stream.Read(text);
    EXPECT_EQ(text, "");

    ReadOnlyStream middle = stream.ReadStream();
    double real = 0;
    middle.Read(real);
    EXPECT_EQ(real, 2.5);
    ReadOnlyStream inner = middle.ReadStream();
    int32_t small = 0;
    inner.Read(small);
    EXPECT_EQ(small, 7);
    inner.Read(text);
    EXPECT_EQ(text, "deep");
    EXPECT_TRUE(inner.AtEnd());
    bool flag = false;
    middle.Read(flag);
    EXPECT_TRUE(flag);
    EXPECT_TRUE(middle.AtEnd());

    uint16_t marker = 0;
    stream.Read(marker);
    EXPECT_EQ(marker, 0xBEEF);
}

} // namespace

TEST(StreamRoundTrip, ScalarsComeBackAsWritten)
{
    WriteOnlyStream out;
    out.Write(int8_t{-5});
    out.Write(uint8_t{250});
    out.Write(int32_t{std::numeric_limits<int32_t>::min()});
    out.Write(uint64_t{std::numeric_limits<uint64_t>::max()});
    out.Write(3.141592653589793);
    out.Write(-0.0f);
    out.Write(std::numeric_limits<double>::denorm_min());
    out.Write(true);
    out.Write(false);
    out.Write(Packed{42, 1.5, 9});
    // bool is one byte, the rest their native widths.
    EXPECT_EQ(out.Size(), 1u + 1 + 4 + 8 + 8 + 4 + 8 + 1 + 1 + sizeof(Packed));

    ReadOnlyStream in(out.Bytes());
    int8_t i8 = 0;
    uint8_t u8 = 0;
    int32_t i32 = 0;
    uint64_t u64 = 0;
    double pi = 0;
    float negativeZero = 1;
    double denormal = 0;
    bool yes = false;
    bool no = true;
    Packed packed{};
    in.Read(i8);
    in.Read(u8);
    in.Read(i32);
    in.Read(u64);
    in.Read(pi);
    in.Read(negativeZero);
    in.Read(denormal);
    in.Read(yes);
    in.Read(no);
    in.Read(packed);
    EXPECT_EQ(i8, -5);
    EXPECT_EQ(u8, 250);
    EXPECT_EQ(i32, std::numeric_limits<int32_t>::min());
    EXPECT_EQ(u64, std::numeric_limits<uint64_t>::max());
    EXPECT_EQ(pi, 3.141592653589793);
    EXPECT_EQ(negativeZero, 0.0f);
    EXPECT_TRUE(std::signbit(negativeZero));
    EXPECT_EQ(denormal, std::numeric_limits<double>::denorm_min());
    EXPECT_TRUE(yes);
    EXPECT_FALSE(no);
    EXPECT_EQ(packed.a, 42);
    EXPECT_EQ(packed.b, 1.5);
    EXPECT_EQ(packed.c, 9);
    EXPECT_TRUE(in.AtEnd());
    EXPECT_EQ(in.Remaining(), 0u);
}

TEST(StreamRoundTrip, StringsKeepEveryByte)
{
    std::string const longText(100000, 'x');
    WriteOnlyStream out;
    out.Write(std::string());
    out.Write(BinaryText);
    out.Write(longText);
    out.Write("literal");                 // a C string goes through the string form
    out.Write(std::string_view("view"));

    ReadOnlyStream in(out.Bytes());
    std::string text = "not empty";
    in.Read(text);
    EXPECT_EQ(text, "");
    in.Read(text);
    EXPECT_EQ(text, BinaryText);
    EXPECT_EQ(text.size(), 8u);
    in.Read(text);
    EXPECT_EQ(text, longText);
    in.Read(text);
    EXPECT_EQ(text, "literal");
    in.Read(text);
    EXPECT_EQ(text, "view");
    EXPECT_TRUE(in.AtEnd());
}

TEST(StreamRoundTrip, NestedStreamsTwoDeep)
{
    WriteOnlyStream out = WriteEverything();
    ReadOnlyStream in(out.Bytes());
    ReadEverything(in);
    EXPECT_TRUE(in.AtEnd());
}

TEST(StreamRoundTrip, NestedBlockCanBeSkippedWhole)
{
    WriteOnlyStream block;
    block.Write(std::string("contents the reader does not understand"));
    block.Write(99.0);
    WriteOnlyStream out;
    out.Write(block);
    out.Write(int32_t{5});

    ReadOnlyStream in(out.Bytes());
    ReadOnlyStream skipped = in.ReadStream();
    EXPECT_EQ(skipped.Bytes(), block.Bytes());
    int32_t after = 0;
    in.Read(after);
    EXPECT_EQ(after, 5);
}

TEST(StreamRoundTrip, WritingAReadOnlyStreamWritesWhatRemains)
{
    WriteOnlyStream source;
    source.Write(int32_t{1});
    source.Write(int32_t{2});
    ReadOnlyStream partlyRead(source.Bytes());
    int32_t first = 0;
    partlyRead.Read(first);

    WriteOnlyStream out;
    out.Write(partlyRead);
    EXPECT_EQ(partlyRead.Remaining(), 4u); // the source is not consumed
    ReadOnlyStream in(out.Bytes());
    ReadOnlyStream block = in.ReadStream();
    EXPECT_EQ(block.Size(), 4u);
    int32_t second = 0;
    block.Read(second);
    EXPECT_EQ(second, 2);
}

TEST(StreamRoundTrip, StreamWrittenIntoItself)
{
    WriteOnlyStream stream;
    stream.Write(uint32_t{0xAABBCCDD});
    stream.Write(stream);
    ReadOnlyStream in(stream.Bytes());
    uint32_t value = 0;
    in.Read(value);
    ReadOnlyStream copy = in.ReadStream();
    uint32_t copied = 0;
    copy.Read(copied);
    EXPECT_EQ(value, 0xAABBCCDDu);
    EXPECT_EQ(copied, 0xAABBCCDDu);
    EXPECT_TRUE(in.AtEnd());
}

TEST(StreamLayout, StringIsLittleEndianLengthThenBytes)
{
    std::string const text(300, 'q');
    WriteOnlyStream out;
    out.Write(text);
    std::vector<unsigned char> expected = LengthPrefix(300);
    EXPECT_EQ(expected[0], 0x2C);
    EXPECT_EQ(expected[1], 0x01);
    expected.insert(expected.end(), text.begin(), text.end());
    EXPECT_EQ(out.Bytes(), expected);
}

TEST(StreamLayout, NestedStreamIsLittleEndianLengthThenBytes)
{
    WriteOnlyStream inner;
    inner.Write(uint8_t{0x11});
    inner.Write(uint8_t{0x22});
    inner.Write(uint8_t{0x33});
    WriteOnlyStream out;
    out.Write(inner);
    std::vector<unsigned char> expected = LengthPrefix(3);
    expected.insert(expected.end(), {0x11, 0x22, 0x33});
    EXPECT_EQ(out.Bytes(), expected);
}

TEST(StreamLayout, RawWritesCarryNoTag)
{
    WriteOnlyStream out;
    unsigned char const raw[] = {1, 2, 3};
    out.Write(raw, sizeof(raw));
    out.Write(uint32_t{0x04030201});
    EXPECT_EQ(out.Bytes(), (std::vector<unsigned char>{1, 2, 3, 1, 2, 3, 4}));
}

TEST(StreamErrors, ReadingPastTheEndThrows)
{
    WriteOnlyStream out;
    out.Write(uint16_t{1});
    ReadOnlyStream in(out.Bytes());
    uint32_t tooWide = 0;
    try {
        in.Read(tooWide);
        FAIL() << "no exception";
    } catch (std::runtime_error const& error) {
        EXPECT_NE(std::string(error.what()).find("read past the end"), std::string::npos) << error.what();
    }
    ReadOnlyStream empty;
    uint8_t byte = 0;
    EXPECT_THROW(empty.Read(byte), std::runtime_error);
    EXPECT_THROW(empty.Skip(1), std::runtime_error);
}

TEST(StreamErrors, EveryShorterPrefixFailsCleanly)
{
    std::vector<unsigned char> const full = WriteEverything().Bytes();
    ReadOnlyStream complete(full);
    ReadEverything(complete);
    for (size_t length = 0; length < full.size(); ++length) {
        ReadOnlyStream truncated(full.data(), length);
        EXPECT_THROW(ReadEverything(truncated), std::runtime_error) << "prefix of " << length << " bytes";
    }
}

TEST(StreamErrors, HugeLengthPrefixIsRefusedBeforeAllocating)
{
    std::vector<unsigned char> bytes = LengthPrefix(std::numeric_limits<uint64_t>::max());
    bytes.insert(bytes.end(), {'a', 'b', 'c'});
    {
        ReadOnlyStream in(bytes);
        std::string text = "unchanged";
        EXPECT_THROW(in.Read(text), std::runtime_error);
        EXPECT_EQ(text, "unchanged");
    }
    {
        ReadOnlyStream in(bytes);
        EXPECT_THROW(in.ReadStream(), std::runtime_error);
    }
    // One byte more than what remains.
    std::vector<unsigned char> offByOne = LengthPrefix(4);
    offByOne.insert(offByOne.end(), {'a', 'b', 'c'});
    ReadOnlyStream in(offByOne);
    EXPECT_THROW(in.ReadStream(), std::runtime_error);
}

TEST(StreamErrors, WrongDirectionThrows)
{
    WriteOnlyStream writeOnly;
    writeOnly.Write(int32_t{1});
    int32_t value = 0;
    EXPECT_THROW(writeOnly.Read(value), std::runtime_error);
    std::string text;
    EXPECT_THROW(writeOnly.Read(text), std::runtime_error);

    ReadOnlyStream readOnly(writeOnly.Bytes());
    EXPECT_THROW(readOnly.Write(int32_t{2}), std::runtime_error);
    EXPECT_EQ(readOnly.Size(), 4u);
}

TEST(ReadOnlyStreamTest, ConstructorCopiesItsInput)
{
    std::vector<unsigned char> data = {1, 2, 3, 4};
    ReadOnlyStream stream(data);
    data[0] = 99;
    uint8_t first = 0;
    stream.Read(first);
    EXPECT_EQ(first, 1);
    EXPECT_EQ(stream.Position(), 1u);
    EXPECT_EQ(stream.Remaining(), 3u);
    stream.Skip(3);
    EXPECT_TRUE(stream.AtEnd());
}
