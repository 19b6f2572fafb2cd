#include "nerox/graphics/VulkanRenderer.hpp"

#include "nerox/graphics/GlfwWindow.hpp"
#include "nerox/graphics/Texture.hpp"
#include "nerox/vk/Buffer.hpp"
#include "nerox/vk/Check.hpp"
#include "nerox/vk/CommandBuffer.hpp"
#include "nerox/vk/Renderpass.hpp"
#include "nerox/ScopeGuard.hpp"

#include <GLFW/glfw3.h>
#include <imgui.h>
#include <imgui_impl_glfw.h>
#include <imgui_impl_vulkan.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <stdexcept>

// GLFW declares this only when Vulkan's header came first, which the window's
// header does not arrange.
extern "C" VkResult glfwCreateWindowSurface(VkInstance instance, GLFWwindow* window,
                                            VkAllocationCallbacks const* allocator, VkSurfaceKHR* surface);

namespace nerox::graphics {

namespace {

/// Offscreen output size when there is no window.
constexpr VkExtent2D DefaultExtent{1280, 720};

GlfwWindow* AsGlfw(Window* window) {
    return dynamic_cast<GlfwWindow*>(window);
}

vk::DeviceOptions MakeOptions(Window* window, char const* name, uint32_t version,
                              vk::PhysicalDevice::Features const& features) {
    vk::DeviceOptions options;
    options.applicationName = name != nullptr ? name : "Tessara";
    options.applicationVersion = version;
    options.features = features;
    // The bindless texture table: a partially bound array indexed freely, updated while in use.
    options.features.vulkan12.descriptorIndexing = VK_TRUE;
    options.features.vulkan12.runtimeDescriptorArray = VK_TRUE;
    options.features.vulkan12.descriptorBindingPartiallyBound = VK_TRUE;
    options.features.vulkan12.descriptorBindingSampledImageUpdateAfterBind = VK_TRUE;
    options.features.vulkan12.shaderSampledImageArrayNonUniformIndexing = VK_TRUE;
    if (GlfwWindow* glfw = AsGlfw(window)) {
        vk::Device::KeepDriversLoaded(); // before GLFW loads and unloads them to list extensions
        uint32_t count = 0;
        char const** names = glfwGetRequiredInstanceExtensions(&count);
        if (names == nullptr)
            throw std::runtime_error("Vulkan: GLFW finds no Vulkan support for windows on this display");
        for (uint32_t i = 0; i < count; ++i) options.instanceExtensions.emplace_back(names[i]);
        GLFWwindow* handle = glfw->GetHandle();
        options.createSurface = [handle](VkInstance instance) {
            VkSurfaceKHR surface = VK_NULL_HANDLE;
            NEROX_VK_CHECK(glfwCreateWindowSurface(instance, handle, nullptr, &surface));
            return surface;
        };
    }
    return options;
}

void CheckUiResult(VkResult result) {
    if (result != VK_SUCCESS) std::cerr << "Dear ImGui Vulkan backend: " << vk::ResultName(result) << '\n';
}

} // namespace

VulkanRenderer::VulkanRenderer(Window* window, char const* applicationName, uint32_t applicationVersion,
                               vk::PhysicalDevice::Features const& features, bool vsync)
    : DeviceInterface(MakeOptions(window, applicationName, applicationVersion, features)), window(window),
      vsync(vsync) {
    _surfaceWindow = _device->Surface() != VK_NULL_HANDLE;
    LoadFunctionPointersInterface();
}

VulkanRenderer::~VulkanRenderer() {
    // A derived class stops rendering in its own destructor; this is the last resort.
    if (_rendering) {
        try {
            VulkanRenderer::StopRendering();
        } catch (std::exception const& error) {
            std::cerr << "VulkanRenderer: stopping failed: " << error.what() << '\n';
        }
    }
}

// ---------------------------------------------------------------- output

void VulkanRenderer::CreateSwapchainDependantObjects() {
    vk::Device& device = *_device;
    if (_surfaceWindow) {
        CreateSwapchain();
    } else {
        _extent = DefaultExtent;
        if (window != nullptr && window->GetWidth() > 0 && window->GetHeight() > 0)
            _extent = {static_cast<uint32_t>(window->GetWidth()), static_cast<uint32_t>(window->GetHeight())};
        _format = VK_FORMAT_R8G8B8A8_UNORM;
        _usage = VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT |
            VK_IMAGE_USAGE_TRANSFER_DST_BIT | VK_IMAGE_USAGE_SAMPLED_BIT;
        VkFormatProperties properties;
        vkGetPhysicalDeviceFormatProperties(device.Physical(), _format, &properties);
        if (properties.optimalTilingFeatures & VK_FORMAT_FEATURE_STORAGE_IMAGE_BIT)
            _usage |= VK_IMAGE_USAGE_STORAGE_BIT;
        _offscreen =
            std::make_unique<vk::Image>(device, _extent.width, _extent.height, _format, _usage, "Output image");
        _targets.assign(1, Target{});
        _targets[0].image = _offscreen->Handle();
        _targets[0].view = _offscreen->View();
    }
    if (!_targets.empty()) {
        // The interface draws over the finished frame: load, store, in the general layout.
        vk::RenderpassOptions ui;
        ui.loadOp = VK_ATTACHMENT_LOAD_OP_LOAD;
        ui.initialLayout = ui.finalLayout = VK_IMAGE_LAYOUT_GENERAL;
        ui.name = "Dear ImGui pass";
        _uiPass = std::make_unique<vk::Renderpass>(device, _format, _extent.width, _extent.height, _usage, ui);
    }
    for (Target& target : _targets) {
        VkSemaphoreCreateInfo semaphore{VK_STRUCTURE_TYPE_SEMAPHORE_CREATE_INFO};
        NEROX_VK_CHECK(vkCreateSemaphore(device, &semaphore, nullptr, &target.rendered));
    }
    _targetIndex = 0;
}

void VulkanRenderer::CreateSwapchain() {
    vk::Device& device = *_device;
    VkSurfaceKHR const surface = device.Surface();
    VkSurfaceCapabilitiesKHR caps;
    NEROX_VK_CHECK(vkGetPhysicalDeviceSurfaceCapabilitiesKHR(device.Physical(), surface, &caps));
    uint32_t count = 0;
    NEROX_VK_CHECK(vkGetPhysicalDeviceSurfaceFormatsKHR(device.Physical(), surface, &count, nullptr));
    std::vector<VkSurfaceFormatKHR> formats(count);
    NEROX_VK_CHECK(vkGetPhysicalDeviceSurfaceFormatsKHR(device.Physical(), surface, &count, formats.data()));
    if (formats.empty()) throw std::runtime_error("Vulkan: the window's surface offers no format");
    VkSurfaceFormatKHR chosen = formats[0];
    for (VkFormat wanted : {VK_FORMAT_B8G8R8A8_UNORM, VK_FORMAT_R8G8B8A8_UNORM}) {
        auto found = std::find_if(formats.begin(), formats.end(), [wanted](VkSurfaceFormatKHR const& f) {
            return f.format == wanted && f.colorSpace == VK_COLOR_SPACE_SRGB_NONLINEAR_KHR;
        });
        if (found != formats.end()) {
            chosen = *found;
            break;
        }
    }
    NEROX_VK_CHECK(vkGetPhysicalDeviceSurfacePresentModesKHR(device.Physical(), surface, &count, nullptr));
    std::vector<VkPresentModeKHR> modes(count);
    NEROX_VK_CHECK(vkGetPhysicalDeviceSurfacePresentModesKHR(device.Physical(), surface, &count, modes.data()));
    VkPresentModeKHR mode = VK_PRESENT_MODE_FIFO_KHR; // always there
    if (!vsync) {
        for (VkPresentModeKHR wanted : {VK_PRESENT_MODE_MAILBOX_KHR, VK_PRESENT_MODE_IMMEDIATE_KHR}) {
            if (std::find(modes.begin(), modes.end(), wanted) != modes.end()) {
                mode = wanted;
                break;
            }
        }
    }
    VkExtent2D extent = caps.currentExtent;
    if (extent.width == UINT32_MAX) {
        extent.width = static_cast<uint32_t>(std::max(1, window->GetWidth()));
        extent.height = static_cast<uint32_t>(std::max(1, window->GetHeight()));
    }
    extent.width = std::clamp(extent.width, caps.minImageExtent.width, caps.maxImageExtent.width);
    extent.height = std::clamp(extent.height, caps.minImageExtent.height, caps.maxImageExtent.height);
    if (extent.width == 0 || extent.height == 0) {
        // Minimised: no swapchain until the window has a size again (BeginFrame retries).
        _extent = extent;
        _targets.clear();
        return;
    }
    uint32_t images = caps.minImageCount + 1;
    if (caps.maxImageCount > 0) images = std::min(images, caps.maxImageCount);
    VkImageUsageFlags const wantedUsage = VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT |
        VK_IMAGE_USAGE_TRANSFER_DST_BIT | VK_IMAGE_USAGE_STORAGE_BIT;
    _usage = wantedUsage & caps.supportedUsageFlags;
    if (!(_usage & VK_IMAGE_USAGE_TRANSFER_DST_BIT) || !(_usage & VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT))
        throw std::runtime_error("Vulkan: the window's images cannot be cleared and drawn into");
    VkFormatProperties properties;
    vkGetPhysicalDeviceFormatProperties(device.Physical(), chosen.format, &properties);
    if (!(properties.optimalTilingFeatures & VK_FORMAT_FEATURE_STORAGE_IMAGE_BIT))
        _usage &= ~VK_IMAGE_USAGE_STORAGE_BIT;

    VkSwapchainCreateInfoKHR info{VK_STRUCTURE_TYPE_SWAPCHAIN_CREATE_INFO_KHR};
    info.surface = surface;
    info.minImageCount = images;
    info.imageFormat = chosen.format;
    info.imageColorSpace = chosen.colorSpace;
    info.imageExtent = extent;
    info.imageArrayLayers = 1;
    info.imageUsage = _usage;
    info.imageSharingMode = VK_SHARING_MODE_EXCLUSIVE;
    info.preTransform = caps.currentTransform;
    info.compositeAlpha = (caps.supportedCompositeAlpha & VK_COMPOSITE_ALPHA_OPAQUE_BIT_KHR)
        ? VK_COMPOSITE_ALPHA_OPAQUE_BIT_KHR
        : static_cast<VkCompositeAlphaFlagBitsKHR>(caps.supportedCompositeAlpha & -caps.supportedCompositeAlpha);
    info.presentMode = mode;
    info.clipped = VK_TRUE;
    NEROX_VK_CHECK(vkCreateSwapchainKHR(device, &info, nullptr, &_swapchain));
    _extent = extent;
    _format = chosen.format;
    _swapchainVsync = vsync;

    NEROX_VK_CHECK(vkGetSwapchainImagesKHR(device, _swapchain, &count, nullptr));
    std::vector<VkImage> swapImages(count);
    NEROX_VK_CHECK(vkGetSwapchainImagesKHR(device, _swapchain, &count, swapImages.data()));
    _targets.assign(count, Target{});
    for (uint32_t i = 0; i < count; ++i) {
        _targets[i].image = swapImages[i];
        VkImageViewCreateInfo view{VK_STRUCTURE_TYPE_IMAGE_VIEW_CREATE_INFO};
        view.image = swapImages[i];
        view.viewType = VK_IMAGE_VIEW_TYPE_2D;
        view.format = _format;
        view.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
        NEROX_VK_CHECK(vkCreateImageView(device, &view, nullptr, &_targets[i].view));
    }
}

void VulkanRenderer::DestroySwapchainDependantObjects() {
    vk::Device& device = *_device;
    device.WaitIdle();
    for (Target& target : _targets) {
        if (target.rendered != VK_NULL_HANDLE) vkDestroySemaphore(device, target.rendered, nullptr);
        if (_swapchain != VK_NULL_HANDLE && target.view != VK_NULL_HANDLE)
            vkDestroyImageView(device, target.view, nullptr);
    }
    _uiPass.reset(); // its framebuffers go before the views they hold
    _targets.clear();
    _offscreen.reset();
    if (_swapchain != VK_NULL_HANDLE) {
        vkDestroySwapchainKHR(device, _swapchain, nullptr);
        _swapchain = VK_NULL_HANDLE;
    }
}

void VulkanRenderer::ReCreateSwapchain() {
    VkFormat const format = _format;
    DestroySwapchainDependantObjects();
    CreateSwapchainDependantObjects();
    if (format != _format && _uiStarted) {
        // The interface's pipeline belongs to a pass of the old format.
        StopUi();
        StartUi();
    }
}

void VulkanRenderer::RefreshViewport() {
    ReCreateSwapchain();
}

vk::Image* VulkanRenderer::GetOutputImage() const {
    return _offscreen.get();
}
VkExtent2D VulkanRenderer::GetOutputImageExtent() const {
    return _extent;
}
VkFormat VulkanRenderer::GetOutputImageFormat() const {
    return _format;
}
VkImageUsageFlags VulkanRenderer::GetOutputImageUsage() const {
    return _usage;
}

VkImage VulkanRenderer::GetOutputVkImage() const {
    return _targetIndex < _targets.size() ? _targets[_targetIndex].image : VK_NULL_HANDLE;
}

VkImageView VulkanRenderer::GetOutputVkImageView() const {
    return _targetIndex < _targets.size() ? _targets[_targetIndex].view : VK_NULL_HANDLE;
}

// ---------------------------------------------------------------- start and stop

void VulkanRenderer::StartRendering() {
    if (_rendering) return;
    // From here StopRendering can undo whatever part was made.
    _rendering = true;
    _frameIndex = 0;
    _frameSlot = 0;
    _capturedFrame = 0;
    _captureNext = false;
    nerox::OnFailure undo([&] { StopRendering(); });
    StartFrameSlots();
    CreateSwapchainDependantObjects();
    StartUi();
}

void VulkanRenderer::StartFrameSlots() {
    vk::Device& device = *_device;
    for (FrameSlot& slot : _frames) {
        VkCommandPoolCreateInfo pool{VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO};
        pool.flags = VK_COMMAND_POOL_CREATE_TRANSIENT_BIT;
        pool.queueFamilyIndex = device.GraphicsFamily();
        NEROX_VK_CHECK(vkCreateCommandPool(device, &pool, nullptr, &slot.pool));
        VkCommandBufferAllocateInfo allocate{VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO};
        allocate.commandPool = slot.pool;
        allocate.level = VK_COMMAND_BUFFER_LEVEL_PRIMARY;
        allocate.commandBufferCount = 1;
        NEROX_VK_CHECK(vkAllocateCommandBuffers(device, &allocate, &slot.commands));
        VkFenceCreateInfo fence{VK_STRUCTURE_TYPE_FENCE_CREATE_INFO};
        fence.flags = VK_FENCE_CREATE_SIGNALED_BIT;
        NEROX_VK_CHECK(vkCreateFence(device, &fence, nullptr, &slot.done));
        VkSemaphoreCreateInfo semaphore{VK_STRUCTURE_TYPE_SEMAPHORE_CREATE_INFO};
        NEROX_VK_CHECK(vkCreateSemaphore(device, &semaphore, nullptr, &slot.acquired));
    }
}

void VulkanRenderer::StopRendering() {
    if (!_rendering) return;
    vk::Device& device = *_device;
    device.WaitIdle();
    StopUi();
    DestroySwapchainDependantObjects();
    _capture.reset();
    _capturedFrame = 0;
    _captureNext = false;
    for (FrameSlot& slot : _frames) {
        vkDestroySemaphore(device, slot.acquired, nullptr);
        vkDestroyFence(device, slot.done, nullptr);
        vkDestroyCommandPool(device, slot.pool, nullptr);
        slot = FrameSlot{};
    }
    _rendering = false;
    _recording = false;
}

void VulkanRenderer::StartUi() {
    if (ImGui::GetCurrentContext() == nullptr) {
        ImGui::CreateContext();
        ImGui::GetIO().IniFilename = nullptr; // window places are not kept between runs
        _ownsImGuiContext = true;
    }
    vk::Device& device = *_device;
    VkDescriptorPoolSize size{VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER, 16};
    VkDescriptorPoolCreateInfo pool{VK_STRUCTURE_TYPE_DESCRIPTOR_POOL_CREATE_INFO};
    pool.flags = VK_DESCRIPTOR_POOL_CREATE_FREE_DESCRIPTOR_SET_BIT;
    pool.maxSets = 16;
    pool.poolSizeCount = 1;
    pool.pPoolSizes = &size;
    NEROX_VK_CHECK(vkCreateDescriptorPool(device, &pool, nullptr, &_uiDescriptorPool));

    ImGuiIO& io = ImGui::GetIO();
    GlfwWindow* glfw = AsGlfw(window);
    _glfwUi = glfw != nullptr && io.BackendPlatformUserData == nullptr;
    if (_glfwUi) ImGui_ImplGlfw_InitForVulkan(glfw->GetHandle(), true);
    _uiStarted = true; // from here StopUi undoes it

    ImGui_ImplVulkan_InitInfo init{};
    init.Instance = device.Instance();
    init.PhysicalDevice = device.Physical();
    init.Device = device;
    init.QueueFamily = device.GraphicsFamily();
    init.Queue = device.GraphicsQueue();
    init.DescriptorPool = _uiDescriptorPool;
    init.MinImageCount = 2;
    init.ImageCount = std::max<uint32_t>(FramesInFlight, static_cast<uint32_t>(_targets.size()));
    init.MSAASamples = VK_SAMPLE_COUNT_1_BIT;
    init.CheckVkResultFn = &CheckUiResult;
    if (!_uiPass) throw std::runtime_error("Dear ImGui: the window has no size to draw into");
    if (!ImGui_ImplVulkan_Init(&init, _uiPass->Handle())) {
        _uiBackend = false;
        throw std::runtime_error("Dear ImGui: the Vulkan backend did not start");
    }
    _uiBackend = true;
    vk::CommandBuffer::Run(
        device, device.GraphicsQueue(), [](VkCommandBuffer commands) { ImGui_ImplVulkan_CreateFontsTexture(commands); },
        "Dear ImGui fonts");
    ImGui_ImplVulkan_DestroyFontUploadObjects();
    _uiStarted = true;
}

void VulkanRenderer::StopUi() {
    if (!_uiStarted) return;
    if (_uiFrameOpen) {
        ImGui::EndFrame();
        _uiFrameOpen = false;
    }
    if (_uiBackend) ImGui_ImplVulkan_Shutdown();
    _uiBackend = false;
    if (_glfwUi) ImGui_ImplGlfw_Shutdown();
    _glfwUi = false;
    vkDestroyDescriptorPool(*_device, _uiDescriptorPool, nullptr);
    _uiDescriptorPool = VK_NULL_HANDLE;
    if (_ownsImGuiContext) {
        ImGui::DestroyContext();
        _ownsImGuiContext = false;
    }
    _uiStarted = false;
}

void VulkanRenderer::BeginUiFrame() {
    if (!_uiStarted || _uiFrameOpen) return;
    ImGui_ImplVulkan_NewFrame();
    ImGuiIO& io = ImGui::GetIO();
    double const now = std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    if (_glfwUi) {
        ImGui_ImplGlfw_NewFrame();
    } else {
        io.DisplaySize = ImVec2(static_cast<float>(_extent.width), static_cast<float>(_extent.height));
        io.DeltaTime = _lastUiTime > 0.0 && now > _lastUiTime ? static_cast<float>(now - _lastUiTime) : 1.0f / 60.0f;
        if (window != nullptr) {
            // A headless window: the pointer and the keys as its state says, the
            // way the GLFW backend gives them (keys indexed by GLFW key codes).
            double x = 0.0, y = 0.0;
            window->GetCursorPos(&x, &y);
            io.MousePos = ImVec2(static_cast<float>(x), static_cast<float>(y));
            for (int button = 0; button < 3; ++button)
                io.MouseDown[button] = window->GetMouseButton(button) == GLFW_PRESS;
            for (int key = GLFW_KEY_SPACE; key <= GLFW_KEY_LAST; ++key)
                io.KeysDown[key] = window->GetKey(key) == GLFW_PRESS;
            io.KeyShift = io.KeysDown[GLFW_KEY_LEFT_SHIFT] || io.KeysDown[GLFW_KEY_RIGHT_SHIFT];
            io.KeyCtrl = io.KeysDown[GLFW_KEY_LEFT_CONTROL] || io.KeysDown[GLFW_KEY_RIGHT_CONTROL];
            io.KeyAlt = io.KeysDown[GLFW_KEY_LEFT_ALT] || io.KeysDown[GLFW_KEY_RIGHT_ALT];
        }
    }
    _lastUiTime = now;
    ImGui::NewFrame();
    _uiFrameOpen = true;
}

void VulkanRenderer::EndUiFrame() {
    if (!_uiFrameOpen) return;
    ImGui::Render();
    _uiFrameOpen = false;
}

// ---------------------------------------------------------------- frames

bool VulkanRenderer::BeginFrame() {
    NEROX_ASSERT(_rendering && !_recording);
    vk::Device& device = *_device;
    FrameSlot& slot = _frames[_frameSlot];
    NEROX_VK_CHECK(vkWaitForFences(device, 1, &slot.done, VK_TRUE, UINT64_MAX));

    if (window != nullptr && (window->GetWidth() <= 0 || window->GetHeight() <= 0))
        return false; // minimised: nothing to draw into
    // A swapchain reports a new size itself (out of date or suboptimal); an
    // offscreen output follows the window's.
    bool const resized = !_surfaceWindow && window != nullptr &&
        (static_cast<uint32_t>(window->GetWidth()) != _extent.width ||
         static_cast<uint32_t>(window->GetHeight()) != _extent.height);
    // A change of vsync needs a swapchain of the other present mode.
    bool const vsyncChanged = _swapchain != VK_NULL_HANDLE && vsync != _swapchainVsync;
    if (resized || vsyncChanged || _targets.empty()) RefreshViewport();
    if (_targets.empty()) return false; // still nothing to draw into
    if (_swapchain != VK_NULL_HANDLE) {
        VkResult const result =
            vkAcquireNextImageKHR(device, _swapchain, UINT64_MAX, slot.acquired, VK_NULL_HANDLE, &_targetIndex);
        if (result == VK_ERROR_OUT_OF_DATE_KHR) {
            RefreshViewport();
            return false;
        }
        if (result != VK_SUBOPTIMAL_KHR) NEROX_VK_CHECK(result);
    } else {
        _targetIndex = 0;
    }
    NEROX_VK_CHECK(vkResetFences(device, 1, &slot.done));
    BeginRecording();
    return true;
}

void VulkanRenderer::BeginRecording() {
    FrameSlot& slot = _frames[_frameSlot];
    NEROX_VK_CHECK(vkResetCommandPool(*_device, slot.pool, 0));
    VkCommandBufferBeginInfo begin{VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO};
    begin.flags = VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT;
    NEROX_VK_CHECK(vkBeginCommandBuffer(slot.commands, &begin));

    Target& target = _targets[_targetIndex];
    vk::Image::Transition(slot.commands, target.image, VK_IMAGE_LAYOUT_UNDEFINED, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL);
    VkImageSubresourceRange const range{VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
    vkCmdClearColorImage(slot.commands, target.image, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, &clearColor, 1, &range);
    vk::Image::Transition(slot.commands, target.image, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, VK_IMAGE_LAYOUT_GENERAL);
    target.layout = VK_IMAGE_LAYOUT_GENERAL;
    _recording = true;
}

void VulkanRenderer::RestartRecording() {
    NEROX_ASSERT(_recording);
    BeginRecording(); // resetting the pool drops what was recorded
}

void VulkanRenderer::EndFrame() {
    NEROX_ASSERT(_recording);
    vk::Device& device = *_device;
    FrameSlot& slot = _frames[_frameSlot];
    Target& target = _targets[_targetIndex];

    ImDrawData* const drawData = _uiStarted && drawUi ? ImGui::GetDrawData() : nullptr;
    if (drawData != nullptr && drawData->Valid && drawData->CmdListsCount > 0) {
        _uiPass->Begin(slot.commands, target.view);
        ImGui_ImplVulkan_RenderDrawData(drawData, slot.commands);
        _uiPass->End(slot.commands);
    }
    bool const captured = _captureNext && (_usage & VK_IMAGE_USAGE_TRANSFER_SRC_BIT);
    if (captured) RecordCapture(slot.commands, target.image, VK_IMAGE_LAYOUT_GENERAL);
    _captureNext = false;
    if (_swapchain != VK_NULL_HANDLE) {
        vk::Image::Transition(slot.commands, target.image, VK_IMAGE_LAYOUT_GENERAL, VK_IMAGE_LAYOUT_PRESENT_SRC_KHR);
        target.layout = VK_IMAGE_LAYOUT_PRESENT_SRC_KHR;
    }
    NEROX_VK_CHECK(vkEndCommandBuffer(slot.commands));
    _recording = false;

    VkPipelineStageFlags const waitStage = VK_PIPELINE_STAGE_ALL_COMMANDS_BIT;
    VkSubmitInfo submit{VK_STRUCTURE_TYPE_SUBMIT_INFO};
    submit.commandBufferCount = 1;
    submit.pCommandBuffers = &slot.commands;
    if (_swapchain != VK_NULL_HANDLE) {
        submit.waitSemaphoreCount = 1;
        submit.pWaitSemaphores = &slot.acquired;
        submit.pWaitDstStageMask = &waitStage;
        submit.signalSemaphoreCount = 1;
        submit.pSignalSemaphores = &target.rendered;
    }
    VkResult presented = VK_SUCCESS;
    {
        std::lock_guard lock(device.QueueMutex());
        NEROX_VK_CHECK(vkQueueSubmit(device.GraphicsQueue(), 1, &submit, slot.done));
        if (_swapchain != VK_NULL_HANDLE) {
            VkPresentInfoKHR present{VK_STRUCTURE_TYPE_PRESENT_INFO_KHR};
            present.waitSemaphoreCount = 1;
            present.pWaitSemaphores = &target.rendered;
            present.swapchainCount = 1;
            present.pSwapchains = &_swapchain;
            present.pImageIndices = &_targetIndex;
            presented = vkQueuePresentKHR(device.GraphicsQueue(), &present);
        }
    }
    _frameSlot = (_frameSlot + 1) % FramesInFlight;
    ++_frameIndex;
    if (captured) _capturedFrame = _frameIndex;
    if (presented == VK_ERROR_OUT_OF_DATE_KHR || presented == VK_SUBOPTIMAL_KHR)
        RefreshViewport();
    else
        NEROX_VK_CHECK(presented);
}

void VulkanRenderer::RecordCapture(VkCommandBuffer commands, VkImage image, VkImageLayout layout) {
    VkDeviceSize const bytes = static_cast<VkDeviceSize>(_extent.width) * _extent.height * 4;
    if (!_capture || _capture->Size() != bytes)
        _capture =
            std::make_unique<vk::Buffer>(*_device, bytes, VK_BUFFER_USAGE_TRANSFER_DST_BIT, vk::MemoryUsage::GpuToCpu,
                                         vk::AllocationHostAccessRandom, "Output capture");
    // The frame before may still be copying into the same buffer.
    VkMemoryBarrier buffer{VK_STRUCTURE_TYPE_MEMORY_BARRIER};
    buffer.srcAccessMask = VK_ACCESS_TRANSFER_WRITE_BIT;
    buffer.dstAccessMask = VK_ACCESS_TRANSFER_WRITE_BIT;
    vkCmdPipelineBarrier(commands, VK_PIPELINE_STAGE_TRANSFER_BIT, VK_PIPELINE_STAGE_TRANSFER_BIT, 0, 1, &buffer, 0,
                         nullptr, 0, nullptr);
    vk::Image::Transition(commands, image, layout, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL);
    VkBufferImageCopy copy{};
    copy.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
    copy.imageExtent = {_extent.width, _extent.height, 1};
    vkCmdCopyImageToBuffer(commands, image, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL, *_capture, 1, &copy);
    vk::Image::Transition(commands, image, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL, layout);
    _capturedFormat = _format;
    _capturedExtent = _extent;
}

bool VulkanRenderer::SaveOutputImage(std::string const& path) {
    if (_recording || _frameIndex == 0) {
        std::cerr << "SaveOutputImage: no finished frame to save\n";
        return false;
    }
    if (!(_usage & VK_IMAGE_USAGE_TRANSFER_SRC_BIT)) {
        std::cerr << "SaveOutputImage: the output images cannot be copied from\n";
        return false;
    }
    try {
        vk::Device& device = *_device;
        device.WaitIdle();
        if (_capturedFrame != _frameIndex) {
            if (_swapchain != VK_NULL_HANDLE || _targets.empty()) {
                std::cerr << "SaveOutputImage: the last frame was presented without a copy; call CaptureNextFrame "
                             "before it\n";
                return false;
            }
            // Offscreen, the output image still holds the last frame.
            Target const& target = _targets[_targetIndex];
            vk::CommandBuffer::Run(
                device, device.GraphicsQueue(),
                [&](VkCommandBuffer commands) { RecordCapture(commands, target.image, target.layout); },
                "SaveOutputImage");
            _capturedFrame = _frameIndex;
        }
        size_t const pixels = static_cast<size_t>(_capturedExtent.width) * _capturedExtent.height;
        bool const bgra = _capturedFormat == VK_FORMAT_B8G8R8A8_UNORM || _capturedFormat == VK_FORMAT_B8G8R8A8_SRGB;
        uint32_t const* captured = static_cast<uint32_t const*>(_capture->Map());
        std::vector<uint32_t> data(captured, captured + pixels);
        for (uint32_t& p : data) {
            if (bgra) p = (p & 0xFF00FF00u) | ((p & 0xFFu) << 16) | ((p >> 16) & 0xFFu);
            p |= 0xFF000000u; // screenshots are opaque
        }
        return Texture::SaveFile(path, static_cast<int>(_capturedExtent.width),
                                 static_cast<int>(_capturedExtent.height), 4, false, data.data(), 95);
    } catch (std::exception const& error) {
        std::cerr << "SaveOutputImage: " << error.what() << '\n';
        return false;
    }
}

} // namespace nerox::graphics
