#include "nerox/cpu/ParallelRange.hpp"

#include <algorithm>
#include <chrono>
#include <thread>

namespace nerox::cpu {

ParallelRange::ParallelRange(std::string name) : ThreadPoolBase(std::move(name)) { }

namespace {

/// How long a busy wait goes before it looks at the pool's thread count again.
constexpr std::chrono::milliseconds BusyWaitRecheck(1);

} // namespace

ParallelRange::~ParallelRange() {
    KeepAwake(false);
    Shutdown(); // before the members the worker loop reads are gone
}

void ParallelRange::SetThreads(size_t total) {
    size_t const poolThreads = total > 1 ? total - 1 : 0;
    if (poolThreads == GetThreadCount()) return;
    bool const awake = _awake.load(std::memory_order_relaxed);
    KeepAwake(false);
    RunThreads(poolThreads);
    KeepAwake(awake);
}

void ParallelRange::KeepAwake(bool awake) {
    {
        std::lock_guard guard(_mutex);
        _awake.store(awake, std::memory_order_release);
    }
    if (awake) _condition.notify_all();
}

void ParallelRange::RunChunks(size_t count, size_t chunk, Call call, void* context) {
    if (count == 0) return;
    chunk = std::max<size_t>(chunk, 1);
    if (GetThreadCount() == 0 || count <= chunk) {
        // Alone: the same calls, one after the other.
        std::exception_ptr first;
        for (size_t begin = 0; begin < count; begin += chunk) {
            try {
                call(context, begin, std::min(count, begin + chunk));
            } catch (...) {
                if (!first) first = std::current_exception();
            }
        }
        if (first) std::rethrow_exception(first);
        return;
    }
    std::unique_lock lock(_mutex);
    _count = count;
    _chunk = chunk;
    _chunks = (count + chunk - 1) / chunk;
    _next = 0;
    _finished = 0;
    _call = call;
    _context = context;
    _error = nullptr;
    _runsBegun.fetch_add(1, std::memory_order_release);
    _condition.notify_all();
    TakeChunks(lock);
    _done.wait(lock, [this] { return _finished == _chunks; });
    std::exception_ptr const error = std::exchange(_error, nullptr);
    _call = nullptr;
    _context = nullptr;
    lock.unlock();
    if (error) std::rethrow_exception(error);
}

void ParallelRange::WorkerLoop(size_t index) {
    std::unique_lock lock(_mutex);
    for (;;) {
        _condition.wait(lock, [this, index] {
            return index >= _targetCount || _next < _chunks || _awake.load(std::memory_order_relaxed);
        });
        if (index >= _targetCount) return;
        if (_next < _chunks) {
            TakeChunks(lock);
            continue;
        }
        // Awake between runs: watch for the next one without the lock, for a
        // while, then look at the thread count again.
        uint64_t const seen = _runsBegun.load(std::memory_order_relaxed);
        lock.unlock();
        auto const until = std::chrono::steady_clock::now() + BusyWaitRecheck;
        while (_awake.load(std::memory_order_acquire) && _runsBegun.load(std::memory_order_acquire) == seen &&
               std::chrono::steady_clock::now() < until)
            std::this_thread::yield();
        lock.lock();
    }
}

void ParallelRange::TakeChunks(std::unique_lock<std::mutex>& lock) {
    while (_next < _chunks) {
        size_t const taken = _next++;
        size_t const begin = taken * _chunk;
        size_t const end = std::min(_count, begin + _chunk);
        Call const call = _call;
        void* const context = _context;
        lock.unlock();
        std::exception_ptr error;
        try {
            call(context, begin, end);
        } catch (...) {
            error = std::current_exception();
        }
        lock.lock();
        if (error && (!_error || taken < _errorChunk)) {
            _error = error;
            _errorChunk = taken;
        }
        if (++_finished == _chunks) _done.notify_all();
    }
}

} // namespace nerox::cpu
