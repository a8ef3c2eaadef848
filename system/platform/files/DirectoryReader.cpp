#include "system/platform/files/DirectoryReader.h"

#include <dirent.h>

#include <cerrno>
#include <string_view>

namespace platform {

namespace {

bool isDotOrDotDot(const char *name)
{
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

} // namespace

DirectoryReader::DirectoryReader(std::size_t bufferSize)
    : m_buffer(std::make_unique_for_overwrite<std::byte[]>(bufferSize))
    , m_bufferSize(bufferSize)
{}

void DirectoryReader::start(int folder)
{
    m_folder = folder;
    m_length = 0;
    m_position = 0;
    m_error = 0;
}

const DirectoryReader::Entry *DirectoryReader::next()
{
    while (m_position < m_length || fill()) {
        const auto *record = reinterpret_cast<const dirent64 *>(m_buffer.get() + m_position);
        m_position += record->d_reclen;
        if (!isDotOrDotDot(record->d_name)) {
            m_entry = {record->d_name, record->d_type};
            return &m_entry;
        }
    }
    return nullptr;
}

bool DirectoryReader::fill()
{
    const ssize_t length = ::getdents64(m_folder, m_buffer.get(), m_bufferSize);
    // A folder that was removed while it was read has no entries any more.
    m_error = length < 0 && errno != ENOENT ? errno : 0;
    m_position = 0;
    m_length = length > 0 ? static_cast<std::size_t>(length) : 0;
    return m_length > 0;
}

} // namespace platform
