#include "system/platform/files/FolderChain.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace platform {

namespace {

constexpr std::size_t maximumOpen = 16; // a process may be allowed few, and has two chains

} // namespace

int FolderChain::current() const
{
    return m_links.empty() ? m_base : m_links.back().folder.get();
}

void FolderChain::push(FileDescriptor folder)
{
    m_links.push_back({std::move(folder)});
    if (m_links.size() - m_firstOpen <= maximumOpen) {
        return;
    }
    Link &shallowest = m_links[m_firstOpen];
    struct stat status = {};
    if (::fstat(shallowest.folder.get(), &status) == 0) {
        shallowest.device = status.st_dev;
        shallowest.inode = status.st_ino;
        shallowest.folder.reset();
        ++m_firstOpen;
    }
}

FileDescriptor FolderChain::pop()
{
    FileDescriptor left = std::move(m_links.back().folder);
    m_links.pop_back();
    if (m_links.empty() || m_links.back().folder.isOpen()) {
        return left;
    }
    if (!reopen(m_links.back(), left.get())) {
        return {};
    }
    m_firstOpen = m_links.size() - 1;
    return left;
}

bool FolderChain::reopen(Link &parent, int child)
{
    FileDescriptor folder(::openat(child, "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat status = {};
    if (!folder.isOpen() || ::fstat(folder.get(), &status) != 0) {
        return false;
    }
    if (status.st_dev != parent.device || status.st_ino != parent.inode) {
        errno = ESTALE;
        return false;
    }
    parent.folder = std::move(folder);
    return true;
}

} // namespace platform
