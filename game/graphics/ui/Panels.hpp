#pragma once
// The game's immediate-mode windows: settings with their tabs, the debug,
// profiling and admin windows and the adventure goals. Built with Dear ImGui on
// the render thread, once per frame, by GameRenderer::FrameUpdateUi.
#include "nerox/filesystem/ConfigFile.hpp"

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace game {
class GameSettings;
} // namespace game

namespace game::graphics {
class GameRenderer;
} // namespace game::graphics

namespace game::graphics::ui {

/// The windows and what they remember between frames. Which windows are open
/// is kept in Game (settingsWindowOpen, adminWindowOpen) and here (the
/// others); the function keys toggle them (input::FunctionKeys).
///
/// A control writes into Game::settings at once, under its lock; the renderer
/// takes most settings over in its next FrameInit, and "Save Settings" writes
/// the file. Without settings the settings window shows only its head.
class Panels {
public:
    /// What one binding cell edits.
    enum class Column { Keyboard, Mouse, Gamepad, Joystick };
    using InputBinding = nerox::filesystem::ConfigFile::InputBinding;

    /// One row of the bindings table: the key without "input_binding_" and its member.
    struct BindingRow {
        char const* name;
        InputBinding GameSettings::*member;
    };
    /// The rows of the bindings table, in the order the table shows them.
    static std::vector<BindingRow> const& BindingRows();

    /// The six labels of upscaling_quality_setting 0 to 5.
    static constexpr std::array<char const*, 6> ResolutionLabels = {
        "Ultra Performance  (fast with some visual artifacts in the distance)",
        "Performance  (for better quality and ok performance)",
        "Balanced  (almost indistinguishable from Full Quality)",
        "Quality  (overkill, you'll just bring your FPS down for nothing)",
        "Ultra Quality  (no... don't do it... don't even think about it)",
        "Full Quality  (you just want to see your GPU burn, don't you?)",
    };
    /// The goals of adventure mode, in order.
    static constexpr std::array<char const*, 6> AdventureGoals = {
        "Pick up rocks and process them in your inventory",
        "Craft a RockRakeTool to pick more rocks faster",
        "Craft a ConstructorTool and build a platform",
        "Build a Mining Rig (MiningDrill, GroundAnchor, Container, Battery, ToggleButton)",
        "Build vehicles",
        "Go to the Moon (figure it out yourself)",
    };
    /// Where the help tab's three buttons lead.
    static constexpr char const* DocumentationLink = "https://tessara.dev/docs";
    static constexpr char const* ChatLink = "https://tessara.dev/chat";
    static constexpr char const* VideosLink = "https://tessara.dev/videos";

    /// renderer gives the preset and upscaler lists, the debug view and the
    /// preset operation; null (as in tests) uses the built-in lists.
    explicit Panels(GameRenderer* renderer);

    /// Builds every open window. Needs a Dear ImGui frame.
    void Draw();

    void SettingsWindow();  ///< "Settings": the head and the four tabs.
    void DebugWindow();     ///< "Debug Window".
    void ProfilingWindow(); ///< "Profiling (milliseconds)".
    void AdminWindow();     ///< "Admin Panel", only with admin_privileges.
    void GoalsWindow();     ///< "Goals##Adventure", in adventure mode.

    /// The text of a binding cell: the key or button, or the column's
    /// "[key]"-style placeholder when it has none.
    static std::string CellText(InputBinding const& binding, Column column);
    /// The short text of an action's binding for the help lines: its key, else
    /// its mouse button, else "(unbound)".
    static std::string ShortText(InputBinding const& binding);
    /// The help tab's lines, with the current bindings filled in. The caller
    /// holds the settings' lock.
    std::vector<std::string> const& HelpLines(GameSettings& settings);
    /// Whether two bindings share a key (Keyboard), a mouse button (Mouse), or a
    /// gamepad or joystick input (the others) in that column.
    static bool SameInput(InputBinding const& a, InputBinding const& b, Column column);
    /// Whether two actions (row names) can be asked for at the same time, so that
    /// sharing an input is a conflict: not an avatar_ and a vehicle_ action, which
    /// never are; the others (chat, sit, views) go with both.
    static bool SameContext(std::string_view a, std::string_view b);

    bool debugWindowOpen = false;     ///< "Debug Window" shown.
    bool profilingWindowOpen = false; ///< "Profiling (milliseconds)" shown.
    bool goalsWindowOpen = true;      ///< "Goals##Adventure" shown while in adventure mode.
    bool showImGuiMetrics = false;    ///< Dear ImGui's metrics window shown.
    /// Set when "UI Scaling" changed; the renderer turns it into its uiStyleDirty.
    bool styleChanged = false;
    /// Runs a help link; by default `xdg-open LINK &` through system().
    std::function<void(char const* link)> openLink;

private:
    char const* HelpTab(GameSettings& settings); // the link a button asked for, or null
    void GraphicsTab(GameSettings& settings);
    void AudioTab(GameSettings& settings);
    void InputTab(GameSettings& settings);
    void BindingCell(GameSettings& settings, size_t row, Column column);
    bool RefreshBindingTexts(GameSettings& settings); // under the settings' lock; true when they changed
    char const* ShortTextOf(InputBinding GameSettings::*member) const;
    bool Conflict(size_t row, size_t other, Column column) const; // two rows' cached bindings clash
    void BindingModal(GameSettings& settings);
    bool CaptureInto(InputBinding& binding); // true once an input was taken
    void StartCapture();
    void EndCapture(bool closePopups = true);

    GameRenderer* _renderer;
    bool _debugViewFallback = false;      // "Debug View" without a renderer
    float _debugViewScaleFallback = 1.0f; // "Debug View Scale" without a renderer

    // The binding being edited: row, column, and the inputs held when the editor opened.
    static constexpr int KeyCount = 349; // GLFW_KEY_LAST + 1
    static constexpr int MouseButtons = 8;
    static constexpr int MaxAxes = 32;
    int _editRow = -1;
    Column _editColumn = Column::Keyboard;
    bool _editOpened = false;
    std::array<bool, KeyCount> _keysHeld{};
    std::array<bool, MouseButtons> _buttonsHeld{};
    std::array<float, MaxAxes> _axesAtOpen{};

    // What the bindings table and the help lines show, made again only when a binding changed.
    struct BindingTexts {
        InputBinding binding;             // the binding the texts were made from
        std::array<std::string, 4> cells; // by Column
        std::array<bool, 4> conflict{};   // by Column
        std::string shortText;
    };
    std::vector<BindingTexts> _bindingTexts; // by row of BindingRows()
    std::vector<std::string> _helpLines;     // made again when the bindings changed

    // Profiling: the frame-time ring and the table, refreshed a few times a second.
    struct ProfileRow {
        std::string thread, path;
        uint64_t count = 0;
        double mean = 0.0, min = 0.0, max = 0.0;
    };
    std::array<float, 240> _frameMs{};
    size_t _frameMsNext = 0;
    std::vector<ProfileRow> _profileRows;
    double _profileRefreshed = -1.0;
    bool _profilerWasEnabled = false;
    bool _profilerTurnedOn = false;
};

} // namespace game::graphics::ui
