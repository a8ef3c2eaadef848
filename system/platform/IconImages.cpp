#include "system/platform/IconImages.h"

#include <QBuffer>
#include <QImageReader>

#include <algorithm>

namespace platform {

namespace {

constexpr int mostImages = 32;
constexpr int largestImage = 1024;    // pixels; the largest that the format has
constexpr int largestKept = 256;      // pixels; more than the window shows at any scale
constexpr int largestAllocation = 16; // MiB, for one image

bool isWithin(const QSize &size, int limit)
{
    return size.width() <= limit && size.height() <= limit;
}

} // namespace

QList<QImage> iconImages(const QByteArray &bytes)
{
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer, "icns");
    QImageReader::setAllocationLimit(largestAllocation);
    QList<QImage> images;
    const int count = std::min(reader.imageCount(), mostImages);
    for (int i = 0; i < count; ++i) {
        reader.jumpToImage(i);
        if (!isWithin(reader.size(), largestImage)) {
            continue;
        }
        QImage image = reader.read();
        if (!isWithin(image.size(), largestKept)) {
            image = image.scaled(largestKept, largestKept, Qt::KeepAspectRatio,
                                 Qt::SmoothTransformation);
        }
        const bool isNew = std::none_of(images.begin(), images.end(), [&](const QImage &other) {
            return other.size() == image.size();
        });
        if (!image.isNull() && isNew) {
            images.append(image);
        }
    }
    return images;
}

} // namespace platform
