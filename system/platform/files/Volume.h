#pragma once

#include "system/platform/files/FileDescriptor.h"

#include <string>
#include <string_view>

namespace platform {

/// The disk that the program works on: maps the program's absolute paths onto the host.
///
/// A folder of the host plays the disk's root. The program's own spelling of a path is kept
/// everywhere; only this class and the services built on it see where it lies on the host.
///
/// - The first component "users" is found whatever its case on the volume ("Users", "users").
///   When the root is the host's own, "/users/NAME" is the home folder of the user NAME.
/// - No symbolic link, absolute or with "..", leads out of the root.
///
/// All paths are bytes, in whatever encoding the volume holds them.
class Volume
{
public:
    /// The volume at the host's folder `root`, with the login name `user`.
    Volume(std::string root, std::string user);

    /// The volume named by TARNWELL_VOLUME (default "/"), read once. The login name is the
    /// process's own, or on a volume other than "/" the one in TARNWELL_USER.
    static const Volume &current();

    const std::string &root() const { return m_root; }
    const std::string &userName() const { return m_user; }

    /// True when the root is the host's own root.
    bool isHost() const { return m_isHost; }

    /// Opens the item at `path` with the flags of open(2), following links inside the volume
    /// (a final one too, unless `flags` holds O_NOFOLLOW). On failure the result is not open
    /// and errno tells why. Nothing can be created this way. Trailing slashes are dropped.
    FileDescriptor open(std::string_view path, int flags) const;

    /// Opens the folder that holds the item at `path` (O_PATH) and stores the item's own name.
    /// The item itself is not looked at; trailing slashes are dropped. Fails with EINVAL for
    /// the root itself, an empty or a relative path, and a name of "." or "..".
    FileDescriptor openParent(std::string_view path, std::string &name) const;

    /// The host's absolute path of the existing item at `path`; empty when it cannot be found. A
    /// link is followed inside the volume if `followsLink`.
    std::string hostPath(std::string_view path, bool followsLink = false) const;

private:
    FileDescriptor openMapped(std::string path, int flags) const;
    std::string mapped(std::string_view path) const;
    std::string usersFolderHolding(const std::string &name) const;

    std::string m_root;
    std::string m_user;
    bool m_isHost = false;
    FileDescriptor m_rootDescriptor;
};

} // namespace platform
