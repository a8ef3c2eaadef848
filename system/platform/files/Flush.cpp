#include "system/platform/files/Flush.h"

#include "system/platform/files/FileDescriptor.h"
#include "system/platform/files/Progress.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>

namespace platform {

namespace {

constexpr std::chrono::milliseconds longFlush(200);
constexpr std::uint64_t smallestPortion = std::uint64_t{256} * 1024;
constexpr std::uint64_t bytesPerFile = 4096; // what its name and its data about itself take

} // namespace

bool needsFlushOfEachItem(int item)
{
    struct statfs disk = {};
    if (::fstatfs(item, &disk) != 0) {
        return true;
    }
    const auto type = static_cast<unsigned long>(disk.f_type) & 0xFFFFFFFFU;
    return type == FUSE_SUPER_MAGIC || type == V9FS_MAGIC || type == CIFS_SUPER_MAGIC ||
           type == SMB2_SUPER_MAGIC || type == ECRYPTFS_SUPER_MAGIC;
}

bool flushItem(int item)
{
    return ::fsync(item) == 0 || errno == EINVAL; // which disks without the notion say of folders
}

bool flushNames(int folder, int itemOnSameDisk)
{
    const FileDescriptor readable(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const bool isFlushed =
        readable.isOpen() ? flushItem(readable.get()) : ::syncfs(itemOnSameDisk) == 0;
    if (isFlushed && needsFlushOfEachItem(itemOnSameDisk)) {
        ::sync();
    }
    return isFlushed;
}

bool PacedFlush::note(int file, std::uint64_t bytes)
{
    if (!Work::isObserved()) {
        return true;
    }
    m_written += bytes + bytesPerFile;
    return m_written < m_portion || flush(file);
}

bool PacedFlush::flush(int file)
{
    const auto start = Work::Clock::now();
    if ((m_isOfEachItem ? ::fdatasync(file) : ::syncfs(m_item)) != 0) {
        return false;
    }
    const auto duration = Work::Clock::now() - start;
    if (duration > longFlush && m_portion > smallestPortion) {
        m_portion /= 2;
    } else if (duration < longFlush / 4) {
        m_portion *= 2;
    }
    m_written = 0;
    Work::wait();
    return true;
}

} // namespace platform
