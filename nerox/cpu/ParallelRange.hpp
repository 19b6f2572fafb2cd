#pragma once
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>

#include "nerox/cpu/ThreadPool.hpp"

namespace nerox::cpu {

/// Runs a function over a range of indices on the calling thread and the
/// pool's threads at once. The range is cut into chunks with fixed bounds,
/// which the threads take in turn: the calls made are the same whatever the
/// number of threads, only the thread that makes each one varies. A run
/// allocates nothing.
///
/// Threads: Run, SetThreads and Shutdown belong to the owner of the range;
/// call them from one thread at a time and never from inside a run.
class ParallelRange : public ThreadPoolBase {
public:
    /// No pool threads yet: runs stay on the caller until SetThreads.
    explicit ParallelRange(std::string name);
    ~ParallelRange() override;

    /// Threads in all, the caller's included: total - 1 pool threads. With
    /// 0 or 1 every chunk runs on the caller.
    void SetThreads(size_t total);

    /// While awake, the pool's threads wait for the next run busily, yielding
    /// to the scheduler between looks, instead of asleep: a run
    /// then starts on them at once instead of after the wake-up of a sleeping
    /// thread, which can take longer than a short run. For a burst of runs;
    /// asleep again by default, and before SetThreads, Shutdown or the end.
    void KeepAwake(bool awake);

    /// Calls function(begin, end) for each chunk [begin, end) of [0, count),
    /// chunk indices long (the last one shorter), and returns once all calls
    /// have returned. A call that throws does not stop the others; after all
    /// of them, the exception of the lowest chunk that threw is thrown here.
    template <typename Function> void Run(size_t count, size_t chunk, Function&& function) {
        using Target = std::remove_reference_t<Function>;
        RunChunks(
            count, chunk, [](void* context, size_t begin, size_t end) { (*static_cast<Target*>(context))(begin, end); },
            const_cast<void*>(static_cast<void const*>(std::addressof(function))));
    }

private:
    using Call = void (*)(void* context, size_t begin, size_t end);

    void RunChunks(size_t count, size_t chunk, Call call, void* context);
    void WorkerLoop(size_t index) override;
    /// Runs chunks of the current run until none is left to take. lock holds
    /// _mutex and holds it again on return.
    void TakeChunks(std::unique_lock<std::mutex>& lock);

    // The current run, guarded by _mutex. Between runs _next == _chunks.
    size_t _count = 0;             ///< Indices of the run.
    size_t _chunk = 1;             ///< Indices per chunk.
    size_t _chunks = 0;            ///< Chunks of the run.
    size_t _next = 0;              ///< The next chunk to take.
    size_t _finished = 0;          ///< Chunks whose call returned.
    Call _call = nullptr;          ///< Calls the run's function.
    void* _context = nullptr;      ///< The run's function.
    std::exception_ptr _error;     ///< Thrown by chunk _errorChunk, the lowest that threw.
    size_t _errorChunk = 0;        ///< See _error.
    std::condition_variable _done; ///< Signalled when the last chunk of a run has finished.

    // Read by threads that wait busily, without the lock; written under it.
    std::atomic<uint64_t> _runsBegun{0}; ///< Counts the runs begun.
    std::atomic<bool> _awake{false};     ///< See KeepAwake.
};

} // namespace nerox::cpu
