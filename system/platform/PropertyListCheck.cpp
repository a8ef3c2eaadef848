#include "system/platform/PropertyListCheck.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace platform {

namespace {

constexpr int deepestNesting = 64;
constexpr std::size_t mostValues = 100'000;
constexpr quint64 mostBytes = 16ULL * 1024 * 1024; // in texts and data, as often as they are used
constexpr qsizetype mostXmlTags = 100'000;
constexpr qsizetype mostXmlKeys = 10'000;
constexpr qsizetype mostXmlContainers = 10'000;
constexpr qint64 mostXmlMoves = 4LL * 1024 * 1024 * 1024; // bytes

/// A binary property list as far as its shape goes. The format: a magic word, the objects, a
/// table of the objects' offsets, and a trailer of 32 bytes that tells the sizes of both. An
/// object starts with a byte for its kind and count; a container holds the numbers of its values.
class BinaryShape
{
public:
    explicit BinaryShape(const QByteArray &bytes) : m_bytes(bytes)
    {
        const qsizetype trailer = bytes.size() - 32;
        m_offsetSize = number(trailer + 6, 1);
        m_referenceSize = number(trailer + 7, 1);
        m_objects = number(trailer + 8, 8);
        m_root = number(trailer + 16, 8);
        m_offsetTable = number(trailer + 24, 8);
    }

    /// Goes through everything that the library would unfold, and gives up in time.
    bool isModest() const
    {
        struct Visit
        {
            quint64 object;
            int depth;
        };
        std::vector<Visit> pending = {{m_root, 0}};
        quint64 bytes = 0;
        for (std::size_t values = 1; !pending.empty(); ++values) {
            const Visit visit = pending.back();
            pending.pop_back();
            const auto object = objectAt(visit.object);
            if (!object || visit.depth > deepestNesting ||
                values + pending.size() + object->contained.size() > mostValues ||
                object->bytes > mostBytes - bytes) {
                return false;
            }
            bytes += object->bytes;
            for (const quint64 contained : object->contained) {
                pending.push_back({contained, visit.depth + 1});
            }
        }
        return true;
    }

private:
    enum Kind : quint64
    {
        Data = 0x4,
        AsciiText = 0x5,
        Utf16Text = 0x6,
        Array = 0xA,
        Set = 0xC,
        Dictionary = 0xD
    };

    static bool isContainer(quint64 kind)
    {
        return kind == Array || kind == Set || kind == Dictionary;
    }
    static bool isCounted(quint64 kind)
    {
        return isContainer(kind) || kind == Data || kind == AsciiText || kind == Utf16Text;
    }

    struct Object
    {
        std::vector<quint64> contained; ///< the numbers of a container's values
        quint64 bytes = 0;              ///< of a text or of data
    };

    /// A big-endian number, or the largest one where the bytes are not there.
    quint64 number(qsizetype position, quint64 size) const
    {
        if (position < 0 || size < 1 || size > 8 || position > m_bytes.size() - qsizetype(size)) {
            return ~quint64(0);
        }
        quint64 value = 0;
        for (quint64 i = 0; i < size; ++i) {
            value = value << 8U | quint8(m_bytes[position + qsizetype(i)]);
        }
        return value;
    }

    /// Nothing if the object does not lie in the file.
    std::optional<Object> objectAt(quint64 index) const
    {
        const auto size = quint64(m_bytes.size());
        if (index >= m_objects || m_objects > size || m_offsetTable >= size) {
            return std::nullopt;
        }
        const quint64 offset = number(
            qsizetype(m_offsetTable + index * std::min(m_offsetSize, quint64(8))), m_offsetSize);
        if (offset >= size) {
            return std::nullopt;
        }
        auto position = qsizetype(offset);
        const quint64 marker = number(position++, 1);
        const quint64 kind = marker >> 4U;
        if (!isCounted(kind)) {
            return Object();
        }
        quint64 count = marker & 0xFU;
        if (count == 0xF) { // the count is an integer object of its own
            const quint64 countSize = quint64(1) << (number(position++, 1) & 0xFU);
            count = number(position, countSize);
            position += qsizetype(countSize);
        }
        if (count > size) {
            return std::nullopt;
        }
        if (!isContainer(kind)) {
            return Object{{}, kind == Utf16Text ? count * 2 : count};
        }
        const quint64 references = kind == Dictionary ? count * 2 : count;
        if (references > mostValues) {
            return std::nullopt;
        }
        Object object;
        object.contained.reserve(references);
        for (quint64 i = 0; i < references; ++i) {
            object.contained.push_back(
                number(position + qsizetype(i * m_referenceSize), m_referenceSize));
        }
        return object;
    }

    const QByteArray &m_bytes;
    quint64 m_offsetSize = 0;
    quint64 m_referenceSize = 0;
    quint64 m_objects = 0;
    quint64 m_root = 0;
    quint64 m_offsetTable = 0;
};

/// Newer versions of the library read other formats too, which nothing here bounds.
bool isXml(const QByteArray &bytes)
{
    const auto *const start = std::find_if_not(bytes.begin(), bytes.end(), [](char character) {
        return QByteArrayView(" \t\r\n").contains(character);
    });
    return start != bytes.end() && *start == '<';
}

} // namespace

bool isModestPropertyList(const QByteArray &bytes)
{
    if (bytes.startsWith("bplist00")) {
        return BinaryShape(bytes).isModest();
    }
    // To find a key the library may look at every other one of its dictionary, and for each
    // reference to a character it moves the rest of the text.
    return isXml(bytes) && bytes.count('<') <= mostXmlTags && bytes.count("<key") <= mostXmlKeys &&
           bytes.count("<array") + bytes.count("<dict") <= mostXmlContainers &&
           qint64(bytes.count('&')) * bytes.size() <= mostXmlMoves;
}

} // namespace platform
