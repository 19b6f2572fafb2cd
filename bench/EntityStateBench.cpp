// Saving and loading the entity files of a world: 10,000 entities of one
// registered item type, each with a small module blob, written one state file
// each and read back through LoadAllEntities (Interface::Create per file).
#include "game/Game.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "nerox/modular/ModuleID.hpp"

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace {

using game::entity::Id;
using game::entity::ServerSideEntity;
using nerox::filesystem::ReadOnlyStream;
using nerox::filesystem::WriteOnlyStream;
namespace fs = std::filesystem;

constexpr int EntityCount = 10000;
nerox::modular::ModuleID const BenchModule("BENCH_state");

/// The id of entity i. Generated ids may repeat when many are made within one
/// microsecond; these cannot.
Id EntityId(int i) {
    return Id(game::UniqueId(0x0000000054544E45ull, 0x0200000000000000ull + static_cast<uint64_t>(i) + 1)); // "ENTT"
}

/// A module object with 64 bytes of its own state.
class BenchInterface : public ServerSideEntity::Interface {
public:
    void SaveState(WriteOnlyStream& stream) override { stream.Write(state); }
    void LoadState(ReadOnlyStream& stream) override {
        if (stream.Remaining() >= sizeof(state)) stream.Read(state);
    }

    struct {
        double values[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    } state;
};

/// A world in a scratch folder. The working folder moves into it for the
/// benchmark's time, since world paths are relative to it.
class ScratchWorld {
public:
    ScratchWorld() {
        _root = fs::temp_directory_path() / ("tessara_state_bench_" + std::to_string(::getpid()));
        fs::remove_all(_root);
        fs::create_directories(_root / "run");
        _previous = fs::current_path();
        fs::current_path(_root / "run");
        Game::_current_world = "bench";
        auto& row = ServerSideEntity::_registered_interfaces[BenchModule.String()]["crate"];
        row.moduleId = BenchModule;
        row.itemType = "crate";
        row.factory = [] { return std::make_shared<BenchInterface>(); };
    }

    ~ScratchWorld() {
        Forget();
        ServerSideEntity::_registered_interfaces.erase(BenchModule.String());
        Game::_current_world.clear();
        fs::current_path(_previous);
        std::error_code ignored;
        fs::remove_all(_root, ignored);
    }

    /// Empties the registry and leaves the files where they are.
    static void Forget() {
        ServerSideEntity::ForEach([](ServerSideEntity::Ptr entity) { entity->deleteFilesOnDestroy = false; });
        ServerSideEntity::DestroyAll();
        ServerSideEntity::_module_entities.erase(BenchModule.String());
    }

    /// EntityCount entities placed in the world, spread out, half of them at rest.
    static std::vector<ServerSideEntity::Ptr> Populate() {
        std::vector<ServerSideEntity::Ptr> entities;
        entities.reserve(EntityCount);
        for (int i = 0; i < EntityCount; ++i) {
            ServerSideEntity::Ptr entity = ServerSideEntity::Spawn(BenchModule, "crate", EntityId(i));
            entity->position = glm::dvec3(i, 2.0 * i, -0.5 * i);
            entity->isDynamic = true;
            entity->restTime = (i % 2) ? 2.0 : 0.0;
            entities.push_back(std::move(entity));
        }
        return entities;
    }

private:
    fs::path _root;
    fs::path _previous;
};

/// SaveAllEntities of a new world (every state file written beside its place,
/// one sync of the disk, renamed into place), the same again with nothing
/// changed (nothing written) and with every entity moved (every file replaced), then LoadAllEntities of the world (list the
/// folder, read the files, parse them, attach the interfaces). One pass of
/// each costs tens of thousands of file operations, so they share one run: the
/// counters give entities per second of each, the time is the sum.
void BM_EntityStateSaveThenLoad(benchmark::State& state) {
    using Clock = std::chrono::steady_clock;
    ScratchWorld world;
    double saveSeconds = 0.0;
    double loadSeconds = 0.0;
    double unchangedSeconds = 0.0;
    double changedSeconds = 0.0;
    for (auto _ : state) {
        state.PauseTiming();
        std::error_code ignored;
        fs::remove_all(ServerSideEntity::GetCheckpointDir(), ignored);
        std::vector<ServerSideEntity::Ptr> entities = ScratchWorld::Populate();
        state.ResumeTiming();

        Clock::time_point const start = Clock::now();
        if (ServerSideEntity::SaveAllEntities() != EntityCount) state.SkipWithError("not every entity saved");
        Clock::time_point const saved = Clock::now();
        if (ServerSideEntity::SaveAllEntities() != EntityCount) state.SkipWithError("not every entity saved");
        Clock::time_point const savedAgain = Clock::now();
        for (ServerSideEntity::Ptr const& entity : entities) entity->position.x += 1.0;
        Clock::time_point const moved = Clock::now();
        if (ServerSideEntity::SaveAllEntities() != EntityCount) state.SkipWithError("not every entity saved");
        Clock::time_point const resaved = Clock::now();

        state.PauseTiming();
        entities.clear();
        ScratchWorld::Forget();
        state.ResumeTiming();

        Clock::time_point const loadStart = Clock::now();
        ServerSideEntity::LoadAllEntities();
        Clock::time_point const loaded = Clock::now();

        state.PauseTiming();
        if (ServerSideEntity::Count() != EntityCount) state.SkipWithError("not every entity loaded");
        ScratchWorld::Forget();
        state.ResumeTiming();

        saveSeconds += std::chrono::duration<double>(saved - start).count();
        unchangedSeconds += std::chrono::duration<double>(savedAgain - saved).count();
        changedSeconds += std::chrono::duration<double>(resaved - moved).count();
        loadSeconds += std::chrono::duration<double>(loaded - loadStart).count();
    }
    double const entities = static_cast<double>(state.iterations()) * EntityCount;
    state.counters["saved/s"] = benchmark::Counter(saveSeconds > 0.0 ? entities / saveSeconds : 0.0);
    state.counters["loaded/s"] = benchmark::Counter(loadSeconds > 0.0 ? entities / loadSeconds : 0.0);
    state.counters["resaved/s"] = benchmark::Counter(changedSeconds > 0.0 ? entities / changedSeconds : 0.0);
    state.counters["unchanged/s"] = benchmark::Counter(unchangedSeconds > 0.0 ? entities / unchangedSeconds : 0.0);
}
BENCHMARK(BM_EntityStateSaveThenLoad)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

} // namespace
