#include "system/platform/files/TreeSize.h"

#include "system/platform/files/TreeWalker.h"

#include <fcntl.h>

namespace platform {

namespace {

std::uint64_t sizeOf(const struct stat &status)
{
    return static_cast<std::uint64_t>(status.st_size);
}

// The size of what the event is about, itself only.
std::uint64_t visitedSize(const TreeWalker &walker)
{
    struct stat status = {};
    switch (walker.event()) {
    case TreeWalker::Event::Item:
    case TreeWalker::Event::Blocked: {
        const bool isThere =
            ::fstatat(walker.folder(), walker.name(), &status, AT_SYMLINK_NOFOLLOW) == 0;
        return isThere ? sizeOf(status) : 0;
    }
    case TreeWalker::Event::Enter:
        return sizeOf(walker.status());
    case TreeWalker::Event::Leave:
    case TreeWalker::Event::Failed:
        break;
    }
    return 0;
}

} // namespace

std::uint64_t treeSize(int folder)
{
    std::uint64_t size = 0;
    TreeWalker walker(folder);
    while (walker.next()) {
        size += visitedSize(walker);
    }
    return size;
}

} // namespace platform
