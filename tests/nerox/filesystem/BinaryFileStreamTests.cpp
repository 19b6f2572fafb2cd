#include <gtest/gtest.h>

#include "support/TempDir.hpp"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

#include "nerox/filesystem/BinaryFileStream.hpp"
#include "nerox/filesystem/Stream.hpp"

using nerox::filesystem::BinaryFileStream;
using nerox::filesystem::ReadOnlyStream;
using nerox::filesystem::WriteOnlyStream;

using testsupport::TempDir;

namespace {

std::vector<unsigned char> FileBytes(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

void WriteFileBytes(std::string const& path, std::vector<unsigned char> const& bytes)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<char const*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::vector<unsigned char> Pattern(size_t size)
{
    std::vector<unsigned char> bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<unsigned char>((i * 131 + 7) & 0xFF);
    return bytes;
}

/// Writes the same mixed content into any stream.
void WriteMixed(nerox::filesystem::Stream& stream)
{
    WriteOnlyStream nested;
    nested.Write(int32_t{-3});
    nested.Write(std::string("nested text"));
    stream.Write(uint32_t{0x12345678});
    stream.Write(std::string("hello\0world", 11));
    stream.Write(1.0 / 3.0);
    stream.Write(nested);
    std::vector<unsigned char> const large = Pattern(5000); // larger than the buffer
    stream.Write(large.data(), large.size());
    stream.Write(false);
}

void ReadMixed(nerox::filesystem::Stream& stream)
{
    uint32_t magic = 0;
    stream.Read(magic);
    EXPECT_EQ(magic, 0x12345678u);
    std::string text;
    stream.Read(text);
    EXPECT_EQ(text, std::string("hello\0world", 11));
    double third = 0;
    stream.Read(third);
    EXPECT_EQ(third, 1.0 / 3.0);
    ReadOnlyStream nested = stream.ReadStream();
    int32_t small = 0;
    nested.Read(small);
    EXPECT_EQ(small, -3);
    nested.Read(text);
    EXPECT_EQ(text, "nested text");
    std::vector<unsigned char> large(5000);
    stream.Read(large.data(), large.size());
    EXPECT_EQ(large, Pattern(5000));
    bool flag = true;
    stream.Read(flag);
    EXPECT_FALSE(flag);
}

} // namespace

TEST(BinaryFileStreamTest, DiskRoundTripMatchesMemoryLayout)
{
    TempDir dir;
    std::string const path = dir.File("mixed.bin");
    {
        BinaryFileStream out(path, 1024, BinaryFileStream::WriteTruncate);
        WriteMixed(out);
    } // the destructor flushes
    WriteOnlyStream memory;
    WriteMixed(memory);
    EXPECT_EQ(FileBytes(path), memory.Bytes());

    for (int mode : {BinaryFileStream::ReadOnly, BinaryFileStream::ReadWrite}) {
        BinaryFileStream in(path, 1024, mode);
        ReadMixed(in);
        EXPECT_EQ(in.Remaining(), 0u);
        uint8_t extra = 0;
        EXPECT_THROW(in.Read(extra), std::runtime_error);
    }
}

TEST(BinaryFileStreamTest, BufferSizesDoNotChangeTheContent)
{
    TempDir dir;
    std::vector<unsigned char> const expected = Pattern(3000);
    for (unsigned int bufferSize : {0u, 1u, 7u, 64u, 1024u, 100000u}) {
        std::string const path = dir.File("buffer" + std::to_string(bufferSize) + ".bin");
        {
            BinaryFileStream out(path, bufferSize, BinaryFileStream::ReadWrite);
            // Chunks of growing size cross the buffer edges at many places.
            size_t offset = 0;
            for (size_t chunk = 1; offset < expected.size(); ++chunk) {
                size_t const size = std::min(chunk, expected.size() - offset);
                out.Write(expected.data() + offset, size);
                offset += size;
            }
            out.Flush();
            EXPECT_EQ(FileBytes(path), expected) << "buffer " << bufferSize;
        }
        BinaryFileStream in(path, bufferSize, BinaryFileStream::ReadOnly);
        std::vector<unsigned char> actual(expected.size());
        size_t offset = 0;
        for (size_t chunk = 3; offset < actual.size(); chunk = chunk * 2 % 997 + 1) {
            size_t const size = std::min(chunk, actual.size() - offset);
            in.Read(actual.data() + offset, size);
            offset += size;
        }
        EXPECT_EQ(actual, expected) << "buffer " << bufferSize;
    }
}

TEST(BinaryFileStreamTest, ReadWriteModeReplacesTheContentOnFirstWrite)
{
    TempDir dir;
    std::string const path = dir.File("replace.bin");
    WriteFileBytes(path, Pattern(4000));
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
    std::vector<unsigned char> const expected = {0x0D, 0xF0, 0xFE, 0xCA};
    EXPECT_EQ(FileBytes(path), expected);
}

TEST(BinaryFileStreamTest, ReadWriteModeCreatesAMissingFile)
{
    TempDir dir;
    std::string const path = dir.File("created.bin");
    {
        BinaryFileStream stream(path, 1024, BinaryFileStream::ReadWrite);
        EXPECT_EQ(stream.Remaining(), 0u);
        uint8_t byte = 0;
        EXPECT_THROW(stream.Read(byte), std::runtime_error);
    }
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_EQ(std::filesystem::file_size(path), 0u);
}

TEST(BinaryFileStreamTest, WriteTruncateEmptiesAnExistingFile)
{
    TempDir dir;
    std::string const path = dir.File("truncate.bin");
    WriteFileBytes(path, Pattern(100));
    {
        BinaryFileStream stream(path, 1024, BinaryFileStream::WriteTruncate);
        stream.Write(uint8_t{5});
    }
    EXPECT_EQ(FileBytes(path), std::vector<unsigned char>{5});
}

TEST(BinaryFileStreamTest, OpeningFailuresNameThePath)
{
    TempDir dir;
    std::string const missing = dir.File("no_such_file.bin");
    try {
        BinaryFileStream stream(missing, 1024, BinaryFileStream::ReadOnly);
        FAIL() << "no exception";
    } catch (std::runtime_error const& error) {
        EXPECT_NE(std::string(error.what()).find(missing), std::string::npos) << error.what();
    }
    std::string const inMissingFolder = dir.File("no_folder/file.bin");
    EXPECT_THROW(BinaryFileStream(inMissingFolder, 1024, BinaryFileStream::ReadWrite), std::runtime_error);
    std::filesystem::create_directories(dir.File("folder"));
    EXPECT_THROW(BinaryFileStream(dir.File("folder"), 1024, BinaryFileStream::ReadOnly), std::runtime_error);
    EXPECT_THROW(BinaryFileStream(dir.File("x.bin"), 1024, 42), std::invalid_argument);
}

TEST(BinaryFileStreamTest, WrongDirectionThrows)
{
    TempDir dir;
    std::string const path = dir.File("direction.bin");
    WriteFileBytes(path, Pattern(10));
    {
        BinaryFileStream readOnly(path, 1024, BinaryFileStream::ReadOnly);
        EXPECT_THROW(readOnly.Write(uint8_t{1}), std::runtime_error);
    }
    EXPECT_EQ(FileBytes(path), Pattern(10));
    BinaryFileStream writeOnly(path, 1024, BinaryFileStream::WriteTruncate);
    uint8_t byte = 0;
    EXPECT_THROW(writeOnly.Read(byte), std::runtime_error);
}

TEST(BinaryFileStreamTest, CorruptLengthInFileIsRefused)
{
    TempDir dir;
    std::string const path = dir.File("corrupt.bin");
    std::vector<unsigned char> bytes(8, 0xFF);
    bytes.push_back('z');
    WriteFileBytes(path, bytes);
    BinaryFileStream in(path, 1024, BinaryFileStream::ReadOnly);
    std::string text;
    EXPECT_THROW(in.Read(text), std::runtime_error);
}

TEST(BinaryFileStreamTest, FileStreamNestsIntoAMemoryStream)
{
    TempDir dir;
    std::string const path = dir.File("nest.bin");
    WriteFileBytes(path, Pattern(2500));
    BinaryFileStream file(path, 1024, BinaryFileStream::ReadOnly);
    uint16_t skipped = 0;
    file.Read(skipped);

    WriteOnlyStream out;
    out.Write(file);
    EXPECT_EQ(file.Remaining(), 2498u); // not consumed
    ReadOnlyStream in(out.Bytes());
    ReadOnlyStream block = in.ReadStream();
    std::vector<unsigned char> const all = Pattern(2500);
    EXPECT_EQ(block.Bytes(), std::vector<unsigned char>(all.begin() + 2, all.end()));
}

TEST(BinaryFileStreamTest, TruncatedFileFailsCleanly)
{
    TempDir dir;
    std::string const full = dir.File("full.bin");
    {
        BinaryFileStream out(full, 64, BinaryFileStream::WriteTruncate);
        WriteMixed(out);
    }
    std::vector<unsigned char> const bytes = FileBytes(full);
    std::string const cut = dir.File("cut.bin");
    // A selection of cut points, including every one inside the first 64 bytes.
    for (size_t length = 0; length < bytes.size(); length += (length < 64 ? 1 : 97)) {
        WriteFileBytes(cut, std::vector<unsigned char>(bytes.begin(), bytes.begin() + length));
        BinaryFileStream in(cut, 64, BinaryFileStream::ReadOnly);
        EXPECT_THROW(ReadMixed(in), std::runtime_error) << "cut at " << length;
    }
}
