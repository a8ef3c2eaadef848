#include "system/platform/files/TreeSize.h"

#include "system/platform/files/Progress.h"
#include "system/platform/files/TreeWalker.h"

#include <fcntl.h>

namespace platform {

namespace {

void add(const struct stat &status, TreeMeasure &measure)
{
    const auto size = static_cast<std::uint64_t>(status.st_size);
    ++measure.items;
    measure.bytes += size;
    measure.fileBytes += S_ISREG(status.st_mode) ? size : 0;
}

// Adds what the event is about, itself only.
void addVisited(const TreeWalker &walker, TreeMeasure &measure)
{
    struct stat status = {};
    switch (walker.event()) {
    case TreeWalker::Event::Item:
    case TreeWalker::Event::Blocked:
        if (::fstatat(walker.folder(), walker.name(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
            add(status, measure);
        }
        return;
    case TreeWalker::Event::Enter:
        return add(walker.status(), measure);
    case TreeWalker::Event::Leave:
    case TreeWalker::Event::Failed:
        return;
    }
}

} // namespace

TreeMeasure measureTree(int folder)
{
    TreeMeasure measure;
    const FileDescriptor top(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!top.isOpen()) {
        return measure;
    }
    TreeWalker walker(top.get());
    while (walker.next()) {
        addVisited(walker, measure);
        Work::advance(0, 0);
    }
    return measure;
}

} // namespace platform
