#include "nerox/vk/MemoryAllocator.hpp"

#include <algorithm>
#include <iostream>

#include "nerox/Assert.hpp"
#include "nerox/vk/Check.hpp"
#include "nerox/vk/Device.hpp"

namespace nerox::vk {

MemoryAllocator::MemoryAllocator(Device& device) : _device(device) { }

MemoryAllocator::~MemoryAllocator() {
    size_t leaked = 0;
    for (auto& [kind, list] : _lists) {
        for (std::unique_ptr<Block>& block : list.blocks) {
            if (!block) continue;
            if (block->used != 0) ++leaked;
            FreeDeviceMemory(block->memory, block->mapped);
        }
    }
    if (leaked != 0) std::cerr << "MemoryAllocator: " << leaked << " blocks still had pieces in use" << std::endl;
}

VkDeviceMemory MemoryAllocator::AllocateDeviceMemory(VkDeviceSize size, uint32_t type, bool forBuffer, void** mapped) {
    VkMemoryAllocateFlagsInfo flags{VK_STRUCTURE_TYPE_MEMORY_ALLOCATE_FLAGS_INFO};
    flags.flags = VK_MEMORY_ALLOCATE_DEVICE_ADDRESS_BIT;
    VkMemoryAllocateInfo allocate{VK_STRUCTURE_TYPE_MEMORY_ALLOCATE_INFO, forBuffer ? &flags : nullptr};
    allocate.allocationSize = size;
    allocate.memoryTypeIndex = type;
    VkDeviceMemory memory = VK_NULL_HANDLE;
    NEROX_VK_CHECK(vkAllocateMemory(_device, &allocate, nullptr, &memory));
    ++_deviceAllocations;
    *mapped = nullptr;
    if (_device.MemoryTypeFlags(type) & VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT) {
        VkResult const result = vkMapMemory(_device, memory, 0, VK_WHOLE_SIZE, 0, mapped);
        if (result != VK_SUCCESS) {
            vkFreeMemory(_device, memory, nullptr);
            NEROX_VK_CHECK(result);
        }
    }
    return memory;
}

void MemoryAllocator::FreeDeviceMemory(VkDeviceMemory memory, void* mapped) {
    if (mapped != nullptr) vkUnmapMemory(_device, memory);
    vkFreeMemory(_device, memory, nullptr);
}

bool MemoryAllocator::Take(Block& block, VkDeviceSize size, VkDeviceSize alignment, VkDeviceSize& offset) {
    for (auto range = block.free.begin(); range != block.free.end(); ++range) {
        VkDeviceSize const start = (range->first + alignment - 1) / alignment * alignment;
        VkDeviceSize const end = range->first + range->second;
        if (start > end || end - start < size) continue;
        // Split the range into what lies before the piece and what lies after it.
        VkDeviceSize const before = start - range->first, after = end - start - size;
        VkDeviceSize const rangeStart = range->first;
        block.free.erase(range);
        if (before != 0) block.free.emplace(rangeStart, before);
        if (after != 0) block.free.emplace(start + size, after);
        block.used += size;
        offset = start;
        return true;
    }
    return false;
}

MemoryPiece MemoryAllocator::Allocate(VkMemoryRequirements const& requirements, uint32_t type, bool forBuffer,
                                      VkDeviceSize alignment) {
    VkDeviceSize const align = std::max<VkDeviceSize>({requirements.alignment, alignment, 1});
    NEROX_ASSERT((align & (align - 1)) == 0);
    std::lock_guard lock(_mutex);
    MemoryPiece piece;
    piece.size = requirements.size;
    piece.kind = type * 2 + (forBuffer ? 1 : 0);
    if (requirements.size > BlockSize / 4) {
        // Large: an allocation of its own, which starts at 0 and so meets any alignment.
        piece.memory = AllocateDeviceMemory(requirements.size, type, forBuffer, &piece.mapped);
        return piece;
    }
    List& list = _lists[piece.kind];
    std::unique_ptr<Block>* reuse = nullptr;
    for (size_t i = 0; i < list.blocks.size(); ++i) {
        std::unique_ptr<Block>& block = list.blocks[i];
        if (!block) {
            if (reuse == nullptr) reuse = &block;
            continue;
        }
        if (Take(*block, requirements.size, align, piece.offset)) {
            piece.memory = block->memory;
            piece.block = static_cast<uint32_t>(i);
            piece.mapped = block->mapped ? static_cast<char*>(block->mapped) + piece.offset : nullptr;
            return piece;
        }
    }
    auto block = std::make_unique<Block>();
    block->memory = AllocateDeviceMemory(BlockSize, type, forBuffer, &block->mapped);
    block->free.emplace(0, BlockSize);
    NEROX_ASSERT(Take(*block, requirements.size, align, piece.offset));
    piece.memory = block->memory;
    piece.mapped = block->mapped ? static_cast<char*>(block->mapped) + piece.offset : nullptr;
    if (reuse != nullptr) {
        piece.block = static_cast<uint32_t>(reuse - list.blocks.data());
        *reuse = std::move(block);
    } else {
        piece.block = static_cast<uint32_t>(list.blocks.size());
        list.blocks.push_back(std::move(block));
    }
    return piece;
}

void MemoryAllocator::Free(MemoryPiece const& piece) {
    if (piece.memory == VK_NULL_HANDLE) return;
    std::lock_guard lock(_mutex);
    if (piece.block == UINT32_MAX) {
        FreeDeviceMemory(piece.memory, piece.mapped);
        return;
    }
    List& list = _lists.at(piece.kind);
    NEROX_ASSERT(piece.block < list.blocks.size() && list.blocks[piece.block]);
    Block& block = *list.blocks[piece.block];
    NEROX_ASSERT(block.memory == piece.memory && block.used >= piece.size);
    block.used -= piece.size;
    // Put the range back, merged with a free neighbour on either side.
    VkDeviceSize start = piece.offset, size = piece.size;
    auto next = block.free.lower_bound(start);
    if (next != block.free.begin()) {
        auto previous = std::prev(next);
        if (previous->first + previous->second == start) {
            start = previous->first, size += previous->second;
            block.free.erase(previous);
        }
    }
    if (next != block.free.end() && start + size == next->first) {
        size += next->second;
        block.free.erase(next);
    }
    block.free.emplace(start, size);
    if (block.used != 0) return;
    // An empty block goes, unless it is the only one its list has left.
    size_t held = 0;
    for (std::unique_ptr<Block> const& other : list.blocks) held += other ? 1 : 0;
    if (held > 1) {
        FreeDeviceMemory(block.memory, block.mapped);
        list.blocks[piece.block].reset();
    }
}

size_t MemoryAllocator::BlockCount() const {
    std::lock_guard lock(_mutex);
    size_t count = 0;
    for (auto const& [kind, list] : _lists)
        for (std::unique_ptr<Block> const& block : list.blocks) count += block ? 1 : 0;
    return count;
}

} // namespace nerox::vk
