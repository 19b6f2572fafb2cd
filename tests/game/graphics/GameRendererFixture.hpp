#pragma once
// The game's renderer on a small offscreen output, with validation on, the user's
// settings in a scratch file and the recording module at hand. A test fails when
// the layers report an error while it runs.
#include "../core/GameTestFixture.hpp"
#include "support/TempDir.hpp"

#include "game/GameSettings.hpp"
#include "game/Options.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "nerox/graphics/HeadlessWindow.hpp"
#include "nerox/vk/Device.hpp"

#include <cstdlib>
#include <memory>

namespace rendertest {

using game::graphics::GameRenderer;
using gametest::GAME_Mod;

class GameRendererTest : public gametest::GameTest {
protected:
    void SetUp() override {
        GameTest::SetUp();
        setenv("NEROX_VK_VALIDATION", "1", 1);
        errorsBefore = nerox::vk::Device::ValidationErrorCount();
        Game::settings = std::make_unique<game::GameSettings>(settingsPath, std::nullopt);
    }
    void TearDown() override {
        if (renderer) renderer->StopRendering();
        renderer.reset();
        Game::renderer = nullptr;
        game::Options::Clear();
        EXPECT_EQ(nerox::vk::Device::ValidationErrorCount(), errorsBefore) << "validation errors (printed above)";
        GameTest::TearDown();
    }
    GameRenderer& Make() {
        renderer = std::make_unique<GameRenderer>(window.get(), "game_graphics_tests", 1,
                                                  nerox::vk::PhysicalDevice::Features{});
        return *(Game::renderer = renderer.get());
    }
    /// Loads a module (the recorder by default) and sorts it into the lists named.
    static void LoadSortedInto(std::vector<std::string> const& keys = {"update", "render", "post", "overlay", "ui"},
                               char const* name = gametest::recorderName) {
        ASSERT_TRUE(GAME_Mod::LoadModule(name, true));
        recorder::Clear();
        for (std::string const& key : keys)
            GAME_Mod::SortModules(key.c_str(), [](GAME_Mod::Ptr a, GAME_Mod::Ptr b) { return a->name < b->name; });
    }

    testsupport::TempDir scratch;
    std::string const settingsPath = scratch.File("settings.ini");
    std::unique_ptr<nerox::graphics::HeadlessWindow> window = std::make_unique<nerox::graphics::HeadlessWindow>(64, 48);
    std::unique_ptr<GameRenderer> renderer;
    uint64_t errorsBefore = 0;
};

} // namespace rendertest
