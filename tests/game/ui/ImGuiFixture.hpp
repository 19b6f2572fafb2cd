#pragma once
// UI tests run Dear ImGui without a screen: a context with a display size and a
// built font atlas, input written into ImGuiIO the way the GLFW backend does
// (keys indexed by GLFW key codes), and frames through NewFrame/Render. The
// game's window is a headless one, so the system clipboard is its clipboard.
#include <gtest/gtest.h>

#include <imgui.h>

#include "game/Game.hpp"
#include "nerox/graphics/HeadlessWindow.hpp"
#include "support/Golden.hpp"

#include <sstream>
#include <string>

namespace uitest {

class ImGuiTest : public ::testing::Test {
protected:
    void SetUp() override {
        context = ImGui::CreateContext();
        ImGuiIO& io = ImGui::GetIO();
        io.IniFilename = nullptr;
        io.DisplaySize = ImVec2(1280.0f, 720.0f);
        io.FontGlobalScale = 0.5f; // UI scaling 1: Game::GetUiScaling() is twice this
        io.Fonts->Build();
        std::istringstream keys(
            "tab left right up down pgup pgdn home end ins del back space enter esc kpenter a c v x y z");
        int at = 0; // in the order of ImGuiKey_
        for (std::string key; keys >> key;) io.KeyMap[at++] = KeyCode(key);
        Game::window = &window;
    }

    void TearDown() override {
        ImGui::DestroyContext(context);
        Game::window = nullptr;
    }

    template <typename Body> void Frame(Body const& body) { ImGui::NewFrame(), body(), ImGui::Render(); }

    void MouseTo(float x, float y) { ImGui::GetIO().MousePos = ImVec2(x, y); }
    /// Presses or releases a mouse button: 0 left, 1 right, 2 middle.
    void Mouse(int button, bool down) { ImGui::GetIO().MouseDown[button] = down; }
    /// Presses or releases a key by its GLFW code; Ctrl, Shift and Alt also set the modifiers.
    void Key(int key, bool down) {
        ImGuiIO& io = ImGui::GetIO();
        io.KeysDown[key] = down;
        io.KeyCtrl = io.KeysDown[GLFW_KEY_LEFT_CONTROL] || io.KeysDown[GLFW_KEY_RIGHT_CONTROL];
        io.KeyShift = io.KeysDown[GLFW_KEY_LEFT_SHIFT] || io.KeysDown[GLFW_KEY_RIGHT_SHIFT];
        io.KeyAlt = io.KeysDown[GLFW_KEY_LEFT_ALT] || io.KeysDown[GLFW_KEY_RIGHT_ALT];
    }
    void Type(unsigned int codepoint) { ImGui::GetIO().AddInputCharacter(codepoint); }
    /// A key's GLFW code by its name in a script: a letter, or ctrl, shift, del, left, pgup and so on.
    static int KeyCode(std::string const& name) {
        static std::pair<char const*, int> const names[] = {
            {"ctrl", GLFW_KEY_LEFT_CONTROL}, {"rctrl", GLFW_KEY_RIGHT_CONTROL},
            {"shift", GLFW_KEY_LEFT_SHIFT},  {"left", GLFW_KEY_LEFT},
            {"right", GLFW_KEY_RIGHT},       {"up", GLFW_KEY_UP},
            {"down", GLFW_KEY_DOWN},         {"home", GLFW_KEY_HOME},
            {"end", GLFW_KEY_END},           {"ins", GLFW_KEY_INSERT},
            {"del", GLFW_KEY_DELETE},        {"back", GLFW_KEY_BACKSPACE},
            {"enter", GLFW_KEY_ENTER},       {"tab", GLFW_KEY_TAB},
            {"kpenter", GLFW_KEY_KP_ENTER},  {"pgup", GLFW_KEY_PAGE_UP},
            {"pgdn", GLFW_KEY_PAGE_DOWN},    {"esc", GLFW_KEY_ESCAPE},
            {"space", GLFW_KEY_SPACE}};
        for (auto const& [key, code] : names)
            if (name == key) return code;
        return std::toupper(name[0]);
    }

    /// Replays the script tests/data/NAME and compares it whole with the file: '#' and blank
    /// lines stay, lines starting with '=' or '@' are rewritten by `show`, and the others are
    /// commands split at ';', each given to `run` as its first word and the rest.
    template <typename Run, typename Show> void Replay(std::string const& name, Run const& run, Show const& show) {
        std::string out;
        for (std::string const& line : testsupport::SplitLines(testsupport::ReadText(testsupport::DataFile(name)))) {
            bool const shown = line[0] == '=' || line[0] == '@';
            std::istringstream commands(shown || line[0] == '#' ? "" : line);
            for (std::string command; std::getline(commands >> std::ws, command, ';');) {
                std::istringstream in(command);
                std::string verb, rest;
                std::getline(in >> verb >> std::ws, rest);
                run(verb, rest.erase(rest.find_last_not_of(' ') + 1));
            }
            out += (shown ? show(line[0]) : line) + "\n";
        }
        testsupport::ExpectGolden(out, name);
    }

    ImGuiContext* context = nullptr;
    nerox::graphics::HeadlessWindow window{1280, 720};
};

} // namespace uitest
