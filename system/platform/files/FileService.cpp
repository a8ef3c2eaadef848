#include "system/platform/files/FileService.h"

#include "system/platform/files/DirectoryReader.h"
#include "system/platform/files/ItemCopy.h"
#include "system/platform/files/ItemRemoval.h"
#include "system/platform/files/Progress.h"
#include "system/platform/files/TreeSize.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace platform {

namespace {

// What a path that cannot be resolved is called in an error.
std::string lastComponent(std::string_view path)
{
    const std::string_view trimmed = path.substr(0, path.find_last_not_of('/') + 1);
    return std::string(trimmed.empty() ? path : trimmed.substr(trimmed.rfind('/') + 1));
}

std::string lockReason(int error)
{
    return error == EBUSY ? "it is being copied or removed by another process" : errorReason(error);
}

FileDescriptor openFolder(const Volume &volume, std::string_view path)
{
    FileDescriptor folder = volume.open(path, O_RDONLY | O_DIRECTORY | O_NOATIME);
    if (!folder.isOpen() && errno == EPERM) {
        folder = volume.open(path, O_RDONLY | O_DIRECTORY);
    }
    return folder;
}

} // namespace

bool FileService::exists(std::string_view path) const
{
    return m_volume.open(path, O_PATH).isOpen();
}

std::optional<timespec> FileService::modificationDate(std::string_view path) const
{
    const FileDescriptor item = m_volume.open(path, O_PATH | O_NOFOLLOW);
    struct stat status = {};
    const bool isRead = item.isOpen() && ::fstat(item.get(), &status) == 0;
    return isRead ? std::optional(status.st_mtim) : std::nullopt;
}

std::optional<std::vector<std::string>> FileService::contents(std::string_view path) const
{
    const FileDescriptor folder = openFolder(m_volume, path);
    if (!folder.isOpen()) {
        return std::nullopt;
    }
    std::vector<std::string> names;
    DirectoryReader reader;
    reader.start(folder.get());
    while (const DirectoryReader::Entry *entry = reader.next()) {
        names.emplace_back(entry->name);
    }
    return reader.error() == 0 ? std::optional(std::move(names)) : std::nullopt;
}

bool FileService::hasContents(std::string_view path) const
{
    const FileDescriptor folder = openFolder(m_volume, path);
    DirectoryReader reader(1024); // "." and ".." besides the entry
    reader.start(folder.get());
    return folder.isOpen() && reader.next() != nullptr;
}

std::uint64_t FileService::totalSize(std::string_view path) const
{
    const FileDescriptor folder = openFolder(m_volume, path);
    const Work work(Progress::Activity::Measuring);
    return folder.isOpen() ? measureTree(folder.get()).bytes : 0;
}

std::optional<FileError> FileService::lock(std::string_view path, LocationLock &lock) const
{
    ItemPlace place;
    const FileDescriptor folder = m_volume.openParent(path, place.name);
    if (!folder.isOpen() || lock.acquire(folder.get(), place.name)) {
        return std::nullopt; // where there is no folder there is nothing to work on
    }
    return FileError{FileAction::Copy, lastComponent(path), lockReason(errno)};
}

std::optional<FileError> FileService::copy(std::string_view source,
                                           std::string_view destination) const
{
    const auto failure = [source](const std::string &reason) {
        return FileError{FileAction::Copy, lastComponent(source), reason};
    };
    ItemPlace from;
    ItemPlace to;
    const FileDescriptor sourceFolder = m_volume.openParent(source, from.name);
    if (!sourceFolder.isOpen()) {
        return failure(errorReason(errno));
    }
    const FileDescriptor destinationFolder = m_volume.openParent(destination, to.name);
    if (!destinationFolder.isOpen()) {
        return failure(errno == ENOENT ? "the folder for the copy does not exist"
                                       : errorReason(errno));
    }
    from.folder = sourceFolder.get();
    to.folder = destinationFolder.get();
    LocationLock lock;
    if (!lock.acquire(to.folder, to.name)) {
        return failure(lockReason(errno));
    }
    return copyItem(from, to);
}

std::optional<FileError> FileService::remove(std::string_view path) const
{
    const auto failure = [path](const std::string &reason) {
        return FileError{FileAction::Remove, lastComponent(path), reason};
    };
    ItemPlace item;
    const FileDescriptor folder = m_volume.openParent(path, item.name);
    if (!folder.isOpen()) {
        return failure(errorReason(errno));
    }
    item.folder = folder.get();
    LocationLock lock;
    if (!lock.acquire(item.folder, item.name)) {
        return failure(lockReason(errno));
    }
    return removeItem(item);
}

} // namespace platform
