#include "ClientRun.hpp"

#include "nerox/graphics/GlfwWindow.hpp"
#include "nerox/graphics/HeadlessWindow.hpp"
#include "nerox/renderer/NeroxRenderer.hpp"

#include <imgui.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <memory>
#include <thread>

namespace host {

namespace {

std::atomic<bool> interrupted{false};

void OnInterrupt(int) { interrupted.store(true); }

/// The host's renderer: the base frame loop with a small status panel, so that
/// a frame shows that the device, the frame loop and the interface all work.
class ClientRenderer final : public nerox::renderer::NeroxRenderer {
public:
    using NeroxRenderer::NeroxRenderer;

    void FrameUpdateUi() override
    {
        ImGui::SetNextWindowPos(ImVec2(20.0f, 20.0f), ImGuiCond_FirstUseEver);
        ImGui::Begin("Tessara", nullptr, ImGuiWindowFlags_AlwaysAutoResize);
        ImGui::Text("Client mode on %s", GetDevice().Properties().deviceName);
        ImGui::Text("Frame %llu", static_cast<unsigned long long>(FrameIndex()));
        ImGui::Text("Ray tracing: %s", GetDevice().HasRayTracing() ? "available" : "not on this device");
        ImGui::End();
        ImGui::SetNextWindowPos(ImVec2(20.0f, 110.0f), ImGuiCond_FirstUseEver);
        ImGui::SetNextWindowSize(ImVec2(420.0f, 150.0f), ImGuiCond_FirstUseEver);
        UiShowAdvancedPerformanceMetrics();
    }
};

} // namespace

int RunClient(HostOptions const& options)
{
    std::unique_ptr<nerox::graphics::Window> window;
    if (options.offscreen) {
        window = std::make_unique<nerox::graphics::HeadlessWindow>(options.width, options.height);
    } else {
        try {
            window = std::make_unique<nerox::graphics::GlfwWindow>("Tessara", options.width, options.height);
        } catch (std::exception const& error) {
            std::cerr << "tessara: cannot open a window (" << error.what()
                      << "); without a display use --client --offscreen\n";
            return 1;
        }
    }
    nerox::vk::PhysicalDevice::Features features;
    ClientRenderer renderer(window.get(), "Tessara", 1, features, true);
    std::printf("Client mode: %s, %s output %dx%d\n", renderer.GetDevice().Properties().deviceName,
                options.offscreen ? "offscreen" : "window", options.width, options.height);
    std::signal(SIGINT, OnInterrupt);
    std::signal(SIGTERM, OnInterrupt);
    renderer.StartRendering();
    auto const start = std::chrono::steady_clock::now();
    long long frames = 0;
    while (!interrupted.load()) {
        window->PollEvents();
        if (window->ShouldClose())
            break;
        // A window's frame is presented and gone: keep a copy of each while a
        // screenshot is wanted, since the last one is known only afterwards.
        if (!options.screenshotPath.empty() && renderer.HasSwapchain())
            renderer.CaptureNextFrame();
        uint64_t const before = renderer.FrameIndex();
        renderer.Frame();
        if (renderer.FrameIndex() == before) {
            // Skipped (a minimised window): wait a little rather than spin.
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            continue;
        }
        ++frames;
        if (options.frames && frames >= *options.frames)
            break;
    }
    double const seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    int status = 0;
    if (!options.screenshotPath.empty()) {
        if (renderer.SaveOutputImage(options.screenshotPath)) {
            std::printf("Saved the last frame to %s\n", options.screenshotPath.c_str());
        } else {
            std::cerr << "tessara: could not save the screenshot " << options.screenshotPath << '\n';
            status = 1;
        }
    }
    renderer.StopRendering();
    std::printf("Rendered %lld frames in %.2f s (%.1f frames/s)\n", frames, seconds, seconds > 0.0 ? frames / seconds : 0.0);
    return status;
}

} // namespace host
