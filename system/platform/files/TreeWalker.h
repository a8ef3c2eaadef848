#pragma once

#include "system/platform/files/DirectoryReader.h"
#include "system/platform/files/FileDescriptor.h"
#include "system/platform/files/FolderChain.h"

#include <sys/stat.h>

#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// Goes through everything below a folder, folder by folder, without following links. Depth and
/// path length have no limit, and the number of open descriptors does not grow with them.
///
/// The other items of a folder come first, then its subfolders, one after the other.
class TreeWalker
{
public:
    enum class Event
    {
        Item,    ///< something that is no folder
        Enter,   ///< a subfolder, which is the current folder now
        Leave,   ///< a subfolder whose contents are done; its parent is the current folder again
        Blocked, ///< a subfolder that could not be opened and is passed over
        Failed,  ///< the current folder could not be read to its end
    };

    /// `top` stays the caller's and open.
    explicit TreeWalker(int top);

    /// Goes to the next event; false when everything has been seen.
    bool next();

    Event event() const { return m_event; }

    /// The descriptor of the current folder, which holds the item.
    int folder() const { return m_chain.current(); }

    /// At Leave, the descriptor of the subfolder.
    int leftFolder() const { return m_left.get(); }

    /// The name of the item or subfolder in its folder.
    const char *name() const { return m_name; }

    /// At Item, the kind of item as readdir(3) has it, which may have changed meanwhile.
    unsigned char type() const { return m_type; }

    /// At Enter and Leave, what the subfolder was when it was entered.
    const struct stat &status() const { return m_status; }

    /// At Blocked and Failed, the errno.
    int error() const { return m_error; }

    /// The path from the top to the item or subfolder.
    std::string path() const;

    /// At Item, Leave and Blocked: (again) enters this subfolder later.
    void enterLater() { addPending(m_name); }

    /// At Enter: passes over what is in the subfolder.
    void skipContents() { m_isReading = false; }

private:
    struct Frame
    {
        struct stat status = {};
        std::size_t pendingStart = 0; ///< where its subfolders begin in m_pending
        std::size_t parentPathLength = 0;
    };

    bool nextItem();
    bool enterPending();
    bool leave();
    bool fail(int error);
    bool isFolder(const DirectoryReader::Entry &entry);
    void addPending(std::string_view name);
    std::string takePending();

    DirectoryReader m_reader;
    FolderChain m_chain;
    std::vector<Frame> m_frames;
    std::string m_pending; ///< names, each with a terminating zero
    std::string m_path;    ///< of the current folder, or of the subfolder that the event is about
    std::size_t m_folderPathLength = 0;
    FileDescriptor m_left;
    bool m_isReading = true;

    Event m_event = Event::Item;
    const char *m_name = "";
    unsigned char m_type = 0;
    struct stat m_status = {};
    int m_error = 0;
};

} // namespace platform
