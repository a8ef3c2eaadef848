#pragma once

#include "system/platform/files/FileError.h"
#include "system/platform/files/OpenItem.h"

#include <optional>

namespace platform {

/// Copies one item with everything in it to a place at which nothing exists, for the holder of
/// that place's LocationLock. The copy appears whole and flushed to the disk, or not at all; until
/// then it is accessible to its owner alone.
std::optional<FileError> copyItem(const ItemPlace &source, const ItemPlace &destination);

} // namespace platform
