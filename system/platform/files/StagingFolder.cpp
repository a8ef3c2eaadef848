#include "system/platform/files/StagingFolder.h"

#include "system/platform/files/ItemMetadata.h"
#include "system/platform/files/OpenItem.h"
#include "system/platform/files/TreeRemoval.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>

namespace platform {

namespace {

constexpr int maximumAttempts = 100; // to win the name against others that clear it meanwhile

// The same for every process and every version, or leftovers would not be found: FNV-1a.
std::string hiddenName(const std::string &itemName, const char *suffix)
{
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (const char character : itemName) {
        hash = (hash ^ static_cast<std::uint8_t>(character)) * 0x100000001b3U;
    }
    char text[64];
    std::snprintf(text, sizeof text, ".tarnwell-%016llx.%s", static_cast<unsigned long long>(hash),
                  suffix);
    return text;
}

// False with EBUSY when another process has the lock. A disk without locks counts as locked.
bool lock(int folder)
{
    if (::flock(folder, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) {
        return true;
    }
    errno = EBUSY;
    return false;
}

// Moves an item, but never over another one.
bool moveItem(int folder, const std::string &name, int newFolder, const std::string &newName)
{
    if (::renameat2(folder, name.c_str(), newFolder, newName.c_str(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return false;
    }
    struct stat status = {}; // the disk cannot do both in one step
    if (::fstatat(newFolder, newName.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
        errno = EEXIST;
        return false;
    }
    return ::renameat(folder, name.c_str(), newFolder, newName.c_str()) == 0;
}

} // namespace

bool flushFolder(int folder, int itemOnSameDisk)
{
    const FileDescriptor readable(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!readable.isOpen()) {
        return ::syncfs(itemOnSameDisk) == 0;
    }
    return ::fsync(readable.get()) == 0 || errno == EINVAL; // which disks without the notion say
}

StagingFolder::StagingFolder(int parent, std::string itemName)
    : m_parent(parent)
    , m_itemName(std::move(itemName))
    , m_name(hiddenName(m_itemName, "partial"))
{}

StagingFolder::~StagingFolder()
{
    std::string failedPath;
    discard(failedPath);
}

std::string StagingFolder::companionName() const
{
    return hiddenName(m_itemName, "links");
}

bool StagingFolder::create()
{
    for (int attempt = 0; attempt < maximumAttempts; ++attempt) {
        FileDescriptor folder = makePrivateFolder(m_parent, m_name.c_str());
        if (!folder.isOpen() && errno == EEXIST && clearLeftovers()) {
            continue;
        }
        if (folder.isOpen() ? !lock(folder.get()) : errno != ENOENT) {
            return false;
        }
        if (!folder.isOpen() || !isItemAt(folder.get(), m_parent, m_name.c_str())) {
            continue; // another process took the unlocked folder for a leftover
        }
        m_folder = std::move(folder);
        ItemMetadata::stripInherited(m_folder.get());
        return ::fchmod(m_folder.get(), S_IRWXU) == 0 &&
               TreeRemoval().removeItem(m_parent, companionName().c_str());
    }
    errno = EBUSY;
    return false;
}

bool StagingFolder::becomeItem()
{
    if (!moveItem(m_parent, m_name, m_parent, m_itemName)) {
        return false;
    }
    if (!flushFolder(m_parent, m_folder.get())) {
        const int error = errno;
        moveItem(m_parent, m_itemName, m_parent, m_name);
        errno = error;
        return false;
    }
    m_folder.reset();
    return true;
}

bool StagingFolder::releaseItem(const char *name)
{
    if (!moveItem(m_folder.get(), name, m_parent, m_itemName)) {
        return false;
    }
    if (!flushFolder(m_parent, m_folder.get())) {
        const int error = errno;
        ::unlinkat(m_parent, m_itemName.c_str(), 0);
        errno = error;
        return false;
    }
    return true;
}

bool StagingFolder::takeItem(FileDescriptor &item)
{
    if (!lock(item.get())) {
        return false;
    }
    while (!moveItem(m_parent, m_itemName, m_parent, m_name)) {
        if (errno != EEXIST || !clearLeftovers()) {
            return false;
        }
    }
    m_folder = std::move(item);
    return true;
}

bool StagingFolder::discard(std::string &failedPath)
{
    if (!m_folder.isOpen()) {
        return true;
    }
    TreeRemoval removal;
    const bool isRemoved = removal.removeItem(m_parent, m_name.c_str());
    failedPath = removal.failedPath();
    m_folder.reset();
    return isRemoved;
}

bool StagingFolder::clearLeftovers()
{
    const FileDescriptor leftover = openOwnFolder(m_parent, m_name.c_str());
    if (!leftover.isOpen()) {
        return errno == ENOENT;
    }
    if (!lock(leftover.get())) {
        return false;
    }
    return !isItemAt(leftover.get(), m_parent, m_name.c_str()) ||
           (TreeRemoval().removeItem(m_parent, companionName().c_str()) &&
            TreeRemoval().removeItem(m_parent, m_name.c_str()));
}

} // namespace platform
