// Fuzzes the entity description reader: arbitrary bytes as a description file,
// parsed, then every node's transforms walked up their parent chains.
#include "game/entity/EntityConfig.hpp"

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <streambuf>
#include <string>

namespace {

/// A stream buffer that drops everything written to it.
class NullBuffer : public std::streambuf {
protected:
    int overflow(int c) override { return traits_type::not_eof(c); }
    std::streamsize xsputn(char const*, std::streamsize count) override { return count; }
};

/// Sends the reader's warnings about over-long collider lists nowhere, once for the whole run.
void SilenceErrors() {
    static NullBuffer sink;
    static std::streambuf* const previous = std::cerr.rdbuf(&sink);
    (void)previous;
}

/// Stops the run with a crash the fuzzer records when a result is inconsistent.
void Check(bool condition) {
    if (!condition) __builtin_trap();
}

std::string const& ScratchFile() {
    static std::string const path =
        (std::filesystem::temp_directory_path() / ("tessara_description_fuzz_" + std::to_string(::getpid()) + ".txt"))
            .string();
    return path;
}

/// Keeps the walked transforms alive so that none is optimised away.
volatile double consumed = 0.0;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    using game::entity::EntityConfig;
    SilenceErrors();
    std::string const& path = ScratchFile();
    {
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        file.write(reinterpret_cast<char const*>(data), static_cast<std::streamsize>(size));
    }
    {
        EntityConfig config(path);
        config.Load();
        for (auto const& [name, collider] : config.colliders) {
            Check(collider.nb_vertices <= EntityConfig::MaxColliderVertices);
            Check(collider.nb_faces <= EntityConfig::MaxColliderFaces);
            Check(collider.nb_triangles <= EntityConfig::MaxColliderTriangles);
        }
        for (auto const& [name, node] : config.nodes) {
            consumed = consumed + config.GetAbsoluteTransform(name)[3][0];
            std::string joint;
            consumed = consumed + config.GetTransformRelativeToFirstParentJointOrRoot(name, joint)[3][0];
            Check(joint.empty() || config.nodes.count(joint) == 1);
        }
        consumed = consumed + config.GetAbsoluteTransform("")[3][3];
    }
    std::filesystem::remove(path);
    return 0;
}
