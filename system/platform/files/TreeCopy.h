#pragma once

#include "system/platform/files/FileError.h"
#include "system/platform/files/FolderChain.h"
#include "system/platform/files/LeafCopier.h"
#include "system/platform/files/TreeWalker.h"

#include <sys/stat.h>

namespace platform {

/// Copies everything below one open folder into another, empty one. What vanishes from the
/// original meanwhile is left out.
class TreeCopy
{
public:
    /// Both folders stay the caller's and open.
    TreeCopy(int source, int destination, HardLinkDepot &depot);

    /// Copies everything below the source.
    bool copyContents();

    /// Completes the destination itself, which is done last: with it the destination gets the
    /// mode of the source, whose status from before the copy is given.
    bool completeTop(const struct stat &status);

    /// After a failure of either; the item is a path below the folder, empty for that itself.
    const FileError &error() const { return m_error; }

private:
    bool copyVisited();
    bool copyLeaf(unsigned char type);
    bool enterFolder();
    bool passBlocked();
    bool completeFolder(int source, int destination, const struct stat &status);
    bool isDestination(const struct stat &folder) const;
    bool fail(FileAction action, int error);

    int m_source = -1;
    int m_destination = -1;
    struct stat m_destinationStatus = {};
    TreeWalker m_walker;
    FolderChain m_copies;
    LeafCopier m_copier;
    FileError m_error;
};

} // namespace platform
