#include "system/platform/files/Volume.h"

#include "system/platform/files/DirectoryReader.h"

#include <fcntl.h>
#include <limits.h>
#include <linux/openat2.h>
#include <pwd.h>
#include <strings.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <vector>

namespace platform {

namespace {

constexpr std::string_view usersFolder = "users";

FileDescriptor openResolved(int folder, const std::string &path, int flags, unsigned int resolve)
{
    open_how how = {};
    how.flags = static_cast<unsigned int>(flags | O_CLOEXEC);
    how.resolve = resolve;
    // The kernel answers EAGAIN when a folder was moved while it resolved a "..".
    long descriptor = -1;
    for (int attempt = 0; attempt < 64; ++attempt) {
        descriptor = ::syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how);
        if (descriptor >= 0 || (errno != EAGAIN && errno != EINTR)) {
            break;
        }
    }
    return FileDescriptor(static_cast<int>(descriptor));
}

// The next component of the path, taken off its front together with the slashes before it.
std::string_view takeComponent(std::string_view &path)
{
    path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
    const std::string_view component = path.substr(0, path.find('/'));
    path.remove_prefix(component.size());
    return component;
}

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

bool isSameFolder(int descriptor, const char *path)
{
    struct stat first = {};
    struct stat second = {};
    return ::fstat(descriptor, &first) == 0 && ::stat(path, &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

} // namespace

Volume::Volume(std::string root, std::string user)
    : m_root(std::move(root))
    , m_user(std::move(user))
    , m_rootDescriptor(::open(m_root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC))
{
    m_isHost = m_rootDescriptor.isOpen() && isSameFolder(m_rootDescriptor.get(), "/");
}

const Volume &Volume::current()
{
    static const Volume volume = [] {
        const std::string path = environmentValue("TARNWELL_VOLUME");
        const std::string root(path.empty() ? "/" : path);
        const Volume named(root, {});
        std::string user = named.isHost() ? std::string() : environmentValue("TARNWELL_USER");
        return Volume(root, user.empty() ? ownUserName() : std::move(user));
    }();
    return volume;
}

FileDescriptor Volume::open(std::string_view path, int flags) const
{
    if (!path.starts_with('/') || path.find('\0') != std::string_view::npos) {
        errno = EINVAL;
        return {};
    }
    return openMapped(mapped(path), flags);
}

FileDescriptor Volume::openParent(std::string_view path, std::string &name) const
{
    if (!path.starts_with('/') || path.find('\0') != std::string_view::npos) {
        errno = EINVAL;
        return {};
    }
    const std::string itemPath = mapped(path);
    const std::size_t nameStart = itemPath.rfind('/') + 1;
    name = itemPath.substr(nameStart);
    if (name.empty() || name == "." || name == "..") {
        errno = EINVAL;
        return {};
    }
    return openMapped(itemPath.substr(0, nameStart), O_PATH | O_DIRECTORY);
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

// Opens an absolute path that has been mapped already.
FileDescriptor Volume::openMapped(std::string path, int flags) const
{
    if (!m_rootDescriptor.isOpen()) {
        errno = ENOENT;
        return {};
    }
    // The kernel takes paths below PATH_MAX only, so a longer one is gone along in stretches. A
    // link in a later stretch may not lead out of that stretch.
    FileDescriptor stretch;
    int start = m_rootDescriptor.get();
    unsigned int resolve = RESOLVE_IN_ROOT;
    while (path.size() >= PATH_MAX) {
        const std::size_t end = path.rfind('/', PATH_MAX - 1);
        if (end == std::string::npos || end == 0) {
            errno = ENAMETOOLONG;
            return {};
        }
        stretch = openResolved(start, path.substr(0, end), O_PATH | O_DIRECTORY, resolve);
        if (!stretch.isOpen()) {
            return {};
        }
        start = stretch.get();
        resolve = RESOLVE_BENEATH;
        path.erase(0, std::min(path.find_first_not_of('/', end), path.size()));
    }
    return openResolved(start, path.empty() ? "." : path, flags, resolve);
}

// The absolute path inside the root that `path` stands for, without trailing slashes.
std::string Volume::mapped(std::string_view path) const
{
    const std::string_view whole = withoutTrailingSlashes(path);
    std::string_view rest = whole;
    if (takeComponent(rest) != usersFolder) {
        return whole.empty() ? "/" : std::string(whole);
    }
    const std::string_view belowUsers = rest;
    const std::string name(takeComponent(rest));
    if (!m_isHost) {
        return '/' + usersFolderHolding(name).append(belowUsers);
    }
    const std::string home = name.empty() ? std::string() : homeFolder(name);
    if (!home.starts_with('/')) {
        return std::string(whole);
    }
    std::string result(withoutTrailingSlashes(home));
    result.append(rest);
    return result.empty() ? "/" : result;
}

// The name of the volume's "users" folder: of several that differ in case only, the first that
// holds `name`, the exact spelling going first.
std::string Volume::usersFolderHolding(const std::string &name) const
{
    const auto holdsName = [this, &name](const std::string &folder) {
        return openMapped('/' + folder + '/' + name, O_PATH | O_NOFOLLOW).isOpen();
    };
    std::string exact(usersFolder);
    if (holdsName(exact)) {
        return exact;
    }
    const FileDescriptor root = openMapped("/", O_RDONLY | O_DIRECTORY);
    if (!root.isOpen()) {
        return exact;
    }
    std::vector<std::string> candidates;
    DirectoryReader reader;
    reader.start(root.get());
    while (const DirectoryReader::Entry *entry = reader.next()) {
        if (::strcasecmp(entry->name, exact.c_str()) == 0) {
            candidates.emplace_back(entry->name);
        }
    }
    if (candidates.empty()) {
        return exact;
    }
    std::sort(candidates.begin(), candidates.end(), std::greater<>()); // "users" before "Users"
    const auto holder = std::find_if(candidates.begin(), candidates.end(), holdsName);
    return holder != candidates.end() ? *holder : candidates.front();
}

} // namespace platform
