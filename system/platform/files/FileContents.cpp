#include "system/platform/files/FileContents.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace platform {

namespace {

constexpr std::size_t bufferSize = std::size_t{128} * 1024;
constexpr off_t pipeSize = off_t{1024} * 1024; // the largest that ordinary users may have
constexpr off_t statusBlock = 512;             // the unit of st_blocks

// The number of bytes copied.
off_t copyInKernel(int source, int destination, off_t size)
{
    off_t copied = 0;
    while (copied < size) {
        const auto wanted = static_cast<std::size_t>(size - copied);
        const ssize_t count = ::copy_file_range(source, nullptr, destination, nullptr, wanted, 0);
        if (count <= 0) {
            break;
        }
        copied += count;
    }
    return copied;
}

} // namespace

bool FileContents::copy(int source, int destination, const struct stat &status)
{
    if (status.st_size == 0) {
        return true;
    }
    if (clone(source, destination, status.st_dev)) {
        return true;
    }
    const bool hasHoles = status.st_blocks < status.st_size / statusBlock;
    return hasHoles ? copySparse(source, destination, status.st_size)
                    : copyRange(source, destination, status.st_size);
}

bool FileContents::clone(int source, int destination, dev_t device)
{
    if (device == m_deviceWithoutClones) {
        return false;
    }
    if (::ioctl(destination, FICLONE, source) == 0) {
        return true;
    }
    if (errno == EOPNOTSUPP || errno == EXDEV || errno == ENOTTY || errno == ENOSYS) {
        m_deviceWithoutClones = device;
    }
    return false;
}

bool FileContents::copySparse(int source, int destination, off_t size)
{
    off_t end = 0;
    while (end < size) {
        const off_t start = ::lseek(source, end, SEEK_DATA);
        if (start < 0 && errno == ENXIO) { // nothing but a hole up to the end
            break;
        }
        if (start < 0) {
            return false;
        }
        if (start >= size) { // only what was added meanwhile
            break;
        }
        end = ::lseek(source, start, SEEK_HOLE);
        if (end < 0 || ::lseek(source, start, SEEK_SET) < 0 ||
            ::lseek(destination, start, SEEK_SET) < 0 ||
            !copyRange(source, destination, std::min(end, size) - start)) {
            return false;
        }
    }
    struct stat status = {};
    return ::fstat(source, &status) == 0 &&
           ::ftruncate(destination, std::min(size, status.st_size)) == 0;
}

// Copies from where both files stand. The kernel moves the bytes on the fastest way there is;
// what that does not reach, for whatever reason, is read and written, which tells true failures.
bool FileContents::copyRange(int source, int destination, off_t size)
{
    const off_t copied = size < pipeSize ? copyInKernel(source, destination, size)
                                         : copyThroughPipe(source, destination, size);
    return copied == size || copyThroughBuffer(source, destination, size - copied);
}

// The number of bytes copied. A large pipe of our own moves a large file 3 % faster than
// copy_file_range(2), which goes through a small one.
off_t FileContents::copyThroughPipe(int source, int destination, off_t size)
{
    off_t copied = 0;
    while (copied < size && openPipe()) {
        const auto wanted = static_cast<std::size_t>(std::min(size - copied, pipeSize));
        const ssize_t count = ::splice(source, nullptr, m_pipeEntry.get(), nullptr, wanted, 0);
        if (count <= 0 || !emptyPipe(source, destination, static_cast<std::size_t>(count))) {
            break;
        }
        copied += count;
    }
    return copied;
}

// Writes the bytes in the pipe. On failure both files stand at one place again: the pipe's content
// is dropped, and what was written of it will be written again.
bool FileContents::emptyPipe(int source, int destination, std::size_t size)
{
    std::size_t rest = size;
    while (rest > 0) {
        const ssize_t count = ::splice(m_pipeExit.get(), nullptr, destination, nullptr, rest, 0);
        if (count <= 0) {
            m_pipeEntry.reset();
            m_pipeExit.reset();
            ::lseek(source, -static_cast<off_t>(size), SEEK_CUR);
            ::lseek(destination, -static_cast<off_t>(size - rest), SEEK_CUR);
            return false;
        }
        rest -= static_cast<std::size_t>(count);
    }
    return true;
}

bool FileContents::openPipe()
{
    if (m_pipeEntry.isOpen()) {
        return true;
    }
    std::array<int, 2> ends = {-1, -1};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        return false;
    }
    m_pipeExit = FileDescriptor(ends[0]);
    m_pipeEntry = FileDescriptor(ends[1]);
    ::fcntl(ends[1], F_SETPIPE_SZ, static_cast<int>(pipeSize)); // a small one will do, too
    return true;
}

bool FileContents::copyThroughBuffer(int source, int destination, off_t size)
{
    if (m_buffer == nullptr) {
        m_buffer = std::make_unique_for_overwrite<std::byte[]>(bufferSize);
    }
    while (size > 0) {
        const ssize_t count =
            ::read(source, m_buffer.get(), std::min(static_cast<std::size_t>(size), bufferSize));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0 || !writeAll(destination, static_cast<std::size_t>(count))) {
            return false;
        }
        if (count == 0) { // it has become shorter
            return true;
        }
        size -= count;
    }
    return true;
}

bool FileContents::writeAll(int destination, std::size_t size)
{
    const std::byte *rest = m_buffer.get();
    while (size > 0) {
        const ssize_t count = ::write(destination, rest, size);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return false;
        }
        rest += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

} // namespace platform
