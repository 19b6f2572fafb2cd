#include <gtest/gtest.h>

#include "support/Bytes.hpp"
#include "support/TempDir.hpp"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "nerox/filesystem/BinaryFileStream.hpp"
#include "nerox/filesystem/Stream.hpp"

using nerox::filesystem::BinaryFileStream;
using nerox::filesystem::ReadOnlyStream;
using nerox::filesystem::Stream;
using nerox::filesystem::WriteOnlyStream;
using testsupport::Bytes;
using testsupport::ReadBytes;
using testsupport::TempDir;
using testsupport::WriteBytes;

namespace {

Bytes Pattern(size_t size)
{
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<unsigned char>((i * 131 + 7) & 0xFF);
    return bytes;
}

/// Writes the same mixed content into any stream, with a raw block larger than the buffers.
void WriteMixed(Stream& stream)
{
    stream.Write(uint32_t{0x12345678});
    stream.Write(std::string("hello\0world", 11));
    stream.Write(Pattern(5000).data(), 5000);
    stream.Write(false);
}

void ReadMixed(Stream& stream)
{
    uint32_t magic = 0;
    std::string text;
    Bytes large(5000);
    bool flag = true;
    stream.Read(magic);
    stream.Read(text);
    stream.Read(large.data(), large.size());
    stream.Read(flag);
    EXPECT_EQ(magic, 0x12345678u);
    EXPECT_EQ(text, std::string("hello\0world", 11));
    EXPECT_EQ(large, Pattern(5000));
    EXPECT_FALSE(flag);
}

} // namespace

TEST(BinaryFileStreamTest, DiskRoundTripMatchesMemoryLayoutAndCutFilesFailCleanly)
{
    TempDir dir;
    std::string const path = dir.File("mixed.bin");
    {
        BinaryFileStream out(path, 64, BinaryFileStream::WriteTruncate);
        WriteMixed(out);
    } // the destructor flushes
    WriteOnlyStream memory;
    WriteMixed(memory);
    Bytes const bytes = ReadBytes(path);
    EXPECT_EQ(bytes, memory.Bytes());
    for (int mode : {BinaryFileStream::ReadOnly, BinaryFileStream::ReadWrite}) {
        BinaryFileStream in(path, 64, mode);
        ReadMixed(in);
        EXPECT_EQ(in.Remaining(), 0u);
        uint8_t extra = 0;
        EXPECT_THROW(in.Read(extra), std::runtime_error);
    }
    // A selection of cut points, including every one inside the first 64 bytes.
    for (size_t length = 0; length < bytes.size(); length += (length < 64 ? 1 : 97)) {
        WriteBytes(path, Bytes(bytes.begin(), bytes.begin() + length));
        BinaryFileStream in(path, 64, BinaryFileStream::ReadOnly);
        EXPECT_THROW(ReadMixed(in), std::runtime_error) << "cut at " << length;
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
