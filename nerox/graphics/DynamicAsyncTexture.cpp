#include "nerox/graphics/DynamicAsyncTexture.hpp"

#include "nerox/graphics/VulkanRenderer.hpp"
#include "nerox/vk/CommandBuffer.hpp"

#include <cstring>
#include <iostream>
#include <stdexcept>

namespace nerox::graphics {

namespace {

vk::Device& CheckedDevice(nerox::VulkanEngine* engine, unsigned int width, unsigned int height,
                          std::string const& name) {
    if (engine == nullptr) throw std::runtime_error(name + ": no engine");
    if (width == 0 || height == 0) throw std::runtime_error(name + ": empty size");
    return engine->GetDevice();
}

} // namespace

DynamicAsyncTexture::DynamicAsyncTexture(nerox::VulkanEngine* engine, unsigned int width, unsigned int height,
                                         Schedule schedule, std::string name)
    : _name(std::move(name)), _schedule(std::move(schedule)),
      _image(CheckedDevice(engine, width, height, _name), width, height, VK_FORMAT_R8G8B8A8_SRGB,
             VK_IMAGE_USAGE_SAMPLED_BIT | VK_IMAGE_USAGE_TRANSFER_DST_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT, _name) {
    vk::Device& device = engine->GetDevice();
    for (uint32_t i = 0; i < VulkanRenderer::FramesInFlight; ++i)
        _staging.push_back(std::make_unique<Staging>(device, Bytes(), VK_BUFFER_USAGE_TRANSFER_SRC_BIT,
                                                     _name + " upload " + std::to_string(i), 16));
    _pending.resize(Bytes());
    vk::CommandBuffer::Run(
        device, device.GraphicsQueue(),
        [this](VkCommandBuffer commands) {
            _image.Clear(commands, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL);
        },
        "clear " + _name);
}

DynamicAsyncTexture::~DynamicAsyncTexture() = default;

bool DynamicAsyncTexture::Load(void const* data, size_t size) {
    // The rectangle the frame covers.
    uint32_t region[4] = {0, 0, Width(), Height()};
    unsigned char const* pixels = static_cast<unsigned char const*>(data);
    if (data != nullptr && size != Bytes()) {
        bool ok = size > RegionHeaderBytes && std::memcmp(data, "NXR1", 4) == 0;
        if (ok) {
            std::memcpy(region, pixels + 4, sizeof region);
            uint64_t const x = region[0], y = region[1], w = region[2], h = region[3];
            ok = w > 0 && h > 0 && x + w <= Width() && y + h <= Height() && RegionHeaderBytes + w * h * 4 == size;
        }
        if (!ok) {
            std::cerr << _name << ": a frame of " << size << " bytes is neither " << Width() << "x" << Height()
                      << " RGBA pixels (" << Bytes() << " bytes) nor a region inside them; kept the last one"
                      << std::endl;
            return false;
        }
        pixels += RegionHeaderBytes;
    } else if (data == nullptr) {
        std::cerr << _name << ": no frame data; kept the last one" << std::endl;
        return false;
    }
    bool schedule = false;
    {
        std::lock_guard lock(_mutex);
        size_t const rowBytes = size_t{region[2]} * 4;
        for (uint32_t row = 0; row < region[3]; ++row)
            std::memcpy(_pending.data() + ((size_t{region[1]} + row) * Width() + region[0]) * 4,
                        pixels + row * rowBytes, rowBytes);
        _fresh = true;
        schedule = !_scheduled && _schedule;
        _scheduled = _scheduled || schedule;
    }
    if (schedule) {
        std::shared_ptr<DynamicAsyncTexture> self = weak_from_this().lock();
        if (self) {
            try {
                _schedule(std::move(self));
            } catch (...) {
                std::lock_guard lock(_mutex);
                _scheduled = false; // the next Load asks again
                throw;
            }
        } else {
            std::lock_guard lock(_mutex);
            _scheduled = false; // not owned by a shared pointer (yet): nothing can hold it on a list
        }
    }
    return true;
}

void DynamicAsyncTexture::Push(VkCommandBuffer commandBuffer) {
    Staging& staging = *_staging[_nextStaging];
    {
        std::lock_guard lock(_mutex);
        _scheduled = false;
        if (!_fresh) return;
        _fresh = false;
        std::memcpy(staging.Data(), _pending.data(), _pending.size());
    }
    _nextStaging = (_nextStaging + 1) % _staging.size();
    ++_uploads;
    // What earlier frames sampled, they have sampled before the copy overwrites it.
    _image.Transition(commandBuffer, VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL);
    VkBufferImageCopy copy{};
    copy.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
    copy.imageExtent = {Width(), Height(), 1};
    vkCmdCopyBufferToImage(commandBuffer, staging, _image, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, 1, &copy);
    _image.Transition(commandBuffer, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL);
}

} // namespace nerox::graphics
