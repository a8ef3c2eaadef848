#pragma once

#include "system/platform/files/FileDescriptor.h"

#include <sys/stat.h>

#include <cstddef>
#include <memory>

namespace platform {

/// Copies the bytes of open plain files, sharing them with the original where the disk can.
class FileContents
{
public:
    /// Fills the empty file `destination` with what `source` holds up to the size in `status`, or
    /// less if it has become shorter. Both stand at their beginning. Holes stay holes. On failure
    /// errno tells why.
    bool copy(int source, int destination, const struct stat &status);

private:
    bool clone(int source, int destination, dev_t device);
    bool copySparse(int source, int destination, off_t size);
    bool copyRange(int source, int destination, off_t size);
    off_t copyThroughPipe(int source, int destination, off_t size);
    bool emptyPipe(int source, int destination, std::size_t size);
    bool openPipe();
    bool copyThroughBuffer(int source, int destination, off_t size);
    bool writeAll(int destination, std::size_t size);

    std::unique_ptr<std::byte[]> m_buffer;
    FileDescriptor m_pipeEntry;
    FileDescriptor m_pipeExit;
    dev_t m_deviceWithoutClones = 0;
};

} // namespace platform
