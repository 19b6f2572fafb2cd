#pragma once
// The game's renderer: the engine's frame stages, forwarded to the client
// modules, with the user's settings, the floating world origin, deferred
// destruction of GPU objects, screenshots and the overlay pipelines.
#include "game/graphics/Aim.hpp"
#include "nerox/renderer/NeroxRenderer.hpp"
#include "nerox/vk/Image.hpp"
#include "nerox/vk/Pipeline.hpp"
#include "nerox/vk/Renderpass.hpp"

#include <glm/glm.hpp>
#include <vulkan/vulkan.h>

#include <any>
#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace nerox::graphics {
class Texture;
class Window;
} // namespace nerox::graphics
namespace nerox::vk {
class Buffer;
} // namespace nerox::vk
namespace game::entity {
struct ConvexMeshCollider;
} // namespace game::entity
namespace game::graphics::ui {
class Panels;
} // namespace game::graphics::ui

namespace game::graphics {

/// The game's subclass of the engine renderer. Each frame stage calls the
/// matching "Renderer_*" hook of the loaded GAME_Mod modules (all of them, or
/// the sorted list the stage names); FrameInit first copies the settings into
/// the base class and moves the floating world origin. Created by the host and
/// handed over in Game::renderer; needs Game::settings.
///
/// Order of life: constructor, StartRendering, frames, StopRendering, Cleanup,
/// destructor. Frames run on one thread; Trash, the push list and shader
/// registration may be used from others.
class GameRenderer : public nerox::renderer::NeroxRenderer {
public:
    using AimReference = graphics::AimReference;
    using Aim = graphics::Aim;

    /// Texture index of the monospace font atlas, which pixel-screen shaders address directly.
    static constexpr uint32_t FontAtlasTextureIndex = 0;
    /// The atlas file, relative to the working folder.
    static constexpr char const* FontAtlasPath = "game/graphics/ui/textures/monospace_font_atlas.png";
    /// Size of the overlay pipelines' push-constant block, in bytes.
    static constexpr uint32_t OverlayPushConstantBytes = 128;
    /// Text of the empty callable shader, the callable table's default.
    static constexpr char const* EmptyCallableShader = "#rcall\nvoid main(){}";
    /// Option name of the distance at which the world origin follows the camera (metres).
    static constexpr char const* WorldOriginThresholdOption = "world_origin_reset_distance_threshold";

    /// Builds the renderer for window: the device, the overlay pass and its
    /// pipelines, the samplers, the font atlas at texture index 0 and the
    /// built-in hit shaders 0 to 3. An unset graphics preset becomes 3 and the
    /// settings file is saved. Throws std::runtime_error "Font Atlas Index is
    /// not 0" when the atlas lands elsewhere, and std::runtime_error when the
    /// settings are missing or a file cannot be read.
    GameRenderer(nerox::graphics::Window* window, char const* applicationName, unsigned int applicationVersion,
                 nerox::vk::PhysicalDevice::Features const& features);
    /// Waits for the device, releases all trash, then the members.
    ~GameRenderer() override;

    // ---- engine stages
    void CreateSwapchainDependantObjects() override;  ///< Base first.
    void DestroySwapchainDependantObjects() override; ///< Forgets the overlay framebuffers, then base.
    void RefreshViewport() override;     ///< Base, a new overlay pass and pipelines, then Renderer_RefreshViewport.
    void StartRendering() override;      ///< Base, then Renderer_StartRendering.
    void StopRendering() override;       ///< Waits for the device, Renderer_StopRendering, then base.
    void FrameCollectGarbage() override; ///< Renderer_FrameCollectGarbage, then CollectTrash.
    void FrameUpdateDescriptorSets() override; ///< Renderer_FrameUpdateDescriptorSets, all modules.
    void FrameBeforePost() override;           ///< Renderer_FrameBeforePost, all modules.
    void FrameInit() override;                 ///< Settings, world origin, Renderer_FrameInit, camera.
    /// The game's windows (panels), then Renderer_FrameUpdateUi (list "ui"),
    /// then the inventory windows.
    void FrameUpdateUi() override;
    void FrameBeforeUpdate() override;                              ///< Renderer_FrameBeforeUpdate, list "update".
    void FrameUpdate() override;                                    ///< Renderer_FrameUpdate, list "update".
    void FrameBeforeRender() override;                              ///< Renderer_FrameBeforeRender, list "render".
    void FrameAfterRender() override;                               ///< Renderer_FrameAfterRender, list "render".
    void FrameAfterUpdate() override;                               ///< Renderer_FrameAfterUpdate, list "update".
    void FramePushCommands(VkCommandBuffer commandBuffer) override; ///< Renderer_FramePushCommands, then the push list.
    void FrameBuildCommands(VkCommandBuffer commandBuffer) override;   ///< Renderer_FrameBuildCommands, all modules.
    void FrameRenderCommands(VkCommandBuffer commandBuffer) override;  ///< Renderer_FrameRenderCommands, list "render".
    void FrameResolveCommands(VkCommandBuffer commandBuffer) override; ///< Renderer_FrameResolveCommands, list "post".
    void FrameBlitCommands(VkCommandBuffer commandBuffer) override;    ///< Renderer_FrameBlitCommands, list "post".
    void FramePostCommands(VkCommandBuffer commandBuffer) override;    ///< Renderer_FramePostCommands, list "post".
    /// Renderer_FrameOverlayCommands (list "overlay"), then the overlay pass (with a
    /// depth attachment of its own): the physics debug shapes when
    /// Game::debugServerSidePhysics or Game::debugClientSidePhysics asks for
    /// them, the crosshair in mouse look, then the retained interface's elements.
    void FrameOverlayCommands(VkCommandBuffer commandBuffer) override;
    /// Rebuilds the interface style when uiStyleDirty is set, locks the shader
    /// tables on the first frame, runs the base frame, then sorts the retained
    /// interface's elements by layer and saves a requested screenshot.
    void Frame() override;

    // ---- game operations
    /// Releases what a world put on the GPU: the texture table (the font atlas
    /// included), the push list, and all trash. Called by Game::Stop.
    void Cleanup();
    /// Keeps object alive until the device can no longer use it: it is
    /// released by the second CollectTrash after this call.
    void Trash(std::shared_ptr<void> object);
    /// Puts texture on the push list: its Push is recorded in the next frame's
    /// push stage. Any thread. The schedule function of a DynamicAsyncTexture.
    void SchedulePush(std::shared_ptr<nerox::graphics::Texture> texture);
    /// Releases the older generation of trash; the newer one becomes the older.
    /// Once per frame, by FrameCollectGarbage. Collections run on one thread at a
    /// time and not from a destructor that a collection runs; Trash may be
    /// called from anywhere, also from those destructors.
    void CollectTrash();
    /// Releases all trash, including what releasing trashes again.
    void CollectAllTrash();
    /// Copies extent pixels at offset of image (in layout) into an image file at
    /// path; see Texture::SaveFile for the file types and quality. opaque sets
    /// alpha to full for RGBA formats. The area must lie inside the image (checked
    /// for the output image only); an UNDEFINED layout is refused. Supports R8, R8G8, R8G8B8, R8G8B8A8,
    /// B8G8R8A8 (UNORM) and R32, R32G32, R32G32B32A32 (SFLOAT); returns false for
    /// any other format at once, and false when the file cannot be written.
    bool SaveImage(VkImage image, VkOffset2D offset, VkExtent2D extent, VkFormat format, VkImageLayout layout,
                   std::string const& path, int quality, bool opaque);
    /// Sets upscaling_quality_setting and final_upscale from graphics_preset (1 to
    /// 6; others change nothing). The caller holds Game::settings->GetMutex().
    static void ConfigureSettingsFromPreset();
    /// Registers a hit shader (a path below the working folder, without
    /// extension) and returns its hit group. Only before the first frame:
    /// afterwards it fails the assertion "!renderableShadersLocked".
    uint32_t AddRenderableHitShader(std::string const& path);
    /// Registers a callable shader (source text or path) and returns its slot; same rule.
    uint32_t AddRenderableCallableShader(std::string const& shader);
    /// Registers what an aim id stands for and returns the id, for
    /// RenderableInstance::SetAimID; the first is 1 (0 is no object).
    uint32_t AddAimReference(std::string const& moduleName, std::any data);
    /// Takes the aim record a drawing path read back: aim moves to aimPrevious
    /// and takes the record (see Aim::operator=).
    void TakeAim(AimBuffer const& buffer);
    /// The size in pixels of a sphere of diameter size at position, seen from
    /// cameraPosition with a vertical field of view of fov degrees (0: the
    /// renderer's): the angle it spans times the mean of the output's width
    /// and height (each times renderScale), at most 2 pi times that mean.
    double GetFixedBoundingSizeInScreenPixels(glm::dvec3 const& position, double size, double fov) const;
    /// Adds texture to the push list: its Push runs in the next FramePushCommands,
    /// unless the list holds the last reference by then. Either way the list's
    /// reference goes to the trash. Push must not call PushTexture.
    void PushTexture(std::shared_ptr<nerox::graphics::Texture> texture);
    /// Saves the next frame into path (PNG) once it is drawn, with a line on
    /// standard output; a failure is reported on standard error. Render thread.
    void RequestScreenshot(std::string path);

    // ---- members, in the order the engine expects them
    std::unique_ptr<nerox::vk::Renderpass>
        overlayRenderpass; ///< Overlay pass on the output, rebuilt with the viewport.
    std::unique_ptr<nerox::vk::Sampler>
        linearClampSampler; ///< Linear, clamp to edge: the font atlas and voxel textures.
    /// Labels of graphics_preset 0 to 6.
    std::array<char const*, 7> graphicsPresetNames{};
    /// What graphicsPresetNames starts with.
    static constexpr std::array<char const*, 7> GraphicsPresetLabels = {
        "Custom Graphics Settings (I want to tweak everything myself!)",
        "FAST FAST (I don't care about graphics at all, Just give me them frames!)",
        "Low quality (recommended for lower end RTX GPUs)",
        "Medium quality (recommended for most RTX GPUs)",
        "Good quality (recommended for high end RTX GPUs)",
        "High quality (only for RTX 4090)",
        "Ultra quality (that GPU is not out yet)",
    };
    /// Upscaling algorithms the settings panel offers, "NONE" first.
    std::vector<char const*> upscalingAlgoNames;
    std::unique_ptr<nerox::vk::Sampler> nearestSampler;      ///< Nearest, repeat.
    std::unique_ptr<nerox::vk::Sampler> linearClampSampler2; ///< Same as linearClampSampler.
    /// 128 bytes of push constants in all stages, and the main descriptor set.
    std::unique_ptr<nerox::vk::PipelineLayout> overlayPipelineLayout;

    // Camera, in world coordinates; modules write it before or in FrameInit.
    glm::dmat4 viewMatrix{1.0};              ///< World to camera.
    glm::dmat4 projectionMatrix{1.0};        ///< Camera to clip space.
    glm::dmat4 viewMatrixHistory{1.0};       ///< viewMatrix of the previous frame.
    glm::dmat4 projectionMatrixHistory{1.0}; ///< projectionMatrix of the previous frame.
    glm::dvec3 cameraPosition{0.0};          ///< Camera position, world coordinates.

    /// The camera as the last FrameInit took it: world position, and the unit
    /// forward and up vectors of viewMatrix.
    struct CameraSnapshot {
        glm::dvec3 position{0.0};
        glm::dvec3 forward{0.0, 0.0, -1.0};
        glm::dvec3 up{0.0, 1.0, 0.0};
    };
    /// The camera of the last frame begun; any thread (the client's listener
    /// reads it while the next frame's camera is being written).
    CameraSnapshot Camera() const;

    // Sun and sky of the world the camera is in, for the world view: linear RGB
    // radiance. The planet's client module writes them; these are a clear noon.
    glm::dvec3 sunDirection{0.35, 0.85, 0.4};    ///< World direction towards the sun; zero for no sun.
    glm::vec3 sunColor{1.3f, 1.25f, 1.15f};      ///< Light of the sun on a face turned to it.
    glm::vec3 skyColor{0.30f, 0.50f, 0.90f};     ///< The sky overhead.
    glm::vec3 horizonColor{0.70f, 0.80f, 0.90f}; ///< The sky at the horizon.
    glm::vec3 groundColor{0.35f, 0.32f, 0.28f};  ///< Below the horizon, and light bounced from the ground.

    glm::dvec4 worldOrigin{0.0, 0.0, 0.0, 1.0}; ///< Origin of the floating frame, world coordinates, w 1.
    glm::dmat4 originTransform{1.0};            ///< World to floating frame.
    glm::dmat4 originInverseTransform{1.0};     ///< Floating frame to world; recomputed when the origin moves.
    bool debugFlag = false;                     ///< Bit 3 of the shaders' option word.
    float debugViewScale = 1.0f;                ///< Scale of the debug view's values, for the drawing modules.
    bool worldOriginChanged = false;            ///< Set by FrameInit in a frame whose origin moved.
    float nearClip = 0.001f;                    ///< Copied to the base class every frame.

    uint32_t entityTriangleHitShader = 0; ///< Hit group of "game/graphics/rt/entity_tri".
    uint32_t entityBoxHitShader = 0;      ///< Hit group of "game/graphics/rt/entity_box".
    uint32_t entitySphereHitShader = 0;   ///< Hit group of "game/graphics/rt/entity_sphere".
    uint32_t plasmaHitShader = 0;         ///< Hit group of "game/graphics/rt/plasma".
    uint32_t entityCallableShader = 0;    ///< Slot of the empty callable.

    bool uiStyleDirty = false; ///< Set to have the next Frame rebuild the interface style.

    std::mutex trashMutex;                            ///< Guards trash.
    std::vector<std::shared_ptr<void>> trash;         ///< Trashed since the last collection.
    std::vector<std::shared_ptr<void>> trashPrevious; ///< Trashed before it; released at the next collection.

    graphics::AimReferences aimReferences; ///< What aim ids stand for; entry 0 is empty.
    Aim aim{&aimReferences};               ///< What the player looks at, from the last record read back.
    Aim aimPrevious{&aimReferences};       ///< The aim before that record.

    std::mutex renderableShadersMutex;                  ///< Guards the shader tables.
    bool renderableShadersLocked = false;               ///< Set once the ray-tracing pipeline is built.
    std::vector<std::string> renderableHitShaders;      ///< Shader paths; the index is the hit group.
    std::vector<std::string> renderableCallableShaders; ///< Sources or paths; the index is the callable slot.

    std::vector<std::shared_ptr<nerox::graphics::Texture>> pushTextures; ///< Textures to Push this frame.
    std::mutex pushTexturesMutex; ///< Guards pushTextures; taken before trashMutex.

    std::unique_ptr<nerox::vk::GraphicsPipeline> crosshairPipeline;         ///< One point sprite at the centre.
    std::unique_ptr<nerox::vk::GraphicsPipeline> colliderTrianglesPipeline; ///< Debug collider faces.
    std::unique_ptr<nerox::vk::GraphicsPipeline> colliderLinesPipeline;     ///< Debug collider lines.

    /// A vertex of the physics debug shapes: camera-relative, with its RGBA8 colour.
    struct DebugVertex {
        glm::vec3 position{0.0f};
        uint32_t color = 0;
    };
    /// The debug shapes' vertices, a buffer per frame slot, grown as needed and
    /// released while no debug drawing is asked for.
    std::array<std::shared_ptr<nerox::vk::Buffer>, FramesInFlight> debugColliderVertices;
    /// The game's immediate-mode windows, built by FrameUpdateUi.
    std::unique_ptr<ui::Panels> panels;

private:
    mutable std::mutex _cameraMutex; // guards _camera
    CameraSnapshot _camera;
    void CreateOverlayPass();
    void CreateOverlayPipelines();
    bool OverlayPassMatchesOutput() const;
    void FollowOutput(); // a new overlay pass and pipelines for an output of another format or size
    void ReleaseTrashGeneration();
    void DrawDebugPhysics(VkCommandBuffer commandBuffer);
    void AppendColliderTriangles(game::entity::ConvexMeshCollider const& collider, glm::dmat4 const& world,
                                 uint32_t color);

    // The list CollectTrash releases, moved out of trash under the lock so that a
    // release may trash again; kept to reuse its storage.
    std::vector<std::shared_ptr<void>> _releasing;
    float uiScaling = 1.0f;                  // ui_scaling, copied in FrameInit
    std::string _screenshotPath;             // saved after the next frame; empty for none
    std::vector<DebugVertex> _debugVertices; // this frame's debug shapes, kept for its storage
};

} // namespace game::graphics
