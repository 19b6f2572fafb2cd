#include "nerox/vk/Buffer.hpp"

#include "nerox/vk/Check.hpp"
#include "nerox/ScopeGuard.hpp"

#include <utility>

namespace nerox::vk {

namespace {

bool WantsHostAccess(MemoryUsage usage, uint32_t flags) {
    if (flags & (AllocationHostAccessSequentialWrite | AllocationHostAccessRandom | AllocationMapped)) return true;
    return usage == MemoryUsage::CpuOnly || usage == MemoryUsage::CpuToGpu || usage == MemoryUsage::GpuToCpu ||
        usage == MemoryUsage::CpuCopy;
}

} // namespace

Buffer::Buffer(Device& device, VkDeviceSize size, VkBufferUsageFlags usage, MemoryUsage memoryUsage,
               uint32_t allocationFlags, std::string const& name, VkDeviceSize alignment)
    : _device(&device), _size(size), _name(name) {
    NEROX_ASSERT(size > 0);
    NEROX_ASSERT((alignment & (alignment - 1)) == 0);
    VkBufferCreateInfo info{VK_STRUCTURE_TYPE_BUFFER_CREATE_INFO};
    info.size = size;
    info.usage = usage | VK_BUFFER_USAGE_SHADER_DEVICE_ADDRESS_BIT;
    info.sharingMode = VK_SHARING_MODE_EXCLUSIVE;
    NEROX_VK_CHECK(vkCreateBuffer(device, &info, nullptr, &_buffer));
    nerox::OnFailure undo([&] {
        device.Allocator().Free(_memory);
        vkDestroyBuffer(device, _buffer, nullptr);
    });
    VkMemoryRequirements requirements;
    vkGetBufferMemoryRequirements(device, _buffer, &requirements);

    bool const host = WantsHostAccess(memoryUsage, allocationFlags);
    VkMemoryPropertyFlags required = 0, preferred = 0;
    if (host) {
        required = VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT | VK_MEMORY_PROPERTY_HOST_COHERENT_BIT;
        if (memoryUsage == MemoryUsage::GpuToCpu || (allocationFlags & AllocationHostAccessRandom))
            preferred = VK_MEMORY_PROPERTY_HOST_CACHED_BIT;
        else if (memoryUsage != MemoryUsage::AutoPreferHost && memoryUsage != MemoryUsage::CpuOnly &&
                 memoryUsage != MemoryUsage::CpuCopy)
            preferred = VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT;
    } else if (memoryUsage != MemoryUsage::AutoPreferHost) {
        preferred = VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT;
    }
    uint32_t const type = device.FindMemoryType(requirements.memoryTypeBits, required, preferred);
    _hostVisible = (device.MemoryTypeFlags(type) & VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT) != 0;

    // The piece's offset meets the alignment; the block's start meets any.
    _memory = device.Allocator().Allocate(requirements, type, true, alignment);
    NEROX_VK_CHECK(vkBindBufferMemory(device, _buffer, _memory.memory, _memory.offset));

    VkBufferDeviceAddressInfo address{VK_STRUCTURE_TYPE_BUFFER_DEVICE_ADDRESS_INFO};
    address.buffer = _buffer;
    _address = vkGetBufferDeviceAddress(device, &address);
    NEROX_ASSERT(alignment == 0 || _address % alignment == 0);
    device.SetName(VK_OBJECT_TYPE_BUFFER, reinterpret_cast<uint64_t>(_buffer), name);
    if (allocationFlags & AllocationMapped) Map();
}

Buffer::Buffer(Buffer&& other) noexcept
    : _device(other._device), _buffer(std::exchange(other._buffer, VK_NULL_HANDLE)),
      _memory(std::exchange(other._memory, MemoryPiece())), _size(other._size),
      _address(std::exchange(other._address, 0)), _mapped(std::exchange(other._mapped, nullptr)),
      _hostVisible(other._hostVisible), _name(std::move(other._name)) { }

Buffer::~Buffer() {
    if (_buffer == VK_NULL_HANDLE) return;
    vkDestroyBuffer(*_device, _buffer, nullptr);
    _device->Allocator().Free(_memory);
}

void* Buffer::Map() {
    if (!_hostVisible) throw std::runtime_error("Buffer \"" + _name + "\" is not host-visible and cannot be mapped");
    // Host-visible blocks stay mapped; the buffer's bytes start at its piece.
    _mapped = _memory.mapped;
    return _mapped;
}

void Buffer::Unmap() {
    _mapped = nullptr;
}

} // namespace nerox::vk
