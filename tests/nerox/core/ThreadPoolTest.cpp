#include "nerox/cpu/ThreadPool.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <pthread.h>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using nerox::cpu::ThreadPool;
using namespace std::chrono_literals;

TEST(ThreadPoolTest, PromisesDeliverResultsAndExceptions) {
    ThreadPool<> pool("Compute");
    pool.RunThreads(3);
    std::vector<std::future<long>> futures;
    for (long i = 0; i < 200; ++i) futures.push_back(pool.Promise([i] { return i * i; }));
    auto owned = std::make_unique<int>(41);
    std::future<int> moveOnly = pool.Promise([owned = std::move(owned)] { return *owned + 1; });
    std::future<void> done = pool.Promise([] {});
    testing::internal::CaptureStderr();
    std::future<int> failing = pool.Promise([]() -> int { throw std::runtime_error("bad input"); });
    long sum = 0;
    for (auto& future : futures) sum += future.get();
    EXPECT_EQ(sum, 199L * 200L * 399L / 6L);
    EXPECT_EQ(moveOnly.get(), 42);
    EXPECT_NO_THROW(done.get());
    // Shutdown joins the workers, so the exception is freed on this thread (the
    // thread sanitizer cannot see its reference count inside the standard library).
    failing.wait();
    pool.Shutdown();
    try {
        failing.get();
        ADD_FAILURE() << "the job's exception did not reach the future";
    } catch (std::runtime_error const& error) {
        EXPECT_STREQ(error.what(), "bad input");
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "the future holds the exception, nothing to report";
}

TEST(ThreadPoolTest, FailingJobsAndInitFunctionsAreReportedAndTheWorkerGoesOn) {
    ThreadPool<> pool("Loader");
    testing::internal::CaptureStderr();
    pool.RunThreads(1, [] { throw std::runtime_error("no device"); });
    pool.Push([] { throw std::runtime_error("disk gone"); });
    pool.Push([] { throw 42; });
    EXPECT_EQ(pool.Promise([] { return 5; }).get(), 5);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Exception occured in a ThreadPool Loader: no device\n"
              "Exception occured in a ThreadPool Loader: disk gone\n"
              "Unknown Exception occured in ThreadPool Loader\n");
}

TEST(ThreadPoolTest, ShutdownDropsQueuedJobs) {
    ThreadPool<> pool("Dropper");
    pool.RunThreads(1);
    std::promise<void> started;
    std::promise<void> release;
    std::atomic<int> ran{0};
    std::future<void> blocker = pool.Promise([&, releaseFuture = release.get_future().share()] {
        started.set_value();
        releaseFuture.wait();
        ++ran;
    });
    started.get_future().wait();
    std::vector<std::future<void>> queued;
    for (int i = 0; i < 5; ++i) queued.push_back(pool.Promise([&] { ++ran; }));
    EXPECT_EQ(pool.GetQueueSize(), 5u);

    std::thread stopper([&] { pool.Shutdown(); });
    // Let the running job finish only once the pool has been told to stop.
    while (pool.GetTargetCount() != 0) std::this_thread::yield();
    release.set_value();
    stopper.join();

    EXPECT_NO_THROW(blocker.get()) << "the running job completes";
    EXPECT_EQ(ran.load(), 1);
    EXPECT_EQ(pool.GetQueueSize(), 0u);
    EXPECT_EQ(pool.GetThreadCount(), 0u);
    // A dropped job's future reports a broken promise, the only error get() can give here.
    for (auto& future : queued) EXPECT_THROW(future.get(), std::future_error);
}

TEST(ThreadPoolTest, RunThreadsStartsShrinksAndGrowsAndNamesNewThreads) {
    ThreadPool<> pool("AVeryLongPoolNameIndeed");
    std::future<int> waiting = pool.Promise([] { return 3; });
    EXPECT_EQ(waiting.wait_for(10ms), std::future_status::timeout) << "a job ran without threads";
    std::mutex mutex;
    std::multiset<std::string> names;
    auto const init = [&] {
        char name[32] = {};
        pthread_getname_np(pthread_self(), name, sizeof name);
        std::lock_guard guard(mutex);
        names.insert(name);
    };
    pool.RunThreads(4, init);
    EXPECT_EQ(waiting.get(), 3);
    pool.RunThreads(1);
    EXPECT_EQ(pool.GetThreadCount(), 1u);
    EXPECT_EQ(pool.Promise([] { return 9; }).get(), 9);
    pool.RunThreads(3, init);
    EXPECT_EQ(pool.GetThreadCount(), 3u);
    pool.Shutdown(); // joins, so every init function has run
    EXPECT_EQ(names.size(), 6u) << "only new threads run the init function";
    EXPECT_EQ(names.count("AVeryLongPoolNa"), 6u) << "the name is cut to 15 characters";
    pool.RunThreads(1);
    EXPECT_EQ(pool.Promise([] { return 4; }).get(), 4) << "a pool runs again after Shutdown";
}

TEST(ThreadPoolTest, CustomJobTypeRunsThroughJobFunctionInQueueOrder) {
    std::vector<int> seen; // one worker only, read after it is joined
    std::promise<void> all;
    ThreadPool<int> pool("Numbers", [&](int& job) {
        seen.push_back(job);
        if (job == 10) all.set_value();
    });
    for (int i = 0; i < 10; ++i) pool.Push(i);
    pool.RunThreads(1);
    pool.Push(10);
    all.get_future().wait();
    pool.Shutdown();
    EXPECT_EQ(seen, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
}

TEST(ThreadPoolTest, DestructorStopsThreadsAndDropsJobs) {
    std::atomic<int> ran{0};
    std::future<void> dropped;
    {
        ThreadPool<> pool("Short");
        pool.RunThreads(2);
        std::promise<void> release;
        std::shared_future<void> releaseFuture = release.get_future().share();
        for (int i = 0; i < 2; ++i) pool.Push([&, releaseFuture] { releaseFuture.wait(); ++ran; });
        dropped = pool.Promise([] {});
        release.set_value();
    }
    // The pool is gone: every job either ran or was dropped, none runs later.
    int const after = ran.load();
    EXPECT_LE(after, 2);
    dropped.wait();
    EXPECT_EQ(ran.load(), after);
}

} // namespace
