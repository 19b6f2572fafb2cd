#pragma once
// Reads a dynamic texture back as the device has it: the texture's pending
// frame is pushed (uploaded), then the image is copied into a host buffer.
#include "nerox/graphics/DynamicAsyncTexture.hpp"
#include "nerox/vk/Buffer.hpp"
#include "nerox/vk/CommandBuffer.hpp"
#include "nerox/vk/Device.hpp"

#include <cstdint>

namespace testsupport {

/// A host-visible buffer of 32-bit pixels, for PushAndRead.
using PixelBuffer = nerox::vk::MappedBuffer<uint32_t, 4, 0x800>;

/// Records texture's Push and a copy of its image into into (at least
/// Width() x Height() pixels, red in the low byte), runs them and waits.
/// False if the commands could not run.
inline bool PushAndRead(nerox::vk::Device& device, nerox::graphics::DynamicAsyncTexture& texture, PixelBuffer& into) {
    return nerox::vk::CommandBuffer::Run(
        device, device.GraphicsQueue(),
        [&](VkCommandBuffer commands) {
            texture.Push(commands);
            texture.GetImage().Transition(commands, texture.GetImageLayout(), VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL);
            VkBufferImageCopy copy{};
            copy.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
            copy.imageExtent = {texture.Width(), texture.Height(), 1};
            vkCmdCopyImageToBuffer(commands, texture.GetImage(), VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL, into, 1, &copy);
            texture.GetImage().Transition(commands, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL, texture.GetImageLayout());
        },
        "read " + texture.Name() + " back");
}

} // namespace testsupport
