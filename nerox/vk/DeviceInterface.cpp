#include "nerox/vk/DeviceInterface.hpp"

namespace nerox::vk::interface {

DeviceInterface::DeviceInterface(DeviceOptions const& options) : _device(std::make_unique<Device>(options)) { }

DeviceInterface::~DeviceInterface() = default;

void DeviceInterface::LoadFunctionPointersInterface() {
    if (!_device->HasRayTracing()) return;
    VkDevice const device = *_device;
    auto load = [device](auto& pointer, char const* name) {
        pointer = reinterpret_cast<std::remove_reference_t<decltype(pointer)>>(vkGetDeviceProcAddr(device, name));
    };
    load(vkCmdTraceRaysKHR, "vkCmdTraceRaysKHR");
    load(vkCreateRayTracingPipelinesKHR, "vkCreateRayTracingPipelinesKHR");
    load(vkGetRayTracingShaderGroupHandlesKHR, "vkGetRayTracingShaderGroupHandlesKHR");
    load(vkCreateAccelerationStructureKHR, "vkCreateAccelerationStructureKHR");
    load(vkDestroyAccelerationStructureKHR, "vkDestroyAccelerationStructureKHR");
    load(vkGetAccelerationStructureBuildSizesKHR, "vkGetAccelerationStructureBuildSizesKHR");
    load(vkCmdBuildAccelerationStructuresKHR, "vkCmdBuildAccelerationStructuresKHR");
    load(vkGetAccelerationStructureDeviceAddressKHR, "vkGetAccelerationStructureDeviceAddressKHR");
}

} // namespace nerox::vk::interface
