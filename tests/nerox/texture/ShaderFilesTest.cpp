// Compiled shaders: every source in nerox/shaders has its SPIR-V in the run
// directory, with one entry point "main" of the source's stage.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "support/TempDir.hpp"

namespace {

namespace fs = std::filesystem;

// The game's run directory sits two levels above the tests' one: build/run.
fs::path const kShaderOutputDir = fs::path(TESSARA_TEST_RUN_DIR) / ".." / ".." / "run" / "nerox" / "shaders";
fs::path const kShaderSourceDir = fs::path(TESSARA_TEST_SOURCE_DIR) / ".." / "nerox" / "shaders";

// The execution models of the module's OpEntryPoint instructions named "main".
std::vector<uint32_t> MainEntryPoints(std::vector<uint32_t> const& words)
{
    std::vector<uint32_t> models;
    for (size_t at = 5, count = 0; at < words.size(); at += count) { // after the five header words
        count = words[at] >> 16;
        if (count == 0 || at + count > words.size()) {
            ADD_FAILURE() << "instruction at word " << at << " runs past the module";
            break;
        }
        // OpEntryPoint (15): model, function id, then the name as a nul-ended string.
        if ((words[at] & 0xffff) == 15 && count >= 4 &&
            std::strncmp(reinterpret_cast<char const*>(&words[at + 3]), "main", 5) == 0)
            models.push_back(words[at + 1]);
    }
    return models;
}

TEST(CompiledShaders, EverySourceHasItsSpirvWithItsStagesEntryPoint) {
    // Execution models of the stages the build compiles (other files are included ones).
    std::map<std::string, uint32_t> const stages = {{".vert", 0}, {".frag", 4}, {".comp", 5}, {".rgen", 5313},
                                                   {".rint", 5314}, {".rahit", 5315}, {".rchit", 5316},
                                                   {".rmiss", 5317}, {".rcall", 5318}};
    ASSERT_TRUE(fs::is_directory(kShaderSourceDir)) << kShaderSourceDir;
    std::vector<std::string> compiled;
    for (fs::directory_entry const& entry : fs::recursive_directory_iterator(kShaderSourceDir)) {
        auto const stage = stages.find(entry.path().extension().string());
        if (!entry.is_regular_file() || stage == stages.end()) continue;
        std::string const name = fs::relative(entry.path(), kShaderSourceDir).string() + ".spv";
        std::string const bytes = testsupport::ReadText((kShaderOutputDir / name).string());
        ASSERT_TRUE(bytes.size() >= 20 && bytes.size() % 4 == 0) << "no whole module " << kShaderOutputDir / name;
        std::vector<uint32_t> words(bytes.size() / 4);
        std::memcpy(words.data(), bytes.data(), bytes.size());
        EXPECT_EQ(words[0], 0x07230203u) << name;
        EXPECT_GE(words[1], 0x00010600u) << name << ": Vulkan 1.3 modules are SPIR-V 1.6";
        EXPECT_EQ(MainEntryPoints(words), std::vector<uint32_t>{stage->second}) << name;
        compiled.push_back(name);
    }
    for (char const* needed : {"fullscreen.vert.spv", "blit.frag.spv"})
        EXPECT_NE(std::find(compiled.begin(), compiled.end(), needed), compiled.end()) << needed;
}

} // namespace
