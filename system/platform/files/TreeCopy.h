#pragma once

#include "system/platform/files/FileError.h"
#include "system/platform/files/FolderChain.h"
#include "system/platform/files/LeafCopier.h"
#include "system/platform/files/Progress.h"
#include "system/platform/files/TreeWalker.h"

#include <sys/stat.h>

#include <cstdint>
#include <optional>

namespace platform {

/// Copies everything below one open folder into another, empty one. What vanishes from the
/// original meanwhile is left out.
class TreeCopy
{
public:
    /// Both folders stay the caller's and open. With `flushesFolders` each one is flushed by
    /// itself. The total of `work` is set once it has lasted a while.
    TreeCopy(int source, int destination, LeafCopier &copier, bool flushesFolders, Work &work);

    /// The error's item is a path below the source, empty for that itself.
    std::optional<FileError> copyContents();

    /// Completes the destination itself, which is done last: with it the destination gets the
    /// mode of the source, whose status from before the copy is given.
    std::optional<FileError> completeTop(const struct stat &status);

    /// True when so much has vanished from the original that it must be on its way out.
    bool isSourceVanishing() const;

private:
    void measureIfLong();
    std::optional<FileError> copyVisited();
    std::optional<FileError> copyLeaf(unsigned char type);
    std::optional<FileError> enterFolder();
    std::optional<FileError> passBlocked();
    std::optional<FileError> completeFolder(int source, int destination, const struct stat &status);
    /// True when, after a failure, the item is there because it was copied before.
    bool isCopied() const;
    std::optional<FileError> failure(FileAction action, int error) const;

    int m_source = -1;
    int m_destination = -1;
    struct stat m_destinationStatus = {};
    TreeWalker m_walker;
    FolderChain m_copies;
    LeafCopier &m_copier;
    std::uint64_t m_copied = 0;
    std::uint64_t m_vanished = 0;
    bool m_flushesFolders = false;
    bool m_hasTotal = false;
    bool m_isPassingOver = false; ///< a subfolder that is copied already
    Work &m_work;
};

} // namespace platform
