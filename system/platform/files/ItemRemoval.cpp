#include "system/platform/files/ItemRemoval.h"

#include "system/platform/files/Progress.h"
#include "system/platform/files/RemovalCheck.h"
#include "system/platform/files/TreeRemoval.h"
#include "system/platform/files/WorkFolder.h"

#include <fcntl.h>

namespace platform {

namespace {

FileError failure(const ItemPlace &item, int error)
{
    return {FileAction::Remove, item.name, errorReason(error)};
}

// Moves the folder out of sight and removes it there, so that no half of it is ever seen; what
// cannot be removed comes back.
std::optional<FileError> removeHidden(const ItemPlace &item, int folder, mode_t mode,
                                      const WorkFolder &work)
{
    std::optional<FileError> error = removeTree(work.descriptor(), WorkFolder::item);
    if (error) {
        moveItem(work.descriptor(), WorkFolder::item, item.folder, item.name.c_str());
        ::fchmod(folder, mode);
    }
    return inFolder(item.name, std::move(error));
}

std::optional<FileError> removeFolder(const ItemPlace &item)
{
    const char *name = item.name.c_str();
    struct stat status = {};
    if (::fstatat(item.folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return failure(item, errno);
    }
    const FileDescriptor folder = openOwnFolder(item.folder, name);
    struct stat opened = {};
    if (!folder.isOpen() || ::fstat(folder.get(), &opened) != 0) {
        return failure(item, errno);
    }
    // The mode of another item must not be given to this one below.
    if (!isSameItem(opened, status)) {
        return failure(item, ESTALE);
    }
    // A folder can only be moved to another one when it may be written.
    const bool isClosed = (status.st_mode & S_IRWXU) != S_IRWXU;
    if (isClosed) {
        ::fchmod(folder.get(), S_IRWXU);
    }
    std::optional<FileError> error = checkRemoval(folder.get());
    WorkFolder work(item.folder, item.name);
    if (!error && work.create() &&
        moveItem(item.folder, name, work.descriptor(), WorkFolder::item)) {
        return removeHidden(item, folder.get(), status.st_mode, work);
    }
    // A full disk has no room to hide it in, and the lower layer of an overlay cannot be moved.
    if (!error && (errno == ENOSPC || errno == EDQUOT || errno == EXDEV)) {
        error = removeTree(item.folder, name);
    } else if (!error) {
        error = FileError{FileAction::Remove, {}, errorReason(errno)};
    }
    if (error && isClosed) {
        ::fchmod(folder.get(), status.st_mode);
    }
    return inFolder(item.name, std::move(error));
}

} // namespace

std::optional<FileError> removeItem(const ItemPlace &item)
{
    const Work work(Progress::Activity::Removing);
    if (::unlinkat(item.folder, item.name.c_str(), 0) == 0) {
        return std::nullopt;
    }
    if (errno != EISDIR) {
        return failure(item, errno);
    }
    const bool isEmptied = ::unlinkat(item.folder, item.name.c_str(), AT_REMOVEDIR) == 0;
    return isEmptied ? std::nullopt : removeFolder(item);
}

} // namespace platform
