#pragma once

#include <cstdint>

namespace platform {

/// What lies below a folder; what cannot be read is left out.
struct TreeMeasure
{
    std::uint64_t items = 0;
    std::uint64_t bytes = 0;     ///< of every item, each with its own size whatever its kind
    std::uint64_t fileBytes = 0; ///< of plain files alone
};

/// Measures everything below an open folder, which is read from its beginning.
TreeMeasure measureTree(int folder);

} // namespace platform
