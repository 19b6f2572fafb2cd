#include "game/GameSettings.hpp"

#include <mutex>
#include <unordered_map>

#include <GLFW/glfw3.h>

namespace game {

namespace {

using InputBinding = GameSettings::InputBinding;

/// The default of one input binding: keyboard key or mouse button, then the
/// gamepad record (joysticks[0]) and the named joystick record (joysticks[1]).
/// A field left out means none; a direction left out means +1.
struct BindingDefault {
    char const* name;
    InputBinding GameSettings::*member;
    int keyboard = -1;  // GLFW key code
    int mouse = -1;     // mouse button
    int padButton = -1; // first gamepad
    int padAxis = -1;
    int padDir = 1;
    int joyAxis = -1; // second (named joystick) record
    int joyDir = 1;
};

using S = GameSettings;

// The input section's bindings, in file order.
BindingDefault const Bindings[] = {
    {.name = "input_binding_input_chat", .member = &S::input_binding_input_chat, .keyboard = GLFW_KEY_ENTER},
    {.name = "input_binding_sit", .member = &S::input_binding_sit, .keyboard = GLFW_KEY_R, .padButton = 1},
    {.name = "input_binding_third_person", .member = &S::input_binding_third_person, .keyboard = GLFW_KEY_K},
    {.name = "input_binding_zoom", .member = &S::input_binding_zoom, .keyboard = GLFW_KEY_Z},
    {.name = "input_binding_avatar_jump",
     .member = &S::input_binding_avatar_jump,
     .keyboard = GLFW_KEY_SPACE,
     .padButton = 0},
    {.name = "input_binding_avatar_look_toggle",
     .member = &S::input_binding_avatar_look_toggle,
     .keyboard = GLFW_KEY_LEFT_ALT},
    {.name = "input_binding_get_info", .member = &S::input_binding_get_info, .keyboard = GLFW_KEY_V, .padButton = 2},
    {.name = "input_binding_avatar_interact",
     .member = &S::input_binding_avatar_interact,
     .keyboard = GLFW_KEY_F,
     .padButton = 3},
    {.name = "input_binding_avatar_light",
     .member = &S::input_binding_avatar_light,
     .keyboard = GLFW_KEY_L,
     .padButton = 5},
    {.name = "input_binding_avatar_sprint",
     .member = &S::input_binding_avatar_sprint,
     .keyboard = GLFW_KEY_LEFT_SHIFT,
     .padButton = 9},
    {.name = "input_binding_avatar_crouch",
     .member = &S::input_binding_avatar_crouch,
     .keyboard = GLFW_KEY_LEFT_CONTROL,
     .padButton = 10},
    {.name = "input_binding_avatar_jetpack",
     .member = &S::input_binding_avatar_jetpack,
     .keyboard = GLFW_KEY_J,
     .padButton = 4},
    {.name = "input_binding_avatar_inventory_toggle",
     .member = &S::input_binding_avatar_inventory_toggle,
     .keyboard = GLFW_KEY_TAB,
     .padButton = 11},
    {.name = "input_binding_avatar_inventory_select_prev",
     .member = &S::input_binding_avatar_inventory_select_prev,
     .keyboard = GLFW_KEY_MINUS,
     .padButton = 14},
    {.name = "input_binding_avatar_inventory_select_next",
     .member = &S::input_binding_avatar_inventory_select_next,
     .keyboard = GLFW_KEY_EQUAL,
     .padButton = 12},
    {.name = "input_binding_avatar_inventory_select_1",
     .member = &S::input_binding_avatar_inventory_select_1,
     .keyboard = GLFW_KEY_1},
    {.name = "input_binding_avatar_inventory_select_2",
     .member = &S::input_binding_avatar_inventory_select_2,
     .keyboard = GLFW_KEY_2},
    {.name = "input_binding_avatar_inventory_select_3",
     .member = &S::input_binding_avatar_inventory_select_3,
     .keyboard = GLFW_KEY_3},
    {.name = "input_binding_avatar_inventory_select_4",
     .member = &S::input_binding_avatar_inventory_select_4,
     .keyboard = GLFW_KEY_4},
    {.name = "input_binding_avatar_inventory_select_5",
     .member = &S::input_binding_avatar_inventory_select_5,
     .keyboard = GLFW_KEY_5},
    {.name = "input_binding_avatar_inventory_select_6",
     .member = &S::input_binding_avatar_inventory_select_6,
     .keyboard = GLFW_KEY_6},
    {.name = "input_binding_avatar_inventory_select_7",
     .member = &S::input_binding_avatar_inventory_select_7,
     .keyboard = GLFW_KEY_7},
    {.name = "input_binding_avatar_inventory_select_8",
     .member = &S::input_binding_avatar_inventory_select_8,
     .keyboard = GLFW_KEY_8},
    {.name = "input_binding_avatar_inventory_select_9",
     .member = &S::input_binding_avatar_inventory_select_9,
     .keyboard = GLFW_KEY_9},
    {.name = "input_binding_avatar_inventory_deselect",
     .member = &S::input_binding_avatar_inventory_deselect,
     .keyboard = GLFW_KEY_GRAVE_ACCENT,
     .padButton = 13},
    {.name = "input_binding_avatar_tool_primary",
     .member = &S::input_binding_avatar_tool_primary,
     .mouse = GLFW_MOUSE_BUTTON_LEFT},
    {.name = "input_binding_avatar_tool_secondary",
     .member = &S::input_binding_avatar_tool_secondary,
     .mouse = GLFW_MOUSE_BUTTON_RIGHT},
    {.name = "input_binding_avatar_tool_configure",
     .member = &S::input_binding_avatar_tool_configure,
     .keyboard = GLFW_KEY_C},
    {.name = "input_binding_avatar_tool_special_mode",
     .member = &S::input_binding_avatar_tool_special_mode,
     .keyboard = GLFW_KEY_X},
    {.name = "input_binding_avatar_translate_forward",
     .member = &S::input_binding_avatar_translate_forward,
     .keyboard = GLFW_KEY_W,
     .padAxis = 1,
     .padDir = -1},
    {.name = "input_binding_avatar_translate_backward",
     .member = &S::input_binding_avatar_translate_backward,
     .keyboard = GLFW_KEY_S,
     .padAxis = 1},
    {.name = "input_binding_avatar_translate_left",
     .member = &S::input_binding_avatar_translate_left,
     .keyboard = GLFW_KEY_A,
     .padAxis = 0,
     .padDir = -1},
    {.name = "input_binding_avatar_translate_right",
     .member = &S::input_binding_avatar_translate_right,
     .keyboard = GLFW_KEY_D,
     .padAxis = 0},
    {.name = "input_binding_avatar_roll_left", .member = &S::input_binding_avatar_roll_left, .keyboard = GLFW_KEY_Q},
    {.name = "input_binding_avatar_roll_right", .member = &S::input_binding_avatar_roll_right, .keyboard = GLFW_KEY_E},
    {.name = "input_binding_avatar_pitch_up", .member = &S::input_binding_avatar_pitch_up, .padAxis = 3},
    {.name = "input_binding_avatar_pitch_down",
     .member = &S::input_binding_avatar_pitch_down,
     .padAxis = 3,
     .padDir = -1},
    {.name = "input_binding_avatar_yaw_left", .member = &S::input_binding_avatar_yaw_left, .padAxis = 2, .padDir = -1},
    {.name = "input_binding_avatar_yaw_right", .member = &S::input_binding_avatar_yaw_right, .padAxis = 2},
    {.name = "input_binding_vehicle_gamepad_look_toggle",
     .member = &S::input_binding_vehicle_gamepad_look_toggle,
     .padButton = 10},
    {.name = "input_binding_vehicle_aux_0",
     .member = &S::input_binding_vehicle_aux_0,
     .keyboard = GLFW_KEY_0,
     .padButton = 0},
    {.name = "input_binding_vehicle_aux_1",
     .member = &S::input_binding_vehicle_aux_1,
     .keyboard = GLFW_KEY_1,
     .padButton = 2},
    {.name = "input_binding_vehicle_aux_2",
     .member = &S::input_binding_vehicle_aux_2,
     .keyboard = GLFW_KEY_2,
     .padButton = 3},
    {.name = "input_binding_vehicle_aux_3",
     .member = &S::input_binding_vehicle_aux_3,
     .keyboard = GLFW_KEY_3,
     .padButton = 5},
    {.name = "input_binding_vehicle_aux_4",
     .member = &S::input_binding_vehicle_aux_4,
     .keyboard = GLFW_KEY_4,
     .padButton = 4},
    {.name = "input_binding_vehicle_aux_5",
     .member = &S::input_binding_vehicle_aux_5,
     .keyboard = GLFW_KEY_5,
     .padButton = 9},
    {.name = "input_binding_vehicle_aux_6", .member = &S::input_binding_vehicle_aux_6, .keyboard = GLFW_KEY_6},
    {.name = "input_binding_vehicle_aux_7", .member = &S::input_binding_vehicle_aux_7, .keyboard = GLFW_KEY_7},
    {.name = "input_binding_vehicle_aux_8", .member = &S::input_binding_vehicle_aux_8, .keyboard = GLFW_KEY_8},
    {.name = "input_binding_vehicle_aux_9", .member = &S::input_binding_vehicle_aux_9, .keyboard = GLFW_KEY_9},
    {.name = "input_binding_vehicle_translate_up",
     .member = &S::input_binding_vehicle_translate_up,
     .keyboard = GLFW_KEY_SPACE,
     .padButton = 11},
    {.name = "input_binding_vehicle_translate_down",
     .member = &S::input_binding_vehicle_translate_down,
     .keyboard = GLFW_KEY_LEFT_CONTROL,
     .padButton = 13},
    {.name = "input_binding_vehicle_roll_left",
     .member = &S::input_binding_vehicle_roll_left,
     .keyboard = GLFW_KEY_Q,
     .padButton = 14,
     .joyAxis = 0,
     .joyDir = -1},
    {.name = "input_binding_vehicle_roll_right",
     .member = &S::input_binding_vehicle_roll_right,
     .keyboard = GLFW_KEY_E,
     .padButton = 12,
     .joyAxis = 0},
    {.name = "input_binding_vehicle_translate_forward",
     .member = &S::input_binding_vehicle_translate_forward,
     .keyboard = GLFW_KEY_W,
     .padAxis = 1,
     .padDir = -1},
    {.name = "input_binding_vehicle_translate_backward",
     .member = &S::input_binding_vehicle_translate_backward,
     .keyboard = GLFW_KEY_S,
     .padAxis = 1},
    {.name = "input_binding_vehicle_translate_left",
     .member = &S::input_binding_vehicle_translate_left,
     .keyboard = GLFW_KEY_A,
     .padAxis = 0,
     .padDir = -1},
    {.name = "input_binding_vehicle_translate_right",
     .member = &S::input_binding_vehicle_translate_right,
     .keyboard = GLFW_KEY_D,
     .padAxis = 0},
    {.name = "input_binding_vehicle_pitch_up",
     .member = &S::input_binding_vehicle_pitch_up,
     .keyboard = GLFW_KEY_DOWN,
     .padAxis = 3,
     .joyAxis = 1},
    {.name = "input_binding_vehicle_pitch_down",
     .member = &S::input_binding_vehicle_pitch_down,
     .keyboard = GLFW_KEY_UP,
     .padAxis = 3,
     .padDir = -1,
     .joyAxis = 1,
     .joyDir = -1},
    {.name = "input_binding_vehicle_yaw_left",
     .member = &S::input_binding_vehicle_yaw_left,
     .keyboard = GLFW_KEY_LEFT,
     .padAxis = 2,
     .padDir = -1,
     .joyAxis = 3,
     .joyDir = -1},
    {.name = "input_binding_vehicle_yaw_right",
     .member = &S::input_binding_vehicle_yaw_right,
     .keyboard = GLFW_KEY_RIGHT,
     .padAxis = 2,
     .joyAxis = 3},
    {.name = "input_binding_vehicle_main_thrust",
     .member = &S::input_binding_vehicle_main_thrust,
     .keyboard = GLFW_KEY_T,
     .padAxis = 5,
     .joyAxis = 2},
};

InputBinding MakeBinding(BindingDefault const& row) {
    InputBinding binding;
    binding.key = row.keyboard;
    binding.mouseButton = row.mouse;
    binding.joysticks[0].button = row.padButton;
    binding.joysticks[0].axis = static_cast<int16_t>(row.padAxis);
    binding.joysticks[0].axisDirection = static_cast<int16_t>(row.padDir);
    binding.joysticks[1].axis = static_cast<int16_t>(row.joyAxis);
    binding.joysticks[1].axisDirection = static_cast<int16_t>(row.joyDir);
    return binding;
}

} // namespace

std::shared_ptr<GameSettings> GameSettings::Instance(nerox::filesystem::FilePath path,
                                                     std::optional<int> reloadInterval) {
    static std::mutex mutex;
    static std::unordered_map<std::string, std::weak_ptr<GameSettings>> instances;
    std::lock_guard<std::mutex> lock(mutex);
    std::weak_ptr<GameSettings>& entry = instances[path.GetPath()];
    if (std::shared_ptr<GameSettings> existing = entry.lock()) return existing;
    auto created = std::make_shared<GameSettings>(path.GetPath(), reloadInterval);
    entry = created;
    return created;
}

GameSettings::GameSettings(std::string const& path, std::optional<int> reloadInterval)
    : ConfigFile(path, reloadInterval) {
    // Scalar defaults are the member initialisers; the bindings come from the table.
    for (BindingDefault const& row : Bindings) this->*row.member = MakeBinding(row);
    ReadConfig();
    StartAutoReloadThread();
}

GameSettings::~GameSettings() {
    StopAutoReloadThread();
}

std::vector<GameSettings::Conf> GameSettings::HiddenGameEntries() {
    return {
        Conf(this, "debug_window", debug_window),
        Conf(this, "dev_tools", dev_tools),
    };
}

std::vector<GameSettings::Conf> GameSettings::GameEntries() {
    return {
        Conf(this, "show_help_tooltips", show_help_tooltips),
        Conf(this, "admin_privileges", admin_privileges),
    };
}

std::vector<GameSettings::Conf> GameSettings::GraphicsEntries() {
    return {
        Conf(this, "graphics_preset", graphics_preset).Range(-1, 99),
        Conf(this, "framerate_limit_main_rendering", framerate_limit_main_rendering).Range(0, 1000),
        Conf(this, "vsync", vsync),
        Conf(this, "fov", fov).Range(20, 170),
        Conf(this, "taa", taa),
        Conf(this, "render_scale", render_scale).Range(0.25, 4),
        Conf(this, "ui_scaling", ui_scaling).Range(0.25, 4),
        Conf(this, "upscaling_algo", upscaling_algo),
        Conf(this, "upscaling_quality_setting", upscaling_quality_setting).Range(0, 10),
        Conf(this, "upscaling_sharpness", upscaling_sharpness).Range(0, 1),
        Conf(this, "final_upscale", final_upscale).Range(0, 4),
        Conf(this, "tone_mapping", tone_mapping),
        Conf(this, "dithering", dithering),
        Conf(this, "brightness", brightness).Range(0.1, 4),
        Conf(this, "contrast", contrast).Range(0.1, 4),
        Conf(this, "gamma", gamma).Range(0.5, 5),
        Conf(this, "terrain_clutter", terrain_clutter),
        Conf(this, "terrain_detail", terrain_detail).Range(0, 4),
    };
}

std::vector<GameSettings::Conf> GameSettings::PerformanceEntries() {
    return {Conf(this, "main_thread_cpu_affinity", main_thread_cpu_affinity).Range(-1, 1023)};
}

std::vector<GameSettings::Conf> GameSettings::IdeEntries() {
    return {
        Conf(this, "ide_zoom", ide_zoom).Range(0.25, 4),
        Conf(this, "ide_opacity", ide_opacity).Range(0, 1),
    };
}

std::vector<GameSettings::Conf> GameSettings::AudioEntries() {
    return {
        Conf(this, "master_volume", master_volume).Range(0, 1),
        Conf(this, "entities_volume", entities_volume).Range(0, 1),
        Conf(this, "interface_volume", interface_volume).Range(0, 1),
        Conf(this, "environment_volume", environment_volume).Range(0, 1),
    };
}

std::vector<GameSettings::Conf> GameSettings::InputEntries() {
    std::vector<Conf> entries;
    entries.reserve(std::size(Bindings) + 4);
    entries.push_back(Conf(this, "look_sensitivity", look_sensitivity).Range(0.01, 100));
    entries.emplace_back(this, "avatar_mouselook_invert_y", avatar_mouselook_invert_y);
    for (BindingDefault const& row : Bindings) entries.emplace_back(this, row.name, this->*row.member);
    entries.push_back(Conf(this, "input_gamepad_axis_deadzone", input_gamepad_axis_deadzone).Range(0, 0.95));
    entries.push_back(Conf(this, "input_joystick_axis_deadzone", input_joystick_axis_deadzone).Range(0, 0.95));
    return entries;
}

void GameSettings::ReadConfig() {
    std::vector<Conf> hidden = HiddenGameEntries();
    ReadFromINI("game", hidden, false);
    std::vector<Conf> game = GameEntries();
    ReadFromINI("game", game, true);
    std::vector<Conf> graphics = GraphicsEntries();
    ReadFromINI("graphics", graphics, true);
    std::vector<Conf> performance = PerformanceEntries();
    ReadFromINI("performance", performance, true);
    std::vector<Conf> ide = IdeEntries();
    ReadFromINI("ide", ide, true);
    std::vector<Conf> audio = AudioEntries();
    ReadFromINI("audio", audio, true);
    std::vector<Conf> input = InputEntries();
    ReadFromINI("input", input, true);
}

void GameSettings::WriteConfig() {
    std::vector<Conf> game = GameEntries();
    WriteToINI("game", game);
    std::vector<Conf> graphics = GraphicsEntries();
    WriteToINI("graphics", graphics);
    std::vector<Conf> performance = PerformanceEntries();
    WriteToINI("performance", performance);
    std::vector<Conf> ide = IdeEntries();
    WriteToINI("ide", ide);
    std::vector<Conf> audio = AudioEntries();
    WriteToINI("audio", audio);
    std::vector<Conf> input = InputEntries();
    WriteToINI("input", input);
}

GameSettings::GraphicsPreset const* GameSettings::FindGraphicsPreset(int32_t preset) {
    for (GraphicsPreset const& entry : graphicsPresets)
        if (entry.preset == preset) return &entry;
    return nullptr;
}

GameSettings::InputBinding GameSettings::DefaultBinding(InputBinding GameSettings::*member) {
    for (BindingDefault const& row : Bindings)
        if (row.member == member) return MakeBinding(row);
    return {};
}

} // namespace game
