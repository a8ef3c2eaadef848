#pragma once

#include "system/platform/files/FileError.h"
#include "system/platform/files/LocationLock.h"
#include "system/platform/files/Volume.h"

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// Copies, removes, measures and lists items on a volume. Every path is absolute on the volume.
///
/// Nothing is thrown. What can fail with a reason gives that, or nothing when it is done.
class FileService
{
public:
    explicit FileService(const Volume &volume) : m_volume(volume) {}

    /// True when an item of any kind exists at `path`; links are followed.
    bool exists(std::string_view path) const;

    /// Of the item itself when it is a symbolic link; nothing when it cannot be read.
    std::optional<timespec> modificationDate(std::string_view path) const;

    /// The names of the folder's direct entries without "." and "..", in the disk's order;
    /// nothing when it is not a folder that can be read.
    std::optional<std::vector<std::string>> contents(std::string_view path) const;

    /// True when contents() lists at least one entry. Reads no more than the beginning of the
    /// folder, however much it holds.
    bool hasContents(std::string_view path) const;

    /// The sum of the sizes in bytes of every item below the folder, each with its own size
    /// whatever its kind; what cannot be read is left out.
    std::uint64_t totalSize(std::string_view path) const;

    /// Keeps other processes off the item at `path` and its backups, whether they exist or not, for
    /// as long as `lock` lives. Copies and removals take the lock of what they change by
    /// themselves, too.
    std::optional<FileError> lock(std::string_view path, LocationLock &lock) const;

    /// Copies the item with everything in it. The destination must not exist; it appears whole,
    /// flushed to the disk, or not at all.
    std::optional<FileError> copy(std::string_view source, std::string_view destination) const;

    /// Removes the item with everything in it, or refuses to. What could not be removed stays.
    std::optional<FileError> remove(std::string_view path) const;

private:
    const Volume &m_volume;
};

} // namespace platform
