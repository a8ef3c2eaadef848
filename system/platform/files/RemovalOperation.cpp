#include "system/platform/files/RemovalOperation.h"

#include "system/platform/files/OpenItem.h"
#include "system/platform/files/RemovalCheck.h"
#include "system/platform/files/StagingFolder.h"
#include "system/platform/files/TreeRemoval.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace platform {

RemovalOperation::RemovalOperation(int parent, std::string name)
    : m_parent(parent)
    , m_name(std::move(name))
{}

bool RemovalOperation::run()
{
    if (::unlinkat(m_parent, m_name.c_str(), 0) == 0) {
        return true;
    }
    return errno == EISDIR ? removeFolder() : fail({}, errorReason(errno));
}

bool RemovalOperation::removeFolder()
{
    struct stat status = {};
    if (::fstatat(m_parent, m_name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return fail({}, errorReason(errno));
    }
    FileDescriptor folder = openOwnFolder(m_parent, m_name.c_str());
    struct stat opened = {};
    if (!folder.isOpen() || ::fstat(folder.get(), &opened) != 0) {
        return fail({}, errorReason(errno));
    }
    // The mode of another item must not be given to this one below.
    if (opened.st_dev != status.st_dev || opened.st_ino != status.st_ino) {
        return fail({}, errorReason(ESTALE));
    }
    RemovalCheck check;
    if (!check.run(folder.get())) {
        ::fchmod(folder.get(), status.st_mode); // opening it may have taken that
        return fail(check.error().item, check.error().reason);
    }
    StagingFolder staging(m_parent, m_name);
    if (!staging.takeItem(folder)) {
        if (errno == EXDEV) { // a folder in the lower layer of an overlay cannot be moved
            return removeInPlace();
        }
        const std::string reason = errorReason(errno);
        ::fchmod(folder.get(), status.st_mode);
        return fail({}, reason);
    }
    std::string failedPath;
    return staging.discard(failedPath) || fail(failedPath, errorReason(errno));
}

bool RemovalOperation::removeInPlace()
{
    TreeRemoval removal;
    return removal.removeItem(m_parent, m_name.c_str()) ||
           fail(removal.failedPath(), errorReason(errno));
}

bool RemovalOperation::fail(const std::string &path, const std::string &reason)
{
    m_error = {FileAction::Remove, path.empty() ? m_name : m_name + '/' + path, reason};
    return false;
}

} // namespace platform
