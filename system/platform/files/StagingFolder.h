#pragma once

#include "system/platform/files/FileDescriptor.h"

#include <string>

namespace platform {

/// The hidden folder beside an item that is being made or removed. Its name follows from the
/// item's, so that whoever works on that item next finds and clears what a killed process left.
/// A lock keeps two processes from working on one item at the same time.
///
/// On failure of a function errno tells why; EBUSY means that another process has the lock.
class StagingFolder
{
public:
    /// For the item `itemName` in the folder `parent`, which stays the caller's.
    StagingFolder(int parent, std::string itemName);
    ~StagingFolder();
    StagingFolder(const StagingFolder &) = delete;
    StagingFolder &operator=(const StagingFolder &) = delete;

    /// The name of a further hidden item beside the folder, under the same lock.
    std::string companionName() const;

    /// Makes the empty folder, accessible to its owner alone.
    bool create();

    /// The open folder.
    int descriptor() const { return m_folder.get(); }

    /// Makes the folder itself the item, flushed to the disk.
    bool becomeItem();

    /// Makes the leaf `name` in the folder the item, flushed to the disk, and removes the folder.
    bool releaseItem(const char *name);

    /// Turns the existing item, an open folder, into the staging folder with everything in it. A
    /// failure leaves it as it was, and the descriptor with the caller.
    bool takeItem(FileDescriptor &item);

    /// Removes the folder with everything in it; a failure leaves the rest there and tells what it
    /// met, as a path below the folder.
    bool discard(std::string &failedPath);

private:
    bool clearLeftovers();

    int m_parent = -1;
    std::string m_itemName;
    std::string m_name;
    FileDescriptor m_folder;
};

/// Flushes the names in an open folder, also one opened with O_PATH, to the disk. Where the folder
/// may not be read, the whole disk is flushed by way of the other open item, which lies on the same
/// one. On failure errno tells why.
bool flushFolder(int folder, int itemOnSameDisk);

} // namespace platform
