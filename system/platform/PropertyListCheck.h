#pragma once

#include <QByteArray>

namespace platform {

/// Whether a property list, XML or binary, is as modest as a real one: nested a few levels deep,
/// with no more values than a large application names. The library that reads property lists
/// unfolds whatever is there, by recursion; a few hundred bytes of a binary one, whose values
/// may be shared, can unfold without end, and a few megabytes of XML can take it half a
/// minute. What is no property list at all passes.
bool isModestPropertyList(const QByteArray &bytes);

} // namespace platform
