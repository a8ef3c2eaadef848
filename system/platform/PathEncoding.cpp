#include "system/platform/PathEncoding.h"

#include <QStringDecoder>

#include <algorithm>

namespace platform {

namespace {

constexpr char16_t escapeBase = 0xDC00;

bool isEscapedByte(QChar character)
{
    return character.unicode() >= escapeBase + 0x80 && character.unicode() <= escapeBase + 0xFF;
}

bool isUtf8(std::string_view bytes)
{
    return QUtf8StringView(bytes.data(), qsizetype(bytes.size())).isValidUtf8();
}

QString textOf(std::string_view utf8)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::ConvertInitialBom);
    return decoder(QByteArrayView(utf8.data(), qsizetype(utf8.size())));
}

/// The bytes of the character that the text starts with; 0 when it starts with none.
std::size_t characterLength(std::string_view bytes)
{
    constexpr std::size_t longest = 4;
    for (std::size_t length = 1; length <= std::min(longest, bytes.size()); ++length) {
        if (isUtf8(bytes.substr(0, length))) {
            return length;
        }
    }
    return 0;
}

} // namespace

QString pathFromBytes(std::string_view bytes)
{
    if (isUtf8(bytes)) {
        return textOf(bytes);
    }
    QString text;
    std::size_t end = 0; // of what is a text, at the start of what is left
    while (end < bytes.size()) {
        const std::size_t length = characterLength(bytes.substr(end));
        if (length > 0) {
            end += length;
            continue;
        }
        text += textOf(bytes.substr(0, end));
        text += QChar(char16_t(escapeBase + static_cast<unsigned char>(bytes[end])));
        bytes.remove_prefix(end + 1);
        end = 0;
    }
    return text + textOf(bytes);
}

std::string bytesFromPath(const QString &path)
{
    const QStringView text = path;
    std::string bytes;
    qsizetype start = 0;
    const auto appendText = [&](qsizetype end) {
        const QByteArray utf8 = text.sliced(start, end - start).toUtf8();
        bytes.append(utf8.constData(), std::size_t(utf8.size()));
        start = end + 1;
    };
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (isEscapedByte(text[i]) && (i == 0 || !text[i - 1].isHighSurrogate())) {
            appendText(i);
            bytes += static_cast<char>(text[i].unicode() - escapeBase);
        }
    }
    appendText(text.size());
    return bytes;
}

} // namespace platform
