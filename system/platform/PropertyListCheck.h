#pragma once

#include <QByteArray>

namespace platform {

/// Whether bytes are an XML or binary property list as modest as a real one, with no more keys
/// and values than a large application names, and nothing else. The library that reads property
/// lists unfolds whatever is there; a few hundred bytes of a binary one, whose values may be
/// shared, can unfold without end, and a few megabytes of XML can take it half a minute.
bool isModestPropertyList(const QByteArray &bytes);

} // namespace platform
