#pragma once
#include <condition_variable>
#include <mutex>

namespace nerox {

/// Reader-writer lock: many readers or one writer. Not recursive in either mode,
/// and a waiting writer does not hold new readers back (readers may starve it).
/// Meets the standard SharedMutex requirements, so it works with std::unique_lock
/// and std::shared_lock.
class SharedMutex {
public:
    SharedMutex() = default;
    SharedMutex(SharedMutex const&) = delete;
    SharedMutex& operator=(SharedMutex const&) = delete;

    void lock();
    bool try_lock();
    void unlock();
    void lock_shared();
    bool try_lock_shared();
    void unlock_shared();

private:
    std::mutex _mutex;
    std::condition_variable _condition;
    unsigned _readers = 0;
    bool _writer = false;
};

} // namespace nerox
