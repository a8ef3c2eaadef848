#include "system/platform/files/CopyOperation.h"

#include "system/platform/files/HardLinkDepot.h"
#include "system/platform/files/LeafCopier.h"
#include "system/platform/files/OpenItem.h"
#include "system/platform/files/StagingFolder.h"
#include "system/platform/files/TreeCopy.h"

#include <dirent.h>
#include <fcntl.h>

namespace platform {

namespace {

constexpr const char *stagedLeaf = "item";

bool isSame(const struct stat &first, const struct stat &second)
{
    return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

// Gives an open file without a name, as O_TMPFILE makes it, its name.
bool nameFile(int file, int folder, const std::string &name)
{
    const std::string link = "/proc/self/fd/" + std::to_string(file);
    return ::linkat(AT_FDCWD, link.c_str(), folder, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

} // namespace

CopyOperation::CopyOperation(Place source, Place destination)
    : m_source(std::move(source))
    , m_destination(std::move(destination))
{}

bool CopyOperation::run()
{
    struct stat existing = {};
    if (::fstatat(m_destination.folder, m_destination.name.c_str(), &existing,
                  AT_SYMLINK_NOFOLLOW) == 0) {
        errno = EEXIST;
    }
    if (errno != ENOENT) {
        return fail(FileAction::Copy, m_destination.name, errorReason(errno));
    }
    if (::fstatat(m_source.folder, m_source.name.c_str(), &m_status, AT_SYMLINK_NOFOLLOW) != 0) {
        return fail(FileAction::Copy, errno);
    }
    if (S_ISDIR(m_status.st_mode)) {
        return copyFolder();
    }
    return S_ISREG(m_status.st_mode) ? copyFile() : copyLeaf();
}

// Fills a file that has no name yet, so that nothing can be left behind.
bool CopyOperation::copyFile()
{
    const FileDescriptor source = openItem(m_source.folder, m_source.name.c_str(), O_NONBLOCK);
    if (!source.isOpen()) {
        return fail(FileAction::Read, errno);
    }
    if (::fstat(source.get(), &m_status) != 0) {
        return fail(FileAction::Read, errno);
    }
    if (!S_ISREG(m_status.st_mode)) { // replaced since it was looked at
        return fail(FileAction::Copy, ESTALE);
    }
    LeafCopier copier(nullptr);
    if (!copier.metadata().readAttributeNames(source.get())) {
        return fail(FileAction::Read, errno);
    }
    const FileDescriptor copy(
        ::openat(m_destination.folder, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!copy.isOpen()) {
        return copyLeaf();
    }
    ItemMetadata::stripInherited(copy.get());
    if (!copier.fillFile(source.get(), copy.get(), m_status,
                         copier.metadata().granted(S_IRUSR | S_IWUSR)) ||
        ::fsync(copy.get()) != 0) {
        return fail(FileAction::Copy, errno);
    }
    if (!nameFile(copy.get(), m_destination.folder, m_destination.name)) {
        return errno == EEXIST ? fail(FileAction::Copy, m_destination.name, errorReason(errno))
                               : copyLeaf();
    }
    if (!flushFolder(m_destination.folder, copy.get())) {
        const int error = errno;
        ::unlinkat(m_destination.folder, m_destination.name.c_str(), 0);
        return fail(FileAction::Copy, error);
    }
    return true;
}

bool CopyOperation::copyLeaf()
{
    StagingFolder staging(m_destination.folder, m_destination.name);
    if (!staging.create()) {
        return fail(FileAction::Copy, errno);
    }
    LeafCopier copier(nullptr);
    const auto type = static_cast<unsigned char>(IFTODT(m_status.st_mode));
    switch (copier.copy({m_source.folder, m_source.name.c_str()}, type,
                        {staging.descriptor(), stagedLeaf})) {
    case LeafCopier::Outcome::Done:
        break;
    case LeafCopier::Outcome::Gone:
        return fail(FileAction::Copy, ENOENT);
    case LeafCopier::Outcome::IsFolder:
        return fail(FileAction::Copy, ESTALE);
    case LeafCopier::Outcome::Unreadable:
        return fail(FileAction::Read, errno);
    case LeafCopier::Outcome::Failed:
        return fail(FileAction::Copy, errno);
    }
    return (::syncfs(staging.descriptor()) == 0 && staging.releaseItem(stagedLeaf)) ||
           fail(FileAction::Copy, errno);
}

bool CopyOperation::copyFolder()
{
    const FileDescriptor source = openItem(m_source.folder, m_source.name.c_str(), O_DIRECTORY);
    if (!source.isOpen() || ::fstat(source.get(), &m_status) != 0) {
        return fail(FileAction::Read, errno);
    }
    if (isDestinationInside(m_status)) {
        return fail(FileAction::Copy, m_source.name, "the copy would lie inside it");
    }
    StagingFolder staging(m_destination.folder, m_destination.name);
    if (!staging.create()) {
        return fail(FileAction::Copy, errno);
    }
    HardLinkDepot depot(m_destination.folder, staging.companionName());
    TreeCopy tree(source.get(), staging.descriptor(), depot);
    if (!tree.copyContents()) {
        return fail(tree.error());
    }
    struct stat finalStatus = {};
    if (!depot.discard() || ::syncfs(staging.descriptor()) != 0 ||
        ::fstat(source.get(), &finalStatus) != 0) {
        return fail(FileAction::Copy, errno);
    }
    if (finalStatus.st_nlink == 0) { // removed meanwhile, and who knows with how much in it
        return fail(FileAction::Copy, ENOENT);
    }
    if (!tree.completeTop(m_status)) {
        return fail(tree.error());
    }
    return (::fsync(staging.descriptor()) == 0 && staging.becomeItem()) ||
           fail(FileAction::Copy, errno);
}

bool CopyOperation::isDestinationInside(const struct stat &folder) const
{
    FileDescriptor ancestor(::openat(m_destination.folder, ".", O_PATH | O_CLOEXEC));
    struct stat previous = {};
    struct stat current = {};
    while (ancestor.isOpen() && ::fstat(ancestor.get(), &current) == 0 &&
           !isSame(current, previous)) {
        if (isSame(current, folder)) {
            return true;
        }
        previous = current;
        ancestor = FileDescriptor(::openat(ancestor.get(), "..", O_PATH | O_CLOEXEC));
    }
    return false;
}

bool CopyOperation::fail(FileAction action, int error)
{
    const bool isBusy = error == EBUSY;
    return fail(action, m_source.name,
                isBusy ? "it is being copied or removed by another process" : errorReason(error));
}

bool CopyOperation::fail(FileError error)
{
    error.item = error.item.empty() ? m_source.name : m_source.name + '/' + error.item;
    m_error = std::move(error);
    return false;
}

bool CopyOperation::fail(FileAction action, const std::string &item, const std::string &reason)
{
    m_error = {action, item, reason};
    return false;
}

} // namespace platform
