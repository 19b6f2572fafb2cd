#include "nerox/cpu/Profiler.hpp"

#include <algorithm>
#include <mutex>
#include <pthread.h>
#include <shared_mutex>

namespace nerox::cpu {

std::atomic<bool> Profiler::enabled{false};
std::unordered_map<std::thread::id, std::unordered_map<std::string, Profiler::Profile>> Profiler::profiles;
std::unordered_map<std::thread::id, std::vector<std::string>> Profiler::profileStacks;
SharedMutex Profiler::profilesMutex;
std::unordered_map<std::thread::id, std::string> Profiler::threadNames;
uint64_t Profiler::_resets = 0;

namespace {

/// Longest thread name the system takes, without the terminating zero.
constexpr size_t systemThreadNameLength = 15;

} // namespace

void Profiler::Open(std::string_view name, bool start) {
    std::thread::id const thread = std::this_thread::get_id();

    std::shared_lock lock(profilesMutex);
    auto stackEntry = profileStacks.find(thread);
    auto profileEntry = profiles.find(thread);
    if (stackEntry == profileStacks.end() || profileEntry == profiles.end()) {
        // First scope of this thread: create its entries under the exclusive lock.
        lock.unlock();
        {
            std::unique_lock exclusive(profilesMutex);
            profiles.try_emplace(thread);
            profileStacks.try_emplace(thread);
        }
        lock.lock();
        stackEntry = profileStacks.find(thread);
        profileEntry = profiles.find(thread);
        // A Reset in between removed them again: this scope then records nothing.
        if (stackEntry == profileStacks.end() || profileEntry == profiles.end()) return;
    }
    std::vector<std::string>& stack = stackEntry->second;

    // The path is built in a buffer kept per thread, so that a path seen before
    // costs no allocation.
    thread_local std::string path;
    path.clear();
    for (std::string const& outer : stack) {
        path += outer;
        path += '/';
    }
    path += name;

    std::unordered_map<std::string, Profile>& records = profileEntry->second;
    auto record = records.find(path);
    if (record == records.end()) record = records.emplace(path, Profile{}).first;
    _record = &record->second;
    _generation = _resets;
    stack.emplace_back(name);

    if (start) _timer.Start();
}

void Profiler::Stop() {
    if (_record == nullptr) return;

    std::shared_lock lock(profilesMutex);
    if (_generation == _resets) {
        if (_timer.IsRunning()) {
            // Below 0 only by the timer's rounding or a clock set back.
            double const ms = std::max(_timer.GetElapsedMilliseconds(), 0.0);
            Profile& profile = *_record;
            ++profile.count;
            profile.total += ms;
            profile.min = profile.min == -1.0 ? ms : std::min(profile.min, ms);
            profile.max = std::max(profile.max, ms);
            _timer.Stop();
        }
        auto stack = profileStacks.find(std::this_thread::get_id());
        if (stack != profileStacks.end() && !stack->second.empty()) stack->second.pop_back();
    }
    _record = nullptr;
}

void Profiler::ForEach(Visitor const& visitor) {
    struct Entry {
        std::string threadName;
        std::string path;
        Profile profile;
    };
    std::vector<Entry> entries;
    {
        std::unique_lock lock(profilesMutex);
        for (auto const& [thread, records] : profiles) {
            std::string threadName;
            auto named = threadNames.find(thread);
            if (named != threadNames.end()) {
                threadName = named->second;
            } else {
                threadName = "----" + std::to_string(std::hash<std::thread::id>{}(thread));
            }
            for (auto const& [path, profile] : records) entries.push_back({threadName, path, profile});
        }
    }
    for (Entry const& entry : entries) visitor(entry.threadName, entry.path, entry.profile);
}

void Profiler::SetThreadName(std::string const& name) {
    {
        std::unique_lock lock(profilesMutex);
        threadNames[std::this_thread::get_id()] = name;
    }
    std::string const systemName = name.substr(0, systemThreadNameLength);
    pthread_setname_np(pthread_self(), systemName.c_str());
}

void Profiler::Reset() {
    std::unique_lock lock(profilesMutex);
    profiles.clear();
    profileStacks.clear();
    ++_resets;
}

} // namespace nerox::cpu
