#include "system/platform/files/FileContents.h"

#include "system/platform/files/Progress.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace platform {

namespace {

constexpr std::size_t bufferSize = std::size_t{128} * 1024;
constexpr std::size_t holeSize = 4096;                // what file systems allocate at the least
constexpr off_t kernelChunk = off_t{4} * 1024 * 1024; // copied in one call
constexpr off_t statusBlock = 512;                    // the unit of st_blocks

// Ends a copy with a hole where its original does, which may have become shorter.
bool setSize(int source, int destination, off_t size)
{
    struct stat status = {};
    return ::fstat(source, &status) == 0 &&
           ::ftruncate(destination, std::min(size, status.st_size)) == 0;
}

bool isZero(const std::byte *bytes, std::size_t size)
{
    return bytes[0] == std::byte{} && std::memcmp(bytes, bytes + 1, size - 1) == 0;
}

} // namespace

bool FileContents::copy(int source, int destination, const struct stat &status)
{
    m_noted = 0;
    const bool hasHoles = status.st_blocks < status.st_size / statusBlock;
    const bool isCopied = hasHoles ? copySparse(source, destination, status.st_size)
                                   : copyRange(source, destination, 0, status.st_size);
    return isCopied && note(destination, status.st_size);
}

bool FileContents::note(int destination, off_t end)
{
    const auto bytes = static_cast<std::uint64_t>(end - std::exchange(m_noted, end));
    Work::advance(0, bytes);
    return m_flush.note(destination, bytes);
}

bool FileContents::copySparse(int source, int destination, off_t size)
{
    for (off_t end = 0; end < size;) {
        const off_t start = ::lseek(source, end, SEEK_DATA);
        end = start < 0 ? start : ::lseek(source, start, SEEK_HOLE);
        // Nothing but a hole up to the end, which may have moved either way meanwhile.
        if (start >= size || (end < 0 && errno == ENXIO)) {
            break;
        }
        if (end < 0 && errno != EINVAL && errno != ENOSYS) {
            return false;
        }
        if (end < 0 || (start == 0 && end >= size)) {
            return copyWithoutZeros(source, destination, size);
        }
        end = std::min(end, size);
        if (!copyRange(source, destination, start, end)) {
            return false;
        }
    }
    return setSize(source, destination, size);
}

// The disk tells of no hole although the file takes less room than its size. It may have compressed
// the file, and then share it, or know of holes only that they read as zeros.
bool FileContents::copyWithoutZeros(int source, int destination, off_t size)
{
    return ::ioctl(destination, FICLONE, source) == 0 ||
           (copyThroughBuffer(source, destination, 0, size, true) &&
            setSize(source, destination, size));
}

// The kernel moves the bytes on the fastest way there is, but shares a few between holes only at
// the price of writing the original out first. What that does not reach, for whatever reason, is
// read and written, which tells true failures.
bool FileContents::copyRange(int source, int destination, off_t start, off_t end)
{
    const bool isIsland = start > 0 && end - start <= static_cast<off_t>(bufferSize);
    off_t from = start;
    off_t to = start;
    while (from < end && !isIsland) {
        const auto wanted = static_cast<std::size_t>(std::min(end - from, kernelChunk));
        if (::copy_file_range(source, &from, destination, &to, wanted, 0) <= 0) {
            break;
        }
        if (from < end && !note(destination, from)) {
            return false;
        }
    }
    return from == end || copyThroughBuffer(source, destination, from, end, false);
}

bool FileContents::copyThroughBuffer(int source, int destination, off_t start, off_t end,
                                     bool skipsZeros)
{
    if (m_buffer == nullptr) {
        m_buffer = std::make_unique_for_overwrite<std::byte[]>(bufferSize);
    }
    while (start < end) {
        const auto wanted = static_cast<std::size_t>(std::min(end - start, off_t{bufferSize}));
        const ssize_t count = ::pread(source, m_buffer.get(), wanted, start);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return false;
        }
        if (count == 0) { // it has become shorter
            return true;
        }
        const auto length = static_cast<std::size_t>(count);
        const std::size_t step = skipsZeros ? holeSize : length;
        for (std::size_t done = 0; done < length; done += step) {
            const std::byte *bytes = m_buffer.get() + done;
            const std::size_t size = std::min(step, length - done);
            if (!(skipsZeros && isZero(bytes, size)) &&
                !writeAll(destination, bytes, size, start + static_cast<off_t>(done))) {
                return false;
            }
        }
        start += count;
        if (!note(destination, start)) {
            return false;
        }
    }
    return true;
}

bool FileContents::writeAll(int destination, const std::byte *bytes, std::size_t size, off_t offset)
{
    while (size > 0) {
        const ssize_t count = ::pwrite(destination, bytes, size, offset);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return false;
        }
        bytes += count;
        offset += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

} // namespace platform
