#pragma once
// GPU buffers. Each buffer has its own device memory allocation (no
// sub-allocation): simple, always correct, and enough for the counts a frame
// uses. Every buffer can be reached by its device address.
#include "nerox/Assert.hpp"
#include "nerox/vk/MemoryAllocator.hpp"
#include "nerox/vk/Device.hpp"

#include <vulkan/vulkan.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

namespace nerox::vk {

/// Where a buffer's memory should live. The values are the engine's memory-usage numbers.
enum class MemoryUsage : int {
    Unknown = 0,            ///< No preference.
    GpuOnly = 1,            ///< Device-local, not mapped.
    CpuOnly = 2,            ///< Host memory.
    CpuToGpu = 3,           ///< Written by the host, read by the device.
    GpuToCpu = 4,           ///< Written by the device, read back by the host.
    CpuCopy = 5,            ///< Host memory for copies.
    GpuLazilyAllocated = 6, ///< Lazily allocated attachments; treated as device-local.
    Auto = 7,               ///< Chosen from the usage and flags.
    AutoPreferDevice = 8,   ///< Chosen from the flags, device-local where possible.
    AutoPreferHost = 9,     ///< Chosen from the flags, host memory where possible.
};

/// Allocation flag bits; the values are the engine's allocation-flag numbers.
enum AllocationFlagBits : uint32_t {
    AllocationDedicated = 0x1,                   ///< Own allocation (always so here).
    AllocationMapped = 0x4,                      ///< Persistently mapped from creation on.
    AllocationHostAccessSequentialWrite = 0x400, ///< The host writes, in order, and does not read.
    AllocationHostAccessRandom = 0x800,          ///< The host reads and writes in any order.
};

/// A buffer, in a piece of the device's memory blocks, and its device address.
class Buffer {
public:
    /// A buffer of size bytes (size > 0). usage gets device-address use added.
    /// The host can map it when allocationFlags asks for host access or
    /// memoryUsage names host memory. alignment, a power of two or 0, is met by
    /// the address. Throws std::runtime_error when Vulkan refuses.
    Buffer(Device& device, VkDeviceSize size, VkBufferUsageFlags usage, MemoryUsage memoryUsage,
           uint32_t allocationFlags, std::string const& name, VkDeviceSize alignment = 0);
    virtual ~Buffer();
    Buffer(Buffer&& other) noexcept;
    Buffer& operator=(Buffer&&) = delete;
    Buffer(Buffer const&) = delete;
    Buffer& operator=(Buffer const&) = delete;

    /// The mapped bytes; the buffer must be host-visible. Mapping twice returns the same pointer.
    void* Map();
    /// Ends the mapping (a persistently mapped buffer stays mapped until destroyed otherwise).
    void Unmap();
    /// Whether Map may be called.
    bool HostVisible() const { return _hostVisible; }

    VkBuffer Handle() const { return _buffer; }          ///< The Vulkan buffer.
    operator VkBuffer() const { return _buffer; }        ///< The Vulkan buffer.
    VkDeviceAddress Address() const { return _address; } ///< Its device address, never 0.
    /// The device address, as shaders read it.
    explicit operator uint64_t() const { return _address; }
    VkDeviceSize Size() const { return _size; }       ///< Size in bytes.
    std::string const& Name() const { return _name; } ///< Debug name.

protected:
    Device* _device;
    VkBuffer _buffer = VK_NULL_HANDLE;
    MemoryPiece _memory; // a piece of a block of the device's allocator
    VkDeviceSize _size = 0;
    VkDeviceAddress _address = 0;
    void* _mapped = nullptr;
    bool _hostVisible = false;
    std::string _name;
};

/// count records of T in a host-visible, persistently mapped buffer, written
/// through operator[] and read by the device at its address.
template <class T, int memoryUsage = 8, uint32_t allocationFlags = 1024> class MappedBuffer : public Buffer {
public:
    /// count > 0 records; alignment is met by the address (a power of two).
    MappedBuffer(Device& device, size_t count, VkBufferUsageFlags usage, std::string const& name,
                 VkDeviceSize alignment = alignof(T))
        : Buffer(device, Bytes(count), usage, static_cast<MemoryUsage>(memoryUsage), allocationFlags | AllocationMapped,
                 name, alignment),
          _count(count), _data(static_cast<T*>(Map())) { }

    /// Record index; index must be below Count().
    T& operator[](size_t index) {
        NEROX_ASSERT(index < _count);
        return _data[index];
    }
    /// Record index; index must be below Count().
    T const& operator[](size_t index) const {
        NEROX_ASSERT(index < _count);
        return _data[index];
    }
    T* Data() { return _data; }             ///< The first record.
    T const* Data() const { return _data; } ///< The first record.
    size_t Count() const { return _count; } ///< Number of records.
    /// Stays mapped for its whole life.
    void Unmap() = delete;

private:
    static VkDeviceSize Bytes(size_t count) {
        NEROX_ASSERT(count > 0);
        if (count > std::numeric_limits<VkDeviceSize>::max() / sizeof(T))
            throw std::runtime_error("MappedBuffer: " + std::to_string(count) + " records do not fit a buffer");
        return static_cast<VkDeviceSize>(count) * sizeof(T);
    }

    size_t _count;
    T* _data;
};

} // namespace nerox::vk
