#pragma once
// The engine, as the objects that live on its device see it: the owner of the
// Vulkan device and of the extension entry points. A renderer is one.
#include "nerox/vk/DeviceInterface.hpp"

namespace nerox {

/// The owner of the device that GPU objects such as compute textures are made on.
using VulkanEngine = vk::interface::DeviceInterface;

} // namespace nerox
