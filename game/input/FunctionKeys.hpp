#pragma once
// The game's fixed keys, which no binding can take.
#include <array>
#include <atomic>
#include <string>

namespace game::input {

/// Reads the function keys once per input pass (Game::InputUpdate, after the
/// controller). A key acts when it goes down:
///
///   F1         settings window          F7         developer (debug) window
///   F2         drone mode (no clipping) Shift+F10  respawn
///   F3         interface overlays       F11        full screen
///   F4         admin panel, with the    F12        screenshot into screenshotFolder
///              admin_privileges setting Escape     held two seconds: quit
///
/// Opening a window frees the cursor. Nothing happens without a window, or while the settings' bindings editor
/// captures the keyboard (option "capture_keyboard_binding"). Drone mode and
/// respawn belong to the module that moves the player: it reads and clears them.
class FunctionKeys {
public:
    FunctionKeys() = delete;

    /// One input pass.
    static void Update();
    /// Forgets which keys were held, so that a key held now counts again only
    /// after it was let go. Game::Stop calls it.
    static void Reset();

    static std::atomic<bool> droneMode;        ///< Toggled by F2.
    static std::atomic<bool> respawnRequested; ///< Set by Shift+F10; the player's module clears it.
    static std::string screenshotFolder;       ///< Where F12 saves; "../Tessara-data/screenshots".
    static constexpr double QuitHoldSeconds = 2.0;

private:
    static std::array<bool, 13> _held; // F1 to F12 by number; 0 unused
    static double _escapeDownSince;    // steady seconds, or -1 while Escape is up
};

} // namespace game::input
