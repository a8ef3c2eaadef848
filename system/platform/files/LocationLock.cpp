#include "system/platform/files/LocationLock.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>

namespace platform {

namespace {

constexpr std::string_view backupSuffix = ".bak";

// What this process holds.
std::map<std::string, std::weak_ptr<FileDescriptor>> &heldSockets()
{
    static std::map<std::string, std::weak_ptr<FileDescriptor>> sockets;
    return sockets;
}

bool bindTo(int descriptor, const std::string &name)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::ranges::copy(name, address.sun_path + 1); // behind a zero: it is in no file system
    const std::size_t length = offsetof(sockaddr_un, sun_path) + 1 + name.size();
    return ::bind(descriptor, reinterpret_cast<const sockaddr *>(&address),
                  static_cast<socklen_t>(length)) == 0;
}

} // namespace

std::string_view locationName(std::string_view itemName)
{
    while (itemName.size() > backupSuffix.size() && itemName.ends_with(backupSuffix)) {
        itemName.remove_suffix(backupSuffix.size());
    }
    return itemName;
}

// FNV-1a.
std::string locationHash(std::string_view itemName)
{
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (const char character : locationName(itemName)) {
        hash = (hash ^ static_cast<std::uint8_t>(character)) * 0x100000001b3U;
    }
    std::array<char, 17> text;
    std::snprintf(text.data(), text.size(), "%016llx", static_cast<unsigned long long>(hash));
    return text.data();
}

bool LocationLock::acquire(int folder, std::string_view itemName)
{
    struct stat status = {};
    if (::fstat(folder, &status) != 0) {
        return false;
    }
    const std::string name = "tarnwell-" + std::to_string(status.st_dev) + '-' +
                             std::to_string(status.st_ino) + '-' + locationHash(itemName);
    std::weak_ptr<FileDescriptor> &held = heldSockets()[name];
    m_socket = held.lock();
    if (m_socket != nullptr) {
        return true;
    }
    FileDescriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket.isOpen() || !bindTo(socket.get(), name)) {
        errno = errno == EADDRINUSE ? EBUSY : errno;
        return false;
    }
    m_socket = std::make_shared<FileDescriptor>(std::move(socket));
    held = m_socket;
    return true;
}

} // namespace platform
