#include "system/platform/FileManager.h"

#include "system/platform/PathEncoding.h"
#include "system/platform/files/OpenItem.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

namespace {

constexpr qint64 largestReadBuffer = 64LL * 1024; // bytes

// True when nothing went wrong.
bool answer(const std::optional<FileError> &failure, Error *error)
{
    if (failure && error) {
        error->localizedDescription = QString::fromStdString(failure->description());
    }
    return !failure;
}

/// Opens a regular file for reading and stores its status. It is looked at first: opening a device
/// can have effects, and a pipe would be waited for.
FileDescriptor openRegularFile(const std::string &path, struct stat &status)
{
    // Most are found in their folder under that very name, which costs least.
    const std::size_t nameStart = path.rfind('/') + 1;
    const char *const name = path.c_str() + nameStart;
    const FileDescriptor folder =
        Volume::current().open(path.substr(0, nameStart), O_PATH | O_DIRECTORY);
    if (folder.isOpen() && ::fstatat(folder.get(), name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISREG(status.st_mode)) {
        return FileDescriptor(
            ::openat(folder.get(), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    }
    return openPlainFile(Volume::current().open(path, O_PATH).get(), status);
}

} // namespace

FileManager::FileManager() : m_service(Volume::current()) {}

FileManager &FileManager::defaultManager()
{
    static FileManager manager;
    return manager;
}

bool FileManager::fileExistsAtPath(const QString &path) const
{
    return m_service.exists(bytesFromPath(path));
}

bool FileManager::directoryHasContents(const QString &path) const
{
    return m_service.hasContents(bytesFromPath(path));
}

bool FileManager::lockItemAtPath(const QString &path, LocationLock &lock, Error *error) const
{
    return answer(m_service.lock(bytesFromPath(path), lock), error);
}

bool FileManager::copyItemAtPath(const QString &source, const QString &destination,
                                 Error *error) const
{
    return answer(m_service.copy(bytesFromPath(source), bytesFromPath(destination)), error);
}

bool FileManager::removeItemAtPath(const QString &path, Error *error) const
{
    return answer(m_service.remove(bytesFromPath(path)), error);
}

QDateTime FileManager::modificationDate(const QString &path) const
{
    const auto time = m_service.modificationDate(bytesFromPath(path));
    return time ? QDateTime::fromSecsSinceEpoch(time->tv_sec).addMSecs(time->tv_nsec / 1'000'000)
                : QDateTime();
}

float FileManager::directorySize(const QString &path) const
{
    return float(double(m_service.totalSize(bytesFromPath(path))) / 1'000'000.0);
}

std::optional<QByteArray> FileManager::contentsAtPath(const QString &path, qint64 limit) const
{
    struct stat status = {};
    const FileDescriptor descriptor = openRegularFile(bytesFromPath(path), status);
    if (!descriptor.isOpen() || status.st_size > limit) {
        return std::nullopt;
    }
    QByteArray large;
    QByteArray &bytes = status.st_size > largestReadBuffer ? large : m_readBuffer;
    bytes.resize(qsizetype(status.st_size));
    qsizetype length = 0;
    while (length < bytes.size()) {
        const ssize_t count =
            ::read(descriptor.get(), bytes.data() + length, size_t(bytes.size() - length));
        if (count < 0) {
            return std::nullopt;
        }
        if (count == 0) { // it has become shorter
            break;
        }
        length += count;
    }
    bytes.truncate(length);
    return bytes;
}

} // namespace platform
