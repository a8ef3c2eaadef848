#pragma once

#include "system/platform/files/FileDescriptor.h"

#include <sys/stat.h>

#include <string>

namespace platform {

/// Finds the copy of an original that was met before under another name. It keeps a link to every
/// such copy in a hidden folder instead of a table in memory, which would grow with the tree.
class HardLinkDepot
{
public:
    /// `parent` stays the caller's. The hidden folder `name` in it is made when it is needed.
    HardLinkDepot(int parent, std::string name);
    ~HardLinkDepot();
    HardLinkDepot(const HardLinkDepot &) = delete;
    HardLinkDepot &operator=(const HardLinkDepot &) = delete;

    /// The key of an item that has several names, equal for the same item only. An empty name
    /// stands for the open item `folder` itself.
    static std::string key(int folder, const char *name, const struct stat &status);

    /// Makes the item `name` a link to the copy with that key. False if there is none yet that
    /// can take a further link.
    bool link(const std::string &key, int folder, const char *name);

    /// Keeps the copy `name` for later links. False, with errno set, when the disk failed.
    bool keep(const std::string &key, int folder, const char *name);

    /// Removes the hidden folder, also one that an interrupted copy left. False, with errno set,
    /// when that is impossible.
    bool discard();

private:
    int m_parent = -1;
    std::string m_name;
    FileDescriptor m_folder;
};

} // namespace platform
