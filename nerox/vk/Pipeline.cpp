#include "nerox/vk/Pipeline.hpp"

#include "nerox/vk/Check.hpp"
#include "nerox/ScopeGuard.hpp"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace nerox::vk {

namespace {

constexpr uint32_t SpirvMagic = 0x07230203;
/// Words of a SPIR-V module header: magic, version, generator, bound, schema.
constexpr size_t SpirvHeaderWords = 5;

[[noreturn]] void CannotLoad(std::string const& file, std::string const& why) {
    throw std::runtime_error("Cannot load shader " + file + ": " + why);
}

VkShaderModule CreateModule(Device& device, std::string const& file) {
    std::vector<uint32_t> const code = LoadSpirv(file);
    VkShaderModuleCreateInfo info{VK_STRUCTURE_TYPE_SHADER_MODULE_CREATE_INFO};
    info.codeSize = code.size() * sizeof(uint32_t);
    info.pCode = code.data();
    VkShaderModule module = VK_NULL_HANDLE;
    NEROX_VK_CHECK(vkCreateShaderModule(device, &info, nullptr, &module));
    device.SetName(VK_OBJECT_TYPE_SHADER_MODULE, reinterpret_cast<uint64_t>(module), file);
    return module;
}

} // namespace

std::vector<uint32_t> LoadSpirv(std::string const& file) {
    std::error_code error;
    std::filesystem::file_status const status = std::filesystem::status(file, error);
    if (status.type() == std::filesystem::file_type::not_found) CannotLoad(file, "no such file");
    if (error) CannotLoad(file, error.message());
    if (!std::filesystem::is_regular_file(status)) CannotLoad(file, "not a regular file");
    std::ifstream stream(file, std::ios::binary | std::ios::ate);
    if (!stream) CannotLoad(file, std::strerror(errno));
    std::streamoff const size = stream.tellg();
    if (size < 0) CannotLoad(file, "cannot read its size");
    if (size == 0 || size % 4 != 0)
        CannotLoad(file, "its size of " + std::to_string(size) + " bytes is not a non-zero multiple of 4");
    if (static_cast<size_t>(size) < SpirvHeaderWords * 4)
        CannotLoad(file, "its " + std::to_string(size) + " bytes are too few for a SPIR-V header");
    std::vector<uint32_t> words(static_cast<size_t>(size) / 4);
    stream.seekg(0);
    if (!stream.read(reinterpret_cast<char*>(words.data()), size)) CannotLoad(file, "reading failed");
    if (words[0] != SpirvMagic) CannotLoad(file, "not SPIR-V (no magic number)");
    return words;
}

// ---------------------------------------------------------------- layout

PipelineLayout::PipelineLayout(Device& device, std::vector<VkDescriptorSetLayout> const& sets,
                               std::vector<VkPushConstantRange> const& pushConstants, std::string const& name)
    : _device(&device) {
    VkPipelineLayoutCreateInfo info{VK_STRUCTURE_TYPE_PIPELINE_LAYOUT_CREATE_INFO};
    info.setLayoutCount = static_cast<uint32_t>(sets.size());
    info.pSetLayouts = sets.data();
    info.pushConstantRangeCount = static_cast<uint32_t>(pushConstants.size());
    info.pPushConstantRanges = pushConstants.data();
    NEROX_VK_CHECK(vkCreatePipelineLayout(device, &info, nullptr, &_layout));
    device.SetName(VK_OBJECT_TYPE_PIPELINE_LAYOUT, reinterpret_cast<uint64_t>(_layout), name);
}

PipelineLayout::~PipelineLayout() {
    vkDestroyPipelineLayout(*_device, _layout, nullptr);
}

// ---------------------------------------------------------------- pipeline

GraphicsPipeline::GraphicsPipeline(Device& device, PipelineLayout const& layout, Renderpass const& renderpass,
                                   std::string const& shaderPath, GraphicsPipelineOptions const& options)
    : _device(&device), _layout(layout.Handle()), _name(shaderPath), _options(options) {
    nerox::OnFailure undo([&] { DestroyModules(); });
    _vertex = CreateModule(device, shaderPath + ".vert.spv");
    _fragment = CreateModule(device, shaderPath + ".frag.spv");
    _pipeline = Build(renderpass, nullptr);
}

GraphicsPipeline::GraphicsPipeline(Device& device, PipelineLayout const& layout, RenderingFormats const& formats,
                                   std::string const& shaderPath, GraphicsPipelineOptions const& options)
    : _device(&device), _layout(layout.Handle()), _name(shaderPath), _options(options) {
    nerox::OnFailure undo([&] { DestroyModules(); });
    _vertex = CreateModule(device, shaderPath + ".vert.spv");
    _fragment = CreateModule(device, shaderPath + ".frag.spv");
    _pipeline = Build(VK_NULL_HANDLE, &formats);
}

GraphicsPipeline::~GraphicsPipeline() {
    vkDestroyPipeline(*_device, _pipeline, nullptr);
    DestroyModules();
}

void GraphicsPipeline::DestroyModules() {
    vkDestroyShaderModule(*_device, _vertex, nullptr);
    vkDestroyShaderModule(*_device, _fragment, nullptr);
    _vertex = _fragment = VK_NULL_HANDLE;
}

void GraphicsPipeline::RefreshViewport(Renderpass const& renderpass) {
    VkPipeline const rebuilt = Build(renderpass, nullptr);
    vkDestroyPipeline(*_device, _pipeline, nullptr);
    _pipeline = rebuilt;
}

void GraphicsPipeline::RefreshViewport(RenderingFormats const& formats) {
    VkPipeline const rebuilt = Build(VK_NULL_HANDLE, &formats);
    vkDestroyPipeline(*_device, _pipeline, nullptr);
    _pipeline = rebuilt;
}

void GraphicsPipeline::Bind(VkCommandBuffer commandBuffer) const {
    vkCmdBindPipeline(commandBuffer, VK_PIPELINE_BIND_POINT_GRAPHICS, _pipeline);
}

VkPipeline GraphicsPipeline::Build(VkRenderPass renderpass, RenderingFormats const* formats) const {
    VkPipelineShaderStageCreateInfo stages[2]{};
    stages[0].sType = stages[1].sType = VK_STRUCTURE_TYPE_PIPELINE_SHADER_STAGE_CREATE_INFO;
    stages[0].stage = VK_SHADER_STAGE_VERTEX_BIT;
    stages[0].module = _vertex;
    stages[0].pName = "main";
    stages[1].stage = VK_SHADER_STAGE_FRAGMENT_BIT;
    stages[1].module = _fragment;
    stages[1].pName = "main";
    std::vector<VkSpecializationMapEntry> entries(_options.specialization.size());
    for (size_t i = 0; i < entries.size(); ++i)
        entries[i] = {static_cast<uint32_t>(i), static_cast<uint32_t>(i * sizeof(float)), sizeof(float)};
    VkSpecializationInfo specialization{static_cast<uint32_t>(entries.size()), entries.data(),
                                        _options.specialization.size() * sizeof(float), _options.specialization.data()};
    if (!entries.empty()) stages[0].pSpecializationInfo = stages[1].pSpecializationInfo = &specialization;

    VkPipelineVertexInputStateCreateInfo vertexInput{VK_STRUCTURE_TYPE_PIPELINE_VERTEX_INPUT_STATE_CREATE_INFO};
    vertexInput.vertexBindingDescriptionCount = static_cast<uint32_t>(_options.vertexBindings.size());
    vertexInput.pVertexBindingDescriptions = _options.vertexBindings.data();
    vertexInput.vertexAttributeDescriptionCount = static_cast<uint32_t>(_options.vertexAttributes.size());
    vertexInput.pVertexAttributeDescriptions = _options.vertexAttributes.data();

    VkPipelineInputAssemblyStateCreateInfo assembly{VK_STRUCTURE_TYPE_PIPELINE_INPUT_ASSEMBLY_STATE_CREATE_INFO};
    assembly.topology = _options.topology;

    VkPipelineViewportStateCreateInfo viewport{VK_STRUCTURE_TYPE_PIPELINE_VIEWPORT_STATE_CREATE_INFO};
    viewport.viewportCount = 1; // both dynamic
    viewport.scissorCount = 1;

    VkPipelineRasterizationStateCreateInfo raster{VK_STRUCTURE_TYPE_PIPELINE_RASTERIZATION_STATE_CREATE_INFO};
    raster.polygonMode = _options.polygonMode;
    raster.cullMode = _options.cullMode;
    raster.frontFace = _options.frontFace;
    raster.lineWidth = _options.lineWidth;

    VkPipelineMultisampleStateCreateInfo multisample{VK_STRUCTURE_TYPE_PIPELINE_MULTISAMPLE_STATE_CREATE_INFO};
    multisample.rasterizationSamples = VK_SAMPLE_COUNT_1_BIT;

    VkPipelineDepthStencilStateCreateInfo depth{VK_STRUCTURE_TYPE_PIPELINE_DEPTH_STENCIL_STATE_CREATE_INFO};
    depth.depthTestEnable = _options.depthTest ? VK_TRUE : VK_FALSE;
    depth.depthWriteEnable = _options.depthWrite ? VK_TRUE : VK_FALSE;
    depth.depthCompareOp = _options.depthTest ? _options.depthCompareOp : VK_COMPARE_OP_ALWAYS;

    VkPipelineColorBlendAttachmentState blendAttachment{};
    blendAttachment.colorWriteMask =
        VK_COLOR_COMPONENT_R_BIT | VK_COLOR_COMPONENT_G_BIT | VK_COLOR_COMPONENT_B_BIT | VK_COLOR_COMPONENT_A_BIT;
    if (_options.alphaBlending) {
        blendAttachment.blendEnable = VK_TRUE;
        blendAttachment.srcColorBlendFactor = VK_BLEND_FACTOR_SRC_ALPHA;
        blendAttachment.dstColorBlendFactor = _options.dstColorBlendFactor;
        blendAttachment.colorBlendOp = VK_BLEND_OP_ADD;
        blendAttachment.srcAlphaBlendFactor = VK_BLEND_FACTOR_ONE;
        blendAttachment.dstAlphaBlendFactor = _options.dstAlphaBlendFactor;
        blendAttachment.alphaBlendOp = VK_BLEND_OP_ADD;
    }
    bool const second = formats != nullptr && formats->second != VK_FORMAT_UNDEFINED;
    VkPipelineColorBlendAttachmentState blendAttachments[2] = {blendAttachment, {}};
    blendAttachments[1].colorWriteMask = _options.writeSecond ? blendAttachment.colorWriteMask : 0;
    VkPipelineColorBlendStateCreateInfo blend{VK_STRUCTURE_TYPE_PIPELINE_COLOR_BLEND_STATE_CREATE_INFO};
    blend.attachmentCount = second ? 2 : 1;
    blend.pAttachments = blendAttachments;

    VkDynamicState const dynamicStates[] = {VK_DYNAMIC_STATE_VIEWPORT, VK_DYNAMIC_STATE_SCISSOR};
    VkPipelineDynamicStateCreateInfo dynamic{VK_STRUCTURE_TYPE_PIPELINE_DYNAMIC_STATE_CREATE_INFO};
    dynamic.dynamicStateCount = 2;
    dynamic.pDynamicStates = dynamicStates;

    VkGraphicsPipelineCreateInfo info{VK_STRUCTURE_TYPE_GRAPHICS_PIPELINE_CREATE_INFO};
    info.stageCount = 2;
    info.pStages = stages;
    info.pVertexInputState = &vertexInput;
    info.pInputAssemblyState = &assembly;
    info.pViewportState = &viewport;
    info.pRasterizationState = &raster;
    info.pMultisampleState = &multisample;
    info.pDepthStencilState = &depth;
    info.pColorBlendState = &blend;
    info.pDynamicState = &dynamic;
    info.layout = _layout;
    info.renderPass = renderpass;
    info.subpass = 0;
    VkPipelineRenderingCreateInfo rendering{VK_STRUCTURE_TYPE_PIPELINE_RENDERING_CREATE_INFO};
    VkFormat colorFormats[2] = {};
    if (formats != nullptr) {
        colorFormats[0] = formats->color;
        colorFormats[1] = formats->second;
        rendering.colorAttachmentCount = second ? 2 : 1;
        rendering.pColorAttachmentFormats = colorFormats;
        rendering.depthAttachmentFormat = formats->depth;
        info.pNext = &rendering;
    }
    VkPipeline pipeline = VK_NULL_HANDLE;
    NEROX_VK_CHECK(vkCreateGraphicsPipelines(*_device, VK_NULL_HANDLE, 1, &info, nullptr, &pipeline));
    _device->SetName(VK_OBJECT_TYPE_PIPELINE, reinterpret_cast<uint64_t>(pipeline), _name);
    return pipeline;
}

// ---------------------------------------------------------------- compute

ComputePipeline::ComputePipeline(Device& device, PipelineLayout const& layout, std::string const& shaderPath)
    : _device(&device), _layout(layout.Handle()) {
    VkShaderModule const module = CreateModule(device, shaderPath + ".comp.spv");
    struct ModuleOwner { // the module is needed only while the pipeline is built
        VkDevice device;
        VkShaderModule module;
        ~ModuleOwner() { vkDestroyShaderModule(device, module, nullptr); }
    } const owner{device, module};
    VkComputePipelineCreateInfo info{VK_STRUCTURE_TYPE_COMPUTE_PIPELINE_CREATE_INFO};
    info.stage.sType = VK_STRUCTURE_TYPE_PIPELINE_SHADER_STAGE_CREATE_INFO;
    info.stage.stage = VK_SHADER_STAGE_COMPUTE_BIT;
    info.stage.module = module;
    info.stage.pName = "main";
    info.layout = _layout;
    NEROX_VK_CHECK(vkCreateComputePipelines(device, VK_NULL_HANDLE, 1, &info, nullptr, &_pipeline));
    device.SetName(VK_OBJECT_TYPE_PIPELINE, reinterpret_cast<uint64_t>(_pipeline), shaderPath);
}

ComputePipeline::~ComputePipeline() {
    vkDestroyPipeline(*_device, _pipeline, nullptr);
}

void ComputePipeline::Bind(VkCommandBuffer commandBuffer) const {
    vkCmdBindPipeline(commandBuffer, VK_PIPELINE_BIND_POINT_COMPUTE, _pipeline);
}

void ComputePipeline::Dispatch(VkCommandBuffer commandBuffer, uint32_t groupsX, uint32_t groupsY,
                               uint32_t groupsZ) const {
    uint32_t const* limit = _device->Properties().limits.maxComputeWorkGroupCount;
    uint32_t const groups[3] = {groupsX, groupsY, groupsZ};
    for (int axis = 0; axis < 3; ++axis) {
        if (groups[axis] == 0 || groups[axis] > limit[axis])
            throw std::runtime_error("Dispatch of " + std::to_string(groupsX) + "x" + std::to_string(groupsY) + "x" +
                                     std::to_string(groupsZ) + " work groups: each count must be 1 to the device's " +
                                     std::to_string(limit[0]) + "x" + std::to_string(limit[1]) + "x" +
                                     std::to_string(limit[2]));
    }
    vkCmdDispatch(commandBuffer, groupsX, groupsY, groupsZ);
}

} // namespace nerox::vk
