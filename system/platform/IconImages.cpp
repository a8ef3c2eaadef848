#include "system/platform/IconImages.h"

#include <QBuffer>
#include <QImageReader>
#include <QtEndian>

#include <algorithm>
#include <array>
#include <optional>

namespace platform {

namespace {

constexpr int mostBlocks = 64;                   // of images and of all else
constexpr quint32 largestImage = 1024;           // pixels; the largest that the format has
constexpr qint64 mostPixels = 4LL * 1024 * 1024; // a complete file has less than half of them
constexpr int largestKept = 256;                 // pixels; more than the window shows at any scale
constexpr int largestAllocation = 16;            // MiB, for one image

// Images and masks from before there was PNG in the format, none larger than 128 pixels.
constexpr std::array<const char *, 21> rawKinds = {
    "ICN#", "ICON", "h8mk", "ich#", "ich4", "ich8", "icl4", "icl8", "icm#", "icm4", "icm8",
    "ics#", "ics4", "ics8", "ih32", "il32", "is32", "it32", "l8mk", "s8mk", "t8mk"};
constexpr qsizetype largestRawImage = qsizetype{128} * 128 * 4; // bytes

constexpr QByteArrayView pngStart("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16);
constexpr std::array<const char *, 5> neededPngChunks = {"IHDR", "PLTE", "tRNS", "IDAT", "IEND"};

quint32 numberAt(QByteArrayView bytes, qsizetype position)
{
    return qFromBigEndian<quint32>(bytes.sliced(position, 4).data());
}

QByteArray bytesOfNumber(qsizetype number)
{
    QByteArray bytes(4, 0);
    qToBigEndian(quint32(number), bytes.data());
    return bytes;
}

template <typename Kinds>
bool isOneOf(const Kinds &kinds, QByteArrayView kind)
{
    return std::find(kinds.begin(), kinds.end(), kind) != kinds.end();
}

/// The size of a PNG image; nothing when the format has none so large.
std::optional<QSize> pngSize(QByteArrayView png)
{
    if (png.size() < 24) {
        return std::nullopt;
    }
    const quint32 width = numberAt(png, 16);
    const quint32 height = numberAt(png, 20);
    return width <= largestImage && height <= largestImage
               ? std::optional(QSize(int(width), int(height)))
               : std::nullopt;
}

bool isLargerThanKept(QSize size)
{
    return size.width() > largestKept || size.height() > largestKept;
}

/// A PNG image without what it can be drawn without. A few megabytes of compressed remarks would
/// unfold to gigabytes.
QByteArray withoutRemarks(QByteArrayView png)
{
    constexpr qsizetype signature = 8;
    constexpr qsizetype frame = 12; // of a chunk: length, kind and checksum
    QByteArray result = png.first(signature).toByteArray();
    qsizetype position = signature;
    while (png.size() - position >= frame) {
        const qsizetype length = frame + qsizetype(numberAt(png, position));
        if (length > png.size() - position) {
            break;
        }
        if (isOneOf(neededPngChunks, png.sliced(position + 4, 4))) {
            result += png.sliced(position, length);
        }
        position += length;
    }
    return result;
}

/// The file with nothing but the blocks that hold an image of modest size. The library follows
/// every table of contents, takes long for each block however small, and believes every length.
QByteArray modestFile(const QByteArray &file)
{
    constexpr qsizetype header = 8; // of a block, and of the file: kind and length
    QByteArray blocks;
    QByteArray largerBlocks; // take the longest to decode, for nothing where there is the size kept
    bool hasLargestKept = false;
    qint64 pixelsLeft = mostPixels;
    qsizetype position = header;
    for (int i = 0; i < mostBlocks && file.size() - position >= header; ++i) {
        const qsizetype length = numberAt(file, position + 4);
        if (length < header || length > file.size() - position) {
            break;
        }
        const QByteArrayView block = QByteArrayView(file).sliced(position, length);
        const QByteArrayView kind = block.first(4);
        const QByteArrayView content = block.sliced(header);
        position += length;
        if (!content.startsWith(pngStart)) {
            if (isOneOf(rawKinds, kind) && content.size() <= largestRawImage) {
                blocks += block;
            }
            continue;
        }
        const auto size = pngSize(content);
        const qint64 pixels = size ? qint64(size->width()) * size->height() : 0;
        if (size && pixels <= pixelsLeft) {
            const QByteArray png = withoutRemarks(content);
            (isLargerThanKept(*size) ? largerBlocks : blocks) +=
                kind.toByteArray() + bytesOfNumber(header + png.size()) + png;
            pixelsLeft -= pixels;
            hasLargestKept = hasLargestKept || *size == QSize(largestKept, largestKept);
        }
    }
    if (!hasLargestKept) {
        blocks += largerBlocks;
    }
    return "icns" + bytesOfNumber(header + blocks.size()) + blocks;
}

/// The images of a reader that differ in size, none larger than what is kept.
QList<QImage> imagesOf(QImageReader &reader)
{
    reader.setAutoDetectImageFormat(false);
    QImageReader::setAllocationLimit(largestAllocation); // of every reader in the process
    QList<QImage> images;
    const int count = reader.imageCount();
    for (int i = 0; i < count; ++i) {
        reader.jumpToImage(i);
        QImage image = reader.read();
        if (isLargerThanKept(image.size())) {
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

} // namespace

QList<QImage> iconImages(const QByteArray &bytes)
{
    const bool isPng = bytes.startsWith(pngStart);
    if (!isPng && !bytes.startsWith("icns")) {
        return {};
    }
    if (isPng && !pngSize(bytes)) {
        return {};
    }
    QBuffer buffer;
    buffer.setData(isPng ? withoutRemarks(bytes) : modestFile(bytes));
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer, isPng ? "png" : "icns");
    return imagesOf(reader);
}

} // namespace platform
