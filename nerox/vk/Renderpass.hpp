#pragma once
// Render passes with one colour attachment (and a depth attachment of their
// own if asked for), and the framebuffers they draw into.
#include "nerox/vk/Device.hpp"

#include <vulkan/vulkan.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace nerox::vk {

class Image;

/// How a Renderpass treats its colour attachment.
struct RenderpassOptions {
    /// What the pass does with the earlier contents: keep them (LOAD), clear them or discard them.
    VkAttachmentLoadOp loadOp = VK_ATTACHMENT_LOAD_OP_LOAD;
    /// Layout of the target when the pass begins; UNDEFINED only with CLEAR or DONT_CARE.
    VkImageLayout initialLayout = VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL;
    /// Layout the pass leaves the target in.
    VkImageLayout finalLayout = VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL;
    /// Debug name of the pass and its framebuffers.
    std::string name;
    /// A depth attachment of the pass's own (32-bit float, the pass's extent),
    /// cleared to 1 when the pass begins and not kept after it.
    bool depth = false;
};

/// A render pass of one subpass with a single colour attachment of a fixed
/// format and extent. Its dependencies order it after any earlier colour,
/// shader or transfer work on the target and before any later such work, so
/// that targets may be sampled, copied or presented between passes. Begin
/// draws into any view of that format and at least that size, with a
/// framebuffer made on the view's first use and kept until ForgetTarget or
/// destruction. Not thread-safe: record from one thread at a time.
class Renderpass {
public:
    /// Creates the pass; throws std::runtime_error when Vulkan refuses.
    Renderpass(Device& device, VkFormat format, uint32_t width, uint32_t height, VkImageUsageFlags usage,
               RenderpassOptions const& options = {});
    /// Destroys the pass and every framebuffer it made; none may still be in use.
    ~Renderpass();
    Renderpass(Renderpass const&) = delete;
    Renderpass& operator=(Renderpass const&) = delete;

    VkRenderPass Handle() const { return _renderpass; }           ///< The Vulkan render pass.
    operator VkRenderPass() const { return _renderpass; }         ///< The Vulkan render pass.
    VkFormat Format() const { return _format; }                   ///< Format of the colour attachment.
    VkExtent2D Extent() const { return _extent; }                 ///< Size of the area drawn, in pixels.
    VkImageUsageFlags Usage() const { return _usage; }            ///< Usage of the target images.
    RenderpassOptions const& Options() const { return _options; } ///< How it was made.

    /// Begins the pass on target (a view of an image of Format() at least
    /// Extent() in size), clearing it to clear when the load op is CLEAR, and
    /// sets a viewport and scissor covering Extent().
    void Begin(VkCommandBuffer commandBuffer, VkImageView target, VkClearColorValue clear = {});
    /// Ends the pass.
    void End(VkCommandBuffer commandBuffer);

    /// Destroys the framebuffer of target, if any: call before the view is
    /// destroyed, once no submitted work uses it.
    void ForgetTarget(VkImageView target);
    /// Destroys every framebuffer: call when the target views go away (a new
    /// swapchain may reuse their handles), once no submitted work uses them.
    void ForgetAllTargets();
    /// Number of views with a framebuffer.
    size_t TargetCount() const { return _framebuffers.size(); }

private:
    VkFramebuffer FramebufferOf(VkImageView target);

    Device* _device;
    VkRenderPass _renderpass = VK_NULL_HANDLE;
    VkFormat _format;
    VkExtent2D _extent;
    VkImageUsageFlags _usage;
    RenderpassOptions _options;
    std::vector<std::pair<VkImageView, VkFramebuffer>> _framebuffers;
    std::unique_ptr<Image> _depth; // with options.depth
};

} // namespace nerox::vk
