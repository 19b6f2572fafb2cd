#pragma once
// The Vulkan instance, the chosen physical device and its logical device.
// One Device per renderer; objects of nerox::vk take it by reference and must
// not outlive it.
#include <vulkan/vulkan.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace nerox::vk {

class MemoryAllocator;

/// Names of physical-device capabilities.
struct PhysicalDevice {
    /// Features to ask of a device: the core block and the chained blocks the
    /// renderer uses. A field left false is not asked for; a field the device
    /// lacks is left out when the device is created.
    struct Features {
        Features();
        Features(Features const& other);
        Features& operator=(Features const& other);

        VkPhysicalDeviceFeatures core{};                                          ///< Vulkan 1.0 features.
        VkPhysicalDeviceShaderClockFeaturesKHR shaderClock{};                     ///< VK_KHR_shader_clock.
        VkPhysicalDevice16BitStorageFeatures storage16Bit{};                      ///< 16-bit storage (Vulkan 1.1).
        VkPhysicalDeviceVulkan12Features vulkan12{};                              ///< Vulkan 1.2 features.
        VkPhysicalDeviceRayTracingPipelineFeaturesKHR rayTracingPipeline{};       ///< VK_KHR_ray_tracing_pipeline.
        VkPhysicalDeviceAccelerationStructureFeaturesKHR accelerationStructure{}; ///< VK_KHR_acceleration_structure.
        VkPhysicalDeviceRayQueryFeaturesKHR rayQuery{};                           ///< VK_KHR_ray_query.
        VkPhysicalDeviceVulkan13Features vulkan13{};                              ///< Vulkan 1.3 features.

        /// Whether any ray-tracing feature is asked for.
        bool WantsRayTracing() const;
    };
};

/// How to create a Device.
struct DeviceOptions {
    std::string applicationName = "Tessara"; ///< Reported to the driver.
    uint32_t applicationVersion = 1;         ///< Reported to the driver.
    PhysicalDevice::Features features;       ///< Asked of the device, beyond what is always on.
    /// Validation layers: 1 on, 0 off, -1 from the environment variable
    /// NEROX_VK_VALIDATION, or on in debug builds when it is not set.
    int validation = -1;
    /// Instance extensions the window system needs (for a swapchain).
    std::vector<std::string> instanceExtensions;
    /// Creates the window's surface once the instance exists; empty for offscreen rendering.
    std::function<VkSurfaceKHR(VkInstance)> createSurface;
};

/// The instance, physical device, logical device and graphics queue. The device
/// must offer Vulkan 1.3 and buffer device addresses; a discrete GPU is
/// preferred, and NEROX_VK_DEVICE=<part of a name> picks one by name. Ray-tracing
/// extensions are enabled when asked for and present.
class Device {
public:
    /// Creates everything; throws std::runtime_error when no device fits.
    explicit Device(DeviceOptions const& options);
    ~Device();
    Device(Device const&) = delete;
    Device& operator=(Device const&) = delete;

    VkInstance Instance() const { return _instance; }           ///< The instance.
    VkPhysicalDevice Physical() const { return _physical; }     ///< The chosen physical device.
    VkDevice Handle() const { return _device; }                 ///< The logical device.
    operator VkDevice() const { return _device; }               ///< The logical device.
    VkQueue GraphicsQueue() const { return _graphicsQueue; }    ///< Graphics, compute and transfer queue.
    uint32_t GraphicsFamily() const { return _graphicsFamily; } ///< Its queue family.
    VkSurfaceKHR Surface() const { return _surface; }           ///< The window's surface, or null.
    /// Waits until the device has finished all submitted work; takes QueueMutex.
    void WaitIdle();
    /// Held around every submission to the graphics queue.
    std::mutex& QueueMutex() { return _queueMutex; }

    /// Properties of the chosen device.
    VkPhysicalDeviceProperties const& Properties() const { return _properties; }
    /// Its name, e.g. "llvmpipe (LLVM 15.0.6, 256 bits)".
    std::string Name() const { return _properties.deviceName; }
    /// Features enabled on the logical device.
    PhysicalDevice::Features const& EnabledFeatures() const { return _enabled; }
    /// Whether the ray-tracing pipeline and acceleration-structure extensions are enabled.
    bool HasRayTracing() const { return _rayTracing; }
    /// Whether validation layers are active.
    bool Validating() const { return _validating; }
    /// Whether extension is enabled on the logical device.
    bool HasExtension(char const* extension) const;

    /// A memory type among typeBits with all of required, preferring one that
    /// also has preferred. Throws std::runtime_error when none has required.
    uint32_t FindMemoryType(uint32_t typeBits, VkMemoryPropertyFlags required,
                            VkMemoryPropertyFlags preferred = 0) const;
    /// Property flags of memory type index.
    VkMemoryPropertyFlags MemoryTypeFlags(uint32_t index) const;
    /// Where buffers and images take their memory from.
    MemoryAllocator& Allocator();
    /// Gives object a name that validation messages and debuggers show; no-op without debug utils.
    void SetName(VkObjectType type, uint64_t object, std::string const& name) const;

    /// Loads the Vulkan drivers once and keeps them loaded for the rest of the
    /// process, so that later instances do not load them again and what they
    /// allocate once stays theirs. Devices call it; call it first when
    /// something else (a window library) talks to Vulkan before a Device exists.
    static void KeepDriversLoaded();

    /// Validation errors reported by every Device of the process so far.
    static uint64_t ValidationErrorCount() { return _validationErrors.load(); }

private:
    static VKAPI_ATTR VkBool32 VKAPI_CALL OnValidationMessage(VkDebugUtilsMessageSeverityFlagBitsEXT severity,
                                                              VkDebugUtilsMessageTypeFlagsEXT types,
                                                              VkDebugUtilsMessengerCallbackDataEXT const* data, void*);
    void CreateInstance(DeviceOptions const& options);
    void ChoosePhysicalDevice();
    void CreateLogicalDevice(DeviceOptions const& options);
    void Destroy();

    VkInstance _instance = VK_NULL_HANDLE;
    VkDebugUtilsMessengerEXT _messenger = VK_NULL_HANDLE;
    VkSurfaceKHR _surface = VK_NULL_HANDLE;
    VkPhysicalDevice _physical = VK_NULL_HANDLE;
    VkDevice _device = VK_NULL_HANDLE;
    VkQueue _graphicsQueue = VK_NULL_HANDLE;
    uint32_t _graphicsFamily = 0;
    VkPhysicalDeviceProperties _properties{};
    VkPhysicalDeviceMemoryProperties _memory{};
    PhysicalDevice::Features _enabled;
    std::vector<std::string> _extensions;
    bool _rayTracing = false;
    bool _validating = false;
    bool _debugUtils = false;
    PFN_vkSetDebugUtilsObjectNameEXT _setObjectName = nullptr;
    std::mutex _queueMutex;
    std::unique_ptr<MemoryAllocator> _allocator; // made with the logical device, freed before it

    inline static std::atomic<uint64_t> _validationErrors{0};
};

} // namespace nerox::vk
