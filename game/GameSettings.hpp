#pragma once
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "nerox/filesystem/ConfigFile.hpp"
#include "nerox/filesystem/FilePath.hpp"

namespace game {

/// The user's settings file. Every key is a public member named after it.
///
/// Threads: the file is re-read in the background when it changes on disk, and
/// the reload rewrites the members under GetMutex(). So read members under that
/// lock: one with Get(&GameSettings::fov), several by holding
/// std::lock_guard lock(settings.GetMutex()) while copying them. Never keep a
/// reference or pointer into a member (a string's characters go with a reload),
/// and never change a member in place to read it: change members only under the
/// lock, then call WriteConfig() under it as well. The lock is not recursive:
/// while holding it, call nothing that reads settings itself (Get,
/// Game::GetUiScaling, Game::ShowHelpTooltip, Game::SetupUiStyle).
///
/// Section "game" also has two hidden keys, debug_window and dev_tools: they are
/// read when present but never added to or written into the file.
class GameSettings : public nerox::filesystem::ConfigFile {
public:
    using InputBinding = nerox::filesystem::ConfigFile::InputBinding;

    /// The shared settings object of the file at path: created and read on first
    /// use, shared while anyone holds it, read from disk again after the last user let go.
    static std::shared_ptr<GameSettings> Instance(nerox::filesystem::FilePath path, std::optional<int> reloadInterval);

    /// Sets the defaults, reads the file (adding missing visible keys) and starts the reload thread.
    GameSettings(std::string const& path, std::optional<int> reloadInterval);
    /// Stops the reload thread before the members go away.
    ~GameSettings() override;

    /// What one graphics preset sets; any other preset number leaves the settings unchanged.
    struct GraphicsPreset {
        int32_t preset;                    ///< Value of graphics_preset.
        int32_t upscaling_quality_setting; ///< Upscaler quality it sets.
        float final_upscale;               ///< Final upscale factor it sets.
    };
    /// The presets 1 to 6. -1 (the default) and every other value mean a custom configuration.
    static constexpr GraphicsPreset graphicsPresets[] = {
        {1, 1, 2.0f}, {2, 1, 1.5f}, {3, 1, 0.0f}, {4, 1, 0.0f}, {5, 2, 1.0f}, {6, 3, 1.0f},
    };
    /// The preset of that number, or null for a custom configuration.
    static GraphicsPreset const* FindGraphicsPreset(int32_t preset);
    /// The default of a binding member (what a new settings file has); none for any other member.
    static InputBinding DefaultBinding(InputBinding GameSettings::*member);

    /// A copy of one member, taken under GetMutex().
    template <class T> T Get(T GameSettings::*member) {
        std::lock_guard<std::mutex> lock(GetMutex());
        return this->*member;
    }

    /// Reads every section into the members; visible keys missing from the file are added.
    void ReadConfig() override;
    /// Writes every visible key into the file; the hidden keys are left as the file has them.
    void WriteConfig() override;

    // ---- game
    bool show_help_tooltips = true;
    bool admin_privileges = false;
    bool debug_window = false; ///< Hidden: read, never written.
    bool dev_tools = false;    ///< Hidden: read, never written.

    // ---- graphics
    int32_t graphics_preset = -1;
    int32_t framerate_limit_main_rendering = 0;
    bool vsync = false;
    float fov = 70.0f;
    bool taa = true;
    float render_scale = 1.0f;
    float ui_scaling = 1.0f;
    std::string upscaling_algo = "AUTO";
    int32_t upscaling_quality_setting = 1;
    float upscaling_sharpness = 0.675f;
    float final_upscale = 0.0f;
    bool tone_mapping = true;
    bool dithering = true;
    float brightness = 1.0f;
    float contrast = 1.0f;
    float gamma = 2.4f;
    bool terrain_clutter = true;
    float terrain_detail = 1.0f;

    // ---- performance
    int32_t main_thread_cpu_affinity = -1;

    // ---- ide
    float ide_zoom = 1.0f;
    float ide_opacity = 0.7f;

    // ---- audio
    float master_volume = 0.5f;
    float entities_volume = 0.5f;
    float interface_volume = 1.0f;
    float environment_volume = 0.5f;

    // ---- input (binding defaults are set by the constructor)
    float look_sensitivity = 2.0f;
    bool avatar_mouselook_invert_y = false;
    InputBinding input_binding_input_chat;
    InputBinding input_binding_sit;
    InputBinding input_binding_third_person;
    InputBinding input_binding_zoom;
    InputBinding input_binding_avatar_jump;
    InputBinding input_binding_avatar_look_toggle;
    InputBinding input_binding_get_info;
    InputBinding input_binding_avatar_interact;
    InputBinding input_binding_avatar_light;
    InputBinding input_binding_avatar_sprint;
    InputBinding input_binding_avatar_crouch;
    InputBinding input_binding_avatar_jetpack;
    InputBinding input_binding_avatar_inventory_toggle;
    InputBinding input_binding_avatar_inventory_select_prev;
    InputBinding input_binding_avatar_inventory_select_next;
    InputBinding input_binding_avatar_inventory_select_1;
    InputBinding input_binding_avatar_inventory_select_2;
    InputBinding input_binding_avatar_inventory_select_3;
    InputBinding input_binding_avatar_inventory_select_4;
    InputBinding input_binding_avatar_inventory_select_5;
    InputBinding input_binding_avatar_inventory_select_6;
    InputBinding input_binding_avatar_inventory_select_7;
    InputBinding input_binding_avatar_inventory_select_8;
    InputBinding input_binding_avatar_inventory_select_9;
    InputBinding input_binding_avatar_inventory_deselect;
    InputBinding input_binding_avatar_tool_primary;
    InputBinding input_binding_avatar_tool_secondary;
    InputBinding input_binding_avatar_tool_configure;
    InputBinding input_binding_avatar_tool_special_mode;
    InputBinding input_binding_avatar_translate_forward;
    InputBinding input_binding_avatar_translate_backward;
    InputBinding input_binding_avatar_translate_left;
    InputBinding input_binding_avatar_translate_right;
    InputBinding input_binding_avatar_roll_left;
    InputBinding input_binding_avatar_roll_right;
    InputBinding input_binding_avatar_pitch_up;
    InputBinding input_binding_avatar_pitch_down;
    InputBinding input_binding_avatar_yaw_left;
    InputBinding input_binding_avatar_yaw_right;
    InputBinding input_binding_vehicle_gamepad_look_toggle;
    InputBinding input_binding_vehicle_aux_0;
    InputBinding input_binding_vehicle_aux_1;
    InputBinding input_binding_vehicle_aux_2;
    InputBinding input_binding_vehicle_aux_3;
    InputBinding input_binding_vehicle_aux_4;
    InputBinding input_binding_vehicle_aux_5;
    InputBinding input_binding_vehicle_aux_6;
    InputBinding input_binding_vehicle_aux_7;
    InputBinding input_binding_vehicle_aux_8;
    InputBinding input_binding_vehicle_aux_9;
    InputBinding input_binding_vehicle_translate_up;
    InputBinding input_binding_vehicle_translate_down;
    InputBinding input_binding_vehicle_roll_left;
    InputBinding input_binding_vehicle_roll_right;
    InputBinding input_binding_vehicle_translate_forward;
    InputBinding input_binding_vehicle_translate_backward;
    InputBinding input_binding_vehicle_translate_left;
    InputBinding input_binding_vehicle_translate_right;
    InputBinding input_binding_vehicle_pitch_up;
    InputBinding input_binding_vehicle_pitch_down;
    InputBinding input_binding_vehicle_yaw_left;
    InputBinding input_binding_vehicle_yaw_right;
    InputBinding input_binding_vehicle_main_thrust;
    float input_gamepad_axis_deadzone = 0.1f;
    float input_joystick_axis_deadzone = 0.1f;

private:
    // The key lists of each section, bound to the members, in file order.
    std::vector<Conf> HiddenGameEntries();
    std::vector<Conf> GameEntries();
    std::vector<Conf> GraphicsEntries();
    std::vector<Conf> PerformanceEntries();
    std::vector<Conf> IdeEntries();
    std::vector<Conf> AudioEntries();
    std::vector<Conf> InputEntries();
};

} // namespace game
