#include "system/platform/PathEncoding.h"

#include <QStringDecoder>

namespace platform {

namespace {

constexpr char16_t escapeBase = 0xDC00;

bool isEscapedByte(QChar character)
{
    return character.unicode() >= escapeBase + 0x80 && character.unicode() <= escapeBase + 0xFF;
}

} // namespace

QString pathFromBytes(std::string_view bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::ConvertInitialBom);
    QString text = decoder(QByteArrayView(bytes.data(), qsizetype(bytes.size())));
    if (!decoder.hasError()) {
        return text;
    }
    text.clear();
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        text.append(QChar(value < 0x80 ? char16_t(value) : char16_t(escapeBase + value)));
    }
    return text;
}

std::string bytesFromPath(const QString &path)
{
    std::string bytes;
    qsizetype start = 0;
    const auto appendText = [&](qsizetype end) {
        bytes += path.mid(start, end - start).toStdString();
        start = end + 1;
    };
    for (qsizetype i = 0; i < path.size(); ++i) {
        const bool loneSurrogate =
            isEscapedByte(path[i]) && (i == 0 || !path[i - 1].isHighSurrogate());
        if (loneSurrogate) {
            appendText(i);
            bytes += static_cast<char>(path[i].unicode() - escapeBase);
        }
    }
    appendText(path.size());
    return bytes;
}

} // namespace platform
