#include "system/platform/PropertyList.h"

#include "system/platform/BinaryPropertyList.h"
#include "system/platform/PropertyListTexts.h"
#include "system/platform/XmlPropertyList.h"

#include <algorithm>

namespace platform {

PropertyList::PropertyList(const QByteArray &bytes, std::span<const std::string_view> keys)
    : m_keys(keys)
{
    PropertyListTexts texts(keys);
    const bool isRead = isBinaryPropertyList(bytes) ? readBinaryPropertyList(bytes, texts)
                                                    : readXmlPropertyList(bytes, texts);
    if (isRead) {
        m_texts = texts.take();
    }
}

QString PropertyList::text(std::string_view key) const
{
    const auto found = std::find(m_keys.begin(), m_keys.end(), key);
    const auto index = std::size_t(found - m_keys.begin());
    return index < m_texts.size() ? m_texts[index] : QString();
}

} // namespace platform
