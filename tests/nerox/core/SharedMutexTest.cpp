#include "nerox/SharedMutex.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

/// Generous bound for a thread that must get through; only a hang reaches it.
constexpr auto liveness = 30s;

/// What another thread gets from try_lock and try_lock_shared ("exclusive" or "shared" or "none").
std::string OtherThreadGets(nerox::SharedMutex& mutex) {
    std::string result;
    std::thread([&] {
        if (mutex.try_lock()) {
            result = "exclusive";
            mutex.unlock();
        } else if (mutex.try_lock_shared()) {
            result = "shared";
            mutex.unlock_shared();
        } else {
            result = "none";
        }
    }).join();
    return result;
}

TEST(SharedMutexTest, TryLocksFollowTheHolds) {
    nerox::SharedMutex mutex;
    EXPECT_EQ(OtherThreadGets(mutex), "exclusive");
    {
        std::unique_lock exclusive(mutex);
        EXPECT_EQ(OtherThreadGets(mutex), "none");
    }
    {
        std::shared_lock reading(mutex);
        std::shared_lock alsoReading(mutex); // a nested hold of the same thread
        EXPECT_EQ(OtherThreadGets(mutex), "shared");
        alsoReading.unlock();
        EXPECT_EQ(OtherThreadGets(mutex), "shared") << "one shared hold is still open";
    }
    {
        std::scoped_lock all(mutex);
        EXPECT_FALSE(std::shared_lock(mutex, std::try_to_lock).owns_lock());
    }
    EXPECT_EQ(OtherThreadGets(mutex), "exclusive");
}

// A reader that arrives while a writer waits gets in; the writer gets in only
// when the last reader hold is released, and that release must wake it.
TEST(SharedMutexTest, WaitingWriterLetsNewReadersInAndWakesOnTheLastUnlockShared) {
    nerox::SharedMutex mutex;
    mutex.lock_shared();
    std::promise<void> writerIn;
    std::thread writer([&] {
        std::lock_guard lock(mutex);
        writerIn.set_value();
    });
    std::this_thread::sleep_for(20ms); // let the writer start waiting
    std::promise<void> readerIn;
    std::promise<void> readerMayLeave;
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
    constexpr int readerCount = 4;
    std::atomic<int> inside{0};
    std::promise<void> allIn;
    std::shared_future<void> allInFuture = allIn.get_future().share();
    std::vector<std::thread> readers;
    for (int i = 0; i < readerCount; ++i) {
        readers.emplace_back([&] {
            std::shared_lock lock(mutex);
            if (++inside == readerCount) allIn.set_value();
            allInFuture.wait_for(liveness); // stay inside until every reader is in at once
        });
    }
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(inside.load(), 0);
    mutex.unlock();
    EXPECT_EQ(allInFuture.wait_for(liveness), std::future_status::ready);
    for (std::thread& reader : readers) reader.join();
}

TEST(SharedMutexTest, ReadersAndWritersUnderContention) {
    nerox::SharedMutex mutex;
    // Two values that writers change together; a reader must never see them apart.
    long first = 0;
    long second = 0;
    std::atomic<int> activeReaders{0};
    std::atomic<int> activeWriters{0};
    std::atomic<int> violations{0};
    constexpr int writerCount = 2;
    constexpr int rounds = 2000;
    auto const run = [&](bool writer) {
        for (int i = 0; i < rounds; ++i) {
            if (writer) {
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
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < writerCount + 4; ++t) threads.emplace_back(run, t < writerCount);
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(violations.load(), 0);
    EXPECT_EQ(first, writerCount * rounds);
    EXPECT_EQ(second, writerCount * rounds);
}

} // namespace
