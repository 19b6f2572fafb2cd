#pragma once
// Pipeline layouts, and graphics and compute pipelines built from compiled shader files.
#include "nerox/vk/Device.hpp"
#include "nerox/vk/Renderpass.hpp"

#include <vulkan/vulkan.h>

#include <cstdint>
#include <string>
#include <vector>

namespace nerox::vk {

/// Descriptor-set layouts and push-constant ranges of a pipeline.
class PipelineLayout {
public:
    /// A layout of sets (in set-number order) and pushConstants; throws std::runtime_error when Vulkan refuses.
    PipelineLayout(Device& device, std::vector<VkDescriptorSetLayout> const& sets,
                   std::vector<VkPushConstantRange> const& pushConstants, std::string const& name = {});
    ~PipelineLayout();
    PipelineLayout(PipelineLayout const&) = delete;
    PipelineLayout& operator=(PipelineLayout const&) = delete;

    VkPipelineLayout Handle() const { return _layout; }   ///< The Vulkan pipeline layout.
    operator VkPipelineLayout() const { return _layout; } ///< The Vulkan pipeline layout.

private:
    Device* _device;
    VkPipelineLayout _layout = VK_NULL_HANDLE;
};

/// Fixed-function state of a GraphicsPipeline. Viewport and scissor are always
/// dynamic (Renderpass::Begin sets them). The depth settings take effect only in
/// a render pass with a depth attachment; without one every fragment passes.
struct GraphicsPipelineOptions {
    std::vector<VkVertexInputBindingDescription> vertexBindings;        ///< Vertex buffers read; none by default.
    std::vector<VkVertexInputAttributeDescription> vertexAttributes;    ///< Vertex inputs; none by default.
    VkPrimitiveTopology topology = VK_PRIMITIVE_TOPOLOGY_TRIANGLE_LIST; ///< Primitive assembly.
    VkPolygonMode polygonMode = VK_POLYGON_MODE_FILL; ///< Fill, lines or points (the last two need fillModeNonSolid).
    float lineWidth = 1.0f;                           ///< Width of lines; other than 1 needs wideLines.
    VkCullModeFlags cullMode = VK_CULL_MODE_NONE;     ///< Faces dropped.
    VkFrontFace frontFace = VK_FRONT_FACE_COUNTER_CLOCKWISE; ///< Winding of front faces.
    /// "Over" blending: colour = src * srcAlpha + dst * (1 - srcAlpha), alpha =
    /// srcAlpha + dstAlpha * (1 - srcAlpha). Off writes the fragment as it is.
    bool alphaBlending = true;
    /// With alphaBlending, the factor of the destination's alpha: ONE_MINUS_SRC_ALPHA
    /// as above, or ZERO to write the fragment's alpha as it is.
    VkBlendFactor dstAlphaBlendFactor = VK_BLEND_FACTOR_ONE_MINUS_SRC_ALPHA;
    /// With alphaBlending, the factor of the destination's colour: ONE_MINUS_SRC_ALPHA
    /// as above, or ONE to add the fragment's light to what is there (glows).
    VkBlendFactor dstColorBlendFactor = VK_BLEND_FACTOR_ONE_MINUS_SRC_ALPHA;
    /// Whether the fragments are written to a second colour attachment; off
    /// leaves it as it is (a glow keeps the id of the object behind it).
    bool writeSecond = true;
    bool depthTest = false;                          ///< Compare with the depth attachment.
    bool depthWrite = false;                         ///< Write the depth attachment.
    VkCompareOp depthCompareOp = VK_COMPARE_OP_LESS; ///< Comparison of the depth test.
    /// Specialisation constants of both shaders: constant_id i takes the value
    /// at index i (32-bit floats). Such as the size of the target in pixels,
    /// for shaders that place geometry in pixels.
    std::vector<float> specialization;
};

/// Attachment formats of a pipeline that draws with dynamic rendering
/// (vkCmdBeginRendering) instead of a Renderpass.
struct RenderingFormats {
    VkFormat color = VK_FORMAT_UNDEFINED; ///< The first colour attachment.
    VkFormat depth = VK_FORMAT_UNDEFINED; ///< The depth attachment; UNDEFINED for none.
    /// A second colour attachment, written as the fragment gives it (never
    /// blended), such as an id target; UNDEFINED for none.
    VkFormat second = VK_FORMAT_UNDEFINED;
};

/// A graphics pipeline of a vertex and a fragment shader for subpass 0 of a
/// Renderpass, or for dynamic rendering into attachments of given formats. The shaders are read once, from shaderPath + ".vert.spv" and
/// shaderPath + ".frag.spv" (relative to the working directory unless
/// absolute), with entry points "main"; their modules are kept for rebuilds.
class GraphicsPipeline {
public:
    /// Builds the pipeline; the layout must outlive it. Throws
    /// std::runtime_error "Cannot load shader <file>: <why>" when a shader file
    /// is missing or not SPIR-V, and std::runtime_error when Vulkan refuses.
    GraphicsPipeline(Device& device, PipelineLayout const& layout, Renderpass const& renderpass,
                     std::string const& shaderPath, GraphicsPipelineOptions const& options = {});
    /// The same for dynamic rendering (needs the device's dynamicRendering).
    GraphicsPipeline(Device& device, PipelineLayout const& layout, RenderingFormats const& formats,
                     std::string const& shaderPath, GraphicsPipelineOptions const& options = {});
    ~GraphicsPipeline();
    GraphicsPipeline(GraphicsPipeline const&) = delete;
    GraphicsPipeline& operator=(GraphicsPipeline const&) = delete;

    /// Rebuilds the pipeline for renderpass (after the swapchain changed). The
    /// old pipeline is destroyed: no submitted work may still use it. On
    /// failure it throws and the old pipeline stays.
    void RefreshViewport(Renderpass const& renderpass);
    /// The same for dynamic rendering into attachments of formats.
    void RefreshViewport(RenderingFormats const& formats);

    VkPipeline Handle() const { return _pipeline; }   ///< The Vulkan pipeline.
    operator VkPipeline() const { return _pipeline; } ///< The Vulkan pipeline.
    /// Binds the pipeline for drawing.
    void Bind(VkCommandBuffer commandBuffer) const;

private:
    VkPipeline Build(VkRenderPass renderpass, RenderingFormats const* formats) const;
    void DestroyModules();

    Device* _device;
    VkPipelineLayout _layout;
    std::string _name;
    GraphicsPipelineOptions _options;
    VkShaderModule _vertex = VK_NULL_HANDLE;
    VkShaderModule _fragment = VK_NULL_HANDLE;
    VkPipeline _pipeline = VK_NULL_HANDLE;
};

/// A compute pipeline of one shader, read once from shaderPath + ".comp.spv"
/// (relative to the working directory unless absolute) with entry point "main".
class ComputePipeline {
public:
    /// Builds the pipeline; the layout must outlive it. Throws std::runtime_error
    /// "Cannot load shader <file>: <why>" for a bad file, and std::runtime_error
    /// when Vulkan refuses.
    ComputePipeline(Device& device, PipelineLayout const& layout, std::string const& shaderPath);
    ~ComputePipeline();
    ComputePipeline(ComputePipeline const&) = delete;
    ComputePipeline& operator=(ComputePipeline const&) = delete;

    VkPipeline Handle() const { return _pipeline; }     ///< The Vulkan pipeline.
    operator VkPipeline() const { return _pipeline; }   ///< The Vulkan pipeline.
    VkPipelineLayout Layout() const { return _layout; } ///< Its layout, for binding sets and push constants.
    /// Binds the pipeline for dispatching.
    void Bind(VkCommandBuffer commandBuffer) const;
    /// Records groupsX x groupsY x groupsZ work groups of the bound pipeline.
    /// Throws std::runtime_error when a count is 0 or above the device's limit.
    void Dispatch(VkCommandBuffer commandBuffer, uint32_t groupsX, uint32_t groupsY, uint32_t groupsZ = 1) const;
    /// Work groups of groupSize invocations that cover size invocations.
    static constexpr uint32_t GroupsFor(uint32_t size, uint32_t groupSize) {
        return groupSize == 0 ? 0 : size / groupSize + (size % groupSize != 0 ? 1 : 0);
    }

private:
    Device* _device;
    VkPipelineLayout _layout;
    VkPipeline _pipeline = VK_NULL_HANDLE;
};

/// The SPIR-V words of file. Throws std::runtime_error "Cannot load shader
/// <file>: <why>" when it cannot be read, its size is not a non-zero multiple of
/// 4 holding at least the header, or it lacks the SPIR-V magic number.
std::vector<uint32_t> LoadSpirv(std::string const& file);

} // namespace nerox::vk
