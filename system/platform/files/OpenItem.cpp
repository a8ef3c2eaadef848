#include "system/platform/files/OpenItem.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace platform {

FileDescriptor openItem(int folder, const char *name, int flags)
{
    const int allFlags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC | flags;
    int descriptor = ::openat(folder, name, allFlags | O_NOATIME);
    if (descriptor < 0 && errno == EPERM) { // only the owner may leave the access time alone
        descriptor = ::openat(folder, name, allFlags);
    }
    return FileDescriptor(descriptor);
}

FileDescriptor openOwnFolder(int parent, const char *name)
{
    FileDescriptor folder = openItem(parent, name, O_DIRECTORY);
    if (!folder.isOpen() && errno == EACCES &&
        ::fchmodat(parent, name, S_IRWXU, AT_SYMLINK_NOFOLLOW) == 0) {
        folder = openItem(parent, name, O_DIRECTORY);
    }
    return folder;
}

FileDescriptor makePrivateFolder(int parent, const char *name)
{
    if (::mkdirat(parent, name, S_IRWXU) != 0) {
        return {};
    }
    FileDescriptor folder = openOwnFolder(parent, name);
    struct stat status = {};
    if (!folder.isOpen() || ::fstat(folder.get(), &status) != 0) {
        return {};
    }
    const bool isMasked = (status.st_mode & S_IRWXU) != S_IRWXU;
    return isMasked && ::fchmod(folder.get(), S_IRWXU) != 0 ? FileDescriptor() : std::move(folder);
}

bool isItemAt(int descriptor, int parent, const char *name)
{
    struct stat opened = {};
    struct stat named = {};
    return ::fstat(descriptor, &opened) == 0 &&
           ::fstatat(parent, name, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

std::uint64_t systemAttributes(int item)
{
    struct statx extended = {};
    ::statx(item, "", AT_EMPTY_PATH, 0, &extended);
    return extended.stx_attributes & extended.stx_attributes_mask;
}

} // namespace platform
