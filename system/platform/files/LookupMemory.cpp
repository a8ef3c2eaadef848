#include "system/platform/files/LookupMemory.h"

#include "system/platform/files/DirectoryReader.h"
#include "system/platform/files/OpenItem.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace platform {

namespace {

thread_local LookupMemory *longestLiving = nullptr;

} // namespace

LookupMemory::LookupMemory()
{
    if (longestLiving == nullptr) {
        longestLiving = this;
    }
}

LookupMemory::~LookupMemory()
{
    if (longestLiving == this) {
        longestLiving = nullptr;
    }
}

LookupMemory *LookupMemory::current()
{
    return longestLiving;
}

const std::string *LookupMemory::namesIn(int folder)
{
    struct stat status = {};
    if (::fstat(folder, &status) != 0) {
        return nullptr;
    }
    const auto [entry, isNew] = m_names.try_emplace({status.st_dev, status.st_ino});
    std::string &names = entry->second;
    if (!isNew) {
        return &names;
    }
    const FileDescriptor opened = openItem(folder, ".", O_DIRECTORY);
    int error = opened.isOpen() ? 0 : errno;
    if (opened.isOpen()) {
        DirectoryReader reader;
        reader.start(opened.get());
        while (const DirectoryReader::Entry *item = reader.next()) {
            names.append(item->name).push_back('\0');
        }
        error = reader.error();
    }
    if (error != 0) {
        m_names.erase(entry);
        errno = error;
        return nullptr;
    }
    return &names;
}

} // namespace platform
