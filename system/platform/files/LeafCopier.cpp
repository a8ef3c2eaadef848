#include "system/platform/files/LeafCopier.h"

#include "system/platform/files/OpenItem.h"
#include "system/platform/files/Progress.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>

#include <array>

namespace platform {

namespace {

constexpr int maximumAttempts = 16; // with an original that keeps changing

LeafCopier::Outcome unreadable()
{
    return errno == ENOENT ? LeafCopier::Outcome::Gone : LeafCopier::Outcome::Unreadable;
}

// True for the errors of a disk that has no such items. That of the original has them.
bool isWithoutSuchItems(int error, const struct stat &original, const struct stat &sample)
{
    return (error == EPERM || error == EOPNOTSUPP || error == ENOSYS) &&
           original.st_dev != sample.st_dev;
}

} // namespace

LeafCopier::LeafCopier(const WorkFolder &work, PacedFlush &flush, bool flushesFiles)
    : m_sample(work.sample())
    , m_links(work.descriptor(), WorkFolder::links)
    , m_contents(flush)
    , m_metadata(work.sample())
    , m_flushesFiles(flushesFiles)
{}

LeafCopier::Outcome LeafCopier::copy(Place source, unsigned char type, Place destination)
{
    bool isFile = type == DT_REG;
    for (int attempt = 0; attempt < maximumAttempts; ++attempt) {
        const std::optional<Outcome> outcome =
            isFile ? copyFile(source, destination) : copyOther(source, destination);
        const bool isReplaced =
            (outcome == Outcome::Unreadable || outcome == Outcome::Failed) && errno == ENOENT;
        if (outcome && !isReplaced) {
            return *outcome;
        }
        if (isReplaced) { // and some disks do not tell of the old one's attributes any more
            ::unlinkat(destination.folder, destination.name, 0);
        } else {
            isFile = !isFile;
        }
    }
    errno = EAGAIN;
    return Outcome::Unreadable;
}

std::optional<LeafCopier::Outcome> LeafCopier::copyFile(Place source, Place destination)
{
    // Without O_NONBLOCK a pipe that took the file's place would be waited for.
    FileDescriptor file = openItem(source.folder, source.name, O_NONBLOCK | O_NOCTTY);
    struct stat status = {};
    if (!file.isOpen() && errno == EWOULDBLOCK) { // another process has a lease on it
        const FileDescriptor item(
            ::openat(source.folder, source.name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
        file = openPlainFile(item.get(), status);
    }
    if (!file.isOpen()) {
        const bool isOther = errno == ELOOP || errno == ENXIO;
        return isOther ? std::nullopt : std::optional(unreadable());
    }
    if (::fstat(file.get(), &status) != 0) {
        return Outcome::Unreadable;
    }
    if (S_ISDIR(status.st_mode)) {
        return Outcome::IsFolder;
    }
    if (!S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    return linkOrCreate({file.get(), ""}, status, destination,
                        [&] { return createFile(file.get(), destination, status); });
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
    return linkOrCreate(source, status, destination,
                        [&] { return createOther(source, target.data(), destination, status); });
}

// The first of several names is created, the others are linked to it.
template <typename Create>
LeafCopier::Outcome LeafCopier::linkOrCreate(Place original, const struct stat &status,
                                             Place destination, Create create)
{
    if (status.st_nlink <= 1) {
        return create();
    }
    const HardLinks::Outcome link =
        m_links.link(original.folder, original.name, destination.folder, destination.name);
    if (link == HardLinks::Outcome::Linked) {
        Work::advance(0, static_cast<std::uint64_t>(status.st_size));
    }
    if (link != HardLinks::Outcome::Unknown) {
        return link == HardLinks::Outcome::Linked ? Outcome::Done : Outcome::Failed;
    }
    const Outcome outcome = create();
    return outcome != Outcome::Done || m_links.keep(destination.folder, destination.name)
               ? outcome
               : Outcome::Failed;
}

LeafCopier::Outcome LeafCopier::createFile(int source, Place destination, const struct stat &status)
{
    if (!m_metadata.readAttributeNames(source)) {
        return Outcome::Unreadable;
    }
    FileDescriptor copy(::openat(destination.folder, destination.name,
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                 ItemMetadata::creationMode(status)));
    const bool isDone = copy.isOpen() && m_contents.copy(source, copy.get(), status) &&
                        m_metadata.applyToFile(source, copy.get(), status) &&
                        (!m_flushesFiles || ::fsync(copy.get()) == 0) && copy.close();
    return isDone ? Outcome::Done : Outcome::Failed;
}

LeafCopier::Outcome LeafCopier::createOther(Place source, const char *linkTarget, Place destination,
                                            const struct stat &status)
{
    const mode_t kind = status.st_mode & S_IFMT;
    const int error = S_ISLNK(kind) ? ::symlinkat(linkTarget, destination.folder, destination.name)
                                    : ::mknodat(destination.folder, destination.name,
                                                kind | S_IRUSR | S_IWUSR, status.st_rdev);
    if (error != 0) {
        const bool isDevice = S_ISCHR(kind) || S_ISBLK(kind); // needs privileges everywhere
        const bool isLeftOut =
            S_ISSOCK(kind) || (!isDevice && isWithoutSuchItems(errno, status, m_sample));
        return isLeftOut ? Outcome::Unsupported : Outcome::Failed;
    }
    return m_metadata.applyToName(source.folder, source.name, destination.folder, destination.name,
                                  status)
               ? Outcome::Done
               : Outcome::Failed;
}

} // namespace platform
