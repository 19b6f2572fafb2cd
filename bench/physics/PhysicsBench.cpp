// Physics step timings, printed as a table:
//  1. 1,000 unit crates dropped in a grid onto flat ground, 300 steps of
//     1/60 s: our step and, when built with it, Bullet's on the same scene,
//     with mean and worst milliseconds per step and their ratio.
//  2. Our step with 1,000 and with 10,000 crates, 9 in 10 of them at rest, and
//     the ratio between the two (10 means the cost grows linearly), with steps
//     run back to back (warm caches) and with the caches evicted before each;
//     and Bullet's on the same scene with its resting bodies asleep. The first
//     step of each, which sets up every body once (our records, Bullet's
//     broadphase), is left out of the times.
//  3. A pile: 1,000 unit crates turned every way (a fixed seed, uniform over
//     rotations), dropped in columns onto flat ground, 900 steps: the mean and
//     worst step while they fall (steps 0 to 300) and the mean while the pile
//     settles (300 to 900), ours and Bullet's, and how each pile ends. Ours
//     runs once as by default, on one thread, and once with two threads.
//
// Run: build/bench/tessara_physics_bench [steps] [1|2|3]   (the second argument runs one scene only)
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "game/Game.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "game/physics/EnvironmentInfo.hpp"
#include "nerox/cpu/Profiler.hpp"
#include "tests/support/PhysicsWorld.hpp"

#if TESSARA_WITH_BULLET
#include <btBulletDynamicsCommon.h>
#endif

namespace {

using game::entity::ServerSideEntity;
using Clock = std::chrono::steady_clock;

constexpr double StepSeconds = 1.0 / 60.0;
/// Substeps of our step, as the server runs it (tessara.ini). The first substep
/// of a step moves free bodies without gravity (the environment supplies it from
/// the first environment pass on), so with 1 substep nothing would fall.
constexpr int Substeps = 4;
constexpr game::entity::EnvironmentId BenchEnvironment = 77;

/// Mean and worst milliseconds per step.
struct Timing {
    double mean = 0.0;
    double worst = 0.0;
};

/// Mean and worst of steps calls of step; before runs ahead of each, untimed.
template <class Step, class Before = void (*)()>
Timing Measure(
    int steps, Step&& step, Before&& before = [] {}) {
    Timing timing;
    double total = 0.0;
    for (int i = 0; i < steps; ++i) {
        before();
        auto const start = Clock::now();
        step();
        double const ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
        total += ms;
        timing.worst = std::max(timing.worst, ms);
    }
    timing.mean = steps > 0 ? total / steps : 0.0;
    return timing;
}

/// crates unit boxes in a grid of side columns, layers high, spaced by gap.
void BuildCrates(testsupport::PhysicsWorld& world, int count, int columns, double gap, double firstHeight) {
    for (int i = 0; i < count; ++i) {
        int const x = i % columns;
        int const z = (i / columns) % columns;
        int const layer = i / (columns * columns);
        world.AddBox(
            {.position = glm::dvec3((x - columns / 2) * gap, firstHeight + layer * gap, (z - columns / 2) * gap)});
    }
}

Timing RunOurs(testsupport::PhysicsWorld& world, int steps) {
    ServerSideEntity::DestroyAll();
    BuildCrates(world, 1000, 10, 1.5, 1.0);
    Timing const timing = Measure(steps, [] { ServerSideEntity::PhysicsUpdate(StepSeconds, Substeps); });
    ServerSideEntity::DestroyAll();
    return timing;
}

#if TESSARA_WITH_BULLET
/// A Bullet world with gravity, flat ground at y = 0 reaching halfSize metres
/// each way, and unit crates of 1 kg added by AddCrate.
class BulletScene {
public:
    explicit BulletScene(float halfSize)
        : _groundShape(btVector3(halfSize, 0.5f, halfSize)),
          _groundMotion(btTransform(btQuaternion::getIdentity(), btVector3(0, -0.5f, 0))),
          _ground(btRigidBody::btRigidBodyConstructionInfo(0, &_groundMotion, &_groundShape)) {
        world.setGravity(btVector3(0, -9.81f, 0));
        world.addRigidBody(&_ground);
        _crateShape.calculateLocalInertia(1, _inertia);
    }
    ~BulletScene() {
        for (btRigidBody* crate : crates) {
            world.removeRigidBody(crate);
            delete crate;
        }
        world.removeRigidBody(&_ground);
    }
    BulletScene(BulletScene const&) = delete;
    BulletScene& operator=(BulletScene const&) = delete;

    btRigidBody& AddCrate(glm::dvec3 const& position, glm::dquat const& orientation = glm::dquat(1.0, 0.0, 0.0, 0.0)) {
        btTransform const place(btQuaternion(btScalar(orientation.x), btScalar(orientation.y), btScalar(orientation.z),
                                             btScalar(orientation.w)),
                                btVector3(btScalar(position.x), btScalar(position.y), btScalar(position.z)));
        _motions.push_back(std::make_unique<btDefaultMotionState>(place));
        crates.push_back(new btRigidBody(
            btRigidBody::btRigidBodyConstructionInfo(1, _motions.back().get(), &_crateShape, _inertia)));
        world.addRigidBody(crates.back());
        return *crates.back();
    }
    void Step() { world.stepSimulation(btScalar(StepSeconds), 0); }

private:
    btDefaultCollisionConfiguration _configuration;
    btCollisionDispatcher _dispatcher{&_configuration};
    btDbvtBroadphase _broadphase;
    btSequentialImpulseConstraintSolver _solver;

public:
    btDiscreteDynamicsWorld world{&_dispatcher, &_broadphase, &_solver, &_configuration};
    std::vector<btRigidBody*> crates;

private:
    btBoxShape _groundShape;
    btDefaultMotionState _groundMotion;
    btRigidBody _ground;
    btBoxShape _crateShape{btVector3(0.5f, 0.5f, 0.5f)};
    btVector3 _inertia;
    std::vector<std::unique_ptr<btDefaultMotionState>> _motions;
};

Timing RunBullet(int steps) {
    BulletScene scene(50.0f);
    for (int i = 0; i < 1000; ++i) {
        int const x = i % 10, z = (i / 10) % 10, layer = i / 100;
        scene.AddCrate(glm::dvec3((x - 5) * 1.5, 1.0 + layer * 1.5, (z - 5) * 1.5));
    }
    return Measure(steps, [&scene] { scene.Step(); });
}
#endif

/// Timings of the pile scene and how the pile ended.
struct PileRun {
    Timing falling;          ///< Steps 0 to 300.
    double settling = 0.0;   ///< Mean ms of steps 300 to 900.
    double meanHeight = 0.0; ///< Of the crates' centres at the end, metres.
    double highest = 0.0;
    int belowGround = 0; ///< Centres under y = 0.
    int notFinite = 0;   ///< Crates with a position that is not a number.
};

constexpr int PileCrates = 1000;
constexpr int PileSteps = 900;
constexpr int PileFalling = 300;

/// Splits step timings into the pile's phases and notes how the pile ends.
template <class Step, class Heights> PileRun RunPile(Step&& step, Heights&& heights) {
    PileRun run;
    double settlingTotal = 0.0;
    double fallingTotal = 0.0;
    for (int i = 0; i < PileSteps; ++i) {
        auto const start = Clock::now();
        step();
        double const ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
        if (i < PileFalling) {
            fallingTotal += ms;
            run.falling.worst = std::max(run.falling.worst, ms);
        } else {
            settlingTotal += ms;
        }
    }
    run.falling.mean = fallingTotal / PileFalling;
    run.settling = settlingTotal / (PileSteps - PileFalling);
    std::vector<double> const ys = heights();
    double sum = 0.0;
    for (double const y : ys) {
        if (!std::isfinite(y)) {
            ++run.notFinite;
            continue;
        }
        sum += y;
        run.highest = std::max(run.highest, y);
        run.belowGround += y < 0.0 ? 1 : 0;
    }
    run.meanHeight = ys.empty() ? 0.0 : sum / static_cast<double>(ys.size());
    return run;
}

PileRun RunOursPile(testsupport::PhysicsWorld& world) {
    ServerSideEntity::DestroyAll();
    std::mt19937_64 random(1000);
    std::vector<ServerSideEntity::Ptr> crates;
    for (int i = 0; i < PileCrates; ++i) {
        // Fixed ids: the registry's order, and so the contact order, follows them.
        testsupport::BoxSpec box{.id = game::entity::Id(0x54544E45ull, 0x0300000000000000ull + i)};
        testsupport::PileCrate(i, random, box.position, box.orientation);
        crates.push_back(world.AddBox(box));
    }
    PileRun const run = RunPile([] { ServerSideEntity::PhysicsUpdate(StepSeconds, Substeps); },
                                [&crates] {
                                    std::vector<double> ys;
                                    for (auto const& crate : crates) ys.push_back(crate->position.y);
                                    return ys;
                                });
    crates.clear();
    ServerSideEntity::DestroyAll();
    return run;
}

#if TESSARA_WITH_BULLET
PileRun RunBulletPile() {
    BulletScene scene(100.0f);
    std::mt19937_64 random(1000);
    for (int i = 0; i < PileCrates; ++i) {
        glm::dvec3 position;
        glm::dquat orientation;
        testsupport::PileCrate(i, random, position, orientation);
        scene.AddCrate(position, orientation);
    }
    return RunPile([&scene] { scene.Step(); },
                   [&scene] {
                       std::vector<double> ys;
                       for (btRigidBody* crate : scene.crates) ys.push_back(crate->getCenterOfMassPosition().y());
                       return ys;
                   });
}
#endif

void PrintPile(char const* engine, PileRun const& run) {
    std::printf("  %-10s %12.3f %12.3f %14.3f   mean %.2f m, highest %.2f m, %d below ground, %d not finite\n", engine,
                run.falling.mean, run.falling.worst, run.settling, run.meanHeight, run.highest, run.belowGround,
                run.notFinite);
}

/// Evicts the caches by writing a buffer larger than the last level, as the
/// rest of a server tick (entity hooks, modules, networking) does between two
/// physics steps.
void EvictCaches() {
    static std::vector<char> buffer(64u << 20);
    static char round = 0;
    ++round;
    for (size_t i = 0; i < buffer.size(); i += 64) buffer[i] = round;
}

/// Measure, with the caches evicted before each step when cold (outside the time).
template <class Step> Timing MeasureSteps(int steps, bool cold, Step&& step) {
    return Measure(steps, std::forward<Step>(step), [cold] {
        if (cold) EvictCaches();
    });
}

/// Our step with count crates on the ground, 9 in 10 at rest; with cold set,
/// every step starts with empty caches.
Timing RunResting(testsupport::PhysicsWorld& world, int count, int steps, bool cold) {
    ServerSideEntity::DestroyAll();
    int const columns = static_cast<int>(std::ceil(std::sqrt(static_cast<double>(count))));
    for (int i = 0; i < count; ++i) {
        int const x = i % columns, z = i / columns;
        bool const awake = i % 10 == 0;
        ServerSideEntity::Ptr crate =
            world.AddBox({.position = glm::dvec3((x - columns / 2) * 2.0, awake ? 1.5 : 0.5, (z - columns / 2) * 2.0)});
        crate->restTime = awake ? 0.0 : 2.0;
    }
    ServerSideEntity::PhysicsUpdate(StepSeconds, Substeps); // the untimed first step
    Timing const timing = MeasureSteps(steps, cold, [] { ServerSideEntity::PhysicsUpdate(StepSeconds, Substeps); });
    ServerSideEntity::DestroyAll();
    return timing;
}

#if TESSARA_WITH_BULLET
/// Bullet on the resting scene: the same crates, the resting ones put to sleep
/// at the start (its deactivation on, as by default), the others awake.
Timing RunBulletResting(int count, int steps, bool cold) {
    BulletScene scene(150.0f);
    int const columns = static_cast<int>(std::ceil(std::sqrt(static_cast<double>(count))));
    for (int i = 0; i < count; ++i) {
        int const x = i % columns, z = i / columns;
        bool const awake = i % 10 == 0;
        btRigidBody& crate =
            scene.AddCrate(glm::dvec3((x - columns / 2) * 2.0, awake ? 1.5 : 0.5, (z - columns / 2) * 2.0));
        if (!awake) crate.setActivationState(ISLAND_SLEEPING);
    }
    scene.Step(); // the untimed first step
    return MeasureSteps(steps, cold, [&scene] { scene.Step(); });
}
#endif

} // namespace

int main(int argc, char** argv) {
    int const steps = argc > 1 ? std::max(1, std::atoi(argv[1])) : 300;
    int const only = argc > 2 ? std::atoi(argv[2]) : 0;
    nerox::cpu::Profiler::enabled = false;
    // Gravity and flat ground at y = 0, no air: the crates meet the ground and each other.
    testsupport::PhysicsWorld world(BenchEnvironment);

    if (only != 2) {
        std::printf("Scene 1: 1,000 unit crates dropped in a 10 x 10 x 10 grid onto flat ground, %d steps of 1/60 s\n"
                    "         (ours with %d substeps per step, Bullet with one)\n",
                    steps, Substeps);
        std::printf("  %-10s %12s %12s\n", "engine", "mean ms", "worst ms");
        Timing const ours = RunOurs(world, steps);
        std::printf("  %-10s %12.3f %12.3f\n", "tessara", ours.mean, ours.worst);
#if TESSARA_WITH_BULLET
        Timing const bullet = RunBullet(steps);
        std::printf("  %-10s %12.3f %12.3f\n", "bullet", bullet.mean, bullet.worst);
        std::printf("  ratio tessara / bullet: mean %.2f, worst %.2f (goal: mean at most 0.5)\n",
                    ours.mean / bullet.mean, ours.worst / bullet.worst);
#else
        std::printf("  (built without Bullet: no peer to compare with)\n");
#endif
    }
    if (only == 1) return 0;
    if (only == 3 || only == 0) {
        std::printf("\nScene 3: a pile of %d unit crates turned every way, dropped in 10 x 10 columns onto flat\n"
                    "         ground, %d steps of 1/60 s: falling (steps 0 to %d), settling (%d to %d)\n",
                    PileCrates, PileSteps, PileFalling, PileFalling, PileSteps);
        std::printf("  %-10s %12s %12s %14s   the pile at the end (crate centres)\n", "engine", "falling mean",
                    "falling worst", "settling mean");
        PileRun const ours = RunOursPile(world);
        PrintPile("tessara", ours);
        // The same with the parts where bodies do not meet on two threads.
        ServerSideEntity::physicsThreads = 2;
        PileRun const twoThreads = RunOursPile(world);
        ServerSideEntity::physicsThreads = 1;
        PrintPile("tessara x2", twoThreads);
        std::printf("  two threads / one: falling mean %.2f, settling mean %.2f\n",
                    twoThreads.falling.mean / ours.falling.mean, twoThreads.settling / ours.settling);
#if TESSARA_WITH_BULLET
        PileRun const bullet = RunBulletPile();
        PrintPile("bullet", bullet);
        std::printf("  ratio tessara / bullet: falling mean %.2f, falling worst %.2f, settling mean %.2f\n"
                    "  (goals: at most 0.5, 1 and 1)\n",
                    ours.falling.mean / bullet.falling.mean, ours.falling.worst / bullet.falling.worst,
                    ours.settling / bullet.settling);
#endif
        if (only == 3) return 0;
    }

    int const restingSteps = std::max(1, steps / 5);
    std::printf("\nScene 2: crates on the ground, 9 in 10 at rest, %d steps after an untimed first one\n"
                "         warm: steps back to back; cold: caches evicted before each step, as the rest\n"
                "         of a server tick does\n",
                restingSteps);
    std::printf("  %-10s %-6s %12s %12s\n", "bodies", "caches", "mean ms", "worst ms");
    for (bool cold : {false, true}) {
        Timing const small = RunResting(world, 1000, restingSteps, cold);
        Timing const large = RunResting(world, 10000, restingSteps, cold);
        char const* const caches = cold ? "cold" : "warm";
        std::printf("  %-10d %-6s %12.3f %12.3f\n", 1000, caches, small.mean, small.worst);
        std::printf("  %-10d %-6s %12.3f %12.3f\n", 10000, caches, large.mean, large.worst);
        std::printf("  ratio 10,000 / 1,000, %s: %.2f (10 is linear growth)\n", caches, large.mean / small.mean);
#if TESSARA_WITH_BULLET
        Timing const bulletSmall = RunBulletResting(1000, restingSteps, cold);
        Timing const bulletLarge = RunBulletResting(10000, restingSteps, cold);
        std::printf("  %-10d %-6s %12.3f %12.3f   Bullet, its resting bodies asleep\n", 1000, caches, bulletSmall.mean,
                    bulletSmall.worst);
        std::printf("  %-10d %-6s %12.3f %12.3f   Bullet\n", 10000, caches, bulletLarge.mean, bulletLarge.worst);
        std::printf("  ratio tessara / bullet, %s: %.2f with 1,000, %.2f with 10,000 (goal: at most 0.5)\n", caches,
                    small.mean / bulletSmall.mean, large.mean / bulletLarge.mean);
#endif
    }
    return 0;
}
