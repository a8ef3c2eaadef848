#pragma once

#include "system/platform/files/FileDescriptor.h"
#include "system/platform/files/FileError.h"

#include <sys/stat.h>

#include <string>

namespace platform {

/// Copies one item with everything in it. The copy appears whole and flushed to the disk, or not
/// at all; until then it is accessible to its owner alone.
class CopyOperation
{
public:
    /// An item `name` in an open folder, which stays the caller's.
    struct Place
    {
        int folder = -1;
        std::string name;
    };

    CopyOperation(Place source, Place destination);

    /// False on failure, which leaves nothing behind.
    bool run();

    const FileError &error() const { return m_error; }

private:
    bool copyFile();
    bool copyLeaf();
    bool copyFolder();
    bool isDestinationInside(const struct stat &folder) const;
    bool fail(FileAction action, int error);
    bool fail(FileError error); // of an item below the source
    bool fail(FileAction action, const std::string &item, const std::string &reason);

    Place m_source;
    Place m_destination;
    struct stat m_status = {}; ///< of the source
    FileError m_error;
};

} // namespace platform
