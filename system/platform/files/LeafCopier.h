#pragma once

#include "system/platform/files/FileContents.h"
#include "system/platform/files/HardLinks.h"
#include "system/platform/files/ItemMetadata.h"
#include "system/platform/files/WorkFolder.h"

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
        Gone,        ///< the original is not there any more; nothing was made
        IsFolder,    ///< the original is a folder now; nothing was made
        Unsupported, ///< errno tells why the disk cannot hold such an item; nothing was made
        Unreadable,  ///< errno tells why the original could not be read
        Failed,      ///< errno tells why the copy could not be made; part of it may be there
    };

    /// An item in an open folder.
    struct Place
    {
        int folder = -1;
        const char *name = nullptr;
    };

    /// For copies that are made in a work folder. With `flushesFiles` each plain file is flushed by
    /// itself.
    LeafCopier(const WorkFolder &work, PacedFlush &flush, bool flushesFiles);

    /// Copies an item of a kind (DT_REG and so on) that may have changed meanwhile.
    Outcome copy(Place source, unsigned char type, Place destination);

    ItemMetadata &metadata() { return m_metadata; }

private:
    // Nothing when the item is of the other kind.
    std::optional<Outcome> copyFile(Place source, Place destination);
    std::optional<Outcome> copyOther(Place source, Place destination);

    template <typename Create>
    Outcome linkOrCreate(Place original, const struct stat &status, Place destination,
                         Create create);
    Outcome createFile(int source, Place destination, const struct stat &status);
    Outcome createOther(Place source, const char *linkTarget, Place destination,
                        const struct stat &status);

    const struct stat &m_sample; ///< as WorkFolder::sample()
    HardLinks m_links;
    FileContents m_contents;
    ItemMetadata m_metadata;
    bool m_flushesFiles = false;
};

} // namespace platform
