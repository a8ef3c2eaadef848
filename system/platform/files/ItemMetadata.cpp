#include "system/platform/files/ItemMetadata.h"

#include "system/platform/files/OpenItem.h"

#include <fcntl.h>
#include <linux/limits.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>

#include <array>
#include <cstring>
#include <optional>
#include <string_view>

namespace platform {

namespace {

constexpr mode_t permissionBits = S_IRWXU | S_IRWXG | S_IRWXO;
constexpr mode_t specialBits = S_ISUID | S_ISGID | S_ISVTX;
constexpr auto keepUser = static_cast<uid_t>(-1);
constexpr fsblkcnt_t blocksOfFullDisk = 64;

// True for the errors of a disk that has no extended attributes, or not on this item.
bool isWithoutAttributes(int error)
{
    return error == EOPNOTSUPP || error == ENODATA || error == ENOSYS;
}

// True for the errors of a disk that cannot hold this attribute, while it still holds others: they
// may be limited in number and size. `item` is on the disk.
bool isTooMuchToHold(int error, int item)
{
    struct statvfs disk = {};
    return error == EINVAL || error == E2BIG || error == ERANGE ||
           (error == ENOSPC && ::fstatvfs(item, &disk) == 0 && disk.f_bavail > blocksOfFullDisk);
}

// Those of the system, unlike a user's own, may need privileges.
bool isOfSystem(std::string_view name)
{
    return name.starts_with("system.") || name.starts_with("security.") ||
           name.starts_with("trusted.");
}

// Hands a copy over to the owner and group of its original with a function like fchown(2), and
// gives the mode that it may have then; nothing on failure.
template <typename ChangeOwner>
std::optional<mode_t> modeAfterHandover(const struct stat &status, ChangeOwner changeOwner)
{
    const mode_t mode = status.st_mode & (permissionBits | specialBits);
    if (changeOwner(status.st_uid, status.st_gid) == 0) {
        return mode;
    }
    if (!isBeyondDisk(errno)) {
        return std::nullopt;
    }
    changeOwner(keepUser, status.st_gid);                  // the group alone may be permitted
    return mode & ~static_cast<mode_t>(S_ISUID | S_ISGID); // they were granted by another owner
}

// The path of an item in an open folder, for calls that take nothing else.
std::string pathBelow(int folder, const char *name)
{
    return "/proc/self/fd/" + std::to_string(folder) + '/' + name;
}

std::array<timespec, 2> times(const struct stat &status)
{
    return {status.st_atim, status.st_mtim};
}

} // namespace

ItemMetadata::ItemMetadata(const struct stat &sample)
    : m_attributeNames(1024)
    , m_granted(sample.st_mode & permissionBits)
    , m_device(sample.st_dev)
    , m_newUser(sample.st_uid)
    , m_newGroup(sample.st_gid)
{}

bool ItemMetadata::readAttributeNames(int source)
{
    return readNames(
        [source](char *names, std::size_t size) { return ::flistxattr(source, names, size); });
}

template <typename List>
bool ItemMetadata::readNames(List list)
{
    m_attributeNamesLength = 0;
    ssize_t length = list(m_attributeNames.data(), m_attributeNames.size());
    if (length < 0 && errno == ERANGE) {
        m_attributeNames.resize(XATTR_LIST_MAX);
        length = list(m_attributeNames.data(), m_attributeNames.size());
    }
    if (length < 0) {
        return isWithoutAttributes(errno);
    }
    m_attributeNamesLength = static_cast<std::size_t>(length);
    return true;
}

mode_t ItemMetadata::creationMode(const struct stat &status)
{
    return (status.st_mode & permissionBits) | S_IWUSR;
}

bool ItemMetadata::applyToFile(int source, int destination, const struct stat &status)
{
    mode_t current = creationMode(status) & m_granted;
    if (m_attributeNamesLength > 0 && (current & S_IWUSR) == 0) { // by the process's mask
        current = S_IRUSR | S_IWUSR;
        if (::fchmod(destination, current) != 0 && !isBeyondDisk(errno)) {
            return false;
        }
    }
    return apply(source, destination, status, current);
}

bool ItemMetadata::applyToFolder(int source, int destination, const struct stat &status)
{
    return apply(source, destination, status, S_IRWXU);
}

bool ItemMetadata::apply(int source, int destination, const struct stat &status, mode_t current)
{
    const bool changesOwner = !isOwner(status);
    const std::optional<mode_t> mode =
        changesOwner ? modeAfterHandover(status,
                                         [destination](uid_t user, gid_t group) {
                                             return ::fchown(destination, user, group);
                                         })
                     : status.st_mode & (permissionBits | specialBits);
    const auto get = [source](const char *name, void *value, std::size_t size) {
        return ::fgetxattr(source, name, value, size);
    };
    const auto set = [destination](const char *name, const void *value, std::size_t size) {
        return ::fsetxattr(destination, name, value, size, 0);
    };
    // The disk that holds the original's attributes can hold those of the copy.
    const int otherDisk = status.st_dev == m_device ? -1 : destination;
    if (!mode || !copyAttributes(otherDisk, get, set)) {
        return false;
    }
    const bool changesMode = changesOwner || *mode != current;
    if (changesMode && ::fchmod(destination, *mode) != 0 && !isBeyondDisk(errno)) {
        return false;
    }
    return ::futimens(destination, times(status).data()) == 0 || isBeyondDisk(errno);
}

bool ItemMetadata::applyToName(int sourceFolder, const char *source, int folder, const char *name,
                               const struct stat &status)
{
    const std::optional<mode_t> mode =
        modeAfterHandover(status, [folder, name](uid_t user, gid_t group) {
            return ::fchownat(folder, name, user, group, AT_SYMLINK_NOFOLLOW);
        });
    if (!mode || !copyAttributesOfName(pathBelow(sourceFolder, source), pathBelow(folder, name))) {
        return false;
    }
    if (!S_ISLNK(status.st_mode) && ::fchmodat(folder, name, *mode, AT_SYMLINK_NOFOLLOW) != 0 &&
        !isBeyondDisk(errno)) {
        return false;
    }
    return ::utimensat(folder, name, times(status).data(), AT_SYMLINK_NOFOLLOW) == 0 ||
           isBeyondDisk(errno);
}

bool ItemMetadata::isOwner(const struct stat &status) const
{
    return status.st_uid == m_newUser && status.st_gid == m_newGroup;
}

// A user's own come first: an access control list can take the right to give them. `otherDisk`
// is an item on the copy's disk, or -1 if that is the original's.
template <typename Get, typename Set>
bool ItemMetadata::copyAttributes(int otherDisk, Get get, Set set)
{
    for (const bool ofSystem : {false, true}) {
        const char *name = m_attributeNames.data();
        const char *end = name + m_attributeNamesLength;
        for (; name < end; name += std::strlen(name) + 1) {
            if (isOfSystem(name) == ofSystem && !copyAttribute(name, otherDisk, get, set)) {
                return false;
            }
        }
    }
    return true;
}

template <typename Get, typename Set>
bool ItemMetadata::copyAttribute(const char *name, int otherDisk, Get get, Set set)
{
    m_attributeValue.resize(XATTR_SIZE_MAX);
    const ssize_t length = get(name, m_attributeValue.data(), m_attributeValue.size());
    if (length >= 0 && set(name, m_attributeValue.data(), static_cast<std::size_t>(length)) == 0) {
        return true;
    }
    return isWithoutAttributes(errno) ||
           (length >= 0 && otherDisk >= 0 && isTooMuchToHold(errno, otherDisk)) ||
           (isOfSystem(name) && isBeyondDisk(errno));
}

bool ItemMetadata::copyAttributesOfName(const std::string &source, const std::string &name)
{
    const auto list = [&source](char *names, std::size_t size) {
        return ::llistxattr(source.c_str(), names, size);
    };
    const auto get = [&source](const char *attribute, void *value, std::size_t size) {
        return ::lgetxattr(source.c_str(), attribute, value, size);
    };
    const auto set = [&name](const char *attribute, const void *value, std::size_t size) {
        return ::lsetxattr(name.c_str(), attribute, value, size, 0);
    };
    return readNames(list) && copyAttributes(-1, get, set);
}

void stripInherited(int item)
{
    ::fremovexattr(item, "system.posix_acl_access");
    ::fremovexattr(item, "system.posix_acl_default");
}

} // namespace platform
