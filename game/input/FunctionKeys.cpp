#include "game/input/FunctionKeys.hpp"

#include "game/Game.hpp"
#include "game/GameSettings.hpp"
#include "game/Options.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "game/graphics/ui/Panels.hpp"
#include "nerox/graphics/Window.hpp"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>

namespace game::input {

std::atomic<bool> FunctionKeys::droneMode{false};
std::atomic<bool> FunctionKeys::respawnRequested{false};
std::string FunctionKeys::screenshotFolder = "../Tessara-data/screenshots";
std::array<bool, 13> FunctionKeys::_held{};
double FunctionKeys::_escapeDownSince = -1.0;

namespace {

double SteadySeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// A new file in the folder, named after the local time.
std::string ScreenshotPath(std::string const& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    std::time_t const now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &local);
    std::string path = folder + "/tessara-" + stamp + ".png";
    for (int n = 2; std::filesystem::exists(path, error); ++n)
        path = folder + "/tessara-" + stamp + "-" + std::to_string(n) + ".png";
    return path;
}

} // namespace

void FunctionKeys::Reset() {
    _held.fill(false);
    _escapeDownSince = -1.0;
}

void FunctionKeys::Update() {
    nerox::graphics::Window* const window = Game::window;
    if (window == nullptr) return;
    auto const down = [window](int key) { return window->GetKey(key) != GLFW_RELEASE; };
    // Which function keys went down in this pass. The keys are followed while
    // the bindings editor has the keyboard too, so that a key pressed for it
    // does not count as a press once the editor is gone.
    static std::string const captureFlag = "capture_keyboard_binding";
    bool const capturing = game::Options::Get<bool>(captureFlag, false);
    std::array<bool, 13> pressed{};
    for (int n = 1; n <= 12; ++n) {
        bool const now = down(GLFW_KEY_F1 + n - 1);
        pressed[n] = now && !_held[n] && !capturing;
        _held[n] = now;
    }
    graphics::GameRenderer* const renderer = Game::renderer;
    if (pressed[1]) Game::settingsWindowOpen = !Game::settingsWindowOpen;
    if (pressed[2]) droneMode = !droneMode;
    if (pressed[3]) Game::uiVisible = !Game::uiVisible;
    if (pressed[4]) {
        bool const allowed = Game::settings && Game::settings->Get(&GameSettings::admin_privileges);
        Game::adminWindowOpen = allowed && !Game::adminWindowOpen;
        if (!allowed) std::printf("The admin panel needs admin_privileges = true in the settings file\n");
    }
    if (pressed[7] && renderer != nullptr) renderer->panels->debugWindowOpen = !renderer->panels->debugWindowOpen;
    if (pressed[10] && (down(GLFW_KEY_LEFT_SHIFT) || down(GLFW_KEY_RIGHT_SHIFT))) respawnRequested = true;
    if (pressed[11]) window->SetFullscreen(!window->IsFullscreen());
    if (pressed[12] && renderer != nullptr) renderer->RequestScreenshot(ScreenshotPath(screenshotFolder));
    // A window just opened wants the pointer: the cursor is freed (a click into the world takes it again).
    bool const opened = (pressed[1] && Game::settingsWindowOpen) || (pressed[4] && Game::adminWindowOpen) ||
        (pressed[7] && renderer != nullptr && renderer->panels->debugWindowOpen);
    if (opened && Game::_inputMode != 0) Game::SetInputMode_Ui();

    if (!down(GLFW_KEY_ESCAPE) || capturing) {
        _escapeDownSince = -1.0;
    } else if (_escapeDownSince < 0.0) {
        _escapeDownSince = SteadySeconds();
    } else if (SteadySeconds() - _escapeDownSince >= QuitHoldSeconds) {
        _escapeDownSince = -1.0;
        std::printf("Escape held: quitting\n");
        Game::Quit();
    }
}

} // namespace game::input
