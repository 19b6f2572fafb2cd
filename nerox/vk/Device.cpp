#include "nerox/vk/Device.hpp"
#include "nerox/vk/MemoryAllocator.hpp"

#include "nerox/Assert.hpp"
#include "nerox/vk/Check.hpp"
#include "nerox/ScopeGuard.hpp"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <cstring>
#include <iostream>
#include <stdexcept>

namespace nerox::vk {

namespace {

constexpr char const* ValidationLayer = "VK_LAYER_KHRONOS_validation";

/// Size of the sType and pNext header of a chained structure.
constexpr size_t ChainHeader = sizeof(VkBaseOutStructure);

// The last flag of each feature block: the flags run from the end of the
// header to it, without the block's tail padding.
VkBool32& LastFlag(VkPhysicalDeviceShaderClockFeaturesKHR& b) {
    return b.shaderDeviceClock;
}
VkBool32& LastFlag(VkPhysicalDevice16BitStorageFeatures& b) {
    return b.storageInputOutput16;
}
VkBool32& LastFlag(VkPhysicalDeviceVulkan12Features& b) {
    return b.subgroupBroadcastDynamicId;
}
VkBool32& LastFlag(VkPhysicalDeviceRayTracingPipelineFeaturesKHR& b) {
    return b.rayTraversalPrimitiveCulling;
}
VkBool32& LastFlag(VkPhysicalDeviceAccelerationStructureFeaturesKHR& b) {
    return b.descriptorBindingAccelerationStructureUpdateAfterBind;
}
VkBool32& LastFlag(VkPhysicalDeviceRayQueryFeaturesKHR& b) {
    return b.rayQuery;
}
VkBool32& LastFlag(VkPhysicalDeviceVulkan13Features& b) {
    return b.maintenance4;
}

/// The boolean fields of a chained feature block.
template <class Block> VkBool32* Flags(Block& block, size_t& count) {
    VkBool32* const first = reinterpret_cast<VkBool32*>(reinterpret_cast<char*>(&block) + ChainHeader);
    count = static_cast<size_t>(&LastFlag(block) - first) + 1;
    return first;
}

/// Copies the boolean fields of from into to, keeping to's header.
template <class Block> void CopyFlags(Block& to, Block const& from) {
    size_t count = 0;
    VkBool32* const target = Flags(to, count);
    VkBool32 const* const source = Flags(const_cast<Block&>(from), count);
    std::memcpy(target, source, count * sizeof(VkBool32));
}

/// Clears each field of want that have lacks; returns how many were cleared.
int Intersect(VkBool32* want, VkBool32 const* have, size_t count) {
    int dropped = 0;
    for (size_t i = 0; i < count; ++i) {
        if (want[i] && !have[i]) {
            want[i] = VK_FALSE;
            ++dropped;
        }
    }
    return dropped;
}

template <class Block> int IntersectBlock(Block& want, Block& have) {
    size_t count = 0;
    VkBool32* const w = Flags(want, count);
    VkBool32 const* const h = Flags(have, count);
    return Intersect(w, h, count);
}

template <class Block> bool AnySet(Block const& block) {
    size_t count = 0;
    VkBool32 const* flags = Flags(const_cast<Block&>(block), count);
    return std::any_of(flags, flags + count, [](VkBool32 f) { return f != VK_FALSE; });
}

void ResetHeaders(PhysicalDevice::Features& f) {
    f.shaderClock.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_SHADER_CLOCK_FEATURES_KHR;
    f.storage16Bit.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_16BIT_STORAGE_FEATURES;
    f.vulkan12.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_VULKAN_1_2_FEATURES;
    f.rayTracingPipeline.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_RAY_TRACING_PIPELINE_FEATURES_KHR;
    f.accelerationStructure.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_ACCELERATION_STRUCTURE_FEATURES_KHR;
    f.rayQuery.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_RAY_QUERY_FEATURES_KHR;
    f.vulkan13.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_VULKAN_1_3_FEATURES;
    f.shaderClock.pNext = f.storage16Bit.pNext = f.vulkan12.pNext = f.rayTracingPipeline.pNext = nullptr;
    f.accelerationStructure.pNext = f.rayQuery.pNext = f.vulkan13.pNext = nullptr;
}

/// Links the blocks of f behind a VkPhysicalDeviceFeatures2: the always-present
/// ones, plus shader clock and the ray-tracing blocks when their extensions are on.
VkPhysicalDeviceFeatures2 Chain(PhysicalDevice::Features& f, bool shaderClock, bool rayTracing, bool rayQuery) {
    ResetHeaders(f);
    VkPhysicalDeviceFeatures2 head{VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_FEATURES_2};
    head.features = f.core;
    void** next = &head.pNext;
    auto link = [&next](auto& block) {
        *next = &block;
        next = &block.pNext;
    };
    link(f.storage16Bit);
    link(f.vulkan12);
    link(f.vulkan13);
    if (shaderClock) link(f.shaderClock);
    if (rayTracing) {
        link(f.rayTracingPipeline);
        link(f.accelerationStructure);
    }
    if (rayQuery) link(f.rayQuery);
    return head;
}

/// Paths of the shared libraries loaded now.
std::set<std::string> LoadedLibraries() {
    std::set<std::string> names;
    dl_iterate_phdr(
        [](dl_phdr_info* info, size_t, void* data) {
            if (info->dlpi_name != nullptr && info->dlpi_name[0] != '\0')
                static_cast<std::set<std::string>*>(data)->insert(info->dlpi_name);
            return 0;
        },
        &names);
    return names;
}

/// Keeps the libraries loaded since before (the drivers the loader opened)
/// for the rest of the process: a later device does not load them again, and
/// what they allocate once stays theirs rather than being lost at unloading.
void PinLibrariesSince(std::set<std::string> const& before) {
    for (std::string const& name : LoadedLibraries())
        if (before.count(name) == 0) dlopen(name.c_str(), RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
}

bool HasDeviceExtension(std::vector<VkExtensionProperties> const& available, char const* name) {
    return std::any_of(available.begin(), available.end(),
                       [name](VkExtensionProperties const& e) { return std::strcmp(e.extensionName, name) == 0; });
}

std::vector<VkExtensionProperties> DeviceExtensions(VkPhysicalDevice physical) {
    uint32_t count = 0;
    NEROX_VK_CHECK(vkEnumerateDeviceExtensionProperties(physical, nullptr, &count, nullptr));
    std::vector<VkExtensionProperties> extensions(count);
    NEROX_VK_CHECK(vkEnumerateDeviceExtensionProperties(physical, nullptr, &count, extensions.data()));
    extensions.resize(count);
    return extensions;
}

bool WantValidation(int asked) {
    if (asked >= 0) return asked > 0;
    if (char const* env = std::getenv("NEROX_VK_VALIDATION")) return std::strcmp(env, "0") != 0 && *env != '\0';
#ifdef NDEBUG
    return false;
#else
    return true;
#endif
}

} // namespace

// ---------------------------------------------------------------- features

PhysicalDevice::Features::Features() {
    ResetHeaders(*this);
}

PhysicalDevice::Features::Features(Features const& other) : Features() {
    *this = other;
}

PhysicalDevice::Features& PhysicalDevice::Features::operator=(Features const& other) {
    if (this == &other) return *this;
    core = other.core;
    CopyFlags(shaderClock, other.shaderClock);
    CopyFlags(storage16Bit, other.storage16Bit);
    CopyFlags(vulkan12, other.vulkan12);
    CopyFlags(rayTracingPipeline, other.rayTracingPipeline);
    CopyFlags(accelerationStructure, other.accelerationStructure);
    CopyFlags(rayQuery, other.rayQuery);
    CopyFlags(vulkan13, other.vulkan13);
    ResetHeaders(*this);
    return *this;
}

bool PhysicalDevice::Features::WantsRayTracing() const {
    return AnySet(rayTracingPipeline) || AnySet(accelerationStructure);
}

// ---------------------------------------------------------------- device

Device::Device(DeviceOptions const& options) {
    KeepDriversLoaded();
    nerox::OnFailure undo([&] { Destroy(); });
    CreateInstance(options);
    if (options.createSurface) {
        _surface = options.createSurface(_instance);
        if (_surface == VK_NULL_HANDLE) throw std::runtime_error("Vulkan: the window gave no surface");
    }
    ChoosePhysicalDevice();
    CreateLogicalDevice(options);
}

Device::~Device() {
    Destroy();
}

void Device::WaitIdle() {
    std::lock_guard lock(_queueMutex);
    vkDeviceWaitIdle(_device);
}

void Device::KeepDriversLoaded() {
    static std::once_flag once;
    std::call_once(once, [] {
        std::set<std::string> const before = LoadedLibraries();
        VkApplicationInfo app{VK_STRUCTURE_TYPE_APPLICATION_INFO};
        app.apiVersion = VK_API_VERSION_1_0;
        VkInstanceCreateInfo info{VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO};
        info.pApplicationInfo = &app;
        VkInstance instance = VK_NULL_HANDLE;
        if (vkCreateInstance(&info, nullptr, &instance) != VK_SUCCESS)
            return; // the device's own creation reports what is wrong
        uint32_t count = 0;
        vkEnumeratePhysicalDevices(instance, &count, nullptr); // loads the drivers
        PinLibrariesSince(before);
        vkDestroyInstance(instance, nullptr);
    });
}

MemoryAllocator& Device::Allocator() {
    NEROX_ASSERT(_allocator); // buffers and images must go before their device
    return *_allocator;
}

void Device::Destroy() {
    if (_device != VK_NULL_HANDLE) {
        vkDeviceWaitIdle(_device);
        _allocator.reset();
        vkDestroyDevice(_device, nullptr);
        _device = VK_NULL_HANDLE;
    }
    if (_surface != VK_NULL_HANDLE) {
        vkDestroySurfaceKHR(_instance, _surface, nullptr);
        _surface = VK_NULL_HANDLE;
    }
    if (_messenger != VK_NULL_HANDLE) {
        auto destroy = reinterpret_cast<PFN_vkDestroyDebugUtilsMessengerEXT>(
            vkGetInstanceProcAddr(_instance, "vkDestroyDebugUtilsMessengerEXT"));
        if (destroy != nullptr) destroy(_instance, _messenger, nullptr);
        _messenger = VK_NULL_HANDLE;
    }
    if (_instance != VK_NULL_HANDLE) {
        vkDestroyInstance(_instance, nullptr);
        _instance = VK_NULL_HANDLE;
    }
}

VKAPI_ATTR VkBool32 VKAPI_CALL Device::OnValidationMessage(VkDebugUtilsMessageSeverityFlagBitsEXT severity,
                                                           VkDebugUtilsMessageTypeFlagsEXT,
                                                           VkDebugUtilsMessengerCallbackDataEXT const* data, void*) {
    bool const error = (severity & VK_DEBUG_UTILS_MESSAGE_SEVERITY_ERROR_BIT_EXT) != 0;
    if (error) _validationErrors.fetch_add(1);
    std::cerr << (error ? "Vulkan validation error: " : "Vulkan validation warning: ")
              << (data != nullptr && data->pMessage != nullptr ? data->pMessage : "(no message)") << '\n';
    return VK_FALSE;
}

void Device::CreateInstance(DeviceOptions const& options) {
    uint32_t loaderVersion = VK_API_VERSION_1_0;
    vkEnumerateInstanceVersion(&loaderVersion);
    if (loaderVersion < VK_API_VERSION_1_3)
        throw std::runtime_error("Vulkan: the loader offers only Vulkan " +
                                 std::to_string(VK_API_VERSION_MAJOR(loaderVersion)) + "." +
                                 std::to_string(VK_API_VERSION_MINOR(loaderVersion)) + "; 1.3 is needed");

    uint32_t count = 0;
    vkEnumerateInstanceLayerProperties(&count, nullptr);
    std::vector<VkLayerProperties> layers(count);
    vkEnumerateInstanceLayerProperties(&count, layers.data());
    layers.resize(count);
    vkEnumerateInstanceExtensionProperties(nullptr, &count, nullptr);
    std::vector<VkExtensionProperties> available(count);
    vkEnumerateInstanceExtensionProperties(nullptr, &count, available.data());
    available.resize(count);

    std::vector<char const*> enabledLayers;
    if (WantValidation(options.validation)) {
        bool const installed = std::any_of(layers.begin(), layers.end(), [](VkLayerProperties const& l) {
            return std::strcmp(l.layerName, ValidationLayer) == 0;
        });
        if (installed) {
            enabledLayers.push_back(ValidationLayer);
            _validating = true;
        } else {
            std::cerr << "Vulkan: validation asked for but " << ValidationLayer
                      << " is not installed (Debian package vulkan-validationlayers)\n";
        }
    }
    std::vector<char const*> extensions;
    for (std::string const& name : options.instanceExtensions) extensions.push_back(name.c_str());
    _debugUtils = HasDeviceExtension(available, VK_EXT_DEBUG_UTILS_EXTENSION_NAME);
    if (_debugUtils) extensions.push_back(VK_EXT_DEBUG_UTILS_EXTENSION_NAME);

    VkApplicationInfo app{VK_STRUCTURE_TYPE_APPLICATION_INFO};
    app.pApplicationName = options.applicationName.c_str();
    app.applicationVersion = options.applicationVersion;
    app.pEngineName = "Nerox";
    app.engineVersion = 1;
    app.apiVersion = VK_API_VERSION_1_3;

    VkDebugUtilsMessengerCreateInfoEXT messenger{VK_STRUCTURE_TYPE_DEBUG_UTILS_MESSENGER_CREATE_INFO_EXT};
    messenger.messageSeverity =
        VK_DEBUG_UTILS_MESSAGE_SEVERITY_WARNING_BIT_EXT | VK_DEBUG_UTILS_MESSAGE_SEVERITY_ERROR_BIT_EXT;
    messenger.messageType = VK_DEBUG_UTILS_MESSAGE_TYPE_GENERAL_BIT_EXT |
        VK_DEBUG_UTILS_MESSAGE_TYPE_VALIDATION_BIT_EXT | VK_DEBUG_UTILS_MESSAGE_TYPE_PERFORMANCE_BIT_EXT;
    messenger.pfnUserCallback = &Device::OnValidationMessage;

    VkInstanceCreateInfo info{VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO};
    info.pApplicationInfo = &app;
    info.enabledLayerCount = static_cast<uint32_t>(enabledLayers.size());
    info.ppEnabledLayerNames = enabledLayers.data();
    info.enabledExtensionCount = static_cast<uint32_t>(extensions.size());
    info.ppEnabledExtensionNames = extensions.data();
    if (_validating && _debugUtils) info.pNext = &messenger; // also reports on instance creation and destruction
    NEROX_VK_CHECK(vkCreateInstance(&info, nullptr, &_instance));

    if (_validating && _debugUtils) {
        auto create = reinterpret_cast<PFN_vkCreateDebugUtilsMessengerEXT>(
            vkGetInstanceProcAddr(_instance, "vkCreateDebugUtilsMessengerEXT"));
        if (create != nullptr) NEROX_VK_CHECK(create(_instance, &messenger, nullptr, &_messenger));
    }
    if (_debugUtils)
        _setObjectName = reinterpret_cast<PFN_vkSetDebugUtilsObjectNameEXT>(
            vkGetInstanceProcAddr(_instance, "vkSetDebugUtilsObjectNameEXT"));
}

void Device::ChoosePhysicalDevice() {
    uint32_t count = 0;
    NEROX_VK_CHECK(vkEnumeratePhysicalDevices(_instance, &count, nullptr));
    std::vector<VkPhysicalDevice> devices(count);
    NEROX_VK_CHECK(vkEnumeratePhysicalDevices(_instance, &count, devices.data()));
    devices.resize(count);
    char const* const wanted = std::getenv("NEROX_VK_DEVICE");

    int bestScore = -1;
    std::string refusals;
    for (VkPhysicalDevice physical : devices) {
        VkPhysicalDeviceProperties properties;
        vkGetPhysicalDeviceProperties(physical, &properties);
        std::string const name = properties.deviceName;
        auto refuse = [&refusals, &name](char const* why) { refusals += "\n  " + name + ": " + why; };
        if (wanted != nullptr && *wanted != '\0' && name.find(wanted) == std::string::npos) {
            refuse("not the device named by NEROX_VK_DEVICE");
            continue;
        }
        if (properties.apiVersion < VK_API_VERSION_1_3) {
            refuse("offers less than Vulkan 1.3");
            continue;
        }
        VkPhysicalDeviceVulkan12Features v12{VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_VULKAN_1_2_FEATURES};
        VkPhysicalDeviceFeatures2 features{VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_FEATURES_2, &v12};
        vkGetPhysicalDeviceFeatures2(physical, &features);
        if (!v12.bufferDeviceAddress) {
            refuse("has no buffer device addresses");
            continue;
        }
        uint32_t familyCount = 0;
        vkGetPhysicalDeviceQueueFamilyProperties(physical, &familyCount, nullptr);
        std::vector<VkQueueFamilyProperties> families(familyCount);
        vkGetPhysicalDeviceQueueFamilyProperties(physical, &familyCount, families.data());
        int family = -1;
        for (uint32_t i = 0; i < familyCount && family < 0; ++i) {
            VkQueueFlags const needed = VK_QUEUE_GRAPHICS_BIT | VK_QUEUE_COMPUTE_BIT;
            if ((families[i].queueFlags & needed) != needed) continue;
            if (_surface != VK_NULL_HANDLE) {
                VkBool32 present = VK_FALSE;
                vkGetPhysicalDeviceSurfaceSupportKHR(physical, i, _surface, &present);
                if (!present) continue;
            }
            family = static_cast<int>(i);
        }
        if (family < 0) {
            refuse(_surface != VK_NULL_HANDLE ? "no queue family draws and presents to the window"
                                              : "no graphics queue family");
            continue;
        }
        int score = 1;
        switch (properties.deviceType) {
        case VK_PHYSICAL_DEVICE_TYPE_DISCRETE_GPU: score = 4; break;
        case VK_PHYSICAL_DEVICE_TYPE_INTEGRATED_GPU: score = 3; break;
        case VK_PHYSICAL_DEVICE_TYPE_VIRTUAL_GPU: score = 2; break;
        default: break;
        }
        if (score > bestScore) {
            bestScore = score;
            _physical = physical;
            _graphicsFamily = static_cast<uint32_t>(family);
            _properties = properties;
        }
    }
    if (_physical == VK_NULL_HANDLE)
        throw std::runtime_error("Vulkan: no usable device (Vulkan 1.3 with buffer device addresses is needed; "
                                 "Debian's mesa-vulkan-drivers gives a software one)" +
                                 (refusals.empty() ? std::string(": none found") : ":" + refusals));
    vkGetPhysicalDeviceMemoryProperties(_physical, &_memory);
}

void Device::CreateLogicalDevice(DeviceOptions const& options) {
    std::vector<VkExtensionProperties> const available = DeviceExtensions(_physical);
    auto want = [this, &available](char const* name) {
        if (!HasDeviceExtension(available, name)) return false;
        _extensions.emplace_back(name);
        return true;
    };
    if (_surface != VK_NULL_HANDLE && !want(VK_KHR_SWAPCHAIN_EXTENSION_NAME))
        throw std::runtime_error("Vulkan: " + Name() +
                                 " cannot present to a window (no " VK_KHR_SWAPCHAIN_EXTENSION_NAME ")");

    PhysicalDevice::Features asked = options.features;
    asked.vulkan12.bufferDeviceAddress = VK_TRUE; // every buffer has a device address
    bool const shaderClock = AnySet(asked.shaderClock) && want(VK_KHR_SHADER_CLOCK_EXTENSION_NAME);
    bool rayTracing = false;
    if (asked.WantsRayTracing()) {
        bool const present = HasDeviceExtension(available, VK_KHR_RAY_TRACING_PIPELINE_EXTENSION_NAME) &&
            HasDeviceExtension(available, VK_KHR_ACCELERATION_STRUCTURE_EXTENSION_NAME) &&
            HasDeviceExtension(available, VK_KHR_DEFERRED_HOST_OPERATIONS_EXTENSION_NAME);
        if (present) {
            want(VK_KHR_RAY_TRACING_PIPELINE_EXTENSION_NAME);
            want(VK_KHR_ACCELERATION_STRUCTURE_EXTENSION_NAME);
            want(VK_KHR_DEFERRED_HOST_OPERATIONS_EXTENSION_NAME);
            rayTracing = true;
        } else {
            std::cout << "Vulkan: " << Name() << " has no ray tracing (" VK_KHR_RAY_TRACING_PIPELINE_EXTENSION_NAME
                      << " and " VK_KHR_ACCELERATION_STRUCTURE_EXTENSION_NAME "); ray-traced stages stay off\n";
        }
    }
    bool const rayQuery = AnySet(asked.rayQuery) && rayTracing && want(VK_KHR_RAY_QUERY_EXTENSION_NAME);

    // What the device has, in the same chain, to leave out what it lacks.
    PhysicalDevice::Features have;
    VkPhysicalDeviceFeatures2 haveHead = Chain(have, shaderClock, rayTracing, rayQuery);
    vkGetPhysicalDeviceFeatures2(_physical, &haveHead);
    have.core = haveHead.features;
    size_t coreCount = sizeof(VkPhysicalDeviceFeatures) / sizeof(VkBool32);
    int dropped = 0;
    std::string where;
    auto count = [&dropped, &where](int lacking, char const* block) {
        if (lacking == 0) return;
        dropped += lacking;
        where += std::string(where.empty() ? "" : ", ") + std::to_string(lacking) + " of " + block;
    };
    count(Intersect(reinterpret_cast<VkBool32*>(&asked.core), reinterpret_cast<VkBool32 const*>(&have.core), coreCount),
          "Vulkan 1.0");
    count(IntersectBlock(asked.storage16Bit, have.storage16Bit), "16-bit storage");
    count(IntersectBlock(asked.vulkan12, have.vulkan12), "Vulkan 1.2");
    count(IntersectBlock(asked.vulkan13, have.vulkan13), "Vulkan 1.3");
    if (shaderClock)
        count(IntersectBlock(asked.shaderClock, have.shaderClock), "shader clock");
    else
        asked.shaderClock = PhysicalDevice::Features().shaderClock;
    if (rayTracing) {
        count(IntersectBlock(asked.rayTracingPipeline, have.rayTracingPipeline), "ray-tracing pipeline");
        count(IntersectBlock(asked.accelerationStructure, have.accelerationStructure), "acceleration structure");
    }
    if (rayQuery) count(IntersectBlock(asked.rayQuery, have.rayQuery), "ray query");
    // Extensions without their features are no ray tracing.
    if (rayTracing &&
        !(asked.rayTracingPipeline.rayTracingPipeline && asked.accelerationStructure.accelerationStructure)) {
        std::cout << "Vulkan: " << Name()
                  << " has the ray-tracing extensions but not their features; ray-traced stages stay off\n";
        rayTracing = false;
    }
    // Without ray tracing none of its blocks is asked for; with it, ray query
    // stays as the device has it.
    PhysicalDevice::Features const none;
    if (!rayTracing) {
        asked.rayTracingPipeline = none.rayTracingPipeline;
        asked.accelerationStructure = none.accelerationStructure;
    }
    if (!rayTracing || !rayQuery) asked.rayQuery = none.rayQuery;
    if (dropped > 0)
        std::cout << "Vulkan: " << Name() << " lacks " << dropped << " of the asked features (" << where
                  << "); they stay off\n";
    ResetHeaders(asked);

    float const priority = 1.0f;
    VkDeviceQueueCreateInfo queue{VK_STRUCTURE_TYPE_DEVICE_QUEUE_CREATE_INFO};
    queue.queueFamilyIndex = _graphicsFamily;
    queue.queueCount = 1;
    queue.pQueuePriorities = &priority;

    _enabled = asked;
    PhysicalDevice::Features chained = asked;
    VkPhysicalDeviceFeatures2 head = Chain(chained, shaderClock, rayTracing, rayQuery);
    std::vector<char const*> names;
    for (std::string const& name : _extensions) names.push_back(name.c_str());
    VkDeviceCreateInfo info{VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO};
    info.pNext = &head;
    info.queueCreateInfoCount = 1;
    info.pQueueCreateInfos = &queue;
    info.enabledExtensionCount = static_cast<uint32_t>(names.size());
    info.ppEnabledExtensionNames = names.data();
    NEROX_VK_CHECK(vkCreateDevice(_physical, &info, nullptr, &_device));
    vkGetDeviceQueue(_device, _graphicsFamily, 0, &_graphicsQueue);
    _rayTracing = rayTracing;
    _allocator = std::make_unique<MemoryAllocator>(*this);
}

bool Device::HasExtension(char const* extension) const {
    return std::find(_extensions.begin(), _extensions.end(), extension) != _extensions.end();
}

uint32_t Device::FindMemoryType(uint32_t typeBits, VkMemoryPropertyFlags required,
                                VkMemoryPropertyFlags preferred) const {
    int fallback = -1;
    for (uint32_t i = 0; i < _memory.memoryTypeCount; ++i) {
        if ((typeBits & (1u << i)) == 0) continue;
        VkMemoryPropertyFlags const flags = _memory.memoryTypes[i].propertyFlags;
        if ((flags & required) != required) continue;
        if ((flags & preferred) == preferred) return i;
        if (fallback < 0) fallback = static_cast<int>(i);
    }
    if (fallback < 0)
        throw std::runtime_error("Vulkan: " + Name() + " has no memory type with the properties " +
                                 std::to_string(required));
    return static_cast<uint32_t>(fallback);
}

VkMemoryPropertyFlags Device::MemoryTypeFlags(uint32_t index) const {
    return index < _memory.memoryTypeCount ? _memory.memoryTypes[index].propertyFlags : 0;
}

void Device::SetName(VkObjectType type, uint64_t object, std::string const& name) const {
    if (_setObjectName == nullptr || object == 0 || name.empty()) return;
    VkDebugUtilsObjectNameInfoEXT info{VK_STRUCTURE_TYPE_DEBUG_UTILS_OBJECT_NAME_INFO_EXT};
    info.objectType = type;
    info.objectHandle = object;
    info.pObjectName = name.c_str();
    _setObjectName(_device, &info);
}

} // namespace nerox::vk
