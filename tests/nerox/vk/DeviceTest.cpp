// The device (choice, features, validation), one-time command buffers, buffers and samplers.
#include "VkFixture.hpp"

#include "nerox/vk/Buffer.hpp"
#include "nerox/vk/CommandBuffer.hpp"
#include "nerox/vk/Image.hpp"

#include <set>

namespace vktest {
namespace {

using namespace nerox::vk;

using VkDevice_ = VkTest;

TEST_F(VkDevice_, OffersVulkan13WithBufferAddressesAndAGraphicsQueue) {
    EXPECT_FALSE(Dev().Name().empty());
    EXPECT_GE(Dev().Properties().apiVersion, static_cast<uint32_t>(VK_API_VERSION_1_3));
    EXPECT_TRUE(Dev().EnabledFeatures().vulkan12.bufferDeviceAddress);
    EXPECT_NE(Dev().GraphicsQueue(), VK_NULL_HANDLE);
    EXPECT_EQ(Dev().Surface(), VK_NULL_HANDLE) << "offscreen: no window, no surface";
    EXPECT_TRUE(Dev().Validating()) << "the tests need Debian's vulkan-validationlayers";
}

TEST_F(VkDevice_, FeaturesCopyTheirFlagsButNotTheirChain) {
    PhysicalDevice::Features a;
    a.core.fragmentStoresAndAtomics = a.vulkan12.bufferDeviceAddress = a.rayQuery.rayQuery = VK_TRUE;
    a.vulkan12.pNext = &a.vulkan13;
    PhysicalDevice::Features b = a;
    EXPECT_TRUE(b.core.fragmentStoresAndAtomics && b.vulkan12.bufferDeviceAddress && b.rayQuery.rayQuery);
    EXPECT_EQ(b.vulkan12.pNext, nullptr);
    EXPECT_EQ(b.vulkan12.sType, VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_VULKAN_1_2_FEATURES);
    EXPECT_FALSE(b.WantsRayTracing());
    b.accelerationStructure.accelerationStructure = VK_TRUE;
    EXPECT_TRUE(b.WantsRayTracing());
}

TEST_F(VkDevice_, RayTracingIsReportedAndLeftOutWhereTheDeviceHasNone) {
    DeviceOptions options;
    options.validation = 1;
    options.features.rayTracingPipeline.rayTracingPipeline = VK_TRUE;
    options.features.accelerationStructure.accelerationStructure = VK_TRUE;
    options.features.vulkan13.dynamicRendering = options.features.core.fragmentStoresAndAtomics = VK_TRUE;
    testing::internal::CaptureStdout();
    Device second(options);
    std::string const said = testing::internal::GetCapturedStdout();
    bool const has = second.HasRayTracing();
    EXPECT_EQ(bool(second.EnabledFeatures().rayTracingPipeline.rayTracingPipeline), has);
    EXPECT_EQ(second.HasExtension(VK_KHR_RAY_TRACING_PIPELINE_EXTENSION_NAME), has);
    EXPECT_EQ(said.find("has no ray tracing") == std::string::npos, has) << said;
    EXPECT_TRUE(second.EnabledFeatures().vulkan13.dynamicRendering);
}

TEST_F(VkDevice_, ValidationCountsErrors) {
    // A sampler with anisotropy asked of a device where it was not enabled.
    VkSamplerCreateInfo info{VK_STRUCTURE_TYPE_SAMPLER_CREATE_INFO};
    info.anisotropyEnable = VK_TRUE;
    info.maxAnisotropy = 4.0f;
    VkSampler sampler = VK_NULL_HANDLE;
    testing::internal::CaptureStderr();
    vkCreateSampler(Dev(), &info, nullptr, &sampler);
    std::string const said = testing::internal::GetCapturedStderr();
    if (sampler != VK_NULL_HANDLE) vkDestroySampler(Dev(), sampler, nullptr);
    expectedErrors = Device::ValidationErrorCount() - errorsBefore;
    EXPECT_GT(expectedErrors, 0u);
    EXPECT_NE(said.find("Vulkan validation error"), std::string::npos);
}

TEST(VkDeviceChoice, ANameThatMatchesNoDeviceIsAClearError) {
    setenv("NEROX_VK_DEVICE", "no such device 42", 1);
    DeviceOptions options;
    options.validation = 0;
    std::string const error = Thrown([&] { Device device(options); });
    EXPECT_NE(error.find("no usable device"), std::string::npos) << error;
    EXPECT_NE(error.find("NEROX_VK_DEVICE"), std::string::npos) << error;
    unsetenv("NEROX_VK_DEVICE");
}

TEST_F(VkDevice_, RunRecordsSubmitsAndWaitsAndAMappedBufferHoldsWhatTheDeviceCopied) {
    MappedBuffer<uint32_t> records(Dev(), 100, VK_BUFFER_USAGE_TRANSFER_SRC_BIT, "records", 16);
    MappedBuffer<uint32_t, 4, 0x800> back(Dev(), 100, VK_BUFFER_USAGE_TRANSFER_DST_BIT, "read back");
    EXPECT_EQ(records.Size(), 400u);
    for (uint32_t i = 0; i < 100; ++i) records[i] = i * 7u;
    int calls = 0;
    ASSERT_TRUE(CommandBuffer::Run(Dev(), Dev().GraphicsQueue(), [&](VkCommandBuffer commands) {
        VkBufferCopy region{0, 0, records.Size()};
        vkCmdCopyBuffer(commands, records, back, 1, &region);
        ++calls;
    }, "copy records"));
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(std::vector<uint32_t>(back.Data(), back.Data() + 100), std::vector<uint32_t>(records.Data(), records.Data() + 100));
    EXPECT_EQ(back[99], 693u);
    EXPECT_TRUE(CommandBuffer::Run(Dev(), Dev().GraphicsQueue(), {}, "empty")) << "nothing to record is fine";
}

TEST_F(VkDevice_, BufferAddressesAreDistinctNonZeroAndAligned) {
    std::set<uint64_t> addresses;
    std::vector<std::unique_ptr<Buffer>> buffers;
    for (int i = 0; i < 8; ++i) {
        buffers.push_back(std::make_unique<MappedBuffer<char>>(Dev(), 1 + i * 33, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT,
                                                               "address " + std::to_string(i), 256));
        EXPECT_EQ(static_cast<uint64_t>(*buffers.back()) % 256, 0u);
        addresses.insert(buffers.back()->Address());
    }
    Buffer local(Dev(), 64, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT, MemoryUsage::GpuOnly, 0, "local only");
    addresses.insert(local.Address());
    EXPECT_EQ(addresses.size(), 9u);
    EXPECT_EQ(addresses.count(0), 0u);
    if (!local.HostVisible()) { // software devices' local memory is host-visible
        EXPECT_THROW(local.Map(), std::runtime_error);
    }
}

TEST_F(VkDevice_, MovingABufferMovesItsOwnership) {
    Buffer first(Dev(), 32, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT, MemoryUsage::AutoPreferDevice,
                 AllocationHostAccessSequentialWrite, "moved");
    void* mapped = first.Map();
    VkBuffer const handle = first;
    Buffer second(std::move(first));
    EXPECT_EQ(static_cast<VkBuffer>(second), handle);
    EXPECT_EQ(second.Map(), mapped);
    EXPECT_EQ(static_cast<VkBuffer>(first), VK_NULL_HANDLE);
}

TEST_F(VkDevice_, SamplersTakeTheirOptions) {
    SamplerOptions linear;
    linear.magFilter = linear.minFilter = VK_FILTER_LINEAR;
    linear.addressModeU = linear.addressModeV = VK_SAMPLER_ADDRESS_MODE_CLAMP_TO_EDGE;
    linear.maxAnisotropy = 16.0f; // not enabled on the test device: quietly off, no validation error
    Sampler nearest(Dev()), clamped(Dev(), linear, "linear clamp");
    EXPECT_NE(static_cast<VkSampler>(nearest), VK_NULL_HANDLE);
    EXPECT_NE(static_cast<VkSampler>(clamped), static_cast<VkSampler>(nearest));
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
