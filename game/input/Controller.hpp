#pragma once
#include <functional>
#include <memory>
#include <string>
#include <type_traits>

#include "nerox/filesystem/ConfigFile.hpp"

namespace game::input {

class Joystick;

/// The actions of the controller record, in record order, as
/// X(type, Name, keys, pad, binding): the keyboard and mouse rule, the gamepad and
/// joystick rule, and the suffix of the settings member input_binding_... that
/// binds it (none for the actions the controller reads by itself). Every action
/// gets the six accessors of Controller; the gamepad look toggle that ends the
/// record is not listed here and has none.
///   keys: None; Inventory (in play, even over a focused interface window);
///         Play (in play, while no interface window has the focus).
///   pad:  None; Any (every input mode); Avatar (on foot); Vehicle (in a station);
///         ...Trigger reads the axes as 0 to 1; AvatarJoystick leaves the gamepad
///         to the sprint latch; VehicleSteer leaves the gamepad out while its
///         stick turns the view.
// clang-format off
#define TESSARA_CONTROLLER_ACTIONS(X)                                                                 \
    /* Global, on or off: Escape and chat are read from their keys directly */                      \
    X(bool, Escape, None, None) X(bool, InputChat, None, None)                                      \
    X(bool, Sit, Play, Any, sit) X(bool, ThirdPerson, Play, Any, third_person)                      \
    X(bool, Zoom, Play, Any, zoom)                                                                  \
    /* Avatar, on or off */                                                                         \
    X(bool, AvatarLight, Play, Any, avatar_light)                                                   \
    X(bool, AvatarSprint, Play, AvatarJoystick, avatar_sprint)                                      \
    X(bool, AvatarCrouch, Play, Avatar, avatar_crouch)                                              \
    X(bool, AvatarJetpack, Play, Avatar, avatar_jetpack)                                            \
    X(bool, AvatarInteract, Play, Avatar, avatar_interact)                                          \
    X(bool, AvatarInventory, Inventory, Avatar, avatar_inventory_toggle)                            \
    X(bool, AvatarInventorySelectNext, Inventory, Avatar, avatar_inventory_select_next)             \
    X(bool, AvatarInventorySelectPrev, Inventory, Avatar, avatar_inventory_select_prev)             \
    X(bool, AvatarInventorySelect1, Inventory, Avatar, avatar_inventory_select_1)                   \
    X(bool, AvatarInventorySelect2, Inventory, Avatar, avatar_inventory_select_2)                   \
    X(bool, AvatarInventorySelect3, Inventory, Avatar, avatar_inventory_select_3)                   \
    X(bool, AvatarInventorySelect4, Inventory, Avatar, avatar_inventory_select_4)                   \
    X(bool, AvatarInventorySelect5, Inventory, Avatar, avatar_inventory_select_5)                   \
    X(bool, AvatarInventorySelect6, Inventory, Avatar, avatar_inventory_select_6)                   \
    X(bool, AvatarInventorySelect7, Inventory, Avatar, avatar_inventory_select_7)                   \
    X(bool, AvatarInventorySelect8, Inventory, Avatar, avatar_inventory_select_8)                   \
    X(bool, AvatarInventorySelect9, Inventory, Avatar, avatar_inventory_select_9)                   \
    X(bool, AvatarInventoryDeselect, Inventory, Avatar, avatar_inventory_deselect)                  \
    X(bool, AvatarToolConfigure, Play, Avatar, avatar_tool_configure)                               \
    X(bool, AvatarToolSpecialMode, Play, Avatar, avatar_tool_special_mode)                          \
    X(bool, GetInfo, Play, Any, get_info) X(bool, AvatarLookToggle, Play, Any, avatar_look_toggle)  \
    /* Look, unclamped: the mouse and the stick's look bindings */                                  \
    X(double, AvatarPitch, None, None) X(double, AvatarYaw, None, None)                             \
    /* Avatar, 0 to 1 */                                                                            \
    X(double, AvatarJump, Play, AvatarTrigger, avatar_jump)                                         \
    X(double, AvatarTranslateForward, Play, Avatar, avatar_translate_forward)                       \
    X(double, AvatarTranslateBackward, Play, Avatar, avatar_translate_backward)                     \
    X(double, AvatarTranslateRight, Play, Avatar, avatar_translate_right)                           \
    X(double, AvatarTranslateLeft, Play, Avatar, avatar_translate_left)                             \
    X(double, AvatarRollLeft, Play, Avatar, avatar_roll_left)                                       \
    X(double, AvatarRollRight, Play, Avatar, avatar_roll_right)                                     \
    X(double, AvatarToolPrimary, Play, AnyTrigger, avatar_tool_primary)                             \
    X(double, AvatarToolSecondary, Play, AnyTrigger, avatar_tool_secondary)                         \
    /* Vehicle, on or off */                                                                        \
    X(bool, VehicleAux0, Play, Vehicle, vehicle_aux_0) X(bool, VehicleAux1, Play, Vehicle, vehicle_aux_1) \
    X(bool, VehicleAux2, Play, Vehicle, vehicle_aux_2) X(bool, VehicleAux3, Play, Vehicle, vehicle_aux_3) \
    X(bool, VehicleAux4, Play, Vehicle, vehicle_aux_4) X(bool, VehicleAux5, Play, Vehicle, vehicle_aux_5) \
    X(bool, VehicleAux6, Play, Vehicle, vehicle_aux_6) X(bool, VehicleAux7, Play, Vehicle, vehicle_aux_7) \
    X(bool, VehicleAux8, Play, Vehicle, vehicle_aux_8) X(bool, VehicleAux9, Play, Vehicle, vehicle_aux_9) \
    /* Vehicle, 0 to 1 */                                                                           \
    X(double, VehicleTranslateForward, Play, Vehicle, vehicle_translate_forward)                    \
    X(double, VehicleTranslateBackward, Play, Vehicle, vehicle_translate_backward)                  \
    X(double, VehicleTranslateRight, Play, Vehicle, vehicle_translate_right)                        \
    X(double, VehicleTranslateLeft, Play, Vehicle, vehicle_translate_left)                          \
    X(double, VehicleTranslateUp, Play, Vehicle, vehicle_translate_up)                              \
    X(double, VehicleTranslateDown, Play, Vehicle, vehicle_translate_down)                          \
    X(double, VehicleMainThrust, Play, VehicleTrigger, vehicle_main_thrust)                         \
    X(double, VehicleRollRight, Play, Vehicle, vehicle_roll_right)                                  \
    X(double, VehicleRollLeft, Play, Vehicle, vehicle_roll_left)                                    \
    X(double, VehiclePitchUp, Play, VehicleSteer, vehicle_pitch_up)                                 \
    X(double, VehiclePitchDown, Play, VehicleSteer, vehicle_pitch_down)                             \
    X(double, VehicleYawRight, Play, VehicleSteer, vehicle_yaw_right)                               \
    X(double, VehicleYawLeft, Play, VehicleSteer, vehicle_yaw_left)
// clang-format on

/// The game actions of one input pass.
struct ControllerState {
#define TESSARA_CONTROLLER_FIELD(type, name, ...) type name = 0;
    TESSARA_CONTROLLER_ACTIONS(TESSARA_CONTROLLER_FIELD)
#undef TESSARA_CONTROLLER_FIELD
    bool VehicleGamepadLookToggle = false; ///< Switches the station's stick between view and vehicle.
};

/// Turns keyboard, mouse, gamepad and joystick state into one record of game
/// actions, once per input pass (InputUpdate, from Game::InputUpdate). The rest
/// of the program asks for an action by name, in six forms:
///   GetX()                  the value (bool, or double: 0 to 1, look unclamped);
///   GetX_Pressed()          true on the pass the value rose from off or 0;
///   GetX_Released()         true on the pass it fell back;
///   GetX_Delta()            this pass minus the last (an int -1..1 for a bool);
///   GetX_Hold(min, max)     with min: true once, when a press has lasted min ms;
///                           with max: true on the release of a press of at most
///                           max ms. Exactly one of the two must be 0. A press of
///                           fewer than 3 passes is a tap, whatever the time;
///   GetX_HoldOrToggle(ms)   true on a press, and again on the release of a press
///                           held longer than ms: for a caller that flips a state.
/// Each action's hold timer must be polled by one caller, once per pass.
/// Only statics; written by the input side without a lock.
class Controller {
public:
    using InputBinding = nerox::filesystem::ConfigFile::InputBinding;

    static ControllerState state;         ///< The actions of this pass.
    static ControllerState previousState; ///< The actions of the pass before.
    static bool vehicleGamepadLookMode;   ///< In a station, the gamepad's stick turns the view, not the vehicle.

    /// Samples every device and moves the record on by one pass.
    static void InputUpdate(double deltaTime);

    /// The text the settings panel shows for a binding, e.g. "KEY_W / GAMEPAD_AXIS_LEFT_Y-".
    static std::string BindingStr(InputBinding const& binding);

    /// Calls visit(name, value, previous) for every action in record order and
    /// last for "VehicleGamepadLookToggle"; bools give 0 or 1.
    static void ForEachAction(std::function<void(char const* name, double value, double previous)> const& visit);

    /// Gives every static its initial value back (Game::Stop, tests). Hold timers
    /// start over at the next press by themselves.
    static void Reset();

    /// Adds a binding's keyboard and mouse contribution to out.
    template <class T> static void InputBindingState(T& out, InputBinding const& binding);
    /// Adds a binding's gamepad (first record) and joystick (second record)
    /// contribution to out; gamepad may be null.
    template <class T>
    static void InputBindingState(std::shared_ptr<Joystick> const& gamepad, T& out, InputBinding const& binding);
    /// The same for a double action; unsignedAxis reads the axes as 0 to 1.
    template <class T>
    static void InputBindingState(std::shared_ptr<Joystick> const& gamepad, T& out, InputBinding const& binding,
                                  bool unsignedAxis);

#define TESSARA_CONTROLLER_ACCESSORS(type, name, ...)                                                                  \
    static type Get##name();                                                                                           \
    static bool Get##name##_Pressed();                                                                                 \
    static bool Get##name##_Released();                                                                                \
    static std::conditional_t<std::is_same_v<type, bool>, int, double> Get##name##_Delta();                            \
    static bool Get##name##_Hold(double millisecondsMin, double millisecondsMax);                                      \
    static bool Get##name##_HoldOrToggle(double milliseconds);
    TESSARA_CONTROLLER_ACTIONS(TESSARA_CONTROLLER_ACCESSORS)
#undef TESSARA_CONTROLLER_ACCESSORS

private:
    static bool _isSprinting; ///< The stick's click latched sprint; ends when the avatar stops moving.
};

template <> void Controller::InputBindingState<bool>(bool& out, InputBinding const& binding);
template <> void Controller::InputBindingState<double>(double& out, InputBinding const& binding);
template <>
void Controller::InputBindingState<bool>(std::shared_ptr<Joystick> const& gamepad, bool& out,
                                         InputBinding const& binding);
template <>
void Controller::InputBindingState<double>(std::shared_ptr<Joystick> const& gamepad, double& out,
                                           InputBinding const& binding, bool unsignedAxis);

} // namespace game::input
