#include "Trace.hpp"

#include "game/entity/ServerSideEntity.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace host {

using game::entity::ServerSideEntity;

Trace::Trace(std::string const& path, std::vector<std::string> itemTypes)
    : _path(path), _itemTypes(std::move(itemTypes)) {
    _file = std::fopen(path.c_str(), "w");
    if (_file == nullptr) throw std::runtime_error("cannot write the trace file " + path + ": " + std::strerror(errno));
    std::fprintf(_file, "tick,time,entity,item,x,y,z,vx,vy,vz\n");
}

Trace::~Trace() {
    if (_file != nullptr) std::fclose(_file);
}

void Trace::Write(long long tick, double seconds) {
    struct Row {
        std::string id;
        std::string item;
        glm::dvec3 position;
        glm::dvec3 velocity;
    };
    std::vector<Row> rows;
    ServerSideEntity::ForEach([&](ServerSideEntity::Ptr entity) {
        if (!_itemTypes.empty() &&
            std::find(_itemTypes.begin(), _itemTypes.end(), entity->itemType) == _itemTypes.end())
            return;
        // Up through the parents into the environment's frame.
        glm::dvec3 position = entity->position;
        glm::dvec3 velocity = entity->linearVelocity;
        ServerSideEntity::Ptr parent = ServerSideEntity::Get(entity->parentEntity);
        for (int depth = 0; parent && depth < 64; ++depth) {
            position = glm::dvec3(parent->GetTransform() * glm::dvec4(position, 1.0));
            velocity = parent->orientation * velocity + parent->linearVelocity;
            parent = ServerSideEntity::Get(parent->parentEntity);
        }
        rows.push_back({static_cast<std::string>(entity->GetID()), entity->itemType, position, velocity});
    });
    std::sort(rows.begin(), rows.end(), [](Row const& a, Row const& b) { return a.id < b.id; });
    for (Row const& row : rows) {
        std::fprintf(_file, "%lld,%.6f,%s,%s,%.6f,%.6f,%.6f,%.6f,%.6f,%.6f\n", tick, seconds, row.id.c_str(),
                     row.item.c_str(), row.position.x, row.position.y, row.position.z, row.velocity.x, row.velocity.y,
                     row.velocity.z);
        ++_rows;
    }
    if (std::ferror(_file)) throw std::runtime_error("could not write the trace file " + _path);
}

} // namespace host
