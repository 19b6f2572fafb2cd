#pragma once
#include <cstddef>
#include <string>
#include <vector>

namespace nerox::filesystem {

/// Replaces many files at once so that a crash at any instant leaves each of
/// them whole: its old content or its new one, never a part, never none (a
/// file that did not exist before may still be missing).
///
/// Commit writes every file beside its path under a temporary name, in
/// parallel, makes them all durable with one sync of the file system (not one
/// per file), renames them into place and syncs each folder once. A loader
/// that finds a temporary file knows that the real one beside it is whole,
/// and may remove it.
class FileBatch {
public:
    /// The temporary files take the path with this ending added.
    explicit FileBatch(std::string temporaryExtension);

    /// Adds a file to write. The bytes are taken over.
    void Add(std::string path, std::vector<unsigned char> bytes);
    /// Files added since the last Commit.
    size_t Size() const { return _files.size(); }

    /// One failure of a commit.
    struct Failure {
        size_t index;        ///< Of the file, in the order of Add.
        std::string message; ///< What went wrong, with the path.
    };
    /// Writes the files as described above and forgets them. A file that could
    /// not be written or renamed keeps its old content and is listed; when the
    /// sync of the written files fails, none is renamed and all are listed.
    /// threads: most writers at once (at least 1).
    std::vector<Failure> Commit(unsigned threads = 1);

private:
    struct File {
        std::string path;
        std::vector<unsigned char> bytes;
    };
    std::string _extension;
    std::vector<File> _files;
};

/// Reads whole files in parallel: contents[i] gets the bytes of paths[i], or
/// stays empty with errors[i] set to what went wrong. threads: most readers at once.
void ReadWholeFiles(std::vector<std::string> const& paths, std::vector<std::vector<unsigned char>>& contents,
                    std::vector<std::string>& errors, unsigned threads = 2);

} // namespace nerox::filesystem
