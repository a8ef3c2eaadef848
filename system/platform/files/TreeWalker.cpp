#include "system/platform/files/TreeWalker.h"

#include "system/platform/files/OpenItem.h"

#include <dirent.h>
#include <fcntl.h>

namespace platform {

TreeWalker::TreeWalker(int top) : m_chain(top)
{
    m_reader.start(top);
}

bool TreeWalker::next()
{
    m_left.reset();
    m_path.resize(m_folderPathLength);
    if (m_isReading && nextItem()) {
        return true;
    }
    const std::size_t pendingStart = m_frames.empty() ? 0 : m_frames.back().pendingStart;
    return m_pending.size() > pendingStart ? enterPending() : leave();
}

std::string TreeWalker::path() const
{
    if (m_event != Event::Item) {
        return m_path;
    }
    std::string path = m_path;
    if (!path.empty()) {
        path += '/';
    }
    return path += m_name;
}

bool TreeWalker::nextItem()
{
    while (const DirectoryReader::Entry *entry = m_reader.next()) {
        m_type = entry->type;
        m_name = entry->name;
        if (!isFolder(*entry)) {
            m_event = Event::Item;
            return true;
        }
        addPending(entry->name);
    }
    m_isReading = false;
    return m_reader.error() != 0 && fail(m_reader.error());
}

bool TreeWalker::enterPending()
{
    const std::string name = takePending();
    if (!m_path.empty()) {
        m_path += '/';
    }
    m_path += name;
    m_name = m_path.c_str() + (m_path.size() - name.size());

    FileDescriptor folder = openItem(m_chain.current(), m_name, O_DIRECTORY);
    if (!folder.isOpen() || ::fstat(folder.get(), &m_status) != 0) {
        m_event = Event::Blocked;
        m_error = errno;
        return true;
    }
    m_frames.push_back({m_status, m_pending.size(), m_folderPathLength});
    m_folderPathLength = m_path.size();
    m_reader.start(folder.get());
    m_isReading = true;
    m_chain.push(std::move(folder));
    m_event = Event::Enter;
    return true;
}

bool TreeWalker::leave()
{
    if (m_frames.empty()) {
        return false;
    }
    m_left = m_chain.pop();
    if (!m_left.isOpen()) {
        const int error = errno;
        m_frames.clear();
        m_pending.clear();
        return fail(error);
    }
    m_status = m_frames.back().status;
    m_folderPathLength = m_frames.back().parentPathLength;
    m_frames.pop_back();
    m_name = m_path.c_str() + m_folderPathLength + (m_folderPathLength > 0 ? 1 : 0);
    m_event = Event::Leave;
    return true;
}

bool TreeWalker::fail(int error)
{
    m_event = Event::Failed;
    m_error = error;
    return true;
}

bool TreeWalker::isFolder(const DirectoryReader::Entry &entry)
{
    if (entry.type != DT_UNKNOWN) {
        return entry.type == DT_DIR;
    }
    struct stat status = {};
    if (::fstatat(m_chain.current(), entry.name, &status, AT_SYMLINK_NOFOLLOW) == 0) {
        m_type = static_cast<unsigned char>(IFTODT(status.st_mode));
    }
    return m_type == DT_DIR;
}

void TreeWalker::addPending(std::string_view name)
{
    m_pending.append(name);
    m_pending += '\0';
}

std::string TreeWalker::takePending()
{
    m_pending.pop_back();
    const std::size_t start = m_pending.rfind('\0') + 1; // npos + 1 is 0
    std::string name = m_pending.substr(start);
    m_pending.resize(start);
    return name;
}

} // namespace platform
