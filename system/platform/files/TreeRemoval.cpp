#include "system/platform/files/TreeRemoval.h"

#include "system/platform/files/OpenItem.h"
#include "system/platform/files/TreeWalker.h"

#include <fcntl.h>

namespace platform {

namespace {

constexpr int maximumPasses = 100; // over a folder in which new items appear meanwhile

enum class Step
{
    Done,
    EnterLater,
    Failed
};

bool isGone(int error)
{
    return error == ENOENT;
}

Step removeLeaf(int folder, const char *name)
{
    if (::unlinkat(folder, name, 0) == 0 || isGone(errno)) {
        return Step::Done;
    }
    return errno == EISDIR ? Step::EnterLater : Step::Failed;
}

Step unblock(const TreeWalker &walker)
{
    if (isGone(walker.error())) {
        return Step::Done;
    }
    if (walker.error() == ENOTDIR || walker.error() == ELOOP) { // it is no folder any more
        return removeLeaf(walker.folder(), walker.name());
    }
    return openOwnFolder(walker.folder(), walker.name()).isOpen() ? Step::EnterLater : Step::Failed;
}

void makeWritable(int folder, const struct stat &status)
{
    if ((status.st_mode & S_IRWXU) != S_IRWXU) {
        ::fchmod(folder, S_IRWXU); // where this is not permitted, the removal says so
    }
}

Step removeEmptied(int parent, const char *name)
{
    if (::unlinkat(parent, name, AT_REMOVEDIR) == 0 || isGone(errno)) {
        return Step::Done;
    }
    // Some disks pass over entries of a folder that changes while it is read.
    return errno == ENOTEMPTY || errno == EEXIST ? Step::EnterLater : Step::Failed;
}

// Prepares a folder for being emptied. It may not be the root of another disk's files, whatever
// was mounted there since the removal was decided.
Step enterFolder(int folder, const struct stat &status)
{
    if ((systemAttributes(folder) & STATX_ATTR_MOUNT_ROOT) != 0) {
        errno = EBUSY;
        return Step::Failed;
    }
    makeWritable(folder, status);
    return Step::Done;
}

Step removeVisited(const TreeWalker &walker)
{
    switch (walker.event()) {
    case TreeWalker::Event::Item:
        return removeLeaf(walker.folder(), walker.name());
    case TreeWalker::Event::Enter:
        return enterFolder(walker.folder(), walker.status());
    case TreeWalker::Event::Leave:
        return removeEmptied(walker.folder(), walker.name());
    case TreeWalker::Event::Blocked:
        return unblock(walker);
    case TreeWalker::Event::Failed:
        break;
    }
    errno = walker.error();
    return Step::Failed;
}

} // namespace

bool TreeRemoval::removeItem(int parent, const char *name)
{
    m_failedPath.clear();
    if (::unlinkat(parent, name, 0) == 0 || isGone(errno)) {
        return true;
    }
    if (errno != EISDIR) {
        return false;
    }
    for (int pass = 0; pass < maximumPasses; ++pass) {
        const FileDescriptor folder = openOwnFolder(parent, name);
        if (!folder.isOpen()) {
            return isGone(errno);
        }
        if (!removeContents(folder.get())) {
            return false;
        }
        const Step step = removeEmptied(parent, name);
        if (step != Step::EnterLater) {
            return step == Step::Done;
        }
    }
    errno = ENOTEMPTY;
    return false;
}

bool TreeRemoval::removeContents(int folder)
{
    struct stat status = {};
    if (::fstat(folder, &status) != 0) {
        return false;
    }
    makeWritable(folder, status);
    TreeWalker walker(folder);
    int passes = 0;
    while (walker.next()) {
        const Step step = removeVisited(walker);
        if (step == Step::Failed || (step == Step::EnterLater && ++passes > maximumPasses)) {
            const int error = errno;
            m_failedPath = walker.path();
            errno = error;
            return false;
        }
        if (step == Step::EnterLater) {
            walker.enterLater();
        }
    }
    return true;
}

} // namespace platform
