// The server side of the sample module, loaded as a SERVER_Mod. When the host
// has loaded a world it fills a new one with the sample entities and lists
// them; it counts the ticks and writes a progress line once per simulated
// second; when the host saves the world it lists what is saved.
#include "Sample.hpp"

#include "game/Game.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "game/modules/Hooks.hpp"

#include <algorithm>
#include <cstdio>
#include <string>
#include <type_traits>
#include <vector>

#include <glm/gtc/quaternion.hpp>

namespace {

using game::entity::ServerSideEntity;

unsigned long ticks = 0;     // Server ticks seen.
double simulatedSeconds = 0; // Sum of the ticks' delta times.
double nextReport = 1.0;     // Simulated time of the next progress line.

// Makes an entity of itemType at position (metres, game axes: y up), turned by
// yawDegrees about the vertical axis. The entity counts as placed in the world,
// so the host saves it when the world unloads.
void Place(char const* itemType, glm::dvec3 const& position, double yawDegrees,
           game::entity::EnvironmentId environment) {
    ServerSideEntity::Ptr const entity =
        ServerSideEntity::Spawn(nerox::modular::ModuleID(sample::moduleName), itemType);
    entity->position = position;
    entity->orientation = glm::angleAxis(glm::radians(yawDegrees), glm::dvec3(0.0, 1.0, 0.0));
    entity->environmentId = environment;
}

// The environment the sample set lives in: the lowest registered one (the
// sample planet's, when it is loaded), or none, in which case nothing moves.
game::entity::EnvironmentId ChooseEnvironment() {
    game::entity::EnvironmentId chosen = 0;
    for (auto const& [id, function] : Game::_environmentFunctions) {
        if (function && (chosen == 0 || id < chosen)) chosen = id;
    }
    return chosen;
}

// One line per entity of the world, by id: where it stands, and the rover's wheels.
void List() {
    std::vector<ServerSideEntity::Ptr> entities;
    ServerSideEntity::ForEach([&entities](ServerSideEntity::Ptr entity) { entities.push_back(std::move(entity)); });
    std::sort(entities.begin(), entities.end(), [](auto const& a, auto const& b) {
        return static_cast<std::string>(a->GetID()) < static_cast<std::string>(b->GetID());
    });
    for (auto const& entity : entities) {
        glm::dvec3 const& p = entity->position;
        glm::dquat const& q = entity->orientation;
        std::printf("[sample]   %s %s at (%.6f, %.6f, %.6f) orientation (%.6f, %.6f, %.6f, %.6f)\n",
                    static_cast<std::string>(entity->GetID()).c_str(), entity->itemType.c_str(), p.x, p.y, p.z, q.w,
                    q.x, q.y, q.z);
        auto const wheel = entity->jointStates.find(sample::roverWheels[0]);
        if (entity->itemType == sample::roverType && wheel != entity->jointStates.end())
            std::printf("[sample]   %s wheels at %.1f degrees\n", entity->itemType.c_str(), wheel->second.rotation.y);
    }
}

} // namespace

extern "C" {

void ModuleLoad() {
    std::printf("[sample] server module loaded\n");
}

// The host has loaded the world's saved entities: a world without any gets the
// sample set, three crates and a rover.
void Server_Load(char const* worldName) {
    size_t const found = ServerSideEntity::Count();
    if (found != 0) {
        std::printf("[sample] world has %zu entities\n", found);
    } else if (ServerSideEntity::FindModuleIDFromItemType(sample::crateType) !=
               nerox::modular::ModuleID(sample::moduleName)) {
        std::printf("[sample] new world '%s', but the content module %s is not loaded: nothing created\n", worldName,
                    sample::moduleName);
    } else {
        game::entity::EnvironmentId const environment = ChooseEnvironment();
        for (sample::Placement const& placement : sample::newWorld)
            Place(placement.itemType, placement.position, placement.yawDegrees, environment);
        std::printf("[sample] new world: created %zu entities (environment %llu%s)\n", ServerSideEntity::Count(),
                    static_cast<unsigned long long>(environment),
                    environment == 0 ? ": none registered, so nothing moves" : "");
    }
    List();
    std::fflush(stdout);
}

// The host saves the world: show what goes to disk.
void Server_Serialize() {
    std::printf("[sample] saving %zu entities\n", ServerSideEntity::Count());
    List();
    std::fflush(stdout);
}

// Before the entity stages of every tick.
void Server_BeforeUpdate(double deltaTime) {
    simulatedSeconds += deltaTime;
}

// After the entity stages of every tick.
void Server_GameUpdate(double) {
    ++ticks;
    if (simulatedSeconds + 1e-9 >= nextReport) {
        std::printf("[sample] %lu ticks, %.1f s simulated\n", ticks, simulatedSeconds);
        std::fflush(stdout);
        nextReport += 1.0;
    }
}

} // extern "C"

static_assert(std::is_same_v<decltype(&Server_Load), game::modules::ServerLoadHook>);
static_assert(std::is_same_v<decltype(&Server_Serialize), game::modules::VoidHook>);
