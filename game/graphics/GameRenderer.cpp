#include "game/graphics/GameRenderer.hpp"
#include "game/graphics/LightSourceInstance.hpp"
#include "game/graphics/RenderableInstance.hpp"
#include "game/graphics/ui/Element.hpp"
#include "game/graphics/ui/InventoryUi.hpp"
#include "game/graphics/ui/Panels.hpp"

#include "game/Game.hpp"
#include "game/GameSettings.hpp"
#include "game/Options.hpp"
#include "game/modules/GAME_Mod.hpp"
#include "nerox/Assert.hpp"
#include "nerox/graphics/Texture.hpp"
#include "nerox/renderer/Upscaler.hpp"
#include "nerox/vk/Buffer.hpp"
#include "nerox/vk/CommandBuffer.hpp"

#include <glm/gtc/matrix_transform.hpp>
#include <imgui.h>
#include <shared_mutex>

#include <cctype>
#include <climits>
#include <cstdio>
#include <cmath>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <utility>

namespace game::graphics {

namespace {

using game::modules::GAME_Mod;
using game::modules::GameModHooks;
using nerox::renderer::Upscaler;

// What the game's shaders need of the device beyond what the host asks.
nerox::vk::PhysicalDevice::Features GameFeatures(nerox::vk::PhysicalDevice::Features const& host) {
    nerox::vk::PhysicalDevice::Features features = host;
    features.core.vertexPipelineStoresAndAtomics = VK_TRUE;
    features.core.fragmentStoresAndAtomics = VK_TRUE;
    features.core.largePoints = VK_TRUE;      // the crosshair is one point sprite
    features.core.independentBlend = VK_TRUE; // glows blend their colour, not the aim ids beside it
    features.core.shaderInt64 = VK_TRUE;      // device addresses in shaders
    // The world is drawn from records found by device address, ray-traced where
    // the device can and rasterized everywhere else: ask for both; the device
    // leaves out what it lacks.
    features.vulkan12.descriptorIndexing = VK_TRUE;
    features.vulkan12.runtimeDescriptorArray = VK_TRUE;
    features.vulkan12.shaderSampledImageArrayNonUniformIndexing = VK_TRUE;
    features.vulkan12.descriptorBindingPartiallyBound = VK_TRUE;
    features.vulkan12.scalarBlockLayout = VK_TRUE;
    features.storage16Bit.storageBuffer16BitAccess = VK_TRUE; // 16-bit indices read by address
    features.vulkan13.dynamicRendering = VK_TRUE;
    features.vulkan13.synchronization2 = VK_TRUE;
    features.vulkan13.maintenance4 = VK_TRUE; // compute shaders built for 1.3 give their group size as constants
    features.rayTracingPipeline.rayTracingPipeline = VK_TRUE;
    features.accelerationStructure.accelerationStructure = VK_TRUE;
    features.rayQuery.rayQuery = VK_TRUE;
    return features;
}

game::GameSettings& RequireSettings() {
    if (!Game::settings)
        throw std::runtime_error("GameRenderer: Game::settings must be set before the renderer is created");
    return *Game::settings;
}

// Calls one hook of every loaded module, in the table's order.
void CallAll(game::modules::VoidHook GameModHooks::*hook) {
    GAME_Mod::ForEachModule([hook](GAME_Mod::Ptr& mod) {
        if (auto function = (*mod).*hook) function();
    });
}

void CallAll(game::modules::CommandBufferHook GameModHooks::*hook, VkCommandBuffer commandBuffer) {
    GAME_Mod::ForEachModule([hook, commandBuffer](GAME_Mod::Ptr& mod) {
        if (auto function = (*mod).*hook) function(commandBuffer);
    });
}

// Calls one hook of the modules of the ordered list key, in list order.
void CallSorted(char const* key, game::modules::VoidHook GameModHooks::*hook) {
    GAME_Mod::ForEachSortedModule(key, [hook](GAME_Mod::Ptr& mod) {
        if (auto function = (*mod).*hook) function();
    });
}

void CallSorted(char const* key, game::modules::CommandBufferHook GameModHooks::*hook, VkCommandBuffer commandBuffer) {
    GAME_Mod::ForEachSortedModule(key, [hook, commandBuffer](GAME_Mod::Ptr& mod) {
        if (auto function = (*mod).*hook) function(commandBuffer);
    });
}

// What SaveImage needs to know of a pixel format.
struct PixelFormat {
    int channels = 0;
    uint32_t bytesPerPixel = 0;
    bool isFloat = false;
    bool hasAlpha = false; // whether opaque applies
};

bool DescribeFormat(VkFormat format, PixelFormat& pixel) {
    switch (format) {
    case VK_FORMAT_R8_UNORM: pixel = {1, 1, false, false}; return true;
    case VK_FORMAT_R8G8_UNORM: pixel = {2, 2, false, false}; return true;
    case VK_FORMAT_R8G8B8_UNORM: pixel = {3, 3, false, false}; return true;
    case VK_FORMAT_R8G8B8A8_UNORM: pixel = {4, 4, false, true}; return true;
    case VK_FORMAT_B8G8R8A8_UNORM: pixel = {4, 4, false, true}; return true;
    case VK_FORMAT_R32_SFLOAT: pixel = {1, 4, true, false}; return true;
    case VK_FORMAT_R32G32_SFLOAT: pixel = {2, 8, true, false}; return true;
    case VK_FORMAT_R32G32B32A32_SFLOAT: pixel = {4, 16, true, true}; return true;
    default: return false;
    }
}

std::string const& ThresholdKey() {
    static std::string const key = GameRenderer::WorldOriginThresholdOption;
    return key;
}

} // namespace

// ---------------------------------------------------------------- construction

GameRenderer::GameRenderer(nerox::graphics::Window* window, char const* applicationName,
                           unsigned int applicationVersion, nerox::vk::PhysicalDevice::Features const& features)
    : NeroxRenderer(window, applicationName, applicationVersion, GameFeatures(features),
                    RequireSettings().Get(&game::GameSettings::vsync)) {
    CreateOverlayPass();

    nerox::vk::SamplerOptions linearClamp;
    linearClamp.magFilter = VK_FILTER_LINEAR;
    linearClamp.minFilter = VK_FILTER_LINEAR;
    linearClamp.addressModeU = VK_SAMPLER_ADDRESS_MODE_CLAMP_TO_EDGE;
    linearClamp.addressModeV = VK_SAMPLER_ADDRESS_MODE_CLAMP_TO_EDGE;
    linearClampSampler = std::make_unique<nerox::vk::Sampler>(GetDevice(), linearClamp, "Linear Clamp Sampler");
    graphicsPresetNames = GraphicsPresetLabels;
    // "NONE", then what this device can run.
    upscalingAlgoNames = {"NONE"};
    for (nerox::renderer::UPSCALE_ALGO const algorithm : Upscaler::SupportedAlgorithms())
        if (algorithm != nerox::renderer::UPSCALE_ALGO::NONE)
            upscalingAlgoNames.push_back(Upscaler::GetAlgoStrFromEnum(algorithm));
    nearestSampler = std::make_unique<nerox::vk::Sampler>(GetDevice(), nerox::vk::SamplerOptions{}, "Nearest Sampler");
    linearClampSampler2 = std::make_unique<nerox::vk::Sampler>(GetDevice(), linearClamp, "Linear Clamp Sampler 2");
    overlayPipelineLayout = std::make_unique<nerox::vk::PipelineLayout>(
        GetDevice(), std::vector<VkDescriptorSetLayout>{MainDescriptorSetLayout()},
        std::vector<VkPushConstantRange>{{VK_SHADER_STAGE_ALL, 0, OverlayPushConstantBytes}},
        "Overlay Pipeline Layout");

    viewMatrix = projectionMatrix = viewMatrixHistory = projectionMatrixHistory = glm::dmat4(1.0);
    nearClip = 0.001f;

    CreateOverlayPipelines();
    ui::GraphicsPipelineWrapper::LoadPipelines(this);
    panels = std::make_unique<ui::Panels>(this);

    if (AddTexture(nerox::graphics::TextureRef(FontAtlasPath), linearClampSampler->Handle()) != FontAtlasTextureIndex)
        throw std::runtime_error("Font Atlas Index is not 0");

    game::GameSettings& settings = *Game::settings;
    {
        std::lock_guard<std::mutex> lock(settings.GetMutex());
        bool const firstRun = settings.graphics_preset < 0;
        if (firstRun) settings.graphics_preset = 3;
        ConfigureSettingsFromPreset();
        if (firstRun) settings.WriteConfig();
        // The file's hidden developer switches open their windows from the start.
        panels->debugWindowOpen = settings.debug_window;
        panels->profilingWindowOpen = settings.dev_tools;
    }

    entityTriangleHitShader = AddRenderableHitShader("game/graphics/rt/entity_tri");
    entityBoxHitShader = AddRenderableHitShader("game/graphics/rt/entity_box");
    entitySphereHitShader = AddRenderableHitShader("game/graphics/rt/entity_sphere");
    plasmaHitShader = AddRenderableHitShader("game/graphics/rt/plasma");
    entityCallableShader = AddRenderableCallableShader(EmptyCallableShader);
}

GameRenderer::~GameRenderer() {
    try {
        GetDevice().WaitIdle();
    } catch (std::exception const& error) {
        std::cerr << "GameRenderer: waiting for the device failed: " << error.what() << '\n';
    }
    ui::GraphicsPipelineWrapper::UnloadPipelines();
    CollectAllTrash();
}

void GameRenderer::CreateOverlayPass() {
    VkExtent2D extent = GetOutputImageExtent();
    if (extent.width == 0 || extent.height == 0) {
        // Before the output exists: the window's size, which it will have.
        extent = {1280, 720};
        if (window != nullptr && window->GetWidth() > 0 && window->GetHeight() > 0)
            extent = {static_cast<uint32_t>(window->GetWidth()), static_cast<uint32_t>(window->GetHeight())};
    }
    VkImageUsageFlags usage = GetOutputImageUsage();
    if (usage == 0) usage = VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT;
    nerox::vk::RenderpassOptions options;
    options.loadOp = VK_ATTACHMENT_LOAD_OP_LOAD;
    options.initialLayout = VK_IMAGE_LAYOUT_GENERAL; // the stages leave the output in GENERAL
    options.finalLayout = VK_IMAGE_LAYOUT_GENERAL;
    options.name = "Overlay Renderpass";
    options.depth = true;      // the debug shapes hide each other
    overlayRenderpass.reset(); // its framebuffers go before the new pass is made
    overlayRenderpass = std::make_unique<nerox::vk::Renderpass>(GetDevice(), GetOutputImageFormat(), extent.width,
                                                                extent.height, usage, options);
}

void GameRenderer::CreateOverlayPipelines() {
    nerox::vk::GraphicsPipelineOptions options;
    options.depthTest = true;
    options.depthWrite = true;
    options.depthCompareOp = VK_COMPARE_OP_LESS;
    options.lineWidth = 1.0f;
    options.alphaBlending = true;
    options.dstAlphaBlendFactor = VK_BLEND_FACTOR_ZERO;

    options.topology = VK_PRIMITIVE_TOPOLOGY_POINT_LIST;
    options.cullMode = VK_CULL_MODE_BACK_BIT;
    crosshairPipeline = std::make_unique<nerox::vk::GraphicsPipeline>(
        GetDevice(), *overlayPipelineLayout, *overlayRenderpass, "game/graphics/crosshair", options);
    options.cullMode = VK_CULL_MODE_NONE;
    options.topology = VK_PRIMITIVE_TOPOLOGY_TRIANGLE_LIST;
    colliderTrianglesPipeline = std::make_unique<nerox::vk::GraphicsPipeline>(
        GetDevice(), *overlayPipelineLayout, *overlayRenderpass, "game/graphics/physicsCollider", options);
    options.topology = VK_PRIMITIVE_TOPOLOGY_LINE_LIST;
    colliderLinesPipeline = std::make_unique<nerox::vk::GraphicsPipeline>(
        GetDevice(), *overlayPipelineLayout, *overlayRenderpass, "game/graphics/physicsCollider", options);
}

bool GameRenderer::OverlayPassMatchesOutput() const {
    if (!overlayRenderpass) return false;
    VkExtent2D const extent = GetOutputImageExtent();
    VkExtent2D const passExtent = overlayRenderpass->Extent();
    return overlayRenderpass->Format() == GetOutputImageFormat() && passExtent.width == extent.width &&
        passExtent.height == extent.height;
}

// ---------------------------------------------------------------- output and lifecycle

void GameRenderer::FollowOutput() {
    if (OverlayPassMatchesOutput() || GetOutputImageExtent().width == 0 || GetOutputImageExtent().height == 0) return;
    CreateOverlayPass();
    crosshairPipeline->RefreshViewport(*overlayRenderpass);
    colliderTrianglesPipeline->RefreshViewport(*overlayRenderpass);
    colliderLinesPipeline->RefreshViewport(*overlayRenderpass);
    // The element shaders place their geometry in pixels of the pass: made anew.
    ui::GraphicsPipelineWrapper::UnloadPipelines();
    ui::GraphicsPipelineWrapper::LoadPipelines(this);
}

void GameRenderer::CreateSwapchainDependantObjects() {
    NeroxRenderer::CreateSwapchainDependantObjects();
    // An output of another format or size (the first swapchain, or one made
    // again by the base) needs its own overlay pass; the device is idle here.
    FollowOutput();
}

void GameRenderer::DestroySwapchainDependantObjects() {
    // A new output may reuse the handles of the old views: drop their framebuffers.
    GetDevice().WaitIdle();
    if (overlayRenderpass) overlayRenderpass->ForgetAllTargets();
    NeroxRenderer::DestroySwapchainDependantObjects();
}

void GameRenderer::RefreshViewport() {
    NeroxRenderer::RefreshViewport();
    // The new output's CreateSwapchainDependantObjects has made the new pass
    // already, unless a subclass of the base made the output another way.
    FollowOutput();
    CallAll(&GameModHooks::Renderer_RefreshViewport);
}

void GameRenderer::StartRendering() {
    if (IsRendering()) return;
    NeroxRenderer::StartRendering();
    CallAll(&GameModHooks::Renderer_StartRendering);
}

void GameRenderer::StopRendering() {
    if (!IsRendering()) return; // never started, or stopped already: the modules hear of it once
    GetDevice().WaitIdle();
    CallAll(&GameModHooks::Renderer_StopRendering);
    NeroxRenderer::StopRendering();
}

void GameRenderer::Frame() {
    if (uiStyleDirty && ImGui::GetCurrentContext() != nullptr) {
        uiStyleDirty = false;
        ImGui::GetStyle() = ImGuiStyle();
        Game::SetupUiStyle();
    }
    if (!renderableShadersLocked) {
        // The ray-tracing pipeline is built from the shader tables for the first frame.
        std::lock_guard lock(renderableShadersMutex);
        renderableShadersLocked = true;
    }
    if (!_screenshotPath.empty() && HasSwapchain()) CaptureNextFrame();
    uint64_t const frameBefore = FrameIndex();
    NeroxRenderer::Frame();
    if (!_screenshotPath.empty() && FrameIndex() != frameBefore) { // a skipped frame keeps the request
        if (SaveOutputImage(_screenshotPath))
            std::printf("Saved a screenshot to %s\n", _screenshotPath.c_str());
        else
            std::fprintf(stderr, "Could not save the screenshot %s\n", _screenshotPath.c_str());
        _screenshotPath.clear();
    }
    ui::Element::Sort([](std::shared_ptr<ui::Element> const& a, std::shared_ptr<ui::Element> const& b) {
        return a->layer < b->layer;
    });
    viewMatrixHistory = viewMatrix;
    projectionMatrixHistory = projectionMatrix;
}

// ---------------------------------------------------------------- stages

void GameRenderer::FrameInit() {
    if (Game::settings) {
        // Copied under the settings' lock: a reload rewrites the members meanwhile.
        game::GameSettings& settings = *Game::settings;
        std::lock_guard<std::mutex> lock(settings.GetMutex());
        vsync = settings.vsync;
        renderScale = settings.render_scale;
        finalUpscale = settings.final_upscale;
        upscalingQualitySetting = settings.upscaling_quality_setting;
        upscalingSharpness = settings.upscaling_sharpness;
        brightness = settings.brightness;
        contrast = settings.contrast;
        gamma = settings.gamma;
        fov = settings.fov;
        NeroxRenderer::nearClip = nearClip;
        devTools = settings.dev_tools;
        drawUi = Game::uiVisible;

        std::string algorithm = settings.upscaling_algo;
        for (char& c : algorithm) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        upscalingAlgo = Upscaler::GetAlgoEnumFromStr(algorithm);
        uiScaling = settings.ui_scaling;

        uint32_t options = 0;
        if (settings.tone_mapping) options |= 1u << 0;
        if (settings.taa) options |= 1u << 1;
        if (Upscaler::IsTemporal(upscalingAlgo)) options |= 1u << 2;
        if (debugFlag) options |= 1u << 3;
        if (settings.dithering) options |= 1u << 4;
        renderOptions = options;
    }

    double const threshold = game::Options::Get<double>(ThresholdKey(), 1000.0);
    if (threshold > 0.0) {
        double const dx = std::round(cameraPosition.x - worldOrigin.x);
        double const dy = std::round(cameraPosition.y - worldOrigin.y);
        double const dz = std::round(cameraPosition.z - worldOrigin.z);
        if (std::sqrt(dx * dx + dy * dy + dz * dz) > threshold) {
            worldOrigin = glm::dvec4(std::round(cameraPosition.x), std::round(cameraPosition.y),
                                     std::round(cameraPosition.z), 1.0);
            worldOriginChanged = true;
        } else {
            worldOriginChanged = false;
        }
    } else {
        worldOrigin = glm::dvec4(cameraPosition.x, cameraPosition.y, cameraPosition.z, 1.0);
        worldOriginChanged = true;
    }

    CallAll(&GameModHooks::Renderer_FrameInit);

    if (worldOriginChanged) {
        NeroxRenderer::worldOrigin = {std::llround(worldOrigin.x), std::llround(worldOrigin.y),
                                      std::llround(worldOrigin.z)};
        originTransform = glm::translate(glm::dmat4(1.0), -glm::dvec3(worldOrigin));
        originInverseTransform = glm::inverse(originTransform);
    }
    cameraTransform = glm::mat4(glm::inverse(viewMatrix * originInverseTransform));
    {
        // The camera's axes in world coordinates: the rows of the view's rotation.
        std::lock_guard lock(_cameraMutex);
        _camera.position = cameraPosition;
        _camera.forward = -glm::dvec3(viewMatrix[0][2], viewMatrix[1][2], viewMatrix[2][2]);
        _camera.up = glm::dvec3(viewMatrix[0][1], viewMatrix[1][1], viewMatrix[2][1]);
    }
}

GameRenderer::CameraSnapshot GameRenderer::Camera() const {
    std::lock_guard lock(_cameraMutex);
    return _camera;
}

void GameRenderer::FrameCollectGarbage() {
    CallAll(&GameModHooks::Renderer_FrameCollectGarbage);
    CollectTrash();
}

void GameRenderer::FrameUpdateDescriptorSets() {
    CallAll(&GameModHooks::Renderer_FrameUpdateDescriptorSets);
}
void GameRenderer::FrameBeforePost() {
    CallAll(&GameModHooks::Renderer_FrameBeforePost);
}
void GameRenderer::FrameUpdateUi() {
    if (ImGui::GetCurrentContext() != nullptr) {
        // Hidden windows (F3) must not take clicks meant for the world either.
        ImGuiIO& io = ImGui::GetIO();
        if (Game::uiVisible)
            io.ConfigFlags &= ~ImGuiConfigFlags_NoMouse;
        else
            io.ConfigFlags |= ImGuiConfigFlags_NoMouse;
        panels->Draw();
        if (panels->styleChanged) {
            panels->styleChanged = false;
            uiStyleDirty = true;
        }
    }
    CallSorted("ui", &GameModHooks::Renderer_FrameUpdateUi);
    ui::InventoryUi::UpdateUi();
}
void GameRenderer::FrameBeforeUpdate() {
    CallSorted("update", &GameModHooks::Renderer_FrameBeforeUpdate);
}
void GameRenderer::FrameUpdate() {
    CallSorted("update", &GameModHooks::Renderer_FrameUpdate);
}
void GameRenderer::FrameAfterUpdate() {
    CallSorted("update", &GameModHooks::Renderer_FrameAfterUpdate);
}
void GameRenderer::FrameBeforeRender() {
    CallSorted("render", &GameModHooks::Renderer_FrameBeforeRender);
}
void GameRenderer::FrameAfterRender() {
    CallSorted("render", &GameModHooks::Renderer_FrameAfterRender);
}

void GameRenderer::RequestScreenshot(std::string path) {
    _screenshotPath = std::move(path);
}

void GameRenderer::SchedulePush(std::shared_ptr<nerox::graphics::Texture> texture) {
    std::lock_guard lock(pushTexturesMutex);
    pushTextures.push_back(std::move(texture));
}

void GameRenderer::FramePushCommands(VkCommandBuffer commandBuffer) {
    CallAll(&GameModHooks::Renderer_FramePushCommands, commandBuffer);
    std::lock_guard lock(pushTexturesMutex);
    for (std::shared_ptr<nerox::graphics::Texture>& texture : pushTextures) {
        if (!texture) continue;
        // Only the list holds it: nobody wants the upload any more.
        if (texture.use_count() > 1) texture->Push(commandBuffer);
        // The list's reference goes through the trash, not away at once: if the
        // other owners let go meanwhile, the upload just recorded must still find it.
        Trash(std::move(texture));
    }
    pushTextures.clear();
}

void GameRenderer::FrameBuildCommands(VkCommandBuffer commandBuffer) {
    CallAll(&GameModHooks::Renderer_FrameBuildCommands, commandBuffer);
}

void GameRenderer::FrameRenderCommands(VkCommandBuffer commandBuffer) {
    CallSorted("render", &GameModHooks::Renderer_FrameRenderCommands, commandBuffer);
}

void GameRenderer::FrameResolveCommands(VkCommandBuffer commandBuffer) {
    CallSorted("post", &GameModHooks::Renderer_FrameResolveCommands, commandBuffer);
}

void GameRenderer::FrameBlitCommands(VkCommandBuffer commandBuffer) {
    CallSorted("post", &GameModHooks::Renderer_FrameBlitCommands, commandBuffer);
}

void GameRenderer::FramePostCommands(VkCommandBuffer commandBuffer) {
    CallSorted("post", &GameModHooks::Renderer_FramePostCommands, commandBuffer);
}

void GameRenderer::FrameOverlayCommands(VkCommandBuffer commandBuffer) {
    CallSorted("overlay", &GameModHooks::Renderer_FrameOverlayCommands, commandBuffer);
    VkImageView const target = GetOutputVkImageView();
    if (target == VK_NULL_HANDLE || !OverlayPassMatchesOutput()) return;
    overlayRenderpass->Begin(commandBuffer, target);
    DrawDebugPhysics(commandBuffer);
    if (!Game::uiVisible) {
        overlayRenderpass->End(commandBuffer);
        return;
    }
    if (Game::_mouseLook) {
        crosshairPipeline->Bind(commandBuffer);
        vkCmdPushConstants(commandBuffer, *overlayPipelineLayout, VK_SHADER_STAGE_ALL, 0, sizeof uiScaling, &uiScaling);
        vkCmdDraw(commandBuffer, 1, 1, 0, 0);
    }
    {
        // The retained interface, in the order the last Sort left it.
        std::shared_lock lock(ui::Element::_sharedObjectsMutex);
        for (auto const& entry : ui::Element::_sharedObjects)
            if (auto const element = entry.lock()) element->Draw(commandBuffer);
    }
    overlayRenderpass->End(commandBuffer);
}

// ---------------------------------------------------------------- settings and shader tables

void GameRenderer::ConfigureSettingsFromPreset() {
    if (!Game::settings) return;
    game::GameSettings& settings = *Game::settings;
    if (auto const* preset = game::GameSettings::FindGraphicsPreset(settings.graphics_preset)) {
        settings.upscaling_quality_setting = preset->upscaling_quality_setting;
        settings.final_upscale = preset->final_upscale;
    }
}

uint32_t GameRenderer::AddRenderableHitShader(std::string const& path) {
    std::lock_guard lock(renderableShadersMutex);
    NEROX_ASSERT(!renderableShadersLocked);
    renderableHitShaders.push_back(path);
    return static_cast<uint32_t>(renderableHitShaders.size() - 1);
}

uint32_t GameRenderer::AddRenderableCallableShader(std::string const& shader) {
    std::lock_guard lock(renderableShadersMutex);
    NEROX_ASSERT(!renderableShadersLocked);
    renderableCallableShaders.push_back(shader);
    return static_cast<uint32_t>(renderableCallableShaders.size() - 1);
}

void GameRenderer::PushTexture(std::shared_ptr<nerox::graphics::Texture> texture) {
    std::lock_guard lock(pushTexturesMutex);
    pushTextures.push_back(std::move(texture));
}

// ---------------------------------------------------------------- deferred destruction

void GameRenderer::Trash(std::shared_ptr<void> object) {
    if (!object) return;
    std::lock_guard lock(trashMutex);
    trash.push_back(std::move(object));
}

void GameRenderer::ReleaseTrashGeneration() {
    {
        // Only the swap is locked: the releases run outside, so that a
        // destructor may trash again (into the new generation).
        std::lock_guard lock(trashMutex);
        trash.swap(trashPrevious);
        _releasing.swap(trash);
    }
    _releasing.clear();
}

void GameRenderer::CollectTrash() {
    ReleaseTrashGeneration();
}

void GameRenderer::CollectAllTrash() {
    for (;;) {
        {
            std::lock_guard lock(trashMutex);
            if (trash.empty() && trashPrevious.empty()) return;
        }
        ReleaseTrashGeneration();
    }
}

void GameRenderer::Cleanup() {
    aim.ClearTarget();
    aimPrevious.ClearTarget();
    // The scene tables: the slots go, the objects live on with their owners.
    {
        std::unique_lock<nerox::SharedMutex> lock(RenderableInstance::_sharedObjectsMutex);
        RenderableInstance::_sharedObjects.clear();
    }
    {
        std::unique_lock<nerox::SharedMutex> lock(LightSourceInstance::_sharedObjectsMutex);
        LightSourceInstance::_sharedObjects.clear();
    }
    ClearTextures();
    std::vector<std::shared_ptr<nerox::graphics::Texture>> pushed;
    {
        std::lock_guard lock(pushTexturesMutex);
        pushed.swap(pushTextures);
    }
    pushed.clear(); // outside the lock: a texture's destructor may push or trash
    aim.Reset();
    aimPrevious.Reset();
    aimReferences.Clear();
    CollectAllTrash();
}

// ---------------------------------------------------------------- aim

uint32_t GameRenderer::AddAimReference(std::string const& moduleName, std::any data) {
    return aimReferences.Add(moduleName, std::move(data));
}

void GameRenderer::TakeAim(AimBuffer const& buffer) {
    aimPrevious = aim;
    aim = buffer;
}

double GameRenderer::GetFixedBoundingSizeInScreenPixels(glm::dvec3 const& position, double size, double fov) const {
    constexpr double TwoPi = 6.283185307179586;
    if (fov == 0.0) fov = this->fov;
    VkExtent2D const extent = GetOutputImageExtent();
    int const width = static_cast<int>(extent.width * renderScale);
    int const height = static_cast<int>(extent.height * renderScale);
    double const distance = glm::length(cameraPosition - position);
    double angle = TwoPi;
    if (distance != 0.0 && fov != 0.0) {
        double const a = size / distance / (fov * 0.017453292519943295);
        angle = a > 3.141592653589793 ? TwoPi : 2.0 * a;
    }
    return (0.5 * width + 0.5 * height) * angle;
}

// ---------------------------------------------------------------- screenshots

bool GameRenderer::SaveImage(VkImage image, VkOffset2D offset, VkExtent2D extent, VkFormat format, VkImageLayout layout,
                             std::string const& path, int quality, bool opaque) {
    PixelFormat pixel;
    if (!DescribeFormat(format, pixel)) return false;
    if (image == VK_NULL_HANDLE || extent.width == 0 || extent.height == 0 || extent.width > INT_MAX ||
        extent.height > INT_MAX || offset.x < 0 || offset.y < 0) {
        std::cerr << "SaveImage: no image, or an empty or negative area, for " << path << '\n';
        return false;
    }
    if (layout == VK_IMAGE_LAYOUT_UNDEFINED || layout == VK_IMAGE_LAYOUT_PREINITIALIZED) {
        std::cerr << "SaveImage: the image has no defined content (layout " << layout << ") for " << path << '\n';
        return false;
    }
    if (image == GetOutputVkImage()) {
        VkExtent2D const output = GetOutputImageExtent();
        if (uint64_t(offset.x) + extent.width > output.width || uint64_t(offset.y) + extent.height > output.height) {
            std::cerr << "SaveImage: the area lies outside the " << output.width << "x" << output.height
                      << " output for " << path << '\n';
            return false;
        }
    }
    uint64_t const pixelCount = static_cast<uint64_t>(extent.width) * extent.height;
    uint64_t const byteCount = pixelCount * pixel.bytesPerPixel;

    nerox::vk::Buffer buffer(GetDevice(), byteCount, VK_BUFFER_USAGE_TRANSFER_DST_BIT, nerox::vk::MemoryUsage::GpuToCpu,
                             nerox::vk::AllocationMapped | nerox::vk::AllocationHostAccessRandom,
                             "SaveImage Tmp Buffer");
    GetDevice().WaitIdle(); // the image may still be drawn by a frame in flight

    // A copy reads from TRANSFER_SRC_OPTIMAL or GENERAL; any other layout is
    // changed for the copy and back.
    bool const copyable = layout == VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL || layout == VK_IMAGE_LAYOUT_GENERAL;
    VkImageLayout const copyLayout = copyable ? layout : VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL;
    nerox::vk::CommandBuffer::Run(
        GetDevice(), GetDevice().GraphicsQueue(),
        [&](VkCommandBuffer commands) {
            nerox::vk::Image::Transition(commands, image, layout, copyLayout);
            VkBufferImageCopy region{};
            region.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
            region.imageOffset = {offset.x, offset.y, 0};
            region.imageExtent = {extent.width, extent.height, 1};
            vkCmdCopyImageToBuffer(commands, image, copyLayout, buffer, 1, &region);
            if (!copyable) nerox::vk::Image::Transition(commands, image, copyLayout, layout);
            VkMemoryBarrier toHost{VK_STRUCTURE_TYPE_MEMORY_BARRIER};
            toHost.srcAccessMask = VK_ACCESS_TRANSFER_WRITE_BIT;
            toHost.dstAccessMask = VK_ACCESS_HOST_READ_BIT;
            vkCmdPipelineBarrier(commands, VK_PIPELINE_STAGE_TRANSFER_BIT, VK_PIPELINE_STAGE_HOST_BIT, 0, 1, &toHost, 0,
                                 nullptr, 0, nullptr);
        },
        "renderer::SaveImage");

    auto* bytes = static_cast<unsigned char*>(buffer.Map());
    if (format == VK_FORMAT_B8G8R8A8_UNORM) {
        for (uint64_t i = 0; i < pixelCount; ++i) std::swap(bytes[i * 4 + 0], bytes[i * 4 + 2]);
    }
    if (opaque && pixel.hasAlpha) {
        if (pixel.isFloat) {
            float const one = 1.0f;
            for (uint64_t i = 0; i < pixelCount; ++i)
                std::memcpy(bytes + i * pixel.bytesPerPixel + 3 * sizeof(float), &one, sizeof one);
        } else {
            for (uint64_t i = 0; i < pixelCount; ++i) bytes[i * 4 + 3] = 255;
        }
    }
    return nerox::graphics::Texture::SaveFile(path, static_cast<int>(extent.width), static_cast<int>(extent.height),
                                              pixel.channels, pixel.isFloat, bytes, quality);
}

} // namespace game::graphics
