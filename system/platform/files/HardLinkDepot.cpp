#include "system/platform/files/HardLinkDepot.h"

#include "system/platform/files/OpenItem.h"
#include "system/platform/files/TreeRemoval.h"

#include <fcntl.h>

#include <array>
#include <cstdio>

namespace platform {

HardLinkDepot::HardLinkDepot(int parent, std::string name)
    : m_parent(parent)
    , m_name(std::move(name))
{}

HardLinkDepot::~HardLinkDepot()
{
    if (m_folder.isOpen()) {
        discard();
    }
}

std::string HardLinkDepot::key(int folder, const char *name, const struct stat &status)
{
    // The time of birth tells an item from a later one that was given the same inode.
    struct statx extended = {};
    ::statx(folder, name, AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW, STATX_BTIME, &extended);
    std::array<char, 80> text;
    std::snprintf(text.data(), text.size(), "%lx-%lx-%llx-%x", status.st_dev, status.st_ino,
                  extended.stx_btime.tv_sec, extended.stx_btime.tv_nsec);
    return text.data();
}

bool HardLinkDepot::link(const std::string &key, int folder, const char *name)
{
    return m_folder.isOpen() && ::linkat(m_folder.get(), key.c_str(), folder, name, 0) == 0;
}

bool HardLinkDepot::keep(const std::string &key, int folder, const char *name)
{
    if (!m_folder.isOpen()) {
        m_folder = makePrivateFolder(m_parent, m_name.c_str());
        if (!m_folder.isOpen()) {
            return false;
        }
    }
    ::unlinkat(m_folder.get(), key.c_str(), 0); // a copy that has as many links as the disk allows
    if (::linkat(folder, name, m_folder.get(), key.c_str(), 0) == 0) {
        return true;
    }
    const bool hasNoLinks = errno == EPERM || errno == EOPNOTSUPP || errno == ENOSYS;
    return hasNoLinks || errno == EMLINK;
}

bool HardLinkDepot::discard()
{
    m_folder.reset();
    return TreeRemoval().removeItem(m_parent, m_name.c_str());
}

} // namespace platform
