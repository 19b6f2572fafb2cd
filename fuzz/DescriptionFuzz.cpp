// Fuzzes the entity description reader: arbitrary bytes as a description file,
// parsed, then every node's transforms walked up their parent chains.
#include "FuzzSupport.hpp"
#include "game/entity/EntityConfig.hpp"

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <streambuf>
#include <string>

using fuzzsupport::Check;
using fuzzsupport::ScratchFile;
using fuzzsupport::SilenceErrors;
using fuzzsupport::WriteBytes;

namespace {

/// Keeps the walked transforms alive so that none is optimised away.
volatile double consumed = 0.0;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    using game::entity::EntityConfig;
    SilenceErrors();
    static std::string const path = ScratchFile("description");
    WriteBytes(path, data, size);
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
