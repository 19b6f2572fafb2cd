#pragma once
#include <filesystem>
#include <string>

namespace nerox::filesystem {

/// A file's path text, and the base of the classes that stand for one file.
class FilePath {
public:
    /// An empty path.
    FilePath() = default;
    /// The path given as text.
    FilePath(std::string path);
    /// The path given as a C string.
    FilePath(char const* path);
    /// The path given as a filesystem path.
    FilePath(std::filesystem::path const& path);
    FilePath(FilePath const&) = default;
    FilePath(FilePath&&) = default;
    FilePath& operator=(FilePath const&) = default;
    FilePath& operator=(FilePath&&) = default;
    virtual ~FilePath() = default;

    /// Removes the file. Returns false when there was none; throws
    /// std::filesystem::filesystem_error when it exists but cannot be removed.
    virtual bool Delete();

    /// The path text as given.
    std::string const& GetPath() const { return _path; }
    /// The path as a filesystem path.
    std::filesystem::path ToPath() const { return std::filesystem::path(_path); }
    /// The last component, e.g. "settings.ini".
    std::string GetFileName() const;
    /// The last component without its extension, e.g. "settings".
    std::string GetStem() const;
    /// The extension with its dot, e.g. ".ini"; empty when there is none.
    std::string GetExtension() const;
    /// The folder part, e.g. "../data" for "../data/settings.ini"; empty for a bare file name.
    std::string GetDirectory() const;
    /// True when something exists at the path.
    bool Exists() const;

    /// Compares the path texts.
    bool operator==(FilePath const& other) const { return _path == other._path; }

protected:
    std::string _path;
};

} // namespace nerox::filesystem
