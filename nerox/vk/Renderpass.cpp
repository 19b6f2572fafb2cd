#include "nerox/vk/Renderpass.hpp"

#include "nerox/Assert.hpp"
#include "nerox/vk/Check.hpp"
#include "nerox/vk/Image.hpp"

#include <stdexcept>

namespace nerox::vk {

namespace {

/// Earlier work that may touch a target before a pass: drawing, shaders
/// reading or writing it, and copies.
constexpr VkPipelineStageFlags OtherStages = VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT |
    VK_PIPELINE_STAGE_FRAGMENT_SHADER_BIT | VK_PIPELINE_STAGE_COMPUTE_SHADER_BIT | VK_PIPELINE_STAGE_TRANSFER_BIT;
/// What that work writes.
constexpr VkAccessFlags OtherWrites =
    VK_ACCESS_COLOR_ATTACHMENT_WRITE_BIT | VK_ACCESS_SHADER_WRITE_BIT | VK_ACCESS_TRANSFER_WRITE_BIT;
/// Format of a pass's own depth attachment.
constexpr VkFormat DepthFormat = VK_FORMAT_D32_SFLOAT;
/// What that work reads or writes.
constexpr VkAccessFlags OtherAccesses =
    OtherWrites | VK_ACCESS_COLOR_ATTACHMENT_READ_BIT | VK_ACCESS_SHADER_READ_BIT | VK_ACCESS_TRANSFER_READ_BIT;

} // namespace

Renderpass::Renderpass(Device& device, VkFormat format, uint32_t width, uint32_t height, VkImageUsageFlags usage,
                       RenderpassOptions const& options)
    : _device(&device), _format(format), _extent{width, height}, _usage(usage), _options(options) {
    NEROX_ASSERT(width > 0 && height > 0);
    std::string const what = "Renderpass " + (options.name.empty() ? std::string("(unnamed)") : options.name);
    if (options.initialLayout == VK_IMAGE_LAYOUT_UNDEFINED && options.loadOp == VK_ATTACHMENT_LOAD_OP_LOAD)
        throw std::invalid_argument(what + ": loading a target in the undefined layout; clear it or give its layout");
    if (options.finalLayout == VK_IMAGE_LAYOUT_UNDEFINED || options.finalLayout == VK_IMAGE_LAYOUT_PREINITIALIZED)
        throw std::invalid_argument(what + ": the final layout must be a defined one");

    VkAttachmentDescription attachment{};
    attachment.format = format;
    attachment.samples = VK_SAMPLE_COUNT_1_BIT;
    attachment.loadOp = options.loadOp;
    attachment.storeOp = VK_ATTACHMENT_STORE_OP_STORE;
    attachment.stencilLoadOp = VK_ATTACHMENT_LOAD_OP_DONT_CARE;
    attachment.stencilStoreOp = VK_ATTACHMENT_STORE_OP_DONT_CARE;
    attachment.initialLayout = options.initialLayout;
    attachment.finalLayout = options.finalLayout;

    VkAttachmentDescription attachments[2] = {attachment, {}};
    VkAttachmentDescription& depth = attachments[1];
    depth.format = DepthFormat;
    depth.samples = VK_SAMPLE_COUNT_1_BIT;
    depth.loadOp = VK_ATTACHMENT_LOAD_OP_CLEAR;
    depth.storeOp = VK_ATTACHMENT_STORE_OP_DONT_CARE;
    depth.stencilLoadOp = VK_ATTACHMENT_LOAD_OP_DONT_CARE;
    depth.stencilStoreOp = VK_ATTACHMENT_STORE_OP_DONT_CARE;
    depth.initialLayout = VK_IMAGE_LAYOUT_UNDEFINED;
    depth.finalLayout = VK_IMAGE_LAYOUT_DEPTH_STENCIL_ATTACHMENT_OPTIMAL;

    VkAttachmentReference colour{0, VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL};
    VkAttachmentReference depthReference{1, VK_IMAGE_LAYOUT_DEPTH_STENCIL_ATTACHMENT_OPTIMAL};
    VkSubpassDescription subpass{};
    subpass.pipelineBindPoint = VK_PIPELINE_BIND_POINT_GRAPHICS;
    subpass.colorAttachmentCount = 1;
    subpass.pColorAttachments = &colour;
    if (options.depth) subpass.pDepthStencilAttachment = &depthReference;

    // The layout change on entry waits for earlier writes and reads of the
    // target (reads only need the execution dependency); the attachment's
    // load and writes wait for it. On exit, the store and the final layout
    // change come before any later use.
    VkSubpassDependency dependencies[2]{};
    dependencies[0].srcSubpass = VK_SUBPASS_EXTERNAL;
    dependencies[0].dstSubpass = 0;
    dependencies[0].srcStageMask = OtherStages;
    dependencies[0].srcAccessMask = OtherWrites;
    dependencies[0].dstStageMask = VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT;
    dependencies[0].dstAccessMask = VK_ACCESS_COLOR_ATTACHMENT_READ_BIT | VK_ACCESS_COLOR_ATTACHMENT_WRITE_BIT;
    if (options.depth) { // the depth image's clear waits for the last pass's depth writes
        dependencies[0].srcStageMask |= VK_PIPELINE_STAGE_LATE_FRAGMENT_TESTS_BIT;
        dependencies[0].srcAccessMask |= VK_ACCESS_DEPTH_STENCIL_ATTACHMENT_WRITE_BIT;
        dependencies[0].dstStageMask |=
            VK_PIPELINE_STAGE_EARLY_FRAGMENT_TESTS_BIT | VK_PIPELINE_STAGE_LATE_FRAGMENT_TESTS_BIT;
        dependencies[0].dstAccessMask |=
            VK_ACCESS_DEPTH_STENCIL_ATTACHMENT_READ_BIT | VK_ACCESS_DEPTH_STENCIL_ATTACHMENT_WRITE_BIT;
    }
    dependencies[1].srcSubpass = 0;
    dependencies[1].dstSubpass = VK_SUBPASS_EXTERNAL;
    dependencies[1].srcStageMask = VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT;
    dependencies[1].srcAccessMask = VK_ACCESS_COLOR_ATTACHMENT_WRITE_BIT;
    dependencies[1].dstStageMask = OtherStages;
    dependencies[1].dstAccessMask = OtherAccesses;

    VkRenderPassCreateInfo info{VK_STRUCTURE_TYPE_RENDER_PASS_CREATE_INFO};
    info.attachmentCount = options.depth ? 2 : 1;
    info.pAttachments = attachments;
    info.subpassCount = 1;
    info.pSubpasses = &subpass;
    info.dependencyCount = 2;
    info.pDependencies = dependencies;
    NEROX_VK_CHECK(vkCreateRenderPass(device, &info, nullptr, &_renderpass));
    device.SetName(VK_OBJECT_TYPE_RENDER_PASS, reinterpret_cast<uint64_t>(_renderpass), options.name);
    if (options.depth) {
        try {
            ImageOptions imageOptions;
            imageOptions.aspect = VK_IMAGE_ASPECT_DEPTH_BIT;
            _depth =
                std::make_unique<Image>(device, width, height, DepthFormat, VK_IMAGE_USAGE_DEPTH_STENCIL_ATTACHMENT_BIT,
                                        options.name + " depth", imageOptions);
        } catch (...) {
            vkDestroyRenderPass(device, _renderpass, nullptr);
            throw;
        }
    }
}

Renderpass::~Renderpass() {
    for (auto const& [view, framebuffer] : _framebuffers) vkDestroyFramebuffer(*_device, framebuffer, nullptr);
    vkDestroyRenderPass(*_device, _renderpass, nullptr);
}

VkFramebuffer Renderpass::FramebufferOf(VkImageView target) {
    for (auto const& [view, framebuffer] : _framebuffers)
        if (view == target) return framebuffer;
    VkFramebufferCreateInfo info{VK_STRUCTURE_TYPE_FRAMEBUFFER_CREATE_INFO};
    info.renderPass = _renderpass;
    VkImageView const views[2] = {target, _depth ? _depth->View() : VK_NULL_HANDLE};
    info.attachmentCount = _depth ? 2 : 1;
    info.pAttachments = views;
    info.width = _extent.width;
    info.height = _extent.height;
    info.layers = 1;
    _framebuffers.reserve(_framebuffers.size() + 1); // no leak when the insertion below would throw
    VkFramebuffer framebuffer = VK_NULL_HANDLE;
    NEROX_VK_CHECK(vkCreateFramebuffer(*_device, &info, nullptr, &framebuffer));
    _framebuffers.emplace_back(target, framebuffer);
    _device->SetName(VK_OBJECT_TYPE_FRAMEBUFFER, reinterpret_cast<uint64_t>(framebuffer), _options.name);
    return framebuffer;
}

void Renderpass::Begin(VkCommandBuffer commandBuffer, VkImageView target, VkClearColorValue clear) {
    NEROX_ASSERT(target != VK_NULL_HANDLE);
    VkClearValue clearValues[2]{};
    clearValues[0].color = clear;
    clearValues[1].depthStencil = {1.0f, 0};
    VkRenderPassBeginInfo begin{VK_STRUCTURE_TYPE_RENDER_PASS_BEGIN_INFO};
    begin.renderPass = _renderpass;
    begin.framebuffer = FramebufferOf(target);
    begin.renderArea = {{0, 0}, _extent};
    // Clear values are read by attachment index: the depth's needs the colour's before it.
    begin.clearValueCount = _depth ? 2 : (_options.loadOp == VK_ATTACHMENT_LOAD_OP_CLEAR ? 1 : 0);
    begin.pClearValues = clearValues;
    vkCmdBeginRenderPass(commandBuffer, &begin, VK_SUBPASS_CONTENTS_INLINE);

    VkViewport const viewport{0.0f, 0.0f, static_cast<float>(_extent.width), static_cast<float>(_extent.height),
                              0.0f, 1.0f};
    VkRect2D const scissor{{0, 0}, _extent};
    vkCmdSetViewport(commandBuffer, 0, 1, &viewport);
    vkCmdSetScissor(commandBuffer, 0, 1, &scissor);
}

void Renderpass::End(VkCommandBuffer commandBuffer) {
    vkCmdEndRenderPass(commandBuffer);
}

void Renderpass::ForgetTarget(VkImageView target) {
    for (size_t i = 0; i < _framebuffers.size(); ++i) {
        if (_framebuffers[i].first == target) {
            vkDestroyFramebuffer(*_device, _framebuffers[i].second, nullptr);
            _framebuffers[i] = _framebuffers.back();
            _framebuffers.pop_back();
            return;
        }
    }
}

void Renderpass::ForgetAllTargets() {
    for (auto const& [view, framebuffer] : _framebuffers) vkDestroyFramebuffer(*_device, framebuffer, nullptr);
    _framebuffers.clear();
}

} // namespace nerox::vk
