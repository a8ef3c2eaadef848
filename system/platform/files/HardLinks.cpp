#include "system/platform/files/HardLinks.h"

#include "system/platform/files/OpenItem.h"

#include <array>
#include <cstdio>

namespace platform {

namespace {

bool makeLink(int folder, const char *name, int newFolder, const char *newName)
{
    return ::linkat(folder, name, newFolder, newName, 0) == 0;
}

} // namespace

HardLinks::Outcome HardLinks::link(int originalFolder, const char *original, int folder,
                                   const char *copy)
{
    if (!findKey(originalFolder, original)) {
        return Outcome::Failed;
    }
    if (!m_folder.isOpen()) {
        return Outcome::Unknown;
    }
    if (makeLink(m_folder.get(), m_key.c_str(), folder, copy)) {
        return Outcome::Linked;
    }
    return errno == ENOENT || errno == EMLINK ? Outcome::Unknown : Outcome::Failed;
}

bool HardLinks::keep(int folder, const char *copy)
{
    if (!m_folder.isOpen()) {
        m_folder = makePrivateFolder(m_parent, m_name);
        if (!m_folder.isOpen()) {
            return false;
        }
    }
    ::unlinkat(m_folder.get(), m_key.c_str(),
               0); // a copy that has as many links as the disk allows
    // One failure alone does not tell that the disk has no hard links.
    return makeLink(folder, copy, m_folder.get(), m_key.c_str()) ||
           makeLink(folder, copy, m_folder.get(), m_key.c_str()) || isBeyondDisk(errno) ||
           errno == EMLINK;
}

// The time of birth tells an item from a later one that was given the same inode.
bool HardLinks::findKey(int folder, const char *name)
{
    struct statx status = {};
    if (!readStatus(folder, name, status)) {
        return false;
    }
    std::array<char, 96> text;
    std::snprintf(text.data(), text.size(), "%x-%x-%llx-%llx-%x", status.stx_dev_major,
                  status.stx_dev_minor, status.stx_ino, status.stx_btime.tv_sec,
                  status.stx_btime.tv_nsec);
    m_key = text.data();
    return true;
}

} // namespace platform
