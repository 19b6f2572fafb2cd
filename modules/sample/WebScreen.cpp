#include "WebScreen.hpp"

#include "Sample.hpp"

#include "game/Game.hpp"
#include "game/PipeServer.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "game/graphics/RenderableInstance.hpp"
#include "nerox/graphics/DynamicAsyncTexture.hpp"

#include <atomic>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <thread>

#include <unistd.h>

namespace sample {

namespace {

using namespace std::chrono_literals;

/// The webview process and the threads that talk to it: one runs the program
/// (Game::electronWebview.RunElectron, until the game ends), one writes the
/// queued commands, one reads the frames. Started once per run of the game.
struct Webview {
    std::mutex mutex; // guards the rest; taken by the client thread only
    bool tried = false;
    bool available = false;
    std::unique_ptr<game::PipeServer> pipe;
    std::thread process, writer, reader;
    std::atomic<bool> stopping{false}, writerDone{false}, readerDone{false};
} webview;

/// path as a file URL, with the bytes a URL cannot hold as they are percent-encoded.
std::string FileUrl(std::filesystem::path const& path) {
    std::string url = "file://";
    for (unsigned char c : path.string()) {
        if (std::isalnum(c) || std::strchr("/-._~", c) != nullptr) {
            url += static_cast<char>(c);
        } else {
            char escaped[4];
            std::snprintf(escaped, sizeof escaped, "%%%02X", c);
            url += escaped;
        }
    }
    return url;
}

/// Why the webview program cannot run here; empty if it can.
std::string Missing() {
    if (char const* off = std::getenv("TESSARA_NO_WEBVIEW"); off != nullptr && *off != '\0' && *off != '0')
        return "TESSARA_NO_WEBVIEW is set";
    if (!std::filesystem::exists("webview/webview.js")) return "webview/webview.js is not in the run directory";
    if (!std::filesystem::exists("webview/node_modules/puppeteer-core"))
        return "the webview program's packages are not installed (scripts/setup.sh installs them)";
    if (std::system("command -v node >/dev/null 2>&1") != 0) return "node is not installed";
    char const* browser = std::getenv("TESSARA_WEBVIEW_BROWSER");
    if (!std::filesystem::exists(browser ? browser : "/usr/bin/chromium")) return "chromium is not installed";
    return {};
}

/// Starts the program and the threads the first time; true while they can serve pages.
bool StartWebview() {
    std::lock_guard lock(webview.mutex);
    if (webview.tried) return webview.available;
    webview.tried = true;
    if (std::string const missing = Missing(); !missing.empty()) {
        std::fprintf(stderr, "[sample] web screens stay dark: %s\n", missing.c_str());
        return false;
    }
    std::error_code ignored;
    std::filesystem::create_directories("../Tessara-data", ignored);
    // A name of this process's own: games started from one run directory
    // each talk to their own program.
    webview.pipe = std::make_unique<game::PipeServer>("TESSARA_sample_webview_" + std::to_string(::getpid()));
    std::string const command = "node webview/webview.js --pipe " + webview.pipe->Stem() + " --fps 30";
    game::PipeServer& pipe = *webview.pipe;
    webview.stopping = false;
    webview.writerDone = false;
    webview.readerDone = false;
    webview.process = std::thread([command] { Game::electronWebview.RunElectron(command); });
    webview.writer = std::thread([&pipe] {
        // A command or a keep-alive every few milliseconds; the program reads
        // them as they come. When the game ends, the end of the pipe tells the
        // program to go.
        while (Game::isActive && !webview.stopping) {
            if (!Game::electronWebview.WriteToPipe(pipe)) break; // the program has gone (and said so)
            std::this_thread::sleep_for(4ms);
        }
        pipe.CloseWrite();
        webview.writerDone = true;
    });
    webview.reader = std::thread([&pipe] {
        while (Game::electronWebview.ReadFromPipe(pipe)) { }
        webview.readerDone = true;
    });
    webview.available = true;
    std::printf("[sample] webview started: %s\n", command.c_str());
    return true;
}

} // namespace

void StopWebview() {
    std::lock_guard lock(webview.mutex);
    if (webview.available) {
        webview.stopping = true;
        // The program ends when it sees the end of its pipe; a thread still
        // waiting for it to open a pipe (it never started) is let go.
        for (auto const end = std::chrono::steady_clock::now() + 2s;
             !(webview.writerDone && webview.readerDone) && std::chrono::steady_clock::now() < end;)
            std::this_thread::sleep_for(10ms);
        while (!(webview.writerDone && webview.readerDone)) {
            webview.pipe->Interrupt();
            std::this_thread::sleep_for(10ms);
        }
        webview.writer.join();
        webview.reader.join();
        webview.process.join();
        webview.pipe.reset();
    }
    Game::electronWebview.ClearCallbacks();
    webview.tried = false;
    webview.available = false;
}

WebScreenLook::~WebScreenLook() {
    if (view.empty()) return;
    Game::electronWebview.Close(view); // no frame reaches the texture after this
    Game::AssignMonitor(textureIndex, "");
}

void WebScreenLook::Update(double) {
    game::graphics::GameRenderer* renderer = Game::renderer;
    if (renderer == nullptr || failed) return;
    if (!texture) {
        try {
            texture = std::make_shared<nerox::graphics::DynamicAsyncTexture>(
                renderer, webScreenWidth, webScreenHeight,
                [renderer](std::shared_ptr<nerox::graphics::Texture> t) { renderer->SchedulePush(std::move(t)); },
                "sample web screen");
            textureIndex = renderer->AddTexture(nerox::graphics::TextureRef(texture));
        } catch (std::exception const& error) {
            std::fprintf(stderr, "[sample] a web screen shows nothing: %s\n", error.what());
            failed = true;
            return;
        }
        if (StartWebview()) {
            view = "sample_page_" + std::to_string(textureIndex);
            std::string const url = FileUrl(std::filesystem::absolute(webScreenPage).lexically_normal());
            Game::electronWebview.Texture(texture, view, url, 1.0);
            Game::AssignMonitor(textureIndex, view);
        }
    }
    auto const owner = entity.lock();
    if (!owner) return;
    // The renderables are made again when the mesh is: show the page on the new ones.
    for (game::entity::ClientSideEntity::Renderable const& renderable : owner->renderables)
        if (renderable.instance && renderable.instance != onInstance &&
            renderable.instance->SetMonitorTexture("screen", textureIndex, glm::vec3(1.0f)))
            onInstance = renderable.instance;
}

} // namespace sample
