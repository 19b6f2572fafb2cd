#pragma once
// The world view: draws the scene tables (renderable instances and light
// sources) from the renderer's camera into the output image, before the
// overlay and the interface.
//
// This is the rasterized path, which runs on every Vulkan 1.3 device with
// buffer device addresses, 64-bit integers and 16-bit storage in shaders (the
// software device included). It reads the same GPU records a ray tracer reads:
// each vertex is pulled from the geometry's buffers by device address, each
// material from the instance's RenderableData by address and geometry index,
// so nothing is copied or bound per object. Box geometries are drawn as boxes.
//
// Plasma trails (instances of ray mask 4) are drawn last, as light added along
// each view ray through their boxes, over the scene and the sky; their noise
// fields are filled by a compute pass after the frame's drawing, for the next.
// A device without independent blending draws no trails.
//
// Positions reach the GPU relative to the camera, computed in double
// precision on the CPU each frame, so that single precision holds near the
// camera wherever the floating world origin lies.
//
// Threads: every member runs on the render thread, inside the renderer's frame
// stages. The tables are walked under their shared locks.
#include <glm/glm.hpp>
#include <vulkan/vulkan.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace game::graphics {
class GameRenderer;
class PlasmaTrail;
struct RenderableData;
} // namespace game::graphics
namespace nerox::graphics {
class ComputeTexture;
class Texture;
} // namespace nerox::graphics
namespace nerox::vk {
class Buffer;
class ComputePipeline;
class GraphicsPipeline;
class Image;
class PipelineLayout;
template <class T, int memoryUsage, uint32_t allocationFlags> class MappedBuffer;
} // namespace nerox::vk

namespace view {

/// One light of a frame, as the shaders read it (camera space).
struct LightRecord {
    glm::vec3 position{0.0f};
    float range = 0.0f; ///< Reach plus radius; 0 hides the light.
    glm::vec3 color{0.0f};
    float power = 0.0f;
    glm::vec3 direction{0.0f}; ///< Axis of a spot.
    float spread = 0.0f;       ///< 0 for a light that shines all around.
    float radius = 0.0f;
    float cosCone = -1.0f; ///< Cosine of a spot's half angle: 1 - spread / pi.
    float pad[2] = {};
};
static_assert(sizeof(LightRecord) == 64);

/// What the shaders know of a frame, a uniform block (std140); MaxLights
/// light records follow it in the same block.
struct FrameRecord {
    glm::mat4 projection{1.0f};    ///< Camera to clip space.
    glm::mat4 cameraToWorld{1.0f}; ///< Rotation of the camera.
    glm::vec4 sunDirection{0.0f};  ///< Camera space, towards the sun; w 0 for no sun.
    glm::vec4 sunColor{0.0f};
    glm::vec4 skyColor{0.0f};
    glm::vec4 horizonColor{0.0f};
    glm::vec4 groundColor{0.0f};
    uint32_t lightCount = 0;
    uint32_t options = 0;
    uint32_t pad[2] = {};
};
static_assert(sizeof(FrameRecord) == 224 && sizeof(FrameRecord) % 16 == 0);

/// The push constants of one draw: 128 bytes, the least every device offers.
struct DrawConstants {
    glm::mat4 modelView{1.0f}; ///< Object to camera space.
    uint64_t positions = 0;    ///< Vertices (three floats) or boxes (AabbData).
    uint64_t indices = 0;      ///< 16- or 32-bit indices; 0 without.
    uint64_t normals = 0;      ///< Three floats a vertex; 0 without.
    uint64_t colors = 0;       ///< Four bytes or four floats a vertex; 0 without.
    uint64_t texCoords = 0;    ///< Two floats a vertex; 0 without.
    uint64_t material = 0;     ///< The geometry's RenderableData record.
    uint32_t aimID = 0;        ///< The instance's aim id, written to the aim target.
    uint32_t screen = 0;       ///< Without the texture table: the screen's slot (1 to MaxScreens), 0 for none.
    uint32_t flags = 0;        ///< Index mode, the attributes present, the texture index from bit 8.
    uint32_t vertexCount = 0;  ///< Vertices of the geometry: indices at or past it draw nothing.
};
static_assert(sizeof(DrawConstants) == 128);

/// Bits of DrawConstants::flags beside the index mode (bits 0 and 1).
enum DrawFlags : uint32_t {
    HasNormals = 4,
    ColorsU8 = 8,
    ColorsF32 = 16,
    HasTexCoords = 32,
    TextureShift = 8,
};

/// Counts of the last frame drawn.
struct ViewStats {
    uint32_t instances = 0;     ///< Instances drawn.
    uint32_t draws = 0;         ///< Draw calls, one per geometry.
    uint32_t plasmaTrails = 0;  ///< Plasma trails drawn (not counted in instances).
    uint32_t lights = 0;        ///< Lights that shone.
    uint32_t droppedLights = 0; ///< Active lights past MaxLights, left out.
};

/// Draws the scene tables. Made when rendering starts, dropped when it stops.
class WorldView {
public:
    /// Lights a frame can hold; more are left out (counted in ViewStats).
    /// The frame's block then fills the 16 KiB of uniform data every device offers.
    static constexpr uint32_t MaxLights = 252;
    /// Noise fields filled at once; the fields of more trails keep their last
    /// content. A field not filled for a few frames gives its place up.
    static constexpr uint32_t MaxNoiseFields = 64;
    /// Screens a frame shows on a device that cannot index the texture table:
    /// each has a sampler of its own there. Further screens show their emission.
    static constexpr uint32_t MaxScreens = 4;
    /// Folder of the compiled shaders, relative to the working folder.
    static constexpr char const* ShaderFolder = "modules/TESSARA_view/shaders/";

    /// Builds the pipelines for the renderer's output. Throws std::runtime_error
    /// naming what the device lacks when it cannot draw this way, and when a
    /// shader file cannot be read.
    explicit WorldView(game::graphics::GameRenderer& renderer);
    ~WorldView();
    WorldView(WorldView const&) = delete;
    WorldView& operator=(WorldView const&) = delete;

    /// What the device lacks for this path, or empty when it has everything.
    static std::string MissingFeatures(game::graphics::GameRenderer const& renderer);
    /// Whether the device can index the texture table in shaders (descriptor
    /// indexing). Without, base colour textures show their plain colours, and
    /// screens (up to MaxScreens a frame) are bound one by one.
    static bool CanSampleTextures(game::graphics::GameRenderer const& renderer);
    /// Whether this view samples textures.
    bool Textured() const { return _textured; }

    /// Writes the renderer's projection for this frame: the field of view of the
    /// settings, the output's aspect, the near clip, no far plane (depth runs
    /// from 1 at the near clip to 0 at infinity).
    void FrameInit();
    /// Hands the aim record of this frame slot's last frame to the renderer
    /// (GameRenderer::TakeAim), then records the sky and the scene into the
    /// output image, with the aim id and depth of the centre pixel copied for
    /// the CPU. The record of a frame thus reaches the renderer when its slot
    /// comes round again, FramesInFlight frames later, without waiting.
    void Record(VkCommandBuffer commandBuffer);

    /// Counts of the last frame recorded.
    ViewStats const& Stats() const { return _stats; }

private:
    void FollowOutput(); // pipelines and depth image for the output's format and size
    void CreateFrameBlocks();
    void DestroyFrameBlocks();
    void WriteFrame(uint32_t slot, glm::dmat4 const& view);
    void DrawInstances(VkCommandBuffer commandBuffer, glm::dmat4 const& view);
    void TakeAim(uint32_t slot);
    void CopyAim(VkCommandBuffer commandBuffer, uint32_t slot);
    void CreateNoisePass();
    void DestroyNoisePass();
    void DrawPlasma(VkCommandBuffer commandBuffer, glm::dmat4 const& view);
    void FillNoise(VkCommandBuffer commandBuffer);
    VkDescriptorSet NoiseSet(std::shared_ptr<nerox::graphics::ComputeTexture> const& field);
    void CreateScreenSets();
    void DestroyScreenSets();
    /// Finds the screens of this frame's instances and writes the frame slot's screen set.
    void PrepareScreens(uint32_t slot);
    /// The slot of a screen's texture in this frame, 0 when it has none.
    uint32_t ScreenSlot(uint32_t monitorIndex) const;

    game::graphics::GameRenderer& _renderer;
    bool _textured;
    std::unique_ptr<nerox::vk::PipelineLayout> _layout;
    std::unique_ptr<nerox::vk::GraphicsPipeline> _scene;
    std::unique_ptr<nerox::vk::GraphicsPipeline> _sky;
    std::unique_ptr<nerox::vk::GraphicsPipeline> _plasma;
    std::shared_ptr<nerox::vk::Image> _depth;
    std::shared_ptr<nerox::vk::Image> _aimIds; ///< The aim id of each pixel's object; 0 for the sky.
    /// Per frame slot: the centre pixel's aim id and depth, as copied.
    std::unique_ptr<nerox::vk::Buffer> _aimReadback;
    /// Per frame slot: whether a copy is on its way, and the near clip it was drawn with.
    static constexpr uint32_t MaxFrameSlots = 4;
    std::array<bool, MaxFrameSlots> _aimPending{};
    std::array<double, MaxFrameSlots> _aimNearClip{};
    std::array<glm::dmat3, MaxFrameSlots> _aimCameraToWorld{};
    VkFormat _colorFormat = VK_FORMAT_UNDEFINED;
    VkExtent2D _extent{0, 0};
    // The frame blocks, one slice per frame in flight, and their descriptor set.
    std::unique_ptr<nerox::vk::Buffer> _frameBlocks;
    VkDeviceSize _frameSlice = 0;
    VkDescriptorSetLayout _frameSetLayout = VK_NULL_HANDLE;
    VkDescriptorPool _framePool = VK_NULL_HANDLE;
    VkDescriptorSet _frameSet = VK_NULL_HANDLE;
    // White, for geometries without a material record.
    std::unique_ptr<nerox::vk::MappedBuffer<game::graphics::RenderableData, 8, 1024>> _fallbackMaterial;
    ViewStats _stats;

    // Plasma: the trails met while drawing this frame (kept for the storage),
    // and the noise pass with a storage-image set per field it has filled.
    std::vector<std::shared_ptr<game::graphics::PlasmaTrail>> _plasmaTrails;
    struct NoiseField {
        std::weak_ptr<nerox::graphics::ComputeTexture> texture;
        VkDescriptorSet set = VK_NULL_HANDLE;
        uint64_t lastFrame = 0; ///< The renderer's frame index when it was last filled.
    };
    std::unordered_map<nerox::graphics::ComputeTexture const*, NoiseField> _noiseFields;
    VkDescriptorSetLayout _noiseSetLayout = VK_NULL_HANDLE;
    VkDescriptorPool _noisePool = VK_NULL_HANDLE;
    std::unique_ptr<nerox::vk::PipelineLayout> _noiseLayout;
    std::unique_ptr<nerox::vk::ComputePipeline> _noise;
    // Screens without the texture table: set 0 of the pipelines holds MaxScreens
    // samplers, one set per frame slot; the textures each set shows (kept
    // alive while its frame may run), and this frame's monitor index per slot.
    VkDescriptorSetLayout _screenSetLayout = VK_NULL_HANDLE;
    VkDescriptorPool _screenPool = VK_NULL_HANDLE;
    std::array<VkDescriptorSet, MaxFrameSlots> _screenSets{};
    std::array<std::array<std::shared_ptr<nerox::graphics::Texture>, MaxScreens>, MaxFrameSlots> _screenTextures{};
    std::array<uint32_t, MaxScreens> _screenIndices{};
    std::shared_ptr<nerox::graphics::Texture> _blankScreen; // in every slot without a screen
    std::chrono::steady_clock::time_point _start = std::chrono::steady_clock::now();
};

} // namespace view
