#pragma once

#include <QChar>

namespace platform {

/// Put before a text, it makes a leading punctuation mark, such as the slash of a path, stand
/// where it is read, also where the window runs from right to left.
inline constexpr QChar leftToRightMark(0x200E);

} // namespace platform
