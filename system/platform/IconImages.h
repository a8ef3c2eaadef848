#pragma once

#include <QByteArray>
#include <QImage>
#include <QList>

namespace platform {

/// The images of an icon file in the .icns format, in PNG or of the older kinds of up to 128
/// pixels, one of each size, as large as the window shows them at any scale. What cannot be read,
/// or is larger than the format allows, is left out.
QList<QImage> iconImages(const QByteArray &bytes);

} // namespace platform
