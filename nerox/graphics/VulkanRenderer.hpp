#pragma once
// The frame loop base of a renderer: an output image that is either a window's
// swapchain or an offscreen image, per-frame command buffers, and the Dear
// ImGui pass drawn on top of each frame.
#include "nerox/graphics/Window.hpp"
#include "nerox/vk/Buffer.hpp"
#include "nerox/vk/DeviceInterface.hpp"
#include "nerox/vk/Image.hpp"
#include "nerox/vk/Renderpass.hpp"

#include <vulkan/vulkan.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace nerox::graphics {

/// The frame loop base. With a GLFW window it renders into the window's
/// swapchain; with a headless window (or none) into an offscreen image of the
/// window's size (1280x720 without a window). Not thread-safe: StartRendering,
/// the frames and StopRendering run on one thread.
class VulkanRenderer : public vk::interface::DeviceInterface {
public:
    /// Frames recorded ahead of the device.
    static constexpr uint32_t FramesInFlight = 2;

    /// Creates the device (with the features the frame loop needs added to
    /// features) and, for a GLFW window, its surface. Throws
    /// std::runtime_error when no device fits.
    VulkanRenderer(Window* window, char const* applicationName, uint32_t applicationVersion,
                   vk::PhysicalDevice::Features const& features, bool vsync);
    ~VulkanRenderer() override;

    /// Creates the output image (swapchain or offscreen) and what depends on its size.
    virtual void CreateSwapchainDependantObjects();
    /// Destroys what CreateSwapchainDependantObjects made; waits for the device first.
    virtual void DestroySwapchainDependantObjects();
    /// Destroys and creates the output again, for a new size or present mode.
    virtual void ReCreateSwapchain();
    /// Follows a change of the output's size: recreates the output.
    virtual void RefreshViewport();
    /// The offscreen output image; null when rendering to a swapchain.
    virtual vk::Image* GetOutputImage() const;
    /// Size of the output in pixels.
    virtual VkExtent2D GetOutputImageExtent() const;
    /// Format of the output (R8G8B8A8_UNORM offscreen, the swapchain's otherwise).
    virtual VkFormat GetOutputImageFormat() const;
    /// Usage flags of the output images.
    virtual VkImageUsageFlags GetOutputImageUsage() const;
    /// The output image of the frame being recorded (the last one between frames).
    virtual VkImage GetOutputVkImage() const;
    /// Its view.
    virtual VkImageView GetOutputVkImageView() const;
    /// Makes the per-frame objects and the output, and starts Dear ImGui's Vulkan backend.
    virtual void StartRendering();
    /// Waits for the device and undoes StartRendering.
    virtual void StopRendering();
    /// Waits for the frame slot, acquires the output image and begins recording:
    /// the output is cleared to clearColor and left in VK_IMAGE_LAYOUT_GENERAL.
    /// Returns false when the frame must be skipped (the swapchain was out of date).
    virtual bool BeginFrame();
    /// Draws Dear ImGui's draw data, ends recording, submits, and presents to the window.
    virtual void EndFrame();

    /// Whether StartRendering has run and StopRendering has not.
    bool IsRendering() const { return _rendering; }
    /// Whether the output is a window's swapchain.
    bool HasSwapchain() const { return _surfaceWindow; }
    /// The command buffer being recorded; null outside a frame.
    VkCommandBuffer CurrentCommandBuffer() const { return _recording ? _frames[_frameSlot].commands : VK_NULL_HANDLE; }
    /// Frames completed since StartRendering.
    uint64_t FrameIndex() const { return _frameIndex; }
    /// Slot of the frame being recorded, 0 to FramesInFlight - 1: per-frame
    /// resources indexed by it are free again when the slot comes round.
    uint32_t CurrentFrameSlot() const { return _frameSlot; }
    /// The render pass Dear ImGui draws in (load, store, on the output).
    VkRenderPass UiRenderPass() const { return _uiPass ? _uiPass->Handle() : VK_NULL_HANDLE; }

    /// Has the next frame copy its output before it is presented, for
    /// SaveOutputImage with a swapchain (a presented image is no longer ours).
    void CaptureNextFrame() { _captureNext = true; }
    /// Saves the last finished frame into a file (PNG, or JPEG by the path's
    /// extension) as opaque 8-bit RGBA. Offscreen it reads the output image;
    /// with a swapchain it needs CaptureNextFrame before that frame. Returns
    /// false with a message on failure.
    bool SaveOutputImage(std::string const& path);

    Window* window;     ///< The window drawn into, or null.
    bool vsync;         ///< Wait for the display (FIFO) rather than present at once; a change makes a new swapchain.
    bool drawUi = true; ///< Whether Dear ImGui's windows are drawn over the frame (they are built either way).
    VkClearColorValue clearColor{{0.02f, 0.03f, 0.05f, 1.0f}}; ///< What each frame starts from.

protected:
    /// Starts Dear ImGui's frame: the backends' NewFrame, the display size and time step, ImGui::NewFrame.
    void BeginUiFrame();
    /// Ends it with ImGui::Render; EndFrame draws the result.
    void EndUiFrame();
    /// Drops what the frame recorded so far and starts it again from the
    /// cleared output, so that a frame whose recording broke off can still be
    /// ended and submitted.
    void RestartRecording();

private:
    struct FrameSlot {
        VkCommandPool pool = VK_NULL_HANDLE;
        VkCommandBuffer commands = VK_NULL_HANDLE;
        VkFence done = VK_NULL_HANDLE;
        VkSemaphore acquired = VK_NULL_HANDLE;
    };
    struct Target {
        VkImage image = VK_NULL_HANDLE;
        VkImageView view = VK_NULL_HANDLE;
        VkSemaphore rendered = VK_NULL_HANDLE;
        VkImageLayout layout = VK_IMAGE_LAYOUT_UNDEFINED;
    };

    void CreateSwapchain();
    void StartFrameSlots();
    void BeginRecording();
    void RecordCapture(VkCommandBuffer commands, VkImage image, VkImageLayout layout);
    void StartUi();
    void StopUi();

    bool _surfaceWindow = false;
    bool _rendering = false;
    bool _recording = false;
    bool _ownsImGuiContext = false;
    bool _uiStarted = false;
    bool _uiBackend = false;
    bool _glfwUi = false;
    uint32_t _frameSlot = 0;
    uint32_t _targetIndex = 0;
    uint64_t _frameIndex = 0;
    bool _uiFrameOpen = false;
    bool _captureNext = false;
    uint64_t _capturedFrame = 0; ///< FrameIndex() after the frame in _capture, 0 for none.
    VkFormat _capturedFormat = VK_FORMAT_UNDEFINED;
    VkExtent2D _capturedExtent{0, 0};
    std::unique_ptr<vk::Buffer> _capture;
    double _lastUiTime = 0.0;
    VkExtent2D _extent{0, 0};
    VkFormat _format = VK_FORMAT_R8G8B8A8_UNORM;
    bool _swapchainVsync = false; // the vsync the swapchain was made with
    VkImageUsageFlags _usage = 0;
    VkSwapchainKHR _swapchain = VK_NULL_HANDLE;
    std::unique_ptr<vk::Image> _offscreen;
    std::vector<Target> _targets;
    std::array<FrameSlot, FramesInFlight> _frames{};
    std::unique_ptr<vk::Renderpass> _uiPass;
    VkDescriptorPool _uiDescriptorPool = VK_NULL_HANDLE;
};

} // namespace nerox::graphics
