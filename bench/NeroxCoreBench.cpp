#include "nerox/SharedMutex.hpp"
#include "nerox/cpu/Profiler.hpp"

#include <benchmark/benchmark.h>

#include <mutex>
#include <shared_mutex>

namespace {

using nerox::cpu::Profiler;

/// One profiler scope with profiling off: the cost every hot path pays.
void BM_ProfilerScopeDisabled(benchmark::State& state) {
    Profiler::enabled = false;
    for (auto _ : state) {
        Profiler scope("ForEachEntity::Update", true);
        benchmark::DoNotOptimize(&scope);
    }
}
BENCHMARK(BM_ProfilerScopeDisabled);

/// One top-level profiler scope with profiling on.
void BM_ProfilerScopeEnabled(benchmark::State& state) {
    Profiler::Reset();
    Profiler::enabled = true;
    for (auto _ : state) {
        Profiler scope("ServerUpdate", true);
        benchmark::DoNotOptimize(&scope);
    }
    Profiler::enabled = false;
    Profiler::Reset();
}
BENCHMARK(BM_ProfilerScopeEnabled);

/// A scope nested in an open one with profiling on: the path text grows.
void BM_ProfilerNestedScopeEnabled(benchmark::State& state) {
    Profiler::Reset();
    Profiler::enabled = true;
    {
        Profiler outer("ServerUpdate", true);
        for (auto _ : state) {
            Profiler scope("ForEachEntity::Update", true);
            benchmark::DoNotOptimize(&scope);
        }
    }
    Profiler::enabled = false;
    Profiler::Reset();
}
BENCHMARK(BM_ProfilerNestedScopeEnabled);

/// Profiler scopes opened from several threads at once.
void BM_ProfilerScopeEnabledThreads(benchmark::State& state) {
    if (state.thread_index() == 0) {
        Profiler::Reset();
        Profiler::enabled = true;
    }
    for (auto _ : state) {
        Profiler scope("Worker", true);
        benchmark::DoNotOptimize(&scope);
    }
    if (state.thread_index() == 0) {
        Profiler::enabled = false;
        Profiler::Reset();
    }
}
BENCHMARK(BM_ProfilerScopeEnabledThreads)->Threads(2);

/// Shared lock and unlock of an uncontended SharedMutex.
void BM_SharedMutexShared(benchmark::State& state) {
    static nerox::SharedMutex mutex;
    for (auto _ : state) {
        mutex.lock_shared();
        mutex.unlock_shared();
    }
}
BENCHMARK(BM_SharedMutexShared);
BENCHMARK(BM_SharedMutexShared)->Threads(2);

/// Exclusive lock and unlock of an uncontended SharedMutex.
void BM_SharedMutexExclusive(benchmark::State& state) {
    nerox::SharedMutex mutex;
    for (auto _ : state) {
        mutex.lock();
        mutex.unlock();
    }
}
BENCHMARK(BM_SharedMutexExclusive);

/// std::shared_mutex shared lock and unlock, for comparison.
void BM_StdSharedMutexShared(benchmark::State& state) {
    static std::shared_mutex mutex;
    for (auto _ : state) {
        mutex.lock_shared();
        mutex.unlock_shared();
    }
}
BENCHMARK(BM_StdSharedMutexShared);
BENCHMARK(BM_StdSharedMutexShared)->Threads(2);

} // namespace
