// The settings window: its head (frame rate, game mode, saving) and the help,
// graphics and audio tabs. The input tab is in BindingsPanel.cpp.
#include "game/graphics/ui/Panels.hpp"

#include "game/Game.hpp"
#include "game/GameSettings.hpp"
#include "game/graphics/GameRenderer.hpp"

#include <imgui.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <string>
#include <strings.h>

namespace game::graphics::ui {

namespace {

using S = GameSettings;

// A grey hint line under a control.
void Hint(char const* text) {
    ImGui::TextDisabled("%s", text);
}

void SliderPercent(char const* label, float& value) {
    ImGui::SliderFloat(label, &value, 0.0f, 1.0f, "%.2f");
}

} // namespace

Panels::Panels(GameRenderer* renderer) : _renderer(renderer) {
    openLink = [](char const* link) {
        std::string const command = std::string("xdg-open ") + link + " &";
        if (std::system(command.c_str()) != 0) std::cerr << "Could not open " << link << '\n';
    };
}

void Panels::Draw() {
    if (Game::settingsWindowOpen)
        SettingsWindow();
    else
        EndCapture(); // closed from outside (F1, the menu) while a binding was being edited
    if (debugWindowOpen) DebugWindow();
    ProfilingWindow(); // also notices that it was closed
    if (Game::adminWindowOpen) AdminWindow();
    if (goalsWindowOpen && Game::_mode == 1) GoalsWindow();
    if (showImGuiMetrics) ImGui::ShowMetricsWindow(&showImGuiMetrics);
}

void Panels::SettingsWindow() {
    ImGuiIO const& io = ImGui::GetIO();
    ImGui::SetNextWindowPos(ImVec2(io.DisplaySize.x * 0.5f, io.DisplaySize.y * 0.08f), ImGuiCond_FirstUseEver,
                            ImVec2(0.5f, 0.0f));
    float const width = std::min(io.DisplaySize.x * 0.95f, std::max(io.DisplaySize.x * 0.6f, 820.0f));
    ImGui::SetNextWindowSize(ImVec2(width, io.DisplaySize.y * 0.8f), ImGuiCond_FirstUseEver);
    if (!ImGui::Begin("Settings", &Game::settingsWindowOpen)) {
        ImGui::End();
        if (!Game::settingsWindowOpen) EndCapture();
        return;
    }
    ImGui::Text("Rendering at %.1f FPS", Game::mainRenderingFramerate.GetRate());
    ImGui::TextUnformatted(Game::_mode == 0       ? "Game Mode: Creative"
                               : Game::_mode == 1 ? "Game Mode: Adventure"
                                                  : "Game Mode: Survival");
    char const* link = nullptr; // opened once the settings' lock is released
    if (Game::settings) {
        GameSettings& settings = *Game::settings;
        // Held for the whole window: the controls point into the members, and the
        // file's reload thread rewrites them under this lock.
        std::lock_guard lock(settings.GetMutex());
        ImGui::SameLine(ImGui::GetWindowWidth() * 0.7f);
        if (ImGui::Button("Save Settings")) {
            try {
                settings.WriteConfig();
            } catch (std::exception const& failure) {
                std::cerr << "Settings not saved: " << failure.what() << '\n';
            }
        }
        ImGui::Separator();
        if (ImGui::BeginTabBar("##SettingsTabs")) {
            if (ImGui::BeginTabItem("Help##Settings")) {
                link = HelpTab(settings);
                ImGui::EndTabItem();
            }
            if (ImGui::BeginTabItem("Graphics##Settings")) {
                GraphicsTab(settings);
                ImGui::EndTabItem();
            }
            if (ImGui::BeginTabItem("Audio##Settings")) {
                AudioTab(settings);
                ImGui::EndTabItem();
            }
            if (ImGui::BeginTabItem("Input##Settings")) {
                InputTab(settings);
                ImGui::EndTabItem();
            } else {
                EndCapture();
            }
            ImGui::EndTabBar();
        }
    }
    ImGui::End();
    if (!Game::settingsWindowOpen) EndCapture();
    if (link != nullptr) openLink(link);
}

char const* Panels::HelpTab(GameSettings& s) {
    char const* link = nullptr;
    ImGui::Checkbox("Show Help Tooltips", &s.show_help_tooltips);
    if (ImGui::Button("Documentation")) link = DocumentationLink;
    ImGui::SameLine();
    if (ImGui::Button("Get Help on Discord")) link = ChatLink;
    ImGui::SameLine();
    if (ImGui::Button("Tutorial Videos")) link = VideosLink;
    ImGui::Separator();

    for (std::string const& line : HelpLines(s)) ImGui::BulletText("%s", line.c_str());
    return link;
}

std::vector<std::string> const& Panels::HelpLines(GameSettings& s) {
    if (!RefreshBindingTexts(s) && !_helpLines.empty()) return _helpLines;
    _helpLines.clear();
    auto const add = [this](char const* format, char const* first, char const* second = nullptr) {
        char text[160];
        std::snprintf(text, sizeof text, format, first, second);
        _helpLines.emplace_back(text);
    };
    auto const key = [this](InputBinding GameSettings::*member) { return ShortTextOf(member); };
    add("%s", "Quick-Press LEFT_ALT to release mouse cursor");
    add("Press %s to toggle chat window", key(&S::input_binding_input_chat));
    add("Press %s to toggle backpack (inventory)", key(&S::input_binding_avatar_inventory_toggle));
    add("Press %s through %s to select an item/tool in your belt", key(&S::input_binding_avatar_inventory_select_1),
        key(&S::input_binding_avatar_inventory_select_9));
    add("Click %s to use tool's primary function", key(&S::input_binding_avatar_tool_primary));
    add("Click %s to use tool's secondary function", key(&S::input_binding_avatar_tool_secondary));
    add("Press %s to interact with the component you're aiming", key(&S::input_binding_avatar_interact));
    add("Hold %s to configure the current tool", key(&S::input_binding_avatar_tool_configure));
    add("Hold %s to use special mode on your tool", key(&S::input_binding_avatar_tool_special_mode));
    add("Press %s for external view (zoom with mouse wheel)", key(&S::input_binding_third_person));
    add("Press or Hold %s to Zoom in/out", key(&S::input_binding_zoom));
    add("Press %s to toggle Headlamp", key(&S::input_binding_avatar_light));
    add("Press %s to toggle Jetpack", key(&S::input_binding_avatar_jetpack));
    add("Press %s to get info or edit the component you're aiming", key(&S::input_binding_get_info));
    add("Press %s to sit on the seat you're aiming", key(&S::input_binding_sit));
    add("Hold %s for one second to exit a seat", key(&S::input_binding_sit));
    for (char const* text :
         {"Press F1 to toggle Settings Panel (this one)", "Press F2 to toggle Drone Mode (NoClip)",
          "Press F3 to toggle UI overlays", "Press F4 to toggle Admin Panel", "Press F7 to toggle Dev Window",
          "Press Shift+F10 to respawn (drops inventory in adventure mode)", "Press F11 to toggle Full Screen mode",
          "Press F12 to take a screenshot", "Hold ESCAPE for two seconds to quit the game"})
        add("%s", text);
    return _helpLines;
}

void Panels::GraphicsTab(GameSettings& s) {
    std::array<char const*, 7> const& presets =
        _renderer != nullptr ? _renderer->graphicsPresetNames : GameRenderer::GraphicsPresetLabels;
    int const current = std::clamp(s.graphics_preset, 0, static_cast<int>(presets.size()) - 1);
    ImGui::SetNextItemWidth(-1.0f);
    if (ImGui::BeginCombo("##graphics_preset", presets[current])) {
        for (int i = 0; i < static_cast<int>(presets.size()); ++i) {
            if (ImGui::Selectable(presets[i], i == current) && i != s.graphics_preset) {
                s.graphics_preset = i;
                GameRenderer::ConfigureSettingsFromPreset();
            }
        }
        ImGui::EndCombo();
    }
    ImGui::Checkbox("V-Sync", &s.vsync);
    ImGui::SliderFloat("Field Of View", &s.fov, 40.0f, 120.0f, "%.0f");
    ImGui::SliderFloat("Gamma", &s.gamma, 1.0f, 3.0f, "%.2f");
    if (ImGui::SliderFloat("UI Scaling", &s.ui_scaling, 0.5f, 3.0f, "%.2f")) styleChanged = true;

    bool const custom = s.graphics_preset <= 0;
    if (custom) {
        ImGui::TextUnformatted("Performance / Quality");
        int quality = std::clamp(s.upscaling_quality_setting, 0, static_cast<int>(ResolutionLabels.size()) - 1);
        ImGui::SetNextItemWidth(-1.0f);
        if (ImGui::SliderInt("##Performance/Quality", &quality, 0, static_cast<int>(ResolutionLabels.size()) - 1,
                             ResolutionLabels[quality]))
            s.upscaling_quality_setting = quality;
        bool automatic = s.final_upscale == 0.0f;
        if (ImGui::Checkbox("Automatic Final Render Upscale (clamp to 1440p)", &automatic))
            s.final_upscale = automatic ? 0.0f : 1.0f;
        if (automatic) {
            Hint("Best performance: Uncheck and increase value to your taste");
        } else {
            ImGui::SliderFloat("##final_upscale", &s.final_upscale, 1.0f, 4.0f, "%.2f");
            Hint("Higher value +FPS but +Fuzzy");
        }
    } else {
        Hint("Use Custom Graphics Settings for more control over quality/performance");
    }
    Hint("If you're still not happy, try \"Advanced Graphics\" below");
    if (!ImGui::CollapsingHeader("Advanced Graphics")) return;
    ImGui::SliderInt("Limit Render Framerate", &s.framerate_limit_main_rendering, 0, 240, "%d");
    ImGui::SliderFloat("Brightness", &s.brightness, 0.1f, 2.0f, "%.2f");
    ImGui::SliderFloat("Contrast", &s.contrast, 0.1f, 2.0f, "%.2f");
    ImGui::Checkbox("Tone Mapping", &s.tone_mapping);
    ImGui::Checkbox("Dithering", &s.dithering);
    ImGui::Checkbox("TAA", &s.taa);
    static std::vector<char const*> const fallback{"NONE"};
    std::vector<char const*> const& algorithms = _renderer != nullptr ? _renderer->upscalingAlgoNames : fallback;
    if (ImGui::BeginCombo("Upscaling Algo", s.upscaling_algo.c_str())) {
        for (char const* name : algorithms)
            if (ImGui::Selectable(name, strcasecmp(s.upscaling_algo.c_str(), name) == 0)) s.upscaling_algo = name;
        ImGui::EndCombo();
    }
    bool overrideScale = s.render_scale != 1.0f;
    if (ImGui::Checkbox("Override Render Scale", &overrideScale)) s.render_scale = overrideScale ? 0.75f : 1.0f;
    if (overrideScale) ImGui::SliderFloat("Render Scale", &s.render_scale, 0.25f, 2.0f, "%.2f");
    ImGui::SliderFloat("Upscaling Sharpness", &s.upscaling_sharpness, 0.0f, 1.0f, "%.3f");
    int quality = std::clamp(s.upscaling_quality_setting, 0, static_cast<int>(ResolutionLabels.size()) - 1);
    if (ImGui::BeginCombo("Resolution (DLSS mode)", ResolutionLabels[quality])) {
        for (int i = 0; i < static_cast<int>(ResolutionLabels.size()); ++i)
            if (ImGui::Selectable(ResolutionLabels[i], i == quality)) s.upscaling_quality_setting = i;
        ImGui::EndCombo();
    }
}

void Panels::AudioTab(GameSettings& s) {
    SliderPercent("Master Volume", s.master_volume);
    SliderPercent("Entities Volume", s.entities_volume);
    SliderPercent("Interface Volume", s.interface_volume);
    SliderPercent("Environment Volume", s.environment_volume);
}

} // namespace game::graphics::ui
