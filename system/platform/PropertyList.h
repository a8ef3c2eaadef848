#pragma once

#include <QByteArray>
#include <QVariantMap>

namespace platform {

/// The dictionary that a property list, XML or binary, consists of: text keys to values of any
/// kind. Empty for anything else, and for a property list that is not modest (PropertyListCheck.h).
QVariantMap propertyListDictionary(const QByteArray &bytes);

} // namespace platform
