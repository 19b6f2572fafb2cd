#include "nerox/vk/CommandBuffer.hpp"

#include "nerox/vk/Check.hpp"

#include <iostream>
#include <mutex>

namespace nerox::vk {

namespace {

/// A transient pool, buffer and fence, released on every way out.
struct OneTime {
    explicit OneTime(Device& device) : device(device) { }
    ~OneTime() {
        if (fence != VK_NULL_HANDLE) vkDestroyFence(device, fence, nullptr);
        if (pool != VK_NULL_HANDLE) vkDestroyCommandPool(device, pool, nullptr); // frees the buffer too
    }
    Device& device;
    VkCommandPool pool = VK_NULL_HANDLE;
    VkCommandBuffer buffer = VK_NULL_HANDLE;
    VkFence fence = VK_NULL_HANDLE;
    bool submitted = false;
};

} // namespace

bool CommandBuffer::Run(Device& device, VkQueue queue, std::function<void(VkCommandBuffer)> const& record,
                        std::string const& name, uint64_t timeoutNs) {
    OneTime work(device);
    VkCommandPoolCreateInfo poolInfo{VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO};
    poolInfo.flags = VK_COMMAND_POOL_CREATE_TRANSIENT_BIT;
    poolInfo.queueFamilyIndex = device.GraphicsFamily();
    NEROX_VK_CHECK(vkCreateCommandPool(device, &poolInfo, nullptr, &work.pool));
    VkCommandBufferAllocateInfo allocate{VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO};
    allocate.commandPool = work.pool;
    allocate.level = VK_COMMAND_BUFFER_LEVEL_PRIMARY;
    allocate.commandBufferCount = 1;
    NEROX_VK_CHECK(vkAllocateCommandBuffers(device, &allocate, &work.buffer));
    device.SetName(VK_OBJECT_TYPE_COMMAND_BUFFER, reinterpret_cast<uint64_t>(work.buffer), name);

    VkCommandBufferBeginInfo begin{VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO};
    begin.flags = VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT;
    NEROX_VK_CHECK(vkBeginCommandBuffer(work.buffer, &begin));
    if (record) record(work.buffer);
    NEROX_VK_CHECK(vkEndCommandBuffer(work.buffer));

    VkFenceCreateInfo fenceInfo{VK_STRUCTURE_TYPE_FENCE_CREATE_INFO};
    NEROX_VK_CHECK(vkCreateFence(device, &fenceInfo, nullptr, &work.fence));
    VkSubmitInfo submit{VK_STRUCTURE_TYPE_SUBMIT_INFO};
    submit.commandBufferCount = 1;
    submit.pCommandBuffers = &work.buffer;
    {
        std::lock_guard lock(device.QueueMutex());
        NEROX_VK_CHECK(vkQueueSubmit(queue, 1, &submit, work.fence));
    }
    VkResult result = vkWaitForFences(device, 1, &work.fence, VK_TRUE, timeoutNs);
    if (result == VK_TIMEOUT) {
        std::cerr << "CommandBuffer::Run: \"" << name << "\" did not finish within " << timeoutNs / 1000000
                  << " ms; waiting for it\n";
        NEROX_VK_CHECK(vkWaitForFences(device, 1, &work.fence, VK_TRUE, NoTimeout));
        return false;
    }
    NEROX_VK_CHECK(result);
    return true;
}

} // namespace nerox::vk
