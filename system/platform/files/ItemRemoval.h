#pragma once

#include "system/platform/files/FileError.h"
#include "system/platform/files/OpenItem.h"

#include <optional>

namespace platform {

/// Removes one item with everything in it, at the place of its LocationLock's holder. What could
/// not be removed entirely is not begun with where that can be told before; what a removal leaves
/// that fails all the same stays under the item's name.
std::optional<FileError> removeItem(const ItemPlace &item);

} // namespace platform
