#include "system/platform/FileManager.h"

#include "system/platform/PathEncoding.h"

#include <fcntl.h>
#include <unistd.h>

namespace platform {

namespace {

constexpr qint64 largestReadBuffer = 64LL * 1024; // bytes

QDateTime dateFromTimestamp(const timespec &time)
{
    return QDateTime::fromSecsSinceEpoch(time.tv_sec).addMSecs(time.tv_nsec / 1'000'000);
}

bool answer(bool succeeded, const std::string &description, Error *error)
{
    if (!succeeded && error) {
        error->localizedDescription = QString::fromStdString(description);
    }
    return succeeded;
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

std::optional<QStringList> FileManager::contentsOfDirectoryAtPath(const QString &path) const
{
    const auto names = m_service.contents(bytesFromPath(path));
    if (!names) {
        return std::nullopt;
    }
    QStringList contents;
    contents.reserve(qsizetype(names->size()));
    for (const std::string &name : *names) {
        contents.append(pathFromBytes(name));
    }
    return contents;
}

std::optional<QStringList> FileManager::subpathsAtPath(const QString &path) const
{
    QStringList subpaths;
    const bool listed = m_service.visitSubpaths(bytesFromPath(path), [&](std::string_view subpath) {
        subpaths.append(pathFromBytes(subpath));
    });
    return listed ? std::optional(subpaths) : std::nullopt;
}

std::optional<ItemAttributes> FileManager::attributesOfItemAtPath(const QString &path) const
{
    const auto attributes = m_service.attributes(bytesFromPath(path));
    if (!attributes) {
        return std::nullopt;
    }
    return ItemAttributes{attributes->size, dateFromTimestamp(attributes->modificationDate)};
}

bool FileManager::copyItemAtPath(const QString &source, const QString &destination,
                                 Error *error) const
{
    std::string description;
    const bool copied =
        m_service.copy(bytesFromPath(source), bytesFromPath(destination), description);
    return answer(copied, description, error);
}

bool FileManager::removeItemAtPath(const QString &path, Error *error) const
{
    std::string description;
    return answer(m_service.remove(bytesFromPath(path), description), description, error);
}

QDateTime FileManager::modificationDate(const QString &path) const
{
    const auto attributes = attributesOfItemAtPath(path);
    return attributes ? attributes->modificationDate : QDateTime();
}

float FileManager::directorySize(const QString &path) const
{
    return float(double(m_service.totalSize(bytesFromPath(path))) / 1'000'000.0);
}

std::optional<QByteArray> FileManager::contentsAtPath(const QString &path, qint64 limit) const
{
    // Not to wait for a writer if the item is a FIFO.
    const FileDescriptor descriptor =
        Volume::current().open(bytesFromPath(path), O_RDONLY | O_NONBLOCK);
    struct stat status = {};
    if (!descriptor.isOpen() || ::fstat(descriptor.get(), &status) != 0 ||
        !S_ISREG(status.st_mode) || status.st_size > limit) {
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
