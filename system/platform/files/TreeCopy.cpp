#include "system/platform/files/TreeCopy.h"

#include "system/platform/files/DirectoryReader.h"
#include "system/platform/files/Flush.h"
#include "system/platform/files/OpenItem.h"
#include "system/platform/files/TreeSize.h"

#include <dirent.h>
#include <fcntl.h>

#include <string_view>
#include <utility>

namespace platform {

namespace {

constexpr std::chrono::seconds longWork(1);

// True when the folder has an entry of exactly that name, and not only one that the disk takes for
// the same.
bool lists(int folder, std::string_view name)
{
    const FileDescriptor opened(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    DirectoryReader reader;
    reader.start(opened.get());
    const DirectoryReader::Entry *entry = reader.next();
    while (entry != nullptr && entry->name != name) {
        entry = reader.next();
    }
    return entry != nullptr;
}

} // namespace

TreeCopy::TreeCopy(int source, int destination, LeafCopier &copier, bool flushesFolders, Work &work)
    : m_source(source)
    , m_destination(destination)
    , m_walker(source)
    , m_copies(destination)
    , m_copier(copier)
    , m_flushesFolders(flushesFolders)
    , m_work(work)
{}

std::optional<FileError> TreeCopy::copyContents()
{
    if (::fstat(m_destination, &m_destinationStatus) != 0) {
        return failure(FileAction::Copy, errno);
    }
    std::optional<FileError> error;
    while (!error && m_walker.next()) {
        error = copyVisited();
        measureIfLong();
    }
    return error;
}

std::optional<FileError> TreeCopy::completeTop(const struct stat &status)
{
    return completeFolder(m_source, m_destination, status);
}

bool TreeCopy::isSourceVanishing() const
{
    if (m_vanished == 0) {
        return false;
    }
    // An application at work removes a file now and then; who removes the folder leaves less and
    // less of it.
    return measureTree(m_source).items < (m_copied + m_vanished) / 2;
}

// Short work does not pay for it.
void TreeCopy::measureIfLong()
{
    if (m_hasTotal || !Work::isObserved() || m_work.elapsed() < longWork) {
        return;
    }
    m_hasTotal = true;
    const TreeMeasure total = measureTree(m_source);
    m_work.setTotal(total.items, total.fileBytes);
}

std::optional<FileError> TreeCopy::copyVisited()
{
    switch (m_walker.event()) {
    case TreeWalker::Event::Item:
        return copyLeaf(m_walker.type());
    case TreeWalker::Event::Enter:
        return enterFolder();
    case TreeWalker::Event::Leave: {
        if (std::exchange(m_isPassingOver, false)) {
            return std::nullopt;
        }
        const FileDescriptor copy = m_copies.pop();
        return copy.isOpen() ? completeFolder(m_walker.leftFolder(), copy.get(), m_walker.status())
                             : failure(FileAction::Copy, errno);
    }
    case TreeWalker::Event::Blocked:
        return passBlocked();
    case TreeWalker::Event::Failed:
        break;
    }
    return failure(FileAction::Read, m_walker.error());
}

std::optional<FileError> TreeCopy::copyLeaf(unsigned char type)
{
    const char *name = m_walker.name();
    switch (m_copier.copy({m_walker.folder(), name}, type, {m_copies.current(), name})) {
    case LeafCopier::Outcome::Done:
        ++m_copied;
        Work::advance(1, 0);
        return std::nullopt;
    case LeafCopier::Outcome::Gone:
        ++m_vanished;
        return std::nullopt;
    case LeafCopier::Outcome::IsFolder:
        m_walker.enterLater();
        return std::nullopt;
    case LeafCopier::Outcome::Unsupported: // like everything that a disk cannot keep
        return std::nullopt;
    case LeafCopier::Outcome::Unreadable:
        return failure(FileAction::Read, errno);
    case LeafCopier::Outcome::Failed:
        break;
    }
    return isCopied() ? std::nullopt : failure(FileAction::Copy, errno);
}

std::optional<FileError> TreeCopy::enterFolder()
{
    if (isSameItem(m_walker.status(), m_destinationStatus)) {
        return FileError{FileAction::Copy, {}, "the copy would lie inside it"};
    }
    FileDescriptor copy = makePrivateFolder(m_copies.current(), m_walker.name());
    if (!copy.isOpen() && isCopied()) {
        m_walker.skipContents();
        m_isPassingOver = true; // its Leave comes next
        return std::nullopt;
    }
    if (!copy.isOpen()) {
        return failure(FileAction::Copy, errno);
    }
    ++m_copied;
    Work::advance(1, 0);
    m_copies.push(std::move(copy));
    return std::nullopt;
}

std::optional<FileError> TreeCopy::passBlocked()
{
    const int error = m_walker.error();
    if (error == ENOENT) {
        ++m_vanished;
        return std::nullopt;
    }
    if (error == ENOTDIR || error == ELOOP) { // it is no folder any more
        return copyLeaf(DT_UNKNOWN);
    }
    return failure(FileAction::Read, error);
}

std::optional<FileError> TreeCopy::completeFolder(int source, int destination,
                                                  const struct stat &status)
{
    ItemMetadata &metadata = m_copier.metadata();
    if (!metadata.readAttributeNames(source)) {
        if (errno != ENOENT) {
            return failure(FileAction::Read, errno);
        }
        ++m_vanished; // and not every disk tells its attributes any more
    }
    if (!metadata.applyToFolder(source, destination, status) ||
        (m_flushesFolders && !flushItem(destination))) {
        return failure(FileAction::Copy, errno);
    }
    return std::nullopt;
}

// Some disks list an item again when others come into the folder meanwhile.
bool TreeCopy::isCopied() const
{
    if (errno != EEXIST) {
        return false;
    }
    const bool isListed = lists(m_copies.current(), m_walker.name());
    errno = EEXIST;
    return isListed;
}

std::optional<FileError> TreeCopy::failure(FileAction action, int error) const
{
    return FileError{action, m_walker.path(), errorReason(error)};
}

} // namespace platform
