#pragma once

#include <QByteArray>

namespace platform {

class PropertyListTexts;

/// Reads the top-level dictionary of a property list in XML, up to that dictionary's end. Of
/// several equal keys the last one counts. False when it is not well-formed up to there, holds
/// other than a property list's elements or none of them is a dictionary, or declares entities or
/// the like; `texts` is of no use then.
///
/// UTF-8, UTF-16, ISO-8859-1 and ASCII are known. A byte-order mark, or what is UTF-16 by its first
/// character, counts more than what is declared. Other encodings are read as UTF-8, and so are
/// bytes that the declared one does not have.
bool readXmlPropertyList(const QByteArray &bytes, PropertyListTexts &texts);

} // namespace platform
