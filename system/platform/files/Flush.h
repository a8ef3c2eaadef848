#pragma once

#include <cstdint>

namespace platform {

/// True when flushing the disk of an open item as a whole does not reach what holds its bytes:
/// file systems of programs (FUSE), of other machines and above other ones are not told. There each
/// item is flushed.
bool needsFlushOfEachItem(int item);

/// Flushes an open plain file or folder to the disk. On failure errno tells why.
bool flushItem(int item);

/// Flushes the names in a folder, also one opened with O_PATH, to the disk. Where the folder may
/// not be read, the whole disk is flushed by way of the open item, which lies on the same one.
/// Where needsFlushOfEachItem() is true, every disk of the machine is flushed, too: what holds the
/// names may be one of them, and is not told of folders. On failure errno tells why.
bool flushNames(int folder, int itemOnSameDisk);

/// Flushes what a long copy has written so far in small portions, while somebody watches it: one
/// flush of everything at the end would keep them waiting without a word.
class PacedFlush
{
public:
    /// For copies to the disk of an open item, which stays the caller's; each plain file by itself
    /// where needsFlushOfEachItem() is true.
    explicit PacedFlush(int item) : m_item(item), m_isOfEachItem(needsFlushOfEachItem(item)) {}

    bool isOfEachItem() const { return m_isOfEachItem; }

    /// Notes what has been written to an open file. On failure of a flush errno tells why.
    bool note(int file, std::uint64_t bytes);

private:
    bool flush(int file);

    int m_item = -1;
    bool m_isOfEachItem = false;
    std::uint64_t m_written = 0; ///< since the last flush, with an allowance for each file
    std::uint64_t m_portion = std::uint64_t{4} * 1024 * 1024;
};

} // namespace platform
