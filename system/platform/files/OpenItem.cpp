#include "system/platform/files/OpenItem.h"

#include <fcntl.h>

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

FileDescriptor openPlainFile(int item, struct stat &status)
{
    if (::fstat(item, &status) != 0) {
        return {};
    }
    if (!S_ISREG(status.st_mode)) {
        errno = ELOOP;
        return {};
    }
    const std::string link = "/proc/self/fd/" + std::to_string(item);
    return FileDescriptor(::open(link.c_str(), O_RDONLY | O_CLOEXEC));
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
    if (folder.isOpen() && ::fstat(folder.get(), &status) == 0) {
        const bool isMasked = (status.st_mode & S_IRWXU) != S_IRWXU;
        if (!isMasked || ::fchmod(folder.get(), S_IRWXU) == 0 || isBeyondDisk(errno)) {
            return folder;
        }
    }
    const int error = errno;
    ::unlinkat(parent, name, AT_REMOVEDIR);
    errno = error;
    return {};
}

bool moveItem(int folder, const char *name, int newFolder, const char *newName)
{
    if (::renameat2(folder, name, newFolder, newName, RENAME_NOREPLACE) == 0) {
        return true;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return false;
    }
    struct stat status = {}; // the disk cannot do both in one step
    if (::fstatat(newFolder, newName, &status, AT_SYMLINK_NOFOLLOW) == 0) {
        errno = EEXIST;
    }
    return errno == ENOENT && ::renameat(folder, name, newFolder, newName) == 0;
}

bool isItemAt(int descriptor, int parent, const char *name)
{
    struct stat opened = {};
    struct stat named = {};
    return ::fstat(descriptor, &opened) == 0 &&
           ::fstatat(parent, name, &named, AT_SYMLINK_NOFOLLOW) == 0 && isSameItem(opened, named);
}

bool isSameItem(const struct stat &first, const struct stat &second)
{
    return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

bool readStatus(int folder, const char *name, struct statx &status)
{
    return ::statx(folder, name, AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW,
                   STATX_TYPE | STATX_MODE | STATX_UID | STATX_BTIME, &status) == 0;
}

bool isMountRoot(const struct statx &status)
{
    return (status.stx_attributes & status.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0;
}

bool isLocked(const struct statx &status)
{
    return (status.stx_attributes & status.stx_attributes_mask &
            (STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND)) != 0;
}

bool isBeyondDisk(int error)
{
    switch (error) {
    case EPERM:
    case EACCES:
    case EINVAL:
    case ENOSYS:
    case EOPNOTSUPP:
    case EOVERFLOW: // an owner that has no number where the disk is mounted
        return true;
    default:
        return false;
    }
}

} // namespace platform
