#include "system/platform/files/TreeSize.h"

#include "system/platform/files/OpenItem.h"
#include "system/platform/files/TreeWalker.h"

#include <fcntl.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace platform {

namespace {

constexpr std::size_t maximumThreads = 4; // more would only wait for the disk

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

std::uint64_t subtreeSize(int parent, const char *name)
{
    const FileDescriptor folder = openItem(parent, name, O_DIRECTORY);
    if (!folder.isOpen()) {
        return 0;
    }
    std::uint64_t size = 0;
    TreeWalker walker(folder.get());
    while (walker.next()) {
        size += visitedSize(walker);
    }
    return size;
}

// Adds up the sizes of the subfolders, which wait for each other in nothing but the disk: one
// thread spends its time in the kernel, so several finish in a fraction of it.
std::uint64_t subtreeSizes(int parent, const std::vector<std::string> &names)
{
    std::atomic<std::uint64_t> size = 0;
    std::atomic<std::size_t> next = 0;
    const auto measure = [&] {
        for (std::size_t i = next++; i < names.size(); i = next++) {
            size += subtreeSize(parent, names[i].c_str());
        }
    };
    const std::size_t processors = std::thread::hardware_concurrency();
    const std::size_t threads = std::min({processors, maximumThreads, names.size()});
    std::vector<std::jthread> helpers; // beside this thread
    try {
        while (helpers.size() + 1 < threads) {
            helpers.emplace_back(measure);
        }
    } catch (const std::system_error &) {
        // The threads that there are do it all.
    }
    measure();
    helpers.clear(); // waits for them
    return size;
}

} // namespace

std::uint64_t treeSize(int folder)
{
    std::uint64_t size = 0;
    std::vector<std::string> subfolders;
    TreeWalker walker(folder);
    while (walker.next()) {
        size += visitedSize(walker);
        if (walker.event() == TreeWalker::Event::Enter) {
            subfolders.emplace_back(walker.name());
            walker.skipContents();
        }
    }
    return size + subtreeSizes(folder, subfolders);
}

} // namespace platform
