#include <gtest/gtest.h>

#include "support/Bytes.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>

#include "nerox/filesystem/BinaryFileStream.hpp"
#include "nerox/filesystem/Stream.hpp"

using nerox::filesystem::BinaryFileStream;
using nerox::filesystem::ReadOnlyStream;
using nerox::filesystem::Stream;
using nerox::filesystem::WriteOnlyStream;
using testsupport::ByteBuilder;
using testsupport::Bytes;
using testsupport::ReadBytes;
using testsupport::TempDir;
using testsupport::WriteBytes;

namespace {

struct Packed { // no padding: its bytes are all set
    int32_t a;
    float c;
    double b;
};

template <class T>
T Get(Stream& stream)
{
    T value{};
    stream.Read(value);
    return value;
}

Bytes Pattern(size_t size)
{
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<unsigned char>((i * 131 + 7) & 0xFF);
    return bytes;
}

std::string const BinaryText("a\0b\0\0c\xff\x01", 8);

/// One of everything, nested two deep, with a raw block larger than the file
/// buffers; read back by ReadEverything.
void WriteEverything(Stream& outer)
{
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
    outer.Write(Pattern(5000).data(), 5000);
    outer.Write(int8_t{-5});
}

void ReadEverything(Stream& stream)
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
    EXPECT_EQ(packed.c, 9.5f);
    Bytes large(5000);
    stream.Read(large.data(), large.size());
    EXPECT_EQ(large, Pattern(5000));
    EXPECT_EQ(Get<int8_t>(stream), -5);
}

} // namespace

TEST(StreamRoundTrip, EveryKindNestedTwoDeepAndEveryShorterPrefixFailsCleanly)
{
    WriteOnlyStream out(64);
    WriteEverything(out);
    Bytes const& full = out.Bytes();
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

TEST(BinaryFileStreamTest, DiskRoundTripMatchesMemoryLayoutAndCutFilesFailCleanly)
{
    TempDir dir;
    std::string const path = dir.File("mixed.bin");
    {
        BinaryFileStream out(path, 64, BinaryFileStream::WriteTruncate);
        WriteEverything(out);
    } // the destructor flushes
    WriteOnlyStream memory;
    WriteEverything(memory);
    Bytes const bytes = ReadBytes(path);
    EXPECT_EQ(bytes, memory.Bytes());
    for (int mode : {BinaryFileStream::ReadOnly, BinaryFileStream::ReadWrite}) {
        BinaryFileStream in(path, 64, mode);
        ReadEverything(in);
        EXPECT_EQ(in.Remaining(), 0u);
        uint8_t extra = 0;
        EXPECT_THROW(in.Read(extra), std::runtime_error);
    }
    // A selection of cut points, including every one inside the first 64 bytes.
    for (size_t length = 0; length < bytes.size(); length += (length < 64 ? 1 : 97)) {
        WriteBytes(path, Bytes(bytes.begin(), bytes.begin() + length));
        BinaryFileStream in(path, 64, BinaryFileStream::ReadOnly);
        EXPECT_THROW(ReadEverything(in), std::runtime_error) << "cut at " << length;
    }
}

TEST(BinaryFileStreamTest, BufferSizesDoNotChangeTheContent)
{
    TempDir dir;
    Bytes const expected = Pattern(3000);
    for (unsigned int bufferSize : {0u, 1u, 7u, 64u, 1024u, 100000u}) {
        std::string const path = dir.File("buffer" + std::to_string(bufferSize) + ".bin");
        {
            BinaryFileStream out(path, bufferSize, BinaryFileStream::ReadWrite);
            // Chunks of growing size cross the buffer edges at many places.
            for (size_t offset = 0, chunk = 1; offset < expected.size(); offset += chunk, ++chunk)
                out.Write(expected.data() + offset, std::min(chunk, expected.size() - offset));
            out.Flush();
            EXPECT_EQ(ReadBytes(path), expected) << "buffer " << bufferSize;
        }
        BinaryFileStream in(path, bufferSize, BinaryFileStream::ReadOnly);
        Bytes actual(expected.size());
        for (size_t offset = 0, chunk = 3; offset < actual.size(); offset += chunk, chunk = chunk * 2 % 997 + 1)
            in.Read(actual.data() + offset, std::min(chunk, actual.size() - offset));
        EXPECT_EQ(actual, expected) << "buffer " << bufferSize;
    }
}

TEST(BinaryFileStreamTest, ReadWriteModeReplacesTheContentOnFirstWrite)
{
    TempDir dir;
    std::string const path = dir.File("replace.bin");
    WriteBytes(path, Pattern(4000));
    {
        BinaryFileStream stream(path, 1024, BinaryFileStream::ReadWrite);
        EXPECT_EQ(stream.Remaining(), 4000u);
        uint8_t first = 0;
        stream.Read(first);
        EXPECT_EQ(first, Pattern(1)[0]);
        stream.Write(uint32_t{0xCAFEF00D});
        EXPECT_EQ(stream.Size(), 4u);
        // Reading starts over on the new content, pending bytes included.
        uint32_t back = 0;
        stream.Read(back);
        EXPECT_EQ(back, 0xCAFEF00Du);
    }
    EXPECT_EQ(ReadBytes(path), (Bytes{0x0D, 0xF0, 0xFE, 0xCA}));

    std::string const created = dir.File("created.bin");
    {
        BinaryFileStream stream(created, 1024, BinaryFileStream::ReadWrite);
        EXPECT_EQ(stream.Remaining(), 0u);
    }
    EXPECT_TRUE(std::filesystem::exists(created));
    EXPECT_EQ(std::filesystem::file_size(created), 0u);
}

TEST(BinaryFileStreamTest, OpeningFailuresAndWrongDirections)
{
    TempDir dir;
    std::string const missing = dir.File("no_such_file.bin");
    try {
        BinaryFileStream stream(missing, 1024, BinaryFileStream::ReadOnly);
        FAIL() << "no exception";
    } catch (std::runtime_error const& error) {
        EXPECT_NE(std::string(error.what()).find(missing), std::string::npos) << error.what();
    }
    EXPECT_THROW(BinaryFileStream(dir.File("no_folder/file.bin"), 1024, BinaryFileStream::ReadWrite),
                 std::runtime_error);
    std::filesystem::create_directories(dir.File("folder"));
    EXPECT_THROW(BinaryFileStream(dir.File("folder"), 1024, BinaryFileStream::ReadOnly), std::runtime_error);
    EXPECT_THROW(BinaryFileStream(dir.File("x.bin"), 1024, 42), std::invalid_argument);

    std::string const path = dir.File("direction.bin");
    WriteBytes(path, Pattern(10));
    {
        BinaryFileStream readOnly(path, 1024, BinaryFileStream::ReadOnly);
        EXPECT_THROW(readOnly.Write(uint8_t{1}), std::runtime_error);
    }
    EXPECT_EQ(ReadBytes(path), Pattern(10));
    BinaryFileStream writeOnly(path, 1024, BinaryFileStream::WriteTruncate);
    EXPECT_EQ(std::filesystem::file_size(path), 0u) << "opening for writing empties the file";
    uint8_t byte = 0;
    EXPECT_THROW(writeOnly.Read(byte), std::runtime_error);
    EXPECT_THROW(WriteOnlyStream().Write(writeOnly), std::runtime_error);
}

TEST(BinaryFileStreamTest, FileStreamNestsIntoAMemoryStream)
{
    TempDir dir;
    std::string const path = dir.File("nest.bin");
    WriteBytes(path, Pattern(2500));
    BinaryFileStream file(path, 1024, BinaryFileStream::ReadOnly);
    uint16_t skipped = 0;
    file.Read(skipped);
    WriteOnlyStream out;
    out.Write(file);
    EXPECT_EQ(file.Remaining(), 2498u); // not consumed
    ReadOnlyStream in(out.Bytes());
    Bytes const all = Pattern(2500);
    EXPECT_EQ(in.ReadStream().Bytes(), Bytes(all.begin() + 2, all.end()));
}
