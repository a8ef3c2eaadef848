#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform {

class FileDescriptor;
class RootFolder;

/// Finds an item as a Mac would, whatever the case of the letters in its path and the form of
/// their accents. Each object finds one item.
///
/// - Each component is the entry of exactly that name, else, of those whose FoldedName is the
///   same, the first in byte order. An entry found is never given up for another one, but for a
///   top-level folder that does not hold the second component, when another one of its name does.
/// - What is not found from the root is looked for below "/System/Volumes/Data": a Mac's disk in
///   two volumes holds there what is seen at the root.
/// - What a symbolic link names is found in the same way, inside the root, a relative one seen from
///   where the link itself is seen.
class FoldedLookup
{
public:
    explicit FoldedLookup(const RootFolder &root) : m_root(root) {}

    /// The absolute path of the item in the disk's own spelling and without links, but for a
    /// final one unless it `followsLink`. Nothing, and errno is set, when there is no such item:
    /// to ENOENT, or to what kept a folder from being searched.
    std::optional<std::string> find(const std::string &path, bool followsLink);

    /// True of an errno that says that there is no such name, not that it cannot be searched for.
    static bool isMissing(int error);

private:
    std::optional<std::string> findFrom(const std::string &start, std::string_view path,
                                        bool followsLink);
    std::string topFolder(const std::string &start, const FileDescriptor &folder,
                          const std::string &name, std::string_view path) const;

    const RootFolder &m_root;
    int m_linksLeft = 40; // as many as the kernel follows
};

} // namespace platform
