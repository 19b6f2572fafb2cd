#include "nerox/filesystem/FilePath.hpp"

#include <system_error>

namespace nerox::filesystem {

FilePath::FilePath(std::string path) : _path(std::move(path)) { }

FilePath::FilePath(char const* path) : _path(path == nullptr ? "" : path) { }

FilePath::FilePath(std::filesystem::path const& path) : _path(path.string()) { }

bool FilePath::Delete() {
    if (_path.empty()) return false;
    return std::filesystem::remove(ToPath());
}

std::string FilePath::GetFileName() const {
    return ToPath().filename().string();
}

std::string FilePath::GetStem() const {
    return ToPath().stem().string();
}

std::string FilePath::GetExtension() const {
    return ToPath().extension().string();
}

std::string FilePath::GetDirectory() const {
    return ToPath().parent_path().string();
}

bool FilePath::Exists() const {
    std::error_code error;
    return !_path.empty() && std::filesystem::exists(ToPath(), error);
}

} // namespace nerox::filesystem
