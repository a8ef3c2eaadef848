#include "system/platform/files/FoldedLookup.h"

#include "system/platform/files/FileDescriptor.h"
#include "system/platform/files/FoldedName.h"
#include "system/platform/files/LookupMemory.h"
#include "system/platform/files/PathComponents.h"
#include "system/platform/files/RootFolder.h"

#include <fcntl.h>
#include <limits.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <vector>

namespace platform {

namespace {

const std::string dataVolume = "/System/Volumes/Data";

std::string parentOf(const std::string &path)
{
    return path.substr(0, std::min(path.rfind('/'), path.size()));
}

// The path of what a link in the folder leads to. The folder's own path holds no link, so each
// ".." at the front takes a component off its end.
std::string joined(std::string folder, std::string_view target)
{
    if (target.starts_with('/')) {
        return std::string(target);
    }
    while (target == ".." || target.starts_with("../")) {
        folder = parentOf(folder);
        target.remove_prefix(std::min<std::size_t>(3, target.size()));
    }
    return folder.append("/").append(target);
}

// The folder's entries that have the same name on a Mac, in byte order. Empty, and errno is set,
// when there is none.
std::vector<std::string> sameNames(int folder, const std::string &name)
{
    LookupMemory own;
    const std::string *const names = LookupMemory::current()->namesIn(folder);
    if (names == nullptr) {
        return {};
    }
    const FoldedName folded(name);
    std::vector<std::string> found;
    for (std::string_view rest = *names; !rest.empty();) {
        const std::string_view entry = rest.substr(0, rest.find('\0'));
        rest.remove_prefix(entry.size() + 1);
        if (folded.isSameAs(entry)) {
            found.emplace_back(entry);
        }
    }
    std::sort(found.begin(), found.end());
    errno = ENOENT;
    return found;
}

// Opens an entry, itself when it is a link, and sets the name to the disk's spelling.
FileDescriptor openEntry(int folder, std::string &name)
{
    const auto open = [&] {
        return FileDescriptor(::openat(folder, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    };
    FileDescriptor entry = open();
    if (entry.isOpen() || !FoldedLookup::isMissing(errno)) {
        return entry;
    }
    const std::vector<std::string> names = sameNames(folder, name);
    if (names.empty()) {
        return {};
    }
    name = names.front();
    return open();
}

// Whether a folder, to which a link may lead, holds an entry of this name in any spelling.
bool holds(const FileDescriptor &folder, std::string name)
{
    return folder.isOpen() && (name.empty() || openEntry(folder.get(), name).isOpen());
}

// Where the item leads when it is a link; nothing for any other item.
std::optional<std::string> linkTarget(const FileDescriptor &item)
{
    if (!item.isOpen()) {
        return std::nullopt;
    }
    std::array<char, PATH_MAX> buffer;
    const ssize_t length = ::readlinkat(item.get(), "", buffer.data(), buffer.size());
    return length < 0 ? std::nullopt
                      : std::optional(std::string(buffer.data(), static_cast<std::size_t>(length)));
}

} // namespace

bool FoldedLookup::isMissing(int error)
{
    // A name that is too long in one form of its accents may be stored in the other.
    return error == ENOENT || error == ENAMETOOLONG;
}

std::optional<std::string> FoldedLookup::find(const std::string &path, bool followsLink)
{
    auto found = findFrom({}, path, followsLink);
    if (!found && isMissing(errno)) {
        found = findFrom(dataVolume, path, followsLink);
    }
    return found;
}

std::optional<std::string> FoldedLookup::findFrom(const std::string &start, std::string_view path,
                                                  bool followsLink)
{
    std::string found; // below the start
    FileDescriptor item = m_root.open(start + '/', O_PATH | O_DIRECTORY);
    while (item.isOpen()) {
        std::string name(takeComponent(path));
        if (name.empty()) {
            return start + (found.empty() ? "/" : found);
        }
        if (name == ".") {
            continue;
        }
        if (name == "..") {
            // Also to hear that what was found is no folder.
            const bool isAtStart = found.empty();
            item = m_root.open(start + found + (isAtStart ? "/" : "/.."), O_PATH | O_DIRECTORY);
            found = parentOf(found);
            continue;
        }
        if (found.empty()) {
            name = topFolder(start, item, name, path);
        }
        item = openEntry(item.get(), name);
        const bool isFinal = path.find_first_not_of('/') == std::string_view::npos;
        auto target = followsLink || !isFinal ? linkTarget(item) : std::nullopt;
        if (target) {
            if (--m_linksLeft < 0) {
                errno = ELOOP;
                return std::nullopt;
            }
            return find(joined(found, *target).append(path), followsLink);
        }
        found.append("/").append(name);
    }
    return std::nullopt;
}

// Of the entries at the start that have the same name, the one that holds what the path goes on
// with: a copy of a disk may have got a second folder of users.
std::string FoldedLookup::topFolder(const std::string &start, const FileDescriptor &folder,
                                    const std::string &name, std::string_view path) const
{
    const std::string next(takeComponent(path));
    const auto holdsNext = [&](const std::string &candidate) {
        return holds(m_root.open(start + '/' + candidate, O_PATH | O_DIRECTORY), next);
    };
    if (next.empty() || holdsNext(name)) {
        return name;
    }
    const std::vector<std::string> names = sameNames(folder.get(), name);
    const auto chosen = std::find_if(names.begin(), names.end(), holdsNext);
    return chosen == names.end() ? name : *chosen;
}

} // namespace platform
