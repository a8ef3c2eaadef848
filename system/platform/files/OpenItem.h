#pragma once

#include "system/platform/files/FileDescriptor.h"

#include <sys/stat.h>

#include <string>

namespace platform {

/// An item by its name in an open folder, which stays the caller's.
struct ItemPlace
{
    int folder = -1;
    std::string name;
};

/// Opens the item `name` of an open folder for reading, itself not followed when it is a link,
/// leaving its access time as it is where that is allowed. `flags` are more flags of open(2).
/// On failure the result is not open and errno tells why.
FileDescriptor openItem(int folder, const char *name, int flags);

/// Opens for reading what is open with O_PATH. What is no plain file is not opened, with errno
/// ELOOP. Waits for a process that has a lease on the file (fcntl(2)) to give it up.
FileDescriptor openPlainFile(int item, struct stat &status);

/// Opens a folder as openItem() does, giving its owner full access first if it was closed to
/// the owner, too.
FileDescriptor openOwnFolder(int parent, const char *name);

/// Makes and opens a folder that is accessible to its owner alone, whatever the process's mask.
FileDescriptor makePrivateFolder(int parent, const char *name);

/// Moves an item, but never over another one: then errno is EEXIST.
bool moveItem(int folder, const char *name, int newFolder, const char *newName);

/// True when `name` in the folder `parent` is the item that is open as `descriptor`.
bool isItemAt(int descriptor, int parent, const char *name);

bool isSameItem(const struct stat &first, const struct stat &second);

/// What the kernel tells of an item beyond fstat(2), itself not followed when it is a link; an
/// empty name stands for the open item `folder` itself. False, with errno set, on failure.
bool readStatus(int folder, const char *name, struct statx &status);

/// True when another disk is mounted at the item.
bool isMountRoot(const struct statx &status);

/// True when the item is protected against every change (chattr(1), or locked by a Mac).
bool isLocked(const struct statx &status);

/// True for the errors of a disk or a system that cannot keep a property of an item, or does not
/// permit it, when everything else of the item is in order.
bool isBeyondDisk(int error);

} // namespace platform
