// Buffers and mapped buffers: contents reach the device, addresses are real.
#include "VkFixture.hpp"

#include "nerox/vk/Buffer.hpp"
#include "nerox/vk/CommandBuffer.hpp"

#include <cstring>
#include <set>

namespace vktest {
namespace {

using nerox::vk::Buffer;
using nerox::vk::CommandBuffer;
using nerox::vk::MappedBuffer;
using nerox::vk::MemoryUsage;

struct Record {
    float position[3];
    uint32_t id;
};

using VkBuffers = VkTest;

TEST_F(VkBuffers, AMappedBufferHoldsWhatWasWrittenAsTheDeviceSeesIt) {
    MappedBuffer<Record> records(Dev(), 100, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT | VK_BUFFER_USAGE_TRANSFER_SRC_BIT,
                                 "records", 16);
    ASSERT_EQ(records.Count(), 100u);
    EXPECT_EQ(records.Size(), 100 * sizeof(Record));
    for (uint32_t i = 0; i < 100; ++i) records[i] = {{float(i), float(i) * 2.0f, -float(i)}, i * 7u};
    // The device copies it into a second buffer; the host reads that one back.
    MappedBuffer<Record, 4, 0x800> back(Dev(), 100, VK_BUFFER_USAGE_TRANSFER_DST_BIT, "read back");
    std::memset(back.Data(), 0, back.Size());
    ASSERT_TRUE(CommandBuffer::Run(Dev(), Dev().GraphicsQueue(), [&](VkCommandBuffer commands) {
        VkBufferCopy region{0, 0, records.Size()};
        vkCmdCopyBuffer(commands, records, back, 1, &region);
    }, "copy records"));
    for (uint32_t i = 0; i < 100; ++i) {
        EXPECT_EQ(back[i].id, i * 7u);
        EXPECT_EQ(back[i].position[1], float(i) * 2.0f);
    }
}

TEST_F(VkBuffers, AddressesAreDistinctNonZeroAndAligned) {
    std::set<uint64_t> addresses;
    std::vector<std::unique_ptr<MappedBuffer<char>>> buffers;
    for (int i = 0; i < 8; ++i) {
        buffers.push_back(std::make_unique<MappedBuffer<char>>(
            Dev(), 1 + i * 33, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT, "address " + std::to_string(i), 256));
        uint64_t const address = static_cast<uint64_t>(*buffers.back());
        EXPECT_NE(address, 0u);
        EXPECT_EQ(address % 256, 0u);
        EXPECT_EQ(address, buffers.back()->Address());
        addresses.insert(address);
    }
    EXPECT_EQ(addresses.size(), 8u);
}

TEST_F(VkBuffers, DeviceLocalBuffersRefuseToMapWithAClearError) {
    Buffer local(Dev(), 64, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT, MemoryUsage::GpuOnly, 0, "local only");
    EXPECT_NE(local.Address(), 0u);
    if (local.HostVisible()) GTEST_SKIP() << "this device's local memory is host-visible (software devices are)";
    try {
        local.Map();
        ADD_FAILURE() << "mapped";
    } catch (std::runtime_error const& error) {
        EXPECT_NE(std::string(error.what()).find("local only"), std::string::npos);
    }
}

TEST_F(VkBuffers, MovingABufferMovesItsOwnership) {
    Buffer first(Dev(), 32, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT, MemoryUsage::AutoPreferDevice,
                 nerox::vk::AllocationHostAccessSequentialWrite, "moved");
    void* mapped = first.Map();
    VkBuffer const handle = first;
    Buffer second(std::move(first));
    EXPECT_EQ(static_cast<VkBuffer>(second), handle);
    EXPECT_EQ(second.Map(), mapped);
    EXPECT_EQ(static_cast<VkBuffer>(first), VK_NULL_HANDLE);
}

using VkBuffersDeathTest = VkTest;

TEST_F(VkBuffersDeathTest, IndexAndCountAreChecked) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(MappedBuffer<int>(Dev(), 0, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT, "empty"),
                 "ASSERTION FAILED: \\(count > 0\\) in .*Buffer.hpp");
    EXPECT_DEATH(
        {
            MappedBuffer<int> four(Dev(), 4, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT, "four");
            four[4] = 1;
        },
        "ASSERTION FAILED: \\(index < _count\\) in .*Buffer.hpp");
}

} // namespace
} // namespace vktest
