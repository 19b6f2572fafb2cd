// The Vulkan stand-ins on one validating device: a test fails when the layers report an error.
#include "support/TempDir.hpp"
#include "support/TextureReadback.hpp"

#include "nerox/VulkanEngine.hpp"
#include "nerox/graphics/ComputeTexture.hpp"
#include "nerox/graphics/DynamicAsyncTexture.hpp"
#include "nerox/vk/Buffer.hpp"
#include "nerox/vk/CommandBuffer.hpp"
#include "nerox/vk/Device.hpp"
#include "nerox/vk/Image.hpp"
#include "nerox/vk/MemoryAllocator.hpp"
#include "nerox/vk/Pipeline.hpp"
#include "nerox/vk/Renderpass.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <tuple>

namespace {

using namespace nerox::vk;

using testing::HasSubstr;
using testing::ThrowsMessage;

/// The owner of the tests' device, as a renderer owns its own.
struct TestEngine : nerox::VulkanEngine {
    explicit TestEngine(DeviceOptions const& options) : DeviceInterface(options) { }
};

class VkTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        if (engine) return;
        DeviceOptions options;
        options.applicationName = "nerox_vk_tests";
        options.validation = 1;
        // Taken where the device has them, left out (and said so) where it has none.
        options.features.rayTracingPipeline.rayTracingPipeline = VK_TRUE;
        options.features.accelerationStructure.accelerationStructure = VK_TRUE;
        options.features.vulkan13.dynamicRendering = VK_TRUE;
        options.features.vulkan13.maintenance4 = VK_TRUE; // compute shaders built for 1.3 need it
        testing::internal::CaptureStdout();
        engine = std::make_unique<TestEngine>(options);
        said = testing::internal::GetCapturedStdout();
    }
    void SetUp() override { errorsBefore = Device::ValidationErrorCount(); }
    void TearDown() override {
        EXPECT_EQ(Device::ValidationErrorCount(), errorsBefore + expectedErrors)
            << "validation errors while the test ran (printed above)";
    }
    Device& Dev() { return engine->GetDevice(); }

    inline static std::unique_ptr<TestEngine> engine;
    inline static std::string said; ///< What making the device printed.
    uint64_t errorsBefore = 0;
    uint64_t expectedErrors = 0; ///< Set by a test that provokes errors on purpose.
};

using VkDevice_ = VkTest;

TEST_F(VkDevice_, OffersVulkan13WithBufferAddressesAGraphicsQueueAndRayTracingWhereItHasIt) {
    EXPECT_TRUE(!Dev().Name().empty() && Dev().Properties().apiVersion >= VK_API_VERSION_1_3);
    EXPECT_TRUE(Dev().EnabledFeatures().vulkan12.bufferDeviceAddress &&
                Dev().EnabledFeatures().vulkan13.dynamicRendering);
    EXPECT_TRUE(Dev().GraphicsQueue() != VK_NULL_HANDLE && Dev().Surface() == VK_NULL_HANDLE)
        << "offscreen: no surface";
    EXPECT_TRUE(Dev().Validating()) << "the tests need Debian's vulkan-validationlayers";
    bool const has = Dev().HasRayTracing();
    EXPECT_EQ(bool(Dev().EnabledFeatures().rayTracingPipeline.rayTracingPipeline), has);
    EXPECT_EQ(Dev().HasExtension(VK_KHR_RAY_TRACING_PIPELINE_EXTENSION_NAME), has);
    EXPECT_EQ(said.find("has no ray tracing") == std::string::npos, has) << said;
}

TEST_F(VkDevice_, ValidationCountsErrors) {
    // A sampler with anisotropy asked of a device where it was not enabled.
    VkSamplerCreateInfo info{VK_STRUCTURE_TYPE_SAMPLER_CREATE_INFO};
    info.anisotropyEnable = VK_TRUE;
    info.maxAnisotropy = 4.0f;
    VkSampler sampler = VK_NULL_HANDLE;
    testing::internal::CaptureStderr();
    vkCreateSampler(Dev(), &info, nullptr, &sampler);
    std::string const printed = testing::internal::GetCapturedStderr();
    if (sampler != VK_NULL_HANDLE) vkDestroySampler(Dev(), sampler, nullptr);
    expectedErrors = Device::ValidationErrorCount() - errorsBefore;
    EXPECT_TRUE(expectedErrors > 0 && printed.find("Vulkan validation error") != std::string::npos) << printed;
}

TEST(VkDeviceChoice, ANameThatMatchesNoDeviceIsAClearError) {
    setenv("NEROX_VK_DEVICE", "no such device 42", 1);
    DeviceOptions options;
    options.validation = 0;
    EXPECT_THAT([&] { Device device(options); },
                ThrowsMessage<std::runtime_error>(testing::AllOf(
                    HasSubstr("no usable device"), HasSubstr(": not the device named by NEROX_VK_DEVICE"))));
    unsetenv("NEROX_VK_DEVICE");
}

TEST_F(VkDevice_, BuffersCopyOnTheDeviceHaveDistinctAlignedAddressesAndMoveTheirOwnership) {
    MappedBuffer<uint32_t> records(Dev(), 100, VK_BUFFER_USAGE_TRANSFER_SRC_BIT, "records", 16);
    MappedBuffer<uint32_t, 4, 0x800> back(Dev(), 100, VK_BUFFER_USAGE_TRANSFER_DST_BIT, "read back", 256);
    for (uint32_t i = 0; i < 100; ++i) records[i] = i * 7u;
    ASSERT_TRUE(CommandBuffer::Run(
        Dev(), Dev().GraphicsQueue(),
        [&](VkCommandBuffer commands) {
            VkBufferCopy region{0, 0, records.Size()};
            vkCmdCopyBuffer(commands, records, back, 1, &region);
        },
        "copy records"));
    EXPECT_EQ(std::vector<uint32_t>(back.Data(), back.Data() + back.Count()),
              std::vector<uint32_t>(records.Data(), records.Data() + 100));
    EXPECT_TRUE(CommandBuffer::Run(Dev(), Dev().GraphicsQueue(), {}, "empty")) << "nothing to record is fine";

    Buffer local(Dev(), 64, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT, MemoryUsage::GpuOnly, 0, "local only");
    Buffer first(Dev(), 32, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT, MemoryUsage::AutoPreferDevice,
                 AllocationHostAccessSequentialWrite, "moved");
    EXPECT_EQ(static_cast<uint64_t>(back) % 256, 0u);
    EXPECT_EQ((std::set<uint64_t>{0, records.Address(), back.Address(), local.Address(), first.Address()}).size(), 5u);
    void* mapped = first.Map();
    VkBuffer const handle = first;
    Buffer second(std::move(first));
    EXPECT_TRUE(static_cast<VkBuffer>(second) == handle && second.Map() == mapped && !static_cast<VkBuffer>(first));
}

using VkBuffersDeathTest = VkTest;

// Small buffers share blocks, pieces never overlap, freed pieces are reused and
// an empty block goes; a large buffer has memory of its own.
TEST_F(VkDevice_, BuffersTakePiecesOfSharedBlocksFreedPiecesAreReusedAndEmptyBlocksGo) {
    MemoryAllocator& allocator = Dev().Allocator();
    uint64_t const allocations = allocator.DeviceAllocations();
    std::vector<std::unique_ptr<MappedBuffer<uint32_t>>> buffers;
    auto const make = [this] {
        return std::make_unique<MappedBuffer<uint32_t>>(Dev(), 60, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT, "piece", 64);
    };
    for (uint32_t i = 0; i < 3000; ++i) {
        buffers.push_back(make());
        std::fill_n(buffers.back()->Data(), 60, i);
        EXPECT_EQ(buffers.back()->Address() % 64, 0u);
    }
    EXPECT_LE(allocator.DeviceAllocations() - allocations, 1u) << "3000 buffers, at most one new block";
    for (uint32_t i = 0; i < buffers.size(); ++i)
        ASSERT_EQ(std::count(buffers[i]->Data(), buffers[i]->Data() + 60, i), 60)
            << "piece " << i << " was overwritten";
    std::set<VkDeviceAddress> freed;
    for (size_t i = 0; i < buffers.size(); i += 2) freed.insert(buffers[i]->Address()), buffers[i].reset();
    for (size_t i = 0; i < buffers.size(); i += 2) {
        buffers[i] = make();
        EXPECT_TRUE(freed.count(buffers[i]->Address())) << "a freed piece is taken again, first fit";
    }
    // Pieces of 15 MiB fill more than one block; emptied blocks go but the last.
    size_t const blocks = allocator.BlockCount();
    std::vector<std::unique_ptr<MappedBuffer<char>>> big;
    for (int i = 0; i < 6; ++i)
        big.push_back(
            std::make_unique<MappedBuffer<char>>(Dev(), 15u << 20, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT, "big"));
    EXPECT_GE(allocator.BlockCount(), blocks + 1);
    big.clear(), buffers.clear();
    EXPECT_LT(allocator.BlockCount(), blocks + 1);
    uint64_t const before = allocator.DeviceAllocations();
    MappedBuffer<char> const large(Dev(), 32u << 20, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT, "large");
    EXPECT_EQ(allocator.DeviceAllocations(), before + 1) << "a large buffer has memory of its own";
}

TEST_F(VkBuffersDeathTest, IndexAndCountAreChecked) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(MappedBuffer<int>(Dev(), 0, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT, "empty"),
                 "ASSERTION FAILED: \\(count > 0\\) in .*Buffer.hpp");
    EXPECT_DEATH(MappedBuffer<int>(Dev(), 4, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT, "four")[4] = 1,
                 "ASSERTION FAILED: \\(index < _count\\) in .*Buffer.hpp");
}

constexpr char const* Triangle = "shaders/triangle"; // relative to the tests' working folder
constexpr VkImageUsageFlags TargetUsage = VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT;

constexpr uint32_t Rgba(uint32_t r, uint32_t g, uint32_t b, uint32_t a = 255) {
    return r | g << 8 | b << 16 | a << 24;
}
VkClearColorValue Colour(float r, float g, float b, float a = 1.0f) {
    return VkClearColorValue{{r, g, b, a}};
}

RenderpassOptions const ClearThenCopy{VK_ATTACHMENT_LOAD_OP_CLEAR, VK_IMAGE_LAYOUT_UNDEFINED,
                                      VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL};

// The triangle covers the pixel centres inside (W/4, H/4), (3W/4, H/4), (W/2, 3H/4) of a W x H target.

class VkPipelines : public VkTest {
protected:
    PipelineLayout layout{Dev(), {}, {{VK_SHADER_STAGE_FRAGMENT_BIT, 0, 16}}, "colour"};

    /// The triangle in colour over clear on a width x height target, read back row by row. A
    /// target other than 64 x 64 RGBA gets a pipeline made for one such and refreshed for it,
    /// as after a swapchain change; a pipeline not rebuilt would be incompatible.
    std::vector<uint32_t> Draw(VkClearColorValue clear, VkClearColorValue colour,
                               GraphicsPipelineOptions const& options = {}, uint32_t width = 64, uint32_t height = 64,
                               VkFormat format = VK_FORMAT_R8G8B8A8_UNORM) {
        Image image(Dev(), width, height, format, TargetUsage, "target");
        auto firstPass =
            std::make_unique<Renderpass>(Dev(), VK_FORMAT_R8G8B8A8_UNORM, 64, 64, TargetUsage, ClearThenCopy);
        GraphicsPipeline pipeline(Dev(), layout, *firstPass, Triangle, options);
        Renderpass pass(Dev(), format, width, height, TargetUsage, ClearThenCopy);
        if (width != 64 || format != VK_FORMAT_R8G8B8A8_UNORM) {
            firstPass.reset();
            pipeline.RefreshViewport(pass);
        }
        MappedBuffer<uint32_t, 4, 0x800> pixels(Dev(), width * height, VK_BUFFER_USAGE_TRANSFER_DST_BIT, "pixels");
        EXPECT_TRUE(CommandBuffer::Run(
            Dev(), Dev().GraphicsQueue(),
            [&](VkCommandBuffer commands) {
                pass.Begin(commands, image.View(), clear);
                pipeline.Bind(commands);
                vkCmdPushConstants(commands, layout, VK_SHADER_STAGE_FRAGMENT_BIT, 0, 16, colour.float32);
                vkCmdDraw(commands, 3, 1, 0, 0);
                pass.End(commands);
                VkBufferImageCopy copy{};
                copy.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
                copy.imageExtent = {width, height, 1};
                vkCmdCopyImageToBuffer(commands, image, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL, pixels, 1, &copy);
                VkMemoryBarrier toHost{VK_STRUCTURE_TYPE_MEMORY_BARRIER, nullptr, VK_ACCESS_TRANSFER_WRITE_BIT,
                                       VK_ACCESS_HOST_READ_BIT};
                vkCmdPipelineBarrier(commands, VK_PIPELINE_STAGE_TRANSFER_BIT, VK_PIPELINE_STAGE_HOST_BIT, 0, 1,
                                     &toHost, 0, nullptr, 0, nullptr);
            },
            "read back"));
        return {pixels.Data(), pixels.Data() + pixels.Count()};
    }
};

TEST_F(VkPipelines, ATriangleReadsBackAsItsColourInsideAndTheClearColourOutside) {
    // Points at least 4 pixels from every edge; near the top the rows are wide.
    constexpr uint32_t probes[][3] = {{32, 20, 1}, {32, 30, 1}, {32, 40, 1}, {22, 20, 1}, {42, 20, 1}, {28, 32, 1},
                                      {20, 18, 1}, {44, 18, 1}, {32, 44, 1}, {2, 2, 0},   {32, 8, 0},  {61, 61, 0},
                                      {10, 40, 0}, {54, 40, 0}, {32, 56, 0}, {20, 44, 0}, {44, 44, 0}};
    std::vector<uint32_t> const pixels = Draw(Colour(0, 0, 1), Colour(1, 0, 0));
    for (auto const& [x, y, inside] : probes)
        EXPECT_EQ(pixels[y * 64 + x], inside ? Rgba(255, 0, 0) : Rgba(0, 0, 255)) << x << ", " << y;
}

TEST_F(VkPipelines, AfterRefreshViewportThePipelineDrawsIntoANewPassOfAnotherSizeAndFormat) {
    std::vector<uint32_t> const pixels = Draw(Colour(0, 0, 1), Colour(1, 0, 0), {}, 32, 16, VK_FORMAT_B8G8R8A8_UNORM);
    // In 32 x 16 the triangle is (8, 4), (24, 4), (16, 12): the viewport follows the new extent.
    constexpr uint32_t probes[][3] = {{16, 6, 1}, {16, 9, 1},  {12, 5, 1}, {20, 5, 1}, {1, 1, 0},
                                      {16, 1, 0}, {30, 14, 0}, {9, 11, 0}, {23, 11, 0}};
    for (auto const& [x, y, inside] : probes) // BGRA bytes: red and blue trade places
        EXPECT_EQ(pixels[y * 32 + x], inside ? Rgba(0, 0, 255) : Rgba(255, 0, 0)) << x << ", " << y;
}

TEST_F(VkPipelines, ARenderpassKeepsOneFramebufferPerTargetUntilForgotten) {
    Image a(Dev(), 16, 16, VK_FORMAT_R8G8B8A8_UNORM, TargetUsage, "a");
    Image b(Dev(), 16, 16, VK_FORMAT_R8G8B8A8_UNORM, TargetUsage, "b");
    Renderpass pass(Dev(), VK_FORMAT_R8G8B8A8_UNORM, 16, 16, TargetUsage, ClearThenCopy);
    auto drawInto = [&](std::vector<VkImageView> const& views) {
        return CommandBuffer::Run(
            Dev(), Dev().GraphicsQueue(),
            [&](VkCommandBuffer commands) {
                for (VkImageView view : views) pass.Begin(commands, view), pass.End(commands);
            },
            "empty passes");
    };
    ASSERT_TRUE(drawInto({a.View(), a.View(), b.View()}));
    EXPECT_EQ(pass.TargetCount(), 2u) << "the second use of a view reuses its framebuffer";
    pass.ForgetTarget(a.View());
    pass.ForgetTarget(a.View()); // already gone: nothing happens
    ASSERT_EQ(pass.TargetCount(), 1u);
    ASSERT_TRUE(drawInto({a.View(), b.View()}));
    EXPECT_EQ(pass.TargetCount(), 2u) << "a forgotten view gets a new framebuffer";
}

TEST_F(VkPipelines, ShaderFilesThatAreMissingOrNotSpirvAreRefusedByName) {
    testsupport::TempDir dir;
    std::string const vert = std::string(Triangle) + ".vert.spv";
    std::filesystem::copy_file(vert, dir.File("lonely.vert.spv")); // a vertex stage alone is not enough
    Renderpass pass(Dev(), VK_FORMAT_R8G8B8A8_UNORM, 8, 8, TargetUsage, ClearThenCopy);
    for (auto const& [path, file] :
         {std::pair<std::string, std::string>("shaders/no_such_shader", "shaders/no_such_shader.vert.spv"),
          {dir.File("lonely"), dir.File("lonely.frag.spv")}})
        EXPECT_THAT([&] { GraphicsPipeline(Dev(), layout, pass, path); },
                    ThrowsMessage<std::runtime_error>("Cannot load shader " + file + ": no such file"));
    std::tuple<char const*, std::string, char const*> const cases[] = {
        {"empty.spv", "", "its size of 0 bytes is not a non-zero multiple of 4"},
        {"odd.spv", std::string("\x03\x02\x23\x07\x00", 5), "its size of 5 bytes is not a non-zero multiple of 4"},
        {"word.spv", std::string("\x03\x02\x23\x07", 4), "its 4 bytes are too few for a SPIR-V header"},
        // Whole words, only the magic number wrong: the bytes of a big-endian module.
        {"swapped.spv", std::string("\x07\x23\x02\x03", 4) + std::string(20, '\0'), "not SPIR-V (no magic number)"},
        {"", "", "not a regular file"}, // the folder itself
    };
    for (auto const& [name, bytes, why] : cases) {
        if (*name) testsupport::WriteText(dir.File(name), bytes);
        EXPECT_THAT([&] { LoadSpirv(dir.File(name)); },
                    ThrowsMessage<std::runtime_error>("Cannot load shader " + dir.File(name) + ": " + why));
    }
    std::vector<uint32_t> const words = LoadSpirv(vert);
    EXPECT_EQ(words.at(0), 0x07230203u);
    EXPECT_EQ(words.size() * 4, std::filesystem::file_size(vert));
}

using VkCompute = VkTest;

TEST_F(VkCompute, WhatADispatchWritesToAComputeTextureIsSampledByTheNextSubmissionAndTheRestStaysClear) {
    nerox::graphics::ComputeTexture texture(engine.get(), 8, 4, VK_FORMAT_R32G32_SFLOAT, 0);
    EXPECT_EQ(texture.Name(), "ComputeTexture [8x4]");
    // Binding 0 the texture to write, 1 the same to sample, 2 the buffer that takes the samples.
    VkDescriptorSetLayoutBinding const bindings[] = {
        {0, VK_DESCRIPTOR_TYPE_STORAGE_IMAGE, 1, VK_SHADER_STAGE_COMPUTE_BIT, nullptr},
        {1, VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER, 1, VK_SHADER_STAGE_COMPUTE_BIT, nullptr},
        {2, VK_DESCRIPTOR_TYPE_STORAGE_BUFFER, 1, VK_SHADER_STAGE_COMPUTE_BIT, nullptr}};
    VkDescriptorSetLayoutCreateInfo setInfo{VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_CREATE_INFO};
    setInfo.bindingCount = 3;
    setInfo.pBindings = bindings;
    VkDescriptorSetLayout setLayout = VK_NULL_HANDLE;
    ASSERT_EQ(vkCreateDescriptorSetLayout(Dev(), &setInfo, nullptr, &setLayout), VK_SUCCESS);
    VkDescriptorPoolSize const sizes[] = {{VK_DESCRIPTOR_TYPE_STORAGE_IMAGE, 1},
                                          {VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER, 1},
                                          {VK_DESCRIPTOR_TYPE_STORAGE_BUFFER, 1}};
    VkDescriptorPoolCreateInfo poolInfo{VK_STRUCTURE_TYPE_DESCRIPTOR_POOL_CREATE_INFO};
    poolInfo.maxSets = 1;
    poolInfo.poolSizeCount = 3;
    poolInfo.pPoolSizes = sizes;
    VkDescriptorPool pool = VK_NULL_HANDLE;
    ASSERT_EQ(vkCreateDescriptorPool(Dev(), &poolInfo, nullptr, &pool), VK_SUCCESS);
    VkDescriptorSetAllocateInfo allocate{VK_STRUCTURE_TYPE_DESCRIPTOR_SET_ALLOCATE_INFO, nullptr, pool, 1, &setLayout};
    VkDescriptorSet set = VK_NULL_HANDLE;
    ASSERT_EQ(vkAllocateDescriptorSets(Dev(), &allocate, &set), VK_SUCCESS);
    {
        Sampler sampler(Dev());
        MappedBuffer<float, 4, 0x800> pixels(Dev(), 8 * 4 * 2, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT, "pixels");
        VkDescriptorImageInfo const images[] = {{VK_NULL_HANDLE, texture.GetImageView(), texture.GetImageLayout()},
                                                {sampler, texture.GetImageView(), texture.GetImageLayout()}};
        VkDescriptorBufferInfo const buffer{pixels, 0, VK_WHOLE_SIZE};
        VkWriteDescriptorSet writes[3];
        for (uint32_t i = 0; i < 3; ++i) {
            writes[i] = {VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET,
                         nullptr,
                         set,
                         i,
                         0,
                         1,
                         bindings[i].descriptorType,
                         i < 2 ? &images[i] : nullptr,
                         i == 2 ? &buffer : nullptr,
                         nullptr};
        }
        vkUpdateDescriptorSets(Dev(), 3, writes, 0, nullptr);
        PipelineLayout layout(Dev(), {setLayout}, {{VK_SHADER_STAGE_COMPUTE_BIT, 0, 4}}, "fill");
        ComputePipeline fill(Dev(), layout, "shaders/fill"), sample(Dev(), layout, "shaders/sample");
        float const offset = 0.5f;
        EXPECT_THAT([&] { fill.Dispatch(VK_NULL_HANDLE, 0, 1); },
                    ThrowsMessage<std::runtime_error>(HasSubstr("Dispatch of 0x1x1 work groups")));
        auto run = [&](ComputePipeline const& pipeline, uint32_t groups, char const* name) {
            return CommandBuffer::Run(
                Dev(), Dev().GraphicsQueue(),
                [&](VkCommandBuffer commands) {
                    pipeline.Bind(commands);
                    vkCmdBindDescriptorSets(commands, VK_PIPELINE_BIND_POINT_COMPUTE, pipeline.Layout(), 0, 1, &set, 0,
                                            nullptr);
                    vkCmdPushConstants(commands, layout, VK_SHADER_STAGE_COMPUTE_BIT, 0, 4, &offset);
                    pipeline.Dispatch(commands, groups, groups);
                    texture.Push(commands); // as a renderer's push list would, after the writers
                    VkMemoryBarrier toHost{VK_STRUCTURE_TYPE_MEMORY_BARRIER, nullptr, VK_ACCESS_SHADER_WRITE_BIT,
                                           VK_ACCESS_HOST_READ_BIT};
                    vkCmdPipelineBarrier(commands, VK_PIPELINE_STAGE_COMPUTE_SHADER_BIT, VK_PIPELINE_STAGE_HOST_BIT, 0,
                                         1, &toHost, 0, nullptr, 0, nullptr);
                },
                name);
        };
        // One 4 x 4 group: the right half keeps its clear. Then a frame later, the samples.
        ASSERT_TRUE(run(fill, ComputePipeline::GroupsFor(4, 4), "fill"));
        ASSERT_TRUE(run(sample, 1, "sample"));
        for (uint32_t y = 0; y < 4; ++y) {
            for (uint32_t x = 0; x < 8; ++x) {
                bool const written = x < 4;
                EXPECT_EQ(std::pair(pixels[(y * 8 + x) * 2], pixels[(y * 8 + x) * 2 + 1]),
                          written ? std::pair(x + offset, 2.0f * y) : std::pair(0.0f, 0.0f))
                    << x << ", " << y;
            }
        }
    }
    vkDestroyDescriptorPool(Dev(), pool, nullptr);
    vkDestroyDescriptorSetLayout(Dev(), setLayout, nullptr);
}

TEST_F(VkCompute, ADynamicTextureUploadsItsNewestImageOncePerPushAndTakesRegions) {
    using nerox::graphics::DynamicAsyncTexture;
    std::vector<std::shared_ptr<nerox::graphics::Texture>> pushList;
    auto texture = std::make_shared<DynamicAsyncTexture>(
        engine.get(), 3, 2, [&pushList](std::shared_ptr<nerox::graphics::Texture> t) { pushList.push_back(t); });
    std::vector<uint32_t> older(6, 0xFF0000FF), newer{1, 2, 3, 4, 5, 6};
    EXPECT_TRUE(texture->Load(older.data(), 24));
    EXPECT_TRUE(texture->Load(newer.data(), 24));
    EXPECT_FALSE(texture->Load(newer.data(), 20)); // not a frame of this size
    ASSERT_EQ(pushList.size(), 1u);                // one push for both frames
    testsupport::PixelBuffer shown(Dev(), 6, VK_BUFFER_USAGE_TRANSFER_DST_BIT, "shown");
    auto pushAndRead = [&] { return testsupport::PushAndRead(Dev(), *texture, shown); };
    ASSERT_TRUE(pushAndRead());
    EXPECT_EQ(std::vector<uint32_t>(shown.Data(), shown.Data() + 6), newer);
    ASSERT_TRUE(pushAndRead()); // nothing new: no upload
    EXPECT_EQ(texture->Uploads(), 1u);
    EXPECT_TRUE(texture->Load(older.data(), 24)); // after the push, the next frame asks again
    EXPECT_EQ(pushList.size(), 2u);
    ASSERT_TRUE(pushAndRead());
    EXPECT_EQ(std::vector<uint32_t>(shown.Data(), shown.Data() + 6), older);

    // Region frames: "NXR1", x, y, width, height, then the rectangle's pixels.
    auto region = [](std::vector<uint32_t> header, std::vector<uint32_t> const& pixels) {
        header.insert(header.begin(), 0x3152584Eu); // "NXR1" on a little-endian machine
        header.insert(header.end(), pixels.begin(), pixels.end());
        return header;
    };
    for (auto const& bad : {region({2, 0, 2, 1}, {7, 8}), region({0, 1, 1, 2}, {7, 8}), region({0, 0, 0, 1}, {}),
                            region({0, 0, 2, 1}, {7, 8, 9}), std::vector<uint32_t>{0, 0, 0, 1, 1, 7, 8}})
        EXPECT_FALSE(texture->Load(bad.data(), bad.size() * 4)) << bad.size();
    // A region frame of the whole image's size reads as the whole image.
    std::vector<uint32_t> const whole = region({0, 0, 1, 1}, {6});
    ASSERT_EQ(whole.size() * 4, 24u);
    EXPECT_TRUE(texture->Load(whole.data(), 24));
    std::vector<uint32_t> const band = region({1, 1, 2, 1}, {7, 8}), top = region({0, 0, 2, 1}, {9, 10});
    EXPECT_TRUE(texture->Load(band.data(), band.size() * 4));
    EXPECT_TRUE(texture->Load(top.data(), top.size() * 4)); // all three reach the next push
    ASSERT_TRUE(pushAndRead());
    EXPECT_EQ(std::vector<uint32_t>(shown.Data(), shown.Data() + 6),
              (std::vector<uint32_t>{9, 10, whole[2], whole[3], 7, 8}));
}

using VkComputeDeathTest = VkTest;

TEST_F(VkComputeDeathTest, AComputeTextureRefusesAnEmptySizeAndCannotBeReloaded) {
    using nerox::graphics::ComputeTexture;
    EXPECT_THAT([&] { ComputeTexture(engine.get(), 0, 4, VK_FORMAT_R32G32_SFLOAT, 0); },
                ThrowsMessage<std::runtime_error>("ComputeTexture [0x4]: empty size"));
    EXPECT_THAT([&] { ComputeTexture(nullptr, 4, 4, VK_FORMAT_R32G32_SFLOAT, 0); },
                ThrowsMessage<std::runtime_error>("ComputeTexture [4x4]: no engine"));
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ComputeTexture texture(engine.get(), 2, 2, VK_FORMAT_R32G32_SFLOAT, 0);
    EXPECT_DEATH(texture.Reload(),
                 "ASSERTION FAILED: \\(!\"Cannot reload a compute texture\"\\) in .*ComputeTexture.cpp");
}

} // namespace
