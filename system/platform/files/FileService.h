#pragma once

#include "system/platform/files/Volume.h"

#include <sys/stat.h>

#include <cstdint>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// What a file system reports of one item, itself not followed when it is a symbolic link.
struct FileAttributes
{
    std::uint64_t size = 0; ///< bytes
    timespec modificationDate = {};
    mode_t mode = 0;
};

/// Copies, removes, measures and lists items on a volume. Every path is absolute on the volume.
///
/// Nothing is thrown. `error`, where there is one, is set only on failure, to one line that
/// names the item and the reason.
class FileService
{
public:
    explicit FileService(const Volume &volume) : m_volume(volume) {}

    /// True when an item of any kind exists at `path`; links are followed.
    bool exists(std::string_view path) const;

    std::optional<FileAttributes> attributes(std::string_view path) const;

    /// The names of the folder's direct entries without "." and "..", in the disk's order;
    /// nothing when it is not a folder that can be read.
    std::optional<std::vector<std::string>> contents(std::string_view path) const;

    /// Calls `visit` for every item below the folder at every depth, with its path relative to
    /// the folder; a folder comes before its contents. False when the folder cannot be listed.
    bool visitSubpaths(std::string_view path,
                       const std::function<void(std::string_view)> &visit) const;

    /// The sum of the sizes in bytes of every item below the folder, each with its own size
    /// whatever its kind; what cannot be read is left out.
    std::uint64_t totalSize(std::string_view path) const;

    /// Copies the item with everything in it. The destination must not exist; it appears whole,
    /// flushed to the disk, or not at all.
    bool copy(std::string_view source, std::string_view destination, std::string &error) const;

    /// Removes the item with everything in it.
    bool remove(std::string_view path, std::string &error) const;

private:
    const Volume &m_volume;
};

} // namespace platform
