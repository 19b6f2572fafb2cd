#include "nerox/cpu/ThreadPool.hpp"

#include "nerox/Assert.hpp"

#include <pthread.h>

namespace nerox::cpu {

namespace {

/// Longest thread name the system takes, without the terminating zero.
constexpr size_t systemThreadNameLength = 15;

} // namespace

ThreadPoolBase::ThreadPoolBase(std::string name) : _name(std::move(name)) { }

ThreadPoolBase::~ThreadPoolBase() {
    Shutdown();
}

void ThreadPoolBase::RunThreads(size_t count, std::function<void()> initFunction) {
    {
        std::lock_guard guard(_mutex);
        _targetCount = count;
    }
    _condition.notify_all();

    while (_threads.size() > count) {
        NEROX_ASSERT(_threads.back().get_id() != std::this_thread::get_id());
        _threads.back().join();
        _threads.pop_back();
    }
    _threads.reserve(count);
    while (_threads.size() < count) {
        size_t const index = _threads.size();
        _threads.emplace_back([this, index, initFunction] { ThreadMain(index, initFunction); });
    }
}

void ThreadPoolBase::Shutdown() {
    {
        std::lock_guard guard(_mutex);
        _targetCount = 0;
    }
    _condition.notify_all();
    for (std::thread& thread : _threads) {
        NEROX_ASSERT(thread.get_id() != std::this_thread::get_id());
        thread.join();
    }
    _threads.clear();
}

std::string const& ThreadPoolBase::GetName() const {
    return _name;
}

size_t ThreadPoolBase::GetThreadCount() const {
    return _threads.size();
}

size_t ThreadPoolBase::GetTargetCount() const {
    std::lock_guard guard(_mutex);
    return _targetCount;
}

void ThreadPoolBase::ReportCurrentException() const {
    std::string line;
    try {
        throw;
    } catch (std::exception const& exception) {
        line = "Exception occured in a ThreadPool " + _name + ": " + exception.what();
    } catch (...) {
        line = "Unknown Exception occured in ThreadPool " + _name;
    }
    std::cerr << line << std::endl;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
}

void ThreadPoolBase::ThreadMain(size_t index, std::function<void()> const& initFunction) {
    std::string const systemName = _name.substr(0, systemThreadNameLength);
    pthread_setname_np(pthread_self(), systemName.c_str());
    if (initFunction) {
        try {
            initFunction();
        } catch (...) {
            ReportCurrentException();
        }
    }
    WorkerLoop(index);
}

} // namespace nerox::cpu
