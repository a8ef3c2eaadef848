#pragma once

#include <QString>

#include <string>
#include <string_view>

namespace platform {

/// Names on a disk are bytes, paths in the program are text. The text of a name that is UTF-8
/// is that name; in any other name every byte above 127 is held as the lone surrogate U+DC00 +
/// byte, so that each name comes back to the same bytes.
QString pathFromBytes(std::string_view bytes);
std::string bytesFromPath(const QString &path);

} // namespace platform
