#pragma once

#include "system/platform/files/FileError.h"

#include <sys/stat.h>

#include <vector>

namespace platform {

class TreeWalker;

/// Finds out, without changing anything, whether a folder can be removed with everything in it.
/// Only folders are looked at closely: a single protected file (chattr(1)) is not found.
class RemovalCheck
{
public:
    RemovalCheck();

    /// False if something below the open folder cannot be removed.
    bool run(int folder);

    /// After a refusal; the item is a path below the folder, empty for that itself.
    const FileError &error() const { return m_error; }

private:
    // What keeps items of a folder from being removed.
    struct Protection
    {
        int error = 0;         ///< errno for any item, 0 when there is nothing
        bool isSticky = false; ///< only the owner of an item may remove it
    };

    Protection protectionOf(int folder, const struct stat &status) const;
    bool checkVisited(TreeWalker &walker);
    bool checkLeaf(const TreeWalker &walker);
    bool checkFolder(TreeWalker &walker);
    bool checkBlocked(const TreeWalker &walker);
    bool refuse(const TreeWalker &walker, const std::string &reason);

    uid_t m_user = 0;
    std::vector<Protection> m_protections; ///< of the folders from the top to the current one
    FileError m_error;
};

} // namespace platform
