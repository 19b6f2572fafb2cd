// Physics step timings, printed as a table:
//  1. 1,000 unit crates dropped in a grid onto flat ground, 300 steps of
//     1/60 s: our step and, when built with it, Bullet's on the same scene,
//     with mean and worst milliseconds per step and their ratio.
//  2. Our step with 1,000 and with 10,000 crates, 9 in 10 of them at rest, and
//     the ratio between the two (10 means the cost grows linearly), with steps
//     run back to back (warm caches) and with the caches evicted before each.
//
// Run: build/bench/tessara_physics_bench [steps] [1|2]   (the second argument runs one scene only)
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
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

template <class Step> Timing Measure(int steps, Step&& step) {
    Timing timing;
    double total = 0.0;
    for (int i = 0; i < steps; ++i) {
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
Timing RunBullet(int steps) {
    btDefaultCollisionConfiguration configuration;
    btCollisionDispatcher dispatcher(&configuration);
    btDbvtBroadphase broadphase;
    btSequentialImpulseConstraintSolver solver;
    btDiscreteDynamicsWorld world(&dispatcher, &broadphase, &solver, &configuration);
    world.setGravity(btVector3(0, -9.81f, 0));

    btBoxShape groundShape(btVector3(50, 0.5f, 50));
    btDefaultMotionState groundMotion(btTransform(btQuaternion::getIdentity(), btVector3(0, -0.5f, 0)));
    btRigidBody ground(btRigidBody::btRigidBodyConstructionInfo(0, &groundMotion, &groundShape));
    world.addRigidBody(&ground);

    btBoxShape crateShape(btVector3(0.5f, 0.5f, 0.5f));
    btVector3 inertia;
    crateShape.calculateLocalInertia(1, inertia);
    std::vector<btDefaultMotionState> motions;
    std::vector<btRigidBody*> crates;
    motions.reserve(1000);
    for (int i = 0; i < 1000; ++i) {
        int const x = i % 10, z = (i / 10) % 10, layer = i / 100;
        btVector3 const origin((x - 5) * 1.5f, 1.0f + layer * 1.5f, (z - 5) * 1.5f);
        motions.emplace_back(btTransform(btQuaternion::getIdentity(), origin));
        crates.push_back(
            new btRigidBody(btRigidBody::btRigidBodyConstructionInfo(1, &motions.back(), &crateShape, inertia)));
        world.addRigidBody(crates.back());
    }
    Timing const timing = Measure(steps, [&world] { world.stepSimulation(btScalar(StepSeconds), 0); });
    for (btRigidBody* crate : crates) {
        world.removeRigidBody(crate);
        delete crate;
    }
    world.removeRigidBody(&ground);
    return timing;
}
#endif

/// Evicts the caches by writing a buffer larger than the last level, as the
/// rest of a server tick (entity hooks, modules, networking) does between two
/// physics steps.
void EvictCaches() {
    static std::vector<char> buffer(64u << 20);
    static char round = 0;
    ++round;
    for (size_t i = 0; i < buffer.size(); i += 64) buffer[i] = round;
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
    Timing timing;
    double total = 0.0;
    for (int i = 0; i < steps; ++i) {
        if (cold) EvictCaches();
        auto const start = Clock::now();
        ServerSideEntity::PhysicsUpdate(StepSeconds, Substeps);
        double const ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
        total += ms;
        timing.worst = std::max(timing.worst, ms);
    }
    timing.mean = total / steps;
    ServerSideEntity::DestroyAll();
    return timing;
}

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

    int const restingSteps = std::max(1, steps / 5);
    std::printf("\nScene 2: crates on the ground, 9 in 10 at rest, %d steps\n"
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
    }
    return 0;
}
