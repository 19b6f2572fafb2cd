#pragma once
// What a renderer's texture table is given: a texture already made, or the
// path of an image file to load.
#include "nerox/graphics/Texture.hpp"

#include <memory>
#include <string>
#include <type_traits>
#include <utility>

namespace nerox::graphics {

/// A texture, or the path of an image file that the renderer loads when the reference is added.
class TextureRef {
public:
    /// A texture already made.
    template <class T>
    requires std::is_base_of_v<Texture, T> TextureRef(std::shared_ptr<T> texture) : _texture(std::move(texture)) { }
    /// An image file, relative to the working directory.
    TextureRef(std::string path) : _path(std::move(path)) { }
    /// An image file, relative to the working directory.
    TextureRef(char const* path) : _path(path != nullptr ? path : "") { }

    /// The texture; null for a reference by path.
    std::shared_ptr<Texture> const& GetTexture() const { return _texture; }
    /// The path; empty for a reference to a texture.
    std::string const& GetPath() const { return _path; }

private:
    std::shared_ptr<Texture> _texture;
    std::string _path;
};

} // namespace nerox::graphics
