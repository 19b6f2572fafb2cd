#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/Bytes.hpp"
#include "support/Golden.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <iomanip>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "nerox/filesystem/BinaryFileStream.hpp"
#include "nerox/filesystem/Stream.hpp"

using nerox::filesystem::BinaryFileStream;
using nerox::filesystem::ReadOnlyStream;
using nerox::filesystem::Stream;
using nerox::filesystem::WriteOnlyStream;
using testing::HasSubstr;
using testing::ThrowsMessage;
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
