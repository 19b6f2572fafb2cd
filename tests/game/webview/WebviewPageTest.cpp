// The whole way: the webview program renders the sample's page in the system's
// chromium, its frames fill a texture on the software Vulkan device, and a
// click sent as input messages changes the page. Runs where node, chromium and
// the program's packages are installed (scripts/setup.sh installs all three).
#include "game/ElectronWebview.hpp"
#include "game/Game.hpp"
#include "game/PipeServer.hpp"
#include "nerox/VulkanEngine.hpp"
#include "nerox/graphics/DynamicAsyncTexture.hpp"
#include "support/TextureReadback.hpp"

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

struct TestEngine : nerox::VulkanEngine {
    explicit TestEngine(nerox::vk::DeviceOptions const& options) : DeviceInterface(options) { }
};

/// Pixels of the page's colours (sRGB bytes, as the texture holds them).
struct Colours {
    size_t background = 0; // #1b2a4a
    size_t button = 0;     // #f0a020
    size_t meter = 0;      // #30d050, the bar that grows with each click
};

TEST(WebviewPage, TheSamplePageFillsATextureAndCountsAClick) {
    fs::path const root = fs::path(TESSARA_TEST_SOURCE_DIR).parent_path();
    fs::path const program = root / "tools/webview/webview.js";
    fs::path const page = root / "modules/sample/web/clock.html";
    char const* browser = std::getenv("TESSARA_WEBVIEW_BROWSER");
    if (std::system("command -v node >/dev/null 2>&1") != 0 || !fs::exists(browser ? browser : "/usr/bin/chromium") ||
        !fs::exists(root / "tools/webview/node_modules/puppeteer-core"))
        GTEST_SKIP() << "needs node, chromium and the webview program's packages: run scripts/setup.sh";

    nerox::vk::DeviceOptions options;
    options.applicationName = "game_webview_tests";
    TestEngine engine(options);
    nerox::vk::Device& device = engine.GetDevice();
    std::atomic<int> pushesAsked{0};
    auto texture = std::make_shared<nerox::graphics::DynamicAsyncTexture>(
        &engine, 480, 320, [&](std::shared_ptr<nerox::graphics::Texture>) { ++pushesAsked; }, "web page");
    testsupport::PixelBuffer shown(device, 480 * 320, VK_BUFFER_USAGE_TRANSFER_DST_BIT, "shown");
    // Uploads what the texture has and counts the page's colours in the image.
    auto look = [&] {
        Colours colours;
        bool const ran = testsupport::PushAndRead(device, *texture, shown);
        EXPECT_TRUE(ran);
        for (size_t i = 0; i < 480 * 320; ++i) {
            uint32_t const rgb = shown.Data()[i] & 0xFFFFFF; // red in the low byte
            colours.background += rgb == 0x4A2A1B;
            colours.button += rgb == 0x20A0F0;
            colours.meter += rgb == 0x50D030;
        }
        return colours;
    };
    // Looks until ready says yes, for at most seconds.
    auto waitFor = [&](std::chrono::seconds seconds, std::function<bool(Colours const&)> const& ready) {
        Colours colours;
        for (auto const end = std::chrono::steady_clock::now() + seconds; std::chrono::steady_clock::now() < end;) {
            colours = look();
            if (ready(colours)) break;
            std::this_thread::sleep_for(50ms);
        }
        return colours;
    };

    std::string const name = "webview_page_" + std::to_string(::getpid());
    fs::create_directories("../Tessara-data");
    game::PipeServer pipe(name);
    game::ElectronWebview webview;
    std::atomic<bool> stop{false}, writerDone{false}, readerDone{false};
    Game::isActive = true; // as in a game: the program runs until it ends
    std::thread process(
        [&] { webview.RunElectron("node '" + program.string() + "' --pipe " + pipe.Stem() + " --fps 20"); });
    std::thread writer([&] {
        while (!stop) {
            webview.WriteToPipe(pipe);
            std::this_thread::sleep_for(5ms);
        }
        pipe.CloseWrite(); // the program's cue to end
        writerDone = true;
    });
    std::thread reader([&] {
        while (webview.ReadFromPipe(pipe)) { }
        readerDone = true;
    });

    webview.Texture(texture, "clock", "file://" + page.string(), 1.0);
    Colours const first = waitFor(40s, [](Colours const& c) { return c.background > 480 * 320 / 2 && c.button > 0; });
    EXPECT_GT(first.background, 480u * 320 / 2) << "the page's background";
    EXPECT_GT(first.button, 10000u) << "the button";
    EXPECT_EQ(first.meter, 0u) << "no click yet";
    EXPECT_GT(pushesAsked.load(), 0);

    webview.MouseMove("clock", 100, 190); // on the button
    webview.MouseButton("clock", 0, 1, 100, 190);
    webview.MouseButton("clock", 0, 0, 100, 190);
    Colours const clicked = waitFor(30s, [](Colours const& c) { return c.meter > 0; });
    // A tenth of the bar, 43 x 24 pixels, less what the edges blend.
    EXPECT_GT(clicked.meter, 800u) << "the click reached the page";

    stop = true;
    Game::isActive = false;
    bool late = false;
    for (auto const end = std::chrono::steady_clock::now() + 20s; !(writerDone && readerDone);) {
        if (!late && std::chrono::steady_clock::now() > end) {
            ADD_FAILURE() << "the program did not end when the game closed its pipe";
            late = true;
        }
        if (late || !webview.running) pipe.Interrupt(); // nobody at the other end any more
        std::this_thread::sleep_for(10ms);
    }
    writer.join();
    reader.join();
    process.join();
    EXPECT_FALSE(webview.running);
}

} // namespace
