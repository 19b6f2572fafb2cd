#include <gtest/gtest.h>

#include "support/Bytes.hpp"

#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>

#include "nerox/filesystem/Stream.hpp"

using nerox::filesystem::ReadOnlyStream;
using nerox::filesystem::Stream;
using nerox::filesystem::WriteOnlyStream;
using testsupport::ByteBuilder;
using testsupport::Bytes;

namespace {

struct Packed {
    int32_t a;
    double b;
    uint8_t c;
};

template <class T>
T Get(Stream& stream)
{
    T value{};
    stream.Read(value);
    return value;
}

std::string const BinaryText("a\0b\0\0c\xff\x01", 8);

/// A stream holding one of everything, nested two deep, read back by ReadEverything.
WriteOnlyStream WriteEverything()
{
    WriteOnlyStream inner;
    inner.Write(int32_t{7});
    inner.Write("deep"); // a C string goes through the string form
    WriteOnlyStream middle;
    middle.Write(-0.0f);
    middle.Write(inner);
    middle.Write(true);
    WriteOnlyStream outer(64);
    outer.Write(std::numeric_limits<uint64_t>::max());
    outer.Write(BinaryText);
    outer.Write(std::string_view());
    outer.Write(middle);
    outer.Write(Packed{42, std::numeric_limits<double>::denorm_min(), 9});
    outer.Write(int8_t{-5});
    return outer;
}

void ReadEverything(ReadOnlyStream& stream)
{
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
    EXPECT_EQ(packed.a, 42);
    EXPECT_EQ(packed.b, std::numeric_limits<double>::denorm_min());
    EXPECT_EQ(packed.c, 9);
    EXPECT_EQ(Get<int8_t>(stream), -5);
}

} // namespace

TEST(StreamRoundTrip, EveryKindNestedTwoDeepAndEveryShorterPrefixFailsCleanly)
{
    Bytes const full = WriteEverything().Bytes();
    ReadOnlyStream complete(full);
    ReadEverything(complete);
    EXPECT_TRUE(complete.AtEnd());
    for (size_t length = 0; length < full.size(); ++length) {
        ReadOnlyStream truncated(full.data(), length);
        EXPECT_THROW(ReadEverything(truncated), std::runtime_error) << "prefix of " << length << " bytes";
    }
}

TEST(StreamRoundTrip, StreamsWriteWhatRemainsToBeRead)
{
    WriteOnlyStream source;
    source.Write(int32_t{1});
    source.Write(int32_t{2});
    ReadOnlyStream partlyRead(source.Bytes());
    EXPECT_EQ(Get<int32_t>(partlyRead), 1);
    WriteOnlyStream out;
    out.Write(partlyRead);
    EXPECT_EQ(partlyRead.Remaining(), 4u); // the source is not consumed
    out.Write(out);                        // into itself: the bytes written so far, once
    ReadOnlyStream in(out.Bytes());
    ReadOnlyStream block = in.ReadStream();
    EXPECT_EQ(block.Size(), 4u);
    EXPECT_EQ(Get<int32_t>(block), 2);
    EXPECT_EQ(in.ReadStream().Bytes(), Bytes(out.Bytes().begin(), out.Bytes().begin() + 12));
    EXPECT_TRUE(in.AtEnd());
}

// The layout is fixed for good: saved worlds hold it.
TEST(StreamLayout, LengthPrefixesAreLittleEndianAndRawWritesCarryNoTag)
{
    std::string const text(300, 'q');
    WriteOnlyStream inner;
    inner.Write(uint8_t{0x11});
    inner.Write(uint16_t{0x3322});
    unsigned char const raw[] = {1, 2, 3};
    WriteOnlyStream out;
    out.Write(text);
    out.Write(inner);
    out.Write(raw, sizeof(raw));
    out.Write(uint32_t{0x04030201});
    EXPECT_EQ(out.Bytes(), ByteBuilder()
                               .Chars("\x2c\x01\0\0\0\0\0\0", 8)
                               .Chars(text.data(), text.size())
                               .Chars("\x03\0\0\0\0\0\0\0\x11\x22\x33\1\2\3\1\2\3\4", 18)
                               .bytes);
}

TEST(StreamErrors, ReadsPastTheEndAndCorruptLengthsAreRefused)
{
    ReadOnlyStream in(Bytes{1, 2});
    try {
        Get<uint32_t>(in);
        FAIL() << "no exception";
    } catch (std::runtime_error const& error) {
        EXPECT_NE(std::string(error.what()).find("read past the end"), std::string::npos) << error.what();
    }
    EXPECT_THROW(in.Skip(3), std::runtime_error);
    in.Skip(2);
    EXPECT_TRUE(in.AtEnd());
    // A huge length must fail before allocating; one byte more than remains fails too.
    Bytes const huge = ByteBuilder().Raw(std::numeric_limits<uint64_t>::max()).Chars("abc", 3).bytes;
    ReadOnlyStream hugeText(huge);
    std::string text = "unchanged";
    EXPECT_THROW(hugeText.Read(text), std::runtime_error);
    EXPECT_EQ(text, "unchanged");
    EXPECT_THROW(ReadOnlyStream(huge).ReadStream(), std::runtime_error);
    EXPECT_THROW(ReadOnlyStream(ByteBuilder().Raw(uint64_t{4}).Chars("abc", 3).bytes).ReadStream(),
                 std::runtime_error);
}

TEST(StreamErrors, WrongDirectionThrows)
{
    WriteOnlyStream writeOnly;
    writeOnly.Write(int32_t{1});
    EXPECT_THROW(Get<int32_t>(writeOnly), std::runtime_error);
    Bytes data = writeOnly.Bytes();
    ReadOnlyStream readOnly(data);
    data[0] = 99; // the stream holds its own copy
    EXPECT_THROW(readOnly.Write(int32_t{2}), std::runtime_error);
    EXPECT_EQ(Get<int32_t>(readOnly), 1);
}
