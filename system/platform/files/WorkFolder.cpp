#include "system/platform/files/WorkFolder.h"

#include "system/platform/files/DirectoryReader.h"
#include "system/platform/files/ItemMetadata.h"
#include "system/platform/files/LocationLock.h"
#include "system/platform/files/OpenItem.h"
#include "system/platform/files/TreeRemoval.h"

#include <fcntl.h>
#include <sys/file.h>

#include <string_view>

namespace platform {

namespace {

constexpr int maximumNumber = 100;
constexpr const char *mark = "tarnwell.txt";
constexpr std::string_view markText =
    "Tarnwell is making a copy in this folder or removing an item in it. If it was cut off, the\n"
    "folder goes with the next backup or restore of that item; you may remove it, too.\n";

// Not so when another process has the lock. A disk without locks counts as locked.
bool lock(int folder)
{
    return ::flock(folder, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

bool makeMark(int folder, struct stat &sample)
{
    constexpr mode_t every = S_IRWXU | S_IRWXG | S_IRWXO;
    FileDescriptor file(
        ::openat(folder, mark, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, every));
    // The text is for people: on a full disk the name has to do.
    return file.isOpen() &&
           (::write(file.get(), markText.data(), markText.size()) >= 0 || errno == ENOSPC ||
            errno == EDQUOT) &&
           ::fstat(file.get(), &sample) == 0 && file.close();
}

enum class Contents
{
    Foreign,
    Nothing, ///< it was not marked yet
    Ours
};

Contents contentsOf(int folder)
{
    Contents contents = Contents::Nothing;
    bool isMarked = false;
    DirectoryReader reader;
    reader.start(folder);
    while (const DirectoryReader::Entry *entry = reader.next()) {
        const std::string_view name = entry->name;
        if (name != mark && name != WorkFolder::item && name != WorkFolder::links) {
            return Contents::Foreign;
        }
        isMarked = isMarked || name == mark;
        contents = isMarked ? Contents::Ours : Contents::Foreign;
    }
    return reader.error() == 0 ? contents : Contents::Foreign;
}

// Removes the folder with everything in it, the mark last.
bool removeWorkFolder(int parent, const std::string &name, int folder)
{
    return !removeTree(folder, WorkFolder::item) && !removeTree(folder, WorkFolder::links) &&
           !removeTree(folder, mark) && ::unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0;
}

} // namespace

WorkFolder::WorkFolder(int parent, const std::string &itemName)
    : m_parent(parent)
    , m_prefix(".tarnwell-" + locationHash(itemName) + '.')
{}

WorkFolder::~WorkFolder()
{
    if (!discard()) {
        discard(); // what failed once may have been an accident
    }
}

bool WorkFolder::create()
{
    struct statx parent = {};
    if (readStatus(m_parent, "", parent) && isLocked(parent)) { // nothing in it could be removed
        errno = EPERM;
        return false;
    }
    for (int number = 0; number < maximumNumber; ++number) {
        const std::string name = nameOf(number);
        clearLeftover(name);
        if (m_folder.isOpen()) {
            struct stat status = {}; // the row of those that may be left ends with a free name
            if (::fstatat(m_parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
                return true;
            }
        } else if (!make(name) && errno != EEXIST) {
            return false;
        }
    }
    errno = EEXIST;
    return m_folder.isOpen();
}

bool WorkFolder::discard()
{
    if (!m_folder.isOpen()) {
        return true;
    }
    const int error = errno;
    if (!removeWorkFolder(m_parent, m_name, m_folder.get())) {
        return false;
    }
    m_folder.reset();
    errno = error;
    return true;
}

std::string WorkFolder::nameOf(int number) const
{
    return m_prefix + std::to_string(number);
}

bool WorkFolder::make(const std::string &name)
{
    m_folder = makePrivateFolder(m_parent, name.c_str());
    if (!m_folder.isOpen()) {
        return false;
    }
    m_name = name;
    stripInherited(m_folder.get());
    // This takes away, too, that the folder passes its group on.
    if ((::fchmod(m_folder.get(), S_IRWXU) == 0 || isBeyondDisk(errno)) && lock(m_folder.get()) &&
        makeMark(m_folder.get(), m_sample)) {
        return true;
    }
    const int error = errno;
    discard();
    m_folder.reset();
    errno = error;
    return false;
}

// Disks that keep neither owners nor modes give every folder those of its parent.
bool WorkFolder::isOwn(int folder) const
{
    struct stat parent = {};
    struct stat status = {};
    if (::fstat(m_parent, &parent) != 0 || ::fstat(folder, &status) != 0 ||
        status.st_dev != parent.st_dev) {
        return false;
    }
    const bool isOurs = status.st_uid == ::geteuid();
    const bool isPrivate = isOurs && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
    const bool isLikeParent = status.st_uid == parent.st_uid && status.st_mode == parent.st_mode;
    switch (contentsOf(folder)) {
    case Contents::Ours:
        return isPrivate || isLikeParent;
    case Contents::Nothing:
        return isPrivate || (isLikeParent && isOurs);
    case Contents::Foreign:
        break;
    }
    return false;
}

void WorkFolder::clearLeftover(const std::string &name) const
{
    const FileDescriptor leftover = openItem(m_parent, name.c_str(), O_DIRECTORY);
    struct statx status = {};
    if (leftover.isOpen() && readStatus(leftover.get(), "", status) && !isMountRoot(status) &&
        lock(leftover.get()) && isOwn(leftover.get())) {
        removeWorkFolder(m_parent, name, leftover.get());
    }
}

} // namespace platform
