#pragma once

#include "system/platform/files/FileDescriptor.h"

#include <string>

namespace platform {

/// A folder of the host that plays a disk's root: no path and no symbolic link leads out of it.
class RootFolder
{
public:
    explicit RootFolder(const std::string &hostPath);

    /// True when it is the host's own root.
    bool isHost() const;

    /// Opens the item at `path`, absolute inside the root, with the flags of open(2) and
    /// O_CLOEXEC; links are followed inside the root. On failure the result is not open and errno
    /// tells why: ENOENT, too, when the root itself does not exist. Of a path of PATH_MAX bytes and
    /// more, a link behind the first part must not lead out of the folder that the part ends in.
    FileDescriptor open(std::string path, int flags) const;

private:
    FileDescriptor m_folder;
};

} // namespace platform
