#include "nerox/vk/Check.hpp"

#include <stdexcept>
#include <string>

namespace nerox::vk {

char const* ResultName(VkResult result) {
    switch (result) {
#define NEROX_VK_RESULT(name)                                                                                          \
    case name: return #name;
        NEROX_VK_RESULT(VK_SUCCESS)
        NEROX_VK_RESULT(VK_NOT_READY)
        NEROX_VK_RESULT(VK_TIMEOUT)
        NEROX_VK_RESULT(VK_EVENT_SET)
        NEROX_VK_RESULT(VK_EVENT_RESET)
        NEROX_VK_RESULT(VK_INCOMPLETE)
        NEROX_VK_RESULT(VK_ERROR_OUT_OF_HOST_MEMORY)
        NEROX_VK_RESULT(VK_ERROR_OUT_OF_DEVICE_MEMORY)
        NEROX_VK_RESULT(VK_ERROR_INITIALIZATION_FAILED)
        NEROX_VK_RESULT(VK_ERROR_DEVICE_LOST)
        NEROX_VK_RESULT(VK_ERROR_MEMORY_MAP_FAILED)
        NEROX_VK_RESULT(VK_ERROR_LAYER_NOT_PRESENT)
        NEROX_VK_RESULT(VK_ERROR_EXTENSION_NOT_PRESENT)
        NEROX_VK_RESULT(VK_ERROR_FEATURE_NOT_PRESENT)
        NEROX_VK_RESULT(VK_ERROR_INCOMPATIBLE_DRIVER)
        NEROX_VK_RESULT(VK_ERROR_TOO_MANY_OBJECTS)
        NEROX_VK_RESULT(VK_ERROR_FORMAT_NOT_SUPPORTED)
        NEROX_VK_RESULT(VK_ERROR_FRAGMENTED_POOL)
        NEROX_VK_RESULT(VK_ERROR_UNKNOWN)
        NEROX_VK_RESULT(VK_ERROR_OUT_OF_POOL_MEMORY)
        NEROX_VK_RESULT(VK_ERROR_INVALID_EXTERNAL_HANDLE)
        NEROX_VK_RESULT(VK_ERROR_FRAGMENTATION)
        NEROX_VK_RESULT(VK_ERROR_INVALID_OPAQUE_CAPTURE_ADDRESS)
        NEROX_VK_RESULT(VK_PIPELINE_COMPILE_REQUIRED)
        NEROX_VK_RESULT(VK_ERROR_SURFACE_LOST_KHR)
        NEROX_VK_RESULT(VK_ERROR_NATIVE_WINDOW_IN_USE_KHR)
        NEROX_VK_RESULT(VK_SUBOPTIMAL_KHR)
        NEROX_VK_RESULT(VK_ERROR_OUT_OF_DATE_KHR)
        NEROX_VK_RESULT(VK_ERROR_VALIDATION_FAILED_EXT)
#undef NEROX_VK_RESULT
    default: return "unknown VkResult";
    }
}

void ThrowResult(char const* call, VkResult result, char const* file, int line) {
    throw std::runtime_error(std::string(call) + " failed with " + ResultName(result) + " (" +
                             std::to_string(static_cast<int>(result)) + ") in " + file + ":" + std::to_string(line));
}

} // namespace nerox::vk
