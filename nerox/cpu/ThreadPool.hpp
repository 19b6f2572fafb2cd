#pragma once
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <future>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace nerox::cpu {

/// Threads of a pool and their count. A derived class supplies the worker loop.
/// RunThreads and Shutdown belong to the owner of the pool: call them from one
/// thread at a time and never from inside a job.
class ThreadPoolBase {
public:
    /// Pool without threads; name names its threads (cut to 15 characters).
    explicit ThreadPoolBase(std::string name);
    /// Shuts down. A derived class must shut down in its own destructor already,
    /// since its worker loop must not run while it is destroyed.
    virtual ~ThreadPoolBase();
    ThreadPoolBase(ThreadPoolBase const&) = delete;
    ThreadPoolBase& operator=(ThreadPoolBase const&) = delete;

    /// Sets the number of worker threads to count. New threads are named after
    /// the pool and run initFunction (if given) before they take jobs; threads
    /// above count finish their current job and are joined.
    void RunThreads(size_t count, std::function<void()> initFunction = {});
    /// Lowers the target count to 0, wakes all threads and joins them. Each
    /// thread finishes the job it runs; queued jobs stay in the queue.
    void Shutdown();

    /// The pool's name.
    std::string const& GetName() const;
    /// Number of threads started and not yet joined.
    size_t GetThreadCount() const;
    /// Number of threads the pool aims at; a thread whose index is at or above it leaves.
    size_t GetTargetCount() const;

protected:
    /// Body of worker thread index, after naming and init: runs jobs until the
    /// index is at or above the target count.
    virtual void WorkerLoop(size_t index) = 0;
    /// Writes the report of a failed job (or init function) to the standard
    /// error stream and pauses the thread for 100 ms. Call it from a catch block.
    void ReportCurrentException() const;

    std::string const _name;
    mutable std::mutex _mutex;
    std::condition_variable _condition;
    size_t _targetCount = 0;

private:
    /// Entry of every worker thread.
    void ThreadMain(size_t index, std::function<void()> const& initFunction);

    std::vector<std::thread> _threads;
};

/// Pool of threads that take jobs from a shared queue, first in first out.
/// Job is what the queue holds; the job function runs one (by default it calls
/// the job). Queue must offer push_back, front, pop_front, empty, size and swap.
/// Jobs queued while no thread runs wait for the next RunThreads.
template <typename Job = std::function<void()>, typename Queue = std::deque<Job>>
class ThreadPool : public ThreadPoolBase {
public:
    /// Runs one job on a worker thread.
    using JobFunction = std::function<void(Job&)>;

    /// Pool without threads; without jobFunction a job is run by calling it.
    explicit ThreadPool(std::string name, JobFunction jobFunction = {})
        : ThreadPoolBase(std::move(name)), _jobFunction(std::move(jobFunction)) { }
    /// Shuts down and drops the jobs still queued.
    ~ThreadPool() override { Shutdown(); }

    /// Queues a job. An exception it throws is reported on the standard error
    /// stream, and its worker goes on.
    void Push(Job job) {
        {
            std::lock_guard guard(_mutex);
            _queue.push_back(std::move(job));
        }
        _condition.notify_one();
    }

    /// Queues function as a job and returns the future of its result. An
    /// exception it throws travels through the future. If the job is dropped by
    /// Shutdown, the future reports std::future_errc::broken_promise. Needs a Job
    /// that can be made from a callable without arguments.
    template <typename Function>
    std::future<std::invoke_result_t<std::decay_t<Function>>> Promise(Function&& function) {
        using Result = std::invoke_result_t<std::decay_t<Function>>;
        auto task = std::make_shared<std::packaged_task<Result()>>(std::forward<Function>(function));
        std::future<Result> future = task->get_future();
        Push(Job([task] { (*task)(); }));
        return future;
    }

    /// Stops all threads (see ThreadPoolBase::Shutdown), then drops the queued jobs.
    void Shutdown() {
        ThreadPoolBase::Shutdown();
        Queue dropped;
        {
            std::lock_guard guard(_mutex);
            _queue.swap(dropped);
        }
        // dropped goes out of scope here, outside the lock, in case a job's
        // destructor queues again.
    }

    /// Number of jobs waiting in the queue.
    size_t GetQueueSize() const {
        std::lock_guard guard(_mutex);
        return _queue.size();
    }

protected:
    void WorkerLoop(size_t index) override {
        for (;;) {
            std::optional<Job> job;
            {
                std::unique_lock lock(_mutex);
                _condition.wait(lock, [&] { return index >= _targetCount || !_queue.empty(); });
                if (index >= _targetCount) return;
                job.emplace(std::move(_queue.front()));
                _queue.pop_front();
            }
            try {
                if (_jobFunction) {
                    _jobFunction(*job);
                } else {
                    RunJob(*job);
                }
            } catch (...) {
                ReportCurrentException();
            }
        }
    }

private:
    /// Calls a job that is callable; other job types need a job function.
    static void RunJob(Job& job) {
        if constexpr (std::is_invocable_v<Job&>) {
            job();
        } else {
            throw std::logic_error("ThreadPool job type needs a job function");
        }
    }

    Queue _queue;
    JobFunction _jobFunction;
};

} // namespace nerox::cpu
