#pragma once
// Device memory in large blocks, handed out in pieces: drivers cap the number
// of allocations (often at 4,096), and the scene makes a buffer or two per
// object.
#include <vulkan/vulkan.h>

#include <cstddef>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace nerox::vk {

class Device;

/// A piece of device memory: bind the resource to memory at offset.
struct MemoryPiece {
    VkDeviceMemory memory = VK_NULL_HANDLE; ///< The block (or the resource's own allocation).
    VkDeviceSize offset = 0;                ///< Where the piece starts in it.
    VkDeviceSize size = 0;                  ///< Bytes of the piece.
    void* mapped = nullptr;                 ///< Host address of the piece in host-visible memory, else null.
    uint32_t block = UINT32_MAX;            ///< Index of the block; UINT32_MAX for an allocation of its own.
    uint32_t kind = 0;                      ///< The block list it came from.
};

/// Hands out pieces of blocks of BlockSize bytes, one list of blocks per memory
/// type and resource kind (buffers and images apart, so that linear and
/// optimal resources never share a page). A request larger than a quarter of a
/// block gets an allocation of its own. Host-visible blocks stay mapped for
/// their whole life. A block that becomes empty is freed, except the last one
/// of its list. Thread-safe.
class MemoryAllocator {
public:
    /// Bytes of one block.
    static constexpr VkDeviceSize BlockSize = 64ull << 20;

    explicit MemoryAllocator(Device& device);
    /// Frees every block; every piece must have been freed by then.
    ~MemoryAllocator();
    MemoryAllocator(MemoryAllocator const&) = delete;
    MemoryAllocator& operator=(MemoryAllocator const&) = delete;

    /// A piece for requirements from memory type type. forBuffer: buffer blocks
    /// (allocated with device addresses), otherwise image blocks. alignment
    /// (a power of two, or 0) is added to the requirements' own.
    MemoryPiece Allocate(VkMemoryRequirements const& requirements, uint32_t type, bool forBuffer,
                         VkDeviceSize alignment = 0);
    /// Gives piece back.
    void Free(MemoryPiece const& piece);

    /// Blocks held now, of all lists.
    size_t BlockCount() const;
    /// Allocations of the device made for blocks and single pieces so far.
    uint64_t DeviceAllocations() const { return _deviceAllocations.load(); }

private:
    struct Block {
        VkDeviceMemory memory = VK_NULL_HANDLE;
        void* mapped = nullptr;
        VkDeviceSize used = 0;
        std::map<VkDeviceSize, VkDeviceSize> free; // offset -> size, neighbours merged
    };
    struct List {
        std::vector<std::unique_ptr<Block>> blocks; // null entries are freed blocks
    };

    VkDeviceMemory AllocateDeviceMemory(VkDeviceSize size, uint32_t type, bool forBuffer, void** mapped);
    void FreeDeviceMemory(VkDeviceMemory memory, void* mapped);
    static bool Take(Block& block, VkDeviceSize size, VkDeviceSize alignment, VkDeviceSize& offset);

    Device& _device;
    mutable std::mutex _mutex;       // guards _lists and _deviceAllocations
    std::map<uint32_t, List> _lists; // by type * 2 + (forBuffer ? 1 : 0)
    std::atomic<uint64_t> _deviceAllocations{0};
};

} // namespace nerox::vk
