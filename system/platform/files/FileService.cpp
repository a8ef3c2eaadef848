#include "system/platform/files/FileService.h"

#include "system/platform/files/CopyOperation.h"
#include "system/platform/files/DirectoryReader.h"
#include "system/platform/files/FileError.h"
#include "system/platform/files/RemovalOperation.h"
#include "system/platform/files/TreeSize.h"
#include "system/platform/files/TreeWalker.h"

#include <fcntl.h>

namespace platform {

namespace {

// What a path that cannot be resolved is called in an error.
std::string lastComponent(std::string_view path)
{
    const std::string_view trimmed = path.substr(0, path.find_last_not_of('/') + 1);
    return std::string(trimmed.empty() ? path : trimmed.substr(trimmed.rfind('/') + 1));
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

std::optional<FileAttributes> FileService::attributes(std::string_view path) const
{
    const FileDescriptor item = m_volume.open(path, O_PATH | O_NOFOLLOW);
    struct stat status = {};
    if (!item.isOpen() || ::fstat(item.get(), &status) != 0) {
        return std::nullopt;
    }
    return FileAttributes{static_cast<std::uint64_t>(status.st_size), status.st_mtim,
                          status.st_mode};
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

bool FileService::visitSubpaths(std::string_view path,
                                const std::function<void(std::string_view)> &visit) const
{
    const FileDescriptor folder = openFolder(m_volume, path);
    if (!folder.isOpen()) {
        return false;
    }
    TreeWalker walker(folder.get());
    while (walker.next()) {
        if (walker.event() != TreeWalker::Event::Leave &&
            walker.event() != TreeWalker::Event::Failed) {
            visit(walker.path());
        }
    }
    return true;
}

std::uint64_t FileService::totalSize(std::string_view path) const
{
    const FileDescriptor folder = openFolder(m_volume, path);
    return folder.isOpen() ? treeSize(folder.get()) : 0;
}

bool FileService::copy(std::string_view source, std::string_view destination,
                       std::string &error) const
{
    CopyOperation::Place from;
    CopyOperation::Place to;
    const FileDescriptor sourceFolder = m_volume.openParent(source, from.name);
    if (!sourceFolder.isOpen()) {
        const std::string reason = errorReason(errno);
        error = FileError{FileAction::Copy, lastComponent(source), reason}.description();
        return false;
    }
    const FileDescriptor destinationFolder = m_volume.openParent(destination, to.name);
    if (!destinationFolder.isOpen()) {
        const std::string reason =
            errno == ENOENT ? "the folder for the copy does not exist" : errorReason(errno);
        error = FileError{FileAction::Copy, lastComponent(source), reason}.description();
        return false;
    }
    from.folder = sourceFolder.get();
    to.folder = destinationFolder.get();
    CopyOperation operation(std::move(from), std::move(to));
    if (!operation.run()) {
        error = operation.error().description();
        return false;
    }
    return true;
}

bool FileService::remove(std::string_view path, std::string &error) const
{
    std::string name;
    const FileDescriptor folder = m_volume.openParent(path, name);
    if (!folder.isOpen()) {
        const std::string reason = errorReason(errno);
        error = FileError{FileAction::Remove, lastComponent(path), reason}.description();
        return false;
    }
    RemovalOperation operation(folder.get(), std::move(name));
    if (!operation.run()) {
        error = operation.error().description();
        return false;
    }
    return true;
}

} // namespace platform
