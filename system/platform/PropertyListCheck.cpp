#include "system/platform/PropertyListCheck.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace platform {

namespace {

constexpr int deepestNesting = 64;
constexpr int mostValues = 100'000;
constexpr int mostXmlContainers = 10'000;

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
        for (int values = 0; !pending.empty(); ++values) {
            const Visit visit = pending.back();
            pending.pop_back();
            if (values > mostValues || visit.depth > deepestNesting) {
                return false;
            }
            const auto contained = containedObjects(visit.object);
            if (!contained || contained->size() > mostValues) {
                return false;
            }
            for (const quint64 object : *contained) {
                pending.push_back({object, visit.depth + 1});
            }
        }
        return true;
    }

private:
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

    /// The values of a container, none of any other object; nothing if it does not lie in the file.
    std::optional<std::vector<quint64>> containedObjects(quint64 object) const
    {
        const auto size = quint64(m_bytes.size());
        if (object >= m_objects || object >= size || m_offsetTable >= size) {
            return std::nullopt;
        }
        const quint64 offset = number(
            qsizetype(m_offsetTable + object * std::min(m_offsetSize, quint64(8))), m_offsetSize);
        if (offset >= size) {
            return std::nullopt;
        }
        auto position = qsizetype(offset);
        const quint64 marker = number(position++, 1);
        const quint64 kind = marker >> 4U;
        const bool isDictionary = kind == 0xD;
        if (kind != 0xA && kind != 0xC && !isDictionary) {
            return std::vector<quint64>();
        }
        quint64 count = marker & 0xFU;
        if (count == 0xF) { // the count is an integer object of its own
            const quint64 countSize = quint64(1) << (number(position++, 1) & 0xFU);
            count = number(position, countSize);
            position += qsizetype(countSize);
        }
        const quint64 references = isDictionary ? count * 2 : count;
        if (count > size || references * std::min(m_referenceSize, quint64(8)) > size) {
            return std::nullopt;
        }
        std::vector<quint64> contained;
        for (quint64 i = 0; i < references; ++i) {
            contained.push_back(number(position + qsizetype(i * m_referenceSize), m_referenceSize));
        }
        return contained;
    }

    const QByteArray &m_bytes;
    quint64 m_offsetSize = 0;
    quint64 m_referenceSize = 0;
    quint64 m_objects = 0;
    quint64 m_root = 0;
    quint64 m_offsetTable = 0;
};

} // namespace

bool isModestPropertyList(const QByteArray &bytes)
{
    if (bytes.startsWith("bplist")) {
        return BinaryShape(bytes).isModest();
    }
    return bytes.count("<array") + bytes.count("<dict") <= mostXmlContainers;
}

} // namespace platform
