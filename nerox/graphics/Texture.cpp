#include "nerox/graphics/Texture.hpp"

#include <stb/stb_image.h>
#include <stb/stb_image_write.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <stdexcept>

namespace nerox::graphics {

namespace {

std::string LowerExtension(std::string const& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

bool Refuse(std::string const& path, std::string const& why) {
    std::cerr << "Texture::SaveFile " << path << ": " << why << '\n';
    return false;
}

} // namespace

Texture::~Texture() = default;
void Texture::Push(VkCommandBuffer) { }
bool Texture::Reload() {
    return false;
}
VkImageView Texture::GetImageView() const {
    return VK_NULL_HANDLE;
}
VkImageLayout Texture::GetImageLayout() const {
    return VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL;
}

bool Texture::SaveFile(std::string const& path, int width, int height, int channels, bool isFloat, void const* data,
                       int quality) {
    if (data == nullptr) return Refuse(path, "no pixels");
    if (width <= 0 || height <= 0)
        return Refuse(path, "size " + std::to_string(width) + "x" + std::to_string(height) + " is empty");
    if (channels < 1 || channels > 4) return Refuse(path, std::to_string(channels) + " channels; 1 to 4 can be saved");
    std::string const extension = LowerExtension(path);
    int written = 0;
    if (isFloat) {
        if (extension != ".hdr")
            return Refuse(path, "float pixels are saved as Radiance HDR: give the file the extension .hdr");
        written = stbi_write_hdr(path.c_str(), width, height, channels, static_cast<float const*>(data));
    } else if (extension == ".hdr") {
        return Refuse(path, "8-bit pixels cannot be saved as HDR: use .png or .jpg");
    } else if (extension == ".jpg" || extension == ".jpeg") {
        written = stbi_write_jpg(path.c_str(), width, height, channels, data, std::clamp(quality, 1, 100));
    } else {
        written = stbi_write_png(path.c_str(), width, height, channels, data, width * channels);
    }
    if (written == 0) return Refuse(path, "the file could not be written (does its folder exist?)");
    return true;
}

ImageData Texture::LoadFile(std::string const& path, int desiredChannels) {
    if (desiredChannels < 0 || desiredChannels > 4)
        throw std::runtime_error("Cannot load image file " + path + ": " + std::to_string(desiredChannels) +
                                 " channels asked for");
    ImageData image;
    int fileChannels = 0;
    if (stbi_is_hdr(path.c_str())) {
        float* pixels = stbi_loadf(path.c_str(), &image.width, &image.height, &fileChannels, desiredChannels);
        if (pixels == nullptr) {
            char const* reason = stbi_failure_reason();
            throw std::runtime_error("Cannot load image file " + path + ": " +
                                     (reason != nullptr ? reason : "unknown error"));
        }
        image.isFloat = true;
        image.channels = desiredChannels != 0 ? desiredChannels : fileChannels;
        size_t const bytes = static_cast<size_t>(image.width) * image.height * image.channels * sizeof(float);
        image.pixels.resize(bytes);
        std::memcpy(image.pixels.data(), pixels, bytes);
        stbi_image_free(pixels);
        return image;
    }
    unsigned char* pixels = stbi_load(path.c_str(), &image.width, &image.height, &fileChannels, desiredChannels);
    if (pixels == nullptr) {
        char const* reason = stbi_failure_reason();
        throw std::runtime_error(
            "Cannot load image file " + path + ": " +
            (std::filesystem::exists(path) ? (reason != nullptr ? reason : "unknown error") : "no such file"));
    }
    image.channels = desiredChannels != 0 ? desiredChannels : fileChannels;
    image.pixels.assign(pixels, pixels + static_cast<size_t>(image.width) * image.height * image.channels);
    stbi_image_free(pixels);
    return image;
}

} // namespace nerox::graphics
