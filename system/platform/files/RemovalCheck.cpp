#include "system/platform/files/RemovalCheck.h"

#include "system/platform/files/OpenItem.h"
#include "system/platform/files/TreeWalker.h"

#include <fcntl.h>

namespace platform {

namespace {

constexpr uid_t superUser = 0;

// A folder's own name and its "."; every subfolder's ".." is one more. Disks that do not count
// them say 1.
constexpr nlink_t linksWithoutSubfolders = 2;
constexpr const char *mountedThere = "another disk is mounted there";

} // namespace

RemovalCheck::RemovalCheck() : m_user(::geteuid()) {}

bool RemovalCheck::run(int folder)
{
    TreeWalker walker(folder);
    struct stat status = {};
    if (::fstat(folder, &status) != 0) {
        return refuse(walker, errorReason(errno));
    }
    if ((systemAttributes(folder) & STATX_ATTR_MOUNT_ROOT) != 0) {
        return refuse(walker, mountedThere);
    }
    m_protections = {protectionOf(folder, status)};
    while (walker.next()) {
        if (!checkVisited(walker)) {
            return false;
        }
    }
    return true;
}

RemovalCheck::Protection RemovalCheck::protectionOf(int folder, const struct stat &status) const
{
    Protection protection;
    if ((systemAttributes(folder) & (STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND)) != 0) {
        protection.error = EPERM;
    } else if (m_user != superUser && m_user != status.st_uid) {
        const bool isWritable = ::faccessat(folder, ".", W_OK | X_OK, AT_EACCESS) == 0;
        protection.error = isWritable ? 0 : errno;
        protection.isSticky = (status.st_mode & S_ISVTX) != 0;
    }
    return protection;
}

bool RemovalCheck::checkVisited(TreeWalker &walker)
{
    switch (walker.event()) {
    case TreeWalker::Event::Item:
        return checkLeaf(walker);
    case TreeWalker::Event::Enter:
        return checkFolder(walker);
    case TreeWalker::Event::Leave:
        m_protections.pop_back();
        return true;
    case TreeWalker::Event::Blocked:
        return checkBlocked(walker);
    case TreeWalker::Event::Failed:
        break;
    }
    return refuse(walker, errorReason(walker.error()));
}

bool RemovalCheck::checkLeaf(const TreeWalker &walker)
{
    const Protection &protection = m_protections.back();
    if (protection.error != 0) {
        return refuse(walker, errorReason(protection.error));
    }
    struct stat status = {};
    const bool isForeign =
        protection.isSticky &&
        ::fstatat(walker.folder(), walker.name(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        status.st_uid != m_user;
    return !isForeign || refuse(walker, errorReason(EPERM));
}

bool RemovalCheck::checkFolder(TreeWalker &walker)
{
    const Protection &protection = m_protections.back();
    if (protection.error != 0) {
        return refuse(walker, errorReason(protection.error));
    }
    if (protection.isSticky && walker.status().st_uid != m_user) {
        return refuse(walker, errorReason(EPERM));
    }
    const std::uint64_t attributes = systemAttributes(walker.folder());
    if ((attributes & STATX_ATTR_MOUNT_ROOT) != 0) {
        return refuse(walker, mountedThere);
    }
    if ((attributes & (STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND)) != 0) {
        return refuse(walker, errorReason(EPERM));
    }
    const Protection inner = protectionOf(walker.folder(), walker.status());
    if (inner.error == 0 && !inner.isSticky && walker.status().st_nlink == linksWithoutSubfolders) {
        walker.skipContents(); // its files can all be removed
    }
    m_protections.push_back(inner);
    return true;
}

bool RemovalCheck::checkBlocked(const TreeWalker &walker)
{
    const int error = walker.error();
    if (error == ENOENT || error == ENOTDIR || error == ELOOP) {
        return true; // it is gone or no folder any more
    }
    // A folder that its owner closed to himself will be opened when its turn comes.
    struct stat status = {};
    const bool isForeign =
        ::fstatat(walker.folder(), walker.name(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        status.st_uid != m_user;
    return (error == EACCES && !isForeign) || refuse(walker, errorReason(error));
}

bool RemovalCheck::refuse(const TreeWalker &walker, const std::string &reason)
{
    m_error = {FileAction::Remove, walker.path(), reason};
    return false;
}

} // namespace platform
