#include "GameTestFixture.hpp"

#include "game/GameSettings.hpp"
#include "nerox/graphics/HeadlessWindow.hpp"
#include "support/TempDir.hpp"

#include <imgui.h>
#include <imgui_internal.h>

namespace gametest {
namespace {

// A Dear ImGui context with a built font atlas, plus settings in a scratch file.
class UiStyleTest : public GameTest {
protected:
    void SetUp() override {
        GameTest::SetUp();
        context = ImGui::CreateContext();
        ImGui::GetIO().DisplaySize = ImVec2(1024, 768);
        ImGui::GetIO().IniFilename = nullptr;
        ImGui::GetIO().Fonts->Build();
        Game::settings = std::make_unique<game::GameSettings>(scratch.File("settings.ini"), std::nullopt);
    }
    void TearDown() override {
        ImGui::DestroyContext(context);
        GameTest::TearDown();
    }
    ImGuiContext* context = nullptr;
    testsupport::TempDir scratch;
};

TEST_F(UiStyleTest, TheStyleIsScaledByTheSettingsInterfaceScale) {
    Game::settings->ui_scaling = 1.5f;
    Game::SetupUiStyle();
    ImGuiStyle const& style = ImGui::GetStyle();
    EXPECT_FLOAT_EQ(style.WindowPadding.x, 15.0f);
    EXPECT_FLOAT_EQ(style.WindowBorderSize, 2.0f) << "border sizes are not scaled";
    EXPECT_FLOAT_EQ(style.WindowMinSize.x, 450.0f);
    EXPECT_FLOAT_EQ(style.FramePadding.y, 7.0f) << "sizes are scaled to whole pixels";
    EXPECT_FLOAT_EQ(style.FrameRounding, 6.0f);
    EXPECT_FLOAT_EQ(ImGui::GetIO().FontGlobalScale, 0.75f);
    EXPECT_FLOAT_EQ(Game::GetUiScaling(), 1.5f);
}

TEST_F(UiStyleTest, WithoutAContextNothingIsDrawnAndTheScaleComesFromTheSettings) {
    ImGui::SetCurrentContext(nullptr);
    Game::settings->ui_scaling = 2.0f;
    EXPECT_FLOAT_EQ(Game::GetUiScaling(), 2.0f);
    EXPECT_FALSE(Game::ShowHelpTooltip());
    Game::SetupUiStyle();
    Game::LoadFonts();
    ImGui::SetCurrentContext(context);
}

TEST_F(UiStyleTest, TheHelpTooltipShowsOnlyWhileLookingWithTheSettingOn) {
    nerox::graphics::HeadlessWindow window;
    Game::window = &window;
    ImGui::NewFrame();
    EXPECT_FALSE(Game::ShowHelpTooltip()) << "mouse look is off";
    Game::SetMouseLook(true);
    EXPECT_TRUE(Game::ShowHelpTooltip());
    Game::settings->show_help_tooltips = false;
    EXPECT_FALSE(Game::ShowHelpTooltip());
    ImGui::EndFrame();
    ImGui::NewFrame();
    EXPECT_NE(ImGui::FindWindowByName("Help Tooltips"), nullptr);
    ImGui::EndFrame();
}

TEST_F(UiStyleTest, CapturingTakesTheInterfaceFocusAway) {
    nerox::graphics::HeadlessWindow window;
    Game::window = &window;
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
}

TEST_F(UiStyleTest, FontsFallBackWhenTheGameFontIsMissing) {
    ImGui::GetIO().Fonts->Clear();
    testing::internal::CaptureStderr();
    Game::LoadFonts();
    EXPECT_NE(testing::internal::GetCapturedStderr().find("SourceCodePro-Semibold.otf"), std::string::npos);
    EXPECT_EQ(ImGui::GetIO().Fonts->ConfigData.Size, 1);
}

} // namespace
} // namespace gametest
