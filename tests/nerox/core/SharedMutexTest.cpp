#include "nerox/SharedMutex.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

/// Generous bound for a thread that must get through; only a hang reaches it.
constexpr auto liveness = 30s;

TEST(SharedMutexTest, ExclusiveHoldKeepsEveryoneElseOut) {
    nerox::SharedMutex mutex;
    mutex.lock();
    std::thread other([&] {
        EXPECT_FALSE(mutex.try_lock());
        EXPECT_FALSE(mutex.try_lock_shared());
    });
    other.join();
    mutex.unlock();
    EXPECT_TRUE(mutex.try_lock());
    mutex.unlock();
}

TEST(SharedMutexTest, ReadersShareAndKeepWriterOut) {
    nerox::SharedMutex mutex;
    mutex.lock_shared();
    std::thread other([&] {
        EXPECT_TRUE(mutex.try_lock_shared());
        EXPECT_FALSE(mutex.try_lock());
        mutex.unlock_shared();
    });
    other.join();
    EXPECT_FALSE(mutex.try_lock());
    mutex.unlock_shared();
    EXPECT_TRUE(mutex.try_lock());
    mutex.unlock();
}

TEST(SharedMutexTest, NestedSharedHoldsByOneThreadNeedAllUnlocks) {
    nerox::SharedMutex mutex;
    mutex.lock_shared();
    mutex.lock_shared();
    mutex.unlock_shared();
    EXPECT_FALSE(mutex.try_lock()) << "one shared hold is still open";
    mutex.unlock_shared();
    EXPECT_TRUE(mutex.try_lock());
    mutex.unlock();
}

TEST(SharedMutexTest, LastUnlockSharedWakesWaitingWriter) {
    nerox::SharedMutex mutex;
    mutex.lock_shared();
    mutex.lock_shared(); // a second reader hold
    std::atomic<bool> writerIn{false};
    std::promise<void> acquired;
    std::future<void> acquiredFuture = acquired.get_future();
    std::thread writer([&] {
        mutex.lock();
        writerIn = true;
        acquired.set_value();
        mutex.unlock();
    });
    // Give the writer the chance to get in wrongly while readers hold the lock.
    std::this_thread::sleep_for(20ms);
    EXPECT_FALSE(writerIn.load());
    mutex.unlock_shared();
    std::this_thread::sleep_for(20ms);
    EXPECT_FALSE(writerIn.load()) << "one reader hold is still open";
    mutex.unlock_shared();
    EXPECT_EQ(acquiredFuture.wait_for(liveness), std::future_status::ready)
        << "the last unlock_shared did not wake the writer";
    writer.join();
    EXPECT_TRUE(writerIn.load());
}

TEST(SharedMutexTest, ReaderArrivingWhileWriterWaitsGetsIn) {
    nerox::SharedMutex mutex;
    mutex.lock_shared();
    std::atomic<bool> writerIn{false};
    std::thread writer([&] {
        mutex.lock();
        writerIn = true;
        mutex.unlock();
    });
    std::this_thread::sleep_for(20ms); // let the writer start waiting

    std::promise<void> readerIn;
    std::future<void> readerInFuture = readerIn.get_future();
    std::promise<void> readerMayLeave;
    std::thread reader([&] {
        mutex.lock_shared();
        readerIn.set_value();
        readerMayLeave.get_future().wait();
        mutex.unlock_shared();
    });
    EXPECT_EQ(readerInFuture.wait_for(liveness), std::future_status::ready)
        << "a waiting writer held a new reader back";
    EXPECT_FALSE(writerIn.load());

    mutex.unlock_shared();
    std::this_thread::sleep_for(20ms);
    EXPECT_FALSE(writerIn.load()) << "writer got in while the second reader holds the lock";
    readerMayLeave.set_value();
    reader.join();
    writer.join();
    EXPECT_TRUE(writerIn.load());
}

TEST(SharedMutexTest, WriterUnlockWakesAllWaitingReaders) {
    nerox::SharedMutex mutex;
    mutex.lock();
    constexpr int readerCount = 4;
    std::atomic<int> inside{0};
    std::atomic<int> maxInside{0};
    std::promise<void> allIn;
    std::shared_future<void> allInFuture = allIn.get_future().share();
    std::vector<std::thread> readers;
    for (int i = 0; i < readerCount; ++i) {
        readers.emplace_back([&] {
            mutex.lock_shared();
            int const now = ++inside;
            int seen = maxInside.load();
            while (now > seen && !maxInside.compare_exchange_weak(seen, now)) {
            }
            if (now == readerCount) allIn.set_value();
            // Stay inside until every reader is in at once.
            allInFuture.wait_for(liveness);
            mutex.unlock_shared();
        });
    }
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(inside.load(), 0);
    mutex.unlock();
    EXPECT_EQ(allInFuture.wait_for(liveness), std::future_status::ready);
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(maxInside.load(), readerCount);
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
    constexpr int readerCount = 4;
    constexpr int rounds = 2000;

    std::vector<std::thread> threads;
    for (int w = 0; w < writerCount; ++w) {
        threads.emplace_back([&] {
            for (int i = 0; i < rounds; ++i) {
                std::unique_lock lock(mutex);
                if (++activeWriters != 1 || activeReaders.load() != 0) ++violations;
                ++first;
                ++second;
                --activeWriters;
            }
        });
    }
    for (int r = 0; r < readerCount; ++r) {
        threads.emplace_back([&] {
            for (int i = 0; i < rounds; ++i) {
                std::shared_lock lock(mutex);
                ++activeReaders;
                if (activeWriters.load() != 0 || first != second) ++violations;
                --activeReaders;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(violations.load(), 0);
    EXPECT_EQ(first, writerCount * rounds);
    EXPECT_EQ(second, writerCount * rounds);
}

TEST(SharedMutexTest, WorksWithStandardLockTypes) {
    nerox::SharedMutex mutex;
    {
        std::unique_lock exclusive(mutex);
        EXPECT_TRUE(exclusive.owns_lock());
        std::unique_lock second(mutex, std::try_to_lock);
        EXPECT_FALSE(second.owns_lock());
    }
    {
        std::shared_lock reading(mutex);
        std::shared_lock alsoReading(mutex, std::try_to_lock);
        EXPECT_TRUE(alsoReading.owns_lock());
        std::unique_lock writing(mutex, std::try_to_lock);
        EXPECT_FALSE(writing.owns_lock());
    }
    {
        std::scoped_lock all(mutex);
        std::shared_lock reading(mutex, std::try_to_lock);
        EXPECT_FALSE(reading.owns_lock());
    }
    std::unique_lock afterwards(mutex, std::try_to_lock);
    EXPECT_TRUE(afterwards.owns_lock());
}

} // namespace
