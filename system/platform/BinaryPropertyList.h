#pragma once

#include <QByteArrayView>

namespace platform {

class PropertyListTexts;

/// Whether the bytes start as a property list in the binary form does.
bool isBinaryPropertyList(QByteArrayView bytes);

/// Reads the top-level dictionary of a property list in the binary form. Of several equal keys the
/// first one counts. False when there is no such dictionary, it has more than 10,000 keys, one of
/// them is not text or a value is not in the file; `texts` is of no use then.
bool readBinaryPropertyList(QByteArrayView bytes, PropertyListTexts &texts);

} // namespace platform
