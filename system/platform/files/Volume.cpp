#include "system/platform/files/Volume.h"

#include "system/platform/files/FoldedLookup.h"
#include "system/platform/files/LibraryOwners.h"
#include "system/platform/files/PathComponents.h"

#include <fcntl.h>
#include <limits.h>
#include <pwd.h>
#include <sys/stat.h>

#include <array>
#include <cstdlib>
#include <vector>

namespace platform {

namespace {

std::string_view withoutTrailingSlashes(std::string_view path)
{
    return path.substr(0, path.find_last_not_of('/') + 1);
}

template <typename Lookup>
std::string passwordEntryField(char *passwd::*field, Lookup lookup)
{
    std::vector<char> buffer(1024);
    passwd entry = {};
    passwd *found = nullptr;
    while (lookup(&entry, buffer.data(), buffer.size(), &found) == ERANGE) {
        buffer.resize(buffer.size() * 2);
    }
    return found != nullptr && found->*field != nullptr ? std::string(found->*field)
                                                        : std::string();
}

std::string homeFolder(const std::string &user)
{
    return passwordEntryField(&passwd::pw_dir, [&user](auto... arguments) {
        return ::getpwnam_r(user.c_str(), arguments...);
    });
}

std::string ownUserName()
{
    return passwordEntryField(
        &passwd::pw_name, [](auto... arguments) { return ::getpwuid_r(::getuid(), arguments...); });
}

std::string environmentValue(const char *name)
{
    const char *value = std::getenv(name);
    return value != nullptr ? value : "";
}

bool hasEntry(int folder, const std::string &name)
{
    struct stat status = {};
    return ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
}

bool isAbsolute(std::string_view path)
{
    return path.starts_with('/') && path.find('\0') == std::string_view::npos;
}

} // namespace

Volume::Volume(std::string root, std::string user)
    : m_rootPath(std::move(root))
    , m_user(std::move(user))
    , m_root(m_rootPath)
    , m_isHost(m_root.isHost())
{}

const Volume &Volume::current()
{
    static const Volume volume = [] {
        const std::string path = environmentValue("TARNWELL_VOLUME");
        Volume named(path.empty() ? "/" : path, ownUserName());
        if (named.isHost()) {
            return named;
        }
        const std::string user = environmentValue("TARNWELL_USER");
        if (!user.empty()) {
            named.m_user = user;
        } else if (!hasLibrary(named, named.m_user)) {
            const std::vector<std::string> users = usersWithLibrary(named);
            named.m_user = users.size() == 1 ? users.front() : named.m_user;
        }
        return named;
    }();
    return volume;
}

FileDescriptor Volume::open(std::string_view path, int flags) const
{
    if (!isAbsolute(path)) {
        errno = EINVAL;
        return {};
    }
    const std::string itemPath = mapped(path);
    FileDescriptor item = m_root.open(itemPath, flags);
    if (item.isOpen() || m_isHost || !FoldedLookup::isMissing(errno)) {
        return item;
    }
    const auto found = FoldedLookup(m_root).find(itemPath, (flags & O_NOFOLLOW) == 0);
    return found ? m_root.open(*found, flags) : FileDescriptor();
}

FileDescriptor Volume::openParent(std::string_view path, std::string &name) const
{
    if (!isAbsolute(path)) {
        errno = EINVAL;
        return {};
    }
    const std::string itemPath = mapped(path);
    const auto openFolder = [&name](const std::string &item, const auto &root) {
        const std::size_t nameStart = item.rfind('/') + 1;
        name = item.substr(nameStart);
        return root.open(item.substr(0, nameStart), O_PATH | O_DIRECTORY);
    };
    FileDescriptor folder = openFolder(itemPath, m_root);
    if (name.empty() || name == "." || name == "..") {
        errno = EINVAL;
        return {};
    }
    if (m_isHost || (folder.isOpen() && hasEntry(folder.get(), name))) {
        return folder;
    }
    const auto found = FoldedLookup(m_root).find(itemPath, false);
    return found ? openFolder(*found, m_root) : openFolder(itemPath, *this);
}

std::string Volume::hostPath(std::string_view path, bool followsLink) const
{
    const FileDescriptor item = open(path, O_PATH | (followsLink ? 0 : O_NOFOLLOW));
    if (!item.isOpen()) {
        return {};
    }
    const std::string link = "/proc/self/fd/" + std::to_string(item.get());
    std::array<char, PATH_MAX> buffer;
    const ssize_t length = ::readlink(link.c_str(), buffer.data(), buffer.size());
    if (length <= 0 || static_cast<std::size_t>(length) == buffer.size()) {
        return {};
    }
    return std::string(buffer.data(), static_cast<std::size_t>(length));
}

// The absolute path inside the root that `path` stands for, without trailing slashes.
std::string Volume::mapped(std::string_view path) const
{
    const std::string_view whole = withoutTrailingSlashes(path);
    std::string_view rest = whole;
    if (!m_isHost || takeComponent(rest) != "users") {
        return whole.empty() ? "/" : std::string(whole);
    }
    const std::string name(takeComponent(rest));
    const std::string home = name.empty() ? std::string() : homeFolder(name);
    if (!home.starts_with('/')) {
        return std::string(whole);
    }
    std::string result(withoutTrailingSlashes(home));
    result.append(rest);
    return result.empty() ? "/" : result;
}

} // namespace platform
