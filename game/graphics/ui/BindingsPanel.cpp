// The settings window's input tab: the look and deadzone controls and the
// bindings table, whose cells open an editor that takes the next key, mouse
// button, gamepad or joystick input for that one binding.
//
// The editor, for the cell of one row and column:
//
//   closed --click cell--> open: note the inputs held now; set the capture flags
//   open --an input not held at opening--> write it into the cell; closed
//   open --Escape, "Cancel" or the settings closed--> closed, nothing written
//   open --"Clear"--> the column's part of the binding emptied; closed
//
// Inputs held when the editor opened (the click on the cell, a stick pushed
// over) must first be let go: only a fresh press counts. Escape and the
// function keys are the game's own and cannot be bound.
#include "game/graphics/ui/Panels.hpp"

#include "game/Game.hpp"
#include "game/GameSettings.hpp"
#include "game/Options.hpp"
#include "game/input/Joystick.hpp"
#include "nerox/graphics/Window.hpp"
#include "nerox/input/InputCodes.hpp"

#include <imgui.h>
#include <imgui_internal.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

namespace game::graphics::ui {

namespace {

using Column = Panels::Column;
using S = GameSettings;

constexpr char const* CaptureKeyboardFlag = "capture_keyboard_binding";
constexpr char const* CaptureMouseFlag = "capture_mousebutton_binding";
constexpr float AxisThreshold = 0.6f; // how far an axis must move to be taken
constexpr int GamepadButtons = GLFW_GAMEPAD_BUTTON_LAST + 1;
constexpr int GamepadAxes = GLFW_GAMEPAD_AXIS_LAST + 1;

constexpr char const* ModalTitles[] = {"Edit Keyboard Binding", "Edit MouseButton Binding", "Edit Gamepad Binding",
                                       "Edit Joystick Binding"};
constexpr char const* ModalPrompts[] = {"Press a key on your keyboard...", "Click a button on your mouse...",
                                        "Press a button or move an axis on your gamepad...",
                                        "Press a button or move an axis on a joystick..."};
constexpr char const* Placeholders[] = {"[key]", "[mouse button]", "[gamepad]", "[joystick]"};
constexpr char const* ColumnIds[] = {"KEYBOARD", "MOUSE_BUTTON", "GAMEPAD", "JOYSTICK"};

std::string WithoutPrefix(std::string name, std::string_view prefix) {
    if (name.starts_with(prefix)) name.erase(0, prefix.size());
    return name;
}

// "Gamepad (0) button 1", "Thrustmaster (0) axis 2 inversed", or both parts.
std::string DeviceText(char const* device, Panels::InputBinding::Joystick const& record) {
    std::string text = std::string(device) + " (" + std::to_string(record.id) + ")";
    if (record.axis >= 0) {
        text += " axis " + std::to_string(record.axis);
        if (record.axisDirection < 0) text += " inversed";
    }
    if (record.button >= 0) text += (record.axis >= 0 ? ", button " : " button ") + std::to_string(record.button);
    return text;
}

// The joystick's number among connected devices of its identity.
int IndexAmongSame(std::shared_ptr<input::Joystick> const& device) {
    for (int i = 0;; ++i) {
        std::shared_ptr<input::Joystick> const same = Game::GetJoystick(device->guid, i);
        if (!same || same == device) return i;
    }
}

} // namespace

std::vector<Panels::BindingRow> const& Panels::BindingRows() {
    static std::vector<BindingRow> const rows = {
        {"input_chat", &S::input_binding_input_chat},
        {"sit", &S::input_binding_sit},
        {"third_person", &S::input_binding_third_person},
        {"zoom", &S::input_binding_zoom},
        {"avatar_jump", &S::input_binding_avatar_jump},
        {"avatar_look_toggle", &S::input_binding_avatar_look_toggle},
        {"get_info", &S::input_binding_get_info},
        {"avatar_interact", &S::input_binding_avatar_interact},
        {"avatar_sprint", &S::input_binding_avatar_sprint},
        {"avatar_crouch", &S::input_binding_avatar_crouch},
        {"avatar_light", &S::input_binding_avatar_light},
        {"avatar_jetpack", &S::input_binding_avatar_jetpack},
        {"avatar_inventory_toggle", &S::input_binding_avatar_inventory_toggle},
        {"avatar_inventory_select_prev", &S::input_binding_avatar_inventory_select_prev},
        {"avatar_inventory_select_next", &S::input_binding_avatar_inventory_select_next},
        {"avatar_inventory_select_1", &S::input_binding_avatar_inventory_select_1},
        {"avatar_inventory_select_2", &S::input_binding_avatar_inventory_select_2},
        {"avatar_inventory_select_3", &S::input_binding_avatar_inventory_select_3},
        {"avatar_inventory_select_4", &S::input_binding_avatar_inventory_select_4},
        {"avatar_inventory_select_5", &S::input_binding_avatar_inventory_select_5},
        {"avatar_inventory_select_6", &S::input_binding_avatar_inventory_select_6},
        {"avatar_inventory_select_7", &S::input_binding_avatar_inventory_select_7},
        {"avatar_inventory_select_8", &S::input_binding_avatar_inventory_select_8},
        {"avatar_inventory_select_9", &S::input_binding_avatar_inventory_select_9},
        {"avatar_inventory_deselect", &S::input_binding_avatar_inventory_deselect},
        {"avatar_tool_primary", &S::input_binding_avatar_tool_primary},
        {"avatar_tool_secondary", &S::input_binding_avatar_tool_secondary},
        {"avatar_tool_configure", &S::input_binding_avatar_tool_configure},
        {"avatar_tool_special_mode", &S::input_binding_avatar_tool_special_mode},
        {"avatar_translate_forward", &S::input_binding_avatar_translate_forward},
        {"avatar_translate_backward", &S::input_binding_avatar_translate_backward},
        {"avatar_translate_left", &S::input_binding_avatar_translate_left},
        {"avatar_translate_right", &S::input_binding_avatar_translate_right},
        {"avatar_roll_left", &S::input_binding_avatar_roll_left},
        {"avatar_roll_right", &S::input_binding_avatar_roll_right},
        {"avatar_pitch_up", &S::input_binding_avatar_pitch_up},
        {"avatar_pitch_down", &S::input_binding_avatar_pitch_down},
        {"avatar_yaw_left", &S::input_binding_avatar_yaw_left},
        {"avatar_yaw_right", &S::input_binding_avatar_yaw_right},
        {"vehicle_gamepad_look_toggle", &S::input_binding_vehicle_gamepad_look_toggle},
        {"vehicle_aux_0", &S::input_binding_vehicle_aux_0},
        {"vehicle_aux_1", &S::input_binding_vehicle_aux_1},
        {"vehicle_aux_2", &S::input_binding_vehicle_aux_2},
        {"vehicle_aux_3", &S::input_binding_vehicle_aux_3},
        {"vehicle_aux_4", &S::input_binding_vehicle_aux_4},
        {"vehicle_aux_5", &S::input_binding_vehicle_aux_5},
        {"vehicle_aux_6", &S::input_binding_vehicle_aux_6},
        {"vehicle_aux_7", &S::input_binding_vehicle_aux_7},
        {"vehicle_aux_8", &S::input_binding_vehicle_aux_8},
        {"vehicle_aux_9", &S::input_binding_vehicle_aux_9},
        {"vehicle_translate_up", &S::input_binding_vehicle_translate_up},
        {"vehicle_translate_down", &S::input_binding_vehicle_translate_down},
        {"vehicle_roll_left", &S::input_binding_vehicle_roll_left},
        {"vehicle_roll_right", &S::input_binding_vehicle_roll_right},
        {"vehicle_translate_forward", &S::input_binding_vehicle_translate_forward},
        {"vehicle_translate_backward", &S::input_binding_vehicle_translate_backward},
        {"vehicle_translate_left", &S::input_binding_vehicle_translate_left},
        {"vehicle_translate_right", &S::input_binding_vehicle_translate_right},
        {"vehicle_pitch_up", &S::input_binding_vehicle_pitch_up},
        {"vehicle_pitch_down", &S::input_binding_vehicle_pitch_down},
        {"vehicle_yaw_left", &S::input_binding_vehicle_yaw_left},
        {"vehicle_yaw_right", &S::input_binding_vehicle_yaw_right},
        {"vehicle_main_thrust", &S::input_binding_vehicle_main_thrust},
    };
    return rows;
}

std::string Panels::CellText(InputBinding const& binding, Column column) {
    switch (column) {
    case Column::Keyboard:
        if (binding.key < 0) break;
        return WithoutPrefix(nerox::input::code_to_string(nerox::input::KindKey, binding.key), "KEY_");
    case Column::Mouse:
        if (binding.mouseButton < 0) break;
        return nerox::input::code_to_string(nerox::input::KindMouse, binding.mouseButton);
    case Column::Gamepad:
        if (binding.joysticks[0].button < 0 && binding.joysticks[0].axis < 0) break;
        return DeviceText("Gamepad", binding.joysticks[0]);
    case Column::Joystick:
        if (binding.joysticks[1].button < 0 && binding.joysticks[1].axis < 0) break;
        return DeviceText("Joystick", binding.joysticks[1]);
    }
    return Placeholders[static_cast<int>(column)];
}

std::string Panels::ShortText(InputBinding const& binding) {
    if (binding.key >= 0) return CellText(binding, Column::Keyboard);
    if (binding.mouseButton >= 0) return CellText(binding, Column::Mouse);
    return "(unbound)";
}

bool Panels::SameInput(InputBinding const& a, InputBinding const& b, Column column) {
    auto const sameRecord = [](InputBinding::Joystick const& x, InputBinding::Joystick const& y) {
        if (x.name != y.name || x.id != y.id) return false;
        bool const sameButton = x.button >= 0 && x.button == y.button;
        bool const sameAxis = x.axis >= 0 && x.axis == y.axis && x.axisDirection == y.axisDirection;
        return sameButton || sameAxis;
    };
    switch (column) {
    case Column::Keyboard: return a.key >= 0 && a.key == b.key;
    case Column::Mouse: return a.mouseButton >= 0 && a.mouseButton == b.mouseButton;
    case Column::Gamepad: return sameRecord(a.joysticks[0], b.joysticks[0]);
    case Column::Joystick: return sameRecord(a.joysticks[1], b.joysticks[1]);
    }
    return false;
}

bool Panels::SameContext(std::string_view a, std::string_view b) {
    auto const context = [](std::string_view name) {
        return name.starts_with("avatar_") ? 1 : name.starts_with("vehicle_") ? 2 : 0;
    };
    return context(a) == 0 || context(b) == 0 || context(a) == context(b);
}

bool Panels::RefreshBindingTexts(GameSettings& s) {
    std::vector<BindingRow> const& rows = BindingRows();
    bool changed = _bindingTexts.size() != rows.size();
    if (changed) _bindingTexts.resize(rows.size());
    for (size_t row = 0; row < rows.size() && !changed; ++row)
        changed = !(_bindingTexts[row].binding == s.*rows[row].member);
    if (!changed) return false;
    constexpr Column columns[] = {Column::Keyboard, Column::Mouse, Column::Gamepad, Column::Joystick};
    for (size_t row = 0; row < rows.size(); ++row) {
        BindingTexts& texts = _bindingTexts[row];
        texts.binding = s.*rows[row].member;
        for (Column column : columns) texts.cells[static_cast<int>(column)] = CellText(texts.binding, column);
        texts.shortText = ShortText(texts.binding);
    }
    for (size_t row = 0; row < rows.size(); ++row) {
        for (Column column : columns) {
            bool conflict = false;
            for (size_t other = 0; other < rows.size() && !conflict; ++other) conflict = Conflict(row, other, column);
            _bindingTexts[row].conflict[static_cast<int>(column)] = conflict;
        }
    }
    return true;
}

bool Panels::Conflict(size_t row, size_t other, Column column) const {
    std::vector<BindingRow> const& rows = BindingRows();
    return other != row && SameContext(rows[row].name, rows[other].name) &&
        SameInput(_bindingTexts[row].binding, _bindingTexts[other].binding, column);
}

char const* Panels::ShortTextOf(InputBinding GameSettings::*member) const {
    std::vector<BindingRow> const& rows = BindingRows();
    for (size_t row = 0; row < rows.size() && row < _bindingTexts.size(); ++row)
        if (rows[row].member == member) return _bindingTexts[row].shortText.c_str();
    return "";
}

void Panels::InputTab(GameSettings& s) {
    ImGui::SliderFloat("MouseLook Sensitivity", &s.look_sensitivity, 0.1f, 10.0f, "%.2f");
    ImGui::Checkbox("MouseLook Invert Y", &s.avatar_mouselook_invert_y);
    ImGui::SliderFloat("Gamepad Axis Deadzone", &s.input_gamepad_axis_deadzone, 0.0f, 0.95f, "%.2f");
    ImGui::SliderFloat("Joystick Axis Deadzone", &s.input_joystick_axis_deadzone, 0.0f, 0.95f, "%.2f");
    if (ImGui::Button("Restore Default Bindings")) {
        for (BindingRow const& row : BindingRows()) s.*row.member = GameSettings::DefaultBinding(row.member);
    }
    ImGui::SameLine();
    ImGui::TextDisabled("A red cell shares its input with another action.");

    ImGuiTableFlags const flags =
        ImGuiTableFlags_Borders | ImGuiTableFlags_RowBg | ImGuiTableFlags_ScrollY | ImGuiTableFlags_SizingStretchProp;
    RefreshBindingTexts(s);
    if (ImGui::BeginTable("##input_bindings", 5, flags, ImVec2(0.0f, ImGui::GetContentRegionAvail().y))) {
        ImGui::TableSetupScrollFreeze(0, 1);
        // Widths for what the columns usually hold: long action names, short keys, device texts.
        constexpr std::pair<char const*, float> columns[] = {
            {"Binding", 1.6f}, {"Keyboard", 0.9f}, {"Mouse", 1.4f}, {"Gamepad", 1.7f}, {"Joystick", 1.2f}};
        for (auto const& [title, weight] : columns)
            ImGui::TableSetupColumn(title, ImGuiTableColumnFlags_WidthStretch, weight);
        ImGui::TableHeadersRow();
        std::vector<BindingRow> const& rows = BindingRows();
        for (size_t row = 0; row < rows.size(); ++row) {
            ImGui::TableNextRow();
            ImGui::TableNextColumn();
            ImGui::TextUnformatted(rows[row].name);
            for (Column column : {Column::Keyboard, Column::Mouse, Column::Gamepad, Column::Joystick}) {
                ImGui::TableNextColumn();
                BindingCell(s, row, column);
            }
        }
        ImGui::EndTable();
    }
}

void Panels::BindingCell(GameSettings& s, size_t row, Column column) {
    std::vector<BindingRow> const& rows = BindingRows();
    BindingTexts const& texts = _bindingTexts[row];
    int const at = static_cast<int>(column);
    // A shared input shows in red, and the hover names the other actions.
    bool const conflict = texts.conflict[at];
    ImGui::PushID(static_cast<int>(row));
    ImGui::PushID(ColumnIds[at]);
    if (conflict) ImGui::PushStyleColor(ImGuiCol_Text, ImVec4(1.0f, 0.35f, 0.3f, 1.0f));
    bool const clicked = ImGui::Selectable(texts.cells[at].c_str());
    if (conflict) ImGui::PopStyleColor();
    if (conflict && ImGui::IsItemHovered()) {
        std::string others = "Also bound to:";
        for (size_t other = 0; other < rows.size(); ++other)
            if (Conflict(row, other, column)) others += std::string(" ") + rows[other].name;
        ImGui::SetTooltip("%s", others.c_str());
    }
    if (clicked) {
        _editRow = static_cast<int>(row);
        _editColumn = column;
        StartCapture();
        ImGui::OpenPopup(ModalTitles[at]);
    }
    // The editor is a popup of the cell's own identifier scope.
    if (_editRow == static_cast<int>(row) && _editColumn == column) BindingModal(s);
    ImGui::PopID();
    ImGui::PopID();
}

void Panels::BindingModal(GameSettings& s) {
    if (_editRow < 0 || _editRow >= static_cast<int>(BindingRows().size())) return;
    char const* const title = ModalTitles[static_cast<int>(_editColumn)];
    ImGui::SetNextWindowPos(ImGui::GetMainViewport()->GetCenter(), ImGuiCond_Appearing, ImVec2(0.5f, 0.5f));
    if (!ImGui::BeginPopupModal(title, nullptr, ImGuiWindowFlags_AlwaysAutoResize)) return;
    BindingRow const& row = BindingRows()[static_cast<size_t>(_editRow)];
    InputBinding& binding = s.*row.member;
    ImGui::Text("Binding: %s", row.name);
    ImGui::TextUnformatted(ModalPrompts[static_cast<int>(_editColumn)]);
    ImGui::Text("Now: %s", CellText(binding, _editColumn).c_str());
    bool done = false;
    if (_editColumn == Column::Gamepad && binding.joysticks[0].axis >= 0) {
        bool inversed = binding.joysticks[0].axisDirection < 0;
        if (ImGui::Checkbox("Inversed##gamepad", &inversed)) binding.joysticks[0].axisDirection = inversed ? -1 : 1;
    }
    if (_editColumn == Column::Joystick && binding.joysticks[1].axis >= 0) {
        bool inversed = binding.joysticks[1].axisDirection < 0;
        if (ImGui::Checkbox("Inversed##joystick", &inversed)) binding.joysticks[1].axisDirection = inversed ? -1 : 1;
    }
    if (ImGui::Button("Clear")) {
        switch (_editColumn) {
        case Column::Keyboard: binding.key = -1; break;
        case Column::Mouse: binding.mouseButton = -1; break;
        case Column::Gamepad: binding.joysticks[0] = {}; break;
        case Column::Joystick: binding.joysticks[1] = {}; break;
        }
        done = true;
    }
    ImGui::SameLine();
    if (ImGui::Button("Cancel")) done = true;
    // Escape leaves any editor; a key held since the opening counts once let go.
    nerox::graphics::Window* const window = Game::window;
    bool const escape = window != nullptr && window->GetKey(GLFW_KEY_ESCAPE) != GLFW_RELEASE;
    if (escape && !_keysHeld[GLFW_KEY_ESCAPE] && _editOpened) done = true;
    if (!escape) _keysHeld[GLFW_KEY_ESCAPE] = false;
    if (!done && _editOpened && CaptureInto(binding)) done = true;
    _editOpened = true; // inputs are taken from the frame after the one that opened it
    if (done) {
        ImGui::CloseCurrentPopup();
        EndCapture(false);
    }
    ImGui::EndPopup();
}

void Panels::StartCapture() {
    nerox::graphics::Window* const window = Game::window;
    _editOpened = false;
    for (int key = 0; key < KeyCount; ++key)
        _keysHeld[key] = window != nullptr && key >= GLFW_KEY_SPACE && window->GetKey(key) != GLFW_RELEASE;
    for (int button = 0; button < MouseButtons; ++button)
        _buttonsHeld[button] = window != nullptr && window->GetMouseButton(button) != GLFW_RELEASE;
    // Axes count by how far they move from where they are now.
    _axesAtOpen.fill(0.0f);
    if (_editColumn == Column::Joystick) {
        if (std::shared_ptr<input::Joystick> const device = Game::GetJoystick(0))
            for (int axis = 0; axis < std::min(device->axesCount, MaxAxes); ++axis)
                _axesAtOpen[axis] = device->GetAxis(axis, 0.0f, false, false);
    } else if (_editColumn == Column::Gamepad) {
        if (std::shared_ptr<input::Joystick> const pad = Game::GetFirstGamepad())
            for (int axis = 0; axis < GamepadAxes; ++axis)
                _axesAtOpen[axis] = pad->GetGamepadAxis(axis, 0.0f, false, false);
    }
    // The edge readers start afresh: what is held now does not count.
    if (std::shared_ptr<input::Joystick> const pad = Game::GetFirstGamepad())
        for (int button = 0; button < GamepadButtons; ++button) pad->GetGamepadButtonBinding(button);
    for (int i = 0; std::shared_ptr<input::Joystick> const device = Game::GetJoystick(i); ++i)
        for (int button = 0; button < device->buttonsCount; ++button) device->GetButtonBinding(button);
    // Both flags while any editor is open: the game's own keys and clicks wait.
    game::Options::Set(CaptureKeyboardFlag, true);
    game::Options::Set(CaptureMouseFlag, true);
}

void Panels::EndCapture(bool closePopups) {
    if (_editRow < 0) return;
    _editRow = -1;
    // Left from outside (the tab or window went away): the editor closes with it,
    // or it would stay open unseen and keep the other windows from the pointer.
    if (closePopups && GImGui != nullptr && GImGui->OpenPopupStack.Size > 0) ImGui::ClosePopupToLevel(0, false);
    game::Options::Remove(CaptureKeyboardFlag);
    game::Options::Remove(CaptureMouseFlag);
}

bool Panels::CaptureInto(InputBinding& binding) {
    nerox::graphics::Window* const window = Game::window;
    switch (_editColumn) {
    case Column::Keyboard:
        if (window == nullptr) return false;
        for (int key = GLFW_KEY_SPACE; key < KeyCount; ++key) {
            bool const down = window->GetKey(key) != GLFW_RELEASE;
            if (!down) {
                _keysHeld[key] = false;
            } else if (!_keysHeld[key]) {
                // Escape (handled by the editor) and the function keys are the game's own.
                if (key == GLFW_KEY_ESCAPE || (key >= GLFW_KEY_F1 && key <= GLFW_KEY_F12)) continue;
                binding.key = key;
                return true;
            }
        }
        return false;
    case Column::Mouse:
        if (window == nullptr) return false;
        for (int button = 0; button < MouseButtons; ++button) {
            bool const down = window->GetMouseButton(button) != GLFW_RELEASE;
            if (!down) {
                _buttonsHeld[button] = false;
            } else if (!_buttonsHeld[button]) {
                // The press that lands on the editor's own buttons is theirs.
                if (ImGui::IsAnyItemHovered()) return false;
                binding.mouseButton = button;
                return true;
            }
        }
        return false;
    case Column::Gamepad: {
        std::shared_ptr<input::Joystick> const pad = Game::GetFirstGamepad();
        if (!pad) return false;
        InputBinding::Joystick& record = binding.joysticks[0];
        for (int button = 0; button < GamepadButtons; ++button) {
            if (!pad->GetGamepadButtonBinding(button)) continue;
            record.button = button;
            record.axis = -1;
            record.axisDirection = 1;
            return true;
        }
        for (int axis = 0; axis < GamepadAxes; ++axis) {
            float const moved = pad->GetGamepadAxis(axis, 0.0f, false, false) - _axesAtOpen[axis];
            if (std::fabs(moved) < AxisThreshold) continue;
            record.button = -1;
            record.axis = static_cast<int16_t>(axis);
            record.axisDirection = moved < 0.0f ? -1 : 1; // a trigger, resting at -1, pulls to +1
            return true;
        }
        return false;
    }
    case Column::Joystick: {
        InputBinding::Joystick& record = binding.joysticks[1];
        for (int i = 0; std::shared_ptr<input::Joystick> const device = Game::GetJoystick(i); ++i) {
            for (int button = 0; button < device->buttonsCount; ++button) {
                if (!device->GetButtonBinding(button)) continue;
                record = {device->guid, IndexAmongSame(device), button, -1, 1};
                return true;
            }
            if (i != 0) continue; // axes of the first joystick only: others rest anywhere
            for (int axis = 0; axis < std::min(device->axesCount, MaxAxes); ++axis) {
                float const moved = device->GetAxis(axis, 0.0f, false, false) - _axesAtOpen[axis];
                if (std::fabs(moved) < AxisThreshold) continue;
                record = {device->guid, IndexAmongSame(device), -1, static_cast<int16_t>(axis),
                          static_cast<int16_t>(moved < 0.0f ? -1 : 1)};
                return true;
            }
        }
        return false;
    }
    }
    return false;
}

} // namespace game::graphics::ui
