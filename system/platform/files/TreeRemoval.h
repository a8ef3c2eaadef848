#pragma once

#include <string>

namespace platform {

/// Removes items one by one, taking the write protection off folders where needed. What is gone
/// already counts as removed. On failure errno tells why, and what is left stays where it is.
class TreeRemoval
{
public:
    /// Removes the item `name` of an open folder with everything in it.
    bool removeItem(int parent, const char *name);

    /// Removes everything in an open folder.
    bool removeContents(int folder);

    /// The item that could not be removed, as a path below the folder; empty for that itself.
    const std::string &failedPath() const { return m_failedPath; }

private:
    std::string m_failedPath;
};

} // namespace platform
