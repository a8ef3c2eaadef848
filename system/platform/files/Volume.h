#pragma once

#include "system/platform/files/RootFolder.h"

#include <string>
#include <string_view>

namespace platform {

/// The disk that the program works on: maps the program's absolute paths onto the host.
///
/// A folder of the host plays the disk's root. The program's own spelling of a path is kept
/// everywhere; only this class and the services built on it see where it lies on the host.
///
/// - No symbolic link, absolute or with "..", leads out of the root.
/// - An item that no path names exactly is found as a FoldedLookup finds it: whatever the case of
///   letters and the form of accents, and on a disk in two volumes as if it were one.
/// - When the root is the host's own, names are exact, and "/users/NAME" is the home folder of the
///   user NAME.
///
/// All paths are bytes, in whatever encoding the volume holds them.
class Volume
{
public:
    /// The volume at the host's folder `root`, with the login name `user`.
    Volume(std::string root, std::string user);

    /// The volume named by TARNWELL_VOLUME (default "/"), read once. The login name is the
    /// process's own. On a volume other than "/" it is the one in TARNWELL_USER; without that, the
    /// process's own if it has a library there, else that of the only user who has.
    static const Volume &current();

    const std::string &root() const { return m_rootPath; }
    const std::string &userName() const { return m_user; }

    /// True when the root is the host's own root.
    bool isHost() const { return m_isHost; }

    /// Opens the item at `path` with the flags of open(2), following links inside the volume
    /// (a final one too, unless `flags` holds O_NOFOLLOW). On failure the result is not open
    /// and errno tells why. Nothing can be created this way. Trailing slashes are dropped.
    FileDescriptor open(std::string_view path, int flags) const;

    /// Opens the folder that holds the item at `path` (O_PATH) and stores the item's own name in
    /// the disk's spelling, or in that of `path` when there is no such item yet. Trailing slashes
    /// are dropped. Fails with EINVAL for the root itself, an empty or a relative path, and a name
    /// of "." or "..".
    FileDescriptor openParent(std::string_view path, std::string &name) const;

    /// The host's absolute path of the existing item at `path`; empty when it cannot be found. A
    /// link is followed inside the volume if `followsLink`.
    std::string hostPath(std::string_view path, bool followsLink = false) const;

private:
    std::string mapped(std::string_view path) const;

    std::string m_rootPath;
    std::string m_user;
    RootFolder m_root;
    bool m_isHost = false;
};

} // namespace platform
