#pragma once
// The root of a renderer: it owns the Vulkan device and the entry points that
// the loader does not export.
#include "nerox/vk/Device.hpp"

#include <memory>

namespace nerox::vk::interface {

/// Owner of a renderer's Device and of its extension entry points.
class DeviceInterface {
public:
    virtual ~DeviceInterface();
    DeviceInterface(DeviceInterface const&) = delete;
    DeviceInterface& operator=(DeviceInterface const&) = delete;

    /// Looks up the entry points of the enabled extensions (ray tracing).
    virtual void LoadFunctionPointersInterface();

    /// The device.
    Device& GetDevice() const { return *_device; }

    /// Ray-tracing entry points; null without ray tracing.
    PFN_vkCmdTraceRaysKHR vkCmdTraceRaysKHR = nullptr;
    PFN_vkCreateRayTracingPipelinesKHR vkCreateRayTracingPipelinesKHR = nullptr;
    PFN_vkGetRayTracingShaderGroupHandlesKHR vkGetRayTracingShaderGroupHandlesKHR = nullptr;
    PFN_vkCreateAccelerationStructureKHR vkCreateAccelerationStructureKHR = nullptr;
    PFN_vkDestroyAccelerationStructureKHR vkDestroyAccelerationStructureKHR = nullptr;
    PFN_vkGetAccelerationStructureBuildSizesKHR vkGetAccelerationStructureBuildSizesKHR = nullptr;
    PFN_vkCmdBuildAccelerationStructuresKHR vkCmdBuildAccelerationStructuresKHR = nullptr;
    PFN_vkGetAccelerationStructureDeviceAddressKHR vkGetAccelerationStructureDeviceAddressKHR = nullptr;

protected:
    /// Creates the device; throws std::runtime_error when none fits.
    explicit DeviceInterface(DeviceOptions const& options);

    std::unique_ptr<Device> _device;
};

} // namespace nerox::vk::interface
