#pragma once

#include "system/platform/files/FileDescriptor.h"

#include <memory>
#include <string>
#include <string_view>

namespace platform {

/// The name that an item and its backups have in common: without any ".bak" at its end.
std::string_view locationName(std::string_view itemName);

/// Stands for that name in others, the same for every process and every version.
std::string locationHash(std::string_view itemName);

/// Keeps every other process of this program off an item and its backups.
///
/// The lock is the address of a local socket, named after the folder (its device and inode) and
/// the location's name: it needs no room on a disk, which may be full, and no file that another
/// program could hold, and it is gone with the process, however that ends. What works on one disk
/// from another machine is not kept off.
class LocationLock
{
public:
    /// False, with errno set, when another process has the lock (EBUSY): it is not waited for, as
    /// what was known of the item may not be true any more then. The same process may have it
    /// several times.
    bool acquire(int folder, std::string_view itemName);

private:
    std::shared_ptr<FileDescriptor> m_socket;
};

} // namespace platform
