#pragma once

#include <QByteArray>
#include <QImage>
#include <QList>

namespace platform {

/// The images of an icon file, one of each size, as large as the window shows them at any scale: of
/// the .icns format those in PNG and those of the older kinds of up to 128 pixels, or one of PNG
/// itself. What cannot be read, or is larger than the .icns format allows, is left out.
QList<QImage> iconImages(const QByteArray &bytes);

} // namespace platform
