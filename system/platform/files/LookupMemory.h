#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <utility>

namespace platform {

/// The names in the folders that lookups have listed.
///
/// While one of these lives, every FoldedLookup of its thread lists each folder once only; most of
/// the paths where an application may keep its data differ in their last components. It is made
/// for one question at a time: an item that appears meanwhile may not be found under another
/// spelling than its own. What is found is opened on the disk in any case.
class LookupMemory
{
public:
    LookupMemory();
    ~LookupMemory();
    LookupMemory(const LookupMemory &) = delete;
    LookupMemory &operator=(const LookupMemory &) = delete;

    /// The one that lives longest, or null.
    static LookupMemory *current();

    /// The names in the open folder, each with a NUL behind it. Null, and errno is set, when it
    /// cannot be read.
    const std::string *namesIn(int folder);

private:
    std::map<std::pair<dev_t, ino_t>, std::string> m_names;
};

} // namespace platform
