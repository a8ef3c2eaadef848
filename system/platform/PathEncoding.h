#pragma once

#include <QString>

#include <string>
#include <string_view>

namespace platform {

/// Names on a disk are bytes, paths in the program are text. Bytes are read as UTF-8, and each byte
/// that belongs to no character is held as the lone surrogate U+DC00 + byte, so that each path
/// comes back to the same bytes and a broken byte spoils no character beside it.
QString pathFromBytes(std::string_view bytes);
std::string bytesFromPath(const QString &path);

} // namespace platform
