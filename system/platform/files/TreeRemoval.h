#pragma once

#include "system/platform/files/FileError.h"

#include <optional>

namespace platform {

/// Removes the item `name` of an open folder with everything in it, one by one, taking the write
/// protection off folders where needed, but nothing on a disk that is mounted there. What is gone
/// already counts as removed. On failure what is left stays where it is; the error's item is a
/// path below the item, empty for that itself, and errno is set.
std::optional<FileError> removeTree(int parent, const char *name);

} // namespace platform
