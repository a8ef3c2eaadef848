#pragma once

#include "system/platform/files/FileDescriptor.h"

#include <sys/stat.h>

#include <string>

namespace platform {

/// The hidden folder beside an item in which a copy of it is made, or in which it is removed, so
/// that the item itself is there as a whole or not at all.
///
/// How the work is kept from harming anything, also that of other processes and of killed ones:
///
/// - Whoever copies to an item's place or removes the item holds its LocationLock.
/// - The work is done in a folder ".tarnwell-HASH.NUMBER", which only its owner may enter and which
///   is locked (flock(2)); HASH stands for the item's name without ".bak". Where anything else has
///   that name, the next number is taken.
/// - The folder holds a file "tarnwell.txt", which says what it is, and nothing else but the item
///   ("item") and links to those of its files that have several names ("links").
/// - A finished copy is flushed, moved to its place without replacing anything, and flushed there.
///   An item to be removed is moved into the folder first; if it cannot be removed entirely, what
///   is left of it is moved back.
/// - The folder is removed at the end. What a killed process left behind is cleared by whoever
///   works on that location next: a folder of that name and of the same user that is not in use, is
///   not the root of another disk, and holds "tarnwell.txt" and nothing foreign, or nothing at all.
///   Where the disk keeps no owners it must hold "tarnwell.txt". Anything else stays untouched.
///
/// On failure of a function errno tells why.
class WorkFolder
{
public:
    static constexpr const char *item = "item";
    static constexpr const char *links = "links";

    /// For the item `itemName` in the folder `parent`, which stays the caller's.
    WorkFolder(int parent, const std::string &itemName);
    ~WorkFolder();
    WorkFolder(const WorkFolder &) = delete;
    WorkFolder &operator=(const WorkFolder &) = delete;

    /// Makes the folder, after clearing what is left of earlier ones.
    bool create();

    /// The open folder.
    int descriptor() const { return m_folder.get(); }

    /// What became of a plain file in the folder that was made with every permission.
    const struct stat &sample() const { return m_sample; }

    /// Removes the folder with everything in it. Also called by the destructor.
    bool discard();

private:
    std::string nameOf(int number) const;
    bool make(const std::string &name);
    bool isOwn(int folder) const;
    void clearLeftover(const std::string &name) const;

    int m_parent = -1;
    std::string m_prefix;
    std::string m_name;
    FileDescriptor m_folder;
    struct stat m_sample = {};
};

} // namespace platform
