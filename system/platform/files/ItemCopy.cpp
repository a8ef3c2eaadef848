#include "system/platform/files/ItemCopy.h"

#include "system/platform/files/Flush.h"
#include "system/platform/files/ItemRemoval.h"
#include "system/platform/files/LeafCopier.h"
#include "system/platform/files/Progress.h"
#include "system/platform/files/TreeCopy.h"
#include "system/platform/files/WorkFolder.h"

#include <dirent.h>
#include <fcntl.h>

namespace platform {

namespace {

bool isInside(int place, const struct stat &folder)
{
    FileDescriptor ancestor(::openat(place, ".", O_PATH | O_CLOEXEC));
    struct stat previous = {};
    struct stat current = {};
    while (ancestor.isOpen() && ::fstat(ancestor.get(), &current) == 0 &&
           !isSameItem(current, previous)) {
        if (isSameItem(current, folder)) {
            return true;
        }
        previous = current;
        ancestor = FileDescriptor(::openat(ancestor.get(), "..", O_PATH | O_CLOEXEC));
    }
    return false;
}

class ItemCopy
{
public:
    ItemCopy(const ItemPlace &source, const ItemPlace &destination)
        : m_source(source)
        , m_destination(destination)
        , m_work(destination.folder, destination.name)
    {}

    std::optional<FileError> run();

private:
    std::optional<FileError> copyLeaf();
    std::optional<FileError> copyFolder();
    std::optional<FileError> copyInto(int folder, int source);
    std::optional<FileError> release(FileDescriptor item);
    bool moveOut(int item);
    FileError failure(FileAction action, int error) const;

    const ItemPlace &m_source;
    const ItemPlace &m_destination;
    struct stat m_status = {}; ///< of the source
    WorkFolder m_work;
};

std::optional<FileError> ItemCopy::run()
{
    struct stat existing = {};
    if (::fstatat(m_destination.folder, m_destination.name.c_str(), &existing,
                  AT_SYMLINK_NOFOLLOW) == 0) {
        errno = EEXIST;
    }
    if (errno != ENOENT) {
        return FileError{FileAction::Copy, m_destination.name, errorReason(errno)};
    }
    if (::fstatat(m_source.folder, m_source.name.c_str(), &m_status, AT_SYMLINK_NOFOLLOW) != 0) {
        return failure(FileAction::Copy, errno);
    }
    return S_ISDIR(m_status.st_mode) ? copyFolder() : copyLeaf();
}

std::optional<FileError> ItemCopy::copyLeaf()
{
    if (!m_work.create()) {
        return failure(FileAction::Copy, errno);
    }
    Work work(Progress::Activity::Copying);
    work.setTotal(1, static_cast<std::uint64_t>(m_status.st_size));
    PacedFlush flush(m_work.descriptor());
    LeafCopier copier(m_work, flush, true);
    const auto type = static_cast<unsigned char>(IFTODT(m_status.st_mode));
    switch (copier.copy({m_source.folder, m_source.name.c_str()}, type,
                        {m_work.descriptor(), WorkFolder::item})) {
    case LeafCopier::Outcome::Done:
        return release(S_ISREG(m_status.st_mode)
                           ? openItem(m_work.descriptor(), WorkFolder::item, O_NONBLOCK)
                           : FileDescriptor());
    case LeafCopier::Outcome::Gone:
        return failure(FileAction::Copy, ENOENT);
    case LeafCopier::Outcome::IsFolder:
        return failure(FileAction::Copy, ESTALE);
    case LeafCopier::Outcome::Unreadable:
        return failure(FileAction::Read, errno);
    case LeafCopier::Outcome::Unsupported:
    case LeafCopier::Outcome::Failed:
        break;
    }
    return failure(FileAction::Copy, errno);
}

std::optional<FileError> ItemCopy::copyFolder()
{
    const FileDescriptor source = openItem(m_source.folder, m_source.name.c_str(), O_DIRECTORY);
    if (!source.isOpen() || ::fstat(source.get(), &m_status) != 0) {
        return failure(FileAction::Read, errno);
    }
    if (isInside(m_destination.folder, m_status)) {
        return FileError{FileAction::Copy, m_source.name, "the copy would lie inside it"};
    }
    if (!m_work.create()) {
        return failure(FileAction::Copy, errno);
    }
    FileDescriptor copy = makePrivateFolder(m_work.descriptor(), WorkFolder::item);
    if (!copy.isOpen()) {
        return failure(FileAction::Copy, errno);
    }
    std::optional<FileError> error = copyInto(copy.get(), source.get());
    return error ? inFolder(m_source.name, std::move(error)) : release(std::move(copy));
}

std::optional<FileError> ItemCopy::copyInto(int folder, int source)
{
    Work work(Progress::Activity::Copying);
    PacedFlush flush(m_work.descriptor());
    LeafCopier copier(m_work, flush, flush.isOfEachItem());
    TreeCopy tree(source, folder, copier, flush.isOfEachItem(), work);
    if (std::optional<FileError> error = tree.copyContents()) {
        return error;
    }
    // Removed or moved away meanwhile, and who knows with how much in it.
    if (!isItemAt(source, m_source.folder, m_source.name.c_str()) || tree.isSourceVanishing()) {
        return FileError{FileAction::Copy, {}, "it was removed meanwhile"};
    }
    std::optional<FileError> error = tree.completeTop(m_status);
    const Work flushing(Progress::Activity::Flushing);
    if (!error && !flush.isOfEachItem() && ::syncfs(m_work.descriptor()) != 0) {
        error = FileError{FileAction::Copy, {}, errorReason(errno)};
    }
    return error;
}

// Moves the finished copy, open where that is possible, to its place and flushes it there.
std::optional<FileError> ItemCopy::release(FileDescriptor item)
{
    const Work work(Progress::Activity::Flushing);
    const FileDescriptor disk(::fcntl(m_work.descriptor(), F_DUPFD_CLOEXEC, 0));
    // What cannot be opened, such as a link, cannot be flushed by itself.
    if ((!item.isOpen() && ::syncfs(disk.get()) != 0) || !moveOut(item.get())) {
        return errno == EEXIST ? FileError{FileAction::Copy, m_destination.name, errorReason(errno)}
                               : failure(FileAction::Copy, errno);
    }
    m_work.discard();
    // Some disks complete an item's entry in its folder only when the item itself is written.
    if ((item.isOpen() && !flushItem(item.get())) ||
        !flushNames(m_destination.folder, disk.get())) {
        const int error = errno;
        removeItem(m_destination);
        return failure(FileAction::Copy, error);
    }
    return std::nullopt;
}

// Moves the copy to its place. A folder can only be moved to another one when it may be written,
// and some disks give it a new date then.
bool ItemCopy::moveOut(int item)
{
    const bool isFolder = S_ISDIR(m_status.st_mode);
    struct stat status = {};
    if (isFolder && ::fstat(item, &status) != 0) {
        return false;
    }
    const bool isWriteProtected = isFolder && (status.st_mode & S_IWUSR) == 0;
    if (isWriteProtected) {
        ::fchmod(item, status.st_mode | S_IWUSR);
    }
    if (!moveItem(m_work.descriptor(), WorkFolder::item, m_destination.folder,
                  m_destination.name.c_str())) {
        return false;
    }
    if (isWriteProtected) {
        ::fchmod(item, status.st_mode);
    }
    if (isFolder) {
        const timespec times[] = {m_status.st_atim, m_status.st_mtim};
        ::futimens(item, times);
    }
    return true;
}

FileError ItemCopy::failure(FileAction action, int error) const
{
    return {action, m_source.name, errorReason(error)};
}

} // namespace

std::optional<FileError> copyItem(const ItemPlace &source, const ItemPlace &destination)
{
    return ItemCopy(source, destination).run();
}

} // namespace platform
