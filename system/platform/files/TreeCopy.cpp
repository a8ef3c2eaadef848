#include "system/platform/files/TreeCopy.h"

#include "system/platform/files/OpenItem.h"

#include <dirent.h>
#include <fcntl.h>

namespace platform {

TreeCopy::TreeCopy(int source, int destination, HardLinkDepot &depot)
    : m_source(source)
    , m_destination(destination)
    , m_walker(source)
    , m_copies(destination)
    , m_copier(&depot)
{}

bool TreeCopy::copyContents()
{
    if (::fstat(m_destination, &m_destinationStatus) != 0) {
        return fail(FileAction::Copy, errno);
    }
    while (m_walker.next()) {
        if (!copyVisited()) {
            return false;
        }
    }
    return true;
}

bool TreeCopy::completeTop(const struct stat &status)
{
    m_copier.metadata().forgetOwner(); // the destination lies in a folder that can impose a group
    return completeFolder(m_source, m_destination, status);
}

bool TreeCopy::copyVisited()
{
    switch (m_walker.event()) {
    case TreeWalker::Event::Item:
        return copyLeaf(m_walker.type());
    case TreeWalker::Event::Enter:
        return enterFolder();
    case TreeWalker::Event::Leave: {
        const FileDescriptor copy = m_copies.pop();
        return copy.isOpen() ? completeFolder(m_walker.leftFolder(), copy.get(), m_walker.status())
                             : fail(FileAction::Copy, errno);
    }
    case TreeWalker::Event::Blocked:
        return passBlocked();
    case TreeWalker::Event::Failed:
        break;
    }
    return fail(FileAction::Read, m_walker.error());
}

bool TreeCopy::copyLeaf(unsigned char type)
{
    const char *name = m_walker.name();
    switch (m_copier.copy({m_walker.folder(), name}, type, {m_copies.current(), name})) {
    case LeafCopier::Outcome::Done:
    case LeafCopier::Outcome::Gone:
        return true;
    case LeafCopier::Outcome::IsFolder:
        m_walker.enterLater();
        return true;
    case LeafCopier::Outcome::Unreadable:
        return fail(FileAction::Read, errno);
    case LeafCopier::Outcome::Failed:
        break;
    }
    return fail(FileAction::Copy, errno);
}

bool TreeCopy::enterFolder()
{
    if (isDestination(m_walker.status())) {
        m_error = {FileAction::Copy, {}, "the copy would lie inside it"};
        return false;
    }
    FileDescriptor copy = makePrivateFolder(m_copies.current(), m_walker.name());
    if (!copy.isOpen()) {
        return fail(FileAction::Copy, errno);
    }
    m_copier.metadata().learnOwner(copy.get());
    m_copies.push(std::move(copy));
    return true;
}

bool TreeCopy::passBlocked()
{
    const int error = m_walker.error();
    if (error == ENOENT) {
        return true;
    }
    if (error == ENOTDIR || error == ELOOP) { // it is no folder any more
        return copyLeaf(DT_UNKNOWN);
    }
    return fail(FileAction::Read, error);
}

bool TreeCopy::completeFolder(int source, int destination, const struct stat &status)
{
    ItemMetadata &metadata = m_copier.metadata();
    if (!metadata.readAttributeNames(source)) {
        return fail(FileAction::Read, errno);
    }
    return metadata.apply(source, destination, status, S_IRWXU) || fail(FileAction::Copy, errno);
}

bool TreeCopy::isDestination(const struct stat &folder) const
{
    return folder.st_dev == m_destinationStatus.st_dev &&
           folder.st_ino == m_destinationStatus.st_ino;
}

bool TreeCopy::fail(FileAction action, int error)
{
    m_error = {action, m_walker.path(), errorReason(error)};
    return false;
}

} // namespace platform
