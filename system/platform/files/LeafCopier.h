#pragma once

#include "system/platform/files/FileContents.h"
#include "system/platform/files/HardLinkDepot.h"
#include "system/platform/files/ItemMetadata.h"

#include <sys/stat.h>

#include <optional>

namespace platform {

/// Copies single items that are no folders: plain files, symbolic links, pipes, sockets, devices.
class LeafCopier
{
public:
    enum class Outcome
    {
        Done,
        Gone,       ///< the original is not there any more; nothing was made
        IsFolder,   ///< the original is a folder now; nothing was made
        Unreadable, ///< errno tells why the original could not be read
        Failed,     ///< errno tells why the copy could not be made; part of it may be there
    };

    /// An item in an open folder.
    struct Place
    {
        int folder = -1;
        const char *name = nullptr;
    };

    /// Without a depot each of an original's names becomes an item of its own.
    explicit LeafCopier(HardLinkDepot *depot) : m_depot(depot) {}

    /// Copies an item of a kind (DT_REG and so on) that may have changed meanwhile. A socket that
    /// cannot be made is left out.
    Outcome copy(Place source, unsigned char type, Place destination);

    /// Fills an open plain file that is empty and has the mode `current`, and completes it.
    /// The attribute names of the original must have been read. On failure errno tells why.
    bool fillFile(int source, int destination, const struct stat &status, mode_t current);

    ItemMetadata &metadata() { return m_metadata; }

private:
    // Nothing when the item is of the other kind.
    std::optional<Outcome> copyFile(Place source, Place destination);
    std::optional<Outcome> copyOther(Place source, Place destination);

    bool createFile(int source, Place destination, const struct stat &status);
    bool createOther(const char *linkTarget, Place destination, const struct stat &status);
    bool isLinked(const struct stat &status) const;

    HardLinkDepot *m_depot = nullptr;
    FileContents m_contents;
    ItemMetadata m_metadata;
};

} // namespace platform
