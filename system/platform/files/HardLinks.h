#pragma once

#include "system/platform/files/FileDescriptor.h"

#include <string>

namespace platform {

/// Finds the copy of an original that was met before under another name. It keeps a link to every
/// such copy in a hidden folder instead of a table in memory, which would grow with the tree.
///
/// On failure of a function errno tells why.
class HardLinks
{
public:
    enum class Outcome
    {
        Linked,
        Unknown, ///< there is none yet that can take a further link
        Failed
    };

    /// `parent` stays the caller's. The folder `name` in it is made when it is needed.
    HardLinks(int parent, const char *name) : m_parent(parent), m_name(name) {}

    /// Makes `copy` in `folder` a link to the copy of an original that has several names: the item
    /// `original` of an open folder, or with an empty name the open item itself.
    Outcome link(int originalFolder, const char *original, int folder, const char *copy);

    /// Keeps the copy for later links to the same original. On a disk without hard links it does
    /// nothing.
    bool keep(int folder, const char *copy);

private:
    bool findKey(int folder, const char *name);

    int m_parent = -1;
    const char *m_name = nullptr;
    FileDescriptor m_folder;
    std::string m_key; ///< of the last original
};

} // namespace platform
