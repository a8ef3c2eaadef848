#include "system/platform/files/TreeRemoval.h"

#include "system/platform/files/OpenItem.h"
#include "system/platform/files/Progress.h"
#include "system/platform/files/TreeWalker.h"

#include <fcntl.h>

#include <map>

namespace platform {

namespace {

constexpr int maximumPasses = 100; // over a folder in which new items appear meanwhile

bool isGone(int error)
{
    return error == ENOENT;
}

// Some disks pass over entries of a folder that changes while it is read.
bool isFilled(int error)
{
    return error == ENOTEMPTY || error == EEXIST;
}

/// Removes everything below one open folder.
class ContentsRemoval
{
public:
    /// False, with errno set, on failure.
    bool run(int folder);

    /// The item that could not be removed, as a path below the folder; empty for that itself.
    const std::string &failedPath() const { return m_failedPath; }

private:
    bool removeVisited(TreeWalker &walker);
    static bool removeLeaf(TreeWalker &walker);
    bool removeEmptied(TreeWalker &walker);
    bool unblock(TreeWalker &walker);
    static bool prepare(int folder);

    std::map<std::string, int> m_passes; ///< over folders that were not empty when they were left
    std::string m_lastUnblocked;
    std::string m_failedPath;
};

bool ContentsRemoval::run(int folder)
{
    if (!prepare(folder)) {
        return false;
    }
    TreeWalker walker(folder);
    while (walker.next()) {
        Work::advance(1, 0);
        if (!removeVisited(walker)) {
            const int error = errno;
            m_failedPath = walker.path();
            errno = error;
            return false;
        }
    }
    return true;
}

bool ContentsRemoval::removeVisited(TreeWalker &walker)
{
    switch (walker.event()) {
    case TreeWalker::Event::Item:
        return removeLeaf(walker);
    case TreeWalker::Event::Enter:
        return prepare(walker.folder());
    case TreeWalker::Event::Leave:
        return removeEmptied(walker);
    case TreeWalker::Event::Blocked:
        return unblock(walker);
    case TreeWalker::Event::Failed:
        break;
    }
    errno = walker.error();
    return false;
}

bool ContentsRemoval::removeLeaf(TreeWalker &walker)
{
    if (::unlinkat(walker.folder(), walker.name(), 0) == 0 || isGone(errno)) {
        return true;
    }
    if (errno != EISDIR) {
        return false;
    }
    walker.enterLater();
    return true;
}

bool ContentsRemoval::removeEmptied(TreeWalker &walker)
{
    if (::unlinkat(walker.folder(), walker.name(), AT_REMOVEDIR) == 0 || isGone(errno)) {
        return true;
    }
    if (!isFilled(errno) || ++m_passes[walker.path()] > maximumPasses) {
        return false;
    }
    walker.enterLater();
    return true;
}

// A folder that its owner closed to himself is opened, and is what the walker goes on with.
bool ContentsRemoval::unblock(TreeWalker &walker)
{
    const int error = walker.error();
    if (isGone(error)) {
        return true;
    }
    if (error == ENOTDIR || error == ELOOP) { // it is no folder any more
        return removeLeaf(walker);
    }
    if (m_lastUnblocked == walker.path()) { // in vain
        errno = error;
        return false;
    }
    m_lastUnblocked = walker.path();
    walker.enterLater();
    return openOwnFolder(walker.folder(), walker.name()).isOpen() || isGone(errno);
}

// Prepares a folder for being emptied. It may not be the root of another disk's files, whatever
// was mounted there since the removal was decided.
bool ContentsRemoval::prepare(int folder)
{
    struct statx status = {};
    if (!readStatus(folder, "", status)) {
        return false;
    }
    if (isMountRoot(status)) {
        errno = EBUSY;
        return false;
    }
    if ((status.stx_mode & S_IRWXU) != S_IRWXU) {
        ::fchmod(folder, S_IRWXU); // where this is not permitted, the removal says so
    }
    return true;
}

} // namespace

std::optional<FileError> removeTree(int parent, const char *name)
{
    const auto failure = [](const std::string &path = {}) {
        return FileError{FileAction::Remove, path, errorReason(errno)};
    };
    if (::unlinkat(parent, name, 0) == 0 || isGone(errno)) {
        return std::nullopt;
    }
    if (errno != EISDIR) {
        return failure();
    }
    for (int pass = 0; pass < maximumPasses; ++pass) {
        const FileDescriptor folder = openOwnFolder(parent, name);
        if (!folder.isOpen()) {
            return isGone(errno) ? std::nullopt : std::optional(failure());
        }
        ContentsRemoval contents;
        if (!contents.run(folder.get())) {
            return failure(contents.failedPath());
        }
        if (::unlinkat(parent, name, AT_REMOVEDIR) == 0 || isGone(errno)) {
            return std::nullopt;
        }
        if (!isFilled(errno)) {
            break;
        }
    }
    return failure();
}

} // namespace platform
