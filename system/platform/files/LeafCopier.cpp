#include "system/platform/files/LeafCopier.h"

#include "system/platform/files/OpenItem.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>

#include <array>

namespace platform {

namespace {

constexpr int maximumAttempts = 16; // with an original whose kind keeps changing

LeafCopier::Outcome unreadable()
{
    return errno == ENOENT ? LeafCopier::Outcome::Gone : LeafCopier::Outcome::Unreadable;
}

} // namespace

LeafCopier::Outcome LeafCopier::copy(Place source, unsigned char type, Place destination)
{
    bool isFile = type == DT_REG;
    for (int attempt = 0; attempt < maximumAttempts; ++attempt) {
        const std::optional<Outcome> outcome =
            isFile ? copyFile(source, destination) : copyOther(source, destination);
        if (outcome) {
            return *outcome;
        }
        isFile = !isFile;
    }
    errno = EAGAIN;
    return Outcome::Unreadable;
}

bool LeafCopier::fillFile(int source, int destination, const struct stat &status, mode_t current)
{
    return m_contents.copy(source, destination, status) &&
           m_metadata.apply(source, destination, status, current);
}

std::optional<LeafCopier::Outcome> LeafCopier::copyFile(Place source, Place destination)
{
    // Without O_NONBLOCK a pipe that took the file's place would be waited for.
    const FileDescriptor file = openItem(source.folder, source.name, O_NONBLOCK | O_NOCTTY);
    if (!file.isOpen()) {
        const bool isOther = errno == ELOOP || errno == ENXIO;
        return isOther ? std::nullopt : std::optional(unreadable());
    }
    struct stat status = {};
    if (::fstat(file.get(), &status) != 0) {
        return Outcome::Unreadable;
    }
    if (S_ISDIR(status.st_mode)) {
        return Outcome::IsFolder;
    }
    if (!S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    if (!isLinked(status)) {
        return createFile(file.get(), destination, status) ? Outcome::Done : Outcome::Failed;
    }
    const std::string key = HardLinkDepot::key(file.get(), "", status);
    const bool isDone = m_depot->link(key, destination.folder, destination.name) ||
                        (createFile(file.get(), destination, status) &&
                         m_depot->keep(key, destination.folder, destination.name));
    return isDone ? Outcome::Done : Outcome::Failed;
}

std::optional<LeafCopier::Outcome> LeafCopier::copyOther(Place source, Place destination)
{
    struct stat status = {};
    if (::fstatat(source.folder, source.name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return unreadable();
    }
    if (S_ISDIR(status.st_mode)) {
        return Outcome::IsFolder;
    }
    if (S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    std::array<char, PATH_MAX> target = {};
    if (S_ISLNK(status.st_mode) &&
        ::readlinkat(source.folder, source.name, target.data(), target.size() - 1) < 0) {
        return errno == EINVAL ? std::nullopt : std::optional(unreadable());
    }
    if (!isLinked(status)) {
        return createOther(target.data(), destination, status) ? Outcome::Done : Outcome::Failed;
    }
    const std::string key = HardLinkDepot::key(source.folder, source.name, status);
    const bool isDone = m_depot->link(key, destination.folder, destination.name) ||
                        (createOther(target.data(), destination, status) &&
                         m_depot->keep(key, destination.folder, destination.name));
    return isDone ? Outcome::Done : Outcome::Failed;
}

bool LeafCopier::createFile(int source, Place destination, const struct stat &status)
{
    if (!m_metadata.readAttributeNames(source)) {
        return false;
    }
    const mode_t mode = m_metadata.creationMode(status);
    FileDescriptor copy(::openat(destination.folder, destination.name,
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (!copy.isOpen()) {
        return false;
    }
    m_metadata.learnOwner(copy.get());
    return fillFile(source, copy.get(), status, m_metadata.granted(mode)) && copy.close();
}

bool LeafCopier::createOther(const char *linkTarget, Place destination, const struct stat &status)
{
    if (S_ISLNK(status.st_mode)) {
        return ::symlinkat(linkTarget, destination.folder, destination.name) == 0 &&
               m_metadata.applyToName(destination.folder, destination.name, status);
    }
    const mode_t kind = status.st_mode & S_IFMT;
    return (::mknodat(destination.folder, destination.name, kind | S_IRUSR | S_IWUSR,
                      status.st_rdev) == 0 &&
            m_metadata.applyToName(destination.folder, destination.name, status)) ||
           S_ISSOCK(status.st_mode);
}

bool LeafCopier::isLinked(const struct stat &status) const
{
    return m_depot != nullptr && status.st_nlink > 1;
}

} // namespace platform
