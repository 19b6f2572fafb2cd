// The server side of the sample module, loaded as a SERVER_Mod. When the host
// has loaded a world it fills a new one with the sample entities and lists
// them; it counts the ticks and writes a progress line once per simulated
// second; when the host saves the world it lists what is saved. It also holds
// the player's inventories: it applies the moves the client's windows report,
// by the rules of SampleInventory.hpp, answers with what the inventories now
// hold, and saves them with the world.
#include "Sample.hpp"
#include "SampleInventory.hpp"

#include "game/Game.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "game/modules/GAME_Mod.hpp"
#include "game/modules/Hooks.hpp"
#include "nerox/filesystem/Stream.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
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

// ---------------------------------------------------------------- inventories

namespace inv = sample::inventory;

game::Inventory pack;    // Server thread, once the world is loaded.
game::Inventory storage; // Server thread, once the world is loaded.

std::mutex requestsMutex;           // guards requests and answerDue
std::vector<inv::Request> requests; // from the client, applied at the next tick
bool answerDue = false;             // the client has not seen the inventories yet

std::string InventoryFile() {
    return (std::filesystem::path(ServerSideEntity::GetCheckpointDir()).parent_path() / inv::fileName).string();
}

game::Item MakeItem(char const* type, uint32_t stack) {
    game::Item item;
    item.id = game::UniqueId::Generate("ITEM");
    item.module = nerox::modular::ModuleID(sample::moduleName);
    item.name = type;
    item.stack = stack;
    return item;
}

// What a new world's player carries: ore in two stacks, batteries, a wrench,
// and a storage box with more ore and a battery.
void NewInventories() {
    pack = game::Inventory();
    pack.id = inv::packId;
    pack.size = inv::packSlots;
    pack.items["0"] = MakeItem(inv::ore, 14);
    pack.items["1"] = MakeItem(inv::ore, 9);
    pack.items["2"] = MakeItem(inv::battery, 3);
    pack.items["4"] = MakeItem(inv::wrench, 1);
    storage = game::Inventory();
    storage.id = inv::storageId;
    storage.size = inv::storageSlots;
    storage.items["0"] = MakeItem(inv::ore, 20);
    storage.items["3"] = MakeItem(inv::battery, 1);
}

void LoadInventories() {
    std::ifstream file(InventoryFile(), std::ios::binary);
    if (!file) {
        NewInventories();
        return;
    }
    std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    try {
        nerox::filesystem::ReadOnlyStream in(bytes);
        pack = game::Inventory::Read(in);
        storage = game::Inventory::Read(in);
        std::printf("[sample] inventories loaded: %zu and %zu items\n", pack.items.size(), storage.items.size());
    } catch (std::exception const& failure) {
        std::printf("[sample] %s: %s; the inventories start anew\n", InventoryFile().c_str(), failure.what());
        NewInventories();
    }
}

void SaveInventories() {
    nerox::filesystem::WriteOnlyStream out;
    pack.Write(out);
    storage.Write(out);
    std::ofstream file(InventoryFile(), std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<char const*>(out.Data()), static_cast<std::streamsize>(out.Size()));
    if (!file) std::printf("[sample] could not save %s\n", InventoryFile().c_str());
}

game::Inventory* FindInventory(game::UniqueId const& id) {
    return id == inv::packId ? &pack : id == inv::storageId ? &storage : nullptr;
}

// The slot key of an item in inventory, or "" when it is not there.
std::string FindItem(game::Inventory const& inventory, game::UniqueId const& id) {
    for (auto const& [slot, item] : inventory.items)
        if (item.id == id) return slot;
    return {};
}

// The slot text as a slot of inventory, or "" when it names none.
std::string SlotKey(game::Inventory const& inventory, std::string const& slot) {
    char* end = nullptr;
    unsigned long long const number = std::strtoull(slot.c_str(), &end, 10);
    if (slot.empty() || end == slot.c_str() || number >= inventory.size) return {};
    return std::to_string(number);
}

// Applies one move by the rules; returns why it was refused, or null.
char const* Apply(inv::Request const& request) {
    game::Inventory* from = FindInventory(request.fromInventory);
    game::Inventory* to = FindInventory(request.toInventory);
    if (from == nullptr || to == nullptr) return "unknown inventory";
    std::string const fromSlot = FindItem(*from, request.fromItem);
    if (fromSlot.empty()) return "no such item";
    game::Item& item = from->items.at(fromSlot);
    switch (request.kind) {
    case inv::Request::Kind::Move: {
        std::string const slot = SlotKey(*to, request.slot);
        if (slot.empty()) return "no such slot";
        if (to->items.count(slot) != 0) return "the slot is taken";
        if (!inv::Accepts(to->id, item.name)) return "that slot refuses the item";
        game::Item moved = item;
        from->items.erase(fromSlot);
        to->items[slot] = std::move(moved);
        return nullptr;
    }
    case inv::Request::Kind::Swap: {
        std::string const toSlot = FindItem(*to, request.toItem);
        if (toSlot.empty()) return "no such item";
        game::Item& other = to->items.at(toSlot);
        if (!inv::Accepts(to->id, item.name) || !inv::Accepts(from->id, other.name)) return "a slot refuses the item";
        std::swap(item, other);
        return nullptr;
    }
    case inv::Request::Kind::Stack: {
        std::string const toSlot = FindItem(*to, request.toItem);
        if (toSlot.empty() || &to->items.at(toSlot) == &item) return "no such item";
        game::Item& onto = to->items.at(toSlot);
        if (onto.name != item.name || onto.attributes != item.attributes) return "not the same kind";
        uint32_t const limit = inv::StackLimit(onto.name);
        uint32_t const moved = onto.stack < limit ? std::min(limit - onto.stack, item.stack) : 0;
        if (moved == 0) return "the stack is full";
        onto.stack += moved;
        item.stack -= moved;
        if (item.stack == 0) from->items.erase(fromSlot);
        return nullptr;
    }
    case inv::Request::Kind::Split: {
        std::string const slot = SlotKey(*to, request.slot);
        if (slot.empty()) return "no such slot";
        if (request.count <= 0 || static_cast<uint32_t>(request.count) >= item.stack) return "cannot split that many";
        if (!inv::Accepts(to->id, item.name)) return "that slot refuses the item";
        uint32_t const count = static_cast<uint32_t>(request.count);
        auto const there = to->items.find(slot);
        if (there == to->items.end()) {
            game::Item part = item;
            part.id = game::UniqueId::Generate("ITEM");
            part.stack = count;
            item.stack -= count;
            to->items[slot] = std::move(part);
            return nullptr;
        }
        if (there->second.name != item.name || there->second.stack + count > inv::StackLimit(item.name))
            return "the slot is taken";
        there->second.stack += count;
        item.stack -= count;
        return nullptr;
    }
    case inv::Request::Kind::Drop: return "items cannot be dropped here";
    }
    return "unknown request";
}

// Applies what the client asked since the last tick, then answers with what
// the inventories hold, so that a refused move goes back in the windows.
void ApplyRequests() {
    std::vector<inv::Request> pending;
    bool answer = false;
    {
        std::lock_guard lock(requestsMutex);
        pending.swap(requests);
        answer = answerDue || !pending.empty();
        answerDue = false;
    }
    {
        std::scoped_lock locks(pack.mutex, storage.mutex); // a save may read them meanwhile
        for (inv::Request const& request : pending)
            if (char const* refused = Apply(request)) std::printf("[sample] inventory move refused: %s\n", refused);
    }
    if (!answer) return;
    std::vector<unsigned char> const state = inv::EncodeState({&pack, &storage});
    game::modules::GAME_Mod::ForEachModule([&state](game::modules::GAME_Mod::Ptr& mod) {
        if (mod->Client_Receive) mod->Client_Receive(state.data(), state.size());
    });
}

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
    LoadInventories();
    {
        std::lock_guard lock(requestsMutex);
        requests.clear();
        answerDue = true;
    }
    // Once per run: a new build of this module loaded by --watch-modules sees the world again.
    DropStressPile(static_cast<long long>(Game::GetNumericIMC(sample::stressKey, 0.0)));
    Game::SetIMC(sample::stressKey, 0.0);
    std::fflush(stdout);
}

// The host saves the world: show what goes to disk.
void Server_Serialize() {
    size_t placed = 0;
    ServerSideEntity::ForEach([&placed](ServerSideEntity::Ptr entity) { placed += entity->IsPlaced() ? 1 : 0; });
    std::printf("[sample] saving %zu entities and the inventories\n", placed);
    List();
    SaveInventories();
    std::fflush(stdout);
}

// Before the entity stages of every tick.
// Drops the probes the client asked for since the last tick.
void Server_BeforeUpdate(double deltaTime) {
    simulatedSeconds += deltaTime;
    ApplyRequests();
    static std::string const requestsKey(sample::probeRequestsKey); // made once, not every tick
    double const asked = Game::GetNumericIMC(requestsKey, 0.0);
    for (; probesDropped < asked; probesDropped += 1.0)
        DropProbe(Game::GetNumericIMC(sample::probeXKey, 0.0), Game::GetNumericIMC(sample::probeZKey, 0.0));
}

// A message from the player: a move in the inventory windows, applied at the
// next tick. Any thread.
void Server_Receive(uint64_t, void const* data, size_t size) {
    try {
        inv::Request request = inv::Request::Decode(data, size);
        std::lock_guard lock(requestsMutex);
        requests.push_back(std::move(request));
    } catch (std::exception const& failure) {
        std::printf("[sample] a message that is no inventory move: %s\n", failure.what());
    }
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
static_assert(std::is_same_v<decltype(&Server_Receive), game::modules::ServerReceiveHook>);
