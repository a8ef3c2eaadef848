#include "system/platform/files/RemovalCheck.h"

#include "system/platform/files/Flush.h"
#include "system/platform/files/OpenItem.h"
#include "system/platform/files/Progress.h"
#include "system/platform/files/TreeWalker.h"

#include <fcntl.h>

#include <utility>
#include <vector>

namespace platform {

namespace {

constexpr uid_t superUser = 0;
constexpr mode_t settableBits = 07777;

// A folder's own name and its "."; every subfolder's ".." is one more. Disks that do not count
// them say 1.
constexpr nlink_t linksWithoutSubfolders = 2;

class RemovalCheck
{
public:
    explicit RemovalCheck(int folder)
        : m_walker(folder)
        , m_countsSubfolders(!needsFlushOfEachItem(folder))
    {}

    std::optional<FileError> run();

private:
    // A folder from the top to the current one, and what keeps its items from being removed.
    struct Folder
    {
        int error = 0;                    ///< errno for any item, 0 when there is nothing
        bool isSticky = false;            ///< only the owner of an item may remove it
        bool hasLocks = false;            ///< its disk can lock single items
        std::optional<mode_t> closedMode; ///< to be given back
    };

    Folder describe(const struct statx &status) const;
    void checkVisited();
    void checkItem(const Folder &parent, const struct statx &status);
    void checkLeaf();
    void checkFolder();
    void openBlocked();
    void leaveFolder();
    void refuse(const std::string &reason);

    TreeWalker m_walker;
    bool m_countsSubfolders; ///< programs and other machines may tell any number of links
    uid_t m_user = ::geteuid();
    std::vector<Folder> m_folders;
    std::optional<mode_t> m_closedMode; ///< of the folder that is entered next
    int m_openedFolders = 0;
    std::optional<FileError> m_error;
};

std::optional<FileError> RemovalCheck::run()
{
    struct statx status = {};
    if (!readStatus(m_walker.folder(), "", status)) {
        refuse(errorReason(errno));
    } else {
        checkItem(Folder(), status);
        m_folders.push_back(describe(status));
    }
    // After a refusal the walk goes on to the folders that are to be closed again.
    while ((!m_error || m_openedFolders > 0) && m_walker.next()) {
        checkVisited();
        Work::advance(0, 0);
    }
    return m_error;
}

RemovalCheck::Folder RemovalCheck::describe(const struct statx &status) const
{
    Folder folder;
    folder.hasLocks =
        (status.stx_attributes_mask & (STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND)) != 0;
    if (m_user != superUser && m_user != status.stx_uid) {
        const bool isWritable = ::faccessat(m_walker.folder(), ".", W_OK | X_OK, AT_EACCESS) == 0;
        folder.error = isWritable ? 0 : errno;
        folder.isSticky = (status.stx_mode & S_ISVTX) != 0;
    }
    return folder;
}

void RemovalCheck::checkVisited()
{
    switch (m_walker.event()) {
    case TreeWalker::Event::Item:
        return checkLeaf();
    case TreeWalker::Event::Enter:
        return checkFolder();
    case TreeWalker::Event::Leave:
        return leaveFolder();
    case TreeWalker::Event::Blocked:
        return openBlocked();
    case TreeWalker::Event::Failed:
        return refuse(errorReason(m_walker.error()));
    }
}

// Whether something keeps an item from being removed from the folder that it is in.
void RemovalCheck::checkItem(const Folder &parent, const struct statx &status)
{
    if (parent.error != 0) {
        refuse(errorReason(parent.error));
    } else if (isMountRoot(status)) {
        refuse("another disk is mounted there");
    } else if (isLocked(status)) {
        refuse("it is locked");
    } else if (parent.isSticky && status.stx_uid != m_user) {
        refuse(errorReason(EPERM));
    }
}

void RemovalCheck::checkLeaf()
{
    const Folder &folder = m_folders.back();
    struct statx status = {};
    const bool isLooked = folder.error == 0 && (folder.hasLocks || folder.isSticky);
    if (isLooked && !readStatus(m_walker.folder(), m_walker.name(), status)) {
        if (errno != ENOENT) {
            refuse(errorReason(errno));
        }
        return;
    }
    checkItem(folder, status);
}

void RemovalCheck::checkFolder()
{
    const Folder outer = m_folders.back();
    struct statx status = {};
    const bool isRead = readStatus(m_walker.folder(), "", status);
    const int error = errno;
    m_folders.push_back(describe(status));
    Folder &inner = m_folders.back();
    inner.closedMode = std::exchange(m_closedMode, std::nullopt);
    if (!isRead) {
        refuse(errorReason(error));
    } else {
        checkItem(outer, status);
    }
    const bool isClosed =
        m_user != superUser && m_user == status.stx_uid && (status.stx_mode & S_IRWXU) != S_IRWXU;
    if (isClosed && !m_error && ::fchmod(m_walker.folder(), S_IRWXU) == 0) {
        inner.closedMode = status.stx_mode & settableBits;
        ++m_openedFolders;
    }
    const bool isRemovable = inner.error == 0 && !inner.isSticky && !inner.hasLocks &&
                             m_countsSubfolders &&
                             m_walker.status().st_nlink == linksWithoutSubfolders;
    if (m_error || isRemovable) {
        m_walker.skipContents();
    }
}

// A folder that its owner closed to himself will be opened when its turn comes. What is in it must
// be removable, too.
void RemovalCheck::openBlocked()
{
    const int error = m_walker.error();
    const std::optional<mode_t> closedMode = std::exchange(m_closedMode, std::nullopt);
    m_openedFolders -= closedMode ? 1 : 0;
    if (error == ENOENT || error == ENOTDIR || error == ELOOP) {
        return; // it is gone or no folder any more
    }
    if (closedMode) { // opened in vain
        const bool isClosedAgain =
            ::fchmodat(m_walker.folder(), m_walker.name(), *closedMode, AT_SYMLINK_NOFOLLOW) == 0;
        return refuse(errorReason(isClosedAgain ? error : errno));
    }
    struct stat status = {};
    const bool isOwn =
        ::fstatat(m_walker.folder(), m_walker.name(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        status.st_uid == m_user;
    const bool isOpened =
        !m_error && error == EACCES && isOwn &&
        ::fchmodat(m_walker.folder(), m_walker.name(), S_IRWXU, AT_SYMLINK_NOFOLLOW) == 0;
    if (!isOpened) {
        return refuse(errorReason(error));
    }
    m_closedMode = status.st_mode & settableBits;
    ++m_openedFolders;
    m_walker.enterLater(); // which is the next event
}

void RemovalCheck::leaveFolder()
{
    if (m_folders.back().closedMode) {
        ::fchmod(m_walker.leftFolder(), *m_folders.back().closedMode);
        --m_openedFolders;
    }
    m_folders.pop_back();
}

void RemovalCheck::refuse(const std::string &reason)
{
    if (!m_error) {
        m_error = {FileAction::Remove, m_walker.path(), reason};
    }
}

} // namespace

std::optional<FileError> checkRemoval(int folder)
{
    return RemovalCheck(folder).run();
}

} // namespace platform
