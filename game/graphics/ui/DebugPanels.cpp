// The developer's windows (debug and profiling), the admin panel and the goals
// of adventure mode.
#include "game/graphics/ui/Panels.hpp"

#include "game/DebugInfo.hpp"
#include "game/Game.hpp"
#include "game/GameSettings.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "nerox/cpu/Profiler.hpp"

#include <imgui.h>

#include <algorithm>
#include <cstdio>
#include <mutex>

namespace game::graphics::ui {

namespace {

constexpr double ProfileRefreshSeconds = 0.25;

} // namespace

void Panels::DebugWindow() {
    ImGui::SetNextWindowPos(ImVec2(20.0f, 200.0f), ImGuiCond_FirstUseEver);
    if (!ImGui::Begin("Debug Window", &debugWindowOpen, ImGuiWindowFlags_AlwaysAutoResize)) {
        ImGui::End();
        return;
    }
    if (Game::_is_server) {
        ImGui::Text("Server Load: %3.1f %%", Game::serverFramerate.GetLoad() * 100.0);
        ImGui::Text("Server Ticks per second: %2.1f", Game::serverFramerate.GetRate());
        ImGui::Separator();
    }
    bool& debugView = _renderer != nullptr ? _renderer->debugFlag : _debugViewFallback;
    ImGui::Checkbox("Debug View", &debugView);
    float& scale = _renderer != nullptr ? _renderer->debugViewScale : _debugViewScaleFallback;
    ImGui::SliderFloat("Debug View Scale", &scale, 0.01f, 100.0f, "%.2f", ImGuiSliderFlags_Logarithmic);
    ImGui::Checkbox("Debug Client-Side Physics", &Game::debugClientSidePhysics);
    ImGui::Checkbox("Debug Server-Side Physics", &Game::debugServerSidePhysics);
    if (ImGui::TreeNode("Debug Info")) {
        std::lock_guard lock(DebugInfo::infosMutex);
        for (auto const& [name, value] : DebugInfo::infos)
            ImGui::Text("%s: %llu", name, static_cast<unsigned long long>(value));
        ImGui::TreePop();
    }
    ImGui::Checkbox("Show ImGui Metrics", &showImGuiMetrics);
    ImGui::Checkbox("Profiling Window", &profilingWindowOpen);
    ImGui::SameLine();
    if (ImGui::Button("Reset All Profiling")) nerox::cpu::Profiler::Reset();
    for (int i = 0; i < 5; ++i) {
        char label[16];
        std::snprintf(label, sizeof label, "Test Slider %d", i);
        ImGui::SliderFloat(label, &Game::testSlider[i], 0.0f, 1.0f, "%.3f");
    }
    ImGui::Checkbox("ui", &Game::uiVisible);
    ImGui::End();
}

void Panels::ProfilingWindow() {
    // Scopes are measured only while the window shows them (or the program
    // turned measuring on by itself, which closing the window leaves alone).
    if (!profilingWindowOpen) {
        if (_profilerTurnedOn) nerox::cpu::Profiler::enabled = _profilerWasEnabled;
        _profilerTurnedOn = false;
        return;
    }
    if (!_profilerTurnedOn) {
        _profilerWasEnabled = nerox::cpu::Profiler::enabled.load();
        nerox::cpu::Profiler::enabled = true;
        _profilerTurnedOn = true;
    }
    ImGuiIO const& io = ImGui::GetIO();
    _frameMs[_frameMsNext] = io.DeltaTime * 1000.0f;
    _frameMsNext = (_frameMsNext + 1) % _frameMs.size();

    double const now = ImGui::GetTime();
    if (_profileRefreshed < 0.0 || now - _profileRefreshed >= ProfileRefreshSeconds) {
        _profileRefreshed = now;
        size_t used = 0;
        nerox::cpu::Profiler::ForEach([this, &used](std::string const& thread, std::string const& path,
                                                    nerox::cpu::Profiler::Profile const& profile) {
            if (used == _profileRows.size()) _profileRows.emplace_back();
            ProfileRow& row = _profileRows[used++];
            row.thread = thread;
            row.path = path;
            row.count = profile.count;
            row.mean = profile.count > 0 ? profile.total / static_cast<double>(profile.count) : 0.0;
            row.min = std::max(profile.min, 0.0);
            row.max = profile.max;
        });
        _profileRows.resize(used);
        std::sort(_profileRows.begin(), _profileRows.end(), [](ProfileRow const& a, ProfileRow const& b) {
            return a.thread != b.thread ? a.thread < b.thread : a.path < b.path;
        });
    }

    ImGui::SetNextWindowPos(ImVec2(io.DisplaySize.x * 0.45f, 40.0f), ImGuiCond_FirstUseEver);
    ImGui::SetNextWindowSize(ImVec2(io.DisplaySize.x * 0.5f, io.DisplaySize.y * 0.5f), ImGuiCond_FirstUseEver);
    if (!ImGui::Begin("Profiling (milliseconds)", &profilingWindowOpen)) {
        ImGui::End();
        return;
    }
    float worst = 1.0f;
    for (float ms : _frameMs) worst = std::max(worst, ms);
    char overlay[48];
    std::snprintf(overlay, sizeof overlay, "frame time, up to %.1f ms", worst);
    ImGui::PlotLines("##frame_times", _frameMs.data(), static_cast<int>(_frameMs.size()),
                     static_cast<int>(_frameMsNext), overlay, 0.0f, worst * 1.1f, ImVec2(-1.0f, 60.0f));
    ImGuiTableFlags const flags =
        ImGuiTableFlags_Borders | ImGuiTableFlags_RowBg | ImGuiTableFlags_ScrollY | ImGuiTableFlags_SizingStretchProp;
    if (ImGui::BeginTable("##profiles", 6, flags)) {
        ImGui::TableSetupScrollFreeze(0, 1);
        for (char const* title : {"Thread", "Scope", "Count", "Mean", "Min", "Max"}) ImGui::TableSetupColumn(title);
        ImGui::TableHeadersRow();
        for (ProfileRow const& row : _profileRows) {
            ImGui::TableNextRow();
            ImGui::TableNextColumn();
            ImGui::TextUnformatted(row.thread.c_str());
            ImGui::TableNextColumn();
            ImGui::TextUnformatted(row.path.c_str());
            ImGui::TableNextColumn();
            ImGui::Text("%llu", static_cast<unsigned long long>(row.count));
            for (double value : {row.mean, row.min, row.max}) {
                ImGui::TableNextColumn();
                ImGui::Text("%.3f", value);
            }
        }
        ImGui::EndTable();
    }
    ImGui::End();
}

void Panels::AdminWindow() {
    if (!Game::settings || !Game::settings->Get(&GameSettings::admin_privileges)) {
        Game::adminWindowOpen = false;
        return;
    }
    ImGui::SetNextWindowPos(ImVec2(ImGui::GetIO().DisplaySize.x - 20.0f, 200.0f), ImGuiCond_FirstUseEver,
                            ImVec2(1.0f, 0.0f));
    if (!ImGui::Begin("Admin Panel", &Game::adminWindowOpen, ImGuiWindowFlags_AlwaysAutoResize)) {
        ImGui::End();
        return;
    }
    ImGui::Text("World: %s", Game::_current_world.c_str());
    static char const* const modes[] = {"Creative", "Adventure", "Survival"};
    int mode = std::clamp(Game::_mode, 0, 2);
    if (ImGui::Combo("Game Mode", &mode, modes, 3)) Game::_mode = mode;
    ImGui::Checkbox("World Time Running", &Game::timeActive);
    double hours = Game::timeOffset / 3600.0;
    if (ImGui::InputDouble("Time Offset (hours)", &hours, 1.0, 24.0, "%.2f")) Game::timeOffset = hours * 3600.0;
    ImGui::Checkbox("Measure Vehicle Performance", &Game::serverSideEntityPerformanceMetrics);
    ImGui::End();
}

void Panels::GoalsWindow() {
    ImGuiIO const& io = ImGui::GetIO();
    ImGui::SetNextWindowPos(ImVec2(io.DisplaySize.x - 20.0f, io.DisplaySize.y * 0.5f), ImGuiCond_FirstUseEver,
                            ImVec2(1.0f, 0.5f));
    ImGui::SetNextWindowBgAlpha(0.6f);
    if (ImGui::Begin("Goals##Adventure", &goalsWindowOpen,
                     ImGuiWindowFlags_AlwaysAutoResize | ImGuiWindowFlags_NoFocusOnAppearing)) {
        for (char const* goal : AdventureGoals) ImGui::BulletText("%s", goal);
    }
    ImGui::End();
}

} // namespace game::graphics::ui
