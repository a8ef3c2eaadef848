#include "system/platform/files/RootFolder.h"

#include "system/platform/files/OpenItem.h"

#include <fcntl.h>
#include <limits.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <algorithm>

namespace platform {

namespace {

FileDescriptor openResolved(int folder, const std::string &path, int flags, unsigned int resolve)
{
    open_how how = {};
    how.flags = static_cast<unsigned int>(flags | O_CLOEXEC);
    how.resolve = resolve;
    // The kernel answers EAGAIN when a folder was moved while it resolved a "..".
    long descriptor = -1;
    for (int attempt = 0; attempt < 64; ++attempt) {
        descriptor = ::syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how);
        if (descriptor >= 0 || (errno != EAGAIN && errno != EINTR)) {
            break;
        }
    }
    return FileDescriptor(static_cast<int>(descriptor));
}

} // namespace

RootFolder::RootFolder(const std::string &hostPath)
    : m_folder(::open(hostPath.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC))
{}

bool RootFolder::isHost() const
{
    struct stat own = {};
    struct stat host = {};
    return m_folder.isOpen() && ::fstat(m_folder.get(), &own) == 0 && ::stat("/", &host) == 0 &&
           isSameItem(own, host);
}

FileDescriptor RootFolder::open(std::string path, int flags) const
{
    if (!m_folder.isOpen()) {
        errno = ENOENT;
        return {};
    }
    // The kernel takes paths below PATH_MAX only, so a longer one is gone along in stretches.
    FileDescriptor stretch;
    int start = m_folder.get();
    unsigned int resolve = RESOLVE_IN_ROOT;
    while (path.size() >= PATH_MAX) {
        const std::size_t end = path.rfind('/', PATH_MAX - 1);
        if (end == std::string::npos || end == 0) {
            errno = ENAMETOOLONG;
            return {};
        }
        stretch = openResolved(start, path.substr(0, end), O_PATH | O_DIRECTORY, resolve);
        if (!stretch.isOpen()) {
            return {};
        }
        start = stretch.get();
        resolve = RESOLVE_BENEATH;
        path.erase(0, std::min(path.find_first_not_of('/', end), path.size()));
    }
    return openResolved(start, path.empty() ? "." : path, flags, resolve);
}

} // namespace platform
