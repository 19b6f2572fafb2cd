#pragma once
// The sample's web screen: a look that shows a web page on the mesh's
// "screen" material, and the three threads that the webview client needs,
// started when the first web screen is seen and ended with the game.
//
// The page is rendered by the webview program (webview/webview.js in the run
// directory, from tools/webview/) in the system's chromium. Without node, the
// program or the browser, the screen stays dark and one line says why.
#include "game/entity/ClientSideEntity.hpp"

#include <cstdint>
#include <memory>
#include <string>

namespace nerox::graphics {
class DynamicAsyncTexture;
}
namespace game::graphics {
class RenderableInstance;
}

namespace sample {

/// How a web screen looks: its mesh, with the page on the "screen" material.
/// The page's texture index is also its monitor id (Game::AssignMonitor), so
/// that the aim tells the client module which page the player points at.
class WebScreenLook final : public game::entity::ClientSideEntity::Interface {
public:
    ~WebScreenLook() override;
    void Update(double) override;

private:
    std::string view; ///< The page's view name; empty until it is open.
    std::shared_ptr<nerox::graphics::DynamicAsyncTexture> texture;
    uint32_t textureIndex = 0;
    std::shared_ptr<game::graphics::RenderableInstance> onInstance; ///< Where the page is shown.
    bool failed = false;
};

/// Ends the webview threads and the program and waits for them. Call it once
/// the game has ended (Game::isActive is clear), as the content module's
/// Unload does: the thread that runs the program waits for that.
void StopWebview();

} // namespace sample
