// Render passes and graphics pipelines: a triangle drawn offscreen reads back
// as its colour inside and the clear colour outside; shader files that are
// missing or not SPIR-V are refused by name.
#include "VkFixture.hpp"
#include "support/TempDir.hpp"

#include "nerox/vk/Buffer.hpp"
#include "nerox/vk/CommandBuffer.hpp"
#include "nerox/vk/Image.hpp"
#include "nerox/vk/Pipeline.hpp"
#include "nerox/vk/Renderpass.hpp"

#include <filesystem>
#include <functional>

namespace vktest {
namespace {

using namespace nerox::vk;

constexpr char const* Triangle = "shaders/triangle"; // relative to the tests' working folder
constexpr VkImageUsageFlags TargetUsage = VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT;

/// R8G8B8A8 texel of the bytes r, g, b, a.
constexpr uint32_t Rgba(uint32_t r, uint32_t g, uint32_t b, uint32_t a = 255) { return r | g << 8 | b << 16 | a << 24; }
uint32_t Channel(uint32_t texel, int channel) { return (texel >> (8 * channel)) & 0xFF; }
VkClearColorValue Colour(float r, float g, float b, float a = 1.0f) { return VkClearColorValue{{r, g, b, a}}; }

RenderpassOptions ClearThenCopy()
{
    RenderpassOptions options;
    options.loadOp = VK_ATTACHMENT_LOAD_OP_CLEAR;
    options.initialLayout = VK_IMAGE_LAYOUT_UNDEFINED;
    options.finalLayout = VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL;
    return options;
}

// In a W x H target the triangle covers the pixels whose centres lie inside
// (W/4, H/4), (3W/4, H/4), (W/2, 3H/4): the apex points down the image.
// Points of 64 x 64, at least 4 pixels from every edge; near the top the rows are wide.
struct Probe {
    uint32_t x, y;
    bool inside;
};
constexpr Probe Probes64[] = {{32, 20, true},  {32, 30, true},  {32, 40, true},  {22, 20, true},  {42, 20, true},
                              {28, 32, true},  {20, 18, true},  {44, 18, true},  {32, 44, true},  {2, 2, false},
                              {32, 8, false},  {61, 61, false}, {10, 40, false}, {54, 40, false}, {32, 56, false},
                              {20, 44, false}, {44, 44, false}};

class VkPipelines : public VkTest {
protected:
    PipelineLayout layout{Dev(), {}, {{VK_SHADER_STAGE_FRAGMENT_BIT, 0, 16}}, "colour"};

    void Draw(VkCommandBuffer commands, GraphicsPipeline const& pipeline, VkClearColorValue colour)
    {
        pipeline.Bind(commands);
        vkCmdPushConstants(commands, layout, VK_SHADER_STAGE_FRAGMENT_BIT, 0, 16, colour.float32);
        vkCmdDraw(commands, 3, 1, 0, 0);
    }
    /// Runs record, which leaves image in the transfer-source layout, and returns its texels row by row.
    std::vector<uint32_t> ReadBack(Image const& image, std::function<void(VkCommandBuffer)> const& record)
    {
        MappedBuffer<uint32_t, 4, 0x800> pixels(Dev(), image.Width() * image.Height(), VK_BUFFER_USAGE_TRANSFER_DST_BIT,
                                                "pixels");
        EXPECT_TRUE(CommandBuffer::Run(Dev(), Dev().GraphicsQueue(), [&](VkCommandBuffer commands) {
            record(commands);
            VkBufferImageCopy copy{};
            copy.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
            copy.imageExtent = {image.Width(), image.Height(), 1};
            vkCmdCopyImageToBuffer(commands, image, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL, pixels, 1, &copy);
            VkBufferMemoryBarrier toHost{VK_STRUCTURE_TYPE_BUFFER_MEMORY_BARRIER, nullptr, VK_ACCESS_TRANSFER_WRITE_BIT,
                                         VK_ACCESS_HOST_READ_BIT, VK_QUEUE_FAMILY_IGNORED, VK_QUEUE_FAMILY_IGNORED,
                                         pixels, 0, VK_WHOLE_SIZE};
            vkCmdPipelineBarrier(commands, VK_PIPELINE_STAGE_TRANSFER_BIT, VK_PIPELINE_STAGE_HOST_BIT, 0, 0, nullptr, 1,
                                 &toHost, 0, nullptr);
        }, "read back"));
        return {pixels.Data(), pixels.Data() + pixels.Count()};
    }
    /// The triangle in colour over clear on a 64 x 64 target.
    std::vector<uint32_t> DrawSquare(VkClearColorValue clear, VkClearColorValue colour,
                                     GraphicsPipelineOptions const& options = {})
    {
        Image image(Dev(), 64, 64, VK_FORMAT_R8G8B8A8_UNORM, TargetUsage, "target");
        Renderpass pass(Dev(), image.Format(), 64, 64, TargetUsage, ClearThenCopy());
        GraphicsPipeline pipeline(Dev(), layout, pass, Triangle, options);
        return ReadBack(image, [&](VkCommandBuffer commands) {
            pass.Begin(commands, image.View(), clear);
            Draw(commands, pipeline, colour);
            pass.End(commands);
        });
    }
    /// The message of the std::runtime_error that building a pipeline from shaderPath throws.
    std::string BuildError(std::string const& shaderPath)
    {
        Renderpass pass(Dev(), VK_FORMAT_R8G8B8A8_UNORM, 8, 8, TargetUsage, ClearThenCopy());
        return Thrown([&] { GraphicsPipeline(Dev(), layout, pass, shaderPath); });
    }
};

TEST_F(VkPipelines, ATriangleReadsBackAsItsColourInsideAndTheClearColourOutside) {
    std::vector<uint32_t> const pixels = DrawSquare(Colour(0, 0, 1), Colour(1, 0, 0));
    for (Probe const& p : Probes64)
        EXPECT_EQ(pixels[p.y * 64 + p.x], p.inside ? Rgba(255, 0, 0) : Rgba(0, 0, 255)) << p.x << ", " << p.y;
}

TEST_F(VkPipelines, AlphaBlendingIsOnByDefaultAndCanBeTurnedOff) {
    uint32_t const over = DrawSquare(Colour(0, 0, 0), Colour(1, 1, 1, 0.5f))[30 * 64 + 32];
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(Channel(over, c), 127.5, 0.5) << "half of white over black, channel " << c;
    EXPECT_EQ(Channel(over, 3), 255u) << "over an opaque target stays opaque";
    GraphicsPipelineOptions opaque;
    opaque.alphaBlending = false;
    std::vector<uint32_t> const written = DrawSquare(Colour(0, 0, 0), Colour(1, 1, 1, 0.5f), opaque);
    EXPECT_EQ(written[30 * 64 + 32] & 0xFFFFFF, 0xFFFFFFu) << "replaced";
    EXPECT_NEAR(Channel(written[30 * 64 + 32], 3), 127.5, 0.5);
    EXPECT_EQ(written[2 * 64 + 2], Rgba(0, 0, 0));
}

TEST_F(VkPipelines, AClearedImageCopiesBackAsItsColour) {
    Image image(Dev(), 8, 4, VK_FORMAT_R8G8B8A8_UNORM, VK_IMAGE_USAGE_TRANSFER_DST_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT,
                "cleared");
    EXPECT_EQ(image.View(), VK_NULL_HANDLE) << "transfer-only: no view";
    std::vector<uint32_t> const pixels = ReadBack(image, [&](VkCommandBuffer commands) {
        image.Transition(commands, VK_IMAGE_LAYOUT_UNDEFINED, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL);
        VkClearColorValue const colour = Colour(1, 0, 1);
        VkImageSubresourceRange const range{VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
        vkCmdClearColorImage(commands, image, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, &colour, 1, &range);
        image.Transition(commands, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL);
    });
    EXPECT_EQ(pixels, std::vector<uint32_t>(32, Rgba(255, 0, 255)));
}

TEST_F(VkPipelines, AfterRefreshViewportThePipelineDrawsIntoANewPassOfAnotherSizeAndFormat) {
    auto firstPass = std::make_unique<Renderpass>(Dev(), VK_FORMAT_R8G8B8A8_UNORM, 64, 64, TargetUsage, ClearThenCopy());
    GraphicsPipeline pipeline(Dev(), layout, *firstPass, Triangle);
    // As after a swapchain change: the old pass goes, one of another size and a
    // swapchain-like format takes its place. A pipeline not rebuilt would be incompatible.
    firstPass.reset();
    Image wide(Dev(), 32, 16, VK_FORMAT_B8G8R8A8_UNORM, TargetUsage, "wide");
    Renderpass secondPass(Dev(), wide.Format(), 32, 16, TargetUsage, ClearThenCopy());
    pipeline.RefreshViewport(secondPass);
    std::vector<uint32_t> const pixels = ReadBack(wide, [&](VkCommandBuffer commands) {
        secondPass.Begin(commands, wide.View(), Colour(0, 0, 1));
        Draw(commands, pipeline, Colour(1, 0, 0));
        secondPass.End(commands);
    });
    // In 32 x 16 the triangle is (8, 4), (24, 4), (16, 12): the viewport follows the new extent.
    constexpr Probe probes[] = {{16, 6, true},  {16, 9, true},  {12, 5, true},   {20, 5, true},  {1, 1, false},
                                {16, 1, false}, {30, 14, false}, {9, 11, false}, {23, 11, false}};
    for (Probe const& p : probes) // BGRA bytes: red and blue trade places
        EXPECT_EQ(pixels[p.y * 32 + p.x], p.inside ? Rgba(0, 0, 255) : Rgba(255, 0, 0)) << p.x << ", " << p.y;
}

TEST_F(VkPipelines, ARenderpassKeepsOneFramebufferPerTargetUntilForgotten) {
    Image a(Dev(), 16, 16, VK_FORMAT_R8G8B8A8_UNORM, TargetUsage, "a");
    Image b(Dev(), 16, 16, VK_FORMAT_R8G8B8A8_UNORM, TargetUsage, "b");
    RenderpassOptions options;
    options.loadOp = VK_ATTACHMENT_LOAD_OP_DONT_CARE;
    options.initialLayout = VK_IMAGE_LAYOUT_UNDEFINED;
    Renderpass pass(Dev(), VK_FORMAT_R8G8B8A8_UNORM, 16, 16, TargetUsage, options);
    auto drawInto = [&](VkImageView view) {
        return CommandBuffer::Run(Dev(), Dev().GraphicsQueue(), [&](VkCommandBuffer commands) {
            pass.Begin(commands, view);
            pass.End(commands);
        }, "empty pass");
    };
    for (VkImageView view : {a.View(), a.View(), b.View()}) ASSERT_TRUE(drawInto(view));
    EXPECT_EQ(pass.TargetCount(), 2u) << "the second use of a view reuses its framebuffer";
    pass.ForgetTarget(a.View());
    pass.ForgetTarget(a.View()); // already gone: nothing happens
    EXPECT_EQ(pass.TargetCount(), 1u);
    for (VkImageView view : {a.View(), b.View()}) ASSERT_TRUE(drawInto(view));
    EXPECT_EQ(pass.TargetCount(), 2u) << "a forgotten view gets a new framebuffer";
}

TEST_F(VkPipelines, LoadingATargetOfUndefinedLayoutIsRefused) {
    RenderpassOptions options;
    options.initialLayout = VK_IMAGE_LAYOUT_UNDEFINED; // with the default LOAD
    options.name = "undefined load";
    auto const make = [&] { Renderpass(Dev(), VK_FORMAT_R8G8B8A8_UNORM, 8, 8, TargetUsage, options); };
    EXPECT_EQ(Thrown<std::invalid_argument>(make),
              "Renderpass undefined load: loading a target in the undefined layout; clear it or give its layout");
    options.initialLayout = VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL;
    options.finalLayout = VK_IMAGE_LAYOUT_UNDEFINED;
    options.name.clear();
    EXPECT_EQ(Thrown<std::invalid_argument>(make), "Renderpass (unnamed): the final layout must be a defined one");
}

TEST_F(VkPipelines, ShaderFilesThatAreMissingOrNotSpirvAreRefusedByName) {
    testsupport::TempDir dir;
    std::string const vert = std::string(Triangle) + ".vert.spv";
    std::filesystem::copy_file(vert, dir.File("lonely.vert.spv")); // a vertex stage alone is not enough
    EXPECT_EQ(BuildError("shaders/no_such_shader"), "Cannot load shader shaders/no_such_shader.vert.spv: no such file");
    EXPECT_EQ(BuildError(dir.File("lonely")), "Cannot load shader " + dir.File("lonely.frag.spv") + ": no such file");

    struct Case {
        char const* name;
        std::string bytes;
        char const* why;
    } const cases[] = {
        {"empty.spv", "", "its size of 0 bytes is not a non-zero multiple of 4"},
        {"odd.spv", std::string("\x03\x02\x23\x07\x00", 5), "its size of 5 bytes is not a non-zero multiple of 4"},
        {"word.spv", std::string("\x03\x02\x23\x07", 4), "its 4 bytes are too few for a SPIR-V header"},
        // Whole words, only the magic number wrong: the bytes of a big-endian module.
        {"swapped.spv", std::string("\x07\x23\x02\x03", 4) + std::string(20, '\0'), "not SPIR-V (no magic number)"},
        {"", "", "not a regular file"}, // the folder itself
    };
    for (Case const& c : cases) {
        if (*c.name) testsupport::WriteText(dir.File(c.name), c.bytes);
        EXPECT_EQ(Thrown([&] { LoadSpirv(dir.File(c.name)); }), "Cannot load shader " + dir.File(c.name) + ": " + c.why);
    }
    std::vector<uint32_t> const words = LoadSpirv(vert);
    ASSERT_GE(words.size(), 5u);
    EXPECT_EQ(words[0], 0x07230203u);
    EXPECT_EQ(words.size() * 4, std::filesystem::file_size(vert));
}

} // namespace
} // namespace vktest
