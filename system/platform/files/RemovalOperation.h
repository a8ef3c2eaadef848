#pragma once

#include "system/platform/files/FileError.h"

#include <string>

namespace platform {

/// Removes one item with everything in it. What could not be removed entirely is not begun with
/// where that can be told before; in any case no half item stays at its place.
class RemovalOperation
{
public:
    /// The item `name` in an open folder, which stays the caller's.
    RemovalOperation(int parent, std::string name);

    bool run();

    const FileError &error() const { return m_error; }

private:
    bool removeFolder();
    bool removeInPlace();
    bool fail(const std::string &path, const std::string &reason);

    int m_parent = -1;
    std::string m_name;
    FileError m_error;
};

} // namespace platform
