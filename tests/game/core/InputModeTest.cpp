#include "GameTestFixture.hpp"

#include "nerox/graphics/HeadlessWindow.hpp"

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

TEST_F(InputModeTest, ModesInAFocusedWindowCaptureTheCursorAtTheOriginExceptTheInterfaceMode) {
    struct Case {
        char const* name;
        void (*enter)();
        int mode;
        bool mouseLook;
    };
    for (Case const& c : {Case{"play", &Game::SetInputMode_Play, 1, true}, Case{"ui", &Game::SetInputMode_Ui, 0, false},
                          Case{"station", &Game::SetInputMode_Station, 2, true},
                          Case{"ui", &Game::SetInputMode_Ui, 0, false}, Case{"Play", &Game::Play, 1, true},
                          Case{"Pause does nothing", &Game::Pause, 1, true}}) {
        SCOPED_TRACE(c.name);
        window.SetCursorPos(300.0, 200.0);
        c.enter();
        EXPECT_EQ(Game::_inputMode, c.mode);
        EXPECT_EQ(Game::_mouseLook, c.mouseLook);
        EXPECT_EQ(window.GetInputMode(GLFW_CURSOR), c.mouseLook ? GLFW_CURSOR_DISABLED : GLFW_CURSOR_NORMAL);
        double x = -1, y = -1;
        window.GetCursorPos(&x, &y);
        EXPECT_TRUE(!c.mouseLook || c.enter == &Game::Pause || (x == 0.0 && y == 0.0)) << x << "," << y;
    }
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
    EXPECT_EQ(window.GetInputMode(GLFW_CURSOR), GLFW_CURSOR_DISABLED);
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
    Game::SetInputMode_Station();
    EXPECT_EQ(Game::_inputMode, 2);
    EXPECT_FALSE(Game::_mouseLook);
}

} // namespace
} // namespace gametest
