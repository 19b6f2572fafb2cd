#include "nerox/SharedMutex.hpp"
#include "nerox/cpu/Profiler.hpp"
#include "nerox/cpu/ThreadPool.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <pthread.h>
#include <shared_mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using nerox::cpu::Profiler;
using nerox::cpu::ThreadPool;
using namespace std::chrono_literals;

/// Generous bound for a thread that must get through; only a hang reaches it.
constexpr auto liveness = 30s;

/// Runs body(0) to body(count - 1) on threads of their own, all alive until the
/// last one ends, and reader() on this thread at least once and until then.
void Concurrently(
    int count, std::function<void(int)> const& body, std::function<void()> const& reader = [] {}) {
    std::atomic<int> running{count};
    std::vector<std::jthread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back([&, i] {
            body(i);
            --running;
        });
    do {
        reader();
        std::this_thread::yield();
    } while (running > 0);
}

std::string ThreadName() {
    char name[32] = {};
    pthread_getname_np(pthread_self(), name, sizeof name);
    return name;
}

/// Every record by path, with the name of its thread.
std::map<std::string, std::pair<std::string, Profiler::Profile>> Records() {
    std::map<std::string, std::pair<std::string, Profiler::Profile>> records;
    Profiler::ForEach([&](std::string const& thread, std::string const& path, Profiler::Profile const& profile) {
        records[path] = {thread, profile};
    });
    return records;
}

/// "path:count " of every record, sorted by path.
std::string Counts() {
    std::string counts;
    for (auto const& [path, record] : Records()) counts += path + ":" + std::to_string(record.second.count) + " ";
    return counts;
}

struct ProfilerTest : ::testing::Test {
    void SetUp() override { Profiler::Reset(), Profiler::enabled = true; }
    void TearDown() override { Profiler::enabled = false, Profiler::Reset(); }
};

TEST_F(ProfilerTest, NestedScopesNameTheirPathRepeatsAccumulateAndStopsPopTheNameOnce) {
    for (int i = 0; i < 2; ++i) {
        Profiler update("Update", true);
        {
            Profiler entities("ForEachEntity::Update", true);
            Profiler physics(std::string("Physics"), true);
        }
        {
            Profiler idle("Idle", false);
            idle.Stop();
        }
        Profiler network("Network", true);
        network.Stop();
        network.Stop();
        Profiler after("After", true);
    }
    Profiler::ForEach([](auto const&...) { Profiler nested("InsideVisitor", true); });
    EXPECT_EQ(Counts(),
              "InsideVisitor:6 Update:2 Update/After:2 Update/ForEachEntity::Update:2 "
              "Update/ForEachEntity::Update/Physics:2 Update/Idle:0 Update/Network:2 ");
    Profiler::Profile const idle = Records().at("Update/Idle").second;
    EXPECT_EQ(idle.total, 0.0);
    EXPECT_EQ(idle.min, -1.0);
}

TEST_F(ProfilerTest, FirstTimeSetsMinimumAndShorterOnesReplaceIt) {
    {
        Profiler scope("Work", true);
        std::this_thread::sleep_for(20ms);
    }
    Profiler::Profile const first = Records().at("Work").second;
    EXPECT_GE(first.total, 20.0 * 0.9);
    EXPECT_DOUBLE_EQ(first.min, first.total) << "a long first run is the minimum even so";
    EXPECT_DOUBLE_EQ(first.max, first.total);
    for (int i = 0; i < 5; ++i) Profiler scope("Work", true);
    Profiler::Profile const last = Records().at("Work").second;
    EXPECT_EQ(last.count, 6u);
    EXPECT_LT(last.min, first.min);
    EXPECT_DOUBLE_EQ(last.max, first.max);
    EXPECT_LE(last.total, first.total + 5 * last.max + 1e-9);
}

// Scopes opened while disabled leave no trace on the stack; one opened while
// enabled still counts when profiling is turned off before it ends. A Reset
// forgets open scopes, whose Stop must not touch the forgotten record.
TEST_F(ProfilerTest, DisabledAndResetScopesLeaveNoTrace) {
    Profiler::enabled = false;
    Profiler ignored("Ignored", true);
    { Profiler inner("Inner", true); }
    Profiler::enabled = true;
    {
        Profiler scope("Top", true);
        Profiler::enabled = false;
    }
    ignored.Stop();
    EXPECT_EQ(Counts(), "Top:1 ");
    Profiler::enabled = true;
    Profiler outer("Outer", true);
    { Profiler inner("Inner", true); }
    Profiler::Reset();
    EXPECT_EQ(Counts(), "");
    outer.Stop();
    { Profiler fresh("Fresh", true); }
    EXPECT_EQ(Counts(), "Fresh:1 ");
}

TEST_F(ProfilerTest, ThreadsKeepTheirOwnPathsAndNamesWhileReadersVisit) {
    std::string systemName;
    Concurrently(
        3,
        [&](int t) {
            if (t == 0) Profiler::SetThreadName("a-rather-long-thread-name");
            if (t == 0) systemName = ThreadName();
            for (int i = 0; i < 300; ++i) {
                Profiler outer("Loop" + std::to_string(t), true);
                Profiler inner("Step" + std::to_string(i % 3), true);
            }
        },
        [] {
            for (auto const& [path, record] : Records()) EXPECT_LE(record.second.min, record.second.max + 1e-9) << path;
        });
    { Profiler scope("Main", true); }
    std::string expected;
    for (std::string const loop : {"Loop0", "Loop1", "Loop2"})
        expected += loop + ":300 " + loop + "/Step0:100 " + loop + "/Step1:100 " + loop + "/Step2:100 ";
    EXPECT_EQ(Counts(), expected + "Main:1 ");
    EXPECT_EQ(systemName, "a-rather-long-t") << "the system takes 15 characters";
    auto const records = Records();
    EXPECT_EQ(records.at("Loop0/Step1").first, "a-rather-long-thread-name");
    std::string const anonymous = records.at("Loop1").first;
    EXPECT_EQ(records.at("Loop1/Step2").first, anonymous);
    EXPECT_NE(records.at("Loop2").first, anonymous);
    EXPECT_NE(records.at("Main").first, anonymous);
    EXPECT_EQ(anonymous.substr(0, 4), "----");
    EXPECT_GT(anonymous.size(), 4u);
    EXPECT_EQ(anonymous.find_first_not_of("0123456789", 4), std::string::npos) << anonymous;
}

// Three threads queue jobs at once while this one watches the pool. Only new
// threads run the init function; they take the pool's name, cut to 15 characters.
TEST(ThreadPoolTest, ThreadsStartShrinkAndGrowAndDeliverPromisesQueuedFromSeveralThreads) {
    ThreadPool<> pool("AVeryLongPoolNameIndeed");
    std::future<int> waiting = pool.Promise([] { return 3; });
    EXPECT_EQ(waiting.wait_for(10ms), std::future_status::timeout) << "a job ran without threads";
    std::mutex mutex;
    std::vector<std::string> names;
    auto const init = [&] {
        std::lock_guard guard(mutex);
        names.push_back(ThreadName());
    };
    pool.RunThreads(4, init);
    EXPECT_EQ(waiting.get(), 3);
    pool.RunThreads(1);
    EXPECT_EQ(pool.GetThreadCount(), 1u);
    EXPECT_EQ(pool.Promise([] { return 9; }).get(), 9);
    pool.RunThreads(3, init);
    std::atomic<long> sum{0};
    Concurrently(
        3,
        [&](int t) {
            std::vector<std::future<long>> futures;
            for (long i = 0; i < 100; ++i) futures.push_back(pool.Promise([i, t] { return i * (t + 1); }));
            for (auto& future : futures) sum += future.get();
        },
        [&] { EXPECT_EQ(pool.GetThreadCount(), 3u); });
    EXPECT_EQ(sum.load(), 6 * 4950L);
    auto owned = std::make_unique<int>(41);
    EXPECT_EQ(pool.Promise([owned = std::move(owned)] { return *owned + 1; }).get(), 42);
    testing::internal::CaptureStderr();
    std::future<int> failing = pool.Promise([]() -> int { throw std::runtime_error("bad input"); });
    // Shutdown joins the workers, so the exception is freed on this thread (the
    // thread sanitizer cannot see its reference count inside the standard library).
    failing.wait();
    pool.Shutdown();
    EXPECT_THAT([&] { failing.get(); }, testing::ThrowsMessage<std::runtime_error>(testing::StrEq("bad input")));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "the future holds the exception, nothing to report";
    EXPECT_EQ(names, std::vector<std::string>(6, "AVeryLongPoolNa"));
    pool.RunThreads(1);
    EXPECT_EQ(pool.Promise([] { return 4; }).get(), 4) << "a pool runs again after Shutdown";
}

TEST(ThreadPoolTest, ShutdownLetsTheRunningJobEndAndDropsQueuedJobs) {
    ThreadPool<> pool("Dropper");
    pool.RunThreads(1);
    std::promise<void> started, release;
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
    EXPECT_NO_THROW(blocker.get());
    EXPECT_EQ(ran.load(), 1);
    EXPECT_EQ(pool.GetQueueSize() + pool.GetThreadCount(), 0u);
    // A dropped job's future reports a broken promise, the only error get() can give here.
    for (auto& future : queued) EXPECT_THROW(future.get(), std::future_error);
}

// The report texts are what users see.
TEST(ThreadPoolTest, CustomJobsRunInQueueOrderAndFailuresAreReportedWhileTheWorkerGoesOn) {
    std::vector<int> seen; // one worker only, read after it is joined
    std::promise<void> all;
    ThreadPool<int> pool("Loader", [&](int& job) {
        seen.push_back(job);
        if (job == 1) throw std::runtime_error("disk gone");
        if (job == 2) throw 42;
        if (job == 4) all.set_value();
    });
    testing::internal::CaptureStderr();
    for (int i = 0; i < 3; ++i) pool.Push(i);
    pool.RunThreads(1, [] { throw std::runtime_error("no device"); });
    pool.Push(3);
    pool.Push(4);
    all.get_future().wait();
    pool.Shutdown();
    EXPECT_EQ(seen, (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Exception occured in a ThreadPool Loader: no device\n"
              "Exception occured in a ThreadPool Loader: disk gone\n"
              "Unknown Exception occured in ThreadPool Loader\n");
}

// The mutex does not know its holders, so this thread can try it while it holds it.
TEST(SharedMutexTest, TryLocksFollowTheHolds) {
    nerox::SharedMutex mutex;
    auto const gets = [&]() -> std::string {
        if (mutex.try_lock()) return mutex.unlock(), "exclusive";
        if (mutex.try_lock_shared()) return mutex.unlock_shared(), "shared";
        return "none";
    };
    EXPECT_EQ(gets(), "exclusive");
    mutex.lock();
    EXPECT_EQ(gets(), "none");
    mutex.unlock();
    mutex.lock_shared();
    mutex.lock_shared();
    mutex.unlock_shared();
    EXPECT_EQ(gets(), "shared") << "one shared hold is still open";
    mutex.unlock_shared();
    EXPECT_EQ(gets(), "exclusive");
}

// A reader that arrives while a writer waits gets in; the writer gets in only
// when the last reader hold is released, and that release must wake it.
TEST(SharedMutexTest, WaitingWriterLetsNewReadersInAndWakesOnTheLastUnlockShared) {
    nerox::SharedMutex mutex;
    mutex.lock_shared();
    std::promise<void> writerIn, readerIn, readerMayLeave;
    std::thread writer([&] {
        std::lock_guard lock(mutex);
        writerIn.set_value();
    });
    std::this_thread::sleep_for(20ms); // let the writer start waiting
    std::thread reader([&] {
        std::shared_lock lock(mutex);
        readerIn.set_value();
        readerMayLeave.get_future().wait();
    });
    EXPECT_EQ(readerIn.get_future().wait_for(liveness), std::future_status::ready)
        << "a waiting writer held a new reader back";
    std::future<void> writerInFuture = writerIn.get_future();
    mutex.unlock_shared();
    EXPECT_EQ(writerInFuture.wait_for(20ms), std::future_status::timeout) << "writer got in beside a reader";
    readerMayLeave.set_value();
    EXPECT_EQ(writerInFuture.wait_for(liveness), std::future_status::ready)
        << "the last unlock_shared did not wake the writer";
    reader.join();
    writer.join();
}

TEST(SharedMutexTest, WriterUnlockWakesAllWaitingReaders) {
    nerox::SharedMutex mutex;
    mutex.lock();
    std::atomic<int> inside{0};
    bool unlocked = false;
    Concurrently(
        4,
        [&](int) {
            std::shared_lock lock(mutex);
            ++inside; // stay inside until every reader is in at once
            for (auto const until = std::chrono::steady_clock::now() + liveness; inside < 4;)
                if (std::chrono::steady_clock::now() > until) return ADD_FAILURE() << "the unlock left readers waiting";
        },
        [&] {
            if (std::exchange(unlocked, true)) return;
            std::this_thread::sleep_for(20ms);
            EXPECT_EQ(inside.load(), 0);
            mutex.unlock();
        });
}

TEST(SharedMutexTest, ReadersAndWritersUnderContention) {
    nerox::SharedMutex mutex;
    long first = 0, second = 0; // writers change them together; a reader must never see them apart
    std::atomic<int> activeReaders{0}, activeWriters{0}, violations{0};
    Concurrently(6, [&](int t) {
        for (int i = 0; i < 2000; ++i) {
            if (t < 2) {
                std::unique_lock lock(mutex);
                if (++activeWriters != 1 || activeReaders.load() != 0) ++violations;
                ++first;
                ++second;
                --activeWriters;
            } else {
                std::shared_lock lock(mutex);
                ++activeReaders;
                if (activeWriters.load() != 0 || first != second) ++violations;
                --activeReaders;
            }
        }
    });
    EXPECT_EQ(violations.load(), 0);
    EXPECT_EQ(first + second, 2 * 2 * 2000);
}

} // namespace
