#include <mutex>
#include <string>
#include <vector>

#include "ModuleTestSupport.hpp"
#include "fixtures/Recorder.hpp"

namespace {
std::mutex recorderMutex;
std::vector<std::string> recordedEvents;
} // namespace

extern "C" void ModuleFixtureRecord(char const* event) {
    std::lock_guard lock(recorderMutex);
    recordedEvents.emplace_back(event);
}

namespace game::modules::testing {

std::vector<std::string> RecordedEvents() {
    std::lock_guard lock(recorderMutex);
    return recordedEvents;
}

void ClearRecordedEvents() {
    std::lock_guard lock(recorderMutex);
    recordedEvents.clear();
}

void Record(std::string const& event) { ModuleFixtureRecord(event.c_str()); }

} // namespace game::modules::testing
