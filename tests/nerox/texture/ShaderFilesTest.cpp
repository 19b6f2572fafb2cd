// Compiled shaders: every source in nerox/shaders has its SPIR-V in the run directory.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr uint32_t kSpirvMagic = 0x07230203;
constexpr uint32_t kOpEntryPoint = 15;
constexpr uint32_t kModelVertex = 0;
constexpr uint32_t kModelFragment = 4;

// The game's run directory sits two levels above the tests' one: build/run.
fs::path const kShaderOutputDir = fs::path(TESSARA_TEST_RUN_DIR) / ".." / ".." / "run" / "nerox" / "shaders";
fs::path const kShaderSourceDir = fs::path(TESSARA_TEST_SOURCE_DIR) / ".." / "nerox" / "shaders";

// The file's 32-bit words; fails the test when it is missing or not whole words.
std::vector<uint32_t> ReadWords(fs::path const& path) {
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in.good()) << "missing " << path;
    std::vector<char> const bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(bytes.size() % 4, 0u) << path;
    std::vector<uint32_t> words(bytes.size() / 4);
    std::memcpy(words.data(), bytes.data(), words.size() * 4);
    return words;
}

// The execution models of the module's OpEntryPoint instructions named "main".
std::vector<uint32_t> MainEntryPoints(std::vector<uint32_t> const& words) {
    std::vector<uint32_t> models;
    size_t at = 5; // after the header: magic, version, generator, bound, schema
    while (at < words.size()) {
        uint32_t const count = words[at] >> 16;
        uint32_t const opcode = words[at] & 0xffff;
        if (count == 0 || at + count > words.size()) {
            ADD_FAILURE() << "instruction at word " << at << " runs past the module";
            break;
        }
        // OpEntryPoint: model, function id, then the name as a nul-ended string.
        if (opcode == kOpEntryPoint && count >= 4 && std::strncmp(reinterpret_cast<char const*>(&words[at + 3]), "main", 5) == 0)
            models.push_back(words[at + 1]);
        at += count;
    }
    return models;
}

// Whether path is a stage source that the build compiles (not an included file).
bool IsShaderStage(fs::path const& path) {
    static char const* const kStages[] = {".vert", ".frag", ".comp", ".rgen", ".rmiss",
                                          ".rchit", ".rahit", ".rint", ".rcall"};
    for (char const* stage : kStages)
        if (path.extension() == stage)
            return true;
    return false;
}

void ExpectShader(std::string const& name, uint32_t model) {
    std::vector<uint32_t> const words = ReadWords(kShaderOutputDir / name);
    ASSERT_GE(words.size(), 5u) << name << " is shorter than a SPIR-V header";
    EXPECT_EQ(words[0], kSpirvMagic) << name;
    EXPECT_GE(words[1], 0x00010600u) << name << ": Vulkan 1.3 modules are SPIR-V 1.6";
    EXPECT_EQ(MainEntryPoints(words), std::vector<uint32_t>{model}) << name;
}

TEST(CompiledShaders, FullscreenTriangleIsAVertexShader) { ExpectShader("fullscreen.vert.spv", kModelVertex); }

TEST(CompiledShaders, BlitIsAFragmentShader) { ExpectShader("blit.frag.spv", kModelFragment); }

TEST(CompiledShaders, EverySourceHasItsSpirv) {
    ASSERT_TRUE(fs::is_directory(kShaderSourceDir)) << kShaderSourceDir;
    int sources = 0;
    for (fs::directory_entry const& entry : fs::recursive_directory_iterator(kShaderSourceDir)) {
        if (!entry.is_regular_file() || !IsShaderStage(entry.path()))
            continue;
        ++sources;
        fs::path const relative = fs::relative(entry.path(), kShaderSourceDir);
        fs::path const compiled = kShaderOutputDir / (relative.string() + ".spv");
        ASSERT_TRUE(fs::is_regular_file(compiled)) << "no " << compiled << " for " << relative;
        std::vector<uint32_t> const words = ReadWords(compiled);
        ASSERT_FALSE(words.empty()) << compiled;
        EXPECT_EQ(words[0], kSpirvMagic) << compiled;
    }
    EXPECT_GE(sources, 2);
}

} // namespace
