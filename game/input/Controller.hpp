#pragma once
#include <functional>
#include <memory>
#include <string>
#include <type_traits>

#include "nerox/filesystem/ConfigFile.hpp"

namespace game::input {

class Joystick;

/// The actions of the controller record, in record order, as X(type, Name).
/// Every one gets the six accessors of Controller; the gamepad look toggle that
/// ends the record is not listed here and has none.
#define TESSARA_CONTROLLER_ACTIONS(X)                                                                   \
    /* Global, on or off */                                                                           \
    X(bool, Escape) X(bool, InputChat) X(bool, Sit) X(bool, ThirdPerson) X(bool, Zoom)                \
    /* Avatar, on or off */                                                                           \
    X(bool, AvatarLight) X(bool, AvatarSprint) X(bool, AvatarCrouch) X(bool, AvatarJetpack)           \
    X(bool, AvatarInteract) X(bool, AvatarInventory) X(bool, AvatarInventorySelectNext)               \
    X(bool, AvatarInventorySelectPrev) X(bool, AvatarInventorySelect1) X(bool, AvatarInventorySelect2) \
    X(bool, AvatarInventorySelect3) X(bool, AvatarInventorySelect4) X(bool, AvatarInventorySelect5)   \
    X(bool, AvatarInventorySelect6) X(bool, AvatarInventorySelect7) X(bool, AvatarInventorySelect8)   \
    X(bool, AvatarInventorySelect9) X(bool, AvatarInventoryDeselect) X(bool, AvatarToolConfigure)     \
    X(bool, AvatarToolSpecialMode) X(bool, GetInfo) X(bool, AvatarLookToggle)                         \
    /* Look, unclamped */                                                                             \
    X(double, AvatarPitch) X(double, AvatarYaw)                                                       \
    /* Avatar, 0 to 1 */                                                                              \
    X(double, AvatarJump) X(double, AvatarTranslateForward) X(double, AvatarTranslateBackward)        \
    X(double, AvatarTranslateRight) X(double, AvatarTranslateLeft) X(double, AvatarRollLeft)          \
    X(double, AvatarRollRight) X(double, AvatarToolPrimary) X(double, AvatarToolSecondary)            \
    /* Vehicle, on or off */                                                                          \
    X(bool, VehicleAux0) X(bool, VehicleAux1) X(bool, VehicleAux2) X(bool, VehicleAux3)               \
    X(bool, VehicleAux4) X(bool, VehicleAux5) X(bool, VehicleAux6) X(bool, VehicleAux7)               \
    X(bool, VehicleAux8) X(bool, VehicleAux9)                                                         \
    /* Vehicle, 0 to 1 */                                                                             \
    X(double, VehicleTranslateForward) X(double, VehicleTranslateBackward)                            \
    X(double, VehicleTranslateRight) X(double, VehicleTranslateLeft) X(double, VehicleTranslateUp)    \
    X(double, VehicleTranslateDown) X(double, VehicleMainThrust) X(double, VehicleRollRight)          \
    X(double, VehicleRollLeft) X(double, VehiclePitchUp) X(double, VehiclePitchDown)                  \
    X(double, VehicleYawRight) X(double, VehicleYawLeft)

/// The game actions of one input pass.
struct ControllerState {
#define TESSARA_CONTROLLER_FIELD(type, name) type name = 0;
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

    static ControllerState state;          ///< The actions of this pass.
    static ControllerState previousState;  ///< The actions of the pass before.
    static bool vehicleGamepadLookMode;    ///< In a station, the gamepad's stick turns the view, not the vehicle.

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
    template <class T>
    static void InputBindingState(T& out, InputBinding const& binding);
    /// Adds a binding's gamepad (first record) and joystick (second record)
    /// contribution to out; gamepad may be null.
    template <class T>
    static void InputBindingState(std::shared_ptr<Joystick> const& gamepad, T& out, InputBinding const& binding);
    /// The same for a double action; unsignedAxis reads the axes as 0 to 1.
    template <class T>
    static void InputBindingState(std::shared_ptr<Joystick> const& gamepad, T& out, InputBinding const& binding,
                                  bool unsignedAxis);

#define TESSARA_CONTROLLER_ACCESSORS(type, name)                                       \
    static type Get##name();                                                          \
    static bool Get##name##_Pressed();                                                \
    static bool Get##name##_Released();                                               \
    static std::conditional_t<std::is_same_v<type, bool>, int, double> Get##name##_Delta(); \
    static bool Get##name##_Hold(double millisecondsMin, double millisecondsMax);     \
    static bool Get##name##_HoldOrToggle(double milliseconds);
    TESSARA_CONTROLLER_ACTIONS(TESSARA_CONTROLLER_ACCESSORS)
#undef TESSARA_CONTROLLER_ACCESSORS

private:
    static bool _isSprinting; ///< The stick's click latched sprint; ends when the avatar stops moving.
};

template <>
void Controller::InputBindingState<bool>(bool& out, InputBinding const& binding);
template <>
void Controller::InputBindingState<double>(double& out, InputBinding const& binding);
template <>
void Controller::InputBindingState<bool>(std::shared_ptr<Joystick> const& gamepad, bool& out,
                                         InputBinding const& binding);
template <>
void Controller::InputBindingState<double>(std::shared_ptr<Joystick> const& gamepad, double& out,
                                           InputBinding const& binding, bool unsignedAxis);

} // namespace game::input
