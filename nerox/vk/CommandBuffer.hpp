#pragma once
// One-time command buffers: record, submit, wait.
#include "nerox/vk/Device.hpp"

#include <vulkan/vulkan.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <string>

namespace nerox::vk {

/// Runs recorded work on a queue and waits for it.
class CommandBuffer {
public:
    /// No timeout: Run waits as long as the work takes.
    static constexpr uint64_t NoTimeout = std::numeric_limits<uint64_t>::max();

    /// Records record into a one-time command buffer, submits it to queue (a
    /// queue of the device's graphics family) and waits. Returns true when the
    /// work finished within timeoutNs; after a timeout it still waits for the
    /// work, so that nothing it uses is freed early, and returns false. name
    /// names the command buffer in validation messages. Throws
    /// std::runtime_error when Vulkan fails.
    static bool Run(Device& device, VkQueue queue, std::function<void(VkCommandBuffer)> const& record,
                    std::string const& name, uint64_t timeoutNs = NoTimeout);
};

} // namespace nerox::vk
