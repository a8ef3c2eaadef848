#pragma once

#include "system/platform/files/FileDescriptor.h"

#include <cstdint>

namespace platform {

/// Opens the item `name` of an open folder for reading, itself not followed when it is a link,
/// leaving its access time as it is where that is allowed. `flags` are more flags of open(2).
/// On failure the result is not open and errno tells why.
FileDescriptor openItem(int folder, const char *name, int flags);

/// Opens a folder as openItem() does, giving its owner full access first if he had taken it away
/// from himself.
FileDescriptor openOwnFolder(int parent, const char *name);

/// Makes and opens a folder that is accessible to its owner alone, whatever the process's mask.
FileDescriptor makePrivateFolder(int parent, const char *name);

/// True when `name` in the folder `parent` is the item that is open as `descriptor`.
bool isItemAt(int descriptor, int parent, const char *name);

/// The attributes of an open item that statx(2) calls STATX_ATTR_..., as far as its disk knows
/// them.
std::uint64_t systemAttributes(int item);

} // namespace platform
