#include "system/platform/files/ItemMetadata.h"

#include <fcntl.h>
#include <linux/limits.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <optional>
#include <string_view>

namespace platform {

namespace {

constexpr mode_t permissionBits = S_IRWXU | S_IRWXG | S_IRWXO;
constexpr mode_t specialBits = S_ISUID | S_ISGID | S_ISVTX;
constexpr auto keepUser = static_cast<uid_t>(-1);

// The process's file mode creation mask, which umask(2) could only tell by changing it under the
// feet of other threads. Where it cannot be read, all bits: every mode is then set by itself.
mode_t creationMask()
{
    constexpr std::string_view key = "Umask:\t";
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        unsigned int mask = 0;
        if (line.starts_with(key) &&
            std::from_chars(line.data() + key.size(), line.data() + line.size(), mask, 8).ec ==
                std::errc()) {
            return mask;
        }
    }
    return permissionBits;
}

bool isNotPermitted(int error)
{
    return error == EPERM || error == EACCES || error == EOPNOTSUPP || error == EINVAL;
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
    if (!isNotPermitted(errno)) {
        return std::nullopt;
    }
    changeOwner(keepUser, status.st_gid);                  // the group alone may be permitted
    return mode & ~static_cast<mode_t>(S_ISUID | S_ISGID); // they were granted by another owner
}

std::array<timespec, 2> times(const struct stat &status)
{
    return {status.st_atim, status.st_mtim};
}

} // namespace

ItemMetadata::ItemMetadata() : m_attributeNames(1024), m_mask(creationMask()) {}

void ItemMetadata::learnOwner(int item)
{
    struct stat status = {};
    if (m_knowsOwner || ::fstat(item, &status) != 0) {
        return;
    }
    m_newUser = status.st_uid;
    m_newGroup = status.st_gid;
    m_knowsOwner = true;
}

bool ItemMetadata::readAttributeNames(int source)
{
    m_attributeNamesLength = 0;
    ssize_t length = ::flistxattr(source, m_attributeNames.data(), m_attributeNames.size());
    if (length < 0 && errno == ERANGE) {
        m_attributeNames.resize(XATTR_LIST_MAX);
        length = ::flistxattr(source, m_attributeNames.data(), m_attributeNames.size());
    }
    if (length < 0) {
        return errno == EOPNOTSUPP;
    }
    m_attributeNamesLength = static_cast<std::size_t>(length);
    return true;
}

mode_t ItemMetadata::creationMode(const struct stat &status) const
{
    // Attributes can only be given to an item that its owner may write.
    return m_attributeNamesLength == 0 ? status.st_mode & permissionBits : S_IRUSR | S_IWUSR;
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
    const bool isWriteProtected = m_attributeNamesLength > 0 && (current & S_IWUSR) == 0;
    if (!mode || (isWriteProtected && ::fchmod(destination, S_IRUSR | S_IWUSR) != 0) ||
        !copyAttributes(source, destination)) {
        return false;
    }
    const bool changesMode = changesOwner || isWriteProtected || *mode != current;
    if (changesMode && ::fchmod(destination, *mode) != 0 && !isNotPermitted(errno)) {
        return false;
    }
    return ::futimens(destination, times(status).data()) == 0;
}

bool ItemMetadata::applyToName(int folder, const char *name, const struct stat &status)
{
    const std::optional<mode_t> mode =
        modeAfterHandover(status, [folder, name](uid_t user, gid_t group) {
            return ::fchownat(folder, name, user, group, AT_SYMLINK_NOFOLLOW);
        });
    if (!mode) {
        return false;
    }
    if (!S_ISLNK(status.st_mode) && ::fchmodat(folder, name, *mode, AT_SYMLINK_NOFOLLOW) != 0 &&
        !isNotPermitted(errno)) {
        return false;
    }
    return ::utimensat(folder, name, times(status).data(), AT_SYMLINK_NOFOLLOW) == 0;
}

void ItemMetadata::stripInherited(int item)
{
    ::fremovexattr(item, "system.posix_acl_access");
    ::fremovexattr(item, "system.posix_acl_default");
}

bool ItemMetadata::isOwner(const struct stat &status) const
{
    return m_knowsOwner && status.st_uid == m_newUser && status.st_gid == m_newGroup;
}

bool ItemMetadata::copyAttributes(int source, int destination)
{
    const char *name = m_attributeNames.data();
    const char *end = name + m_attributeNamesLength;
    for (; name < end; name += std::strlen(name) + 1) {
        if (!copyAttribute(source, destination, name)) {
            return false;
        }
    }
    return true;
}

bool ItemMetadata::copyAttribute(int source, int destination, const char *name)
{
    m_attributeValue.resize(XATTR_SIZE_MAX);
    const ssize_t length =
        ::fgetxattr(source, name, m_attributeValue.data(), m_attributeValue.size());
    const bool isCopied = length >= 0 && ::fsetxattr(destination, name, m_attributeValue.data(),
                                                     static_cast<std::size_t>(length), 0) == 0;
    if (isCopied || errno == EOPNOTSUPP || errno == ENODATA) { // it may be gone meanwhile
        return true;
    }
    // Those of the system, unlike a user's own, may need privileges.
    return !std::string_view(name).starts_with("user.") && isNotPermitted(errno);
}

} // namespace platform
