#pragma once
// Error handling of Vulkan calls: a failed call throws std::runtime_error naming
// the call, its result and where it was made.
#include <vulkan/vulkan.h>

namespace nerox::vk {

/// The enumerator name of result, e.g. "VK_ERROR_OUT_OF_DEVICE_MEMORY".
char const* ResultName(VkResult result);

/// Throws std::runtime_error "<call> failed with <result> in <file>:<line>".
[[noreturn]] void ThrowResult(char const* call, VkResult result, char const* file, int line);

} // namespace nerox::vk

/// Runs a Vulkan call and throws when it returns anything but VK_SUCCESS.
#define NEROX_VK_CHECK(call)                                                                                           \
    do {                                                                                                               \
        VkResult const neroxVkResult_ = (call);                                                                        \
        if (neroxVkResult_ != VK_SUCCESS) [[unlikely]]                                                                 \
            ::nerox::vk::ThrowResult(#call, neroxVkResult_, __FILE__, __LINE__);                                       \
    } while (0)
