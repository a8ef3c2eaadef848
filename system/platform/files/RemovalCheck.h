#pragma once

#include "system/platform/files/FileError.h"

#include <optional>

namespace platform {

/// Finds out whether an open folder can be removed with everything in it: nothing below it may be
/// another user's to keep, locked, or the place of another disk. The error's item is a path below
/// the folder, empty for that itself.
///
/// Nothing is changed, but a folder that its owner closed to himself is opened while it is looked
/// at, and closed again.
std::optional<FileError> checkRemoval(int folder);

} // namespace platform
