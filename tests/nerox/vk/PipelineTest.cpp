// Render passes and graphics pipelines: a triangle drawn offscreen reads back
// as its colour inside and the clear colour outside; shader files that are
// missing or not SPIR-V are refused by name.
#include "VkFixture.hpp"

#include "nerox/vk/Buffer.hpp"
#include "nerox/vk/CommandBuffer.hpp"
#include "nerox/vk/Image.hpp"
#include "nerox/vk/Pipeline.hpp"
#include "nerox/vk/Renderpass.hpp"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace vktest {
namespace {

using nerox::vk::CommandBuffer;
using nerox::vk::GraphicsPipeline;
using nerox::vk::GraphicsPipelineOptions;
using nerox::vk::Image;
using nerox::vk::LoadSpirv;
using nerox::vk::MappedBuffer;
using nerox::vk::PipelineLayout;
using nerox::vk::Renderpass;
using nerox::vk::RenderpassOptions;

/// Compiled test shaders, relative to the tests' working folder.
constexpr char const* Triangle = "shaders/triangle";

/// Read-back pixels, one packed texel each.
using Pixels = MappedBuffer<uint32_t, 4, 0x800>;

constexpr VkImageUsageFlags TargetUsage = VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT;

/// R8G8B8A8 texel of the bytes r, g, b, a.
constexpr uint32_t Rgba(uint32_t r, uint32_t g, uint32_t b, uint32_t a) { return r | g << 8 | b << 16 | a << 24; }
/// B8G8R8A8 texel of the bytes r, g, b, a.
constexpr uint32_t Bgra(uint32_t r, uint32_t g, uint32_t b, uint32_t a) { return b | g << 8 | r << 16 | a << 24; }

VkClearColorValue Colour(float r, float g, float b, float a)
{
    VkClearColorValue colour{};
    colour.float32[0] = r;
    colour.float32[1] = g;
    colour.float32[2] = b;
    colour.float32[3] = a;
    return colour;
}

/// Layout of the test pipeline: a vec4 colour pushed to the fragment shader.
PipelineLayout ColourLayout(nerox::vk::Device& device)
{
    return PipelineLayout(device, {}, {{VK_SHADER_STAGE_FRAGMENT_BIT, 0, 16}}, "colour");
}

/// A clearing pass that leaves its target ready to be copied.
RenderpassOptions ClearThenCopy(std::string const& name)
{
    RenderpassOptions options;
    options.loadOp = VK_ATTACHMENT_LOAD_OP_CLEAR;
    options.initialLayout = VK_IMAGE_LAYOUT_UNDEFINED;
    options.finalLayout = VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL;
    options.name = name;
    return options;
}

/// Records the triangle in colour, drawn with pipeline.
void DrawTriangle(VkCommandBuffer commands, GraphicsPipeline const& pipeline, PipelineLayout const& layout,
                  VkClearColorValue colour)
{
    pipeline.Bind(commands);
    vkCmdPushConstants(commands, layout, VK_SHADER_STAGE_FRAGMENT_BIT, 0, 16, colour.float32);
    vkCmdDraw(commands, 3, 1, 0, 0);
}

/// Records a copy of image (in the transfer-source layout) into pixels, made visible to the host.
void CopyOut(VkCommandBuffer commands, Image const& image, Pixels& pixels)
{
    VkBufferImageCopy copy{};
    copy.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
    copy.imageExtent = {image.Width(), image.Height(), 1};
    vkCmdCopyImageToBuffer(commands, image, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL, pixels, 1, &copy);
    VkBufferMemoryBarrier toHost{VK_STRUCTURE_TYPE_BUFFER_MEMORY_BARRIER};
    toHost.srcAccessMask = VK_ACCESS_TRANSFER_WRITE_BIT;
    toHost.dstAccessMask = VK_ACCESS_HOST_READ_BIT;
    toHost.srcQueueFamilyIndex = toHost.dstQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
    toHost.buffer = pixels;
    toHost.size = VK_WHOLE_SIZE;
    vkCmdPipelineBarrier(commands, VK_PIPELINE_STAGE_TRANSFER_BIT, VK_PIPELINE_STAGE_HOST_BIT, 0, 0, nullptr, 1,
                         &toHost, 0, nullptr);
}

/// Texel (x, y) of a read-back image width texels wide.
uint32_t At(Pixels const& pixels, uint32_t width, uint32_t x, uint32_t y) { return pixels[size_t{y} * width + x]; }

/// Byte channel of a packed texel.
uint32_t Channel(uint32_t texel, int channel) { return (texel >> (8 * channel)) & 0xFF; }

// The triangle covers, in a W x H target, the pixels whose centres lie inside
// (W/4, H/4), (3W/4, H/4), (W/2, 3H/4). For 64 x 64 that is (16, 16), (48, 16),
// (32, 48); the points below are at least 4 pixels from every edge.
constexpr uint32_t Inside64[][2] = {{32, 20}, {32, 30}, {32, 40}, {22, 20}, {42, 20}, {28, 32}};
constexpr uint32_t Outside64[][2] = {{2, 2}, {32, 8}, {61, 61}, {10, 40}, {54, 40}, {32, 56}, {5, 60}};

class VkPipelines : public VkTest {
protected:
    /// Clears a 64 x 64 R8G8B8A8 target to clear, draws the triangle in colour
    /// with pipeline (made with options) and reads it back into pixels.
    void DrawSquare(VkClearColorValue clear, VkClearColorValue colour, Pixels& pixels,
                    GraphicsPipelineOptions const& options = {})
    {
        Image image(Dev(), 64, 64, VK_FORMAT_R8G8B8A8_UNORM, TargetUsage, "target");
        Renderpass pass(Dev(), image.Format(), 64, 64, TargetUsage, ClearThenCopy("square"));
        PipelineLayout layout = ColourLayout(Dev());
        GraphicsPipeline pipeline(Dev(), layout, pass, Triangle, options);
        ASSERT_TRUE(CommandBuffer::Run(Dev(), Dev().GraphicsQueue(), [&](VkCommandBuffer commands) {
            pass.Begin(commands, image.View(), clear);
            DrawTriangle(commands, pipeline, layout, colour);
            pass.End(commands);
            CopyOut(commands, image, pixels);
        }, "draw square"));
    }
};

// ---------------------------------------------------------------- drawing

TEST_F(VkPipelines, ATriangleReadsBackAsItsColourInsideAndTheClearColourOutside) {
    Pixels pixels(Dev(), 64 * 64, VK_BUFFER_USAGE_TRANSFER_DST_BIT, "pixels");
    DrawSquare(Colour(0, 0, 1, 1), Colour(1, 0, 0, 1), pixels);
    for (auto const& p : Inside64) EXPECT_EQ(At(pixels, 64, p[0], p[1]), Rgba(255, 0, 0, 255)) << p[0] << ", " << p[1];
    for (auto const& p : Outside64) EXPECT_EQ(At(pixels, 64, p[0], p[1]), Rgba(0, 0, 255, 255)) << p[0] << ", " << p[1];
}

TEST_F(VkPipelines, TheApexPointsDownTheImageAsClipSpaceYGrowsDownward) {
    // Rows near the top edge are wide, rows near the apex narrow.
    Pixels pixels(Dev(), 64 * 64, VK_BUFFER_USAGE_TRANSFER_DST_BIT, "pixels");
    DrawSquare(Colour(0, 0, 0, 1), Colour(0, 1, 0, 1), pixels);
    uint32_t const green = Rgba(0, 255, 0, 255), black = Rgba(0, 0, 0, 255);
    EXPECT_EQ(At(pixels, 64, 20, 18), green);
    EXPECT_EQ(At(pixels, 64, 44, 18), green);
    EXPECT_EQ(At(pixels, 64, 20, 44), black);
    EXPECT_EQ(At(pixels, 64, 44, 44), black);
    EXPECT_EQ(At(pixels, 64, 32, 44), green);
}

TEST_F(VkPipelines, AlphaBlendingIsOnByDefaultAndCanBeTurnedOff) {
    Pixels blended(Dev(), 64 * 64, VK_BUFFER_USAGE_TRANSFER_DST_BIT, "blended");
    DrawSquare(Colour(0, 0, 0, 1), Colour(1, 1, 1, 0.5f), blended);
    uint32_t const over = At(blended, 64, 32, 30);
    for (int c = 0; c < 3; ++c) {
        EXPECT_GE(Channel(over, c), 127u) << "half of white over black, channel " << c;
        EXPECT_LE(Channel(over, c), 128u) << "half of white over black, channel " << c;
    }
    EXPECT_EQ(Channel(over, 3), 255u) << "over an opaque target stays opaque";

    Pixels written(Dev(), 64 * 64, VK_BUFFER_USAGE_TRANSFER_DST_BIT, "written");
    GraphicsPipelineOptions opaque;
    opaque.alphaBlending = false;
    DrawSquare(Colour(0, 0, 0, 1), Colour(1, 1, 1, 0.5f), written, opaque);
    uint32_t const replaced = At(written, 64, 32, 30);
    for (int c = 0; c < 3; ++c) EXPECT_EQ(Channel(replaced, c), 255u) << "channel " << c;
    EXPECT_GE(Channel(replaced, 3), 127u);
    EXPECT_LE(Channel(replaced, 3), 128u);
    EXPECT_EQ(At(written, 64, 2, 2), Rgba(0, 0, 0, 255));
}

TEST_F(VkPipelines, ALoadingPassKeepsWhatAnEarlierPassDrew) {
    Image image(Dev(), 64, 64, VK_FORMAT_R8G8B8A8_UNORM, TargetUsage, "target");
    RenderpassOptions clearing;
    clearing.loadOp = VK_ATTACHMENT_LOAD_OP_CLEAR;
    clearing.initialLayout = VK_IMAGE_LAYOUT_UNDEFINED;
    clearing.name = "clearing";
    Renderpass first(Dev(), image.Format(), 64, 64, TargetUsage, clearing);
    RenderpassOptions loading; // LOAD from the colour-attachment layout by default
    loading.finalLayout = VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL;
    Renderpass second(Dev(), image.Format(), 64, 64, TargetUsage, loading);
    EXPECT_EQ(second.Options().loadOp, VK_ATTACHMENT_LOAD_OP_LOAD);
    PipelineLayout layout = ColourLayout(Dev());
    // Made for the first pass, drawn in the second: the two are compatible.
    GraphicsPipeline pipeline(Dev(), layout, first, Triangle);
    Pixels pixels(Dev(), 64 * 64, VK_BUFFER_USAGE_TRANSFER_DST_BIT, "pixels");
    ASSERT_TRUE(CommandBuffer::Run(Dev(), Dev().GraphicsQueue(), [&](VkCommandBuffer commands) {
        first.Begin(commands, image.View(), Colour(1, 1, 0, 1));
        first.End(commands);
        second.Begin(commands, image.View(), Colour(1, 0, 1, 1)); // not a clearing pass: ignored
        DrawTriangle(commands, pipeline, layout, Colour(0, 1, 1, 1));
        second.End(commands);
        CopyOut(commands, image, pixels);
    }, "clear then load"));
    for (auto const& p : Inside64) EXPECT_EQ(At(pixels, 64, p[0], p[1]), Rgba(0, 255, 255, 255)) << p[0] << ", " << p[1];
    for (auto const& p : Outside64) EXPECT_EQ(At(pixels, 64, p[0], p[1]), Rgba(255, 255, 0, 255)) << p[0] << ", " << p[1];
}

TEST_F(VkPipelines, AfterRefreshViewportThePipelineDrawsIntoANewPassOfAnotherSizeAndFormat) {
    PipelineLayout layout = ColourLayout(Dev());
    Image square(Dev(), 64, 64, VK_FORMAT_R8G8B8A8_UNORM, TargetUsage, "square");
    auto firstPass = std::make_unique<Renderpass>(Dev(), square.Format(), 64, 64, TargetUsage, ClearThenCopy("first"));
    GraphicsPipeline pipeline(Dev(), layout, *firstPass, Triangle);
    Pixels squarePixels(Dev(), 64 * 64, VK_BUFFER_USAGE_TRANSFER_DST_BIT, "square pixels");
    ASSERT_TRUE(CommandBuffer::Run(Dev(), Dev().GraphicsQueue(), [&](VkCommandBuffer commands) {
        firstPass->Begin(commands, square.View(), Colour(0, 0, 1, 1));
        DrawTriangle(commands, pipeline, layout, Colour(1, 0, 0, 1));
        firstPass->End(commands);
        CopyOut(commands, square, squarePixels);
    }, "first size"));
    EXPECT_EQ(At(squarePixels, 64, 32, 30), Rgba(255, 0, 0, 255));

    // As after a swapchain change: the old pass goes, a new one of another
    // size and a swapchain-like format takes its place. A pipeline that was not
    // rebuilt would be incompatible with it.
    firstPass.reset();
    Image wide(Dev(), 32, 16, VK_FORMAT_B8G8R8A8_UNORM, TargetUsage, "wide");
    Renderpass secondPass(Dev(), wide.Format(), 32, 16, TargetUsage, ClearThenCopy("second"));
    pipeline.RefreshViewport(secondPass);
    EXPECT_NE(static_cast<VkPipeline>(pipeline), VK_NULL_HANDLE);
    EXPECT_EQ(secondPass.Extent().width, 32u);
    EXPECT_EQ(secondPass.Extent().height, 16u);
    EXPECT_EQ(secondPass.Format(), VK_FORMAT_B8G8R8A8_UNORM);

    Pixels widePixels(Dev(), 32 * 16, VK_BUFFER_USAGE_TRANSFER_DST_BIT, "wide pixels");
    ASSERT_TRUE(CommandBuffer::Run(Dev(), Dev().GraphicsQueue(), [&](VkCommandBuffer commands) {
        secondPass.Begin(commands, wide.View(), Colour(0, 0, 1, 1));
        DrawTriangle(commands, pipeline, layout, Colour(1, 0, 0, 1));
        secondPass.End(commands);
        CopyOut(commands, wide, widePixels);
    }, "second size"));
    // In 32 x 16 the triangle is (8, 4), (24, 4), (16, 12): the viewport follows the new extent.
    uint32_t const red = Bgra(255, 0, 0, 255), blue = Bgra(0, 0, 255, 255);
    EXPECT_EQ(At(widePixels, 32, 16, 6), red);
    EXPECT_EQ(At(widePixels, 32, 16, 9), red);
    EXPECT_EQ(At(widePixels, 32, 12, 5), red);
    EXPECT_EQ(At(widePixels, 32, 20, 5), red);
    EXPECT_EQ(At(widePixels, 32, 1, 1), blue);
    EXPECT_EQ(At(widePixels, 32, 16, 1), blue);
    EXPECT_EQ(At(widePixels, 32, 30, 14), blue);
    EXPECT_EQ(At(widePixels, 32, 9, 11), blue);
    EXPECT_EQ(At(widePixels, 32, 23, 11), blue);
}

// ---------------------------------------------------------------- framebuffers

TEST_F(VkPipelines, ARenderpassKeepsOneFramebufferPerTargetUntilForgotten) {
    Image a(Dev(), 16, 16, VK_FORMAT_R8G8B8A8_UNORM, TargetUsage, "a");
    Image b(Dev(), 16, 16, VK_FORMAT_R8G8B8A8_UNORM, TargetUsage, "b");
    RenderpassOptions options;
    options.loadOp = VK_ATTACHMENT_LOAD_OP_DONT_CARE;
    options.initialLayout = VK_IMAGE_LAYOUT_UNDEFINED;
    Renderpass pass(Dev(), VK_FORMAT_R8G8B8A8_UNORM, 16, 16, TargetUsage, options);
    EXPECT_EQ(static_cast<VkRenderPass>(pass), pass.Handle());
    EXPECT_EQ(pass.TargetCount(), 0u);
    auto drawInto = [&](VkImageView view) {
        return CommandBuffer::Run(Dev(), Dev().GraphicsQueue(), [&](VkCommandBuffer commands) {
            pass.Begin(commands, view);
            pass.End(commands);
        }, "empty pass");
    };
    ASSERT_TRUE(drawInto(a.View()));
    ASSERT_TRUE(drawInto(a.View()));
    EXPECT_EQ(pass.TargetCount(), 1u) << "the second use of a view reuses its framebuffer";
    ASSERT_TRUE(drawInto(b.View()));
    EXPECT_EQ(pass.TargetCount(), 2u);
    pass.ForgetTarget(a.View());
    EXPECT_EQ(pass.TargetCount(), 1u);
    pass.ForgetTarget(a.View()); // already gone: nothing happens
    EXPECT_EQ(pass.TargetCount(), 1u);
    ASSERT_TRUE(drawInto(a.View())) << "a forgotten view gets a new framebuffer";
    ASSERT_TRUE(drawInto(b.View()));
    EXPECT_EQ(pass.TargetCount(), 2u);
}

TEST_F(VkPipelines, LoadingATargetOfUndefinedLayoutIsRefused) {
    RenderpassOptions options;
    options.initialLayout = VK_IMAGE_LAYOUT_UNDEFINED; // with the default LOAD
    options.name = "undefined load";
    try {
        Renderpass pass(Dev(), VK_FORMAT_R8G8B8A8_UNORM, 8, 8, TargetUsage, options);
        FAIL() << "no exception";
    } catch (std::invalid_argument const& e) {
        EXPECT_NE(std::string(e.what()).find("undefined load"), std::string::npos) << e.what();
    }
    options.initialLayout = VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL;
    options.finalLayout = VK_IMAGE_LAYOUT_UNDEFINED;
    EXPECT_THROW(Renderpass(Dev(), VK_FORMAT_R8G8B8A8_UNORM, 8, 8, TargetUsage, options), std::invalid_argument);
}

// ---------------------------------------------------------------- shader files

/// A folder of its own in the temporary folder, removed with everything in it.
struct ScratchFolder {
    explicit ScratchFolder(std::string const& name)
        : path(std::filesystem::temp_directory_path() / ("nerox_pipeline_" + name + "_" + std::to_string(getpid())))
    {
        std::filesystem::remove_all(path);
        std::filesystem::create_directories(path);
    }
    ~ScratchFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    /// Writes bytes to the file name in the folder; returns its path.
    std::string Write(std::string const& name, std::string const& bytes) const
    {
        std::filesystem::path const file = path / name;
        std::ofstream(file, std::ios::binary) << bytes;
        return file.string();
    }
    std::filesystem::path path;
};

/// The message of the std::runtime_error that building a pipeline from shaderPath throws; empty when none.
std::string BuildError(nerox::vk::Device& device, std::string const& shaderPath)
{
    Renderpass pass(device, VK_FORMAT_R8G8B8A8_UNORM, 8, 8, TargetUsage, ClearThenCopy("shader error"));
    PipelineLayout layout = ColourLayout(device);
    try {
        GraphicsPipeline pipeline(device, layout, pass, shaderPath);
    } catch (std::runtime_error const& e) {
        return e.what();
    }
    return {};
}

TEST_F(VkPipelines, AMissingShaderIsReportedWithItsFileName) {
    EXPECT_EQ(BuildError(Dev(), "shaders/no_such_shader"),
              "Cannot load shader shaders/no_such_shader.vert.spv: no such file");

    // A vertex stage alone is not enough.
    ScratchFolder folder("vertex_only");
    std::filesystem::copy_file(std::string(Triangle) + ".vert.spv", folder.path / "lonely.vert.spv");
    std::string const path = (folder.path / "lonely").string();
    EXPECT_EQ(BuildError(Dev(), path), "Cannot load shader " + path + ".frag.spv: no such file");
}

TEST_F(VkPipelines, AShaderFileThatIsNotSpirvIsRefused) {
    ScratchFolder folder("not_spirv");
    std::string text = "void main() { gl_Position = vec4(0.0); }\n";
    text.resize((text.size() + 3) / 4 * 4, ' '); // whole words: only the magic number is wrong
    folder.Write("text.vert.spv", text);
    folder.Write("text.frag.spv", "void main() {}\n");
    std::string const path = (folder.path / "text").string();
    std::string const error = BuildError(Dev(), path);
    EXPECT_EQ(error.rfind("Cannot load shader " + path + ".vert.spv: ", 0), 0u) << error;
    EXPECT_NE(error.find("not SPIR-V"), std::string::npos) << error;
}

TEST_F(VkPipelines, ShaderFilesOfTheWrongSizeAreRefusedBeforeTheyAreRead) {
    ScratchFolder folder("sizes");
    std::string const header(20, '\0');
    struct Case {
        char const* name;
        std::string bytes;
        char const* why;
    };
    Case const cases[] = {
        {"empty.spv", "", "size of 0 bytes is not a non-zero multiple of 4"},
        {"odd.spv", std::string("\x03\x02\x23\x07\x00", 5), "size of 5 bytes is not a non-zero multiple of 4"},
        {"word.spv", std::string("\x03\x02\x23\x07", 4), "4 bytes are too few for a SPIR-V header"},
        {"swapped.spv", std::string("\x07\x23\x02\x03", 4) + header, "not SPIR-V"},
    };
    for (Case const& c : cases) {
        std::string const file = folder.Write(c.name, c.bytes);
        try {
            LoadSpirv(file);
            ADD_FAILURE() << c.name << ": no exception";
        } catch (std::runtime_error const& e) {
            std::string const message = e.what();
            EXPECT_EQ(message.rfind("Cannot load shader " + file + ": ", 0), 0u) << message;
            EXPECT_NE(message.find(c.why), std::string::npos) << message;
        }
    }
    EXPECT_THROW(LoadSpirv(folder.path.string()), std::runtime_error) << "a folder is not a shader";
}

TEST_F(VkPipelines, ACompiledShaderLoadsAsWholeWords) {
    std::string const file = std::string(Triangle) + ".vert.spv";
    std::vector<uint32_t> const words = LoadSpirv(file);
    ASSERT_GE(words.size(), 5u);
    EXPECT_EQ(words[0], 0x07230203u);
    EXPECT_EQ(words.size() * 4, std::filesystem::file_size(file));
}

} // namespace
} // namespace vktest
