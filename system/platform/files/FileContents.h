#pragma once

#include "system/platform/files/Flush.h"

#include <sys/stat.h>

#include <cstddef>
#include <memory>

namespace platform {

/// Copies the bytes of open plain files, sharing them with the original where the disk can.
class FileContents
{
public:
    explicit FileContents(PacedFlush &flush) : m_flush(flush) {}

    /// Fills the empty file `destination` with what `source` holds up to the size in `status`, or
    /// less if it has become shorter. Holes stay holes. On failure errno tells why.
    bool copy(int source, int destination, const struct stat &status);

private:
    bool copySparse(int source, int destination, off_t size);
    bool copyWithoutZeros(int source, int destination, off_t size);
    bool copyRange(int source, int destination, off_t start, off_t end);
    bool copyThroughBuffer(int source, int destination, off_t start, off_t end, bool skipsZeros);
    static bool writeAll(int destination, const std::byte *bytes, std::size_t size, off_t offset);

    bool note(int destination, off_t end);

    PacedFlush &m_flush;
    off_t m_noted = 0; ///< where what has been noted of the current file ends
    std::unique_ptr<std::byte[]> m_buffer;
};

} // namespace platform
