#include "nerox/Assert.hpp"
#include "nerox/Base16.hpp"
#include "nerox/FPSCounter.hpp"
#include "nerox/SharedMutex.hpp"
#include "nerox/String.hpp"
#include "nerox/cpu/ParallelRange.hpp"
#include "nerox/cpu/Profiler.hpp"
#include "nerox/cpu/ThreadPool.hpp"
#include "nerox/input/InputCodes.hpp"
#include "support/Golden.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <future>
#include <iomanip>
#include <locale>
#include <map>
#include <mutex>
#include <pthread.h>
#include <shared_mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using nerox::Base16;
using nerox::String;
using nerox::cpu::Profiler;
using nerox::cpu::ThreadPool;
using nerox::input::code_from_string;
using nerox::input::code_to_string;
using Bytes = std::vector<unsigned char>;

int const assertLine = __LINE__ + 3;

int Checked(int value) {
    NEROX_ASSERT(value > 0);
    return value;
}

TEST(AssertDeathTest, AFailedCheckPrintsTheConditionFileAndLineThenAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EQ(Checked(3), 3);
    std::string const expected =
        "^ASSERTION FAILED: \\(value > 0\\) in tests/nerox/core/CoreTest\\.cpp:" + std::to_string(assertLine) + "\n";
    EXPECT_DEATH(Checked(-1), expected);
}

// Each row of the golden file is a call with its arguments and its result,
// recomputed here. Base16 decodes only upper-case pairs; text does not follow
// the global locale's decimal point.
TEST(CallsTest, InputCodeNamesNumberAndHexTextsAndTrims) {
    std::istringstream rows(testsupport::ReadText(testsupport::DataFile("nerox/core/calls.txt")));
    std::ostringstream actual;
    for (std::string row, call, a, b, result; std::getline(rows, row); actual << "\n") {
        std::istringstream in(row);
        if (!(in >> call >> std::quoted(a)) || call[0] == '#') {
            actual << row;
            continue;
        }
        bool const two = call != "decode" && in >> std::quoted(b);
        std::string left = a, right = a;
        if (call == "name") result = code_to_string(a, std::stoi(b));
        if (call == "code") result = std::to_string(code_from_string(a, b));
        if (call == "fromdouble") result = String::FromDouble(std::strtod(a.c_str(), nullptr), std::stoi(b));
        if (call == "trim") result = (String::TrimLeft(left, b), left) + "|" + (String::TrimRight(right, b), right);
        try {
            if (call == "decode") result = Base16::Encode(Base16::Decode(a));
        } catch (std::invalid_argument const& error) {
            result = error.what();
        }
        actual << call << " " << std::quoted(a);
        if (two) actual << " " << std::quoted(b);
        actual << " -> " << std::quoted(result);
    }
    testsupport::ExpectGolden(actual.str(), "nerox/core/calls.txt");
    std::string line = " \t value\r\n";
    String::TrimLeft(line);
    String::TrimRight(line);
    EXPECT_EQ(line, "value") << "the default set holds blanks and line ends";
    EXPECT_EQ(String::FromDouble(0.1, 1000), String::FromDouble(0.1, 64)) << "huge precision is cut";
    struct Comma : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
    };
    std::locale const previous = std::locale::global(std::locale(std::locale::classic(), new Comma));
    std::string const text = String::FromDouble(0.5, -1);
    std::locale::global(previous);
    EXPECT_EQ(text, "0.5");
    EXPECT_EQ(Base16::Encode(nullptr, 0), "");
    Bytes all;
    for (int value = 0; value < 256; ++value) all.push_back(static_cast<unsigned char>(value));
    std::string const hex = Base16::Encode(all);
    EXPECT_EQ(hex.substr(0x7E * 2, 8), "7E7F8081");
    EXPECT_EQ(Base16::Decode(hex), all);
}

/// Runs 2 ms passes until the counter shows what is waited for (at most 5000
/// passes), calling WorkDone the given number of times before and after the pause.
void RunUntil(nerox::FPSCounter& counter, int before, int after, bool (*shows)(nerox::FPSCounter const&)) {
    for (int ticks = 0; !shows(counter) && ticks < 5000; ++ticks) {
        counter.Tick();
        for (int i = 0; i < before; ++i) counter.WorkDone();
        std::this_thread::sleep_for(2ms);
        for (int i = 0; i < after; ++i) counter.WorkDone();
    }
}

TEST(FPSCounterTest, DeltaRateAndLoadFollowThePassesAndWorkDone) {
    nerox::FPSCounter counter(0.03);
    counter.WorkDone(); // before any pass: ignored
    counter.Tick();
    EXPECT_EQ(counter.GetDeltaTime() + counter.GetRate(), 0.0) << "no previous pass, no window closed yet";
    EXPECT_EQ(counter.GetLoad(), 1.0);
    std::this_thread::sleep_for(2ms); // like every pass of RunUntil, for the bound on the rate below
    RunUntil(counter, 1, 0, [](nerox::FPSCounter const& c) { return c.GetLoad() < 1.0; });
    EXPECT_LT(counter.GetLoad(), 1.0) << "an idle loop never showed a load below 1";
    // Every pass lasts at least 2 ms: the delta is in seconds, and at most 500 passes fit in a second.
    EXPECT_GE(counter.GetDeltaTime(), 0.0019);
    EXPECT_GT(counter.GetRate(), 0.0);
    EXPECT_LE(counter.GetRate(), 500.0 * 1.01);
    // Reported several times, the busy time exceeds the passes themselves.
    RunUntil(counter, 0, 5, [](nerox::FPSCounter const& c) { return c.GetLoad() == 1.0; });
    EXPECT_EQ(counter.GetLoad(), 1.0);
    RunUntil(counter, 1, 0, [](nerox::FPSCounter const& c) { return c.GetLoad() < 1.0; });
    // A window without any WorkDone falls back to 1.
    RunUntil(counter, 0, 0, [](nerox::FPSCounter const& c) { return c.GetLoad() == 1.0; });
    EXPECT_EQ(counter.GetLoad(), 1.0);
}

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
    EXPECT_TRUE(idle.total == 0.0 && idle.min == -1.0) << idle.total << " " << idle.min;
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
    EXPECT_THAT(anonymous, testing::MatchesRegex("----[0-9]+"));
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

// Whatever the threads and however they wait, a run makes the same calls:
// every index once, in chunks with the same bounds, and a failure in one chunk
// neither stops the others nor hides which chunk failed first.
TEST(ParallelRangeTest, EveryThreadCountMakesTheSameCallsAndReportsTheLowestFailure) {
    nerox::cpu::ParallelRange range("Range");
    for (size_t threads : {1, 2, 3}) {
        for (bool awake : {false, true}) {
            SCOPED_TRACE(testing::Message() << threads << " threads, awake " << awake);
            range.SetThreads(threads);
            range.KeepAwake(awake);
            for (int round = 0; round < 20; ++round) {
                std::vector<std::atomic<int>> hits(103);
                std::vector<size_t> ends(11, 0); // by chunk: the end it was called with
                range.Run(hits.size(), 10, [&](size_t begin, size_t end) {
                    ends[begin / 10] = end;
                    for (size_t i = begin; i < end; ++i) ++hits[i];
                });
                for (size_t i = 0; i < hits.size(); ++i) ASSERT_EQ(hits[i], 1) << i;
                for (size_t chunk = 0; chunk < ends.size(); ++chunk)
                    ASSERT_EQ(ends[chunk], std::min<size_t>(103, chunk * 10 + 10));
            }
            std::atomic<int> calls = 0;
            try {
                range.Run(50, 5, [&calls](size_t begin, size_t) {
                    ++calls;
                    if (begin == 35 || begin == 15) throw std::runtime_error("chunk at " + std::to_string(begin));
                });
                ADD_FAILURE() << "nothing thrown";
            } catch (std::runtime_error const& error) {
                EXPECT_STREQ(error.what(), "chunk at 15");
            }
            EXPECT_EQ(calls, 10);
            range.Run(0, 5, [](size_t, size_t) { ADD_FAILURE() << "called for nothing"; });
            range.KeepAwake(false);
        }
    }
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
