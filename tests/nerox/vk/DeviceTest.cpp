// The device: choice, features, validation, and one-time command buffers.
#include "VkFixture.hpp"

#include "nerox/vk/CommandBuffer.hpp"
#include "nerox/vk/Image.hpp"

#include <cstring>

namespace vktest {
namespace {

using nerox::vk::CommandBuffer;
using nerox::vk::Device;
using nerox::vk::DeviceOptions;
using nerox::vk::PhysicalDevice;

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
    a.core.fragmentStoresAndAtomics = VK_TRUE;
    a.vulkan12.bufferDeviceAddress = VK_TRUE;
    a.rayQuery.rayQuery = VK_TRUE;
    a.vulkan12.pNext = &a.vulkan13;
    PhysicalDevice::Features b = a;
    EXPECT_TRUE(b.core.fragmentStoresAndAtomics);
    EXPECT_TRUE(b.vulkan12.bufferDeviceAddress);
    EXPECT_TRUE(b.rayQuery.rayQuery);
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
    options.features.vulkan13.dynamicRendering = VK_TRUE;
    options.features.core.fragmentStoresAndAtomics = VK_TRUE;
    testing::internal::CaptureStdout();
    Device second(options);
    std::string const said = testing::internal::GetCapturedStdout();
    if (second.HasRayTracing()) {
        EXPECT_TRUE(second.EnabledFeatures().rayTracingPipeline.rayTracingPipeline);
        EXPECT_TRUE(second.HasExtension(VK_KHR_RAY_TRACING_PIPELINE_EXTENSION_NAME));
    } else {
        EXPECT_NE(said.find("has no ray tracing"), std::string::npos) << said;
        EXPECT_FALSE(second.EnabledFeatures().rayTracingPipeline.rayTracingPipeline);
        EXPECT_FALSE(second.HasExtension(VK_KHR_RAY_TRACING_PIPELINE_EXTENSION_NAME));
    }
    EXPECT_TRUE(second.EnabledFeatures().vulkan13.dynamicRendering);
}

TEST_F(VkDevice_, RunRecordsSubmitsAndWaits) {
    nerox::vk::Image image(Dev(), 4, 4, VK_FORMAT_R8G8B8A8_UNORM,
                           VK_IMAGE_USAGE_TRANSFER_DST_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT, "run test");
    int calls = 0;
    EXPECT_TRUE(CommandBuffer::Run(Dev(), Dev().GraphicsQueue(), [&](VkCommandBuffer commands) {
        ++calls;
        image.Transition(commands, VK_IMAGE_LAYOUT_UNDEFINED, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL);
    }, "test"));
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(CommandBuffer::Run(Dev(), Dev().GraphicsQueue(), {}, "empty")) << "nothing to record is fine";
}

TEST_F(VkDevice_, ValidationCountsErrors) {
    if (!Dev().Validating()) GTEST_SKIP() << "no validation layers";
    // A sampler with anisotropy asked of a device where it was not enabled.
    VkSamplerCreateInfo info{VK_STRUCTURE_TYPE_SAMPLER_CREATE_INFO};
    info.anisotropyEnable = VK_TRUE;
    info.maxAnisotropy = 4.0f;
    VkSampler sampler = VK_NULL_HANDLE;
    uint64_t const before = Device::ValidationErrorCount();
    testing::internal::CaptureStderr();
    vkCreateSampler(Dev(), &info, nullptr, &sampler);
    std::string const said = testing::internal::GetCapturedStderr();
    if (sampler != VK_NULL_HANDLE) vkDestroySampler(Dev(), sampler, nullptr);
    EXPECT_GT(Device::ValidationErrorCount(), before);
    EXPECT_NE(said.find("Vulkan validation error"), std::string::npos);
    expectedErrors = Device::ValidationErrorCount() - before;
}

TEST(VkDeviceChoice, ANameThatMatchesNoDeviceIsAClearError) {
    setenv("NEROX_VK_DEVICE", "no such device 42", 1);
    DeviceOptions options;
    options.validation = 0;
    try {
        Device device(options);
        ADD_FAILURE() << "a device was created";
    } catch (std::runtime_error const& error) {
        EXPECT_NE(std::string(error.what()).find("no usable device"), std::string::npos) << error.what();
        EXPECT_NE(std::string(error.what()).find("NEROX_VK_DEVICE"), std::string::npos) << error.what();
    }
    unsetenv("NEROX_VK_DEVICE");
}

} // namespace
} // namespace vktest
