#pragma once
// The renderer base that games derive from: it runs one frame as a fixed
// sequence of virtual stages, keeps the bindless texture table, and holds the
// per-frame settings and camera that the stages fill.
#include "nerox/graphics/TextureRef.hpp"
#include "nerox/graphics/VulkanRenderer.hpp"
#include "nerox/renderer/Upscaler.hpp"
#include "nerox/vk/Image.hpp"

#include <glm/glm.hpp>
#include <vulkan/vulkan.h>

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <tuple>
#include <vector>

namespace nerox::renderer {

/// The frame loop in stages. Frame() runs, on the calling thread:
/// BeginFrame; FrameInit; FrameCollectGarbage; FrameUpdateUi inside Dear
/// ImGui's frame; FrameBeforeUpdate, FrameUpdate, FrameAfterUpdate;
/// FrameUpdateDescriptorSets; FrameBeforeRender; then the command stages
/// FramePushCommands, FrameBuildCommands, FrameRenderCommands; FrameAfterRender;
/// FrameResolveCommands; FrameBeforePost; FrameBlitCommands, FramePostCommands,
/// FrameOverlayCommands; EndFrame, which draws the interface and submits.
/// The command stages record into the frame's command buffer, with the output
/// image in VK_IMAGE_LAYOUT_GENERAL. The base stages do nothing.
/// The texture table has its own lock: textures may be added from any thread,
/// also while a frame runs. Their descriptors are written at the next frame's
/// descriptor stage (before FrameUpdateDescriptorSets), so that no set is
/// changed while a recorded frame uses it; until then the entry is in the table
/// but not yet seen by shaders.
class NeroxRenderer : public graphics::VulkanRenderer {
public:
    /// Entries of the bindless texture table, at most: devices whose limits are
    /// lower get a smaller table (TextureCapacity).
    static constexpr uint32_t MaxTextures = 1024;

    /// Creates the device, the default samplers and the texture table.
    NeroxRenderer(graphics::Window* window, char const* applicationName, uint32_t applicationVersion,
                  vk::PhysicalDevice::Features const& features, bool vsync);
    ~NeroxRenderer() override;

    virtual void FrameCollectGarbage();                             ///< Releases what the device no longer uses.
    virtual void FrameUpdateDescriptorSets();                       ///< Writes descriptor sets for this frame.
    virtual void FrameBeforePost();                                 ///< After resolving, before the post stages.
    virtual void FrameInit();                                       ///< First stage of each frame: settings and camera.
    virtual void FrameUpdateUi();                                   ///< Builds the immediate-mode interface.
    virtual void FrameBeforeUpdate();                               ///< Before the update stage.
    virtual void FrameUpdate();                                     ///< Per-frame CPU work.
    virtual void FrameBeforeRender();                               ///< Before the command stages.
    virtual void FrameAfterRender();                                ///< After the render commands are recorded.
    virtual void FrameAfterUpdate();                                ///< After the update stage.
    virtual void FramePushCommands(VkCommandBuffer commandBuffer);  ///< Uploads.
    virtual void FrameBuildCommands(VkCommandBuffer commandBuffer); ///< Acceleration structure builds.
    virtual void FrameRenderCommands(VkCommandBuffer commandBuffer);  ///< The scene.
    virtual void FrameResolveCommands(VkCommandBuffer commandBuffer); ///< Resolving and denoising.
    virtual void FrameBlitCommands(VkCommandBuffer commandBuffer);    ///< To the output's size.
    virtual void FramePostCommands(VkCommandBuffer commandBuffer);    ///< Post effects on the output.
    virtual void FrameOverlayCommands(VkCommandBuffer commandBuffer); ///< Overlays on the output.
    /// One frame through every stage. An exception from a stage ends the frame
    /// (submitted as just the cleared output, with the interface as far as it
    /// got) and passes on. Interface code should not throw from inside a popup
    /// or with styles pushed: those are not unwound.
    virtual void Frame();

    /// Adds texture to the table with sampler (null: DefaultSampler()); a
    /// reference by path loads the image file. Returns its index, counted from
    /// 0 since the last ClearTextures. Throws std::runtime_error when the file
    /// cannot be read or the table is full (TextureCapacity entries). Any thread;
    /// shaders see the entry from the next frame on.
    uint32_t AddTexture(graphics::TextureRef const& texture, VkSampler sampler = VK_NULL_HANDLE);
    /// Adds each entry in order; returns the index of the first. All files are
    /// read first: when one fails, nothing is added.
    uint32_t AddTextures(std::vector<std::tuple<graphics::TextureRef, VkSampler>> const& textures);
    /// Empties the table; the next texture added gets index 0.
    void ClearTextures();
    /// Entries in the table.
    uint32_t TextureCount() const;
    /// Entries the table can hold on this device (MaxTextures or fewer).
    uint32_t TextureCapacity() const { return _capacity; }
    /// The texture at index, or null.
    std::shared_ptr<graphics::Texture> GetTexture(uint32_t index) const;

    /// Linear filter, repeat: the sampler of textures added without one.
    VkSampler DefaultSampler() const { return _defaultSampler->Handle(); }
    /// Layout of the main descriptor set: binding 0 is the texture table.
    VkDescriptorSetLayout MainDescriptorSetLayout() const { return _mainSetLayout; }
    /// The main descriptor set.
    VkDescriptorSet MainDescriptorSet() const { return _mainSet; }

    /// A Dear ImGui window with frame times; call inside the interface stage.
    void UiShowAdvancedPerformanceMetrics();

    // Per-frame settings, written by FrameInit.
    float renderScale = 1.0f;                        ///< Render size over output size.
    float finalUpscale = 0.0f;                       ///< Extra scale of the final image; 0 is none.
    int upscalingQualitySetting = 1;                 ///< Quality level of the upscaler.
    float upscalingSharpness = 0.0f;                 ///< Sharpening of the upscaler.
    float brightness = 1.0f;                         ///< Post-processing brightness.
    float contrast = 1.0f;                           ///< Post-processing contrast.
    float gamma = 1.0f;                              ///< Post-processing gamma.
    float fov = 80.0f;                               ///< Vertical field of view in degrees.
    float nearClip = 0.001f;                         ///< Near clipping distance in metres.
    bool devTools = false;                           ///< Developer tools shown.
    UPSCALE_ALGO upscalingAlgo = UPSCALE_ALGO::NONE; ///< Upscaler in use.
    uint32_t renderOptions = 0;                      ///< Option bits the shaders read.
    std::array<int64_t, 3> worldOrigin{};            ///< Origin of the floating frame, whole metres.
    glm::mat4 cameraTransform{1.0f};                 ///< The camera's transform in the floating frame.

private:
    struct TableEntry {
        std::shared_ptr<graphics::Texture> texture;
        VkSampler sampler = VK_NULL_HANDLE;
    };

    uint32_t AddLocked(graphics::TextureRef const& texture, VkSampler sampler);
    /// Writes the descriptors of the textures added since the last call.
    void WriteTextureDescriptors();
    std::shared_ptr<graphics::Texture> Resolve(graphics::TextureRef const& texture);
    /// Points the entries from index from on at the blank texture (devices without partially bound descriptors).
    void WriteBlank(uint32_t from);

    std::unique_ptr<vk::Sampler> _defaultSampler;
    std::shared_ptr<graphics::Texture> _blank; // what free entries show; null with partially bound descriptors
    VkDescriptorSetLayout _mainSetLayout = VK_NULL_HANDLE;
    VkDescriptorPool _mainPool = VK_NULL_HANDLE;
    VkDescriptorSet _mainSet = VK_NULL_HANDLE;
    bool _updateAfterBind = false;
    uint32_t _capacity = MaxTextures;
    mutable std::mutex _texturesMutex;
    std::vector<TableEntry> _textures;
    std::vector<uint32_t> _unwritten; // entries whose descriptors are not written yet; guarded by _texturesMutex
    std::array<float, 120> _frameMs{};
    size_t _frameMsNext = 0;
    double _lastFrameTime = 0.0;
};

} // namespace nerox::renderer
