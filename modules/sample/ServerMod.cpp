// The server side of the sample module, loaded as a SERVER_Mod. When the host
// has loaded a world it fills a new one with the sample entities and lists
// them; it counts the ticks and writes a progress line once per simulated
// second; when the host saves the world it lists what is saved.
#include "Sample.hpp"

#include "game/Game.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "game/modules/Hooks.hpp"

#include <algorithm>
#include <cmath>
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
double probesDropped = 0.0;  // Probes dropped at the client's request so far.

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

// count crates dropped in a pile beside the sample set: square layers a metre
// apart from 2 m up, each crate turned a little, all awake. They are not placed
// in the world, so the save leaves them out.
void DropStressPile(long long count) {
    if (count <= 0) return;
    if (ServerSideEntity::FindModuleIDFromItemType(sample::crateType) != nerox::modular::ModuleID(sample::moduleName))
        return;
    game::entity::EnvironmentId const environment = ChooseEnvironment();
    long long const side = std::max(1LL, static_cast<long long>(std::ceil(std::cbrt(static_cast<double>(count)))));
    for (long long i = 0; i < count; ++i) {
        long long const layer = i / (side * side), row = (i / side) % side, column = i % side;
        ServerSideEntity::Ptr const crate = ServerSideEntity::Create(nerox::modular::ModuleID(sample::moduleName),
                                                                     sample::crateType, game::entity::Id{});
        nerox::filesystem::ReadOnlyStream noState;
        crate->Attach(noState);
        crate->deleteFilesOnDestroy = false;
        crate->position = sample::stressPileCorner + glm::dvec3(1.0 * column, 2.0 + 1.0 * layer, 1.0 * row);
        crate->orientation = glm::angleAxis(glm::radians(7.0 * static_cast<double>(i % 13)), glm::dvec3(0.0, 1.0, 0.0));
        crate->environmentId = environment;
    }
    std::printf("[sample] load test: %lld crates dropped in a pile at (%.0f, %.0f), %lld a side (not saved)\n", count,
                sample::stressPileCorner.x, sample::stressPileCorner.z, side);
}

// A probe high above (x, z), falling fast, as the client's P key asks. Like a
// load test's crates it is not placed in the world, so the save leaves it out.
void DropProbe(double x, double z) {
    if (ServerSideEntity::FindModuleIDFromItemType(sample::probeType) != nerox::modular::ModuleID(sample::moduleName))
        return;
    ServerSideEntity::Ptr const probe =
        ServerSideEntity::Create(nerox::modular::ModuleID(sample::moduleName), sample::probeType, game::entity::Id{});
    nerox::filesystem::ReadOnlyStream noState;
    probe->Attach(noState);
    probe->deleteFilesOnDestroy = false;
    probe->position = glm::dvec3(x, sample::probeAltitude, z);
    probe->linearVelocity = glm::dvec3(0.0, -sample::probeSpeed, 0.0);
    probe->orientation = glm::dquat(1.0, 0.0, 0.0, 0.0); // shield first
    probe->environmentId = ChooseEnvironment();
    std::printf("[sample] probe dropped from %.0f m above (%.0f, %.0f) at %.0f m/s\n", sample::probeAltitude, x, z,
                sample::probeSpeed);
    std::fflush(stdout);
}

// One line per entity placed in the world, by id: where it stands, and the rover's wheels.
void List() {
    std::vector<ServerSideEntity::Ptr> entities;
    ServerSideEntity::ForEach([&entities](ServerSideEntity::Ptr entity) {
        if (entity->IsPlaced()) entities.push_back(std::move(entity)); // a load test's pile is left out
    });
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
// sample set, three crates and a rover. A load test (tessara --stress N) adds
// N crates in a pile beside it, which are not saved.
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
    DropStressPile(static_cast<long long>(Game::GetNumericIMC(sample::stressKey, 0.0)));
    std::fflush(stdout);
}

// The host saves the world: show what goes to disk.
void Server_Serialize() {
    size_t placed = 0;
    ServerSideEntity::ForEach([&placed](ServerSideEntity::Ptr entity) { placed += entity->IsPlaced() ? 1 : 0; });
    std::printf("[sample] saving %zu entities\n", placed);
    List();
    std::fflush(stdout);
}

// Before the entity stages of every tick.
// Drops the probes the client asked for since the last tick.
void Server_BeforeUpdate(double deltaTime) {
    simulatedSeconds += deltaTime;
    static std::string const requestsKey(sample::probeRequestsKey); // made once, not every tick
    double const asked = Game::GetNumericIMC(requestsKey, 0.0);
    for (; probesDropped < asked; probesDropped += 1.0)
        DropProbe(Game::GetNumericIMC(sample::probeXKey, 0.0), Game::GetNumericIMC(sample::probeZKey, 0.0));
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
