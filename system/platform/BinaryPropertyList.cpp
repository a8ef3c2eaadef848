#include "system/platform/BinaryPropertyList.h"

#include "system/platform/PropertyListTexts.h"

#include <optional>
#include <string>
#include <vector>

namespace platform {

namespace {

constexpr QByteArrayView magic("bplist00");
constexpr quint64 trailerSize = 32; // bytes
constexpr quint64 mostPairs = 10'000;

enum Kind : quint64
{
    Ascii = 0x5,
    Utf16 = 0x6,
    Dictionary = 0xD
};

/// The objects of a property list. The format: a magic word, the objects, a table of the objects'
/// offsets, and a trailer that tells the sizes of both. An object starts with a byte for its kind
/// and count; a container holds the numbers of its values, a dictionary those of its keys before
/// those of its values. All numbers are big-endian.
class Objects
{
public:
    struct Object
    {
        quint64 kind = 0;
        quint64 count = 0;    ///< of bytes, of UTF-16 units or of pairs
        quint64 position = 0; ///< of what follows the count
    };

    explicit Objects(QByteArrayView bytes) : m_bytes(bytes), m_size(quint64(bytes.size()))
    {
        if (m_size < quint64(magic.size()) + trailerSize) {
            return;
        }
        const quint64 trailer = m_size - trailerSize;
        m_offsetSize = number(trailer + 6, 1).value_or(0);
        m_referenceSize = number(trailer + 7, 1).value_or(0);
        m_root = number(trailer + 16, 8).value_or(0);
        m_offsetTable = number(trailer + 24, 8).value_or(0);
        const quint64 objects = number(trailer + 8, 8).value_or(0);
        const bool isInside = m_offsetSize >= 1 && m_offsetSize <= 8 && m_offsetTable <= trailer &&
                              objects <= (trailer - m_offsetTable) / m_offsetSize;
        m_objects = isInside ? objects : 0;
    }

    quint64 root() const { return m_root; }

    /// Nothing if the object, as far as it is of one of the kinds above, does not lie in the file.
    std::optional<Object> objectAt(quint64 index) const
    {
        if (index >= m_objects) {
            return std::nullopt;
        }
        const auto offset = number(m_offsetTable + index * m_offsetSize, m_offsetSize);
        const auto marker = offset ? number(*offset, 1) : std::nullopt;
        if (!marker) {
            return std::nullopt;
        }
        Object object = {*marker >> 4U, *marker & 0xFU, *offset + 1};
        const quint64 unit = unitSize(object.kind);
        if (unit == 0) {
            return object;
        }
        if (object.count == 0xF && !readCount(object)) {
            return std::nullopt;
        }
        const bool isInside =
            object.position <= m_size && object.count <= (m_size - object.position) / unit;
        return isInside ? std::optional(object) : std::nullopt;
    }

    /// The number of the object that stands at a place of a dictionary.
    quint64 reference(const Object &dictionary, quint64 place) const
    {
        return number(dictionary.position + place * m_referenceSize, m_referenceSize)
            .value_or(m_objects);
    }

    /// A text in UTF-8.
    std::string text(const Object &object) const
    {
        const char *const start = m_bytes.data() + object.position;
        if (object.kind == Ascii) {
            return {start, object.count};
        }
        std::u16string units(object.count, 0);
        for (quint64 i = 0; i < object.count; ++i) {
            units[i] = char16_t(number(object.position + 2 * i, 2).value_or(0));
        }
        return QStringView(units).toUtf8().toStdString();
    }

private:
    /// The bytes that each unit of an object's count takes; 0 if it is none of the kinds above.
    quint64 unitSize(quint64 kind) const
    {
        switch (kind) {
        case Ascii:
            return 1;
        case Utf16:
            return 2;
        case Dictionary:
            return m_referenceSize * 2;
        default:
            return 0;
        }
    }

    /// A count of 15 and more is an integer object of its own.
    bool readCount(Object &object) const
    {
        const auto marker = number(object.position, 1);
        if (!marker || *marker >> 4U != 0x1) {
            return false;
        }
        const quint64 size = quint64(1) << (*marker & 0xFU);
        const auto count = number(object.position + 1, size);
        object.position += 1 + size;
        object.count = count.value_or(0);
        return count.has_value();
    }

    /// Nothing where the bytes are not there or are too many for a number.
    std::optional<quint64> number(quint64 position, quint64 size) const
    {
        if (size < 1 || size > 8 || position > m_size || size > m_size - position) {
            return std::nullopt;
        }
        quint64 value = 0;
        for (quint64 i = 0; i < size; ++i) {
            value = value << 8U | quint8(m_bytes[qsizetype(position + i)]);
        }
        return value;
    }

    QByteArrayView m_bytes;
    quint64 m_size = 0;
    quint64 m_offsetSize = 0;
    quint64 m_referenceSize = 0;
    quint64 m_objects = 0;
    quint64 m_root = 0;
    quint64 m_offsetTable = 0;
};

bool isText(const Objects::Object &object)
{
    return object.kind == Ascii || object.kind == Utf16;
}

} // namespace

bool isBinaryPropertyList(QByteArrayView bytes)
{
    return bytes.startsWith(magic);
}

bool readBinaryPropertyList(QByteArrayView bytes, PropertyListTexts &texts)
{
    const Objects objects(bytes);
    const auto dictionary = objects.objectAt(objects.root());
    if (!dictionary || dictionary->kind != Dictionary || dictionary->count > mostPairs) {
        return false;
    }
    const std::size_t longestKey = texts.longestKey();
    std::vector<bool> isSet(texts.size());
    for (quint64 pair = 0; pair < dictionary->count; ++pair) {
        const auto key = objects.objectAt(objects.reference(*dictionary, pair));
        const auto value =
            objects.objectAt(objects.reference(*dictionary, dictionary->count + pair));
        if (!key || !isText(*key) || !value) {
            return false;
        }
        // The pairs may share a key or a value however long, so few are unfolded.
        const std::size_t index = key->count <= longestKey ? texts.indexOf(objects.text(*key))
                                                           : PropertyListTexts::unknown;
        if (index == PropertyListTexts::unknown || isSet[index]) {
            continue;
        }
        isSet[index] = true;
        if (isText(*value) && value->count <= PropertyListTexts::longest) {
            texts.set(index, objects.text(*value));
        }
    }
    return true;
}

} // namespace platform
