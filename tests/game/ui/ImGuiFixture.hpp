#pragma once
// UI tests run Dear ImGui without a screen: a context with a display size and a
// built font atlas, input written into ImGuiIO the way the GLFW backend does
// (keys indexed by GLFW key codes), and frames through NewFrame/Render. The
// game's window is a headless one, so the system clipboard is its clipboard.
#include <gtest/gtest.h>

#include <functional>

#include <imgui.h>

#include "game/Game.hpp"
#include "nerox/graphics/HeadlessWindow.hpp"

namespace uitest {

class ImGuiTest : public ::testing::Test {
protected:
    void SetUp() override {
        context = ImGui::CreateContext();
        ImGuiIO& io = ImGui::GetIO();
        io.IniFilename = nullptr;
        io.LogFilename = nullptr;
        io.DisplaySize = ImVec2(1280.0f, 720.0f);
        io.DeltaTime = 1.0f / 60.0f;
        io.FontGlobalScale = 0.5f; // UI scaling 1: Game::GetUiScaling() is twice this
        unsigned char* pixels = nullptr;
        int width = 0, height = 0;
        io.Fonts->GetTexDataAsRGBA32(&pixels, &width, &height);
        io.KeyMap[ImGuiKey_Tab] = GLFW_KEY_TAB;
        io.KeyMap[ImGuiKey_LeftArrow] = GLFW_KEY_LEFT;
        io.KeyMap[ImGuiKey_RightArrow] = GLFW_KEY_RIGHT;
        io.KeyMap[ImGuiKey_UpArrow] = GLFW_KEY_UP;
        io.KeyMap[ImGuiKey_DownArrow] = GLFW_KEY_DOWN;
        io.KeyMap[ImGuiKey_PageUp] = GLFW_KEY_PAGE_UP;
        io.KeyMap[ImGuiKey_PageDown] = GLFW_KEY_PAGE_DOWN;
        io.KeyMap[ImGuiKey_Home] = GLFW_KEY_HOME;
        io.KeyMap[ImGuiKey_End] = GLFW_KEY_END;
        io.KeyMap[ImGuiKey_Insert] = GLFW_KEY_INSERT;
        io.KeyMap[ImGuiKey_Delete] = GLFW_KEY_DELETE;
        io.KeyMap[ImGuiKey_Backspace] = GLFW_KEY_BACKSPACE;
        io.KeyMap[ImGuiKey_Space] = GLFW_KEY_SPACE;
        io.KeyMap[ImGuiKey_Enter] = GLFW_KEY_ENTER;
        io.KeyMap[ImGuiKey_Escape] = GLFW_KEY_ESCAPE;
        io.KeyMap[ImGuiKey_KeyPadEnter] = GLFW_KEY_KP_ENTER;
        io.KeyMap[ImGuiKey_A] = GLFW_KEY_A;
        io.KeyMap[ImGuiKey_C] = GLFW_KEY_C;
        io.KeyMap[ImGuiKey_V] = GLFW_KEY_V;
        io.KeyMap[ImGuiKey_X] = GLFW_KEY_X;
        io.KeyMap[ImGuiKey_Y] = GLFW_KEY_Y;
        io.KeyMap[ImGuiKey_Z] = GLFW_KEY_Z;
        io.MousePos = ImVec2(-FLT_MAX, -FLT_MAX);
        Game::window = &window;
    }

    void TearDown() override {
        ImGui::DestroyContext(context);
        context = nullptr;
        Game::window = nullptr;
    }

    /// One frame: NewFrame, body, Render.
    void Frame(std::function<void()> const& body) {
        ImGui::NewFrame();
        body();
        ImGui::Render();
    }

    /// Moves the pointer (screen pixels).
    void MouseTo(float x, float y) { ImGui::GetIO().MousePos = ImVec2(x, y); }
    /// Presses or releases a mouse button: 0 left, 1 right, 2 middle.
    void Mouse(int button, bool down) { ImGui::GetIO().MouseDown[button] = down; }
    /// Scrolls the wheel by so many steps for the next frame.
    void Wheel(float steps) { ImGui::GetIO().MouseWheel = steps; }
    /// Presses or releases a key by its GLFW code; Ctrl, Shift, Alt and Super also set the modifiers.
    void Key(int key, bool down) {
        ImGuiIO& io = ImGui::GetIO();
        io.KeysDown[key] = down;
        io.KeyCtrl = io.KeysDown[GLFW_KEY_LEFT_CONTROL] || io.KeysDown[GLFW_KEY_RIGHT_CONTROL];
        io.KeyShift = io.KeysDown[GLFW_KEY_LEFT_SHIFT] || io.KeysDown[GLFW_KEY_RIGHT_SHIFT];
        io.KeyAlt = io.KeysDown[GLFW_KEY_LEFT_ALT] || io.KeysDown[GLFW_KEY_RIGHT_ALT];
        io.KeySuper = io.KeysDown[GLFW_KEY_LEFT_SUPER] || io.KeysDown[GLFW_KEY_RIGHT_SUPER];
    }
    /// Types a character for the next frame.
    void Type(unsigned int codepoint) { ImGui::GetIO().AddInputCharacter(codepoint); }

    ImGuiContext* context = nullptr;
    nerox::graphics::HeadlessWindow window{1280, 720};
};

} // namespace uitest
