#include "GameTestFixture.hpp"

#include "nerox/graphics/HeadlessWindow.hpp"

#include <imgui.h>

namespace gametest {
namespace {

class InputModeTest : public GameTest {
protected:
    void SetUp() override {
        GameTest::SetUp();
        window.SetCursorPos(300.0, 200.0);
        Game::window = &window;
    }
    nerox::graphics::HeadlessWindow window;
};

TEST_F(InputModeTest, PlayModeInAFocusedWindowCapturesTheCursorAtTheOrigin) {
    Game::SetInputMode_Play();
    EXPECT_EQ(Game::_inputMode, 1);
    EXPECT_TRUE(Game::_mouseLook);
    EXPECT_EQ(window.GetInputMode(GLFW_CURSOR), GLFW_CURSOR_DISABLED);
    double x = -1, y = -1;
    window.GetCursorPos(&x, &y);
    EXPECT_EQ(x, 0.0);
    EXPECT_EQ(y, 0.0);

    Game::SetInputMode_Ui();
    EXPECT_EQ(Game::_inputMode, 0);
    EXPECT_FALSE(Game::_mouseLook);
    EXPECT_EQ(window.GetInputMode(GLFW_CURSOR), GLFW_CURSOR_NORMAL);
}

TEST_F(InputModeTest, WithoutFocusTheModeChangesButMouseLookStaysOffUntilAskedAgain) {
    window.SetFocused(false);
    Game::SetInputMode_Play();
    EXPECT_EQ(Game::_inputMode, 1);
    EXPECT_FALSE(Game::_mouseLook);
    EXPECT_EQ(window.GetInputMode(GLFW_CURSOR), GLFW_CURSOR_NORMAL);

    window.SetFocused(true);
    EXPECT_FALSE(Game::_mouseLook) << "regaining the focus changes nothing by itself";
    Game::SetMouseLook(true);
    EXPECT_TRUE(Game::_mouseLook);
    EXPECT_EQ(window.GetInputMode(GLFW_CURSOR), GLFW_CURSOR_DISABLED);
}

TEST_F(InputModeTest, StationModeAndPlayAlsoCapture) {
    Game::SetInputMode_Station();
    EXPECT_EQ(Game::_inputMode, 2);
    EXPECT_TRUE(Game::_mouseLook);
    Game::SetInputMode_Ui();
    Game::Play();
    EXPECT_EQ(Game::_inputMode, 1);
    EXPECT_TRUE(Game::_mouseLook);
    Game::Pause();
    EXPECT_EQ(Game::_inputMode, 1) << "Pause does nothing";
}

TEST_F(InputModeTest, AskingForTheCurrentStateTouchesNothing) {
    Game::SetMouseLook(false);
    window.SetInputMode(GLFW_CURSOR, GLFW_CURSOR_HIDDEN);
    Game::SetMouseLook(false);
    EXPECT_EQ(window.GetInputMode(GLFW_CURSOR), GLFW_CURSOR_HIDDEN);

    Game::SetMouseLook(true);
    window.SetCursorPos(50.0, 60.0);
    Game::SetMouseLook(true);
    double x = 0, y = 0;
    window.GetCursorPos(&x, &y);
    EXPECT_EQ(x, 50.0) << "a second capture does not move the cursor again";
}

TEST_F(InputModeTest, WithoutAWindowMouseLookStaysOffAndModesStillChange) {
    Game::window = nullptr;
    Game::SetMouseLook(true);
    EXPECT_FALSE(Game::_mouseLook);
    Game::SetInputMode_Station();
    EXPECT_EQ(Game::_inputMode, 2);
    EXPECT_FALSE(Game::_mouseLook);
}

TEST_F(InputModeTest, CapturingTakesTheInterfaceFocusAway) {
    ImGuiContext* context = ImGui::CreateContext();
    ImGuiIO& io = ImGui::GetIO();
    io.DisplaySize = ImVec2(800, 600);
    unsigned char* pixels = nullptr;
    int width = 0, height = 0;
    io.Fonts->GetTexDataAsRGBA32(&pixels, &width, &height);
    ImGui::NewFrame();
    ImGui::Begin("Panel");
    ImGui::End();
    ImGui::SetWindowFocus("Panel");
    ImGui::EndFrame();
    ImGui::NewFrame();
    ASSERT_TRUE(ImGui::IsWindowFocused(ImGuiFocusedFlags_AnyWindow));

    Game::SetMouseLook(true);
    EXPECT_FALSE(ImGui::IsWindowFocused(ImGuiFocusedFlags_AnyWindow));
    ImGui::EndFrame();
    ImGui::DestroyContext(context);
}

} // namespace
} // namespace gametest
