#pragma once

#include <cstdint>

namespace platform {

/// The sum of the sizes in bytes of every item below an open folder. What cannot be read is left
/// out.
std::uint64_t treeSize(int folder);

} // namespace platform
