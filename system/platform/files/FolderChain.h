#pragma once

#include "system/platform/files/FileDescriptor.h"

#include <sys/types.h>

#include <cstddef>
#include <vector>

namespace platform {

/// The open folders on the way from a base folder down to the current one. However deep that is,
/// only a bounded number is kept open: the others are opened again by ".." on the way back.
class FolderChain
{
public:
    /// `base` stays the caller's and open.
    explicit FolderChain(int base) : m_base(base) {}

    int current() const;

    /// Makes a subfolder of the current folder the current one.
    void push(FileDescriptor folder);

    /// Makes the parent the current folder again and gives the folder that was left. When the
    /// parent is no longer where it was, the result is not open and errno tells why.
    FileDescriptor pop();

private:
    struct Link
    {
        FileDescriptor folder;
        dev_t device = 0; ///< device and inode are known once the folder has been closed
        ino_t inode = 0;
    };

    static bool reopen(Link &parent, int child);

    int m_base = -1;
    std::vector<Link> m_links;
    std::size_t m_firstOpen = 0;
};

} // namespace platform
